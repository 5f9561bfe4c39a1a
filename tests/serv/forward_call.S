// SPDX-License-Identifier: MIT
// forward_call(function, registers, width): calls the function with all registers of the record loaded, vectors as
// wide as `width` bytes, and its twelve words on the stack.
// forward_clobber(width): spoils the vectors that may carry arguments.
#include "tests/serv/forward_registers.h"

#define LOAD_INTEGER(r, offset) mov offset(%r12), %r;
#define LOAD_XMM(n) movups VECTOR_OFFSET(n)(%r12), %xmm##n;
#define LOAD_YMM(n) vmovups VECTOR_OFFSET(n)(%r12), %ymm##n;
#define LOAD_ZMM(n) vmovups VECTOR_OFFSET(n)(%r12), %zmm##n;

        .text
        .globl  forward_call
        .type   forward_call, @function
forward_call:
        push    %rbp
        mov     %rsp, %rbp
        push    %r12
        push    %r12
        mov     %rdi, %r11
        mov     %rsi, %r12
        .irp    word, 88, 80, 72, 64, 56, 48, 40, 32, 24, 16, 8, 0
        push    STACK_OFFSET + \word(%r12)
        .endr
        cmp     $32, %edx
        jb      1f
        je      2f
        EACH_VECTOR(LOAD_ZMM)
        jmp     3f
2:      EACH_VECTOR(LOAD_YMM)
        jmp     3f
1:      EACH_VECTOR(LOAD_XMM)
3:      EACH_INTEGER(LOAD_INTEGER)
        call    *%r11
        mov     -8(%rbp), %r12
        leave
        ret
        .size   forward_call, . - forward_call

#define SPOIL_XMM(n) pcmpeqd %xmm##n, %xmm##n;
#define SPOIL_YMM(n) vxorps %ymm##n, %ymm##n, %ymm##n;

        .globl  forward_clobber
        .type   forward_clobber, @function
forward_clobber:
        cmp     $32, %edi
        jb      1f
        EACH_VECTOR(SPOIL_YMM)
        ret
1:      EACH_VECTOR(SPOIL_XMM)
        ret
        .size   forward_clobber, . - forward_clobber

        .section .note.GNU-stack, "", @progbits
