// SPDX-License-Identifier: MIT
// Products and solves of matrices in diagonals, and the parts of a list of diagonals, in both integer widths.
#include "tools/verify/battery.h"
#include "zor/signatures/spblas.h"

namespace zor_tools {
namespace {

// Square, with sorted diagonals around the main one at place `dmain`; the main one dominates, so that solves
// do not grow out of range. One list has neighbours of the main diagonal, one has none.
template <class T, class I>
struct matrix {
  I m, lval, ndiag, dmain, before, behind;
  std::vector<I> idiag;
  block<T> val;

  matrix(zor_int rows, bool near, numbers& source)
      : m(I(rows)),
        lval(I(rows + 1)),
        idiag(near ? std::vector<I>{-17, -2, -1, 0, 1, 2, 17} : std::vector<I>{-31, -9, -7, 0, 7, 9, 31}),
        val(idiag.size() * size_t(rows + 1), source.below(3), source) {
    ndiag = I(idiag.size());
    dmain = 4, before = 3, behind = 5;
    for (size_t e = 0; e < val.size(); ++e) {
      const double re = source.real() / 64, im = source.real() / 64;
      val.data()[e] = scalar<T>(e / size_t(lval) == 3 ? 9 + re : re, im);
    }
  }
};

template <class T>
T factor(uint64_t iteration) {
  return iteration % 2 == 0 ? scalar<T>(1, 0) : scalar<T>(-0.6, 0.4);
}

// The strict triangle of a sorted list, by the letter of the triangle.
template <class A>
auto first_of(const A& a, char triangle) {
  return triangle == 'l' ? decltype(a.m)(1) : a.behind;
}
template <class A>
auto last_of(const A& a, char triangle) {
  return triangle == 'l' ? a.before : a.ndiag;
}

// A call of each signature; names that share one share the loop over the cases too.
template <class T, class I>
struct arguments {
  T alpha;
  I n, ld;
  const T* b;
  T* c;
  char triangle;
};
template <class T, class I>
void call(zor::dia_mvout_par_fn<T, I>* name, matrix<T, I>& a, const arguments<T, I>& p) {
  name(nullptr, nullptr, &a.m, &a.m, &p.alpha, a.val.data(), &a.lval, a.idiag.data(), &a.ndiag, p.b, p.c);
}
template <class T, class I>
void call(zor::dia_mmout_par_fn<T, I>* name, matrix<T, I>& a, const arguments<T, I>& p) {
  const I first = 1;
  name(&first, &p.n, &a.m, &a.m, &p.alpha, a.val.data(), &a.lval, a.idiag.data(), &a.ndiag, p.b, &p.ld, p.c,
       &p.ld);
}
template <class T, class I>
void call(zor::dia_svout_seq_fn<T, I>* name, matrix<T, I>& a, const arguments<T, I>& p) {
  const I first = first_of(a, p.triangle), last = last_of(a, p.triangle);
  name(&a.m, a.val.data(), &a.lval, a.idiag.data(), p.c, &first, &last, nullptr, &a.dmain);
}
template <class T, class I>
void call(zor::dia_svout_unit_seq_fn<T, I>* name, matrix<T, I>& a, const arguments<T, I>& p) {
  const I first = first_of(a, p.triangle), last = last_of(a, p.triangle);
  name(&a.m, a.val.data(), &a.lval, a.idiag.data(), p.c, &first, &last);
}
template <class T, class I>
void call(zor::dia_svout_diag_seq_fn<T, I>* name, matrix<T, I>& a, const arguments<T, I>& p) {
  name(&a.m, a.val.data(), &a.lval, a.idiag.data(), &a.ndiag, p.c);
}
template <class T, class I>
void call(zor::dia_smout_par_fn<T, I>* name, matrix<T, I>& a, const arguments<T, I>& p) {
  const I from = 1, first = first_of(a, p.triangle), last = last_of(a, p.triangle);
  name(&from, &p.n, &a.m, a.val.data(), &a.lval, a.idiag.data(), nullptr, p.c, &p.ld, &first, &last, nullptr,
       &a.dmain);
}
template <class T, class I>
void call(zor::dia_smout_unit_par_fn<T, I>* name, matrix<T, I>& a, const arguments<T, I>& p) {
  const I from = 1, first = first_of(a, p.triangle), last = last_of(a, p.triangle);
  name(&from, &p.n, &a.m, a.val.data(), &a.lval, a.idiag.data(), nullptr, p.c, &p.ld, &first, &last);
}
template <class T, class I>
void call(zor::dia_smout_diag_seq_fn<T, I>* name, matrix<T, I>& a, const arguments<T, I>& p) {
  name(&a.m, &p.n, a.val.data(), &a.lval, a.idiag.data(), &a.ndiag, p.c, &p.ld);
}

// The call for vectors of several sizes, or for the right-hand sides of a matrix.
template <class T, class I, class Name>
void cases(recorder& out, bool many, char triangle, Name* name) {
  uint64_t iteration = many ? 100 : 0;
  for (const content kind : {content::ordinary, content::special}) {
    for (const zor_int m : {1, 8, 45, 1300}) {
      for (const bool near : {true, false}) {
        if (many && m > 1000) continue;
        numbers source(++iteration);
        matrix<T, I> a(m, near, source);
        const I n = many ? 9 : 1, ld = I(m + (many ? 1 : 0));
        block<T> b(size_t(ld * n), iteration % 3, source, kind), c(size_t(ld * n), iteration % 2, source);
        call<T, I>(name, a, {factor<T>(iteration), n, ld, b.data(), c.data(), triangle});
        c.record(out);
      }
    }
  }
}

}  // namespace

void run_spdia(recorder& out) {
#define CASES(many, name, T, I, base, op, shape, tri, diag) \
  if (out.begin(#name)) cases<T, I>(out, many, *#tri, name);
#define ROW_dia_mvout_par(...) CASES(false, __VA_ARGS__)
#define ROW_dia_svout_seq(...) CASES(false, __VA_ARGS__)
#define ROW_dia_svout_unit_seq(...) CASES(false, __VA_ARGS__)
#define ROW_dia_svout_diag_seq(...) CASES(false, __VA_ARGS__)
#define ROW_dia_mmout_par(...) CASES(true, __VA_ARGS__)
#define ROW_dia_smout_par(...) CASES(true, __VA_ARGS__)
#define ROW_dia_smout_unit_par(...) CASES(true, __VA_ARGS__)
#define ROW_dia_smout_diag_seq(...) CASES(true, __VA_ARGS__)
#include "zor/tables/spblas_dia.inc"

#define ROW_FIND_DIAGONALS(name, I, ...)                                                         \
  if (out.begin(#name)) {                                                                        \
    for (const std::vector<I>& list :                                                            \
         {std::vector<I>{-5, -1, 0, 2, 9, 0}, std::vector<I>{-5, 2, 3}, std::vector<I>{0, 1}}) { \
      const I ndiag = I(list.size() - 1);                                                        \
      I found[5] = {};                                                                           \
      name(list.data(), &ndiag, found, found + 1, found + 2, found + 3, found + 4);              \
      for (const I place : found) out.add(int64_t(place));                                       \
    }                                                                                            \
  }
#include "zor/tables/spblas_stems.inc"
}

}  // namespace zor_tools
