// SPDX-License-Identifier: MIT
// Sums of two matrices, each transposed or not: threads take rectangles of the result.
#include "core/trans/matrices.h"

namespace zor_core {
namespace {

constexpr const char* add_arguments[] = {"ordering", "transa", "transb", "rows", "cols", "alpha", "a",
                                         "lda",      "beta",   "b",      "ldb",  "c",    "ldc"};

template <class T>
struct add_term {
  char trans;
  T factor;
  const T* p;
  zor_int ld;

  line_counts stored(line_counts sum) const { return is_transposing(trans) ? sum.transposed() : sum; }
  bool usable(line_counts sum) const { return p != nullptr || sum.empty(); }
  bool leads(line_counts sum) const { return is_line_length<T>(ld, stored(sum)); }
  // The sum may take the place of a term that it reads element by element.
  bool clashes(const T* c, zor_int ldc) const { return p == c && (is_transposing(trans) || ld != ldc); }
  // Where the part of the sum that begins at element `next` of a line finds its terms.
  const T* from(zor_int line, zor_int next) const {
    return is_transposing(trans) ? p + next * ld + line : p + line * ld + next;
  }
};

template <class T>
void omatadd(const char* routine, char ordering, zor_int rows, zor_int cols, const add_term<T>& a,
             const add_term<T>& b, T* c, zor_int ldc) {
  const line_counts size = lines_of(ordering, rows, cols);
  const auto bad_argument = [&]() -> const char* {
    if (!is_letter(&ordering, 'R', 'C')) return "ordering";
    if (!is_op(a.trans)) return "transa";
    if (!is_op(b.trans)) return "transb";
    if (rows < 0) return "rows";
    if (cols < 0) return "cols";
    if (!a.usable(size)) return "a";
    if (!a.leads(size)) return "lda";
    if (!b.usable(size)) return "b";
    if (!b.leads(size)) return "ldb";
    if (!size.empty() && (c == nullptr || a.clashes(c, ldc) || b.clashes(c, ldc))) return "c";
    if (!is_line_length<T>(ldc, size)) return "ldc";
    return nullptr;
  };
  if (refused(routine, add_arguments, bad_argument())) return;
  for_each_part<T>(size, [&](zor_int line, zor_int next, line_counts part) {
    trans_kernels<T>::omatadd('R', a.trans, b.trans, part.lines, part.length, a.factor, a.from(line, next),
                              a.ld, b.factor, b.from(line, next), b.ld, c + line * ldc + next, ldc);
  });
}

}  // namespace
}  // namespace zor_core

#define ROW_OMATADD(name, T)                                                                              \
  extern "C" SIG_OMATADD(name, T) {                                                                       \
    zor_core::omatadd<T>(#name, ordering, rows, cols, {transa, alpha, a, lda}, {transb, beta, b, ldb}, c, \
                         ldc);                                                                            \
  }
#include "zor/tables/core_trans.inc"
