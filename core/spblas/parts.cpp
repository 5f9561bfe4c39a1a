// SPDX-License-Identifier: MIT
// The cut of a matrix into parts, for products that add to outputs of other rows.
#include "core/spblas/matrix.h"
#include "core/threads.h"

namespace zor_core {
namespace {

using namespace sparse_thresholds;

// The lowest and the highest output of a part, which is taken for the whole range between them: it holds the
// columns of the part's rows (of a mirrored view, those within the triangle) and, unless the view is general,
// the rows themselves.
struct output_range {
  zor_int low, high;
};
template <class I>
output_range outputs_of_part(const sparse_matrix& a, zor_int p) {
  const csr_arrays<char, I> m(a);
  const char triangle = a.mirrored() ? a.triangle : '_';
  const bool general = a.structure == 'g';
  output_range range = {general ? a.cols : a.first[p], general ? -1 : a.first[p + 1] - 1};
  for (zor_int r = a.first[p]; r < a.first[p + 1]; ++r)
    // Of a row that ascends the first and the last entry tell.
    for (zor_int k = m.begin(r), last = m.end(r) - 1; k <= last; k = a.ascending && k < last ? last : k + 1) {
      const zor_int column = zor_int(m.indx[k]) - a.base;
      if (triangle == 'l' ? column > r : triangle == 'u' ? column < r : false) continue;
      range.low = std::min(range.low, column);
      range.high = std::max(range.high, column);
    }
  return range;
}

// Whether no two parts of equal parity add to the same output. Threads look at some parts at a time, since
// mostly the first ones tell.
template <class I>
bool parts_alternate(const sparse_matrix& a) {
  const int32_t threads = a.used < least_for_threads ? 1 : usable_threads();
  const zor_int at_once = threads == 1 ? 1 : std::min<zor_int>(4 * threads, most_parts);
  output_range outputs[most_parts];
  zor_int reached[2] = {-1, -1};  // highest outputs of the even and of the odd parts so far
  for (zor_int first = 0; first < a.parts; first += at_once) {
    const zor_int last = std::min(first + at_once, a.parts);
    for_each_piece(threads, last - first,
                   [&](zor_int piece) { outputs[piece] = outputs_of_part<I>(a, first + piece); });
    for (zor_int p = first; p < last; ++p) {
      const auto [low, high] = outputs[p - first];
      if (high < low) continue;
      if (low <= reached[p % 2]) return false;
      reached[p % 2] = high;
    }
  }
  return true;
}

template <class I>
void cut_by_entries(sparse_matrix& a, zor_int parts) {
  a.parts = parts;
  for (zor_int p = 0; p <= parts; ++p) a.first[p] = cut_rows(csr_arrays<char, I>(a), a.rows, parts, p);
}

// Parts of equally many rows, as the merge of packed outputs takes them.
void cut_by_rows(sparse_matrix& a, zor_int parts) {
  a.part_rows = (a.rows + parts - 1) / parts;
  a.parts = (a.rows + a.part_rows - 1) / a.part_rows;
  for (zor_int p = 0; p <= a.parts; ++p) a.first[p] = std::min(p * a.part_rows, a.rows);
}

// How many parts may have an output each.
zor_int parts_with_outputs(const sparse_matrix& a) {
  const zor_int outputs = a.used / (entries_of_output_element * std::max(a.rows, a.cols));
  return std::clamp<zor_int>(outputs, 1, std::clamp<zor_int>(a.used / entries_of_part, 1, most_outputs));
}

// Whether the rows of a triangular view are short enough to be shifted on the stack.
template <class I>
bool rows_can_be_shifted(const sparse_matrix& a) {
  const csr_arrays<char, I> m(a);
  for (zor_int r = 0; r < a.rows; ++r)
    if (m.end(r) - m.begin(r) > longest_shifted_row) return false;
  return true;
}

}  // namespace

// Alternating parts cost nothing. Others need outputs of their own, so there are few of them.
template <class I>
void cut_into_parts(sparse_matrix& a) {
  a.alternating = true;
  cut_by_entries<I>(a, 1);
  if (a.rows == 0 || a.structure == 'd') return;
  if (a.structure == 't' && !rows_can_be_shifted<I>(a)) return;
  const zor_int most = std::clamp<zor_int>(a.used / entries_of_part, 1, most_parts);
  for (zor_int parts = most; parts >= least_alternating_parts; parts /= 2) {
    cut_by_entries<I>(a, parts);
    if (parts_alternate<I>(a)) return;
  }
  cut_by_entries<I>(a, parts_with_outputs(a));
  a.alternating = a.parts == 1;
  if (!a.alternating && a.mirrored()) cut_by_rows(a, a.parts);
}
template void cut_into_parts<int32_t>(sparse_matrix&);
template void cut_into_parts<int64_t>(sparse_matrix&);

// A unit diagonal is added once for all entries, and a diagonal view by a kernel without parts.
void cut_entries_into_parts(sparse_matrix& a) {
  const bool whole = a.rows == 0 || a.cols == 0 || a.diagonal == 'u' || a.structure == 'd';
  a.parts = whole ? 1 : parts_with_outputs(a);
  a.alternating = a.parts == 1;
  for (zor_int p = 0; p <= a.parts; ++p) a.first[p] = zor_int(__int128(a.used) * p / a.parts);
}

}  // namespace zor_core
