// SPDX-License-Identifier: MIT
#include "dft/engine/trig.h"

#include "dft/engine/double_double.h"

namespace zor {
namespace {

using namespace dd;

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
    const double_double x = multiply(step, {double(i), 0.0});
    t.sine[i] = taylor(x, true);
    t.cosine[i] = taylor(x, false);
  }
  return t;
}

constexpr node_table nodes = make_nodes();

// base + rate * s + base * versed, where s = delta + excess is the sine of the offset and versed its cosine
// - 1.
double_double rotate(double_double base, double_double rate, double_double delta, double excess,
                     double versed) {
  const double_double p = two_product(rate.hi, delta.hi);
  const double_double s = two_sum(base.hi, p.hi);
  const double small =
      base.lo + p.lo + (rate.hi * (delta.lo + excess) + rate.lo * delta.hi) + base.hi * versed;
  return fast_two_sum(s.hi, s.lo + small);
}

// cos and sin of (pi / 4) a / n, 0 <= a <= n: the nearest node, turned by an offset of at most pi / 1024
// whose own sine and cosine are short series. Only the terms above 2^-63 of the result are kept in two parts.
struct sine_cosine {
  double_double c, s;
};
sine_cosine octant(int64_t a, int64_t n) {
  const int64_t i = (2 * steps * a + n) / (2 * n);
  const int64_t rest = steps * a - i * n;
  const double d = double(n);
  const double q = double(rest) / d;
  const double_double back = two_product(q, d);
  const double q_low = ((double(rest) - back.hi) - back.lo) / d;
  const double_double p = two_product(q, step.hi);
  const double_double delta = fast_two_sum(p.hi, p.lo + (q * step.lo + q_low * step.hi));
  const double x2 = delta.hi * delta.hi;
  const double excess = delta.hi * x2 * (-1.0 / 6 + x2 * (1.0 / 120 - x2 * (1.0 / 5040)));
  const double versed = x2 * (-0.5 + x2 * (1.0 / 24 - x2 * (1.0 / 720)));
  const double_double s = nodes.sine[i];
  const double_double c = nodes.cosine[i];
  return {rotate(c, {-s.hi, -s.lo}, delta, excess, versed), rotate(s, c, delta, excess, versed)};
}

zor_c64 turned_by_eighths(int64_t part, double c, double s) {
  switch (part) {
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

}  // namespace

wide_root wide_root_of_unity(int64_t k, int64_t n) {
  const int64_t turned = 8 * (k % n);
  const int64_t part = turned / n;
  const int64_t rest = turned - part * n;
  const auto [c, s] = octant(part % 2 == 0 ? rest : n - rest, n);
  return {turned_by_eighths(part, c.hi, s.hi), turned_by_eighths(part, c.lo, s.lo)};
}

zor_c64 root_of_unity(int64_t k, int64_t n) { return wide_root_of_unity(k, n).head; }

}  // namespace zor
