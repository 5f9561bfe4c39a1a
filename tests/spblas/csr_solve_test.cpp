// SPDX-License-Identifier: MIT
// Every CSR solve against plain loops in the stated order, bit for bit.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cfenv>
#include <cmath>
#include <limits>
#include <string>

#include "serv/control.h"
#include "tests/spblas/sides.h"
#include "zor/signatures/spblas.h"

namespace {

using namespace sparse_test;
using zor_ref::ending;
using zor_ref::flat_rows;
using zor_test::same_bits;

// Fractions off the diagonal are small beside it.
template <class T>
T off_diagonal(random_bits& random) {
  T v = draw<T>(random);
  for (size_t i = 0; i < parts<T>; ++i) reals(&v)[i] /= 8;
  return v;
}
template <class T>
void append_sorted(flat_rows<T>& a, std::vector<zor_ref::entry<T>>& row) {
  std::stable_sort(row.begin(), row.end(), [](const auto& e, const auto& f) { return e.column < f.column; });
  a.start.push_back(int64_t(a.all.size()));
  a.all.insert(a.all.end(), row.begin(), row.end());
  a.end.push_back(int64_t(a.all.size()));
}

// Sorted rows around a dominant diagonal. As on a grid, neighbouring rows often have the same length and
// their entries on the same side, next to the diagonal. Some diagonals are missing, so that the neighbouring
// entry of the array is taken for the pivot, never outside the arrays.
template <class T>
flat_rows<T> triangle_rows(random_bits& random, int64_t m, int64_t longest) {
  flat_rows<T> a;
  int64_t length = 0, left = 0, right = 0;
  for (int64_t r = 1; r <= m; ++r) {
    if (r == 1 || random.between(0, 3) == 0) {
      length = random.between(0, longest);
      left = random.between(0, 2) * 10;
      right = random.between(0, 2) * 10;
    }
    std::vector<zor_ref::entry<T>> row(static_cast<size_t>(length));
    for (auto& e : row) {
      const int64_t near = random.between(0, 1) ? 1 : 20;
      e = {random.between(std::max<int64_t>(1, r - std::min(left, near)),
                          std::min(m, r + std::min(right, near))),
           off_diagonal<T>(random)};
    }
    if (r == 1 || r == m || random.between(0, 7) != 0) {
      T pivot = draw<T>(random);
      reals(&pivot)[0] += 3;
      row.push_back({r, pivot});
    }
    append_sorted(a, row);
  }
  return a;
}

// A grid of lines of `side` points, so that whole lines of rows are alike; of planes as well when they are
// shorter than the matrix. Linked lines: the end of a line has neighbours within the line before. In some
// rows an entry is moved, doubled or left out, or the row is stored apart.
struct grid {
  int64_t side, plane;
  bool linked;
  int64_t faults;
};
template <class T>
flat_rows<T> grid_rows(random_bits& random, int64_t m, const grid& g, bool lower) {
  flat_rows<T> a;
  const auto number = [&] { return off_diagonal<T>(random); };
  std::vector<int64_t> faulty;
  for (int64_t i = 0; i < g.faults; ++i) faulty.push_back(random.between(1, m));
  for (int64_t r = 1; r <= m; ++r) {
    // Upper triangles are those of the grid seen from its other end.
    const int64_t at = lower ? r : m + 1 - r, i = (at - 1) % g.side;
    std::vector<int64_t> others;
    for (const int64_t back : {g.plane, g.side, int64_t(3), int64_t(2), int64_t(1)}) {
      const bool there = back == 1 ? i > 0 : back < 4 ? g.linked && i == 0 : true;
      const bool in_plane = back != g.side || g.plane % g.side != 0 || (at - 1) % g.plane >= g.side;
      if (at > back && there && in_plane) others.push_back(lower ? r - back : r + back);
    }
    std::vector<zor_ref::entry<T>> row;
    for (const int64_t c : others) row.push_back({c, number()});
    if (std::find(faulty.begin(), faulty.end(), r) != faulty.end() && !row.empty()) {
      const size_t e = size_t(random.between(0, int64_t(row.size()) - 1));
      const int64_t fault = random.between(0, 3), away = row[e].column + (lower ? -1 : 1);
      if (fault == 0 && away >= 1 && away <= m) row[e].column = away;
      if (fault == 1) row.insert(row.begin() + int64_t(e), {row[e].column, number()});
      if (fault == 2) row.erase(row.begin() + int64_t(e));
      if (fault == 3) a.all.push_back({r, number()});
    }
    T pivot = draw<T>(random);
    reals(&pivot)[0] += 3;
    row.push_back({r, pivot});
    append_sorted(a, row);
  }
  return a;
}

template <class T, class I>
struct arrays {
  guarded<T> val;
  guarded<I> indx, pntrb, pntre;
  arrays(const flat_rows<T>& a, int base, int64_t origin)
      : val(a.all.size()), indx(a.all.size()), pntrb(a.start.size()), pntre(a.start.size()) {
    for (size_t k = 0; k < a.all.size(); ++k) {
      val[k] = a.all[k].value;
      indx[k] = I(a.all[k].column - 1 + base);
    }
    for (size_t r = 0; r < a.start.size(); ++r) {
      pntrb[r] = I(a.start[r] + origin);
      pntre[r] = I(a.end[r] + origin);
    }
  }
  auto arguments() const { return zor_test::list_of(val.data(), indx.data(), pntrb.data(), pntre.data()); }
};

struct system_size {
  int64_t m;
  int64_t longest;  // row of a random triangle
  int64_t origin;   // first row pointer
  grid on = {0, 0, false, 0};
};
const system_size all_sizes[] = {
    {.m = 1, .longest = 2, .origin = 1},
    {.m = 2, .longest = 3, .origin = 0},
    {.m = 9, .longest = 4, .origin = 5},
    {.m = 60, .longest = 9, .origin = 1},
    {.m = 300, .longest = 4, .origin = 1},
    {.m = 4001, .longest = 1, .origin = 0},
    {.m = 20001, .longest = 1, .origin = 1},
    {.m = 400, .longest = 0, .origin = 1, .on = {.side = 8, .plane = 400, .linked = false, .faults = 0}},
    {.m = 415, .longest = 0, .origin = 0, .on = {.side = 29, .plane = 920, .linked = false, .faults = 0}},
    {.m = 416, .longest = 0, .origin = 1, .on = {.side = 26, .plane = 520, .linked = false, .faults = 1}},
    {.m = 600, .longest = 0, .origin = 1, .on = {.side = 24, .plane = 600, .linked = false, .faults = 3}},
    {.m = 625, .longest = 0, .origin = 3, .on = {.side = 25, .plane = 125, .linked = false, .faults = 0}},
    {.m = 700, .longest = 0, .origin = 1, .on = {.side = 10, .plane = 100, .linked = false, .faults = 2}},
    {.m = 300, .longest = 0, .origin = 1, .on = {.side = 26, .plane = 300, .linked = true, .faults = 0}},
    {.m = 310, .longest = 0, .origin = 1, .on = {.side = 26, .plane = 39, .linked = false, .faults = 0}},
    {.m = 2100, .longest = 0, .origin = 1, .on = {.side = 410, .plane = 2100, .linked = false, .faults = 0}},
    {.m = 1700, .longest = 0, .origin = 0, .on = {.side = 405, .plane = 1700, .linked = false, .faults = 1}}};

template <class T>
flat_rows<T> rows_of(random_bits& random, const shape& s, const system_size& z) {
  if (z.on.side == 0) return triangle_rows<T>(random, z.m, z.longest);
  return grid_rows<T>(random, z.m, z.on, s.triangle != 'u');
}

template <class T, class I>
void check_svout(const char* name, const shape& s, zor::csr_svout_seq_fn<T, I>* f) {
  for (const system_size& z : all_sizes) {
    random_bits random{uint64_t(z.m)};
    const auto rows = rows_of<T>(random, s, z);
    const arrays<T, I> a(rows, s.base, z.origin);
    sides<T> y(random, z.m, 1, false, 0);
    const T alpha = draw<T>(random);
    check_columns(
        name, {1, 1, 1}, y, y,
        [&](const auto&, const auto& x) { zor_ref::csr_solve(s, rows, ending::division, alpha, x); },
        [&] { pass(f, z.m, alpha, a, y.all); });
  }
}

// Memory of the process is held below what a workspace of INT32_MAX elements takes, so that it is refused.
class short_memory {
 public:
  short_memory() {
    getrlimit(RLIMIT_AS, &before_);
    rlimit now = before_;
    now.rlim_cur = rlim_t(6) << 30;
    setrlimit(RLIMIT_AS, &now);
  }
  ~short_memory() { setrlimit(RLIMIT_AS, &before_); }

 private:
  rlimit before_{};
};

template <class T, class I, class Call>
void check_solves(const std::string& name, const shape& s, const flat_rows<T>& rows, const flat_rows<T>& seen,
                  int64_t origin, const columns& n, ending how, const Call& call) {
  random_bits random(77);
  const arrays<T, I> a(rows, s.base, origin);
  sides<T> c(random, int64_t(rows.start.size()), n.n, s.base == 0, 2);
  const T alpha = draw<T>(random);
  check_columns(
      name, n, c, c, [&](const auto&, const auto& x) { zor_ref::csr_solve(s, seen, how, alpha, x); },
      [&] { call(alpha, a, c); });
}

template <class T, class I>
void check_smout(const char* name, const shape& s, zor::csr_smout_par_fn<T, I>* f) {
  const columns all_columns[] = {{.n = 1, .first = 1, .last = 1},
                                 {.n = 6, .first = 2, .last = 5},
                                 {.n = 21, .first = 1, .last = 21},
                                 {.n = 69, .first = 3, .last = 69},
                                 {.n = 3, .first = 3, .last = 2}};
  for (const system_size& z : all_sizes) {
    for (const columns& n : all_columns) {
      if ((z.m > 100 && n.n > 6) || z.on.side != 0) continue;
      random_bits random{uint64_t(z.m)};
      const auto rows = triangle_rows<T>(random, z.m, z.longest);
      check_solves<T, I>(name, s, rows, rows, z.origin, n, ending::reciprocal,
                         [&](T alpha, auto& a, auto& c) { pass(f, n.first, n.last, z.m, n.n, alpha, a, c); });
    }
  }
}

// Lower solves whose workspace is refused. The 1-based members then take row pointers for positions.
template <class T, class I>
void check_refused_workspace(const char* name, const shape& s, zor::csr_smout_par_fn<T, I>* f) {
  if (s.triangle != 'l' || !(s.op == 'n' || s.op == 's')) return;
  random_bits random(3);
  flat_rows<T> rows = triangle_rows<T>(random, 60, 9);
  const int64_t origin = 1;
  rows.all.push_back({1, draw<T>(random)});
  rows.all.push_back({60, draw<T>(random)});
  flat_rows<T> seen = rows;
  if (s.base == 1) {
    for (int64_t& k : seen.start) k += origin;
    for (int64_t& k : seen.end) k += origin;
  }
  const columns n = {.n = 5, .first = 2, .last = 4};
  check_solves<T, I>(name, s, rows, seen, origin, n, ending::division, [&](T alpha, auto& a, auto& c) {
    const short_memory limit;
    pass(f, n.first, n.last, 60, INT32_MAX, alpha, a, c);
  });
}

TEST(CsrSolve, OneRightHandSide){
#define ROW_csr_svout_seq(...) BY_SHAPE(check_svout, __VA_ARGS__)
#include "zor/tables/spblas_csr.inc"
}

TEST(CsrSolve, ManyRightHandSides){
#define ROW_csr_smout_par(...) BY_SHAPE(check_smout, __VA_ARGS__)
#include "zor/tables/spblas_csr.inc"
}

TEST(CsrSolve, RefusedWorkspace) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the address sanitizer does not survive a limit on memory";
#endif
#define ROW_csr_smout_par(...) BY_SHAPE(check_refused_workspace, __VA_ARGS__)
#include "zor/tables/spblas_csr.inc"
}

// A zero pivot divides: infinity, not a refusal.
template <class T, class I>
void check_zero_pivot(const char* name, zor::csr_svout_seq_fn<T, I>* f) {
  if constexpr (parts<T> == 1) {
    const T val[] = {0};
    const I base = std::string(name).find("csr1") != std::string::npos, indx[] = {base}, pntrb[] = {0},
            pntre[] = {1};
    T y[] = {3};
    pass(f, 1, 1, val, indx, pntrb, pntre, y);
    EXPECT_TRUE(std::isinf(y[0])) << name;
  }
}

// A solved zero pushes 0 - x = +0, so that the negative zero it meets comes out positive.
template <class T, class I>
void check_pushed_zero(const char* name, const shape& s, zor::csr_svout_seq_fn<T, I>* f) {
  if (s.structure != 't' || (s.op != 't' && s.op != 'c')) return;
  const bool lower = s.triangle == 'l';
  const T u = zor_ref::unity<T>(), val[] = {u, u, u};
  const I lower_columns[] = {0, 0, 1}, upper_columns[] = {0, 1, 1};
  const I pntrb[] = {0, lower ? I(1) : I(2)}, pntre[] = {lower ? I(1) : I(2), 3};
  I indx[3];
  for (int k = 0; k < 3; ++k) indx[k] = (lower ? lower_columns[k] : upper_columns[k]) + I(s.base);
  T y[2] = {};
  reals(y + (lower ? 0 : 1))[0] = real<T>(-0.0);
  pass(f, 2, u, val, indx, pntrb, pntre, y);
  EXPECT_FALSE(std::signbit(reals(y + (lower ? 0 : 1))[0])) << name;
}

TEST(CsrSolve, SignOfPushedZero) {
#define ROW_csr_svout_seq(...) BY_SHAPE(check_pushed_zero, __VA_ARGS__)
#include "zor/tables/spblas_csr.inc"
}

// Rows without entries off the diagonal have nothing to push. Not even a subnormal right-hand side is then
// touched: a flag for a denormal operand would have no cause.
template <class T, class I>
void check_nothing_pushed(const char* name, const shape& s, zor::csr_smout_par_fn<T, I>* f) {
  if (s.structure != 't' || s.diagonal != 'u' || !(s.op == 't' || s.op == 'c')) return;
  constexpr I m = 3, n = 21;
  const T alpha = zor_ref::unity<T>(), val[] = {alpha};
  const I indx[] = {I(1 + s.base)}, pntrb[] = {0, 0, 1}, pntre[] = {0, 1, 1}, ldc = s.base == 0 ? n : m;
  std::vector<T> c(size_t(m * n));
  for (size_t i = 0; i < c.size() * parts<T>; ++i)
    reals(c.data())[i] = std::numeric_limits<real<T>>::min() / 4;
  const std::vector<T> before = c;
  const zor::control_word control = zor::read_control() & ~zor::exception_flags;
  zor::write_control(control);
  pass(f, 1, n, m, n, alpha, val, indx, pntrb, pntre, c, ldc);
  EXPECT_EQ(control, zor::read_control()) << name;
  EXPECT_TRUE(same_bits(reals(before.data()), reals(c.data()), c.size() * parts<T>)) << name;
}

TEST(CsrSolve, RowsAloneRaiseNoFlag){
#define ROW_csr_smout_par(...) BY_SHAPE(check_nothing_pushed, __VA_ARGS__)
#include "zor/tables/spblas_csr.inc"
}

TEST(CsrSolve, ZeroPivotGivesInfinity) {
#define ROW_csr_svout_seq(name, T, I, base, op, form, tri, diag) \
  if (#diag[0] == 'n') check_zero_pivot<T, I>(#name, name);
#include "zor/tables/spblas_csr.inc"
}

}  // namespace
