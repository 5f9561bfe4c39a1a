// SPDX-License-Identifier: MIT
// Matrix products, matrix-vector products and updates, packing, and the routines around packed panels.
#include <algorithm>
#include <cstring>

#include "tests/fuzz/matrix.h"
#include "zor/signatures/blas.h"
#include "zor/signatures/core.h"

namespace zor_fuzz {
namespace {

template <class T>
void gemm(trial& t, zor::gemm_fn<T>* call) {
  const zor_int m = t.size("m", 400), n = t.size("n", 400), k = t.size("k", 500);
  const turned<T> a(t, "a", t.letter("transa", "NTCntc"), m, k),
      b(t, "b", t.letter("transb", "NTCntc"), k, n);
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const zor_int ldc = t.leading("ldc", m);
  const auto c = t.matrix<T>("c", when_scaled(beta, m > 0 && n > 0), m, n, ldc);
  t.call([&] {
    call(&a.letter, &b.letter, &m, &n, &k, &alpha, a.stored, &a.ld, b.stored, &b.ld, &beta, c, &ldc);
  });
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    wide exact = scaled(beta, c, i, j);
    long double size = magnitude(exact);
    const wide factor = widened(alpha);
    for (zor_int p = 0; p < k; ++p) {
      exact += times(factor, times(a(i, p), b(p, j)));
      size += magnitude(factor) * magnitude(a(i, p)) * magnitude(b(p, j));
    }
    t.near(c.now(i, j), exact, size, k, "c", i, j);
  });
}

template <class T>
void gemv(trial& t, zor::gemv_fn<T>* call) {
  // rows and columns of op(A)
  const zor_int rows = t.size("rows", 1200), columns = t.size("columns", 1200);
  const turned<T> a(t, "a", t.letter("trans", "NTCntc"), rows, columns);
  const zor_int m = a.transposed() ? columns : rows, n = a.transposed() ? rows : columns;
  const zor_int incx = t.increment("incx"), incy = t.increment("incy");
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const auto x = t.vector<T>("x", use::in, columns, incx);
  const auto y = t.vector<T>("y", when_scaled(beta, m > 0 && n > 0), rows, incy);
  t.call([&] { call(&a.letter, &m, &n, &alpha, a.stored, &a.ld, x, &incx, &beta, y, &incy); });
  if (m < 1 || n < 1) return;
  t.some_of(rows, 1, [&](zor_int i, zor_int) {
    wide exact = scaled(beta, y, i);
    long double size = magnitude(exact);
    const wide factor = widened(alpha);
    for (zor_int j = 0; j < columns; ++j) {
      exact += times(factor, times(a(i, j), x(j)));
      size += magnitude(factor) * magnitude(a(i, j)) * magnitude(x(j));
    }
    t.near(y.now(i), exact, size, columns, "y", i);
  });
}

template <class T>
void syr(trial& t, zor::syr_fn<T>* call) {
  const zor_int n = t.size("n", 1200), incx = t.increment("incx"), lda = t.leading("lda", n);
  const char uplo = t.letter("uplo", "ULul");
  const bool upper = uplo == 'U' || uplo == 'u';
  const T alpha = t.scalar<T>("alpha");
  const auto x = t.vector<T>("x", use::in, n, incx);
  auto a = t.matrix<T>("a", use::inout, n, n, lda);
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = 0; i < n; ++i)
      if (upper ? i > j : i < j) a.spare(i, j);
  t.call([&] { call(&uplo, &n, &alpha, x, &incx, a, &lda); });
  t.some_of(n, n, [&](zor_int i, zor_int j) {
    if (upper ? i > j : i < j) return;
    const wide term = times(widened(alpha), times(x(i), x(j)));
    t.near(a.now(i, j), a(i, j) + term, magnitude(a(i, j)) + magnitude(term), 2, "a", i, j);
  });
}

template <class T>
void mscale(trial& t, zor::mscale_fn<T>* call) {
  const zor_int m = t.size("m", 300), n = t.size("n", 300), ldc = t.leading("ldc", m);
  const T beta = t.scalar<T>("beta");
  const auto c = t.matrix<T>("c", when_scaled(beta, true), m, n, ldc);
  t.call([&] { call(&m, &n, &beta, c, &ldc); });
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    const wide exact = scaled(beta, c, i, j);
    t.near(c.now(i, j), exact, 2 * magnitude(widened(beta)) * magnitude(c(i, j)), 1, "c", i, j);
  });
}

// A packed panel, real number by real number. A strip is a group of neighbouring lines (rows of op(A),
// columns of op(B)): for each step of the depth the strip's values, complex ones of A as real parts, then
// imaginary parts. Zeros fill the depth up to a multiple of 4. Lines beyond the last whole strip are left out
// but in double precision.
struct packed {
  struct number {
    zor_int line, depth;
    size_t part;
  };
  packed(bool of_a, zor_int width, bool doubles, size_t parts, zor_int lines, zor_int depth) {
    const zor_int padded = (depth + 3) / 4 * 4;
    for (zor_int first = 0; first < lines; first += width) {
      const zor_int count = std::min(width, lines - first);
      if (count < width && !doubles) break;
      const zor_int w = count == width || !of_a ? count : count == 3 ? 4 : 2;
      for (zor_int p = 0; p < padded; ++p)
        for (zor_int i = 0; i < w * zor_int(parts); ++i) {
          const zor_int line = of_a ? i % w : i / zor_int(parts);
          numbers.push_back({first + line, p, size_t(of_a ? i / w : i % zor_int(parts))});
        }
    }
  }
  std::vector<number> numbers;
};

// A packing routine: invoke(m, n, stored, ld, panel, alpha), m by n the size of the operand packed.
template <class T, class Invoke>
void pack(trial& t, bool of_a, char op, const Invoke& invoke) {
  constexpr bool doubles = std::is_same_v<T, double>;
  const zor_int width = of_a ? (std::is_same_v<T, float> ? 8 : std::is_same_v<T, zor_c64> ? 2 : 4) : 4;
  const zor_int lines = t.size("lines", 300), depth = t.size("depth", 300);
  const zor_int m = of_a ? lines : depth, n = of_a ? depth : lines;
  const T alpha = of_a ? t.scalar<T>("alpha") : zor_test::scalar<T>(1, 0);
  const turned<T> a(t, of_a ? "a" : "b", op, m, n);
  const packed format(of_a, width, doubles, parts<T>, lines, depth);
  const auto panel = t.vector<real<T>>("panel", use::out, zor_int(format.numbers.size()), 1, 16);
  t.call([&] { invoke(m, n, a.stored.data(), a.ld, reinterpret_cast<T*>(panel.data()), alpha); });
  t.some_of(zor_int(format.numbers.size()), 1, [&](zor_int i, zor_int) {
    const auto [line, p, h] = format.numbers[size_t(i)];
    wide exact = 0;
    if (line < lines && p < depth) exact = of_a ? times(widened(alpha), a(line, p)) : a(p, line);
    const long double size =
        of_a ? magnitude(widened(alpha)) * (exact == wide(0) ? 0 : magnitude(a(line, p))) : 0;
    t.near(panel.now(i), h ? exact.imag() : exact.real(), size, 2, "panel", i);
  });
}
template <class T>
void pack_a(trial& t, char op, zor::copya_fn<T>* call) {
  pack<T>(t, true, op, [&](zor_int m, zor_int k, const T* a, zor_int lda, T* panel, T alpha) {
    call(&m, &k, a, &lda, panel, &alpha);
  });
}
template <class T>
void pack_b(trial& t, char op, zor::copyb_fn<T>* call) {
  pack<T>(t, false, op,
          [&](zor_int k, zor_int n, const T* b, zor_int ldb, T* panel, T) { call(&k, &n, b, &ldb, panel); });
}
// The same with the operation as an argument: N, for complex elements C, anything else transposes.
template <class T, class Call>
void pack_any(trial& t, Call* call) {
  constexpr bool of_a = std::is_same_v<Call, zor::copya_ext_fn<T>>;
  const char op = t.letter(of_a ? "transa" : "transb", parts<T> == 2 ? "NTC" : "NT");
  pack<T>(t, of_a, op, [&](zor_int m, zor_int n, const T* a, zor_int ld, T* panel, T alpha) {
    if constexpr (of_a)
      call(&op, &m, &n, a, &ld, panel, &alpha);
    else
      call(&op, &m, &n, a, &ld, panel);
  });
}
// The letter before "gemm_copy?_": the operation stands behind "copya" or "copyb".
constexpr char packed_op(const char* name) {
  for (; *name; ++name)
    if (name[0] == 'c' && name[1] == 'o' && name[2] == 'p' && name[3] == 'y')
      return char(name[5] - 'a' + 'A');
  return 'N';
}

void block_sizes(trial& t, zor::blks_size_fn* call) {
  const zor_int m = t.size("m", 50000, -1), n = t.size("n", 50000, -1), k = t.size("k", 50000, -1);
  zor_int size[3] = {-1, -1, -1};
  t.call([&] { call(&m, &n, &k, size, size + 1, size + 2); });
  for (const zor_int s : size) {
    t.result(s);
    t.expect(m > 0 && n > 0 && k > 0 ? s > 0 : s == 0, "a block size of " + std::to_string(s));
  }
}

void scratch_size(trial& t, zor::bufs_size_fn* call) {
  const zor_int m = t.size("m", 50000, -1), n = t.size("n", 50000, -1), k = t.size("k", 50000, -1);
  zor_int bytes = -1;
  t.call([&] { call(&m, &n, &k, &bytes); });
  t.result(bytes);
  t.expect(m > 0 && n > 0 && k > 0 ? bytes > 0 : bytes == 0,
           "scratch of " + std::to_string(bytes) + " bytes");
}

// Scratch is a block of the size told, on its boundary, until it is given back.
template <class Give>
void scratch(trial& t, zor::getbufs_fn* take, Give* give, zor::bufs_size_fn* size_of) {
  const zor_int m = t.size("m", 3000, 1), n = t.size("n", 3000, 1), k = t.size("k", 3000, 1);
  zor_int bytes = 0;
  void* block = nullptr;
  t.call([&] {
    size_of(&m, &n, &k, &bytes);
    take(&m, &n, &k, &block);
  });
  t.expect(block != nullptr && reinterpret_cast<uintptr_t>(block) % 128 == 0, "no block, or on no boundary");
  if (block != nullptr) std::memset(block, -1, size_t(bytes));
  t.prepare([&] { give(&block); });
  t.expect(block == nullptr, "a block that is kept");
}
// The mixed product's block holds four parts that do not meet: each is written whole.
template <class R>
void mixed_scratch(trial& t, zor::mixed_getbufs_fn<R>* take, zor::mixed_freebufs_fn* give) {
  const zor_int size = t.size("size", 3000, 1);
  void* block = nullptr;
  R* part[4] = {};
  t.call([&] { take(&size, &size, &size, &block, part, part + 1, part + 2, part + 3); });
  t.expect(block != nullptr, "no block");
  std::sort(part, part + 4);
  for (int i = 0; i < 4 && block != nullptr; ++i) {
    t.result(zor_int((part[i] - part[0]) * zor_int(sizeof(R))));
    t.expect(static_cast<void*>(part[i]) >= block, "a part outside the block");
    *part[i] = 1;
  }
  t.prepare([&] { give(block); });
}

#define ROW_GEMM(name, T) {#name, [](trial& t) { gemm<T>(t, name); }},
const rows products("gemm", threaded,
                    {
#include "zor/tables/core_blas.inc"
                    });
#define ROW_GEMV(name, T) {#name, [](trial& t) { gemv<T>(t, name); }},
#define ROW_SYR(name, T) {#name, [](trial& t) { syr<T>(t, name); }},
const rows vector_products("gemv", threaded,
                           {
#include "zor/tables/core_blas.inc"
                           });
#define ROW_XGEMV(name, T) {#name, [](trial& t) { gemv<T>(t, name); }},
#define ROW_XSYR(name, T) {#name, [](trial& t) { syr<T>(t, name); }},
const rows vector_product_kernels("gemv kernel", serial,
                                  {
#include "zor/tables/blas_matvec.inc"
                                  });
#define ROW_XGEMM(name, T) {#name, [](trial& t) { gemm<T>(t, name); }},
const rows product_kernels("gemm kernel", serial,
                           {
#include "zor/tables/blas_gemm.inc"
                           });
#define ROW_MSCALE(name, T) {#name, [](trial& t) { mscale<T>(t, name); }},
#define ROW_COPYA(name, T, form) {#name, [](trial& t) { pack_a<T>(t, packed_op(#name), name); }},
#define ROW_COPYB(name, T, form) {#name, [](trial& t) { pack_b<T>(t, packed_op(#name), name); }},
const rows packing_kernels("packing kernel", serial,
                           {
#include "zor/tables/blas_gemm.inc"
                           });
#define ROW_COPYA(name, T, copy) {#name, [](trial& t) { pack_a<T>(t, packed_op(#name), name); }},
#define ROW_COPYB(name, T, copy) {#name, [](trial& t) { pack_b<T>(t, packed_op(#name), name); }},
#define ROW_COPYA_EXT(name, T) {#name, [](trial& t) { pack_any<T>(t, name); }},
#define ROW_COPYB_EXT(name, T) {#name, [](trial& t) { pack_any<T>(t, name); }},
#define ROW_BLKS_SIZE(name, ...) {#name, [](trial& t) { block_sizes(t, name); }},
#define ROW_BUFS_SIZE(name, ...) {#name, [](trial& t) { scratch_size(t, name); }},
#define ROW_GETBUFS(name, T)                                                        \
  {#name, [](trial& t) {                                                            \
     if constexpr (sizeof(T) == 4)                                                  \
       scratch(t, name, zor_blas_sgemm_freebufs, zor_blas_sgemm_get_bufs_size_htn); \
     else                                                                           \
       scratch(t, name, zor_blas_dgemm_freebufs, zor_blas_dgemm_get_bufs_size_htn); \
   }},
const rows panels("panel", threaded,
                  {
#include "zor/tables/core_generic.inc"
                  });

const rows blocks("panel", serial,
                  {{"zor_blas_scgemm_getbufs",
                    [](trial& t) { mixed_scratch(t, zor_blas_scgemm_getbufs, zor_blas_scgemm_freebufs); }},
                   {"zor_blas_dzgemm_getbufs",
                    [](trial& t) { mixed_scratch(t, zor_blas_dzgemm_getbufs, zor_blas_dzgemm_freebufs); }}});

}  // namespace
}  // namespace zor_fuzz
