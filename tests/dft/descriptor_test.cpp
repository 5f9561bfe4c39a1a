// SPDX-License-Identifier: MIT
// The descriptor's life: creation, every setting and status code, what commit decides, breakdowns, user
// threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfenv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/dft/settings.h"
#include "tests/support/operand.h"
#include "zor/serv.h"

namespace {

using namespace dft_test;

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

// Defaults that follow from the lengths; the others show in what every test below computes.
TEST(Create, FillsEveryRecord) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {6, 8, 5});
  const struct {
    zor_int length, stride, half_length, log2_length;
    int32_t general_plan;
  } records[] = {{6, 1, 4, 2, 1}, {8, 6, 8, 3, 0}, {5, 48, 5, 2, 1}};
  const ZorDftDescriptor *r = h.get(), *before = nullptr;
  EXPECT_EQ(uintptr_t(r) % 16, 0u);
  for (const auto& wanted : records) {
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->magic, ZOR_DFT_MAGIC);
    EXPECT_EQ(r->length, wanted.length);
    EXPECT_EQ(r->input_stride, wanted.stride);
    EXPECT_EQ(r->output_stride, wanted.stride);
    EXPECT_EQ(r->half_length, wanted.half_length);
    EXPECT_EQ(r->log2_length, wanted.log2_length);
    EXPECT_EQ(r->general_plan, wanted.general_plan);
    EXPECT_EQ(r->total_size, 6 * 8 * 5);
    EXPECT_EQ(r->total_half_size, 4 * 8 * 5);
    EXPECT_EQ(r->max_length, 8);
    EXPECT_EQ(r->prev_dim, before);
    before = r;
    r = r->next_dim;
  }
  EXPECT_EQ(r, nullptr);
}

TEST(Create, FrontEndChecksItsArguments) {
  const struct {
    double precision;
    int32_t domain;
    zor_int rank, length;
    int32_t status_d, status_s;
  } cases[] = {{double_precision, complex_data, 1, 8, done, bad_argument},
               {single, real_data, 1, 8, bad_argument, done},
               {double_precision + 0.5, complex_data, 1, 8, bad_argument, bad_argument},
               {double_precision, real_data + 1, 1, 8, bad_argument, bad_argument},
               {double_precision, complex_data - 1, 1, 8, bad_argument, bad_argument},
               {double_precision, complex_data, 2, 8, bad_argument, bad_argument},
               {double_precision, real_data, 1, 0, bad_argument, bad_argument},
               {double_precision, real_data, 1, 1, done, bad_argument}};
  // The precision comes as a number of that precision.
  int32_t (*const create_single)(ZorDftDescriptor**, float, int32_t, zor_int, zor_int) = zor_dft_create_1d_s;
  for (const auto& c : cases) {
    ZorDftDescriptor* d = nullptr;
    EXPECT_EQ(c.status_d, zor_dft_create_1d_d(&d, c.precision, c.domain, c.rank, c.length));
    EXPECT_EQ(c.status_d == done, d != nullptr);
    EXPECT_EQ(c.status_d == done ? done : bad_value, zor_dft_free(&d));
    EXPECT_EQ(c.status_s, create_single(&d, float(c.precision), c.domain, c.rank, c.length));
    EXPECT_EQ(c.status_s == done ? done : bad_value, zor_dft_free(&d));
  }
  EXPECT_EQ(bad_value, zor_dft_create_1d_d(nullptr, double_precision, complex_data, 1, 8));
  ZorDftDescriptor* d = nullptr;
  const zor_int lengths[] = {2, 3, 4, 5, 6, 7, 8, 9};
  for (zor_int rank = 0; rank <= 8; ++rank) {
    const bool fits = rank >= 1 && rank <= 7;
    EXPECT_EQ(fits ? done : bad_argument, zor_dft_create_nd_s(&d, complex_data, rank, lengths));
    EXPECT_EQ(fits ? done : bad_value, zor_dft_free(&d));
  }
  const zor_int bad[] = {4, 0, 4};
  EXPECT_EQ(bad_argument, zor_dft_create_nd_d(&d, complex_data, 3, bad));
  EXPECT_EQ(bad_argument, zor_dft_create_nd_d(&d, real_data + 1, 3, lengths));
  EXPECT_EQ(not_implemented, zor_dft_create_nd_d(&d, real_data, 4, lengths));
  ASSERT_EQ(0, zor_dft_create_nd_d(&d, real_data, 3, lengths));
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
const setting setting_cases[] = {
    {ZOR_DFT_COMPLEX_STORAGE, interleaved, done, &ZorDftDescriptor::complex_storage},
    {ZOR_DFT_COMPLEX_STORAGE, split, done, &ZorDftDescriptor::complex_storage},
    {ZOR_DFT_COMPLEX_STORAGE, packed, not_implemented, nullptr},
    {ZOR_DFT_COMPLEX_STORAGE, ZOR_DFT_REAL_COMPLEX, not_implemented, nullptr},
    {ZOR_DFT_COMPLEX_STORAGE, split + 1, bad_value, nullptr},
    {ZOR_DFT_REAL_STORAGE, split, done, &ZorDftDescriptor::real_storage},
    {ZOR_DFT_REAL_STORAGE, ZOR_DFT_REAL_COMPLEX, not_implemented, nullptr},
    {ZOR_DFT_REAL_STORAGE, packed, bad_value, nullptr},
    {ZOR_DFT_CONJUGATE_EVEN_STORAGE, interleaved, done, &ZorDftDescriptor::conjugate_even_storage},
    {ZOR_DFT_CONJUGATE_EVEN_STORAGE, packed, done, &ZorDftDescriptor::conjugate_even_storage},
    {ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_REAL_COMPLEX, not_implemented, nullptr},
    {ZOR_DFT_CONJUGATE_EVEN_STORAGE, split, not_implemented, nullptr},
    {ZOR_DFT_CONJUGATE_EVEN_STORAGE, interleaved - 1, bad_value, nullptr},
    {ZOR_DFT_PLACEMENT, in_place, done, &ZorDftDescriptor::placement},
    {ZOR_DFT_PLACEMENT, out_of_place, done, &ZorDftDescriptor::placement},
    {ZOR_DFT_PLACEMENT, out_of_place + 1, bad_value, nullptr},
    {ZOR_DFT_ORDERING, ordered, done, &ZorDftDescriptor::ordering},
    {ZOR_DFT_ORDERING, scrambled, done, &ZorDftDescriptor::ordering},
    {ZOR_DFT_ORDERING, scrambled + 1, not_implemented, nullptr},
    {ZOR_DFT_ORDERING, scrambled + 2, bad_value, nullptr},
    {ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_PADDED, done, &ZorDftDescriptor::packed_format},
    {ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_TAIL, done, &ZorDftDescriptor::packed_format},
    {ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_SECOND, done, &ZorDftDescriptor::packed_format},
    {ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_HALF_COMPLEX, done, &ZorDftDescriptor::packed_format},
    {ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_PADDED - 1, bad_value, nullptr},
    {ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_HALF_COMPLEX + 1, bad_value, nullptr},
    {ZOR_DFT_NUMBER_OF_USER_THREADS, 4, done, &ZorDftDescriptor::user_threads},
    {6, 1, not_implemented, nullptr},
    {16, 1, not_implemented, nullptr},
    {17, 1, not_implemented, nullptr},
    {24, 1, not_implemented, nullptr},
    {25, 1, not_implemented, nullptr},
    {0, 1, bad_value, nullptr},
    {19, 1, bad_value, nullptr},
    {27, 1, bad_value, nullptr},
    {-1, 1, bad_value, nullptr}};

TEST(SetValue, TakesAndRefusesByTheTable) {
  for (const setting& s : setting_cases) {
    SCOPED_TRACE(std::to_string(s.parameter) + " := " + std::to_string(s.value));
    const handle h = make(ZOR_DFT_SINGLE, ZOR_DFT_COMPLEX, {8, 4});
    ASSERT_EQ(0, commit(h));
    h->whole_unit = 1;
    EXPECT_EQ(s.status, zor_dft_set_value(h.get(), s.parameter, zor_int(s.value)));
    EXPECT_EQ(h->commit_status, ZOR_DFT_UNCOMMITTED) << "a refused value uncommits too";
    EXPECT_EQ(h->compute_forward, nullptr);
    EXPECT_EQ(h->compute_backward, nullptr);
    EXPECT_EQ(h->whole_unit, 0);
    for (const ZorDftDescriptor* r = h.get(); r != nullptr && s.field != nullptr; r = r->next_dim)
      EXPECT_EQ(r->*s.field, s.value) << "dimension " << r->dim_index;
    const bool complex_spectrum = s.parameter == ZOR_DFT_CONJUGATE_EVEN_STORAGE && s.value == interleaved;
    if (s.parameter == ZOR_DFT_PACKED_FORMAT) continue;
    EXPECT_EQ(h->next_dim->packed_format,
              complex_spectrum ? ZOR_DFT_FORMAT_HALF_COMPLEX : ZOR_DFT_FORMAT_PADDED);
  }
}

TEST(SetValue, TakesWideValuesArraysAndText) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1, 8, 4});
  const zor_int big = zor_int(5) << 33;
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_NUMBER_OF_TRANSFORMS, big));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_INPUT_DISTANCE, big + 1));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_OUTPUT_DISTANCE, big + 2));
  EXPECT_EQ(h->next_dim->number_of_transforms, big);
  EXPECT_EQ(h->next_dim->input_distance, big + 1);
  EXPECT_EQ(h->next_dim->output_distance, big + 2);
  const zor_int in[] = {9, 300, 200, 100}, out[] = {-1, 30, 20, 10};
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_INPUT_STRIDES, in));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_OUTPUT_STRIDES, out));
  EXPECT_EQ(bad_value,
            zor_dft_set_value(h.get(), ZOR_DFT_INPUT_STRIDES, static_cast<const zor_int*>(nullptr)));
  EXPECT_EQ(h->input_offset, 9);
  EXPECT_EQ(h->output_offset, -1);
  EXPECT_EQ(h->input_stride, 100);
  EXPECT_EQ(h->next_dim->input_stride, 200);
  EXPECT_EQ(h->next_dim->next_dim->output_stride, 30);
  // The scale goes to the first dimension that is transformed.
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_FORWARD_SCALE, 0.1));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_BACKWARD_SCALE, 3.0));
  EXPECT_EQ(h->forward_scale_d, 1.0);
  EXPECT_EQ(h->next_dim->forward_scale_d, 0.1);
  EXPECT_EQ(h->next_dim->forward_scale_s, 0.1f);
  EXPECT_EQ(h->next_dim->backward_scale_d, 3.0);
  EXPECT_EQ(h->next_dim->next_dim->forward_scale_d, 1.0);
  EXPECT_EQ(h->compute_forward, nullptr);
  const handle ones = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1, 1});
  EXPECT_EQ(0, zor_dft_set_value(ones.get(), ZOR_DFT_FORWARD_SCALE, 7.0));
  EXPECT_EQ(ones->forward_scale_d, 7.0);
  EXPECT_EQ(ones->next_dim->forward_scale_d, 1.0);
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_DESCRIPTOR_NAME, "abcdefghijkl"));
  EXPECT_STREQ(h->name, "abcdefghi");
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_DESCRIPTOR_NAME, "ab"));
  EXPECT_STREQ(h->name, "ab");
}

TEST(SetValue, ScaleAndNameLeaveTheFlagsTheyShould) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {8});
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(h->whole_unit, 1);
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_DESCRIPTOR_NAME, "name"));
  EXPECT_EQ(h->commit_status, ZOR_DFT_COMMITTED);
  EXPECT_NE(h->compute_forward, nullptr);
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_FORWARD_SCALE, 0.5));
  EXPECT_EQ(h->commit_status, ZOR_DFT_UNCOMMITTED);
  EXPECT_EQ(h->compute_backward, nullptr);
  EXPECT_EQ(h->whole_unit, 1);
}

TEST(SetValue, RefusesScrambledRealOrder) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_REAL, {8});
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(not_implemented, zor_dft_set_value(h.get(), ZOR_DFT_ORDERING, scrambled));
  EXPECT_EQ(h->commit_status, ZOR_DFT_UNCOMMITTED);
  EXPECT_EQ(h->compute_forward, nullptr);
}

TEST(Status, BadHandlesAreNamed) {
  ZorDftDescriptor* none = nullptr;
  double x[16] = {};
  EXPECT_EQ(not_a_descriptor, zor_dft_commit(nullptr));
  EXPECT_EQ(not_a_descriptor, zor_dft_commit(&none));
  EXPECT_EQ(not_a_descriptor, zor_dft_set_value(nullptr, ZOR_DFT_NUMBER_OF_TRANSFORMS, zor_int(1)));
  EXPECT_EQ(bad_value, zor_dft_free(nullptr));
  EXPECT_EQ(bad_value, zor_dft_free(&none));
  EXPECT_EQ(not_a_descriptor, zor_dft_compute_forward(nullptr, x));
  EXPECT_EQ(not_a_descriptor, zor_dft_compute_backward(&none, x));
  EXPECT_EQ(not_a_descriptor, zor_dft_commit_descriptor_core(&none, 0));
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {4});
  ZorDftDescriptor* d = h.get();
  EXPECT_EQ(engine_failed, zor_dft_commit(&d)) << "no commit routine";
  EXPECT_EQ(bad_value, zor_dft_compute_forward(&d, x)) << "never committed";
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(0, zor_dft_compute_forward(&d, x));
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_NUMBER_OF_TRANSFORMS, zor_int(1)));
  EXPECT_EQ(bad_argument, zor_dft_compute_forward(&d, x));
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_PLACEMENT, out_of_place));
  ASSERT_EQ(0, commit(h));
  EXPECT_EQ(0, zor_dft_set_value(d, ZOR_DFT_PLACEMENT, out_of_place));
  EXPECT_EQ(bad_value, zor_dft_compute_backward(&d, x));
  d->magic = 1;
  EXPECT_EQ(not_a_descriptor, zor_dft_set_value(d, ZOR_DFT_NUMBER_OF_TRANSFORMS, zor_int(1)));
  EXPECT_EQ(not_a_descriptor, zor_dft_free(&d));
  EXPECT_EQ(not_a_descriptor, zor_dft_compute_forward(&d, x));
  EXPECT_EQ(not_a_descriptor, zor_dft_commit(&d));
  EXPECT_EQ(not_a_descriptor, zor_dft_commit_descriptor_core(&d, 0));
  d->magic = ZOR_DFT_MAGIC;
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
  EXPECT_EQ(not_implemented, commit(cube));
  EXPECT_EQ(cube->compute_forward, nullptr);
  EXPECT_EQ(0, zor_dft_set_value(cube.get(), ZOR_DFT_CONJUGATE_EVEN_STORAGE, interleaved));
  EXPECT_EQ(0, commit(cube)) << "a failed commit can be repeated";
  EXPECT_NE(cube->next_dim->next_dim->plan_c, nullptr);
  const handle line = make(ZOR_DFT_DOUBLE, ZOR_DFT_REAL, {8});
  EXPECT_EQ(0, zor_dft_set_value(line.get(), ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_HALF_COMPLEX));
  EXPECT_EQ(not_implemented, commit(line));
  const handle plane = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {8, 8});
  EXPECT_EQ(0, zor_dft_set_value(plane.get(), ZOR_DFT_COMPLEX_STORAGE, split));
  ASSERT_EQ(0, commit(plane));
  double x[256] = {};
  EXPECT_EQ(not_implemented, plane->compute_forward(plane.get(), x, x + 64, nullptr, nullptr));
}

TEST(Commit, RefusesLengthsAboveTheLimits) {
  const settings cases[] = {{.of = packed_spectra, .lengths = {33554433}},
                            {.of = packed_spectra, .lengths = {134217728}},
                            {single, packed_spectra, in_place, {67108865}},
                            {single, packed_spectra, in_place, {268435456}},
                            {.of = split_lines, .lengths = {33554433}},
                            {.of = split_lines, .lengths = {134217728}},
                            {single, split_lines, in_place, {67108865}},
                            {single, split_lines, in_place, {268435456}},
                            // A prime cannot be split into two dimensions.
                            {.lengths = {33554467}}};
  for (const settings& c : cases) EXPECT_EQ(too_long, commit(handle{make(c)})) << c;
  // A chirp ends there in either precision; the public commit names the length.
  const handle prime{make(settings{single, lines, in_place, {33554467}})};
  EXPECT_EQ(ZOR_DFT_ENGINE_ERROR, commit(prime));
  EXPECT_EQ(too_long, zor_fft_commit(prime.get()));
  // Too long for any memory: refused at once.
  EXPECT_EQ(too_long, commit(make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {zor_int(1) << 57})));
  EXPECT_EQ(too_long, commit(make(ZOR_DFT_SINGLE, ZOR_DFT_COMPLEX, {3 * (zor_int(1) << 39)})));
}

// What commit decides: a fixed kernel or a plan for each dimension, and who is called for the transform.
enum plan_choice : int32_t { fixed = 0, planned = 1 };
enum called { the_driver, the_kernel, the_plane_routine, the_kernel_by_slot };
struct decision {
  settings of;  // lengths and plans from dimension 0 on
  std::vector<int32_t> plans;
  called runs = the_driver;
};
const decision decisions[] = {
    {{.lengths = {1024}}, {fixed}, the_kernel},
    {{.lengths = {2048}}, {planned}, the_kernel},
    {{.lengths = {128}, .callers = 2}, {fixed}, the_kernel_by_slot},
    {{.lengths = {256}, .callers = 2}, {planned}, the_kernel_by_slot},
    {{.placement = out_of_place, .lengths = {256}, .callers = 2}, {planned}, the_kernel_by_slot},
    {{.placement = out_of_place, .lengths = {60}}, {planned}, the_kernel},
    {{.placement = out_of_place, .lengths = {1}}, {planned}, the_kernel},
    {{.lengths = {512, 256}}, {fixed, fixed}},
    {{.lengths = {1024, 512}}, {planned, planned}},
    {{.placement = out_of_place, .lengths = {512, 256}}, {planned, fixed}},
    {{.lengths = {64, 128}, .callers = 2}, {fixed, planned}},
    {{.placement = out_of_place, .lengths = {128, 256}, .callers = 2}, {fixed, planned}},
    {{.lengths = {512, 256, 512}}, {fixed, fixed, fixed}},
    {{.lengths = {64, 64, 64}, .callers = 2}, {planned, fixed, planned}},
    {{.placement = out_of_place, .lengths = {64, 64, 32}}, {planned, fixed, fixed}},
    {{.lengths = {32, 32}}, {fixed, fixed}, the_plane_routine},
    {{.lengths = {64, 32}}, {fixed, fixed}},
    {{single, lines, in_place, {4}}, {fixed}, the_kernel},
    {{single, lines, in_place, {8}}, {planned}, the_kernel},
    {{.of = packed_spectra, .lengths = {64}}, {fixed}, the_kernel},
    {{.of = packed_spectra, .lengths = {128}}, {planned}, the_kernel},
    {{.of = packed_spectra, .lengths = {8192}}, {planned}},
    {{single, packed_spectra, in_place, {8192}}, {planned}, the_kernel},
    {{single, packed_spectra, in_place, {64}}, {fixed}, the_kernel},
    {{single, packed_spectra, in_place, {64, 4}}, {planned, planned}, the_plane_routine},
    {{double_precision, packed_spectra, out_of_place, {64, 4}}, {fixed, planned}, the_plane_routine},
    {{.lengths = {1024}, .ordering = scrambled}, {fixed}, the_kernel},
    {{.lengths = {60, 8}, .ordering = scrambled}, {planned, fixed}, the_plane_routine},
};

TEST(Commit, ChoosesKernelsAndFlags) {
  for (const decision& c : decisions) {
    settings last_first = c.of;
    std::reverse(last_first.lengths.begin(), last_first.lengths.end());
    const handle h{make(last_first)};
    SCOPED_TRACE(testing::Message() << c.of);
    if (c.of.of == packed_spectra) {
      EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_PADDED));
    }
    h->transpose = ZOR_DFT_NONE + 1;
    ASSERT_EQ(0, commit(h));
    size_t i = 0;
    for (const ZorDftDescriptor* r = h.get(); r != nullptr; r = r->next_dim, ++i) {
      EXPECT_EQ(r->general_plan, c.plans[i]) << "dimension " << i;
      EXPECT_EQ(r->commit_status, ZOR_DFT_COMMITTED);
      EXPECT_EQ(r->transpose, ZOR_DFT_NONE + 1);
    }
    EXPECT_EQ(i, c.of.lengths.size());
    EXPECT_EQ(h->whole_unit, c.runs == the_kernel || c.runs == the_kernel_by_slot);
    EXPECT_EQ(h->kernel_direct, c.runs == the_kernel);
    EXPECT_EQ(h->two_d_direct, c.runs == the_plane_routine);
    EXPECT_EQ(h->max_work_size % 256, 0);
    EXPECT_EQ(h->work_buffer != nullptr, h->max_work_size > 0);
    EXPECT_EQ(uintptr_t(h->work_buffer) % 256, 0u);
    EXPECT_EQ(h->thread_slots != nullptr, c.of.callers > 1);
    EXPECT_EQ(h->nio_args, c.of.placement == in_place ? 1 : 2);
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
    EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_NUMBER_OF_TRANSFORMS, c.transforms));
    EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_INPUT_DISTANCE, c.length));
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
  std::vector<zor_int> lengths;
  double forward_scale, backward_scale;
  int32_t answer, answer_single;
};
const float third = float(1.0 / 3.0);
const taker takers[] = {{{1, 2, 3, 8, 16, 64, 100, 128}, 1, 1, done, done},
                        {{256}, 1, 1, no_breakdown, done},
                        {{1000, 5000}, 1, 1, no_breakdown, no_breakdown},
                        {{8}, 2, 1, no_breakdown, no_breakdown},
                        {{8}, 0.125, 1, done, done},
                        {{8}, 1, 0.125, done, done},
                        {{4}, 0.5, 0.5, done, done},
                        {{4}, 0.25, 0.25, no_breakdown, no_breakdown},
                        {{3}, 1.0 / 3, 1, done, done},
                        {{3}, third, 1, no_breakdown, done}};

template <class R>
void check_taker(const taker& t, zor_int length) {
  constexpr bool wide = sizeof(R) == 8;
  const int32_t answer = wide ? t.answer : t.answer_single;
  SCOPED_TRACE("length " + std::to_string(length) + (wide ? " double" : " single"));
  const handle h = make(wide ? double_precision : single, ZOR_DFT_COMPLEX, {length});
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_FORWARD_SCALE, t.forward_scale));
  EXPECT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_BACKWARD_SCALE, t.backward_scale));
  const auto other = wide ? zor_dft_apply_bkdowns_s_c2c_1d : zor_dft_apply_bkdowns_d_c2c_1d;
  for (auto empty :
       {other, zor_dft_apply_bkdowns_d_c2c_md, zor_dft_apply_bkdowns_d_r2c_1d, zor_dft_apply_bkdowns_d_r2c_md,
        zor_dft_apply_bkdowns_s_c2c_md, zor_dft_apply_bkdowns_s_r2c_1d, zor_dft_apply_bkdowns_s_r2c_md})
    EXPECT_EQ(no_breakdown, empty(h.get()));
  ASSERT_EQ(answer, (wide ? zor_dft_apply_bkdowns_d_c2c_1d : zor_dft_apply_bkdowns_s_c2c_1d)(h.get()));
  EXPECT_EQ(h->commit_status, answer == done ? ZOR_DFT_COMMITTED : ZOR_DFT_UNCOMMITTED);
  if (answer != done) return;
  // The round trip of two impulses, and the value of frequency 1.
  const size_t n = size_t(length), k = n > 1 ? 2 : 0;
  std::vector<R> x(2 * n);
  x[0] = 1;
  x[2 * (n - 1)] += 2;
  EXPECT_EQ(0, h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr));
  const double angle = n > 1 ? 2 * M_PI / double(n) : 0;
  EXPECT_NEAR(x[k], t.forward_scale * (1 + 2 * std::cos(angle)), 1e-6);
  EXPECT_NEAR(x[k + 1], t.forward_scale * 2 * std::sin(angle), 1e-6);
  EXPECT_EQ(0, h->compute_backward(h.get(), x.data(), nullptr, nullptr, nullptr));
  const double gain = double(n) * t.forward_scale * t.backward_scale;
  EXPECT_NEAR(x[0], (n > 1 ? 1 : 3) * gain, 1e-5 * gain);
}

TEST(Breakdown, TakesSimpleTransformsOnly) {
  for (const taker& t : takers)
    for (const zor_int length : t.lengths) {
      check_taker<double>(t, length);
      check_taker<float>(t, length);
    }
}

TEST(Breakdown, NeedsContiguousUnshiftedData) {
  const auto refused = [](auto change) {
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {8});
    change(h.get());
    EXPECT_EQ(no_breakdown, zor_dft_apply_bkdowns_d_c2c_1d(h.get()));
  };
  refused([](ZorDftDescriptor* d) { d->input_stride = 2; });
  refused([](ZorDftDescriptor* d) { d->input_offset = 1; });
  refused([](ZorDftDescriptor* d) { d->number_of_transforms = 2; });
  refused([](ZorDftDescriptor* d) { d->complex_storage = ZOR_DFT_REAL_REAL; });
  refused([](ZorDftDescriptor* d) { d->placement = out_of_place, d->output_stride = 2; });
  refused([](ZorDftDescriptor* d) { d->placement = out_of_place, d->output_offset = 1; });
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

// A negative scale shows in the signs of the zeros that pad a spectrum. Lengths up to 64 that are powers of
// two have kernels of their own.
TEST(RealScale, SignsOfPaddingZeros) {
  const struct {
    zor_int n;
    int32_t storage, placement;
    bool second_negative, last_negative;  // at 1 and n + 1
  } cases[] = {{12, packed, in_place, true, false},      {12, packed, out_of_place, true, false},
               {12, interleaved, in_place, true, false}, {8, packed, in_place, true, true},
               {8, packed, out_of_place, false, false},  {8, interleaved, in_place, false, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.n << " storage " << c.storage << " placement " << c.placement);
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_REAL, {c.n});
    ASSERT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_CONJUGATE_EVEN_STORAGE, c.storage));
    ASSERT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_PLACEMENT, c.placement));
    ASSERT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_FORWARD_SCALE, -2.0));
    ASSERT_EQ(0, commit(h));
    double x[14] = {1, 2, 4}, y[14];
    ASSERT_EQ(0, h->compute_forward(h.get(), x, y, nullptr, nullptr));
    const double* result = c.placement == in_place ? x : y;
    EXPECT_EQ(result[0], -14);
    EXPECT_EQ(std::pair(result[1], result[c.n + 1]), std::pair(0.0, 0.0));
    EXPECT_EQ(std::signbit(result[1]), c.second_negative);
    EXPECT_EQ(std::signbit(result[c.n + 1]), c.last_negative);
  }
}

// A kernel that waits keeps a caller inside compute.
std::latch inside(4), leave(1);
int32_t waiting_kernel(const void*, void*, ZorDftDescriptor*, void* work) {
  if (work != nullptr) *static_cast<volatile char*>(work) = 1;
  inside.count_down();
  leave.wait();
  return 0;
}

TEST(UserThreads, TheFifthCallerOfFourIsRefused) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1000});
  ASSERT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_NUMBER_OF_USER_THREADS, zor_int(4)));
  ASSERT_EQ(0, commit(h));
  const auto kernel = h->kernel_z_fwd;
  h->kernel_z_fwd = waiting_kernel;
  std::vector<std::thread> callers;
  std::vector<int32_t> status(4, -1);
  std::vector<double> x(2000);
  for (size_t i = 0; i < 4; ++i)
    callers.emplace_back(
        [&, i] { status[i] = h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr); });
  inside.wait();
  EXPECT_EQ(no_free_slot, h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr));
  leave.count_down();
  for (std::thread& t : callers) t.join();
  for (int32_t s : status) EXPECT_EQ(s, 0);
  h->kernel_z_fwd = kernel;
  EXPECT_EQ(0, h->compute_forward(h.get(), x.data(), nullptr, nullptr, nullptr))
      << "the slots are free again";
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

// Impulses of height 1 and 2, in place by the input's layout or from there to the output's.
TEST(Driver, ItsNameRulesThePlacement) {
  for (int32_t placement : {in_place, out_of_place}) {
    SCOPED_TRACE(placement);
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {4});
    h->placement = placement;
    h->number_of_transforms = 2;
    h->input_distance = 4;
    h->output_distance = 13;
    h->output_stride = 3;
    ASSERT_EQ(0, commit(h));
    std::vector<zor_c64> x(26), y(26);
    x[0].re = 1;
    x[4].re = 2;
    EXPECT_EQ(0, zor_dft_xzforward_out(h.get(), x.data(), y.data(), 2, h->work_buffer));
    EXPECT_EQ(0, zor_dft_xzforward(h.get(), x.data(), 2, h->work_buffer));
    for (size_t k = 0; k < 4; ++k) {
      EXPECT_EQ(std::pair(y[3 * k].re, y[13 + 3 * k].re), std::pair(1.0, 2.0)) << k;
      EXPECT_EQ(std::pair(x[k].re, x[4 + k].re), std::pair(1.0, 2.0)) << k;
    }
  }
}

TEST(WholeKernel, UnalignedDataAreMoved) {
  for (int32_t placement : {in_place, out_of_place}) {
    const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {10});
    ASSERT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_PLACEMENT, placement));
    h->whole_z_fwd = whole_doubling;
    h->thread_limit = 2;
    ASSERT_EQ(0, commit(h));
    EXPECT_EQ(h->whole_unit, 0);
    EXPECT_EQ(h->plan_z, nullptr);
    for (size_t shift : {0, 8}) {
      zor_test::guarded<double> x(20, true, shift), y(20, false, shift);
      for (size_t i = 0; i < 20; ++i) x[i] = double(i);
      ASSERT_EQ(0, h->compute_forward(h.get(), x.data(), y.data(), nullptr, nullptr));
      const auto& result = placement == in_place ? x : y;
      for (size_t i = 0; i < 20; ++i) EXPECT_EQ(result[i], 2.0 * double(i));
    }
  }
}

TEST(NioArgs, CountTheArrays) {
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {4});
  EXPECT_EQ(short_of_memory, zor_dft_determine_nioargs(h.get()));
  h->complex_storage = split;
  EXPECT_EQ(bad_argument, zor_dft_determine_nioargs(h.get()));
  h->placement = out_of_place;
  EXPECT_EQ(4, zor_dft_determine_nioargs(h.get()));
  h->forward_domain = real_data;
  EXPECT_EQ(bad_argument, zor_dft_determine_nioargs(h.get()));
}

// A long line through two dimensions equals the plan of its length to rounding.
template <class R>
void check_via_2d(zor_int n, int32_t precision, double tolerance, int32_t (*init)(ZorDftDescriptor*),
                  zor_dft_kernel ZorDftDescriptor::*fwd, zor_dft_kernel ZorDftDescriptor::*bwd) {
  const handle h = make(precision, ZOR_DFT_COMPLEX, {n});
  ASSERT_EQ(0, zor_dft_set_value(h.get(), ZOR_DFT_FORWARD_SCALE, 0.5));
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
  EXPECT_EQ(not_splittable, zor_dft_xz_init_data_1d_via_2d(prime.get()));
  EXPECT_EQ(prime->private_data, nullptr);
  const handle h = make(ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, {1 << 13});
  ASSERT_EQ(0, zor_dft_xz_init_data_1d_via_2d(h.get()));
  const auto* v = static_cast<const zor_dft_1d_via_2d*>(h->private_data);
  EXPECT_TRUE(v->a == 64 && v->b == 128 && v->pitch_a == 1024 && v->pitch_b == 2048 &&
              v->twiddle_count == 128);
}

// Impulses have sums of roots of unity for their transform, and the transform backward, a pure tone for each
// of them, gives them back.
struct impulse {
  zor_int at;
  double height;
};
long double root_part(zor_int k, zor_int at, zor_int n, bool imaginary) {
  const long double circle = (long double)((__int128(k) * at) % n) / (long double)(n);
  const long double angle = -2 * 3.14159265358979323846264338327950288L * circle;
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

// Above the limit of the plans commit itself takes this path, alone and in a batch, on any number of threads.
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
  ASSERT_EQ(0, zor_dft_set_value(two.get(), ZOR_DFT_NUMBER_OF_TRANSFORMS, zor_int(2)));
  ASSERT_EQ(0, zor_dft_set_value(two.get(), ZOR_DFT_INPUT_DISTANCE, n));
  ASSERT_EQ(0, commit(two));
  EXPECT_EQ(two->kernel_direct, 0);
}

}  // namespace
