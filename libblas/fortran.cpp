// SPDX-License-Identifier: MIT
// The Fortran names: arguments by reference, integers converted. The hidden lengths of option letters that
// Fortran compilers pass behind the arguments are not looked at. Complex results come back in registers.
#include "libblas/call.h"
#include "libblas/special.h"

using namespace zor_libblas;

#pragma GCC visibility push(default)
#include "zor/libblas/fortran.inc"
