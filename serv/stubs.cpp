// SPDX-License-Identifier: MIT
// Exports without arithmetic: one body for all names that do nothing, one for all that answer 0. A caller may
// pass any arguments.
#include "zor/frame.h"

extern "C" {

static void empty_body() {}
static zor_int zero_body() { return 0; }

#define ROW_EMPTY(name) void name() __attribute__((alias("empty_body")));
#define ROW_ZERO(name) zor_int name() __attribute__((alias("zero_body")));
#include "zor/tables/frame.inc"
}
