/* SPDX-License-Identifier: MIT
 * A step of heat conduction for several rods at once, a batch of small least-squares problems, and an ill-conditioned system
 * solved to the last digit. */
#include <stdio.h>

#include "zor/lapack.h"

int main(void) {
  /* Implicit steps in rods of 99 inner points: (1 + 2 s) u(i) - s (u(i-1) + u(i+1)) = old u(i). */
  enum { points = 99, rods = 3 };
  double below[points - 1], diagonal[points], above[points - 1], u[rods * points] = {0};
  for (int i = 0; i < points; ++i) diagonal[i] = 1 + 2 * 10.0;
  for (int i = 0; i < points - 1; ++i) below[i] = above[i] = -10.0;
  for (int rod = 0; rod < rods; ++rod) u[rod * points + points / 2] = 100 * (rod + 1);
  zor_ddttrf(points, below, diagonal, above);
  for (int step = 0; step < 50; ++step) zor_ddttrs('N', points, rods, below, diagonal, above, u, points);
  printf("middle of the rods:");
  for (int rod = 0; rod < rods; ++rod) printf(" %.4f", u[rod * points + points / 2]);
  printf("\n");

  /* Normal equations of straight lines through four points, one matrix and right-hand side a line. */
  enum { lines = 2 };
  double normal[lines * 4], right[lines * 2];
  const double y[lines][4] = {{1, 3, 5, 7}, {10, 8, 6, 4}};
  for (int k = 0; k < lines; ++k) {
    double* m = normal + 4 * k;
    m[0] = 4, m[1] = m[2] = 0 + 1 + 2 + 3, m[3] = 0 + 1 + 4 + 9;
    right[2 * k] = right[2 * k + 1] = 0;
    for (int i = 0; i < 4; ++i) right[2 * k] += y[k][i], right[2 * k + 1] += i * y[k][i];
  }
  zor_int info[lines];
  zor_dpotrf_batch('L', 2, normal, 2, 4, lines, info);
  zor_dpotrs_batch('L', 2, 1, normal, 2, 4, right, 2, 2, lines, info);
  for (int k = 0; k < lines; ++k) printf("line %d: %.6f + %.6f x\n", k + 1, right[2 * k], right[2 * k + 1]);

  /* 232792560 / (i + j + 1), whose condition number is 1.6e13, and its sums of rows: the solution is 1, 1, ... */
  enum { n = 10 };
  double a[n * n], b[n] = {0}, x[n];
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) a[i + j * n] = 232792560.0 / (i + j + 1), b[i] += a[i + j * n];
  zor_refinement report;
  zor_dsolve_refined('G', n, 1, a, n, b, n, x, n, NULL, &report);
  int exact = 0;
  for (int i = 0; i < n; ++i) exact += x[i] == 1;
  printf("%d of %d components exact; unrefined, the error would be %s\n", exact, n,
         report.unrefined_error > 1e-5 ? "above 1e-5" : "small");
  return 0;
}
