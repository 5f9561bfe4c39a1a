// SPDX-License-Identifier: MIT
// Products while memory is short: the nth request fails for every n, on the calling thread and in its team.
// The data are small integers, so the result is exact in any order of sums.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/zalloc.h"
#include "zor/blas.h"
#include "zor/core.h"
#include "zor/serv.h"

namespace {

constexpr zor_int n = 150;

std::vector<double> integers(int seed) {
  std::vector<double> v(size_t(n * n));
  for (size_t i = 0; i < v.size(); ++i) v[i] = double(int(i * 7 + i / 13 + size_t(seed)) % 11 - 5);
  return v;
}

TEST(ShortMemory, ProductsCompleteAndNothingLeaks) {
  const auto a = integers(1), b = integers(2), c = integers(3);
  std::vector<double> expected = c;
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = 0; i < n; ++i)
      for (zor_int p = 0; p < n; ++p)
        expected[size_t(i + j * n)] += a[size_t(i + p * n)] * b[size_t(j + p * n)];
  const double one = 1;
  for (int32_t threads : {1, 3}) {
    zor_core_set_num_threads(threads);
    uint64_t requests = 1;
    for (uint64_t failing = 0; failing <= requests; ++failing)
      for (bool onwards : {false, true}) {
        zor_serv_freebuffers();
        const int64_t before = zalloc_live_blocks();
        zalloc_reset();
        zalloc_fail(failing, onwards);
        std::vector<double> result = c;
        zor_blas_dgemm("N", "T", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &one, result.data(), &n);
        requests = std::max(requests, failing == 0 ? zalloc_calls() : 0);
        EXPECT_EQ(expected, result) << threads << " threads, request " << failing << " fails";
        zalloc_fail(0, false);
        zor_serv_freebuffers();
        EXPECT_EQ(before, zalloc_live_blocks()) << threads << " threads, request " << failing << " fails";
      }
    EXPECT_LE(2u, requests) << "a record of the pool and a block";
  }
  zor_core_set_num_threads(0);
}

}  // namespace
