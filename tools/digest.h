// SPDX-License-Identifier: MIT
// SHA-256 over the bits of numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "zor/types.h"

struct evp_md_ctx_st;

namespace zor_tools {

// Values enter as their IEEE 754 bits in the order of memory, every NaN as the one quiet NaN
// 0x7FF8000000000000 (single: 0x7FC00000): which NaN an operation returns is the processor's choice.
class digest {
 public:
  digest();
  ~digest();
  digest(const digest&) = delete;
  digest& operator=(const digest&) = delete;

  void text(std::string_view bytes);
  void add(const float* values, size_t count);
  void add(const double* values, size_t count);
  void add(const zor_c32* values, size_t count) { add(&values->re, 2 * count); }
  void add(const zor_c64* values, size_t count) { add(&values->re, 2 * count); }
  void add(const int64_t* values, size_t count);

  // Sixty-four hexadecimal digits; the digest then starts anew.
  std::string take();

 private:
  void update(const void* bytes, size_t count);
  void restart();
  evp_md_ctx_st* context_;
};

}  // namespace zor_tools
