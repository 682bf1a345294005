#!/usr/bin/env bash
# Runs one fuzz target for VELT_FUZZ_SECONDS, 8 by default.
#
#   short_run.sh <program> <folder for what it finds> <folder of seeds>
exec "$1" "-max_total_time=${VELT_FUZZ_SECONDS:-8}" -timeout=10 -max_len=4096 -verbosity=0 \
    -print_final_stats=1 "-artifact_prefix=$2/" "$2" "$3"
