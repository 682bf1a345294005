#!/usr/bin/env bash
# Fails when a folder of the component includes a folder that it must not know.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

. scripts/folders.sh

# wrong_arrows <root>: the #include lines that point elsewhere.
wrong_arrows() {
    local folder file line target
    for folder in "${!velt_may_include[@]}"; do
        [ -d "$1/$folder" ] || continue
        while IFS=: read -r file line target; do
            case " ${velt_may_include[$folder]} " in
            *" $target "*) ;;
            *) echo "$file:$line: $folder/ must not include $target/" ;;
            esac
        done < <(grep -rnoP '^\s*#\s*include\s+"\K[^"/]+(?=/)' "$1/$folder" \
            --include='*.h' --include='*.cpp' --include='*.rc' || true)
    done
}

# odd_includes <folders>: lines with a backslash or capitals, which only some file systems take; the
# fuzzer's own header is called so.
odd_includes() {
    grep -rnE '^\s*#\s*include\s+["<][^">]*(\\|[A-Z])[^">]*[">]' "$@" --include='*.h' \
        --include='*.cpp' --include='*.rc' | grep -vF '<fuzzer/FuzzedDataProvider.h>' || true
}

# The check itself must be able to fail.
trial=$(mktemp -d)
trap 'rm -rf "$trial"' EXIT
mkdir "$trial/foundation" "$trial/collection"
echo '#include "server/module.h"' >"$trial/collection/wrong.h"
echo '#include "foundation/utf.h"' >"$trial/collection/right.h"
if [ "$(wrong_arrows "$trial" | wc -l)" -ne 1 ]; then
    echo "the check does not see a wrong arrow" >&2
    exit 1
fi

found=$(wrong_arrows src && odd_includes src samples tests)
if [ -n "$found" ]; then
    echo "$found"
    exit 1
fi
echo "all arrows point towards foundation/"
