// SPDX-License-Identifier: MIT
// LAPACK kernels and the entries above them. Elementwise ones and the residuals of solves are compared with
// wide arithmetic; of the others, whose errors depend on the matrix, the frame compares builds, positions,
// modes and threads, and what lies around the operands.
#include "zor/signatures/lapack.h"
#include "tests/fuzz/matrix.h"

namespace zor_fuzz {
namespace {

// ---- Rotations and reflectors.

template <class T, class Call>
void lasr(trial& t, Call* call) {
  const zor_int m = t.size("m", 90), n = t.size("n", 60), count = m > 1 ? m - 1 : 0;
  const auto c = t.vector<real<T>>("c", use::in, count), s = t.vector<real<T>>("s", use::in, count);
  t.invoke(call, m, n, c, s, t.matrix<T>("a", use::inout, m, n));
}

template <class T, class Call>
void lartv(trial& t, Call* call) {
  const zor_int n = t.size("n", 300), incx = t.draw("incx", 1, 3, 1), incy = t.draw("incy", 1, 3, 1),
                incc = t.draw("incc", 1, 3, 1);
  const auto x = t.vector<T>("x", use::inout, n, incx), y = t.vector<T>("y", use::inout, n, incy),
             s = t.vector<T>("s", use::in, n, incc);
  const auto c = t.vector<real<T>>("c", use::in, n, incc);
  t.invoke(call, n, x, incx, y, incy, c, s, incc);
  t.some_of(n, 1, [&](zor_int i, zor_int) {
    const wide cs = c(i);
    const long double size = 2 * (magnitude(cs) + magnitude(s(i))) * (magnitude(x(i)) + magnitude(y(i)));
    t.near(x.now(i), times(cs, x(i)) + times(s(i), y(i)), size, 4, "x", i);
    t.near(y.now(i), times(cs, y(i)) - times(std::conj(s(i)), x(i)), size, 4, "y", i);
  });
}

template <class T, bool Three, class Call>
void reflect(trial& t, Call* call) {
  const zor_int n = t.size("n", 300);
  const T tau = t.scalar<T>("tau"), h1 = t.scalar<T>("h1"), h2 = Three ? t.scalar<T>("h2") : T{};
  const auto x = t.vector<T>("x", use::inout, n), y = t.vector<T>("y", use::inout, n),
             z = t.vector<T>("z", use::inout, Three ? n : 0);
  t.invoke(call, n, x, nullptr, y, nullptr, when<Three>(z), when<Three>(nullptr), tau, h1, when<Three>(h2));
  t.some_of(n, 1, [&](zor_int i, zor_int) {
    const wide third = Three ? times(widened(h2), z(i)) : wide{};
    const wide f = times(widened(tau), x(i) + times(widened(h1), y(i)) + third);
    const long double sum =
        magnitude(x(i)) + 2 * magnitude(widened(h1)) * magnitude(y(i)) + 2 * magnitude(third);
    const long double size = 2 * magnitude(widened(tau)) * sum * (1 + 2 * magnitude(widened(h1)));
    t.near(x.now(i), x(i) - f, size + magnitude(x(i)), 8, "x", i);
    t.near(y.now(i), y(i) - times(std::conj(widened(h1)), f), size + magnitude(y(i)), 8, "y", i);
  });
}

template <class T, class Call>
void larfx(trial& t, Call* call) {
  const option side = t.letter("side", "LRlr");
  const zor_int m = t.size("m", 40), n = t.size("n", 40), order = side.is('L') ? m : n;
  const T tau = t.scalar<T>("tau");
  const auto v = t.vector<T>("v", use::in, order), work = t.vector<T>("work", use::inout, m + n - order);
  t.invoke(call, side, m, n, v, tau, t.matrix<T>("c", use::inout, m, n), work);
}

// ---- Tridiagonal matrices.

template <class T>
struct tridiagonal {
  explicit tridiagonal(trial& t, use matrix)
      : n(t.size("n", 80)),
        nrhs(t.size("nrhs", 20)),
        dl(t.vector<T>("dl", matrix, n > 0 ? n - 1 : 0)),
        d(t.vector<T>("d", matrix, n)),
        du(t.vector<T>("du", matrix, n > 0 ? n - 1 : 0)),
        b(t.matrix<T>("b", use::inout, n, nrhs)) {}
  zor_int n, nrhs;
  operand<T> dl, d, du;
  dense<T> b;
};
zor_int* info_of(trial& t) { return t.room<zor_int>("info", use::out, 1); }

template <class T, class Call>
void dttrf(trial& t, Call* call) {
  constexpr bool kernel = std::is_same_v<Call, zor::dttrfb_fn<T>>;
  const tridiagonal<T> m(t, use::inout);
  zor_int* const told = kernel ? info_of(t) : nullptr;
  if constexpr (kernel)
    t.invoke(call, m.n, m.dl, m.d, m.du, told);
  else
    t.result(t.invoke(call, m.n, m.dl, m.d, m.du));
  t.expect(!kernel || *told <= m.n, "info names a row");
}
template <class T, class Call>
void dttrs(trial& t, Call* call) {
  const tridiagonal<T> m(t, use::in);
  const option trans = t.letter("trans", "NTCntc");
  constexpr bool kernel = std::is_same_v<Call, zor::dttrsb_fn<T>>;
  t.invoke(call, trans, m.n, m.nrhs, m.dl, m.d, m.du, m.b, when<kernel>(kernel ? info_of(t) : nullptr));
}
// Both at once, with and without interchanges.
template <class T, class R, class... P>
void eliminate(trial& t, R (*call)(P...)) {
  const tridiagonal<T> m(t, use::inout);
  if constexpr (std::is_void_v<R>)
    t.invoke(call, m.n, m.nrhs, m.dl, m.d, m.du, m.b, info_of(t));
  else
    t.result(t.invoke(call, m.n, m.nrhs, m.dl, m.d, m.du, m.b));
}
template <class T, class Call>
void gtts2(trial& t, Call* call) {
  const zor_int itrans = t.draw("itrans", 0, 2, 0);
  const tridiagonal<T> m(t, use::in);
  const auto du2 = t.vector<T>("du2", use::in, m.n > 2 ? m.n - 2 : 0);
  random_bits pattern = t.random("interchanges");
  std::vector<zor_int> ipiv;
  for (zor_int i = 0; i < m.n; ++i) ipiv.push_back(i + 1 + (i + 1 < m.n && pattern.next() % 3 == 0));
  t.invoke(call, itrans, m.n, m.nrhs, m.dl, m.d, m.du, du2, t.integers("ipiv", ipiv), m.b);
}
template <class T, class Call>
void ptts2(trial& t, Call* call) {
  const tridiagonal<T> m(t, use::in);
  const auto d = t.vector<real<T>>("real d", use::in, m.n);
  t.invoke(call, when<parts<T> == 2>(t.draw("iuplo", 0, 1, 0)), m.n, m.nrhs, d, m.dl, m.b);
}

// ---- Triangles, one or many.

// Matrices of order n, a stride apart, of which one triangle is in use; most have a large diagonal.
template <class T>
struct batch {
  batch(trial& t, use how, option letter, bool many, zor_int longest)
      : uplo(letter),
        n(t.size("n", longest)),
        count(many ? t.size("count", 20) : 1),
        large(t.draw("large", 0, 3, 1) > 0),
        ld(t.leading("lda", n)),
        stride(ld * n + t.draw("gap", 0, 3, 0)),
        a(t.scattered<T>("a", how, many ? count * stride : ld * n, [&](zor_int i) {
          const zor_int row = i % std::max<zor_int>(stride, 1) % ld,
                        column = i % std::max<zor_int>(stride, 1) / ld;
          return row < n && column < n && (uplo.is('U') ? row <= column : row >= column);
        })) {
    for (zor_int k = 0; k < count && large; ++k)
      for (zor_int i = 0; i < n; ++i)
        a.set(k * stride + i + i * ld, 0, zor_test::scalar<T>(double(70 * n), 0));
  }
  option uplo;
  zor_int n, count;
  bool large;
  leading_dimension ld;
  zor_int stride;
  operand<T> a;
};
template <class T>
struct sides {
  sides(trial& t, const batch<T>& a)
      : nrhs(t.size("nrhs", 9)), b(t.matrix<T>("b", use::inout, a.n, nrhs * a.count)), stride(b.ld * nrhs) {}
  zor_int nrhs;
  dense<T> b;
  zor_int stride;
};

// potrf and sytrf, whose kernels have a name for each triangle.
template <class T, bool Pivots, class R, class... P>
void factor(trial& t, option uplo, bool many, R (*call)(P...)) {
  constexpr bool kernel = std::is_void_v<R>, batches = !kernel && sizeof...(P) > 5;
  const batch<T> m(t, use::inout, uplo, many, 60);
  zor_int* const ipiv = Pivots ? t.room<zor_int>("ipiv", use::out, size_t(m.n * m.count)) : nullptr;
  zor_int* const info =
      t.room<zor_int>("info", kernel ? use::inout : use::out, many || kernel ? size_t(m.count) : 0);
  if (kernel) *info = 0;
  const auto run = [&] {
    return t.invoke(call, uplo, m.n, m.a, m.ld, when<batches>(any{m.stride}), when<Pivots>(ipiv),
                    when<batches>(m.count), when < kernel || batches > (info));
  };
  if constexpr (kernel)
    run();
  else
    t.result(run());
  t.expect(!kernel || (*info >= 0 && *info <= m.n), "info names a pivot");
}
// The solves with the factors: any triangle with a large diagonal serves, and pivots that exchange nothing.
template <class T, bool Pivots, class R, class... P>
void solve(trial& t, bool many, R (*call)(P...)) {
  const batch<T> m(t, use::in, t.letter("uplo", "ULul"), many, 30);
  const sides<T> s(t, m);
  std::vector<zor_int> pivots;
  for (zor_int i = 0; i < m.n * m.count && Pivots; ++i) pivots.push_back(i % m.n + 1);
  const zor_int* const ipiv = t.integers("ipiv", pivots);
  const zor_int* const info = t.integers("info", std::vector<zor_int>(many ? size_t(m.count) : 0, 0));
  constexpr bool batches = sizeof...(P) > 8;
  t.invoke(call, m.uplo, m.n, s.nrhs, m.a, m.ld, when<batches>(any{m.stride}), when<Pivots>(ipiv), s.b,
           when<batches>(any{s.stride}), when<batches>(m.count), when<batches>(info));
  if (Pivots || !m.large || !t.plain_data()) return;
  // Element (i, j) of the lower factor of matrix k.
  const auto lower = [&](zor_int k, zor_int i, zor_int j) {
    if (i < j) return wide(0);
    const zor_int row = m.uplo.is('U') ? j : i, column = m.uplo.is('U') ? i : j;
    const wide e = conj_when(m.uplo.is('U'), m.a(k * m.stride + row + column * m.ld));
    return i == j ? wide(e.real()) : e;
  };
  t.some_of(m.n, s.nrhs * m.count, [&](zor_int i, zor_int j) {
    sum_of_terms sum;
    const zor_int k = j / s.nrhs;
    for (zor_int p = 0; p <= i; ++p)
      for (zor_int q = p; q < m.n; ++q)
        sum.add(times(lower(k, i, p), times(std::conj(lower(k, q, p)), widened(s.b.now(q, j)))));
    sum.add(-s.b(i, j));
    sum.compare(t, T{}, "residual", i, j);
  });
}

// A X = B with residuals in twice the precision: what is left is that of the last rounding.
template <class T, class Call>
void refined(trial& t, Call* call) {
  const option kind = t.letter("kind", "GUL");
  const zor_int n = t.size("n", 40), nrhs = t.size("nrhs", 5);
  const bool general = kind.is('G');
  triangle<T> half(t, "a", use::in, kind, false, general ? 0 : n);
  const dense<T> a = general ? t.matrix<T>("g", use::in, n, n) : half.stored;
  operand<T> elements = a;
  for (zor_int i = 0; i < n; ++i) elements.set(i, i, zor_test::scalar<T>(0x1p18 * double(n), 0));
  const auto b = t.matrix<T>("b", use::in, n, nrhs), x = t.matrix<T>("x", use::inout, n, nrhs);
  const zor_int status = t.invoke(call, kind, n, nrhs, a, b, x, nullptr, nullptr);
  t.result(status);
  if (!t.plain_data()) return;
  t.some_of(n, nrhs, [&](zor_int i, zor_int j) {
    t.expect(status == 0, "status " + std::to_string(status));
    sum_of_terms s;
    for (zor_int p = 0; p < n; ++p)
      s.add(times(general ? a(i, p) : half.mirrored(parts<T> == 2, i, p), widened(x.now(p, j))));
    s.add(-b(i, j));
    s.compare(t, T{}, "residual", i, j);
  });
}

// ---- Panels: k columns of one triangle, from the diagonal on.

struct panel {
  explicit panel(trial& t) : uplo(t.letter("uplo", "ULul")), n(t.size("n", 80)), k(t.draw("k", 0, n, n)) {}
  option uplo;
  zor_int n, k;
};
template <class T, class Call>
void symv(trial& t, Call* call) {
  const panel p(t);
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const auto a = t.matrix<T>("a", use::in, p.n, p.n);
  const auto x = t.vector<T>("x", use::in, p.n), y = t.vector<T>("y", use::inout, p.n);
  t.invoke(call, p.uplo, p.n, p.k, alpha, a, x, nullptr, beta, y);
}
template <class T, class Call>
void syr2(trial& t, Call* call) {
  const panel p(t);
  const T alpha = t.scalar<T>("alpha");
  const auto x = t.vector<T>("x", use::in, p.n), y = t.vector<T>("y", use::in, p.n);
  t.invoke(call, p.uplo, p.n, p.k, alpha, x, nullptr, y, nullptr, t.matrix<T>("a", use::inout, p.n, p.n));
}
template <class T, class Call>
void syr2k(trial& t, Call* call) {
  const panel p(t);
  const zor_int depth = t.size("depth", 20);
  const auto a = t.matrix<T>("a", use::in, p.n, depth), b = t.matrix<T>("b", use::in, p.n, depth),
             c = t.matrix<T>("c", use::inout, p.n, p.n);
  t.invoke(call, p.uplo, nullptr, p.n, depth, p.k, nullptr, a, b, nullptr, c);
}
template <class T, class Call>
void spr(trial& t, Call* call) {
  const option uplo = t.letter("uplo", "ULul");
  const zor_int n = t.size("n", 60);
  const T alpha = t.scalar<T>("alpha");
  const auto x = t.strided_vector<T>("x", use::in, n);
  t.invoke(call, uplo, n, alpha, x, t.vector<T>("ap", use::inout, n * (n + 1) / 2));
}

option triangle_of(bool upper) { return {upper ? 'U' : 'L', "", 0}; }
#define ROW_LASR(name, T, ...) {#name, [](trial& t) { lasr<T>(t, name); }},
#define ROW_LARTV(name, T, R) {#name, [](trial& t) { lartv<T>(t, name); }},
#define ROW_ROT2(name, T) {#name, [](trial& t) { reflect<T, false>(t, name); }},
#define ROW_ROT3(name, T) {#name, [](trial& t) { reflect<T, true>(t, name); }},
#define ROW_DTTRFB(name, T) {#name, [](trial& t) { dttrf<T>(t, name); }},
#define ROW_DTTRSB(name, T) {#name, [](trial& t) { dttrs<T>(t, name); }},
#define ROW_DTSVB(name, T) {#name, [](trial& t) { eliminate<T>(t, name); }},
#define ROW_GTSV_SMALL(name, T) {#name, [](trial& t) { eliminate<T>(t, name); }},
#define ROW_GTTS2(name, T) {#name, [](trial& t) { gtts2<T>(t, name); }},
#define ROW_PTTS2(name, T, ...) {#name, [](trial& t) { ptts2<T>(t, name); }},
#define ROW_COMPLEX_PTTS2 ROW_PTTS2
#define ROW_POTRF_SMALL(name, T, upper) \
  {#name, [](trial& t) { factor<T, false>(t, triangle_of(upper), false, name); }},
#define ROW_SYTRF_SMALL(name, T, upper) \
  {#name, [](trial& t) { factor<T, true>(t, triangle_of(upper), false, name); }},
#define ROW_SYMV_NB(name, T) {#name, [](trial& t) { symv<T>(t, name); }},
#define ROW_SYR2_NB(name, T) {#name, [](trial& t) { syr2<T>(t, name); }},
#define ROW_SYR2K_NB(name, T) {#name, [](trial& t) { syr2k<T>(t, name); }},
#define ROW_LARFX(name, T) {#name, [](trial& t) { larfx<T>(t, name); }},
#define ROW_CSPR(name, T) {#name, [](trial& t) { spr<T>(t, name); }},
const rows kernels("LAPACK kernel", serial,
                   {
#include "zor/tables/lapack.inc"
                   });

#define FACTOR(name, T, pivots, many) \
  {#name, [](trial& t) { factor<T, pivots>(t, t.letter("uplo", "ULul"), many, name); }},
#define ROW_VALUE_POTRF(name, T) FACTOR(name, T, false, false)
#define ROW_VALUE_SYTRF(name, T) FACTOR(name, T, true, false)
#define ROW_POTRF_BATCH(name, T) FACTOR(name, T, false, true)
#define ROW_SYTRF_BATCH(name, T) FACTOR(name, T, true, true)
#define ROW_VALUE_POTRS(name, T) {#name, [](trial& t) { solve<T, false>(t, false, name); }},
#define ROW_VALUE_SYTRS(name, T) {#name, [](trial& t) { solve<T, true>(t, false, name); }},
#define ROW_POTRS_BATCH(name, T) {#name, [](trial& t) { solve<T, false>(t, true, name); }},
#define ROW_SYTRS_BATCH(name, T) {#name, [](trial& t) { solve<T, true>(t, true, name); }},
#define ROW_SOLVE_REFINED(name, T) {#name, [](trial& t) { refined<T>(t, name); }},
#define ROW_VALUE_DTTRF(name, T, ...) {#name, [](trial& t) { dttrf<T>(t, name); }},
#define ROW_VALUE_DTTRS(name, T, ...) {#name, [](trial& t) { dttrs<T>(t, name); }},
#define ROW_VALUE_DTSV(name, T, ...) {#name, [](trial& t) { eliminate<T>(t, name); }},
#define ROW_VALUE_GTSV ROW_VALUE_DTSV
const rows divided("LAPACK", checked,
                   {
#include "zor/tables/core_lapack.inc"
                   });

}  // namespace
}  // namespace zor_fuzz
