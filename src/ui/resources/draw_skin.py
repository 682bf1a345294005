#!/usr/bin/env python3
"""Draws the dialog's skin and its button faces.

    draw_skin.py [folder]

Writes skin.bmp (312 x 156), button_normal.bmp, button_hot.bmp and button_pressed.bmp (79 x 23
each), all of 24 bits a pixel, to the folder; without one, beside this program. The same program
always makes the same bytes: change the parameters below, run it, and commit what it wrote.

What the code that shows these pictures asks of them:

  skin    Corners of 109 x 63 are copied as they are, what is between them is stretched. So all
          columns between the corners are alike, and all rows between them too: no size shows a
          seam. Pure red is outside of the window, and stands nowhere else.
  faces   The left and the right 10 columns are copied as they are, the columns between them, all
          alike, are stretched. Pure black would be transparent. No face has any: what lies behind
          it is the dialog's flat colour, so the faces bring that themselves, with soft edges.

Text over both is black, on the caption band as well as on the faces.
"""

import math
import os
import struct
import sys

# -- parameters: sizes in pixels, colours as (red, green, blue) ----------------------------------

SKIN_SIZE = (312, 156)
CORNER_SIZE = (109, 63)
FACE_SIZE = (79, 23)
FACE_END = 10

OUTSIDE = (255, 0, 0)
SURFACE = (237, 237, 237)  # that of the brush behind the dialog's children

WINDOW_RADIUS = 12.0
WINDOW_EDGE = (74, 108, 148)  # the outermost line
WINDOW_GLINT = (252, 253, 254)  # a line of light inside of it

BAND_HEIGHT = 36.0  # the caption band
BAND_TOP = (222, 236, 249)
BAND_BOTTOM = (182, 211, 239)
BAND_LINE = (84, 134, 188)  # the line below it, and the mark beside the caption
BAND_SHADOW = 5.0  # how far the band's shadow reaches down
BAND_SHADOW_STRENGTH = 0.16

MARK = (9.0, 10.0, 13.0, 28.0)  # left, top, right, bottom of the mark beside the caption

# Circles of light in the band's right corner: centre x from the right edge, centre y, radius.
CIRCLES = ((24.0, 40.0, 36.0), (62.0, 2.0, 26.0), (4.0, -6.0, 30.0))
CIRCLE_STRENGTH = 0.30

FACE_RADIUS = 5.0
FACES = {
    # fill at the top and at the bottom, edge, width of the edge, glint or shadow inside at the top
    "button_normal.bmp": ((254, 254, 255), (222, 230, 239), (122, 144, 170), 1.0, (255, 255, 255)),
    "button_hot.bmp": ((232, 245, 255), (166, 209, 248), (24, 98, 178), 2.0, (250, 253, 255)),
    "button_pressed.bmp": ((118, 164, 212), (150, 192, 234), (16, 66, 124), 2.0, (92, 138, 188)),
}

# -- drawing --------------------------------------------------------------------------------------


def mix(under, over, share):
    """The colour between two; a share of 1 is all `over`."""
    share = min(max(share, 0.0), 1.0)
    return tuple(a + (b - a) * share for a, b in zip(under, over))


def distance_to_rounded(x, y, left, top, right, bottom, radius):
    """How far a point is from the edge of a rounded rectangle, below 0 inside of it."""
    dx = abs(x - (left + right) / 2) - ((right - left) / 2 - radius)
    dy = abs(y - (top + bottom) / 2) - ((bottom - top) / 2 - radius)
    outer = math.sqrt(max(dx, 0.0) ** 2 + max(dy, 0.0) ** 2)
    return outer + min(max(dx, dy), 0.0) - radius


def covered(distance):
    """How much of a pixel lies inside of an edge at that distance from its centre."""
    return min(max(0.5 - distance, 0.0), 1.0)


def on_line(distance, width):
    """How much of a pixel a line along the inner side of an edge covers."""
    return covered(distance) - covered(distance + width)


def skin_pixel(column, row):
    width, height = SKIN_SIZE
    x, y = column + 0.5, row + 0.5
    edge = distance_to_rounded(x, y, 0.0, 0.0, width, height, WINDOW_RADIUS)
    if edge >= 0.5:
        return OUTSIDE  # a region has no half pixels, so there is nothing to mix

    colour = mix(BAND_TOP, BAND_BOTTOM, y / BAND_HEIGHT)
    for from_right, centre_y, radius in CIRCLES:
        distance = math.sqrt((x - (width - from_right)) ** 2 + (y - centre_y) ** 2) - radius
        colour = mix(colour, (255, 255, 255), CIRCLE_STRENGTH * covered(distance))
    mark = distance_to_rounded(x, y, *MARK, (MARK[2] - MARK[0]) / 2)
    colour = mix(colour, BAND_LINE, covered(mark))

    below = y - BAND_HEIGHT
    shade = BAND_SHADOW_STRENGTH * max(1.0 - (below - 1.0) / BAND_SHADOW, 0.0) ** 2
    colour = mix(colour, mix(SURFACE, WINDOW_EDGE, shade), covered(-below))
    colour = mix(colour, BAND_LINE, on_line(-below, 1.0))

    colour = mix(colour, WINDOW_GLINT, 0.8 * on_line(edge + 1.0, 1.0))
    return mix(colour, WINDOW_EDGE, covered(edge) * (1.0 - covered(edge + 1.0)) + covered(-edge))


def face_pixel(column, row, top, bottom, line, line_width, inner):
    width, height = FACE_SIZE
    x, y = column + 0.5, row + 0.5
    edge = distance_to_rounded(x, y, 0.0, 0.0, width, height, FACE_RADIUS)
    colour = mix(top, bottom, (y - line_width) / (height - 2 * line_width))
    colour = mix(colour, inner, 0.7 * max(1.0 - abs(y - line_width - 0.5), 0.0))
    colour = mix(colour, line, 1.0 - covered(edge + line_width))
    return mix(SURFACE, colour, covered(edge))


def bitmap(size, pixel):
    """A file of 24 bits a pixel, rows from the bottom up, each filled to 4 bytes."""
    width, height = size
    rows = bytearray()
    for row in reversed(range(height)):
        line = bytearray()
        for column in range(width):
            red, green, blue = (int(value + 0.5) for value in pixel(column, row))
            line += bytes((blue, green, red))
        rows += line + bytes(-len(line) % 4)
    offset = 14 + 40
    file_header = struct.pack("<2sIHHI", b"BM", offset + len(rows), 0, 0, offset)
    info_header = struct.pack("<IiiHHIIiiII", 40, width, height, 1, 24, 0, len(rows), 2835, 2835, 0, 0)
    return file_header + info_header + bytes(rows)


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.abspath(__file__))
    pictures = {"skin.bmp": bitmap(SKIN_SIZE, skin_pixel)}
    for name, colours in FACES.items():
        pictures[name] = bitmap(FACE_SIZE, lambda x, y, c=colours: face_pixel(x, y, *c))
    for name, content in pictures.items():
        with open(os.path.join(folder, name), "wb") as file:
            file.write(content)


if __name__ == "__main__":
    main()
