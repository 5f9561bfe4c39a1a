// SPDX-License-Identifier: MIT
// CSR to diagonals, with the choice of the fullest ones, and back.
#include "serv/scratch.h"
#include "spblas/convert/job.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor::sparse {
namespace {

template <class I>
struct diagonals {
  double* adia;
  zor_int lval;
  I* distance;
  zor_int count;
};

template <class I>
void dia_to_csr(const conversion_job& job, zor_int n, const diagonals<I>& from, double* acsr, I* ja, I* ia) {
  const bool drop_zeros = job.fill == 0;
  zor_int k = 0;
  ia[0] = I(job.csr_base);
  for (zor_int r = 0; r < n; ++r) {
    for (zor_int d = 0; d < from.count; ++d) {
      const zor_int column = r + zor_int(from.distance[d]);
      if (column < 0 || column >= n) continue;
      const double value = from.adia[r + d * from.lval];
      if (drop_zeros && value == 0) continue;
      acsr[k] = value;
      ja[k++] = I(column + job.csr_base);
    }
    ia[r + 1] = I(k + job.csr_base);
  }
}

// Chooses up to `wanted` distances, those of most entries first, at equal numbers the lowest. Returns how
// many have entries.
template <class I>
zor_int choose_distances(zor_int n, zor_int base, const I* ja, const I* ia, I* distance, zor_int wanted) {
  const zor_int all = 2 * n - 1;
  const scratch<I> counts(all);
  if (counts.data == nullptr) return 0;
  std::memset(counts.data, 0, size_t(all) * sizeof(I));
  for (zor_int r = 0; r < n; ++r) {
    I* const of_row = counts.data + (n - 1 - r - base);
    for (zor_int k = zor_int(ia[r]) - zor_int(ia[0]); k < zor_int(ia[r + 1]) - zor_int(ia[0]); ++k)
      ++of_row[ja[k]];
  }
  for (zor_int chosen = 0; chosen < wanted; ++chosen) {
    zor_int best = 0;
    for (zor_int d = 1; d < all; ++d)
      if (counts.data[d] > counts.data[best]) best = d;
    if (counts.data[best] <= 0) return chosen;
    counts.data[best] = -counts.data[best];
    distance[chosen] = I(best - (n - 1));
  }
  return wanted;
}

// Finds distances in a list, the first of equal ones. Entries of a row mostly stand on the diagonals of the
// row before in the same order, so the search begins behind the last one found.
template <class I>
class distance_list {
 public:
  distance_list(const I* distance, zor_int count) : distance_(distance), count_(count) {
    for (zor_int d = 1; d < count; ++d)
      for (zor_int e = 0; e < d; ++e) repeats_ |= distance[d] == distance[e];
  }
  // -1 where it is not in the list.
  zor_int find(zor_int distance) {
    const zor_int guess = next_ < count_ ? next_ : 0;
    if (!repeats_ && guess < count_ && zor_int(distance_[guess]) == distance) {
      next_ = guess + 1;
      return guess;
    }
    for (zor_int d = 0; d < count_; ++d) {
      if (zor_int(distance_[d]) != distance) continue;
      next_ = d + 1;
      return d;
    }
    return -1;
  }

 private:
  const I* distance_;
  zor_int count_, next_ = 0;
  bool repeats_ = false;
};

template <class I>
struct remainder_matrix {
  double* a;
  I *ja, *ia;
};

template <class I>
zor_int csr_to_dia(const conversion_job& job, zor_int n, const double* acsr, const I* ja, const I* ia,
                   const diagonals<I>& to, const remainder_matrix<I>& rest) {
  const zor_int count =
      job.fill / 10 != 0 ? choose_distances(n, job.csr_base, ja, ia, to.distance, to.count) : to.count;
  const bool keep_rest = job.fill % 10 != 0;
  for (zor_int d = 0; d < count; ++d) std::memset(to.adia + d * to.lval, 0, size_t(n) * sizeof(double));
  distance_list<I> list(to.distance, count);
  zor_int left = 0;
  if (keep_rest) rest.ia[0] = I(job.other_base);
  for (zor_int r = 0; r < n; ++r) {
    for (zor_int k = zor_int(ia[r]) - zor_int(ia[0]); k < zor_int(ia[r + 1]) - zor_int(ia[0]); ++k) {
      const zor_int column = zor_int(ja[k]) - job.csr_base, d = list.find(column - r);
      if (d >= 0) {
        to.adia[r + d * to.lval] = acsr[k];
      } else if (keep_rest) {
        rest.a[left] = acsr[k];
        rest.ja[left++] = I(column + job.other_base);
      }
    }
    if (keep_rest) rest.ia[r + 1] = I(left + job.other_base);
  }
  return count;
}

}  // namespace
}  // namespace zor::sparse

#define ROW_CSR_DIA(name, I)                                                                             \
  extern "C" SIG_CSR_DIA(name, I) {                                                                      \
    const auto wanted = zor::sparse::read_job(job);                                                      \
    const zor_int order = *n > 0 ? *n : 0;                                                               \
    const zor::sparse::diagonals<I> dia{adia, *ndiag, distance, *idiag};                                 \
    if (!wanted.from_csr)                                                                                \
      zor::sparse::dia_to_csr(wanted, order, dia, acsr, ja, ia);                                         \
    else if (order > 0)                                                                                  \
      *idiag = I(zor::sparse::csr_to_dia(wanted, order, acsr, ja, ia, dia, {acsr_rem, ja_rem, ia_rem})); \
  }
#include "zor/tables/spblas_conv.inc"
