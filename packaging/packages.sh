#!/bin/bash
# The Debian packages that this tree needs, and the one function that installs them. Sourced by ./run and
# ./test; this is the only list.
# shellcheck disable=SC2034 # used by those that source it

build_packages=(cmake ninja-build g++ libboost-dev libboost-program-options-dev libboost-regex-dev
    libcurl4-openssl-dev libssl-dev lld)
host_packages=(bubblewrap)
php_packages=(php8.2-cgi php8.2-cli php8.2-fpm)
test_packages=(strace valgrind libgtest-dev libgmock-dev python3 python3-pytest clang-format shellcheck jq mandoc
    python3-jsonschema zsh fish logrotate cppcheck)
full_packages=(clang clang-tidy gcovr debootstrap dpkg-dev lintian rpm rpmlint cpio ansible-core)
bench_packages=(rapidjson-dev jq)
fuzz_packages=(clang)

as_root() {
    if [[ $(id -u) -eq 0 ]]; then
        "$@"
    else
        sudo "$@"
    fi
}

# As root: Debian's answer of "do not start services" is laid down unless there is one, and goes when apt has ended, is
# interrupted or killed by the terminal.
# shellcheck disable=SC2016 # for the shell inside
install_quietly='
    policy=/usr/sbin/policy-rc.d
    if [ ! -e "$policy" ]; then
        trap "rm -f $policy" EXIT
        trap "exit 130" INT TERM HUP
        printf "#!/bin/sh\nexit 101\n" >"$policy"
        chmod 755 "$policy"
    fi
    apt-get update -qq && apt-get install -y -qq --no-install-recommends "$@"'

# install_missing PACKAGE...: silent when all are there; otherwise says in one line what it installs. Services of the
# installed packages are not started. Fails with apt's own words when apt fails.
install_missing() {
    local installed package missing=() log status=0
    # shellcheck disable=SC2016 # the braces are dpkg-query's
    installed=$(dpkg-query -W -f='${db:Status-Status}:${Package}\n' "$@" 2>/dev/null) || true
    for package in "$@"; do
        [[ $'\n'$installed$'\n' == *$'\n'"installed:$package"$'\n'* ]] || missing+=("$package")
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0
    echo "Installing: ${missing[*]}"
    log=$(as_root env LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive sh -c "$install_quietly" sh "${missing[@]}" \
        </dev/null 2>&1) || status=$?
    if [[ $status -ne 0 ]]; then
        printf '%s\n' "$log" >&2
    fi
    return "$status"
}
