# A product on all threads, then products in forked children: the same bits, and no child hangs.
import multiprocessing
import numpy as np

n = 700
i, j = np.indices((n, n))
a = ((i * 7919 + j * 104729) % 2003 - 1001) / 1024.0


def product(_):
    return (a @ a.T).tobytes()


if __name__ == "__main__":
    own = product(0)
    with multiprocessing.get_context("fork").Pool(2) as pool:
        answers = pool.map_async(product, range(6)).get(timeout=120)
    good = sum(answer == own for answer in answers) + (product(0) == own)
    print(good, "passed", 7 - good, "failed")
