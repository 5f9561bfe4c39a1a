// SPDX-License-Identifier: MIT
// Elimination without pivots, modes in lanes:
//   r(j) = 1 / (d(j) - low(j)^2 r(j-1)),  g(j) = (f(j) + low(j) g(j-1)) r(j),  u(j) = g(j) + low(j+1) r(j)
//   u(j+1)
// It is stable where d(j) >= low(j) + low(j+1), which a q that is not negative gives. Other modes are
// eliminated one at a time with row exchanges.
//
// With constant coefficients r is a monotone sequence, so it comes to a value that repeats itself in all
// bits. From there on no division is left, and no r is stored.
#include "pde/poisson/tridiagonal.h"

#include <cstring>
#include <type_traits>

#include "serv/vec.h"

namespace zor::pde {
namespace {

template <class V, class T>
[[gnu::always_inline]] inline V get(const T* p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class V, class T>
[[gnu::always_inline]] inline void put(T* p, V v) {
  std::memcpy(p, &v, sizeof v);
}
template <class V>
[[gnu::always_inline]] inline bool same(V a, V b) {
  if constexpr (std::is_floating_point_v<V>)
    return a == b;
  else
    return sign_mask(V(a != b)) == 0;
}

struct row_range {
  int64_t first, last;
};
template <class T>
row_range rows_of(const mode_systems<T>& s) {
  return {s.free_first ? 0 : 1, s.free_last ? s.n : s.n - 1};
}
template <class T>
bool is_free_end(const mode_systems<T>& s, int64_t j) {
  return (j == 0 && s.free_first) || (j == s.n && s.free_last);
}

// The reciprocal pivots of constant coefficients, as they are kept: r itself, or where the diagonal comes
// less 2 the difference e = 1 - r. Of small eigenvalues 2 + d would leave few digits; e(j) follows from d and
// e(j - 1) with all of them.
template <class T>
struct plain_pivots {
  template <class V>
  static V first(V d, bool end) {
    return T(1) / (end ? T(0.5) * d : d);
  }
  template <class V>
  static V next(V d, V before, bool end) {
    return T(1) / ((end ? T(0.5) * d : d) - before);
  }
  template <class V>
  static V factor(V kept) {
    return kept;
  }
};
template <class T>
struct excess_pivots {
  template <class V>
  static V first(V d, bool end) {
    const V e = end ? T(0.5) * d : T(1) + d;
    return e / (T(1) + e);
  }
  // Of the last row, which has none behind it, r itself.
  template <class V>
  static V next(V d, V before, bool end) {
    if (end) return T(1) / (T(0.5) * d + before);
    const V e = d + before;
    return e / (T(1) + e);
  }
  template <class V>
  static V factor(V kept) {
    return T(1) - kept;
  }
};

// Modes `mode` to mode + lanes * count - 1, V being a vector of modes or one. r has room for every row of
// them.
template <class Pivots, class V, class T>
void eliminate_constant(const mode_systems<T>& s, int64_t mode, int64_t count, T* r) {
  constexpr int64_t L = int64_t(sizeof(V) / sizeof(T));
  const int64_t width = L * count;
  const row_range rows = rows_of(s);
  const T* const diagonal = s.diagonal + mode;
  T* const f = s.f + mode;
  int64_t repeats = rows.last + 1;  // this row and those behind it have the r of the row before
  const auto kept = [&](int64_t j) { return r + width * ((j < repeats ? j : repeats - 1) - rows.first); };
  T* const behind_all = r + width * (s.n + 1);  // the r of a free last row, which only that row wants
  for (int64_t j = rows.first; j <= rows.last; ++j) {
    const bool first = j == rows.first, end = is_free_end(s, j);
    T* const x = f + s.step * j;
    T* here = kept(j);
    if (j < repeats || end) {
      if (end && !first) here = behind_all;
      const T* const before = first ? nullptr : kept(j - 1);
      bool all_same = !first && !end;
      for (int64_t g = 0; g < width; g += L) {
        const V d = get<V>(diagonal + g) + s.shift;
        const V value = first ? Pivots::first(d, end) : Pivots::next(d, get<V>(before + g), end);
        if (all_same) all_same = same(value, get<V>(before + g));
        put(here + g, value);
      }
      if (all_same) repeats = j;
    }
    for (int64_t g = 0; g < width; g += L) {
      V v = get<V>(x + g);
      if (!first) v = v + get<V>(x - s.step + g);
      const V value = get<V>(here + g);
      put(x + g, v * (end && !first ? value : Pivots::factor(value)));
    }
  }
  for (int64_t j = rows.last - 1; j >= rows.first; --j) {
    T* const x = f + s.step * j;
    const T* const here = kept(j);
    for (int64_t g = 0; g < width; g += L)
      put(x + g, get<V>(x + g) + Pivots::factor(get<V>(here + g)) * get<V>(x + s.step + g));
  }
}

template <class V, class T>
void eliminate_given(const mode_systems<T>& s, int64_t mode, int64_t count, T* r) {
  constexpr int64_t L = int64_t(sizeof(V) / sizeof(T));
  const int64_t width = L * count;
  const row_range rows = rows_of(s);
  const T* const diagonal = s.diagonal + mode;
  T* const f = s.f + mode;
  for (int64_t j = rows.first; j <= rows.last; ++j) {
    T* const x = f + s.step * j;
    T* const here = r + width * j;
    const T low = s.low[j];
    for (int64_t g = 0; g < width; g += L) {
      V d = get<V>(diagonal + g) * s.a[j] + s.b[j], v = get<V>(x + g);
      if (j > rows.first) {
        d = d - low * low * get<V>(here - width + g);
        v = v + low * get<V>(x - s.step + g);
      }
      const V value = T(1) / d;
      put(here + g, value);
      put(x + g, v * value);
    }
  }
  for (int64_t j = rows.last - 1; j >= rows.first; --j) {
    T* const x = f + s.step * j;
    const T low = s.low[j + 1];
    for (int64_t g = 0; g < width; g += L)
      put(x + g, get<V>(x + g) + low * get<V>(r + width * j + g) * get<V>(x + s.step + g));
  }
}

// One mode's system with its coefficients.
template <class T>
struct coefficients {
  const mode_systems<T>& s;
  int64_t mode;
  T low(int64_t j) const { return s.low == nullptr ? T(1) : s.low[j]; }
  T diagonal(int64_t j) const {
    if (s.low != nullptr) return s.diagonal[mode] * s.a[j] + s.b[j];
    const T d = s.diagonal[mode] + s.shift + (s.excess ? T(2) : T(0));
    return is_free_end(s, j) ? T(0.5) * d : d;
  }
};

// Gauss with row exchanges; u has room for three rows of coefficients and the right-hand side.
template <class T>
void eliminate_with_exchanges(const coefficients<T>& c, T* room) {
  const mode_systems<T>& s = c.s;
  const row_range rows = rows_of(s);
  const int64_t count = rows.last - rows.first + 1;
  if (count < 1) return;
  T *const u0 = room, *const u1 = room + count,
           *const u2 = room + 2 * count;  // the upper triangle by diagonals
  T* const f = s.f + c.mode + s.step * rows.first;
  T d = c.diagonal(rows.first), up = count > 1 ? -c.low(rows.first + 1) : T(0), value = f[0];
  for (int64_t i = 0; i + 1 < count; ++i) {
    const int64_t j = rows.first + i + 1;
    const T below = -c.low(j), next_d = c.diagonal(j), next_up = i + 2 < count ? -c.low(j + 1) : T(0);
    const T next = f[s.step * (i + 1)];
    const T size = d < T(0) ? -d : d, other = below < T(0) ? -below : below;
    if (size >= other) {
      const T m = below / d;
      u0[i] = d, u1[i] = up, u2[i] = T(0), f[s.step * i] = value;
      d = next_d - m * up, up = next_up, value = next - m * value;
    } else {
      const T m = d / below;
      u0[i] = below, u1[i] = next_d, u2[i] = next_up, f[s.step * i] = next;
      d = up - m * next_d, up = -m * next_up, value = value - m * next;
    }
  }
  const int64_t last = count - 1;
  f[s.step * last] = value / d;
  if (last >= 1)
    f[s.step * (last - 1)] = (f[s.step * (last - 1)] - u1[last - 1] * f[s.step * last]) / u0[last - 1];
  for (int64_t i = last - 2; i >= 0; --i)
    f[s.step * i] = (f[s.step * i] - u1[i] * f[s.step * (i + 1)] - u2[i] * f[s.step * (i + 2)]) / u0[i];
}

template <class V, class T>
void eliminate(const mode_systems<T>& s, int64_t mode, int64_t count, T* r) {
  if (s.low != nullptr)
    eliminate_given<V, T>(s, mode, count, r);
  else if (s.excess)
    eliminate_constant<excess_pivots<T>, V, T>(s, mode, count, r);
  else
    eliminate_constant<plain_pivots<T>, V, T>(s, mode, count, r);
}

// Constants solve the equation of mode 0 without a right-hand side. What f has of them is taken off, by the
// weights of the rows; then the last row follows from the others.
template <class T>
void solve_singular(const mode_systems<T>& s, T* room) {
  T sum = 0, total = 0;
  const auto weight = [&](int64_t j) {
    if (s.weight != nullptr) return s.weight[j];
    return j == 0 || j == s.n ? T(0.5) : T(1);
  };
  for (int64_t j = 0; j <= s.n; ++j) {
    sum = sum + s.f[s.step * j];
    total = total + weight(j);
  }
  const T mean = sum / total;
  for (int64_t j = 0; j <= s.n; ++j) s.f[s.step * j] = s.f[s.step * j] - mean * weight(j);
  mode_systems<T> rest = s;
  rest.free_last = false;
  rest.count = 1;
  eliminate<T, T>(rest, 0, 1, room);
  s.f[s.step * s.n] = T(0);
}

template <class T>
bool wants_exchanges(const mode_systems<T>& s, int64_t mode) {
  return s.low != nullptr ? s.indefinite : !(s.diagonal[mode] + s.shift >= (s.excess ? T(0) : T(2)));
}

template <class T>
void zero_ends(const mode_systems<T>& s) {
  for (int64_t i = 0; i < s.count; ++i) {
    if (!s.free_first) s.f[i] = T(0);
    if (!s.free_last) s.f[s.step * s.n + i] = T(0);
  }
}

}  // namespace

template <class T>
int64_t scratch_of_systems(const mode_systems<T>& s) {
  return (s.n + 2) * modes_together<T> * int64_t(sizeof(T));
}

template <class T>
void solve_systems(const mode_systems<T>& s, void* scratch) {
  using V = vec<T>;
  constexpr int64_t L = lanes_of<T>;
  T* const room = static_cast<T*>(scratch);
  zero_ends(s);
  if (rows_of(s).last < rows_of(s).first) return;
  int64_t mode = 0;
  if (s.singular) solve_singular(s, room), mode = 1;
  while (mode < s.count) {
    if (wants_exchanges(s, mode)) {
      eliminate_with_exchanges(coefficients<T>{s, mode}, room);
      ++mode;
      continue;
    }
    int64_t end = mode + 1;
    while (end < s.count && end - mode < modes_together<T> && !wants_exchanges(s, end)) ++end;
    const int64_t vectors = (end - mode) / L;
    if (vectors > 0) eliminate<V>(s, mode, vectors, room);
    if (mode + vectors * L < end) eliminate<T>(s, mode + vectors * L, end - mode - vectors * L, room);
    mode = end;
  }
}

#define ZOR_INSTANCES(T)                                          \
  template int64_t scratch_of_systems<T>(const mode_systems<T>&); \
  template void solve_systems<T>(const mode_systems<T>&, void*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::pde
