// SPDX-License-Identifier: MIT
// y := y + alpha op(A) x for a CSR matrix under its views, and the plain row product of gemvout. x and y do
// not overlap; rows need not be sorted. Most views do not skip entries: the product runs over the whole row,
// without a comparison in the hot loop, and a second pass over the row takes away what the view leaves out.
// So entries outside a view take part in the rounding.
#include "blas/level1/vector.h"
#include "spblas/csr/row_dot.h"
#include "zor/signatures/spblas.h"

namespace zor::sparse {
namespace {

// The entries of a row, whose number is known where Count is not 0.
template <int Count, class T, class I>
struct row_entries {
  const T* val;
  const I* indx;
  zor_int count;

  template <bool Conj>
  [[gnu::always_inline]] one<T> dot(const T* x) const {
    return row_dot_of<Count, T, Conj>(val, indx, count, x);
  }
  // Whether every column is beyond the one before it.
  [[gnu::always_inline]] bool ascends() const {
    bool up = true;
    if constexpr (Count > 0) {
#pragma GCC unroll 8
      for (int i = 1; i < Count; ++i) up = up && indx[i - 1] < indx[i];
    } else {
      using V = vec<I>;
      zor_int i = 1;
      for (; up && i + lanes<V> <= count; i += lanes<V>)
        up = sign_mask(V(zor::load<V>(indx + i - 1) - zor::load<V>(indx + i))) == (1u << lanes<V>)-1;
      for (; up && i < count; ++i) up = indx[i - 1] < indx[i];
    }
    return up;
  }
  // Calls visit(a, c) for every entry in order: where its value stands, and its column.
  template <class Visit>
  [[gnu::always_inline]] void each(const Visit& visit) const {
    if constexpr (Count > 0) {
#pragma GCC unroll 8
      for (int i = 0; i < Count; ++i) visit(val + i, zor_int(indx[i]));
    } else {
      for (zor_int i = 0; i < count; ++i) visit(val + i, zor_int(indx[i]));
    }
  }
  // The same for those entries alone that stand in a place as seen from row r. A long row is looked at by
  // vectors of columns.
  template <class Place, class Visit>
  [[gnu::always_inline]] void each_in(Place place, zor_int r, const Visit& visit) const {
    const auto look = [&](zor_int i) __attribute__((always_inline)) {
      const zor_int c = indx[i];
      if (place.holds(c, r)) visit(val + i, c);
    };
    if constexpr (Count > 0) {
#pragma GCC unroll 8
      for (int i = 0; i < Count; ++i) look(i);
    } else {
      constexpr int n = lanes_of<I>;
      zor_int i = 0;
      for (; i + n <= count; i += n) {
        if (place.none(zor::load<vec<I>>(indx + i), I(r))) continue;
        for (int j = 0; j < n; ++j) look(i + j);
      }
      for (; i < count; ++i) look(i);
    }
  }
  // Calls visit(term, c) for every entry in order; term<N>(a) makes the terms of N values from a on.
  template <class Term, class Visit>
  [[gnu::always_inline]] void each_term(const Term& term, const Visit& visit) const {
    // Complex elements by themselves take no shuffles, which pays in short rows.
    constexpr int most = is_complex<T> ? (Count > 0 ? 1 : 2) : 4, n = most < widest<T> ? most : widest<T>;
    const auto pass = [&]<int N>(zor_int i) __attribute__((always_inline)) {
      const pack<T, N> terms = term.template operator()<N>(val + i);
      [&]<int... E>(std::integer_sequence<int, E...>) __attribute__((always_inline)) {
        (visit(element<T, N, E>(terms), zor_int(indx[i + E])), ...);
      }
      (std::make_integer_sequence<int, N>{});
    };
    const zor_int known = Count > 0 ? Count : count;
    zor_int i = 0;
#pragma GCC unroll 4
    for (; i + n <= known; i += n) pass.template operator()<n>(i);
#pragma GCC unroll 4
    for (; i < known; ++i) pass.template operator()<1>(i);
  }
};

// Places of an entry as seen from its row.
template <int Side, bool Diagonal>  // Beyond the diagonal, or on it as well.
struct outside {
  static bool holds(zor_int c, zor_int r) { return Side * (c - r) > (Diagonal ? -1 : 0); }
  template <class V>
  [[gnu::always_inline]] static bool none(V c, lane_t<V> r) {
    if constexpr (Diagonal)
      return sign_mask(V(Side > 0 ? c - r : r - c)) == (1u << lanes<V>)-1;
    else
      return sign_mask(V(Side > 0 ? r - c : c - r)) == 0;
  }
};
struct on_diagonal {
  static bool holds(zor_int c, zor_int r) { return c == r; }
  template <class V>
  [[gnu::always_inline]] static bool none(V c, lane_t<V> r) {
    return sign_mask(V((c - r) | (r - c))) == (1u << lanes<V>)-1;
  }
};

// What every product is given. Rows run from first to last - 1, counted from 0.
template <class T, class I>
struct product {
  csr<T, I> a;
  zor_int first, last;
  T alpha;
  const T* x;
  T* y;

  // The same product with all operands moved, so that rows, columns and positions are used as they are
  // stored.
  product rebased() const {
    return {{settled(a.val - a.origin), settled(a.indx - a.origin), settled(a.pntrb - a.base),
             settled(a.pntre - a.base), 0, 0},
            first + a.base,
            last + a.base,
            alpha,
            settled(x - a.base),
            settled(y - a.base)};
  }
  // Calls visit(r, entries) for every row; see for_rows.
  template <int Most, int Least = 2, class Visit>
  [[gnu::always_inline]] void rows(const Visit& visit) const {
    for_rows<Most, Least>(
        a, first, last, [&]<int Count>(zor_int r, zor_int k) __attribute__((always_inline)) {
          visit(r, row_entries<Count, T, I>{settled(a.val + k), settled(a.indx + k), settled(a.end(r)) - k});
        });
  }
  [[gnu::always_inline]] one<T> x_at(zor_int i) const { return load<T, 1>(x + i); }
  [[gnu::always_inline]] one<T> y_at(zor_int i) const { return load<T, 1>(y + i); }
  [[gnu::always_inline]] void set_y(zor_int i, one<T> v) const { store<T, 1>(y + i, v); }
  [[gnu::always_inline]] one<T> scale() const { return load<T, 1>(&alpha); }
  [[gnu::always_inline]] one<T> scaled(one<T> v) const { return mul_at<T>(&alpha, v); }
};

// General view: s = row dot, y(r) = y(r) + s alpha.
template <class T, bool Conj, class I>
void general(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  for_near_or_far_rows<7, 2>(
      p.a, p.first, p.last, [&]<int Count>(zor_int r, zor_int k) __attribute__((always_inline)) {
        const one<T> s = row_dot_of<Count, T, Conj>(p.a.val + k, p.a.indx + k, p.a.end(r) - k, p.x);
        p.set_y(r, p.y_at(r) + p.scaled(s));
      });
}

// Stored diagonal: s = row dot, then s = s - a x(c) for each entry outside the triangle; y(r) = alpha s +
// y(r).
template <class T, int Side, bool Conj, class I>
void triangle_stored(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  const one<T> alpha = p.scale();
  p.template rows<7>([&](zor_int r, auto row) __attribute__((always_inline)) {
    one<T> s = row.template dot<Conj>(p.x);
    row.each_in(
        outside<Side, false>{}, r, [&](const T* a, zor_int c) __attribute__((always_inline)) {
          s = s - mul_at<T, Conj>(a, p.x_at(c));
        });
    p.set_y(r, mul<T>(alpha, s) + p.y_at(r));
  });
}

// Unit diagonal: u is the chain of a x(c) over the entries outside the triangle and on the diagonal, less
// x(r); y(r) = y(r) + (s - u) alpha.
template <class T, int Side, bool Conj, class I>
void triangle_unit(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  const one<T> alpha = p.scale();
  p.template rows<5>([&](zor_int r, auto row) __attribute__((always_inline)) {
    const one<T> s = row.template dot<Conj>(p.x);
    one<T> u{};
    row.each_in(
        outside<Side, true>{}, r, [&](const T* a, zor_int c) __attribute__((always_inline)) {
          u = u + mul_at<T, Conj>(a, p.x_at(c));
        });
    u = u - p.x_at(r);
    p.set_y(r, p.y_at(r) + mul<T>(s - u, alpha));
  });
}

// Symmetric and Hermitian views by classification, one pass: with t = x(r) alpha, an entry inside the
// triangle is scattered to its mirror row, y(c) = y(c) + t a, and gathered, s = s + a x(c); a diagonal entry
// is gathered; one beyond the diagonal is not touched. y(r) = y(r) + s alpha. Gather and Mirror conjugate a
// in the one use or the other. The entries of long rows are looked at six at a time, which leaves fewer
// branches; in short rows it costs more than it saves.
template <class T, int Side, bool Gather, bool Mirror, bool Long, class I>
[[gnu::noinline]] void classify_rows(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  const csr<T, I> a = p.a;
  const auto row = [&]<int Count>(zor_int r, zor_int k) __attribute__((always_inline)) {
    const one<T> xr = p.x_at(r);
    const factor<T> t(p.scaled(xr));
    one<T> s{};
    const auto inside = [=](I c) __attribute__((always_inline)) { return Side > 0 ? c < I(r) : c > I(r); };
    const auto gather = [&](zor_int i, one<T> xc) __attribute__((always_inline)) {
      s = s + mul_at<T, Gather>(a.val + i, xc);
    };
    const auto scatter = [&](zor_int i, zor_int c) __attribute__((always_inline)) {
      const one<T> image = t.template times<Mirror>(a.val + i);
      gather(i, p.x_at(c));
      p.set_y(c, p.y_at(c) + image);
    };
    const auto any = [&](zor_int i, zor_int end) __attribute__((always_inline)) {
      for (end = settled(end); i < end; ++i) {
        const I c = a.indx[i];
        if (inside(c))
          scatter(i, c);
        else if (c == I(r))
          gather(i, xr);
      }
    };
    // N entries straight on where all are inside but the one at Diagonal, which is it.
    const auto straight = [&]<int N, int Diagonal>(zor_int i) __attribute__((always_inline)) {
      I c[N];
      bool usual = true;
#pragma GCC unroll 8
      for (int j = 0; j < N; ++j) {
        c[j] = a.indx[i + j];
        usual = usual && (j == Diagonal ? c[j] == I(r) : inside(c[j]));
      }
      if (usual) [[likely]] {
#pragma GCC unroll 8
        for (int j = 0; j < N; ++j) j == Diagonal ? gather(i + j, xr) : scatter(i + j, c[j]);
      } else {
        any(i, i + N);
      }
    };
    if constexpr (Count > 0) {
      constexpr int diagonal = Side > 0 ? Count - 1 : 0;
      straight.template operator()<Count, diagonal>(k);
    } else {
      const zor_int end = settled(a.end(r));
      if constexpr (Long)
        for (; k + 6 <= end; k += 6) straight.template operator()<6, -1>(k);
      any(k, end);
    }
    p.set_y(r, p.y_at(r) + p.scaled(s));
  };
  if constexpr (Long)
    for (zor_int r = p.first; r < p.last; ++r) row.template operator()<0>(r, a.begin(r));
  else
    for_near_or_far_rows<5, 8>(a, p.first, p.last, row);
}
template <class T, int Side, bool Gather, bool Mirror, class I>
void classify(const product<T, I>& p) {
  const bool long_rows = p.a.end(p.last - 1) - p.a.begin(p.first) >= 16 * (p.last - p.first);
  if (long_rows)
    classify_rows<T, Side, Gather, Mirror, true>(p);
  else
    classify_rows<T, Side, Gather, Mirror, false>(p);
}

// The unit symmetric, unit Hermitian and antisymmetric views, dot and correct: y(r) = s alpha + y(r) over the
// whole row; then entries inside the triangle are scattered with t = x(r) alpha and all others gathered into
// u = u + (a alpha) x(c), which is taken from y(r) again. A unit diagonal adds t first; Skew scatters with a
// minus. No entry inside is scattered to y(r) itself.
template <class T, int Side, bool Skew, bool Gather, bool Mirror, class I>
void correct(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  const one<T> alpha = p.scale();
  const factor<T> scale(alpha);
  p.template rows<5, 3>([&](zor_int r, auto row) __attribute__((always_inline)) {
    const one<T> whole = mul<T>(row.template dot<Gather>(p.x), alpha) + p.y_at(r);
    const factor<T> t(mul<T>(p.x_at(r), alpha));
    one<T> u{};
    row.each([&](const T* a, zor_int c) __attribute__((always_inline)) {
      c = settled(c);  // Else its places in x and in y are held in registers as well, which run out.
      if (Side * (c - r) < 0) [[likely]] {
        const one<T> image = t.template times<Mirror>(a);
        p.set_y(c, Skew ? p.y_at(c) - image : p.y_at(c) + image);
      } else {
        u = u + mul_at<T>(p.x + c, scale.template times_conj<Gather>(a));
      }
    });
    p.set_y(r, (Skew ? whole : whole + t.value) - u);
  });
}

// The complex 0-based members with a conjugated or Hermitian view and a stored diagonal: y(r) = y(r) + alpha
// s over the whole row; entries inside the triangle are scattered, those beyond the diagonal gathered
// unscaled into u, the diagonal passed over; y(r) = y(r) - alpha u.
template <class T, int Side, bool Gather, bool Mirror, class I>
void correct_stored(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  const one<T> alpha = p.scale();
  p.template rows<5, 3>([&](zor_int r, auto row) __attribute__((always_inline)) {
    const one<T> whole = p.y_at(r) + mul<T>(alpha, row.template dot<Gather>(p.x));
    const factor<T> t(mul<T>(alpha, p.x_at(r)));
    one<T> u{};
    row.each([&](const T* a, zor_int c) __attribute__((always_inline)) {
      const zor_int beyond = Side * (c - r);
      if (beyond < 0) [[likely]]
        p.set_y(c, p.y_at(c) + t.template times<Mirror>(a));
      if (beyond > 0) u = u + mul_at<T, Gather>(a, p.x_at(c));
    });
    p.set_y(r, whole - mul<T>(alpha, u));
  });
}

// Transposed, general view: t = x(r) alpha, then y(c) = y(c) + a t for every entry.
template <class T, bool Conj, class I>
void transposed(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  const one<T> alpha = p.scale();
  p.template rows<7>([&](zor_int r, auto row) __attribute__((always_inline)) {
    const factor<T> t(mul<T>(p.x_at(r), alpha));
    const auto term = [&]<int N>(const T* a) __attribute__((always_inline)) {
      return t.template times_conj<Conj, N>(a);
    };
    row.each_term(
        term, [&](one<T> at, zor_int c) __attribute__((always_inline)) { p.set_y(c, p.y_at(c) + at); });
  });
}

// Transposed, triangular view, a row: every entry is scattered as y(c) = y(c) + (a alpha) x(r), a unit
// diagonal adds x(r) alpha, and a second pass takes away what the entries outside the view brought in.
template <class T, view V, class I>
[[gnu::noinline]] void scatter_twice(const product<T, I>& given, zor_int r, row_entries<0, T, I> row) {
  const product<T, I> p = given.rebased();
  const one<T> x = p.x_at(r);
  const factor<T> alpha(p.scale());
  const auto term = [=](const T* a) __attribute__((always_inline)) {
    return mul<T>(x, alpha.template times_conj<V.conjugated()>(a));
  };
  row.each([&](const T* a, zor_int c) __attribute__((always_inline)) { p.set_y(c, p.y_at(c) + term(a)); });
  if (V.unit()) p.set_y(r, p.y_at(r) + mul<T>(x, alpha.value));
  row.each_in(
      outside<V.side(), V.unit()>{},
      r, [&](const T* a, zor_int c) __attribute__((always_inline)) { p.set_y(c, p.y_at(c) - term(a)); });
}

// All rows. Where no column comes twice, as in rows that ascend, y(c) has all of its share at once.
template <class T, view V, class I>
void transposed_triangle(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  const factor<T> alpha(p.scale());
  p.template rows<5>([&](zor_int r, auto row) __attribute__((always_inline)) {
    if (!row.ascends()) [[unlikely]]
      return scatter_twice<T, V, I>(given, r, {row.val, row.indx, row.count});
    const one<T> x = p.x_at(r);
    bool met = !V.unit();
    const auto term = [&]<int N>(const T* a) __attribute__((always_inline)) {
      return mul<T>(spread<T, N>(x), alpha.template times_conj<V.conjugated(), N>(a));
    };
    row.each_term(
        term, [&](one<T> t, zor_int c) __attribute__((always_inline)) {
          one<T> s = p.y_at(c) + t;
          if (V.unit() && c == r) {
            s = s + mul<T>(x, alpha.value);
            met = true;
          }
          if (outside<V.side(), V.unit()>::holds(c, r)) s = s - t;
          p.set_y(c, s);
        });
    if (!met) p.set_y(r, p.y_at(r) + mul<T>(x, alpha.value));
  });
}

// Diagonal view: y(r) = y(r) + (a alpha) x(r) for every entry on the diagonal, duplicates included.
template <class T, bool Conj, class I>
void diagonal(const product<T, I>& given) {
  const product<T, I> p = given.rebased();
  const factor<T> alpha(p.scale());
  p.template rows<7>([&](zor_int r, auto row) __attribute__((always_inline)) {
    row.each_in(
        on_diagonal{}, r, [&](const T* a, zor_int) __attribute__((always_inline)) {
          p.set_y(r, p.y_at(r) + mul_at<T>(p.x + r, alpha.template times_conj<Conj>(a)));
        });
  });
}

// The members ns with a stored diagonal address x and y relative to the first row of the range.
template <class T, class I>
product<T, I> relative_to_range(product<T, I> p) {
  p.x -= p.first;
  p.y -= p.first;
  return p;
}

template <view V, class T, class I>
void multiply_rows(const product<T, I>& p) {
  constexpr bool conj = V.conjugated();
  // The Hermitian views conjugate one of the two uses of an entry; its transpose exchanges them.
  constexpr bool gather = V.structure == 'h' ? V.op == 't' : conj;
  constexpr bool mirror = V.structure == 'h' ? V.op == 'n' : conj;
  constexpr bool absolute = V.structure == 'h' || conj;
  if constexpr (V.structure == 'g')
    general<T, conj>(p);
  else if constexpr (V.structure == 't' && !V.unit())
    triangle_stored<T, V.side(), conj>(p);
  else if constexpr (V.structure == 't')
    triangle_unit<T, V.side(), conj>(p);
  else if constexpr (V.structure == 'a')
    correct<T, V.side(), true, gather, mirror>(p);
  else if constexpr (V.unit())
    correct<T, V.side(), false, gather, mirror>(p);
  else if constexpr (!absolute)
    classify<T, V.side(), false, false>(relative_to_range(p));
  else if (p.a.base == 0)
    correct_stored<T, V.side(), gather, mirror>(p);
  else
    classify<T, V.side(), gather, mirror>(p);
}

template <view V, class T, class I>
void multiply_all(const product<T, I>& p) {
  if constexpr (V.structure == 'g')
    transposed<T, V.conjugated()>(p);
  else if constexpr (V.structure == 't')
    transposed_triangle<T, V>(p);
  else
    diagonal<T, V.conjugated()>(p);
}

// One chain a row, no alpha, and y is overwritten. The row pointers are the three-array form.
template <class T, class I>
void row_products(zor_int first, zor_int last, const T* val, const I* indx, const I* ia, const T* x, T* y) {
  const csr<T, I> a{val, indx, ia, ia + 1, 1};
  for (zor_int r = first; r < last; ++r) {
    T s = 0;
    for (zor_int k = a.begin(r); k < a.end(r); ++k) s = s + val[k] * x[a.column(k)];
    y[r] = s;
  }
}

}  // namespace
}  // namespace zor::sparse

#define ROW_csr_mvout_par(name, T, I, base, op, shape, tri, diag)                               \
  extern "C" SIG_csr_mvout_par(name, T, I) {                                                    \
    (void)m;                                                                                    \
    if (*last < *first) return;                                                                 \
    using namespace zor::sparse;                                                                \
    constexpr view v = ZOR_VIEW(op, shape, tri, diag);                                          \
    multiply_rows<v, T, I>({{val, indx, pntrb, pntre, base}, *first - 1, *last, *alpha, x, y}); \
  }
#define ROW_csr_mvout_seq(name, T, I, base, op, shape, tri, diag)                    \
  extern "C" SIG_csr_mvout_seq(name, T, I) {                                         \
    if (*m < 1) return;                                                              \
    using namespace zor::sparse;                                                     \
    constexpr view v = ZOR_VIEW(op, shape, tri, diag);                               \
    if constexpr (v.structure == 'd' && v.unit())                                    \
      zor::axpy<T>(*m, *alpha, x, 1, y, 1);                                          \
    else                                                                             \
      multiply_all<v, T, I>({{val, indx, pntrb, pntre, base}, 0, *m, *alpha, x, y}); \
  }
#define ROW_csr_gemvout_par(name, T, I, base, ...)                           \
  extern "C" SIG_csr_gemvout_par(name, T, I) {                               \
    (void)unread1, (void)unread2, (void)unread3;                             \
    if (*last < *first) return;                                              \
    zor::sparse::row_products<T, I>(*first - 1, *last, val, indx, ia, x, y); \
  }
#include "zor/tables/spblas_csr.inc"
