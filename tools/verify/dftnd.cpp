// SPDX-License-Identifier: MIT
// Transforms in several dimensions: rank 2, the shares of work that threads run, and public calls.
#include "tools/verify/dft.h"

namespace zor_tools {
namespace {

constexpr int32_t padded = ZOR_DFT_FORMAT_PADDED, tail = ZOR_DFT_FORMAT_TAIL, second = ZOR_DFT_FORMAT_SECOND;

constexpr problem planes[] = {{.data = kind::complex, .n = {12, 20}},
                              {.data = kind::complex, .n = {33, 8}, .stride = 2, .scale = 0.3},
                              {.data = kind::complex, .n = {16, 64}},
                              {.data = kind::complex, .n = {1, 30}},
                              {.data = kind::complex, .n = {64, 1}}};
constexpr problem boxes[] = {{.data = kind::complex, .n = {6, 5, 7}},
                             {.data = kind::complex, .n = {8, 12, 16}, .stride = 2, .scale = 0.3},
                             {.data = kind::complex, .n = {4, 3, 1, 5}},
                             {.data = kind::complex, .n = {5, 2, 6, 4}}};
constexpr problem packed[] = {{.data = kind::packed, .n = {12, 20}, .format = padded},
                              {.data = kind::packed, .n = {15, 9}, .format = padded, .scale = 0.3},
                              {.data = kind::packed, .n = {16, 7}, .format = tail, .stride = 2},
                              {.data = kind::packed, .n = {10, 34}, .format = second},
                              {.data = kind::packed, .n = {2, 5}, .format = second},
                              {.data = kind::packed, .n = {9, 1}, .format = tail}};
constexpr problem mixed[] = {{.data = kind::mixed, .n = {12, 20}},
                             {.data = kind::mixed, .n = {15, 9}, .stride = 2, .scale = 0.3},
                             {.data = kind::mixed, .n = {64, 33}},
                             {.data = kind::mixed, .n = {7, 1}}};
constexpr problem mixed_boxes[] = {{.data = kind::mixed, .n = {6, 5, 7}},
                                   {.data = kind::mixed, .n = {9, 4, 6}, .stride = 2, .scale = 0.3},
                                   {.data = kind::mixed, .n = {8, 3, 1}}};

// Large enough to be divided over threads.
constexpr problem divided[] = {{.data = kind::complex, .n = {128, 72}},
                               {.data = kind::complex, .n = {97, 90}, .stride = 2},
                               {.data = kind::complex, .n = {24, 20, 18}},
                               {.data = kind::complex, .n = {9, 10, 12, 8}},
                               {.data = kind::packed, .n = {100, 96}, .format = padded},
                               {.data = kind::mixed, .n = {101, 90}},
                               {.data = kind::mixed, .n = {24, 18, 20}}};

template <class R>
zor_dft_kernel complex_kernel(const ZorDftDescriptor* record, bool direction) {
  return record->*precision_of<R>::complex_kernel[direction];
}
template <class R>
zor_dft_kernel real_kernel(const ZorDftDescriptor* record, bool direction) {
  return record->*precision_of<R>::real_kernel[direction];
}

// One run: steps along the dimensions, and the data in bytes.
struct plane_run {
  ZorDftDescriptor *d, *columns;
  const std::array<zor_int, 4>&is, &os;
  zor_int in_bytes, out_bytes;  // of an element
  char *x, *y;
  void* work;
};

// call(run) for each problem; it returns a status.
template <class R, class Problems, class Call>
void each(recorder& out, const Problems& problems, bool in_place, bool direction, const Call& call) {
  drive<R>(out, problems, in_place, direction, [&](ZorDftDescriptor* d, const operands<R>& o) {
    return call(plane_run{d, d->next_dim, o.in.strides, o.out.strides, o.in.unit * zor_int(sizeof(R)),
                          o.out.unit * zor_int(sizeof(R)), static_cast<char*>(o.x), static_cast<char*>(o.y),
                          d->work_buffer});
  });
}

// All of `units` in two shares; share(first, count, &status) like the exported names.
template <class Share>
int32_t two_shares(zor_int units, const Share& share) {
  int32_t statuses[2] = {-1, -1};
  share(zor_int(0), zor_int(1), statuses);
  share(zor_int(1), units - 1, statuses + 1);
  return 1000 * statuses[0] + statuses[1];
}

template <class R>
void complex_2d(recorder& out, zor_dft_2d fn) {
  for (const bool direction : {forward, backward})
    each<R>(out, planes, true, direction, [&](const plane_run& r) {
      return fn(r.x, &r.is[0], &r.is[1], complex_kernel<R>(r.d, direction),
                complex_kernel<R>(r.columns, direction), r.d, r.work);
    });
}

template <class R, class Problems>
void real_2d(recorder& out, const Problems& problems, bool direction, zor_dft_real_2d fn) {
  for (const bool in_place : {false, true})
    each<R>(out, problems, in_place, direction, [&](const plane_run& r) {
      return fn(r.x, r.y, &r.is[0], &r.is[1], &r.os[0], &r.os[1], real_kernel<R>(r.d, direction),
                complex_kernel<R>(r.columns, direction), r.d, r.work);
    });
}

// Rows (dimension 0) or columns (dimension 1) of complex values in place.
template <class R, class Fn>
void lines(recorder& out, int dimension, Fn* fn) {
  for (const bool direction : {forward, backward})
    each<R>(out, planes, true, direction, [&](const plane_run& r) {
      ZorDftDescriptor *const along = dimension == 0 ? r.d : r.columns, *const across =
                                                                            dimension == 0 ? r.columns : r.d;
      const zor_int step = r.is[size_t(1 - dimension)] * r.in_bytes;
      return two_shares(across->length, [&](zor_int first, zor_int count, int32_t* status) {
        fn(r.x + first * step, r.is[0], r.is[1], count, complex_kernel<R>(along, direction), along, status,
           r.work);
      });
    });
}

// The same from input to output, with the kernel of the elements at hand.
template <class R, class Problems, class Fn>
void lines_out(recorder& out, const Problems& problems, int dimension, bool direction, Fn* fn) {
  each<R>(out, problems, false, direction, [&](const plane_run& r) {
    ZorDftDescriptor *const along = dimension == 0 ? r.d : r.columns, *const across =
                                                                          dimension == 0 ? r.columns : r.d;
    const zor_dft_kernel kernel = dimension == 0 && r.in_bytes != r.out_bytes
                                      ? real_kernel<R>(r.d, direction)
                                      : complex_kernel<R>(along, direction);
    const zor_int in_step = r.is[size_t(1 - dimension)] * r.in_bytes,
                  out_step = r.os[size_t(1 - dimension)] * r.out_bytes;
    return two_shares(across->length, [&](zor_int first, zor_int count, int32_t* status) {
      fn(r.x + first * in_step, r.y + first * out_step, r.is[0], r.is[1], r.os[0], r.os[1], count, kernel,
         along, status, r.work);
    });
  });
}

// Rows or columns of a packed transform: what comes second in a direction runs in place in the output.
template <class R, class Fn>
void packed_share(recorder& out, bool rows, bool direction, Fn* fn) {
  for (const bool in_place : {false, true})
    each<R>(out, packed, in_place, direction, [&](const plane_run& r) {
      const bool from_input = rows == (direction == forward);
      const auto& is = from_input ? r.is : r.os;
      return two_shares(rows ? r.columns->length : r.d->length / 2 + 1,
                        [&](zor_int first, zor_int count, int32_t* status) {
                          fn(from_input ? r.x : r.y, r.y, is[0], is[1], r.os[0], r.os[1], first, count,
                             rows ? real_kernel<R>(r.d, direction) : complex_kernel<R>(r.columns, direction),
                             r.d, status, r.work);
                        });
    });
}

zor_int planes_in(const ZorDftDescriptor* d) { return d->total_size / (d->length * d->next_dim->length); }

template <class R, class Fn>
void box_planes(recorder& out, bool in_place, const Fn& fn) {
  for (const bool direction : {forward, backward})
    each<R>(out, boxes, in_place, direction, [&](const plane_run& r) {
      return two_shares(planes_in(r.d), [&](zor_int first, zor_int count, int32_t* status) {
        fn(r.x, r.y, first, count, int32_t(direction), r.d, status, r.work);
      });
    });
}

template <class R, class Fn>
void box_lines(recorder& out, bool in_place, Fn* fn) {
  for (const bool direction : {forward, backward})
    each<R>(out, boxes, in_place, direction, [&](const plane_run& r) {
      int32_t all = 0;
      for (ZorDftDescriptor* along = r.columns->next_dim; along != nullptr; along = along->next_dim)
        all +=
            two_shares(r.d->total_size / along->length, [&](zor_int first, zor_int count, int32_t* status) {
              fn(r.y, along->dim_index, first, count, int32_t(direction), r.d, status, r.work);
            });
      return all;
    });
}

template <class R, class Fn>
void mixed_box_planes(recorder& out, bool direction, Fn* fn) {
  each<R>(out, mixed_boxes, false, direction, [&](const plane_run& r) {
    return two_shares(planes_in(r.d), [&](zor_int first, zor_int count, int32_t* status) {
      fn(r.x, r.y, first, count, r.d, status, r.work);
    });
  });
}

// Forward in place in the output, backward from the input to a box.
template <class R, class Fn>
void mixed_box_lines(recorder& out, bool direction, Fn* fn) {
  each<R>(out, mixed_boxes, false, direction, [&](const plane_run& r) {
    numbers source(7);
    block<R> box(size_t(2 * r.d->total_half_size), 0, source);
    const bool to_box = direction == backward;
    const int32_t status = two_shares(r.d->half_length * r.columns->length,
                                      [&](zor_int first, zor_int count, int32_t* share_status) {
                                        fn(to_box ? r.x : r.y, to_box ? static_cast<void*>(box.data()) : r.y,
                                           2, first, count, r.d, share_status, r.work);
                                      });
    box.record(out);
    return status;
  });
}

}  // namespace

void run_dftnd(recorder& out) {
#define ROW_2D(name, R) \
  if (out.begin(#name)) complex_2d<R>(out, name);
#define ROW_PACKED_2D(name, R, dir) \
  if (out.begin(#name)) real_2d<R>(out, packed, dir, name);
#define ROW_MIXED_2D(name, R, dir) \
  if (out.begin(#name)) real_2d<R>(out, mixed, dir, name);
#define ROW_ROWS(name, R) \
  if (out.begin(#name)) lines<R>(out, 0, name);
#define ROW_COLUMNS(name, R) \
  if (out.begin(#name)) lines<R>(out, 1, name);
#define ROW_ROWS_OUT(name, In, Out)                          \
  if (out.begin(#name)) {                                    \
    if (is_complex<In>)                                      \
      lines_out<real_t<In>>(out, planes, 0, backward, name); \
    else                                                     \
      lines_out<real_t<In>>(out, mixed, 0, forward, name);   \
  }
#define ROW_COLUMNS_OUT(name, In, Out) \
  if (out.begin(#name)) lines_out<real_t<In>>(out, planes, 1, backward, name);
#define ROW_REAL_ROWS(name, R) \
  if (out.begin(#name)) lines_out<R>(out, mixed, 0, backward, name);
#define ROW_PACKED_ROWS(name, R, dir) \
  if (out.begin(#name)) packed_share<R>(out, true, dir, name);
#define ROW_PACKED_COLUMNS(name, R, dir) \
  if (out.begin(#name)) packed_share<R>(out, false, dir, name);
#define ROW_PACKED_COLUMNS_OUT ROW_PACKED_COLUMNS
#define ROW_PLANES(name, R) \
  if (out.begin(#name)) box_planes<R>(out, true, [](void* x, void*, auto... of) { name(x, of...); });
#define ROW_PLANES_OUT(name, R) \
  if (out.begin(#name)) box_planes<R>(out, false, name);
#define ROW_ALONG(name, R) \
  if (out.begin(#name)) box_lines<R>(out, true, name);
#define ROW_ALONG_OUT(name, R) \
  if (out.begin(#name)) box_lines<R>(out, false, name);
#define ROW_MIXED_PLANES(name, R, dir) \
  if (out.begin(#name)) mixed_box_planes<R>(out, dir, name);
#define ROW_MIXED_ALONG(name, R, dir) \
  if (out.begin(#name)) mixed_box_lines<R>(out, dir, name);
#include "zor/tables/dft_nd.inc"

  const auto public_runs = [&](const auto& problems) {
    for (const problem& p : problems) public_run(out, p);
  };
  public_runs(planes);
  public_runs(boxes);
  public_runs(packed);
  public_runs(mixed);
  public_runs(mixed_boxes);
  public_runs(divided);
}

}  // namespace zor_tools
