// SPDX-License-Identifier: MIT
// Fourier transforms beside FFTW, planned with its MEASURE. Nominal operations: 5 n log2 n, half of it for
// real data. Planning is measured against FFTW's ESTIMATE, with nothing remembered from an earlier plan.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>

#include "bench/bench.h"
#include "bench/peers/fftw.h"
#include "zor/core.h"
#include "zor/dft.h"

namespace zor_bench {
namespace {

enum class kind { complex, real_forward, real_backward };

struct shape {
  kind data;
  std::vector<zor_int> lengths;  // the last one contiguous
  zor_int transforms = 1;
  bool interleaved = false;  // transforms one element apart
  bool in_place = false;     // complex only

  zor_int size() const {
    zor_int n = 1;
    for (const zor_int l : lengths) n *= l;
    return n;
  }
  // Reals on either side of one transform.
  zor_int half() const { return size() / lengths.back() * (lengths.back() / 2 + 1); }
  zor_int in_reals() const {
    return data == kind::complex ? 2 * size() : data == kind::real_forward ? size() : 2 * half();
  }
  zor_int out_reals() const {
    return data == kind::complex ? 2 * size() : data == kind::real_forward ? 2 * half() : size();
  }
};

template <class R>
std::shared_ptr<R> reals(zor_int count) {
  void* p = std::aligned_alloc(64, (size_t(count) * sizeof(R) + 63) / 64 * 64);
  if (p == nullptr) throw std::bad_alloc();
  return {static_cast<R*>(p), std::free};
}

// Values with all the bits of a double: shorter ones would pass the first additions without an error. A
// spectrum of nothing but real values and zeros at the ends is that of a real signal, whatever else it holds.
template <class R>
void fill(const std::shared_ptr<R>& x, zor_int count, bool spectrum) {
  uint64_t state = 1;
  for (zor_int i = 0; i < count; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    x.get()[i] = spectrum && i % 2 == 1 ? R(0) : R(double(int64_t(state) >> 11) * 0x1p-52);
  }
}

template <class R>
struct operands {
  std::shared_ptr<R> in, out;
  zor_int in_count, out_count;
  explicit operands(const shape& s)
      : in(reals<R>(s.in_reals() * s.transforms)),
        out(s.in_place ? in : reals<R>(s.out_reals() * s.transforms)),
        in_count(s.in_reals() * s.transforms),
        out_count(s.out_reals() * s.transforms) {}
};

void expect_done(int32_t status) {
  if (status != ZOR_DFT_OK) throw std::runtime_error(zor_fft_error_text(status));
}

// Strides and distances in elements of a side.
void set_layout(zor_fft fft, const shape& s) {
  const bool half_in = s.data == kind::real_backward, half_out = s.data == kind::real_forward;
  std::vector<zor_int> in{0}, out{0};
  zor_int in_step = s.interleaved ? s.transforms : 1, out_step = in_step;
  for (size_t i = s.lengths.size(); i-- > 0;) {
    const bool contiguous = i + 1 == s.lengths.size();
    in.insert(in.begin() + 1, in_step);
    out.insert(out.begin() + 1, out_step);
    in_step *= contiguous && half_in ? s.lengths[i] / 2 + 1 : s.lengths[i];
    out_step *= contiguous && half_out ? s.lengths[i] / 2 + 1 : s.lengths[i];
  }
  expect_done(zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, in.data()));
  expect_done(zor_fft_set_strides(fft, ZOR_DFT_OUTPUT_STRIDES, out.data()));
  expect_done(zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, s.transforms));
  expect_done(zor_fft_set_int(fft, ZOR_DFT_INPUT_DISTANCE, s.interleaved ? zor_int(1) : in_step));
  expect_done(zor_fft_set_int(fft, ZOR_DFT_OUTPUT_DISTANCE, s.interleaved ? zor_int(1) : out_step));
}

template <class R>
std::shared_ptr<ZorDftDescriptor> plan_ours(const shape& s, int32_t threads) {
  zor_core_set_num_threads(threads);
  zor_fft fft = nullptr;
  expect_done(zor_fft_create(&fft, sizeof(R) == 8 ? ZOR_DFT_DOUBLE : ZOR_DFT_SINGLE,
                             s.data == kind::complex ? ZOR_DFT_COMPLEX : ZOR_DFT_REAL,
                             zor_int(s.lengths.size()), s.lengths.data()));
  const std::shared_ptr<ZorDftDescriptor> owner(fft, [](zor_fft f) { zor_fft_free(&f); });
  if (s.data != kind::complex)
    expect_done(zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX));
  expect_done(zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, s.in_place ? ZOR_DFT_INPLACE : ZOR_DFT_NOT_INPLACE));
  set_layout(fft, s);
  expect_done(zor_fft_commit(fft));
  return owner;
}

template <class R>
runner ours(const shape& s, const operands<R>& data, int32_t threads) {
  const auto owner = plan_ours<R>(s, threads);
  const auto compute = s.data == kind::real_backward ? zor_fft_backward : zor_fft_forward;
  return [owner, compute, data](int64_t repeats) {
    for (int64_t i = 0; i < repeats; ++i) expect_done(compute(owner.get(), data.in.get(), data.out.get()));
  };
}

// FFTW's functions of one precision, or nulls.
template <class R>
std::shared_ptr<void> plan_theirs(const fftw& f, const shape& s, const operands<R>& data, unsigned flags) {
  const std::vector<int> n(s.lengths.begin(), s.lengths.end());
  const int rank = int(n.size()), many = int(s.transforms), stride = s.interleaved ? many : 1;
  const auto distance = [&](zor_int elements) { return s.interleaved ? 1 : int(elements); };
  const int full = distance(s.size()), half = distance(s.half());
  void *x = data.in.get(), *y = data.out.get();
  fftw::plan p = nullptr;
  if (s.data == kind::complex)
    p = f.plan_many_dft(rank, n.data(), many, x, nullptr, stride, full, y, nullptr, stride, full, -1, flags);
  else if (s.data == kind::real_forward)
    p = f.plan_many_dft_r2c(rank, n.data(), many, x, nullptr, stride, full, y, nullptr, stride, half, flags);
  else
    p = f.plan_many_dft_c2r(rank, n.data(), many, x, nullptr, stride, half, y, nullptr, stride, full, flags);
  return {p, f.destroy_plan};
}

// Planning runs the transform on the operands, so they are filled behind it.
template <class R>
runner theirs(const fftw& f, const shape& s, const operands<R>& data) {
  const auto owner = plan_theirs<R>(f, s, data, fftw_measure);
  return [owner, data, execute = f.execute](int64_t repeats) {
    for (int64_t i = 0; i < repeats; ++i) execute(owner.get());
  };
}

template <class R>
bool agree(const shape& s, const operands<R>& a, const operands<R>& b) {
  double difference = 0, power = 0;
  for (zor_int i = 0; i < a.out_count; ++i) {
    const double d = double(a.out.get()[i]) - double(b.out.get()[i]);
    difference += d * d;
    power += double(a.out.get()[i]) * double(a.out.get()[i]);
  }
  const double eps = sizeof(R) == 8 ? 0x1p-53 : 0x1p-24;
  return std::sqrt(difference / power) < 4 * eps * (2 + std::log2(double(s.size())));
}

using wide = std::complex<long double>;
wide times(wide a, wide b) {
  return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}
// exp(-2 pi i k/n) for 0 <= k < n.
wide root(int64_t k, int64_t n) {
  const long double angle = -2 * 3.14159265358979323846264338327950288L * (long double)k / (long double)n;
  return {std::cos(angle), std::sin(angle)};
}

void power_of_two_dft(std::vector<wide>& x) {
  const size_t n = x.size();
  for (size_t i = 1, j = 0; i < n; ++i) {
    size_t bit = n / 2;
    for (; j & bit; bit /= 2) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(x[i], x[j]);
  }
  std::vector<wide> w(n / 2);
  for (size_t k = 0; k < w.size(); ++k) w[k] = root(int64_t(k), int64_t(n));
  for (size_t half = 1; half < n; half *= 2)
    for (size_t i = 0; i < n; i += 2 * half)
      for (size_t k = 0; k < half; ++k) {
        const wide a = x[i + k], b = times(x[i + k + half], w[k * (n / (2 * half))]);
        x[i + k] = a + b;
        x[i + k + half] = a - b;
      }
}

// sum x(j) exp(-2 pi i j k/n) in long double, other lengths as a convolution with a chirp.
std::vector<wide> wide_dft(std::vector<wide> x) {
  const size_t n = x.size();
  size_t padded = 1;
  while (padded < (n & (n - 1) ? 2 * n - 1 : n)) padded *= 2;
  if (padded == n) {
    power_of_two_dft(x);
    return x;
  }
  std::vector<wide> chirp(n), a(padded), b(padded);
  for (size_t k = 0; k < n; ++k) {
    chirp[k] = root(int64_t(k * k % (2 * n)), int64_t(2 * n));
    a[k] = times(x[k], chirp[k]);
    b[k] = b[(padded - k) % padded] = std::conj(chirp[k]);
  }
  power_of_two_dft(a);
  power_of_two_dft(b);
  for (size_t k = 0; k < padded; ++k) a[k] = std::conj(times(a[k], b[k]));
  power_of_two_dft(a);
  for (size_t k = 0; k < n; ++k) x[k] = times(std::conj(a[k]), chirp[k]) / (long double)padded;
  return x;
}

// The exact output of one line, as it is stored.
template <class R>
std::vector<long double> exact_output(const shape& s, const operands<R>& o) {
  const size_t n = size_t(s.size());
  std::vector<wide> x(n);
  for (size_t j = 0; j < n; ++j) {
    if (s.data == kind::real_forward)
      x[j] = o.in.get()[j];
    else if (s.data == kind::complex || 2 * j <= n)
      x[j] = {o.in.get()[2 * j], o.in.get()[2 * j + 1]};
    else
      x[j] = std::conj(x[n - j]);
  }
  if (s.data == kind::real_backward)
    for (wide& v : x) v = std::conj(v);
  std::vector<long double> out;
  for (const wide& v : wide_dft(x)) {
    out.push_back(v.real());
    if (s.data != kind::real_backward) out.push_back(v.imag());
  }
  out.resize(size_t(o.out_count));
  return out;
}

// Root of the mean square error in units of the precision, relative to that of the output: of random data, of
// an impulse at 1, and of impulses at some places together. An impulse's transform is a column of the matrix;
// that at 1 meets every table where the values are taken apart by frequency, and one of them where by time.
template <class R>
std::string errors_of(const shape& s, const std::vector<contender>& all, const operands<R>& mine,
                      const operands<R>& other) {
  const auto impulse = [&](const operands<R>& o, zor_int at) {
    std::fill(o.in.get(), o.in.get() + o.in_count, R(0));
    o.in.get()[s.data == kind::real_forward ? at : 2 * at] = R(1);
  };
  const zor_int places = s.data == kind::real_backward ? s.size() / 2 : s.size();
  const struct {
    const char* name;
    int runs;
    std::function<void(const operands<R>&, int)> put;
  } inputs[] = {{"random", 1,
                 [&](const operands<R>& o, int) { fill(o.in, o.in_count, s.data == kind::real_backward); }},
                {"impulse at 1", 1, [&](const operands<R>& o, int) { impulse(o, 1); }},
                {"impulses", 8, [&](const operands<R>& o, int i) {
                   impulse(o, zor_int(double(places) * std::fmod(0.618 * i, 1.0)));
                 }}};
  std::string text;
  for (const auto& input : inputs) {
    std::vector<long double> error(all.size()), power(all.size());
    for (int run = 0; run < input.runs; ++run) {
      input.put(mine, run);
      input.put(other, run);
      const std::vector<long double> exact = exact_output(s, mine);
      for (size_t i = 0; i < all.size(); ++i) {
        const operands<R>& o = i == 0 ? mine : other;
        all[i].run(1);
        for (size_t k = 0; k < exact.size(); ++k) {
          error[i] += (exact[k] - o.out.get()[k]) * (exact[k] - o.out.get()[k]);
          power[i] += exact[k] * exact[k];
        }
      }
    }
    text += fmt::format("{} {}",
                        text.empty() ? (sizeof(R) == 8 ? "rms error in 2^-53:" : "rms error in 2^-24:") : ";",
                        input.name);
    for (size_t i = 0; i < all.size(); ++i)
      text += fmt::format(" {} {:.3f}", all[i].library,
                          double(std::sqrt(error[i] / power[i])) * (sizeof(R) == 8 ? 0x1p53 : 0x1p24));
  }
  return text;
}

// In place the values would grow without bound over the repeats: a scale of nothing is not available to both
// sides, so they run on zeros once they have been compared.
template <class R>
prepared set_up(const shape& s, int32_t threads, bool errors) {
  const operands<R> mine(s), other(s);
  std::vector<contender> all = {{"zor", ours<R>(s, mine, threads)}};
  if (const fftw* f = find_fftw<R>()) all.push_back({"fftw", theirs<R>(*f, s, other)});
  fill(mine.in, mine.in_count, s.data == kind::real_backward);
  fill(other.in, other.in_count, s.data == kind::real_backward);
  all[0].run(1);
  prepared ready = keep_agreeing(all, [&](const contender& c) {
    c.run(1);
    return agree(s, mine, other);
  });
  if (errors && s.lengths.size() == 1 && s.transforms == 1 && !s.in_place)
    ready.note = errors_of<R>(s, all, mine, other);
  if (s.in_place)
    for (const operands<R>& o : {mine, other}) std::fill(o.in.get(), o.in.get() + o.in_count, R(0));
  return ready;
}

// Planning and giving the plan back, again and again.
template <class R>
prepared set_up_planning(const shape& s, int32_t threads) {
  prepared ready;
  const operands<R> data(s);
  ready.contenders = {{"zor", [=](int64_t repeats) {
                         for (; repeats > 0; --repeats) plan_ours<R>(s, threads);
                       }}};
  if (const fftw* f = find_fftw<R>())
    ready.contenders.push_back({"fftw", [=](int64_t repeats) {
                                  for (; repeats > 0; --repeats) {
                                    f->forget_wisdom();
                                    plan_theirs<R>(*f, s, data, fftw_estimate);
                                  }
                                }});
  return ready;
}

std::string name_of(const shape& s, bool single) {
  std::string name = single ? "single " : "double ";
  if (s.data != kind::complex) name += s.data == kind::real_forward ? "forward " : "backward ";
  for (size_t i = 0; i < s.lengths.size(); ++i) name += fmt::format("{}{}", i == 0 ? "" : "x", s.lengths[i]);
  if (s.transforms > 1) name += fmt::format(" times {}{}", s.transforms, s.interleaved ? " interleaved" : "");
  return name + (s.in_place ? " in place" : "");
}

void add(const environment& env, std::vector<bench_case>& cases, const shape& s) {
  for (const bool single : {false, true}) {
    bench_case c;
    c.name = name_of(s, single);
    const double n = double(s.size());
    c.flops = (s.data == kind::complex ? 5.0 : 2.5) * n * std::log2(n) * double(s.transforms);
    c.bytes = double(s.in_reals() + s.out_reals()) * double(s.transforms) * (single ? 4 : 8);
    c.single_precision = single;
    c.setup = [s, single, threads = env.opts.threads, errors = env.opts.errors] {
      return single ? set_up<float>(s, threads, errors) : set_up<double>(s, threads, errors);
    };
    cases.push_back(std::move(c));
  }
}

std::vector<zor_int> lengths(const environment& env) {
  if (env.opts.quick) return {64, 97, 1000};
  return {16,      32,  64,   256,  1024,  4096,  16384, 65536, 262144, 1048576,
          4194304, 100, 1000, 1001, 10000, 12155, 97,    997,   4099,   100003};
}

}  // namespace

std::vector<bench_case> dft1_cases(const environment& env) {
  std::vector<bench_case> cases;
  for (const zor_int n : lengths(env))
    for (const bool in_place : {false, true}) add(env, cases, {kind::complex, {n}, 1, false, in_place});
  for (const bool interleaved : {false, true})
    add(env, cases, {kind::complex, {64}, env.opts.quick ? 10 : 1000, interleaved, false});
  return cases;
}

std::vector<bench_case> dftreal_cases(const environment& env) {
  std::vector<bench_case> cases;
  for (const zor_int n : lengths(env))
    for (const kind k : {kind::real_forward, kind::real_backward}) add(env, cases, {k, {n}});
  return cases;
}

std::vector<bench_case> dftnd_cases(const environment& env) {
  std::vector<bench_case> cases;
  const std::vector<std::vector<zor_int>> shapes =
      env.opts.quick ? std::vector<std::vector<zor_int>>{{12, 20}, {6, 8, 10}}
                     : std::vector<std::vector<zor_int>>{
                           {128, 128}, {512, 512}, {1024, 1024}, {64, 64, 64}, {128, 128, 128}};
  for (const auto& l : shapes)
    for (const kind k : {kind::complex, kind::real_forward}) add(env, cases, {k, l});
  return cases;
}

std::vector<bench_case> dftplan_cases(const environment& env) {
  std::vector<bench_case> cases;
  const auto chosen =
      env.opts.quick ? std::vector<zor_int>{64, 97} : std::vector<zor_int>{1024, 100000, 4194304};
  for (const zor_int n : chosen)
    for (const bool single : {false, true}) {
      const shape s{kind::complex, {n}};
      bench_case c;
      c.name = name_of(s, single);
      c.single_precision = single;
      c.setup = [s, single, threads = env.opts.threads] {
        return single ? set_up_planning<float>(s, threads) : set_up_planning<double>(s, threads);
      };
      cases.push_back(std::move(c));
    }
  return cases;
}

}  // namespace zor_bench
