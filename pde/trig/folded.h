// SPDX-License-Identifier: MIT
// The transforms 2 to 5 as a Fourier transform of data in another order with rotations around it (J. Makhoul,
// 1980; S. C. Chan and K. L. Ho, 1990). There are no running sums and no divisions, so errors grow as those
// of the Fourier transform do, with the logarithm of n. All results but those of the transforms 2 and 3
// forward are half of what is wanted; the factors of the results make up for it.
//
// Spectra stand as R(0), R(n/2), R(1), I(1), ... for even n and R(0), R(1), I(1), ... for odd n. in(j) is
// element j, put(j, v) stores one; both may be vectors of lines.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dft/engine/roots/trig.h"
#include "zor/types.h"

namespace zor::pde {

// Pairs of cosine and sine. Transforms 2 and 3: of k pi / 2n for k up to n/2. Transforms 4 and 5 of even n:
// of (8m + 1) pi / 8n for m below n/2; of odd n: none.
inline int64_t folded_pairs(int32_t type, int64_t n) {
  if (type < 4) return n / 2 + 1;
  return n % 2 == 0 ? n / 2 : 0;
}
template <class T>
void fill_folded_pairs(int32_t type, int64_t n, T* pairs) {
  for (int64_t k = 0; k < folded_pairs(type, n); ++k) {
    const zor_c64 root = type < 4 ? root_of_unity(k, 4 * n) : root_of_unity(8 * k + 1, 16 * n);
    pairs[2 * k] = T(root.re);
    pairs[2 * k + 1] = T(-root.im);
  }
}

// sum a(k) cos((2k + 1) j pi / 2n) from the spectrum of a(0) a(2) a(4) ... a(5) a(3) a(1); of pairs of
// results those from `from` on, 1 for all.
template <class T, class In, class Put>
[[gnu::always_inline]] inline void cosines_of_spectrum(ptrdiff_t n, const T* pairs, ptrdiff_t from,
                                                       const In& in, const Put& put) {
  const ptrdiff_t odd = n % 2;
  put(0, in(0));
  if (odd == 0) put(n / 2, T(0.70710678118654752440) * in(1));
  for (ptrdiff_t k = from; 2 * k < n; ++k) {
    const auto re = in(2 * k - odd), im = in(2 * k + 1 - odd);
    const T c = pairs[2 * k], s = pairs[2 * k + 1];
    put(k, re * c + im * s);
    put(n - k, re * s - im * c);
  }
}

// The spectrum of which the transform backward is X(0) X(2) X(4) ... X(5) X(3) X(1), with
// X(k) = f(0) + 2 sum f(j) cos((2k + 1) j pi / 2n).
template <class T, class In, class Put>
[[gnu::always_inline]] inline void spectrum_of_cosines(ptrdiff_t n, const T* pairs, ptrdiff_t from,
                                                       const In& in, const Put& put) {
  const ptrdiff_t odd = n % 2;
  put(0, in(0));
  if (odd == 0) put(1, T(1.41421356237309504880) * in(n / 2));
  for (ptrdiff_t k = from; 2 * k < n; ++k) {
    const auto a = in(k), b = in(n - k);
    const T c = pairs[2 * k], s = pairs[2 * k + 1];
    put(2 * k - odd, a * c + b * s);
    put(2 * k + 1 - odd, a * s - b * c);
  }
}

// Transforms 4 and 5 of odd n by a real Fourier transform of length n. An odd number a = 2j + 1 below 2n is a
// residue modulo 8, where cos(a pi/4) and sin(a pi/4) are the two signs below over the root of 2, and a
// residue modulo n; cos(a b pi / 4n) is the sum of products of both.
inline constexpr int8_t cosine_sign[4] = {1, -1, -1, 1};  // of a = 1, 3, 5, 7 modulo 8
inline constexpr int8_t sine_sign[4] = {1, 1, -1, -1};

template <class T, class In>
void reorder_odd(bool sine, ptrdiff_t n, const In& in, T* line) {
  const int8_t* const signs = n % 4 == 1 ? sine_sign : cosine_sign;
  for (ptrdiff_t r = 0; r < n; ++r) {
    const ptrdiff_t a = r % 2 != 0 ? r : r + n, j = (a & 2) == 0 ? a / 2 : n - 1 - a / 2;
    const bool negative = (signs[a / 2 % 4] < 0) != (sine && j % 2 != 0);
    line[r] = negative ? -in(j) : in(j);
  }
}
template <class T, class Put>
void results_of_odd(bool sine, ptrdiff_t n, const T* line, const Put& put) {
  const T half = T(0.70710678118654752440);
  const ptrdiff_t of_n = n / 2 % 4, inverse_of_8 = (1 + n * (8 - n % 8)) / 8;
  ptrdiff_t p = inverse_of_8;
  for (ptrdiff_t k = 0; k < n; ++k) {
    const ptrdiff_t q = p <= n / 2 ? p : n - p;
    const T re = line[q == 0 ? 0 : 2 * q - 1];
    const T im = q == 0 ? T(0) : p <= n / 2 ? line[2 * q] : -line[2 * q];
    const T first = T(cosine_sign[of_n] * cosine_sign[k % 4]) * re;
    const T second = T(sine_sign[of_n] * sine_sign[k % 4]) * im;
    put(sine ? n - 1 - k : k, half * (first + second));
    p += 2 * inverse_of_8;
    while (p >= n) p -= n;
  }
}

}  // namespace zor::pde
