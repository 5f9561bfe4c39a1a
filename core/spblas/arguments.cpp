// SPDX-License-Identifier: MIT
// Checks of handles and operands.
#include "core/spblas/arguments.h"

#include <atomic>

#include "core/blas/arguments.h"

namespace zor_core {

int32_t bad_handle(zor_sparse a) {
  if (a != nullptr && a->magic == sparse_magic) return ZOR_SPARSE_OK;
  return sparse_failure(ZOR_SPARSE_BAD_HANDLE, "a: no matrix, or one already freed");
}

int32_t bad_operand(const char* name, zor_sparse a) {
  if (a == nullptr || a->magic != sparse_magic)
    return sparse_failure(ZOR_SPARSE_BAD_HANDLE, "%s: no matrix, or one already freed", name);
  if (!a->checked) return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "%s: its last check failed", name);
  return ZOR_SPARSE_OK;
}

int32_t bad_matrix(zor_sparse a, char type, int32_t op) {
  if (const int32_t status = bad_handle(a)) return status;
  if (a->type != type)
    return sparse_failure(ZOR_SPARSE_BAD_HANDLE, "a: elements of type %c, the call takes type %c", a->type,
                          type);
  if (!a->checked) return sparse_failure(ZOR_SPARSE_BAD_MATRIX, "a: its last check failed");
  if (!one_of(op, "ntcs"))
    return op > ' ' && op < 127
               ? sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "op: '%c' is none of n, t, c and s", op)
               : sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "op: %d is no letter of n, t, c and s", op);
  return ZOR_SPARSE_OK;
}

int32_t bad_solve(const sparse_matrix& a) {
  if (a.structure != 't' && a.structure != 'd')
    return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE,
                          "a: only triangular and diagonal views can be solved with");
  return bad_rows_to_solve(a);
}

int32_t bad_rows_to_solve(const sparse_matrix& a) {
  const auto fault = solve_fault(a);
  const long long row =
      std::atomic_ref(const_cast<zor_int&>(a.unsolvable_row)).load(std::memory_order_relaxed) + a.base;
  switch (fault) {
    case zor_sparse_matrix::unsorted:
      return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "a: the columns of row %lld do not ascend", row);
    case zor_sparse_matrix::no_pivot:
      return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "a: row %lld has no entry on the diagonal", row);
    case zor_sparse_matrix::two_pivots:
      return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "a: row %lld has more than one entry on the diagonal",
                            row);
    case zor_sparse_matrix::zero_pivot:
      return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "a: the entry of row %lld on the diagonal is 0", row);
    default:
      return ZOR_SPARSE_OK;
  }
}

int32_t bad_overlap(const dense_run& written, const dense_run& read) {
  const auto bytes = [](const dense_run& d, zor_int elements) { return elements * zor_int(d.element); };
  const auto reach = [&](const dense_run& d) { return bytes(d, (d.lines - 1) * d.ld + d.run); };
  if (written.run < 1 || written.lines < 1 || read.run < 1 || read.lines < 1) return ZOR_SPARSE_OK;
  const intptr_t w = reinterpret_cast<intptr_t>(written.data), r = reinterpret_cast<intptr_t>(read.data);
  if (w + reach(written) <= r || r + reach(read) <= w) return ZOR_SPARSE_OK;
  // Two blocks of columns or rows of one array lie apart where the runs of one stand in the gaps of the
  // other.
  if (written.ld == read.ld && (written.lines > 1 || read.lines > 1)) {
    const intptr_t step = bytes(read, read.ld), shift = ((w - r) % step + step) % step;
    if (shift >= bytes(read, read.run) && shift + bytes(written, written.run) <= step) return ZOR_SPARSE_OK;
  }
  return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "%s: overlaps %s", written.name, read.name);
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
