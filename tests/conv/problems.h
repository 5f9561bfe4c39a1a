// SPDX-License-Identifier: MIT
// Problems of convolution for tests, and tasks that run them.
#pragma once

#include <algorithm>

#include "tests/ref/conv.h"
#include "tests/support/operand.h"
#include "zor/conv.h"

namespace conv_test {

using namespace zor_test;
using zor_ref::conv_problem;
using shape = std::vector<int32_t>;

inline shape dense(const shape& s) {
  shape stride;
  int32_t step = 1;
  for (const int32_t n : s) {
    stride.push_back(step);
    step *= n;
  }
  return stride;
}

// All of the result, dense.
inline conv_problem whole(bool correlation, const shape& x, const shape& y) {
  conv_problem p;
  p.correlation = correlation;
  p.x_shape = x;
  p.y_shape = y;
  for (size_t d = 0; d < x.size(); ++d) {
    p.z_shape.push_back(int32_t(p.full(d)));
    p.start.push_back(int32_t(p.first(d)));
    p.decimation.push_back(1);
  }
  p.x_stride = dense(x);
  p.y_stride = dense(y);
  p.z_stride = dense(p.z_shape);
  return p;
}

// Strides with gaps and either sign, dimensions nested in a drawn order; of an operand sometimes 0.
inline shape draw_strides(random_bits& random, const shape& s, bool output) {
  std::vector<size_t> order;
  for (size_t d = 0; d < s.size(); ++d) order.insert(order.begin() + random.between(0, int64_t(d)), d);
  shape stride(s.size());
  int32_t step = int32_t(random.between(1, 2));
  for (const size_t d : order) {
    stride[d] = random.between(0, 2) == 0 ? -step : step;
    if (!output && random.between(0, 9) == 0) stride[d] = 0;
    step = step * s[d] + int32_t(random.between(0, 1));
  }
  return stride;
}

// A part of the result and its decimation, drawn, often at the borders.
inline void draw_range(random_bits& random, conv_problem* p) {
  for (size_t d = 0; d < p->dims(); ++d) {
    const int32_t full = int32_t(p->full(d));
    const int32_t offset = random.between(0, 2) == 0 ? 0 : int32_t(random.between(0, full - 1));
    const int32_t most = random.between(0, 1) ? 1 : std::max(1, full / 2);
    p->decimation[d] = int32_t(random.between(1, most));
    const int32_t available = (full - 1 - offset) / p->decimation[d] + 1;
    p->z_shape[d] = random.between(0, 1) ? available : int32_t(random.between(1, available));
    p->start[d] = int32_t(p->first(d)) + offset;
  }
  p->z_stride = dense(p->z_shape);
}

template <class T>
inline constexpr int32_t type_of = parts<T> == 2 ? ZOR_CONV_COMPLEX : ZOR_CONV_REAL;
template <class T>
inline constexpr int32_t precision_of = sizeof(real<T>) == 8 ? ZOR_CONV_DOUBLE : ZOR_CONV_SINGLE;

template <class T>
ZorConvTask* task_of(const conv_problem& p, int32_t mode, int32_t internal) {
  ZorConvTask* task = nullptr;
  EXPECT_EQ(zor_conv_NewTask(&task, p.correlation ? ZOR_CONV_CORRELATION : ZOR_CONV_CONVOLUTION, 0, mode,
                             type_of<T>, precision_of<T>, int32_t(p.dims()), p.x_shape.data(),
                             p.y_shape.data(), p.z_shape.data()),
            0);
  EXPECT_EQ(zor_conv_EditTask(task, ZOR_CONV_EDIT_START, p.start.data()), 0);
  EXPECT_EQ(zor_conv_EditTask(task, ZOR_CONV_EDIT_DECIMATION, p.decimation.data()), 0);
  EXPECT_EQ(zor_conv_EditTask(task, ZOR_CONV_EDIT_INTERNAL_PRECISION, &internal), 0);
  return task;
}

inline std::string text(const shape& s) {
  std::string out = "(";
  for (const int32_t n : s) out += (out.size() > 1 ? " " : "") + std::to_string(n);
  return out + ")";
}
inline std::string text(const conv_problem& p) {
  return std::string(p.correlation ? "correlation" : "convolution") + " x " + text(p.x_shape) +
         text(p.x_stride) + " y " + text(p.y_shape) + text(p.y_stride) + " z " + text(p.z_shape) +
         text(p.z_stride) + " start " + text(p.start) + " decimation " + text(p.decimation);
}

// The operands of a problem between guard pages, NaN in their gaps; z is filled with a pattern.
template <class T>
struct operands {
  guarded<T> x, y, z;
  std::vector<size_t> in_x, in_y, in_z;

  operands(const conv_problem& p, random_bits& random, bool at_end)
      : x(zor_ref::conv_extent(p.x_shape, p.x_stride), at_end),
        y(zor_ref::conv_extent(p.y_shape, p.y_stride), at_end),
        z(zor_ref::conv_extent(p.z_shape, p.z_stride), at_end),
        in_x(zor_ref::conv_places(p.x_shape, p.x_stride)),
        in_y(zor_ref::conv_places(p.y_shape, p.y_stride)),
        in_z(zor_ref::conv_places(p.z_shape, p.z_stride)) {
    fill_nan(x);
    fill_nan(y);
    for (const size_t at : in_x) x[at] = scalar<T>(random.unit(), random.unit());
    for (const size_t at : in_y) y[at] = scalar<T>(random.unit(), random.unit());
    for (T& e : z) e = pattern();
  }
  static T pattern() { return scalar<T>(-77.125, 55.5); }
  // Outputs in order; everything else of z must be as it was.
  std::vector<real<T>> outputs() {
    std::vector<real<T>> out;
    for (const size_t at : in_z) {
      out.push_back(part(z[at], 0));
      out.push_back(part(z[at], 1));
      z[at] = pattern();
    }
    for (size_t i = 0; i < z.size(); ++i)
      EXPECT_EQ(part(z[i], 0), part(pattern(), 0)) << "written between the outputs, at " << i;
    return out;
  }
  int32_t exec(ZorConvTask* task, const conv_problem& p) {
    return zor_conv_Exec(task, x.data(), p.x_stride.data(), y.data(), p.y_stride.data(), z.data(),
                         p.z_stride.data());
  }
};

// The product of the 2-norms of two operands, which bounds every output and its error.
template <class T>
double size_of_product(operands<T>& o) {
  double x = 0, y = 0;
  for (const size_t at : o.in_x) x += std::pow(part(o.x[at], 0), 2) + std::pow(part(o.x[at], 1), 2);
  for (const size_t at : o.in_y) y += std::pow(part(o.y[at], 0), 2) + std::pow(part(o.y[at], 1), 2);
  return std::sqrt(x * y);
}

// Sums added directly are those of the plain loops in W, bit for bit; those through a transform are off by a
// few roundings of one of their size.
template <class W, class T>
void expect_outputs(const conv_problem& p, operands<T>& o, const std::vector<real<T>>& actual, bool direct) {
  if (direct) {
    const std::vector<W> sums = zor_ref::convolve<W>(p, o.x.data(), o.y.data());
    const std::vector<real<T>> expected(sums.begin(), sums.end());
    ASSERT_TRUE(same_bits(expected.data(), actual.data(), actual.size()));
    return;
  }
  const std::vector<long double> exact = zor_ref::convolve<long double>(p, o.x.data(), o.y.data());
  double points = 1;
  for (size_t d = 0; d < p.dims(); ++d) points *= double(p.full(d));
  const double bound =
      3 * (2 + std::log2(points)) * double(std::numeric_limits<W>::epsilon()) * size_of_product(o);
  for (size_t i = 0; i < exact.size(); ++i) {
    const double rounding = std::abs(double(exact[i])) * double(std::numeric_limits<real<T>>::epsilon());
    ASSERT_LE(std::abs(double(exact[i] - (long double)actual[i])), bound + rounding) << "part " << i;
  }
}

}  // namespace conv_test
