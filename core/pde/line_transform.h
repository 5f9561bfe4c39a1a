// SPDX-License-Identifier: MIT
// A committed transform with its tables, for the public calls.
#pragma once

#include <cstdlib>

#include "core/pde/kernels.h"
#include "zor/signatures/trig.h"

namespace zor_core {

inline constexpr zor_int pde_too_long = -2;

// The longest line that a plan can have, whatever the precision.
inline constexpr zor_int longest_trig = zor_int(1) << 28;

template <class T>
struct line_transform {
  ZorDftDescriptor* handle = nullptr;
  T* tables = nullptr;
  zor_int ipar[16] = {};
};

template <class T>
void free_transform(line_transform<T>* t) {
  zor_int stat;
  if (t->handle != nullptr) zor_pdett_free_trig_transform(&t->handle, t->ipar, &stat);
  std::free(t->tables);
  *t = {};
}

// The pairs of a folded transform in the place of the tables.
template <class T>
zor_int take_pairs(line_transform<T>* t, int32_t kind, zor_int n) {
  const zor::pde::kernel_table* const table = zor::pde::kernels_of(t->handle);
  if (table == nullptr) return pde_no_memory;
  std::free(t->tables);
  t->tables = static_cast<T*>(std::calloc(size_t(2 * table->pairs_of_folded(kind, n) + 1), sizeof(T)));
  if (t->tables == nullptr) return pde_no_memory;
  of_precision<T>(*table).fill_folded(kind, n, t->tables);
  return 0;
}

// A kind of pde/kernels.h: a type, periodic or folded. 0, pde_no_memory or pde_too_long.
template <class T>
zor_int make_transform(line_transform<T>* t, int32_t kind, zor_int n) {
  if (n > longest_trig) return pde_too_long;
  const zor_int known = kind <= 5 ? kind : 1;
  t->tables = static_cast<T*>(std::calloc(size_t(2 * n + n / 2 + 4), sizeof(T)));
  // Commit looks at the ends of data: both are zero here.
  T* const zeros = static_cast<T*>(std::calloc(size_t(n + 1), sizeof(T)));
  zor_int stat = pde_no_memory;
  if (t->tables != nullptr && zeros != nullptr) {
    if constexpr (std::is_same_v<T, float>)
      zor_pdett_s_init_trig_transform(&n, &known, t->ipar, t->tables, &stat);
    else
      zor_pdett_d_init_trig_transform(&n, &known, t->ipar, t->tables, &stat);
    t->ipar[1] = t->ipar[2] = 0;
    if constexpr (std::is_same_v<T, float>)
      zor_pdett_s_commit_trig_transform(zeros, &t->handle, t->ipar, t->tables, &stat);
    else
      zor_pdett_d_commit_trig_transform(zeros, &t->handle, t->ipar, t->tables, &stat);
    // A length beyond the plans' and a lack of memory look alike from here; only very long lines are the
    // former.
    if (stat != 0) stat = n > (zor_int(1) << 24) ? pde_too_long : pde_no_memory;
  }
  std::free(zeros);
  if (stat == 0 && kind >= zor::pde::lines_folded) stat = take_pairs(t, kind, n);
  if (stat != 0) free_transform(t);
  return stat;
}

}  // namespace zor_core
