// SPDX-License-Identifier: MIT
// A band matrix is taken by diagonals: those of a block of outputs, in their order, bring the terms of every
// output in the order of its row, and a diagonal has an element for each lane but at the corners of the
// matrix.
#include <cstring>

#include "xblas/arguments.h"
#include "xblas/multiply.h"
#include "zor/signatures/xblas.h"

namespace zor {
namespace {

void check_gbmv(const char* routine, int trans, zor_int m, zor_int n, zor_int kl, zor_int ku, zor_int lda,
                zor_int incx, zor_int incy, bool two) {
  report_all(routine,
             argument_check{trans != not_transposed && trans != transposed && trans != conjugate_transposed,
                            -2, trans},
             argument_check{m < 0, -3, m}, argument_check{n < 0, -4, n},
             argument_check{kl < 0 || kl >= m, -5, kl}, argument_check{ku < 0 || ku >= n, -6, ku},
             argument_check{lda <= kl + ku, -9, lda}, argument_check{incx == 0, two ? -12 : -11, incx},
             argument_check{incy == 0, two ? -15 : -14, incy});
}

// Output o and input i meet in the element that stands `skew` + i inner + o outer elements behind a.
struct band {
  zor_int outputs, inputs;
  zor_int below;      // inputs before output o that have an element: i >= o - below
  zor_int diagonals;  // in all
  zor_int skew, inner, outer;
};

// Diagonals of a panel.
inline constexpr zor_int band_cols = 32;

// Takes the sums of those rows of a block for which row(i) holds.
template <class A, int Parts, int Vectors, class Row>
void take_sums(const block_sums<A, Parts, Vectors>& from, block_sums<A, Parts, Vectors>& to, const Row& row) {
  using R = typename A::real;
  constexpr int L = lanes_of<R>, all = int(sizeof from / sizeof(R)), a_vector = all / Vectors;
  R given[all], kept[all];
  std::memcpy(given, &from, sizeof from);
  std::memcpy(kept, &to, sizeof to);
  for (int i = 0; i < all; ++i)
    if (row(i / a_vector * L + i % L)) kept[i] = given[i];
  std::memcpy(static_cast<void*>(&to), kept, sizeof to);
}

template <class A, int Forms, class T>
void multiply_band(const band& b, const operands<T>& o, const T* a, bool conj) {
  using R = typename A::real;
  for_blocks<A, T, block_vectors<T>>(
      ending::scaled_sum_and_y, b.outputs, o,
      [&]<int Vectors>(zor_int first, zor_int rows, block_sums<A, parts<T>, Vectors>& sums) {
        constexpr int P = parts<T>, B = block_rows<R, Vectors>;
        R panel[band_cols * P * B], factors[band_cols * Forms * P * B];
        // Diagonals with an element for one of the rows.
        const zor_int begin = b.below - (first + rows - 1), end = b.inputs + b.below - first;
        zor_int diagonal = begin > 0 ? begin : 0;
        const zor_int last = end < b.diagonals ? end : b.diagonals;
        // Diagonals with an element for all of them. The others are the corners of the matrix, where a
        // product of zeros must not be added: a difference of zeros is -0 when rounded down, and would change
        // the sign of an empty sum.
        const zor_int whole_begin = b.below - first, whole_end = end - (rows - 1);
        while (diagonal < last) {
          const bool corner = diagonal < whole_begin || diagonal >= whole_end;
          const zor_int rest = (whole_end < last ? whole_end : last) - diagonal;
          const zor_int count = corner ? 1 : rest < band_cols ? rest : band_cols;
          const auto input_of = [&](zor_int i, zor_int k) { return first + i - b.below + diagonal + k; };
          const auto exists = [&](zor_int i, zor_int k) {
            return input_of(i, k) >= 0 && input_of(i, k) < b.inputs;
          };
          pack_elements<Vectors>(rows, count, panel, [&](zor_int i, zor_int k) {
            if (!exists(i, k)) return T{};
            const T e = load_element(a + b.skew + input_of(i, k) * b.inner + (first + i) * b.outer);
            return conj ? conj_by_sign(e) : e;
          });
          pack_elements<Vectors>(rows, count * Forms, factors, [&](zor_int i, zor_int column) {
            const zor_int k = column / Forms;
            if (!exists(i, k)) return T{};
            return load_element((column % Forms == 0 ? o.head : o.tail) + input_of(i, k) * o.incx);
          });
          const packed_x<R, Vectors, P, Forms> x = {factors};
          if (corner) {
            auto with_zeros = sums;
            add_panel<A, Forms>(count, panel, x, with_zeros);
            take_sums(with_zeros, sums, [&](zor_int i) { return exists(i < rows ? i : rows - 1, 0); });
          } else {
            add_panel<A, Forms>(count, panel, x, sums);
          }
          diagonal += count;
        }
      });
}

template <int Forms, class T>
void gbmv(const char* routine, int trans, zor_int m, zor_int n, zor_int kl, zor_int ku, T alpha, const T* a,
          zor_int lda, const T* head, const T* tail, zor_int incx, T beta, T* y, zor_int incy,
          int precision) {
  // Element (i, j) stands at ku + i - j + j lda.
  const bool plain_op = trans == not_transposed;
  const band b =
      plain_op ? band{m, n, kl, kl + ku + 1, ku, lda - 1, 1} : band{n, m, ku, kl + ku + 1, ku, 1, lda - 1};
  with_arithmetic<T>(precision, [&]<class A>() {
    check_gbmv(routine, trans, m, n, kl, ku, lda, incx, incy, Forms == 2);
    if (m == 0 || n == 0 || (is_zero(alpha) && is_one(beta))) return;
    multiply_band<A, Forms>(b, operands_of(alpha, head, tail, b.inputs, incx, beta, y, b.outputs, incy), a,
                            is_complex<T> && trans == conjugate_transposed);
  });
}

}  // namespace
}  // namespace zor

#define ROW_GBMV_X(name, T, routine)                                                                        \
  extern "C" SIG_GBMV_X(name, T) {                                                                          \
    zor::gbmv<1, T>(routine, zor::code(trans), *m, *n, *kl, *ku, *alpha, a, *lda, x, nullptr, *incx, *beta, \
                    y, *incy, zor::code(prec));                                                             \
  }
#define ROW_GBMV2_X(name, T, routine)                                                                    \
  extern "C" SIG_GBMV2_X(name, T) {                                                                      \
    zor::gbmv<2, T>(routine, zor::code(trans), *m, *n, *kl, *ku, *alpha, a, *lda, head_x, tail_x, *incx, \
                    *beta, y, *incy, zor::code(prec));                                                   \
  }
#include "zor/tables/xblas.inc"
