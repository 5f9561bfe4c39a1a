// SPDX-License-Identifier: MIT
// The integers of libgmp, the reference, beside those of the library.
#pragma once

#include <gmp.h>

#include "tools/verify/integer_calls.h"

template <>
struct zor_tools::library<__mpz_struct> {
  static void begin(__mpz_struct* r) { mpz_init(r); }
  static void end(__mpz_struct* r) { mpz_clear(r); }
  static void assign(__mpz_struct* r, const integer& a) {
    mpz_import(r, a.limbs.size(), -1, sizeof(zor_limb), 0, 0, a.limbs.data());
    if (a.negative) mpz_neg(r, r);
  }
  static integer contents(const __mpz_struct& a) {
    const mp_limb_t* limbs = mpz_limbs_read(&a);
    return {mpz_sgn(&a) < 0, {limbs, limbs + mpz_size(&a)}};
  }
};

namespace zor_test {

using zor_tools::integer;
using zor_tools::numbers;

using ours = zor_tools::held<zor_mpz>;
using theirs = zor_tools::held<__mpz_struct>;

// 2^n + more.
inline integer power_of_two(zor_bitcnt n, long more) {
  theirs x;
  mpz_setbit(x, n);
  if (more < 0)
    mpz_sub_ui(x, x, (unsigned long)(-more));
  else
    mpz_add_ui(x, x, (unsigned long)(more));
  return x.value();
}

// For messages.
inline std::string hex(const integer& a) {
  theirs x(a);
  std::string text(mpz_sizeinbase(x, 16) + 2, '\0');
  mpz_get_str(text.data(), 16, x);
  return text.c_str();
}

}  // namespace zor_test
