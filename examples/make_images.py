#!/usr/bin/env python3
"""Writes the images of this folder: charges.pgm, and the lake.pgm and boat.pgm that examples/cloning.c joins. Integer
arithmetic decides every pixel, so each run writes the same files."""

import pathlib


def write(path, width, height, pixel):
    data = bytes(pixel(i, j) for j in range(height) for i in range(width))
    path.write_bytes(b"P5\n%d %d\n255\n" % (width, height) + data)


def near(i, j, x, y, radius):
    return (i - x) ** 2 + (j - y) ** 2 <= radius**2


def charges(i, j):
    """Two positive bodies, a negative one, and a thin negative plate."""
    if near(i, j, 40, 40, 6) or near(i, j, 55, 85, 4):
        return 255
    if near(i, j, 115, 60, 8) or (130 <= i <= 132 and 20 <= j <= 100):
        return 0
    return 128


def water(i, j):
    """A lake that darkens downwards, with waves."""
    return 200 - j // 2 + (i * 7 + j * j * 3) % 11


def boat(i, j):
    """A boat with a sail on another, brighter water."""
    light = 235 - j // 4 + (i * 5 + j * 13) % 9
    if 30 <= j <= 36 and 18 + (j - 30) <= i <= 50 - (j - 30):
        return 60
    if 8 <= j <= 28 and 34 <= i <= 34 + (j - 8) // 2:
        return 150
    return 90 if i == 33 and 6 <= j <= 30 else light


if __name__ == "__main__":
    folder = pathlib.Path(__file__).parent
    write(folder / "charges.pgm", 161, 121, charges)
    write(folder / "lake.pgm", 160, 120, water)
    write(folder / "boat.pgm", 65, 49, boat)
