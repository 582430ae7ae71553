#!/usr/bin/env python3
"""Draws the loading window's hourglass and writes it as an animated cursor (RIFF ACON).

The art is ours, made from a few shapes here so that it can be changed and rebuilt:

    python3 scripts/make_hourglass_ani.py [resources/hourglass.ani]

Frames 0-10 let the sand run from the upper bulb into the lower one, frame 11 holds the
finished glass a little longer, and frames 12-14 turn it over, after which frame 0 is the
glass upright and full again. Each frame is a 32x32 cursor at 4 bits per pixel.
"""

import math
import os
import struct
import sys

SIZE = 32
FRAMES = 15
RATES = [14] * 11 + [40, 5, 5, 5]  # sixtieths of a second
DEFAULT_RATE = 14

# Palette indices. Unused entries stay black.
BLACK, WHITE, SAND, SAND_DARK, GLASS = 0, 1, 2, 3, 4
PALETTE = [(0, 0, 0)] * 16
PALETTE[WHITE] = (255, 255, 255)
PALETTE[SAND] = (222, 176, 92)
PALETTE[SAND_DARK] = (170, 120, 48)
PALETTE[GLASS] = (232, 240, 248)

# Geometry in units of pixels around the picture's centre (16, 16); v grows downwards.
CAP_HALF_WIDTH = 9.0
CAP_INNER = 10.5  # |v| where a cap begins
CAP_OUTER = 13.2  # |v| where it ends; the corners still fit when the glass is turned
BULB_HALF_WIDTH = 7.6
NECK_HALF_WIDTH = 1.0


def glass_half_width(v):
    """Half the width of the glass at height v: a round bulb that pinches to the neck."""
    t = min(abs(v) / CAP_INNER, 1.0)
    return NECK_HALF_WIDTH + (BULB_HALF_WIDTH - NECK_HALF_WIDTH) * math.sin(t * math.pi / 2) ** 0.8


def region(u, v):
    """'cap', 'glass' or None for a point of the upright glass."""
    if abs(u) <= CAP_HALF_WIDTH and CAP_INNER <= abs(v) <= CAP_OUTER:
        return "cap"
    if abs(v) < CAP_INNER and abs(u) < glass_half_width(v):
        return "glass"
    return None


def sand(u, v, progress, frame):
    """Sand colour at a point inside the glass, or None. progress runs 0 (all above) to 1."""
    # Upper bulb: the sand sits on the neck and its surface sinks as it drains.
    surface = -9.0 + 9.0 * progress
    if -CAP_INNER < v < -0.2 and v > surface:
        return SAND
    # Lower bulb: a mound that grows from the bottom cap, highest in the middle.
    height = 9.0 * progress
    if height > 0 and v > 0.5:
        mound_top = CAP_INNER - height + min(abs(u), 4.0) * 0.55 * progress
        if v >= mound_top:
            return SAND_DARK if v >= CAP_INNER - 1.5 else SAND
    # The falling stream, broken into grains that move with the frames.
    if 0 < progress < 1 and abs(u) < 0.6 and 0 < v < CAP_INNER - height:
        if (int(math.floor(v)) + frame) % 3 != 0:
            return SAND
    return None


def draw_frame(frame):
    """A SIZE x SIZE grid of palette indices and a grid of transparency flags."""
    if frame <= 10:
        progress, angle = frame / 11.0, 0.0
    elif frame == 11:
        progress, angle = 1.0, 0.0
    else:
        progress, angle = 1.0, 45.0 * (frame - 11)
    cos_a, sin_a = math.cos(math.radians(angle)), math.sin(math.radians(angle))

    def local(x, y):
        # Sample the upright picture at the pixel's centre, turned back by `angle`.
        dx, dy = x + 0.5 - SIZE / 2, y + 0.5 - SIZE / 2
        return dx * cos_a + dy * sin_a, -dx * sin_a + dy * cos_a

    kinds = [[region(*local(x, y)) for x in range(SIZE)] for y in range(SIZE)]

    def kind(x, y):
        return kinds[y][x] if 0 <= x < SIZE and 0 <= y < SIZE else None

    pixels = [[BLACK] * SIZE for _ in range(SIZE)]
    clear = [[True] * SIZE for _ in range(SIZE)]
    for y in range(SIZE):
        for x in range(SIZE):
            k = kind(x, y)
            if k is None:
                continue
            clear[y][x] = False
            neighbours = [kind(x + 1, y), kind(x - 1, y), kind(x, y + 1), kind(x, y - 1)]
            # The cap draws the line where glass meets it, so the glass only outlines
            # itself against the outside.
            edge = any(n != k for n in neighbours) if k == "cap" else None in neighbours
            if edge:
                pixels[y][x] = BLACK
            elif k == "cap":
                pixels[y][x] = WHITE
            else:
                grain = sand(*local(x, y), progress, frame)
                pixels[y][x] = grain if grain is not None else WHITE
    return pixels, clear


def cursor_file(pixels, clear, hot_spot):
    """One image as a cursor file: directory, entry, DIB with palette, colour bits, mask."""
    xor_stride = SIZE * 4 // 8
    and_stride = ((SIZE + 31) // 32) * 4
    header = struct.pack("<IiiHHIIiiII", 40, SIZE, SIZE * 2, 1, 4, 0,
                         (xor_stride + and_stride) * SIZE, 0, 0, 16, 0)
    palette = b"".join(struct.pack("<BBBB", b, g, r, 0) for (r, g, b) in PALETTE)
    xor_bits = bytearray()
    and_bits = bytearray()
    for y in reversed(range(SIZE)):  # bottom-up rows
        for x in range(0, SIZE, 2):
            xor_bits.append((pixels[y][x] << 4) | pixels[y][x + 1])
        row = 0
        for x in range(SIZE):
            row = (row << 1) | (1 if clear[y][x] else 0)
        and_bits += row.to_bytes(and_stride, "big")
    dib = header + palette + bytes(xor_bits) + bytes(and_bits)
    directory = struct.pack("<HHH", 0, 2, 1)
    entry = struct.pack("<BBBBHHII", SIZE, SIZE, 16, 0, hot_spot[0], hot_spot[1], len(dib),
                        6 + 16)
    return directory + entry + dib


def chunk(fourcc, data):
    return fourcc + struct.pack("<I", len(data)) + data + (b"\0" if len(data) % 2 else b"")


def riff_list(kind, chunks):
    return chunk(b"LIST", kind + b"".join(chunks))


def build():
    info = riff_list(b"INFO", [chunk(b"INAM", b"Hourglass (White)\0"),
                               chunk(b"IART", b"Pagewright team\0")])
    anih = chunk(b"anih", struct.pack("<9I", 36, FRAMES, FRAMES, SIZE, SIZE, 4, 1,
                                      DEFAULT_RATE, 1))
    rate = chunk(b"rate", struct.pack("<%dI" % FRAMES, *RATES))
    icons = []
    for frame in range(FRAMES):
        pixels, clear = draw_frame(frame)
        hot_spot = (16, 16) if frame == FRAMES - 1 else (16, 15)
        icons.append(chunk(b"icon", cursor_file(pixels, clear, hot_spot)))
    body = b"ACON" + info + anih + rate + riff_list(b"fram", icons)
    return b"RIFF" + struct.pack("<I", len(body)) + body


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    target = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "resources",
                                                                "hourglass.ani")
    with open(target, "wb") as out:
        out.write(build())


if __name__ == "__main__":
    main()
