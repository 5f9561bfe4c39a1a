// SPDX-License-Identifier: MIT
// LAPACK kernels and the entries above them. Elementwise ones are compared with wide arithmetic; of the
// others, whose errors depend on the matrix, the frame compares builds, positions, modes and threads, and
// what lies around the operands.
#include "zor/signatures/lapack.h"
#include "tests/fuzz/trial.h"

namespace zor_fuzz {
namespace {

// ---- Rotations and reflectors.

template <class T, class Call>
void lasr(trial& t, Call* call) {
  const zor_int m = t.size("m", 90), n = t.size("n", 60), lda = t.leading("lda", m),
                count = m > 1 ? m - 1 : 0;
  const auto c = t.vector<real<T>>("c", use::in, count), s = t.vector<real<T>>("s", use::in, count);
  const auto a = t.matrix<T>("a", use::inout, m, n, lda);
  t.call([&] { call(&m, &n, c, s, a, &lda); });
}

template <class T, class Call>
void lartv(trial& t, Call* call) {
  const zor_int n = t.size("n", 300), incx = t.draw("incx", 1, 3, 1), incy = t.draw("incy", 1, 3, 1),
                incc = t.draw("incc", 1, 3, 1);
  const auto x = t.vector<T>("x", use::inout, n, incx), y = t.vector<T>("y", use::inout, n, incy),
             s = t.vector<T>("s", use::in, n, incc);
  const auto c = t.vector<real<T>>("c", use::in, n, incc);
  t.call([&] { call(&n, x, &incx, y, &incy, c, s, &incc); });
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
  t.call([&] {
    if constexpr (Three)
      call(&n, x, nullptr, y, nullptr, z, nullptr, &tau, &h1, &h2);
    else
      call(&n, x, nullptr, y, nullptr, &tau, &h1);
  });
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

// ---- Tridiagonal matrices.

template <class T>
struct tridiagonal {
  explicit tridiagonal(trial& t, use matrix)
      : n(t.size("n", 80)),
        nrhs(t.size("nrhs", 20)),
        ldb(t.leading("ldb", n)),
        dl(t.vector<T>("dl", matrix, n > 0 ? n - 1 : 0)),
        d(t.vector<T>("d", matrix, n)),
        du(t.vector<T>("du", matrix, n > 0 ? n - 1 : 0)),
        b(t.matrix<T>("b", use::inout, n, nrhs, ldb)) {}
  zor_int n, nrhs, ldb;
  operand<T> dl, d, du, b;
};

template <class T, class Call>
void dttrfb(trial& t, Call* call) {
  const tridiagonal<T> m(t, use::inout);
  zor_int info = -7;
  t.call([&] { call(&m.n, m.dl, m.d, m.du, &info); });
  t.expect(info >= 0 && info <= m.n, "info names a row");
}
template <class T, class Call>
void dttrsb(trial& t, Call* call) {
  const char trans = t.letter("trans", "NTCntcx");
  const tridiagonal<T> m(t, use::in);
  zor_int info = -7;
  t.call([&] { call(&trans, &m.n, &m.nrhs, m.dl, m.d, m.du, m.b, &m.ldb, &info); });
  t.expect(info == 0, "info is 0");
}
template <class T, class Call>
void eliminate(trial& t, Call* call) {
  const tridiagonal<T> m(t, use::inout);
  zor_int info = -7;
  t.call([&] { call(&m.n, &m.nrhs, m.dl, m.d, m.du, m.b, &m.ldb, &info); });
  t.expect(info >= 0 && info <= m.n, "info names a row");
}
template <class T, class Call>
void gtts2(trial& t, Call* call) {
  const zor_int itrans = t.draw("itrans", 0, 2, 0);
  const tridiagonal<T> m(t, use::in);
  const auto du2 = t.vector<T>("du2", use::in, m.n > 2 ? m.n - 2 : 0);
  random_bits pattern = t.random("interchanges");
  std::vector<zor_int> ipiv;
  for (zor_int i = 0; i < m.n; ++i) ipiv.push_back(i + 1 + (i + 1 < m.n && pattern.next() % 3 == 0));
  const zor_int* const pivots = t.integers("ipiv", ipiv);
  t.call([&] { call(&itrans, &m.n, &m.nrhs, m.dl, m.d, m.du, du2, pivots, m.b, &m.ldb); });
}
template <class T, class Call>
void ptts2(trial& t, const Call& call) {
  const zor_int iuplo = t.draw("iuplo", 0, 1, 0);
  const tridiagonal<T> m(t, use::in);
  const auto d = t.vector<real<T>>("real d", use::in, m.n);
  t.call([&] { call(&iuplo, &m.n, &m.nrhs, d, m.dl, m.b, &m.ldb); });
}

// ---- Triangles. The frame's gaps cannot be triangles: all of A is in use.

template <class T, class Call>
void potrf(trial& t, Call* call) {
  const zor_int n = t.size("n", 70), lda = t.leading("lda", n);
  const auto a = t.matrix<T>("a", use::inout, n, n, lda);
  zor_int info = 0;
  t.call([&] { call("U", &n, a, &lda, &info); });
  t.expect(info >= 0 && info <= n, "info names a pivot");
}
template <class T, class Call>
void sytrf(trial& t, const char* uplo, Call* call) {
  const zor_int n = t.size("n", 60), lda = t.leading("lda", n);
  const auto a = t.matrix<T>("a", use::inout, n, n, lda);
  std::vector<zor_int> ipiv(size_t(n), 0);
  zor_int info = -7;
  t.call([&] { call(uplo, &n, a, &lda, ipiv.data(), &info); });
  for (const zor_int p : ipiv) t.expect(p != 0 && p >= -n && p <= n, "a pivot names a row");
}

struct panel {
  explicit panel(trial& t)
      : uplo(t.letter("uplo", "ULul")),
        n(t.size("n", 80)),
        k(t.draw("k", 0, n, n)),
        lda(t.leading("lda", n)) {}
  char uplo;
  zor_int n, k, lda;
};
template <class T, class Call>
void symv(trial& t, Call* call) {
  const panel p(t);
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const auto a = t.matrix<T>("a", use::in, p.n, p.n, p.lda);
  const auto x = t.vector<T>("x", use::in, p.n), y = t.vector<T>("y", use::inout, p.n);
  t.call([&] { call(&p.uplo, &p.n, &p.k, &alpha, a, &p.lda, x, nullptr, &beta, y); });
}
template <class T, class Call>
void syr2(trial& t, Call* call) {
  const panel p(t);
  const T alpha = t.scalar<T>("alpha");
  const auto x = t.vector<T>("x", use::in, p.n), y = t.vector<T>("y", use::in, p.n);
  const auto a = t.matrix<T>("a", use::inout, p.n, p.n, p.lda);
  t.call([&] { call(&p.uplo, &p.n, &p.k, &alpha, x, nullptr, y, nullptr, a, &p.lda); });
}
template <class T, class Call>
void syr2k(trial& t, Call* call) {
  const panel p(t);
  const zor_int depth = t.size("depth", 20), ldc = t.leading("ldc", p.n);
  const auto a = t.matrix<T>("a", use::in, p.n, depth, p.lda),
             b = t.matrix<T>("b", use::in, p.n, depth, p.lda),
             c = t.matrix<T>("c", use::inout, p.n, p.n, ldc);
  t.call(
      [&] { call(&p.uplo, nullptr, &p.n, &depth, &p.k, nullptr, a, &p.lda, b, &p.lda, nullptr, c, &ldc); });
}
template <class T, class Call>
void larfx(trial& t, Call* call) {
  const char side = t.letter("side", "LRlr");
  const zor_int m = t.size("m", 40), n = t.size("n", 40), ldc = t.leading("ldc", m);
  const bool left = side == 'L' || side == 'l';
  const T tau = t.scalar<T>("tau");
  const auto v = t.vector<T>("v", use::in, left ? m : n), c = t.matrix<T>("c", use::inout, m, n, ldc),
             work = t.vector<T>("work", use::inout, left ? n : m);
  t.call([&] { call(&side, &m, &n, v, &tau, c, &ldc, work); });
}
template <class T, class Call>
void spr(trial& t, Call* call) {
  const char uplo = t.letter("uplo", "ULul");
  const zor_int n = t.size("n", 60), incx = t.increment("incx");
  const T alpha = t.scalar<T>("alpha");
  const auto x = t.vector<T>("x", use::in, n, incx), ap = t.vector<T>("ap", use::inout, n * (n + 1) / 2);
  t.call([&] { call(&uplo, &n, &alpha, x, &incx, ap); });
}

#define ROW_LASR(name, T, R, pivot, forward) {#name, [](trial& t) { lasr<T>(t, name); }},
#define ROW_LARTV(name, T, R) {#name, [](trial& t) { lartv<T>(t, name); }},
#define ROW_ROT2(name, T) {#name, [](trial& t) { reflect<T, false>(t, name); }},
#define ROW_ROT3(name, T) {#name, [](trial& t) { reflect<T, true>(t, name); }},
#define ROW_DTTRFB(name, T) {#name, [](trial& t) { dttrfb<T>(t, name); }},
#define ROW_DTTRSB(name, T) {#name, [](trial& t) { dttrsb<T>(t, name); }},
#define ROW_DTSVB(name, T) {#name, [](trial& t) { eliminate<T>(t, name); }},
#define ROW_GTSV_SMALL(name, T) {#name, [](trial& t) { eliminate<T>(t, name); }},
#define ROW_GTTS2(name, T) {#name, [](trial& t) { gtts2<T>(t, name); }},
#define ROW_PTTS2(name, T)                                                                               \
  {#name, [](trial& t) {                                                                                 \
     ptts2<T>(t, [](const zor_int*, const zor_int* n, const zor_int* nrhs, const T* d, const T* e, T* b, \
                    const zor_int* ldb) { name(n, nrhs, d, e, b, ldb); });                               \
   }},
#define ROW_COMPLEX_PTTS2(name, T, R) {#name, [](trial& t) { ptts2<T>(t, name); }},
#define ROW_POTRF_SMALL(name, T, upper) {#name, [](trial& t) { potrf<T>(t, name); }},
#define ROW_SYTRF_SMALL(name, T, upper) {#name, [](trial& t) { sytrf<T>(t, upper ? "U" : "L", name); }},
#define ROW_SYMV_NB(name, T) {#name, [](trial& t) { symv<T>(t, name); }},
#define ROW_SYR2_NB(name, T) {#name, [](trial& t) { syr2<T>(t, name); }},
#define ROW_SYR2K_NB(name, T) {#name, [](trial& t) { syr2k<T>(t, name); }},
#define ROW_LARFX(name, T) {#name, [](trial& t) { larfx<T>(t, name); }},
#define ROW_CSPR(name, T) {#name, [](trial& t) { spr<T>(t, name); }},
const rows kernels("LAPACK kernel", serial,
                   {
#include "zor/tables/lapack.inc"
                   });

// ---- Entries of the core.

template <class T, class Call>
void dttrs(trial& t, Call* call) {
  const char trans = t.letter("trans", "NTCntc");
  const tridiagonal<T> m(t, use::in);
  const char letter = t.checked(1, trans, '?');
  const zor_int n = t.checked(2, m.n, zor_int(-1)), ldb = t.checked(8, m.ldb, zor_int(0));
  t.call([&] { call(letter, n, m.nrhs, m.dl, m.d, m.du, m.b, ldb); });
}
template <class T, class Call>
void solve(trial& t, Call* call) {
  const tridiagonal<T> m(t, use::inout);
  const zor_int nrhs = t.checked(2, m.nrhs, zor_int(-1)), ldb = t.checked(7, m.ldb, zor_int(0));
  t.call([&] { call(m.n, nrhs, m.dl, m.d, m.du, m.b, ldb); });
}
template <class T, class Call>
void potrf_batch(trial& t, Call* call) {
  const char uplo = t.letter("uplo", "ULul");
  const zor_int n = t.size("n", 30), count = t.size("count", 40), lda = t.leading("lda", n);
  const zor_int stride = lda * n + t.draw("gap", 0, 3, 0);
  const auto a = t.matrix<T>("a", use::inout, count > 0 ? stride * count : 0, 1, stride * count + 1);
  std::vector<zor_int> info(size_t(count), -7);
  const zor_int order = t.checked(2, n, zor_int(-1)), ld = t.checked(4, lda, zor_int(0));
  t.call([&] { call(uplo, order, a, ld, stride, count, info.data()); });
}
#define ROW_POTRF_BATCH(name, T) {#name, [](trial& t) { potrf_batch<T>(t, name); }},
#define ROW_VALUE_DTTRS(name, T, ...) {#name, [](trial& t) { dttrs<T>(t, name); }},
#define ROW_VALUE_DTSV(name, T, ...) {#name, [](trial& t) { solve<T>(t, name); }},
#define ROW_VALUE_GTSV(name, T, ...) {#name, [](trial& t) { solve<T>(t, name); }},
const rows divided("LAPACK", threaded,
                   {
#include "zor/tables/core_lapack.inc"
                   });

}  // namespace
}  // namespace zor_fuzz
