// SPDX-License-Identifier: MIT
// Problems of convolution for the battery, and every body of the task object run on them.
#pragma once

#include <string>

#include "tools/verify/battery.h"
#include "zor/signatures/conv.h"

namespace zor_tools {

struct conv_shape {
  std::vector<int32_t> x, y;
};

inline size_t elements_of(const std::vector<int32_t>& shape) {
  size_t count = 1;
  for (const int32_t n : shape) count *= size_t(n);
  return count;
}

// One problem in one of several forms: all of the result; a decimated part of it; strided or reversed
// operands; a single x repeated.
template <class T>
void run_conv(recorder& out, const conv_shape& s, int32_t mode, int32_t internal, int32_t job, int form,
              content kind) {
  numbers source(uint64_t(form * 100 + mode * 10 + job));
  const size_t dims = s.x.size();
  std::vector<int32_t> z(dims), start(dims), decimation(dims, 1), x_stride(dims), y_stride(dims),
      z_stride(dims);
  const int32_t gap = form == 2 ? 2 : 1;
  int32_t x_step = gap, y_step = 1, z_step = gap;
  for (size_t d = 0; d < dims; ++d) {
    const int32_t full = s.x[d] + s.y[d] - 1;
    const int32_t offset = form == 1 ? full / 5 : 0;
    decimation[d] = form == 1 ? 1 + int32_t(d + 1) % 3 : 1;
    start[d] = offset + (job == ZOR_CONV_CORRELATION ? 1 - s.x[d] : 0);
    z[d] = (full - 1 - offset) / decimation[d] + 1;
    x_stride[d] = form == 3 ? 0 : x_step;
    y_stride[d] = form == 2 ? -y_step : y_step;
    z_stride[d] = form == 2 && d == 0 ? -z_step : z_step;
    x_step *= s.x[d];
    y_step *= s.y[d];
    z_step *= z[d];
  }
  block<T> x(elements_of(s.x) * size_t(gap), size_t(form) % 2, source, kind),
      y(elements_of(s.y), 0, source, kind), result(elements_of(z) * size_t(gap), 0, source);
  const int32_t type = is_complex<T> ? ZOR_CONV_COMPLEX : ZOR_CONV_REAL;
  const int32_t precision = sizeof(real_t<T>) == 8 ? ZOR_CONV_DOUBLE : ZOR_CONV_SINGLE;
  ZorConvTask* task = nullptr;
  zor_conv_NewTask(&task, job, 0, mode, type, precision, int32_t(dims), s.x.data(), s.y.data(), z.data());
  zor_conv_EditTask(task, ZOR_CONV_EDIT_START, start.data());
  zor_conv_EditTask(task, ZOR_CONV_EDIT_DECIMATION, decimation.data());
  zor_conv_EditTask(task, ZOR_CONV_EDIT_INTERNAL_PRECISION, &internal);
  out.add(int64_t(zor_conv_Exec(task, x.data(), x_stride.data(), y.data(), y_stride.data(), result.data(),
                                z_stride.data())));
  result.record(out);
  zor_conv_DeleteTask(&task);
}

// A public entry on the same shapes: every mode and method, decimated, with any number of threads.
template <class T>
void run_public_conv(recorder& out, int32_t job, zor::convolve_fn<T>* entry, const conv_shape& s) {
  const std::vector<zor_int> x_shape(s.x.begin(), s.x.end()), y_shape(s.y.begin(), s.y.end());
  const int32_t dims = int32_t(x_shape.size());
  for (const int32_t mode : {ZOR_CONV_FULL, ZOR_CONV_SAME, ZOR_CONV_VALID, ZOR_CONV_RANGE})
    for (const int32_t method : {ZOR_CONV_AUTO, ZOR_CONV_DIRECT, ZOR_CONV_TRANSFORM}) {
      numbers source(uint64_t(mode * 3 + method));
      const std::vector<zor_int> decimation(x_shape.size(), method == ZOR_CONV_AUTO ? 1 : 1 + mode % 3);
      zor_conv_options options = {};
      options.mode = mode;
      options.method = method;
      options.decimation = decimation.data();
      std::vector<zor_int> z_shape(x_shape.size());
      out.add(int64_t(
          zor_conv_output_shape(job, dims, x_shape.data(), y_shape.data(), &options, z_shape.data())));
      out.add(z_shape.data(), z_shape.size());
      size_t count = 1;
      for (const zor_int n : z_shape) count *= size_t(n);
      block<T> x(elements_of(s.x), 0, source), y(elements_of(s.y), 1, source), z(count, 0, source);
      out.add(int64_t(entry(dims, x_shape.data(), x.data(), y_shape.data(), y.data(), z_shape.data(),
                            z.data(), &options)));
      z.record(out);
      const int32_t type = is_complex<T> ? ZOR_CONV_COMPLEX : ZOR_CONV_REAL;
      const int32_t precision = sizeof(real_t<T>) == 8 ? ZOR_CONV_DOUBLE : ZOR_CONV_SINGLE;
      out.add(int64_t(zor_conv_method(job, type, precision, dims, x_shape.data(), y_shape.data(),
                                      z_shape.data(), &options)));
    }
}

// Every public entry, a row each, named by it and `group`.
template <class Shapes>
void run_public_convs(recorder& out, const char* group, const Shapes& shapes) {
#define ROW_CONVOLVE(name, T)                          \
  if (out.begin((std::string(#name) + group).c_str())) \
    for (const conv_shape& s : shapes) run_public_conv<T>(out, ZOR_CONV_CONVOLUTION, name, s);
#define ROW_CORRELATE(name, T)                         \
  if (out.begin((std::string(#name) + group).c_str())) \
    for (const conv_shape& s : shapes) run_public_conv<T>(out, ZOR_CONV_CORRELATION, name, s);
#include "zor/tables/core_conv.inc"
}

// Every body on problems of one rank or more, a row each.
template <class Shapes>
void run_conv_bodies(recorder& out, const Shapes& shapes) {
  const auto body = [&]<class T>(T, const char* type, int32_t internal) {
    for (const int32_t mode : {ZOR_CONV_DIRECT, ZOR_CONV_TRANSFORM})
      for (const int32_t job : {ZOR_CONV_CONVOLUTION, ZOR_CONV_CORRELATION}) {
        const std::string name = std::string("zor_conv_Exec:") + type +
                                 (mode == ZOR_CONV_DIRECT ? ":direct" : ":transform") +
                                 (job == ZOR_CONV_CONVOLUTION ? ":convolution" : ":correlation");
        out.begin(name.c_str());
        for (const conv_shape& s : shapes)
          for (int form = 0; form < 4; ++form) {
            run_conv<T>(out, s, mode, internal, job, form, content::ordinary);
            if (mode == ZOR_CONV_DIRECT) run_conv<T>(out, s, mode, internal, job, form, content::special);
          }
      }
  };
  body(double(), "d:d", ZOR_CONV_DOUBLE);
  body(float(), "s:s", ZOR_CONV_SINGLE);
  body(float(), "s:d", ZOR_CONV_DOUBLE);
  body(zor_c64(), "z:z", ZOR_CONV_DOUBLE);
  body(zor_c32(), "c:c", ZOR_CONV_SINGLE);
  body(zor_c32(), "c:z", ZOR_CONV_DOUBLE);
}

}  // namespace zor_tools
