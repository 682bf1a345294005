#!/usr/bin/env bash
# Runs a Windows program in a Wine prefix and on a virtual screen of its own.
#
#   in_wine.sh [--keep] [--both] [--show] [--beside <command>] <prefix> <program> [argument...]
#
# The prefix is a folder below the build folder. It is made anew for each run, so that nothing is
# left of earlier ones; with --keep an existing one is used again. It is one of 64-bit Windows, where
# programs of both kinds run, when the program is a file of such a one or with --both, else one of
# 32-bit Windows. The user's own prefix is never touched, and the user's display only with --show,
# which puts the program on it. With --beside, a shell command runs on the same screen and ends before
# this script does; it uses the screen as a person would. A new prefix has the file C:\full.txt, whose
# disk is full. The exit code is the program's, or the command's when that failed.
set -eu

keep=
windows=
show=
beside=
while :; do
    case "${1:-}" in
    --keep) keep=1 ;;
    --both) windows=win64 ;;
    --show) show=1 ;;
    --beside)
        beside=$2
        shift
        ;;
    *) break ;;
    esac
    shift
done
if [ -z "${1:-}" ] || [ -z "${2:-}" ]; then
    echo "usage: in_wine.sh [--keep] [--both] [--show] [--beside <command>] <prefix> <program> [argument...]" >&2
    exit 2
fi
prefix=$(realpath -m "$1")
shift

# number_at <file> <offset> <bytes>: a number of that size in a file; nothing past its end.
number_at() {
    od -An -t "u$3" -j "$2" -N "$3" "$1" | tr -d ' '
}
kept=
[ -z "$keep" ] || [ ! -d "$prefix" ] || kept=1
if [ -n "$kept" ]; then
    windows=$(sed -n 's/^#arch=//p' "$prefix/system.reg")
elif [ -z "$windows" ]; then
    windows=win32
    # The processor is the first thing in the header, which the word at 60 leads to.
    if [ -f "$1" ] && [ "$(number_at "$1" $(($(number_at "$1" 60 4) + 4)) 2)" = $((0x8664)) ]; then
        windows=win64
    fi
fi

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
template=$root/build/wine/template-$windows
made=$template/.made-8 # another name for each change of how it is made

export WINEARCH=$windows
export WINEDEBUG=${VELT_WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=;winedbg.exe="
unset WAYLAND_DISPLAY

# A screen of its own, which ends with this script; and whatever the user's language is, all
# characters can be in names of files.
screen_pid=
if [ -z "$show" ]; then
    export LC_ALL=C.UTF-8
    screen_pipe=$(mktemp -u)
    mkfifo "$screen_pipe"
    Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$screen_pipe" >/dev/null 2>&1 &
    screen_pid=$!
    read -r display <"$screen_pipe"
    rm -f "$screen_pipe"
    export DISPLAY=:$display
fi

beside_pid=
end() {
    [ ! -d "$prefix" ] || WINEPREFIX=$prefix wineserver -k >/dev/null 2>&1 || true
    local pid
    for pid in $beside_pid $screen_pid; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
}
trap end EXIT

# The template is made once; prefixes are hard-linked copies of its files with a registry of their
# own, because making a prefix takes seconds.
mkdir -p "$root/build/wine"
(
    flock 9
    if [ ! -e "$made" ]; then
        rm -rf "$template"
        log=$root/build/wine/wineboot-$windows.log
        WINEPREFIX=$template wineboot -i >"$log" 2>&1
        # Where a font lacks a character, Windows takes it from the fonts linked to that one; the
        # font is the one that stands for all that Windows has for its dialogs.
        for font in 'Liberation Sans' 'Liberation Sans Bold'; do
            WINEPREFIX=$template wine reg add \
                'HKLM\Software\Microsoft\Windows NT\CurrentVersion\FontLink\SystemLink' /f \
                /v "$font" /t REG_MULTI_SZ \
                /d 'DroidSansFallbackFull.ttf,Droid Sans Fallback' >>"$log"
        done
        # The font of the system's own windows.
        WINEPREFIX=$template wine reg add 'HKCU\Software\Wine\Fonts\Replacements' /f \
            /v Tahoma /d 'Liberation Sans' >>"$log"
        # A rich edit control takes only the font that is named.
        for font in 'MS Gothic' SimSun; do
            WINEPREFIX=$template wine reg add 'HKCU\Software\Wine\Fonts\Replacements' /f \
                /v "$font" /d 'Droid Sans Fallback' >>"$log"
        done
        # Services for devices and logs that nothing here has; without them a prefix starts in two
        # thirds of the time.
        for service in Eventlog PlugPlay winebus; do
            WINEPREFIX=$template wine reg add "HKLM\\System\\CurrentControlSet\\Services\\$service" /f \
                /v Start /t REG_DWORD /d 4 >>"$log"
        done
        WINEPREFIX=$template wineserver -w
        touch "$made"
    fi
) 9>"$template.lock"

if [ -z "$kept" ]; then
    rm -rf "$prefix"
    mkdir -p "$prefix"
    cp -al "$template/drive_c" "$prefix/"
    cp -a "$template/dosdevices" "$template"/*.reg "$template/.update-timestamp" "$prefix/"
    ln -s /dev/full "$prefix/drive_c/full.txt"
    if [ -z "$show" ]; then
        # There is no window manager on the screen of its own, and each window would wait for one.
        printf '\n[Software\\\\Wine\\\\X11 Driver]\n"Managed"="N"\n' >>"$prefix/user.reg"
    fi
fi

if [ -n "$beside" ]; then
    bash -c "$beside" &
    beside_pid=$!
fi
status=0
WINEPREFIX=$prefix wine "$@" || status=$?
if [ -n "$beside" ]; then
    wait "$beside_pid" || status=$?
    beside_pid=
fi
exit "$status"
