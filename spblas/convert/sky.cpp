// SPDX-License-Identifier: MIT
// A triangle in CSR to skyline and back. The profiles of a lower triangle are its rows, those of an upper one
// its columns; each goes from its first entry to the diagonal.
#include <algorithm>

#include "spblas/convert/job.h"
#include "spblas/transpose.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

// Calls visit(profile, offset, k) for each entry k of the triangle: its profile, and how far before the
// diagonal it stands in it.
template <class I, class Visit>
[[gnu::always_inline]] inline void each_of_triangle(const conversion_job& job, zor_int n, const I* ja,
                                                    const I* ia, const Visit& visit) {
  const bool lower = job.triangle == 0;
  for (zor_int r = 0; r < n; ++r) {
    for (zor_int k = zor_int(ia[r]) - zor_int(ia[0]); k < zor_int(ia[r + 1]) - zor_int(ia[0]); ++k) {
      const zor_int column = zor_int(ja[k]) - job.csr_base, before = lower ? r - column : column - r;
      if (before >= 0) visit(lower ? r : column, before, k);
    }
  }
}

template <class I>
conversion_info csr_to_sky(const conversion_job& job, zor_int n, const double* acsr, const I* ja, const I* ia,
                           double* asky, I* pntr) {
  I* const longest = pntr + 1;
  std::memset(pntr, 0, size_t(n + 1) * sizeof(I));
  each_of_triangle(job, n, ja, ia, [&](zor_int profile, zor_int before, zor_int) {
    longest[profile] = std::max(longest[profile], I(before));
  });
  // The length of a profile is one more; positions count from 1.
  zor_int total = 0;
  pntr[0] = 1;
  for (zor_int p = 0; p < n; ++p) {
    total += zor_int(longest[p]) + 1;
    longest[p] = I(total + 1);
  }
  if (job.fill != 0) return converted;
  if (total > job.room) return no_room;
  if (total > 0) std::memset(asky, 0, size_t(total) * sizeof(double));
  each_of_triangle(job, n, ja, ia, [&](zor_int profile, zor_int before, zor_int k) {
    asky[zor_int(pntr[profile + 1]) - 2 - before] = acsr[k];
  });
  return converted;
}

// Calls visit(row, column, value) for each element that is not zero, profile after profile.
template <class I, class Visit>
[[gnu::always_inline]] inline void each_of_profiles(bool lower, zor_int n, const double* asky, const I* pntr,
                                                    const Visit& visit) {
  for (zor_int p = 0; p < n; ++p) {
    const zor_int start = zor_int(pntr[p]) - zor_int(pntr[0]), end = zor_int(pntr[p + 1]) - zor_int(pntr[0]);
    for (zor_int k = start; k < end; ++k) {
      const zor_int other = p - (end - 1 - k);
      if (asky[k] != 0) visit(lower ? p : other, lower ? other : p, asky[k]);
    }
  }
}

template <class I>
conversion_info sky_to_csr(const conversion_job& job, zor_int n, double* acsr, I* ja, I* ia,
                           const double* asky, const I* pntr) {
  const bool lower = job.triangle == 0;
  std::memset(ia, 0, size_t(n + 1) * sizeof(I));
  each_of_profiles(lower, n, asky, pntr, [&](zor_int row, zor_int, double) { ++ia[row]; });
  starts_of_counts(ia, n, job.csr_base);
  if (job.fill != 0) return converted;
  if (zor_int(ia[n]) - job.csr_base > job.room) return no_room;
  each_of_profiles(lower, n, asky, pntr, [&](zor_int row, zor_int column, double value) {
    const zor_int at = zor_int(ia[row]++) - job.csr_base;
    acsr[at] = value;
    ja[at] = I(column + job.csr_base);
  });
  shift_starts_back(ia, n, job.csr_base);
  return converted;
}

}  // namespace
}  // namespace zor::sparse

#define ROW_CSR_SKY(name, I)                                                                       \
  extern "C" SIG_CSR_SKY(name, I) {                                                                \
    const auto wanted = zor::sparse::read_job(job);                                                \
    const zor_int order = *n > 0 ? *n : 0;                                                         \
    *info = wanted.from_csr ? zor::sparse::csr_to_sky<I>(wanted, order, acsr, ja, ia, asky, pntr)  \
                            : zor::sparse::sky_to_csr<I>(wanted, order, acsr, ja, ia, asky, pntr); \
  }
#include "zor/tables/spblas_conv.inc"
