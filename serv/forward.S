// SPDX-License-Identifier: MIT
// Forwarders: each export is one jump through its slot to the routine of the same name in libzor_core, so
// arguments in registers, and any number of them on the stack, pass untouched. The slot leads to a resolving stub
// until the first call and to libzor_core from then on. This linkage is done by hand because both libraries
// export the name: an ordinary import would bind to this library's own export.
#include <cet.h>

#if ZOR_VEC_BYTES == 64
#define VECTOR(n) %zmm##n
#define MOVE_VECTOR vmovups
#elif ZOR_VEC_BYTES == 32
#define VECTOR(n) %ymm##n
#define MOVE_VECTOR vmovups
#else
#define VECTOR(n) %xmm##n
#define MOVE_VECTOR movups
#endif

// Every register that may carry an argument: six integers, the static chain, the count of vector registers that a
// variadic call passes in al, and eight vectors. r11 belongs to no one between a call and its target.
#define EACH_INTEGER(DO) DO(rax, 0) DO(rcx, 8) DO(rdx, 16) DO(rsi, 24) DO(rdi, 32) DO(r8, 40) DO(r9, 48) DO(r10, 56)
#define EACH_VECTOR(DO) DO(0) DO(1) DO(2) DO(3) DO(4) DO(5) DO(6) DO(7)
#define INTEGER_BYTES 64
#define SAVED_BYTES (INTEGER_BYTES + 8 * ZOR_VEC_BYTES)

#define SAVE_INTEGER(r, offset) mov %r, offset(%rsp);
#define LOAD_INTEGER(r, offset) mov offset(%rsp), %r;
#define SAVE_VECTOR(n) MOVE_VECTOR VECTOR(n), INTEGER_BYTES + n * ZOR_VEC_BYTES(%rsp);
#define LOAD_VECTOR(n) MOVE_VECTOR INTEGER_BYTES + n * ZOR_VEC_BYTES(%rsp), VECTOR(n);

// r11: the record of the name called, {address, name}.
        .text
        .p2align 4
        .type   resolve, @function
resolve:
        .cfi_startproc
        push    %rbp
        .cfi_def_cfa_offset 16
        .cfi_offset %rbp, -16
        mov     %rsp, %rbp
        .cfi_def_cfa_register %rbp
        sub     $SAVED_BYTES, %rsp
        and     $-64, %rsp
        EACH_INTEGER(SAVE_INTEGER)
        EACH_VECTOR(SAVE_VECTOR)
        mov     %r11, %rdi
        call    zor_resolve_forward
        mov     %rax, %r11
        EACH_INTEGER(LOAD_INTEGER)
        EACH_VECTOR(LOAD_VECTOR)
        leave
        .cfi_def_cfa %rsp, 8
        jmp     *%r11
        .cfi_endproc
        .size   resolve, . - resolve

.macro  forwarder name
        .text
        .p2align 4
        .globl  \name
        .type   \name, @function
\name:
        .cfi_startproc
        _CET_ENDBR
        jmp     *.Lrecord_\name(%rip)
        .cfi_endproc
        .size   \name, . - \name
.Lstub_\name:
        .cfi_startproc
        _CET_ENDBR
        lea     .Lrecord_\name(%rip), %r11
        jmp     resolve
        .cfi_endproc

        .section .rodata.str1.1, "aMS", @progbits, 1
.Lname_\name:
        .string "\name"

        .data
        .p2align 3
.Lrecord_\name:
        .quad   .Lstub_\name, .Lname_\name
.endm

#define ROW_FORWARD(name) forwarder name
#include "zor/tables/frame.inc"

        .section .note.GNU-stack, "", @progbits
