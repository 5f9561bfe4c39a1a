// SPDX-License-Identifier: MIT
// Copies, transpositions and sums of matrices through the public entries, column-major. A plain copy is the
// column "of copy".
#include <fmt/format.h>

#include <cstring>

#include "bench/bench.h"
#include "bench/blas_call.h"
#include "bench/dense_loops.h"
#include "bench/operands.h"
#include "zor/core.h"
#include "zor/signatures/trans.h"

namespace zor_bench {
namespace {

struct shape {
  zor_int rows, cols;
};

// Fortran's way: all by pointer, integers of 32 bits.
template <class T>
using peer_copy = void(const char*, const char*, const int32_t*, const int32_t*, const T*, const T*,
                       const int32_t*, T*, const int32_t*);
template <class T>
using peer_in_place = void(const char*, const char*, const int32_t*, const int32_t*, const T*, T*,
                           const int32_t*, const int32_t*);

template <class T>
constexpr T one() {
  if constexpr (is_complex<T>)
    return {1, 0};
  else
    return 1;
}
template <class T>
T scalar(double re, double im) {
  using R = typename real_of<T>::type;
  if constexpr (is_complex<T>)
    return {R(re), R(im)};
  else
    return R(re);
}

template <class T>
bench_case named(const char* routine, char trans, shape s, int matrices) {
  bench_case c;
  c.name = fmt::format("{} {} {}x{}", routine, trans, s.rows, s.cols);
  c.bytes = double(matrices) * double(s.rows) * double(s.cols) * sizeof(T);
  c.single_precision = is_single<T>;
  return c;
}

// Each contender finds the result filled alike.
template <class T>
prepared checked(const operand<T>& result, const std::vector<contender>& all) {
  fill(result, 3);
  all[0].run(1);
  const operand<T> ours(result.count());
  std::memcpy(ours.data(), result.data(), size_t(result.count()) * sizeof(T));
  return keep_agreeing(all, [&](const contender& other) {
    fill(result, 3);
    other.run(1);
    return close(ours, result, 8);
  });
}

template <class T>
bench_case copy(const environment& env, const char* routine, zor::omatcopy_fn<T>* fn, char trans, shape s) {
  bench_case c = named<T>(routine, trans, s, 2);
  c.setup = [&env, symbol = std::string(routine) + "_", fn, trans, s] {
    const operand<T> a(s.rows * s.cols, 0), b(a.count(), 1);
    fill(a, 1);
    std::vector<contender> all = {{"zor", [=, threads = env.opts.threads](int64_t repeats) {
                                     zor_core_set_num_threads(threads);
                                     for (int64_t i = 0; i < repeats; ++i)
                                       fn('C', trans, s.rows, s.cols, one<T>(), a.data(), s.rows, b.data(),
                                          trans == 'N' ? s.rows : s.cols);
                                   }}};
    for (const peer& other : env.peers)
      if (auto* theirs = find_function<peer_copy<T>>(other, symbol))
        all.push_back({other.name, [=](int64_t repeats) {
                         const int32_t rows = int32_t(s.rows), cols = int32_t(s.cols),
                                       ldb = trans == 'N' ? rows : cols;
                         const T alpha = one<T>();
                         for (int64_t i = 0; i < repeats; ++i)
                           theirs("C", &trans, &rows, &cols, &alpha, a.data(), &rows, b.data(), &ldb);
                       }});
    return checked(b, all);
  };
  return c;
}

// Transposed again and again in its own place, a rectangle there and back.
template <class T>
bench_case in_place(const environment& env, const char* routine, zor::imatcopy_fn<T>* fn, shape s) {
  bench_case c = named<T>(routine, 'T', s, 2);
  c.setup = [&env, symbol = std::string(routine) + "_", fn, s] {
    const operand<T> ab(s.rows * s.cols, 0);
    fill(ab, 1);
    const auto swapped = std::make_shared<bool>(false);
    const auto next = [swapped, s] {
      *swapped = !*swapped;
      return *swapped ? s : shape{s.cols, s.rows};
    };
    std::vector<contender> all = {{"zor", [=, threads = env.opts.threads](int64_t repeats) {
                                     zor_core_set_num_threads(threads);
                                     for (int64_t i = 0; i < repeats; ++i) {
                                       const shape now = next();
                                       fn('C', 'T', now.rows, now.cols, one<T>(), ab.data(), now.rows,
                                          now.cols);
                                     }
                                   }}};
    for (const peer& other : env.peers)
      if (auto* theirs = find_function<peer_in_place<T>>(other, symbol))
        all.push_back({other.name, [=](int64_t repeats) {
                         const T alpha = one<T>();
                         for (int64_t i = 0; i < repeats; ++i) {
                           const shape now = next();
                           const int32_t rows = int32_t(now.rows), cols = int32_t(now.cols);
                           theirs("C", "T", &rows, &cols, &alpha, ab.data(), &rows, &cols);
                         }
                       }});
    // A transposition undoes the one before: after ours and theirs the matrix is the one of the beginning.
    const operand<T> before(ab.count());
    std::memcpy(before.data(), ab.data(), size_t(ab.count()) * sizeof(T));
    return keep_agreeing(all, [&](const contender& other) {
      all[0].run(1);
      other.run(1);
      return close(before, ab, 0);
    });
  };
  return c;
}

template <class T>
bench_case sum(const environment& env, const char* routine, zor::omatadd_fn<T>* fn, char transb, shape s) {
  bench_case c = named<T>(routine, transb, s, 3);
  c.setup = [&env, routine, fn, transb, s] {
    const operand<T> a(s.rows * s.cols, 0), b(a.count(), 1), result(a.count(), 2);
    fill(a, 1), fill(b, 2);
    const T alpha = scalar<T>(0.75, 0.5), beta = scalar<T>(-1.25, 0.25);
    std::vector<contender> all = {{"zor", [=, threads = env.opts.threads](int64_t repeats) {
                                     zor_core_set_num_threads(threads);
                                     for (int64_t i = 0; i < repeats; ++i)
                                       fn('R', 'N', transb, s.rows, s.cols, alpha, a.data(), s.cols, beta,
                                          b.data(), transb == 'N' ? s.cols : s.rows, result.data(), s.cols);
                                   }}};
    if (dense_loop* loop = find_dense_loop()) {
      const dense_job job = {transb == 'N' ? dense_operation::sum : dense_operation::transposed_sum,
                             routine[0],
                             s.rows,
                             s.cols,
                             {0.75, 0.5},
                             {-1.25, 0.25},
                             a.data(),
                             b.data(),
                             result.data()};
      all.push_back({"loop", [=, a = a, b = b, result = result](int64_t repeats) {
                       for (int64_t i = 0; i < repeats; ++i) loop(job);
                     }});
    }
    return checked(result, all);
  };
  return c;
}

// C := alpha A + beta C again and again, with a beta under which C goes to a limit.
template <class T>
bench_case update(const environment& env, const char* name, auto* ours, shape s) {
  bench_case c = named<T>(name, 'N', s, 3);
  c.setup = [&env, symbol = std::string(name) + "_", ours, s] {
    const operand<T> a(s.rows * s.cols, 0), result(a.count(), 1);
    fill(a, 1);
    const auto runner_of = [=, threads = env.opts.threads](routine r) {
      return [=](int64_t repeats) {
        const T alpha = scalar<T>(0.75, 0.5), beta = scalar<T>(-0.5, 0.25);
        if (r.ours) zor_core_set_num_threads(threads);
        for (int64_t i = 0; i < repeats; ++i)
          call<0>(r, "", s.rows, s.cols, alpha, a.data(), s.rows, beta, result.data(), s.rows);
      };
    };
    std::vector<contender> all = {{"zor", runner_of({reinterpret_cast<void*>(ours), true})}};
    for (const peer& other : env.peers)
      if (void* theirs = find_symbol(other, symbol)) all.push_back({other.name, runner_of({theirs, false})});
    return checked(result, all);
  };
  return c;
}

}  // namespace

std::vector<bench_case> trans_cases(const environment& env) {
  std::vector<shape> shapes = {{64, 64}, {1000, 1000}, {4000, 4000}, {4000, 1000}, {200, 5000}};
  if (env.opts.quick) shapes = {{9, 9}, {60, 100}};
  std::vector<bench_case> cases;
  for (const shape s : shapes) {
    for (const char trans : {'T', 'C', 'N'}) {
      cases.push_back(copy<float>(env, "somatcopy", zor_somatcopy, trans, s));
      cases.push_back(copy<double>(env, "domatcopy", zor_domatcopy, trans, s));
      cases.push_back(copy<zor_c32>(env, "comatcopy", zor_comatcopy, trans, s));
      cases.push_back(copy<zor_c64>(env, "zomatcopy", zor_zomatcopy, trans, s));
    }
    cases.push_back(in_place<float>(env, "simatcopy", zor_simatcopy, s));
    cases.push_back(in_place<double>(env, "dimatcopy", zor_dimatcopy, s));
    cases.push_back(in_place<zor_c32>(env, "cimatcopy", zor_cimatcopy, s));
    cases.push_back(in_place<zor_c64>(env, "zimatcopy", zor_zimatcopy, s));
    for (const char transb : {'N', 'T'}) {
      cases.push_back(sum<float>(env, "somatadd", zor_somatadd, transb, s));
      cases.push_back(sum<double>(env, "domatadd", zor_domatadd, transb, s));
      cases.push_back(sum<zor_c32>(env, "comatadd", zor_comatadd, transb, s));
      cases.push_back(sum<zor_c64>(env, "zomatadd", zor_zomatadd, transb, s));
    }
    cases.push_back(update<float>(env, "sgeadd", zor_blas_sgeadd, s));
    cases.push_back(update<double>(env, "dgeadd", zor_blas_dgeadd, s));
    cases.push_back(update<zor_c32>(env, "cgeadd", zor_blas_cgeadd, s));
    cases.push_back(update<zor_c64>(env, "zgeadd", zor_blas_zgeadd, s));
  }
  return cases;
}

}  // namespace zor_bench
