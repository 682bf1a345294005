#!/usr/bin/env bash
# Runs one fuzz target on its seeds and VELT_FUZZ_RUNS inputs made from them, 40,000 by default. They
# are the same each time: what is new is looked for by run.sh.
#
#   short_run.sh <program> <folder for what it finds> <folder of seeds>
set -eu
program=$1
found=$2
seeds=$3
rm -rf "$found"
mkdir -p "$found"
exec "$program" -seed=1 "-runs=${VELT_FUZZ_RUNS:-40000}" -timeout=60 -max_len=4096 -verbosity=0 \
    -print_final_stats=1 "-artifact_prefix=$found/" "$found" "$seeds"
