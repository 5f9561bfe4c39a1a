// SPDX-License-Identifier: MIT
// zor convolve and zor correlate: recordings of every sample format, images, templates; results against plain
// sums, and what is refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/tools/program.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool under_sanitizer = true;
#else
constexpr bool under_sanitizer = false;
#endif

using namespace zor_test;

using samples = std::vector<double>;  // of all channels, frame by frame

struct format {
  bool floating;
  int bits, channels;
};

std::string wav(const format& f, const samples& values, uint32_t rate = 8000) {
  std::string data, out = "RIFF....WAVEfmt ";
  const auto put = [](std::string* to, auto v) { to->append(reinterpret_cast<const char*>(&v), sizeof v); };
  for (const double v : values) {
    if (f.floating) {
      f.bits == 32 ? put(&data, float(v)) : put(&data, v);
    } else {
      const int32_t number = int32_t(std::lround(std::ldexp(v, f.bits - 1)));
      data.append(reinterpret_cast<const char*>(&number), size_t(f.bits) / 8);
    }
  }
  put(&out, uint32_t(16)), put(&out, uint16_t(f.floating ? 3 : 1)), put(&out, uint16_t(f.channels));
  put(&out, rate), put(&out, uint32_t(rate * f.bits / 8)), put(&out, uint16_t(f.channels * f.bits / 8));
  put(&out, uint16_t(f.bits));
  out += "data";
  put(&out, uint32_t(data.size()));
  return out + data;
}

samples samples_of(const std::string& bytes, const format& f) {
  samples values;
  const size_t step = size_t(f.bits) / 8;
  for (size_t at = 44; at + step <= bytes.size(); at += step) {
    if (f.floating) {
      float single;
      double wide;
      std::memcpy(&single, bytes.data() + at, 4);
      if (step == 8) std::memcpy(&wide, bytes.data() + at, 8);
      values.push_back(step == 8 ? wide : double(single));
    } else {
      int32_t number = 0;
      std::memcpy(reinterpret_cast<char*>(&number) + 4 - step, bytes.data() + at, step);
      values.push_back(number * 0x1p-31);
    }
  }
  return values;
}

samples noise(size_t count, double size) {
  samples values;
  uint64_t state = count;
  for (size_t i = 0; i < count; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    // Exact in every format.
    values.push_back(std::floor(double(int64_t(state) >> 40) * 0x1p-23 * size * 0x1p15) * 0x1p-15);
  }
  return values;
}

// Every format; a response of one channel for all or of one each; more frames than are taken at once.
TEST(ConvCli, RecordingsThroughResponses) {
  const struct {
    format f;
    size_t frames;
    int response_channels;
  } cases[] = {{{false, 16, 1}, 5000, 1},
               {{false, 24, 2}, 3000, 1},
               {{false, 32, 1}, 100, 1},
               {{true, 32, 2}, 300000, 2},
               {{true, 64, 1}, 262145, 1}};
  for (const auto& c : cases) {
    const scratch_folder folder;
    const size_t channels = size_t(c.f.channels), taps = 40;
    const samples x = noise(c.frames * channels, 0.1), h = noise(taps * size_t(c.response_channels), 0.2);
    folder.write("x.wav", wav(c.f, x));
    folder.write("h.wav", wav({true, 64, c.response_channels}, h));
    const outcome o = good_run(folder, "convolve x.wav h.wav -o z.wav --gain 0.5");
    const samples z = samples_of(folder.read("z.wav"), c.f);
    ASSERT_EQ(z.size(), (c.frames + taps - 1) * channels);
    const double step = c.f.floating ? 1e-7 : std::ldexp(0.5000001, 1 - c.f.bits);
    for (size_t k = 0; k < c.frames + taps - 1; ++k)
      for (size_t channel = 0; channel < channels; ++channel) {
        double sum = 0;
        for (size_t j = k < c.frames ? 0 : k - c.frames + 1; j < taps && j <= k; ++j)
          sum += x[(k - j) * channels + channel] * h[c.response_channels == 1 ? j : j * channels + channel];
        ASSERT_NEAR(z[k * channels + channel], 0.5 * sum, step + 1e-12) << c.f.bits << " bits, frame " << k;
      }
  }
}

TEST(ConvCli, ClippedSamplesAreCounted) {
  const scratch_folder folder;
  folder.write("x.wav", wav({false, 16, 1}, {0.5, -0.75, 0.25, 0}));
  folder.write("h.wav", wav({true, 32, 1}, {2}));
  const outcome o = good_run(folder, "convolve x.wav h.wav -o z.wav");
  EXPECT_NE(o.out.find("peak        1.5, 2 samples clipped"), std::string::npos) << o.out;
  EXPECT_EQ(samples_of(folder.read("z.wav"), {false, 16, 1}), (samples{32767.0 / 32768, -1, 0.5, 0}));
}

// Pixels beyond the border repeat those of the border.
TEST(ConvCli, ImagesThroughKernels) {
  const int rows = 9, columns = 13;
  std::vector<int> red(rows * columns), green = red, blue = red;
  for (int p = 0; p < rows * columns; ++p)
    red[size_t(p)] = p * 37 % 251, green[size_t(p)] = p * p % 200, blue[size_t(p)] = p;
  std::string grey = "P5 # grey\n13 9\n255\n", colour = "P3\n13 9\n1000\n";
  for (size_t p = 0; p < red.size(); ++p) {
    grey += char(red[p]);
    colour += fmt::format("{} {} {}\n", red[p], green[p], blue[p]);
  }
  const scratch_folder folder;
  folder.write("grey.pgm", grey);
  folder.write("colour.ppm", colour);
  folder.write("kernel", "# an odd one\n0 0.5 0.25\n0.125 0 0.125\n");
  const auto neighbour = [&](const std::vector<int>& plane, int i, int j) {
    return plane[size_t(std::clamp(i, 0, rows - 1) * columns + std::clamp(j, 0, columns - 1))];
  };
  const double kernel[2][3] = {{0, 0.5, 0.25}, {0.125, 0, 0.125}};
  outcome o = good_run(folder, "convolve colour.ppm kernel -o z.ppm");
  const std::string z = folder.read("z.ppm"), head = "P6\n13 9\n1000\n";
  ASSERT_EQ(z.size(), head.size() + red.size() * 6);
  ASSERT_EQ(z.substr(0, head.size()), head);
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j)
      for (int c = 0; c < 3; ++c) {
        double sum = 0;
        for (int a = 0; a < 2; ++a)
          for (int b = 0; b < 3; ++b)
            sum += kernel[a][b] * neighbour(c == 0 ? red : c == 1 ? green : blue, i - a + 0, j + 1 - b);
        const size_t at = head.size() + size_t((i * columns + j) * 3 + c) * 2;
        const int value = uint8_t(z[at]) * 256 + uint8_t(z[at + 1]);
        ASSERT_EQ(value, int(std::nearbyint(sum))) << i << " " << j << " plane " << c;
      }
  o = good_run(folder, "convolve grey.pgm sobel -o s.pgm --gain 0.25");
  const std::string s = folder.read("s.pgm");
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < columns; ++j) {
      double across = 0, down = 0;
      for (int k = -1; k <= 1; ++k) {
        const int weight = k == 0 ? 2 : 1;
        across += weight * (neighbour(red, i + k, j + 1) - neighbour(red, i + k, j - 1));
        down += weight * (neighbour(red, i + 1, j + k) - neighbour(red, i - 1, j + k));
      }
      const double size = std::min(255.0, 0.25 * std::sqrt(across * across + down * down));
      ASSERT_NEAR(uint8_t(s[s.size() - red.size() + size_t(i * columns + j)]), size, 0.5001);
    }
  // A constant image stays what it is under a mean.
  folder.write("flat.pgm", "P2 3 2 255 7 7 7 7 7 7");
  good_run(folder, "convolve flat.pgm gauss --sigma 4 -o f.pgm");
  EXPECT_EQ(folder.read("f.pgm"), "P5\n3 2\n255\n" + std::string(6, 7));
}

TEST(ConvCli, TemplatesAreFound) {
  const scratch_folder folder;
  std::string text, part;
  for (int i = 0; i < 500; ++i) {
    const std::string line = fmt::format("{}\n", (i * i * 7919 + i) % 1009);
    text += line;
    if (i >= 217 && i < 250) part += line;
  }
  folder.write("signal.txt", text);
  folder.write("part.txt", part);
  outcome o = good_run(folder, "correlate part.txt signal.txt --plot p.svg");
  EXPECT_NE(o.out.find("best        217, correlation 1.000000\n"), std::string::npos) << o.out;
  EXPECT_NE(folder.read("p.svg").find("<svg"), std::string::npos);
  // Half as bright and a little lighter than in the image, which has a brighter place elsewhere.
  std::string image = "P2 40 30 255\n", pattern = "P2 6 5 255\n";
  for (int i = 0; i < 30; ++i)
    for (int j = 0; j < 40; ++j) {
      const int value = i > 20 && j > 30 ? 255 : (i * 31 + j * 17 + i * j) % 97;
      image += fmt::format("{} ", value);
      if (i >= 11 && i < 16 && j >= 23 && j < 29) pattern += fmt::format("{} ", value / 2 + 9);
    }
  folder.write("image.pgm", image);
  folder.write("pattern.pgm", pattern);
  o = good_run(folder, "correlate pattern.pgm image.pgm --plot q.svg");
  EXPECT_NE(o.out.find("best        column 23, row 11, correlation 0.99"), std::string::npos) << o.out;
  EXPECT_EQ(digest_line(o.out), digest_line(run(folder, "correlate pattern.pgm image.pgm --threads 7").out));
}

// The example recordings are those of the script, their convolution is right, and the documentation shows it.
TEST(ConvCli, ExampleRecordings) {
  const scratch_folder folder;
  const std::string script = fmt::format("python3 '{}/make_recording.py' ", ZOR_EXAMPLES);
  ASSERT_EQ(0, std::system((script + folder.path("")).c_str()));
  for (const char* name : {"string.wav", "hall.wav"}) {
    std::ifstream kept(std::string(ZOR_EXAMPLES) + "/" + name, std::ios::binary);
    EXPECT_TRUE(folder.read(name) == std::string(std::istreambuf_iterator<char>(kept), {})) << name;
  }
  const outcome o = good_run(folder, "convolve string.wav hall.wav -o strings_in_hall.wav");
  const format f = {false, 16, 1};
  const samples x = samples_of(folder.read("string.wav"), f), h = samples_of(folder.read("hall.wav"), f),
                z = samples_of(folder.read("strings_in_hall.wav"), f);
  ASSERT_EQ(z.size(), x.size() + h.size() - 1);
  for (size_t k = 0; k < z.size(); k += 97) {
    double sum = 0;
    for (size_t j = k < x.size() ? 0 : k - x.size() + 1; j < h.size() && j <= k; ++j) sum += x[k - j] * h[j];
    ASSERT_NEAR(z[k], sum, 0x1p-16 + 1e-9) << k;
  }
  const std::string files = fmt::format(
      "--picture '{0}/p.svg' '{0}/string.wav' '{0}/hall.wav' '{0}/strings_in_hall.wav'", folder.path(""));
  ASSERT_EQ(0, std::system((script + files).c_str()));
  std::ifstream shown(std::string(ZOR_EXAMPLES) + "/../docs/convolution.svg", std::ios::binary);
  EXPECT_TRUE(folder.read("p.svg") == std::string(std::istreambuf_iterator<char>(shown), {}));
}

// Chunks of odd length before and behind the samples, a format that says more than it must, sizes that a
// writer into a pipe cannot know; the program's own standard streams, and pipes for both files.
TEST(ConvCli, OddRecordingsAndPipes) {
  const scratch_folder folder;
  const format f = {false, 16, 1};
  const samples x = noise(3000, 0.5), h = noise(30, 0.25);
  const std::string plain = wav(f, x);
  folder.write("x.wav", plain);
  folder.write("h.wav", wav({true, 32, 1}, h));
  outcome o = good_run(folder, "convolve x.wav h.wav -o z.wav");
  const std::string expected = folder.read("z.wav"), digest = digest_line(o.out);
  const std::string odd_chunk("LIST\3\0\0\0abc\0", 12);
  std::string extended = plain, open_end = plain;
  extended.replace(16, 6, std::string("\x28\0\0\0\xFE\xFF", 6));
  extended.insert(36, std::string("\x16\0\x10\0\4\0\0\0\1\0", 10) + std::string(14, '\0'));
  open_end.replace(40, 4, "\xFF\xFF\xFF\xFF");
  for (const std::string& variant :
       {plain.substr(0, 12) + odd_chunk + plain.substr(12),
        plain.substr(0, 36) + odd_chunk + plain.substr(36), plain + odd_chunk, extended, open_end}) {
    folder.write("v.wav", variant);
    o = good_run(folder, "convolve v.wav h.wav -o z.wav");
    EXPECT_EQ(digest_line(o.out), digest);
    EXPECT_TRUE(folder.read("z.wav") == expected);
  }
  for (const char* command :
       {"'{}' convolve - h.wav -o z.wav < x.wav", "cat x.wav | '{}' convolve - h.wav -o z.wav",
        "cat h.wav | '{}' convolve x.wav - -o z.wav",
        "cat x.wav | '{}' convolve - h.wav -o - 2> report > z.wav",
        "mkfifo p && (cat x.wav > p & '{}' convolve p h.wav -o z.wav)"}) {
    folder.remove("z.wav");
    const std::string line = "{ cd '" + folder.path("") + "' && " +
                             fmt::format(fmt::runtime(command), ZOR_PROGRAM) + "; } > /dev/null";
    EXPECT_EQ(0, std::system(line.c_str())) << command;
    EXPECT_TRUE(folder.read("z.wav") == expected) << command;
  }
}

// A recording larger than the memory that the program may have: block by block, sample for sample.
TEST(ConvCli, RecordingsLargerThanMemory) {
  if (under_sanitizer) GTEST_SKIP() << "sanitizers map far more memory than that";
  const scratch_folder folder;
  constexpr uint32_t frames = 60u << 20;  // 120 MiB, all but a few samples a hole in the file
  std::string head = wav({false, 16, 1}, {});
  const uint32_t bytes = 2 * frames;
  std::memcpy(&head[40], &bytes, 4);
  folder.write("x.wav", head);
  std::filesystem::resize_file(folder.path("x.wav"), 44 + bytes);
  const std::vector<uint32_t> places = {0, (1u << 18) - 2, 44444444, frames - 1};
  std::fstream file(folder.path("x.wav"), std::ios::in | std::ios::out | std::ios::binary);
  for (const uint32_t at : places) file.seekp(44 + 2 * std::streamoff(at)).write("\0\x40", 2);
  file.close();
  folder.write("h.wav", wav({true, 64, 1}, {0.5, 0.25, -0.125}));
  const std::string line =
      fmt::format("cd '{}' && ulimit -v {} && '{}' convolve x.wav h.wav -o z.wav > /dev/null",
                  folder.path(""), bytes / 1024 - 1024, ZOR_PROGRAM);
  ASSERT_EQ(0, std::system(line.c_str()));
  std::ifstream result(folder.path("z.wav"), std::ios::binary);
  std::vector<int16_t> block(1 << 20);
  uint64_t at = 0, others = 0;
  std::vector<int16_t> found;
  result.seekg(44);
  while (result.read(reinterpret_cast<char*>(block.data()), std::streamsize(block.size() * 2)),
         result.gcount() > 0)
    for (std::streamsize i = 0; i < result.gcount() / 2; ++i, ++at) {
      const bool near = std::ranges::any_of(places, [&](uint64_t p) { return at >= p && at < p + 3; });
      if (near) found.push_back(block[size_t(i)]);
      others += !near && block[size_t(i)] != 0;
    }
  EXPECT_EQ(at, frames + 2u);
  EXPECT_EQ(others, 0u);
  EXPECT_EQ(found, (std::vector<int16_t>{8192, 4096, -2048, 8192, 4096, -2048, 8192, 4096, -2048, 8192, 4096,
                                         -2048}));
}

// Refused with status 2 and a line that names the file; no output appears.
TEST(ConvCli, Refusals) {
  const scratch_folder folder;
  folder.write("x.wav", wav({false, 16, 2}, {0, 0, 0, 0}));
  folder.write("other.wav", wav({true, 32, 1}, {1}, 44100));
  folder.write("three.wav", wav({true, 32, 3}, {1, 1, 1}));
  folder.write("nan.wav", wav({true, 32, 2}, {1, NAN}));
  folder.write("h.wav", wav({true, 32, 1}, {1}));
  folder.write("twelve.wav", wav({false, 12, 1}, {0}));
  std::string odd = wav({false, 16, 2}, {0, 0});
  odd[32] = 6;  // bytes of a frame
  folder.write("odd.wav", odd);
  folder.write("half.wav", wav({false, 16, 2}, {0, 0, 0}));
  folder.write("bare.wav", wav({false, 16, 1}, {0}).substr(0, 36));
  std::string lying = wav({false, 16, 1}, {0});
  lying[43] = 0x7F;  // 2 GB of samples
  folder.write("lying.wav", lying);
  folder.write("cut.wav", wav({false, 16, 1}, {0.5, 0.5}).substr(0, 46));
  folder.write("i.pgm", "P5 2 2 255\nabcd");
  folder.write("cut.pgm", "P5 2 2 255\nabc");
  folder.write("big.pgm", "P2 2 2 70000 1 1 1 1");
  folder.write("uneven", "1 2\n3\n");
  folder.write("words", "1 two\n");
  folder.write("short.txt", "1\n2\n");
  folder.write("long.txt", "1\n2\n3\n");
  const char* const commands[] = {"convolve x.wav other.wav -o z",
                                  "convolve x.wav three.wav -o z",
                                  "convolve nan.wav h.wav -o z",
                                  "convolve twelve.wav h.wav -o z",
                                  "convolve cut.wav h.wav -o z",
                                  "convolve absent.wav h.wav -o z",
                                  "convolve odd.wav h.wav -o z",
                                  "convolve half.wav h.wav -o z",
                                  "convolve bare.wav h.wav -o z",
                                  "convolve lying.wav h.wav -o z",
                                  "convolve h.wav lying.wav -o z",
                                  "convolve cut.pgm gauss -o z",
                                  "convolve big.pgm gauss -o z",
                                  "convolve i.pgm uneven -o z",
                                  "convolve i.pgm words -o z",
                                  "convolve i.pgm absent -o z",
                                  "convolve i.pgm gauss -o z --sigma 0",
                                  "convolve long.txt gauss -o z",
                                  "convolve i.pgm gauss",
                                  "correlate long.txt short.txt",
                                  "correlate long.txt i.pgm",
                                  "correlate i.pgm absent"};
  const auto before = folder.names();
  for (const char* command : commands) {
    const outcome o = run(folder, command);
    EXPECT_EQ(o.status, 2) << command << ": " << o.out << o.err;
    EXPECT_EQ(o.err.substr(0, 5), "zor: ") << command;
    EXPECT_EQ(folder.names(), before) << command;
  }
}

}  // namespace
