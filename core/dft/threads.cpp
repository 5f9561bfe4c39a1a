// SPDX-License-Identifier: MIT
// The threaded layer of the transforms: commits that allow threads, and compute entries that divide batches,
// planes, rows and columns. Every line is transformed whole by one thread, so the division never shows in the
// result.
#include "core/threads.h"

#include <algorithm>
#include <atomic>
#include <type_traits>

#include "dft/thresholds.h"
#include "zor/serv.h"
#include "zor/signatures/dft.h"

namespace zor_core {
namespace {

using descriptor = ZorDftDescriptor;
enum direction : int { forward, backward };
enum placement : int { in, out };

template <class R>
using complex_of = std::conditional_t<std::is_same_v<R, double>, zor_c64, zor_c32>;

// The kernels of a record's dimensions, by direction.
template <class R>
struct record_fields;
template <>
struct record_fields<double> {
  static constexpr zor_dft_kernel descriptor::*complex_kernel[] = {&descriptor::kernel_z_fwd,
                                                                   &descriptor::kernel_z_bwd};
  static constexpr zor_dft_kernel descriptor::*real_kernel[] = {&descriptor::kernel_d_fwd,
                                                                &descriptor::kernel_d_bwd};
};
template <>
struct record_fields<float> {
  static constexpr zor_dft_kernel descriptor::*complex_kernel[] = {&descriptor::kernel_c_fwd,
                                                                   &descriptor::kernel_c_bwd};
  static constexpr zor_dft_kernel descriptor::*real_kernel[] = {&descriptor::kernel_s_fwd,
                                                                &descriptor::kernel_s_bwd};
};

// The kernel library's routines by the types and directions of its tables, whose rows fill these in.
#define BY_TYPE(routine) \
  template <class R>     \
  constexpr auto routine = nullptr;
#define BY_BOTH_TYPES(routine)   \
  template <class In, class Out> \
  constexpr auto routine = nullptr;
#define BY_DIRECTION(routine)       \
  template <class R, direction Dir> \
  constexpr auto routine = nullptr;
BY_TYPE(share_rows)
BY_TYPE(share_columns)
BY_TYPE(share_real_rows)
BY_TYPE(share_planes)
BY_TYPE(share_planes_out)
BY_TYPE(share_along)
BY_TYPE(share_along_out)
BY_BOTH_TYPES(share_rows_out)
BY_BOTH_TYPES(share_columns_out)
BY_DIRECTION(complex_batch)
BY_DIRECTION(complex_batch_out)
BY_DIRECTION(packed_batch)
BY_DIRECTION(packed_batch_out)
BY_DIRECTION(mixed_batch)
BY_DIRECTION(mixed_batch_out)
BY_DIRECTION(share_packed_rows)
BY_DIRECTION(share_packed_columns)
BY_DIRECTION(share_mixed_planes)
BY_DIRECTION(share_mixed_along)
#undef BY_TYPE
#undef BY_BOTH_TYPES
#undef BY_DIRECTION

#define ROUTINE(routine, name, ...) \
  template <>                       \
  constexpr auto routine<__VA_ARGS__> = name;
#define ROW_COMPLEX(...) ROUTINE(complex_batch, __VA_ARGS__)
#define ROW_COMPLEX_OUT(...) ROUTINE(complex_batch_out, __VA_ARGS__)
#define ROW_PACKED(...) ROUTINE(packed_batch, __VA_ARGS__)
#define ROW_PACKED_OUT(...) ROUTINE(packed_batch_out, __VA_ARGS__)
#define ROW_MIXED(...) ROUTINE(mixed_batch, __VA_ARGS__)
#define ROW_MIXED_OUT(...) ROUTINE(mixed_batch_out, __VA_ARGS__)
#include "zor/tables/dft_drive.inc"

#define ROW_ROWS(...) ROUTINE(share_rows, __VA_ARGS__)
#define ROW_COLUMNS(...) ROUTINE(share_columns, __VA_ARGS__)
#define ROW_ROWS_OUT(...) ROUTINE(share_rows_out, __VA_ARGS__)
#define ROW_COLUMNS_OUT(...) ROUTINE(share_columns_out, __VA_ARGS__)
#define ROW_REAL_ROWS(...) ROUTINE(share_real_rows, __VA_ARGS__)
#define ROW_PACKED_ROWS(...) ROUTINE(share_packed_rows, __VA_ARGS__)
#define ROW_PACKED_COLUMNS(...) ROUTINE(share_packed_columns, __VA_ARGS__)
#define ROW_PACKED_COLUMNS_OUT(...)
#define ROW_PLANES(...) ROUTINE(share_planes, __VA_ARGS__)
#define ROW_PLANES_OUT(...) ROUTINE(share_planes_out, __VA_ARGS__)
#define ROW_ALONG(...) ROUTINE(share_along, __VA_ARGS__)
#define ROW_ALONG_OUT(...) ROUTINE(share_along_out, __VA_ARGS__)
#define ROW_MIXED_PLANES(...) ROUTINE(share_mixed_planes, __VA_ARGS__)
#define ROW_MIXED_ALONG(...) ROUTINE(share_mixed_along, __VA_ARGS__)
#include "zor/tables/dft_nd.inc"
#undef ROUTINE

// Columns are divided at whole tiles.
constexpr zor_int columns_grain = zor::dft::columns_of_a_thread;

// Work is handed out as one slice a share, so no more shares run than commit made slices for.
int32_t threads_of(const descriptor* d) { return std::max(1, std::min(d->thread_limit, usable_threads())); }

void* work_of(const descriptor* d, zor_int share) {
  return d->work_buffer == nullptr ? nullptr : static_cast<char*>(d->work_buffer) + share * d->max_work_size;
}

// Divides `count` units into shares, cut at multiples of `grain`: body(first, count, work) returns a status.
template <class Body>
int32_t divide(const descriptor* d, zor_int count, zor_int grain, const Body& body) {
  const zor_int grains = (count + grain - 1) / grain;
  const zor_int shares = std::min<zor_int>(threads_of(d), grains);
  std::atomic<int32_t> failure{0};
  const bool small =
      double(d->total_size) * double(d->number_of_transforms) < double(zor::dft::least_elements_for_threads);
  for_each_piece(small ? 1 : int32_t(shares), shares, [&](zor_int share) {
    const zor_int first = grains * share / shares * grain;
    const zor_int last = std::min(count, grains * (share + 1) / shares * grain);
    const int32_t status = body(first, last - first, work_of(d, share));
    if (status != ZOR_DFT_OK) failure.store(status, std::memory_order_relaxed);
  });
  return failure.load(std::memory_order_relaxed);
}

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
  descriptor* columns = d->next_dim;
  if (d->rank == 2) {
    const sides s = sides_of(d, Place == in);
    const auto rows = [&](zor_int first, zor_int count, void* work) {
      int32_t status = 0;
      const zor_dft_kernel kernel = d->*record_fields<R>::complex_kernel[Dir];
      if constexpr (Place == in)
        share_rows<R>(y + first * s.os1, s.os0, s.os1, count, kernel, d, &status, work);
      else
        share_rows_out<complex_of<R>, complex_of<R>>(x + first * s.is1, y + first * s.os1, s.is0, s.is1,
                                                     s.os0, s.os1, count, kernel, d, &status, work);
      return status;
    };
    const int32_t status = divide(d, columns->length, 1, rows);
    if (status != ZOR_DFT_OK) return status;
    return divide(d, d->length, columns_grain, [&](zor_int first, zor_int count, void* work) {
      int32_t column_status = 0;
      share_columns<R>(y + first * s.os0, s.os0, s.os1, count,
                       columns->*record_fields<R>::complex_kernel[Dir], columns, &column_status, work);
      return column_status;
    });
  }
  const zor_int planes = d->total_size / (d->length * columns->length);
  int32_t result = divide(d, planes, 1, [&](zor_int first, zor_int count, void* work) {
    int32_t status = 0;
    if constexpr (Place == in)
      share_planes<R>(y, first, count, Dir, d, &status, work);
    else
      share_planes_out<R>(x, y, first, count, Dir, d, &status, work);
    return status;
  });
  for (descriptor* r = columns->next_dim; r != nullptr && result == ZOR_DFT_OK; r = r->next_dim)
    result =
        divide(d, d->total_size / r->length, columns_grain, [&](zor_int first, zor_int count, void* work) {
          int32_t status = 0;
          (Place == in ? share_along<R> : share_along_out<R>)(y, r->dim_index, first, count, Dir, d, &status,
                                                              work);
          return status;
        });
  return result;
}

// Threads take transforms of the batch where a transform is one line or the batch has one for each thread;
// else each transform is divided. batch(x, y, count, work) runs some, transform(x, y) one.
template <placement Place, class E, class Batch, class Transform>
int32_t run_shared(descriptor* d, bool lines, void* input, void* output, const Batch& batch,
                   const Transform& transform) {
  const E* x = static_cast<const E*>(input);
  E* y = static_cast<E*>(Place == in ? input : output);
  const zor_int count = d->number_of_transforms, id = d->input_distance;
  const zor_int od = Place == in ? id : d->output_distance;
  if (lines || count >= threads_of(d))
    return divide(d, count, id == 1 || od == 1 ? columns_grain : 1,
                  [&](zor_int first, zor_int share, void* work) {
                    return batch(x + first * id, y + first * od, share, work);
                  });
  int32_t status = ZOR_DFT_OK;
  for (zor_int i = 0; i < count && status == ZOR_DFT_OK; ++i) status = transform(x + i * id, y + i * od);
  return status;
}

template <class R, direction Dir, placement Place>
int32_t run_complex(descriptor* d, void* input, void* output) {
  using C = complex_of<R>;
  return run_shared<Place, C>(
      d, d->rank == 1, input, output,
      [&](const C* x, C* y, zor_int count, void* work) {
        if constexpr (Place == in) return complex_batch<R, Dir>(d, y, count, work);
        return complex_batch_out<R, Dir>(d, x, y, count, work);
      },
      [&](const C* x, C* y) { return complex_transform<R, Dir, Place>(d, x, y); });
}

// Rows before columns going forward, columns before rows going back.
template <class R, direction Dir, placement Place>
int32_t packed_transform(descriptor* d, const R* x, R* y) {
  const sides s = sides_of(d, Place == in);
  descriptor* columns = d->next_dim;
  const auto rows = [&](const R* from, zor_int is0, zor_int is1) {
    return divide(d, columns->length, 1, [&](zor_int first, zor_int count, void* work) {
      int32_t status = 0;
      share_packed_rows<R, Dir>(from, y, is0, is1, s.os0, s.os1, first, count,
                                d->*record_fields<R>::real_kernel[Dir], d, &status, work);
      return status;
    });
  };
  const auto along = [&](const R* from, zor_int is0, zor_int is1) {
    return divide(d, d->length / 2 + 1, columns_grain, [&](zor_int first, zor_int count, void* work) {
      int32_t status = 0;
      share_packed_columns<R, Dir>(from, y, is0, is1, s.os0, s.os1, first, count,
                                   columns->*record_fields<R>::complex_kernel[Dir], d, &status, work);
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
  return run_shared<Place, R>(
      d, d->rank != 2, input, output,
      [&](const R* x, R* y, zor_int count, void* work) {
        if constexpr (Place == in) return packed_batch<R, Dir>(d, y, count, work);
        return packed_batch_out<R, Dir>(d, x, y, count, work);
      },
      [&](const R* x, R* y) { return packed_transform<R, Dir, Place>(d, x, y); });
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
  const sides s = sides_of(d, false);
  descriptor* columns = d->next_dim;
  if (d->rank == 2) {
    const int32_t status = divide(d, columns->length, 1, [&](zor_int first, zor_int count, void* work) {
      int32_t row_status = 0;
      share_rows_out<R, complex_of<R>>(x + first * s.is1, y + first * s.os1, s.is0, s.is1, s.os0, s.os1,
                                       count, d->*record_fields<R>::real_kernel[forward], d, &row_status,
                                       work);
      return row_status;
    });
    if (status != ZOR_DFT_OK) return status;
    return divide(d, d->half_length, columns_grain, [&](zor_int first, zor_int count, void* work) {
      int32_t column_status = 0;
      share_columns<R>(y + first * s.os0, s.os0, s.os1, count,
                       columns->*record_fields<R>::complex_kernel[forward], columns, &column_status, work);
      return column_status;
    });
  }
  descriptor* outer = columns->next_dim;
  const int32_t status = divide(d, outer->length, 1, [&](zor_int first, zor_int count, void* work) {
    int32_t plane_status = 0;
    share_mixed_planes<R, forward>(const_cast<R*>(x), y, first, count, d, &plane_status, work);
    return plane_status;
  });
  if (status != ZOR_DFT_OK) return status;
  return divide(d, d->half_length * columns->length, columns_grain,
                [&](zor_int first, zor_int count, void* work) {
                  int32_t line_status = 0;
                  share_mixed_along<R, forward>(y, y, 2, first, count, d, &line_status, work);
                  return line_status;
                });
}

template <class R>
int32_t mixed_backward(descriptor* d, const complex_of<R>* x, R* y) {
  using C = complex_of<R>;
  const sides s = sides_of(d, false);
  descriptor* columns = d->next_dim;
  const half_box<C> box(d->total_half_size);
  if (box.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  if (d->rank == 2) {
    const zor_int row = d->half_length;
    const int32_t status = divide(d, row, columns_grain, [&](zor_int first, zor_int count, void* work) {
      int32_t column_status = 0;
      share_columns_out<complex_of<R>, complex_of<R>>(
          x + first * s.is0, box.data + first, s.is0, s.is1, 1, row, count,
          columns->*record_fields<R>::complex_kernel[backward], columns, &column_status, work);
      return column_status;
    });
    if (status != ZOR_DFT_OK) return status;
    return divide(d, columns->length, 1, [&](zor_int first, zor_int count, void* work) {
      int32_t row_status = 0;
      share_real_rows<R>(box.data + first * row, y + first * s.os1, 1, row, s.os0, s.os1, count,
                         d->*record_fields<R>::real_kernel[backward], d, &row_status, work);
      return row_status;
    });
  }
  const int32_t status = divide(
      d, d->half_length * columns->length, columns_grain, [&](zor_int first, zor_int count, void* work) {
        int32_t line_status = 0;
        share_mixed_along<R, backward>(x, box.data, 2, first, count, d, &line_status, work);
        return line_status;
      });
  if (status != ZOR_DFT_OK) return status;
  return divide(d, columns->next_dim->length, 1, [&](zor_int first, zor_int count, void* work) {
    int32_t plane_status = 0;
    share_mixed_planes<R, backward>(box.data, y, first, count, d, &plane_status, work);
    return plane_status;
  });
}

// In place, every row over its own spectrum: so that what lies behind the reals of a row is the same for any
// number of threads, nothing is set aside for them either.
template <class R>
int32_t mixed_backward_in_place(descriptor* d, complex_of<R>* x) {
  const sides s = sides_of(d, false);
  descriptor *columns = d->next_dim, *outer = columns->next_dim;
  const zor_int planes = outer == nullptr ? 1 : outer->length;
  const zor_int in_plane = outer == nullptr ? 0 : outer->input_stride;
  const auto along = [&](descriptor* r, zor_int sets, zor_int set_stride) {
    return divide_planes(
        d, sets, d->half_length, columns_grain, [&](zor_int set, zor_int first, zor_int count, void* work) {
          int32_t status = 0;
          share_columns<R>(x + set * set_stride + first * s.is0, s.is0, r->input_stride, count,
                           r->*record_fields<R>::complex_kernel[backward], r, &status, work);
          return status;
        });
  };
  int32_t status = planes > 1 ? along(outer, columns->length, s.is1) : ZOR_DFT_OK;
  if (status == ZOR_DFT_OK && columns->length > 1) status = along(columns, planes, in_plane);
  if (status != ZOR_DFT_OK) return status;
  return divide_planes(
      d, planes, columns->length, 1, [&](zor_int plane, zor_int first, zor_int count, void* work) {
        int32_t row_status = 0;
        complex_of<R>* row = x + plane * in_plane + first * s.is1;
        share_real_rows<R>(row, row, s.is0, s.is1, s.os0, s.os1, count,
                           d->*record_fields<R>::real_kernel[backward], d, &row_status, work);
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
  using In = std::conditional_t<Dir == forward, R, complex_of<R>>;
  using Out = std::conditional_t<Dir == forward, complex_of<R>, R>;
  const In* x = static_cast<const In*>(input);
  const zor_int count = d->number_of_transforms, id = d->input_distance, od = d->output_distance;
  if constexpr (Place == in) {
    const bool one_to_one = rows_coincide(d, Dir) && (count == 1 || lines_coincide(d, Dir));
    if (!one_to_one || (count == 1 && d->rank == 1))
      return mixed_batch<R, Dir>(d, input, count, work_of(d, 0));
    if (d->rank == 1)
      return divide(d, count, 1, [&](zor_int first, zor_int share, void* work) {
        return mixed_batch<R, Dir>(d, static_cast<In*>(input) + first * id, share, work);
      });
  } else if (d->rank == 1 || count >= threads_of(d)) {
    return divide(d, count, id == 1 || od == 1 ? columns_grain : 1,
                  [&](zor_int first, zor_int share, void* work) {
                    return mixed_batch_out<R, Dir>(d, x + first * id, static_cast<Out*>(output) + first * od,
                                                   share, work);
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

#define ROW_OMP(name, precision, domain, several, apply, commit) \
  extern "C" SIG_DFT_OMP(name) { return zor_core::commit_with_threads(handle, apply, commit); }
#define ROW_PAR(name, kind, R, direction, place)                                      \
  extern "C" SIG_DFT_PAR(name) {                                                      \
    using namespace zor_core;                                                         \
    return run_##kind<R, direction, place>(block->descriptor, block->in, block->out); \
  }
#include "zor/tables/core_dft.inc"
