#!/usr/bin/python3
# SPDX-License-Identifier: MIT
# scipy_sparse.py [FILE.mtx]: times SciPy's sparse kernels on the matrices of `zor bench --family spgemm`, spconv,
# spcoo and spbsr, one thread, best of repeats in ms; with a file, its Matrix Market reader and the memory it takes.
import resource
import sys
import time

import numpy as np
import scipy
import scipy.io
import scipy.sparse as sp


def best(call, seconds=1.0):
    least, spent = float("inf"), 0.0
    while spent < seconds:
        start = time.perf_counter()
        call()
        took = time.perf_counter() - start
        least, spent = min(least, took), spent + took
    return 1e3 * least


def laplacian(side):
    line = sp.diags([1.0, 8.0, 1.0], [-1, 0, 1], shape=(side, side), format="csr")
    link = sp.diags([1.0, 1.0], [-1, 1], shape=(side, side), format="csr")
    eye = sp.identity(side, format="csr")
    a = (sp.kron(eye, line) + sp.kron(link, eye)).tocsr()
    a.sort_indices()
    return a


def quadrilaterals(side):
    line = sp.diags([1.0, 1.0, 1.0], [-1, 0, 1], shape=(side, side))
    return sp.kron(line, line).tocsr()


def from_rows(rows, columns, m):
    a = sp.csr_matrix((np.ones(len(rows)), (rows, columns)), shape=(m, m))
    a.sum_duplicates()
    a.data[:] = np.random.default_rng(7).random(a.nnz)
    return a


def random_rows(m, entries):
    random = np.random.default_rng(1)
    return from_rows(np.repeat(np.arange(m), entries), random.integers(0, m, m * entries), m)


def power_law(m):
    random = np.random.default_rng(2)
    degree = np.minimum(2 / np.sqrt(random.random(m) + 1e-9), 500.0).astype(int)
    rows = np.repeat(np.arange(m), degree)
    return from_rows(rows, (random.random(len(rows)) ** 2 * m).astype(int), m)


def show(name, milliseconds):
    print(f"{name:<36} {milliseconds:10.3f} ms", flush=True)


def main():
    print("SciPy", scipy.__version__)
    if len(sys.argv) > 1:
        start = time.perf_counter()
        a = scipy.io.mmread(sys.argv[1])
        show(f"read {a.nnz} entries", 1e3 * (time.perf_counter() - start))
        print(f"memory at most {resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1e3:.0f} MB")
        return
    pairs = [("laplacian 400^2", laplacian(400), quadrilaterals(400)),
             ("random 10^5, 10 a row", random_rows(100000, 10), random_rows(100000, 7)),
             ("power law 10^5", power_law(100000), random_rows(100000, 7))]
    for name, a, b in pairs:
        show("product " + name, best(lambda: a @ a))
        show("sum " + name, best(lambda: a + b))
    for name, a in [("lap1414", laplacian(1414)), ("random 10^6, 10 a row", random_rows(1000000, 10))]:
        show("CSC " + name, best(a.tocsc))
        show("COO " + name, best(lambda: a.tocoo(copy=True)))
        if name == "lap1414":
            show("DIA " + name, best(a.todia))
            show("BSR 2 " + name, best(lambda: a.tobsr((2, 2))))
    for side in (100, 1000):
        a = laplacian(side).tocoo()
        x = np.ones(a.shape[0])
        show(f"product by rows lap{side}", best(lambda: a @ x))
    for lb in (2, 3, 4, 8):
        nodes = quadrilaterals(int(np.sqrt(1e6 / (9 * lb * lb))))
        a = sp.bsr_matrix(sp.kron(nodes, np.ones((lb, lb)), format="bsr"), blocksize=(lb, lb))
        x, many = np.ones(a.shape[0]), np.ones((a.shape[0], 8))
        show(f"{lb} x {lb}, vector by rows", best(lambda: a @ x))
        show(f"{lb} x {lb}, 8 sides by rows", best(lambda: a @ many))


main()
