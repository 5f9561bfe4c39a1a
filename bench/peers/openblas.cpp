// SPDX-License-Identifier: MIT
// OpenBLAS as a peer of dense routines, with its number of threads.
#include <dlfcn.h>

#include "bench/peers/peer.h"

namespace zor_bench {
namespace {

void set_threads(void* handle, int32_t threads) {
  if (auto* set = reinterpret_cast<void (*)(int)>(dlsym(handle, "openblas_set_num_threads"))) set(threads);
}

// The configuration reads "OpenBLAS 0.3.21 DYNAMIC_ARCH ...".
std::string details(void* handle) {
  std::string text;
  if (auto* config = reinterpret_cast<const char* (*)()>(dlsym(handle, "openblas_get_config"))) {
    text = config();
    const size_t version = text.find(' ');
    text = version == std::string::npos ? ""
                                        : text.substr(version + 1, text.find(' ', version + 1) - version - 1);
  }
  if (auto* core = reinterpret_cast<const char* (*)()>(dlsym(handle, "openblas_get_corename")))
    text += std::string(text.empty() ? "" : " ") + "core " + core();
  return text;
}

}  // namespace

const peer_adapter openblas_adapter = {
    "OpenBLAS",
    {"/usr/lib/x86_64-linux-gnu/openblas-pthread/libopenblas.so.0", "libopenblas.so.0"},
    true,
    set_threads,
    details};

}  // namespace zor_bench
