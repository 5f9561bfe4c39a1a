#!/usr/bin/env python3
"""Writes the two matrices of this folder. Integer arithmetic decides every digit, so each run writes the same files."""

import pathlib

ROWS, NODES = 300, 200


def noise(seed):
    """A linear congruential generator: a function that yields integers from -500 to 500."""
    state = seed

    def step():
        nonlocal state
        state = (state * 6364136223846793005 + 1442695040888963407) % 2**64
        return (state >> 40) % 1001 - 500

    return step


def fixed(value, digits):
    """An integer number of 10**-digits as a decimal."""
    sign, value = ("-" if value < 0 else ""), abs(value)
    return f"{sign}{value // 10**digits}.{value % 10**digits:0{digits}d}"


def readings(path):
    """Strain of 200 gauges in 300 samples, in microstrain: a slow load, an offset for each gauge, and noise."""
    step = noise(1)
    offsets = [40 * step() for _ in range(NODES)]
    with path.open("w") as out:
        out.write("%%MatrixMarket matrix array real general\n")
        out.write("% Strain in microstrain: 300 samples (rows) of 200 gauges (columns).\n")
        out.write(f"{ROWS} {NODES}\n")
        for gauge in range(NODES):
            for sample in range(ROWS):
                load = 3 * abs((sample + 7 * gauge) % 240 - 120) * (50 + gauge)
                out.write(fixed(load + offsets[gauge] + 3 * step(), 3) + "\n")


def stiffness(path):
    """Stiffness in kN/m of a chain of 200 masses on springs, with a brace over every fifth pair of bays."""
    step = noise(2)
    springs = {(i, i - 1): 8_000_000 + 1000 * step() + step() for i in range(1, NODES)}
    springs.update({(i, i - 2): 1_250_000 + 500 * step() for i in range(5, NODES, 5)})
    diagonal = [2_000_000 if i in (0, NODES - 1) else 0 for i in range(NODES)]
    for (i, j), k in springs.items():
        diagonal[i] += k
        diagonal[j] += k
    entries = {(i, i): d for i, d in enumerate(diagonal)}
    entries.update({place: -k for place, k in springs.items()})
    with path.open("w") as out:
        out.write("%%MatrixMarket matrix coordinate real symmetric\n")
        out.write("% Stiffness in kN/m of a braced chain of 200 masses; the lower triangle.\n")
        out.write(f"{NODES} {NODES} {len(entries)}\n")
        for (i, j), k in sorted(entries.items(), key=lambda e: (e[0][1], e[0][0])):
            out.write(f"{i + 1} {j + 1} {fixed(k, 3)}\n")


if __name__ == "__main__":
    folder = pathlib.Path(__file__).parent
    readings(folder / "readings.mtx")
    stiffness(folder / "stiffness.mtx")
