// SPDX-License-Identifier: MIT
// The equations of five and seven points on a grid, written point by point, and their solution by
// elimination.
//   sum over the axes of (2 u - u_before - u_behind) / h^2 + q u = f
// A side has given values, or given derivatives outwards: the point beyond it is the one inside plus 2 h g.
#pragma once

#include <cmath>
#include <utility>
#include <vector>

namespace zor_ref {

using real = long double;

struct grid_problem {
  int dimensions;
  long n[3] = {0, 0, 0};
  real length[3] = {1, 1, 1};
  int kind[6] = {};    // 1: derivatives, 2: periodic, then the last points repeat the first
  bool plain = false;  // derivatives are taken as they are at the ends of a side too
  real q = 0;
  std::vector<real> f;
  std::vector<real> side[6];

  long count() const { return (n[0] + 1) * (n[1] + 1) * (n[2] + 1); }
  bool singular() const {
    for (int s = 0; s < 2 * dimensions; ++s)
      if (kind[s] == 0) return false;
    return q == 0;
  }
  // Along a side: its two axes, the faster first; the second of a rectangle's side has one point.
  void axes_of(int s, int* a, int* b) const {
    *a = s / 2 == 0 ? 1 : 0;
    *b = s / 2 == 2 ? 1 : 2;
  }
  real value(int s, long i, long j) const {
    int a, b;
    axes_of(s, &a, &b);
    return side[s][size_t(i + (n[a] + 1) * j)];
  }
};

struct equation {
  real diagonal = 0, right = 0;
  bool given = false;  // a value, or a repeated point, and no equation of the grid
  std::vector<std::pair<long, real>> others;
};

// The derivative that a side has at a point. At its ends it is a mean of two neighbours, in a rectangle along
// the side, in a box along z; on two edges of the sides across x that is divided by the length.
inline real derivative(const grid_problem& p, int s, long i, long j) {
  int a, b;
  p.axes_of(s, &a, &b);
  const bool box = p.dimensions == 3;
  if (p.plain || (box && s >= 4)) return p.value(s, i, j);
  const long at = box ? j : i, last = box ? p.n[b] : p.n[a];
  if (at != 0 && at != last) return p.value(s, i, j);
  const long near = at == 0 ? 1 : last - 1;
  const real mean = (p.value(s, i, j) + (box ? p.value(s, i, near) : p.value(s, near, j))) / 2;
  const bool divided = box && ((s == 0 && at == last) || (s == 1 && at == 0));
  return divided ? mean / p.length[0] : mean;
}

inline equation equation_at(const grid_problem& p, const long* at) {
  const long stride[3] = {1, p.n[0] + 1, (p.n[0] + 1) * (p.n[1] + 1)};
  const long here = at[0] + at[1] * stride[1] + at[2] * stride[2];
  equation e;
  for (int axis = 0; axis < p.dimensions; ++axis)
    if (p.kind[2 * axis] == 2 && at[axis] == p.n[axis]) {
      e.diagonal = e.given = true;
      e.others.push_back({here - p.n[axis] * stride[axis], -1});
      return e;
    }
  for (int s = 2 * p.dimensions - 1; s >= 0; --s) {
    int a, b;
    p.axes_of(s, &a, &b);
    if (p.kind[s] == 0 && at[s / 2] == (s % 2 == 0 ? 0 : p.n[s / 2])) {
      e.diagonal = 1;
      e.right = p.value(s, at[a], at[b]);
      e.given = true;
      return e;
    }
  }
  e.diagonal = p.q;
  e.right = p.f[size_t(here)];
  for (int axis = 0; axis < p.dimensions; ++axis) {
    const real h = p.length[axis] / real(p.n[axis]);
    e.diagonal += 2 / (h * h);
    for (int end = 0; end < 2; ++end) {
      const int s = 2 * axis + end;
      int a, b;
      p.axes_of(s, &a, &b);
      const bool periodic = p.kind[s] == 2;
      const bool beyond = at[axis] == (end == 0 ? 0 : p.n[axis]);
      const long ahead = beyond && periodic ? p.n[axis] - 1 : beyond ? -1 : 1;
      e.others.push_back(
          {here + (end == 0 ? -ahead : ahead) * (beyond && periodic ? -1 : 1) * stride[axis], -1 / (h * h)});
      if (periodic) continue;
      if (beyond) e.right += 2 * derivative(p, s, at[a], at[b]) / h;
    }
  }
  return e;
}

template <class Each>
void for_points(const grid_problem& p, const Each& each) {
  long index = 0;
  for (long k = 0; k <= p.n[2]; ++k)
    for (long j = 0; j <= p.n[1]; ++j)
      for (long i = 0; i <= p.n[0]; ++i) {
        const long at[3] = {i, j, k};
        each(index++, equation_at(p, at));
      }
}

// The largest residual relative to the largest term of its equation. `excess` is taken off the right-hand
// sides.
template <class T>
real residual(const grid_problem& p, const T* u, real excess = 0) {
  real worst = 0, largest = 0;
  for_points(p, [&](long i, const equation& e) {
    real sum = e.diagonal * u[i] - e.right + (e.given ? 0 : excess), size = std::fabs(e.diagonal * u[i]);
    for (const auto& [j, c] : e.others) sum += c * u[j];
    largest = std::max(largest, size);
    worst = std::max(worst, std::fabs(sum));
  });
  return worst / largest;
}

// Elimination with pivots. A singular problem gets one more unknown, what the right-hand side is out of
// balance by, and one more equation, the mean of zero.
inline std::vector<real> solve_dense(const grid_problem& p) {
  const bool singular = p.singular();
  const size_t count = size_t(p.count()), size = count + singular;
  std::vector<std::vector<real>> m(size, std::vector<real>(size + 1));
  for_points(p, [&](long i, const equation& e) {
    auto& row = m[size_t(i)];
    row[size_t(i)] = e.diagonal;
    for (const auto& [j, c] : e.others) row[size_t(j)] += c;
    row[size] = e.right;
    if (singular) row[count] = !e.given;
  });
  for (size_t i = 0; singular && i < count; ++i) m[count][i] = 1;
  for (size_t k = 0; k < size; ++k) {
    size_t pivot = k;
    for (size_t i = k + 1; i < size; ++i)
      if (std::fabs(m[i][k]) > std::fabs(m[pivot][k])) pivot = i;
    std::swap(m[k], m[pivot]);
    for (size_t i = k + 1; i < size; ++i) {
      const real factor = m[i][k] / m[k][k];
      if (factor == 0) continue;
      for (size_t j = k; j <= size; ++j) m[i][j] -= factor * m[k][j];
    }
  }
  std::vector<real> u(size);
  for (size_t k = size; k-- > 0;) {
    real sum = m[k][size];
    for (size_t j = k + 1; j < size; ++j) sum -= m[k][j] * u[j];
    u[k] = sum / m[k][k];
  }
  u.resize(count);
  return u;
}

}  // namespace zor_ref
