// SPDX-License-Identifier: MIT
// Level 3 beside the plain product: triangular solves and products, rank updates, symmetric products,
// products by parts.
#include "tools/verify/battery.h"
#include "zor/blas.h"
#include "zor/signatures/blas.h"

namespace zor_tools {
namespace {

constexpr double factors[][2] = {{1, 0}, {0, 0}, {-0.75, 0.25}, {0.5, 0}, {0.3, -1.2}};
template <class T>
T factor(uint64_t round) {
  const auto& f = factors[round % 5];
  return scalar<T>(f[0], f[1]);
}

// A triangle whose diagonal is large enough for solves to stay in range.
template <class T>
void strengthen_diagonal(T* a, zor_int order, zor_int lda) {
  for (zor_int i = 0; i < order; ++i) a[i + i * lda] = scalar<T>(40.0 * double(order), double(i));
}

template <class T>
void triangular(recorder& out, zor::xtrsm_fn<T>* fn) {
  uint64_t round = 0;
  for (const zor_int order : {1, 2, 8, 17, 33, 70, 150, 270})
    for (const char* side : {"L", "R"})
      for (const char* uplo : {"U", "L"})
        for (const char* trans : {"N", "T", "C"})
          for (const char* diag : {"N", "U"}) {
            numbers source(++round);
            if (order > 100 && round % 3 != 0) continue;
            const zor_int others = zor_int(1 + round % 13), m = *side == 'L' ? order : others,
                          n = *side == 'L' ? others : order, lda = order + zor_int(round % 2),
                          ldb = m + zor_int(round % 3);
            block<T> a(size_t(lda * order), round % 2, source), b(size_t(ldb * n), round / 2 % 2, source);
            strengthen_diagonal(a.data(), order, lda);
            const T alpha = factor<T>(round);
            fn(side, uplo, trans, diag, &m, &n, &alpha, a.data(), &lda, b.data(), &ldb);
            b.record(out);
          }
}

// Calls body(uplo, trans, n, k, A, B, their leading dimension, C, its leading dimension, round) for the rank
// updates.
template <class T, class Body>
void each_update(recorder& out, bool hermitian, const Body& body) {
  uint64_t round = 0;
  for (const zor_int n : {1, 3, 20, 65, 140})
    for (const zor_int k : {0, 1, 9, 70})
      for (const char* uplo : {"U", "L"})
        for (const char* trans : {"N", hermitian ? "C" : "T"}) {
          numbers source(++round);
          const zor_int rows = *trans == 'N' ? n : k, columns = *trans == 'N' ? k : n, ld = rows + 1,
                        ldc = n + 1;
          block<T> a(size_t(ld * columns), round % 2, source), b(size_t(ld * columns), 0, source);
          block<T> c(size_t(ldc * n), round / 2 % 2, source);
          body(uplo, trans, &n, &k, a.data(), b.data(), &ld, c.data(), &ldc, round);
          c.record(out);
        }
}

template <class T, class S>
void rank_k(recorder& out, zor::rank_k_fn<T, S>* fn, bool hermitian) {
  each_update<T>(
      out, hermitian,
      [&](auto uplo, auto trans, auto n, auto k, auto a, auto, auto ld, auto c, auto ldc, uint64_t round) {
        const S alpha = factor<S>(round), beta = factor<S>(round / 5);
        fn(uplo, trans, n, k, &alpha, a, ld, &beta, c, ldc);
      });
}
template <class T, class S>
void rank_2k(recorder& out, zor::rank_2k_fn<T, S>* fn, bool hermitian) {
  each_update<T>(
      out, hermitian,
      [&](auto uplo, auto trans, auto n, auto k, auto a, auto b, auto ld, auto c, auto ldc, uint64_t round) {
        const T alpha = factor<T>(round);
        const S beta = factor<S>(round / 5);
        fn(uplo, trans, n, k, &alpha, a, ld, b, ld, &beta, c, ldc);
      });
}

template <class T>
void symmetric(recorder& out, zor::symm_fn<T>* fn) {
  struct {
    zor_int m, n;
  } sizes[] = {{1, 1}, {5, 9}, {20, 17}, {140, 6}, {7, 200}, {270, 3}, {4, 300}};
  uint64_t round = 0;
  for (const auto& s : sizes)
    for (const char* side : {"L", "R"})
      for (const char* uplo : {"U", "L"}) {
        numbers source(++round);
        const zor_int order = *side == 'L' ? s.m : s.n, lda = order + 1, ld = s.m + zor_int(round % 2);
        block<T> a(size_t(lda * order), round % 2, source), b(size_t(ld * s.n), 0, source);
        block<T> c(size_t(ld * s.n), round / 2 % 2, source);
        const T alpha = factor<T>(round), beta = factor<T>(round / 5);
        fn(side, uplo, &s.m, &s.n, &alpha, a.data(), &lda, b.data(), &ld, &beta, c.data(), &ld);
        c.record(out);
      }
}

// Products of an A of elements of type E with complex B.
template <class E, class T, class Fn>
void by_parts(recorder& out, Fn* fn) {
  struct {
    zor_int m, n, k;
  } sizes[] = {{1, 2, 3}, {8, 8, 8}, {9, 9, 9}, {20, 31, 17}, {13, 12, 140}, {505, 11, 10}};
  uint64_t round = 0;
  for (const auto& s : sizes)
    for (const char* ta : {"N", "T", "C"})
      for (const char* tb : {"N", "T", "C"}) {
        numbers source(++round);
        const zor_int lda = (*ta == 'N' ? s.m : s.k) + 1, ldb = (*tb == 'N' ? s.k : s.n) + 1, ldc = s.m + 1;
        block<E> a(size_t(lda * (*ta == 'N' ? s.k : s.m)), round % 2, source);
        block<T> b(size_t(ldb * (*tb == 'N' ? s.n : s.k)), 0, source),
            c(size_t(ldc * s.n), round % 2, source);
        const T alpha = factor<T>(round), beta = factor<T>(round / 5);
        fn(ta, tb, &s.m, &s.n, &s.k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(), &ldc);
        c.record(out);
      }
}

// Products of which one triangle is wanted.
template <class T>
void one_triangle(recorder& out, zor::gemmt_fn<T>* fn) {
  uint64_t round = 0;
  for (const zor_int n : {1, 5, 20, 67, 140})
    for (const zor_int k : {0, 3, 70})
      for (const char* uplo : {"U", "L"})
        for (const char* ta : {"N", "T", "C"})
          for (const char* tb : {"N", "T", "C"}) {
            numbers source(++round);
            const zor_int lda = (*ta == 'N' ? n : k) + 1, ldb = (*tb == 'N' ? k : n) + 1, ldc = n + 1;
            block<T> a(size_t(lda * (*ta == 'N' ? k : n)), round % 2, source);
            block<T> b(size_t(ldb * (*tb == 'N' ? n : k)), 0, source), c(size_t(ldc * n), round % 2, source);
            const T alpha = factor<T>(round), beta = factor<T>(round / 5);
            fn(uplo, ta, tb, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(), &ldc);
            c.record(out);
          }
}

// Sizes of the copies that split a block into its parts.
constexpr zor_int split_sizes[][2] = {{1, 1}, {3, 5}, {8, 4}, {17, 9}, {40, 3}};

template <class T, class R>
void splits(recorder& out, zor::split3_fn<T, R>* fn, bool plain) {
  for (const auto& s : split_sizes) {
    numbers source{uint64_t(s[0])};
    const zor_int row = 2, column = 1, ld = (plain ? s[0] : s[1]) + 4, count = s[0] * s[1];
    block<T> x(size_t(ld * ((plain ? s[1] : s[0]) + 4)), 0, source, content::special);
    block<R> re(size_t(count), 0, source), im(size_t(count), 1, source), sum(size_t(count), 0, source);
    fn(&s[0], &s[1], x.data(), &ld, &row, &column, re.data(), im.data(), sum.data());
    re.record(out), im.record(out), sum.record(out);
  }
}

template <class T, class R>
void copies_of_b(recorder& out, zor::mixed_copyb_fn<T, R>* fn) {
  for (const char* trans : {"N", "T", "C"})
    for (const auto& s : split_sizes)
      for (uint64_t round : {0, 2}) {
        numbers source{uint64_t(s[0])};
        const zor_int ldb = (*trans == 'N' ? s[0] : s[1]) + 1, ld = s[0] + 1;
        block<T> b(size_t(ldb * (*trans == 'N' ? s[1] : s[0])), 0, source, content::special);
        block<R> re(size_t(ld * s[1]), 0, source), im(size_t(ld * s[1]), 1, source);
        const T alpha = factor<T>(round);
        fn(trans, &s[0], &s[1], b.data(), &ldb, re.data(), im.data(), &ld, &alpha);
        re.record(out), im.record(out);
      }
}

template <class T, class R, class Fn>
void copies_of_c(recorder& out, Fn* fn) {
  for (const auto& s : split_sizes) {
    numbers source{uint64_t(s[0])};
    const zor_int ldc = s[0] + 1, ld = s[0] + 2;
    block<T> c(size_t(ldc * s[1]), 0, source, content::special);
    block<R> re(size_t(ld * s[1]), 0, source), im(size_t(ld * s[1]), 1, source);
    fn(&s[0], &s[1], c.data(), &ldc, re.data(), im.data(), &ld);
    c.record(out), re.record(out), im.record(out);
  }
}

template <class T>
void scalings(recorder& out, zor::mscale_fn<T>* fn) {
  for (const auto& s : split_sizes)
    for (uint64_t round = 0; round < 5; ++round) {
      numbers source(round);
      const zor_int ldc = s[0] + 1;
      block<T> c(size_t(ldc * s[1]), 0, source, content::special);
      const T beta = factor<T>(round);
      fn(&s[0], &s[1], &beta, c.data(), &ldc);
      c.record(out);
    }
}

}  // namespace

void run_level3(recorder& out) {
#define ROW_XTRSM(name, T) \
  if (out.begin(#name)) triangular<T>(out, name);
#define ROW_XTRMM ROW_XTRSM
#define ROW_RANK_K(name, T, S, hermitian) \
  if (out.begin(#name)) rank_k<T, S>(out, name, hermitian);
#define ROW_RANK_2K(name, T, S, hermitian) \
  if (out.begin(#name)) rank_2k<T, S>(out, name, hermitian);
#define ROW_SYMM(name, T, form) \
  if (out.begin(#name)) symmetric<T>(out, name);
#define ROW_XGEMM3M(name, T) \
  if (out.begin(#name)) by_parts<T, T>(out, name);
#define ROW_MIXED(name, T, R) \
  if (out.begin(#name)) by_parts<R, T>(out, name);
#define ROW_MIXED_PST ROW_MIXED
#define ROW_SPLIT3(name, T, R, form) \
  if (out.begin(#name)) splits<T, R>(out, name, #form[0] == 'n');
#define ROW_MIXED_COPYB(name, T, R) \
  if (out.begin(#name)) copies_of_b<T, R>(out, name);
#define ROW_MIXED_COPYC_FWD(name, T, R) \
  if (out.begin(#name)) copies_of_c<T, R>(out, name);
#define ROW_MIXED_COPYC_BWD ROW_MIXED_COPYC_FWD
#define ROW_MIXED_MSCALE(name, T) \
  if (out.begin(#name)) scalings<T>(out, name);
#include "zor/tables/blas_level3.inc"

// The entries of libzor_core.
#define ROW_TRSM(name, T, ...) \
  if (out.begin(#name)) triangular<T>(out, name);
#define ROW_TRMM ROW_TRSM
#define ROW_SYRK(name, T, S, hermitian, ...) \
  if (out.begin(#name)) rank_k<T, S>(out, name, hermitian);
#define ROW_SYR2K(name, T, S, hermitian, ...) \
  if (out.begin(#name)) rank_2k<T, S>(out, name, hermitian);
#define ROW_PUBLIC_SYMM(name, T, ...) \
  if (out.begin(#name)) symmetric<T>(out, name);
#define ROW_GEMMT(name, T) \
  if (out.begin(#name)) one_triangle<T>(out, name);
#define ROW_GEMM3M(name, T, ...) \
  if (out.begin(#name)) by_parts<T, T>(out, name);
#define ROW_PUBLIC_MIXED(name, T, R, ...) \
  if (out.begin(#name)) by_parts<R, T>(out, name);
#include "zor/tables/core_level3.inc"
}

}  // namespace zor_tools
