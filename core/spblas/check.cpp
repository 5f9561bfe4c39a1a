// SPDX-License-Identifier: MIT
// Descriptions of sparse matrices: what is wrong with them, and what the calls want to know of them.
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <new>

#include "core/blas/arguments.h"
#include "core/spblas/matrix.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

constexpr uint64_t sparse_magic = 0x7a6f725f73706172u;

thread_local char failure_text[256] = "no failure";

bool one_of(int32_t letter, const char* letters) {
  for (; *letters != '\0'; ++letters)
    if (letter == *letters) return true;
  return false;
}

int32_t bad_field(const char* name, int32_t value) {
  return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "%s: %d is no value of it", name, value);
}

// Fills in the options; '_' stands where a view has no triangle or no diagonal.
template <class Description>
int32_t take_options(sparse_matrix& a, const Description& d) {
  static constexpr const char* formats[] = {"CSR", "COO", "DIA", "BSR", "skyline"};
  if (d.format < ZOR_SPARSE_CSR || d.format > ZOR_SPARSE_SKY) return bad_field("format", d.format);
  if (d.format != ZOR_SPARSE_CSR)
    return sparse_failure(ZOR_SPARSE_NOT_SUPPORTED, "format: %s is not supported yet", formats[d.format]);
  if (!one_of(d.type, "sdcz")) return bad_field("type", d.type);
  if (d.base != 0 && d.base != 1) return bad_field("base", d.base);
  if (!one_of(d.structure, "gtshad")) return bad_field("structure", d.structure);
  if (d.structure == ZOR_SPARSE_HERMITIAN && !one_of(d.type, "cz"))
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "structure: a Hermitian matrix has complex elements");
  const bool sides = one_of(d.structure, "tsha"), diagonals = one_of(d.structure, "tshd");
  if (sides && d.triangle != 0 && !one_of(d.triangle, "lu")) return bad_field("triangle", d.triangle);
  if (diagonals && d.diagonal != 0 && !one_of(d.diagonal, "nu")) return bad_field("diagonal", d.diagonal);
  a.type = char(d.type);
  a.base = d.base;
  a.structure = char(d.structure);
  a.triangle = !sides ? '_' : d.triangle == 0 ? 'l' : char(d.triangle);
  a.diagonal = !diagonals ? '_' : d.diagonal == 0 ? 'n' : char(d.diagonal);
  return ZOR_SPARSE_OK;
}

template <class Description>
int32_t take_sizes(sparse_matrix& a, const Description& d) {
  constexpr zor_int most = INT64_MAX / zor_int(sizeof(zor_c64));
  const struct {
    const char* name;
    zor_int value;
  } sizes[] = {{"rows", d.rows}, {"cols", d.cols}, {"nnz", d.nnz}};
  for (const auto& size : sizes)
    if (size.value < 0 || size.value > most)
      return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "%s: %lld is not in 0 to %lld", size.name,
                            (long long)size.value, (long long)most);
  if (a.structure != 'g' && d.rows != d.cols)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "cols: this view is square, not %lld by %lld",
                          (long long)d.rows, (long long)d.cols);
  a.rows = d.rows;
  a.cols = d.cols;
  a.nnz = d.nnz;
  if (a.identity()) return ZOR_SPARSE_OK;
  const auto null = [](const char* name) {
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "%s is null", name);
  };
  if (d.nnz > 0 && d.val == nullptr) return null("val");
  if (d.nnz > 0 && d.indx == nullptr) return null("indx");
  if (d.rows > 0 && d.pntrb == nullptr) return null("pntrb");
  a.val = d.val;
  a.indx = d.indx;
  a.given_pntrb = d.pntrb;
  a.given_pntre = d.pntre != nullptr || d.rows == 0 ? d.pntre : d.pntrb + 1;
  return ZOR_SPARSE_OK;
}

// Row pointers: ascending, within nnz. previous is where the row before ended.
template <class I>
int32_t bad_row(const sparse_matrix& a, const I* pntrb, const I* pntre, zor_int r, zor_int previous) {
  const long long row = r + a.base, begin = pntrb[r], end = pntre[r];
  if (r == 0 && begin < 0)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "pntrb: row %lld begins at %lld, below 0", row, begin);
  zor_int from, to;
  if (__builtin_sub_overflow(zor_int(pntrb[r]), zor_int(pntrb[0]), &from) || from < previous)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "pntrb: row %lld begins at %lld, inside the rows before it",
                          row, begin);
  if (__builtin_sub_overflow(zor_int(pntre[r]), zor_int(pntrb[0]), &to) || to < from)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "pntre: row %lld ends at %lld, before its begin %lld", row,
                          end, begin);
  if (to > a.nnz)
    return sparse_failure(ZOR_SPARSE_BAD_MATRIX,
                          "pntre: row %lld ends at %lld, behind the last of %lld entries", row, end,
                          (long long)a.nnz);
  return ZOR_SPARSE_OK;
}

// The first row of a lower, upper or diagonal view that a solve cannot take.
void note(sparse_matrix& a, zor_sparse_matrix::fault what, zor_int row) {
  if (a.unsolvable != zor_sparse_matrix::none) return;
  a.unsolvable = what;
  a.unsolvable_row = row;
}

template <class T, class I>
int32_t look_at_rows(sparse_matrix& a) {
  const csr_arrays<T, I> m(a);
  using fault = zor_sparse_matrix;
  const bool pivots = a.diagonal == 'n';
  zor_int previous = 0;
  for (zor_int r = 0; r < a.rows; ++r) {
    if (const int32_t status = bad_row(a, m.pntrb, m.pntre, r, previous)) return status;
    const zor_int begin = zor_int(m.pntrb[r]) - zor_int(m.pntrb[0]),
                  end = zor_int(m.pntre[r]) - zor_int(m.pntrb[0]);
    previous = end;
    bool sorted = true;
    zor_int pivot = -1;
    uint64_t last = 0;
    for (zor_int k = begin; k < end; ++k) {
      const uint64_t column = uint64_t(m.indx[k]) - uint64_t(a.base);
      if (column >= uint64_t(a.cols))
        return sparse_failure(ZOR_SPARSE_BAD_MATRIX,
                              "indx: entry %lld of row %lld has column %lld, not %d to %lld",
                              (long long)(k - begin + a.base), (long long)(r + a.base), (long long)m.indx[k],
                              a.base, (long long)(a.cols - 1 + a.base));
      if (k > begin && column <= last) sorted = false;
      last = column;
      if (column == uint64_t(r)) pivot = k;
    }
    if (!sorted)
      note(a, fault::unsorted, r);
    else if (pivots && pivot < 0)
      note(a, fault::no_pivot, r);
    else if (pivots && is_zero(m.val[pivot]))
      note(a, fault::zero_pivot, r);
  }
  a.used = previous;
  return ZOR_SPARSE_OK;
}

// Outputs that the parts of a scattering product write: of each part the lowest and highest. False as soon as
// two parts of equal parity meet. Products with a mirrored triangle scatter its entries alone, others all.
template <class I>
bool only_neighbours_meet(const sparse_matrix& a) {
  const csr_arrays<char, I> m(a);
  const char triangle = a.mirrored() ? a.triangle : '_';
  zor_int reached[2] = {-1, -1};  // by earlier parts of either parity
  for (zor_int p = 0; p < a.parts; ++p) {
    zor_int low = a.structure == 'g' ? a.cols : a.first[p],
            high = a.structure == 'g' ? -1 : a.first[p + 1] - 1;
    for (zor_int r = a.first[p]; r < a.first[p + 1]; ++r)
      for (zor_int k = m.pntrb[r] - m.pntrb[0]; k < m.pntre[r] - m.pntrb[0]; ++k) {
        const zor_int column = zor_int(m.indx[k]) - a.base;
        if (triangle == 'l' ? column > r : triangle == 'u' ? column < r : false) continue;
        low = std::min(low, column);
        high = std::max(high, column);
      }
    if (high < low) continue;
    if (low <= reached[p % 2]) return false;
    reached[p % 2] = high;
  }
  return true;
}

// Parts depend on the matrix alone, since they show in the order of sums. Parts that meet their neighbours
// only cost nothing; others need an output each, which must stay below the cost of reading the matrix.
constexpr zor_int entries_of_part = 1 << 13;
constexpr zor_int least_by_turns = 4;  // fewer leave no two for one turn
constexpr zor_int most_outputs = 8;

template <class I>
void cut_into_parts(sparse_matrix& a) {
  const csr_arrays<char, I> m(a);
  const auto cut = [&](zor_int parts) {
    a.parts = parts;
    for (zor_int p = 0; p <= parts; ++p) a.first[p] = cut_rows(m.pntrb, m.pntre, a.rows, parts, p);
  };
  a.neighbours = true;
  cut(1);
  if (a.rows == 0 || a.structure == 'd') return;
  for (zor_int r = 0; a.structure == 't' && r < a.rows; ++r)
    if (m.pntre[r] - m.pntrb[r] > sparse_matrix::most_shifted) return;
  const zor_int most = std::clamp<zor_int>(a.used / entries_of_part, 1, zor_sparse_matrix::most_parts);
  for (zor_int parts = most; parts >= least_by_turns; parts /= 2) {
    cut(parts);
    if (only_neighbours_meet<I>(a)) return;
  }
  cut(std::clamp<zor_int>(a.used / (2 * std::max(a.rows, a.cols)), 1, std::min(most, most_outputs)));
  a.neighbours = a.parts == 1;
  if (a.neighbours || !a.mirrored()) return;
  // The outputs of a mirrored triangle are packed, which takes parts of as many rows.
  a.part_rows = (a.rows + a.parts - 1) / a.parts;
  a.parts = (a.rows + a.part_rows - 1) / a.part_rows;
  for (zor_int p = 0; p <= a.parts; ++p) a.first[p] = std::min(p * a.part_rows, a.rows);
}

// A lower solve of many right-hand sides that finds no workspace takes 1-based row pointers as positions, so
// those of a lower triangle are handed over from 0.
template <class I>
int32_t own_pointers_from_zero(sparse_matrix& a) {
  const csr_arrays<char, I> m(a);
  if (a.rows == 0 || a.structure != 't' || a.triangle != 'l' || m.pntrb[0] == 0) return ZOR_SPARSE_OK;
  if (a.own_pointers == nullptr) a.own_pointers = zor_serv_zor_malloc(2 * uint64_t(a.rows) * sizeof(I), 64);
  if (a.own_pointers == nullptr)
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the row pointers is short");
  I* const own = static_cast<I*>(a.own_pointers);
  for (zor_int r = 0; r < a.rows; ++r) {
    own[r] = m.pntrb[r] - m.pntrb[0];
    own[a.rows + r] = m.pntre[r] - m.pntrb[0];
  }
  a.pntrb = own;
  a.pntre = own + a.rows;
  return ZOR_SPARSE_OK;
}

template <class I>
int32_t look(sparse_matrix& a) {
  a.checked = false;
  a.unsolvable = zor_sparse_matrix::none;
  a.used = 0;
  a.parts = 1;
  a.first[1] = a.rows;
  a.neighbours = true;
  if (!a.identity()) {
    a.pntrb = a.given_pntrb;
    a.pntre = a.given_pntre;
    const auto rows = a.type == 's'   ? look_at_rows<float, I>
                      : a.type == 'd' ? look_at_rows<double, I>
                      : a.type == 'c' ? look_at_rows<zor_c32, I>
                                      : look_at_rows<zor_c64, I>;
    if (const int32_t status = rows(a)) return status;
    cut_into_parts<I>(a);
    if (const int32_t status = own_pointers_from_zero<I>(a)) return status;
  }
  a.checked = true;
  return ZOR_SPARSE_OK;
}

bool alive(zor_sparse a) { return a != nullptr && a->magic == sparse_magic; }

int32_t bad_handle() { return sparse_failure(ZOR_SPARSE_BAD_HANDLE, "a: no matrix, or one already freed"); }

template <class I, class Description>
int32_t create(zor_sparse* handle, const Description* d) {
  if (handle == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "a is null");
  *handle = nullptr;
  if (d == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "description is null");
  sparse_matrix a{};
  a.magic = sparse_magic;
  a.wide = sizeof(I) == 8;
  if (const int32_t status = take_options(a, *d)) return status;
  if (const int32_t status = take_sizes(a, *d)) return status;
  void* const place = zor_serv_zor_malloc(sizeof a, 64);
  if (place == nullptr) return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the record is short");
  const int32_t status = look<I>(a);
  if (status == ZOR_SPARSE_OK)
    *handle = new (place) sparse_matrix(a);
  else
    zor_serv_zor_free(place);
  return status;
}

}  // namespace

int32_t sparse_failure(int32_t status, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(failure_text, sizeof failure_text, format, arguments);
  va_end(arguments);
  return status;
}

int32_t bad_matrix(zor_sparse a, char type, int32_t op) {
  if (!alive(a)) return bad_handle();
  if (a->type != type)
    return sparse_failure(ZOR_SPARSE_BAD_HANDLE, "a: elements of type %c, the call takes type %c", a->type,
                          type);
  if (!a->checked) return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "a: its last check failed");
  if (!one_of(op, "ntcs")) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "op: %d is no value of it", op);
  return ZOR_SPARSE_OK;
}

int32_t bad_solve(const sparse_matrix& a) {
  const long long row = a.unsolvable_row + a.base;
  if (a.structure != 't' && a.structure != 'd')
    return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE,
                          "a: only triangular and diagonal views can be solved with");
  switch (a.unsolvable) {
    case zor_sparse_matrix::unsorted:
      return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "a: the columns of row %lld do not ascend", row);
    case zor_sparse_matrix::no_pivot:
      return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "a: row %lld has no entry on the diagonal", row);
    case zor_sparse_matrix::zero_pivot:
      return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "a: the entry of row %lld on the diagonal is 0", row);
    default:
      return ZOR_SPARSE_OK;
  }
}

template <class I>
int32_t bad_dense(const char* name, int32_t layout, zor_int rows, zor_int n, zor_int ld, size_t element) {
  const zor_int run = layout == ZOR_SPARSE_ROW_MAJOR ? n : rows,
                lines = layout == ZOR_SPARSE_ROW_MAJOR ? rows : n;
  if (ld < std::max<zor_int>(run, 1) || ld > std::numeric_limits<I>::max() ||
      saturating_product(ld, lines, zor_int(element)) == INT64_MAX)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "%s: %lld does not fit runs of %lld elements", name,
                          (long long)ld, (long long)run);
  return ZOR_SPARSE_OK;
}
template int32_t bad_dense<int32_t>(const char*, int32_t, zor_int, zor_int, zor_int, size_t);
template int32_t bad_dense<int64_t>(const char*, int32_t, zor_int, zor_int, zor_int, size_t);

}  // namespace zor_core

using namespace zor_core;

extern "C" {

int32_t zor_sparse_create(zor_sparse* a, const zor_sparse_desc* description) {
  return create<int64_t>(a, description);
}

int32_t zor_sparse_create_lp64(zor_sparse* a, const zor_sparse_desc_lp64* description) {
  return create<int32_t>(a, description);
}

int32_t zor_sparse_check(zor_sparse a) {
  if (!alive(a)) return bad_handle();
  return a->wide ? look<int64_t>(*a) : look<int32_t>(*a);
}

int32_t zor_sparse_free(zor_sparse* a) {
  if (a == nullptr || !alive(*a)) return bad_handle();
  (*a)->magic = 0;
  zor_serv_zor_free((*a)->own_pointers);
  zor_serv_zor_free(*a);
  *a = nullptr;
  return ZOR_SPARSE_OK;
}

const char* zor_sparse_error_text(void) { return failure_text; }

}  // extern "C"
