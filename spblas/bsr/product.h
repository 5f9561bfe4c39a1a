// SPDX-License-Identifier: MIT
// y := y + alpha op(A) x for a matrix in blocks and one vector. Blocks are taken row after row in their
// stored order. In the general and triangular views a block multiplies as spblas/bsr/block.h has it: spread
// where its runs point along the result, as a dot where they point across. In the mirrored views each block
// on the view's side first sums, in one chain an element, and then adds the sum times alpha, for itself and
// for its image.
#pragma once

#include "spblas/add_scaled.h"
#include "spblas/bsr/block.h"
#include "spblas/bsr/bsr.h"

namespace zor::sparse {

// Block rows of blocks by columns, whose sums stay in registers for the whole row. Plain overwrites y and has
// no alpha.
template <int L, bool Plain, class T>
[[gnu::noinline]] void rows_of_known_blocks(const bsr_product<T>& p) {
  const one<T> alpha = load<T, 1>(&p.alpha);
  for (zor_int row = p.first; row < p.last; ++row) {
    T* const y = p.y + row * L;
    element_run<T, L> sum;
    if (!Plain) sum.get(y);
    const zor_int end = p.a.end(row);
    for (zor_int k = p.a.begin(row); k < end; ++k) {
      const T *const a = p.a.val + k * (L * L), *const x = p.x + p.a.column(k) * L;
#pragma GCC unroll 8
      for (int j = 0; j < L; ++j)
        sum.add(a + j * L, Plain ? load<T, 1>(x + j) : mul<T>(load<T, 1>(x + j), alpha));
    }
    sum.put(y);
  }
}
// The same for any size: some rows of the block row after the other.
template <bool Plain, class T>
[[gnu::noinline]] void rows_of_blocks(const bsr_product<T>& p) {
  const one<T> alpha = load<T, 1>(&p.alpha);
  const zor_int lb = p.a.lb;
  for (zor_int row = p.first; row < p.last; ++row) {
    const zor_int begin = p.a.begin(row), end = p.a.end(row);
    const auto body = [&]<int N, int R>(zor_int i) __attribute__((always_inline)) {
      T* const y = p.y + row * lb + i;
      packs<T, N, R> sum{};
      if (!Plain) each<R>([&](int s) __attribute__((always_inline)) { sum.at[s] = load<T, N>(y + s * N); });
      for (zor_int k = begin; k < end; ++k) {
        const T *a = p.a.block(k) + i, *const x = p.x + p.a.column(k) * lb;
        for (zor_int j = 0; j < lb; ++j, a += lb) {
          const auto t = spread<T, N>(Plain ? load<T, 1>(x + j) : mul<T>(load<T, 1>(x + j), alpha));
          each<R>([&](int s) __attribute__((always_inline)) {
            sum.at[s] = sum.at[s] + mul<T>(load<T, N>(a + s * N), t);
          });
        }
      }
      each<R>([&](int s) __attribute__((always_inline)) { store<T, N>(y + s * N, sum.at[s]); });
    };
    for_packs_abreast<T, 4>(0, lb, body);
  }
}
template <bool Plain, class T>
void multiply_rows_of_blocks(const bsr_product<T>& p) {
  if (!with_known_size(p.a.lb, [&]<int L>() { rows_of_known_blocks<L, Plain>(p); })) rows_of_blocks<Plain>(p);
}

// Block rows of blocks by rows, whose dots are taken side by side: one chain a row of the block.
template <int L, class T>
[[gnu::noinline]] void rows_of_known_blocks_by_rows(const bsr_product<T>& p) {
  const one<T> alpha = load<T, 1>(&p.alpha);
  for (zor_int row = p.first; row < p.last; ++row) {
    T* const y = p.y + row * L;
    element_run<T, L> result;
    result.get(y);
    const zor_int end = p.a.end(row);
    for (zor_int k = p.a.begin(row); k < end; ++k) {
      const T *const a = p.a.val + k * (L * L), *const x = p.x + p.a.column(k) * L;
      element_run<T, L> sum;
      sum.template add_dots<L>(a, alpha, x);
      result.add(sum);
    }
    result.put(y);
  }
}

// Transposed, where each block adds to the elements of its column: spread where the runs are rows, else dots
// side by side.
template <int L, class T>
[[gnu::noinline]] void rows_of_known_blocks_transposed(const bsr_product<T>& p) {
  const one<T> alpha = load<T, 1>(&p.alpha);
  for (zor_int row = p.first; row < p.last; ++row) {
    const T* const x = p.x + row * L;
    const zor_int end = p.a.end(row);
    for (zor_int k = p.a.begin(row); k < end; ++k) {
      const T* const a = p.a.val + k * (L * L);
      T* const y = p.y + p.a.column(k) * L;
      element_run<T, L> result;
      result.get(y);
      if (p.a.by_rows) {
#pragma GCC unroll 8
        for (int j = 0; j < L; ++j) result.add(a + j * L, mul<T>(load<T, 1>(x + j), alpha));
      } else {
        element_run<T, L> sum;
        sum.template add_dots<L>(a, alpha, x);
        result.add(sum);
      }
      result.put(y);
    }
  }
}

template <class T>
void multiply_plain(const bsr_product<T>& p) {
  multiply_rows_of_blocks<true>(p);
}

template <class T>
void multiply_blocks(view v, const bsr_product<T>& p) {
  if (v.structure == 'g' && !v.transposed()) {
    if (!p.a.by_rows) return multiply_rows_of_blocks<false>(p);
    if (with_known_size(p.a.lb, [&]<int L>() { rows_of_known_blocks_by_rows<L>(p); })) return;
  }
  if (v.structure == 'g' && v.transposed() &&
      with_known_size(p.a.lb, [&]<int L>() { rows_of_known_blocks_transposed<L>(p); }))
    return;
  const zor_int lb = p.a.lb;
  const bool spreads = p.a.by_rows == v.transposed();
  const bool after = (v.triangle == 'l') != p.a.by_rows;
  const block_part triangle = {after ? block_side::after : block_side::before, v.unit()};
  for (zor_int row = p.first; row < p.last; ++row) {
    const zor_int end = p.a.end(row);
    for (zor_int k = p.a.begin(row); k < end; ++k) {
      const zor_int column = p.a.column(k);
      const place where = v.structure == 'g' ? place::inside : v.place_of(row, column);
      if (where == place::beyond) continue;
      const block_part part = where == place::inside ? block_part{} : triangle;
      const T* const in = p.x + (v.transposed() ? row : column) * lb;
      T* const out = p.y + (v.transposed() ? column : row) * lb;
      if (spreads)
        spread_block(p.a.block(k), lb, part, p.alpha, in, out);
      else
        dot_block(p.a.block(k), lb, part, p.alpha, in, out);
      if (where == place::diagonal && v.unit()) add_scaled(lb, p.alpha, p.x + row * lb, p.y + row * lb);
    }
  }
}

// A block and its image: for the elements q of its runs out_q(q) += (sum over p of a(p, q) in_p(p)) alpha,
// and for the runs out_p(p) += (sum over q of a(p, q) in_q(q)) alpha; minus where the view negates an image.
template <class T>
struct image_operands {
  const T *in_p, *in_q;
  T *out_p, *out_q;
  T alpha;
  bool minus_p, minus_q;
};
template <class T>
[[gnu::always_inline]] inline void add_sum(one<T> sum, one<T> alpha, bool minus, T* y) {
  const one<T> before = load<T, 1>(y), product = mul<T>(sum, alpha);
  store<T, 1>(y, minus ? before - product : before + product);
}
template <int L, class T>
[[gnu::noinline]] void known_block_and_image(const T* a, const image_operands<T>& o) {
  const one<T> alpha = load<T, 1>(&o.alpha);
  element_run<T, L> sum;
  for (int p = 0; p < L; ++p, a += L) {
    sum.add(a, load<T, 1>(o.in_p + p));
    one<T> across{};
#pragma GCC unroll 8
    for (int q = 0; q < L; ++q) across = across + mul_at<T>(a + q, load<T, 1>(o.in_q + q));
    add_sum(across, alpha, o.minus_p, o.out_p + p);
  }
  sum.add_to(o.out_q, alpha, o.minus_q);
}
template <class T>
[[gnu::noinline]] void block_and_image(const T* a, zor_int lb, const image_operands<T>& o) {
  const one<T> alpha = load<T, 1>(&o.alpha);
  for_packs_abreast<T, 4>(
      0, lb, [&]<int N, int R>(zor_int q) __attribute__((always_inline)) {
        packs<T, N, R> sum{};
        for (zor_int p = 0; p < lb; ++p) {
          const auto t = spread<T, N>(o.in_p + p);
          each<R>([&](int s) __attribute__((always_inline)) {
            sum.at[s] = sum.at[s] + mul<T>(load<T, N>(a + p * lb + q + s * N), t);
          });
        }
        each<R>([&](int s) __attribute__((always_inline)) {
          T* const y = o.out_q + q + s * N;
          const pack<T, N> product = mul<T>(sum.at[s], spread<T, N>(alpha));
          store<T, N>(y, o.minus_q ? load<T, N>(y) - product : load<T, N>(y) + product);
        });
      });
  for (zor_int p = 0; p < lb; ++p) {
    one<T> across{};
    for (zor_int q = 0; q < lb; ++q) across = across + mul_at<T>(a + p * lb + q, load<T, 1>(o.in_q + q));
    add_sum(across, alpha, o.minus_p, o.out_p + p);
  }
}

// A diagonal block stands for its stored triangle and the image of it; the antisymmetric view passes over its
// diagonal.
template <class T>
[[gnu::noinline]] void add_diagonal_block(view v, const bsr<T>& m, const T* a, T alpha, const T* x, T* y) {
  for (zor_int i = 0; i < m.lb; ++i) {
    one<T> sum{};
    for (zor_int j = 0; j < m.lb; ++j) {
      const place where = v.place_of(i, j);
      if (where == place::diagonal && v.skew()) continue;
      const bool image = where == place::beyond;
      const zor_int row = image ? j : i, column = image ? i : j;
      const one<T> product = mul_at<T>(a + row * m.row_step() + column * m.column_step(), load<T, 1>(x + j));
      sum = image && v.skew() ? sum - product : sum + product;
    }
    add_sum(sum, load<T, 1>(&alpha), false, y + i);
  }
}

template <class T>
void multiply_mirrored(view v, bool diagonal_blocks, const bsr_product<T>& p) {
  const zor_int lb = p.a.lb;
  const bool by_rows = p.a.by_rows;
  for (zor_int row = p.first; row < p.last; ++row) {
    const T* const x_row = p.x + row * lb;
    T* const y_row = p.y + row * lb;
    const zor_int end = p.a.end(row);
    for (zor_int k = p.a.begin(row); k < end; ++k) {
      const zor_int column = p.a.column(k);
      const place where = v.place_of(row, column);
      const T* const a = p.a.block(k);
      if (where == place::diagonal && diagonal_blocks) add_diagonal_block(v, p.a, a, p.alpha, x_row, y_row);
      if (where != place::inside) continue;
      const T* const x_column = p.x + column * lb;
      T* const y_column = p.y + column * lb;
      const image_operands<T> o =
          by_rows ? image_operands<T>{x_row, x_column, y_row, y_column, p.alpha, false, v.skew()}
                  : image_operands<T>{x_column, x_row, y_column, y_row, p.alpha, v.skew(), false};
      if (!with_known_size(lb, [&]<int L>() { known_block_and_image<L>(a, o); })) block_and_image(a, lb, o);
    }
  }
}

template <class T>
void multiply_diagonal(bool stored, const bsr_product<T>& p) {
  const zor_int lb = p.a.lb;
  if (!stored) return add_scaled(p.last * lb, p.alpha, p.x, p.y);
  const one<T> alpha = load<T, 1>(&p.alpha);
  for (zor_int row = p.first; row < p.last; ++row) {
    for (zor_int k = p.a.begin(row); k < p.a.end(row); ++k) {
      if (p.a.column(k) != row) continue;
      for (zor_int i = 0; i < lb; ++i) {
        const one<T> a = mul<T>(load<T, 1>(p.a.block(k) + i * (lb + 1)), alpha);
        T* const y = p.y + row * lb + i;
        store<T, 1>(y, load<T, 1>(y) + mul<T>(a, load<T, 1>(p.x + row * lb + i)));
      }
    }
  }
}

}  // namespace zor::sparse
