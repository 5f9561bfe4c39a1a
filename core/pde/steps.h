// SPDX-License-Identifier: MIT
// Steps of the sphere's solvers that the public calls share.
#pragma once

#include "core/pde/kernels.h"

namespace zor_core {

// Sines of np intervals; back with zeros at both ends.
template <class T>
zor_int transform_sphere_rows(bool forward, zor_int np, zor_int nt, T* f, const T* tables,
                              ZorDftDescriptor* d, zor_int threads);
// Periodic rows through cosines and sines of np / 2 intervals.
template <class T>
zor_int transform_periodic_rows(bool forward, zor_int np, zor_int nt, T* f, ZorDftDescriptor* cosines,
                                const T* cosine_tables, ZorDftDescriptor* sines, const T* sine_tables,
                                zor_int threads);

// The systems along the colatitude, in steps of `height`; sine has those of the colatitudes, q and f are
// scaled by the square of the step, f by the sine as well. lambda has one value a mode.
template <class T>
struct sphere_systems {
  bool globe, singular;
  zor_int np, nt;
  T q, height;
  const T *sine, *lambda;
};
template <class T>
zor_int solve_sphere(const sphere_systems<T>& p, T* f, zor_int threads);

}  // namespace zor_core
