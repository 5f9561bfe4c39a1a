// SPDX-License-Identifier: MIT
// The solvers of rectangle and box by precision and dimension, and one problem with its arrays.
#pragma once

#include <string>
#include <vector>

#include "tests/ref/grid.h"
#include "tests/support/operand.h"
#include "zor/signatures/poisson.h"

namespace zor_test {

template <class T>
struct box_calls {
  zor::box_init_2d_fn<T>* init2;
  zor::box_commit_2d_fn<T>*commit2, *solve2;
  zor::box_init_3d_fn<T>* init3;
  zor::box_commit_3d_fn<T>*commit3, *solve3;
};
template <class T>
extern const box_calls<T> box_of;
#define CALLS(T, t)                                                                                         \
  template <>                                                                                               \
  inline const box_calls<T> box_of<T> = {                                                                   \
      zor_pdepl_##t##_init_helmholtz_2d, zor_pdepl_##t##_commit_helmholtz_2d, zor_pdepl_##t##_helmholtz_2d, \
      zor_pdepl_##t##_init_helmholtz_3d, zor_pdepl_##t##_commit_helmholtz_3d, zor_pdepl_##t##_helmholtz_3d};
CALLS(double, d)
CALLS(float, s)
#undef CALLS

// Data in the precision of the call; the reference has the same values. Reports are off.
template <class T>
struct box_run {
  zor_ref::grid_problem p;
  std::string letters;
  zor_int ipar[128], stat = 77;
  std::vector<T> dpar, f, side[6];
  ZorDftDescriptor *x = nullptr, *y = nullptr;

  box_run(int dimensions, const zor_int* n, int sides, double q, uint64_t seed = 1) {
    random_bits random(seed);
    p.dimensions = dimensions;
    for (int a = 0; a < dimensions; ++a) {
      p.n[a] = n[a];
      p.length[a] = zor_ref::real(T(0.75 + 0.5 * a));
    }
    p.q = T(q);
    for (int s = 0; s < 2 * dimensions; ++s) {
      p.kind[s] = sides >> (2 * dimensions - 1 - s) & 1;
      letters += p.kind[s] != 0 ? (s % 2 ? 'n' : 'N') : (s % 2 ? 'D' : 'd');
      int a, b;
      p.axes_of(s, &a, &b);
      side[s].resize(size_t((p.n[a] + 1) * (p.n[b] + 1)));
      for (T& v : side[s]) v = T(random.unit());
      p.side[s].assign(side[s].begin(), side[s].end());
    }
    f.resize(size_t(p.count()));
    for (T& v : f) v = T(random.unit());
    p.f.assign(f.begin(), f.end());
    dpar.resize(size_t(13 * p.n[0] / 2 + 7 * p.n[1] / 2 + 20));
    for (zor_int& i : ipar) i = 1000;
    init();
    ipar[1] = ipar[2] = 0;
  }
  box_run(const box_run&) = delete;
  ~box_run() {
    if (x != nullptr) free();
  }
  void init() {
    const T zero = 0, ends[3] = {T(p.length[0]), T(p.length[1]), T(p.length[2])}, q = T(p.q);
    const zor_int n[3] = {p.n[0], p.n[1], p.n[2]};
    if (p.dimensions == 2)
      box_of<T>.init2(&zero, &ends[0], &zero, &ends[1], &n[0], &n[1], letters.c_str(), &q, ipar, dpar.data(),
                      &stat);
    else
      box_of<T>.init3(&zero, &ends[0], &zero, &ends[1], &zero, &ends[2], &n[0], &n[1], &n[2], letters.c_str(),
                      &q, ipar, dpar.data(), &stat);
  }
  zor_int commit() { return run(box_of<T>.commit2, box_of<T>.commit3); }
  zor_int solve() { return run(box_of<T>.solve2, box_of<T>.solve3); }
  zor_int free() {
    if (p.dimensions == 2)
      zor_pdepl_free_helmholtz_2d(&x, ipar, &stat);
    else
      zor_pdepl_free_helmholtz_3d(&x, &y, ipar, &stat);
    return stat;
  }
  std::string name() const {
    std::string text = letters + " q " + std::to_string(double(p.q));
    for (int a = 0; a < p.dimensions; ++a) text += " " + std::to_string(p.n[a]);
    return text;
  }

 private:
  zor_int run(zor::box_commit_2d_fn<T>* two, zor::box_commit_3d_fn<T>* three) {
    if (p.dimensions == 2)
      two(f.data(), side[0].data(), side[1].data(), side[2].data(), side[3].data(), &x, ipar, dpar.data(),
          &stat);
    else
      three(f.data(), side[0].data(), side[1].data(), side[2].data(), side[3].data(), side[4].data(),
            side[5].data(), &x, &y, ipar, dpar.data(), &stat);
    return stat;
  }
};

}  // namespace zor_test
