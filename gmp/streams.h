// SPDX-License-Identifier: MIT
// The standard streams, where the private copy of GMP looks for them. Its object files read these variables
// relative to their own place, which a shared library cannot offer for stdin, stdout and stderr of the C
// library; its build renames them to these three. They hold the streams from before the first instruction
// runs. Include it in one source of each library. A program may assign another stream to stdout: routines
// that take a null stream replace it before they call GMP, so that only GMP's last words before it ends the
// process go through here.
#pragma once

#include <cstdio>

extern "C" {
extern FILE _IO_2_1_stdin_, _IO_2_1_stdout_, _IO_2_1_stderr_;
FILE* zor_own_stdin = &_IO_2_1_stdin_;
FILE* zor_own_stdout = &_IO_2_1_stdout_;
FILE* zor_own_stderr = &_IO_2_1_stderr_;
}
