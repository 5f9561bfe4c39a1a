// SPDX-License-Identifier: MIT
// Operands for the tests of vector kernels: two copies of one vector, one for the kernel between guard pages,
// one for the reference, at the same position modulo 16 bytes, with a margin of foreign bytes around and
// between the elements.
#pragma once

#include <algorithm>
#include <cfenv>
#include <limits>
#include <string>
#include <vector>

#include "tests/ref/vector.h"
#include "tests/support/operand.h"

namespace zor_test {

// Where a vector stands: against the upper or the lower guard page, moved inwards by `shift` bytes.
struct placement {
  bool at_end;
  size_t shift;
};
inline const placement placements[] = {{true, 0},   {false, 0}, {false, 4}, {false, 8},
                                       {false, 12}, {true, 8},  {false, 3}};

enum class fill { random, wide, special, ties, one_nan };
inline const fill fills[] = {fill::random, fill::wide, fill::special, fill::ties, fill::one_nan};

template <class R>
R sample(fill kind, random_bits& random) {
  using limits = std::numeric_limits<R>;
  static const R specials[] = {
      limits::quiet_NaN(),  limits::infinity(),           -limits::infinity(), R(0),          -R(0),
      limits::denorm_min(), -R(3) * limits::denorm_min(), limits::max(),       -limits::min()};
  const R unit = R(random.unit());
  switch (kind) {
    case fill::wide:
      return std::ldexp(unit, int(random.between(-70, 70)));
    case fill::special:
      return random.between(0, 9) == 0 ? specials[random.between(0, 8)] : unit;
    case fill::ties:
      return R(random.between(-2, 2));
    default:
      return unit;
  }
}

template <class R>
class operand {
 public:
  static constexpr size_t margin = 64, capacity = 1 << 20;

  operand() : kernel_(capacity), reference_(capacity) {}

  // `count` reals, of which every second, third... may be foreign: the test compares all of them.
  void place(size_t count, placement where, fill kind, random_bits& random) {
    const size_t bytes = count * sizeof(R);
    const size_t first = where.at_end ? capacity - where.shift - bytes : where.shift;
    x_ = kernel_.data() + first;
    reference_x_ = reference_.data() + first;
    low_ = std::min(first / sizeof(R), margin);
    const size_t high = std::min((capacity - first - bytes) / sizeof(R), margin);
    span_ = low_ + count + high;
    R* grid = reinterpret_cast<R*>(x_) - low_;
    for (size_t i = 0; i < span_; ++i) put(grid, i, sample<R>(kind, random));
    if (kind == fill::one_nan && count > 0)
      put(grid, low_ + size_t(random.between(0, int64_t(count) - 1)), std::numeric_limits<R>::quiet_NaN());
    std::memcpy(reference_x_ - low_ * sizeof(R), grid, span_ * sizeof(R));
  }

  template <class T>
  T* kernel() {
    return reinterpret_cast<T*>(x_);
  }
  template <class T>
  T* reference() {
    return reinterpret_cast<T*>(reference_x_);
  }

  // The whole span, margins included.
  ::testing::AssertionResult same() const {
    std::vector<R> actual(span_), expected(span_);
    std::memcpy(actual.data(), x_ - low_ * sizeof(R), span_ * sizeof(R));
    std::memcpy(expected.data(), reference_x_ - low_ * sizeof(R), span_ * sizeof(R));
    return same_bits(expected.data(), actual.data(), span_);
  }

 private:
  static void put(R* grid, size_t i, R v) {
    std::memcpy(reinterpret_cast<char*>(grid) + i * sizeof(R), &v, sizeof v);
  }

  guarded<char> kernel_, reference_;
  char* x_ = nullptr;
  char* reference_x_ = nullptr;
  size_t low_ = 0, span_ = 0;
};

// The floating-point exception flags that f leaves.
template <class F>
[[gnu::noipa]] int flags_of(F&& f) {
  std::feclearexcept(FE_ALL_EXCEPT);
  asm volatile("" ::: "memory");
  f();
  asm volatile("" ::: "memory");
  return std::fetestexcept(FE_ALL_EXCEPT);
}

}  // namespace zor_test
