// SPDX-License-Identifier: MIT
// Transforms of rank 2 and up: every dimension's kernel along every line of that dimension. Lines are
// independent, so neither the order of lines, nor tiles, nor a division into shares shows in the result.
#pragma once

#include "dft/nd/axes.h"

namespace zor::dft {

// The routines commit installs in the head of a rank 2 descriptor.
template <class R>
zor_dft_2d complex_2d_routine();
template <class R>
zor_dft_real_2d real_2d_routine(direction d, bool complex_storage);

// Complex, in place when in and out are the same data with the same strides. The kernels are the output
// axes'.
template <class R>
int32_t complex_nd(const complex_of<R>* in, const axes& ia, complex_of<R>* out, const axes& oa, void* work);

// Planes (axes 0 and 1) first to last - 1 of it: rows, then columns.
inline zor_int planes_of(const axes& a) { return total_of(a) / (a.of[0].length * a.of[1].length); }
template <class R>
int32_t complex_planes(const complex_of<R>* in, const axes& ia, complex_of<R>* out, const axes& oa,
                       zor_int first, zor_int last, void* work);

// Planes first to last - 1 of a real forward transform: rows, then columns.
template <class R>
int32_t mixed_planes_forward(const R* in, const axes& ia, complex_of<R>* out, const axes& oa, zor_int first,
                             zor_int last, void* work);

// Rows of spectra, `distance` complex values apart, to real rows; the spectra may be overwritten.
template <class R>
int32_t real_rows(complex_of<R>* rows, zor_int distance, R* out, zor_int os0, zor_int os1, zor_int count,
                  const line_kernel& kernel);
// Planes first to last - 1 of a packed box of half spectra to the real output: columns, then rows.
template <class R>
int32_t real_planes(complex_of<R>* box, const axes& inner, R* out, const axes& oa, zor_int first,
                    zor_int last, void* work);

// Real to conjugate-even complex (axes of the output have half the length in dimension 0) and back. In and
// out may be the same data; then every input is read before its place is written.
template <class R>
int32_t real_to_complex(const R* in, const axes& ia, complex_of<R>* out, const axes& oa, void* work);
template <class R>
int32_t complex_to_real(const complex_of<R>* in, const axes& ia, R* out, const axes& oa, void* work);

// Every element of one side to its place on the other.
template <class E>
void copy_box(const E* in, const axes& ia, E* out, const axes& oa) {
  const line_runs rows = {0, 1, 1};
  const axis& from = ia.of[0];
  const zor_int step = oa.of[0].stride;
  for (zor_int i = 0; i < lines_of(ia, 0); ++i) {
    const E* x = in + run_offset(ia, 0, rows, i);
    E* y = out + run_offset(oa, 0, rows, i);
    for (zor_int j = 0; j < from.length; ++j) y[j * step] = x[j * from.stride];
  }
}

// Reals in a line of a packed spectrum.
inline zor_int packed_length(const descriptor* head, zor_int n) {
  if (head->packed_format != ZOR_DFT_FORMAT_PADDED) return n;
  return n % 2 == 0 ? n + 2 : n + 1;
}

// One side of a packed real transform of rank 2: steps along the two dimensions.
template <class E>
struct plane {
  E* data;
  zor_int s0, s1;
};

// Rows `first` to `last` - 1, and columns counted as the real one of frequency 0, the real one of frequency
// n/2 when n is even, then the complex ones.
template <class R, direction Dir>
int32_t packed_rows(plane<const R> in, plane<R> out, zor_dft_kernel kernel, descriptor* head, zor_int first,
                    zor_int last, void* work);
template <class R, direction Dir>
int32_t packed_columns(plane<const R> in, plane<R> out, zor_dft_kernel kernel, descriptor* head,
                       zor_int first, zor_int last, void* work);
inline zor_int packed_column_count(zor_int n) { return n / 2 + 1; }

template <class R, direction Dir>
int32_t packed_2d(plane<const R> in, plane<R> out, zor_dft_kernel k0, zor_dft_kernel k1, descriptor* head,
                  void* work);

}  // namespace zor::dft
