// SPDX-License-Identifier: MIT
// A tridiagonal system by elimination with row interchanges, right-hand sides carried along. Row i is kept
// when |d(i)| is at least |dl(i)|, and exchanged with the next one otherwise.
#include "lapack/columns.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

template <class T>
zor_int eliminate(zor_int n, zor_int nrhs, T* dl, T* d, T* du, T* b, zor_int ldb) {
  for (zor_int i = 0; i < n - 1; ++i) {
    const bool inner = i < n - 2;
    if (magnitude(d[i]) >= magnitude(dl[i])) {
      if (d[i] == 0) return i + 1;
      const T f = dl[i] / d[i];
      d[i + 1] = d[i + 1] - f * du[i];
      for (zor_int k = 0; k < nrhs; ++k) b[i + 1 + k * ldb] = b[i + 1 + k * ldb] - f * b[i + k * ldb];
      if (inner) dl[i] = 0;
    } else {
      const T f = d[i] / dl[i], next = d[i + 1];
      d[i] = dl[i];
      d[i + 1] = du[i] - f * next;
      if (inner) {
        dl[i] = du[i + 1];
        du[i + 1] = -f * dl[i];
      }
      du[i] = next;
      for (zor_int k = 0; k < nrhs; ++k) {
        T* row = b + i + k * ldb;
        const T t = row[0];
        row[0] = row[1];
        row[1] = t - f * row[1];
      }
    }
  }
  return d[n - 1] == 0 ? n : 0;
}

template <int Columns, class T>
void substitute(zor_int n, const T* dl, const T* d, const T* du, T* b, zor_int ldb) {
  using row = row_of<Columns, T>;
  const auto over = [&](const row& r, zor_int i) __attribute__((always_inline)) {
    return r.map([&](T v) __attribute__((always_inline)) { return v / d[i]; });
  };
  row above{};  // row i + 2, x being row i + 1
  row x = over(row::load(b + n - 1, ldb), n - 1);
  x.store(b + n - 1, ldb);
  for (zor_int i = n - 2; i >= 0; --i) {
    row next = row::load(b + i, ldb).minus(du[i], x);
    if (i < n - 2) next = next.minus(dl[i], above);
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
