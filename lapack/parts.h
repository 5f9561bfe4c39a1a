// SPDX-License-Identifier: MIT
// Single elements at any address, part by part.
#pragma once

#include "serv/scalar.h"

namespace zor {

// One element whose parts are used apart. As a whole (load_element) it would come through an integer
// register where both parts fit one.
template <class T>
[[gnu::always_inline]] inline T load_parts(const T* p) {
  if constexpr (is_complex<T>)
    return {load_element(reals(p)), load_element(reals(p) + 1)};
  else
    return load_element(p);
}
template <class T>
[[gnu::always_inline]] inline void store_parts(T* p, T e) {
  if constexpr (is_complex<T>) {
    store_element(reals(p), e.re);
    store_element(reals(p) + 1, e.im);
  } else {
    store_element(p, e);
  }
}

}  // namespace zor
