// SPDX-License-Identifier: MIT
// Compute functions: who runs the transform, by the flags and thread settings that commit left.
#include "dft/run/entries.h"

#include "dft/run/drivers.h"
#include "serv/imports.h"

namespace zor::dft {
namespace {

// Names of the threaded layer's entries, by real type, kind of data, direction and placement.
enum class par_data { complex, packed, mixed };
enum class par_place { in, out };
template <class R, par_data Data, direction Dir, par_place Place>
constexpr const char* par_name = nullptr;
#define ROW_PAR(name, data, R, direction, place) \
  template <>                                    \
  constexpr const char* par_name<R, par_data::data, direction, par_place::place> = #name;
#include "zor/tables/core_dft.inc"

template <class R, par_data Data, direction Dir, bool Out>
int32_t run_threaded(descriptor* d, void* in, void* out) {
  constexpr par_place place = Out ? par_place::out : par_place::in;
  static std::atomic<void*> slot{nullptr};
  void* f = slot.load(std::memory_order_acquire);
  if (f == nullptr) {
    f = core::zor_serv_load_thread_fun(par_name<R, Data, Dir, place>);
    slot.store(f, std::memory_order_release);
  }
  zor_dft_par_block block{d, in, Out ? out : nullptr};
  return reinterpret_cast<zor_dft_par>(f)(&block);
}

// The first free user-thread slot, or -1.
int32_t acquire_slot(descriptor* d) {
  int32_t slot = -1;
  core::zor_serv_lock();
  for (int32_t i = 0; i < d->user_threads && slot < 0; ++i)
    if (d->thread_slots[i] != 1) slot = i;
  if (slot >= 0) d->thread_slots[slot] = 1;
  core::zor_serv_unlock();
  return slot;
}

void release_slot(descriptor* d, int32_t slot) {
  core::zor_serv_lock();
  d->thread_slots[slot] = 0;
  core::zor_serv_unlock();
}

// Runs `body` with the work slice of a user-thread slot of its own.
template <class Body>
int32_t with_user_slot(descriptor* d, Body body) {
  const int32_t slot = acquire_slot(d);
  if (slot < 0) return ZOR_DFT_NO_USER_THREAD_SLOT;
  char* buffer = static_cast<char*>(d->work_buffer);
  const int32_t status = body(buffer == nullptr ? nullptr : buffer + slot * d->max_work_size);
  release_slot(d, slot);
  return status;
}

// Data moved to an address that whole-transform kernels take.
struct aligned_copy {
  void* original;
  void* data;  // null when memory was short
};
aligned_copy align_data(void* p, zor_int bytes) {
  if (reinterpret_cast<uintptr_t>(p) % 16 == 0) return {p, p};
  void* copy = zor_serv_allocate(uint64_t(bytes), 16);
  if (copy != nullptr) __builtin_memcpy(copy, p, size_t(bytes));
  return {p, copy};
}
void drop(const aligned_copy& a) {
  if (a.data != a.original) zor_serv_deallocate(a.data);
}

int32_t run_whole(descriptor* d, zor_dft_kernel whole, void* in, void* out, zor_int bytes) {
  if (d->private_data != nullptr) return whole(in, out, d, d->work_buffer);
  const aligned_copy x = align_data(in, bytes);
  if (x.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  const aligned_copy y = in == out ? x : align_data(out, bytes);
  int32_t status = ZOR_DFT_MEMORY_ERROR;
  if (y.data != nullptr) {
    status = whole(x.data, y.data, d, d->whole_work_buffer);
    if (y.data != out) __builtin_memcpy(out, y.data, size_t(bytes));
    if (in != out) drop(y);
  }
  drop(x);
  return status;
}

template <class R, direction Dir, bool Out>
int32_t complex_run(descriptor* d, void* in, void* out) {
  using F = fields<R>;
  const zor_dft_kernel kernel = d->*F::complex_kernel[Dir];
  const bool split = is_split(d);
  if (d->kernel_direct) return kernel(in, out, d, d->work_buffer);
  if (!Out && d->two_d_direct)
    return (d->*F::complex_2d)(in, &d->input_stride, &d->next_dim->input_stride, kernel,
                               d->next_dim->*F::complex_kernel[Dir], d, d->work_buffer);
  if (d->user_threads > 1)
    return with_user_slot(d, [&](void* work) {
      return d->whole_unit ? kernel(in, out, d, work)
                           : complex_driver<R, Dir, Out>(d, in, out, d->number_of_transforms, work);
    });
  if (d->thread_limit == 1 || split)
    return complex_driver<R, Dir, Out>(d, in, out, d->number_of_transforms, d->work_buffer);
  const zor_dft_kernel whole = d->*F::whole_kernel[Dir];
  if (d->number_of_transforms == 1 && whole != nullptr)
    return run_whole(d, whole, in, out, d->length * 2 * zor_int(sizeof(R)));
  return run_threaded<R, par_data::complex, Dir, Out>(d, in, out);
}

template <class E>
void* at_offset(void* p, zor_int offset) {
  return static_cast<E*>(p) + offset;
}

template <class R, direction Dir, bool Out>
int32_t complex_entry(descriptor* d, void* p0, void* p1, void* p2, void* p3) {
  if (!is_split(d)) {
    void* in = at_offset<complex_of<R>>(p0, d->input_offset);
    void* out = Out ? at_offset<complex_of<R>>(p1, d->output_offset) : in;
    return complex_run<R, Dir, Out>(d, in, out);
  }
  zor_dft_split in{at_offset<R>(p0, d->input_offset), at_offset<R>(p1, d->input_offset)};
  if constexpr (!Out) return complex_run<R, Dir, Out>(d, &in, &in);
  zor_dft_split out{at_offset<R>(p2, d->output_offset), at_offset<R>(p3, d->output_offset)};
  return complex_run<R, Dir, Out>(d, &in, &out);
}

// A real transform's driver by storage and placement; `out` is the place of the output in either placement.
template <class R, direction Dir, bool Out>
int32_t real_driver(descriptor* d, void* in, void* out, void* work) {
  if (d->conjugate_even_storage == ZOR_DFT_COMPLEX_REAL)
    return packed_driver<R, Dir, Out>(d, in, Out ? out : in, d->number_of_transforms, work);
  if constexpr (Out) return mixed_driver<R, Dir>(d, in, out, d->number_of_transforms, work);
  return mixed_driver_in_place<R, Dir>(d, in, d->number_of_transforms, work);
}

template <class R, direction Dir, bool Out>
int32_t real_run(descriptor* d, void* in, void* out) {
  using F = fields<R>;
  const bool packed = d->conjugate_even_storage == ZOR_DFT_COMPLEX_REAL;
  const zor_dft_kernel kernel = d->*F::real_kernel[Dir];
  if (d->kernel_direct) return kernel(in, out, d, d->work_buffer);
  if (d->two_d_direct) {
    descriptor* columns = d->next_dim;
    const auto stride = Out ? &descriptor::output_stride : &descriptor::input_stride;
    return (d->*F::real_2d[Dir])(in, out, &d->input_stride, &columns->input_stride, &(d->*stride),
                                 &(columns->*stride), kernel, columns->*F::complex_kernel[Dir], d,
                                 d->work_buffer);
  }
  if (d->user_threads > 1)
    return with_user_slot(d, [&](void* work) {
      return d->whole_unit ? kernel(in, out, d, work) : real_driver<R, Dir, Out>(d, in, out, work);
    });
  if (d->thread_limit == 1) return real_driver<R, Dir, Out>(d, in, out, d->work_buffer);
  return packed ? run_threaded<R, par_data::packed, Dir, Out>(d, in, out)
                : run_threaded<R, par_data::mixed, Dir, Out>(d, in, out);
}

template <class R, direction Dir, bool Out>
int32_t real_entry(descriptor* d, void* p0, void* p1, void*, void*) {
  const bool packed = d->conjugate_even_storage == ZOR_DFT_COMPLEX_REAL;
  const zor_int complex_unit = packed ? 1 : 2;
  const zor_int in_offset = d->input_offset * (Dir == backward ? complex_unit : 1);
  const zor_int out_offset = d->output_offset * (Dir == forward ? complex_unit : 1);
  void* in = at_offset<R>(p0, in_offset);
  void* out = Out ? at_offset<R>(p1, out_offset) : packed ? in : at_offset<R>(p0, out_offset);
  return real_run<R, Dir, Out>(d, in, out);
}

// By precision (double first), domain (complex first) and placement.
struct entry_pair {
  zor_dft_compute forward, backward;
};
template <class R, bool Out>
constexpr entry_pair complex_pair{complex_entry<R, forward, Out>, complex_entry<R, backward, Out>};
template <class R, bool Out>
constexpr entry_pair real_pair{real_entry<R, forward, Out>, real_entry<R, backward, Out>};
constexpr entry_pair entries[2][2][2] = {{{complex_pair<double, false>, complex_pair<double, true>},
                                          {real_pair<double, false>, real_pair<double, true>}},
                                         {{complex_pair<float, false>, complex_pair<float, true>},
                                          {real_pair<float, false>, real_pair<float, true>}}};

}  // namespace

void install_entries(descriptor* d) {
  const entry_pair& pair = entries[!is_double(d)][d->forward_domain == ZOR_DFT_REAL][!in_place(d)];
  d->compute_forward = pair.forward;
  d->compute_backward = pair.backward;
}

}  // namespace zor::dft
