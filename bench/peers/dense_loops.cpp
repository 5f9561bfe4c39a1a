// SPDX-License-Identifier: MIT
// Finds the plain dense loops, which are compiled for the processor at hand in a library of their own.
#include "bench/dense_loops.h"

#include <dlfcn.h>

namespace zor_bench {

dense_loop* find_dense_loop() {
  static void* const library = dlopen("$ORIGIN/../lib/bench/zor_peer_dense.so", RTLD_NOW | RTLD_LOCAL);
  return library == nullptr ? nullptr : reinterpret_cast<dense_loop*>(dlsym(library, "zor_dense_loop"));
}

}  // namespace zor_bench
