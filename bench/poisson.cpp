// SPDX-License-Identifier: MIT
// Sine and cosine transforms beside FFTW's real-to-real transforms of the same kind, and the solvers beside
// the same method written on those with a plain tridiagonal loop.
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>

#include "bench/bench.h"
#include "bench/operands.h"
#include "bench/peers/fftw.h"
#include "zor/core.h"
#include "zor/signatures/poisson.h"
#include "zor/signatures/trig.h"

namespace zor_bench {
namespace {

// Kinds of FFTW, by the kinds of zor/trig.h from 1 on.
constexpr int their_kind[] = {0, 7, 3, 5, 4, 9, 8, 6, 10};
constexpr const char* kind_names[] = {"",       "DST-I",   "DCT-I",  "DCT-II", "DCT-III",
                                      "DST-II", "DST-III", "DCT-IV", "DST-IV"};

template <class R>
std::shared_ptr<void> plan_lines(const fftw& f, R* x, int m, int lines, int stride, int distance, int kind) {
  return {f.plan_many_r2r(1, &m, lines, x, nullptr, stride, distance, x, nullptr, stride, distance, &kind,
                          fftw_measure),
          f.destroy_plan};
}

template <class R>
zor_int make(zor_trig** t, zor_int kind, zor_int m) {
  if constexpr (sizeof(R) == 8)
    return zor_trig_create_d(t, kind, m);
  else
    return zor_trig_create_s(t, kind, m);
}
template <class R>
void run_ours(const zor_trig* t, R* x, zor_int lines, zor_int m, R scale) {
  if constexpr (sizeof(R) == 8)
    zor_trig_run_d(t, x, lines, 1, m, scale);
  else
    zor_trig_run_s(t, x, lines, 1, m, scale);
}

// Data are transformed again and again in place; the scale keeps them of one size on average.
template <class R>
bench_case lines_case(const environment& env, zor_int kind, zor_int n, zor_int lines) {
  const zor_int m = kind == ZOR_DST1 ? n - 1 : kind == ZOR_DCT1 ? n + 1 : n;
  bench_case c;
  c.name = fmt::format("{} {}{}", kind_names[kind], n, lines > 1 ? fmt::format(" x{}", lines) : "");
  c.flops = 2.5 * double(n) * std::log2(double(n)) * double(lines);
  c.bytes = 2.0 * double(m * lines) * sizeof(R);
  c.single_precision = sizeof(R) == 4;
  c.setup = [=, threads = env.opts.threads] {
    const operand<R> x(m * lines, 0), y(m * lines, 0), source(m * lines, 0);
    zor_trig* made = nullptr;
    make<R>(&made, kind, m);
    const std::shared_ptr<zor_trig> t(made, [](zor_trig* p) { zor_trig_free(&p); });
    std::vector<contender> all = {{"zor", [=](int64_t repeats) {
                                     zor_core_set_num_threads(threads);
                                     const R scale = R(1 / std::sqrt(2.0 * double(n)));
                                     for (int64_t i = 0; i < repeats; ++i)
                                       run_ours<R>(t.get(), x.data(), lines, m, scale);
                                   }}};
    const fftw* f = find_fftw<R>();
    std::shared_ptr<void> plan;
    if (f != nullptr) {
      plan = plan_lines<R>(*f, y.data(), int(m), int(lines), 1, int(m), their_kind[kind]);
      // Unscaled data would overflow: each run begins with the same.
      all.push_back({"fftw", [=](int64_t repeats) {
                       for (int64_t i = 0; i < repeats; ++i) {
                         if (i % 8 == 0) std::memcpy(y.data(), source.data(), size_t(m * lines) * sizeof(R));
                         f->execute(plan.get());
                       }
                     }});
    }
    fill(source, 1);
    std::memcpy(x.data(), source.data(), size_t(m * lines) * sizeof(R));
    return keep_agreeing(all, [&](const contender& other) {
      std::memcpy(x.data(), source.data(), size_t(m * lines) * sizeof(R));
      all[0].run(1);
      other.run(1);
      double worst = 0, largest = 0;
      for (zor_int i = 0; i < m * lines; ++i) {
        const double scaled = double(y.data()[i]) / std::sqrt(2.0 * double(n));
        worst = std::max(worst, std::fabs(scaled - double(x.data()[i])));
        largest = std::max(largest, std::fabs(scaled));
      }
      return worst <= largest * double(n) * (sizeof(R) == 8 ? 1e-14 : 1e-5);
    });
  };
  return c;
}

// Sides of all axes alike: values, derivatives, one of each, periodic.
struct sides {
  const char* name;
  zor_int first, last;
  int there,
      back;    // FFTW's kinds; its periodic transform is the discrete Hartley transform's half complex form
  bool inner;  // values at both ends are not transformed
};
constexpr sides conditions[] = {{"values", 0, 0, 7, 7, true},
                                {"derivatives", 1, 1, 3, 3, false},
                                {"mixed", 1, 0, 4, 5, false},
                                {"periodic", 2, 2, 0, 1, false}};

// The same method on their transforms: all axes but the last, then a tridiagonal loop along it, or all axes
// and a division (`whole`, and always in circles).
template <class R>
struct their_solver {
  const fftw& f;
  int axes, n[3];
  const sides& s;
  R* x;
  bool whole;
  std::vector<std::shared_ptr<void>> there, back;
  std::vector<R> lambda, r;

  int values() const { return s.inner ? n[0] - 1 : s.first == 1 && s.last == 1 ? n[0] + 1 : n[0]; }
  zor_int points() const { return zor_int(std::pow(double(n[0] + 1), axes) + 0.5); }
  void plan() {
    const int m = values(), width = n[0] + 1, first = s.inner ? 1 : 0;
    for (int a = 0; a < axes; ++a) {
      if (a + 1 == axes && !whole) break;
      int stride = 1;
      for (int i = 0; i < a; ++i) stride *= width;
      const int lines = a == 0 ? int(points() / width) : stride;
      const int rest = a == 1 && axes == 3 ? width : 1;
      for (int plane = 0; plane < rest; ++plane) {
        R* const at = x + first * stride + plane * stride * width;
        there.push_back(plan_lines<R>(f, at, m, lines, stride, a == 0 ? width : 1, s.there));
        back.push_back(plan_lines<R>(f, at, m, lines, stride, a == 0 ? width : 1, s.back));
      }
    }
    lambda.resize(size_t(width));
    if (!whole) r.resize(size_t(width) * size_t(width));
    for (int k = 0; k < width; ++k) {
      const double wave = s.first == 2        ? 2.0 * std::min(k, n[0] - k)
                          : s.first != s.last ? k + 0.5
                                              : double(k);
      const double root = 2 * std::sin(wave * 3.14159265358979324 / (2.0 * n[0]));
      lambda[size_t(k)] = R(root * root);
    }
  }
  // The systems of a row of modes; elements one step apart lie along the last axis.
  void eliminate(R* c, zor_int step, R rest, R factor) {
    const int width = n[0] + 1, first = s.inner ? 1 : 0, last = first + values();
    for (int k = first; k < last; ++k)
      for (int i = first; i < last; ++i) {
        R* const pivot = r.data() + zor_int(k) * width + i;
        const R before = k > first ? pivot[-width] : R(0), value = k > first ? c[step * (k - 1) + i] : R(0);
        *pivot = R(1) / (rest + lambda[size_t(i)] + R(2) - before);
        c[step * k + i] = (c[step * k + i] * factor + value) * *pivot;
      }
    for (int k = last - 2; k >= first; --k)
      for (int i = first; i < last; ++i) c[step * k + i] += r[size_t(k * width + i)] * c[step * (k + 1) + i];
  }
  void divide(R* c, zor_int step, R rest, R factor) {
    const int first = s.inner ? 1 : 0, last = first + values();
    for (int k = first; k < last; ++k)
      for (int i = first; i < last; ++i)
        c[step * k + i] *= factor / (rest + lambda[size_t(i)] + lambda[size_t(k)]);
  }
  void solve() {
    for (const auto& p : there) f.execute(p.get());
    const int width = n[0] + 1, first = s.inner ? 1 : 0;
    const zor_int step = points() / width;
    const R factor = R(1 / std::pow(s.first == 2 ? double(n[0]) : 2.0 * n[0], whole ? axes : axes - 1));
    for (int j = axes == 3 ? first : 0; j < (axes == 3 ? first + values() : 1); ++j) {
      const R rest = (axes == 3 ? lambda[size_t(j)] : R(0)) + R(0.5);
      if (whole)
        divide(x + zor_int(j) * width, step, rest, factor);
      else
        eliminate(x + zor_int(j) * width, step, rest, factor);
    }
    for (const auto& p : back) f.execute(p.get());
  }
};

// Solves with `made`, which the runner owns.
template <class R>
runner our_solves(zor_poisson* made, const operand<R>& f, int32_t threads) {
  const std::shared_ptr<zor_poisson> p(made, [](zor_poisson* q) { zor_poisson_free(&q); });
  return [=](int64_t repeats) {
    zor_core_set_num_threads(threads);
    for (int64_t i = 0; i < repeats; ++i) {
      if constexpr (sizeof(R) == 8)
        zor_poisson_solve_d(p.get(), f.data(), nullptr);
      else
        zor_poisson_solve_s(p.get(), f.data(), nullptr);
    }
  };
}

double seconds_of(const std::function<void()>& run) {
  double best = 1e9;
  for (int i = 0; i < 3; ++i) {
    const auto start = std::chrono::steady_clock::now();
    run();
    best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

template <class R>
bench_case solver_case(const environment& env, int axes, zor_int n, const sides& s) {
  bench_case c;
  c.name = fmt::format("{}-D {} {}", axes, n, s.name);
  const double points = std::pow(double(n + 1), axes);
  c.bytes = 2 * points * sizeof(R);
  c.single_precision = sizeof(R) == 4;
  c.setup = [=, &s, threads = env.opts.threads] {
    const double length = double(n);  // steps of 1
    zor_poisson_box box = {axes, {n, n, n}, {length, length, length}, {}, 0.5};
    for (int i = 0; i < 6; ++i) box.side[i] = i % 2 == 0 ? s.first : s.last;
    zor_poisson* made = nullptr;
    if constexpr (sizeof(R) == 8)
      zor_poisson_create_d(&made, &box);
    else
      zor_poisson_create_s(&made, &box);
    const operand<R> f(zor_int(points), 0), g(zor_int(points), 0);
    fill(f, 1);
    prepared ready;
    ready.contenders = {{"zor", our_solves(made, f, threads)}};
    // The plain loop has no rows of its own for sides of derivatives; with values and in circles it must
    // agree.
    const bool same_equations = s.inner || s.first == 2;
    if (const fftw* theirs = find_fftw<R>()) {
      // The faster of the two ways.
      std::shared_ptr<their_solver<R>> t;
      double least = 1e9;
      for (const bool whole : {true, false}) {
        if (!whole && s.first == 2) continue;
        const auto way = std::make_shared<their_solver<R>>(
            their_solver<R>{*theirs, axes, {int(n), int(n), int(n)}, s, g.data(), whole, {}, {}, {}, {}});
        way->plan();
        fill(g, 1);
        const double seconds = seconds_of([&] { way->solve(); });
        if (seconds < least) t = way;
        least = std::min(least, seconds);
      }
      fill(g, 1);
      ready.contenders[0].run(1);
      t->solve();
      double worst = 0, largest = 0;
      for (zor_int i = 0; i < zor_int(points); ++i) {
        if (i % (n + 1) == 0 || i % (n + 1) == n || i / (n + 1) % (n + 1) == 0 || i / (n + 1) % (n + 1) == n)
          continue;
        if (axes == 3 && (i < (n + 1) * (n + 1) || i >= n * (n + 1) * (n + 1))) continue;
        worst = std::max(worst, std::fabs(double(f.data()[i]) - double(g.data()[i])));
        largest = std::max(largest, std::fabs(double(f.data()[i])));
      }
      if (same_equations && !(worst <= largest * (sizeof(R) == 8 ? 1e-11 : 1e-3)))
        ready.left_out.push_back("fftw");
      else
        ready.contenders.push_back({"fftw", [t, g](int64_t repeats) {  // g holds what t transforms
                                      for (int64_t i = 0; i < repeats; ++i) t->solve();
                                    }});
    }
    const double copied = seconds_of([&] { std::memcpy(g.data(), f.data(), size_t(points) * sizeof(R)); });
    const double solved = seconds_of([&] { ready.contenders[0].run(1); });
    ready.note = fmt::format("the time of {:.1f} copies of the grid", solved / copied);
    return ready;
  };
  return c;
}

template <class R>
bench_case sphere_case(const environment& env, bool periodic) {
  bench_case c;
  c.name = periodic ? "globe 512x256" : "part 512x256";
  c.bytes = 2.0 * 513 * 257 * sizeof(R);
  c.single_precision = sizeof(R) == 4;
  c.setup = [=, threads = env.opts.threads] {
    zor_poisson_sphere sphere = {
        {512, 256}, {0, periodic ? 6.28318530717958648 : 2.0}, {0, 3.14159265358979324}, periodic, 1.0};
    if (!periodic) sphere.colatitude[0] = 0.5, sphere.colatitude[1] = 2.5;
    zor_poisson* made = nullptr;
    if constexpr (sizeof(R) == 8)
      zor_poisson_sphere_d(&made, &sphere);
    else
      zor_poisson_sphere_s(&made, &sphere);
    const operand<R> f(513 * 257, 0);
    fill(f, 1);
    prepared ready;
    ready.contenders = {{"zor", our_solves(made, f, threads)}};
    return ready;
  };
  return c;
}

}  // namespace

std::vector<bench_case> trig_cases(const environment& env) {
  std::vector<bench_case> cases;
  const std::vector<zor_int> lengths =
      env.opts.quick ? std::vector<zor_int>{64, 97}
                     : std::vector<zor_int>{64, 256, 997, 1000, 1024, 4096, 65536, 1 << 20};
  for (zor_int kind = ZOR_DST1; kind <= ZOR_DST4; ++kind) {
    for (const zor_int n : lengths) {
      cases.push_back(lines_case<double>(env, kind, n, 1));
      cases.push_back(lines_case<float>(env, kind, n, 1));
    }
    cases.push_back(lines_case<double>(env, kind, env.opts.quick ? 16 : 256, env.opts.quick ? 9 : 1000));
    cases.push_back(lines_case<float>(env, kind, env.opts.quick ? 16 : 256, env.opts.quick ? 9 : 1000));
  }
  return cases;
}

std::vector<bench_case> poisson2_cases(const environment& env) {
  std::vector<bench_case> cases;
  const std::vector<zor_int> sizes =
      env.opts.quick ? std::vector<zor_int>{24} : std::vector<zor_int>{256, 1024, 2000, 4096};
  for (const sides& s : conditions)
    for (const zor_int n : sizes) {
      cases.push_back(solver_case<double>(env, 2, n, s));
      cases.push_back(solver_case<float>(env, 2, n, s));
    }
  return cases;
}

std::vector<bench_case> poisson3_cases(const environment& env) {
  std::vector<bench_case> cases;
  const std::vector<zor_int> sizes =
      env.opts.quick ? std::vector<zor_int>{12} : std::vector<zor_int>{64, 128, 256};
  for (const sides& s : conditions)
    for (const zor_int n : sizes) {
      cases.push_back(solver_case<double>(env, 3, n, s));
      cases.push_back(solver_case<float>(env, 3, n, s));
    }
  return cases;
}

std::vector<bench_case> sphere_cases(const environment& env) {
  return {sphere_case<double>(env, true), sphere_case<double>(env, false), sphere_case<float>(env, true),
          sphere_case<float>(env, false)};
}

}  // namespace zor_bench
