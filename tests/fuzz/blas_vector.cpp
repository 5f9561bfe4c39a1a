// SPDX-License-Identifier: MIT
// Vector kernels, and the plain names that divide a vector over threads.
#include <array>
#include <numeric>

#include "tests/fuzz/trial.h"
#include "zor/signatures/blas.h"

namespace zor_fuzz {
namespace {

constexpr zor_int longest = 150000;  // enough for several threads

// n elements of x and y, each with its increment.
template <class T>
struct pair {
  using element = T;
  explicit pair(trial& t, use use_x, use use_y)
      : n(t.size("n", longest)),
        x(t.strided_vector<T>("x", use_x, n, use_x == use::in)),
        y(t.strided_vector<T>("y", use_y, n, use_y == use::in)) {}
  zor_int n;
  strided<T> x, y;
};

// Compressed: element i of y stands at position indx[i], from 1; each at most once where y is written.
template <class T>
struct compressed {
  using element = T;
  struct listed : operand<T> {
    auto arguments() const { return list_of(this->data(), indx); }
    const zor_int* indx;
  };
  struct spread : operand<T> {
    wide operator()(zor_int i) const { return operand<T>::operator()(indx[i] - 1); }
    T now(zor_int i) const { return operand<T>::now(indx[i] - 1); }
    const zor_int* indx;
  };

  compressed(trial& t, use use_x, use use_y) : compressed(t, use_x, use_y, t.size("n", 3000)) {}
  zor_int n;
  listed x;
  spread y;

 private:
  compressed(trial& t, use use_x, use use_y, zor_int count)
      : compressed(t, use_x, use_y, drawn_positions(t, count, use_y != use::in)) {}
  compressed(trial& t, use use_x, use use_y, const std::pair<std::vector<zor_int>, zor_int>& places)
      : n(zor_int(places.first.size())),
        x{t.vector<T>("x", use_x, n), t.integers("indx", places.first)},
        y{t.scattered<T>("y", use_y, places.second, holds(places)), x.indx} {}

  // The positions and the length of y.
  static std::pair<std::vector<zor_int>, zor_int> drawn_positions(trial& t, zor_int n, bool distinct) {
    const zor_int length = n + t.size("spare", 100, n > 0 ? 1 : 0);
    random_bits r = t.random("positions");
    std::vector<zor_int> all(static_cast<size_t>(length));
    std::iota(all.begin(), all.end(), 1);
    for (zor_int i = 0; i < n; ++i) {
      const zor_int at = r.between(distinct ? i : 0, length - 1);
      distinct ? std::swap(all[size_t(i)], all[size_t(at)]) : void(all[size_t(i)] = at + 1);
    }
    all.resize(size_t(n));
    return {all, length};
  }
  static auto holds(const std::pair<std::vector<zor_int>, zor_int>& places) {
    std::vector<bool> used(size_t(places.second));
    for (const zor_int at : places.first) used[size_t(at - 1)] = true;
    return [used](zor_int i) { return bool(used[size_t(i)]); };
  }
};

// Elements of v are sums: sum(i) has the terms of element i.
template <class V, class Sum>
void check_each(trial& t, zor_int n, const V& v, const char* what, const Sum& sum) {
  t.some_of(n, 1, [&](zor_int i, zor_int) { sum(i).compare(t, v.now(i), what, i); });
}
// Those of `to` are those of `from` before the call.
template <class To, class From>
void check_copied(trial& t, zor_int n, const To& to, const From& from, const char* what) {
  t.some_of(n, 1, [&](zor_int i, zor_int) { t.near(to.now(i), from(i), 0, 0, what, i); });
}
// One result that sums over the elements of x, or over pairs of x and y.
template <class R, class Term>
void check_sum(trial& t, const R& value, const char* what, zor_int n, sum_of_terms s, const Term& term) {
  t.result(value);
  for (zor_int i = 0; i < n && t.checking(); ++i) s.add(term(i));
  s.compare(t, value, what, 0);
}

template <class T, class R>
void asum(trial& t, zor::asum_fn<T, R>* call) {
  const zor_int n = t.size("n", longest);
  const auto x = t.strided_vector<T>("x", use::in, n, true);
  const R value = t.invoke(call, n, x);
  check_sum(t, value, "asum", n, {}, [&](zor_int i) { return wide(magnitude(x(i))); });
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
  check_each(t, n, x, "x", [&](zor_int i) { return sum_of_terms{times(widened(alpha), x(i))}; });
}

template <class V, class Call>
void axpy(trial& t, Call* call) {
  const auto alpha = t.scalar<typename V::element>("alpha");
  const V v(t, use::in, use::inout);
  t.invoke(call, v.n, alpha, v.x, v.y);
  check_each(t, v.n, v.y, "y", [&](zor_int i) {
    return sum_of_terms{v.y(i), times(widened(alpha), v.x(i))};
  });
}

// A factor of 0 reads nothing.
template <class T>
void axpby(trial& t, zor::axpby_fn<T>* call) {
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const wide a = widened(alpha), b = widened(beta);
  const pair<T> v(t, use::in, b == wide(0) ? use::out : use::inout);
  t.invoke(call, v.n, alpha, v.x, beta, v.y);
  check_each(t, v.n, v.y, "y", [&](zor_int i) {
    sum_of_terms s;
    if (a != wide(0)) s.add(times(a, v.x(i)));
    if (b != wide(0)) s.add(times(b, v.y(i)));
    return s;
  });
}

// Copies and scatters.
template <class V, class Call>
void copy(trial& t, Call* call) {
  const V v(t, use::in, use::out);
  t.invoke(call, v.n, v.x, v.y);
  check_copied(t, v.n, v.y, v.x, "y");
}
// Gathers, clearing what is read or not.
template <class T, class Call>
void gather(trial& t, Call* call) {
  constexpr bool clears = std::is_same_v<Call, zor::gthrz_fn<T>>;
  const compressed<T> v(t, use::out, clears ? use::inout : use::in);
  t.invoke(call, v.n, v.y, v.x);
  check_copied(t, v.n, v.x, v.y, "x");
  if (clears)
    check_copied(
        t, v.n, v.y, [](zor_int) { return wide(0); }, "y");
}

template <class T>
void swap(trial& t, zor::swap_fn<T>* call) {
  const pair<T> v(t, use::inout, use::inout);
  t.invoke(call, v.n, v.x, v.y);
  check_copied(t, v.n, v.y, v.x, "y");
  check_copied(t, v.n, v.x, v.y, "x");
}

// Dot products of every kind: invoke(v) calls and returns the result.
template <class V, class Invoke>
void dot(trial& t, bool conjugate, const sum_of_terms& start, const Invoke& invoke) {
  const V v(t, use::in, use::in);
  check_sum(t, invoke(v), "dot", v.n, start,
            [&](zor_int i) { return times(conj_when(conjugate, v.x(i)), v.y(i)); });
}
template <class V, class Call>
void real_dot(trial& t, Call* call) {
  dot<V>(t, false, {}, [&](const V& v) { return t.invoke(call, v.n, v.x, v.y); });
}
// The result is the first argument, which other libraries have elsewhere.
template <class V, class Call>
void complex_dot(trial& t, bool conjugate, Call* call) {
  dot<V>(t, conjugate, {}, [&](const V& v) {
    typename V::element value{};
    if constexpr (std::is_same_v<V, pair<typename V::element>>)
      t.call([&] { call(&value, &v.n, v.x, &v.x.inc.value, v.y, &v.y.inc.value); });
    else
      t.call([&] { call(&value, &v.n, v.x, v.x.indx, v.y); });
    return value;
  });
}
void started_dot(trial& t, zor::sdsdot_fn* call) {
  const float sb = t.scalar<float>("sb");
  dot<pair<float>>(t, false, {widened(sb)},
                   [&](const pair<float>& v) { return t.invoke(call, v.n, sb, v.x, v.y); });
}

// The rotation (c, s), or with h the matrix of its four elements, of every pair.
template <class V>
void check_rotated(trial& t, const V& v, const std::array<wide, 4>& h) {
  check_each(t, v.n, v.x, "x", [&](zor_int i) {
    return sum_of_terms{times(h[0], v.x(i)), times(h[2], v.y(i))};
  });
  check_each(t, v.n, v.y, "y", [&](zor_int i) {
    return sum_of_terms{times(h[1], v.x(i)), times(h[3], v.y(i))};
  });
}
template <class V, class C, class S, class Call>
void rot(trial& t, Call* call) {
  const C c = t.scalar<C>("c");
  const S s = t.scalar<S>("s");
  const V v(t, use::inout, use::inout);
  t.invoke(call, v.n, v.x, v.y, c, s);
  check_rotated(t, v, {widened(c), -std::conj(widened(s)), widened(s), widened(c)});
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
std::array<wide, 4> modified(const operand<T>& param) {
  const T flag = param.now(0);
  std::array<wide, 4> h{1, 0, 0, 1};
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
  check_rotated(t, v, modified(param));
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
  sum_of_terms first{h[0] * x, h[2] * y}, second{h[1] * x, h[3] * y};
  first.terms = second.terms = 16;
  first.compare(t, x1.now(0), "x1", 0);
  second.compare(t, T(0), "y1", 0);
}

template <class T, class R>
void cabs1(trial& t, zor::cabs1_fn<T, R>* call) {
  const auto z = t.vector<T>("z", use::in, 1);
  R value{};
  t.call([&] { value = call(z); });
  t.result(value);
  t.near(value, magnitude(z(0)), magnitude(z(0)), 1, "cabs1");
}

// The names of the tables divide a vector over threads, or are kernels, and each table takes its own macros
// away.
#define LIST(name, ...) {#name, [](trial& t) { __VA_ARGS__; }},
const rows divided("vector", threaded,
                   {
#include "tests/fuzz/vector_rows.inc"
#include "zor/tables/core_blas.inc"
                   });
const rows rest_of_divided("vector", threaded,
                           {
#include "tests/fuzz/vector_rows.inc"
#define ROW_AXPBY(name, T) LIST(name, axpby<T>(t, name))
#include "zor/tables/core_vector.inc"
                           });
const rows kernels("vector kernel", serial,
                   {
#include "tests/fuzz/vector_rows.inc"
#define ROW_ROTG(name, T, R) LIST(name, rotg<T, R>(t, name))
#define ROW_ROTMG(name, T) LIST(name, rotmg<T>(t, name))
#define ROW_CABS1(name, T, R) LIST(name, cabs1<T, R>(t, name))
#include "zor/tables/blas_vector.inc"
                   });
#define ROW_AXPYI(name, T) LIST(name, axpy<compressed<T>>(t, name))
#define ROW_DOTI(name, T) LIST(name, real_dot<compressed<T>>(t, name))
#define ROW_CDOTI(name, T, conj) LIST(name, complex_dot<compressed<T>>(t, conj, name))
#define ROW_GTHR(name, T) LIST(name, gather<T>(t, name))
#define ROW_GTHRZ ROW_GTHR
#define ROW_SCTR(name, T) LIST(name, copy<compressed<T>>(t, name))
#define ROW_ROTI(name, T) LIST(name, rot<compressed<T>, T, T>(t, name))
const rows compressed_kernels("compressed vector", serial,
                              {
#include "zor/tables/blas_vector.inc"
                              });

}  // namespace
}  // namespace zor_fuzz
