// SPDX-License-Identifier: MIT
// Drivers: offsets are applied, the batch is walked, lines go to run_lines and planes to nd/.
#include "dft/run/drivers.h"

#include "dft/nd/nd.h"
#include "dft/run/batch.h"
#include "zor/signatures/dft_kern.h"

namespace zor::dft {
namespace {

constexpr zor_int descriptor::*in_stride = &descriptor::input_stride;
constexpr zor_int descriptor::*full_length = &descriptor::length;
constexpr zor_int descriptor::*half_length = &descriptor::half_length;

// In place the input's strides and distance rule both sides, whatever placement the descriptor has.
template <bool Out>
constexpr zor_int descriptor::*out_stride = Out ? &descriptor::output_stride : &descriptor::input_stride;
template <bool Out>
constexpr zor_int descriptor::*out_distance =
    Out ? &descriptor::output_distance : &descriptor::input_distance;

// Split storage runs line by line; a strided line goes through scratch, its imaginary parts behind its real
// ones.
template <class R, direction Dir, bool Out>
int32_t split_batch(descriptor* d, const zor_dft_split& in, const zor_dft_split& out, zor_int count,
                    void* work) {
  if (d->rank > 1) return ZOR_DFT_NOT_IMPLEMENTED;
  const zor_dft_kernel kernel = d->*fields<R>::complex_kernel[Dir];
  const zor_int n = d->length, is = d->input_stride, os = d->*out_stride<Out>;
  const bool direct = is == 1 && os == 1;
  const zor_int half = (n * zor_int(sizeof(R)) + work_boundary - 1) / work_boundary * work_boundary;
  const line_scratch line(direct || count <= 0 ? 0 : 2 * half);
  if (!direct && count > 0 && line.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  for (zor_int i = 0; i < count; ++i) {
    R* const from[2] = {static_cast<R*>(in.re) + i * d->input_distance,
                        static_cast<R*>(in.im) + i * d->input_distance};
    R* const to[2] = {static_cast<R*>(out.re) + i * d->*out_distance<Out>,
                      static_cast<R*>(out.im) + i * d->*out_distance<Out>};
    zor_dft_split x{from[0], from[1]}, y{to[0], to[1]}, buffer{line.data, line.data + half};
    if (direct) {
      const int32_t status = kernel(&x, &y, d, work);
      if (status != ZOR_DFT_OK) return status;
      continue;
    }
    gather_line(from[0], is, n, static_cast<R*>(buffer.re));
    gather_line(from[1], is, n, static_cast<R*>(buffer.im));
    const int32_t status = kernel(&buffer, &buffer, d, work);
    scatter_line(static_cast<R*>(buffer.re), n, to[0], os);
    scatter_line(static_cast<R*>(buffer.im), n, to[1], os);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

// An interleaved batch (distance 1 on both sides) has its transforms as one more dimension along which no
// line is transformed: so neighbours in a tile are neighbours in the batch.
axes with_batch_axis(const axes& a, zor_int count) {
  axes batch;
  batch.rank = a.rank + 1;
  batch.of[0] = {nullptr, nullptr, count, 1};
  for (int i = 0; i < a.rank; ++i) batch.of[i + 1] = a.of[i];
  return batch;
}

template <class C>
int32_t interleaved_batch(const C* in, const axes& ia, C* out, const axes& oa, zor_int count, void* work) {
  const axes from = with_batch_axis(ia, count), to = with_batch_axis(oa, count);
  int32_t status =
      lines_along<C, C>(in, from, out, to, 1, 0, lines_of(to, 1), work, batch_tile(count, ia.of[0].length));
  for (int k = 2; k < to.rank && status == ZOR_DFT_OK; ++k)
    status = lines_along<C, C>(out, to, out, to, k, 0, lines_of(to, k), work, tile_eight);
  return status;
}

// Elements from the first to behind the last of a transform.
zor_int extent_of(const axes& a) {
  zor_int last = 0;
  for (int i = 0; i < a.rank; ++i) last += (a.of[i].length - 1) * a.of[i].stride;
  return last + 1;
}

}  // namespace

template <class R, direction Dir, bool Out>
int32_t complex_driver(descriptor* d, const void* in, void* out, zor_int count, void* work) {
  if (is_split(d))
    return split_batch<R, Dir, Out>(d, *static_cast<const zor_dft_split*>(in),
                                    *static_cast<zor_dft_split*>(out), count, work);
  using C = complex_of<R>;
  const auto kernels = fields<R>::complex_kernel[Dir];
  const auto* x = static_cast<const C*>(in);
  auto* y = static_cast<C*>(out);
  const zor_int id = d->input_distance, od = d->*out_distance<Out>;
  if (d->rank == 1)
    return run_lines<C, C>({d->*kernels, d, work}, {x, d->input_stride, id, d->length},
                           {y, d->*out_stride<Out>, od, d->length}, count, batch_tile(count, d->length));
  const axes ia = axes_of(d, in_stride, full_length, d->*kernels, kernels);
  const axes oa = axes_of(d, out_stride<Out>, full_length, d->*kernels, kernels);
  if (id == 1 && od == 1 && d->rank == 2 && d->length != 1 && count > 1)
    return interleaved_batch<C>(x, ia, y, oa, count, work);
  for (zor_int i = 0; i < count; ++i) {
    const int32_t status = complex_nd<R>(x + i * id, ia, y + i * od, oa, work);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

template <class R, direction Dir, bool Out>
int32_t packed_driver(descriptor* d, const void* in, void* out, zor_int count, void* work) {
  if (d->rank > 2) return ZOR_DFT_NOT_IMPLEMENTED;
  const auto* x = static_cast<const R*>(in);
  auto* y = static_cast<R*>(out);
  const zor_dft_kernel kernel = d->*fields<R>::real_kernel[Dir];
  const zor_int id = d->input_distance, od = d->*out_distance<Out>;
  constexpr auto os = out_stride<Out>;
  if (d->rank == 1) {
    const zor_int n = d->length, spectrum = packed_length(d, n);
    const zor_int in_count = Dir == forward ? n : spectrum;
    const zor_int out_count = Dir == forward || !Out ? spectrum : n;
    return run_lines<R, R>({kernel, d, work}, {x, d->input_stride, id, in_count}, {y, d->*os, od, out_count},
                           count, batch_tile(count, n));
  }
  const descriptor* columns = d->next_dim;
  for (zor_int i = 0; i < count; ++i) {
    const int32_t status = packed_2d<R, Dir>({x + i * id, d->input_stride, columns->input_stride},
                                             {y + i * od, d->*os, columns->*os}, kernel,
                                             columns->*fields<R>::complex_kernel[Dir], d, work);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

namespace {

template <class R, direction Dir>
using output_side = std::conditional_t<Dir == forward, complex_of<R>, R>;
template <class R, direction Dir>
using input_side = std::conditional_t<Dir == forward, R, complex_of<R>>;

struct mixed_geometry {
  axes in, out;
  zor_int in_distance, out_distance;
};

template <class R, direction Dir>
mixed_geometry mixed_geometry_of(descriptor* d) {
  const zor_dft_kernel k0 = d->*fields<R>::real_kernel[Dir];
  const auto others = fields<R>::complex_kernel[Dir];
  const auto in_length = Dir == forward ? full_length : half_length;
  const auto result_length = Dir == forward ? half_length : full_length;
  return {axes_of(d, in_stride, in_length, k0, others),
          axes_of(d, &descriptor::output_stride, result_length, k0, others), d->input_distance,
          d->output_distance};
}

template <class R, direction Dir>
int32_t mixed_batch(const input_side<R, Dir>* x, output_side<R, Dir>* y, const mixed_geometry& g,
                    zor_int count, void* work) {
  using In = input_side<R, Dir>;
  using Out = output_side<R, Dir>;
  if (g.in.rank == 1 && g.out.of[0].record->rank == 1) {
    const axis& from = g.in.of[0];
    const axis& to = g.out.of[0];
    return run_lines<In, Out>({to.kernel, to.record, work}, {x, from.stride, g.in_distance, from.length},
                              {y, to.stride, g.out_distance, to.length}, count,
                              batch_tile(count, to.record->length));
  }
  for (zor_int i = 0; i < count; ++i) {
    int32_t status;
    if constexpr (Dir == forward)
      status = real_to_complex<R>(x + i * g.in_distance, g.in, y + i * g.out_distance, g.out, work);
    else
      status = complex_to_real<R>(x + i * g.in_distance, g.in, y + i * g.out_distance, g.out, work);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

// In place, a batch may run transform by transform only when both sides of every transform begin at one place
// and the output of each ends before the next input; otherwise the input of the whole batch is copied first.
template <class In, class Out>
bool can_run_in_place(const In* x, const Out* y, const mixed_geometry& g, zor_int count) {
  const auto at = [](const auto* p) { return reinterpret_cast<intptr_t>(p); };
  if (at(x) != at(y)) return false;
  if (count < 2) return true;
  const intptr_t step = g.in_distance * zor_int(sizeof(In));
  return g.out_distance * zor_int(sizeof(Out)) == step && at(y + extent_of(g.out)) <= at(x) + step;
}

template <class R, direction Dir>
int32_t batch_from_copy(const input_side<R, Dir>* x, output_side<R, Dir>* y, const mixed_geometry& g,
                        zor_int count, void* work) {
  using In = input_side<R, Dir>;
  mixed_geometry packed = g;
  packed.in = packed_axes(g.in);
  packed.in_distance = total_of(g.in);
  const line_scratch memory(count * packed.in_distance * zor_int(sizeof(In)));
  if (memory.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  In* copy = reinterpret_cast<In*>(memory.data);
  for (zor_int i = 0; i < count; ++i)
    copy_box(x + i * g.in_distance, g.in, copy + i * packed.in_distance, packed.in);
  return mixed_batch<R, Dir>(copy, y, packed, count, work);
}

}  // namespace

template <class R, direction Dir>
int32_t mixed_driver(descriptor* d, const void* in, void* out, zor_int count, void* work) {
  return mixed_batch<R, Dir>(static_cast<const input_side<R, Dir>*>(in),
                             static_cast<output_side<R, Dir>*>(out), mixed_geometry_of<R, Dir>(d), count,
                             work);
}

template <class R, direction Dir>
int32_t mixed_driver_in_place(descriptor* d, void* data, zor_int count, void* work) {
  const auto* x = static_cast<const input_side<R, Dir>*>(data);
  const auto* start = x - d->input_offset;
  auto* y = reinterpret_cast<output_side<R, Dir>*>(const_cast<input_side<R, Dir>*>(start)) + d->output_offset;
  const mixed_geometry g = mixed_geometry_of<R, Dir>(d);
  if (count <= 0 || can_run_in_place(x, y, g, count)) return mixed_batch<R, Dir>(x, y, g, count, work);
  return batch_from_copy<R, Dir>(x, y, g, count, work);
}

}  // namespace zor::dft

using namespace zor::dft;

// A row also instantiates its driver, which the compute functions call.
#define ROW_DRIVER(driver, ...) \
  template int32_t zor::dft::driver<__VA_ARGS__>(ZorDftDescriptor*, const void*, void*, zor_int, void*);
#define ROW_IN_PLACE(name, driver, R, direction) \
  ROW_DRIVER(driver, R, direction, false)        \
  extern "C" SIG_DFT_BATCH(name) { return driver<R, direction, false>(descriptor, data, data, count, work); }
#define ROW_TO_OUTPUT(name, driver, ...) \
  ROW_DRIVER(driver, __VA_ARGS__)        \
  extern "C" SIG_DFT_BATCH_OUT(name) { return driver<__VA_ARGS__>(descriptor, in, out, count, work); }
#define ROW_COMPLEX(name, R, direction) ROW_IN_PLACE(name, complex_driver, R, direction)
#define ROW_PACKED(name, R, direction) ROW_IN_PLACE(name, packed_driver, R, direction)
#define ROW_MIXED(name, R, direction)                                                                       \
  template int32_t zor::dft::mixed_driver_in_place<R, direction>(ZorDftDescriptor*, void*, zor_int, void*); \
  extern "C" SIG_DFT_BATCH(name) {                                                                          \
    return mixed_driver_in_place<R, direction>(descriptor, data, count, work);                              \
  }
#define ROW_COMPLEX_OUT(name, R, direction) ROW_TO_OUTPUT(name, complex_driver, R, direction, true)
#define ROW_PACKED_OUT(name, R, direction) ROW_TO_OUTPUT(name, packed_driver, R, direction, true)
#define ROW_MIXED_OUT(name, R, direction) ROW_TO_OUTPUT(name, mixed_driver, R, direction)
#include "zor/tables/dft_drive.inc"
