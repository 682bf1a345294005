#!/usr/bin/env bash
# Looks at the shipped library's file.
#
#   dll_image_test.sh <the DLL> <objdump> x86|amd64
#
# The folder of the DLL is what is shipped; the folder above it is the build's. What the edition for
# that processor exports and imports is in dll_image_<processor>.txt: a name a line, with the DLL that
# it comes from; a question mark before it where only some versions of the compiler's run-time ask
# for it.
set -eu
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
export LC_ALL=C # one order of names

dll=$1
objdump=$2
architecture=$3
case $architecture in
x86) format=pei-i386 most_kb=450 no_handlers=$((0x400)) high_entropy=0 ;;
# It has the system's tables for its exceptions, and may lie where addresses have 64 bits.
amd64) format=pei-x86-64 most_kb=520 no_handlers=0 high_entropy=$((0x20)) ;;
esac
bin=$(dirname "$dll")
build=$(dirname "$bin")
root=$(cd "$(dirname "$0")/../.." && pwd)

headers=$("$objdump" -p "$dll")

expect "the file is for $architecture" "$format" \
    "$("$objdump" -f "$dll" | sed -n 's/.*file format //p')"

# Lines such as "	[   0] +base[   1] 0000 DllCanUnloadNow" after the table's headline.
exports=$(sed -n '/Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$headers" |
    awk '/^[[:space:]]+\[/ { print $NF }' | sort | tr '\n' ' ')
expect "three exports, undecorated" "DllCanUnloadNow DllGetClassObject DllRegisterServer " "$exports"

# Not those of the internet and of the dialog's controls, which are loaded when they are needed.
system="advapi32.dll gdi32.dll kernel32.dll msvcrt.dll ole32.dll oleaut32.dll user32.dll"
foreign=
imports=0
for import in $(sed -n 's/.*DLL Name: //p' <<<"$headers" | tr '[:upper:]' '[:lower:]'); do
    imports=$((imports + 1))
    [[ " $system " == *" $import "* ]] || foreign+="$import "
done
expect "only these DLLs of the system are imported" "" "$foreign"
expect "imports are read" yes "$([ "$imports" -ge 3 ] && echo yes || echo "no: $imports")"
names=$(
    for name in $exports; do
        echo "exported $name"
    done
    awk '/DLL Name:/ { dll = tolower($3) }
        /^[[:space:]]+[0-9a-f]+[[:space:]]+(<none>[[:space:]]+)?[0-9a-f]+[[:space:]]+[^[:space:]]+[[:space:]]*$/ && dll { print dll, $NF }
        /^There is an export table|^The Export Tables/ { dll = "" }' <<<"$headers" | sort
)
listed=$root/tests/server/dll_image_$architecture.txt
expect "no other names are exported or imported" "" \
    "$(comm -23 <(sort <<<"$names") <(sed 's/^? //' "$listed" | sort))"
expect "all names that are listed are" "" \
    "$(comm -13 <(sort <<<"$names") <(sed '/^?/d' "$listed" | sort))"

expect "its sections begin at pages of the file" 00001000 \
    "$(sed -n 's/^FileAlignment[[:space:]]*//p' <<<"$headers")"

flags=$(sed -n 's/^DllCharacteristics[[:space:]]*//p' <<<"$headers")
expect "can be moved (dynamic base)" 64 "$((0x$flags & 0x40))"
expect "no code in its data (NX)" 256 "$((0x$flags & 0x100))"
expect "says whether it has structured exception handlers" "$no_handlers" "$((0x$flags & 0x400))"
expect "says that it can be anywhere in 64 bits" "$high_entropy" "$((0x$flags & 0x20))"
base=$(sed -n 's/^ImageBase[[:space:]]*//p' <<<"$headers")
expect "lies above 4 GB where addresses have 64 bits" "$([ "$architecture" = amd64 ] && echo yes || echo no)" \
    "$([ "$((0x$base >> 32))" -gt 0 ] && echo yes || echo no)"
expect "has relocations to be moved with" yes \
    "$("$objdump" -h "$dll" | grep -qw '\.reloc' && echo yes || echo no)"
# Two builds of one commit are the same bytes, so the stamp cannot be the time of the build.
stamp=$(sed -n '0,/^Time\/Date/s/^Time\/Date[[:space:]]*//p' <<<"$headers")
expect "the time stamp is not the build's" yes \
    "$([[ $stamp =~ (1970|2000)$ ]] && echo yes || echo "no: $stamp")"

# writable_sections <file>: all but .idata, whose addresses of what is loaded late are written at run
# time: some linkers make it writable, others leave that to who writes.
writable_sections() {
    "$objdump" -wh "$1" | awk '$1 ~ /^[0-9]+$/ && $2 != ".idata" && !/READONLY/ { print $2 }' |
        sort | tr '\n' ' '
}
# build_identifier <file>: for those who look for a file's symbols.
build_identifier() {
    "$objdump" -p "$1" | sed -n 's/.*(format RSDS signature \([0-9a-f]*\).*/\1/p'
}
for name in VeltHTTPClient12OEM.dll velt.exe velt-trace.exe; do
    expect "$name: what is only read cannot be written" ".bss .data " \
        "$(writable_sections "$bin/$name")"
    identifier=$(build_identifier "$bin/$name")
    expect "$name has a build identifier" 32 "${#identifier}"
    expect "its symbols have the same" "$identifier" \
        "$(build_identifier "$build/symbols/${name%.*}.debug")"
done
expect "programs of different content have different ones" 3 \
    "$(for name in VeltHTTPClient12OEM.dll velt.exe velt-trace.exe; do
        build_identifier "$bin/$name"
    done | sort -u | grep -c .)"

expect "no symbols" "no symbols" "$("$objdump" -t "$dll" | sed -n '/SYMBOL TABLE/{n;p}')"
expect "no debug sections" "" "$("$objdump" -h "$dll" | grep -o '\.debug[^ ]*' | tr '\n' ' ')"
size=$(stat -c %s "$dll")
pictures=$(cat "$root"/src/ui/resources/*.bmp | wc -c)
echo "size: $size bytes, $pictures of them the pictures of the dialog"
expect "at most $most_kb KB, pictures aside" yes \
    "$([ $((size - pictures)) -le $((most_kb * 1024)) ] && echo yes || echo "no: $size")"

# Paths of the build would tell about the maker's machine, and make two builds differ.
expect "no path of the build inside" 0 "$(grep -acF "$(dirname "$(dirname "$build")")/" "$dll" || true)"

expect "its map lies in the build folder" yes \
    "$([ -s "$build/VeltHTTPClient12OEM.map" ] && echo yes || echo no)"
# Those of all programs that the packages hold, for the archive of symbols.
expect "a file with symbols for each program" \
    "VeltHTTPClient12OEM.debug sample_agent.debug velt-trace.debug velt.debug " \
    "$(cd "$build/symbols" && printf '%s\n' * | sort | tr '\n' ' ')"
for file in "$build"/symbols/*; do
    expect "$(basename "$file") has the symbols" yes \
        "$("$objdump" -h "$file" | grep -q '\.debug_info' && echo yes || echo no)"
done

shipped=$(cd "$bin" && find . -type f | sort | tr '\n' ' ')
expect "what is shipped, and nothing else" \
    "./VeltHTTPClient12OEM.Assembly.manifest ./VeltHTTPClient12OEM.dll ./VeltHTTPClient12OEM.tlb ./include/provider_lib.h ./include/provider_lib_i.c ./velt-trace.exe ./velt.exe " \
    "$shipped"

exit "$((failures > 0))"
