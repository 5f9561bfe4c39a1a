/* SPDX-License-Identifier: MIT
 * The residual of a computed solution is small beside what it is the difference of: in working precision it is mostly
 * rounding error, in extra precision it is right. Here the exact solution is known. */
#include <math.h>
#include <stdio.h>

#include "zor/xblas.h"

enum { n = 10 };

int main(void) {
  /* Hilbert's matrix times a common multiple of its denominators, so that A x is exact. */
  const double scale = 232792560;
  double a[n * n], b[n], x[n], residual[n];
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) a[i + j * n] = scale / (i + j + 1);
  for (int i = 0; i < n; ++i) {
    b[i] = 0;
    for (int j = 0; j < n; ++j) b[i] += a[i + j * n];
  }
  /* A solution that is off by one unit in the last place of its first component. */
  for (int i = 0; i < n; ++i) x[i] = 1;
  x[0] = nextafter(1, 2);

  const int32_t precisions[] = {ZOR_DOUBLE, ZOR_EXTRA};
  const char* const names[] = {"double", "extra"};
  for (int p = 0; p < 2; ++p) {
    for (int i = 0; i < n; ++i) residual[i] = b[i];
    zor_dgemv_x(ZOR_NO_TRANS, n, n, -1, a, n, x, 1, 1, residual, 1, precisions[p]);
    int right = 0;
    for (int i = 0; i < n; ++i) right += residual[i] == -a[i] * (x[0] - 1);
    printf("%-6s: %d of %d components of b - A x are right\n", names[p], right, n);
  }
  return 0;
}
