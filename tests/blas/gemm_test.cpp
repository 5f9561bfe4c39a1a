// SPDX-License-Identifier: MIT
// The matrix product against plain loops: bits, exception flags, and what lies between and around the
// operands; the exported copies' formats. That integers are exact and errors bounded, the fuzz driver checks.
#include <immintrin.h>

#include <array>
#include <cfenv>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "tests/ref/gemm.h"
#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "zor/blas.h"

namespace {

using namespace zor_test;

// Where the operands of a call stand: rows by which a leading dimension exceeds the stored ones, the page at
// which they end or begin, and bytes by which they keep away from it.
struct layout {
  zor_int pad = 0;
  bool at_end = true;
  size_t shift = 0;
};

struct gemm_case {
  const char* letters;
  zor_int m, n, k;
  double alpha[2], beta[2];
  layout where = {};
};

std::ostream& operator<<(std::ostream& out, const gemm_case& c) {
  return out << c.letters << " m=" << c.m << " n=" << c.n << " k=" << c.k << " pad=" << c.where.pad
             << " alpha=" << c.alpha[0] << "," << c.alpha[1] << " beta=" << c.beta[0] << "," << c.beta[1]
             << " at_end=" << c.where.at_end << " shift=" << c.where.shift;
}

// A column-major operand between guard pages, NaN between its columns.
template <class T>
struct matrix {
  zor_int rows, columns, ld;
  guarded<T> data;
  matrix(zor_int r, zor_int c, const layout& where, random_bits& random)
      : rows(r < 0 ? 0 : r),
        columns(c < 0 ? 0 : c),
        ld(rows + where.pad),
        data(extent(rows, columns, ld), where.at_end, where.shift) {
    fill_nan(data);
    for (zor_int j = 0; j < columns; ++j)
      for (zor_int i = 0; i < rows; ++i) at(i, j) = random_element<T>(random);
  }
  T& at(zor_int i, zor_int j) { return data[size_t(i + j * ld)]; }
};

bool transposed(char letter) { return letter != 'N' && letter != 'n'; }

template <class T, class Kernel, class Spoil>
void check(const char* name, Kernel kernel, const gemm_case& q, const Spoil& spoil) {
  SCOPED_TRACE(::testing::Message() << name << " " << q);
  random_bits random(uint64_t(q.m * 10007 + q.n * 101 + q.k));
  const char ta = q.letters[0], tb = q.letters[1];
  matrix<T> a(transposed(ta) ? q.k : q.m, transposed(ta) ? q.m : q.k, q.where, random),
      b(transposed(tb) ? q.n : q.k, transposed(tb) ? q.k : q.n, q.where, random),
      c(q.m, q.n, q.where, random);
  spoil(a, b, c);
  const std::vector<T> a_before(a.data.begin(), a.data.end()), b_before(b.data.begin(), b.data.end());
  const T alpha = scalar<T>(q.alpha[0], q.alpha[1]), beta = scalar<T>(q.beta[0], q.beta[1]);
  const T *x = a.data.data(), *y = b.data.data();
  compare(
      c.data,
      [&](T* z) {
        zor_ref::gemm<T>({ta, tb, q.m, q.n, q.k, alpha, x, a.ld, y, b.ld, beta, z, c.ld});
      },
      [&](T* z) { kernel(&ta, &tb, &q.m, &q.n, &q.k, &alpha, x, &a.ld, y, &b.ld, &beta, z, &c.ld); });
  EXPECT_TRUE(same_elements(a_before, a.data));
  EXPECT_TRUE(same_elements(b_before, b.data));
}

// Real routines take a conjugating letter as a transposing one, all routines any other letter.
constexpr const char* letters[] = {"NN", "NT", "TN", "TT", "nC", "Cn", "cT", "Tc", "CC", "Xq"};

// Every size from 1 to beyond two tiles of the widest build, once as rows, as columns and as depth.
TEST(Gemm, SizesAroundTheTiles) {
  const auto run = []<class T>(const char* name, auto kernel, T) {
    for (const char* l : letters) {
      for (zor_int size = 1; size <= 53; ++size) {
        // The two other sizes run through all their pairs.
        const zor_int others[] = {3, 8, 9, 12, 21, 40}, o = others[size % 6],
                      r = others[(size + size / 6) % 6];
        const layout where{.pad = size % 3, .at_end = size % 2 == 0, .shift = size_t(8 * (size % 2))};
        const auto run_size = [&](zor_int m, zor_int n, zor_int k) {
          check<T>(name, kernel, {l, m, n, k, {1.25, -0.5}, {0.75, 0.25}, where}, keep);
        };
        run_size(size, o, r);
        run_size(r, size, o);
        run_size(o, r, size);
      }
    }
  };
#define ROW_XGEMM(name, T) run(#name, name, T{});
#include "zor/tables/blas_gemm.inc"
}

// Where a block size or a panel begins or ends, along each dimension.
TEST(Gemm, BordersOfPanelsAndBlocks) {
  struct {
    zor_int m, n, k;
  } sizes[] = {{9, 9, 63},      {9, 8, 64},     {8, 9, 65},      {12, 13, 111},   {13, 12, 112},
               {11, 9, 113},    {9, 11, 128},   {9, 10, 150},    {10, 9, 192},    {9, 9, 223},
               {9, 9, 224},     {9, 9, 225},    {10, 9, 226},    {9, 9, 336},     {9, 9, 500},
               {64, 88, 400},   {72, 104, 300}, {96, 97, 225},   {104, 40, 260},  {128, 128, 128},
               {129, 128, 128}, {97, 101, 187}, {319, 9, 20},    {331, 9, 70},    {479, 9, 15},
               {493, 9, 20},    {650, 8, 119},  {1537, 5, 40},   {9, 1999, 11},   {9, 2003, 66},
               {8, 4001, 12},   {9, 5003, 14},  {1009, 9003, 3}, {5011, 5001, 17}};
  const auto run = []<class T>(const char* name, auto kernel, T, const gemm_case& q) {
    // Thin products have blocks of their own in double precision alone.
    if (q.m + q.n < 10000 || std::is_same_v<T, double>) check<T>(name, kernel, q, keep);
  };
  for (const auto& s : sizes) {
    if (zor_ref::fuses_in_software() && s.m * s.n * s.k > 600000) continue;
    for (const char* l : {"NN", "NT", "TN", "TT", "CC", "NC"}) {
      if (s.m * s.n > 1000000 && (l[0] == 'C' || l[1] == 'C' || l[0] == l[1])) continue;
      const bool odd = s.m % 2;  // An alpha of 1 lets a product read A in place.
      const gemm_case q{
          l, s.m, s.n, s.k, {odd ? -0.7 : 1, odd ? 0.3 : 0}, {1, double(odd)}, layout{.pad = s.k % 2}};
#define ROW_XGEMM(name, T) run(#name, name, T{}, q);
#include "zor/tables/blas_gemm.inc"
    }
  }
}

// alpha and beta, special ones among them, on both paths. C is full of NaN where it must not be read.
TEST(Gemm, AlphaAndBeta) {
  const auto run = []<class T>(const char* name, auto kernel, T) {
    for (const char* l : {"NN", "NT", "TN", "TT", "CN", "NC", "CC"})
      for (zor_int size : {2, 19})
        for (double alpha : {0.0, -0.0, 1.0, -1.0, 1.5, double(NAN), double(INFINITY)})
          for (double alpha_im : {0.0, 0.5})
            for (double beta : {0.0, -0.0, 1.0, -1.0, 0.3, double(NAN), double(INFINITY)})
              for (double beta_im : {0.0, 2.0}) {
                const gemm_case q{
                    l, size, size + 2, size + 1, {alpha, alpha_im}, {beta, beta_im}, layout{.pad = 1}};
                check<T>(name, kernel, q, [&](auto&, auto&, auto& c) {
                  c.at(0, 0) = scalar<T>(-0.0, -0.0);
                  if (beta == 0 && (beta_im == 0 || parts<T> == 1)) fill_nan(c.data);
                });
              }
  };
#define ROW_XGEMM(name, T) run(#name, name, T{});
#include "zor/tables/blas_gemm.inc"
}

// Empty sizes: nothing is touched without rows or columns, not even read; without depth C becomes beta C,
// which takes no time when beta is 1.
TEST(Gemm, EmptySizes) {
  const auto run = []<class T>(const char* name, auto kernel, T) {
    const zor_int five = 5, vast = zor_int(1) << 61;
    const T two = scalar<T>(2, 0), one = scalar<T>(1, 0);
    for (zor_int none : {zor_int(0), zor_int(-3)})
      for (const char* l : {"NN", "TT"}) {
        kernel(l, l + 1, &none, &five, &five, &two, nullptr, &five, nullptr, &five, &two, nullptr, &five);
        kernel(l, l + 1, &five, &none, &five, &two, nullptr, &five, nullptr, &five, &two, nullptr, &five);
        kernel(l, l + 1, &vast, &vast, &none, &two, nullptr, &vast, nullptr, &vast, &one, nullptr, &vast);
        for (double beta : {0.0, 1.0, 0.5})
          check<T>(name, kernel, {l, 9, 10, none, {2, 1}, {beta, 0}, layout{.pad = 1}}, keep);
      }
  };
#define ROW_XGEMM(name, T) run(#name, name, T{});
#include "zor/tables/blas_gemm.inc"
}

// One special value at many places: it must reach what the data say and raise what the data raise, no more.
TEST(Gemm, SpecialValuesStayWhereTheDataPutThem) {
  const auto run = []<class T>(const char* name, auto kernel, T) {
    using R = real<T>;
    const double tiny = std::is_same_v<R, float> ? 1e-40 : 4e-310,
                 huge = std::is_same_v<R, float> ? 3e38 : 1.7e308;
    for (const char* l : {"NN", "NT", "TN", "TT", "CC"})
      for (zor_int size : {7, 15, 29, 37})
        for (double special : {double(NAN), double(INFINITY), 0.0, tiny, huge})
          for (zor_int place = 0; place < size; place += 5)
            check<T>(name, kernel, {l, size, size, size, {2, 0}, {double(place % 2), 0}},
                     [&](auto& a, auto& b, auto& c) {
                       // In one operand at a time, so that no other brings in the flag of a spoilt tail.
                       switch (place / 5 % 3) {
                         case 0:
                           a.at(place, size - 1 - place) = scalar<T>(special, 1);
                           break;
                         case 1:
                           b.at(size - 1, place) = scalar<T>(special, 1);
                           break;
                         default:
                           c.at(size - 1 - place, place) = scalar<T>(special, special);
                       }
                     });
  };
#define ROW_XGEMM(name, T) run(#name, name, T{});
#include "zor/tables/blas_gemm.inc"
}

// A subnormal column of A against a huge row of B, where A may be read as it is: alpha is multiplied in all
// the same, so the column is lost where results are flushed to zero, and where operands are.
TEST(Gemm, FollowsTheCallersSubnormalModes) {
  const auto run = []<class T>(const char* name, auto kernel, T) {
    const unsigned own = _mm_getcsr();
    for (unsigned mode : {0u, unsigned(_MM_FLUSH_ZERO_ON), 0x40u, _MM_FLUSH_ZERO_ON | 0x40u})
      for (const char* l : {"NN", "NT"})
        for (const auto& [m, n, k] : {std::array<zor_int, 3>{16, 8, 8}, {40, 12, 9}, {96, 40, 300}}) {
          _mm_setcsr(own | mode);
          check<T>(name, kernel, {l, m, n, k, {1, 0}, {1, 0}}, [&](auto& a, auto& b, auto&) {
            using limits = std::numeric_limits<real<T>>;
            constexpr real<T> tiny = limits::min() / 2;
            for (zor_int i = 0; i < m; ++i) reals(&a.at(i, 0))[0] = tiny;
            for (zor_int j = 0; j < n; ++j)
              reals(&b.at(transposed(l[1]) ? j : 0, transposed(l[1]) ? 0 : j))[0] = limits::max();
          });
          _mm_setcsr(own);
        }
  };
#define ROW_XGEMM(name, T) run(#name, name, T{});
#include "zor/tables/blas_gemm.inc"
}

TEST(Mscale, MultipliesAllBetasButZero) {
  const auto run = []<class T>(const char* name, auto kernel, T) {
    for (zor_int m : {-1, 0, 1, 2, 3, 8, 9, 17, 40})
      for (zor_int n : {-2, 0, 1, 3, 4, 5})
        for (double beta : {0.0, -0.0, 1.0, -1.5, double(NAN)})
          for (double beta_im : {0.0, 1.0}) {
            SCOPED_TRACE(::testing::Message()
                         << name << " m=" << m << " n=" << n << " beta=" << beta << "," << beta_im);
            random_bits random(uint64_t(m + 50 * n + 5000));
            const layout where{.pad = 1, .at_end = m % 2 == 0, .shift = size_t(8 * (n % 2 == 0))};
            matrix<T> c(m, n, where, random);
            const T b = scalar<T>(beta, beta_im);
            const bool zero = zor_ref::is(b, 0);
            if (zero) fill_nan(c.data);
            const auto reference = [&](T* e) {
              for (zor_int j = 0; j < c.columns; ++j)
                for (zor_int i = 0; i < c.rows; ++i)
                  e[i + j * c.ld] = zero ? T{} : zor_ref::times(b, e[i + j * c.ld]);
            };
            compare(c.data, reference, [&](T* e) { kernel(&m, &n, &b, e, &c.ld); });
          }
  };
#define ROW_MSCALE(name, T) run(#name, name, T{});
#include "zor/tables/blas_gemm.inc"
}

// The copies' formats, written as where each real of the result comes from: for A (row, part) by position in
// a group, for B (column, part). A negative source is a padding zero.
struct group_format {
  int strip;          // rows or columns of a complete strip
  bool split, tails;  // parts apart; incomplete strips stored
};
template <class T>
constexpr group_format a_format = {std::is_same_v<T, float>     ? 8
                                   : std::is_same_v<T, zor_c64> ? 2
                                                                : 4,
                                   parts<T> == 2, std::is_same_v<T, double>};
template <class T>
constexpr group_format b_format = {4, false, std::is_same_v<T, double>};

template <class T, class Element>
std::vector<real<T>> packed(group_format f, bool is_a, zor_int size, zor_int k, const Element& element) {
  std::vector<real<T>> out;
  const zor_int kpad = (k + 3) & ~zor_int(3);
  for (zor_int s = 0; s < size; s += f.strip) {
    const zor_int left = size - s;
    if (left < f.strip && !f.tails) break;
    const zor_int wide = left >= f.strip ? f.strip : !is_a ? left : left == 3 ? 4 : 2;
    for (zor_int p = 0; p < kpad; ++p)
      for (zor_int at = 0; at < wide * zor_int(parts<T>); ++at) {
        const zor_int index = s + (f.split ? at % wide : at / zor_int(parts<T>));
        const int h = int(f.split ? at / wide : at % zor_int(parts<T>));
        out.push_back(p < k && index < size ? real<T>(part(element(index, p), h)) : real<T>(0));
      }
  }
  return out;
}

template <class T, class Call, class Element>
void check_copy(const std::string& what, group_format f, bool is_a, zor_int size, zor_int k, const Call& call,
                const Element& element) {
  SCOPED_TRACE(::testing::Message() << what << " size=" << size << " k=" << k);
  std::vector<real<T>> expected;
  const int expected_flags = flags_of([&] { expected = packed<T>(f, is_a, size, k, element); });
  guarded<T> out(expected.size() / parts<T>, true,
                 expected.size() % 4 ? 16 - expected.size() * sizeof(real<T>) % 16 : 0);
  fill_nan(out);
  EXPECT_EQ(expected_flags, flags_of([&] { call(out.data()); }));
  EXPECT_TRUE(same_bits(expected.data(), reals(out.data()), expected.size()));
}

TEST(Copies, FormatsOfThePanels) {
  random_bits random(17);
  for (zor_int size : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 16, 31})
    for (zor_int k : {1, 2, 3, 4, 5, 8, 9, 17, 40, 112}) {
      const layout where{.pad = 2, .at_end = k % 2 == 0};
      const auto copy_a = [&]<class T>(const char* name, auto kernel, T, char form) {
        const bool is_transposed = form != 'n';
        const T alpha = scalar<T>(1.25, -0.5);
        matrix<T> x(is_transposed ? k : size, is_transposed ? size : k, where, random);
        check_copy<T>(
            name, a_format<T>, true, size, k,
            [&](T* out) { kernel(&size, &k, x.data.data(), &x.ld, out, &alpha); },
            [&](zor_int i, zor_int p) {
              const T e = is_transposed ? x.at(p, i) : x.at(i, p);
              return zor_ref::times(alpha, form == 'c' ? zor_ref::conj(e) : e);
            });
      };
      const auto copy_b = [&]<class T>(const char* name, auto kernel, T, char form) {
        const bool is_transposed = form != 'n';
        matrix<T> x(is_transposed ? size : k, is_transposed ? k : size, where, random);
        if (x.data.size() != 0) x.at(0, 0) = scalar<T>(-1, 0.0);
        check_copy<T>(
            name, b_format<T>, false, size, k, [&](T* out) { kernel(&k, &size, x.data.data(), &x.ld, out); },
            [&](zor_int j, zor_int p) {
              const T e = is_transposed ? x.at(j, p) : x.at(p, j);
              return form == 'c' ? zor_ref::conj_by_zero(e) : e;
            });
      };
#define ROW_COPYA(name, T, form) copy_a(#name, name, T{}, #form[0]);
#define ROW_COPYB(name, T, form) copy_b(#name, name, T{}, #form[0]);
#include "zor/tables/blas_gemm.inc"
    }
}

}  // namespace
