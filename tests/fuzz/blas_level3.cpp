// SPDX-License-Identifier: MIT
// Level 3 beside the plain product: triangular, symmetric and Hermitian operands, rank updates, products of
// other kinds.
#include "tests/fuzz/matrix.h"
#include "zor/signatures/blas.h"
#include "zor/signatures/core.h"

namespace zor_fuzz {
namespace {

constexpr zor_int longest = 250;

template <class T>
const char* letters_of_op() {
  return parts<T> == 2 ? "NTC" : "NT";
}
wide conj_when(bool wanted, wide x) { return wanted ? std::conj(x) : x; }

// A value and the magnitude of its terms.
struct sum_of_terms {
  void add(wide term) {
    value += term;
    size += magnitude(term);
    ++terms;
  }
  template <class T>
  void compare(trial& t, const T& got, const char* what, zor_int i, zor_int j) const {
    t.near(got, value, size, terms, what, i, j);
  }
  wide value = 0;
  long double size = 0;
  zor_int terms = 0;
};

// B := alpha op(A) B or alpha B op(A), and the solve, in which the residual is what is compared.
template <class T>
void triangular(trial& t, bool solve, zor::xtrsm_fn<T>* call) {
  const zor_int m = t.size("m", longest), n = t.size("n", longest);
  const char side = t.letter("side", "LR"), uplo = t.letter("uplo", "UL"),
             op = t.letter("transa", letters_of_op<T>()), diag = t.letter("diag", "NU");
  const zor_int order = side == 'L' ? m : n, ldb = t.leading("ldb", m);
  const T alpha = t.scalar<T>("alpha");
  triangle<T> a(t, "a", use::in, uplo, diag == 'U', order);
  for (zor_int i = 0; i < order && solve; ++i)
    if (diag == 'N') a.stored.set(i, i, zor_test::scalar<T>(3 + double(i % 3), 0.5));
  const auto b = t.matrix<T>("b", when_scaled(alpha, true), m, n, ldb);
  t.call([&] { call(&side, &uplo, &op, &diag, &m, &n, &alpha, a.stored, &a.ld, b, &ldb); });
  const bool clears = widened(alpha) == wide(0);
  const auto op_a = [&](zor_int i, zor_int j) { return conj_when(op == 'C', op == 'N' ? a(i, j) : a(j, i)); };
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    sum_of_terms s;
    for (zor_int p = 0; p < order && !clears; ++p) {
      const zor_int row = side == 'L' ? p : i, column = side == 'L' ? j : p;
      const wide factor = side == 'L' ? op_a(i, p) : op_a(p, j);
      s.add(solve ? times(factor, widened(b.now(row, column)))
                  : times(widened(alpha), times(factor, b(row, column))));
    }
    if (solve && !clears) s.add(-times(widened(alpha), b(i, j)));
    // A solve by blocks works on sums of all that went before, so that the growth of the whole counts.
    if (solve) s.terms += 4 * order;
    s.compare(t, solve && !clears ? T{} : b.now(i, j), solve ? "residual" : "b", i, j);
  });
}

// C := alpha op(A) op(B)' + alpha' op(B) op(A)' + beta C, or the first term with B = A, in one triangle of C;
// the accents are transposes, conjugate in the Hermitian names.
template <class T, class Alpha, class S, class Invoke>
void rank_update(trial& t, bool twice, bool hermitian, const Invoke& invoke) {
  const zor_int n = t.size("n", longest), k = t.size("k", longest);
  const char uplo = t.letter("uplo", "UL"),
             op = hermitian ? t.letter("trans", "NC") : t.letter("trans", "NT");
  const turned<T> a(t, "a", op, n, k);
  const turned<T> b = twice ? turned<T>(t, "b", op, n, k) : a;
  const Alpha alpha = t.scalar<Alpha>("alpha");
  const S beta = t.scalar<S>("beta");
  triangle<T> c(t, "c", when_scaled(beta, true), uplo, false, n);
  t.call([&] { invoke(&uplo, &op, &n, &k, &alpha, a, b, &beta, c.stored.data(), &c.ld); });
  const bool nothing = (k < 1 || widened(alpha) == wide(0)) && widened(beta) == wide(1);
  t.some_of(n, n, [&](zor_int i, zor_int j) {
    if (!c.inside(i, j) && i != j) return;
    sum_of_terms s;
    const wide before = c.stored(i, j);
    if (widened(beta) != wide(0))
      s.add(times(widened(beta), hermitian && i == j && !nothing ? before.real() : before));
    for (zor_int p = 0; p < k && widened(alpha) != wide(0); ++p) {
      s.add(times(widened(alpha), times(a(i, p), conj_when(hermitian, b(j, p)))));
      if (twice)
        s.add(times(conj_when(hermitian, widened(alpha)), times(b(i, p), conj_when(hermitian, a(j, p)))));
    }
    s.compare(t, c.stored.now(i, j), "c", i, j);
  });
}
template <class T, class S>
void rank_k(trial& t, bool hermitian, zor::rank_k_fn<T, S>* call) {
  rank_update<T, S, S>(
      t, false, hermitian,
      [&](auto uplo, auto op, auto n, auto k, auto alpha, const auto& a, const auto&, auto beta, auto c,
          auto ldc) { call(uplo, op, n, k, alpha, a.stored, &a.ld, beta, c, ldc); });
}
template <class T, class S>
void rank_2k(trial& t, bool hermitian, zor::rank_2k_fn<T, S>* call) {
  rank_update<T, T, S>(
      t, true, hermitian,
      [&](auto uplo, auto op, auto n, auto k, auto alpha, const auto& a, const auto& b, auto beta, auto c,
          auto ldc) { call(uplo, op, n, k, alpha, a.stored, &a.ld, b.stored, &b.ld, beta, c, ldc); });
}

template <class T>
void symm(trial& t, bool hermitian, zor::symm_fn<T>* call) {
  const zor_int m = t.size("m", longest), n = t.size("n", longest);
  const char side = t.letter("side", "LR"), uplo = t.letter("uplo", "UL");
  const zor_int order = side == 'L' ? m : n, ldb = t.leading("ldb", m), ldc = t.leading("ldc", m);
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const triangle<T> a(t, "a", use::in, uplo, false, order);
  const auto b = t.matrix<T>("b", use::in, m, n, ldb),
             c = t.matrix<T>("c", when_scaled(beta, true), m, n, ldc);
  t.call([&] { call(&side, &uplo, &m, &n, &alpha, a.stored, &a.ld, b, &ldb, &beta, c, &ldc); });
  const auto whole = [&](zor_int i, zor_int j) {
    if (i == j) return hermitian ? wide(a(i, i).real()) : a(i, i);
    return a.inside(i, j) ? a(i, j) : conj_when(hermitian, a(j, i));
  };
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    sum_of_terms s;
    s.add(scaled(beta, c, i, j));
    for (zor_int p = 0; p < order; ++p)
      s.add(times(widened(alpha), side == 'L' ? times(whole(i, p), b(p, j)) : times(b(i, p), whole(p, j))));
    s.compare(t, c.now(i, j), "c", i, j);
  });
}

// The product of a real A and a complex B, or of two complex matrices by real products: their differences
// have larger terms, by a factor.
template <class T, class R>
void mixed(trial& t, zor::mixed_fn<T, R>* call, int factor = 1) {
  const zor_int m = t.size("m", longest), n = t.size("n", longest), k = t.size("k", longest),
                ldc = t.leading("ldc", m);
  const turned<R> a(t, "a", t.letter("transa", "NTC"), m, k);
  const turned<T> b(t, "b", t.letter("transb", "NTC"), k, n);
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const auto c = t.matrix<T>("c", when_scaled(beta, true), m, n, ldc);
  t.call([&] {
    call(&a.letter, &b.letter, &m, &n, &k, &alpha, a.stored, &a.ld, b.stored, &b.ld, &beta, c, &ldc);
  });
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    sum_of_terms s;
    s.add(scaled(beta, c, i, j));
    for (zor_int p = 0; p < k; ++p) s.add(times(widened(alpha), times(a(i, p), b(p, j))));
    s.size *= factor;
    s.compare(t, c.now(i, j), "c", i, j);
  });
}

#define ROW_TRSM(name, T, ...) {#name, [](trial& t) { triangular<T>(t, true, name); }},
#define ROW_TRMM(name, T, ...) {#name, [](trial& t) { triangular<T>(t, false, name); }},
#define ROW_SYRK(name, T, S, hermitian, ...) {#name, [](trial& t) { rank_k<T, S>(t, hermitian, name); }},
#define ROW_SYR2K(name, T, S, hermitian, ...) {#name, [](trial& t) { rank_2k<T, S>(t, hermitian, name); }},
#define ROW_PUBLIC_SYMM(name, T, ...) {#name, [](trial& t) { symm<T>(t, #name[10] == 'h', name); }},
#define ROW_PUBLIC_MIXED(name, T, R, ...) {#name, [](trial& t) { mixed<T, R>(t, name); }},
const rows divided("level 3", threaded,
                   {
#include "zor/tables/core_level3.inc"
                   });

// A block of op(X) with its parts apart, and their sums.
template <class T, class R>
void split3(trial& t, char op, zor::split3_fn<T, R>* call) {
  const zor_int rows = t.size("rows", longest), columns = t.size("columns", longest),
                row = t.draw("row", 0, 9, 0), column = t.draw("column", 0, 9, 0);
  const turned<T> x(t, "x", op, row + rows, column + columns);
  const auto re = t.vector<R>("re", use::out, rows * columns),
             im = t.vector<R>("im", use::out, rows * columns),
             sum = t.vector<R>("sum", use::out, rows * columns);
  t.call([&] { call(&rows, &columns, x.stored, &x.ld, &row, &column, re, im, sum); });
  t.some_of(rows, columns, [&](zor_int i, zor_int j) {
    const wide e = x(row + i, column + j);
    t.near(re.now(i + j * rows), e.real(), 0, 0, "re", i, j);
    t.near(im.now(i + j * rows), e.imag(), 0, 0, "im", i, j);
    t.near(sum.now(i + j * rows), e.real() + e.imag(), magnitude(e), 1, "sum", i, j);
  });
}

// The parts of alpha op(B) apart, those of C apart and joined again.
template <class T, class R>
void mixed_copyb(trial& t, zor::mixed_copyb_fn<T, R>* call) {
  const zor_int k = t.size("k", longest), n = t.size("n", longest), ld = t.leading("ld", k);
  const turned<T> b(t, "b", t.letter("transb", "NTC"), k, n);
  const T alpha = t.scalar<T>("alpha");
  const auto re = t.matrix<R>("re", use::out, k, n, ld), im = t.matrix<R>("im", use::out, k, n, ld);
  t.call([&] { call(&b.letter, &k, &n, b.stored, &b.ld, re, im, &ld, &alpha); });
  t.some_of(k, n, [&](zor_int i, zor_int j) {
    const wide exact = times(widened(alpha), b(i, j));
    const long double size = magnitude(widened(alpha)) * magnitude(b(i, j));
    t.near(re.now(i, j), exact.real(), size, 1, "re", i, j);
    t.near(im.now(i, j), exact.imag(), size, 1, "im", i, j);
  });
}
template <class T, class R, class Call>
void mixed_copyc(trial& t, Call* call) {
  constexpr bool joins = std::is_same_v<Call, zor::mixed_copyc_bwd_fn<T, R>>;
  const zor_int m = t.size("m", longest), n = t.size("n", longest), ldc = t.leading("ldc", m),
                ld = t.leading("ld", m);
  const auto c = t.matrix<T>("c", joins ? use::out : use::in, m, n, ldc);
  const auto re = t.matrix<R>("re", joins ? use::in : use::out, m, n, ld),
             im = t.matrix<R>("im", joins ? use::in : use::out, m, n, ld);
  t.call([&] { call(&m, &n, c, &ldc, re, im, &ld); });
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    for (const bool imaginary : {false, true}) {
      const R joined = part(c.now(i, j), imaginary), apart = imaginary ? im.now(i, j) : re.now(i, j);
      t.near(joined, (long double)(apart), 0, 0, "c", i, j);
    }
  });
}

#define ROW_XGEMM3M(name, T) {#name, [](trial& t) { mixed<T, T>(t, name, 5); }},
#define ROW_SPLIT3(name, T, R, form) \
  {#name, [](trial& t) { split3<T, R>(t, char(#form[0] - 'a' + 'A'), name); }},
#define ROW_MIXED_COPYB(name, T, R) {#name, [](trial& t) { mixed_copyb<T, R>(t, name); }},
#define ROW_MIXED_COPYC_FWD(name, T, R) {#name, [](trial& t) { mixed_copyc<T, R>(t, name); }},
#define ROW_MIXED_COPYC_BWD(name, T, R) {#name, [](trial& t) { mixed_copyc<T, R>(t, name); }},
const rows parts_apart("products of parts", serial,
                       {
#include "zor/tables/blas_level3.inc"
                       });

#define ROW_XTRSM(name, T) {#name, [](trial& t) { triangular<T>(t, true, name); }},
#define ROW_XTRMM(name, T) {#name, [](trial& t) { triangular<T>(t, false, name); }},
#define ROW_RANK_K(name, T, S, hermitian) {#name, [](trial& t) { rank_k<T, S>(t, hermitian, name); }},
#define ROW_RANK_2K(name, T, S, hermitian) {#name, [](trial& t) { rank_2k<T, S>(t, hermitian, name); }},
#define ROW_SYMM(name, T, kind) {#name, [](trial& t) { symm<T>(t, #kind[0] == 'h', name); }},
#define ROW_MIXED(name, T, R) {#name, [](trial& t) { mixed<T, R>(t, name); }},
#define ROW_MIXED_PST(name, T, R) {#name, [](trial& t) { mixed<T, R>(t, name); }},
const rows kernels("level 3 kernel", serial,
                   {
#include "zor/tables/blas_level3.inc"
                   });

#define ROW_TRMM(name, T) {#name, [](trial& t) { triangular<T>(t, false, name); }},
const rows beside("level 3", threaded,
                  {
#include "zor/tables/core_generic.inc"
                  });

}  // namespace
}  // namespace zor_fuzz
