#!/usr/bin/env bash
# Fuzzes for long.
#
#   tests/fuzz/run.sh [--keep] [--jobs N] [target...] [--seconds N]
#
# The targets are as in tests/fuzz/corpus/, all by default, each for 1,800 seconds or 100 million
# inputs, whichever comes first; as many at a time as there are processors. What a target finds beyond
# its seeds stays in build/native/tests/fuzz/<target>/ for the next run; an input that ends in a fault
# ends its target, is there as crash-*, and makes the exit code 1. With --keep, the fewest inputs that
# reach what no seed does become seeds. Prints a row for each target: inputs that were run and how long
# that took, seeds, new seeds.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/common.sh"
cd "$velt_root"

most_inputs=100000000
keep=
jobs=$(nproc)
seconds=1800
targets=()
while [ $# -gt 0 ]; do
    case "$1" in
    --keep) keep=1 ;;
    --jobs) jobs=${2:?} && shift ;;
    --seconds) seconds=${2:?} && shift ;;
    *)
        if [ ! -d "tests/fuzz/corpus/$1" ]; then
            echo "usage: tests/fuzz/run.sh [--keep] [--jobs N] [target...] [--seconds N]; targets:" \
                $(ls tests/fuzz/corpus) >&2
            exit 2
        fi
        targets+=("$1")
        ;;
    esac
    shift
done
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < <(ls tests/fuzz/corpus)

# fuzz <target>: prints its row; fails when an input ends in a fault.
fuzz() {
    local target=$1 status=0
    local program=build/native/tests/fuzz/${target}_fuzz
    local seeds=tests/fuzz/corpus/$target
    local found=build/native/tests/fuzz/$target
    local log=$velt_logs/fuzz-$target.log
    mkdir -p "$found"
    "$program" -max_total_time="$seconds" -runs="$most_inputs" -timeout=60 -max_len=16384 \
        -artifact_prefix="$found/" "$found" "$seeds" >"$log" 2>&1 || {
        echo "$target: a fault, see ${log#"$velt_root"/}"
        status=1
    }
    # Of a target that a fault has ended, the last line with a number is the best there is.
    local inputs took
    inputs=$(grep -aoE '^(#|Done )[0-9]+' "$log" | tail -n 1 | grep -oE '[0-9]+' || echo 0)
    took=$(grep -aoE '[0-9]+ second\(s\)$' "$log" | tail -n 1 | grep -oE '[0-9]+' || echo '')
    local before
    before=$(ls "$seeds" | wc -l)
    if [ -n "$keep" ]; then
        "$program" -merge=1 -use_counters=0 -max_len=4096 "$seeds" "$found" >>"$log" 2>&1
    fi
    echo "| $target | $inputs | $took | $before | $(($(ls "$seeds" | wc -l) - before)) |"
    return "$status"
}

velt_setup test
velt_build native "${targets[@]/%/_fuzz}"
echo "| target | inputs | seconds | seeds | new |"
echo "|---|---:|---:|---:|---:|"
export keep seconds most_inputs velt_logs velt_root
export -f fuzz
printf '%s\n' "${targets[@]}" | xargs -P "$jobs" -I '{}' bash -euo pipefail -c 'fuzz {}' || exit 1
