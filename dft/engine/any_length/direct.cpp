// SPDX-License-Identifier: MIT
// The formula of prime_dft by table, with lanes over the output pairs k, n - k.
#include "dft/engine/any_length/direct.h"

#include "dft/engine/passes/lanes.h"
#include "dft/engine/plan/memory.h"
#include "dft/engine/roots/trig.h"

namespace zor::dft {
namespace {

constexpr int32_t most_pairs = 64;

// start + sum of a[j] table(j, k) in the order of j, for all k of a row.
template <class R>
void weighted_sums(const R* table, ptrdiff_t stride, int32_t row, int32_t pairs, R start, const R* a,
                   R* out) {
  using V = vec<R>;
  for (int32_t k = 0; k < row; k += lanes<V>) {
    V sum = broadcast<V>(start);
    for (int32_t j = 0; j < pairs; ++j) sum = sum + load<V>(table + stride * j + k) * a[j];
    store(out + k, sum);
  }
}

template <class R>
struct pair_sums {
  R s_re[most_pairs], s_im[most_pairs], d_re[most_pairs], d_im[most_pairs];
  R a_re[most_pairs], a_im[most_pairs], b_re[most_pairs], b_im[most_pairs];
};

template <class R, form F>
void direct_run(const direct_table<R>& t, int32_t n, const pass_data<R>& e) {
  const int32_t h = n / 2;
  pair_sums<R> w;
  complex_lanes<R> x0 = load_complex<F, R>(e.x_re, e.x_im, 0);
  x0.im = x0.im * e.sign;
  complex_lanes<R> total = x0;
  for (int32_t j = 1; j <= h; ++j) {
    const complex_lanes<R> x = load_complex<F, R>(e.x_re, e.x_im, j),
                           z = load_complex<F, R>(e.x_re, e.x_im, n - j);
    w.s_re[j - 1] = x.re + z.re;
    w.s_im[j - 1] = (x.im + z.im) * e.sign;
    w.d_re[j - 1] = x.re - z.re;
    w.d_im[j - 1] = (x.im - z.im) * e.sign;
    total = {total.re + w.s_re[j - 1], total.im + w.s_im[j - 1]};
  }
  const R* cosines = t.memory;
  const R* sines = t.memory + t.row;
  weighted_sums(cosines, 2 * t.row, t.row, h, x0.re, w.s_re, w.a_re);
  weighted_sums(cosines, 2 * t.row, t.row, h, x0.im, w.s_im, w.a_im);
  weighted_sums(sines, 2 * t.row, t.row, h, R(0), w.d_re, w.b_re);
  weighted_sums(sines, 2 * t.row, t.row, h, R(0), w.d_im, w.b_im);
  const auto put = [&](int32_t k, R re, R im) {
    store_complex<F>(e.y_re, e.y_im, k, complex_lanes<R>{re * e.scale_re, im * e.scale_im});
  };
  put(0, total.re, total.im);
  for (int32_t k = 1; k <= h; ++k) {
    put(k, w.a_re[k - 1] + w.b_im[k - 1], w.a_im[k - 1] - w.b_re[k - 1]);
    put(n - k, w.a_re[k - 1] - w.b_im[k - 1], w.a_im[k - 1] + w.b_re[k - 1]);
  }
}

}  // namespace

template <class R>
bool direct_build(direct_table<R>* t, int32_t n) {
  const int32_t h = n / 2;
  t->row = (h + lanes_of<R> - 1) / lanes_of<R> * lanes_of<R>;
  t->memory = static_cast<R*>(engine_allocate(uint64_t(h) * uint64_t(t->row) * 2 * sizeof(R)));
  if (t->memory == nullptr) return false;
  for (int32_t j = 1; j <= h; ++j)
    for (int32_t k = 1; k <= t->row; ++k) {
      const zor_c64 v = root_of_unity(int64_t{j} * (k < h ? k : h), n);
      R* w = t->memory + ptrdiff_t{2} * t->row * (j - 1) + k - 1;
      w[0] = R(v.re);
      w[t->row] = R(-v.im);
    }
  return true;
}

template <class R>
void direct_free(direct_table<R>* t) {
  engine_free(t->memory);
  t->memory = nullptr;
}

template <class R>
void direct_complex(const direct_table<R>& t, int32_t n, form outer, const pass_data<R>& ends) {
  if (outer == form::split)
    direct_run<R, form::split>(t, n, ends);
  else
    direct_run<R, form::interleaved>(t, n, ends);
}

template <class R>
void direct_real_forward(const direct_table<R>& t, int32_t n, const R* x, R* y, R scale) {
  const int32_t h = n / 2;
  pair_sums<R> w;
  const R x0 = x[0];
  R total = x0;
  for (int32_t j = 1; j <= h; ++j) {
    w.s_re[j - 1] = x[j] + x[n - j];
    w.d_re[j - 1] = x[j] - x[n - j];
    total = total + w.s_re[j - 1];
  }
  weighted_sums(t.memory, 2 * t.row, t.row, h, x0, w.s_re, w.a_re);
  weighted_sums(t.memory + t.row, 2 * t.row, t.row, h, R(0), w.d_re, w.b_re);
  y[0] = total * scale;
  for (int32_t k = 1; k <= h; ++k) {
    y[2 * k - 1] = w.a_re[k - 1] * scale;
    y[2 * k] = -w.b_re[k - 1] * scale;
  }
}

template <class R>
void direct_real_backward(const direct_table<R>& t, int32_t n, const R* x, R* y, R scale) {
  const int32_t h = n / 2;
  pair_sums<R> w;
  const R x0 = x[0];
  R total = x0;
  for (int32_t k = 1; k <= h; ++k) {
    w.s_re[k - 1] = x[2 * k - 1] + x[2 * k - 1];
    w.d_re[k - 1] = x[2 * k] + x[2 * k];
    total = total + w.s_re[k - 1];
  }
  weighted_sums(t.memory, 2 * t.row, t.row, h, x0, w.s_re, w.a_re);
  weighted_sums(t.memory + t.row, 2 * t.row, t.row, h, R(0), w.d_re, w.b_re);
  y[0] = total * scale;
  for (int32_t j = 1; j <= h; ++j) {
    y[j] = (w.a_re[j - 1] - w.b_re[j - 1]) * scale;
    y[n - j] = (w.a_re[j - 1] + w.b_re[j - 1]) * scale;
  }
}

#define ZOR_INSTANCES(R)                                                                       \
  template bool direct_build<R>(direct_table<R>*, int32_t);                                    \
  template void direct_free<R>(direct_table<R>*);                                              \
  template void direct_complex<R>(const direct_table<R>&, int32_t, form, const pass_data<R>&); \
  template void direct_real_forward<R>(const direct_table<R>&, int32_t, const R*, R*, R);      \
  template void direct_real_backward<R>(const direct_table<R>&, int32_t, const R*, R*, R);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
