// SPDX-License-Identifier: MIT
// Transforms whose layout nobody set: operands of exactly the default size between unmapped pages, values
// against the definition, and backward on the spectrum that forward left. And what layouts are refused, with
// their texts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "tests/dft/settings.h"
#include "tests/ref/dft.h"
#include "tests/support/operand.h"
#include "zor/core.h"

namespace {

using namespace dft_test;
using zor_ref::wide;

zor_int product(const std::vector<zor_int>& n) {
  return std::accumulate(n.begin(), n.end(), zor_int(1), std::multiplies<>());
}

// Reals that one transform takes on each side, as a user of arrays expects. Packed spectra are of a plane.
struct sizes {
  zor_int row, rows, spectrum_row, in, out;
  sizes(const settings& s, int32_t format) : row(s.lengths.back()), rows(product(s.lengths) / row) {
    const bool packed_plane = s.of == packed_spectra;
    const auto longer = [&](zor_int n) { return format == ZOR_DFT_FORMAT_PADDED ? n + 2 - n % 2 : n; };
    spectrum_row = packed_plane ? longer(row) : s.of == half_spectra ? 2 * (row / 2 + 1) : 2 * row;
    row = s.of == lines ? 2 * row : s.placement == in_place ? spectrum_row : row;
    out = spectrum_row * (packed_plane ? longer(rows) : rows);
    in = packed_plane && s.placement == in_place ? out : row * rows;
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

// Nothing outside the default arrays is touched, forward gives the transform (of packed spectra frequency 0
// is looked at), and backward undoes it.
template <class R>
void check(settings s, int32_t format = 0) {
  s.precision = sizeof(R) == 8 ? double_precision : single;
  SCOPED_TRACE(testing::Message() << s << " format " << format);
  const sizes size(s, format);
  const bool real = s.of != lines, inside = s.placement == in_place;
  const zor_int total = product(s.lengths), n = s.lengths.back();
  zor_fft fft = make(s);
  if (s.of == packed_spectra) {
    ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PACKED_FORMAT, format));
  }
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
    ASSERT_NEAR(double(wanted[0].real()), double(spectrum[t * size.out]), bound);
    for (zor_int row = 0; row < size.rows && s.of != packed_spectra; ++row)
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
    if (real && (i % size.in >= size.row * size.rows || i % size.in % size.row >= n)) continue;
    ASSERT_NEAR(given[size_t(i)], back[i], bound) << "real " << i << " after a round trip";
  }
  zor_fft_free(&fft);
}

TEST(DefaultLayout, IsDenseAndUndoneByBackward) {
  const std::vector<std::vector<zor_int>> ranks = {{12},
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
      for (const kind of : {lines, half_spectra})
        for (const int32_t placement : {in_place, out_of_place})
          for (const zor_int count : {1, 3}) {
            check<double>({.of = of, .placement = placement, .lengths = lengths, .count = count});
            check<float>({.of = of, .placement = placement, .lengths = lengths, .count = count});
          }
  }
  zor_core_set_num_threads(0);
}

TEST(DefaultLayout, HoldsPackedSpectra) {
  const std::vector<zor_int> planes[] = {{4, 6}, {5, 6}, {4, 7}, {3, 5}, {2, 2}, {1, 6}, {6, 1}};
  for (const int32_t format : {ZOR_DFT_FORMAT_PADDED, ZOR_DFT_FORMAT_TAIL, ZOR_DFT_FORMAT_SECOND})
    for (const int32_t placement : {in_place, out_of_place})
      for (const auto& lengths : planes)
        for (const zor_int count : {1, 3}) {
          check<double>({double_precision, packed_spectra, placement, lengths, count}, format);
          check<float>({single, packed_spectra, placement, lengths, count}, format);
        }
}

// Set, commit and see what the text names.
struct refusal {
  kind of;
  int32_t placement;
  std::vector<zor_int> lengths, in, out;
  const char* named = nullptr;  // null: taken
  zor_int count = 1, distance = 0;
};
TEST(Layouts, ThatOverlapAreRefusedByName) {
  const char *const input = "ZOR_DFT_INPUT_STRIDES", *const output = "ZOR_DFT_OUTPUT_STRIDES";
  const refusal cases[] = {
      {lines, in_place, {4, 6}, {0, 5, 1}, {}, input},
      {lines, out_of_place, {4, 6}, {0, 6, 1}, {0, 5, 1}, output},
      // Windows that overlap are read, not written.
      {lines, out_of_place, {4, 6}, {0, 1, 1}, {0, 6, 1}},
      {lines, out_of_place, {4, 6}, {0, 6, 1}, {0, 1, 4}},
      {lines, out_of_place, {4, 6}, {0, 6, 1}, {0, 3, 2}, output},
      // Steps of 2 and 3 meet at 6, which two elements along 3 do not reach.
      {lines, out_of_place, {2, 2}, {0, 2, 1}, {0, 3, 2}},
      {lines, in_place, {6}, {0, 1}, {}, input, 3, 5},
      {half_spectra, out_of_place, {30, 40}, {0, 40, 1}, {0, 20, 1}, output},
      {half_spectra, out_of_place, {30, 40}, {0, 40, 1}, {0, 21, 1}},
      {half_spectra, in_place, {4, 6}, {0, 6, 1}, {0, 4, 1}},
      {half_spectra, in_place, {4, 6}, {0, 8, 1}, {0, 4, 1}},
      {half_spectra, in_place, {4, 6}, {0, 6, 1}, {0, 3, 1}, output},
      {half_spectra, in_place, {2, 2, 2, 4}, {0, 24, 12, 6, 1}, {0, 12, 6, 3, 1}},
      {half_spectra, in_place, {2, 2, 2, 4}, {0, 16, 8, 4, 1}, {0, 12, 6, 3, 1}, input},
      {packed_spectra, in_place, {4, 6}, {0, 6, 1}, {}, input},
      {packed_spectra, in_place, {4, 6}, {0, 8, 1}, {}},
      {packed_spectra, out_of_place, {4, 6}, {0, 6, 1}, {0, 5, 1}, output},
  };
  for (const refusal& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    zor_fft fft = make({double_precision, c.of, c.placement, c.lengths, c.count});
    if (c.of == packed_spectra) zor_fft_set_int(fft, ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_PADDED);
    zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, c.in.data());
    if (!c.out.empty()) zor_fft_set_strides(fft, ZOR_DFT_OUTPUT_STRIDES, c.out.data());
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
  zor_fft dense = make({.placement = out_of_place, .lengths = {8}}),
          columns = make({.placement = out_of_place, .lengths = {8}, .stride = 3}),
          halves = make({double_precision, split_lines, out_of_place, {8}});
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
    zor_fft fft = make({double_precision, packed_spectra, out_of_place, {c.rows, c.n}});
    ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_PADDED));
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
  const auto expect_text = [](const char* part, int32_t) {
    EXPECT_NE(nullptr, std::strstr(zor_fft_failure_text(), part)) << zor_fft_failure_text();
  };
  expect_text("precision: 7", zor_fft_create(&fft, 7, complex_data, 1, &n));
  expect_text("domain: 7", zor_fft_create(&fft, single, 7, 1, &n));
  expect_text("rank: 8", zor_fft_create(&fft, single, real_data, 8, &n));
  expect_text("lengths: -1 at position 1", zor_fft_create(&fft, single, real_data, 2, bad));
  expect_text("null handle", zor_fft_commit(nullptr));
  ASSERT_EQ(0, zor_fft_create(&fft, double_precision, complex_data, 1, &n));
  expect_text("not committed", zor_fft_forward(fft, x));
  expect_text("zor_fft_set_real", zor_fft_set_int(fft, ZOR_DFT_FORWARD_SCALE, 1));
  expect_text("zor_fft_set_int", zor_fft_set_real(fft, ZOR_DFT_PLACEMENT, 1));
  expect_text("ZOR_DFT_PLACEMENT: 45", zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, 45));
  expect_text("ZOR_DFT_PLACEMENT", zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, in_place + (zor_int(1) << 32)));
  ASSERT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, out_of_place));
  ASSERT_EQ(0, zor_fft_commit(fft));
  expect_text("out: a null pointer", zor_fft_forward(fft, x, nullptr));
  expect_text("in: a null pointer", zor_fft_forward(fft, nullptr, x));
  zor_fft_free(&fft);
}

}  // namespace
