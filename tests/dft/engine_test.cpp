// SPDX-License-Identifier: MIT
// The transform engine: every flavour, method, direction and placement against wide arithmetic, between guard
// pages. Linked with the objects of one build of the kernel library, whose engine is not exported.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <complex>

#include "dft/line.h"
#include "tests/ref/dft.h"
#include "tests/support/operand.h"

namespace {

using namespace zor::dft;
using zor_ref::wide;
using zor_test::guarded;
using wides = std::vector<wide>;

constexpr bool is_real(int f) { return f == flavour_s || f == flavour_d; }
constexpr bool is_split(int f) { return f == flavour_cs || f == flavour_zs; }
constexpr bool is_unordered(int f) { return f == flavour_c_unordered || f == flavour_z_unordered; }

// A line of n values as a flavour keeps it, each array ending, or else beginning, at a guard page.
template <class R>
struct line {
  int f, n;
  guarded<R> first, second;
  split_pair<R> pair;
  line(int flavour, int length, bool at_end = true)
      : f(flavour),
        n(length),
        first(size_t(is_real(f) || is_split(f) ? n : 2 * n), at_end),
        second(size_t(is_split(f) ? n : 0), at_end),
        pair{first.data(), second.data()} {}
  void* address() { return is_split(f) ? static_cast<void*>(&pair) : first.data(); }

  void put(const wides& x, bool spectrum) {
    for (int k = 0; k < n; ++k) {
      const R re = R(x[size_t(k)].real()), im = R(x[size_t(k)].imag());
      if (is_split(f)) {
        first[size_t(k)] = re;
        second[size_t(k)] = im;
      } else if (!is_real(f)) {
        first[size_t(2 * k)] = re;
        first[size_t(2 * k + 1)] = im;
      } else if (!spectrum) {
        first[size_t(k)] = re;
      } else {
        const int at = k == 0 ? 0 : 2 * k == n ? 1 : 2 * k - n % 2;
        if (2 * k <= n) first[size_t(at)] = re;
        if (k > 0 && 2 * k < n) first[size_t(at + 1)] = im;
      }
    }
  }
  std::vector<R> values() const {
    std::vector<R> v(first.size() + second.size());
    std::copy_n(first.data(), first.size(), v.begin());
    std::copy_n(second.data(), second.size(), v.begin() + long(first.size()));
    return v;
  }
};

template <class R>
wides random_values(int n, uint64_t seed, bool real, bool spectrum) {
  zor_test::random_bits random(seed);
  wides x(static_cast<size_t>(n));
  for (wide& v : x) v = {R(random.unit()), real && !spectrum ? R(0) : R(random.unit())};
  if (!real || !spectrum) return x;
  x[0].imag(0);
  if (n % 2 == 0) x[size_t(n / 2)].imag(0);
  for (int k = 1; 2 * k < n; ++k) x[size_t(n - k)] = std::conj(x[size_t(k)]);
  return x;
}

template <class R>
double relative_error(const std::vector<R>& expected, const std::vector<R>& actual) {
  long double error = 0, norm = 0;
  for (size_t i = 0; i < expected.size(); ++i) {
    const long double d = (long double)actual[i] - expected[i];
    error += d * d;
    norm += (long double)expected[i] * expected[i];
  }
  return double(std::sqrt(error / norm)) / std::numeric_limits<R>::epsilon();
}

plan* build(int f, int n, int32_t flag = scale_none) {
  plan* p = nullptr;
  EXPECT_EQ(engines[f].build(&p, n, flag, 0), engine_done) << n;
  return p;
}
int32_t run(int f, int d, const void* in, void* out, const plan* p, void* work) {
  return d == forward ? engines[f].forward(in, out, p, work) : engines[f].backward(in, out, p, work);
}

// One flavour and length: both directions, in and out of place, work given or not, against the reference.
template <class R>
void check_length(int f, int n) {
  plan* p = build(f, n);
  ASSERT_NE(p, nullptr);
  int32_t bytes = -1;
  ASSERT_EQ(engines[f].work_size(p, &bytes), engine_done);
  guarded<char> work(static_cast<size_t>(bytes));
  for (int d : {forward, backward}) {
    const wides x = random_values<R>(n, uint64_t(97 * n + f), is_real(f), d == backward);
    const wides y = zor_ref::dft(x, d == forward ? -1 : 1);
    line<R> in(f, n, d == forward), out(f, n, d == backward), expected(f, n);
    in.put(x, d == backward);
    expected.put(y, d == forward);
    const std::vector<R> before = in.values();
    ASSERT_EQ(run(f, d, in.address(), out.address(), p, work.data()), engine_done);
    EXPECT_TRUE(zor_test::same_bits(before.data(), in.values().data(), before.size())) << "input written";
    // A chirp's spectrum computed in the precision of its table would show at 4097, by an error above 2.1.
    const double bound = p->conv_length != 0 && p->conv_length <= 262144 ? 1.9 : 3.0;
    EXPECT_LT(relative_error(expected.values(), out.values()), bound) << "direction " << d;
    const std::vector<R> first = out.values();
    ASSERT_EQ(run(f, d, in.address(), in.address(), p, nullptr), engine_done);
    EXPECT_TRUE(zor_test::same_bits(first.data(), in.values().data(), first.size())) << "in place " << d;
  }
  EXPECT_EQ(engines[f].release(p), engine_done);
}

void check(int f, int n) {
  SCOPED_TRACE(testing::Message() << "flavour " << f << " length " << n);
  f % 2 == 0 ? check_length<float>(f, n) : check_length<double>(f, n);
}

TEST(Engine, EveryShortLength) {
  for (int n = 1; n <= 220; ++n)
    for (int f = 0; f < flavour_count; ++f) check(f, n);
}

// Powers of two over all their methods, factors of every radix, primes, chirp lengths around the table's end.
TEST(Engine, LongLengths) {
  for (int n : {512, 1000, 1001, 1024, 1331, 2048, 2197, 2401, 3125, 4096, 4097, 4099, 4913, 5000, 8192,
                16384, 32768, 65536})
    for (int f = 0; f < flavour_c_unordered; ++f) check(f, n);
  for (int n : {12155, 12288, 10403, 17017, 30030, 3 * 262144, 262144, 524288})
    check(n % 2 == 0 ? flavour_z : flavour_d, n);
}

// The first frequency is a plain sum, which a directed mode bounds; the plan was built in another mode.
TEST(Engine, FollowsTheCallersRounding) {
  for (int n : {16, 17, 60, 89, 128, 1000, 1001, 4096, 32768}) {
    SCOPED_TRACE(n);
    plan* p = build(flavour_z, n);
    wides x = random_values<double>(n, 7, true, false);
    wide sum = 0;
    for (wide& v : x) sum += v = double(v.real() + 2);
    line<double> in(flavour_z, n), out(flavour_z, n);
    in.put(x, false);
    double first[2];
    for (const int mode : {FE_DOWNWARD, FE_UPWARD}) {
      std::fesetround(mode);
      run(flavour_z, forward, in.address(), out.address(), p, nullptr);
      EXPECT_EQ(mode, std::fegetround());
      std::fesetround(FE_TONEAREST);
      first[mode == FE_UPWARD] = out.first[0];
    }
    EXPECT_LT((long double)(first[0]), sum.real());
    EXPECT_GT((long double)(first[1]), sum.real());
    EXPECT_NEAR(first[0], first[1], 1e-13 * n);
    engines[flavour_z].release(p);
  }
}

// An impulse at 1 gives every root of unity once, in the order of the digits of a place; backward undoes it.
TEST(Engine, UnorderedLeavesDigitsReversed) {
  const struct {
    int n;
    std::vector<int> digits;  // radices, that of the fastest digit of a place first
  } cases[] = {{5005, {5, 7, 11, 13}},
               {6000, {4, 4, 3, 5, 5, 5}},
               {9240, {2, 4, 3, 5, 7, 11}},
               {12150, {2, 3, 3, 3, 3, 3, 5, 5}},
               {17 * 19 * 23, {17, 19, 23}}};
  for (const auto& [n, digits] : cases) {
    SCOPED_TRACE(n);
    plan* p = build(flavour_z_unordered, n, scale_backward_n);
    EXPECT_EQ(p->unordered, 1);
    line<double> x(flavour_z_unordered, n);
    for (double& v : x.first) v = 0;
    x.first[2] = 1;
    run(flavour_z_unordered, forward, x.address(), x.address(), p, nullptr);
    for (int place = 0; place < n; ++place) {
      int frequency = 0, rest = place;
      for (int radix : digits) {
        frequency = frequency * radix + rest % radix;
        rest /= radix;
      }
      ASSERT_NEAR(x.first[size_t(2 * place)], std::cos(2 * M_PI * frequency / n), 1e-12) << place;
      ASSERT_NEAR(x.first[size_t(2 * place + 1)], -std::sin(2 * M_PI * frequency / n), 1e-12) << place;
    }
    run(flavour_z_unordered, backward, x.address(), x.address(), p, nullptr);
    for (int j = 0; j < n; ++j) {
      ASSERT_NEAR(x.first[size_t(2 * j)], j == 1, 1e-14);
      ASSERT_NEAR(x.first[size_t(2 * j + 1)], 0, 1e-14);
    }
    engines[flavour_z_unordered].release(p);
  }
}

template <class R>
void check_fixed(fixed_kernel* (*find)(int32_t, direction)) {
  int found = 0;
  for (int n = 1; n <= 200; ++n) {
    SCOPED_TRACE(n);
    for (direction d : {forward, backward}) {
      fixed_kernel* kernel = find(n, d);
      if (kernel == nullptr) continue;
      ++found;
      const wides x = random_values<R>(n, uint64_t(n), false, false);
      line<R> in(flavour_z, n), out(flavour_z, n), expected(flavour_z, n);
      in.put(x, false);
      wides y = zor_ref::dft(x, d == forward ? -1 : 1);
      for (wide& v : y) v *= 0.25L;
      expected.put(y, true);
      kernel(in.address(), out.address(), 0.25);
      EXPECT_LT(relative_error(expected.values(), out.values()), 3.0);
      kernel(in.address(), in.address(), 0.25);
      EXPECT_TRUE(zor_test::same_bits(out.first.data(), in.first.data(), out.first.size()));
    }
  }
  EXPECT_EQ(found, 2 * 19);
}
TEST(Engine, FixedKernels) {
  check_fixed<float>(fixed_complex_s);
  check_fixed<double>(fixed_complex_d);
}

// An impulse, whose first frequency is the scale, and the codes of calls that are refused.
template <class R>
void check_scales(int f) {
  const struct {
    int32_t flag;
    double scale[2];
  } scales[] = {{scale_none, {1, 1}},
                {scale_forward_n, {1 / 25.0, 1}},
                {scale_backward_n, {1, 1 / 25.0}},
                {scale_both_root, {0.2, 0.2}}};
  const engine& other = engines[(f + 1) % flavour_count];
  for (const auto& s : scales) {
    plan* p = build(f, 25, s.flag);
    line<R> in(f, 25), out(f, 25);
    wides impulse(25);
    impulse[0] = 1;
    in.put(impulse, false);
    void *x = in.address(), *y = out.address();
    for (const int d : {forward, backward}) {
      EXPECT_EQ(run(f, d, x, y, p, nullptr), engine_done);
      EXPECT_NEAR(out.first[0], s.scale[d == backward], 1e-7);
      EXPECT_EQ(run(f, d, nullptr, y, p, nullptr), engine_null);
      EXPECT_EQ(run(f, d, x, nullptr, p, nullptr), engine_null);
      EXPECT_EQ(run(f, d, x, y, nullptr, nullptr), engine_null);
    }
    EXPECT_EQ(other.forward(x, y, p, nullptr), engine_bad_kind);
    EXPECT_EQ(other.release(p), engine_bad_kind);
    int32_t bytes;
    EXPECT_EQ(other.work_size(p, &bytes), engine_bad_kind);
    EXPECT_EQ(engines[f].work_size(p, nullptr), engine_null);
    EXPECT_EQ(engines[f].release(p), engine_done);
  }
}

TEST(Engine, CodesAndScales) {
  for (int f = 0; f < flavour_count; ++f) {
    SCOPED_TRACE(f);
    plan* p = nullptr;
    EXPECT_EQ(engines[f].build(nullptr, 8, scale_none, 0), engine_null);
    EXPECT_EQ(engines[f].build(&p, 0, scale_none, 0), engine_bad_size);
    EXPECT_EQ(engines[f].build(&p, -5, scale_none, 0), engine_bad_size);
    for (int32_t flag : {0, 3, 5, 9}) EXPECT_EQ(engines[f].build(&p, 8, flag, 0), engine_bad_flag);
    const int32_t reach = f % 2 == 0 ? 2 : 1;
    if (reach == 1) {
      EXPECT_EQ(engines[f].build(&p, 1 << 27, scale_none, 0), engine_bad_order);
    }
    EXPECT_EQ(engines[f].build(&p, reach * 67108864 + 1, scale_none, 0), engine_bad_size);
    EXPECT_EQ(engines[f].build(&p, 33554432 + 43, scale_none, 0), engine_bad_size);
    EXPECT_EQ(p, nullptr);
    if (reach == 1)
      check_scales<double>(f);
    else
      check_scales<float>(f);
    EXPECT_EQ(engines[f].release(nullptr), engine_null);
  }
}

// Many contiguous lines, in place and not, give the bits of one at a time.
void check_contiguous(int n) {
  SCOPED_TRACE(n);
  constexpr int f = flavour_z, count = 3;
  plan* p = build(f, n);
  int32_t bytes = 0;
  engines[f].work_size(p, &bytes);
  guarded<char> work(static_cast<size_t>(bytes));
  const int in_step = n + 2;
  guarded<double> x(size_t(2 * (count - 1) * in_step + 2 * n)), y(size_t(2 * count * n));
  zor_test::random_bits random(uint64_t{5});
  for (double& v : x) v = random.unit();
  const std::vector<double> given(x.data(), x.data() + x.size());
  for (const bool in_place : {false, true}) {
    double* out = in_place ? x.data() : y.data();
    const int step = in_place ? in_step : n;
    engines[f].lines({x.data(), out, in_step, step, count, backward, 0.3}, p, work.data());
    for (int c = 0; c < count; ++c) {
      line<double> one(f, n);
      std::copy_n(given.data() + 2 * c * in_step, 2 * n, one.first.data());
      run(f, backward, one.address(), one.address(), p, nullptr);
      for (int i = 0; i < 2 * n; ++i)
        ASSERT_EQ(zor_test::bits(one.first[size_t(i)] * 0.3), zor_test::bits(out[2 * c * step + i]))
            << "line " << c << " real " << i;
    }
  }
  engines[f].release(p);
}
TEST(Engine, ContiguousLinesGiveTheBitsOfOne) {
  for (int n : {1, 7, 64, 89, 97, 100, 1000, 4096, 4099, 32768}) check_contiguous(n);
}

// Columns give the bits of lines, in any stride, in place and not; lengths without a column form say so.
template <class R>
void check_columns(int f, int n) {
  SCOPED_TRACE(testing::Message() << "flavour " << f << " length " << n);
  plan* p = build(f, n);
  const column_block block = engines[f].block(p);
  const int columns = 2 * block.columns, in_stride = columns + 3, out_stride = columns + 1;
  guarded<R> x(size_t(2 * (n - 1) * in_stride + 2 * columns));
  guarded<R> y(size_t(2 * (n - 1) * out_stride + 2 * columns));
  std::vector<char> room(size_t(block.bytes) + 64);
  void* tile = room.data();
  size_t space = room.size();
  std::align(64, size_t(block.bytes), tile, space);
  for (const direction d : {forward, backward}) {
    zor_test::random_bits random(uint64_t(n + d));
    for (R& v : x) v = R(random.unit());
    const std::vector<R> given(x.data(), x.data() + x.size());
    const R factor = R(0.3);
    const auto run_columns = [&](guarded<R>& out, int stride) {
      engines[f].columns({x.data(), out.data(), in_stride, stride, columns, d, double(factor)}, p, tile);
      for (int c = 0; c < columns; ++c) {
        line<R> one(f, n);
        for (int i = 0; i < 2 * n; ++i)
          one.first[size_t(i)] = given[size_t(2 * (i / 2 * in_stride + c) + i % 2)];
        run(f, d, one.address(), one.address(), p, nullptr);
        for (int i = 0; i < 2 * n; ++i)
          ASSERT_EQ(zor_test::bits(R(one.first[size_t(i)] * factor)),
                    zor_test::bits(out[size_t(2 * (i / 2 * stride + c) + i % 2)]))
              << "column " << c << " value " << i / 2;
      }
    };
    run_columns(y, out_stride);
    run_columns(x, in_stride);
  }
  engines[f].release(p);
}
TEST(Engine, ColumnsGiveTheBitsOfLines) {
  for (int n : {2, 3, 8, 14, 15, 16, 18, 32, 33, 64, 66, 105, 128, 130, 243, 256, 1000, 1001, 1024, 4096}) {
    check_columns<double>(flavour_z, n);
    check_columns<float>(flavour_c, n);
  }
  for (int n : {1, 17, 89, 97, 34, 8192, 32768}) {
    plan* p = build(flavour_z, n);
    EXPECT_EQ(engines[flavour_z].block(p).columns, 0) << n;
    engines[flavour_z].release(p);
  }
}

// A digest over every flavour and many lengths, compared between builds by another program.
template <class R>
void digest_length(int f, int n, uint64_t* hash) {
  plan* p = build(f, n);
  for (int d : {forward, backward}) {
    line<R> in(f, n);
    in.put(random_values<R>(n, uint64_t(n), is_real(f), d == backward), d == backward);
    run(f, d, in.address(), in.address(), p, nullptr);
    for (R v : in.values()) *hash = (*hash ^ zor_test::bits(v)) * 1099511628211u;
  }
  engines[f].release(p);
}
TEST(Digest, AllFlavours) {
  uint64_t hash = 14695981039346656037u;
  std::vector<int> lengths = {512, 1024, 2048, 8192, 16384, 32768, 65536, 131072, 1 << 19};
  for (int n = 1; n < 140000; n += n < 200 ? 1 : n < 5000 ? 211 : n / 3) lengths.push_back(n);
  for (int f = 0; f < flavour_count; ++f)
    for (int n : lengths) f % 2 == 0 ? digest_length<float>(f, n, &hash) : digest_length<double>(f, n, &hash);
  std::printf("digest %016llx\n", static_cast<unsigned long long>(hash));
}

}  // namespace
