#!/usr/bin/env bash
# Makes the library by which a program loads a DLL of the system late.
#
#   delay_load_library.sh <name> <output> <compiler> <nm> <dlltool> <objcopy>
#
# The functions are those of the compiler's import library for <name>.dll.
set -euo pipefail
name=$1
output=$2
compiler=$3
nm=$4
dlltool=$5
objcopy=$6

# From inside the folder: names of symbols, and so their order, come from the path of the output.
mkdir -p "$(dirname "$output")"
cd "$(dirname "$output")"
output=$(basename "$output")
definition=${output%.a}.def
prefix=$("$compiler" -E -P -xc - <<<__USER_LABEL_PREFIX__) # of all symbols
{
    echo "LIBRARY $name.dll"
    echo EXPORTS
    "$nm" "$("$compiler" -print-file-name="lib$name.a")" 2>/dev/null |
        sed -n "s/.* I __imp_$prefix//p" | sort -u
} >"$definition"
rm -f "$output"
"$dlltool" --deterministic-libraries --kill-at --input-def "$definition" --output-delaylib "$output"
# The linker drops a function's code from an import library when nobody calls it by its plain name.
# Here the table of pointers refers to that code, so it must not be known as code before the link.
"$objcopy" --enable-deterministic-archives '--rename-section=.text=.text$delay' "$output"
"$objcopy" --enable-deterministic-archives \
    '--set-section-flags=.text$delay=alloc,load,contents,data' "$output"
