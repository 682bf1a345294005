#!/usr/bin/env bash
# Lays out what the packages hold, as a developer finds it when it is unpacked: a folder for each
# edition, x86 and x64, and beside them what goes with both. The packages for others have parts of it.
#
#   stage.sh <folder> <build folder>...
#
# The folder is made anew. Every file in it carries the time SOURCE_DATE_EPOCH when that is set.
set -euo pipefail
export LC_ALL=C TZ=UTC
umask 022

folder=$(realpath -m "$1")
shift
readarray -t builds < <(realpath "$@")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"

# source_files <file or folder...>: the project's own files, not what else lies in its folders. In
# sources that were unpacked from an archive everything counts.
source_files() {
    if [ "$(git rev-parse --show-toplevel 2>/dev/null)" = "$root" ]; then
        git ls-files -- "$@"
    else
        find "$@" -type f
    fi
}

# bring <folder> <file...>: the project's files, into a folder of the package.
bring() {
    local to=$folder/$1
    shift
    mkdir -p "$to"
    cp -t "$to" -- "$@"
}

rm -rf "$folder"
for build in "${builds[@]}"; do
    edition=x86
    ! grep -q '^VELT_EDITION:INTERNAL=64-bit' "$build/CMakeCache.txt" || edition=x64
    mkdir -p "$folder/$edition"
    find "$build/bin" -maxdepth 1 -type f -exec cp -t "$folder/$edition" {} +
done

# The sample agent serves hosts of both kinds, so one of them is enough.
build=${builds[0]}
mkdir -p "$folder"/{include,samples/update_agent}
cp "$build"/bin/include/* "$folder/include/"
cp "$build/samples/update_agent/sample_agent.exe" "$folder/samples/update_agent/"

bring . src/installer/developer/README.md src/installer/{LICENSE,NOTICES}.md CHANGELOG.md
bring docs docs/{host-guide,installer-guide,reference,skin,stability,trace,translating,velt}.md \
    docs/velt.schema.json
bring idl src/server/provider_lib.idl
bring cmake src/installer/cmake/*.cmake cmake/{mingw-w64,i686-w64-mingw32,x86_64-w64-mingw32}.cmake
# Samples that need the published files only; the sample agent's sources need the project's.
source_files samples |
    sed -E '/^samples\/(update_agent\/)?CMakeLists\.txt$/d; /\/fetch_host\.cpp$/d
            /^samples\/update_agent\//{/\.ini$/!d}' |
    xargs cp --parents -t "$folder"

# Texts that are for reading or editing on Windows end their lines as is usual there.
find "$folder"/{cmake,docs,idl,include,samples} "$folder"/*.md -type f ! -name '*.exe' ! -name '*.rtf' |
    while IFS= read -r file; do
        grep -qP '\r$|\x00' "$file" || sed -i 's/$/\r/' "$file"
    done

find "$folder" -type d -exec chmod 755 {} +
find "$folder" -type f -exec chmod 644 {} +
[ -z "${SOURCE_DATE_EPOCH:-}" ] || find "$folder" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
