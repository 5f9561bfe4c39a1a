// SPDX-License-Identifier: MIT
// Sequences of rotations, vectors of rotations and short reflectors against plain loops: bits, flags, and
// nothing touched outside the operands.
#include "tests/lapack/twin.h"
#include "tests/ref/lapack.h"
#include "zor/signatures/lapack.h"

namespace {

using namespace zor_test;

template <class T>
void check_lasr(const char* name, zor::lasr_fn<T, real<T>>* kernel, char pivot, char direction) {
  using R = real<T>;
  random_bits random(1);
  size_t iteration = 0;
  for (const zor_int m : {-1, 0, 1, 2, 3, 7, 8, 9, 17, 34, 50})
    for (const zor_int n : {0, 1, 2, 3, 5, 8, 15, 16, 23, 37})
      for (const zor_int pad : {0, 1, 6}) {
        const zor_int lda = (m > 0 ? m : 1) + pad;
        const placement where = placements[++iteration % std::size(placements)];
        const content what = iteration % 3 == 0 ? content::special : content::plain;
        const size_t rotations = m > 1 ? size_t(m - 1) : 0;
        twin<R> c(rotations, where, random, what), s(rotations, where, random, what);
        if (rotations > 0 && iteration % 2 == 0) c.set(rotations / 2, 1), s.set(rotations / 2, 0);
        twin<T> a(span(m, n, lda), where, random, what);
        EXPECT_TRUE(agree(
            [&](bool k) {
              if (k)
                kernel(&m, &n, c(k), s(k), a(k), &lda);
              else
                zor_ref::lasr(pivot, direction, m, n, c(k), s(k), a(k), lda);
            },
            a, c, s))
            << name << " m " << m << " n " << n << " lda " << lda << " iteration " << iteration;
      }
}

TEST(Lasr, BitsAndFlagsOfThePlainLoops) {
#define ROW_LASR(name, T, R, P, forward) check_lasr<T>(#name, name, #P[0], forward ? 'f' : 'b');
#include "zor/tables/lapack.inc"
}

constexpr zor_int lengths[] = {-1, 0,  1,  2,  3,  4,  5,  7,  8,  9,  10, 11,  12, 15,
                               16, 17, 23, 31, 32, 33, 48, 63, 64, 65, 97, 130, 257};

template <class T>
void check_lartv(const char* name, zor::lartv_fn<T, real<T>>* kernel) {
  using R = real<T>;
  random_bits random(2);
  size_t iteration = 0;
  constexpr zor_int increments[][3] = {{1, 1, 1}, {2, 1, 1}, {1, 3, 1}, {1, 1, 2},
                                       {2, 3, 4}, {0, 1, 1}, {1, 1, 0}};
  for (const auto& inc : increments)
    for (const zor_int n : lengths)
      for (const placement where : placements) {
        const content what = ++iteration % 2 == 0 ? content::special : content::plain;
        const auto count = [n](zor_int step) { return n < 1 ? size_t(0) : size_t((n - 1) * step + 1); };
        const placement other = placements[iteration % std::size(placements)];
        twin<T> x(count(inc[0]), where, random, what), y(count(inc[1]), other, random, what),
            s(count(inc[2]), other, random, what);
        twin<R> c(count(inc[2]), where, random, what);
        EXPECT_TRUE(agree(
            [&](bool k) {
              if (k)
                kernel(&n, x(k), &inc[0], y(k), &inc[1], c(k), s(k), &inc[2]);
              else
                zor_ref::lartv(n, x(k), inc[0], y(k), inc[1], c(k), s(k), inc[2]);
            },
            x, y, c, s))
            << name << " n " << n << " increments " << inc[0] << " " << inc[1] << " " << inc[2];
      }
}

TEST(Lartv, BitsAndFlagsOfThePlainLoops) {
#define ROW_LARTV(name, T, R) check_lartv<T>(#name, name);
#include "zor/tables/lapack.inc"
}

// Increments of the reflectors are not read: null pointers stand for them.
template <class T>
void check_reflectors(const char* name, zor::rot2_fn<T>* two, zor::rot3_fn<T>* three) {
  random_bits random(3);
  size_t iteration = 0;
  for (const zor_int n : lengths)
    for (const placement where : placements)
      for (const placement other : placements) {
        const content what = ++iteration % 2 == 0 ? content::special : content::plain;
        const size_t count = n > 0 ? size_t(n) : 0;
        twin<T> x(count, where, random, what), y(count, other, random, what), z(count, where, random, what),
            factors(3, placements[0], random, what);
        EXPECT_TRUE(agree(
            [&](bool k) {
              const T *tau = factors(k), *h1 = tau + 1, *h2 = tau + 2;
              if (k && two)
                two(&n, x(k), nullptr, y(k), nullptr, tau, h1);
              else if (k)
                three(&n, x(k), nullptr, y(k), nullptr, z(k), nullptr, tau, h1, h2);
              else if (two)
                zor_ref::rot2(n, x(k), y(k), *tau, *h1);
              else
                zor_ref::rot3(n, x(k), y(k), z(k), *tau, *h1, *h2);
            },
            x, y, z, factors))
            << name << " n " << n << " iteration " << iteration;
      }
}

TEST(ShortReflectors, BitsAndFlagsOfThePlainLoops) {
#define ROW_ROT2(name, T) check_reflectors<T>(#name, name, nullptr);
#define ROW_ROT3(name, T) check_reflectors<T>(#name, nullptr, name);
#include "zor/tables/lapack.inc"
}

}  // namespace
