// SPDX-License-Identifier: MIT
// Kernels of compressed vectors against plain loops, with repeated positions, special values and guard pages.
#include <cfenv>
#include <vector>

#include "tests/blas/vector_operands.h"
#include "zor/blas.h"

namespace {

using namespace zor_test;
using ref::real_of;

template <class T>
T element(fill kind, random_bits& random) {
  using R = real_of<T>;
  if constexpr (ref::is_complex<T>) {
    const R re = sample<R>(kind, random);
    return {re, sample<R>(kind, random)};
  } else {
    return sample<R>(kind, random);
  }
}

// kernel and reference(n, x, indx, y, out) on equal operands: n values and positions in a full vector of
// `full`.
template <class T, class K, class F>
void check(const char* name, K kernel, F reference) {
  using R = real_of<T>;
  constexpr size_t reals = sizeof(T) / sizeof(R), full = 41;
  random_bits random(21);
  for (zor_int n = -1; n <= 40; ++n) {
    for (const fill kind : fills) {
      const size_t count = size_t(std::max<zor_int>(n, 0));
      guarded<T> x(count), y(full);
      guarded<zor_int> indx(count);
      for (T& v : x) v = element<T>(kind, random);
      for (T& v : y) v = element<T>(kind, random);
      for (zor_int& i : indx) i = random.between(1, full);
      std::vector<T> x0(x.begin(), x.end()), y0(y.begin(), y.end());
      T out[2] = {}, out0[2] = {};
      const int expected = flags_of([&] { reference(n, x0.data(), indx.data(), y0.data(), out0); });
      const int flags = flags_of([&] { kernel(n, x.data(), indx.data(), y.data(), out); });
      const auto same = [](const T* e, const T* a, size_t length) {
        return same_bits(reinterpret_cast<const R*>(e), reinterpret_cast<const R*>(a), length * reals);
      };
      EXPECT_TRUE(same(x0.data(), x.data(), count)) << name << " x, n=" << n;
      EXPECT_TRUE(same(y0.data(), y.data(), full)) << name << " y, n=" << n;
      EXPECT_TRUE(same(out0, out, 2)) << name << " result, n=" << n;
      EXPECT_EQ(expected, flags) << name << " flags, n=" << n;
    }
  }
}

#define KERNEL [=](zor_int n, [[maybe_unused]] T * x, const zor_int* indx, T* y, [[maybe_unused]] T* out)

template <class T, class F>
void check_axpyi(const char* name, F kernel) {
  using R = real_of<T>;
  for (const R a : {R(0), R(1), R(-1.7), std::numeric_limits<R>::quiet_NaN()}) {
    T alpha;
    if constexpr (ref::is_complex<T>)
      alpha = {0, a};
    else
      alpha = a;
    check<T>(
        name, KERNEL { kernel(&n, &alpha, x, indx, y); },
        KERNEL {
          if (a == 0) return;
          for (zor_int i = 0; i < n; ++i) y[indx[i] - 1] = ref::plus(y[indx[i] - 1], ref::times(alpha, x[i]));
        });
  }
}

template <class T, class F>
void check_doti(const char* name, F kernel) {
  check<T>(
      name, KERNEL { *out = kernel(&n, x, indx, y); },
      KERNEL {
        T sum[2] = {0, 0};
        const zor_int even = n < 1 ? 0 : n / 2 * 2;
        for (zor_int i = 0; i < even; ++i) sum[i % 2] = sum[i % 2] + x[i] * y[indx[i] - 1];
        *out = sum[0] + sum[1];
        if (even < n) *out = *out + x[even] * y[indx[even] - 1];
      });
}

template <class T, bool Conj, class F>
void check_cdoti(const char* name, F kernel) {
  check<T>(
      name, KERNEL { kernel(out, &n, x, indx, y); },
      KERNEL {
        *out = {0, 0};
        for (zor_int i = 0; i < n; ++i) {
          const T yi = y[indx[i] - 1];
          *out = ref::plus(*out, Conj ? ref::conj_times(x[i], yi) : ref::times(x[i], yi));
        }
      });
}

template <class T, class F>
void check_gthr(const char* name, F kernel, bool clear) {
  check<T>(
      name, KERNEL { kernel(&n, y, x, indx); },
      KERNEL {
        for (zor_int i = 0; i < n; ++i) {
          x[i] = y[indx[i] - 1];
          if (clear) y[indx[i] - 1] = T{};
        }
      });
}

template <class T, class F>
void check_sctr(const char* name, F kernel) {
  check<T>(
      name, KERNEL { kernel(&n, x, indx, y); },
      KERNEL {
        for (zor_int i = 0; i < n; ++i) y[indx[i] - 1] = x[i];
      });
}

template <class T, class F>
void check_roti(const char* name, F kernel) {
  const T rotations[][2] = {{1, 0}, {T(0.8), T(0.6)}, {1, T(0.5)}, {0, 1}};
  for (const auto& rotation : rotations) {
    const T c = rotation[0], s = rotation[1];
    check<T>(
        name, KERNEL { kernel(&n, x, indx, y, &c, &s); },
        KERNEL {
          if (c == 1 && s == 0) return;
          for (zor_int i = 0; i < n; ++i) {
            const T a = x[i], b = y[indx[i] - 1];
            x[i] = c * a + s * b;
            y[indx[i] - 1] = c * b - s * a;
          }
        });
  }
}

#define ROW_AXPYI(name, T) \
  TEST(compressed, name) { check_axpyi<T>(#name, name); }
#define ROW_DOTI(name, T) \
  TEST(compressed, name) { check_doti<T>(#name, name); }
#define ROW_CDOTI(name, T, conj) \
  TEST(compressed, name) { check_cdoti<T, conj>(#name, name); }
#define ROW_GTHR(name, T) \
  TEST(compressed, name) { check_gthr<T>(#name, name, false); }
#define ROW_GTHRZ(name, T) \
  TEST(compressed, name) { check_gthr<T>(#name, name, true); }
#define ROW_SCTR(name, T) \
  TEST(compressed, name) { check_sctr<T>(#name, name); }
#define ROW_ROTI(name, T) \
  TEST(compressed, name) { check_roti<T>(#name, name); }
#include "zor/tables/blas_vector.inc"

}  // namespace
