// SPDX-License-Identifier: MIT
// The kernel library that this library is bound to.
#pragma once

namespace zor_core {

// The kernel library's own definition of a name that both libraries export. A missing name ends the process
// with a message, as an unresolved symbol does at load.
void* kern_symbol(const char* name);

template <class F>
F* kern_function(const char* name) {
  return reinterpret_cast<F*>(kern_symbol(name));
}

}  // namespace zor_core
