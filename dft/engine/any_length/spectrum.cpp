// SPDX-License-Identifier: MIT
// A transform in more precision than its result: passes of compensated doubles, or of doubles for floats.
#include "dft/engine/any_length/spectrum.h"

#include <type_traits>
#include <utility>

#include "dft/engine/passes/lanes.h"
#include "dft/engine/roots/compensated.h"

namespace zor::dft {
namespace {

// Tables of floats are computed in doubles, those of doubles in compensated ones.
template <class R, class V>
using number = std::conditional_t<sizeof(R) == sizeof(double), compensated<V>, V>;

// n values as real parts, imaginary parts and, compensated, what both miss.
template <class R, class V>
[[gnu::always_inline]] inline complex_lanes<number<R, V>> load_wide(const double* x, ptrdiff_t n) {
  const complex_lanes<V> v = load_complex<form::split, V>(x, x + n, 0);
  if constexpr (sizeof(R) == sizeof(double)) {
    const complex_lanes<V> low = load_complex<form::split, V>(x + 2 * n, x + 3 * n, 0);
    return {{v.re, low.re}, {v.im, low.im}};
  } else {
    return v;
  }
}
template <class V>
[[gnu::always_inline]] inline void store_wide(double* y, ptrdiff_t n, complex_lanes<compensated<V>> v) {
  store_complex<form::split>(y, y + n, 0, complex_lanes<V>{v.re.hi, v.im.hi});
  store_complex<form::split>(y + 2 * n, y + 3 * n, 0, complex_lanes<V>{v.re.lo, v.im.lo});
}
template <class V>
[[gnu::always_inline]] inline void store_wide(double* y, ptrdiff_t n, complex_lanes<V> v) {
  store_complex<form::split>(y, y + n, 0, v);
}

template <class R>
complex_lanes<number<R, double>> wide_number(const wide_root& w) {
  if constexpr (sizeof(R) == sizeof(double))
    return {{w.head.re, w.tail.re}, {w.head.im, w.tail.im}};
  else
    return {w.head.re, w.head.im};
}

// The pass of pass.h with lanes over q; radix 3 and 5 by their definition.
template <class R, int r, class V>
void wide_pass(const root_table& roots, ptrdiff_t l, ptrdiff_t m, const double* x, double* y) {
  using C = complex_lanes<number<R, V>>;
  const ptrdiff_t n = roots.n;
  complex_lanes<number<R, double>> root[r], w[r];
  for (int k = 0; k < r; ++k) root[k] = wide_number<R>(wide_root_at(roots, k * (n / r)));
  for (ptrdiff_t p = 0; p < l; ++p) {
    for (int s = 0; s < r; ++s) w[s] = wide_number<R>(wide_root_at(roots, p * s * m));
    for (ptrdiff_t q = 0; q < m; q += lane_count<V>) {
      C u[r], v[r];
      for (int t = 0; t < r; ++t) u[t] = load_wide<R, V>(x + q + m * (p + l * t), n);
      if constexpr (r == 2 || r == 4) {
        dft<r>(u);
        for (int s = 0; s < r; ++s) v[s] = u[s];
      } else {
        for (int s = 0; s < r; ++s) {
          v[s] = u[0];
          for (int t = 1; t < r; ++t) v[s] = v[s] + mul(u[t], root[t * s % r].re, root[t * s % r].im);
        }
      }
      for (int s = 0; s < r; ++s)
        store_wide(y + q + m * (r * p + s), n, s == 0 ? v[s] : mul(v[s], w[s].re, w[s].im));
    }
  }
}

template <class R, int r>
void any_pass(const root_table& roots, ptrdiff_t l, ptrdiff_t m, const double* x, double* y) {
  using V = vec<double>;
  if (m % lanes<V> == 0)
    wide_pass<R, r, V>(roots, l, m, x, y);
  else
    wide_pass<R, r, double>(roots, l, m, x, y);
}

// The transform of x, which stands in x or y afterwards.
template <class R>
const double* wide_transform(const root_table& roots, double* x, double* y) {
  for (ptrdiff_t l = roots.n, m = 1; l > 1; std::swap(x, y)) {
    const int r = l % 5 == 0 ? 5 : l % 3 == 0 ? 3 : l % 4 == 0 ? 4 : 2;
    l /= r;
    const auto pass = r == 5   ? any_pass<R, 5>
                      : r == 3 ? any_pass<R, 3>
                      : r == 4 ? any_pass<R, 4>
                               : any_pass<R, 2>;
    pass(roots, l, m, x, y);
    m *= r;
  }
  return x;
}

double quotient(compensated<double> a, double d) { return dd::divide(dd::fast_two_sum(a.hi, a.lo), d).hi; }
double quotient(double a, double d) { return a / d; }

}  // namespace

template <class R>
bool chirp_spectrum(const root_table& chirp, const root_table& roots, int32_t blocks, R* re, R* im) {
  const ptrdiff_t m = roots.n, size = 2 * m * ptrdiff_t{sizeof(number<R, double>) / sizeof(double)};
  auto* const x = static_cast<double*>(engine_allocate(uint64_t(2 * size) * sizeof(double)));
  if (x == nullptr) return false;
  for (int64_t k = 0, e = 0; 2 * k < chirp.n; e = (e + 2 * k + 1) % chirp.n, ++k) {
    const wide_root c = wide_root_at(chirp, e);
    const auto v = wide_number<R>({{c.head.re, -c.head.im}, {c.tail.re, -c.tail.im}});
    store_wide(x + k, m, v);
    store_wide(x + (k == 0 ? 0 : m - k), m, v);
  }
  const double* y = wide_transform<R>(roots, x, x + size);
  for (ptrdiff_t k = 0; k < m; ++k) {
    const auto v = load_wide<R, double>(y + k, m);
    const ptrdiff_t place = k / blocks + m / blocks * (k % blocks);
    re[place] = R(quotient(v.re, double(m)));
    im[place] = R(quotient(v.im, double(m)));
  }
  engine_free(x);
  return true;
}

template bool chirp_spectrum<float>(const root_table&, const root_table&, int32_t, float*, float*);
template bool chirp_spectrum<double>(const root_table&, const root_table&, int32_t, double*, double*);

}  // namespace zor::dft
