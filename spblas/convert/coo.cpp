// SPDX-License-Identifier: MIT
// CSR to coordinates and back, the way back by counting the entries of each row.
#include <algorithm>

#include "spblas/convert/job.h"
#include "spblas/counting_sort.h"
#include "spblas/panel.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

// to[k] := from[k] + shift.
template <class I>
void copy_shifted(const I* from, zor_int count, I shift, I* to) {
  constexpr int n = lanes_of<I>;
  const auto shifts = broadcast<vec<I>>(shift);
  zor_int k = 0;
  for (; k + n <= count; k += n) zor::store(to + k, zor::load<vec<I>>(from + k) + shifts);
  for (; k < count; ++k) to[k] = from[k] + shift;
}

template <class I>
void fill_run(I* to, zor_int count, I value) {
  constexpr int n = lanes_of<I>;
  const auto values = broadcast<vec<I>>(value);
  zor_int k = 0;
  for (; k + n <= count; k += n) zor::store(to + k, values);
  for (; k < count; ++k) to[k] = value;
}

template <class I>
conversion_info csr_to_coo(const conversion_job& job, zor_int n, const double* acsr, const I* ja, const I* ia,
                           I* nnz, double* acoo, I* rowind, I* colind) {
  const zor_int count = n > 0 ? zor_int(ia[n]) - zor_int(ia[0]) : 0;
  *nnz = I(count);
  if (count > job.room) return no_room;
  if (job.fill < 1 || job.fill > 3) return bad_job;
  if (job.fill == 3 && count > 0) std::memcpy(acoo, acsr, size_t(count) * sizeof(double));
  if (job.fill >= 2) copy_shifted(ja, count, I(job.other_base - job.csr_base), colind);
  for (zor_int r = 0; r < n; ++r)
    fill_run(rowind + (ia[r] - ia[0]), zor_int(ia[r + 1]) - zor_int(ia[r]), I(r + job.other_base));
  return converted;
}

// Where the room is short the row pointers are left unfinished.
template <class I>
conversion_info coo_to_csr(const conversion_job& job, zor_int n, double* acsr, I* ja, I* ia, zor_int nnz,
                           const double* acoo, const I* rowind, const I* colind) {
  const I shift = I(job.csr_base - job.other_base);
  if (job.fill == 2) {
    if (nnz > 0) std::memcpy(acsr, acoo, size_t(nnz) * sizeof(double));
    copy_shifted(colind, nnz, shift, ja);
    return converted;
  }
  zor_int count = nnz;
  const auto in_order = [&](const auto& visit) __attribute__((always_inline)) {
    for (zor_int e = 0; e < count; ++e) visit(e, I(colind[e] + shift));
  };
  const keyed_entries<double, I, decltype(in_order)> entries{rowind, nnz, job.other_base, acoo, in_order};
  const sorted_entries<double, I> rows{ia, ja, acsr, job.csr_base};
  const bool short_of_room = job.fill == 0 && nnz > job.room;
  const zor_int keys = n > 0 ? n : 0;
  if (job.fill != 1 && !short_of_room) {
    sort_by_key(keys, entries, rows);
    return converted;
  }
  count_keys(keys, entries, rows);
  if (!short_of_room) return converted;
  count = std::max<zor_int>(job.room, 0);
  place_entries(entries, rows);
  return no_room;
}

}  // namespace
}  // namespace zor::sparse

#define ROW_CSR_COO(name, I)                                                                        \
  extern "C" SIG_CSR_COO(name, I) {                                                                 \
    const auto wanted = zor::sparse::read_job(job);                                                 \
    *info = wanted.from_csr                                                                         \
                ? zor::sparse::csr_to_coo<I>(wanted, *n, acsr, ja, ia, nnz, acoo, rowind, colind)   \
                : zor::sparse::coo_to_csr<I>(wanted, *n, acsr, ja, ia, *nnz, acoo, rowind, colind); \
  }
#include "zor/tables/spblas_conv.inc"
