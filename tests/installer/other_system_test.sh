#!/usr/bin/env bash
# The package for 64-bit Windows on 32-bit Windows: it is refused, and leaves nothing there.
#
#   other_system_test.sh <source folder> <package> <prefix>
set -uo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/../support/expect.sh"
source_dir=$1
package=Z:${2//\//\\}
prefix=$3

# The installer's own code for it, or for any failure.
"$source_dir/scripts/in_wine.sh" "$prefix" msiexec /i "$package" /qn
status=$?
expect "it is refused" refused "$(case $status in 1633 | 1603 | 97 | 67) echo refused ;; *) echo $status ;; esac)"
expect "it is 32-bit Windows" '#arch=win32' "$(grep '^#arch' "$prefix/system.reg")"
expect "no file" "" "$(find "$prefix/drive_c" -ipath '*velt*')"
expect "no key" "" "$(grep -il velthttp "$prefix"/*.reg)"
exit "$((failures > 0))"
