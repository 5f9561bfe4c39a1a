// SPDX-License-Identifier: MIT
// Level 3 beside the products: triangular, symmetric and Hermitian operands, rank updates, parts of matrices.
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

// B := alpha op(A) B or alpha B op(A), and the solve, in which the residual is what is compared.
template <class T>
void triangular(trial& t, bool solve, zor::xtrsm_fn<T>* call) {
  const zor_int m = t.size("m", longest), n = t.size("n", longest);
  const option side = t.letter("side", "LR"), uplo = t.letter("uplo", "UL"),
               op = t.letter("transa", letters_of_op<T>()), diag = t.letter("diag", "NU");
  const bool left = side.is('L');
  const zor_int order = left ? m : n;
  const T alpha = t.scalar<T>("alpha");
  triangle<T> a(t, "a", use::in, uplo, diag.is('U'), order);
  for (zor_int i = 0; i < order && solve && diag.is('N'); ++i)
    a.stored.set(i, i, zor_test::scalar<T>(3 + double(i % 3), 0.5));
  const auto b = t.matrix<T>("b", when_scaled(alpha), m, n);
  t.invoke(call, side, uplo, op, diag, m, n, alpha, a, b);
  const bool clears = widened(alpha) == wide(0);
  const auto op_a = [&](zor_int i, zor_int j) {
    return conj_when(op.is('C'), op.is('N') ? a(i, j) : a(j, i));
  };
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    sum_of_terms s;
    for (zor_int p = 0; p < order && !clears; ++p) {
      const zor_int row = left ? p : i, column = left ? j : p;
      const wide factor = left ? op_a(i, p) : op_a(p, j);
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
template <class T, class S, class Call>
void rank_update(trial& t, bool hermitian, Call* call) {
  constexpr bool twice = std::is_same_v<Call, zor::rank_2k_fn<T, S>>;
  const zor_int n = t.size("n", longest), k = t.size("k", longest);
  const option uplo = t.letter("uplo", "UL"), op = t.letter("trans", hermitian ? "NC" : "NT");
  const operand_of<T> a(t, "a", op, n, k), b = twice ? operand_of<T>(t, "b", op, n, k) : a;
  const auto alpha = t.scalar<std::conditional_t<twice, T, S>>("alpha");
  const S beta = t.scalar<S>("beta");
  triangle<T> c(t, "c", when_scaled(beta), uplo, false, n);
  t.invoke(call, uplo, op, n, k, alpha, a, when<twice>(b), beta, c);
  const bool nothing = (k < 1 || widened(alpha) == wide(0)) && widened(beta) == wide(1);
  t.some_of(n, n, [&](zor_int i, zor_int j) {
    if (!c.holds(i, j)) return;
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

template <class T>
void symm(trial& t, bool hermitian, zor::symm_fn<T>* call) {
  const zor_int m = t.size("m", longest), n = t.size("n", longest);
  const option side = t.letter("side", "LR"), uplo = t.letter("uplo", "UL");
  const bool left = side.is('L');
  const zor_int order = left ? m : n;
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const triangle<T> a(t, "a", use::in, uplo, false, order);
  const auto b = t.matrix<T>("b", use::in, m, n), c = t.matrix<T>("c", when_scaled(beta), m, n);
  t.invoke(call, side, uplo, m, n, alpha, a, b, beta, c);
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    sum_of_terms s;
    s.add(scaled(beta, c, i, j));
    for (zor_int p = 0; p < order; ++p)
      s.add(times(widened(alpha), left ? times(a.mirrored(hermitian, i, p), b(p, j))
                                       : times(b(i, p), a.mirrored(hermitian, p, j))));
    s.compare(t, c.now(i, j), "c", i, j);
  });
}

#define ROW_TRSM(name, T, ...) {#name, [](trial& t) { triangular<T>(t, true, name); }},
#define ROW_TRMM(name, T, ...) {#name, [](trial& t) { triangular<T>(t, false, name); }},
#define ROW_SYRK(name, T, S, hermitian, ...) {#name, [](trial& t) { rank_update<T, S>(t, hermitian, name); }},
#define ROW_SYR2K ROW_SYRK
#define ROW_PUBLIC_SYMM(name, T, ...) {#name, [](trial& t) { symm<T>(t, #name[10] == 'h', name); }},
const rows divided("level 3", checked,
                   {
#include "zor/tables/core_level3.inc"
                   });

// A block of op(X) with its parts apart, and their sums.
template <class T, class R>
void split3(trial& t, option op, zor::split3_fn<T, R>* call) {
  const zor_int rows = t.size("rows", longest), columns = t.size("columns", longest),
                row = t.draw("row", 0, 9, 0), column = t.draw("column", 0, 9, 0);
  const operand_of<T> x(t, "x", op, row + rows, column + columns);
  const auto re = t.vector<R>("re", use::out, rows * columns),
             im = t.vector<R>("im", use::out, rows * columns),
             sum = t.vector<R>("sum", use::out, rows * columns);
  t.invoke(call, rows, columns, x, row, column, re, im, sum);
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
  const zor_int k = t.size("k", longest), n = t.size("n", longest);
  const leading_dimension ld = t.leading("ld", k);
  const operand_of<T> b(t, "b", t.letter("transb", "NTC"), k, n);
  const T alpha = t.scalar<T>("alpha");
  const operand<R> re = t.matrix<R>("re", use::out, k, n, ld), im = t.matrix<R>("im", use::out, k, n, ld);
  t.invoke(call, b.op, k, n, b, re, im, ld, alpha);
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
  const zor_int m = t.size("m", longest), n = t.size("n", longest);
  const leading_dimension ld = t.leading("ld", m);
  const auto c = t.matrix<T>("c", joins ? use::out : use::in, m, n);
  const operand<R> re = t.matrix<R>("re", joins ? use::in : use::out, m, n, ld),
                   im = t.matrix<R>("im", joins ? use::in : use::out, m, n, ld);
  t.invoke(call, m, n, c, re, im, ld);
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    for (const bool imaginary : {false, true}) {
      const R joined = part(c.now(i, j), imaginary), apart = imaginary ? im.now(i, j) : re.now(i, j);
      t.near(joined, (long double)(apart), 0, 0, "c", i, j);
    }
  });
}

#define ROW_SPLIT3(name, T, R, form) \
  {#name, [](trial& t) { split3<T, R>(t, {char(#form[0] - 'a' + 'A'), "", 0}, name); }},
#define ROW_MIXED_COPYB(name, T, R) {#name, [](trial& t) { mixed_copyb<T, R>(t, name); }},
#define ROW_MIXED_COPYC_FWD(name, T, R) {#name, [](trial& t) { mixed_copyc<T, R>(t, name); }},
#define ROW_MIXED_COPYC_BWD(name, T, R) {#name, [](trial& t) { mixed_copyc<T, R>(t, name); }},
const rows parts_apart("products of parts", serial,
                       {
#include "zor/tables/blas_level3.inc"
                       });

#define ROW_XTRSM(name, T) {#name, [](trial& t) { triangular<T>(t, true, name); }},
#define ROW_XTRMM(name, T) {#name, [](trial& t) { triangular<T>(t, false, name); }},
#define ROW_RANK_K(name, T, S, hermitian) {#name, [](trial& t) { rank_update<T, S>(t, hermitian, name); }},
#define ROW_RANK_2K ROW_RANK_K
#define ROW_SYMM(name, T, kind) {#name, [](trial& t) { symm<T>(t, #kind[0] == 'h', name); }},
const rows kernels("level 3 kernel", serial,
                   {
#include "zor/tables/blas_level3.inc"
                   });

#define ROW_TRMM(name, T) {#name, [](trial& t) { triangular<T>(t, false, name); }},
const rows beside("forwarded product", threaded,
                  {
#include "zor/tables/core_generic.inc"
                  });

}  // namespace
}  // namespace zor_fuzz
