// SPDX-License-Identifier: MIT
// Operands of dense matrix routines.
#pragma once

#include "tests/fuzz/trial.h"

namespace zor_fuzz {

// op(A) of a stored matrix, by the letter of the operation.
template <class T>
struct operand_of {
  operand_of(trial& t, const char* name, option trans, zor_int m, zor_int n)
      : op(trans), stored(t.matrix<T>(name, use::in, transposed() ? n : m, transposed() ? m : n)) {}
  auto arguments() const { return stored.arguments(); }
  bool transposed() const { return !op.is('N'); }
  wide operator()(zor_int i, zor_int j) const {
    return conj_when(op.is('C'), transposed() ? stored(j, i) : stored(i, j));
  }
  option op;
  dense<T> stored;
};

// beta C, where a beta of 0 reads nothing.
template <class T, class C>
wide scaled(const T& beta, const C& c, zor_int i, zor_int j = 0) {
  const wide b = widened(beta);
  return b == wide(0) ? wide(0) : times(b, c(i, j));
}
template <class T>
use when_scaled(const T& beta, bool writes = true) {
  return widened(beta) == wide(0) && writes ? use::out : use::inout;
}

// One triangle of a stored square matrix; what it does not hold is a gap.
template <class T>
struct triangle {
  triangle(trial& t, const char* name, use how, option uplo, bool unit, zor_int order)
      : upper(uplo.is('U')), unit_diagonal(unit), stored(t.matrix<T>(name, how, order, order)) {
    for (zor_int j = 0; j < order; ++j)
      for (zor_int i = 0; i < order; ++i)
        if (!inside(i, j) && !(i == j && !unit)) stored.spare(i, j);
  }
  auto arguments() const { return stored.arguments(); }
  bool inside(zor_int i, zor_int j) const { return upper ? i < j : i > j; }
  bool holds(zor_int i, zor_int j) const { return i == j || inside(i, j); }
  // The triangular matrix, and the symmetric or Hermitian one.
  wide operator()(zor_int i, zor_int j) const {
    if (i == j) return unit_diagonal ? wide(1) : stored(i, j);
    return inside(i, j) ? stored(i, j) : wide(0);
  }
  wide mirrored(bool hermitian, zor_int i, zor_int j) const {
    if (i == j) return hermitian ? wide(stored(i, i).real()) : stored(i, i);
    return inside(i, j) ? stored(i, j) : conj_when(hermitian, stored(j, i));
  }
  bool upper, unit_diagonal;
  dense<T> stored;
};

}  // namespace zor_fuzz
