// SPDX-License-Identifier: MIT
// What the rows of the sparse kernels share. They stand in several files, so that none takes a gigabyte to
// compile.
#pragma once

#include "tests/fuzz/sparse.h"
#include "zor/signatures/spblas.h"

namespace zor_fuzz {

inline constexpr int32_t csr = ZOR_SPARSE_CSR, coo = ZOR_SPARSE_COO, dia = ZOR_SPARSE_DIA,
                         bsr = ZOR_SPARSE_BSR, sky = ZOR_SPARSE_SKY;

// A range of rows or right-hand sides, from 1 and inclusive.
struct range {
  range(trial& t, zor_int n)
      : first(t.size("first", std::max<zor_int>(n, 1), 1)),
        last(std::max<zor_int>(0, n - t.size("after", n))) {}
  auto arguments() const { return list_of(first, last); }
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
}  // namespace zor_fuzz
