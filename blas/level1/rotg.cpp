// SPDX-License-Identifier: MIT
// Setup of a plane rotation.
// Real: scale = |a| + |b|; r = scale sqrt((a/scale)^2 + (b/scale)^2) with the sign of the larger of a and b;
// c = a/r, s = b/r; z = s if |a| > |b|, else 1/c, else 1. a := r, b := z.
// Complex: with |a|, |b| the plain norms, scale = |a| + |b|, norm = scale sqrt(sum of the squared parts over
// scale, in the order ar ai br bi); c = |a|/norm, s = (a/|a|) conj(b) / norm, a := (a/|a|) norm; b stays. In
// single precision the divisions by norm run in double.
#include "zor/signatures/blas.h"

#include "blas/level1/walk.h"

namespace zor {
namespace {

template <class R>
R root(R x) {
  if constexpr (sizeof(R) == 8)
    return __builtin_sqrt(x);
  else
    return __builtin_sqrtf(x);
}
template <class R>
R square(R x) {
  return x * x;
}

template <class R>
void rotg_real(R* a, R* b, R* c, R* s) {
  const R abs_a = magnitude(*a), abs_b = magnitude(*b);
  const R scale = abs_a + abs_b;
  if (scale == 0) {
    *c = 1;
    *s = *a = *b = 0;
    return;
  }
  const R roe = abs_a > abs_b ? *a : *b;
  R r = scale * root(square(*a / scale) + square(*b / scale));
  if (roe < 0) r = -r;
  *c = *a / r;
  *s = *b / r;
  *b = abs_a > abs_b ? *s : *c != 0 ? R(1) / *c : R(1);
  *a = r;
}

template <class T, class R>
void rotg_complex(T* a, const T* b, R* c, T* s) {
  const R norm_a = root(square(a->re) + square(a->im));
  if (norm_a == 0) {
    *c = 0;
    *s = {1, 0};
    *a = *b;
    return;
  }
  const R scale = norm_a + root(square(b->re) + square(b->im));
  const R norm = scale * root(((square(a->re / scale) + square(a->im / scale)) + square(b->re / scale)) +
                              square(b->im / scale));
  const auto divided_by_norm = [norm](R x) { return R(double(x) / double(norm)); };
  const T phase = {a->re / norm_a, a->im / norm_a};
  const T t = {phase.re * b->re + phase.im * b->im, phase.im * b->re - phase.re * b->im};
  *c = divided_by_norm(norm_a);
  *s = {divided_by_norm(t.re), divided_by_norm(t.im)};
  *a = scaled(norm, phase);
}

template <class T, class R>
void rotg(T* a, T* b, R* c, T* s) {
  if constexpr (is_complex<T>)
    rotg_complex(a, b, c, s);
  else
    rotg_real(a, b, c, s);
}

}  // namespace
}  // namespace zor

#define ROW_ROTG(name, T, R) \
  extern "C" SIG_ROTG(name, T, R) { zor::rotg<T, R>(a, b, c, s); }
#include "zor/tables/blas_vector.inc"
