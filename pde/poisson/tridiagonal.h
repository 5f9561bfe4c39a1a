// SPDX-License-Identifier: MIT
// Tridiagonal systems of neighbouring modes: see mode_systems in pde/kernels.h.
#pragma once

#include "pde/kernels.h"

namespace zor::pde {

template <class T>
int64_t scratch_of_systems(const mode_systems<T>& s);
template <class T>
void solve_systems(const mode_systems<T>& s, void* scratch);

}  // namespace zor::pde
