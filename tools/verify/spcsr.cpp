// SPDX-License-Identifier: MIT
// CSR products and solves and the sparse service routines, in both integer widths.
#include "tools/verify/battery.h"
#include "zor/signatures/spblas.h"

namespace zor_tools {
namespace {

struct fields {
  int base;
  char op, structure, triangle, diagonal;
};
#define FIELDS(base, op, shape, tri, diag) \
  fields { base, #op[0], #shape[0], #tri[0], #diag[0] }

// Square, so that every view applies: entries on both sides, repeats and empty rows in any order, or for
// solves sorted rows with a diagonal. Rows of up to 19 entries pass every loop of the row dot.
template <class T, class I>
struct matrix {
  zor_int m;
  std::vector<T> val;
  std::vector<I> indx, pntrb, pntre;

  matrix(zor_int rows, int base, bool sorted, numbers& source) : m(rows) {
    const I origin = I(source.below(3));
    for (zor_int r = 0; r < m; ++r) {
      pntrb.push_back(origin + I(indx.size()));
      const size_t start = indx.size();
      for (uint64_t count = source.below(20); count > 0; --count)
        indx.push_back(I(source.below(uint64_t(m))) + I(base));
      if (sorted) indx.push_back(I(r + base));
      if (sorted) std::sort(indx.begin() + zor_int(start), indx.end());
      for (size_t k = start; k < indx.size(); ++k) val.push_back(value(indx[k] == I(r + base), source));
      pntre.push_back(origin + I(indx.size()));
    }
    pntrb.push_back(pntre.back());
  }

 private:
  // A diagonal that dominates, so that solves do not grow out of range.
  static T value(bool diagonal, numbers& source) {
    const double re = source.real(), im = source.real();
    return diagonal ? scalar<T>(33 + re, im) : scalar<T>(re / 64, im / 64);
  }
};

constexpr zor_int row_counts[] = {1, 6, 45};

template <class T>
T factor(uint64_t iteration) {
  return iteration % 2 == 0 ? scalar<T>(1, 0) : scalar<T>(-0.6, 0.4);
}

// A call of each signature; names that share one share the loop over the cases too.
template <class T, class I>
void call(zor::csr_mvout_par_fn<T, I>* name, const matrix<T, I>& a, T alpha, const T* x, T* y) {
  const I first = 1, last = I(a.m);
  name(&first, &last, &last, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), x, y);
}
template <class T, class I>
void call(zor::csr_mvout_seq_fn<T, I>* name, const matrix<T, I>& a, T alpha, const T* x, T* y) {
  const I m = I(a.m);
  name(&m, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), x, y);
}
template <class T, class I>
void call(zor::csr_gemvout_par_fn<T, I>* name, const matrix<T, I>& a, T, const T* x, T* y) {
  const I first = 1, last = I(a.m);
  name(&first, &last, nullptr, nullptr, a.val.data(), a.indx.data(), a.pntrb.data(), nullptr, x, y);
}
template <class T, class I>
void call(zor::csr_svout_seq_fn<T, I>* name, const matrix<T, I>& a, T alpha, const T*, T* y) {
  const I m = I(a.m);
  name(&m, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), y);
}
template <class T, class I>
void call(zor::csr_mmout_par_fn<T, I>* name, const matrix<T, I>& a, T alpha, I n, const T* b, T* c, I ld) {
  const I first = 2, last = n - 1, m = I(a.m);
  name(&first, &last, &m, &n, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), b, &ld, c,
       &ld);
}
template <class T, class I>
void call(zor::csr_mmout_seq_fn<T, I>* name, const matrix<T, I>& a, T alpha, I n, const T* b, T* c, I ld) {
  const I m = I(a.m);
  name(&m, &n, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), b, &ld, c, &ld);
}
template <class T, class I>
void call(zor::csr_smout_par_fn<T, I>* name, const matrix<T, I>& a, T alpha, I n, const T*, T* c, I ld) {
  const I first = 2, last = n - 1, m = I(a.m);
  name(&first, &last, &m, &n, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), c, &ld);
}

// The call for each size, with ordinary and with special values in x.
template <class T, class I, class Name>
void vectors(recorder& out, const fields& f, bool sorted, Name* name) {
  uint64_t iteration = 0;
  for (const content kind : {content::ordinary, content::special}) {
    for (const zor_int m : row_counts) {
      numbers source(++iteration);
      const matrix<T, I> a(m, f.base, sorted, source);
      block<T> x(size_t(m), iteration % 3, source, kind), y(size_t(m), iteration % 2, source);
      call(name, a, factor<T>(iteration), x.data(), y.data());
      y.record(out);
    }
  }
}

// The same for right-hand sides 2 to n - 1 of n.
template <class T, class I, class Name>
void columns(recorder& out, const fields& f, bool sorted, Name* name) {
  uint64_t iteration = 100;
  for (const zor_int m : row_counts) {
    for (const zor_int n : {3, 21}) {
      numbers source(++iteration);
      const matrix<T, I> a(m, f.base, sorted, source);
      const zor_int ld = (f.base == 0 ? n : m) + zor_int(iteration % 2);
      const size_t size = size_t(ld * (f.base == 0 ? m : n));
      block<T> b(size, iteration % 3, source), c(size, iteration % 2, source);
      call(name, a, factor<T>(iteration), I(n), b.data(), c.data(), I(ld));
      c.record(out);
    }
  }
}

}  // namespace

void run_spcsr(recorder& out) {
#define CASES(cases, sorted, name, T, I, ...) \
  if (out.begin(#name)) cases<T, I>(out, FIELDS(__VA_ARGS__), sorted, name);
#define ROW_csr_mvout_par(...) CASES(vectors, false, __VA_ARGS__)
#define ROW_csr_mvout_seq(...) CASES(vectors, false, __VA_ARGS__)
#define ROW_csr_gemvout_par(...) CASES(vectors, false, __VA_ARGS__)
#define ROW_csr_svout_seq(...) CASES(vectors, true, __VA_ARGS__)
#define ROW_csr_mmout_par(...) CASES(columns, false, __VA_ARGS__)
#define ROW_csr_mmout_seq(...) CASES(columns, false, __VA_ARGS__)
#define ROW_csr_smout_par(...) CASES(columns, true, __VA_ARGS__)
#include "zor/tables/spblas_csr.inc"

#define ROW_ZEROS(name, T, I)  \
  if (out.begin(#name)) {      \
    numbers source(200);       \
    block<T> x(37, 1, source); \
    const I n = 30;            \
    name(x.data(), &n);        \
    x.record(out);             \
  }
#define ROW_ONES(name, T, I) \
  if (out.begin(#name)) {    \
    T x{};                   \
    name(&x);                \
    out.add(x);              \
  }
#define ROW_NEONES(name, T, I)                                \
  if (out.begin(#name)) {                                     \
    numbers source(201);                                      \
    block<T> x(50, 0, source, content::special);              \
    for (size_t i = 0; i < x.size(); ++i) name(x.data() + i); \
    x.record(out);                                            \
  }
#define ROW_ZEROCHECK(name, T, I)                \
  if (out.begin(#name)) {                        \
    numbers source(202);                         \
    block<T> x(50, 0, source, content::special); \
    for (size_t i = 0; i < x.size(); ++i) {      \
      I flag = -1;                               \
      name(x.data() + i, &flag);                 \
      out.add(int64_t(flag));                    \
    }                                            \
  }
#define ROW_MERGE_SYM(name, T, I)                           \
  if (out.begin(#name)) {                                   \
    numbers source(203);                                    \
    const I count = 50, s1 = 3, nparts = 5, s2 = 40;        \
    block<T> work(400, 1, source), y(50, 1, source);        \
    name(&count, &s1, &nparts, &s2, work.data(), y.data()); \
    y.record(out);                                          \
  }
#define ROW_MERGE(name, T, I)                                          \
  if (out.begin(#name)) {                                              \
    for (const I nparts : {1, 2, 5}) {                                 \
      numbers source(uint64_t(nparts) + 300);                          \
      const I first = 3, last = 90, stride = 95;                       \
      block<T> work(size_t(nparts) * 95, 1, source), y(90, 1, source); \
      name(&first, &last, &nparts, &stride, work.data(), y.data());    \
      y.record(out);                                                   \
    }                                                                  \
  }
#include "zor/tables/spblas_service.inc"
}

}  // namespace zor_tools
