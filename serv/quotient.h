// SPDX-License-Identifier: MIT
// Quotients and reciprocals of elements, complex ones worked in a wider format and rounded once a part.
#pragma once

#include "serv/scalar.h"

namespace zor {

// The format in which a complex quotient is worked.
template <class T>
using quotient_format = std::conditional_t<std::is_same_v<T, c32>, double, long double>;

template <class T>
inline T quotient(T n, T d) {
  return quotient_by_reciprocal<quotient_format<T>>(n, d);
}
template <class T>
inline T reciprocal(T d) {
  return quotient(one_of<T>(), d);
}

}  // namespace zor
