// SPDX-License-Identifier: MIT
// The half of a table of kernels that serves a precision.
#pragma once

#include <type_traits>

namespace zor_core {

template <class R, class Table>
const auto& of_precision(const Table& table) {
  if constexpr (std::is_same_v<R, float>)
    return table.s;
  else
    return table.d;
}

}  // namespace zor_core
