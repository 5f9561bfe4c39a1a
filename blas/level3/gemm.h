// SPDX-License-Identifier: MIT
// What the drivers, copies and kernels of the matrix product share.
#pragma once

#include "blas/level2/matvec.h"
#include "zor/types.h"

namespace zor::gemm {

// op(X) of a stored matrix: element (i, j) stands at data + i row_stride + j column_stride.
template <class T>
struct operand {
  const T* data;
  zor_int row_stride, column_stride;
  bool trans, conj;

  const T* at(zor_int i, zor_int j) const { return data + i * row_stride + j * column_stride; }
  operand from(zor_int i, zor_int j) const {
    operand part = *this;
    part.data = at(i, j);
    return part;
  }
};

constexpr bool is_trans(char letter) { return letter != 'N' && letter != 'n'; }
template <class T>
constexpr bool is_conj(char letter) {
  return is_complex<T> && (letter == 'C' || letter == 'c');
}

template <class T>
operand<T> make_operand(char letter, const T* data, zor_int ld) {
  const bool trans = is_trans(letter);
  return {data, trans ? ld : 1, trans ? 1 : ld, trans, is_conj<T>(letter)};
}

// C := C + sum, C := sum, C := beta C + sum.
enum class update { add, store, scale };

template <class T>
update update_of(T beta) {
  return is_one(beta) ? update::add : is_zero(beta) ? update::store : update::scale;
}

// C := beta C by columns; store puts zeros and reads nothing.
template <class T>
void scale_columns(zor_int m, zor_int n, T beta, T* c, zor_int ldc);
template <class T>
void zero_columns(zor_int m, zor_int n, T* c, zor_int ldc);

// The product without blocks and without memory of its own; see gemm_plain.cpp.
template <class T>
void plain_product(zor_int m, zor_int n, zor_int k, T alpha, const operand<T>& a, const operand<T>& b, T beta,
                   T* c, zor_int ldc);

}  // namespace zor::gemm
