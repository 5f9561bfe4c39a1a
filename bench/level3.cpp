// SPDX-License-Identifier: MIT
// Level 3 beside the plain product, through the public, threaded entries.
#include <fmt/format.h>

#include <cstring>

#include "bench/bench.h"
#include "bench/blas_call.h"
#include "bench/operands.h"
#include "zor/blas.h"
#include "zor/core.h"

namespace zor_bench {
namespace {

// Three square matrices. Beside its diagonal the first is so small that solutions keep their size, those with
// a unit triangle too.
template <class T>
struct operands {
  zor_int n;
  operand<T> a, b, c, start;
  explicit operands(zor_int order) : n(order), a(n * n, 0), b(n * n, 1), c(n * n, 2), start(n * n) {
    fill(a, 1), fill(b, 2), fill(start, 3);
    for (int64_t i = 0; i < a.reals(); ++i) a.real_data()[i] /= real_t<T>(n);
    for (zor_int i = 0; i < n; ++i) a.data()[i + i * n] = number<T>(1.25);
  }
  void restart() const { std::memcpy(c.data(), start.data(), size_t(n * n) * sizeof(T)); }
};

enum class form { triangular, rank_k, rank_2k, symmetric };

template <class T>
void run_once(form f, bool real_factors, const routine& r, const char* letters, const operands<T>& o) {
  const zor_int n = o.n;
  const T one = number<T>(1);
  const real_t<T> real_one = 1;
  o.restart();
  switch (f) {
    case form::triangular:
      return call<4>(r, letters, n, n, one, o.a.data(), n, o.c.data(), n);
    case form::rank_k:
      if (real_factors) return call<2>(r, letters, n, n, real_one, o.b.data(), n, real_one, o.c.data(), n);
      return call<2>(r, letters, n, n, one, o.b.data(), n, one, o.c.data(), n);
    case form::rank_2k:
      if (real_factors)
        return call<2>(r, letters, n, n, one, o.a.data(), n, o.b.data(), n, real_one, o.c.data(), n);
      return call<2>(r, letters, n, n, one, o.a.data(), n, o.b.data(), n, one, o.c.data(), n);
    default:
      return call<2>(r, letters, n, n, one, o.a.data(), n, o.b.data(), n, one, o.c.data(), n);
  }
}

template <class T>
bench_case level3_case(const environment& env, form f, bool real_factors, const char* name, void* ours,
                       const char* letters, zor_int n) {
  bench_case c;
  c.name = fmt::format("{} {} {}", name, letters, n);
  const double products =
      double(n) * double(n) * double(n) * (f == form::rank_2k || f == form::symmetric ? 2 : 1);
  c.flops = (is_complex<T> ? 4.0 : 1.0) * products;
  c.bytes = double(sizeof(T)) * 3 * double(n * n);
  c.single_precision = is_single<T>;
  c.setup = [&env, f, real_factors, ours, symbol = std::string(name) + "_", letters, n] {
    const operands<T> o(n);
    const int32_t threads = env.opts.threads;
    const auto runner_of = [=](routine r) {
      return [=](int64_t repeats) {
        if (r.ours) zor_core_set_num_threads(threads);
        for (int64_t i = 0; i < repeats; ++i) run_once(f, real_factors, r, letters, o);
      };
    };
    std::vector<contender> all = {{"zor", runner_of({ours, true})}};
    for (const peer& other : env.peers)
      if (void* theirs = find_symbol(other, symbol); theirs != nullptr && other.tuned)
        all.push_back({other.name, runner_of({theirs, false})});
    all[0].run(1);
    const operand<T> result(o.c.count());
    std::memcpy(result.data(), o.c.data(), size_t(o.c.count()) * sizeof(T));
    return keep_agreeing(all, [&](const contender& other) {
      other.run(1);
      return close(result, o.c, 16.0 * double(n + 8));
    });
  };
  return c;
}

}  // namespace

std::vector<bench_case> level3_cases(const environment& env) {
  std::vector<bench_case> cases;
  const auto add = [&]<class T>(T, form f, bool real_factors, const char* name, auto* ours,
                                std::initializer_list<const char*> letters) {
    // Single precision at one size, the others from small to large.
    for (const zor_int n : {zor_int(100), zor_int(500), zor_int(1000), zor_int(2000)}) {
      if (env.opts.quick ? n != 100 : is_single<T> && n != 1000) continue;
      for (const char* l : letters)
        cases.push_back(level3_case<T>(env, f, real_factors, name + std::strlen("zor_blas_"),
                                       reinterpret_cast<void*>(ours), l, n));
    }
  };
#define ROW_TRSM(name, T, kernel) \
  add(T{}, form::triangular, false, #name, name, {"LLNN", "LUTN", "RUNU", "RLTN"});
#define ROW_TRMM ROW_TRSM
#define ROW_SYRK(name, T, S, hermitian, kernel) \
  add(T{}, form::rank_k, hermitian, #name, name, {"LN", hermitian ? "UC" : "UT"});
#define ROW_SYR2K(name, T, S, hermitian, kernel) \
  add(T{}, form::rank_2k, hermitian, #name, name, {"LN", hermitian ? "UC" : "UT"});
#define ROW_PUBLIC_SYMM(name, T, kernel) add(T{}, form::symmetric, false, #name, name, {"LL", "RU"});
#include "zor/tables/core_level3.inc"
  return cases;
}

}  // namespace zor_bench
