// SPDX-License-Identifier: MIT
// The kernel library that this library is bound to.
#pragma once

#include "serv/shared_word.h"

namespace zor_core {

// The kernel library's own definition of a name that both libraries export. A missing name ends the process
// with a message, as an unresolved symbol does at load.
void* kern_symbol(const char* name);

// The same, looked up once. F is the type of the function.
template <class F>
class kern_function {
 public:
  constexpr explicit kern_function(const char* name) : name_(name) {}
  F* get() {
    void* f = address_;
    if (f == nullptr) address_ = f = kern_symbol(name_);
    return reinterpret_cast<F*>(f);
  }

 private:
  const char* name_;
  zor::shared_word<void*> address_;
};

}  // namespace zor_core
