// SPDX-License-Identifier: MIT
// The rule that decides whether rows are blocked shows in no result, so it is tested by itself. The expected
// block sizes are worked out by hand from 17,000,000 / (P avg + Q n) / 4 and R avg + S n.
#include <gtest/gtest.h>

#include "spblas/csr/mmout/row_blocks.h"

namespace {

using zor::sparse::rows_in_block;
using zor::sparse::weights_of;

template <class I>
struct rule_case {
  I m, average, n;
  zor_int s, d, z;  // rows in a block; m where the rows are not blocked
};

template <class I>
void check(const rule_case<I>& c) {
  // The last row pointer counts from 1; a remainder must not raise the average.
  for (const I end : {I(c.m * c.average + 1), I(c.m * c.average + c.m)}) {
    SCOPED_TRACE("m " + std::to_string(c.m) + " average " + std::to_string(c.average));
    EXPECT_EQ(rows_in_block<I>(weights_of<float>(false), c.m, end, c.n), c.s);
    EXPECT_EQ(rows_in_block<I>(weights_of<double>(false), c.m, end, c.n), c.d);
    EXPECT_EQ(rows_in_block<I>(weights_of<zor_c32>(false), c.m, end, c.n), c.d);
    EXPECT_EQ(rows_in_block<I>(weights_of<zor_c64>(false), c.m, end, c.n), c.z);
    EXPECT_EQ(rows_in_block<I>(weights_of<zor_c64>(true), c.m, end, c.n), c.z);
    EXPECT_EQ(rows_in_block<I>(weights_of<zor_c32>(true), c.m, end, c.n), c.z);
  }
}

template <class I>
void check_common() {
  // s: 12 avg + 8 n and 8 avg + 12 n; d, c: 12 avg + 20 n and 20 avg + 12 n; z and c conjugated: 20, 36 and
  // 36, 20. 100,000 rows of 5, 8 right-hand sides: 136 bytes a row are below 170, 196 and 340 are not.
  check<I>({100000, 5, 8, 100000, 19318, 10953});
  // 125,000 rows of 5 and 8 reach exactly 17,000,000 in single precision, which blocks.
  check<I>({125000, 5, 8, 34274, 19318, 10953});
  check<I>({124999, 5, 8, 124999, 19318, 10953});
}

TEST(RowBlocks, BothTwins) {
  check_common<int64_t>();
  check_common<int32_t>();
}

// 36,000,000 rows: 136, 196 and 340 times m pass 2^31, which the 32-bit rule reads as small.
TEST(RowBlocks, OverflowOfTheShortTwin) {
  check<int64_t>({36000000, 5, 8, 34274, 19318, 10953});
  check<int32_t>({36000000, 5, 8, 36000000, 36000000, 36000000});
}

// So many right-hand sides that not one row of them fits.
TEST(RowBlocks, NoBlockWhereTheRuleGivesNone) {
  EXPECT_EQ(rows_in_block<int64_t>(weights_of<double>(false), 100, 501, 5000000), 100);
}

}  // namespace
