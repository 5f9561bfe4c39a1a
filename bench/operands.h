// SPDX-License-Identifier: MIT
// Operands of the cases and the comparison of results.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "zor/types.h"

namespace zor_bench {

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
inline constexpr bool is_complex = sizeof(T) != sizeof(typename real_of<T>::type);
template <class T>
using real_t = typename real_of<T>::type;
// A real number as an element.
template <class T>
constexpr T number(double x) {
  if constexpr (is_complex<T>)
    return {real_t<T>(x), 0};
  else
    return T(x);
}
template <class T>
inline constexpr bool is_single = sizeof(typename real_of<T>::type) == sizeof(float);

// Memory on a 64-byte boundary, shared by the closures of a case. The operands of a case take different
// places in a page (`page_slot`): with equal ones, a load would wait for an unrelated store to the same place
// in another page.
template <class T>
class operand {
 public:
  explicit operand(int64_t count, int page_slot = 0) : count_(count) {
    constexpr size_t page = 4096;
    const size_t offset = size_t(page_slot) * 1088;
    const size_t bytes = (offset + size_t(count) * sizeof(T) + page - 1) / page * page;
    char* p = static_cast<char*>(std::aligned_alloc(page, bytes));
    if (p == nullptr) throw std::bad_alloc();
    memory_ = std::shared_ptr<char>(p, std::free);
    data_ = reinterpret_cast<T*>(p + offset);
  }
  T* data() const { return data_; }
  int64_t count() const { return count_; }
  int64_t reals() const { return is_complex<T> ? 2 * count_ : count_; }
  typename real_of<T>::type* real_data() const { return reinterpret_cast<typename real_of<T>::type*>(data_); }

 private:
  std::shared_ptr<char> memory_;
  T* data_;
  int64_t count_;
};

// Uniform in [-1, 1).
template <class T>
void fill(const operand<T>& x, uint64_t seed) {
  using real = typename real_of<T>::type;
  uint64_t state = seed;
  for (int64_t i = 0; i < x.reals(); ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    x.real_data()[i] = real(double(int64_t(state) >> 11) * 0x1p-52);
  }
}

// Whether two results are equal but for rounding: no difference above `tolerance` units of the element's
// precision, measured against the largest element, or against `floor`
// if that is more.
template <class T>
bool close(const operand<T>& x, const operand<T>& y, double tolerance, double floor = 0) {
  const double unit = is_single<T> ? 0x1p-24 : 0x1p-53;
  double largest = floor, difference = 0;
  for (int64_t i = 0; i < x.reals(); ++i) {
    const double a = x.real_data()[i], b = y.real_data()[i];
    largest = std::fmax(largest, std::fabs(a));
    if (!(std::fabs(a - b) <= difference)) difference = std::fabs(a - b);
  }
  return difference <= tolerance * unit * largest;
}

}  // namespace zor_bench
