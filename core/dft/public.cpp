// SPDX-License-Identifier: MIT
// The public side of the transforms: the kernel library's descriptor behind checked calls.
#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "core/dft/public.h"
#include "core/threads.h"
#include "dft/thresholds.h"
#include "serv/scratch.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

using zor::dft::most_bytes, zor::dft::most_dimensions, zor::dft::most_real_dimensions,
    zor::dft::work_boundary;

// True when complex doubles of these lengths, each with the padding of a packed spectrum, can be addressed.
bool size_fits(zor_int rank, const zor_int* lengths) {
  zor_int size = sizeof(zor_c64);
  for (zor_int i = 0; i < rank; ++i)
    if (__builtin_mul_overflow(size, lengths[i] / 2 + 1, &size)) return false;
  size = sizeof(zor_c64);
  for (zor_int i = 0; i < rank; ++i)
    if (__builtin_mul_overflow(size, lengths[i], &size)) return false;
  return size <= most_bytes;
}

using pointers = void* [4];
int32_t call(zor_fft d, zor_dft_compute ZorDftDescriptor::*direction, const pointers& p) {
  return (d->*direction)(d, p[0], p[1], p[2], p[3]);
}

// Set in reserved_a of a head while a caller computes in its work buffer.
enum : int32_t { work_free = 0, work_taken = 1 };

// All of a head but that mark, which other callers change meanwhile.
void copy_head(const ZorDftDescriptor* d, ZorDftDescriptor* copy) {
  constexpr size_t mark = offsetof(ZorDftDescriptor, reserved_a), behind = mark + sizeof d->reserved_a;
  std::memcpy(static_cast<void*>(copy), d, mark);
  std::memcpy(reinterpret_cast<char*>(copy) + behind, reinterpret_cast<const char*>(d) + behind,
              sizeof *d - behind);
}

// While another caller computes in the descriptor's work buffer: the same on a copy of the head, with work
// from the pool for as many threads as may help here.
int32_t call_with_own_work(zor_fft d, zor_dft_compute ZorDftDescriptor::*direction, const pointers& p) {
  ZorDftDescriptor own;
  copy_head(d, &own);
  own.thread_limit = std::max(1, std::min(d->thread_limit, usable_threads()));
  // With room to align: the pool may be switched off, and then aligns nothing.
  const zor::scratch<char> work(d->max_work_size * own.thread_limit + work_boundary, work_boundary);
  if (work.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  own.work_buffer = zor::align_up<char>(work.data, work_boundary);
  return call(&own, direction, p);
}

// Any number of callers at once, unless the descriptor limits them itself.
int32_t call_shared(zor_fft d, zor_dft_compute ZorDftDescriptor::*direction, const pointers& p) {
  if (d->work_buffer == nullptr || d->user_threads > 1) return call(d, direction, p);
  std::atomic_ref<int32_t> mark(d->reserved_a);
  if (mark.exchange(work_taken, std::memory_order_acquire) == work_taken)
    return call_with_own_work(d, direction, p);
  const int32_t status = call(d, direction, p);
  mark.store(work_free, std::memory_order_release);
  return status;
}

// True when none of the positions along three steps coincide, as each step passes what the smaller ones
// cover.
struct step_count {
  zor_int step, count;
};
bool is_nested(step_count (&steps)[3]) {
  for (step_count& s : steps) s.step = std::abs(s.step);
  std::sort(std::begin(steps), std::end(steps),
            [](const step_count& a, const step_count& b) { return a.step < b.step; });
  zor_int covered = 0;
  for (const step_count& s : steps) {
    if (s.count > 1 && s.step <= covered) return false;
    covered += (s.count - 1) * s.step;
  }
  return true;
}

// The padded spectrum of one row: the kernel library leaves dimension 1 out, so the zeros that pad the packed
// columns of frequency 0 and n/2 are written here, where the layout has room for the row they stand in.
template <class R>
void pad_columns(const ZorDftDescriptor* d, void* data) {
  const bool in_place = d->placement == ZOR_DFT_INPLACE;
  const side_fields& side = in_place ? input_side : output_side;
  const zor_int n = d->length, s0 = d->*side.stride, s1 = d[1].*side.stride, distance = d->*side.distance;
  step_count steps[] = {{s0, n % 2 == 0 ? n + 2 : n + 1}, {s1, 2}, {distance, d->number_of_transforms}};
  if (!is_nested(steps)) return;
  R* pad = static_cast<R*>(data) + d->*side.offset + s1;
  for (zor_int i = 0; i < d->number_of_transforms; ++i, pad += distance) {
    pad[0] = R(0);
    if (n % 2 == 0) pad[n * s0] = R(0);
  }
}

bool has_one_padded_row(const ZorDftDescriptor* d) {
  return d->rank == 2 && d->forward_domain == ZOR_DFT_REAL &&
         d->conjugate_even_storage == ZOR_DFT_COMPLEX_REAL && d->packed_format == ZOR_DFT_FORMAT_PADDED &&
         d[1].length == 1;
}

// Names of the data pointers, by the number of them and their position.
const char* data_name(const ZorDftDescriptor* d, int32_t i) {
  static constexpr const char *one[] = {"data"}, *sides[] = {"in", "out"}, *halves[] = {"re", "im"},
                              *all[] = {"in_re", "in_im", "out_re", "out_im"};
  if (d->nio_args == 4) return all[i];
  if (d->nio_args == 1) return one[i];
  return is_in_place(d) ? halves[i] : sides[i];
}

int32_t compute(zor_fft d, bool backward, void* data, va_list args) {
  if (!is_transform(d)) return bad_handle(d);
  const auto direction = backward ? &ZorDftDescriptor::compute_backward : &ZorDftDescriptor::compute_forward;
  if (d->*direction == nullptr)
    return fft_failure(ZOR_FFT_BAD_ARGUMENT, "fft: not committed, or set since its last commit");
  pointers p = {data, nullptr, nullptr, nullptr};
  for (int32_t i = 1; i < d->nio_args; ++i) p[i] = va_arg(args, void*);
  for (int32_t i = 0; i < d->nio_args; ++i)
    if (p[i] == nullptr) return fft_failure(ZOR_FFT_BAD_VALUE, "%s: a null pointer", data_name(d, i));
  if (is_real(d) && d->private_data != nullptr && backward) {
    const zor_fft exchanged = static_cast<const attachment*>(d->private_data)->exchanged;
    if (exchanged != nullptr) d = exchanged;
  }
  if ((d->reserved_c & (backward ? overlapping_backward : overlapping_forward)) != 0)
    return fft_failure(ZOR_FFT_BAD_VALUE, "fft: in this layout the output of a %s transform overlaps itself",
                       backward ? "backward" : "forward");
  int32_t status = is_in_place(d) || far_apart(d, p) ? ZOR_FFT_OK : check_overlap(d, backward, p);
  if (status != ZOR_FFT_OK) return status;
  status = call_shared(d, direction, p);
  if (status != ZOR_FFT_OK) return with_text(status);
  if (!backward && has_one_padded_row(d)) {
    void* const result = p[d->nio_args - 1];
    d->precision == ZOR_DFT_DOUBLE ? pad_columns<double>(d, result) : pad_columns<float>(d, result);
  }
  return ZOR_FFT_OK;
}

void release_attachment(ZorDftDescriptor* d) {
  auto* const own = static_cast<attachment*>(d->private_data);
  zor_dft_free(&own->exchanged);
  release_real_nd(own->nd);
  zor_serv_zor_free(own);
  d->private_data = nullptr;
  d->private_free = nullptr;
}

// The kernel library takes real data of up to three dimensions. Its engine refuses long lengths in single
// precision that do not factor.
int32_t commit_layout(zor_fft d) {
  if (is_real(d) && d->rank > most_real_dimensions) return commit_real_nd(d);
  const int32_t status = zor_dft_commit(&d);
  if (status == ZOR_FFT_ENGINE_ERROR)
    return fft_failure(ZOR_FFT_TOO_LARGE, "lengths: one above 33554431 is not a product of small primes");
  return with_text(status);
}

// Copies all settings but the name.
void copy_settings(const ZorDftDescriptor* from, zor_fft to) {
  for (zor_int k = 0; k < from->rank; ++k) {
    const ZorDftDescriptor& f = from[k];
    ZorDftDescriptor& t = to[k];
    t.number_of_transforms = f.number_of_transforms;
    t.conjugate_even_storage = f.conjugate_even_storage;
    t.placement = f.placement;
    t.packed_format = f.packed_format;
    t.input_stride = f.input_stride;
    t.output_stride = f.output_stride;
    t.input_offset = f.input_offset;
    t.output_offset = f.output_offset;
    t.input_distance = f.input_distance;
    t.output_distance = f.output_distance;
    t.forward_scale_d = f.forward_scale_d;
    t.forward_scale_s = f.forward_scale_s;
    t.backward_scale_d = f.backward_scale_d;
    t.backward_scale_s = f.backward_scale_s;
    t.user_threads = f.user_threads;
  }
}

// For backward transforms of a default layout, whose sides differ.
int32_t commit_exchanged(zor_fft d) {
  zor_int lengths[most_dimensions];
  for (zor_int k = 0; k < d->rank; ++k) lengths[d->rank - 1 - k] = d[k].length;
  attachment* const own = attach(d);
  if (own == nullptr) return with_text(ZOR_FFT_NO_MEMORY);
  int32_t status = zor_fft_create(&own->exchanged, d->precision, d->forward_domain, d->rank, lengths);
  if (status != ZOR_FFT_OK) return status;
  copy_settings(d, own->exchanged);
  exchange_layouts(own->exchanged);
  status = check_layout(own->exchanged);
  return status == ZOR_FFT_OK ? commit_layout(own->exchanged) : status;
}

// Real data of four dimensions and more: a descriptor of complex data made one of reals.
int32_t create_real_nd(zor_fft* fft, int32_t precision, zor_int rank, const zor_int* lengths) {
  const int32_t status = precision == ZOR_DFT_DOUBLE
                             ? zor_dft_create_nd_d(fft, ZOR_DFT_COMPLEX, rank, lengths)
                             : zor_dft_create_nd_s(fft, ZOR_DFT_COMPLEX, rank, lengths);
  if (status == ZOR_FFT_OK)
    for (zor_int k = 0; k < rank; ++k) (*fft)[k].forward_domain = ZOR_DFT_REAL;
  return status;
}

int32_t create(zor_fft* fft, int32_t precision, int32_t domain, zor_int rank, const zor_int* lengths) {
  if (precision != ZOR_DFT_SINGLE && precision != ZOR_DFT_DOUBLE)
    return fft_failure(ZOR_FFT_BAD_ARGUMENT, "precision: %d is no value of it", precision);
  if (domain != ZOR_DFT_COMPLEX && domain != ZOR_DFT_REAL)
    return fft_failure(ZOR_FFT_BAD_ARGUMENT, "domain: %d is no value of it", domain);
  if (rank < 1 || rank > most_dimensions)
    return fft_failure(ZOR_FFT_BAD_ARGUMENT, "rank: %lld is not in 1 to %d", (long long)rank,
                       int(most_dimensions));
  if (lengths == nullptr) return fft_failure(ZOR_FFT_BAD_ARGUMENT, "lengths: a null pointer");
  for (zor_int i = 0; i < rank; ++i)
    if (lengths[i] < 1)
      return fft_failure(ZOR_FFT_BAD_ARGUMENT, "lengths: %lld at position %lld is below 1",
                         (long long)lengths[i], (long long)i);
  if (!size_fits(rank, lengths))
    return fft_failure(ZOR_FFT_TOO_LARGE, "lengths: more elements than a process can address");
  if (domain == ZOR_DFT_REAL && rank > most_real_dimensions)
    return with_text(create_real_nd(fft, precision, rank, lengths));
  return with_text(precision == ZOR_DFT_DOUBLE ? zor_dft_create_nd_d(fft, domain, rank, lengths)
                                               : zor_dft_create_nd_s(fft, domain, rank, lengths));
}

int32_t commit(zor_fft d) {
  // What an earlier commit attached goes first: the kernel library keeps it over a commit.
  if (is_real(d) && d->private_data != nullptr) release_attachment(d);
  zor_dft_set_value(d, -1);
  set_default_layout(d);
  int32_t status = check_layout(d);
  if (status != ZOR_FFT_OK) return status;
  status = commit_layout(d);
  if (status == ZOR_FFT_OK && needs_exchanged_layout(d)) status = commit_exchanged(d);
  if (status != ZOR_FFT_OK) zor_dft_set_value(d, -1);
  return status;
}

}  // namespace

attachment* attach(ZorDftDescriptor* d) {
  if (d->private_data != nullptr) return static_cast<attachment*>(d->private_data);
  d->private_data = zor_serv_zor_calloc(1, sizeof(attachment), 16);
  d->private_free = release_attachment;
  return static_cast<attachment*>(d->private_data);
}

}  // namespace zor_core

using namespace zor_core;

extern "C" {

int32_t zor_fft_create(zor_fft* fft, int32_t precision, int32_t domain, zor_int rank,
                       const zor_int* lengths) {
  if (fft == nullptr) return fft_failure(ZOR_FFT_BAD_VALUE, "fft: a null pointer");
  *fft = nullptr;
  return create(fft, precision, domain, rank, lengths);
}

int32_t zor_fft_commit(zor_fft d) { return is_transform(d) ? commit(d) : bad_handle(d); }

int32_t zor_fft_forward(zor_fft d, void* data, ...) {
  va_list args;
  va_start(args, data);
  const int32_t status = compute(d, false, data, args);
  va_end(args);
  return status;
}

int32_t zor_fft_backward(zor_fft d, void* data, ...) {
  va_list args;
  va_start(args, data);
  const int32_t status = compute(d, true, data, args);
  va_end(args);
  return status;
}

int32_t zor_fft_free(zor_fft* fft) {
  if (fft == nullptr || *fft == nullptr) return fft_failure(ZOR_FFT_BAD_VALUE, "fft: a null handle");
  return with_text(zor_dft_free(fft));
}

}  // extern "C"
