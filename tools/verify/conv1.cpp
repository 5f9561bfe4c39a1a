// SPDX-License-Identifier: MIT
// Convolution and correlation of lines: the bodies of the task object, its statuses, the real line kernel.
#include "tools/verify/conv.h"
#include "zor/signatures/conv.h"

namespace zor_tools {
namespace {

// One value; around vectors and blocks, either operand the longer one; through segments and through a single
// product.
const conv_shape lines[] = {{{1}, {1}},    {{5}, {3}},     {{40}, {7}},   {{7}, {40}},
                            {{150}, {63}}, {{130}, {130}}, {{900}, {70}}, {{300}, {280}}};
// Through the public entries: the last two have several tiles and are divided over threads.
const conv_shape public_lines[] = {{{1}, {1}},     {{40}, {7}},      {{7}, {40}},
                                   {{300}, {280}}, {{20000}, {150}}, {{9000}, {16}}};
constexpr int32_t lengths[][2] = {{1, 1}, {9, 4}, {448, 64}, {5000, 63}, {64, 448}, {3000, 100}, {700, 600}};

template <class R>
void line_kernel(recorder& out, zor::conv_fft_real_fn<R>* fn) {
  for (const auto& l : lengths) {
    numbers source{uint64_t(l[0])};
    block<R> x(size_t(l[0]), 0, source), y(size_t(l[1]), 1, source), w(size_t(l[0] + l[1] - 1), 0, source);
    out.add(int64_t(fn(x.data(), l[0], y.data(), l[1], w.data())));
    w.record(out);
  }
}

// Statuses of the calls that compute nothing.
void task_calls(recorder& out) {
  const int32_t x[] = {3}, y[] = {2}, z[] = {4}, value[] = {1};
  const double data[] = {1, 2, 3, 4};
  double result[4] = {};
  ZorConvTask *task = nullptr, *copy = nullptr;
  out.begin("zor_conv_NewTask");
  out.add(int64_t(zor_conv_NewTask(nullptr, 1, 0, 1, 1, 2, 1, x, y, z)));
  out.begin("zor_conv_NewTaskX");
  out.add(int64_t(zor_conv_NewTaskX(&task, 1, 0, 1, 1, 2, 1, x, y, z, data, nullptr)));
  out.begin("zor_conv_EditTask");
  for (int32_t parameter = 0; parameter <= 20; ++parameter)
    if (parameter != ZOR_CONV_EDIT_INTERNAL_PRECISION)
      out.add(int64_t(zor_conv_EditTask(task, parameter, value)));
  out.begin("zor_conv_CopyTask");
  out.add(int64_t(zor_conv_CopyTask(&copy, task)));
  out.add(int64_t(copy->committed));
  out.begin("zor_conv_ExecX");
  out.add(int64_t(zor_conv_ExecX(copy, data, nullptr, result, nullptr)));
  copy->z_shape_values[0] = 3;
  out.add(int64_t(zor_conv_ExecX(task, data, nullptr, result, nullptr)));
  out.add(int64_t(zor_conv_ExecX(copy, data, nullptr, result, nullptr)));
  out.add(result, 4);
  out.begin("zor_conv_DeleteTask");
  out.add(int64_t(zor_conv_DeleteTask(&task)));
  out.add(int64_t(zor_conv_DeleteTask(&copy)));
  out.add(int64_t(zor_conv_DeleteTask(&copy)));
  out.add(int64_t(zor_conv_DeleteTask(nullptr)));
}

}  // namespace

void run_conv1(recorder& out) {
  task_calls(out);
  run_conv_bodies(out, lines);
#define ROW_CONV_FFT_REAL(name, T) \
  if (out.begin(#name)) line_kernel<T>(out, name);
#include "zor/tables/conv.inc"
  run_public_convs(out, "", public_lines);
  // In one tile of the kernels and in several.
  static const conv_shape tiled[] = {{{700}, {2500}}, {{9000}, {600}}, {{70000}, {90}}};
  run_public_convs(out, ":tiles", tiled);
}

}  // namespace zor_tools
