#!/usr/bin/env bash
# Fuzzes one target for a while, on all processors.
#
#   tests/fuzz/run.sh <target> [seconds]        the target as in tests/fuzz/corpus/; 600 seconds
#
# What it finds beyond the seeds is kept in build/native/tests/fuzz/<target>/ for the next run; inputs that
# end in a fault are there too, as crash-*, and make the exit code nonzero.
set -eu

cd "$(dirname "${BASH_SOURCE[0]}")/../.."
target=${1:-}
seconds=${2:-600}
if [ -z "$target" ] || [ ! -d "tests/fuzz/corpus/$target" ]; then
    echo "usage: tests/fuzz/run.sh <target> [seconds]; targets:" $(ls tests/fuzz/corpus) >&2
    exit 2
fi

cmake --preset native >/dev/null
cmake --build --preset native --target "${target}_fuzz"
found=build/native/tests/fuzz/$target
mkdir -p "$found"
workers=$(nproc)
exec "build/native/tests/fuzz/${target}_fuzz" -max_total_time="$seconds" -timeout=10 -max_len=16384 \
    -fork="$workers" -artifact_prefix="$found/" "$found" "tests/fuzz/corpus/$target"
