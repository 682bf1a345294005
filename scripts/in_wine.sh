#!/usr/bin/env bash
# Runs a Windows program in a Wine prefix and on a virtual screen of its own.
#
#   in_wine.sh [--keep] <prefix> <program> [argument...]
#
# The prefix is a folder below the build folder. It is made anew for each run, so that nothing is
# left of earlier ones; with --keep an existing one is used again. The user's own prefix and display
# are never touched. The exit code is the program's.
set -eu

keep=
if [ "$1" = --keep ]; then
    keep=1
    shift
fi
if [ -z "${1:-}" ] || [ -z "${2:-}" ]; then
    echo "usage: in_wine.sh [--keep] <prefix> <program> [argument...]" >&2
    exit 2
fi
prefix=$(realpath -m "$1")
shift

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
template=$root/build/wine/template

export WINEARCH=win32
export WINEDEBUG=${VELT_WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=;winedbg.exe="
unset WAYLAND_DISPLAY

# A screen of its own, which ends with this script.
screen_pipe=$(mktemp -u)
mkfifo "$screen_pipe"
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$screen_pipe" >/dev/null 2>&1 &
screen_pid=$!
read -r display <"$screen_pipe"
rm -f "$screen_pipe"
export DISPLAY=:$display

end() {
    [ ! -d "$prefix" ] || WINEPREFIX=$prefix wineserver -k >/dev/null 2>&1 || true
    kill "$screen_pid" 2>/dev/null || true
    wait "$screen_pid" 2>/dev/null || true
}
trap end EXIT

# The template is made once; prefixes are hard-linked copies of its files with a registry of their
# own, because making a prefix takes seconds.
mkdir -p "$root/build/wine"
(
    flock 9
    if [ ! -e "$template/.complete" ]; then
        rm -rf "$template"
        WINEPREFIX=$template wineboot -i >"$root/build/wine/wineboot.log" 2>&1
        WINEPREFIX=$template wineserver -w
        touch "$template/.complete"
    fi
) 9>"$root/build/wine/template.lock"

if [ -z "$keep" ] || [ ! -d "$prefix" ]; then
    rm -rf "$prefix"
    mkdir -p "$prefix"
    cp -al "$template/drive_c" "$prefix/"
    cp -a "$template/dosdevices" "$template"/*.reg "$template/.update-timestamp" "$prefix/"
fi

status=0
WINEPREFIX=$prefix wine "$@" || status=$?
exit "$status"
