// SPDX-License-Identifier: MIT
// Routines with a planted fault each, by which the driver is tested: it finds each and shrinks it to its
// smallest case.
#include "tests/fuzz/planted.h"

#include <cfenv>
#include <cstring>

#include "tests/fuzz/trial.h"
#include "zor/core.h"

namespace zor_fuzz {
namespace {

// y := 2 x, well or as `fault` has it: fault(n, x, incx, y) returns a result beside.
template <class Fault>
void twice(trial& t, const Fault& fault) {
  const zor_int n = t.size("n", 1000), incx = t.increment("incx");
  const auto x = t.vector<double>("x", use::in, n, incx), y = t.vector<double>("y", use::out, n);
  double result = 0;
  t.call([&] {
    for (zor_int i = 0; i < n; ++i) y.data()[i] = 2 * x.now(i);
    result = fault(n, x.data(), incx, y.data());
  });
  t.result(result);
  t.some_of(n, 1, [&](zor_int i, zor_int) { t.near(y.now(i), 2.0L * x(i), 2 * magnitude(x(i)), 1, "y", i); });
}

volatile double sink;

#define PLANT(name, ...) {#name, [](trial& t) { twice(t, __VA_ARGS__); }},
const rows planted_rows("planted", threaded,
                        {PLANT(reads_behind, [](zor_int n, const double* x, zor_int incx, double*) {
                          if (n > 2 && n % 2 == 1 && incx == 1) sink = x[n];
                          return 0.0;
                        }) PLANT(reads_a_gap, [](zor_int n, const double* x, zor_int incx, double*) {
                          return n > 3 && incx == 3 ? 0 * x[1] : 0.0;
                        }) PLANT(writes_a_gap, [](zor_int n, const double* x, zor_int incx, double*) {
                          if (n > 4 && incx == 2) const_cast<double*>(x)[3] = 1;
                          return 0.0;
                        }) PLANT(writes_its_input, [](zor_int n, const double* x, zor_int, double*) {
                          if (n > 5) const_cast<double*>(x)[0] = -123;
                          return 0.0;
                        }) PLANT(leaves_one_out, [](zor_int n, const double*, zor_int, double* y) {
                          const uint64_t signalling = 0x7FF4000000000001u;
                          if (n > 6 && zor_core_num_threads() == 1)
                            std::memcpy(y + n - 1, &signalling, sizeof *y);
                          return 0.0;
                        }) PLANT(is_inexact, [](zor_int n, const double*, zor_int, double* y) {
                          if (n > 7) y[6] *= 1 + 1e-12;
                          return 0.0;
                        }) PLANT(knows_its_threads, [](zor_int n, const double*, zor_int, double*) {
                          return n > 8 && zor_core_num_threads() > 2 ? 1.0 : 0.0;
                        }) PLANT(knows_its_build, [](zor_int n, const double*, zor_int, double*) {
                          return n > 9 && std::strcmp(zor_core_kern_build(), "baseline") != 0 ? 1.0 : 0.0;
                        }) PLANT(raises_a_flag, [](zor_int n, const double*, zor_int, double*) {
                          if (n > 10 && std::strcmp(zor_core_kern_build(), "baseline") != 0)
                            std::feraiseexcept(FE_DIVBYZERO);
                          return 0.0;
                        }) PLANT(changes_modes, [](zor_int n, const double*, zor_int, double*) {
                          if (n > 11) std::fesetround(FE_TONEAREST);
                          return 0.0;
                        })});

}  // namespace

const std::vector<planted>& planted_faults() {
  static const std::vector<planted> list = {
      {"reads_behind", "dies: ", {{"n", 3}, {"incx", 1}, {"threads", 0}, {"rounding", 0}, {"x.place", 0}}, 1},
      {"reads_a_gap", "other bits with 1 threads", {{"n", 4}, {"incx", 3}, {"data", 1}}, 1},
      {"writes_a_gap", "x: written at 3", {{"n", 5}, {"incx", 2}}, 1},
      {"writes_its_input", "x: written at 0", {{"n", 6}, {"incx", 1}}, 1},
      {"leaves_one_out", "y: not written at 6", {{"n", 7}, {"y.place", 0}}, 1},
      {"is_inexact", "y(6, 0) is ", {{"n", 8}, {"denormals", 0}}, 1},
      {"knows_its_threads", "other bits with 3 threads", {{"n", 9}, {"threads", 2}}, 1},
      {"knows_its_build", "other bits unlike baseline", {{"n", 10}, {"threads", 0}}, 2},
      {"raises_a_flag", "exception flags 04, not 00, unlike baseline", {{"n", 11}, {"threads", 0}}, 2},
      {"changes_modes", "the floating-point modes were changed", {{"n", 12}, {"rounding", 1}}, 1}};
  return list;
}

}  // namespace zor_fuzz
