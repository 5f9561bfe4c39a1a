// SPDX-License-Identifier: MIT
// Rows of unordered transforms: a butterfly of every radix in both directions, in place.
#include "dft/engine/passes/unordered.h"

#include <cstring>

#include "dft/engine/passes/bodies.h"
#include "dft/engine/plan/memory.h"
#include "dft/engine/roots/root_table.h"

namespace zor::dft {
namespace {

// Butterfly of a fixed radix, or of any odd one when r is 0.
template <int r, class V, class R>
[[gnu::always_inline]] inline void butterfly(const row_pass<R>& row, complex_lanes<V>* u) {
  if constexpr (r > 0) {
    dft<r>(u);
  } else {
    complex_lanes<V> y[largest_generic];
    generic_dft<R, V>(row.radix, row.cosines, u, y);
    for (int s = 0; s < row.radix; ++s) u[s] = y[s];
  }
}

template <class F, int r>
[[gnu::always_inline]] inline void each_term(int radix, F f) {
  if constexpr (r > 0)
    unrolled<r>(f);
  else
    for (int i = 0; i < radix; ++i) f(i);
}

template <class V, class R>
[[gnu::always_inline]] inline complex_lanes<V> row_twiddle(const row_pass<R>& row, int s, ptrdiff_t q) {
  const R* w = row.twiddles + 2 * (s - 1) * row.span + q;
  return {load_lanes<V>(w), load_lanes<V>(w + row.span)};
}

// Decimation in frequency: butterfly, then twiddles.
template <class R, int r, class V>
[[gnu::always_inline]] inline void forward_at(const row_pass<R>& row, const R* x, R* y, ptrdiff_t base,
                                              ptrdiff_t q, R scale) {
  complex_lanes<V> u[r > 0 ? r : largest_generic];
  const auto load_term = [&](auto t) __attribute__((always_inline)) {
    u[t] = load_complex<form::interleaved, V>(x, x, base + q + row.span * t);
  };
  each_term<decltype(load_term), r>(row.radix, load_term);
  butterfly<r, V>(row, u);
  const auto store_term = [&](auto s) __attribute__((always_inline)) {
    complex_lanes<V> v = u[s];
    if (row.span > 1 && s > 0) {
      const complex_lanes<V> w = row_twiddle<V>(row, s, q);
      v = mul(v, w.re, w.im);
    }
    store_complex<form::interleaved>(y, y, base + q + row.span * s,
                                     complex_lanes<V>{v.re * scale, v.im * scale});
  };
  each_term<decltype(store_term), r>(row.radix, store_term);
}

// Decimation in time on conjugates: twiddles, then butterfly.
template <class R, int r, class V>
[[gnu::always_inline]] inline void backward_at(const row_pass<R>& row, const R* x, R* y, ptrdiff_t base,
                                               ptrdiff_t q, R sign, R scale) {
  complex_lanes<V> u[r > 0 ? r : largest_generic];
  const auto load_term = [&](auto t) __attribute__((always_inline)) {
    u[t] = load_complex<form::interleaved, V>(x, x, base + q + row.span * t);
    u[t].im = with_sign(u[t].im, sign);
    if (row.span > 1 && t > 0) {
      const complex_lanes<V> w = row_twiddle<V>(row, t, q);
      u[t] = mul(u[t], w.re, w.im);
    }
  };
  each_term<decltype(load_term), r>(row.radix, load_term);
  butterfly<r, V>(row, u);
  const R scale_im = row.blocks == 1 ? -scale : scale;
  const auto store_term = [&](auto s) __attribute__((always_inline)) {
    store_complex<form::interleaved>(y, y, base + q + row.span * s,
                                     complex_lanes<V>{u[s].re * scale, u[s].im * scale_im});
  };
  each_term<decltype(store_term), r>(row.radix, store_term);
}

template <class R, int r>
void row_forward(const row_pass<R>& row, const R* x, R* y, R scale) {
  using V = vec<R>;
  for (ptrdiff_t b = 0; b < row.blocks; ++b) {
    const ptrdiff_t base = b * row.span * row.radix;
    ptrdiff_t q = 0;
    for (; q + lanes<V> <= row.span; q += lanes<V>) forward_at<R, r, V>(row, x, y, base, q, scale);
    for (; q < row.span; ++q) forward_at<R, r, R>(row, x, y, base, q, scale);
  }
}
template <class R, int r>
void row_backward(const row_pass<R>& row, const R* x, R* y, R sign, R scale) {
  using V = vec<R>;
  for (ptrdiff_t b = 0; b < row.blocks; ++b) {
    const ptrdiff_t base = b * row.span * row.radix;
    ptrdiff_t q = 0;
    for (; q + lanes<V> <= row.span; q += lanes<V>) backward_at<R, r, V>(row, x, y, base, q, sign, scale);
    for (; q < row.span; ++q) backward_at<R, r, R>(row, x, y, base, q, sign, scale);
  }
}

template <class R, int r>
void set_row(row_pass<R>* row) {
  row->forward = row_forward<R, r>;
  row->backward = row_backward<R, r>;
}

template <class R>
void choose_row(row_pass<R>* row) {
  set_row<R, 0>(row);
  with_radix(row->radix, [&]<int r>(std::integral_constant<int, r>) {
    if constexpr (row_of_radix(r).unordered) set_row<R, r>(row);
  });
}

// The order of the values follows from that of the rows: odd primes, the largest first, then fours, then a
// two.
int32_t next_radix(int32_t rest) {
  for (int32_t d = largest_generic - 2; d > 2; d -= 2) {
    bool prime = true;
    for (int32_t e = 3; e * e <= d; e += 2) prime = prime && d % e != 0;
    if (prime && rest % d == 0) return d;
  }
  return rest % 4 == 0 ? 4 : 2;
}

}  // namespace

template <class R>
bool unordered_build(unordered_chain<R>* c, int32_t n) {
  std::memset(static_cast<void*>(c), 0, sizeof *c);
  c->n = n;
  ptrdiff_t size = 0;
  for (ptrdiff_t rest = n, blocks = 1; rest > 1; ++c->count) {
    row_pass<R>* row = &c->rows[c->count];
    row->radix = next_radix(int32_t(rest));
    row->blocks = blocks;
    row->span = rest / row->radix;
    choose_row(row);
    blocks *= row->radix;
    rest = row->span;
    size += 2 * (row->radix - 1) * row->span + 2 * row->radix;
  }
  c->tables = static_cast<R*>(engine_allocate(uint64_t(size) * sizeof(R)));
  root_table roots;
  if (c->tables == nullptr || !roots_build(&roots, n)) {
    unordered_free(c);
    return false;
  }
  R* table = c->tables;
  for (int32_t i = 0; i < c->count; ++i) {
    row_pass<R>* row = &c->rows[i];
    row->twiddles = table;
    for (int32_t s = 1; s < row->radix; ++s, table += 2 * row->span)
      walk_roots(
          roots, s * row->blocks,
          row->span, [&](ptrdiff_t q, const root_view& view, int64_t k) __attribute__((always_inline)) {
            set_root(table + q, view.head(k), row->span);
          });
    row->cosines = table;
    for (int32_t k = 0; k < row->radix; ++k, table += 2) {
      const zor_c64 w = root_of_unity(k, row->radix);
      table[0] = R(w.re);
      table[1] = R(-w.im);
    }
  }
  roots_free(&roots);
  return true;
}

template <class R>
void unordered_free(unordered_chain<R>* c) {
  engine_free(c->tables);
  c->tables = nullptr;
}

template <class R>
void unordered_forward(const unordered_chain<R>& c, const R* x, R* y, R scale) {
  for (int32_t i = 0; i < c.count; ++i)
    c.rows[i].forward(c.rows[i], i == 0 ? x : y, y, i == c.count - 1 ? scale : R(1));
}
template <class R>
void unordered_backward(const unordered_chain<R>& c, const R* x, R* y, R scale) {
  for (int32_t i = c.count - 1; i >= 0; --i) {
    const bool first = i == c.count - 1;
    c.rows[i].backward(c.rows[i], first ? x : y, y, first ? R(-1) : R(1), i == 0 ? scale : R(1));
  }
}

#define ZOR_INSTANCES(R)                                                          \
  template bool unordered_build<R>(unordered_chain<R>*, int32_t);                 \
  template void unordered_free<R>(unordered_chain<R>*);                           \
  template void unordered_forward<R>(const unordered_chain<R>&, const R*, R*, R); \
  template void unordered_backward<R>(const unordered_chain<R>&, const R*, R*, R);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
