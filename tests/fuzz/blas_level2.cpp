// SPDX-License-Identifier: MIT
// Level 2: general, band, symmetric and triangular matrices with one vector, rank updates. A stored matrix is
// an operand of which only the elements that belong to it are live.
#include "tests/fuzz/matrix.h"
#include "tests/ref/level2.h"
#include "zor/signatures/blas.h"

namespace zor_fuzz {
namespace {

using zor_ref::layout;
using kind = layout::kind;
constexpr zor_int longest = 200;

// The order of a matrix, or its order and diagonals, and its array with or without a leading dimension.
template <kind K, class T>
struct stored_matrix {
  layout l;
  operand<T> data;

  stored_matrix(trial& t, use how, const layout& stored, bool unit = false)
      : l(stored), data(t.scattered<T>("a", how, zor_int(l.size()), live_places(stored, unit))) {}
  auto order() const {
    if constexpr (K == kind::band)
      return list_of(l.n, l.kl + l.ku);
    else
      return list_of(l.n);
  }
  auto arguments() const {
    if constexpr (K == kind::packed)
      return data.arguments();
    else
      return list_of(data.data(), leading_dimension{l.lda});
  }
  static auto live_places(const layout& l, bool unit) {
    std::vector<bool> live(l.size());
    for (zor_int j = 0; j < l.n; ++j)
      for (zor_int i = l.first(j); i < l.end(j); ++i) live[l.place(i, j)] = !(unit && i == j);
    return [live](zor_int i) { return bool(live[size_t(i)]); };
  }
  bool holds(zor_int i, zor_int j) const { return i >= l.first(j) && i < l.end(j); }
  wide operator()(zor_int i, zor_int j) const { return data(zor_int(l.place(i, j))); }
  T now(zor_int i, zor_int j) const { return data.now(zor_int(l.place(i, j))); }
};

layout draw_triangle(trial& t, kind stored, option uplo) {
  const zor_int n = t.size("n", longest), k = stored == kind::band ? t.size("k", 60) : n - 1;
  const zor_int lda = stored == kind::packed ? n : t.leading("lda", stored == kind::band ? k + 1 : n).value;
  return layout::triangle(stored, uplo.is('U'), n, k, lda);
}

template <class T>
void ger(trial& t, bool conjugate, zor::xger_fn<T>* call) {
  const zor_int m = t.size("m", 400), n = t.size("n", 400);
  const T alpha = t.scalar<T>("alpha");
  const auto x = t.strided_vector<T>("x", use::in, m), y = t.strided_vector<T>("y", use::in, n);
  const auto a = t.matrix<T>("a", use::inout, m, n);
  t.invoke(call, m, n, alpha, x, y, a);
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    const wide term = times(widened(alpha), times(x(i), conj_when(conjugate, y(j))));
    t.near(a.now(i, j), a(i, j) + term, magnitude(a(i, j)) + magnitude(term), 2, "a", i, j);
  });
}

// element(i, j) is that of op(A), where holds(i, j) says that it is stored.
template <class T, class Element, class X, class Y, class Holds>
void check_product(trial& t, zor_int rows, zor_int columns, T alpha, T beta, const X& x, const Y& y,
                   const Element& element, const Holds& holds) {
  if (rows < 1 || columns < 1) return;
  t.some_of(rows, 1, [&](zor_int i, zor_int) {
    sum_of_terms s;
    s.add(scaled(beta, y, i));
    s.add(times(widened(alpha), 0));  // an empty sum is multiplied too
    for (zor_int j = 0; j < columns; ++j)
      if (holds(i, j)) s.add(times(widened(alpha), times(element(i, j), x(j))));
    s.compare(t, y.now(i), "y", i);
  });
}

template <class T>
void gemv(trial& t, zor::gemv_fn<T>* call) {
  // rows and columns of op(A)
  const zor_int rows = t.size("rows", 1200), columns = t.size("columns", 1200);
  const operand_of<T> a(t, "a", t.letter("trans", "NTCntc"), rows, columns);
  const zor_int m = a.transposed() ? columns : rows, n = a.transposed() ? rows : columns;
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const auto x = t.strided_vector<T>("x", use::in, columns),
             y = t.strided_vector<T>("y", when_scaled(beta, m > 0 && n > 0), rows);
  t.invoke(call, a.op, m, n, alpha, a, x, beta, y);
  check_product(t, rows, columns, alpha, beta, x, y, a, [](zor_int, zor_int) { return true; });
}

template <class T>
void gbmv(trial& t, zor::xgbmv_fn<T>* call) {
  const zor_int m = t.size("m", longest), n = t.size("n", longest), kl = t.size("kl", 40),
                ku = t.size("ku", 40), lda = t.leading("lda", kl + ku + 1);
  const option trans = t.letter("trans", "NTCntc");
  const bool plain = trans.is('N');
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const stored_matrix<kind::full, T> a(t, use::in, {kind::band, false, m, n, kl, ku, lda});
  const zor_int inputs = plain ? n : m, outputs = plain ? m : n;
  const auto x = t.strided_vector<T>("x", use::in, inputs),
             y = t.strided_vector<T>("y", when_scaled(beta, m > 0 && n > 0), outputs);
  t.invoke(call, trans, m, n, kl, ku, alpha, a, x, beta, y);
  check_product(
      t, outputs, inputs, alpha, beta, x, y,
      [&](zor_int i, zor_int j) { return conj_when(trans.is('C'), plain ? a(i, j) : a(j, i)); },
      [&](zor_int i, zor_int j) { return plain ? a.holds(i, j) : a.holds(j, i); });
}

template <kind K, class T, class Call>
void symv(trial& t, bool hermitian, Call* call) {
  const option uplo = t.letter("uplo", "ULul");
  const layout l = draw_triangle(t, K, uplo);
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const stored_matrix<K, T> a(t, use::in, l);
  const auto x = t.strided_vector<T>("x", use::in, l.n),
             y = t.strided_vector<T>("y", when_scaled(beta, l.n > 0), l.n);
  t.invoke(call, uplo, a.order(), alpha, a, x, beta, y);
  const auto element = [&](zor_int i, zor_int j) {
    const wide e = a.holds(i, j) ? a(i, j) : conj_when(hermitian, a(j, i));
    return hermitian && i == j ? wide(e.real()) : e;
  };
  check_product(t, l.n, l.n, alpha, beta, x, y, element,
                [&](zor_int i, zor_int j) { return a.holds(i, j) || a.holds(j, i); });
}

// Rank one (y is x, the second term left out) and rank two.
template <kind K, class T, class S, class Call>
void update(trial& t, bool twice, bool hermitian, Call* call) {
  const option uplo = t.letter("uplo", "ULul");
  const layout l = draw_triangle(t, K, uplo);
  const S alpha = t.scalar<S>("alpha");
  const auto x = t.strided_vector<T>("x", use::in, l.n),
             y = twice ? t.strided_vector<T>("y", use::in, l.n) : x;
  const stored_matrix<K, T> a(t, use::inout, l);
  constexpr bool second = std::is_invocable_v<Call, const char*, const zor_int*, const S*, const T*,
                                              const zor_int*, const T*, const zor_int*, T*> ||
                          std::is_invocable_v<Call, const char*, const zor_int*, const S*, const T*,
                                              const zor_int*, const T*, const zor_int*, T*, const zor_int*>;
  t.invoke(call, uplo, l.n, alpha, x, when<second>(y), a);
  t.some_of(l.n, l.n, [&](zor_int i, zor_int j) {
    if (!a.holds(i, j)) return;
    const bool real_only = hermitian && i == j && widened(alpha) != wide(0);
    sum_of_terms s;
    s.add(real_only ? wide(a(i, j).real()) : a(i, j));
    s.add(times(widened(alpha), times(x(i), conj_when(hermitian, y(j)))));
    if (twice) s.add(times(conj_when(hermitian, widened(alpha)), times(y(i), conj_when(hermitian, x(j)))));
    if (real_only) s.value = s.value.real();
    s.compare(t, a.now(i, j), "a", i, j);
  });
}

// x := op(A) x, and the solve, of which the residual is compared.
template <kind K, class T, class Call>
void triangular(trial& t, bool solve, Call* call) {
  const option uplo = t.letter("uplo", "ULul"), op = t.letter("trans", "NTCntc"),
               diag = t.letter("diag", "NUnu");
  const layout l = draw_triangle(t, K, uplo);
  const bool unit = diag.is('U'), plain = op.is('N');
  const stored_matrix<K, T> a(t, use::in, l, unit);
  operand<T> elements = a.data;
  for (zor_int i = 0; i < l.n && solve && !unit; ++i)
    elements.set(zor_int(l.place(i, i)), 0, zor_test::scalar<T>(3 + double(i % 3), 0.5));
  const auto x = t.strided_vector<T>("x", use::inout, l.n);
  t.invoke(call, uplo, op, diag, a.order(), a, x);
  const auto op_a = [&](zor_int i, zor_int j) {
    if (i == j && unit) return wide(1);
    const zor_int row = plain ? i : j, column = plain ? j : i;
    return a.holds(row, column) ? conj_when(op.is('C'), a(row, column)) : wide(0);
  };
  t.some_of(l.n, 1, [&](zor_int i, zor_int) {
    sum_of_terms s;
    for (zor_int j = 0; j < l.n; ++j) s.add(times(op_a(i, j), solve ? widened(x.now(j)) : x(j)));
    if (solve) s.add(-x(i));
    if (solve) s.terms += 4 * l.n;
    s.compare(t, solve ? T{} : x.now(i), solve ? "residual" : "x", i);
  });
}

// The kernels, then the routines that check and divide; their tables call some kinds otherwise.
#define ROW_XGER(name, T, conj) {#name, [](trial& t) { ger<T>(t, conj, name); }},
#define ROW_XGBMV(name, T) {#name, [](trial& t) { gbmv<T>(t, name); }},
#define ROW_XSYMV(name, T, hermitian) {#name, [](trial& t) { symv<kind::full, T>(t, hermitian, name); }},
#define ROW_XSBMV(name, T, hermitian) {#name, [](trial& t) { symv<kind::band, T>(t, hermitian, name); }},
#define ROW_XSPMV(name, T, hermitian) {#name, [](trial& t) { symv<kind::packed, T>(t, hermitian, name); }},
#define ROW_XHER(name, T, R) {#name, [](trial& t) { update<kind::full, T, R>(t, false, true, name); }},
#define ROW_XHPR(name, T, R) {#name, [](trial& t) { update<kind::packed, T, R>(t, false, true, name); }},
#define ROW_XSYR2(name, T, hermitian) \
  {#name, [](trial& t) { update<kind::full, T, T>(t, true, hermitian, name); }},
#define ROW_XSPR2(name, T, hermitian) \
  {#name, [](trial& t) { update<kind::packed, T, T>(t, true, hermitian, name); }},
#define ROW_XTRMV(name, T) {#name, [](trial& t) { triangular<kind::full, T>(t, false, name); }},
#define ROW_XTRSV(name, T) {#name, [](trial& t) { triangular<kind::full, T>(t, true, name); }},
#define ROW_XTBMV(name, T) {#name, [](trial& t) { triangular<kind::band, T>(t, false, name); }},
#define ROW_XTBSV(name, T) {#name, [](trial& t) { triangular<kind::band, T>(t, true, name); }},
#define ROW_XTPMV(name, T) {#name, [](trial& t) { triangular<kind::packed, T>(t, false, name); }},
#define ROW_XTPSV(name, T) {#name, [](trial& t) { triangular<kind::packed, T>(t, true, name); }},
const rows kernels("level 2 kernel", serial,
                   {
#include "zor/tables/blas_level2.inc"
                   });
#define ROW_XGEMV(name, T) {#name, [](trial& t) { gemv<T>(t, name); }},
#define ROW_XSYR(name, T) {#name, [](trial& t) { update<kind::full, T, T>(t, false, false, name); }},
#define ROW_SPR(name, T) {#name, [](trial& t) { update<kind::packed, T, T>(t, false, false, name); }},
const rows vector_product_kernels("gemv kernel", serial,
                                  {
#include "zor/tables/blas_matvec.inc"
                                  });
#define ROW_GEMV(name, T) {#name, [](trial& t) { gemv<T>(t, name); }},
#define ROW_SYR(name, T) {#name, [](trial& t) { update<kind::full, T, T>(t, false, false, name); }},
const rows vector_products("gemv", checked,
                           {
#include "zor/tables/core_blas.inc"
                           });
#define ROW_GER(name, T) {#name, [](trial& t) { ger<T>(t, false, name); }},
#define ROW_GERU ROW_GER
#define ROW_GERC(name, T) {#name, [](trial& t) { ger<T>(t, true, name); }},
#define ROW_GBMV(name, T) {#name, [](trial& t) { gbmv<T>(t, name); }},
#define ROW_SYMV(name, T, ...) {#name, [](trial& t) { symv<kind::full, T>(t, #name[10] == 'h', name); }},
#define ROW_HEMV ROW_SYMV
#define ROW_SBMV(name, T) {#name, [](trial& t) { symv<kind::band, T>(t, #name[10] == 'h', name); }},
#define ROW_HBMV ROW_SBMV
#define ROW_SPMV(name, T) {#name, [](trial& t) { symv<kind::packed, T>(t, #name[10] == 'h', name); }},
#define ROW_HPMV ROW_SPMV
#define ROW_HER(name, T, R) {#name, [](trial& t) { update<kind::full, T, R>(t, false, true, name); }},
#define ROW_SPR(name, T) {#name, [](trial& t) { update<kind::packed, T, T>(t, false, false, name); }},
#define ROW_HPR(name, T, R) {#name, [](trial& t) { update<kind::packed, T, R>(t, false, true, name); }},
#define ROW_SYR2(name, T, ...) \
  {#name, [](trial& t) { update<kind::full, T, T>(t, true, #name[10] == 'h', name); }},
#define ROW_HER2 ROW_SYR2
#define ROW_SPR2(name, T) \
  {#name, [](trial& t) { update<kind::packed, T, T>(t, true, #name[10] == 'h', name); }},
#define ROW_HPR2 ROW_SPR2
#define ROW_TRMV(name, T, ...) {#name, [](trial& t) { triangular<kind::full, T>(t, false, name); }},
#define ROW_TRSV(name, T, ...) {#name, [](trial& t) { triangular<kind::full, T>(t, true, name); }},
#define ROW_TBMV(name, T) {#name, [](trial& t) { triangular<kind::band, T>(t, false, name); }},
#define ROW_TBSV(name, T) {#name, [](trial& t) { triangular<kind::band, T>(t, true, name); }},
#define ROW_TPMV(name, T) {#name, [](trial& t) { triangular<kind::packed, T>(t, false, name); }},
#define ROW_TPSV(name, T) {#name, [](trial& t) { triangular<kind::packed, T>(t, true, name); }},
const rows divided("level 2", checked,
                   {
#include "zor/tables/core_matvec.inc"
                   });

}  // namespace
}  // namespace zor_fuzz
