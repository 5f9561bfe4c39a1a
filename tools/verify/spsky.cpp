// SPDX-License-Identifier: MIT
// Products and solves with profiles, in both integer widths.
#include "tools/verify/battery.h"
#include "zor/spblas.h"

namespace zor_tools {
namespace {

// Profiles of up to 50 elements, whose diagonal dominates, so that solves do not grow out of range.
template <class T, class I>
struct matrix {
  I m;
  std::vector<I> pntr;
  block<T> val;

  matrix(zor_int rows, numbers& source) : m(I(rows)), val(pattern(source), source.below(3), source) {
    for (size_t e = 0; e < val.size(); ++e) val.data()[e] = scalar<T>(source.real() / 64, source.real() / 64);
    for (I r = 1; r <= m; ++r)
      val.data()[size_t(pntr[size_t(r)] - pntr[0] - 1)] = scalar<T>(40 + source.real(), source.real());
  }

 private:
  size_t pattern(numbers& source) {
    pntr.push_back(I(source.below(3)));
    for (I r = 1; r <= m; ++r)
      pntr.push_back(pntr.back() + I(1 + source.below(uint64_t(std::min<I>(r, 50)))));
    return size_t(pntr.back() - pntr[0]);
  }
};

// A call is a plain function, so that each pair of types has one loop over the cases for all its names.
template <class T, class I>
using sky_call = void (*)(matrix<T, I>& a, T alpha, I n, I ld, const T* b, T* c, I flag1, I flag2, I diag);

template <class T, class I>
void cases(recorder& out, I n, sky_call<T, I> call) {
  uint64_t iteration = 0;
  for (const I m : {1, 9, 130}) {
    for (const I flags : {0, 1, 2, 3}) {
      numbers source(++iteration);
      matrix<T, I> a(m, source);
      const I ld = m + I(iteration % 2);
      const content kind = iteration % 4 == 0 ? content::special : content::ordinary;
      block<T> b(size_t(ld * n), iteration % 3, source, kind), c(size_t(ld * n), iteration % 2, source);
      const T alpha = iteration % 3 == 0 ? scalar<T>(1, 0) : scalar<T>(-0.6, 0.4);
      call(a, alpha, n, ld, b.data(), c.data(), I(1), I(flags % 2), I(flags / 2));
      c.record(out);
    }
  }
}

}  // namespace

void run_spsky(recorder& out) {
#define CASES(name, T, I, n, ...)                                                                       \
  if (out.begin(#name))                                                                                 \
    cases<T, I>(out, n,                                                                                 \
                [](matrix<T, I>& a, T alpha, I rhs, I ld, const T* b, T* c, I flag1, I flag2, I diag) { \
                  (void)alpha, (void)rhs, (void)ld, (void)b, (void)flag1, (void)flag2, (void)diag;      \
                  name(__VA_ARGS__);                                                                    \
                });
#define ROW_SKY_TRIANGULAR(name, T, I)                                                                     \
  CASES(name, T, I, 3, &flag1, nullptr, &a.m, &rhs, &flag2, &diag, &alpha, a.val.data(), a.pntr.data(), b, \
        &ld, c, &ld)
#define ROW_SKY_SKEW(name, T, I)                                                                            \
  CASES(name, T, I, 3, &flag1, nullptr, &a.m, &rhs, &flag2, &alpha, a.val.data(), a.pntr.data(), b, &ld, c, \
        &ld)
#define ROW_SKY_SYMMETRIC(name, T, I) \
  CASES(name, T, I, 3, nullptr, &a.m, &rhs, &diag, &alpha, a.val.data(), a.pntr.data(), b, &ld, c, &ld)
#define ROW_SKY_SOLVE(name, T, I) \
  CASES(name, T, I, 1, &flag1, nullptr, &flag2, &diag, &a.m, a.val.data(), a.pntr.data(), c)
#include "zor/tables/spblas_stems.inc"
}

}  // namespace zor_tools
