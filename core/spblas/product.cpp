// SPDX-License-Identifier: MIT
// Products with sparse matrices. Where each row or right-hand side is a sum of its own, threads may share the
// rows in any way. Other products scatter: they add to outputs of other rows. They run in parts that depend
// on the matrix alone. Alternating parts add to y itself, first the even ones and then the odd ones. Parts
// that do not alternate have an output each, and the outputs are merged in a fixed order; those of a mirrored
// view are no longer than the triangle makes them.
#include "core/spblas/dense.h"
#include "core/spblas/format_calls.h"
#include "core/spblas/kernels.h"
#include "zor/signatures/sparse.h"

namespace zor_core {
namespace {

template <class T, class I>
struct vector_product {
  const sparse_matrix& a;
  csr_arrays<T, I> m;
  kernel_name name;
  T alpha;
  const T* x;
  decltype(find_csr_mvout_par<T, I>(name)) range = find_csr_mvout_par<T, I>(name);
  decltype(find_csr_mvout_seq<T, I>(name)) whole = find_csr_mvout_seq<T, I>(name);

  // Each row is one output of its own.
  bool rows_apart() const { return range != nullptr && (a.structure == 'g' || a.structure == 't'); }

  // Adds the products of rows first to last - 1 to y. The kernels that take a range of rows expect the whole
  // x and y; those of a symmetric view with a stored diagonal expect x and y from the first row on. A
  // transposed product has no such kernel, and hands its rows over as a matrix of their own.
  void add_rows(zor_int first, zor_int last, T* y) const {
    if (first >= last) return;
    const I count = I(last - first), from = I(first + 1), to = I(last), rows = I(a.rows);
    if (range != nullptr) {
      const bool relative = a.structure == 's' && a.diagonal == 'n' && name.op == 'n';
      const zor_int shift = relative ? first : 0;
      return range(&from, &to, &rows, &alpha, m.val, m.indx, m.pntrb, m.pntre, x + shift, y + shift);
    }
    if (a.structure == 't' && a.parts > 1) return add_shifted(first, last, y);
    const zor_int skipped = a.identity() || first == 0 ? 0 : m.begin(first);
    whole(&count, &alpha, m.val + skipped, m.indx + skipped, m.pntrb + first, m.pntre + first, x + first, y);
  }

  // A transposed triangular product compares columns with rows. Rows that are handed over as a matrix of
  // their own therefore have their columns counted from the first of them, in a copy on the stack.
  void add_shifted(zor_int first, zor_int last, T* y) const {
    using sparse_thresholds::longest_shifted_row;
    I shifted[longest_shifted_row];
    while (first < last) {
      const zor_int skipped = m.begin(first);
      zor_int entries = 0, end = first;
      for (; end < last; ++end) {
        const zor_int with_row = zor_int(m.pntre[end]) - zor_int(m.pntrb[first]);
        if (with_row > longest_shifted_row) break;
        entries = with_row;
      }
      for (zor_int k = 0; k < entries; ++k) shifted[k] = I(uint64_t(m.indx[skipped + k]) - uint64_t(first));
      const I count = I(end - first);
      whole(&count, &alpha, m.val + skipped, shifted, m.pntrb + first, m.pntre + first, x + first, y + first);
      first = end;
    }
  }
};

// Adds alternating parts to y: even parts at the same time, then odd ones.
template <class T, class I>
void add_even_then_odd(const vector_product<T, I>& p, int32_t threads, T* y) {
  const sparse_matrix& a = p.a;
  for (zor_int parity = 0; parity < 2; ++parity)
    for_each_piece(threads, (a.parts + 1 - parity) / 2, [&](zor_int piece) {
      const zor_int part = 2 * piece + parity;
      p.add_rows(a.first[part], a.first[part + 1], y);
    });
}

// The outputs of a mirrored view's P parts of h rows each, packed one behind the other. A part of an upper
// triangle adds to its own rows and those below, a part of a lower one to its own rows and those above. So
// output q = 0, 1, ... has (P - q) h elements: for the rows from q h on when the triangle is upper and part q
// adds to it, for the rows before (P - q) h when the triangle is lower and part P - 1 - q adds to it.
struct packed_outputs {
  const sparse_matrix& a;
  bool upper = a.triangle == 'u';
  zor_int h = a.part_rows, parts = a.parts;
  // The packed merge finds rows c h to c h + h - 1 of output q by one formula in q. For a lower triangle that
  // formula reaches back by (P - 1) h, which the workspace therefore begins with.
  zor_int lead = upper ? 0 : (parts - 1) * h;

  zor_int elements() const { return lead + h * parts * (parts + 1) / 2; }
  zor_int begin(zor_int q) const { return lead + h * (q * parts - q * (q - 1) / 2); }
  template <class T, class I>
  void add_part(const vector_product<T, I>& p, zor_int q, T* work) const {
    T* const own = work + begin(q);
    std::memset(static_cast<void*>(own), 0, size_t(h * (parts - q)) * sizeof(T));
    const zor_int part = upper ? q : parts - 1 - q;
    p.add_rows(a.first[part], a.first[part + 1], upper ? own - q * h : own);
  }
  template <class T>
  void merge_chunk(zor_int chunk, const T* work, T* y) const {
    const zor_int from = chunk * h, outputs = upper ? chunk + 1 : parts - chunk;
    const int64_t count = a.first[chunk + 1] - from, s1 = h, s2 = h * (parts + (upper ? 1 : 2));
    packed_merge_of<T, int64_t>(&count, &s1, &outputs, &s2,
                                work + (upper ? 0 : lead + h * (chunk + 1 - outputs)), y + from);
  }
};

// The same with packed outputs.
template <class T, class I>
void add_and_merge_packed(const vector_product<T, I>& p, const packed_outputs& outputs, int32_t threads,
                          T beta, T* work, T* y) {
  for_each_piece(threads, p.a.parts, [&](zor_int q) { outputs.add_part(p, q, work); });
  for_each_piece(threads, p.a.parts, [&](zor_int chunk) {
    scale(beta, p.a.first[chunk + 1] - p.a.first[chunk], y + p.a.first[chunk]);
    outputs.merge_chunk(chunk, work, y);
  });
}

template <class T, class I>
int32_t multiply(const sparse_matrix& a, int32_t op, T alpha, const T* x, T beta, T* y) {
  const bool transposed = is_transposed(op);
  const zor_int outputs = transposed ? a.cols : a.rows, inputs = transposed ? a.rows : a.cols;
  const bool read = inputs > 0 && outputs > 0 && !is_zero(alpha);
  if (read && x == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "x is null");
  if (outputs > 0 && y == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "y is null");
  if (read)
    if (const int32_t status =
            bad_overlap({"y", y, outputs, 1, outputs, sizeof(T)}, {"x", x, inputs, 1, inputs, sizeof(T)}))
      return status;
  if (!read) {
    scale(beta, outputs, y);
    return ZOR_SPARSE_OK;
  }
  if (has_product<T>(a, op)) return multiply_in_format<T, I>(a, op, alpha, x, beta, y);
  const vector_product<T, I> p{a, csr_arrays<T, I>(a), name_of<T>(a, op, a.base),
                               a.structure == 'a' && transposed ? negated(alpha) : alpha, x};
  const int32_t threads = threads_for(a, 1);
  if (p.rows_apart()) {
    const zor_int pieces = std::min<zor_int>(threads, a.rows);
    for_each_piece(threads, pieces, [&](zor_int piece) {
      const zor_int first = cut_rows(p.m, a.rows, pieces, piece);
      const zor_int last = cut_rows(p.m, a.rows, pieces, piece + 1);
      scale(beta, last - first, y + first);
      p.add_rows(first, last, y);
    });
    return ZOR_SPARSE_OK;
  }
  if (a.alternating) {
    scale(beta, outputs, y);
    add_even_then_odd(p, threads, y);
    return ZOR_SPARSE_OK;
  }
  const packed_outputs packed{a};
  const zor::scratch<T> work(a.mirrored() ? packed.elements() : saturating_product(a.parts, outputs));
  if (work.data == nullptr)
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the parts' outputs is short");
  if (a.mirrored())
    add_and_merge_packed(p, packed, threads, beta, work.data, y);
  else
    add_and_merge<T, I>(a, threads, outputs, beta, work.data, y,
                        [&](zor_int part, T* own) { p.add_rows(a.first[part], a.first[part + 1], own); });
  return ZOR_SPARSE_OK;
}

template <class T, class I>
int32_t multiply_many(const sparse_matrix& a, int32_t op, int32_t layout, zor_int n, T alpha, const T* b,
                      zor_int ldb, T beta, T* c, zor_int ldc) {
  const bool transposed = is_transposed(op), row_major = layout == ZOR_SPARSE_ROW_MAJOR;
  const zor_int outputs = transposed ? a.cols : a.rows, inputs = transposed ? a.rows : a.cols;
  if (const int32_t status = bad_columns<I>(layout, n)) return status;
  const bool written = outputs > 0 && n > 0, read = written && inputs > 0 && !is_zero(alpha);
  if (read && b == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b is null");
  if (const int32_t status = bad_dense<I>("ldb", layout, inputs, n, ldb, sizeof(T))) return status;
  if (written && c == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "c is null");
  if (const int32_t status = bad_dense<I>("ldc", layout, outputs, n, ldc, sizeof(T))) return status;
  if (!written) return ZOR_SPARSE_OK;
  if (read)
    if (const int32_t status = bad_overlap(dense_operand("c", c, layout, outputs, n, ldc, sizeof(T)),
                                           dense_operand("b", b, layout, inputs, n, ldb, sizeof(T))))
      return status;
  if (!read) {
    scale_lines(layout, beta, outputs, n, c, ldc);
    return ZOR_SPARSE_OK;
  }
  if (has_product<T>(a, op, layout, n))
    return multiply_in_format_many<T, I>(a, op, layout, n, alpha, b, ldb, beta, c, ldc);
  const indices_in_base<I> indx(a.indx, a.used, a.base, row_major ? 0 : 1);
  if (indx.short_of_memory)
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the indices in the layout's base is short");
  const csr_arrays<T, I> m(a);
  const kernel_name name = name_of<T>(a, op, row_major ? 0 : 1);
  const T factor = a.structure == 'a' && transposed ? negated(alpha) : alpha;
  const auto range = find_csr_mmout_par<T, I>(name);
  const auto whole = find_csr_mmout_seq<T, I>(name);
  const I rows = I(a.rows), all = I(n), ldb_i = I(ldb), ldc_i = I(ldc);
  for_right_hand_sides(threads_for(a, n), layout, n, [&](zor_int first, zor_int last, zor_int) {
    const zor_int b_shift = row_major ? first : first * ldb, c_shift = row_major ? first : first * ldc;
    const I from = I(first + 1), to = I(last), count = I(last - first);
    scale_lines(layout, beta, outputs, last - first, c + c_shift, ldc);
    if (range != nullptr)
      range(&from, &to, &rows, &all, &factor, m.val, indx.data, m.pntrb, m.pntre, b, &ldb_i, c, &ldc_i);
    else
      whole(&rows, &count, &factor, m.val, indx.data, m.pntrb, m.pntre, b + b_shift, &ldb_i, c + c_shift,
            &ldc_i);
  });
  return ZOR_SPARSE_OK;
}

// The matrix whose kernels a product with op(A) runs on: A, or its form in compressed rows.
template <class T>
int32_t matrix_to_multiply(zor_sparse a, int32_t op, int32_t layout, zor_int n, const sparse_matrix** m) {
  if (const int32_t status = bad_matrix(a, type_letter<T>, op)) return status;
  *m = a;
  return has_product<T>(*a, op, layout, n) ? int32_t(ZOR_SPARSE_OK) : kept_rows_form(*a, m);
}

}  // namespace
}  // namespace zor_core

#define ROW_SPARSE_MV(name, T)                                                                              \
  extern "C" SIG_SPARSE_MV(name, T) {                                                                       \
    using namespace zor_core;                                                                               \
    const sparse_matrix* m = nullptr;                                                                       \
    if (const int32_t status = matrix_to_multiply<T>(a, op, ZOR_SPARSE_COLUMN_MAJOR, 1, &m)) return status; \
    return (a->wide ? multiply<T, int64_t> : multiply<T, int32_t>)(*m, op, alpha, x, beta, y);              \
  }
#define ROW_SPARSE_MM(name, T)                                                                            \
  extern "C" SIG_SPARSE_MM(name, T) {                                                                     \
    using namespace zor_core;                                                                             \
    const sparse_matrix* m = nullptr;                                                                     \
    if (const int32_t status = matrix_to_multiply<T>(a, op, layout, n, &m)) return status;                \
    return (a->wide ? multiply_many<T, int64_t> : multiply_many<T, int32_t>)(*m, op, layout, n, alpha, b, \
                                                                             ldb, beta, c, ldc);          \
  }
#include "zor/tables/core_spblas.inc"
