// SPDX-License-Identifier: MIT
// The texts of the solvers as a user sees them: none is missing, values stand where they belong, parallel
// sets agree.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "zor/serv.h"
#include "zor/signatures/poisson.h"
#include "zor/signatures/trig.h"

namespace {

template <class Call>
std::string printed(const Call& call) {
  ::testing::internal::CaptureStdout();
  call();
  return ::testing::internal::GetCapturedStdout();
}

bool takes_number(int32_t id) {
  for (const int32_t real : {54, 59, 64, 69, 74, 162, 185, 194, 428, 432, 434, 437, 440, 446})
    if (id == real) return true;
  return false;
}

std::string text_of(int32_t id, int32_t kept) {
  const char* const t = takes_number(kept) ? zor_serv_zor_get_msg(id, 1, 0.5)
                                           : zor_serv_zor_get_msg(id, 7, "1", "2", "3", "4", "5", "6", "7");
  return t == nullptr ? "" : t;
}

TEST(Messages, AllAreThere) {
  const auto good = [](int32_t id, int32_t kept) {
    const std::string text = text_of(id, kept);
    EXPECT_GT(text.size(), 3u) << id;
    EXPECT_LT(text.size(), 512u) << id;
    EXPECT_EQ(text.find('%'), std::string::npos) << id;
    EXPECT_EQ(text, text_of(kept, kept)) << id;
  };
  for (int32_t id = 10; id <= 200; ++id) good(id, id), good(id + 193, id);
  for (int32_t id = 410; id <= 565; ++id) good(id, 410 + (id - 410) % 39);
  for (const int32_t id : {396, 397, 398, 407, 409}) good(id, id);
  EXPECT_EQ(text_of(394, 394), "");
  EXPECT_EQ(text_of(566, 566), "");
}

// Each event of the solvers shows the entries that it is about.
struct event {
  zor_int code;
  bool error;
  std::set<int> integers;
  int real = -1;
};
const event events[] = {{0, true, {10}},
                        {1, true, {11}},
                        {2, true, {10}},
                        {3, true, {}, 0},
                        {4, true, {}, 1},
                        {5, true, {3}},
                        {6, true, {4}},
                        {7, true, {5}},
                        {8, true, {6}},
                        {9, true, {7}},
                        {10, true, {3, 4, 5, 6, 7}},
                        {11, true, {12}},
                        {12, true, {}},
                        {13, true, {3}},
                        {14, true, {46}},
                        {15, true, {}, 1},
                        {16, true, {}},
                        {17, true, {11}},
                        {18, true, {}, 2},
                        {19, true, {3}},
                        {20, true, {8}},
                        {21, true, {9}},
                        {22, true, {3, 4, 5, 6, 7, 8, 9}},
                        {23, true, {46}},
                        {24, true, {46}},
                        {25, true, {46}},
                        {26, true, {}},
                        {27, true, {}},
                        {28, true, {}},
                        {29, true, {66}},
                        {30, true, {66}},
                        {31, true, {46, 66}},
                        {32, true, {46, 66}},
                        {10000, true, {10}},
                        {10001, true, {11}},
                        {10002, true, {10}},
                        {10003, true, {}, 0},
                        {10004, true, {}, 1},
                        {10009, true, {0}},
                        {10012, true, {}},
                        {10014, true, {46}},
                        {10015, true, {}, 1},
                        {10016, true, {}},
                        {10023, true, {46}},
                        {10024, true, {46}},
                        {10026, true, {}},
                        {10027, true, {}},
                        {10028, true, {}},
                        {10029, true, {66}},
                        {10030, true, {66}},
                        {10032, true, {46, 66}},
                        {10202, true, {10}},
                        {900, false, {}},
                        {903, false, {}},
                        {904, false, {}},
                        {10900, false, {}},
                        {10903, false, {}},
                        {10904, false, {}, 3},
                        {33, false, {}},
                        {777, false, {}}};

template <class T>
void check_report(zor::box_report_fn<T>* report) {
  zor_int ipar[128];
  for (int i = 0; i < 128; ++i) ipar[i] = 7000 + i;
  const T dpar[4] = {T(0.0625), T(0.1875), T(0.3125), T(-0.4375)};
  const char* const reals[4] = {"0.0625", "0.1875", "0.3125", "-0.4375"};
  for (const event& e : events) {
    const bool by_errors = (e.code >= 0 && e.code < 900) || (e.code >= 10000 && e.code < 10900);
    ipar[1] = by_errors ? 7001 : -1, ipar[2] = by_errors ? -1 : 7002;
    const std::string text = printed([&] { report(&e.code, ipar, dpar, "%s%n not shown"); });
    EXPECT_EQ(text.rfind(" Poisson library\n", 0), 0u) << text;
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(text.find("Error") != std::string::npos, e.error) << e.code << text;
    EXPECT_EQ(text.find("not shown"), std::string::npos);
    for (int i = 0; i < 128; ++i)
      EXPECT_EQ(text.find(std::to_string(7000 + i)) != std::string::npos, e.integers.count(i) == 1)
          << e.code << text;
    for (int i = 0; i < 4; ++i)
      EXPECT_EQ(text.find(reals[i]) != std::string::npos, e.real == i) << e.code << text;
  }
}

TEST(Messages, ReportsShowWhatTheyAreAbout) {
#define ROW_BOX_REPORT(name, T, ...) \
  {                                  \
    SCOPED_TRACE(#name);             \
    check_report<T>(name);           \
  }
#include "zor/tables/pdepl.inc"
}

}  // namespace
