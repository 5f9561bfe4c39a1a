// SPDX-License-Identifier: MIT
// Tests over element types: real and complex scalars by parts, fillings, exception flags of a call.
#pragma once

#include <cfenv>
#include <cmath>
#include <limits>
#include <vector>

#include "tests/support/operand.h"
#include "zor/types.h"

namespace zor_test {

template <class T>
struct real_of {
  using type = T;
};
template <>
struct real_of<zor_c32> {
  using type = float;
};
template <>
struct real_of<zor_c64> {
  using type = double;
};
template <class T>
using real = typename real_of<T>::type;
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
  T s{};
  reals(&s)[0] = real<T>(re);
  if (parts<T> == 2) reals(&s)[1] = real<T>(im);
  return s;
}

template <class T>
real<T> part(const T& e, int h) {
  return h < int(parts<T>) ? reals(&e)[h] : real<T>(0);
}

template <class T>
void fill(guarded<T>& v, random_bits& random) {
  for (size_t i = 0; i < v.size() * parts<T>; ++i) reals(v.data())[i] = real<T>(random.unit());
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
  for (size_t i = 0; i < v.size() * parts<T>; ++i) reals(v.data())[i] = real<T>(random.unit());
  return v;
}

template <class T>
::testing::AssertionResult same_elements(const std::vector<T>& expected, const std::vector<T>& actual) {
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

}  // namespace zor_test
