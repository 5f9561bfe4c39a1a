// SPDX-License-Identifier: MIT
// The sparse kernels of every name and format: products and solves.
#include "tests/fuzz/sparse.h"
#include "zor/signatures/spblas.h"

namespace zor_fuzz {
namespace {

constexpr int32_t csr = ZOR_SPARSE_CSR, coo = ZOR_SPARSE_COO, dia = ZOR_SPARSE_DIA, bsr = ZOR_SPARSE_BSR,
                  sky = ZOR_SPARSE_SKY;

// A range of rows or right-hand sides, from 1 and inclusive.
struct range {
  range(trial& t, zor_int n)
      : first(t.size("first", std::max<zor_int>(n, 1), 1)),
        last(std::max<zor_int>(0, n - t.size("after", n))) {}
  auto arguments() const { return std::tuple(first, last); }
  zor_int low() const { return std::min<zor_int>(first - 1, last); }
  zor_int first, last;
};

// y := y + alpha op(A) x, of one vector or of many.
template <class T, class I>
struct product {
  product(trial& t, const shape& of, bool many, const form& as)
      : s(of),
        a(t, s.what, s.base, as),
        flip(s.flip(as.format == dia)),
        n(many ? t.size("n", 60) : 1),
        alpha(t.scalar<T>("alpha")),
        wanted(t, n),
        x(t, "x", use::in, flip ? a.m : a.k, n, rows_first(as, many)),
        y(t, "y", use::inout, flip ? a.k : a.m, n, x.by_rows) {}
  // Right-hand sides by rows; one of blocks alone is a vector.
  bool rows_first(const form& as, bool many) const {
    return as.format == bsr ? as.by_rows && n > 1 : many && s.base == 0 && as.format != dia;
  }
  void check(trial& t, zor_int row_first, zor_int row_last, zor_int n_first, zor_int n_last, T factor) const {
    check_product(t, a, flip, s.conjugate(), row_first, row_last, factor, x, y, n_first, n_last,
                  [&](zor_int i, zor_int j) { return y(i, j); });
  }
  // Of the wanted right-hand sides, or of all.
  void check(trial& t, bool some) const {
    check(t, 0, a.m, some ? wanted.low() : 0, some ? wanted.last : n, alpha);
  }

  shape s;
  sparse<T, I> a;
  bool flip;
  zor_int n;
  T alpha;
  range wanted;
  sides<T> x, y;
};

// y := op(A)^-1 y.
template <class T, class I>
struct solve {
  solve(trial& t, const shape& of, bool many, int32_t format)
      : s(of),
        a(t, s.what, s.base, {format, true, false, format == csr}),
        n(many ? t.size("n", 60) : 1),
        wanted(t, n),
        y(t, "y", use::inout, a.m, n, many && s.base == 0 && format != dia) {}
  void check(trial& t, bool some = false, T alpha = zor_test::scalar<T>(1, 0)) const {
    check_solve(t, a, s.flip(), s.conjugate(), alpha, y, y, some ? wanted.low() : 0, some ? wanted.last : n);
  }
  shape s;
  sparse<T, I> a;
  zor_int n;
  range wanted;
  sides<T> y;
};

template <class T, class I, class Call>
void csr_mvout(trial& t, const shape& s, Call* call) {
  constexpr bool whole = std::is_same_v<Call, zor::csr_mvout_seq_fn<T, I>>;
  product<T, I> q(t, s, false, {csr, false, false, true});
  const zor_int last = q.a.m, first = whole ? 1 : std::min(q.wanted.first, std::max<zor_int>(last, 1));
  // These names take vectors that begin at the first row of the range.
  const bool relative = s.op == 'n' && s.what.structure == 's' && s.what.diagonal == 'n';
  const zor_int shift = relative && first <= last ? first - 1 : 0;
  t.invoke(call, when<!whole>(first), when<!whole>(last), q.a.m, q.alpha, q.a.compressed(),
           q.x.data() + shift, q.y.data() + shift);
  q.check(t, std::min(first - 1, last), last, 0, 1, q.alpha);
}
template <class T, class I, class Call>
void csr_mmout(trial& t, const shape& s, Call* call) {
  constexpr bool some = std::is_same_v<Call, zor::csr_mmout_par_fn<T, I>>;
  const product<T, I> q(t, s, true, {csr, false, false, true});
  t.invoke(call, when<some>(q.wanted), q.a.m, q.n, q.alpha, q.a.compressed(), q.x, q.y);
  q.check(t, some);
}

// Plain products with rows that follow one another, of entries and of blocks: y := A x.
template <class T, class I, class Call>
void gemvout(trial& t, const shape& s, Call* call) {
  constexpr bool blocks = std::is_same_v<Call, zor::bsr_gemvout_par_fn<T, I>>;
  const sparse<T, I> a(t, s.what, s.base, {blocks ? bsr : csr});
  const range rows(t, a.mb);
  const auto x = t.vector<T>("x", use::in, a.k), y = t.vector<T>("y", use::inout, a.m);
  if constexpr (blocks)
    t.invoke(call, rows, nullptr, a.lb, nullptr, a.val(), a.indx, a.pntrb, nullptr, x, y);
  else
    t.invoke(call, rows, nullptr, nullptr, a.val(), a.indx, a.pntrb, nullptr, x, y);
  for (zor_int i = 0; i < a.m; ++i)
    if (i < rows.low() * a.lb || i >= rows.last * a.lb) t.near(y.now(i), y(i), 0, 0, "y", i);
  const auto zero = [](zor_int, zor_int) { return wide(0); };
  if (rows.low() == 0 && rows.last == a.mb)
    check_product(t, a, false, false, 0, a.m, zor_test::scalar<T>(1, 0), x, y, 0, 1, zero);
}

template <class T, class I, class Call>
void csr_solve(trial& t, const shape& s, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::csr_smout_par_fn<T, I>>;
  const solve<T, I> q(t, s, many, csr);
  const T alpha = t.scalar<T>("alpha");
  t.invoke(call, when<many>(q.wanted), q.a.m, when<many>(q.n), alpha, q.a.compressed(), vectors<many>(q.y));
  q.check(t, many, s.what.structure == 'd' ? alpha : zor_test::scalar<T>(1, 0));
}

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
  const bool turns = structure == 'g' || structure == 't', has_unit = structure == 't' || structure == 'd';
  const view v = {structure, uplo == 1 ? 'l' : 'u', has_unit && diag != 1 ? 'u' : 'n'};
  product<T, I> q(t, {base, turns && op != 1 ? 't' : 'n', v}, many || symmetric,
                  {bsr, triangular, base == 0});
  q.a.no_diagonal_blocks = symmetric && diag == 0;
  const several blocks{std::tuple_cat(std::tuple(q.a.lb, q.alpha), q.a.compressed().arguments())};
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

// Names of the grammar: one body for each pair of types, so that thousands of rows compile to data.
template <class Call>
void run_shaped(trial& t, void (*body)(trial&, const shape&, Call*)) {
  const auto [base, op, structure, triangle, diagonal] = t.what().letters;
  body(t, {base - '0', op, {structure, triangle, diagonal}}, reinterpret_cast<Call*>(t.what().routine));
}
template <auto Body>
void shaped(trial& t) {
  run_shaped(t, Body);
}
#define SHAPED(group, body, name, T, I, base, op, structure, tri, diag) \
  {#name,  shaped<&body<T, I, decltype(name)>>, group,                  \
   serial, reinterpret_cast<void (*)()>(name),  {#base[0], #op[0], #structure[0], #tri[0], #diag[0]}},
#define ROW_csr_mvout_par(...) SHAPED("csr mv kernel", csr_mvout, __VA_ARGS__)
#define ROW_csr_mvout_seq ROW_csr_mvout_par
#define ROW_csr_gemvout_par(...) SHAPED("csr mv kernel", gemvout, __VA_ARGS__)
#define ROW_csr_mmout_par(...) SHAPED("csr mm kernel", csr_mmout, __VA_ARGS__)
#define ROW_csr_mmout_seq ROW_csr_mmout_par
#define ROW_csr_svout_seq(...) SHAPED("csr solve kernel", csr_solve, __VA_ARGS__)
#define ROW_csr_smout_par ROW_csr_svout_seq
const row csr_rows[] = {
#include "zor/tables/spblas_csr.inc"
};
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
#define ROW_bsr_gemvout_par(...) SHAPED("bsr kernel", gemvout, __VA_ARGS__)
#define ROW_bsr_mvout_par(...) SHAPED("bsr kernel", bsr_mvout, __VA_ARGS__)
const row bsr_rows[] = {
#include "zor/tables/spblas_bsr.inc"
};
const rows csr_kernels(csr_rows), coo_kernels(coo_rows), dia_kernels(dia_rows), bsr_kernels(bsr_rows);
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
