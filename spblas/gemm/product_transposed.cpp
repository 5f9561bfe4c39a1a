// SPDX-License-Identifier: MIT
// C := A^T B by strips of rows of C, each a dense tile. All rows of A and B pass in turn; the entries of a
// row of A whose columns lie in the strip are neighbours, so that a pointer into each row moves on from strip
// to strip. The tile is then read row by row.
#include <algorithm>
#include <limits>

#include "serv/element.h"
#include "spblas/gemm/three_arrays.h"
#include "spblas/result_scratch.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

template <class T, class I>
struct transposed_factors {
  zor_int k, m, n;
  const T* a;
  const I *ja, *ia;
  const T* b;
  const I *jb, *ib;
};
template <class T, class I>
struct strip_result {
  request wanted;
  T* c;
  I *jc, *ic;
  zor_int nzmax;
};

// Adds the products of one entry of A into a row of the tile, or marks their places.
template <class T, class I>
void add_to_tile(const T* p, const matrix_row<const T, const I>& b, bool marks, T* tile_row) {
  T* const tile = tile_row - 1;
  if (marks) {
    for (zor_int k = 0; k < b.count; ++k) tile[b.columns[k]] = one_of<T>();
    return;
  }
  const factor<T> scale(load<T, 1>(p));
  for (zor_int k = 0; k < b.count; ++k) {
    T* const place = tile + b.columns[k];
    store<T, 1>(place, load<T, 1>(place) + scale.template times<false>(b.values + k));
  }
}

// The elements of columns first + 1 to first + rows of A^T B.
template <class T, class I>
void fill_tile(const transposed_factors<T, I>& f, zor_int first, zor_int rows, bool marks, I* next, T* tile) {
  std::memset(static_cast<void*>(tile), 0, size_t(rows * f.n) * sizeof(T));
  for (zor_int i = 0; i < f.k; ++i) {
    zor_int at = zor_int(next[i]) - 1;
    const zor_int end = zor_int(f.ia[i + 1]) - 1;
    const auto b = row_of<const T, const I>(f.ib, f.jb, f.b, i);
    for (; at < end && zor_int(f.ja[at]) <= first + rows; ++at)
      add_to_tile<T, I>(f.a + at, b, marks, tile + (zor_int(f.ja[at]) - 1 - first) * f.n);
    next[i] = I(at + 1);
  }
}

// Whether a vector's worth of elements is all zero; a NaN is not.
template <class T>
[[gnu::always_inline]] inline bool all_zero(const T* p) {
  const auto v = load_units<vec<real_t<T>>>(p);
  return sign_mask(v != decltype(v){}) == 0;
}

// Calls visit(column, element) for each element of a row that is not zero, until it returns false.
template <class T, class Visit>
[[gnu::always_inline]] inline bool each_nonzero(const T* row, zor_int n, const Visit& visit) {
  for (zor_int j = 0; j < n;) {
    const zor_int end = std::min(n, j + units<T>);
    if (end - j == units<T> && all_zero(row + j)) {
      j = end;
      continue;
    }
    for (; j < end; ++j)
      if (!is_zero(row[j]) && !visit(j, row[j])) return false;
  }
  return true;
}

// Row r of C from its row of the tile; false when it has no room.
template <class T, class I>
bool take_row(const strip_result<T, I>& to, zor_int r, const T* row, zor_int n) {
  zor_int at = zor_int(to.ic[r]) - 1;
  if (to.wanted == request::counts) {
    each_nonzero(row, n, [&](zor_int, const T&) { return ++at, true; });
  } else {
    const zor_int room = to.wanted == request::all ? to.nzmax : std::numeric_limits<zor_int>::max();
    const bool fits = each_nonzero(row, n, [&](zor_int j, const T& e) {
      if (at >= room) return false;
      to.jc[at] = I(j + 1);
      to.c[at++] = e;
      return true;
    });
    if (!fits) return false;
  }
  if (to.wanted != request::values) to.ic[r + 1] = I(at + 1);
  return true;
}

template <class T, class I>
I multiply_transposed(zor_int strip, const transposed_factors<T, I>& f, const strip_result<T, I>& to) {
  if (f.m < 1) return 0;
  if (to.wanted != request::values) to.ic[0] = 1;
  const zor_int rows = std::clamp<zor_int>(strip, 1, f.m), k = f.k > 0 ? f.k : 0, n = f.n > 0 ? f.n : 0;
  zor_int tile_size;
  if (__builtin_mul_overflow(rows, n, &tile_size)) return -1;
  const result_scratch<I> next(k);
  const result_scratch<T> tile(tile_size);
  if (next.data == nullptr || tile.data == nullptr) return -1;
  std::memcpy(next.data, f.ia, size_t(k) * sizeof(I));
  for (zor_int first = 0; first < f.m; first += rows) {
    const zor_int some = std::min(rows, f.m - first);
    fill_tile(f, first, some, to.wanted == request::counts, next.data, tile.data);
    for (zor_int r = 0; r < some; ++r)
      if (!take_row(to, first + r, tile.data + r * n, n)) return I(first + r + 1);
  }
  return 0;
}

}  // namespace
}  // namespace zor::sparse

#define ROW_CSR_PRODUCT_TR(name, T, I)                                                                      \
  extern "C" SIG_CSR_PRODUCT_TR(name, T, I) {                                                               \
    (void)unread;                                                                                           \
    *info = zor::sparse::multiply_transposed<T, I>(*strip, {*k, *m, *n, a, ja, ia, b, jb, ib},              \
                                                   {zor::sparse::request_of(*request), c, jc, ic, *nzmax}); \
  }
#include "zor/tables/spblas_gemm.inc"
