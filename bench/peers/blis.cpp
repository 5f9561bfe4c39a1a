// SPDX-License-Identifier: MIT
// BLIS as a peer of dense products, told which processor it runs on where it does not know it.
#include <dlfcn.h>
#include <stdlib.h>

#include <string_view>

#include "bench/peers/peer.h"

namespace zor_bench {
namespace {

// On a processor newer than itself the library falls back to generic kernels. It is then told the newest it
// knows whose instructions this processor has.
void choose_kernels(void* handle) {
  auto* id = reinterpret_cast<int (*)()>(dlsym(handle, "bli_cpuid_query_id"));
  auto* name = reinterpret_cast<const char* (*)(int)>(dlsym(handle, "bli_arch_string"));
  if (id == nullptr || name == nullptr || std::string_view(name(id())) != "generic") return;
  const bool wide = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                    __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
  if (wide || (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")))
    setenv("BLIS_ARCH_TYPE", wide ? "skx" : "haswell", 0);
}

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

const peer_adapter blis_adapter = {"BLIS", {"libblis.so.4"}, true, set_threads, details, choose_kernels};

}  // namespace zor_bench
