# Completion of tamrix for bash.

# Identifiers of the handlers that can be changed, one on a line. A JSON escape is left as it is, so an identifier
# that has one is not offered.
_tamrix_ids() {
    command "$1" --list-json 2>/dev/null | awk '
        /^\t"id":/ { id = /:"/ ? substr($0, 8, length($0) - 9) : "" }
        /^\t"system":false/ && id != "" && id !~ /\\/ { print id }'
}

# Offers those of the lines on standard input that continue $1, quoted. Readline keeps what stands before the last
# colon of the word.
_tamrix_offer() {
    local line quoted kept=
    [[ $1 != *:* ]] || kept=${1%:*}:
    while IFS= read -r line; do
        printf -v quoted %q "$line"
        if [[ $line == "$1"* || $quoted == "$1"* ]]; then
            COMPREPLY+=("${quoted#"$kept"}")
        fi
    done
}

# The options of a command that are not yet given.
_tamrix_options() {
    local command=$1 option
    local fields="displayname path clipath phpini type service poold"
    local -A options=(
        [--add]="id $fields no-set-dirty-flag" [--update]="id $fields no-set-dirty-flag"
        [--remove]="id help no-set-dirty-flag" [--reread]="no-set-dirty-flag")
    for option in ${options[$command]-}; do
        [[ " ${COMP_WORDS[*]:2:COMP_CWORD-2} " == *" --$option "* ]] || echo "--$option"
    done
}

# The values of an option.
_tamrix_values() {
    case $2 in
    --id) [[ ${COMP_WORDS[1]} == --add ]] || _tamrix_offer "$3" < <(_tamrix_ids "$1") ;;
    --type) _tamrix_offer "$3" < <(printf '%s\n' cgi fastcgi fpm) ;;
    --path | --clipath | --phpini)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$3")
        ;;
    --poold)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$3")
        ;;
    esac
}

# The option nearest before the cursor.
_tamrix_last_option() {
    local n
    for ((n = COMP_CWORD - 1; n > 1; --n)); do
        if [[ ${COMP_WORDS[n]} == --* ]]; then
            echo "${COMP_WORDS[n]}"
            return
        fi
    done
}

_tamrix() {
    local word=$2 previous=$3 typed=${COMP_LINE:0:COMP_POINT}
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--add --update --remove --reread --list --list-json --help -h" -- "$word")
        return
    fi
    # Colons and equals signs are words of their own.
    typed=${typed##* }
    if [[ $typed == --*=* ]]; then
        previous=${typed%%=*}
        word=${typed#*=}
    elif [[ $typed == *:* && $typed != --* ]]; then
        previous=$(_tamrix_last_option)
        word=$typed
    fi
    case $previous in
    --id | --displayname | --path | --clipath | --phpini | --type | --service | --poold)
        _tamrix_values "$1" "$previous" "$word"
        ;;
    *) _tamrix_offer "$word" < <(_tamrix_options "${COMP_WORDS[1]}") ;;
    esac
}

complete -F _tamrix tamrix
