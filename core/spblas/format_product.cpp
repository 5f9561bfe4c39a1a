// SPDX-License-Identifier: MIT
// Products by the kernels of coordinates, diagonals, blocks and skyline. Where each row of the result is a
// sum of its own, threads share the rows; entries of coordinates run in parts that depend on the matrix
// alone; other products of one vector stay on the calling thread. Many right-hand sides are cut for threads.
#include "core/spblas/dense.h"
#include "core/spblas/format_kernels.h"

namespace zor_core {
namespace {

template <class T>
void add_multiple(T alpha, zor_int n, const T* x, T* y) {
  constexpr zor_int step = 1;
#define ROW_AXPY(name, U) \
  if constexpr (std::is_same_v<T, U>) name(&n, &alpha, x, &step, y, &step);
#include "zor/tables/blas_vector.inc"
}

// The transpose of a skew view is its negative. The kernels of diagonals conjugate it by transposing.
template <class T>
T factor_of(const sparse_matrix& a, int32_t op, T alpha) {
  const bool diagonals = a.format == ZOR_SPARSE_DIA && is_conjugated<T>(op);
  return a.structure == 'a' && is_transposed(op) != diagonals ? negated(alpha) : alpha;
}

template <class T, class I>
struct coordinate_product {
  const sparse_matrix& a;
  kernel_name name;
  T alpha;
  const I *rowind, *colind;
  I outputs, inputs;
  const T* val = static_cast<const T*>(a.given_val);

  // The entries first to last - 1, as a matrix of their own.
  void add(zor_int first, zor_int last, const T* x, T* y) const {
    const I from = 1, count = I(last - first);
    if (a.structure == 'd')
      find_coo_mvout_seq<T, I>(name)(&outputs, nullptr, &alpha, val + first, rowind + first, colind + first,
                                     &count, x, y);
    else
      find_coo_mvout_par<T, I>(name)(&from, &count, &outputs, &inputs, &alpha, val + first, rowind + first,
                                     colind + first, &count, x, y);
  }
  void add_columns(zor_int first, zor_int last, const T* b, I ldb, T* c, I ldc) const {
    const I from = I(first + 1), to = I(last), count = I(a.nnz);
    find_coo_mmout_par<T, I>(name)(&from, &to, &outputs, &inputs, &alpha, val, rowind, colind, &count, b,
                                   &ldb, c, &ldc);
  }
};

template <class T, class I>
struct diagonal_product {
  const sparse_matrix& a;
  int32_t op;
  T alpha;
  const T* val = static_cast<const T*>(a.given_val);
  const I* distance = static_cast<const I*>(a.given_indx);
  kernel_name name = name_of<T>(a, op, 1);
  I n = I(a.rows), lval = I(a.lval), diagonals = I(a.nnz);

  void add(const T* x, T* y) const {
    find_dia_mvout_par<T, I>(name)(nullptr, nullptr, &n, &n, &alpha, val, &lval, distance, &diagonals, x, y);
  }
  void add_columns(zor_int columns, const T* b, I ldb, T* c, I ldc) const {
    const I from = 1, to = I(columns);
    find_dia_mmout_par<T, I>(name)(&from, &to, &n, &n, &alpha, val, &lval, distance, &diagonals, b, &ldb, c,
                                   &ldc);
  }

  bool rows_apart() const { return a.structure == 'g' || (a.structure == 't' && a.diagonal == 'n'); }
  zor_int cut_rows(zor_int pieces, zor_int piece) const { return cut(a.rows, 1, pieces, piece); }
  zor_int list_length() const { return a.nnz; }
  // Rows of the result are those of a general matrix whose diagonals begin there. A diagonal that the view
  // leaves out is moved outside the matrix.
  void add_rows(zor_int first, zor_int last, const T* x, T* y, I* list) const {
    const bool flip = is_transposed(op);
    zor_int from = a.nnz, to = 0;
    for (zor_int d = 0; d < a.nnz; ++d) {
      const zor_int q = distance[d], moved = flip ? q - first : q + first, reach = flip ? -moved : moved;
      const bool taken = a.structure == 'g' || (a.triangle == 'l' ? q <= 0 : q >= 0);
      const bool meets = taken && reach > first - last && reach < a.rows;
      list[d] = I(meets ? moved : flip ? -a.rows : a.rows);
      if (meets) from = std::min(from, d), to = d + 1;
    }
    if (from >= to) return;
    const I count = I(last - first), some = I(to - from);
    find_dia_mvout_par<T, I>({1, name.op, 'g', '_', '_'})(nullptr, nullptr, &count, &n, &alpha,
                                                          val + from * a.lval + (flip ? 0 : first), &lval,
                                                          list + from, &some, x, y + first);
  }
};

template <class T, class I>
struct block_product {
  const sparse_matrix& a;
  int32_t op;
  T alpha;
  csr_arrays<T, I> m = {a.given_val, a.own_blocks == nullptr ? a.given_indx : a.own_blocks, a.given_pntrb,
                        a.given_pntre};
  I lb = I(a.lb), lines = I((a.rows + a.lb - 1) / a.lb);

  void add(const T* x, T* y) const {
    const I plain = !is_transposed(op), lower = a.triangle != 'u', stored = a.diagonal != 'u', one = 1;
    switch (a.structure) {
      case 'g':
        return bsr_general_of<T, I>(&plain, &lines, nullptr, &lb, &alpha, m.val, m.indx, m.pntrb, m.pntre, x,
                                    nullptr, y);
      case 't':
        return bsr_triangular_of<T, I>(&plain, &lower, &stored, &lines, nullptr, &lb, &alpha, m.val, m.indx,
                                       m.pntrb, m.pntre, x, nullptr, y);
      case 's':
        return bsr_symmetric_of<T, I>(&lower, &stored, &lines, &one, &lb, &alpha, m.val, m.indx, m.pntrb,
                                      m.pntre, x, &one, y, &one);
      case 'a':
        return bsr_skew_of<T, I>(&lower, &lines, nullptr, &lb, &alpha, m.val, m.indx, m.pntrb, m.pntre, x,
                                 nullptr, y);
      default:
        return bsr_diagonal_of<T, I>(&one, &lines, nullptr, &lb, &alpha, m.val, m.indx, m.pntrb, m.pntre, x,
                                     nullptr, y);
    }
  }
  void add_columns(zor_int columns, const T* b, zor_int ldb, T* c, zor_int ldc) const {
    for (zor_int j = 0; j < columns; ++j) add(b + j * ldb, c + j * ldc);
  }

  bool rows_apart() const { return a.structure == 'g' && !is_transposed(op); }
  zor_int cut_rows(zor_int pieces, zor_int piece) const {
    return std::min(zor_core::cut_rows(m, lines, pieces, piece) * a.lb, zor_int(lines) * a.lb);
  }
  zor_int list_length() const { return 0; }
  void add_rows(zor_int first, zor_int last, const T* x, T* y, I*) const {
    const zor_int line = first / a.lb, skipped = m.begin(line);
    const I plain = 1, count = I(last / a.lb - line);
    bsr_general_of<T, I>(&plain, &count, nullptr, &lb, &alpha, m.val + skipped * a.lb * a.lb,
                         m.indx + skipped, m.pntrb + line, m.pntre + line, x, nullptr, y + first);
  }
};

// Profiles are rows of a lower triangle and columns of an upper one. The kernels leave the unit diagonal to
// the caller.
template <class T, class I>
struct profile_product {
  const sparse_matrix& a;
  int32_t op;
  T alpha;
  const T* val = static_cast<const T*>(a.given_val);
  const I* pntr = static_cast<const I*>(a.given_pntrb);

  void add(const T* x, T* y) const { add_columns(1, x, a.rows, y, a.rows); }
  void add_columns(zor_int columns, const T* b, zor_int ldb, T* c, zor_int ldc) const {
    add_profiles(0, a.rows, columns, b, I(ldb), c, I(ldc));
    if (a.diagonal == 'u')
      for (zor_int j = 0; j < columns; ++j) add_multiple(alpha, a.rows, b + j * ldb, c + j * ldc);
  }

  bool rows_apart() const { return a.structure == 't' && is_transposed(op) == (a.triangle == 'u'); }
  zor_int cut_rows(zor_int pieces, zor_int piece) const {
    return zor_core::cut_rows(csr_arrays<T, I>(val, nullptr, pntr, pntr + 1), a.rows, pieces, piece);
  }
  zor_int list_length() const { return 0; }
  void add_rows(zor_int first, zor_int last, const T* x, T* y, I*) const {
    add_profiles(first, last, 1, x, I(a.rows), y, I(a.rows));
    if (a.diagonal == 'u') add_multiple(alpha, last - first, x + first, y + first);
  }

 private:
  void add_profiles(zor_int first, zor_int last, zor_int columns, const T* b, I ldb, T* c, I ldc) const {
    const I flag1 = is_transposed(op), flag2 = a.triangle == 'u', stored = a.diagonal != 'u';
    const I count = I(last - first), n = I(columns), plain = 0;
    const I* const from = pntr + first;
    const T* const profiles = val + (zor_int(pntr[first]) - zor_int(pntr[0]));
    b += first, c += first;
    if (a.structure == 't')
      sky_triangular_of<T, I>(&flag1, nullptr, &count, &n, &flag2, &stored, &alpha, profiles, from, b, &ldb,
                              c, &ldc);
    else if (a.structure == 's')
      sky_symmetric_of<T, I>(nullptr, &count, &n, &stored, &alpha, profiles, from, b, &ldb, c, &ldc);
    else
      sky_skew_of<T, I>(&plain, nullptr, &count, &n, &flag2, &alpha, profiles, from, b, &ldb, c, &ldc);
  }
};

int32_t short_of_memory() {
  return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for a copy of the operands is short");
}

// y := beta y + the product, of one vector. Without memory for the lists of threads one thread does it all.
template <class T, class I, class Product>
void multiply_vector(const Product& p, int32_t threads, zor_int outputs, const T* x, T beta, T* y) {
  const zor_int pieces = std::min<zor_int>(threads, outputs), length = p.list_length();
  const zor::scratch<I> lists(p.rows_apart() && pieces > 1 ? pieces * length : 0);
  if (!p.rows_apart() || pieces <= 1 || (length > 0 && lists.data == nullptr)) {
    scale(beta, outputs, y);
    return p.add(x, y);
  }
  for_each_piece(threads, pieces, [&](zor_int piece) {
    const zor_int first = p.cut_rows(pieces, piece), last = p.cut_rows(pieces, piece + 1);
    if (first >= last) return;
    scale(beta, last - first, y + first);
    p.add_rows(first, last, x, y, length == 0 ? nullptr : lists.data + piece * length);
  });
}

// Right-hand sides staged in columns, for kernels that take no other layout and for blocks that reach beyond
// the matrix, where the operands have zeros.
template <class T, class I, class Product>
int32_t multiply_staged(const Product& p, int32_t layout, zor_int rows, zor_int length, zor_int n, const T* b,
                        zor_int ldb, T beta, T* c, zor_int ldc) {
  const int32_t threads = threads_for(p.a, n);
  const zor_int pieces = pieces_of_right_hand_sides(threads, layout, n);
  const zor_int width = std::min(n, sparse_thresholds::staged_columns),
                apart = column_stage<T>::distance(length), each = 2 * width * apart;
  const zor::scratch<T> work(saturating_product(pieces, each));
  if (work.data == nullptr) return short_of_memory();
  for_right_hand_sides(threads, layout, n, [&](zor_int first, zor_int last, zor_int piece) {
    T* const own = work.data + piece * each;
    const column_stage<T> in{own, apart, rows, length, layout},
        out{own + width * apart, apart, rows, length, layout};
    for (; first < last; first += width) {
      const zor_int end = std::min(last, first + width), columns = end - first;
      in.take(b, ldb, first, end);
      if (is_zero(beta))
        out.clear(columns);
      else
        out.take(c, ldc, first, end);
      for (zor_int j = 0; !is_zero(beta) && j < columns; ++j) scale(beta, rows, out.columns + j * apart);
      p.add_columns(columns, in.columns, I(apart), out.columns, I(apart));
      out.put(c, ldc, first, end);
    }
  });
  return ZOR_SPARSE_OK;
}

template <class T, class I, class Product>
int32_t multiply_columns(const Product& p, zor_int n, const T* b, zor_int ldb, T beta, T* c, zor_int ldc) {
  for_right_hand_sides(threads_for(p.a, n), ZOR_SPARSE_COLUMN_MAJOR, n,
                       [&](zor_int first, zor_int last, zor_int) {
                         T* const out = c + first * ldc;
                         scale_lines(ZOR_SPARSE_COLUMN_MAJOR, beta, p.a.rows, last - first, out, ldc);
                         p.add_columns(last - first, b + first * ldb, I(ldb), out, I(ldc));
                       });
  return ZOR_SPARSE_OK;
}

// body(product) for the format of a square matrix.
template <class T, class I, class Body>
int32_t with_product(const sparse_matrix& a, int32_t op, T alpha, const Body& body) {
  const T factor = factor_of(a, op, alpha);
  if (a.format == ZOR_SPARSE_DIA) return body(diagonal_product<T, I>{a, op, factor});
  if (a.format == ZOR_SPARSE_BSR) return body(block_product<T, I>{a, op, factor});
  return body(profile_product<T, I>{a, op, factor});
}
// The rows of the operands as the kernels take them: whole blocks.
zor_int length_of(const sparse_matrix& a) {
  return a.format == ZOR_SPARSE_BSR ? (a.rows + a.lb - 1) / a.lb * a.lb : a.rows;
}

template <class T, class I>
coordinate_product<T, I> product_of_coordinates(const sparse_matrix& a, int32_t op, int32_t base, T alpha,
                                                const I* rowind, const I* colind) {
  bool exchanged = false;
  const kernel_name name = coordinate_name<T>(a, op, base, exchanged);
  const bool transposed = is_transposed(op);
  return {a,
          name,
          factor_of(a, op, alpha),
          exchanged ? colind : rowind,
          exchanged ? rowind : colind,
          I(transposed ? a.cols : a.rows),
          I(transposed ? a.rows : a.cols)};
}

}  // namespace

template <class T, class I>
int32_t multiply_in_format(const sparse_matrix& a, int32_t op, T alpha, const T* x, T beta, T* y) {
  const int32_t threads = threads_for(a, 1);
  if (a.format == ZOR_SPARSE_COO) {
    const auto p = product_of_coordinates<T, I>(a, op, a.base, alpha, static_cast<const I*>(a.given_rowind),
                                                static_cast<const I*>(a.given_indx));
    if (a.parts == 1) {
      scale(beta, p.outputs, y);
      p.add(0, a.nnz, x, y);
      return ZOR_SPARSE_OK;
    }
    const zor::scratch<T> work(saturating_product(a.parts, p.outputs));
    if (work.data == nullptr)
      return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the parts' outputs is short");
    add_and_merge<T, I>(a, threads, p.outputs, beta, work.data, y,
                        [&](zor_int part, T* own) { p.add(a.first[part], a.first[part + 1], x, own); });
    return ZOR_SPARSE_OK;
  }
  return with_product<T, I>(a, op, alpha, [&](const auto& p) {
    if (length_of(a) != a.rows)
      return multiply_staged<T, I>(p, ZOR_SPARSE_COLUMN_MAJOR, a.rows, length_of(a), 1, x, a.rows, beta, y,
                                   a.rows);
    multiply_vector<T, I>(p, threads, a.rows, x, beta, y);
    return int32_t(ZOR_SPARSE_OK);
  });
}

template <class T, class I>
int32_t multiply_in_format_many(const sparse_matrix& a, int32_t op, int32_t layout, zor_int n, T alpha,
                                const T* b, zor_int ldb, T beta, T* c, zor_int ldc) {
  const bool row_major = layout == ZOR_SPARSE_ROW_MAJOR;
  if (a.format == ZOR_SPARSE_COO) {
    const int32_t base = row_major ? 0 : 1;
    const indices_in_base<I> rowind(a.given_rowind, a.nnz, a.base, base),
        colind(a.given_indx, a.nnz, a.base, base);
    if (rowind.short_of_memory || colind.short_of_memory)
      return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the indices in the layout's base is short");
    const auto p = product_of_coordinates<T, I>(a, op, base, alpha, rowind.data, colind.data);
    for_right_hand_sides(threads_for(a, n), layout, n, [&](zor_int first, zor_int last, zor_int) {
      scale_lines(layout, beta, p.outputs, last - first, c + (row_major ? first : first * ldc), ldc);
      p.add_columns(first, last, b, I(ldb), c, I(ldc));
    });
    return ZOR_SPARSE_OK;
  }
  return with_product<T, I>(a, op, alpha, [&](const auto& p) {
    if (row_major || length_of(a) != a.rows)
      return multiply_staged<T, I>(p, layout, a.rows, length_of(a), n, b, ldb, beta, c, ldc);
    return multiply_columns<T, I>(p, n, b, ldb, beta, c, ldc);
  });
}

#define ROW(T, I)                                                                                    \
  template int32_t multiply_in_format<T, I>(const sparse_matrix&, int32_t, T, const T*, T, T*);      \
  template int32_t multiply_in_format_many<T, I>(const sparse_matrix&, int32_t, int32_t, zor_int, T, \
                                                 const T*, zor_int, T, T*, zor_int);
ZOR_FOR_EVERY_TYPE(ROW)
#undef ROW

}  // namespace zor_core
