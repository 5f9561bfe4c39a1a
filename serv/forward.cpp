// SPDX-License-Identifier: MIT
// The part of a forwarder's first call that is not assembly.
#include <cerrno>

#include "serv/imports.h"
#include "serv/shared_word.h"

namespace {

// As forward.S lays it out.
struct forward_record {
  zor::shared_word<void*> address;
  const char* name;
};

}  // namespace

// Threads that race store the same address.
extern "C" void* zor_resolve_forward(forward_record* record) {
  const int saved = errno;
  void* address = zor::core_symbol(record->name);
  record->address = address;
  errno = saved;
  return address;
}
