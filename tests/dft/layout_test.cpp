// SPDX-License-Identifier: MIT
// Whole transforms of random shape through committed descriptors, against a direct sum in long double: ranks,
// strides, offsets, distances, placements, storages, packed formats, scales. Operands begin or end at guard
// pages; what is neither input nor output keeps its bits, and no flag is raised that the data do not cause.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "tests/ref/dft_layout.h"
#include "tests/support/elements.h"
#include "zor/core.h"
#include "zor/dft_kern.h"

namespace {

using zor_ref::add_side, zor_ref::box, zor_ref::complex, zor_ref::image, zor_ref::transform_case;
using zor_test::random_bits;

const long double untouched = -7.25e20L;
const long double pi = 3.14159265358979323846264338327950288L;

// The direct sum, dimension by dimension.
box direct_sum(box x, const std::vector<zor_int>& lengths, int sign) {
  zor_int below = 1;
  for (zor_int n : lengths) {
    box y(x.size()), root(static_cast<size_t>(n));
    for (zor_int k = 0; k < n; ++k) root[size_t(k)] = std::polar(1.0L, sign * 2 * pi * k / n);
    for (zor_int i = 0; i < zor_int(x.size()); ++i) {
      const zor_int k = i / below % n;
      complex sum = 0;
      for (zor_int j = 0; j < n; ++j) sum += x[size_t(i + (j - k) * below)] * root[size_t(j * k % n)];
      y[size_t(i)] = sum;
    }
    x = y;
    below *= n;
  }
  return x;
}

struct problem {
  image in, out;
  zor_int in_half = 0, out_half = 0;
};

// Random input and the output wanted. A backward real transform reads the spectrum of a real signal.
template <class R>
problem make_problem(const transform_case& s, bool backward, random_bits& random) {
  problem p;
  const auto reach = [&](const std::vector<zor_int>& strides, zor_int offset, zor_int distance) {
    zor_int last = offset + std::max<zor_int>(s.count - 1, 0) * distance;
    for (size_t i = 0; i < strides.size(); ++i) last += (s.lengths[i] - 1) * strides[i];
    return last + 1;
  };
  // In place the input's layout is the output's, but for a real transform with a complex spectrum.
  const bool one_layout = s.in_place() && !s.mixed();
  const auto& out_strides = one_layout ? s.in_strides : s.out_strides;
  const zor_int out_offset = one_layout ? s.in_offset : s.out_offset;
  const zor_int out_distance = one_layout ? s.in_distance : s.out_distance;
  if (s.storage == ZOR_DFT_REAL_REAL) {
    p.in_half = reach(s.in_strides, s.in_offset, s.in_distance);
    p.out_half = reach(out_strides, out_offset, out_distance);
  }
  const long double scale = R(backward ? s.backward_scale : s.forward_scale);
  for (zor_int t = 0; t < s.count; ++t) {
    box x(static_cast<size_t>(s.size()));
    for (complex& v : x) v = {R(random.unit()), s.real() ? R(0) : R(random.unit())};
    const box given = backward && s.real() ? direct_sum(x, s.lengths, -1) : x;
    box wanted = direct_sum(given, s.lengths, backward ? 1 : -1);
    for (complex& v : wanted) v *= scale;
    add_side(&p.in, s, given, backward, s.in_strides, s.in_offset + t * s.in_distance, p.in_half);
    add_side(&p.out, s, wanted, !backward, out_strides, out_offset + t * out_distance, p.out_half);
  }
  return p;
}

ZorDftDescriptor* make_descriptor(const transform_case& s, int32_t precision, int32_t threads) {
  ZorDftDescriptor* d = nullptr;
  EXPECT_EQ(
      0, zor_dft_create_descriptor_md(&d, precision, s.domain, zor_int(s.lengths.size()), s.lengths.data()));
  const auto set_strides = [&](int32_t parameter, const std::vector<zor_int>& of, zor_int offset) {
    std::vector<zor_int> last_first{offset};
    last_first.insert(last_first.end(), of.rbegin(), of.rend());
    EXPECT_EQ(0, zor_dft_set_value(d, parameter, last_first.data()));
  };
  const int32_t storage = s.real() ? ZOR_DFT_CONJUGATE_EVEN_STORAGE : ZOR_DFT_COMPLEX_STORAGE;
  EXPECT_EQ(0, zor_dft_set_value(d, storage, s.storage));
  if (s.packed()) {
    EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_PACKED_FORMAT, s.format));
  }
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_PLACEMENT, s.placement));
  set_strides(ZOR_DFT_INPUT_STRIDES, s.in_strides, s.in_offset);
  set_strides(ZOR_DFT_OUTPUT_STRIDES, s.out_strides, s.out_offset);
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_INPUT_DISTANCE, s.in_distance));
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_OUTPUT_DISTANCE, s.out_distance));
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_NUMBER_OF_TRANSFORMS, s.count));
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_FORWARD_SCALE, s.forward_scale));
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_BACKWARD_SCALE, s.backward_scale));
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_NUMBER_OF_USER_THREADS, zor_int(s.user_threads)));
  d->thread_limit = threads;
  EXPECT_EQ(0, zor_dft_commit_descriptor_core(&d, 0));
  return d;
}

template <class R>
void check_values(const transform_case& s, const image& wanted, const zor_test::guarded<R>& y) {
  long double power = 0, worst = 0;
  zor_int worst_at = -1;
  for (const auto& [i, v] : wanted) {
    const long double error = std::fabs((long double)(y[size_t(i)]) - v);
    power += v * v;
    if (error <= worst || worst != worst) continue;  // a NaN stays
    worst = error;
    worst_at = i;
  }
  if (worst_at < 0) return;
  const long double rms = std::sqrt(power / (long double)(wanted.size()));
  const long double eps = sizeof(R) == 4 ? 0x1p-24L : 0x1p-53L;
  EXPECT_LE(worst, 12 * eps * (4 + std::log2((long double)(s.size()))) * rms)
      << "at real " << worst_at << ": " << y[size_t(worst_at)] << " for " << wanted.at(worst_at);
}

template <class R>
struct operands {
  zor_test::guarded<R> a, b;  // b is not used in place
};

// Runs the problem on at most `threads` threads. Only the exception flags in `allowed` may be raised.
template <class R>
void run_on(const transform_case& s, const problem& p, bool backward, int32_t threads, int allowed,
            operands<R>* o) {
  for (R& v : o->a) v = R(untouched);
  for (R& v : o->b) v = R(untouched);
  for (const auto& [i, v] : p.in) o->a[size_t(i)] = R(v);
  ZorDftDescriptor* d = make_descriptor(s, sizeof(R) == 4 ? ZOR_DFT_SINGLE : ZOR_DFT_DOUBLE, threads);
  const auto compute = backward ? d->compute_backward : d->compute_forward;
  ASSERT_NE(compute, nullptr);
  R *a = o->a.data(), *b = o->b.data();
  const bool split = s.storage == ZOR_DFT_REAL_REAL;
  int32_t status = -1;
  EXPECT_EQ(0, ~allowed & zor_test::flags_of([&] {
              status = compute(d, a, split ? a + p.in_half : b, b, b + (s.in_place() ? 0 : p.out_half));
            }));
  ASSERT_EQ(0, status);
  EXPECT_EQ(0, zor_dft_free(&d));
}

template <class R>
void run_problem(const transform_case& s, bool backward, random_bits& random) {
  SCOPED_TRACE(s.text() + (backward ? " backward" : " forward") + (sizeof(R) == 4 ? " single" : " double"));
  const problem p = make_problem<R>(s, backward, random);
  const auto extent = [](const image& i, zor_int half) {
    return i.empty() ? std::max<zor_int>(2 * half, 1) : std::max(2 * half, i.rbegin()->first + 1);
  };
  const zor_int in_size = extent(p.in, p.in_half), out_size = extent(p.out, p.out_half);
  const size_t a_size = size_t(s.in_place() ? std::max(in_size, out_size) : in_size);
  const size_t b_size = size_t(s.in_place() ? 1 : out_size);
  const bool at_end = random.between(0, 1);  // which side the guard page is on
  operands<R> o{zor_test::guarded<R>(a_size, at_end), zor_test::guarded<R>(b_size, at_end)};
  // Zeros raise no flag: nothing between them enters the arithmetic.
  problem zeros = p;
  for (auto& [i, v] : zeros.in) v = 0;
  run_on(s, zeros, backward, 1, 0, &o);
  run_on(s, p, backward, 1, FE_INEXACT, &o);
  if (testing::Test::HasFatalFailure()) return;
  const zor_test::guarded<R>& y = s.in_place() ? o.a : o.b;
  check_values(s, p.out, y);
  for (size_t i = 0; i < y.size(); ++i) {
    if (p.out.count(zor_int(i)) || (s.in_place() && p.in.count(zor_int(i)))) continue;
    ASSERT_EQ(y[i], R(untouched)) << "written outside the output, at real " << i;
  }
  for (size_t i = 0; i < a_size && !s.in_place(); ++i)
    ASSERT_EQ(o.a[i], R(p.in.count(zor_int(i)) ? p.in.at(zor_int(i)) : untouched))
        << "input changed at " << i;
  if (s.user_threads > 1 || random.between(0, 2) != 0) return;
  operands<R> t{zor_test::guarded<R>(a_size, !at_end), zor_test::guarded<R>(b_size, !at_end)};
  run_on(s, p, backward, 3, FE_INEXACT, &t);
  if (testing::Test::HasFatalFailure()) return;
  const zor_test::guarded<R>& shared = s.in_place() ? t.a : t.b;
  for (const auto& [i, v] : p.out)
    ASSERT_TRUE(zor_test::same_bits(&y[size_t(i)], &shared[size_t(i)], 1)) << "three threads, at real " << i;
}

// Strides of the dimensions and the distance of the batch: nested in a random order with random gaps, or
// plain.
void random_layout(random_bits& random, const std::vector<zor_int>& lengths, zor_int count, bool plain,
                   std::vector<zor_int>* strides, zor_int* distance) {
  std::vector<size_t> order;
  for (size_t i = 0; i <= lengths.size(); ++i) order.push_back(i);
  for (size_t i = order.size() - 1; i > 0 && !plain; --i)
    std::swap(order[i], order[size_t(random.between(0, zor_int(i)))]);
  strides->resize(lengths.size());
  zor_int step = !plain && random.between(0, 3) == 0 ? random.between(2, 3) : 1;
  for (size_t i : order) {
    (i == lengths.size() ? *distance : (*strides)[i]) = step;
    step *= i == lengths.size() ? std::max<zor_int>(count, 1) : lengths[i];
    if (!plain) step += random.between(0, 2);
  }
}

transform_case random_case(random_bits& random, int32_t domain, int32_t storage, size_t rank) {
  static const zor_int lengths[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 15, 16, 20, 32, 33, 64, 67};
  static const zor_int longest[] = {16, 14, 8, 4};
  transform_case s{};
  s.domain = domain;
  s.storage = storage;
  s.placement = random.between(0, 1) ? ZOR_DFT_INPLACE : ZOR_DFT_NOT_INPLACE;
  s.format = s.mixed() ? int32_t(ZOR_DFT_FORMAT_HALF_COMPLEX)
                       : int32_t(random.between(ZOR_DFT_FORMAT_PADDED, ZOR_DFT_FORMAT_SECOND));
  for (size_t i = 0; i < rank; ++i) s.lengths.push_back(lengths[random.between(0, longest[rank - 1])]);
  s.count = random.between(0, 5) == 0 ? random.between(0, 21) : random.between(1, 3);
  s.user_threads = random.between(0, 3) == 0 ? 2 : 1;
  const bool plain = random.between(0, 2) == 0, scaled = random.between(0, 1);
  s.forward_scale = scaled ? 0.375 : 1.0;
  s.backward_scale = scaled ? 1.0 / double(s.size()) : 1.0;
  s.in_offset = plain ? 0 : random.between(0, 3);
  s.out_offset = plain ? 0 : random.between(0, 3);
  std::vector<zor_int> room = s.lengths;
  for (zor_int& n : room) n += s.packed() ? 2 : 0;
  random_layout(random, room, s.count, plain, &s.in_strides, &s.in_distance);
  random_layout(random, room, s.count, plain, &s.out_strides, &s.out_distance);
  return s;
}

// A real transform with a complex spectrum: its half box has strides of its own, and in the plain cases in
// place both sides coincide row by row.
void shape_mixed(random_bits& random, transform_case* s, bool backward) {
  std::vector<zor_int> half = s->lengths;
  half[0] = half[0] / 2 + 1;
  auto& real_strides = backward ? s->out_strides : s->in_strides;
  auto& half_strides = backward ? s->in_strides : s->out_strides;
  zor_int& real_distance = backward ? s->out_distance : s->in_distance;
  zor_int& half_distance = backward ? s->in_distance : s->out_distance;
  const bool plain = random.between(0, 1);
  random_layout(random, s->lengths, s->count, plain, &real_strides, &real_distance);
  random_layout(random, half, s->count, plain, &half_strides, &half_distance);
  if (!plain || !s->in_place()) return;
  real_strides = half_strides;
  for (size_t i = 1; i < real_strides.size(); ++i) real_strides[i] *= 2;
  real_distance = 2 * half_distance;
  s->in_offset = s->out_offset = 0;
}

struct family {
  const char* name;
  int32_t domain, storage;
  size_t max_rank;
};
const family families[] = {{"complex", ZOR_DFT_COMPLEX, ZOR_DFT_COMPLEX_COMPLEX, 4},
                           {"split", ZOR_DFT_COMPLEX, ZOR_DFT_REAL_REAL, 1},
                           {"packed", ZOR_DFT_REAL, ZOR_DFT_COMPLEX_REAL, 2},
                           {"mixed", ZOR_DFT_REAL, ZOR_DFT_COMPLEX_COMPLEX, 3}};

template <class R>
void run_random(uint64_t seed, int cases, const family& f) {
  random_bits random(seed);
  zor_core_set_num_threads(3);
  for (int i = 0; i < cases && !testing::Test::HasFailure(); ++i) {
    const size_t rank = size_t(random.between(1, zor_int(f.max_rank)));
    transform_case s = random_case(random, f.domain, f.storage, rank);
    for (bool backward : {false, true}) {
      if (s.mixed()) shape_mixed(random, &s, backward);
      run_problem<R>(s, backward, random);
    }
  }
}

class Layout : public testing::TestWithParam<family> {};

TEST_P(Layout, DoubleAgreesWithDirectSum) { run_random<double>(11, 400, GetParam()); }
TEST_P(Layout, SingleAgreesWithDirectSum) { run_random<float>(12, 400, GetParam()); }

INSTANTIATE_TEST_SUITE_P(Families, Layout, testing::ValuesIn(families),
                         [](const auto& f) { return std::string(f.param.name); });

}  // namespace
