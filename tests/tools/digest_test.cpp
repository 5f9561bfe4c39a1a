// SPDX-License-Identifier: MIT
// Digests against published ones, and which numbers are told apart.
#include "tools/digest.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <vector>

namespace {

using zor_tools::digest;

// The examples of FIPS 180-4.
TEST(digest, is_sha256) {
  digest d;
  d.text("abc");
  EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", d.take());
  EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", d.take());
  d.text("abcdbcdecdefdefgefghfghighij");
  d.text("hijkijkljklmklmnlmnomnopnopq");
  EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1", d.take());
}

// Numbers enter as their bytes, however many there are.
TEST(digest, numbers_are_their_bits) {
  digest d;
  for (const size_t count : {1u, 255u, 256u, 257u, 1000u}) {
    std::vector<double> values(count);
    for (size_t i = 0; i < count; ++i) values[i] = std::ldexp(double(i), int(i % 7) - 3) - 0.1;
    d.add(values.data(), count);
    const std::string of_numbers = d.take();
    d.text({reinterpret_cast<const char*>(values.data()), count * sizeof(double)});
    EXPECT_EQ(d.take(), of_numbers) << count;
  }
}

TEST(digest, tells_zeros_apart_but_not_nans) {
  const auto of = [](auto value) {
    digest d;
    d.add(&value, 1);
    return d.take();
  };
  EXPECT_NE(of(0.0), of(-0.0));
  EXPECT_NE(of(0.0f), of(-0.0f));
  EXPECT_EQ(of(std::bit_cast<double>(0x7FF8000000000000u)), of(std::bit_cast<double>(0xFFFC00000000BEEFu)));
  EXPECT_EQ(of(std::bit_cast<float>(0x7FC00000u)), of(std::bit_cast<float>(0xFFC12345u)));
}

}  // namespace
