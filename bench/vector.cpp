// SPDX-License-Identifier: MIT
// Vector kernels in unit stride: in the first cache, in the second, and beyond.
#include <fmt/format.h>

#include <cstring>
#include <type_traits>

#include "bench/bench.h"
#include "bench/operands.h"
#include "zor/signatures/blas.h"

namespace zor_bench {
namespace {

// The vectors of a case, written by each call, and the value it returns.
template <class T>
struct vectors {
  operand<T> x, y, result;
  explicit vectors(zor_int n) : x(n, 0), y(n, 1), result(1, 2) { reset(); }
  void reset() const {
    fill(x, 3);
    fill(y, 4);
    *result.data() = T{};
  }
};

// `call(fn, n, one, v)` makes one call; I is the integer type of the library's arguments.
template <class T, class I, class Fn, class Call>
runner make_runner(Fn* fn, zor_int n, const vectors<T>& v, Call call) {
  return [=](int64_t repeats) {
    const I count = I(n), one = 1;
    for (int64_t i = 0; i < repeats; ++i) call(fn, &count, &one, v);
  };
}

// `floor` is a lower bound of the terms' magnitudes summed: what rounding is measured against when a sum
// cancels.
template <class T>
prepared checked(const vectors<T>& v, zor_int n, double floor, const std::vector<contender>& contenders) {
  v.reset();
  contenders[0].run(1);
  const vectors<T> ours(n);
  std::memcpy(ours.x.data(), v.x.data(), size_t(n) * sizeof(T));
  std::memcpy(ours.y.data(), v.y.data(), size_t(n) * sizeof(T));
  *ours.result.data() = *v.result.data();
  prepared ready = keep_agreeing(contenders, [&](const contender& other) {
    v.reset();
    other.run(1);
    return close(ours.x, v.x, 16) && close(ours.y, v.y, 16) &&
           close(ours.result, v.result, 2.0 * double(n + 8), floor);
  });
  v.reset();
  return ready;
}

// The address of x, had only once the result of the call before is known: the calls of a reduction then
// follow one another, as the bound by its chain of additions supposes.
template <class T>
const T* x_behind_result(const vectors<T>& v) {
  int64_t zero;
  asm volatile("movl (%1), %k0\n\tandl $0, %k0" : "=r"(zero) : "r"(v.result.data()) : "memory", "cc");
  return v.x.data() + zero;
}

// The additions of a sum that wait for one another: so many per element, and then the joins of accumulators
// and lanes.
struct chain {
  double per_element;
  double joins;
};

// A routine of a family: its name without prefix, its kernel, the peer's symbol, what a call reads and writes
// and how many of its additions wait for one another.
template <class T, class Ours, class Theirs>
struct routine {
  const char* name;
  Ours* ours;
  const char* symbol;
  double operations;  // per element
  double passes;      // vectors read and written
  chain adds;
};

template <class T, class Ours, class Theirs, class Call>
void add_cases(const environment& env, std::vector<bench_case>& cases, const std::vector<zor_int>& lengths,
               const routine<T, Ours, Theirs>& r, Call call) {
  for (const zor_int n : lengths) {
    bench_case c;
    c.name = fmt::format("{} {}", r.name, n);
    c.flops = r.operations * double(n);
    c.bytes = r.passes * double(n) * sizeof(T);
    c.chained_adds = n <= 2000 && r.adds.per_element > 0 ? r.adds.per_element * double(n) + r.adds.joins : 0;
    c.single_precision = is_single<T>;
    c.setup = [&env, r, n, call] {
      const vectors<T> v(n);
      std::vector<contender> all = {{"zor", make_runner<T, zor_int>(r.ours, n, v, call)}};
      for (const peer& other : env.peers)
        if (auto* theirs = find_function<Theirs>(other, r.symbol))
          all.push_back({other.name, make_runner<T, int32_t>(theirs, n, v, call)});
      return checked(v, n, r.passes > 1 ? double(n) / 4 : 0, all);
    };
    cases.push_back(std::move(c));
  }
}

// A factor of magnitude one: repeated calls neither overflow nor fade into subnormals.
template <class A>
constexpr A unit_factor() {
  if constexpr (is_complex<A>)
    return {typename real_of<A>::type(0.6), typename real_of<A>::type(0.8)};
  else
    return -1;
}

template <class I, class T, class A>
using scal_fn = void(const I*, const A*, T*, const I*);
template <class I, class T>
using axpy_fn = void(const I*, const T*, const T*, const I*, T*, const I*);
template <class I, class T>
using copy_fn = void(const I*, const T*, const I*, T*, const I*);
template <class I, class T>
using swap_fn = void(const I*, T*, const I*, T*, const I*);
template <class I, class T, class R>
using rot_fn = void(const I*, T*, const I*, T*, const I*, const R*, const R*);
template <class I, class T, class R>
using sum_fn = R(const I*, const T*, const I*);
template <class I, class T>
using dot_fn = T(const I*, const T*, const I*, const T*, const I*);
// Through C: Fortran compilers differ in how they return a complex number.
template <class T>
using peer_cdot_fn = void(int32_t, const T*, int32_t, const T*, int32_t, T*);

class case_list {
 public:
  case_list(const environment& env, std::vector<zor_int> updates, std::vector<zor_int> sums)
      : env_(env), updates_(std::move(updates)), sums_(std::move(sums)) {}

  template <class T>
  void axpy(const char* name, axpy_fn<zor_int, T>* ours, const char* symbol) {
    const routine<T, axpy_fn<zor_int, T>, axpy_fn<int32_t, T>> r{
        name, ours, symbol, is_complex<T> ? 8.0 : 2.0, 3, {0, 0}};
    add_cases(env_, cases, updates_, r, [](auto* fn, auto* n, auto* one, const vectors<T>& v) {
      T alpha = {};
      *reinterpret_cast<typename real_of<T>::type*>(&alpha) = typename real_of<T>::type(1e-3);
      fn(n, &alpha, v.x.data(), one, v.y.data(), one);
    });
  }

  template <class T, class A>
  void scal(const char* name, scal_fn<zor_int, T, A>* ours, const char* symbol) {
    const routine<T, scal_fn<zor_int, T, A>, scal_fn<int32_t, T, A>> r{
        name, ours, symbol, is_complex<A> ? 6.0 : 1.0, 2, {0, 0}};
    add_cases(env_, cases, updates_, r, [](auto* fn, auto* n, auto* one, const vectors<T>& v) {
      const A alpha = unit_factor<A>();
      fn(n, &alpha, v.x.data(), one);
    });
  }

  template <class T>
  void copy(const char* name, copy_fn<zor_int, T>* ours, const char* symbol) {
    const routine<T, copy_fn<zor_int, T>, copy_fn<int32_t, T>> r{name, ours, symbol, 0, 2, {0, 0}};
    add_cases(env_, cases, updates_, r, [](auto* fn, auto* n, auto* one, const vectors<T>& v) {
      fn(n, v.x.data(), one, v.y.data(), one);
    });
  }

  template <class T>
  void swap(const char* name, swap_fn<zor_int, T>* ours, const char* symbol) {
    const routine<T, swap_fn<zor_int, T>, swap_fn<int32_t, T>> r{name, ours, symbol, 0, 4, {0, 0}};
    add_cases(env_, cases, updates_, r, [](auto* fn, auto* n, auto* one, const vectors<T>& v) {
      fn(n, v.x.data(), one, v.y.data(), one);
    });
  }

  template <class T, class R>
  void rot(const char* name, rot_fn<zor_int, T, R>* ours, const char* symbol) {
    const routine<T, rot_fn<zor_int, T, R>, rot_fn<int32_t, T, R>> r{
        name, ours, symbol, is_complex<T> ? 12.0 : 6.0, 4, {0, 0}};
    add_cases(env_, cases, updates_, r, [](auto* fn, auto* n, auto* one, const vectors<T>& v) {
      const R c = R(0.6), s = R(0.8);
      fn(n, v.x.data(), one, v.y.data(), one, &c, &s);
    });
  }

  // A sum, a norm or the index of the largest magnitude. The index counts as one vector's worth of reading
  // too.
  template <class T, class R, class PeerR = R>
  void sum(const char* name, sum_fn<zor_int, T, R>* ours, const char* symbol, chain adds) {
    const routine<T, sum_fn<zor_int, T, R>, sum_fn<int32_t, T, PeerR>> r{name, ours, symbol, 2, 1, adds};
    add_cases(env_, cases, sums_, r, [](auto* fn, auto* n, auto* one, const vectors<T>& v) {
      *v.result.real_data() = typename real_of<T>::type(fn(n, x_behind_result(v), one));
    });
  }

  template <class T>
  void dot(const char* name, dot_fn<zor_int, T>* ours, const char* symbol, chain adds) {
    const routine<T, dot_fn<zor_int, T>, dot_fn<int32_t, T>> r{name, ours, symbol, 2, 2, adds};
    add_cases(env_, cases, sums_, r, [](auto* fn, auto* n, auto* one, const vectors<T>& v) {
      *v.result.data() = fn(n, x_behind_result(v), one, v.y.data(), one);
    });
  }

  template <class T>
  void complex_dot(const char* name, zor::cdot_fn<T>* ours, const char* symbol, chain adds) {
    const routine<T, zor::cdot_fn<T>, peer_cdot_fn<T>> r{name, ours, symbol, 8, 2, adds};
    add_cases(env_, cases, sums_, r, [](auto* fn, auto* n, auto* one, const vectors<T>& v) {
      if constexpr (std::is_same_v<decltype(fn), zor::cdot_fn<T>*>)
        fn(v.result.data(), n, x_behind_result(v), one, v.y.data(), one);
      else
        fn(*n, x_behind_result(v), *one, v.y.data(), *one, v.result.data());
    });
  }

  std::vector<bench_case> cases;

 private:
  const environment& env_;
  std::vector<zor_int> updates_, sums_;
};

}  // namespace

std::vector<bench_case> vector_cases(const environment& env) {
  std::vector<zor_int> updates = {100, 2000, 1000000}, sums = {2000, 1000000};
  if (env.opts.quick) updates = sums = {7, 100};
  case_list list(env, updates, sums);

  list.axpy<float>("saxpy", zor_blas_xsaxpy, "saxpy_");
  list.axpy<double>("daxpy", zor_blas_xdaxpy, "daxpy_");
  list.axpy<zor_c32>("caxpy", zor_blas_xcaxpy, "caxpy_");
  list.axpy<zor_c64>("zaxpy", zor_blas_xzaxpy, "zaxpy_");
  list.scal<float, float>("sscal", zor_blas_sscal, "sscal_");
  list.scal<double, double>("dscal", zor_blas_dscal, "dscal_");
  list.scal<zor_c32, zor_c32>("cscal", zor_blas_cscal, "cscal_");
  list.scal<zor_c64, zor_c64>("zscal", zor_blas_zscal, "zscal_");
  list.scal<zor_c32, float>("csscal", zor_blas_csscal, "csscal_");
  list.scal<zor_c64, double>("zdscal", zor_blas_zdscal, "zdscal_");
  list.copy<float>("scopy", zor_blas_xscopy, "scopy_");
  list.copy<double>("dcopy", zor_blas_xdcopy, "dcopy_");
  list.copy<zor_c32>("ccopy", zor_blas_xccopy, "ccopy_");
  list.copy<zor_c64>("zcopy", zor_blas_xzcopy, "zcopy_");
  list.swap<float>("sswap", zor_blas_xsswap, "sswap_");
  list.swap<double>("dswap", zor_blas_xdswap, "dswap_");
  list.swap<zor_c32>("cswap", zor_blas_xcswap, "cswap_");
  list.swap<zor_c64>("zswap", zor_blas_xzswap, "zswap_");
  list.rot<float, float>("srot", zor_blas_xsrot, "srot_");
  list.rot<double, double>("drot", zor_blas_xdrot, "drot_");
  list.rot<zor_c32, float>("csrot", zor_blas_xcsrot, "csrot_");
  list.rot<zor_c64, double>("zdrot", zor_blas_xzdrot, "zdrot_");

  // Elements over accumulators and lanes: dot 4 by 2 (single by 4), asum 2 by 2 (single by 4), snrm2 8 by 2,
  // dnrm2 and the complex dots 1.
  list.dot<float>("sdot", zor_blas_xsdot, "sdot_", {1.0 / 16, 6});
  list.dot<double>("ddot", zor_blas_xddot, "ddot_", {1.0 / 8, 4});
  list.complex_dot<zor_c32>("cdotc", zor_blas_xcdotc, "cblas_cdotc_sub", {1, 0});
  list.complex_dot<zor_c64>("zdotc", zor_blas_zdotc, "cblas_zdotc_sub", {1, 0});
  list.sum<float, float>("sasum", zor_blas_sasum, "sasum_", {1.0 / 8, 6});
  list.sum<double, double>("dasum", zor_blas_dasum, "dasum_", {1.0 / 4, 4});
  list.sum<zor_c32, float>("scasum", zor_blas_scasum, "scasum_", {2.0 / 8, 6});
  list.sum<zor_c64, double>("dzasum", zor_blas_dzasum, "dzasum_", {2.0 / 4, 4});
  list.sum<float, float>("snrm2", zor_blas_snrm2, "snrm2_", {1.0 / 16, 4});
  list.sum<double, double>("dnrm2", zor_blas_dnrm2, "dnrm2_", {1, 0});
  list.sum<zor_c32, float>("scnrm2", zor_blas_scnrm2, "scnrm2_", {2.0 / 16, 4});
  list.sum<zor_c64, double>("dznrm2", zor_blas_dznrm2, "dznrm2_", {2, 0});
  list.sum<float, zor_int, int32_t>("isamax", zor_blas_isamax, "isamax_", {0, 0});
  list.sum<double, zor_int, int32_t>("idamax", zor_blas_idamax, "idamax_", {0, 0});
  list.sum<zor_c32, zor_int, int32_t>("icamax", zor_blas_icamax, "icamax_", {0, 0});
  list.sum<zor_c64, zor_int, int32_t>("izamax", zor_blas_izamax, "izamax_", {0, 0});
  return list.cases;
}

}  // namespace zor_bench
