#!/usr/bin/env python3
"""Checks the programs' icons: that they are what their program draws, that Windows can read them,
and that they can be told apart where they are smallest.

    icons_test.py <folder of the icons> <scratch folder>
"""

import os
import struct
import subprocess
import sys
import zlib

SIZES = [16, 20, 24, 32, 48, 64, 256]
ICONS = ("velt.ico", "velt_trace.ico")
MOST_BYTES = 48 * 1024  # of an icon: it is in a program

failures = []


def check(what, holds):
    print(("ok      " if holds else "FAILED  ") + what)
    if not holds:
        failures.append(what)


def read_bitmap(content, size):
    """Rows from the top, each a list of (red, green, blue, opacity); the mask has to agree."""
    header, width, height, planes, bits, compression, length = struct.unpack_from("<IiiHHII", content)
    stride = (size + 31) // 32 * 4
    check(f"{size} x {size}: 32 bits a pixel, with a mask, whole",
          (header, width, height, planes, bits, compression) == (40, size, 2 * size, 1, 32, 0) and
          length == size * (4 * size + stride) == len(content) - header)
    rows = []
    masked = []
    for row in reversed(range(size)):
        start = header + row * size * 4
        rows.append([(content[i + 2], content[i + 1], content[i], content[i + 3])
                     for i in range(start, start + 4 * size, 4)])
        start = header + size * size * 4 + row * stride
        bits = int.from_bytes(content[start:start + stride], "big")
        masked.append([bool(bits >> (stride * 8 - 1 - x) & 1) for x in range(size)])
    check(f"{size} x {size}: the mask is what can be seen through",
          masked == [[pixel[3] < 128 for pixel in row] for row in rows])
    return rows


def read_png(content, size):
    """The same of a PNG file whose rows are differences from the row above."""
    check(f"{size} x {size}: a PNG file", content.startswith(b"\x89PNG\r\n\x1a\n"))
    chunks = {}
    at = 8
    while at < len(content):
        length, kind = struct.unpack_from(">I4s", content, at)
        data = content[at + 8:at + 8 + length]
        check(f"{size} x {size}: {kind.decode()} is whole",
              struct.unpack_from(">I", content, at + 8 + length)[0] == zlib.crc32(kind + data))
        chunks[kind] = data
        at += 12 + length
    check(f"{size} x {size}: 32 bits a pixel",
          chunks[b"IHDR"] == struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0))
    lines = zlib.decompress(chunks[b"IDAT"])
    rows = []
    above = bytes(4 * size)
    for row in range(size):
        line = lines[row * (4 * size + 1):(row + 1) * (4 * size + 1)]
        check_quietly(f"{size} x {size}: row {row} is of that kind", line[0] == 2)
        above = bytes((a + b) & 0xFF for a, b in zip(line[1:], above))
        rows.append([tuple(above[i:i + 4]) for i in range(0, 4 * size, 4)])
    return rows


def check_quietly(what, holds):
    if not holds:
        check(what, holds)


def read(path):
    """The pictures by their sizes."""
    with open(path, "rb") as file:
        content = file.read()
    name = os.path.basename(path)
    reserved, kind, count = struct.unpack_from("<HHH", content)
    check(f"{name}: an icon", (reserved, kind) == (0, 1))
    check(f"{name}: {len(content)} bytes of at most {MOST_BYTES}", len(content) <= MOST_BYTES)
    pictures = {}
    expected = 6 + 16 * count
    for entry in range(count):
        width, height, colours, _, planes, bits, length, offset = struct.unpack_from(
            "<BBBBHHII", content, 6 + 16 * entry)
        check_quietly(f"{name}: entry {entry}",
                      (height, colours, planes, bits, offset) == (width, 0, 1, 32, expected))
        expected += length
        size = width or 256
        pictures[size] = (read_png if size == 256 else read_bitmap)(
            content[offset:offset + length], size)
    check(f"{name}: nothing but its pictures", expected == len(content))
    check(f"{name}: the sizes are {SIZES}", list(pictures) == SIZES)
    return pictures


def luminance(colour):
    """Relative luminance as the contrast of texts is measured by."""
    def linear(value):
        value /= 255
        return value / 12.92 if value <= 0.04045 else ((value + 0.055) / 1.055) ** 2.4
    red, green, blue = (linear(value) for value in colour[:3])
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def check_looks(name, pictures):
    for size, rows in pictures.items():
        pixels = [pixel for row in rows for pixel in row]
        check(f"{name}, {size}: the corners are outside",
              all(rows[y][x][3] < 64 for y in (0, -1) for x in (0, -1)))
        clear = sum(pixel[3] < 128 for pixel in pixels) / len(pixels)
        check(f"{name}, {size}: {clear:.0%} of it are outside, at most 20%", clear <= 0.2)
        light = sum(luminance(pixel) > 0.6 for pixel in pixels) / len(pixels)
        check(f"{name}, {size}: {light:.0%} of it are the sign, at least 10%", light >= 0.1)
        tile = rows[size // 5][size - 1 - size // 8]  # where it is lightest beside the sign
        lightness = (1.0 + 0.05) / (luminance(tile) + 0.05)
        check(f"{name}, {size}: the sign on the tile, contrast {lightness:.1f} of 3", lightness >= 3)


def main():
    folder, scratch = sys.argv[1:]
    os.makedirs(scratch, exist_ok=True)
    subprocess.run([sys.executable, os.path.join(folder, "draw_icons.py"), scratch], check=True)
    icons = {}
    for name in ICONS:
        icons[name] = read(os.path.join(folder, name))
        # By the pictures: another version of the compressor makes other bytes of them.
        made = read(os.path.join(scratch, name))
        check(f"{name}: as draw_icons.py draws it", icons[name] == made)
        check_looks(name, icons[name])
    for size in (16, 20):
        one, other = ([pixel for row in icons[name][size] for pixel in row] for name in ICONS)
        different = sum(max(abs(a - b) for a, b in zip(p, q)) >= 64 for p, q in zip(one, other))
        share = different / len(one)
        check(f"{size}: the two are told apart: {share:.0%} of the pixels differ, at least 20%",
              share >= 0.2)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
