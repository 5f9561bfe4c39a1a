// SPDX-License-Identifier: MIT
// Complex products by real ones (3M, and real times complex): bits against the stated blocks in plain loops,
// and sizes at which the parts of the scratch block would meet.
#include <vector>

#include "tests/ref/level3.h"
#include "tests/support/elements.h"
#include "zor/blas.h"
#include "zor/signatures/blas.h"

namespace {

using namespace zor_test;
using zor_ref::is;

struct split_case {
  const char* letters;
  zor_int m, n, k;
  double alpha[2], beta[2];
};

std::ostream& operator<<(std::ostream& out, const split_case& c) {
  return out << c.letters << " m=" << c.m << " n=" << c.n << " k=" << c.k << " alpha=" << c.alpha[0] << ","
             << c.alpha[1] << " beta=" << c.beta[0] << "," << c.beta[1];
}

template <class A, class T>
struct operands {
  zor_int lda, ldb, ldc;
  guarded<A> a;
  guarded<T> b, c;
  T alpha, beta;

  static zor_int rows(char letter, zor_int plain, zor_int other) { return letter == 'N' ? plain : other; }
  explicit operands(const split_case& q)
      : lda(rows(q.letters[0], q.m, q.k) + 1),
        ldb(rows(q.letters[1], q.k, q.n) + 2),
        ldc(q.m + 1),
        a(size_t(lda * rows(q.letters[0], q.k, q.m))),
        b(size_t(ldb * rows(q.letters[1], q.n, q.k)), false),
        c(size_t(ldc * q.n)),
        alpha(scalar<T>(q.alpha[0], q.alpha[1])),
        beta(scalar<T>(q.beta[0], q.beta[1])) {
    random_bits random(uint64_t(q.m * 100 + q.n + q.k));
    fill(a, random), fill(b, random);
    is(beta, 0) ? fill_nan(c) : fill(c, random);
  }
};

template <class T>
T times_op(char letter, const T* x, zor_int ld, zor_int i, zor_int j) {
  const T e = letter == 'N' ? x[i + j * ld] : x[j + i * ld];
  return letter == 'C' ? zor_ref::conj_by_zero(e) : e;
}

template <class T>
void scale_by(T beta, zor_int m, zor_int n, T* c, zor_int ldc) {
  for (zor_int j = 0; j < n && !is(beta, 1); ++j)
    for (zor_int i = 0; i < m; ++i) c[i + j * ldc] = is(beta, 0) ? T{} : zor_ref::times(beta, c[i + j * ldc]);
}

// The three products of a block of rows over the panels of the depth.
template <class T>
void expected_3m(const split_case& q, const operands<T, T>& o, std::vector<T>& c) {
  using R = real<T>;
  for (zor_int row = 0; row < q.m; row += 1000) {
    const zor_int m = std::min<zor_int>(1000, q.m - row);
    std::vector<R> t[3];
    for (auto& v : t) v.resize(size_t(m * q.n));
    for (zor_int p = 0; p < q.k; p += 128)
      for (zor_int j = 0; j < q.n; j += 1000) {
        const zor_int depth = std::min<zor_int>(128, q.k - p), n = std::min<zor_int>(1000, q.n - j);
        std::vector<R> a[3], b[3];
        const auto split = [](std::vector<R>(&to)[3], T e) {
          to[0].push_back(e.re), to[1].push_back(e.im), to[2].push_back(e.re + e.im);
        };
        for (zor_int l = 0; l < depth; ++l)
          for (zor_int i = 0; i < m; ++i) split(a, times_op(q.letters[0], o.a.data(), o.lda, row + i, p + l));
        for (zor_int i = 0; i < n; ++i)
          for (zor_int l = 0; l < depth; ++l)
            split(b, times_op(q.letters[1], o.b.data(), o.ldb, p + l, j + i));
        for (int s = 0; s < 3; ++s)
          zor_ref::add_product<R>('N', 'N', m, n, depth, 1, a[s].data(), m, b[s].data(), depth,
                                  p == 0 ? 0 : 1, t[s].data() + j * m, m);
      }
    for (zor_int j = 0; j < q.n; ++j)
      for (zor_int i = 0; i < m; ++i) {
        const size_t at = size_t(i + j * m);
        const R re = t[0][at] - t[1][at], im = t[2][at] - t[0][at] - t[1][at];
        T x = zor_ref::times(o.alpha, T{re, im});
        T& old = c[size_t(row + i + j * o.ldc)];
        if (!is(o.beta, 0)) {
          x.re = x.re + o.beta.re * old.re - o.beta.im * old.im;
          x.im = x.im + o.beta.im * old.re + o.beta.re * old.im;
        }
        old = x;
      }
  }
}

template <class T>
void check_3m(const char* name, zor::gemm_fn<T>* kernel, const split_case& q) {
  SCOPED_TRACE(::testing::Message() << name << " " << q);
  operands<T, T> o(q);
  std::vector<T> expected(o.c.begin(), o.c.end());
  if (std::min({q.m, q.n, q.k}) < 9 || is(o.alpha, 0))
    zor_ref::gemm(zor_ref::product<T>{q.letters[0], q.letters[1], q.m, q.n, q.k, o.alpha, o.a.data(), o.lda,
                                      o.b.data(), o.ldb, o.beta, expected.data(), o.ldc});
  else
    expected_3m(q, o, expected);
  kernel(q.letters, q.letters + 1, &q.m, &q.n, &q.k, &o.alpha, o.a.data(), &o.lda, o.b.data(), &o.ldb,
         &o.beta, o.c.data(), &o.ldc);
  ASSERT_TRUE(same_elements(expected, o.c));
}

// The parts of alpha op(B) and of C, two real products each panel of the depth.
template <class T>
void expected_mixed(const split_case& q, const operands<real<T>, T>& o, std::vector<T>& c) {
  using R = real<T>;
  const char ta = q.letters[0];
  scale_by(o.beta, q.m, q.n, c.data(), o.ldc);
  const zor_int mb = sizeof(R) == 8 ? 500 : 1000;
  for (zor_int row = 0; row < q.m; row += mb) {
    const zor_int m = std::min(mb, q.m - row);
    std::vector<R> part_of_c[2];
    for (zor_int j = 0; j < q.n; ++j)
      for (zor_int i = 0; i < m; ++i)
        for (int s = 0; s < 2; ++s) part_of_c[s].push_back(part(c[size_t(row + i + j * o.ldc)], s));
    for (zor_int p = 0; p < q.k; p += 128) {
      const zor_int depth = std::min<zor_int>(128, q.k - p);
      std::vector<R> b[2];
      for (zor_int j = 0; j < q.n; ++j)
        for (zor_int l = 0; l < depth; ++l) {
          T e = times_op(q.letters[1], o.b.data(), o.ldb, p + l, j);
          if (!is(o.alpha, 1))
            e = {o.alpha.re * e.re - o.alpha.im * e.im, o.alpha.im * e.re + o.alpha.re * e.im};
          b[0].push_back(e.re), b[1].push_back(e.im);
        }
      for (int s = 0; s < 2; ++s)
        zor_ref::add_product<R>(ta, 'N', m, q.n, depth, 1,
                                ta == 'N' ? o.a.data() + row + p * o.lda : o.a.data() + p + row * o.lda,
                                o.lda, b[s].data(), depth, 1, part_of_c[s].data(), m);
    }
    for (zor_int j = 0; j < q.n; ++j)
      for (zor_int i = 0; i < m; ++i)
        c[size_t(row + i + j * o.ldc)] = {part_of_c[0][size_t(i + j * m)], part_of_c[1][size_t(i + j * m)]};
  }
}

template <class T>
void check_mixed(const char* name, zor::mixed_fn<T, real<T>>* kernel, const split_case& q) {
  if (std::min({q.m, q.n, q.k}) < 8 || is(scalar<T>(q.alpha[0], q.alpha[1]), 0)) return;
  SCOPED_TRACE(::testing::Message() << name << " " << q);
  operands<real<T>, T> o(q);
  std::vector<T> expected(o.c.begin(), o.c.end());
  kernel(q.letters, q.letters + 1, &q.m, &q.n, &q.k, &o.alpha, o.a.data(), &o.lda, o.b.data(), &o.ldb,
         &o.beta, o.c.data(), &o.ldc);
  expected_mixed(q, o, expected);
  ASSERT_TRUE(same_elements(expected, o.c));
}

constexpr const char* letters[] = {"NN", "NT", "NC", "TN", "TT", "TC", "CN", "CT", "CC"};
constexpr double factors[][4] = {{1, 0, 0, 0}, {0.5, -0.25, 1, 0}, {-0.75, 0.5, 0.5, 0.5}, {0, 0, 2, 0}};

TEST(SplitProducts, SizesFactorsAndLetters) {
  for (const char* l : letters)
    for (const auto& f : factors)
      for (zor_int m : {1, 8, 9, 13, 34})
        for (zor_int n : {1, 7, 9, 22})
          for (zor_int k : {1, 8, 9, 130}) {
            if (zor_ref::fuses_in_software() && k == 130 && &f != factors + 1) continue;
            const split_case q{l, m, n, k, {f[0], f[1]}, {f[2], f[3]}};
#define ROW_XGEMM3M(name, T) check_3m<T>(#name, name, q);
#define ROW_MIXED(name, T, R) check_mixed<T>(#name, name, q);
#include "zor/tables/blas_level3.inc"
          }
}

// More rows and columns than a block; a block of C larger than the room before the parts of B.
TEST(SplitProducts, Blocks) {
  for (const split_case& q :
       {split_case{"NN", 1003, 1011, 9, {1, 0}, {1, 0}}, split_case{"TC", 500, 5000, 8, {1, 1}, {0, 0}},
        split_case{"NT", 1100, 700, 140, {0.5, 0}, {0.5, 0}}}) {
    if (zor_ref::fuses_in_software() && q.k == 140) continue;
#define ROW_XGEMM3M(name, T) check_3m<T>(#name, name, q);
#define ROW_MIXED(name, T, R) check_mixed<T>(#name, name, q);
#include "zor/tables/blas_level3.inc"
  }
}

// The parts of the scratch block stand at their stated distances, and it goes back.
TEST(SplitProducts, ScratchOfMixedProducts) {
  const auto run = []<class R>(auto getbufs, auto freebufs, R, uintptr_t distance) {
    void* block = nullptr;
    R *c_re, *c_im, *b_re, *b_im;
    getbufs(nullptr, nullptr, nullptr, &block, &c_re, &c_im, &b_re, &b_im);
    const auto at = [](void* p) { return reinterpret_cast<uintptr_t>(p); };
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(at(c_re) % 4096, 0u);
    EXPECT_LT(at(c_re) - at(block), 4096u);
    EXPECT_EQ(at(c_im) % 4096, 0u);
    EXPECT_LT(at(c_im) - at(c_re) - 20000000, 4096u);
    EXPECT_EQ(at(b_re) - at(c_im), distance);
    EXPECT_EQ(at(b_im) - at(b_re), distance);
    freebufs(block);
    freebufs(nullptr);
  };
  run(zor_blas_dzgemm_getbufs, zor_blas_dzgemm_freebufs, double(), 5120000);
  run(zor_blas_scgemm_getbufs, zor_blas_scgemm_freebufs, float(), 2560000);
}

}  // namespace
