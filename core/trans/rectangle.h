// SPDX-License-Identifier: MIT
// Transposition of a rectangle without gaps in its own place, by passes that permute within columns, within
// lines and within columns again (Catanzaro, Keller and Garland, "A decomposition for in-place matrix
// transposition", 2014). Scratch is a line and a panel of columns a thread. Each pass goes through memory
// once, so that a matrix in a mapped file may be larger than memory.
#pragma once

#include <cstring>
#include <numeric>

#include "core/trans/matrices.h"

namespace zor_core {

// A grid of m lines of n elements, m <= n, that a transposition permutes. Forwards it holds an m by n matrix
// before and an n by m one after, backwards the other way round.
template <class T>
struct rectangle {
  zor_int m, n;
  bool forwards;
  T* a;
  zor_int m_steps, n_steps;  // m and n over their greatest common divisor
  zor_int panel;             // columns that are permuted together
  int32_t threads;
  T* scratch;

  zor_int scratch_a_thread() const { return std::max(n, m * panel); }
};

// Calls body(k, scratch) for k from 0 to count - 1; each of as many pieces as threads has scratch of its own.
template <class T, class Body>
void divide(const rectangle<T>& r, zor_int count, const Body& body) {
  const zor_int pieces = std::min<zor_int>(r.threads, count);
  for_each_piece(r.threads, pieces, [&](zor_int piece) {
    T* const own = r.scratch + piece * r.scratch_a_thread();
    const zor_int end = cut(count, 1, pieces, piece + 1);
    for (zor_int k = cut(count, 1, pieces, piece); k < end; ++k) body(k, own);
  });
}

template <class T>
void copy_lines(zor_int lines, zor_int length, const T* from, zor_int from_ld, T* to, zor_int to_ld) {
  for (zor_int i = 0; i < lines; ++i)
    std::memcpy(to + i * to_ld, from + i * from_ld, size_t(length) * sizeof(T));
}

inline constexpr zor_int widest_panel = 512;

// Forwards, element (i, j) becomes that of line (of_line(i) + of_column(j)) mod m in its column; both are
// less than m.
template <class T, class OfLine, class OfColumn>
void permute_columns(const rectangle<T>& r, const OfLine& of_line, const OfColumn& of_column) {
  divide(r, (r.n + r.panel - 1) / r.panel, [&](zor_int index, T* held) {
    const zor_int first = index * r.panel, cols = std::min(r.panel, r.n - first);
    zor_int shift[widest_panel];
    for (zor_int j = 0; j < cols; ++j) shift[j] = of_column(first + j);
    if (r.forwards) copy_lines(r.m, cols, r.a + first, r.n, held, cols);
    for (zor_int i = 0; i < r.m; ++i) {
      const zor_int start = of_line(i);
      T* const line = r.a + i * r.n + first;
      for (zor_int j = 0; j < cols; ++j) {
        const zor_int sum = start + shift[j], other = sum < r.m ? sum : sum - r.m;
        if (r.forwards)
          line[j] = held[other * cols + j];
        else
          held[other * cols + j] = line[j];
      }
    }
    if (!r.forwards) copy_lines(r.m, cols, held, cols, r.a + first, r.n);
  });
}

// Forwards, element j of line i goes to place ((i + j / n_steps) mod m + j m) mod n. Elements are scaled on
// the way.
template <class T>
void permute_lines(const rectangle<T>& r, char scaling, T alpha) {
  divide(r, r.m, [&](zor_int i, T* held) {
    T* const line = r.a + i * r.n;
    zor_int shift = i, walked = 0, step = 0;
    for (zor_int j = 0; j < r.n; ++j) {
      const zor_int sum = shift + walked, other = sum < r.n ? sum : sum - r.n;
      if (r.forwards)
        held[other] = line[j];
      else
        held[j] = line[other];
      if (++step == r.n_steps) step = 0, shift = shift + 1 < r.m ? shift + 1 : 0;
      walked = walked + r.m < r.n ? walked + r.m : walked + r.m - r.n;
    }
    trans_kernels<T>::omatcopy2('R', scaling, 1, r.n, alpha, held, r.n, 1, line, r.n, 1);
  });
}

// The matrix becomes alpha times its transpose, its conjugate transpose for the letter C. False when there is
// no memory; nothing has been moved then.
template <class T>
bool transpose_rectangle(char trans, line_counts size, T alpha, T* a) {
  const zor_int common = std::gcd(size.lines, size.length);
  rectangle<T> r;
  r.m = std::min(size.lines, size.length);
  r.n = std::max(size.lines, size.length);
  r.forwards = size.lines <= size.length;
  r.a = a;
  r.m_steps = r.m / common;
  r.n_steps = r.n / common;
  // Whole cache lines, within the second-level cache where m allows it.
  constexpr zor_int panel_bytes = 1 << 18, least = 64 / sizeof(T);
  r.panel = std::clamp(panel_bytes / (r.m * zor_int(sizeof(T))) / least * least, least, widest_panel);
  r.threads = threads_for<T>(size);
  const heap_array<T> scratch(saturating_product(r.threads, r.scratch_a_thread()));
  if (scratch.data() == nullptr) return false;
  r.scratch = scratch.data();

  const auto rotate = [&] {
    if (common > 1)
      permute_columns(
          r, [](zor_int i) { return i; }, [&](zor_int j) { return j / r.n_steps; });
  };
  const auto shuffle = [&] {
    permute_columns(
        r, [&](zor_int i) { return (i * r.n - i / r.m_steps) % r.m; }, [&](zor_int j) { return j % r.m; });
  };
  const char scaling = is_letter(&trans, 'C') ? 'R' : 'N';
  if (r.forwards) rotate();
  if (!r.forwards) shuffle();
  permute_lines(r, scaling, alpha);
  if (r.forwards) shuffle();
  if (!r.forwards) rotate();
  return true;
}

}  // namespace zor_core
