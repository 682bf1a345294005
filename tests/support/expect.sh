# Sourced by tests that are scripts: checks that say what they saw. A script ends with
#
#   exit "$((failures > 0))"

failures=0

# expect <what> <expected> <actual>
expect() {
    if [ "$2" != "$3" ]; then
        printf 'FAILED: %s\n  expected: %s\n  actual:   %s\n' "$1" "$2" "$3"
        failures=$((failures + 1))
    else
        printf 'ok: %s\n' "$1"
    fi
}
