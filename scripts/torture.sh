#!/usr/bin/env bash
# Has every call that the component makes to the system fail, one after the other, and for short
# operations an allocation together with each later call; tests/torture/main.cpp says how.
#
#   torture.sh [--write] [release|release64] [argument of torture.exe...]
#
# The preset is release by default, the operations are all, or what the arguments choose. Prints the
# table of operations and what was found; the exit code is 0 when that was nothing. With --write the
# table takes the place of that preset's in docs/reliability.md, with the commit and the time.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

write=
if [ "${1:-}" = --write ]; then
    write=1
    shift
fi
preset=$(velt_edition_of "${1:-}") && shift || true

velt_build "$preset" torture
table=$velt_logs/torture-$preset.txt
start=$SECONDS
status=0
"$velt_root/scripts/loopback_only.sh" "$velt_root/scripts/in_wine.sh" \
    "$velt_root/build/wine/torture-$preset" "$velt_root/build/$preset/tests/torture/torture.exe" \
    --pairs "$@" | tr -d '\r' | tee "$table" || status=$?
seconds=$((SECONDS - start))
echo "in $seconds seconds; also in ${table#"$velt_root"/}"

if [ -n "$write" ]; then
    document=$velt_root/docs/reliability.md
    {
        sed "/<!-- torture $preset -->/q" "$document"
        echo
        echo "At commit $(git -C "$velt_root" rev-parse --short=10 HEAD), in $seconds seconds:"
        echo
        cat "$table"
        echo
        sed -n "/<!-- end of torture $preset -->/,\$p" "$document"
    } >"$document.new"
    mv "$document.new" "$document"
fi
exit "$status"
