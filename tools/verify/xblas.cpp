// SPDX-License-Identifier: MIT
// Products in every precision: the kernels and the threaded entries.
#include "bench/xblas_calls.h"
#include "tools/verify/battery.h"

namespace zor_tools {
namespace {

using zor_bench::product;
using zor_bench::product_call;

struct shape {
  zor_int m, n, kl, ku;
};
constexpr shape shapes[] = {{1, 1, 0, 0},   {2, 3, 1, 2},    {5, 9, 4, 1},   {8, 1, 3, 0},
                            {17, 12, 5, 7}, {33, 31, 0, 30}, {70, 65, 69, 2}};
constexpr shape divided = {311, 277, 250, 40};  // large enough to be divided over threads

constexpr zor_int increments[][2] = {{1, 1}, {2, -1}, {-1, 3}, {-2, -2}};
constexpr double factors[][2] = {{1, 0}, {0, 0}, {-0.6, 0.4}};

template <class T>
void run_case(recorder& out, const product<T>& p, shape s, zor_int trans, zor_int prec, uint64_t iteration,
              content kind) {
  numbers source(iteration);
  product_call<T> c = {};
  c.trans = trans, c.uplo = iteration % 2 == 0 ? ZOR_UPPER : ZOR_LOWER, c.m = s.m, c.n = s.n, c.kl = s.kl,
  c.ku = s.ku;
  c.prec = prec, c.incx = increments[iteration % 4][0], c.incy = increments[iteration % 4][1];
  c.lda = p.stored_rows(c) + zor_int(iteration % 3);
  const double* const f = factors[iteration % 3];
  const double* const g = factors[iteration / 3 % 3];
  c.alpha = scalar<T>(f[0], f[1]), c.beta = scalar<T>(g[0], g[1]);
  const auto extent = [](zor_int n, zor_int inc) { return size_t((n - 1) * (inc < 0 ? -inc : inc) + 1); };
  block<T> a(size_t(c.lda * c.n), iteration % 2, source, kind),
      head(extent(p.inputs(c), c.incx), iteration / 2 % 2, source, kind),
      tail(head.size(), iteration % 2, source), y(extent(p.outputs(c), c.incy), iteration / 3 % 2, source);
  c.a = a.data(), c.head = head.data(), c.tail = tail.data(), c.y = y.data();
  p.call(c);
  y.record(out);
}

template <class T>
void run_product(recorder& out, const product<T>& p) {
  if (!out.begin(p.name)) return;
  uint64_t iteration = 0;
  for (const zor_int prec : {ZOR_SINGLE, ZOR_DOUBLE, ZOR_INDIGENOUS, ZOR_EXTRA})
    for (const zor_int trans : {ZOR_NO_TRANS, ZOR_TRANS, ZOR_CONJ_TRANS}) {
      for (const shape s : shapes)
        for (int repeat = 0; repeat < 3; ++repeat)  // other scalars and increments
          run_case(out, p, s, trans, prec, ++iteration, repeat == 2 ? content::special : content::ordinary);
      run_case(out, p, divided, trans, prec, ++iteration, content::ordinary);
    }
}

}  // namespace

void run_xblas(recorder& out) {
  zor_bench::for_kernel_products([&](const auto& p) { run_product(out, p); });
  zor_bench::for_public_products([&](const auto& p) { run_product(out, p); });
}

}  // namespace zor_tools
