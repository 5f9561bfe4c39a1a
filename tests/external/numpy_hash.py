# Prints a digest of each of five results of NumPy on matrices of size 300, made by integer arithmetic.
import hashlib
import numpy as np

n = 300
i, j = np.indices((n, n))
a = ((i * 7919 + j * 104729 + i * j * 31) % 2003 - 1001) / 1024.0
b = ((i * 1299709 + j * 15485863) % 1999 - 999) / 512.0
well = a + 40 * np.eye(n)

results = {
    "matmul": [a @ b, (a @ b) @ a.T],
    "solve": [np.linalg.solve(well, b)],
    "eigh": list(np.linalg.eigh(a + a.T)),
    "svd": list(np.linalg.svd(a)),
    "qr": list(np.linalg.qr(a)),
}
for name, arrays in results.items():
    digest = hashlib.sha256()
    for array in arrays:
        digest.update(np.ascontiguousarray(array).tobytes())
    print(name, digest.hexdigest()[:16])
