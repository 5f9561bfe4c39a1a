// SPDX-License-Identifier: MIT
// Solves with triangular and diagonal views. The kernels work in place on the right-hand side, which gets
// alpha first; those of a stored diagonal apply it themselves. One right-hand side is solved in order, on the
// calling thread; several are cut for threads.
#include "core/spblas/dense.h"
#include "core/spblas/format_calls.h"
#include "core/spblas/kernels.h"
#include "zor/signatures/sparse.h"

namespace zor_core {
namespace {

template <class T, class I>
int32_t solve(const sparse_matrix& a, int32_t op, T alpha, const T* b, T* x) {
  if (a.rows > 0 && b == nullptr && !is_zero(alpha))
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b is null");
  if (a.rows > 0 && x == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "x is null");
  if (!is_zero(alpha) && b != x)
    if (const int32_t status =
            bad_overlap({"x", x, a.rows, 1, a.rows, sizeof(T)}, {"b", b, a.rows, 1, a.rows, sizeof(T)}))
      return status;
  if (const int32_t status = bad_solve(a)) return status;
  if (is_zero(alpha)) {
    scale(alpha, a.rows, x);
    return ZOR_SPARSE_OK;
  }
  if (has_solve<T>(a, op))
    return solve_in_format<T, I>(a, op, ZOR_SPARSE_COLUMN_MAJOR, 1, alpha, b, a.rows, x, a.rows);
  prepare(a, alpha, a.rows, b, x);
  if (a.rows == 0 || a.identity()) return ZOR_SPARSE_OK;
  const csr_arrays<T, I> m(a);
  const I rows = I(a.rows);
  find_csr_svout_seq<T, I>(name_of<T>(a, op, a.base))(&rows, &alpha, m.val, m.indx, m.pntrb, m.pntre, x);
  return ZOR_SPARSE_OK;
}

template <class T, class I>
int32_t solve_many(const sparse_matrix& a, int32_t op, int32_t layout, zor_int n, T alpha, const T* b,
                   zor_int ldb, T* x, zor_int ldx) {
  const bool row_major = layout == ZOR_SPARSE_ROW_MAJOR;
  if (const int32_t status = bad_columns<I>(layout, n)) return status;
  const bool written = a.rows > 0 && n > 0, read = written && !is_zero(alpha);
  if (read && b == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b is null");
  if (const int32_t status = bad_dense<I>("ldb", layout, a.rows, n, ldb, sizeof(T))) return status;
  if (written && x == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "x is null");
  if (const int32_t status = bad_dense<I>("ldx", layout, a.rows, n, ldx, sizeof(T))) return status;
  if (read && b == x && ldb != ldx)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "ldx: in place it is that of b, %lld, not %lld",
                          (long long)ldb, (long long)ldx);
  if (read && b != x)
    if (const int32_t status = bad_overlap(dense_operand("x", x, layout, a.rows, n, ldx, sizeof(T)),
                                           dense_operand("b", b, layout, a.rows, n, ldb, sizeof(T))))
      return status;
  if (const int32_t status = bad_solve(a)) return status;
  if (!written) return ZOR_SPARSE_OK;
  if (!read) {
    scale_lines(layout, alpha, a.rows, n, x, ldx);
    return ZOR_SPARSE_OK;
  }
  if (has_solve<T>(a, op)) return solve_in_format<T, I>(a, op, layout, n, alpha, b, ldb, x, ldx);
  const indices_in_base<I> indx(a.indx, a.used, a.base, row_major ? 0 : 1);
  if (indx.short_of_memory)
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the indices in the layout's base is short");
  const csr_arrays<T, I> m(a);
  const auto kernel = find_csr_smout_par<T, I>(name_of<T>(a, op, row_major ? 0 : 1));
  const I rows = I(a.rows), all = I(n), ldx_i = I(ldx);
  for_right_hand_sides(threads_for(a, n), layout, n, [&](zor_int first, zor_int last, zor_int) {
    const zor_int b_shift = row_major ? first : first * ldb, x_shift = row_major ? first : first * ldx;
    const I from = I(first + 1), to = I(last);
    for_lines(layout, a.rows, last - first, [&](zor_int line, zor_int length) {
      prepare(a, alpha, length, b + b_shift + line * ldb, x + x_shift + line * ldx);
    });
    if (!a.identity()) kernel(&from, &to, &rows, &all, &alpha, m.val, indx.data, m.pntrb, m.pntre, x, &ldx_i);
  });
  return ZOR_SPARSE_OK;
}

// The matrix whose kernels a solve with op(A) runs on: A, or its form in compressed rows.
template <class T>
int32_t matrix_to_solve(zor_sparse a, int32_t op, const sparse_matrix** m) {
  if (const int32_t status = bad_matrix(a, type_letter<T>, op)) return status;
  *m = a;
  const bool solvable = a->structure == 't' || a->structure == 'd';
  return !solvable || has_solve<T>(*a, op) ? int32_t(ZOR_SPARSE_OK) : kept_rows_form(*a, m);
}

}  // namespace
}  // namespace zor_core

#define ROW_SPARSE_SV(name, T)                                                     \
  extern "C" SIG_SPARSE_SV(name, T) {                                              \
    using namespace zor_core;                                                      \
    const sparse_matrix* m = nullptr;                                              \
    if (const int32_t status = matrix_to_solve<T>(a, op, &m)) return status;       \
    return (a->wide ? solve<T, int64_t> : solve<T, int32_t>)(*m, op, alpha, b, x); \
  }
#define ROW_SPARSE_SM(name, T)                                                                              \
  extern "C" SIG_SPARSE_SM(name, T) {                                                                       \
    using namespace zor_core;                                                                               \
    const sparse_matrix* m = nullptr;                                                                       \
    if (const int32_t status = matrix_to_solve<T>(a, op, &m)) return status;                                \
    return (a->wide ? solve_many<T, int64_t> : solve_many<T, int32_t>)(*m, op, layout, n, alpha, b, ldb, x, \
                                                                       ldx);                                \
  }
#include "zor/tables/core_spblas.inc"
