// SPDX-License-Identifier: MIT
// The exported routines of several dimensions: rank 2, and the shares of work that the threaded layer runs.
#include "dft/nd/nd.h"
#include "dft/run/kernels.h"
#include "serv/vec.h"
#include "zor/signatures/dft_kern.h"

namespace zor::dft {
namespace {

constexpr zor_int descriptor::*in_stride = &descriptor::input_stride;
constexpr zor_int descriptor::*full_length = &descriptor::length;
constexpr zor_int descriptor::*half_length = &descriptor::half_length;

// Elements of a line on a side of type E: a complex side opposite a real one holds half a spectrum.
template <class E, class Other>
zor_int elements_of(const descriptor* record) {
  return scalar_of<E>::is_complex && !scalar_of<Other>::is_complex ? record->half_length : record->length;
}

template <class In, class Out>
int32_t share_of_lines(const void* in, void* out, zor_int is, zor_int id, zor_int os, zor_int od,
                       zor_int count, const line_kernel& kernel) {
  return run_lines<In, Out>(kernel, {static_cast<const In*>(in), is, id, elements_of<In, Out>(kernel.record)},
                            {static_cast<Out*>(out), os, od, elements_of<Out, In>(kernel.record)}, count,
                            tile_eight);
}

template <class R>
axes complex_axes(descriptor* head, int32_t direction, zor_int descriptor::*stride) {
  const auto kernel = fields<R>::complex_kernel[direction];
  return axes_of(head, stride, full_length, head->*kernel, kernel);
}

// Axes of a real transform's side.
template <class R>
axes mixed_axes(descriptor* head, direction d, zor_int descriptor::*stride, zor_int descriptor::*length) {
  return axes_of(head, stride, length, head->*fields<R>::real_kernel[d], fields<R>::complex_kernel[d]);
}

template <class R>
int32_t planes(const void* in, zor_int descriptor::*is, void* out, zor_int descriptor::*os, zor_int first,
               zor_int count, int32_t direction, descriptor* head, void* work) {
  return complex_planes<R>(static_cast<const complex_of<R>*>(in), complex_axes<R>(head, direction, is),
                           static_cast<complex_of<R>*>(out), complex_axes<R>(head, direction, os), first,
                           first + count, work);
}

// The axis of a dimension, or -1 when its lines have one element and stay as they are.
int axis_of(const axes& a, zor_int dimension) {
  for (int k = 0; k < a.rank; ++k)
    if (a.of[k].record->dim_index == dimension) return a.of[k].length > 1 ? k : -1;
  return -1;
}

template <class C>
int32_t share_along(const void* in, const axes& ia, void* out, const axes& oa, zor_int dimension,
                    zor_int first, zor_int count, void* work) {
  const int k = axis_of(oa, dimension);
  if (k < 0) return ZOR_DFT_OK;
  return lines_along<C, C>(static_cast<const C*>(in), ia, static_cast<C*>(out), oa, k, first, first + count,
                           work, tile_eight);
}

template <class R, direction Dir>
int32_t mixed_planes(void* in, void* out, zor_int first, zor_int count, descriptor* head, void* work) {
  using C = complex_of<R>;
  if constexpr (Dir == backward) {
    const axes box = packed_axes(mixed_axes<R>(head, Dir, in_stride, half_length));
    return real_planes<R>(static_cast<C*>(in), box, static_cast<R*>(out),
                          mixed_axes<R>(head, Dir, &descriptor::output_stride, full_length), first,
                          first + count, work);
  } else {
    const axes oa = mixed_axes<R>(head, Dir, &descriptor::output_stride, half_length);
    return mixed_planes_forward<R>(static_cast<const R*>(in),
                                   mixed_axes<R>(head, Dir, in_stride, full_length), static_cast<C*>(out), oa,
                                   first, first + count, work);
  }
}

template <class R, direction Dir>
int32_t mixed_along(const void* in, void* out, zor_int dimension, zor_int first, zor_int count,
                    descriptor* head, void* work) {
  const axes a =
      mixed_axes<R>(head, Dir, Dir == forward ? &descriptor::output_stride : in_stride, half_length);
  const axes to = Dir == forward ? a : packed_axes(a);
  if (Dir == backward && axis_of(to, dimension) < 0) {
    using C = complex_of<R>;
    if (first == 0) copy_box(static_cast<const C*>(in), a, static_cast<C*>(out), to);
    return ZOR_DFT_OK;
  }
  return share_along<complex_of<R>>(in, a, out, to, dimension, first, count, work);
}

}  // namespace
}  // namespace zor::dft

using namespace zor::dft;

#define ROW_2D(name, R) \
  extern "C" SIG_DFT_2D(name) { return complex_2d_routine<R>()(data, s0, s1, k0, k1, head, work); }
#define ROW_REAL_2D(name, R, dir, complex_storage)                                                    \
  extern "C" SIG_DFT_REAL_2D(name) {                                                                  \
    return real_2d_routine<R>(dir, complex_storage)(in, out, is0, is1, os0, os1, k0, k1, head, work); \
  }
#define ROW_PACKED_2D(name, R, dir) ROW_REAL_2D(name, R, dir, false)
#define ROW_MIXED_2D(name, R, dir) ROW_REAL_2D(name, R, dir, true)

#define ROW_ROWS(name, R)                                                                     \
  extern "C" SIG_DFT_SHARE(name) {                                                            \
    *status = share_of_lines<complex_of<R>, complex_of<R>>(data, data, s0, s1, s0, s1, count, \
                                                           {kernel, record, work});           \
  }
#define ROW_COLUMNS(name, R)                                                                  \
  extern "C" SIG_DFT_SHARE(name) {                                                            \
    *status = share_of_lines<complex_of<R>, complex_of<R>>(data, data, s1, s0, s1, s0, count, \
                                                           {kernel, record, work});           \
  }
#define ROW_ROWS_OUT(name, In, Out)                                                                \
  extern "C" SIG_DFT_SHARE_OUT(name) {                                                             \
    *status = share_of_lines<In, Out>(in, out, is0, is1, os0, os1, count, {kernel, record, work}); \
  }
#define ROW_COLUMNS_OUT(name, In, Out)                                                             \
  extern "C" SIG_DFT_SHARE_OUT(name) {                                                             \
    *status = share_of_lines<In, Out>(in, out, is1, is0, os1, os0, count, {kernel, record, work}); \
  }
#define ROW_REAL_ROWS(name, R)                                                                          \
  extern "C" SIG_DFT_REAL_ROWS(name) {                                                                  \
    (void)is0;                                                                                          \
    *status = real_rows<R>(static_cast<complex_of<R>*>(in), is1, static_cast<R*>(out), os0, os1, count, \
                           {kernel, record, work});                                                     \
  }
#define ROW_PACKED_SHARE(name, body, R, dir)                                                                \
  extern "C" SIG_DFT_SHARE_PACKED(name) {                                                                   \
    *status = body<R, dir>({static_cast<const R*>(in), is0, is1}, {static_cast<R*>(out), os0, os1}, kernel, \
                           head, first, first + count, work);                                               \
  }
#define ROW_PACKED_ROWS(name, R, dir) ROW_PACKED_SHARE(name, packed_rows, R, dir)
#define ROW_PACKED_COLUMNS(name, R, dir) ROW_PACKED_SHARE(name, packed_columns, R, dir)
#define ROW_PACKED_COLUMNS_OUT ROW_PACKED_COLUMNS

#define ROW_PLANES(name, R)                                                                     \
  extern "C" SIG_DFT_PLANES(name) {                                                             \
    *status = planes<R>(data, in_stride, data, in_stride, first, count, direction, head, work); \
  }
#define ROW_PLANES_OUT(name, R)                                                                              \
  extern "C" SIG_DFT_PLANES_OUT(name) {                                                                      \
    *status = planes<R>(in, in_stride, out, &ZorDftDescriptor::output_stride, first, count, direction, head, \
                        work);                                                                               \
  }
#define ROW_ALONG_SHARE(name, R, stride)                                                   \
  extern "C" SIG_DFT_ALONG(name) {                                                         \
    const axes a = complex_axes<R>(head, direction, stride);                               \
    *status = share_along<complex_of<R>>(data, a, data, a, dimension, first, count, work); \
  }
#define ROW_ALONG(name, R) ROW_ALONG_SHARE(name, R, in_stride)
#define ROW_ALONG_OUT(name, R) ROW_ALONG_SHARE(name, R, &ZorDftDescriptor::output_stride)
#define ROW_MIXED_PLANES(name, R, dir) \
  extern "C" SIG_DFT_MIXED_PLANES(name) { *status = mixed_planes<R, dir>(in, out, first, count, head, work); }
#define ROW_MIXED_ALONG(name, R, dir)                                            \
  extern "C" SIG_DFT_MIXED_ALONG(name) {                                         \
    *status = mixed_along<R, dir>(in, out, dimension, first, count, head, work); \
  }
#include "zor/tables/dft_nd.inc"
