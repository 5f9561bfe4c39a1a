// SPDX-License-Identifier: MIT
// Full convolutions through the public entries beside a plain loop and beside the same method on FFTW:
// overlap-save with plans of its MEASURE, in the fastest of several tilings. Plans and buffers are made once;
// both operands are transformed in every call, as ours are. Nominal operations: 2 a product (complex: 8) of
// the direct sums.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>
#include <numeric>

#include "bench/bench.h"
#include "bench/convolution.h"
#include "bench/operands.h"
#include "bench/peers/fftw.h"
#include "zor/core.h"
#include "zor/signatures/conv.h"

namespace zor_bench {
namespace {

using lengths = std::vector<zor_int>;  // the last one contiguous

zor_int product(const lengths& l) {
  return std::accumulate(l.begin(), l.end(), zor_int(1), std::multiplies<>());
}

struct problem {
  lengths x, y;
  zor_int decimation = 1;
  int32_t threads = 0;

  lengths full() const {
    lengths l = x;
    for (size_t d = 0; d < l.size(); ++d) l[d] += y[d] - 1;
    return l;
  }
  lengths wanted() const {
    lengths l = full();
    for (zor_int& n : l) n = (n - 1) / decimation + 1;
    return l;
  }
};

template <class R>
std::shared_ptr<R> reals(zor_int count) {
  void* p = std::aligned_alloc(64, (size_t(count) * sizeof(R) + 63) / 64 * 64);
  if (p == nullptr) throw std::bad_alloc();
  std::memset(p, 0, size_t(count) * sizeof(R));
  return {static_cast<R*>(p), std::free};
}

// Copies a box of elements of `parts` reals from one array to another.
template <class R>
void copy_box(const lengths& shape, const R* from, const lengths& from_room, R* to, const lengths& to_room,
              int parts) {
  const size_t rank = shape.size();
  lengths index(rank, 0);
  for (;;) {
    zor_int a = 0, b = 0;
    for (size_t d = 0; d < rank; ++d) {
      a = a * from_room[d] + index[d];
      b = b * to_room[d] + index[d];
    }
    std::memcpy(to + b * parts, from + a * parts, size_t(shape[rank - 1] * parts) * sizeof(R));
    size_t d = rank - 1;
    while (d-- > 0 && ++index[d] == shape[d]) index[d] = 0;
    if (d == size_t(-1)) return;
  }
}

// Overlap-save on FFTW: boxes of `padded`, tiles of padded - y + 1 values.
template <class T>
class fftw_method {
  using R = typename real_of<T>::type;
  static constexpr int parts = is_complex<T> ? 2 : 1;

 public:
  fftw_method(const fftw& f, const problem& p, const T* x, const T* y, T* z, const lengths& padded)
      : f_(f),
        p_(p),
        padded_(padded),
        x_(reinterpret_cast<const R*>(x)),
        y_(reinterpret_cast<const R*>(y)),
        z_(reinterpret_cast<R*>(z)) {
    const std::vector<int> n(padded.begin(), padded.end());
    const int rank = int(n.size());
    spectrum_count_ =
        parts == 2 ? product(padded) : product(padded) / padded.back() * (padded.back() / 2 + 1);
    box_ = reals<R>(parts * product(padded));
    spectrum_ = reals<R>(2 * spectrum_count_);
    of_y_ = reals<R>(2 * spectrum_count_);
    if (parts == 2) {
      forward_ = {f.plan_dft(rank, n.data(), box_.get(), spectrum_.get(), -1, 0), f.destroy_plan};
      backward_ = {f.plan_dft(rank, n.data(), spectrum_.get(), box_.get(), 1, 0), f.destroy_plan};
    } else {
      forward_ = {f.plan_dft_r2c(rank, n.data(), box_.get(), spectrum_.get(), 0), f.destroy_plan};
      backward_ = {f.plan_dft_c2r(rank, n.data(), spectrum_.get(), box_.get(), 0), f.destroy_plan};
    }
  }

  void run() const {
    std::memset(box_.get(), 0, size_t(parts * product(padded_)) * sizeof(R));
    copy_box(p_.y, y_, p_.y, box_.get(), padded_, parts);
    f_.execute(forward_.get());
    const R scale = R(1) / R(product(padded_));
    for (zor_int i = 0; i < 2 * spectrum_count_; ++i) of_y_.get()[i] = spectrum_.get()[i] * scale;
    const lengths full = p_.full();
    const size_t rank = full.size();
    lengths first(rank, 0);
    for (;;) {
      run_tile(full, first);
      size_t d = rank;
      while (d-- > 0) {
        first[d] += tile(d, full);
        if (first[d] < full[d]) break;
        first[d] = 0;
      }
      if (d == size_t(-1)) return;
    }
  }

 private:
  zor_int tile(size_t d, const lengths& full) const {
    return padded_[d] >= full[d] ? full[d] : padded_[d] - p_.y[d] + 1;
  }
  void run_tile(const lengths& full, const lengths& first) const {
    const size_t rank = full.size();
    lengths in(rank), out(rank);
    zor_int from = 0, to = 0, at = 0;
    for (size_t d = 0; d < rank; ++d) {
      out[d] = std::min(tile(d, full), full[d] - first[d]);
      const zor_int s0 = std::min(p_.x[d] - 1, std::max<zor_int>(0, first[d] - p_.y[d] + 1));
      const zor_int s1 = std::min(p_.x[d] - 1, first[d] + out[d] - 1);
      in[d] = s1 - s0 + 1;
      from = from * p_.x[d] + s0;
      to = to * full[d] + first[d];
      at = at * padded_[d] + first[d] - s0;
    }
    if (product(in) < product(padded_))
      std::memset(box_.get(), 0, size_t(parts * product(padded_)) * sizeof(R));
    copy_box(in, x_ + from * parts, p_.x, box_.get(), padded_, parts);
    f_.execute(forward_.get());
    R* const a = spectrum_.get();
    const R* const b = of_y_.get();
    for (zor_int i = 0; i < 2 * spectrum_count_; i += 2) {
      const R re = a[i] * b[i] - a[i + 1] * b[i + 1], im = a[i] * b[i + 1] + a[i + 1] * b[i];
      a[i] = re, a[i + 1] = im;
    }
    f_.execute(backward_.get());
    copy_box(out, box_.get() + at * parts, padded_, z_ + to * parts, full, parts);
  }

  const fftw f_;
  const problem p_;
  const lengths padded_;
  const R *x_, *y_;
  R* z_;
  zor_int spectrum_count_;
  std::shared_ptr<R> box_, spectrum_, of_y_;
  std::shared_ptr<void> forward_, backward_;
};

zor_int good_length(zor_int n) {
  zor_int best = 0;
  for (const zor_int odd : {1, 3, 5, 9, 15, 25}) {
    zor_int length = 2 * odd;
    while (length < n) length *= 2;
    if (best == 0 || length < best) best = length;
  }
  return best;
}

// The fastest of one box and of boxes of 2, 4 and 8 times the power of two that holds y.
template <class T>
std::shared_ptr<fftw_method<T>> fastest(const fftw& f, const problem& p, const T* x, const T* y, T* z) {
  const lengths full = p.full();
  std::shared_ptr<fftw_method<T>> best;
  double least = 0;
  lengths before;
  for (const zor_int times : {0, 2, 4, 8, 16}) {
    lengths padded = full;
    for (size_t d = 0; d < full.size(); ++d) {
      const zor_int whole = good_length(full[d]);
      zor_int power = 1;
      while (power < p.y[d]) power *= 2;
      padded[d] = times == 0 ? whole : std::min(whole, std::max<zor_int>(times * power, 16));
    }
    if (padded == before) continue;
    before = padded;
    const auto method = std::make_shared<fftw_method<T>>(f, p, x, y, z, padded);
    double seconds = 1e9;
    for (int iteration = 0; iteration < 2; ++iteration) {
      const auto start = std::chrono::steady_clock::now();
      method->run();
      seconds =
          std::min(seconds, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    if (best == nullptr || seconds < least) best = method, least = seconds;
  }
  return best;
}

std::string text(const lengths& l) { return fmt::format("{}", fmt::join(l, "x")); }

template <class T>
bool within(const operand<T>& a, const operand<T>& b, double bound) {
  using R = typename real_of<T>::type;
  const R *const p = reinterpret_cast<const R*>(a.data()), *const q = reinterpret_cast<const R*>(b.data());
  for (zor_int i = 0; i < a.count() * zor_int(sizeof(T) / sizeof(R)); ++i)
    if (!(std::abs(double(p[i]) - double(q[i])) <= bound)) return false;
  return true;
}

template <class T>
bench_case convolve(const environment& env, char type, zor::convolve_fn<T>* fn, const problem& p) {
  using R = typename real_of<T>::type;
  bench_case c;
  c.name = fmt::format("convolve {} {} by {}{}{}", type, text(p.x), text(p.y),
                       p.decimation > 1 ? fmt::format(" every {}th", p.decimation) : "",
                       p.threads > 0 ? fmt::format(" {} threads", p.threads) : "");
  c.flops = double(product(p.x)) * double(product(p.y)) / std::pow(double(p.decimation), double(p.x.size())) *
            (is_complex<T> ? 8 : 2);
  c.single_precision = is_single<T>;
  c.threads = p.threads;
  c.setup = [&env, type, fn, p] {
    const operand<T> x(product(p.x), 0), y(product(p.y), 1), z(product(p.wanted()), 2),
        whole(product(p.full()), 3);
    fill(x, 1), fill(y, 2);
    const int32_t threads = p.threads > 0 ? p.threads : env.opts.threads;
    std::vector<contender> all = {{"zor", [=](int64_t repeats) {
                                     zor_core_set_num_threads(threads);
                                     const lengths decimation(p.x.size(), p.decimation), shape = p.wanted();
                                     zor_conv_options options = {};
                                     options.decimation = decimation.data();
                                     for (int64_t i = 0; i < repeats; ++i)
                                       fn(int32_t(p.x.size()), p.x.data(), x.data(), p.y.data(), y.data(),
                                          shape.data(), z.data(), &options);
                                   }}};
    if (p.threads > 1 || p.decimation > 1) {
      // Beside the whole on one thread.
      all.push_back({"whole", [=](int64_t repeats) {
                       zor_core_set_num_threads(1);
                       const lengths shape = p.full();
                       for (int64_t i = 0; i < repeats; ++i)
                         fn(int32_t(p.x.size()), p.x.data(), x.data(), p.y.data(), y.data(), shape.data(),
                            whole.data(), nullptr);
                     }});
    }
    if (const fftw* f = find_fftw<R>(); f != nullptr && p.decimation == 1) {
      const auto method = fastest<T>(*f, p, x.data(), y.data(), whole.data());
      all.push_back({"fftw", [method, x, y, whole](int64_t repeats) {
                       for (int64_t i = 0; i < repeats; ++i) method->run();
                     }});
    }
    const double terms = double(product(p.wanted())) * double(product(p.y));
    if (convolution_loop* loop = find_convolution_loop(); loop != nullptr && terms < 1e9 && p.x.size() <= 2) {
      const bool plane = p.x.size() == 2;
      const convolution_job job = {type,       plane ? p.x[0] : 1, p.x.back(), plane ? p.y[0] : 1,
                                   p.y.back(), x.data(),           y.data(),   whole.data()};
      all.push_back({"loop", [loop, job, x, y, whole](int64_t repeats) {
                       for (int64_t i = 0; i < repeats; ++i) loop(job);
                     }});
    }
    // Random values: the norms of the operands bound the error of every method.
    const double bound =
        50 * (sizeof(R) == 8 ? 0x1p-53 : 0x1p-24) * std::sqrt(double(product(p.x)) * double(product(p.y)));
    if (p.decimation > 1) return prepared{all, {}, ""};
    all[0].run(1);
    return keep_agreeing(all, [&](const contender& other) {
      std::memset(static_cast<void*>(whole.data()), 0, size_t(whole.count()) * sizeof(T));
      other.run(1);
      return within(z, whole, bound);
    });
  };
  return c;
}

template <class Add>
void add_all(const Add& add, const problem& p) {
  add('s', zor_convolve_s, p);
  add('d', zor_convolve_d, p);
  add('c', zor_convolve_c, p);
  add('z', zor_convolve_z, p);
}

}  // namespace

std::vector<bench_case> conv1_cases(const environment& env) {
  std::vector<bench_case> cases;
  const auto add = [&]<class T>(char type, zor::convolve_fn<T>* fn, const problem& p) {
    cases.push_back(convolve<T>(env, type, fn, p));
  };
  if (env.opts.quick) {
    add_all(add, {{500}, {7}});
    add('d', zor_convolve_d, {{4000}, {300}});
    return cases;
  }
  for (const zor_int n : {16, 63, 200}) add_all(add, {{100000}, {n}});
  for (const zor_int n : {512, 4096, 65536}) add_all(add, {{1000000}, {n}});
  for (const zor_int n : {1000, 100000}) add_all(add, {{n}, {n}});
  add('d', zor_convolve_d, {{1000000}, {512}, 16});
  add('d', zor_convolve_d, {{1000000}, {16}, 1, 2});
  add('d', zor_convolve_d, {{1000000}, {512}, 1, 2});
  return cases;
}

std::vector<bench_case> convnd_cases(const environment& env) {
  std::vector<bench_case> cases;
  const auto add = [&]<class T>(char type, zor::convolve_fn<T>* fn, const problem& p) {
    cases.push_back(convolve<T>(env, type, fn, p));
  };
  if (env.opts.quick) {
    add_all(add, {{40, 30}, {5, 4}});
    add('d', zor_convolve_d, {{20, 20, 20}, {9, 9, 9}});
    return cases;
  }
  for (const zor_int n : {7, 64, 1024}) {
    add('s', zor_convolve_s, {{1024, 1024}, {n, n}});
    add('d', zor_convolve_d, {{1024, 1024}, {n, n}});
    add('z', zor_convolve_z, {{1024, 1024}, {n, n}});
  }
  add('s', zor_convolve_s, {{128, 128, 128}, {16, 16, 16}});
  add('d', zor_convolve_d, {{128, 128, 128}, {16, 16, 16}});
  add('d', zor_convolve_d, {{1024, 1024}, {7, 7}, 1, 2});
  add('d', zor_convolve_d, {{1024, 1024}, {64, 64}, 1, 2});
  return cases;
}

}  // namespace zor_bench
