#!/usr/bin/env bash
# Builds the library and the programs a second time, in another folder, and compares the bytes. The
# folder is kept: what has not changed is compiled there once.
#   reproducible_test.sh <source folder> <preset> <work folder> <library>
set -euo pipefail
source_dir=$1
preset=$2
work_dir=$3
library=$4

cd "$source_dir"
cmake --preset "$preset" -B "$work_dir" >/dev/null
cmake --build "$work_dir" --target "$(basename "$library" .dll)" velt >/dev/null
cmp "$library" "$work_dir/bin/$(basename "$library")"
cmp "${library%.dll}.tlb" "$work_dir/bin/$(basename "$library" .dll).tlb"
cmp "$(dirname "$library")/velt.exe" "$work_dir/bin/velt.exe"
echo "two builds are the same bytes"
