// SPDX-License-Identifier: MIT
// Matrix products: the drivers, their panel copies and scalings, and the threaded entries.
#include "tools/verify/battery.h"
#include "zor/signatures/blas.h"

namespace zor_tools {
namespace {

struct shape {
  zor_int m, n, k;
};

// Sizes of the plain path, tails of every tile, one and several panels in the depth, B packed and in place.
constexpr shape shapes[] = {{1, 1, 1},     {2, 5, 4},    {5, 2, 9},  {3, 3, 3},    {4, 8, 8},
                            {7, 6, 5},     {8, 8, 8},    {9, 9, 10}, {11, 14, 16}, {13, 10, 65},
                            {16, 12, 64},  {17, 23, 29}, {26, 9, 0}, {33, 5, 113}, {10, 31, 150},
                            {25, 18, 225}, {150, 20, 12}};
// Large enough to be divided over threads, with rows and columns that no tile divides.
constexpr shape divided = {131, 101, 120};

constexpr double factors[][2] = {{1, 0}, {0, 0}, {-0.75, 0}, {1, 0.5}, {0.3, -1.2}};

template <class T>
void product(recorder& out, zor::gemm_fn<T>* fn, char transa, char transb, shape s, uint64_t iteration,
             content kind) {
  numbers source(iteration);
  const bool plain_a = transa == 'N', plain_b = transb == 'N';
  const zor_int extra = zor_int(iteration % 3), lda = (plain_a ? s.m : s.k) + 1 + extra,
                ldb = (plain_b ? s.k : s.n) + 1 + extra, ldc = s.m + extra;
  block<T> a(size_t(lda * (plain_a ? s.k : s.m)), iteration % 2, source, kind);
  block<T> b(size_t(ldb * (plain_b ? s.n : s.k)), iteration / 2 % 2, source);
  block<T> c(size_t(ldc * s.n), iteration / 4 % 2, source);
  const double* const x = factors[iteration % 5 == 1 ? 2 : iteration % 5];
  const double* const y = factors[iteration / 5 % 5];
  const T alpha = scalar<T>(x[0], x[1]), beta = scalar<T>(y[0], y[1]);
  fn(&transa, &transb, &s.m, &s.n, &s.k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(), &ldc);
  c.record(out);
}

template <class T>
void products(recorder& out, zor::gemm_fn<T>* fn) {
  uint64_t iteration = 0;
  for (const shape s : shapes)
    for (const char transa : {'N', 'T', 'C'})
      for (const char transb : {'N', 'T', 'C'})
        product(out, fn, transa, transb, s, ++iteration, content::ordinary);
  for (const shape s : {shape{2, 4, 5}, shape{12, 10, 11}, shape{9, 16, 130}})
    for (const char transa : {'N', 'T', 'C'}) product(out, fn, transa, 'N', s, ++iteration, content::special);
}

template <class T>
void divided_products(recorder& out, zor::gemm_fn<T>* fn) {
  products(out, fn);
  const char letters[][2] = {{'N', 'N'}, {'T', 'N'}, {'N', 'C'}, {'C', 'T'}};
  uint64_t iteration = 500;
  for (const auto& pair : letters)
    product(out, fn, pair[0], pair[1], divided, ++iteration, content::ordinary);
}

template <class T>
void scalings(recorder& out, zor::mscale_fn<T>* fn) {
  uint64_t iteration = 0;
  for (const zor_int m : {1, 4, 8, 9, 10, 13, 40})
    for (const zor_int n : {1, 3, 4, 9})
      for (const auto& factor : factors) {
        numbers source(++iteration);
        const zor_int ldc = m + zor_int(iteration % 2);
        block<T> c(size_t(ldc * n), iteration % 3, source, content::special);
        const T beta = scalar<T>(factor[0], factor[1]);
        fn(&m, &n, &beta, c.data(), &ldc);
        c.record(out);
      }
}

// Calls body(width, k, source matrix, its leading dimension, panel) for sizes around every strip. The widest
// strip has 8 rows, so a panel of round_up(width, 8) * (k + 3) holds any format.
template <class T, class Body>
void each_panel(bool transposed, bool wide_first, const Body& body) {
  uint64_t iteration = 0;
  for (const zor_int width : {1, 2, 3, 4, 5, 7, 8, 13, 22})
    for (const zor_int k : {1, 4, 5, 11, 64}) {
      numbers source(++iteration);
      const zor_int along = wide_first != transposed ? width : k,
                    across = wide_first != transposed ? k : width;
      const zor_int ld = along + zor_int(iteration % 3);
      block<T> matrix(size_t(ld * across), iteration % 2, source, content::special);
      block<T> panel(size_t((width + 7) / 8 * 8 * (k + 3)), 0, source);
      body(width, k, matrix.data(), ld, panel);
    }
}

template <class T>
void a_copies(recorder& out, bool transposed, zor::copya_fn<T>* fn) {
  each_panel<T>(transposed, true, [&](zor_int m, zor_int k, const T* a, zor_int lda, block<T>& panel) {
    const T alpha = scalar<T>(-1.1, 0.7);
    fn(&m, &k, a, &lda, panel.data(), &alpha);
    panel.record(out);
  });
}

template <class T>
void b_copies(recorder& out, bool transposed, zor::copyb_fn<T>* fn) {
  each_panel<T>(transposed, false, [&](zor_int n, zor_int k, const T* b, zor_int ldb, block<T>& panel) {
    fn(&k, &n, b, &ldb, panel.data());
    panel.record(out);
  });
}

}  // namespace

void run_gemm(recorder& out) {
#define ROW_XGEMM(name, T) \
  if (out.begin(#name)) products<T>(out, name);
#define ROW_MSCALE(name, T) \
  if (out.begin(#name)) scalings<T>(out, name);
#define ROW_COPYA(name, T, form) \
  if (out.begin(#name)) a_copies<T>(out, #form[0] != 'n', name);
#define ROW_COPYB(name, T, form) \
  if (out.begin(#name)) b_copies<T>(out, #form[0] != 'n', name);
#include "zor/tables/blas_gemm.inc"

#define ROW_GEMM(name, T) \
  if (out.begin(#name)) divided_products<T>(out, name);
#include "zor/tables/core_blas.inc"
}

}  // namespace zor_tools
