// SPDX-License-Identifier: MIT
// A complex transform of any length by the method selected for it. Instances: float and double.
#pragma once

#include "dft/engine/any_length/chirp.h"
#include "dft/engine/any_length/direct.h"
#include "dft/engine/columns/grid.h"
#include "dft/engine/passes/chain.h"
#include "dft/engine/plan/select.h"

namespace zor::dft {

template <class R>
struct transform {
  method how;
  int32_t n;
  form outer;
  bool long_power;    // a power of two that the grid serves
  pass_run<R> whole;  // the one run of a chain without passes, else null
  chain<R> passes;
  grid<R> blocks;
  direct_table<R> direct;
  chirp<R> convolution;
};

// With the column form of its chain, if `columns` asks for it and it exists. False when memory is short.
template <class R>
bool transform_build(transform<R>* t, int32_t n, const selection& s, form outer, bool columns = false);
// That form, or null.
template <class R>
const column_plan<R>* transform_columns(const transform<R>& t);
// The passes of its chain; 0 where it is none, or one run without passes.
template <class R>
int32_t transform_passes(const transform<R>& t);
template <class R>
void transform_free(transform<R>* t);
// Work as selected, at any alignment of R; y may be x.
template <class R>
void transform_run_parts(const transform<R>& t, const pass_data<R>& ends, R* work);
template <class R>
inline void transform_run(const transform<R>& t, const pass_data<R>& ends, R* work) {
  if (t.whole != nullptr)
    t.whole(ends, t.passes.passes[0]);
  else
    transform_run_parts(t, ends, work);
}

}  // namespace zor::dft
