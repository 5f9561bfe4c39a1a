// SPDX-License-Identifier: MIT
// Operands of dense matrix routines.
#pragma once

#include "tests/fuzz/trial.h"

namespace zor_fuzz {

// op(A) of a stored matrix, by the letter of the operation.
template <class T>
struct turned {
  turned(trial& t, const char* name, char op, zor_int m, zor_int n)
      : letter(op),
        ld(t.leading((std::string("ld") + name).c_str(), transposed() ? n : m)),
        stored(t.matrix<T>(name, use::in, transposed() ? n : m, transposed() ? m : n, ld)) {}
  bool transposed() const { return letter != 'N' && letter != 'n'; }
  wide operator()(zor_int i, zor_int j) const {
    const wide e = transposed() ? stored(j, i) : stored(i, j);
    return letter == 'C' || letter == 'c' ? std::conj(e) : e;
  }
  char letter;
  zor_int ld;
  operand<T> stored;
};

// beta C, where a beta of 0 reads nothing.
template <class T>
wide scaled(const T& beta, const operand<T>& c, zor_int i, zor_int j = 0) {
  const wide b = widened(beta);
  return b == wide(0) ? wide(0) : times(b, c(i, j));
}
template <class T>
use when_scaled(const T& beta, bool writes) {
  return widened(beta) == wide(0) && writes ? use::out : use::inout;
}

// One triangle of a stored square matrix; what it does not hold is a gap.
template <class T>
struct triangle {
  triangle(trial& t, const char* name, use how, char uplo, bool unit, zor_int order)
      : upper(uplo == 'U' || uplo == 'u'),
        unit_diagonal(unit),
        ld(t.leading((std::string("ld") + name).c_str(), order)),
        stored(t.matrix<T>(name, how, order, order, ld)) {
    for (zor_int j = 0; j < order; ++j)
      for (zor_int i = 0; i < order; ++i)
        if (!inside(i, j) && !(i == j && !unit)) stored.spare(i, j);
  }
  bool inside(zor_int i, zor_int j) const { return upper ? i < j : i > j; }
  // The triangular matrix.
  wide operator()(zor_int i, zor_int j) const {
    if (i == j) return unit_diagonal ? wide(1) : stored(i, j);
    return inside(i, j) ? stored(i, j) : wide(0);
  }
  bool upper, unit_diagonal;
  zor_int ld;
  operand<T> stored;
};

}  // namespace zor_fuzz
