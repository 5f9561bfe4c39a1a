// SPDX-License-Identifier: MIT
// Sparse matrices that cases run on.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "bench/operands.h"

namespace zor_bench {

// A square matrix by rows, columns ascending, counted from 0; the diagonal is 8, all else below 1.
struct pattern {
  int32_t m = 0;
  std::vector<int32_t> start = {0}, column;
  std::vector<double> value;

  void add(int32_t c) {
    column.push_back(c);
    value.push_back(c == m ? 8 : double(int64_t(step()) >> 11) * 0x1p-52);
  }
  void end_row() {
    start.push_back(int32_t(column.size()));
    ++m;
  }
  // A row of the columns given, in any order and with repeats.
  void add_row(std::vector<int32_t>& columns) {
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    for (const int32_t c : columns) add(c);
    end_row();
    columns.clear();
  }
  // Uniform in 0 to 1.
  double uniform() { return double(step() >> 11) * 0x1p-53; }

 private:
  uint64_t step() { return state_ = state_ * 6364136223846793005u + 1442695040888963407u; }
  uint64_t state_ = 7;
};

// The Laplacian of a grid with so many points along each of two or three axes; lower: its lower triangle.
inline pattern laplacian(int32_t side, int axes, bool lower = false) {
  std::vector<int32_t> steps;
  for (int32_t a = 0, step = 1; a < axes; ++a, step *= side) steps.push_back(step);
  pattern p;
  const int32_t m = steps.back() * side;
  for (int32_t r = 0; r < m; ++r) {
    for (int a = axes; a-- > 0;)
      if (r / steps[size_t(a)] % side > 0) p.add(r - steps[size_t(a)]);
    p.add(r);
    for (int a = 0; a < axes && !lower; ++a)
      if (r / steps[size_t(a)] % side + 1 < side) p.add(r + steps[size_t(a)]);
    p.end_row();
  }
  return p;
}

// The neighbours of a grid of quadrilaterals.
inline pattern quadrilaterals(int32_t side) {
  pattern p;
  for (int32_t i = 0; i < side; ++i)
    for (int32_t j = 0; j < side; ++j) {
      for (int32_t k = std::max(i - 1, 0); k <= std::min(i + 1, side - 1); ++k)
        for (int32_t l = std::max(j - 1, 0); l <= std::min(j + 1, side - 1); ++l) p.add(k * side + l);
      p.end_row();
    }
  return p;
}

// So many entries a row, anywhere.
inline pattern random_rows(int32_t m, int32_t entries) {
  pattern p;
  std::vector<int32_t> columns;
  for (int32_t r = 0; r < m; ++r) {
    for (int32_t k = 0; k < entries; ++k) columns.push_back(int32_t(p.uniform() * m));
    p.add_row(columns);
  }
  return p;
}

// A graph whose degrees follow a power law: few rows and few columns hold much of it.
inline pattern power_law(int32_t m) {
  pattern p;
  std::vector<int32_t> columns;
  for (int32_t r = 0; r < m; ++r) {
    const double degree = std::min(2 / std::sqrt(p.uniform() + 1e-9), 500.0);
    for (int32_t k = 0; k < int32_t(degree); ++k) columns.push_back(int32_t(std::pow(p.uniform(), 2) * m));
    p.add_row(columns);
  }
  return p;
}

template <class T>
operand<T> copied(const std::vector<T>& v, int page_slot) {
  operand<T> o(int64_t(v.size()), page_slot);
  std::copy(v.begin(), v.end(), o.data());
  return o;
}
inline std::vector<int32_t> plus_one(std::vector<int32_t> v) {
  for (int32_t& i : v) ++i;
  return v;
}

}  // namespace zor_bench
