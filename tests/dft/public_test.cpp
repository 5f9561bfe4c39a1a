// SPDX-License-Identifier: MIT
// The public calls: arguments, settings read back, statuses, and the same bits on any number of threads.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/operand.h"
#include "zor/core.h"
#include "zor/dft.h"

namespace {

TEST(Create, NamesBadArguments) {
  const zor_int lengths[] = {4, 5, 6, 7, 8, 9, 10, 11}, zero[] = {4, 0},
                huge[] = {zor_int(1) << 40, zor_int(1) << 20};
  const struct {
    int32_t precision, domain;
    zor_int rank;
    const zor_int* lengths;
    int32_t status;
  } cases[] = {{36, 32, 7, lengths, 0}, {35, 33, 3, lengths, 0}, {34, 32, 1, lengths, 2},
               {36, 34, 1, lengths, 2}, {36, 32, 0, lengths, 2}, {36, 32, 8, lengths, 2},
               {36, 32, 1, nullptr, 2}, {36, 32, 2, zero, 2},    {36, 33, 4, lengths, 6},
               {36, 32, 2, huge, 9},    {36, 32, -1, lengths, 2}};
  for (const auto& c : cases) {
    zor_fft fft = reinterpret_cast<zor_fft>(1);
    EXPECT_EQ(c.status, zor_fft_create(&fft, c.precision, c.domain, c.rank, c.lengths));
    EXPECT_EQ(c.status == 0, fft != nullptr);
    EXPECT_EQ(c.status == 0 ? 0 : 3, zor_fft_free(&fft));
  }
  EXPECT_EQ(3, zor_fft_create(nullptr, 36, 32, 1, lengths));
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
  for (auto [parameter, value] : {std::pair{8, 42}, {9, 42}, {10, 39}, {11, 44}, {18, 49}, {21, 56}}) {
    EXPECT_EQ(0, zor_fft_set(fft, parameter, value));
    int32_t got = 0;
    EXPECT_EQ(0, zor_fft_get(fft, parameter, &got));
    EXPECT_EQ(got, value) << parameter;
  }
  for (auto [parameter, value] : {std::pair{7, 9}, {14, 1000}, {15, -3}, {26, 5}}) {
    EXPECT_EQ(0, zor_fft_set(fft, parameter, zor_int(value)));
    zor_int got = 0;
    EXPECT_EQ(0, zor_fft_get(fft, parameter, &got));
    EXPECT_EQ(got, value) << parameter;
  }
  for (int parameter : {4, 5}) {
    double got = 0;
    EXPECT_EQ(0, zor_fft_set(fft, parameter, 0.1 * parameter));
    EXPECT_EQ(0, zor_fft_get(fft, parameter, &got));
    EXPECT_EQ(got, 0.1 * parameter);
  }
  const zor_int strides[] = {7, 100, 20, 3};
  for (int parameter : {12, 13}) {
    zor_int got[4] = {};
    EXPECT_EQ(0, zor_fft_set(fft, parameter, strides));
    EXPECT_EQ(0, zor_fft_get(fft, parameter, got));
    EXPECT_EQ(0, std::memcmp(got, strides, sizeof got));
  }
  char name[10];
  EXPECT_EQ(0, zor_fft_set(fft, 20, "a long name of a transform"));
  EXPECT_EQ(0, zor_fft_get(fft, 20, name));
  EXPECT_STREQ(name, "a long na");
  zor_int lengths[3] = {}, rank = 0;
  int32_t domain = 0, precision = 0, status = 0;
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_LENGTHS, lengths));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_RANK, &rank));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_DOMAIN, &domain));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_PRECISION, &precision));
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_COMMIT_STATUS, &status));
  EXPECT_EQ(lengths[0], 1);
  EXPECT_EQ(lengths[1], 3);
  EXPECT_EQ(lengths[2], 4);
  EXPECT_EQ(rank, 3);
  EXPECT_EQ(domain, 32);
  EXPECT_EQ(precision, 36);
  EXPECT_EQ(status, 31);
}

TEST_F(Fft, RefusesBadValues) {
  for (int parameter : {7, 26})
    for (zor_int value : {zor_int(0), zor_int(-1)}) EXPECT_EQ(3, zor_fft_set(fft, parameter, value));
  EXPECT_EQ(3, zor_fft_set(fft, 26, zor_int(1) << 32));
  EXPECT_EQ(3, zor_fft_set(fft, 11, 45));
  EXPECT_EQ(6, zor_fft_set(fft, 10, 42));
  EXPECT_EQ(6, zor_fft_set(fft, 6, 1));
  EXPECT_EQ(3, zor_fft_set(fft, 99, 1));
  EXPECT_EQ(3, zor_fft_set(fft, 20, static_cast<const char*>(nullptr)));
  EXPECT_EQ(3, zor_fft_set(fft, 12, static_cast<const zor_int*>(nullptr)));
  int32_t got;
  EXPECT_EQ(3, zor_fft_get(fft, 99, &got));
  EXPECT_EQ(3, zor_fft_get(fft, 11, nullptr));
  EXPECT_EQ(5, zor_fft_get(nullptr, 11, &got));
  EXPECT_EQ(5, zor_fft_set(nullptr, 11, 43));
  EXPECT_EQ(5, zor_fft_commit(nullptr));
  EXPECT_EQ(5, zor_fft_forward(nullptr, &got));
  EXPECT_EQ(3, zor_fft_free(nullptr));
}

TEST_F(Fft, CommitRefusesContradictions) {
  const zor_int flat[] = {0, 0, 4, 0}, loose[] = {0, 0, 4, 1};
  EXPECT_EQ(0, zor_fft_set(fft, 12, flat));
  EXPECT_EQ(3, zor_fft_commit(fft)) << "a stride of 0 along four elements";
  EXPECT_EQ(0, zor_fft_set(fft, 12, loose));
  EXPECT_EQ(0, zor_fft_commit(fft)) << "a stride of 0 along one element";
  EXPECT_EQ(0, zor_fft_set(fft, 7, zor_int(2)));
  EXPECT_EQ(3, zor_fft_commit(fft)) << "two transforms at one place";
  EXPECT_EQ(0, zor_fft_set(fft, 14, zor_int(12)));
  EXPECT_EQ(0, zor_fft_commit(fft));
  EXPECT_EQ(0, zor_fft_set(fft, 11, 44));
  EXPECT_EQ(3, zor_fft_commit(fft)) << "two outputs at one place";

  zor_fft real = nullptr;
  const zor_int n = 8, stuck[] = {0, 0}, unit[] = {0, 1};
  ASSERT_EQ(0, zor_fft_create(&real, ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 1, &n));
  EXPECT_EQ(0, zor_fft_set(real, 10, ZOR_DFT_COMPLEX_COMPLEX));
  EXPECT_EQ(0, zor_fft_set(real, 13, stuck));
  EXPECT_EQ(3, zor_fft_commit(real)) << "in place the complex side has a stride of its own";
  EXPECT_EQ(0, zor_fft_set(real, 13, unit));
  EXPECT_EQ(0, zor_fft_set(real, 7, zor_int(2)));
  EXPECT_EQ(0, zor_fft_set(real, 14, zor_int(10)));
  EXPECT_EQ(3, zor_fft_commit(real)) << "and a distance";
  EXPECT_EQ(0, zor_fft_set(real, 15, zor_int(5)));
  EXPECT_EQ(0, zor_fft_commit(real));
  EXPECT_EQ(0, zor_fft_free(&real));
}

// A commit that is refused leaves every dimension's settings within reach.
TEST(Commit, AfterARefusalSettingsReachEveryDimension) {
  zor_fft fft = nullptr;
  const zor_int lengths[] = {1, 3, 2}, strides[] = {1, 70, 20, 4};
  ASSERT_EQ(0, zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 3, lengths));
  EXPECT_EQ(6, zor_fft_commit(fft)) << "a packed spectrum of rank 3";
  zor_int got[4] = {};
  EXPECT_EQ(0, zor_fft_get(fft, ZOR_DFT_GET_LENGTHS, got));
  EXPECT_EQ(0, std::memcmp(got, lengths, sizeof lengths));
  EXPECT_EQ(0, zor_fft_set(fft, 10, ZOR_DFT_COMPLEX_COMPLEX));
  EXPECT_EQ(0, zor_fft_set(fft, 11, ZOR_DFT_NOT_INPLACE));
  EXPECT_EQ(0, zor_fft_set(fft, 12, strides));
  EXPECT_EQ(0, zor_fft_get(fft, 12, got));
  EXPECT_EQ(0, std::memcmp(got, strides, sizeof strides));
  EXPECT_EQ(0, zor_fft_set(fft, 13, strides));
  EXPECT_EQ(0, zor_fft_set(fft, 4, 0.5));
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
  EXPECT_EQ(2, zor_fft_forward(fft, x.data()));
  EXPECT_EQ(0, zor_fft_set(fft, 11, 44));
  EXPECT_EQ(0, zor_fft_commit(fft));
  EXPECT_EQ(3, zor_fft_forward(fft, x.data(), nullptr));
  EXPECT_EQ(3, zor_fft_forward(fft, nullptr, y.data()));
  EXPECT_EQ(0, zor_fft_forward(fft, x.data(), y.data()));
  for (size_t i = 0; i < y.size(); ++i) EXPECT_EQ(y[i], i % 2 == 0 ? 1.0 : 0.0);
  for (int32_t status : {0, 1, 2, 3, 5, 6, 7, 8, 9, 10})
    EXPECT_GT(std::strlen(zor_fft_error_text(status)), 0u);
}

// Problems large enough to be divided, of every kind of division; the digest of one thread is every thread's.
struct threaded {
  int32_t precision, domain, storage, placement;
  std::vector<zor_int> lengths;
  zor_int count, distance;
};
const threaded problems[] = {{36, 32, 39, 43, {64}, 1000, 64},     {35, 32, 39, 44, {64}, 2000, 1},
                             {36, 32, 39, 43, {96, 200}, 1, 0},    {36, 32, 39, 44, {128, 100}, 1, 0},
                             {35, 32, 39, 43, {24, 30, 32}, 1, 0}, {36, 32, 39, 44, {9, 20, 30, 8}, 1, 0},
                             {36, 33, 40, 44, {500, 128}, 1, 0},   {36, 33, 40, 44, {1000}, 100, 1024},
                             {36, 33, 39, 44, {101, 150}, 1, 0},   {35, 33, 39, 44, {24, 36, 40}, 1, 0},
                             {36, 33, 39, 44, {240}, 300, 300},    {36, 33, 39, 43, {151, 103}, 1, 0},
                             {35, 33, 39, 43, {30, 29, 25}, 1, 0}};

// In place, half spectra packed without gaps and every row of reals over its own.
void set_coinciding_strides(zor_fft fft, const std::vector<zor_int>& lengths, bool backward) {
  std::vector<zor_int> half(lengths.size() + 1), real = half;
  zor_int step = 1;
  for (size_t k = lengths.size(); k > 0; --k) {
    half[k] = step;
    real[k] = step == 1 ? 1 : 2 * step;
    step *= k == lengths.size() ? lengths[k - 1] / 2 + 1 : lengths[k - 1];
  }
  EXPECT_EQ(0, zor_fft_set(fft, backward ? 13 : 12, real.data()));
  EXPECT_EQ(0, zor_fft_set(fft, backward ? 12 : 13, half.data()));
}

template <class R>
std::vector<R> run_threads(const threaded& t, int32_t threads, bool backward) {
  zor_core_set_num_threads(threads);
  zor_fft fft = nullptr;
  EXPECT_EQ(0, zor_fft_create(&fft, t.precision, t.domain, zor_int(t.lengths.size()), t.lengths.data()));
  if (t.domain == 33) {
    EXPECT_EQ(0, zor_fft_set(fft, 10, t.storage));
  }
  if (t.domain == 33 && t.storage == 40) {
    EXPECT_EQ(0, zor_fft_set(fft, 21, ZOR_DFT_FORMAT_TAIL));
  }
  EXPECT_EQ(0, zor_fft_set(fft, 11, t.placement));
  EXPECT_EQ(0, zor_fft_set(fft, 7, t.count));
  EXPECT_EQ(0, zor_fft_set(fft, 14, t.distance));
  EXPECT_EQ(0, zor_fft_set(fft, 15, t.distance));
  if (t.distance == 1) {
    const zor_int interleaved[] = {0, t.count};
    EXPECT_EQ(0, zor_fft_set(fft, 12, interleaved));
    EXPECT_EQ(0, zor_fft_set(fft, 13, interleaved));
  }
  if (t.domain == 33 && t.placement == 43) set_coinciding_strides(fft, t.lengths, backward);
  EXPECT_EQ(0, zor_fft_commit(fft));
  size_t size = 2 * size_t(std::max<zor_int>(t.count, 1)) * size_t(std::max<zor_int>(t.distance, 1));
  size_t total = 2 * size_t(t.count);
  for (zor_int n : t.lengths) total *= size_t(n);
  size = std::max(size, total);
  zor_test::random_bits random(3);
  std::vector<R> x(size), y(size);
  for (R& v : x) v = R(random.unit());
  EXPECT_EQ(0,
            backward ? zor_fft_backward(fft, x.data(), y.data()) : zor_fft_forward(fft, x.data(), y.data()));
  zor_fft_free(&fft);
  zor_core_set_num_threads(0);
  return t.placement == 43 ? x : y;
}

template <class R>
void compare_threads(const threaded& t) {
  for (bool backward : {false, true}) {
    const std::vector<R> one = run_threads<R>(t, 1, backward);
    for (int32_t threads : {2, 3, 7}) {
      const std::vector<R> many = run_threads<R>(t, threads, backward);
      EXPECT_TRUE(zor_test::same_bits(one.data(), many.data(), one.size()))
          << threads << " threads, " << testing::PrintToString(t.lengths) << " domain " << t.domain;
    }
  }
}

TEST(Threads, NeverShowInTheBits) {
  for (const threaded& t : problems) {
    if (t.precision == 36)
      compare_threads<double>(t);
    else
      compare_threads<float>(t);
  }
}

// What defines the transform, for random lengths and strides: linear, a shift turns the phases, energy is
// kept, and backward undoes forward. Errors are relative in the norm, in units of the precision.
template <class R>
class line_transform {
 public:
  using complex = std::complex<double>;
  using line = std::vector<complex>;
  line_transform(zor_int n, zor_int in_stride, zor_int out_stride) : n_(n), is_(in_stride), os_(out_stride) {
    EXPECT_EQ(
        0, zor_fft_create(&fft_, sizeof(R) == 8 ? ZOR_DFT_DOUBLE : ZOR_DFT_SINGLE, ZOR_DFT_COMPLEX, 1, &n));
    const zor_int is[] = {0, is_}, os[] = {0, os_};
    EXPECT_EQ(0, zor_fft_set(fft_, 11, ZOR_DFT_NOT_INPLACE));
    EXPECT_EQ(0, zor_fft_set(fft_, 12, is));
    EXPECT_EQ(0, zor_fft_set(fft_, 13, os));
    EXPECT_EQ(0, zor_fft_set(fft_, 5, 1.0 / double(n)));
    EXPECT_EQ(0, zor_fft_commit(fft_));
  }
  line_transform(const line_transform&) = delete;
  ~line_transform() { zor_fft_free(&fft_); }
  line operator()(const line& x, bool backward = false) const {
    std::vector<std::complex<R>> in(size_t(n_ * is_)), out(size_t(n_ * os_));
    for (zor_int j = 0; j < n_; ++j) in[size_t(j * is_)] = std::complex<R>(x[size_t(j)]);
    EXPECT_EQ(0, (backward ? zor_fft_backward : zor_fft_forward)(fft_, in.data(), out.data()));
    line y(static_cast<size_t>(n_));
    for (zor_int j = 0; j < n_; ++j) y[size_t(j)] = complex(out[size_t(j * os_)]);
    return y;
  }

 private:
  zor_fft fft_ = nullptr;
  zor_int n_, is_, os_;
};

template <class R>
void check_properties(zor_test::random_bits& random) {
  using transform = line_transform<R>;
  const zor_int n = random.between(1, 5000), shift = random.between(0, n - 1);
  const transform f(n, random.between(1, 4), random.between(1, 4));
  typename transform::line x(static_cast<size_t>(n)), y = x, sum = x, shifted = x, turned = x;
  for (auto& v : x) v = {R(random.unit()), R(random.unit())};
  for (auto& v : y) v = {R(random.unit()), R(random.unit())};
  for (size_t j = 0; j < x.size(); ++j) {
    sum[j] = x[j] - 2.0 * y[j];
    shifted[j] = x[(j + size_t(n - shift)) % x.size()];
  }
  const auto fx = f(x), fy = f(y);
  auto combined = fx;
  long double energy = 0, spectrum = 0;
  for (size_t k = 0; k < x.size(); ++k) {
    combined[k] -= 2.0 * fy[k];
    turned[k] = fx[k] * std::polar(1.0, -2 * M_PI * double(zor_int(k) * shift % n) / double(n));
    energy += std::norm(x[k]);
    spectrum += std::norm(fx[k]);
  }
  const double eps = std::numeric_limits<R>::epsilon();
  const auto expect_equal = [&](const auto& a, const auto& b, const char* what) {
    double error = 0, norm = 0;
    for (size_t k = 0; k < a.size(); ++k) error += std::norm(a[k] - b[k]), norm += std::norm(a[k]);
    EXPECT_LE(std::sqrt(error / norm), 6 * eps) << what << ", length " << n;
  };
  expect_equal(combined, f(sum), "linearity");
  expect_equal(turned, f(shifted), "shift");
  expect_equal(x, f(fx, true), "round trip");
  EXPECT_NEAR(double(spectrum / (n * energy)), 1.0, 6 * eps) << "energy, length " << n;
}

TEST(Properties, OfRandomLengthsAndStrides) {
  zor_test::random_bits random(23);
  for (int i = 0; i < 40; ++i) {
    check_properties<double>(random);
    check_properties<float>(random);
  }
}

// The kernel library's own front end commits through the threaded layer.
TEST(FrontEnd, CommitsThroughTheThreadedLayer) {
  for (int32_t domain : {ZOR_DFT_COMPLEX, ZOR_DFT_REAL})
    for (zor_int rank : {1, 2}) {
      const zor_int lengths[] = {6, 10};
      ZorDftDescriptor *d = nullptr, *s = nullptr;
      ASSERT_EQ(0, rank == 1 ? zor_dft_create_1d_d(&d, 36.0, domain, 1, 6)
                             : zor_dft_create_nd_d(&d, domain, 2, lengths));
      ASSERT_EQ(0, rank == 1 ? zor_dft_create_1d_s(&s, 35.0, domain, 1, 6)
                             : zor_dft_create_nd_s(&s, domain, 2, lengths));
      std::vector<double> x(2 * 8 * 12, 0.0);
      std::vector<float> y(2 * 8 * 12, 0.0f);
      x[0] = y[0] = 3;
      for (ZorDftDescriptor* of : {d, s}) ASSERT_EQ(0, zor_dft_set_value(of, 21, ZOR_DFT_FORMAT_TAIL));
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
