// SPDX-License-Identifier: MIT
// Triangular solves and products with many right-hand sides: bits against the stated blocks in plain loops,
// and what is not read (the other triangle, a unit diagonal, everything around the operands).
#include <complex>
#include <string>
#include <vector>

#include "tests/ref/level3.h"
#include "tests/support/elements.h"
#include "zor/blas.h"
#include "zor/signatures/blas.h"

namespace {

using namespace zor_test;

struct triangular_case {
  const char* letters;  // side, uplo, trans, diag
  zor_int m, n, pad;
  double alpha[2];
  bool at_end;
};

std::ostream& operator<<(std::ostream& out, const triangular_case& c) {
  return out << c.letters << " m=" << c.m << " n=" << c.n << " pad=" << c.pad << " alpha=" << c.alpha[0]
             << "," << c.alpha[1] << " at_end=" << c.at_end;
}

// The triangle in place of A: NaN wherever it must not be read; the diagonal large enough to divide by.
template <class T>
void fill_triangle(guarded<T>& a, zor_int order, zor_int lda, char uplo, char diag, random_bits& random) {
  fill_nan(a);
  for (zor_int j = 0; j < order; ++j)
    for (zor_int i = uplo == 'L' ? j : 0; i < (uplo == 'L' ? order : j + 1); ++i) {
      T& e = a[size_t(i + j * lda)];
      if (i != j)
        e = scalar<T>(random.unit() / double(order), random.unit() / double(order));
      else if (diag != 'U')
        e = scalar<T>(1.5 + random.unit() / 4, random.unit());
    }
}

enum class task { solve, multiply };

template <class T>
void check(const char* name, zor::xtrsm_fn<T>* kernel, task t, const triangular_case& q) {
  SCOPED_TRACE(::testing::Message() << name << " " << q);
  const char *side = q.letters, *uplo = side + 1, *trans = side + 2, *diag = side + 3;
  random_bits random(uint64_t(q.m * 1009 + q.n));
  const zor_int order = *side == 'L' ? q.m : q.n, lda = order + q.pad, ldb = q.m + q.pad;
  guarded<T> a(extent(order, order, lda), q.at_end), b(extent(q.m, q.n, ldb), q.at_end, 8);
  fill_triangle(a, order, lda, *uplo, *diag, random);
  fill_nan(b);
  for (zor_int j = 0; j < q.n; ++j)
    for (zor_int i = 0; i < q.m; ++i) b[size_t(i + j * ldb)] = random_element<T>(random);
  std::vector<T> expected(b.begin(), b.end());
  const T alpha = scalar<T>(q.alpha[0], q.alpha[1]);
  const zor_ref::triangular<T> r{*side, *uplo,    *trans, *diag,           q.m, q.n,
                                 alpha, a.data(), lda,    expected.data(), ldb};
  t == task::solve ? zor_ref::trsm(r) : zor_ref::trmm(r);
  kernel(side, uplo, trans, diag, &q.m, &q.n, &alpha, a.data(), &lda, b.data(), &ldb);
  ASSERT_TRUE(same_elements(expected, b));
}

template <class Body>
void for_letters(const Body& body) {
  for (const char* side : {"L", "R"})
    for (const char* uplo : {"U", "L"})
      for (const char* trans : {"N", "T", "C"})
        for (const char* diag : {"N", "U"}) body((std::string(side) + uplo + trans + diag).c_str());
}

void check_all(const triangular_case& q) {
#define ROW_XTRSM(name, T) check<T>(#name, name, task::solve, q);
#define ROW_XTRMM(name, T) check<T>(#name, name, task::multiply, q);
#include "zor/tables/blas_level3.inc"
}

TEST(Triangular, SmallSizes) {
  for_letters([](const char* letters) {
    for (zor_int m = 1; m <= 19; ++m)
      for (zor_int n : {1, 2, 5, 8, 11, 17})
        check_all({letters, m, n, m % 3, {m % 4 == 0 ? 1.0 : -0.75, n % 2 ? 0.5 : 0.0}, m % 2 == 0});
  });
}

TEST(Triangular, BordersOfBlocks) {
  const zor_int orders[] = {31, 32, 33, 63, 64, 65, 129, 257}, others[] = {3, 14, 10, 9, 17, 8, 6, 5};
  int round = 0;
  for_letters([&](const char* letters) {
    for (int i = round++ % 3; i < 8; i += 3) {
      const bool left = letters[0] == 'L';
      check_all({letters,
                 left ? orders[i] : others[i],
                 left ? others[i] : orders[i],
                 i % 2,
                 {0.5, 1.0},
                 i % 3 == 0});
    }
  });
}

// Blocks of the right-hand sides, and of 512 rows of a transposed product.
TEST(Triangular, ManyRightHandSides) {
  for (const char* letters : {"LUNN", "LLTN", "LUCU", "RUTN", "RLNU"}) {
    const bool left = letters[0] == 'L';
    check_all({letters, left ? 18 : 1030, left ? 1030 : 18, 1, {1.0, 0.0}, true});
    check_all({letters, left ? 531 : 3, left ? 3 : 531, 0, {2.0, 0.0}, false});
  }
}

// An alpha of 0 clears B, whatever A and B hold; a zero on the diagonal gives infinities without a word.
TEST(Triangular, SpecialValues) {
  const auto run = []<class T>(const char* name, zor::xtrsm_fn<T>* kernel, T) {
    SCOPED_TRACE(name);
    const zor_int n = 20, none = 0, ld = 20;
    guarded<T> a(400), b(400);
    fill_nan(a), fill_nan(b);
    const T zero{}, one = scalar<T>(1, 0);
    kernel("L", "U", "N", "N", &n, &none, &one, a.data(), &ld, nullptr, &ld);
    kernel("L", "U", "N", "N", &n, &n, &zero, a.data(), &ld, b.data(), &ld);
    for (const T& e : b) ASSERT_TRUE(zor_ref::is(e, 0));
  };
#define ROW_XTRSM(name, T) run(#name, name, T{});
#define ROW_XTRMM(name, T) run(#name, name, T{});
#include "zor/tables/blas_level3.inc"
  const zor_int two = 2;
  const double one = 1, a[4] = {0, 0, 3, 2};
  double b[4] = {4, 5, 6, 7};
  zor_blas_xdtrsm("L", "L", "N", "N", &two, &two, &one, a, &two, b, &two);
  EXPECT_TRUE(std::isinf(b[0]) && std::isinf(b[2]));
}

}  // namespace
