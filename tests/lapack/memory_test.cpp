// SPDX-License-Identifier: MIT
// The public solves, batches, refined solutions, transpositions and extended products while memory is short:
// each request fails in turn, alone and with all behind it, on one thread and on three. A call ends as it
// does with memory, or says that memory is short and has written nothing; nothing leaks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "tests/support/failing_malloc.h"
#include "tests/support/operand.h"
#include "zor/core.h"
#include "zor/lapack.h"
#include "zor/serv.h"
#include "zor/trans.h"
#include "zor/xblas.h"

namespace {

using namespace zor_test;

[[gnu::constructor]] void switch_pool_off() { setenv("ZOR_MM_DISABLE", "1", 1); }

using numbers = std::vector<double>;

constexpr zor_int n = 75, count = 10, long_n = 9000, columns = 32, nrhs = 8;

// Random, with a diagonal that makes every matrix of order n in it definite and every tridiagonal one
// dominant.
numbers operand_of(zor_int size, uint64_t seed, double diagonal = 0) {
  random_bits random(seed);
  numbers v(static_cast<size_t>(size));
  for (double& e : v) e = random.unit();
  for (zor_int i = 0; i < size && diagonal != 0; i += n + 1) v[size_t(i)] = diagonal;
  return v;
}

// Runs a library call, with memory short or not; what a case needs itself it takes before.
using runner = std::function<void(const std::function<void()>& call)>;

struct case_of {
  const char* name;
  bool may_tell;     // that memory is short
  double tolerance;  // 0: bits; products go another way without memory, with other sums
  zor_int (*run)(numbers& result, const runner& library);
};

const numbers dl = operand_of(long_n, 1), du = operand_of(long_n, 2), tall = operand_of(long_n * columns, 3),
              square = operand_of(n * n, 4, 100), some = operand_of(n * nrhs, 5), line = operand_of(n * n, 6);

numbers many() {
  numbers a;
  for (zor_int k = 0; k < count; ++k) a.insert(a.end(), square.begin(), square.end());
  return a;
}

zor_int pivoted(numbers& b, const runner& library) {
  numbers l = dl, d(size_t(long_n), 0.5), u = du;
  b = tall;
  zor_int info = 0;
  library([&] { info = zor_dgtsv(long_n, columns, l.data(), d.data(), u.data(), b.data(), long_n); });
  return info;
}
zor_int dominant(numbers& b, const runner& library) {
  numbers l = dl, d(size_t(long_n), 4);
  b = tall;
  zor_int info = 0;
  library([&] { info = zor_ddtsv(long_n, columns, l.data(), d.data(), du.data(), b.data(), long_n); });
  return info;
}
zor_int cholesky(numbers& b, const runner& library) {
  numbers a = many();
  b.clear();
  for (zor_int k = 0; k < count; ++k) b.insert(b.end(), some.begin(), some.end());
  std::vector<zor_int> info(static_cast<size_t>(count));
  zor_int failed = 0;
  library([&] {
    failed = zor_dpotrf_batch('L', n, a.data(), n, n * n, count, info.data());
    failed += zor_dpotrs_batch('L', n, nrhs, a.data(), n, n * n, b.data(), n, n * nrhs, count, info.data());
  });
  return failed;
}
zor_int bunch_kaufman(numbers& a, const runner& library) {
  a = many();
  std::vector<zor_int> info(static_cast<size_t>(count)), ipiv(size_t(count * n));
  zor_int failed = 0;
  library([&] { failed = zor_dsytrf_batch('U', n, a.data(), n, n * n, ipiv.data(), count, info.data()); });
  return failed;
}
template <char Kind>
zor_int refined(numbers& x, const runner& library) {
  constexpr zor_int order = 40, few = 2;
  x.assign(size_t(order * few), 7);
  zor_int status = 0;
  library([&] {
    status = zor_dsolve_refined(Kind, order, few, square.data(), n, some.data(), n, x.data(), order, nullptr,
                                nullptr);
  });
  return status;
}
zor_int rectangle(numbers& a, const runner& library) {
  a = tall;
  library([&] { zor_dimatcopy('R', 'T', columns, 900, 1.5, a.data(), 900, columns); });
  return 0;
}
// The larger one is divided over threads, each of which spreads rows out into memory of its own.
template <zor_int Order>
zor_int symmetric_product(numbers& y, const runner& library) {
  y.assign(size_t(Order), 0.25);
  library([&] {
    zor_dsymv_x(ZOR_LOWER, Order, 1.5, tall.data(), Order, dl.data(), 1, 0.5, y.data(), 1, ZOR_EXTRA);
  });
  return 0;
}

constexpr case_of cases[] = {{"dgtsv", false, 0, pivoted},
                             {"ddtsv", false, 0, dominant},
                             {"dpotrf_batch, dpotrs_batch", false, 1e-15, cholesky},
                             {"dsytrf_batch", false, 0, bunch_kaufman},
                             {"dsolve_refined G", true, 0, refined<'G'>},
                             {"dsolve_refined U", true, 0, refined<'U'>},
                             {"dimatcopy", false, 0, rectangle},
                             {"dsymv_x 75", false, 0, symmetric_product<75>},
                             {"dsymv_x 500", false, 0, symmetric_product<500>}};

double largest_difference(const numbers& a, const numbers& b) {
  double most = 0;
  for (size_t i = 0; i < a.size(); ++i) most = std::max(most, std::fabs(a[i] - b[i]));
  return most;
}

TEST(ShortMemory, CallsCompleteOrSaySo) {
  for (const int32_t threads : {1, 3})
    for (const case_of& c : cases) {
      zor_core_set_num_threads(threads);
      numbers expected, actual;
      ASSERT_EQ(0, c.run(expected, [](const auto& call) { call(); })) << c.name;
      const numbers untouched(expected.size(), 7);
      int told = 0;
      for (const bool onwards : {false, true}) {
        short_memory met = {true, 0};
        for (long failing = 0; met.happened; ++failing) {
          ASSERT_LT(failing, 1000) << c.name;
          const zor_int status =
              c.run(actual, [&](const auto& call) { met = with_failure(failing, onwards, call); });
          SCOPED_TRACE(::testing::Message() << c.name << ", request " << failing << ", threads " << threads);
          const numbers& right = status == 0 ? expected : untouched;
          if (c.tolerance == 0) {
            EXPECT_TRUE(same_bits(right.data(), actual.data(), right.size()));
          }
          EXPECT_LE(largest_difference(right, actual), c.tolerance);
          if (threads == 1) {
            EXPECT_EQ(0, met.left);
          }
          if (status == 0) continue;
          ++told;
          EXPECT_EQ(ZOR_LAPACK_MEMORY, status);
          EXPECT_TRUE(met.happened);
        }
      }
      EXPECT_EQ(c.may_tell, told > 0) << c.name;
    }
  zor_core_set_num_threads(0);
}

}  // namespace
