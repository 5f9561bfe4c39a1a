// SPDX-License-Identifier: MIT
// What rectangle and box share: init, the checks and tables of commit, the end of a solve.
#pragma once

#include "pde/poisson/solver.h"
#include "zor/serv.h"

namespace zor::pde {

// Sides in the order ax, bx, ay, by, az, bz; their code has a bit each, the first one highest.
template <class T>
struct box_problem {
  int dimensions;
  solver<T> s;

  int sides() const { return 2 * dimensions; }
  zor_int intervals(int axis) const { return s.ipar[at_intervals + axis]; }
  zor_int kind(int side) const { return s.ipar[at_kinds + side]; }
  // 0 to 3 for dd, dn, nd, nn.
  int pair(int axis) const { return int(s.ipar[at_sides] >> (2 * (dimensions - 1 - axis))) & 3; }
  T step(int axis) const { return s.dpar[axis]; }
  // 1-based entries of the tables: eigenvalues of the axes but the last, then the real arrays of their
  // transforms.
  void table_positions(zor_int* positions) const;
  T* table(int entry) const { return s.dpar + s.ipar[entry] - 1; }
};

template <class T>
void init_box(const box_problem<T>& p, const T* lower_and_upper, const zor_int* intervals,
              const char* letters, T q);
// The stages of commit before data are touched. False when the call has ended.
template <class T>
bool begin_commit(const box_problem<T>& p, commit_steps* steps);
// With the handles of the axes but the last. *warned: q is negative.
template <class T>
bool set_up_box(const box_problem<T>& p, ZorDftDescriptor** const* handles, bool* warned);
// The kinds of the sides, on their own where the set-up is left out.
template <class T>
bool check_kinds(const box_problem<T>& p);
// Status and sizes before a solve. *changed: table positions are not those of commit.
template <class T>
bool begin_solve(const box_problem<T>& p, bool* changed);
// Frees what commit left; a rectangle has no second transform.
void free_box(ZorDftDescriptor** first, ZorDftDescriptor** second, zor_int* ipar, zor_int* stat);
// Null, with the call ended, when memory is short.
template <class T>
void* take_work(const box_problem<T>& p);

inline constexpr zor_int bad_dispatch = 13;

// The frame of a solve: run(work) does the steps, put_back() the given values on their sides.
template <class T, class Run, class PutBack>
void solve_in_steps(const box_problem<T>& p, zor_int largest_code, const Run& run, const PutBack& put_back) {
  bool changed;
  if (!begin_solve(p, &changed)) return;
  void* const work = take_work(p);
  if (work == nullptr) return;
  *p.s.stat = status_done;
  if (p.s.ipar[at_sides] > largest_code || p.s.ipar[at_sides] < 0)
    p.s.fail(bad_dispatch, status_bad_argument);
  else
    run(work);
  zor_serv_zor_free(work);
  p.s.ipar[at_status] = *p.s.stat;
  if (*p.s.stat != 0 && *p.s.stat != 1) return;
  put_back();
  if (changed) *p.s.stat = 1;
  p.s.ipar[at_status] = changed ? 1 : 0;
}

// A side's values or the data behind them: element (i, j) at data[i step_i + j step_j].
template <class T>
struct plane {
  T* data;
  zor_int count_i, step_i, count_j, step_j;
  T& operator()(zor_int i, zor_int j) const { return data[i * step_i + j * step_j]; }
};
template <class T, class Each>
void for_plane(const plane<T>& p, const Each& each) {
  for (zor_int j = 0; j < p.count_j; ++j)
    for (zor_int i = 0; i < p.count_i; ++i) each(p(i, j), i, j);
}

}  // namespace zor::pde
