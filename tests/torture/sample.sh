#!/usr/bin/env bash
# Runs the torture's sample: the day is its seed, so that each day another one is run, and
# VELT_TORTURE_SEED repeats one.
#
#   sample.sh <command...>
set -eu
exec "$@" --seed "${VELT_TORTURE_SEED:-$(date -u +%Y%m%d)}" --limit 25
