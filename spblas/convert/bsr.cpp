// SPDX-License-Identifier: MIT
// CSR to blocks of lb by lb and back. The blocks of a block row stand in the order in which its rows meet
// them.
#include <algorithm>

#include "serv/scratch.h"
#include "spblas/convert/job.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

struct block_shape {
  zor_int m, lb, stored;  // rows, order of a block, elements from block to block

  zor_int block_rows() const { return m < 1 ? 0 : (m - 1) / lb + 1; }
  // Elements of a block that have a place.
  zor_int elements() const { return std::min(lb * lb, stored); }
};

template <class I>
struct block_arrays {
  double* absr;
  I *jab, *iab;
};

// The rows of block row R; the same block columns are met in the same order by every pass.
template <class I, class Visit>
[[gnu::always_inline]] inline void each_of_block_row(const conversion_job& job, const block_shape& s,
                                                     zor_int R, const I* ja, const I* ia,
                                                     const Visit& visit) {
  for (zor_int r = R * s.lb; r < std::min(s.m, (R + 1) * s.lb); ++r)
    for (zor_int k = zor_int(ia[r]) - zor_int(ia[0]); k < zor_int(ia[r + 1]) - zor_int(ia[0]); ++k)
      visit(r - R * s.lb, zor_int(ja[k]) - job.csr_base, k);
}

template <class I>
conversion_info csr_to_bsr(const conversion_job& job, const block_shape& s, const double* acsr, const I* ja,
                           const I* ia, const block_arrays<I>& to) {
  if (job.fill < 1 || job.fill > 3) return bad_job;
  const zor_int rows = s.block_rows(), held = s.elements();
  // The block of each block column in the present block row, if it is not older.
  const scratch<I> blocks(rows);
  if (blocks.data == nullptr && rows > 0) return no_room;
  for (zor_int b = 0; b < rows; ++b) blocks.data[b] = -1;
  zor_int count = 0;
  to.iab[0] = I(job.other_base);
  for (zor_int R = 0; R < rows; ++R) {
    const zor_int first = count;
    bool full = false;
    each_of_block_row(job, s, R, ja, ia, [&](zor_int i, zor_int column, zor_int k) {
      const zor_int C = column / s.lb;
      if (full) return;
      if (zor_int(blocks.data[C]) < first) {
        full = count >= job.room;
        if (full) return;
        if (job.fill >= 2) to.jab[count] = I(C + job.other_base);
        if (job.fill == 3 && held > 0)
          std::memset(to.absr + count * s.stored, 0, size_t(held) * sizeof(double));
        blocks.data[C] = I(count++);
      }
      const zor_int element = i + (column - C * s.lb) * s.lb;
      if (job.fill == 3 && element < held) to.absr[zor_int(blocks.data[C]) * s.stored + element] = acsr[k];
    });
    if (full) return no_room;
    to.iab[R + 1] = I(count + job.other_base);
  }
  return converted;
}

template <class I>
conversion_info bsr_to_csr(const conversion_job& job, const block_shape& s, double* acsr, I* ja, I* ia,
                           const block_arrays<I>& from) {
  const zor_int held = s.elements();
  zor_int count = 0;
  ia[0] = I(job.csr_base);
  for (zor_int r = 0; r < s.m; ++r) {
    const zor_int R = r / s.lb, i = r - R * s.lb;
    const zor_int end = zor_int(from.iab[R + 1]) - zor_int(from.iab[0]);
    for (zor_int p = zor_int(from.iab[R]) - zor_int(from.iab[0]); p < end; ++p) {
      const zor_int left = (zor_int(from.jab[p]) - job.other_base) * s.lb;
      for (zor_int j = 0; j < s.lb && left + j < s.m && i + j * s.lb < held; ++j) {
        const double value = from.absr[p * s.stored + i + j * s.lb];
        if (value == 0) continue;
        if (job.fill == 0 && count >= job.room) return no_room;
        if (job.fill != 1) acsr[count] = value;
        if (job.fill != 1) ja[count] = I(left + j + job.csr_base);
        ++count;
      }
    }
    ia[r + 1] = I(count + job.csr_base);
  }
  return converted;
}

template <class I>
int convert_blocks(const conversion_job& job, const block_shape& s, double* acsr, I* ja, I* ia,
                   const block_arrays<I>& blocks) {
  if (s.lb < 1) return no_room;
  const int info =
      job.from_csr ? csr_to_bsr(job, s, acsr, ja, ia, blocks) : bsr_to_csr(job, s, acsr, ja, ia, blocks);
  return info == converted && s.stored < s.lb * s.lb ? bad_job : info;
}

}  // namespace
}  // namespace zor::sparse

#define ROW_CSR_BSR(name, I)                                                                               \
  extern "C" SIG_CSR_BSR(name, I) {                                                                        \
    *info = I(zor::sparse::convert_blocks<I>(zor::sparse::read_job(job), {*m, *lb, *ldabsr}, acsr, ja, ia, \
                                             {absr, jab, iab}));                                           \
  }
#include "zor/tables/spblas_conv.inc"
