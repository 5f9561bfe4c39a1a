// SPDX-License-Identifier: MIT
// Copies of a matrix, transposed or not: threads take rectangles of the result.
#include "core/trans/matrices.h"

namespace zor_core {
namespace {

constexpr const char* copy_arguments[] = {"ordering", "trans", "rows", "cols", "alpha",
                                          "a",        "lda",   "b",    "ldb"};
constexpr const char* strided_arguments[] = {"ordering", "trans",   "rows", "cols", "alpha",  "a",
                                             "lda",      "stridea", "b",    "ldb",  "strideb"};

template <class T>
struct copy_call {
  char ordering, trans;
  zor_int rows, cols;
  T alpha;
  const T* a;
  zor_int lda, stridea;
  T* b;
  zor_int ldb, strideb;
};

// Whether two elements of a matrix may share a place.
bool overlaps(line_counts size, zor_int ld, zor_int stride) {
  if (size.empty()) return false;
  const bool lines_apart = ld > saturating_product(size.length - 1, stride);
  const bool elements_apart = stride > saturating_product(size.lines - 1, ld);
  return !lines_apart && !elements_apart;
}

// A stride that is bad is told by its own name, behind this one.
template <class T>
bool leads(zor_int ld, line_counts size, zor_int stride) {
  if (stride <= 1) return is_line_length<T>(ld, size);
  return ld >= 1 && fits_memory(1, size.lines, ld, sizeof(T));
}

template <class T>
const char* bad_copy_argument(const copy_call<T>& c) {
  if (const char* bad = bad_letters_or_sizes(c.ordering, c.trans, c.rows, c.cols)) return bad;
  const line_counts from = lines_of(c.ordering, c.rows, c.cols);
  const line_counts to = is_transposing(c.trans) ? from.transposed() : from;
  if (!from.empty() && c.a == nullptr) return "a";
  if (!leads<T>(c.lda, from, c.stridea)) return "lda";
  if (c.stridea < 1 || !fits_memory(1, from.length, c.stridea, sizeof(T))) return "stridea";
  const bool own_place = c.lda == c.ldb && c.stridea == c.strideb && !is_transposing(c.trans);
  if (!from.empty() && (c.b == nullptr || (c.b == c.a && !own_place))) return "b";
  if (!leads<T>(c.ldb, to, c.strideb)) return "ldb";
  if (c.strideb < 1 || !fits_memory(1, to.length, c.strideb, sizeof(T)) || overlaps(to, c.ldb, c.strideb))
    return "strideb";
  return nullptr;
}

template <class T, size_t Count>
void omatcopy(const char* routine, const char* const (&arguments)[Count], const copy_call<T>& c) {
  if (refused(routine, arguments, bad_copy_argument(c))) return;
  const bool transposed = is_transposing(c.trans);
  const zor_int to_line = transposed ? c.strideb : c.ldb, to_next = transposed ? c.ldb : c.strideb;
  for_each_part<T>(lines_of(c.ordering, c.rows, c.cols), [&](zor_int line, zor_int next, line_counts part) {
    trans_kernels<T>::omatcopy2('R', c.trans, part.lines, part.length, c.alpha,
                                c.a + line * c.lda + next * c.stridea, c.lda, c.stridea,
                                c.b + line * to_line + next * to_next, c.ldb, c.strideb);
  });
}

}  // namespace
}  // namespace zor_core

#define ROW_OMATCOPY(name, T)                                                          \
  extern "C" SIG_OMATCOPY(name, T) {                                                   \
    zor_core::omatcopy<T>(#name, zor_core::copy_arguments,                             \
                          {ordering, trans, rows, cols, alpha, a, lda, 1, b, ldb, 1}); \
  }
#define ROW_OMATCOPY2(name, T)                                                                     \
  extern "C" SIG_OMATCOPY2(name, T) {                                                              \
    zor_core::omatcopy<T>(#name, zor_core::strided_arguments,                                      \
                          {ordering, trans, rows, cols, alpha, a, lda, stridea, b, ldb, strideb}); \
  }
#include "zor/tables/core_trans.inc"
