#!/usr/bin/env python3
"""Checks the skin and the button faces: that they are what their program makes, and that they are
what the code that shows them asks for.

    skin_test.py <folder of the pictures> <scratch folder>
"""

import itertools
import os
import struct
import subprocess
import sys

CORNER = (109, 63)
FACE_END = 10
RED = (255, 0, 0)
BLACK = (0, 0, 0)
SURFACE = (237, 237, 237)
FACES = ("button_normal.bmp", "button_hot.bmp", "button_pressed.bmp")

failures = []


def check(what, holds):
    print(("ok      " if holds else "FAILED  ") + what)
    if not holds:
        failures.append(what)


def read(path):
    """Rows from the top, each a list of (red, green, blue)."""
    with open(path, "rb") as file:
        content = file.read()
    kind, size, _, _, offset = struct.unpack_from("<2sIHHI", content)
    _, width, height, planes, bits, compression = struct.unpack_from("<IiiHHI", content, 14)
    check(f"{os.path.basename(path)}: 24 bits a pixel, whole",
          (kind, size, planes, bits, compression) == (b"BM", len(content), 1, 24, 0))
    stride = (width * 3 + 3) // 4 * 4
    rows = []
    for row in reversed(range(height)):
        start = offset + row * stride
        rows.append([tuple(reversed(content[start + x * 3:start + x * 3 + 3]))
                     for x in range(width)])
    return rows


def luminance(colour):
    """Relative luminance as the contrast of texts is measured by."""
    def linear(value):
        value /= 255
        return value / 12.92 if value <= 0.04045 else ((value + 0.055) / 1.055) ** 2.4
    red, green, blue = (linear(value) for value in colour)
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue


def contrast(one, other):
    light, dark = sorted((luminance(one), luminance(other)), reverse=True)
    return (light + 0.05) / (dark + 0.05)


def all_alike(lists):
    lists = list(lists)
    return all(entry == lists[0] for entry in lists)


def distance(one, other):
    return max(abs(a - b) for a, b in zip(one, other))


def check_skin(rows):
    width, height = len(rows[0]), len(rows)
    check("skin: 312 x 156", (width, height) == (312, 156))
    columns = list(zip(*rows))
    check("skin: the columns between the corners are alike",
          all_alike(columns[CORNER[0]:width - CORNER[0]]))
    check("skin: the rows between the corners are alike",
          all_alike(rows[CORNER[1]:height - CORNER[1]]))

    # Red only from both ends of a row inward, more of it the nearer the row is to an edge.
    reds = [[x for x in range(width) if row[x] == RED] for row in rows]
    ends = [len(list(itertools.takewhile(lambda pixel: pixel == RED, row))) for row in rows]
    check("skin: red only outside of the rounded corners",
          all(red == list(range(end)) + list(range(width - end, width))
              for red, end in zip(reds, ends)))
    check("skin: round corners", 6 <= ends[0] <= 16 and ends[height // 2] == 0 and
          all(a >= b for a, b in zip(ends, ends[1:height // 2])))
    check("skin: the outline is the same from all sides", ends == ends[::-1])

    # The caption: from 20 pixels on the left, 12 to 30 from the top.
    band = [rows[y][x] for y in range(12, 31) for x in range(20, width - 20)]
    lowest = min(contrast(pixel, BLACK) for pixel in band)
    check(f"skin: black on the caption band, contrast {lowest:.1f} of 4.5", lowest >= 4.5)
    check(f"skin: black on the labels, contrast {contrast(SURFACE, BLACK):.1f} of 4.5",
          contrast(SURFACE, BLACK) >= 4.5)
    check("skin: the dialog's children lie on their brush's colour",
          all(rows[y][x] == SURFACE for y in range(43, height - 8) for x in range(8, width - 8)))


def check_faces(faces):
    for name, rows in faces.items():
        width, height = len(rows[0]), len(rows)
        check(f"{name}: 79 x 23", (width, height) == (79, 23))
        check(f"{name}: the columns between the ends are alike",
              all_alike(list(zip(*rows))[FACE_END:width - FACE_END]))
        check(f"{name}: nothing is black", all(pixel != BLACK for row in rows for pixel in row))
        check(f"{name}: the corners bring the colour behind them",
              all(distance(rows[y][x], SURFACE) <= 8 for y in (0, -1) for x in (0, -1)))
        inside = [rows[y][width // 2] for y in range(5, height - 4)]
        lowest = min(contrast(pixel, BLACK) for pixel in inside)
        check(f"{name}: black text, contrast {lowest:.1f} of 4.5", lowest >= 4.5)
    for one, other in itertools.combinations(FACES, 2):
        changed = [distance(a, b) for row, row2 in zip(faces[one], faces[other])
                   for a, b in zip(row, row2)]
        share = sum(difference >= 24 for difference in changed) / len(changed)
        check(f"{one} and {other} are told apart: {share:.0%} of the pixels differ clearly",
              share >= 0.5)


def main():
    folder, scratch = sys.argv[1:]
    os.makedirs(scratch, exist_ok=True)
    subprocess.run([sys.executable, os.path.join(folder, "draw_skin.py"), scratch], check=True)
    for name in ("skin.bmp",) + FACES:
        with open(os.path.join(folder, name), "rb") as kept, \
                open(os.path.join(scratch, name), "rb") as made:
            check(f"{name}: as draw_skin.py makes it", kept.read() == made.read())
    check_skin(read(os.path.join(folder, "skin.bmp")))
    check_faces({name: read(os.path.join(folder, name)) for name in FACES})
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
