#!/usr/bin/env bash
# Runs a command that can reach this machine only, and fails when it tries to reach another one.
#
#   loopback_only.sh <command> [argument...]
#
# The command gets a network of its own: the loopback interface, and a cable whose far end is
# watched. What would leave the machine goes there, is named, and makes the exit code 1. Names are
# asked for at the loopback interface, where nobody answers, so that looking one up ends at once.
# Where no such network can be made, that is said and the command runs as it is.
set -uo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

if [ "$1" != --inside ]; then
    own_network=(unshare --net --mount)
    as_it_was=()
    if [ "$(id -u)" -ne 0 ]; then
        own_network+=(--map-current-user --keep-caps)
        as_it_was=(setpriv --ambient-caps=-all --inh-caps=-all)
    fi
    if ! "${own_network[@]}" ip link add cable type veth peer name far_end 2>/dev/null; then
        echo "not looked at: what would leave this machine, which allows no network of its own" >&2
        exec "$@"
    fi
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    status=0
    "${own_network[@]}" "$BASH" "${BASH_SOURCE[0]}" --inside "$work" "${as_it_was[@]}" "$@" || status=$?
    if [ -s "$work/seen" ]; then
        echo "tried to reach other machines:" >&2
        sort "$work/seen" | uniq -c >&2
        [ "$status" -ne 0 ] || status=1
    fi
    exit "$status"
fi

work=$2
shift 2
# Addresses that documents use; the far end's neighbours are known, so nobody asks for them.
set -e
ip link set lo up
ip link add cable type veth peer name far_end
for end in cable far_end; do
    ip link set "$end" addrgenmode none
    ip link set "$end" up
done
far_end=$(cat /sys/class/net/far_end/address 2>/dev/null || ip -o link show far_end |
    sed -n 's/.*link\/ether \([0-9a-f:]*\).*/\1/p')
ip address add 192.0.2.1/24 dev cable
ip neighbour add 192.0.2.2 lladdr "$far_end" dev cable
ip route add default via 192.0.2.2
if [ -e /proc/net/if_inet6 ]; then
    ip address add 2001:db8::1/64 dev cable nodad
    ip neighbour add 2001:db8::2 lladdr "$far_end" dev cable
    ip -6 route add default via 2001:db8::2
fi
echo 'nameserver 127.0.0.1' >"$work/resolv.conf"
mount --bind "$work/resolv.conf" "$(realpath /etc/resolv.conf)"
mkfifo "$work/ready"
python3 "$here/watch_cable.py" far_end >"$work/seen" 3>"$work/ready" &
watch=$!
read -r <"$work/ready"
set +e
"$@"
status=$?
sleep 0.1 # for the last packet to be read
kill "$watch"
wait "$watch" 2>/dev/null
exit "$status"
