#!/usr/bin/env python3
"""Takes the right to be written from sections of a program for Windows that are only read.

    read_only_sections.py <program> <section>...

The linker and objcopy give .rsrc and .tls that right whatever they are told. A section that the
program does not have is passed over. The checksum of the file is made anew.
"""

import struct
import sys

WRITABLE = 0x80000000


def checksum_of(image, place):
    """As the system computes it: the sum of the file's words without the field itself, and its size."""
    image = image[:place] + bytes(4) + image[place + 4:]
    image += bytes(len(image) % 2)
    total = sum(struct.unpack(f"<{len(image) // 2}H", image))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return total + len(image)


def main():
    path, names = sys.argv[1], {name.encode() for name in sys.argv[2:]}
    with open(path, "r+b") as file:
        image = bytearray(file.read())
        size = len(image)
        header = struct.unpack_from("<I", image, 0x3C)[0]
        if image[header:header + 4] != b"PE\0\0":
            sys.exit(f"{path} is no program for Windows")
        count, = struct.unpack_from("<H", image, header + 6)
        optional, = struct.unpack_from("<H", image, header + 20)
        for section in range(count):
            at = header + 24 + optional + 40 * section
            if bytes(image[at:at + 8]).rstrip(b"\0") in names:
                flags, = struct.unpack_from("<I", image, at + 36)
                struct.pack_into("<I", image, at + 36, flags & ~WRITABLE)
        place = header + 24 + 64
        struct.pack_into("<I", image, place, checksum_of(bytes(image), place))
        assert len(image) == size
        file.seek(0)
        file.write(image)


if __name__ == "__main__":
    main()
