// SPDX-License-Identifier: MIT
#include "dft/engine/plan/transform.h"

#include <cstring>

#include "dft/engine/any_length/chirp.h"
#include "dft/engine/any_length/spectrum.h"
#include "dft/engine/plan/memory.h"

namespace zor::dft {
namespace {

constexpr int32_t longest_chain_order = 14;

// From this padded length on a power of two is taken apart: below, all of it is in the first cache anyway.
constexpr int32_t shortest_apart = 4096;

template <class R>
void fill_chirp(const root_table& roots, int32_t n, R* re, R* im) {
  for (int64_t k = 0, e = 0; k < n; e = (e + 2 * k + 1) % roots.n, ++k) {
    const zor_c64 v = root_at(roots, e);
    re[k] = R(v.re);
    im[k] = R(v.im);
  }
}

// The spectrum in the precision of the table, by the inner transform itself.
template <class R>
bool fill_spectrum(const chirp<R>& c, int32_t n, int32_t length, int64_t work_bytes, R* re, R* im) {
  const int32_t m = c.padded;
  R* const work = static_cast<R*>(engine_allocate(uint64_t(work_bytes)));
  if (work == nullptr) return false;
  for (int32_t k = 0; k < n; ++k) {
    const int32_t mirror = k == 0 ? 0 : m - k;
    re[k] = re[mirror] = c.chirp_re[k];
    im[k] = im[mirror] = -c.chirp_im[k];
  }
  spread_blocks<R, 16>(
      c, m, re, im, [&](ptrdiff_t j, auto lane) __attribute__((always_inline)) {
        return load_complex<form::split, decltype(lane)>(re, im, j);
      });
  const R scale = R(1.0 / m);
  for (ptrdiff_t at = 0; at < m; at += length)
    transform_run(*c.inner, pass_data<R>{re + at, im + at, re + at, im + at, R(1), scale, scale}, work);
  engine_free(work);
  return true;
}

template <class R>
bool chirp_build(chirp<R>* c, int32_t n, int32_t padded) {
  const bool apart = padded >= shortest_apart && (padded & (padded - 1)) == 0;
  const int32_t blocks = apart ? 16 : 1, length = padded / blocks;
  const ptrdiff_t padded_size = 2 * ptrdiff_t{padded}, twiddle_size = apart ? padded_size / 16 * 15 : 0;
  c->padded = padded;
  c->memory =
      static_cast<R*>(engine_allocate(uint64_t(2 * ptrdiff_t{n} + padded_size + twiddle_size) * sizeof(R)));
  c->inner = static_cast<transform<R>*>(engine_allocate(sizeof(transform<R>)));
  if (c->memory == nullptr || c->inner == nullptr) return false;
  selection whole, s;
  select_complex(padded, 2 * sizeof(R), false, &whole);
  select_complex(length, 2 * sizeof(R), false, &s);
  if (!transform_build(c->inner, length, s, form::split)) return false;
  c->aside = s.work + int64_t{length} * 2 * int64_t{sizeof(R)} <= whole.work;
  R *const s_re = c->memory, *const s_im = s_re + padded, *const twiddles = s_im + padded;
  R *const re = twiddles + twiddle_size, *const im = re + n;
  c->spectrum_re = s_re;
  c->spectrum_im = s_im;
  c->twiddles = apart ? twiddles : nullptr;
  c->chirp_re = re;
  c->chirp_im = im;
  root_table chirp_roots, roots{};
  bool built = roots_build(&chirp_roots, 2 * int64_t{n}) && roots_build(&roots, padded);
  if (built) {
    fill_chirp(chirp_roots, n, re, im);
    if (apart) fill_twiddles(roots, padded, 15, length, lanes_of<R>, twiddles);
    built = padded <= longest_wide_spectrum ? chirp_spectrum(chirp_roots, roots, blocks, s_re, s_im)
                                            : fill_spectrum(*c, n, length, s.work, s_re, s_im);
  }
  roots_free(&roots);
  roots_free(&chirp_roots);
  return built;
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
void chirp_run(const chirp<R>& c, int32_t n, const pass_data<R>& e, R* work) {
  convolve(
      c, n, n, work,
      [&](ptrdiff_t j, auto lane) __attribute__((always_inline)) {
        auto x = load_complex<F, decltype(lane)>(e.x_re, e.x_im, j);
        x.im = x.im * e.sign;
        return times_chirp(c, j, x);
      },
      [&](ptrdiff_t j, auto v) __attribute__((always_inline)) {
        const auto y = times_chirp(c, j, v);
        store_complex<F>(e.y_re, e.y_im, j, decltype(v){y.re * e.scale_re, y.im * e.scale_im});
      });
}

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
  else if (t.how == method::chirp && t.outer == form::split)
    chirp_run<R, form::split>(t.convolution, t.n, ends, work);
  else if (t.how == method::chirp)
    chirp_run<R, form::interleaved>(t.convolution, t.n, ends, work);
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
