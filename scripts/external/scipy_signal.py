#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Compares zor_convolve_* and zor_correlate_* with scipy.signal over random problems.

    scipy_signal.py LIBRARY_FOLDER [CASES [SEED]]

LIBRARY_FOLDER holds libzor_core.so.1. Ranks 1 to 7, four types, all modes, methods, decimations and layouts.
Prints the number of cases and the largest error in units of the bound; the exit status is 1 when one is beyond it.
"""
import ctypes
import sys

import numpy as np
import scipy.signal

FULL, SAME, VALID, RANGE = range(4)
MODES = {FULL: "full", SAME: "same", VALID: "valid"}
LETTERS = {np.float32: "s", np.float64: "d", np.complex64: "c", np.complex128: "z"}
LONGEST = [0, 700, 40, 14, 8, 5, 4, 3]

Integers = ctypes.POINTER(ctypes.c_int64)


class Options(ctypes.Structure):
    _fields_ = [("mode", ctypes.c_int32), ("method", ctypes.c_int32), ("start", Integers),
                ("decimation", Integers), ("x_stride", Integers), ("y_stride", Integers), ("z_stride", Integers)]


def integers(values):
    return (ctypes.c_int64 * len(values))(*values)


def draw_array(rng, shape, dtype):
    """An array of random values, contiguous or with other strides."""
    kind = rng.integers(4)
    room = [int(n) for n in shape]
    if kind == 1:
        room = [2 * n for n in room]
    a = rng.uniform(-1, 1, room) + (1j * rng.uniform(-1, 1, room) if np.issubdtype(dtype, np.complexfloating) else 0)
    a = a.astype(dtype)
    if kind == 1:
        a = a[tuple(slice(None, None, 2) for _ in room)]
    if kind == 2:
        a = a[tuple(slice(None, None, -1) for _ in room)]
    if kind == 3:
        a = np.asfortranarray(a)
    return a


def pointer_and_strides(a):
    """The lowest address, as the library takes it, and strides in elements."""
    strides = [s // a.itemsize for s in a.strides]
    low = a.ctypes.data + sum(min(0, (n - 1) * s) for n, s in zip(a.shape, a.strides))
    return ctypes.c_void_p(low), integers(strides)


def expected(correlation, x, y, mode):
    """The library's definition in terms of scipy.signal: nothing is conjugated, x is the template."""
    big_x, big_y = (a.astype(np.clongdouble if np.iscomplexobj(a) else np.longdouble) for a in (x, y))
    if not correlation:
        full = scipy.signal.convolve(big_x, big_y, "full", method="direct")
        # 'valid' of SciPy needs one operand within the other in every dimension.
        if mode in (FULL, SAME):
            return scipy.signal.convolve(big_x, big_y, MODES[mode], method="direct")
    else:
        full = scipy.signal.correlate(big_y, np.conj(big_x), "full", method="direct")
        if mode in (FULL, SAME):
            return scipy.signal.correlate(big_y, np.conj(big_x), MODES[mode], method="direct")
    skip = [min(m, n) - 1 for m, n in zip(x.shape, y.shape)]
    inner = full[tuple(slice(s, n - s) for s, n in zip(skip, full.shape))]
    if all(m >= n for m, n in zip(x.shape, y.shape)) or all(m <= n for m, n in zip(x.shape, y.shape)):
        theirs = (scipy.signal.correlate(big_y, np.conj(big_x), "valid", method="direct") if correlation else
                  scipy.signal.convolve(big_x, big_y, "valid", method="direct"))
        assert np.array_equal(theirs, inner) or np.allclose(theirs.astype(complex), inner.astype(complex))
    return inner


def run_case(library, rng):
    """One random problem: its error in units of the bound, and what it was."""
    dims = int(rng.integers(1, 8))
    shapes = [tuple(int(n) for n in rng.integers(1, LONGEST[dims] + 1, dims)) for _ in range(2)]
    dtype = list(LETTERS)[rng.integers(4)]
    x, y = (draw_array(rng, s, dtype) for s in shapes)
    correlation, mode, method = bool(rng.integers(2)), int(rng.integers(4)), int(rng.integers(3))
    steps = [int(rng.integers(1, 4)) if rng.integers(3) == 0 else 1 for _ in range(dims)]
    start = [0] * dims
    if mode == RANGE:
        offsets = [int(rng.integers(m + n - 1)) for m, n in zip(*shapes)]
        start = [o + (1 - m if correlation else 0) for o, m in zip(offsets, shapes[0])]
        wanted = expected(correlation, x, y, FULL)[tuple(slice(o, None) for o in offsets)]
    else:
        wanted = expected(correlation, x, y, mode)
    wanted = wanted[tuple(slice(None, None, s) for s in steps)]
    z = draw_array(rng, wanted.shape, dtype)
    (px, sx), (py, sy), (pz, sz) = (pointer_and_strides(a) for a in (x, y, z))
    options = Options(mode, method, integers(start) if mode == RANGE else None, integers(steps), sx, sy, sz)
    call = getattr(library, ("zor_correlate_" if correlation else "zor_convolve_") + LETTERS[dtype])
    status = call(dims, integers(x.shape), px, integers(y.shape), py, integers(z.shape), pz, ctypes.byref(options))
    what = f"{call.__name__} x {x.shape} y {y.shape} mode {mode} method {method} start {start} steps {steps}"
    if status != 0:
        return np.inf, f"{what}: status {status}"
    size = np.sqrt(float(np.sum(np.abs(x.astype(complex)) ** 2)) * float(np.sum(np.abs(y.astype(complex)) ** 2)))
    points = np.prod([float(m + n - 1) for m, n in zip(*shapes)])
    bound = 4 * (3 + np.log2(points)) * np.finfo(dtype).eps * size
    return float(np.max(np.abs(z.astype(np.clongdouble) - wanted))) / bound, what


def main():
    library = ctypes.CDLL(sys.argv[1] + "/libzor_core.so.1")
    cases = int(sys.argv[2]) if len(sys.argv) > 2 else 5000
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else 1
    worst, bad = 0.0, 0
    for case in range(cases):
        error, what = run_case(library, np.random.default_rng([seed, case]))
        worst = max(worst, error)
        if not error <= 1:
            bad += 1
            print(f"case {case}: {what}: error {error:.3g} of the bound")
    print(f"scipy-signal {scipy.__version__}: {cases} cases, {bad} beyond the bound, largest error {worst:.3f} of it")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
