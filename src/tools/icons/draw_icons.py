#!/usr/bin/env python3
"""Draws the programs' icons.

    draw_icons.py [folder]

Writes velt.ico, which stands for the product too, and velt_trace.ico to the folder; without one,
beside this program. Each has the sizes that Windows shows, from 16 to 256 pixels, with 32 bits a
pixel; the largest is a PNG file inside of the icon, as Windows has it since Vista. The same program
always makes the same pictures: change the parameters below, run it, look at what it wrote at 16
pixels first, and commit it.

Both are the same tile with white on it, and one thing in amber: the mark of the product with the
cursor of a command line, and the lines of a trace with one that is highlighted. What is level or
upright begins and ends at whole pixels in every size, so nothing is blurred.
"""

import os
import struct
import sys
import zlib

sys.dont_write_bytecode = True  # the sources' folder stays as it is
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../ui/resources"))
from draw_skin import covered, distance_to_rounded, mix, on_line  # noqa: E402

# -- parameters: shares of the size, colours as (red, green, blue) --------------------------------

SIZES = (16, 20, 24, 32, 48, 64, 256)
PNG_SIZES = (256,)

TILE_MARGIN = 0.035
TILE_RADIUS = 0.17
TILE_TOP = (66, 146, 222)
TILE_BOTTOM = (18, 82, 160)
TILE_EDGE = (12, 58, 118)
TILE_GLINT = (146, 200, 248)  # a line of light inside the edge
TILE_GLINT_STRENGTH = 0.45

WHITE = (255, 255, 255)
SHADED = (205, 226, 246)
AMBER = (255, 190, 56)

MARK = (0.15, 0.81, 0.20, 0.73)  # left, right, top, bottom
MARK_STROKE = 0.165  # how wide an arm is, measured level
MARK_FOOT = 0.8  # how wide its lower end is, of that
CURSOR = (0.66, 0.86, 0.70, 0.82)

LINE_HEIGHT = 0.105
LINE_GAP = 0.085
# From where to where each line of the trace goes, and its colour.
LINES = ((0.17, 0.68, WHITE), (0.34, 0.83, WHITE), (0.34, 0.70, AMBER), (0.17, 0.54, WHITE))

# -- drawing --------------------------------------------------------------------------------------


def whole(share, size):
    """The nearest line between two pixels."""
    return float(int(share * size + 0.5))


def distance_to_polygon(x, y, corners):
    """How far a point is from the edge of a polygon, below 0 inside of it."""
    nearest = float("inf")
    inside = False
    for (ax, ay), (bx, by) in zip(corners, corners[1:] + corners[:1]):
        along = ((x - ax) * (bx - ax) + (y - ay) * (by - ay)) / ((bx - ax) ** 2 + (by - ay) ** 2)
        along = min(max(along, 0.0), 1.0)
        nearest = min(nearest, (x - ax - along * (bx - ax)) ** 2 + (y - ay - along * (by - ay)) ** 2)
        if (ay > y) != (by > y) and x < ax + (y - ay) * (bx - ax) / (by - ay):
            inside = not inside
    return -(nearest ** 0.5) if inside else nearest ** 0.5


def velt_glyph(size):
    """The shapes of the product's mark and of the cursor: how far a point is, and the colour."""
    left, right, top, bottom = (whole(share, size) for share in MARK)
    stroke = whole(MARK_STROKE, size)
    middle = (left + right) / 2
    foot = stroke * MARK_FOOT / 2
    # The edges of an arm run side by side until the inner ones meet.
    meet = top + (bottom - top) * (middle - left - stroke) / (middle - left - foot)
    arm = [(left, top), (left + stroke, top), (middle, meet), (middle, bottom),
           (middle - foot, bottom)]
    both = arm[:3] + [(2 * middle - x, y) for x, y in (arm[1], arm[0], arm[4])] + arm[4:]
    cursor = [whole(share, size) for share in CURSOR]
    return (
        (lambda x, y: distance_to_polygon(x, y, both), SHADED),
        (lambda x, y: distance_to_polygon(x, y, arm), WHITE),
        (lambda x, y: distance_to_rounded(x, y, cursor[0], cursor[2], cursor[1], cursor[3], 0.0),
         AMBER),
    )


def trace_glyph(size):
    """The shapes of the lines."""
    height = max(whole(LINE_HEIGHT, size), 1.0)
    gap = max(whole(LINE_GAP, size), 1.0)
    top = float((size - int(len(LINES) * height + (len(LINES) - 1) * gap) + 1) // 2)
    shapes = []
    for begin, end, colour in LINES:
        shapes.append((lambda x, y, box=(whole(begin, size), top, whole(end, size), top + height):
                       distance_to_rounded(x, y, *box, height / 4 if height > 6 else 0.0), colour))
        top += height + gap
    return shapes


def picture(size, glyph):
    """Rows from the top, each a list of (red, green, blue, opacity)."""
    margin = whole(TILE_MARGIN, size) if size > 24 else 0.0
    tile = (margin, margin, size - margin, size - margin, TILE_RADIUS * size)
    line = max(whole(1 / 64, size), 1.0)
    shapes = glyph(size)
    rows = []
    for row in range(size):
        y = row + 0.5
        fill = mix(TILE_TOP, TILE_BOTTOM, (y - margin) / (size - 2 * margin))
        pixels = []
        for column in range(size):
            x = column + 0.5
            edge = distance_to_rounded(x, y, *tile)
            opacity = int(255 * covered(edge) + 0.5)
            colour = fill
            if -2 * line - 1 < edge:
                glint = TILE_GLINT_STRENGTH * max(1.0 - 2 * (y - margin) / size, 0.0)
                colour = mix(colour, TILE_GLINT, glint * on_line(edge + line, line))
                colour = mix(colour, TILE_EDGE, 1.0 - covered(edge + line))
            for distance, over in shapes:
                colour = mix(colour, over, covered(distance(x, y)))
            colour = tuple(int(value + 0.5) for value in colour) if opacity else (0, 0, 0)
            pixels.append(colour + (opacity,))
        rows.append(pixels)
    return rows


# -- files ----------------------------------------------------------------------------------------


def bitmap(rows):
    """As icons have it: without a file's header, from the bottom up, the mask of what is clear after
    the colours, and a height that counts both."""
    size = len(rows)
    colours = bytearray()
    mask = bytearray()
    for pixels in reversed(rows):
        bits = 0
        for red, green, blue, opacity in pixels:
            colours += bytes((blue, green, red, opacity))
            bits = bits << 1 | (opacity < 128)
        stride = (size + 31) // 32 * 4
        mask += (bits << (stride * 8 - size)).to_bytes(stride, "big")
    header = struct.pack("<IiiHHIIiiII", 40, size, 2 * size, 1, 32, 0, len(colours) + len(mask),
                         0, 0, 0, 0)
    return header + bytes(colours) + bytes(mask)


def png(rows):
    """Each row as its difference from the row above: the tile is nearly the same from row to row."""
    def chunk(kind, content):
        return struct.pack(">I", len(content)) + kind + content + \
            struct.pack(">I", zlib.crc32(kind + content))

    size = len(rows)
    above = bytes(4 * size)
    lines = bytearray()
    for pixels in rows:
        line = bytes(value for pixel in pixels for value in pixel)
        lines += b"\x02" + bytes((a - b) & 0xFF for a, b in zip(line, above))
        above = line
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)) + \
        chunk(b"IDAT", zlib.compress(bytes(lines), 9)) + chunk(b"IEND", b"")


def icon(glyph):
    entries = bytearray()
    contents = bytearray()
    for size in SIZES:
        rows = picture(size, glyph)
        content = png(rows) if size in PNG_SIZES else bitmap(rows)
        side = size % 256  # 256 is written as 0
        entries += struct.pack("<BBBBHHII", side, side, 0, 0, 1, 32, len(content),
                               6 + 16 * len(SIZES) + len(contents))
        contents += content
    return struct.pack("<HHH", 0, 1, len(SIZES)) + bytes(entries) + bytes(contents)


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    for name, glyph in (("velt.ico", velt_glyph), ("velt_trace.ico", trace_glyph)):
        with open(os.path.join(folder, name), "wb") as file:
            file.write(icon(glyph))


if __name__ == "__main__":
    main()
