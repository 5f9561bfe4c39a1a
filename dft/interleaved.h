// SPDX-License-Identifier: MIT
// Real transforms of lines that stand side by side: element j of all lines is one row of real_row<R> values,
// a cache line. Each line meets the same operations whatever stands beside it.
#pragma once

#include "dft/line.h"
#include "dft/thresholds.h"

namespace zor::dft {

template <class R>
inline constexpr ptrdiff_t real_row = ptrdiff_t(cache_line / sizeof(R));

// Even lengths n whose half has a form for columns. The spectrum is that of line_kind::real.
template <class R>
struct real_rows {
  int32_t n = 0;
  line_transform half;
  R* roots = nullptr;  // exp(-2 pi i k / n) for k up to n / 4, interleaved
};

// Whether rows of length n can be had at all is answered by engine_done; engine_bad_size where they cannot,
// and engine_no_memory.
template <class R>
int32_t commit_real_rows(real_rows<R>* t, int32_t n);
template <class R>
void free_real_rows(real_rows<R>* t);

// In place on n rows at a boundary of 64 bytes; `tile` takes as many bytes at such a boundary. Neither
// direction divides by n.
template <class R>
void run_real_rows(const real_rows<R>& t, direction way, R* x, void* tile);

// z(m) = x(2m) + i x(2m + 1), its conjugate for `sine`, becomes conj(w(m)) times the transform forward of
// conj(w(m)) z(m), w being pairs of cosine and sine. x(2m) and x(2m + 1) are then its real and its negative
// imaginary part, for `sine` the latter before the former.
template <class R>
void run_turned_rows(const real_rows<R>& t, const R* w, bool sine, R* x, void* tile);

}  // namespace zor::dft
