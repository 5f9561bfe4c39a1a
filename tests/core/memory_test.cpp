// SPDX-License-Identifier: MIT
// Dense and sparse products and solves while memory is short: the nth request fails for every n, on the
// calling thread and in its team. The data are small integers, so the result is exact in any order of sums.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string_view>
#include <vector>

#include "tests/core/sparse_calls.h"
#include "tests/support/zalloc.h"
#include "zor/blas.h"
#include "zor/core.h"
#include "zor/serv.h"

namespace {

constexpr zor_int n = 150;
using complex_value = zor_c64;

// Two matrices of real or one of complex integers.
std::vector<double> integers(int seed) {
  std::vector<double> v(size_t(2 * n * n));
  for (size_t i = 0; i < v.size(); ++i) v[i] = double(int(i * 7 + i / 13 + size_t(seed)) % 11 - 5);
  return v;
}
// A unit triangle so sparse that solutions stay small integers, in both halves of the matrix.
std::vector<double> sparse_triangle() {
  std::vector<double> v(size_t(2 * n * n));
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = 0; i < n; ++i)
      v[size_t(i + j * n)] = i == j || std::abs(i - j) == 1 || std::abs(i - j) == 40;
  return v;
}

// A routine with C := op(...) + C or B := op(...) B, and whether it leaves alone what it has no memory for.
struct driver {
  const char* name;
  void (*call)(const double* a, const double* b, double* c);
  bool leaves_alone = false;
};
const double one = 1;
const complex_value one_z = {1, 0};
const complex_value* complex_of(const double* x) { return reinterpret_cast<const complex_value*>(x); }
complex_value* complex_of(double* x) { return reinterpret_cast<complex_value*>(x); }
template <auto* Routine>
void triangular(const double* a, const double*, double* c) {
  for (const char* side : {"L", "R"})
    Routine(side, "L", *side == 'L' ? "N" : "T", "U", &n, &n, &one, a, &n, c, &n);
}
const driver drivers[] = {
    {"gemm",
     [](auto a, auto b, auto c) { zor_blas_dgemm("N", "T", &n, &n, &n, &one, a, &n, b, &n, &one, c, &n); }},
    {"gemmt",
     [](auto a, auto b, auto c) { zor_blas_dgemmt("U", "N", "T", &n, &n, &one, a, &n, b, &n, &one, c, &n); }},
    {"trsm", triangular<zor_blas_dtrsm>},
    {"trmm", triangular<zor_blas_dtrmm>},
    {"syrk", [](auto a, auto, auto c) { zor_blas_dsyrk("L", "N", &n, &n, &one, a, &n, &one, c, &n); }},
    {"syr2k",
     [](auto a, auto b, auto c) { zor_blas_dsyr2k("U", "T", &n, &n, &one, a, &n, b, &n, &one, c, &n); }},
    {"symm",
     [](auto a, auto b, auto c) { zor_blas_dsymm("L", "U", &n, &n, &one, a, &n, b, &n, &one, c, &n); }, true},
    {"hemm",
     [](auto a, auto b, auto c) {
       zor_blas_zhemm("R", "L", &n, &n, &one_z, complex_of(a), &n, complex_of(b), &n, &one_z, complex_of(c),
                      &n);
     }},
    {"gemm3m",
     [](auto a, auto b, auto c) {
       zor_blas_zgemm3m("N", "N", &n, &n, &n, &one_z, complex_of(a), &n, complex_of(b), &n, &one_z,
                        complex_of(c), &n);
     }},
    {"dzgemm",
     [](auto a, auto b, auto c) {
       zor_blas_dzgemm("N", "N", &n, &n, &n, &one_z, a, &n, complex_of(b), &n, &one_z, complex_of(c), &n);
     }},
};

TEST(ShortMemory, ProductsCompleteAndNothingLeaks) {
  const auto b = integers(2), c = integers(3);
  for (const driver& d : drivers) {
    const bool solves = std::string_view(d.name).substr(0, 2) == "tr";
    const auto a = solves ? sparse_triangle() : integers(1);
    std::vector<double> expected = c;
    d.call(a.data(), b.data(), expected.data());
    EXPECT_NE(c, expected) << d.name;
    for (int32_t threads : {1, 3}) {
      zor_core_set_num_threads(threads);
      uint64_t requests = 1;
      for (uint64_t failing = 0; failing <= requests; ++failing)
        for (bool onwards : {false, true}) {
          SCOPED_TRACE(::testing::Message()
                       << d.name << ", " << threads << " threads, request " << failing << " fails");
          zor_serv_freebuffers();
          const int64_t before = zalloc_live_blocks();
          zalloc_reset();
          zalloc_fail(failing, onwards);
          std::vector<double> result = c;
          d.call(a.data(), b.data(), result.data());
          requests = std::max(requests, failing == 0 ? zalloc_calls() : 0);
          for (size_t i = 0; i < c.size(); ++i)
            if (result[i] != expected[i] && !(failing > 0 && d.leaves_alone && result[i] == c[i])) {
              ADD_FAILURE() << "element " << i << " is " << result[i] << ", not " << expected[i];
              break;
            }
          zalloc_fail(0, false);
          zor_serv_freebuffers();
          EXPECT_EQ(before, zalloc_live_blocks());
        }
      EXPECT_LE(2u, requests) << d.name << " takes a record of the pool and a block";
    }
    zor_core_set_num_threads(0);
  }
}

// A full lower triangle of small integers under a unit diagonal, 1-based; large enough that its symmetric
// product runs in parts with an output each.
struct lower_triangle {
  static constexpr zor_int rows = 260;
  std::vector<double> val;
  std::vector<zor_int> indx, pointers = {1};
  zor_sparse_desc description(char structure) {
    for (zor_int r = 0; val.empty() || r < rows; ++r) {
      for (zor_int c = 0; c <= r; ++c) {
        val.push_back(c == r ? 1 : double((r + 3 * c) % 3 - 1));
        indx.push_back(c + 1);
      }
      pointers.push_back(zor_int(val.size()) + 1);
    }
    return sparse_test::csr({structure, 'l', 'n'}, 1, rows, rows, val, indx, pointers);
  }
};

// A call on a fresh matrix, with every request failing in turn: it ends as without failures, or says that
// memory is short and has written nothing.
template <class Call>
void expect_done_or_short(char structure, zor_int columns, const Call& call) {
  lower_triangle l;
  const zor_sparse_desc d = l.description(structure);
  const std::vector<double> before(size_t(l.rows * columns), 7);
  const int64_t live = (zor_serv_freebuffers(), zalloc_live_blocks());
  std::vector<double> expected;
  int short_of_memory = 0;
  for (uint64_t failing = 0; failing <= 8; ++failing)
    for (bool onwards : {false, true}) {
      zalloc_reset();
      zalloc_fail(failing, onwards);
      zor_sparse a;
      std::vector<double> y = before;
      int32_t status = zor_sparse_create(&a, &d);
      if (status == ZOR_SPARSE_OK) status = call(a, y.data());
      zalloc_fail(0, false);
      if (failing == 0) expected = y;
      if (status == ZOR_SPARSE_OK) {
        EXPECT_EQ(expected, y) << "request " << failing;
      } else {
        ++short_of_memory;
        EXPECT_EQ(ZOR_SPARSE_NO_MEMORY, status) << "request " << failing;
        EXPECT_EQ(before, y) << "request " << failing;
      }
      if (a != nullptr) zor_sparse_free(&a);
      zor_serv_freebuffers();
      EXPECT_EQ(live, zalloc_live_blocks()) << "request " << failing;
    }
  EXPECT_NE(before, expected);
  EXPECT_LE(2, short_of_memory);
}

TEST(ShortMemory, SparseCallsCompleteOrSaySo) {
  constexpr zor_int m = lower_triangle::rows;
  const std::vector<double> ones(size_t(3 * m), 1);
  for (int32_t threads : {1, 3}) {
    zor_core_set_num_threads(threads);
    expect_done_or_short('s', 1, [&](zor_sparse a, double* y) {
      return zor_sparse_dmv(a, ZOR_SPARSE_PLAIN, 1, ones.data(), 2, y);
    });
    expect_done_or_short('s', 3, [&](zor_sparse a, double* y) {
      return zor_sparse_dmm(a, ZOR_SPARSE_PLAIN, ZOR_SPARSE_ROW_MAJOR, 3, 1, ones.data(), 3, 2, y, 3);
    });
    // Solutions stay integers for a few rows only: the right-hand side is a product.
    for (int32_t layout : {ZOR_SPARSE_COLUMN_MAJOR, ZOR_SPARSE_ROW_MAJOR})
      expect_done_or_short('t', 3, [&](zor_sparse a, double* y) {
        const zor_int ld = layout == ZOR_SPARSE_ROW_MAJOR ? 3 : m;
        std::vector<double> b(size_t(3 * m));
        const int32_t status =
            zor_sparse_dmm(a, ZOR_SPARSE_PLAIN, layout, 3, 1, ones.data(), ld, 0, b.data(), ld);
        return status != ZOR_SPARSE_OK
                   ? status
                   : zor_sparse_dsm(a, ZOR_SPARSE_PLAIN, layout, 3, 1, b.data(), ld, y, ld);
      });
  }
  zor_core_set_num_threads(0);
}

// Calls that make a matrix: all requests until the call succeeds, refused in turn.
template <class Call>
void expect_made_or_short(const char* name, const Call& call) {
  SCOPED_TRACE(name);
  const int64_t live = (zor_serv_freebuffers(), zalloc_live_blocks());
  int32_t status = ZOR_SPARSE_NO_MEMORY;
  for (uint64_t failing = 1; failing < 60; ++failing)
    for (bool onwards : {true, false}) {
      zalloc_reset();
      zalloc_fail(failing, onwards);
      zor_sparse made = nullptr;
      status = call(&made);
      zalloc_fail(0, false);
      EXPECT_TRUE(status == ZOR_SPARSE_OK || status == ZOR_SPARSE_NO_MEMORY) << zor_sparse_error_text();
      EXPECT_EQ(status == ZOR_SPARSE_OK, made != nullptr);
      if (made != nullptr) zor_sparse_free(&made);
      zor_serv_freebuffers();
      EXPECT_EQ(live, zalloc_live_blocks()) << "request " << failing;
    }
  EXPECT_EQ(ZOR_SPARSE_OK, status);
}

TEST(ShortMemory, MatricesAreMadeOrNot) {
  lower_triangle l;
  lower_triangle same;
  const zor_sparse_desc general = l.description('g'), triangle = same.description('t');
  const sparse_test::owner a(general), t(triangle);
  const double beta = 2;
  for (const int32_t format :
       {ZOR_SPARSE_CSR, ZOR_SPARSE_COO, ZOR_SPARSE_DIA, ZOR_SPARSE_BSR, ZOR_SPARSE_SKY})
    expect_made_or_short("convert", [&](zor_sparse* b) { return zor_sparse_convert(b, t.a, format, 3); });
  for (const char op : {'n', 't'}) {
    expect_made_or_short("add", [&](zor_sparse* c) { return zor_sparse_add(c, a.a, op, &beta, a.a); });
    expect_made_or_short("multiply", [&](zor_sparse* c) { return zor_sparse_multiply(c, op, a.a, a.a); });
  }
}

}  // namespace
