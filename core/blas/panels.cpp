// SPDX-License-Identifier: MIT
// Packed panels and scratch blocks of the matrix product, for callers that drive the register kernels
// themselves.
#include "blas/level3/blocking.h"
#include "core/blas/arguments.h"
#include "core/blas/kernels.h"
#include "serv/memory.h"
#include "zor/signatures/blas.h"
#include "zor/signatures/core.h"

namespace zor_core {
namespace {

template <class T>
constexpr bool is_complex = requires {
  kernels<T>::copyac;
};

using zor::gemm::blocking;

template <class T>
constexpr blocking blocks_of(zor_int m, zor_int n, zor_int k) {
  if (m <= 0 || n <= 0 || k <= 0) return {0, 0, 0, 0};
  return zor::gemm::blocking_of<T>(m, n, k, false);
}

constexpr bool is_conjugate(const char* trans) { return *trans == 'C' || *trans == 'c'; }

template <class T>
void copya(const char* transa, const zor_int* m, const zor_int* k, const T* a, const zor_int* lda, T* panel,
           const T* alpha) {
  auto* copy = is_plain(transa) ? kernels<T>::copyan : kernels<T>::copyat;
  if constexpr (is_complex<T>)
    if (is_conjugate(transa)) copy = kernels<T>::copyac;
  copy(m, k, a, lda, panel, alpha);
}

template <class T>
void copyb(const char* transb, const zor_int* k, const zor_int* n, const T* b, const zor_int* ldb, T* panel) {
  auto* copy = is_plain(transb) ? kernels<T>::copybn : kernels<T>::copybt;
  if constexpr (is_complex<T>)
    if (is_conjugate(transb)) copy = kernels<T>::copybc;
  copy(k, n, b, ldb, panel);
}

}  // namespace
}  // namespace zor_core

using namespace zor_core;

#define ROW_COPYA(name, T, copy) \
  extern "C" SIG_COPYA(name, T) { kernels<T>::copy(m, k, a, lda, destination, alpha); }
#define ROW_COPYB(name, T, copy) \
  extern "C" SIG_COPYB(name, T) { kernels<T>::copy(k, n, b, ldb, destination); }
#define ROW_COPYA_EXT(name, T) \
  extern "C" SIG_COPYA_EXT(name, T) { copya(transa, m, k, a, lda, panel, alpha); }
#define ROW_COPYB_EXT(name, T) \
  extern "C" SIG_COPYB_EXT(name, T) { copyb(transb, k, n, b, ldb, panel); }
#define ROW_BLKS_SIZE(name, T)                   \
  extern "C" SIG_BLKS_SIZE(name) {               \
    const blocking b = blocks_of<T>(*m, *n, *k); \
    *mb = b.mb, *nb = b.nb, *kb = b.kb;          \
  }
#define ROW_BUFS_SIZE(name, T) \
  extern "C" SIG_BUFS_SIZE(name) { *bytes = blocks_of<T>(*m, *n, *k).bytes; }
#define ROW_GETBUFS(name, T)                                                                     \
  extern "C" SIG_GETBUFS(name) {                                                                 \
    *block = zor_serv_allocate(uint64_t(blocks_of<T>(*m, *n, *k).bytes), zor::scratch_boundary); \
  }
#define ROW_FREEBUFS(name, T)     \
  extern "C" SIG_FREEBUFS(name) { \
    zor_serv_deallocate(*block);  \
    *block = nullptr;             \
  }
#include "zor/tables/core_generic.inc"
