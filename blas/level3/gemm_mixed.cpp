// SPDX-License-Identifier: MIT
// Products of a real matrix A by a complex matrix B: C := alpha op(A) op(B) + beta C by two real products, of
// A with the real and with the imaginary parts of alpha op(B).
#include "blas/level3/blocking.h"
#include "blas/level3/blocks.h"
#include "blas/level3/gemm.h"
#include "blas/level3/lanes.h"
#include "blas/level3/product.h"
#include "serv/imports.h"
#include "serv/scratch.h"

namespace zor::level3 {
namespace {

template <class R>
inline constexpr zor_int block_rows = mixed_rows<R>;
constexpr zor_int block_depth = mixed_depth;
// Below this size in any direction the plain loops are used.
constexpr zor_int least = 8;

// The scratch block and the distances of its parts in bytes, fixed by the interface of getbufs: behind the
// real parts of C come its imaginary parts, then the real and the imaginary parts of B.
template <class R>
inline constexpr uint64_t scratch_bytes = sizeof(R) == 8 ? 50256384 : 45136384;
constexpr uintptr_t c_im_distance = 20000000, page = 4096;
template <class R>
inline constexpr uintptr_t b_distance = sizeof(R) == 8 ? 5120000 : 2560000;
// The imaginary parts of C end where B begins.
static_assert(b_distance<double> == mixed_elements * sizeof(double) &&
              b_distance<float> == mixed_elements * sizeof(float));

// The pages of that block are new in every call. A block of the pool of at most so many bytes keeps its own,
// and stays in the cache: the columns are taken in so many runs that their parts fit there. Runs begin at
// multiples of 8 columns and the last is no shorter, so that every column goes the way it takes in the whole.
constexpr zor_int near_bytes = zor_int(1) << 20, run_cut = 8;

template <class R>
struct parts_of_block {
  R *c_re, *c_im, *b_re, *b_im;
};

template <class R>
parts_of_block<R> lay_out(void* block) {
  const auto raised = [](uintptr_t p) { return (p + page - 1) / page * page; };
  const uintptr_t c_re = raised(reinterpret_cast<uintptr_t>(block)), c_im = raised(c_re + c_im_distance);
  const uintptr_t b_re = c_im + b_distance<R>, b_im = b_re + b_distance<R>;
  return {reinterpret_cast<R*>(c_re), reinterpret_cast<R*>(c_im), reinterpret_cast<R*>(b_re),
          reinterpret_cast<R*>(b_im)};
}

// Element (p, j) of op(B) before conjugation: data[p row + j column].
template <class T>
struct complex_operand {
  const T* data;
  zor_int row, column;
  bool conj;

  T element(zor_int p, zor_int j) const {
    return conj_by_sign_if(conj, load_element(data + p * row + j * column));
  }
};
template <class T>
complex_operand<T> make_operand(char trans, const T* b, zor_int ldb) {
  const char letter = char(trans | 0x20);
  if (letter == 'n') return {b, 1, ldb, false};
  return {b, ldb, 1, letter != 't'};
}

// alpha op(B), k by n, its parts apart; an alpha of exactly 1 only splits.
template <class T>
void copy_b(char trans, zor_int k, zor_int n, const T* b, zor_int ldb, real_t<T>* re, real_t<T>* im,
            zor_int ld, T alpha) {
  using R = real_t<T>;
  const complex_operand<T> op = make_operand(trans, b, ldb);
  const bool plain = is_one(alpha);
  const auto put = [&](zor_int at, auto e) {
    using V = decltype(e.re);
    if (!plain) e = {e.re * alpha.re - e.im * alpha.im, e.im * alpha.re + e.re * alpha.im};
    store_reals<V>(re + at, e.re);
    store_reals<V>(im + at, e.im);
  };
  for (zor_int j = 0; j < n; ++j) {
    if (op.row == 1 && !op.conj)
      for_vectors<R>(0, k, [&]<int Bytes>(zor_int p) {
        put(p + j * ld, load_parts<vec_or_real<R, Bytes>>(op.data + p + j * op.column));
      });
    else
      for (zor_int p = 0; p < k; ++p) put(p + j * ld, op.element(p, j));
  }
}

// A block of C with its parts apart, and back.
template <class T>
void copy_c_forward(zor_int m, zor_int n, const T* c, zor_int ldc, real_t<T>* re, real_t<T>* im, zor_int ld) {
  for (zor_int j = 0; j < n; ++j)
    for_vectors<real_t<T>>(0, m, [&]<int Bytes>(zor_int i) {
      const auto e = load_parts<vec_or_real<real_t<T>, Bytes>>(c + i + j * ldc);
      store_reals(re + i + j * ld, e.re);
      store_reals(im + i + j * ld, e.im);
    });
}
template <class T>
void copy_c_backward(zor_int m, zor_int n, T* c, zor_int ldc, const real_t<T>* re, const real_t<T>* im,
                     zor_int ld) {
  for (zor_int j = 0; j < n; ++j)
    for_vectors<real_t<T>>(0, m, [&]<int Bytes>(zor_int i) {
      using V = vec_or_real<real_t<T>, Bytes>;
      store_parts(c + i + j * ldc,
                  complex_lanes<V>{load_reals<V>(re + i + j * ld), load_reals<V>(im + i + j * ld)});
    });
}

template <class T>
void scale(zor_int m, zor_int n, T beta, T* c, zor_int ldc) {
  if (m < 1 || n < 1) return;
  is_zero(beta) ? gemm::zero_columns(m, n, c, ldc) : gemm::scale_columns(m, n, beta, c, ldc);
}

template <class T>
struct problem {
  char transa, transb;
  zor_int m, n, k;
  T alpha;
  const real_t<T>* a;
  zor_int lda;
  const T* b;
  zor_int ldb;
  T beta;
  T* c;
  zor_int ldc;

  bool plain_a() const { return (transa | 0x20) == 'n'; }
};

// The plain path: columns of A times elements of alpha op(B), one value of the depth after the other.
template <class T>
void plain_product(const problem<T>& q) {
  if (q.m < 1 || q.n < 1) return;
  if (!is_one(q.beta)) scale(q.m, q.n, q.beta, q.c, q.ldc);
  const complex_operand<T> b = make_operand(q.transb, q.b, q.ldb);
  const zor_int row = q.plain_a() ? 1 : q.lda, column = q.plain_a() ? q.lda : 1;
  for (zor_int j = 0; j < q.n; ++j) {
    for (zor_int p = 0; p < q.k; ++p) {
      const T factor = mul(q.alpha, b.element(p, j));
      for (zor_int i = 0; i < q.m; ++i) {
        T& c = q.c[i + j * q.ldc];
        c = add(c, scaled(q.a[i * row + p * column], factor));
      }
    }
  }
}

// The block of C from (row, column) on through its real and imaginary parts.
template <class T>
void add_block(const problem<T>& q, zor_int row, zor_int rows, zor_int column, zor_int columns,
               parts_of_block<real_t<T>> s) {
  using R = real_t<T>;
  const bool adjacent = s.c_im == s.c_re + rows * columns;
  T* const c = q.c + row + column * q.ldc;
  copy_c_forward(rows, columns, c, q.ldc, s.c_re, s.c_im, rows);
  for (zor_int p = 0; p < q.k; p += block_depth) {
    const zor_int depth = q.k - p < block_depth ? q.k - p : block_depth;
    const complex_operand<T> b = make_operand(q.transb, q.b, q.ldb);
    if (adjacent) s.b_im = s.b_re + depth * columns;
    copy_b(q.transb, depth, columns, b.data + p * b.row + column * b.column, q.ldb, s.b_re, s.b_im, depth,
           q.alpha);
    const R* const a = q.plain_a() ? q.a + row + p * q.lda : q.a + p + row * q.lda;
    const auto add_product = [&](zor_int n, const R* from, R* to) {
      multiply_add<R>(q.transa, 'N', rows, n, depth, 1, a, q.lda, from, depth, 1, to, rows);
    };
    // Adjacent parts are one product, which packs A once. Whole groups of columns go the same way in it.
    if (adjacent && columns % gemm::limits<R>::columns == 0) {
      add_product(2 * columns, s.b_re, s.c_re);
    } else {
      add_product(columns, s.b_re, s.c_re);
      add_product(columns, s.b_im, s.c_im);
    }
  }
  copy_c_backward(rows, columns, c, q.ldc, s.c_re, s.c_im, rows);
}

// Parts in a block of the pool, for runs of `run` columns and up to 7 more.
template <class R>
struct near_parts {
  near_parts(zor_int most_rows, zor_int most_depth, zor_int columns)
      : rows(most_rows),
        depth(most_depth),
        run(near_bytes / zor_int(2 * sizeof(R)) / (rows + depth) / run_cut * run_cut),
        width(columns < run + run_cut ? columns : run + run_cut),
        memory(2 * (rows + depth) * width, 128) {}

  // The parts for `m` rows and `n` columns: those of C are adjacent, and there is room for those of B to be.
  parts_of_block<R> parts(zor_int m, zor_int n) const {
    R *const c_im = memory.data + m * n, *const b_re = memory.data + 2 * rows * width;
    return {memory.data, c_im, b_re, b_re + depth * n};
  }

  const zor_int rows, depth, run, width;
  const scratch<R> memory;
};

template <class T>
void mixed_product(problem<T> q) {
  using R = real_t<T>;
  if (q.m < 1 || q.n < 1) return;
  if (!is_one(q.beta)) scale(q.m, q.n, q.beta, q.c, q.ldc);
  q.beta = from_real<T>(1);
  if (is_zero(q.alpha)) return;
  if (q.m < least || q.n < least || q.k < least) return plain_product(q);
  void* const block = zor_serv_allocate(scratch_bytes<R>, 128);
  if (core::zor_serv_check_ptr(block, "rc_xgemm") != 0) return plain_product(q);
  const zor_int rows = q.m < block_rows<R> ? q.m : block_rows<R>, step = mixed_step<R>(q.m);
  const near_parts<R> near(rows, q.k < block_depth ? q.k : block_depth, q.n < step ? q.n : step);
  const bool is_near = near.memory.data != nullptr;
  const zor_int run = is_near ? near.run : step;
  for (zor_int j = 0; j < q.n; j += step) {
    const zor_int end = q.n - j < step ? q.n : j + step;
    for (zor_int i = 0; i < q.m; i += block_rows<R>)
      for (zor_int first = j; first < end;) {
        const zor_int columns = end - first < run + run_cut ? end - first : run;
        const zor_int height = q.m - i < rows ? q.m - i : rows;
        add_block(q, i, height, first, columns, is_near ? near.parts(height, columns) : lay_out<R>(block));
        first += columns;
      }
  }
  zor_serv_deallocate(block);
}

}  // namespace
}  // namespace zor::level3

#define ROW_MIXED(name, T, R)                                                                                \
  extern "C" SIG_MIXED(name, T, R) {                                                                         \
    zor::level3::mixed_product<T>({*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc}); \
  }
#define ROW_MIXED_PST(name, T, R)                                                                            \
  extern "C" SIG_MIXED(name, T, R) {                                                                         \
    zor::level3::plain_product<T>({*transa, *transb, *m, *n, *k, *alpha, a, *lda, b, *ldb, *beta, c, *ldc}); \
  }
#define ROW_MIXED_GETBUFS(name, R)                                                  \
  extern "C" SIG_MIXED_GETBUFS(name, R) {                                           \
    (void)mb, (void)nb, (void)kb;                                                   \
    *block = zor_serv_allocate(zor::level3::scratch_bytes<R>, 128);                 \
    const auto parts = zor::level3::lay_out<R>(*block);                             \
    *c_re = parts.c_re, *c_im = parts.c_im, *b_re = parts.b_re, *b_im = parts.b_im; \
  }
#define ROW_MIXED_FREEBUFS(name)                      \
  extern "C" SIG_MIXED_FREEBUFS(name) {               \
    if (block != nullptr) zor_serv_deallocate(block); \
  }
#define ROW_MIXED_COPYB(name, T, R)                                         \
  extern "C" SIG_MIXED_COPYB(name, T, R) {                                  \
    zor::level3::copy_b(*transb, *k, *n, b, *ldb, b_re, b_im, *ld, *alpha); \
  }
#define ROW_MIXED_COPYC_FWD(name, T, R)                            \
  extern "C" SIG_MIXED_COPYC_FWD(name, T, R) {                     \
    zor::level3::copy_c_forward(*m, *n, c, *ldc, c_re, c_im, *ld); \
  }
#define ROW_MIXED_COPYC_BWD(name, T, R)                             \
  extern "C" SIG_MIXED_COPYC_BWD(name, T, R) {                      \
    zor::level3::copy_c_backward(*m, *n, c, *ldc, c_re, c_im, *ld); \
  }
#define ROW_MIXED_MSCALE(name, T) \
  extern "C" SIG_MSCALE(name, T) { zor::level3::scale(*m, *n, *beta, c, *ldc); }
#include "zor/tables/blas_level3.inc"
