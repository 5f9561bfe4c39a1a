// SPDX-License-Identifier: MIT
// Steps of iterative solvers: Gauss-Seidel sweeps, the scaling by the diagonal, the solve with an LDLT
// factor.
#include "core/spblas/dense.h"
#include "core/spblas/kernels.h"
#include "zor/signatures/sparse.h"
#include "zor/signatures/spblas_sweep.h"

namespace zor_core {
namespace {

// Of matrices counted from 1, whose blocks stand by columns.
ZOR_ONE_KERNEL(block_sweep_of)
ZOR_ONE_KERNEL(block_scaling_of)
#define ZOR_SWEEP_rows_columns(...) ZOR_ONE(block_sweep_of, __VA_ARGS__)
#define ZOR_SWEEP_columns_columns(...)
#define ZOR_SWEEP_rows_rows(...)
#define ZOR_SWEEP_columns_rows(...)
#define ROW_SWEEP(name, T, I, by, elements) ZOR_SWEEP_##by##_##elements(name, T, I)
#define ROW_INVDIAG(...) ZOR_ONE(block_scaling_of, __VA_ARGS__)
#include "zor/tables/spblas_sweep.inc"

template <class T>
constexpr auto product_with() {
#define ROW_SPARSE_MV(name, U) \
  if constexpr (std::is_same_v<T, U>) return &name;
#include "zor/tables/core_spblas.inc"
}

int32_t bad_sweep(const sparse_matrix& a) {
  if (a.structure != 'g' || a.rows != a.cols)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "a: sweeps take a square matrix of the general view");
  return ZOR_SPARSE_OK;
}

// The blocks of a BSR matrix as the sweeps want them: sorted in each block row, a diagonal block in each.
template <class I>
bool blocks_serve(const sparse_matrix& a) {
  const I *const pntr = static_cast<const I*>(a.given_pntrb), *const indx =
                                                                  static_cast<const I*>(a.given_indx);
  if (a.format != ZOR_SPARSE_BSR || a.base != 1 || a.rows % a.lb != 0) return false;
  for (zor_int R = 0; R < a.rows / a.lb; ++R) {
    bool diagonal = false;
    for (zor_int p = zor_int(pntr[R]) - pntr[0]; p < zor_int(pntr[R + 1]) - pntr[0]; ++p) {
      if (p > zor_int(pntr[R]) - pntr[0] && indx[p] <= indx[p - 1]) return false;
      diagonal = diagonal || zor_int(indx[p]) - 1 == R;
    }
    if (!diagonal) return false;
  }
  return true;
}

// The matrix that a sweep solves with: the blocks themselves where they serve, else compressed rows.
template <class I>
int32_t sweep_form(const sparse_matrix& a, const sparse_matrix** form, bool* blocks) {
  *form = &a;
  *blocks = blocks_serve<I>(a);
  if (!*blocks)
    if (const int32_t status = kept_rows_form(a, form)) return status;
  return bad_rows_to_solve(**form);
}

// r := (D + L)^-1 r, or with U.
template <class T, class I>
void solve_triangle(const sparse_matrix& a, bool blocks, bool upper, T* r) {
  const I rows = I(a.rows);
  if (blocks) {
    const I uplo = !upper, diag = 1, one = 1, lb = I(a.lb), mb = rows / lb;
    const I* const pntr = static_cast<const I*>(a.given_pntrb);
    block_sweep_of<T, I>(&uplo, &diag, &mb, &one, &lb, static_cast<const T*>(a.given_val),
                         static_cast<const I*>(a.given_indx), pntr, pntr + 1, r, &rows);
    return;
  }
  const csr_arrays<T, I> m(a);
  const T alpha = zor::one_of<T>();
  find_csr_svout_seq<T, I>({a.base, 'n', 't', upper ? 'u' : 'l', 'n'})(&rows, &alpha, m.val, m.indx, m.pntrb,
                                                                       m.pntre, r);
}

template <class T, class I>
int32_t sweep(zor_sparse handle, int32_t direction, const T* b, T* x) {
  const sparse_matrix& a = *handle;
  if (!one_of(direction, "fbs"))
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "direction: %d is no value of it", direction);
  if (a.rows > 0 && b == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "b is null");
  if (a.rows > 0 && x == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "x is null");
  if (const int32_t status = bad_sweep(a)) return status;
  if (a.rows == 0) return ZOR_SPARSE_OK;
  const sparse_matrix* form = nullptr;
  bool blocks = false;
  if (const int32_t status = sweep_form<I>(a, &form, &blocks)) return status;
  const zor::scratch<T> residual(a.rows);
  if (residual.data == nullptr)
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the residual is short");
  T* const r = residual.data;
  const T one = zor::one_of<T>();
  for (const char step : {'f', 'b'}) {
    if (direction != 's' && direction != step) continue;
    std::memcpy(static_cast<void*>(r), b, size_t(a.rows) * sizeof(T));
    const int32_t status = product_with<T>()(handle, ZOR_SPARSE_PLAIN, negated(one), x, one, r);
    if (status != ZOR_SPARSE_OK) return status;
    solve_triangle<T, I>(*form, blocks, step == 'b', r);
    for (zor_int i = 0; i < a.rows; ++i) x[i] = zor::add(x[i], r[i]);
  }
  return ZOR_SPARSE_OK;
}

template <class T, class I>
int32_t scale_by_diagonal(const sparse_matrix& a, T* x) {
  if (a.rows > 0 && x == nullptr) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "x is null");
  if (const int32_t status = bad_sweep(a)) return status;
  if (a.rows == 0) return ZOR_SPARSE_OK;
  const sparse_matrix* form = nullptr;
  bool blocks = false;
  if (const int32_t status = sweep_form<I>(a, &form, &blocks)) return status;
  const I rows = I(a.rows);
  if (blocks) {
    const I flag = 1, lb = I(a.lb), mb = rows / lb;
    const I* const pntr = static_cast<const I*>(a.given_pntrb);
    block_scaling_of<T, I>(&mb, &flag, &lb, static_cast<const T*>(a.given_val),
                           static_cast<const I*>(a.given_indx), pntr, pntr + 1, x);
    return ZOR_SPARSE_OK;
  }
  const csr_arrays<T, I> m(*form);
  const T alpha = zor::one_of<T>();
  find_csr_svout_seq<T, I>({a.base, 'n', 'd', '_', 'n'})(&rows, &alpha, m.val, m.indx, m.pntrb, m.pntre, x);
  return ZOR_SPARSE_OK;
}

struct ldlt_arrays {
  int32_t n;
  const double* val;
  const int32_t *ia, *ja;
  const double *d, *e;
  const uint32_t* piv;

  bool in_pair(int32_t i) const { return (piv[i / 32] >> (i % 32) & 1) != 0; }
};

int32_t bad_null(const char* name) { return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "%s is null", name); }

// The block of D that begins with row i: that it can be inverted, and in a pair that it has two members.
int32_t bad_pivot(const ldlt_arrays& f, int32_t i) {
  const bool pair = f.in_pair(i);
  if (pair && (i + 1 == f.n || !f.in_pair(i + 1)))
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "piv: row %d has no partner", i);
  if (pair && f.e[i] == 0)
    return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "e: element %d, of a block of order 2, is 0", i);
  if (!pair && f.d[i] == 0) return sparse_failure(ZOR_SPARSE_NOT_SOLVABLE, "d: element %d is 0", i);
  return ZOR_SPARSE_OK;
}

// The entries of the rows of a block: in order, in pairs where it has two rows, behind the block.
int32_t bad_factor_row(const ldlt_arrays& f, int32_t i) {
  const bool pair = f.in_pair(i);
  const int64_t count = int64_t(f.ia[i + 1]) - f.ia[i];
  if (count < 0 || (pair && (count % 2 != 0 || f.ia[i + 2] != f.ia[i + 1])))
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "ia: row %d cannot have %lld entries", i,
                          (long long)count);
  for (int32_t p = f.ia[i]; p < f.ia[i + 1]; ++p)
    if (f.ja[p] <= i + pair || f.ja[p] >= f.n || (pair && (p - f.ia[i]) % 2 == 1 && f.ja[p] != f.ja[p - 1]))
      return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "ja: entry %d of row %d has column %d", p, i, f.ja[p]);
  return ZOR_SPARSE_OK;
}

int32_t bad_factor(const ldlt_arrays& f) {
  if (f.ia[0] != 0)
    return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "ia: it begins with %d, not with 0", f.ia[0]);
  for (int32_t i = 0; i < f.n; ++i) {
    if (const int32_t status = bad_pivot(f, i)) return status;
    if (f.ia[i + 1] > f.ia[i] && f.val == nullptr) return bad_null("val");
    if (f.ia[i + 1] > f.ia[i] && f.ja == nullptr) return bad_null("ja");
    if (const int32_t status = bad_factor_row(f, i)) return status;
    i += f.in_pair(i);
  }
  return ZOR_SPARSE_OK;
}

int32_t solve_ldlt(const ldlt_arrays& f, const double* b, double* x) {
  if (f.n < 0) return sparse_failure(ZOR_SPARSE_BAD_ARGUMENT, "n: %d is below 0", f.n);
  if (f.n == 0) return ZOR_SPARSE_OK;
  const struct {
    const char* name;
    const void* array;
  } arrays[] = {{"ia", f.ia}, {"d", f.d}, {"e", f.e}, {"piv", f.piv}, {"b", b}, {"x", x}};
  for (const auto& each : arrays)
    if (each.array == nullptr) return bad_null(each.name);
  if (const int32_t status = bad_factor(f)) return status;
  const zor::scratch<double> right(f.n);
  if (right.data == nullptr)
    return sparse_failure(ZOR_SPARSE_NO_MEMORY, "memory for the right-hand side is short");
  std::memcpy(right.data, b, size_t(f.n) * sizeof(double));
  // The way with blocks of order 2 solves with any factor, and in whole for any order.
  int32_t mode = 0;
  zor_spblas_lp64_zor_ildlt_sv(&f.n, f.val, f.ia, f.ja, f.d, f.e, nullptr, f.piv, right.data, x, &mode);
  return ZOR_SPARSE_OK;
}

}  // namespace
}  // namespace zor_core

#define ROW_SPARSE_GAUSS(name, T)                                                              \
  extern "C" SIG_SPARSE_GAUSS(name, T) {                                                       \
    using namespace zor_core;                                                                  \
    if (const int32_t status = bad_matrix(a, type_letter<T>, ZOR_SPARSE_PLAIN)) return status; \
    return (a->wide ? sweep<T, int64_t> : sweep<T, int32_t>)(a, direction, b, x);              \
  }
#define ROW_SPARSE_JACOBI(name, T)                                                             \
  extern "C" SIG_SPARSE_JACOBI(name, T) {                                                      \
    using namespace zor_core;                                                                  \
    if (const int32_t status = bad_matrix(a, type_letter<T>, ZOR_SPARSE_PLAIN)) return status; \
    return (a->wide ? scale_by_diagonal<T, int64_t> : scale_by_diagonal<T, int32_t>)(*a, x);   \
  }
#include "zor/tables/core_spblas.inc"

extern "C" int32_t zor_sparse_ldlt_solve(int32_t n, const double* val, const int32_t* ia, const int32_t* ja,
                                         const double* d, const double* e, const uint32_t* piv,
                                         const double* b, double* x) {
  return zor_core::solve_ldlt({n, val, ia, ja, d, e, piv}, b, x);
}
