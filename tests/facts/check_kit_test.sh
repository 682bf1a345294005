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

expect "what it holds" "check.cmd left_out.txt $kind/bin/VeltHTTPClient12OEM.Assembly.manifest \
$kind/bin/VeltHTTPClient12OEM.dll $kind/bin/VeltHTTPClient12OEM.tlb $kind/bin/velt-trace.exe \
$kind/bin/velt.exe $kind/facts.exe $kind/samples/update_agent/sample_agent.exe \
$kind/tests/connection_thread_library.dll $kind/tests/support/velt_empty_module.dll \
$kind/tests/support_core_test.exe " \
    "$(cd "$kit" && find . -path ./samples -prune -o -type f -printf '%P\n' | LC_ALL=C sort |
        tr '\n' ' ')"
expect "and the texts that tests read" yes \
    "$([ -s "$kit/samples/eula/texts/ENU.xml" ] && echo yes || echo no)"
expect "tests that are left out are named" yes \
    "$(grep -q 'dll_image_test: is a script' "$kit/left_out.txt" && echo yes || echo no)"
# One that needs an administrator, as far as check.cmd knows.
mkdir "$kit/$kind/tests/admin"
cp "$kit/$kind/tests/support_core_test.exe" "$kit/$kind/tests/admin/machine_test.exe"

# check <option>...: runs the kit; sets status and summary.
check() {
    status=0
    "$source_dir/scripts/in_wine.sh" "$prefix" cmd /c "Z:${kit//\//\\}\\check.cmd" /nowait "$@" ||
        status=$?
    summary=$(tr -d '\r' <"$kit/report/summary.txt")
}

check
expect "it ends well" 0 "$status"
expect "and says so" 1 "$(grep -c '^everything ended well$' <<<"$summary")"
expect "the test was run" 1 "$(grep -c '^ok *support_core_test' <<<"$summary")"
expect "what needs an administrator is skipped by name" 1 \
    "$(grep -c '^skipped machine_test, .*: start check.cmd /admin as administrator$' <<<"$summary")"
expect "what the kit does not have is named" 1 \
    "$(grep -c "^left out $kind dll_image_test: is a script" <<<"$summary")"
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

check /tests /admin
expect "/admin ends well" 0 "$status"
if "$source_dir/scripts/in_wine.sh" "$prefix" "$build/tests/facts/facts.exe" --elevated; then
    expect "and runs it" 1 "$(grep -c '^ok *machine_test' <<<"$summary")"
else
    echo "not seen: what /admin runs; the system gives a program fewer rights than its user has"
    expect "and says why it is skipped" 1 \
        "$(grep -c '^skipped machine_test, .*: this prompt does not run as administrator$' <<<"$summary")"
fi
expect "/tests asks nothing" null "$(python3 -c 'import json, sys
print(json.dumps(json.load(open(sys.argv[1]))["editions"][0]["facts"]))' "$kit/report/report.json")"

# A test that fails, and its number.
printf 'no program' >"$kit/$kind/tests/broken_test.exe"
check /tests
expect "a test that fails makes it fail" 1 "$status"
expect "and is named" 1 "$(grep -c '^FAILED *broken_test' <<<"$summary")"
expect "and counted" 1 "$(grep -c '^tests that failed: 1$' <<<"$summary")"
exit "$((failures > 0))"
