// SPDX-License-Identifier: MIT
// Kernels of short lengths that need neither plan nor work.
#include "dft/engine/passes/two_passes.h"
#include "dft/engine/plan/plan.h"

namespace zor::dft {
namespace {

// A length of L by L values where a vector holds L of them: the square never leaves registers.
template <class R, int N>
struct square {
  using V = vec<R>;
  static constexpr int L = lanes_of<R> / 2;
  struct twiddle_table {
    alignas(64) R re[L][2 * L], im[L][2 * L];
  };
  static constexpr twiddle_table make() {
    twiddle_table t{};
    for (int s = 1; s < L; ++s)
      for (int j = 0; j < 2 * L; ++j) {
        const zor_c64 v = dd::constant_root(j / 2 * s, N);
        t.re[s][j] = R(v.re);
        t.im[s][j] = R(v.im);
      }
    return t;
  }
  static constexpr twiddle_table table = make();
};
// Taken where vectors with the parts apart would stay half empty.
template <class R, int N>
inline constexpr bool is_square = lanes_of<R> >= 8 && N == lanes_of<R> / 2 * (lanes_of<R> / 2);

template <class R, int N, bool Plain>
[[gnu::always_inline]] inline void square_of(const pass_data<R>& d) {
  using S = square<R, N>;
  using V = typename S::V;
  constexpr int L = S::L;
  packed_lanes<V> u[L];
  const V scale = broadcast_pair<V>(d.scale_re, d.scale_im);
  unrolled<L>([&](auto t) __attribute__((always_inline)) {
    u[t].v = load<V>(d.x_re + 2 * L * t);
    if constexpr (!Plain) u[t].v = d.sign < 0 ? negate_pairs<1>(u[t].v) : u[t].v;
  });
  dft<L>(u);
  V rows[L];
  rows[0] = u[0].v;
  unrolled<L - 1>([&](auto s) __attribute__((always_inline)) {
    rows[s + 1] = mul(u[s + 1], load<V>(S::table.re[s + 1]), load<V>(S::table.im[s + 1])).v;
  });
  transpose_units<2>(rows);
  unrolled<L>([&](auto t) __attribute__((always_inline)) { u[t].v = rows[t]; });
  dft<L>(u);
  unrolled<L>([&](auto s) __attribute__((always_inline)) {
    if constexpr (!Plain) u[s].v = u[s].v * scale;
    store(d.y_re + 2 * L * s, u[s].v);
  });
}

template <class R, int N, bool Plain>
[[gnu::always_inline]] inline void two_passes_of(const pass_data<R>& ends) {
  using T = two_passes<R, N>;
  alignas(64) R work[2 * N];
  pass_data<R> d = ends;
  d.y_re = work;
  first_body<R, T::r, typename T::first_vector, form::interleaved, form::blocked, Plain>(d, T::table.values,
                                                                                         T::l);
  d = ends;
  d.x_re = work;
  last_body<R, T::l, typename T::last_vector, form::blocked, form::interleaved, Plain>(d, T::m);
}

// These lengths are bound by their arithmetic, so products by one are left out where there are no others.
template <class R, int N>
void run_two_passes(const pass_data<R>& ends, const pass<R>&) {
  const bool plain = ends.sign == R(1) && ends.scale_re == R(1) && ends.scale_im == R(1);
  if constexpr (is_square<R, N>)
    plain ? square_of<R, N, true>(ends) : square_of<R, N, false>(ends);
  else
    plain ? two_passes_of<R, N, true>(ends) : two_passes_of<R, N, false>(ends);
}

template <class R, direction D, int N>
void fixed(const void* in, void* out, double scale) {
  const R re = R(scale), im = D == forward ? re : -re;
  const pass_data<R> ends{
      static_cast<const R*>(in), nullptr, static_cast<R*>(out), nullptr, D == forward ? R(1) : R(-1), re, im};
  if constexpr (N >= 16)
    run_two_passes<R, N>(ends, pass<R>{});
  else
    straight_pass<R, N, form::interleaved>(ends, pass<R>{});
}

template <class R, direction D, int... N>
fixed_kernel* fixed_from(int32_t length, std::integer_sequence<int, N...>) {
  fixed_kernel* found = nullptr;
  ((length == N + 1 ? void(found = fixed<R, D, N + 1>) : void()), ...);
  if (length == 32) found = fixed<R, D, 32>;
  if (length == 64) found = fixed<R, D, 64>;
  if (length == 128) found = fixed<R, D, 128>;
  return found;
}

template <class R>
fixed_kernel* fixed_complex(int32_t length, direction d) {
  using lengths = std::make_integer_sequence<int, 16>;
  return d == forward ? fixed_from<R, forward>(length, lengths())
                      : fixed_from<R, backward>(length, lengths());
}

}  // namespace

template <class R>
pass_run<R> find_two_passes(int32_t n) {
  switch (n) {
    case 16:
      return run_two_passes<R, 16>;
    case 32:
      return run_two_passes<R, 32>;
    case 64:
      return run_two_passes<R, 64>;
    case 128:
      return run_two_passes<R, 128>;
    case 256:
      return run_two_passes<R, 256>;
    default:
      return nullptr;
  }
}
template pass_run<float> find_two_passes<float>(int32_t);
template pass_run<double> find_two_passes<double>(int32_t);

fixed_kernel* fixed_complex_s(int32_t length, direction d) { return fixed_complex<float>(length, d); }
fixed_kernel* fixed_complex_d(int32_t length, direction d) { return fixed_complex<double>(length, d); }

}  // namespace zor::dft
