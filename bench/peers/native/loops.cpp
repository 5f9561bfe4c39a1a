// SPDX-License-Identifier: MIT
// The loops that a user would write, left to the compiler.
#include <algorithm>

#include "bench/peers/native/native.h"

namespace zor_bench {
namespace {

template <class T, class I>
void product(const csr_arrays<T, I>& a, const T* x, T* y) {
  for (int64_t r = 0; r < a.rows; ++r) {
    T sum = 0;
    for (I k = a.start[r]; k < a.start[r + 1]; ++k) sum += a.value[k] * x[a.column[k]];
    y[r] += sum;
  }
}

template <class T, class I>
void symmetric(const csr_arrays<T, I>& a) {
  for (int64_t r = 0; r < a.rows; ++r) {
    T sum = 0;
    for (I k = a.start[r]; k < a.start[r + 1]; ++k) {
      const I c = a.column[k];
      sum += a.value[k] * a.x[c];
      if (c != r) a.y[c] += a.value[k] * a.x[r];
    }
    a.y[r] += sum;
  }
}

template <class T, class I>
void products_by_rows(const csr_arrays<T, I>& a) {
  for (int64_t r = 0; r < a.rows; ++r) {
    T* __restrict c = a.y + r * a.rhs;
    for (I k = a.start[r]; k < a.start[r + 1]; ++k) {
      const T* b = a.x + int64_t(a.column[k]) * a.rhs;
      const T factor = a.value[k];
      for (int64_t j = 0; j < a.rhs; ++j) c[j] += factor * b[j];
    }
  }
}

template <class T, class I>
void lower_solve(const csr_arrays<T, I>& a) {
  std::copy_n(a.x, a.rows, a.y);
  for (int64_t r = 0; r < a.rows; ++r) {
    const I last = a.start[r + 1] - 1;
    T sum = a.y[r];
    for (I k = a.start[r]; k < last; ++k) sum -= a.value[k] * a.y[a.column[k]];
    a.y[r] = sum / a.value[last];
  }
}

template <class T, class I>
void upper_solve(const csr_arrays<T, I>& a) {
  std::copy_n(a.x, a.rows, a.y);
  for (int64_t r = a.rows; r-- > 0;) {
    T sum = a.y[r];
    for (I k = a.start[r] + 1; k < a.start[r + 1]; ++k) sum -= a.value[k] * a.y[a.column[k]];
    a.y[r] = sum / a.value[a.start[r]];
  }
}

void* open_loops(const csr_job& job) {
  return open_native(job, [](const auto& a, csr_operation what) -> std::function<void()> {
    switch (what) {
      case csr_operation::product:
        return [a] { product(a, a.x, a.y); };
      case csr_operation::symmetric:
        return [a] { symmetric(a); };
      case csr_operation::products_by_rows:
        return [a] { products_by_rows(a); };
      case csr_operation::products_by_columns:
        return [a] {
          for (int64_t j = 0; j < a.rhs; ++j) product(a, a.x + j * a.rows, a.y + j * a.rows);
        };
      case csr_operation::lower_solve:
        return [a] { lower_solve(a); };
      case csr_operation::upper_solve:
        return [a] { upper_solve(a); };
    }
    return {};
  });
}

}  // namespace

extern "C" [[gnu::visibility("default")]] const csr_peer zor_csr_peer;
const csr_peer zor_csr_peer = {"loop", open_loops, run_native, close_native};

}  // namespace zor_bench
