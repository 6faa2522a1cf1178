# Completion of tamrix for fish.

# Identifiers of the handlers that can be changed. Not offered is one with a JSON escape, which is left as it is, or with
# a tilde in front, which fish does not quote.
function __tamrix_ids
    set -l words (commandline -opc)
    command $words[1] --list-json 2>/dev/null | awk '
        /^\t"id":/ { id = /:"/ ? substr($0, 8, length($0) - 9) : "" }
        /^\t"system":false/ && id != "" && id !~ /\\\\|^~/ { print id }'
end

# An option of these commands that is not yet given. Where no option is begun, the last word is the option whose
# value is due.
function __tamrix_takes
    set -l words (commandline -opc)
    set -l given $words[3..-1]
    string match -q -- '-*' (commandline -ct); or set given $words[3..-2]
    test (count $words) -gt 1
    and contains -- $words[2] $argv[2..-1]
    and not contains -- --$argv[1] $given
    and not string match -q -- "--$argv[1]=*" $given
end

function __tamrix_no_command
    test (count (commandline -opc)) -eq 1
end

complete -c tamrix -f

complete -c tamrix -n __tamrix_no_command -l add -d 'register new php handler'
complete -c tamrix -n __tamrix_no_command -l update -d 'update existing handler'
complete -c tamrix -n __tamrix_no_command -l remove -d 'remove existing handler'
complete -c tamrix -n __tamrix_no_command -l reread -d 'reread handlers info'
complete -c tamrix -n __tamrix_no_command -l list -d 'list handlers in human readable format'
complete -c tamrix -n __tamrix_no_command -l list-json -d 'list handlers in json format'
complete -c tamrix -n __tamrix_no_command -l help -s h -d 'show help'

complete -c tamrix -n '__tamrix_takes id --add' -l id -x -d 'handler id'
complete -c tamrix -n '__tamrix_takes id --update --remove' -l id -x -a '(__tamrix_ids)' -d 'handler id'
complete -c tamrix -n '__tamrix_takes displayname --add --update' -l displayname -x -d 'human readable handler name'
complete -c tamrix -n '__tamrix_takes path --add --update' -l path -r -F -d 'path to php-cgi'
complete -c tamrix -n '__tamrix_takes clipath --add --update' -l clipath -r -F -d 'path to php-cli'
complete -c tamrix -n '__tamrix_takes phpini --add --update' -l phpini -r -F -d 'path to php.ini'
complete -c tamrix -n '__tamrix_takes type --add --update' -l type -x -a 'cgi fastcgi fpm' -d 'php handler type'
complete -c tamrix -n '__tamrix_takes service --add --update' -l service -x -d 'service name for fpm'
complete -c tamrix -n '__tamrix_takes poold --add --update' -l poold -x -a '(__fish_complete_directories)' -d 'path to pool.d for fpm'
complete -c tamrix -n '__tamrix_takes help --remove' -l help -d 'without effect'
complete -c tamrix -n '__tamrix_takes no-set-dirty-flag --add --update --remove --reread' -l no-set-dirty-flag -d 'do not call depotctl --set-dirty-flag'
