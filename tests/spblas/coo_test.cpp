// SPDX-License-Identifier: MIT
// Every product and solve of a matrix in coordinates against plain loops in the stated order, bit for bit.
#include <gtest/gtest.h>

#include "tests/ref/coo.h"
#include "tests/spblas/sides.h"
#include "tests/support/zalloc.h"
#include "zor/serv.h"
#include "zor/signatures/spblas.h"

namespace {

using namespace sparse_test;
using zor_ref::triple_list;

struct sizes {
  int64_t m, k, nnz;  // k is that of the general view; the others are square
  bool by_rows;       // entries come row after row
};
const sizes all_sizes[] = {{.m = 1, .k = 1, .nnz = 3, .by_rows = false},
                           {.m = 3, .k = 5, .nnz = 0, .by_rows = false},
                           {.m = 7, .k = 3, .nnz = 20, .by_rows = true},
                           {.m = 23, .k = 31, .nnz = 150, .by_rows = false},
                           {.m = 60, .k = 40, .nnz = 700, .by_rows = true}};
const columns all_columns[] = {{.n = 1, .first = 1, .last = 1},
                               {.n = 9, .first = 2, .last = 8},
                               {.n = 37, .first = 1, .last = 37},
                               {.n = 4, .first = 3, .last = 2}};

template <class T>
triple_list<T> random_triples(random_bits& random, int64_t m, int64_t k, int64_t nnz, bool by_rows) {
  triple_list<T> list;
  for (int64_t e = 0; e < nnz; ++e) {
    const int64_t row = random.between(1, m);
    const bool diagonal = random.between(0, 4) == 0 && row <= k;
    list.push_back({row, diagonal ? row : random.between(1, k), draw<T>(random)});
  }
  if (by_rows)
    std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.row < b.row; });
  return list;
}

// The entries of a solve: as above, small, and a dominant diagonal in every row, in some rows behind a first
// one that does not count.
template <class T>
triple_list<T> random_system(random_bits& random, int64_t m, int64_t nnz, bool by_rows) {
  auto list = random_triples<T>(random, m, m, nnz, by_rows);
  for (auto& e : list)
    for (size_t i = 0; i < parts<T>; ++i) reals(&e.value)[i] /= 8;
  for (int64_t r = m; r >= 1; --r) {
    T pivot = draw<T>(random);
    reals(&pivot)[0] += 3;
    const auto behind =
        std::find_if(list.rbegin(), list.rend(), [&](const auto& e) { return e.row == r && e.column == r; });
    const int64_t least = list.rend() - behind, place = random.between(least, int64_t(list.size()));
    list.insert(list.begin() + place, {r, r, pivot});
  }
  return list;
}

template <class T, class I>
struct coo_arrays {
  guarded<T> val;
  guarded<I> rowind, colind;
  coo_arrays(const triple_list<T>& list, int base)
      : val(list.size()), rowind(list.size()), colind(list.size()) {
    for (size_t e = 0; e < list.size(); ++e) {
      val[e] = list[e].value;
      rowind[e] = I(list[e].row - 1 + base);
      colind[e] = I(list[e].column - 1 + base);
    }
  }
  auto arguments() { return zor_test::list_of(val.data(), rowind.data(), colind.data()); }
};

// Entries first to last of a product. call(alpha, arrays, b, c).
template <class T, class I, class Call>
void check_product(const char* name, const shape& s, const sizes& z, int64_t first, int64_t last,
                   const columns& n, bool row_major, const Call& call) {
  random_bits random(uint64_t(z.m * 1000 + first + n.n));
  const int64_t k = s.structure == 'g' ? z.k : z.m;
  const auto list = random_triples<T>(random, z.m, k, z.nnz, z.by_rows);
  coo_arrays<T, I> a(list, s.base);
  sides<T> b(random, k, n.n, row_major, 2), c(random, z.m, n.n, row_major, 3);
  const T alpha = draw<T>(random);
  const triple_list<T> taken(list.begin() + (first - 1), list.begin() + std::max(last, first - 1));
  const bool empty = last < first && s.structure != 'd' && z.nnz > 0;
  check_columns(
      named(name, {{"entries from", first}, {"to", last}}), n, b, c,
      [&](const auto& x, const auto& y) {
        if (!empty) zor_ref::coo_product(s, taken, z.m, alpha, x, y);
      },
      [&] { call(alpha, a, b, c); });
}

// Arguments that a kernel does not read are null.
template <class X>
const X* unless(bool unread, const X& x) {
  return unread ? nullptr : &x;
}
template <class T, class I>
void check_mvout_par(const char* name, const shape& s, zor::coo_mvout_par_fn<T, I>* f) {
  const bool ranged = (s.structure == 'g' && s.base == 1) || (s.structure != 'g' && s.structure != 't');
  for (const sizes& z : all_sizes) {
    const int64_t ranges[][2] = {{1, z.nnz}, {(z.nnz + 2) / 3, z.nnz}, {z.nnz / 2, z.nnz / 2}, {2, 1}};
    for (const auto& r : ranges) {
      if (&r != &ranges[0] && (!ranged || z.nnz < 1)) continue;
      const I first = I(r[0]), last = I(r[1]), m = I(z.m), nnz = I(z.nnz);
      const bool unit = s.diagonal == 'u';
      check_product<T, I>(name, s, z, first, last, {1, 1, 1}, false, [&](T alpha, auto& a, auto& x, auto& y) {
        pass(f, unless(!ranged, first), unless(!ranged, last), unless(!unit, m), nullptr, alpha, a,
             unless(ranged && !unit, nnz), x.all, y.all);
      });
    }
  }
}

template <class T, class I>
void check_mvout_seq(const char* name, const shape& s, zor::coo_mvout_seq_fn<T, I>* f) {
  for (const sizes& z : all_sizes) {
    const I m = I(z.m), nnz = I(z.nnz);
    check_product<T, I>(name, s, z, 1, nnz, {1, 1, 1}, false, [&](T alpha, auto& a, auto& x, auto& y) {
      pass(f, unless(s.diagonal != 'u', m), nullptr, alpha, a, unless(s.diagonal == 'u', nnz), x.all, y.all);
    });
  }
}

template <class T, class I>
void check_mmout_par(const char* name, const shape& s, zor::coo_mmout_par_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const columns& n : all_columns)
      check_product<T, I>(name, s, z, 1, z.nnz, n, s.base == 0, [&](T alpha, auto& a, auto& b, auto& c) {
        pass(f, n.first, n.last, z.m, nullptr, alpha, a, z.nnz, b, c);
      });
}

TEST(CooProduct, Views) {
#define ROW_coo_mvout_par(...) BY_SHAPE(check_mvout_par, __VA_ARGS__)
#define ROW_coo_mvout_seq(...) BY_SHAPE(check_mvout_seq, __VA_ARGS__)
#define ROW_coo_mmout_par(...) BY_SHAPE(check_mmout_par, __VA_ARGS__)
#include "zor/tables/spblas_coo.inc"
}

// Solves right-hand sides of one system. With `scans` the solve is the one without memory.
template <class T, class I, class Call>
void check_solve(const char* name, const shape& s, const sizes& z, const columns& n, bool row_major,
                 bool scans, const Call& call) {
  random_bits random(uint64_t(z.m * 100 + n.n));
  const auto list = random_system<T>(random, z.m, z.nnz, z.by_rows);
  coo_arrays<T, I> a(list, s.base);
  sides<T> x(random, z.m, n.n, row_major, 2);
  check_columns(
      name, n, x, x,
      [&](const auto&, const auto& out) {
        scans ? zor_ref::coo_scans(s, list, z.m, out) : zor_ref::coo_solve(s, list, z.m, out);
      },
      [&] { call(a, list.size(), x); });
}

template <class T, class I>
void check_svout(const char* name, const shape& s, zor::coo_svout_seq_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    check_solve<T, I>(name, s, z, {1, 1, 1}, false, false, [&](auto& a, size_t nnz, auto& y) {
      pass(f, z.m, nullptr, nullptr, a, nnz, nullptr, y.all);
    });
}
template <class T, class I>
void check_smout(const char* name, const shape& s, zor::coo_smout_par_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const columns& n : all_columns)
      check_solve<T, I>(name, s, z, n, s.base == 0, false, [&](auto& a, size_t nnz, auto& c) {
        pass(f, n.first, n.last, z.m, nullptr, nullptr, a, nnz, c);
      });
}

TEST(CooSolve, OneAndManyRightHandSides) {
#define ROW_coo_svout_seq(...) BY_SHAPE(check_svout, __VA_ARGS__)
#define ROW_coo_smout_par(...) BY_SHAPE(check_smout, __VA_ARGS__)
#include "zor/tables/spblas_coo.inc"
}

// Each request of a triangular solve fails once: the entries are then scanned for every row, and all memory
// comes back. Four requests, five with a stored diagonal, behind the first one of all, which is the pool's
// own and without which it serves requests one by one.
template <class T, class I>
void check_short_memory(const char* name, const shape& s, zor::coo_smout_par_fn<T, I>* f) {
  if (s.structure == 'd') return;
  const uint64_t requests = s.diagonal == 'u' ? 4 : 5;
  for (uint64_t nth = 1; nth <= requests + 2; ++nth) {
    check_solve<T, I>(name, s, {23, 23, 150, false}, {5, 2, 4}, s.base == 0, nth > 1 && nth <= requests + 1,
                      [&](auto& a, size_t nnz, auto& c) {
                        zor_serv_freebuffers();
                        zalloc_reset();
                        zalloc_fail(nth, false);
                        pass(f, 2, 4, 23, nullptr, nullptr, a, nnz, c);
                        zalloc_fail(0, false);
                      });
    zor_serv_freebuffers();
    EXPECT_EQ(0, zalloc_live_blocks()) << name << ", request " << nth;
  }
}
TEST(CooSolve, ShortMemory){
#define ROW_coo_smout_par(...) BY_SHAPE(check_short_memory, __VA_ARGS__)
#include "zor/tables/spblas_coo.inc"
}

// The place of a missing diagonal entry is what the memory held: here that of entry 0.
TEST(CooSolve, MissingDiagonalReadsWhatMemoryHeld) {
  const int64_t m = 40, nnz = 1, row[] = {2}, column[] = {1};
  const double val[] = {4};
  void* const block = zor_serv_allocate(uint64_t(m) * sizeof(int64_t), 128);
  std::memset(block, 0, size_t(m) * sizeof(int64_t));
  zor_serv_deallocate(block);
  std::vector<double> y(size_t(m), 8);
  pass(zor_spblas_dcoo1ntlnf__svout_seq, m, nullptr, nullptr, val, row, column, nnz, nullptr, y);
  EXPECT_EQ(2, y[0]);
  EXPECT_EQ(0, y[1]);  // (8 - 4 * 2) / 4
  EXPECT_EQ(2, y[39]);
}

}  // namespace
