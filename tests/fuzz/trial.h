// SPDX-License-Identifier: MIT
// The frame of the fuzz driver, as the rows of a family see it. A row is a function of one trial: it draws
// the arguments by name, asks for operands, calls the routine once, and compares with a reference. The frame
// places the operands against unmapped pages, fills the gaps between their elements, sets rounding and
// denormal modes and threads, and repeats the trial under other conditions. All draws and operands come
// before the first call.
#pragma once

#include <complex>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/elements.h"
#include "tests/support/pass.h"
#include "zor/types.h"

namespace zor_fuzz {

using zor_test::argument_list, zor_test::list_of, zor_test::when;
using zor_test::part, zor_test::parts, zor_test::random_bits, zor_test::real, zor_test::reals;
using wide = std::complex<long double>;

// |re| + |im|, which bounds every part of a product.
inline long double magnitude(wide x) { return std::abs(x.real()) + std::abs(x.imag()); }
// A complex product without the library's care for infinities.
inline wide times(wide x, wide y) {
  return {x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real()};
}
inline wide conj_when(bool wanted, wide x) { return wanted ? std::conj(x) : x; }
template <class T>
wide widened(const T& x) {
  return {part(x, 0), part(x, 1)};
}

// What a trial has drawn. Shrinking moves a value towards its simplest.
struct drawn {
  std::string name;
  int64_t value, simplest;
};

class trial;

// One exported name: its group is the signature it shares with others.
struct row {
  const char* name;
  void (*run)(trial& t);
  const char* group = nullptr;
  enum { serial, threaded, checked, with_status } kind = serial;
  // Rows of one body tell by these what they call, and as what.
  void (*routine)() = nullptr;
  char letters[5] = {};
};
std::vector<row>& all_rows();

// Rows of one signature, registered by an object of this type at namespace scope. Only routines that divide
// their work run under several numbers of threads, and only those that check their arguments get bad ones,
// which they report to the error handler or by their status.
struct rows {
  rows(const char* group, decltype(row::kind) kind, const std::vector<row>& list);
  // Rows that tell their group themselves.
  template <size_t N>
  explicit rows(const row (&list)[N]) {
    all_rows().insert(all_rows().end(), list, list + N);
  }
};
inline constexpr auto serial = row::serial, threaded = row::threaded, checked = row::checked,
                      with_status = row::with_status;

struct test_case {
  const row* what;
  uint64_t seed;
  std::vector<drawn> draws;  // values to use in place of drawn ones, by name
  std::string text() const;
};

struct outcome {
  uint64_t hash;      // of outputs and results
  unsigned flags;     // exceptions raised
  std::string fault;  // empty when all is well
  // In what it differs from the outcome of the same case elsewhere; empty when in nothing.
  std::string difference(const outcome& other) const;
};
outcome run(const test_case& c);
// The case with all its draws, found without calling the routine.
test_case with_all_draws(const test_case& c);

enum class use { in, out, inout };

// Arguments by what they are: an option letter, which CBLAS numbers from `first` in the order of `all`, a
// leading dimension, the increment of a vector. A plain zor_int is a size.
struct option {
  char letter;
  const char* all;
  int first;
  operator char() const { return letter; }
  bool is(char upper_case) const { return (letter & ~('a' - 'A')) == upper_case; }
};
template <int Kind>
struct integer_argument {
  zor_int value;
  operator zor_int() const { return value; }
};
using leading_dimension = integer_argument<0>;
using increment_of = integer_argument<1>;
using any = integer_argument<2>;  // never made a bad one

// An operand in memory: `count` elements of which those marked live belong to it; the others are gaps.
struct region {
  std::string name;
  use how;
  size_t part_bytes, parts, count;
  char* data;
  std::vector<bool> live;
  std::vector<char> before;  // the contents before the call, margins included
};

// A view of a region as a vector or a column-major matrix; element (i, j) stands at origin + i s0 + j s1.
template <class T>
class operand {
 public:
  operand(region* r, zor_int origin, zor_int s0, zor_int s1) : r_(r), origin_(origin), s0_(s0), s1_(s1) {}
  T* data() const { return reinterpret_cast<T*>(r_->data); }
  operator T*() const { return data(); }
  auto arguments() const { return list_of(data()); }
  zor_int at(zor_int i, zor_int j = 0) const { return origin_ + i * s0_ + j * s1_; }
  T before(zor_int i, zor_int j = 0) const;
  T now(zor_int i, zor_int j = 0) const { return data()[at(i, j)]; }
  wide operator()(zor_int i, zor_int j = 0) const { return widened(before(i, j)); }
  // Replaces the value that the frame has chosen.
  void set(zor_int i, zor_int j, const T& value);
  // Element (i, j) is a gap.
  void spare(zor_int i, zor_int j) { r_->live[size_t(at(i, j))] = false; }

 private:
  region* r_;
  zor_int origin_, s0_, s1_;
};

// A vector and its increment, a matrix and its leading dimension: two arguments each.
template <class T>
struct strided : operand<T> {
  increment_of inc;
  auto arguments() const { return list_of(this->data(), inc); }
};
template <class T>
struct dense : operand<T> {
  leading_dimension ld;
  auto arguments() const { return list_of(this->data(), ld); }
};

class trial {
 public:
  struct conditions {
    bool dry, first;
  };
  trial(const test_case& c, conditions how);
  trial(const trial&) = delete;
  ~trial();

  // Draws. A name occurs once in a trial; case texts show it.
  zor_int draw(const char* name, zor_int low, zor_int high, zor_int simplest);
  zor_int size(const char* name, zor_int high, zor_int low = 0);  // mostly small
  increment_of increment(const char* name, bool zero = false);
  leading_dimension leading(const char* name, zor_int rows);  // for so many
  option letter(const char* name, const char* letters);
  template <class T>
  T scalar(const char* name);  // often 0, 1 or -1
  // Whether the argument at this position of a checked routine is to be a bad one: the routine then has to
  // report it, and to write nothing.
  bool spoils(int position);
  // The bad one of so many arguments, from 1; mostly none, which is 0.
  int spoiled(int arguments) {
    for (int position = 1; position <= arguments; ++position)
      if (spoils(position)) return position;
    return 0;
  }
  template <class V>
  V argument(int position, V good, V bad) {
    return spoils(position) ? bad : good;
  }
  random_bits random(const char* name) const;  // for patterns, which no shrinking changes
  bool plain_data() const { return data_ < 3; }

  // Operands. An `out` operand must be written whole and not be read.
  template <class T>
  operand<T> vector(const char* name, use how, zor_int n, zor_int inc = 1, size_t alignment = 1);
  template <class T>
  strided<T> strided_vector(const char* name, use how, zor_int n, bool zero = false) {
    const increment_of inc = increment((std::string("inc") + name).c_str(), zero);
    return {vector<T>(name, how, n, inc), inc};
  }
  template <class T>
  dense<T> matrix(const char* name, use how, zor_int m, zor_int n) {
    return matrix<T>(name, how, m, n, leading((std::string("ld") + name).c_str(), m));
  }
  template <class T>
  dense<T> matrix(const char* name, use how, zor_int m, zor_int n, zor_int ld);
  // `count` elements, those for which live(i) holds.
  template <class T, class Live>
  operand<T> scattered(const char* name, use how, zor_int count, const Live& live, size_t alignment = 1);
  template <class I>
  const I* integers(const char* name, const std::vector<I>& values);
  template <class I>
  I* room(const char* name, use how, size_t count);  // for integers

  // Runs f under the modes of the trial. `prepare` keeps the exception flags out of the hash.
  template <class F>
  void call(const F& f) {
    enter();
    f();
    leave(true);
  }
  template <class F>
  void prepare(const F& f) {
    enter();
    f();
    leave(false);
  }
  // Calls a routine by function pointer. Values become what its parameters ask for, operands their arguments.
  // A checked routine may get a bad argument; a BLAS routine is called through the adapters of libblas too.
  template <class R, class... P, class... A>
  R invoke(R (*routine)(P...), const A&... arguments);

  // Checks, after the call.
  bool first() const { return how_.first; }
  bool refused() const { return refused_; }
  bool checking() const { return how_.first && data_ != tiny && !refused_; }
  void expect(bool good, const std::string& what);
  // value is the reference but for the rounding of so many terms of this magnitude in all.
  template <class T>
  void near(const T& value, wide reference, long double size, zor_int terms, const char* what, zor_int i = 0,
            zor_int j = 0);
  // A result that is returned.
  template <class T>
  void result(const T& value);
  // For a product of many elements: body(i, j) for some of them, all when they are few.
  template <class Body>
  void some_of(zor_int m, zor_int n, const Body& body) const;

  void finish();  // gaps, inputs and margins are untouched, outputs are written

  const std::vector<drawn>& draws() const { return draws_; }
  int threads() const { return threads_; }
  const row& what() const { return *case_.what; }
  const char* name() const { return what().name; }
  outcome seen() const { return {hash_, flags_, fault}; }
  std::string fault;

 private:
  enum { integer, unit, spread, special, tiny, mostly_zero };

  zor_int record(const char* name, zor_int value, zor_int low, zor_int high, zor_int simplest);
  region* place(const char* name, use how, size_t part_bytes, size_t part_count, zor_int count,
                std::vector<bool> live, size_t alignment);
  double value(random_bits& r, int min_exponent) const;
  void fill(region* r);
  void enter();
  void leave(bool flags);
  void mix(uint64_t x);
  void compare(long double value, long double reference, long double allowed, const char* what, zor_int i,
               zor_int j);

  template <class R, class... P, class... A, size_t... i>
  R invoke_listed(R (*routine)(P...), argument_list<A...> list, std::index_sequence<i...>);
  template <class A>
  void spoil(int position, A* argument);
  // The routine under another library's name, null when it has none there.
  void* adapter(zor_int kind) const;

  const test_case& case_;
  conditions how_;
  std::vector<drawn> draws_;
  std::vector<std::unique_ptr<region>> regions_;
  zor_int rounding_, denormals_, threads_ = 1, data_;
  unsigned saved_modes_ = 0, modes_ = 0;
  unsigned short saved_x87_ = 0;
  uint64_t hash_ = 0x9E3779B97F4A7C15u;
  unsigned flags_ = 0;
  int spoiled_ = -1;  // the position of the bad argument, if there is one
  bool refused_ = false;
};

template <class T>
T operand<T>::before(zor_int i, zor_int j) const {
  T e;
  const size_t margin = (r_->before.size() - r_->count * sizeof(T)) / 2;
  std::memcpy(&e, r_->before.data() + margin + size_t(at(i, j)) * sizeof(T), sizeof e);
  return e;
}

template <class T>
void operand<T>::set(zor_int i, zor_int j, const T& value) {
  data()[at(i, j)] = value;
}

template <class T, class Live>
operand<T> trial::scattered(const char* name, use how, zor_int count, const Live& live, size_t alignment) {
  std::vector<bool> marks(size_t(count > 0 ? count : 0));
  for (size_t i = 0; i < marks.size(); ++i) marks[i] = live(zor_int(i));
  return {place(name, how, sizeof(real<T>), parts<T>, count, std::move(marks), alignment), 0, 1, 0};
}

template <class T>
operand<T> trial::vector(const char* name, use how, zor_int n, zor_int inc, size_t alignment) {
  const zor_int step = inc < 0 ? -inc : inc, count = n > 0 ? 1 + (n - 1) * step : 0;
  scattered<T>(
      name, how, count, [&](zor_int i) { return step == 0 || i % step == 0; }, alignment);
  return {regions_.back().get(), inc < 0 && n > 0 ? (n - 1) * step : 0, inc, 0};
}

template <class T>
dense<T> trial::matrix(const char* name, use how, zor_int m, zor_int n, zor_int ld) {
  const zor_int count = m > 0 && n > 0 ? (n - 1) * ld + m : 0;
  scattered<T>(name, how, count, [&](zor_int i) { return i % ld < m; });
  return {{regions_.back().get(), 0, 1, ld}, {ld}};
}

template <class I>
I* trial::room(const char* name, use how, size_t count) {
  return reinterpret_cast<I*>(
      place(name, how, sizeof(I), 1, zor_int(count), std::vector<bool>(count, true), 1)->data);
}

template <class I>
const I* trial::integers(const char* name, const std::vector<I>& values) {
  I* const data = room<I>(name, use::in, values.size());
  std::copy(values.begin(), values.end(), data);
  return data;
}

template <class T>
T trial::scalar(const char* name) {
  const zor_int kind = draw(name, 0, 5, 1);
  random_bits r = random((std::string(name) + "'s value").c_str());
  T s = zor_test::scalar<T>(kind == 0 ? 0 : kind == 2 ? -1 : 1, 0);
  for (size_t h = 0; kind > 2 && h < parts<T>; ++h)
    reals(&s)[h] = real<T>(value(r, std::numeric_limits<real<T>>::min_exponent));
  return s;
}

template <class T>
void trial::near(const T& value, wide reference, long double size, zor_int terms, const char* what, zor_int i,
                 zor_int j) {
  using limits = std::numeric_limits<real<T>>;
  if (!checking() || !(size < limits::max() / 8)) return;
  const long double allowed = (long double)(terms + 8) * (2 * limits::epsilon() * size + 4 * limits::min());
  compare(part(value, 0), reference.real(), allowed, what, i, j);
  if (parts<T> == 2) compare(part(value, 1), reference.imag(), allowed, what, i, j);
}

template <class T>
void trial::result(const T& value) {
  if constexpr (std::is_integral_v<T>) {
    mix(uint64_t(value));
  } else {
    for (size_t h = 0; h < parts<T>; ++h) mix(zor_test::bits(reals(&value)[h]));
  }
}

template <class Body>
void trial::some_of(zor_int m, zor_int n, const Body& body) const {
  constexpr zor_int enough = 400;
  random_bits r = random("sample");
  if (!checking() || m < 1 || n < 1) return;
  if (m * n > enough) {
    body(m - 1, n - 1);
    for (zor_int s = 0; s < enough / 2; ++s) body(r.between(0, m - 1), r.between(0, n - 1));
    return;
  }
  for (zor_int j = 0; j < n; ++j)
    for (zor_int i = 0; i < m; ++i) body(i, j);
}

// A value and the magnitude of its terms.
struct sum_of_terms {
  sum_of_terms(std::initializer_list<wide> list = {}) {
    for (const wide term : list) add(term);
  }
  void add(wide term, bool counts = true) {
    if (counts) value += term;
    size += magnitude(term);
    ++terms;
  }
  template <class T>
  void compare(trial& t, const T& got, const char* what, zor_int i, zor_int j = 0) const {
    t.near(got, value, size, terms, what, i, j);
  }
  wide value = 0;
  long double size = 0;
  zor_int terms = 0;
};

}  // namespace zor_fuzz

#include "tests/fuzz/invoke.h"
