// SPDX-License-Identifier: MIT
// The exported panel copies, in their fixed format: strips of 16 bytes a part, the depth padded to a multiple
// of 4 with zeros. The products with alpha are those of scale_strip.
#include "blas/level3/gemm_pack.h"
#include "zor/signatures/blas.h"

namespace zor::gemm {
namespace {

template <class T>
inline constexpr int copy_rows = std::is_same_v<T, float> ? 8
                                 : std::is_same_v<T, c64> ? 2
                                                          : 4;

constexpr zor_int padded(zor_int k) { return (k + 3) / 4 * 4; }

// The real vector whose lanes are the rows of a strip.
template <class T, int Rows>
using strip_vector = vec<real_t<T>, int(Rows * sizeof(real_t<T>))>;

template <class T, int Rows, bool Conj>
void copy_strip(zor_int k, const operand<T>& a, int rows, T alpha, T* destination) {
  using R = real_t<T>;
  constexpr int Bytes = int(Rows * sizeof(R)) < width ? int(Rows * sizeof(R)) : width;
  using V = vec<R, Bytes>;
  const T* source = a.data;
  zor_int ld = a.column_stride;
  if (a.trans) {
    move_transposed(a.data, a.row_stride, rows, k, destination, Rows);
    source = destination;
    ld = Rows;
  }
  if (rows == Rows) {
    scale_strip<T, V, Rows / lanes<V>, Conj>(source, ld, k, rows, alpha, reals(destination));
  } else if constexpr (!is_complex<T>) {
    for (zor_int p = 0; p < k; ++p)
      for (int i = 0; i < Rows; ++i) destination[p * Rows + i] = i < rows ? alpha * source[p * ld + i] : 0;
  }
  __builtin_memset(destination + k * Rows, 0, size_t(padded(k) - k) * Rows * sizeof(T));
}

template <class T>
void copy_a(zor_int m, zor_int k, const operand<T>& a, T alpha, T* destination) {
  constexpr int rows = copy_rows<T>;
  if (m < 1 || k < 1) return;
  zor_int i = 0;
  for (; i + rows <= m; i += rows, destination += rows * padded(k))
    (a.conj ? copy_strip<T, rows, true> : copy_strip<T, rows, false>)(k, a.from(i, 0), rows, alpha,
                                                                      destination);
  if constexpr (std::is_same_v<T, double>) {
    const int left = int(m - i);
    if (left == 3) copy_strip<T, 4, false>(k, a.from(i, 0), 3, alpha, destination);
    if (left == 1 || left == 2) copy_strip<T, 2, false>(k, a.from(i, 0), left, alpha, destination);
  }
}

template <class T>
void copy_b(zor_int k, zor_int n, const operand<T>& b, T* destination) {
  if (n < 1 || k < 1) return;
  for (zor_int j = 0; j < n; j += 4) {
    const int columns = n - j < 4 ? int(n - j) : 4;
    if (columns < 4 && !std::is_same_v<T, double>) return;
    const T* source = b.at(0, j);
    if (b.trans) {
      for (zor_int p = 0; p < k; ++p)
        __builtin_memcpy(destination + p * columns, source + p * b.row_stride, size_t(columns) * sizeof(T));
    } else {
      move_transposed(source, b.column_stride, columns, k, destination, columns);
    }
    if (is_complex<T> && b.conj) conjugate(k * columns, destination);
    __builtin_memset(destination + k * columns, 0, size_t((padded(k) - k) * columns) * sizeof(T));
    destination += padded(k) * columns;
  }
}

}  // namespace
}  // namespace zor::gemm

#define ROW_COPYA(name, T, form)                                                                \
  extern "C" SIG_COPYA(name, T) {                                                               \
    zor::gemm::copy_a(*m, *k, zor::gemm::make_operand(#form[0], a, *lda), *alpha, destination); \
  }
#define ROW_COPYB(name, T, form)                                                        \
  extern "C" SIG_COPYB(name, T) {                                                       \
    zor::gemm::copy_b(*k, *n, zor::gemm::make_operand(#form[0], b, *ldb), destination); \
  }
#include "zor/tables/blas_gemm.inc"
