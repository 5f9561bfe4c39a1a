// SPDX-License-Identifier: MIT
// Roots of unity: the angle is reduced to an octant in integers, and there it is a tabulated node plus a
// small offset.
#include "dft/engine/roots/trig.h"

#include <utility>

#include "dft/engine/roots/compensated.h"
#include "dft/engine/roots/double_double.h"
#include "serv/vec.h"

namespace zor {
namespace {

using dd::double_double, dd::pi, dd::taylor;
using dft::compensated;

// The octant is cut into this many steps, and the sine and cosine of each node are kept.
constexpr int steps = 128;
constexpr double_double step{pi.hi / (4 * steps), pi.lo / (4 * steps)};

struct node_table {
  double_double sine[steps + 1];
  double_double cosine[steps + 1];
};

constexpr node_table make_nodes() {
  node_table t{};
  for (int i = 0; i <= steps; ++i) {
    const double_double x = dd::multiply(step, {double(i), 0.0});
    t.sine[i] = taylor(x, true);
    t.cosine[i] = taylor(x, false);
  }
  return t;
}

constexpr node_table nodes = make_nodes();

// base + rate * s + base * versed, where s = delta + excess is the sine of the offset, and versed its cosine
// minus 1.
template <class V>
[[gnu::always_inline]] inline compensated<V> rotate(double_double base, double_double rate,
                                                    compensated<V> delta, V excess, V versed) {
  const compensated<V> p = dft::two_product(delta.hi, rate.hi);
  const compensated<V> s = dft::two_sum(base.hi + V{}, p.hi);
  const V small = base.lo + p.lo + (rate.hi * (delta.lo + excess) + rate.lo * delta.hi) + base.hi * versed;
  return dft::fast_two_sum(s.hi, s.lo + small);
}

// cos and sin of (pi / 4) (i / steps + rest / (steps n)), |rest| <= n / 2: node i rotated by an offset of at
// most pi / 1024, whose own sine and cosine are short series. Only the terms above 2^-63 of the result are
// kept in two parts.
template <class V>
struct cosine_sine {
  compensated<V> c, s;
};
template <class V>
[[gnu::always_inline]] inline cosine_sine<V> near_node(int64_t i, V rest, double n) {
  const V q = rest / n;
  const compensated<V> back = dft::two_product(q, n);
  const V q_low = ((rest - back.hi) - back.lo) / n;
  const compensated<V> p = dft::two_product(q, step.hi);
  const compensated<V> delta = dft::fast_two_sum(p.hi, p.lo + (q * step.lo + q_low * step.hi));
  const V x2 = delta.hi * delta.hi;
  const V excess = delta.hi * x2 * (-1.0 / 6 + x2 * (1.0 / 120 - x2 * (1.0 / 5040)));
  const V versed = x2 * (-0.5 + x2 * (1.0 / 24 - x2 * (1.0 / 720)));
  const double_double s = nodes.sine[i];
  const double_double c = nodes.cosine[i];
  return {rotate(c, {-s.hi, -s.lo}, delta, excess, versed), rotate(s, c, delta, excess, versed)};
}

// The angle 2 pi k / n: the octant it lies in, and the angle to the nearer axis as the nearest node and the
// rest, in units of an octant over steps n.
struct reduced_angle {
  int64_t octant, node, rest;
};
reduced_angle reduce(int64_t k, int64_t n) {
  const int64_t eighths = 8 * (k % n);
  const int64_t octant = eighths / n;
  const int64_t a = octant % 2 == 0 ? eighths - octant * n : (octant + 1) * n - eighths;
  const int64_t node = (2 * steps * a + n) / (2 * n);
  return {octant, node, steps * a - node * n};
}

// exp(-i angle) from cosine and sine of the angle to the nearer axis.
zor_c64 in_octant(int64_t octant, double c, double s) {
  switch (octant) {
    case 0:
      return {c, -s};
    case 1:
      return {s, -c};
    case 2:
      return {-s, -c};
    case 3:
      return {-c, -s};
    case 4:
      return {-c, s};
    case 5:
      return {-s, c};
    case 6:
      return {s, c};
    default:
      return {c, s};
  }
}

wide_root to_root(int64_t octant, const cosine_sine<double>& w) {
  return {in_octant(octant, w.c.hi, w.s.hi), in_octant(octant, w.c.lo, w.s.lo)};
}

}  // namespace

wide_root wide_root_of_unity(int64_t k, int64_t n) {
  const reduced_angle a = reduce(k, n);
  return to_root(a.octant, near_node(a.node, double(a.rest), double(n)));
}

zor_c64 root_of_unity(int64_t k, int64_t n) { return wide_root_of_unity(k, n).head; }

// Neighbours share octant and node over some n / (8 steps) places; in odd octants the angle to the axis
// falls.
void wide_roots_of_unity(int64_t n, int64_t count, wide_root* out) {
  using V = vec<double>;
  constexpr int W = lanes<V>;
  constexpr int64_t ahead_each = 8 * steps;  // from one root to the next, in the units of rest
  V place;
  for (int j = 0; j < W; ++j) place[j] = double(ahead_each * j);
  for (int64_t k = 0; k < count;) {
    const reduced_angle a = reduce(k, n);
    const bool falling = a.octant % 2 != 0;
    const int64_t room = falling ? n + 2 * a.rest : n - 1 - 2 * a.rest;
    const int64_t octant_end = ((a.octant + 1) * n + 7) / 8;
    int64_t end = k + room / (2 * ahead_each) + 1;
    if (end > octant_end) end = octant_end;
    if (end > count) end = count;
    if (end - k == 1) {
      out[k++] = to_root(a.octant, near_node(a.node, double(a.rest), double(n)));
      continue;
    }
    V rest = falling ? double(a.rest) - place : double(a.rest) + place;
    const double ahead = falling ? -double(ahead_each * W) : double(ahead_each * W);
    for (; k < end; k += W, rest = rest + ahead) {
      const auto [c, s] = near_node(a.node, rest, double(n));
      for (int j = 0; j < W && k + j < end; ++j)
        out[k + j] = to_root(a.octant, {{c.hi[j], c.lo[j]}, {s.hi[j], s.lo[j]}});
    }
    k = end;
  }
}

// The nearest of the nodes, whose distance is known to twice the precision, rotated by the rest. Beyond an
// eighth of the circle the complement is looked up; by the quarter the two change places and signs.
cosine_and_sine cosine_and_sine_of(double angle) {
  constexpr double largest = 0x1p20, rounder = 0x1.8p52;
  if (!(angle > -largest && angle < largest)) return {__builtin_nan(""), __builtin_nan("")};
  const double nearest = (angle * (1.0 / step.hi) + rounder) - rounder;
  const compensated<double> p = dft::two_product(nearest, step.hi);
  const double back = angle - p.hi;
  const compensated<double> delta = dft::two_sum(back, -(p.lo + nearest * step.lo));
  constexpr int64_t steps_of_quarter = 2 * steps;
  const int64_t node = int64_t(nearest), within = node & (steps_of_quarter - 1);
  const int64_t quarter = (node - within) / steps_of_quarter & 3;
  const bool beyond = within > steps;
  const int64_t at = beyond ? steps_of_quarter - within : within;
  const double d = beyond ? -delta.hi : delta.hi, d_low = beyond ? -delta.lo : delta.lo;
  const double x2 = d * d;
  const double excess = d * x2 * (-1.0 / 6 + x2 * (1.0 / 120 - x2 * (1.0 / 5040)));
  const double versed = x2 * (-0.5 + x2 * (1.0 / 24 - x2 * (1.0 / 720)));
  const double_double s = nodes.sine[at], c = nodes.cosine[at];
  double sine = rotate(s, c, compensated<double>{d, d_low}, excess, versed).hi;
  double cosine = rotate(c, {-s.hi, -s.lo}, compensated<double>{d, d_low}, excess, versed).hi;
  if (beyond != (quarter % 2 != 0)) std::swap(sine, cosine);
  if (quarter == 1 || quarter == 2) cosine = -cosine;
  if (quarter >= 2) sine = -sine;
  return {cosine, sine};
}

}  // namespace zor
