// SPDX-License-Identifier: MIT
// Clears, tests and merges of private results.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tests/spblas/matrices.h"
#include "zor/signatures/spblas.h"

namespace {

using namespace sparse_test;
using zor_test::same_bits;

template <class T, class I>
void check_zeros(const char* name, zor::zeros_fn<T, I>* zeros) {
  SCOPED_TRACE(name);
  for (const I n : {-3, 0, 1, 5, 64}) {
    const size_t size = n > 0 ? size_t(n) : 0;
    guarded<T> x(size + 1);
    const real<T> kept = 7;
    for (size_t i = 0; i < (size + 1) * parts<T>; ++i) reals(x.data())[i] = kept;
    zeros(x.data(), &n);
    for (size_t i = 0; i < size * parts<T>; ++i) EXPECT_EQ(zor_test::bits(reals(x.data())[i]), 0u);
    for (size_t i = 0; i < parts<T>; ++i) EXPECT_EQ(reals(&x[size])[i], kept);
  }
}

template <class T, class I>
void check_elements(const char* name, zor::ones_fn<T, I>* ones, zor::neones_fn<T, I>* neones) {
  SCOPED_TRACE(name);
  using R = real<T>;
  T x;
  ones(&x);
  EXPECT_EQ(reals(&x)[0], R(1));
  if constexpr (parts<T> == 2) {
    EXPECT_EQ(zor_test::bits(reals(&x)[1]), 0u);
  }
  const R inf = std::numeric_limits<R>::infinity(), tiny = std::numeric_limits<R>::denorm_min();
  const R cases[][2] = {{R(0), R(0)}, {R(-0.0), R(0)}, {R(3), R(-3)},
                        {-inf, inf},  {tiny, -tiny},   {R(NAN), R(NAN)}};
  for (const auto& c : cases) {
    for (size_t i = 0; i < parts<T>; ++i) reals(&x)[i] = c[0];
    neones(&x);
    for (size_t i = 0; i < parts<T>; ++i) EXPECT_TRUE(same_bits(&c[1], reals(&x) + i, 1));
  }
}

template <class T, class I>
void check_zerocheck(const char* name, zor::zerocheck_fn<T, I>* zerocheck) {
  SCOPED_TRACE(name);
  using R = real<T>;
  const struct {
    R value;
    int flag;
  } cases[] = {{R(0), 0}, {R(-0.0), 0}, {R(1), 1}, {std::numeric_limits<R>::denorm_min(), 1}, {R(NAN), 1}};
  for (const auto& c : cases) {
    for (size_t part = 0; part < parts<T>; ++part) {
      T x{};
      reals(&x)[part] = c.value;
      I flag = 5;
      zerocheck(&x, &flag);
      EXPECT_EQ(flag, I(c.flag)) << "part " << part << " is " << c.value;
    }
  }
}

template <class T, class I>
void check_merge(const char* name, zor::merge_fn<T, I>* merge) {
  SCOPED_TRACE(name);
  random_bits random(11);
  const struct { I first, last; } ranges[] = {{1, 1}, {1, 17}, {4, 17}, {5, 4}, {3, 1100}};
  for (const auto& r : ranges) {
    for (const I nparts : {-1, 0, 1, 2, 3, 4, 7}) {
      const I stride = r.last + 3;
      const size_t used = nparts > 0 && r.last > 0 ? size_t(stride * (nparts - 1) + r.last) : 1;
      guarded<T> work(used), y(size_t(r.last), true);
      fill(random, work.data(), used);
      fill(random, y.data(), y.size());
      std::vector<real<T>> expected(reals(y.begin()), reals(y.end()));
      for (size_t i = size_t(r.first - 1) * parts<T>; i < size_t(r.last) * parts<T>; ++i) {
        const auto part = [&](I p) { return reals(work.data())[size_t(p * stride) * parts<T> + i]; };
        for (I p = 0; p < nparts; p += 2) expected[i] += p + 1 < nparts ? part(p + 1) + part(p) : part(p);
      }
      merge(&r.first, &r.last, &nparts, &stride, work.data(), y.data());
      EXPECT_TRUE(same_bits(expected.data(), reals(y.data()), expected.size()))
          << r.first << ".." << r.last << ", " << nparts << " parts";
    }
  }
}

// The caller fixes s1 and s2; these keep every segment inside the work array.
template <class T, class I>
void check_merge_sym(const char* name, zor::merge_sym_fn<T, I>* merge) {
  SCOPED_TRACE(name);
  random_bits random(12);
  for (const I count : {0, 1, 8, 9, 50}) {
    for (const I nparts : {0, 1, 2, 5}) {
      const I s1 = 3, s2 = 40;
      guarded<T> work(400), y(size_t(count) + 1);
      fill(random, work.data(), work.size());
      fill(random, y.data(), y.size());
      std::vector<real<T>> expected(reals(y.begin()), reals(y.end()));
      // Offsets of the segments, worked out by hand: s2 (q-1) + 3 (nparts - q - q(q-1)/2).
      const std::vector<std::vector<I>> starts = {{}, {0}, {3, 37}, {12, 46, 77, 105, 130}};
      for (const I start : starts[nparts < 3 ? size_t(nparts) : 3])
        for (size_t i = 0; i < size_t(count) * parts<T>; ++i) expected[i] += reals(work.data() + start)[i];
      merge(&count, &s1, &nparts, &s2, work.data(), y.data());
      EXPECT_TRUE(same_bits(expected.data(), reals(y.data()), expected.size())) << count << ", " << nparts;
    }
  }
}

TEST(SparseService, Zeros) {
#define ROW_ZEROS(name, T, I) check_zeros<T, I>(#name, name);
#include "zor/tables/spblas_service.inc"
}

TEST(SparseService, OnesAndNegation) {
#define ONES(t, T)                                                                     \
  check_elements<T, int64_t>(#t "ones", zor_spblas_##t##ones, zor_spblas_##t##neones); \
  check_elements<T, int32_t>("lp64 " #t "ones", zor_spblas_lp64_##t##ones, zor_spblas_lp64_##t##neones);
  ONES(s, float)
  ONES(d, double)
  ONES(c, zor_c32)
  ONES(z, zor_c64)
#undef ONES
}

TEST(SparseService, Zerocheck) {
#define ROW_ZEROCHECK(name, T, I) check_zerocheck<T, I>(#name, name);
#include "zor/tables/spblas_service.inc"
}

TEST(SparseService, MergeOfPairs) {
#define ROW_MERGE(name, T, I) check_merge<T, I>(#name, name);
#include "zor/tables/spblas_service.inc"
}

TEST(SparseService, MergeOfPackedParts) {
#define ROW_MERGE_SYM(name, T, I) check_merge_sym<T, I>(#name, name);
#include "zor/tables/spblas_service.inc"
}

}  // namespace
