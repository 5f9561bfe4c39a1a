// SPDX-License-Identifier: MIT
// Operands between guard pages, fixed pseudo-random data, and comparison of bits.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <string>

namespace zor_test {

// A run of `count` elements between two unmapped pages. `at_end` places the last element right before the
// upper page, so that any read behind it faults; otherwise the first element stands right behind the lower
// page. `shift` moves the run inwards by that many bytes, which sets its position modulo 16.
template <class T>
class guarded {
 public:
  explicit guarded(size_t count, bool at_end = true, size_t shift = 0) : count_(count) {
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    const size_t bytes = count * sizeof(T) + shift;
    body_ = (bytes + page - 1) / page * page + page;
    void* p = mmap(nullptr, body_ + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    map_ = static_cast<char*>(p);
    size_ = body_ + 2 * page;
    mprotect(map_ + page, body_, PROT_READ | PROT_WRITE);
    char* first = at_end ? map_ + page + body_ - bytes : map_ + page + shift;
    data_ = reinterpret_cast<T*>(first);
  }
  guarded(const guarded&) = delete;
  guarded& operator=(const guarded&) = delete;
  ~guarded() { munmap(map_, size_); }

  T* data() { return data_; }
  const T* data() const { return data_; }
  size_t size() const { return count_; }
  T& operator[](size_t i) { return data_[i]; }
  const T& operator[](size_t i) const { return data_[i]; }
  T* begin() { return data_; }
  T* end() { return data_ + count_; }

 private:
  char* map_;
  size_t size_;
  size_t body_;
  size_t count_;
  T* data_;
};

// SplitMix64: the same numbers on every machine.
class random_bits {
 public:
  explicit random_bits(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }
  // Uniform in [-1, 1), a multiple of 2^-52.
  double unit() { return double(int64_t(next()) >> 11) * 0x1p-52; }
  // Uniform in [low, high].
  int64_t between(int64_t low, int64_t high) { return low + int64_t(next() % uint64_t(high - low + 1)); }

 private:
  uint64_t state_;
};

inline uint64_t bits(double x) {
  uint64_t u;
  if (x != x) return 0x7FF8000000000000u;
  std::memcpy(&u, &x, sizeof u);
  return u;
}
inline uint32_t bits(float x) {
  uint32_t u;
  if (x != x) return 0x7FC00000u;
  std::memcpy(&u, &x, sizeof u);
  return u;
}

// Bit equality of two runs of real numbers, every NaN counted as one pattern; names the first difference.
template <class T>
::testing::AssertionResult same_bits(const T* expected, const T* actual, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (bits(expected[i]) == bits(actual[i])) continue;
    return ::testing::AssertionFailure()
           << "element " << i << ": expected " << expected[i] << " (0x" << std::hex << bits(expected[i])
           << "), got " << actual[i] << " (0x" << bits(actual[i]) << ")";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace zor_test
