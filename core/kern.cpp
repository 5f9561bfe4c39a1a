// SPDX-License-Identifier: MIT
// Finds the kernel library in the process, and tells its file, build and arithmetic.
#include "core/kern.h"

#include <dlfcn.h>
#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "serv/control.h"
#include "zor/blas.h"
#include "zor/core.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

// Only the kernel library exports this name, so its address tells which file the names of this library's
// calls were bound to.
const char* kern_file() {
  Dl_info info;
  return dladdr(reinterpret_cast<void*>(&zor_serv_lsame), &info) != 0 ? info.dli_fname : "";
}

// Asked for when this library is loaded, since a later call may find memory short.
constinit zor::shared_word<void*> handle;

[[gnu::constructor]] void find_handle() {
  if (handle == nullptr) handle = dlopen(kern_file(), RTLD_NOW | RTLD_NOLOAD);
}

bool stands_in(std::string_view folder, std::string_view name) {
  return folder.size() > name.size() && folder.ends_with(name) &&
         folder[folder.size() - name.size() - 1] == '/';
}

bool holds_other_builds(std::string_view folder) {
  char file[PATH_MAX + 16];
  std::snprintf(file, sizeof file, "%.*s/glibc-hwcaps", int(folder.size()), folder.data());
  return access(file, F_OK) == 0;
}

const char* build_of(std::string_view path) {
  const size_t slash = path.rfind('/');
  const std::string_view folder = slash == path.npos ? "." : path.substr(0, slash);
  for (const char* build : {"x86-64-v3", "x86-64-v4"})
    if (stands_in(folder, build)) return build;
  return stands_in(folder, "lib") || stands_in(folder, "fused") || holds_other_builds(folder) ? "baseline"
                                                                                              : "unknown";
}

struct place {
  char path[PATH_MAX];
  const char* build;
};
constinit place kern_place{};

const place& find_kern() {
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  pthread_once(&once, [] {
    if (realpath(kern_file(), kern_place.path) == nullptr)
      std::snprintf(kern_place.path, sizeof kern_place.path, "%s", kern_file());
    kern_place.build = build_of(kern_place.path);
  });
  return kern_place;
}

// (1 + u)^2 - (1 + 2 u) is u^2, and 0 where the product is rounded before it joins the sum.
bool kern_fuses() {
  return zor::in_default_modes([] {
    const zor_int one = 1;
    const double u = 0x1p-30, factor = 1 + u;
    double sum = -(1 + 2 * u);
    zor_blas_xdaxpy(&one, &factor, &factor, &one, &sum, &one);
    return sum != 0;
  });
}

}  // namespace

void* kern_symbol(const char* name) {
  find_handle();
  void* address = handle != nullptr ? dlsym(handle, name) : nullptr;
  if (address != nullptr) return address;
  std::fprintf(stderr, "libzor_core: symbol lookup error: undefined symbol: %s (%s)\n", name,
               zor_core_kern_path());
  std::_Exit(127);
}

}  // namespace zor_core

extern "C" const char* zor_version(void) { return ZOR_VERSION; }

extern "C" const char* zor_core_kern_path(void) { return zor_core::find_kern().path; }

extern "C" const char* zor_core_kern_build(void) { return zor_core::find_kern().build; }

extern "C" const char* zor_arithmetic(void) { return zor_core::kern_fuses() ? "fused" : "separate"; }
