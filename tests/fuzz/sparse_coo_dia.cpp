// SPDX-License-Identifier: MIT
// The kernels of every name of entries in any order and of diagonals: products and solves.
#include "tests/fuzz/sparse_kernels.h"

namespace zor_fuzz {
namespace {

// Without entries a range is empty, and not even a unit diagonal is added.
template <class T, class I, class Call>
void coo_product(trial& t, const shape& s, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::coo_mmout_par_fn<T, I>>,
                 range = std::is_same_v<Call, zor::coo_mvout_par_fn<T, I>>;
  const product<T, I> q(t, s, many, {coo});
  t.invoke(call, when<range>(zor_int(1)), when<range>(zor_int(q.a.count)), when<many>(q.wanted), q.a.m,
           when < many || range > (q.a.k), when < !many && !range > (nullptr), q.alpha, q.a.coordinates(),
           vectors<many>(q.x), vectors<many>(q.y));
  if (many || q.a.count > 0) q.check(t, many);
}
template <class T, class I, class Call>
void coo_solve(trial& t, const shape& s, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::coo_smout_par_fn<T, I>>;
  const solve<T, I> q(t, s, many, coo);
  t.invoke(call, when<many>(q.wanted), q.a.m, nullptr, nullptr, q.a.coordinates(), when<!many>(nullptr),
           vectors<many>(q.y));
  q.check(t, many);
}

template <class T, class I, class Call>
void dia_product(trial& t, const shape& s, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::dia_mmout_par_fn<T, I>>;
  const product<T, I> q(t, s, many, {dia});
  t.invoke(call, when<many>(q.wanted), when<!many>(nullptr), when<!many>(nullptr), q.a.m, q.a.k, q.alpha,
           q.a.diagonals(), q.a.count, vectors<many>(q.x), vectors<many>(q.y));
  q.check(t, many);
}
// Solves take the places of the triangle's diagonals, from 1, and that of the main one.
template <class T, class I, class Call>
void dia_solve(trial& t, const shape& s, Call* call) {
  constexpr bool unit_vector = std::is_same_v<Call, zor::dia_svout_unit_seq_fn<T, I>>,
                 diagonal_vector = std::is_same_v<Call, zor::dia_svout_diag_seq_fn<T, I>>,
                 vector = unit_vector || diagonal_vector || std::is_same_v<Call, zor::dia_svout_seq_fn<T, I>>,
                 unit = unit_vector || std::is_same_v<Call, zor::dia_smout_unit_par_fn<T, I>>,
                 diagonal = diagonal_vector || std::is_same_v<Call, zor::dia_smout_diag_seq_fn<T, I>>,
                 some = !vector && !diagonal, pivots = !unit && !diagonal;
  const solve<T, I> q(t, s, !vector, dia);
  const zor_int main = 1 + std::lower_bound(q.a.indx, q.a.indx + q.a.count, 0) - q.a.indx,
                first = s.what.triangle == 'l' ? 1 : main + 1,
                last = s.what.triangle == 'l' ? main - 1 : q.a.count;
  t.invoke(call, when<some>(q.wanted), q.a.m, when < !vector && diagonal > (q.n), q.a.diagonals(),
           when<diagonal>(q.a.count), when<some>(nullptr), vectors<!vector>(q.y), when<!diagonal>(first),
           when<!diagonal>(last), when<pivots>(nullptr), when<pivots>(main));
  q.check(t, some);
}
#define ROW_coo_mvout_par(...) SHAPED("coo product kernel", coo_product, __VA_ARGS__)
#define ROW_coo_mvout_seq ROW_coo_mvout_par
#define ROW_coo_mmout_par ROW_coo_mvout_par
#define ROW_coo_svout_seq(...) SHAPED("coo solve kernel", coo_solve, __VA_ARGS__)
#define ROW_coo_smout_par ROW_coo_svout_seq
const row coo_rows[] = {
#include "zor/tables/spblas_coo.inc"
};
#define ROW_dia_mvout_par(...) SHAPED("dia product kernel", dia_product, __VA_ARGS__)
#define ROW_dia_mmout_par ROW_dia_mvout_par
#define ROW_dia_svout_seq(...) SHAPED("dia solve kernel", dia_solve, __VA_ARGS__)
#define ROW_dia_svout_unit_seq ROW_dia_svout_seq
#define ROW_dia_svout_diag_seq ROW_dia_svout_seq
#define ROW_dia_smout_par ROW_dia_svout_seq
#define ROW_dia_smout_unit_par ROW_dia_svout_seq
#define ROW_dia_smout_diag_seq ROW_dia_svout_seq
const row dia_rows[] = {
#include "zor/tables/spblas_dia.inc"
};
const rows coo_kernels(coo_rows), dia_kernels(dia_rows);

}  // namespace
}  // namespace zor_fuzz
