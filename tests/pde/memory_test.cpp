// SPDX-License-Identifier: MIT
// Memory that runs short: each allocation of a whole problem fails in turn. The call that met it says so, or
// does without; nothing leaks and nothing is left to free.
#include <gtest/gtest.h>

#include "tests/support/failing_malloc.h"
#include "zor/core.h"
#include "zor/signatures/poisson.h"
#include "zor/signatures/trig.h"

namespace {

[[gnu::constructor]] void switch_pool_off() { setenv("ZOR_MM_DISABLE", "1", 1); }

constexpr double pi = 3.14159265358979324;
double data[13 * 13 * 13];

// The first status that is not `done`, or that of the last call.
zor_int trig(zor_int kind, zor_int m, zor_int lines) {
  zor_trig* t = nullptr;
  zor_int status = zor_trig_create_d(&t, kind, m);
  EXPECT_EQ(t == nullptr, status != ZOR_TRIG_OK);
  if (status == ZOR_TRIG_OK) status = zor_trig_run_d(t, data, lines, 1, m, 1.0);
  zor_trig_free(&t);
  return status;
}
zor_int solve(zor_poisson* p, zor_int status) {
  EXPECT_EQ(p == nullptr, status != ZOR_POISSON_OK);
  if (status == ZOR_POISSON_OK) status = zor_poisson_solve_d(p, data, nullptr);
  zor_poisson_free(&p);
  return status;
}
zor_int box(const zor_poisson_box& b) {
  zor_poisson* p = nullptr;
  const zor_int status = zor_poisson_create_d(&p, &b);
  return solve(p, status);
}
zor_int globe() {
  const zor_poisson_sphere s = {{12, 8}, {0, 2 * pi}, {0, pi}, 1, 1};
  zor_poisson* p = nullptr;
  const zor_int status = zor_poisson_sphere_d(&p, &s);
  return solve(p, status);
}
zor_int arrays_of_a_line() {
  const zor_int n = 24, type = 2;
  zor_int ipar[128] = {}, stat = 5, freed;
  double tables[80];
  ZorDftDescriptor* handle = nullptr;
  data[n] = 0;
  zor_pdett_d_init_trig_transform(&n, &type, ipar, tables, &stat);
  ipar[1] = ipar[2] = 0;
  zor_pdett_d_commit_trig_transform(data, &handle, ipar, tables, &stat);
  if (stat == 0) zor_pdett_d_forward_trig_transform(data, &handle, ipar, tables, &stat);
  if (handle != nullptr) zor_pdett_free_trig_transform(&handle, ipar, &freed);
  return stat;
}
zor_int arrays_of_a_rectangle() {
  const zor_int n = 12;
  const double from = 0, to = 1, q = 1, side[13] = {};
  zor_int ipar[128] = {}, stat = 5, freed;
  double tables[160] = {};
  ZorDftDescriptor* handle = nullptr;
  zor_pdepl_d_init_helmholtz_2d(&from, &to, &from, &to, &n, &n, "DNND", &q, ipar, tables, &stat);
  ipar[1] = ipar[2] = 0;
  zor_pdepl_d_commit_helmholtz_2d(data, side, side, side, side, &handle, ipar, tables, &stat);
  if (stat == 0) zor_pdepl_d_helmholtz_2d(data, side, side, side, side, &handle, ipar, tables, &stat);
  if (handle != nullptr) zor_pdepl_free_helmholtz_2d(&handle, ipar, &freed);
  return stat;
}

TEST(PdeMemory, EachAllocationFailsInTurn) {
  const struct {
    const char* name;
    zor_int (*run)();
    zor_int refused[2];
  } jobs[] = {
      {"lines in company", [] { return trig(ZOR_DCT2, 48, 9); }, {ZOR_TRIG_NO_MEMORY, ZOR_TRIG_NO_MEMORY}},
      {"odd lines", [] { return trig(ZOR_DST4, 35, 2); }, {ZOR_TRIG_NO_MEMORY, ZOR_TRIG_NO_MEMORY}},
      {"a line alone", [] { return trig(ZOR_DCT4, 48, 1); }, {ZOR_TRIG_NO_MEMORY, ZOR_TRIG_NO_MEMORY}},
      {"sums", [] { return trig(ZOR_DST1, 47, 3); }, {ZOR_TRIG_NO_MEMORY, ZOR_TRIG_NO_MEMORY}},
      {"rectangle",
       [] {
         return box({2, {12, 10}, {1, 1}, {0, 1, 2, 2}, 1});
       },
       {ZOR_POISSON_NO_MEMORY, ZOR_POISSON_NO_MEMORY}},
      {"box",
       [] {
         return box({3, {12, 10, 8}, {1, 1, 1}, {0, 0, 1, 1, 1, 0}, 1});
       },
       {ZOR_POISSON_NO_MEMORY, ZOR_POISSON_NO_MEMORY}},
      {"globe", globe, {ZOR_POISSON_NO_MEMORY, ZOR_POISSON_NO_MEMORY}},
      {"arrays of a line", arrays_of_a_line, {-1000, -1000}},
      {"arrays of a rectangle", arrays_of_a_rectangle, {-1000, -3}}};
  zor_core_set_num_threads(1);
  for (const auto& job : jobs) {
    ASSERT_EQ(job.run(), 0) << job.name;  // what the library keeps is made now
    long nth = 0;
    for (bool failed = true; failed; ++nth) {
      ASSERT_LT(nth, 1000) << job.name;
      zor_int status = 0;
      const auto met = zor_test::with_failure(nth, false, [&] { status = job.run(); });
      failed = met.happened;
      EXPECT_EQ(met.left, 0) << job.name << ": allocation " << nth;
      EXPECT_TRUE(status == 0 || (failed && (status == job.refused[0] || status == job.refused[1])))
          << job.name << ": allocation " << nth << ", status " << status;
    }
    EXPECT_GT(nth, 3) << job.name;
  }
  zor_core_set_num_threads(0);
}

}  // namespace
