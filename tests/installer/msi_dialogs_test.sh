#!/usr/bin/env bash
# Installs and removes a package with its windows, which the keyboard answers: for all users, and for
# the current one. Pictures of the windows stay in the work folder.
#
#   msi_dialogs_test.sh <source folder> <folder of the packages> x86|x64 <work folder> <prefix>
set -uo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
source_dir=$1
package=$(echo "$2"/*-"$3".msi)
edition=$3
work=$4
prefix=$5

rm -rf "$work" "$prefix"
mkdir -p "$work"
windows=()
[ "$edition" = x86 ] || windows=(--both)

# What presses the keys as long as windows of the installer come. A key that a window has no button
# for does nothing there.
cat >"$work/press.sh" <<'SH'
pictures=$1
shift
count=0
timeout 120 xdotool search --sync --onlyvisible --name '^VeltHTTPClient' >/dev/null || exit 1
until [ "$(cat "$pictures.ended" 2>/dev/null)" ]; do
    import -window root -depth 8 "png:$pictures.now.png"
    sleep 0.3
    import -window root -depth 8 "png:$pictures.then.png"
    if cmp -s "$pictures.now.png" "$pictures.then.png"; then
        if ! cmp -s "$pictures.now.png" "$pictures.$count.png"; then
            count=$((count + 1))
            cp "$pictures.now.png" "$pictures.$count.png"
        fi
        for key in "$@"; do
            xdotool key "alt+$key"
        done
    fi
done
rm -f "$pictures.now.png" "$pictures.then.png"
exit 0
SH

# with_windows <name> <action> <keys>: has the installer do something with the package. Prints what it
# ends with.
with_windows() {
    local name=$1 action=$2 keys=$3
    printf 'start /wait msiexec %s "%s"\r\necho %%errorlevel%%>"%s"\r\n' \
        "$action" "Z:${package//\//\\}" "Z:${work//\//\\}\\$name.ended" >"$work/$name.bat"
    "$source_dir/scripts/in_wine.sh" --keep "${windows[@]}" \
        --beside "bash '$work/press.sh' '$work/$name' $keys" "$prefix" \
        cmd /c "Z:${work//\//\\}\\$name.bat" >"$work/$name.log" 2>&1
    tr -d '\r ' <"$work/$name.ended"
}

# installed <registry file>: the folder that it names.
installed() {
    grep -a '^"InstallDir"=' "$prefix/$1" | cut -d'"' -f4
}
folder='C:\\Program Files\\VeltHTTPClient\\'

expect "for all users" 0 "$(with_windows all /i 'n i f')"
expect "the machine's registry names the folder" "$folder" "$(installed system.reg)"
expect "the scope and the features were asked for" yes \
    "$([ "$(ls "$work"/all.?.png | wc -l)" -ge 2 ] && echo yes)"
expect "removed" 0 "$(with_windows remove /i 'm f')"
expect "nothing is named any more" "" "$(installed system.reg)"
expect "no file is left" "" "$(find "$prefix/drive_c" -ipath '*velthttp*')"

expect "for the current user" 0 "$(with_windows user /i 'o n i f')"
expect "the machine's registry names nothing" "" "$(installed system.reg)"
expect "the user's registry names his folder for programs" yes \
    "$(installed user.reg | grep -q 'Local\\\\Programs\\\\VeltHTTPClient' && echo yes || installed user.reg)"
expect "the program is there" 1 \
    "$(find "$prefix/drive_c/users" -path "*/Local/Programs/VeltHTTPClient/$edition/velt.exe" | wc -l)"

exit "$((failures > 0))"
