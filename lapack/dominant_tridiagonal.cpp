// SPDX-License-Identifier: MIT
// Tridiagonal matrices factored without interchanges from both ends to the middle: rows 0 to c-1 are
// eliminated downwards and rows n-1 to c+1 upwards, c = n - 1 - (n-1)/2. The two chains of operations are
// independent of each other until they meet, and the processor runs them side by side. Pivots are kept as
// reciprocals.
//
// Every element is the result of one stated chain: products and differences rounded one by one, complex
// products (xr yr - xi yi, xr yi + xi yr), complex reciprocals as in serv/quotient.h. A running element is
// stored at each step and carried in a register; where the chains meet it is read again.
#include "lapack/right_hand_sides.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

template <class T>
[[gnu::always_inline]] inline bool is_bad_pivot(T p) {
  if constexpr (is_complex<T>)
    return is_zero(p) || p.re != p.re || p.im != p.im;
  else
    return p == 0 || p != p;
}

// Factors; with Solve the downward and upward half of the solution for b is carried along. Returns info.
template <bool Solve, class T>
zor_int factor_from_ends(zor_int n, T* dl, T* d, const T* du, T* b) {
  const zor_int h = (n - 1) / 2, c = n - 1 - h;
  T top = load_parts(d), bottom = load_parts(d + n - 1), top_b{}, bottom_b{};
  if constexpr (Solve) top_b = load_parts(b), bottom_b = load_parts(b + n - 1);
  const auto eliminate_downwards = [&](zor_int i) __attribute__((always_inline)) {
    const T r = reciprocal(top), l = mul(load_parts(dl + i), r);
    store_parts(d + i, r);
    store_parts(dl + i, l);
    top = minus_product(load_parts(d + i + 1), l, load_parts(du + i));
    store_parts(d + i + 1, top);
    if constexpr (Solve) {
      top_b = minus_product(load_parts(b + i + 1), top_b, l);
      store_parts(b + i + 1, top_b);
    }
  };
  const auto eliminate_upwards = [&](zor_int j) __attribute__((always_inline)) {
    const T r = reciprocal(bottom), l = mul(load_parts(dl + j - 1), r), u = load_parts(du + j - 1);
    store_parts(d + j, r);
    store_parts(dl + j - 1, l);
    bottom = minus_product(load_parts(d + j - 1), l, u);
    store_parts(d + j - 1, bottom);
    if constexpr (Solve) {
      bottom_b = mul(bottom_b, r);
      store_parts(b + j, bottom_b);
      bottom_b = minus_product(load_parts(b + j - 1), u, bottom_b);
      store_parts(b + j - 1, bottom_b);
    }
  };
  for (zor_int i = 0; i < h; ++i) {
    if (is_bad_pivot(top)) return i + 1;
    eliminate_downwards(i);
    if (is_bad_pivot(bottom)) return n - i;
    eliminate_upwards(n - 1 - i);
  }
  if (n % 2 == 0) {
    if (is_bad_pivot(top)) return h + 1;
    eliminate_downwards(h);
  }
  const T last = load_parts(d + c);
  if (is_bad_pivot(last)) return n - h;
  store_parts(d + c, reciprocal(last));
  return 0;
}

// The outward half of a solution, from row `down` to the end and from row `up` to the start.
template <int Columns, class T>
[[gnu::always_inline]] inline void solve_outwards(zor_int down, zor_int up, zor_int steps, const T* dl,
                                                  const T* d, const T* du, T* b, zor_int ldb) {
  using row = row_of<Columns, T>;
  row low = row::load(b + down, ldb), high = row::load(b + up, ldb);
  for (zor_int m = 1; m <= steps; ++m) {
    low = row::load(b + down + m, ldb).minus(load_parts(dl + down + m - 1), low);
    low.store(b + down + m, ldb);
    high = row::load(b + up - m, ldb).minus(load_parts(du + up - m), high).times(load_parts(d + up - m));
    high.store(b + up - m, ldb);
  }
}

template <int Columns, class T>
void solve(zor_int n, const T* dl, const T* d, const T* du, T* b, zor_int ldb) {
  using row = row_of<Columns, T>;
  const zor_int g = n / 2;
  row top = row::load(b, ldb), bottom = row::load(b + n - 1, ldb);
  for (zor_int i = 0; i < g; ++i) {
    const zor_int j = n - 1 - i;
    top = row::load(b + i + 1, ldb).minus(load_parts(dl + i), top);
    top.store(b + i + 1, ldb);
    // The last step of an even order: the upward chain goes on with the row that has just been changed.
    if (i + 1 == j) bottom = top;
    bottom = bottom.times(load_parts(d + j));
    bottom.store(b + j, ldb);
    bottom = row::load(b + j - 1, ldb).minus(load_parts(du + j - 1), bottom);
    bottom.store(b + j - 1, ldb);
  }
  const zor_int last = n - g - 1;
  row::load(b + last, ldb).times(load_parts(d + last)).store(b + last, ldb);
  solve_outwards<Columns>(g, last, last, dl, d, du, b, ldb);
}

template <int Columns, bool Conj, class T>
void solve_transposed(zor_int n, const T* dl, const T* d, const T* du, T* b, zor_int ldb) {
  using row = row_of<Columns, T>;
  const auto op = [](const T* p) __attribute__((always_inline)) {
    return conj_by_sign_if(Conj, load_parts(p));
  };
  const zor_int g = n / 2;
  row x = row::load(b + n - 1, ldb);
  for (zor_int j = n - 1; j > g; --j) {
    x = row::load(b + j - 1, ldb).minus(op(du + j - 1), x);
    x.store(b + j - 1, ldb);
  }
  x = row::load(b, ldb).times(op(d));
  x.store(b, ldb);
  for (zor_int i = 1; i < n; ++i) {
    x = row::load(b + i, ldb).minus(op(dl + i - 1), x).times(op(d + i));
    x.store(b + i, ldb);
  }
  x = row::load(b + g, ldb);
  for (zor_int i = g - 1; i >= 0; --i) {
    x = row::load(b + i, ldb).minus(op(du + i), x);
    x.store(b + i, ldb);
  }
}

template <class T>
void dttrsb(char trans, zor_int n, zor_int nrhs, const T* dl, const T* d, const T* du, T* b, zor_int ldb) {
  if (n < 1 || nrhs < 1) return;
  const char letter = char(trans & ~0x20);
  if (letter == 'N')
    for_column_groups(nrhs, b, ldb, [=]<int C>(T* columns) { solve<C>(n, dl, d, du, columns, ldb); });
  else if (letter == 'C' && is_complex<T>)
    for_column_groups(nrhs, b, ldb, [=]<int C>(T* columns) {
      solve_transposed<C, is_complex<T>>(n, dl, d, du, columns, ldb);
    });
  else if (letter == 'T' || letter == 'C')
    for_column_groups(nrhs, b, ldb,
                      [=]<int C>(T* columns) { solve_transposed<C, false>(n, dl, d, du, columns, ldb); });
}

template <class T>
zor_int dtsvb(zor_int n, zor_int nrhs, T* dl, T* d, const T* du, T* b, zor_int ldb) {
  if (n < 1 || nrhs < 1) return 0;
  if (nrhs != 1) {
    const zor_int info = factor_from_ends<false, T>(n, dl, d, du, nullptr);
    if (info == 0) dttrsb('N', n, nrhs, dl, d, du, b, ldb);
    return info;
  }
  if (const zor_int info = factor_from_ends<true>(n, dl, d, du, b)) return info;
  const zor_int h = (n - 1) / 2, c = n - 1 - h;
  const T middle = mul(load_parts(b + c), load_parts(d + c));
  store_parts(b + c, middle);
  // c is h + 1 here.
  if (n % 2 == 0)
    store_parts(b + h, mul(minus_product(load_parts(b + h), middle, load_parts(du + h)), load_parts(d + h)));
  solve_outwards<1>(c, h, h, dl, d, du, b, ldb);
  return 0;
}

}  // namespace
}  // namespace zor

#define ROW_DTTRFB(name, T)                                                       \
  extern "C" SIG_DTTRFB(name, T) {                                                \
    *info = *n < 1 ? 0 : zor::factor_from_ends<false, T>(*n, dl, d, du, nullptr); \
  }
#define ROW_DTTRSB(name, T)                             \
  extern "C" SIG_DTTRSB(name, T) {                      \
    *info = 0;                                          \
    zor::dttrsb(*trans, *n, *nrhs, dl, d, du, b, *ldb); \
  }
#define ROW_DTSVB(name, T) \
  extern "C" SIG_DTSVB(name, T) { *info = zor::dtsvb(*n, *nrhs, dl, d, du, b, *ldb); }
#include "zor/tables/lapack.inc"
