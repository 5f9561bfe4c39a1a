// SPDX-License-Identifier: MIT
// Feeds numbers to SHA-256 by their bytes.
#include "tools/digest.h"

#include <openssl/evp.h>

#include <algorithm>
#include <bit>
#include <new>
#include <stdexcept>

namespace zor_tools {
namespace {

uint64_t one_pattern(double value) {
  return value != value ? 0x7FF8000000000000u : std::bit_cast<uint64_t>(value);
}
uint32_t one_pattern(float value) { return value != value ? 0x7FC00000u : std::bit_cast<uint32_t>(value); }

}  // namespace

digest::digest() : context_(EVP_MD_CTX_new()) {
  if (context_ == nullptr) throw std::bad_alloc();
  restart();
}

digest::~digest() { EVP_MD_CTX_free(context_); }

void digest::restart() {
  if (EVP_DigestInit_ex(context_, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("SHA-256 is not available");
}

void digest::update(const void* bytes, size_t count) {
  if (EVP_DigestUpdate(context_, bytes, count) != 1) throw std::runtime_error("SHA-256 failed");
}

void digest::text(std::string_view bytes) { update(bytes.data(), bytes.size()); }

template <class T>
static void add_values(const T* values, size_t count, auto&& update) {
  decltype(one_pattern(T{})) block[256];
  while (count > 0) {
    const size_t part = std::min(count, std::size(block));
    for (size_t i = 0; i < part; ++i) block[i] = one_pattern(values[i]);
    update(block, part * sizeof block[0]);
    values += part;
    count -= part;
  }
}

void digest::add(const float* values, size_t count) {
  add_values(values, count, [this](const void* bytes, size_t size) { update(bytes, size); });
}

void digest::add(const double* values, size_t count) {
  add_values(values, count, [this](const void* bytes, size_t size) { update(bytes, size); });
}

void digest::add(const int64_t* values, size_t count) { update(values, count * sizeof *values); }

std::string digest::take() {
  unsigned char sum[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (EVP_DigestFinal_ex(context_, sum, &size) != 1) throw std::runtime_error("SHA-256 failed");
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    text += "0123456789abcdef"[sum[i] >> 4];
    text += "0123456789abcdef"[sum[i] & 15];
  }
  restart();
  return text;
}

}  // namespace zor_tools
