// SPDX-License-Identifier: MIT
// The sort of a row by column. Short rows, and rows that are sorted already, are sorted by insertion in
// place; long ones by merges of their columns, after which each value moves once.
#include "spblas/gemm/three_arrays.h"
#include "spblas/result_scratch.h"
#include "spblas/result_thresholds.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

// Entries 0 to `sorted` - 1 are in order.
template <class T, class I>
void insert_entries(const matrix_row<T, I>& row, zor_int sorted) {
  for (zor_int k = sorted; k < row.count; ++k) {
    const I column = row.columns[k];
    const T value = row.values[k];
    zor_int at = k;
    for (; at > 0 && row.columns[at - 1] > column; --at) {
      row.columns[at] = row.columns[at - 1];
      row.values[at] = row.values[at - 1];
    }
    row.columns[at] = column;
    row.values[at] = value;
  }
}

// A column and the place in the row that it comes from.
template <class I>
struct place_of_column {
  I column, place;
};

template <class I>
void insert_places(place_of_column<I>* p, zor_int count) {
  for (zor_int k = 1; k < count; ++k) {
    const place_of_column<I> e = p[k];
    zor_int at = k;
    for (; at > 0 && p[at - 1].column > e.column; --at) p[at] = p[at - 1];
    p[at] = e;
  }
}

// Two sorted neighbours become one; at equal columns the first goes before the second.
template <class I>
void merge_places(const place_of_column<I>* first, const place_of_column<I>* middle,
                  const place_of_column<I>* end, place_of_column<I>* out) {
  const place_of_column<I>* second = middle;
  while (first < middle && second < end) {
    const bool later = second->column < first->column;
    *out++ = later ? *second : *first;
    second += later;
    first += !later;
  }
  while (first < middle) *out++ = *first++;
  while (second < end) *out++ = *second++;
}

template <class I>
place_of_column<I>* sorted_places(place_of_column<I>* p, place_of_column<I>* other, zor_int count) {
  constexpr zor_int run = thresholds::inserted_run;
  for (zor_int k = 0; k < count; k += run) insert_places(p + k, count - k < run ? count - k : run);
  for (zor_int length = run; length < count; length *= 2) {
    for (zor_int k = 0; k < count; k += 2 * length) {
      const zor_int middle = k + length < count ? k + length : count;
      const zor_int end = middle + length < count ? middle + length : count;
      merge_places(p + k, p + middle, p + end, other + k);
    }
    std::swap(p, other);
  }
  return p;
}

template <class T, class I>
bool sort_by_merges(const matrix_row<T, I>& row) {
  const result_scratch<place_of_column<I>> places(2 * row.count);
  const result_scratch<T> values(row.count);
  if (places.data == nullptr || values.data == nullptr) return false;
  for (zor_int k = 0; k < row.count; ++k) places.data[k] = {row.columns[k], I(k)};
  const place_of_column<I>* const order = sorted_places(places.data, places.data + row.count, row.count);
  std::memcpy(static_cast<void*>(values.data), row.values, size_t(row.count) * sizeof(T));
  for (zor_int k = 0; k < row.count; ++k) {
    row.columns[k] = order[k].column;
    row.values[k] = values.data[order[k].place];
  }
  return true;
}

template <class T, class I>
void sort_rows(zor_int first, zor_int last, const I* ia, I* ja, T* a) {
  for (zor_int r = first; r < last; ++r) sort_row(row_of(ia, ja, a, r));
}

}  // namespace

template <class T, class I>
void sort_row(const matrix_row<T, I>& row) {
  zor_int sorted = 1;
  while (sorted < row.count && row.columns[sorted - 1] <= row.columns[sorted]) ++sorted;
  if (sorted >= row.count) return;
  if (row.count <= thresholds::longest_inserted_row || !sort_by_merges(row)) insert_entries(row, sorted);
}

#define SORT_ROW(T, I) template void sort_row(const matrix_row<T, I>&);
ZOR_EACH_ELEMENT_AND_INDEX(SORT_ROW)
#undef SORT_ROW

}  // namespace zor::sparse

#define ROW_SORT_ROWS(name, T, I) \
  extern "C" SIG_SORT_ROWS(name, T, I) { zor::sparse::sort_rows<T, I>(*first - 1, *last, ia, ja, a); }
#include "zor/tables/spblas_gemm.inc"
