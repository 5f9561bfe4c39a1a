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
  [[gnu::always_inline]] zor_int column(zor_int k) const { return zor_int(indx[k]) - base; }
};

// Calls row.operator()<Count>(r) for rows first to last - 1 in order, or in reverse with Down. Count is the
// number of entries where Least rows (2 or 3) and more of one length, 1 to Most, follow one another, as a
// grid makes them: no loop over entries is then left to mispredict. Elsewhere it is 0 and says nothing. With
// Far entries are asked for ahead of their turn.
template <int Most, int Least = 2, bool Down = false, bool Far = false, class T, class I, class Row>
[[gnu::always_inline]] inline void for_rows(csr<T, I> a, zor_int first, zor_int last, const Row& row) {
  constexpr zor_int step = Down ? -1 : 1;
  const zor_int beyond = Down ? first - 1 : last;
  const auto count = [=](zor_int r) __attribute__((always_inline)) { return a.end(r) - a.begin(r); };
  const auto take = [&]<int Count>(zor_int r) __attribute__((always_inline)) {
    constexpr zor_int ahead = step * 4096 / zor_int(sizeof(T));
    if constexpr (Far) touch(a.val + a.begin(r) + ahead), touch(a.indx + a.begin(r) + ahead);
    row.template operator()<Count>(r);
  };
  for (zor_int r = Down ? last - 1 : first; (beyond - r) * step > 0;) {
    const zor_int n = count(r);
    const auto run = [&]<int Count>() __attribute__((always_inline)) {
      if (n != Count) return false;
      do take.template operator()<Count>(r);
      while ((r += step) != beyond && count(r) == Count);
      return true;
    };
    const auto run_of_any = [&]<int... C>(std::integer_sequence<int, C...>) __attribute__((always_inline)) {
      return (run.template operator()<C + 1>() || ...);
    };
    const bool alone = (beyond - r) * step < Least || count(r + step) != n ||
                       (Least == 3 && count(r + 2 * step) != n) || n > Most;
    if (!alone && run_of_any(std::make_integer_sequence<int, Most>{})) continue;
    take.template operator()<0>(r);
    r += step;
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
