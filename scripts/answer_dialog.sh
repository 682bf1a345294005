#!/usr/bin/env bash
# Waits on the current X screen until the licence dialog stands there, saves a picture of it and
# answers it with real mouse clicks.
#
#   answer_dialog.sh <picture.png> accept|decline|as-it-is
#
# as-it-is presses OK without touching the choice.
set -euo pipefail
picture=$1
answer=$2
limit_s=30

# screen <file>: what is on the screen.
screen() {
    import -window root -depth 8 "png:$1"
}

dialog=$(timeout "$limit_s" xdotool search --sync --onlyvisible \
    --name '^End User License Agreement$' | head -n 1)
if [ -z "$dialog" ]; then
    echo "answer_dialog.sh: no dialog came" >&2
    exit 1
fi
eval "$(xdotool getwindowgeometry --shell "$dialog")" # X, Y, WIDTH and HEIGHT
xdotool mousemove 2 2

# Painted when two pictures in a row are the same. With the texts, everything on it is there.
mkdir -p "${picture%/*}"
before=$(mktemp)
trap 'rm -f "$before"' EXIT
screen "$before"
for _ in $(seq $((limit_s * 4))); do
    sleep 0.25
    screen "$picture"
    cmp -s "$before" "$picture" && break
    cp "$picture" "$before"
done
convert "$picture" -crop "${WIDTH}x$HEIGHT+$X+$Y" +repage "$picture"

# click <x> <y>: at a place of the dialog, given in the units of its template, 411 x 259.
click() {
    xdotool mousemove $((X + WIDTH * $1 / 411)) $((Y + HEIGHT * $2 / 259)) click 1
}
case $answer in
accept) click 22 224 ;;
decline) click 22 209 ;;
esac
click 205 240
