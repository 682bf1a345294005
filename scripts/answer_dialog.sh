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
limit_s=120

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

# point_at <x> <y>: a place of the dialog, given in the units of its template, 411 x 259.
point_at() {
    xdotool mousemove $((X + WIDTH * $1 / 411)) $((Y + HEIGHT * $2 / 259))
}

# until_done <x> <y> <command...>: clicks at a place, as often as it takes until the command says
# that this has had its effect.
until_done() {
    local x=$1 y=$2 look
    shift 2
    for _ in $(seq "$limit_s"); do
        point_at "$x" "$y"
        xdotool click 1
        xdotool mousemove 2 2
        for look in $(seq 10); do
            "$@" && return 0
            sleep 0.1
        done
    done
    echo "answer_dialog.sh: a click at $x, $y has no effect" >&2
    exit 1
}

# The circles of the choices, whose pictures change places when the other one is chosen.
choices() {
    import -window root -depth 8 -crop "$((WIDTH * 16 / 411))x$((HEIGHT * 34 / 259))+$((X + WIDTH * \
        14 / 411))+$((Y + HEIGHT * 200 / 259))" rgb:-
}
has_changed() {
    ! cmp -s <(choices) "$before"
}
has_gone() {
    ! xdotool getwindowname "$dialog" >/dev/null 2>&1
}

case $answer in
accept)
    choices >"$before"
    until_done 22 224 has_changed
    ;;
decline)
    # It is chosen already, so that nothing changes.
    point_at 22 209
    xdotool click 1
    ;;
esac
until_done 205 240 has_gone
