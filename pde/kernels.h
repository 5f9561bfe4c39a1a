// SPDX-License-Identifier: MIT
// Kernels of the solvers that libzor_core runs on its threads. Every committed transform carries a table of
// them, in the build that is loaded: kernels_of.
#pragma once

#include <cstdint>

#include "zor/dft_kern.h"

namespace zor::pde {

// Transforms of many lines in place. Element j of line i is at f + step j + distance i, j from 0 to n; those
// that the transform does not know are neither read nor written. A line's bits do not depend on its
// neighbours.
enum line_transform_kind : int32_t {
  // beside the types 0 to 5: elements 0 to n - 1 to R0 R(n/2) R1 I1 ... or R0 R1 I1 ..., unscaled
  lines_periodic = 6,
  // with one of the types 2 to 5 added: the same transform without running sums and divisions
  lines_folded = 8,
};

// The eigenvalues of the modes that lines hold: those of the axes across add up to one for each line, and
// that of the line's own axis is added for each element. Places outside first to last of an axis hold no mode
// and are divided by the nearest eigenvalue.
template <class T>
struct axis_eigenvalues {
  const T* of;  // null: there is no such axis
  int64_t first, last;
  T at(int64_t place) const {
    return of == nullptr ? T(0) : of[place < first ? first : place > last ? last : place];
  }
};
template <class T>
struct line_eigenvalues {
  axis_eigenvalues<T> inner, outer;  // line i: at i modulo inner_places and i / inner_places
  int64_t inner_places;
  const T* along;
  bool singular;  // the eigenvalue of element 0 of line 0 is zero, and so becomes the element
};

template <class T>
struct line_batch {
  int32_t kind;
  bool forward;
  bool mirrored;  // element n - j in the place of element j; the transform stays where it is
  bool alone;     // one line that is not part of a division: it takes the way of one line, whose bits differ
  bool doubled_first, doubled_last;  // types 0 to 5 forward: elements 0 and n count twice
  T scale;          // of the results: with 1 forward gives n times, backward twice, what zor_pdett_* do
  const T* tables;  // the real parameter array of types 0 to 5; of folded ones their pairs
  T* f;
  int64_t step, distance, count;
  // Forward of lines_periodic: null, or every result over its eigenvalue and transformed back, unscaled, as
  // three calls would. Line 0 of the batch is line `first_line` there.
  const line_eigenvalues<T>* over;
  int64_t first_line;
};

// Tridiagonal systems of neighbouring modes, solved in place: unknown j of mode i is at f + step j + i, j
// from 0 to n. Row j is
//   -low(j) u(j-1) + d(j) u(j) - low(j+1) u(j+1) = f(j)
// with low = 1 and d(j) = diagonal(i) + shift, at a free end half of that, or, where `low`, `a` and `b` are
// given, with d(j) = diagonal(i) a(j) + b(j). At an end that is not free the unknown is zero, and f is set to
// it.
template <class T>
struct mode_systems {
  int64_t n, count;
  const T* diagonal;
  T shift;
  bool excess;  // diagonal and shift are those of d(j) - 2, which keeps the digits of small eigenvalues
  const T *low, *a, *b;
  bool free_first, free_last;
  // Constants solve the first mode's equation without a right-hand side: f is taken less its mean, weights
  // being those of the rows (`weight`, or 1 and at the ends 1/2), and the last unknown is zero.
  bool singular;
  const T* weight;
  bool indefinite;  // given coefficients may need pivots; constant ones are looked at
  T* f;
  int64_t step;
};

template <class T>
struct kernel_set {
  // Bytes of scratch, at a boundary of 64, for any number of lines; 0: memory is short.
  int64_t (*scratch_of_lines)(ZorDftDescriptor* d, int32_t kind, bool alone);
  // 0, -200 for a table entry of zero, -1000.
  int64_t (*run_lines)(ZorDftDescriptor* d, const line_batch<T>& b, void* scratch);
  // The pairs of a folded transform, pairs_of_folded of two reals.
  void (*fill_folded)(int32_t kind, int64_t n, T* pairs);
  int64_t (*scratch_of_systems)(const mode_systems<T>& s);
  void (*solve_systems)(const mode_systems<T>& s, void* scratch);
};

// Lines or modes side by side that share the work: pieces of a division begin at multiples.
template <class T>
inline constexpr int64_t lines_together = int64_t(64 / sizeof(T));
template <class T>
inline constexpr int64_t modes_together = int64_t(256 / sizeof(T));

struct kernel_table {
  uint64_t mark;
  kernel_set<float> s;
  kernel_set<double> d;
  double (*sine)(double angle);
  int64_t (*pairs_of_folded)(int32_t kind, int64_t n);
};
inline constexpr uint64_t kernel_mark = 0x7A6F722070646531;  // "zor pde1"

// Null for a descriptor that this family did not commit.
inline const kernel_table* kernels_of(const ZorDftDescriptor* d) {
  if (d == nullptr || d->magic != ZOR_DFT_MAGIC || d->private_data == nullptr) return nullptr;
  const auto* table = *static_cast<const kernel_table* const*>(d->private_data);
  return table != nullptr && table->mark == kernel_mark ? table : nullptr;
}

}  // namespace zor::pde
