#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Times zor_convolve_* beside scipy.signal.fftconvolve, scipy.signal.oaconvolve and numpy.convolve, one thread each.

    scipy_speed.py LIBRARY_FOLDER [FILTER]

LIBRARY_FOLDER holds libzor_core.so.1; FILTER is a regular expression on the names of the cases. Results are compared
before they are timed. Prints a row a case: milliseconds of zor and of each peer, and the time of the fastest over ours.
"""
import ctypes
import os
import re
import sys
import time

os.environ["OMP_NUM_THREADS"] = os.environ["OPENBLAS_NUM_THREADS"] = "1"

import numpy as np
import scipy.signal

LETTERS = {"s": np.float32, "d": np.float64, "c": np.complex64, "z": np.complex128}
CASES = ([(t, (100000,), (n,)) for n in (16, 63, 200) for t in "sdcz"]
         + [(t, (1000000,), (n,)) for n in (512, 4096, 65536) for t in "sdcz"]
         + [(t, (n,), (n,)) for n in (1000, 100000) for t in "sdcz"]
         + [(t, (1024, 1024), (n, n)) for n in (7, 64, 1024) for t in "sdz"]
         + [(t, (128, 128, 128), (16, 16, 16)) for t in "sd"])
BUDGET = 0.2  # seconds for each way of a case


def integers(values):
    return (ctypes.c_int64 * len(values))(*values)


def random_array(rng, shape, dtype):
    a = rng.uniform(-1, 1, shape)
    if np.issubdtype(dtype, np.complexfloating):
        a = a + 1j * rng.uniform(-1, 1, shape)
    return np.ascontiguousarray(a.astype(dtype))


def best_time(run):
    best, spent, rounds = np.inf, 0.0, 0
    while rounds < 3 or (spent < BUDGET and rounds < 400):
        start = time.perf_counter()
        run()
        seconds = time.perf_counter() - start
        best, spent, rounds = min(best, seconds), spent + seconds, rounds + 1
    return best


def run_case(library, letter, x_shape, y_shape):
    rng = np.random.default_rng(1)
    dtype = LETTERS[letter]
    x, y = random_array(rng, x_shape, dtype), random_array(rng, y_shape, dtype)
    z_shape = tuple(m + n - 1 for m, n in zip(x_shape, y_shape))
    z = np.empty(z_shape, dtype)
    call = getattr(library, "zor_convolve_" + letter)
    arguments = (len(x_shape), integers(x_shape), ctypes.c_void_p(x.ctypes.data), integers(y_shape),
                 ctypes.c_void_p(y.ctypes.data), integers(z_shape), ctypes.c_void_p(z.ctypes.data), None)

    def own():
        if call(*arguments) != 0:
            raise RuntimeError("zor failed")

    ways = {"fftconvolve": lambda: scipy.signal.fftconvolve(x, y), "oaconvolve": lambda: scipy.signal.oaconvolve(x, y)}
    if len(x_shape) == 1 and x_shape[0] * y_shape[0] <= 10**9:
        ways["numpy"] = lambda: np.convolve(x, y)
    own()
    bound = 100 * np.finfo(dtype).eps * np.sqrt(float(x.size) * float(y.size))
    times = {}
    for name, way in ways.items():
        if not np.max(np.abs(way() - z)) <= bound:
            raise RuntimeError(name + " disagrees")
        times[name] = best_time(way)
    return best_time(own), times


def main():
    library = ctypes.CDLL(sys.argv[1] + "/libzor_core.so.1")
    library.zor_core_set_num_threads(1)
    wanted = re.compile(sys.argv[2] if len(sys.argv) > 2 else "")
    print(f"SciPy {scipy.__version__}, NumPy {np.__version__}; milliseconds")
    print(f"{'case':34}{'zor':>10}{'fftconvolve':>13}{'oaconvolve':>12}{'numpy':>10}{'ratio':>8}")
    for letter, x_shape, y_shape in CASES:
        name = f"{letter} {'x'.join(map(str, x_shape))} by {'x'.join(map(str, y_shape))}"
        if not wanted.search(name):
            continue
        own, times = run_case(library, letter, x_shape, y_shape)
        cells = [f"{1e3 * times[way]:.4f}" if way in times else "" for way in ("fftconvolve", "oaconvolve", "numpy")]
        print(f"{name:34}{1e3 * own:10.4f}{cells[0]:>13}{cells[1]:>12}{cells[2]:>10}"
              f"{min(times.values()) / own:8.2f}", flush=True)


if __name__ == "__main__":
    main()
