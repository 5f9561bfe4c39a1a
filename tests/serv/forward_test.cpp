// SPDX-License-Identifier: MIT
// Forwarders: what a caller puts into registers and on the stack reaches the routine of the same name in
// libzor_core, for which a stand-in is found in the loader's path.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/serv/forward_registers.h"
#include "tests/support/operand.h"

#define ROW_FORWARD(name) extern "C" void name();
#include "zor/tables/frame.inc"

extern "C" {
uint64_t forward_call(void (*function)(), const call_registers* registers, uint64_t width);
void forward_clobber(uint64_t width);
}

namespace {

int look_ups = 0;

// The build under test, by its folder's name in the loader's path.
uint64_t vector_bytes() {
  const std::string path = getenv("LD_LIBRARY_PATH");
  return path.find("/v4:") != path.npos ? 64 : path.find("/v3:") != path.npos ? 32 : 16;
}

}  // namespace

// A look-up may use any register that a call may use; this one, which binding a name calls, uses all vectors.
extern "C" int dladdr1(const void* address, Dl_info* info, void** extra, int flags) noexcept {
  static auto* real =
      reinterpret_cast<int (*)(const void*, Dl_info*, void**, int)>(dlsym(RTLD_NEXT, "dladdr1"));
  const int status = real(address, info, extra, flags);
  ++look_ups;
  forward_clobber(vector_bytes());
  return status;
}

namespace {

constexpr const char* missing = "zor_blas_dgemm_freebufs";

struct forwarder {
  const char* name;
  void (*function)();
};
const forwarder forwarders[] = {
#define ROW_FORWARD(name) {#name, name},
#include "zor/tables/frame.inc"
};

template <class F>
F* stand_in(const char* name) {
  static void* library = dlopen("libzor_core.so.1", RTLD_NOW);
  return reinterpret_cast<F*>(dlsym(library, name));
}

// The first call binds a name, the second finds it bound.
TEST(Forward, EverythingArrives) {
  ASSERT_EQ(std::size(forwarders), 47u);
  const uint64_t width = vector_bytes();
  ASSERT_NE(stand_in<void()>("forward_record"), nullptr) << dlerror();
  stand_in<void(uint64_t)>("forward_set_width")(width);
  const call_registers* arrived = stand_in<const call_registers*()>("forward_record")();
  zor_test::random_bits random(1);
  int names = 0;
  for (const forwarder& f : forwarders) {
    if (f.name == std::string(missing)) continue;
    ++names;
    for (const char* call : {"first call", "second call"}) {
      SCOPED_TRACE(std::string(f.name) + ", " + call);
      call_registers sent;
      uint64_t words[sizeof sent / 8];
      for (uint64_t& word : words) word = random.next();
      std::memcpy(&sent, words, sizeof sent);
      EXPECT_EQ(forward_call(f.function, &sent, width), 42u);
      EXPECT_STREQ(arrived->name, f.name);
      EXPECT_EQ(look_ups, names);
      EXPECT_EQ(std::memcmp(arrived->integers, sent.integers, sizeof sent.integers), 0);
      EXPECT_EQ(std::memcmp(arrived->stack, sent.stack, sizeof sent.stack), 0);
      for (int i = 0; i < 8; ++i) EXPECT_EQ(std::memcmp(arrived->vectors[i], sent.vectors[i], width), 0) << i;
    }
  }
}

// The stand-in depends on the kernel library, which exports the name: the forwarder must not find itself.
TEST(Forward, AMissingNameEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(zor_blas_dgemm_freebufs(), testing::ExitedWithCode(127),
              std::string("forward_test: libzor_kern.so.1: symbol lookup error: .*") + missing);
}

TEST(Forward, AMissingLibraryEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string path = getenv("LD_LIBRARY_PATH");
  setenv("LD_LIBRARY_PATH", path.substr(0, path.find(':')).c_str(), 1);
  EXPECT_EXIT(zor_blas_dgemm_getbufs(), testing::ExitedWithCode(127),
              "error while loading shared libraries: libzor_core.so.1: cannot open shared object file");
  setenv("LD_LIBRARY_PATH", path.c_str(), 1);
}

}  // namespace
