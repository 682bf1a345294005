#!/usr/bin/env bash
# Makes the packages of what is built.
#
#   make_package.sh [--sign <argument of sign.sh>...] <output folder> <build folder>...
#
# The output folder gets, for VeltHTTPClient-<version>:
#
#   -x86.msi            the Windows Installer package of the 32-bit edition
#   -x64.msi            that of both editions, when both builds are named
#   -runtime.zip        what ships with a program that brings the component along
#   -developer.zip      everything that developers need
#   -symbols.zip        the debugger's symbols of all programs
#   .spdx.json          what is inside, and its licences
#   SHA256SUMS          the checksums of these files
#
# One commit makes the same bytes anywhere and any time, as long as nothing is signed: every file
# carries the time SOURCE_DATE_EPOCH, which is the commit's when it is not set, and files are taken in
# a fixed order. Programs are signed before they are packed, and the .msi files when they are made.
set -euo pipefail
export LC_ALL=C TZ=UTC PYTHONDONTWRITEBYTECODE=1
umask 022

signing=()
if [ "$1" = --sign ]; then
    shift
    while [ "$1" != -- ]; do
        signing+=("$1")
        shift
    done
    shift
fi
place=$(realpath -m "$1")
shift
readarray -t builds < <(realpath "$@")
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)

if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
    SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct 2>/dev/null) || SOURCE_DATE_EPOCH=946684800
fi
export SOURCE_DATE_EPOCH

# cached <name>: what the builds were configured with.
cached() {
    sed -n "s/^$1:[A-Z]*=//p" "${builds[0]}/CMakeCache.txt"
}
version=$(cached CMAKE_PROJECT_VERSION)
name=VeltHTTPClient-$version

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
output=$work/packages # until all are made, what is in their place stays
mkdir "$output"
tree=$work/$name
"$here/stage.sh" "$tree" "${builds[@]}"
kinds=(x86)
[ ! -d "$tree/x64" ] || kinds+=(x64)

# sign <file...>, when it was asked for
sign() {
    [ ${#signing[@]} -eq 0 ] || "$here/sign.sh" "${signing[@]}" "$@"
}
sign "$tree"/x*/*.dll "$tree"/x*/*.exe "$tree/samples/update_agent/sample_agent.exe"

# zip_of <ending> <folder>: of a folder in the work folder, with that folder's name in front.
zip_of() {
    (cd "$2/.." && find "$(basename "$2")" -type f | sort | zip -q -X -9 -@ "$output/$name-$1.zip")
}

zip_of developer "$tree"
runtime=$work/runtime/$name
mkdir -p "$runtime"
cp -p "$tree"/{LICENSE,NOTICES}.md "$runtime/"
symbols=$work/symbols/$name
for kind in "${kinds[@]}"; do
    mkdir -p "$runtime/$kind" "$symbols/$kind"
    cp -p "$tree/$kind"/*.dll "$tree/$kind"/*.manifest "$runtime/$kind/"
done
for i in "${!builds[@]}"; do
    cp "${builds[i]}"/symbols/*.debug "$symbols/${kinds[i]}/"
done
find "$runtime" "$symbols" -type f -exec chmod 644 {} + -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
zip_of runtime "$runtime"
zip_of symbols "$symbols"

for kind in "${kinds[@]}"; do
    "$here/make_msi.py" --kind "$kind" --version "$version" --publisher "$(cached VELT_PUBLISHER)" \
        --support "$(cached VELT_SUPPORT_URL)" --icon "$root/src/tools/icons/velt.ico" \
        --source "$root" --tree "$tree" --output "$output/$name-$kind.msi"
done
sign "$output"/*.msi

"$here/make_sbom.py" --version "$version" \
    --publisher "$(cached VELT_PUBLISHER)" "$tree" >"$output/$name.spdx.json"
cd "$output"
sha256sum "$name"* >SHA256SUMS
mkdir -p "$place"
rm -f "$place"/VeltHTTPClient-* "$place/SHA256SUMS"
mv "$output"/* "$place/"
cat "$place/SHA256SUMS"
[ ${#signing[@]} -gt 0 ] || echo "nothing is signed"
