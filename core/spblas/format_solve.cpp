// SPDX-License-Identifier: MIT
// Solves by the kernels of coordinates, diagonals and skyline. They work in place on right-hand sides to
// which alpha has been applied. One right-hand side is solved on the calling thread; several are cut for
// threads.
#include <numeric>

#include "core/spblas/dense.h"
#include "core/spblas/format_kernels.h"

namespace zor_core {
namespace {

int32_t short_of_memory() { return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the solve is short"); }

// Rows and columns change places for a transposed solve.
template <class T, class I>
struct coordinate_solve {
  const sparse_matrix& a;
  kernel_name name;
  const I *rowind, *colind;

  void solve(zor_int first, zor_int last, T* x, I ldx) const {
    const I from = I(first + 1), to = I(last), m = I(a.rows), nnz = I(a.nnz);
    find_coo_smout_par<T, I>(name)(&from, &to, &m, nullptr, nullptr, static_cast<const T*>(a.given_val),
                                   rowind, colind, &nnz, x, &ldx);
  }
  // The kernels list the entries by rows; without the memory for the list they compute something else. So it
  // is asked for beforehand.
  bool memory_suffices(zor_int pieces) const {
    if (a.structure == 'd') return true;
    const zor_int each = saturating_product(3 * (a.rows + 128), zor_int(sizeof(I))) +
                         saturating_product(2 * (a.nnz + 128), zor_int(sizeof(I)));
    return zor::scratch<char>(saturating_product(pieces, each)).data != nullptr;
  }
};

// The kernels want the diagonals by ascending distance, and the places of the strict triangle and of the main
// diagonal among them, counted from 1.
template <class T, class I>
struct diagonal_solve {
  const sparse_matrix& a;
  int32_t op;
  zor_int length;
  zor::scratch<I> distance, order;
  zor::scratch<T> sorted;
  const T* val;
  I lval, first, last, main;

  diagonal_solve(const sparse_matrix& m, int32_t o)
      : a(m),
        op(o),
        length(m.rows),
        distance(a.nnz + 1),
        order(a.nnz + 1),
        sorted(ascends() ? 0 : saturating_product(a.nnz, a.rows)),
        val(static_cast<const T*>(a.given_val)),
        lval(I(a.lval)) {
    if (short_of_memory()) return;
    const I* const given = static_cast<const I*>(a.given_indx);
    std::iota(order.data, order.data + a.nnz, I(0));
    std::sort(order.data, order.data + a.nnz,
              [&](I d, I e) { return given[d] < given[e] || (given[d] == given[e] && d < e); });
    for (zor_int d = 0; d < a.nnz; ++d) {
      distance.data[d] = given[order.data[d]];
      if (sorted.data != nullptr)
        std::copy_n(val + zor_int(order.data[d]) * a.lval, a.rows, sorted.data + d * a.rows);
    }
    if (sorted.data != nullptr) val = sorted.data, lval = I(a.rows);
    const I *const begin = distance.data, *const end = begin + a.nnz;
    const zor_int below = std::lower_bound(begin, end, I(0)) - begin,
                  behind = std::upper_bound(begin, end, I(0)) - begin;
    const bool lower = a.triangle == 'l';
    first = I(lower ? 1 : behind + 1);
    last = I(lower ? below : a.nnz);
    main = I(below + 1);
    distance.data[a.nnz] = 0;
  }
  bool short_of_memory() const {
    return distance.data == nullptr || order.data == nullptr ||
           (!ascends() && a.nnz > 0 && a.rows > 0 && sorted.data == nullptr);
  }
  void solve(zor_int columns, T* x, I ldx) const {
    const I from = 1, to = I(columns), m = I(a.rows), count = I(a.nnz);
    const kernel_name name = name_of<T>(a, op, 1);
    if (a.structure == 'd')
      find_dia_smout_diag_seq<T, I>(name)(&m, &to, val, &lval, distance.data, &count, x, &ldx);
    else if (a.diagonal == 'u')
      find_dia_smout_unit_par<T, I>(name)(&from, &to, &m, val, &lval, distance.data, nullptr, x, &ldx, &first,
                                          &last);
    else
      find_dia_smout_par<T, I>(name)(&from, &to, &m, val, &lval, distance.data, nullptr, x, &ldx, &first,
                                     &last, nullptr, &main);
  }

 private:
  bool ascends() const {
    const I* const given = static_cast<const I*>(a.given_indx);
    return std::is_sorted(given, given + a.nnz);
  }
};

template <class T, class I>
struct profile_solve {
  const sparse_matrix& a;
  int32_t op;

  bool short_of_memory() const { return false; }
  void solve(zor_int columns, T* x, zor_int ldx) const {
    const I flag1 = is_transposed(op), flag2 = a.triangle == 'u', stored = a.diagonal != 'u', m = I(a.rows);
    for (zor_int j = 0; j < columns; ++j)
      sky_solve_of<T, I>(&flag1, nullptr, &flag2, &stored, &m, static_cast<const T*>(a.given_val),
                         static_cast<const I*>(a.given_pntrb), x + j * ldx);
  }
};

// The right-hand sides of a piece, times alpha, in x.
template <class T>
void prepare_lines(const sparse_matrix& a, int32_t layout, zor_int first, zor_int last, T alpha, const T* b,
                   zor_int ldb, T* x, zor_int ldx) {
  const bool row_major = layout == ZOR_SPARSE_ROW_MAJOR;
  const T* const from = b + (row_major ? first : first * ldb);
  T* const to = x + (row_major ? first : first * ldx);
  for_lines(layout, a.rows, last - first, [&](zor_int line, zor_int length) {
    prepare(a, alpha, length, from + line * ldb, to + line * ldx);
  });
}

template <class T, class I>
int32_t solve_coordinates(const sparse_matrix& a, int32_t op, int32_t layout, zor_int n, T alpha, const T* b,
                          zor_int ldb, T* x, zor_int ldx) {
  const int32_t base = layout == ZOR_SPARSE_ROW_MAJOR ? 0 : 1, threads = threads_for(a, n);
  const indices_in_base<I> rowind(a.given_rowind, a.nnz, a.base, base),
      colind(a.given_indx, a.nnz, a.base, base);
  bool exchanged = false;
  const kernel_name name = coordinate_name<T>(a, op, base, exchanged);
  const coordinate_solve<T, I> s{a, name, exchanged ? colind.data : rowind.data,
                                 exchanged ? rowind.data : colind.data};
  if (rowind.short_of_memory || colind.short_of_memory ||
      !s.memory_suffices(pieces_of_right_hand_sides(threads, layout, n)))
    return short_of_memory();
  for_right_hand_sides(threads, layout, n, [&](zor_int first, zor_int last, zor_int) {
    prepare_lines(a, layout, first, last, alpha, b, ldb, x, ldx);
    s.solve(first, last, x, I(ldx));
  });
  return ZOR_SPARSE_OK;
}

// Kernels that take columns; rows of right-hand sides are staged in them.
template <class T, class I, class Solve>
int32_t solve_columns(const Solve& s, int32_t layout, zor_int n, T alpha, const T* b, zor_int ldb, T* x,
                      zor_int ldx) {
  const sparse_matrix& a = s.a;
  const bool staged = layout == ZOR_SPARSE_ROW_MAJOR;
  const int32_t threads = threads_for(a, n);
  const zor_int width = std::min(n, sparse_thresholds::staged_columns),
                apart = column_stage<T>::distance(a.rows), each = width * apart,
                pieces = pieces_of_right_hand_sides(threads, layout, n);
  const zor::scratch<T> work(staged ? saturating_product(pieces, each) : 0);
  if (s.short_of_memory() || (staged && work.data == nullptr)) return short_of_memory();
  for_right_hand_sides(threads, layout, n, [&](zor_int first, zor_int last, zor_int piece) {
    prepare_lines(a, layout, first, last, alpha, b, ldb, x, ldx);
    if (!staged) return s.solve(last - first, x + first * ldx, I(ldx));
    const column_stage<T> stage{work.data + piece * each, apart, a.rows, a.rows, layout};
    for (; first < last; first += width) {
      const zor_int end = std::min(last, first + width);
      stage.take(x, ldx, first, end);
      s.solve(end - first, stage.columns, I(apart));
      stage.put(x, ldx, first, end);
    }
  });
  return ZOR_SPARSE_OK;
}

}  // namespace

template <class T, class I>
int32_t solve_in_format(const sparse_matrix& a, int32_t op, int32_t layout, zor_int n, T alpha, const T* b,
                        zor_int ldb, T* x, zor_int ldx) {
  if (a.format == ZOR_SPARSE_COO) return solve_coordinates<T, I>(a, op, layout, n, alpha, b, ldb, x, ldx);
  if (a.format == ZOR_SPARSE_DIA)
    return solve_columns<T, I>(diagonal_solve<T, I>(a, op), layout, n, alpha, b, ldb, x, ldx);
  return solve_columns<T, I>(profile_solve<T, I>{a, op}, layout, n, alpha, b, ldb, x, ldx);
}

#define ROW(T, I)                                                                                      \
  template int32_t solve_in_format<T, I>(const sparse_matrix&, int32_t, int32_t, zor_int, T, const T*, \
                                         zor_int, T*, zor_int);
ZOR_FOR_EVERY_TYPE(ROW)
#undef ROW

}  // namespace zor_core
