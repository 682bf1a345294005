#!/usr/bin/env bash
# Looks at the file of velt.exe.
#
#   velt_image_test.sh <velt.exe> <objdump> <source folder> <format>
set -eu
. "$(dirname "${BASH_SOURCE[0]}")/../../support/expect.sh"

program=$1
objdump=$2
source_dir=$3
format=$4

headers=$("$objdump" -p "$program")
expect "the file is of its edition" "$format" \
    "$("$objdump" -f "$program" | sed -n 's/.*file format //p')"
# Everything else is loaded when a command needs it.
expect "what is loaded at the start" "advapi32.dll kernel32.dll msvcrt.dll " \
    "$(sed -n 's/.*DLL Name: //p' <<<"$headers" | tr '[:upper:]' '[:lower:]' | sort | tr '\n' ' ')"
flags=$(sed -n 's/^DllCharacteristics[[:space:]]*//p' <<<"$headers")
expect "can be moved, and holds no code in its data" $((0x140)) "$((0x$flags & 0x140))"
expect "no symbols" "no symbols" "$("$objdump" -t "$program" | sed -n '/SYMBOL TABLE/{n;p}')"
expect "no path of the build inside" 0 "$(grep -acF "$source_dir/" "$program" || true)"
expect "a manifest that asks for no rights" yes \
    "$(grep -qa 'level="asInvoker"' "$program" && echo yes || echo no)"
exit "$((failures > 0))"
