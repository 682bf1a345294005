#!/usr/bin/env bash
# Runs the tests of a build folder. Those that fail run once more, one at a time with nothing beside
# them; what passes only then is named: it leans on the time that it gets, which is its defect.
#
#   ctest_twice.sh <build folder> [ctest argument...]
set -uo pipefail
folder=$1
shift

ctest --test-dir "$folder" "$@"
status=$?
failures=$folder/Testing/Temporary/LastTestsFailed.log
if [ "$status" -ne 8 ] || [ ! -s "$failures" ]; then # 8 says that tests have failed
    exit "$status"
fi
names=$(cut -d: -f2 "$failures")
echo "once more, one at a time:" $names
ctest --test-dir "$folder" --rerun-failed -j1 --output-on-failure || exit
echo "passed only when nothing ran beside them:" $names
