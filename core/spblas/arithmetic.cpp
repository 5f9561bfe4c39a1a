// SPDX-License-Identifier: MIT
// Sums and products of sparse matrices in two passes: the entries of each row are counted, arrays of just
// that size are made, and the rows are filled in. Threads take ranges of rows; no sum crosses rows.
#include <algorithm>
#include <limits>

#include "core/spblas/csr_copy.h"
#include "core/spblas/kernels.h"
#include "serv/scratch.h"

namespace zor_core {
namespace {

int32_t short_of_memory() { return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the result is short"); }

// op(A) as the kernels take it: row r holds the positions pntr[r] to pntr[r+1] - 1 of val and indx, counted
// from
// 1. The caller's arrays where they serve, with their columns from `base` on, else a copy from 1 on.
template <class T, class I>
struct counted_rows {
  zor_int rows, cols, base = 1;
  const T* val = nullptr;
  const I *indx = nullptr, *pntr = nullptr;
  scoped_arrays copy;

  counted_rows(const sparse_matrix& a, int32_t op, bool any_base)
      : rows(is_transposed(op) ? a.cols : a.rows), cols(is_transposed(op) ? a.rows : a.cols) {
    if (op == ZOR_SPARSE_PLAIN && without_gaps(a)) {
      const csr_arrays<T, I> m(a);
      const zor_int before = zor_int(m.pntrb[0]) - 1;
      if (any_base) base = a.base;
      const I* const columns = base == a.base ? m.indx : columns_from_one(m.indx, a.used);
      if (columns == nullptr) return;
      val = m.val - before, indx = columns - before, pntr = m.pntrb;
    } else if (copy_of_operation<T, I>(a, op, copy)) {
      take_copy();
    }
  }
  bool short_of_memory() const { return pntr == nullptr; }
  zor_int entries_before(zor_int r) const { return zor_int(pntr[r]) - zor_int(pntr[0]); }
  bool sort() {
    for (zor_int r = 0; r < rows; ++r)
      for (zor_int k = zor_int(pntr[r]); k < zor_int(pntr[r + 1]) - 1; ++k)
        if (indx[k] < indx[k - 1]) return sort_copy();
    return true;
  }

  static bool without_gaps(const sparse_matrix& a) {
    const csr_arrays<T, I> m(a);
    return a.used > 0 && static_cast<const void*>(m.pntre) == static_cast<const void*>(m.pntrb + 1);
  }

 private:
  const I* columns_from_one(const I* from_zero, zor_int entries) {
    if (!owned_arrays::allocate(copy.indx, entries, sizeof(I))) return nullptr;
    I* const to = static_cast<I*>(copy.indx);
    for (zor_int k = 0; k < entries; ++k) to[k] = I(from_zero[k] + 1);
    return to;
  }
  void take_copy() {
    const auto own = rows_of<T, I>(copy);
    val = own.val, indx = own.indx, pntr = own.pntr;
  }
  bool sort_copy() {
    if (copy.pntr == nullptr) {
      const zor_int entries = entries_before(rows), first = zor_int(pntr[0]) - 1;
      scoped_arrays sorted;
      if (!allocate_rows<T, I>(sorted, rows, entries)) return false;
      const auto own = rows_of<T, I>(sorted);
      std::copy_n(val + first, entries, own.val);
      std::copy_n(indx + first, entries, own.indx);
      std::transform(pntr, pntr + rows + 1, own.pntr, [&](I p) { return I(p - first); });
      copy.release();
      static_cast<owned_arrays&>(copy) = sorted.hand_on();
      take_copy();
    }
    const auto own = rows_of<T, I>(copy);
    sort_all_rows<T, I>(rows, 1, own.pntr, own.indx, own.val);
    return true;
  }
};

// A result of `rows` rows whose counts are known: row pointers from 1 on, and room for its entries.
template <class T, class I, class Count>
int32_t make_room(scoped_arrays& made, zor_int rows, const Count& count) {
  I* const pntr = static_cast<I*>(made.pntr);
  zor_int entries = 0;
  pntr[0] = 1;
  for (zor_int r = 0; r < rows; ++r) {
    entries += count(r);
    if (entries >= std::numeric_limits<I>::max())
      return sparse_failure(ZOR_SPARSE_TOO_LARGE, "the result has more entries than %d-bit indices can count",
                            int(8 * sizeof(I)));
    pntr[r + 1] = I(entries + 1);
  }
  if (!owned_arrays::allocate(made.val, entries, sizeof(T)) ||
      !owned_arrays::allocate(made.indx, entries, sizeof(I)))
    return short_of_memory();
  return ZOR_SPARSE_OK;
}

// Rows in ranges of about equal work. work(r) is the work of the rows before r.
template <class Body>
void for_rows_of_work(const zor_int* work, zor_int rows, const Body& body) {
  const zor_int all = work[rows] + rows;
  const int32_t threads = all < sparse_thresholds::least_for_threads ? 1 : usable_threads();
  // One range a thread: a product clears an element a column for each.
  const zor_int pieces = std::clamp<zor_int>(rows, 1, threads);
  const auto start = [&](zor_int piece) {
    if (piece == pieces) return rows;
    const zor_int wanted = zor_int(__int128(work[rows]) * piece / pieces);
    return piece == 0 ? 0 : zor_int(std::lower_bound(work, work + rows, wanted) - work);
  };
  for_each_piece(threads, pieces, [&](zor_int piece) {
    const zor_int first = start(piece), last = start(piece + 1);
    if (first < last) body(first, last);
  });
}

// The result, whose columns count from `columns_from`, as a matrix of the general view in the base of A.
template <class I>
int32_t finish(const sparse_matrix& a, zor_int rows, zor_int cols, zor_int columns_from, scoped_arrays& made,
               zor_sparse* c) {
  I *const pntr = static_cast<I*>(made.pntr), *const indx = static_cast<I*>(made.indx);
  sparse_matrix to{};
  to.nnz = rows == 0 ? 0 : zor_int(pntr[rows]) - 1;
  for (zor_int k = 0; columns_from != a.base && k < to.nnz; ++k) indx[k] = I(indx[k] + a.base - columns_from);
  for (zor_int r = 0; a.base == 0 && r <= rows; ++r) --pntr[r];
  to.take_view(a, ZOR_SPARSE_CSR);
  to.rows = rows;
  to.cols = cols;
  to.take_arrays(made.hand_on(), sizeof(I));
  return make_handle<I>(to, c);
}

template <class T, class I>
int32_t multiply(const sparse_matrix& a, int32_t op, const sparse_matrix& b, zor_sparse* c) {
  const counted_rows<T, I> left(a, op, true), right(b, ZOR_SPARSE_PLAIN, false);
  // The kernels take columns of op(A) for rows of B counted from 1.
  const I* const right_pntr = right.pntr + (1 - left.base);
  const zor_int rows = left.rows, cols = right.cols;
  const zor::scratch<zor_int> work(rows + 1);
  scoped_arrays made;
  if (left.short_of_memory() || right.short_of_memory() || work.data == nullptr ||
      !owned_arrays::allocate(made.pntr, rows + 1, sizeof(I)))
    return short_of_memory();
  work.data[0] = 0;
  for (zor_int r = 0; r < rows; ++r) {
    zor_int products = 0;
    for (zor_int k = zor_int(left.pntr[r]) - 1; k < zor_int(left.pntr[r + 1]) - 1; ++k)
      products += zor_int(right_pntr[left.indx[k]]) - zor_int(right_pntr[zor_int(left.indx[k]) - 1]);
    work.data[r + 1] = work.data[r] + products;
  }
  bool failed = false;
  const auto pass = [&](I request) {
    for_rows_of_work(work.data, rows, [&](zor_int first, zor_int last) {
      const I from = I(first + 1), to = I(last), m = I(rows), n = I(cols), nzmax = 0;
      I info = 0;
      product_of<T, I>()(&from, &to, &m, &n, &request, left.val, left.indx, left.pntr, right.val, right.indx,
                         right_pntr, static_cast<T*>(made.val), static_cast<I*>(made.indx),
                         static_cast<I*>(made.pntr), &nzmax, &info);
      if (info != 0) __atomic_store_n(&failed, true, __ATOMIC_RELAXED);
    });
    return !failed;
  };
  if (!pass(1)) return short_of_memory();
  I* const pntr = static_cast<I*>(made.pntr);
  const int32_t status = make_room<T, I>(made, rows, [&](zor_int r) { return zor_int(pntr[r + 1]); });
  if (status != ZOR_SPARSE_OK) return status;
  if (!pass(2)) return short_of_memory();
  return finish<I>(a, rows, cols, right.base, made, c);
}

template <class T, class I>
int32_t add(const sparse_matrix& a, int32_t op, T beta, const sparse_matrix& b, zor_sparse* c) {
  // Columns are only compared, so any base serves that both have.
  const bool any_base = a.base == b.base && op == ZOR_SPARSE_PLAIN && counted_rows<T, I>::without_gaps(a) &&
                        counted_rows<T, I>::without_gaps(b);
  counted_rows<T, I> left(a, ZOR_SPARSE_PLAIN, any_base), right(b, op, any_base);
  const zor_int rows = left.rows;
  scoped_arrays made;
  // Ranges count on their own, each from a first pointer of its own.
  const zor::scratch<I> counts(std::max<zor_int>(rows, 1));
  const zor::scratch<zor_int> work(rows + 1);
  if (left.short_of_memory() || right.short_of_memory() || counts.data == nullptr || work.data == nullptr ||
      !left.sort() || !right.sort() || !owned_arrays::allocate(made.pntr, rows + 1, sizeof(I)))
    return short_of_memory();
  for (zor_int r = 0; r <= rows; ++r) work.data[r] = left.entries_before(r) + right.entries_before(r);
  const auto pass = [&](I request, zor_int first, zor_int last, I* ic) {
    const I from = 1, to = I(last - first), sort = 0, nzmax = 0;
    I info = 0;
    sum_of<T, I>()(&from, &to, &request, &sort, const_cast<T*>(left.val), const_cast<I*>(left.indx),
                   left.pntr + first, &beta, const_cast<T*>(right.val), const_cast<I*>(right.indx),
                   right.pntr + first, static_cast<T*>(made.val), static_cast<I*>(made.indx), ic, &nzmax,
                   &info);
  };
  I* const row_counts = counts.data;
  for_rows_of_work(work.data, rows, [&](zor_int first, zor_int last) {
    // The kernel adds the counts up; one row at a time they never pass the integers.
    const zor::scratch<I> ends(last - first + 1);
    const bool together =
        ends.data != nullptr && work.data[last] - work.data[first] < std::numeric_limits<I>::max();
    if (together) pass(1, first, last, ends.data);
    for (zor_int r = first; r < last; ++r) {
      I own[2];
      if (!together) pass(1, r, r + 1, own);
      row_counts[r] = together ? I(ends.data[r - first + 1] - ends.data[r - first]) : I(own[1] - 1);
    }
  });
  const int32_t status = make_room<T, I>(made, rows, [&](zor_int r) { return zor_int(row_counts[r]); });
  if (status != ZOR_SPARSE_OK) return status;
  for_rows_of_work(work.data, rows, [&](zor_int first, zor_int last) {
    pass(2, first, last, static_cast<I*>(made.pntr) + first);
  });
  return finish<I>(a, rows, left.cols, left.base, made, c);
}

// Two matrices that can be added or multiplied.
int32_t bad_pair(zor_sparse a, zor_sparse b, int32_t op, zor_sparse* c) {
  if (c == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "c is null");
  *c = nullptr;
  if (const int32_t status = bad_operand("a", a)) return status;
  if (!one_of(op, "ntcs")) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "op: %d is no value of it", op);
  if (const int32_t status = bad_operand("b", b)) return status;
  if (a->type != b->type)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b: elements of type %c, those of a are of type %c",
                          b->type, a->type);
  if (a->wide != b->wide)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b: indices of %d bits, those of a have %d",
                          b->wide ? 64 : 32, a->wide ? 64 : 32);
  for (const auto& [name, m] : {std::pair{"a", a}, std::pair{"b", b}})
    if (m->structure != 'g')
      return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "%s: sums and products take the general view", name);
  return ZOR_SPARSE_OK;
}

int32_t bad_shape(const char* what, zor_int found, zor_int wanted) {
  return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b: %s %lld, not %lld", what, (long long)found,
                        (long long)wanted);
}

}  // namespace

}  // namespace zor_core

using namespace zor_core;

#define ZOR_FOR_TYPE(call)          \
  (a->type == 's'   ? call(float)   \
   : a->type == 'd' ? call(double)  \
   : a->type == 'c' ? call(zor_c32) \
                    : call(zor_c64))

extern "C" int32_t zor_sparse_add(zor_sparse* c, zor_sparse a, int32_t op, const void* beta, zor_sparse b) {
  if (const int32_t status = bad_pair(a, b, op, c)) return status;
  if (beta == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "beta is null");
  const zor_int rows = is_transposed(op) ? b->cols : b->rows, cols = is_transposed(op) ? b->rows : b->cols;
  if (rows != a->rows) return bad_shape("rows of op(b):", rows, a->rows);
  if (cols != a->cols) return bad_shape("columns of op(b):", cols, a->cols);
  const scoped_rows_form left(*a), right(*b);
  if (left.status != ZOR_SPARSE_OK) return left.status;
  if (right.status != ZOR_SPARSE_OK) return right.status;
#define ZOR_ADD(T) \
  (a->wide ? add<T, int64_t> : add<T, int32_t>)(*left.data, op, *static_cast<const T*>(beta), *right.data, c)
  return ZOR_FOR_TYPE(ZOR_ADD);
#undef ZOR_ADD
}

extern "C" int32_t zor_sparse_multiply(zor_sparse* c, int32_t op, zor_sparse a, zor_sparse b) {
  if (const int32_t status = bad_pair(a, b, op, c)) return status;
  const zor_int inner = is_transposed(op) ? a->rows : a->cols;
  if (b->rows != inner) return bad_shape("rows:", b->rows, inner);
  const scoped_rows_form left(*a), right(*b);
  if (left.status != ZOR_SPARSE_OK) return left.status;
  if (right.status != ZOR_SPARSE_OK) return right.status;
#define ZOR_MULTIPLY(T) \
  (a->wide ? multiply<T, int64_t> : multiply<T, int32_t>)(*left.data, op, *right.data, c)
  return ZOR_FOR_TYPE(ZOR_MULTIPLY);
#undef ZOR_MULTIPLY
}
