# Debian roots of their own, for the scripts that build or install in one: how they are entered, and how nothing of what
# happened in them is left when the script ends. To be sourced in the project's folder.
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
set -euo pipefail

# Changes into the root $1, with the project in /citp and the folder $2 as its build/, and runs a command there. Called
# as process 1 of process and mount namespaces of its own, so that all it mounts and all it starts goes with it. By
# pivot_root: inside a mere chroot the kernel refuses the user namespaces that the network tests need.
enter_root() {
    local root=$1 builds=$2 tree=/citp
    shift 2
    mkdir -p "$builds" "$root$tree"
    mount --bind "$root" "$root"
    mount --bind . "$root$tree"
    mount --bind "$builds" "$root$tree/build"
    mount --rbind /dev "$root/dev"
    mount --rbind /sys "$root/sys"
    mount -t proc proc "$root/proc"
    cp -L /etc/resolv.conf /etc/hosts "$root/etc/"
    rm -rf "${root:?}"/tmp/*
    cd "$root"
    pivot_root . .
    cd /
    umount -l .
    cd "$tree"
    # Started in the background, this is deaf to Ctrl-C; the tests' programs must not be.
    env --default-signal=INT,QUIT "$@"
}

child=
# shellcheck disable=SC2317 # the trap calls it
stop() {
    # Killing process 1 of the namespaces ends all in them, and with the last of them go their mounts.
    [ -z "$child" ] || kill -KILL "$child" 2>/dev/null || true
}
trap stop EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

# Runs a command in mount and process namespaces of its own, so that nothing of it is left when this script ends.
isolated() {
    local status=0
    unshare --mount --propagation private --pid --fork --kill-child --mount-proc "$@" </dev/null 9>&- &
    child=$!
    wait "$child" || status=$?
    child=
    return "$status"
}

# Unpacks a minimal Debian of the release $1 and the architecture $2 with the packages $3 into the folder $4; the output
# goes to the file $5. dpkg does not flush its files there, which saves minutes: a root that is not complete is never used.
unpack_debian() {
    isolated debootstrap --arch="$2" --variant=minbase --include="$3" "$1" "$4" "$(mirror)" >"$5" 2>&1 &&
        echo force-unsafe-io >"$4/etc/dpkg/dpkg.cfg.d/unsafe-io"
}

# The mirror that this host's own packages come from.
mirror() {
    # shellcheck disable=SC2016 # apt fills these in
    apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)' 'Created-By: Packages' 2>/dev/null |
        awk '$3 == "main" && $2 !~ /[-\/]/ && ($4 == "Debian" || $4 == "") { print $1; exit }'
}
