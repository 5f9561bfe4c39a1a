// SPDX-License-Identifier: MIT
// The body of sum_lines; one source file instantiates it for the types of one kind.
#pragma once

#include "conv/lines.h"
#include "serv/element.h"

namespace zor::conv {

template <class T>
int line_pairs<T>::take(line_pair<T>* list, int most) {
  int count = 0;
  while (count < most && !done) {
    list[count++] = at;
    int d = 0;
    for (; d < dims; ++d) {
      at.taps += tap_step[d];
      at.signal += signal_step[d];
      if (++index[d] < shape[d]) break;
      at.taps -= shape[d] * tap_step[d];
      at.signal -= shape[d] * signal_step[d];
      index[d] = 0;
    }
    done = d == dims;
  }
  return count;
}

// The sums of neighbouring outputs: those of products with the real, then with the imaginary parts of taps.
template <class R>
struct block_sums {
  R* of_part[2];
  block_sums from(int real) const { return {{of_part[0] + real, of_part[1] + real}}; }
};

// A vector of the reals of so many outputs, no wider than the build has and no narrower than 16 bytes; below
// that single numbers.
template <class R, int Reals>
using sum_vector =
    vec_or_real<R, Reals* int(sizeof(R)) >= width
                       ? width
                       : (Reals* int(sizeof(R)) >= 16 ? Reals * int(sizeof(R)) : int(sizeof(R)))>;

template <class V, class R>
[[gnu::always_inline]] inline V load_reals(const R* p) {
  if constexpr (lane_count<V> == 1)
    return V(load_element(p));
  else if constexpr (std::is_same_v<R, real_of<V>>)
    return load<V>(p);
  else
    return load_widened<V>(p);
}
template <class V, class R>
[[gnu::always_inline]] inline V spread(R x) {
  if constexpr (lane_count<V> == 1)
    return V(x);
  else
    return broadcast<V>(real_of<V>(x));
}

template <class T, class W, signal_layout Layout>
class line_sum {
  using R = real_t<W>;
  static constexpr bool strided = Layout == signal_layout::strided;
  static constexpr bool phased = Layout == signal_layout::phases;
  // Eight accumulators hide the latency of an addition; strided outputs are taken by four.
  static constexpr int widest = strided ? 4 : 8 * lanes_of<R> / (parts<T> * parts<T>);
  static constexpr int longest_list = 256;

 public:
  line_sum(const line_geometry& g, const line_pairs<T>& pairs, zor_int count, T* z, zor_int z_stride)
      : g_(g), pairs_(pairs), z_(z), z_stride_(z_stride) {
    line_pairs<T> all = pairs_;
    listed_ = all.take(list_, longest_list);
    complete_ = all.done;
    // Outputs that have all taps are apart from those at the ends.
    const zor_int begin = clamp(g.first < 0 ? (g.step - 1 - g.first) / g.step : 0, count);
    const zor_int fit = g.signal - g.taps - g.first;
    const zor_int end = clamp(fit < 0 ? 0 : fit / g.step + 1, count);
    blocks<widest>(0, end > begin ? begin : count);
    if (end <= begin) return;
    blocks<widest>(begin, end);
    blocks<widest>(end, count);
  }

 private:
  static zor_int clamp(zor_int i, zor_int count) { return i < count ? i : count; }

  // Outputs i to end - 1.
  template <int Outputs>
  void blocks(zor_int i, zor_int end) {
    for (; i + Outputs <= end; i += Outputs) block<Outputs>(i);
    if constexpr (Outputs > 1) blocks<Outputs / 2>(i, end);
  }

  template <int Outputs>
  void block(zor_int i) {
    // Outputs at the two ends of a short signal share no tap.
    if (g_.lowest(i) > g_.highest(i + Outputs - 1)) {
      if constexpr (Outputs > 1) {
        block<Outputs / 2>(i);
        block<Outputs / 2>(i + Outputs / 2);
      }
      return;
    }
    R of_part[parts<T>][Outputs * parts<T>] = {};
    const block_sums<R> sums = {{of_part[0], of_part[parts<T> - 1]}};
    if (complete_) {
      add_list<Outputs>(i, sums);
    } else {
      line_pairs<T> left = pairs_;
      while ((listed_ = left.take(list_, longest_list)) > 0) add_list<Outputs>(i, sums);
    }
    write<Outputs>(of_part, z_ + i * z_stride_);
  }

  // Joins the sums of a block and writes its outputs.
  template <int Outputs>
  void write(const R (&of_part)[parts<T>][Outputs * parts<T>], T* z) const {
    using V = sum_vector<R, Outputs * parts<T>>;
    if constexpr (std::is_same_v<T, W> && lane_count < V >> 1) {
      if (z_stride_ == 1) {
#pragma GCC unroll 16
        for (int r = 0; r < Outputs * parts<T>; r += lane_count<V>) {
          V v = load<V>(of_part[0] + r);
          if constexpr (is_complex<T>) v = subtract_add_pairs(v, swap_pairs(load<V>(of_part[1] + r)));
          store<V>(zor::reals(z) + r, v);
        }
        return;
      }
    }
    for (int k = 0; k < Outputs; ++k) {
      T out;
      if constexpr (is_complex<T>) {
        out.re = real_t<T>(of_part[0][2 * k] - of_part[1][2 * k + 1]);
        out.im = real_t<T>(of_part[0][2 * k + 1] + of_part[1][2 * k]);
      } else {
        out = T(of_part[0][k]);
      }
      store_element(z + k * z_stride_, out);
    }
  }

  // All pairs of the list to the sums of a block from output i on.
  template <int Outputs>
  void add_list(zor_int i, block_sums<R> sums) {
    const zor_int low = g_.lowest(i), high = g_.highest(i + Outputs - 1);
    if (low == g_.lowest(i + Outputs - 1) && high == g_.highest(i))
      return add<Outputs>(list_, listed_, i, low, high, sums);
    for (const line_pair<T>* pair = list_; pair < list_ + listed_; ++pair) {
      if (g_.descending)
        add_above<Outputs>(pair, i, high, sums);
      else
        add_below<Outputs>(pair, i, low, sums);
      add<Outputs>(pair, 1, i, low, high, sums);
      if (g_.descending)
        add_below<Outputs>(pair, i, low, sums);
      else
        add_above<Outputs>(pair, i, high, sums);
    }
  }

  // The taps below `low`, which is the lowest of output i: later outputs have more of them.
  template <int Outputs>
  void add_below(const line_pair<T>* pair, zor_int i, zor_int low, block_sums<R> sums) {
    if constexpr (Outputs > 1) {
      if (g_.lowest(i + Outputs - 1) == low) return;
      constexpr int half = Outputs / 2;
      const block_sums<R> later = sums.from(half * parts<T>);
      const zor_int middle = g_.lowest(i + half);
      add_below<half>(pair, i, low, sums);
      if (!g_.descending) add_below<half>(pair, i + half, middle, later);
      if (middle < low) add<half>(pair, 1, i + half, middle, low - 1, later);
      if (g_.descending) add_below<half>(pair, i + half, middle, later);
    }
  }
  // The taps above `high`, which is the highest of the last output: earlier outputs have more of them.
  template <int Outputs>
  void add_above(const line_pair<T>* pair, zor_int i, zor_int high, block_sums<R> sums) {
    if constexpr (Outputs > 1) {
      if (g_.highest(i) == high) return;
      constexpr int half = Outputs / 2;
      const zor_int middle = g_.highest(i + half - 1);
      add_above<half>(pair, i + half, high, sums.from(half * parts<T>));
      if (g_.descending) add_above<half>(pair, i, middle, sums);
      if (middle > high) add<half>(pair, 1, i, high + 1, middle, sums);
      if (!g_.descending) add_above<half>(pair, i, middle, sums);
    }
  }

  // Taps low to high of `count` pairs to the sums of Outputs outputs from i on, all of which have these taps.
  template <int Outputs>
  [[gnu::noinline]] void add(const line_pair<T>* pair, int count, zor_int i, zor_int low, zor_int high,
                             block_sums<R> sums) {
    constexpr int reals = Outputs * parts<T>;
    using V = std::conditional_t<strided, R, sum_vector<R, reals>>;
    constexpr int vectors = reals / lane_count<V>;
    V sum[parts<T>][vectors];
#pragma GCC unroll 16
    for (int h = 0; h < parts<T>; ++h)
#pragma GCC unroll 16
      for (int v = 0; v < vectors; ++v) sum[h][v] = load_reals<V>(sums.of_part[h] + v * lane_count<V>);

    const zor_int begin = g_.descending ? high : low, way = g_.descending ? -1 : 1;
    const zor_int place = g_.first + g_.step * i + begin, taps = high - low + 1;
    const zor_int tap_way = way * g_.tap_stride;
    for (int p = 0; p < count; ++p) {
      const T* tap = pair[p].taps + begin * g_.tap_stride;
      const T* signal = pair[p].signal;
      zor_int phase = 0;
      if constexpr (phased) {
        phase = place % g_.step;
        signal += phase * g_.phase_length + place / g_.step;
      } else {
        signal += strided ? place * g_.signal_stride : place;
      }
      for (zor_int j = 0; j < taps; ++j) {
        add_tap<vectors>(tap, signal, sum);
        tap += tap_way;
        if constexpr (phased) {
          phase += way;
          signal += way * g_.phase_length;
          if (phase == g_.step || phase < 0) {
            phase -= way * g_.step;
            signal -= way * (g_.step * g_.phase_length - 1);
          }
        } else {
          signal += strided ? way * g_.signal_stride : way;
        }
      }
    }
#pragma GCC unroll 16
    for (int h = 0; h < parts<T>; ++h)
#pragma GCC unroll 16
      for (int v = 0; v < vectors; ++v) store_reals(sums.of_part[h] + v * lane_count<V>, sum[h][v]);
  }

  template <int Vectors, class V>
  [[gnu::always_inline]] void add_tap(const T* tap, const T* signal, V (&sum)[parts<T>][Vectors]) const {
    const T t = load_element(tap);
    V factor[parts<T>];
    if constexpr (is_complex<T>) {
      factor[0] = spread<V>(t.re);
      factor[1] = spread<V>(t.im);
    } else {
      factor[0] = spread<V>(t);
    }
#pragma GCC unroll 16
    for (int v = 0; v < Vectors; ++v) {
      V s = load_reals<V>(at_lane<V>(signal, v));
      // Held in a register: else it is loaded for each of its products.
      if constexpr (is_complex<T>) asm("" : "+v"(s));
#pragma GCC unroll 16
      for (int h = 0; h < parts<T>; ++h) sum[h][v] = sum[h][v] + factor[h] * s;
    }
  }

  // The signal's number in the first lane of vector v.
  template <class V>
  [[gnu::always_inline]] const real_t<T>* at_lane(const T* signal, int v) const {
    if constexpr (strided)
      return zor::reals(signal + v / parts<T> * g_.step * g_.signal_stride) + v % parts<T>;
    else
      return zor::reals(signal) + v * lane_count<V>;
  }
  template <class V>
  [[gnu::always_inline]] static void store_reals(R* p, V v) {
    if constexpr (lane_count<V> == 1)
      *p = v;
    else
      store<V>(p, v);
  }

  const line_geometry g_;
  const line_pairs<T> pairs_;
  T* const z_;
  const zor_int z_stride_;
  bool complete_;  // whether the list holds all pairs
  int listed_;
  line_pair<T> list_[longest_list];
};

template <class T, class W>
void sum_lines(const line_geometry& g, const line_pairs<T>& pairs, zor_int count, T* z, zor_int z_stride) {
  switch (g.layout) {
    case signal_layout::contiguous:
      line_sum<T, W, signal_layout::contiguous>(g, pairs, count, z, z_stride);
      break;
    case signal_layout::phases:
      line_sum<T, W, signal_layout::phases>(g, pairs, count, z, z_stride);
      break;
    case signal_layout::strided:
      line_sum<T, W, signal_layout::strided>(g, pairs, count, z, z_stride);
      break;
  }
}

}  // namespace zor::conv
