// SPDX-License-Identifier: MIT
// The threaded layer of the transforms: commits that allow threads, and compute entries that divide batches,
// planes, rows and columns. Every line is transformed whole by one thread, so the division never shows in the
// result.
#include "core/threads.h"

#include <algorithm>
#include <atomic>
#include <type_traits>

#include "zor/serv.h"
#include "zor/signatures/dft.h"

namespace zor_core {
namespace {

using descriptor = ZorDftDescriptor;
enum direction : int { forward, backward };
enum placement : int { in, out };

template <class R>
using complex_of = std::conditional_t<std::is_same_v<R, double>, zor_c64, zor_c32>;

using driver = int32_t(descriptor*, void*, zor_int, void*);
using driver_out = int32_t(descriptor*, const void*, void*, zor_int, void*);

// The kernel library's routines by real type.
template <class R>
struct kern;
// c and r are the letters of complex and real data, rc and cr those of real to complex and back; the
// work-share names of transforms with complex spectra double the first of these.
#define KERN(R, c, r, rc, cr, rrc, ccr)                                                                    \
  template <>                                                                                              \
  struct kern<R> {                                                                                         \
    using D = descriptor;                                                                                  \
    static constexpr zor_dft_kernel D::*complex_kernel[2] = {&D::kernel_##c##_fwd, &D::kernel_##c##_bwd};  \
    static constexpr zor_dft_kernel D::*real_kernel[2] = {&D::kernel_##r##_fwd, &D::kernel_##r##_bwd};     \
    static constexpr driver* complex_in[2] = {zor_dft_x##c##forward, zor_dft_x##c##backward};              \
    static constexpr driver_out* complex_out[2] = {zor_dft_x##c##forward_out, zor_dft_x##c##backward_out}; \
    static constexpr driver* packed_in[2] = {zor_dft_x##r##forward, zor_dft_x##r##backward};               \
    static constexpr driver_out* packed_out[2] = {zor_dft_x##r##forward_out, zor_dft_x##r##backward_out};  \
    static constexpr driver* mixed_in[2] = {zor_dft_x##rc##forward, zor_dft_x##cr##backward};              \
    static constexpr driver_out* mixed_out[2] = {zor_dft_x##rc##forward_out, zor_dft_x##cr##backward_out}; \
    static constexpr auto rows = zor_dft_##c##2_c_dft;                                                     \
    static constexpr auto rows_out = zor_dft_##c##2_c_out_dft;                                             \
    static constexpr auto columns = zor_dft_##c##2_r_dft;                                                  \
    static constexpr auto columns_out = zor_dft_##ccr##2_r_out_dft;                                        \
    static constexpr auto rows_to_complex = zor_dft_##rrc##2_c_out_dft;                                    \
    static constexpr auto rows_to_real = zor_dft_##ccr##2_c_dft;                                           \
    static constexpr decltype(&zor_dft_dz2_c_dft) packed_rows[2] = {zor_dft_##rc##2_c_dft,                 \
                                                                    zor_dft_##cr##2_c_dft};                \
    static constexpr decltype(&zor_dft_dz2_c_dft) packed_columns[2] = {zor_dft_##rc##2_r_dft,              \
                                                                       zor_dft_##cr##2_r_out_dft};         \
    static constexpr auto planes = zor_dft_##c##2_nd_par;                                                  \
    static constexpr auto planes_out = zor_dft_##c##2_nd_out_par;                                          \
    static constexpr auto along = zor_dft_##c##1_nd_par;                                                   \
    static constexpr auto along_out = zor_dft_##c##1_nd_out_par;                                           \
    static constexpr decltype(&zor_dft_ddz2_nd_out_par) mixed_planes[2] = {zor_dft_##rrc##2_nd_out_par,    \
                                                                           zor_dft_##ccr##2_nd_out_par};   \
    static constexpr decltype(&zor_dft_ddz1_nd_out_par) mixed_along[2] = {zor_dft_##rrc##1_nd_out_par,     \
                                                                          zor_dft_##ccr##1_nd_out_par};    \
  };
KERN(double, z, d, dz, zd, ddz, zzd)
KERN(float, c, s, sc, cs, ssc, ccs)
#undef KERN

// Work is handed out as one slice a share, so no more shares run than commit made slices for.
int32_t threads_of(const descriptor* d) { return std::max(1, std::min(d->thread_limit, usable_threads())); }

void* work_of(const descriptor* d, zor_int share) {
  return d->work_buffer == nullptr ? nullptr : static_cast<char*>(d->work_buffer) + share * d->max_work_size;
}

// Below this many elements a thread costs more than it does; the shares then run one after the other.
constexpr zor_int least_for_threads = 8192;

// Divides `count` units into shares, cut at multiples of `grain`: body(first, count, work) returns a status.
template <class Body>
int32_t divide(const descriptor* d, zor_int count, zor_int grain, const Body& body) {
  const zor_int grains = (count + grain - 1) / grain;
  const zor_int shares = std::min<zor_int>(threads_of(d), grains);
  std::atomic<int32_t> failure{0};
  const bool small = double(d->total_size) * double(d->number_of_transforms) < double(least_for_threads);
  for_each_piece(small ? 1 : int32_t(shares), shares, [&](zor_int share) {
    const zor_int first = grains * share / shares * grain;
    const zor_int last = std::min(count, grains * (share + 1) / shares * grain);
    const int32_t status = body(first, last - first, work_of(d, share));
    if (status != ZOR_DFT_OK) failure.store(status, std::memory_order_relaxed);
  });
  return failure.load(std::memory_order_relaxed);
}

// The columns that a tile takes together.
constexpr zor_int tile = 8;

// divide for the units of `planes` planes of `each`: body(plane, first, count, work), within one plane.
template <class Body>
int32_t divide_planes(const descriptor* d, zor_int planes, zor_int each, zor_int grain, const Body& body) {
  return divide(d, planes * each, grain, [&](zor_int first, zor_int count, void* work) {
    int32_t status = ZOR_DFT_OK;
    for (const zor_int last = first + count; first < last && status == ZOR_DFT_OK;) {
      const zor_int run = std::min(each - first % each, last - first);
      status = body(first / each, first % each, run, work);
      first += run;
    }
    return status;
  });
}

struct sides {
  zor_int is0, is1, os0, os1;
};
sides sides_of(const descriptor* d, bool in_strides_only) {
  const descriptor* next = d->next_dim;
  const auto result = in_strides_only ? &descriptor::input_stride : &descriptor::output_stride;
  return {d->input_stride, next->input_stride, d->*result, next->*result};
}

template <class R, direction Dir, placement Place>
int32_t complex_transform(descriptor* d, const complex_of<R>* x, complex_of<R>* y) {
  using K = kern<R>;
  descriptor* columns = d->next_dim;
  if (d->rank == 2) {
    const sides s = sides_of(d, Place == in);
    const auto rows = [&](zor_int first, zor_int count, void* work) {
      int32_t status = 0;
      const zor_dft_kernel kernel = d->*K::complex_kernel[Dir];
      if constexpr (Place == in)
        K::rows(y + first * s.os1, s.os0, s.os1, count, kernel, d, &status, work);
      else
        K::rows_out(x + first * s.is1, y + first * s.os1, s.is0, s.is1, s.os0, s.os1, count, kernel, d,
                    &status, work);
      return status;
    };
    const int32_t status = divide(d, columns->length, 1, rows);
    if (status != ZOR_DFT_OK) return status;
    return divide(d, d->length, tile, [&](zor_int first, zor_int count, void* work) {
      int32_t column_status = 0;
      K::columns(y + first * s.os0, s.os0, s.os1, count, columns->*K::complex_kernel[Dir], columns,
                 &column_status, work);
      return column_status;
    });
  }
  const zor_int planes = d->total_size / (d->length * columns->length);
  int32_t result = divide(d, planes, 1, [&](zor_int first, zor_int count, void* work) {
    int32_t status = 0;
    if constexpr (Place == in)
      K::planes(y, first, count, Dir, d, &status, work);
    else
      K::planes_out(x, y, first, count, Dir, d, &status, work);
    return status;
  });
  for (descriptor* r = columns->next_dim; r != nullptr && result == ZOR_DFT_OK; r = r->next_dim)
    result = divide(d, d->total_size / r->length, tile, [&](zor_int first, zor_int count, void* work) {
      int32_t status = 0;
      (Place == in ? K::along : K::along_out)(y, r->dim_index, first, count, Dir, d, &status, work);
      return status;
    });
  return result;
}

template <class R, direction Dir, placement Place>
int32_t run_complex(descriptor* d, void* input, void* output) {
  using K = kern<R>;
  using C = complex_of<R>;
  const C* x = static_cast<const C*>(input);
  C* y = Place == in ? static_cast<C*>(input) : static_cast<C*>(output);
  const zor_int count = d->number_of_transforms, id = d->input_distance;
  const zor_int od = Place == in ? id : d->output_distance;
  if (d->rank == 1 || count >= threads_of(d))
    return divide(d, count, id == 1 || od == 1 ? tile : 1, [&](zor_int first, zor_int share, void* work) {
      if constexpr (Place == in) return K::complex_in[Dir](d, y + first * id, share, work);
      return K::complex_out[Dir](d, x + first * id, y + first * od, share, work);
    });
  int32_t status = ZOR_DFT_OK;
  for (zor_int i = 0; i < count && status == ZOR_DFT_OK; ++i)
    status = complex_transform<R, Dir, Place>(d, x + i * id, y + i * od);
  return status;
}

// Rows before columns going forward, columns before rows going back.
template <class R, direction Dir, placement Place>
int32_t packed_transform(descriptor* d, const R* x, R* y) {
  using K = kern<R>;
  const sides s = sides_of(d, Place == in);
  descriptor* columns = d->next_dim;
  const auto rows = [&](const R* from, zor_int is0, zor_int is1) {
    return divide(d, columns->length, 1, [&](zor_int first, zor_int count, void* work) {
      int32_t status = 0;
      K::packed_rows[Dir](from, y, is0, is1, s.os0, s.os1, first, count, d->*K::real_kernel[Dir], d, &status,
                          work);
      return status;
    });
  };
  const auto along = [&](const R* from, zor_int is0, zor_int is1) {
    return divide(d, d->length / 2 + 1, tile, [&](zor_int first, zor_int count, void* work) {
      int32_t status = 0;
      K::packed_columns[Dir](from, y, is0, is1, s.os0, s.os1, first, count, columns->*K::complex_kernel[Dir],
                             d, &status, work);
      return status;
    });
  };
  const bool rows_first = Dir == forward;
  const int32_t status = rows_first ? rows(x, s.is0, s.is1) : along(x, s.is0, s.is1);
  if (status != ZOR_DFT_OK || (rows_first && columns->length < 2)) return status;
  return rows_first ? along(y, s.os0, s.os1) : rows(y, s.os0, s.os1);
}

template <class R, direction Dir, placement Place>
int32_t run_packed(descriptor* d, void* input, void* output) {
  using K = kern<R>;
  const R* x = static_cast<const R*>(input);
  R* y = static_cast<R*>(Place == in ? input : output);
  const zor_int count = d->number_of_transforms, id = d->input_distance;
  const zor_int od = Place == in ? id : d->output_distance;
  if (d->rank != 2 || count >= threads_of(d))
    return divide(d, count, id == 1 || od == 1 ? tile : 1, [&](zor_int first, zor_int share, void* work) {
      if constexpr (Place == in) return K::packed_in[Dir](d, y + first * id, share, work);
      return K::packed_out[Dir](d, x + first * id, y + first * od, share, work);
    });
  int32_t status = ZOR_DFT_OK;
  for (zor_int i = 0; i < count && status == ZOR_DFT_OK; ++i)
    status = packed_transform<R, Dir, Place>(d, x + i * id, y + i * od);
  return status;
}

// A box of half spectra, which a backward transform fills before it writes a real row.
template <class C>
struct half_box {
  explicit half_box(zor_int size)
      : data(static_cast<C*>(zor_serv_zor_malloc(uint64_t(size) * sizeof(C), 256))) {}
  half_box(const half_box&) = delete;
  half_box& operator=(const half_box&) = delete;
  ~half_box() { zor_serv_zor_free(data); }
  C* data;
};

template <class R>
int32_t mixed_forward(descriptor* d, const R* x, complex_of<R>* y) {
  using K = kern<R>;
  const sides s = sides_of(d, false);
  descriptor* columns = d->next_dim;
  if (d->rank == 2) {
    const int32_t status = divide(d, columns->length, 1, [&](zor_int first, zor_int count, void* work) {
      int32_t row_status = 0;
      K::rows_to_complex(x + first * s.is1, y + first * s.os1, s.is0, s.is1, s.os0, s.os1, count,
                         d->*K::real_kernel[forward], d, &row_status, work);
      return row_status;
    });
    if (status != ZOR_DFT_OK) return status;
    return divide(d, d->half_length, tile, [&](zor_int first, zor_int count, void* work) {
      int32_t column_status = 0;
      K::columns(y + first * s.os0, s.os0, s.os1, count, columns->*K::complex_kernel[forward], columns,
                 &column_status, work);
      return column_status;
    });
  }
  descriptor* outer = columns->next_dim;
  const int32_t status = divide(d, outer->length, 1, [&](zor_int first, zor_int count, void* work) {
    int32_t plane_status = 0;
    K::mixed_planes[forward](const_cast<R*>(x), y, first, count, d, &plane_status, work);
    return plane_status;
  });
  if (status != ZOR_DFT_OK) return status;
  return divide(d, d->half_length * columns->length, tile, [&](zor_int first, zor_int count, void* work) {
    int32_t line_status = 0;
    K::mixed_along[forward](y, y, 2, first, count, d, &line_status, work);
    return line_status;
  });
}

template <class R>
int32_t mixed_backward(descriptor* d, const complex_of<R>* x, R* y) {
  using K = kern<R>;
  using C = complex_of<R>;
  const sides s = sides_of(d, false);
  descriptor* columns = d->next_dim;
  const half_box<C> box(d->total_half_size);
  if (box.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  if (d->rank == 2) {
    const zor_int row = d->half_length;
    const int32_t status = divide(d, row, tile, [&](zor_int first, zor_int count, void* work) {
      int32_t column_status = 0;
      K::columns_out(x + first * s.is0, box.data + first, s.is0, s.is1, 1, row, count,
                     columns->*K::complex_kernel[backward], columns, &column_status, work);
      return column_status;
    });
    if (status != ZOR_DFT_OK) return status;
    return divide(d, columns->length, 1, [&](zor_int first, zor_int count, void* work) {
      int32_t row_status = 0;
      K::rows_to_real(box.data + first * row, y + first * s.os1, 1, row, s.os0, s.os1, count,
                      d->*K::real_kernel[backward], d, &row_status, work);
      return row_status;
    });
  }
  const int32_t status =
      divide(d, d->half_length * columns->length, tile, [&](zor_int first, zor_int count, void* work) {
        int32_t line_status = 0;
        K::mixed_along[backward](x, box.data, 2, first, count, d, &line_status, work);
        return line_status;
      });
  if (status != ZOR_DFT_OK) return status;
  return divide(d, columns->next_dim->length, 1, [&](zor_int first, zor_int count, void* work) {
    int32_t plane_status = 0;
    K::mixed_planes[backward](box.data, y, first, count, d, &plane_status, work);
    return plane_status;
  });
}

// In place, every row over its own spectrum: so that what lies behind the reals of a row is the same for any
// number of threads, nothing is set aside for them either.
template <class R>
int32_t mixed_backward_in_place(descriptor* d, complex_of<R>* x) {
  using K = kern<R>;
  const sides s = sides_of(d, false);
  descriptor *columns = d->next_dim, *outer = columns->next_dim;
  const zor_int planes = outer == nullptr ? 1 : outer->length;
  const zor_int in_plane = outer == nullptr ? 0 : outer->input_stride;
  const auto along = [&](descriptor* r, zor_int sets, zor_int set_stride) {
    return divide_planes(d, sets, d->half_length, tile,
                         [&](zor_int set, zor_int first, zor_int count, void* work) {
                           int32_t status = 0;
                           K::columns(x + set * set_stride + first * s.is0, s.is0, r->input_stride, count,
                                      r->*K::complex_kernel[backward], r, &status, work);
                           return status;
                         });
  };
  int32_t status = planes > 1 ? along(outer, columns->length, s.is1) : ZOR_DFT_OK;
  if (status == ZOR_DFT_OK && columns->length > 1) status = along(columns, planes, in_plane);
  if (status != ZOR_DFT_OK) return status;
  return divide_planes(d, planes, columns->length, 1,
                       [&](zor_int plane, zor_int first, zor_int count, void* work) {
                         int32_t row_status = 0;
                         complex_of<R>* row = x + plane * in_plane + first * s.is1;
                         K::rows_to_real(row, row, s.is0, s.is1, s.os0, s.os1, count,
                                         d->*K::real_kernel[backward], d, &row_status, work);
                         return row_status;
                       });
}

// Threads may share a transform in place when no row's result lies over another row's input.
bool rows_coincide(const descriptor* d, direction dir) {
  if (d->input_offset != 0 || d->output_offset != 0 || d->input_stride != 1 || d->output_stride != 1)
    return false;
  for (const descriptor* r = d->next_dim; r != nullptr; r = r->next_dim)
    if (dir == forward ? r->input_stride != 2 * r->output_stride : 2 * r->input_stride != r->output_stride)
      return false;
  return true;
}

// A batch of lines in place, each over its own input alone.
bool lines_coincide(const descriptor* d, direction dir) {
  const zor_int real_distance = dir == forward ? d->input_distance : d->output_distance;
  const zor_int half_distance = dir == forward ? d->output_distance : d->input_distance;
  return d->rank == 1 && real_distance == 2 * half_distance && half_distance >= d->half_length;
}

template <class R, direction Dir, placement Place>
int32_t run_mixed(descriptor* d, void* input, void* output) {
  using K = kern<R>;
  using In = std::conditional_t<Dir == forward, R, complex_of<R>>;
  using Out = std::conditional_t<Dir == forward, complex_of<R>, R>;
  const In* x = static_cast<const In*>(input);
  const zor_int count = d->number_of_transforms, id = d->input_distance, od = d->output_distance;
  if constexpr (Place == in) {
    const bool one_to_one = rows_coincide(d, Dir) && (count == 1 || lines_coincide(d, Dir));
    if (!one_to_one || (count == 1 && d->rank == 1)) return K::mixed_in[Dir](d, input, count, work_of(d, 0));
    if (d->rank == 1)
      return divide(d, count, 1, [&](zor_int first, zor_int share, void* work) {
        return K::mixed_in[Dir](d, static_cast<In*>(input) + first * id, share, work);
      });
  } else if (d->rank == 1 || count >= threads_of(d)) {
    return divide(d, count, id == 1 || od == 1 ? tile : 1, [&](zor_int first, zor_int share, void* work) {
      return K::mixed_out[Dir](d, x + first * id, static_cast<Out*>(output) + first * od, share, work);
    });
  }
  Out* y = static_cast<Out*>(Place == in ? input : output);
  int32_t status = ZOR_DFT_OK;
  for (zor_int i = 0; i < count && status == ZOR_DFT_OK; ++i) {
    if constexpr (Dir == forward)
      status = mixed_forward<R>(d, x + i * id, y + i * od);
    else if constexpr (Place == in)
      status = mixed_backward_in_place<R>(d, static_cast<complex_of<R>*>(input) + i * id);
    else
      status = mixed_backward<R>(d, x + i * id, y + i * od);
  }
  return status;
}

// The library takes all the threads a call may use; the kernel library's commit then lowers the limit to what
// the problem is worth.
int32_t commit_with_threads(ZorDftDescriptor** handle, int32_t (*apply)(ZorDftDescriptor*),
                            int32_t (*commit)(ZorDftDescriptor**, int32_t)) {
  if (handle == nullptr || *handle == nullptr || (*handle)->magic != ZOR_DFT_MAGIC)
    return ZOR_DFT_BAD_DESCRIPTOR;
  if (apply(*handle) == ZOR_DFT_OK) return ZOR_DFT_OK;
  (*handle)->thread_limit = usable_threads();
  return commit(handle, 1);
}

}  // namespace
}  // namespace zor_core

#define ROW_OMP(name, apply, commit) \
  extern "C" SIG_DFT_OMP(name) { return zor_core::commit_with_threads(handle, apply, commit); }
#define ROW_PAR(name, kind, R, direction, place)                                      \
  extern "C" SIG_DFT_PAR(name) {                                                      \
    using namespace zor_core;                                                         \
    return run_##kind<R, direction, place>(block->descriptor, block->in, block->out); \
  }
#include "zor/tables/core_dft.inc"
