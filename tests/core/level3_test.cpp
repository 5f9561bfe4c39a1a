// SPDX-License-Identifier: MIT
// Level 3 of the core: the kernel's bits for every number of threads, at sizes where the kernels' own blocks
// end in a few rows or columns.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/threads.h"
#include "zor/blas.h"
#include "zor/core.h"
#include "zor/signatures/blas.h"

namespace {

using namespace zor_test;

// Calls once(kernel, C) and, with every number of threads, once with the public routine: all must give the
// same C.
template <class T, class Fn, class Call>
void same_for_all_threads(Fn* kernel, Fn* routine, const std::vector<T>& c, const Call& call) {
  std::vector<T> expected = c;
  call(kernel, expected.data());
  expect_with_any_threads(expected, c, [&](T* result) { call(routine, result); });
}

struct size3 {
  zor_int m, n, k;
};
std::ostream& operator<<(std::ostream& out, size3 s) {
  return out << "m=" << s.m << " n=" << s.n << " k=" << s.k;
}

template <class T>
void check_triangular(const char* name, zor::xtrsm_fn<T>* kernel, zor::xtrsm_fn<T>* routine) {
  // Other dimensions end a few beyond the kernels' blocks of 128, 512, 1024 and 2048, or just below.
  for (const zor_int others : {515, 1029, 2051, 1000, 643})
    for (const char* letters : {"LUNN", "LLTU", "RUTN", "RLNN"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << letters << " " << others);
      const zor_int order = 64, m = letters[0] == 'L' ? order : others,
                    n = letters[0] == 'L' ? others : order;
      std::vector<T> a = random_elements<T>(order * order, 1);
      for (zor_int i = 0; i < order; ++i) a[size_t(i + i * order)] = scalar<T>(30, 1);
      const T alpha = scalar<T>(0.5, 0.25);
      same_for_all_threads(kernel, routine, random_elements<T>(m * n, 2), [&](auto* fn, T* b) {
        fn(letters, letters + 1, letters + 2, letters + 3, &m, &n, &alpha, a.data(), &order, b, &m);
      });
    }
}

constexpr size3 update_sizes[] = {{0, 131, 70}, {0, 258, 40}, {0, 300, 33}, {0, 1100, 5}};

template <class T, class S, class Fn, class Call>
void check_update(const char* name, Fn* kernel, Fn* routine, bool hermitian, const Call& call) {
  for (const size3& s : update_sizes)
    for (const char* letters : {"UN", "LN", hermitian ? "UC" : "UT", hermitian ? "LC" : "LT"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << letters << " " << s);
      const zor_int ld = std::max(s.n, s.k);
      const std::vector<T> a = random_elements<T>(ld * ld, 1), b = random_elements<T>(ld * ld, 2);
      for (const double factor : {0.5, 0.0, 1.0})
        same_for_all_threads(kernel, routine, random_elements<T>(s.n * s.n, 3), [&](auto* fn, T* c) {
          const S beta = scalar<S>(factor, 0.125);
          call(fn, letters, letters + 1, &s.n, &s.k, a.data(), b.data(), &ld, &beta, c);
        });
    }
}

template <class T, class S>
void check_rank_k(const char* name, zor::rank_k_fn<T, S>* kernel, zor::rank_k_fn<T, S>* routine,
                  bool hermitian) {
  check_update<T, S>(
      name, kernel, routine, hermitian,
      [](auto* fn, auto uplo, auto trans, auto n, auto k, auto a, auto, auto ld, auto beta, T* c) {
        const S alpha = scalar<S>(-0.75, 0.5);
        fn(uplo, trans, n, k, &alpha, a, ld, beta, c, n);
      });
}
template <class T, class S>
void check_rank_2k(const char* name, zor::rank_2k_fn<T, S>* kernel, zor::rank_2k_fn<T, S>* routine,
                   bool hermitian) {
  check_update<T, S>(
      name, kernel, routine, hermitian,
      [](auto* fn, auto uplo, auto trans, auto n, auto k, auto a, auto b, auto ld, auto beta, T* c) {
        const T alpha = scalar<T>(-0.75, 0.5);
        fn(uplo, trans, n, k, &alpha, a, ld, b, ld, beta, c, n);
      });
}

template <class T>
void check_symm(const char* name, zor::symm_fn<T>* kernel, zor::symm_fn<T>* routine) {
  for (const size3& s : {size3{130, 70, 0}, size3{60, 5003, 0}, size3{1001, 40, 0}})
    for (const char* letters : {"LU", "LL", "RU", "RL"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << letters << " " << s);
      const zor_int order = letters[0] == 'L' ? s.m : s.n;
      if (order > 1001) continue;
      const auto a = random_elements<T>(order * order, 1), b = random_elements<T>(s.m * s.n, 2);
      const T alpha = scalar<T>(0.5, 0.25), beta = scalar<T>(2, -1);
      same_for_all_threads(kernel, routine, random_elements<T>(s.m * s.n, 3), [&](auto* fn, T* c) {
        fn(letters, letters + 1, &s.m, &s.n, &alpha, a.data(), &order, b.data(), &s.m, &beta, c, &s.m);
      });
    }
}

template <class A, class T, class Fn>
void check_product(const char* name, Fn* kernel, Fn* routine) {
  for (const size3& s : {size3{70, 1003, 20}, size3{40, 1290, 25}, size3{129, 131, 70}})
    for (const char* letters : {"NN", "TC", "CT"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << letters << " " << s);
      const zor_int lda = letters[0] == 'N' ? s.m : s.k, ldb = letters[1] == 'N' ? s.k : s.n;
      const auto a = random_elements<A>(s.m * s.k, 1);
      const auto b = random_elements<T>(s.k * s.n, 2);
      const T alpha = scalar<T>(0.5, 0.25), beta = scalar<T>(2, -1);
      same_for_all_threads(kernel, routine, random_elements<T>(s.m * s.n, 3), [&](auto* fn, T* c) {
        fn(letters, letters + 1, &s.m, &s.n, &s.k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c, &s.m);
      });
    }
}

TEST(CoreLevel3, SameBitsForAllThreads) {
#define ROW_TRSM(name, T, kernel) check_triangular<T>(#name, kernel, name);
#define ROW_TRMM ROW_TRSM
#define ROW_SYRK(name, T, S, hermitian, kernel) check_rank_k<T, S>(#name, kernel, name, hermitian);
#define ROW_SYR2K(name, T, S, hermitian, kernel) check_rank_2k<T, S>(#name, kernel, name, hermitian);
#define ROW_PUBLIC_SYMM(name, T, kernel) check_symm<T>(#name, kernel, name);
#define ROW_GEMM3M(name, T, kernel) check_product<T, T>(#name, kernel, name);
#define ROW_PUBLIC_MIXED(name, T, R, kernel) check_product<R, T>(#name, kernel, name);
#include "zor/tables/core_level3.inc"
}

// Without a product A and B are not read.
TEST(CoreLevel3, NoProduct) {
  const zor_int two = 2;
  const double zero = 0, half = 0.5;
  double c[4] = {2, 4, 6, 8};
  zor_blas_dsymm("L", "U", &two, &two, &zero, nullptr, &two, nullptr, &two, &half, c, &two);
  zor_blas_dsyrk("L", "N", &two, &two, &zero, nullptr, &two, &half, c, &two);
  const double expected[4] = {0.5, 1, 3, 2};
  EXPECT_TRUE(same_bits(expected, c, 4));
}

}  // namespace
