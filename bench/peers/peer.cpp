// SPDX-License-Identifier: MIT
// Loads the libraries of the adapters side by side, with their names hidden from each other.
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

// FFTW's text of its version, behind the name and a dash.
std::string fftw_version(void* handle, const char* symbol) {
  const void* const text = dlsym(handle, symbol);
  const std::string name = text == nullptr ? "" : static_cast<const char*>(text);
  return name.substr(name.find('-') + 1);
}
std::string double_fftw_version(void* handle) { return fftw_version(handle, "fftw_version"); }
std::string single_fftw_version(void* handle) { return fftw_version(handle, "fftwf_version"); }
std::string gmp_version(void* handle) {
  const void* const version = dlsym(handle, "__gmp_version");
  return version == nullptr ? "" : *static_cast<const char* const*>(version);
}

void load(const peer_adapter& adapter, int32_t threads, std::vector<peer>& found) {
  for (const char* file : adapter.files) {
    void* handle = dlopen(file, load_flags);
    if (handle == nullptr) continue;
    if (adapter.prepare != nullptr) adapter.prepare(handle);
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

std::vector<peer> load_other_peers() {
  const peer_adapter others[] = {
      {"FFTW", {"libfftw3.so.3"}, true, nullptr, double_fftw_version},
      {"FFTW, single", {"libfftw3f.so.3"}, true, nullptr, single_fftw_version},
      {"librsb", {"librsb.so.0"}, true, nullptr, nullptr},
      {"Eigen", {"$ORIGIN/../lib/bench/zor_peer_eigen.so"}, true, nullptr, nullptr},
      {"libgmp", {"libgmp.so.10"}, true, nullptr, gmp_version},
  };
  std::vector<peer> found = load_peer(reference_lapack_adapter);
  for (const peer_adapter& adapter : others) load(adapter, 1, found);
  return found;
}

std::vector<peer> load_peer(const peer_adapter& adapter) {
  std::vector<peer> found;
  load(adapter, 1, found);
  return found;
}

void* find_symbol(const peer& p, const std::string& name) { return dlsym(p.handle, name.c_str()); }

}  // namespace zor_bench
