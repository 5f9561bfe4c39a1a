// SPDX-License-Identifier: MIT
// Products of spectra, tile by tile (overlap-save, Stockham, 1966, in every dimension). Tiles are cut by the
// shapes alone and share no value of z, so that threads do not show.
#include <atomic>
#include <cstring>

#include "core/blas/arguments.h"
#include "core/conv/kept_plans.h"
#include "core/conv/problem.h"
#include "core/conv/tiles.h"
#include "core/large_pages.h"
#include "core/precision.h"
#include "core/threads.h"
#include "serv/scratch.h"
#include "zor/dft.h"

namespace zor_core {
namespace {

using zor::is_complex, zor::real_t;

// One dimension as a convolution of the longer operand with taps: lengths, signed steps, and the place of the
// first wanted value in the full result.
struct filtered_dimension {
  zor_int signal, taps, signal_step, taps_step, first;
};

// Beyond all memory.
constexpr zor_int most_points = INT64_C(1) << 40;

int32_t status_of(int32_t fft_status) {
  if (fft_status == ZOR_FFT_OK) return ZOR_CONV_OK;
  return fft_status == ZOR_FFT_NO_MEMORY ? ZOR_CONV_NO_MEMORY : ZOR_CONV_TRANSFORM_FAILED;
}

// Points of a lone tile from which it is worked through by threads.
constexpr zor_int divided_points = 1 << 15;
// Lines that take more bytes come from memory. The first pass and the last are cut in so many parts, between
// which the next tile's bytes are asked for. Measured.
constexpr zor_int far_bytes = 6 << 20, next_parts = 16;

// Calls body(begin, end) for shares of 0 to count, cut at multiples of grain.
template <class Body>
void divide(int32_t threads, zor_int count, zor_int grain, const Body& body) {
  if (threads == 1) return body(zor_int(0), count);
  const zor_int pieces = std::min<zor_int>(count / grain, 4 * threads);
  for_each_piece(threads, pieces, [&](zor_int piece) {
    body(cut(count, grain, pieces, piece), cut(count, grain, pieces, piece + 1));
  });
}

// Calls line(a, b) for the lines along dimension 0 of a box of this shape in two arrays.
template <class A, class B, class Line>
void for_lines(int dims, const zor_int* shape, A* a, const zor_int* a_step, B* b, const zor_int* b_step,
               const Line& line) {
  zor_int index[conv_most_dims] = {};
  for (;;) {
    line(a, b);
    int d = 1;
    for (; d < dims; ++d) {
      a += a_step[d], b += b_step[d];
      if (++index[d] < shape[d]) break;
      a -= shape[d] * a_step[d], b -= shape[d] * b_step[d];
      index[d] = 0;
    }
    if (d >= dims) return;
  }
}

// a := a b, element by element: (ar br - ai bi, ar bi + ai br). Sixteen bytes at a time, with the sign of ai
// bi changed where it is subtracted.
template <class R>
void multiply(zor_int count, std::type_identity_t<R>* a, const R* b) {
  constexpr bool single = sizeof(R) == 4;
  using word = std::conditional_t<single, int32_t, int64_t>;
  typedef R lanes __attribute__((vector_size(16)));
  typedef word words __attribute__((vector_size(16)));
  constexpr zor_int step = 16 / sizeof(R);
  zor_int i = 0;
  for (; i + step <= 2 * count; i += step) {
    lanes x, y, re, im, other;
    words minus;
    std::memcpy(&x, a + i, sizeof x);
    std::memcpy(&y, b + i, sizeof y);
    if constexpr (single) {
      re = __builtin_shufflevector(x, x, 0, 0, 2, 2), im = __builtin_shufflevector(x, x, 1, 1, 3, 3);
      other = __builtin_shufflevector(y, y, 1, 0, 3, 2);
      minus = words{INT32_MIN, 0, INT32_MIN, 0};
    } else {
      re = __builtin_shufflevector(x, x, 0, 0), im = __builtin_shufflevector(x, x, 1, 1);
      other = __builtin_shufflevector(y, y, 1, 0);
      minus = words{INT64_MIN, 0};
    }
    x = re * y + lanes(words(im * other) ^ minus);
    std::memcpy(a + i, &x, sizeof x);
  }
  if (i < 2 * count) {
    const R re = a[i] * b[i] - a[i + 1] * b[i + 1], im = a[i] * b[i + 1] + a[i + 1] * b[i];
    a[i] = re;
    a[i + 1] = im;
  }
}

template <class T>
class filter {
  using R = real_t<T>;
  static constexpr bool complex = is_complex<T>;

 public:
  filter(const conv_problem<T>& p, const conv_plan& plan) : p_(p), plan_(plan) {
    zor_int x = 1, y = 1;
    for (int i = 0; i < p.dims; ++i) {
      x = saturating_product(x, p.of[i].m);
      y = saturating_product(y, p.of[i].n);
    }
    const bool taps_are_y = y <= x;
    // A correlation is the convolution with x reversed.
    const T* x_first = p.x;
    for (int i = 0; i < p.dims; ++i) {
      const conv_dimension& d = p.of[i];
      const zor_int x_step = p.correlation ? -d.x_step : d.x_step;
      if (p.correlation) x_first += (d.m - 1) * d.x_step;
      of_[i] = taps_are_y ? filtered_dimension{d.m, d.n, x_step, d.y_step, 0}
                          : filtered_dimension{d.n, d.m, d.y_step, x_step, 0};
      of_[i].first = d.start + (p.correlation ? d.m - 1 : 0);
      box_step_[i] = i == 0 ? 1 : saturating_product(box_step_[i - 1], plan.padded[i - 1]);
      points_ = saturating_product(points_, plan.padded[i]);
      signal_step_[i] = of_[i].signal_step;
      from_step_[i] = saturating_product(d.step, box_step_[i]);
      z_step_[i] = d.z_step;
      tiles_[i] = (d.count + plan.tile[i] - 1) / plan.tile[i];
      all_tiles_ *= tiles_[i];
    }
    signal_ = taps_are_y ? x_first : p.y;
    taps_ = taps_are_y ? p.y : x_first;
    in_place_ = (complex || plan.by_tiles) && (p.dims > 1 || all_tiles_ == 1);
    apart_ = complex && plan.by_tiles && in_place_;
    tile_threads_ = all_tiles_ == 1 && points_ >= divided_points ? usable_threads() : 1;
    spectrum_count_ = complex ? points_ : points_ / plan.padded[0] * (plan.padded[0] / 2 + 1);
  }
  ~filter() {
    if (made_ != nullptr) return_plan(key_, made_);
  }

  int32_t run() {
    if (points_ > most_points) return ZOR_CONV_NO_MEMORY;
    if (const int32_t status = take()) return status;
    const int32_t threads = int32_t(std::min<zor_int>(usable_threads(), all_tiles_));
    // Reals of a box and of a spectrum, on whole cache lines; boxes in place are their own spectra.
    const auto whole_lines = [](zor_int count) { return (count + 15) / 16 * 16; };
    const zor_int spectrum = whole_lines(2 * spectrum_count_ + (plan_.by_tiles ? zor::conv::work_gap<R> : 0)),
                  box = in_place_ ? 0 : whole_lines(points_ * zor::parts<T>);
    const zor_int all = saturating_product(spectrum + box, threads) + spectrum + 16;
    const zor::scratch<R> memory(all);
    if (memory.data == nullptr) return ZOR_CONV_NO_MEMORY;
    const zor_int bytes = all * zor_int(sizeof(R));
    if (bytes >= least_for_large_pages) ask_for_large_pages(memory.data, bytes);
    R* const of_taps = zor::align_up<R>(memory.data, 64);
    const auto space_of = [&](zor_int thread) {
      R* const own = of_taps + spectrum + thread * (spectrum + box);
      return space{own, in_place_ ? own : own + spectrum};
    };
    zor_int shape[conv_most_dims], step[conv_most_dims];
    for (int i = 0; i < p_.dims; ++i) shape[i] = of_[i].taps, step[i] = of_[i].taps_step;
    R* const taps_box = in_place_ && !plan_.by_tiles ? of_taps : space_of(0).box;
    load(p_.dims - 1, taps_, shape, step, 0, taps_box);
    if (const int32_t status = transform_taps(taps_box, space_of(0).spectrum, of_taps)) return status;
    std::atomic<int32_t> status{ZOR_CONV_OK};
    for_each_piece(threads, threads, [&](zor_int thread) {
      const space own = space_of(thread);
      const zor_int begin = cut(all_tiles_, 1, threads, thread),
                    end = cut(all_tiles_, 1, threads, thread + 1);
      for (zor_int tile = end; tile-- > begin;)
        if (const int32_t bad = run_tile(tile, tile > begin, of_taps, own))
          status.store(bad, std::memory_order_relaxed);
    });
    return status;
  }

 private:
  struct space {
    R* spectrum;
    R* box;
  };
  // What the next tile will read or write.
  struct next_bytes {
    const char* from;
    zor_int count;
  };

  int32_t take() {
    key_ = {plan_.by_tiles,
            sizeof(R) == 8 ? ZOR_DFT_DOUBLE : ZOR_DFT_SINGLE,
            complex ? ZOR_DFT_COMPLEX : ZOR_DFT_REAL,
            in_place_ ? ZOR_DFT_INPLACE : ZOR_DFT_NOT_INPLACE,
            p_.dims,
            {}};
    for (int i = 0; i < p_.dims; ++i) key_.lengths[p_.dims - 1 - i] = plan_.padded[i];
    if (const int32_t status = take_plan(key_, &made_)) return status;
    if (plan_.by_tiles) kernels_ = &of_precision<R>(*find_tiles());
    return ZOR_CONV_OK;
  }
  zor_fft fft() const { return static_cast<zor_fft>(made_); }
  const zor::conv::tile_plan<R>& tile_plan() const {
    return *static_cast<const zor::conv::tile_plan<R>*>(made_);
  }
  int32_t forward(const R* box, R* spectrum) {
    return status_of(in_place_ ? zor_fft_forward(fft(), spectrum)
                               : zor_fft_forward(fft(), const_cast<R*>(box), spectrum));
  }
  int32_t backward(R* spectrum, R* box) {
    return status_of(in_place_ ? zor_fft_backward(fft(), spectrum) : zor_fft_backward(fft(), spectrum, box));
  }
  void spread(zor_int width, const R* box, R* work, next_bytes next) const {
    work_through(tile_plan().columns, next, [&](zor_int begin, zor_int end) {
      kernels_->spread(tile_plan(), begin, end, width, box, work);
    });
  }
  // Columns 0 to count of a box, over threads; or on one, while the next line's bytes are on their way.
  template <class Body>
  void work_through(zor_int count, next_bytes next, const Body& body) const {
    if (next.count == 0) return divide(tile_threads_, count, zor::conv::leaf_radix, body);
    const zor_int parts = std::min(count / zor::conv::leaf_radix, next_parts);
    for (zor_int part = 0; part < parts; ++part) {
      const zor_int end = cut(next.count, 64, parts, part + 1);
      for (zor_int i = cut(next.count, 64, parts, part); i < end; i += 64)
        __builtin_prefetch(next.from + i, 0, 2);
      body(cut(count, zor::conv::leaf_radix, parts, part),
           cut(count, zor::conv::leaf_radix, parts, part + 1));
    }
  }
  // Columns of a box that may hold so many values of a line, from the first one on.
  static zor_int width_of(zor_int values) {
    return (values + zor::conv::leaf_radix - 1) / zor::conv::leaf_radix * zor::conv::leaf_radix;
  }

  int32_t transform_taps(const R* box, R* work, R* spectrum) {
    if (!plan_.by_tiles) return forward(box, spectrum);
    const zor_int width = width_of(of_[0].taps);
    spread(width, box, work, {});
    divide(tile_threads_, tile_plan().pieces, 1, [&](zor_int begin, zor_int end) {
      kernels_->transform(tile_plan(), begin, end, width, work, spectrum);
    });
    return ZOR_CONV_OK;
  }
  // The cyclic convolution with the taps of one box, whose lines begin with so many values; `to` may be the
  // box.
  int32_t convolve_box(zor_int values, const R* box, const R* of_taps, R* work, R* to, next_bytes next_in,
                       next_bytes next_out) {
    if (!plan_.by_tiles) {
      if (const int32_t status = forward(box, work)) return status;
      multiply<R>(spectrum_count_, work, of_taps);
      return backward(work, to);
    }
    const zor_int width = width_of(values);
    spread(width, box, work, next_in);
    divide(tile_threads_, tile_plan().pieces, 1, [&](zor_int begin, zor_int end) {
      kernels_->multiply(tile_plan(), begin, end, width, of_taps, work);
    });
    work_through(tile_plan().columns, next_out,
                 [&](zor_int begin, zor_int end) { kernels_->join(tile_plan(), begin, end, work, to); });
    return ZOR_CONV_OK;
  }

  // A box of elements to the corner of a padded one, and zeros behind it: dimensions 0 to d, from place `at`
  // of the padded box on.
  void load(int d, const T* from, const zor_int* shape, const zor_int* step, zor_int at, R* box) const {
    if (d == 0) return load_line(from, shape[0], step[0], at, box);
    for (zor_int i = 0; i < shape[d]; ++i, from += step[d]) {
      if (d > 1) {
        load(d - 1, from, shape, step, at + i * box_step_[d], box);
        continue;
      }
      if (apart_ && step[0] == 1 && i + 1 < shape[1]) prefetch_line<0>(from + step[1], shape[0]);
      load_line(from, shape[0], step[0], at + i * box_step_[1], box);
    }
    clear(at + shape[d] * box_step_[d], (plan_.padded[d] - shape[d]) * box_step_[d], box);
  }
  void load_line(const T* from, zor_int count, zor_int step, zor_int at, R* box) const {
    if (!apart_)
      copy_line(count, from, step, reinterpret_cast<T*>(box) + at, 1);
    else if constexpr (complex)
      split_line(count, from, step, box + at, imaginary_of(box) + at);
    clear(at + count, plan_.padded[0] - count, box);
  }
  void split_line(zor_int count, const T* from, zor_int step, R* re, R* im) const {
    if (step == 1) return kernels_->to_parts(count, zor::reals(from), nullptr, re, im);
    for (zor_int i = 0; i < count; ++i) re[i] = from[i * step].re, im[i] = from[i * step].im;
  }
  static void copy_line(zor_int count, const T* from, zor_int from_step, T* to, zor_int to_step) {
    if (from_step == 1 && to_step == 1)
      std::memcpy(static_cast<void*>(to), from, size_t(count) * sizeof(T));
    else
      for (zor_int i = 0; i < count; ++i) to[i * to_step] = from[i * from_step];
  }
  void clear(zor_int at, zor_int count, R* box) const {
    if (count == 0) return;
    const size_t bytes = size_t(count) * sizeof(R);
    if (!apart_) {
      std::memset(static_cast<void*>(box + at * zor::parts<T>), 0, bytes * zor::parts<T>);
    } else {
      std::memset(static_cast<void*>(box + at), 0, bytes);
      std::memset(static_cast<void*>(imaginary_of(box) + at), 0, bytes);
    }
  }
  // The lines of a tile are too short for the processor to see the next one coming.
  template <int Write>
  static void prefetch_line(const T* line, zor_int count) {
    const char* const bytes = reinterpret_cast<const char*>(line);
    for (zor_int i = 0; i < count * zor_int(sizeof(T)); i += 64) __builtin_prefetch(bytes + i, Write);
  }
  template <class P>
  P* imaginary_of(P* box) const {
    return box + points_ + zor::conv::work_gap<R>;
  }
  // The wanted values of a box, from place `at` on.
  void store(const zor_int* counts, const R* box, zor_int at, T* z) const {
    const zor_int *const step = from_step_, *const z_step = z_step_;
    const bool dense = step[0] == 1 && z_step[0] == 1;
    if (apart_) {
      if constexpr (complex) {
        const zor_int apart = imaginary_of(box) - box;
        for_lines(p_.dims, counts, box + at, step, z, z_step, [&](const R* a, T* b) {
          // Behind the last line this asks for what need not exist, which does no harm.
          if (dense && p_.dims > 1) prefetch_line<1>(b + z_step[1], counts[0]);
          if (dense) return kernels_->to_pairs(counts[0], a, a + apart, zor::reals(b), nullptr);
          for (zor_int i = 0; i < counts[0]; ++i) b[i * z_step[0]] = {a[i * step[0]], a[apart + i * step[0]]};
        });
      }
      return;
    }
    for_lines(p_.dims, counts, reinterpret_cast<const T*>(box) + at, step, z, z_step,
              [&](const T* a, T* b) { copy_line(counts[0], a, step[0], b, z_step[0]); });
  }

  // What a tile takes and gives: elements of the signal, and the values from place `at` of its box on.
  struct tile_place {
    const T* signal;
    T* z;
    zor_int at;
    zor_int shape[conv_most_dims], counts[conv_most_dims];
  };
  tile_place place_of(zor_int tile) const {
    tile_place t = {signal_, p_.z, 0, {}, {}};
    for (int i = 0; i < p_.dims; ++i) {
      const conv_dimension& d = p_.of[i];
      const zor_int index = tile % tiles_[i] * plan_.tile[i];
      tile /= tiles_[i];
      t.counts[i] = std::min(plan_.tile[i], d.count - index);
      const zor_int k0 = of_[i].first + index * d.step, k1 = k0 + (t.counts[i] - 1) * d.step;
      const zor_int s0 = std::max<zor_int>(0, k0 - of_[i].taps + 1), s1 = std::min(of_[i].signal - 1, k1);
      t.shape[i] = s1 - s0 + 1;
      t.signal += s0 * signal_step_[i];
      t.z += index * z_step_[i];
      t.at += (k0 - s0) * box_step_[i];
    }
    return t;
  }

  // `behind` tells that the values before the tile's own are still to come.
  int32_t run_tile(zor_int tile, bool behind, const R* of_taps, const space& own) {
    const tile_place t = place_of(tile);
    // A line that fills the box is transformed where it stands, and ends up in its place: what the tile has
    // too much in front is overwritten by the tile before it.
    const bool from_place = !in_place_ && p_.dims == 1 && signal_step_[0] == 1 && t.shape[0] == points_;
    const bool to_place = behind && p_.dims == 1 && from_step_[0] == 1 && z_step_[0] == 1 &&
                          t.at + t.counts[0] == points_ && t.at <= plan_.tile[0];
    if (!from_place) load(p_.dims - 1, t.signal, t.shape, signal_step_, 0, own.box);
    const R* const box = from_place ? reinterpret_cast<const R*>(t.signal) : own.box;
    R* const to = to_place ? reinterpret_cast<R*>(t.z - t.at) : own.box;
    // The tile before it takes and gives what stands in front.
    const zor_int size = sizeof(T), values = plan_.tile[0];
    const bool far_in = from_place && of_[0].signal * size > far_bytes,
               far_out = to_place && p_.of[0].count * size > far_bytes;
    const zor_int in = far_in ? values * p_.of[0].step * size : 0, out = far_out ? values * size : 0;
    const next_bytes next_in = {reinterpret_cast<const char*>(t.signal) - in, in},
                     next_out = {reinterpret_cast<const char*>(t.z) - out, out};
    if (const int32_t status = convolve_box(t.shape[0], box, of_taps, own.spectrum, to, next_in, next_out))
      return status;
    if (!to_place) store(t.counts, own.box, t.at, t.z);
    return ZOR_CONV_OK;
  }

  const conv_problem<T>& p_;
  const conv_plan& plan_;
  filtered_dimension of_[conv_most_dims];
  zor_int box_step_[conv_most_dims], tiles_[conv_most_dims];
  // From one element of the signal, wanted value of a box and value of z to the next.
  zor_int signal_step_[conv_most_dims], from_step_[conv_most_dims], z_step_[conv_most_dims];
  zor_int points_ = 1, all_tiles_ = 1, spectrum_count_;
  const T *signal_, *taps_;
  bool in_place_;  // lines of several tiles go out of place, from the operand and to the result
  bool apart_;     // complex boxes have their real parts before the imaginary ones
  int32_t tile_threads_;
  plan_key key_ = {};
  void* made_ = nullptr;  // of the key
  const zor::conv::tile_kernels<R>* kernels_ = nullptr;
};

}  // namespace

template <class T>
int32_t convolve_by_transform(const conv_problem<T>& p, const conv_plan& plan) {
  return filter<T>(p, plan).run();
}

template int32_t convolve_by_transform(const conv_problem<float>&, const conv_plan&);
template int32_t convolve_by_transform(const conv_problem<double>&, const conv_plan&);
template int32_t convolve_by_transform(const conv_problem<zor_c32>&, const conv_plan&);
template int32_t convolve_by_transform(const conv_problem<zor_c64>&, const conv_plan&);

}  // namespace zor_core
