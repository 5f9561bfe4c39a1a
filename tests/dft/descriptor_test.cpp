// SPDX-License-Identifier: MIT
// The descriptor's life: creation, every setting and status code, what commit decides, breakdowns, user
// threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfenv>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/operand.h"
#include "zor/dft_kern.h"
#include "zor/serv.h"

namespace {

struct freed {
  void operator()(ZorDftDescriptor* d) const { EXPECT_EQ(0, zor_dft_free(&d)); }
};
using handle = std::unique_ptr<ZorDftDescriptor, freed>;

handle make(int32_t precision, int32_t domain, std::vector<zor_int> lengths) {
  ZorDftDescriptor* d = nullptr;
  EXPECT_EQ(0, zor_dft_create_descriptor_md(&d, precision, domain, zor_int(lengths.size()), lengths.data()));
  return handle(d);
}

int32_t commit(const handle& h) {
  ZorDftDescriptor* d = h.get();
  return zor_dft_commit_descriptor_core(&d, 1);
}

TEST(Create, FillsEveryRecord) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {6, 8, 5});
  const zor_int strides[] = {1, 6, 48}, halves[] = {4, 8, 5}, logs[] = {2, 3, 2};
  const int32_t plans[] = {1, 0, 1};
  zor_int i = 0;
  const ZorDftDescriptor* before = nullptr;
  for (const ZorDftDescriptor* r = h.get(); r != nullptr; before = r, r = r->next_dim, ++i) {
    EXPECT_EQ(r->magic, 0x544644);
    EXPECT_EQ(r->commit_status, 31);
    EXPECT_EQ(r->compute_forward, nullptr);
    EXPECT_EQ(r->compute_backward, nullptr);
    EXPECT_EQ(r->forward_domain, 32);
    EXPECT_EQ(r->precision, 36);
    EXPECT_EQ(r->number_of_transforms, 1);
    EXPECT_EQ(r->complex_storage, 39);
    EXPECT_EQ(r->real_storage, 42);
    EXPECT_EQ(r->conjugate_even_storage, 40);
    EXPECT_EQ(r->placement, 43);
    EXPECT_EQ(r->packed_format, 54);
    EXPECT_EQ(r->ordering, 48);
    EXPECT_EQ(r->transpose, 53);
    EXPECT_EQ(r->rank, 3);
    EXPECT_EQ(r->dim_index, i);
    EXPECT_EQ(r->input_stride, strides[i]);
    EXPECT_EQ(r->output_stride, strides[i]);
    EXPECT_EQ(r->half_length, halves[i]);
    EXPECT_EQ(r->log2_length, logs[i]);
    EXPECT_EQ(r->general_plan, plans[i]);
    EXPECT_EQ(r->total_size, 240);
    EXPECT_EQ(r->total_half_size, 160);
    EXPECT_EQ(r->max_length, 8);
    EXPECT_EQ(r->forward_scale_d, 1.0);
    EXPECT_EQ(r->backward_scale_s, 1.0f);
    EXPECT_EQ(r->user_threads, 1);
    EXPECT_EQ(r->thread_limit, 1);
    EXPECT_EQ(r->prev_dim, before);
    EXPECT_EQ(uintptr_t(h.get()) % 16, 0u);
  }
  EXPECT_EQ(i, 3);
}

TEST(Create, RefusesRealRankFour) {
  ZorDftDescriptor* d = nullptr;
  const zor_int lengths[] = {2, 2, 2, 2};
  EXPECT_EQ(6, zor_dft_create_descriptor_md(&d, ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 4, lengths));
  EXPECT_EQ(d, nullptr);
  EXPECT_NE(nullptr, make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {2, 2, 2, 2}));
}

TEST(Create, FrontEndChecksItsArguments) {
  const struct {
    double precision;
    int32_t domain;
    zor_int rank, length;
    int32_t status_d, status_s;
  } cases[] = {{36.0, 32, 1, 8, 0, 2}, {35.0, 33, 1, 8, 2, 0}, {36.5, 32, 1, 8, 2, 2},
               {36.0, 34, 1, 8, 2, 2}, {36.0, 31, 1, 8, 2, 2}, {36.0, 32, 2, 8, 2, 2},
               {36.0, 33, 1, 0, 2, 2}, {36.0, 33, 1, 1, 0, 2}};
  for (const auto& c : cases) {
    ZorDftDescriptor* d = nullptr;
    EXPECT_EQ(c.status_d, zor_dft_create_1d_d(&d, c.precision, c.domain, c.rank, c.length));
    EXPECT_EQ(c.status_d == 0, d != nullptr);
    EXPECT_EQ(c.status_d == 0 ? 0 : 3, zor_dft_free(&d));
    EXPECT_EQ(c.status_s, zor_dft_create_1d_s(&d, c.precision, c.domain, c.rank, c.length));
    EXPECT_EQ(c.status_s == 0 ? 0 : 3, zor_dft_free(&d));
  }
  EXPECT_EQ(3, zor_dft_create_1d_d(nullptr, 36.0, 32, 1, 8));
  ZorDftDescriptor* d = nullptr;
  const zor_int lengths[] = {2, 3, 4, 5, 6, 7, 8, 9};
  for (zor_int rank = 0; rank <= 8; ++rank) {
    const bool fits = rank >= 1 && rank <= 7;
    EXPECT_EQ(fits ? 0 : 2, zor_dft_create_nd_s(&d, 32, rank, lengths));
    EXPECT_EQ(fits ? 0 : 3, zor_dft_free(&d));
  }
  const zor_int bad[] = {4, 0, 4};
  EXPECT_EQ(2, zor_dft_create_nd_d(&d, 32, 3, bad));
  EXPECT_EQ(2, zor_dft_create_nd_d(&d, 40, 3, lengths));
  EXPECT_EQ(6, zor_dft_create_nd_d(&d, 33, 4, lengths));
  ASSERT_EQ(0, zor_dft_create_nd_d(&d, 33, 3, lengths));
  EXPECT_EQ(d->length, 4) << "lengths are given last dimension first";
  EXPECT_NE(d->commit_fn, nullptr);
  EXPECT_EQ(0, zor_dft_free(&d));
  EXPECT_EQ(d, nullptr);
}

// Integer settings: parameter, value, status, and the field that takes the value.
struct setting {
  int32_t parameter;
  int value, status;
  int32_t ZorDftDescriptor::*field;
};
const setting settings[] = {{8, 39, 0, &ZorDftDescriptor::complex_storage},
                            {8, 42, 0, &ZorDftDescriptor::complex_storage},
                            {8, 40, 6, nullptr},
                            {8, 41, 6, nullptr},
                            {8, 43, 3, nullptr},
                            {9, 42, 0, &ZorDftDescriptor::real_storage},
                            {9, 41, 6, nullptr},
                            {9, 40, 3, nullptr},
                            {10, 39, 0, &ZorDftDescriptor::conjugate_even_storage},
                            {10, 40, 0, &ZorDftDescriptor::conjugate_even_storage},
                            {10, 41, 6, nullptr},
                            {10, 42, 6, nullptr},
                            {10, 38, 3, nullptr},
                            {11, 43, 0, &ZorDftDescriptor::placement},
                            {11, 44, 0, &ZorDftDescriptor::placement},
                            {11, 45, 3, nullptr},
                            {18, 48, 0, &ZorDftDescriptor::ordering},
                            {18, 49, 0, &ZorDftDescriptor::ordering},
                            {18, 50, 6, nullptr},
                            {18, 51, 3, nullptr},
                            {21, 54, 0, &ZorDftDescriptor::packed_format},
                            {21, 55, 0, &ZorDftDescriptor::packed_format},
                            {21, 56, 0, &ZorDftDescriptor::packed_format},
                            {21, 57, 0, &ZorDftDescriptor::packed_format},
                            {21, 53, 3, nullptr},
                            {21, 58, 3, nullptr},
                            {26, 4, 0, &ZorDftDescriptor::user_threads},
                            {6, 1, 6, nullptr},
                            {16, 1, 6, nullptr},
                            {17, 1, 6, nullptr},
                            {24, 1, 6, nullptr},
                            {25, 1, 6, nullptr},
                            {0, 1, 3, nullptr},
                            {19, 1, 3, nullptr},
                            {27, 1, 3, nullptr},
                            {-1, 1, 3, nullptr}};

TEST(SetValue, TakesAndRefusesByTheTable) {
  for (const setting& s : settings) {
    SCOPED_TRACE(std::to_string(s.parameter) + " := " + std::to_string(s.value));
    const handle h = make(ZOR_DFT_SINGLE, ZOR_DFT_COMPLEX, {8, 4});
    ASSERT_EQ(0, commit(h));
    h->whole_unit = 1;
    EXPECT_EQ(s.status, zor_dft_set_value(h.get(), s.parameter, zor_int(s.value)));
    EXPECT_EQ(h->commit_status, 31) << "a refused value uncommits too";
    EXPECT_EQ(h->compute_forward, nullptr);
    EXPECT_EQ(h->compute_backward, nullptr);
    EXPECT_EQ(h->whole_unit, 0);
    for (const ZorDftDescriptor* r = h.get(); r != nullptr && s.field != nullptr; r = r->next_dim)
      EXPECT_EQ(r->*s.field, s.value) << "dimension " << r->dim_index;
    const bool complex_spectrum = s.parameter == 10 && s.value == 39;
    if (s.parameter == 21) continue;
    EXPECT_EQ(h->next_dim->packed_format, complex_spectrum ? 57 : 54);
  }
}

TEST(SetValue, TakesWideValuesArraysAndText) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1, 8, 4});
  const zor_int big = zor_int(5) << 33;
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 7, big));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 14, big + 1));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 15, big + 2));
  EXPECT_EQ(h->next_dim->number_of_transforms, big);
  EXPECT_EQ(h->next_dim->input_distance, big + 1);
  EXPECT_EQ(h->next_dim->output_distance, big + 2);
  const zor_int in[] = {9, 300, 200, 100}, out[] = {-1, 30, 20, 10};
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 12, in));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 13, out));
  EXPECT_EQ(3, zor_dft_set_value(h.get(), 12, static_cast<const zor_int*>(nullptr)));
  EXPECT_EQ(h->input_offset, 9);
  EXPECT_EQ(h->output_offset, -1);
  EXPECT_EQ(h->input_stride, 100);
  EXPECT_EQ(h->next_dim->input_stride, 200);
  EXPECT_EQ(h->next_dim->next_dim->output_stride, 30);
  // The scale goes to the first dimension that is transformed.
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 4, 0.1));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 5, 3.0));
  EXPECT_EQ(h->forward_scale_d, 1.0);
  EXPECT_EQ(h->next_dim->forward_scale_d, 0.1);
  EXPECT_EQ(h->next_dim->forward_scale_s, 0.1f);
  EXPECT_EQ(h->next_dim->backward_scale_d, 3.0);
  EXPECT_EQ(h->next_dim->next_dim->forward_scale_d, 1.0);
  EXPECT_EQ(h->compute_forward, nullptr);
  const handle ones = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1, 1});
  EXPECT_EQ(0, zor_dft_set_value(ones.get(), 4, 7.0));
  EXPECT_EQ(ones->forward_scale_d, 7.0);
  EXPECT_EQ(ones->next_dim->forward_scale_d, 1.0);
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 20, "abcdefghijkl"));
  EXPECT_STREQ(h->name, "abcdefghi");
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 20, "ab"));
  EXPECT_STREQ(h->name, "ab");
}

TEST(SetValue, ScaleAndNameLeaveTheFlagsTheyShould) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {8});
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(h->whole_unit, 1);
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 20, "name"));
  EXPECT_EQ(h->commit_status, 30);
  EXPECT_NE(h->compute_forward, nullptr);
  EXPECT_EQ(0, zor_dft_set_value(h.get(), 4, 0.5));
  EXPECT_EQ(h->commit_status, 31);
  EXPECT_EQ(h->compute_backward, nullptr);
  EXPECT_EQ(h->whole_unit, 1);
}

TEST(SetValue, RefusesScrambledRealOrder) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_REAL, {8});
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(6, zor_dft_set_value(h.get(), 18, 49));
  EXPECT_EQ(h->commit_status, 31);
  EXPECT_EQ(h->compute_forward, nullptr);
}

TEST(Status, BadHandlesAreNamed) {
  ZorDftDescriptor* none = nullptr;
  double x[16] = {};
  EXPECT_EQ(5, zor_dft_commit(nullptr));
  EXPECT_EQ(5, zor_dft_commit(&none));
  EXPECT_EQ(5, zor_dft_set_value(nullptr, 7, zor_int(1)));
  EXPECT_EQ(3, zor_dft_free(nullptr));
  EXPECT_EQ(3, zor_dft_free(&none));
  EXPECT_EQ(5, zor_dft_compute_forward(nullptr, x));
  EXPECT_EQ(5, zor_dft_compute_backward(&none, x));
  EXPECT_EQ(5, zor_dft_commit_descriptor_core(&none, 0));
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {4});
  ZorDftDescriptor* d = h.get();
  EXPECT_EQ(7, zor_dft_commit(&d)) << "no commit routine";
  EXPECT_EQ(3, zor_dft_compute_forward(&d, x)) << "never committed";
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(0, zor_dft_compute_forward(&d, x));
  EXPECT_EQ(0, zor_dft_set_value(d, 7, zor_int(1)));
  EXPECT_EQ(2, zor_dft_compute_forward(&d, x));
  EXPECT_EQ(0, zor_dft_set_value(d, 11, 44));
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(0, zor_dft_set_value(d, 11, 44));
  EXPECT_EQ(3, zor_dft_compute_backward(&d, x));
  d->magic = 1;
  EXPECT_EQ(5, zor_dft_set_value(d, 7, zor_int(1)));
  EXPECT_EQ(5, zor_dft_free(&d));
  EXPECT_EQ(5, zor_dft_compute_forward(&d, x));
  EXPECT_EQ(5, zor_dft_commit(&d));
  EXPECT_EQ(5, zor_dft_commit_descriptor_core(&d, 0));
  d->magic = 0x544644;
}

TEST(Status, TextIsCutOrFilled) {
  for (int32_t status : {0, 1, 2, 3, 5, 6, 7, 8, 9, 10, 100, -1}) {
    char text[80];
    std::memset(text, '#', sizeof text);
    zor_dft_status_text(text, 70, status);
    EXPECT_EQ(text[70], '#');
    const char* whole = zor_serv_zor_get_msg(status >= 0 && status <= 9 ? 761 + status : 771, 0);
    ASSERT_NE(whole, nullptr) << status;
    std::string wanted(whole);
    wanted.resize(70, ' ');
    EXPECT_EQ(std::string(text, 70), wanted);
    zor_dft_status_text(text, 3, status);
    EXPECT_EQ(std::string(text, 4), wanted.substr(0, 3) + wanted.substr(3, 1));
  }
}

TEST(Commit, RefusesWhatIsNotImplemented) {
  const handle cube = make(ZOR_DFT_SINGLE, ZOR_DFT_REAL, {4, 4, 4});
  EXPECT_EQ(6, commit(cube));
  EXPECT_EQ(cube->compute_forward, nullptr);
  EXPECT_EQ(0, zor_dft_set_value(cube.get(), 10, 39));
  EXPECT_EQ(0, commit(cube)) << "a failed commit can be repeated";
  EXPECT_NE(cube->next_dim->next_dim->plan_c, nullptr);
  const handle line = make(ZOR_DFT_DOUBLE, ZOR_DFT_REAL, {8});
  EXPECT_EQ(0, zor_dft_set_value(line.get(), 21, 57));
  EXPECT_EQ(6, commit(line));
  const handle plane = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {8, 8});
  EXPECT_EQ(0, zor_dft_set_value(plane.get(), 8, 42));
  ASSERT_EQ(0, commit(plane));
  double x[256] = {};
  EXPECT_EQ(6, plane->compute_forward(plane.get(), x, x + 64, nullptr, nullptr));
}

TEST(Commit, RefusesLengthsAboveTheLimits) {
  const struct {
    int32_t precision, domain, storage;
    zor_int length;
  } cases[] = {{ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 40, 33554433},
               {ZOR_DFT_DOUBLE, ZOR_DFT_REAL, 40, 134217728},
               {ZOR_DFT_SINGLE, ZOR_DFT_REAL, 40, 67108865},
               {ZOR_DFT_SINGLE, ZOR_DFT_REAL, 40, 268435456},
               {ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 42, 33554433},
               {ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 42, 134217728},
               {ZOR_DFT_SINGLE, ZOR_DFT_COMPLEX, 42, 67108865},
               {ZOR_DFT_SINGLE, ZOR_DFT_COMPLEX, 42, 268435456},
               // A prime cannot be split into two dimensions.
               {ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 39, 33554467},
               // Too long for any memory: refused at once.
               {ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 39, zor_int(1) << 57},
               {ZOR_DFT_SINGLE, ZOR_DFT_COMPLEX, 39, 3 * (zor_int(1) << 39)}};
  for (const auto& c : cases) {
    const handle h = make(c.precision, c.domain, {c.length});
    if (c.domain == ZOR_DFT_COMPLEX) {
      EXPECT_EQ(0, zor_dft_set_value(h.get(), 8, c.storage));
    }
    EXPECT_EQ(9, commit(h)) << c.length;
  }
}

// What commit decides: fixed kernels or a plan, and the flags.
struct decision {
  int32_t precision, domain;
  std::vector<zor_int> lengths;
  int32_t placement, user_threads;
  std::vector<int32_t> general_plan;
  int whole_unit, kernel_direct, two_d_direct;
  int32_t ordering = 48;
};
const decision decisions[] = {
    {36, 32, {1024}, 43, 1, {0}, 1, 1, 0},
    {36, 32, {2048}, 43, 1, {1}, 1, 1, 0},
    {36, 32, {128}, 43, 2, {0}, 1, 0, 0},
    {36, 32, {256}, 43, 2, {1}, 1, 0, 0},
    {36, 32, {256}, 44, 2, {1}, 1, 0, 0},
    {36, 32, {60}, 44, 1, {1}, 1, 1, 0},
    {36, 32, {1}, 44, 1, {1}, 1, 1, 0},
    {36, 32, {512, 256}, 43, 1, {0, 0}, 0, 0, 0},
    {36, 32, {1024, 512}, 43, 1, {1, 1}, 0, 0, 0},
    {36, 32, {512, 256}, 44, 1, {1, 0}, 0, 0, 0},
    {36, 32, {64, 128}, 43, 2, {0, 1}, 0, 0, 0},
    {36, 32, {128, 256}, 44, 2, {0, 1}, 0, 0, 0},
    {36, 32, {512, 256, 512}, 43, 1, {0, 0, 0}, 0, 0, 0},
    {36, 32, {64, 64, 64}, 43, 2, {1, 0, 1}, 0, 0, 0},
    {36, 32, {64, 64, 32}, 44, 1, {1, 0, 0}, 0, 0, 0},
    {36, 32, {32, 32}, 43, 1, {0, 0}, 0, 0, 1},
    {36, 32, {64, 32}, 43, 1, {0, 0}, 0, 0, 0},
    {35, 32, {4}, 43, 1, {0}, 1, 1, 0},
    {35, 32, {8}, 43, 1, {1}, 1, 1, 0},
    {36, 33, {64}, 43, 1, {0}, 1, 1, 0},
    {36, 33, {128}, 43, 1, {1}, 1, 1, 0},
    {36, 33, {8192}, 43, 1, {1}, 0, 0, 0},
    {35, 33, {8192}, 43, 1, {1}, 1, 1, 0},
    {35, 33, {64}, 43, 1, {0}, 1, 1, 0},
    {35, 33, {64, 4}, 43, 1, {1, 1}, 0, 0, 1},
    {36, 33, {64, 4}, 44, 1, {0, 1}, 0, 0, 1},
    {36, 32, {1024}, 43, 1, {0}, 1, 1, 0, 49},
    {36, 32, {60, 8}, 43, 1, {1, 0}, 0, 0, 1, 49},
};

TEST(Commit, ChoosesKernelsAndFlags) {
  for (const decision& c : decisions) {
    const handle h = make(c.precision, c.domain, c.lengths);
    SCOPED_TRACE(testing::PrintToString(c.lengths) + " placement " + std::to_string(c.placement) +
                 " precision " + std::to_string(c.precision) + " domain " + std::to_string(c.domain));
    EXPECT_EQ(0, zor_dft_set_value(h.get(), 11, c.placement));
    EXPECT_EQ(0, zor_dft_set_value(h.get(), 26, zor_int(c.user_threads)));
    EXPECT_EQ(0, zor_dft_set_value(h.get(), 18, c.ordering));
    h->transpose = 54;
    ASSERT_EQ(0, commit(h));
    size_t i = 0;
    for (const ZorDftDescriptor* r = h.get(); r != nullptr; r = r->next_dim, ++i) {
      EXPECT_EQ(r->general_plan, c.general_plan[i]) << "dimension " << i;
      EXPECT_EQ(r->commit_status, 30);
      EXPECT_EQ(r->transpose, 54);
    }
    EXPECT_EQ(i, c.lengths.size());
    EXPECT_EQ(h->whole_unit, c.whole_unit);
    EXPECT_EQ(h->kernel_direct, c.kernel_direct);
    EXPECT_EQ(h->two_d_direct, c.two_d_direct);
    EXPECT_EQ(h->max_work_size % 256, 0);
    EXPECT_EQ(h->work_buffer != nullptr, h->max_work_size > 0);
    EXPECT_EQ(uintptr_t(h->work_buffer) % 256, 0u);
    EXPECT_EQ(h->thread_slots != nullptr, c.user_threads > 1);
    EXPECT_EQ(h->nio_args, c.placement == 43 ? 1 : 2);
  }
}

TEST(Commit, LowersTheThreadLimitByTheSizeOfTheProblem) {
  // A batch of t transforms of length n in place moves 16 n t bytes: W = floor(sqrt(S ln S / 313600) + 0.5).
  const struct {
    zor_int length, transforms;
    int32_t wanted;
  } cases[] = {{64, 10, 1}, {64, 100, 2}, {64, 1000, 7}, {1024, 1000, 16}};
  for (const auto& c : cases) {
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {c.length});
    EXPECT_EQ(0, zor_dft_set_value(h.get(), 7, c.transforms));
    EXPECT_EQ(0, zor_dft_set_value(h.get(), 14, c.length));
    h->thread_limit = 16;
    ASSERT_EQ(0, commit(h));
    const double s = 16.0 * double(c.length) * double(c.transforms);
    EXPECT_EQ(h->thread_limit, c.wanted) << std::sqrt(s * std::log(s) / 313600.0);
  }
  const handle one = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1 << 20});
  one->thread_limit = 16;
  ASSERT_EQ(0, commit(one));
  EXPECT_EQ(one->thread_limit, 1) << "one transform of rank 1 runs on one thread";
  const handle plane = make(ZOR_DFT_DOUBLE, ZOR_DFT_REAL, {16, 1});
  plane->thread_limit = 16;
  ASSERT_EQ(0, commit(plane));
  EXPECT_EQ(plane->thread_limit, 16);
  EXPECT_EQ(plane->two_d_flag_a, 1);
  EXPECT_EQ(plane->two_d_flag_b, 0);
}

// Breakdowns: which descriptors they take, and that what they run is the transform.
struct taker {
  int32_t precision;
  zor_int length;
  double forward_scale, backward_scale;
  int32_t answer;
};
const float third = float(1.0 / 3.0);
const taker takers[] = {
    {36, 1, 1, 1, 0},     {36, 2, 1, 1, 0},       {36, 8, 1, 1, 0},         {36, 64, 1, 1, 0},
    {36, 128, 1, 1, 0},   {36, 3, 1, 1, 0},       {36, 100, 1, 1, 0},       {36, 1000, 1, 1, 100},
    {36, 256, 1, 1, 100}, {36, 5000, 1, 1, 100},  {36, 8, 2, 1, 100},       {36, 8, 0.125, 1, 0},
    {36, 8, 1, 0.125, 0}, {36, 4, 0.5, 0.5, 0},   {36, 4, 0.25, 0.25, 100}, {35, 3, 1.0 / 3, 1, 0},
    {35, 3, third, 1, 0}, {36, 3, third, 1, 100}, {36, 3, 1.0 / 3, 1, 0},   {35, 16, 1, 1, 0},
};

TEST(Breakdown, TakesSimpleTransformsOnly) {
  for (const taker& t : takers) {
    SCOPED_TRACE("length " + std::to_string(t.length) + " precision " + std::to_string(t.precision));
    const handle h = make(t.precision, ZOR_DFT_COMPLEX, {t.length});
    EXPECT_EQ(0, zor_dft_set_value(h.get(), 4, t.forward_scale));
    EXPECT_EQ(0, zor_dft_set_value(h.get(), 5, t.backward_scale));
    const auto apply = t.precision == 36 ? zor_dft_apply_bkdowns_d_c2c_1d : zor_dft_apply_bkdowns_s_c2c_1d;
    const auto other = t.precision == 36 ? zor_dft_apply_bkdowns_s_c2c_1d : zor_dft_apply_bkdowns_d_c2c_1d;
    EXPECT_EQ(100, other(h.get())) << "the list of the other precision";
    for (auto empty :
         {zor_dft_apply_bkdowns_d_c2c_md, zor_dft_apply_bkdowns_d_r2c_1d, zor_dft_apply_bkdowns_d_r2c_md,
          zor_dft_apply_bkdowns_s_c2c_md, zor_dft_apply_bkdowns_s_r2c_1d, zor_dft_apply_bkdowns_s_r2c_md})
      EXPECT_EQ(100, empty(h.get()));
    ASSERT_EQ(t.answer, apply(h.get()));
    EXPECT_EQ(h->commit_status, t.answer == 0 ? 30 : 31);
    if (t.answer != 0) continue;
    // The round trip of two impulses, and the value of frequency 1.
    const size_t n = size_t(t.length);
    std::vector<double> d(2 * n);
    std::vector<float> f(2 * n);
    d[0] = f[0] = 1;
    d[2 * (n - 1)] += 2;
    f[2 * (n - 1)] += 2;
    void* x = t.precision == 36 ? static_cast<void*>(d.data()) : f.data();
    EXPECT_EQ(0, h->compute_forward(h.get(), x, nullptr, nullptr, nullptr));
    const size_t k = n > 1 ? 2 : 0;
    const double angle = n > 1 ? 2 * 3.14159265358979323846 / double(n) : 0;
    const double re = t.precision == 36 ? d[k] : f[k], im = t.precision == 36 ? d[k + 1] : f[k + 1];
    EXPECT_NEAR(re, t.forward_scale * (1 + 2 * std::cos(angle)), 1e-6);
    EXPECT_NEAR(im, t.forward_scale * 2 * std::sin(angle), 1e-6);
    EXPECT_EQ(0, h->compute_backward(h.get(), x, nullptr, nullptr, nullptr));
    const double gain = double(n) * t.forward_scale * t.backward_scale;
    EXPECT_NEAR(t.precision == 36 ? d[0] : f[0], (n > 1 ? 1 : 3) * gain, 1e-5 * gain);
  }
}

TEST(Breakdown, NeedsContiguousUnshiftedData) {
  const auto refused = [](auto change) {
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {8});
    change(h.get());
    EXPECT_EQ(100, zor_dft_apply_bkdowns_d_c2c_1d(h.get()));
  };
  refused([](ZorDftDescriptor* d) { d->input_stride = 2; });
  refused([](ZorDftDescriptor* d) { d->input_offset = 1; });
  refused([](ZorDftDescriptor* d) { d->number_of_transforms = 2; });
  refused([](ZorDftDescriptor* d) { d->complex_storage = ZOR_DFT_REAL_REAL; });
  refused([](ZorDftDescriptor* d) { d->placement = 44, d->output_stride = 2; });
  refused([](ZorDftDescriptor* d) { d->placement = 44, d->output_offset = 1; });
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {8});
  h->output_stride = 3;
  h->output_offset = 3;
  EXPECT_EQ(0, zor_dft_apply_bkdowns_d_c2c_1d(h.get())) << "in place the output's layout does not count";
}

TEST(Breakdown, GivesWayToAnotherAndToCommit) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {12});
  ASSERT_EQ(0, zor_dft_apply_bkdowns_d_c2c_1d(h.get()));
  const void* first = h->breakdown_data;
  ASSERT_NE(first, nullptr);
  ASSERT_EQ(0, zor_dft_apply_bkdowns_d_c2c_1d(h.get()));
  EXPECT_EQ(h->breakdown_data, first) << "the same plan serves again";
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(h->breakdown, nullptr);
  EXPECT_EQ(h->breakdown_data, nullptr);
  EXPECT_NE(h->plan_z, nullptr);
}

// A kernel that waits keeps a caller inside compute.
struct gate {
  std::mutex mutex;
  std::condition_variable changed;
  int inside = 0;
  bool open = false;
};
gate* held = nullptr;
int32_t waiting_kernel(const void*, void*, ZorDftDescriptor*, void* work) {
  std::unique_lock<std::mutex> lock(held->mutex);
  if (work != nullptr) *static_cast<volatile char*>(work) = 1;
  ++held->inside;
  held->changed.notify_all();
  held->changed.wait(lock, [] { return held->open; });
  return 0;
}

TEST(UserThreads, TheFifthCallerOfFourIsRefused) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1000});
  ASSERT_EQ(0, zor_dft_set_value(h.get(), 26, zor_int(4)));
  ASSERT_EQ(0, commit(h));
  const auto kernel = h->kernel_z_fwd;
  gate g;
  held = &g;
  h->kernel_z_fwd = waiting_kernel;
  std::vector<std::thread> callers;
  std::vector<int32_t> status(4, -1);
  std::vector<double> x(2000);
  for (size_t i = 0; i < 4; ++i)
    callers.emplace_back(
        [&, i] { status[i] = h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr); });
  {
    std::unique_lock<std::mutex> lock(g.mutex);
    g.changed.wait(lock, [&] { return g.inside == 4; });
  }
  EXPECT_EQ(8, h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr));
  {
    std::lock_guard<std::mutex> lock(g.mutex);
    g.open = true;
    g.changed.notify_all();
  }
  for (std::thread& t : callers) t.join();
  for (int32_t s : status) EXPECT_EQ(s, 0);
  h->kernel_z_fwd = kernel;
  EXPECT_EQ(0, h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr))
      << "the slots are free again";
}

TEST(UserThreads, FourCallersAgreeWithOne) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {60, 35});
  ASSERT_EQ(0, zor_dft_set_value(h.get(), 26, zor_int(4)));
  ASSERT_EQ(0, commit(h));
  zor_test::random_bits random(5);
  std::vector<double> given(2 * 60 * 35);
  for (double& v : given) v = random.unit();
  std::vector<double> wanted = given;
  ASSERT_EQ(0, h->compute_forward(h.get(), wanted.data(), nullptr, nullptr, nullptr));
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i)
    callers.emplace_back([&] {
      for (int repeat = 0; repeat < 50; ++repeat) {
        std::vector<double> x = given;
        EXPECT_EQ(0, h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr));
        EXPECT_TRUE(zor_test::same_bits(wanted.data(), x.data(), x.size()));
      }
    });
  for (std::thread& t : callers) t.join();
}

// Whole-transform kernels of a threaded layer are given aligned data.
int32_t whole_doubling(const void* in, void* out, ZorDftDescriptor* d, void*) {
  if (uintptr_t(in) % 16 != 0 || uintptr_t(out) % 16 != 0) return 7;
  for (zor_int i = 0; i < 2 * d->length; ++i)
    static_cast<double*>(out)[i] = 2 * static_cast<const double*>(in)[i];
  return 0;
}

// Twelve columns are a tile of eight and one of four; the last line of each alone is asked how it went.
TEST(Share, TheLastLineSpeaksForItsTile) {
  static int calls, failing;
  const zor_dft_kernel kernel = [](const void*, void*, ZorDftDescriptor*, void*) {
    return ++calls == failing ? 7 : 0;
  };
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {12, 3});
  std::vector<zor_c64> x(36);
  for (auto [call, wanted, made] : {std::array{1, 0, 12}, {7, 0, 12}, {8, 7, 8}, {11, 0, 12}, {12, 7, 12}}) {
    int32_t status = -1;
    calls = 0;
    failing = call;
    zor_dft_z2_r_dft(x.data(), 1, 12, 12, kernel, h->next_dim, &status, nullptr);
    EXPECT_EQ(status, wanted) << "call " << call;
    EXPECT_EQ(calls, made) << "call " << call;
  }
}

TEST(WholeKernel, UnalignedDataAreMoved) {
  for (int32_t placement : {43, 44}) {
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {10});
    ASSERT_EQ(0, zor_dft_set_value(h.get(), 11, placement));
    h->whole_z_fwd = whole_doubling;
    h->thread_limit = 2;
    ASSERT_EQ(0, commit(h));
    EXPECT_EQ(h->whole_unit, 0);
    EXPECT_EQ(h->plan_z, nullptr);
    for (size_t shift : {0, 8}) {
      zor_test::guarded<double> x(20, true, shift), y(20, false, shift);
      for (size_t i = 0; i < 20; ++i) x[i] = double(i);
      ASSERT_EQ(0, h->compute_forward(h.get(), x.data(), y.data(), nullptr, nullptr));
      const auto& result = placement == 43 ? x : y;
      for (size_t i = 0; i < 20; ++i) EXPECT_EQ(result[i], 2.0 * double(i));
    }
  }
}

TEST(NioArgs, CountTheArrays) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {4});
  EXPECT_EQ(1, zor_dft_determine_nioargs(h.get()));
  h->complex_storage = 42;
  EXPECT_EQ(2, zor_dft_determine_nioargs(h.get()));
  h->placement = 44;
  EXPECT_EQ(4, zor_dft_determine_nioargs(h.get()));
  h->forward_domain = 33;
  EXPECT_EQ(2, zor_dft_determine_nioargs(h.get()));
}

// A long line through two dimensions equals the plan of its length to rounding.
template <class R>
void check_via_2d(zor_int n, int32_t precision, double tolerance, int32_t (*init)(ZorDftDescriptor*),
                  zor_dft_kernel ZorDftDescriptor::*fwd, zor_dft_kernel ZorDftDescriptor::*bwd) {
  const handle h = make(precision, ZOR_DFT_COMPLEX, {n});
  ASSERT_EQ(0, zor_dft_set_value(h.get(), 4, 0.5));
  ASSERT_EQ(0, commit(h));
  zor_test::random_bits random{uint64_t(n)};
  zor_test::guarded<R> x(2 * size_t(n)), y(2 * size_t(n));
  for (R& v : x) v = R(random.unit());
  const std::vector<R> given(x.begin(), x.end());
  ASSERT_EQ(0, h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr));
  const std::vector<R> wanted(x.begin(), x.end());
  ASSERT_EQ(0, init(h.get()));
  std::copy(given.begin(), given.end(), x.begin());
  ASSERT_EQ(0, (h.get()->*fwd)(x.data(), y.data(), h.get(), nullptr));
  const double size = std::sqrt(double(n)) * tolerance;
  for (size_t i = 0; i < wanted.size(); ++i) ASSERT_NEAR(wanted[i], y[i], size) << n << " at " << i;
  ASSERT_EQ(0, (h.get()->*bwd)(y.data(), y.data(), h.get(), nullptr));
  for (size_t i = 0; i < wanted.size(); ++i) ASSERT_NEAR(given[i], 2 * y[i] / R(n), 4 * tolerance) << n;
}

TEST(Via2D, AgreesWithThePlan) {
  for (zor_int n : {4, 6, 9, 64, 128, 1001, 1024, 3600, 65536, 99 * 1024, 210 * 211}) {
    check_via_2d<double>(n, ZOR_DFT_DOUBLE, 1e-14, zor_dft_xz_init_data_1d_via_2d,
                         &ZorDftDescriptor::kernel_z_fwd, &ZorDftDescriptor::kernel_z_bwd);
    check_via_2d<float>(n, ZOR_DFT_SINGLE, 4e-6, zor_dft_xc_init_data_1d_via_2d,
                        &ZorDftDescriptor::kernel_c_fwd, &ZorDftDescriptor::kernel_c_bwd);
  }
  // A length of very long lines is planned alike under every rounding.
  const auto twiddles_in = [](int mode) {
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {99 * 1024});
    std::fesetround(mode);
    EXPECT_EQ(0, zor_dft_xz_init_data_1d_via_2d(h.get()));
    EXPECT_EQ(mode, std::fegetround());
    std::fesetround(FE_TONEAREST);
    const auto* v = static_cast<const zor_dft_1d_via_2d*>(h->private_data);
    const auto* w = static_cast<const double*>(v->twiddles);
    return std::vector<double>(w, w + 4 * v->twiddle_count);
  };
  const std::vector<double> twiddles = twiddles_in(FE_TONEAREST);
  for (int mode : {FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO})
    EXPECT_TRUE(zor_test::same_bits(twiddles.data(), twiddles_in(mode).data(), twiddles.size())) << mode;
  const handle prime = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {65537});
  EXPECT_EQ(102, zor_dft_xz_init_data_1d_via_2d(prime.get()));
  EXPECT_EQ(prime->private_data, nullptr);
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1 << 13});
  ASSERT_EQ(0, zor_dft_xz_init_data_1d_via_2d(h.get()));
  const auto* v = static_cast<const zor_dft_1d_via_2d*>(h->private_data);
  EXPECT_EQ(v->a, 64);
  EXPECT_EQ(v->b, 128);
  EXPECT_EQ(v->pitch_a, 1024);
  EXPECT_EQ(v->pitch_b, 2048);
  EXPECT_EQ(v->twiddle_count, 128);
}

// Impulses have sums of roots of unity for their transform, and the transform backward, a pure tone for each
// of them, gives them back.
struct impulse {
  zor_int at;
  double height;
};
long double root_part(zor_int k, zor_int at, zor_int n, bool imaginary) {
  const long double turns = (long double)((__int128(k) * at) % n) / (long double)(n);
  const long double angle = -2 * 3.14159265358979323846264338327950288L * turns;
  return imaginary ? std::sin(angle) : std::cos(angle);
}

template <class Transform>
uint64_t check_impulses(zor_int n, zor_test::guarded<double>& x, const Transform& transform) {
  const impulse impulses[] = {{0, 1.0}, {n / 3, -0.5}, {n - 2, 2.0}};
  std::fill(x.begin(), x.end(), 0.0);
  for (const impulse& i : impulses) x[size_t(2 * i.at)] = i.height;
  transform(false);
  uint64_t hash = 14695981039346656037u;
  for (const double v : x) hash = (hash ^ zor_test::bits(v)) * 1099511628211u;
  for (zor_int k = 0; k < n; k += k % 4096 == 5 ? 1021 : 1 + n / 9973)
    for (int part : {0, 1}) {
      long double wanted = 0;
      for (const impulse& i : impulses) wanted += i.height * root_part(k, i.at, n, part);
      EXPECT_NEAR(double(x[size_t(2 * k + part)] - wanted), 0, 3e-15) << "frequency " << k << " of " << n;
    }
  transform(true);
  for (const impulse& i : impulses) x[size_t(2 * i.at)] -= i.height * double(n);
  double worst = 0;
  for (const double v : x) worst = std::max(worst, std::fabs(v));
  EXPECT_LE(worst, 4e-15 * double(n)) << n;
  return hash;
}

TEST(Via2D, VeryLongLinesOfImpulses) {
  std::vector<zor_int> lengths{1 << 20, 3 * 5 * 7 * 11 * 13 * 17};
  if (std::getenv("ZOR_DFT_LONG") != nullptr) lengths = {1 << 22, 1 << 24, 96 * 1000 * 11};
  for (const zor_int n : lengths) {
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {n});
    ASSERT_EQ(0, zor_dft_xz_init_data_1d_via_2d(h.get()));
    zor_test::guarded<double> x(2 * size_t(n));
    check_impulses(n, x, [&](bool backward) {
      const auto kernel = backward ? h->kernel_z_bwd : h->kernel_z_fwd;
      ASSERT_EQ(0, kernel(x.data(), x.data(), h.get(), nullptr));
    });
  }
}

// Above the limit of the plans commit itself takes this road, alone and in a batch, on any number of threads.
TEST(Via2D, CommitTakesItAboveTheLimitOfPlans) {
  if (std::getenv("ZOR_DFT_LONG") == nullptr) GTEST_SKIP() << "takes gigabytes: in the soak preset";
  const zor_int n = 18 * 18 * 18 * 18 * 18 * 18;
  zor_test::guarded<double> x(2 * size_t(n));
  uint64_t first = 0;
  for (const int32_t threads : {1, 3}) {
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {n});
    h->thread_limit = threads;
    ASSERT_EQ(0, commit(h));
    EXPECT_NE(h->private_data, nullptr);
    const uint64_t hash = check_impulses(n, x, [&](bool backward) {
      const auto compute = backward ? h->compute_backward : h->compute_forward;
      ASSERT_EQ(0, compute(h.get(), x.data(), nullptr, nullptr, nullptr));
    });
    EXPECT_TRUE(first == 0 || first == hash) << threads << " threads";
    first = hash;
  }
  // The flag for one transform without a driver would leave out all but the first of a batch.
  const handle two = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {n});
  ASSERT_EQ(0, zor_dft_set_value(two.get(), 7, zor_int(2)));
  ASSERT_EQ(0, zor_dft_set_value(two.get(), 14, n));
  ASSERT_EQ(0, commit(two));
  EXPECT_EQ(two->kernel_direct, 0);
}

}  // namespace
