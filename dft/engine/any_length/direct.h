// SPDX-License-Identifier: MIT
// Transforms of odd lengths below 91 from their definition. Instances: float and double.
#pragma once

#include "dft/engine/passes/pass.h"

namespace zor::dft {

// cos and sin of 2 pi j k / n by j, then k, in rows of whole vectors.
template <class R>
struct direct_table {
  R* memory;
  int32_t row;
};

// False when memory is short.
template <class R>
bool direct_build(direct_table<R>* t, int32_t n);
template <class R>
void direct_free(direct_table<R>* t);
template <class R>
void direct_complex(const direct_table<R>& t, int32_t n, form outer, const pass_data<R>& ends);
// Real data, spectrum as R0 R1 I1 ...; y may be x.
template <class R>
void direct_real_forward(const direct_table<R>& t, int32_t n, const R* x, R* y, R scale);
template <class R>
void direct_real_backward(const direct_table<R>& t, int32_t n, const R* x, R* y, R scale);

}  // namespace zor::dft
