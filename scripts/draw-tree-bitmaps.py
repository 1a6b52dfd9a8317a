#!/usr/bin/env python3
"""Draws the preferences trees' two image strips into src/ui/res/.

  206 check-states.bmp   64 x 16, 4 bits per pixel: the check tree's state
                         images (0 none, 1 unchecked, 2 checked, 3 fixed)
  209 folder-images.bmp  144 x 16, 24 bits per pixel: 0 a field that can be
                         switched, 1 a field always captured, 2 calendar,
                         3 contacts, 4 e-mail, 5 tasks, 6 message store,
                         7 loading, 8 other folder

Pure white is transparent in both (the image lists are made with white as
their mask colour), so what must look white inside a picture is drawn in
an almost-white (the 16-colour strip has none: its boxes show the tree's
own background, which is white). The pictures are drawn from geometry here
so that a change is a change of this script, not of a binary edited by hand.

Usage: scripts/draw-tree-bitmaps.py [output folder]
"""
import os
import sys

from bmp_file import bmp24, bmp4

SIZE = 16
WHITE = (255, 255, 255)
PAPER = (252, 252, 252)
BLACK = (0, 0, 0)
GRAY = (128, 128, 128)
SILVER = (192, 192, 192)

# The standard 16-colour palette, in its usual order.
VGA = [
    (0, 0, 0), (128, 0, 0), (0, 128, 0), (128, 128, 0),
    (0, 0, 128), (128, 0, 128), (0, 128, 128), (192, 192, 192),
    (128, 128, 128), (255, 0, 0), (0, 255, 0), (255, 255, 0),
    (0, 0, 255), (255, 0, 255), (0, 255, 255), (255, 255, 255),
]


class Canvas:
    def __init__(self):
        self.px = [[WHITE] * SIZE for _ in range(SIZE)]

    def set(self, x, y, colour):
        if 0 <= x < SIZE and 0 <= y < SIZE:
            self.px[y][x] = colour

    def fill(self, x0, y0, x1, y1, colour):
        """Fills the rectangle of corners (x0, y0) and (x1, y1), inclusive."""
        for y in range(y0, y1 + 1):
            for x in range(x0, x1 + 1):
                self.set(x, y, colour)

    def frame(self, x0, y0, x1, y1, colour):
        self.fill(x0, y0, x1, y0, colour)
        self.fill(x0, y1, x1, y1, colour)
        self.fill(x0, y0, x0, y1, colour)
        self.fill(x1, y0, x1, y1, colour)

    def hline(self, x0, x1, y, colour):
        self.fill(x0, y, x1, y, colour)

    def vline(self, x, y0, y1, colour):
        self.fill(x, y0, x, y1, colour)


# ---- 206: the check states ----------------------------------------------------

# The tick of a 13-pixel box: per column of the inside, the top row of a
# stroke three pixels high.
TICK = {1: 3, 2: 4, 3: 5, 4: 4, 5: 3, 6: 2, 7: 1}


def check_box(c, inside, tick):
    """A sunken 13 x 13 box at (1, 1) in the classic look: dark edge top and
    left, light edge bottom and right."""
    c.hline(1, 13, 1, GRAY)
    c.vline(1, 1, 13, GRAY)
    c.hline(2, 12, 2, BLACK)
    c.vline(2, 2, 12, BLACK)
    c.hline(2, 13, 13, SILVER)
    c.vline(13, 2, 13, SILVER)
    if inside != WHITE:
        c.fill(3, 3, 12, 12, inside)
    if tick:
        for column, top in TICK.items():
            c.vline(3 + column, 3 + top, 3 + top + 2, tick)


def state_blank(c):
    pass


def state_unchecked(c):
    check_box(c, WHITE, None)


def state_checked(c):
    check_box(c, WHITE, BLACK)


def state_fixed(c):
    """Checked and greyed, as a box that cannot be changed is drawn."""
    check_box(c, SILVER, GRAY)


# ---- 209: fields, folders and stores --------------------------------------------


def field(c):
    """An entry field: a framed line of text with a caret."""
    c.fill(1, 4, 14, 11, PAPER)
    c.frame(1, 4, 14, 11, (0, 60, 140))
    c.hline(3, 9, 7, (90, 90, 90))
    c.hline(3, 7, 9, (90, 90, 90))
    c.vline(11, 6, 9, BLACK)


def locked_field(c):
    """The field under a small padlock."""
    field(c)
    gold, dark = (220, 170, 30), (120, 80, 0)
    # The shackle, then the body.
    c.fill(9, 6, 14, 9, PAPER)
    c.hline(10, 13, 6, dark)
    c.vline(9, 7, 9, dark)
    c.vline(14, 7, 9, dark)
    c.fill(8, 10, 15, 15, gold)
    c.frame(8, 10, 15, 15, dark)
    c.vline(11, 12, 13, dark)
    c.vline(12, 12, 13, dark)


def calendar(c):
    """A calendar sheet: rings, a red heading and a grid of days."""
    c.fill(1, 3, 14, 15, PAPER)
    c.frame(1, 3, 14, 15, (60, 60, 60))
    c.fill(2, 4, 13, 6, (200, 30, 30))
    for x in (4, 11):
        c.vline(x, 1, 4, (60, 60, 60))
    for y in (9, 12):
        c.hline(2, 13, y, SILVER)
    for x in (5, 8, 11):
        c.vline(x, 7, 14, SILVER)
    c.fill(9, 10, 10, 11, (0, 60, 160))


def contacts(c):
    """An address card with a head and shoulders and lines of text."""
    c.fill(0, 3, 15, 13, (255, 248, 200))
    c.frame(0, 3, 15, 13, (120, 100, 40))
    skin, shirt = (230, 170, 120), (30, 80, 170)
    c.fill(3, 5, 5, 7, skin)
    c.fill(2, 9, 6, 11, shirt)
    c.hline(3, 5, 8, shirt)
    for y in (6, 8, 10):
        c.hline(8, 13, y, (90, 90, 90))


def email(c):
    """An envelope with its flap."""
    c.fill(0, 3, 15, 12, (250, 240, 210))
    c.frame(0, 3, 15, 12, (110, 90, 50))
    for i in range(8):
        c.set(1 + i, 4 + i * 5 // 8, (110, 90, 50))
        c.set(14 - i, 4 + i * 5 // 8, (110, 90, 50))


def tasks(c):
    """A clipboard with a ticked line and an open one."""
    c.fill(2, 1, 13, 15, (170, 120, 60))
    c.fill(4, 3, 11, 14, PAPER)
    c.fill(6, 0, 9, 2, GRAY)
    green = (0, 140, 40)
    for x, y in ((5, 6), (6, 7), (7, 6), (8, 5), (9, 4)):
        c.set(x, y, green)
    c.hline(5, 10, 9, (90, 90, 90))
    c.hline(5, 10, 11, (90, 90, 90))
    c.hline(5, 8, 13, (90, 90, 90))


def store(c):
    """A message store: a stack of discs, as a data store is drawn."""
    body, edge, top = (90, 130, 200), (20, 50, 110), (160, 190, 240)
    c.fill(2, 3, 13, 13, body)
    c.vline(2, 3, 13, edge)
    c.vline(13, 3, 13, edge)
    c.fill(3, 1, 12, 4, top)
    c.hline(4, 11, 0, edge)
    c.hline(4, 11, 5, edge)
    c.set(3, 1, edge)
    c.set(12, 1, edge)
    c.set(3, 4, edge)
    c.set(12, 4, edge)
    c.hline(3, 12, 9, edge)
    c.hline(4, 11, 14, edge)
    c.set(3, 13, edge)
    c.set(12, 13, edge)


def loading(c):
    """An hourglass: what is shown while a folder's kind is not known."""
    frame, sand = (90, 60, 20), (220, 180, 60)
    c.hline(3, 12, 1, frame)
    c.hline(3, 12, 14, frame)
    for y in range(2, 8):
        inset = y - 2
        c.set(4 + inset, y, frame)
        c.set(11 - inset, y, frame)
        c.set(4 + inset, 15 - y, frame)
        c.set(11 - inset, 15 - y, frame)
        if y >= 5:
            c.hline(5 + inset, 10 - inset, y, PAPER)
    c.hline(5, 10, 13, sand)
    c.hline(6, 9, 12, sand)
    c.hline(7, 8, 11, sand)
    c.vline(7, 8, 10, sand)


def folder(c):
    """The classic yellow folder with its tab."""
    yellow, edge, light = (240, 200, 80), (150, 110, 20), (255, 235, 150)
    c.fill(1, 4, 6, 5, yellow)
    c.hline(1, 6, 3, edge)
    c.fill(1, 5, 14, 14, yellow)
    c.frame(1, 5, 14, 14, edge)
    c.vline(1, 3, 5, edge)
    c.vline(7, 3, 5, edge)
    c.hline(2, 13, 6, light)


def strip(drawers):
    canvases = []
    for draw in drawers:
        c = Canvas()
        draw(c)
        canvases.append(c)
    width = SIZE * len(canvases)
    return width, lambda x, y: canvases[x // SIZE].px[y][x % SIZE]


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "..", "src", "ui", "res")
    os.makedirs(out, exist_ok=True)
    width, pixel = strip([state_blank, state_unchecked, state_checked, state_fixed])
    with open(os.path.join(out, "check-states.bmp"), "wb") as f:
        f.write(bmp4(width, SIZE, pixel, VGA))
    width, pixel = strip([field, locked_field, calendar, contacts, email, tasks, store, loading,
                          folder])
    with open(os.path.join(out, "folder-images.bmp"), "wb") as f:
        f.write(bmp24(width, SIZE, pixel))


if __name__ == "__main__":
    main()
