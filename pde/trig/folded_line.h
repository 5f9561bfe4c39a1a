// SPDX-License-Identifier: MIT
// The transforms 2 to 5 without sums, of one line through a plan of a line. Lines without gaps go by vectors,
// every element with the operations of the loops for any step.
#pragma once

#include "dft/line.h"
#include "pde/trig/folded.h"
#include "serv/vec.h"

namespace zor::pde {

template <class T>
struct folded_line {
  int32_t type;
  bool forward, mirrored;
  T factor;  // of the results
  ptrdiff_t n;
  T* f;  // element j at f + step j
  ptrdiff_t step;
  const T* pairs;
  T* line;  // n elements
};

// Vectors of elements p, p + 1, ... or p, p - 1, ...
template <class V, class T>
[[gnu::always_inline]] inline V load_along(const T* p, bool up) {
  return up ? load<V>(p) : reverse_lanes(load<V>(p - (lanes<V> - 1)));
}
template <class V, class T>
[[gnu::always_inline]] inline void store_along(T* p, bool up, V v) {
  if (up)
    store<V>(p, v);
  else
    store<V>(p - (lanes<V> - 1), reverse_lanes(v));
}
// Elements p, p + 2, ... and p + 1, p + 3, ...
template <class V>
struct alternate {
  V even, odd;
};
template <class V, class T>
[[gnu::always_inline]] inline alternate<V> load_alternate(const T* p) {
  const V low = load<V>(p), high = load<V>(p + lanes<V>);
  return {unzip<0>(low, high), unzip<1>(low, high)};
}
template <class V, class T>
[[gnu::always_inline]] inline void store_alternate(T* p, V even, V odd) {
  store<V>(p, zip_low(even, odd));
  store<V>(p + lanes<V>, zip_high(even, odd));
}

// The loops of cosines_of_spectrum and spectrum_of_cosines over whole vectors, from k = 1 on; they return the
// first k that is left. Point j of the grid is at points + direction j.
template <class T>
ptrdiff_t cosines_by_vectors(const folded_line<T>& l, T* points, bool up) {
  using V = vec<T>;
  constexpr ptrdiff_t L = lanes<V>;
  const ptrdiff_t n = l.n, odd = n % 2, direction = up ? 1 : -1;
  ptrdiff_t k = 1;
  for (; 2 * (k + L - 1) < n; k += L) {
    const auto z = load_alternate<V>(l.line + 2 * k - odd), w = load_alternate<V>(l.pairs + 2 * k);
    store_along<V>(points + direction * k, up, l.factor * (z.even * w.even + z.odd * w.odd));
    store_along<V>(points + direction * (n - k), !up, l.factor * (z.even * w.odd - z.odd * w.even));
  }
  return k;
}
template <class T>
ptrdiff_t spectrum_by_vectors(const folded_line<T>& l, const T* points, bool up) {
  using V = vec<T>;
  constexpr ptrdiff_t L = lanes<V>;
  const ptrdiff_t n = l.n, odd = n % 2, direction = up ? 1 : -1;
  ptrdiff_t k = 1;
  for (; 2 * (k + L - 1) < n; k += L) {
    const V a = load_along<V>(points + direction * k, up),
            b = load_along<V>(points + direction * (n - k), !up);
    const auto w = load_alternate<V>(l.pairs + 2 * k);
    store_alternate<V>(l.line + 2 * k - odd, a * w.even + b * w.odd, a * w.odd - b * w.even);
  }
  return k;
}

// Coefficients 2i and 2i + 1 from and to elements i and n - 1 - i of the line.
template <class T>
void fold(const folded_line<T>& l, const T* coefficients, T odd_sign) {
  using V = vec<T>;
  constexpr ptrdiff_t L = lanes<V>;
  const ptrdiff_t n = l.n, half = n / 2;
  ptrdiff_t i = 0;
  for (; l.step == 1 && i + L <= half; i += L) {
    const auto c = load_alternate<V>(coefficients + 2 * i);
    store<V>(l.line + i, c.even);
    store_along<V>(l.line + n - 1 - i, false, odd_sign * c.odd);
  }
  for (; i < half; ++i) {
    l.line[i] = coefficients[l.step * 2 * i];
    l.line[n - 1 - i] = odd_sign * coefficients[l.step * (2 * i + 1)];
  }
  if (n % 2 != 0) l.line[half] = coefficients[l.step * (n - 1)];
}
template <class T>
void unfold(const folded_line<T>& l, T* coefficients, T odd_factor) {
  using V = vec<T>;
  constexpr ptrdiff_t L = lanes<V>;
  const ptrdiff_t n = l.n, half = n / 2;
  ptrdiff_t i = 0;
  for (; l.step == 1 && i + L <= half; i += L)
    store_alternate<V>(coefficients + 2 * i, l.factor * load<V>(l.line + i),
                       odd_factor * load_along<V>(l.line + n - 1 - i, false));
  for (; i < half; ++i) {
    coefficients[l.step * 2 * i] = l.factor * l.line[i];
    coefficients[l.step * (2 * i + 1)] = odd_factor * l.line[n - 1 - i];
  }
  if (n % 2 != 0) coefficients[l.step * (n - 1)] = l.factor * l.line[half];
}

// Transforms 2 and 3. Transform 3 is transform 2 seen from the other end of the grid, the signs of its
// coefficients, of which the first stands at element 1, alternating.
template <class T, class Dft>
bool run_folded_cosines(const folded_line<T>& l, const Dft& dft) {
  const bool sine = l.type == 3, backwards = l.mirrored != sine;
  const ptrdiff_t n = l.n, step = backwards ? -l.step : l.step;
  T* const points = l.f + (backwards ? n * l.step : 0);
  T* const coefficients = l.f + (sine ? l.step : 0);
  const bool by_vectors = step == 1 || step == -1;
  const T* const line = l.line;
  if (l.forward) {
    const ptrdiff_t from = by_vectors ? spectrum_by_vectors(l, points, step == 1) : 1;
    spectrum_of_cosines(
        n, l.pairs, from, [=](ptrdiff_t j) { return points[step * j]; },
        [&l](ptrdiff_t i, T v) { l.line[i] = v; });
    if (!dft(dft::backward)) return false;
    unfold(l, coefficients, sine ? -l.factor : l.factor);
    return true;
  }
  fold(l, coefficients, sine ? T(-1) : T(1));
  if (!dft(dft::forward)) return false;
  const ptrdiff_t from = by_vectors ? cosines_by_vectors(l, points, step == 1) : 1;
  cosines_of_spectrum(
      n, l.pairs, from, [=](ptrdiff_t i) { return line[i]; },
      [=, factor = l.factor](ptrdiff_t j, T v) { points[step * j] = factor * v; });
  return true;
}

// The pairs of transforms 4 and 5 of even n: x(2m) + i x(n - 1 - 2m), its conjugate for transform 5, rotated.
template <class T>
void rotated_pairs(const folded_line<T>& l) {
  using V = vec<T>;
  constexpr ptrdiff_t L = lanes<V>;
  const ptrdiff_t n = l.n;
  const T sign = l.type == 5 ? T(-1) : T(1);
  ptrdiff_t m = 0;
  for (; l.step == 1 && 2 * (m + L) <= n; m += L) {
    const V re = load_alternate<V>(l.f + 2 * m).even;
    const V im = sign * reverse_lanes(load_alternate<V>(l.f + n - 2 * m - 2 * L).odd);
    const auto w = load_alternate<V>(l.pairs + 2 * m);
    store_alternate<V>(l.line + 2 * m, re * w.even + im * w.odd, im * w.even - re * w.odd);
  }
  for (; 2 * m < n; ++m) {
    const T re = l.f[l.step * 2 * m], im = sign * l.f[l.step * (n - 1 - 2 * m)];
    const T c = l.pairs[2 * m], s = l.pairs[2 * m + 1];
    l.line[2 * m] = re * c + im * s;
    l.line[2 * m + 1] = im * c - re * s;
  }
}

// Results 2m and n - 1 - 2m.
template <class V, class T>
[[gnu::always_inline]] inline alternate<V> rotated_results(const folded_line<T>& l, V re, V im, V c, V s) {
  const V first = l.factor * (re * c + im * s), second = l.factor * (re * s - im * c);
  return l.type == 5 ? alternate<V>{second, first} : alternate<V>{first, second};
}
template <class V, class T>
[[gnu::always_inline]] inline alternate<V> rotated_results_at(const folded_line<T>& l, ptrdiff_t m) {
  const auto z = load_alternate<V>(l.line + 2 * m), w = load_alternate<V>(l.pairs + 2 * m);
  return rotated_results<V>(l, z.even, z.odd, w.even, w.odd);
}
// From both ends inwards, since the second results of one end stand between the first ones of the other.
template <class T>
void put_rotated_results(const folded_line<T>& l) {
  using V = vec<T>;
  constexpr ptrdiff_t L = lanes<V>;
  const ptrdiff_t n = l.n, half = n / 2;
  ptrdiff_t m = 0;
  for (; l.step == 1 && 2 * (m + L) <= half; m += L) {
    const ptrdiff_t other = half - m - L;
    const auto low = rotated_results_at<V>(l, m), high = rotated_results_at<V>(l, other);
    store_alternate<V>(l.f + 2 * m, low.even, reverse_lanes(high.odd));
    store_alternate<V>(l.f + 2 * other, high.even, reverse_lanes(low.odd));
  }
  for (const ptrdiff_t last = half - m; m < last; ++m) {
    const auto r =
        rotated_results<T>(l, l.line[2 * m], l.line[2 * m + 1], l.pairs[2 * m], l.pairs[2 * m + 1]);
    l.f[l.step * 2 * m] = r.even;
    l.f[l.step * (n - 1 - 2 * m)] = r.odd;
  }
}

// Transforms 4 and 5: both directions are the same sums.
template <class T, class Dft>
bool run_folded_staggered(const folded_line<T>& l, const Dft& dft) {
  const bool sine = l.type == 5;
  T* const f = l.f;
  const ptrdiff_t step = l.step;
  if (l.n % 2 != 0) {
    reorder_odd(
        sine, l.n, [=](ptrdiff_t j) { return f[step * j]; }, l.line);
    if (!dft(dft::forward)) return false;
    results_of_odd(sine, l.n, l.line, [=, factor = l.factor](ptrdiff_t k, T v) { f[step * k] = factor * v; });
    return true;
  }
  rotated_pairs(l);
  if (!dft(dft::forward)) return false;
  put_rotated_results(l);
  return true;
}

// Through a real plan of n elements, of types 4 and 5 and even n a complex one of n / 2. False when it fails.
template <class T>
bool run_folded_line(const dft::line_transform& plan, const folded_line<T>& l, void* work) {
  const auto dft = [&](dft::direction way) {
    return dft::run_line(plan, way, l.line, l.line, work) == dft::engine_done;
  };
  return l.type >= 4 ? run_folded_staggered(l, dft) : run_folded_cosines(l, dft);
}

}  // namespace zor::pde
