// SPDX-License-Identifier: MIT
// Transforms whose layout nobody set: operands of exactly the default size between unmapped pages, values
// against the definition, and backward on the spectrum that forward left. And what layouts are refused, with
// their texts.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numeric>
#include <string>
#include <vector>

#include "tests/dft/names.h"
#include "tests/ref/dft.h"
#include "tests/support/operand.h"
#include "zor/core.h"

namespace {

using namespace dft_test;
using zor_ref::wide;

struct shape {
  int32_t domain, storage, placement;
  std::vector<zor_int> lengths;  // as given to create
  zor_int count = 1;
};

zor_int product(const std::vector<zor_int>& n) {
  return std::accumulate(n.begin(), n.end(), zor_int(1), std::multiplies<>());
}

// Reals that one transform takes on each side, as a user of arrays expects.
struct sizes {
  zor_int row, rows, spectrum_row, in, out;
  explicit sizes(const shape& s) : row(s.lengths.back()), rows(product(s.lengths) / row) {
    const bool real = s.domain == real_data;
    spectrum_row = real ? 2 * (row / 2 + 1) : 2 * row;
    if (!real) row *= 2;
    if (real && s.placement == in_place) row = spectrum_row;
    in = row * rows;
    out = spectrum_row * rows;
  }
};

std::vector<wide> transformed(std::vector<wide> x, const std::vector<zor_int>& lengths) {
  size_t below = 1;
  for (size_t d = lengths.size(); d-- > 0;) {
    const size_t n = size_t(lengths[d]);
    std::vector<wide> line(n);
    for (size_t first = 0; first < x.size(); ++first) {
      if (first / below % n != 0) continue;
      for (size_t k = 0; k < n; ++k) line[k] = x[first + k * below];
      line = zor_ref::dft(line);
      for (size_t k = 0; k < n; ++k) x[first + k * below] = line[k];
    }
    below *= n;
  }
  return x;
}

template <class R>
void check(const shape& s) {
  SCOPED_TRACE(testing::Message() << testing::PrintToString(s.lengths) << " domain " << s.domain
                                  << " placement " << s.placement << " transforms " << s.count << " bytes "
                                  << sizeof(R));
  const sizes size(s);
  const bool real = s.domain == real_data, inside = s.placement == in_place;
  const zor_int total = product(s.lengths), n = s.lengths.back();
  zor_fft fft = nullptr;
  ASSERT_EQ(0, zor_fft_create(&fft, sizeof(R) == 8 ? double_precision : single, s.domain,
                              zor_int(s.lengths.size()), s.lengths.data()));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, s.placement));
  if (real) {
    ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, s.storage));
  }
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, s.count));
  ASSERT_EQ(0, zor_fft_set_real(fft, ZOR_DFT_BACKWARD_SCALE, 1.0 / double(total)));
  ASSERT_EQ(0, zor_fft_commit(fft)) << zor_fft_failure_text();

  zor_test::guarded<R> x(size_t(size.in * s.count)), y(size_t(inside ? 0 : size.out * s.count)),
      z(size_t(inside ? 0 : size.in * s.count));
  zor_test::random_bits random(uint64_t(total) + 1);
  for (R& v : x) v = R(random.unit());
  const std::vector<R> given(x.begin(), x.end());
  ASSERT_EQ(0, zor_fft_forward(fft, x.data(), y.data())) << zor_fft_failure_text();
  const double bound = double(std::numeric_limits<R>::epsilon()) * 16 * std::sqrt(double(total));
  const R* const spectrum = inside ? x.data() : y.data();
  for (zor_int t = 0; t < s.count; ++t) {
    std::vector<wide> wanted;
    for (zor_int j = 0; j < total; ++j) {
      const zor_int at = t * size.in + j / n * size.row + j % n * (real ? 1 : 2);
      wanted.push_back({given[size_t(at)], real ? R(0) : given[size_t(at + 1)]});
    }
    wanted = transformed(wanted, s.lengths);
    for (zor_int row = 0; row < size.rows; ++row)
      for (zor_int k = 0; k < size.spectrum_row / 2; ++k) {
        const R* const got = spectrum + t * size.out + row * size.spectrum_row + 2 * k;
        const wide w = wanted[size_t(row * n + k)];
        ASSERT_NEAR(double(w.real()), double(got[0]), bound) << row << ", " << k;
        ASSERT_NEAR(double(w.imag()), double(got[1]), bound) << row << ", " << k;
      }
  }
  ASSERT_EQ(0, inside ? zor_fft_backward(fft, x.data()) : zor_fft_backward(fft, y.data(), z.data()))
      << zor_fft_failure_text();
  const R* const back = inside ? x.data() : z.data();
  for (zor_int i = 0; i < size.in * s.count; ++i) {
    if (real && i % size.row >= n) continue;
    ASSERT_NEAR(given[size_t(i)], back[i], bound) << "real " << i << " after a round trip";
  }
  zor_fft_free(&fft);
}

TEST(DefaultLayout, IsDenseAndUndoneByBackward) {
  const std::vector<zor_int> ranks[] = {{12},
                                        {7},
                                        {30, 40},
                                        {4, 6},
                                        {5, 7},
                                        {1, 8},
                                        {8, 1},
                                        {3, 4, 6},
                                        {2, 5, 9},
                                        {3, 1, 4, 6},
                                        {2, 3, 4, 5},
                                        {3, 2, 2, 3, 8},
                                        {2, 3, 2, 1, 2, 5},
                                        {2, 1, 2, 3, 2, 2, 7}};
  for (const int32_t threads : {1, 3}) {
    zor_core_set_num_threads(threads);
    for (const auto& lengths : ranks)
      for (const int32_t domain : {complex_data, real_data})
        for (const int32_t placement : {in_place, out_of_place})
          for (const zor_int count : {1, 3}) {
            const shape s{domain, interleaved, placement, lengths, count};
            check<double>(s);
            check<float>(s);
          }
  }
  zor_core_set_num_threads(0);
}

// Packed spectra of two dimensions: nothing outside the default arrays is touched, and backward undoes
// forward.
template <class R>
void check_packed(int32_t format, int32_t placement, zor_int rows, zor_int n, zor_int count) {
  const bool padded = format == ZOR_DFT_FORMAT_PADDED, inside = placement == in_place;
  const auto longer = [&](zor_int length) {
    return !padded ? length : length % 2 == 0 ? length + 2 : length + 1;
  };
  const zor_int spectrum = longer(n) * longer(rows), row = inside ? longer(n) : n;
  const zor_int reals = inside ? spectrum : rows * n;
  const zor_int lengths[] = {rows, n};
  SCOPED_TRACE(testing::Message() << rows << " by " << n << " format " << format << " placement "
                                  << placement);
  zor_fft fft = nullptr;
  ASSERT_EQ(0, zor_fft_create(&fft, sizeof(R) == 8 ? double_precision : single, real_data, 2, lengths));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PACKED_FORMAT, format));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, placement));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, count));
  ASSERT_EQ(0, zor_fft_set_real(fft, ZOR_DFT_BACKWARD_SCALE, 1.0 / double(rows * n)));
  ASSERT_EQ(0, zor_fft_commit(fft)) << zor_fft_failure_text();
  zor_test::guarded<R> x(size_t(reals * count)), y(size_t(inside ? 0 : spectrum * count)),
      z(size_t(inside ? 0 : reals * count));
  zor_test::random_bits random(7);
  for (R& v : x) v = R(random.unit());
  const std::vector<R> given(x.begin(), x.end());
  ASSERT_EQ(0, zor_fft_forward(fft, x.data(), y.data()));
  long double sum = 0;
  for (zor_int i = 0; i < rows * n; ++i) sum += given[size_t(i / n * row + i % n)];
  const double bound = double(std::numeric_limits<R>::epsilon()) * 8 * double(rows * n);
  EXPECT_NEAR(double(sum), double(inside ? x[0] : y[0]), bound) << "frequency 0";
  ASSERT_EQ(0, inside ? zor_fft_backward(fft, x.data()) : zor_fft_backward(fft, y.data(), z.data()))
      << zor_fft_failure_text();
  const R* const back = inside ? x.data() : z.data();
  for (zor_int t = 0; t < count; ++t)
    for (zor_int i = 0; i < rows * n; ++i) {
      const zor_int at = t * reals + i / n * row + i % n;
      ASSERT_NEAR(given[size_t(at)], back[at], bound) << "transform " << t << " real " << i;
    }
  zor_fft_free(&fft);
}

TEST(DefaultLayout, HoldsPackedSpectra) {
  for (const int32_t format : {ZOR_DFT_FORMAT_PADDED, ZOR_DFT_FORMAT_TAIL, ZOR_DFT_FORMAT_SECOND})
    for (const int32_t placement : {in_place, out_of_place})
      for (const auto& [rows, n] :
           {std::pair<zor_int, zor_int>{4, 6}, {5, 6}, {4, 7}, {3, 5}, {2, 2}, {1, 6}, {6, 1}})
        for (const zor_int count : {1, 3}) {
          check_packed<double>(format, placement, rows, n, count);
          check_packed<float>(format, placement, rows, n, count);
        }
}

// Set, commit and see what the text names.
struct refusal {
  int32_t domain, storage, placement;
  std::vector<zor_int> lengths, in, out;
  zor_int count, distance;
  const char* named;  // null: taken
};
TEST(Layouts, ThatOverlapAreRefusedByName) {
  const refusal cases[] = {
      {complex_data, interleaved, in_place, {4, 6}, {0, 5, 1}, {}, 1, 0, "ZOR_DFT_INPUT_STRIDES"},
      {complex_data, interleaved, out_of_place, {4, 6}, {0, 6, 1}, {0, 5, 1}, 1, 0, "ZOR_DFT_OUTPUT_STRIDES"},
      // Windows that overlap are read, not written.
      {complex_data, interleaved, out_of_place, {4, 6}, {0, 1, 1}, {0, 6, 1}, 1, 0, nullptr},
      {complex_data, interleaved, out_of_place, {4, 6}, {0, 6, 1}, {0, 1, 4}, 1, 0, nullptr},
      {complex_data, interleaved, out_of_place, {4, 6}, {0, 6, 1}, {0, 3, 2}, 1, 0, "ZOR_DFT_OUTPUT_STRIDES"},
      // Steps of 2 and 3 meet at 6, which two elements along 3 do not reach.
      {complex_data, interleaved, out_of_place, {2, 2}, {0, 2, 1}, {0, 3, 2}, 1, 0, nullptr},
      {complex_data, interleaved, in_place, {6}, {0, 1}, {}, 3, 5, "ZOR_DFT_INPUT_STRIDES"},
      {real_data,
       interleaved,
       out_of_place,
       {30, 40},
       {0, 40, 1},
       {0, 20, 1},
       1,
       0,
       "ZOR_DFT_OUTPUT_STRIDES"},
      {real_data, interleaved, out_of_place, {30, 40}, {0, 40, 1}, {0, 21, 1}, 1, 0, nullptr},
      {real_data, interleaved, in_place, {4, 6}, {0, 6, 1}, {0, 4, 1}, 1, 0, nullptr},
      {real_data, interleaved, in_place, {4, 6}, {0, 8, 1}, {0, 4, 1}, 1, 0, nullptr},
      {real_data, interleaved, in_place, {4, 6}, {0, 6, 1}, {0, 3, 1}, 1, 0, "ZOR_DFT_OUTPUT_STRIDES"},
      {real_data, interleaved, in_place, {2, 2, 2, 4}, {0, 24, 12, 6, 1}, {0, 12, 6, 3, 1}, 1, 0, nullptr},
      {real_data,
       interleaved,
       in_place,
       {2, 2, 2, 4},
       {0, 16, 8, 4, 1},
       {0, 12, 6, 3, 1},
       1,
       0,
       "ZOR_DFT_INPUT_STRIDES"},
      {real_data, packed, in_place, {4, 6}, {0, 6, 1}, {}, 1, 0, "ZOR_DFT_INPUT_STRIDES"},
      {real_data, packed, in_place, {4, 6}, {0, 8, 1}, {}, 1, 0, nullptr},
      {real_data, packed, out_of_place, {4, 6}, {0, 6, 1}, {0, 5, 1}, 1, 0, "ZOR_DFT_OUTPUT_STRIDES"},
  };
  for (const refusal& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    zor_fft fft = nullptr;
    ASSERT_EQ(0,
              zor_fft_create(&fft, double_precision, c.domain, zor_int(c.lengths.size()), c.lengths.data()));
    zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, c.placement);
    if (c.domain == real_data) zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, c.storage);
    zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, c.in.data());
    if (!c.out.empty()) zor_fft_set_strides(fft, ZOR_DFT_OUTPUT_STRIDES, c.out.data());
    zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, c.count);
    if (c.distance != 0) zor_fft_set_int(fft, ZOR_DFT_INPUT_DISTANCE, c.distance);
    EXPECT_EQ(c.named == nullptr ? done : bad_value, zor_fft_commit(fft)) << zor_fft_failure_text();
    if (c.named != nullptr) {
      EXPECT_EQ(0u, std::string(zor_fft_failure_text()).find(c.named)) << zor_fft_failure_text();
    }
    zor_fft_free(&fft);
  }
}

// A padded spectrum needs rows that its reals do not: laid out for backward, forward is refused when it is
// called.
TEST(Layouts, ServeOneDirectionWhereTheOtherOverlaps) {
  const zor_int lengths[] = {4, 6}, spectrum[] = {0, 8, 1}, reals[] = {0, 6, 1};
  zor_fft fft = nullptr;
  ASSERT_EQ(0, zor_fft_create(&fft, double_precision, real_data, 2, lengths));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, out_of_place));
  ASSERT_EQ(0, zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, spectrum));
  ASSERT_EQ(0, zor_fft_set_strides(fft, ZOR_DFT_OUTPUT_STRIDES, reals));
  ASSERT_EQ(0, zor_fft_commit(fft));
  std::vector<double> x(48), y(24, 7.0);
  EXPECT_EQ(bad_value, zor_fft_forward(fft, x.data(), y.data()));
  EXPECT_EQ(y, std::vector<double>(24, 7.0)) << "nothing is written";
  EXPECT_EQ(done, zor_fft_backward(fft, x.data(), y.data()));
  EXPECT_EQ(y, std::vector<double>(24, 0.0));
  zor_fft_free(&fft);
}

TEST(Operands, ThatOverlapAreRefused) {
  const zor_int n = 8, every_third[] = {0, 3};
  zor_fft dense = nullptr, columns = nullptr, halves = nullptr;
  for (zor_fft* fft : {&dense, &columns, &halves}) {
    ASSERT_EQ(0, zor_fft_create(fft, double_precision, complex_data, 1, &n));
    ASSERT_EQ(0, zor_fft_set_int(*fft, ZOR_DFT_PLACEMENT, out_of_place));
  }
  for (const int32_t parameter : {ZOR_DFT_INPUT_STRIDES, ZOR_DFT_OUTPUT_STRIDES})
    ASSERT_EQ(0, zor_fft_set_strides(columns, parameter, every_third));
  ASSERT_EQ(0, zor_fft_set_int(halves, ZOR_DFT_COMPLEX_STORAGE, split));
  for (zor_fft fft : {dense, columns, halves}) ASSERT_EQ(0, zor_fft_commit(fft));
  std::vector<double> x(64, 1.0);
  const std::vector<double> before = x;
  for (const size_t shift : {0, 2, 14})
    EXPECT_EQ(bad_value, zor_fft_forward(dense, x.data(), x.data() + shift));
  EXPECT_EQ(bad_value, zor_fft_backward(dense, x.data() + 15, x.data()));
  for (const size_t shift : {0, 1, 5, 6})
    EXPECT_EQ(bad_value, zor_fft_forward(columns, x.data(), x.data() + shift));
  EXPECT_EQ(bad_value, zor_fft_forward(halves, x.data(), x.data() + 8, x.data() + 16, x.data() + 1));
  EXPECT_EQ(before, x) << "nothing is written";
  EXPECT_EQ(done, zor_fft_forward(dense, x.data(), x.data() + 16));
  EXPECT_EQ(done, zor_fft_forward(columns, x.data(), x.data() + 2)) << "columns of one matrix";
  EXPECT_EQ(done, zor_fft_forward(columns, x.data() + 4, x.data()));
  EXPECT_EQ(done, zor_fft_forward(halves, x.data(), x.data() + 8, x.data() + 16, x.data() + 24));
  for (zor_fft* fft : {&dense, &columns, &halves}) zor_fft_free(fft);
}

// A padded plane ends with its last padded column, not with its last padded row: arrays side by side do not
// overlap.
TEST(Operands, OfPaddedPlanesMayStandSideBySide) {
  const struct {
    zor_int rows, n, spectrum;
  } cases[] = {{3, 4, 3 * 6 + 4 + 1}, {4, 3, 5 * 4 + 1}, {1, 3, 4 + 1}, {1, 4, 6 + 4 + 1}, {5, 1, 5 * 2 + 1}};
  for (const auto& c : cases) {
    const zor_int lengths[] = {c.rows, c.n};
    zor_fft fft = nullptr;
    ASSERT_EQ(0, zor_fft_create(&fft, double_precision, real_data, 2, lengths));
    ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, out_of_place));
    ASSERT_EQ(0, zor_fft_commit(fft));
    std::vector<double> x(100, 1.0);
    double* const reals = x.data() + c.spectrum;
    EXPECT_EQ(done, zor_fft_forward(fft, reals, x.data())) << c.rows << " by " << c.n;
    EXPECT_EQ(1.0, *reals) << c.rows << " by " << c.n;
    EXPECT_EQ(bad_value, zor_fft_forward(fft, reals - 1, x.data())) << c.rows << " by " << c.n;
    EXPECT_EQ(done, zor_fft_backward(fft, x.data(), reals)) << c.rows << " by " << c.n;
    zor_fft_free(&fft);
  }
}

// Each state and argument has a text of its own.
TEST(Texts, NameTheArgumentAndTheState) {
  const zor_int n = 8, bad[] = {4, -1};
  zor_fft fft = nullptr;
  double x[16] = {};
  const auto text = [](int32_t) { return std::string(zor_fft_failure_text()); };
  EXPECT_NE(std::string::npos, text(zor_fft_create(&fft, 7, complex_data, 1, &n)).find("precision: 7"));
  EXPECT_NE(std::string::npos, text(zor_fft_create(&fft, single, 7, 1, &n)).find("domain: 7"));
  EXPECT_NE(std::string::npos, text(zor_fft_create(&fft, single, real_data, 8, &n)).find("rank: 8"));
  EXPECT_NE(std::string::npos,
            text(zor_fft_create(&fft, single, real_data, 2, bad)).find("lengths: -1 at position 1"));
  EXPECT_NE(std::string::npos, text(zor_fft_commit(nullptr)).find("null handle"));
  ASSERT_EQ(0, zor_fft_create(&fft, double_precision, complex_data, 1, &n));
  EXPECT_NE(std::string::npos, text(zor_fft_forward(fft, x)).find("not committed"));
  EXPECT_NE(std::string::npos, text(zor_fft_set_int(fft, ZOR_DFT_FORWARD_SCALE, 1)).find("zor_fft_set_real"));
  EXPECT_NE(std::string::npos, text(zor_fft_set_real(fft, ZOR_DFT_PLACEMENT, 1)).find("zor_fft_set_int"));
  EXPECT_NE(std::string::npos,
            text(zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, 45)).find("ZOR_DFT_PLACEMENT: 45"));
  EXPECT_NE(
      std::string::npos,
      text(zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, in_place + (zor_int(1) << 32))).find("ZOR_DFT_PLACEMENT"));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, out_of_place));
  ASSERT_EQ(0, zor_fft_commit(fft));
  EXPECT_NE(std::string::npos, text(zor_fft_forward(fft, x, nullptr)).find("out: a null pointer"));
  EXPECT_NE(std::string::npos, text(zor_fft_forward(fft, nullptr, x)).find("in: a null pointer"));
  zor_fft_free(&fft);
}

}  // namespace
