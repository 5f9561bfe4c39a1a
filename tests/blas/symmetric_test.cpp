// SPDX-License-Identifier: MIT
// Symmetric and Hermitian Level 3: bits against the stated blocks in plain loops; the other triangle of A and
// C is full of NaN and stays as it is, and so does what lies between columns.
#include <string>
#include <vector>

#include "tests/ref/level3.h"
#include "tests/support/elements.h"
#include "zor/blas.h"
#include "zor/signatures/blas.h"

namespace {

using namespace zor_test;

struct factors {
  double alpha[2], beta[2];
};
constexpr factors all_factors[] = {{{1, 0}, {0, 0}},      {{-0.75, 0.5}, {1, 0}}, {{0.5, -1}, {0.3, 0.6}},
                                   {{0, 0}, {0.5, 0.25}}, {{0, 0}, {1, 0}},       {{0, 0}, {0, 0}}};

// Columns of NaN with elements where `wanted` says.
template <class T, class Wanted>
std::vector<T> fill_where(guarded<T>& v, zor_int rows, zor_int columns, zor_int ld, random_bits& random,
                          const Wanted& wanted) {
  fill_nan(v);
  for (zor_int j = 0; j < columns; ++j)
    for (zor_int i = 0; i < rows; ++i)
      if (wanted(i, j)) v[size_t(i + j * ld)] = random_element<T>(random);
  return {v.begin(), v.end()};
}
constexpr auto everywhere = [](zor_int, zor_int) { return true; };

template <class T, class Call>
void check_update(const char* name, const char* letters, bool hermitian, bool two, zor_int n, zor_int k,
                  zor_int pad, const factors& f, const Call& call) {
  SCOPED_TRACE(::testing::Message() << name << " " << letters << " n=" << n << " k=" << k
                                    << " alpha=" << f.alpha[0] << "," << f.alpha[1] << " beta=" << f.beta[0]
                                    << "," << f.beta[1]);
  random_bits random(uint64_t(n * 131 + k));
  const bool plain = letters[1] == 'N';
  const zor_int rows = plain ? n : k, columns = plain ? k : n, ld = std::max<zor_int>(1, rows + pad),
                ldc = n + pad;
  guarded<T> a(extent(rows, columns, ld)), b(extent(rows, columns, ld), false), c(extent(n, n, ldc));
  fill_where(a, rows, columns, ld, random, everywhere);
  fill_where(b, rows, columns, ld, random, everywhere);
  const T alpha = scalar<T>(f.alpha[0], hermitian && !two ? 0 : f.alpha[1]),
          beta = scalar<T>(f.beta[0], hermitian ? 0 : f.beta[1]);
  const bool read = !zor_ref::is(beta, 0);
  std::vector<T> expected = fill_where(c, n, n, ldc, random, [&](zor_int i, zor_int j) {
    return read && (letters[0] == 'L' ? i >= j : i <= j);
  });
  zor_ref::update(zor_ref::rank_update<T>{letters[0], letters[1], hermitian, n, k, alpha, a.data(), ld,
                                          two ? b.data() : nullptr, ld, beta, expected.data(), ldc});
  call(letters, letters + 1, &n, &k, &alpha, a.data(), b.data(), &ld, &beta, c.data(), &ldc);
  EXPECT_TRUE(same_elements(expected, c));
}

void check_updates(const char* letters, zor_int n, zor_int k, zor_int pad, const factors& f) {
#define ROW_RANK_K(name, T, S, hermitian)                                                                   \
  if (!hermitian || letters[1] != 'T')                                                                      \
    check_update<T>(                                                                                        \
        #name, letters, hermitian, false, n, k, pad, f,                                                     \
        [](const char* uplo, const char* trans, const zor_int* order, const zor_int* depth, const T* alpha, \
           const T* a, const T*, const zor_int* ld, const T* beta, T* c, const zor_int* ldc) {              \
          name(uplo, trans, order, depth, reinterpret_cast<const S*>(alpha), a, ld,                         \
               reinterpret_cast<const S*>(beta), c, ldc);                                                   \
        });
#define ROW_RANK_2K(name, T, S, hermitian)                                                                  \
  if (!hermitian || letters[1] != 'T')                                                                      \
    check_update<T>(                                                                                        \
        #name, letters, hermitian, true, n, k, pad, f,                                                      \
        [](const char* uplo, const char* trans, const zor_int* order, const zor_int* depth, const T* alpha, \
           const T* a, const T* b, const zor_int* ld, const T* beta, T* c, const zor_int* ldc) {            \
          name(uplo, trans, order, depth, alpha, a, ld, b, ld, reinterpret_cast<const S*>(beta), c, ldc);   \
        });
#include "zor/tables/blas_level3.inc"
}

TEST(RankUpdate, SizesFactorsAndLetters) {
  for (const char* letters : {"UN", "LN", "UT", "LT", "UC", "LC"})
    for (const factors& f : all_factors)
      for (zor_int n : {1, 2, 7, 16, 31, 33, 65, 130, 259, 263, 264, 300})
        for (zor_int k : {0, 1, 6, 40, 120})
          if (n < 40 || (k == 6 && !(zor_ref::fuses_in_software() && n > 130 && &f != all_factors + 1)))
            check_updates(letters, n, k, n % 3, f);
}

template <class T, class Kernel>
void check_symm(const char* name, Kernel kernel, bool hermitian, zor_int order, const char* letters,
                zor_int m, zor_int n, zor_int pad, const factors& f) {
  SCOPED_TRACE(::testing::Message() << name << " " << letters << " m=" << m << " n=" << n
                                    << " alpha=" << f.alpha[0] << " beta=" << f.beta[0]);
  random_bits random(uint64_t(m * 131 + n));
  const zor_int size = letters[0] == 'L' ? m : n, lda = size + pad, ldb = m + pad;
  guarded<T> a(extent(size, size, lda)), b(extent(m, n, ldb), false), c(extent(m, n, ldb));
  fill_where(a, size, size, lda, random,
             [&](zor_int i, zor_int j) { return letters[1] == 'L' ? i >= j : i <= j; });
  fill_where(b, m, n, ldb, random, everywhere);
  // The imaginary parts of a Hermitian diagonal are not read.
  for (zor_int i = 0; hermitian && i < size; ++i)
    reals(&a[size_t(i + i * lda)])[parts<T> - 1] = std::numeric_limits<real<T>>::signaling_NaN();
  const T alpha = scalar<T>(f.alpha[0], f.alpha[1]), beta = scalar<T>(f.beta[0], f.beta[1]);
  const bool read = !zor_ref::is(beta, 0);
  std::vector<T> expected = fill_where(c, m, n, ldb, random, [&](zor_int, zor_int) { return read; });
  zor_ref::symmetric_product(letters[0], letters[1], hermitian, order, m, n, alpha, a.data(), lda, b.data(),
                             ldb, beta, expected.data(), ldb);
  kernel(letters, letters + 1, &m, &n, &alpha, a.data(), &lda, b.data(), &ldb, &beta, c.data(), &ldb);
  EXPECT_TRUE(same_elements(expected, c));
}

template <class T>
constexpr zor_int order_of(bool hermitian) {
  return hermitian || std::is_same_v<T, double> ? 128 : std::is_same_v<T, float> ? 192 : 256;
}

TEST(SymmetricProduct, SizesFactorsAndLetters) {
  struct {
    zor_int m, n;
  } sizes[] = {{1, 1},   {3, 9},   {17, 5},  {20, 33}, {130, 3},
               {7, 131}, {270, 4}, {5, 300}, {552, 8}, {8, 1048}};
  for (const char* letters : {"LU", "LL", "RU", "RL"})
    for (const factors& f : all_factors)
      for (const auto& s : sizes) {
        if (s.m + s.n > 100 && f.alpha[0] == 0) continue;
        // Four blocks and more, whose products share panels.
        if (s.m + s.n > 500 && (&f != all_factors + 1 || zor_ref::fuses_in_software())) continue;
        const zor_int pad = s.m % 2;
#define ROW_SYMM(name, T, form)                                                               \
  {                                                                                           \
    constexpr bool hermitian = #form[0] == 'h';                                               \
    check_symm<T>(#name, name, hermitian, order_of<T>(hermitian), letters, s.m, s.n, pad, f); \
  }
#include "zor/tables/blas_level3.inc"
      }
}

}  // namespace
