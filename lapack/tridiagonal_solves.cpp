// SPDX-License-Identifier: MIT
// Solves with factorisations of tridiagonal matrices that were made elsewhere: L U with row interchanges
// (gtts2) and L D L^T or L D L^H (ptts2). From four right-hand sides on, groups of four columns are
// multiplied by reciprocals of the diagonal, made once; the columns left over are divided by it, and so are
// all columns where there is no memory for the reciprocals. Products and differences are rounded one by one,
// in the order of the expressions below.
#include "lapack/blas.h"
#include "lapack/right_hand_sides.h"
#include "serv/element.h"
#include "serv/scratch.h"
#include "zor/signatures/lapack.h"

namespace zor {
namespace {

// v over the diagonal's element i, or times its reciprocal. D is the type of the diagonal.
template <class D>
struct divided {
  const D* d;
  template <bool Conj = false, class T>
  [[gnu::always_inline]] T operator()(T v, zor_int i) const {
    const D by = load_parts(d + i);
    if constexpr (is_complex<D> || !is_complex<T>)
      return quotient(v, conj_by_sign_if(Conj, by));
    else
      return {v.re / by, v.im / by};
  }
};
template <class D>
struct multiplied {
  const D* r;
  template <bool Conj = false, class T>
  [[gnu::always_inline]] T operator()(T v, zor_int i) const {
    if constexpr (is_complex<D> || !is_complex<T>)
      return mul(v, conj_by_sign_if(Conj, r[i]));
    else
      return scaled(r[i], v);
  }
};

// The reciprocals of d. data is null when there is no memory.
template <class D>
struct reciprocals {
  reciprocals(zor_int n, const D* d) : r(n, 128) {
    if (r.data == nullptr) return;
    if constexpr (is_complex<D>) {
      for (zor_int i = 0; i < n; ++i) r.data[i] = reciprocal(load_parts(d + i));
    } else {
      for_vectors<D>(
          0, n, [&]<int Bytes>(zor_int i) __attribute__((always_inline)) {
            using V = vec<D, Bytes>;
            store<V>(r.data + i, broadcast<V>(1) / load<V>(d + i));
          });
    }
  }
  scratch<D> r;
};

// Calls solve.operator()<Columns>(divide, b) for all columns.
template <class D, class T, class Solve>
void for_divided_columns(zor_int n, zor_int nrhs, const D* d, T* b, zor_int ldb, const Solve& solve) {
  if (nrhs >= 4) {
    if (const reciprocals<D> r(n, d); r.r.data != nullptr) {
      const zor_int grouped = nrhs & ~zor_int(3);
      for_column_groups(grouped, b, ldb, [&]<int C>(T* columns) {
        solve.template operator()<C>(multiplied<D>{r.r.data}, columns);
      });
      b += grouped * ldb;
      nrhs -= grouped;
    }
  }
  for_column_groups(nrhs, b, ldb,
                    [&]<int C>(T* columns) { solve.template operator()<C>(divided<D>{d}, columns); });
}

// ---- L U with interchanges.

template <class T>
struct lu_factors {
  zor_int n;
  const T *dl, *d, *du, *du2;
  const zor_int* ipiv;
};

template <int Columns, class T, class Divide>
void solve(const lu_factors<T> f, const Divide& divide, T* b, zor_int ldb) {
  using row = row_of<Columns, T>;
  row x = row::load(b, ldb);
  for (zor_int i = 0; i < f.n - 1; ++i) {
    const row next = row::load(b + i + 1, ldb);
    if (f.ipiv[i] == i + 1) {
      x.store(b + i, ldb);
      x = next.minus(load_parts(f.dl + i), x);
    } else {
      next.store(b + i, ldb);
      x = x.minus(load_parts(f.dl + i), next);
    }
  }
  const auto over = [&](const row& r, zor_int i) __attribute__((always_inline)) {
    return r.map([&](T v) __attribute__((always_inline)) { return divide(v, i); });
  };
  row above{};  // row i + 2, x being row i + 1
  zor_int i = f.n - 1;
  x = over(x, i);
  x.store(b + i, ldb);
  if (i-- > 0) {
    above = x;
    x = over(row::load(b + i, ldb).minus(load_parts(f.du + i), x), i);
    x.store(b + i, ldb);
  }
  while (i-- > 0) {
    const row next = row::load(b + i, ldb).minus(load_parts(f.du + i), x).minus(load_parts(f.du2 + i), above);
    above = x;
    x = over(next, i);
    x.store(b + i, ldb);
  }
}

template <int Columns, bool Conj, class T, class Divide>
void solve_transposed(const lu_factors<T> f, const Divide& divide, T* b, zor_int ldb) {
  using row = row_of<Columns, T>;
  const auto op = [](const T* p) __attribute__((always_inline)) {
    return conj_by_sign_if(Conj, load_parts(p));
  };
  const auto over = [&](const row& r, zor_int i) __attribute__((always_inline)) {
    return r.map([&](T v) __attribute__((always_inline)) { return divide.template operator()<Conj>(v, i); });
  };
  row x = over(row::load(b, ldb), 0), above{};
  x.store(b, ldb);
  if (f.n > 1) {
    above = x;
    x = over(row::load(b + 1, ldb).minus(op(f.du), x), 1);
    x.store(b + 1, ldb);
  }
  for (zor_int i = 2; i < f.n; ++i) {
    const row next = row::load(b + i, ldb).minus(op(f.du + i - 1), x).minus(op(f.du2 + i - 2), above);
    above = x;
    x = over(next, i);
    x.store(b + i, ldb);
  }
  for (zor_int i = f.n - 2; i >= 0; --i) {
    const row next = row::load(b + i, ldb);
    const T l = op(f.dl + i);
    if (f.ipiv[i] == i + 1) {
      x.store(b + i + 1, ldb);
      x = next.minus(l, x);
    } else {
      next.minus(l, x).store(b + i + 1, ldb);
    }
  }
  x.store(b, ldb);
}

template <class T>
void gtts2(zor_int itrans, const lu_factors<T> f, zor_int nrhs, T* b, zor_int ldb) {
  if (f.n < 1 || nrhs < 1) return;
  for_divided_columns(f.n, nrhs, f.d, b, ldb, [=]<int C>(const auto& divide, T* columns) {
    if (itrans == 0)
      solve<C>(f, divide, columns, ldb);
    else if (is_complex<T> && itrans != 1)
      solve_transposed<C, is_complex<T>>(f, divide, columns, ldb);
    else
      solve_transposed<C, false>(f, divide, columns, ldb);
  });
}

// ---- L D L^T.

// With ConjForward the forward pass conjugates e, with ConjBackward the backward pass does.
template <int Columns, bool ConjForward, bool ConjBackward, class T, class Divide>
void solve_ldl(zor_int n, const T* e, const Divide& divide, T* b, zor_int ldb) {
  using row = row_of<Columns, T>;
  row x = row::load(b, ldb);
  for (zor_int i = 1; i < n; ++i) {
    x = row::load(b + i, ldb).minus(conj_by_sign_if(ConjForward, load_parts(e + i - 1)), x);
    x.store(b + i, ldb);
  }
  const auto over = [&](const row& r, zor_int i) __attribute__((always_inline)) {
    return r.map([&](T v) __attribute__((always_inline)) { return divide(v, i); });
  };
  x = over(x, n - 1);
  x.store(b + n - 1, ldb);
  for (zor_int i = n - 2; i >= 0; --i) {
    x = over(row::load(b + i, ldb), i).minus(conj_by_sign_if(ConjBackward, load_parts(e + i)), x);
    x.store(b + i, ldb);
  }
}

template <bool ConjForward, bool ConjBackward, class T, class D>
void ptts2(zor_int n, zor_int nrhs, const D* d, const T* e, T* b, zor_int ldb) {
  if (n < 1 || nrhs < 1) return;
  if (n == 1) return scale(nrhs, 1 / load_parts(d), b, ldb);
  for_divided_columns(n, nrhs, d, b, ldb, [=]<int C>(const auto& divide, T* columns) {
    solve_ldl<C, ConjForward, ConjBackward>(n, e, divide, columns, ldb);
  });
}

}  // namespace
}  // namespace zor

#define ROW_GTTS2(name, T)                                                             \
  extern "C" SIG_GTTS2(name, T) {                                                      \
    zor::gtts2(*itrans, zor::lu_factors<T>{*n, dl, d, du, du2, ipiv}, *nrhs, b, *ldb); \
  }
#define ROW_PTTS2(name, T) \
  extern "C" SIG_PTTS2(name, T) { zor::ptts2<false, false>(*n, *nrhs, d, e, b, *ldb); }
#define ROW_COMPLEX_PTTS2(name, T, R)                    \
  extern "C" SIG_COMPLEX_PTTS2(name, T, R) {             \
    if (*iuplo == 1)                                     \
      zor::ptts2<true, false>(*n, *nrhs, d, e, b, *ldb); \
    else                                                 \
      zor::ptts2<false, true>(*n, *nrhs, d, e, b, *ldb); \
  }
#include "zor/tables/lapack.inc"
