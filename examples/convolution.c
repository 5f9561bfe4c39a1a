/* SPDX-License-Identifier: MIT
 * A recording through the echo of a room, a picture smoothed, and a pattern found in a signal. */
#include <stdio.h>
#include <stdlib.h>

#include "zor/conv.h"

int main(void) {
  /* Every sound comes back after three samples at half its strength. */
  const double sound[6] = {1, 2, 3, 0, 0, 1}, echo[4] = {1, 0, 0, 0.5};
  const zor_int samples = 6, delay = 4, all = 9;
  double heard[9];
  int32_t status = zor_convolve_d(1, &samples, sound, &delay, echo, &all, heard, NULL);
  printf("heard:");
  for (int i = 0; i < all; ++i) printf(" %g", heard[i]);
  printf("\n");

  /* The mean of 3 by 3 neighbours, where the picture has them all. */
  enum { rows = 5, columns = 6 };
  const zor_int picture_shape[2] = {rows, columns}, window_shape[2] = {3, 3};
  double picture[rows * columns], window[9], smooth[12];
  for (int i = 0; i < rows * columns; ++i) picture[i] = i % columns == 2 ? 9 : 0;
  for (int i = 0; i < 9; ++i) window[i] = 1.0 / 9;
  zor_conv_options options = {0};
  options.mode = ZOR_CONV_VALID;
  zor_int smooth_shape[2];
  zor_conv_output_shape(ZOR_CONV_CONVOLUTION, 2, picture_shape, window_shape, &options, smooth_shape);
  status |= zor_convolve_d(2, picture_shape, picture, window_shape, window, smooth_shape, smooth, &options);
  printf("smooth, %d by %d:", (int)smooth_shape[0], (int)smooth_shape[1]);
  for (int i = 0; i < smooth_shape[1]; ++i) printf(" %.2f", smooth[i]);
  printf("\n");

  /* Where does the pattern fit best? Index k of a correlation is the shift of the pattern. */
  const double pattern[3] = {1, -1, 2}, signal[8] = {0, 1, 0, 1, -1, 2, 0, 1};
  const zor_int length = 3, places = 8, shifts = 6;
  double fit[6];
  status |= zor_correlate_d(1, &length, pattern, &places, signal, &shifts, fit, &options);
  int best = 0;
  for (int k = 1; k < shifts; ++k)
    if (fit[k] > fit[best]) best = k;
  printf("best fit: %g at %d\n", fit[best], best);

  /* What is wrong is said in words. */
  printf("%s\n", zor_conv_error_text(zor_convolve_d(1, &samples, sound, &delay, echo, &samples, heard, NULL)));
  return status;
}
