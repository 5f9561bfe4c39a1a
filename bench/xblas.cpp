// SPDX-License-Identifier: MIT
// Matrix-vector products in extra precision through the public entries, beside plain loops in pairs of
// doubles and in quadruple precision.
#include <fmt/format.h>

#include <array>
#include <cstring>

#include "bench/bench.h"
#include "bench/dense_loops.h"
#include "bench/operands.h"
#include "bench/xblas_calls.h"
#include "zor/core.h"

namespace zor_bench {
namespace {

// A plain loop on the matrix and the vectors x and y of a case.
template <class T>
contender by_loop(const char* name, dense_loop* loop, dense_operation what, zor_int n,
                  const std::array<operand<T>, 3>& of) {
  const char type = is_complex<T> ? 'z' : 'd';
  const dense_job job = {what,         type,         n,           n, {0.75, 0.5}, {-1.25, 0.25},
                         of[0].data(), of[1].data(), of[2].data()};
  return {name, [=](int64_t repeats) {
            const auto keep = of;
            for (int64_t i = 0; i < repeats; ++i) loop(job);
          }};
}

template <class T>
bench_case extended(const environment& env, const product<T>& p, zor_int trans, zor_int n, zor_int prec) {
  bench_case c;
  c.name = fmt::format("{} {} {} n={}", p.name + 4,
                       p.square()              ? "U"
                       : trans == ZOR_NO_TRANS ? "N"
                                               : "T",
                       prec, n);
  c.flops = (is_complex<T> ? 8.0 : 2.0) * double(n) * double(n);
  c.bytes = double(n) * double(n) * sizeof(T);
  c.setup = [&env, p, trans, n, prec] {
    const operand<T> a(n * n, 0), x(n, 1), y(n, 2), before(n);
    fill(a, 1), fill(x, 2), fill(before, 3);
    const double alpha[2] = {0.75, 0.5}, beta[2] = {-1.25, 0.25};
    product_call<T> call = {};
    call.trans = trans, call.uplo = ZOR_UPPER, call.m = call.n = n, call.a = a.data(), call.lda = n,
    call.prec = prec;
    call.head = x.data(), call.incx = call.incy = 1, call.y = y.data();
    std::memcpy(&call.alpha, alpha, sizeof call.alpha);
    std::memcpy(&call.beta, beta, sizeof call.beta);
    std::vector<contender> all = {{"zor", [=, threads = env.opts.threads](int64_t repeats) {
                                     const operand<T> keep[] = {a, x, y};
                                     zor_core_set_num_threads(threads);
                                     for (int64_t i = 0; i < repeats; ++i) p.call(call);
                                   }}};
    const bool transposed = !p.square() && trans != ZOR_NO_TRANS;
    dense_loop* const loop = prec == ZOR_EXTRA && !transposed ? find_dense_loop() : nullptr;
    if (loop != nullptr) {
      using what = dense_operation;
      all.push_back(
          by_loop<T>("pairs", loop, p.square() ? what::pair_symmetric : what::pair_product, n, {a, x, y}));
      all.push_back(
          by_loop<T>("float128", loop, p.square() ? what::quad_symmetric : what::quad_product, n, {a, x, y}));
    }
    const auto run_once = [&](const contender& one) {
      std::memcpy(y.data(), before.data(), size_t(n) * sizeof(T));
      one.run(1);
    };
    run_once(all[0]);
    const operand<T> ours(n);
    std::memcpy(ours.data(), y.data(), size_t(n) * sizeof(T));
    return keep_agreeing(all, [&](const contender& other) {
      run_once(other);
      return close(ours, y, 4);
    });
  };
  return c;
}

}  // namespace

std::vector<bench_case> xblas_cases(const environment& env) {
  std::vector<zor_int> sizes = {100, 1000, 3000};
  if (env.opts.quick) sizes = {30};
  std::vector<bench_case> cases;
  for (const zor_int n : sizes)
    for_public_products([&]<class T>(const product<T>& p) {
      if constexpr (!is_single<T>) {
        if (p.two || p.of == form::band || p.of == form::hermitian) return;
        for (const zor_int prec : {ZOR_EXTRA, ZOR_DOUBLE}) {
          cases.push_back(extended(env, p, ZOR_NO_TRANS, n, prec));
          if (!p.square()) cases.push_back(extended(env, p, ZOR_TRANS, n, prec));
        }
      }
    });
  return cases;
}

}  // namespace zor_bench
