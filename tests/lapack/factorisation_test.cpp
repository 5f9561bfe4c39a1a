// SPDX-License-Identifier: MIT
// Small factorisations against plain loops: bits, flags, info and pivots. That the factors solve,
// the tests of the public entries see.
#include <algorithm>
#include <utility>

#include "tests/lapack/twin.h"
#include "tests/ref/lapack.h"
#include "zor/signatures/lapack.h"

namespace {

using namespace zor_test;

constexpr zor_int orders[] = {-1, 0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 18, 31, 33, 40, 130};

// A matrix in one triangle; the other one holds NaN, which nobody reads.
template <class T>
struct triangle {
  triangle(bool upper_, zor_int n_, size_t iteration, random_bits& random, content what = content::plain)
      : upper(upper_),
        n(n_),
        lda(std::max<zor_int>(n_, 1) + zor_int(iteration % 3)),
        a(span(n_, n_, lda), placements[iteration % std::size(placements)], random, what) {
    for (zor_int j = 0; j < n; ++j)
      for (zor_int i = 0; i < (j + 1 < n ? lda : n); ++i)
        if (upper ? i > j : i < j || i >= n) set(i, j, double(NAN));
  }
  void set(zor_int i, zor_int j, double value) {
    for (size_t h = 0; h < parts<T>; ++h)
      a.set(size_t(i + j * lda) * parts<T> + h, h == 0 ? real<T>(value) : real<T>(0));
  }
  void add_to_diagonal(double value) {
    for (zor_int j = 0; j < n; ++j)
      a.set(size_t(j + j * lda) * parts<T>, part(a(false)[j + j * lda], 0) + real<T>(value));
  }

  const bool upper;
  const zor_int n, lda;
  twin<T> a;
};

// ---- Cholesky.

template <class T>
void check_potrf(const char* name, zor::potrf_small_fn<T>* kernel, bool upper) {
  random_bits random(11);
  size_t iteration = 0;
  for (const zor_int n : orders)
    for (const char* kind : {"definite", "definite", "indefinite", "special"}) {
      triangle<T> m(upper, n, ++iteration, random, kind[0] == 's' ? content::special : content::plain);
      if (kind[0] != 's') m.add_to_diagonal(double(n) + 2);
      const zor_int failing = n > 0 && kind[0] == 'i' ? random.between(1, n) : 0;
      if (failing > 0) m.set(failing - 1, failing - 1, failing % 2 == 0 ? 0.0 : double(NAN));
      zor_int info[2] = {-7, -7};
      EXPECT_TRUE(agree(
          [&](bool k) {
            if (k)
              kernel(nullptr, &n, m.a(k), &m.lda, &info[1]);
            else if (const zor_int failed = zor_ref::potrf_small(upper, n, m.a(k), m.lda))
              info[0] = failed;
          },
          m.a))
          << name << " n " << n << " " << kind;
      EXPECT_EQ(info[0], info[1]) << name << " n " << n << " " << kind;
      if (kind[0] == 's') continue;
      EXPECT_EQ(info[1], failing > 0 ? failing : -7) << name << " n " << n;
    }
}

TEST(PotrfSmall, BitsFlagsAndInfoOfThePlainLoops) {
#define ROW_POTRF_SMALL(name, T, upper) check_potrf<T>(#name, name, upper);
#include "zor/tables/lapack.inc"
}

// A matrix that is no multiple of its real type away from the origin is factored as well.
TEST(PotrfSmall, TakesAnyAddress) {
  const zor_int n = 3;
  const double a[9] = {4, 2, 1, 0, 5, 3, 0, 0, 6};
  alignas(16) char moved[sizeof a + 4];
  double expected[9];
  std::copy_n(a, 9, expected);
  std::memcpy(moved + 4, a, sizeof a);
  zor_int info = 0;
  zor_lapack_ps_dpotrf_l_small("L", &n, expected, &n, &info);
  zor_lapack_ps_dpotrf_l_small("L", &n, reinterpret_cast<double*>(moved + 4), &n, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(std::memcmp(expected, moved + 4, sizeof a), 0);
}

// ---- Bunch-Kaufman.

template <class R>
void check_sytrf(const char* name, zor::sytrf_small_fn<R>* kernel, bool upper) {
  random_bits random(12);
  size_t iteration = 0;
  int two_by_two = 0, singular = 0;
  for (const zor_int n : orders)
    for (const char* kind : {"plain", "plain", "no diagonal", "zero", "special"}) {
      triangle<R> m(upper, n, ++iteration, random, kind[0] == 's' ? content::special : content::plain);
      for (zor_int j = 0; kind[0] == 'n' && j < n; ++j) m.set(j, j, 0);
      // A row and column of zeros is a zero pivot somewhere.
      const zor_int empty = n > 0 && kind[0] == 'z' ? random.between(0, n - 1) : -1;
      for (zor_int i = 0; empty >= 0 && i < n; ++i)
        if (upper == (i <= empty) || i == empty)
          m.set(i, empty, 0);
        else
          m.set(empty, i, 0);
      guarded<zor_int> pivots(size_t(std::max<zor_int>(n, 0)));
      std::vector<zor_int> expected(pivots.size());
      zor_int info[2] = {-7, -7};
      const char uplo = "LlUu"[2 * upper + iteration % 2];
      EXPECT_TRUE(agree(
          [&](bool k) {
            if (k)
              kernel(&uplo, &n, m.a(k), &m.lda, pivots.data(), &info[1]);
            else
              info[0] = zor_ref::sytrf_small(upper, n, m.a(k), m.lda, expected.data());
          },
          m.a))
          << name << " n " << n << " " << kind;
      EXPECT_EQ(info[0], info[1]) << name << " n " << n << " " << kind;
      EXPECT_TRUE(std::equal(expected.begin(), expected.end(), pivots.begin()))
          << name << " n " << n << " " << kind;
      singular += info[1] > 0;
      two_by_two += int(std::count_if(pivots.begin(), pivots.end(), [](zor_int p) { return p < 0; }));
    }
  EXPECT_GT(two_by_two, 20);
  EXPECT_GT(singular, 10);
}

TEST(SytrfSmall, BitsFlagsInfoAndPivotsOfThePlainLoops) {
#define ROW_SYTRF_SMALL(name, T, upper) check_sytrf<T>(#name, name, upper);
#include "zor/tables/lapack.inc"
}

// ---- The tridiagonal solve with interchanges.

template <class T>
void check_gtsv(const char* name, zor::gtsv_small_fn<T>* kernel) {
  random_bits random(13);
  size_t iteration = 0;
  for (const zor_int n : {0, 1, 2, 3, 4, 5, 8, 13, 50})
    for (const zor_int nrhs : {0, 1, 2, 3, 5, 8, 11})
      for (const char* kind : {"plain", "dominant", "zero pivot", "zero row", "special"}) {
        const placement where = placements[++iteration % std::size(placements)];
        const content what = kind[0] == 's' ? content::special : content::plain;
        const size_t off = n > 1 ? size_t(n - 1) : 0;
        const zor_int ldb = std::max<zor_int>(n, 1) + zor_int(iteration % 3);
        twin<T> dl(off, where, random, what), d(size_t(n), where, random, what), du(off, where, random, what),
            b(span(n, nrhs, ldb), where, random, what);
        for (zor_int i = 0; kind[0] == 'd' && i < n; ++i) d.set(size_t(i), 4);
        if (kind[0] == 'z' && n > 0) {
          const size_t row = size_t(random.between(0, n - 1));
          d.set(row, 0);
          if (kind[5] == 'r' && row < off) dl.set(row, 0);
          if (row > 0) dl.set(row - 1, 0);
        }
        zor_int info[2] = {-7, -7};
        EXPECT_TRUE(agree(
            [&](bool k) {
              if (k)
                kernel(&n, &nrhs, dl(k), d(k), du(k), b(k), &ldb, &info[1]);
              else
                info[0] = zor_ref::gtsv_small(n, nrhs, dl(k), d(k), du(k), b(k), ldb);
            },
            b, d, dl, du))
            << name << " n " << n << " nrhs " << nrhs << " " << kind;
        EXPECT_EQ(info[0], info[1]) << name << " n " << n << " nrhs " << nrhs << " " << kind;
      }
}

TEST(GtsvSmall, BitsFlagsAndInfoOfThePlainLoops) {
#define ROW_GTSV_SMALL(name, T) check_gtsv<T>(#name, name);
#include "zor/tables/lapack.inc"
}

}  // namespace
