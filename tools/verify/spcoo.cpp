// SPDX-License-Identifier: MIT
// Products and solves of matrices in coordinates, in both integer widths.
#include "tools/verify/battery.h"
#include "zor/signatures/spblas.h"

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

// A call of each signature; names that share one share the loop over the cases too.
template <class T, class I>
void call(zor::coo_mvout_par_fn<T, I>* name, const matrix<T, I>& a, T alpha, const T* x, T* y) {
  const I first = 1;
  name(&first, &a.nnz, &a.m, &a.m, &alpha, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, x, y);
}
template <class T, class I>
void call(zor::coo_mvout_seq_fn<T, I>* name, const matrix<T, I>& a, T alpha, const T* x, T* y) {
  name(&a.m, nullptr, &alpha, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, x, y);
}
template <class T, class I>
void call(zor::coo_svout_seq_fn<T, I>* name, const matrix<T, I>& a, T, const T*, T* y) {
  name(&a.m, nullptr, nullptr, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, nullptr, y);
}
template <class T, class I>
void call(zor::coo_mmout_par_fn<T, I>* name, const matrix<T, I>& a, T alpha, I last, const T* b, T* c, I ld) {
  const I first = 2;
  name(&first, &last, &a.m, &a.m, &alpha, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, b, &ld, c,
       &ld);
}
template <class T, class I>
void call(zor::coo_smout_par_fn<T, I>* name, const matrix<T, I>& a, T, I last, const T*, T* c, I ld) {
  const I first = 2;
  name(&first, &last, &a.m, nullptr, nullptr, a.val.data(), a.rowind.data(), a.colind.data(), &a.nnz, c, &ld);
}

// The call for each size, with ordinary and with special values in x.
template <class T, class I, class Name>
void vectors(recorder& out, int base, bool solved, Name* name) {
  uint64_t iteration = 0;
  for (const content kind : {content::ordinary, content::special}) {
    for (const zor_int m : row_counts) {
      numbers source(++iteration);
      const matrix<T, I> a(m, base, solved, source);
      block<T> x(size_t(m), iteration % 3, source, kind), y(size_t(m), iteration % 2, source);
      call(name, a, factor<T>(iteration), x.data(), y.data());
      y.record(out);
    }
  }
}

// The same for right-hand sides 2 to n - 1 of n.
template <class T, class I, class Name>
void columns(recorder& out, int base, bool solved, Name* name) {
  uint64_t iteration = 100;
  for (const zor_int m : row_counts) {
    for (const zor_int n : {3, 21}) {
      numbers source(++iteration);
      const matrix<T, I> a(m, base, solved, source);
      const zor_int ld = (base == 0 ? n : m) + zor_int(iteration % 2);
      const size_t size = size_t(ld * (base == 0 ? m : n));
      block<T> b(size, iteration % 3, source), c(size, iteration % 2, source);
      call(name, a, factor<T>(iteration), I(n - 1), b.data(), c.data(), I(ld));
      c.record(out);
    }
  }
}

}  // namespace

void run_spcoo(recorder& out) {
#define CASES(cases, solved, name, T, I, base, ...) \
  if (out.begin(#name)) cases<T, I>(out, base, solved, name);
#define ROW_coo_mvout_par(...) CASES(vectors, false, __VA_ARGS__)
#define ROW_coo_mvout_seq(...) CASES(vectors, false, __VA_ARGS__)
#define ROW_coo_svout_seq(...) CASES(vectors, true, __VA_ARGS__)
#define ROW_coo_mmout_par(...) CASES(columns, false, __VA_ARGS__)
#define ROW_coo_smout_par(...) CASES(columns, true, __VA_ARGS__)
#include "zor/tables/spblas_coo.inc"
}

}  // namespace zor_tools
