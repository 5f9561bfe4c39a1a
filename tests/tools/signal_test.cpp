// SPDX-License-Identifier: MIT
// Recordings and columns of numbers, and the subcommand that transforms them.
#include "tools/signal.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/tools/fault_of.h"
#include "tests/tools/program.h"

namespace {

using zor_tools::signal;

class Signal : public testing::Test, protected zor_test::scratch_folder {};

std::string wav(uint16_t code, uint16_t channels, uint16_t bits, const std::string& data) {
  std::string out = "RIFF....WAVEodd \3";
  out.append("\0\0\0abc\0fmt \x10\0\0\0", 15);
  const uint32_t rate = 8000, bytes = rate * channels * bits / 8, size = uint32_t(data.size());
  const uint16_t frame = uint16_t(channels * bits / 8);
  const auto put = [&](auto v) { out.append(reinterpret_cast<const char*>(&v), sizeof v); };
  put(code), put(channels), put(rate), put(bytes), put(frame), put(bits);
  out += "data";
  put(size);
  return out + data;
}

std::string without_end(const std::string& bytes, size_t cut) { return bytes.substr(0, bytes.size() - cut); }

TEST_F(Signal, ReadsEveryWavFormat) {
  const float f[] = {0.5f, -0.25f};
  const double d[] = {0.5, -0.25};
  const struct {
    uint16_t code, bits;
    std::string data;
  } cases[] = {{1, 8, std::string("\xC0\x60", 2)},
               {1, 16, std::string("\0\x40\0\xE0", 4)},
               {1, 24, std::string("\0\0\x40\0\0\xE0", 6)},
               {1, 32, std::string("\0\0\0\x40\0\0\0\xE0", 8)},
               {3, 32, std::string(reinterpret_cast<const char*>(f), sizeof f)},
               {3, 64, std::string(reinterpret_cast<const char*>(d), sizeof d)}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bits);
    const signal mono = zor_tools::read_signal(write("a.wav", wav(c.code, 1, c.bits, c.data)), 1, 5);
    EXPECT_EQ(mono.rate, 8000);
    EXPECT_EQ(mono.samples, (std::vector<double>{0.5, -0.25}));
    const signal second = zor_tools::read_signal(write("a.wav", wav(c.code, 2, c.bits, c.data)), 2, 5);
    EXPECT_EQ(second.samples, (std::vector<double>{-0.25}));
  }
}

TEST_F(Signal, ReadsColumns) {
  const signal s =
      zor_tools::read_signal(write("a.csv", "t,value\r\n# note\r\n0,1.5\r\n1; -2e3\n\n2\t 7"), 2, 10);
  EXPECT_EQ(s.rate, 10);
  EXPECT_EQ(s.samples, (std::vector<double>{1.5, -2000, 7}));
  const signal marked = zor_tools::read_signal(write("a.csv", "\xEF\xBB\xBF\n# note\nvalue\n3\n-1\n"), 1, 1);
  EXPECT_EQ(marked.samples, (std::vector<double>{3, -1}));
  EXPECT_EQ(zor_tools::read_signal(write("a.csv", "\xEF\xBB\xBF\x33\n"), 1, 1).samples,
            (std::vector<double>{3}));
  EXPECT_EQ(
      zor_tools::read_signal(write("q.csv", "\"s, in m\",\"v\"\n\"1,5\",\"-2.5\"\n\"x\",4\n"), 2, 1).samples,
      (std::vector<double>{-2.5, 4}));
  const signal back = zor_tools::read_signal(write("b.csv", zor_tools::csv_text(s)), 2, 10);
  EXPECT_EQ(back.samples, s.samples);
  const signal wav_back =
      zor_tools::read_signal(write("b.wav", zor_tools::wav_text({{0.5, -0.125}, 44100})), 1, 1);
  EXPECT_EQ(wav_back.rate, 44100);
  EXPECT_EQ(wav_back.samples, (std::vector<double>{0.5, -0.125}));
}

TEST_F(Signal, NamesFaults) {
  const struct {
    std::string bytes;
    int column;
    const char* fault;
  } cases[] = {{"1\n2\nx\n", 1, ":3: not a number"},
               {"1,2\n3\n", 2, ":2: no column 2"},
               {"1\ninf\n", 1, ":2: not a finite"},
               {"# nothing\n", 1, ": no samples"},
               {"1\n2abc\n", 1, ":2: not a number"},
               {"RIFF....WAVx", 1, ": not a WAVE file"},
               {wav(1, 1, 12, ""), 1, "not supported"},
               {wav(1, 1, 16, "ab"), 2, "channel 2 of 1"},
               {wav(1, 1, 16, ""), 1, ": no samples"},
               {wav(1, 1, 16, "a"), 1, ": 1 bytes of samples, no multiple of 2"},
               {without_end(wav(1, 1, 16, "abcd"), 2), 1, ": cut off: 2 of 4 bytes of chunk 'data'"},
               {"RF64" + wav(1, 1, 16, "ab").substr(4), 1, ": an RF64 recording"},
               {"\"1\"\n\"2x\"\n", 1, ":2: not a number"},
               {"1.5x\n2\n", 1, ":1: not a number"},
               {"a\nb\n1\n", 1, ":2: not a number"},
               {std::string("1\n2\0\n", 5), 1, ": neither a WAV file nor text"},
               {wav(3, 1, 32, std::string("\0\0\x80\x3F\0\0\xC0\x7F", 8)), 1, "sample 2 is not a finite"}};
  for (const auto& c : cases) {
    const std::string fault =
        zor_test::fault_of([&] { zor_tools::read_signal(write("bad", c.bytes), c.column, 1); });
    EXPECT_NE(fault.find(c.fault), std::string::npos) << fault;
  }
}

TEST_F(Signal, FaultsLeaveNoFile) {
  const scratch_folder& folder = *this;
  write("x.csv", "1\n2\n3\n");
  const struct {
    const char* arguments;
    int status;
    const char* fault;
  } cases[] = {{"x.csv -o s.csv --rate nan", 2, "--rate"},
               {"x.csv -o s.csv --filter nan --filtered y.csv", 2, "--filter"},
               {"x.csv -o s.csv --plot none/p.svg", 1, "none/p.svg"},
               {"x.csv -o s.csv --filter 1 --filtered none/y.csv", 1, "none/y.csv"},
               {"x.csv -o s.csv --rate 0.5 --filter 1 --filtered y.wav", 2, "rate 0.5"},
               {"x.csv -o s.csv --rate 1e10 --filter 1 --filtered y.wav", 2, "rate 1e+10"},
               {". -o s.csv", 2, "directory"}};
  for (const auto& c : cases) {
    const zor_test::outcome got = zor_test::run(folder, std::string("fft ") + c.arguments);
    EXPECT_EQ(c.status, got.status) << c.arguments;
    EXPECT_NE(got.err.find(c.fault), std::string::npos) << got.err;
    EXPECT_EQ(folder.names(), std::set<std::string>{"x.csv"}) << c.arguments;
  }
  write("x.csv", "1e308\n1e308\n1e308\n");
  const zor_test::outcome large = zor_test::run(folder, "fft x.csv");
  EXPECT_NE(large.out.find("mean        beyond double precision\n"), std::string::npos) << large.out;
}

TEST_F(Signal, FilterKeepsTheLowToneAlone) {
  std::ostringstream text;
  for (int i = 0; i < 999; ++i)
    text << 1 + std::cos(2 * M_PI * 10 * i / 999) + std::cos(2 * M_PI * 300 * i / 999) << '\n';
  write("tones.txt", text.str());
  zor_test::good_run(*this, "fft tones.txt --rate 999 -o s.csv --filter 100 --filtered low.csv");
  const signal amplitudes = zor_tools::read_signal(path("s.csv"), 2, 1);
  ASSERT_EQ(amplitudes.samples.size(), 500u);
  EXPECT_NEAR(amplitudes.samples[0], 1, 1e-5);
  EXPECT_NEAR(amplitudes.samples[10], 1, 1e-5);
  EXPECT_NEAR(amplitudes.samples[300], 1, 1e-5);
  EXPECT_NEAR(amplitudes.samples[11], 0, 1e-5);
  const signal low = zor_tools::read_signal(path("low.csv"), 2, 1);
  ASSERT_EQ(low.samples.size(), 999u);
  for (int i = 0; i < 999; ++i)
    EXPECT_NEAR(low.samples[size_t(i)], 1 + std::cos(2 * M_PI * 10 * i / 999), 1e-4);
}

}  // namespace
