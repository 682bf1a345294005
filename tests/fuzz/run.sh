#!/usr/bin/env bash
# Fuzzes for long, on all processors.
#
#   tests/fuzz/run.sh [--keep] [target...] [--seconds N]
#
# The targets are as in tests/fuzz/corpus/, all by default, each for 1,800 seconds. What a target finds
# beyond its seeds stays in build/native/tests/fuzz/<target>/ for the next run; inputs that end in a
# fault are there too, as crash-*, and make the exit code 1. With --keep, the fewest inputs that reach
# what no seed does become seeds. Prints a row for each target: inputs that were run, seeds, new seeds.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../../scripts/common.sh"
cd "$velt_root"

keep=
seconds=1800
targets=()
while [ $# -gt 0 ]; do
    case "$1" in
    --keep) keep=1 ;;
    --seconds) seconds=${2:?} && shift ;;
    *)
        if [ ! -d "tests/fuzz/corpus/$1" ]; then
            echo "usage: tests/fuzz/run.sh [--keep] [target...] [--seconds N]; targets:" \
                $(ls tests/fuzz/corpus) >&2
            exit 2
        fi
        targets+=("$1")
        ;;
    esac
    shift
done
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < <(ls tests/fuzz/corpus)

velt_setup test
velt_build native "${targets[@]/%/_fuzz}"
status=0
echo "| target | inputs | seeds | new |"
echo "|---|---:|---:|---:|"
for target in "${targets[@]}"; do
    program=build/native/tests/fuzz/${target}_fuzz
    seeds=tests/fuzz/corpus/$target
    found=build/native/tests/fuzz/$target
    log=$velt_logs/fuzz-$target.log
    mkdir -p "$found"
    "$program" -max_total_time="$seconds" -timeout=60 -max_len=16384 -fork="$(nproc)" \
        -artifact_prefix="$found/" "$found" "$seeds" >"$log" 2>&1 || {
        echo "$target: a fault, see ${log#"$velt_root"/}"
        status=1
    }
    before=$(ls "$seeds" | wc -l)
    if [ -n "$keep" ]; then
        "$program" -merge=1 -use_counters=0 -max_len=4096 "$seeds" "$found" >>"$log" 2>&1
    fi
    inputs=$({ grep -oE '^#[0-9]+' "$log" || echo '#0'; } | tail -n 1)
    echo "| $target | ${inputs#\#} | $before | $(($(ls "$seeds" | wc -l) - before)) |"
done
exit "$status"
