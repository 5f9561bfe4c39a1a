// SPDX-License-Identifier: MIT
// The public sparse calls by element type and width of the indices.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>
#include <vector>

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

template <class I>
description<I> described(zor_sparse a) {
  description<I> d{};
  if constexpr (sizeof(I) == 8)
    EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_describe(a, &d));
  else
    EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_describe_lp64(a, &d));
  return d;
}

// A matrix by its description or converted from another; it is freed.
struct owner {
  zor_sparse a = nullptr;
  owner() = default;
  template <class D>
  explicit owner(const D& d) {
    EXPECT_EQ(ZOR_SPARSE_OK, create(&a, d)) << zor_sparse_error_text();
  }
  owner(zor_sparse from, int32_t format, int block) {
    EXPECT_EQ(ZOR_SPARSE_OK, zor_sparse_convert(&a, from, format, block)) << zor_sparse_error_text();
  }
  owner(const owner&) = delete;
  owner& operator=(const owner&) = delete;
  ~owner() {
    if (a != nullptr) zor_sparse_free(&a);
  }
};

struct view {
  char structure, triangle = 0, diagonal = 0;
};
inline std::ostream& operator<<(std::ostream& out, const view& v) {
  return out << v.structure << v.triangle << v.diagonal;
}
inline const view views[] = {
    {'g'},           {'t', 'l', 'n'}, {'t', 'l', 'u'}, {'t', 'u', 'n'}, {'t', 'u', 'u'}, {'s', 'l', 'n'},
    {'s', 'l', 'u'}, {'s', 'u', 'n'}, {'s', 'u', 'u'}, {'h', 'l', 'n'}, {'h', 'l', 'u'}, {'h', 'u', 'n'},
    {'h', 'u', 'u'}, {'a', 'l'},      {'a', 'u'},      {'d', 0, 'n'},   {'d', 0, 'u'}};
inline bool solvable(const view& v) { return v.structure == 't' || v.structure == 'd'; }

// A matrix in CSR; its rows end where the next begin unless `pntre` says where.
template <class T, class I>
description<I> csr(const view& v, int32_t base, int64_t rows, int64_t cols, int64_t nnz, const T* val,
                   const I* indx, const I* pntrb, const I* pntre = nullptr) {
  return {ZOR_SPARSE_CSR,
          calls<T>::letter,
          base,
          v.structure,
          v.triangle,
          v.diagonal,
          I(rows),
          I(cols),
          I(nnz),
          val,
          indx,
          pntrb,
          pntre,
          nullptr,
          0,
          0};
}
template <class T, class I>
description<I> csr(const view& v, int32_t base, int64_t rows, int64_t cols, const std::vector<T>& val,
                   const std::vector<I>& indx, const std::vector<I>& pntrb, const I* pntre = nullptr) {
  return csr(v, base, rows, cols, int64_t(val.size()), val.data(), indx.data(), pntrb.data(), pntre);
}

// Arrays of which a case spoils one, or the description: creation refuses it with this text, or a solve does
// where the text begins with "a:". A null text: neither does.
template <class Arrays>
struct fault {
  void (*spoil)(Arrays&);
  const char* text;
};
template <class Arrays, size_t Count>
void expect_faults(const fault<Arrays> (&cases)[Count]) {
  for (const auto& c : cases) {
    const bool good = c.text == nullptr, made = good || c.text[0] == 'a';
    SCOPED_TRACE(good ? "good" : c.text);
    Arrays s;
    c.spoil(s);
    zor_sparse a = reinterpret_cast<zor_sparse>(&s);
    const int32_t created = zor_sparse_create(&a, &s.d);
    EXPECT_EQ(made ? ZOR_SPARSE_OK : ZOR_SPARSE_BAD_MATRIX, created);
    EXPECT_EQ(created == ZOR_SPARSE_OK, a != nullptr);
    const double b[4] = {1, 2, 3, 4};
    double x[4] = {7, 7, 7, 7};
    if (made) {
      EXPECT_EQ(good ? ZOR_SPARSE_OK : ZOR_SPARSE_NOT_SOLVABLE, zor_sparse_dsv(a, ZOR_SPARSE_PLAIN, 1, b, x));
    }
    if (!good) {
      EXPECT_STREQ(c.text, zor_sparse_error_text());
      EXPECT_EQ(7, x[0]);
    }
    zor_sparse_free(&a);
  }
}

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
