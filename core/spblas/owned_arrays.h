// SPDX-License-Identifier: MIT
// Arrays that a matrix of the public side owns. Plain, since records are copied; release() ends their life.
#pragma once

#include <utility>

#include "core/blas/arguments.h"
#include "core/large_pages.h"
#include "zor/serv.h"

namespace zor_core {

struct owned_arrays {
  void *val, *indx, *pntr, *rowind;

  // `count` elements of `size` bytes for one of the arrays, at least one; false when memory is short.
  static bool allocate(void*& array, zor_int count, size_t size) {
    const zor_int bytes = saturating_product(count < 1 ? 1 : count, zor_int(size));
    array = bytes == INT64_MAX ? nullptr : zor_serv_zor_malloc(uint64_t(bytes), 64);
    if (array != nullptr && bytes >= least_for_large_pages) ask_for_large_pages(array, bytes);
    return array != nullptr;
  }
  // Keeps the first `count` elements, and gives the memory behind them back. One that cannot stays as it is.
  static void trim(void*& array, zor_int count, size_t size) {
    void* const kept = zor_serv_zor_realloc(array, uint64_t(count < 1 ? 1 : count) * size);
    if (kept != nullptr) array = kept;
  }
  void release() {
    for (void* array : {val, indx, pntr, rowind})
      if (array != nullptr) zor_serv_zor_free(array);
    *this = {};
  }
};

// The same for the length of a scope, unless they are handed on.
struct scoped_arrays : owned_arrays {
  scoped_arrays() : owned_arrays{} {}
  scoped_arrays(const scoped_arrays&) = delete;
  scoped_arrays& operator=(const scoped_arrays&) = delete;
  ~scoped_arrays() { release(); }
  owned_arrays hand_on() { return std::exchange(static_cast<owned_arrays&>(*this), owned_arrays{}); }
};

}  // namespace zor_core
