// SPDX-License-Identifier: MIT
// The names of block sweeps.
#include "spblas/sweep/gauss.h"
#include "zor/signatures/spblas_sweep.h"

namespace zor::sparse {
namespace {

inline constexpr bool rows = true, columns = false;

}  // namespace
}  // namespace zor::sparse

#define ROW_SWEEP(name, T, I, by, elements)                                                                \
  extern "C" SIG_SWEEP(name, T, I) {                                                                       \
    using namespace zor::sparse;                                                                           \
    if (*mb < 1 || *nrhs < 1) return;                                                                      \
    sweep_blocks<T, I, elements>({*mb, *lb, val, indx, pntrb, pntre, elements == rows ? 0 : 1},            \
                                 {*uplo == 0, *diag != 0, by == columns}, *nrhs, y, *nrhs > 1 ? *ldy : 0); \
  }
#include "zor/tables/spblas_sweep.inc"
