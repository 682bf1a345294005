#!/usr/bin/env bash
# Fuzzes one target for a while, on all processors.
#
#   fuzz/run.sh <target> [seconds]        the target as in fuzz/corpus/; 600 seconds
#
# What it finds beyond the seeds is kept in build/native/fuzz/<target>/ for the next run; inputs that
# end in a fault are there too, as crash-*, and make the exit code nonzero.
set -eu

cd "$(dirname "${BASH_SOURCE[0]}")/.."
target=${1:-}
seconds=${2:-600}
if [ -z "$target" ] || [ ! -d "fuzz/corpus/$target" ]; then
    echo "usage: fuzz/run.sh <target> [seconds]; targets:" $(ls fuzz/corpus) >&2
    exit 2
fi

cmake --preset native >/dev/null
cmake --build --preset native --target "${target}_fuzz"
found=build/native/fuzz/$target
mkdir -p "$found"
workers=$(nproc)
exec "build/native/fuzz/${target}_fuzz" -max_total_time="$seconds" -timeout=10 -max_len=16384 \
    -fork="$workers" -artifact_prefix="$found/" "$found" "fuzz/corpus/$target"
