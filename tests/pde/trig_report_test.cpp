// SPDX-License-Identifier: MIT
// Reports of the transforms: which messages an event takes and what they show, where the text goes. The
// program's own message function stands before that of the library and writes number and values.
#include <cstdarg>
#include <cstdio>
#include <filesystem>

#include "gtest/gtest.h"
#include "tests/pde/trig_calls.h"
#include "tests/tools/scratch_folder.h"
#include "zor/serv.h"

namespace {
std::string long_message;
bool is_real(int32_t offset) {
  for (const int32_t real : {18, 22, 24, 27, 30, 36})
    if (offset == real) return true;
  return false;
}
}  // namespace

extern "C" const char* zor_serv_zor_get_msg(int32_t number, int32_t count, ...) {
  static std::string text;
  text = long_message.empty() ? "<" + std::to_string(number) : long_message;
  va_list values;
  va_start(values, count);
  for (int32_t i = 0; i < count; ++i) {
    char shown[600];
    if (number >= 410 && is_real((number - 410) % 39))
      std::snprintf(shown, sizeof shown, " %g", va_arg(values, double));
    else
      std::snprintf(shown, sizeof shown, " %s", va_arg(values, const char*));
    text += shown;
  }
  va_end(values);
  text += ">";
  return text.c_str();
}

namespace {

using namespace zor_test;

class in_folder {
 public:
  explicit in_folder(const std::string& path) : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~in_folder() { std::filesystem::current_path(before_); }

 private:
  std::filesystem::path before_;
};

std::string joined(int base, const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) {
    const size_t space = part.find(' ');
    text += "\n<" + std::to_string(base + std::stoi(part)) +
            (space == std::string::npos ? "" : part.substr(space)) + ">";
  }
  return text;
}

struct event {
  zor_int code;
  std::vector<std::string> messages;  // offset and values
};
const event events[] = {{0, {"0 -5", "1"}},
                        {1, {"2 12", "3"}},
                        {3, {"4 2", "5", "6", "7"}},
                        {4, {"8", "9", "10"}},
                        {5, {"11", "12 -5", "13", "14"}},
                        {6, {"15", "16 12", "17"}},
                        {300, {"18 -0.5", "19", "20", "21", "22 DEFAULT"}},
                        {302, {"23 extra", "24 -0.5", "25"}},
                        {303, {"26 extra", "27 -0.5", "28"}},
                        {307, {"29 extra", "30 -0.5", "31"}},
                        {308, {"32 -3", "33", "34 1"}},
                        {309, {"35 extra", "36 -0.5", "37"}},
                        {1001, {"38 extra"}}};

template <class T>
void check(zor::trig_report_fn<T>* report, int base) {
  const scratch_folder folder;
  const in_folder inside(folder.path("."));
  zor_int ipar[16] = {12, 1, 1, 0, 0, 2, -5, 1, 1, -3, 0};
  const T dpar[1] = {T(-0.5)};
  std::string log;
  const auto print = [&](zor_int code, const char* text) {
    ::testing::internal::CaptureStdout();
    report(&code, ipar, dpar, text);
    return ::testing::internal::GetCapturedStdout();
  };
  for (const event& e : events) {
    auto messages = e.messages;
    for (std::string& m : messages)
      if (const size_t at = m.find("DEFAULT"); at != std::string::npos)
        m.replace(at, 7, std::is_same_v<T, float> ? "0.00012" : "1.2e-11");
    const bool error = e.code < 100 || e.code == 1001;
    const std::string text =
        std::string("\n<396>\n<") + (error ? "397>" : "398>") + joined(base, messages) + "\n\n";
    ipar[1] = error, ipar[2] = !error;
    EXPECT_EQ(print(e.code, "extra"), text) << e.code;
    // To the file, one report behind the other.
    ipar[1] = error ? -1 : 1, ipar[2] = error ? 1 : -1;
    EXPECT_EQ(print(e.code, "extra"), "");
    log += text;
    EXPECT_EQ(folder.read("ZOR_Trig_Transforms_Log.txt"), log) << e.code;
  }
  ipar[1] = 1, ipar[2] = 1;
  EXPECT_EQ(print(44, ""), "\n<396>\n<398>\n<407>\n\n");
  EXPECT_EQ(print(302, "1%n%s%"), "\n<396>\n<398>" + joined(base, {"23 1%n%s%", "24 -0.5", "25"}) + "\n\n");
  ipar[2] = -1;
  print(302, "1%n%s%");
  EXPECT_EQ(folder.read("ZOR_Trig_Transforms_Log.txt"),
            log + "\n<396>\n<398>" + joined(base, {"23 1%n%s%", "24 -0.5", "25"}) + "\n\n");
  // No log file can be made here: three lines instead, from the library's own print.
  std::filesystem::remove("ZOR_Trig_Transforms_Log.txt");
  std::filesystem::create_directory("ZOR_Trig_Transforms_Log.txt");
  const std::string lost = print(302, "x");
  EXPECT_NE(lost.find("ZOR_Trig_Transforms_Log.txt"), std::string::npos) << lost;
  EXPECT_EQ(std::count(lost.begin(), lost.end(), '\n'), 3) << lost;
  // Messages are cut at 512 characters, the report at 3079.
  long_message.assign(2000, 'y');
  ipar[2] = 1;
  const std::string cut = print(300, "");
  long_message.clear();
  EXPECT_EQ(cut.size(), 3079u);
  EXPECT_EQ(cut.substr(0, 515), "\n" + std::string(512, 'y') + "\n\n"[0] + "y");
}

TEST(TrigReport, Messages){
#define ROW_TRIG_REPORT(name, T, base) \
  {                                    \
    SCOPED_TRACE(#name);               \
    check<T>(name, base);              \
  }
#include "zor/tables/pdett.inc"
}

// Which routine an entry takes, and whether it reports at all.
TEST(TrigReport, EntriesReport) {
  const auto printed = [](auto body) {
    ::testing::internal::CaptureStdout();
    body();
    return ::testing::internal::GetCapturedStdout();
  };
  for (const bool c : {false, true}) {
    trig_problem<double> d(1, 0);
    d.ipar[1] = 1, d.ipar[8] = c;
    double f[12] = {};
    const int base = c ? 449 : 410;
    EXPECT_EQ(printed([&] { d.commit(f); }), "\n<396>\n<397>" + joined(base, {"2 1", "3"}) + "\n\n");
    trig_problem<float> s(8, 0);
    s.ipar[1] = s.ipar[2] = 1, s.ipar[8] = c;
    float g[9] = {-2, 0, 0, 0, 0, 0, 0, 0, 3};
    const int single = c ? 527 : 488;
    EXPECT_EQ(printed([&] { s.commit(g); }),
              "\n<396>\n<398>" + joined(single, {"23 2.000000e+00", "24 8e-05", "25"}) +
                  "\n\n\n<396>\n<398>" + joined(single, {"26 3.000000e+00", "27 8e-05", "28"}) + "\n\n");
    EXPECT_EQ(printed([&] { s.forward(g); }),
              "\n<396>\n<397>" + joined(single, {"11", "12 1", "13", "14"}) + "\n\n");
    s.ipar[1] = 0, s.ipar[6] = 5;
    EXPECT_EQ(printed([&] { s.forward(g); }), "");
    // Free reports in double precision whatever the transform was, without a text.
    zor_int stat;
    ZorDftDescriptor* none = nullptr;
    s.ipar[1] = 1;
    EXPECT_EQ(printed([&] { s.call.free(&none, s.ipar, &stat); }),
              "\n<396>\n<397>" + joined(base, {"38 "}) + "\n\n");
  }
}

}  // namespace
