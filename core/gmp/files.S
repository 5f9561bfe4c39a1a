// SPDX-License-Identifier: MIT
// The file routines of GMP under this library's names: jumps, so that every argument reaches GMP untouched, those of
// the variadic one included.
.macro forward name, target
  .globl \name
  .type \name, @function
\name:
  endbr64
  jmp \target@PLT
  .size \name, . - \name
.endm

  .text
#define ROW_GMP(name, target) forward name, target
#include "zor/tables/core_generic.inc"

  .section .note.GNU-stack, "", @progbits
