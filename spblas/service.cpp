// SPDX-License-Identifier: MIT
// Clearing, testing and merging of the vectors that sparse products write to.
#include "zor/signatures/spblas.h"

#include <algorithm>
#include <cstring>

#include "spblas/panel.h"

namespace zor {
namespace {

template <class T>
void zeros(T* x, zor_int n) {
  if (n > 0) std::memset(static_cast<void*>(x), 0, size_t(n) * sizeof(T));
}

// The parts of a complex element never meet, so merges run over real numbers.
//
// y[i] := y[i] + term(i) for i from first to last - 1; term<N>(i) is the pack of N terms from i on.
template <class R, class Term>
void add_terms(zor_int first, zor_int last, R* y, const Term& term) {
  sparse::for_packs<R>(
      first, last, [&]<int N>(zor_int i) __attribute__((always_inline)) {
        sparse::store<R, N>(y + i, sparse::load<R, N>(y + i) + term.template operator()<N>(i));
      });
}

// y grows by (part 1 + part 0), (part 3 + part 2), ...; an odd last part is added alone. Taken in runs that
// stay in the first-level cache while the parts pass.
template <class T>
void merge(zor_int first, zor_int last, zor_int nparts, zor_int stride, const T* work, T* y) {
  using R = real_t<T>;
  constexpr zor_int run = sparse::thresholds::merged_at_once;
  const zor_int from = (first - 1) * parts<T>, to = last * parts<T>, step = stride * parts<T>;
  const R* w = reals(work);
  R* sum = reals(y);
  for (zor_int start = from; start < to; start += run) {
    const zor_int end = std::min(start + run, to);
    zor_int p = 0;
    for (; p + 2 <= nparts; p += 2) {
      const R *even = w + p * step, *odd = even + step;
      add_terms(
          start, end, sum, [=]<int N>(zor_int i) __attribute__((always_inline)) {
            return sparse::load<R, N>(odd + i) + sparse::load<R, N>(even + i);
          });
    }
    if (p >= nparts) continue;
    add_terms(
        start, end, sum, [=]<int N>(zor_int i) __attribute__((always_inline)) {
          return sparse::load<R, N>(w + p * step + i);
        });
  }
}

// The parts lie packed as a triangle; one after the other is added.
template <class T>
void merge_sym(zor_int count, zor_int s1, zor_int nparts, zor_int s2, const T* work, T* y) {
  using R = real_t<T>;
  for (zor_int q = 1; q <= nparts; ++q) {
    const R* part = reals(work + s2 * (q - 1) + s1 * (nparts - q - q * (q - 1) / 2));
    add_terms(
        0, count * parts<T>, reals(y), [=]<int N>(zor_int i) __attribute__((always_inline)) {
          return sparse::load<R, N>(part + i);
        });
  }
}

}  // namespace
}  // namespace zor

#define ROW_ZEROS(name, T, I) \
  extern "C" SIG_ZEROS(name, T, I) { zor::zeros(x, *n); }
#define ROW_ONES(name, T, I) \
  extern "C" SIG_ONES(name, T, I) { *x = zor::one_of<T>(); }
#define ROW_NEONES(name, T, I) \
  extern "C" SIG_NEONES(name, T, I) { *x = zor::zero_minus(*x); }
#define ROW_ZEROCHECK(name, T, I) \
  extern "C" SIG_ZEROCHECK(name, T, I) { *flag = !zor::is_zero(*x); }
#define ROW_MERGE(name, T, I) \
  extern "C" SIG_MERGE(name, T, I) { zor::merge<T>(*first, *last, *nparts, *stride, work, y); }
#define ROW_MERGE_SYM(name, T, I) \
  extern "C" SIG_MERGE_SYM(name, T, I) { zor::merge_sym<T>(*count, *s1, *nparts, *s2, work, y); }
#include "zor/tables/spblas_service.inc"
