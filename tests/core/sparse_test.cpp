// SPDX-License-Identifier: MIT
// The public side of the sparse matrices: every view, operation, type, base, index width and layout against
// sums in long double; the bits of the kernels; the same bits for any number of threads; descriptions made
// bad.
#include "zor/sparse.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <limits>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/elements.h"
#include "tests/support/operand.h"
#include "zor/core.h"
#include "zor/spblas.h"

namespace {

using namespace zor_test;
using wide = std::complex<long double>;

struct view {
  char structure, triangle, diagonal;
};
const view views[] = {{'g', 'l', 'n'}, {'t', 'l', 'n'}, {'t', 'u', 'n'}, {'t', 'l', 'u'}, {'t', 'u', 'u'},
                      {'s', 'l', 'n'}, {'s', 'u', 'n'}, {'s', 'l', 'u'}, {'s', 'u', 'u'}, {'h', 'l', 'n'},
                      {'h', 'u', 'n'}, {'h', 'l', 'u'}, {'h', 'u', 'u'}, {'a', 'l', 'n'}, {'a', 'u', 'n'},
                      {'d', 'l', 'n'}, {'d', 'l', 'u'}};

// The calls of an element type.
template <class T>
struct calls;
#define CALLS(T, t)                                  \
  template <>                                        \
  struct calls<T> {                                  \
    static constexpr int32_t letter = #t[0];         \
    static constexpr auto* mv = &zor_sparse_##t##mv; \
    static constexpr auto* mm = &zor_sparse_##t##mm; \
    static constexpr auto* sv = &zor_sparse_##t##sv; \
    static constexpr auto* sm = &zor_sparse_##t##sm; \
  };
CALLS(float, s)
CALLS(double, d)
CALLS(zor_c32, c)
CALLS(zor_c64, z)

template <class I>
using description = std::conditional_t<sizeof(I) == 8, zor_sparse_desc, zor_sparse_desc_lp64>;
int32_t create(zor_sparse* a, const zor_sparse_desc& d) { return zor_sparse_create(a, &d); }
int32_t create(zor_sparse* a, const zor_sparse_desc_lp64& d) { return zor_sparse_create_lp64(a, &d); }

template <class T>
T draw(random_bits& random) {
  return scalar<T>(random.unit(), random.unit());
}
template <class T>
wide widened(const T& x) {
  return {part(x, 0), part(x, 1)};
}
template <class T>
std::vector<T> numbers(size_t count, uint64_t seed) {
  random_bits random(seed);
  std::vector<T> v(count);
  for (T& x : v) x = draw<T>(random);
  return v;
}
template <class T>
::testing::AssertionResult same(const std::vector<T>& a, const std::vector<T>& b) {
  return a.size() == b.size() ? same_bits(reals(a.data()), reals(b.data()), a.size() * parts<T>)
                              : ::testing::AssertionFailure() << "sizes differ";
}

// How a matrix is filled: columns within `reach` of the diagonal, `most` a row at most. Sorted ones have each
// column once and a dominant diagonal; others come in any order, with repeats.
struct filling {
  zor_int rows, cols, reach, most;
  bool sorted;
};

// Rows with a real diagonal in the Hermitian view, a gap of one unused entry behind every third, row pointers
// from `origin`.
template <class T, class I>
struct matrix {
  matrix(const filling& f, const view& v, int32_t base, I origin, uint64_t seed = 1)
      : what(v), rows(f.rows), cols(f.cols) {
    random_bits random(seed);
    for (zor_int r = 0; r < f.rows; ++r) {
      std::vector<std::pair<zor_int, T>> row;
      const zor_int low = std::max<zor_int>(0, std::min(r, f.cols - 1) - f.reach),
                    high = std::min(f.cols - 1, r + f.reach);
      for (zor_int i = random.between(0, f.most); i > 0; --i)
        row.push_back({random.between(low, high), draw<T>(random)});
      if (f.sorted) {
        std::map<zor_int, T> once(row.begin(), row.end());
        T pivot = draw<T>(random);
        reals(&pivot)[0] += real<T>(f.most);
        once[r] = pivot;
        row.assign(once.begin(), once.end());
      }
      pntrb.push_back(I(I(val.size()) + origin));
      for (const auto& [column, value] : row) {
        val.push_back(v.structure == 'h' && column == r ? scalar<T>(part(value, 0), 0) : value);
        indx.push_back(I(column + base));
      }
      pntre.push_back(I(I(val.size()) + origin));
      if (r % 3 == 2) {
        val.push_back(scalar<T>(NAN, NAN));
        indx.push_back(I(-7));
      }
    }
    described = {ZOR_SPARSE_CSR, calls<T>::letter, base,        v.structure,   v.triangle,
                 v.diagonal,     I(f.rows),        I(f.cols),   I(val.size()), val.data(),
                 indx.data(),    pntrb.data(),     pntre.data()};
    status = create(&handle, described);
  }
  matrix(const matrix&) = delete;
  matrix& operator=(const matrix&) = delete;
  ~matrix() { zor_sparse_free(&handle); }

  bool legal() const { return what.structure != 'h' || parts<T> == 2; }

  // body(i, j, v, counts) for every term of op(A); stored entries outside the view come with counts false.
  template <class Body>
  void for_terms(char op, const Body& body) const {
    const bool flip = op == 't' || op == 'c', conjugate = op == 'c' || op == 's';
    const auto term = [&](zor_int i, zor_int j, wide v, bool counts) {
      body(flip ? j : i, flip ? i : j, conjugate ? std::conj(v) : v, counts);
    };
    const char s = what.structure;
    for (zor_int r = 0; r < rows; ++r) {
      if (what.diagonal == 'u') term(r, r, 1, true);
      for (zor_int k = pntrb[size_t(r)] - pntrb[0]; k < pntre[size_t(r)] - pntrb[0]; ++k) {
        const zor_int c = indx[size_t(k)] - described.base;
        const wide v = widened(val[size_t(k)]);
        const bool inside = what.triangle == 'l' ? c < r : c > r;
        const bool own = s == 'g' || (c == r ? s != 'a' && what.diagonal == 'n' : inside && s != 'd');
        term(r, c, v, own);
        if (inside && (s == 's' || s == 'h' || s == 'a'))
          term(c, r, s == 'h' ? std::conj(v) : s == 'a' ? -v : v, true);
      }
    }
  }

  view what;
  zor_int rows, cols;
  std::vector<T> val;
  std::vector<I> indx, pntrb, pntre;
  description<I> described;
  zor_sparse handle = nullptr;
  int32_t status;
};

long double length(wide x) { return std::abs(x.real()) + std::abs(x.imag()); }
wide product(wide x, wide y) {
  return {x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real()};
}

// got is left + alpha op(A) x within the rounding of its terms. Entries outside the view enter the rounding.
template <class T, class M>
void expect_product(const M& a, char op, T alpha, const std::vector<T>& x, const std::vector<wide>& left,
                    const std::vector<T>& got) {
  std::vector<wide> exact = left;
  std::vector<long double> size(left.size());
  for (size_t i = 0; i < left.size(); ++i) size[i] = length(left[i]) + length(widened(got[i]));
  a.for_terms(op, [&](zor_int i, zor_int j, wide v, bool counts) {
    const wide t = product(product(widened(alpha), v), widened(x[size_t(j)]));
    size[size_t(i)] += length(t);
    if (counts) exact[size_t(i)] += t;
  });
  for (size_t i = 0; i < got.size(); ++i)
    ASSERT_LE(length(exact[i] - widened(got[i])), 40 * std::numeric_limits<real<T>>::epsilon() * size[i])
        << "element " << i;
}

template <class T>
std::vector<wide> times(T factor, const std::vector<T>& y) {
  std::vector<wide> out;
  for (const T& e : y) out.push_back(widened(factor) * widened(e));
  return out;
}

// A dense operand of n right-hand sides in either layout, NaN in its padding.
template <class T>
struct dense {
  dense(int32_t layout_, const std::vector<std::vector<T>>& columns)
      : layout(layout_), m(zor_int(columns[0].size())), n(zor_int(columns.size())) {
    ld = (layout == ZOR_SPARSE_ROW_MAJOR ? n : m) + 3;
    data.assign(size_t(ld * (layout == ZOR_SPARSE_ROW_MAJOR ? m : n)), scalar<T>(NAN, NAN));
    for (zor_int j = 0; j < n; ++j)
      for (zor_int i = 0; i < m; ++i) at(i, j) = columns[size_t(j)][size_t(i)];
  }
  T& at(zor_int i, zor_int j) {
    return data[size_t(layout == ZOR_SPARSE_ROW_MAJOR ? i * ld + j : i + j * ld)];
  }
  std::vector<T> column(zor_int j) {
    std::vector<T> x;
    for (zor_int i = 0; i < m; ++i) x.push_back(at(i, j));
    return x;
  }
  int32_t layout;
  zor_int m, n, ld;
  std::vector<T> data;
};

template <class T>
std::vector<std::vector<T>> columns_of(zor_int m, zor_int n, uint64_t seed) {
  std::vector<std::vector<T>> all;
  for (zor_int j = 0; j < n; ++j) all.push_back(numbers<T>(size_t(m), seed + uint64_t(j)));
  return all;
}

template <class T, class I>
std::string told(const view& v, char op, int32_t base) {
  return std::string{char(calls<T>::letter), v.structure, v.triangle, v.diagonal, ' ', op, ' ',
                     char('0' + base),       ' '} +
         std::to_string(8 * sizeof(I));
}

template <class T, class I>
void check_products(const filling& f, zor_int n) {
  for (const view& v : views)
    for (int32_t base : {0, 1}) {
      const matrix<T, I> a(f, v, base, I(base == 0 ? 5 : 1));
      if (!a.legal() || (v.structure != 'g' && f.rows != f.cols)) {
        EXPECT_EQ(ZOR_SPARSE_BAD_MATRIX, a.status);
        continue;
      }
      ASSERT_EQ(ZOR_SPARSE_OK, a.status) << zor_sparse_error_text();
      for (char op : {'n', 't', 'c', 's'}) {
        SCOPED_TRACE((told<T, I>(v, op, base)));
        const bool flip = op == 't' || op == 'c';
        const zor_int inputs = flip ? f.rows : f.cols, outputs = flip ? f.cols : f.rows;
        const T alpha = scalar<T>(1.25, -0.5), beta = scalar<T>(-0.75, 0.25);
        const auto x = columns_of<T>(inputs, n, 10), y = columns_of<T>(outputs, n, 20);
        auto z = y[0];
        ASSERT_EQ(ZOR_SPARSE_OK, calls<T>::mv(a.handle, op, alpha, x[0].data(), beta, z.data()));
        expect_product(a, op, alpha, x[0], times(beta, y[0]), z);
        std::fill(z.begin(), z.end(), scalar<T>(NAN, NAN));
        ASSERT_EQ(ZOR_SPARSE_OK, calls<T>::mv(a.handle, op, alpha, x[0].data(), scalar<T>(0, 0), z.data()));
        expect_product(a, op, alpha, x[0], std::vector<wide>(z.size()), z);
        for (int32_t layout : {ZOR_SPARSE_COLUMN_MAJOR, ZOR_SPARSE_ROW_MAJOR}) {
          dense<T> b(layout, x), c(layout, y);
          ASSERT_EQ(ZOR_SPARSE_OK, calls<T>::mm(a.handle, op, layout, n, alpha, b.data.data(), b.ld, beta,
                                                c.data.data(), c.ld));
          for (zor_int j = 0; j < n; ++j)
            expect_product(a, op, alpha, x[size_t(j)], times(beta, y[size_t(j)]), c.column(j));
        }
      }
    }
}

#define EVERY_TYPE(check, ...)          \
  check<float, int32_t>(__VA_ARGS__);   \
  check<float, int64_t>(__VA_ARGS__);   \
  check<double, int32_t>(__VA_ARGS__);  \
  check<double, int64_t>(__VA_ARGS__);  \
  check<zor_c32, int32_t>(__VA_ARGS__); \
  check<zor_c32, int64_t>(__VA_ARGS__); \
  check<zor_c64, int32_t>(__VA_ARGS__); \
  check<zor_c64, int64_t>(__VA_ARGS__);

TEST(Products, AreThoseOfTheView) {
  EVERY_TYPE(check_products, {23, 23, 23, 9, false}, 5)
  EVERY_TYPE(check_products, {7, 12, 12, 5, false}, 1)
  EVERY_TYPE(check_products, {1, 1, 1, 2, true}, 2)
}

bool solvable(const view& v) { return v.structure == 't' || v.structure == 'd'; }

template <class T, class I>
void check_solves(const filling& f, zor_int n) {
  for (const view& v : views)
    for (int32_t base : {0, 1}) {
      const matrix<T, I> a(f, v, base, I(base == 0 ? 5 : 1));
      if (!a.legal()) continue;
      for (char op : {'n', 't', 'c', 's'}) {
        SCOPED_TRACE((told<T, I>(v, op, base)));
        const T alpha = scalar<T>(1.25, -0.5), one = scalar<T>(1, 0);
        const auto b = columns_of<T>(f.rows, n, 30);
        std::vector<T> x = b[0];
        const int32_t status = calls<T>::sv(a.handle, op, alpha, b[0].data(), x.data());
        ASSERT_EQ(solvable(v) ? ZOR_SPARSE_OK : ZOR_SPARSE_NOT_SOLVABLE, status);
        if (status != ZOR_SPARSE_OK) {
          EXPECT_TRUE(same(b[0], x));
          continue;
        }
        const auto left = [&](const std::vector<T>& rhs) {
          auto l = times(alpha, rhs);
          for (wide& e : l) e = -e;
          return l;
        };
        const std::vector<T> nothing(size_t(f.rows));
        expect_product(a, op, one, x, left(b[0]), nothing);
        std::vector<T> in_place = b[0];
        ASSERT_EQ(ZOR_SPARSE_OK, calls<T>::sv(a.handle, op, alpha, in_place.data(), in_place.data()));
        EXPECT_TRUE(same(x, in_place));
        for (int32_t layout : {ZOR_SPARSE_COLUMN_MAJOR, ZOR_SPARSE_ROW_MAJOR}) {
          dense<T> rhs(layout, b), many(layout, columns_of<T>(f.rows, n, 40));
          ASSERT_EQ(ZOR_SPARSE_OK, calls<T>::sm(a.handle, op, layout, n, alpha, rhs.data.data(), rhs.ld,
                                                many.data.data(), many.ld));
          for (zor_int j = 0; j < n; ++j)
            expect_product(a, op, one, many.column(j), left(b[size_t(j)]), nothing);
          ASSERT_EQ(ZOR_SPARSE_OK, calls<T>::sm(a.handle, op, layout, n, alpha, rhs.data.data(), rhs.ld,
                                                rhs.data.data(), rhs.ld));
          EXPECT_TRUE(same(many.data, rhs.data));
        }
      }
    }
}

TEST(Solves, UndoTheProduct) {
  EVERY_TYPE(check_solves, {23, 23, 23, 9, true}, 11)
  EVERY_TYPE(check_solves, {1, 1, 1, 2, true}, 1)
}

// The public operation behind a kernel's letter.
constexpr char public_op(char op, char structure) { return structure == 'a' && op == 'c' ? 's' : op; }

constexpr filling kernel_filling = {41, 41, 41, 11, true};
constexpr zor_int kernel_columns = 13;

// One kernel against the public call that stands for it, from the same operands.
struct trial {
  const char* name;
  int32_t base;
  char op;
  view what;

  int32_t layout() const { return base == 0 ? ZOR_SPARSE_ROW_MAJOR : ZOR_SPARSE_COLUMN_MAJOR; }

  template <class T, class I, class Kernel, class Open>
  void compare(zor_int n, T alpha, const Kernel& kernel, const Open& open) const {
    const matrix<T, I> a(kernel_filling, what, base, I(3));
    ASSERT_EQ(ZOR_SPARSE_OK, a.status) << name;
    const I ld = I(base == 0 ? n : kernel_filling.rows);
    const auto in = numbers<T>(size_t(kernel_filling.rows * n), 50);
    auto expected = numbers<T>(in.size(), 60), got = expected;
    kernel(a, alpha, in.data(), expected.data(), ld);
    ASSERT_EQ(ZOR_SPARSE_OK, open(a.handle, alpha, in.data(), got.data(), ld)) << name;
    EXPECT_TRUE(same(expected, got)) << name;
  }

  template <class T, class I, class Kernel>
  void product(const Kernel& kernel) const {
    compare<T, I>(1, scalar<T>(0.75, 0.5), kernel, [&](zor_sparse a, T alpha, const T* x, T* y, I) {
      return calls<T>::mv(a, op, alpha, x, scalar<T>(1, 0), y);
    });
  }
  template <class T, class I, class Kernel>
  void products(const Kernel& kernel) const {
    compare<T, I>(
        kernel_columns, scalar<T>(0.75, 0.5), kernel, [&](zor_sparse a, T alpha, const T* b, T* c, I ld) {
          return calls<T>::mm(a, op, layout(), kernel_columns, alpha, b, ld, scalar<T>(1, 0), c, ld);
        });
  }

  // A kernel of each kind. Those of a solve start from the right-hand side in place; of them only the
  // diagonal view takes alpha.
  template <class T, class I>
  void run(void (*f)(const I*, const I*, const I*, const T*, const T*, const I*, const I*, const I*, const T*,
                     T*)) const {
    product<T, I>([&](const auto& a, T alpha, const T* x, T* y, I) {
      const I first = 1, last = I(a.rows);
      f(&first, &last, &last, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), x, y);
    });
  }
  template <class T, class I>
  void run(void (*f)(const I*, const T*, const T*, const I*, const I*, const I*, const T*, T*)) const {
    product<T, I>([&](const auto& a, T alpha, const T* x, T* y, I) {
      const I m = I(a.rows);
      f(&m, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), x, y);
    });
  }
  template <class T, class I>
  void run(void (*f)(const I*, const I*, const I*, const I*, const T*, const T*, const I*, const I*, const I*,
                     const T*, const I*, T*, const I*)) const {
    products<T, I>([&](const auto& a, T alpha, const T* b, T* c, I ld) {
      const I first = 1, n = I(kernel_columns), m = I(a.rows);
      f(&first, &n, &m, &n, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), b, &ld, c,
        &ld);
    });
  }
  template <class T, class I>
  void run(void (*f)(const I*, const I*, const T*, const T*, const I*, const I*, const I*, const T*, const I*,
                     T*, const I*)) const {
    products<T, I>([&](const auto& a, T alpha, const T* b, T* c, I ld) {
      const I n = I(kernel_columns), m = I(a.rows);
      f(&m, &n, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), b, &ld, c, &ld);
    });
  }
  template <class T>
  T solve_alpha() const {
    return what.structure == 'd' ? scalar<T>(0.75, 0.5) : scalar<T>(1, 0);
  }
  template <class T, class I>
  void run(void (*f)(const I*, const T*, const T*, const I*, const I*, const I*, T*)) const {
    compare<T, I>(
        1, solve_alpha<T>(),
        [&](const auto& a, T alpha, const T* b, T* x, I) {
          const I m = I(a.rows);
          std::copy(b, b + m, x);
          f(&m, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), x);
        },
        [&](zor_sparse a, T alpha, const T* b, T* x, I) { return calls<T>::sv(a, op, alpha, b, x); });
  }
  template <class T, class I>
  void run(void (*f)(const I*, const I*, const I*, const I*, const T*, const T*, const I*, const I*, const I*,
                     T*, const I*)) const {
    compare<T, I>(
        kernel_columns, solve_alpha<T>(),
        [&](const auto& a, T alpha, const T* b, T* x, I ld) {
          const I first = 1, n = I(kernel_columns), m = I(a.rows);
          std::copy(b, b + m * n, x);
          f(&first, &n, &m, &n, &alpha, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), x, &ld);
        },
        [&](zor_sparse a, T alpha, const T* b, T* x, I ld) {
          return calls<T>::sm(a, op, layout(), kernel_columns, alpha, b, ld, x, ld);
        });
  }
};

TEST(Calls, HaveTheBitsOfTheKernels) {
#define ROW_csr_gemvout_par(...)
#define ROW_CSR(name, T, I, base, op, form, tri, diag)                                \
  trial{#name,                                                                        \
        base,                                                                         \
        public_op(#op[0], #form[0]),                                                  \
        {#form[0], #tri[0] == '_' ? 'l' : #tri[0], #diag[0] == '_' ? 'n' : #diag[0]}} \
      .run(name);
#include "zor/tables/spblas_grammar.inc"
}

class threads_in_force {
 public:
  explicit threads_in_force(int32_t count) { zor_core_set_num_threads(count); }
  ~threads_in_force() { zor_core_set_num_threads(0); }
};

// All calls on a matrix, one result behind the other; on a large one the product with a vector.
constexpr zor_int most_columns = 19;
template <class T, class I>
std::vector<T> all_results(const matrix<T, I>& a, char op) {
  constexpr zor_int n = most_columns;
  const bool flip = op == 't' || op == 'c';
  const zor_int inputs = flip ? a.rows : a.cols, outputs = flip ? a.cols : a.rows;
  const auto x = numbers<T>(size_t(inputs * n), 70), y = numbers<T>(size_t(outputs * n), 71);
  const T alpha = scalar<T>(0.75, 0.5), beta = scalar<T>(0.5, -0.25);
  std::vector<T> all, z = y;
  const auto keep = [&](int32_t status) {
    EXPECT_EQ(ZOR_SPARSE_OK, status) << zor_sparse_error_text();
    all.insert(all.end(), z.begin(), z.end());
    z = y;
  };
  keep(calls<T>::mv(a.handle, op, alpha, x.data(), beta, z.data()));
  if (a.val.size() > 20000) return all;
  for (int32_t layout : {ZOR_SPARSE_COLUMN_MAJOR, ZOR_SPARSE_ROW_MAJOR}) {
    const zor_int ldb = layout == ZOR_SPARSE_ROW_MAJOR ? n : inputs,
                  ldc = layout == ZOR_SPARSE_ROW_MAJOR ? n : outputs;
    keep(calls<T>::mm(a.handle, op, layout, n, alpha, x.data(), ldb, beta, z.data(), ldc));
    if (solvable(a.what)) keep(calls<T>::sm(a.handle, op, layout, n, alpha, x.data(), ldb, z.data(), ldc));
  }
  return all;
}

// Matrices of one part, of parts that meet their neighbours, and of parts that meet all others.
template <class T>
void check_threads(const filling& f) {
  for (const view& v : views) {
    if (v.structure != 'g' && f.rows != f.cols) continue;
    const matrix<T, int64_t> a(f, v, 1, 1);
    const matrix<T, int32_t> twin(f, v, 1, 0);
    if (!a.legal()) continue;
    // Teams of many threads are slow to meet on few processors: each operation takes two numbers of them.
    const std::tuple<char, int32_t, int32_t> teams[] = {{'n', 2, 3}, {'t', 2, 7}, {'c', 3, 2}, {'s', 7, 3}};
    for (const auto& [op, count, twins_count] : teams) {
      SCOPED_TRACE((told<T, int64_t>(v, op, 1)));
      const auto expected = [&] {
        threads_in_force one(1);
        return all_results(a, op);
      }();
      {
        threads_in_force these(count);
        EXPECT_TRUE(same(expected, all_results(a, op))) << count << " threads";
      }
      {
        threads_in_force these(twins_count);
        EXPECT_TRUE(same(expected, all_results(twin, op))) << twins_count << " threads, 32-bit indices";
      }
      const bool flip = op == 't' || op == 'c';
      const auto x = numbers<T>(size_t((flip ? f.rows : f.cols) * most_columns), 70);
      const auto y = numbers<T>(size_t(flip ? f.cols : f.rows), 71);
      const std::vector<T> got(expected.begin(), expected.begin() + std::ptrdiff_t(y.size()));
      expect_product(a, op, scalar<T>(0.75, 0.5), x, times(scalar<T>(0.5, -0.25), y), got);
    }
  }
}

TEST(AnyThreads, GiveTheSameBits) {
  const filling fillings[] = {{700, 700, 40, 30, true},
                              {3001, 3001, 60, 60, true},
                              {800, 800, 800, 160, true},
                              {900, 1500, 300, 120, false}};
  for (const filling& f : fillings) {
    SCOPED_TRACE(f.rows);
    check_threads<double>(f);
    check_threads<zor_c32>(f);
  }
}

TEST(AnyThreads, ACallersRegionKeepsCallsSerial) {
  const matrix<double, int64_t> a({1501, 1501, 40, 90, true}, {'s', 'l', 'n'}, 0, 0);
  const auto expected = all_results(a, 'n');
  int wrong = 0;
#pragma omp parallel num_threads(3) reduction(+ : wrong)
  wrong += !same(expected, all_results(a, 'n'));
  EXPECT_EQ(0, wrong);
}

// Bad arguments of the calls: status and text, and nothing written.
TEST(Refusals, NameTheArgument) {
  const matrix<double, int32_t> a({4, 4, 4, 3, true}, {'t', 'l', 'n'}, 1, 1),
      g({3, 4, 4, 3, true}, {'g', 'l', 'n'}, 0, 0);
  zor_sparse none = nullptr;
  constexpr int32_t plain = ZOR_SPARSE_PLAIN, f = ZOR_SPARSE_COLUMN_MAJOR, c = ZOR_SPARSE_ROW_MAJOR;
  const std::vector<double> x(40, 1), before(40, 7);
  std::vector<double> y = before;
  const auto expect = [&](int32_t status, const std::string& text, int32_t got) {
    EXPECT_EQ(status, got);
    EXPECT_EQ(text, zor_sparse_error_text());
    EXPECT_EQ(before, y);
  };
  const double* px = x.data();
  double* py = y.data();
  const int32_t handle = ZOR_SPARSE_BAD_HANDLE, argument = ZOR_SPARSE_BAD_ARGUMENT;
  float single = 0;
  expect(handle, "a: no matrix, or one already freed", zor_sparse_dmv(none, plain, 1, px, 0, py));
  expect(handle, "a: no matrix, or one already freed", zor_sparse_check(none));
  expect(handle, "a: no matrix, or one already freed", zor_sparse_free(&none));
  expect(handle, "a: no matrix, or one already freed", zor_sparse_free(nullptr));
  expect(handle, "a: elements of type d, the call takes type s",
         zor_sparse_smv(a.handle, plain, 1, &single, 0, &single));
  expect(argument, "op: 78 is no value of it", zor_sparse_dmv(a.handle, 'N', 1, px, 0, py));
  expect(argument, "x is null", zor_sparse_dmv(a.handle, plain, 1, nullptr, 0, py));
  expect(argument, "y is null", zor_sparse_dmv(a.handle, plain, 1, px, 0, nullptr));
  expect(argument, "layout: 0 is no value of it", zor_sparse_dmm(a.handle, plain, 0, 2, 1, px, 4, 0, py, 4));
  expect(argument, "n: -1 is not in 0 to 2147483647",
         zor_sparse_dmm(a.handle, plain, f, -1, 1, px, 4, 0, py, 4));
  expect(argument, "n: 2147483648 is not in 0 to 2147483647",
         zor_sparse_dsm(a.handle, plain, f, 1ll << 31, 1, px, 4, py, 4));
  expect(argument, "b is null", zor_sparse_dmm(a.handle, plain, f, 2, 1, nullptr, 4, 0, py, 4));
  expect(argument, "ldb: 3 does not fit runs of 4 elements",
         zor_sparse_dmm(g.handle, plain, f, 2, 1, px, 3, 0, py, 4));
  expect(argument, "ldb: 1 does not fit runs of 2 elements",
         zor_sparse_dmm(g.handle, plain, c, 2, 1, px, 1, 0, py, 4));
  expect(argument, "ldb: 2147483648 does not fit runs of 4 elements",
         zor_sparse_dmm(g.handle, plain, f, 2, 1, px, 1ll << 31, 0, py, 4));
  expect(argument, "c is null", zor_sparse_dmm(a.handle, plain, f, 2, 1, px, 4, 0, nullptr, 4));
  expect(argument, "ldc: 2 does not fit runs of 3 elements",
         zor_sparse_dmm(g.handle, plain, f, 2, 1, px, 4, 0, py, 2));
  expect(argument, "b is null", zor_sparse_dsv(a.handle, plain, 1, nullptr, py));
  expect(argument, "x is null", zor_sparse_dsv(a.handle, plain, 1, px, nullptr));
  expect(argument, "ldx: in place it is that of b, 4, not 5",
         zor_sparse_dsm(a.handle, plain, f, 2, 1, py, 4, py, 5));
  expect(ZOR_SPARSE_NOT_SOLVABLE, "a: only triangular and diagonal views can be solved with",
         zor_sparse_dsv(g.handle, plain, 1, px, py));
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_dmm(a.handle, plain, f, 0, 1, nullptr, 4, 0, nullptr, 4))
      << "no right-hand side";
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_dmv(a.handle, plain, 0, nullptr, 1, py)) << "alpha 0 reads no x";
  EXPECT_EQ(before, y);
  zor_sparse freed = nullptr;
  ASSERT_EQ(ZOR_SPARSE_OK, create(&freed, a.described));
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_free(&freed));
  EXPECT_EQ(nullptr, freed);
}

// A lower triangle of 4 rows, 1-based, whose fields a case makes bad.
struct small {
  std::vector<double> val = {2, 1, 2, 1, 2, 1, 2};
  std::vector<zor_int> indx = {1, 1, 2, 2, 3, 1, 4}, pntrb = {1, 2, 4, 6, 8};
  zor_sparse_desc d = {ZOR_SPARSE_CSR, 'd',          1,      't', 'l', 'n', 4, 4, 7, val.data(),
                       indx.data(),    pntrb.data(), nullptr};
};

TEST(Refusals, NameTheFirstFaultOfADescription) {
  const struct {
    void (*spoil)(small&);
    int32_t status;
    const char* text;
  } cases[] = {
      {[](small& s) { s.d.format = ZOR_SPARSE_BSR; }, ZOR_SPARSE_NOT_SUPPORTED,
       "format: BSR is not supported yet"},
      {[](small& s) { s.d.format = 9; }, ZOR_SPARSE_BAD_MATRIX, "format: 9 is no value of it"},
      {[](small& s) { s.d.type = 0; }, ZOR_SPARSE_BAD_MATRIX, "type: 0 is no value of it"},
      {[](small& s) { s.d.base = 2; }, ZOR_SPARSE_BAD_MATRIX, "base: 2 is no value of it"},
      {[](small& s) { s.d.structure = 'x'; }, ZOR_SPARSE_BAD_MATRIX, "structure: 120 is no value of it"},
      {[](small& s) { s.d.structure = 'h'; }, ZOR_SPARSE_BAD_MATRIX,
       "structure: a Hermitian matrix has complex elements"},
      {[](small& s) { s.d.triangle = 'L'; }, ZOR_SPARSE_BAD_MATRIX, "triangle: 76 is no value of it"},
      {[](small& s) { s.d.diagonal = 'x'; }, ZOR_SPARSE_BAD_MATRIX, "diagonal: 120 is no value of it"},
      {[](small& s) { s.d.rows = -1; }, ZOR_SPARSE_BAD_MATRIX, "rows: -1 is not in 0 to 576460752303423487"},
      {[](small& s) { s.d.nnz = INT64_MAX; }, ZOR_SPARSE_BAD_MATRIX,
       "nnz: 9223372036854775807 is not in 0 to 576460752303423487"},
      {[](small& s) { s.d.cols = 5; }, ZOR_SPARSE_BAD_MATRIX, "cols: this view is square, not 4 by 5"},
      {[](small& s) { s.d.val = nullptr; }, ZOR_SPARSE_BAD_MATRIX, "val is null"},
      {[](small& s) { s.d.indx = nullptr; }, ZOR_SPARSE_BAD_MATRIX, "indx is null"},
      {[](small& s) { s.d.pntrb = nullptr; }, ZOR_SPARSE_BAD_MATRIX, "pntrb is null"},
      {[](small& s) { s.pntrb[2] = 1; }, ZOR_SPARSE_BAD_MATRIX, "pntre: row 2 ends at 1, before its begin 2"},
      {[](small& s) { s.pntrb[4] = 9; }, ZOR_SPARSE_BAD_MATRIX,
       "pntre: row 4 ends at 9, behind the last of 7 entries"},
      {[](small& s) { s.pntrb[1] = INT64_MIN; }, ZOR_SPARSE_BAD_MATRIX,
       "pntre: row 1 ends at -9223372036854775808, before its begin 1"},
      {[](small& s) {
         s.indx[3] = 5;
         s.indx[5] = 0;
       },
       ZOR_SPARSE_BAD_MATRIX, "indx: entry 1 of row 3 has column 5, not 1 to 4"},
      {[](small& s) { s.indx[5] = 0; }, ZOR_SPARSE_BAD_MATRIX,
       "indx: entry 1 of row 4 has column 0, not 1 to 4"},
      {[](small& s) { std::swap(s.indx[1], s.indx[2]); }, ZOR_SPARSE_NOT_SOLVABLE,
       "a: the columns of row 2 do not ascend"},
      {[](small& s) { s.indx[6] = 1; }, ZOR_SPARSE_NOT_SOLVABLE, "a: the columns of row 4 do not ascend"},
      {[](small& s) { s.indx[6] = 3; }, ZOR_SPARSE_NOT_SOLVABLE, "a: row 4 has no entry on the diagonal"},
      {[](small& s) { s.val[2] = -0.0; }, ZOR_SPARSE_NOT_SOLVABLE,
       "a: the entry of row 2 on the diagonal is 0"},
      {[](small& s) { s.d.pntre = s.pntrb.data(); }, ZOR_SPARSE_NOT_SOLVABLE,
       "a: row 1 has no entry on the diagonal"},
      {[](small& s) {
         s.val[2] = 0;
         s.d.diagonal = 'u';
         s.d.triangle = 'u';
       },
       ZOR_SPARSE_OK, nullptr},
      {[](small& s) {
         s.d.structure = 'd';
         s.d.diagonal = 'u';
         s.d.pntrb = nullptr;
       },
       ZOR_SPARSE_OK, nullptr},
      {[](small& s) {
         s.d.rows = s.d.cols = s.d.nnz = 0;
         s.d.pntrb = nullptr;
       },
       ZOR_SPARSE_OK, nullptr}};
  for (const auto& c : cases) {
    small s;
    c.spoil(s);
    zor_sparse a = reinterpret_cast<zor_sparse>(&s);
    const int32_t status = zor_sparse_create(&a, &s.d);
    SCOPED_TRACE(c.text != nullptr ? c.text : "good");
    const double b[4] = {1, 2, 3, 4};
    double x[4] = {7, 7, 7, 7};
    if (status == ZOR_SPARSE_OK) {
      EXPECT_EQ(c.status, zor_sparse_dsv(a, ZOR_SPARSE_PLAIN, 1, b, x));
    } else {
      EXPECT_EQ(c.status, status);
      EXPECT_EQ(nullptr, a);
    }
    if (c.text != nullptr) {
      EXPECT_STREQ(c.text, zor_sparse_error_text());
      EXPECT_EQ(7, x[0]);
    }
    if (a != nullptr) zor_sparse_free(&a);
  }
  zor_sparse a;
  EXPECT_EQ(ZOR_SPARSE_BAD_ARGUMENT, zor_sparse_create(&a, nullptr));
  EXPECT_EQ(ZOR_SPARSE_BAD_ARGUMENT, zor_sparse_create(nullptr, nullptr));
}

// Arrays that change: the next check tells, and a matrix that failed is refused until it is good again.
TEST(Refusals, FollowTheArraysAtACheck) {
  small s;
  zor_sparse a;
  ASSERT_EQ(ZOR_SPARSE_OK, zor_sparse_create(&a, &s.d));
  const double b[4] = {2, 5, 8, 11};
  double x[4] = {};
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_dsv(a, ZOR_SPARSE_PLAIN, 1, b, x));
  EXPECT_EQ((std::vector<double>{1, 2, 3, 5}), std::vector<double>(x, x + 4));
  s.indx[0] = 77;
  EXPECT_EQ(ZOR_SPARSE_BAD_MATRIX, zor_sparse_check(a));
  EXPECT_EQ(ZOR_SPARSE_BAD_MATRIX, zor_sparse_dsv(a, ZOR_SPARSE_PLAIN, 1, b, x));
  s.indx[0] = 1;
  for (zor_int& p : s.pntrb) p += 10;
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_check(a));
  EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_dsv(a, ZOR_SPARSE_PLAIN, 2, b, x));
  EXPECT_EQ((std::vector<double>{2, 4, 6, 10}), std::vector<double>(x, x + 4));
  zor_sparse_free(&a);
}

// Descriptions spoiled at random, between guard pages: refused, or every call on what was accepted stays
// inside the arrays. (Sizes beyond the arrays' own cannot be noticed; only rows that shrink or leave the
// range are tried.)
template <class I>
void spoil_descriptions(uint64_t seed) {
  random_bits random(seed);
  constexpr zor_int m = 9, nnz = 30;
  int refused = 0, accepted = 0;
  guarded<double> val(nnz), in(2 * m), out(2 * m);
  guarded<I> indx(nnz), pntrb(m), pntre(m);
  for (int round = 0; round < 6000; ++round) {
    const I base = I(random.between(0, 1));
    for (zor_int r = 0, k = 0; r < m; ++r) {
      pntrb[size_t(r)] = I(k + 1);
      const zor_int last = r == m - 1 ? nnz : k + 3;
      for (zor_int c = r > m - 4 ? m - 4 : r; k < last && c < m; ++k, ++c) {
        val[size_t(k)] = 1 + double(k);
        indx[size_t(k)] = I(c + base);
      }
      pntre[size_t(r)] = I(k + 1);
    }
    description<I> d = {ZOR_SPARSE_CSR,
                        'd',
                        int32_t(base),
                        "gttsad"[random.between(0, 5)],
                        "lu"[random.between(0, 1)],
                        "nu"[random.between(0, 1)],
                        I(m),
                        I(m),
                        I(nnz),
                        val.data(),
                        indx.data(),
                        pntrb.data(),
                        pntre.data()};
    const I extremes[] = {0,
                          1,
                          -1,
                          I(m),
                          I(m + 1),
                          I(nnz),
                          I(nnz + 1),
                          I(nnz + 2),
                          std::numeric_limits<I>::max(),
                          std::numeric_limits<I>::min()};
    for (zor_int spoils = random.between(1, 3); spoils > 0; --spoils) {
      const I bad = random.between(0, 2) == 0 ? I(random.next())
                    : random.between(0, 1)    ? I(random.between(-3, nnz + 3))
                                              : extremes[random.between(0, 9)];
      switch (random.between(0, 9)) {
        case 0:
        case 1:
          indx[size_t(random.between(0, nnz - 1))] = bad;
          break;
        case 2:
        case 3:
          pntrb[size_t(random.between(0, m - 1))] = bad;
          break;
        case 4:
        case 5:
          pntre[size_t(random.between(0, m - 1))] = bad;
          break;
        case 6:
          (random.between(0, 1) ? d.rows : d.cols) = bad < m ? bad : I(m);
          break;
        case 7:
          d.nnz = bad;
          break;
        case 8:
          (&d.format)[random.between(0, 5)] = int32_t(bad);
          break;
        default: {
          const void* nothing = nullptr;
          std::memcpy(reinterpret_cast<char*>(&d.val) + 8 * random.between(0, 2), &nothing, sizeof nothing);
        }
      }
    }
    zor_sparse a;
    if (create(&a, d) != ZOR_SPARSE_OK) {
      ++refused;
      EXPECT_EQ(nullptr, a);
      continue;
    }
    ++accepted;
    for (char op : {'n', 't'}) {
      const zor_int inputs = op == 't' ? d.rows : d.cols, outputs = op == 't' ? d.cols : d.rows;
      for (zor_int n : {1, 2}) {
        std::fill(in.begin(), in.end(), 1.0);
        double *x = in.end() - n * inputs, *y = out.end() - n * outputs;
        const int32_t layout = "fc"[random.between(0, 1)];
        const zor_int ldb = std::max<zor_int>(1, layout == 'f' ? inputs : n),
                      ldc = std::max<zor_int>(1, layout == 'f' ? outputs : n);
        if (n == 1) {
          zor_sparse_dmv(a, op, 1, x, 0, y);
          zor_sparse_dsv(a, op, 1, x, y);
        } else {
          zor_sparse_dmm(a, op, layout, n, 1, x, ldb, 0, y, ldc);
          zor_sparse_dsm(a, op, layout, n, 1, x, ldb, y, ldc);
        }
      }
    }
    zor_sparse_free(&a);
  }
  EXPECT_LT(2000, refused);
  EXPECT_LT(300, accepted);
}

TEST(Refusals, KeepSpoiledDescriptionsFromTheKernels) {
  spoil_descriptions<int32_t>(1);
  spoil_descriptions<int64_t>(2);
}

}  // namespace
