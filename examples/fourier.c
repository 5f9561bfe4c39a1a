/* SPDX-License-Identifier: MIT
 * One complete program a kind of transform: a complex line, a real line, a complex image, a batch of real
 * lines with complex spectra, split storage. Each checks what it computed and prints one line. */
#include <complex.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "zor/dft.h"

static const double pi = 3.14159265358979323846;

static int failed(const char* what, int32_t status) {
  fprintf(stderr, "%s: %s\n", what, zor_fft_error_text(status));
  return 1;
}

/* A complex tone of frequency 3 has one line in its spectrum. */
static int complex_line(void) {
  enum { n = 16 };
  double complex x[n];
  for (int j = 0; j < n; ++j) x[j] = cexp(I * (2 * pi * 3 * j / n));
  const zor_int length = n;
  zor_fft fft;
  int32_t status = zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 1, &length);
  if (status == 0) status = zor_fft_set_real(fft, ZOR_DFT_FORWARD_SCALE, 1.0 / n);
  if (status == 0) status = zor_fft_commit(fft);
  if (status == 0) status = zor_fft_forward(fft, x);
  zor_fft_free(&fft);
  if (status != 0) return failed("complex line", status);
  printf("complex line: amplitude %.3f at frequency 3\n", creal(x[3]));
  return cabs(x[3] - 1) > 1e-14 || cabs(x[4]) > 1e-14;
}

/* A real signal and its packed spectrum in the same array: n + 2 reals, complex values from frequency 0 to
 * n/2. */
static int real_line(void) {
  enum { n = 12 };
  float x[n + 2];
  for (int j = 0; j < n; ++j) x[j] = 0.5f + (float)cos(2 * pi * 2 * j / n);
  const zor_int length = n;
  zor_fft fft;
  int32_t status = zor_fft_create(&fft, ZOR_DFT_SINGLE, ZOR_DFT_REAL, 1, &length);
  if (status == 0) status = zor_fft_set_real(fft, ZOR_DFT_BACKWARD_SCALE, 1.0 / n);
  if (status == 0) status = zor_fft_commit(fft);
  if (status == 0) status = zor_fft_forward(fft, x);
  const float mean = x[0] / n, tone = x[2 * 2] * 2 / n;
  if (status == 0) status = zor_fft_backward(fft, x);
  zor_fft_free(&fft);
  if (status != 0) return failed("real line", status);
  printf("real line: mean %.3f, tone %.3f, first sample back %.3f\n", mean, tone, x[0]);
  return fabsf(mean - 0.5f) > 1e-6f || fabsf(tone - 1) > 1e-6f || fabsf(x[0] - 1.5f) > 1e-6f;
}

/* Rows of an image by columns, not in place; the last length is the contiguous one. */
static int complex_image(void) {
  enum { rows = 6, columns = 10 };
  double complex x[rows * columns] = {0}, y[rows * columns];
  x[1 * columns + 2] = 1; /* an impulse at row 1, column 2 */
  const zor_int lengths[2] = {rows, columns};
  zor_fft fft;
  int32_t status = zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 2, lengths);
  if (status == 0) status = zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, ZOR_DFT_NOT_INPLACE);
  if (status == 0) status = zor_fft_commit(fft);
  if (status == 0) status = zor_fft_forward(fft, x, y);
  zor_fft_free(&fft);
  if (status != 0) return failed("complex image", status);
  const double angle = -2 * pi * (1.0 * 5 / rows + 2.0 * 7 / columns);
  const double complex value = y[5 * columns + 7];
  printf("complex image: (%.3f, %.3f) at row 5, column 7\n", creal(value), cimag(value));
  return cabs(value - cexp(I * angle)) > 1e-14;
}

/* Four real lines to complex spectra of n/2 + 1 values each. */
static int batch_of_lines(void) {
  enum { n = 20, lines = 4, half = n / 2 + 1 };
  double x[lines * n];
  double complex y[lines * half];
  for (int i = 0; i < lines * n; ++i) x[i] = sin(2 * pi * (i / n + 1) * (i % n) / n);
  const zor_int length = n;
  zor_fft fft;
  int32_t status = zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 1, &length);
  if (status == 0) status = zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, ZOR_DFT_NOT_INPLACE);
  if (status == 0) status = zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX);
  if (status == 0) status = zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, (zor_int)lines);
  if (status == 0) status = zor_fft_set_int(fft, ZOR_DFT_INPUT_DISTANCE, (zor_int)n);
  if (status == 0) status = zor_fft_set_int(fft, ZOR_DFT_OUTPUT_DISTANCE, (zor_int)half);
  if (status == 0) status = zor_fft_commit(fft);
  if (status == 0) status = zor_fft_forward(fft, x, y);
  zor_fft_free(&fft);
  if (status != 0) return failed("batch of lines", status);
  int wrong = 0;
  for (int i = 0; i < lines; ++i) wrong |= fabs(cimag(y[i * half + i + 1]) + n / 2) > 1e-13;
  printf("batch of lines: %s\n", wrong ? "wrong" : "every tone in its place");
  return wrong;
}

/* Real and imaginary parts in two arrays. */
static int split_line(void) {
  enum { n = 7 };
  double re[n] = {1}, im[n] = {0};
  const zor_int length = n;
  zor_fft fft;
  int32_t status = zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 1, &length);
  if (status == 0) status = zor_fft_set_int(fft, ZOR_DFT_COMPLEX_STORAGE, ZOR_DFT_REAL_REAL);
  if (status == 0) status = zor_fft_commit(fft);
  if (status == 0) status = zor_fft_backward(fft, re, im);
  zor_fft_free(&fft);
  if (status != 0) return failed("split line", status);
  printf("split line: (%.3f, %.3f) at every frequency\n", re[n - 1], im[n - 1]);
  return re[n - 1] != 1 || im[n - 1] != 0;
}

int main(void) {
  return complex_line() | real_line() | complex_image() | batch_of_lines() | split_line() ? EXIT_FAILURE
                                                                                          : EXIT_SUCCESS;
}
