// SPDX-License-Identifier: MIT
// What the kernel library imports from libzor_core. Each name is looked up once, on its first call, and kept
// in a slot: first among the process's global symbols (so that a program may supply its own), then in
// libzor_core itself. The kernel library therefore has no load-time dependency on its sibling.
#pragma once

#include <cstdint>

#include "serv/shared_word.h"
#include "zor/serv.h"
#include "zor/signatures/blas.h"

namespace zor {

// The address of libzor_core's own definition of `name`, also when this library exports the same name.
// A missing library or name ends the process with a message, as an unresolved symbol does at load.
void* core_symbol(const char* name);
// As core_symbol, with the process's global definition preferred.
void* service_symbol(const char* name);

namespace core {

template <class F>
class import_slot {
 public:
  constexpr explicit import_slot(const char* name) : name_(name) {}
  template <class... Args>
  auto operator()(Args... args) {
    void* f = address_;
    if (f == nullptr) {
      f = service_symbol(name_);
      address_ = f;
    }
    return reinterpret_cast<F*>(f)(args...);
  }

 private:
  const char* name_;
  shared_word<void*> address_;
};

#define ROW(name) inline constinit import_slot<decltype(::name)> name{#name};
#include "zor/tables/core_serv.inc"

#define ROW_GEMV(name, T) inline constinit import_slot<gemv_fn<T>> name{#name};
#define ROW_AXPY(name, T) inline constinit import_slot<axpy_fn<T>> name{#name};
#define ROW_SWAP(name, T) inline constinit import_slot<swap_fn<T>> name{#name};
#define ROW_DOT(name, T) inline constinit import_slot<dot_fn<T>> name{#name};
#define ROW_CDOT(name, T, conj) inline constinit import_slot<cdot_fn<T>> name{#name};
#define ROW_SYR(name, T) inline constinit import_slot<syr_fn<T>> name{#name};
#include "zor/tables/core_blas.inc"

}  // namespace core
}  // namespace zor
