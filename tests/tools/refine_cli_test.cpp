// SPDX-License-Identifier: MIT
// Refined solutions by the program: exact on the ill-conditioned examples, refusals in one line.
#include <gtest/gtest.h>

#include "tests/tools/program.h"
#include "tools/mmio.h"

namespace {

using namespace zor_test;

void make(const scratch_folder& folder, const std::string& what) {
  const std::string command =
      fmt::format("python3 '{}/make_ill_conditioned.py' {} '{}'", ZOR_EXAMPLES, what, folder.path(""));
  ASSERT_EQ(std::system(command.c_str()), 0);
}

TEST(RefineCommand, IllConditionedExamplesExactly) {
  const scratch_folder folder;
  make(folder, "beam 60");
  const outcome beam = good_run(folder, "refine beam.mtx load.mtx -o x.mtx");
  EXPECT_NE(beam.out.find("factors     L L', positive definite\n"), std::string::npos) << beam.out;
  EXPECT_NE(beam.out.find("refined     relative error at most 1.1e-16"), std::string::npos) << beam.out;
  std::vector<double> exact;
  for (int node = 1; node <= 60; ++node) {
    exact.push_back(node * node * (3 * 60 - node));
    exact.push_back(3 * node * (2 * 60 - node));
  }
  EXPECT_EQ(digest_line(beam.out), digest_of(exact));
  EXPECT_EQ(folder.read("x.mtx"), zor_tools::mm_array_text(120, 1, exact.data()));

  make(folder, "hilbert 10");
  const outcome hilbert = good_run(folder, "refine hilbert.mtx sums.mtx --threads 2");
  EXPECT_NE(hilbert.out.find("factors     L U, rows interchanged\n"), std::string::npos) << hilbert.out;
  EXPECT_EQ(digest_line(hilbert.out), digest_of(std::vector<double>(10, 1.0)));
}

TEST(RefineCommand, SymmetricButNotDefinite) {
  const scratch_folder folder;
  folder.write("a.mtx", "%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n2 1 4\n2 2 1\n");
  folder.write("b.mtx", "%%MatrixMarket matrix array real general\n2 2\n4\n5\n8\n6\n");
  const outcome got = good_run(folder, "refine a.mtx b.mtx -o -");
  const double x[] = {1, 1, 1, 2};
  EXPECT_NE(got.out.find(zor_tools::mm_array_text(2, 2, x)), std::string::npos) << got.out;
}

TEST(RefineCommand, RefusesInOneLine) {
  const scratch_folder folder;
  const std::string array = "%%MatrixMarket matrix array real general\n";
  folder.write("a.mtx", array + "2 2\n1\n2\n2\n4\n");
  folder.write("wide.mtx", array + "1 2\n1\n2\n");
  folder.write("b.mtx", array + "2 1\n1\n2\n");
  folder.write("none.mtx", array + "2 0\n");
  folder.write("long.mtx", array + "3 1\n1\n2\n3\n");
  const zor_test::refused_run cases[] = {
      {"refine", 2, "A is required"},
      {"refine a.mtx", 2, "b is required"},
      {"refine missing.mtx b.mtx", 2, "missing.mtx: No such file or directory"},
      {"refine wide.mtx b.mtx", 2, "wide.mtx:2: 1 by 2 is not square"},
      {"refine a.mtx long.mtx", 2, "long.mtx:2: 3 rows do not fit the 2 rows of a.mtx"},
      {"refine a.mtx none.mtx", 2, "none.mtx:2: no right-hand side"},
      {"refine a.mtx b.mtx -o x.mtx", 1, "a.mtx: singular: pivot 2 is 0"},
  };
  expect_refused(folder, cases);
}

}  // namespace
