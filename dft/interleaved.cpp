// SPDX-License-Identifier: MIT
// Rows 2m and 2m + 1 of real lines are the complex row m of a transform of half the length, whose result is
// recombined as it is for one line.
#include "dft/interleaved.h"

#include "dft/engine/plan/memory.h"
#include "dft/engine/real/recombine.h"
#include "dft/engine/roots/root_table.h"
#include "serv/control.h"
#include "serv/vec.h"

namespace zor::dft {
namespace {

// One row as vectors, and a pair of rows as complex values with their parts apart.
template <class R>
struct row {
  using V = vec<R>;
  static constexpr int vectors = int(real_row<R> / lanes<V>);
  complex_lanes<V> v[vectors];

  [[gnu::always_inline]] static row load_pair(const R* x) {
    row r;
#pragma GCC unroll 4
    for (int g = 0; g < vectors; ++g)
      r.v[g] = {load<V>(x + g * lanes<V>), load<V>(x + real_row<R> + g * lanes<V>)};
    return r;
  }
  [[gnu::always_inline]] void store_pair(R* x) const {
#pragma GCC unroll 4
    for (int g = 0; g < vectors; ++g) {
      store<V>(x + g * lanes<V>, v[g].re);
      store<V>(x + real_row<R> + g * lanes<V>, v[g].im);
    }
  }
  [[gnu::always_inline]] static row load_complex_row(const R* x) {
    row r;
#pragma GCC unroll 4
    for (int g = 0; g < vectors; ++g) {
      const V low = load<V>(x + 2 * g * lanes<V>), high = load<V>(x + (2 * g + 1) * lanes<V>);
      r.v[g] = {unzip<0>(low, high), unzip<1>(low, high)};
    }
    return r;
  }
  [[gnu::always_inline]] void store_complex_row(R* x) const {
#pragma GCC unroll 4
    for (int g = 0; g < vectors; ++g) {
      store<V>(x + 2 * g * lanes<V>, zip_low(v[g].re, v[g].im));
      store<V>(x + (2 * g + 1) * lanes<V>, zip_high(v[g].re, v[g].im));
    }
  }
  template <class Each>
  [[gnu::always_inline]] void each(const Each& body) {
#pragma GCC unroll 4
    for (int g = 0; g < vectors; ++g) v[g] = body(v[g]);
  }
};

// Value 0 of the half transform holds the values 0 and n / 2 of the spectrum, value h / 2 the conjugate of
// its namesake; the others go in pairs.
template <class R>
void spectrum_of_halves(const real_rows<R>& t, R* x) {
  using V = vec<R>;
  const ptrdiff_t h = t.n / 2, step = 2 * real_row<R>;
  auto first = row<R>::load_complex_row(x);
  first.each([](complex_lanes<V> z) { return complex_lanes<V>{R(2) * (z.re + z.im), R(2) * (z.re - z.im)}; });
  first.store_pair(x);
  for (ptrdiff_t k = 1; 2 * k < h; ++k) {
    auto a = row<R>::load_complex_row(x + step * k), b = row<R>::load_complex_row(x + step * (h - k));
    const R re = t.roots[2 * k], im = t.roots[2 * k + 1];
    for (int g = 0; g < row<R>::vectors; ++g) recombine(&a.v[g], &b.v[g], re, im);
    a.store_pair(x + step * k);
    b.store_pair(x + step * (h - k));
  }
  if (h % 2 == 0) {
    auto middle = row<R>::load_complex_row(x + step * (h / 2));
    middle.each([](complex_lanes<V> z) { return complex_lanes<V>{R(2) * z.re, R(-2) * z.im}; });
    middle.store_pair(x + step * (h / 2));
  }
}

template <class R>
void halves_of_spectrum(const real_rows<R>& t, R* x) {
  using V = vec<R>;
  const ptrdiff_t h = t.n / 2, step = 2 * real_row<R>;
  auto first = row<R>::load_pair(x);
  first.each([](complex_lanes<V> z) { return complex_lanes<V>{z.re + z.im, z.re - z.im}; });
  first.store_complex_row(x);
  for (ptrdiff_t k = 1; 2 * k < h; ++k) {
    auto a = row<R>::load_pair(x + step * k), b = row<R>::load_pair(x + step * (h - k));
    const R re = t.roots[2 * k], im = t.roots[2 * k + 1];
    for (int g = 0; g < row<R>::vectors; ++g) separate(&a.v[g], &b.v[g], re, im);
    a.store_complex_row(x + step * k);
    b.store_complex_row(x + step * (h - k));
  }
  if (h % 2 == 0) {
    auto middle = row<R>::load_pair(x + step * (h / 2));
    middle.each([](complex_lanes<V> z) { return complex_lanes<V>{R(2) * z.re, R(-2) * z.im}; });
    middle.store_complex_row(x + step * (h / 2));
  }
}

template <class V, class R>
[[gnu::always_inline]] inline complex_lanes<V> turned_back(complex_lanes<V> z, const R* w) {
  return {z.re * w[0] + z.im * w[1], z.im * w[0] - z.re * w[1]};
}

}  // namespace

template <class R>
int32_t commit_real_rows(real_rows<R>* t, int32_t n) {
  *t = {};
  if (n % 2 != 0) return engine_bad_size;
  int32_t code = commit_line<R>(&t->half, line_kind::complex, n / 2, scale_none);
  if (code != engine_done) return code;
  if (interleaved_block(t->half).columns != real_row<R>) {
    free_line(&t->half);
    return engine_bad_size;
  }
  t->n = n;
  const int64_t count = n / 4 + 1;
  t->roots = static_cast<R*>(engine_allocate_unfilled(uint64_t(count) * 2 * sizeof(R)));
  root_table roots{};
  const bool built = t->roots != nullptr && in_default_modes([&] { return roots_build(&roots, n); });
  if (!built) {
    free_real_rows(t);
    return engine_no_memory;
  }
  for (int64_t k = 0; k < count; ++k) set_root(t->roots + 2 * k, root_at(roots, k), 1);
  roots_free(&roots);
  return engine_done;
}

template <class R>
void free_real_rows(real_rows<R>* t) {
  free_line(&t->half);
  engine_free(t->roots);
  *t = {};
}

template <class R>
void run_real_rows(const real_rows<R>& t, direction way, R* x, void* tile) {
  const ptrdiff_t width = real_row<R>;
  if (way == forward) {
    for (ptrdiff_t m = 0; m < t.n; m += 2) row<R>::load_pair(x + m * width).store_complex_row(x + m * width);
    run_interleaved_lines(t.half, {x, x, width, width, width, way, 0.5}, tile);
    spectrum_of_halves(t, x);
  } else {
    halves_of_spectrum(t, x);
    run_interleaved_lines(t.half, {x, x, width, width, width, way, 1.0}, tile);
    for (ptrdiff_t m = 0; m < t.n; m += 2) row<R>::load_complex_row(x + m * width).store_pair(x + m * width);
  }
}

template <class R>
void run_turned_rows(const real_rows<R>& t, const R* w, bool sine, R* x, void* tile) {
  using Z = complex_lanes<vec<R>>;
  const ptrdiff_t width = real_row<R>;
  const R sign = sine ? R(-1) : R(1);
  for (ptrdiff_t m = 0; m < t.n; m += 2) {
    auto z = row<R>::load_pair(x + m * width);
    z.each([=](Z v) { return turned_back(Z{v.re, sign * v.im}, w + m); });
    z.store_complex_row(x + m * width);
  }
  run_interleaved_lines(t.half, {x, x, width, width, width, forward, 1.0}, tile);
  for (ptrdiff_t m = 0; m < t.n; m += 2) {
    auto z = row<R>::load_complex_row(x + m * width);
    z.each([=](Z v) {
      const Z u = turned_back(v, w + m);
      return sine ? Z{-u.im, u.re} : Z{u.re, -u.im};
    });
    z.store_pair(x + m * width);
  }
}

#define ZOR_INSTANCES(R)                                                     \
  template int32_t commit_real_rows<R>(real_rows<R>*, int32_t);              \
  template void free_real_rows<R>(real_rows<R>*);                            \
  template void run_real_rows<R>(const real_rows<R>&, direction, R*, void*); \
  template void run_turned_rows<R>(const real_rows<R>&, const R*, bool, R*, void*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
