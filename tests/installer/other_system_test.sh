#!/usr/bin/env bash
# The installer of the 64-bit edition on 32-bit Windows: it says that it is not for this system, and
# leaves nothing there.
#
#   other_system_test.sh <source folder> <installer> <prefix>
set -uo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
source_dir=$1
setup=$2
prefix=$3

for scope in /AllUsers /CurrentUser; do
    "$source_dir/scripts/in_wine.sh" "$prefix" "$setup" /S "$scope"
    expect "$scope: the exit code" 6 $?
    expect "$scope: it is 32-bit Windows" '#arch=win32' "$(grep '^#arch' "$prefix/system.reg")"
    expect "$scope: no file" "" "$(find "$prefix/drive_c" -ipath '*velt*')"
    expect "$scope: no key" "" "$(grep -il velthttp "$prefix"/*.reg)"
done
exit "$((failures > 0))"
