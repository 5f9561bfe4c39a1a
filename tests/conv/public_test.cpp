// SPDX-License-Identifier: MIT
// The public convolutions: every mode, method, rank and layout against plain sums, for any number of threads;
// refused arguments.
#include <thread>

#include "tests/conv/problems.h"
#include "tests/support/threads.h"
#include "zor/core.h"

namespace {

using namespace conv_test;

using list = std::vector<zor_int>;

list reversed(const shape& s) { return {s.rbegin(), s.rend()}; }

template <class T>
struct entries;
#define ENTRIES(T, letter)                                      \
  template <>                                                   \
  struct entries<T> {                                           \
    static constexpr auto* convolve = &zor_convolve_##letter;   \
    static constexpr auto* correlate = &zor_correlate_##letter; \
  };
ENTRIES(float, s)
ENTRIES(double, d)
ENTRIES(zor_c32, c)
ENTRIES(zor_c64, z)
#undef ENTRIES

// A problem in the task's order, as the arguments of a public call.
struct call {
  list x, y, z, start, decimation, x_stride, y_stride, z_stride;
  zor_conv_options options{};
  bool correlation;

  explicit call(const conv_problem& p, int32_t mode, int32_t method)
      : x(reversed(p.x_shape)),
        y(reversed(p.y_shape)),
        z(reversed(p.z_shape)),
        start(reversed(p.start)),
        decimation(reversed(p.decimation)),
        x_stride(reversed(p.x_stride)),
        y_stride(reversed(p.y_stride)),
        z_stride(reversed(p.z_stride)),
        correlation(p.correlation) {
    options = {mode,
               method,
               mode == ZOR_CONV_RANGE ? start.data() : nullptr,
               decimation.data(),
               x_stride.data(),
               y_stride.data(),
               z_stride.data()};
  }
  template <class T>
  int32_t run(operands<T>& o) const {
    auto* const entry = correlation ? entries<T>::correlate : entries<T>::convolve;
    return entry(int32_t(x.size()), x.data(), o.x.data(), y.data(), o.y.data(), z.data(), o.z.data(),
                 &options);
  }
  int32_t job() const { return correlation ? ZOR_CONV_CORRELATION : ZOR_CONV_CONVOLUTION; }
};

// What a mode wants along dimension d: the first index and how many.
void set_mode(conv_problem* p, int32_t mode, random_bits& random) {
  if (mode == ZOR_CONV_RANGE) return draw_range(random, p);
  for (size_t d = 0; d < p->dims(); ++d) {
    const int32_t m = p->x_shape[d], n = p->y_shape[d], full = m + n - 1;
    int32_t skipped = 0, count = full;
    if (mode == ZOR_CONV_SAME) {
      count = p->correlation ? n : m;
      skipped = (full - count) / 2;
    } else if (mode == ZOR_CONV_VALID) {
      count = std::abs(m - n) + 1;
      skipped = std::min(m, n) - 1;
    }
    p->start[d] = int32_t(p->first(d)) + skipped;
    p->decimation[d] = random.between(0, 3) == 0 ? int32_t(random.between(1, 4)) : 1;
    p->z_shape[d] = (count - 1) / p->decimation[d] + 1;
  }
  p->z_stride = dense(p->z_shape);
}

template <class T>
void check(const conv_problem& p, int32_t mode, int32_t method, random_bits& random) {
  SCOPED_TRACE(text(p) + " mode " + std::to_string(mode) + " method " + std::to_string(method) + " parts " +
               std::to_string(parts<T>) + " bytes " + std::to_string(sizeof(real<T>)));
  operands<T> o(p, random, true);
  const call c(p, mode, method);
  list z(p.dims());
  ASSERT_EQ(zor_conv_output_shape(c.job(), int32_t(p.dims()), c.x.data(), c.y.data(), &c.options, z.data()),
            0);
  if (mode != ZOR_CONV_RANGE) {
    ASSERT_EQ(z, c.z);
  }
  const int32_t chosen = zor_conv_method(c.job(), type_of<T>, precision_of<T>, int32_t(p.dims()), c.x.data(),
                                         c.y.data(), c.z.data(), &c.options);
  if (method != ZOR_CONV_AUTO) {
    ASSERT_EQ(chosen, method);
  }
  const auto result = with_any_threads([&] {
    EXPECT_EQ(c.run(o), 0);
    return o.outputs();
  });
  expect_outputs<real<T>>(p, o, result, chosen == ZOR_CONV_DIRECT);
}

constexpr int32_t every_mode[] = {ZOR_CONV_FULL, ZOR_CONV_SAME, ZOR_CONV_VALID, ZOR_CONV_RANGE};

template <class T>
void check_modes(const shape& x, const shape& y, bool layouts, random_bits& random) {
  for (const int32_t mode : every_mode)
    for (const int32_t method : {ZOR_CONV_DIRECT, ZOR_CONV_TRANSFORM, ZOR_CONV_AUTO}) {
      conv_problem p = whole(random.between(0, 1) == 1, x, y);
      set_mode(&p, mode, random);
      if (layouts && random.between(0, 1)) {
        p.x_stride = draw_strides(random, p.x_shape, false);
        p.y_stride = draw_strides(random, p.y_shape, false);
        p.z_stride = draw_strides(random, p.z_shape, true);
      }
      check<T>(p, mode, method, random);
    }
}

TEST(PublicConv, Lines) {
  random_bits random(11);
  constexpr int32_t lengths[][2] = {{1, 1}, {1, 40}, {40, 1}, {33, 33}, {300, 20}, {20, 300}, {150, 149}};
  for (const auto& l : lengths) {
    check_modes<float>({l[0]}, {l[1]}, true, random);
    check_modes<double>({l[0]}, {l[1]}, true, random);
    check_modes<zor_c32>({l[0]}, {l[1]}, true, random);
    check_modes<zor_c64>({l[0]}, {l[1]}, true, random);
  }
}

// Long enough for several tiles and for several threads; one tile in place.
TEST(PublicConv, LongLines) {
  random_bits random(12);
  for (const auto& l : {std::pair(20000, 90), std::pair(70, 9000), std::pair(1200, 900)}) {
    check_modes<double>({l.first}, {l.second}, false, random);
    check_modes<zor_c32>({l.first}, {l.second}, true, random);
  }
}

TEST(PublicConv, BoxesOfAnyRank) {
  constexpr int32_t longest[] = {0, 0, 20, 9, 6, 4, 3, 3};
  random_bits random(13);
  for (int iteration = 0; iteration < 36; ++iteration) {
    const int dims = 2 + iteration % 6;
    shape x, y;
    for (int d = 0; d < dims; ++d) {
      x.push_back(int32_t(random.between(1, longest[dims])));
      y.push_back(int32_t(random.between(1, longest[dims])));
    }
    check_modes<float>(x, y, true, random);
    check_modes<double>(x, y, true, random);
    check_modes<zor_c32>(x, y, true, random);
    check_modes<zor_c64>(x, y, true, random);
  }
  check_modes<double>({90, 70}, {7, 5}, true, random);
  check_modes<float>({12, 9}, {60, 40}, true, random);
  // Terms enough for the tiles of the kernels.
  check_modes<zor_c64>({60, 40}, {30, 24}, true, random);
  check_modes<zor_c32>({12, 20, 18}, {9, 9, 8}, true, random);
  check_modes<double>({50, 70}, {30, 24}, true, random);
}

// Each row spoils one argument of a good call.
TEST(PublicConv, Refusals) {
  const list good_x = {6, 5}, good_y = {3, 2}, good_z = {8, 6};
  const list zero = {6, 0}, vast = {int64_t(1) << 31, 2}, too_long = {9, 6}, start = {0, 0}, far = {8, 0},
             negative = {-1, 0}, none = {0, 1}, flat = {0, 1}, folded = {5, 1}, wide = {int64_t(1) << 40, 1};
  std::vector<double> x(100, 1), y(100, 1), z(100, 7);
  struct row {
    int32_t status;
    const list *x, *y, *z;
    zor_conv_options options;
    int32_t dims = 2;
    const double *x_data, *y_data;
    double* z_data;
  };
  const auto with = [&](int32_t status, auto change) {
    row r = {status, &good_x, &good_y, &good_z, {}, 2, x.data(), y.data(), z.data()};
    change(r);
    return r;
  };
  const auto start_at = [](row& r, const list& first) {
    r.options.mode = ZOR_CONV_RANGE;
    r.options.start = first.data();
  };
  const row rows[] = {with(ZOR_CONV_BAD_DIMS, [](row& r) { r.dims = 0; }),
                      with(ZOR_CONV_BAD_DIMS, [](row& r) { r.dims = 8; }),
                      with(ZOR_CONV_BAD_X_SHAPE, [](row& r) { r.x = nullptr; }),
                      with(ZOR_CONV_BAD_X_SHAPE, [&](row& r) { r.x = &zero; }),
                      with(ZOR_CONV_BAD_Y_SHAPE, [&](row& r) { r.y = &zero; }),
                      with(ZOR_CONV_TOO_LARGE, [&](row& r) { r.y = &vast; }),
                      with(ZOR_CONV_BAD_Z_SHAPE, [](row& r) { r.z = nullptr; }),
                      with(ZOR_CONV_BAD_Z_SHAPE, [&](row& r) { r.z = &good_x; }),
                      with(ZOR_CONV_BAD_Z_SHAPE,
                           [&](row& r) {
                             r.z = &too_long;
                             r.options.mode = ZOR_CONV_RANGE;
                           }),
                      with(ZOR_CONV_NULL_X, [](row& r) { r.x_data = nullptr; }),
                      with(ZOR_CONV_NULL_Y, [](row& r) { r.y_data = nullptr; }),
                      with(ZOR_CONV_NULL_Z, [](row& r) { r.z_data = nullptr; }),
                      with(ZOR_CONV_BAD_MODE, [](row& r) { r.options.mode = 4; }),
                      with(ZOR_CONV_BAD_MODE, [](row& r) { r.options.mode = -1; }),
                      with(ZOR_CONV_BAD_METHOD, [](row& r) { r.options.method = 3; }),
                      with(ZOR_CONV_BAD_START, [&](row& r) { r.options.start = start.data(); }),
                      with(ZOR_CONV_BAD_START, [&](row& r) { start_at(r, far); }),
                      with(ZOR_CONV_BAD_START, [&](row& r) { start_at(r, negative); }),
                      with(ZOR_CONV_BAD_DECIMATION, [&](row& r) { r.options.decimation = none.data(); }),
                      with(ZOR_CONV_BAD_Z_STRIDE, [&](row& r) { r.options.z_stride = flat.data(); }),
                      with(ZOR_CONV_OVERLAP, [&](row& r) { r.options.z_stride = folded.data(); }),
                      with(ZOR_CONV_TOO_LARGE, [&](row& r) { r.options.y_stride = wide.data(); }),
                      with(ZOR_CONV_OVERLAP, [](row& r) { r.z_data = const_cast<double*>(r.x_data); }),
                      with(ZOR_CONV_OVERLAP, [](row& r) { r.z_data = const_cast<double*>(r.y_data) + 5; }),
                      with(ZOR_CONV_OK, [](row& r) { r.z_data = const_cast<double*>(r.x_data) + 30; })};
  const auto data = [](const list* l) { return l != nullptr ? l->data() : nullptr; };
  for (const row& r : rows) {
    EXPECT_EQ(
        zor_convolve_d(r.dims, data(r.x), r.x_data, data(r.y), r.y_data, data(r.z), r.z_data, &r.options),
        r.status)
        << zor_conv_error_text(r.status) << " row " << &r - rows;
    EXPECT_EQ(z, std::vector<double>(100, 7));
    EXPECT_STRNE(zor_conv_error_text(r.status), "no such status");
  }
  EXPECT_STREQ(zor_conv_error_text(-1), "no such status");
  list shape_of_z(2);
  EXPECT_EQ(zor_conv_output_shape(3, 2, good_x.data(), good_y.data(), nullptr, shape_of_z.data()),
            ZOR_CONV_BAD_JOB);
  EXPECT_EQ(zor_conv_output_shape(1, 2, good_x.data(), good_y.data(), nullptr, nullptr),
            ZOR_CONV_BAD_Z_SHAPE);
  EXPECT_EQ(zor_conv_method(1, 3, 1, 2, good_x.data(), good_y.data(), good_z.data(), nullptr),
            ZOR_CONV_BAD_TYPE);
  EXPECT_EQ(zor_conv_method(1, 1, 0, 2, good_x.data(), good_y.data(), good_z.data(), nullptr),
            ZOR_CONV_BAD_TYPE);
}

// Columns of one matrix, and halves of its rows, lie apart; one column more, or a row's end, does not.
TEST(PublicConv, OperandsInterleaved) {
  std::vector<double> matrix(12 * 20, 1);
  const zor_int column = 10, full = 10, rows[2] = {10, 4}, kernel[2] = {1, 1}, step = 20;
  const zor_int one = 1, strides[2] = {20, 1};
  zor_conv_options o = {};
  o.x_stride = o.z_stride = &step;
  const double two = 2;
  const auto columns = [&](zor_int apart) {
    return zor_convolve_d(1, &column, matrix.data(), &one, &two, &full, matrix.data() + apart, &o);
  };
  EXPECT_EQ(columns(1), 0);
  EXPECT_EQ(matrix[1], 2);
  EXPECT_EQ(columns(0), ZOR_CONV_OVERLAP);
  EXPECT_EQ(columns(20), ZOR_CONV_OVERLAP);
  EXPECT_EQ(columns(39), 0);
  zor_conv_options p = {};
  p.x_stride = p.z_stride = strides;
  const auto halves = [&](zor_int apart) {
    return zor_convolve_d(2, rows, matrix.data() + 4, kernel, &two, rows, matrix.data() + 4 + apart, &p);
  };
  EXPECT_EQ(halves(4), 0);
  EXPECT_EQ(halves(3), ZOR_CONV_OVERLAP);
  EXPECT_EQ(halves(-4), 0);
  EXPECT_EQ(halves(16), 0);
  EXPECT_EQ(halves(17), ZOR_CONV_OVERLAP);
}

// So many terms or values that the tiles of the kernels are worth their while: one and several, also in many
// dimensions, and one that threads divide.
TEST(PublicConv, Tiles) {
  random_bits random(14);
  const std::pair<shape, shape> problems[] = {{{1200}, {700}},
                                              {{600}, {4000}},
                                              {{66000}, {5}},
                                              {{60, 50}, {30, 25}},
                                              {{400, 3}, {200, 3}},
                                              {{17, 300}, {9, 80}},
                                              {{15, 14, 12}, {9, 8, 8}},
                                              {{2, 3, 3, 3, 2, 3, 3}, {3, 2, 3, 3, 3, 2, 3}}};
  for (const auto& [x, y] : problems) {
    check_modes<float>(x, y, true, random);
    check_modes<double>(x, y, true, random);
    check_modes<zor_c32>(x, y, true, random);
    check_modes<zor_c64>(x, y, true, random);
  }
}

// Plans are kept between calls and shared: callers at once, with more lengths than are kept.
TEST(PublicConv, CallersAtOnce) {
  constexpr int lengths = 12, callers = 4;
  const auto result = [](int which) {
    const zor_int m = 300 + 211 * which, n = 150 + 90 * which, full = m + n - 1;
    random_bits random{uint64_t(which)};
    std::vector<double> x(static_cast<size_t>(m)), y(static_cast<size_t>(n)), z(static_cast<size_t>(full));
    for (double& v : x) v = random.unit();
    for (double& v : y) v = random.unit();
    zor_conv_options options = {};
    options.method = ZOR_CONV_TRANSFORM;
    EXPECT_EQ(zor_convolve_d(1, &m, x.data(), &n, y.data(), &full, z.data(), &options), 0);
    return z;
  };
  std::vector<std::vector<double>> expected;
  for (int which = 0; which < lengths; ++which) expected.push_back(result(which));
  std::vector<std::thread> threads;
  for (int caller = 0; caller < callers; ++caller)
    threads.emplace_back([&, caller] {
      for (int iteration = 0; iteration < 40; ++iteration) {
        const int which = (iteration * (caller + 1) + caller) % lengths;
        const std::vector<double> z = result(which);
        EXPECT_TRUE(same_bits(expected[size_t(which)].data(), z.data(), z.size())) << which;
      }
    });
  for (std::thread& t : threads) t.join();
}

}  // namespace
