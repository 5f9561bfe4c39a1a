// SPDX-License-Identifier: MIT
// The public products: bits of the plain loops for every number of threads, refused arguments.
#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/operand.h"
#include "tests/support/threads.h"
#include "tests/xblas/routines.h"
#include "zor/core.h"

namespace {

using namespace zor_test;

struct sizes {
  zor_int m, n, kl, ku;
};

TEST(PublicProducts, BitsOfThePlainLoopsWithAnyNumberOfThreads) {
  constexpr sizes all[] = {{1, 1, 0, 0}, {9, 7, 2, 3}, {601, 517, 500, 44}, {300, 410, 3, 250}};
  for_public_products([&](const auto& r) {
    using T = typename std::decay_t<decltype(r)>::element;
    for (const sizes& s : all)
      for (const zor_int trans : {111, 112, 113})
        for (const zor_int prec : {212, 214}) {
          product_call<T> c = {};
          c.trans = trans, c.uplo = trans == 111 ? 121 : 122, c.m = s.m, c.n = s.n, c.kl = s.kl, c.ku = s.ku;
          c.lda = r.stored_rows(c) + 1, c.incx = trans == 111 ? -2 : 1, c.incy = trans == 112 ? -1 : 2,
          c.prec = prec;
          c.alpha = scalar<T>(0.3, -0.7), c.beta = scalar<T>(1.5, 0.2);
          const auto a = random_elements<T>(c.lda * c.n, 1), head = random_elements<T>(r.inputs(c) * 2, 2),
                     tail = random_elements<T>(r.inputs(c) * 2, 3),
                     before = random_elements<T>(r.outputs(c) * 2, 4);
          c.a = a.data(), c.head = head.data(), c.tail = tail.data();
          std::vector<T> expected = before;
          reference(r, c, expected.data());
          SCOPED_TRACE(::testing::Message() << r.name << c);
          expect_with_any_threads(expected, before, [&](T* y) {
            c.y = y;
            r.call(c);
          });
        }
  });
}

// Sizes that are bad beside the others; what is bad by itself stands in tests/core/arguments_test.cpp.
TEST(PublicProducts, BadArgumentsAreNamedAndNothingIsWritten) {
  constexpr double unused[16] = {};
  const auto refusal = [&](auto&& spoil, auto&& call) {
    double y[4] = {1, 2, 3, 4};
    product_call<double> c = {111, 121, 4, 4, 1, 1, 2, unused, 4, unused, unused, 1, 1, y, 1, 214};
    spoil(c);
    const noted_reports reports;
    call(c);
    EXPECT_TRUE(y[0] == 1 && y[1] == 2 && y[2] == 3 && y[3] == 4);
    return reports.take();
  };
  const auto general = [](const product_call<double>& c) {
    zor_dgemv_x(int32_t(c.trans), c.m, c.n, c.alpha, c.a, c.lda, c.head, c.incx, c.beta, c.y, c.incy,
                int32_t(c.prec));
  };
  const auto band = [](const product_call<double>& c) {
    zor_dgbmv2_x(int32_t(c.trans), c.m, c.n, c.kl, c.ku, c.alpha, c.a, c.lda, c.head, c.tail, c.incx, c.beta,
                 c.y, c.incy, int32_t(c.prec));
  };
  using call = product_call<double>;
  EXPECT_EQ("zor_dgemv_x 6 lda", refusal([](call& c) { c.lda = INT64_MAX / 2; }, general));
  EXPECT_EQ("zor_dgbmv2_x 5 ku", refusal([](call& c) { c.kl = INT64_MAX; }, band));
  EXPECT_EQ("zor_dgbmv2_x 8 lda", refusal([](call& c) { c.ku = 3; }, band));
}

}  // namespace
