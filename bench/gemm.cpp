// SPDX-License-Identifier: MIT
// Matrix products C := op(A) op(B) through the public, threaded entries.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "bench/bench.h"
#include "bench/operands.h"
#include "zor/core.h"
#include "zor/signatures/blas.h"

namespace zor_bench {
namespace {

struct shape {
  zor_int m, n, k;
};

// Fortran's way: 32-bit integers, the lengths of the two letters at the end.
template <class T>
using peer_gemm = void(const char*, const char*, const int32_t*, const int32_t*, const int32_t*, const T*,
                       const T*, const int32_t*, const T*, const int32_t*, const T*, T*, const int32_t*,
                       size_t, size_t);

template <class T>
constexpr T one() {
  if constexpr (is_complex<T>)
    return {1, 0};
  else
    return 1;
}

template <class T>
struct problem {
  char transa, transb;
  shape s;
  operand<T> a, b, c;
  problem(const char* letters, shape size)
      : transa(letters[0]), transb(letters[1]), s(size), a(s.m * s.k, 0), b(s.k * s.n, 1), c(s.m * s.n, 2) {
    fill(a, 1);
    fill(b, 2);
  }
};

template <class T>
runner our_runner(const problem<T>& p, zor::gemm_fn<T>* gemm, int32_t threads) {
  return [=](int64_t repeats) {
    const T alpha = one<T>(), beta = {};
    const shape s = p.s;
    const zor_int lda = p.transa == 'N' ? s.m : s.k, ldb = p.transb == 'N' ? s.k : s.n;
    zor_core_set_num_threads(threads);
    for (int64_t i = 0; i < repeats; ++i)
      gemm(&p.transa, &p.transb, &s.m, &s.n, &s.k, &alpha, p.a.data(), &lda, p.b.data(), &ldb, &beta,
           p.c.data(), &s.m);
  };
}

template <class T>
runner peer_runner(const problem<T>& p, peer_gemm<T>* gemm) {
  return [=](int64_t repeats) {
    const T alpha = one<T>(), beta = {};
    const int32_t m = int32_t(p.s.m), n = int32_t(p.s.n), k = int32_t(p.s.k);
    const int32_t lda = p.transa == 'N' ? m : k, ldb = p.transb == 'N' ? k : n;
    for (int64_t i = 0; i < repeats; ++i)
      gemm(&p.transa, &p.transb, &m, &n, &k, &alpha, p.a.data(), &lda, p.b.data(), &ldb, &beta, p.c.data(),
           &m, 1, 1);
  };
}

// The product must be the same but for the order of its sums.
template <class T>
prepared checked(const problem<T>& p, const std::vector<contender>& contenders) {
  contenders[0].run(1);
  const operand<T> ours(p.c.count());
  std::memcpy(ours.data(), p.c.data(), size_t(p.c.count()) * sizeof(T));
  return keep_agreeing(contenders, [&](const contender& other) {
    other.run(1);
    return close(ours, p.c, 8.0 * double(p.s.k + 8));
  });
}

constexpr double reference_limit = 5e7;  // operations; the plain loops need seconds beyond

template <class T>
bench_case product(const environment& env, const char* routine, zor::gemm_fn<T>* gemm, const char* letters,
                   shape s) {
  bench_case c;
  c.name = fmt::format("{} {} {}x{}x{}", routine, letters, s.m, s.n, s.k);
  c.flops = (is_complex<T> ? 8.0 : 2.0) * double(s.m) * double(s.n) * double(s.k);
  c.bytes = double(sizeof(T)) * double(s.m * s.k + s.k * s.n + s.m * s.n);
  c.single_precision = is_single<T>;
  c.setup = [&env, flops = c.flops, symbol = std::string(routine) + "_", gemm, letters, s] {
    const problem<T> p(letters, s);
    std::vector<contender> all = {{"zor", our_runner(p, gemm, env.opts.threads)}};
    for (const peer& other : env.peers) {
      auto* theirs = find_function<peer_gemm<T>>(other, symbol);
      if (theirs != nullptr && (other.tuned || flops < reference_limit))
        all.push_back({other.name, peer_runner(p, theirs)});
    }
    return checked(p, all);
  };
  return c;
}

// Two threads against one of our own.
bench_case scaling(const environment&, shape s) {
  bench_case c;
  c.name = fmt::format("dgemm NN {}x{}x{} 2 threads", s.m, s.n, s.k);
  c.flops = 2.0 * double(s.m) * double(s.n) * double(s.k);
  c.threads = 2;
  c.bytes = 8.0 * double(s.m * s.k + s.k * s.n + s.m * s.n);
  c.setup = [s] {
    const problem<double> p("NN", s);
    return checked(
        p, {{"zor", our_runner(p, zor_blas_dgemm, 2)}, {"zor, 1 thread", our_runner(p, zor_blas_dgemm, 1)}});
  };
  return c;
}

// Complex products by three real ones, against four.
template <class T>
bench_case three_products(const environment& env, const char* routine, zor::gemm_fn<T>* gemm3m,
                          zor::gemm_fn<T>* gemm, zor_int n) {
  bench_case c;
  c.name = fmt::format("{} NN {} by three products", routine, n);
  c.flops = 8.0 * double(n) * double(n) * double(n);
  c.bytes = 3.0 * sizeof(T) * double(n) * double(n);
  c.single_precision = is_single<T>;
  c.setup = [&env, gemm3m, gemm, n] {
    const problem<T> p("NN", {n, n, n});
    return checked(p, {{"zor", our_runner(p, gemm3m, env.opts.threads)},
                       {"zor, four products", our_runner(p, gemm, env.opts.threads)}});
  };
  return c;
}

// A real matrix times a complex one, against two real products of the others with the parts apart.
template <class T, class R>
bench_case mixed(const environment& env, const char* routine, zor::mixed_fn<T, R>* gemm,
                 const char* real_routine, zor_int n) {
  bench_case c;
  c.name = fmt::format("{} NN {}", routine, n);
  c.flops = 4.0 * double(n) * double(n) * double(n);
  c.bytes = (sizeof(R) + 2.0 * sizeof(T)) * double(n) * double(n);
  c.single_precision = is_single<T>;
  c.setup = [&env, gemm, symbol = std::string(real_routine) + "_", n] {
    const shape s{n, n, n};
    const problem<T> p("NN", s);
    const problem<R> parts[2] = {{"NN", s}, {"NN", s}};
    for (zor_int i = 0; i < n * n; ++i)
      for (int q = 0; q < 2; ++q) parts[q].b.data()[i] = p.b.real_data()[2 * i + q];
    const operand<R> a = parts[0].a;
    std::memcpy(parts[1].a.data(), a.data(), size_t(n * n) * sizeof(R));
    std::vector<contender> all;
    all.push_back({"zor", [=, threads = env.opts.threads](int64_t repeats) {
                     const T alpha = one<T>(), beta = {};
                     zor_core_set_num_threads(threads);
                     for (int64_t i = 0; i < repeats; ++i)
                       gemm(&p.transa, &p.transb, &n, &n, &n, &alpha, a.data(), &n, p.b.data(), &n, &beta,
                            p.c.data(), &n);
                   }});
    for (const peer& other : env.peers) {
      auto* theirs = find_function<peer_gemm<R>>(other, symbol);
      if (theirs == nullptr || !other.tuned) continue;
      all.push_back({other.name, [=, re = peer_runner(parts[0], theirs),
                                  im = peer_runner(parts[1], theirs)](int64_t repeats) {
                       re(repeats);
                       im(repeats);
                     }});
    }
    all[0].run(1);
    return keep_agreeing(all, [=](const contender& other) {
      other.run(1);
      const operand<T> joined(n * n);
      for (zor_int i = 0; i < n * n; ++i)
        for (int q = 0; q < 2; ++q) joined.real_data()[2 * i + q] = parts[q].c.data()[i];
      return close(p.c, joined, 8.0 * double(n + 8));
    });
  };
  return c;
}

}  // namespace

std::vector<bench_case> gemm_cases(const environment& env) {
  std::vector<shape> shapes;
  for (zor_int n : {8, 16, 32, 64, 100, 256, 500, 1000, 2000, 4000}) shapes.push_back({n, n, n});
  shapes.push_back({4000, 4000, 64});
  shapes.push_back({64, 64, 4000});
  if (env.opts.quick) shapes = {{8, 8, 8}, {100, 100, 100}, {64, 64, 400}};
  std::vector<bench_case> cases;
  for (const shape& s : shapes)
    for (const char* letters : {"NN", "NT", "TN", "TT"}) {
      const bool largest = s.m * s.n * s.k > zor_int(3000) * 3000 * 3000;
      if (largest && !env.opts.full && letters != std::string_view("NN")) continue;
      cases.push_back(product(env, "sgemm", zor_blas_sgemm, letters, s));
      cases.push_back(product(env, "dgemm", zor_blas_dgemm, letters, s));
      if (largest && !env.opts.full) continue;
      cases.push_back(product(env, "cgemm", zor_blas_cgemm, letters, s));
      cases.push_back(product(env, "zgemm", zor_blas_zgemm, letters, s));
    }
  for (const zor_int n : {100, 1000}) {
    if (env.opts.quick && n > 100) continue;
    cases.push_back(three_products(env, "cgemm3m", zor_blas_cgemm3m, zor_blas_cgemm, n));
    cases.push_back(three_products(env, "zgemm3m", zor_blas_zgemm3m, zor_blas_zgemm, n));
    cases.push_back(mixed<zor_c32, float>(env, "scgemm", zor_blas_scgemm, "sgemm", n));
    cases.push_back(mixed<zor_c64, double>(env, "dzgemm", zor_blas_dzgemm, "dgemm", n));
  }
  cases.push_back(scaling(env, env.opts.quick ? shape{200, 200, 200} : shape{2000, 2000, 2000}));
  return cases;
}

}  // namespace zor_bench
