// SPDX-License-Identifier: MIT
// Roots of unity of one length by look-up, for tables that take many of them.
#pragma once

#include "dft/engine/memory.h"
#include "dft/engine/trig.h"

namespace zor::dft {

// Keeps the arc that the others mirror: an octant where 4 divides n, a quarter where only 2 does, half of odd
// n.
struct root_table {
  int64_t n;
  wide_root* arc;
};

// False when memory is short.
inline bool roots_build(root_table* t, int64_t n) {
  const int64_t count = n / (n % 4 == 0 ? 8 : n % 2 == 0 ? 4 : 2) + 1;
  *t = {n, static_cast<wide_root*>(engine_allocate(uint64_t(count) * sizeof(wide_root)))};
  if (t->arc == nullptr) return false;
  for (int64_t k = 0; k < count; ++k) t->arc[k] = wide_root_of_unity(k, n);
  return true;
}

inline void roots_free(root_table* t) {
  engine_free(t->arc);
  t->arc = nullptr;
}

// wide_root_of_unity(k, n) for 0 <= k < n, the signs of zeros included.
inline wide_root wide_root_at(const root_table& t, int64_t k) {
  const int64_t n = t.n;
  const bool lower = 2 * k < n, left = n % 2 == 0 && 4 * k >= n && 4 * k < 3 * n;
  int64_t a = lower ? k : n - k;
  a = left ? n / 2 - a : a;
  const bool steep = n % 4 == 0 && 8 * a > n;
  const wide_root& w = t.arc[steep ? n / 4 - a : a];
  const auto mirrored = [&](zor_c64 v) -> zor_c64 {
    const double re = steep ? -v.im : v.re, im = steep ? -v.re : v.im;
    return {left ? -re : re, lower ? im : -im};
  };
  return {mirrored(w.head), mirrored(w.tail)};
}
inline zor_c64 root_at(const root_table& t, int64_t k) { return wide_root_at(t, k).head; }

}  // namespace zor::dft
