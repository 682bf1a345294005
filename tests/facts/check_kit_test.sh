#!/usr/bin/env bash
# Makes a check kit with few tests, unpacks it where no source tree is, and runs it to its end.
#
#   check_kit_test.sh <source folder> <build folder> <prefix>
set -euo pipefail
source_dir=$1
build=$2
prefix=$3
. "$source_dir/tests/support/expect.sh"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$source_dir/src/installer/make_check_kit.py" "$work/kit.zip" "$build" --tests '^support_core_test$'
python3 -m zipfile -e "$work/kit.zip" "$work"
kit=$(echo "$work"/VeltHTTPClient-*-check)
kind=$(cd "$kit" && echo x*)

expect "what it holds" "check.cmd left_out.txt $kind/VeltHTTPClient12OEM.dll $kind/facts.exe $kind/tests/support_core_test.exe " \
    "$(cd "$kit" && find . -type f -printf '%P\n' | LC_ALL=C sort | tr '\n' ' ')"
expect "tests that are left out are named" yes \
    "$(grep -q 'dll_image_test: is a script' "$kit/left_out.txt" && echo yes || echo no)"
status=0
"$source_dir/scripts/in_wine.sh" "$prefix" cmd /c "Z:${kit//\//\\}\\check.cmd" /nowait ||
    status=$?
summary=$(tr -d '\r' <"$kit/report/summary.txt")
expect "it ends well" 0 "$status"
expect "and says so" 1 "$(grep -c '^everything ended well$' <<<"$summary")"
expect "the test was run" 1 "$(grep -c '^ok *support_core_test' <<<"$summary")"
expect "the report can be read" "$kind yes support_core_test 42" "$(python3 - "$kit/report/report.json" <<'PYTHON'
import json
import sys

with open(sys.argv[1], encoding="utf-8") as file:
    edition, = json.load(file)["editions"]
test, = edition["tests"]
print(edition["kind"], "yes" if len(edition["facts"]["facts"]) > 50 else "no", test["name"],
      test["code"])
PYTHON
)"
exit "$((failures > 0))"
