// SPDX-License-Identifier: MIT
// Conversions between sparse formats, in both integer widths: from CSR and back, in both bases.
#include "tools/verify/battery.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor_tools {
namespace {

// Any arrays of a format, large enough for the matrices here.
template <class I>
struct arrays {
  std::vector<double> values = std::vector<double>(4000, -1);
  std::vector<I> first = std::vector<I>(4000, -1), second = std::vector<I>(4000, -1);

  void record(recorder& out) const {
    out.add(values.data(), values.size());
    out.add(first.data(), first.size());
    out.add(second.data(), second.size());
  }
};

// Values, columns and row pointers of a matrix of order n.
template <class I>
arrays<I> matrix(zor_int n, int base, numbers& source) {
  arrays<I> a;
  size_t k = 0;
  for (zor_int r = 0; r < n; ++r) {
    a.second[size_t(r)] = I(k) + I(base);
    for (uint64_t count = source.below(8); count > 0; --count, ++k) {
      a.first[k] = I(source.below(uint64_t(n))) + I(base);
      a.values[k] = source.special<double>();
    }
  }
  a.second[size_t(n)] = I(k) + I(base);
  return a;
}

// there(job, n, csr, other, &info) for each direction and each value of job[5].
template <class I, class Call>
void both_ways(recorder& out, std::initializer_list<I> fills, const Call& call) {
  uint64_t iteration = 0;
  for (const I n : {1, 12, 45}) {
    for (const int base : {0, 1}) {
      for (const I fill : fills) {
        numbers source(++iteration);
        arrays<I> csr = matrix<I>(n, base, source), other, back;
        I info = 7;
        I job[6] = {0, I(base), I(1 - base), I(iteration % 2), 3000, fill};
        call(job, n, csr, other, &info);
        out.add(int64_t(info));
        other.record(out);
        job[0] = 1;
        call(job, n, back, other, &info);
        out.add(int64_t(info));
        back.record(out);
      }
    }
  }
}

}  // namespace

void run_spconv(recorder& out) {
#define ROW_CSR_COO(name, I)                                                                         \
  if (out.begin(#name))                                                                              \
    both_ways<I>(out, {3}, [](const I* job, I n, auto& csr, auto& coo, I* info) {                    \
      I nnz = I(std::find(coo.first.begin(), coo.first.end(), I(-1)) - coo.first.begin());           \
      name(job, &n, csr.values.data(), csr.first.data(), csr.second.data(), &nnz, coo.values.data(), \
           coo.first.data(), coo.second.data(), info);                                               \
    });
#define ROW_CSR_CSC(name, I)                                                                   \
  if (out.begin(#name))                                                                        \
    both_ways<I>(out, {0, 1}, [](const I* job, I n, auto& csr, auto& csc, I*) {                \
      name(job, &n, csr.values.data(), csr.first.data(), csr.second.data(), csc.values.data(), \
           csc.first.data(), csc.second.data());                                               \
    });
#define ROW_CSR_DIA(name, I)                                                                          \
  if (out.begin(#name))                                                                               \
    both_ways<I>(out, {10, 11}, [](const I* job, I n, auto& csr, auto& dia, I* info) {                \
      const I lval = n;                                                                               \
      I count = job[0] == 0 ? 5 : dia.second[0];                                                      \
      arrays<I> rest;                                                                                 \
      name(job, &n, csr.values.data(), csr.first.data(), csr.second.data(), dia.values.data(), &lval, \
           dia.first.data(), &count, rest.values.data(), rest.first.data(), rest.second.data());      \
      if (job[0] == 0) dia.second[0] = count;                                                         \
      *info = count;                                                                                  \
    });
#define ROW_CSR_SKY(name, I)                                                                   \
  if (out.begin(#name))                                                                        \
    both_ways<I>(out, {0}, [](const I* job, I n, auto& csr, auto& sky, I* info) {              \
      name(job, &n, csr.values.data(), csr.first.data(), csr.second.data(), sky.values.data(), \
           sky.first.data(), info);                                                            \
    });
#define ROW_CSR_BSR(name, I)                                                                                 \
  if (out.begin(#name))                                                                                      \
    both_ways<I>(out, {3}, [](const I* job, I n, auto& csr, auto& bsr, I* info) {                            \
      const I lb = 3, stored = 10;                                                                           \
      name(job, &n, &lb, &stored, csr.values.data(), csr.first.data(), csr.second.data(), bsr.values.data(), \
           bsr.first.data(), bsr.second.data(), info);                                                       \
    });
#define ROW_DENSE_CSR(name, I)                                                                             \
  if (out.begin(#name))                                                                                    \
    both_ways<I>(out, {1}, [](const I* job, I n, auto& csr, auto& dense, I* info) {                        \
      I other[6];                                                                                          \
      std::copy(job, job + 6, other);                                                                      \
      other[0] = !job[0];                                                                                  \
      other[2] = job[1];                                                                                   \
      other[3] = 2;                                                                                        \
      name(other, &n, &n, dense.values.data(), &n, csr.values.data(), csr.first.data(), csr.second.data(), \
           info);                                                                                          \
    });
#include "zor/tables/spblas_conv.inc"
}

}  // namespace zor_tools
