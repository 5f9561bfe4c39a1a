// SPDX-License-Identifier: MIT
// Looks names up, and ends the process where one is missing.
#include "serv/imports.h"

#include <dlfcn.h>
#include <errno.h>
#include <link.h>
#include <unistd.h>

#include <cstdio>

#include "serv/shared_word.h"

namespace zor {
namespace {

constexpr const char* core_file = "libzor_core.so.1";

// Ends the process as the dynamic loader does when it cannot bind a name.
[[noreturn]] void unresolved(const char* what, const char* detail) {
  std::fprintf(stderr, "%s: libzor_kern.so.1: %s: %s\n", program_invocation_name, what, detail);
  _exit(127);
}

// The handle is kept for the life of the process: slots hold addresses inside the library.
void* core_handle() {
  static constinit shared_word<void*> handle;
  void* h = handle;
  if (h == nullptr) {
    h = dlopen(core_file, RTLD_NOW | RTLD_LOCAL);
    if (h == nullptr) unresolved("error while loading shared libraries", dlerror());
    handle = h;
  }
  return h;
}

// The object that holds an address.
const link_map* owner_of(void* address) {
  Dl_info info;
  void* map = nullptr;
  return dladdr1(address, &info, &map, RTLD_DL_LINKMAP) != 0 ? static_cast<link_map*>(map) : nullptr;
}

}  // namespace

// A look-up through the handle also searches what libzor_core depends on, this library included; a forwarder
// that found itself there would jump to itself for ever.
void* core_symbol(const char* name) {
  void* handle = core_handle();
  link_map* core = nullptr;
  dlinfo(handle, RTLD_DI_LINKMAP, &core);
  void* address = dlsym(handle, name);
  if (address == nullptr || owner_of(address) != core) {
    unresolved("symbol lookup error: undefined symbol of libzor_core.so.1", name);
  }
  return address;
}

void* service_symbol(const char* name) {
  void* address = dlsym(RTLD_DEFAULT, name);
  return address != nullptr ? address : core_symbol(name);
}

}  // namespace zor
