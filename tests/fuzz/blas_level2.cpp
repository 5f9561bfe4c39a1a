// SPDX-License-Identifier: MIT
// The rest of Level 2: band, symmetric and triangular matrices with one vector, rank updates. A stored matrix
// is an operand of which only the elements that belong to it are live.
#include "tests/fuzz/matrix.h"
#include "tests/ref/level2.h"
#include "zor/signatures/blas.h"

namespace zor_fuzz {
namespace {

using zor_ref::layout;
using kind = layout::kind;
constexpr zor_int longest = 200;

wide conj_when(bool wanted, wide x) { return wanted ? std::conj(x) : x; }

template <class T>
struct stored_matrix {
  layout l;
  operand<T> data;

  stored_matrix(trial& t, use how, const layout& stored, bool unit = false)
      : l(stored), data(t.scattered<T>("a", how, zor_int(l.size()), live_places(stored, unit))) {}
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

struct sum_of_terms {
  void add(wide term) {
    value += term;
    size += magnitude(term);
    ++terms;
  }
  wide value = 0;
  long double size = 0;
  zor_int terms = 0;
};

layout draw_triangle(trial& t, kind stored, char uplo) {
  const zor_int n = t.size("n", longest), k = stored == kind::band ? t.size("k", 60) : n - 1;
  const zor_int lda = stored == kind::packed ? n : t.leading("lda", stored == kind::band ? k + 1 : n);
  return layout::triangle(stored, uplo == 'U' || uplo == 'u', n, k, lda);
}

template <class T>
void ger(trial& t, bool conjugate, zor::xger_fn<T>* call) {
  const zor_int m = t.size("m", 400), n = t.size("n", 400), lda = t.leading("lda", m);
  const zor_int incx = t.increment("incx"), incy = t.increment("incy");
  const T alpha = t.scalar<T>("alpha");
  const auto x = t.vector<T>("x", use::in, m, incx), y = t.vector<T>("y", use::in, n, incy);
  const auto a = t.matrix<T>("a", use::inout, m, n, lda);
  t.call([&] { call(&m, &n, &alpha, x, &incx, y, &incy, a, &lda); });
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    const wide term = times(widened(alpha), times(x(i), conj_when(conjugate, y(j))));
    t.near(a.now(i, j), a(i, j) + term, magnitude(a(i, j)) + magnitude(term), 2, "a", i, j);
  });
}

template <class T>
void gbmv(trial& t, zor::xgbmv_fn<T>* call) {
  const zor_int m = t.size("m", longest), n = t.size("n", longest), kl = t.size("kl", 40),
                ku = t.size("ku", 40), lda = t.leading("lda", kl + ku + 1);
  const char trans = t.letter("trans", "NTCntc");
  const bool plain = trans == 'N' || trans == 'n', conjugate = trans == 'C' || trans == 'c';
  const zor_int incx = t.increment("incx"), incy = t.increment("incy");
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const stored_matrix<T> a(t, use::in, {kind::band, false, m, n, kl, ku, lda});
  const zor_int inputs = plain ? n : m, outputs = plain ? m : n;
  const auto x = t.vector<T>("x", use::in, inputs, incx);
  const auto y = t.vector<T>("y", when_scaled(beta, m > 0 && n > 0), outputs, incy);
  t.call([&] { call(&trans, &m, &n, &kl, &ku, &alpha, a.data, &lda, x, &incx, &beta, y, &incy); });
  if (m < 1 || n < 1) return;
  t.some_of(outputs, 1, [&](zor_int i, zor_int) {
    sum_of_terms s;
    s.add(scaled(beta, y, i));
    // The sum of a column that the band does not meet is multiplied too.
    s.add(times(widened(alpha), 0));
    for (zor_int j = 0; j < inputs; ++j) {
      const zor_int row = plain ? i : j, column = plain ? j : i;
      if (a.holds(row, column))
        s.add(times(widened(alpha), times(conj_when(conjugate, a(row, column)), x(j))));
    }
    t.near(y.now(i), s.value, s.size, s.terms, "y", i);
  });
}

template <class T, class Call>
void symv(trial& t, kind stored, bool hermitian, const Call& call) {
  const char uplo = t.letter("uplo", "ULul");
  const layout l = draw_triangle(t, stored, uplo);
  const zor_int incx = t.increment("incx"), incy = t.increment("incy");
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const stored_matrix<T> a(t, use::in, l);
  const auto x = t.vector<T>("x", use::in, l.n, incx);
  const auto y = t.vector<T>("y", when_scaled(beta, l.n > 0), l.n, incy);
  t.call([&] { call(&uplo, l, &alpha, a.data.data(), x.data(), &incx, &beta, y.data(), &incy); });
  t.some_of(l.n, 1, [&](zor_int i, zor_int) {
    sum_of_terms s;
    s.add(scaled(beta, y, i));
    for (zor_int j = 0; j < l.n; ++j) {
      wide e = 0;
      if (i == j)
        e = hermitian ? wide(a(i, i).real()) : a(i, i);
      else if (a.holds(i, j))
        e = a(i, j);
      else if (a.holds(j, i))
        e = conj_when(hermitian, a(j, i));
      else
        continue;
      s.add(times(widened(alpha), times(e, x(j))));
    }
    t.near(y.now(i), s.value, s.size, s.terms + 1, "y", i);
  });
}

// Rank one (y is x, the second term left out) and rank two.
template <class T, class S, class Call>
void update(trial& t, kind stored, bool twice, bool hermitian, const Call& call) {
  const char uplo = t.letter("uplo", "ULul");
  const layout l = draw_triangle(t, stored, uplo);
  const zor_int incx = t.increment("incx"), incy = twice ? t.increment("incy") : incx;
  const S alpha = t.scalar<S>("alpha");
  const auto x = t.vector<T>("x", use::in, l.n, incx);
  const auto y = twice ? t.vector<T>("y", use::in, l.n, incy) : x;
  const stored_matrix<T> a(t, use::inout, l);
  t.call([&] { call(&uplo, l, &alpha, x.data(), &incx, y.data(), &incy, a.data.data()); });
  t.some_of(l.n, l.n, [&](zor_int i, zor_int j) {
    if (!a.holds(i, j)) return;
    const bool real_only = hermitian && i == j && widened(alpha) != wide(0);
    sum_of_terms s;
    s.add(real_only ? wide(a(i, j).real()) : a(i, j));
    s.add(times(widened(alpha), times(x(i), conj_when(hermitian, y(j)))));
    if (twice) s.add(times(conj_when(hermitian, widened(alpha)), times(y(i), conj_when(hermitian, x(j)))));
    t.near(a.now(i, j), real_only ? wide(s.value.real()) : s.value, s.size, s.terms, "a", i, j);
  });
}

// x := op(A) x, and the solve, of which the residual is compared.
template <class T, class Call>
void triangular(trial& t, kind stored, bool solve, const Call& call) {
  const char uplo = t.letter("uplo", "ULul"), op = t.letter("trans", "NTCntc"),
             diag = t.letter("diag", "NUnu");
  const layout l = draw_triangle(t, stored, uplo);
  const bool unit = diag == 'U' || diag == 'u', plain = op == 'N' || op == 'n',
             conjugate = op == 'C' || op == 'c';
  const zor_int incx = t.increment("incx");
  const stored_matrix<T> a(t, use::in, l, unit);
  operand<T> elements = a.data;
  for (zor_int i = 0; i < l.n && solve && !unit; ++i)
    elements.set(zor_int(l.place(i, i)), 0, zor_test::scalar<T>(3 + double(i % 3), 0.5));
  const auto x = t.vector<T>("x", use::inout, l.n, incx);
  t.call([&] { call(&uplo, &op, &diag, l, a.data.data(), x.data(), &incx); });
  const auto op_a = [&](zor_int i, zor_int j) {
    if (i == j && unit) return wide(1);
    const zor_int row = plain ? i : j, column = plain ? j : i;
    return a.holds(row, column) ? conj_when(conjugate, a(row, column)) : wide(0);
  };
  t.some_of(l.n, 1, [&](zor_int i, zor_int) {
    sum_of_terms s;
    for (zor_int j = 0; j < l.n; ++j) s.add(times(op_a(i, j), solve ? widened(x.now(j)) : x(j)));
    if (solve) s.add(-x(i));
    if (solve) s.terms += 4 * l.n;
    t.near(solve ? T{} : x.now(i), s.value, s.size, s.terms, solve ? "residual" : "x", i);
  });
}

#define TRIANGULAR(name, T, stored, solve, ...)                                                   \
  {#name, [](trial& t) {                                                                          \
     triangular<T>(t, stored, solve,                                                              \
                   [](auto uplo, auto op, auto diag, const layout& l, const T* a, auto... rest) { \
                     const zor_int k = l.kl + l.ku;                                               \
                     (void)k;                                                                     \
                     name(uplo, op, diag, &l.n, __VA_ARGS__, rest...);                            \
                   });                                                                            \
   }},
#define SYMMETRIC(name, T, stored, hermitian, ...)                                                   \
  {#name, [](trial& t) {                                                                             \
     symv<T>(t, stored, hermitian,                                                                   \
             [](auto uplo, const layout& l, auto alpha, const T* a, auto... rest) { __VA_ARGS__; }); \
   }},
#define UPDATE(name, T, S, stored, twice, hermitian, ...)                                                  \
  {#name, [](trial& t) {                                                                                   \
     update<T, S>(t, stored, twice, hermitian,                                                             \
                  [](auto uplo, const layout& l, auto alpha, auto x, auto incx, auto y, auto incy, T* a) { \
                    (void)y, (void)incy;                                                                   \
                    name(uplo, &l.n, alpha, __VA_ARGS__);                                                  \
                  });                                                                                      \
   }},

#define ROW_XGER(name, T, conj) {#name, [](trial& t) { ger<T>(t, conj, name); }},
#define ROW_XGBMV(name, T) {#name, [](trial& t) { gbmv<T>(t, name); }},
#define ROW_XSYMV(name, T, hermitian) \
  SYMMETRIC(name, T, kind::full, hermitian, name(uplo, &l.n, alpha, a, &l.lda, rest...))
#define ROW_XSBMV(name, T, hermitian)                                      \
  SYMMETRIC(name, T, kind::band, hermitian, const zor_int k = l.kl + l.ku; \
            name(uplo, &l.n, &k, alpha, a, &l.lda, rest...))
#define ROW_XSPMV(name, T, hermitian) \
  SYMMETRIC(name, T, kind::packed, hermitian, name(uplo, &l.n, alpha, a, rest...))
#define ROW_XHER(name, T, R) UPDATE(name, T, R, kind::full, false, true, x, incx, a, &l.lda)
#define ROW_XHPR(name, T, R) UPDATE(name, T, R, kind::packed, false, true, x, incx, a)
#define ROW_XSYR2(name, T, hermitian) \
  UPDATE(name, T, T, kind::full, true, hermitian, x, incx, y, incy, a, &l.lda)
#define ROW_XSPR2(name, T, hermitian) UPDATE(name, T, T, kind::packed, true, hermitian, x, incx, y, incy, a)
#define ROW_XTRMV(name, T) TRIANGULAR(name, T, kind::full, false, a, &l.lda)
#define ROW_XTRSV(name, T) TRIANGULAR(name, T, kind::full, true, a, &l.lda)
#define ROW_XTBMV(name, T) TRIANGULAR(name, T, kind::band, false, &k, a, &l.lda)
#define ROW_XTBSV(name, T) TRIANGULAR(name, T, kind::band, true, &k, a, &l.lda)
#define ROW_XTPMV(name, T) TRIANGULAR(name, T, kind::packed, false, a)
#define ROW_XTPSV(name, T) TRIANGULAR(name, T, kind::packed, true, a)
const rows kernels("level 2 kernel", serial,
                   {
#include "zor/tables/blas_level2.inc"
                   });

}  // namespace
}  // namespace zor_fuzz
