// SPDX-License-Identifier: MIT
// Products in the precision of the caller's choice against plain loops: bits, exception flags, and what lies
// between and around the operands.
#include <algorithm>
#include <vector>

#include "tests/support/operand.h"
#include "tests/xblas/routines.h"

namespace {

using namespace zor_test;

constexpr double ordinary[] = {-0.7, 0.3};

struct product_case {
  zor_int trans, uplo, m, n, kl, ku, pad, incx, incy;
  const double *alpha, *beta;
  zor_int prec;
  bool at_end;
};

template <class T>
struct product_operands {
  guarded<T> a, head, tail, y;
};

template <class T>
product_call<T> sizes_of(const product<T>& r, const product_case& c) {
  product_call<T> call = {};
  call.trans = c.trans, call.uplo = c.uplo, call.m = c.m, call.n = c.n, call.kl = c.kl, call.ku = c.ku;
  call.lda = std::max<zor_int>(1, r.stored_rows(call) + c.pad);
  call.incx = c.incx, call.incy = c.incy, call.prec = c.prec;
  return call;
}
template <class T>
product_call<T> call_of(const product<T>& r, const product_case& c, product_operands<T>& o) {
  product_call<T> call = sizes_of(r, c);
  call.alpha = scalar<T>(c.alpha[0], c.alpha[1]);
  call.beta = scalar<T>(c.beta[0], c.beta[1]);
  call.a = o.a.data(), call.head = o.head.data(), call.tail = o.tail.data(), call.y = o.y.data();
  return call;
}

// Runs one case; `spoil` may plant values into the operands. What no element stands for is signalling NaN,
// which raises a flag wherever it enters an operation.
template <class T, class Spoil>
void check_product(const product<T>& r, const product_case& c, const Spoil& spoil) {
  const product_call<T> call = sizes_of(r, c);
  const zor_int rows = r.stored_rows(call);
  product_operands<T> o = {guarded<T>(extent(rows, c.n, call.lda), c.at_end),
                           guarded<T>(extent(r.inputs(call), c.incx), c.at_end),
                           guarded<T>(extent(r.inputs(call), c.incx), c.at_end),
                           guarded<T>(extent(r.outputs(call), c.incy), c.at_end)};
  random_bits random(uint64_t(c.m * 1009 + c.n * 31 + c.kl));
  for (guarded<T>* v : {&o.a, &o.head, &o.tail}) fill_nan(*v);
  for (zor_int j = 0; j < c.n; ++j)
    for (zor_int i = 0; i < rows; ++i)
      if (holds(r, call, i, j)) {
        T& e = o.a[size_t(i + j * call.lda)];
        e = random_element<T>(random);
        if (r.of == form::hermitian && i == j) reals(&e)[1] = std::numeric_limits<real<T>>::signaling_NaN();
      }
  for (zor_int i = 0; i < r.inputs(call); ++i) {
    o.head[size_t(i * std::abs(c.incx))] = random_element<T>(random);
    o.tail[size_t(i * std::abs(c.incx))] = scalar<T>(0x1p-20 * random.unit(), 0x1p-20 * random.unit());
  }
  fill(o.y, random);
  spoil(o);
  const product_call<T> whole = call_of(r, c, o);
  SCOPED_TRACE(::testing::Message() << r.name << whole);
  compare(
      o.y, [&](T* y) { reference(r, whole, y); }, [&](T*) { r.call(whole); });
}

// Sizes around the lanes of all widths, around blocks of several vectors and around panels of 64 columns.
constexpr zor_int sizes[] = {1, 2, 3, 4, 7, 8, 9, 15, 16, 17, 31, 32, 33, 47, 64, 65, 70, 131};
constexpr zor_int precisions[] = {211, 212, 213, 214};
constexpr zor_int steps[][2] = {{1, 1}, {2, -1}, {-1, 3}, {-3, -2}};

TEST(ExtendedProducts, BitsAndFlagsOfThePlainLoops) {
  for_kernel_products([](const auto& r) {
    size_t iteration = 0;
    for (const zor_int prec : precisions)
      for (const zor_int trans : {111, 112, 113})
        for (const zor_int m : sizes)
          for (const zor_int n : {1, 3, 8, 17, 33, 70}) {
            if (r.square() && trans == 113) continue;
            const auto& step = steps[++iteration % std::size(steps)];
            const zor_int size = r.square() ? m : n;  // one size, both triangles
            if (r.square() && n > 1) continue;
            const zor_int kl = zor_int(iteration % 5) * (m - 1) / 4,
                          ku = zor_int(iteration / 2 % 4) * (size - 1) / 3;
            check_product(r,
                          {trans, trans == 111 ? 121 : 122, m, size, kl, ku, zor_int(iteration % 3), step[0],
                           step[1], ordinary, ordinary, prec, iteration % 2 == 0},
                          keep);
          }
  });
}

TEST(ExtendedProducts, ScalarsThatLeaveOutASum) {
  constexpr double scalars[][2] = {{0, 0}, {1, 0}, {-1, 0}, {0, 1}, {-0.0, 0}, {0.5, -2}, {double(NAN), 0}};
  for_kernel_products([&](const auto& r) {
    for (const zor_int prec : precisions)
      for (const auto& alpha : scalars)
        for (const auto& beta : scalars)
          for (const zor_int trans : {111, 112})
            check_product(r, {trans, trans + 10, 13, 13, 4, 2, 1, 1, 1, alpha, beta, prec, true},
                          [](auto& o) {
                            const auto sign = o.y[3];
                            o.y[3] = scalar<std::decay_t<decltype(sign)>>(-0.0, -0.0);
                            o.y[5] = scalar<std::decay_t<decltype(sign)>>(NAN, 1);
                          });
  });
}

// Sizes of 0 or below, increments of 0, bands that reach the limit, precisions that are none.
TEST(ExtendedProducts, BadArgumentsAreTakenAsTheyAre) {
  constexpr double one[] = {1, 0}, zero[] = {0, 0};
  for_kernel_products([&](const auto& r) {
    for (const zor_int prec : {210, 211, 214, 215})
      for (const zor_int trans : {111, 112}) {
        const zor_int uplo = trans + 10;
        for (const zor_int m : {-2, 0, 3})
          for (const zor_int n : {-1, 0, 3})
            check_product(r, {trans, uplo, m, n, 0, 0, 2, 1, -1, ordinary, ordinary, prec, true}, keep);
        for (const zor_int incx : {0, 1})
          for (const zor_int incy : {0, 1})
            check_product(r, {trans, uplo, 9, 11, 2, 1, 0, incx, incy, ordinary, ordinary, prec, true}, keep);
        check_product(r, {trans, uplo, 9, 11, 9, 11, 0, 1, 1, ordinary, ordinary, prec, true}, keep);
        check_product(r, {trans, uplo, 9, 11, 30, 100, 0, 1, 1, ordinary, ordinary, prec, false}, keep);
        check_product(r, {trans, uplo, 5, 5, 1, 1, 0, 1, 1, zero, one, prec, true}, keep);
      }
  });
}

// Infinities, NaN, values whose split overflows, subnormal numbers and zeros, at places of every kind.
TEST(ExtendedProducts, SpecialValues) {
  for_kernel_products([](const auto& r) {
    using T = typename std::decay_t<decltype(r)>::element;
    using R = real<T>;
    const double largest = double(std::numeric_limits<R>::max()),
                 tiny = double(std::numeric_limits<R>::denorm_min());
    for (const double special : {double(INFINITY), double(NAN), largest, largest / 4, tiny, 0.0, -0.0})
      for (const zor_int prec : precisions)
        for (const zor_int trans : {111, 112, 113})
          for (size_t place = 0; place < 19; place += 6)
            check_product(
                r,
                {trans, place % 4 == 0 ? 121 : 122, 19, 19, 18, 18, 0, 1, 1, ordinary, ordinary, prec, true},
                [&](auto& o) {
                  if (r.of != form::band) o.a[place * 20] = scalar<T>(special, 1);
                  o.head[18 - place] = scalar<T>(1, special);
                  o.tail[place / 2] = scalar<T>(special, special);
                  o.y[place] = scalar<T>(special, 2);
                });
  });
}

// y becomes the residual: what the sum holds beyond the rounded result.
TEST(ExtendedProducts, ResidualsShowTheLastBits) {
  constexpr double one[] = {1, 0}, minus_one[] = {-1, 0};
  for_kernel_products([&](const auto& r) {
    for (const zor_int prec : precisions)
      for (const zor_int trans : {111, 112, 113})
        for (const zor_int n : {5, 33, 40})
          for (const auto& alpha : {one, ordinary}) {
            const product_case c = {
                trans, trans == 111 ? 121 : 122, n, n, n / 2, n / 3, 1, 1, 1, alpha, minus_one, prec, true};
            check_product(r, c, [&](auto& o) {
              auto call = call_of(r, c, o);
              call.beta = {};
              reference(r, call, o.y.data());
            });
          }
  });
}

// A sum whose split would overflow is stored as it is when nothing multiplies it.
TEST(ExtendedProducts, LargeSumsAreNotScaledByOne) {
  const double a[] = {1e200, 1e190}, x[] = {1e105, 1}, one = 1, zero = 0, two = 2;
  const zor_int m = 1, n = 2, step = 1, trans = 111, prec = 214;
  double y = 7;
  zor_xblas_blas_dgemv_x(&trans, &m, &n, &one, a, &m, x, &step, &zero, &y, &step, &prec);
  EXPECT_EQ(1e200 * 1e105, y);
  zor_xblas_blas_dgemv_x(&trans, &m, &n, &two, a, &m, x, &step, &zero, &y, &step, &prec);
  EXPECT_TRUE(std::isnan(y));
}

// A wide matrix has outputs without an element, whose sum is 0 with the sign that the mode gives it.
TEST(ExtendedProducts, EveryRoundingMode) {
  constexpr double one[] = {1, 0};
  const auto clear = [](auto& o) {
    for (auto& e : o.y) e = {};
  };
  for_kernel_products([&](const auto& r) {
    for (const int mode : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO}) {
      std::fesetround(mode);
      for (const zor_int prec : precisions)
        for (const zor_int trans : {111, 112, 113}) {
          const zor_int uplo = trans == 111 ? 121 : 122;
          check_product(r, {trans, uplo, 37, 37, 7, 3, 1, 1, 1, ordinary, ordinary, prec, true}, keep);
          if (r.of == form::band)
            check_product(r, {trans, uplo, 2, 37, 1, 3, 1, 1, 1, one, one, prec, true}, clear);
        }
      std::fesetround(FE_TONEAREST);
    }
  });
}

}  // namespace
