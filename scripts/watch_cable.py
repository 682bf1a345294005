"""Prints where each packet goes that arrives at a network interface: address, protocol and port.

    watch_cable.py <interface>    a line on descriptor 3 says that it watches

Questions for neighbours and routers of the interface itself do not count.
"""

import os
import socket
import struct
import sys

PROTOCOLS = {1: "icmp", 6: "tcp", 17: "udp", 58: "icmp6"}
OWN_MATTERS = {133, 134, 135, 136, 137, 143}  # of ICMPv6: routers, neighbours, group membership


def destination(frame):
    """The text for a packet, or None when it does not count."""
    kind = struct.unpack("!H", frame[12:14])[0]
    packet = frame[14:]
    if kind == 0x0800:
        protocol = packet[9]
        address = socket.inet_ntop(socket.AF_INET, packet[16:20])
        rest = packet[(packet[0] & 0x0F) * 4:]
    elif kind == 0x86DD:
        protocol = packet[6]
        address = socket.inet_ntop(socket.AF_INET6, packet[24:40])
        rest = packet[40:]
        if protocol == 0 or (protocol == 58 and rest[0] in OWN_MATTERS):
            return None
    else:
        return None
    text = f"{address} {PROTOCOLS.get(protocol, protocol)}"
    if protocol in (6, 17) and len(rest) >= 4:
        text += f" port {struct.unpack('!H', rest[2:4])[0]}"
    return text


watched = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.ntohs(0x0003))
watched.bind((sys.argv[1], 0))
os.write(3, b"ready\n")
os.close(3)
while True:
    data, source = watched.recvfrom(65535)
    if source[2] == socket.PACKET_OUTGOING:
        continue
    line = destination(data)
    if line is not None:
        print(line, flush=True)
