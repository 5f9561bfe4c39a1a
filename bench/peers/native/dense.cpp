// SPDX-License-Identifier: MIT
// The loops that a user would write, left to the compiler. Nothing is fused: the pairs of doubles live on it.
#include <complex>

#include "bench/dense_loops.h"

namespace zor_bench {
namespace {

template <class T>
struct arrays {
  int64_t rows, cols;
  T alpha, beta;
  const T *a, *b;
  T* c;
};

template <class T>
void add(const arrays<T>& s) {
  for (int64_t i = 0; i < s.rows * s.cols; ++i) s.c[i] = s.alpha * s.a[i] + s.beta * s.b[i];
}

template <class T>
void add_transposed(const arrays<T>& s) {
  for (int64_t i = 0; i < s.rows; ++i)
    for (int64_t j = 0; j < s.cols; ++j)
      s.c[i * s.cols + j] = s.alpha * s.a[i * s.cols + j] + s.beta * s.b[j * s.rows + i];
}

// A sum of two doubles, with the operations of accurate double-double arithmetic.
struct pair {
  double head = 0, tail = 0;
  pair() = default;
  pair(double h, double t = 0) : head(h), tail(t) {}
  explicit operator double() const { return head + tail; }
};
pair two_sum(double a, double b) {
  const double s = a + b, v = s - a;
  return {s, (a - (s - v)) + (b - v)};
}
pair operator+(pair a, pair b) {
  pair s = two_sum(a.head, b.head);
  const pair t = two_sum(a.tail, b.tail);
  s.tail += t.head;
  const double u = s.head + s.tail, e = s.tail - (u - s.head), f = e + t.tail, head = u + f;
  return {head, f - (head - u)};
}
pair operator-(pair a, pair b) { return a + pair{-b.head, -b.tail}; }
pair two_product(double a, double b) {
  const double ta = 134217729.0 * a, ah = ta - (ta - a), al = a - ah;
  const double tb = 134217729.0 * b, bh = tb - (tb - b), bl = b - bh;
  const double p = a * b;
  return {p, ((ah * bh - p) + ah * bl + bh * al) + al * bl};
}
pair operator*(pair a, pair b) {
  const pair p = two_product(a.head, b.head);
  const double low = p.tail + (a.head * b.tail + a.tail * b.head), head = p.head + low;
  return {head, low - (head - p.head)};
}
pair product(double a, double b, pair) { return two_product(a, b); }
__float128 product(double a, double b, __float128) { return __float128(a) * b; }

// Sums in W: of real elements one, of complex elements two.
template <class W>
double multiply_row(const arrays<double>& s, int64_t i, bool symmetric) {
  W sum = 0;
  for (int64_t j = 0; j < s.cols; ++j) {
    const double e = symmetric && j < i ? s.a[j + i * s.rows] : s.a[i + j * s.rows];
    sum = sum + product(e, s.b[j], W());
  }
  return double(W(s.alpha) * sum + product(s.beta, s.c[i], W()));
}
template <class W>
std::complex<double> multiply_row(const arrays<std::complex<double>>& s, int64_t i, bool symmetric) {
  W re = 0, im = 0;
  for (int64_t j = 0; j < s.cols; ++j) {
    const std::complex<double> e = symmetric && j < i ? s.a[j + i * s.rows] : s.a[i + j * s.rows], x = s.b[j];
    re = re + (product(e.real(), x.real(), W()) - product(e.imag(), x.imag(), W()));
    im = im + (product(e.real(), x.imag(), W()) + product(e.imag(), x.real(), W()));
  }
  const W ar = s.alpha.real(), ai = s.alpha.imag();
  const std::complex<double> y = s.c[i], b = s.beta;
  const W yr = product(b.real(), y.real(), W()) - product(b.imag(), y.imag(), W());
  const W yi = product(b.real(), y.imag(), W()) + product(b.imag(), y.real(), W());
  return {double(ar * re - ai * im + yr), double(ar * im + ai * re + yi)};
}
template <class W, class T>
void multiply(const arrays<T>& s, bool symmetric) {
  for (int64_t i = 0; i < s.rows; ++i) s.c[i] = multiply_row<W>(s, i, symmetric);
}

template <class T>
void rotate(int64_t n, T* __restrict x, T* __restrict y, const T* c, const T* s) {
  for (int64_t i = 0; i < n; ++i) {
    const T xi = x[i], yi = y[i];
    x[i] = c[i] * xi + s[i] * yi;
    y[i] = c[i] * yi - s[i] * xi;
  }
}
template <class T>
void reflect(int64_t n, T* __restrict x, T* __restrict y, T* __restrict z, T tau, T h1, T h2) {
  for (int64_t i = 0; i < n; ++i) {
    const T t = (x[i] + h1 * y[i] + h2 * z[i]) * tau;
    x[i] -= t;
    y[i] -= h1 * t;
    z[i] -= h2 * t;
  }
}
// x and y of these are written too.
template <class T>
void run_vectors(const dense_job& job) {
  T *const x = static_cast<T*>(const_cast<void*>(job.a)), *const y =
                                                              static_cast<T*>(const_cast<void*>(job.b));
  if (job.what == dense_operation::rotations)
    rotate(job.cols, x, y, static_cast<const T*>(job.c), static_cast<const T*>(job.d));
  else
    reflect(job.cols, x, y, static_cast<T*>(job.c), T(job.alpha[0]), T(job.beta[0]), T(job.beta[1]));
}

template <class T>
void run(const dense_job& job, T alpha, T beta) {
  if constexpr (std::is_floating_point_v<T>)
    if (job.what == dense_operation::rotations || job.what == dense_operation::reflector)
      return run_vectors<T>(job);
  const arrays<T> s = {job.rows,
                       job.cols,
                       alpha,
                       beta,
                       static_cast<const T*>(job.a),
                       static_cast<const T*>(job.b),
                       static_cast<T*>(job.c)};
  if (job.what == dense_operation::sum) return add(s);
  if (job.what == dense_operation::transposed_sum) return add_transposed(s);
  if constexpr (std::is_same_v<T, double> || std::is_same_v<T, std::complex<double>>) {
    const bool symmetric =
        job.what == dense_operation::pair_symmetric || job.what == dense_operation::quad_symmetric;
    const bool quad =
        job.what == dense_operation::quad_product || job.what == dense_operation::quad_symmetric;
    quad ? multiply<__float128>(s, symmetric) : multiply<pair>(s, symmetric);
  }
}

}  // namespace

extern "C" [[gnu::visibility("default")]] void zor_dense_loop(const dense_job& job) {
  const auto alpha = job.alpha, beta = job.beta;
  switch (job.type) {
    case 's':
      return run(job, float(alpha[0]), float(beta[0]));
    case 'd':
      return run(job, alpha[0], beta[0]);
    case 'c':
      return run(job, std::complex<float>(float(alpha[0]), float(alpha[1])),
                 std::complex<float>(float(beta[0]), float(beta[1])));
    case 'z':
      return run(job, std::complex<double>(alpha[0], alpha[1]), std::complex<double>(beta[0], beta[1]));
  }
}

}  // namespace zor_bench
