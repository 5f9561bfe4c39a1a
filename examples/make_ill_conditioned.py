#!/usr/bin/env python3
"""Writes systems of equations that double precision solves badly, and whose solutions are known exactly.

    make_ill_conditioned.py beam 150 FOLDER      writes beam.mtx and load.mtx
    make_ill_conditioned.py hilbert 10 FOLDER    writes hilbert.mtx and sums.mtx

beam: the stiffness matrix of a slender cantilever of that many elements, a deflection and a slope at each node, with a load of
6 at its tip. Lengths and the bending stiffness are 1, so all elements are integers, and so is the solution: the deflection
at x is x x (3 n - x), the slope 3 x (2 n - x). The condition number grows with the fourth power of n.

hilbert: 1 / (i + j - 1) times a common multiple of the denominators, with the sums of rows, so that the solution is 1, 1, ...
"""

import math
import pathlib
import sys


def write(path, comment, kind, size, lines):
    with path.open("w") as out:
        out.write(f"%%MatrixMarket matrix {kind}\n% {comment}\n{size}\n")
        out.writelines(f"{line}\n" for line in lines)


def beam(n, folder):
    element = [[12, 6, -12, 6], [6, 4, -6, 2], [-12, -6, 12, -6], [6, 2, -6, 4]]
    entries = {}
    for e in range(n):
        for i in range(4):
            for j in range(i + 1):
                row, col = 2 * (e - 1) + i, 2 * (e - 1) + j
                if col >= 0:
                    entries[row, col] = entries.get((row, col), 0) + element[i][j]
    stored = sorted(((j, i, k) for (i, j), k in entries.items() if k != 0))
    write(folder / "beam.mtx", f"Stiffness of a cantilever of {n} elements; the lower triangle.",
          "coordinate real symmetric", f"{2 * n} {2 * n} {len(stored)}", (f"{i + 1} {j + 1} {k}" for j, i, k in stored))
    write(folder / "load.mtx", "A load of 6 at the tip.", "array real general", f"{2 * n} 1",
          ([0] * (2 * n - 2)) + [6, 0])


def hilbert(n, folder):
    multiple = math.lcm(*range(1, 2 * n))
    rows = [[multiple // (i + j + 1) for j in range(n)] for i in range(n)]
    if max(map(sum, rows)) > 2**53:
        sys.exit("make_ill_conditioned.py: beyond order 16 the elements are no doubles")
    write(folder / "hilbert.mtx", f"Hilbert matrix of order {n}, times {multiple}.", "array real general", f"{n} {n}",
          (rows[i][j] for j in range(n) for i in range(n)))
    write(folder / "sums.mtx", "Sums of its rows.", "array real general", f"{n} 1", map(sum, rows))


if __name__ == "__main__":
    makers = {"beam": beam, "hilbert": hilbert}
    if len(sys.argv) != 4 or sys.argv[1] not in makers or not sys.argv[2].isdigit() or int(sys.argv[2]) < 1:
        sys.exit("usage: make_ill_conditioned.py beam|hilbert N FOLDER")
    makers[sys.argv[1]](int(sys.argv[2]), pathlib.Path(sys.argv[3]))
