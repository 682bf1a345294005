#!/usr/bin/env bash
# Reads the developer package as its reader does: follows the links of its documents, looks for the
# files that its README names, and runs the README's commands as they stand there, one after the other.
# Those marked "sh" are for the shell, those marked "bat" for the Windows prompt. For the 64-bit
# edition they have x64 in the place of x86, as the README says.
#
#   developer_package_test.sh <source folder> <build folder> x86|x64 <work folder> <prefix>
set -uo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
source_dir=$1
build=$2
edition=$3
work=$4
prefix=$5
export CMAKE_GENERATOR=Ninja

windows=()
[ "$edition" = x86 ] || windows=(--both)
rm -rf "$work"
"$source_dir/src/installer/stage.sh" "$work/package" "$build" || exit 1
cd "$work/package" || exit 1
readme=$(tr -d '\r' <README.md)

links=$("$source_dir/tests/docs/links_test.py" .)
expect "all links lead to files of the package" 0 $?
printf '%s\n' "$links"

# as_edition: the README's text for the other edition.
as_edition() {
    if [ "$edition" = x64 ]; then
        sed -E 's/i686-w64/x86_64-w64/g; s/x86([\\/])/x64\1/g'
    else
        cat
    fi
}

# What stands in its tables and in its text, not in its blocks of commands.
missing=$(sed '/^```/,/^```/d' <<<"$readme" | grep -oE '`[^`<>]+`' | tr -d '`' | as_edition | sed 's/ .*//' |
    tr '\\' / | grep -E '^(x86|x64|include|idl|cmake|samples|docs)(/|$)|^[A-Z]+\.md$' | sort -u |
    while read -r path; do
        [ -e "$path" ] || [ -e "$path.exe" ] || echo "$path"
    done | grep -vx x86 | grep -vx x64)
expect "the files that it names are there" "" "$missing"

# commands: "bat <command>" or "sh <command>", a line each.
commands() {
    awk '/^```(bat|sh)$/ { kind = substr($0, 4); next }
         /^```/          { kind = "" }
         kind            { print kind, $0 }' <<<"$readme" | as_edition
}
keep=()
count=0
while read -r kind command; do
    count=$((count + 1))
    case $kind in
    sh) bash -ec "$command" >"$work/log" 2>&1 </dev/null ;;
    bat)
        "$source_dir/scripts/in_wine.sh" "${keep[@]}" "${windows[@]}" "$prefix" \
            cmd /c "$command" >"$work/log" 2>&1 </dev/null
        ;;
    esac
    status=$?
    [ "$kind" = sh ] || keep=(--keep)
    expect "$kind: $command" 0 "$status"
    [ "$status" -eq 0 ] || sed 's/^/    /' "$work/log"
done < <(commands)
expect "its commands are found" yes "$([ "$count" -ge 12 ] && echo yes || echo "no: $count")"

exit "$((failures > 0))"
