// SPDX-License-Identifier: MIT
// Convolution in the order of loops that the compiler makes vectors of: every element of the shorter operand
// adds a multiple of a line of the longer one to a line of the result.
#include "bench/convolution.h"

#include <algorithm>
#include <complex>

namespace zor_bench {
namespace {

template <class T>
void run(const convolution_job& job) {
  const T *const x = static_cast<const T*>(job.x), *const y = static_cast<const T*>(job.y);
  T* const z = static_cast<T*>(job.z);
  const int64_t columns = job.x_columns + job.y_columns - 1, rows = job.x_rows + job.y_rows - 1;
  // Stretches of the result that stay in the first-level cache.
  constexpr int64_t stretch = 8192 / sizeof(T);
  for (int64_t row = 0; row < rows; ++row)
    for (int64_t first = 0; first < columns; first += stretch) {
      T* const __restrict out = z + row * columns;
      const int64_t last = std::min(first + stretch, columns);
      std::fill(out + first, out + last, T(0));
      for (int64_t r = std::max<int64_t>(0, row - job.x_rows + 1); r <= std::min(row, job.y_rows - 1); ++r)
        for (int64_t c = 0; c < job.y_columns; ++c) {
          const T factor = y[r * job.y_columns + c];
          const T* const __restrict in = x + (row - r) * job.x_columns - c;
          const int64_t end = std::min(last, job.x_columns + c);
          for (int64_t k = std::max(first, c); k < end; ++k) out[k] += factor * in[k];
        }
    }
}

}  // namespace

extern "C" [[gnu::visibility("default")]] void zor_convolution_loop(const convolution_job& job) {
  switch (job.type) {
    case 's':
      return run<float>(job);
    case 'd':
      return run<double>(job);
    case 'c':
      return run<std::complex<float>>(job);
    case 'z':
      return run<std::complex<double>>(job);
  }
}

}  // namespace zor_bench
