// SPDX-License-Identifier: MIT
// Transforms of lines without a descriptor, for code that brings contiguous data of one length: the small
// plans that take the place of a commit, the kernels of a dimension, and other families (trigonometric
// transforms, convolution).
//
//   line_transform t;
//   if (commit_line<double>(&t, line_kind::real, n, scale_none) != engine_done) ...
//   run_line(t, forward, x, y, work);        // y may be x; work_of_line(t) bytes, or null to allocate in
//   each run free_line(&t);
//
// A committed line is immutable: any number of threads may run it at once, each with its own work.
#pragma once

#include <type_traits>

#include "dft/engine/plan/plan.h"

namespace zor::dft {

// What a line of n values is in memory: n complex values; or n reals, their spectrum being the n reals
// R0 R(n/2) R1 I1 R2 I2 ... for even n and R0 R1 I1 R2 I2 ... for odd n.
enum class line_kind { complex, real };

struct line_transform {
  const engine* runs = nullptr;
  plan* p = nullptr;
};

template <class R>
constexpr const engine& engine_of(line_kind kind) {
  constexpr bool single = std::is_same_v<R, float>;
  if (kind == line_kind::real) return engines[single ? flavour_s : flavour_d];
  return engines[single ? flavour_c : flavour_z];
}

// engine_done, or the code of a refused length or of memory that is short; then there is nothing to free.
template <class R>
inline int32_t commit_line(line_transform* t, line_kind kind, int32_t n, int32_t scale) {
  t->runs = &engine_of<R>(kind);
  t->p = nullptr;
  return t->runs->build(&t->p, n, scale, 0);
}
inline void free_line(line_transform* t) {
  if (t->p != nullptr) t->runs->release(t->p);
  t->p = nullptr;
}

inline int32_t work_of_line(const line_transform& t) {
  int32_t bytes = 0;
  t.runs->work_size(t.p, &bytes);
  return bytes;
}
inline int32_t run_line(const line_transform& t, direction way, const void* in, void* out, void* work) {
  return (way == forward ? t.runs->forward : t.runs->backward)(in, out, t.p, work);
}

// Many complex lines in one call, every value times data.factor, each line with the bits that run_line of an
// unscaled plan and the product give. Contiguous lines, one after the other:
inline void run_contiguous_lines(const line_transform& t, const line_data& data, void* work) {
  t.runs->lines(data, t.p, work);
}
// Interleaved lines, one element apart, which are transformed in lanes: a multiple of
// interleaved_block(t).columns of them, through a tile of interleaved_block(t).bytes on a boundary of 64.
// Lengths without that form have no columns.
inline column_block interleaved_block(const line_transform& t) { return t.runs->block(t.p); }
inline void run_interleaved_lines(const line_transform& t, const line_data& data, void* tile) {
  t.runs->columns(data, t.p, tile);
}

}  // namespace zor::dft
