// SPDX-License-Identifier: MIT
// Memory that runs short: each allocation of a commit, then each of a compute, fails in turn. The call
// answers 1 (or does without), nothing leaks, and the descriptor can be committed again or freed.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "tests/dft/settings.h"
#include "tests/support/failing_malloc.h"
#include "zor/serv.h"

namespace {

using namespace dft_test;
using zor_test::short_memory;
using zor_test::with_failure;

[[gnu::constructor]] void switch_pool_off() { setenv("ZOR_MM_DISABLE", "1", 1); }

int32_t core_commit(zor_fft fft) { return zor_dft_commit_descriptor_core(&fft, 0); }
int32_t long_commit(zor_fft fft) {
  const int32_t status = core_commit(fft);
  return status != 0 ? status : zor_dft_xz_init_data_1d_via_2d(fft);
}
int32_t breakdown_commit(zor_fft fft) { return zor_fft_commit(fft); }

struct shape {
  const char* name;
  settings fft;
  int32_t threads = 1;
  int32_t (*commit)(zor_fft) = core_commit;
  bool work_taken = false;  // as if another caller computed in the descriptor's work buffer
};
const shape shapes[] = {
    {"chirp", {.lengths = {997}}},
    {"mixed radix", {single, lines, in_place, {1000}}},
    {"power of two", {.lengths = {4096}}},
    {"grid", {.placement = out_of_place, .lengths = {32768}}},
    {"direct", {.lengths = {89}}},
    {"strided", {.placement = out_of_place, .lengths = {60}, .stride = 3}},
    {"scrambled", {.lengths = {5005}, .ordering = scrambled}},
    {"split", {.of = split_lines, .lengths = {97}, .stride = 2}},
    {"user threads", {.lengths = {64, 30}, .callers = 4}},
    {"rank 3", {single, lines, out_of_place, {5, 6, 7}}},
    {"packed plane", {double_precision, packed_spectra, out_of_place, {15, 20}}},
    {"packed odd", {.of = packed_spectra, .lengths = {1001}}},
    {"packed chirp", {single, packed_spectra, in_place, {194}}},
    {"mixed cube", {double_precision, half_spectra, out_of_place, {6, 5, 4}}},
    {"mixed in place", {single, half_spectra, in_place, {30, 14}}},
    {"shared plane", {.placement = out_of_place, .lengths = {24, 20}}, 2},
    {"shared packed plane", {single, packed_spectra, in_place, {24, 20}}, 2},
    {"shared cube", {double_precision, half_spectra, out_of_place, {6, 5, 4}}, 2},
    {"1-D via 2-D", {.lengths = {60 * 64}}, 1, long_commit},
    {"second caller", {.lengths = {997}}, 1, core_commit, true},
    {"second caller, shared plane", {.placement = out_of_place, .lengths = {24, 20}}, 2, core_commit, true},
    {"exchanged layouts", {double_precision, half_spectra, out_of_place, {15, 20}}, 1, zor_fft_commit},
    {"four dimensions", {double_precision, half_spectra, out_of_place, {3, 4, 5, 6}}, 1, zor_fft_commit},
    {"breakdown", {.placement = out_of_place, .lengths = {100}}, 1, breakdown_commit}};

zor_fft make(const shape& s) {
  const zor_fft fft = dft_test::make(s.fft);
  fft->thread_limit = s.threads;
  fft->reserved_a = s.work_taken;
  return fft;
}

// The operands, filled anew before each call.
struct operands {
  double x[1 << 16], y[1 << 16], z[1 << 16], w[1 << 16];
} data;

int32_t compute(const shape& s, zor_fft fft, bool backward) {
  double* all = data.x;
  for (size_t i = 0; i < sizeof data / sizeof *all; ++i) all[i] = double(i % 101) - 50;
  const auto run = backward ? zor_fft_backward : zor_fft_forward;
  return s.fft.of == split_lines ? run(fft, data.x, data.y, data.z, data.w) : run(fft, data.x, data.y);
}

bool computes(const shape& s, zor_fft fft, bool backward, const operands& wanted) {
  return compute(s, fft, backward) == 0 && std::memcmp(&data, &wanted, sizeof data) == 0;
}

// Calls `step` with its first, second, ... allocation failing until it needs no more. Every failure must be
// code 1; after_failure is given what the step left allocated.
template <class Step, class After>
void fail_each(const shape& s, const char* what, const Step& step, const After& after_failure) {
  for (long n = 0; n < 1000; ++n) {
    int32_t status = 0;
    const short_memory met = with_failure(n, false, [&] { status = step(); });
    if (!met.happened) {
      EXPECT_EQ(0, status) << s.name << " " << what;
      return;
    }
    if (status == 0 && s.commit == breakdown_commit) return;  // a breakdown that fails gives way to a plan
    ASSERT_EQ(short_of_memory, status) << s.name << " " << what << ", allocation " << n;
    after_failure(met.left);
  }
  ADD_FAILURE() << s.name << " never finished";
}

TEST(Memory, EveryAllocationMayFail) {
  const auto forward_bits = std::make_unique<operands>(), backward_bits = std::make_unique<operands>();
  for (const shape& s : shapes) {
    SCOPED_TRACE(s.name);
    zor_fft fft = make(s);
    ASSERT_EQ(0, s.commit(fft));  // what the libraries keep for good is there before the count
    for (const bool backward : {false, true}) {
      operands* const bits = (backward ? backward_bits : forward_bits).get();
      ASSERT_EQ(0, compute(s, fft, backward));
      *bits = data;
      fail_each(
          s, "compute", [&] { return compute(s, fft, backward); },
          [&](long left) {
            EXPECT_EQ(0, left) << "leaked";
            EXPECT_TRUE(computes(s, fft, backward, *bits));
          });
    }
    zor_fft_free(&fft);
    // A failed commit leaves a descriptor that can be committed, or freed with all that was built.
    for (const bool again : {false, true}) {
      const auto create = [&] { fft = make(s); };
      const auto release = [&] { zor_fft_free(&fft); };
      long made = with_failure(-1, false, create).left;
      fail_each(
          s, "commit", [&] { return s.commit(fft); },
          [&](long left) {
            if (s.commit == core_commit || s.commit == zor_fft_commit) {
              EXPECT_EQ(fft->compute_forward, nullptr);
              EXPECT_EQ(fft->commit_status, ZOR_DFT_UNCOMMITTED);
            }
            if (again) {
              EXPECT_EQ(0, s.commit(fft));
              EXPECT_TRUE(computes(s, fft, false, *forward_bits));
            }
            const long freed = with_failure(-1, false, release).left;
            EXPECT_TRUE(again || made + left + freed == 0) << "leaked";
            made = with_failure(-1, false, create).left;
          });
      zor_fft_free(&fft);
    }
  }
}

TEST(Memory, CreateMayFail) {
  zor_fft fft = nullptr;
  const zor_int n = 8;
  int32_t status = 0;
  with_failure(0, false,
               [&] { status = zor_dft_create_descriptor_md(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 1, &n); });
  EXPECT_EQ(short_of_memory, status);
  EXPECT_EQ(fft, nullptr);
}

}  // namespace
