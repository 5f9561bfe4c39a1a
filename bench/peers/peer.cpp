// SPDX-License-Identifier: MIT
#include "bench/peers/peer.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

namespace zor_bench {
namespace {

// RTLD_DEEPBIND keeps a peer's inner calls (dgemm_ calling lsame_) in the peer; sanitizers cannot bear it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int load_flags = RTLD_NOW | RTLD_LOCAL;
#else
constexpr int load_flags = RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND;
#endif

std::string loaded_file(void* handle, const char* file) {
  char folder[PATH_MAX];
  if (dlinfo(handle, RTLD_DI_ORIGIN, folder) != 0) return file;
  const std::string name(file);
  return std::string(folder) + "/" + name.substr(name.rfind('/') + 1);
}

void load(const peer_adapter& adapter, int32_t threads, std::vector<peer>& found) {
  for (const char* file : adapter.files) {
    void* handle = dlopen(file, load_flags);
    if (handle == nullptr) continue;
    if (adapter.set_threads != nullptr) adapter.set_threads(handle, threads);
    const std::string details = adapter.details != nullptr ? adapter.details(handle) : "";
    found.push_back({adapter.name, details, loaded_file(handle, file), adapter.tuned, handle});
    return;
  }
}

}  // namespace

std::vector<peer> load_blas_peers(int32_t threads, const std::string& openblas_core) {
  const std::string count = std::to_string(threads);
  for (const char* variable : {"OPENBLAS_NUM_THREADS", "BLIS_NUM_THREADS"})
    setenv(variable, count.c_str(), 1);
  if (openblas_core.empty())
    unsetenv("OPENBLAS_CORETYPE");
  else
    setenv("OPENBLAS_CORETYPE", openblas_core.c_str(), 1);
  std::vector<peer> found;
  for (const peer_adapter* adapter : {&openblas_adapter, &blis_adapter, &reference_blas_adapter})
    load(*adapter, threads, found);
  return found;
}

std::vector<peer> load_peer(const peer_adapter& adapter) {
  std::vector<peer> found;
  load(adapter, 1, found);
  return found;
}

void* find_symbol(const peer& p, const std::string& name) { return dlsym(p.handle, name.c_str()); }

}  // namespace zor_bench
