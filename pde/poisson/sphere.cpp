// SPDX-License-Identifier: MIT
// The solvers of the sphere: transforms along the longitude, a tridiagonal system along the colatitude for
// each mode.
#include <cmath>

#include "pde/imports.h"
#include "pde/poisson/solver.h"

namespace zor::pde {
namespace {

template <class T>
struct sphere_steps {
  core::import_slot<step_ft_fn<T>>*sl_forward, *sl_backward;
  core::import_slot<step_pp_fn<T>>*pp_forward, *pp_backward;
  core::import_slot<step_sphere_lu_fn<T>>*systems, *globe;
};
constexpr sphere_steps<double> steps_of_precision(double) {
  using namespace core;
  return {&zor_pdepl_d_sl_ft_dd,  &zor_pdepl_d_sl_inv_ft_dd, &zor_pdepl_d_ft_pp,
          &zor_pdepl_d_inv_ft_pp, &zor_pdepl_d_sph_lu_2d_dd, &zor_pdepl_d_sph_lu_globe};
}
constexpr sphere_steps<float> steps_of_precision(float) {
  using namespace core;
  return {&zor_pdepl_s_sl_ft_dd,  &zor_pdepl_s_sl_inv_ft_dd, &zor_pdepl_s_ft_pp,
          &zor_pdepl_s_inv_ft_pp, &zor_pdepl_s_sph_lu_2d_dd, &zor_pdepl_s_sph_lu_globe};
}
template <class T>
constexpr sphere_steps<T> step = steps_of_precision(T());

enum sphere_event : zor_int {
  event_bad_nt_of_commit = 1,
  event_bad_warnings = 9,
  event_positions = 903,
  event_bad_np = 10000,
  event_bad_nt = 10001,
  event_bad_width = 10003,
  event_bad_height = 10004,
  event_bad_status = 10012,
  event_free_failed = 10014,
  event_bad_step = 10015,
  event_no_scale = 10016,
  event_first_init = 10023,
  event_first_commit = 10024,
  event_no_eigenvalues = 10026,
  event_no_memory = 10027,
  event_second_init = 10029,
  event_second_commit = 10030,
  event_second_free_failed = 10032,
  event_odd_np = 10202,
  event_singular = 10900,
  event_negative_q = 10904,
};

template <class T>
struct sphere {
  solver<T> s;
  bool periodic;
  T* f;
  zor_int np, nt;
  T* lambda() const { return s.dpar + real_tables; }
  T* sines() const { return s.dpar + np + 7; }
  zor_int transform_length() const { return periodic ? np / 2 : np; }
};

// 1-based entries of tables; the last two belong to the periodic form.
template <class T>
void table_positions(const sphere<T>& p, zor_int* at) {
  const zor_int np = p.np, nt = p.nt;
  at[0] = 6;
  at[1] = np + 7;
  at[2] = np + 8;
  at[3] = np + nt + 9;
  at[4] = np + nt + 10;
  at[5] = p.periodic ? at[3] + 3 * np / 4 + 1 : at[4] + 3 * np / 2;
  at[6] = p.periodic ? at[5] + 1 : 0;
  at[7] = p.periodic ? at[6] + 3 * np / 4 : 0;
}
constexpr int positions = 8, positions_of_one_transform = 6;

template <class T>
void init(const sphere<T>& p, T ap, T bp, T at, T bt, T q) {
  const solver<T>& s = p.s;
  s.ipar[at_errors] = s.ipar[at_warnings] = 1;
  const double north = std::fabs(double(at)), south = std::fabs(3.14159265358979323846 - double(bt));
  s.ipar[at_sides] = p.periodic && north <= 1e-10 && south <= 1e-10 ? 0 : 1;
  s.ipar[at_c_messages] = s.ipar[at_threads] = 1;
  s.ipar[at_intervals] = p.np;
  s.ipar[at_intervals + 1] = p.nt;
  s.dpar[0] = bp - ap;
  s.dpar[1] = bt - at;
  s.dpar[2] = at;
  s.dpar[real_q] = q;
  s.dpar[real_tolerance] = std::is_same_v<T, float> ? T(1e-4) : T(1e-10);
  s.finish(status_done);
}

// Items of commit. Each returns false when the call has ended.
template <class T>
bool check_sizes(const sphere<T>& p, zor_int bad_nt) {
  if (p.np < 1) return p.s.fail(event_bad_np, status_bad_argument);
  if (p.nt < 1) return p.s.fail(bad_nt, status_bad_argument);
  return true;
}

template <class T>
bool set_up(const sphere<T>& p, ZorDftDescriptor** const* handles, bool* warned) {
  const solver<T>& s = p.s;
  if (s.ipar[at_warnings] != 0 && s.ipar[at_warnings] != 1)
    return s.fail(event_bad_warnings, status_bad_argument);
  zor_int at[positions];
  table_positions(p, at);
  for (int i = 0; i < positions; ++i) s.ipar[at_tables + i] = at[i];
  const zor_int n = p.transform_length();
  s.dpar[5] = s.dpar[n + 5] = s.dpar[n + 6] = T(0);
  const embedded_transform<T> t[2] = {
      {at_first_transform, s.dpar + at[4] - 1, s.dpar + 5, n, 0, handles[0]},
      {at_second_transform, p.periodic ? s.dpar + at[6] - 1 : nullptr, s.dpar + 5, n, 1, handles[1]}};
  const int transforms = p.periodic ? 2 : 1;
  constexpr zor_int init_events[2] = {event_first_init, event_second_init};
  constexpr zor_int commit_events[2] = {event_first_commit, event_second_commit};
  for (int i = 0; i < transforms; ++i) t[i].reals[0] = s.dpar[real_tolerance];
  if (s.dpar[real_q] < T(0)) {
    s.report_warning(event_negative_q);
    *warned = true;
  }
  for (int i = 0; i < transforms; ++i)
    if (!init_transform(s, t[i], init_events[i])) return false;
  for (int i = 0; i < transforms; ++i)
    if (!commit_transform(s, t[i], commit_events[i])) return false;
  return true;
}

// The sines of the colatitudes, the steps and the eigenvalues.
template <class T>
bool fill_tables(const sphere<T>& p) {
  const solver<T>& s = p.s;
  const T at = s.dpar[2], end = at + s.dpar[1], each = (end - at) / T(p.nt);
  for (zor_int j = 0; j <= p.nt; ++j) p.sines()[j] = table_sine(T(j) * each + at);
  if (!(s.dpar[0] > T(0))) return s.fail(event_bad_width, status_bad_argument);
  s.dpar[0] = s.dpar[0] / T(p.np);
  if (!(s.dpar[1] > T(0))) return s.fail(event_bad_height, status_bad_argument);
  s.dpar[1] = s.dpar[1] / T(p.nt);
  if (s.dpar[0] == T(0) || p.np == 0) return s.fail(event_no_eigenvalues, status_no_eigenvalues);
  const T c = T(2) * s.dpar[1] / s.dpar[0];
  const T w = T(p.periodic ? 3.14159265358979323846 : 1.57079632679489661923) / T(p.np);
  for (zor_int k = 0; k <= p.np; ++k) {
    const T root = c * table_sine(T(k) * w);
    p.lambda()[k] = root * root;
  }
  return true;
}

template <class T>
bool scale(const sphere<T>& p) {
  const solver<T>& s = p.s;
  if (s.dpar[0] == T(0)) return s.fail(event_no_scale, status_no_eigenvalues);
  const T square = s.dpar[1] * s.dpar[1];
  s.dpar[real_q] = s.dpar[real_q] * square;
  for (zor_int j = 0; j <= p.nt; ++j) scale_all(p.f + j * (p.np + 1), p.np + 1, p.sines()[j] * square);
  return true;
}

template <class T>
void commit(const sphere<T>& p, ZorDftDescriptor** const* handles) {
  const solver<T>& s = p.s;
  const zor_int selector = s.ipar[at_status];
  const commit_steps steps = steps_of(selector);
  if (!steps.known) {
    s.fail_by(at_warnings, event_bad_status, status_blocked);
    return;
  }
  if (selector == 999 && !p.periodic) return s.finish(status_done);
  if (selector != 999 && !check_sizes(p, event_bad_nt_of_commit)) return;
  if (selector != 999 && p.periodic && p.np % 2 != 0) {
    s.fail(event_odd_np, status_bad_argument);
    return;
  }
  if (selector == 909 && !p.periodic) return s.finish(status_done);
  bool warned = false;
  if (steps.set_up && !set_up(p, handles, &warned)) return;
  // The periodic form makes its tables in every commit, from the lengths as they are then.
  if ((steps.set_up || p.periodic) && !fill_tables(p)) return;
  if (steps.scale) {
    if (!steps.set_up && !(s.dpar[1] > T(0))) {
      s.fail(event_bad_step, status_bad_argument);
      return;
    }
    if (!scale(p)) return;
  }
  s.finish(warned ? 1 : 0);
}

template <class T>
bool begin_solve(const sphere<T>& p, bool* changed) {
  const solver<T>& s = p.s;
  if (s.ipar[at_status] != 0 && s.ipar[at_status] != 1) return s.fail(event_bad_status, status_blocked);
  if (!check_sizes(p, event_bad_nt)) return false;
  zor_int at[positions];
  table_positions(p, at);
  *changed = false;
  for (int i = 0; i < (p.periodic ? positions : positions_of_one_transform); ++i)
    if (s.ipar[at_tables + i] != at[i]) *changed = true;
  if (*changed) s.report_warning(event_positions);
  return true;
}

// Work of a solve; the second block is for the periodic form. Null, with the call ended, when memory is
// short.
struct work_blocks {
  void *first, *second;
};
template <class T>
bool take_work(const sphere<T>& p, work_blocks* w) {
  const zor_int threads = p.s.ipar[at_threads] > 1 ? p.s.ipar[at_threads] : 1;
  const zor_int rows = 2 * p.np + 2, columns = (p.periodic ? 4 : 2) * p.nt;
  const auto take = [threads](zor_int values) {
    return zor_serv_zor_malloc(uint64_t(values) * uint64_t(threads) * sizeof(T), 64);
  };
  w->first = take(rows > columns ? rows : columns);
  w->second = p.periodic ? take(p.np + 1) : nullptr;
  if (w->first != nullptr && (w->second != nullptr || !p.periodic)) return true;
  zor_serv_zor_free(w->first);
  zor_serv_zor_free(w->second);
  return p.s.fail_by(at_no_memory_messages, event_no_memory, status_no_memory);
}

template <class T>
void run_rows(const sphere<T>& p, bool forward, ZorDftDescriptor** const* handles, const work_blocks& w) {
  const solver<T>& s = p.s;
  zor_int* const ipar = s.ipar;
  const zor_int* const threads = &ipar[at_threads];
  if (!p.periodic) {
    (*(forward ? step<T>.sl_forward : step<T>.sl_backward))(&p.np, &p.nt, p.f, s.dpar, ipar, w.first,
                                                            handles[0], threads, s.stat);
    return;
  }
  (*(forward ? step<T>.pp_forward : step<T>.pp_backward))(
      &p.np, &p.nt, p.f, w.first, w.second, handles[1], handles[0], ipar, ipar + at_second_transform,
      s.dpar + ipar[at_tables + 6] - 1, ipar + at_first_transform, s.dpar + ipar[at_tables + 4] - 1, threads,
      s.stat);
}

template <class T>
void run_steps(const sphere<T>& p, ZorDftDescriptor** const* handles, const work_blocks& w) {
  const solver<T>& s = p.s;
  run_rows(p, true, handles, w);
  if (*s.stat != 0) return;
  auto* const systems = p.periodic && s.ipar[at_sides] == 0 ? step<T>.globe : step<T>.systems;
  (*systems)(&p.np, &p.nt, &s.dpar[real_q], s.dpar + s.ipar[at_tables + 2] - 1,
             s.dpar + s.ipar[at_tables] - 1, p.f, w.first, s.ipar, s.dpar, &s.ipar[at_threads], s.stat);
  if (*s.stat != 0) return;
  run_rows(p, false, handles, w);
}

template <class T>
void solve(const sphere<T>& p, ZorDftDescriptor** const* handles) {
  const solver<T>& s = p.s;
  bool changed;
  work_blocks w;
  if (!begin_solve(p, &changed) || !take_work(p, &w)) return;
  *s.stat = status_done;
  run_steps(p, handles, w);
  zor_serv_zor_free(w.first);
  zor_serv_zor_free(w.second);
  if (*s.stat != 0 && *s.stat != 1) return s.finish(*s.stat);
  if (*s.stat == 0 && p.periodic && std::fabs(s.dpar[real_q]) <= s.dpar[real_tolerance]) {
    if (s.ipar[at_warnings] != 0) {
      s.report_warning(event_singular);
      *s.stat += 1;
    }
    subtract_mean(p.f, p.np + 1, p.nt + 1, T((p.np + 1) * (p.nt + 1)));
  }
  s.finish(changed ? 1 : *s.stat);
}

void free_sphere(ZorDftDescriptor** sines, ZorDftDescriptor** cosines, zor_int* ipar, zor_int* stat) {
  double no_reals[8] = {};
  const solver<double> s{ipar, no_reals, stat};
  *stat = status_unfinished;
  if (free_transform(sines, ipar + at_first_transform) != 0)
    s.fail_by(at_warnings, event_free_failed, status_transform_failed);
  else if (cosines != nullptr && free_transform(cosines, ipar + at_second_transform) != 0)
    s.fail_by(at_warnings, event_second_free_failed, status_transform_failed);
  else
    s.finish(status_done);
}

}  // namespace
}  // namespace zor::pde

extern "C" {
#define ROW_SPHERE_INIT(name, T, is_periodic)                                                        \
  SIG_SPHERE_INIT(name, T) {                                                                         \
    zor::pde::init<T>({{ipar, dpar, stat}, is_periodic, nullptr, *np, *nt}, *ap, *bp, *at, *bt, *q); \
  }
#define ROW_SPHERE_NP(name, T, stage)                                                \
  SIG_SPHERE_COMMIT_NP(name, T) {                                                    \
    ZorDftDescriptor** const handles[2] = {handle, nullptr};                         \
    zor::pde::stage<T>({{ipar, dpar, stat}, false, f, ipar[10], ipar[11]}, handles); \
  }
#define ROW_SPHERE_P(name, T, stage)                                                \
  SIG_SPHERE_COMMIT_P(name, T) {                                                    \
    ZorDftDescriptor** const handles[2] = {sines, cosines};                         \
    zor::pde::stage<T>({{ipar, dpar, stat}, true, f, ipar[10], ipar[11]}, handles); \
  }
#define ROW_SPHERE_COMMIT_NP(name, T) ROW_SPHERE_NP(name, T, commit)
#define ROW_SPHERE_COMMIT_P(name, T) ROW_SPHERE_P(name, T, commit)
#define ROW_SPHERE_SOLVE_NP(name, T) ROW_SPHERE_NP(name, T, solve)
#define ROW_SPHERE_SOLVE_P(name, T) ROW_SPHERE_P(name, T, solve)
#define ROW_SPHERE_FREE_NP(name) \
  SIG_BOX_FREE_2D(name) { zor::pde::free_sphere(handle, nullptr, ipar, stat); }
#define ROW_SPHERE_FREE_P(name) \
  SIG_SPHERE_FREE_P(name) { zor::pde::free_sphere(sines, cosines, ipar, stat); }
#include "zor/tables/pdepl.inc"
#undef ROW_SPHERE_NP
#undef ROW_SPHERE_P
}
