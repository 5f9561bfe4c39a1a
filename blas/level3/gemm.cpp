// SPDX-License-Identifier: MIT
// The drivers of the matrix product: quick returns, block sizes, scratch memory, the walk over blocks.
//
// Every element of C that goes through the register kernels has one order of sums. The depth is cut into
// panels: first its tail, k mod kb long (kb when that is 0), then the panels of kb in ascending order. Each
// panel's sum runs from +0 over ascending p of (alpha a) b and joins C in one addition; the first panel
// brings beta with it. kb depends on k alone, so the blocks of rows and columns and the shape of the tiles do
// not show in the result.
#include "blas/level3/gemm.h"

#include "blas/level3/gemm_block.h"
#include "blas/level3/gemm_rows.h"
#include "blas/thresholds.h"
#include "serv/control.h"
#include "serv/imports.h"
#include "serv/memory.h"
#include "zor/signatures/blas.h"

namespace zor::gemm {
namespace {

template <class T>
struct problem {
  zor_int m, n, k;
  T alpha;
  operand<T> a, b;
  T beta;
  T* c;
  zor_int ldc;
  char transa;
};

// The rows of one block: all of m in equal blocks of whole tiles, none above mb.
template <class T>
zor_int block_rows(zor_int m, zor_int depth, const blocking& s) {
  constexpr zor_int rows = tile_shape<T>::rows, size = sizeof(T);
  const bool low = width == 32 && depth * s.nb * size <= thresholds::low_tile_panel_bytes;
  const zor_int fitting = low ? thresholds::low_tile_block_bytes / (depth * size) : s.mb;
  const zor_int mb = fitting < s.mb ? fitting : s.mb;
  if (m <= mb) return m;
  const zor_int most = mb / rows * rows, count = (m + most - 1) / most;
  return (m + count * rows - 1) / (count * rows) * rows;
}

template <class T>
T* align_to(void* p, uintptr_t bytes) {
  return reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(p) + bytes - 1) / bytes * bytes);
}

// Whether B may be read in place: conjugation and tails of rows take a packed one, and so does a product of
// many strips whose kernels want B spread.
template <class T>
bool may_read_in_place(zor_int m, bool conj) {
  return !conj && m % limits<T>::rows == 0 &&
         !(spread_b<T> && m > thresholds::unspread_strips * tile_shape<T>::rows);
}

// Where a product reads: in place what is read too seldom to be worth its packing, as far as it can be read
// from there. A in place comes in whole vectors of 16 bytes. A product with an alpha of 1 changes A only
// where results are flushed to zero.
template <class T>
[[gnu::always_inline]] inline reading reading_of(const problem<T>& q, bool small) {
  using namespace thresholds;
  constexpr zor_int size = sizeof(T), whole = 16 / size;
  const auto is_near = [](zor_int step) { return step * size <= thin_panel_step; };
  if (!may_read_in_place<T>(q.m, q.b.conj)) return reading::packed;
  const bool b_in_place =
      small || (q.m <= thin_product &&
                (q.b.trans ? is_near(q.b.row_stride) : q.b.column_stride * size % page_bytes != 0));
  if (!b_in_place) return reading::packed;
  if constexpr (!is_complex<T>) {
    if (!q.a.trans && q.alpha == 1 && q.m % whole == 0 &&
        (small || (q.n <= thin_product && is_near(q.a.column_stride))) && !flushes_results())
      return reading::in_place;
  }
  return reading::b_in_place;
}

// Rows and columns of C from c on against the depth of one panel: a and b are the first elements of the
// panels of op(A) and op(B).
template <class T>
[[gnu::always_inline]] inline void panel_product(const problem<T>& q, reading from, zor_int rows,
                                                 zor_int columns, zor_int depth, const T* a, const T* b,
                                                 T beta, T* c, real_t<T>* packed_a,
                                                 const real_t<T>* packed_b) {
  const tile<T> t{depth, q.a.column_stride, q.b.row_stride, q.b.column_stride, q.ldc, update_of(beta), beta};
  if constexpr (!is_complex<T>) {
    if (from == reading::in_place) return product_block<T, reading::in_place>(rows, columns, t, a, b, c);
  }
  pack_a(rows, depth, q.a.trans, q.a.conj, a, q.a.trans ? q.a.row_stride : q.a.column_stride, q.alpha,
         packed_a);
  if (from == reading::packed)
    product_block<T, reading::packed>(rows, columns, t, packed_a, packed_b, c);
  else
    product_block<T, reading::b_in_place>(rows, columns, t, packed_a, reals(b), c);
}

// Rows and columns of C through the register kernels, rows of the tail through row_products.
template <class T>
[[gnu::noinline]] void blocked_product(const problem<T>& q, const blocking& s, reading from, void* memory) {
  using R = real_t<T>;
  const zor_int m = q.m / limits<T>::rows * limits<T>::rows,
                n = q.n / limits<T>::columns * limits<T>::columns;
  const zor_int first = first_depth(q.k, s.kb), mb = block_rows<T>(m, q.k < s.kb ? q.k : s.kb, s);
  R* const packed_a = align_to<R>(memory, 64);
  R* const packed_b = packed_a + s.kb * s.mb * parts<T>;
  for (zor_int j = 0; j < n; j += s.nb) {
    const zor_int columns = n - j < s.nb ? n - j : s.nb;
    T beta = q.beta;
    for (zor_int p = q.k - first, depth = first;;) {
      const T* const b = q.b.at(p, j);
      if (from == reading::packed) pack_b(depth, columns, q.b, b, reinterpret_cast<T*>(packed_b));
      for (zor_int i = 0; i < m; i += mb)
        panel_product(q, from, m - i < mb ? m - i : mb, columns, depth, q.a.at(i, p), b, beta,
                      q.c + i + j * q.ldc, packed_a, packed_b);
      if (m < q.m)
        product_rows(q.m - m, columns, depth, q.alpha, q.a.from(m, p), reinterpret_cast<const T*>(packed_b),
                     beta, q.c + m + j * q.ldc, q.ldc);
      if constexpr (is_complex<T>)
        beta = {1, 0};
      else
        beta = 1;
      p = p == q.k - first ? 0 : p + s.kb;
      if (p >= q.k - first) break;
      depth = s.kb;
    }
  }
}

// Columns from `first` on, over the whole depth and all rows.
template <class T, class Gemv>
void tail_columns(const problem<T>& q, zor_int first, Gemv& gemv) {
  if (q.b.conj) {
    plain_product(q.m, q.n - first, q.k, q.alpha, q.a, q.b.from(0, first), q.beta, q.c + first * q.ldc,
                  q.ldc);
    return;
  }
  // The caller's letter, but one that only counts as T: the routine would report it.
  const char trans = __builtin_memchr("NnTtCc", q.transa, 6) != nullptr ? q.transa : 'T';
  const zor_int rows = q.a.trans ? q.k : q.m, columns = q.a.trans ? q.m : q.k, one = 1;
  const zor_int lda = q.a.trans ? q.a.row_stride : q.a.column_stride;
  for (zor_int j = first; j < q.n; ++j)
    gemv(&trans, &rows, &columns, &q.alpha, q.a.data, &lda, q.b.at(0, j), &q.b.row_stride, &q.beta,
         q.c + j * q.ldc, &one);
}

template <class T>
void tail_columns(const problem<T>& q) {
  const zor_int n = q.n / limits<T>::columns * limits<T>::columns;
  if (n == q.n) return;
  if constexpr (std::is_same_v<T, float>)
    tail_columns(q, n, core::zor_blas_sgemv);
  else if constexpr (std::is_same_v<T, c32>)
    tail_columns(q, n, core::zor_blas_cgemv);
  else if constexpr (std::is_same_v<T, c64>)
    tail_columns(q, n, core::zor_blas_zgemv);
}

// The scratch block, shown to zor_serv_check_ptr under the routine's name. One that it refuses is as good as
// none.
template <class T>
[[gnu::noinline]] borrowed_block checked_block(uint64_t bytes) {
  const borrowed_block block = borrow_block(bytes);
  return core::zor_serv_check_ptr(block.data, limits<T>::name) == 0 ? block : borrowed_block{};
}

// The product by blocks, whatever the problem; without memory for them by the plain loops.
template <class T>
void product(const problem<T>& q) {
  if (q.m < 1 || q.n < 1) return;
  if (is_zero(q.alpha)) {
    if (is_zero(q.beta))
      zero_columns(q.m, q.n, q.c, q.ldc);
    else if (!is_one(q.beta))
      scale_columns(q.m, q.n, q.beta, q.c, q.ldc);
    return;
  }
  if (fills_tile<T>(q.m, q.n, q.k)) {
    const bool small = is_small(q.m, q.n, q.k);
    const blocking s = blocking_of<T>(q.m, q.n, q.k, small && !q.b.trans);
    const borrowed_block block = checked_block<T>(uint64_t(s.bytes));
    if (block.data != nullptr) {
      blocked_product(q, s, reading_of(q, small), block.data);
      return_block(block);
      tail_columns(q);
      return;
    }
  }
  plain_product(q.m, q.n, q.k, q.alpha, q.a, q.b, q.beta, q.c, q.ldc);
}

template <class T>
[[gnu::always_inline]] inline problem<T> problem_of(const char* transa, const char* transb, const zor_int* m,
                                                    const zor_int* n, const zor_int* k, const T* alpha,
                                                    const T* a, const zor_int* lda, const T* b,
                                                    const zor_int* ldb, const T* beta, T* c,
                                                    const zor_int* ldc) {
  return {*m,    *n, *k,   *alpha, make_operand(*transa, a, *lda), make_operand(*transb, b, *ldb),
          *beta, c,  *ldc, *transa};
}

// The cases that gemm below does not compute itself. They stand out of its line, so that what they need in
// registers and on the stack costs a small product nothing.
template <class T, class... Args>
[[gnu::noinline]] void any_product(Args... args) {
  product(problem_of<T>(args...));
}
template <class T, class... Args>
[[gnu::noinline]] void product_without_memory(Args... args) {
  const problem<T> q = problem_of<T>(args...);
  plain_product(q.m, q.n, q.k, q.alpha, q.a, q.b, q.beta, q.c, q.ldc);
}
template <class T, class... Args>
[[gnu::noinline]] void product_of_tail_columns(Args... args) {
  tail_columns(problem_of<T>(args...));
}

// The time of a small product is its way to the kernels. One that reads in place, of one panel and one block
// of rows, goes there straight. What is needed after the calls that see to memory is read after them: kept
// across them it would be stored and read again.
template <class T, class... Rest>
[[gnu::always_inline]] inline void gemm(const char* transa, const char* transb, const zor_int* m,
                                        const zor_int* n, const zor_int* k, const T* alpha, Rest... rest) {
  if (!is_small(*m, *n, *k) || !fills_tile<T>(*m, *n, *k) || *m > limits<T>::mb || *k > limits<T>::kb ||
      is_zero(*alpha) || !may_read_in_place<T>(*m, is_conj<T>(*transb)))
    return any_product<T>(transa, transb, m, n, k, alpha, rest...);
  const borrowed_block block =
      checked_block<T>(uint64_t(blocking_of<T>(*m, *n, *k, !is_trans(*transb)).bytes));
  if (block.data == nullptr) return product_without_memory<T>(transa, transb, m, n, k, alpha, rest...);
  const problem<T> q = problem_of<T>(transa, transb, m, n, k, alpha, rest...);
  panel_product(q, reading_of(q, true), q.m, q.n / limits<T>::columns * limits<T>::columns, q.k, q.a.data,
                q.b.data, q.beta, q.c, align_to<real_t<T>>(block.data, 64), nullptr);
  return_block(block);
  if (q.n % limits<T>::columns != 0) product_of_tail_columns<T>(transa, transb, m, n, k, alpha, rest...);
}

}  // namespace
}  // namespace zor::gemm

#define ROW_XGEMM(name, T)                                                            \
  extern "C" SIG_GEMM(name, T) {                                                      \
    zor::gemm::gemm<T>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc); \
  }
#include "zor/tables/blas_gemm.inc"
