// SPDX-License-Identifier: MIT
// The scratch memory of the matrix product: one block of the stated size a call, told to zor_serv_check_ptr
// under the routine's name and given back; without it the product completes by the plain loops.
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/ref/gemm.h"
#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "tests/support/zalloc.h"
#include "zor/blas.h"
#include "zor/serv.h"

namespace {
std::string told;
}

// The kernel library prefers the program's definition.
extern "C" int32_t zor_serv_check_ptr(const void* pointer, const char* routine) {
  told += std::string(routine) + (pointer == nullptr ? "! " : " ");
  return pointer == nullptr;
}

namespace {

using namespace zor_test;

template <class T>
struct operands {
  std::vector<T> a, b, c;
  operands(zor_int m, zor_int n, zor_int k) : a(size_t(m * k)), b(size_t(k * n)), c(size_t(m * n)) {
    random_bits random(uint64_t(m + n + k));
    for (auto* x : {&a, &b, &c})
      for (T& e : *x) e = scalar<T>(random.unit(), random.unit());
  }
};

template <class T, class Kernel>
std::vector<T> run(Kernel kernel, char ta, char tb, zor_int m, zor_int n, zor_int k, operands<T> x) {
  const T alpha = scalar<T>(0.5, 1), beta = scalar<T>(2, -1);
  const zor_int lda = ta == 'N' ? m : k, ldb = tb == 'N' ? k : n;
  kernel(&ta, &tb, &m, &n, &k, &alpha, x.a.data(), &lda, x.b.data(), &ldb, &beta, x.c.data(), &m);
  return x.c;
}

// Bytes of a block: panels of A and B, and a rest in which a strip of B is spread and the panels find their
// boundaries. In double precision the strip counts 64 bytes for each of its depths.
constexpr uint64_t double_block(uint64_t kb, uint64_t mb, uint64_t nb) {
  return 64 * kb + 8 * kb * mb + 8 * kb * nb + 18176;
}
constexpr uint64_t double_block_without_b(uint64_t kb, uint64_t mb) { return 64 * kb + 8 * kb * mb + 9472; }
constexpr uint64_t single_rest = 311552, single_complex_rest = 189696, double_complex_rest = 353536;

// The pool is switched off, so the allocator sees every request as it is.
struct size_case {
  char type, transb;
  zor_int m, n, k;
  const char* routine;  // empty: no block is asked for
  uint64_t bytes;
};

const size_case sizes[] = {
    {'d', 'N', 2, 9, 9, "", 0},
    {'d', 'N', 9, 9, 2, "", 0},
    {'d', 'N', 3, 3, 3, "xdgemm", double_block_without_b(112, 480)},
    {'d', 'T', 3, 3, 3, "xdgemm", double_block(112, 480, 3)},
    {'d', 'N', 128, 128, 128, "xdgemm", double_block_without_b(64, 480)},
    {'d', 'N', 129, 128, 128, "xdgemm", double_block(64, 480, 128)},
    {'d', 'N', 130, 128, 127, "xdgemm", double_block(60, 480, 128)},
    {'d', 'N', 10, 2100, 225, "xdgemm", double_block(112, 480, 2000)},
    {'d', 'N', 4000, 6000, 16, "xdgemm", double_block(112, 1536, 5000)},
    {'d', 'N', 6000, 4000, 17, "xdgemm", double_block(112, 1024, 4000)},
    {'d', 'N', 10, 9990, 33, "xdgemm", double_block(112, 768, 5000)},
    {'d', 'N', 10, 9990, 140, "xdgemm", double_block(68, 512, 5000)},
    {'d', 'N', 10, 9989, 33, "xdgemm", double_block(112, 480, 2000)},
    {'s', 'N', 7, 8, 8, "", 0},
    {'s', 'N', 8, 8, 7, "", 0},
    {'s', 'N', 8, 9, 8, "xsgemm", 448 * 9 + single_rest},
    {'s', 'T', 500, 2500, 20, "xsgemm", 448 * 2000 + single_rest},
    {'c', 'N', 3, 8, 8, "", 0},
    {'c', 'N', 4, 8, 8, "xcgemm", 512 * 8 + single_complex_rest},
    {'c', 'C', 100, 2500, 20, "xcgemm", 512 * 2000 + single_complex_rest},
    {'z', 'N', 4, 7, 8, "", 0},
    {'z', 'T', 4, 8, 8, "xzgemm", 1024 * 8 + double_complex_rest},
    {'z', 'N', 100, 2500, 20, "xzgemm", 1024 * 2000 + double_complex_rest},
};

template <class T, class Kernel>
void check_size(Kernel kernel, const size_case& s) {
  const operands<T> x(s.m, s.n, s.k);
  told.clear();
  zalloc_reset();
  run(kernel, 'N', s.transb, s.m, s.n, s.k, x);
  EXPECT_EQ(told, std::string(s.routine) + (*s.routine ? " " : ""));
  uint64_t asked = 0;
  if (*s.routine) std::sscanf(zalloc_log(), "m%lu", &asked);
  EXPECT_EQ(asked, s.bytes) << zalloc_log();
  EXPECT_EQ(zalloc_live_blocks(), 0);
}

TEST(GemmMemory, BytesAskedAndNamesTold) {
  for (const size_case& s : sizes) {
    if (zor_ref::fuses_in_software() && s.m * s.n * s.k > 6000000) continue;
    SCOPED_TRACE(::testing::Message() << s.type << s.transb << " " << s.m << " " << s.n << " " << s.k);
    if (s.type == 'd') check_size<double>(zor_blas_xdgemm, s);
    if (s.type == 's') check_size<float>(zor_blas_xsgemm, s);
    if (s.type == 'c') check_size<zor_c32>(zor_blas_xcgemm, s);
    if (s.type == 'z') check_size<zor_c64>(zor_blas_xzgemm, s);
  }
}

// A null block, and blocks that stand at every offset the allocator may give.
TEST(GemmMemory, FallbackAndPlacement) {
  const auto check = []<class T>(const char* name, auto kernel, T, const char* routine) {
    for (const char* l : {"NN", "NT", "TN", "TT", "CC", "NC"}) {
      const zor_int m = 75, n = 42, k = 131;
      SCOPED_TRACE(::testing::Message() << name << " " << l);
      const operands<T> x(m, n, k);
      const auto reference = [&](bool memory) {
        std::vector<T> c = x.c;
        zor_ref::gemm<T>({l[0], l[1], m, n, k, scalar<T>(0.5, 1), x.a.data(), l[0] == 'N' ? m : k, x.b.data(),
                          l[1] == 'N' ? k : n, scalar<T>(2, -1), c.data(), m},
                         memory);
        return c;
      };
      const auto expect = [&](const std::vector<T>& expected) {
        const std::vector<T> c = run(kernel, l[0], l[1], m, n, k, x);
        EXPECT_TRUE(same_bits(reals(expected.data()), reals(c.data()), c.size() * parts<T>));
        EXPECT_EQ(zalloc_live_blocks(), 0);
      };
      zalloc_reset();
      told.clear();
      zalloc_fail(1, true);
      expect(reference(false));
      EXPECT_EQ(told, std::string(routine) + "! ");
      for (int64_t offset : {0, 8, 24, 64, 4088}) {
        zalloc_reset();
        zalloc_place(offset);
        expect(reference(true));
      }
    }
  };
  check("dgemm", zor_blas_xdgemm, double{}, "xdgemm");
  check("sgemm", zor_blas_xsgemm, float{}, "xsgemm");
  check("cgemm", zor_blas_xcgemm, zor_c32{}, "xcgemm");
  check("zgemm", zor_blas_xzgemm, zor_c64{}, "xzgemm");
}

// Before the first request the pool has not read its switch.
[[maybe_unused]] const int pool_off = setenv("ZOR_DISABLE_FAST_MM", "1", 1);

}  // namespace
