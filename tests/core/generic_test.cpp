// SPDX-License-Identifier: MIT
// The generic routines, reached as a holder of the kernel library's names reaches them: through its
// forwarders.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <limits>
#include <string>
#include <vector>

#include "tests/core/products.h"
#include "tests/support/symbols.h"
#include "zor/serv.h"
#include "zor/signatures/blas.h"
#include "zor/signatures/core.h"

namespace {

using namespace zor_test;

// The kernel library's own export.
template <class F>
F* forwarder(const std::string& name) {
  static void* const handle = dlopen(kern_file().c_str(), RTLD_NOW | RTLD_NOLOAD);
  void* address = dlsym(handle, name.c_str());
  EXPECT_NE(nullptr, address) << name;
  return reinterpret_cast<F*>(address);
}

using zor::copya_ext_fn;
using zor::copya_fn;
using zor::copyb_ext_fn;
using zor::copyb_fn;

constexpr zor_int rows = 13, depth = 10, lead = 17, panel_size = 17 * 17 * 2;

template <class T>
struct panel {
  std::vector<T> elements = random_elements<T>(panel_size, 99);
  // Panels want 16-byte alignment.
  T* data() {
    return reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(elements.data()) + 15) & ~uintptr_t(15));
  }
};

std::string without_suffix(std::string name, const std::string& suffix) {
  EXPECT_TRUE(name.ends_with(suffix));
  return name.substr(0, name.size() - suffix.size());
}

// A panel of A or of B as the routine of that name packs it, which may take a letter.
template <class T, bool OfA>
std::vector<T> packed(const std::string& name, const char* letters = nullptr) {
  const auto x = random_elements<T>(lead * lead, 1);
  const T alpha = scalar<T>(1.5, -0.5);
  panel<T> p;
  if constexpr (OfA)
    letters == nullptr
        ? forwarder<copya_fn<T>>(name)(&rows, &depth, x.data(), &lead, p.data(), &alpha)
        : forwarder<copya_ext_fn<T>>(name)(letters, &rows, &depth, x.data(), &lead, p.data(), &alpha);
  else
    letters == nullptr ? forwarder<copyb_fn<T>>(name)(&depth, &rows, x.data(), &lead, p.data())
                       : forwarder<copyb_ext_fn<T>>(name)(letters, &depth, &rows, x.data(), &lead, p.data());
  return {p.data(), p.data() + 16 * 17};
}

template <class T, bool OfA>
void check_copy(const std::string& name) {
  EXPECT_TRUE(equal_bits(packed<T, OfA>(without_suffix(name, "_htn")), packed<T, OfA>(name))) << name;
}

constexpr struct {
  const char* letters;
  const char* real_copy;
  const char* complex_copy;
} letter_cases[] = {{"No transpose", "n", "n"}, {"n", "n", "n"}, {"T", "t", "t"},
                    {"transpose", "t", "t"},    {"C", "t", "c"}, {"conjugate", "t", "c"}};

template <class T, bool OfA>
void check_copy_ext(const std::string& name) {
  const std::string stem = without_suffix(name, "_ext");
  const bool is_complex = sizeof(T) == sizeof(zor_c64) || name.find("cgemm") != std::string::npos;
  for (const auto& c : letter_cases) {
    const auto expected = packed<T, OfA>(stem + (is_complex ? c.complex_copy : c.real_copy));
    EXPECT_TRUE(equal_bits(expected, packed<T, OfA>(name, c.letters))) << name << c.letters;
  }
}

TEST(Panels, AreThoseOfTheKernelLibrary) {
#define ROW_COPYA(name, T, copy) check_copy<T, true>(#name);
#define ROW_COPYB(name, T, copy) check_copy<T, false>(#name);
#define ROW_COPYA_EXT(name, T) check_copy_ext<T, true>(#name);
#define ROW_COPYB_EXT(name, T) check_copy_ext<T, false>(#name);
#include "zor/tables/core_generic.inc"
}

TEST(Blocks, SizesAndBytes) {
  const struct {
    const char* letter;
    zor_int m, n, k, mb, nb, kb, bytes;
  } cases[] = {{"d", 1000, 1000, 1000, 480, 1000, 112, 1351424},
               {"d", 100, 90, 150, 480, 90, 72, 351104},
               {"d", 9000, 1000, 20, 1024, 1000, 112, 1838848},
               {"d", 6000, 6000, 6000, 512, 5000, 112, 4964096},
               {"d", 4000, 4000, 4000, 480, 2000, 112, 2247424},
               {"s", 1000, 3000, 50, 640, 2000, 112, 1207552},
               {"c", 10, 20, 30, 320, 20, 64, 199936},
               {"z", 10, 20, 30, 320, 20, 64, 374016},
               {"d", 0, 20, 30, 0, 0, 0, 0}};
  for (const auto& c : cases) {
    const std::string stem = std::string("zor_blas_") + c.letter + "gemm_get_";
    zor_int mb = -1, nb = -1, kb = -1, bytes = -1;
    forwarder<zor::blks_size_fn>(stem + "blks_size_htn")(&c.m, &c.n, &c.k, &mb, &nb, &kb);
    forwarder<zor::bufs_size_fn>(stem + "bufs_size_htn")(&c.m, &c.n, &c.k, &bytes);
    EXPECT_EQ((std::vector{c.mb, c.nb, c.kb, c.bytes}), (std::vector{mb, nb, kb, bytes}))
        << stem << c.m << " " << c.k;
  }
}

uint64_t pool_bytes() {
  int32_t blocks = 0;
  return zor_serv_zor_memstat(&blocks);
}

// A block is what the product of that size takes from the pool.
template <class T, class Kernel>
void check_buffers(const std::string& letter, Kernel* kernel) {
  const zor_int m = 300, n = 210, k = 130;
  zor_serv_freebuffers();
  gemm_operands<T>({'N', 'T', m, n, k}).run(kernel);
  const uint64_t taken = pool_bytes();
  zor_serv_freebuffers();
  void* block = nullptr;
  forwarder<zor::getbufs_fn>("zor_blas_" + letter + "gemm_getbufs")(&m, &n, &k, &block);
  ASSERT_NE(nullptr, block);
  EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(block) % 128);
  zor_int bytes = 0;
  forwarder<zor::bufs_size_fn>("zor_blas_" + letter + "gemm_get_bufs_size_htn")(&m, &n, &k, &bytes);
  std::memset(block, 1, size_t(bytes));
  EXPECT_EQ(taken, pool_bytes());
  void* const first = block;
  forwarder<zor::freebufs_fn>("zor_blas_" + letter + "gemm_freebufs")(&block);
  EXPECT_EQ(nullptr, block);
  forwarder<zor::getbufs_fn>("zor_blas_" + letter + "gemm_getbufs")(&m, &n, &k, &block);
  EXPECT_EQ(first, block) << "the block went back to the pool";
  forwarder<zor::freebufs_fn>("zor_blas_" + letter + "gemm_freebufs")(&block);
}

TEST(Buffers, ComeFromThePool) {
  check_buffers<float>("s", zor_blas_xsgemm);
  check_buffers<double>("d", zor_blas_xdgemm);
}

}  // namespace
