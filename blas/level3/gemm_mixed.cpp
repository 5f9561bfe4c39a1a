// SPDX-License-Identifier: MIT
// Products of a real matrix A by a complex matrix B: C := alpha op(A) op(B) + beta C by two real products, of
// A with the real and with the imaginary parts of alpha op(B).
//
// The sums are those of products of real matrices over panels of the depth, in ascending order, of rows and
// columns in steps. The register kernels of the real product take both parts at once: packed, they are
// neighbouring columns, whose sums join one column of C.
#include "blas/level3/blocks.h"
#include "blas/level3/gemm_block.h"
#include "blas/level3/gemm_rows.h"
#include "blas/level3/lanes.h"
#include "serv/imports.h"
#include "serv/memory.h"
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

// Rows of A and columns of C that are packed at a time, so that the panel of A stays in the second-level
// cache; columns whose parts are taken apart at a time; columns of C in a strip of the real kernels.
template <class R>
inline constexpr zor_int packed_rows = sizeof(R) == 8 ? 240 : 480;
constexpr zor_int packed_columns = 1024, staged_columns = 8;
template <class T>
inline constexpr int strip_columns = gemm::tile_shape<real_t<T>>::columns / 2;

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

// The product with one vector that libzor_core has for a column.
template <class R, class... Args>
void real_gemv(Args... args) {
  if constexpr (std::is_same_v<R, float>) core::zor_blas_sgemv(args...);
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

constexpr zor_int smaller(zor_int x, zor_int y) { return x < y ? x : y; }

// A panel of the depth as the product of real matrices cuts it, the last run first.
struct cut_panel {
  zor_int first, depth;
  int count;
  struct {
    zor_int at, depth;
  } run[3];
};
template <class R>
cut_panel cut(zor_int first, zor_int depth) {
  const zor_int kb = gemm::blocking_of<R>(1, 1, depth, false).kb, tail = gemm::first_depth(depth, kb);
  cut_panel c{first, depth, 1, {{depth - tail, tail}}};
  for (zor_int p = 0; p < depth - tail; p += kb) c.run[c.count++] = {p, kb};
  return c;
}

// A block of C: its first row and column, and how many there are.
struct block_of {
  zor_int row, rows, column, columns;
};

// Packed panels of A and of alpha op(B), in which the real and the imaginary parts of a column are two
// neighbouring columns; parts of C and of alpha op(B) apart.
template <class R>
struct workspace {
  static constexpr zor_int line = 64 / sizeof(R), lanes = gemm::tile_shape<R>::lanes;

  workspace(zor_int m, zor_int n, zor_int k) {
    const auto lines = [](zor_int reals) { return (reals + line - 1) / line * line; };
    const zor_int depth = smaller(k, block_depth), columns = smaller(n, packed_columns);
    const zor_int tails = 2 * columns * gemm::limits<R>::rows,
                  staged = 2 * staged_columns * smaller(m, mixed_rows<R>);
    b_at = lines((smaller(m, packed_rows<R>) + lanes) * depth);
    c_at = b_at + lines(2 * columns * depth);
    x_at = c_at + lines(tails > staged ? tails : staged);
    count = x_at + 2 * staged_columns * depth;
  }
  void place(R* memory) { a = memory, b = memory + b_at, c = memory + c_at, x = memory + x_at; }
  // Rows of a packed panel of A, padding included.
  static zor_int padded(zor_int rows) { return (rows + lanes - 1) / lanes * lanes; }

  zor_int b_at, c_at, x_at, count;
  R *a = nullptr, *b = nullptr, *c = nullptr, *x = nullptr;
};

// alpha op(B) of a panel into w.b. The columns of the strips are those of the real kernels.
template <class T>
void pack_columns(const problem<T>& q, const workspace<real_t<T>>& w, const cut_panel& d, zor_int column,
                  zor_int columns) {
  const complex_operand<T> b = make_operand(q.transb, q.b, q.ldb);
  const gemm::operand<T> from{b.data, b.row, b.column, b.column == 1, false};
  T* const packed = reinterpret_cast<T*>(w.b);
  for (int r = 0; r < d.count; ++r)
    gemm::pack_b<T, strip_columns<T>>(d.run[r].depth, columns, from, from.at(d.first + d.run[r].at, column),
                                      packed + d.run[r].at * columns);
  if (!b.conj && is_one(q.alpha)) return;
  for_vectors<T>(0, d.depth * columns, [=, alpha = q.alpha, plain = is_one(q.alpha)]<int Bytes>(zor_int i) {
    using V = vec<real_t<T>, Bytes>;
    const V v = conj_units_by_sign_if<T>(b.conj, load_units<V>(packed + i));
    store_units(packed + i, plain ? v : complex_mul(broadcast_pair<V>(alpha.re, alpha.im), v));
  });
}

// Rows of C against a packed panel: each strip of columns takes all runs of the depth while its part of C is
// near. A panel that stores adds to zeros instead of what C holds.
template <class T>
void add_packed(const problem<T>& q, const workspace<real_t<T>>& w, const cut_panel& d, const block_of& at,
                bool store) {
  using R = real_t<T>;
  const gemm::operand<R> a = gemm::make_operand(q.transa, q.a, q.lda);
  const zor_int padded = w.padded(at.rows);
  for (int r = 0; r < d.count; ++r)
    gemm::pack_a<R>(at.rows, d.run[r].depth, a.trans, false, a.at(at.row, d.first + d.run[r].at), q.lda, R(1),
                    w.a + d.run[r].at * padded);
  for (zor_int j = 0; j < at.columns; j += strip_columns<T>) {
    const zor_int columns = smaller(at.columns - j, strip_columns<T>);
    for (int r = 0; r < d.count; ++r) {
      const auto run = d.run[r];
      const gemm::tile<R> t{
          run.depth, 0, 0, 0, q.ldc, store && r == 0 ? gemm::update::store : gemm::update::add, R(1)};
      gemm::product_block<R, gemm::reading::packed>(at.rows, 2 * columns, t, w.a + run.at * padded,
                                                    w.b + 2 * (run.at * at.columns + j * run.depth),
                                                    q.c + at.row + (at.column + j) * q.ldc);
    }
  }
}

// Rows of C that do not fill a group of the register kernels.
template <class T>
void add_tail_rows(const problem<T>& q, const workspace<real_t<T>>& w, const cut_panel& d,
                   const block_of& at) {
  using R = real_t<T>;
  constexpr zor_int ld = gemm::limits<R>::rows;
  if constexpr (ld > 1) {
    const gemm::operand<R> a = gemm::make_operand(q.transa, q.a, q.lda);
    T* const c = q.c + at.row + at.column * q.ldc;
    copy_c_forward(at.rows, at.columns, c, q.ldc, w.c, w.c + ld, 2 * ld);
    for (int r = 0; r < d.count; ++r)
      gemm::product_rows<R>(at.rows, 2 * at.columns, d.run[r].depth, R(1),
                            a.from(at.row, d.first + d.run[r].at), w.b + 2 * d.run[r].at * at.columns, R(1),
                            w.c, ld);
    copy_c_backward(at.rows, at.columns, c, q.ldc, w.c, w.c + ld, 2 * ld);
  }
}

// Elements of C that no register kernel computes, a few columns at a time with their parts apart: by the
// plain loops, or column by column as matrix-vector products where the rest of their panel fills tiles.
template <class T>
void add_staged(const problem<T>& q, const workspace<real_t<T>>& w, const cut_panel& d, const block_of& at,
                bool by_vectors) {
  using R = real_t<T>;
  const complex_operand<T> b = make_operand(q.transb, q.b, q.ldb);
  const gemm::operand<R> a = gemm::make_operand(q.transa, q.a, q.lda).from(at.row, d.first);
  for (zor_int j = 0; j < at.columns; j += staged_columns) {
    const zor_int columns = smaller(at.columns - j, staged_columns);
    T* const c = q.c + at.row + (at.column + j) * q.ldc;
    copy_c_forward(at.rows, columns, c, q.ldc, w.c, w.c + at.rows * columns, at.rows);
    copy_b(q.transb, d.depth, columns, b.data + d.first * b.row + (at.column + j) * b.column, q.ldb, w.x,
           w.x + d.depth * columns, d.depth, q.alpha);
    if (std::is_same_v<R, float> && by_vectors) {
      const char trans = a.trans ? 'T' : 'N';
      const zor_int one = 1, m = a.trans ? d.depth : at.rows, n = a.trans ? at.rows : d.depth;
      const R factor = 1;
      for (zor_int s = 0; s < 2 * columns; ++s)
        real_gemv<R>(&trans, &m, &n, &factor, a.data, &q.lda, w.x + s * d.depth, &one, &factor,
                     w.c + s * at.rows, &one);
    } else {
      gemm::plain_product<R>(at.rows, 2 * columns, d.depth, R(1), a, gemm::make_operand('N', w.x, d.depth),
                             R(1), w.c, at.rows);
    }
    copy_c_backward(at.rows, columns, c, q.ldc, w.c, w.c + at.rows * columns, at.rows);
  }
}

// Columns of C, of which there are enough for the register kernels.
template <class T>
void add_columns(const problem<T>& q, const workspace<real_t<T>>& w, zor_int column, zor_int columns) {
  using R = real_t<T>;
  using limits = gemm::limits<R>;
  for (zor_int p = 0; p < q.k; p += block_depth) {
    const cut_panel d = cut<R>(p, smaller(q.k - p, block_depth));
    const bool deep = d.depth >= limits::least_nk, store = p == 0 && is_zero(q.beta);
    if (deep) pack_columns(q, w, d, column, columns);
    for (zor_int i = 0; i < q.m; i += mixed_rows<R>) {
      const zor_int height = smaller(q.m - i, mixed_rows<R>);
      const zor_int full = deep && height >= limits::least_m ? height / limits::rows * limits::rows : 0;
      for (zor_int r = 0; r < full; r += packed_rows<R>)
        add_packed(q, w, d, {i + r, smaller(full - r, packed_rows<R>), column, columns}, store);
      if (full == height) continue;
      const block_of rest{i + full, height - full, column, columns};
      if (store) gemm::zero_columns(rest.rows, columns, q.c + rest.row + column * q.ldc, q.ldc);
      full > 0 ? add_tail_rows(q, w, d, rest) : add_staged(q, w, d, rest, false);
    }
  }
}

// Columns that do not fill a group of the register kernels; by_vectors says whether others of the step do.
template <class T>
void add_tail_columns(const problem<T>& q, const workspace<real_t<T>>& w, zor_int column, zor_int columns,
                      bool by_vectors) {
  using R = real_t<T>;
  using limits = gemm::limits<R>;
  if (is_zero(q.beta)) gemm::zero_columns(q.m, columns, q.c + column * q.ldc, q.ldc);
  for (zor_int p = 0; p < q.k; p += block_depth) {
    const cut_panel d = cut<R>(p, smaller(q.k - p, block_depth));
    for (zor_int i = 0; i < q.m; i += mixed_rows<R>) {
      const zor_int height = smaller(q.m - i, mixed_rows<R>);
      add_staged(q, w, d, {i, height, column, columns},
                 by_vectors && height >= limits::least_m && d.depth >= limits::least_nk);
    }
  }
}

template <class T>
void mixed_product(const problem<T>& q) {
  using R = real_t<T>;
  using limits = gemm::limits<R>;
  if (q.m < 1 || q.n < 1) return;
  if (is_zero(q.alpha)) {
    if (!is_one(q.beta)) scale(q.m, q.n, q.beta, q.c, q.ldc);
    return;
  }
  if (q.m < least || q.n < least || q.k < least) return plain_product(q);
  void* const block = zor_serv_allocate(scratch_bytes<R>, scratch_boundary);
  if (core::zor_serv_check_ptr(block, "rc_xgemm") != 0) return plain_product(q);
  // The pages of that block are new in every call. One of the pool keeps its own, and stays in the cache.
  workspace<R> w(q.m, q.n, q.k);
  const scratch<R> near(w.count, scratch_boundary);
  w.place(near.data != nullptr ? near.data : align_up<R>(block, scratch_boundary));
  if (!is_one(q.beta) && !is_zero(q.beta)) scale(q.m, q.n, q.beta, q.c, q.ldc);
  const zor_int step = mixed_step<R>(q.m);
  for (zor_int j = 0; j < q.n; j += step) {
    const zor_int n = smaller(q.n - j, step);
    const zor_int full = n < limits::least_nk ? 0 : n / limits::columns * limits::columns;
    for (zor_int first = 0; first < full; first += packed_columns)
      add_columns(q, w, j + first, smaller(full - first, packed_columns));
    if (full < n) add_tail_columns(q, w, j + full, n - full, full > 0);
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
#define ROW_MIXED_GETBUFS(name, R)                                                    \
  extern "C" SIG_MIXED_GETBUFS(name, R) {                                             \
    (void)mb, (void)nb, (void)kb;                                                     \
    *block = zor_serv_allocate(zor::level3::scratch_bytes<R>, zor::scratch_boundary); \
    const auto parts = zor::level3::lay_out<R>(*block);                               \
    *c_re = parts.c_re, *c_im = parts.c_im, *b_re = parts.b_re, *b_im = parts.b_im;   \
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
