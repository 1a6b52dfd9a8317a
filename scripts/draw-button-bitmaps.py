#!/usr/bin/env python3
"""Draws the add-in's four toolbar bitmaps into src/addin/res/.

  210 configure-mask.bmp     211 capture.bmp
  212 capture-mask.bmp       213 configure.bmp

Each is 16 x 16 pixels, 24 bits per pixel. A picture goes with a mask in
Office's way: black in the mask is the picture's shape, white is
transparent. The shapes are drawn from geometry here so that a change is a
change of this script, not of a binary file edited by hand.

Usage: scripts/draw-button-bitmaps.py [output folder]
"""
import math
import os
import sys

from bmp_file import bmp24

SIZE = 16
WHITE = (255, 255, 255)
BLACK = (0, 0, 0)


def gear(x, y):
    """A gear of six teeth around a round hole."""
    dx, dy = x + 0.5 - SIZE / 2, y + 0.5 - SIZE / 2
    r = math.hypot(dx, dy)
    if r < 2.0:
        return False
    if r <= 5.5:
        return True
    if r > 8.0:
        return False
    # A tooth covers half of each sixth of the turn; one points straight up.
    step = 2 * math.pi / 6
    a = (math.atan2(dy, dx) + math.pi / 6) % step
    return abs(a - step / 2) < step / 4


def arrow(x, y):
    """A downward arrow: a shaft ending in a head, above the tray."""
    if 6 <= x <= 9 and 0 <= y <= 5:
        return True
    # The head narrows by one pixel a row from 12 wide at row 6.
    half = 6 - (y - 6)
    return 6 <= y <= 11 and half > 0 and 8 - half <= x <= 7 + half


def tray(x, y):
    """An open tray: two walls and a floor."""
    return (y == 14 and 1 <= x <= 14) or (x in (1, 14) and 9 <= y <= 14)


def outline(shape, x, y):
    """True on the shape's pixels that touch the outside."""
    if not shape(x, y):
        return False
    for nx, ny in ((x - 1, y), (x + 1, y), (x, y - 1), (x, y + 1)):
        if not (0 <= nx < SIZE and 0 <= ny < SIZE) or not shape(nx, ny):
            return True
    return False


def configure_pixel(x, y):
    if not gear(x, y):
        return WHITE
    return (60, 60, 72) if outline(gear, x, y) else (130, 130, 145)


def capture_pixel(x, y):
    if arrow(x, y):
        return (0, 96, 24) if outline(arrow, x, y) else (40, 170, 60)
    if tray(x, y):
        return (40, 60, 110)
    return WHITE


def capture_shape(x, y):
    return arrow(x, y) or tray(x, y)


def mask_of(shape):
    return lambda x, y: BLACK if shape(x, y) else WHITE


BITMAPS = {
    "configure-mask.bmp": mask_of(gear),
    "capture.bmp": capture_pixel,
    "capture-mask.bmp": mask_of(capture_shape),
    "configure.bmp": configure_pixel,
}


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "src", "addin", "res")
    os.makedirs(out, exist_ok=True)
    for name, pixel in BITMAPS.items():
        with open(os.path.join(out, name), "wb") as f:
            f.write(bmp24(SIZE, SIZE, pixel))


if __name__ == "__main__":
    main()
