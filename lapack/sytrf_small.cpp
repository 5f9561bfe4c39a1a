// SPDX-License-Identifier: MIT
// Bunch-Kaufman factorisation with partial pivoting, without blocks. Pivots of one row update the rest by
// zor_blas_?syr; pivots of two rows by a(i,j) := (a(i,j) - a(i,k) w) - a(i,l) v, where k is the outer row of
// the block, l its inner one, and w, v row j of the two columns times the inverse of the block.
//
// Both triangles run the same steps: `towards` is the direction in which the elimination goes (1 for the
// lower, -1 for the upper triangle), and "beyond" means rows that are still to be eliminated.
#include "lapack/blas.h"
#include "serv/element.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

// The larger of two magnitudes; of a NaN and a number the second.
template <class T>
T larger(T a, T b) {
  return a > b ? a : b;
}

template <bool Upper, class T>
struct bunch_kaufman {
  static constexpr zor_int towards = Upper ? -1 : 1;
  // (1 + sqrt(17)) / 8: bounds the growth of elements alike for blocks of one and of two.
  static constexpr T alpha = T(0.6403882032022076);

  const char* uplo;
  zor_int n;
  T* a;
  zor_int lda;
  zor_int* ipiv;

  T* place(zor_int i, zor_int j) const { return a + i + j * lda; }
  T at(zor_int i, zor_int j) const { return load_element(place(i, j)); }
  // Rows beyond row i, and the first of them in memory.
  zor_int beyond(zor_int i) const { return Upper ? i : n - 1 - i; }
  zor_int first_beyond(zor_int i) const { return Upper ? 0 : i + 1; }

  // Row of the largest magnitude of column j beyond row j.
  zor_int largest_beyond(zor_int j) const {
    return first_beyond(j) + largest(beyond(j), place(first_beyond(j), j), 1) - 1;
  }
  // The largest magnitude of row and column imax off the diagonal, in the part that is not yet eliminated.
  T largest_of_row(zor_int k, zor_int imax) const {
    const zor_int count = Upper ? k - imax : imax - k, from = Upper ? imax + 1 : k;
    T most = magnitude(at(imax, from + largest(count, place(imax, from), lda) - 1));
    if (beyond(imax) > 0) most = larger(most, magnitude(at(largest_beyond(imax), imax)));
    return most;
  }

  struct choice {
    zor_int row, step;
  };
  choice choose(zor_int k, T pivot, T colmax, zor_int imax) const {
    if (pivot >= alpha * colmax) return {k, 1};
    const T rowmax = largest_of_row(k, imax);
    if (pivot >= alpha * colmax * (colmax / rowmax)) return {k, 1};
    if (magnitude(at(imax, imax)) >= alpha * rowmax) return {imax, 1};
    return {imax, 2};
  }

  // Rows and columns kk and kp exchanged in the triangle from kk on, kp lying beyond kk; with a block of two,
  // row kk's and row kp's element of column k too.
  void interchange(zor_int k, zor_int kk, zor_int kp, zor_int step) const {
    exchange(beyond(kp), place(first_beyond(kp), kk), 1, place(first_beyond(kp), kp), 1);
    const zor_int low = Upper ? kp : kk, high = Upper ? kk : kp;
    if (high - low > 1) exchange(high - low - 1, place(low + 1, kk), 1, place(kp, low + 1), lda);
    exchange(1, place(kk, kk), 1, place(kp, kp), 1);
    if (step == 2) exchange(1, place(kk, k), 1, place(kp, k), 1);
  }

  void eliminate_one(zor_int k) const {
    const zor_int left = beyond(k), one = 1;
    if (left == 0) return;
    const zor_int first = first_beyond(k);
    const T r = 1 / at(k, k), minus = -r;
    syr_of<T>(uplo, &left, &minus, place(first, k), &one, place(first, first), &lda);
    scale(left, r, place(first, k), 1);
  }

  // Rows first to end - 1 of column j.
  void update_column(zor_int first, zor_int end, zor_int j, zor_int k, zor_int l, T w, T v) const {
    T* target = place(0, j);
    const T *outer = place(0, k), *inner = place(0, l);
    for_vectors<T, narrowing{}, 2>(
        first, end, [=]<int Bytes>(zor_int i) __attribute__((always_inline)) {
          using V = vec<T, Bytes>;
          const V x = load<V>(outer + i) * broadcast<V>(w), y = load<V>(inner + i) * broadcast<V>(v);
          store<V>(target + i, load<V>(target + i) - x - y);
        });
  }

  // The block of rows k and l, l next to k.
  void eliminate_two(zor_int k) const {
    const zor_int l = k + towards;
    const T between = at(l, k), dl = at(l, l) / between, dk = at(k, k) / between;
    const T t = 1 / (dl * dk - 1) / between;
    zor_int j = l;
    for (zor_int left = beyond(l); left > 0; --left) {
      j += towards;
      const T w = t * (dl * at(j, k) - at(j, l)), v = t * (dk * at(j, l) - at(j, k));
      update_column(Upper ? 0 : j, Upper ? j + 1 : n, j, k, l, w, v);
      store_element(place(j, k), w);
      store_element(place(j, l), v);
    }
  }

  zor_int run() const {
    zor_int info = 0;
    for (zor_int k = Upper ? n - 1 : 0; k >= 0 && k < n;) {
      const T pivot = magnitude(at(k, k));
      zor_int imax = k;
      T colmax = 0;
      if (beyond(k) > 0) {
        imax = largest_beyond(k);
        colmax = magnitude(at(imax, k));
      }
      if (larger(pivot, colmax) == 0) {
        if (info == 0) info = k + 1;
        ipiv[k] = k + 1;
        k += towards;
        continue;
      }
      const choice c = choose(k, pivot, colmax, imax);
      const zor_int kk = k + (c.step - 1) * towards;
      if (c.row != kk) interchange(k, kk, c.row, c.step);
      if (c.step == 1) {
        eliminate_one(k);
        ipiv[k] = c.row + 1;
      } else {
        eliminate_two(k);
        ipiv[k] = ipiv[kk] = -(c.row + 1);
      }
      k += c.step * towards;
    }
    return info;
  }
};

}  // namespace
}  // namespace zor

#define ROW_SYTRF_SMALL(name, T, upper) \
  extern "C" SIG_SYTRF_SMALL(name, T) { *info = zor::bunch_kaufman<upper, T>{uplo, *n, a, *lda, ipiv}.run(); }
#include "zor/tables/lapack.inc"
