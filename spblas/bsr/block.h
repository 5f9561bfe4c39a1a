// SPDX-License-Identifier: MIT
// One block times a vector. A block is lb runs of lb neighbouring elements, element q of run p at p lb + q:
// its columns when it is stored by columns, its rows when it is stored by rows. Two forms:
//
//   spread  out(q) = out(q) + a(p, q) (in(p) alpha), run after run
//   dot     out(p) = out(p) + the sum over q of (a(p, q) alpha) in(q)
//
// The sum of a dot is one chain from zero; over nine elements or more, those of whole groups of eight go to
// two accumulators, even and odd ones, which are joined before the rest is added.
#pragma once

#include <bit>

#include "spblas/panel.h"

namespace zor::sparse {

namespace thresholds {
// Contract: elements from which a dot has two accumulators, and the group that they take.
inline constexpr zor_int least_for_pairs = 9, pairs_group = 8;
// Sizes of blocks with code of their own. Tuned: all whose sums stay in registers in every build.
inline constexpr int least_known_block = 2, most_known_block = 8;
}  // namespace thresholds

// The elements of each run that count: all, those from the diagonal on, those up to it; without the diagonal
// when strict.
enum class block_side { whole, after, before };
struct block_part {
  block_side side = block_side::whole;
  bool strict = false;

  zor_int first(zor_int p) const { return side == block_side::after ? p + (strict ? 1 : 0) : 0; }
  zor_int last(zor_int p, zor_int lb) const { return side == block_side::before ? p + (strict ? 0 : 1) : lb; }
};

template <class T>
[[gnu::noinline]] void spread_block(const T* a, zor_int lb, block_part part, T alpha, const T* in, T* out) {
  const one<T> scale = load<T, 1>(&alpha);
  for (zor_int p = 0; p < lb; ++p) {
    const one<T> t = mul<T>(load<T, 1>(in + p), scale);
    const T* const run = a + p * lb;
    for_packs<T>(
        part.first(p), part.last(p, lb), [&]<int N>(zor_int q) __attribute__((always_inline)) {
          store<T, N>(out + q, load<T, N>(out + q) + mul<T>(load<T, N>(run + q), spread<T, N>(t)));
        });
  }
}

// The sums of Runs neighbouring runs over elements first to last - 1. Both accumulators of a run are one pack
// where it has room for two elements.
template <int Runs, class T>
[[gnu::always_inline]] inline void dot_runs(const T* a, zor_int lb, zor_int first, zor_int last, one<T> alpha,
                                            const T* in, T* out) {
  using namespace thresholds;
  constexpr int n = widest<T> < 2 ? 1 : 2, halves = 2 / n;
  const zor_int count = last - first,
                paired = count < least_for_pairs ? 0 : count / pairs_group * pairs_group;
  packs<T, n, Runs * halves> pairs{};
  const pack<T, n> scale = spread<T, n>(alpha);
  zor_int q = first;
  for (; q < first + paired; q += 2)
    each<Runs * halves>([&](int i) __attribute__((always_inline)) {
      const zor_int at = q + i % halves * n;
      pairs.at[i] =
          pairs.at[i] + mul<T>(mul<T>(load<T, n>(a + i / halves * lb + at), scale), load<T, n>(in + at));
    });
  packs<T, 1, Runs> s{};
  if (paired > 0)
    each<Runs>([&](int p) __attribute__((always_inline)) {
      s.at[p] = element<T, n, 0>(pairs.at[p * halves]) + element<T, n, n - 1>(pairs.at[(p + 1) * halves - 1]);
    });
  for (; q < last; ++q)
    each<Runs>([&](int p) __attribute__((always_inline)) {
      s.at[p] = s.at[p] + mul<T>(mul<T>(load<T, 1>(a + p * lb + q), alpha), load<T, 1>(in + q));
    });
  each<Runs>([&](int p)
                 __attribute__((always_inline)) { store<T, 1>(out + p, load<T, 1>(out + p) + s.at[p]); });
}
template <class T>
[[gnu::noinline]] void dot_block(const T* a, zor_int lb, block_part part, T alpha, const T* in, T* out) {
  const one<T> scale = load<T, 1>(&alpha);
  zor_int p = 0;
  if (part.side == block_side::whole)
    for (; p + 4 <= lb; p += 4) dot_runs<4>(a + p * lb, lb, 0, lb, scale, in, out + p);
  for (; p < lb; ++p) dot_runs<1>(a + p * lb, lb, part.first(p), part.last(p, lb), scale, in, out + p);
}

// L neighbouring elements in as few packs as they fill.
template <class T, int L>
struct element_run {
  static constexpr int n =
      std::bit_floor(unsigned(L)) < unsigned(widest<T>) ? int(std::bit_floor(unsigned(L))) : widest<T>;
  pack<T, n> head{};
  element_run<T, L - n> tail;

  [[gnu::always_inline]] void get(const T* p) {
    head = load<T, n>(p);
    tail.get(p + n);
  }
  [[gnu::always_inline]] void put(T* p) const {
    store<T, n>(p, head);
    tail.put(p + n);
  }
  // Adds a t for the elements at a.
  [[gnu::always_inline]] void add(const T* a, one<T> t) {
    head = head + mul<T>(load<T, n>(a), spread<T, n>(t));
    tail.add(a + n, t);
  }
  // Adds the dots of runs of Length elements at a with those at in: element i of the run has a chain of its
  // own over run i, of products (a alpha) in. Squares of the runs are transposed where they fill vectors.
  template <int Length>
  [[gnu::always_inline]] void add_dots(const T* a, one<T> alpha, const T* in) {
    constexpr int side = Length % n == 0 && n * sizeof(T) >= 16 ? n : 1;
    const pack<T, n> scale = spread<T, n>(alpha);
#pragma GCC unroll 8
    for (int q = 0; q < Length; q += side) {
      pack<T, n> columns[side];
      if constexpr (side == 1) {
        const auto apart =
            collect<T, n>([&](int i) __attribute__((always_inline)) { return a + i * Length + q; });
        columns[0] = mul<T>(apart, scale);
      } else {
#pragma GCC unroll 8
        for (int i = 0; i < n; ++i) columns[i] = mul<T>(load<T, n>(a + i * Length + q), scale);
        if constexpr (n > 1) transpose_units<is_complex<T> ? 2 : 1>(columns);
      }
#pragma GCC unroll 8
      for (int i = 0; i < side; ++i) head = head + mul<T>(columns[i], spread<T, n>(in + q + i));
    }
    tail.template add_dots<Length>(a + n * Length, alpha, in);
  }
  [[gnu::always_inline]] void add(const element_run& other) {
    head = head + other.head;
    tail.add(other.tail);
  }
  // Adds what the run holds times alpha to the elements at y, or subtracts it.
  [[gnu::always_inline]] void add_to(T* y, one<T> alpha, bool minus) const {
    const pack<T, n> before = load<T, n>(y), product = mul<T>(head, spread<T, n>(alpha));
    store<T, n>(y, minus ? before - product : before + product);
    tail.add_to(y + n, alpha, minus);
  }
};
template <class T>
struct element_run<T, 0> {
  void get(const T*) {}
  void put(T*) const {}
  void add(const T*, one<T>) {}
  template <int>
  void add_dots(const T*, one<T>, const T*) {}
  void add(const element_run&) {}
  void add_to(T*, one<T>, bool) const {}
};

// Calls body.operator()<L>() with the size of a block as a constant, and tells whether there is one.
template <int L = thresholds::least_known_block, class Body>
[[gnu::always_inline]] inline bool with_known_size(zor_int lb, const Body& body) {
  if (lb == L) return body.template operator()<L>(), true;
  if constexpr (L < thresholds::most_known_block) return with_known_size<L + 1>(lb, body);
  return false;
}

}  // namespace zor::sparse
