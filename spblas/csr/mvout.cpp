// SPDX-License-Identifier: MIT
// y := y + alpha op(A) x for a CSR matrix under its views, and the plain row product of gemvout. x and y do
// not overlap; rows need not be sorted. Most views do not skip entries: the product runs over the whole row,
// without a comparison in the hot loop, and a second pass over the row takes away what the view leaves out.
// So entries outside a view take part in the rounding.
#include "blas/vector/vector.h"
#include "spblas/csr/row_dot.h"
#include "spblas/csr/scatter.h"
#include "zor/spblas.h"

namespace zor::sparse {
namespace {

// What every product is given. Rows run from first to last - 1, counted from 0.
template <class T, class I>
struct product {
  csr<T, I> a;
  zor_int first, last;
  T alpha;
  const T* x;
  T* y;

  // x moved so that an index addresses it without subtracting the base.
  const T* shifted_x() const { return settled(x - a.base); }
  template <bool Conj>
  [[gnu::always_inline]] one<T> dot(zor_int r) const {
    const zor_int k = a.begin(r);
    return row_dot<T, Conj>(a.val + k, a.indx + k, a.end(r) - k, shifted_x());
  }
  [[gnu::always_inline]] one<T> x_at(zor_int i) const { return load<T, 1>(x + i); }
  [[gnu::always_inline]] one<T> y_at(zor_int i) const { return load<T, 1>(y + i); }
  [[gnu::always_inline]] void set_y(zor_int i, one<T> v) const { store<T, 1>(y + i, v); }
  [[gnu::always_inline]] one<T> entry(zor_int k) const { return load<T, 1>(a.val + k); }
  [[gnu::always_inline]] one<T> scale() const { return load<T, 1>(&alpha); }
};

// General view: s = row dot, y(r) = y(r) + s alpha.
template <class T, bool Conj, class I>
void general(product<T, I> p) {
  const csr<T, I> a = p.a.moved();
  const one<T> alpha = p.scale();
  const T* const x = p.shifted_x();
  for_near_or_far_rows<7, 2>(
      a, p.first, p.last, [&]<int Count>(zor_int r) __attribute__((always_inline)) {
        const zor_int k = a.begin(r);
        const one<T> s = row_dot_of<Count, T, Conj>(a.val + k, a.indx + k, a.end(r) - k, x);
        p.set_y(r, p.y_at(r) + mul<T>(s, alpha));
      });
}

// Stored diagonal: s = row dot, then s = s - a x(c) for each entry outside the triangle; y(r) = alpha s +
// y(r).
template <class T, bool Conj, class I>
void triangle_stored(product<T, I> p, int side) {
  const one<T> alpha = p.scale();
  for (zor_int r = p.first; r < p.last; ++r) {
    one<T> s = p.template dot<Conj>(r);
    for (zor_int k = p.a.begin(r); k < p.a.end(r); ++k) {
      const zor_int c = p.a.column(k);
      if (side * (c - r) > 0) s = s - mul<T, Conj>(p.entry(k), p.x_at(c));
    }
    p.set_y(r, mul<T>(alpha, s) + p.y_at(r));
  }
}

// Unit diagonal: u is the chain of a x(c) over the entries outside the triangle and on the diagonal, less
// x(r); y(r) = y(r) + (s - u) alpha.
template <class T, bool Conj, class I>
void triangle_unit(product<T, I> p, int side) {
  const one<T> alpha = p.scale();
  for (zor_int r = p.first; r < p.last; ++r) {
    const one<T> s = p.template dot<Conj>(r);
    one<T> u{};
    for (zor_int k = p.a.begin(r); k < p.a.end(r); ++k) {
      const zor_int c = p.a.column(k);
      if (side * (c - r) >= 0) u = u + mul<T, Conj>(p.entry(k), p.x_at(c));
    }
    u = u - p.x_at(r);
    p.set_y(r, p.y_at(r) + mul<T>(s - u, alpha));
  }
}

// Symmetric and Hermitian views by classification, one pass: with t = x(r) alpha, an entry inside the
// triangle is scattered to its mirror row, y(c) = y(c) + t a, and gathered, s = s + a x(c); a diagonal entry
// is gathered; one beyond the diagonal is not touched. y(r) = y(r) + s alpha. Gather and Mirror conjugate a
// in the one use or the other.
template <class T, int Side, bool Gather, bool Mirror, class I>
void classify(product<T, I> p) {
  const csr<T, I> a = p.a.moved();
  const one<T> alpha = p.scale();
  const T* const x = p.shifted_x();
  T* const y = settled(p.y - a.base);
  for_near_or_far_rows<5, 3>(
      a, p.first, p.last, [&]<int Count>(zor_int row) __attribute__((always_inline)) {
        const zor_int r = row + a.base;
        const factor<T> t(mul<T>(load<T, 1>(x + r), alpha));
        one<T> s{};
        const auto inside = [=](zor_int c) __attribute__((always_inline)) {
          return Side > 0 ? c < r : c > r;
        };
        const auto gather = [&](zor_int k, zor_int c) __attribute__((always_inline)) {
          s = s + mul_at<T, Gather>(a.val + k, load<T, 1>(x + c));
        };
        const auto scatter = [&](zor_int k, zor_int c) __attribute__((always_inline)) {
          const one<T> image = t.template times<Mirror>(a.val + k);
          gather(k, c);
          store<T, 1>(y + c, load<T, 1>(y + c) + image);
        };
        const auto meet = [&](zor_int k) __attribute__((always_inline)) {
          const zor_int c = a.indx[k];
          if (inside(c))
            scatter(k, c);
          else if (c == r)
            gather(k, c);
        };
        // The diagonal behind or before others of the triangle, straight on. It pays for complex elements.
        constexpr int diagonal = Side > 0 ? Count - 1 : 0;
        const auto usual = [&](zor_int k) __attribute__((always_inline)) {
          bool is = a.indx[k + diagonal] == r;
#pragma GCC unroll 8
          for (int i = 0; i < Count; ++i) is = is && (i == diagonal || inside(a.indx[k + i]));
          return is;
        };
        zor_int k = a.begin(row);
        if constexpr (Count > 0 && !is_complex<T>) {
#pragma GCC unroll 8
          for (int i = 0; i < Count; ++i) meet(k + i);
        } else if (Count > 0 && usual(k)) [[likely]] {
#pragma GCC unroll 8
          for (int i = 0; i < Count; ++i) i == diagonal ? gather(k + i, r) : scatter(k + i, a.indx[k + i]);
        } else {
          for (const zor_int end = settled(a.end(row)); k < end; ++k) meet(k);
        }
        store<T, 1>(y + r, load<T, 1>(y + r) + mul<T>(s, alpha));
      });
}

// The unit symmetric, unit Hermitian and antisymmetric views, dot and correct: y(r) = s alpha + y(r) over the
// whole row; then entries inside the triangle are scattered with t = x(r) alpha and all others gathered into
// u = u + (a alpha) x(c), which is taken from y(r) again. A unit diagonal adds t first; Skew scatters with a
// minus.
template <class T, bool Skew, bool Gather, bool Mirror, class I>
void correct(product<T, I> p, int side) {
  const one<T> alpha = p.scale();
  for (zor_int r = p.first; r < p.last; ++r) {
    p.set_y(r, mul<T>(p.template dot<Gather>(r), alpha) + p.y_at(r));
    const one<T> t = mul<T>(p.x_at(r), alpha);
    one<T> u{};
    for (zor_int k = p.a.begin(r); k < p.a.end(r); ++k) {
      const zor_int c = p.a.column(k);
      const one<T> a = p.entry(k);
      if (side * (c - r) < 0) {
        const one<T> image = mul<T, Mirror>(a, t);
        p.set_y(c, Skew ? p.y_at(c) - image : p.y_at(c) + image);
      } else {
        u = u + mul<T>(mul<T>(conj_if<T>(Gather, a), alpha), p.x_at(c));
      }
    }
    p.set_y(r, (Skew ? p.y_at(r) : p.y_at(r) + t) - u);
  }
}

// The complex 0-based members with a conjugated or Hermitian view and a stored diagonal: y(r) = y(r) + alpha
// s over the whole row; entries inside the triangle are scattered, those beyond the diagonal gathered
// unscaled into u, the diagonal passed over; y(r) = y(r) - alpha u.
template <class T, bool Gather, bool Mirror, class I>
void correct_stored(product<T, I> p, int side) {
  const one<T> alpha = p.scale();
  for (zor_int r = p.first; r < p.last; ++r) {
    p.set_y(r, p.y_at(r) + mul<T>(alpha, p.template dot<Gather>(r)));
    const one<T> t = mul<T>(alpha, p.x_at(r));
    one<T> u{};
    for (zor_int k = p.a.begin(r); k < p.a.end(r); ++k) {
      const zor_int c = p.a.column(k);
      const zor_int beyond = side * (c - r);
      if (beyond < 0) p.set_y(c, p.y_at(c) + mul<T, Mirror>(p.entry(k), t));
      if (beyond > 0) u = u + mul<T, Gather>(p.entry(k), p.x_at(c));
    }
    p.set_y(r, p.y_at(r) - mul<T>(alpha, u));
  }
}

// The members ns with a stored diagonal address x and y relative to the first row of the range.
template <class T, class I>
product<T, I> relative_to_range(product<T, I> p) {
  p.x -= p.first;
  p.y -= p.first;
  return p;
}

template <view V, class T, class I>
void multiply_rows(product<T, I> p) {
  constexpr bool conj = V.conjugated();
  // The Hermitian views conjugate one of the two uses of an entry; its transpose exchanges them.
  constexpr bool gather = V.structure == 'h' ? V.op == 't' : conj;
  constexpr bool mirror = V.structure == 'h' ? V.op == 'n' : conj;
  constexpr bool absolute = V.structure == 'h' || conj;
  if constexpr (V.structure == 'g')
    general<T, conj>(p);
  else if constexpr (V.structure == 't' && !V.unit())
    triangle_stored<T, conj>(p, V.side());
  else if constexpr (V.structure == 't')
    triangle_unit<T, conj>(p, V.side());
  else if constexpr (V.structure == 'a')
    correct<T, true, gather, mirror>(p, V.side());
  else if constexpr (V.unit())
    correct<T, false, gather, mirror>(p, V.side());
  else if constexpr (!absolute)
    classify<T, V.side(), false, false>(relative_to_range(p));
  else if (p.a.base == 0)
    correct_stored<T, gather, mirror>(p, V.side());
  else
    classify<T, V.side(), gather, mirror>(p);
}

template <view V, class T, class I>
void multiply_all(csr<T, I> a, zor_int m, T alpha, const T* x, T* y) {
  // One right-hand side: the leading dimensions are never used.
  const dense<const T, false> b{x, 0};
  const dense<T, false> c{y, 0};
  if constexpr (V.structure == 'g')
    scatter_rows(a, V.conjugated(), m, 0, 1, alpha, b, c);
  else if constexpr (V.structure == 't')
    scatter_triangle(a, V, m, 0, 1, alpha, b, c);
  else
    scale_rows(a, V.conjugated(), m, 0, 1, alpha, b, c);
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

#define ROW_csr_mvout_par(name, T, I, base, op, shape, tri, diag)                                            \
  extern "C" void name(const I* first, const I* last, const I*, const T* alpha, const T* val, const I* indx, \
                       const I* pntrb, const I* pntre, const T* x, T* y) {                                   \
    if (*last < *first) return;                                                                              \
    using namespace zor::sparse;                                                                             \
    constexpr view v = ZOR_VIEW(op, shape, tri, diag);                                                       \
    multiply_rows<v, T, I>({{val, indx, pntrb, pntre, base}, *first - 1, *last, *alpha, x, y});              \
  }
#define ROW_csr_mvout_seq(name, T, I, base, op, shape, tri, diag)                               \
  extern "C" void name(const I* m, const T* alpha, const T* val, const I* indx, const I* pntrb, \
                       const I* pntre, const T* x, T* y) {                                      \
    if (*m < 1) return;                                                                         \
    using namespace zor::sparse;                                                                \
    constexpr view v = ZOR_VIEW(op, shape, tri, diag);                                          \
    if constexpr (v.structure == 'd' && v.unit())                                               \
      zor::axpy<T>(*m, *alpha, x, 1, y, 1);                                                     \
    else                                                                                        \
      multiply_all<v, T, I>({val, indx, pntrb, pntre, base}, *m, *alpha, x, y);                 \
  }
#define ROW_csr_gemvout_par(name, T, I, base, ...)                                                           \
  extern "C" void name(const I* first, const I* last, const void*, const void*, const T* val, const I* indx, \
                       const I* ia, const void*, const T* x, T* y) {                                         \
    if (*last < *first) return;                                                                              \
    zor::sparse::row_products<T, I>(*first - 1, *last, val, indx, ia, x, y);                                 \
  }
#include "zor/tables/spblas_grammar.inc"
