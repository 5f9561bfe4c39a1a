// SPDX-License-Identifier: MIT
// The digest battery: fixed inputs at fixed alignments, one digest for each exported name.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "bench/operands.h"
#include "tools/digest.h"
#include "zor/types.h"

namespace zor_tools {

// Collects what the calls of each name return.
class recorder {
 public:
  // Results from here on belong to that name. False when it is recorded already (a name that both libraries
  // export is one symbol in a program).
  bool begin(const char* name);
  template <class T>
  void add(const T* values, size_t count) {
    digest_.add(values, count);
  }
  // Indices of either width are recorded alike.
  void add(const int32_t* values, size_t count) {
    for (size_t i = 0; i < count; ++i) add(int64_t(values[i]));
  }
  template <class T>
  void add(T value) {
    digest_.add(&value, 1);
  }

  struct row {
    std::string name;
    std::string digest;
  };
  std::vector<row> take();

 private:
  void close();
  digest digest_;
  std::vector<row> rows_;
  bool open_ = false;
};

// Numbers from integer arithmetic alone (a linear congruential generator, its high bits), so that they are
// the same everywhere.
class numbers {
 public:
  explicit numbers(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}

  // Uniform in 0 to limit-1.
  uint64_t below(uint64_t limit) { return step() % limit; }

  // In (-32, 32): 53 random bits and an exponent from -6 to 5, so that every sum of two rounds in double
  // precision, and the values themselves in single.
  double real() {
    const int64_t fraction = int64_t(step() << 21 | step() >> 11) - (int64_t(1) << 52);
    return double(fraction) * 0x1p-52 * double(1u << below(12)) * 0x1p-6;
  }

  // Now and then one of the values that a shortcut would treat otherwise: zeros, infinities, NaN, subnormals.
  template <class R>
  R special() {
    using limits = std::numeric_limits<R>;
    const R values[] = {0,
                        R(-0.0),
                        limits::infinity(),
                        -limits::infinity(),
                        limits::quiet_NaN(),
                        limits::denorm_min(),
                        -limits::min() / 2,
                        limits::max() / 4};
    return below(6) == 0 ? values[below(std::size(values))] : R(real());
  }

 private:
  uint64_t step() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return state_ >> 32;
  }
  uint64_t state_;
};

using zor_bench::is_complex;
template <class T>
using real_t = typename zor_bench::real_of<T>::type;

template <class T>
T scalar(double re, double im) {
  if constexpr (is_complex<T>)
    return {real_t<T>(re), real_t<T>(im)};
  else
    return T(re);
}

enum class content { ordinary, special };

// A run of elements whose first one stands `shift` elements behind a 64-byte boundary.
template <class T>
class block {
 public:
  block(size_t count, size_t shift, numbers& source, content kind = content::ordinary)
      : storage_(count + shift + 64 / sizeof(T)), count_(count) {
    const size_t past = reinterpret_cast<uintptr_t>(storage_.data()) % 64 / sizeof(T);
    first_ = storage_.data() + (past == 0 ? 0 : 64 / sizeof(T) - past) + shift;
    using R = real_t<T>;
    R* values = reinterpret_cast<R*>(first_);
    for (size_t i = 0; i < count * (sizeof(T) / sizeof(R)); ++i)
      values[i] = kind == content::special ? source.special<R>() : R(source.real());
  }
  block(const block&) = delete;
  block& operator=(const block&) = delete;

  T* data() { return first_; }
  size_t size() const { return count_; }
  void record(recorder& out) const { out.add(first_, count_); }

 private:
  std::vector<T> storage_;
  size_t count_;
  T* first_;
};

// A family runs every name of its tables through its cases. A new one is a source file and a row here.
struct battery_family {
  const char* name;
  void (*run)(recorder& out);
};
void run_vector(recorder& out);
void run_gemm(recorder& out);
void run_matvec(recorder& out);
void run_level2(recorder& out);
void run_level3(recorder& out);
void run_spcsr(recorder& out);
void run_spcoo(recorder& out);
void run_spdia(recorder& out);
void run_spbsr(recorder& out);
void run_spsky(recorder& out);
void run_dft1(recorder& out);
void run_dftreal(recorder& out);
void run_dftnd(recorder& out);
void run_gmp(recorder& out);
void run_lapack(recorder& out);
void run_trans(recorder& out);
void run_xblas(recorder& out);
void run_spgemm(recorder& out);
void run_spconv(recorder& out);
void run_sweep(recorder& out);
void run_conv1(recorder& out);
void run_convnd(recorder& out);
void run_trig(recorder& out);
void run_poisson2(recorder& out);
void run_poisson3(recorder& out);
void run_sphere(recorder& out);
inline constexpr battery_family battery[] = {
    {"vector", run_vector},     {"gemm", run_gemm},       {"matvec", run_matvec}, {"level3", run_level3},
    {"spcsr", run_spcsr},       {"spcoo", run_spcoo},     {"spdia", run_spdia},   {"spbsr", run_spbsr},
    {"spsky", run_spsky},       {"spgemm", run_spgemm},   {"spconv", run_spconv}, {"sweep", run_sweep},
    {"dft1", run_dft1},         {"dftreal", run_dftreal}, {"dftnd", run_dftnd},   {"gmp", run_gmp},
    {"lapack", run_lapack},     {"trans", run_trans},     {"xblas", run_xblas},   {"conv1", run_conv1},
    {"convnd", run_convnd},     {"level2", run_level2},   {"trig", run_trig},     {"poisson2", run_poisson2},
    {"poisson3", run_poisson3}, {"sphere", run_sphere}};

}  // namespace zor_tools
