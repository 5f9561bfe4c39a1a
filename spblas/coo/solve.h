// SPDX-License-Identifier: MIT
// Solves op(T) X = B in place for a matrix in coordinates. The entries of the triangle are first listed by
// rows with a counting sort; without the memory for it every row passes over all entries. Quotients are
// divisions, and no alpha is read.
#pragma once

#include "serv/scratch.h"
#include "spblas/coo/coo.h"
#include "spblas/row_dot.h"
#include "spblas/solve_order.h"

namespace zor::sparse {

// The entries strictly inside the triangle, listed row by row in their stored order, and the place of each
// row's diagonal entry, of several the last. The place of a missing one is whatever the memory held.
template <class T, class I>
struct row_index {
  row_index(const coo<T, I>& a, view v, zor_int m)
      : diagonal(v.unit() ? 0 : m, 128), count(m, 128), order(a.nnz, 128) {
    is_complete = (v.unit() || diagonal.data != nullptr) && count.data != nullptr && order.data != nullptr &&
                  list(a, v, m);
  }

  scratch<I> diagonal, count, order;
  zor_int listed = 0;
  bool is_complete;

 private:
  bool list(const coo<T, I>& a, view v, zor_int m) {
    const scratch<I> inside(a.nnz, 128);
    if (inside.data == nullptr) return false;
    std::memset(count.data, 0, size_t(m) * sizeof(I));
    for (zor_int e = 0; e < a.nnz; ++e) {
      const zor_int row = a.rowind[e], distance = v.side() * (zor_int(a.colind[e]) - row);
      if (distance < 0) {
        inside.data[listed++] = I(e);
        ++count.data[row - a.base];
      } else if (distance == 0 && !v.unit()) {
        diagonal.data[row - a.base] = I(e);
      }
    }
    const scratch<I> next(m, 128);
    if (next.data == nullptr) return false;
    I start = 0;
    for (zor_int row = 0; row < m; start = I(start + count.data[row++])) next.data[row] = start;
    for (zor_int i = 0; i < listed; ++i) {
      const I e = inside.data[i];
      order.data[next.data[a.rowind[e] - a.base]++] = e;
    }
    return true;
  }
};

// The entries of a row as the list has them, onwards or backwards.
template <class T, class I>
struct listed_entries {
  const T* val;
  const I* colind;
  const I* order;
  zor_int step;

  [[gnu::always_inline]] zor_int at(zor_int i) const { return zor_int(order[i * step]); }
  [[gnu::always_inline]] const T* value(zor_int i) const { return val + at(i); }
  [[gnu::always_inline]] zor_int column(zor_int i) const { return zor_int(colind[at(i)]); }
  [[gnu::always_inline]] void touch(zor_int i) const {
    zor::touch(order + i * step + step * thresholds::entries_ahead / zor_int(sizeof(I)));
  }
};

// R packs of right-hand sides from j on: s = row dot over the listed entries of row r, x(r, j) = (x(r, j) -
// s) / pivot, or x(r, j) - s for a unit diagonal. Lower triangles go up the rows and up the list, upper ones
// down both, so that the entries of their rows are taken last to first.
template <int N, int R, class T, bool RowMajor, class I>
[[gnu::noinline]] void solve_listed(const coo_solve<T, RowMajor, I>& p, view v, const row_index<T, I>& index,
                                    zor_int j) {
  // Addressed by columns in the base of the matrix.
  const dense<T, RowMajor> x{opaque(p.x.at(-p.a.base, j)), p.x.ld};
  const dense<const T, RowMajor> solved{x.data, x.ld};
  const bool upwards = v.solves_upwards(), conj = v.conjugated();
  const zor_int step = upwards ? 1 : -1;
  listed_entries<T, I> entries{p.a.val, p.a.colind, index.order.data + (upwards ? 0 : index.listed - 1),
                               step};
  const bool far = index.listed >= thresholds::coo_far_entries;
  zor_int left = index.listed - thresholds::coo_entries_ahead;
  kept_row<T, N, R> last;
  in_order(
      upwards, p.m, [&](zor_int row) __attribute__((always_inline)) {
        const zor_int count = zor_int(index.count.data[row]), r = row + p.a.base;
        for (zor_int k = 0; far && k < count && k < left; ++k) {
          touch(entries.value(k + thresholds::coo_entries_ahead));
          touch(p.a.colind + entries.at(k + thresholds::coo_entries_ahead));
        }
        left -= count;
        const zor_int ahead = row + step * thresholds::coo_entries_ahead;
        if (far && !v.unit() && ahead >= 0 && ahead < p.m)
          touch(p.a.val + zor_int(index.diagonal.data[ahead]));
        const auto s = row_dots<N, R, 0, true>(entries, conj, 0, count, solved, last);
        entries.order += step * count;
        const T pivot = v.unit() ? T{} : conj_by_sign_if(conj, p.a.val[zor_int(index.diagonal.data[row])]);
        last.index = r;
        each<R>([&](int i) __attribute__((always_inline)) {
          const auto rest = x.template get<N>(r, i * N) - s.at[i];
          last.value.at[i] = v.unit() ? rest : divided<T, N>(rest, pivot);
          x.template put<N>(r, i * N, last.value.at[i]);
        });
      });
}

// Without the index each row passes over all entries, in one chain. Only a lower triangle with a unit
// diagonal asks which row an entry is of; the others sum the whole triangle in every row and divide by the
// last diagonal entry of the matrix. That is no solution of the system: it is what a short of memory gives.
template <class T, bool RowMajor, class I>
[[gnu::noinline]] void solve_by_scans(const coo_solve<T, RowMajor, I>& p, view v, zor_int j) {
  const bool own_row = v.triangle == 'l' && v.unit();
  const T* const x = p.x.at(-p.a.base, j);
  const zor_int stride = RowMajor ? p.x.ld : 1;
  in_order(v.solves_upwards(), p.m, [&](zor_int row) {
    T sum{}, pivot{};
    for (zor_int e = 0; e < p.a.nnz; ++e) {
      const zor_int r = p.a.rowind[e], column = p.a.colind[e], distance = v.side() * (column - r);
      const T a = conj_by_sign_if(v.conjugated(), p.a.val[e]);
      if (distance < 0 && (!own_row || r == row + p.a.base)) sum = add(sum, zor::mul(a, x[column * stride]));
      if (distance == 0) pivot = a;
    }
    T& at = *p.x.at(row, j);
    at = v.unit() ? sub(at, sum) : quotient(sub(at, sum), pivot);
  });
}

// Diagonal view: x(r, j) = x(r, j) / a for every entry on the diagonal, one after the other.
template <class T, bool RowMajor, class I>
void divide_by_diagonal(bool conj, const coo_solve<T, RowMajor, I>& p) {
  for (zor_int e = 0; e < p.a.nnz; ++e) {
    if (p.a.rowind[e] != p.a.colind[e]) continue;
    const zor_int row = zor_int(p.a.rowind[e]) - p.a.base;
    const T a = conj_by_sign_if(conj, p.a.val[e]);
    for_packs<T>(
        p.from_column, p.to_column, [&]<int N>(zor_int j) __attribute__((always_inline)) {
          p.x.template put<N>(row, j, divided<T, N>(p.x.template get<N>(row, j), a));
        });
  }
}

template <class T, bool RowMajor, class I>
void solve(view v, const coo_solve<T, RowMajor, I>& p) {
  if (v.structure == 'd') return divide_by_diagonal(v.conjugated(), p);
  const row_index<T, I> index(p.a, v, p.m);
  if (index.is_complete)
    for_right_hand_sides<RowMajor, T>(
        p.from_column, p.to_column, [&]<int N, int R>(zor_int j) __attribute__((always_inline)) {
          solve_listed<N, R>(p, v, index, j);
        });
  else
    for (zor_int j = p.from_column; j < p.to_column; ++j) solve_by_scans(p, v, j);
}

}  // namespace zor::sparse
