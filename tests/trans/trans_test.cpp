// SPDX-License-Identifier: MIT
// Copies, transpositions and sums of matrices against element-by-element references: bits, exception flags,
// and what lies between and around the operands.
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

#include "tests/ref/trans.h"
#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "zor/trans.h"

namespace {

using namespace zor_test;

struct shape {
  zor_int rows, cols;
};

// Scalars that a shortcut would treat otherwise: one and zero multiply like any other.
constexpr double factors[][2] = {{1, 0}, {0, 0}, {-0.7, 0.3}, {double(NAN), 1}};

// Elements between the least and one past the last of a matrix of `lines` lines.
size_t extent(zor_int lines, zor_int length, zor_int ld, zor_int stride = 1) {
  return lines < 1 || length < 1 ? 0 : size_t((lines - 1) * ld + (length - 1) * stride + 1);
}

// Memory for `count` elements that ends, or begins, at an unmapped page; made once for all cases up to the
// size that most have.
template <class T>
class room {
 public:
  room(size_t count, bool at_end) : count_(count) {
    static guarded<T> before_page(shared_count), behind_page(shared_count, false);
    if (count > shared_count)
      data_ = own_.emplace(count, at_end).data();
    else
      data_ = at_end ? before_page.end() - count : behind_page.data();
  }
  T* data() { return data_; }
  size_t size() const { return count_; }
  T& operator[](size_t i) { return data_[i]; }

 private:
  static constexpr size_t shared_count = 2048;
  std::optional<guarded<T>> own_;
  size_t count_;
  T* data_;
};

// Lines of a matrix; now and then a special value. All else is signalling NaN: an operation on an element
// that belongs to no matrix raises a flag.
template <class T>
void fill_lines(T* v, size_t count, zor_int lines, zor_int length, zor_int ld, zor_int stride,
                random_bits& random) {
  using R = real<T>;
  constexpr R specials[] = {R(0),
                            R(-0.0),
                            R(INFINITY),
                            R(NAN),
                            std::numeric_limits<R>::denorm_min(),
                            std::numeric_limits<R>::max()};
  std::fill_n(reals(v), count * parts<T>, std::numeric_limits<R>::signaling_NaN());
  for (zor_int i = 0; i < lines; ++i)
    for (zor_int j = 0; j < length; ++j)
      for (size_t h = 0; h < parts<T>; ++h) {
        const uint64_t bits = random.next();
        reals(v + i * ld + j * stride)[h] = bits % 64 == 0 ? specials[bits / 64 % std::size(specials)]
                                                           : R(double(int64_t(bits) >> 11) * 0x1p-52);
      }
}

// Runs the reference on a copy of `actual`, the kernel on `actual` itself.
template <class T, class Reference, class Kernel>
::testing::AssertionResult compare(T* actual, size_t count, const Reference& reference,
                                   const Kernel& kernel) {
  std::vector<T> expected(actual, actual + count);
  const int expected_flags = flags_of([&] { reference(expected.data()); });
  const int flags = flags_of([&] { kernel(actual); });
  if (flags != expected_flags)
    return ::testing::AssertionFailure() << "flags " << flags << " instead of " << expected_flags;
  return same_bits(reals(expected.data()), reals(actual), count * parts<T>);
}

bool by_columns(char ordering) { return ordering == 'C' || ordering == 'c'; }
bool transposes(char trans) { return zor_ref::among(trans, "TtCc"); }

// The lines of a matrix are its rows, or its columns in a column-major one; those of op(A) are A's elements
// in a line when op transposes.
shape lines_of(char ordering, zor_int rows, zor_int cols) {
  return by_columns(ordering) ? shape{cols, rows} : shape{rows, cols};
}
shape lines_of(char ordering, char trans, zor_int rows, zor_int cols) {
  return transposes(trans) ? lines_of(ordering, cols, rows) : lines_of(ordering, rows, cols);
}

// ---- Out of place.

struct copy_case {
  char ordering, trans;
  shape s;
  zor_int pad, stridea, strideb;
  const double* alpha;
  bool at_end;
};

template <class T, class Kernel>
void check_copy(const char* name, const copy_case& c, const Kernel& kernel) {
  const shape from = lines_of(c.ordering, c.s.rows, c.s.cols),
              to = lines_of(c.ordering, c.trans, c.s.rows, c.s.cols);
  const zor_int lda = from.cols * c.stridea + c.pad, ldb = to.cols * c.strideb + c.pad / 2;
  random_bits random(uint64_t(c.s.rows * 53 + c.s.cols));
  room<T> a(extent(from.rows, from.cols, lda, c.stridea), c.at_end);
  guarded<T> b(extent(to.rows, to.cols, ldb, c.strideb), c.at_end);
  fill_lines(a.data(), a.size(), from.rows, from.cols, lda, c.stridea, random);
  fill(b, random);
  const T alpha = scalar<T>(c.alpha[0], c.alpha[1]);
  const auto outcome = compare(
      b.data(), b.size(),
      [&](T* expected) {
        zor_ref::omatcopy(c.ordering, c.trans, c.s.rows, c.s.cols, alpha, a.data(), lda, c.stridea, expected,
                          ldb, c.strideb);
      },
      [&](T* actual) { kernel(c, alpha, a.data(), lda, actual, ldb); });
  EXPECT_TRUE(outcome) << name << " " << c.ordering << c.trans << " " << c.s.rows << " by " << c.s.cols
                       << " pad " << c.pad << " strides " << c.stridea << " " << c.strideb << " alpha "
                       << c.alpha[0] << "," << c.alpha[1];
}

constexpr shape copied_shapes[] = {{0, 3},   {3, 0},    {1, 1},   {1, 17},  {17, 1},  {2, 3},
                                   {4, 4},   {5, 7},    {8, 8},   {9, 15},  {16, 16}, {17, 31},
                                   {33, 18}, {40, 100}, {67, 65}, {131, 70}};

template <class T, class Kernel>
void check_copies(const char* name, const std::vector<shape>& strides, const Kernel& kernel) {
  for (const char ordering : {'R', 'c'})
    for (const char trans : {'n', 'T', 'R', 'C'})
      for (const shape s : copied_shapes)
        for (const zor_int pad : {0, 1, 4})
          for (const auto& alpha : factors)
            for (const shape stride : strides)
              check_copy<T>(name, {ordering, trans, s, pad, stride.rows, stride.cols, alpha, pad != 1},
                            kernel);
}

TEST(Omatcopy, BitsAndFlagsOfThePlainLoops) {
#define ROW_OMATCOPY(name, T)                                                                   \
  check_copies<T>(#name, {{1, 1}},                                                              \
                  [](const copy_case& c, T alpha, const T* a, zor_int lda, T* b, zor_int ldb) { \
                    name(c.ordering, c.trans, c.s.rows, c.s.cols, alpha, a, lda, b, ldb);       \
                  });
#define ROW_OMATCOPY2(name, T)                                                                      \
  check_copies<T>(#name, {{1, 1}, {1, 2}, {3, 1}, {2, 3}},                                          \
                  [](const copy_case& c, T alpha, const T* a, zor_int lda, T* b, zor_int ldb) {     \
                    name(c.ordering, c.trans, c.s.rows, c.s.cols, alpha, a, lda, c.stridea, b, ldb, \
                         c.strideb);                                                                \
                  });
#include "zor/tables/trans.inc"
}

// Operands off their own boundary, and beyond every block of the kernels.
TEST(Omatcopy, AnyAddressAndManyBlocks) {
  for (const shape s : {shape{37, 45}, shape{301, 517}, shape{1030, 68}})
    for (const char trans : {'N', 'T'})
      for (const size_t shift : {0, 4, 12, 24}) {
        SCOPED_TRACE(::testing::Message()
                     << trans << " " << s.rows << " by " << s.cols << " shift " << shift);
        const zor_int ldb = trans == 'N' ? s.cols : s.rows;
        random_bits random(shift);
        guarded<double> a(size_t(s.rows * s.cols)), b(a.size()), expected(a.size());
        guarded<char> raw_a(a.size() * 8, false, shift), raw_b(a.size() * 8, false, 28 - shift);
        fill(a, random);
        std::memcpy(raw_a.data(), a.data(), a.size() * 8);
        zor_ref::omatcopy('R', trans, s.rows, s.cols, 0.3, a.data(), s.cols, 1, expected.data(), ldb, 1);
        zor_trans_zor_domatcopy('R', trans, s.rows, s.cols, 0.3, reinterpret_cast<double*>(raw_a.data()),
                                s.cols, reinterpret_cast<double*>(raw_b.data()), ldb);
        std::memcpy(b.data(), raw_b.data(), a.size() * 8);
        EXPECT_TRUE(same_bits(expected.data(), b.data(), b.size()));
      }
}

// ---- In place.

template <class T, class Kernel>
void check_in_place(const char* name, Kernel* kernel, char ordering, char trans, shape s, zor_int lda,
                    zor_int ldb, const double* factor, uint64_t seed) {
  const shape from = lines_of(ordering, s.rows, s.cols), to = lines_of(ordering, trans, s.rows, s.cols);
  random_bits random(seed);
  room<T> ab(std::max(extent(from.rows, from.cols, lda), extent(to.rows, to.cols, ldb)), seed % 2 == 0);
  fill_lines(ab.data(), ab.size(), from.rows, from.cols, lda, 1, random);
  const T alpha = scalar<T>(factor[0], factor[1]);
  const auto outcome = compare(
      ab.data(), ab.size(),
      [&](T* expected) {
        zor_ref::imatcopy(ordering, trans, s.rows, s.cols, alpha, expected, lda, ldb, ab.size());
      },
      [&](T* actual) { kernel(ordering, trans, s.rows, s.cols, alpha, actual, lda, ldb); });
  EXPECT_TRUE(outcome) << name << " " << ordering << trans << " " << s.rows << " by " << s.cols << " lda "
                       << lda << " ldb " << ldb << " alpha " << factor[0] << "," << factor[1];
}

// One case in one of the types.
void check_in_place_of(uint64_t type, char ordering, char trans, shape s, zor_int lda, zor_int ldb) {
  const double* factor = factors[type / 4 % std::size(factors)];
  const uint64_t seed = type / 16;
#define ROW_IMATCOPY(name, T) \
  if (type-- % 4 == 0) check_in_place<T>(#name, name, ordering, trans, s, lda, ldb, factor, seed);
#include "zor/tables/trans.inc"
}

// Every shape to 40 by 40 with every pair of leading dimensions to 45, each in one of the types.
TEST(Imatcopy, TransposesAllSmallShapesWithAllLeadingDimensions) {
  constexpr zor_int most = 40, widest = 45;
  uint64_t iteration = 0;
  for (zor_int rows = 1; rows <= most; ++rows)
    for (zor_int cols = 1; cols <= most; ++cols)
      for (zor_int lda = cols; lda <= widest; ++lda)
        for (zor_int ldb = rows; ldb <= widest; ++ldb) {
          iteration += 5;
          check_in_place_of(
              iteration, 'R', "TC" [iteration / 4 % 2], { rows, cols }, lda, ldb);
          if (HasFailure()) return;
        }
}

TEST(Imatcopy, LargeShapes) {
  constexpr shape large[] = {{300, 517}, {517, 300}, {1, 2000}, {1999, 1},
                             {97, 1024}, {512, 256}, {700, 701}};
  uint64_t iteration = 0;
  for (const shape s : large)
    for (const char trans : {'T', 'c', 'N', 'R'})
      for (const char ordering : {'R', 'C'}) {
        const shape from = lines_of(ordering, s.rows, s.cols), to = lines_of(ordering, trans, s.rows, s.cols);
        const zor_int common = std::max(from.cols, to.cols);
        const shape leading[] = {
            {from.cols, to.cols}, {common, common}, {from.cols + 3, to.cols + 8}, {common + 5, common + 5}};
        for (const shape ld : leading) check_in_place_of(++iteration, ordering, trans, s, ld.rows, ld.cols);
      }
  for (const zor_int n : {1, 2, 7, 8, 9, 31, 64, 65, 100, 129, 200, 331})
    for (const zor_int ld : {n, n + 1, n + 7})
      for (const char trans : {'T', 'C', 'n', 'r'})
        for (int type = 0; type < 4; ++type)
          check_in_place_of(uint64_t(4 * n + type), 'R', trans, {n, n}, ld, ld);
}

// Rows to another leading dimension, in place, upwards and downwards.
TEST(Imatcopy, MovesRows) {
  uint64_t iteration = 0;
  for (const shape s :
       {shape{1, 1}, shape{1, 9}, shape{5, 3}, shape{7, 8}, shape{9, 17}, shape{30, 33}, shape{20, 67}})
    for (zor_int lda = s.cols; lda < s.cols + 20; ++lda)
      for (zor_int ldb = s.cols; ldb < s.cols + 20; ++ldb) {
        iteration += 5;
        check_in_place_of(iteration, 'R', "NR"[iteration / 8 % 2], s, lda, ldb);
      }
}

// ---- Sums.

struct sum_case {
  char ordering, transa, transb;
  shape s;
  zor_int pad;
  const double *alpha, *beta;
  char in_place;  // a or b: C is that matrix; anything else: neither
};

template <class T, class Kernel>
void check_sum(const char* name, Kernel* kernel, const sum_case& c) {
  const char order = by_columns(c.ordering) ? 'C' : 'R';
  const shape la = lines_of(order, c.transa, c.s.rows, c.s.cols),
              lb = lines_of(order, c.transb, c.s.rows, c.s.cols), lc = lines_of(order, c.s.rows, c.s.cols);
  const zor_int lda = la.cols + c.pad, ldb = lb.cols + c.pad,
                ldc = c.in_place == 0 ? lc.cols + c.pad / 2 : lc.cols + c.pad;
  random_bits random(uint64_t(c.s.rows * 59 + c.s.cols));
  guarded<T> a(extent(la.rows, la.cols, lda)), b(extent(lb.rows, lb.cols, ldb)),
      own(extent(lc.rows, lc.cols, ldc));
  fill_lines(a.data(), a.size(), la.rows, la.cols, lda, 1, random);
  fill_lines(b.data(), b.size(), lb.rows, lb.cols, ldb, 1, random);
  fill(own, random);
  guarded<T>& result = c.in_place == 'a' ? a : c.in_place == 'b' ? b : own;
  const T alpha = scalar<T>(c.alpha[0], c.alpha[1]), beta = scalar<T>(c.beta[0], c.beta[1]);
  const std::vector<T> old_a(a.begin(), a.end()), old_b(b.begin(), b.end());
  const auto outcome = compare(
      result.data(), result.size(),
      [&](T* expected) {
        zor_ref::omatadd(c.ordering, c.transa, c.transb, c.s.rows, c.s.cols, alpha, old_a.data(), lda, beta,
                         old_b.data(), ldb, expected, ldc);
      },
      [&](T* actual) {
        kernel(c.ordering, c.transa, c.transb, c.s.rows, c.s.cols, alpha, a.data(), lda, beta, b.data(), ldb,
               actual, ldc);
      });
  EXPECT_TRUE(outcome) << name << " " << c.ordering << c.transa << c.transb << " " << c.s.rows << " by "
                       << c.s.cols << " pad " << c.pad << " in place " << int(c.in_place);
}

template <class T, class Kernel>
void check_sums(const char* name, Kernel* kernel) {
  size_t iteration = 0;
  const auto check = [&](char ordering, char transa, char transb, shape s, zor_int pad, char in_place) {
    ++iteration;
    check_sum<T>(name, kernel,
                 {ordering, transa, transb, s, pad, factors[iteration % std::size(factors)],
                  factors[iteration / 4 % std::size(factors)], in_place});
  };
  for (const char ordering : {'R', 'C', 'x'})
    for (const char transa : {'N', 't', 'r', 'C'})
      for (const char transb : {'n', 'T', 'R', 'c'})
        for (const shape s : copied_shapes) {
          for (const zor_int pad : {0, 3}) check(ordering, transa, transb, s, pad, 0);
          if (!transposes(transa)) check(ordering, transa, transb, s, 2, 'a');
          if (!transposes(transb)) check(ordering, transa, transb, s, 2, 'b');
        }
}

TEST(Omatadd, BitsAndFlagsOfThePlainLoops) {
#define ROW_OMATADD(name, T) check_sums<T>(#name, name);
#include "zor/tables/trans.inc"
}

// ---- Letters and rounding, all kernels.

// Each of the 256 letters in each place: known ones act, all others leave everything as it is.
TEST(Transposition, UnknownLettersDoNothing) {
  for (int code = 0; code < 256; ++code) {
    const char letter = char(code);
    for (const char known : {'R', 'C', 'T', 'N'}) {
      const char ordering = known == 'N' || known == 'T' ? 'R' : known;
      check_copy<double>(
          "ordering", {letter, known, {3, 5}, 1, 1, 1, factors[2], true},
          [](const copy_case& c, double alpha, const double* a, zor_int lda, double* b, zor_int ldb) {
            zor_trans_zor_domatcopy(c.ordering, c.trans, c.s.rows, c.s.cols, alpha, a, lda, b, ldb);
          });
      check_copy<zor_c64>(
          "trans", {ordering, letter, {3, 5}, 1, 2, 1, factors[2], true},
          [](const copy_case& c, zor_c64 alpha, const zor_c64* a, zor_int lda, zor_c64* b, zor_int ldb) {
            zor_trans_zor_zomatcopy2(c.ordering, c.trans, c.s.rows, c.s.cols, alpha, a, lda, c.stridea, b,
                                     ldb, c.strideb);
          });
      check_in_place<zor_c32>("cimatcopy", zor_trans_zor_cimatcopy, letter, known, {4, 4}, 4, 4, factors[2],
                              1);
      check_in_place<zor_c32>("cimatcopy", zor_trans_zor_cimatcopy, letter, known, {4, 4}, 5, 5, factors[2],
                              1);
      check_in_place<double>("dimatcopy", zor_trans_zor_dimatcopy, ordering, letter, {4, 3}, 4, 4, factors[2],
                             1);
      check_sum<float>("transa", zor_trans_zor_somatadd,
                       {'R', letter, known, {4, 4}, 1, factors[2], factors[0], 0});
      check_sum<float>("transb", zor_trans_zor_somatadd,
                       {'R', known, letter, {4, 4}, 1, factors[0], factors[2], 0});
    }
  }
}

// The caller's rounding mode rules both products and their sum.
TEST(Transposition, EveryRoundingMode) {
  for (const int mode : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    for (const char trans : {'N', 'T', 'R', 'C'}) {
      check_in_place<zor_c64>("zimatcopy", zor_trans_zor_zimatcopy, 'R', trans, {21, 21}, 22, 22, factors[2],
                              1);
      check_in_place<zor_c32>("cimatcopy", zor_trans_zor_cimatcopy, 'R', trans, {21, 9}, 22, 22, factors[2],
                              1);
      check_sum<zor_c64>("z", zor_trans_zor_zomatadd,
                         {'R', trans, 'C', {11, 19}, 1, factors[2], factors[2], 0});
      check_sum<double>("d", zor_trans_zor_domatadd,
                        {'R', trans, 'N', {11, 19}, 1, factors[2], factors[2], 0});
    }
    std::fesetround(FE_TONEAREST);
  }
}

// Sizes at or below zero, with nothing to point to.
TEST(Transposition, EmptyMatricesAreLeftAlone) {
  for (const shape s : {shape{0, 5}, shape{5, 0}, shape{-1, 5}, shape{5, -3}, shape{-2, -2}})
    for (const char trans : {'N', 'T'}) {
      zor_trans_zor_dimatcopy('R', trans, s.rows, s.cols, 2, nullptr, 8, 8);
      zor_trans_zor_dimatcopy('R', trans, s.rows, s.cols, 2, nullptr, 9, 8);
      zor_trans_zor_somatcopy('C', trans, s.rows, s.cols, 2, nullptr, 8, nullptr, 8);
      zor_trans_zor_comatadd('C', trans, 'N', s.rows, s.cols, {2, 1}, nullptr, 8, {1, 1}, nullptr, 8, nullptr,
                             8);
    }
}

}  // namespace
