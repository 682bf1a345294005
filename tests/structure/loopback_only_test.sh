#!/usr/bin/env bash
# What would leave the machine is named and fails; what stays on it does not.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
failures=0

# expect <what> <exit code> <text in the output> <command...>
expect() {
    local what=$1 code=$2 text=$3 output status=0
    shift 3
    output=$(scripts/loopback_only.sh "$@" 2>&1) || status=$?
    if [ "$status" -ne "$code" ] || ! grep -qF "$text" <<<"$output"; then
        printf 'FAILED: %s\n  exit code %s, output:\n%s\n' "$what" "$status" "$output"
        failures=$((failures + 1))
    fi
}

if scripts/loopback_only.sh true 2>&1 | grep -q '^not looked at'; then
    echo "not looked at: this machine allows no network of its own"
    exit 0
fi
expect "a command that stays here" 0 "" true
expect "its exit code" 7 "" bash -c 'exit 7'
expect "the loopback interface" 0 "refused" bash -c 'echo >/dev/tcp/127.0.0.1/1; exit 0'
expect "a datagram" 1 "1 198.51.100.7 udp port 9" bash -c 'echo x >/dev/udp/198.51.100.7/9'
expect "a connection" 124 "198.51.100.7 tcp port 80" \
    timeout 2 bash -c 'exec 3<>/dev/tcp/198.51.100.7/80'
expect "an address of version 6" 1 "2001:db8:1::7 udp port 9" python3 -c '
import socket
socket.socket(socket.AF_INET6, socket.SOCK_DGRAM).sendto(b"x", ("2001:db8:1::7", 9))'
expect "a name is not asked for elsewhere" 2 "" getent hosts some.name.invalid
exit "$((failures > 0))"
