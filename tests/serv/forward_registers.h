// SPDX-License-Identifier: MIT
// Everything that may carry an argument of a call, as one record. For C++ and assembly.
#pragma once

#ifdef __ASSEMBLER__

#define EACH_INTEGER(DO) \
  DO(rax, 0) DO(rcx, 8) DO(rdx, 16) DO(rsi, 24) DO(rdi, 32) DO(r8, 40) DO(r9, 48) DO(r10, 56)
#define EACH_VECTOR(DO) DO(0) DO(1) DO(2) DO(3) DO(4) DO(5) DO(6) DO(7)
#define VECTOR_OFFSET(n) (64 + 64 * n)
#define STACK_OFFSET 576
#define NAME_OFFSET 672

#else

#include <cstdint>

struct call_registers {
  uint64_t integers[8];          // rax rcx rdx rsi rdi r8 r9 r10
  unsigned char vectors[8][64];  // as many bytes as the call's width has
  uint64_t stack[12];
  const char* name;  // of the routine reached
};

#endif
