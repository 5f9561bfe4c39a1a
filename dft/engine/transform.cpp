// SPDX-License-Identifier: MIT
#include "dft/engine/transform.h"

#include <cstring>

#include "dft/engine/lines.h"
#include "dft/engine/memory.h"
#include "dft/engine/trig.h"

namespace zor::dft {
namespace {

constexpr int32_t longest_chain_order = 14;

// body(j, V of lanes) over 0..n in whole vectors, then one by one.
template <class R, class F>
[[gnu::always_inline]] inline void over_lanes(ptrdiff_t n, F body) {
  using V = vec<R>;
  ptrdiff_t j = 0;
  for (; j + lanes<V> <= n; j += lanes<V>) body(j, V{});
  for (; j < n; ++j) body(j, R{});
}

template <class R>
bool chirp_build(chirp<R>* c, int32_t n, int32_t padded) {
  c->padded = padded;
  c->memory = static_cast<R*>(engine_allocate((uint64_t(n) + uint64_t(padded)) * 2 * sizeof(R)));
  c->inner = static_cast<transform<R>*>(engine_allocate(sizeof(transform<R>)));
  selection s;
  if (c->memory == nullptr || c->inner == nullptr) return false;
  select_complex(padded, 2 * sizeof(R), false, &s);
  if (!transform_build(c->inner, padded, s, form::interleaved)) return false;
  R* spectrum = c->memory;
  R* re = spectrum + 2 * ptrdiff_t{padded};
  R* im = re + n;
  for (int64_t k = 0, e = 0; k < n; ++k) {
    const zor_c64 v = root_of_unity(e, 2 * int64_t{n});
    re[k] = R(v.re);
    im[k] = R(v.im);
    e += 2 * k + 1;
    if (e >= 2 * int64_t{n}) e -= 2 * int64_t{n};
    const ptrdiff_t mirror = k == 0 ? 0 : padded - k;
    spectrum[2 * k] = spectrum[2 * mirror] = re[k];
    spectrum[2 * k + 1] = spectrum[2 * mirror + 1] = -im[k];
  }
  R* work = static_cast<R*>(engine_allocate(uint64_t(s.work)));
  if (work == nullptr) return false;
  const R scale = R(1.0 / padded);
  transform_run(*c->inner, pass_data<R>{spectrum, nullptr, spectrum, nullptr, R(1), scale, scale}, work);
  engine_free(work);
  c->spectrum = spectrum;
  c->chirp_re = re;
  c->chirp_im = im;
  return true;
}

template <class R>
void chirp_free(chirp<R>* c) {
  if (c->inner != nullptr) transform_free(c->inner);
  engine_free(c->inner);
  engine_free(c->memory);
  c->inner = nullptr;
  c->memory = nullptr;
}

template <class R, form F>
void chirp_run(const chirp<R>& c, int32_t n, const pass_data<R>& e, R* a) {
  over_lanes<R>(
      n, [&](ptrdiff_t j, auto lane) __attribute__((always_inline)) {
        using V = decltype(lane);
        complex_lanes<V> x = load_complex<F, V>(e.x_re, e.x_im, j);
        x.im = x.im * e.sign;
        store_complex<form::interleaved>(
            a, a, j, multiply(x, load_lanes<V>(c.chirp_re + j), load_lanes<V>(c.chirp_im + j)));
      });
  convolve_with_chirp(c, n, a);
  over_lanes<R>(
      n, [&](ptrdiff_t j, auto lane) __attribute__((always_inline)) {
        using V = decltype(lane);
        const complex_lanes<V> y = multiply(load_complex<form::interleaved, V>(a, a, j),
                                            load_lanes<V>(c.chirp_re + j), load_lanes<V>(c.chirp_im + j));
        store_complex<F>(e.y_re, e.y_im, j, complex_lanes<V>{y.re * e.scale_re, y.im * e.scale_im});
      });
}

}  // namespace

template <class R>
void convolve_with_chirp(const chirp<R>& c, int32_t n, R* a) {
  const ptrdiff_t padded = c.padded;
  R* const work = a + 2 * padded;
  std::memset(a + 2 * ptrdiff_t{n}, 0, size_t(padded - n) * 2 * sizeof(R));
  transform_run(*c.inner, pass_data<R>{a, nullptr, a, nullptr, R(1), R(1), R(1)}, work);
  over_lanes<R>(
      padded, [&](ptrdiff_t j, auto lane) __attribute__((always_inline)) {
        using V = decltype(lane);
        const complex_lanes<V> s = load_complex<form::interleaved, V>(c.spectrum, c.spectrum, j);
        store_complex<form::interleaved>(a, a, j,
                                         multiply(load_complex<form::interleaved, V>(a, a, j), s.re, s.im));
      });
  transform_run(*c.inner, pass_data<R>{a, nullptr, a, nullptr, R(-1), R(1), R(-1)}, work);
}

template <class R>
bool transform_build(transform<R>* t, int32_t n, const selection& s, form outer) {
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
    built = t->long_power ? grid_build(&t->blocks, order, s.work, outer) : chain_build(&t->passes, n, outer);
  }
  if (!built) transform_free(t);
  return built;
}

template <class R>
bool has_chain(const transform<R>& t) {
  return t.how != method::chirp && t.how != method::direct && !t.long_power;
}

template <class R>
bool transform_add_columns(transform<R>* t) {
  return !has_chain(*t) || chain_add_columns(&t->passes);
}
template <class R>
const column_plan<R>* transform_columns(const transform<R>& t) {
  return has_chain(t) ? t.passes.columns : nullptr;
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
void transform_run(const transform<R>& t, const pass_data<R>& ends, R* work) {
  if (t.how == method::direct)
    direct_complex(t.direct, t.n, t.outer, ends);
  else if (t.how == method::chirp && t.outer == form::split)
    chirp_run<R, form::split>(t.convolution, t.n, ends, work);
  else if (t.how == method::chirp)
    chirp_run<R, form::interleaved>(t.convolution, t.n, ends, work);
  else if (t.long_power)
    grid_run(t.blocks, ends, work);
  else
    chain_run(t.passes, ends, work);
}

#define ZOR_INSTANCES(R)                                                            \
  template bool transform_build<R>(transform<R>*, int32_t, const selection&, form); \
  template bool transform_add_columns<R>(transform<R>*);                            \
  template const column_plan<R>* transform_columns<R>(const transform<R>&);         \
  template void transform_free<R>(transform<R>*);                                   \
  template void transform_run<R>(const transform<R>&, const pass_data<R>&, R*);     \
  template void convolve_with_chirp<R>(const chirp<R>&, int32_t, R*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
