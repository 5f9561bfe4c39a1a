// SPDX-License-Identifier: MIT
// Products of matrices in blocks, in both integer widths.
#include <functional>

#include "tools/verify/battery.h"
#include "zor/spblas.h"

namespace zor_tools {
namespace {

// Square, with blocks on both sides, repeats and empty rows in any order.
template <class T, class I>
struct matrix {
  I mb, lb;
  std::vector<I> indx, pntrb, pntre;
  block<T> val;

  matrix(zor_int rows, zor_int size, int base, numbers& source)
      : mb(I(rows)), lb(I(size)), val(pattern(base, source) * size_t(size * size), source.below(3), source) {}

 private:
  size_t pattern(int base, numbers& source) {
    const I origin = I(source.below(3));
    for (I r = 0; r < mb; ++r) {
      pntrb.push_back(origin + I(indx.size()));
      for (uint64_t count = source.below(6); count > 0; --count)
        indx.push_back(I(source.below(uint64_t(mb))) + I(base));
      if (r % 3 != 2) indx.push_back(r + I(base));
      pntre.push_back(origin + I(indx.size()));
    }
    pntrb.push_back(pntre.back());
    return indx.size();
  }
};

template <class T>
T factor(uint64_t iteration) {
  return iteration % 2 == 0 ? scalar<T>(1, 0) : scalar<T>(-0.6, 0.4);
}

template <class T, class I>
using bsr_call = std::function<void(matrix<T, I>& a, T alpha, I n, I ld, const T* x, T* y)>;

// The call for every size of block with code of its own and beyond; right-hand sides stand by columns or by
// rows.
template <class T, class I>
void cases(recorder& out, int base, I n, bool row_major, const bsr_call<T, I>& call) {
  uint64_t iteration = uint64_t(100 * n);
  for (const zor_int lb : {1, 2, 3, 4, 5, 6, 7, 8, 9, 21}) {
    for (const zor_int mb : {1, 7}) {
      numbers source(++iteration);
      matrix<T, I> a(mb, lb, base, source);
      const I m = I(mb * lb), ld = n == 1 ? (row_major ? 1 : m) : (row_major ? n : m) + 1;
      const size_t size = n == 1 ? size_t(m) : size_t(ld * (row_major ? m : n));
      const content kind = n == 1 && iteration % 4 == 0 ? content::special : content::ordinary;
      block<T> x(size, iteration % 3, source, kind), y(size, iteration % 2, source);
      call(a, factor<T>(iteration), n, ld, x.data(), y.data());
      y.record(out);
    }
  }
}

}  // namespace

void run_spbsr(recorder& out) {
#define CASES(T, I, base, n, row_major, ...)                                                  \
  cases<T, I>(out, base, n, row_major, [&](auto& a, T alpha, I rhs, I ld, const T* x, T* y) { \
    const I first = 1;                                                                        \
    (void)alpha, (void)rhs, (void)ld, (void)first;                                            \
    __VA_ARGS__;                                                                              \
  });
#define MATRIX a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data()
#define ROW_bsr_gemvout_par(name, T, I, base, ...)                                                         \
  if (out.begin(#name))                                                                                    \
  CASES(T, I, base, 1, false,                                                                              \
        name(&first, &a.mb, nullptr, &a.lb, nullptr, a.val.data(), a.indx.data(), a.pntrb.data(), nullptr, \
             x, y))
#define ROW_bsr_mvout_par(name, T, I, base, ...) \
  if (out.begin(#name)) CASES(T, I, base, 1, false, name(&first, &a.mb, nullptr, &a.lb, &alpha, MATRIX, x, y))
#include "zor/tables/spblas_bsr.inc"

#define ROW_BSR_GENERAL(name, T, I) \
  if (out.begin(#name))             \
    for (const I op : {1, 0})       \
  CASES(T, I, 1, 1, false, name(&op, &a.mb, nullptr, &a.lb, &alpha, MATRIX, x, nullptr, y))
#define ROW_BSR_GENERAL_MANY(name, T, I) \
  if (out.begin(#name))                  \
    for (const I op : {1, 0})            \
      for (const I n : {1, 3, 21})       \
  CASES(T, I, 0, n, true, name(&op, &a.mb, &rhs, &a.lb, &alpha, MATRIX, x, &ld, y, &ld))
#define ROW_BSR_SYMMETRIC(name, T, I, base) \
  if (out.begin(#name))                     \
    for (const I uplo : {1, 0})             \
      for (const I diag : {1, 0})           \
        for (const I n : {1, 3, 21})        \
  CASES(T, I, base, n, base == 0, name(&uplo, &diag, &a.mb, &rhs, &a.lb, &alpha, MATRIX, x, &ld, y, &ld))
#define ROW_BSR_SKEW(name, T, I, base) \
  if (out.begin(#name))                \
    for (const I uplo : {1, 0})        \
  CASES(T, I, base, 1, false, name(&uplo, &a.mb, nullptr, &a.lb, &alpha, MATRIX, x, nullptr, y))
#define ROW_BSR_DIAGONAL(name, T, I, base) \
  if (out.begin(#name))                    \
    for (const I diag : {1, 0})            \
  CASES(T, I, base, 1, false, name(&diag, &a.mb, nullptr, &a.lb, &alpha, MATRIX, x, nullptr, y))
#define ROW_BSR_TRIANGULAR(name, T, I, base) \
  if (out.begin(#name))                      \
    for (const I op : {1, 0})                \
      for (const I uplo : {1, 0})            \
        for (const I diag : {1, 0})          \
  CASES(T, I, base, 1, false, name(&op, &uplo, &diag, &a.mb, nullptr, &a.lb, &alpha, MATRIX, x, nullptr, y))
#include "zor/tables/spblas_stems.inc"
}

}  // namespace zor_tools
