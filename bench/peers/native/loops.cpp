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
void lower_solve(const csr_arrays<T, I>& a, const T* x, T* y) {
  std::copy_n(x, a.rows, y);
  for (int64_t r = 0; r < a.rows; ++r) {
    const I last = a.start[r + 1] - 1;
    T sum = y[r];
    for (I k = a.start[r]; k < last; ++k) sum -= a.value[k] * y[a.column[k]];
    y[r] = sum / a.value[last];
  }
}

template <class T, class I>
void upper_solve(const csr_arrays<T, I>& a, const T* x, T* y) {
  std::copy_n(x, a.rows, y);
  for (int64_t r = a.rows; r-- > 0;) {
    T sum = y[r];
    for (I k = a.start[r] + 1; k < a.start[r + 1]; ++k) sum -= a.value[k] * y[a.column[k]];
    y[r] = sum / a.value[a.start[r]];
  }
}

template <class T, class I>
void transposed_solve(const csr_arrays<T, I>& a) {
  std::copy_n(a.x, a.rows, a.y);
  for (int64_t r = a.rows; r-- > 0;) {
    const I last = a.start[r + 1] - 1;
    const T t = a.y[r] /= a.value[last];
    for (I k = a.start[r]; k < last; ++k) a.y[a.column[k]] -= a.value[k] * t;
  }
}

// Row r less its entries from `from` on before `to`, all right-hand sides at once, divided by the pivot.
template <class T, class I>
void solve_row(const csr_arrays<T, I>& a, int64_t r, I from, I to, T pivot) {
  T* __restrict row = a.y + r * a.rhs;
  for (I k = from; k < to; ++k) {
    const T* other = a.y + int64_t(a.column[k]) * a.rhs;
    const T factor = a.value[k];
    for (int64_t j = 0; j < a.rhs; ++j) row[j] -= factor * other[j];
  }
  for (int64_t j = 0; j < a.rhs; ++j) row[j] /= pivot;
}

template <class T, class I>
void solves_by_rows(const csr_arrays<T, I>& a, bool lower) {
  std::copy_n(a.x, a.rows * a.rhs, a.y);
  for (int64_t i = 0; i < a.rows; ++i) {
    const int64_t r = lower ? i : a.rows - 1 - i;
    const I first = a.start[r], last = a.start[r + 1] - 1;
    lower ? solve_row(a, r, first, last, a.value[last])
          : solve_row(a, r, I(first + 1), I(last + 1), a.value[first]);
  }
}

// The loop over all entries: change(a, row, column, value).
template <class T, class I, class Change>
std::function<void()> by_entries(const csr_arrays<T, I>& a, const Change& change) {
  return [=] {
    for (int64_t r = 0; r < a.rows; ++r)
      for (I k = a.start[r]; k < a.start[r + 1]; ++k) change(a, r, int64_t(a.column[k]), a.value[k]);
  };
}

// The row of C that an entry changes, by a row of B.
template <class T, class I>
void add_row(const csr_arrays<T, I>& a, int64_t to, T factor, int64_t from) {
  T* __restrict c = a.y + to * a.rhs;
  const T* b = a.x + from * a.rhs;
  for (int64_t j = 0; j < a.rhs; ++j) c[j] += factor * b[j];
}

double conjugate(double v) { return v; }
std::complex<double> conjugate(std::complex<double> v) { return std::conj(v); }

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
        return [a] { lower_solve(a, a.x, a.y); };
      case csr_operation::upper_solve:
        return [a] { upper_solve(a, a.x, a.y); };
      case csr_operation::transposed_solve:
        return [a] { transposed_solve(a); };
      case csr_operation::lower_solves_by_rows:
      case csr_operation::upper_solves_by_rows:
        return [a, lower = what == csr_operation::lower_solves_by_rows] { solves_by_rows(a, lower); };
      case csr_operation::lower_solves_by_columns:
        return [a] {
          for (int64_t j = 0; j < a.rhs; ++j) lower_solve(a, a.x + j * a.rows, a.y + j * a.rows);
        };
      case csr_operation::upper_solves_by_columns:
        return [a] {
          for (int64_t j = 0; j < a.rhs; ++j) upper_solve(a, a.x + j * a.rows, a.y + j * a.rows);
        };
      case csr_operation::transposed:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) { m.y[c] += v * m.x[r]; });
      case csr_operation::triangular:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) {
          if (c <= r) m.y[r] += v * m.x[c];
        });
      case csr_operation::transposed_triangular:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) {
          if (c <= r) m.y[c] += v * m.x[r];
        });
      case csr_operation::skew:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) {
          if (c != r) m.y[r] += v * m.x[c], m.y[c] -= v * m.x[r];
        });
      case csr_operation::hermitian:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) {
          m.y[r] += v * m.x[c];
          if (c != r) m.y[c] += conjugate(v) * m.x[r];
        });
      case csr_operation::diagonal:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) {
          if (c == r) m.y[r] += v * m.x[c];
        });
      case csr_operation::transposed_by_rows:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) { add_row(m, c, v, r); });
      case csr_operation::triangular_by_rows:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) {
          if (c <= r) add_row(m, r, v, c);
        });
      case csr_operation::symmetric_by_rows:
        return by_entries(a, [](auto& m, int64_t r, int64_t c, auto v) {
          add_row(m, r, v, c);
          if (c != r) add_row(m, c, v, r);
        });
      case csr_operation::rows_alone:
        return [a] {
          std::fill_n(a.y, a.rows, 0);
          product(a, a.x, a.y);
        };
    }
    return {};
  });
}

}  // namespace

extern "C" [[gnu::visibility("default")]] const csr_peer zor_csr_peer;
const csr_peer zor_csr_peer = {"loop", open_loops, run_native, close_native};

}  // namespace zor_bench
