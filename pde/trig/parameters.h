// SPDX-License-Identifier: MIT
// What the parts of the trigonometric transforms share: entries of the parameter arrays, events, statuses.
#pragma once

#include <type_traits>

#include "zor/types.h"

namespace zor::pde {

enum trig_entry : int {
  trig_n = 0,
  trig_errors = 1,
  trig_warnings = 2,
  trig_type = 5,
  trig_status = 6,
  trig_makes_handle = 7,
  trig_c_messages = 8,
  trig_threads = 9,
  trig_raw = 10,
};

enum trig_event : zor_int {
  event_commit_blocked = 0,
  event_bad_n = 1,
  event_bad_type = 3,
  event_zero_divisor = 4,
  event_run_blocked = 5,
  event_n_lost = 6,
  event_negative_tolerance = 300,
  event_sine_first = 302,
  event_sine_last = 303,
  event_cosine_last = 307,
  event_negative_threads = 308,
  event_staggered_sine_first = 309,
  event_dft_failed = 1001,
};

enum solver_status : zor_int {
  status_done = 0,
  status_bad_argument = -100,
  status_zero_divisor = -200,
  status_transform_failed = -1000,
  status_blocked = -10000,
  status_unfinished = -99999,
};

template <class T>
T default_tolerance(zor_int n) {
  return std::is_same_v<T, float> ? T(float(n) * 1e-5f) : T(double(n) * 1e-12);
}

template <class T>
void report_trig(trig_event event, const zor_int* ipar, const T* dpar, const char* text);

}  // namespace zor::pde
