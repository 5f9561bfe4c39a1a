// SPDX-License-Identifier: MIT
// C := A B, row by row (Gustavson, 1978). The products of a row are added into an array with an element a
// column, and their columns collected as a set of bits, from which they come in ascending order: nothing is
// sorted. The array holds neutral elements between rows, so that no product asks whether its column is new.
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

// The positions of the row of B that entry e of A multiplies.
struct range {
  zor_int first, end;
};
template <class T, class I>
[[gnu::always_inline]] inline range row_of_entry(const factors<T, I>& f, zor_int e) {
  const I* const p = f.ib + f.ja[e];
  return {zor_int(p[-1]) - 1, zor_int(p[0]) - 1};
}

// ic[r + 1] := the number of columns of row r. A column that the row has met carries the row's number.
template <class T, class I>
void count_rows(zor_int first, zor_int last, zor_int n, const factors<T, I>& f, I* met, I* ic) {
  std::memset(met, 0, size_t(n) * sizeof(I));
  I* const by_column = met - 1;
  for (zor_int r = first; r < last; ++r) {
    const I number = I(r + 1);
    I count = 0;
    for (zor_int e = zor_int(f.ia[r]) - 1, end = zor_int(f.ia[r + 1]) - 1; e < end; ++e) {
      const range row = row_of_entry(f, e);
      for (zor_int at = row.first; at < row.end; ++at) {
        I& last_met = by_column[f.jb[at]];
        count += last_met != number;
        last_met = number;
      }
    }
    ic[r + 1] = count;
  }
}

template <class T, class I>
class row_product {
 public:
  // `sums` has an element a column.
  row_product(const factors<T, I>& f, const column_set& columns, T* sums, zor_int n)
      : f_(f), columns_(columns), sums_(sums), start_(neutral<T>()) {
    for (zor_int c = 0; c < n; ++c) sums[c] = start_;
  }

  void add(zor_int r) {
    for (zor_int e = zor_int(f_.ia[r]) - 1, end = zor_int(f_.ia[r + 1]) - 1; e < end; ++e) {
      const sparse::factor<T> p(load<T, 1>(f_.a + e));
      const range row = row_of_entry(f_, e);
      for (zor_int at = row.first; at < row.end; ++at) {
        const zor_int column = zor_int(f_.jb[at]) - 1;
        columns_.add(column);
        T* const sum = sums_ + column;
        store<T, 1>(sum, load<T, 1>(sum) + p.template times<false>(f_.b + at));
      }
    }
  }
  // Takes the row to jc and c, as far as there is room, and leaves nothing of it. Returns its entries.
  zor_int take(I* jc, T* c, zor_int room) {
    zor_int n = 0;
    columns_.drain([&](zor_int first, uint64_t bits) {
      for (; bits != 0; bits &= bits - 1, ++n) {
        const zor_int column = first + __builtin_ctzll(bits);
        if (n < room) {
          jc[n] = I(column + 1);
          c[n] = sums_[column];
        }
        sums_[column] = start_;
      }
    });
    return n;
  }

 private:
  factors<T, I> f_;
  column_set columns_;
  T* sums_;
  T start_;
};

template <class T, class I>
I multiply(zor_int first, zor_int last, zor_int n, request wanted, const factors<T, I>& f,
           const product_result<T, I>& to) {
  if (last <= first) return 0;
  const zor_int columns = n > 0 ? n : 0;
  if (wanted == request::counts) {
    const result_scratch<I> met(columns);
    if (met.data == nullptr) return -1;
    count_rows(first, last, columns, f, met.data, to.ic);
    return 0;
  }
  const result_scratch<uint64_t> bits(column_set::words(columns));
  const result_scratch<T> sums(columns);
  if (bits.data == nullptr || sums.data == nullptr) return -1;
  row_product<T, I> row(f, column_set(bits.data, columns), sums.data, columns);
  const bool checked = wanted == request::all;
  if (checked) to.ic[0] = 1;
  for (zor_int r = first; r < last; ++r) {
    const zor_int start = zor_int(to.ic[r]) - 1;
    const zor_int room = checked ? to.nzmax - start : std::numeric_limits<zor_int>::max();
    row.add(r);
    const zor_int count = row.take(to.jc + start, to.c + start, room);
    if (count > room) return I(r + 1);
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
