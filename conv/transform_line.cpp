// SPDX-License-Identifier: MIT
// The convolution of two real lines, and the one-dimensional bodies through it.
#include <cstring>

#include "conv/lines.h"
#include "dft/line.h"
#include "serv/element.h"

namespace zor::conv {
namespace {

// Fixed by contract: below these lengths of the result and of the shorter input sums are computed directly;
// a longer input of so many times the shorter is cut into segments.
constexpr zor_int shortest_result = 512, shortest_input = 64, long_ratio = 3;

// Every output is one running sum in the order of x, so that a cut of x into blocks would not show.
template <class R>
void convolve_directly(const R* x, zor_int m, const R* y, zor_int n, R* w) {
  line_geometry g = {};
  g.layout = signal_layout::contiguous;
  g.taps = n;
  g.tap_stride = -1;
  g.signal = m;
  g.signal_stride = 1;
  g.first = 1 - n;
  g.step = 1;
  line_pairs<R> one = {};
  one.at = {y + n - 1, x};
  sum_lines<R, R>(g, one, m + n - 1, w, 1);
}

// a := a b of two packed spectra of an even length: R0 R(n/2) R1 I1 R2 I2 ...
template <class R>
void multiply_spectra(zor_int n, R* a, const R* b) {
  const R first = a[0] * b[0], second = a[1] * b[1];
  using T = std::conditional_t<sizeof(R) == 8, c64, c32>;
  for_vectors<T>(
      1, n / 2, [&]<int Bytes>(zor_int i) __attribute__((always_inline)) {
        using V = vec<R, Bytes>;
        store<V>(a + 2 * i, complex_mul(load<V>(a + 2 * i), load<V>(b + 2 * i)));
      });
  a[0] = first;
  a[1] = second;
}

template <class R>
void copy_padded(zor_int count, const R* x, zor_int length, R* padded) {
  std::memcpy(padded, x, size_t(count) * sizeof(R));
  std::memset(padded + count, 0, size_t(length - count) * sizeof(R));
}

// A committed transform of a power of two, its work and two lines.
template <class R>
struct line_space {
  dft::line_transform transform;
  buffer<char> work;
  buffer<R> a, b;

  int32_t open(zor_int length) {
    if (length > INT32_MAX) return dft::engine_bad_size;
    const int32_t code =
        dft::commit_line<R>(&transform, dft::line_kind::real, int32_t(length), dft::scale_backward_n);
    if (code != dft::engine_done) return code;
    // A work of no bytes is none at all.
    const int32_t bytes = dft::work_of_line(transform);
    if ((bytes > 0 && !work.request(bytes)) || !a.request(length) || !b.request(length))
      return dft::engine_no_memory;
    return dft::engine_done;
  }
  int32_t forward(const R* in, R* out) { return dft::run_line(transform, dft::forward, in, out, work.data); }
  int32_t backward(const R* in, R* out) {
    return dft::run_line(transform, dft::backward, in, out, work.data);
  }
  ~line_space() { dft::free_line(&transform); }
};

zor_int power_of_two_from(zor_int n, zor_int least) {
  zor_int power = least;
  while (power < n) power *= 2;
  return power;
}

// Overlap-save (Stockham, 1966). From the last segment to the first: an inner one leaves its whole cyclic
// result, whose first n - 1 values are not part of w, where the segment before it is still to be written.
template <class R>
int32_t convolve_segments(const R* x, zor_int m, const R* y, zor_int n, R* w) {
  const zor_int length = 2 * power_of_two_from(2 * n, 1), step = length - n + 1, result = m + n - 1;
  line_space<R> space;
  int32_t code = space.open(length);
  if (code != dft::engine_done) return code;
  R *const spectrum = space.a.data, *const segment = space.b.data;
  copy_padded(n, y, length, spectrum);
  code = space.forward(spectrum, spectrum);
  for (zor_int at = (result - 1) / step * step; code == dft::engine_done && at >= 0; at -= step) {
    const zor_int before = at > 0 ? n - 1 : 0, first = at - before;
    if (at > 0 && first + length <= m) {
      code = space.forward(x + first, segment);
    } else {
      const zor_int end = at + step < m ? at + step : m;
      copy_padded(end > first ? end - first : 0, x + (end > first ? first : 0), length, segment);
      code = space.forward(segment, segment);
    }
    if (code != dft::engine_done) break;
    multiply_spectra(length, segment, spectrum);
    const zor_int left = result - at;
    if (at > 0 && left >= step) {
      code = space.backward(segment, w + first);
    } else {
      code = space.backward(segment, segment);
      std::memcpy(w + at, segment + before, size_t(left < step ? left : step) * sizeof(R));
    }
  }
  return code;
}

template <class R>
int32_t convolve_once(const R* x, zor_int m, const R* y, zor_int n, R* w) {
  const zor_int length = power_of_two_from(m + n - 1, 4);
  line_space<R> space;
  int32_t code = space.open(length);
  if (code != dft::engine_done) return code;
  R *const a = space.a.data, *const b = space.b.data;
  copy_padded(m, x, length, a);
  copy_padded(n, y, length, b);
  if ((code = space.forward(a, a)) != dft::engine_done) return code;
  if ((code = space.forward(b, b)) != dft::engine_done) return code;
  multiply_spectra(length, a, b);
  if ((code = space.backward(a, a)) != dft::engine_done) return code;
  std::memcpy(w, a, size_t(m + n - 1) * sizeof(R));
  return code;
}

template <class R>
int32_t convolve_lines(const R* x, zor_int m, const R* y, zor_int n, R* w) {
  if (x == nullptr || y == nullptr || w == nullptr) return dft::engine_null;
  if (m < 1 || n < 1) return dft::engine_bad_size;
  if (m < n) return convolve_lines(y, n, x, m, w);
  if (m + n - 1 < shortest_result || n < shortest_input) {
    convolve_directly(x, m, y, n, w);
    return dft::engine_done;
  }
  return m >= long_ratio * n ? convolve_segments(x, m, y, n, w) : convolve_once(x, m, y, n, w);
}

// One part, real or imaginary, of every element of an array of one dimension as a dense line; the array's own
// data where they are that already. Null when there is no memory.
template <class T, class R>
const R* dense_part(const array<const T>& a, int part, bool backward, buffer<R>* copy) {
  const real_t<T>* from = reals(a.base) + part;
  if constexpr (std::is_same_v<T, R>)
    if (a.stride[0] == 1 && !backward) return from;
  if (!copy->request(a.shape[0])) return nullptr;
  copy_line(a.shape[0], from + (backward ? (a.shape[0] - 1) * a.stride[0] * parts<T> : 0),
            (backward ? -a.stride[0] : a.stride[0]) * parts<T>, copy->data, zor_int(1));
  return copy->data;
}

// The wanted values of the whole result, place by place.
template <class T, class Value>
void write_wanted(const arguments& a, const array<T>& z, const Value& value) {
  zor_int k = a.start[0] + (is_correlation(a) ? a.x_shape[0] - 1 : 0);
  for (zor_int i = 0; i < z.shape[0]; ++i, k += a.decimation[0])
    store_element(z.base + i * z.stride[0], value(k));
}

int32_t status_of(int32_t code) { return code == dft::engine_done ? ZOR_CONV_OK : ZOR_CONV_TRANSFORM_FAILED; }

template <class T, class W>
int32_t real_body(const arguments& a, const array<const T>& x, const array<const T>& y, const array<T>& z) {
  const zor_int m = x.shape[0], n = y.shape[0];
  buffer<W> x_copy, y_copy, whole;
  const W* const in_x = dense_part(x, 0, is_correlation(a), &x_copy);
  if (in_x == nullptr) return ZOR_CONV_NO_MEMORY;
  const W* const in_y = dense_part(y, 0, false, &y_copy);
  if (in_y == nullptr) return ZOR_CONV_NO_MEMORY;
  if constexpr (std::is_same_v<T, W>)
    if (z.stride[0] == 1 && z.shape[0] == m + n - 1)
      return status_of(convolve_lines(in_x, m, in_y, n, z.base));
  if (!whole.request(m + n - 1)) return ZOR_CONV_NO_MEMORY;
  const W* const w = whole.data;
  const int32_t code = convolve_lines(in_x, m, in_y, n, whole.data);
  if (code != dft::engine_done) return status_of(code);
  write_wanted(a, z, [w](zor_int k) { return T(w[k]); });
  return ZOR_CONV_OK;
}

template <class T, class W>
int32_t complex_body(const arguments& a, const array<const T>& x, const array<const T>& y,
                     const array<T>& z) {
  using R = real_t<W>;
  const zor_int m = x.shape[0], n = y.shape[0];
  buffer<R> x_copies[2], y_copies[2], products[4];
  const R *in_x[2], *in_y[2];
  for (int part = 0; part < 2; ++part) {
    in_x[part] = dense_part(x, part, is_correlation(a), &x_copies[part]);
    if (in_x[part] == nullptr) return ZOR_CONV_NO_MEMORY;
    in_y[part] = dense_part(y, part, false, &y_copies[part]);
    if (in_y[part] == nullptr) return ZOR_CONV_NO_MEMORY;
  }
  for (buffer<R>& product : products)
    if (!product.request(m + n - 1)) return ZOR_CONV_NO_MEMORY;
  constexpr struct { int of_x, of_y; } terms[4] = {{0, 0}, {1, 1}, {0, 1}, {1, 0}};
  for (int t = 0; t < 4; ++t) {
    const int32_t code = convolve_lines(in_x[terms[t].of_x], m, in_y[terms[t].of_y], n, products[t].data);
    if (code != dft::engine_done) return status_of(code);
  }
  const R *const rr = products[0].data, *const ii = products[1].data, *const ri = products[2].data,
                 *const ir = products[3].data;
  write_wanted(a, z, [=](zor_int k) { return T{real_t<T>(rr[k] - ii[k]), real_t<T>(ri[k] + ir[k])}; });
  return ZOR_CONV_OK;
}

}  // namespace

template <class T, class W>
int32_t line_transform_body(const arguments& a) {
  const array<const T> x = array_of(static_cast<const T*>(a.x), 1, a.x_shape, a.x_stride),
                       y = array_of(static_cast<const T*>(a.y), 1, a.y_shape, a.y_stride);
  const array<T> z = array_of(static_cast<T*>(a.z), 1, a.z_shape, a.z_stride);
  if constexpr (is_complex<T>)
    return complex_body<T, W>(a, x, y, z);
  else
    return real_body<T, W>(a, x, y, z);
}

template int32_t line_transform_body<float, float>(const arguments&);
template int32_t line_transform_body<float, double>(const arguments&);
template int32_t line_transform_body<double, double>(const arguments&);
template int32_t line_transform_body<c32, c32>(const arguments&);
template int32_t line_transform_body<c32, c64>(const arguments&);
template int32_t line_transform_body<c64, c64>(const arguments&);

}  // namespace zor::conv

#include "zor/signatures/conv.h"
#define ROW_CONV_FFT_REAL(name, T) \
  extern "C" SIG_CONV_FFT_REAL(name, T) { return zor::conv::convolve_lines<T>(x, m, y, n, w); }
#include "zor/tables/conv.inc"
