// SPDX-License-Identifier: MIT
#include "bench/dense_loops.h"

#include <dlfcn.h>

namespace zor_bench {

dense_loop* find_dense_loop() {
  static void* const library = dlopen("$ORIGIN/../lib/bench/zor_peer_dense.so", RTLD_NOW | RTLD_LOCAL);
  return library == nullptr ? nullptr : reinterpret_cast<dense_loop*>(dlsym(library, "zor_dense_loop"));
}

}  // namespace zor_bench
