// SPDX-License-Identifier: MIT
// Complex transforms by method: what to build for a length, and which run its data go through.
#include "dft/engine/plan/transform.h"

#include <cstring>

#include "dft/engine/passes/radices.h"
#include "dft/thresholds.h"

namespace zor::dft {
namespace {

template <class R>
bool has_chain(const transform<R>& t) {
  return t.how != method::chirp && t.how != method::direct && !t.long_power;
}

}  // namespace

template <class R>
bool transform_build(transform<R>* t, int32_t n, const selection& s, form outer, bool columns) {
  std::memset(static_cast<void*>(t), 0, sizeof *t);
  t->how = s.how;
  t->n = n;
  t->outer = outer;
  bool built;
  if (s.how == method::chirp) {
    built = chirp_build(&t->convolution, n, s.conv_length);
  } else if (s.how == method::direct && n > largest_radix) {
    built = direct_build(&t->direct, n);
  } else {
    const int32_t order = 31 - __builtin_clz(uint32_t(n));
    t->long_power = s.how == method::power_of_two && order > longest_chain_order;
    if (s.how == method::direct) t->how = method::straight;
    built = t->long_power ? grid_build(&t->blocks, order, s.work, outer)
                          : chain_build(&t->passes, n, outer, columns);
  }
  if (!built)
    transform_free(t);
  else if (has_chain(*t) && t->passes.count == 0)
    t->whole = t->passes.passes[0].run;
  return built;
}

template <class R>
const column_plan<R>* transform_columns(const transform<R>& t) {
  return has_chain(t) ? t.passes.columns : nullptr;
}

template <class R>
int32_t transform_passes(const transform<R>& t) {
  return has_chain(t) ? t.passes.count : 0;
}

template <class R>
void transform_free(transform<R>* t) {
  if (t->how == method::chirp)
    chirp_free(&t->convolution);
  else if (t->how == method::direct)
    direct_free(&t->direct);
  else if (t->long_power)
    grid_free(&t->blocks);
  else
    chain_free(&t->passes);
}

template <class R>
void transform_run_parts(const transform<R>& t, const pass_data<R>& ends, R* work) {
  if (t.how == method::direct)
    direct_complex(t.direct, t.n, t.outer, ends);
  else if (t.how == method::chirp)
    chirp_run(t.convolution, t.n, t.outer, ends, work);
  else if (t.long_power)
    grid_run(t.blocks, ends, work);
  else
    chain_run(t.passes, ends, work);
}

#define ZOR_INSTANCES(R)                                                                  \
  template bool transform_build<R>(transform<R>*, int32_t, const selection&, form, bool); \
  template const column_plan<R>* transform_columns<R>(const transform<R>&);               \
  template int32_t transform_passes<R>(const transform<R>&);                              \
  template void transform_free<R>(transform<R>*);                                         \
  template void transform_run_parts<R>(const transform<R>&, const pass_data<R>&, R*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
