// SPDX-License-Identifier: MIT
// zor poisson and zor trig: solutions that the grid has exactly, every kind of file, the study's orders, what
// is refused.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "tests/ref/trig.h"
#include "tests/tools/program.h"

namespace {

using namespace zor_test;

std::vector<double> numbers_in(std::string text) {
  for (char& c : text)
    if (c == ',') c = ' ';
  std::istringstream words(text);
  std::vector<double> values;
  for (double v; words >> v;) values.push_back(v);
  return values;
}

std::string constant_grid(int width, int height, const char* value) {
  std::string text;
  for (int i = 0; i < width * height; ++i)
    text += fmt::format("{}{}", value, (i + 1) % width == 0 ? '\n' : ',');
  return text;
}

// Polynomials of second degree, which the schemes reproduce: u(x, y) on lines from the top one down.
TEST(PoissonCommand, SolutionsThatTheGridHas) {
  struct exact {
    const char* problem;
    int width, height;
    double (*u)(double x, double y);
    double hx, hy;
  };
  const exact cases[] = {
      {"data ones.csv\nbottom derivative\ntop derivative\n", 9, 5,
       [](double x, double) { return x * (1 - x) / 2; }, 0.125, 0.125},
      {"data ones.csv\nlengths 8 1\noffset 1\nfactor -1 # minus\nleft periodic\nright periodic\nbottom value "
       "3\ntop value 4\n",
       9, 5, [](double, double y) { return 3 + y * y; }, 1, 0.25},
      {"intervals 6 4\nlengths 3 2\nleft value 1\nright derivative 2\nbottom derivative\ntop derivative 0\n",
       7, 5, [](double x, double) { return 1 + 2 * x; }, 0.5, 0.5},
      {"data ones.csv\nq 4\nleft derivative\nright derivative\nbottom periodic\ntop periodic\n", 9, 5,
       [](double, double) { return 0.25; }, 1, 1},
      {"intervals 4 3 2\nleft value 1\nright value 3\nbottom periodic\ntop periodic\nfront derivative\nback "
       "derivative\n",
       5, 12, [](double x, double) { return 1 + 2 * x; }, 0.25, 1}};
  const scratch_folder folder;
  folder.write("ones.csv", constant_grid(9, 5, "1"));
  for (const exact& c : cases)
    for (const char* precision : {"", "precision single\n"}) {
      folder.write("p.txt", std::string(c.problem) + precision);
      const outcome got = good_run(folder, "poisson p.txt -o -");
      const std::vector<double> u = numbers_in(got.out);
      ASSERT_EQ(size_t(c.width * c.height), u.size()) << c.problem;
      for (int j = 0; j < c.height; ++j)
        for (int i = 0; i < c.width; ++i)
          ASSERT_NEAR(c.u(c.hx * i, c.hy * (c.height - 1 - j)), u[size_t(i + c.width * j)],
                      *precision == 0 ? 1e-13 : 1e-5)
              << c.problem << i << " " << j;
      const size_t at = got.err.find("residual    ");
      ASSERT_NE(std::string::npos, at) << got.err;
      EXPECT_LT(std::stod(got.err.substr(at + 12)), *precision == 0 ? 1e-11 : 1e-2) << got.err;
    }
}

// One right-hand side in all kinds of files, one solution in all kinds; the bits on any number of threads.
TEST(PoissonCommand, KindsOfFiles) {
  const scratch_folder folder;
  folder.write("f.csv", "\xEF\xBB\xBF# from the top\r\n0, 1, 0.2\r\n0.4 0.6; 0.8\r\n1 0 0\n\n0.2,0.2,1\n");
  folder.write("f.pgm", "P2 # grey\n3 4 5\n0 5 1 2 3 4 5 0 0 1 1 5");
  folder.write(
      "f.mtx",
      "%%MatrixMarket matrix array real general\n3 4\n0.2\n0.2\n1\n1\n0\n0\n0.4\n0.6\n0.8\n0\n1\n0.2\n");
  std::string first;
  for (const char* data : {"f.csv", "f.pgm", "f.mtx", "-"}) {
    folder.write("p.txt", fmt::format("data {}\nq 1.5\ntop derivative -0.5\n", data));
    const outcome got = good_run(folder, "poisson p.txt -o u.mtx --threads 3 <f.csv");
    if (first.empty()) first = digest_line(got.out);
    EXPECT_EQ(first, digest_line(got.out)) << data;
  }
  const outcome other = run(folder, "poisson p.txt -o u.csv --threads 1 --plot u.svg <f.csv");
  EXPECT_EQ(first, digest_line(other.out)) << other.err;
  EXPECT_NE(std::string::npos, folder.read("u.svg").find("<svg"));
  folder.write("again.txt", "data u.csv\n");
  folder.write("matrix.txt", "data u.mtx\n");
  EXPECT_EQ(digest_line(run(folder, "poisson again.txt").out),
            digest_line(run(folder, "poisson matrix.txt").out));
  good_run(folder, "poisson again.txt -o u.pgm --quiet");
  const std::string image = folder.read("u.pgm");
  EXPECT_EQ("P5\n3 4\n255\n", image.substr(0, 11));
  EXPECT_EQ(size_t(11 + 12), image.size());
}

TEST(PoissonCommand, SingularProblemsAreTold) {
  const scratch_folder folder;
  folder.write("p.txt", "data f.csv\nleft periodic\nright periodic\nbottom derivative\ntop derivative\n");
  folder.write("f.csv", "1,0,1\n1.5,2.5,1.5\n3,4,3\n");
  const outcome got = good_run(folder, "poisson p.txt");
  EXPECT_NE(std::string::npos, got.out.find("singular    u has a mean of zero; f is out of balance by 2\n"))
      << got.out;
}

TEST(PoissonCommand, StudyFindsTheSecondOrder) {
  const scratch_folder folder;
  const outcome got = good_run(folder, "poisson --study");
  std::istringstream lines(got.out);
  std::string line;
  std::getline(lines, line);
  int rows = 0;
  for (; std::getline(lines, line); ++rows) {
    const std::vector<double> v = numbers_in(line.substr(12));
    const bool first = v[0] == 8;
    ASSERT_EQ(size_t(first ? 3 : 5), v.size()) << line;
    if (v[0] > 16) {
      EXPECT_NEAR(2, v[2], 0.05) << line;
    }
    // What rounding adds in single precision grows with the number of intervals, not with its square.
    EXPECT_NEAR(v[1], v[first ? 2 : 3], 1e-6 * v[0] + 1e-5) << line;
  }
  EXPECT_EQ(4 * 8, rows);
}

TEST(PoissonCommand, RefusesInOneLine) {
  const scratch_folder folder;
  for (const auto& [name, text] :
       {std::pair{"p", ""},
        {"good", "intervals 2 2\n"},
        {"small.csv", "1 2 3\n4 5 6\n7 8 9\n"},
        {"line.csv", "1 2 3\n4 5 6\n"},
        {"uneven.csv", "1 2 3\n4 5\n"},
        {"text.csv", "1 2 3\n4 five 6\n"},
        {"infinite.mtx", "%%MatrixMarket matrix array real general\n3 3\n1\n1\n1\n1\n1\ninf\n1\n1\n1\n"},
        {"coordinate.mtx", "%%MatrixMarket matrix coordinate real general\n3 3 1\n1 1 1\n"},
        {"cut.pgm", "P5 3 3 255\nabcdefgh"},
        {"colour.ppm", "P3 1 1 255\n1 2 3\n"},
        {"short.txt", "1\n2\n"}})
    folder.write(name, text);
  const std::pair<const char*, const char*> problems[] = {
      {"# nothing\n", "p: neither intervals nor data"},
      {"intervals 4 4\ncolour red\n", "p:2: colour: no word of problem files"},
      {"q 1\nq 2\n", "p:2: q: it stands in a line before"},
      {"intervals 4\n", "p:1: intervals: two or three axes are expected"},
      {"intervals 4 1\n", "p:1: intervals: whole numbers from 2 to 2^30 are expected"},
      {"intervals 4 4.5\n", "p:1: intervals: whole numbers from 2 to 2^30 are expected"},
      {"intervals 1e300 4\n", "p:1: intervals: whole numbers from 2 to 2^30 are expected"},
      {"intervals 4 4\nq nan\n", "p:2: q: one finite number is expected"},
      {"intervals 4 4\nq 1 2\n", "p:2: q: one finite number is expected"},
      {"intervals 4 4\nleft open\n", "p:2: left: value, derivative or periodic is expected"},
      {"intervals 4 4\nleft periodic 3\n", "p:2: left: nothing stands behind periodic"},
      {"intervals 4 4\nleft periodic\n", "p: side: an axis is periodic on one side only"},
      {"intervals 4 4\nfront value 1\n", "p: front and back are sides of a box with three axes"},
      {"intervals 4 4\nlengths 1 2 3\n", "p: 3 lengths for 2 axes"},
      {"intervals 4 4\nlengths 1 -1\n", "p: length: an axis has no length above 0"},
      {"intervals 1073741824 1073741824\n", "p: n: the grid has more points than memory can hold"},
      {"data nothing.csv\n", "nothing.csv: No such file or directory"},
      {"intervals 4 4\ndata small.csv\n", "small.csv: 3 by 3 values, and the grid has 5 by 5"},
      {"data line.csv\n", "line.csv: 3 by 2 values, and a grid has 3 by 3 at least"},
      {"data uneven.csv\n", "uneven.csv:2: 2 values, and 3 in the lines before"},
      {"data text.csv\n", "text.csv:2: value 2 is not a finite number"},
      {"data infinite.mtx\n", "infinite.mtx: value (3, 2) is not finite"},
      {"data coordinate.mtx\n", "coordinate.mtx:1: not a general real array"},
      {"data cut.pgm\n", "cut.pgm: cut off: 3 by 3 pixels need 9 bytes"},
      {"data colour.ppm\n", "colour.ppm: a colour image; a grid takes a grey one"}};
  for (const auto& [text, message] : problems) {
    folder.write("p", text);
    const refused_run runs[] = {{"poisson p", 2, message}};
    expect_refused(folder, runs);
  }
  const refused_run cases[] = {
      {"poisson", 2, "PROBLEM or --study is required"},
      {"poisson good --study", 2, "--study has a problem of its own and writes no file"},
      {"poisson --study -o u.csv", 2, "--study has a problem of its own and writes no file"},
      {"poisson missing", 2, "missing: No such file or directory"},
      {"poisson good -o u.txt", 2, "u.txt: the name of a grid ends in .mtx, .csv or .pgm"},
      {"poisson good -o none/u.csv", 1, "none/u.csv: No such file or directory"},
      {"trig dct2", 2, "FILE is required"},
      {"trig dct1 short.txt -o x", 2, "short.txt: 2 values are too few for dct1"},
      {"trig dct2 text.csv --column 2 -o x", 2, "text.csv:2: not a number"},
      {"trig dct2 missing -o x", 2, "missing: No such file or directory"}};
  expect_refused(folder, cases);
}

TEST(TrigCommand, TransformsAColumn) {
  const scratch_folder folder;
  std::string text = "time,value\n";
  const std::vector<double> x = {1, -2.5, 0.25, 3, 0, 7, -1};
  for (size_t i = 0; i < x.size(); ++i) text += fmt::format("{},{}\n", i, x[i]);
  folder.write("x.csv", text);
  const double m = double(x.size());
  for (const bool cosine : {true, false}) {
    const outcome got =
        good_run(folder, fmt::format("trig {} x.csv --column 2 --scale 0.5 -o -", cosine ? "dct2" : "dst4"));
    const std::vector<double> result = numbers_in(got.out);
    ASSERT_EQ(x.size(), result.size());
    for (size_t k = 0; k < x.size(); ++k) {
      long double sum = 0;
      for (size_t j = 0; j < x.size(); ++j)
        sum += x[j] * (cosine ? std::cos((2 * double(j) + 1) * double(k) * zor_ref::pi / (2 * m))
                              : std::sin((2 * double(j) + 1) * (2 * double(k) + 1) * zor_ref::pi / (4 * m)));
      EXPECT_NEAR(double(sum), result[k], 1e-14) << k;
    }
  }
  // There and back: both multiply by 2 m.
  good_run(folder, "trig dst2 x.csv --column 2 -o y.txt");
  const outcome back = run(folder, "trig dst3 y.txt --scale 0.0714285714285714285 -o - --quiet");
  const std::vector<double> again = numbers_in(back.out);
  for (size_t i = 0; i < x.size(); ++i) EXPECT_NEAR(x[i], again.at(i), 1e-14);
}

}  // namespace
