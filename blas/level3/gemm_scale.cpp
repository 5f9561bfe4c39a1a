// SPDX-License-Identifier: MIT
// C := beta C. Every element is one product, so the walk does not show.
#include "blas/level3/gemm.h"
#include "zor/signatures/blas.h"

namespace zor::gemm {

template <class T>
void scale_columns(zor_int m, zor_int n, T beta, T* c, zor_int ldc) {
  for (zor_int j = 0; j < n; ++j, c += ldc) {
    for_ranges<T>(0, m, [&]<int Bytes>(zor_int i, zor_int last) {
      using V = vec<real_t<T>, Bytes>;
      const auto f = make_factor<V>(beta);
      for (; i < last; i += units<T, Bytes>) store_units(c + i, f * load_units<V>(c + i));
    });
  }
}

template <class T>
void zero_columns(zor_int m, zor_int n, T* c, zor_int ldc) {
  for (zor_int j = 0; j < n; ++j) __builtin_memset(c + j * ldc, 0, size_t(m) * sizeof(T));
}

template <class T>
static void mscale(zor_int m, zor_int n, T beta, T* c, zor_int ldc) {
  if (m < 1 || n < 1) return;
  is_zero(beta) ? zero_columns(m, n, c, ldc) : scale_columns(m, n, beta, c, ldc);
}

template void scale_columns(zor_int, zor_int, float, float*, zor_int);
template void scale_columns(zor_int, zor_int, double, double*, zor_int);
template void scale_columns(zor_int, zor_int, c32, c32*, zor_int);
template void scale_columns(zor_int, zor_int, c64, c64*, zor_int);
template void zero_columns(zor_int, zor_int, float*, zor_int);
template void zero_columns(zor_int, zor_int, double*, zor_int);
template void zero_columns(zor_int, zor_int, c32*, zor_int);
template void zero_columns(zor_int, zor_int, c64*, zor_int);

}  // namespace zor::gemm

#define ROW_MSCALE(name, T) \
  extern "C" SIG_MSCALE(name, T) { zor::gemm::mscale(*m, *n, *beta, c, *ldc); }
#include "zor/tables/blas_gemm.inc"
