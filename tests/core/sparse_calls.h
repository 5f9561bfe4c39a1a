// SPDX-License-Identifier: MIT
// The public sparse calls by element type and width of the indices.
#pragma once

#include <cstdint>
#include <type_traits>

#include "zor/sparse.h"

namespace sparse_test {

template <class T>
struct calls;
#define CALLS(T, t)                                          \
  template <>                                                \
  struct calls<T> {                                          \
    static constexpr int32_t letter = #t[0];                 \
    static constexpr auto* mv = &zor_sparse_##t##mv;         \
    static constexpr auto* mm = &zor_sparse_##t##mm;         \
    static constexpr auto* sv = &zor_sparse_##t##sv;         \
    static constexpr auto* sm = &zor_sparse_##t##sm;         \
    static constexpr auto* gauss = &zor_sparse_##t##gauss;   \
    static constexpr auto* jacobi = &zor_sparse_##t##jacobi; \
  };
CALLS(float, s)
CALLS(double, d)
CALLS(zor_c32, c)
CALLS(zor_c64, z)
#undef CALLS

template <class I>
using description = std::conditional_t<sizeof(I) == 8, zor_sparse_desc, zor_sparse_desc_lp64>;
inline int32_t create(zor_sparse* a, const zor_sparse_desc& d) { return zor_sparse_create(a, &d); }
inline int32_t create(zor_sparse* a, const zor_sparse_desc_lp64& d) { return zor_sparse_create_lp64(a, &d); }

#define EVERY_TYPE(check, ...)          \
  check<float, int32_t>(__VA_ARGS__);   \
  check<float, int64_t>(__VA_ARGS__);   \
  check<double, int32_t>(__VA_ARGS__);  \
  check<double, int64_t>(__VA_ARGS__);  \
  check<zor_c32, int32_t>(__VA_ARGS__); \
  check<zor_c32, int64_t>(__VA_ARGS__); \
  check<zor_c64, int32_t>(__VA_ARGS__); \
  check<zor_c64, int64_t>(__VA_ARGS__);

}  // namespace sparse_test
