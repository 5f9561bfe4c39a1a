// SPDX-License-Identifier: MIT
// The kernels of every name of CSR matrices: products and solves.
#include "tests/fuzz/sparse_kernels.h"

namespace zor_fuzz {
namespace {

template <class T, class I, class Call>
void csr_mvout(trial& t, const shape& s, Call* call) {
  constexpr bool whole = std::is_same_v<Call, zor::csr_mvout_seq_fn<T, I>>;
  product<T, I> q(t, s, false, {csr, false, false, true});
  const zor_int last = q.a.m, first = whole ? 1 : std::min(q.wanted.first, std::max<zor_int>(last, 1));
  // These names take vectors that begin at the first row of the range.
  const bool relative = s.op == 'n' && s.what.structure == 's' && s.what.diagonal == 'n';
  const zor_int shift = relative && first <= last ? first - 1 : 0;
  t.invoke(call, when<!whole>(first), when<!whole>(last), q.a.m, q.alpha, q.a.compressed(),
           q.x.data() + shift, q.y.data() + shift);
  q.check(t, std::min(first - 1, last), last, 0, 1, q.alpha);
}
template <class T, class I, class Call>
void csr_mmout(trial& t, const shape& s, Call* call) {
  constexpr bool some = std::is_same_v<Call, zor::csr_mmout_par_fn<T, I>>;
  const product<T, I> q(t, s, true, {csr, false, false, true});
  t.invoke(call, when<some>(q.wanted), q.a.m, q.n, q.alpha, q.a.compressed(), q.x, q.y);
  q.check(t, some);
}

template <class T, class I, class Call>
void csr_solve(trial& t, const shape& s, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::csr_smout_par_fn<T, I>>;
  const solve<T, I> q(t, s, many, csr);
  const T alpha = t.scalar<T>("alpha");
  t.invoke(call, when<many>(q.wanted), q.a.m, when<many>(q.n), alpha, q.a.compressed(), vectors<many>(q.y));
  q.check(t, many, s.what.structure == 'd' ? alpha : zor_test::scalar<T>(1, 0));
}

#define ROW_csr_mvout_par(...) SHAPED("csr mv kernel", csr_mvout, __VA_ARGS__)
#define ROW_csr_mvout_seq ROW_csr_mvout_par
#define ROW_csr_gemvout_par(...) SHAPED("csr mv kernel", gemvout, __VA_ARGS__)
#define ROW_csr_mmout_par(...) SHAPED("csr mm kernel", csr_mmout, __VA_ARGS__)
#define ROW_csr_mmout_seq ROW_csr_mmout_par
#define ROW_csr_svout_seq(...) SHAPED("csr solve kernel", csr_solve, __VA_ARGS__)
#define ROW_csr_smout_par ROW_csr_svout_seq
const row csr_rows[] = {
#include "zor/tables/spblas_csr.inc"
};
const rows csr_kernels(csr_rows);

}  // namespace
}  // namespace zor_fuzz
