// SPDX-License-Identifier: MIT
// Vector kernels, and the plain names that divide a vector over threads.
#include <numeric>

#include "tests/fuzz/trial.h"
#include "zor/signatures/blas.h"

namespace zor_fuzz {
namespace {

constexpr zor_int longest = 150000;  // enough for several threads

template <class T>
struct pair {
  explicit pair(trial& t, use use_x, use use_y)
      : n(t.size("n", longest)),
        x(t.strided_vector<T>("x", use_x, n, use_x == use::in)),
        y(t.strided_vector<T>("y", use_y, n, use_y == use::in)) {}
  zor_int n;
  strided<T> x, y;
};

// One result that sums over the elements of x, or over pairs of x and y.
template <class T, class R, class Term>
void sum(trial& t, const R& value, const char* what, zor_int n, wide start, const Term& term) {
  t.result(value);
  if (!t.checking()) return;
  wide exact = start;
  long double size = magnitude(start);
  for (zor_int i = 0; i < n; ++i) {
    const auto [term_value, term_size] = term(i);
    exact += term_value;
    size += term_size;
  }
  t.near(value, exact, size, n, what);
}

template <class T, class R>
void asum(trial& t, zor::asum_fn<T, R>* call) {
  const zor_int n = t.size("n", longest);
  const auto x = t.strided_vector<T>("x", use::in, n, true);
  const R value = t.invoke(call, n, x);
  sum<T>(t, value, "asum", n, 0,
         [&](zor_int i) { return std::pair<wide, long double>(magnitude(x(i)), magnitude(x(i))); });
}

template <class T, class R>
void nrm2(trial& t, zor::asum_fn<T, R>* call) {
  const zor_int n = t.size("n", longest);
  const auto x = t.strided_vector<T>("x", use::in, n, true);
  R value{};
  t.call([&] { value = call(&n, x, &x.inc.value); });
  t.result(value);
  long double square = 0;
  for (zor_int i = 0; i < n && t.checking(); ++i) square += std::norm(x(i));
  t.near(value, std::sqrt(square), std::sqrt(square), n, "nrm2");
}

template <class T>
void extreme(trial& t, zor::iamax_fn<T>* call, bool smallest) {
  const zor_int n = t.size("n", longest);
  const auto x = t.strided_vector<T>("x", use::in, n, true);
  zor_int at = 0;
  t.call([&] { at = call(&n, x, &x.inc.value); });
  t.result(at);
  if (!t.checking() || !t.plain_data()) return;
  // Magnitudes are rounded sums of two parts, so neighbours may count as equal.
  long double best = -1, found = -1;
  for (zor_int i = 0; i < n && x.inc > 0; ++i) {
    const long double size = magnitude(x(i));
    if (best < 0 || (smallest ? size < best : size > best)) best = size;
    if (i + 1 == at) found = size;
  }
  t.expect(at <= n && (n > 0 && x.inc > 0) == (at > 0), "an index that is none of an element");
  if (found >= 0) t.near(real<T>(found), best, best, 1, "the extreme magnitude");
}

template <class T, class A>
void scal(trial& t, zor::scal_fn<T, A>* call) {
  const zor_int n = t.size("n", longest);
  const A alpha = t.scalar<A>("alpha");
  const auto x = t.strided_vector<T>("x", use::inout, n);
  t.invoke(call, n, alpha, x);
  t.some_of(n, 1, [&](zor_int i, zor_int) {
    const wide a = widened(alpha);
    t.near(x.now(i), times(a, x(i)), magnitude(a) * magnitude(x(i)), 1, "x", i);
  });
}

template <class T>
void axpy(trial& t, zor::axpy_fn<T>* call) {
  const T alpha = t.scalar<T>("alpha");
  const pair<T> v(t, use::in, use::inout);
  t.invoke(call, v.n, alpha, v.x, v.y);
  t.some_of(v.n, 1, [&](zor_int i, zor_int) {
    const wide a = widened(alpha), x = v.x(i), y = v.y(i);
    t.near(v.y.now(i), y + times(a, x), magnitude(a) * magnitude(x) + magnitude(y), 2, "y", i);
  });
}

// A factor of 0 reads nothing.
template <class T>
void axpby(trial& t, zor::axpby_fn<T>* call) {
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const pair<T> v(t, use::in, widened(beta) == wide(0) ? use::out : use::inout);
  t.invoke(call, v.n, alpha, v.x, beta, v.y);
  t.some_of(v.n, 1, [&](zor_int i, zor_int) {
    sum_of_terms s;
    if (widened(alpha) != wide(0)) s.add(times(widened(alpha), v.x(i)));
    if (widened(beta) != wide(0)) s.add(times(widened(beta), v.y(i)));
    s.compare(t, v.y.now(i), "y", i);
  });
}

template <class T>
void copy(trial& t, zor::copy_fn<T>* call) {
  const pair<T> v(t, use::in, use::out);
  t.invoke(call, v.n, v.x, v.y);
  t.some_of(v.n, 1, [&](zor_int i, zor_int) { t.near(v.y.now(i), v.x(i), 0, 0, "y", i); });
}

template <class T>
void swap(trial& t, zor::swap_fn<T>* call) {
  const pair<T> v(t, use::inout, use::inout);
  t.invoke(call, v.n, v.x, v.y);
  t.some_of(v.n, 1, [&](zor_int i, zor_int) {
    t.near(v.y.now(i), v.x(i), 0, 0, "y", i);
    t.near(v.x.now(i), v.y(i), 0, 0, "x", i);
  });
}

// Dot products of every kind: invoke(v) calls and returns the result.
template <class T, class Invoke>
void dot(trial& t, bool conjugate, double start, const Invoke& invoke) {
  const pair<T> v(t, use::in, use::in);
  sum<T>(t, invoke(v), "dot", v.n, start, [&](zor_int i) {
    const wide x = conj_when(conjugate, v.x(i)), y = v.y(i);
    return std::pair<wide, long double>(times(x, y), magnitude(x) * magnitude(y));
  });
}
template <class T, class R>
void real_dot(trial& t, R (*call)(const zor_int*, const T*, const zor_int*, const T*, const zor_int*)) {
  dot<T>(t, false, 0, [&](const pair<T>& v) { return t.invoke(call, v.n, v.x, v.y); });
}
template <class T>
void complex_dot(trial& t, bool conjugate, zor::cdot_fn<T>* call) {
  dot<T>(t, conjugate, 0, [&](const pair<T>& v) {
    T value{};
    t.call([&] { call(&value, &v.n, v.x, &v.x.inc.value, v.y, &v.y.inc.value); });
    return value;
  });
}
void started_dot(trial& t, zor::sdsdot_fn* call) {
  const float sb = t.scalar<float>("sb");
  dot<float>(t, false, sb, [&](const pair<float>& v) { return t.invoke(call, v.n, sb, v.x, v.y); });
}

template <class T, class C, class S>
void rot(trial& t, zor::rot_fn<T, C, S>* call) {
  const C c = t.scalar<C>("c");
  const S s = t.scalar<S>("s");
  const pair<T> v(t, use::inout, use::inout);
  t.invoke(call, v.n, v.x, v.y, c, s);
  t.some_of(v.n, 1, [&](zor_int i, zor_int) {
    const wide x = v.x(i), y = v.y(i), cw = widened(c), sw = widened(s);
    const long double size = (magnitude(cw) + magnitude(sw)) * (magnitude(x) + magnitude(y));
    t.near(v.x.now(i), times(cw, x) + times(sw, y), size, 2, "x", i);
    t.near(v.y.now(i), times(cw, y) - times(std::conj(sw), x), size, 2, "y", i);
  });
}

// The rotation takes (a, b) to (r, 0).
template <class T, class R>
void rotg(trial& t, zor::rotg_fn<T, R>* call) {
  const auto a = t.vector<T>("a", use::inout, 1), b = t.vector<T>("b", use::inout, 1),
             s = t.vector<T>("s", use::out, 1);
  const auto c = t.vector<R>("c", use::out, 1);
  t.call([&] { call(a, b, c, s); });
  if (!t.plain_data()) return;
  const wide cw = widened(c.now(0)), sw = widened(s.now(0)), av = a(0), bv = b(0);
  const long double size = magnitude(av) + magnitude(bv);
  t.near(a.now(0), times(cw, av) + times(sw, bv), size, 8, "r");
  t.near(zor_test::scalar<T>(0, 0), times(cw, bv) - times(std::conj(sw), av), size, 8, "0");
}

// The matrix that param stands for: h11, h21, h12, h22.
template <class T>
std::vector<long double> modified(const operand<T>& param) {
  const T flag = param.now(0);
  std::vector<long double> h{1, 0, 0, 1};
  if (flag == -1 || flag == 1) h[0] = param.now(1), h[3] = param.now(4);
  if (flag == -1 || flag == 0) h[1] = param.now(2), h[2] = param.now(3);
  if (flag == 1) h[1] = -1, h[2] = 1;
  return h;
}

template <class T>
void rotm(trial& t, zor::rotm_fn<T>* call) {
  const zor_int flag = t.draw("flag", -2, 1, -2);
  const pair<T> v(t, use::inout, use::inout);
  const auto param = t.vector<T>("param", use::in, 5);
  param.data()[0] = T(flag);
  t.invoke(call, v.n, v.x, v.y, param);
  const auto h = modified(param);
  t.some_of(v.n, 1, [&](zor_int i, zor_int) {
    const wide x = v.x(i), y = v.y(i);
    t.near(v.x.now(i), h[0] * x + h[2] * y, std::abs(h[0]) * magnitude(x) + std::abs(h[2]) * magnitude(y), 2,
           "x", i);
    t.near(v.y.now(i), h[1] * x + h[3] * y, std::abs(h[1]) * magnitude(x) + std::abs(h[3]) * magnitude(y), 2,
           "y", i);
  });
}

// H clears the second component, and x1 becomes the first.
template <class T>
void rotmg(trial& t, zor::rotmg_fn<T>* call) {
  const auto d1 = t.vector<T>("d1", use::inout, 1), d2 = t.vector<T>("d2", use::inout, 1),
             x1 = t.vector<T>("x1", use::inout, 1), y1 = t.vector<T>("y1", use::in, 1),
             param = t.vector<T>("param", use::inout, 5);
  t.call([&] { call(d1, d2, x1, y1, param); });
  const wide x = x1(0), y = y1(0);
  if (!t.plain_data() || !(d1(0).real() > 0 && d2(0).real() > 0 && param.now(0) != -2)) return;
  const auto h = modified(param);
  const long double first = std::abs(h[0]) * magnitude(x) + std::abs(h[2]) * magnitude(y);
  const long double second = std::abs(h[1]) * magnitude(x) + std::abs(h[3]) * magnitude(y);
  t.near(x1.now(0), h[0] * x + h[2] * y, first, 16, "x1");
  t.near(T(0), h[1] * x + h[3] * y, second, 16, "y1");
}

template <class T, class R>
void cabs1(trial& t, zor::cabs1_fn<T, R>* call) {
  const auto z = t.vector<T>("z", use::in, 1);
  R value{};
  t.call([&] { value = call(z); });
  t.result(value);
  t.near(value, magnitude(z(0)), magnitude(z(0)), 1, "cabs1");
}

// n positions, from 1, of a vector of `length`; each at most once where the routine writes there.
struct positions {
  positions(trial& t, bool distinct)
      : n(t.size("n", 3000)), length(n + t.size("spare", 100, n > 0 ? 1 : 0)), used(size_t(length)) {
    random_bits r = t.random("positions");
    std::vector<zor_int> all(static_cast<size_t>(length));
    std::iota(all.begin(), all.end(), 1);
    std::vector<zor_int> list;
    for (zor_int i = 0; i < n; ++i) {
      if (distinct) std::swap(all[size_t(i)], all[size_t(r.between(i, length - 1))]);
      list.push_back(distinct ? all[size_t(i)] : r.between(1, length));
      used[size_t(list.back() - 1)] = true;
    }
    indx = t.integers("indx", list);
  }
  template <class T>
  operand<T> vector(trial& t, use how) const {
    return t.scattered<T>("y", how, length, [&](zor_int i) { return used[size_t(i)]; });
  }
  zor_int at(zor_int i) const { return indx[i] - 1; }
  zor_int n, length;
  std::vector<bool> used;
  const zor_int* indx = nullptr;
};

template <class T>
void axpyi(trial& t, zor::axpyi_fn<T>* call) {
  const T alpha = t.scalar<T>("alpha");
  const positions p(t, true);
  const auto x = t.vector<T>("x", use::in, p.n), y = p.vector<T>(t, use::inout);
  t.call([&] { call(&p.n, &alpha, x, p.indx, y); });
  t.some_of(p.n, 1, [&](zor_int i, zor_int) {
    const wide a = widened(alpha), yv = y(p.at(i));
    t.near(y.now(p.at(i)), yv + times(a, x(i)), magnitude(a) * magnitude(x(i)) + magnitude(yv), 2, "y",
           p.at(i));
  });
}

template <class T, class Invoke>
void doti(trial& t, bool conjugate, const Invoke& invoke) {
  const positions p(t, false);
  const auto x = t.vector<T>("x", use::in, p.n), y = p.vector<T>(t, use::in);
  T value{};
  t.call([&] { value = invoke(&p.n, x.data(), p.indx, y.data()); });
  sum<T>(t, value, "dot", p.n, 0, [&](zor_int i) {
    const wide xv = conj_when(conjugate, x(i)), yv = y(p.at(i));
    return std::pair<wide, long double>(times(xv, yv), magnitude(xv) * magnitude(yv));
  });
}
template <class T>
void complex_doti(trial& t, bool conjugate, zor::cdoti_fn<T>* call) {
  doti<T>(t, conjugate, [&](const zor_int* n, const T* x, const zor_int* indx, const T* y) {
    T value;
    call(&value, n, x, indx, y);
    return value;
  });
}

// Gathers, clearing what is read or not, and scatters.
template <class T, class Call>
void gather(trial& t, Call* call) {
  constexpr bool clears = std::is_same_v<Call, zor::gthrz_fn<T>>;
  const positions p(t, clears);
  const auto y = p.vector<T>(t, clears ? use::inout : use::in), x = t.vector<T>("x", use::out, p.n);
  t.call([&] { call(&p.n, y.data(), x, p.indx); });
  t.some_of(p.n, 1, [&](zor_int i, zor_int) {
    t.near(x.now(i), y(p.at(i)), 0, 0, "x", i);
    if (clears) t.near(y.now(p.at(i)), 0, 0, 0, "y", p.at(i));
  });
}
template <class T>
void scatter(trial& t, zor::sctr_fn<T>* call) {
  const positions p(t, true);
  const auto x = t.vector<T>("x", use::in, p.n), y = p.vector<T>(t, use::out);
  t.call([&] { call(&p.n, x, p.indx, y); });
  t.some_of(p.n, 1, [&](zor_int i, zor_int) { t.near(y.now(p.at(i)), x(i), 0, 0, "y", p.at(i)); });
}

template <class T>
void roti(trial& t, zor::roti_fn<T>* call) {
  const T c = t.scalar<T>("c"), s = t.scalar<T>("s");
  const positions p(t, true);
  const auto x = t.vector<T>("x", use::inout, p.n), y = p.vector<T>(t, use::inout);
  t.call([&] { call(&p.n, x, p.indx, y, &c, &s); });
  t.some_of(p.n, 1, [&](zor_int i, zor_int) {
    const wide xv = x(i), yv = y(p.at(i)), cw = c, sw = s;
    const long double size = (magnitude(cw) + magnitude(sw)) * (magnitude(xv) + magnitude(yv));
    t.near(x.now(i), times(cw, xv) + times(sw, yv), size, 2, "x", i);
    t.near(y.now(p.at(i)), times(cw, yv) - times(sw, xv), size, 2, "y", p.at(i));
  });
}

#define ROW_DOT(name, T) {#name, [](trial& t) { real_dot<T>(t, name); }},
#define ROW_CDOT(name, T, conj) {#name, [](trial& t) { complex_dot<T>(t, conj, name); }},
#define ROW_AXPY(name, T) {#name, [](trial& t) { axpy<T>(t, name); }},
#define ROW_SWAP(name, T) {#name, [](trial& t) { swap<T>(t, name); }},
const rows divided("vector", threaded,
                   {
#include "zor/tables/core_blas.inc"
                   });
#define ROW_ASUM(name, T, R) {#name, [](trial& t) { asum<T, R>(t, name); }},
#define ROW_NRM2(name, T, R) {#name, [](trial& t) { nrm2<T, R>(t, name); }},
#define ROW_IAMAX(name, T) {#name, [](trial& t) { extreme<T>(t, name, false); }},
#define ROW_IAMIN(name, T) {#name, [](trial& t) { extreme<T>(t, name, true); }},
#define ROW_DSDOT(name) {#name, [](trial& t) { real_dot<float>(t, name); }},
#define ROW_SDSDOT(name) {#name, [](trial& t) { started_dot(t, name); }},
#define ROW_SCAL(name, T, A) {#name, [](trial& t) { scal<T, A>(t, name); }},
#define ROW_COPY(name, T, ...) {#name, [](trial& t) { copy<T>(t, name); }},
#define ROW_ROT(name, T, C, S, ...) {#name, [](trial& t) { rot<T, C, S>(t, name); }},
#define ROW_ROTM(name, T) {#name, [](trial& t) { rotm<T>(t, name); }},
#define ROW_AXPBY(name, T) {#name, [](trial& t) { axpby<T>(t, name); }},
const rows rest_of_divided("vector", threaded,
                           {
#include "zor/tables/core_vector.inc"
                           });
#define ROW_ASUM(name, T, R) {#name, [](trial& t) { asum<T, R>(t, name); }},
#define ROW_NRM2(name, T, R) {#name, [](trial& t) { nrm2<T, R>(t, name); }},
#define ROW_IAMAX(name, T) {#name, [](trial& t) { extreme<T>(t, name, false); }},
#define ROW_IAMIN(name, T) {#name, [](trial& t) { extreme<T>(t, name, true); }},
#define ROW_DOT(name, T) {#name, [](trial& t) { real_dot<T>(t, name); }},
#define ROW_CDOT(name, T, conj) {#name, [](trial& t) { complex_dot<T>(t, conj, name); }},
#define ROW_DSDOT(name) {#name, [](trial& t) { real_dot<float>(t, name); }},
#define ROW_SDSDOT(name) {#name, [](trial& t) { started_dot(t, name); }},
const rows reductions("reduction", serial,
                      {
#include "zor/tables/blas_vector.inc"
                      });

#define ROW_SCAL(name, T, A) {#name, [](trial& t) { scal<T, A>(t, name); }},
#define ROW_AXPY(name, T) {#name, [](trial& t) { axpy<T>(t, name); }},
#define ROW_COPY(name, T, ...) {#name, [](trial& t) { copy<T>(t, name); }},
#define ROW_SWAP(name, T) {#name, [](trial& t) { swap<T>(t, name); }},
#define ROW_ROT(name, T, C, S, ...) {#name, [](trial& t) { rot<T, C, S>(t, name); }},
#define ROW_ROTG(name, T, R) {#name, [](trial& t) { rotg<T, R>(t, name); }},
#define ROW_ROTM(name, T) {#name, [](trial& t) { rotm<T>(t, name); }},
#define ROW_ROTMG(name, T) {#name, [](trial& t) { rotmg<T>(t, name); }},
#define ROW_CABS1(name, T, R) {#name, [](trial& t) { cabs1<T, R>(t, name); }},
const rows updates("vector update", serial,
                   {
#include "zor/tables/blas_vector.inc"
                   });

#define ROW_AXPYI(name, T) {#name, [](trial& t) { axpyi<T>(t, name); }},
#define ROW_DOTI(name, T) {#name, [](trial& t) { doti<T>(t, false, name); }},
#define ROW_CDOTI(name, T, conj) {#name, [](trial& t) { complex_doti<T>(t, conj, name); }},
#define ROW_GTHR(name, T) {#name, [](trial& t) { gather<T>(t, name); }},
#define ROW_GTHRZ(name, T) {#name, [](trial& t) { gather<T>(t, name); }},
#define ROW_SCTR(name, T) {#name, [](trial& t) { scatter<T>(t, name); }},
#define ROW_ROTI(name, T) {#name, [](trial& t) { roti<T>(t, name); }},
const rows compressed("compressed vector", serial,
                      {
#include "zor/tables/blas_vector.inc"
                      });

}  // namespace
}  // namespace zor_fuzz
