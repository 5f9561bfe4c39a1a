// SPDX-License-Identifier: MIT
// Matrix products, packing, and the routines around packed panels.
#include <algorithm>
#include <cstring>

#include "tests/fuzz/matrix.h"
#include "zor/signatures/blas.h"
#include "zor/signatures/core.h"

namespace zor_fuzz {
namespace {

// Products of every kind, A having elements of type E: the plain one, those of a real and a complex matrix,
// that of three real products, whose differences have larger terms by a factor, and that of one triangle of
// C.
template <class E, class T, class Call>
void gemm(trial& t, Call* call, int factor = 1) {
  constexpr bool one_triangle = std::is_same_v<Call, zor::gemmt_fn<T>>;
  const zor_int m = t.size("m", 400), n = one_triangle ? m : t.size("n", 400), k = t.size("k", 500);
  const operand_of<E> a(t, "a", t.letter("transa", "NTCntc"), m, k);
  const operand_of<T> b(t, "b", t.letter("transb", "NTCntc"), k, n);
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const option uplo = t.letter("uplo", "UL");
  auto c = t.matrix<T>("c", when_scaled(beta, m > 0 && n > 0), m, n);
  const auto left_out = [&](zor_int i, zor_int j) { return one_triangle && (uplo.is('U') ? i > j : i < j); };
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = 0; i < m; ++i)
      if (left_out(i, j)) c.spare(i, j);
  t.invoke(call, when<one_triangle>(uplo), a.op, b.op, when<!one_triangle>(m), n, k, alpha, a, b, beta, c);
  t.some_of(m, n, [&](zor_int i, zor_int j) {
    if (left_out(i, j)) return;
    sum_of_terms s;
    s.add(scaled(beta, c, i, j));
    for (zor_int p = 0; p < k; ++p) s.add(times(widened(alpha), times(a(i, p), b(p, j))));
    s.size *= factor;
    s.compare(t, c.now(i, j), "c", i, j);
  });
}

template <class T>
void mscale(trial& t, zor::mscale_fn<T>* call) {
  const zor_int m = t.size("m", 300), n = t.size("n", 300);
  const T beta = t.scalar<T>("beta");
  const auto c = t.matrix<T>("c", when_scaled(beta), m, n);
  t.invoke(call, m, n, beta, c);
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

// A packing routine; one whose name has no operation takes it as an argument: N, for complex elements C,
// anything else transposes.
template <class T, class Call>
void pack(trial& t, const char* name, Call* call) {
  constexpr bool any_a = std::is_same_v<Call, zor::copya_ext_fn<T>>,
                 any_b = std::is_same_v<Call, zor::copyb_ext_fn<T>>,
                 of_a = any_a || std::is_same_v<Call, zor::copya_fn<T>>;
  constexpr bool doubles = std::is_same_v<T, double>;
  const zor_int width = of_a ? (std::is_same_v<T, float> ? 8 : std::is_same_v<T, zor_c64> ? 2 : 4) : 4;
  const zor_int lines = t.size("lines", 300), depth = t.size("depth", 300);
  const zor_int m = of_a ? lines : depth, n = of_a ? depth : lines;
  const T alpha = of_a ? t.scalar<T>("alpha") : zor_test::scalar<T>(1, 0);
  option op = t.letter("trans", parts<T> == 2 ? "NTC" : "NT");
  // In other names the operation stands behind "copya" or "copyb".
  if (!any_a && !any_b) op.letter = char(std::strstr(name, "copy")[5] - 'a' + 'A');
  const operand_of<T> a(t, of_a ? "a" : "b", op, m, n);
  const packed format(of_a, width, doubles, parts<T>, lines, depth);
  const auto panel = t.vector<real<T>>("panel", use::out, zor_int(format.numbers.size()), 1, 16);
  T* const to = reinterpret_cast<T*>(panel.data());
  t.invoke(call, when < any_a || any_b > (op), m, n, a, to, when<of_a>(alpha));
  t.some_of(zor_int(format.numbers.size()), 1, [&](zor_int i, zor_int) {
    const auto [line, p, h] = format.numbers[size_t(i)];
    wide exact = 0;
    if (line < lines && p < depth) exact = of_a ? times(widened(alpha), a(line, p)) : a(p, line);
    const long double size =
        of_a ? magnitude(widened(alpha)) * (exact == wide(0) ? 0 : magnitude(a(line, p))) : 0;
    t.near(panel.now(i), h ? exact.imag() : exact.real(), size, 2, "panel", i);
  });
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

#define ROW_GEMM(name, T) {#name, [](trial& t) { gemm<T, T>(t, name); }},
const rows products("gemm", checked,
                    {
#include "zor/tables/core_blas.inc"
                    });
#define ROW_GEMMT(name, T) {#name, [](trial& t) { gemm<T, T>(t, name); }},
#define ROW_GEMM3M(name, T, ...) {#name, [](trial& t) { gemm<T, T>(t, name, 5); }},
#define ROW_PUBLIC_MIXED(name, T, R, ...) {#name, [](trial& t) { gemm<R, T>(t, name); }},
const rows other_products("products of other kinds", checked,
                          {
#include "zor/tables/core_level3.inc"
                          });
#define ROW_XGEMM(name, T) {#name, [](trial& t) { gemm<T, T>(t, name); }},
const rows product_kernels("gemm kernel", serial,
                           {
#include "zor/tables/blas_gemm.inc"
                           });
#define ROW_XGEMM3M(name, T) {#name, [](trial& t) { gemm<T, T>(t, name, 5); }},
#define ROW_MIXED(name, T, R) {#name, [](trial& t) { gemm<R, T>(t, name); }},
#define ROW_MIXED_PST ROW_MIXED
const rows other_kernels("kernels of other products", serial,
                         {
#include "zor/tables/blas_level3.inc"
                         });
#define ROW_MSCALE(name, T) {#name, [](trial& t) { mscale<T>(t, name); }},
#define ROW_COPYA(name, T, ...) {#name, [](trial& t) { pack<T>(t, #name, name); }},
#define ROW_COPYB ROW_COPYA
const rows packing_kernels("packing kernel", serial,
                           {
#include "zor/tables/blas_gemm.inc"
                           });
#define ROW_COPYA(name, T, ...) {#name, [](trial& t) { pack<T>(t, #name, name); }},
#define ROW_COPYB ROW_COPYA
#define ROW_COPYA_EXT ROW_COPYA
#define ROW_COPYB_EXT ROW_COPYA
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
