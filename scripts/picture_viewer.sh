#!/usr/bin/env bash
# Takes a picture of the trace viewer with one of its windows and closes both; runs beside the
# viewer, on its screen (see in_wine.sh).
#
#   picture_viewer.sh <picture.png> <key> <title of the window that the key opens>
set -euo pipefail

picture=$1
key=$2
title=$3
limit_s=60

await() {
    timeout "$limit_s" xdotool search --sync --onlyvisible --name "$1" >/dev/null ||
        { echo "no window \"$1\"" >&2; exit 1; }
}
viewer='^Pembrook Corporation::Trace::1.0$'
await "$viewer"
# Until the viewer takes keys, they are for nobody.
for ((i = 0; i < limit_s; i++)); do
    xdotool key "$key"
    sleep 1
    xdotool search --onlyvisible --name "^$title\$" >/dev/null 2>&1 && break
done
await "^$title\$"
sleep 1 # it is painted
mkdir -p "$(dirname "$picture")"
import -window root -trim +repage "$picture"
for ((i = 0; i < limit_s; i++)); do
    xdotool search --onlyvisible --name "$viewer" >/dev/null 2>&1 || exit 0
    xdotool key alt+F4
    sleep 1
done
echo "the viewer stays open" >&2
exit 1
