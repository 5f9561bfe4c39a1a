// SPDX-License-Identifier: MIT
// Roots of unity of one length by look-up, for tables that take many of them.
#pragma once

#include <cstddef>

#include "dft/engine/plan/memory.h"
#include "dft/engine/roots/trig.h"

namespace zor::dft {

// The circle is cut into arcs that mirror each other: octants where 4 divides n, quarters where only 2 does,
// halves for odd n. The table keeps the first.
struct root_table {
  int64_t n;
  int32_t arcs;
  wide_root* arc;
  double arcs_each;  // arcs / n
  int64_t period;    // 2 n / arcs
};

// False when memory is short.
inline bool roots_build(root_table* t, int64_t n) {
  const int32_t arcs = n % 4 == 0 ? 8 : n % 2 == 0 ? 4 : 2;
  const int64_t count = n / arcs + 1;
  *t = {n, arcs, static_cast<wide_root*>(engine_allocate_unfilled(uint64_t(count) * sizeof(wide_root))),
        double(arcs) / double(n), 2 * n / arcs};
  if (t->arc != nullptr) wide_roots_of_unity(n, count, t->arc);
  return t->arc != nullptr;
}

inline void roots_free(root_table* t) {
  engine_free(t->arc);
  t->arc = nullptr;
}

// How the roots of one arc stand in the table: the parts of root k at re + stride * k and im + stride * k,
// those of its tail 2 behind, each times its sign.
struct root_view {
  const double* parts;
  ptrdiff_t re, im, stride;
  double re_sign, im_sign;

  [[gnu::always_inline]] zor_c64 head(int64_t k) const {
    return {re_sign * parts[re + stride * k], im_sign * parts[im + stride * k]};
  }
  [[gnu::always_inline]] zor_c64 tail(int64_t k) const {
    return {re_sign * parts[re + stride * k + 2], im_sign * parts[im + stride * k + 2]};
  }
};

// The arc that root k stands in, 0 <= k < n: arcs begin at multiples of a half, and a quarter of one is far
// above the rounding of the product.
[[gnu::always_inline]] inline int64_t arc_of(const root_table& t, int64_t k) {
  return int64_t((double(k) + 0.25) * t.arcs_each);
}

// The view of arc number `at`: even ones rise, odd ones fall. Quarters and halves have the signs of the
// eighths that border on the real axis.
[[gnu::always_inline]] inline root_view view_of(const root_table& t, int64_t at) {
  static constexpr double signs[8][2] = {{1, 1},   {-1, -1}, {1, -1}, {-1, 1},
                                         {-1, -1}, {1, 1},   {-1, 1}, {1, -1}};
  const int64_t eighth = t.arcs == 8 ? at : t.arcs == 4 ? at / 2 * 4 + at % 2 * 3 : at * 7;
  const int64_t odd = at & 1, origin = ((at >> 1) + odd) * (2 * odd - 1) * t.period;
  const bool steep = (eighth & 3) % 3 != 0;
  return {&t.arc->head.re, 4 * origin + steep, 4 * origin + !steep,
          4 - 8 * odd,     signs[eighth][0],   signs[eighth][1]};
}

// root_of_unity(k, n) and its tail for 0 <= k < n.
[[gnu::always_inline]] inline wide_root wide_root_at(const root_table& t, int64_t k) {
  const root_view v = view_of(t, arc_of(t, k));
  return {v.head(k), v.tail(k)};
}
[[gnu::always_inline]] inline zor_c64 root_at(const root_table& t, int64_t k) {
  return view_of(t, arc_of(t, k)).head(k);
}

// put(i, view, k) for all i < count, k = i * step modulo n, 0 <= step < n: root k is view.head(k). Arc by
// arc.
template <class Put>
[[gnu::always_inline]] inline void walk_roots(const root_table& t, int64_t step, int64_t count, Put put) {
  int64_t k = 0;
  for (int64_t i = 0; i < count;) {
    const int64_t at = arc_of(t, k);
    const root_view view = view_of(t, at);
    const int64_t behind = ((at + 1) * t.n + t.arcs - 1) / t.arcs;
    for (; i < count && k < behind; ++i, k += step) put(i, view, k);
    if (k >= t.n) k -= t.n;
  }
}

template <class R>
inline void set_root(R* w, zor_c64 v, ptrdiff_t im) {
  w[0] = R(v.re);
  w[im] = R(v.im);
}

// Roots p s of `length`, which divides the table's, for s from 1 to rows and p < l in vectors of `lanes` (a
// power of two; the last vector ends with p = l - 1): by vector, then s, real parts before imaginary parts.
template <class R>
void fill_twiddles(const root_table& t, int64_t length, int32_t rows, ptrdiff_t l, int32_t lanes, R* w) {
  const int64_t step = t.n / length;
  const ptrdiff_t block = ptrdiff_t{2} * lanes * rows;
  const int shift = __builtin_ctz(uint32_t(lanes));
  for (int64_t s = 1; s <= rows; ++s, w += 2 * lanes) {
    walk_roots(
        t, s * step, l, [&](ptrdiff_t p, const root_view& view, int64_t k) __attribute__((always_inline)) {
          set_root(w + (p >> shift) * block + (p & (lanes - 1)), view.head(k), lanes);
        });
    for (int32_t j = 0; l % lanes != 0 && j < lanes; ++j)
      set_root(w + (l >> shift) * block + j, root_at(t, (l - lanes + j) * s * step), lanes);
  }
}

}  // namespace zor::dft
