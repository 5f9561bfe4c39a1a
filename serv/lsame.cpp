// SPDX-License-Identifier: MIT
// The comparison of option letters.
#include "zor/serv.h"

namespace {

unsigned char fold(char byte) {
  const auto c = static_cast<unsigned char>(byte);
  return c >= 'a' && c <= 'z' ? c - 32 : c;
}

}  // namespace

extern "C" int32_t zor_serv_lsame(const char* a, const char* b) { return fold(*a) == fold(*b); }
