// SPDX-License-Identifier: MIT
// The bodies of two and more dimensions through the transform: pieces of x or y are convolved cyclically in
// padded boxes, and their results added up in a box of the whole result.
#include <cstring>

#include "conv/task.h"
#include "serv/element.h"
#include "zor/dft_kern.h"

namespace zor::conv {
namespace {

zor_int power_of_two_from(zor_int n) {
  zor_int power = 1;
  while (power < n) power *= 2;
  return power;
}

// Padded length of a box of `size` in so many dimensions, fixed by contract: powers of two for planes, small
// multiples above, which keep large boxes in check.
zor_int padded_length(int dims, zor_int size) {
  if (dims <= 2) return power_of_two_from(size);
  const zor_int multiple = dims == 3 ? 4 : dims == 4 ? 2 : 1;
  return (size + multiple - 1) / multiple * multiple;
}

// The largest piece that fits beside `n` values in twice the power of two that holds these.
zor_int piece_beside(zor_int n) {
  const zor_int p = power_of_two_from(n), piece = 2 * p - n + 1;
  return piece < 3 ? 4 * p - n + 1 : piece;
}

// How a dimension is cut. At most one of x and y is.
struct cuts {
  zor_int x_piece, y_piece;
};
cuts cuts_of(int dims, zor_int m, zor_int n) {
  if (dims > 2) return {m, n};
  const zor_int y_piece = m < 3 ? n : piece_beside(m), x_piece = n < 3 ? m : piece_beside(n);
  if (y_piece < n) return {m, y_piece};
  return {x_piece < m ? x_piece : m, n};
}

// A part of a box: where it begins, and its shape.
struct piece {
  zor_int from[most_dims], shape[most_dims];
};
bool operator==(const piece& a, const piece& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Planes of real data have spectra of half the size; everything else is complex.
template <class T, class W>
class box_convolution {
  using R = real_t<W>;
  using C = std::conditional_t<sizeof(R) == 8, c64, c32>;

 public:
  box_convolution(const arguments& a, const array<const T>& x, const array<const T>& y)
      : dims_(a.dims), half_(!is_complex<T> && a.dims <= 2), x_(x), y_(y) {
    for (int d = 0; d < dims_; ++d) whole_shape_[d] = full_length(a, d);
    dense_strides(dims_, whole_shape_, whole_stride_);
  }
  ~box_convolution() { close(); }

  // 0 or a status; the whole result stands in whole() then.
  int32_t run() {
    if (!whole_.request(total_of(dims_, whole_shape_))) return ZOR_CONV_NO_MEMORY;
    cuts cut[most_dims];
    zor_int x_pieces[most_dims], pieces[most_dims];
    bool x_is_cut = false;
    single_ = true;
    for (int d = 0; d < dims_; ++d) {
      const zor_int m = x_.shape[d], n = y_.shape[d];
      cut[d] = cuts_of(dims_, m, n);
      x_pieces[d] = (m + cut[d].x_piece - 1) / cut[d].x_piece;
      pieces[d] = x_pieces[d] * ((n + cut[d].y_piece - 1) / cut[d].y_piece);
      x_is_cut = x_is_cut || x_pieces[d] > 1;
      single_ = single_ && pieces[d] == 1;
    }
    if (!single_)
      std::memset(static_cast<void*>(whole_.data), 0, size_t(total_of(dims_, whole_shape_)) * sizeof(W));
    zor_int index[most_dims] = {};
    for (;;) {
      piece x = {}, y = {};
      for (int d = 0; d < dims_; ++d) {
        const zor_int of_x = x_pieces[d] > 1 ? index[d] : 0, of_y = x_pieces[d] > 1 ? 0 : index[d];
        set_piece(d, of_x, cut[d].x_piece, x_.shape[d], &x);
        set_piece(d, of_y, cut[d].y_piece, y_.shape[d], &y);
      }
      if (const int32_t status = pass(x, y, x_is_cut)) return status;
      int d = 0;
      while (d < dims_ && ++index[d] == pieces[d]) index[d++] = 0;
      if (d == dims_) return ZOR_CONV_OK;
    }
  }
  const W* whole() const { return whole_.data; }
  const zor_int* whole_stride() const { return whole_stride_; }

 private:
  static void set_piece(int d, zor_int index, zor_int length, zor_int all, piece* p) {
    p->from[d] = index * length;
    p->shape[d] = all - p->from[d] < length ? all - p->from[d] : length;
  }

  // Pieces of one size share a descriptor, and the spectrum of an operand that stays is kept.
  int32_t pass(const piece& x, const piece& y, bool x_is_cut) {
    zor_int lengths[most_dims];
    for (int d = 0; d < dims_; ++d) lengths[d] = padded_length(dims_, x.shape[d] + y.shape[d] - 1);
    if (const int32_t status = open(lengths)) return status;
    C *const of_x = x_spectrum_.data, *const of_y = y_spectrum_.data;
    if (!(has_x_ && x == held_x_) && !transform(x_, x, of_x)) return ZOR_CONV_TRANSFORM_FAILED;
    if (!(has_y_ && y == held_y_) && !transform(y_, y, of_y)) return ZOR_CONV_TRANSFORM_FAILED;
    C* const result = x_is_cut ? of_x : of_y;
    const C* const other = x_is_cut ? of_y : of_x;
    for_vectors<C>(
        0, spectrum_size_, [&]<int Bytes>(zor_int i) __attribute__((always_inline)) {
          using V = vec<R, Bytes>;
          store_units(result + i, complex_mul(load_units<V>(result + i), load_units<V>(other + i)));
        });
    held_x_ = x;
    held_y_ = y;
    has_x_ = !x_is_cut;
    has_y_ = x_is_cut;
    const int32_t code = half_ ? zor_dft_compute_backward(&transform_, result, box_.data)
                               : zor_dft_compute_backward(&transform_, result);
    if (code != ZOR_DFT_OK) return ZOR_CONV_TRANSFORM_FAILED;
    add_result(x, y, result);
    return ZOR_CONV_OK;
  }

  // A committed transform of these lengths, and its boxes.
  int32_t open(const zor_int* lengths) {
    if (transform_ != nullptr && std::memcmp(lengths, lengths_, size_t(dims_) * sizeof *lengths) == 0)
      return ZOR_CONV_OK;
    close();
    const zor_int size = total_of(dims_, lengths);
    dense_strides(dims_, lengths, stride_);
    for (int d = 0; d < dims_; ++d) lengths_[d] = lengths[d];
    spectrum_size_ = size;
    if (!x_spectrum_.request(size) || !y_spectrum_.request(size)) return ZOR_CONV_NO_MEMORY;
    if (half_ && !box_.request(size)) return ZOR_CONV_NO_MEMORY;
    // A row of a half spectrum has as many places as a row of the real box, the last of them unused.
    if (half_) std::memset(static_cast<void*>(x_spectrum_.data), 0, size_t(size) * sizeof(C));
    if (half_) std::memset(static_cast<void*>(y_spectrum_.data), 0, size_t(size) * sizeof(C));
    return commit(1 / double(size)) ? ZOR_CONV_OK : ZOR_CONV_TRANSFORM_FAILED;
  }
  bool commit(double scale) {
    const int32_t precision = sizeof(R) == 8 ? ZOR_DFT_DOUBLE : ZOR_DFT_SINGLE;
    const int32_t domain = half_ ? ZOR_DFT_REAL : ZOR_DFT_COMPLEX;
    if (zor_dft_create_descriptor_md(&transform_, precision, domain, dims_, lengths_) != ZOR_DFT_OK)
      return false;
    ZorDftDescriptor* const t = transform_;
    if (half_ &&
        (zor_dft_set_value(t, ZOR_DFT_PLACEMENT, ZOR_DFT_NOT_INPLACE) != ZOR_DFT_OK ||
         zor_dft_set_value(t, ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_HALF_COMPLEX) != ZOR_DFT_OK ||
         zor_dft_set_value(t, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX) != ZOR_DFT_OK))
      return false;
    if (zor_dft_set_value(t, ZOR_DFT_BACKWARD_SCALE, scale) != ZOR_DFT_OK) return false;
    if (zor_dft_commit_descriptor_core(&transform_, 0) != ZOR_DFT_OK) return false;
    transform_->nio_args = zor_dft_determine_nioargs(transform_);
    return true;
  }
  void close() {
    if (transform_ != nullptr) zor_dft_free(&transform_);
    transform_ = nullptr;
    has_x_ = has_y_ = false;
  }

  // A piece of an operand, padded by zeros, and its transform.
  bool transform(const array<const T>& a, const piece& p, C* spectrum) {
    array<const T> part = a;
    for (int d = 0; d < dims_; ++d) {
      part.base += p.from[d] * part.stride[d];
      part.shape[d] = p.shape[d];
    }
    if (!half_) {
      pad(part, spectrum);
      return zor_dft_compute_forward(&transform_, spectrum) == ZOR_DFT_OK;
    }
    if constexpr (!is_complex<T>) pad(part, box_.data);
    return zor_dft_compute_forward(&transform_, box_.data, spectrum) == ZOR_DFT_OK;
  }
  template <class E>
  void pad(const array<const T>& part, E* box) {
    std::memset(static_cast<void*>(box), 0, size_t(spectrum_size_) * sizeof(E));
    array<E> to = {box, dims_, {}, {}};
    for (int d = 0; d < dims_; ++d) {
      to.shape[d] = part.shape[d];
      to.stride[d] = stride_[d];
    }
    copy_array(part, to);
  }

  // The values that are not padding, to their place in the whole result.
  void add_result(const piece& x, const piece& y, const C* result) {
    zor_int shape[most_dims];
    W* to = whole_.data;
    for (int d = 0; d < dims_; ++d) {
      shape[d] = x.shape[d] + y.shape[d] - 1;
      to += (x.from[d] + y.from[d]) * whole_stride_[d];
    }
    const auto add_lines = [&](const auto* from) {
      for_lines(dims_, shape, from, stride_, to, whole_stride_, [&](const auto* values, W* sums) {
        for (zor_int i = 0; i < shape[0]; ++i) {
          W value;
          if constexpr (is_complex<W> || !has_parts<std::remove_cvref_t<decltype(*values)>>)
            value = values[i];
          else
            value = values[i].re;
          sums[i] = single_ ? value : add(sums[i], value);
        }
      });
    };
    if constexpr (is_complex<T>) {
      add_lines(result);
    } else {
      if (half_)
        add_lines(static_cast<const R*>(box_.data));
      else
        add_lines(result);
    }
  }

  const int dims_;
  const bool half_;
  const array<const T> x_, y_;
  zor_int whole_shape_[most_dims], whole_stride_[most_dims];
  bool single_;  // one pass does it all
  buffer<W> whole_;
  zor_int lengths_[most_dims], stride_[most_dims], spectrum_size_;
  ZorDftDescriptor* transform_ = nullptr;
  buffer<C> x_spectrum_, y_spectrum_;
  buffer<R> box_;
  bool has_x_ = false, has_y_ = false;  // whether a spectrum is that of the piece held
  piece held_x_, held_y_;
};

}  // namespace

template <class T, class W>
int32_t box_transform_body(const arguments& a) {
  array<const T> x = array_of(static_cast<const T*>(a.x), a.dims, a.x_shape, a.x_stride);
  const array<const T> y = array_of(static_cast<const T*>(a.y), a.dims, a.y_shape, a.y_stride);
  const array<T> z = array_of(static_cast<T*>(a.z), a.dims, a.z_shape, a.z_stride);
  if (is_correlation(a)) x = reversed(x);
  box_convolution<T, W> convolution(a, x, y);
  if (const int32_t status = convolution.run()) return status;
  array<const W> wanted = {convolution.whole(), a.dims, {}, {}};
  for (int d = 0; d < a.dims; ++d) {
    const zor_int first = a.start[d] + (is_correlation(a) ? a.x_shape[d] - 1 : 0);
    wanted.base += first * convolution.whole_stride()[d];
    wanted.shape[d] = a.z_shape[d];
    wanted.stride[d] = a.decimation[d] * convolution.whole_stride()[d];
  }
  copy_array(wanted, z);
  return ZOR_CONV_OK;
}

template int32_t box_transform_body<float, float>(const arguments&);
template int32_t box_transform_body<float, double>(const arguments&);
template int32_t box_transform_body<double, double>(const arguments&);
template int32_t box_transform_body<c32, c32>(const arguments&);
template int32_t box_transform_body<c32, c64>(const arguments&);
template int32_t box_transform_body<c64, c64>(const arguments&);

}  // namespace zor::conv
