// SPDX-License-Identifier: MIT
// Tests over element types: real and complex scalars by parts, fillings, exception flags of a call.
#pragma once

#include <cfenv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <type_traits>
#include <vector>

#include "tests/ref/element.h"
#include "tests/support/operand.h"

namespace zor_test {

template <class T>
using real = zor_ref::real_t<T>;
template <class T>
inline constexpr size_t parts = sizeof(T) / sizeof(real<T>);

template <class T>
real<T>* reals(T* p) {
  return reinterpret_cast<real<T>*>(p);
}

template <class T>
const real<T>* reals(const T* p) {
  return reinterpret_cast<const real<T>*>(p);
}

template <class T>
T scalar(double re, double im) {
  return zor_ref::element_of<T>(real<T>(re), real<T>(im));
}

template <class T>
real<T> part(const T& e, int h) {
  return h < int(parts<T>) ? reals(&e)[h] : real<T>(0);
}

// Guarded operands and vectors.
template <class Run>
void fill(Run& v, random_bits& random) {
  using T = std::remove_reference_t<decltype(v[0])>;
  for (T& e : v)
    for (size_t h = 0; h < parts<T>; ++h) reals(&e)[h] = real<T>(random.unit());
}

template <class T>
T random_element(random_bits& random) {
  const double re = random.unit();
  return scalar<T>(re, parts<T> == 2 ? random.unit() : 0);
}

// Signalling NaN: computed with by mistake, they raise a flag even where the result is thrown away.
template <class T>
void fill_nan(guarded<T>& v) {
  for (size_t i = 0; i < v.size() * parts<T>; ++i)
    reals(v.data())[i] = std::numeric_limits<real<T>>::signaling_NaN();
}

template <class T>
std::vector<T> random_elements(zor_int count, uint64_t seed) {
  random_bits random(seed);
  std::vector<T> v(size_t(count > 0 ? count : 0));
  fill(v, random);
  return v;
}

template <class T, class Run>
::testing::AssertionResult same_elements(const std::vector<T>& expected, const Run& actual) {
  if (expected.size() != actual.size()) return ::testing::AssertionFailure() << "sizes differ";
  return same_bits(reals(expected.data()), reals(actual.data()), expected.size() * parts<T>);
}

inline constexpr int data_flags = FE_INVALID | FE_DIVBYZERO | FE_OVERFLOW | FE_UNDERFLOW | FE_INEXACT;

template <class Call>
int flags_of(const Call& call) {
  std::feclearexcept(FE_ALL_EXCEPT);
  call();
  return std::fetestexcept(data_flags);
}

// Runs the reference on a copy of `out` and the kernel on `out` itself: the same elements, those that neither
// touches included, and the same exception flags.
template <class Run, class Reference, class Kernel>
void compare(Run& out, const Reference& reference, const Kernel& kernel) {
  std::vector<std::remove_reference_t<decltype(out[0])>> expected(out.begin(), out.end());
  const int expected_flags = flags_of([&] { reference(expected.data()); });
  EXPECT_EQ(expected_flags, flags_of([&] { kernel(out.data()); }));
  EXPECT_TRUE(same_elements(expected, out));
}

// An operand as it is.
inline constexpr auto keep = [](auto&...) {};

// Elements from the first to the last of a vector, and of a matrix.
inline size_t extent(zor_int n, zor_int inc) { return n < 1 ? 0 : size_t((n - 1) * std::abs(inc) + 1); }
inline size_t extent(zor_int rows, zor_int columns, zor_int ld) {
  return rows < 1 || columns < 1 ? 0 : size_t((columns - 1) * ld + rows);
}

}  // namespace zor_test
