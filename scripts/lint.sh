#!/usr/bin/env bash
# Runs clang-tidy over the component's own code as it is compiled for Windows.
#   lint.sh [file.cpp...]     by default all product folders, the tools and the samples
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
velt_setup lint
cd "$velt_root"
velt_build release
if [ $# -eq 0 ]; then
    readarray -t files < <(git ls-files -- src samples | grep '\.cpp$')
    set -- "${files[@]}"
fi

# clang looks for the cross compiler's headers where that one says they are.
extra=(--extra-arg-before=--target=i686-w64-mingw32)
while read -r dir; do
    extra+=("--extra-arg=-isystem$dir")
done < <(i686-w64-mingw32-g++-win32 -E -v -xc++ /dev/null 2>&1 |
    sed -n '/search starts here/,/^End/p' | grep '^ ' | grep -v '/lib/gcc/.*/include$')
# Headers that gcc has compiled are nothing to clang; the sources name what they need anyway.
mkdir -p build/lint
sed -E 's/-include [^ ]*cmake_pch\.hxx//g; s/-Winvalid-pch//g' build/release/compile_commands.json \
    >build/lint/compile_commands.json
printf '%s\0' "$@" |
    xargs -0 -n 4 -P "$(nproc)" clang-tidy-14 -p build/lint --quiet "${extra[@]}"
