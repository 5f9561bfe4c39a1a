// SPDX-License-Identifier: MIT
// Chirp transforms: their tables, and the run of complex data.
#include "dft/engine/any_length/chirp.h"

#include "dft/engine/any_length/convolve.h"
#include "dft/engine/any_length/spectrum.h"
#include "dft/engine/plan/memory.h"

namespace zor::dft {
namespace {

template <class R>
void fill_chirp(const root_table& roots, int32_t n, R* re, R* im) {
  for (int64_t k = 0, e = 0; k < n; e = (e + 2 * k + 1) % roots.n, ++k) {
    const zor_c64 v = root_at(roots, e);
    re[k] = R(v.re);
    im[k] = R(v.im);
  }
}

// The spectrum of a long chirp, in the precision of the table and by the inner transform itself.
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
  spread_blocks<R, chirp_blocks>(
      c, m, re, im, [&]<class V>(ptrdiff_t j) __attribute__((always_inline)) {
        return load_complex<form::split, V>(re, im, j);
      });
  const R scale = R(1.0 / m);
  for (ptrdiff_t at = 0; at < m; at += length)
    transform_run(*c.inner, pass_data<R>{re + at, im + at, re + at, im + at, R(1), scale, scale}, work);
  engine_free(work);
  return true;
}

template <class R, form F>
void run_in_form(const chirp<R>& c, int32_t n, const pass_data<R>& e, R* work) {
  convolve(
      c, n, n, work,
      [&]<class V>(ptrdiff_t j) __attribute__((always_inline)) {
        auto x = load_complex<F, V>(e.x_re, e.x_im, j);
        x.im = x.im * e.sign;
        return times_chirp(c, j, x);
      },
      [&](ptrdiff_t j, auto v) __attribute__((always_inline)) {
        const auto y = times_chirp(c, j, v);
        store_complex<F>(e.y_re, e.y_im, j, decltype(v){y.re * e.scale_re, y.im * e.scale_im});
      });
}

}  // namespace

template <class R>
bool chirp_build(chirp<R>* c, int32_t n, int32_t padded) {
  const bool apart = padded >= chirp_blocks_from && (padded & (padded - 1)) == 0;
  const int32_t blocks = apart ? chirp_blocks : 1, length = padded / blocks;
  const ptrdiff_t padded_size = 2 * ptrdiff_t{padded},
                  twiddle_size = apart ? padded_size / chirp_blocks * (chirp_blocks - 1) : 0;
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
    if (apart) fill_twiddles(roots, padded, chirp_blocks - 1, length, lanes_of<R>, twiddles);
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

template <class R>
void chirp_run(const chirp<R>& c, int32_t n, form outer, const pass_data<R>& ends, R* work) {
  outer == form::split ? run_in_form<R, form::split>(c, n, ends, work)
                       : run_in_form<R, form::interleaved>(c, n, ends, work);
}

#define ZOR_INSTANCES(R)                                     \
  template bool chirp_build<R>(chirp<R>*, int32_t, int32_t); \
  template void chirp_free<R>(chirp<R>*);                    \
  template void chirp_run<R>(const chirp<R>&, int32_t, form, const pass_data<R>&, R*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
