#!/usr/bin/env bash
# What fails runs once more: it passes when it passes then, and is named.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# expect <exit code> <lines>: what the tests in the folder end with, and what is said of them
expect() {
    local status=0
    rm -f "$work/seen"
    "$root/scripts/ctest_twice.sh" "$work" -j2 >"$work/output" 2>&1 || status=$?
    if [ "$status" -ne "$1" ] ||
        [ "$(grep -E '^(once more|passed only)' "$work/output" || true)" != "$2" ]; then
        cat "$work/output"
        printf 'exit code %s for %s, or not:\n%s\n' "$status" "$1" "$2"
        exit 1
    fi
}

passes='add_test(passes "true")'
cat >"$work/waver.sh" <<'TEXT'
[ -e "$1" ] || { touch "$1" && exit 1; }
TEXT
wavers="add_test(wavers \"bash\" \"$work/waver.sh\" \"$work/seen\")"
fails='add_test(fails "false")'

echo "$passes" >"$work/CTestTestfile.cmake"
expect 0 ''
printf '%s\n' "$passes" "$wavers" >"$work/CTestTestfile.cmake"
expect 0 'once more, one at a time: wavers
passed only when nothing ran beside them: wavers'
printf '%s\n' "$passes" "$wavers" "$fails" >"$work/CTestTestfile.cmake"
expect 8 'once more, one at a time: wavers fails'
echo "add_test(missing \"$work/missing\")" >"$work/CTestTestfile.cmake"
expect 8 'once more, one at a time: missing'
