// SPDX-License-Identifier: MIT
// A stand-in for libzor_core: every forwarded name but one notes what arrived, with its name, in forward_arrived, and
// returns 42.
#include "tests/serv/forward_registers.h"

#define STORE_INTEGER(r, offset) mov %r, offset + forward_arrived(%rip);
#define STORE_XMM(n) movups %xmm##n, VECTOR_OFFSET(n) + forward_arrived(%rip);
#define STORE_YMM(n) vmovups %ymm##n, VECTOR_OFFSET(n) + forward_arrived(%rip);
#define STORE_ZMM(n) vmovups %zmm##n, VECTOR_OFFSET(n) + forward_arrived(%rip);

        .bss
        .p2align 6
        .globl  forward_arrived, forward_width
        .hidden forward_arrived, forward_width
forward_arrived:
        .zero   NAME_OFFSET + 8
forward_width:
        .zero   8

        .text
        .globl  forward_record, forward_set_width
        .type   forward_record, @function
        .type   forward_set_width, @function
forward_record:
        lea     forward_arrived(%rip), %rax
        ret
forward_set_width:
        mov     %rdi, forward_width(%rip)
        ret

arrive:
        EACH_INTEGER(STORE_INTEGER)
        mov     %r11, NAME_OFFSET + forward_arrived(%rip)
        .irp    word, 0, 8, 16, 24, 32, 40, 48, 56, 64, 72, 80, 88
        mov     8 + \word(%rsp), %rax
        mov     %rax, STACK_OFFSET + \word + forward_arrived(%rip)
        .endr
        cmpq    $32, forward_width(%rip)
        jb      1f
        je      2f
        EACH_VECTOR(STORE_ZMM)
        jmp     3f
2:      EACH_VECTOR(STORE_YMM)
        jmp     3f
1:      EACH_VECTOR(STORE_XMM)
3:      mov     $42, %eax
        ret

.macro  routine name
        .text
        .globl  \name
        .type   \name, @function
\name:  lea     .Lname_\name(%rip), %r11
        jmp     arrive
        .section .rodata
.Lname_\name:
        .string "\name"
.endm

// The name that the stand-in lacks.
#define zor_blas_dgemm_freebufs forward_lacks_this_one
#define ROW_FORWARD(name) routine name
#include "zor/tables/frame.inc"

        .section .note.GNU-stack, "", @progbits
