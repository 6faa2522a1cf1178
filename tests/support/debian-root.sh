#!/bin/bash
# A throw-away Debian 12, for those who source this file as root. Needs debootstrap.

# lay_debian FOLDER: a minimal Debian in FOLDER, from the machine's own mirror and with its apt settings.
lay_debian() {
    local folder=$1 mirror
    # shellcheck disable=SC2016 # for apt-get
    mirror=$(apt-get indextargets --format '$(SITE) $(RELEASE)' | awk '$2 == "bookworm" { print $1; exit }')
    echo "Laying Debian 12 in $folder"
    debootstrap --variant=minbase bookworm "$folder" "$mirror" >"$folder.log" 2>&1 || {
        cat "$folder.log"
        return 1
    }
    rm -rf "$folder/etc/apt/sources.list"
    cp -a /etc/apt/apt.conf.d/. "$folder/etc/apt/apt.conf.d/"
    cp -a /etc/apt/sources.list.d/. "$folder/etc/apt/sources.list.d/"
    [[ ! -e /etc/apt/sources.list ]] || cp -a /etc/apt/sources.list "$folder/etc/apt/"
    cp -L /etc/resolv.conf /etc/hosts "$folder/etc/"
}

# enter_debian FOLDER SCRIPT: runs the shell script with FOLDER as the root. In a mount namespace of its own the
# folder becomes the root: bubblewrap refuses to work in a chroot, and the mounts end with the last process.
enter_debian() {
    # shellcheck disable=SC2016 # for the shell inside
    unshare --mount --pid --fork --kill-child --propagation private sh -c '
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
        export HOME=/root
        export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
        exec sh -c "$2"' sh "$1" "$2" </dev/null
}
