// SPDX-License-Identifier: MIT
// Matrices in coordinates, diagonals, blocks and skyline: the check of their arrays, and their form in
// compressed rows for calls that have no kernel of the format.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "core/spblas/arguments.h"
#include "core/spblas/conversion_kernels.h"
#include "core/spblas/numbers.h"
#include "serv/scalar.h"
#include "serv/scratch.h"

namespace zor_core {
namespace {

// By its bits: elements outside the matrix raise no flag, and a denormal is a number in every mode.
template <class T>
bool differs_from_zero(const T& value) {
  std::conditional_t<sizeof(zor::real_t<T>) == 4, uint32_t, uint64_t>
      bits[sizeof(T) / sizeof(zor::real_t<T>)];
  std::memcpy(bits, &value, sizeof bits);
  return std::any_of(std::begin(bits), std::end(bits), [](auto part) { return part << 1 != 0; });
}

template <class T>
zor_int number_nonzeros_of(const T* val, zor_int count, double* numbers) {
  zor_int found = 0;
  for (zor_int k = 0; k < count; ++k) {
    const bool counts = differs_from_zero(val[k]);
    numbers[k] = counts ? double(k + 1) : 0.0;
    found += counts;
  }
  return found;
}

// Indices of `what` lie within base to base + limit - 1.
template <class I>
int32_t bad_indices(const sparse_matrix& a, const char* array, const char* what, const void* indices,
                    zor_int limit) {
  const I* const indx = static_cast<const I*>(indices);
  for (zor_int k = 0; k < a.nnz; ++k)
    if (uint64_t(indx[k]) - uint64_t(a.base) >= uint64_t(limit))
      return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "%s: entry %lld has %s %lld, not %d to %lld", array,
                            (long long)(k + a.base), what, (long long)indx[k], a.base,
                            (long long)(limit - 1 + a.base));
  return ZOR_SPARSE_OK;
}

template <class I>
int32_t bad_distances(const sparse_matrix& a) {
  const I* const distance = static_cast<const I*>(a.given_indx);
  for (zor_int d = 0; d < a.nnz; ++d)
    if (zor_int(distance[d]) <= -a.rows || zor_int(distance[d]) >= a.rows)
      return sparse_failure(ZOR_SPARSE_BAD_MATRIX,
                            "indx: diagonal %lld has distance %lld, outside the matrix",
                            (long long)(d + a.base), (long long)distance[d]);
  return ZOR_SPARSE_OK;
}

// Pointers of `lines` rows without gaps that end within nnz.
template <class I>
int32_t bad_pointers(const sparse_matrix& a, zor_int lines) {
  const I *const begin = static_cast<const I*>(a.given_pntrb), *const end =
                                                                   static_cast<const I*>(a.given_pntre);
  for (zor_int r = 0; r < lines; ++r) {
    const long long from = begin[r], to = begin[r + 1];
    if (from < 0 || to < from || to - begin[0] > a.nnz)
      return sparse_failure(ZOR_SPARSE_BAD_MATRIX,
                            "pntrb: row %lld goes from %lld to %lld, with %lld entries stored",
                            (long long)(r + a.base), from, to, (long long)a.nnz);
    if (end[r] != begin[r + 1])
      return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "pntre: row %lld ends at %lld, the next begins at %lld",
                            (long long)(r + a.base), (long long)end[r], to);
  }
  return ZOR_SPARSE_OK;
}

template <class I>
int32_t bad_profiles(const sparse_matrix& a) {
  if (const int32_t status = bad_pointers<I>(a, a.rows)) return status;
  const I* const pntr = static_cast<const I*>(a.given_pntrb);
  for (zor_int r = 0; r < a.rows; ++r) {
    const zor_int length = zor_int(pntr[r + 1]) - zor_int(pntr[r]);
    if (length < 1 || length > r + 1)
      return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "pntrb: profile %lld has %lld elements, not 1 to %lld",
                            (long long)(r + a.base), (long long)length, (long long)(r + 1));
  }
  return ZOR_SPARSE_OK;
}

zor_int block_rows(const sparse_matrix& a) { return (a.rows + a.lb - 1) / a.lb; }

// Elements of val, at most INT64_MAX.
zor_int elements(const sparse_matrix& a) {
  if (a.format == ZOR_SPARSE_DIA && a.nnz > 0) {
    const zor_int before = saturating_product(a.nnz - 1, a.lval);
    return before > INT64_MAX - a.rows ? INT64_MAX : before + a.rows;
  }
  return a.format == ZOR_SPARSE_BSR ? saturating_product(a.nnz, a.lb, a.lb) : a.nnz;
}

template <class I>
int32_t bad_arrays(const sparse_matrix& a) {
  switch (a.format) {
    case ZOR_SPARSE_COO:
      if (const int32_t status = bad_indices<I>(a, "rowind", "row", a.given_rowind, a.rows)) return status;
      return bad_indices<I>(a, "indx", "column", a.given_indx, a.cols);
    case ZOR_SPARSE_DIA:
      return bad_distances<I>(a);
    case ZOR_SPARSE_BSR:
      if (const int32_t status = bad_pointers<I>(a, block_rows(a))) return status;
      return bad_indices<I>(a, "indx", "block column", a.given_indx, block_rows(a));
    default:
      return bad_profiles<I>(a);
  }
}

// Keeps the first row that a solve cannot take.
void note_pivot(sparse_matrix& a, zor_sparse_matrix::fault what, zor_int row) {
  if (a.unsolvable != zor_sparse_matrix::none && a.unsolvable_row <= row) return;
  a.unsolvable = what;
  a.unsolvable_row = row;
}

// Looks at the diagonal element of a row, null where there is none.
template <class T>
void note_pivot_at(sparse_matrix& a, zor_int row, const T* element) {
  if (element == nullptr)
    note_pivot(a, zor_sparse_matrix::no_pivot, row);
  else if (zor::is_zero(*element))
    note_pivot(a, zor_sparse_matrix::zero_pivot, row);
}
// Those of all rows, at the positions place(r) of val, or -1.
template <class T, class Place>
void note_pivots(sparse_matrix& a, const Place& place) {
  for (zor_int r = 0; r < a.rows; ++r) {
    const zor_int at = place(r);
    note_pivot_at(a, r, at < 0 ? nullptr : static_cast<const T*>(a.given_val) + at);
  }
}

template <class T, class I>
int32_t note_pivots_of_coordinates(sparse_matrix& a) {
  const I *const row = static_cast<const I*>(a.given_rowind), *const column =
                                                                  static_cast<const I*>(a.given_indx);
  const zor::scratch<zor_int> place(a.rows);
  if (place.data == nullptr && a.rows > 0)
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the check of the diagonal is short");
  std::fill_n(place.data, a.rows, zor_int(-1));
  for (zor_int k = 0; k < a.nnz; ++k) {
    if (row[k] != column[k]) continue;
    zor_int& found = place.data[zor_int(row[k]) - a.base];
    if (found >= 0) note_pivot(a, zor_sparse_matrix::two_pivots, zor_int(row[k]) - a.base);
    found = k;
  }
  note_pivots<T>(a, [&](zor_int r) { return place.data[r]; });
  return ZOR_SPARSE_OK;
}

template <class T, class I>
void note_pivots_of_diagonals(sparse_matrix& a) {
  const I* const distance = static_cast<const I*>(a.given_indx);
  const zor_int main = std::find(distance, distance + a.nnz, I(0)) - distance;
  if (a.rows > 0 && main < a.nnz && std::find(distance + main + 1, distance + a.nnz, I(0)) < distance + a.nnz)
    note_pivot(a, zor_sparse_matrix::two_pivots, 0);
  note_pivots<T>(a, [&](zor_int r) { return main < a.nnz ? main * a.lval + r : -1; });
}

// The kernels read whole blocks: what stands outside the matrix must be 0. Of a unit triangle they take the
// diagonal where a block row has its diagonal block. They count block columns from 1.
template <class T, class I>
int32_t look_at_blocks(sparse_matrix& a) {
  const csr_arrays<T, I> m(a.given_val, a.given_indx, a.given_pntrb, a.given_pntre);
  const zor_int lb = a.lb, outside = block_rows(a) * lb - a.rows, inside = lb - outside;
  a.blocks_serve = true;
  for (zor_int R = 0; R < block_rows(a); ++R) {
    zor_int diagonals = 0, diagonal = -1;
    for (zor_int p = m.begin(R); p < m.end(R); ++p) {
      const zor_int C = zor_int(m.indx[p]) - a.base;
      if (C == R) ++diagonals, diagonal = p;
      if (outside == 0 || (R < block_rows(a) - 1 && C < block_rows(a) - 1)) continue;
      for (zor_int e = 0; e < lb * lb; ++e) {
        const bool beyond =
            (R == block_rows(a) - 1 && e % lb >= inside) || (C == block_rows(a) - 1 && e / lb >= inside);
        if (beyond && !zor::is_zero(m.val[p * lb * lb + e])) a.blocks_serve = false;
      }
    }
    if (a.structure == 't' && a.diagonal == 'u' && diagonals != 1) a.blocks_serve = false;
    for (zor_int i = 0; a.structure == 'g' && i < lb && R * lb + i < a.rows; ++i)
      note_pivot_at(a, R * lb + i, diagonal < 0 ? nullptr : m.val + (diagonal * lb + i) * lb + i);
  }
  if (a.base == 1) return ZOR_SPARSE_OK;
  if (a.own_blocks == nullptr && !owned_arrays::allocate(a.own_blocks, a.nnz, sizeof(I)))
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the block columns is short");
  std::transform(m.indx, m.indx + a.nnz, static_cast<I*>(a.own_blocks), [](I C) { return I(C + 1); });
  return ZOR_SPARSE_OK;
}

template <class T, class I>
int32_t look_at_elements(sparse_matrix& a) {
  if (a.format == ZOR_SPARSE_BSR) return look_at_blocks<T, I>(a);
  if ((a.structure != 't' && a.structure != 'd') || a.diagonal != 'n') return ZOR_SPARSE_OK;
  if (a.format == ZOR_SPARSE_COO) return note_pivots_of_coordinates<T, I>(a);
  if (a.format == ZOR_SPARSE_DIA) {
    note_pivots_of_diagonals<T, I>(a);
  } else {
    const I* const pntr = static_cast<const I*>(a.given_pntrb);
    note_pivots<T>(a, [&](zor_int r) { return zor_int(pntr[r + 1]) - zor_int(pntr[0]) - 1; });
  }
  return ZOR_SPARSE_OK;
}

// The conversion itself: numbers of the format to numbers, columns and row pointers of CSR.
template <class I>
void convert_numbers(const sparse_matrix& a, double* from, double* to, I* ja, I* ia) {
  I* const indx = const_cast<I*>(static_cast<const I*>(a.given_indx));
  I* const pntr = const_cast<I*>(static_cast<const I*>(a.given_pntrb));
  I* const rowind = const_cast<I*>(static_cast<const I*>(a.given_rowind));
  const I n = I(a.rows), lb = I(a.lb), stored = lb * lb, base = I(a.base);
  const I job[6] = {1, base, base, I(a.triangle == 'u'), std::numeric_limits<I>::max(), 0};
  I nnz = I(a.nnz), info = 0;
  if (a.format == ZOR_SPARSE_COO)
    coo_conversion<double, I>(job, &n, to, ja, ia, &nnz, from, rowind, indx, &info);
  else if (a.format == ZOR_SPARSE_DIA) {
    const I lval = I(a.lval);
    dia_conversion<double, I>(job, &n, to, ja, ia, from, &lval, indx, &nnz, nullptr, nullptr, nullptr);
  } else if (a.format == ZOR_SPARSE_BSR)
    bsr_conversion<double, I>(job, &n, &lb, &stored, to, ja, ia, from, indx, pntr, &info);
  else
    sky_conversion<double, I>(job, &n, to, ja, ia, from, pntr, &info);
}

int32_t short_of_memory() {
  return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the CSR form of the matrix is short");
}

}  // namespace

zor_int number_nonzeros(char type, const void* val, zor_int count, double* numbers) {
  return type == 's'   ? number_nonzeros_of(static_cast<const float*>(val), count, numbers)
         : type == 'd' ? number_nonzeros_of(static_cast<const double*>(val), count, numbers)
         : type == 'c' ? number_nonzeros_of(static_cast<const zor_c32*>(val), count, numbers)
                       : number_nonzeros_of(static_cast<const zor_c64*>(val), count, numbers);
}

template <class I>
int32_t look_at_format(sparse_matrix& a) {
  a.used = elements(a);
  const auto look = a.type == 's'   ? look_at_elements<float, I>
                    : a.type == 'd' ? look_at_elements<double, I>
                    : a.type == 'c' ? look_at_elements<zor_c32, I>
                                    : look_at_elements<zor_c64, I>;
  return look(a);
}
template <class I>
int32_t check_format(sparse_matrix& a) {
  if (elements(a) > std::numeric_limits<zor_int>::max() / zor_int(sizeof(zor_c64)))
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "nnz: %lld make more elements than can be counted",
                          (long long)a.nnz);
  if (const int32_t status = bad_arrays<I>(a)) return status;
  return look_at_format<I>(a);
}
template int32_t look_at_format<int32_t>(sparse_matrix&);
template int32_t look_at_format<int64_t>(sparse_matrix&);
template int32_t check_format<int32_t>(sparse_matrix&);
template int32_t check_format<int64_t>(sparse_matrix&);

template <class I>
int32_t make_rows_form(const sparse_matrix& a, zor_sparse* form) {
  const zor_int given = elements(a);
  const zor::scratch<double> numbers(std::max<zor_int>(given, 1));
  if (numbers.data == nullptr) return short_of_memory();
  zor_int entries = given;
  if (a.format == ZOR_SPARSE_COO)
    number_all(given, numbers.data);
  else
    entries = number_nonzeros(a.type, a.given_val, given, numbers.data);
  if (entries > std::numeric_limits<I>::max() - 1)
    return sparse_failure(ZOR_SPARSE_TOO_LARGE, "a: its %lld entries do not fit %d-bit positions",
                          (long long)entries, int(8 * sizeof(I)));
  const zor::scratch<double> sorted(std::max<zor_int>(entries, 1));
  scoped_arrays made;
  if (sorted.data == nullptr || !owned_arrays::allocate(made.val, entries, element_size(a.type)) ||
      !owned_arrays::allocate(made.indx, entries, sizeof(I)) ||
      !owned_arrays::allocate(made.pntr, a.rows + 1, sizeof(I)))
    return short_of_memory();
  I *const ja = static_cast<I*>(made.indx), *const ia = static_cast<I*>(made.pntr);
  ia[0] = I(a.base);
  if (a.rows > 0) convert_numbers<I>(a, numbers.data, sorted.data, ja, ia);
  sort_all_rows<double, I>(a.rows, a.base, ia, ja, sorted.data);
  const zor_int stored = zor_int(ia[a.rows]) - zor_int(ia[0]);
  fetch_elements(a.type, a.given_val, sorted.data, stored, made.val);
  sparse_matrix to{};
  to.take_view(a, ZOR_SPARSE_CSR);
  to.nnz = stored;
  to.take_arrays(made.hand_on(), sizeof(I));
  return make_handle<I>(to, form);
}
template int32_t make_rows_form<int32_t>(const sparse_matrix&, zor_sparse*);
template int32_t make_rows_form<int64_t>(const sparse_matrix&, zor_sparse*);

}  // namespace zor_core
