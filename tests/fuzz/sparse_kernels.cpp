// SPDX-License-Identifier: MIT
// The kernels of blocks and profiles: products and solves; merges, and the search for diagonals.
#include "tests/fuzz/sparse_kernels.h"

namespace zor_fuzz {
namespace {

template <class I>
void find_diagonals(trial& t, bool lower, bool unit, zor::find_diagonals_fn<I>* call) {
  const sparse<double, I> a(t, {'t', 'l', 'n'}, 1, {dia, bool(t.draw("main", 0, 1, 0))});
  const zor_int p = 1 + std::lower_bound(a.indx, a.indx + a.count, 0) - a.indx;
  if (p > a.count) return;  // the place behind the list is read
  I* const told = t.room<I>("told", use::out, 5);
  t.invoke(call, a.indx, a.count, told, told + 1, told + 2, told + 3, told + 4);
  const bool main = a.indx[p - 1] == 0;
  const zor_int first = lower          ? 1
                        : unit || main ? p + 1
                                       : p,
                last = lower ? (main   ? p - 1
                                : unit ? p
                                       : p - 1)
                             : a.count;
  if (!main) return;
  t.expect(told[0] == std::min(first, unit ? first : zor_int(a.count)) && told[1] == last && told[4] == 0,
           "another triangle");
  t.expect(lower ? told[2] == 1 && told[3] == p : told[2] == p && told[3] == a.count, "other parts");
}

// Blocks, of which one triangle stands for both: x and y begin at the first block row of the range.
template <class T, class I, class Call>
void bsr_mvout(trial& t, const shape& s, Call* call) {
  const product<T, I> q(t, s, false, {bsr});
  const zor_int first = std::min(q.wanted.first, std::max<zor_int>(q.a.mb, 1)), shift = (first - 1) * q.a.lb;
  t.invoke(call, first, q.a.mb, nullptr, q.a.lb, q.alpha, q.a.compressed(), q.x.data() + shift,
           q.y.data() + shift);
  q.check(t, shift, q.a.m, 0, 1, q.alpha);
}
// The names outside the grammar; with base 0 blocks and dense operands are by rows.
template <class T, class I, class Call>
void bsr_stem(trial& t, char structure, int base, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::bsr_general_many_fn<T, I>>,
                 symmetric = std::is_same_v<Call, zor::bsr_symmetric_fn<T, I>>,
                 triangular = std::is_same_v<Call, zor::bsr_triangular_fn<T, I>>;
  const zor_int op = t.draw("op", 1, 2, 1), uplo = t.draw("uplo", 1, 2, 1), diag = t.draw("diag", 0, 1, 1);
  const bool transposes = structure == 'g' || structure == 't',
             has_unit = structure == 't' || structure == 'd';
  const view v = {structure, uplo == 1 ? 'l' : 'u', has_unit && diag != 1 ? 'u' : 'n'};
  product<T, I> q(t, {base, transposes && op != 1 ? 't' : 'n', v}, many || symmetric,
                  {bsr, triangular, base == 0});
  q.a.no_diagonal_blocks = symmetric && diag == 0;
  const auto blocks = list_of(q.a.lb, q.alpha) + q.a.compressed();
  if constexpr (many)
    t.invoke(call, op, q.a.mb, q.n, blocks, q.x, q.y);
  else if constexpr (symmetric)
    t.invoke(call, uplo, diag, q.a.mb, q.n, blocks, q.x, q.y);
  else if constexpr (triangular)
    t.invoke(call, op, uplo, diag, q.a.mb, nullptr, blocks, q.x.data(), nullptr, q.y.data());
  else
    t.invoke(call,
             structure == 'g'   ? op
             : structure == 'd' ? diag
                                : uplo,
             q.a.mb, nullptr, blocks, q.x.data(), nullptr, q.y.data());
  q.check(t, false);
}

// Profiles; flags that agree or not tell a triangle from its transpose.
template <class T, class I, class Call>
void sky_stem(trial& t, Call* call) {
  constexpr bool triangular = std::is_same_v<Call, zor::sky_triangular_fn<T, I>>,
                 symmetric = std::is_same_v<Call, zor::sky_symmetric_fn<T, I>>;
  const zor_int flag1 = t.draw("flag1", 0, 1, 1), flag2 = t.draw("flag2", 0, 1, 1),
                diag = t.draw("diag", 0, 1, 1);
  const bool agree = flag1 == flag2;
  const view v = {triangular ? 't' : symmetric ? 's' : 'a', 'l', diag != 0 ? 'n' : 'z'};
  const product<T, I> q(t, {1, triangular && !agree ? 't' : 'n', v}, true, {sky});
  if constexpr (triangular)
    t.invoke(call, flag1, nullptr, q.a.m, q.n, flag2, diag, q.alpha, q.a.val(), q.a.pntrb, q.x, q.y);
  else if constexpr (symmetric)
    t.invoke(call, nullptr, q.a.m, q.n, diag, q.alpha, q.a.val(), q.a.pntrb, q.x, q.y);
  else
    t.invoke(call, flag1, nullptr, q.a.m, q.n, flag2, q.alpha, q.a.val(), q.a.pntrb, q.x, q.y);
  T factor = q.alpha;
  for (size_t h = 0; h < parts<T> && !triangular && !symmetric && !agree; ++h)
    reals(&factor)[h] = -reals(&factor)[h];
  q.check(t, 0, q.a.m, 0, q.n, factor);
}
template <class T, class I>
void sky_solve(trial& t, zor::sky_solve_fn<T, I>* call) {
  const zor_int flag1 = t.draw("flag1", 0, 1, 1), flag2 = t.draw("flag2", 0, 1, 1),
                diag = t.draw("diag", 0, 1, 1);
  const solve<T, I> q(t, {1, flag1 == flag2 ? 'n' : 't', {'t', 'l', diag != 0 ? 'n' : 'u'}}, false, sky);
  t.invoke(call, flag1, nullptr, flag2, diag, q.a.m, q.a.val(), q.a.pntrb, q.y.data());
  q.check(t);
}

// y := y + the parts of work.
template <class T, class I>
void merge(trial& t, zor::merge_fn<T, I>* call) {
  const zor_int n = t.size("n", 2000);
  const range rows(t, n);
  const zor_int count = t.draw("nparts", 0, 9, 1), stride = t.leading("stride", n);
  const operand<T> work = t.matrix<T>("work", use::in, n, count, stride), y = t.vector<T>("y", use::inout, n);
  t.invoke(call, rows, count, stride, work, y);
  t.some_of(rows.last - rows.low(), 1, [&](zor_int i, zor_int) {
    const zor_int at = rows.low() + i;
    sum_of_terms s;
    s.add(y(at));
    for (zor_int p = 0; p < count; ++p) s.add(work(at, p));
    s.compare(t, y.now(at), "y", at);
  });
}

#define ROW_bsr_gemvout_par(...) SHAPED("bsr kernel", gemvout, __VA_ARGS__)
#define ROW_bsr_mvout_par(...) SHAPED("bsr kernel", bsr_mvout, __VA_ARGS__)
const row bsr_rows[] = {
#include "zor/tables/spblas_bsr.inc"
};
const rows bsr_kernels(bsr_rows);
#define ROW_BSR_GENERAL(name, T, I) {#name, [](trial& t) { bsr_stem<T, I>(t, 'g', 1, name); }},
#define ROW_BSR_GENERAL_MANY(name, T, I) {#name, [](trial& t) { bsr_stem<T, I>(t, 'g', 0, name); }},
#define ROW_BSR_SYMMETRIC(name, T, I, base) {#name, [](trial& t) { bsr_stem<T, I>(t, 's', base, name); }},
#define ROW_BSR_SKEW(name, T, I, base) {#name, [](trial& t) { bsr_stem<T, I>(t, 'a', base, name); }},
#define ROW_BSR_TRIANGULAR(name, T, I, base) {#name, [](trial& t) { bsr_stem<T, I>(t, 't', base, name); }},
#define ROW_BSR_DIAGONAL(name, T, I, base) {#name, [](trial& t) { bsr_stem<T, I>(t, 'd', base, name); }},
const rows block_stems("bsr kernel", serial,
                       {
#include "zor/tables/spblas_stems.inc"
                       });
#define ROW_SKY_TRIANGULAR(name, T, I) {#name, [](trial& t) { sky_stem<T, I>(t, name); }},
#define ROW_SKY_SKEW ROW_SKY_TRIANGULAR
#define ROW_SKY_SYMMETRIC ROW_SKY_TRIANGULAR
#define ROW_SKY_SOLVE(name, T, I) {#name, [](trial& t) { sky_solve<T, I>(t, name); }},
#define ROW_FIND_DIAGONALS(name, I, tri, diag) \
  {#name, [](trial& t) { find_diagonals<I>(t, #tri[0] == 'l', #diag[0] == 'u', name); }},
const rows profile_stems("skyline kernel", serial,
                         {
#include "zor/tables/spblas_stems.inc"
                         });
#define ROW_MERGE(name, T, I) {#name, [](trial& t) { merge<T, I>(t, name); }},
const rows services("sparse service", serial,
                    {
#include "zor/tables/spblas_service.inc"
                    });

}  // namespace
}  // namespace zor_fuzz
