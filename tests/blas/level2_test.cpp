// SPDX-License-Identifier: MIT
// The kernels of Level 2 beside gemv, syr and spr against plain loops: bits, exception flags, and what lies
// between and around the operands. Elements that no kernel may read are signalling NaN, and every operand
// ends or begins at an unmapped page.
#include <cmath>
#include <vector>

#include "tests/ref/level2.h"
#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "zor/blas.h"

namespace {

using namespace zor_test;
using zor_ref::layout;
using kind = layout::kind;

bool is_upper(char uplo) { return uplo == 'U' || uplo == 'u'; }

// How the operands of a case lie, and the scalars of the call.
struct setting {
  zor_int incx, incy, pad;
  bool at_end;
  size_t shift;
  double alpha[2], beta[2];
};
const setting settings[] = {
    {1, 1, 0, true, 0, {-0.7, 0.3}, {0.6, -0.2}}, {1, 1, 3, false, 0, {1, 0}, {1, 0}},
    {1, 1, 1, false, 8, {0.5, 1}, {0, 0}},        {1, 1, 2, true, 8, {-1, 0}, {-1, 0}},
    {2, 1, 1, true, 0, {-0.7, 0.3}, {0.6, -0.2}}, {1, -3, 0, true, 0, {1.25, -2}, {1, 0}},
    {-1, -1, 2, false, 8, {-0.7, 0.3}, {0.5, 1}}, {-2, 3, 0, false, 0, {3, 0}, {0, 0}},
    {1, 1, 0, true, 0, {0, 0}, {0, 0}},           {1, 2, 0, true, 0, {0, 0}, {2, 1}},
    {2, 1, 1, false, 0, {0, 0}, {1, 0}},          {1, 1, 0, true, 0, {NAN, 0}, {1, 0}},
    {-1, 1, 0, true, 0, {INFINITY, 0}, {NAN, 0}}};

// One matrix and two vectors; what a call may not read holds signalling NaN.
template <class T>
struct operands {
  layout l;
  zor_int incx, incy;
  guarded<T> a, x, y;
  T alpha, beta;
  random_bits random;

  operands(const layout& stored, zor_int nx, zor_int ny, const setting& s, uint64_t seed)
      : l(stored),
        incx(s.incx),
        incy(s.incy),
        a(l.size(), s.at_end, s.shift),
        x(extent(nx, incx), s.at_end, s.shift),
        y(extent(ny, incy), !s.at_end, 8 - s.shift),
        alpha(scalar<T>(s.alpha[0], s.alpha[1])),
        beta(scalar<T>(s.beta[0], s.beta[1])),
        random(seed) {
    fill_nan(a), fill_nan(x), fill_nan(y);
    for (zor_int j = 0; j < l.n; ++j)
      for (zor_int i = l.first(j); i < l.end(j); ++i) a[l.place(i, j)] = sample();
    for (zor_int i = 0; i < nx; ++i) x[size_t(i * std::abs(incx))] = sample();
    for (zor_int i = 0; i < ny; ++i) y[size_t(i * std::abs(incy))] = sample();
  }
  T sample() { return random_element<T>(random); }
  // One more special value at a place of each vector, which depends on the seed.
  void plant(guarded<T>& v, zor_int inc, std::initializer_list<double> values) {
    for (const double value : values) {
      const zor_int n = zor_int(v.size()) / std::abs(inc);
      if (n > 3) v[size_t(random.between(0, n - 1) * std::abs(inc))] = scalar<T>(value, 0);
    }
  }
};

// The settings that differ in more than scalars come first.
constexpr size_t placements = 8;

const zor_int sizes[] = {0, 1, 2, 3, 5, 8, 16, 17, 32, 33, 63, 64, 67, 130};

template <class T>
constexpr double subnormal = std::is_same_v<real<T>, float> ? 1e-45 : 5e-324;

// ---- General matrices.

template <class T, class Kernel>
void check_ger(const char* name, bool conjugate, Kernel kernel) {
  uint64_t iteration = 0;
  const auto check = [&](zor_int m, zor_int n, const setting& s) {
    SCOPED_TRACE(::testing::Message() << name << " m=" << m << " n=" << n << " setting " << &s - settings);
    operands<T> o({kind::full, false, m, n, m, n, m + s.pad + (m < 1)}, m, n, s, ++iteration);
    o.plant(o.y, s.incy, {0, -0.0, subnormal<T>, double(NAN)});
    if (iteration % 4 == 0) o.plant(o.x, s.incx, {INFINITY, NAN});
    compare(
        o.a,
        [&](T* a) {
          zor_ref::ger(conjugate, m, n, o.alpha, o.x.data(), o.incx, o.y.data(), o.incy, a, o.l.lda);
        },
        [&](T* a) { kernel(&m, &n, &o.alpha, o.x.data(), &o.incx, o.y.data(), &o.incy, a, &o.l.lda); });
  };
  for (const zor_int m : sizes)
    for (const zor_int n : {zor_int(0), zor_int(1), zor_int(5), zor_int(19)})
      for (const setting& s : settings) check(m, n, s);
  check(2003, 5, settings[4]);
  check(40000, 2, settings[0]);
}

TEST(Level2, RankOneUpdatesOfGeneralMatrices) {
#define ROW_XGER(name, T, conj) check_ger<T>(#name, conj, name);
#include "zor/tables/blas_level2.inc"
}

template <class T, class Kernel>
void check_gbmv(const char* name, Kernel kernel) {
  struct {
    zor_int m, n, kl, ku;
  } const shapes[] = {{1, 1, 0, 0},       {5, 5, 1, 2},      {17, 17, 10, 10},  {40, 33, 3, 0},
                      {33, 40, 0, 4},     {64, 64, 20, 9},   {9, 30, 2, 3},     {30, 9, 4, 1},
                      {70, 70, 69, 69},   {20, 20, 30, 40},  {0, 4, 1, 1},      {4, 0, 1, 1},
                      {130, 90, 40, 35},  {12, 50, 20, 20},  {300, 70, 299, 0}, {90, 300, 0, 250},
                      {300, 310, 10, 10}, {1500, 3, 1400, 0}};
  uint64_t iteration = 0;
  for (const auto& shape : shapes)
    for (const char trans : {'N', 't', 'C'})
      for (const setting& s : settings) {
        SCOPED_TRACE(::testing::Message()
                     << name << " " << trans << " " << shape.m << " by " << shape.n << " kl=" << shape.kl
                     << " ku=" << shape.ku << " setting " << &s - settings);
        const bool plain = trans == 'N';
        operands<T> o(
            {kind::band, false, shape.m, shape.n, shape.kl, shape.ku, shape.kl + shape.ku + 1 + s.pad},
            plain ? shape.n : shape.m, plain ? shape.m : shape.n, s, ++iteration);
        if (iteration % 5 == 0) o.plant(o.x, s.incx, {INFINITY, 0});
        compare(
            o.y,
            [&](T* y) {
              zor_ref::gbmv(o.l, trans, o.alpha, o.a.data(), o.x.data(), o.incx, o.beta, y, o.incy);
            },
            [&](T* y) {
              kernel(&trans, &shape.m, &shape.n, &shape.kl, &shape.ku, &o.alpha, o.a.data(), &o.l.lda,
                     o.x.data(), &o.incx, &o.beta, y, &o.incy);
            });
      }
}

TEST(Level2, ProductsWithBandMatrices) {
#define ROW_XGBMV(name, T) check_gbmv<T>(#name, name);
#include "zor/tables/blas_level2.inc"
}

// ---- Triangles. call(layout, uplo, n, k, a, ...) passes what the storage asks for.

const zor_int reaches[] = {0, 1, 3, 10, 27, 40, 66};

// Calls body(uplo, layout, setting) for all sizes, both triangles and, if banded, several reaches.
template <class Body>
void for_triangles(kind stored, const Body& body) {
  for (const zor_int n : sizes)
    for (const char uplo : {'U', 'l'})
      for (const zor_int reach : reaches) {
        if (stored != kind::band && reach != 1) continue;
        for (const setting& s : settings) {
          const zor_int k = stored == kind::band ? reach : n - 1;
          const zor_int lda = stored == kind::band ? k + 1 + s.pad : n + s.pad + (n < 1);
          SCOPED_TRACE(::testing::Message()
                       << uplo << " n=" << n << " k=" << k << " setting " << &s - settings);
          body(uplo, layout::triangle(stored, is_upper(uplo), n, k, lda), s);
        }
      }
}

// The imaginary parts of a Hermitian diagonal are not read; updates make them 0.
template <class T>
void spoil_diagonal(operands<T>& o, bool hermitian) {
  for (zor_int j = 0; j < o.l.n && hermitian; ++j)
    reals(&o.a[o.l.place(j, j)])[1] = std::numeric_limits<real<T>>::signaling_NaN();
}

template <class T, class Call>
void check_symv(const char* name, kind stored, bool hermitian, const Call& call) {
  SCOPED_TRACE(name);
  uint64_t iteration = 0;
  for_triangles(stored, [&](char uplo, const layout& l, const setting& s) {
    operands<T> o(l, l.n, l.n, s, ++iteration);
    if (iteration % 5 == 0) o.plant(o.x, s.incx, {INFINITY, 0, double(NAN)});
    spoil_diagonal(o, hermitian);
    compare(
        o.y,
        [&](T* y) {
          zor_ref::symv(l, hermitian, o.alpha, o.a.data(), o.x.data(), o.incx, o.beta, y, o.incy);
        },
        [&](T* y) { call(&uplo, l, &o.alpha, o.a.data(), o.x.data(), &o.incx, &o.beta, y, &o.incy); });
  });
}

TEST(Level2, ProductsWithSymmetricMatrices) {
#define ROW_XSYMV(name, T, hermitian)                                                             \
  check_symv<T>(#name, kind::full, hermitian,                                                     \
                [](const char* uplo, const layout& l, const T* alpha, const T* a, auto... rest) { \
                  name(uplo, &l.n, alpha, a, &l.lda, rest...);                                    \
                });
#define ROW_XSBMV(name, T, hermitian)                                                             \
  check_symv<T>(#name, kind::band, hermitian,                                                     \
                [](const char* uplo, const layout& l, const T* alpha, const T* a, auto... rest) { \
                  const zor_int k = l.kl + l.ku;                                                  \
                  name(uplo, &l.n, &k, alpha, a, &l.lda, rest...);                                \
                });
#define ROW_XSPMV(name, T, hermitian)                                                             \
  check_symv<T>(#name, kind::packed, hermitian,                                                   \
                [](const char* uplo, const layout& l, const T* alpha, const T* a, auto... rest) { \
                  name(uplo, &l.n, alpha, a, rest...);                                            \
                });
#include "zor/tables/blas_level2.inc"
}

template <class T, class Call>
void check_rank_one(const char* name, kind stored, bool hermitian, const Call& call) {
  SCOPED_TRACE(name);
  uint64_t iteration = 0;
  const auto check = [&](char uplo, const layout& l, const setting& s) {
    operands<T> o(l, l.n, 0, s, ++iteration);
    o.plant(o.x, s.incx, {0, subnormal<T>, -0.0});
    if (iteration % 5 == 0) o.plant(o.x, s.incx, {INFINITY});
    spoil_diagonal(o, hermitian);
    const real<T> alpha = reals(&o.alpha)[0];
    compare(
        o.a, [&](T* a) { zor_ref::rank_one(l, hermitian, alpha, o.x.data(), o.incx, a); },
        [&](T* a) { call(&uplo, &l.n, &alpha, o.x.data(), &o.incx, a, &l.lda); });
  };
  for_triangles(stored, check);
  for (const char uplo : {'U', 'L'})
    check(uplo, layout::triangle(stored, is_upper(uplo), 1103, 1102, 1104), settings[4]);
}

template <class T, class Call>
void check_rank_two(const char* name, kind stored, bool hermitian, const Call& call) {
  SCOPED_TRACE(name);
  uint64_t iteration = 0;
  const auto check = [&](char uplo, const layout& l, const setting& s) {
    operands<T> o(l, l.n, l.n, s, ++iteration);
    if (iteration % 2 == 0 && l.n > 0)  // a column that is left alone
      o.x[size_t(l.n / 2 * std::abs(s.incx))] =
          o.y[size_t((s.incx < 0) == (s.incy < 0) ? l.n / 2 * std::abs(s.incy)
                                                  : (l.n - 1 - l.n / 2) * std::abs(s.incy))] = T{};
    if (iteration % 3 == 0) o.plant(o.x, s.incx, {0, subnormal<T>}), o.plant(o.y, s.incy, {-0.0});
    if (iteration % 5 == 0) o.plant(o.x, s.incx, {INFINITY, double(NAN)});
    spoil_diagonal(o, hermitian);
    compare(
        o.a,
        [&](T* a) { zor_ref::rank_two(l, hermitian, o.alpha, o.x.data(), o.incx, o.y.data(), o.incy, a); },
        [&](T* a) { call(&uplo, &l.n, &o.alpha, o.x.data(), &o.incx, o.y.data(), &o.incy, a, &l.lda); });
  };
  for_triangles(stored, check);
  for (const char uplo : {'U', 'L'})
    check(uplo, layout::triangle(stored, is_upper(uplo), 1103, 1102, 1104), settings[7]);
}

TEST(Level2, RankUpdatesOfTriangles) {
#define ROW_XHER(name, T, R) check_rank_one<T>(#name, kind::full, true, name);
#define PACKED_UPDATE(name, T, hermitian)                                                         \
  check_rank_one<T>(#name, kind::packed, hermitian,                                               \
                    [](auto uplo, auto n, auto alpha, auto x, auto incx, T* ap, const zor_int*) { \
                      name(uplo, n, alpha, x, incx, ap);                                          \
                    });
#define ROW_XHPR(name, T, R) PACKED_UPDATE(name, T, true)
#define ROW_XSYR2(name, T, hermitian) check_rank_two<T>(#name, kind::full, hermitian, name);
#define ROW_XSPR2(name, T, hermitian)                                                              \
  check_rank_two<T>(#name, kind::packed, hermitian,                                                \
                    [](auto uplo, auto n, auto alpha, auto x, auto incx, auto y, auto incy, T* ap, \
                       const zor_int*) { name(uplo, n, alpha, x, incx, y, incy, ap); });
#include "zor/tables/blas_level2.inc"
#define ROW_XSYR(name, T) check_rank_one<T>(#name, kind::full, false, name);
#define ROW_SPR(name, T) PACKED_UPDATE(name, T, false)
#include "zor/tables/blas_matvec.inc"
#undef PACKED_UPDATE
}

enum class task { solve, multiply };

// Small elements beside the diagonal keep the solution of a solve of any size in range.
template <class T, class Call>
void check_triangular(const char* name, kind stored, task what, zor_int block, const Call& call) {
  SCOPED_TRACE(name);
  uint64_t iteration = 0;
  const auto check = [&](char uplo, const layout& l, const setting& s) {
    if (size_t(&s - settings) >= placements) return;
    for (const char trans : {'N', 't', 'c'})
      for (const char diag : {'n', 'U'}) {
        SCOPED_TRACE(::testing::Message() << trans << diag);
        operands<T> o(l, l.n, 0, s, ++iteration);
        const bool unit = diag == 'U';
        for (zor_int j = 0; j < l.n; ++j)
          for (zor_int i = l.first(j); i < l.end(j); ++i) {
            real<T>* const e = reals(&o.a[l.place(i, j)]);
            for (size_t h = 0; h < parts<T>; ++h) {
              if (i != j)
                e[h] = real<T>(double(e[h]) / double(l.n));
              else if (unit)
                e[h] = std::numeric_limits<real<T>>::signaling_NaN();
            }
          }
        if (iteration % 7 == 0) o.plant(o.x, s.incx, {0, INFINITY});
        if (iteration % 11 == 0 && !unit && l.n > 2) o.a[l.place(l.n / 2, l.n / 2)] = T{};
        compare(
            o.x,
            [&](T* x) {
              if (stored == kind::full)
                zor_ref::blocked(l, what == task::solve, block, o.a.data(), trans, unit, x, o.incx);
              else if (what == task::solve)
                zor_ref::solve_rows(l, o.a.data(), trans, unit, x, o.incx, 0, l.n);
              else
                zor_ref::multiply_rows(l, o.a.data(), trans, unit, x, o.incx, 0, l.n);
            },
            [&](T* x) { call(&uplo, &trans, &diag, l, o.a.data(), x, &o.incx); });
      }
  };
  for_triangles(stored, check);
  // Beyond 1000 elements the rectangles of strided vectors are staged.
  if (stored == kind::full)
    for (const char uplo : {'U', 'L'})
      check(uplo, layout::triangle(stored, is_upper(uplo), 1041, 1040, 1042),
            settings[iteration % 2 ? 4 : 0]);
}

#define FULL(name, T, what, block)                                                                      \
  check_triangular<T>(#name, kind::full, what, block,                                                   \
                      [](auto uplo, auto trans, auto diag, const layout& l, const T* a, auto... rest) { \
                        name(uplo, trans, diag, &l.n, a, &l.lda, rest...);                              \
                      });
#define BAND(name, T, what)                                                                             \
  check_triangular<T>(#name, kind::band, what, 0,                                                       \
                      [](auto uplo, auto trans, auto diag, const layout& l, const T* a, auto... rest) { \
                        const zor_int k = l.kl + l.ku;                                                  \
                        name(uplo, trans, diag, &l.n, &k, a, &l.lda, rest...);                          \
                      });
#define PACKED(name, T, what)                                                                           \
  check_triangular<T>(#name, kind::packed, what, 0,                                                     \
                      [](auto uplo, auto trans, auto diag, const layout& l, const T* a, auto... rest) { \
                        name(uplo, trans, diag, &l.n, a, rest...);                                      \
                      });

TEST(Level2, TriangularProducts){
#define ROW_XTRMV(name, T) FULL(name, T, task::multiply, 64)
#define ROW_XTBMV(name, T) BAND(name, T, task::multiply)
#define ROW_XTPMV(name, T) PACKED(name, T, task::multiply)
#include "zor/tables/blas_level2.inc"
}

TEST(Level2, TriangularSolves) {
#define ROW_XTRSV(name, T) FULL(name, T, task::solve, 32)
#define ROW_XTBSV(name, T) BAND(name, T, task::solve)
#define ROW_XTPSV(name, T) PACKED(name, T, task::solve)
#include "zor/tables/blas_level2.inc"
}

}  // namespace
