// SPDX-License-Identifier: MIT
// Memory that runs short: each allocation of a commit, then each of a compute, fails in turn. The call
// answers 1 (or does without), nothing leaks, and the descriptor can be committed again or freed. The
// program's own malloc counts.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
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
  zor_int stride;  // along dimension 0
  zor_int user_threads;
};
const shape shapes[] = {{"chirp", 36, 32, 39, 43, {997}, 1, 1},
                        {"mixed radix", 35, 32, 39, 43, {1000}, 1, 1},
                        {"power of two", 36, 32, 39, 43, {4096}, 1, 1},
                        {"strided", 36, 32, 39, 44, {60}, 3, 1},
                        {"split", 36, 32, 42, 43, {97}, 2, 1},
                        {"user threads", 36, 32, 39, 43, {64, 30}, 1, 4},
                        {"rank 3", 35, 32, 39, 44, {5, 6, 7}, 1, 1},
                        {"packed plane", 36, 33, 40, 44, {15, 20}, 1, 1},
                        {"packed odd", 36, 33, 40, 43, {1001}, 1, 1},
                        {"mixed cube", 36, 33, 39, 44, {6, 5, 4}, 1, 1},
                        {"mixed in place", 35, 33, 39, 43, {30, 14}, 1, 1}};

zor_fft make(const shape& s) {
  zor_fft fft = nullptr;
  EXPECT_EQ(0, zor_fft_create(&fft, s.precision, s.domain, zor_int(s.lengths.size()), s.lengths.data()));
  EXPECT_EQ(0, zor_fft_set(fft, s.domain == 33 ? 10 : 8, s.storage));
  EXPECT_EQ(0, zor_fft_set(fft, 11, s.placement));
  EXPECT_EQ(0, zor_fft_set(fft, 26, s.user_threads));
  if (s.stride != 1) {
    const zor_int strides[] = {0, s.stride};
    EXPECT_EQ(0, zor_fft_set(fft, 12, strides));
    EXPECT_EQ(0, zor_fft_set(fft, 13, strides));
  }
  return fft;
}

int32_t core_commit(zor_fft fft) { return zor_dft_commit_descriptor_core(&fft, 0); }

double x[1 << 16], y[1 << 16], z[1 << 16], w[1 << 16];

int32_t forward(const shape& s, zor_fft fft) {
  return s.storage == 42 ? zor_fft_forward(fft, x, y, z, w) : zor_fft_forward(fft, x, y);
}
int32_t backward(const shape& s, zor_fft fft) {
  return s.storage == 42 ? zor_fft_backward(fft, x, y, z, w) : zor_fft_backward(fft, x, y);
}

// Calls `step` with its first, second, ... allocation failing until it needs no more; every failure must be
// code 1.
template <class Step>
void fail_each(const shape& s, const char* what, const Step& step) {
  for (long n = 0; n < 1000; ++n) {
    fail_at = n;
    const int32_t status = step();
    const bool failed = fail_at < 0;
    fail_at = -1;
    if (!failed) {
      EXPECT_EQ(0, status) << s.name << " " << what;
      return;
    }
    ASSERT_EQ(1, status) << s.name << " " << what << ", allocation " << n;
  }
  ADD_FAILURE() << s.name << " never finished";
}

TEST(Memory, EveryAllocationMayFail) {
  {
    const zor_fft warm = make(shapes[0]);  // what the libraries keep for good is there before the count
    zor_fft same = warm;
    EXPECT_EQ(0, core_commit(same));
    EXPECT_EQ(0, forward(shapes[0], same));
    zor_fft_free(&same);
    zor_fft_error_text(1);
    zor_serv_deallocate(zor_serv_allocate(64, 16));
  }
  for (const shape& s : shapes) {
    SCOPED_TRACE(s.name);
    // Every failing commit is followed by a free: all it built must be gone.
    fail_each(s, "commit", [&] {
      const long failing = fail_at.exchange(-1);
      counting = true;
      const long before = live;
      zor_fft fft = make(s);
      fail_at = failing;
      const int32_t status = core_commit(fft);
      const long left = fail_at.exchange(-1);
      if (status != 0) {
        EXPECT_EQ(fft->compute_forward, nullptr);
        EXPECT_EQ(fft->commit_status, 31);
      }
      zor_fft_free(&fft);
      EXPECT_EQ(before, live) << "leaked";
      counting = false;
      fail_at = left;
      return status;
    });
    zor_fft fft = make(s);
    ASSERT_EQ(0, core_commit(fft));
    const auto run = [&](auto direction) {
      const long failing = fail_at.exchange(-1);
      counting = true;
      const long before = live;
      fail_at = failing;
      const int32_t status = direction(s, fft);
      const long left = fail_at.exchange(-1);
      EXPECT_EQ(before, live) << "leaked";
      counting = false;
      fail_at = left;
      return status;
    };
    fail_each(s, "forward", [&] { return run(forward); });
    fail_each(s, "backward", [&] { return run(backward); });
    zor_fft_free(&fft);
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

// A prime above the plan limit falls through to code 9; a failed set-up of two dimensions leaves the record
// alone.
TEST(Memory, LongLinesMayFail) {
  zor_fft fft = nullptr;
  const zor_int n = 60 * 60;
  ASSERT_EQ(0, zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 1, &n));
  const shape s{"1-D via 2-D", 36, 32, 39, 43, {n}, 1, 1};
  fail_each(s, "set-up", [&] {
    const int32_t status = zor_dft_xz_init_data_1d_via_2d(fft);
    EXPECT_EQ(fft->private_data == nullptr, status != 0);
    return status;
  });
  fail_each(s, "run", [&] {
    const long failing = fail_at.exchange(-1);
    fail_at = failing;
    return fft->kernel_z_fwd(x, y, fft, nullptr);
  });
  zor_fft_free(&fft);
}

}  // namespace
