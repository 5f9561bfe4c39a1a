// SPDX-License-Identifier: MIT
// Roots of unity of one length by look-up, for tables that take many of them.
#pragma once

#include "dft/engine/memory.h"
#include "dft/engine/trig.h"

namespace zor::dft {

// A multiple of 8 keeps its first octant, which the others mirror; of another length each root is computed.
struct root_table {
  int64_t n;
  zor_c64* octant;  // null: computed
};

// False when memory is short.
inline bool roots_build(root_table* t, int64_t n) {
  *t = {n, nullptr};
  if (n % 8 != 0) return true;
  t->octant = static_cast<zor_c64*>(engine_allocate(uint64_t(n / 8 + 1) * sizeof(zor_c64)));
  if (t->octant == nullptr) return false;
  for (int64_t k = 0; k <= n / 8; ++k) t->octant[k] = root_of_unity(k, n);
  return true;
}

inline void roots_free(root_table* t) { engine_free(t->octant); }

// root_of_unity(k, n) for 0 <= k < n, the signs of zeros included.
inline zor_c64 root_at(const root_table& t, int64_t k) {
  const int64_t n = t.n;
  if (t.octant == nullptr) return root_of_unity(k, n);
  const bool lower = 2 * k < n, left = 4 * k >= n && 4 * k < 3 * n;
  int64_t a = lower ? k : n - k;
  a = left ? n / 2 - a : a;
  const bool steep = 8 * a > n;
  const zor_c64 w = t.octant[steep ? n / 4 - a : a];
  const double re = steep ? -w.im : w.re, im = steep ? -w.re : w.im;
  return {left ? -re : re, lower ? im : -im};
}

}  // namespace zor::dft
