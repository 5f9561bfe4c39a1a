// SPDX-License-Identifier: MIT
// The public transpositions: every way that a matrix can take, refused arguments, any number of threads.
#include <algorithm>
#include <string>
#include <vector>

#include "tests/ref/trans.h"
#include "tests/support/threads.h"
#include "zor/core.h"
#include "zor/trans.h"

namespace {

using namespace zor_test;

struct shape {
  zor_int rows, cols;
};

bool transposes(char trans) { return zor_ref::among(trans, "TtCc"); }

// From one element to sizes that are divided; rows alone, columns alone, no multiple of any block.
constexpr shape shapes[] = {{0, 4},     {4, 0},      {1, 1},      {7, 300},   {67, 65},
                            {700, 611}, {2300, 130}, {130, 2100}, {1, 300000}};

template <class T, class Copy, class Add, class BlasAdd>
void check_out_of_place(const char* name, Copy* copy, Add* add, BlasAdd* add_by_columns) {
  const T alpha = scalar<T>(0.7, -0.4), beta = scalar<T>(-1.5, 0.1);
  for (const shape s : shapes)
    for (const char ordering : {'R', 'c'})
      for (const char trans : {'N', 't', 'R', 'C'}) {
        SCOPED_TRACE(::testing::Message() << name << ordering << trans << s.rows << "x" << s.cols);
        const bool columns = ordering == 'c';
        const shape from = columns ? shape{s.cols, s.rows} : s,
                    to = transposes(trans) ? shape{from.cols, from.rows} : from;
        const zor_int lda = from.cols + 3, ldb = to.cols + 1;
        const auto a = random_elements<T>(from.rows * lda + 3, 1),
                   b = random_elements<T>(to.rows * ldb + 1, 2);
        auto expected = b;
        zor_ref::omatcopy(ordering, trans, s.rows, s.cols, alpha, a.data(), lda, 1, expected.data(), ldb, 1);
        expect_with_any_threads(expected, b, [&](T* result) {
          copy(ordering, trans, s.rows, s.cols, alpha, a.data(), lda, result, ldb);
        });
        // The sum of op(A) and of a matrix that has its shape.
        const zor_int rows = transposes(trans) ? s.cols : s.rows, cols = transposes(trans) ? s.rows : s.cols;
        expected = b;
        zor_ref::omatadd(ordering, trans, 'N', rows, cols, alpha, a.data(), lda, beta, b.data(), ldb,
                         expected.data(), ldb);
        expect_with_any_threads(expected, b, [&](T* result) {
          add(ordering, trans, 'N', rows, cols, alpha, a.data(), lda, beta, result, ldb, result, ldb);
        });
        if (columns && trans == 'N')
          expect_with_any_threads(expected, b, [&](T* result) {
            add_by_columns(&rows, &cols, &alpha, a.data(), &lda, &beta, result, &ldb);
          });
      }
}

TEST(PublicTransposition, CopiesAndSumsAreThoseOfThePlainLoops) {
  check_out_of_place<float>("s", zor_somatcopy, zor_somatadd, zor_blas_sgeadd);
  check_out_of_place<double>("d", zor_domatcopy, zor_domatadd, zor_blas_dgeadd);
  check_out_of_place<zor_c32>("c", zor_comatcopy, zor_comatadd, zor_blas_cgeadd);
  check_out_of_place<zor_c64>("z", zor_zomatcopy, zor_zomatadd, zor_blas_zgeadd);
}

TEST(PublicTransposition, StridedCopies) {
  const shape s = {411, 530};
  for (const char trans : {'N', 'T'}) {
    const shape to = trans == 'N' ? s : shape{s.cols, s.rows};
    for (const shape strides : {shape{1, 1}, shape{3, 1}, shape{2, 5}}) {
      const zor_int lda = s.cols * strides.rows, ldb = to.cols * strides.cols + 2;
      const auto a = random_elements<double>(s.rows * lda, 3), b = random_elements<double>(to.rows * ldb, 4);
      auto expected = b;
      zor_ref::omatcopy('R', trans, s.rows, s.cols, 0.3, a.data(), lda, strides.rows, expected.data(), ldb,
                        strides.cols);
      expect_with_any_threads(expected, b, [&](double* result) {
        zor_domatcopy2('R', trans, s.rows, s.cols, 0.3, a.data(), lda, strides.rows, result, ldb,
                       strides.cols);
      });
    }
    // Lines that lie between the elements of others: columns of a row-major matrix as lines of their own.
    const auto a = random_elements<double>(s.rows * s.cols, 5), b = random_elements<double>(a.size(), 6);
    auto expected = b;
    zor_ref::omatcopy('R', trans, s.rows, s.cols, 0.3, a.data(), 1, s.rows, expected.data(), 1, to.rows);
    expect_with_any_threads(expected, b, [&](double* result) {
      zor_domatcopy2('R', trans, s.rows, s.cols, 0.3, a.data(), 1, s.rows, result, 1, to.rows);
    });
  }
}

template <class T, class Kernel>
void check_in_place(const char* name, Kernel* kernel, char ordering, char trans, shape s, zor_int pad_a,
                    zor_int pad_b) {
  const bool columns = ordering == 'C';
  const shape from = columns ? shape{s.cols, s.rows} : s,
              to = transposes(trans) ? shape{from.cols, from.rows} : from;
  const zor_int lda = pad_a < 0 ? std::max(from.cols, to.cols) - pad_a - 1 : from.cols + pad_a;
  const zor_int ldb = pad_a < 0 ? lda : to.cols + pad_b;
  const T alpha = scalar<T>(0.7, -0.4);
  const auto before = random_elements<T>(std::max(from.rows * lda, to.rows * ldb), 7);
  auto expected = before;
  zor_ref::imatcopy(ordering, trans, s.rows, s.cols, alpha, expected.data(), lda, ldb, before.size());
  SCOPED_TRACE(::testing::Message() << name << ordering << trans << " " << s.rows << " by " << s.cols
                                    << " lda " << lda << " ldb " << ldb);
  expect_with_any_threads(expected, before,
                          [&](T* ab) { kernel(ordering, trans, s.rows, s.cols, alpha, ab, lda, ldb); });
}

// Leading dimensions: equal, equal with gaps, without gaps, with gaps.
template <class T, class Kernel>
void check_all_in_place(const char* name, Kernel* kernel) {
  constexpr shape pads[] = {{-1, 0}, {-4, 0}, {0, 0}, {3, 8}};
  size_t iteration = 0;
  for (const shape s : {shape{1, 1}, shape{7, 300}, shape{67, 65}, shape{530, 530}, shape{611, 440},
                        shape{440, 611}, shape{130, 2100}, shape{2300, 130}})
    for (const char trans : {'N', 't', 'R', 'C'})
      for (const shape pad : pads)
        check_in_place<T>(name, kernel, "RC"[++iteration / 3 % 2], trans, s, pad.rows, pad.cols);
}

TEST(PublicTransposition, InPlace) {
  check_all_in_place<float>("s", zor_simatcopy);
  check_all_in_place<double>("d", zor_dimatcopy);
  check_all_in_place<zor_c32>("c", zor_cimatcopy);
  check_all_in_place<zor_c64>("z", zor_zimatcopy);
}

// Rectangles beyond 64 MiB are permuted by lines and columns.
TEST(PublicTransposition, LargeRectanglesInPlace) {
  check_in_place<zor_c64>("z", zor_zimatcopy, 'R', 'C', {2000, 2222}, 0, 0);  // common divisor 2
  check_in_place<zor_c64>("z", zor_zimatcopy, 'R', 'T', {2111, 2000}, 0, 0);  // none
  check_in_place<double>("d", zor_dimatcopy, 'C', 'T', {3000, 2900}, 0, 0);   // 100
  check_in_place<double>("d", zor_dimatcopy, 'R', 'T', {3, 2800001}, 0, 0);   // few long lines
  check_in_place<zor_c32>("c", zor_cimatcopy, 'R', 'C', {2800000, 4}, 0, 0);  // many short ones
  check_in_place<float>("s", zor_simatcopy, 'R', 'T', {1200, 15600}, 0, 0);   // a multiple
}

// ---- Refused arguments.

// Arguments that are bad beside the others; what is bad by itself stands in tests/core/arguments_test.cpp.
TEST(PublicTransposition, BadArgumentsAreNamedAndNothingIsWritten) {
  std::vector<double> a(64, 1), b(64, 2), c(64, 3);
  double* const p = a.data();
  double* const q = b.data();
  double* const r = c.data();
  const zor_int far = INT64_MAX / 4;
  struct bad_call {
    const char* report;
    void (*call)(double* a, double* b, double* c, zor_int far);
  };
#define BAD(report, ...)                                     \
  {                                                          \
    report, [](double* x, double* y, double* z, zor_int w) { \
      (void)x, (void)y, (void)z, (void)w;                    \
      __VA_ARGS__;                                           \
    }                                                        \
  }
  const bad_call calls[] = {
      BAD("zor_domatcopy 7 lda", zor_domatcopy('R', 'N', 4, 5, 1, x, 4, y, 5)),
      BAD("zor_domatcopy 7 lda", zor_domatcopy('C', 'N', 5, 4, 1, x, 4, y, 5)),
      BAD("zor_domatcopy 7 lda", zor_domatcopy('R', 'N', 4, 4, 1, x, w, y, 5)),
      BAD("zor_domatcopy 7 lda", zor_domatcopy('R', 'N', 0, 0, 1, x, 0, y, 5)),
      BAD("zor_domatcopy 8 b", zor_domatcopy('R', 'T', 4, 4, 1, x, 4, x, 4)),
      BAD("zor_domatcopy 8 b", zor_domatcopy('R', 'N', 4, 4, 1, x, 5, x, 4)),
      BAD("zor_domatcopy 9 ldb", zor_domatcopy('R', 'T', 5, 4, 1, x, 4, y, 4)),
      BAD("zor_domatcopy2 8 stridea", zor_domatcopy2('R', 'N', 2, 4, 1, x, 8, w, y, 8, 2)),
      BAD("zor_domatcopy2 11 strideb", zor_domatcopy2('R', 'N', 2, 4, 1, x, 8, 2, y, 6, 2)),
      BAD("zor_dimatcopy 8 ldb", zor_dimatcopy('R', 'T', 5, 4, 1, x, 4, 4)),
      BAD("zor_domatadd 8 lda", zor_domatadd('R', 'T', 'N', 5, 4, 1, x, 4, 1, y, 4, z, 4)),
      BAD("zor_domatadd 11 ldb", zor_domatadd('R', 'N', 'N', 4, 4, 1, x, 4, 1, y, 3, z, 4)),
      BAD("zor_domatadd 12 c", zor_domatadd('R', 'T', 'N', 4, 4, 1, x, 4, 1, y, 4, x, 4)),
      BAD("zor_domatadd 12 c", zor_domatadd('R', 'N', 'N', 4, 4, 1, x, 4, 1, y, 4, y, 5)),
      BAD("zor_domatadd 13 ldc", zor_domatadd('R', 'N', 'N', 4, 4, 1, x, 4, 1, y, 4, z, 3)),
  };
#undef BAD
  const noted_reports reports;
  for (const bad_call& bad : calls) {
    bad.call(p, q, r, far);
    EXPECT_EQ(bad.report, reports.take());
  }
  EXPECT_EQ(std::vector<double>(64, 1), a);
  EXPECT_EQ(std::vector<double>(64, 2), b);
  EXPECT_EQ(std::vector<double>(64, 3), c);
}

}  // namespace
