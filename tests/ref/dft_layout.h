// SPDX-License-Identifier: MIT
// Where the elements of a transform stand: ranks, strides, offsets, batches, packed and half spectra.
#pragma once

#include <complex>
#include <cstdint>
#include <map>
#include <vector>

#include "zor/dft_kern.h"

namespace zor_ref {

using complex = std::complex<long double>;
using box = std::vector<complex>;              // dimension 0 fastest
using image = std::map<zor_int, long double>;  // values by the index of a real within an array

// Lengths and strides from dimension 0, the contiguous one by default, upwards.
struct transform_case {
  int32_t domain, placement, storage, format;  // storage: the setting of the domain at hand
  std::vector<zor_int> lengths;
  zor_int count;
  std::vector<zor_int> in_strides, out_strides;
  zor_int in_offset, out_offset, in_distance, out_distance;
  double forward_scale, backward_scale;

  bool real() const { return domain == ZOR_DFT_REAL; }
  bool in_place() const { return placement == ZOR_DFT_INPLACE; }
  bool packed() const { return real() && storage == ZOR_DFT_COMPLEX_REAL; }
  bool mixed() const { return real() && storage == ZOR_DFT_COMPLEX_COMPLEX; }
  zor_int size() const {
    zor_int n = 1;
    for (zor_int l : lengths) n *= l;
    return n;
  }
};

// The packed line of a conjugate-even spectrum.
inline std::vector<long double> packed_line(const box& x, int32_t format) {
  const size_t n = x.size();
  const bool even = n % 2 == 0, padded = format == ZOR_DFT_FORMAT_PADDED;
  std::vector<long double> line{x[0].real()};
  if (padded) line.push_back(0);
  if (format == ZOR_DFT_FORMAT_SECOND && even) line.push_back(x[n / 2].real());
  for (size_t k = 1; k < (n + 1) / 2; ++k) line.insert(line.end(), {x[k].real(), x[k].imag()});
  if (format != ZOR_DFT_FORMAT_SECOND && even) line.push_back(x[n / 2].real());
  if (padded && even) line.push_back(0);
  return line;
}

// A packed spectrum of rank 1 or 2: packed rows, but the columns of frequencies 0 and n/2 are spectra of real
// signals and packed along dimension 1.
inline image packed_image(const transform_case& s, const box& x, const std::vector<zor_int>& strides) {
  image values;
  const zor_int n = s.lengths[0], rows = s.lengths.size() > 1 ? s.lengths[1] : 1;
  const zor_int s0 = strides[0], s1 = rows > 1 ? strides[1] : 0;
  for (zor_int r = 0; r < rows; ++r) {
    const auto row = packed_line({x.begin() + r * n, x.begin() + (r + 1) * n}, s.format);
    for (size_t c = 0; c < row.size(); ++c) values[r * s1 + zor_int(c) * s0] = row[c];
  }
  const auto real_column = [&](zor_int frequency, zor_int place) {
    box column;
    for (zor_int r = 0; r < rows; ++r) column.push_back(x[size_t(r * n + frequency)]);
    const auto line = packed_line(column, s.format);
    for (size_t r = 0; r < line.size(); ++r) values[zor_int(r) * s1 + place * s0] = line[r];
  };
  if (rows < 2) return values;
  real_column(0, 0);
  const zor_int last = s.format == ZOR_DFT_FORMAT_SECOND ? 1 : s.format == ZOR_DFT_FORMAT_TAIL ? n - 1 : n;
  if (n % 2 == 0) real_column(n / 2, last);
  return values;
}

// One side of one transform as reals by index. The imaginary array of split storage follows after `half`
// reals.
template <class Image>
void add_side(Image* values, const transform_case& s, const box& x, bool spectrum,
              const std::vector<zor_int>& strides, zor_int base, zor_int half) {
  if (s.packed() && spectrum) {
    for (const auto& [place, value] : packed_image(s, x, strides)) (*values)[base + place] = value;
    return;
  }
  std::vector<zor_int> stored = s.lengths;
  if (s.mixed() && spectrum) stored[0] = stored[0] / 2 + 1;
  for (zor_int i = 0; i < s.size() / s.lengths[0] * stored[0]; ++i) {
    zor_int rest = i, at = base;
    for (size_t d = 0; d < stored.size(); ++d) {
      at += rest % stored[d] * strides[d];
      rest /= stored[d];
    }
    const complex v = x[size_t(i / stored[0] * s.lengths[0] + i % stored[0])];
    if (s.real() && !spectrum) {
      (*values)[at] = v.real();
    } else if (s.storage == ZOR_DFT_REAL_REAL) {
      (*values)[at] = v.real();
      (*values)[at + half] = v.imag();
    } else {
      (*values)[2 * at] = v.real();
      (*values)[2 * at + 1] = v.imag();
    }
  }
}

}  // namespace zor_ref
