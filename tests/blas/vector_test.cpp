// SPDX-License-Identifier: MIT
// Every vector kernel with increments, against the plain references bit for bit: results, operands, the bytes
// around them and the exception flags, for sizes around every block, all positions modulo 16 and all signs of
// increments.
#include "zor/signatures/blas.h"

#include "tests/blas/vector_operands.h"

namespace {

using namespace zor_test;
using ref::real_of;

std::vector<zor_int> sizes() {
  std::vector<zor_int> n = {-1};
  for (zor_int i = 0; i <= 70; ++i) n.push_back(i);
  for (zor_int i : {95, 96, 97, 127, 128, 129, 143, 160, 191, 223, 257, 511, 515, 1023, 1100}) n.push_back(i);
  return n;
}

// One call in both worlds. f(kernel?, n, x, incx, y, incy, out) runs the kernel or the reference and leaves
// scalar results, widened, in out.
template <class T, class F>
class runner {
  using R = real_of<T>;
  static constexpr zor_int reals = ref::is_complex<T> ? 2 : 1;

 public:
  runner(const char* name, F f) : name_(name), f_(f) {}

  void run(zor_int n, zor_int incx, zor_int incy, placement px, placement py, fill kind) {
    x_.place(span(n, incx), px, kind, random_);
    y_.place(span(n, incy), py, kind, random_);
    double actual[2] = {}, expected[2] = {};
    const int expected_flags = flags_of(
        [&] { f_(false, n, x_.template reference<T>(), incx, y_.template reference<T>(), incy, expected); });
    const int flags =
        flags_of([&] { f_(true, n, x_.template kernel<T>(), incx, y_.template kernel<T>(), incy, actual); });
    const auto where = [&] {
      return std::string(name_) + " n=" + std::to_string(n) + " incx=" + std::to_string(incx) +
             " incy=" + std::to_string(incy) + " x at " +
             std::to_string(ref::address(x_.template kernel<T>()) % 16) + " y at " +
             std::to_string(ref::address(y_.template kernel<T>()) % 16) + " fill " +
             std::to_string(int(kind));
    };
    EXPECT_TRUE(same_bits(expected, actual, 2)) << "result of " << where();
    EXPECT_TRUE(x_.same()) << "x of " << where();
    EXPECT_TRUE(y_.same()) << "y of " << where();
    EXPECT_EQ(expected_flags, flags) << "exception flags of " << where();
  }

  // All sizes; every pair of placements at unit increment, two of them at the others; the fills in turn.
  void run_all(zor_int incx, zor_int incy, bool two_vectors) {
    for (const zor_int n : sizes()) {
      // One element lies where it lies, whatever the increment.
      if (n > 1 && (std::max(incx, incy) == INT64_MAX || std::min(incx, incy) == INT64_MIN)) continue;
      const bool unit = incx == incy && (incx == 1 || incx == -1);
      for (const placement& px : placements)
        for (const placement& py : placements) {
          if (!two_vectors && &py != placements) continue;
          if (!unit && two_vectors && ++call_ % 16 != 0) continue;
          run(n, incx, incy, px, py, fills[++call_ % 5]);
        }
      if (::testing::Test::HasFailure()) return;
    }
  }

 private:
  static size_t span(zor_int n, zor_int inc) {
    return n < 1 ? 0 : n == 1 ? reals : size_t(((n - 1) * std::abs(inc) + 1) * reals);
  }

  const char* name_;
  F f_;
  operand<R> x_, y_;
  random_bits random_{20260101};
  size_t call_ = 0;
};

struct steps {
  zor_int x, y;
};
constexpr zor_int one_increment[] = {1, -1, 2, -2, 3, -3, 7, 0, INT64_MIN, INT64_MAX};
constexpr steps two_increments[] = {{1, 1},         {-1, -1},
                                    {1, -1},        {-1, 1},
                                    {2, 2},         {-2, -2},
                                    {2, 1},         {1, 3},
                                    {-3, 2},        {2, -3},
                                    {0, 1},         {1, 0},
                                    {0, 0},         {INT64_MIN, INT64_MIN},
                                    {INT64_MIN, 1}, {INT64_MAX, INT64_MIN}};

template <class T, class F>
void check_one(const char* name, F f) {
  runner<T, F> r(name, f);
  for (const zor_int inc : one_increment) r.run_all(inc, inc, false);
}
template <class T, class F>
void check_two(const char* name, F f) {
  runner<T, F> r(name, f);
  for (const auto [x, y] : two_increments) r.run_all(x, y, true);
}

template <class T>
void store(T v, double* out) {
  if constexpr (ref::is_complex<T>) {
    out[0] = v.re;
    out[1] = v.im;
  } else {
    out[0] = double(v);
  }
}

template <class A>
std::vector<A> factors() {
  using R = real_of<A>;
  const R nan = std::numeric_limits<R>::quiet_NaN(), inf = std::numeric_limits<R>::infinity();
  if constexpr (ref::is_complex<A>)
    return {{0, 0}, {1, 0}, {R(0.7), R(-1.3)}, {0, 1}, {nan, 0}, {0, inf}};
  else
    return {0, 1, R(-1.3), nan, inf};
}

#define ONE_TEST(name, T, kernel_call, reference_call)                             \
  check_one<T>(#name, [=](bool kernel, zor_int n, T* x, zor_int incx, T*, zor_int, \
                          [[maybe_unused]] double* out) { kernel ? kernel_call : reference_call; });
#define VALUE_TEST(name, T, ...) \
  TEST(vector, name) { ONE_TEST(name, T, store(name(&n, x, &incx), out), store(ref::__VA_ARGS__, out)) }
#define ROW_ASUM(name, T, R) VALUE_TEST(name, T, asum(n, x, incx))
#define ROW_NRM2(name, T, R) VALUE_TEST(name, T, nrm2(n, x, incx))
#define ROW_IAMAX(name, T) VALUE_TEST(name, T, iamax(n, x, incx, false))
#define ROW_IAMIN(name, T) VALUE_TEST(name, T, iamax(n, x, incx, true))
#define ROW_SCAL(name, T, A)                                                      \
  TEST(vector, name) {                                                            \
    for (const A alpha : factors<A>())                                            \
      ONE_TEST(name, T, name(&n, &alpha, x, &incx), ref::scal(n, alpha, x, incx)) \
  }
#define TWO_TEST(name, T, kernel_call, reference_call)                                    \
  check_two<T>(#name, [=](bool kernel, zor_int n, T* x, zor_int incx, T* y, zor_int incy, \
                          [[maybe_unused]] double* out) mutable { kernel ? kernel_call : reference_call; });
#define ROW_AXPY(name, T)                                                                            \
  TEST(vector, name) {                                                                               \
    for (const T alpha : factors<T>())                                                               \
      TWO_TEST(name, T, name(&n, &alpha, x, &incx, y, &incy), ref::axpy(n, alpha, x, incx, y, incy)) \
  }
#define ROW_COPY(name, T) \
  TEST(vector, name) { TWO_TEST(name, T, name(&n, x, &incx, y, &incy), ref::copy(n, x, incx, y, incy)) }
#define ROW_SWAP(name, T) \
  TEST(vector, name) { TWO_TEST(name, T, name(&n, x, &incx, y, &incy), ref::swap(n, x, incx, y, incy)) }
#define ROW_DOT(name, T)                                                                                   \
  TEST(vector, name) {                                                                                     \
    TWO_TEST(name, T, store(name(&n, x, &incx, y, &incy), out), store(ref::dot(n, x, incx, y, incy), out)) \
  }
#define ROW_CDOT(name, T, conj)                                                    \
  TEST(vector, name) {                                                             \
    T result = {};                                                                 \
    TWO_TEST(name, T, (name(&result, &n, x, &incx, y, &incy), store(result, out)), \
             store(ref::cdot<T, conj>(n, x, incx, y, incy), out))                  \
  }
#define ROW_DSDOT(name)                                             \
  TEST(vector, name) {                                              \
    TWO_TEST(name, float, store(name(&n, x, &incx, y, &incy), out), \
             store(ref::dsdot(0, n, x, incx, y, incy), out))        \
  }
#define ROW_SDSDOT(name)                                                   \
  TEST(vector, name) {                                                     \
    for (const float sb : {0.0f, 0.7f})                                    \
      TWO_TEST(name, float, store(name(&n, &sb, x, &incx, y, &incy), out), \
               store(float(ref::dsdot(sb, n, x, incx, y, incy)), out))     \
  }
template <class S>
S sine() {
  if constexpr (ref::is_complex<S>)
    return {S{}.re + real_of<S>(0.36), real_of<S>(-0.48)};
  else
    return S(0.6);
}
#define ROW_ROT(name, T, C, S)                                                                   \
  TEST(vector, name) {                                                                           \
    const C c = C(0.8);                                                                          \
    const S s = sine<S>();                                                                       \
    TWO_TEST(name, T, name(&n, x, &incx, y, &incy, &c, &s), ref::rot(n, x, incx, y, incy, c, s)) \
  }
#define ROW_ROTM(name, T)                                                                               \
  TEST(vector, name) {                                                                                  \
    for (const T flag : {-2, -1, 0, 1}) {                                                               \
      const struct { T param[5]; } h = {{flag, T(0.9), T(-0.3), T(0.4), T(1.1)}};                       \
      TWO_TEST(name, T, name(&n, x, &incx, y, &incy, h.param), ref::rotm(n, x, incx, y, incy, h.param)) \
    }                                                                                                   \
  }
#include "zor/tables/blas_vector.inc"

// Long vectors take loops of their own; sizes just around their blocks, at two positions.
template <class T, class F>
void check_long(const char* name, F f) {
  runner<T, F> r(name, f);
  const zor_int least = zor_int((size_t(1) << 19) / sizeof(T));
  for (const zor_int n : {least - 1, least, least + 37, least + 1000})
    for (const placement& p : {placements[0], placements[3]})
      for (const fill kind : {fill::random, fill::one_nan}) r.run(n, 1, 1, p, placements[1], kind);
}

template <class T>
auto axpy_of(T alpha, zor::axpy_fn<T>* axpy) {
  return [=](bool kernel, zor_int n, T* x, zor_int incx, T* y, zor_int incy, double*) {
    kernel ? axpy(&n, &alpha, x, &incx, y, &incy) : ref::axpy(n, alpha, x, incx, y, incy);
  };
}

TEST(vector, long_vectors) {
  const double c = 0.8, s = 0.6;
  check_long<double>("xdaxpy", axpy_of(-1.3, zor_blas_xdaxpy));
  check_long<zor_c32>("xcaxpy", axpy_of(zor_c32{0.7f, -1.3f}, zor_blas_xcaxpy));
  check_long<double>(
      "xdrot", [&](bool kernel, zor_int n, double* x, zor_int incx, double* y, zor_int incy, double*) {
        kernel ? zor_blas_xdrot(&n, x, &incx, y, &incy, &c, &s) : ref::rot(n, x, incx, y, incy, c, s);
      });
  check_long<float>("xsswap",
                    [&](bool kernel, zor_int n, float* x, zor_int incx, float* y, zor_int incy, double*) {
                      kernel ? zor_blas_xsswap(&n, x, &incx, y, &incy) : ref::swap(n, x, incx, y, incy);
                    });
  check_long<double>(
      "xddot", [&](bool kernel, zor_int n, double* x, zor_int incx, double* y, zor_int incy, double* out) {
        *out = kernel ? zor_blas_xddot(&n, x, &incx, y, &incy) : ref::dot(n, x, incx, y, incy);
      });
  check_long<float>("xsdot",
                    [&](bool kernel, zor_int n, float* x, zor_int incx, float* y, zor_int incy, double* out) {
                      *out = kernel ? zor_blas_xsdot(&n, x, &incx, y, &incy) : ref::dot(n, x, incx, y, incy);
                    });
}

struct nearest_again {
  ~nearest_again() { std::fesetround(FE_TONEAREST); }
};
constexpr int rounding_modes[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};

// A sign moved from a product to one of its factors shows where results are rounded up or down.
template <class T, class F>
void check_rounding(const char* name, F f) {
  const nearest_again guard;
  runner<T, F> r(name, f);
  for (const int mode : rounding_modes) {
    std::fesetround(mode);
    for (const zor_int n : {3, 40, 203}) r.run(n, 1, 1, placements[0], placements[3], fill::random);
  }
}

TEST(vector, complex_sums_in_every_rounding_mode) {
  check_rounding<zor_c32>("xcaxpy", axpy_of(zor_c32{0.7f, -1.3f}, zor_blas_xcaxpy));
  check_rounding<zor_c64>("xzaxpy", axpy_of(zor_c64{0.7, -1.3}, zor_blas_xzaxpy));
}

// Uniform, powers of two, short integers, halves of the sum's spacing, a wide range, zeros and integers.
constexpr double (*addends[])(random_bits&) = {
    [](random_bits& r) { return r.unit(); },
    [](random_bits& r) { return std::ldexp(1.0, -int(r.between(0, 27))); },
    [](random_bits& r) { return std::ldexp(double(r.between(-7, 7)), -int(r.between(0, 30))); },
    [](random_bits& r) { return r.between(0, 9) == 0 ? 1.0 : 0x1p-26; },
    [](random_bits& r) { return std::ldexp(r.unit(), int(r.between(-600, 0))); },
    [](random_bits& r) { return double(r.between(-3, 3)); }};

// The scaled norm where its sum crosses binades, meets ties (halves of the spacing of the sum) and follows
// the other rounding modes.
TEST(vector, norm_of_ties_and_binades) {
  const nearest_again guard;
  random_bits random(31);
  const zor_int one = 1;
  for (const int mode : rounding_modes) {
    for (const zor_int n : {32, 64, 100, 333, 3000, 20000}) {
      for (const auto& addend : addends) {
        std::vector<double> x(static_cast<size_t>(n));
        for (double& v : x) v = addend(random);
        if (&addend != std::end(addends) - 1) x[0] = 1;
        std::fesetround(mode);
        const double expected = ref::nrm2(n, x.data(), one);
        const double actual = zor_blas_dnrm2(&n, x.data(), &one);
        std::fesetround(FE_TONEAREST);
        EXPECT_TRUE(same_bits(&expected, &actual, 1))
            << "n=" << n << " addends " << &addend - addends << " mode " << mode;
      }
    }
  }
}

// Norms of vectors far out of the range of squares.
TEST(vector, norms_do_not_overflow) {
  const zor_int n = 64, one = 1;
  std::vector<double> d(64, 0x1p1000);
  std::vector<float> s(64, 0x1p124f);
  EXPECT_EQ(zor_blas_dnrm2(&n, d.data(), &one), 0x1p1003);
  EXPECT_EQ(zor_blas_snrm2(&n, s.data(), &one), 0x1p127f);
  std::fill(d.begin(), d.end(), 0x1p-1060);
  EXPECT_EQ(zor_blas_dnrm2(&n, d.data(), &one), 0x1p-1057);
}

}  // namespace
