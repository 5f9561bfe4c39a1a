// SPDX-License-Identifier: MIT
// A tridiagonal system by elimination with row interchanges, right-hand sides carried along. Row i is kept
// when |d(i)| is at least |dl(i)|, and exchanged with the next one otherwise.
#include "lapack/right_hand_sides.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

template <class T>
zor_int eliminate(zor_int n, zor_int nrhs, T* dl, T* d, T* du, T* b, zor_int ldb) {
  for (zor_int i = 0; i < n - 1; ++i) {
    const bool inner = i < n - 2;
    const T pivot = load_element(d + i), below = load_element(dl + i), beside = load_element(du + i),
            next = load_element(d + i + 1);
    if (magnitude(pivot) >= magnitude(below)) {
      if (pivot == 0) return i + 1;
      const T f = below / pivot;
      store_element(d + i + 1, next - f * beside);
      for (zor_int k = 0; k < nrhs; ++k) {
        T* row = b + i + k * ldb;
        store_element(row + 1, load_element(row + 1) - f * load_element(row));
      }
      if (inner) store_element(dl + i, T(0));
    } else {
      const T f = pivot / below;
      store_element(d + i, below);
      store_element(d + i + 1, beside - f * next);
      if (inner) {
        const T second = load_element(du + i + 1);
        store_element(dl + i, second);
        store_element(du + i + 1, -f * second);
      }
      store_element(du + i, next);
      for (zor_int k = 0; k < nrhs; ++k) {
        T* row = b + i + k * ldb;
        const T first = load_element(row), second = load_element(row + 1);
        store_element(row, second);
        store_element(row + 1, first - f * second);
      }
    }
  }
  return load_element(d + n - 1) == 0 ? n : 0;
}

template <int Columns, class T>
void substitute(zor_int n, const T* dl, const T* d, const T* du, T* b, zor_int ldb) {
  using row = row_of<Columns, T>;
  const auto over = [&](const row& r, zor_int i) __attribute__((always_inline)) {
    return r.map([by = load_element(d + i)](T v) __attribute__((always_inline)) { return v / by; });
  };
  row above{};  // row i + 2, x being row i + 1
  row x = over(row::load(b + n - 1, ldb), n - 1);
  x.store(b + n - 1, ldb);
  for (zor_int i = n - 2; i >= 0; --i) {
    row next = row::load(b + i, ldb).minus(load_element(du + i), x);
    if (i < n - 2) next = next.minus(load_element(dl + i), above);
    above = x;
    x = over(next, i);
    x.store(b + i, ldb);
  }
}

template <class T>
zor_int gtsv_small(zor_int n, zor_int nrhs, T* dl, T* d, T* du, T* b, zor_int ldb) {
  if (n < 1) return 0;
  if (const zor_int info = eliminate(n, nrhs, dl, d, du, b, ldb)) return info;
  for_column_groups(nrhs, b, ldb, [=]<int C>(T* columns) { substitute<C>(n, dl, d, du, columns, ldb); });
  return 0;
}

}  // namespace
}  // namespace zor

#define ROW_GTSV_SMALL(name, T) \
  extern "C" SIG_GTSV_SMALL(name, T) { *info = zor::gtsv_small(*n, *nrhs, dl, d, du, b, *ldb); }
#include "zor/tables/lapack.inc"
