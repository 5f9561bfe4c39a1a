// SPDX-License-Identifier: MIT
// Every product and solve with profiles against loops over the references of dot and axpy, bit for bit. A
// dot's sum depends on positions within 16 bytes, so that what is expected stands at the same ones.
#include <gtest/gtest.h>

#include "tests/ref/vector.h"
#include "tests/spblas/sides.h"
#include "zor/signatures/spblas.h"

namespace {

using namespace sparse_test;

template <class T>
T dot(int64_t n, const T* x, const T* y) {
  if constexpr (parts<T> == 2)
    return ref::cdot<T, false>(n, x, 1, y, 1);
  else
    return ref::dot<T>(n, x, 1, y, 1);
}
template <class T>
void axpy(int64_t n, T alpha, const T* x, T* y) {
  ref::axpy<T>(n, alpha, x, 1, y, 1);
}

// Profiles of the lower triangle with up to `longest` elements.
template <class T, class I>
struct profiles {
  I m;
  guarded<I> pntr;
  guarded<T> val;

  profiles(random_bits& random, int64_t rows, int64_t longest)
      : m(I(rows)), pntr(size_t(rows) + 1), val(lengths(random, longest)) {
    fill(random, val.data(), val.size());
    for (int64_t r = 1; r <= rows; ++r) {
      reals(diagonal(r))[0] = random.between(0, 1) ? real<T>(2) : real<T>(-0.5);
    }
  }
  auto arguments() { return zor_test::list_of(val.data(), pntr.data()); }
  int64_t length(int64_t r) const { return pntr[size_t(r)] - pntr[size_t(r - 1)]; }
  T* first(int64_t r) { return val.data() + (pntr[size_t(r - 1)] - pntr[0]); }
  T* diagonal(int64_t r) { return first(r) + length(r) - 1; }

 private:
  size_t lengths(random_bits& random, int64_t longest) {
    pntr[0] = 4;
    for (int64_t r = 1; r <= m; ++r)
      pntr[size_t(r)] = I(pntr[size_t(r - 1)] + random.between(1, std::min(r, longest)));
    return size_t(pntr[size_t(m)] - pntr[0]);
  }
};

struct sizes {
  int64_t m, longest, n;
};
const sizes all_sizes[] = {{1, 1, 1}, {5, 1, 2}, {12, 12, 3}, {60, 40, 1}, {150, 90, 4}};
struct flags {
  int first, second, diag;
};
const flags all_flags[] = {{0, 0, 1}, {1, 5, 0}, {0, 1, 1}, {2, 0, 0}};

enum class form { triangular, skew, symmetric };

// One right-hand side by dots and axpys, rows one after the other.
template <class T, class I>
void expected_product(form what, bool differ, bool stored, profiles<T, I>& a, T alpha, const T* b, T* c) {
  using namespace zor_ref;
  const T zero{}, t0 = differ ? minus(zero, alpha) : alpha;
  for (int64_t r = 1; r <= a.m; ++r) {
    const int64_t strict = a.length(r) - 1, used = strict + (stored ? 1 : 0), at = r - a.length(r);
    if (what == form::skew && strict == 0) continue;
    if (what == form::triangular && differ) {
      axpy(used, times(alpha, b[r - 1]), a.first(r), c + at);
      continue;
    }
    const T s = dot(what == form::skew ? strict : used, a.first(r), b + at);
    c[r - 1] = plus(c[r - 1], times(s, what == form::skew ? t0 : alpha));
    if (what == form::symmetric) axpy(strict, times(b[r - 1], alpha), a.first(r), c + at);
    if (what == form::skew) axpy(strict, times(minus(zero, t0), b[r - 1]), a.first(r), c + at);
  }
}

template <class T, class I, class Call>
void check_product(const char* name, form what, const Call& call) {
  for (const sizes& z : all_sizes) {
    for (const flags& f : all_flags) {
      random_bits random(uint64_t(z.m));
      profiles<T, I> a(random, z.m, z.longest);
      sides<T> b(random, z.m, z.n, false, 2), c(random, z.m, z.n, false, 3);
      const T alpha = draw<T>(random);
      const bool differ = what != form::symmetric && (f.first != 0) != (f.second != 0);
      guarded<T> expected(c.all.size());
      std::copy(c.all.begin(), c.all.end(), expected.begin());
      for (int64_t j = 1; j <= z.n; ++j) {
        const auto out = c.column(expected.data(), j);
        expected_product(what, differ, f.diag != 0, a, alpha, b.get(j).data, out.data);
      }
      check_call(std::string(name) + ", m " + std::to_string(z.m) + ", flags " + std::to_string(f.first) +
                     std::to_string(f.second) + std::to_string(f.diag),
                 std::vector<T>(expected.begin(), expected.end()), c.all,
                 [&] { call(z.m, f, z.n, zor_test::list_of(alpha) + a.arguments(), b, c); });
    }
  }
}

TEST(SkyProduct, Views) {
#define ARGUMENTS const flags &given, int64_t n, const auto &of, auto &b, auto &c
#define ROW_SKY_TRIANGULAR(name, T, I)                                          \
  check_product<T, I>(#name, form::triangular, [](int64_t m, ARGUMENTS) {       \
    pass(name, given.first, nullptr, m, n, given.second, given.diag, of, b, c); \
  });
#define ROW_SKY_SKEW(name, T, I)                                    \
  check_product<T, I>(#name, form::skew, [](int64_t m, ARGUMENTS) { \
    pass(name, given.first, nullptr, m, n, given.second, of, b, c); \
  });
#define ROW_SKY_SYMMETRIC(name, T, I)         \
  check_product<T, I>(#name, form::symmetric, \
                      [](int64_t m, ARGUMENTS) { pass(name, nullptr, m, n, given.diag, of, b, c); });
#include "zor/tables/spblas_stems.inc"
}

template <class T, class I>
void check_solve(const char* name, zor::sky_solve_fn<T, I>* f) {
  using namespace zor_ref;
  for (const sizes& z : all_sizes) {
    for (const flags& given : all_flags) {
      random_bits random(uint64_t(z.m));
      profiles<T, I> a(random, z.m, z.longest);
      guarded<T> expected(size_t(z.m)), y(size_t(z.m));
      fill(random, expected.data(), expected.size());
      const bool differ = (given.first != 0) != (given.second != 0), stored = given.diag != 0;
      std::copy(expected.begin(), expected.end(), y.begin());
      for (int64_t n = 1; n <= z.m; ++n) {
        const int64_t r = differ ? z.m + 1 - n : n, strict = a.length(r) - 1;
        T *const from = expected.data() + r - 1 - strict, &at = expected[size_t(r - 1)];
        if (!differ) at = minus(at, dot(strict, a.first(r), static_cast<const T*>(from)));
        if (stored) at = over(at, *a.diagonal(r));
        if (differ) axpy(strict, minus(T{}, at), a.first(r), from);
      }
      pass(f, given.first, nullptr, given.second, given.diag, z.m, a, y);
      EXPECT_TRUE(zor_test::same_bits(reals(expected.data()), reals(y.data()), y.size() * parts<T>))
          << name << ", m " << z.m << ", flags " << given.first << given.second << given.diag;
    }
  }
}
TEST(SkySolve, BothDirections) {
#define ROW_SKY_SOLVE(name, T, I) check_solve<T, I>(#name, name);
#include "zor/tables/spblas_stems.inc"
}

}  // namespace
