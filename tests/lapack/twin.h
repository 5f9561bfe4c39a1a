// SPDX-License-Identifier: MIT
// Arrays that a kernel and its reference both work on: one copy beside an unmapped page for the kernel, one
// at the same position modulo 16 bytes for the reference.
#pragma once

#include <cmath>
#include <limits>
#include <vector>

#include "tests/support/elements.h"

namespace zor_test {

// Where the kernel's copy stands: its last element before an unmapped page, or its first behind one, moved
// inwards by `shift` bytes.
struct placement {
  bool at_end;
  size_t shift;
};
inline constexpr placement placements[] = {{true, 0}, {false, 0}, {true, 8}, {false, 8}, {false, 4}};

// What the elements are: numbers in [-1, 1), or now and then zeros, infinities, NaN and the ends of the
// range.
enum class content { plain, special };

template <class T>
class twin {
 public:
  twin(size_t count, placement where, random_bits& random, content what = content::plain)
      : kernel_(count, where.at_end, where.shift), store_(count + 16 / sizeof(real<T>)) {
    const size_t offset = reinterpret_cast<uintptr_t>(kernel_.data()) % 16;
    reference_ = reinterpret_cast<T*>(reinterpret_cast<char*>(store_.data()) + offset);
    using R = real<T>;
    using limits = std::numeric_limits<R>;
    const R specials[] = {
        R(0), R(-0.0), R(1), limits::infinity(), limits::quiet_NaN(), limits::denorm_min(), limits::max()};
    for (size_t i = 0; i < count * parts<T>; ++i) {
      const uint64_t bits = random.next();
      const R value = R(double(int64_t(bits) >> 11) * 0x1p-52);
      set(i, what == content::special && bits % 16 == 0 ? specials[bits / 16 % std::size(specials)] : value);
    }
  }
  // Real number i of both copies.
  void set(size_t i, real<T> value) { reals(kernel_.data())[i] = reals(reference_)[i] = value; }
  T* operator()(bool kernel) { return kernel ? kernel_.data() : reference_; }
  size_t size() const { return kernel_.size(); }
  ::testing::AssertionResult same() const {
    return same_bits(reals(reference_), reals(kernel_.data()), size() * parts<T>);
  }

 private:
  guarded<T> kernel_;
  std::vector<T> store_;
  T* reference_;
};

// Runs call(false) for the reference and call(true) for the kernel: equal arrays and equal exception flags
// after it.
template <class Call, class... Twins>
::testing::AssertionResult agree(const Call& call, const Twins&... twins) {
  const int expected = flags_of([&] { call(false); }), actual = flags_of([&] { call(true); });
  if (expected != actual)
    return ::testing::AssertionFailure() << "flags " << actual << " instead of " << expected;
  ::testing::AssertionResult result = ::testing::AssertionSuccess();
  size_t index = 0;
  const auto look = [&](const ::testing::AssertionResult& one) {
    if (result && !one) result = ::testing::AssertionFailure() << "array " << index << ": " << one.message();
    ++index;
  };
  (look(twins.same()), ...);
  return result;
}

// Elements of a matrix of that many columns, from its first to its last.
inline size_t span(zor_int rows, zor_int columns, zor_int ld) {
  return rows < 1 || columns < 1 ? 0 : size_t((columns - 1) * ld + rows);
}

}  // namespace zor_test
