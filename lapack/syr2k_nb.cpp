// SPDX-License-Identifier: MIT
// C := C - A B^T - B A^T, Hermitian C - A B^H - B A^H, over m columns of one triangle of C: the first m of a
// lower, the last m of an upper one. A and B have n rows and k columns. For each depth p in rising order
//   off the diagonal   c(i,j) := (c(i,j) - a(i,p) conj(b(j,p))) - b(i,p) conj(a(j,p))
//   on the diagonal    c(j,j) := c(j,j) + ((0 - a(j,p)) - a(j,p)) conj(b(j,p))
// A Hermitian diagonal is real: imaginary parts are not read and become 0.
#include "blas/level2/triangle.h"
#include "lapack/parts.h"
#include "serv/element.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

template <class T>
struct factors_2k {
  zor_int k;
  const T* a;
  zor_int lda;
  const T* b;
  zor_int ldb;
};

// Vectors of rows from i on in Columns columns from j on, all off the diagonal.
template <int Bytes, int Columns, class T>
[[gnu::always_inline]] inline void update_tile(const factors_2k<T>& f, zor_int i, zor_int j, T* c,
                                               zor_int ldc) {
  using V = vec<real_t<T>, Bytes>;
  V tile[Columns];
#pragma GCC unroll 4
  for (int s = 0; s < Columns; ++s) tile[s] = load_units<V>(c + i + (j + s) * ldc);
  for (zor_int p = 0; p < f.k; ++p) {
    const T *a = f.a + p * f.lda, *b = f.b + p * f.ldb;
    const V va = load_units<V>(a + i), vb = load_units<V>(b + i);
#pragma GCC unroll 4
    for (int s = 0; s < Columns; ++s)
      tile[s] = tile[s] - make_factor<V>(conj_by_sign(load_parts(b + j + s))) * va -
                make_factor<V>(conj_by_sign(load_parts(a + j + s))) * vb;
  }
#pragma GCC unroll 4
  for (int s = 0; s < Columns; ++s) store_units(c + i + (j + s) * ldc, tile[s]);
}

template <class T>
void update_diagonal(const factors_2k<T>& f, zor_int j, T* place) {
  T c = load_parts(place);
  if constexpr (is_complex<T>) c.im = 0;
  for (zor_int p = 0; p < f.k; ++p) {
    const T a = load_parts(f.a + j + p * f.lda), b = load_parts(f.b + j + p * f.ldb);
    const T term = mul_adding(sub(zero_minus(a), a), conj_by_sign(b));
    if constexpr (is_complex<T>)
      c.re = c.re + term.re;
    else
      c = c + term;
  }
  store_element(place, c);
}

template <bool Upper, int Columns, class T>
void update_group(const factors_2k<T>& f, zor_int n, zor_int j, T* c, zor_int ldc) {
  for (int s = 0; s < Columns; ++s) {
    update_diagonal(f, j + s, c + j + s + (j + s) * ldc);
    for (int r = Upper ? 0 : s + 1; r < (Upper ? s : Columns); ++r)
      update_tile<int(sizeof(T)), 1>(f, j + r, j + s, c, ldc);
  }
  for_vectors<T>(
      Upper ? 0 : j + Columns, Upper ? j : n, [&]<int Bytes>(zor_int i) __attribute__((always_inline)) {
        update_tile<Bytes, Columns>(f, i, j, c, ldc);
      });
}

template <bool Upper, class T>
void syr2k_nb(zor_int n, zor_int m, const factors_2k<T> f, T* c, zor_int ldc) {
  if (n < 1 || f.k < 1 || m < 1) return;
  zor_int t = 0;
  for (; t + 4 <= m; t += 4) update_group<Upper, 4>(f, n, Upper ? n - 4 - t : t, c, ldc);
  for (; t < m; ++t) update_group<Upper, 1>(f, n, Upper ? n - 1 - t : t, c, ldc);
}

}  // namespace
}  // namespace zor

#define ROW_SYR2K_NB(name, T)                            \
  extern "C" SIG_SYR2K_NB(name, T) {                     \
    (void)trans, (void)alpha, (void)beta;                \
    const zor::factors_2k<T> f = {*k, a, *lda, b, *ldb}; \
    if (zor::is_upper(*uplo))                            \
      zor::syr2k_nb<true>(*n, *m, f, c, *ldc);           \
    else                                                 \
      zor::syr2k_nb<false>(*n, *m, f, c, *ldc);          \
  }
#include "zor/tables/lapack.inc"
