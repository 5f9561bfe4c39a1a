// SPDX-License-Identifier: MIT
// Finds the plain convolution, which is compiled for the processor at hand in a library of its own.
#include <dlfcn.h>

#include "bench/convolution.h"

namespace zor_bench {

convolution_loop* find_convolution_loop() {
  static void* const library = dlopen("$ORIGIN/../lib/bench/zor_peer_convolution.so", RTLD_NOW | RTLD_LOCAL);
  return library == nullptr ? nullptr
                            : reinterpret_cast<convolution_loop*>(dlsym(library, "zor_convolution_loop"));
}

}  // namespace zor_bench
