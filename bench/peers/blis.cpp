// SPDX-License-Identifier: MIT
#include <dlfcn.h>

#include "bench/peers/peer.h"

namespace zor_bench {
namespace {

void set_threads(void* handle, int32_t threads) {
  if (auto* set = reinterpret_cast<void (*)(int64_t)>(dlsym(handle, "bli_thread_set_num_threads")))
    set(threads);
}

std::string details(void* handle) {
  std::string text;
  if (auto* version = reinterpret_cast<const char* (*)()>(dlsym(handle, "bli_info_get_version_str")))
    text = version();
  auto* id = reinterpret_cast<int (*)()>(dlsym(handle, "bli_arch_query_id"));
  auto* name = reinterpret_cast<const char* (*)(int)>(dlsym(handle, "bli_arch_string"));
  if (id != nullptr && name != nullptr) text += std::string(text.empty() ? "" : " ") + "core " + name(id());
  return text;
}

}  // namespace

const peer_adapter blis_adapter = {"BLIS", {"libblis.so.4"}, true, set_threads, details};

}  // namespace zor_bench
