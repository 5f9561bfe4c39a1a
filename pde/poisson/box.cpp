// SPDX-License-Identifier: MIT
// Parameter arrays and tables of rectangle and box.
#include "pde/poisson/box.h"

#include "zor/serv.h"

namespace zor::pde {
namespace {

// Events by axis or side.
constexpr zor_int bad_intervals[] = {0, 1, 11}, bad_length[] = {3, 4, 18};
constexpr zor_int bad_kind[] = {6, 7, 8, 9, 20, 21};
constexpr zor_int bad_status = 12, no_eigenvalues = 26, no_memory = 27, negative_q = 904,
                  positions_changed = 903;
struct events_of_dimensions {
  zor_int bad_sides, sides_differ, bad_step;
};
constexpr events_of_dimensions events[] = {{5, 10, 15}, {19, 22, 33}};
template <class T>
const events_of_dimensions& events_of(const box_problem<T>& p) {
  return events[p.dimensions - 2];
}
// Events of the transforms along x and y: init, commit.
constexpr zor_int transform_events[2][2] = {{23, 24}, {29, 30}};
constexpr int transform_entries[] = {at_first_transform, at_second_transform};

// First and last entry of eight tables, two an axis; entries that are not used are -1.
constexpr int positions = 8;

template <class T>
bool check_intervals(const box_problem<T>& p) {
  for (int a = 0; a < p.dimensions; ++a)
    if (p.intervals(a) < 1) return p.s.fail(bad_intervals[a], status_bad_argument);
  return true;
}

template <class T>
bool check_sum_of_kinds(const box_problem<T>& p) {
  zor_int code = 0;
  for (int side = 0; side < p.sides(); ++side) code = 2 * code + p.kind(side);
  return code == p.s.ipar[at_sides] || p.s.fail(events_of(p).sides_differ, status_bad_argument);
}

template <class T>
bool lengths_to_steps(const box_problem<T>& p) {
  for (int a = 0; a < p.dimensions; ++a) {
    if (!(p.s.dpar[a] > T(0))) return p.s.fail(bad_length[a], status_bad_argument);
    p.s.dpar[a] = p.s.dpar[a] / T(p.intervals(a));
  }
  return true;
}

// lambda(k) = (2 h / h_axis sin(k pi / 2n))^2 + c, with k + 1/2 in the place of k where the sides differ. q
// is part of the first axis.
template <class T>
bool fill_eigenvalues(const box_problem<T>& p) {
  const T h = p.step(p.dimensions - 1);
  for (int a = 0; a + 1 < p.dimensions; ++a)
    if (p.step(a) == T(0)) return p.s.fail(no_eigenvalues, status_no_eigenvalues);
  for (int a = 0; a + 1 < p.dimensions; ++a) {
    const zor_int n = p.intervals(a);
    const bool differ = p.kind(2 * a) != p.kind(2 * a + 1);
    const T e = T(2) * h / p.step(a);
    const T one = T(p.dimensions == 2 ? 2 : 1);
    const T c = a == 0 ? p.s.dpar[real_q] * (h * h) + one : one;
    const T part = T(differ ? 0.78539816339744830962 : 1.57079632679489661923);
    T* const lambda = p.table(at_tables + 2 * a);
    for (zor_int k = 0; k <= n; ++k) {
      const T root = e * table_sine(T(differ ? 2 * k + 1 : k) * part / T(n));
      lambda[k] = root * root + c;
    }
  }
  return true;
}

}  // namespace

template <class T>
void box_problem<T>::table_positions(zor_int* at) const {
  const zor_int nx = intervals(0), ny = dimensions == 3 ? intervals(1) : 0;
  at[0] = 6;
  at[1] = nx + 6;
  at[2] = at[3] = at[6] = at[7] = -1;
  at[4] = at[1] + 1;
  if (dimensions == 3) {
    at[2] = nx + 7;
    at[3] = nx + ny + 7;
    at[4] = at[3] + 1;
  }
  at[5] = at[4] + 3 * nx / 2;
  if (dimensions == 3) {
    at[6] = at[5] + 1;
    at[7] = at[6] + 3 * ny / 2;
  }
}

template <class T>
void init_box(const box_problem<T>& p, const T* ends, const zor_int* intervals, const char* letters, T q) {
  const solver<T>& s = p.s;
  s.finish(status_unfinished);
  s.ipar[at_errors] = s.ipar[at_warnings] = 1;
  for (int a = 0; a < p.dimensions; ++a) s.ipar[at_intervals + a] = intervals[a];
  zor_int code = 0;
  for (int side = 0; side < p.sides(); ++side) {
    const char letter = letters[side];
    const bool neumann = letter == 'n' || letter == 'N', known = neumann || letter == 'd' || letter == 'D';
    s.ipar[at_kinds + side] = known ? zor_int(neumann) : -1;
    code += known ? zor_int(neumann) << (p.sides() - 1 - side) : -100;
    s.ipar[at_sides] = code;
    // The last letter of a plane ends the call; a bad one elsewhere is left to commit.
    if (!known && (side == 3 || side == 5)) return;
  }
  for (int a = 0; a < p.dimensions; ++a) s.dpar[a] = ends[2 * a + 1] - ends[2 * a];
  s.dpar[real_q] = q;
  s.dpar[real_tolerance] = std::is_same_v<T, float> ? T(1e-4) : T(1e-10);
  s.ipar[at_c_messages] = s.ipar[at_threads] = 1;
  s.finish(status_done);
}

template <class T>
bool begin_commit(const box_problem<T>& p, commit_steps* steps) {
  *steps = steps_of(p.s.ipar[at_status]);
  if (!steps->known) return p.s.fail_by(at_warnings, bad_status, status_blocked);
  if (!check_intervals(p)) return false;
  if (!steps->set_up && !steps->scale && !steps->boundary) {
    p.s.finish(status_done);
    return false;
  }
  if (!steps->set_up && steps->scale && !(p.step(p.dimensions - 1) > T(0)))
    return p.s.fail(events_of(p).bad_step, status_bad_argument);
  return true;
}

template <class T>
bool check_kinds(const box_problem<T>& p) {
  const zor_int code = p.s.ipar[at_sides];
  if (code < 0 || code >= zor_int(1) << p.sides())
    return p.s.fail(events_of(p).bad_sides, status_bad_argument);
  for (int side = 0; side < p.sides(); ++side)
    if (p.kind(side) != 0 && p.kind(side) != 1) return p.s.fail(bad_kind[side], status_bad_argument);
  return true;
}

template <class T>
bool set_up_box(const box_problem<T>& p, ZorDftDescriptor** const* handles, bool* warned) {
  const solver<T>& s = p.s;
  if (!check_kinds(p) || !check_sum_of_kinds(p) || !lengths_to_steps(p)) return false;
  zor_int at[positions];
  p.table_positions(at);
  for (int i = 0; i < positions; ++i)
    if (at[i] >= 0) s.ipar[at_tables + i] = at[i];
  const int transforms = p.dimensions - 1;
  embedded_transform<T> t[2] = {};
  for (int a = 0; a < transforms; ++a) {
    T* const zeros = p.table(at_tables + 2 * a);
    t[a] = {transform_entries[a],
            p.table(at_tables + 4 + 2 * a),
            zeros,
            p.intervals(a),
            transform_type(p.kind(2 * a), p.kind(2 * a + 1)),
            handles[a]};
    zeros[0] = zeros[p.intervals(a)] = T(0);
    t[a].reals[0] = s.dpar[real_tolerance];
  }
  if (s.dpar[real_q] < T(0)) {
    s.report_warning(negative_q);
    *warned = true;
  }
  for (int a = 0; a < transforms; ++a)
    if (!init_transform(s, t[a], transform_events[a][0])) return false;
  for (int a = 0; a < transforms; ++a)
    if (!commit_transform(s, t[a], transform_events[a][1])) return false;
  return fill_eigenvalues(p);
}

template <class T>
bool begin_solve(const box_problem<T>& p, bool* changed) {
  const zor_int status = p.s.ipar[at_status];
  if (status != 0 && status != 1) return p.s.fail(bad_status, status_blocked);
  if (!check_intervals(p)) return false;
  zor_int at[positions];
  p.table_positions(at);
  *changed = false;
  for (int i = 0; i < positions; ++i)
    if (at[i] >= 0 && p.s.ipar[at_tables + i] != at[i]) *changed = true;
  if (*changed) p.s.report_warning(positions_changed);
  return true;
}

template <class T>
void* take_work(const box_problem<T>& p) {
  zor_int values = 2 * p.intervals(p.dimensions - 1);
  for (int a = 0; a + 1 < p.dimensions; ++a) values += p.intervals(a);
  const zor_int threads = p.s.ipar[at_threads];
  if (threads > 1) values *= threads;
  void* const work = zor_serv_zor_malloc(uint64_t(values) * sizeof(T), 64);
  if (work == nullptr) p.s.fail_by(at_no_memory_messages, no_memory, status_no_memory);
  return work;
}

void free_box(ZorDftDescriptor** first, ZorDftDescriptor** second, zor_int* ipar, zor_int* stat) {
  constexpr zor_int free_failed = 14;
  const zor_int x = free_transform(first, ipar + at_first_transform);
  const zor_int y = second == nullptr ? 0 : free_transform(second, ipar + at_second_transform);
  float no_reals[8] = {};
  const solver<float> s{ipar, no_reals, stat};
  if (x != 0 || y != 0)
    s.fail_by(at_warnings, free_failed, status_transform_failed);
  else
    s.finish(status_done);
}

#define ZOR_INSTANCES(T)                                                                      \
  template void box_problem<T>::table_positions(zor_int*) const;                              \
  template void init_box<T>(const box_problem<T>&, const T*, const zor_int*, const char*, T); \
  template bool begin_commit<T>(const box_problem<T>&, commit_steps*);                        \
  template bool check_kinds<T>(const box_problem<T>&);                                        \
  template bool set_up_box<T>(const box_problem<T>&, ZorDftDescriptor** const*, bool*);       \
  template bool begin_solve<T>(const box_problem<T>&, bool*);                                 \
  template void* take_work<T>(const box_problem<T>&);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::pde
