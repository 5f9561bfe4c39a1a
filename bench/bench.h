// SPDX-License-Identifier: MIT
// Speed, side by side with peers. A family lists its cases; a case, once set up, knows one way of running per
// library; the harness knows no library.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "bench/peers/peer.h"

namespace zor_bench {

struct options {
  std::vector<std::string> families;  // empty: all
  std::string filter;                 // regular expression on the case's name; empty: all
  bool csv = false;
  bool quick = false;   // small sizes, few repeats: shows that everything runs, measures nothing
  bool full = false;    // the largest sizes in every form too
  bool errors = false;  // show the rounding errors of transforms too
  std::string plot;     // an SVG file; empty: none
  int32_t threads = 1;
  double seconds = 0.4;  // spent on each case, all libraries together
  std::string build;     // baseline, v3 or v4; empty: what the loader picks
  std::string openblas_core;
};

// Does the case `repeats` times in a row.
using runner = std::function<void(int64_t repeats)>;

struct contender {
  std::string library;
  runner run;
};

// A case with its operands, ready to run. The first contender is the one measured against the others.
struct prepared {
  std::vector<contender> contenders;
  std::vector<std::string> left_out;  // libraries whose result differs from ours beyond rounding
  std::string note;                   // a line to show below the case; empty: none
};

// The first contender and those others whose result agrees with it, which agrees(other) tells by running each
// once.
template <class Agrees>
prepared keep_agreeing(const std::vector<contender>& all, const Agrees& agrees) {
  prepared ready;
  ready.contenders.push_back(all[0]);
  for (size_t i = 1; i < all.size(); ++i) {
    if (agrees(all[i]))
      ready.contenders.push_back(all[i]);
    else
      ready.left_out.push_back(all[i].library);
  }
  return ready;
}

struct bench_case {
  std::string name;
  double flops = 0;         // nominal floating-point operations of one call
  double bytes = 0;         // operands read and written by one call
  double chained_adds = 0;  // additions that must wait for one another by the order of sums; 0: no such bound
  bool single_precision = false;
  int32_t threads = 0;  // of our own library, when the case says so; 0: as the options do
  std::function<prepared()> setup;
};

struct environment {
  options opts;
  std::vector<peer> peers;
};

std::vector<bench_case> gemm_cases(const environment& env);
std::vector<bench_case> level2_cases(const environment& env);
std::vector<bench_case> level3_cases(const environment& env);
std::vector<bench_case> vector_cases(const environment& env);
std::vector<bench_case> pool_cases(const environment& env);
std::vector<bench_case> spcsr_cases(const environment& env);
std::vector<bench_case> spcoo_cases(const environment& env);
std::vector<bench_case> spdia_cases(const environment& env);
std::vector<bench_case> spbsr_cases(const environment& env);
std::vector<bench_case> spsky_cases(const environment& env);
std::vector<bench_case> spgemm_cases(const environment& env);
std::vector<bench_case> spconv_cases(const environment& env);
std::vector<bench_case> sweep_cases(const environment& env);
std::vector<bench_case> dft1_cases(const environment& env);
std::vector<bench_case> dftreal_cases(const environment& env);
std::vector<bench_case> dftnd_cases(const environment& env);
std::vector<bench_case> dftplan_cases(const environment& env);
std::vector<bench_case> gmp_cases(const environment& env);
std::vector<bench_case> lapack_cases(const environment& env);
std::vector<bench_case> trans_cases(const environment& env);
std::vector<bench_case> xblas_cases(const environment& env);
std::vector<bench_case> trig_cases(const environment& env);
std::vector<bench_case> poisson2_cases(const environment& env);
std::vector<bench_case> poisson3_cases(const environment& env);
std::vector<bench_case> sphere_cases(const environment& env);
std::vector<bench_case> conv1_cases(const environment& env);
std::vector<bench_case> convnd_cases(const environment& env);

// What a family's table shows beside the time of a call.
enum class unit { gflops, gbytes, time };
struct family {
  const char* name;
  unit shown;
  std::vector<bench_case> (*cases)(const environment& env);
  const char* own_peers[3] = {};  // the libraries its cases bring along, instead of the BLAS peers
};
inline constexpr family families[] = {{"gemm", unit::gflops, gemm_cases},
                                      {"level2", unit::gbytes, level2_cases},
                                      {"level3", unit::gflops, level3_cases},
                                      {"vector", unit::gbytes, vector_cases},
                                      {"spcsr", unit::gbytes, spcsr_cases, {"loop", "Eigen", "librsb"}},
                                      {"spcoo", unit::gbytes, spcoo_cases, {"loop", "CSR"}},
                                      {"spdia", unit::gbytes, spdia_cases, {"loop", "CSR"}},
                                      {"spbsr", unit::gbytes, spbsr_cases, {"loop", "CSR"}},
                                      {"spsky", unit::gbytes, spsky_cases, {"loop"}},
                                      {"spgemm", unit::time, spgemm_cases, {"loop", "Eigen", "GraphBLAS"}},
                                      {"spconv", unit::time, spconv_cases, {"loop"}},
                                      {"sweep", unit::time, sweep_cases, {"loop"}},
                                      {"pool", unit::time, pool_cases, {"malloc"}},
                                      {"dft1", unit::gflops, dft1_cases, {"fftw"}},
                                      {"dftreal", unit::gflops, dftreal_cases, {"fftw"}},
                                      {"dftnd", unit::gflops, dftnd_cases, {"fftw"}},
                                      {"dftplan", unit::time, dftplan_cases, {"fftw"}},
                                      {"gmp", unit::time, gmp_cases, {"libgmp"}},
                                      {"lapack", unit::time, lapack_cases, {"LAPACK", "OpenBLAS", "loop"}},
                                      {"trans", unit::gbytes, trans_cases, {"OpenBLAS", "loop"}},
                                      {"xblas", unit::gflops, xblas_cases, {"pairs", "float128"}},
                                      {"trig", unit::gflops, trig_cases, {"fftw"}},
                                      {"poisson2", unit::gbytes, poisson2_cases, {"fftw"}},
                                      {"poisson3", unit::gbytes, poisson3_cases, {"fftw"}},
                                      {"sphere", unit::time, sphere_cases},
                                      {"conv1", unit::time, conv1_cases, {"whole", "fftw", "loop"}},
                                      {"convnd", unit::time, convnd_cases, {"whole", "fftw", "loop"}}};

// Their names, separated by commas.
std::string family_names();

// Runs what the options select and prints it. Returns the exit status: 1 when a result disagrees or no case
// fits.
int run(const options& opts);

}  // namespace zor_bench
