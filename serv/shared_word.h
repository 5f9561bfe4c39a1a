// SPDX-License-Identifier: MIT
// Words that threads share without a lock.
#pragma once

#include <atomic>

namespace zor {

// A word that several threads may touch at once: read with acquire and written with release order, which on
// x86-64 are plain moves.
template <class T>
class shared_word {
 public:
  constexpr shared_word() = default;
  constexpr explicit shared_word(T value) : word_(value) {}
  operator T() const { return word_.load(std::memory_order_acquire); }
  void operator=(T value) { word_.store(value, std::memory_order_release); }

 private:
  std::atomic<T> word_{};
};

}  // namespace zor
