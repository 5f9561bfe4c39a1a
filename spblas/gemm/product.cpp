// SPDX-License-Identifier: MIT
// C := A B, row by row (Gustavson, 1978). A row of C is first a list of the columns met and their sums, in
// the order in which the products come; a place for each column tells where it stands in the list. Then the
// list is put in order of the columns: a short one by the rank of each column, a long one by a set of bits.
// The columns of B, and with them those of C, may count from 0 as well.
#include <limits>

#include "spblas/gemm/column_set.h"
#include "spblas/gemm/three_arrays.h"
#include "spblas/result_scratch.h"
#include "spblas/result_thresholds.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

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

// The entries of A in a range of rows, and the rows of B that they multiply. Rows of B come in any order, so
// they are asked for ahead.
template <class T, class I>
class row_walk {
 public:
  row_walk(const factors<T, I>& f, zor_int last) : f_(f), end_(zor_int(f.ia[last]) - 1) {}

  // Calls visit(entry of A, first position in B, position behind the last one).
  template <class Visit>
  [[gnu::always_inline]] void each(zor_int r, bool with_values, const Visit& visit) const {
    for (zor_int e = zor_int(f_.ia[r]) - 1, end = zor_int(f_.ia[r + 1]) - 1; e < end; ++e) {
      if (e + thresholds::rows_ahead < end_) {
        const zor_int next = zor_int(f_.ib[zor_int(f_.ja[e + thresholds::rows_ahead]) - 1]) - 1;
        touch(f_.jb + next);
        if (with_values) touch(f_.b + next);
      }
      const I* const p = f_.ib + f_.ja[e];
      visit(e, zor_int(p[-1]) - 1, zor_int(p[0]) - 1);
    }
  }

 private:
  const factors<T, I>& f_;
  zor_int end_;
};

// ic[r + 1] := the number of columns of row r. A column that the row has met carries the row's number.
template <class T, class I>
void count_rows(zor_int first, zor_int last, zor_int n, const factors<T, I>& f, I* met, I* ic) {
  std::memset(met, 0, size_t(n + 1) * sizeof(I));
  const row_walk<T, I> walk(f, last);
  for (zor_int r = first; r < last; ++r) {
    const I number = I(r + 1);
    I count = 0;
    walk.each(
        r, false, [&](zor_int, zor_int at, zor_int end) __attribute__((always_inline)) {
          for (; at < end; ++at) {
            I& last_met = met[f.jb[at]];
            count += last_met != number;
            last_met = number;
          }
        });
    ic[r + 1] = count;
  }
}

// Lists up to this length are ordered by rank.
template <class I>
inline constexpr zor_int longest_ranked = thresholds::vectors_ranked* lanes_of<I>;

// rank[i] := how many of the columns stand before columns[i]; both have room for whole vectors.
template <class I>
void rank_columns(const I* columns, zor_int count, I* rank) {
  using V = vec<I>;
  for (zor_int k = 0; k < count; k += lanes<V>) {
    const V own = zor::load<V>(columns + k);
    V before{};
    for (zor_int j = 0; j < count; ++j) before -= broadcast<V>(columns[j]) < own;
    zor::store(rank + k, before);
  }
}

// Scratch of a range of rows.
template <class T, class I>
struct list_scratch {
  explicit list_scratch(zor_int n)
      : place(n + 1), column(n + 1 + lanes_of<I>), sum(n + 1), bits(column_set::words(n + 1)) {}
  bool short_of_memory() const {
    return place.data == nullptr || column.data == nullptr || sum.data == nullptr || bits.data == nullptr;
  }
  result_scratch<std::make_unsigned_t<I>> place;
  result_scratch<I> column;
  result_scratch<T> sum;
  result_scratch<uint64_t> bits;
};

template <class T, class I>
class row_product {
 public:
  row_product(const factors<T, I>& f, zor_int last, zor_int n, const list_scratch<T, I>& scratch)
      : f_(f),
        walk_(f, last),
        place_(scratch.place.data),
        column_(scratch.column.data),
        sum_(scratch.sum.data),
        set_(scratch.bits.data, n + 1) {
    std::memset(place_, 0, size_t(n + 1) * sizeof(*place_));
  }

  // Makes the list of row r. Returns its length.
  zor_int add(zor_int r) {
    // Places below it are those of earlier rows.
    start_ += count_;
    const auto start = start_;
    auto next = start;
    walk_.each(
        r, true, [&](zor_int e, zor_int at, zor_int end) __attribute__((always_inline)) {
          const sparse::factor<T> p(load<T, 1>(f_.a + e));
          for (; at < end; ++at) {
            const I column = f_.jb[at];
            const auto product = p.template times<false>(f_.b + at);
            auto& place = place_[column];
            if (place >= start) {
              T* const sum = sum_ + (place - start);
              store<T, 1>(sum, load<T, 1>(sum) + product);
            } else {
              place = next;
              column_[next - start] = column;
              store<T, 1>(sum_ + (next++ - start), product);
            }
          }
        });
    return count_ = zor_int(next - start);
  }

  // Takes the list to jc and c in order.
  void take(I* jc, T* c) {
    if (count_ <= longest_ranked<I>)
      take_by_rank(jc, c);
    else
      take_by_bits(jc, c);
  }

 private:
  using number = std::make_unsigned_t<I>;

  void take_by_rank(I* jc, T* c) {
    I rank[longest_ranked<I> + lanes_of<I>];
    rank_columns(column_, count_, rank);
    for (zor_int k = 0; k < count_; ++k) {
      jc[rank[k]] = column_[k];
      c[rank[k]] = sum_[k];
    }
  }
  void take_by_bits(I* jc, T* c) {
    for (zor_int k = 0; k < count_; ++k) set_.add(zor_int(column_[k]));
    set_.drain([&](zor_int first, uint64_t bits) {
      for (; bits != 0; bits &= bits - 1) {
        const zor_int column = first + __builtin_ctzll(bits);
        *jc++ = I(column);
        *c++ = sum_[place_[column] - start_];
      }
    });
  }

  const factors<T, I>& f_;
  row_walk<T, I> walk_;
  number* place_;
  I* column_;
  T* sum_;
  column_set set_;
  number start_ = 1;
  zor_int count_ = 0;
};

template <class T, class I>
I multiply(zor_int first, zor_int last, zor_int n, request wanted, const factors<T, I>& f,
           const product_result<T, I>& to) {
  if (last <= first) return 0;
  const zor_int columns = n > 0 ? n : 0;
  if (wanted == request::counts) {
    const result_scratch<I> met(columns + 1);
    if (met.data == nullptr) return -1;
    count_rows(first, last, columns, f, met.data, to.ic);
    return 0;
  }
  const list_scratch<T, I> scratch(columns);
  if (scratch.short_of_memory()) return -1;
  row_product<T, I> row(f, last, columns, scratch);
  const bool checked = wanted == request::all;
  if (checked) to.ic[0] = 1;
  for (zor_int r = first; r < last; ++r) {
    const zor_int start = zor_int(to.ic[r]) - 1, count = row.add(r);
    if (checked && count > to.nzmax - start) return I(r + 1);
    row.take(to.jc + start, to.c + start);
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
