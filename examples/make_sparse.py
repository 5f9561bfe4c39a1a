#!/usr/bin/env python3
"""Writes the two sparse matrices of this folder. Integers and fractions decide every digit, so each run writes the same
files."""

import pathlib
from fractions import Fraction

from make_matrices import noise

CELLS, CELL = 48, 1000  # squares along a side of the L, and their width
NODES, NEIGHBOURS, SHORTCUTS = 2000, 3, 900


def mesh():
    """Nodes and triangles of an L: a square without its upper right quarter, inner nodes moved at random, each cell cut
    along either diagonal. Returns coordinates by node, triangles, and the nodes inside."""
    step = noise(3)
    inside_l = lambda i, j: i <= CELLS // 2 or j <= CELLS // 2
    nodes, place, interior = [], {}, []
    for j in range(CELLS + 1):
        for i in range(CELLS + 1):
            if not inside_l(i, j):
                continue
            border = i in (0, CELLS) or j in (0, CELLS) or (i >= CELLS // 2 and j >= CELLS // 2)
            move = (0, 0) if border else (step() * 3 // 5, step() * 3 // 5)
            if not border:
                interior.append(len(nodes))
            place[i, j] = len(nodes)
            nodes.append((CELL * i + move[0], CELL * j + move[1]))
    triangles = []
    for i, j in place:
        corners = [(i, j), (i + 1, j), (i + 1, j + 1), (i, j + 1)]
        if not all(c in place for c in corners) or not inside_l(i + 1, j + 1):
            continue
        a, b, c, d = (place[p] for p in corners)
        cuts = [((a, b, c), (a, c, d)), ((a, b, d), (b, c, d))]
        if step() > 0:
            cuts.reverse()
        triangles += next(cut for cut in cuts if all(area(nodes, t) > 0 for t in cut))
    return nodes, triangles, interior


def area(nodes, triangle):
    """Twice the area, positive when the corners run counterclockwise."""
    (x0, y0), (x1, y1), (x2, y2) = (nodes[n] for n in triangle)
    return (x1 - x0) * (y2 - y0) - (x2 - x0) * (y1 - y0)


def laplacian(path):
    """Stiffness of linear elements on the mesh, the boundary held at 0."""
    nodes, triangles, interior = mesh()
    number = {node: k for k, node in enumerate(interior)}
    entries = {}
    for t in triangles:
        # The gradient of a corner's hat function is the opposite side turned by a right angle, over twice the area.
        sides = [(nodes[t[k - 1]][0] - nodes[t[k - 2]][0], nodes[t[k - 1]][1] - nodes[t[k - 2]][1]) for k in range(3)]
        for p in range(3):
            for q in range(3):
                i, j = number.get(t[p], -1), number.get(t[q], -1)
                if 0 <= j <= i:
                    product = sides[p][0] * sides[q][0] + sides[p][1] * sides[q][1]
                    entries[i, j] = entries.get((i, j), 0) + Fraction(product, 2 * area(nodes, t))
    with path.open("w") as out:
        out.write("%%MatrixMarket matrix coordinate real symmetric\n")
        out.write("% Laplacian of linear finite elements on an L, boundary nodes left out; the lower triangle.\n")
        out.write(f"{len(interior)} {len(interior)} {len(entries)}\n")
        for (i, j), value in sorted(entries.items(), key=lambda e: (e[0][1], e[0][0])):
            digits = round(value * 10**7)
            sign, digits = ("-" if digits < 0 else ""), abs(digits)
            out.write(f"{i + 1} {j + 1} {sign}{digits // 10**7}.{digits % 10**7:07d}\n")


def network(path):
    """A small world: each node knows its next neighbours on a ring, and some know one far away."""
    step = noise(4)
    edges = {(i, (i + k) % NODES) for i in range(NODES) for k in range(1, NEIGHBOURS + 1)}
    for _ in range(SHORTCUTS):
        i, j = ((step() + 500) * 1001 + step() + 500) % NODES, ((step() + 500) * 1001 + step() + 500) % NODES
        if i != j:
            edges.add((i, j))
    lower = sorted({(max(e), min(e)) for e in edges}, key=lambda e: (e[1], e[0]))
    with path.open("w") as out:
        out.write("%%MatrixMarket matrix coordinate pattern symmetric\n")
        out.write("% Who knows whom in a small world of 2000; the lower triangle.\n")
        out.write(f"{NODES} {NODES} {len(lower)}\n")
        out.writelines(f"{i + 1} {j + 1}\n" for i, j in lower)


if __name__ == "__main__":
    folder = pathlib.Path(__file__).parent
    laplacian(folder / "laplacian.mtx")
    network(folder / "network.mtx")
