// SPDX-License-Identifier: MIT
// Dense operands of many right-hand sides, and how every format passes over them: by panels of some rows and
// all right-hand sides, several packs of right-hand sides abreast. No sum crosses right-hand sides, so the
// grouping never shows.
#pragma once

#include "spblas/pack.h"
#include "spblas/thresholds.h"

namespace zor::sparse {

// A dense operand of many right-hand sides: element (row, j), both from 0, stands at row ld + j in row-major
// layout, at row + j ld in column-major layout. Packs run over j.
template <class T, bool RowMajor>
struct dense {
  T* data;
  zor_int ld;

  using element_type = std::remove_const_t<T>;

  [[gnu::always_inline]] T* at(zor_int row, zor_int j) const {
    return RowMajor ? data + row * ld + j : data + row + j * ld;
  }
  template <int N>
  [[gnu::always_inline]] pack<element_type, N> get(zor_int row, zor_int j) const {
    const element_type* p = at(row, j);
    if constexpr (RowMajor || N == 1)
      return load<element_type, N>(p);
    else
      return collect<element_type, N>([=, this](int i) { return p + i * ld; });
  }
  template <int N>
  [[gnu::always_inline]] void put(zor_int row, zor_int j, pack<element_type, N> v) const {
    T* p = at(row, j);
    if constexpr (RowMajor || N == 1) {
      store<element_type, N>(p, v);
    } else {
      element_type e[N];
      std::memcpy(e, &v, sizeof e);
      for (int i = 0; i < N; ++i) std::memcpy(p + i * ld, e + i, sizeof(T));
    }
  }
};

// R packs of neighbouring right-hand sides.
template <class T, int N, int R>
struct packs {
  pack<T, N> at[R];
};
// Calls body(0) to body(R - 1), with constants from the start: a loop over packs would leave them in memory.
template <int R, class Body>
[[gnu::always_inline]] inline void each(const Body& body) {
  [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) { (body(I), ...); }
  (std::make_integer_sequence<int, R>{});
}
// Calls body.operator()<N>(j) for packs that cover the right-hand sides first to last - 1 (from 0): the
// widest first, then narrower ones.
template <class T, class Body>
[[gnu::always_inline]] inline void for_packs(zor_int first, zor_int last, const Body& body) {
  for_vectors<T, narrowing{.floor = 8}>(
      first, last, [&]<int Bytes>(zor_int j) __attribute__((always_inline)) {
        body.template operator()<units<T, Bytes>>(j);
      });
}
// The same with body.operator()<N, R>(j) for R packs at once: R of the widest ones while they last, then half
// as many, and so on.
template <class T, int R = thresholds::packs_abreast, class Body>
[[gnu::always_inline]] inline void for_packs_abreast(zor_int first, zor_int last, const Body& body) {
  constexpr int n = widest<T>;
  if constexpr (R > 1) {
    for (; first + n * R <= last; first += n * R) body.template operator()<n, R>(first);
    for_packs_abreast<T, R / 2>(first, last, body);
  } else {
    for_packs<T>(
        first,
        last, [&]<int N>(zor_int j) __attribute__((always_inline)) { body.template operator()<N, 1>(j); });
  }
}

// The same for entries that are not gathered by rows: R packs of a row-major operand; of a column-major one R
// columns, each element by itself.
template <bool RowMajor, class T, class Body>
[[gnu::always_inline]] inline void for_right_hand_sides(zor_int first, zor_int last, const Body& body) {
  constexpr int r = thresholds::entries_abreast<RowMajor>;
  if constexpr (RowMajor) {
    for_packs_abreast<T, r>(first, last, body);
  } else {
    for (; first + r <= last; first += r) body.template operator()<1, r>(first);
    for (; first < last; ++first) body.template operator()<1, 1>(first);
  }
}

// Rows of a panel for so many right-hand sides, and the most rows that any panel has.
template <class T>
constexpr zor_int panel_rows(zor_int right_hand_sides) {
  return thresholds::panel_rows_more + thresholds::panel_bytes / (right_hand_sides * zor_int(sizeof(T)));
}
template <class T>
inline constexpr zor_int most_panel_rows = panel_rows<T>(1);

// Calls body.operator()<N, R>(j, from, to) for the right-hand sides first to last - 1 and the rows `row` to
// end - 1, panel after panel, upwards or with Down downwards.
template <class T, int R = thresholds::packs_abreast, bool Down = false, class Body>
[[gnu::always_inline]] inline void for_panels(zor_int row, zor_int end, zor_int first, zor_int last,
                                              const Body& body) {
  const zor_int rows = panel_rows<T>(last - first);
  while (row < end) {
    const zor_int some = end - row < rows ? end - row : rows;
    const zor_int from = Down ? end - some : row;
    for_packs_abreast<T, R>(
        first, last, [&]<int N, int Packs>(zor_int j) __attribute__((always_inline)) {
          body.template operator()<N, Packs>(j, from, from + some);
        });
    (Down ? end : row) += Down ? -some : some;
  }
}

}  // namespace zor::sparse
