// SPDX-License-Identifier: MIT
// A transform by its settings, as the tables of the tests list them.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "tests/dft/names.h"

namespace dft_test {

enum kind { lines, split_lines, half_spectra, packed_spectra };

struct settings {
  int32_t precision = double_precision;
  kind of = lines;
  int32_t placement = in_place;
  std::vector<zor_int> lengths;
  zor_int count = 1, distance = 0, stride = 1;  // a distance of 0 and a stride of 1 are not set
  int32_t ordering = ordered;
  zor_int callers = 1;

  int32_t domain() const { return of == half_spectra || of == packed_spectra ? real_data : complex_data; }
};

inline std::ostream& operator<<(std::ostream& out, const settings& s) {
  return out << testing::PrintToString(s.lengths) << " precision " << s.precision << " kind " << s.of
             << " placement " << s.placement << " transforms " << s.count;
}

// Packed spectra of one dimension or two are in the format that needs no room beyond the reals.
inline zor_fft make(const settings& s) {
  zor_fft fft = nullptr;
  EXPECT_EQ(0, zor_fft_create(&fft, s.precision, s.domain(), zor_int(s.lengths.size()), s.lengths.data()));
  const auto set = [&](int32_t parameter, zor_int value) {
    EXPECT_EQ(0, zor_fft_set_int(fft, parameter, value)) << s << ", parameter " << parameter;
  };
  const auto set_both = [&](int32_t parameter, const zor_int(&strides)[2]) {
    EXPECT_EQ(0, zor_fft_set_strides(fft, parameter, strides)) << s;
  };
  if (s.of == split_lines) set(ZOR_DFT_COMPLEX_STORAGE, split);
  if (s.of == half_spectra) set(ZOR_DFT_CONJUGATE_EVEN_STORAGE, interleaved);
  if (s.of == packed_spectra) {
    set(ZOR_DFT_CONJUGATE_EVEN_STORAGE, packed);
    set(ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_TAIL);
  }
  set(ZOR_DFT_PLACEMENT, s.placement);
  set(ZOR_DFT_NUMBER_OF_TRANSFORMS, s.count);
  set(ZOR_DFT_NUMBER_OF_USER_THREADS, s.callers);
  if (s.ordering != ordered) set(ZOR_DFT_ORDERING, s.ordering);
  for (const bool output : {false, true}) {
    if (s.distance != 0) set(output ? ZOR_DFT_OUTPUT_DISTANCE : ZOR_DFT_INPUT_DISTANCE, s.distance);
    if (s.stride != 1) set_both(output ? ZOR_DFT_OUTPUT_STRIDES : ZOR_DFT_INPUT_STRIDES, {0, s.stride});
  }
  return fft;
}

// Calls f with a number of the settings' precision.
template <class F>
void in_precision_of(const settings& s, const F& f) {
  s.precision == double_precision ? f(double()) : f(float());
}

}  // namespace dft_test
