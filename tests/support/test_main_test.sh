#!/usr/bin/env bash
# A test program that is ended midway fails, also when the exit code says otherwise.
#
#   test_main_test.sh <command that runs the program with the cases> [argument...]
set -uo pipefail
to_its_end=$(dirname "${BASH_SOURCE[0]}")/../../scripts/to_its_end.sh
failures=0

# gives <exit code> <name of a case> [arguments of this script]
gives() {
    local expected=$1 name=$2 output status=0
    shift 2
    output=$("$to_its_end" "$@" "$name" 2>&1) || status=$?
    if [ "$status" != "$expected" ]; then
        printf 'FAILED: %s: exit code %s instead of %s\n%s\n' "$name" "$status" "$expected" "$output"
        failures=$((failures + 1))
    fi
    # Only where nobody else has said what is wrong.
    if [[ $name == ends* ]] && ! grep -q 'ended with exit code 0 before its end' <<<"$output"; then
        printf 'FAILED: %s: not told\n%s\n' "$name" "$output"
        failures=$((failures + 1))
    fi
}

gives 0 'passes' "$@"
gives 1 'fails' "$@"
gives 1 'fails so often that the number is the code of success' "$@"
gives 1 'ends the program' "$@"
gives 1 'ends the process' "$@"
gives 1 'ends the process by force' "$@"

# Without the script, as by hand, the exit codes are the usual ones.
"$@" 'passes' >/dev/null || {
    echo "FAILED: not 0 by hand"
    failures=$((failures + 1))
}
exit "$((failures > 0))"
