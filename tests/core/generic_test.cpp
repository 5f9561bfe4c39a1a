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
  std::vector<T> elements = random_vector<T>(panel_size, 99);
  // Panels want 16-byte alignment.
  T* data() {
    return reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(elements.data()) + 15) & ~uintptr_t(15));
  }
};

template <class T>
std::vector<T> packed_a(copya_fn<T>* copy) {
  const auto a = random_vector<T>(lead * lead, 1);
  const T alpha = make_scalar<T>(1.5, -0.5);
  panel<T> p;
  copy(&rows, &depth, a.data(), &lead, p.data(), &alpha);
  return std::vector<T>(p.data(), p.data() + 16 * 17);
}
template <class T>
std::vector<T> packed_b(copyb_fn<T>* copy) {
  const auto b = random_vector<T>(lead * lead, 2);
  panel<T> p;
  copy(&depth, &rows, b.data(), &lead, p.data());
  return std::vector<T>(p.data(), p.data() + 16 * 17);
}

std::string without_suffix(std::string name, const std::string& suffix) {
  EXPECT_TRUE(name.ends_with(suffix));
  return name.substr(0, name.size() - suffix.size());
}

template <class T>
void check_copya(const std::string& name) {
  const auto expected = packed_a(forwarder<copya_fn<T>>(without_suffix(name, "_htn")));
  EXPECT_TRUE(equal_bits(expected, packed_a(forwarder<copya_fn<T>>(name)))) << name;
}
template <class T>
void check_copyb(const std::string& name) {
  const auto expected = packed_b(forwarder<copyb_fn<T>>(without_suffix(name, "_htn")));
  EXPECT_TRUE(equal_bits(expected, packed_b(forwarder<copyb_fn<T>>(name)))) << name;
}

constexpr struct {
  const char* letters;
  const char* real_copy;
  const char* complex_copy;
} letter_cases[] = {{"No transpose", "n", "n"}, {"n", "n", "n"}, {"T", "t", "t"},
                    {"transpose", "t", "t"},    {"C", "t", "c"}, {"conjugate", "t", "c"}};

template <class T>
void check_copya_ext(const std::string& name) {
  const std::string stem = without_suffix(name, "_ext");
  for (const auto& c : letter_cases) {
    const bool is_complex = sizeof(T) == sizeof(zor_c64) || name.find("cgemm") != std::string::npos;
    const auto expected =
        packed_a(forwarder<copya_fn<T>>(stem + (is_complex ? c.complex_copy : c.real_copy)));
    const auto a = random_vector<T>(lead * lead, 1);
    const T alpha = make_scalar<T>(1.5, -0.5);
    panel<T> p;
    forwarder<copya_ext_fn<T>>(name)(c.letters, &rows, &depth, a.data(), &lead, p.data(), &alpha);
    EXPECT_EQ(0, std::memcmp(expected.data(), p.data(), expected.size() * sizeof(T))) << name << c.letters;
  }
}
template <class T>
void check_copyb_ext(const std::string& name) {
  const std::string stem = without_suffix(name, "_ext");
  for (const auto& c : letter_cases) {
    const bool is_complex = sizeof(T) == sizeof(zor_c64) || name.find("cgemm") != std::string::npos;
    const auto expected =
        packed_b(forwarder<copyb_fn<T>>(stem + (is_complex ? c.complex_copy : c.real_copy)));
    const auto b = random_vector<T>(lead * lead, 2);
    panel<T> p;
    forwarder<copyb_ext_fn<T>>(name)(c.letters, &depth, &rows, b.data(), &lead, p.data());
    EXPECT_EQ(0, std::memcmp(expected.data(), p.data(), expected.size() * sizeof(T))) << name << c.letters;
  }
}

TEST(Panels, AreThoseOfTheKernelLibrary) {
#define ROW_COPYA(name, T, copy) check_copya<T>(#name);
#define ROW_COPYB(name, T, copy) check_copyb<T>(#name);
#define ROW_COPYA_EXT(name, T) check_copya_ext<T>(#name);
#define ROW_COPYB_EXT(name, T) check_copyb_ext<T>(#name);
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

// B against a product with op(A) written out in full, in long double. What is not read of A is NaN.
template <class T>
void check_trmm(const std::string& name, const char* side, const char* uplo, const char* trans,
                const char* diag, zor_int m, zor_int n, T alpha) {
  SCOPED_TRACE(::testing::Message() << name << " " << side << uplo << trans << diag << " " << m << "x" << n);
  const bool left = *side == 'L', upper = *uplo == 'u', plain = *trans == 'N', unit = *diag == 'U';
  const zor_int order = left ? m : n, lda = order + 1, ldb = m + 2;
  auto a = random_vector<T>(lda * order, 21);
  std::vector<long double> full(size_t(order * order));
  for (zor_int j = 0; j < order; ++j)
    for (zor_int i = 0; i < order; ++i) {
      T& x = a[size_t(i + j * lda)];
      const bool stored = (upper ? i < j : i > j) || (i == j && !unit);
      if (!stored) x = std::numeric_limits<T>::quiet_NaN();
      const long double value = stored ? x : i == j ? 1 : 0;
      full[size_t(plain ? i + j * order : j + i * order)] = value;
    }
  const auto before = random_vector<T>(ldb * n, 22);
  auto b = before;
  forwarder<zor::xtrsm_fn<T>>(name)(side, uplo, trans, diag, &m, &n, &alpha, a.data(), &lda, b.data(), &ldb);
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = 0; i < ldb; ++i) {
      const size_t at = size_t(i + j * ldb);
      if (i >= m) {
        ASSERT_EQ(before[at], b[at]);
        continue;
      }
      long double sum = 0, size = 0;
      for (zor_int p = 0; p < order; ++p) {
        const long double term = left ? full[size_t(i + p * order)] * before[size_t(p + j * ldb)]
                                      : before[size_t(i + p * ldb)] * full[size_t(p + j * order)];
        sum += term, size += std::fabs(term);
      }
      const long double bound = (order + 3) * std::numeric_limits<T>::epsilon() * std::fabs(alpha) * size;
      ASSERT_LE(std::fabs(alpha * sum - b[at]), bound) << i << "," << j;
    }
}

template <class T>
void check_trmm_family(const std::string& name) {
  for (const char* side : {"L", "Right"})
    for (const char* uplo : {"u", "L"})
      for (const char* trans : {"N", "T", "Conjugate"})
        for (const char* diag : {"U", "Non-unit"})
          for (zor_int m : {1, 5, 63, 64, 65, 150})
            for (zor_int n : {1, 66, 130}) check_trmm<T>(name, side, uplo, trans, diag, m, n, T(-1.75));
  // alpha of 0 clears B, whatever A and B hold; no rows or no columns: nothing is touched.
  std::vector<T> a(9, std::numeric_limits<T>::quiet_NaN()), b = a;
  const zor_int three = 3, none = 0;
  const T zero = 0;
  forwarder<zor::xtrsm_fn<T>>(name)("L", "U", "N", "N", &three, &three, &zero, a.data(), &three, b.data(),
                                   &three);
  EXPECT_TRUE(equal_bits(std::vector<T>(9, T(0)), b));
  forwarder<zor::xtrsm_fn<T>>(name)("L", "U", "N", "N", &none, &three, &zero, nullptr, &three, nullptr,
                                   &three);
}

TEST(Trmm, AgainstTheFullProduct) {
#define ROW_TRMM(name, T) check_trmm_family<T>(#name);
#include "zor/tables/core_generic.inc"
}

}  // namespace
