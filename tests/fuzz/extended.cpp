// SPDX-License-Identifier: MIT
// Matrix-vector products in a chosen precision: the kernels and the public routines.
#include <map>

#include "tests/fuzz/matrix.h"
#include "tests/xblas/routines.h"

namespace zor_fuzz {
namespace {

using zor_test::form, zor_test::product, zor_test::product_call;

// Element (i, j) of op(A), and whether it stands in the array.
template <class T>
struct stored_operand {
  const product<T>& r;
  const product_call<T>& c;
  operand<T> a;

  wide operator()(zor_int i, zor_int j) const {
    if (!r.square() && c.trans != ZOR_NO_TRANS) {
      return conj_when(c.trans == ZOR_CONJ_TRANS, plain(j, i));
    }
    if (!r.square() || (c.uplo == ZOR_UPPER ? i <= j : i >= j)) return plain(i, j);
    return r.of == form::hermitian ? std::conj(plain(j, i)) : plain(j, i);
  }

 private:
  wide plain(zor_int i, zor_int j) const {
    if (r.of != form::band) return r.of == form::hermitian && i == j ? a(i, j).real() : a(i, j);
    return i - j > c.kl || j - i > c.ku ? wide(0) : a(c.ku + i - j, j);
  }
};

// The positions of arguments that a public routine refuses when they are bad.
template <class T>
void spoil(trial& t, const product<T>& r, product_call<T>* c) {
  const int sizes = r.square() ? 2 : r.of == form::band ? 5 : 3;  // before alpha
  c->trans = r.square() ? c->trans : t.argument(1, c->trans, zor_int(110));
  c->uplo = r.square() ? t.argument(1, c->uplo, zor_int(123)) : c->uplo;
  (r.square() ? c->n : c->m) = t.argument(2, r.square() ? c->n : c->m, zor_int(-1));
  c->lda = t.argument(sizes + 3, c->lda, zor_int(0));
  const int incx = sizes + (r.two ? 6 : 5);
  c->incx = t.argument(incx, c->incx, zor_int(0));
  c->incy = t.argument(incx + 3, c->incy, zor_int(0));
  c->prec = t.argument(incx + 4, c->prec, zor_int(210));
}

template <class T>
void run_product(trial& t, const product<T>& r) {
  product_call<T> c{};
  c.trans = t.draw("trans", ZOR_NO_TRANS, ZOR_CONJ_TRANS, ZOR_NO_TRANS);
  c.uplo = t.draw("uplo", ZOR_UPPER, ZOR_LOWER, ZOR_UPPER);
  c.prec = t.draw("prec", ZOR_SINGLE, ZOR_EXTRA, ZOR_EXTRA);
  c.n = t.size("n", 400);
  c.m = r.square() ? c.n : t.size("m", 400);
  const bool band = r.of == form::band;
  c.kl = band ? std::min(t.size("kl", 40), std::max<zor_int>(c.m - 1, 0)) : 0;
  c.ku = band ? std::min(t.size("ku", 40), std::max<zor_int>(c.n - 1, 0)) : 0;
  c.lda = t.leading("lda", r.stored_rows(c));
  c.incx = t.increment("incx");
  c.incy = t.increment("incy");
  c.alpha = t.scalar<T>("alpha");
  c.beta = t.scalar<T>("beta");
  const zor_int inputs = r.inputs(c), outputs = r.outputs(c);
  stored_operand<T> a{r, c, t.matrix<T>("a", use::in, r.stored_rows(c), c.n, c.lda)};
  for (zor_int j = 0; j < c.n; ++j)
    for (zor_int i = 0; i < r.stored_rows(c); ++i)
      if (!zor_test::holds(r, c, i, j)) a.a.spare(i, j);
  const auto head = t.vector<T>("head", use::in, inputs, c.incx),
             tail = t.vector<T>("tail", use::in, r.two ? inputs : 0, c.incx),
             y = t.vector<T>("y", when_scaled(c.beta, inputs > 0 && !band), outputs, c.incy);
  c.a = a.a;
  c.head = head;
  c.tail = tail;
  c.y = y;
  product_call<T> given = c;
  spoil(t, r, &given);
  t.call([&] { r.call(given); });
  if (inputs < 1) return;
  t.some_of(outputs, 1, [&](zor_int i, zor_int) {
    wide exact = band ? times(widened(c.beta), y(i)) : scaled(c.beta, y, i);
    long double size = magnitude(exact);
    for (zor_int j = 0; j < inputs; ++j) {
      const wide element = a(i, j), x = head(j), x2 = r.two ? tail(j) : wide(0);
      exact += times(widened(c.alpha), times(element, x + x2));
      size += magnitude(widened(c.alpha)) * magnitude(element) * (magnitude(x) + magnitude(x2));
    }
    t.near(y.now(i), exact, 2 * size, inputs, "y", i);
  });
}

// Rows find their product by the name.
template <class T>
std::map<std::string, product<T>>& products() {
  static std::map<std::string, product<T>> list;
  return list;
}
template <class Visit>
std::vector<row> rows_of(const Visit& for_products) {
  std::vector<row> list;
  for_products([&]<class T>(const product<T>& r) {
    products<T>().emplace(r.name, r);
    list.push_back({r.name, [](trial& t) { run_product(t, products<T>().at(t.name())); }});
  });
  return list;
}
const rows kernels("extended kernel", serial,
                   rows_of([](const auto& visit) { zor_test::for_kernel_products(visit); }));
const rows divided("extended product", checked,
                   rows_of([](const auto& visit) { zor_test::for_public_products(visit); }));

}  // namespace
}  // namespace zor_fuzz
