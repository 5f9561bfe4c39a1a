// SPDX-License-Identifier: MIT
// The texts of the solvers as a user sees them: none is missing, values stand where they belong, parallel
// sets agree.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/scratch_folder.h"
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

// Each event of the solvers shows the entries that it is about: integers, and a real one.
struct event {
  std::set<int> integers;
  std::vector<zor_int> codes;
  int real = -1;
};
const event errors[] = {{{10}, {0, 2, 10000, 10002, 10202}},
                        {{11}, {1, 17, 10001}},
                        {{3}, {5, 13, 19}},
                        {{4}, {6}},
                        {{5}, {7}},
                        {{6}, {8}},
                        {{7}, {9}},
                        {{8}, {20}},
                        {{9}, {21}},
                        {{0}, {10009}},
                        {{12}, {11}},
                        {{3, 4, 5, 6, 7}, {10}},
                        {{3, 4, 5, 6, 7, 8, 9}, {22}},
                        {{46}, {14, 23, 24, 25, 10014, 10023, 10024}},
                        {{66}, {29, 30, 10029, 10030}},
                        {{46, 66}, {31, 32, 10032}},
                        {{}, {12, 16, 26, 27, 28, 10012, 10016, 10026, 10027, 10028}},
                        {{}, {3, 10003}, 0},
                        {{}, {4, 15, 10004, 10015}, 1},
                        {{}, {18}, 2}};
const event warnings[] = {{{}, {900, 903, 904, 10900, 10903, 33, 777}}, {{}, {10904}, 3}};

template <class T>
void check_report(zor::box_report_fn<T>* report) {
  zor_int ipar[128];
  for (int i = 0; i < 128; ++i) ipar[i] = 7000 + i;
  const T dpar[4] = {T(0.0625), T(0.1875), T(0.3125), T(-0.4375)};
  const char* const reals[4] = {"0.0625", "0.1875", "0.3125", "-0.4375"};
  const auto check = [&](const event& e, zor_int code, bool error) {
    const bool by_errors = (code >= 0 && code < 900) || (code >= 10000 && code < 10900);
    ipar[1] = by_errors ? 7001 : -1, ipar[2] = by_errors ? -1 : 7002;
    const std::string text = printed([&] { report(&code, ipar, dpar, "%s%n not shown"); });
    EXPECT_EQ(text.rfind(" Poisson library\n", 0), 0u) << text;
    EXPECT_EQ(text.back(), '\n');
    EXPECT_EQ(text.find("Error") != std::string::npos, error) << code << text;
    EXPECT_EQ(text.find("not shown"), std::string::npos);
    for (int i = 0; i < 128; ++i)
      EXPECT_EQ(text.find(std::to_string(7000 + i)) != std::string::npos, e.integers.count(i) == 1)
          << code << text;
    for (int i = 0; i < 4; ++i)
      EXPECT_EQ(text.find(reals[i]) != std::string::npos, e.real == i) << code << text;
  };
  for (const event& e : errors)
    for (const zor_int code : e.codes) check(e, code, true);
  for (const event& e : warnings)
    for (const zor_int code : e.codes) check(e, code, false);
}

TEST(Messages, ReportsShowWhatTheyAreAbout){
#define ROW_BOX_REPORT(name, T, ...) \
  {                                  \
    SCOPED_TRACE(#name);             \
    check_report<T>(name);           \
  }
#include "zor/tables/pdepl.inc"
}

// Appended to the file, as they are printed; where it cannot be opened, that is said instead.
TEST(Messages, ReportsGoToTheFile) {
  const zor_test::scratch_folder folder;
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path("."));
  const char* const file = "ZOR_Poisson_Library_Log.txt";
  const zor_int codes[] = {1, 904};
  const double dpar[4] = {0.5, 0.25, 0.125, -1};
  std::string expected;
  for (const zor_int code : codes) {
    zor_int ipar[128] = {0, 1, 1};
    expected += printed([&] { zor_pdepl_d_pl_print_diagnostics_c(&code, ipar, dpar, ""); });
    ipar[1] = ipar[2] = -1;
    EXPECT_EQ(printed([&] { zor_pdepl_d_pl_print_diagnostics_c(&code, ipar, dpar, ""); }), "");
    EXPECT_EQ(folder.read(file), expected) << code;
  }
  folder.remove(file);
  std::filesystem::create_directory(file);
  const zor_int ipar[128] = {0, -1, -1};
  EXPECT_GT(printed([&] { zor_pdepl_d_pl_print_diagnostics_c(&codes[0], ipar, dpar, ""); }).size(), 20u);
  std::filesystem::current_path(before);
}

}  // namespace
