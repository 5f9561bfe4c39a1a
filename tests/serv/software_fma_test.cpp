// SPDX-License-Identifier: MIT
// The software operation against MPFR in the four rounding modes, and against the processor's instruction,
// where it has one, in these and with denormal operands or results as zeros, flags included.
#include "serv/software_fma.h"

#include <gtest/gtest.h>
#include <immintrin.h>
#include <mpfr.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <vector>

namespace {

struct mode {
  const char* name;
  unsigned control;
  mpfr_rnd_t rounding;
};
const mode modes[] = {{"nearest", _MM_ROUND_NEAREST, MPFR_RNDN},
                      {"down", _MM_ROUND_DOWN, MPFR_RNDD},
                      {"up", _MM_ROUND_UP, MPFR_RNDU},
                      {"towards zero", _MM_ROUND_TOWARD_ZERO, MPFR_RNDZ}};

// What a call returns, with the control word while it runs: modes in, flags out.
template <class R, class Call>
R run(Call call, unsigned& control, R a, R b, R c) {
  const unsigned caller = _mm_getcsr();
  _mm_setcsr(_MM_MASK_MASK | control);
  asm volatile("" : "+x"(a), "+x"(b), "+x"(c) : : "memory");
  R r = call(a, b, c);
  asm volatile("" : "+x"(r) : : "memory");
  control = _mm_getcsr() & _MM_EXCEPT_MASK;
  _mm_setcsr(caller);
  return r;
}

[[gnu::target("fma")]] double instruction(double a, double b, double c) {
  return _mm_cvtsd_f64(_mm_fmadd_sd(_mm_set_sd(a), _mm_set_sd(b), _mm_set_sd(c)));
}
[[gnu::target("fma")]] float instruction(float a, float b, float c) {
  return _mm_cvtss_f32(_mm_fmadd_ss(_mm_set_ss(a), _mm_set_ss(b), _mm_set_ss(c)));
}

template <class R>
R by_mpfr(R a, R b, R c, mpfr_rnd_t rounding) {
  constexpr bool wide = sizeof(R) == 8;
  mpfr_set_emin(wide ? -1073 : -148);
  mpfr_set_emax(wide ? 1024 : 128);
  mpfr_t x, y, z, r;
  mpfr_inits2(wide ? 53 : 24, x, y, z, r, mpfr_ptr());
  mpfr_set_d(x, double(a), MPFR_RNDN);
  mpfr_set_d(y, double(b), MPFR_RNDN);
  mpfr_set_d(z, double(c), MPFR_RNDN);
  mpfr_subnormalize(r, mpfr_fma(r, x, y, z, rounding), rounding);
  const R result = R(mpfr_get_d(r, MPFR_RNDN));
  mpfr_clears(x, y, z, r, mpfr_ptr());
  return result;
}

template <class R>
using bits_of = std::conditional_t<sizeof(R) == 8, uint64_t, uint32_t>;

template <class R>
bool same(R a, R b) {
  return (std::isnan(a) && std::isnan(b)) || std::bit_cast<bits_of<R>>(a) == std::bit_cast<bits_of<R>>(b);
}

template <class R>
struct operands {
  R a, b, c;
};

// All of a list of special numbers by three; random ones whose product and addend overlap, cancel, or meet at
// the edges of the exponents.
template <class R>
std::vector<operands<R>> cases() {
  using limits = std::numeric_limits<R>;
  std::vector<R> special = {0,
                            1,
                            R(1) + limits::epsilon(),
                            3,
                            limits::denorm_min(),
                            limits::min() - limits::denorm_min(),
                            limits::min(),
                            limits::min() * (1 + limits::epsilon()),
                            limits::epsilon() / 2,
                            std::sqrt(limits::min()),
                            limits::max(),
                            limits::max() / 2,
                            limits::infinity(),
                            limits::quiet_NaN(),
                            limits::signaling_NaN()};
  for (size_t i = 0, count = special.size(); i < count; ++i) special.push_back(-special[i]);
  std::vector<operands<R>> all;
  for (const R a : special)
    for (const R b : special)
      for (const R c : special) all.push_back({a, b, c});
  std::mt19937_64 bits(7);
  constexpr int digits = limits::digits, low = limits::min_exponent - digits, high = limits::max_exponent;
  const auto number = [&](int exponent) {
    // Few leading bits as often as many, so that halves and exact results come up.
    const int kept = 1 + int(bits() % digits);
    const R significand = R(1) + std::ldexp(R(bits() >> (64 - kept)), -kept);
    return std::ldexp(bits() % 2 != 0 ? -significand : significand, exponent);
  };
  for (int i = 0; i < 60000; ++i) {
    const int edge = i % 3 == 0 ? low : i % 3 == 1 ? high : 0;
    const int ea = int(bits() % 40) - 20, product = edge + int(bits() % (4 * digits)) - 2 * digits;
    const R a = number(ea), b = number(product - ea);
    const R near = std::nextafter(-a * b, R(int(bits() % 3) - 1));
    all.push_back({a, b, i % 5 == 0 ? near : number(product + int(bits() % (5 * digits)) - 5 * digits / 2)});
  }
  return all;
}

template <class R>
class SoftwareFma : public ::testing::Test {};
using reals = ::testing::Types<float, double>;
TYPED_TEST_SUITE(SoftwareFma, reals);

TYPED_TEST(SoftwareFma, IsExactBeforeItRounds) {
  using R = TypeParam;
  const auto software = [](R a, R b, R c) { return zor::software_fma(a, b, c); };
  int failures = 0;
  for (const mode& m : modes)
    for (const operands<R>& o : cases<R>()) {
      unsigned control = m.control;
      const R wanted = by_mpfr(o.a, o.b, o.c, m.rounding), result = run<R>(software, control, o.a, o.b, o.c);
      if (!same(result, wanted) && ++failures < 10)
        ADD_FAILURE() << m.name << ": fma(" << std::hexfloat << o.a << ", " << o.b << ", " << o.c
                      << ") = " << result << ", not " << wanted;
    }
  EXPECT_EQ(0, failures);
}

TYPED_TEST(SoftwareFma, IsTheInstruction) {
  using R = TypeParam;
  if (!__builtin_cpu_supports("fma")) GTEST_SKIP() << "this processor has no such instruction";
  const auto software = [](R a, R b, R c) { return zor::software_fma(a, b, c); };
  const auto hardware = [](R a, R b, R c) { return instruction(a, b, c); };
  int failures = 0;
  for (const mode& m : modes)
    for (const unsigned zeros : {0u, unsigned(_MM_FLUSH_ZERO_ON), unsigned(_MM_DENORMALS_ZERO_ON),
                                 unsigned(_MM_FLUSH_ZERO_ON | _MM_DENORMALS_ZERO_ON)})
      for (const operands<R>& o : cases<R>()) {
        unsigned flags = m.control | zeros, wanted_flags = flags;
        const R result = run<R>(software, flags, o.a, o.b, o.c);
        const R wanted = run<R>(hardware, wanted_flags, o.a, o.b, o.c);
        if ((!same(result, wanted) || flags != wanted_flags) && ++failures < 10)
          ADD_FAILURE() << m.name << ", zeros " << std::hex << zeros << ": fma(" << std::hexfloat << o.a
                        << ", " << o.b << ", " << o.c << ") = " << result << " flags " << flags << ", not "
                        << wanted << " flags " << wanted_flags;
      }
  EXPECT_EQ(0, failures);
}

}  // namespace
