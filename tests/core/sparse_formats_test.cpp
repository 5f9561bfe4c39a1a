// SPDX-License-Identifier: MIT
// The described matrix in every format: conversions read back by what each format means, products and solves
// of every view with integers that are exact in any order, sums and products of matrices, sweeps, the LDLT
// solve, the same bits for any number of threads, bad arguments.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/core/sparse_calls.h"
#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "zor/core.h"
#include "zor/sparse.h"

namespace {

using namespace sparse_test;
using namespace zor_test;

constexpr int32_t dia = ZOR_SPARSE_DIA, bsr = ZOR_SPARSE_BSR, sky = ZOR_SPARSE_SKY;

// Integers with their parts, exact in every type here.
struct whole {
  int64_t re = 0, im = 0;
  bool operator==(const whole&) const = default;
};
whole operator+(whole x, whole y) { return {x.re + y.re, x.im + y.im}; }
whole operator*(whole x, whole y) { return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re}; }
template <class T>
whole whole_of(const T& x) {
  return {int64_t(part(x, 0)), int64_t(part(x, 1))};
}
template <class T>
T element_of(whole x) {
  return scalar<T>(double(x.re), double(x.im));
}

// (row, column) from 0 to the sum of the entries there.
using dense_map = std::map<std::pair<int64_t, int64_t>, whole>;

// A matrix in CSR of small integers, in any order, with repeats.
template <class T, class I>
struct csr_matrix {
  std::vector<T> val;
  std::vector<I> indx, pntr;
  dense_map dense;
  int64_t rows, cols;
  int32_t base;

  csr_matrix(int64_t m, int64_t n, int32_t b, int64_t most, uint64_t seed) : rows(m), cols(n), base(b) {
    random_bits random(seed);
    pntr.push_back(I(base));
    for (int64_t r = 0; r < m; ++r) {
      for (int64_t k = random.between(0, most); k > 0; --k) put(r, random.between(0, n - 1), random);
      pntr.push_back(I(indx.size()) + I(base));
    }
  }
  void put(int64_t r, int64_t c, random_bits& random) {
    const whole v{random.between(1, 4), calls<T>::letter < 'd' || calls<T>::letter == 'z'
                                            ? (parts<T> == 2 ? random.between(-3, 3) : 0)
                                            : 0};
    val.push_back(element_of<T>(v));
    indx.push_back(I(c) + I(base));
    dense[{r, c}] = dense[{r, c}] + v;
  }
  description<I> described(const view& v = {'g'}) const { return csr(v, base, rows, cols, val, indx, pntr); }
};

// What the arrays of a description say, by the definition of its format; entries in the order in which the
// format lists them.
template <class T, class I>
dense_map read_back(const owner& o) {
  const description<I> d = described<I>(o.a);
  dense_map all;
  const T* const val = static_cast<const T*>(d.val);
  const auto put = [&](int64_t r, int64_t c, const T& v) {
    if (whole_of(v) == whole{}) return;
    ASSERT_TRUE(r >= 0 && r < d.rows && c >= 0 && c < d.cols) << r << ", " << c;
    EXPECT_EQ(all.count({r, c}), 0u) << "two entries in one place";
    all[{r, c}] = whole_of(v);
  };
  for (int64_t r = 0; d.format == ZOR_SPARSE_CSR && r < d.rows; ++r)
    for (int64_t k = d.pntrb[r] - d.base; k < d.pntre[r] - d.base; ++k) put(r, d.indx[k] - d.base, val[k]);
  for (int64_t k = 0; d.format == ZOR_SPARSE_COO && k < d.nnz; ++k)
    put(d.rowind[k] - d.base, d.indx[k] - d.base, val[k]);
  for (int64_t k = 0; d.format == dia && k < d.nnz; ++k)
    for (int64_t r = 0; r < d.rows; ++r) put(r, r + d.indx[k], val[r + k * d.lval]);
  for (int64_t R = 0; d.format == bsr && R * d.lb < d.rows; ++R)
    for (int64_t p = d.pntrb[R] - d.base; p < d.pntrb[R + 1] - d.base; ++p)
      for (int64_t e = 0; e < d.lb * d.lb; ++e)
        put(R * d.lb + e % d.lb, (d.indx[p] - d.base) * d.lb + e / d.lb, val[p * d.lb * d.lb + e]);
  for (int64_t p = 0; d.format == sky && p < d.rows; ++p)
    for (int64_t k = d.pntrb[p]; k < d.pntrb[p + 1]; ++k) {
      const int64_t other = p - (d.pntrb[p + 1] - 1 - k);
      put(d.triangle == 'u' ? other : p, d.triangle == 'u' ? p : other, val[k - d.pntrb[0]]);
    }
  return all;
}

dense_map without_zeros(dense_map all) {
  std::erase_if(all, [](const auto& e) { return e.second == whole{}; });
  return all;
}
dense_map triangle_of(const dense_map& all, char triangle) {
  dense_map kept;
  for (const auto& [at, v] : all)
    if (triangle == 'u' ? at.second >= at.first : at.second <= at.first) kept[at] = v;
  return kept;
}

struct target {
  int32_t format;
  int lb;
};
constexpr target targets[] = {
    {ZOR_SPARSE_CSR, 0}, {ZOR_SPARSE_COO, 0}, {dia, 0}, {bsr, 1}, {bsr, 4}, {sky, 0}};

template <class T, class I>
void check_conversions() {
  for (const int32_t base : {0, 1}) {
    for (const char triangle : {'l', 'u'}) {
      const csr_matrix<T, I> m(29, 29, base, 6, 3);
      const owner given(m.described({'t', triangle}));
      for (const target& first : targets) {
        const owner made(given.a, first.format, first.lb);
        const bool skyline = first.format == sky;
        const dense_map wanted = without_zeros(skyline ? triangle_of(m.dense, triangle) : m.dense);
        EXPECT_EQ((read_back<T, I>(made)), wanted) << "format " << first.format;
        for (const target& second : targets) {
          const owner again(made.a, second.format, second.lb);
          EXPECT_EQ((read_back<T, I>(again)), second.format == sky ? triangle_of(wanted, triangle) : wanted)
              << first.format << " to " << second.format;
        }
      }
    }
  }
}
TEST(SparseFormats, ConvertIntoEachOther) { EVERY_TYPE(check_conversions) }

// A unit diagonal alone has no entries; profiles are those of a triangle.
bool converts(const view& v, int32_t format) {
  const bool whole = v.structure == 'g' || v.structure == 'd';
  return !(v.structure == 'd' && v.diagonal == 'u') && !(whole && format == sky);
}

// op(A) x of a view, from the entries.
std::vector<whole> product_of(const dense_map& all, const view& v, char op, const std::vector<whole>& x) {
  std::vector<whole> y(x.size());
  const auto add = [&](int64_t r, int64_t c, whole a) {
    if (op == 't' || op == 'c') std::swap(r, c);
    if (op == 'c' || op == 's') a.im = -a.im;
    y[size_t(r)] = y[size_t(r)] + a * x[size_t(c)];
  };
  for (const auto& [at, a] : all) {
    const auto [r, c] = at;
    const bool inside = v.triangle == 'u' ? c > r : c < r,
               mirrored = std::string("sha").find(v.structure) != std::string::npos;
    if (v.structure == 'g' ||
        (r == c ? v.structure != 'a' && v.diagonal != 'u' : inside && v.structure != 'd'))
      add(r, c, a);
    if (mirrored && inside)
      add(c, r, v.structure == 's' ? a : v.structure == 'h' ? whole{a.re, -a.im} : whole{-a.re, -a.im});
  }
  for (size_t r = 0; r < x.size() && v.diagonal == 'u'; ++r) add(int64_t(r), int64_t(r), {1, 0});
  return y;
}

// The description in coordinates of the entries as they stand, repeats included.
template <class T, class I>
description<I> in_coordinates(const csr_matrix<T, I>& m, const view& v, std::vector<I>& rowind) {
  description<I> d = m.described(v);
  for (int64_t r = 0; r < m.rows; ++r)
    rowind.resize(size_t(m.pntr[size_t(r) + 1] - m.base), I(r) + I(m.base));
  d.format = ZOR_SPARSE_COO;
  d.pntrb = nullptr, d.rowind = rowind.data();
  return d;
}

// 2 op(A) X - Y for one vector and for columns in both layouts.
template <class T>
void expect_products(zor_sparse a, char op, const dense_map& dense, const view& v, int64_t n) {
  constexpr int64_t columns = 11;
  random_bits random(9);
  std::vector<whole> x(static_cast<size_t>(n));
  for (whole& e : x) e = {random.between(-3, 3), parts<T> == 2 ? random.between(-3, 3) : 0};
  const auto wanted = product_of(dense, v, op, x);
  for (const char layout : {'v', 'f', 'c'}) {
    const int64_t count = layout == 'v' ? 1 : columns, ld = layout == 'c' ? columns + 1 : n + 2;
    const auto at = [&](int64_t i, int64_t j) { return size_t(layout == 'c' ? i * ld + j : i + j * ld); };
    std::vector<T> in(size_t(ld * std::max(n, columns))), out(in.size(), scalar<T>(5, 0));
    for (int64_t i = 0; i < n; ++i)
      for (int64_t j = 0; j < count; ++j)
        in[at(i, j)] = element_of<T>(whole{j + 1, 0} * x[size_t(i)]), out[at(i, j)] = scalar<T>(double(i), 0);
    const int32_t status = layout == 'v'
                               ? calls<T>::mv(a, op, scalar<T>(2, 0), in.data(), scalar<T>(-1, 0), out.data())
                               : calls<T>::mm(a, op, layout, count, scalar<T>(2, 0), in.data(), ld,
                                              scalar<T>(-1, 0), out.data(), ld);
    ASSERT_EQ(status, ZOR_SPARSE_OK) << zor_sparse_error_text();
    for (int64_t i = 0; i < n; ++i)
      for (int64_t j = 0; j < count; ++j)
        ASSERT_TRUE(whole_of(out[at(i, j)]) == whole({2 * (j + 1), 0}) * wanted[size_t(i)] + whole({-i, 0}))
            << v << op << layout << ", " << i << ", " << j;
    EXPECT_TRUE(whole_of(out.back()) == whole({5, 0}) || layout == 'v');
  }
}

template <class T, class I>
void check_views(int32_t base) {
  const csr_matrix<T, I> m(23, 23, base, 5, 7);
  for (const view& v : views) {
    if (v.structure == 'h' && parts<T> == 1) continue;
    std::vector<I> rowind;
    const owner given(m.described(v)), coordinates(in_coordinates(m, v, rowind));
    for (const char op : {'n', 't', 'c', 's'}) expect_products<T>(coordinates.a, op, m.dense, v, 23);
    for (const target& to : targets) {
      SCOPED_TRACE(to.format);
      if (!converts(v, to.format)) continue;
      // The converted arrays described by the user.
      const owner made(given.a, to.format, to.lb), own_arrays(described<I>(made.a));
      for (const char op : {'n', 't', 'c', 's'}) expect_products<T>(own_arrays.a, op, m.dense, v, 23);
    }
  }
}
TEST(SparseFormats, MultiplyAsTheViewSaysFromZero){
    EVERY_TYPE(check_views, 0)} TEST(SparseFormats, MultiplyAsTheViewSaysFromOne){EVERY_TYPE(check_views, 1)}

// Blocks that reach beyond the matrix with something else than zeros, a unit triangle with a block row that
// has no diagonal block, a unit diagonal beside no entries, diagonals in any order and twice.
TEST(SparseFormats, MultiplyWithWhatKernelsMisread) {
  const std::vector<double> elements(64, 3);
  const std::vector<int64_t> blocks{1, 1, 2}, pntr{1, 2, 4}, lone{2, 1, 1}, distances{2, -1, 0, 2, -2};
  const auto checked = [&](int32_t format, const std::vector<int64_t>& indx, int64_t order, const view& v) {
    zor_sparse_desc d = csr(v, 1, order, order, elements, indx, pntr);
    d.format = format, d.nnz = int64_t(indx.size()), d.lb = 3, d.lval = order;
    const owner a(d);
    dense_map dense;
    for (int64_t r = 0; r < order; ++r)
      for (int64_t c = 0; c < order; ++c)
        for (size_t k = 0; k < indx.size(); ++k)
          if (format == dia ? indx[k] == c - r
                            : indx[k] - 1 == c / 3 && int64_t(k) >= pntr[size_t(r / 3)] - 1 &&
                                  int64_t(k) < pntr[size_t(r / 3) + 1] - 1)
            dense[{r, c}] = dense[{r, c}] + whole{3, 0};
    for (const char op : {'n', 't'}) expect_products<double>(a.a, op, dense, v, order);
  };
  checked(bsr, blocks, 5, {'g', 0, 0});
  checked(bsr, blocks, 5, {'s', 'l', 'n'});
  checked(bsr, lone, 6, {'t', 'u', 'u'});
  for (const char structure : {'s', 't'}) checked(ZOR_SPARSE_COO, {}, 4, {structure, 'l', 'u'});
  for (const view& v : views)
    if (v.structure != 'h') checked(dia, distances, 7, v);
}

// A product reads the arrays of the description, not a copy.
TEST(SparseFormats, FollowTheCallersValues) {
  const csr_matrix<double, int64_t> m(20, 20, 1, 4, 5);
  const owner given(m.described({'s', 'l'}));
  for (const target& to : targets) {
    const owner made(given.a, to.format, to.lb);
    const zor_sparse_desc d = described<int64_t>(made.a);
    std::vector<double> x(20, 1), once(20), twice(20);
    zor_sparse_dmv(made.a, 'n', 1, x.data(), 0, once.data());
    const int64_t elements = d.nnz * (to.format == dia ? d.lval : to.format == bsr ? d.lb * d.lb : 1);
    double* const val = const_cast<double*>(static_cast<const double*>(d.val));
    std::transform(val, val + elements, val, [](double v) { return 2 * v; });
    zor_sparse_dmv(made.a, 'n', 0.5, x.data(), 0, twice.data());
    EXPECT_EQ(once, twice) << to.format;
  }
}

// Fractions, so that any other order of sums would show.
TEST(SparseFormats, AnyThreadsGiveTheSameBits) {
  constexpr int64_t n = 6001, columns = 17;
  csr_matrix<double, int64_t> m(0, n, 1, 0, 1);
  m.rows = n;
  random_bits random(19);
  for (int64_t r = 0; r < n; ++r) {
    for (const int64_t distance : {-70, -3, -1, 0, 1, 2, 90})
      if (r + distance >= 0 && r + distance < n)
        m.val.push_back(distance == 0 ? 4 + random.unit() : random.unit()),
            m.indx.push_back(r + distance + 1);
    m.pntr.push_back(int64_t(m.val.size()) + 1);
  }
  std::vector<double> x(n * columns);
  for (double& e : x) e = random.unit();
  for (const view& v : views) {
    if (v.structure == 'h') continue;
    const owner given(m.described(v));
    for (const target& to : targets) {
      if (!converts(v, to.format)) continue;
      const owner made(given.a, to.format, to.lb);
      for (const char op : {'n', 't'}) {
        std::vector<double> first;
        for (const int32_t threads : {1, 3}) {
          zor_set_threads(threads);
          std::vector<double> got(n, 0.3), y(n * columns, 0.3);
          zor_sparse_dmv(made.a, op, 0.7, x.data(), 1.1, got.data());
          for (const char layout : {'f', 'c'}) {
            const int64_t ld = layout == 'f' ? n : columns;
            zor_sparse_dmm(made.a, op, layout, columns, 0.7, x.data(), ld, 1.1, y.data(), ld);
            got.insert(got.end(), y.begin(), y.end());
            if (!solvable(v)) continue;
            zor_sparse_dsm(made.a, op, layout, columns, 0.7, x.data(), ld, y.data(), ld);
            got.insert(got.end(), y.begin(), y.end());
          }
          if (threads == 1) first = got;
          EXPECT_TRUE(same_bits(first.data(), got.data(), got.size())) << v << op << " format " << to.format;
        }
      }
    }
  }
  zor_set_threads(0);
}

// Triangles with a diagonal of ones, so that solves are exact, and the diagonal alone.
template <class T, class I>
void check_solves() {
  constexpr int64_t n = 19, columns = 11;
  random_bits random(11);
  for (const view& v : {view{'t', 'l', 'n'}, view{'t', 'l', 'u'}, view{'t', 'u', 'n'}, view{'t', 'u', 'u'},
                        view{'d', 0, 'n'}}) {
    csr_matrix<T, I> m(0, n, int32_t(random.between(0, 1)), 0, 1);
    m.rows = n;
    for (int64_t r = 0; r < n; ++r) {
      for (int64_t c = 0; c < n; ++c)
        if (c == r || (v.structure == 't' && (v.triangle == 'l') == (c < r) && random.between(0, 5) == 0)) {
          m.put(r, c, random);
          if (c == r) m.val.back() = scalar<T>(1, 0), m.dense[{r, c}] = {1, 0};
        }
      m.pntr.push_back(I(m.indx.size()) + I(m.base));
    }
    const owner given(m.described(v));
    std::vector<whole> x(n);
    for (whole& e : x) e = {random.between(-1, 1), 0};
    for (const target& to : targets) {
      if (!converts(v, to.format)) continue;
      // The same with diagonals and entries in descending order.
      const owner made(given.a, to.format, to.lb);
      description<I> d = described<I>(made.a);
      std::vector<I> indx(d.indx, d.indx + (d.indx == nullptr ? 0 : d.nnz)), rowind;
      std::vector<T> val;
      if (to.format == dia || to.format == ZOR_SPARSE_COO) {
        const int64_t run = to.format == dia ? n : 1;
        std::reverse(indx.begin(), indx.end());
        for (int64_t k = d.nnz - 1; k >= 0; --k) {
          val.insert(val.end(), static_cast<const T*>(d.val) + k * run,
                     static_cast<const T*>(d.val) + (k + 1) * run);
          if (run == 1) rowind.push_back(d.rowind[k]);
        }
        d.val = val.data(), d.indx = indx.data(), d.rowind = rowind.data();
      }
      const owner backwards(d);
      for (const zor_sparse a : {made.a, backwards.a})
        for (const char op : {'n', 't', 'c', 's'})
          for (const char layout : {'f', 'c'}) {
            const auto right = product_of(m.dense, v, op, x);
            std::vector<T> b(n * columns);
            const auto at = [&](int64_t i, int64_t j) {
              return size_t(layout == 'c' ? i * columns + j : i + j * n);
            };
            for (int64_t i = 0; i < n; ++i)
              for (int64_t j = 0; j < columns; ++j)
                b[at(i, j)] = element_of<T>(whole{2 * j, 0} * right[size_t(i)]);
            const int64_t ld = layout == 'c' ? columns : n;
            ASSERT_EQ(calls<T>::sm(a, op, layout, columns, scalar<T>(0.5, 0), b.data(), ld, b.data(), ld),
                      ZOR_SPARSE_OK)
                << zor_sparse_error_text();
            for (int64_t i = 0; i < n; ++i)
              for (int64_t j = 0; j < columns; ++j)
                ASSERT_TRUE(whole_of(b[at(i, j)]) == whole({j, 0}) * x[size_t(i)])
                    << v << op << layout << " format " << to.format;
          }
    }
  }
}
TEST(SparseFormats, SolveTriangles) { EVERY_TYPE(check_solves) }

// Rectangular matrices in any order, of both bases; the result has the base of A.
template <class T, class I>
void check_arithmetic() {
  for (const int32_t base : {0, 1}) {
    const csr_matrix<T, I> a(17, 31, base, 9, 21), b(17, 31, 1 - base, 5, 22), c(31, 12, 1, 6, 23);
    const csr_matrix<T, I> transposed(31, 17, base, 6, 24);
    const owner ha(a.described()), hb(b.described()), hc(c.described()), ht(transposed.described());
    const whole beta{3, parts<T> == 2 ? -1 : 0};
    const T factor = element_of<T>(beta);
    const auto conj_if = [](bool wanted, whole v) { return wanted ? whole{v.re, -v.im} : v; };
    for (const char op : {'n', 't', 'c', 's'}) {
      const bool flip = op == 't' || op == 'c', conjugated = parts<T> == 2 && (op == 'c' || op == 's');
      owner sum, product;
      ASSERT_EQ(zor_sparse_add(&sum.a, ha.a, op, &factor, flip ? ht.a : hb.a), ZOR_SPARSE_OK)
          << zor_sparse_error_text();
      dense_map wanted = a.dense;
      for (const auto& [at, v] : flip ? transposed.dense : b.dense) {
        const std::pair key(flip ? at.second : at.first, flip ? at.first : at.second);
        wanted[key] = wanted[key] + beta * conj_if(conjugated, v);
      }
      EXPECT_EQ(described<I>(sum.a).base, base);
      // Repeats of an operand stay apart or meet; the matrix is the same.
      const owner once(sum.a, ZOR_SPARSE_CSR, 0);
      EXPECT_EQ((read_back<T, I>(once)), without_zeros(wanted)) << op;

      ASSERT_EQ(zor_sparse_multiply(&product.a, op, flip ? ht.a : ha.a, hc.a), ZOR_SPARSE_OK);
      wanted.clear();
      for (const auto& [at, v] : flip ? transposed.dense : a.dense)
        for (const auto& [bt, w] : c.dense) {
          const auto [r, k] = flip ? std::pair(at.second, at.first) : at;
          if (k == bt.first) wanted[{r, bt.second}] = wanted[{r, bt.second}] + conj_if(conjugated, v) * w;
        }
      EXPECT_EQ((read_back<T, I>(product)), without_zeros(wanted)) << op;
      const description<I> d = described<I>(product.a);
      for (I r = 0; r < d.rows; ++r)
        EXPECT_TRUE(std::is_sorted(d.indx + d.pntrb[r] - base, d.indx + d.pntre[r] - base));
    }
  }
}
TEST(SparseArithmetic, AddsAndMultiplies){EVERY_TYPE(check_arithmetic)}

// Fractions, so that any other order of sums would show.
TEST(SparseArithmetic, AnyThreadsGiveTheSameBits) {
  constexpr zor_int n = 9000;
  random_bits random(31);
  std::vector<double> val;
  std::vector<zor_int> indx, pntr{0};
  for (zor_int r = 0; r < n; ++r) {
    for (zor_int k = random.between(0, r % 100 == 0 ? 300 : 12); k > 0; --k) {
      val.push_back(random.unit());
      indx.push_back(random.between(0, n - 1));
    }
    pntr.push_back(zor_int(val.size()));
  }
  const zor_sparse_desc what{ZOR_SPARSE_CSR, 'd',        0,           'g',         0,       0,       n, n,
                             pntr.back(),    val.data(), indx.data(), pntr.data(), nullptr, nullptr, 0, 0};
  owner a;
  ASSERT_EQ(zor_sparse_create(&a.a, &what), ZOR_SPARSE_OK);
  std::vector<double> first;
  std::vector<zor_int> columns;
  const double beta = 0.7;
  for (const int32_t threads : {1, 2, 3, 7}) {
    zor_set_threads(threads);
    std::vector<double> got;
    std::vector<zor_int> where;
    // A product, and sums whose operands have few columns in common and all of them.
    for (const char op : {'p', 't', 'n'}) {
      owner c;
      const int32_t status =
          op == 'p' ? zor_sparse_multiply(&c.a, 'n', a.a, a.a) : zor_sparse_add(&c.a, a.a, op, &beta, a.a);
      ASSERT_EQ(status, ZOR_SPARSE_OK) << zor_sparse_error_text();
      zor_sparse_desc d{};
      zor_sparse_describe(c.a, &d);
      const double* const v = static_cast<const double*>(d.val);
      got.insert(got.end(), v, v + d.nnz);
      where.insert(where.end(), d.indx, d.indx + d.nnz);
      where.insert(where.end(), d.pntrb, d.pntrb + n + 1);
      // What is known of a result without a check is what a check finds.
      const std::vector<double> x(n, 0.3);
      std::vector<double> y[2] = {x, x}, z = x;
      std::string told[2];
      for (const int checked : {0, 1}) {
        EXPECT_EQ(checked ? zor_sparse_check(c.a) : 0, ZOR_SPARSE_OK);
        EXPECT_EQ(zor_sparse_dmv(c.a, 't', 1, x.data(), 0, y[checked].data()), ZOR_SPARSE_OK);
        EXPECT_EQ(zor_sparse_dgauss(c.a, 'f', x.data(), z.data()), ZOR_SPARSE_NOT_SOLVABLE);
        told[checked] = zor_sparse_error_text();
      }
      EXPECT_EQ(told[0], told[1]);
      EXPECT_TRUE(same_bits(y[0].data(), y[1].data(), n));
    }
    if (threads == 1) first = got, columns = where;
    ASSERT_EQ(columns, where) << threads;
    EXPECT_TRUE(same_bits(first.data(), got.data(), got.size())) << threads;
  }
  zor_set_threads(0);
}

// A column of ones times a row of ones: more entries than 32-bit indices count.
TEST(SparseArithmetic, RefusesAResultThatIndicesCannotCount) {
  constexpr int32_t n = 46400;
  const std::vector<float> ones(n, 1);
  const std::vector<int32_t> same(n, 0);
  std::vector<int32_t> each(n + 1);
  for (int32_t i = 0; i <= n; ++i) each[size_t(i)] = i;
  const std::vector<int32_t> whole_row = {0, n};
  const owner a(csr({'g'}, 0, n, 1, ones, same, each)), b(csr({'g'}, 0, 1, n, ones, each, whole_row));
  zor_sparse c = a.a;
  EXPECT_EQ(zor_sparse_multiply(&c, 'n', a.a, b.a), ZOR_SPARSE_TOO_LARGE);
  EXPECT_EQ(c, nullptr);
  EXPECT_STREQ(zor_sparse_error_text(), "the result has more entries than 32-bit indices can count");
}

// Sweeps of a matrix with a dominant diagonal against plain ones in long double; with blocks the same.
template <class T, class I>
void check_sweeps() {
  constexpr int64_t n = 24;
  csr_matrix<T, I> m(n, n, 1, 0, 1);
  random_bits random(41);
  m.indx.clear(), m.val.clear(), m.dense.clear(), m.pntr.assign(1, 1);
  for (int64_t r = 0; r < n; ++r) {
    for (int64_t c = 0; c < n; ++c)
      if (c == r || random.between(0, 6) == 0) {
        m.put(r, c, random);
        if (c == r) m.val.back() = scalar<T>(64, 0), m.dense[{r, c}] = {64, 0};
      }
    m.pntr.push_back(I(m.indx.size()) + 1);
  }
  const owner plain(m.described()), blocks(plain.a, bsr, 4);
  using wide = std::complex<long double>;
  for (const zor_sparse a : {plain.a, blocks.a}) {
    for (const char direction : {'f', 'b', 's'}) {
      std::vector<T> b, x(n);
      std::vector<wide> exact(n);
      for (int64_t i = 0; i < n; ++i) b.push_back(scalar<T>(random.unit(), random.unit()));
      for (int repeat = 0; repeat < 2; ++repeat) {
        ASSERT_EQ(calls<T>::gauss(a, direction, b.data(), x.data()), ZOR_SPARSE_OK);
        for (const char step : {'f', 'b'}) {
          if (direction != 's' && direction != step) continue;
          for (int64_t k = 0; k < n; ++k) {
            const int64_t r = step == 'f' ? k : n - 1 - k;
            wide rest(part(b[size_t(r)], 0), part(b[size_t(r)], 1));
            for (const auto& [at, v] : m.dense)
              if (at.first == r && at.second != r)
                rest -= wide((long double)v.re, (long double)v.im) * exact[size_t(at.second)];
            exact[size_t(r)] = rest / 64.0L;
          }
        }
      }
      for (size_t i = 0; i < n; ++i)
        EXPECT_LE(std::abs(exact[i] - wide(part(x[i], 0), part(x[i], 1))),
                  20 * std::numeric_limits<real<T>>::epsilon());
      std::vector<T> scaled = b;
      ASSERT_EQ(calls<T>::jacobi(a, scaled.data()), ZOR_SPARSE_OK);
      for (size_t i = 0; i < n; ++i) EXPECT_EQ(part(scaled[i], 0), part(b[i], 0) / 64);
    }
  }
}
TEST(SparseSweeps, AreThoseOfGaussAndSeidel){EVERY_TYPE(check_sweeps)}

// Bidiagonal factors, the second kind with a block of order 2 at the end: L D L^T x for integers x.
TEST(SparseSweeps, LdltSolvesInWhole) {
  for (const int32_t n : {1, 2, 500, 2500}) {
    for (const bool pair : {false, true}) {
      if (pair && n < 4) continue;
      std::vector<double> val, d(size_t(n), 2), e(size_t(n), 1), x, b, solved(static_cast<size_t>(n));
      std::vector<int32_t> ia, ja;
      std::vector<uint32_t> piv(size_t(n / 32 + 1));
      const int32_t singles = pair ? n - 2 : n;
      for (int32_t i = 0; i < n; ++i) {
        ia.push_back(int32_t(val.size()));
        x.push_back(i % 5 - 2);
        if (i < singles && i + 1 < n) val.push_back(i % 2 ? 1 : -1), ja.push_back(i + 1);
      }
      ia.push_back(int32_t(val.size()));
      if (pair)
        piv[size_t((n - 2) / 32)] |= 1u << ((n - 2) % 32), piv[size_t((n - 1) / 32)] |= 1u << ((n - 1) % 32);
      std::vector<double> t = x;
      for (int32_t i = 0; i < n; ++i)
        for (int32_t p = ia[size_t(i)]; p < ia[size_t(i) + 1]; ++p)
          t[size_t(i)] += val[size_t(p)] * x[size_t(ja[size_t(p)])];
      std::vector<double> u(t);
      for (size_t i = 0; i < size_t(n); ++i) u[i] = 2 * t[i];
      if (pair) u[size_t(n - 2)] += t[size_t(n - 1)], u[size_t(n - 1)] += t[size_t(n - 2)];
      b = u;
      for (int32_t i = 0; i < n; ++i)
        for (int32_t p = ia[size_t(i)]; p < ia[size_t(i) + 1]; ++p)
          b[size_t(ja[size_t(p)])] += val[size_t(p)] * u[size_t(i)];
      ASSERT_EQ(zor_sparse_ldlt_solve(n, val.data(), ia.data(), ja.data(), d.data(), e.data(), piv.data(),
                                      b.data(), solved.data()),
                ZOR_SPARSE_OK)
          << zor_sparse_error_text();
      for (size_t i = 0; i < size_t(n); ++i) EXPECT_NEAR(solved[i], x[i], 1e-9) << n << ", " << i;
    }
  }
}

// ---- What is refused, with the argument named.

// Arrays that serve every format: order 4, one entry a row on the diagonal.
struct small {
  std::vector<double> val = std::vector<double>(64, 1);
  std::vector<zor_int> indx{1, 2, 3, 4}, rowind{1, 2, 3, 4}, pntr{1, 2, 3, 4, 5};
  zor_sparse_desc d = {ZOR_SPARSE_COO, 'd',         1,           't',     'l',           'n', 4, 4, 4,
                       val.data(),     indx.data(), pntr.data(), nullptr, rowind.data(), 2,   4};

  zor_sparse_desc& as(int32_t format) { return d.format = format, d; }
  void rows(std::initializer_list<zor_int> p) { std::copy(p.begin(), p.end(), pntr.begin()); }
  void distances(zor_int a, zor_int b, zor_int c, zor_int e) {
    as(dia);
    indx[0] = a, indx[1] = b, indx[2] = c, indx[3] = e;
  }
};

TEST(SparseFormats, DescriptionsAndSolvesAreRefusedByName) {
  expect_faults<small>(
      {{[](small&) {}, nullptr},
       {[](small& s) { s.d.rowind = nullptr; }, "rowind is null"},
       {[](small& s) { s.rowind[2] = 5; }, "rowind: entry 3 has row 5, not 1 to 4"},
       {[](small& s) { s.indx[0] = 0; }, "indx: entry 1 has column 0, not 1 to 4"},
       {[](small& s) { s.as(dia).lval = 3; }, "lval: 3 is below the 4 rows"},
       {[](small& s) { s.as(dia); }, "indx: diagonal 4 has distance 4, outside the matrix"},
       {[](small& s) { s.distances(INT64_MIN, 2, 3, 4); },
        "indx: diagonal 1 has distance -9223372036854775808, outside the matrix"},
       {[](small& s) { s.as(dia).structure = 'g', s.d.cols = 5; }, "cols: this format is square, not 4 by 5"},
       {[](small& s) { s.as(bsr).lb = 0; }, "lb: 0 is not in 1 to 1024"},
       {[](small& s) { s.as(bsr); }, "indx: entry 3 has block column 3, not 1 to 2"},
       {[](small& s) { s.as(bsr), s.pntr[1] = 9; }, "pntrb: row 1 goes from 1 to 9, with 4 entries stored"},
       {[](small& s) { s.as(bsr).pntre = s.pntr.data(); }, "pntre: row 1 ends at 1, the next begins at 2"},
       {[](small& s) { s.as(bsr).nnz = INT64_MAX / 16; },
        "nnz: 576460752303423487 make more elements than can be counted"},
       {[](small& s) { s.as(dia).lval = INT64_MAX / 2; }, "nnz: 4 make more elements than can be counted"},
       {[](small& s) { s.as(sky); }, nullptr},
       {[](small& s) { s.as(sky).structure = 'g'; },
        "structure: skyline stores a triangle, and so must its view"},
       {[](small& s) {
          s.as(sky), s.rows({1, 1, 2, 3, 4});
        },
        "pntrb: profile 1 has 0 elements, not 1 to 1"},
       {[](small& s) {
          s.as(sky), s.rows({1, 3, 4, 5, 5});
        },
        "pntrb: profile 1 has 2 elements, not 1 to 1"},
       // What hinders a solve is no fault of the description.
       {[](small& s) { s.indx[2] = s.rowind[2] = 2; }, "a: row 2 has more than one entry on the diagonal"},
       {[](small& s) { s.indx[2] = 1; }, "a: row 3 has no entry on the diagonal"},
       {[](small& s) { s.val[3] = 0; }, "a: the entry of row 4 on the diagonal is 0"},
       {[](small& s) { s.d.structure = 'd', s.val[0] = 0; }, "a: the entry of row 1 on the diagonal is 0"},
       {[](small& s) { s.d.structure = 's'; }, "a: only triangular and diagonal views can be solved with"},
       {[](small& s) { s.distances(-1, -2, 3, 2); }, "a: row 1 has no entry on the diagonal"},
       {[](small& s) { s.distances(-1, 0, 3, 0); }, "a: row 1 has more than one entry on the diagonal"},
       {[](small& s) { s.distances(-1, 3, 0, 1), s.val[10] = 0; },
        "a: the entry of row 3 on the diagonal is 0"},
       {[](small& s) { s.as(sky), s.val[1] = 0; }, "a: the entry of row 2 on the diagonal is 0"},
       {[](small& s) {
          s.as(bsr).nnz = 2, s.rows({1, 2, 3}), s.val[4] = 0;
        },
        "a: row 3 has no entry on the diagonal"}});
}

TEST(SparseFormats, CallsAreRefusedByName) {
  const csr_matrix<double, int64_t> m(6, 6, 1, 3, 51), wide(6, 9, 1, 3, 52);
  const csr_matrix<float, int64_t> single(6, 6, 1, 3, 53);
  const owner a(m.described()), w(wide.described()), f(single.described()), t(m.described({'s', 'l'}));
  zor_sparse c = nullptr;
  zor_sparse_desc_lp64 narrow{};
  const double one = 1;
  double x[9] = {};
  const int32_t ia[] = {0, 1, 1}, ja[] = {1}, back[] = {0};
  const double val[] = {1}, d[] = {1, 1}, zero[] = {1, 0};
  const uint32_t none[] = {0}, lone[] = {2};
  const struct {
    std::function<int32_t()> call;
    int32_t status;
    const char* text;
  } cases[] = {
      {[&] { return zor_sparse_convert(nullptr, a.a, 0, 0); }, ZOR_SPARSE_BAD_ARGUMENT, "b is null"},
      {[&] { return zor_sparse_convert(&c, nullptr, 0, 0); }, ZOR_SPARSE_BAD_HANDLE,
       "a: no matrix, or one already freed"},
      {[&] { return zor_sparse_convert(&c, a.a, 5, 0); }, ZOR_SPARSE_BAD_ARGUMENT,
       "format: 5 is no value of it"},
      {[&] { return zor_sparse_convert(&c, a.a, bsr, 0); }, ZOR_SPARSE_BAD_ARGUMENT,
       "lb: 0 is not in 1 to 1024"},
      {[&] { return zor_sparse_convert(&c, w.a, dia, 0); }, ZOR_SPARSE_BAD_ARGUMENT,
       "format: it takes a square matrix, not 6 by 9"},
      {[&] { return zor_sparse_convert(&c, a.a, sky, 0); }, ZOR_SPARSE_BAD_ARGUMENT,
       "format: skyline stores a triangle, and so must the view"},
      {[&] { return zor_sparse_convert(&c, a.a, bsr, 1024); }, ZOR_SPARSE_TOO_LARGE, nullptr},
      {[&] { return zor_sparse_add(nullptr, a.a, 'n', &one, a.a); }, ZOR_SPARSE_BAD_ARGUMENT, "c is null"},
      {[&] { return zor_sparse_add(&c, a.a, 'n', nullptr, a.a); }, ZOR_SPARSE_BAD_ARGUMENT, "beta is null"},
      {[&] { return zor_sparse_add(&c, a.a, 'x', &one, a.a); }, ZOR_SPARSE_BAD_ARGUMENT,
       "op: 120 is no value of it"},
      {[&] { return zor_sparse_add(&c, a.a, 'n', &one, w.a); }, ZOR_SPARSE_BAD_ARGUMENT,
       "b: columns of op(b): 9, not 6"},
      {[&] { return zor_sparse_add(&c, a.a, 'n', &one, f.a); }, ZOR_SPARSE_BAD_ARGUMENT,
       "b: elements of type s, those of a are of type d"},
      {[&] { return zor_sparse_multiply(&c, 'n', w.a, a.a); }, ZOR_SPARSE_BAD_ARGUMENT, "b: rows: 6, not 9"},
      {[&] { return zor_sparse_multiply(&c, 'n', t.a, a.a); }, ZOR_SPARSE_BAD_ARGUMENT,
       "a: sums and products take the general view"},
      {[&] { return zor_sparse_describe_lp64(a.a, &narrow); }, ZOR_SPARSE_BAD_HANDLE,
       "a: its indices have 64 bits, the call takes 32"},
      {[&] { return zor_sparse_dgauss(w.a, 'f', x, x); }, ZOR_SPARSE_BAD_ARGUMENT,
       "a: sweeps take a square matrix of the general view"},
      {[&] { return zor_sparse_dgauss(a.a, 'x', x, x); }, ZOR_SPARSE_BAD_ARGUMENT,
       "direction: 120 is no value of it"},
      {[&] { return zor_sparse_dgauss(a.a, 'f', nullptr, x); }, ZOR_SPARSE_BAD_ARGUMENT, "b is null"},
      {[&] { return zor_sparse_ldlt_solve(-1, val, ia, ja, d, d, none, x, x); }, ZOR_SPARSE_BAD_ARGUMENT,
       "n: -1 is below 0"},
      {[&] { return zor_sparse_ldlt_solve(2, val, ia, ja, d, d, nullptr, x, x); }, ZOR_SPARSE_BAD_ARGUMENT,
       "piv is null"},
      {[&] { return zor_sparse_ldlt_solve(2, val, ia, ja, d, d, lone, x, x); }, ZOR_SPARSE_BAD_ARGUMENT,
       "piv: row 1 has no partner"},
      {[&] { return zor_sparse_ldlt_solve(2, val, ia, ja, zero, d, none, x, x); }, ZOR_SPARSE_NOT_SOLVABLE,
       "d: element 1 is 0"},
      {[&] { return zor_sparse_ldlt_solve(2, val, ia, back, d, d, none, x, x); }, ZOR_SPARSE_BAD_ARGUMENT,
       "ja: entry 0 of row 0 has column 0"}};
  for (const auto& e : cases) {
    EXPECT_EQ(e.call(), e.status) << zor_sparse_error_text();
    if (e.text != nullptr) {
      EXPECT_STREQ(zor_sparse_error_text(), e.text);
    }
    EXPECT_EQ(c, nullptr);
  }
}

}  // namespace
