// SPDX-License-Identifier: MIT
// The products in a chosen precision behind one signature, for whoever runs all of them.
#pragma once

#include "zor/xblas.h"

namespace zor_bench {

// What any of them takes. tail goes to the routines of two vectors.
template <class T>
struct product_call {
  zor_int trans, uplo, m, n, kl, ku;
  T alpha;
  const T* a;
  zor_int lda;
  const T *head, *tail;
  zor_int incx;
  T beta;
  T* y;
  zor_int incy, prec;
};

enum class form { general, band, symmetric, hermitian };

template <class T>
struct product {
  using element = T;
  const char* name;
  form of;
  bool two;
  void (*call)(const product_call<T>& c);

  bool square() const { return of == form::symmetric || of == form::hermitian; }
  // Elements of op(A) in a column, and in a row; rows that are stored.
  zor_int outputs(const product_call<T>& c) const { return square() || c.trans != ZOR_NO_TRANS ? c.n : c.m; }
  zor_int inputs(const product_call<T>& c) const { return square() || c.trans == ZOR_NO_TRANS ? c.n : c.m; }
  zor_int stored_rows(const product_call<T>& c) const {
    return of == form::band ? c.kl + c.ku + 1 : square() ? c.n : c.m;
  }
};

// The kernels: visit(product<T>).
template <class Visit>
void for_kernel_products(const Visit& visit) {
#define GENERAL(name, T, two, ...)                                                                         \
  visit(product<T>{#name, form::general, two, [](const product_call<T>& c) {                               \
                     name(&c.trans, &c.m, &c.n, &c.alpha, c.a, &c.lda, __VA_ARGS__, &c.incx, &c.beta, c.y, \
                          &c.incy, &c.prec);                                                               \
                   }});
#define BAND(name, T, two, ...)                                                                            \
  visit(product<T>{#name, form::band, two, [](const product_call<T>& c) {                                  \
                     name(&c.trans, &c.m, &c.n, &c.kl, &c.ku, &c.alpha, c.a, &c.lda, __VA_ARGS__, &c.incx, \
                          &c.beta, c.y, &c.incy, &c.prec);                                                 \
                   }});
#define SYMMETRIC(name, T, kind, two, ...)                                                                   \
  visit(product<T>{#name, kind, two, [](const product_call<T>& c) {                                          \
                     name(&c.uplo, &c.n, &c.alpha, c.a, &c.lda, __VA_ARGS__, &c.incx, &c.beta, c.y, &c.incy, \
                          &c.prec);                                                                          \
                   }});
#define ROW_GEMV_X(name, T, ...) GENERAL(name, T, false, c.head)
#define ROW_GEMV2_X(name, T, ...) GENERAL(name, T, true, c.head, c.tail)
#define ROW_GBMV_X(name, T, ...) BAND(name, T, false, c.head)
#define ROW_GBMV2_X(name, T, ...) BAND(name, T, true, c.head, c.tail)
#define ROW_SYMV_X(name, T, ...) SYMMETRIC(name, T, form::symmetric, false, c.head)
#define ROW_SYMV2_X(name, T, ...) SYMMETRIC(name, T, form::symmetric, true, c.head, c.tail)
#define ROW_HEMV_X(name, T, ...) SYMMETRIC(name, T, form::hermitian, false, c.head)
#define ROW_HEMV2_X(name, T, ...) SYMMETRIC(name, T, form::hermitian, true, c.head, c.tail)
#include "zor/tables/xblas.inc"
#undef GENERAL
#undef BAND
#undef SYMMETRIC
}

// The public routines, which take everything by value.
template <class Visit>
void for_public_products(const Visit& visit) {
#define GENERAL(name, T, two, ...)                                                                           \
  visit(product<T>{#name, form::general, two, [](const product_call<T>& c) {                                 \
                     name(int32_t(c.trans), c.m, c.n, c.alpha, c.a, c.lda, __VA_ARGS__, c.incx, c.beta, c.y, \
                          c.incy, int32_t(c.prec));                                                          \
                   }});
#define BAND(name, T, two, ...)                                                                             \
  visit(product<T>{#name, form::band, two, [](const product_call<T>& c) {                                   \
                     name(int32_t(c.trans), c.m, c.n, c.kl, c.ku, c.alpha, c.a, c.lda, __VA_ARGS__, c.incx, \
                          c.beta, c.y, c.incy, int32_t(c.prec));                                            \
                   }});
#define SYMMETRIC(name, T, kind, two, ...)                                                             \
  visit(product<T>{#name, kind, two, [](const product_call<T>& c) {                                    \
                     name(int32_t(c.uplo), c.n, c.alpha, c.a, c.lda, __VA_ARGS__, c.incx, c.beta, c.y, \
                          c.incy, int32_t(c.prec));                                                    \
                   }});
#define ROW_VALUE_GEMV_X(name, T, ...) GENERAL(name, T, false, c.head)
#define ROW_VALUE_GEMV2_X(name, T, ...) GENERAL(name, T, true, c.head, c.tail)
#define ROW_VALUE_GBMV_X(name, T, ...) BAND(name, T, false, c.head)
#define ROW_VALUE_GBMV2_X(name, T, ...) BAND(name, T, true, c.head, c.tail)
#define ROW_VALUE_SYMV_X(name, T, ...) SYMMETRIC(name, T, form::symmetric, false, c.head)
#define ROW_VALUE_SYMV2_X(name, T, ...) SYMMETRIC(name, T, form::symmetric, true, c.head, c.tail)
#define ROW_VALUE_HEMV_X(name, T, ...) SYMMETRIC(name, T, form::hermitian, false, c.head)
#define ROW_VALUE_HEMV2_X(name, T, ...) SYMMETRIC(name, T, form::hermitian, true, c.head, c.tail)
#include "zor/tables/core_xblas.inc"
#undef GENERAL
#undef BAND
#undef SYMMETRIC
}

}  // namespace zor_bench
