/* SPDX-License-Identifier: MIT
 * Smoothing by cosines: the DCT-II of two noisy columns, its upper part left out, and back. */
#include <math.h>
#include <stdio.h>

#include "zor/trig.h"

int main(void) {
  enum { m = 96, lines = 2 };
  double x[m * lines];
  for (int j = 0; j < m; ++j)
    for (int i = 0; i < lines; ++i) {
      const double t = (j + 0.5) / m;
      x[j * lines + i] = (i + 1) * t * t + 0.05 * ((j * 7919 + i * 104729) % 101 - 50) / 50;
    }
  zor_trig *there = NULL, *back = NULL;
  if (zor_trig_create_d(&there, ZOR_DCT2, m) != ZOR_TRIG_OK ||
      zor_trig_create_d(&back, ZOR_DCT3, m) != ZOR_TRIG_OK)
    return 1;
  zor_trig_run_d(there, x, lines, lines, 1, 1.0); /* columns: stride is the number of lines, distance 1 */
  for (int k = 8; k < m; ++k)
    for (int i = 0; i < lines; ++i) x[k * lines + i] = 0;
  zor_trig_run_d(back, x, lines, lines, 1, 1.0 / (2 * m));
  for (int i = 0; i < lines; ++i)
    printf("column %d: %.1f %.1f %.1f\n", i, x[i], x[m / 2 * lines + i], x[(m - 1) * lines + i]);
  const zor_int status = zor_trig_run_d(there, x, lines, 0, 1, 1.0);
  printf("%s\n", zor_trig_text(status));
  zor_trig_free(&there);
  zor_trig_free(&back);
  return 0;
}
