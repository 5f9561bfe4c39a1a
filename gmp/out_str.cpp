// SPDX-License-Identifier: MIT
// Writes a rational number; a null stream stands for the standard output.
#include "gmp/own.h"

extern "C" size_t zor_gmp___gmpq_out_str(FILE* stream, int base, zor_mpq_srcptr a) {
  return zor_own___gmpq_out_str(stream != nullptr ? stream : stdout, base, a);
}
