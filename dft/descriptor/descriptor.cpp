// SPDX-License-Identifier: MIT
// Creation, configuration and release of descriptors.
#include "dft/descriptor/descriptor.h"

#include <cstdarg>
#include <cstring>

#include "dft/engine/plan/plan.h"
#include "dft/thresholds.h"
#include "serv/imports.h"

namespace zor::dft {
namespace {

zor_int floor_log2(zor_int n) {
  zor_int log = 0;
  while (n >>= 1) ++log;
  return log;
}

void set_defaults(descriptor* r, int32_t precision, int32_t domain) {
  r->magic = ZOR_DFT_MAGIC;
  r->commit_status = ZOR_DFT_UNCOMMITTED;
  r->forward_domain = domain;
  r->precision = precision;
  r->number_of_transforms = 1;
  r->complex_storage = ZOR_DFT_COMPLEX_COMPLEX;
  r->real_storage = ZOR_DFT_REAL_REAL;
  r->conjugate_even_storage = ZOR_DFT_COMPLEX_REAL;
  r->placement = ZOR_DFT_INPLACE;
  r->packed_format = ZOR_DFT_FORMAT_PADDED;
  r->ordering = ZOR_DFT_ORDERED;
  r->transpose = ZOR_DFT_NONE;
  r->forward_scale_s = r->backward_scale_s = 1.0f;
  r->forward_scale_d = r->backward_scale_d = 1.0;
  r->user_threads = 1;
  r->thread_limit = 1;
}

void fill_records(descriptor* head, int32_t precision, int32_t domain, zor_int rank, const zor_int* lengths) {
  zor_int size = 1, half_size = 1, longest = 0;
  for (zor_int i = 0; i < rank; ++i) {
    descriptor* r = head + i;
    set_defaults(r, precision, domain);
    r->rank = rank;
    r->dim_index = i;
    r->length = lengths[i];
    r->half_length = i == 0 ? lengths[i] / 2 + 1 : lengths[i];
    r->log2_length = floor_log2(lengths[i]);
    r->general_plan = is_power_of_two(lengths[i]) ? 0 : 1;
    r->input_stride = r->output_stride = size;
    size *= r->length;
    half_size *= r->half_length;
    if (lengths[i] > longest) longest = lengths[i];
  }
  for (zor_int i = 0; i < rank; ++i) {
    head[i].total_size = size;
    head[i].total_half_size = half_size;
    head[i].max_length = longest;
  }
  link_records(head);
}

// All records of a descriptor. Their chain does not do, since a failed commit leaves it cut.
template <class Set>
void for_each_record(descriptor* head, Set set) {
  for (zor_int i = 0; i < head->rank; ++i) set(head + i);
}

// A scale goes to the first record long enough to be transformed, so that data is scaled once.
template <class Set>
void place_scale(descriptor* head, double value, Set set) {
  const descriptor* carrier = head;
  while (carrier < head + head->rank && carrier->length < 2) ++carrier;
  if (carrier == head + head->rank) carrier = head;
  for_each_record(head, [&](descriptor* r) { set(r, r == carrier ? value : 1.0); });
}

void set_scale(descriptor* d, int32_t parameter, double value) {
  if (parameter == ZOR_DFT_FORWARD_SCALE) {
    place_scale(d, value, [](descriptor* r, double s) {
      r->forward_scale_d = s;
      r->forward_scale_s = float(s);
    });
  } else {
    place_scale(d, value, [](descriptor* r, double s) {
      r->backward_scale_d = s;
      r->backward_scale_s = float(s);
    });
  }
}

int32_t set_strides(descriptor* d, const zor_int* strides, zor_int descriptor::*offset,
                    zor_int descriptor::*stride) {
  if (strides == nullptr) return ZOR_DFT_BAD_VALUE;
  d->*offset = strides[0];
  zor_int at = d->rank;
  for_each_record(d, [&](descriptor* r) { r->*stride = strides[at--]; });
  return ZOR_DFT_OK;
}

// An enumerated setting: where it is stored, the values taken, and those that are refused as not implemented.
// Lists end with a zero or where they are full.
struct enumerated {
  int32_t parameter;
  int32_t descriptor::*field;
  int32_t taken[4], refused[2];
};
constexpr int32_t forward_scrambled = 50;  // an ordering without a name in the interface
constexpr enumerated enumerated_settings[] = {
    {ZOR_DFT_COMPLEX_STORAGE,
     &descriptor::complex_storage,
     {ZOR_DFT_COMPLEX_COMPLEX, ZOR_DFT_REAL_REAL},
     {ZOR_DFT_COMPLEX_REAL, ZOR_DFT_REAL_COMPLEX}},
    {ZOR_DFT_REAL_STORAGE, &descriptor::real_storage, {ZOR_DFT_REAL_REAL}, {ZOR_DFT_REAL_COMPLEX}},
    {ZOR_DFT_CONJUGATE_EVEN_STORAGE,
     &descriptor::conjugate_even_storage,
     {ZOR_DFT_COMPLEX_COMPLEX, ZOR_DFT_COMPLEX_REAL},
     {ZOR_DFT_REAL_COMPLEX, ZOR_DFT_REAL_REAL}},
    {ZOR_DFT_PLACEMENT, &descriptor::placement, {ZOR_DFT_INPLACE, ZOR_DFT_NOT_INPLACE}, {}},
    {ZOR_DFT_ORDERING,
     &descriptor::ordering,
     {ZOR_DFT_ORDERED, ZOR_DFT_BACKWARD_SCRAMBLED},
     {forward_scrambled}},
    {ZOR_DFT_PACKED_FORMAT,
     &descriptor::packed_format,
     {ZOR_DFT_FORMAT_PADDED, ZOR_DFT_FORMAT_TAIL, ZOR_DFT_FORMAT_SECOND, ZOR_DFT_FORMAT_HALF_COMPLEX},
     {}},
};
// Parameters that the interface numbers and does not implement.
constexpr int32_t parameters_without_effect[] = {6, 16, 17, 24, 25};

template <int N>
bool is_listed(const int32_t (&list)[N], int32_t value) {
  for (int32_t listed : list)
    if (listed != 0 && listed == value) return true;
  return false;
}

int32_t set_enumerated(descriptor* d, const enumerated& e, int32_t value) {
  if (is_listed(e.refused, value)) return ZOR_DFT_NOT_IMPLEMENTED;
  if (!is_listed(e.taken, value)) return ZOR_DFT_BAD_VALUE;
  if (value == ZOR_DFT_BACKWARD_SCRAMBLED && d->forward_domain == ZOR_DFT_REAL)
    return ZOR_DFT_NOT_IMPLEMENTED;
  for_each_record(d, [&](descriptor* r) { r->*e.field = value; });
  if (e.parameter == ZOR_DFT_CONJUGATE_EVEN_STORAGE && value == ZOR_DFT_COMPLEX_COMPLEX)
    for_each_record(d, [](descriptor* r) { r->packed_format = ZOR_DFT_FORMAT_HALF_COMPLEX; });
  return ZOR_DFT_OK;
}

int32_t set_integer(descriptor* d, int32_t parameter, zor_int value) {
  for_each_record(d, [&](descriptor* r) {
    switch (parameter) {
      case ZOR_DFT_NUMBER_OF_TRANSFORMS:
        r->number_of_transforms = value;
        break;
      case ZOR_DFT_INPUT_DISTANCE:
        r->input_distance = value;
        break;
      case ZOR_DFT_OUTPUT_DISTANCE:
        r->output_distance = value;
        break;
      default:
        r->user_threads = int32_t(value);
        break;
    }
  });
  return ZOR_DFT_OK;
}

int32_t set_value(descriptor* d, int32_t parameter, va_list args) {
  if (parameter == ZOR_DFT_DESCRIPTOR_NAME) {
    const char* text = va_arg(args, const char*);
    if (text == nullptr) return ZOR_DFT_BAD_VALUE;
    std::strncpy(d->name, text, sizeof d->name);
    d->name[sizeof d->name - 1] = '\0';
    return ZOR_DFT_OK;
  }
  if (parameter == ZOR_DFT_FORWARD_SCALE || parameter == ZOR_DFT_BACKWARD_SCALE) {
    set_scale(d, parameter, va_arg(args, double));
    uncommit(d);
    return ZOR_DFT_OK;
  }
  uncommit(d);
  d->whole_unit = 0;
  for (const enumerated& e : enumerated_settings)
    if (e.parameter == parameter) return set_enumerated(d, e, va_arg(args, int));
  switch (parameter) {
    case ZOR_DFT_NUMBER_OF_TRANSFORMS:
    case ZOR_DFT_INPUT_DISTANCE:
    case ZOR_DFT_OUTPUT_DISTANCE:
    case ZOR_DFT_NUMBER_OF_USER_THREADS:
      return set_integer(d, parameter, va_arg(args, zor_int));
    case ZOR_DFT_INPUT_STRIDES:
      return set_strides(d, va_arg(args, const zor_int*), &descriptor::input_offset,
                         &descriptor::input_stride);
    case ZOR_DFT_OUTPUT_STRIDES:
      return set_strides(d, va_arg(args, const zor_int*), &descriptor::output_offset,
                         &descriptor::output_stride);
    default:
      return is_listed(parameters_without_effect, parameter) ? ZOR_DFT_NOT_IMPLEMENTED : ZOR_DFT_BAD_VALUE;
  }
}

// Commits of the threaded layer: one row a kind of transform, its routine looked up by name on the first
// call.
template <class Tag>
int32_t commit_through_threaded_layer(descriptor** handle) {
  static std::atomic<void*> slot{nullptr};
  void* f = slot.load(std::memory_order_acquire);
  if (f == nullptr) {
    f = core::zor_serv_load_thread_fun(Tag::name);
    slot.store(f, std::memory_order_release);
  }
  return reinterpret_cast<zor_dft_commit_fn>(f)(handle);
}

struct threaded_commit {
  int32_t precision, domain;
  bool several_dimensions;
  zor_dft_commit_fn commit;
};
#define ROW_OMP(routine, ...)                     \
  struct tag_##routine {                          \
    static constexpr const char* name = #routine; \
  };
#include "zor/tables/core_dft.inc"
#define ROW_OMP(routine, precision, domain, several, apply, commit) \
  {precision, domain, several, commit_through_threaded_layer<tag_##routine>},
constexpr threaded_commit threaded_commits[] = {
#include "zor/tables/core_dft.inc"
};

int32_t create_front_end(descriptor** handle, int32_t precision, int32_t domain, zor_int rank,
                         const zor_int* lengths) {
  const int32_t status = zor_dft_create_descriptor_md(handle, precision, domain, rank, lengths);
  if (status != ZOR_DFT_OK) return status;
  for (const threaded_commit& row : threaded_commits)
    if (row.precision == precision && row.domain == domain && row.several_dimensions == (rank > 1))
      (*handle)->commit_fn = row.commit;
  return ZOR_DFT_OK;
}

bool domain_known(int32_t domain) { return domain == ZOR_DFT_COMPLEX || domain == ZOR_DFT_REAL; }

int32_t create_1d(descriptor** handle, double precision, int32_t wanted, int32_t domain, zor_int rank,
                  zor_int length) {
  if (handle == nullptr) return ZOR_DFT_BAD_VALUE;
  if (precision != double(wanted) || !domain_known(domain) || rank != 1 || length < 1)
    return ZOR_DFT_BAD_ARGUMENT;
  return create_front_end(handle, wanted, domain, 1, &length);
}

int32_t create_nd(descriptor** handle, int32_t precision, int32_t domain, zor_int rank,
                  const zor_int* lengths) {
  if (handle == nullptr) return ZOR_DFT_BAD_VALUE;
  if (rank < 1 || rank > most_dimensions || !domain_known(domain) || lengths == nullptr)
    return ZOR_DFT_BAD_ARGUMENT;
  zor_int first_to_last[most_dimensions];
  for (zor_int i = 0; i < rank; ++i) {
    if (lengths[i] < 1) return ZOR_DFT_BAD_ARGUMENT;
    first_to_last[rank - 1 - i] = lengths[i];
  }
  return create_front_end(handle, precision, domain, rank, first_to_last);
}

int32_t compute(descriptor** handle, zor_dft_compute descriptor::*direction, void* data, va_list args) {
  if (handle == nullptr || *handle == nullptr) return ZOR_DFT_BAD_DESCRIPTOR;
  descriptor* d = *handle;
  if (d->*direction == nullptr) {
    if (d->magic != ZOR_DFT_MAGIC) return ZOR_DFT_BAD_DESCRIPTOR;
    return d->nio_args == 1 ? ZOR_DFT_BAD_ARGUMENT : ZOR_DFT_BAD_VALUE;
  }
  void* p[4] = {data, nullptr, nullptr, nullptr};
  for (int32_t i = 1; i < d->nio_args; ++i) p[i] = va_arg(args, void*);
  return (d->*direction)(d, p[0], p[1], p[2], p[3]);
}

void release_plans(descriptor* r) {
  ZorDftPlan** const plans[flavour_count] = {&r->plan_c,           &r->plan_z,          &r->plan_cs,
                                             &r->plan_zs,          &r->plan_s,          &r->plan_d,
                                             &r->plan_c_unordered, &r->plan_z_unordered};
  for (int f = 0; f < flavour_count; ++f) {
    if (*plans[f] != nullptr) engines[f].release(reinterpret_cast<plan*>(*plans[f]));
    *plans[f] = nullptr;
  }
}

void release_record(descriptor* r) {
  release_plans(r);
  if (r->private_data != nullptr && r->private_free != nullptr) r->private_free(r);
  r->private_data = nullptr;
  r->private_free = nullptr;
  for (void** block :
       {&r->retained_a, &r->retained_b, &r->extra_a, &r->extra_b, &r->work_buffer, &r->whole_work_buffer}) {
    zor_serv_zor_free(*block);
    *block = nullptr;
  }
  zor_serv_zor_free(r->thread_slots);
  r->thread_slots = nullptr;
  r->work_size = 0;
  r->max_work_size = 0;
}

}  // namespace

void link_records(descriptor* head) {
  for (zor_int i = 0; i < head->rank; ++i) {
    head[i].prev_dim = i == 0 ? nullptr : head + i - 1;
    head[i].next_dim = i + 1 == head->rank ? nullptr : head + i + 1;
  }
}

}  // namespace zor::dft

using namespace zor::dft;

extern "C" {

int32_t zor_dft_create_descriptor_md(descriptor** handle, int32_t precision, int32_t domain, zor_int rank,
                                     const zor_int* lengths) {
  auto* head = static_cast<descriptor*>(zor_serv_zor_calloc(uint64_t(rank), sizeof(descriptor), 16));
  if (head == nullptr) return ZOR_DFT_MEMORY_ERROR;
  if (domain == ZOR_DFT_REAL && rank > most_real_dimensions) {
    zor_serv_zor_free(head);
    return ZOR_DFT_NOT_IMPLEMENTED;
  }
  fill_records(head, precision, domain, rank, lengths);
  *handle = head;
  return ZOR_DFT_OK;
}

int32_t zor_dft_determine_nioargs(const descriptor* d) {
  return (d->placement == ZOR_DFT_NOT_INPLACE ? 2 : 1) * (is_split(d) ? 2 : 1);
}

int32_t zor_dft_free_allocated_buffers(descriptor* d) {
  descriptor* last = d;
  while (last->next_dim != nullptr) last = last->next_dim;
  for (descriptor* r = last; r != nullptr; r = r->prev_dim) release_record(r);
  return ZOR_DFT_OK;
}

int32_t zor_dft_create_1d_d(descriptor** handle, double precision, int32_t domain, zor_int rank,
                            zor_int length) {
  return create_1d(handle, precision, ZOR_DFT_DOUBLE, domain, rank, length);
}

int32_t zor_dft_create_1d_s(descriptor** handle, float precision, int32_t domain, zor_int rank,
                            zor_int length) {
  return create_1d(handle, precision, ZOR_DFT_SINGLE, domain, rank, length);
}

int32_t zor_dft_create_nd_d(descriptor** handle, int32_t domain, zor_int rank, const zor_int* lengths) {
  return create_nd(handle, ZOR_DFT_DOUBLE, domain, rank, lengths);
}

int32_t zor_dft_create_nd_s(descriptor** handle, int32_t domain, zor_int rank, const zor_int* lengths) {
  return create_nd(handle, ZOR_DFT_SINGLE, domain, rank, lengths);
}

int32_t zor_dft_commit(descriptor** handle) {
  if (handle == nullptr || *handle == nullptr) return ZOR_DFT_BAD_DESCRIPTOR;
  descriptor* d = *handle;
  if (d->commit_fn == nullptr)
    return d->magic == ZOR_DFT_MAGIC ? ZOR_DFT_ENGINE_ERROR : ZOR_DFT_BAD_DESCRIPTOR;
  const int32_t status = d->commit_fn(handle);
  d->nio_args = zor_dft_determine_nioargs(d);
  return status;
}

int32_t zor_dft_set_value(descriptor* d, int32_t parameter, ...) {
  if (!valid(d)) return ZOR_DFT_BAD_DESCRIPTOR;
  va_list args;
  va_start(args, parameter);
  const int32_t status = set_value(d, parameter, args);
  va_end(args);
  return status;
}

int32_t zor_dft_free(descriptor** handle) {
  if (handle == nullptr || *handle == nullptr) return ZOR_DFT_BAD_VALUE;
  descriptor* d = *handle;
  if (d->magic != ZOR_DFT_MAGIC) return ZOR_DFT_BAD_DESCRIPTOR;
  link_records(d);
  zor_dft_free_allocated_buffers(d);
  release_breakdown(d);
  d->magic = 0;
  zor_serv_zor_free(d);
  *handle = nullptr;
  return ZOR_DFT_OK;
}

int32_t zor_dft_compute_forward(descriptor** handle, void* data, ...) {
  va_list args;
  va_start(args, data);
  const int32_t status = compute(handle, &descriptor::compute_forward, data, args);
  va_end(args);
  return status;
}

int32_t zor_dft_compute_backward(descriptor** handle, void* data, ...) {
  va_list args;
  va_start(args, data);
  const int32_t status = compute(handle, &descriptor::compute_backward, data, args);
  va_end(args);
  return status;
}

void zor_dft_status_text(char* buffer, int32_t length, int32_t status) {
  constexpr int32_t first_message = 761;
  constexpr int32_t other_message = 771;
  const int32_t number = status >= 0 && status <= 9 ? first_message + status : other_message;
  const char* text = zor::core::zor_serv_zor_get_msg(number, 0);
  int32_t i = 0;
  if (text != nullptr)
    for (; i < length && text[i] != '\0'; ++i) buffer[i] = text[i];
  for (; i < length; ++i) buffer[i] = ' ';
}

}  // extern "C"
