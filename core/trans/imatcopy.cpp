// SPDX-License-Identifier: MIT
// The kernel needs no memory, and time for it where the two leading dimensions differ. Here a transposition
// takes the fastest way that memory allows; every one moves each element once and multiplies it once.
#include <cstring>

#include "core/trans/matrices.h"
#include "core/trans/rectangle.h"

namespace zor_core {
namespace {

constexpr const char* in_place_arguments[] = {"ordering", "trans", "rows", "cols",
                                              "alpha",    "ab",    "lda",  "ldb"};

// A matrix of no more bytes is copied as a whole.
constexpr zor_int copied_bytes = 1 << 26;

template <class T>
struct in_place_call {
  char trans;
  T alpha;
  T* ab;
  zor_int lda, ldb;
};

template <class T>
void scale(const in_place_call<T>& c, line_counts size) {
  if (c.lda != c.ldb)
    return trans_kernels<T>::imatcopy('R', c.trans, size.lines, size.length, c.alpha, c.ab, c.lda, c.ldb);
  for_each_part<T>(size, [&](zor_int line, zor_int next, line_counts part) {
    trans_kernels<T>::imatcopy('R', c.trans, part.lines, part.length, c.alpha, c.ab + line * c.lda + next,
                               c.lda, c.lda);
  });
}

// Transpositions with one leading dimension: block (i, j) of the leading square changes places with block (j,
// i).
template <class T>
struct exchange {
  static constexpr zor_int size = 32;
  const in_place_call<T>& c;

  T* at(zor_int line, zor_int next) const { return c.ab + line * c.lda + next; }

  void blocks(zor_int line, zor_int lines, zor_int next, zor_int length) const {
    T held[size * size];
    trans_kernels<T>::omatcopy2('R', c.trans, lines, length, c.alpha, at(line, next), c.lda, 1, held, lines,
                                1);
    trans_kernels<T>::omatcopy2('R', c.trans, length, lines, c.alpha, at(next, line), c.lda, 1,
                                at(line, next), c.lda, 1);
    for (zor_int i = 0; i < length; ++i)
      std::memcpy(at(next + i, line), held + i * lines, size_t(lines) * sizeof(T));
  }
  // The blocks of one line of blocks up to the diagonal.
  void line_of_blocks(zor_int n, zor_int line) const {
    const zor_int lines = std::min(size, n - line);
    for (zor_int next = 0; next < line; next += size) blocks(line, lines, next, size);
    trans_kernels<T>::imatcopy('R', c.trans, lines, lines, c.alpha, at(line, line), c.lda, c.lda);
  }
};

template <class T>
void exchange_places(const in_place_call<T>& c, line_counts whole) {
  const int32_t threads = threads_for<T>(whole);
  if (threads == 1)
    return trans_kernels<T>::imatcopy('R', c.trans, whole.lines, whole.length, c.alpha, c.ab, c.lda, c.ldb);
  const exchange<T> with = {c};
  const zor_int n = std::min(whole.lines, whole.length), most = std::max(whole.lines, whole.length);
  const zor_int lines = (n + with.size - 1) / with.size;
  // The longest line of blocks first, so that none is left for the end.
  for_each_piece(threads, lines,
                 [&](zor_int piece) { with.line_of_blocks(n, (lines - 1 - piece) * with.size); });
  const zor_int rest = (most - n + with.size - 1) / with.size;
  for_each_piece(threads, rest, [&](zor_int piece) {
    const zor_int first = n + piece * with.size, count = std::min(with.size, most - first);
    const bool below = whole.lines > n;
    trans_kernels<T>::omatcopy2('R', c.trans, below ? count : n, below ? n : count, c.alpha,
                                below ? with.at(first, 0) : with.at(0, first), c.lda, 1,
                                below ? with.at(0, first) : with.at(first, 0), c.lda, 1);
  });
}

// By a copy of the whole matrix; false when there is no memory for it.
template <class T>
bool transpose_copy(const in_place_call<T>& c, line_counts size) {
  const heap_array<T> old(size.lines * size.length);
  if (old.data() == nullptr) return false;
  for_each_part<T>(size, [&](zor_int line, zor_int next, line_counts part) {
    for (zor_int i = line; i < line + part.lines; ++i)
      std::memcpy(old.data() + i * size.length + next, c.ab + i * c.lda + next,
                  size_t(part.length) * sizeof(T));
  });
  for_each_part<T>(size, [&](zor_int line, zor_int next, line_counts part) {
    trans_kernels<T>::omatcopy2('R', c.trans, part.lines, part.length, c.alpha,
                                old.data() + line * size.length + next, size.length, 1,
                                c.ab + next * c.ldb + line, c.ldb, 1);
  });
  return true;
}

template <class T>
void transpose(const in_place_call<T>& c, line_counts size) {
  if (c.lda == c.ldb) return exchange_places(c, size);
  const bool gapless = c.lda == size.length && c.ldb == size.lines;
  const bool small = saturating_product(size.lines, size.length, sizeof(T)) <= copied_bytes;
  if (gapless && !small && transpose_rectangle(c.trans, size, c.alpha, c.ab)) return;
  if (transpose_copy(c, size)) return;
  trans_kernels<T>::imatcopy('R', c.trans, size.lines, size.length, c.alpha, c.ab, c.lda, c.ldb);
}

template <class T>
void imatcopy(const char* routine, char ordering, char trans, zor_int rows, zor_int cols, T alpha, T* ab,
              zor_int lda, zor_int ldb) {
  const line_counts from = lines_of(ordering, rows, cols),
                    to = is_transposing(trans) ? from.transposed() : from;
  const auto bad_argument = [&]() -> const char* {
    if (const char* bad = bad_letters_or_sizes(ordering, trans, rows, cols)) return bad;
    if (ab == nullptr && !from.empty()) return "ab";
    if (!is_line_length<T>(lda, from)) return "lda";
    if (!is_line_length<T>(ldb, to)) return "ldb";
    return nullptr;
  };
  if (refused(routine, in_place_arguments, bad_argument()) || from.empty()) return;
  const in_place_call<T> call = {trans, alpha, ab, lda, ldb};
  is_transposing(trans) ? transpose(call, from) : scale(call, from);
}

}  // namespace
}  // namespace zor_core

#define ROW_IMATCOPY(name, T)                                                    \
  extern "C" SIG_IMATCOPY(name, T) {                                             \
    zor_core::imatcopy(#name, ordering, trans, rows, cols, alpha, ab, lda, ldb); \
  }
#include "zor/tables/core_trans.inc"
