// SPDX-License-Identifier: MIT
// The option letters of the transposition kernels, in either case.
#pragma once

#include "serv/scalar.h"

namespace zor {

constexpr bool is_letter(char c, char upper) { return c == upper || c == upper - 'A' + 'a'; }
constexpr bool is_row_major(char ordering) { return is_letter(ordering, 'R'); }
constexpr bool is_column_major(char ordering) { return is_letter(ordering, 'C'); }
constexpr bool is_ordering(char c) { return is_row_major(c) || is_column_major(c); }

// op(A). An unknown letter selects nothing.
struct operation {
  bool known, transposed, conj;
};
constexpr operation operation_of(char trans) {
  const bool both = is_letter(trans, 'C'), transposed = both || is_letter(trans, 'T'),
             conj = both || is_letter(trans, 'R');
  return {transposed || conj || is_letter(trans, 'N'), transposed, conj};
}

// Calls body.operator()<Conj>(), Conj being conj where T is complex; in the real types a conjugate is the
// number itself.
template <class T, class Body>
inline void for_conj(bool conj, const Body& body) {
  if constexpr (is_complex<T>)
    if (conj) return body.template operator()<true>();
  body.template operator()<false>();
}

}  // namespace zor
