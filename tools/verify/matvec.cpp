// SPDX-License-Identifier: MIT
// Matrix-vector products and rank-one updates: the kernels and the threaded entries.
#include "tools/verify/battery.h"
#include "zor/signatures/blas.h"

namespace zor_tools {
namespace {

struct shape {
  zor_int m, n;
};
constexpr shape shapes[] = {{1, 1}, {2, 3},   {4, 4},   {5, 9},   {8, 1},
                            {9, 7}, {17, 12}, {33, 31}, {130, 5}, {6, 140}};
constexpr shape divided = {603, 517};  // large enough to be divided over threads

constexpr zor_int increments[][2] = {{1, 1}, {2, -1}, {-1, 3}, {-2, -2}};
constexpr double factors[][2] = {{1, 0}, {0, 0}, {-0.6, 0.4}};

size_t extent(zor_int n, zor_int inc) { return size_t((n - 1) * (inc < 0 ? -inc : inc) + 1); }

template <class T>
void product(recorder& out, zor::gemv_fn<T>* fn, char trans, shape s, zor_int incx, zor_int incy,
             uint64_t iteration, content kind) {
  numbers source(iteration);
  const zor_int lda = s.m + zor_int(iteration % 3);
  block<T> a(size_t(lda * s.n), iteration % 2, source, kind);
  block<T> x(extent(trans == 'N' ? s.n : s.m, incx), iteration / 2 % 2, source, kind);
  block<T> y(extent(trans == 'N' ? s.m : s.n, incy), iteration / 3 % 2, source);
  const double* const f = factors[iteration % 3 == 1 ? 2 : iteration % 3];
  const double* const g = factors[iteration / 3 % 3];
  const T alpha = scalar<T>(f[0], f[1]), beta = scalar<T>(g[0], g[1]);
  fn(&trans, &s.m, &s.n, &alpha, a.data(), &lda, x.data(), &incx, &beta, y.data(), &incy);
  y.record(out);
}

template <class T>
void products(recorder& out, zor::gemv_fn<T>* fn) {
  uint64_t iteration = 0;
  for (const content kind : {content::ordinary, content::special})
    for (const shape s : shapes)
      for (const char trans : {'N', 'T', 'C'})
        for (const auto& inc : increments) product(out, fn, trans, s, inc[0], inc[1], ++iteration, kind);
  for (const char trans : {'N', 'T', 'C'})
    product(out, fn, trans, divided, 1, 1, ++iteration, content::ordinary);
}

// call(uplo, n, alpha, x, incx, a, lda) updates a triangle; without a pad the array may be a packed one.
template <class T, class Call>
void updates(recorder& out, zor_int most_pad, const Call& call) {
  uint64_t iteration = 0;
  for (const zor_int n : {1, 2, 3, 4, 7, 9, 16, 35, 611})
    for (const char uplo : {'U', 'L'})
      for (const zor_int inc : {1, -1, 2, -3}) {
        numbers source(++iteration);
        const zor_int lda = n + zor_int(iteration) % (most_pad + 1);
        block<T> a(size_t(lda * n), iteration % 3, source);
        block<T> x(extent(n, inc), iteration % 2, source, n % 2 == 0 ? content::special : content::ordinary);
        const T alpha = T(-0.7);
        call(&uplo, &n, &alpha, x.data(), &inc, a.data(), &lda);
        a.record(out);
      }
}

}  // namespace

void run_matvec(recorder& out) {
#define ROW_XGEMV(name, T) \
  if (out.begin(#name)) products<T>(out, name);
#define ROW_XSYR(name, T) \
  if (out.begin(#name)) updates<T>(out, 1, name);
#define ROW_SPR(name, T)                                                                               \
  if (out.begin(#name))                                                                                \
    updates<T>(out, 0,                                                                                 \
               [](const char* uplo, const zor_int* n, const T* alpha, const T* x, const zor_int* incx, \
                  T* ap, const zor_int*) { name(uplo, n, alpha, x, incx, ap); });
#include "zor/tables/blas_matvec.inc"

#define ROW_GEMV(name, T) \
  if (out.begin(#name)) products<T>(out, name);
#define ROW_SYR(name, T) \
  if (out.begin(#name)) updates<T>(out, 1, name);
#include "zor/tables/core_blas.inc"
}

}  // namespace zor_tools
