/* SPDX-License-Identifier: MIT
 * A warm plate: its left edge is held at 1, its right edge at 0, nothing flows through the other two. Then a
 * box that is periodic in one axis. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "zor/poisson.h"

int main(void) {
  enum { nx = 120, ny = 80 };
  zor_poisson_box plate = {2, {nx, ny}, {1.5, 1.0}, {0}, 0.0};
  plate.side[2] = plate.side[3] = ZOR_POISSON_DERIVATIVE;
  zor_poisson* problem = NULL;
  zor_int status = zor_poisson_create_d(&problem, &plate);
  if (status != ZOR_POISSON_OK) {
    fprintf(stderr, "%s\n", zor_poisson_text(status));
    return 1;
  }
  double* f = calloc((nx + 1) * (ny + 1), sizeof *f);
  double left[ny + 1];
  for (int j = 0; j <= ny; ++j) left[j] = 1.0;
  const double* sides[4] = {left, NULL, NULL, NULL}; /* a null array is zeros */
  status = zor_poisson_solve_d(problem, f, sides);
  printf("%s\n", zor_poisson_text(status));
  for (int i = 0; i <= nx; i += 30) printf("u(%.3f, 0.5) = %.6f\n", 1.5 * i / nx, f[i + (ny / 2) * (nx + 1)]);
  zor_poisson_free(&problem);

  /* -u'' = f has a solution on a circle only if the mean of f is 0, and then many: the one of zero mean is
   * returned. */
  zor_poisson_box ring = {2, {nx, ny}, {1.0, 1.0}, {0}, 0.0};
  for (int s = 0; s < 4; ++s) ring.side[s] = ZOR_POISSON_PERIODIC;
  zor_poisson_create_d(&problem, &ring);
  const double pi = 3.14159265358979324;
  for (int j = 0; j <= ny; ++j)
    for (int i = 0; i <= nx; ++i) f[i + j * (nx + 1)] = 4 * pi * pi * cos(2 * pi * i / nx);
  status = zor_poisson_solve_d(problem, f, NULL);
  printf("%s\nu(0, 0) = %.3f, u(0.5, 0) = %.3f\n", zor_poisson_text(status), f[0], f[nx / 2]);
  zor_poisson_free(&problem);
  free(f);

  plate.side[1] = ZOR_POISSON_PERIODIC;
  printf("%s\n", zor_poisson_text(zor_poisson_create_d(&problem, &plate)));
  return 0;
}
