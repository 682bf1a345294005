#!/usr/bin/env bash
# Runs a command of this project in a throwaway system of another Debian release.
#
#   on_debian.sh <release> <command> [argument...]      on_debian.sh 13 ./test
#
# The release is a number or a code name. The system lies below build/debian/<code name>/; it is made
# once, with debootstrap, and kept for the next time: remove the folder to begin anew. The command
# runs as root in a copy of the work tree, without its build folder; what it builds stays there, in
# checkout/build. Needs root, because a system is made.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

if [ $# -lt 2 ]; then
    echo "usage: on_debian.sh <release> <command> [argument...]" >&2
    exit 2
fi
if [ "$(id -u)" -ne 0 ]; then
    echo "on_debian.sh: only root can make a system of its own" >&2
    exit 1
fi
velt_setup debian
release=$(awk -F, -v wanted="${1,,}" '$1 == wanted || $3 == wanted { print $3; exit }' \
    /usr/share/distro-info/debian.csv)
if [ -z "$release" ]; then
    echo "on_debian.sh: there is no release $1" >&2
    exit 2
fi
shift

system=$velt_root/build/debian/$release
if [ ! -d "$system" ]; then
    echo "making a system: Debian $release"
    rm -rf "$system.partial"
    mkdir -p "$system.partial"
    velt_logged "debootstrap-$release" debootstrap --variant=minbase "$release" "$system.partial"
    mv "$system.partial" "$system"
fi
# What has other contents is new there, whatever its time here: builds compare times.
rsync --archive --no-times --checksum --delete --exclude=/build "$velt_root/" "$system/checkout/"
cp /etc/resolv.conf "$system/etc/resolv.conf"

# What is mounted and what runs goes with the namespaces.
exec unshare --mount --pid --fork --kill-child bash -c '
    set -e
    mount --make-rprivate /
    mount --bind "$1" "$1" # a mount of its own, as the root of a system is
    mount -t proc proc "$1/proc"
    mount -t sysfs sysfs "$1/sys"
    mount --rbind /dev "$1/dev"
    exec chroot "$1" /usr/bin/env -i HOME=/root LANG=C.UTF-8 PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        ${TERM+TERM="$TERM"} bash -c "cd /checkout && exec \"\$@\"" "$@"
' on_debian.sh "$system" "$@"
