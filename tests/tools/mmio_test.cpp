// SPDX-License-Identifier: MIT
// Matrix Market files: what is read, what is written, and the line and fault of what is refused.
#include "tools/mmio.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "tests/support/operand.h"
#include "tests/tools/fault_of.h"
#include "tests/tools/scratch_folder.h"

namespace {

using zor_test::fault_of, zor_test::scratch_folder;
using namespace zor_tools;

struct bad_file {
  std::string text;
  const char* message;  // behind the file's name
};

const std::string array = "%%MatrixMarket matrix array ", coordinate = "%%MatrixMarket matrix coordinate ";
const bad_file bad_files[] = {
    // The banner.
    {"", ":1: the file is empty"},
    {"1 1\n2\n", ":1: no Matrix Market banner: expected %%MatrixMarket, found '1'"},
    {"%%MatrixMarket vector array real general\n", ":1: unknown object 'vector': expected matrix"},
    {"%%MatrixMarket matrix\n", ":1: the banner names no format"},
    {"%%MatrixMarket matrix dense real general\n", ":1: unknown format 'dense'"},
    {array + "float general\n", ":1: unknown field 'float'"},
    {array + "real\n", ":1: the banner names no symmetry"},
    {array + "real triangular\n", ":1: unknown symmetry 'triangular'"},
    {array + "real general x\n", ":1: unexpected 'x' behind the banner"},
    {array + "pattern general\n1 1\n1\n", ":1: an array file cannot hold a pattern"},
    {coordinate + "pattern skew-symmetric\n1 1 0\n", ":1: a pattern is general or symmetric"},
    {array + "real hermitian\n1 1\n1\n", ":1: a Hermitian matrix has complex entries"},
    // The sizes.
    {array + "real general\n% only a comment\n", ":2: the file ends before the size line"},
    {array + "real general\n2\n", ":2: the number of columns is missing"},
    {array + "real general\n\n% c\n2 x\n", ":4: the number of columns 'x' is not an integer"},
    {array + "real general\n2.0 2\n", ":2: the number of rows '2.0' is not an integer"},
    {array + "real general\n-1 2\n", ":2: a size is negative"},
    {array + "real general\n1 1 1\n", ":2: unexpected '1' behind the sizes"},
    {coordinate + "real general\n2 2\n", ":2: the number of entries is missing"},
    {coordinate + "real general\n9 9 99999999999999999999\n",
     ":2: the number of entries '99999999999999999999' is out of range"},
    {array + "real general\n4294967296 4294967296\n1\n",
     ":2: 4294967296 by 4294967296 elements are too many"},
    {array + "real general\n100000 100000\n1\n",
     ":2: 10000000000 entries announced, but only 2 bytes follow"},
    {coordinate + "real symmetric\n2 3 0\n", ":2: a symmetric kind of matrix is square, not 2 by 3"},
    // The entries.
    {array + "real general\n2 2\n1.5\n2.5\n3.5\n", ":5: the file ends after 3 of 4 entries"},
    {array + "real general\n1 2\n1\nabc\n", ":4: the value 'abc' is not a number"},
    {array + "real general\n1 1\n1.5e\n", ":3: the value '1.5e' is not a number"},
    {array + "real general\n1 1\n0x10\n", ":3: the value '0x10' is not a number"},
    {array + "real general\n1 1\n1e400\n", ":3: the value '1e400' is beyond double precision"},
    {array + "real general\n1 1\n1 2\n", ":3: unexpected '2' behind the entry"},
    {array + "real general\n1 1\n1\n\n2\n", ":5: unexpected '2' behind the last entry"},
    {array + "integer general\n1 1\n1.5\n", ":3: the value '1.5' is not an integer"},
    {array + "integer general\n1 1\n9007199254740993\n",
     ":3: the value 9007199254740993 is not exact in double precision"},
    {array + "integer general\n1 1\n9223372036854775807\n",
     ":3: the value 9223372036854775807 is not exact in double precision"},
    {array + "complex general\n1 1\n1\n", ":3: the imaginary part is missing"},
    {coordinate + "real general\n2 2 1\n0 1 5\n", ":3: row 0 is not in 1 to 2"},
    {coordinate + "real general\n2 2 1\n1 3 5\n", ":3: column 3 is not in 1 to 2"},
    {coordinate + "real general\n2 2 1\n1\n", ":3: the column is missing"},
    {coordinate + "real general\n2 2 1\n1 1\n", ":3: the value is missing"},
    {coordinate + "pattern general\n2 2 1\n1 1 7\n", ":3: unexpected '7' behind the entry"},
    {coordinate + "real symmetric\n2 2 1\n1 2 5\n",
     ":3: an entry above the diagonal: this kind of matrix stores its lower triangle"},
    {coordinate + "real skew-symmetric\n2 2 1\n1 1 5\n",
     ":3: an entry on the diagonal of a skew-symmetric matrix"},
    {array + "complex hermitian\n1 1\n1 2\n",
     ":3: the imaginary part on the diagonal of a Hermitian matrix is not zero"},
    {array + "real general\n1 1\n\x01\n", ":3: the value '?' is not a number"},
};

TEST(mmio, names_line_and_fault_of_a_bad_file) {
  const scratch_folder folder;
  for (const bad_file& bad : bad_files) {
    SCOPED_TRACE(bad.text);
    const std::string file = folder.write("bad.mtx", bad.text);
    EXPECT_EQ(file + bad.message, fault_of([&] { mm_read(file); }));
  }
}

// Lines of every length across the ends of the parts, behind a long comment; and a file without end, of which
// the first part tells that it is none.
TEST(mmio, reads_by_parts) {
  constexpr int64_t rows = 300000;
  std::string text = "%%MatrixMarket matrix coordinate integer general\n%" + std::string(3 << 20, 'x') + "\n";
  text += fmt::format("{} 1 {}\n", rows, rows);
  for (int64_t i = rows; i > 0; --i)
    text += fmt::format("{}{} 1 {}\n", std::string(size_t(i % 7), ' '), i, 3 * i);
  const scratch_folder folder;
  const mm_matrix m = mm_read(folder.write("long.mtx", text));
  ASSERT_EQ(size_t(rows), m.re.size());
  for (size_t e = 0; e < m.re.size(); ++e) ASSERT_EQ(double(3 * (m.rowind[e] + 1)), m.re[e]);
  EXPECT_EQ(0, m.rowind[size_t(rows) - 1]);
  EXPECT_THROW(mm_read("/dev/zero"), input_error);
  EXPECT_THROW(mm_read(folder.write("cut.mtx", text.substr(0, text.size() - 9))), input_error);
}

TEST(mmio, names_a_file_that_cannot_be_read) {
  const scratch_folder folder;
  const std::string missing = folder.path("missing.mtx");
  for (const auto& [file, fault] :
       {std::pair(missing, ": No such file or directory"), std::pair(folder.path("."), ": Is a directory")})
    EXPECT_EQ(file + fault, fault_of([&file = file] { mm_read(file); }));
}

struct good_file {
  std::string text;
  int64_t rows, cols;
  std::vector<double> dense;  // column-major; of complex matrices the parts in turn
};
const double inf = std::numeric_limits<double>::infinity();
const double nan = std::numeric_limits<double>::quiet_NaN();
const good_file good_files[] = {
    {array + "real general\n2 2\n1\n2\n3\n4\n", 2, 2, {1, 2, 3, 4}},
    {array + "real symmetric\n2 2\n1\n2\n3\n", 2, 2, {1, 2, 2, 3}},
    {array + "real skew-symmetric\n3 3\n1\n2\n3\n", 3, 3, {0, 1, 2, -1, 0, 3, -2, -3, 0}},
    {array + "complex hermitian\n2 2\n1 0\n2 3\n4 0\n", 2, 2, {1, 0, 2, 3, 2, -3, 4, 0}},
    {array + "complex symmetric\n2 2\n1 5\n2 3\n4 0\n", 2, 2, {1, 5, 2, 3, 2, 3, 4, 0}},
    {array + "complex skew-symmetric\n2 2\n2 3\n", 2, 2, {0, 0, 2, 3, -2, -3, 0, 0}},
    {array + "integer general\n1 3\n-9223372036854775808\n+7\n9007199254740994\n",
     1,
     3,
     {-0x1p63, 7, 9007199254740994.0}},
    {array + "real general\n0 5\n", 0, 5, {}},
    {array + "real skew-symmetric\n1 1\n", 1, 1, {0}},
    {coordinate + "real general\n2 3 3\n2 3 1.5\n1 1 -2\n2 3 0.25\n", 2, 3, {-2, 0, 0, 0, 0, 1.75}},
    {coordinate + "real symmetric\n2 2 2\n2 1 5\n2 2 6\n", 2, 2, {0, 5, 5, 6}},
    {coordinate + "integer skew-symmetric\n2 2 1\n2 1 5\n", 2, 2, {0, 5, -5, 0}},
    {coordinate + "complex hermitian\n2 2 2\n2 1 5 1\n1 1 2 0\n", 2, 2, {2, 0, 5, 1, 5, -1, 0, 0}},
    {coordinate + "complex general\n1 2 2\n1 2 1 2\n1 2 3 4\n", 1, 2, {0, 0, 4, 6}},
    {coordinate + "pattern general\n2 2 2\n1 2\n2 1\n", 2, 2, {0, 1, 1, 0}},
    {coordinate + "pattern symmetric\n2 2 1\n2 1\n", 2, 2, {0, 1, 1, 0}},
    // Letter case, comments, blank lines, tabs, CRLF, no line end at the end.
    {"%%MATRIXMARKET Matrix ARRAY Real GENERAL\r\n% x\r\n\r\n  2\t1 \r\n%\n 1.5 \r\n\t-2.5",
     2,
     1,
     {1.5, -2.5}},
    {"%%matrixmarket matrix array double general\n1 1\n1.e1\n", 1, 1, {10}},
    {array + "real general\n6 1\nnan\n-Inf\n+inf\n1e-400\n4.9e-324\n.5E+1\n",
     6,
     1,
     {nan, -inf, inf, 0, 4.9e-324, 5}},
};

TEST(mmio, reads_every_kind) {
  const scratch_folder folder;
  for (const good_file& good : good_files) {
    SCOPED_TRACE(good.text);
    const mm_matrix m = mm_read(folder.write("good.mtx", good.text));
    ASSERT_EQ(good.rows, m.rows);
    ASSERT_EQ(good.cols, m.cols);
    const bool complex = m.field == mm_field::complex;
    std::vector<double> values(good.dense.size(), -9);
    if (complex)
      mm_fill(m, reinterpret_cast<zor_c64*>(values.data()));
    else
      mm_fill(m, values.data());
    EXPECT_TRUE(zor_test::same_bits(good.dense.data(), values.data(), values.size()));
    if (complex) continue;
    std::vector<zor_c64> widened(values.size(), zor_c64{-9, -9});
    mm_fill(m, widened.data());
    for (size_t i = 0; i < values.size(); ++i) {
      EXPECT_EQ(zor_test::bits(values[i]), zor_test::bits(widened[i].re)) << i;
      EXPECT_EQ(0, widened[i].im) << i;
    }
  }
}

TEST(mmio, keeps_entries_in_the_order_of_the_file) {
  const scratch_folder folder;
  const mm_matrix m = mm_read(
      folder.write("m.mtx", "%%MatrixMarket matrix coordinate real symmetric\n3 3 3\n3 2 1\n1 1 2\n3 2 4\n"));
  ASSERT_EQ(3u, m.re.size());
  const int64_t rows[] = {2, 0, 2}, columns[] = {1, 0, 1};
  for (size_t e = 0; e < 3; ++e) EXPECT_TRUE(m.rowind[e] == rows[e] && m.colind[e] == columns[e]) << e;
  EXPECT_EQ((std::vector<double>{1, 2, 4}), m.re);
  EXPECT_TRUE(m.im.empty());
}

TEST(mmio, text_returns_the_same_bits) {
  zor_test::random_bits random(11);
  std::vector<double> values = {0.0, -0.0,    inf,   -inf,     nan,
                                0.1, 1.0 / 3, 1e308, 4.9e-324, -2.2250738585072011e-308};
  while (values.size() < 4000) values.push_back(std::bit_cast<double>(random.next()));
  const scratch_folder folder;
  const mm_matrix real = mm_read(folder.write("r.mtx", mm_array_text(1000, 4, values.data())));
  EXPECT_EQ(mm_field::real, real.field);
  std::vector<double> back(values.size());
  mm_fill(real, back.data());
  EXPECT_TRUE(zor_test::same_bits(values.data(), back.data(), values.size()));

  const auto* pairs = reinterpret_cast<const zor_c64*>(values.data());
  const mm_matrix complex = mm_read(folder.write("c.mtx", mm_array_text(500, 4, pairs)));
  ASSERT_EQ(2000u, complex.im.size());
  for (size_t i = 0; i < complex.im.size(); ++i) {
    EXPECT_EQ(zor_test::bits(pairs[i].re), zor_test::bits(complex.re[i])) << i;
    EXPECT_EQ(zor_test::bits(pairs[i].im), zor_test::bits(complex.im[i])) << i;
  }
}

TEST(mmio, refuses_a_dense_form_beyond_memory) {
  const scratch_folder folder;
  const std::string file = folder.write(
      "m.mtx", "%%MatrixMarket matrix coordinate real general\n% huge\n10000000 10000000 1\n1 1 1\n");
  const mm_matrix m = mm_read(file);
  const std::string fault = fault_of([&] { mm_check_dense_size(m, sizeof(double)); });
  EXPECT_TRUE(fault.starts_with(file + ":3: 10000000 by 10000000 elements need 745058.1 GiB")) << fault;
}

}  // namespace
