// SPDX-License-Identifier: MIT
// C := C + alpha op(A) B for a CSR matrix under its views, right-hand sides first to last. B and C do not
// overlap. No sum crosses right-hand sides, so packs of them are worked on at once.
#include <limits>

#include "blas/level1/vector.h"
#include "serv/scratch.h"
#include "spblas/csr/row_blocks.h"
#include "spblas/csr/row_dot.h"
#include "spblas/csr/scatter.h"
#include "zor/signatures/spblas.h"

namespace zor::sparse {
namespace {

template <class T, bool RowMajor, class I>
struct product {
  csr<T, I> a;
  zor_int m, first, last;
  T alpha;
  dense<const T, RowMajor> b;
  dense<T, RowMajor> c;
};

// The row dot of mvout for R packs of right-hand sides from j on, then c(r, j) = c(r, j) + s alpha, for rows
// `row` to end - 1. B is read through b.
template <int N, int R, class T, bool RowMajor, bool RowsOfB, class I>
[[gnu::noinline]] void dot_panel(const product<T, RowMajor, I>& p, bool conj, zor_int row, zor_int end,
                                 zor_int j, dense<const T, RowsOfB> b) {
  const csr<T, I> a = p.a.moved();
  const dense<const T, RowsOfB> x{settled(b.at(-a.base, j)), b.ld};
  const dense<T, RowMajor> c = p.c;
  const auto alpha = spread<T, N>(&p.alpha);
  // Where runs of equally short rows pay for the code that they take.
  constexpr int longest = RowsOfB && N == widest<T> ? 5 : 0;
  for_rows<longest>(
      a, row, end, [&]<int Count>(zor_int r) __attribute__((always_inline)) {
        const auto s = row_dots<N, R, Count>(a, conj, a.begin(r), a.end(r), x);
        each<R>([&](int i) __attribute__((always_inline)) {
          const zor_int column = j + i * N;
          c.template put<N>(r, column, c.template get<N>(r, column) + mul<T>(alpha, s.at[i]));
        });
      });
}

// The same for right-hand sides first to last - 1. A line of a column-major B is one pack in the widest
// build.
template <class T, bool RowMajor, bool RowsOfB, class I>
void dot_rows(const product<T, RowMajor, I>& p, bool conj, zor_int row, zor_int end, zor_int first,
              zor_int last, dense<const T, RowsOfB> b) {
  for_panels<T, RowMajor ? abreast : 64 / width>(
      row, end, first,
      last, [&]<int N, int R>(zor_int j, zor_int from, zor_int to) __attribute__((always_inline)) {
        dot_panel<N, R>(p, conj, from, to, j, b);
      });
}

// The rows of B that some rows of A use, first to last, and how many entries use them.
struct reach {
  zor_int first, last, entries;

  zor_int rows() const { return entries == 0 ? 0 : last - first + 1; }
};
template <class T, class I>
reach reach_of(csr<T, I> a, zor_int row, zor_int end) {
  using V = vec<I>;
  constexpr I none = std::numeric_limits<I>::max();
  V low = broadcast<V>(none), high = broadcast<V>(-1);
  zor_int entries = 0;
  const auto meet = [&](V columns) __attribute__((always_inline)) {
    low = min_lanes(low, columns);
    high = max_lanes(high, columns);
  };
  while (row < end) {
    zor_int k = a.begin(row), last = a.end(row);
    while (++row < end && a.begin(row) == last) last = a.end(row);
    entries += last - k;
    for (; k + lanes<V> <= last; k += lanes<V>) {
      touch(a.indx + k + 2048 / sizeof(I));
      meet(zor::load<V>(a.indx + k));
    }
    for (; k < last; ++k) meet(broadcast<V>(a.indx[k]));
  }
  I first = none, most = -1;
  for (int i = 0; i < lanes<V>; ++i) {
    first = low[i] < first ? low[i] : first;
    most = high[i] > most ? high[i] : most;
  }
  return {first - a.base, most - a.base, entries};
}

// Bytes of a copied row of B, the same in every build, since the pool can tell.
template <bool RowMajor>
constexpr zor_int copied_row = RowMajor ? 128 : 64;

// A column-major B costs a cache line for every entry and right-hand side. Copied a line of columns at a time
// into rows of their own it costs one for all of them. A row-major B whose rows are used all over, and of
// which the second cache holds less than half, is copied likewise where the cache holds the copy.
template <class T, bool RowMajor, class I>
bool copy_may_pay(const product<T, RowMajor, I>& p) {
  return p.last - p.first > 1;
}
template <class T, class I>
bool copy_may_pay(const product<T, true, I>& p) {
  constexpr zor_int second_cache = 1 << 21;
  const zor_int bytes = (p.last - p.first) * zor_int(sizeof(T)), middle = p.m / 2;
  if (bytes <= copied_row<true>) return false;
  const zor_int rows = reach_of(p.a, middle, p.m - middle < 64 ? p.m : middle + 64).rows();
  return rows * bytes > 2 * second_cache && rows * copied_row<true> <= second_cache;
}

// False, with nothing done, when the copy would not pay or memory is short.
template <class T, bool RowMajor, class I>
bool dot_rows_of_copy(const product<T, RowMajor, I>& p, bool conj, zor_int row, zor_int end) {
  constexpr zor_int columns = copied_row<RowMajor> / zor_int(sizeof(T));
  const reach r = reach_of(p.a, row, end);
  const zor_int rows = r.rows();
  if (rows == 0 || r.entries < (RowMajor ? 16 : 2) * rows) return false;
  const scratch<T> block(rows * columns);
  if (block.data == nullptr) return false;
  T* const copy = block.data;
  for (zor_int first = p.first; first < p.last; first += columns) {
    const zor_int last = p.last - first < columns ? p.last : first + columns;
    for_panels<T, 1>(
        r.first, r.last + 1, first,
        last, [&]<int N, int>(zor_int j, zor_int i, zor_int stop) __attribute__((always_inline)) {
          for (T* to = copy + (i - r.first) * columns + j - first; i < stop; ++i, to += columns)
            store<T, N>(to, p.b.template get<N>(i, j));
        });
    dot_rows(p, conj, row, end, first, last, dense<const T, true>{copy - r.first * columns - first, columns});
  }
  return true;
}

// R packs of right-hand sides of the views that subtract again, from j on, addressed from there.
template <int N, int R, class T, bool RowMajor, class I>
struct view_panel {
  using V = pack<T, N>;
  csr<T, I> a;
  dense<const T, RowMajor> b;
  dense<T, RowMajor> c;
  V alpha;

  view_panel(const product<T, RowMajor, I>& p, zor_int j)
      : a(p.a), b{p.b.at(0, j), p.b.ld}, c{p.c.at(0, j), p.c.ld}, alpha(spread<T, N>(&p.alpha)) {}

  [[gnu::always_inline]] V entry(zor_int k, bool conj) const {
    return spread<T, N>(conj_if<T>(conj, load<T, 1>(a.val + k)));
  }
  // (a alpha) of an entry.
  [[gnu::always_inline]] V scaled_entry(zor_int k, bool conj) const { return mul<T>(entry(k, conj), alpha); }
  [[gnu::always_inline]] V b_of(zor_int k, int i) const { return b.template get<N>(a.column(k), i * N); }
  [[gnu::always_inline]] packs<T, N, R> row_of_c(zor_int row) const {
    packs<T, N, R> v;
    each<R>([&](int i) __attribute__((always_inline)) { v.at[i] = c.template get<N>(row, i * N); });
    return v;
  }
  template <class Change>
  [[gnu::always_inline]] void change_c(zor_int row, const Change& change) const {
    each<R>([&](int i) __attribute__((always_inline)) {
      c.template put<N>(row, i * N, change(i, c.template get<N>(row, i * N)));
    });
  }
  // The whole row: groups of four, c(r, j) = c(r, j) + (((a3 b3 + a2 b2) + a1 b1) + a0 b0) alpha, then single
  // entries, c(r, j) + (a alpha) b.
  [[gnu::always_inline]] packs<T, N, R> whole_row(zor_int row, bool conj) const {
    packs<T, N, R> v = row_of_c(row);
    zor_int k = a.begin(row);
    const zor_int end = settled(a.end(row));
    for (; k + 4 <= end; k += 4) {
      const V e0 = entry(k, conj), e1 = entry(k + 1, conj), e2 = entry(k + 2, conj), e3 = entry(k + 3, conj);
      each<R>([&](int i) __attribute__((always_inline)) {
        const V group = mul<T>(e3, b_of(k + 3, i)) + mul<T>(e2, b_of(k + 2, i)) + mul<T>(e1, b_of(k + 1, i)) +
                        mul<T>(e0, b_of(k, i));
        v.at[i] = v.at[i] + mul<T>(group, alpha);
      });
    }
    for (; k < end; ++k) {
      const V f = scaled_entry(k, conj);
      each<R>([&](int i) __attribute__((always_inline)) { v.at[i] = v.at[i] + mul<T>(f, b_of(k, i)); });
    }
    return v;
  }
};

// Triangular view: the whole row, then u = sum of (a alpha) b over the entries outside the view, a unit
// diagonal among them; c(r, j) = c(r, j) - u, with b(r, j) alpha added before for a unit diagonal.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void triangle_panel(const product<T, RowMajor, I>& p, view v, zor_int row, zor_int end,
                                      zor_int j) {
  const view_panel<N, R, T, RowMajor, I> q(p, j);
  for (; row < end; ++row) {
    packs<T, N, R> c = q.whole_row(row, v.conjugated()), u{};
    const zor_int last = settled(q.a.end(row));
    for (zor_int k = q.a.begin(row); k < last; ++k) {
      if (v.side() * (q.a.column(k) - row) <= v.bound()) continue;
      const auto f = q.scaled_entry(k, v.conjugated());
      each<R>([&](int i) __attribute__((always_inline)) { u.at[i] = u.at[i] + mul<T>(f, q.b_of(k, i)); });
    }
    each<R>([&](int i) __attribute__((always_inline)) {
      if (v.unit()) c.at[i] = mul<T>(q.b.template get<N>(row, i * N), q.alpha) + c.at[i];
      q.c.template put<N>(row, i * N, c.at[i] - u.at[i]);
    });
  }
}

template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void whole_panel(const product<T, RowMajor, I>& p, bool conj, zor_int row, zor_int end,
                                   zor_int j) {
  const view_panel<N, R, T, RowMajor, I> q(p, j);
  for (; row < end; ++row) {
    const packs<T, N, R> c = q.whole_row(row, conj);
    each<R>([&](int i) __attribute__((always_inline)) { q.c.template put<N>(row, i * N, c.at[i]); });
  }
}

// The second sweep of the symmetric, Hermitian and antisymmetric views: entries inside the triangle go to
// their mirror row, c(col, j) = c(col, j) + (b(r, j) alpha) a (minus for Skew), those outside are gathered,
// u = u + (a alpha) b, with the diagonal among them unless it is stored; c(r, j) = c(r, j) - u, and a unit
// diagonal adds b(r, j) alpha last.
template <bool Skew, int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void correct_panel(const product<T, RowMajor, I>& p, view v, bool gather, bool mirror,
                                     zor_int row, zor_int end, zor_int j) {
  using V = pack<T, N>;
  const view_panel<N, R, T, RowMajor, I> q(p, j);
  const bool keep_diagonal = v.diagonal == 'n';
  for (; row < end; ++row) {
    packs<T, N, R> t, u{};
    each<R>([&](int i) __attribute__((always_inline)) {
      t.at[i] = mul<T>(q.b.template get<N>(row, i * N), q.alpha);
    });
    const zor_int last = settled(q.a.end(row));
    for (zor_int k = q.a.begin(row); k < last; ++k) {
      const zor_int beyond = v.side() * (q.a.column(k) - row);
      if (beyond < 0) {
        const V e = q.entry(k, mirror);
        q.change_c(
            q.a.column(k), [&](int i, V c) __attribute__((always_inline)) {
              const V image = mul<T>(t.at[i], e);
              return Skew ? c - image : c + image;
            });
      } else if (beyond > 0 || !keep_diagonal) {
        const V f = q.scaled_entry(k, gather);
        each<R>([&](int i) __attribute__((always_inline)) { u.at[i] = u.at[i] + mul<T>(f, q.b_of(k, i)); });
      }
    }
    q.change_c(
        row, [&](int i, V c)
                 __attribute__((always_inline)) { return v.unit() ? c - u.at[i] + t.at[i] : c - u.at[i]; });
  }
}

template <class T, bool RowMajor, class I>
void triangle(const product<T, RowMajor, I>& p, view v) {
  for_panels<T, abreast_in<RowMajor>>(
      0, p.m, p.first,
      p.last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        triangle_panel<N, R>(p, v, row, end, j);
      });
}

template <bool Skew, class T, bool RowMajor, class I>
void mirrored(const product<T, RowMajor, I>& p, view v) {
  const bool hermitian = v.structure == 'h';
  const bool gather = hermitian ? v.op == 't' : v.conjugated();
  const bool mirror = hermitian ? v.op == 'n' : v.conjugated();
  for_panels<T, abreast_in<RowMajor>>(
      0, p.m, p.first,
      p.last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        whole_panel<N, R>(p, gather, row, end, j);
      });
  for_panels<T, abreast_in<RowMajor>>(
      0, p.m, p.first,
      p.last, [&]<int N, int R>(zor_int j, zor_int row, zor_int end) __attribute__((always_inline)) {
        correct_panel<Skew, N, R>(p, v, gather, mirror, row, end, j);
      });
}

// Only the column-major members block their rows.
template <class T, bool RowMajor, class I>
void general(const product<T, RowMajor, I>& p, bool conj, I n) {
  const zor_int block = RowMajor ? p.m : rows_in_block<I>(weights_of<T>(conj), I(p.m), p.a.pntre[p.m - 1], n);
  const zor_int blocks = p.m / block;
  const bool may_copy = copy_may_pay(p);
  for (zor_int i = 0; i < blocks; ++i) {
    const zor_int row = i * block, end = i + 1 < blocks ? row + block : p.m;
    if (!may_copy || !dot_rows_of_copy(p, conj, row, end)) dot_rows(p, conj, row, end, p.first, p.last, p.b);
  }
}

template <view V, class T, bool RowMajor, class I>
void multiply(product<T, RowMajor, I> p, I n) {
  if constexpr (V.structure == 'g' && V.transposed())
    scatter_rows(p.a, V.conjugated(), p.m, p.first, p.last, p.alpha, p.b, p.c);
  else if constexpr (V.structure == 'g')
    general(p, V.conjugated(), n);
  else if constexpr (V.structure == 't' && V.transposed())
    scatter_triangle(p.a, V, p.m, p.first, p.last, p.alpha, p.b, p.c);
  else if constexpr (V.structure == 't')
    triangle(p, V);
  else if constexpr (V.structure == 'd')
    scale_rows(p.a, V.conjugated(), p.m, p.first, p.last, p.alpha, p.b, p.c);
  else
    mirrored<V.structure == 'a'>(p, V);
}

// Identity: an axpy a column, or a row in row-major layout.
template <bool RowMajor, class T>
void add_scaled(zor_int m, zor_int n, T alpha, const T* b, zor_int ldb, T* c, zor_int ldc) {
  const zor_int length = RowMajor ? n : m, count = RowMajor ? m : n;
  for (zor_int i = 0; i < count; ++i) zor::axpy<T>(length, alpha, b + i * ldb, 1, c + i * ldc, 1);
}

}  // namespace
}  // namespace zor::sparse

#define ROW_csr_mmout_par(name, T, I, base, op, shape, tri, diag)                                    \
  extern "C" SIG_csr_mmout_par(name, T, I) {                                                         \
    if (*m < 1 || *last < *first) return;                                                            \
    using namespace zor::sparse;                                                                     \
    constexpr view v = ZOR_VIEW(op, shape, tri, diag);                                               \
    multiply<v, T, base == 0, I>(                                                                    \
        {{val, indx, pntrb, pntre, base}, *m, *first - 1, *last, *alpha, {b, *ldb}, {c, *ldc}}, *n); \
  }
#define ROW_csr_mmout_seq(name, T, I, base, op, shape, tri, diag)                          \
  extern "C" SIG_csr_mmout_seq(name, T, I) {                                               \
    if (*m < 1 || *n < 1) return;                                                          \
    using namespace zor::sparse;                                                           \
    constexpr view v = ZOR_VIEW(op, shape, tri, diag);                                     \
    if constexpr (v.unit())                                                                \
      add_scaled<base == 0>(*m, *n, *alpha, b, *ldb, c, *ldc);                             \
    else                                                                                   \
      multiply<v, T, base == 0, I>(                                                        \
          {{val, indx, pntrb, pntre, base}, *m, 0, *n, *alpha, {b, *ldb}, {c, *ldc}}, *n); \
  }
#include "zor/tables/spblas_csr.inc"
