// SPDX-License-Identifier: MIT
// What every adapter does: it tells which call is under way, so that a bad argument is reported as that
// library's users expect, and turns CBLAS options into letters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

#include "zor/blas.h"
#include "zor/core.h"
#include "zor/trans.h"

// ZOR_BLAS_INTEGER is the library's integer type, ZOR_BLAS_SUFFIX what its names end in.
using blasint = ZOR_BLAS_INTEGER;
#define ZOR_JOINED(name, suffix) name##suffix
#define ZOR_JOIN(name, suffix) ZOR_JOINED(name, suffix)
#define ZOR_SYMBOL(name) ZOR_JOIN(name, ZOR_BLAS_SUFFIX)

namespace zor_libblas {

using std::swap;

// A call of a checked routine, from its adapter's first line to its last. It costs two stores into memory of
// the thread.
class call {
 public:
  explicit call(const char* routine) : name(routine) { under_way = this; }
  // `before` arguments of the CBLAS name stand before those of the routine.
  call(const char* routine, int layout, int before = 1);
  call(const call&) = delete;
  call& operator=(const call&) = delete;
  ~call() { under_way = nullptr; }

  // Letters of CBLAS options. One that is none is reported, once a call.
  char side(int32_t position, int option) { return letter(position, option, "Side", 141, "LR"); }
  char uplo(int32_t position, int option) { return letter(position, option, "Uplo", 121, "UL"); }
  char diag(int32_t position, int option) { return letter(position, option, "Diag", 131, "NU"); }
  char trans(int32_t position, int option) { return letter(position, option, "Trans", 111, "NTCR"); }
  bool refused() const { return refused_; }
  void memory_is_short();

  const char* const name;  // "dgemm"
  const bool by_c = false, by_rows = false;
  const int before = 0;

  [[gnu::tls_model("initial-exec")]] static constinit thread_local const call* under_way;

 private:
  char letter(int32_t position, int option, const char* what, int first, const char* letters) {
    const int at = option - first;
    if (at >= 0 && at < int(std::strlen(letters))) return letters[at];
    refuse(position, what, option);
    return 0;
  }
  void refuse(int32_t position, const char* what, int option);

  bool refused_ = false;
};

// ---- A matrix stored by rows is the transpose of one stored by columns: the options of the call for the
// latter.

inline void swap_side(char& side) { side = side == 'L' ? 'R' : 'L'; }
inline void swap_uplo(char& uplo) { uplo = uplo == 'U' ? 'L' : 'U'; }

template <class T>
constexpr bool is_complex = requires(T x) {
  x.im;
};

// False when the operation was a conjugate transpose: conjugated it is the plain one.
template <class T>
bool transpose_op(char& trans) {
  const bool conjugate = is_complex<T> && trans == 'C';
  trans = trans == 'N' ? 'T' : trans == 'R' ? 'R' : 'N';
  return !conjugate;
}

// An update C := op(A) op(A)^T: its transposition is the other one of two letters (for real types T and C are
// the same), and a letter that it does not have stays one.
template <class T>
void transpose_rank_op(char& trans, bool hermitian) {
  const char other = hermitian ? 'C' : 'T';
  if (trans == 'N')
    trans = other;
  else if (trans == other || (!is_complex<T> && trans == 'C'))
    trans = 'N';
}

// The sign changes as a bit: no operation, no exception flag.
template <class R>
void flip_sign(R& x) {
  using bits = std::conditional_t<sizeof(R) == 4, uint32_t, uint64_t>;
  bits b;
  std::memcpy(&b, &x, sizeof b);
  b ^= bits(1) << (8 * sizeof b - 1);
  std::memcpy(&x, &b, sizeof b);
}
template <class T>
void conjugate(T& x) {
  if constexpr (is_complex<T>) flip_sign(x.im);
}

// A complex vector that a call takes conjugated: a copy of an input, or the vector itself until the call is
// over.
template <class T>
class conjugated {
 public:
  explicit conjugated(call& owner) : owner_(owner) {}
  conjugated(const conjugated&) = delete;
  conjugated& operator=(const conjugated&) = delete;
  ~conjugated() {
    conjugate_all();
    std::free(memory_);
  }

  // x becomes the conjugated copy with an increment of 1; false when there is no memory for it, which is
  // reported. Arguments that the routine refuses stay as they are.
  bool copy(const T*& x, zor_int n, zor_int& incx) {
    if (n < 1 || x == nullptr || incx == 0) return true;
    T* target = near_;
    if (n > near_elements) {
      target = memory_ =
          static_cast<T*>(n > INT64_MAX / zor_int(sizeof(T)) ? nullptr : std::malloc(size_t(n) * sizeof(T)));
      if (target == nullptr) {
        owner_.memory_is_short();
        return false;
      }
    }
    const T* const first = incx < 0 ? x + (1 - n) * incx : x;
    for (zor_int i = 0; i < n; ++i) {
      target[i] = first[i * incx];
      conjugate(target[i]);
    }
    x = target, incx = 1;
    return true;
  }

  void conjugate_in_place(T* x, zor_int n, zor_int incx) {
    if (n < 1 || x == nullptr || incx == 0) return;
    x_ = x, n_ = n, step_ = incx < 0 ? -incx : incx;
    conjugate_all();
  }

 private:
  void conjugate_all() {
    for (zor_int i = 0; i < n_; ++i) conjugate(x_[i * step_]);
  }

  static constexpr zor_int near_elements = 64;
  call& owner_;
  T* memory_ = nullptr;
  T* x_ = nullptr;
  zor_int n_ = 0, step_ = 1;
  T near_[near_elements];
};

}  // namespace zor_libblas
