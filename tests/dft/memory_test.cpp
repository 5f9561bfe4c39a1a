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

#include "zor/dft.h"
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

struct shape {
  const char* name;
  int32_t precision, domain, storage, placement;
  std::vector<zor_int> lengths;
  zor_int stride = 1;  // along dimension 0
  zor_int user_threads = 1;
  int32_t threads = 1, ordering = 48;
  int32_t (*commit)(zor_fft) = nullptr;  // null: the kernel library's
  bool work_taken = false;               // as if another caller computed in the descriptor's work buffer
};

int32_t core_commit(zor_fft fft) { return zor_dft_commit_descriptor_core(&fft, 0); }
int32_t long_commit(zor_fft fft) {
  const int32_t status = core_commit(fft);
  return status != 0 ? status : zor_dft_xz_init_data_1d_via_2d(fft);
}

const shape shapes[] = {{"chirp", 36, 32, 39, 43, {997}},
                        {"mixed radix", 35, 32, 39, 43, {1000}},
                        {"power of two", 36, 32, 39, 43, {4096}},
                        {"grid", 36, 32, 39, 44, {32768}},
                        {"direct", 36, 32, 39, 43, {89}},
                        {"strided", 36, 32, 39, 44, {60}, 3},
                        {"scrambled", 36, 32, 39, 43, {5005}, 1, 1, 1, 49},
                        {"split", 36, 32, 42, 43, {97}, 2},
                        {"user threads", 36, 32, 39, 43, {64, 30}, 1, 4},
                        {"rank 3", 35, 32, 39, 44, {5, 6, 7}},
                        {"packed plane", 36, 33, 40, 44, {15, 20}},
                        {"packed odd", 36, 33, 40, 43, {1001}},
                        {"packed chirp", 35, 33, 40, 43, {194}},
                        {"mixed cube", 36, 33, 39, 44, {6, 5, 4}},
                        {"mixed in place", 35, 33, 39, 43, {30, 14}},
                        {"shared plane", 36, 32, 39, 44, {24, 20}, 1, 1, 2},
                        {"shared packed plane", 35, 33, 40, 43, {24, 20}, 1, 1, 2},
                        {"shared cube", 36, 33, 39, 44, {6, 5, 4}, 1, 1, 2},
                        {"1-D via 2-D", 36, 32, 39, 43, {60 * 64}, 1, 1, 1, 48, long_commit},
                        {"second caller", 36, 32, 39, 43, {997}, 1, 1, 1, 48, nullptr, true},
                        {"second caller, shared plane", 36, 32, 39, 44, {24, 20}, 1, 1, 2, 48, nullptr, true},
                        {"breakdown", 36, 32, 39, 44, {100}, 1, 1, 1, 48, zor_fft_commit}};

zor_fft make(const shape& s) {
  zor_fft fft = nullptr;
  EXPECT_EQ(0, zor_fft_create(&fft, s.precision, s.domain, zor_int(s.lengths.size()), s.lengths.data()));
  EXPECT_EQ(0, zor_fft_set(fft, s.domain == 33 ? 10 : 8, s.storage));
  EXPECT_EQ(0, zor_fft_set(fft, 11, s.placement));
  EXPECT_EQ(0, zor_fft_set(fft, 26, s.user_threads));
  if (s.ordering != 48) {
    EXPECT_EQ(0, zor_fft_set(fft, 18, s.ordering));
  }
  if (s.domain == 33 && s.storage == 40) {
    EXPECT_EQ(0, zor_fft_set(fft, 21, ZOR_DFT_FORMAT_TAIL));
  }
  if (s.stride != 1) {
    const zor_int strides[] = {0, s.stride};
    EXPECT_EQ(0, zor_fft_set(fft, 12, strides));
    EXPECT_EQ(0, zor_fft_set(fft, 13, strides));
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
  return s.storage == 42 ? run(fft, data.x, data.y, data.z, data.w) : run(fft, data.x, data.y);
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
    if (status == 0 && s.commit == zor_fft_commit) return;  // a breakdown that fails gives way to a plan
    ASSERT_EQ(1, status) << s.name << " " << what << ", allocation " << n;
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
            if (s.commit == nullptr) {
              EXPECT_EQ(fft->compute_forward, nullptr);
              EXPECT_EQ(fft->commit_status, 31);
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
  EXPECT_EQ(1, status);
  EXPECT_EQ(fft, nullptr);
}

}  // namespace
