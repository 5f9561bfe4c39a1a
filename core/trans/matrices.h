// SPDX-License-Identifier: MIT
// What the public transpositions share: checks, the kernels by type, and pieces for threads. A check gives
// the name of the first bad argument, null when there is none.
#pragma once

#include <algorithm>

#include "core/blas/arguments.h"
#include "core/heap_array.h"
#include "core/threads.h"
#include "zor/signatures/trans.h"

namespace zor_core {

template <class T>
struct trans_kernels;
#define KERNELS(T, letter)                                                 \
  template <>                                                              \
  struct trans_kernels<T> {                                                \
    static constexpr auto* imatcopy = &zor_trans_zor_##letter##imatcopy;   \
    static constexpr auto* omatcopy2 = &zor_trans_zor_##letter##omatcopy2; \
    static constexpr auto* omatadd = &zor_trans_zor_##letter##omatadd;     \
  };
KERNELS(float, s)
KERNELS(double, d)
KERNELS(zor_c32, c)
KERNELS(zor_c64, z)
#undef KERNELS

// op(A), of a letter that was checked.
inline bool is_op(char trans) { return is_letter(&trans, 'N', 'T', 'R', 'C'); }
inline bool is_transposing(char trans) { return is_letter(&trans, 'T', 'C'); }

// A matrix as lines of neighbouring elements: its rows, or its columns where it is column-major.
struct line_counts {
  zor_int lines, length;
  bool empty() const { return lines == 0 || length == 0; }
  line_counts transposed() const { return {length, lines}; }
};
inline line_counts lines_of(char ordering, zor_int rows, zor_int cols) {
  return is_letter(&ordering, 'C') ? line_counts{cols, rows} : line_counts{rows, cols};
}
// Whether a leading dimension holds a line, and all of the matrix stands at addresses that exist.
template <class T>
bool is_line_length(zor_int ld, line_counts size) {
  return is_leading(&ld, size.length) && fits_memory(size.length, size.lines, ld, sizeof(T));
}
inline const char* bad_letters_or_sizes(char ordering, char trans, zor_int rows, zor_int cols) {
  if (!is_letter(&ordering, 'R', 'C')) return "ordering";
  if (!is_op(trans)) return "trans";
  if (rows < 0) return "rows";
  if (cols < 0) return "cols";
  return nullptr;
}

// Elements a piece has at least along the dimension that is cut: whole cache lines and vectors of every type.
inline constexpr zor_int trans_grain = 64;
// Measured: bytes of a matrix below which one thread is faster. On an AMD Zen 4 two threads take two thirds
// of the time of one with so many.
inline constexpr zor_int trans_least_bytes = 1 << 20;

template <class T>
int32_t threads_for(line_counts size) {
  return saturating_product(size.lines, size.length, sizeof(T)) < trans_least_bytes ? 1 : usable_threads();
}

// Calls body(first line, first element of a line, lines and length of the piece) for pieces of a matrix, cut
// along the longer dimension.
template <class T, class Body>
void for_each_part(line_counts size, const Body& body) {
  const bool by_lines = size.lines >= size.length;
  const zor_int n = by_lines ? size.lines : size.length;
  const int32_t threads = n < 2 * trans_grain ? 1 : threads_for<T>(size);
  if (threads == 1) return body(zor_int(0), zor_int(0), size);
  const zor_int pieces = std::min<zor_int>(n / trans_grain, threads);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    const zor_int first = cut(n, trans_grain, pieces, piece),
                  count = cut(n, trans_grain, pieces, piece + 1) - first;
    by_lines ? body(first, zor_int(0), line_counts{count, size.length})
             : body(zor_int(0), first, line_counts{size.lines, count});
  });
}

}  // namespace zor_core
