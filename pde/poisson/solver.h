// SPDX-License-Identifier: MIT
// What the solvers share: entries of the parameter arrays, events, the set-up of a transform, passes over a
// grid.
#pragma once

#include <type_traits>

#include "pde/trig/parameters.h"
#include "zor/dft_kern.h"
#include "zor/types.h"

namespace zor::pde {

enum solver_entry : int {
  at_status = 0,
  at_errors = 1,
  at_warnings = 2,
  at_sides = 3,  // code of the sides, then their kinds
  at_kinds = 4,
  at_intervals = 10,
  at_tables = 13,  // to 20: first and last entries of tables, counted from 1
  at_c_messages = 21,
  at_threads = 22,
  at_no_memory_messages = 29,
  at_first_transform = 40,
  at_second_transform = 60,
};
// Entries of the real array.
enum solver_real : int { real_q = 3, real_tolerance = 4, real_tables = 5 };

inline constexpr zor_int status_no_eigenvalues = -2, status_no_memory = -3;

// Commit's steps: a digit 9 in ipar[0] leaves one out.
struct commit_steps {
  bool known, set_up, scale, boundary;
};
constexpr commit_steps steps_of(zor_int selector) {
  const bool known = selector >= 0 && selector <= 999 && (selector % 10 == 0 || selector % 10 == 9) &&
                     (selector / 10 % 10 == 0 || selector / 10 % 10 == 9) &&
                     (selector / 100 == 0 || selector / 100 == 9);
  return {known, selector % 10 != 9, selector / 100 != 9, selector / 10 % 10 != 9};
}

// A call's arrays and how it ends.
template <class T>
struct solver {
  zor_int* ipar;
  T* dpar;
  zor_int* stat;

  void finish(zor_int status) const { *stat = ipar[at_status] = status; }
  void report(zor_int code, bool c_messages) const;
  void report_error(zor_int code) const {
    if (ipar[at_errors] != 0) report(code, ipar[at_c_messages] != 0);
  }
  void report_warning(zor_int code) const {
    if (ipar[at_warnings] != 0) report(code, ipar[at_c_messages] != 0);
  }
  // Reports the error and ends with the status; false, so that a check can return it.
  bool fail(zor_int code, zor_int status) const {
    report_error(code);
    finish(status);
    return false;
  }
  // The same where another entry of ipar chooses the messages.
  bool fail_by(int chooser, zor_int code, zor_int status) const {
    if (ipar[at_errors] != 0) report(code, ipar[chooser] != 0);
    finish(status);
    return false;
  }
};

// The parameters of a transform inside those of a solver.
template <class T>
struct embedded_transform {
  int at;  // in ipar
  T* reals;
  T* zeros;  // n + 1 values whose ends are zero
  zor_int n, type;
  ZorDftDescriptor** handle;
};
template <class T>
bool init_transform(const solver<T>& s, const embedded_transform<T>& t, zor_int code);
template <class T>
bool commit_transform(const solver<T>& s, const embedded_transform<T>& t, zor_int code);
// By the kinds of the two sides: sines, cosines, or staggered cosines.
constexpr zor_int transform_type(zor_int kind_a, zor_int kind_b) {
  return kind_a != kind_b ? 2 : kind_a == 0 ? 0 : 1;
}
// Frees one; its status.
zor_int free_transform(ZorDftDescriptor** handle, zor_int* ipar);

template <class T>
T table_sine(T angle);

// f times factor.
template <class T>
void scale_all(T* f, zor_int count, T factor);
// Subtracts the mean of `rows` rows of `width` values, their sum being divided by `divisor`.
template <class T>
void subtract_mean(T* f, zor_int width, zor_int rows, T divisor);

}  // namespace zor::pde
