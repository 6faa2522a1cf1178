#!/bin/bash
# Throw-away Debian systems, for scripts that source this file as root. Needs debootstrap.

# lay_debian SUITE FOLDER [OPTION...]: the minimal system of that suite, from the machine's own mirror and with its apt
# settings; the options are debootstrap's.
lay_debian() {
    local suite=$1 folder=$2 mirror script=()
    shift 2
    # shellcheck disable=SC2016 # for apt-get
    mirror=$(apt-get indextargets --format '$(SITE) $(LABEL)' | awk '$2 == "Debian" { print $1; exit }')
    # An older debootstrap does not know the newest names; all suites since trixie are laid alike.
    [[ -e /usr/share/debootstrap/scripts/$suite ]] || script=(trixie)
    echo "Laying $suite in $folder"
    debootstrap --variant=minbase "$@" "$suite" "$folder" "$mirror" "${script[@]}" >"$folder.log" 2>&1 || {
        cat "$folder.log"
        return 1
    }
    echo "deb $mirror $suite main" >"$folder/etc/apt/sources.list"
    apt-config dump Acquire | grep -v ::IndexTargets >"$folder/etc/apt/apt.conf.d/90machine"
    cp -L /etc/resolv.conf /etc/hosts "$folder/etc/"
}

# lay_packages SUITE FOLDER PACKAGE...: the minimal system and those packages; no service is started. What was downloaded
# is kept in build/debian/SUITE.
lay_packages() {
    local suite=$1 folder=$2 kept
    shift 2
    kept=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")/build/debian/$suite
    mkdir -p "$kept"
    lay_debian "$suite" "$folder" --cache-dir="$kept"
    printf '#!/bin/sh\nexit 101\n' >"$folder/usr/sbin/policy-rc.d"
    chmod 755 "$folder/usr/sbin/policy-rc.d"
    cp "$kept"/*.deb "$folder/var/cache/apt/archives/"
    enter_debian "$folder" "apt-get update -q && DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends -o APT::Keep-Downloaded-Packages=true $*" >"$folder.log" 2>&1 || {
        cat "$folder.log"
        return 1
    }
    mv "$folder"/var/cache/apt/archives/*.deb "$kept/"
}

# enter_debian FOLDER SCRIPT: runs the shell script with FOLDER as the root. In a mount namespace of its own the
# folder becomes the root, because bubblewrap refuses to work in a chroot; the mounts end with the last process.
enter_debian() {
    # shellcheck disable=SC2016 # for the shell inside
    unshare --mount --pid --fork --kill-child --propagation private env -i LANG=C.UTF-8 HOME=/root \
        PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin sh -c '
        set -e
        mount --bind "$1" "$1"
        cd "$1"
        mount --rbind /dev dev
        mount -t proc proc proc
        mount -t tmpfs tmpfs run
        mkdir -p .old
        pivot_root . .old
        umount -l /.old
        rmdir /.old
        exec sh -c "$2"' sh "$1" "$2" </dev/null
}
