// SPDX-License-Identifier: MIT
// Transpositions by the program.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/operand.h"
#include "tests/tools/program.h"
#include "tools/mmio.h"
#include "zor/types.h"

namespace {

using namespace zor_test;

const std::string array = "%%MatrixMarket matrix array ";

TEST(TransposeCommand, RefusesInOneLine) {
  const scratch_folder folder;
  folder.write("a.mtx", array + "real general\n2 1\n1\n-1\n");
  folder.write("coordinate.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 1\n1 1 1\n");
  folder.write("short.mtx", array + "real general\n2 2\n1\n2\n3\n");
  folder.write("empty.mtx", "");
  const zor_test::refused_run cases[] = {
      {"transpose", 2, "A is required"},
      {"transpose missing.mtx -o b.mtx", 2, "missing.mtx: No such file or directory"},
      {"transpose . -o b.mtx", 2, ".: not a regular file"},
      {"transpose empty.mtx -o b.mtx", 2, "empty.mtx:1: the file is empty"},
      {"transpose coordinate.mtx -o b.mtx", 2, "coordinate.mtx:1: not an array file"},
      {"transpose short.mtx -o b.mtx", 2, "short.mtx:2: 4 entries announced, but only 6 bytes follow"},
      {"transpose a.mtx -o none/b.mtx", 1, "none/b.mtx: No such file or directory"},
      {"transpose a.mtx --scratch none", 1, "none: No such file or directory"},
  };
  expect_refused(folder, cases);
}

// A rectangle, in memory and in a file, with values that a product with a complex 1 would not keep; and the
// array of a file in its own place.
TEST(TransposeCommand, MovesEveryValueWithItsBits) {
  const int64_t rows = 311, cols = 207;
  random_bits random(5);
  std::vector<double> values(size_t(rows * cols)), expected(values.size());
  for (double& v : values) v = random.unit();
  values[3] = INFINITY, values[4] = -INFINITY, values[5] = -0.0, values[6] = NAN, values[7] = 5e-324;
  for (int64_t i = 0; i < rows; ++i)
    for (int64_t j = 0; j < cols; ++j) expected[size_t(j + i * cols)] = values[size_t(i + j * rows)];
  const scratch_folder folder;
  folder.write("a.mtx", zor_tools::mm_array_text(rows, cols, values.data()));
  const std::string text = zor_tools::mm_array_text(cols, rows, expected.data());
  for (const char* options : {"", " --scratch .", " --threads 3"}) {
    const outcome got = good_run(folder, std::string("transpose a.mtx -o b.mtx") + options);
    EXPECT_EQ(digest_of(expected), digest_line(got.out)) << options;
    EXPECT_EQ(text, folder.read("b.mtx")) << options;
  }
  EXPECT_EQ((std::set<std::string>{"a.mtx", "b.mtx"}), folder.names());
  good_run(folder, "transpose b.mtx -o b.mtx");
  EXPECT_EQ(folder.read("a.mtx"), folder.read("b.mtx"));
}

TEST(TransposeCommand, ComplexAndSymmetricKinds) {
  const std::pair<std::string, std::string> cases[] = {
      {array + "complex general\n1 2\n1 inf\n-0 3\n", array + "complex general\n2 1\n1 inf\n-0 3\n"},
      {array + "integer symmetric\n2 2\n1\n2\n3\n", array + "real general\n2 2\n1\n2\n2\n3\n"},
      {array + "real skew-symmetric\n2 2\n5\n", array + "real general\n2 2\n0\n-5\n5\n0\n"},
      {array + "complex hermitian\n2 2\n1 0\n2 3\n4 0\n",
       array + "complex general\n2 2\n1 0\n2 -3\n2 3\n4 0\n"},
      {array + "real general\n0 3\n", array + "real general\n3 0\n"},
      {array + "complex general\n2 0\n", array + "complex general\n0 2\n"},
  };
  for (const auto& [from, to] : cases) {
    const scratch_folder folder;
    folder.write("a.mtx", from);
    good_run(folder, "transpose a.mtx -o b.mtx");
    EXPECT_EQ(to, folder.read("b.mtx"));
  }
  const scratch_folder folder;
  folder.write("a.mtx", cases[0].first);
  good_run(folder, "transpose a.mtx -o b.mtx --conjugate");
  EXPECT_EQ(array + "complex general\n2 1\n1 -inf\n-0 -3\n", folder.read("b.mtx"));
}

}  // namespace
