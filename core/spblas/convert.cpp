// SPDX-License-Identifier: MIT
// Conversion between all formats: a sorted CSR copy in which entries of one place are added, and from it the
// wanted format.
#include <algorithm>
#include <limits>

#include "core/spblas/csr_copy.h"
#include "core/spblas/kernels.h"
#include "core/spblas/numbers.h"
#include "serv/scratch.h"

namespace zor_core {
namespace {

int32_t short_of_memory() {
  return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the converted matrix is short");
}

// Whether the format would store far more elements than the matrix has entries and rows.
bool fills_in(const sparse_matrix& a, zor_int elements, zor_int entries) {
  return elements > saturating_product(std::max({entries, a.rows, zor_int(1)}), sparse_thresholds::most_fill);
}
int32_t too_full(const char* format, zor_int elements, zor_int entries) {
  return sparse_failure(ZOR_SPARSE_TOO_LARGE, "format: as %s the matrix has %lld elements for %lld entries",
                        format, (long long)elements, (long long)entries);
}

template <class T, class I>
struct conversion {
  const sparse_matrix& a;
  row_arrays<T, I> csr;
  zor_int entries;
  sparse_matrix& to;
  scoped_arrays& made;

  // The kernels move doubles: the elements themselves, straight to the result, or the numbers of others.
  static constexpr bool moves_elements = std::is_same_v<T, double>;
  double* source(const zor::scratch<double>& numbers) const {
    if constexpr (moves_elements) {
      return csr.val;
    } else {
      if (numbers.data != nullptr) number_all(entries, numbers.data);
      return numbers.data;
    }
  }
  double* target(const zor::scratch<double>& moved, zor_int elements) {
    if constexpr (!moves_elements) return moved.data;
    owned_arrays::allocate(made.val, elements, sizeof(T));
    return static_cast<double*>(made.val);
  }
  // Elements of the result from the numbers that the kernels have placed.
  bool fetch_values(const double* numbers, zor_int elements) {
    if constexpr (moves_elements) return true;
    if (!owned_arrays::allocate(made.val, elements, sizeof(T))) return false;
    fetch_elements(a.type, csr.val, numbers, elements, made.val);
    return true;
  }

  int32_t to_csr(scoped_arrays& copy) {
    static_cast<owned_arrays&>(made) = copy.hand_on();
    to.nnz = entries;
    return ZOR_SPARSE_OK;
  }

  int32_t to_coo() {
    const zor::scratch<double> numbers(moves_elements ? 0 : entries), moved(moves_elements ? 0 : entries);
    double *const from = source(numbers), *const placed = target(moved, entries);
    if (entries > 0 && (from == nullptr || placed == nullptr)) return short_of_memory();
    if (!owned_arrays::allocate(made.indx, entries, sizeof(I)) ||
        !owned_arrays::allocate(made.rowind, entries, sizeof(I)))
      return short_of_memory();
    const I job[6] = {0, I(a.base), I(a.base), 0, I(entries), 3}, n = I(a.rows);
    I nnz = 0, info = 0;
    coo_conversion<double, I>(job, &n, from, csr.indx, csr.pntr, &nnz, placed, static_cast<I*>(made.rowind),
                              static_cast<I*>(made.indx), &info);
    to.nnz = nnz;
    return fetch_values(placed, entries) ? ZOR_SPARSE_OK : short_of_memory();
  }

  // Marks the distances that occur, and counts them.
  zor_int mark_distances(char* met, zor_int all) const {
    std::memset(met, 0, size_t(all));
    for (zor_int r = 0; r < a.rows; ++r)
      for (zor_int k = csr.pntr[r] - a.base; k < csr.pntr[r + 1] - a.base; ++k)
        met[zor_int(csr.indx[k]) - a.base - r + a.rows - 1] = 1;
    return std::count(met, met + all, 1);
  }
  int32_t to_dia() {
    const zor_int all = std::max<zor_int>(2 * a.rows - 1, 1);
    const zor::scratch<char> met(all);
    if (met.data == nullptr) return short_of_memory();
    const zor_int count = mark_distances(met.data, all), elements = saturating_product(count, a.rows);
    if (fills_in(a, elements, entries)) return too_full("DIA", elements, entries);
    const zor::scratch<double> numbers(moves_elements ? 0 : entries), moved(moves_elements ? 0 : elements);
    double *const from = source(numbers), *const placed = target(moved, elements);
    if ((entries > 0 && from == nullptr) || (elements > 0 && placed == nullptr) ||
        !owned_arrays::allocate(made.indx, count, sizeof(I)))
      return short_of_memory();
    I* list = static_cast<I*>(made.indx);
    for (zor_int d = 0; d < all; ++d)
      if (met.data[d] != 0) *list++ = I(d - (a.rows - 1));
    const I job[6] = {0, I(a.base), I(a.base), 0, 0, 0}, n = I(a.rows), lval = n;
    I used = I(count);
    dia_conversion<double, I>(job, &n, from, csr.indx, csr.pntr, placed, &lval, static_cast<I*>(made.indx),
                              &used, nullptr, nullptr, nullptr);
    to.nnz = count;
    to.lval = a.rows;
    return fetch_values(placed, elements) ? ZOR_SPARSE_OK : short_of_memory();
  }

  int32_t to_sky() {
    if (!one_of(a.structure, "tsha"))
      return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT,
                            "format: skyline stores a triangle, and so must the view");
    if (!owned_arrays::allocate(made.pntr, a.rows + 1, sizeof(I))) return short_of_memory();
    I* const pntr = static_cast<I*>(made.pntr);
    const I n = I(a.rows), limit = std::numeric_limits<I>::max();
    I job[6] = {0, I(a.base), 1, I(a.triangle == 'u'), limit, 1}, info = 0;
    zor_int elements = 0;
    if (!profile_elements(elements)) return short_of_memory();
    if (fills_in(a, elements, entries)) return too_full("skyline", elements, entries);
    if (elements >= limit) return too_full("skyline of 32-bit positions", elements, entries);
    const zor::scratch<double> numbers(moves_elements ? 0 : entries), moved(moves_elements ? 0 : elements);
    double *const from = source(numbers), *const placed = target(moved, elements);
    if ((entries > 0 && from == nullptr) || (elements > 0 && placed == nullptr)) return short_of_memory();
    job[5] = 0;
    sky_conversion<double, I>(job, &n, from, csr.indx, csr.pntr, placed, pntr, &info);
    to.nnz = elements;
    return fetch_values(placed, elements) ? ZOR_SPARSE_OK : short_of_memory();
  }
  // The lengths of all profiles together, in 64 bits whatever the integers of the matrix.
  bool profile_elements(zor_int& elements) const {
    const zor::scratch<zor_int> longest(a.rows);
    if (longest.data == nullptr && a.rows > 0) return false;
    for (zor_int r = 0; r < a.rows; ++r) longest.data[r] = 0;
    for (zor_int r = 0; r < a.rows; ++r)
      for (zor_int k = csr.pntr[r] - a.base; k < csr.pntr[r + 1] - a.base; ++k) {
        const zor_int c = zor_int(csr.indx[k]) - a.base, profile = a.triangle == 'u' ? c : r;
        const zor_int before = a.triangle == 'u' ? c - r : r - c;
        longest.data[profile] = std::max(longest.data[profile], before);
      }
    elements = a.rows;
    for (zor_int r = 0; r < a.rows; ++r) elements += longest.data[r];
    return true;
  }

  // The entries of the rows and the block columns both ascend.
  void fill_block_row(zor_int lb, zor_int R, const I* pntr, const I* indx) {
    T* const val = static_cast<T*>(made.val);
    const zor_int begin = zor_int(pntr[R]) - a.base, end = zor_int(pntr[R + 1]) - a.base;
    std::memset(static_cast<void*>(val + begin * lb * lb), 0, size_t((end - begin) * lb * lb) * sizeof(T));
    for (zor_int r = R * lb; r < std::min(a.rows, (R + 1) * lb); ++r) {
      zor_int p = begin;
      for (zor_int k = zor_int(csr.pntr[r]) - a.base; k < zor_int(csr.pntr[r + 1]) - a.base; ++k) {
        const auto inside = [&] { return zor_int(csr.indx[k]) - a.base - (zor_int(indx[p]) - a.base) * lb; };
        while (inside() >= lb) ++p;
        val[(p * lb + inside()) * lb + r - R * lb] = csr.val[k];
      }
    }
  }
  int32_t to_bsr(zor_int lb) {
    const zor_int lines = a.rows == 0 ? 0 : (a.rows - 1) / lb + 1;
    if (!owned_arrays::allocate(made.pntr, lines + 1, sizeof(I)) ||
        !owned_arrays::allocate(made.indx, entries, sizeof(I)))
      return short_of_memory();
    I *const pntr = static_cast<I*>(made.pntr), *const indx = static_cast<I*>(made.indx);
    pntr[0] = I(a.base);
    const I n = I(a.rows), order = I(lb), stored = I(lb * lb);
    I job[6] = {0, I(a.base), I(a.base), 0, I(entries), 2}, info = 0;
    bsr_conversion<double, I>(job, &n, &order, &stored, nullptr, csr.indx, csr.pntr, nullptr, indx, pntr,
                              &info);
    if (info != 0) return short_of_memory();
    const zor_int blocks = zor_int(pntr[lines]) - zor_int(pntr[0]),
                  elements = saturating_product(blocks, lb, lb);
    if (fills_in(a, elements, entries)) return too_full("BSR", elements, entries);
    // The kernel lists blocks as the rows meet them; solves and sweeps want them sorted.
    for (zor_int R = 0; R < lines; ++R)
      std::sort(indx + (zor_int(pntr[R]) - a.base), indx + (zor_int(pntr[R + 1]) - a.base));
    if (!owned_arrays::allocate(made.val, elements, sizeof(T))) return short_of_memory();
    for (zor_int R = 0; R < lines; ++R) fill_block_row(lb, R, pntr, indx);
    to.nnz = blocks;
    to.lb = lb;
    return ZOR_SPARSE_OK;
  }
};

// The rows sorted, with the entries of one place added, and their positions counted from the base.
template <class T, class I>
bool copy_sorted(const sparse_matrix& a, scoped_arrays& copy) {
  if (!allocate_rows<T, I>(copy, a.rows, entries_of<T, I>(a))) return false;
  const auto csr = rows_of<T, I>(copy);
  copy_rows(a, a.base, csr);
  sort_all_rows<T, I>(a.rows, a.base, csr.pntr, csr.indx, csr.val);
  add_repeats(a.rows, a.base, csr);
  return true;
}

// The caller's arrays, which nothing writes to, where they are like that.
template <class T, class I>
bool take_as_given(const sparse_matrix& a, row_arrays<T, I>& csr) {
  const csr_arrays<T, I> m(a);
  if (a.rows == 0 || !a.ascending || m.pntre != m.pntrb + 1 || zor_int(m.pntrb[0]) != a.base) return false;
  csr = {const_cast<T*>(m.val), const_cast<I*>(m.indx), const_cast<I*>(m.pntrb)};
  return true;
}

template <class T, class I>
int32_t convert(const sparse_matrix& a, int32_t format, zor_int lb, zor_sparse* handle) {
  scoped_arrays copy, made;
  row_arrays<T, I> csr;
  if (format == ZOR_SPARSE_CSR || !take_as_given(a, csr)) {
    if (!copy_sorted<T, I>(a, copy)) return short_of_memory();
    csr = rows_of<T, I>(copy);
  }
  sparse_matrix to{};
  to.take_view(a, format);
  conversion<T, I> c{a, csr, zor_int(csr.pntr[a.rows]) - a.base, to, made};
  const int32_t status = format == ZOR_SPARSE_CSR   ? c.to_csr(copy)
                         : format == ZOR_SPARSE_COO ? c.to_coo()
                         : format == ZOR_SPARSE_DIA ? c.to_dia()
                         : format == ZOR_SPARSE_BSR ? c.to_bsr(lb)
                                                    : c.to_sky();
  if (status != ZOR_SPARSE_OK) return status;
  to.take_arrays(made.hand_on(), sizeof(I));
  return format == ZOR_SPARSE_CSR ? make_handle<I>(to, handle) : make_result_handle<I>(to, handle);
}

}  // namespace
}  // namespace zor_core

extern "C" int32_t zor_sparse_convert(zor_sparse* b, zor_sparse a, int32_t format, zor_int lb) {
  using namespace zor_core;
  if (b == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b is null");
  *b = nullptr;
  if (const int32_t status = bad_operand("a", a)) return status;
  if (format < ZOR_SPARSE_CSR || format > ZOR_SPARSE_SKY)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "format: %d is no value of it", format);
  if (a->identity())
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "a: a unit diagonal alone has no entries to convert");
  if (format != ZOR_SPARSE_CSR && format != ZOR_SPARSE_COO && a->rows != a->cols)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "format: it takes a square matrix, not %lld by %lld",
                          (long long)a->rows, (long long)a->cols);
  if (format == ZOR_SPARSE_BSR && (lb < 1 || lb > sparse_thresholds::most_block))
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "lb: %lld is not in 1 to %lld", (long long)lb,
                          (long long)sparse_thresholds::most_block);
  const scoped_rows_form rows(*a);
  if (rows.status != ZOR_SPARSE_OK) return rows.status;
#define ZOR_CONVERT(T) (a->wide ? convert<T, int64_t> : convert<T, int32_t>)(*rows.data, format, lb, b)
  return a->type == 's'   ? ZOR_CONVERT(float)
         : a->type == 'd' ? ZOR_CONVERT(double)
         : a->type == 'c' ? ZOR_CONVERT(zor_c32)
                          : ZOR_CONVERT(zor_c64);
#undef ZOR_CONVERT
}
