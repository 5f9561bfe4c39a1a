// SPDX-License-Identifier: MIT
// The files of tests/digests, as they stood when the program was built. Those of the fused arithmetic are of
// families in which it differs from the separate one.
#pragma once

#include <span>

namespace zor_tools {

struct kept_digest_file {
  const char* arithmetic;
  const char* family;
  const char* text;
};
extern const std::span<const kept_digest_file> kept_digest_files;

}  // namespace zor_tools
