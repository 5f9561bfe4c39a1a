// SPDX-License-Identifier: MIT
// Sparse products and solves by the program.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/tools/program.h"
#include "tools/mmio.h"
#include "tools/sparse_file.h"
#include "zor/types.h"

namespace {

using namespace zor_test;
using zor_tools::mm_matrix;

const char* const spd =
    "%%MatrixMarket matrix coordinate real symmetric\n3 3 5\n1 1 4\n2 1 -1\n2 2 4\n3 2 -1\n3 3 4\n";

TEST(SparseCommands, RefuseInOneLine) {
  const std::string coordinate = "%%MatrixMarket matrix coordinate ";
  const std::pair<const char*, std::string> files[] = {
      {"spd.mtx", spd},
      {"two.mtx", "%%MatrixMarket matrix array real general\n2 1\n1\n-1\n"},
      {"three.mtx", "%%MatrixMarket matrix array real general\n3 1\n1\n2\n3\n"},
      {"four.mtx", "%%MatrixMarket matrix array real general\n4 1\n1\n2\n3\n4\n"},
      {"none.mtx", "%%MatrixMarket matrix array real general\n3 0\n"},
      {"z.mtx", "%%MatrixMarket matrix array complex general\n3 1\n1 1\n2 2\n3 3\n"},
      {"word.mtx", coordinate + "real general\n2 2 2\n1 1 1\n2 x 1\n"},
      {"far.mtx", coordinate + "pattern general\n2 2 2\n1 1\n3 1\n"},
      {"short.mtx", coordinate + "real symmetric\n2 2 3\n1 1 1\n2 1 1\n"},
      {"tall.mtx", coordinate + "real general\n900000000000 1 1\n5 1 1\n"},
      {"wide.mtx", coordinate + "real general\n1 900000000000 1\n1 5 1\n"},
      {"vast.mtx", coordinate + "real general\n900000000000 900000000000 1\n5 5 1\n"},
      {"rect.mtx", coordinate + "real general\n2 3 1\n1 1 1\n"},
      {"skew.mtx", coordinate + "real skew-symmetric\n2 2 1\n2 1 1\n"},
      {"herm.mtx", coordinate + "complex hermitian\n1 1 1\n1 1 1 0\n"},
      {"uneven.mtx", coordinate + "real general\n2 2 4\n1 1 2\n1 2 1\n2 1 3\n2 2 2\n"},
      {"hole.mtx", coordinate + "real symmetric\n2 2 2\n1 1 2\n2 1 1\n"},
      {"saddle.mtx", coordinate + "real symmetric\n2 2 3\n1 1 1\n2 1 2\n2 2 1\n"},
      {"null.mtx", coordinate + "real general\n2 2 1\n1 1 1\n"},
      {"nan.mtx", coordinate + "real symmetric\n2 2 3\n1 1 1\n2 1 nan\n2 2 1\n"}};
  const refused_run cases[] = {
      {"spmv missing.mtx -o y.mtx", 2, "missing.mtx: No such file or directory"},
      {"spmv word.mtx -o y.mtx", 2, "word.mtx:4: the column 'x' is not an integer"},
      {"spmv far.mtx -o y.mtx", 2, "far.mtx:4: row 3 is not in 1 to 2"},
      {"solve short.mtx -o y.mtx", 2, "short.mtx:4: the file ends after 2 of 3 entries"},
      {"spmv spd.mtx four.mtx -o y.mtx", 2, "four.mtx:2: 4 rows do not fit the 3 columns of spd.mtx"},
      {"spmv tall.mtx -o y.mtx", 2, "tall.mtx:2: 900000000000 by 1 elements need GIB, this machine has GIB"},
      {"spmv wide.mtx -o y.mtx", 2, "wide.mtx:2: 900000000000 by 1 elements need GIB, this machine has GIB"},
      {"spmv vast.mtx -o y.mtx", 2, "vast.mtx:2: 900000000000 by 1 elements need GIB, this machine has GIB"},
      {"spmv spd.mtx '' -o y.mtx", 2, "x: the name of the file is empty"},
      {"spmv spd.mtx three.mtx -o none/y.mtx", 1, "none/y.mtx: No such file or directory"},
      {"spmv", 2, "A is required"},
      {"solve spd.mtx four.mtx -o y.mtx", 2, "four.mtx:2: 4 rows do not fit the 3 rows of spd.mtx"},
      {"solve spd.mtx z.mtx -o y.mtx", 2, "z.mtx:1: the right-hand side is complex"},
      {"solve rect.mtx -o y.mtx", 2, "rect.mtx:2: 2 by 3 is not square"},
      {"solve skew.mtx -o y.mtx", 2,
       "skew.mtx:1: conjugate gradients need a real symmetric matrix; try --method gmres"},
      {"solve herm.mtx -o y.mtx", 2,
       "herm.mtx:1: conjugate gradients need a real symmetric matrix; try --method gmres"},
      {"solve uneven.mtx -o y.mtx", 2,
       "uneven.mtx: not symmetric: row 1, column 2 holds 1, row 2, column 1 holds 3; try --method gmres"},
      {"solve hole.mtx -o y.mtx", 1,
       "hole.mtx: not positive definite: the diagonal of row 2 is 0; try --method gmres"},
      {"solve saddle.mtx two.mtx -o y.mtx --plot p.svg", 1,
       "saddle.mtx: not positive definite: p'Ap / p'p is -1 in iteration 1; try --method gmres"},
      {"solve nan.mtx three.mtx -o y.mtx", 2, "three.mtx:2: 3 rows do not fit the 2 rows of nan.mtx"},
      {"solve nan.mtx -o y.mtx", 1, "the norm of the right-hand side is not finite"},
      {"solve spd.mtx --iterations 1 -o y.mtx", 1,
       "spd.mtx: no convergence: the residual after iteration 1 is 0.309"},
      {"solve spd.mtx none.mtx -o y.mtx", 2, "none.mtx:2: no right-hand side"},
      {"solve spd.mtx -o y.mtx --plot none/p.svg", 1, "none/p.svg: No such file or directory"},
      {"solve spd.mtx --tolerance 2", 2, "--tolerance: 2 is not a number from 0 to 1"},
      {"solve spd.mtx --tolerance nan", 2, "--tolerance: nan is not a number from 0 to 1"},
      {"solve spd.mtx --every 0", 2, "--every: 0 is not a whole number from 1"},
      {"solve spd.mtx --preconditioner jacobi", 2,
       "--preconditioner: jacobi not in {none,gauss-seidel,block-gauss-seidel}"},
      {"solve spd.mtx --preconditioner block-gauss-seidel", 2,
       "--preconditioner: block-gauss-seidel goes with bicgstab and gmres"},
      {"solve herm.mtx --method gmres -o y.mtx", 2,
       "herm.mtx:1: the matrix is complex; a real one is wanted"},
      {"solve rect.mtx --method bicgstab -o y.mtx", 2, "rect.mtx:2: 2 by 3 is not square"},
      {"solve hole.mtx two.mtx --method gmres --preconditioner gauss-seidel -o y.mtx", 1,
       "a: row 2 has no entry on the diagonal"},
      {"solve skew.mtx two.mtx --method bicgstab -o y.mtx", 1,
       "skew.mtx: bicgstab breaks down (A p is orthogonal to b) in iteration 1; try --method gmres"},
      {"solve null.mtx two.mtx --method gmres -o y.mtx", 1,
       "null.mtx: gmres stagnates at a residual of 0.707 after iteration 7; the matrix may be singular, or "
       "wants "
       "a larger --restart or a --preconditioner"},
      {"spmm spd.mtx two.mtx -o y.mtx", 2, "two.mtx:2: 2 rows do not fit the 3 columns of spd.mtx"},
      {"spmm spd.mtx word.mtx -o y.mtx", 2, "word.mtx:4: the column 'x' is not an integer"},
      {"convert spd.mtx -o y.mtx", 2, "--format is required"},
      {"convert spd.mtx --format ell", 2, "--format: ell not in {csr,coo,dia,bsr,sky}"},
      {"convert rect.mtx --format dia -o y.mtx", 1, "format: it takes a square matrix, not 2 by 3"},
      {"convert uneven.mtx --format sky -o y.mtx", 1,
       "format: skyline stores a triangle, and so must the view"},
  };
  const scratch_folder folder;
  for (const auto& [name, text] : files) folder.write(name, text);
  folder.write("y.mtx", "precious");
  expect_refused(folder, cases);
  EXPECT_EQ("precious", folder.read("y.mtx"));
}

// The product of two files as dense matrices of small integers, whose sums are exact.
std::vector<zor_c64> dense_product(const mm_matrix& a, const mm_matrix& x) {
  std::vector<zor_c64> left(size_t(a.rows * a.cols)), right(size_t(x.rows * x.cols)),
      y(size_t(a.rows * x.cols));
  mm_fill(a, left.data());
  mm_fill(x, right.data());
  for (int64_t j = 0; j < x.cols; ++j)
    for (int64_t k = 0; k < a.cols; ++k)
      for (int64_t i = 0; i < a.rows; ++i) {
        const zor_c64 u = left[size_t(i + k * a.rows)], v = right[size_t(k + j * x.rows)];
        zor_c64& e = y[size_t(i + j * a.rows)];
        e = {e.re + u.re * v.re - u.im * v.im, e.im + u.re * v.im + u.im * v.re};
      }
  return y;
}

TEST(SparseCommands, MultiplyEveryKind) {
  const std::string head = "%%MatrixMarket matrix ";
  const std::string matrices[] = {
      spd,
      head +
          "coordinate integer general\n3 3 5\n3 1 5\n1 3 2\n3 1 -1\n1 1 7\n3 3 1\n",  // entries of one place
      head + "coordinate pattern symmetric\n3 3 3\n3 1\n2 1\n2 2\n",
      head + "coordinate real skew-symmetric\n3 3 2\n2 1 3\n3 2 -4\n",
      head + "coordinate complex general\n2 3 3\n1 3 1 2\n2 2 0 -1\n2 3 4 0\n",
      head + "coordinate complex symmetric\n3 3 3\n1 1 1 1\n3 1 2 -3\n3 3 0 5\n",
      head + "coordinate complex hermitian\n3 3 3\n1 1 2 0\n3 1 2 -3\n3 2 1 1\n",
      head + "coordinate complex skew-symmetric\n3 3 2\n2 1 1 2\n3 1 0 3\n",
      head + "array real general\n1 3\n1\n0\n-2\n",
      head + "array integer symmetric\n3 3\n1\n2\n3\n4\n5\n6\n",
      head + "array real skew-symmetric\n3 3\n1\n2\n3\n",
      head + "array complex hermitian\n3 3\n1 0\n2 1\n3 -1\n4 0\n5 2\n6 0\n",
      head + "coordinate real general\n4 3 0\n",
      head + "coordinate real general\n0 3 0\n"};
  const std::string vectors[] = {"", head + "array real general\n3 1\n1\n-2\n3\n",
                                 head + "coordinate integer general\n3 4 4\n1 1 1\n2 2 2\n3 3 -3\n1 4 5\n",
                                 head + "array complex general\n3 2\n1 1\n0 2\n3 0\n-1 0\n0 0\n2 -2\n"};
  const std::string ones = head + "array real general\n3 1\n1\n1\n1\n";
  const scratch_folder folder;
  for (const std::string& m : matrices)
    for (const std::string& v : vectors) {
      SCOPED_TRACE(m + v);
      const mm_matrix a = zor_tools::mm_read(folder.write("a.mtx", m));
      const mm_matrix x = zor_tools::mm_read(folder.write("x.mtx", v.empty() ? ones : v));
      const outcome got = good_run(folder, fmt::format("spmv a.mtx {} -o y.mtx", v.empty() ? "" : "x.mtx"));
      EXPECT_EQ("", got.err);
      const mm_matrix y = zor_tools::mm_read(folder.path("y.mtx"));
      ASSERT_EQ(std::make_pair(a.rows, x.cols), std::make_pair(y.rows, y.cols));
      const std::vector<zor_c64> expected = dense_product(a, x);
      std::vector<zor_c64> written(expected.size());
      mm_fill(y, written.data());
      for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(expected[i].re, written[i].re) << i;
        EXPECT_EQ(expected[i].im, written[i].im) << i;
      }
      EXPECT_EQ(a.field == zor_tools::mm_field::complex || x.field == zor_tools::mm_field::complex,
                y.field == zor_tools::mm_field::complex);
      const std::string digest = digest_line(got.out);
      EXPECT_EQ(y.im.empty() ? digest_of(y.re) : digest_of(written), digest) << got.out;
      EXPECT_EQ(
          digest,
          digest_line(run(folder, "spmv --wide-indices a.mtx " + std::string(v.empty() ? "" : "x.mtx")).out));
      // Integers, exact in any order of sums.
      for (const char* format : {"coo", "dia", "bsr --block 2", "sky"}) {
        const bool general = a.symmetry == zor_tools::mm_symmetry::general;
        if (&v != &vectors[2] || (general && format[0] == 's') || (a.rows != a.cols && format[0] != 'c'))
          continue;
        const outcome same = run(folder, fmt::format("spmv a.mtx x.mtx --format {}", format));
        EXPECT_EQ(digest, digest_line(same.out)) << format << same.err;
      }
    }
}

// Laplacian of a square grid, by its lower triangle or whole.
std::string grid(int side, bool whole) {
  std::string entries;
  int count = 0;
  const auto put = [&](int i, int j, int value) {
    entries += fmt::format("{} {} {}\n", i + 1, j + 1, value);
    ++count;
  };
  for (int i = 0; i < side * side; ++i) {
    put(i, i, 4);
    for (int j : {i - 1, i - side}) {
      if (j < 0 || (j == i - 1 && i % side == 0)) continue;
      put(i, j, -1);
      if (whole) put(j, i, -1);
    }
  }
  return fmt::format("%%MatrixMarket matrix coordinate real {}\n{} {} {}\n{}",
                     whole ? "general" : "symmetric", side * side, side * side, count, entries);
}

TEST(SparseCommands, TellTheFastestFormat) {
  const scratch_folder folder;
  folder.write("a.mtx", grid(20, false));
  const outcome got = good_run(folder, "spmv a.mtx --tune");
  for (const char* line : {"tune        --format csr", "tune        --format bsr --block 8",
                           "tune        --format dia", "fastest     --format "})
    EXPECT_NE(got.out.find(line), std::string::npos) << line << got.out;
}

// What cannot be solved does not take the other right-hand sides with it.
TEST(SparseCommands, NanStaysInItsColumn) {
  const scratch_folder folder;
  folder.write("a.mtx", spd);
  folder.write("b.mtx", "%%MatrixMarket matrix array real general\n3 2\n1\nnan\n1\n1\n2\n3\n");
  for (const char* command : {"solve a.mtx b.mtx -o x.mtx", "solve a.mtx b.mtx -o x.mtx --method gmres",
                              "spmv a.mtx b.mtx -o x.mtx"}) {
    const outcome got = good_run(folder, command);
    const std::vector<double> x = zor_tools::mm_read(folder.path("x.mtx")).re;
    ASSERT_EQ(6u, x.size());
    EXPECT_TRUE(std::any_of(x.begin(), x.begin() + 3, [](double v) { return std::isnan(v); })) << command;
    EXPECT_TRUE(std::all_of(x.begin() + 3, x.end(), [](double v) { return std::isfinite(v); })) << command;
  }
}

TEST(SparseCommands, ChooseTheWidthOfIndices) {
  mm_matrix m{};
  for (int64_t* const size : {&m.rows, &m.cols}) {
    EXPECT_TRUE(zor_tools::fits_32_bits(m));
    *size = INT32_MAX - 1;
    EXPECT_TRUE(zor_tools::fits_32_bits(m));
    *size = INT32_MAX;
    EXPECT_FALSE(zor_tools::fits_32_bits(m)) << "a column in base 1, a pointer behind the last row";
    *size = 1;
  }
  m.re.resize(6);
  EXPECT_FALSE(zor_tools::fits_32_bits(m, 6)) << "the last row pointer in base 1 is 7";
  EXPECT_TRUE(zor_tools::fits_32_bits(m, 7));
}

TEST(SparseCommands, SolveAndReport) {
  constexpr int side = 30;
  constexpr size_t n = side * side;
  const scratch_folder folder;
  const mm_matrix a = zor_tools::mm_read(folder.write("a.mtx", grid(side, false)));
  folder.write("whole.mtx", grid(side, true));
  std::vector<double> b(2 * n);
  for (size_t i = 0; i < b.size(); ++i) b[i] = double(int(i * i % 17) - 8);
  folder.write("b.mtx", zor_tools::mm_array_text(n, 2, b.data()));
  std::vector<double> dense(n * n);
  mm_fill(a, dense.data());
  for (const char* preconditioner : {"none", "gauss-seidel"}) {
    SCOPED_TRACE(preconditioner);
    const std::string options = fmt::format("--preconditioner {} --tolerance 1e-12 ", preconditioner);
    const outcome got = good_run(folder, "solve a.mtx b.mtx -o x.mtx --every 7 --threads 1 " + options);
    const std::vector<double> x = zor_tools::mm_read(folder.path("x.mtx")).re;
    ASSERT_EQ(b.size(), x.size());
    for (size_t j = 0; j < 2; ++j)
      for (size_t i = 0; i < n; ++i) {
        long double rest = b[i + j * n];
        for (size_t k = 0; k < n; ++k) rest -= dense[i + k * n] * x[k + j * n];
        ASSERT_NEAR(0, double(rest), 1e-9) << i;
      }
    EXPECT_EQ(digest_of(x), digest_line(got.out));
    EXPECT_EQ(digest_of(x),
              digest_line(run(folder, "solve whole.mtx b.mtx --threads 7 --wide-indices " + options).out));
    setenv("GLIBC_TUNABLES", "glibc.cpu.hwcaps=-AVX2,-AVX512F", 1);
    const outcome baseline = run(folder, "solve a.mtx b.mtx " + options);
    unsetenv("GLIBC_TUNABLES");
    EXPECT_NE(std::string::npos, baseline.out.find("\nkernel      baseline,"));
    EXPECT_EQ(digest_of(x), digest_line(baseline.out));
    // Lines 0, 7, 14 and so on of each column, then the last iteration.
    int64_t expected = 0, lines = 0;
    const std::regex line("(iteration|converged) +([0-9]+)  residual ([0-9.e+-]+)\n");
    for (std::sregex_iterator it(got.out.begin(), got.out.end(), line), end; it != end; ++it, ++lines) {
      const int64_t iteration = std::stoll((*it)[2]);
      if ((*it)[1] == "iteration") {
        EXPECT_EQ(expected, iteration);
        expected += 7;
      } else {
        EXPECT_EQ((expected - 1) / 7, iteration / 7);
        EXPECT_LE(std::stod((*it)[3]), 1e-12);
        expected = 0;
      }
    }
    EXPECT_LT(8, lines) << got.out;
  }
  const auto iterations = [&](const char* options) {
    std::smatch match;
    const std::string out = run(folder, std::string("solve a.mtx ") + options).out;
    EXPECT_TRUE(std::regex_search(out, match, std::regex("converged +([0-9]+) "))) << out;
    EXPECT_TRUE(std::regex_search(out, std::regex("largest \\|x - 1\\| is [0-9.]+e-(09|1[0-9])\n"))) << out;
    return std::stoi(match[1]);
  };
  EXPECT_LT(3 * iterations("--preconditioner gauss-seidel"), 2 * iterations("")) << "the sweep pays";
  const bool drawn = std::system("command -v gnuplot >/dev/null") == 0;
  const std::string path = std::getenv("PATH");
  setenv("PATH", "/none", 1);
  const outcome unplotted = run(folder, "solve a.mtx -o kept.mtx --plot out.svg");
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(1, unplotted.status);
  EXPECT_EQ("zor: out.svg: plots need gnuplot installed\n", unplotted.err);
  EXPECT_FALSE(folder.names().contains("kept.mtx")) << "looked for before the work";
  EXPECT_FALSE(folder.names().contains("out.svg"));
  if (!drawn) GTEST_SKIP() << "no gnuplot: the plot was not drawn";
  good_run(folder, "solve a.mtx b.mtx --plot \"it's.svg\"");
  EXPECT_NE(std::string::npos, folder.read("it's.svg").find("</svg>"));
}

// Elements whose squares vanish or overflow: the solution of a A x = b (3, 2, 3) is b / a in each row.
TEST(SparseCommands, SolveAtEveryMagnitude) {
  const struct {
    const char *a, *b;
    double x;  // 0: out of range
  } cases[] = {{"", "e-200", 1e-200}, {"", "e200", 1e200},   {"e-200", "", 1e200}, {"e200", "e-100", 1e-300},
               {"e200", "e200", 1},   {"e-200", "e-200", 1}, {"e-200", "e200", 0}, {"", "e-308", 1e-308}};
  const scratch_folder folder;
  for (const auto& c : cases) {
    SCOPED_TRACE(fmt::format("a 1{}, b 1{}", c.a, c.b));
    folder.write("a.mtx",
                 fmt::format("%%MatrixMarket matrix coordinate real symmetric\n3 3 5\n1 1 4{0}\n2 1 -1{0}\n"
                             "2 2 4{0}\n3 2 -1{0}\n3 3 4{0}\n",
                             c.a));
    folder.write("b.mtx",
                 fmt::format("%%MatrixMarket matrix array real general\n3 1\n3{0}\n2{0}\n3{0}\n", c.b));
    for (const char* preconditioner : {"none", "gauss-seidel"}) {
      const outcome got =
          run(folder, fmt::format("solve a.mtx b.mtx -o x.mtx --preconditioner {}", preconditioner));
      if (c.x == 0) {
        EXPECT_EQ("zor: a.mtx: the solution is beyond double precision\n", got.err);
        continue;
      }
      ASSERT_EQ("", got.err);
      for (const double x : zor_tools::mm_read(folder.path("x.mtx")).re) EXPECT_NEAR(1, x / c.x, 1e-9);
    }
  }
}

// Products of two files, and matrices read back from every format, of small integers, whose sums are exact.
TEST(SparseCommands, MultiplyTwoMatricesAndConvert) {
  const std::string head = "%%MatrixMarket matrix coordinate ";
  const std::string matrices[] = {spd, head + "real general\n3 3 5\n3 1 5\n1 3 2\n3 1 -1\n1 1 7\n3 3 1\n",
                                  head + "real skew-symmetric\n3 3 2\n2 1 3\n3 2 -4\n",
                                  head + "complex hermitian\n3 3 3\n1 1 2 0\n3 1 2 -3\n3 2 1 1\n",
                                  head + "real general\n3 3 0\n"};
  const scratch_folder folder;
  for (const std::string& m : matrices) {
    folder.write("a.mtx", m);
    const mm_matrix a = zor_tools::mm_read(folder.path("a.mtx"));
    for (const std::string& other : matrices) {
      folder.write("b.mtx", other);
      const mm_matrix b = zor_tools::mm_read(folder.path("b.mtx"));
      std::string told[2];
      for (const bool wide : {false, true}) {
        const outcome got = good_run(
            folder, std::string("spmm a.mtx b.mtx -o c.mtx") + (wide ? " --wide-indices --threads 3" : ""));
        told[wide] = digest_line(got.out);
        const mm_matrix c = zor_tools::mm_read(folder.path("c.mtx"));
        std::vector<zor_c64> dense(9);
        mm_fill(c, dense.data());
        const auto expected = dense_product(a, b);
        for (size_t i = 0; i < 9; ++i) {
          EXPECT_EQ(expected[i].re, dense[i].re);
          EXPECT_EQ(expected[i].im, dense[i].im);
        }
      }
      EXPECT_EQ(told[0], told[1]);
    }
    for (const char* format : {"csr", "coo", "dia", "bsr --block 2", "sky"}) {
      const outcome got = run(folder, fmt::format("convert a.mtx -o c.mtx --format {}", format));
      if (a.symmetry == zor_tools::mm_symmetry::general && format == std::string("sky")) {
        EXPECT_EQ(1, got.status);
        continue;
      }
      ASSERT_EQ(0, got.status) << got.err;
      std::vector<zor_c64> expected(9), dense(9);
      mm_fill(a, expected.data());
      mm_fill(zor_tools::mm_read(folder.path("c.mtx")), dense.data());
      for (size_t i = 0; i < 9; ++i) {
        EXPECT_EQ(expected[i].re, dense[i].re) << format;
        EXPECT_EQ(expected[i].im, dense[i].im) << format;
      }
    }
  }
}

// A matrix of a flow: not symmetric, its diagonal dominant. Every method and preconditioner finds the ones.
TEST(SparseCommands, SolveGeneralMatrices) {
  constexpr int side = 12, n = side * side;
  std::string text;
  int count = 0;
  const auto put = [&](int r, int c, double v) {
    text += fmt::format("{} {} {}\n", r + 1, c + 1, v);
    ++count;
  };
  for (int r = 0; r < n; ++r) {
    put(r, r, 4.5);
    if (r % side > 0) put(r, r - 1, -1.5);
    if (r % side < side - 1) put(r, r + 1, -0.5);
    if (r >= side) put(r, r - side, -1.25);
    if (r + side < n) put(r, r + side, -0.75);
  }
  const scratch_folder folder;
  folder.write("a.mtx",
               fmt::format("%%MatrixMarket matrix coordinate real general\n{} {} {}\n{}", n, n, count, text));
  for (const char* method : {"bicgstab", "gmres", "gmres --restart 5"})
    for (const char* preconditioner : {"none", "gauss-seidel", "block-gauss-seidel --block 4"}) {
      SCOPED_TRACE(fmt::format("{}, {}", method, preconditioner));
      const std::string command =
          fmt::format("solve a.mtx -o x.mtx --method {} --preconditioner {}", method, preconditioner);
      const outcome got = good_run(folder, command);
      EXPECT_EQ(digest_line(got.out), digest_line(run(folder, command + " --threads 3 --wide-indices").out));
      for (const double x : zor_tools::mm_read(folder.path("x.mtx")).re) EXPECT_NEAR(1, x, 1e-8);
    }
}

}  // namespace
