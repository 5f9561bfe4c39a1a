// SPDX-License-Identifier: MIT
// The stages of a transform: init, commit, forward, backward, free.
#include "pde/trig/parameters.h"

#include <cstdio>

#include "dft/engine/roots/trig.h"
#include "pde/trig/batch.h"
#include "pde/trig/steps.h"
#include "serv/control.h"
#include "zor/dft_kern.h"
#include "zor/signatures/trig.h"

namespace zor::pde {
namespace {

using descriptor = ZorDftDescriptor;

void finish(zor_int status, zor_int* ipar, zor_int* stat) { *stat = ipar[trig_status] = status; }

template <class T>
void report_error(trig_event event, const zor_int* ipar, const T* dpar, const char* text = "") {
  if (ipar[trig_errors] != 0) report_trig(event, ipar, dpar, text);
}
template <class T>
void report_warning(trig_event event, const zor_int* ipar, const T* dpar, const char* text = "") {
  if (ipar[trig_warnings] != 0) report_trig(event, ipar, dpar, text);
}
// The text of a failed transform is asked for with no room, so it stays empty.
template <class T>
void report_dft(int32_t status, const zor_int* ipar, const T* dpar) {
  char text[1] = "";
  zor_dft_status_text(text, 0, status);
  report_error(event_dft_failed, ipar, dpar, text);
}

template <class T>
void init(zor_int n, zor_int type, bool stamp, zor_int* ipar, T* dpar, zor_int* stat) {
  if (stamp) finish(status_unfinished, ipar, stat);
  ipar[trig_n] = n;
  ipar[trig_errors] = ipar[trig_warnings] = 1;
  ipar[trig_type] = type;
  ipar[trig_makes_handle] = ipar[trig_c_messages] = ipar[trig_threads] = 1;
  ipar[trig_raw] = 0;
  dpar[0] = default_tolerance<T>(n);
  finish(status_done, ipar, stat);
}

// Whether an end that the transform takes for zero is larger than the tolerance.
template <class T>
bool end_too_large(T end, trig_event event, const zor_int* ipar, const T* dpar) {
  const T magnitude = end < T(0) ? -end : end;
  if (!(magnitude > dpar[0])) return false;
  char text[40];
  std::snprintf(text, sizeof text, "%e", double(magnitude));
  report_warning(event, ipar, dpar, text);
  return true;
}

template <class T>
T sine(T angle) {
  return T(cosine_and_sine_of(double(angle)).sine);
}
template <class T>
void put_cosine_and_sine(T angle, T* pair) {
  const cosine_and_sine w = cosine_and_sine_of(double(angle));
  pair[0] = T(w.cosine);
  pair[1] = T(w.sine);
}

// Angles of types 0 and 1 are multiples of pi / n, those of the others sums of it: both fix the last bits.
template <class T>
void fill_tables(zor_int n, zor_int type, T step, T* dpar) {
  const zor_int h = n / 2;
  if (type == 0) {
    for (zor_int k = 1; k <= h; ++k) dpar[k + 1] = sine(T(k) * step);
    return;
  }
  T angle = 0;
  for (zor_int k = 1; k <= h; ++k) {
    angle = angle + step;
    put_cosine_and_sine(type == 1 ? T(k) * step : angle, dpar + 2 * k);
  }
  const auto add_sines = [](T start, T each, zor_int count, T* table) {
    T sum = start;
    for (zor_int i = 0; i < count; ++i) {
      sum = sum + each;
      table[i] = sine(sum);
    }
  };
  if (type == 2 || type == 3) add_sines(T(-0.5) * step, step, h, dpar + n + 2);
  if (type >= 4) {
    add_sines(T(-0.25) * step, T(0.5) * step, n, dpar + n + 2);
    add_sines(T(-0.5) * step, step, h, dpar + 2 * n + 2);
  }
}

int32_t create(descriptor** handle, zor_int n, double*) {
  return zor_dft_create_1d_d(handle, double(ZOR_DFT_DOUBLE), ZOR_DFT_REAL, 1, n);
}
int32_t create(descriptor** handle, zor_int n, float*) {
  return zor_dft_create_1d_s(handle, float(ZOR_DFT_SINGLE), ZOR_DFT_REAL, 1, n);
}

template <class T>
int32_t make_handle(descriptor** handle, zor_int n, zor_int threads) {
  int32_t status = create(handle, n, static_cast<T*>(nullptr));
  if (status == ZOR_DFT_OK) status = zor_dft_set_value(*handle, ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_SECOND);
  if (status == ZOR_DFT_OK && threads > 1)
    status = zor_dft_set_value(*handle, ZOR_DFT_NUMBER_OF_USER_THREADS, threads);
  if (status == ZOR_DFT_OK) status = zor_dft_commit(handle);
  if (status == ZOR_DFT_OK && !attach_kernels(*handle)) status = ZOR_DFT_MEMORY_ERROR;
  return status;
}

template <class T>
void commit(const T* f, descriptor** handle, zor_int* ipar, T* dpar, zor_int* stat) {
  if (ipar[trig_status] != 0) {
    report_error(event_commit_blocked, ipar, dpar);
    return finish(status_blocked, ipar, stat);
  }
  const zor_int n = ipar[trig_n], type = ipar[trig_type];
  if (n < 2) {
    report_error(event_bad_n, ipar, dpar);
    return finish(status_bad_argument, ipar, stat);
  }
  if (uint64_t(type) > 5) {
    report_error(event_bad_type, ipar, dpar);
    return finish(status_bad_argument, ipar, stat);
  }
  bool large_end = false, changed = false;
  if (type == 0 || type == 2 || type == 3) {
    if (dpar[0] < T(0)) {
      report_warning(event_negative_tolerance, ipar, dpar);
      dpar[0] = default_tolerance<T>(n);
      changed = true;
    }
    if (ipar[trig_raw] == 0) {
      if (type == 0) {
        large_end = end_too_large(f[0], event_sine_first, ipar, dpar);
        if (end_too_large(f[n], event_sine_last, ipar, dpar)) large_end = true;
      } else if (type == 2) {
        large_end = end_too_large(f[n], event_cosine_last, ipar, dpar);
      } else {
        large_end = end_too_large(f[0], event_staggered_sine_first, ipar, dpar);
      }
    }
  }
  if (ipar[trig_makes_handle] != 0) {
    in_default_modes([&] {
      fill_tables(n, type, T(3.14159265358979323846) / T(n), dpar);
      return 0;
    });
  }
  if (ipar[trig_threads] < 0) {
    report_warning(event_negative_threads, ipar, dpar);
    ipar[trig_threads] = 1;
    changed = true;
  }
  if (ipar[trig_makes_handle] != 0) {
    const int32_t status = make_handle<T>(handle, n, ipar[trig_threads]);
    if (status != ZOR_DFT_OK) {
      report_dft(status, ipar, dpar);
      return finish(status_transform_failed, ipar, stat);
    }
  }
  finish((large_end ? 1 : 0) + (changed ? 10 : 0), ipar, stat);
}

template <class T>
void scale(T* f, zor_int first, zor_int last, T factor) {
  for (zor_int j = first; j <= last; ++j) f[j] = f[j] * factor;
}

template <class T>
void run(bool forward, T* f, descriptor** handle, zor_int* ipar, const T* dpar, zor_int* stat) {
  if (ipar[trig_status] != 0) {
    report_error(event_run_blocked, ipar, dpar);
    return finish(status_blocked, ipar, stat);
  }
  const zor_int n = ipar[trig_n], type = ipar[trig_type];
  const bool raw = ipar[trig_raw] != 0;
  if (uint64_t(type) > 5) {
    report_error(event_bad_type, ipar, dpar);
    return finish(status_bad_argument, ipar, stat);
  }
  T* const x = type == 3 && !raw ? f + 1 : f;
  using steps = trig_steps<T, T, 1>;
  const steps s{{x}, dpar, n};
  // An n that has been spoilt since commit leaves the passes no elements.
  const bool has_elements = n > 0;
  const T carried = has_elements ? s.before(type, forward) : T(0);
  const int32_t dft_status =
      type < 2 || !forward ? zor_dft_compute_forward(handle, x) : zor_dft_compute_backward(handle, x);
  if (dft_status != ZOR_DFT_OK) {
    report_dft(dft_status, ipar, dpar);
    return finish(status_transform_failed, ipar, stat);
  }
  if (has_elements && !s.after(type, forward, carried)) {
    report_error(event_zero_divisor, ipar, dpar);
    return finish(status_zero_divisor, ipar, stat);
  }
  if (forward && ipar[trig_n] == 0) {
    report_error(event_n_lost, ipar, dpar);
    return finish(status_blocked, ipar, stat);
  }
  if (!raw) {
    const zor_int first = type == 0 && !forward ? 1 : 0;
    const zor_int last = type >= 4 || (type == 0 && !forward) ? n - 1 : n;
    scale(f, first, last, forward ? T(1) / T(n) : T(0.5));
  }
  finish(status_done, ipar, stat);
}

void free_transform(descriptor** handle, zor_int* ipar, zor_int* stat) {
  finish(status_unfinished, ipar, stat);
  const int32_t status = zor_dft_free(handle);
  if (status != ZOR_DFT_OK) {
    const double no_tolerance = 0;
    report_dft(status, ipar, &no_tolerance);
    return finish(status_transform_failed, ipar, stat);
  }
  finish(status_done, ipar, stat);
}

}  // namespace
}  // namespace zor::pde

extern "C" {
#define ROW_TRIG_INIT(name, T, stamp) \
  SIG_TRIG_INIT(name, T) { zor::pde::init<T>(*n, *type, stamp, ipar, dpar, stat); }
#define ROW_TRIG_COMMIT(name, T) \
  SIG_TRIG_COMMIT(name, T) { zor::pde::commit<T>(f, handle, ipar, dpar, stat); }
#define ROW_TRIG_FORWARD(name, T) \
  SIG_TRIG_RUN(name, T) { zor::pde::run<T>(true, f, handle, ipar, dpar, stat); }
#define ROW_TRIG_BACKWARD(name, T) \
  SIG_TRIG_RUN(name, T) { zor::pde::run<T>(false, f, handle, ipar, dpar, stat); }
#define ROW_TRIG_FREE(name) \
  SIG_TRIG_FREE(name) { zor::pde::free_transform(handle, ipar, stat); }
#include "zor/tables/pdett.inc"
}
