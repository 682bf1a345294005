#!/usr/bin/env bash
# Installs a package where there is no room for it: it fails as a whole, and goes through when there is
# room.
#
#   msi_full_disk_test.sh <source folder> <folder of the packages> x86|x64 <prefix>
set -uo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
source_dir=$1
package=$(echo "$2"/*-"$3".msi)
prefix=$4
both=()
[ "$3" = x86 ] || both=(--both)

# A disk of its own, which only this script and what it starts see.
if [ -z "${VELT_OWN_MOUNTS:-}" ]; then
    own=(unshare --mount)
    [ "$(id -u)" -eq 0 ] || own+=(--map-root-user)
    VELT_OWN_MOUNTS=1 exec "${own[@]}" "$0" "$@"
fi
in_prefix() {
    "$source_dir/scripts/in_wine.sh" --keep "${both[@]}" "$prefix" "$@" 2>/dev/null
}
rm -rf "$prefix"
in_prefix cmd /c exit
small=$prefix/drive_c/small
mkdir "$small"
mount -t tmpfs -o size=256k small "$small" || exit 1

# install <argument...>: into a folder of that disk.
install() {
    in_prefix msiexec /i "Z:${package//\//\\}" /qn 'INSTALLDIR=C:\small\velt' "$@"
}
if install; then
    echo "the installer does not see that the disk is full"
else
    in_prefix regedit /E 'C:\after.reg' 'HKEY_LOCAL_MACHINE\Software'
    expect "nothing is registered, and no program is listed" "" "$(
        iconv -f UTF-16LE -t UTF-8 "$prefix/drive_c/after.reg" |
            grep -i '\\CLSID\\{5A6B579B-3C37-4A16\|"DisplayName"="VeltHTTPClient'
    )"
    expect "no file is left" 0 "$(find "$small" -type f | wc -l)"
fi

# With room it goes through.
umount "$small"
install REINSTALL=ALL REINSTALLMODE=amus || install
expect "with room it is installed" 0 $?
mkdir "$prefix/unpacked"
msiextract -C "$prefix/unpacked" "$package" >/dev/null
whole=$(dirname "$(find "$prefix/unpacked" -name LICENSE.md)")
expect "its files are whole" "" "$(
    cd "$small/velt" && find . -type f -exec cmp {} "$whole/{}" \; 2>&1
)"
expect "the component is one of them" 1 "$(find "$small" -path "*/$3/VeltHTTPClient12OEM.dll" | wc -l)"
exit "$((failures > 0))"
