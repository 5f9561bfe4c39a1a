// SPDX-License-Identifier: MIT
// The error of a solution that is known, on finer and finer grids.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "tools/poisson_study.h"
#include "zor/poisson.h"

namespace zor_tools {
namespace {

constexpr double pi = 3.14159265358979324, q = 1.5;

double solution(double x, double y) { return std::sin(2 * pi * x + 0.4) * std::cos(2 * pi * y - 0.3) + 2; }
double slope(double x, double y, int axis) {
  return axis == 0 ? 2 * pi * std::cos(2 * pi * x + 0.4) * std::cos(2 * pi * y - 0.3)
                   : -2 * pi * std::sin(2 * pi * x + 0.4) * std::sin(2 * pi * y - 0.3);
}

void expect_solved(zor_int status) {
  if (status != ZOR_POISSON_OK) throw std::runtime_error(zor_poisson_text(status));
}
void solve(const zor_poisson_box& box, double* f, const double* const* sides) {
  zor_poisson* p = nullptr;
  expect_solved(zor_poisson_create_d(&p, &box));
  expect_solved(zor_poisson_solve_d(p, f, sides));
  zor_poisson_free(&p);
}
void solve(const zor_poisson_box& box, float* f, const float* const* sides) {
  zor_poisson* p = nullptr;
  expect_solved(zor_poisson_create_s(&p, &box));
  expect_solved(zor_poisson_solve_s(p, f, sides));
  zor_poisson_free(&p);
}

// Both axes have the same sides and n intervals.
template <class T>
double largest_error(zor_int n, const zor_int* ends) {
  const zor_poisson_box box = {2, {n, n}, {1, 1}, {ends[0], ends[1], ends[0], ends[1]}, q};
  const size_t width = size_t(n + 1);
  std::vector<T> f(width * width), side[4];
  const T* sides[4];
  for (int s = 0; s < 4; ++s) {
    for (zor_int j = 0; j <= n; ++j) {
      const double at = double(j) / double(n), end = s % 2, x = s < 2 ? end : at, y = s < 2 ? at : end;
      const double outwards = (s % 2 == 0 ? -1 : 1) * slope(x, y, s / 2);
      side[s].push_back(T(box.side[s] == ZOR_POISSON_DERIVATIVE ? outwards : solution(x, y)));
    }
    sides[s] = side[s].data();
  }
  const auto exact = [&](size_t at) {
    return solution(double(at % width) / double(n), double(at / width) / double(n));
  };
  for (size_t i = 0; i < f.size(); ++i) f[i] = T(8 * pi * pi * (exact(i) - 2) + q * exact(i));
  solve(box, f.data(), sides);
  double worst = 0;
  for (size_t i = 0; i < f.size(); ++i) worst = std::max(worst, std::fabs(double(f[i]) - exact(i)));
  return worst;
}

}  // namespace

void print_study() {
  constexpr struct {
    const char* name;
    zor_int ends[2];
  } kinds[] = {{"value", {ZOR_POISSON_VALUE, ZOR_POISSON_VALUE}},
               {"derivative", {ZOR_POISSON_DERIVATIVE, ZOR_POISSON_DERIVATIVE}},
               {"one of each", {ZOR_POISSON_VALUE, ZOR_POISSON_DERIVATIVE}},
               {"periodic", {ZOR_POISSON_PERIODIC, ZOR_POISSON_PERIODIC}}};
  fmt::print("{:<12}{:>10}{:>12}{:>8}{:>12}{:>8}\n", "sides", "intervals", "double", "order", "single",
             "order");
  for (const auto& kind : kinds) {
    double before[2] = {};
    for (zor_int n = 8; n <= 1024; n *= 2) {
      const double error[2] = {largest_error<double>(n, kind.ends), largest_error<float>(n, kind.ends)};
      fmt::print("{:<12}{:>10}", kind.name, n);
      for (int i = 0; i < 2; ++i)
        fmt::print("{:>12.3e}{:>8}", error[i],
                   n == 8 ? "" : fmt::format("{:.2f}", std::log2(before[i] / error[i])));
      fmt::print("\n");
      before[0] = error[0], before[1] = error[1];
    }
  }
}

}  // namespace zor_tools
