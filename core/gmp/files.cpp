// SPDX-License-Identifier: MIT
// The file routines of multi-precision integers: GMP's own, in a private copy. All its memory, that of the
// integers it grows included, comes from the memory functions of libzor_kern, whichever are set there.
#include <cstdarg>

#include "gmp/streams.h"
#include "zor/gmp.h"

namespace {

// A block of that many bytes as the limbs of an integer. Every block of GMP's goes through here, so that one
// that it asked for in bytes is given back with the same number of limbs.
zor_mpz limbs_of(void* block, size_t bytes) {
  const size_t limbs = bytes / sizeof(zor_limb) + (bytes % sizeof(zor_limb) != 0);
  return {int(limbs != 0 ? limbs : 1), 0, static_cast<zor_limb*>(block)};
}

void* allocate(size_t size) {
  zor_mpz block;
  zor_gmp___gmpz_init2(&block, 8 * size);
  return block.limb;
}

void* reallocate(void* old, size_t old_size, size_t size) {
  zor_mpz block = limbs_of(old, old_size);
  zor_gmp___gmpz_realloc2(&block, 8 * size);
  return block.limb;
}

void release(void* old, size_t size) {
  zor_mpz block = limbs_of(old, size);
  zor_gmp___gmpz_clear(&block);
}

FILE* or_standard(FILE* stream, FILE* standard) { return stream != nullptr ? stream : standard; }

}  // namespace

extern "C" {

// What GMP's routines call for memory.
zor_gmp_allocate_fn* zor_own___gmp_allocate_func = allocate;
zor_gmp_reallocate_fn* zor_own___gmp_reallocate_func = reallocate;
zor_gmp_free_fn* zor_own___gmp_free_func = release;

size_t zor_own___gmpz_out_str(FILE* stream, int base, zor_mpz_srcptr a);
size_t zor_own___gmpz_inp_str(zor_mpz_ptr r, FILE* stream, int base);
size_t zor_own___gmpz_out_raw(FILE* stream, zor_mpz_srcptr a);
size_t zor_own___gmpz_inp_raw(zor_mpz_ptr r, FILE* stream);
int zor_own___gmp_vfprintf(FILE* stream, const char* format, va_list arguments);

size_t zor_gmp___gmpz_out_str(FILE* stream, int base, zor_mpz_srcptr a) {
  return zor_own___gmpz_out_str(or_standard(stream, stdout), base, a);
}

size_t zor_gmp___gmpz_inp_str(zor_mpz_ptr r, FILE* stream, int base) {
  return zor_own___gmpz_inp_str(r, or_standard(stream, stdin), base);
}

size_t zor_gmp___gmpz_out_raw(FILE* stream, zor_mpz_srcptr a) {
  return zor_own___gmpz_out_raw(or_standard(stream, stdout), a);
}

size_t zor_gmp___gmpz_inp_raw(zor_mpz_ptr r, FILE* stream) {
  return zor_own___gmpz_inp_raw(r, or_standard(stream, stdin));
}

int zor_gmp___gmp_fprintf(FILE* stream, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = zor_own___gmp_vfprintf(or_standard(stream, stdout), format, arguments);
  va_end(arguments);
  return written;
}

}  // extern "C"
