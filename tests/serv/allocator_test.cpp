// SPDX-License-Identifier: MIT
// Which allocator the library takes: this program does not link one, its child processes find one in the
// loader's path. An allocator library is whole or not taken at all.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "zor/serv.h"

namespace {

// Exit status: 0 when the requests went to the C runtime, 1 to libzalloc.so, 2 to neither as it should be.
void show_allocator(bool installed) {
  void* library = installed ? dlopen("libzalloc.so", RTLD_NOW) : nullptr;
  if (installed && library == nullptr) std::_Exit(3);
  zor_serv_zor_free(zor_serv_zor_malloc(100, 64));
  void* pooled = zor_serv_allocate(100, 64);
  zor_serv_deallocate(pooled);
  zor_serv_freebuffers();
  if (library == nullptr) {
    void* left = dlopen("libzalloc.so", RTLD_NOW | RTLD_NOLOAD);
    std::_Exit(left != nullptr ? 2 : 0);
  }
  const auto log = reinterpret_cast<const char* (*)()>(dlsym(library, "zalloc_log"));
  const std::string calls = log();
  if (calls.empty()) std::_Exit(0);
  std::fprintf(stderr, "%s\n", calls.c_str());
  std::_Exit(calls == "m172 f172 m208 m164 f164 f208" ? 1 : 2);
}

TEST(Allocator, Choice) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string path = getenv("LD_LIBRARY_PATH");
  const struct {
    const char* variant;  // folder of the allocator library, null for none in the path
    bool installed;       // the program loads it itself, and so keeps it loaded
    int status;
  } cases[] = {{nullptr, false, 0},    {"whole", true, 1},         {"lacks_calloc", true, 0},
               {"null_free", true, 0}, {"lacks_calloc", false, 0}, {"null_free", false, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.variant != nullptr ? c.variant : "no allocator library");
    const std::string folder = c.variant != nullptr ? ":" ZALLOC_FOLDER "/" + std::string(c.variant) : "";
    setenv("LD_LIBRARY_PATH", (path + folder).c_str(), 1);
    EXPECT_EXIT(show_allocator(c.installed), testing::ExitedWithCode(c.status), "");
  }
  setenv("LD_LIBRARY_PATH", path.c_str(), 1);
}

}  // namespace
