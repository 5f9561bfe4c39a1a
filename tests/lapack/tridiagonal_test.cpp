// SPDX-License-Identifier: MIT
// Tridiagonal factorisations and solves against plain loops: bits, flags and info. That solutions satisfy
// their equations, the tests of the public entries see.
#include <algorithm>
#include <cstdlib>

#include "tests/lapack/twin.h"
#include "tests/ref/lapack.h"
#include "tests/support/zalloc.h"
#include "zor/signatures/lapack.h"

namespace {

using namespace zor_test;

// The allocator sees every request for scratch memory.
[[maybe_unused]] const int pool_off = setenv("ZOR_DISABLE_FAST_MM", "1", 1);

constexpr zor_int orders[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 21, 40};
constexpr zor_int columns[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 16, 17};

// What may stand on the diagonal.
enum class pivots { dominant, plain, one_zero, one_nan };

template <class T>
struct system {
  system(zor_int n, zor_int nrhs, size_t iteration, pivots kind, random_bits& random)
      : ldb(std::max<zor_int>(n, 1) + zor_int(iteration % 3)),
        where(placements[iteration % std::size(placements)]),
        dl(n > 1 ? size_t(n - 1) : 0, where, random),
        d(size_t(n), where, random),
        du(n > 1 ? size_t(n - 1) : 0, where, random),
        b(span(n, nrhs, ldb), where, random, iteration % 5 == 4 ? content::special : content::plain) {
    using R = real<T>;
    if (kind == pivots::dominant)
      for (size_t i = 0; i < size_t(n); ++i) d.set(i * parts<T>, R(3 + 0.25 * double(i % 7)));
    if (n < 1 || kind == pivots::plain || kind == pivots::dominant) return;
    const size_t row = size_t(random.between(0, n - 1));
    // Alone in its row and column, the element is the pivot, whatever was eliminated before it.
    for (size_t h = 0; h < parts<T>; ++h) {
      d.set(row * parts<T> + h,
            kind == pivots::one_zero || h == 0 ? (kind == pivots::one_nan ? R(NAN) : R(0)) : R(2));
      if (row > 0) dl.set((row - 1) * parts<T> + h, 0);
      if (row + 1 < size_t(n)) dl.set(row * parts<T> + h, 0);
    }
  }
  const zor_int ldb;
  const placement where;
  twin<T> dl, d, du, b;
};

// Calls check(n, nrhs, iteration, kind) for all sizes and diagonals.
template <class Check>
void for_systems(const Check& check) {
  size_t iteration = 0;
  for (const zor_int n : orders)
    for (const zor_int nrhs : columns)
      for (const pivots kind : {pivots::dominant, pivots::plain, pivots::one_zero, pivots::one_nan})
        check(n, nrhs, ++iteration, kind);
}

template <class T>
void check_factor(const char* name, zor::dttrfb_fn<T>* kernel) {
  random_bits random(4);
  for_systems([&](zor_int n, zor_int, size_t iteration, pivots kind) {
    system<T> s(n, 0, iteration, kind, random);
    zor_int info[2] = {-7, -7};
    EXPECT_TRUE(agree(
        [&](bool k) {
          if (k)
            kernel(&n, s.dl(k), s.d(k), s.du(k), &info[1]);
          else
            info[0] = zor_ref::dttrfb(n, s.dl(k), s.d(k), s.du(k));
        },
        s.dl, s.d, s.du))
        << name << " n " << n << " kind " << int(kind);
    EXPECT_EQ(info[0], info[1]) << name << " n " << n << " kind " << int(kind);
  });
}

template <class T>
void check_solve(const char* name, zor::dttrsb_fn<T>* kernel) {
  random_bits random(5);
  for_systems([&](zor_int n, zor_int nrhs, size_t iteration, pivots kind) {
    const char trans = "NnTtCcx"[iteration % 7];
    system<T> s(n, nrhs, iteration, kind, random);
    zor_int info = -7;
    EXPECT_TRUE(agree(
        [&](bool k) {
          if (k)
            kernel(&trans, &n, &nrhs, s.dl(k), s.d(k), s.du(k), s.b(k), &s.ldb, &info);
          else
            zor_ref::dttrsb(trans, n, nrhs, s.dl(k), s.d(k), s.du(k), s.b(k), s.ldb);
        },
        s.b, s.dl, s.d, s.du))
        << name << " " << trans << " n " << n << " nrhs " << nrhs << " kind " << int(kind);
    EXPECT_EQ(info, 0);
  });
}

template <class T>
void check_both(const char* name, zor::dtsvb_fn<T>* kernel) {
  random_bits random(6);
  for_systems([&](zor_int n, zor_int nrhs, size_t iteration, pivots kind) {
    system<T> s(n, nrhs, iteration, kind, random);
    zor_int info[2] = {-7, -7};
    EXPECT_TRUE(agree(
        [&](bool k) {
          if (k)
            kernel(&n, &nrhs, s.dl(k), s.d(k), s.du(k), s.b(k), &s.ldb, &info[1]);
          else
            info[0] = zor_ref::dtsvb(n, nrhs, s.dl(k), s.d(k), s.du(k), s.b(k), s.ldb);
        },
        s.b, s.dl, s.d, s.du))
        << name << " n " << n << " nrhs " << nrhs << " kind " << int(kind);
    EXPECT_EQ(info[0], info[1]) << name << " n " << n << " nrhs " << nrhs << " kind " << int(kind);
  });
}

TEST(DominantTridiagonal, BitsFlagsAndInfoOfThePlainLoops) {
#define ROW_DTTRFB(name, T) check_factor<T>(#name, name);
#define ROW_DTTRSB(name, T) check_solve<T>(#name, name);
#define ROW_DTSVB(name, T) check_both<T>(#name, name);
#include "zor/tables/lapack.inc"
}

// ---- Solves with factors made elsewhere.

zor_int grouped(zor_int nrhs, bool memory) { return memory && nrhs >= 4 ? nrhs / 4 * 4 : 0; }

template <class T>
void check_gtts2(const char* name, zor::gtts2_fn<T>* kernel, bool memory) {
  random_bits random(8);
  for_systems([&](zor_int n, zor_int nrhs, size_t iteration, pivots kind) {
    system<T> s(n, nrhs, iteration, kind, random);
    twin<T> du2(n > 2 ? size_t(n - 2) : 0, s.where, random);
    guarded<zor_int> ipiv(size_t(std::max<zor_int>(n, 0)));
    for (zor_int i = 0; i < n; ++i) ipiv[size_t(i)] = i + 1 + (i + 1 < n && random.next() % 3 == 0);
    const zor_int itrans = zor_int(iteration % 3);
    EXPECT_TRUE(agree(
        [&](bool k) {
          if (k)
            kernel(&itrans, &n, &nrhs, s.dl(k), s.d(k), s.du(k), du2(k), ipiv.data(), s.b(k), &s.ldb);
          else
            zor_ref::gtts2(itrans, n, nrhs, grouped(nrhs, memory), s.dl(k), s.d(k), s.du(k), du2(k),
                           ipiv.data(), s.b(k), s.ldb);
        },
        s.b, s.dl, s.d, s.du, du2))
        << name << " itrans " << itrans << " n " << n << " nrhs " << nrhs << " kind " << int(kind);
  });
}

template <class T, class Kernel>
void check_ptts2(const char* name, const Kernel& kernel, bool memory) {
  random_bits random(9);
  for_systems([&](zor_int n, zor_int nrhs, size_t iteration, pivots kind) {
    system<real<T>> diagonal(n, 0, iteration, kind, random);
    system<T> s(n, nrhs, iteration, pivots::plain, random);
    const zor_int iuplo = zor_int(iteration % 3);
    EXPECT_TRUE(agree(
        [&](bool k) {
          if (k)
            kernel(&iuplo, &n, &nrhs, diagonal.d(k), s.dl(k), s.b(k), &s.ldb);
          else
            zor_ref::ptts2(iuplo, n, nrhs, grouped(nrhs, memory), diagonal.d(k), s.dl(k), s.b(k), s.ldb);
        },
        s.b, diagonal.d, s.dl))
        << name << " iuplo " << iuplo << " n " << n << " nrhs " << nrhs << " kind " << int(kind);
  });
}

void check_solves(bool memory) {
#define ROW_GTTS2(name, T) check_gtts2<T>(#name, name, memory);
#define ROW_PTTS2(name, T)                                                                    \
  check_ptts2<T>(                                                                             \
      #name,                                                                                  \
      [](const zor_int*, const zor_int* n, const zor_int* nrhs, const T* d, const T* e, T* b, \
         const zor_int* ldb) { name(n, nrhs, d, e, b, ldb); },                                \
      memory);
#define ROW_COMPLEX_PTTS2(name, T, R) check_ptts2<T>(#name, name, memory);
#include "zor/tables/lapack.inc"
}

TEST(TridiagonalSolves, BitsAndFlagsOfThePlainLoops) { check_solves(true); }

TEST(TridiagonalSolves, DivideEveryColumnWithoutMemory) {
  zalloc_reset();
  zalloc_fail(1, true);
  check_solves(false);
  EXPECT_GT(zalloc_calls(), 0u);
  zalloc_reset();
}

}  // namespace
