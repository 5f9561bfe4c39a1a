// SPDX-License-Identifier: MIT
// Transforms of complex lines: descriptors and commits of every kind, drivers, very long lines, public calls.
#include <string_view>

#include "tools/verify/dft.h"
#include "zor/core.h"
#include "zor/signatures/dft_kern.h"

namespace zor_tools {
namespace {

// Every method of the engine: straight-line, fixed, in-cache and blocked powers of two, direct, mixed radix
// with wide factors and without, chirp with a padded length of either kind, blocked too. Emulated processors
// run these too, so long ones are few.
constexpr zor_int lengths[] = {1,  2,  7,  16, 32,  64,   128,  256, 1024, 32768, 17,
                               74, 89, 30, 60, 202, 1000, 1001, 97,  509,  4099};

// Every layout of one.
constexpr problem layouts[] = {
    {.data = kind::complex, .n = {60}, .stride = 3, .offset = 2},
    {.data = kind::complex, .n = {33}, .transforms = 5, .scale = 0.3},
    {.data = kind::complex, .n = {24}, .transforms = 21, .interleaved = true},
    {.data = kind::complex, .n = {97}, .transforms = 7, .interleaved = true, .scale = -0.7},
    {.data = kind::complex, .n = {12, 20}, .transforms = 2},
    {.data = kind::complex, .n = {9, 16}, .transforms = 6, .interleaved = true},
    {.data = kind::complex, .n = {6, 5, 7}, .stride = 2, .offset = 1},
    {.data = kind::complex, .n = {4, 3, 1, 5}},
    {.data = kind::scrambled, .n = {5005}},
    {.data = kind::split, .n = {64}},
    {.data = kind::split, .n = {100}, .stride = 2, .offset = 1, .scale = 0.3},
    {.data = kind::split, .n = {97}, .transforms = 3}};

// Cut into shares by the threaded entries; the divided ones are large enough for several threads.
constexpr problem shared[] = {{.data = kind::complex, .n = {33}, .transforms = 9},
                              {.data = kind::complex, .n = {24}, .transforms = 21, .interleaved = true},
                              {.data = kind::complex, .n = {12, 20}},
                              {.data = kind::complex, .n = {6, 5, 7}, .stride = 2}};
constexpr problem divided[] = {{.data = kind::complex, .n = {64}, .transforms = 130},
                               {.data = kind::complex, .n = {30}, .transforms = 280, .interleaved = true}};

// One problem of each kind of commit.
constexpr problem simple[2][2] = {
    {{.data = kind::complex, .n = {90}}, {.data = kind::mixed, .n = {90}}},
    {{.data = kind::complex, .n = {12, 10}}, {.data = kind::mixed, .n = {12, 10}}}};

void add_fields(recorder& out, const ZorDftDescriptor* d) {
  for (; d != nullptr; d = d->next_dim)
    for (const zor_int v : {zor_int(d->commit_status),
                            zor_int(d->nio_args),
                            zor_int(d->whole_unit),
                            zor_int(d->two_d_direct),
                            zor_int(d->kernel_direct),
                            zor_int(d->forward_domain),
                            zor_int(d->precision),
                            zor_int(d->packed_format),
                            d->input_stride,
                            d->output_stride,
                            d->dim_index,
                            d->length,
                            d->half_length,
                            d->log2_length,
                            zor_int(d->general_plan),
                            d->total_size,
                            d->total_half_size,
                            d->max_length,
                            d->work_size,
                            d->max_work_size,
                            zor_int(d->nd_out_copy)})
      out.add(v);
}

template <class R>
void add_compute(recorder& out, const problem& p, ZorDftDescriptor* d, bool direction) {
  operands<R> o(p, direction, 1);
  const auto compute = direction == backward ? d->compute_backward : d->compute_forward;
  out.add(int64_t(compute(d, o.arrays[0], o.arrays[1], o.arrays[2], o.arrays[3])));
  o.record(out, p.transforms);
}

// commit(handle) of the kind that `name` says, with what it decides and what the descriptor then computes.
template <class Commit>
void commits(recorder& out, std::string_view name, const Commit& commit) {
  const auto says = [&](const char* part) { return name.find(part) != name.npos; };
  const bool all = name == "zor_dft_commit_descriptor_core";
  for (const bool single : {false, true})
    for (const bool several : {false, true})
      for (const bool real : {false, true}) {
        if (!all && (says("_s_") != single || says("_md") != several || says("_r2c_") != real)) continue;
        const problem& p = simple[several][real];
        const owned_descriptor d = make_descriptor(p, single ? ZOR_DFT_SINGLE : ZOR_DFT_DOUBLE, forward);
        ZorDftDescriptor* handle = d.get();
        out.add(int64_t(commit(&handle)));
        add_fields(out, handle);
        if (single)
          add_compute<float>(out, p, handle, forward);
        else
          add_compute<double>(out, p, handle, forward);
      }
}

template <class R>
void breakdowns(recorder& out, zor::dft_apply_fn* apply) {
  for (const zor_int n : {1, 2, 3, 8, 64, 128, 100, 997})
    for (const double scale : {1.0, 1.0 / double(n), 0.3}) {
      const problem p{.data = kind::complex, .n = {n}, .scale = scale};
      const owned_descriptor d = make_descriptor(p, precision_of<R>::value, forward);
      const int32_t status = apply(d.get());
      out.add(int64_t(status));
      if (status != ZOR_DFT_OK) continue;
      for (const bool direction : {forward, backward}) add_compute<R>(out, p, d.get(), direction);
    }
}

// The descriptor's life, a function a name.
constexpr zor_int sizes[] = {6, 8, 5};

void run_zor_dft_create_descriptor_md(recorder& out) {
  for (const int32_t precision : {ZOR_DFT_SINGLE, ZOR_DFT_DOUBLE})
    for (const int32_t domain : {ZOR_DFT_COMPLEX, ZOR_DFT_REAL})
      for (const zor_int rank : {1, 2, 3}) {
        ZorDftDescriptor* d = nullptr;
        out.add(int64_t(zor_dft_create_descriptor_md(&d, precision, domain, rank, sizes)));
        add_fields(out, d);
        zor_dft_free(&d);
      }
}

void run_zor_dft_determine_nioargs(recorder& out) {
  for (const kind data : {kind::complex, kind::split, kind::packed, kind::mixed})
    for (const bool in_place : {false, true}) {
      const problem p{.data = data, .n = {8}, .in_place = in_place};
      out.add(int64_t(zor_dft_determine_nioargs(make_descriptor(p, ZOR_DFT_DOUBLE, forward).get())));
    }
}

void run_zor_dft_free_allocated_buffers(recorder& out) {
  const owned_descriptor d = committed(simple[1][0], ZOR_DFT_DOUBLE, forward);
  out.add(int64_t(zor_dft_free_allocated_buffers(d.get())));
  add_fields(out, d.get());
}

// _d and _s take the precision as a number of their own.
template <class Create>
void create_1d(recorder& out, Create* create) {
  for (const float precision : {35.0f, 36.0f, 36.5f})
    for (const int32_t domain : {31, 32, 33})
      for (const zor_int length : {0, 1, 12}) {
        ZorDftDescriptor* d = nullptr;
        out.add(int64_t(create(&d, precision, domain, 1, length)));
        add_fields(out, d);
        zor_dft_free(&d);
      }
}
void run_zor_dft_create_1d_d(recorder& out) { create_1d(out, zor_dft_create_1d_d); }
void run_zor_dft_create_1d_s(recorder& out) { create_1d(out, zor_dft_create_1d_s); }

void create_nd(recorder& out, decltype(zor_dft_create_nd_d)* create) {
  for (const int32_t domain : {31, 32, 33})
    for (const zor_int rank : {0, 1, 2, 3, 8}) {
      ZorDftDescriptor* d = nullptr;
      out.add(int64_t(create(&d, domain, rank, sizes)));
      add_fields(out, d);
      zor_dft_free(&d);
    }
}
void run_zor_dft_create_nd_d(recorder& out) { create_nd(out, zor_dft_create_nd_d); }
void run_zor_dft_create_nd_s(recorder& out) { create_nd(out, zor_dft_create_nd_s); }

void run_zor_dft_commit(recorder& out) { commits(out, "zor_dft_commit_descriptor_core", zor_dft_commit); }

void run_zor_dft_set_value(recorder& out) {
  const owned_descriptor d = make_descriptor(simple[1][0], ZOR_DFT_DOUBLE, forward);
  for (int32_t parameter = -1; parameter < 30; ++parameter) {
    if (parameter == 4 || parameter == 5 || parameter == 12 || parameter == 13 || parameter == 20) continue;
    for (zor_int value = 38; value < 60; ++value) {
      out.add(int64_t(zor_dft_set_value(d.get(), parameter, value)));
      add_fields(out, d.get());
    }
  }
}

void run_zor_dft_free(recorder& out) {
  ZorDftDescriptor* d = committed(simple[0][0], ZOR_DFT_SINGLE, forward).release();
  out.add(int64_t(zor_dft_free(&d)));
  out.add(int64_t(d == nullptr ? zor_dft_free(&d) : -1));
  out.add(int64_t(zor_dft_free(nullptr)));
}

void front_end_compute(recorder& out, decltype(zor_dft_compute_forward)* compute, bool direction) {
  const auto call = [&](ZorDftDescriptor* d, const auto& o) {
    return compute(&d, o.arrays[0], o.arrays[1], o.arrays[2], o.arrays[3]);
  };
  for (const bool in_place : {false, true}) {
    drive<double>(out, layouts, in_place, direction, call);
    drive<float>(out, layouts, in_place, direction, call);
  }
}
void run_zor_dft_compute_forward(recorder& out) { front_end_compute(out, zor_dft_compute_forward, forward); }
void run_zor_dft_compute_backward(recorder& out) {
  front_end_compute(out, zor_dft_compute_backward, backward);
}

void run_zor_dft_status_text(recorder& out) {
  for (int32_t status = -1; status < 12; ++status)
    for (const int32_t length : {1, 20, 70}) {
      char text[72] = {};
      zor_dft_status_text(text, length, status);
      for (const char c : text) out.add(int64_t(c));
    }
}

template <class R>
void long_lines(recorder& out, zor::via2d_init_fn* init) {
  for (const zor_int n : {4, 6, 64, 1001, 1800, 2048}) {
    const owned_descriptor d =
        make_descriptor({.data = kind::complex, .n = {n}, .scale = 0.3}, precision_of<R>::value, forward);
    out.add(int64_t(init(d.get())));
    const auto* v = static_cast<const zor_dft_1d_via_2d*>(d->private_data);
    for (const zor_int field : {v->a, v->b, v->pitch_a, v->pitch_b, v->twiddle_count}) out.add(field);
    out.add(static_cast<const R*>(v->twiddles), size_t(4 * v->twiddle_count));
    numbers source{uint64_t(n)};
    for (const bool direction : {forward, backward}) {
      block<R> x(size_t(2 * n), 0, source), y(size_t(2 * n), 2, source);
      const zor_dft_kernel kernel = (*d).*precision_of<R>::complex_kernel[direction];
      out.add(int64_t(kernel(x.data(), y.data(), d.get(), nullptr)));
      y.record(out);
    }
  }
  const owned_descriptor prime =
      make_descriptor({.data = kind::complex, .n = {997}}, precision_of<R>::value, forward);
  out.add(int64_t(init(prime.get())));
}

template <class R, class Pass>
void column_passes(recorder& out, const Pass& pass) {
  const zor_int n = 1800;
  const owned_descriptor d =
      make_descriptor({.data = kind::complex, .n = {n}}, precision_of<R>::value, forward);
  expect_done(sizeof(R) == 8 ? zor_dft_xz_init_data_1d_via_2d(d.get())
                             : zor_dft_xc_init_data_1d_via_2d(d.get()));
  const auto* v = static_cast<const zor_dft_1d_via_2d*>(d->private_data);
  std::vector<char> work(size_t(std::max(v->sub_a->max_work_size, v->sub_b->max_work_size) + 256));
  numbers source(5);
  for (const int32_t direction : {0, 1}) {
    block<R> x(size_t(2 * n), 0, source);
    block<R> rows(size_t(v->a * v->pitch_b) / sizeof(R), 0, source);
    out.add(int64_t(pass(x.data(), rows.data(), 3, v->b - 2, direction, d.get(), work.data())));
    rows.record(out);
  }
}

template <class R, class Copy>
void row_copies(recorder& out, const Copy& copy) {
  for (const zor_int count : {1, 3, 4}) {
    const zor_int n = 45, pitch = 64 * 13, stride = 7;
    numbers source{uint64_t(count)};
    block<R> rows(size_t(count * pitch) / sizeof(R), 0, source), y(size_t(2 * n * stride), 2, source);
    copy(rows.data(), pitch, count, n, y.data(), stride);
    y.record(out);
  }
}

}  // namespace

void run_dft1(recorder& out) {
#define ROW(name) \
  if (out.begin(#name)) run_##name(out);
#define ROW_APPLY(name, list)      \
  if (out.begin(#name)) {          \
    breakdowns<double>(out, name); \
    breakdowns<float>(out, name);  \
  }
#define ROW_COMMIT(name) \
  if (out.begin(#name)) commits(out, #name, [](ZorDftDescriptor** h) { return name(h, 1); });
#include "zor/tables/dft_desc.inc"

#define ROW_COMPLEX(name, R, direction)                                              \
  if (out.begin(#name))                                                              \
    drive<R>(out, layouts, true, direction, [](ZorDftDescriptor* d, const auto& o) { \
      return name(d, o.x, d->number_of_transforms, d->work_buffer);                  \
    });
#define ROW_COMPLEX_OUT(name, R, direction)                                           \
  if (out.begin(#name))                                                               \
    drive<R>(out, layouts, false, direction, [](ZorDftDescriptor* d, const auto& o) { \
      return name(d, o.x, o.y, d->number_of_transforms, d->work_buffer);              \
    });
#include "zor/tables/dft_drive.inc"

#define ROW_VIA2D_INIT(name, R) \
  if (out.begin(#name)) long_lines<R>(out, name);
#define ROW_VIA2D_COLUMNS(name, R) \
  if (out.begin(#name)) column_passes<R>(out, name);
#define ROW_VIA2D_COPY(name, R) \
  if (out.begin(#name)) row_copies<R>(out, name);
#define ROW_VIA2D_SCALE_COPY(name, R) \
  if (out.begin(#name)) row_copies<R>(out, [](auto... of) { name(of..., R(0.3)); });
#include "zor/tables/dft_via2d.inc"

#define ROW_OMP(name, ...) \
  if (out.begin(#name)) commits(out, #name, name);
#define ROW_PAR(name, data, R, direction, place) PAR_##data(name, R, direction, PLACE_##place)
#define PLACE_in true
#define PLACE_out false
#define PAR_complex(name, R, direction, in_place) \
  if (out.begin(#name))                           \
    drive<R>(                                     \
        out, shared, in_place, direction,         \
        [](ZorDftDescriptor* d, const auto& o) {  \
          zor_dft_par_block block{d, o.x, o.y};   \
          return name(&block);                    \
        },                                        \
        zor_core_num_threads());
#define PAR_packed(...)
#define PAR_mixed(...)
#include "zor/tables/core_dft.inc"

  for (const zor_int n : lengths) public_run(out, {.data = kind::complex, .n = {n}});
  public_lines(out, layouts);
  public_lines(out, divided);
}

}  // namespace zor_tools
