// SPDX-License-Identifier: MIT
// C := A B, row by row (Gustavson, 1978). A row is made in two passes over its rows of B: the first collects
// its columns as a set of bits, from which they come in ascending order, each being told its position; the
// second adds products into those positions. So nothing is sorted, and no product asks whether its column is
// new.
#include <limits>

#include "spblas/gemm/column_set.h"
#include "spblas/gemm/rows.h"
#include "spblas/result_scratch.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

// What any number is added to without a change, not even of the sign of a zero: -0, but 0 where the caller
// rounds downwards.
template <class T>
T neutral() {
  real_t<T> one = 1;
  asm("" : "+x"(one));  // Else the difference is worked out without regard to the rounding mode.
  const real_t<T> zero = -(one - one);
  if constexpr (is_complex<T>)
    return {zero, zero};
  else
    return zero;
}

template <class T, class I>
struct factors {
  const T* a;
  const I *ja, *ia;
  const T* b;
  const I *jb, *ib;
};
template <class T, class I>
struct product_result {
  T* c;
  I *jc, *ic;
  zor_int nzmax;
};

template <class T, class I>
class row_product {
 public:
  // `positions` has an element a column.
  row_product(const factors<T, I>& f, const column_set& columns, I* positions)
      : f_(f), columns_(columns), positions_(positions) {}

  // Collects the columns of row r.
  void collect(zor_int r) {
    for (zor_int e = zor_int(f_.ia[r]) - 1, last = zor_int(f_.ia[r + 1]) - 1; e < last; ++e) {
      const auto [k, end] = row_of_entry(e);
      touch(f_.b + k);
      for (zor_int at = k; at < end; ++at) columns_.add(zor_int(f_.jb[at]) - 1);
    }
  }
  // The number of columns collected; they are forgotten.
  zor_int count() {
    zor_int n = 0;
    columns_.drain([&](zor_int, uint64_t bits) { n += __builtin_popcountll(bits); });
    return n;
  }
  // Writes them to jc, as far as there is room, and keeps their positions. Returns their number.
  zor_int place(I* jc, zor_int room) {
    zor_int n = 0;
    columns_.drain([&](zor_int first, uint64_t bits) {
      for (; bits != 0; bits &= bits - 1, ++n) {
        if (n >= room) continue;
        const zor_int column = first + __builtin_ctzll(bits);
        jc[n] = I(column + 1);
        positions_[column] = I(n);
      }
    });
    return n;
  }
  // Adds the products of row r into the `count` places of c.
  void add(zor_int r, T* c, zor_int count) const {
    const T start = neutral<T>();
    for (zor_int i = 0; i < count; ++i) c[i] = start;
    const I* const positions = positions_ - 1;
    for (zor_int e = zor_int(f_.ia[r]) - 1, last = zor_int(f_.ia[r + 1]) - 1; e < last; ++e) {
      const sparse::factor<T> p(load<T, 1>(f_.a + e));
      const auto [k, end] = row_of_entry(e);
      for (zor_int at = k; at < end; ++at) {
        T* const place = c + positions[f_.jb[at]];
        store<T, 1>(place, load<T, 1>(place) + p.template times<false>(f_.b + at));
      }
    }
  }

 private:
  struct range {
    zor_int first, end;
  };
  // The positions of the row of B that entry e of A multiplies.
  [[gnu::always_inline]] range row_of_entry(zor_int e) const {
    const I* const p = f_.ib + f_.ja[e];
    return {zor_int(p[-1]) - 1, zor_int(p[0]) - 1};
  }

  factors<T, I> f_;
  column_set columns_;
  I* positions_;
};

template <class T, class I>
I multiply(zor_int first, zor_int last, zor_int n, request wanted, const factors<T, I>& f,
           const product_result<T, I>& to) {
  if (last <= first) return 0;
  const zor_int columns = n > 0 ? n : 0;
  const result_scratch<uint64_t> bits(column_set::words(columns));
  const result_scratch<I> positions(wanted == request::counts ? 0 : columns);
  if (bits.data == nullptr || positions.data == nullptr) return -1;
  row_product<T, I> row(f, column_set(bits.data, columns), positions.data);
  if (wanted == request::all) to.ic[0] = 1;
  for (zor_int r = first; r < last; ++r) {
    row.collect(r);
    if (wanted == request::counts) {
      to.ic[r + 1] = I(row.count());
      continue;
    }
    const bool checked = wanted == request::all;
    const zor_int start = zor_int(to.ic[r]) - 1;
    const zor_int room = checked ? to.nzmax - start : std::numeric_limits<zor_int>::max();
    const zor_int count = row.place(to.jc + start, room);
    if (count > room) return I(r + 1);
    row.add(r, to.c + start, count);
    if (checked) to.ic[r + 1] = I(start + 1 + count);
  }
  return 0;
}

}  // namespace
}  // namespace zor::sparse

#define ROW_CSR_PRODUCT(name, T, I)                                                             \
  extern "C" SIG_CSR_PRODUCT(name, T, I) {                                                      \
    const auto wanted = zor::sparse::request_of(*request);                                      \
    const bool whole = wanted == zor::sparse::request::all;                                     \
    *info = zor::sparse::multiply<T, I>(whole ? 0 : *first - 1, whole ? *m : *last, *n, wanted, \
                                        {a, ja, ia, b, jb, ib}, {c, jc, ic, *nzmax});           \
  }
#include "zor/tables/spblas_gemm.inc"
