// SPDX-License-Identifier: MIT
// A CSR operand as the kernels see it: rows, columns and positions count from 0, whatever the index base of
// the column indices and the start value of the row pointers.
#pragma once

#include "serv/vec.h"

namespace zor::sparse {

// The fields of a kernel's name that choose its algorithm.
struct view {
  char op, structure, triangle, diagonal;

  constexpr bool transposed() const { return op == 't' || op == 'c'; }
  constexpr bool conjugated() const { return op == 's' || op == 'c'; }
  constexpr bool unit() const { return diagonal == 'u'; }
  // side (column - row) is negative in the triangle of the view, 0 on the diagonal, positive beyond it.
  constexpr int side() const { return triangle == 'u' ? -1 : 1; }
  // An entry is outside the view when side (column - row) exceeds this.
  constexpr int bound() const { return unit() ? -1 : 0; }
};

// A view from the bare letters of a row of the grammar.
#define ZOR_VIEW(op, structure, triangle, diagonal) \
  zor::sparse::view { #op[0], #structure[0], #triangle[0], #diagonal[0] }

// p, as a value whose origin the compiler does not know: else it undoes the shift of a pointer by a constant
// and shifts every index instead.
template <class P>
[[gnu::always_inline]] inline P settled(P p) {
  asm("" : "+r"(p));
  return p;
}

template <class T, class I>
struct csr {
  const T* val;
  const I* indx;
  const I* pntrb;
  const I* pntre;
  zor_int base;
  zor_int origin = zor_int(*pntrb);

  // The same matrix with val and indx moved, so that a row pointer is a position as it stands.
  csr moved() const { return {settled(val - origin), settled(indx - origin), pntrb, pntre, base, 0}; }
  [[gnu::always_inline]] zor_int begin(zor_int row) const { return zor_int(pntrb[row]) - origin; }
  [[gnu::always_inline]] zor_int end(zor_int row) const { return zor_int(pntre[row]) - origin; }
  // Whether a row holds just these positions; compared in the width in which they are stored.
  [[gnu::always_inline]] bool holds(zor_int row, zor_int first, zor_int last) const {
    return pntrb[row] == I(first + origin) && pntre[row] == I(last + origin);
  }
  [[gnu::always_inline]] zor_int column(zor_int k) const { return zor_int(indx[k]) - base; }
};

// Calls row.operator()<Count>(r, k), or without k, for rows first to last - 1 in order, or in reverse with
// Down; k is where the row begins. Count is the number of entries where Least rows and more of one length, 1
// to Most, follow one another, as a grid makes them: no loop over entries is then left to mispredict.
// Elsewhere it is 0 and says nothing. With Far entries are asked for ahead of their turn.
template <int Most, int Least = 2, bool Down = false, bool Far = false, class T, class I, class Row>
[[gnu::always_inline]] inline void for_rows(csr<T, I> a, zor_int first, zor_int last, const Row& row) {
  constexpr zor_int step = Down ? -1 : 1;
  const zor_int beyond = Down ? first - 1 : last;
  const auto take = [&]<int Count>(zor_int r, zor_int k) __attribute__((always_inline)) {
    constexpr zor_int ahead = step * 4096 / zor_int(sizeof(T));
    if constexpr (Far) touch(a.val + k + ahead), touch(a.indx + k + ahead);
    if constexpr (requires { row.template operator()<Count>(r, k); })
      row.template operator()<Count>(r, k);
    else
      row.template operator()<Count>(r);
  };
  zor_int alone = 1;
  for (zor_int r = Down ? last - 1 : first; (beyond - r) * step > 0;) {
    const zor_int k = a.begin(r), n = a.end(r) - k;
    const auto run = [&]<int Count>() __attribute__((always_inline)) {
      if (n != Count) return false;
      zor_int at = k;
      do {
        take.template operator()<Count>(r, at);
        at += step * Count;
      } while ((r += step) != beyond && a.holds(r, at, at + Count));
      return true;
    };
    const auto run_of_any = [&]<int... C>(std::integer_sequence<int, C...>) __attribute__((always_inline)) {
      return (run.template operator()<C + 1>() || ...);
    };
    // One look at the farthest row: lengths that vary at random seldom add up.
    const auto is_run = [&]() __attribute__((always_inline)) {
      if ((beyond - r) * step < Least) return false;
      const zor_int other = r + step * (Least - 1);
      return (Down ? a.end(r) - a.begin(other) : a.end(other) - k) == Least * n && n <= Most;
    };
    if (is_run() && run_of_any(std::make_integer_sequence<int, Most>{})) {
      alone = 1;
      continue;
    }
    // While no runs are met they are looked for ever less often.
    const zor_int rest = (beyond - r) * step;
    for (const zor_int stop = r + step * (alone < rest ? alone : rest); r != stop; r += step)
      take.template operator()<0>(r, a.begin(r));
    if (alone < 16) alone *= 2;
  }
}

// The same for rows upwards, of entries that come from memory as well: the processor itself does not look
// beyond a page for them.
template <int Most, int Least, class T, class I, class Row>
[[gnu::always_inline]] inline void for_near_or_far_rows(csr<T, I> a, zor_int first, zor_int last,
                                                        const Row& row) {
  constexpr zor_int cached = 1 << 24;
  if (first < last && (a.end(last - 1) - a.begin(first)) * zor_int(sizeof(T)) > cached)
    for_rows<Most, Least, false, true>(a, first, last, row);
  else
    for_rows<Most, Least>(a, first, last, row);
}

}  // namespace zor::sparse
