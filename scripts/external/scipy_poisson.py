#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The problem of `zor bench --family poisson2` with values on all sides, by SciPy's sine transforms along both axes (pocketfft):
scipy_poisson.py N... prints the best time of a solve in double precision on one thread, for N by N intervals."""

import sys
import time

import numpy
import scipy.fft


def solver(n):
    wave = 2 - 2 * numpy.cos(numpy.pi * numpy.arange(1, n) / n)
    divisor = wave[:, None] + wave[None, :] + 0.5

    def solve(f):
        spectrum = scipy.fft.dstn(f, type=1, overwrite_x=True, workers=1)
        spectrum /= divisor
        return scipy.fft.idstn(spectrum, type=1, overwrite_x=True, workers=1)

    return solve


def residual(u, f):
    around = numpy.zeros_like(u)
    around[1:] += u[:-1]
    around[:-1] += u[1:]
    around[:, 1:] += u[:, :-1]
    around[:, :-1] += u[:, 1:]
    return abs(4.5 * u - around - f).max()


for n in [int(a) for a in sys.argv[1:]] or [256, 1024, 2000]:
    f = numpy.random.default_rng(1).standard_normal((n - 1, n - 1))
    solve = solver(n)
    assert residual(solve(f.copy()), f) < 1e-10 * n
    best = numpy.inf
    until = time.perf_counter() + 2
    while time.perf_counter() < until:
        data = f.copy()
        start = time.perf_counter()
        solve(data)
        best = min(best, time.perf_counter() - start)
    print(f"{n} by {n}: {best * 1e3:.3f} ms")
