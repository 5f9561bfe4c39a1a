/* SPDX-License-Identifier: MIT
 * Sensor readings arrive sample by sample; the analysis wants them sensor by sensor. Out of place, in place, and the
 * symmetric part of a square matrix. */
#include <stdio.h>
#include <stdlib.h>

#include "zor/core.h"
#include "zor/trans.h"

static void tell(const char* routine, int32_t position, const char* argument) {
  printf("%s: look at argument %d, %s\n", routine, position, argument);
}

int main(void) {
  const zor_int samples = 6, sensors = 4;
  double readings[24], series[24];
  for (int i = 0; i < 24; ++i) readings[i] = i;

  /* Millivolts to volts on the way. */
  zor_domatcopy('R', 'T', samples, sensors, 1e-3, readings, sensors, series, samples);
  printf("sensor 1:");
  for (int i = 0; i < samples; ++i) printf(" %g", series[1 * samples + i]);
  printf("\n");

  /* The same without a second array. */
  zor_dimatcopy('R', 'T', samples, sensors, 1e-3, readings, sensors, samples);
  int same = 1;
  for (int i = 0; i < 24; ++i) same = same && readings[i] == series[i];
  printf("in place: %s\n", same ? "the same" : "different");

  /* (A + A') / 2. */
  const double a[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  double symmetric[9];
  zor_domatadd('R', 'N', 'T', 3, 3, 0.5, a, 3, 0.5, a, 3, symmetric, 3);
  printf("symmetric part: %g %g %g\n", symmetric[1], symmetric[2], symmetric[5]);

  zor_core_set_error_handler(tell);
  zor_domatcopy('R', 'T', samples, sensors, 1, readings, 0, series, samples);
  return same ? 0 : 1;
}
