// SPDX-License-Identifier: MIT
// The products and their plain loops behind one signature.
#pragma once

#include <cmath>
#include <limits>
#include <ostream>

#include "bench/xblas_calls.h"
#include "tests/ref/xblas.h"
#include "tests/support/elements.h"

namespace zor_bench {

template <class T>
std::ostream& operator<<(std::ostream& out, const product_call<T>& c) {
  return out << " trans " << c.trans << " uplo " << c.uplo << " " << c.m << " by " << c.n << " kl " << c.kl
             << " ku " << c.ku << " lda " << c.lda << " incx " << c.incx << " incy " << c.incy << " alpha "
             << zor_ref::re_of(c.alpha) << "," << zor_ref::im_of(c.alpha) << " beta "
             << zor_ref::re_of(c.beta) << "," << zor_ref::im_of(c.beta) << " prec " << c.prec;
}

}  // namespace zor_bench

namespace zor_test {

using zor_bench::for_kernel_products;
using zor_bench::for_public_products;
using zor_bench::form;
using zor_bench::product;
using zor_bench::product_call;

// The same product by plain loops, into y.
template <class T>
void reference(const product<T>& r, const product_call<T>& c, T* y) {
  const zor_ref::factors<T> x = {c.head, r.two ? c.tail : nullptr, 0, c.incx};
  if (r.of == form::general)
    zor_ref::gemv_x(int(c.trans), c.m, c.n, c.alpha, c.a, c.lda, x, c.beta, y, c.incy, int(c.prec));
  else if (r.of == form::band)
    zor_ref::gbmv_x(int(c.trans), c.m, c.n, c.kl, c.ku, c.alpha, c.a, c.lda, x, c.beta, y, c.incy,
                    int(c.prec));
  else
    zor_ref::symv_x(r.of == form::hermitian, int(c.uplo), c.n, c.alpha, c.a, c.lda, x, c.beta, y, c.incy,
                    int(c.prec));
}

// Whether place (i, j) of the array holds an element that is read.
template <class T>
bool holds(const product<T>& r, const product_call<T>& c, zor_int i, zor_int j) {
  if (r.of == form::band) return i >= c.ku - j && i - c.ku + j < c.m && i <= c.kl + c.ku;
  if (r.square()) return c.uplo == ZOR_UPPER ? i <= j : i >= j;
  return true;
}

}  // namespace zor_test
