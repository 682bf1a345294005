#!/usr/bin/env bash
# Builds the host that uses the developer package by CMake, and runs it.
#
#   cmake_host_test.sh <source folder> <build folder> x86|x64 <work folder> <prefix>
set -uo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
source_dir=$1
build=$2
edition=$3
work=$4
prefix=$5
export CMAKE_GENERATOR=Ninja

case $edition in
x86) toolchain=i686-w64-mingw32 other=x86_64-w64-mingw32 other_edition=x64 ;;
x64) toolchain=x86_64-w64-mingw32 other=i686-w64-mingw32 other_edition=x86 ;;
esac

# The package lies anywhere.
rm -rf "$work"
package="$work/a package"
"$source_dir/src/installer/stage.sh" "$package" "$build" || exit 1

# logged <name> <command...>
logged() {
    local log=$work/$1.log
    shift
    "$@" >"$log" 2>&1 || { sed 's/^/    /' "$log" && return 1; }
}
host=$work/host/cmake_host.exe
logged configure cmake -S "$package/samples/cmake_host" -B "$work/host" \
    --toolchain "$package/cmake/$toolchain.cmake" -DCMAKE_BUILD_TYPE=Release
expect "it is configured" 0 $?
logged build cmake --build "$work/host"
expect "it is built" 0 $?
for file in VeltHTTPClient12OEM.dll VeltHTTPClient12OEM.Assembly.manifest; do
    cmp "$package/$edition/$file" "$work/host/$file"
    expect "$file lies beside it" 0 $?
done
expect "it finds the classes by its manifest" \
    "by CLSID:,    Item(1) = no,    Item(2) = registration,by ProgID, late bound:,    Count = 0" \
    "$("$source_dir/scripts/in_wine.sh" "$prefix" "$host" 2>&1 | tr -d '\r' | paste -sd,)"

# asks <toolchain>: what a project finds, a line for each question.
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:[A-Z]*=//p' "$build/CMakeCache.txt")
mkdir -p "$work/asks"
cat >"$work/asks/CMakeLists.txt" <<'TEXT'
cmake_minimum_required(VERSION 3.19)
project(Asks LANGUAGES CXX)
macro(ask)
    unset(VeltHTTPClient_DIR CACHE)
    find_package(VeltHTTPClient ${ARGN} CONFIG QUIET PATHS "${PACKAGE}" NO_DEFAULT_PATH)
    if(VeltHTTPClient_FOUND)
        message("ANSWER ${ARGN}: ${VeltHTTPClient_EDITION} ${VeltHTTPClient_VERSION}")
    else()
        message("ANSWER ${ARGN}: no. ${VeltHTTPClient_NOT_FOUND_MESSAGE}")
    endif()
    unset(VeltHTTPClient_NOT_FOUND_MESSAGE)
endmacro()
ask()
enable_language(C)
ask()
foreach(version IN ITEMS 12 ${VERSION} 11 13 12.9999 11...<13 12...${VERSION} 12...<13 12...13)
    ask(${version})
endforeach()
ask(${VERSION} EXACT)
ask(12.9999 EXACT)
TEXT
asks() {
    logged "$1" cmake -S "$work/asks" -B "$work/$1" --toolchain "$package/cmake/$1.cmake" \
        "-DPACKAGE=$package" "-DVERSION=$version"
    sed -n 's/^ANSWER //p' "$work/$1.log"
}
found="$edition $version"
expect "which versions it is for" "\
: no. The identifiers are a C file: enable the language C first.
: $found
12: $found
$version: $found
11: no. 
13: no. 
12.9999: no. 
11...<13: no. 
12...$version: $found
12...<13: $found
12...13: $found
$version;EXACT: $found
12.9999;EXACT: no. " "$(asks "$toolchain")"
answer=$(asks "$other" | sed -n 2p)
expect "the edition of the other kind is missed" ": no. The package is not whole" \
    "${answer%%: there is no */$other_edition/*}"

exit "$((failures > 0))"
