#!/bin/bash
# The Debian packages that this tree needs, by purpose, and how they are installed. Sourced by ./run, ./test and others.
# shellcheck disable=SC2034 # used by those that source it

build_packages=(cmake ninja-build g++ libboost-dev libboost-program-options-dev libboost-regex-dev
    libcurl4-openssl-dev libssl-dev lld)
host_packages=(bubblewrap)
php_packages=(php-cgi php-cli php-fpm)
unit_packages=(libgmock-dev libgtest-dev python3)
test_packages=(cppcheck clang-format fish jq logrotate mandoc python3-jsonschema python3-pytest python3-pytest-xdist
    shellcheck strace zsh)
deb_packages=(build-essential debhelper dpkg-dev libzstd-dev pkgconf zlib1g-dev)
full_packages=("${deb_packages[@]}" ansible-core ansible-lint autopkgtest clang clang-tidy cpio debootstrap file
    g++-aarch64-linux-gnu libclang-rt-dev lintian llvm python3-voluptuous qemu-user rpm rpmlint valgrind)
bench_packages=(gnuplot-nox jq libsimdjson-dev rapidjson-dev)

# What runs as root. Services of the new packages are neither started nor left enabled: Debian's answer "do not start
# services" is laid down unless there is one, and links that enable a service go again when they are new.
# shellcheck disable=SC2016 # for the shell inside
install_as_root='
    set -e
    policy=/usr/sbin/policy-rc.d
    links() { find /etc/systemd/system /etc/rc?.d -type l 2>/dev/null | sort; }
    trap "exit 130" INT TERM HUP
    if [ ! -e "$policy" ]; then
        trap "rm -f $policy" EXIT
        printf "#!/bin/sh\nexit 101\n" >"$policy"
        chmod 755 "$policy"
    fi
    apt-get update -q
    size=$(apt-get install --no-install-recommends --assume-no "$@" 2>&1 |
        sed -n "s/.*, \([0-9]* newly installed\), .*/\1/p; s/^Need to get \(.*\) of archives.$/\1 to get/p;
            s/^After this operation, \(.* of additional\) disk space.*/\1 disk space/p" | paste -sd, | sed "s/,/, /g")
    echo "Installing $* ($size)"
    before=$(links)
    apt-get install -y -q --no-install-recommends "$@"
    links | while read -r link; do
        case "$before" in *"$link"*) continue ;; esac
        case "$link" in
        /etc/rc?.d/S*) name=${link##*/S??}; update-rc.d "$name" disable ;;
        /etc/systemd/*) echo "not enabled: ${link##*/}"; rm -f "$link" ;;
        esac
    done'

# progress: shows the lines of standard input, on a terminal as one live line, elsewhere as they come.
progress() {
    local line
    if [[ -t 1 ]]; then
        while IFS= read -r line; do
            printf '\r\033[K%.*s' $((${COLUMNS:-80} - 1)) "$line"
        done
        printf '\r\033[K'
    else
        cat
    fi
}

# with_progress LOG COMMAND...: shows what the command prints, and all of it again when it fails behind a live line.
with_progress() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    (
        set -o pipefail
        "$@" 2>&1 </dev/null | tee "$log" | progress
    ) || {
        [[ ! -t 1 ]] || cat "$log"
        return 1
    }
}

# install_missing PACKAGE...: installs those that are missing, says nothing when none is. As an ordinary user by sudo.
install_missing() {
    local installed package missing=() as_root=()
    # shellcheck disable=SC2016 # the braces are dpkg-query's
    installed=$(dpkg-query -W -f='${db:Status-Status}:${Package}\n' "$@" 2>/dev/null) || true
    for package in "$@"; do
        [[ $'\n'$installed$'\n' == *$'\n'"installed:$package"$'\n'* ]] || missing+=("$package")
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0
    if [[ $(id -u) -ne 0 ]]; then
        as_root=(sudo)
        [[ -t 0 ]] || as_root+=(-n)
        if ! "${as_root[@]}" -v 2>/dev/null; then
            echo "packages are missing;" \
                "as root: apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
            return 1
        fi
    fi
    with_progress build/log/install "${as_root[@]}" env LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        sh -c "$install_as_root" sh "${missing[@]}"
}
