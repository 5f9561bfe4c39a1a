// SPDX-License-Identifier: MIT
// Memory that runs short: each allocation of a commit, then each of a compute, fails in turn. The call
// answers 1 (or does without), nothing leaks, and the descriptor can be committed again or freed. The
// program's own malloc counts.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/dft/names.h"
#include "zor/serv.h"

namespace {
std::atomic<long> fail_at{-1};  // allocations to go before one fails; below 0: none
std::atomic<long> live{0};
std::atomic<bool> counting{false};

[[gnu::constructor]] void switch_pool_off() { setenv("ZOR_MM_DISABLE", "1", 1); }

bool refuse() { return fail_at.load() >= 0 && fail_at.fetch_sub(1) == 0; }
}  // namespace

extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);

void* malloc(size_t n) {
  if (refuse()) return nullptr;
  if (counting) ++live;
  return __libc_malloc(n);
}
void* calloc(size_t n, size_t size) {
  if (refuse()) return nullptr;
  if (counting) ++live;
  return __libc_calloc(n, size);
}
void* realloc(void* p, size_t n) {
  if (refuse()) return nullptr;
  if (counting && p == nullptr) ++live;
  return __libc_realloc(p, n);
}
void free(void* p) {
  if (counting && p != nullptr) --live;
  __libc_free(p);
}
}

namespace {

using namespace dft_test;

struct shape {
  const char* name;
  int32_t precision = double_precision, domain = complex_data, storage = interleaved, placement = in_place;
  std::vector<zor_int> lengths;
  zor_int stride = 1;  // along dimension 0
  zor_int user_threads = 1;
  int32_t threads = 1, ordering = ordered;
  int32_t (*commit)(zor_fft) = nullptr;  // null: the kernel library's
  bool work_taken = false;               // as if another caller computed in the descriptor's work buffer
};

int32_t core_commit(zor_fft fft) { return zor_dft_commit_descriptor_core(&fft, 0); }
int32_t long_commit(zor_fft fft) {
  const int32_t status = core_commit(fft);
  return status != 0 ? status : zor_dft_xz_init_data_1d_via_2d(fft);
}

int32_t breakdown_commit(zor_fft fft) { return zor_fft_commit(fft); }

const shape shapes[] = {
    {.name = "chirp", .lengths = {997}},
    {.name = "mixed radix", .precision = single, .lengths = {1000}},
    {.name = "power of two", .lengths = {4096}},
    {.name = "grid", .placement = out_of_place, .lengths = {32768}},
    {.name = "direct", .lengths = {89}},
    {.name = "strided", .placement = out_of_place, .lengths = {60}, .stride = 3},
    {.name = "scrambled", .lengths = {5005}, .ordering = scrambled},
    {.name = "split", .storage = split, .lengths = {97}, .stride = 2},
    {.name = "user threads", .lengths = {64, 30}, .user_threads = 4},
    {.name = "rank 3", .precision = single, .placement = out_of_place, .lengths = {5, 6, 7}},
    {.name = "packed plane",
     .domain = real_data,
     .storage = packed,
     .placement = out_of_place,
     .lengths = {15, 20}},
    {.name = "packed odd", .domain = real_data, .storage = packed, .lengths = {1001}},
    {.name = "packed chirp", .precision = single, .domain = real_data, .storage = packed, .lengths = {194}},
    {.name = "mixed cube", .domain = real_data, .placement = out_of_place, .lengths = {6, 5, 4}},
    {.name = "mixed in place", .precision = single, .domain = real_data, .lengths = {30, 14}},
    {.name = "shared plane", .placement = out_of_place, .lengths = {24, 20}, .threads = 2},
    {.name = "shared packed plane",
     .precision = single,
     .domain = real_data,
     .storage = packed,
     .lengths = {24, 20},
     .threads = 2},
    {.name = "shared cube",
     .domain = real_data,
     .placement = out_of_place,
     .lengths = {6, 5, 4},
     .threads = 2},
    {.name = "1-D via 2-D", .lengths = {60 * 64}, .commit = long_commit},
    {.name = "second caller", .lengths = {997}, .work_taken = true},
    {.name = "second caller, shared plane",
     .placement = out_of_place,
     .lengths = {24, 20},
     .threads = 2,
     .work_taken = true},
    {.name = "exchanged layouts",
     .domain = real_data,
     .placement = out_of_place,
     .lengths = {15, 20},
     .commit = zor_fft_commit},
    {.name = "four dimensions",
     .domain = real_data,
     .placement = out_of_place,
     .lengths = {3, 4, 5, 6},
     .commit = zor_fft_commit},
    {.name = "breakdown", .placement = out_of_place, .lengths = {100}, .commit = breakdown_commit}};

zor_fft make(const shape& s) {
  zor_fft fft = nullptr;
  EXPECT_EQ(0, zor_fft_create(&fft, s.precision, s.domain, zor_int(s.lengths.size()), s.lengths.data()));
  EXPECT_EQ(0, zor_fft_set_int(
                   fft, s.domain == real_data ? ZOR_DFT_CONJUGATE_EVEN_STORAGE : ZOR_DFT_COMPLEX_STORAGE,
                   s.storage));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, s.placement));
  EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_USER_THREADS, s.user_threads));
  if (s.ordering != ordered) {
    EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_ORDERING, s.ordering));
  }
  if (s.domain == real_data && s.storage == packed) {
    EXPECT_EQ(0, zor_fft_set_int(fft, ZOR_DFT_PACKED_FORMAT, ZOR_DFT_FORMAT_TAIL));
  }
  if (s.stride != 1) {
    const zor_int strides[] = {0, s.stride};
    EXPECT_EQ(0, zor_fft_set_strides(fft, ZOR_DFT_INPUT_STRIDES, strides));
    EXPECT_EQ(0, zor_fft_set_strides(fft, ZOR_DFT_OUTPUT_STRIDES, strides));
  }
  fft->thread_limit = s.threads;
  fft->reserved_a = s.work_taken;
  return fft;
}

int32_t commit(const shape& s, zor_fft fft) { return (s.commit != nullptr ? s.commit : core_commit)(fft); }

// The operands, filled anew before each call.
struct operands {
  double x[1 << 16], y[1 << 16], z[1 << 16], w[1 << 16];
} data;

int32_t compute(const shape& s, zor_fft fft, bool backward) {
  double* all = data.x;
  for (size_t i = 0; i < sizeof data / sizeof *all; ++i) all[i] = double(i % 101) - 50;
  const auto run = backward ? zor_fft_backward : zor_fft_forward;
  return s.storage == split ? run(fft, data.x, data.y, data.z, data.w) : run(fft, data.x, data.y);
}

bool computes(const shape& s, zor_fft fft, bool backward, const operands& wanted) {
  return compute(s, fft, backward) == 0 && std::memcmp(&data, &wanted, sizeof data) == 0;
}

// Blocks that a call adds to those in use.
template <class Call>
long growth(const Call& call) {
  const long before = live;
  counting = true;
  call();
  counting = false;
  return live - before;
}

// Calls `step` with its first, second, ... allocation failing until it needs no more. Every failure must be
// code 1; after_failure is given what the step left allocated.
template <class Step, class After>
void fail_each(const shape& s, const char* what, const Step& step, const After& after_failure) {
  for (long n = 0; n < 1000; ++n) {
    int32_t status = 0;
    fail_at = n;
    const long left = growth([&] { status = step(); });
    const bool failed = fail_at.exchange(-1) < 0;
    if (!failed) {
      EXPECT_EQ(0, status) << s.name << " " << what;
      return;
    }
    if (status == 0 && s.commit == breakdown_commit) return;  // a breakdown that fails gives way to a plan
    ASSERT_EQ(short_of_memory, status) << s.name << " " << what << ", allocation " << n;
    after_failure(left);
  }
  ADD_FAILURE() << s.name << " never finished";
}

TEST(Memory, EveryAllocationMayFail) {
  const auto forward_bits = std::make_unique<operands>(), backward_bits = std::make_unique<operands>();
  for (const shape& s : shapes) {
    SCOPED_TRACE(s.name);
    zor_fft fft = make(s);
    ASSERT_EQ(0, commit(s, fft));  // what the libraries keep for good is there before the count
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
      long made = growth([&] { fft = make(s); });
      fail_each(
          s, "commit", [&] { return commit(s, fft); },
          [&](long left) {
            if (s.commit == nullptr || s.commit == zor_fft_commit) {
              EXPECT_EQ(fft->compute_forward, nullptr);
              EXPECT_EQ(fft->commit_status, ZOR_DFT_UNCOMMITTED);
            }
            if (again) {
              EXPECT_EQ(0, commit(s, fft));
              EXPECT_TRUE(computes(s, fft, false, *forward_bits));
            }
            const long freed = growth([&] { zor_fft_free(&fft); });
            EXPECT_TRUE(again || made + left + freed == 0) << "leaked";
            made = growth([&] { fft = make(s); });
          });
      zor_fft_free(&fft);
    }
  }
}

TEST(Memory, CreateMayFail) {
  zor_fft fft = nullptr;
  const zor_int n = 8;
  fail_at = 0;
  const int32_t status = zor_dft_create_descriptor_md(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 1, &n);
  fail_at = -1;
  EXPECT_EQ(short_of_memory, status);
  EXPECT_EQ(fft, nullptr);
}

}  // namespace
