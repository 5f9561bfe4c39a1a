// SPDX-License-Identifier: MIT
// The six views under which a stored matrix is multiplied or solved with, apart from any format: which
// entries count, where their mirror images go, what is conjugated.
#pragma once

#include "serv/vec.h"

namespace zor::sparse {

// Where an entry stands as its view sees it: on the side of the triangle that the view reads, on the
// diagonal, or beyond it on the other side.
enum class place { inside, diagonal, beyond };

// The fields of a kernel's name that choose its algorithm; '_' stands where a name has no letter.
//
//   op         n t c s        A, its transpose, its conjugate transpose, its conjugate
//   structure  g t s h a d    general, triangular, symmetric, Hermitian, antisymmetric, diagonal
//   triangle   l u _          the triangle that is read
//   diagonal   n u _          stored, implicit unit
struct view {
  char op, structure, triangle, diagonal;

  constexpr bool transposed() const { return op == 't' || op == 'c'; }
  constexpr bool conjugated() const { return op == 's' || op == 'c'; }
  constexpr bool unit() const { return diagonal == 'u'; }
  // One triangle stands for both: each entry inside it has a mirror image, negated in the antisymmetric view.
  constexpr bool mirrored() const { return structure == 's' || structure == 'h' || structure == 'a'; }
  constexpr bool skew() const { return structure == 'a'; }

  // side (column - row) is negative inside the triangle, 0 on the diagonal, positive beyond it.
  constexpr int side() const { return triangle == 'u' ? -1 : 1; }
  constexpr place place_of(zor_int row, zor_int column) const {
    const zor_int d = side() * (column - row);
    return d < 0 ? place::inside : d == 0 ? place::diagonal : place::beyond;
  }
  // Whether a triangular view leaves an entry out: all beyond the diagonal, with a unit diagonal also those
  // on it.
  constexpr bool leaves_out(zor_int row, zor_int column) const {
    return side() * (column - row) > (unit() ? -1 : 0);
  }

  // Whether an entry is conjugated where it multiplies x of its column, and where its mirror image multiplies
  // x of its row. The Hermitian view conjugates one of the two; its transpose exchanges them.
  constexpr bool conjugates_entry() const { return structure == 'h' ? op == 't' : conjugated(); }
  constexpr bool conjugates_image() const { return structure == 'h' ? op == 'n' : conjugated(); }

  // Whether a solve goes up the rows, from the first to the last. Lower triangles do and upper ones go down;
  // a transposed solve goes the other way through the rows as they are stored.
  constexpr bool solves_upwards() const { return structure == 'd' || (triangle == 'l') != transposed(); }
};

// A view from the bare letters of a row of the grammar.
#define ZOR_VIEW(op, structure, triangle, diagonal) \
  zor::sparse::view { #op[0], #structure[0], #triangle[0], #diagonal[0] }

}  // namespace zor::sparse
