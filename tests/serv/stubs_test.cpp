// SPDX-License-Identifier: MIT
// Exports without arithmetic, and the comparison of option letters.
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "zor/frame.h"
#include "zor/serv.h"

namespace {

constexpr zor_int pattern = 0x5A5A5A5A5A5A5A5A;

struct named {
  const char* name;
  void* address;
};

const named empty_exports[] = {
#define ROW_EMPTY(name) {#name, reinterpret_cast<void*>(name)},
#include "zor/tables/frame.inc"
};
const named zero_exports[] = {
#define ROW_ZERO(name) {#name, reinterpret_cast<void*>(name)},
#include "zor/tables/frame.inc"
};

// As a caller with a prototype of its own would call it: every operand must be left alone.
template <class R>
R call(const named& export_, zor_int (&operand)[8]) {
  using any_fn = R(zor_int*, zor_int*, zor_int*, zor_int*, zor_int*, zor_int*, zor_int*, zor_int*);
  zor_int* x = operand;
  return reinterpret_cast<any_fn*>(export_.address)(x, x + 1, x + 2, x + 3, x + 4, x + 5, x + 6, x + 7);
}

void expect_untouched(const named& export_, const zor_int (&operand)[8]) {
  for (zor_int word : operand) EXPECT_EQ(word, pattern) << export_.name;
}

TEST(Stubs, LeaveEverythingAlone) {
  zor_int operand[8];
  for (zor_int& word : operand) word = pattern;
  EXPECT_EQ(std::size(empty_exports), 45u);
  for (const named& e : empty_exports) {
    call<void>(e, operand);
    expect_untouched(e, operand);
  }
  EXPECT_EQ(std::size(zero_exports), 20u);
  for (const named& e : zero_exports) {
    EXPECT_EQ(call<zor_int>(e, operand), 0) << e.name;
    expect_untouched(e, operand);
  }
}

TEST(Frame, Version) { EXPECT_EQ(dll_cpu_version(), 1); }

// All pairs of bytes against the C locale's upper case; only the first byte counts.
TEST(Lsame, AllPairs) {
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      const char x[] = {char(a), 'x'};
      const char y[] = {char(b), 'y'};
      ASSERT_EQ(zor_serv_lsame(x, y) != 0, std::toupper(a) == std::toupper(b)) << a << ' ' << b;
    }
  }
}

}  // namespace
