// SPDX-License-Identifier: MIT
// The parts of a sorted list of diagonals.
#include "zor/signatures/spblas.h"

namespace zor {
namespace {

// The first place, from 1, whose distance is not negative; one behind the list when there is none.
template <class I>
I first_not_negative(const I* idiag, I ndiag) {
  I p = 1;
  while (p <= ndiag && idiag[p - 1] < 0) ++p;
  return p;
}

// The place behind the list is read when all distances are negative, except by the upper unit form.
template <class I>
void find_diagonals(char triangle, char diagonal, const I* idiag, I ndiag, I* dfirst, I* dlast, I* dlo,
                    I* dhi, I* info) {
  const I p = first_not_negative(idiag, ndiag);
  const bool lower = triangle == 'l', unit = diagonal == 'u';
  const bool has_main = !(unit && !lower) && idiag[p - 1] == 0;
  *info = unit || has_main ? 0 : -1;
  *dlo = lower ? 1 : p;
  *dhi = lower ? p : ndiag;
  if (lower) {
    *dfirst = 1;
    *dlast = unit && !has_main ? p : I(p - 1);
  } else {
    *dfirst = !unit && p + 1 > ndiag ? ndiag : I(p + 1);
    *dlast = ndiag;
  }
}

}  // namespace
}  // namespace zor

#define ROW_FIND_DIAGONALS(name, I, tri, diag)                                               \
  extern "C" SIG_FIND_DIAGONALS(name, I) {                                                   \
    zor::find_diagonals<I>(#tri[0], #diag[0], idiag, *ndiag, dfirst, dlast, dlo, dhi, info); \
  }
#include "zor/tables/spblas_stems.inc"
