#!/usr/bin/env bash
# Makes an installer of each edition and a zip of all, and a file with their checksums.
#
#   make_package.sh <output folder> <build folder>...
#
# The output folder gets VeltHTTPClient12OEM-<version>.zip with a folder for each edition, for each a
# VeltHTTPClient12OEM-<version>-<edition>-setup.exe, and SHA256SUMS. An edition is whole in its folder
# and by its installer: the same files, and nothing that it shares with the other one. One commit makes the same bytes anywhere and any time: every file carries the time
# SOURCE_DATE_EPOCH, which is the commit's when it is not set, and files are taken in a fixed order.
set -euo pipefail
export LC_ALL=C TZ=UTC
umask 022

output=$(realpath -m "$1")
shift
readarray -t builds < <(realpath "$@")
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)

if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
    SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct 2>/dev/null) || SOURCE_DATE_EPOCH=946684800
fi
export SOURCE_DATE_EPOCH

# cached <build folder> <name>: what the build was configured with.
cached() {
    sed -n "s/^$2:[A-Z]*=//p" "$1/CMakeCache.txt"
}
version=$(cached "${builds[0]}" CMAKE_PROJECT_VERSION)
name=VeltHTTPClient12OEM-$version
folder=$output/$name
rm -rf "$folder"

# source_files <file or folder...>: the project's own files, not what else lies in its folders. In
# sources that were unpacked from an archive everything counts.
source_files() {
    if [ "$(git -C "$root" rev-parse --show-toplevel 2>/dev/null)" = "$root" ]; then
        git -C "$root" ls-files -- "$@"
    else
        (cd "$root" && find "$@" -type f)
    fi
}

# stage <build folder> <folder>: what the build says is shipped; the texts that go with it; samples
# that need the published files only. The sample agent goes as a program: its sources need the
# project's.
stage() {
    local build=$1 stage=$2
    mkdir -p "$stage"
    cp -R "$build/bin/." "$stage/"
    source_files README.md CONTRIBUTING.md docs samples |
        sed -E '/\/CMakeLists\.txt$/d; /\/fetch_host\.cpp$/d; /^samples\/update_agent\//{/\.ini$/!d}' |
        (cd "$root" && xargs cp --parents -t "$stage")
    SOURCE_DATE_EPOCH=946684800 "$(cached "$build" CMAKE_STRIP)" --strip-all \
        -o "$stage/samples/update_agent/sample_agent.exe" \
        "$build/samples/update_agent/sample_agent.exe"
    find "$stage" -type d -exec chmod 755 {} +
    find "$stage" -type f -exec chmod 644 {} +
    find "$stage" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
}

# make_installer <edition> <folder>
make_installer() {
    local edition=$1 stage=$2 file folder current size_bytes i files folders
    readarray -t files < <(cd "$stage" && find . -type f -printf '%P\n' | sort)
    readarray -t folders < <(cd "$stage" && find . -mindepth 1 -type d -printf '%P\n' | sort)

    # What the installer writes and the uninstaller removes: each file by its name, so that nobody
    # else's file goes. The list is installed too, for the next version.
    local list=$stage-files.txt script=$stage-files.nsh
    printf '%s\r\n' "${files[@]//\//\\}" 'Uninstall.exe' 'Uninstall.txt' >"$list"
    touch -d "@$SOURCE_DATE_EPOCH" "$list"
    {
        echo '!macro InstallFiles FOLDER'
        current=
        for file in "${files[@]}"; do
            folder=$(dirname "/$file")
            if [ "$folder" != "$current" ]; then
                current=$folder
                folder=${folder%/}
                printf '    SetOutPath "${FOLDER}%s"\n' "${folder//\//\\}"
            fi
            printf '    File "%s"\n' "$stage/$file"
        done
        printf '    SetOutPath "${FOLDER}"\n    File "/oname=Uninstall.txt" "%s"\n' "$list"
        echo '!macroend'
        echo '!macro RemoveFiles REMOVE'
        for file in "${files[@]}"; do
            printf '    !insertmacro ${REMOVE} "%s"\n' "${file//\//\\}"
        done
        for ((i = ${#folders[@]} - 1; i >= 0; --i)); do # the inner ones first
            printf '    RMDir "$INSTDIR\\%s"\n' "${folders[i]//\//\\}"
        done
        echo '!macroend'
    } >"$script"
    size_bytes=$(find "$stage" -type f -printf '%s\n' | awk '{ sum += $1 } END { print sum }')
    makensis -V2 -WX -NOCD "-DVELT_VERSION=$version" "-DVELT_EDITION=$edition" \
        "-DVELT_OUTPUT=$output/$name-$edition-setup.exe" "-DVELT_FILES=$script" \
        "-DVELT_SIZE_KB=$(((size_bytes + 1023) / 1024))" "$here/velt.nsi"
    rm "$list" "$script"
}

setups=()
for build in "${builds[@]}"; do
    edition=$(cached "$build" VELT_EDITION)
    stage "$build" "$folder/$edition"
    make_installer "$edition" "$folder/$edition"
    setups+=("$name-$edition-setup.exe")
done

cd "$output"
rm -f "$name.zip"
find "$name" -type f | sort | zip -q -X -9 -@ "$name.zip"
rm -rf "$folder"
sha256sum "${setups[@]}" "$name.zip" >SHA256SUMS
cat SHA256SUMS
