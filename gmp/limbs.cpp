// SPDX-License-Identifier: MIT
// Operations on single limbs, and the search for a bit.
#include <bit>
#include <limits>

#include "zor/gmp.h"

namespace {

using wide = unsigned __int128;
constexpr unsigned limb_bits = 64;

void split(wide value, zor_limb* high, zor_limb* low) {
  *high = zor_limb(value >> limb_bits);
  *low = zor_limb(value);
}

wide join(zor_limb high, zor_limb low) { return wide(high) << limb_bits | low; }

// The first 1 from bit `start` on in the limbs, each of them complemented with `flip`; n limb_bits or more:
// there is none.
zor_bitcnt first_one(const zor_limb* a, long n, zor_bitcnt start, zor_limb flip) {
  const auto limbs = zor_bitcnt(n);
  zor_bitcnt i = start / limb_bits;
  if (i >= limbs) return start;
  zor_limb rest = (a[i] ^ flip) & (~zor_limb(0) << start % limb_bits);
  while (rest == 0 && ++i < limbs) rest = a[i] ^ flip;
  return i * limb_bits + (rest != 0 ? unsigned(std::countr_zero(rest)) : 0);
}

}  // namespace

extern "C" void zor_gmp_mpl_add_ssaaaa(zor_limb* sh, zor_limb* sl, zor_limb ah, zor_limb al, zor_limb bh,
                                       zor_limb bl) {
  split(join(ah, al) + join(bh, bl), sh, sl);
}

extern "C" void zor_gmp_mpl_umul_ppmm(zor_limb* ph, zor_limb* pl, zor_limb a, zor_limb b) {
  split(wide(a) * b, ph, pl);
}

// Above the highest limb all bits are 0, so the search for one ends there at the latest.
extern "C" zor_bitcnt zor_gmp_zor_gmp_scan0(const zor_limb* a, long n, zor_bitcnt start) {
  return first_one(a, n, start, ~zor_limb(0));
}

extern "C" zor_bitcnt zor_gmp_zor_gmp_scan1(const zor_limb* a, long n, zor_bitcnt start) {
  const zor_bitcnt place = first_one(a, n, start, 0);
  return place / limb_bits < zor_bitcnt(n) ? place : std::numeric_limits<zor_bitcnt>::max();
}
