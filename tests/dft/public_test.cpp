// SPDX-License-Identifier: MIT
// The public calls: arguments, settings read back, statuses, and the same bits on any number of threads.
#include <gtest/gtest.h>
#include <immintrin.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/dft/settings.h"
#include "tests/support/elements.h"
#include "zor/core.h"

namespace {

using namespace dft_test;

TEST(Create, NamesBadArguments) {
  const zor_int lengths[] = {4, 5, 6, 7, 8, 9, 10, 11}, zero[] = {4, 0},
                huge[] = {zor_int(1) << 40, zor_int(1) << 20}, more_than_memory = zor_int(1) << 57;
  const struct {
    int32_t precision, domain;
    zor_int rank;
    const zor_int* lengths;
    int32_t status;
  } cases[] = {{double_precision, complex_data, 7, lengths, done},
               {single, real_data, 3, lengths, done},
               {single - 1, complex_data, 1, lengths, bad_argument},
               {double_precision, real_data + 1, 1, lengths, bad_argument},
               {double_precision, complex_data, 0, lengths, bad_argument},
               {double_precision, complex_data, 8, lengths, bad_argument},
               {double_precision, complex_data, -1, lengths, bad_argument},
               {double_precision, complex_data, 1, nullptr, bad_argument},
               {double_precision, complex_data, 2, zero, bad_argument},
               {double_precision, real_data, 7, lengths, done},
               {double_precision, complex_data, 2, huge, too_long},
               {double_precision, complex_data, 1, &more_than_memory, too_long}};
  for (const auto& c : cases) {
    zor_fft fft = reinterpret_cast<zor_fft>(1);
    EXPECT_EQ(c.status, zor_fft_create(&fft, c.precision, c.domain, c.rank, c.lengths));
    EXPECT_EQ(c.status == done, fft != nullptr);
    EXPECT_EQ(c.status == done ? done : bad_value, zor_fft_free(&fft));
  }
  EXPECT_EQ(bad_value, zor_fft_create(nullptr, double_precision, complex_data, 1, lengths));
}

class Fft : public testing::Test {
 protected:
  void SetUp() override {
    const zor_int lengths[] = {1, 3, 4};
    ASSERT_EQ(0, zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 3, lengths));
  }
  void TearDown() override { zor_fft_free(&fft); }
  zor_fft fft = nullptr;
};

TEST_F(Fft, ReadsBackWhatWasSet) {
  for (auto [parameter, value] : {std::pair<int32_t, int32_t>{ZOR_DFT_COMPLEX_STORAGE, split},
                                  {ZOR_DFT_REAL_STORAGE, split},
                                  {ZOR_DFT_CONJUGATE_EVEN_STORAGE, interleaved},
                                  {ZOR_DFT_PLACEMENT, out_of_place},
                                  {ZOR_DFT_ORDERING, scrambled},
                                  {ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_SECOND}}) {
    EXPECT_EQ(0, zor_fft_set_int(fft, parameter, value));
    int32_t got = 0;
    EXPECT_EQ(0, zor_fft_get(fft, parameter, &got));
    EXPECT_EQ(got, value) << parameter;
  }
  for (auto [parameter, value] : {std::pair<int32_t, int>{ZOR_DFT_NUMBER_OF_TRANSFORMS, 9},
                                  {ZOR_DFT_INPUT_DISTANCE, 1000},
                                  {ZOR_DFT_OUTPUT_DISTANCE, -3},
                                  {ZOR_DFT_NUMBER_OF_USER_THREADS, 5}}) {
    EXPECT_EQ(0, zor_fft_set_int(fft, parameter, zor_int(value)));
    zor_int got = 0;
    EXPECT_EQ(0, zor_fft_get(fft, parameter, &got));
    EXPECT_EQ(got, value) << parameter;
  }
  for (int32_t parameter : {ZOR_DFT_FORWARD_SCALE, ZOR_DFT_BACKWARD_SCALE}) {
    double got = 0;
    EXPECT_EQ(0, zor_fft_set_real(fft, parameter, 0.1 * parameter));
    EXPECT_EQ(0, zor_fft_get(fft, parameter, &got));
    EXPECT_EQ(got, 0.1 * parameter);
  }
  const zor_int strides[] = {7, 100, 20, 3};
  for (int32_t parameter : {ZOR_DFT_INPUT_STRIDES, ZOR_DFT_OUTPUT_STRIDES}) {
    zor_int got[4] = {};
    EXPECT_EQ(0, zor_fft_set_strides(fft, parameter, strides));
    EXPECT_EQ(0, zor_fft_get(fft, parameter, got));
    EXPECT_EQ(0, std::memcmp(got, strides, sizeof got));
  }
  char name[10];
  EXPECT_EQ(0, zor_fft_set_name(fft, "a long name of a transform"));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_DESCRIPTOR_NAME, name));
  EXPECT_STREQ(name, "a long na");
  zor_int lengths[3] = {}, rank = 0;
  int32_t domain = 0, precision = 0, status = 0;
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_LENGTHS, lengths));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_RANK, &rank));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_DOMAIN, &domain));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_PRECISION, &precision));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_COMMIT_STATUS, &status));
  EXPECT_TRUE(lengths[0] == 1 && lengths[1] == 3 && lengths[2] == 4 && rank == 3);
  EXPECT_EQ(domain, complex_data);
  EXPECT_EQ(precision, double_precision);
  EXPECT_EQ(status, ZOR_DFT_UNCOMMITTED);
}

TEST_F(Fft, RefusesBadValues) {
  for (int32_t parameter : {ZOR_DFT_NUMBER_OF_TRANSFORMS, ZOR_DFT_NUMBER_OF_USER_THREADS})
    for (zor_int value : {zor_int(0), zor_int(-1)})
      EXPECT_EQ(bad_value, zor_fft_set_int(fft, parameter, value));
  // More callers than a process can have threads; each would get memory of its own.
  for (zor_int callers : {zor_int(1000000000), zor_int(1) << 32})
    EXPECT_EQ(bad_value, zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_USER_THREADS, callers));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_USER_THREADS, zor_int(4096)));
  EXPECT_EQ(not_implemented, zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, split));
  EXPECT_EQ(not_implemented, zor_fft_set_int(fft, 6, 1));
  EXPECT_EQ(bad_value, zor_fft_set_int(fft, 99, 1));
  EXPECT_EQ(bad_value, zor_fft_set_name(fft, static_cast<const char*>(nullptr)));
  EXPECT_EQ(bad_value, zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, static_cast<const zor_int*>(nullptr)));
  int32_t got;
  // A refusal uncommits, but for the name: so does a parameter that another function sets.
  for (auto [parameter, left] : {std::pair<int32_t, int32_t>{ZOR_DFT_PLACEMENT, ZOR_DFT_UNCOMMITTED},
                                 {ZOR_DFT_FORWARD_SCALE, ZOR_DFT_UNCOMMITTED},
                                 {ZOR_DFT_DESCRIPTOR_NAME, ZOR_DFT_COMMITTED}}) {
    EXPECT_EQ(0, zor_fft_commit(fft));
    EXPECT_EQ(bad_value, zor_fft_set_int(fft, parameter, 45));
    EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_COMMIT_STATUS, &got));
    EXPECT_EQ(got, left) << parameter;
  }
  EXPECT_EQ(bad_value, zor_fft_get(fft, 99, &got));
  EXPECT_EQ(bad_value, zor_fft_get(fft, ZOR_DFT_PLACEMENT, nullptr));
  EXPECT_EQ(not_a_descriptor, zor_fft_get(nullptr, ZOR_DFT_PLACEMENT, &got));
  EXPECT_EQ(not_a_descriptor, zor_fft_set_int(nullptr, ZOR_DFT_PLACEMENT, in_place));
  EXPECT_EQ(not_a_descriptor, zor_fft_commit(nullptr));
  EXPECT_EQ(not_a_descriptor, zor_fft_forward(nullptr, &got));
  EXPECT_EQ(bad_value, zor_fft_free(nullptr));
}

TEST_F(Fft, CommitRefusesContradictions) {
  const zor_int flat[] = {0, 0, 4, 0}, loose[] = {0, 0, 4, 1};
  EXPECT_EQ(0, zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, flat));
  EXPECT_EQ(bad_value, zor_fft_commit(fft)) << "a stride of 0 along four elements";
  EXPECT_EQ(0, zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, loose));
  EXPECT_EQ(0, zor_fft_commit(fft)) << "a stride of 0 along one element";
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, zor_int(2)));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_INPUT_DISTANCE, zor_int(0)));
  EXPECT_EQ(bad_value, zor_fft_commit(fft)) << "two transforms at one place";
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_INPUT_DISTANCE, zor_int(12)));
  EXPECT_EQ(0, zor_fft_commit(fft));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, out_of_place));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_OUTPUT_DISTANCE, zor_int(0)));
  EXPECT_EQ(bad_value, zor_fft_commit(fft)) << "two outputs at one place";

  zor_fft real = nullptr;
  const zor_int n = 8, stuck[] = {0, 0}, unit[] = {0, 1};
  ASSERT_EQ(0, zor_fft_create(&real, ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 1, &n));
  EXPECT_EQ(0, zor_fft_set_int(real, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX));
  EXPECT_EQ(0, zor_fft_set_strides(real, ZOR_DFT_OUTPUT_STRIDES, stuck));
  EXPECT_EQ(bad_value, zor_fft_commit(real)) << "in place the complex side has a stride of its own";
  EXPECT_EQ(0, zor_fft_set_strides(real, ZOR_DFT_OUTPUT_STRIDES, unit));
  EXPECT_EQ(0, zor_fft_set_int(real, ZOR_DFT_NUMBER_OF_TRANSFORMS, zor_int(2)));
  EXPECT_EQ(0, zor_fft_set_int(real, ZOR_DFT_INPUT_DISTANCE, zor_int(10)));
  EXPECT_EQ(0, zor_fft_set_int(real, ZOR_DFT_OUTPUT_DISTANCE, zor_int(0)));
  EXPECT_EQ(bad_value, zor_fft_commit(real)) << "and a distance";
  EXPECT_EQ(0, zor_fft_set_int(real, ZOR_DFT_OUTPUT_DISTANCE, zor_int(5)));
  EXPECT_EQ(0, zor_fft_commit(real));
  EXPECT_EQ(0, zor_fft_free(&real));
}

// Data that no process can address: a single step, or what the steps of all dimensions and the batch add up
// to.
TEST_F(Fft, CommitRefusesStridesBeyondMemory) {
  const zor_int far = zor_int(1) << 62, dense[] = {0, 12, 4, 1};
  const auto status_with = [&](int32_t parameter, const zor_int(&strides)[4]) {
    EXPECT_EQ(0, zor_fft_set_strides(fft, parameter, strides));
    const int32_t status = zor_fft_commit(fft);
    EXPECT_EQ(0, zor_fft_set_strides(fft, parameter, dense));
    return status;
  };
  for (zor_int step : {far, -far, zor_int(1) << 45, std::numeric_limits<zor_int>::min()}) {
    EXPECT_EQ(bad_value, status_with(ZOR_DFT_INPUT_STRIDES, {0, 12, 4, step})) << step;
    EXPECT_EQ(bad_value, status_with(ZOR_DFT_INPUT_STRIDES, {0, 12, step, 1})) << step;
    EXPECT_EQ(bad_value, status_with(ZOR_DFT_INPUT_STRIDES, {0, step, 4, 1})) << step << " along one element";
    EXPECT_EQ(bad_value, status_with(ZOR_DFT_INPUT_STRIDES, {step, 12, 4, 1})) << step << " of an offset";
  }
  // Each step alone stays within 2^43 elements, together they do not.
  const zor_int third = zor_int(1) << 41;
  EXPECT_EQ(0, status_with(ZOR_DFT_INPUT_STRIDES, {0, 12, third, 1}));
  EXPECT_EQ(bad_value, status_with(ZOR_DFT_INPUT_STRIDES, {0, 12, third, third + 1}));
  EXPECT_EQ(0, status_with(ZOR_DFT_INPUT_STRIDES, {third, 12, third, -1}));
  EXPECT_EQ(0, status_with(ZOR_DFT_OUTPUT_STRIDES, {0, 12, far, 1})) << "in place the output has no strides";
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, out_of_place));
  EXPECT_EQ(bad_value, status_with(ZOR_DFT_OUTPUT_STRIDES, {0, 12, far, 1}));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, zor_int(1) << 20));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_OUTPUT_DISTANCE, zor_int(12)));
  for (zor_int distance : {far, zor_int(1) << 30}) {
    EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_INPUT_DISTANCE, distance));
    EXPECT_EQ(bad_value, zor_fft_commit(fft)) << distance;
  }
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_INPUT_DISTANCE, zor_int(12)));
  EXPECT_EQ(0, zor_fft_commit(fft));
}

// A commit that is refused leaves every dimension's settings within reach.
TEST(Commit, AfterARefusalSettingsReachEveryDimension) {
  zor_fft fft = nullptr;
  const zor_int lengths[] = {1, 3, 2}, strides[] = {1, 70, 20, 4};
  ASSERT_EQ(0, zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 3, lengths));
  EXPECT_EQ(not_implemented, zor_fft_commit(fft)) << "a packed spectrum of rank 3";
  zor_int got[4] = {};
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_LENGTHS, got));
  EXPECT_EQ(0, std::memcmp(got, lengths, sizeof lengths));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, ZOR_DFT_NOT_INPLACE));
  EXPECT_EQ(0, zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, strides));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_INPUT_STRIDES, got));
  EXPECT_EQ(0, std::memcmp(got, strides, sizeof strides));
  EXPECT_EQ(0, zor_fft_set_strides(fft, ZOR_DFT_OUTPUT_STRIDES, strides));
  EXPECT_EQ(0, zor_fft_set_real(fft, ZOR_DFT_FORWARD_SCALE, 0.5));
  EXPECT_EQ(0, zor_fft_commit(fft));
  std::vector<double> x(64);
  std::vector<zor_c64> y(64);
  x[1 + 20] = 6;
  EXPECT_EQ(0, zor_fft_forward(fft, x.data(), y.data()));
  for (size_t k1 : {0, 1, 2})
    for (size_t k0 : {0, 1}) {
      const zor_c64 v = y[1 + 4 * k0 + 20 * k1];
      EXPECT_NEAR(v.re, k1 == 0 ? 3 : -1.5, 1e-15);
      EXPECT_NEAR(v.im, k1 == 0 ? 0 : k1 == 1 ? -1.5 * std::sqrt(3) : 1.5 * std::sqrt(3), 1e-15);
    }
  EXPECT_EQ(0, zor_fft_free(&fft));
}

TEST_F(Fft, ComputeWantsACommitAndItsArrays) {
  std::vector<double> x(24), y(24);
  x[0] = 1;
  EXPECT_EQ(bad_argument, zor_fft_forward(fft, x.data()));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, out_of_place));
  EXPECT_EQ(0, zor_fft_commit(fft));
  EXPECT_EQ(bad_value, zor_fft_forward(fft, x.data(), nullptr));
  EXPECT_EQ(bad_value, zor_fft_forward(fft, nullptr, y.data()));
  EXPECT_EQ(0, zor_fft_forward(fft, x.data(), y.data()));
  for (size_t i = 0; i < y.size(); ++i) EXPECT_EQ(y[i], i % 2 == 0 ? 1.0 : 0.0);
  for (int32_t status : {0, 1, 2, 3, 5, 6, 7, 8, 9, 10})
    EXPECT_GT(std::strlen(zor_fft_error_text(status)), 0u);
}

// The padded spectrum of a single row: the packed columns of frequency 0 and, for even n, n/2 end in zeros in
// the row behind it. Layouts without room for that row keep what stands there.
template <class R>
void check_single_row(int32_t precision, zor_int n, int32_t placement, zor_int s0, zor_int s1,
                      zor_int distance, bool has_room) {
  SCOPED_TRACE(testing::Message() << "length " << n << " placement " << placement << " strides " << s1 << " "
                                  << s0);
  constexpr R untouched = R(777);
  const zor_int lengths[] = {1, n}, strides[] = {2, s1, s0}, count = 2;
  zor_fft fft = nullptr;
  ASSERT_EQ(0, zor_fft_create(&fft, precision, ZOR_DFT_REAL, 2, lengths));
  for (int32_t parameter : {ZOR_DFT_INPUT_STRIDES, ZOR_DFT_OUTPUT_STRIDES})
    ASSERT_EQ(0, zor_fft_set_strides(fft, parameter, strides));
  for (int32_t parameter : {ZOR_DFT_INPUT_DISTANCE, ZOR_DFT_OUTPUT_DISTANCE})
    ASSERT_EQ(0, zor_fft_set_int(fft, parameter, distance));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, count));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, placement));
  ASSERT_EQ(0, zor_fft_commit(fft));
  // An impulse has a flat spectrum.
  std::vector<R> x(200, untouched), y = x, wanted = x;
  const zor_int row = n % 2 == 0 ? n + 2 : n + 1;
  for (zor_int t = 0; t < count; ++t) {
    const zor_int first = 2 + t * distance;
    for (zor_int i = 0; i < n; ++i) x[size_t(first + i * s0)] = i == 0 ? R(1) : R(0);
    for (zor_int i = 0; i < row; ++i) wanted[size_t(first + i * s0)] = i % 2 == 0 ? R(1) : R(0);
    for (zor_int column = 0; column <= n && has_room; column += n)
      if (column == 0 || n % 2 == 0) wanted[size_t(first + column * s0 + s1)] = 0;
  }
  ASSERT_EQ(0, zor_fft_forward(fft, x.data(), y.data()));
  const std::vector<R>& got = placement == ZOR_DFT_INPLACE ? x : y;
  for (size_t i = 0; i < got.size(); ++i) ASSERT_EQ(wanted[i], got[i]) << "real " << i;
  zor_fft_free(&fft);
}

TEST(Padded, ASingleRowHasPaddedColumns) {
  for (int32_t placement : {ZOR_DFT_INPLACE, ZOR_DFT_NOT_INPLACE})
    for (zor_int n : {1, 4, 5, 16}) {
      const zor_int row = n + 2;
      check_single_row<double>(double_precision, n, placement, 1, row, 3 * row, true);
      check_single_row<float>(single, n, placement, 3, 1, 3 * row, true);
      check_single_row<double>(double_precision, n, placement, 1, n, 2 * row, false);
      check_single_row<float>(single, n, placement, 1, row, row, false);
    }
}

// Problems large enough to be divided, of every kind of division; the digest of one thread is every thread's.
const settings problems[] = {{.lengths = {64}, .count = 1000, .distance = 64},
                             {single, lines, out_of_place, {64}, 2000, 1, 2000},
                             {.lengths = {96, 200}},
                             {.placement = out_of_place, .lengths = {128, 100}},
                             {single, lines, in_place, {24, 30, 32}},
                             {.placement = out_of_place, .lengths = {9, 20, 30, 8}},
                             {double_precision, packed_spectra, out_of_place, {500, 128}},
                             {double_precision, packed_spectra, out_of_place, {1000}, 100, 1024},
                             {double_precision, half_spectra, out_of_place, {101, 150}},
                             {single, half_spectra, out_of_place, {24, 36, 40}},
                             {double_precision, half_spectra, out_of_place, {240}, 300, 300},
                             {double_precision, half_spectra, in_place, {151, 103}},
                             {single, half_spectra, in_place, {30, 29, 25}}};

// In place, half spectra packed without gaps and every row of reals over its own.
void set_coinciding_strides(zor_fft fft, const std::vector<zor_int>& lengths, bool backward) {
  std::vector<zor_int> half(lengths.size() + 1), real = half;
  zor_int step = 1;
  for (size_t k = lengths.size(); k > 0; --k) {
    half[k] = step;
    real[k] = step == 1 ? 1 : 2 * step;
    step *= k == lengths.size() ? lengths[k - 1] / 2 + 1 : lengths[k - 1];
  }
  EXPECT_EQ(0,
            zor_fft_set_strides(fft, backward ? ZOR_DFT_OUTPUT_STRIDES : ZOR_DFT_INPUT_STRIDES, real.data()));
  EXPECT_EQ(0,
            zor_fft_set_strides(fft, backward ? ZOR_DFT_INPUT_STRIDES : ZOR_DFT_OUTPUT_STRIDES, half.data()));
}

zor_fft make_fft(const settings& t, bool backward) {
  zor_fft fft = make(t);
  if (t.of == half_spectra && t.placement == in_place) set_coinciding_strides(fft, t.lengths, backward);
  return fft;
}

// Random reals, as many as either side of a problem takes.
template <class R>
std::vector<R> random_data(const settings& t) {
  const zor_int size = 2 * std::max<zor_int>(t.count, 1) * std::max<zor_int>(t.distance, 1);
  zor_int total = 2 * t.count;
  for (zor_int n : t.lengths) total *= n;
  return zor_test::random_elements<R>(std::max(size, total), 3);
}

// The committed transform of random data.
template <class R>
std::vector<R> result_of(zor_fft fft, const settings& t, bool backward, int32_t* status) {
  std::vector<R> x = random_data<R>(t), y(x.size());
  *status = backward ? zor_fft_backward(fft, x.data(), y.data()) : zor_fft_forward(fft, x.data(), y.data());
  return t.placement == in_place ? x : y;
}

template <class R>
std::vector<R> run_threads(const settings& t, int32_t threads, bool backward) {
  zor_core_set_num_threads(threads);
  zor_fft fft = make_fft(t, backward);
  EXPECT_EQ(0, zor_fft_commit(fft));
  int32_t status = -1;
  const std::vector<R> result = result_of<R>(fft, t, backward, &status);
  EXPECT_EQ(0, status);
  zor_fft_free(&fft);
  zor_core_set_num_threads(0);
  return result;
}

template <class R>
void compare_threads(const settings& t) {
  for (bool backward : {false, true}) {
    const std::vector<R> one = run_threads<R>(t, 1, backward);
    for (int32_t threads : {2, 3, 7}) {
      const std::vector<R> many = run_threads<R>(t, threads, backward);
      EXPECT_TRUE(zor_test::same_bits(one.data(), many.data(), one.size())) << threads << " threads, " << t;
    }
  }
}

TEST(Threads, NeverShowInTheBits) {
  for (const settings& t : problems) in_precision_of(t, [&](auto r) { compare_threads<decltype(r)>(t); });
}

// One committed transform belongs to all threads: callers that compute at once, each on data of its own, all
// get what a lone caller gets.
const settings shared_problems[] = {{.lengths = {1000}},
                                    {.placement = out_of_place, .lengths = {1021}},
                                    {single, lines, in_place, {4096}},
                                    {.of = packed_spectra, .lengths = {1002}},
                                    {.lengths = {60}, .count = 16, .distance = 60},
                                    {.placement = out_of_place, .lengths = {40, 50}},
                                    {double_precision, packed_spectra, out_of_place, {30, 33}},
                                    {single, half_spectra, out_of_place, {12, 10, 14}}};

template <class R>
void share_transform(const settings& t) {
  zor_fft fft = make_fft(t, false);
  ASSERT_EQ(0, zor_fft_commit(fft));
  int32_t alone = -1;
  const std::vector<R> wanted = result_of<R>(fft, t, false, &alone);
  ASSERT_EQ(0, alone);
  std::atomic<int> wrong{0}, refused{0}, ready{0};
  std::vector<std::thread> callers;
  for (int caller = 0; caller < 4; ++caller)
    callers.emplace_back([&] {
      ++ready;
      while (ready < 4) std::this_thread::yield();
      for (int repeat = 0; repeat < 400; ++repeat) {
        int32_t status = -1;
        const std::vector<R> got = result_of<R>(fft, t, false, &status);
        refused += status != 0;
        wrong += std::memcmp(got.data(), wanted.data(), wanted.size() * sizeof(R)) != 0;
      }
    });
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(refused, 0) << testing::PrintToString(t.lengths);
  EXPECT_EQ(wrong, 0) << testing::PrintToString(t.lengths);
  zor_fft_free(&fft);
}

TEST(Threads, ShareOneCommittedTransform) {
  for (const int32_t threads : {1, 3}) {
    zor_core_set_num_threads(threads);
    for (const settings& t : shared_problems)
      in_precision_of(t, [&](auto r) { share_transform<decltype(r)>(t); });
  }
  zor_core_set_num_threads(0);
}

// A plan is the same whatever the modes it is made in, which it leaves as they were: results follow the modes
// of the compute alone, and threads and layouts do not show in them under any.
constexpr unsigned default_control = 0x1F80, flush = 0x8040, rounding[] = {0x0000, 0x2000, 0x4000, 0x6000};
template <class R>
std::vector<R> run_in_modes(const settings& t, unsigned commit_mode, unsigned compute_mode, int32_t threads) {
  zor_core_set_num_threads(threads);
  zor_fft fft = make_fft(t, false);
  // The scale pair that a short plan carries itself.
  double size = 1;
  for (zor_int n : t.lengths) size *= double(n);
  EXPECT_EQ(0, zor_fft_set_real(fft, ZOR_DFT_FORWARD_SCALE, 1.0 / size));
  const unsigned own = _mm_getcsr();
  _mm_setcsr(default_control | commit_mode);
  EXPECT_EQ(0, zor_fft_commit(fft));
  EXPECT_EQ(default_control | commit_mode, _mm_getcsr()) << "modes and flags after commit";
  _mm_setcsr(default_control | compute_mode);
  int32_t status = -1;
  const std::vector<R> result = result_of<R>(fft, t, false, &status);
  _mm_setcsr(own);
  EXPECT_EQ(0, status);
  zor_fft_free(&fft);
  zor_core_set_num_threads(0);
  return result;
}

// Every method of the engine, and lines that run as columns and alone.
const settings moded_problems[] = {{.lengths = {100}},
                                   {double_precision, lines, out_of_place, {256}, 7, 256},
                                   {.placement = out_of_place, .lengths = {89}},
                                   {.lengths = {97}, .count = 2, .distance = 97},
                                   {single, lines, in_place, {4099}},
                                   {.lengths = {1000}},
                                   {.lengths = {32768}},
                                   {double_precision, packed_spectra, out_of_place, {1001}},
                                   {single, packed_spectra, out_of_place, {2000}},
                                   {single, lines, in_place, {16, 6, 25}},
                                   {double_precision, half_spectra, out_of_place, {128, 100}},
                                   {single, lines, out_of_place, {64}, 2000, 1, 2000},
                                   {.lengths = {96, 200}}};

template <class R>
void compare_modes(const settings& t) {
  for (const unsigned round : rounding)
    for (const unsigned denormals : {0u, flush}) {
      const unsigned mode = round | denormals;
      const std::vector<R> wanted = run_in_modes<R>(t, 0, mode, 1);
      for (int32_t threads : {1, 2, 3})
        EXPECT_TRUE(
            zor_test::same_bits(wanted.data(), run_in_modes<R>(t, mode, mode, threads).data(), wanted.size()))
            << threads << " threads, " << testing::PrintToString(t.lengths) << " mode " << std::hex << mode;
    }
}

TEST(Modes, OfCommitNeverShowInTheBits) {
  for (const settings& t : moded_problems) in_precision_of(t, [&](auto r) { compare_modes<decltype(r)>(t); });
}

// The kernel library's own front end commits through the threaded layer.
TEST(FrontEnd, CommitsThroughTheThreadedLayer) {
  for (int32_t domain : {ZOR_DFT_COMPLEX, ZOR_DFT_REAL})
    for (zor_int rank : {1, 2}) {
      const zor_int lengths[] = {6, 10};
      ZorDftDescriptor *d = nullptr, *s = nullptr;
      ASSERT_EQ(0, rank == 1 ? zor_dft_create_1d_d(&d, 36.0, domain, 1, 6)
                             : zor_dft_create_nd_d(&d, domain, 2, lengths));
      ASSERT_EQ(0, rank == 1 ? zor_dft_create_1d_s(&s, 35.0f, domain, 1, 6)
                             : zor_dft_create_nd_s(&s, domain, 2, lengths));
      std::vector<double> x(2 * 8 * 12, 0.0);
      std::vector<float> y(2 * 8 * 12, 0.0f);
      x[0] = y[0] = 3;
      for (ZorDftDescriptor* of : {d, s})
        ASSERT_EQ(0, zor_dft_set_value(of, ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_TAIL));
      ASSERT_EQ(0, zor_dft_commit(&d));
      ASSERT_EQ(0, zor_dft_commit(&s));
      EXPECT_EQ(d->breakdown != nullptr, domain == ZOR_DFT_COMPLEX && rank == 1);
      EXPECT_EQ(0, zor_dft_compute_forward(&d, x.data()));
      EXPECT_EQ(0, zor_dft_compute_forward(&s, y.data()));
      const size_t first = domain == ZOR_DFT_COMPLEX ? 2 : 1;
      EXPECT_EQ(x[first], 3.0) << "an impulse has a flat spectrum";
      EXPECT_EQ(y[first], 3.0f);
      EXPECT_EQ(0, zor_dft_free(&d));
      EXPECT_EQ(0, zor_dft_free(&s));
    }
}

}  // namespace
