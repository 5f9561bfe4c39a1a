// SPDX-License-Identifier: MIT
#include "core/kern.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "zor/core.h"
#include "zor/serv.h"

namespace {

// Only the kernel library exports this name, so its address tells which file the names of this library's
// calls were bound to.
std::string kern_file() {
  Dl_info info;
  return dladdr(reinterpret_cast<void*>(&zor_serv_lsame), &info) != 0 ? info.dli_fname : "";
}

std::string real_path(const std::string& file) {
  char* resolved = realpath(file.c_str(), nullptr);
  if (resolved == nullptr) return file;
  std::string path(resolved);
  std::free(resolved);
  return path;
}

std::string folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool stands_in(const std::string& folder, const char* name) {
  return folder.size() > std::string(name).size() && folder.ends_with(name) &&
         folder[folder.size() - std::string(name).size() - 1] == '/';
}

const char* build_of(const std::string& path) {
  const std::string folder = folder_of(path);
  for (const char* build : {"x86-64-v3", "x86-64-v4"})
    if (stands_in(folder, build)) return build;
  const bool root = stands_in(folder, "lib") || access((folder + "/glibc-hwcaps").c_str(), F_OK) == 0;
  return root ? "baseline" : "unknown";
}

}  // namespace

namespace zor_core {

void* kern_symbol(const char* name) {
  static void* const handle = dlopen(kern_file().c_str(), RTLD_NOW | RTLD_NOLOAD);
  void* address = handle != nullptr ? dlsym(handle, name) : nullptr;
  if (address != nullptr) return address;
  std::fprintf(stderr, "libzor_core: symbol lookup error: undefined symbol: %s (%s)\n", name,
               zor_core_kern_path());
  std::_Exit(127);
}

}  // namespace zor_core

extern "C" const char* zor_version(void) { return ZOR_VERSION; }

extern "C" const char* zor_core_kern_path(void) {
  static const std::string path = real_path(kern_file());
  return path.c_str();
}

extern "C" const char* zor_core_kern_build(void) {
  static const char* const build = build_of(zor_core_kern_path());
  return build;
}
