// SPDX-License-Identifier: MIT
// Every body against plain sums: the direct ones bit for bit, those through the transform within a few
// roundings of a transform of their size.
#include "tests/conv/problems.h"

namespace {

using namespace conv_test;

template <class T, class W>
void check(const conv_problem& p, int32_t mode, random_bits& random) {
  SCOPED_TRACE(text(p) + (mode == ZOR_CONV_DIRECT ? " direct" : " transform") + " parts " +
               std::to_string(parts<T>) + " bytes " + std::to_string(sizeof(real<T>)) + " in " +
               std::to_string(sizeof(W)));
  operands<T> o(p, random, random.between(0, 1));
  const int32_t internal = sizeof(W) == 8 ? ZOR_CONV_DOUBLE : ZOR_CONV_SINGLE;
  ZorConvTask* task = task_of<T>(p, mode, internal);
  ASSERT_EQ(o.exec(task, p), 0);
  expect_outputs<W>(p, o, o.outputs(), mode == ZOR_CONV_DIRECT);
  ASSERT_EQ(zor_conv_DeleteTask(&task), 0);
}

void check_types(const conv_problem& p, int32_t mode, random_bits& random) {
  check<double, double>(p, mode, random);
  check<float, float>(p, mode, random);
  check<float, double>(p, mode, random);
  check<zor_c64, double>(p, mode, random);
  check<zor_c32, float>(p, mode, random);
  check<zor_c32, double>(p, mode, random);
}

constexpr int32_t modes[] = {ZOR_CONV_DIRECT, ZOR_CONV_TRANSFORM};

// Lines around the widths of vectors and blocks, operands of every relation, whole and in part.
TEST(ConvBodies, Lines) {
  random_bits random(1);
  constexpr int32_t lengths[][2] = {{1, 1},    {1, 9},   {9, 1},   {2, 3},     {7, 7},
                                    {16, 5},   {5, 16},  {64, 1},  {65, 64},   {63, 130},
                                    {130, 63}, {200, 7}, {7, 200}, {300, 211}, {129, 129}};
  for (const auto& l : lengths)
    for (const bool correlation : {false, true})
      for (const int32_t mode : modes)
        for (int iteration = 0; iteration < 4; ++iteration) {
          conv_problem p = whole(correlation, {l[0]}, {l[1]});
          if (iteration > 0) draw_range(random, &p);
          if (iteration > 1) p.x_stride = draw_strides(random, p.x_shape, false);
          if (iteration > 1) p.y_stride = draw_strides(random, p.y_shape, false);
          if (iteration > 2) p.z_stride = draw_strides(random, p.z_shape, true);
          check_types(p, mode, random);
        }
}

// Long lines: directly in blocks, in segments, in a single product; at the limits of each rule.
TEST(ConvBodies, LongLines) {
  random_bits random(2);
  constexpr int32_t lengths[][2] = {{448, 64},  {449, 64},  {449, 63},  {4500, 40}, {192, 64}, {1000, 100},
                                    {300, 101}, {303, 101}, {700, 600}, {64, 1500}, {5000, 65}};
  for (const auto& l : lengths)
    for (const bool correlation : {false, true}) {
      conv_problem p = whole(correlation, {l[0]}, {l[1]});
      check_types(p, ZOR_CONV_TRANSFORM, random);
      draw_range(random, &p);
      p.x_stride = draw_strides(random, p.x_shape, false);
      p.z_stride = draw_strides(random, p.z_shape, true);
      check<double, double>(p, ZOR_CONV_TRANSFORM, random);
      check<zor_c32, double>(p, ZOR_CONV_TRANSFORM, random);
      check<float, float>(p, ZOR_CONV_DIRECT, random);
    }
}

TEST(ConvBodies, BoxesOfAnyRank) {
  constexpr int32_t longest[] = {0, 0, 14, 8, 5, 4, 3, 3};
  random_bits random(3);
  for (int iteration = 0; iteration < 200; ++iteration) {
    const int dims = 2 + iteration % 6;
    shape x, y;
    for (int d = 0; d < dims; ++d) {
      x.push_back(int32_t(random.between(1, longest[dims])));
      y.push_back(int32_t(random.between(1, longest[dims])));
    }
    conv_problem p = whole(iteration / 6 % 2 == 1, x, y);
    if (iteration % 4 > 0) draw_range(random, &p);
    if (iteration % 4 > 1) p.x_stride = draw_strides(random, p.x_shape, false);
    if (iteration % 4 > 1) p.y_stride = draw_strides(random, p.y_shape, false);
    if (iteration % 4 > 2) p.z_stride = draw_strides(random, p.z_shape, true);
    check_types(p, modes[iteration / 12 % 2], random);
  }
}

// Planes that are cut along one dimension or both, x or y, with a rest; more lines than are listed at once;
// decimated lines that are rearranged.
TEST(ConvBodies, LargeBoxes) {
  random_bits random(4);
  const struct {
    shape x, y;
  } boxes[] = {
      {{60, 41}, {5, 4}}, {{5, 3}, {47, 70}}, {{70, 3}, {4, 50}}, {{1, 40}, {33, 2}}, {{2, 2}, {30, 1}}};
  for (const auto& b : boxes)
    for (const bool correlation : {false, true}) {
      conv_problem p = whole(correlation, b.x, b.y);
      for (const int32_t mode : modes) check_types(p, mode, random);
      draw_range(random, &p);
      for (const int32_t mode : modes) check_types(p, mode, random);
    }
  for (const bool correlation : {false, true})
    for (const int32_t step : {1, 3}) {
      conv_problem p = whole(correlation, {40, 18, 17}, {6, 19, 18});
      p.z_shape = {(p.z_shape[0] + step - 1) / step, 4, 2};
      p.start[1] += 16;
      p.start[2] += 16;
      p.decimation[0] = step;
      p.z_stride = dense(p.z_shape);
      check_types(p, ZOR_CONV_DIRECT, random);
    }
}

// Infinities, NaN and signed zeros reach the outputs whose sums hold them and no others.
TEST(ConvBodies, SpecialValuesOfDirectSums) {
  random_bits random(5);
  for (const bool correlation : {false, true})
    for (const shape& y_shape : {shape{5, 3}, shape{70, 2}}) {
      const conv_problem p = whole(correlation, {40, 4}, y_shape);
      operands<double> o(p, random, true);
      const double special[] = {INFINITY, NAN, -0.0, 0.0, -INFINITY, 1e308, 5e-324};
      for (size_t i = 0; i < 7; ++i) {
        o.x[(i * 23 + 2) % o.x.size()] = special[i];
        o.y[(i * 11 + 1) % o.y.size()] = special[6 - i];
      }
      ZorConvTask* task = task_of<double>(p, ZOR_CONV_DIRECT, ZOR_CONV_DOUBLE);
      ASSERT_EQ(o.exec(task, p), 0);
      const std::vector<double> expected = zor_ref::convolve<double>(p, o.x.data(), o.y.data());
      const std::vector<double> actual = o.outputs();
      EXPECT_TRUE(same_bits(expected.data(), actual.data(), actual.size())) << text(p);
      zor_conv_DeleteTask(&task);
    }
}

// The line convolution of its own: sums in the order of the longer input where it adds directly.
template <class R, class Convolve>
void check_lines(Convolve* convolve) {
  random_bits random(6);
  constexpr int32_t lengths[][2] = {{1, 1},     {30, 400},  {448, 64}, {6000, 63},
                                    {63, 6000}, {2000, 64}, {900, 900}};
  for (const auto& l : lengths) {
    const int32_t m = l[0], n = l[1];
    guarded<R> x(static_cast<size_t>(m)), y(static_cast<size_t>(n)), w(size_t(m + n - 1));
    fill(x, random);
    fill(y, random);
    ASSERT_EQ(convolve(x.data(), m, y.data(), n, w.data()), 0);
    const bool first = m >= n;
    const conv_problem p = first ? whole(false, {m}, {n}) : whole(false, {n}, {m});
    const R *longer = first ? x.data() : y.data(), *shorter = first ? y.data() : x.data();
    std::vector<R> expected;
    const bool direct = m + n - 1 < 512 || std::min(m, n) < 64;
    double largest = 0;
    if (direct) {
      const std::vector<R> sums = zor_ref::convolve<R>(p, longer, shorter);
      for (size_t i = 0; i < sums.size(); i += 2) expected.push_back(sums[i]);
      EXPECT_TRUE(same_bits(expected.data(), w.data(), expected.size())) << m << " by " << n;
      continue;
    }
    const std::vector<long double> sums = zor_ref::convolve<long double>(p, longer, shorter);
    for (size_t i = 0; i < w.size(); ++i)
      largest = std::max(largest, std::abs(double(sums[2 * i] - (long double)w[i])));
    EXPECT_LE(largest, 20 * double(std::numeric_limits<R>::epsilon()) * std::sqrt(double(m) * n))
        << m << " by " << n;
  }
  R one[2] = {1, 2}, out[3];
  EXPECT_EQ(convolve(nullptr, 1, one, 1, out), -8);
  EXPECT_EQ(convolve(one, 1, nullptr, 1, out), -8);
  EXPECT_EQ(convolve(one, 1, one, 1, nullptr), -8);
  EXPECT_EQ(convolve(one, 0, one, 1, out), -6);
  EXPECT_EQ(convolve(one, 1, one, -3, out), -6);
}
TEST(ConvBodies, LineConvolutions) {
  check_lines<double>(zor_conv_fft_real_d);
  check_lines<float>(zor_conv_fft_real_s);
}

}  // namespace
