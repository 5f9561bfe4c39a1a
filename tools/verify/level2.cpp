// SPDX-License-Identifier: MIT
// The rest of Level 2: rank updates, band, symmetric and triangular matrices with one vector.
#include "tools/verify/battery.h"
#include "zor/signatures/blas.h"

namespace zor_tools {
namespace {

constexpr double factors[][2] = {{-0.6, 0.4}, {1, 0}, {0, 0}, {0.5, 0}};
constexpr zor_int increments[][2] = {{1, 1}, {1, 1}, {2, -1}, {-1, 3}, {1, 1}, {-2, -2}};
constexpr zor_int orders[] = {1, 2, 3, 5, 8, 16, 17, 31, 66, 130};
enum class storage { full, band, packed };

size_t extent(zor_int n, zor_int inc) { return size_t((n - 1) * (inc < 0 ? -inc : inc) + 1); }

// The operands and options of one call, chosen by its round.
template <class T>
struct operands {
  numbers source;
  zor_int incx, incy, lda;
  T alpha, beta;
  block<T> a, x, y;

  operands(uint64_t round, zor_int columns, zor_int lead, zor_int nx, zor_int ny)
      : source(round),
        incx(increments[round % 6][0]),
        incy(increments[round % 6][1]),
        lda(lead),
        alpha(scalar<T>(factors[round / 2 % 4][0], factors[round / 2 % 4][1])),
        beta(scalar<T>(factors[round / 3 % 4][0], factors[round / 3 % 4][1])),
        a(size_t(lda * columns), round % 3, source),
        x(extent(nx, incx), round % 2, source, round % 7 == 0 ? content::special : content::ordinary),
        y(extent(ny, incy), round / 2 % 2, source) {}
};

// Calls body(operands, uplo, n, k, round) for triangles of all orders; k is the reach of a band.
template <class T, class Body>
void each_triangle(storage stored, const Body& body) {
  uint64_t round = 0;
  for (const zor_int n : orders)
    for (const char uplo : {'U', 'L'})
      for (int iteration = 0; iteration < 6; ++iteration) {
        ++round;
        const zor_int k = stored == storage::band ? zor_int(round * 5 % 40) : n - 1;
        const zor_int lda = stored == storage::full ? n + zor_int(round % 3) : k + 1 + zor_int(round % 2);
        operands<T> o(round, n, stored == storage::packed ? n : lda, n, n);
        body(o, uplo, n, k, round);
      }
}

template <class T>
void general_updates(recorder& out, zor::xger_fn<T>* fn) {
  uint64_t round = 0;
  for (const zor_int m : orders)
    for (const zor_int n : {1, 4, 13})
      for (int iteration = 0; iteration < 4; ++iteration) {
        ++round;
        operands<T> o(round, n, m + zor_int(round % 2), m, n);
        fn(&m, &n, &o.alpha, o.x.data(), &o.incx, o.y.data(), &o.incy, o.a.data(), &o.lda);
        o.a.record(out);
      }
}

template <class T>
void band_products(recorder& out, zor::xgbmv_fn<T>* fn) {
  uint64_t round = 0;
  for (const zor_int m : orders)
    for (const zor_int n : {1, 9, 40, 101})
      for (const char trans : {'N', 'T', 'C'}) {
        ++round;
        const zor_int kl = zor_int(round % 13), ku = zor_int(round * 7 % 23);
        const bool plain = trans == 'N';
        operands<T> o(round, n, kl + ku + 1 + zor_int(round % 2), plain ? n : m, plain ? m : n);
        fn(&trans, &m, &n, &kl, &ku, &o.alpha, o.a.data(), &o.lda, o.x.data(), &o.incx, &o.beta, o.y.data(),
           &o.incy);
        o.y.record(out);
      }
}

template <class T, class Call>
void symmetric_products(recorder& out, storage stored, const Call& call) {
  each_triangle<T>(stored, [&](operands<T>& o, char uplo, zor_int n, zor_int k, uint64_t) {
    call(&uplo, &n, &k, &o.alpha, o.a.data(), &o.lda, o.x.data(), &o.incx, &o.beta, o.y.data(), &o.incy);
    o.y.record(out);
  });
}

template <class T, class Call>
void updates(recorder& out, storage stored, const Call& call) {
  each_triangle<T>(stored, [&](operands<T>& o, char uplo, zor_int n, zor_int, uint64_t) {
    call(&uplo, &n, o);
    o.a.record(out);
  });
}

// The diagonal is large enough for solves to stay in range; row `reach` of an upper band holds it.
template <class T, class Call>
void triangular(recorder& out, storage stored, const Call& call) {
  each_triangle<T>(stored, [&](operands<T>& o, char uplo, zor_int n, zor_int k, uint64_t round) {
    zor_int place = stored == storage::band && uplo == 'U' ? k : 0;
    for (zor_int j = 0; j < n; ++j) {
      o.a.data()[place] = scalar<T>(40.0 * double(n), double(j));
      place += stored != storage::packed ? o.lda + (stored == storage::full) : uplo == 'U' ? j + 2 : n - j;
    }
    const char trans = "NTC"[round % 3], diag = "NU"[round / 3 % 2];
    call(&uplo, &trans, &diag, &n, &k, o.a.data(), &o.lda, o.x.data(), &o.incx);
    o.x.record(out);
  });
}

}  // namespace

void run_level2(recorder& out) {
#define ROW_XGER(name, T, conj) \
  if (out.begin(#name)) general_updates<T>(out, name);
#define ROW_XGBMV(name, T) \
  if (out.begin(#name)) band_products<T>(out, name);
#define SYMV(name, T, ...)                    \
  if (out.begin(#name))                       \
    symmetric_products<T>(out, storage::full, \
                          [](auto uplo, auto n, auto, auto... rest) { name(uplo, n, rest...); });
#define ROW_XSYMV SYMV
#define ROW_XSBMV(name, T, hermitian) \
  if (out.begin(#name)) symmetric_products<T>(out, storage::band, name);
#define ROW_XSPMV(name, T, hermitian)                                                            \
  if (out.begin(#name))                                                                          \
    symmetric_products<T>(out, storage::packed,                                                  \
                          [](auto uplo, auto n, auto, auto alpha, auto ap, auto, auto... rest) { \
                            name(uplo, n, alpha, ap, rest...);                                   \
                          });
#define ROW_XHER(name, T, R)                                               \
  if (out.begin(#name))                                                    \
    updates<T>(out, storage::full, [](auto uplo, auto n, operands<T>& o) { \
      name(uplo, n, &o.alpha.re, o.x.data(), &o.incx, o.a.data(), &o.lda); \
    });
#define ROW_XHPR(name, T, R)                                                 \
  if (out.begin(#name))                                                      \
    updates<T>(out, storage::packed, [](auto uplo, auto n, operands<T>& o) { \
      name(uplo, n, &o.alpha.re, o.x.data(), &o.incx, o.a.data());           \
    });
#define SYR2(name, T, ...)                                                                   \
  if (out.begin(#name))                                                                      \
    updates<T>(out, storage::full, [](auto uplo, auto n, operands<T>& o) {                   \
      name(uplo, n, &o.alpha, o.x.data(), &o.incx, o.y.data(), &o.incy, o.a.data(), &o.lda); \
    });
#define ROW_XSYR2 SYR2
#define ROW_XSPR2(name, T, hermitian)                                                \
  if (out.begin(#name))                                                              \
    updates<T>(out, storage::packed, [](auto uplo, auto n, operands<T>& o) {         \
      name(uplo, n, &o.alpha, o.x.data(), &o.incx, o.y.data(), &o.incy, o.a.data()); \
    });
#define TRMV(name, T, ...)                                                                               \
  if (out.begin(#name))                                                                                  \
    triangular<T>(out, storage::full, [](auto uplo, auto trans, auto diag, auto n, auto, auto... rest) { \
      name(uplo, trans, diag, n, rest...);                                                               \
    });
#define ROW_XTRMV TRMV
#define ROW_XTRSV TRMV
#define ROW_XTBMV(name, T) \
  if (out.begin(#name)) triangular<T>(out, storage::band, name);
#define ROW_XTBSV ROW_XTBMV
#define ROW_XTPMV(name, T)                                                                          \
  if (out.begin(#name))                                                                             \
    triangular<T>(out, storage::packed,                                                             \
                  [](auto uplo, auto trans, auto diag, auto n, auto, auto ap, auto, auto... rest) { \
                    name(uplo, trans, diag, n, ap, rest...);                                        \
                  });
#define ROW_XTPSV ROW_XTPMV
#include "zor/tables/blas_level2.inc"

// The entries of libzor_core; the others bear the names of their kernels.
#define ROW_SYMV SYMV
#define ROW_HEMV SYMV
#define ROW_SYR2 SYR2
#define ROW_HER2 SYR2
#define ROW_TRMV TRMV
#include "zor/tables/core_matvec.inc"
}

}  // namespace zor_tools
