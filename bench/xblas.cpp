// SPDX-License-Identifier: MIT
// Matrix-vector products in extra precision through the public entries, beside plain loops in pairs of
// doubles and in quadruple precision.
#include <fmt/format.h>

#include <cstring>

#include "bench/bench.h"
#include "bench/dense_loops.h"
#include "bench/operands.h"
#include "bench/xblas_calls.h"
#include "zor/core.h"

namespace zor_bench {
namespace {

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
    const auto add_loop = [&](const char* name, dense_operation what) {
      const dense_job job = {
          what, is_complex<T> ? 'z' : 'd', n, n, {0.75, 0.5}, {-1.25, 0.25}, a.data(), x.data(), y.data()};
      all.push_back({name, [=](int64_t repeats) {
                       const operand<T> keep[] = {a, x, y};
                       for (int64_t i = 0; i < repeats; ++i) loop(job);
                     }});
    };
    if (loop != nullptr) {
      add_loop("pairs", p.square() ? dense_operation::pair_symmetric : dense_operation::pair_product);
      add_loop("float128", p.square() ? dense_operation::quad_symmetric : dense_operation::quad_product);
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
