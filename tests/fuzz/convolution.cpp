// SPDX-License-Identifier: MIT
// Convolution and correlation of one to four dimensions, any part of the result, strides of both signs and 0.
#include "tests/conv/problems.h"
#include "tests/fuzz/trial.h"
#include "zor/signatures/conv.h"

namespace zor_fuzz {
namespace {

using conv_test::conv_problem;

// Arguments of the public entries stand from the slowest dimension to the contiguous one.
std::vector<zor_int> slowest_first(const std::vector<int32_t>& values) {
  return {values.rbegin(), values.rend()};
}

template <class T>
operand<T> placed(trial& t, const char* name, use how, const conv_test::shape& of,
                  const conv_test::shape& stride) {
  std::vector<bool> live(zor_ref::conv_extent(of, stride));
  for (const size_t place : zor_ref::conv_places(of, stride)) live[place] = true;
  return t.scattered<T>(name, how, zor_int(live.size()), [&](zor_int i) { return bool(live[size_t(i)]); });
}

// The result to working precision of the two norms' product, which bounds transforms and sums alike.
template <class T, class Z>
void check(trial& t, const conv_problem& p, const operand<T>& x, const operand<T>& y, const Z& at) {
  if (!t.checking() || !t.plain_data()) return;
  const auto exact = zor_ref::convolve<long double>(p, x.data(), y.data());
  long double norm = 1;
  for (const auto& [values, of, stride] :
       {std::tuple(&x, p.x_shape, p.x_stride), std::tuple(&y, p.y_shape, p.y_stride)}) {
    long double square = 0;
    for (const size_t place : zor_ref::conv_places(of, stride))
      square += std::norm((*values)(zor_int(place)));
    norm *= std::sqrt(square);
  }
  for (size_t e = 0; e < exact.size() / 2; ++e)
    t.near(at(e), {exact[2 * e], exact[2 * e + 1]}, norm, 64, "z", zor_int(e));
}

template <class T>
void convolve(trial& t, bool correlation, zor::convolve_fn<T>* call) {
  static const zor_int longest[] = {700, 40, 12, 6};
  const zor_int dims = t.draw("dims", 1, 4, 1);
  random_bits r = t.random("layout");
  conv_test::shape shape_x, shape_y;
  for (zor_int d = 0; d < dims; ++d) {
    shape_x.push_back(int32_t(t.size(("m" + std::to_string(d)).c_str(), longest[dims - 1], 1)));
    shape_y.push_back(int32_t(t.size(("n" + std::to_string(d)).c_str(), longest[dims - 1], 1)));
  }
  conv_problem p = conv_test::whole(correlation, shape_x, shape_y);
  if (t.draw("part", 0, 1, 0) == 1) conv_test::draw_range(r, &p);
  p.z_stride = conv_test::dense(p.z_shape);
  if (t.draw("strided", 0, 1, 0) == 1) {
    p.x_stride = conv_test::draw_strides(r, p.x_shape, false);
    p.y_stride = conv_test::draw_strides(r, p.y_shape, false);
    p.z_stride = conv_test::draw_strides(r, p.z_shape, true);
  }
  const auto x = placed<T>(t, "x", use::in, p.x_shape, p.x_stride),
             y = placed<T>(t, "y", use::in, p.y_shape, p.y_stride),
             z = placed<T>(t, "z", use::out, p.z_shape, p.z_stride);
  auto xs = slowest_first(p.x_shape), ys = slowest_first(p.y_shape), zs = slowest_first(p.z_shape),
       decimation = slowest_first(p.decimation);
  const auto start = slowest_first(p.start), x_stride = slowest_first(p.x_stride),
             y_stride = slowest_first(p.y_stride), z_stride = slowest_first(p.z_stride);
  // What one bad argument of each kind gives.
  static const int32_t statuses[] = {0,
                                     ZOR_CONV_BAD_DIMS,
                                     ZOR_CONV_BAD_X_SHAPE,
                                     ZOR_CONV_BAD_Y_SHAPE,
                                     ZOR_CONV_BAD_Z_SHAPE,
                                     ZOR_CONV_NULL_X,
                                     ZOR_CONV_NULL_Y,
                                     ZOR_CONV_NULL_Z,
                                     ZOR_CONV_BAD_MODE,
                                     ZOR_CONV_BAD_METHOD,
                                     ZOR_CONV_BAD_DECIMATION};
  const int bad = t.spoiled(10);
  const int32_t count = bad == 1 ? 8 : int32_t(dims), method = int32_t(t.draw("method", 0, 2, 1)),
                wanted = statuses[bad];
  if (bad == 2) xs.back() = 0;
  if (bad == 3) ys.back() = -1;
  if (bad == 4) zs.back() = 0;
  if (bad == 10) decimation.front() = 0;
  const T *const from_x = bad == 5 ? nullptr : x.data(), *const from_y = bad == 6 ? nullptr : y.data();
  T* const to = bad == 7 ? nullptr : z.data();
  const zor_conv_options options = {bad == 8 ? 9 : ZOR_CONV_RANGE,
                                    bad == 9 ? 7 : method,
                                    start.data(),
                                    decimation.data(),
                                    x_stride.data(),
                                    y_stride.data(),
                                    z_stride.data()};
  int32_t status = 1;
  t.call([&] { status = call(count, xs.data(), from_x, ys.data(), from_y, zs.data(), to, &options); });
  t.expect(status == wanted, "status " + std::to_string(status) + ", not " + std::to_string(wanted));
  const auto places = zor_ref::conv_places(p.z_shape, p.z_stride);
  check(t, p, x, y, [&](size_t e) { return z.now(zor_int(places[e])); });
}

// The real convolution of two lines by transforms.
template <class T>
void by_transforms(trial& t, zor::conv_fft_real_fn<T>* call) {
  const auto m = int32_t(t.size("m", 3000, 1)), n = int32_t(t.size("n", 3000, 1));
  const auto x = t.vector<T>("x", use::in, m), y = t.vector<T>("y", use::in, n),
             w = t.vector<T>("w", use::out, m + n - 1);
  t.expect(t.invoke(call, x, m, y, n, w) == 0, "status is 0");
  check(t, conv_test::whole(false, {m}, {n}), x, y, [&](size_t e) { return w.now(zor_int(e)); });
}

#define ROW_CONVOLVE(name, T) {#name, [](trial& t) { convolve<T>(t, false, name); }},
#define ROW_CORRELATE(name, T) {#name, [](trial& t) { convolve<T>(t, true, name); }},
const rows divided("convolution", with_status,
                   {
#include "zor/tables/core_conv.inc"
                   });
#define ROW_CONV_FFT_REAL(name, T) {#name, [](trial& t) { by_transforms<T>(t, name); }},
const rows kernels("convolution kernel", serial,
                   {
#include "zor/tables/conv.inc"
                   });

}  // namespace
}  // namespace zor_fuzz
