// SPDX-License-Identifier: MIT
// Products and solves of matrices in diagonals, and the parts of a list of diagonals, in both integer widths.
#include "tools/verify/battery.h"
#include "zor/spblas.h"

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

// A call is a plain function, so that each pair of types has one loop over the cases for all its names.
template <class T, class I>
using dia_call = void (*)(matrix<T, I>& a, T alpha, I n, I ld, const T* b, T* c);

// The call for vectors of several sizes, or for the right-hand sides of a matrix.
template <class T, class I>
void cases(recorder& out, bool many, dia_call<T, I> call) {
  uint64_t iteration = many ? 100 : 0;
  for (const content kind : {content::ordinary, content::special}) {
    for (const zor_int m : {1, 8, 45, 1300}) {
      for (const bool near : {true, false}) {
        if (many && m > 1000) continue;
        numbers source(++iteration);
        matrix<T, I> a(m, near, source);
        const I n = many ? 9 : 1, ld = I(m + (many ? 1 : 0));
        block<T> b(size_t(ld * n), iteration % 3, source, kind), c(size_t(ld * n), iteration % 2, source);
        call(a, factor<T>(iteration), n, ld, b.data(), c.data());
        c.record(out);
      }
    }
  }
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

}  // namespace

void run_spdia(recorder& out) {
#define CASES(name, T, I, many, triangle, ...)                                             \
  if (out.begin(#name))                                                                    \
    cases<T, I>(out, many, [](matrix<T, I>& a, T alpha, I n, I ld, const T* b, T* c) {     \
      const I first = 1, dfirst = first_of(a, *#triangle), dlast = last_of(a, *#triangle); \
      (void)alpha, (void)n, (void)ld, (void)b, (void)first, (void)dfirst, (void)dlast;     \
      name(__VA_ARGS__);                                                                   \
    });
#define DIAGONALS a.val.data(), &a.lval, a.idiag.data()
#define ROW_dia_mvout_par(name, T, I, ...) \
  CASES(name, T, I, false, l, nullptr, nullptr, &a.m, &a.m, &alpha, DIAGONALS, &a.ndiag, b, c)
#define ROW_dia_mmout_par(name, T, I, ...) \
  CASES(name, T, I, true, l, &first, &n, &a.m, &a.m, &alpha, DIAGONALS, &a.ndiag, b, &ld, c, &ld)
#define ROW_dia_svout_seq(name, T, I, base, op, shape, tri, diag) \
  CASES(name, T, I, false, tri, &a.m, DIAGONALS, c, &dfirst, &dlast, nullptr, &a.dmain)
#define ROW_dia_svout_unit_seq(name, T, I, base, op, shape, tri, diag) \
  CASES(name, T, I, false, tri, &a.m, DIAGONALS, c, &dfirst, &dlast)
#define ROW_dia_svout_diag_seq(name, T, I, ...) CASES(name, T, I, false, l, &a.m, DIAGONALS, &a.ndiag, c)
#define ROW_dia_smout_par(name, T, I, base, op, shape, tri, diag)                                      \
  CASES(name, T, I, true, tri, &first, &n, &a.m, DIAGONALS, nullptr, c, &ld, &dfirst, &dlast, nullptr, \
        &a.dmain)
#define ROW_dia_smout_unit_par(name, T, I, base, op, shape, tri, diag) \
  CASES(name, T, I, true, tri, &first, &n, &a.m, DIAGONALS, nullptr, c, &ld, &dfirst, &dlast)
#define ROW_dia_smout_diag_seq(name, T, I, ...) \
  CASES(name, T, I, true, l, &a.m, &n, DIAGONALS, &a.ndiag, c, &ld)
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
