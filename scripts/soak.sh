#!/usr/bin/env bash
# Runs everything that uses the component at once for long, with random faults, and says what grows.
#
#   soak.sh <hours> [release|release64] [argument of torture.exe --soak...]
#
# Two arrangements run side by side, each in a prefix of its own with a trace viewer: one process,
# and four that share the cookies, the update agent and the viewer. Records, what was found and a
# picture go to a folder below build/soak; docs/reliability.md says what is looked at. The exit code
# is 0 when nothing was found and nothing grows. VELT_TORTURE_SEED repeats the choices of a run.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

hours=${1:-}
[[ $hours =~ ^([0-9]+\.?[0-9]*|\.[0-9]+)$ ]] || {
    echo "usage: soak.sh <hours> [release|release64] [argument of torture.exe --soak...]" >&2
    exit 2
}
shift
preset=$(velt_edition_of "${1:-}") && shift || true
seconds=$(awk -v hours="$hours" 'BEGIN { printf "%d", hours * 3600 }')
period=$((seconds / 20 < 60 ? (seconds < 60 ? 3 : seconds / 20) : 60)) # a minute, but for trials
seed=${VELT_TORTURE_SEED:-$(date -u +%Y%m%d)}

velt_build "$preset" torture velt-trace
folder=$velt_root/build/soak/$(date -u +%Y%m%d-%H%M%S)-$preset

# arrangement <name> <argument of torture.exe --soak...>
arrangement() {
    local name=$1 status=0
    shift
    mkdir -p "$folder/$name"
    "$velt_root/scripts/loopback_only.sh" "$velt_root/scripts/in_wine.sh" \
        "$velt_root/build/wine/soak-$preset-$name" \
        "$velt_root/build/$preset/tests/torture/torture.exe" --soak --seconds "$seconds" \
        --period "$period" --seed "$seed" --folder "Z:${folder//\//\\}\\$name" "$@" \
        2>&1 | sed -u "s/\r\$//; s/^/$name: /" | tee "$folder/$name/found.txt" || status=$?
    return "$status"
}

echo "running for $seconds seconds with seed $seed; records: ${folder#"$velt_root"/}"
arrangement one --processes 1 "$@" &
one=$!
arrangement four --processes 4 --agent "$@" &
four=$!
failed=
wait "$one" || failed=1
wait "$four" || failed=1
"$velt_root/scripts/soak.py" "$folder" >"$folder/verdict.txt" || failed=1
cat "$folder/verdict.txt"
echo "the picture: ${folder#"$velt_root"/}/picture.png"
[ -z "$failed" ]
