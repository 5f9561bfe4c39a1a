// SPDX-License-Identifier: MIT
// The six transforms as their sums, in long double.
#pragma once

#include <cmath>
#include <vector>

namespace zor_ref {

constexpr long double pi = 3.14159265358979323846264338327950288L;

// The angle of element j and coefficient k is a(k) b(j) pi / d; ends count half.
struct trig_sum {
  bool sine;
  int first, last;      // elements j: first to n - last
  int first_k, last_k;  // coefficients likewise
  int scale_k, shift_k, scale_j, shift_j,
      divisor;  // (scale_k k + shift_k) (scale_j j + shift_j) pi / (divisor n)
};
constexpr trig_sum trig_sums[6] = {{true, 1, 1, 1, 1, 1, 0, 1, 0, 1},  {false, 0, 0, 0, 0, 1, 0, 1, 0, 1},
                                   {false, 0, 1, 0, 1, 2, 1, 1, 0, 2}, {true, 1, 0, 1, 0, 2, -1, 1, 0, 2},
                                   {false, 0, 1, 0, 1, 2, 1, 2, 1, 4}, {true, 0, 1, 0, 1, 2, 1, 2, 1, 4}};

// One period of the wave.
class trig_waves {
 public:
  trig_waves(const trig_sum& t, long n) : t_(t), values_(size_t(2 * t.divisor * n)) {
    for (size_t i = 0; i < values_.size(); ++i) {
      const long double angle = (long double)i * pi / (long double)(t.divisor * n);
      values_[i] = t.sine ? std::sin(angle) : std::cos(angle);
    }
  }
  long double operator()(long k, long j) const {
    return values_[size_t((t_.scale_k * k + t_.shift_k) * (t_.scale_j * j + t_.shift_j)) % values_.size()];
  }

 private:
  const trig_sum& t_;
  std::vector<long double> values_;
};

// Elements that the transform does not know keep what they have.
template <class T>
std::vector<long double> trig_forward(int type, long n, const std::vector<T>& f) {
  const trig_sum& t = trig_sums[type];
  const trig_waves wave(t, n);
  std::vector<long double> result(f.begin(), f.end());
  for (long k = t.first_k; k <= n - t.last_k; ++k) {
    long double sum = 0;
    for (long j = t.first; j <= n - t.last; ++j) {
      const bool half = (j == 0 || j == n) && type >= 1 && type <= 3;
      sum += (half ? 0.5L : 1.0L) * f[size_t(j)] * wave(k, j);
    }
    result[size_t(k)] = 2 * sum / (long double)n;
  }
  return result;
}
template <class T>
std::vector<long double> trig_backward(int type, long n, const std::vector<T>& f) {
  const trig_sum& t = trig_sums[type];
  const trig_waves wave(t, n);
  std::vector<long double> result(f.begin(), f.end());
  for (long j = t.first; j <= n - t.last; ++j) {
    long double sum = 0;
    for (long k = t.first_k; k <= n - t.last_k; ++k) {
      const bool half = (k == 0 || k == n) && type == 1;
      sum += (half ? 0.5L : 1.0L) * f[size_t(k)] * wave(k, j);
    }
    result[size_t(j)] = sum;
  }
  return result;
}

// Term j of coefficient k of a line of m values, by the kinds of zor/trig.h from DST-I on.
inline long double public_term(int kind, long double m, long double j, long double k) {
  const bool end = j == 0 || j == m - 1;
  switch (kind) {
    case 1:
      return 2 * std::sin((j + 1) * (k + 1) * pi / (m + 1));
    case 2:
      return (end ? 1 : 2) * std::cos(j * k * pi / (m - 1));
    case 3:
      return 2 * std::cos((2 * j + 1) * k * pi / (2 * m));
    case 4:
      return (j == 0 ? 1 : 2) * std::cos(j * (2 * k + 1) * pi / (2 * m));
    case 5:
      return 2 * std::sin((2 * j + 1) * (k + 1) * pi / (2 * m));
    case 6:
      return (j == m - 1 ? 1 : 2) * std::sin((j + 1) * (2 * k + 1) * pi / (2 * m));
    case 7:
      return 2 * std::cos((2 * j + 1) * (2 * k + 1) * pi / (4 * m));
    default:
      return 2 * std::sin((2 * j + 1) * (2 * k + 1) * pi / (4 * m));
  }
}

}  // namespace zor_ref
