// SPDX-License-Identifier: MIT
// The transforms by precision and spelling, and one transform with its arrays.
#pragma once

#include <vector>

#include "zor/signatures/trig.h"

namespace zor_test {

template <class T>
struct trig_calls {
  zor::trig_init_fn<T>* init;
  zor::trig_commit_fn<T>* commit;
  zor::trig_run_fn<T>*forward, *backward;
  zor::trig_free_fn* free;
};
// By spelling: 0 for the plain one, 1 for the one with two underscores.
template <class T>
extern const trig_calls<T> trig[2];
#define NAMES(prefix, t)                                                               \
  {                                                                                    \
    prefix##_##t##_init_trig_transform, prefix##_##t##_commit_trig_transform,          \
        prefix##_##t##_forward_trig_transform, prefix##_##t##_backward_trig_transform, \
        prefix##_free_trig_transform                                                   \
  }
template <>
inline const trig_calls<double> trig<double>[2] = {NAMES(zor_pdett, d), NAMES(zor_pdett_, d)};
template <>
inline const trig_calls<float> trig<float>[2] = {NAMES(zor_pdett, s), NAMES(zor_pdett_, s)};
#undef NAMES

// Entries of the real array of a type.
inline zor_int trig_table(zor_int n, zor_int type) {
  const zor_int h = n / 2;
  return type == 0 ? h + 2 : type == 1 ? 2 * h + 2 : type <= 3 ? n + h + 2 : 2 * n + h + 2;
}

// Silent: neither errors nor warnings are reported.
template <class T>
struct trig_problem {
  const trig_calls<T>& call;
  zor_int n, stat = 77;
  zor_int ipar[128];
  std::vector<T> dpar;
  ZorDftDescriptor* handle = nullptr;

  trig_problem(zor_int intervals, zor_int type, int spelling = 0)
      : call(trig<T>[spelling]),
        n(intervals),
        dpar(size_t(trig_table(intervals > 2 ? intervals : 2, type < 0 || type > 5 ? 5 : type)), T(-7)) {
    for (zor_int& i : ipar) i = 1000;
    call.init(&n, &type, ipar, dpar.data(), &stat);
    ipar[1] = ipar[2] = 0;
  }
  trig_problem(const trig_problem&) = delete;
  ~trig_problem() {
    if (handle != nullptr) call.free(&handle, ipar, &stat);
  }
  zor_int commit(T* f) { return call.commit(f, &handle, ipar, dpar.data(), &stat), stat; }
  zor_int forward(T* f) { return call.forward(f, &handle, ipar, dpar.data(), &stat), stat; }
  zor_int backward(T* f) { return call.backward(f, &handle, ipar, dpar.data(), &stat), stat; }
};

}  // namespace zor_test
