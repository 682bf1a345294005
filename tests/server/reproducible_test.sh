#!/usr/bin/env bash
# Builds the library and the programs a second time, in another folder, and compares the bytes.
#   reproducible_test.sh <source folder> <preset> <work folder> <library>
set -euo pipefail
source_dir=$1
preset=$2
work_dir=$3
library=$4

rm -rf "$work_dir"
cd "$source_dir"
cmake --preset "$preset" -B "$work_dir" >/dev/null
cmake --build "$work_dir" --target "$(basename "$library" .dll)" velt >/dev/null
cmp "$library" "$work_dir/bin/$(basename "$library")"
cmp "${library%.dll}.tlb" "$work_dir/bin/$(basename "$library" .dll).tlb"
cmp "$(dirname "$library")/velt.exe" "$work_dir/bin/velt.exe"
rm -rf "$work_dir"
echo "two builds are the same bytes"
