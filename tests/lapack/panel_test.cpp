// SPDX-License-Identifier: MIT
// Panels of reductions against plain loops: bits, and nothing touched outside the trapezoid; all classes of
// alignment.
#include <algorithm>

#include "tests/lapack/twin.h"
#include "tests/ref/lapack.h"
#include "zor/signatures/lapack.h"

namespace {

using namespace zor_test;

// The letter, order, columns, and the leading dimension beyond the order.
struct shape {
  char uplo;
  zor_int n, k, pad;
  bool upper() const { return uplo == 'U' || uplo == 'u'; }
};

template <class Check>
void for_shapes(const Check& check) {
  size_t iteration = 0;
  for (const zor_int n : {0, 1, 2, 3, 4, 5, 8, 9, 11, 16, 19, 34, 67})
    for (const zor_int k : {0, 1, 2, 3, 4, 5, 6, 9, 16, 33, 67})
      for (const char uplo : {'U', 'l', 'u', 'x'})
        if (k <= n) check(shape{uplo, n, k, zor_int(++iteration % 3)}, iteration);
}

// Increments, options and scalars that are accepted and not read stand behind null pointers.
template <class T>
struct panel {
  panel(shape s, size_t iteration, random_bits& random)
      : ld(std::max<zor_int>(s.n, 1) + s.pad),
        a(span(s.n, s.n, ld), placements[iteration % std::size(placements)], random,
          iteration % 4 == 0 ? content::special : content::plain),
        x(size_t(s.n), placements[iteration / 2 % std::size(placements)], random),
        y(size_t(s.n), placements[iteration / 3 % std::size(placements)], random) {
    // What lies outside the trapezoid is never read.
    for (zor_int j = 0; j < s.n; ++j)
      for (zor_int i = 0; i < s.n; ++i) {
        const bool inside = s.upper() ? j >= s.n - s.k && i <= j : j < s.k && i >= j;
        if (!inside) a.set(size_t(i + j * ld) * parts<T>, real<T>(NAN));
      }
  }
  const zor_int ld;
  twin<T> a, x, y;
};

template <class T>
void check_symv(const char* name, zor::symv_nb_fn<T>* kernel) {
  random_bits random(21);
  const T alpha = scalar<T>(0.7, -0.3), betas[] = {scalar<T>(0, 0), scalar<T>(1, 0), scalar<T>(-0.6, 0.2)};
  for_shapes([&](shape s, size_t iteration) {
    panel<T> p(s, iteration, random);
    const T beta = betas[iteration % 3];
    if (iteration % 3 == 0 && s.n > 0) p.y.set(0, real<T>(NAN));
    EXPECT_TRUE(agree(
        [&](bool k) {
          if (k)
            kernel(&s.uplo, &s.n, &s.k, &alpha, p.a(k), &p.ld, p.x(k), nullptr, &beta, p.y(k));
          else
            zor_ref::symv_nb(s.upper(), s.n, s.k, alpha, p.a(k), p.ld, p.x(k), beta, p.y(k));
        },
        p.y, p.a, p.x))
        << name << " " << s.uplo << " n " << s.n << " k " << s.k << " iteration " << iteration;
  });
}

template <class T>
void check_syr2(const char* name, zor::syr2_nb_fn<T>* kernel) {
  random_bits random(22);
  const T alpha = scalar<T>(0.7, -0.3);
  for_shapes([&](shape s, size_t iteration) {
    panel<T> p(s, iteration, random);
    EXPECT_TRUE(agree(
        [&](bool k) {
          if (k)
            kernel(&s.uplo, &s.n, &s.k, &alpha, p.x(k), nullptr, p.y(k), nullptr, p.a(k), &p.ld);
          else
            zor_ref::syr2_nb(s.upper(), s.n, s.k, alpha, p.x(k), p.y(k), p.a(k), p.ld);
        },
        p.a, p.x, p.y))
        << name << " " << s.uplo << " n " << s.n << " k " << s.k << " iteration " << iteration;
  });
}

template <class T>
void check_syr2k(const char* name, zor::syr2k_nb_fn<T>* kernel) {
  random_bits random(23);
  for_shapes([&](shape s, size_t iteration) {
    panel<T> p(s, iteration, random);
    const zor_int depth = zor_int(iteration % 7);
    twin<T> a(span(s.n, depth, p.ld), placements[iteration % std::size(placements)], random),
        b(span(s.n, depth, p.ld), placements[iteration % std::size(placements)], random);
    EXPECT_TRUE(agree(
        [&](bool k) {
          if (k)
            kernel(&s.uplo, nullptr, &s.n, &depth, &s.k, nullptr, a(k), &p.ld, b(k), &p.ld, nullptr, p.a(k),
                   &p.ld);
          else
            zor_ref::syr2k_nb(s.upper(), s.n, depth, s.k, a(k), p.ld, b(k), p.ld, p.a(k), p.ld);
        },
        p.a, a, b))
        << name << " " << s.uplo << " n " << s.n << " columns " << s.k << " depth " << depth;
  });
}

TEST(Panels, BitsAndFlagsOfThePlainLoops) {
#define ROW_SYMV_NB(name, T) check_symv<T>(#name, name);
#define ROW_SYR2_NB(name, T) check_syr2<T>(#name, name);
#define ROW_SYR2K_NB(name, T) check_syr2k<T>(#name, name);
#include "zor/tables/lapack.inc"
}

template <class T>
void check_spr(const char* name, zor::cspr_fn<T>* kernel) {
  random_bits random(24);
  size_t iteration = 0;
  for (const zor_int n : {0, 1, 2, 3, 5, 8, 13, 40})
    for (const zor_int incx : {1, 2, -1, -3})
      for (const char uplo : {'U', 'L', 'u', 'x'}) {
        const T alpha = ++iteration % 5 == 0 ? T{} : scalar<T>(0.7, -0.3);
        twin<T> x(n > 0 ? size_t((n - 1) * std::abs(incx) + 1) : 0,
                  placements[iteration % std::size(placements)], random),
            ap(size_t(n * (n + 1) / 2), placements[iteration / 2 % std::size(placements)], random);
        // A column of zero is left alone, whatever the others hold.
        if (n > 2) x.set(0, 0), x.set(1, 0), ap.set(0, real<T>(INFINITY));
        const bool upper = uplo == 'U' || uplo == 'u';
        EXPECT_TRUE(agree(
            [&](bool k) {
              if (k)
                kernel(&uplo, &n, &alpha, x(k), &incx, ap(k));
              else
                zor_ref::spr(upper, n, alpha, static_cast<const T*>(x(k)), incx, ap(k));
            },
            ap, x))
            << name << " " << uplo << " n " << n << " incx " << incx;
      }
}

TEST(Cspr, BitsAndFlagsOfThePlainLoops) {
#define ROW_CSPR(name, T) check_spr<T>(#name, name);
#include "zor/tables/lapack.inc"
}

template <class T>
void check_larfx(const char* name, zor::larfx_fn<T>* kernel) {
  random_bits random(25);
  size_t iteration = 0;
  for (const zor_int order : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 30})
    for (const zor_int lines : {0, 1, 2, 5, 9, 33})
      for (const char side : {'L', 'l', 'R', 'x'}) {
        const bool left = side == 'L' || side == 'l';
        const zor_int m = left ? order : lines, n = left ? lines : order,
                      ldc = std::max<zor_int>(m, 1) + zor_int(++iteration % 3);
        const placement where = placements[iteration % std::size(placements)];
        const T tau = scalar<T>(1.3, 0.4);
        twin<T> v(size_t(order), where, random), c(span(m, n, ldc), where, random),
            work(size_t(lines), where, random);
        EXPECT_TRUE(agree(
            [&](bool k) {
              // Short reflectors need no memory.
              if (k)
                kernel(&side, &m, &n, v(k), &tau, c(k), &ldc, order > 10 ? work(k) : nullptr);
              else
                zor_ref::larfx(left, m, n, v(k), tau, c(k), ldc);
            },
            c, v))
            << name << " " << side << " m " << m << " n " << n;
      }
}

TEST(Larfx, BitsAndFlagsOfThePlainLoops) {
#define ROW_LARFX(name, T) check_larfx<T>(#name, name);
#include "zor/tables/lapack.inc"
}

}  // namespace
