// SPDX-License-Identifier: MIT
// y := y + alpha op(A) x for a CSR matrix under the views whose rows may be cut into ranges, none of them
// transposed. x and y do not overlap; rows need not be sorted. Most views do not skip entries: the product
// runs over the whole row, without a comparison in the hot loop, and a second pass over the row takes away
// what the view leaves out. So entries outside a view take part in the rounding.
#pragma once

#include "spblas/csr/mvout/classify.h"

namespace zor::sparse {

// General view: s = row dot, y(r) = y(r) + s alpha.
template <class T, bool Conj, class I>
void general_rows(const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  for_near_or_far_rows<thresholds::dot_runs>(
      p.a, p.first, p.last, [&]<int Count>(zor_int r, zor_int k) __attribute__((always_inline)) {
        const stored_entries<T, I> entries{p.a.val + k, p.a.indx + k};
        const one<T> s = row_dot_of<Count, T, Conj>(entries, p.a.end(r) - k, p.x);
        p.set_y(r, p.y_at(r) + p.scaled(s));
      });
}

// Stored diagonal: s = row dot, then s = s - a x(c) for each entry outside the triangle; y(r) = alpha s +
// y(r).
template <class T, int Side, bool Conj, class I>
void triangle_stored(const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  const one<T> alpha = p.scale();
  each_row<thresholds::dot_runs>(
      p, [&](zor_int r, auto row) __attribute__((always_inline)) {
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
void triangle_unit(const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  const one<T> alpha = p.scale();
  each_row<thresholds::unit_runs>(
      p, [&](zor_int r, auto row) __attribute__((always_inline)) {
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

// The unit symmetric, unit Hermitian and antisymmetric views, dot and correct: y(r) = s alpha + y(r) over the
// whole row; then entries inside the triangle are scattered with t = x(r) alpha and all others gathered into
// u = u + (a alpha) x(c), which is taken from y(r) again. A unit diagonal adds t first; Skew scatters with a
// minus. No entry inside is scattered to y(r) itself.
template <class T, int Side, bool Skew, bool Gather, bool Mirror, class I>
void dot_and_correct(const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  const one<T> alpha = p.scale();
  const factor<T> scale(alpha);
  each_row<thresholds::scatter_runs>(
      p, [&](zor_int r, auto row) __attribute__((always_inline)) {
        const one<T> whole = mul<T>(row.template dot<Gather>(p.x), alpha) + p.y_at(r);
        const factor<T> t(mul<T>(p.x_at(r), alpha));
        one<T> u{};
        row.each([&](const T* a, zor_int c) __attribute__((always_inline)) {
          c = opaque(c);  // Else its places in x and in y are held in registers as well, which run out.
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
void dot_and_correct_stored(const vector_product<T, I>& given) {
  const vector_product<T, I> p = given.with_stored_numbers();
  const one<T> alpha = p.scale();
  each_row<thresholds::scatter_runs>(
      p, [&](zor_int r, auto row) __attribute__((always_inline)) {
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

// The members ns with a stored diagonal address x and y relative to the first row of the range.
template <class T, class I>
vector_product<T, I> relative_to_range(vector_product<T, I> p) {
  p.x -= p.first;
  p.y -= p.first;
  return p;
}

template <class T, int Side, bool Conj, class I>
void multiply_triangle(view v, const vector_product<T, I>& p) {
  v.unit() ? triangle_unit<T, Side, Conj>(p) : triangle_stored<T, Side, Conj>(p);
}

// Gather conjugates the entries, Mirror their images.
template <class T, int Side, bool Gather, bool Mirror, class I>
void multiply_mirrored(view v, const vector_product<T, I>& p) {
  if constexpr (Gather == Mirror) {
    if (v.skew()) return dot_and_correct<T, Side, true, Gather, Mirror>(p);
  }
  if (v.unit()) return dot_and_correct<T, Side, false, Gather, Mirror>(p);
  if constexpr (!Gather && !Mirror)
    classify<T, Side, false, false>(relative_to_range(p));
  else if (p.a.base == 0)
    dot_and_correct_stored<T, Side, Gather, Mirror>(p);
  else
    classify<T, Side, Gather, Mirror>(p);
}

template <class T, int Side, class I>
void multiply_one_side(view v, const vector_product<T, I>& p) {
  const bool gather = v.conjugates_entry(), mirror = v.conjugates_image();
  if constexpr (!is_complex<T>)
    v.mirrored() ? multiply_mirrored<T, Side, false, false>(v, p) : multiply_triangle<T, Side, false>(v, p);
  else if (!v.mirrored())
    gather ? multiply_triangle<T, Side, true>(v, p) : multiply_triangle<T, Side, false>(v, p);
  else if (gather)
    mirror ? multiply_mirrored<T, Side, true, true>(v, p) : multiply_mirrored<T, Side, true, false>(v, p);
  else
    mirror ? multiply_mirrored<T, Side, false, true>(v, p) : multiply_mirrored<T, Side, false, false>(v, p);
}

template <class T, class I>
void multiply_rows(view v, const vector_product<T, I>& p) {
  if (v.structure != 'g')
    v.side() > 0 ? multiply_one_side<T, 1>(v, p) : multiply_one_side<T, -1>(v, p);
  else if (is_complex<T> && v.conjugated())
    general_rows<T, is_complex<T>>(p);
  else
    general_rows<T, false>(p);
}

}  // namespace zor::sparse
