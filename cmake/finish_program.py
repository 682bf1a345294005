#!/usr/bin/env python3
"""Does to a program for Windows what the linker does not.

    finish_program.py <program, without symbols> <its symbols> <section>...

- The sections, which are only read, lose the right to be written: the linker and objcopy give .rsrc and
  .tls that right whatever they are told. One that the program does not have is passed over.
- The build identifier, in the program and in its symbols, becomes one of the program's content alone.
  The linker makes it of the symbols, too, and the compiler does not always write the same ones.
- The checksum of the file is made anew.
"""

import hashlib
import struct
import sys

WRITABLE = 0x80000000
MARK = b"RSDS" # the identifier's 16 bytes follow


def checksum_of(image, place):
    """As the system computes it: the sum of the file's words without the field itself, and its size."""
    image = image[:place] + bytes(4) + image[place + 4:]
    image += bytes(len(image) % 2)
    total = sum(struct.unpack(f"<{len(image) // 2}H", image))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return total + len(image)


def main():
    path, symbols_path = sys.argv[1:3]
    names = {name.encode() for name in sys.argv[3:]}
    with open(path, "rb") as file:
        image = bytearray(file.read())
    with open(symbols_path, "rb") as file:
        symbols = file.read()
    header, = struct.unpack_from("<I", image, 0x3C)
    if image[header:header + 4] != b"PE\0\0":
        sys.exit(f"{path} is no program for Windows")
    count, = struct.unpack_from("<H", image, header + 6)
    optional, = struct.unpack_from("<H", image, header + 20)
    identifier = -1
    for section in range(count):
        at = header + 24 + optional + 40 * section
        name = bytes(image[at:at + 8]).rstrip(b"\0")
        if name in names:
            flags, = struct.unpack_from("<I", image, at + 36)
            struct.pack_into("<I", image, at + 36, flags & ~WRITABLE)
        elif name == b".buildid":
            size, start = struct.unpack_from("<II", image, at + 16)
            identifier = image.find(MARK, start, start + size)
    if identifier < 0:
        sys.exit(f"{path} has no build identifier")
    marked = bytes(image[identifier:identifier + 20])
    if symbols.count(marked) != 1:
        sys.exit(f"{symbols_path} is not of {path}")
    place = header + 24 + 64
    image[identifier + 4:identifier + 20] = bytes(16)
    image[place:place + 4] = bytes(4)
    made = MARK + hashlib.sha256(image).digest()[:16]
    image[identifier:identifier + 20] = made
    struct.pack_into("<I", image, place, checksum_of(bytes(image), place))
    with open(path, "r+b") as file:
        file.write(image)
    with open(symbols_path, "r+b") as file:
        file.write(symbols.replace(marked, made))


if __name__ == "__main__":
    main()
