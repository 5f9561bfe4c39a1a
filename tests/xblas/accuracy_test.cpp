// SPDX-License-Identifier: MIT
// The extra precision against arithmetic of 1,000 bits: sums that cancel, vectors of two parts, both ends of
// the range.
#include <mpfr.h>

#include <algorithm>
#include <vector>

#include "tests/support/operand.h"
#include "tests/xblas/routines.h"

namespace {

using namespace zor_test;

class exact {
 public:
  explicit exact(double v = 0) {
    mpfr_init2(v_, 1000);
    mpfr_set_d(v_, v, MPFR_RNDN);
  }
  exact(const exact& other) : exact() { mpfr_set(v_, other.v_, MPFR_RNDN); }
  exact& operator=(const exact& other) {
    mpfr_set(v_, other.v_, MPFR_RNDN);
    return *this;
  }
  ~exact() { mpfr_clear(v_); }
  friend exact operator+(const exact& a, const exact& b) { return by(mpfr_add, a, b); }
  friend exact operator-(const exact& a, const exact& b) { return by(mpfr_sub, a, b); }
  friend exact operator*(const exact& a, const exact& b) { return by(mpfr_mul, a, b); }
  exact magnitude() const {
    exact r;
    mpfr_abs(r.v_, v_, MPFR_RNDN);
    return r;
  }
  double value() const { return mpfr_get_d(v_, MPFR_RNDN); }

 private:
  template <class F>
  static exact by(F* operation, const exact& a, const exact& b) {
    exact r;
    operation(r.v_, a.v_, b.v_, MPFR_RNDN);
    return r;
  }
  mpfr_t v_;
};

// Both parts of a sum of products, and the sums of the magnitudes of all real products.
struct exact_sum {
  exact part[2], size[2];
  template <class A, class B>
  void add_product(const A (&a)[2], const B (&b)[2]) {
    for (int i = 0; i < 2; ++i)
      for (int j = 0; j < 2; ++j) {
        const exact product = a[i] * b[j];
        const int p = (i + j) % 2;
        part[p] = i + j == 2 ? part[p] - product : part[p] + product;
        size[p] = size[p] + product.magnitude();
      }
  }
};
template <class T>
void parts_of(T e, exact (&result)[2]) {
  result[0] = exact(zor_ref::re_of(e));
  result[1] = exact(zor_ref::im_of(e));
}

// The rows of op(A), as the plain loops have them.
template <class T>
zor_ref::terms<T> row_of(const product<T>& r, const product_call<T>& c, zor_int i) {
  zor_ref::terms<T> row;
  const zor_ref::factors<T> x = {c.head, r.two ? c.tail : nullptr, r.inputs(c), c.incx};
  for (zor_int j = 0; j < r.inputs(c); ++j) {
    const bool plain = r.square() || c.trans == 111;
    const zor_int p = plain ? i : j, q = plain ? j : i;
    if (r.of == form::band && (q - p > c.ku || p - q > c.kl)) continue;
    const bool stored = !r.square() || (c.uplo == 121 ? p <= q : p >= q);
    const zor_int line = stored ? p : q, column = stored ? q : p;
    T e = c.a[(r.of == form::band ? c.ku + line - column : line) + column * c.lda];
    if (r.of == form::hermitian ? !stored : !r.square() && c.trans == 113) e = zor_ref::conj(e);
    if (r.of == form::hermitian && p == q) zor_ref::set(e, zor_ref::re_of(e), 0);
    x.add_terms(row, e, j);
  }
  return row;
}

// The error of each real output: half a unit of the result, and n units of a pair for the magnitudes that
// were added.
template <class T>
void check_bound(const product<T>& r, product_call<T> c, std::vector<T> y) {
  const std::vector<T> old = y;
  c.y = y.data();
  r.call(c);
  const double unit = zor_ref::is_single<T> ? 0x1p-24 : 0x1p-53;
  for (zor_int i = 0; i < r.outputs(c); ++i) {
    exact_sum row, whole;
    exact a[2], x[2], size[2];
    zor_int count = 0;
    for (const auto& [element, factor] : row_of(r, c, i)) {
      parts_of(element, a);
      parts_of(factor, x);
      row.add_product(a, x);
      ++count;
    }
    exact alpha[2], beta[2], before[2];
    parts_of(c.alpha, alpha);
    parts_of(c.beta, beta);
    parts_of(old[size_t(i)], before);
    whole.add_product(alpha, row.part);
    whole.add_product(beta, before);
    // Magnitudes beyond the cancelled sum.
    exact_sum magnitudes;
    for (int p = 0; p < 2; ++p) alpha[p] = alpha[p].magnitude();
    magnitudes.add_product(alpha, row.size);
    for (int p = 0; p < 2; ++p) {
      const double result = p == 0 ? zor_ref::re_of(y[size_t(i)]) : zor_ref::im_of(y[size_t(i)]);
      const double error = (exact(result) - whole.part[p]).magnitude().value();
      const double bound =
          1.0001 * unit * whole.part[p].magnitude().value() +
          double(6 * count + 30) * 0x1p-106 * (magnitudes.size[p].value() + whole.size[p].value());
      EXPECT_LE(error, bound) << r.name << c << " output " << i << " part " << p;
    }
  }
}

struct content {
  const char* name;
  int spread;       // exponents of the factors
  bool cancelling;  // each product of a row followed by nearly its opposite
};
constexpr content contents[] = {
    {"ordinary", 0, false}, {"wide range", 40, false}, {"cancelling", 0, true}, {"both", 30, true}};

template <class T>
void check_contents(const product<T>& r, const content& what, zor_int m, zor_int n, zor_int trans) {
  SCOPED_TRACE(what.name);
  random_bits random(uint64_t(m * 7 + n));
  const auto number = [&] {
    return std::ldexp(random.unit(), int(random.between(-what.spread, what.spread)));
  };
  product_call<T> c = {};
  c.trans = trans, c.uplo = trans == 111 ? 121 : 122, c.m = m, c.n = r.square() ? m : n, c.kl = m - 1,
  c.ku = c.n - 1;
  c.lda = r.stored_rows(c), c.incx = c.incy = 1, c.prec = 214;
  c.alpha = scalar<T>(number(), number()), c.beta = scalar<T>(number(), number());
  std::vector<T> a(size_t(c.lda * c.n)), head(size_t(r.inputs(c))), tail(head.size()),
      y(size_t(r.outputs(c)));
  for (T& e : a) e = scalar<T>(number(), number());
  for (T& e : head) e = scalar<T>(number(), number());
  for (T& e : tail) e = scalar<T>(0x1p-53 * number(), 0x1p-53 * number());
  for (T& e : y) e = scalar<T>(number(), number());
  // With x of pairs of equal elements and A of opposite ones, only the last bits of what differs remain.
  if (what.cancelling)
    for (size_t k = 0; k + 1 < head.size(); k += 2) {
      head[k + 1] = scalar<T>(zor_ref::re_of(head[k]) * (1 + 0x1p-22), zor_ref::im_of(head[k]));
      if (r.of != form::general) continue;
      for (zor_int i = 0; i < r.outputs(c); ++i) {
        const zor_int step = trans == 111 ? c.lda : 1;
        const size_t at = size_t(trans == 111 ? i + zor_int(k) * c.lda : zor_int(k) + i * c.lda);
        a[at + size_t(step)] = scalar<T>(-zor_ref::re_of(a[at]), -zor_ref::im_of(a[at]));
      }
    }
  c.a = a.data(), c.head = head.data(), c.tail = tail.data();
  check_bound(r, c, y);
  // What is left of A x when its rounded value is taken away.
  c.alpha = scalar<T>(1, 0), c.beta = scalar<T>(0, 0), c.y = y.data();
  r.call(c);
  c.beta = scalar<T>(-1, 0);
  check_bound(r, c, y);
}

TEST(ExtraPrecision, StaysWithinItsErrorBound) {
  for_kernel_products([](const auto& r) {
    for (const content& what : contents)
      for (const zor_int trans : {111, 112, 113})
        for (const zor_int n : {2, 9, 40}) check_contents(r, what, n, n + 3, trans);
  });
}

}  // namespace
