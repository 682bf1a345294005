#!/usr/bin/env bash
# Runs a test program, and fails when it was ended midway, whatever its exit code says.
#
#   to_its_end.sh <command> [argument...]
#
# A fault that ends the process by exit(0) would count as passed. So the main of the test programs
# (tests/support/test_main.cpp) is told which exit code means that all test cases have passed, and
# only that one makes this script's exit code 0. VELT_TEST_OPTIONS holds more options for each program,
# such as --abort, with which it ends at the first failure.
set -uo pipefail
passed_code=42
status=0
VELT_PASSED_CODE=$passed_code "$@" ${VELT_TEST_OPTIONS:-} || status=$?
case $status in
"$passed_code") exit 0 ;;
0)
    echo "to_its_end.sh: ended with exit code 0 before its end: $*" >&2
    exit 1
    ;;
*) exit "$status" ;;
esac
