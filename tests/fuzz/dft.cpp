// SPDX-License-Identifier: MIT
// Transforms through the public calls: every rank, domain, storage, format, placement, layout, batch and
// scale.
#include "zor/dft.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numeric>
#include <thread>

#include "tests/fuzz/trial.h"
#include "tests/ref/dft.h"
#include "tests/ref/dft_layout.h"

namespace zor_fuzz {
namespace {

using zor_ref::box, zor_ref::transform_case;

// The transform of a box, line by line.
box transformed(box x, const std::vector<zor_int>& lengths, int sign) {
  size_t below = 1;
  for (const zor_int length : lengths) {
    const size_t n = size_t(length);
    box line(n);
    for (size_t first = 0; first < x.size(); ++first) {
      if (first / below % n != 0) continue;
      for (size_t k = 0; k < n; ++k) line[k] = x[first + k * below];
      line = zor_ref::dft(line, sign);
      for (size_t k = 0; k < n; ++k) x[first + k * below] = line[k];
    }
    below *= n;
  }
  return x;
}

// One side of a problem: which real number of the array belongs to which part of which element. Parts are
// counted from 1 over all transforms of the batch; 0 stands for a zero of a packed format.
struct side {
  side(const transform_case& s, bool spectrum, bool output) {
    // In place the input's layout is the output's, but for a real transform with a complex spectrum.
    const bool second = output && (!s.in_place() || s.mixed());
    const auto& strides = second ? s.out_strides : s.in_strides;
    const zor_int offset = second ? s.out_offset : s.in_offset,
                  distance = second ? s.out_distance : s.in_distance;
    zor_int reach = 1 + offset + (s.count - 1) * distance;
    for (size_t d = 0; d < strides.size(); ++d) reach += (s.lengths[d] - 1) * strides[d];
    if (s.storage == ZOR_DFT_REAL_REAL) half = reach;
    box numbered(static_cast<size_t>(s.size()));
    for (zor_int t = 0; t < s.count; ++t) {
      for (size_t j = 0; j < numbered.size(); ++j) {
        const zor_int number = 1 + 2 * (t * s.size() + zor_int(j));
        numbered[j] = {(long double)number, (long double)(number + 1)};
      }
      zor_ref::add_side(this, s, numbered, spectrum, strides, offset + t * distance, half);
      // A single padded row has padded columns too.
      const bool single = spectrum && s.packed() && s.format == ZOR_DFT_FORMAT_PADDED &&
                          s.lengths.size() == 2 && s.lengths[1] == 1;
      const zor_int second_row = offset + t * distance + (single ? strides[1] : 0);
      if (single) (*this)[second_row] = 0;
      if (single && s.lengths[0] % 2 == 0) (*this)[second_row + s.lengths[0] * strides[0]] = 0;
    }
    numbers.resize(std::max(numbers.size(), size_t(2 * half)), -1);
  }
  long double& operator[](zor_int at) {
    if (size_t(at) >= numbers.size()) numbers.resize(size_t(at) + 1, -1);
    return numbers[size_t(at)];
  }
  bool holds(zor_int at) const { return at < extent() && numbers[size_t(at)] >= 0; }
  zor_int extent() const { return zor_int(numbers.size()); }
  // body(place, number) for every real number of the side.
  template <class Body>
  void each(const Body& body) const {
    for (zor_int at = 0; at < extent(); ++at)
      if (holds(at)) body(at, zor_int(numbers[size_t(at)]));
  }
  std::vector<long double> numbers;  // -1 in gaps
  zor_int half = 0;
};

// Strides of the dimensions and the distance of the batch, nested in a drawn order with gaps.
void draw_layout(trial& t, const std::string& name, const std::vector<zor_int>& room, zor_int count,
                 std::vector<zor_int>* strides, zor_int* offset, zor_int* distance) {
  std::vector<size_t> order(room.size() + 1);
  std::iota(order.begin(), order.end(), 0);
  zor_int code = t.draw((name + ".order").c_str(), 0, 719, 0);
  for (size_t i = order.size() - 1; i > 0; code /= zor_int(i + 1), --i)
    std::swap(order[i], order[i - size_t(code % zor_int(i + 1))]);
  *offset = t.draw((name + ".offset").c_str(), 0, 3, 0);
  const zor_int gap = t.draw((name + ".gap").c_str(), 0, 2, 0);
  zor_int step = t.draw((name + ".step").c_str(), 1, 3, 1);
  strides->resize(room.size());
  for (const size_t i : order) {
    (i == room.size() ? *distance : (*strides)[i]) = step;
    step = step * (i == room.size() ? count : room[i]) + gap;
  }
}

transform_case draw_case(trial& t, int32_t domain, int32_t storage, zor_int ranks, bool backward) {
  static const zor_int longest[] = {1500, 150, 40, 14};
  transform_case s{};
  s.domain = domain;
  s.storage = storage;
  s.placement = t.draw("inplace", 0, 1, 0) ? ZOR_DFT_INPLACE : ZOR_DFT_NOT_INPLACE;
  s.format = s.mixed() ? int32_t(ZOR_DFT_FORMAT_HALF_COMPLEX) : int32_t(t.draw("format", 54, 56, 54));
  const zor_int rank = t.draw("rank", 1, ranks, 1), high = longest[rank - 1];
  const bool large = t.draw("large", 0, 19, 0) == 19;  // enough for several threads
  for (zor_int d = 0; d < rank; ++d) {
    const std::string name = "n" + std::to_string(d);
    s.lengths.push_back(large ? t.draw(name.c_str(), 1, high, 1) : t.size(name.c_str(), high, 1));
  }
  s.count = std::min(t.size("count", 100, 1), std::max<zor_int>(1, (large ? 40000 : 3000) / s.size()));
  s.forward_scale = s.backward_scale = t.draw("scaled", 0, 1, 0) ? 0.375 : 1.0;
  std::vector<zor_int> room = s.lengths, half = s.lengths;
  for (zor_int& n : room) n += s.packed() ? 2 : 0;
  half[0] = half[0] / 2 + 1;
  const bool both = s.mixed() && s.in_place();
  draw_layout(t, "in", s.mixed() && (backward || both) ? half : room, s.count, &s.in_strides, &s.in_offset,
              &s.in_distance);
  draw_layout(t, "out", s.mixed() && (!backward || both) ? half : room, s.count, &s.out_strides,
              &s.out_offset, &s.out_distance);
  if (!both) return s;
  // In place a row of reals lies over its half spectrum.
  s.in_strides[0] = 1;
  zor_int step = half[0] + s.in_offset;
  for (size_t d = 1; d < s.lengths.size(); step *= s.lengths[d++]) s.in_strides[d] = step;
  s.in_distance = step;
  s.in_offset = 0;
  s.out_strides = s.in_strides;
  s.out_offset = 0;
  s.out_distance = s.in_distance;
  auto& reals_strides = backward ? s.out_strides : s.in_strides;
  for (size_t d = 1; d < reals_strides.size(); ++d) reals_strides[d] *= 2;
  (backward ? s.out_distance : s.in_distance) *= 2;
  return s;
}

template <class R>
class plan {
 public:
  // One of the settings may be a bad one: the first four are arguments of create.
  plan(const transform_case& s, zor_int users, int bad = 0) : s_(s) {
    std::vector<zor_int> lengths(s.lengths.rbegin(), s.lengths.rend());
    if (bad == 4) lengths[0] = 0;
    const int32_t precision = sizeof(R) == 4 ? ZOR_DFT_SINGLE : ZOR_DFT_DOUBLE, none = 77;
    ok(zor_fft_create(&fft_, bad == 1 ? none : precision, bad == 2 ? none : s.domain,
                      bad == 3 ? 0 : zor_int(lengths.size()), lengths.data()));
    ok(zor_fft_set_int(fft_, s.real() ? ZOR_DFT_CONJUGATE_EVEN_STORAGE : ZOR_DFT_COMPLEX_STORAGE, s.storage));
    if (s.packed()) ok(zor_fft_set_int(fft_, ZOR_DFT_PACKED_FORMAT, s.format));
    ok(zor_fft_set_int(fft_, ZOR_DFT_PLACEMENT, bad == 5 ? none : s.placement));
    set_strides(ZOR_DFT_INPUT_STRIDES, s.in_strides, s.in_offset);
    set_strides(ZOR_DFT_OUTPUT_STRIDES, s.out_strides, s.out_offset);
    ok(zor_fft_set_int(fft_, ZOR_DFT_INPUT_DISTANCE, s.in_distance));
    ok(zor_fft_set_int(fft_, ZOR_DFT_OUTPUT_DISTANCE, s.out_distance));
    ok(zor_fft_set_int(fft_, ZOR_DFT_NUMBER_OF_TRANSFORMS, bad == 6 ? 0 : s.count));
    ok(zor_fft_set_real(fft_, ZOR_DFT_FORWARD_SCALE, s.forward_scale));
    ok(zor_fft_set_real(fft_, ZOR_DFT_BACKWARD_SCALE, s.backward_scale));
    if (users > 1) ok(zor_fft_set_int(fft_, ZOR_DFT_NUMBER_OF_USER_THREADS, users));
    ok(zor_fft_commit(fft_));
  }
  plan(const plan&) = delete;
  ~plan() { zor_fft_free(&fft_); }

  int32_t status() const { return status_; }
  int32_t run(bool backward, R* in, R* out, zor_int in_half, zor_int out_half) const {
    const auto compute = backward ? zor_fft_backward : zor_fft_forward;
    if (s_.storage != ZOR_DFT_REAL_REAL) return s_.in_place() ? compute(fft_, in) : compute(fft_, in, out);
    return s_.in_place() ? compute(fft_, in, in + in_half)
                         : compute(fft_, in, in + in_half, out, out + out_half);
  }

 private:
  void ok(int32_t status) {
    if (status_ == 0) status_ = status;
  }
  void set_strides(int32_t parameter, const std::vector<zor_int>& of, zor_int offset) {
    std::vector<zor_int> all{offset};
    all.insert(all.end(), of.rbegin(), of.rend());
    ok(zor_fft_set_strides(fft_, parameter, all.data()));
  }
  const transform_case s_;
  zor_fft fft_ = nullptr;
  int32_t status_ = 0;
};

// Values by number of the part, as a side of a problem holds them.
template <class R, class Value = R>
std::vector<Value> parts_of(const transform_case& s, const side& of, const R* data) {
  std::vector<Value> values(size_t(2 * s.size() * s.count) + 1);
  of.each([&](zor_int at, zor_int number) { values[size_t(number)] = data[at]; });
  return values;
}

box box_of(const std::vector<long double>& values, const transform_case& s, zor_int t) {
  box x(static_cast<size_t>(s.size()));
  for (size_t j = 0; j < x.size(); ++j) {
    const size_t number = 1 + 2 * (size_t(t * s.size()) + j);
    x[j] = {values[number], s.real() ? 0 : values[number + 1]};
  }
  return x;
}

template <class R>
struct problem {
  problem(trial& t, const transform_case& shape, bool to_back)
      : s(shape),
        backward(to_back),
        given(s, backward && s.real(), false),
        wanted(s, !backward && s.real(), true),
        in(t.scattered<R>("in", s.in_place() ? use::inout : use::in,
                          s.in_place() ? std::max(given.extent(), wanted.extent()) : given.extent(),
                          [&](zor_int i) { return given.holds(i) || (s.in_place() && wanted.holds(i)); })),
        out(s.in_place() ? in : t.scattered<R>("out", use::out, wanted.extent(), [&](zor_int i) {
          return wanted.holds(i);
        })) {
    wanted.each([&](zor_int at, zor_int) {
      if (s.in_place() && !given.holds(at)) in.set(at, 0, R(NAN));
    });
    if (!(backward && s.real() && t.plain_data())) return;
    // A backward real transform reads the spectrum of a signal.
    const auto values = parts_of<R, long double>(s, given, in.data());
    for (zor_int b = 0; b < s.count; ++b) signals.push_back(box_of(values, s, b));
    std::vector<box> spectra;
    for (const box& x : signals) spectra.push_back(transformed(x, s.lengths, -1));
    given.each([&](zor_int at, zor_int number) {
      const zor_int n = number - 1;
      const auto element =
          n < 0 ? zor_ref::complex(0) : spectra[size_t(n / 2 / s.size())][size_t(n / 2 % s.size())];
      in.set(at, 0, R(n % 2 ? element.imag() : element.real()));
    });
  }

  // The output, number by number, is the transform to working precision.
  void check_values(trial& t) const {
    std::vector<long double> values(size_t(2 * s.size() * s.count) + 1), exact = values;
    given.each([&](zor_int at, zor_int number) { values[size_t(number)] = in.before(at); });
    const long double scale = R(s.forward_scale);
    long double power = 0;
    for (zor_int b = 0; b < s.count; ++b) {
      box y = signals.empty() ? transformed(box_of(values, s, b), s.lengths, backward ? 1 : -1)
                              : signals[size_t(b)];
      const long double factor = signals.empty() ? scale : scale * (long double)s.size();
      for (size_t j = 0; j < y.size(); ++j) {
        const size_t number = 1 + 2 * (size_t(b * s.size()) + j);
        exact[number] = y[j].real() * factor;
        exact[number + 1] = y[j].imag() * factor;
        power += std::norm(y[j]) * factor * factor;
      }
    }
    const long double rms = std::sqrt(power / (long double)(s.size() * s.count));
    const zor_int terms = zor_int(8 * (4 + std::log2((long double)s.size())));
    wanted.each([&](zor_int at, zor_int number) {
      t.near(out.now(at), exact[size_t(number)], rms, terms, "out", at);
    });
  }

  // The same numbers in dense arrays, out of place: the same bits.
  void check_dense(trial& t) const {
    transform_case d = s;
    d.placement = ZOR_DFT_NOT_INPLACE;
    d.in_offset = d.out_offset = 0;
    const auto lay = [&](std::vector<zor_int>* strides, zor_int* distance, bool spectrum) {
      zor_int step = 1;
      for (size_t i = 0; i < d.lengths.size(); ++i) {
        (*strides)[i] = step;
        step *= i == 0 && spectrum && d.mixed() ? d.lengths[0] / 2 + 1 : d.lengths[i] + (d.packed() ? 2 : 0);
      }
      *distance = step;
    };
    lay(&d.in_strides, &d.in_distance, backward);
    lay(&d.out_strides, &d.out_distance, !backward);
    const side from(d, backward && s.real(), false), to(d, !backward && s.real(), true);
    std::vector<R> x(static_cast<size_t>(from.extent())), y(static_cast<size_t>(to.extent())),
        values(size_t(2 * s.size() * s.count) + 1);
    given.each([&](zor_int at, zor_int number) { values[size_t(number)] = in.before(at); });
    from.each([&](zor_int at, zor_int number) { x[size_t(at)] = values[size_t(number)]; });
    int32_t status = -1;
    t.prepare([&] {
      const plan<R> dense(d, 1);
      status = dense.status() ? dense.status() : dense.run(backward, x.data(), y.data(), from.half, to.half);
    });
    t.expect(status == 0, "dense layout: status " + std::to_string(status));
    const auto a = parts_of(s, wanted, out.data()), b = parts_of(d, to, y.data());
    for (size_t i = 1; i < a.size(); ++i)
      t.expect(zor_test::bits(a[i]) == zor_test::bits(b[i]),
               "other bits than in a dense layout, part " + std::to_string(i));
  }

  // Several callers at once, each with an output of its own: the same bits.
  void check_callers(trial& t, const plan<R>& p, zor_int callers) const {
    std::vector<std::vector<R>> outs(size_t(callers), std::vector<R>(static_cast<size_t>(wanted.extent())));
    std::vector<int32_t> status(static_cast<size_t>(callers));
    std::atomic<zor_int> waiting = callers;
    t.prepare([&] {
      std::vector<std::thread> threads;
      for (size_t c = 0; c < size_t(callers); ++c)
        threads.emplace_back([&, c] {
          for (--waiting; waiting > 0;) std::this_thread::yield();
          for (int again = 0; again < 3 && status[c] == 0; ++again)
            status[c] = p.run(backward, in.data(), outs[c].data(), given.half, wanted.half);
        });
      for (std::thread& one : threads) one.join();
    });
    for (size_t c = 0; c < size_t(callers); ++c) {
      t.expect(status[c] == 0, "a caller among several: status " + std::to_string(status[c]));
      wanted.each([&](zor_int at, zor_int) {
        const bool same = zor_test::bits(out.now(at)) == zor_test::bits(outs[c][size_t(at)]);
        t.expect(same, "other bits for a caller among several");
      });
    }
  }

  transform_case s;
  bool backward;
  side given, wanted;
  std::vector<box> signals;
  operand<R> in, out;
};

template <class R>
void transform(trial& t, int32_t domain, int32_t storage, zor_int ranks) {
  const bool backward = t.draw("backward", 0, 1, 0);
  const zor_int callers = t.draw("callers", 0, 19, 0) - 16, users = t.draw("users", 1, 3, 1);
  problem<R> q(t, draw_case(t, domain, storage, ranks, backward), backward);
  const int bad = t.spoiled(7);
  const int32_t wanted = bad == 0 ? ZOR_FFT_OK : bad <= 4 ? ZOR_FFT_BAD_ARGUMENT : ZOR_FFT_BAD_VALUE;
  std::unique_ptr<plan<R>> p;
  t.prepare([&] { p = std::make_unique<plan<R>>(q.s, users, bad); });
  int32_t status = p->status();
  R* const in = bad == 7 ? nullptr : q.in.data();
  if (status == 0) t.call([&] { status = p->run(backward, in, q.out.data(), q.given.half, q.wanted.half); });
  t.expect(status == wanted, "status " + std::to_string(status) + ", not " + std::to_string(wanted));
  if (status != 0) return;
  if (t.checking() && t.plain_data()) q.check_values(t);
  if (t.first()) q.check_dense(t);
  if (callers > 1 && callers <= users && !q.s.in_place()) q.check_callers(t, *p, callers);
}

#define BOTH(name, domain, storage, ranks)                                          \
  {name "_double", [](trial& t) { transform<double>(t, domain, storage, ranks); }}, \
      {name "_single", [](trial& t) { transform<float>(t, domain, storage, ranks); }},
const rows transforms("transform", with_status,
                      {BOTH("zor_fft_complex", ZOR_DFT_COMPLEX, ZOR_DFT_COMPLEX_COMPLEX, 4)
                           BOTH("zor_fft_split", ZOR_DFT_COMPLEX, ZOR_DFT_REAL_REAL, 1)
                               BOTH("zor_fft_packed", ZOR_DFT_REAL, ZOR_DFT_COMPLEX_REAL, 2)
                                   BOTH("zor_fft_mixed", ZOR_DFT_REAL, ZOR_DFT_COMPLEX_COMPLEX, 3)});

}  // namespace
}  // namespace zor_fuzz
