// SPDX-License-Identifier: MIT
// The CBLAS names: arguments by value, options as numbers, matrices stored by columns or by rows.
#include "libblas/call.h"
#include "libblas/special.h"

using namespace zor_libblas;

#pragma GCC visibility push(default)
#include "zor/libblas/cblas.inc"
