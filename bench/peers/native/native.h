// SPDX-License-Identifier: MIT
// What the peers compiled for this processor share: one call bound to the types of a job.
#pragma once

#include <complex>
#include <functional>

#include "bench/csr.h"

namespace zor_bench {

// The arrays of a job in their types.
template <class T, class I>
struct csr_arrays {
  int64_t rows, entries, rhs;
  const I *start, *column;
  const T *value, *x;
  T* y;
  explicit csr_arrays(const csr_job& job)
      : rows(job.rows),
        entries(job.entries),
        rhs(job.rhs),
        start(static_cast<const I*>(job.start)),
        column(static_cast<const I*>(job.column)),
        value(static_cast<const T*>(job.value)),
        x(static_cast<const T*>(job.x)),
        y(static_cast<T*>(job.y)) {}
};

// bind(arrays, operation) returns the call, empty when there is none.
template <class Bind>
std::function<void()> bind_types(const csr_job& job, const Bind& bind) {
  using complex = std::complex<double>;
  const bool narrow = job.index_bytes == 4;
  if (job.type == 'd')
    return narrow ? bind(csr_arrays<double, int32_t>(job), job.what)
                  : bind(csr_arrays<double, int64_t>(job), job.what);
  return narrow ? bind(csr_arrays<complex, int32_t>(job), job.what)
                : bind(csr_arrays<complex, int64_t>(job), job.what);
}

template <class Bind>
void* open_native(const csr_job& job, const Bind& bind) {
  std::function<void()> call = bind_types(job, bind);
  return call ? new std::function<void()>(std::move(call)) : nullptr;
}
inline void run_native(void* opened) { (*static_cast<std::function<void()>*>(opened))(); }
inline void close_native(void* opened) { delete static_cast<std::function<void()>*>(opened); }

}  // namespace zor_bench
