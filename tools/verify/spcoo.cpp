// SPDX-License-Identifier: MIT
// Products and solves of matrices in coordinates, in both integer widths.
#include "tools/verify/battery.h"
#include "zor/spblas.h"

namespace zor_tools {
namespace {

// Square, so that every view applies: entries on both sides, repeats and empty rows in any order; for solves
// with a diagonal that dominates, so that they do not grow out of range.
template <class T, class I>
struct matrix {
  I m, nnz;
  std::vector<T> val;
  std::vector<I> rowind, colind;

  matrix(zor_int rows, int base, bool solved, numbers& source) : m(I(rows)) {
    for (zor_int e = 0; e < 9 * rows; ++e) {
      const zor_int row = zor_int(source.below(uint64_t(rows))),
                    column = zor_int(source.below(uint64_t(rows)));
      if (!solved || row != column) add(row, column, base, 0, source);
      if (solved && e < rows) add(rows - 1 - e, rows - 1 - e, base, 17, source);
    }
    nnz = I(val.size());
  }

 private:
  void add(zor_int row, zor_int column, int base, double pivot, numbers& source) {
    rowind.push_back(I(row + base));
    colind.push_back(I(column + base));
    const double re = source.real() / 64, im = source.real() / 64;
    val.push_back(scalar<T>(pivot + re, im));
  }
};

template <class T>
T factor(uint64_t iteration) {
  return iteration % 2 == 0 ? scalar<T>(1, 0) : scalar<T>(-0.6, 0.4);
}

constexpr zor_int row_counts[] = {1, 6, 45};

// The calls are plain functions, so that each pair of types has one loop over the cases for all its names.
template <class T, class I>
using vector_call = void (*)(const matrix<T, I>& a, T alpha, const T* x, T* y);
template <class T, class I>
using column_call = void (*)(const matrix<T, I>& a, T alpha, I first, I last, const T* b, T* c, I ld);

// The call for each size, with ordinary and with special values in x.
template <class T, class I>
void vectors(recorder& out, int base, bool solved, vector_call<T, I> call) {
  uint64_t iteration = 0;
  for (const content kind : {content::ordinary, content::special}) {
    for (const zor_int m : row_counts) {
      numbers source(++iteration);
      const matrix<T, I> a(m, base, solved, source);
      block<T> x(size_t(m), iteration % 3, source, kind), y(size_t(m), iteration % 2, source);
      call(a, factor<T>(iteration), x.data(), y.data());
      y.record(out);
    }
  }
}

// The same for right-hand sides 2 to n - 1 of n.
template <class T, class I>
void columns(recorder& out, int base, bool solved, column_call<T, I> call) {
  uint64_t iteration = 100;
  for (const zor_int m : row_counts) {
    for (const zor_int n : {3, 21}) {
      numbers source(++iteration);
      const matrix<T, I> a(m, base, solved, source);
      const zor_int ld = (base == 0 ? n : m) + zor_int(iteration % 2);
      const size_t size = size_t(ld * (base == 0 ? m : n));
      block<T> b(size, iteration % 3, source), c(size, iteration % 2, source);
      call(a, factor<T>(iteration), I(2), I(n - 1), b.data(), c.data(), I(ld));
      c.record(out);
    }
  }
}

}  // namespace

void run_spcoo(recorder& out) {
#define ROW_coo_mvout_par(name, T, I, base, ...)                                                          \
  if (out.begin(#name))                                                                                   \
    vectors<T, I>(out, base, false, [](const matrix<T, I>& a, T alpha, const T* x, T* y) {                \
      const I first = 1;                                                                                  \
      name(&first, &a.nnz, &a.m, &a.m, &alpha, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, x, \
           y);                                                                                            \
    });
#define ROW_coo_mvout_seq(name, T, I, base, ...)                                                 \
  if (out.begin(#name))                                                                          \
    vectors<T, I>(out, base, false, [](const matrix<T, I>& a, T alpha, const T* x, T* y) {       \
      name(&a.m, nullptr, &alpha, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, x, y); \
    });
#define ROW_coo_svout_seq(name, T, I, base, ...)                                                        \
  if (out.begin(#name))                                                                                 \
    vectors<T, I>(out, base, true, [](const matrix<T, I>& a, T, const T*, T* y) {                       \
      name(&a.m, nullptr, nullptr, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, nullptr, y); \
    });
#define ROW_coo_mmout_par(name, T, I, base, ...)                                                            \
  if (out.begin(#name))                                                                                     \
    columns<T, I>(out, base, false,                                                                         \
                  [](const matrix<T, I>& a, T alpha, I first, I last, const T* b, T* c, I ld) {             \
                    name(&first, &last, &a.m, &a.m, &alpha, a.val.data(), a.rowind.data(), a.colind.data(), \
                         &a.nnz, b, &ld, c, &ld);                                                           \
                  });
#define ROW_coo_smout_par(name, T, I, base, ...)                                                             \
  if (out.begin(#name))                                                                                      \
    columns<T, I>(out, base, true, [](const matrix<T, I>& a, T, I first, I last, const T*, T* c, I ld) {     \
      name(&first, &last, &a.m, nullptr, nullptr, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, c, \
           &ld);                                                                                             \
    });
#include "zor/tables/spblas_coo.inc"
}

}  // namespace zor_tools
