// SPDX-License-Identifier: MIT
// Commit: the thread decision, a kernel and a plan for every dimension, one work buffer, the compute pair.
#include <math.h>

#include "dft/descriptor/descriptor.h"
#include "dft/descriptor/fields.h"
#include "dft/nd/nd.h"
#include "dft/nd/via2d.h"
#include "dft/run/entries.h"
#include "dft/run/kernels.h"
#include "dft/thresholds.h"
#include "serv/control.h"
#include "serv/imports.h"
#include "zor/signatures/dft_kern.h"

namespace zor::dft {
namespace {

template <class R>
bool too_long(zor_int n) {
  using limits = precision_limits<R>;
  return n > (is_power_of_two(n) ? limits::longest_power_of_two : limits::longest);
}

template <class R>
zor_int fixed_kernel_limit(const descriptor* head, const descriptor* r) {
  if constexpr (std::is_same_v<R, float>) return precision_limits<R>::fixed_complex;
  const bool alone = head->thread_limit < 2 && head->user_threads < 2;
  const zor_int rank_class = head->rank > 2 ? 2 : head->rank - 1;
  const fixed_limit& row =
      (in_place(head) || !unit_strides(head) ? fixed_in_place_or_strided : fixed_out_of_place)[rank_class];
  const auto& limits = alone ? row.alone : row.shared;
  return r->dim_index == row.special_dimension ? limits.special : limits.other;
}

// Threads worth using, which grow with the square root of n log n bytes.
double wanted_threads(const descriptor* d) {
  if (d->rank >= 2 && d->total_size >= small_problem_least) {
    const int32_t kind = core::zor_serv_cpu_detect();
    for (const small_problem_threads& p : small_problems)
      if (p.processor_kind == kind && d->total_size < p.below) return p.wanted;
  }
  const double size = double(d->total_size) * double(d->number_of_transforms) * (in_place(d) ? 1.0 : 2.0) *
                      (d->forward_domain == ZOR_DFT_COMPLEX ? 2.0 : 1.0) * (is_double(d) ? 8.0 : 4.0);
  if (!(size >= 1.0)) return 0.0;
  const double factor = d->rank >= 2 ? double(d->rank) : d->private_data != nullptr ? 2.0 : 1.0;
  return double(zor_int(sqrt(size * log(size) / bytes_of_a_thread) + 0.5)) * factor;
}

void lower_thread_limit(descriptor* d, double wanted, double least) {
  const double w = wanted > least ? wanted : least;
  if (w < double(d->thread_limit)) d->thread_limit = int32_t(w);
}

template <class R>
bool has_whole_kernels(const descriptor* d) {
  for (auto field : fields<R>::whole_kernel)
    if (d->*field != nullptr) return true;
  for (void* slot : d->spare_slots)
    if (slot != nullptr) return true;
  return false;
}

template <class R>
bool is_whole_unit(const descriptor* d) {
  if (d->rank != 1 || d->number_of_transforms != 1 || !unit_strides(d)) return false;
  if (d->forward_domain == ZOR_DFT_COMPLEX) return !has_whole_kernels<R>(d);
  const bool complex_output =
      d->packed_format == ZOR_DFT_FORMAT_HALF_COMPLEX || d->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX;
  if (complex_output && (d->input_offset != 0 || d->output_offset != 0)) return false;
  return d->packed_format != ZOR_DFT_FORMAT_PADDED || d->length <= precision_limits<R>::unit_padded_real;
}

template <class R>
void install_two_d(descriptor* d) {
  using F = fields<R>;
  const bool real = d->forward_domain == ZOR_DFT_REAL;
  const bool complex_storage = d->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX;
  d->*F::complex_2d = complex_2d_routine<R>();
  d->*F::real_2d[forward] = real_2d_routine<R>(forward, complex_storage);
  d->*F::real_2d[backward] = real_2d_routine<R>(backward, complex_storage);
  if (is_split(d) || d->number_of_transforms != 1 || d->total_size >= direct_plane_below) return;
  d->two_d_direct = !(real && complex_storage && in_place(d));
}

template <class R>
int32_t decide_threads(descriptor* d, bool use_threads) {
  const double wanted = wanted_threads(d);
  d->two_d_direct = 0;
  d->kernel_direct = 0;
  d->whole_unit = is_whole_unit<R>(d);
  if (d->user_threads >= 2) {
    d->thread_limit = 1;
    d->thread_slots = static_cast<int32_t*>(
        zor_serv_zor_calloc(uint64_t(d->user_threads), sizeof(int32_t), alignof(int32_t)));
    return d->thread_slots == nullptr ? ZOR_DFT_MEMORY_ERROR : ZOR_DFT_OK;
  }
  d->kernel_direct = d->whole_unit;
  if (d->rank == 2) install_two_d<R>(d);
  const bool one = d->number_of_transforms == 1;
  const bool real = d->forward_domain == ZOR_DFT_REAL;
  if (d->rank == 1 && one) {
    if (real || !has_whole_kernels<R>(d))
      d->thread_limit = 1;
    else if (use_threads)
      lower_thread_limit(d, wanted, 2.0);
  } else if (d->rank == 2 && one) {
    d->two_d_flag_a = 1;
    d->two_d_flag_b = real && d->next_dim->length == 1 ? 0 : 1;
  } else if (use_threads) {
    lower_thread_limit(d, wanted, 1.0);
  }
  return ZOR_DFT_OK;
}

void copy_from_head(const descriptor* head, descriptor* r, zor_int index) {
  r->dim_index = index;
  r->input_offset = head->input_offset;
  r->output_offset = head->output_offset;
  r->input_distance = head->input_distance;
  r->output_distance = head->output_distance;
  r->precision = head->precision;
  r->forward_domain = head->forward_domain;
  r->complex_storage = head->complex_storage;
  r->real_storage = head->real_storage;
  r->conjugate_even_storage = head->conjugate_even_storage;
  r->placement = head->placement;
  r->packed_format = head->packed_format;
  r->number_of_transforms = head->number_of_transforms;
  r->ordering = head->ordering;
  r->transpose = head->transpose;
  r->reserved_a = head->reserved_a;
  r->reserved_b = head->reserved_b;
  r->reserved_c = head->reserved_c;
}

template <class R>
int32_t plan_general_complex(descriptor* r, line_plan kind) {
  r->general_plan = 1;
  install_complex<R>(r, kind);
  return too_long<R>(r->length) ? int32_t(ZOR_DFT_LENGTH_TOO_LARGE) : build_complex<R>(r, kind);
}

template <class R>
bool runs_as_two_d(const descriptor* head, const descriptor* r) {
  return head->ordering == ZOR_DFT_ORDERED && !is_split(head) && unit_strides(head) && head->rank == 1 &&
         too_long<R>(r->length) && r->log2_length >= two_dimensions_least_log2;
}

template <class R>
int32_t plan_complex_dimension(descriptor* head, descriptor* r) {
  for (auto field : fields<R>::whole_kernel) r->*field = nullptr;
  if (is_split(head)) return plan_general_complex<R>(r, plan_split);
  const bool ordered = head->ordering == ZOR_DFT_ORDERED;
  if (runs_as_two_d<R>(head, r)) {
    const int32_t status = init_1d_via_2d<R>(r);
    // The kernel takes one transform; a batch goes through the driver.
    head->kernel_direct = status == ZOR_DFT_OK && head->number_of_transforms == 1;
    if (status == ZOR_DFT_OK) return status;
  }
  const zor_int n = r->length;
  // Powers of two are in natural order whatever the setting.
  if (is_power_of_two(n) && n >= 2 && n <= fixed_kernel_limit<R>(head, r) && unit_strides(head)) {
    r->general_plan = 0;
    install_complex<R>(r, plan_fixed);
    return build_complex<R>(r, plan_fixed);
  }
  return plan_general_complex<R>(r, ordered ? plan_ordered : plan_unordered);
}

template <class R>
bool takes_fixed_real(const descriptor* head, zor_int n) {
  using limits = precision_limits<R>;
  return is_power_of_two(n) && n >= 2 && unit_strides(head) &&
         n <= (head->rank == 1 ? limits::fixed_real_1d : limits::fixed_real_nd);
}

// Dimension 0 of a real transform, and the two real columns of a packed spectrum along dimension 1.
template <class R>
int32_t plan_real_lines(const descriptor* head, descriptor* r) {
  r->nd_out_copy = 0;
  if (!install_real<R>(r)) return ZOR_DFT_NOT_IMPLEMENTED;
  if (too_long<R>(r->length)) return ZOR_DFT_LENGTH_TOO_LARGE;
  const bool fixed = r == head && takes_fixed_real<R>(head, r->length);
  if (r == head) r->general_plan = fixed ? 0 : 1;
  r->nd_out_copy =
      fixed && !in_place(head) && head->rank >= 2 &&
      (head->packed_format == ZOR_DFT_FORMAT_PADDED || head->packed_format == ZOR_DFT_FORMAT_HALF_COMPLEX);
  return build_real<R>(r);
}

template <class R>
int32_t plan_real_dimension(descriptor* head, descriptor* r) {
  const bool packed = head->conjugate_even_storage != ZOR_DFT_COMPLEX_COMPLEX;
  if (head->rank == 3 && packed) return ZOR_DFT_NOT_IMPLEMENTED;
  if (r == head) return plan_real_lines<R>(head, r);
  const int32_t status = plan_general_complex<R>(r, plan_ordered);
  if (status != ZOR_DFT_OK || !packed) return status;
  const zor_int complex_work = r->work_size;
  const int32_t real_status = plan_real_lines<R>(head, r);
  if (r->work_size < complex_work) r->work_size = complex_work;
  return real_status;
}

template <class R>
int32_t plan_dimensions(descriptor* head) {
  zor_int index = 0;
  for (descriptor* r = head; r != nullptr; r = r->next_dim) {
    copy_from_head(head, r, index++);
    const int32_t status = head->forward_domain == ZOR_DFT_REAL ? plan_real_dimension<R>(head, r)
                                                                : plan_complex_dimension<R>(head, r);
    if (status != ZOR_DFT_OK) {
      r->next_dim = nullptr;
      return status;
    }
    if (head->max_work_size < r->work_size) head->max_work_size = r->work_size;
    r->commit_status = ZOR_DFT_COMMITTED;
  }
  return ZOR_DFT_OK;
}

int32_t allocate_work(descriptor* d) {
  if (d->max_work_size == 0) return ZOR_DFT_OK;
  d->max_work_size = (d->max_work_size + work_boundary - 1) / work_boundary * work_boundary;
  const int32_t slices = d->user_threads >= 2 ? d->user_threads : d->thread_limit;
  d->work_buffer = zor_serv_zor_malloc(uint64_t(d->max_work_size) * uint64_t(slices), work_boundary);
  return d->work_buffer == nullptr ? ZOR_DFT_MEMORY_ERROR : ZOR_DFT_OK;
}

// Before planning: releases everything that an earlier commit built, but for the blocks that outlive a
// recommit.
void clear_for_commit(descriptor* d) {
  uncommit(d);
  release_breakdown(d);
  void* const whole = d->whole_work_buffer;
  void* const private_data = d->private_data;
  void* const a = d->retained_a;
  void* const b = d->retained_b;
  d->whole_work_buffer = d->private_data = d->retained_a = d->retained_b = nullptr;
  const auto private_free = d->private_free;
  zor_dft_free_allocated_buffers(d);
  d->whole_work_buffer = whole;
  d->private_data = private_data;
  d->private_free = private_free;
  d->retained_a = a;
  d->retained_b = b;
}

template <class R>
int32_t plan_all(descriptor* d, bool use_threads) {
  const int32_t status = decide_threads<R>(d, use_threads);
  if (status != ZOR_DFT_OK) return status;
  const bool left_to_whole_kernels = d->rank == 1 && d->forward_domain == ZOR_DFT_COMPLEX &&
                                     d->number_of_transforms <= 1 && d->thread_limit != 1;
  return left_to_whole_kernels ? int32_t(ZOR_DFT_OK) : plan_dimensions<R>(d);
}

int32_t commit_record(descriptor* d, bool use_threads) {
  link_records(d);
  clear_for_commit(d);
  int32_t status = is_double(d) ? plan_all<double>(d, use_threads) : plan_all<float>(d, use_threads);
  if (status == ZOR_DFT_OK) status = allocate_work(d);
  if (status != ZOR_DFT_OK) {
    zor_dft_free_allocated_buffers(d);
    d->commit_status = ZOR_DFT_UNCOMMITTED;
    return status;
  }
  d->nio_args = zor_dft_determine_nioargs(d);
  install_entries(d);
  d->commit_status = ZOR_DFT_COMMITTED;
  return ZOR_DFT_OK;
}

int32_t commit(descriptor** handle, bool use_threads) {
  if (!valid(handle)) return ZOR_DFT_BAD_DESCRIPTOR;
  return in_default_modes([=] { return commit_record(*handle, use_threads); });
}

}  // namespace
}  // namespace zor::dft

#define ROW_COMMIT(name) \
  extern "C" SIG_DFT_COMMIT(name) { return zor::dft::commit(handle, use_threads != 0); }
#include "zor/tables/dft_desc.inc"
