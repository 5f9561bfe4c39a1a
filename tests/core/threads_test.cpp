// SPDX-License-Identifier: MIT
// The number of threads shows nowhere: not in bits, rounding, exception flags or after a fork.
#include <gtest/gtest.h>
#include <omp.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cfenv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <thread>

#include "tests/core/products.h"
#include "tests/core/sparse_calls.h"
#include "tests/support/threads.h"
#include "zor/core.h"
#include "zor/dft.h"
#include "zor/lapack.h"
#include "zor/trans.h"
#include "zor/xblas.h"

#if defined(__SANITIZE_THREAD__)
constexpr bool under_tsan = true;
#else
constexpr bool under_tsan = false;
#endif
#if defined(__SANITIZE_ADDRESS__)
constexpr bool under_sanitizer = true;
#else
constexpr bool under_sanitizer = under_tsan;
#endif

namespace {

using namespace zor_test;

class threads_in_force {
 public:
  explicit threads_in_force(int32_t count) { zor_core_set_num_threads(count); }
  ~threads_in_force() { zor_core_set_num_threads(0); }
};

// Tails in every dimension, few rows, few columns, both sides of the sizes that a kernel packs from.
const product products[] = {{'N', 'N', 129, 131, 127}, {'T', 'N', 1003, 17, 77}, {'N', 'T', 17, 1003, 77},
                            {'C', 'C', 131, 129, 230}, {'N', 'N', 9, 11, 20001}, {'N', 'N', 2, 50021, 31},
                            {'T', 'T', 50021, 2, 31},  {'N', 'C', 7, 4099, 65},  {'T', 'N', 517, 262, 113},
                            {'N', 'N', 1000, 1000, 2}, {'C', 'N', 301, 299, 12}, {'T', 'T', 333, 334, 8}};

template <class T, class Gemm, class Kernel>
void check_gemm(const char* name, Gemm* gemm, Kernel* kernel) {
  for (const product& p : products)
    for (double beta : {0.0, 0.5}) {
      SCOPED_TRACE(::testing::Message() << name << " " << p << " beta " << beta);
      const gemm_operands<T> operands(p, beta);
      with_any_threads([&] { return operands.run(gemm); });
      EXPECT_TRUE(equal_bits(operands.run(kernel), operands.run(gemm)));
    }
}

TEST(AnyThreads, Gemm) {
  check_gemm<float>("sgemm", zor_blas_sgemm, zor_blas_xsgemm);
  check_gemm<double>("dgemm", zor_blas_dgemm, zor_blas_xdgemm);
  check_gemm<zor_c32>("cgemm", zor_blas_cgemm, zor_blas_xcgemm);
  check_gemm<zor_c64>("zgemm", zor_blas_zgemm, zor_blas_xzgemm);
}

template <class T, class Gemv>
void check_gemv(const char* name, Gemv* gemv) {
  const struct {
    zor_int m, n, incx, incy;
  } cases[] = {{1003, 701, 1, 1}, {67, 8011, 1, -1}, {8011, 67, -2, 3}, {129, 2111, 1, 1}};
  for (auto [m, n, incx, incy] : cases)
    for (char trans : {'N', 'T', 'C'}) {
      SCOPED_TRACE(::testing::Message()
                   << name << " " << trans << " " << m << "x" << n << " " << incx << " " << incy);
      const auto a = random_elements<T>(m * n, 4), x = random_elements<T>((m + n) * 2, 5),
                 y = random_elements<T>((m + n) * 3, 6);
      const T alpha = scalar<T>(1.25, -0.75), beta = scalar<T>(0.5, 0.25);
      with_any_threads([&] {
        std::vector<T> result = y;
        gemv(&trans, &m, &n, &alpha, a.data(), &m, x.data(), &incx, &beta, result.data(), &incy);
        return result;
      });
    }
}

TEST(AnyThreads, Gemv) {
  check_gemv<float>("sgemv", zor_blas_sgemv);
  check_gemv<double>("dgemv", zor_blas_dgemv);
  check_gemv<zor_c32>("cgemv", zor_blas_cgemv);
  check_gemv<zor_c64>("zgemv", zor_blas_zgemv);
}

// Level 2 on matrices of so many bytes; call(letters, n, a, lda, x, incx, y, incy) writes a when it updates,
// or y. Among the cases are columns that an update leaves alone, and some with one of its two factors 0.
template <class T, class Call>
void check_level2(const char* name, std::initializer_list<const char*> letters, bool updates,
                  const Call& call, double bytes = 4.3e6) {
  const zor_int n = zor_int(std::sqrt(bytes / sizeof(T))), lda = n + 1;
  const struct {
    zor_int incx, incy;
    bool zeros_in_x, zeros_in_y;
    int rounding;
  } cases[] = {{1, 1, false, false, FE_TONEAREST},
               {1, 1, false, false, FE_UPWARD},
               {1, 1, true, true, FE_TONEAREST},
               {-2, 3, true, false, FE_TONEAREST}};
  std::vector<T> a = random_elements<T>(lda * n, 7), x, y;
  for (const auto& c : cases)
    for (const char* l : letters) {
      SCOPED_TRACE(::testing::Message() << name << " " << l << " case " << &c - cases);
      x = random_elements<T>(2 * n, 8), y = random_elements<T>(3 * n, 9);
      for (zor_int i = 0; i < n; i += 7) {
        if (c.zeros_in_x) x[size_t(i * std::abs(c.incx))] = T{};
        if (c.zeros_in_y) y[size_t(i * c.incy)] = T{};
      }
      std::fesetround(c.rounding);
      with_any_threads(updates ? a : y, [&](T* out) {
        call(l, &n, updates ? out : a.data(), &lda, x.data(), &c.incx, updates ? y.data() : out, &c.incy);
      });
      std::fesetround(FE_TONEAREST);
    }
}

template <class T, class Gbmv>
void check_gbmv(const char* name, Gbmv* gbmv) {
  const struct {
    zor_int m, n, kl, ku, incx, incy;
  } cases[] = {{1531, 1400, 200, 31, 1, 1},
               {20001, 20000, 10, 10, 1, 1},
               {5000, 1000, 300, 2, 2, -1},
               {900, 6000, 1, 420, 1, 1},
               {701, 703, 700, 702, 1, 1}};
  for (const auto& [m, n, kl, ku, incx, incy] : cases)
    for (const char trans : {'N', 'T', 'C'}) {
      SCOPED_TRACE(::testing::Message()
                   << name << " " << trans << " " << m << "x" << n << " " << kl << " " << ku);
      const zor_int lda = kl + ku + 1, length = 2 * std::max(m, n);
      const auto a = random_elements<T>(lda * n, 4), x = random_elements<T>(length, 5);
      const T alpha = scalar<T>(1.25, -0.75), beta = scalar<T>(0.5, 0.25);
      with_any_threads(random_elements<T>(length, 6), [&](T* y) {
        gbmv(&trans, &m, &n, &kl, &ku, &alpha, a.data(), &lda, x.data(), &incx, &beta, y, &incy);
      });
    }
}

template <class T, class Tbmv>
void check_tbmv(const char* name, Tbmv* tbmv) {
  const struct { zor_int n, k, incx; } cases[] = {{60001, 10, 1}, {9001, 70, -2}, {2000, 300, 1}};
  for (const auto& [n, k, incx] : cases)
    for (const char* l : {"UNN", "LNU", "uTN", "LCU"}) {
      SCOPED_TRACE(::testing::Message() << name << " " << l << " " << n << " " << k);
      const zor_int lda = k + 2;
      const auto a = random_elements<T>(lda * n, 4);
      with_any_threads(random_elements<T>(2 * n, 6),
                       [&](T* x) { tbmv(l, l + 1, l + 2, &n, &k, a.data(), &lda, x, &incx); });
    }
}

TEST(AnyThreads, Level2) {
#define CALL(...)                                                                     \
  [](const char* l, auto n, auto a, auto lda, auto x, auto incx, auto y, auto incy) { \
    __VA_ARGS__;                                                                      \
    (void)l, (void)lda, (void)y, (void)incy;                                          \
  }
#define ROW_GER(name, T)             \
  check_level2<T>(#name, {""}, true, \
                  CALL(const T f = scalar<T>(0.5, 2); name(n, n, &f, x, incx, y, incy, a, lda)));
#define ROW_GERU ROW_GER
#define ROW_GERC ROW_GER
#define ROW_GBMV(name, T) check_gbmv<T>(#name, name);
#define ROW_SYMV(name, T, own)                                                                       \
  check_level2<T>(#name, {"U", "l"}, false,                                                          \
                  CALL(const T f = scalar<T>(0.5, 2); name(l, n, &f, a, lda, x, incx, &f, y, incy)), \
                  17.4e6);
#define ROW_HEMV ROW_SYMV
#define RANK_1(name, T, R, ...)            \
  check_level2<T>(#name, {"u", "L"}, true, \
                  CALL(const R f = R(0.7); name(l, n, &f, x, incx, a __VA_OPT__(, ) __VA_ARGS__)));
#define ROW_SYR(name, T) RANK_1(name, T, T, lda)
#define ROW_SPR(name, T) RANK_1(name, T, T)
#define ROW_HER(name, T, R) RANK_1(name, T, R, lda)
#define ROW_HPR(name, T, R) RANK_1(name, T, R)
#define RANK_2(name, T, ...)   \
  check_level2<T>(             \
      #name, {"u", "L"}, true, \
      CALL(const T f = scalar<T>(0.5, 2); name(l, n, &f, x, incx, y, incy, a __VA_OPT__(, ) __VA_ARGS__)));
#define ROW_SYR2(name, T, own) RANK_2(name, T, lda)
#define ROW_HER2 ROW_SYR2
#define ROW_SPR2(name, T) RANK_2(name, T)
#define ROW_HPR2 ROW_SPR2
#define ROW_TRMV(name, T, own)                                \
  check_level2<T>(#name, {"UNN", "LNU", "uTN", "LCU"}, false, \
                  CALL(name(l, l + 1, l + 2, n, a, lda, y, incy); (void)x, (void)incx));
#define ROW_TRSV ROW_TRMV
#define ROW_TBMV(name, T) check_tbmv<T>(#name, name);
#include "zor/tables/core_blas.inc"
#include "zor/tables/core_matvec.inc"
#undef CALL
#undef RANK_1
#undef RANK_2
}

// Routines by value on operands that are divided; with `exact` these are small integers and powers of two, so
// that no operation rounds.
std::vector<double> elements(zor_int count, uint64_t seed, bool exact) {
  std::vector<double> v = random_elements<double>(count, seed);
  for (double& e : v)
    if (exact) e = std::nearbyint(4 * e);
  return v;
}

template <bool Pivoted>
std::vector<double> tridiagonal_solves(bool exact) {
  const zor_int n = 9001, nrhs = 64;
  std::vector<double> l(size_t(n), exact ? 0 : 0.75), d(size_t(n), 4), u = l,
                                                                       b = elements(n * nrhs, 11, exact);
  EXPECT_EQ(0, (Pivoted ? zor_dgtsv(n, nrhs, l.data(), d.data(), u.data(), b.data(), n)
                        : zor_ddtsv(n, nrhs, l.data(), d.data(), u.data(), b.data(), n)));
  return b;
}

std::vector<double> small_systems(bool exact) {
  const zor_int n = 50, count = 60;
  std::vector<double> a = elements(n * n * count, 12, exact), b = elements(n * count, 13, exact);
  if (exact) std::fill(a.begin(), a.end(), 0.0);
  for (zor_int i = 0; i < n * count; ++i) a[size_t(i / n * n * n + i % n * (n + 1))] = exact ? 16 : 80;
  std::vector<zor_int> info(static_cast<size_t>(count));
  EXPECT_EQ(0, zor_dpotrf_batch('U', n, a.data(), n, n * n, count, info.data()));
  EXPECT_EQ(0, zor_dpotrs_batch('U', n, 1, a.data(), n, n * n, b.data(), n, n, count, info.data()));
  return b;
}

std::vector<double> transpositions(bool exact) {
  const zor_int m = 300, n = 901;
  const std::vector<double> a = elements(m * n, 14, exact);
  std::vector<double> c(a.size()), sum = a;
  zor_domatcopy('C', 'T', m, n, 2, a.data(), m, c.data(), n);
  zor_domatadd('C', 'N', 'T', m, n, 2, sum.data(), m, -3, c.data(), n, sum.data(), m);
  zor_dimatcopy('R', 'T', m, n, 2, sum.data(), n, m);
  return sum;
}

std::vector<double> extended_products(bool exact) {
  const zor_int n = 401;
  const std::vector<double> a = elements(n * n, 15, exact);
  std::vector<double> y = elements(2 * n, 16, exact);
  for (const int32_t trans : {ZOR_NO_TRANS, ZOR_TRANS})
    zor_dgemv_x(trans, n, n, 2, a.data(), n, a.data(), 1, 3, y.data(), 1, ZOR_EXTRA);
  zor_dsymv_x(ZOR_UPPER, n, 2, a.data(), n, a.data(), 1, 3, y.data() + n, 1, ZOR_EXTRA);
  return y;
}

constexpr std::vector<double> (*routines_by_value[])(bool exact) = {
    tridiagonal_solves<false>, tridiagonal_solves<true>, small_systems, transpositions, extended_products};

TEST(AnyThreads, RoutinesByValue) {
  for (const auto run : routines_by_value) with_any_threads([&] { return run(false); });
}

size_t threads_alive() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return size_t(std::distance(begin(tasks), end(tasks)));
}

// The threads that a small and then a large product added, as "small large".
std::string threads_added_by_products() {
  zor_core_set_num_threads(7);
  const size_t before = threads_alive();
  gemm_operands<double>({'N', 'N', 8, 8, 8}).run(zor_blas_dgemm);
  const size_t after_small = threads_alive();
  gemm_operands<double>({'N', 'N', 300, 300, 300}).run(zor_blas_dgemm);
  return std::to_string(after_small - before) + " " + std::to_string(threads_alive() - after_small);
}

// Counted in a process of its own, started afresh: here threads of earlier teams may still be on their way
// out.
TEST(Threads, AreTakenForLargeCallsOnly) {
  if (under_tsan) GTEST_SKIP() << "the thread sanitizer starts a thread of its own";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::fputs(("added " + threads_added_by_products()).c_str(), stderr);
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "added 0 6");
}

TEST(Threads, ANegativeCountMeansTheDefault) {
  zor_core_set_num_threads(-4);
  EXPECT_EQ(omp_get_max_threads(), zor_core_num_threads());
  EXPECT_EQ(omp_get_max_threads(), zor_get_threads());
}

TEST(Threads, FollowTheCallersRounding) {
  const gemm_operands<double> operands({'N', 'T', 301, 203, 99});
  const auto nearest = operands.run(zor_blas_dgemm);
  for (int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    std::fesetround(mode);
    with_any_threads([&] { return operands.run(zor_blas_dgemm); });
    threads_in_force three(3);
    const auto rounded = operands.run(zor_blas_dgemm);
    EXPECT_EQ(mode, std::fegetround());
    std::fesetround(FE_TONEAREST);
    EXPECT_FALSE(equal_bits(nearest, rounded));
    EXPECT_TRUE(equal_bits(nearest, operands.run(zor_blas_dgemm))) << "the team keeps no mode";
    for (const auto& run : routines_by_value) {
      const auto plain = run(false);
      std::fesetround(mode);
      with_any_threads([&] { return run(false); });
      const auto directed = run(false);
      std::fesetround(FE_TONEAREST);
      EXPECT_FALSE(equal_bits(plain, directed)) << "routine " << &run - routines_by_value;
    }
  }
}

// Exact data with one element that overflows, in each corner of C: whichever thread meets it, the caller sees
// it.
TEST(Threads, FlagsReachTheCallerAndNoOthers) {
  const zor_int n = 300;
  const double one = 1, zero = 0;
  for (int32_t count : {1, 3, 7})
    for (int corner = -1; corner < 4; ++corner) {
      threads_in_force these(count);
      std::vector<double> a(size_t(n * n), 1), b(size_t(n * n), 2), c(size_t(n * n));
      if (corner >= 0) {
        const size_t row = corner % 2 == 0 ? 0 : size_t(n - 1), column = corner < 2 ? 0 : size_t(n - 1);
        for (size_t p = 0; p < size_t(n); ++p) b[p + column * size_t(n)] = 0;
        a[row] = b[column * size_t(n)] = 0x1p1000;
      }
      std::feclearexcept(FE_ALL_EXCEPT);
      zor_blas_dgemm("N", "N", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &zero, c.data(), &n);
      EXPECT_EQ(corner < 0 ? 0 : FE_OVERFLOW | FE_INEXACT, std::fetestexcept(FE_ALL_EXCEPT))
          << count << " threads, corner " << corner;
      // A flag that stood before the call stays; the team hands out none of an earlier call.
      std::feclearexcept(FE_ALL_EXCEPT);
      std::feraiseexcept(FE_DIVBYZERO);
      std::fill(a.begin(), a.end(), 1.0);
      std::fill(b.begin(), b.end(), 2.0);
      zor_blas_dgemm("N", "N", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &zero, c.data(), &n);
      EXPECT_EQ(FE_DIVBYZERO, std::fetestexcept(FE_ALL_EXCEPT));
    }
}

// The division of work is done in integers: exact data leave no flag in any threaded routine.
TEST(Threads, DivisionOfWorkRaisesNoFlag) {
  threads_in_force seven(7);
  const zor_int n = 1501, one_step = 1, length = 300007;
  const double one = 1;
  std::vector<double> a(size_t(n * n), 1), x(size_t(length), 2), y(size_t(length), 3);
  std::feclearexcept(FE_ALL_EXCEPT);
  zor_blas_dsyr("L", &n, &one, x.data(), &one_step, a.data(), &n);
  zor_blas_dsyr("U", &n, &one, x.data(), &one_step, a.data(), &n);
  zor_blas_dgemv("N", &n, &n, &one, a.data(), &n, x.data(), &one_step, &one, y.data(), &one_step);
  zor_blas_dgemv("T", &n, &n, &one, a.data(), &n, x.data(), &one_step, &one, y.data(), &one_step);
  zor_blas_daxpy(&length, &one, x.data(), &one_step, y.data(), &one_step);
  zor_blas_dswap(&length, x.data(), &one_step, y.data(), &one_step);
  EXPECT_EQ(0, std::fetestexcept(FE_ALL_EXCEPT));
  for (const auto& run : routines_by_value) {
    run(true);
    EXPECT_EQ(0, std::fetestexcept(FE_ALL_EXCEPT)) << "routine " << &run - routines_by_value;
  }
}

// A child of _Fork has not run the handlers by which libraries learn of it.
TEST(Fork, AChildOfAThreadedProcessGoesOnSerially) {
  if (under_tsan) GTEST_SKIP() << "the thread sanitizer does not support a fork of a process with threads";
  threads_in_force four(4);
  const gemm_operands<double> operands({'N', 'N', 301, 302, 303});
  const auto expected = operands.run(zor_blas_dgemm);
  for (pid_t (*make_child)() : {fork, _Fork}) {
    const pid_t child = make_child();
    if (child == 0) {
      alarm(20);
      const bool serial = zor_get_threads() == 1;
      _exit(serial && equal_bits(expected, operands.run(zor_blas_dgemm)) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(4, zor_get_threads());
    EXPECT_TRUE(equal_bits(expected, operands.run(zor_blas_dgemm)));
  }
}

// Signals find the program's own threads alone.
TEST(Threads, OfTheLibraryTakeNoSignals) {
  threads_in_force four(4);
  gemm_operands<double>({'N', 'N', 301, 302, 303}).run(zor_blas_dgemm);
  const auto previous = signal(SIGUSR1, [](int) { std::_Exit(1); });
  sigset_t blocked, pending;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  kill(getpid(), SIGUSR1);
  usleep(100000);
  sigpending(&pending);
  EXPECT_TRUE(sigismember(&pending, SIGUSR1));
  signal(SIGUSR1, SIG_IGN);
  pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
  signal(SIGUSR1, previous);
}

// Processors that the other threads may run on, the least of them; 0 when there are none.
int processors_of_others() {
  int least = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    const pid_t id = pid_t(std::stol(task.path().filename()));
    cpu_set_t set;
    if (id == getpid() || sched_getaffinity(id, sizeof set, &set) != 0) continue;
    least = least == 0 ? CPU_COUNT(&set) : std::min(least, CPU_COUNT(&set));
  }
  return least;
}

// A parallel region of a program that binds its threads leaves the first of them on one processor.
int processors_of_library_threads() {
#pragma omp parallel num_threads(1)
  zor_get_threads();
  zor_set_threads(3);
  gemm_operands<double>({'N', 'N', 300, 300, 300}).run(zor_blas_dgemm);
  cpu_set_t own;
  sched_getaffinity(0, sizeof own, &own);
  if (CPU_COUNT(&own) != 1) return -1;
  // A thread that has just been started may still be on its way.
  for (int i = 0; i < 1000 && processors_of_others() < 2; ++i) usleep(5000);
  return processors_of_others();
}

TEST(Threads, OfTheLibraryAreNotBoundToTheCaller) {
  if (under_tsan || std::thread::hardware_concurrency() < 2)
    GTEST_SKIP() << "one processor, or a thread more";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  setenv("OMP_PROC_BIND", "true", 1);
  setenv("OMP_PLACES", "threads", 1);
  EXPECT_EXIT(std::_Exit(processors_of_library_threads()),
              ::testing::ExitedWithCode(int(std::thread::hardware_concurrency())), "");
  unsetenv("OMP_PROC_BIND");
  unsetenv("OMP_PLACES");
}

void transform(zor_int rank, const zor_int* lengths, int32_t domain) {
  std::vector<double> x(70000), y(70000);
  zor_fft fft = nullptr;
  zor_fft_create(&fft, ZOR_DFT_DOUBLE, domain, rank, lengths);
  zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, ZOR_DFT_NOT_INPLACE);
  zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX);
  EXPECT_EQ(ZOR_DFT_OK, zor_fft_commit(fft));
  EXPECT_EQ(ZOR_DFT_OK, zor_fft_forward(fft, x.data(), y.data()));
  EXPECT_EQ(ZOR_DFT_OK, zor_fft_backward(fft, y.data(), x.data()));
  zor_fft_free(&fft);
}

// The calls that were found to take the most of a stack.
void* call_every_family(void*) {
  for (char trans : {'N', 'T', 'C'})
    gemm_operands<zor_c64>({trans, trans, 150, 151, 152}).run(zor_blas_zgemm);
  // Strided vectors are staged on the stack.
  const zor_int n = 1100, inc = 2;
  const zor_c64 one{1, 0};
  const std::vector<zor_c64> matrix(size_t(n * n)), vector(size_t(2 * n));
  std::vector<zor_c64> result(size_t(2 * n));
  for (char trans : {'N', 'T', 'C'})
    zor_blas_zgemv(&trans, &n, &n, &one, matrix.data(), &n, vector.data(), &inc, &one, result.data(), &inc);
  const zor_int lengths[] = {32, 30, 31}, line = 30030;
  for (int32_t domain : {ZOR_DFT_COMPLEX, ZOR_DFT_REAL}) {
    transform(3, lengths, domain);
    transform(1, &line, domain);
  }
  constexpr zor_int m = 4000;
  std::vector<double> val(size_t(m * 9), 1), x(size_t(m * 4), 1), y(x);
  std::vector<zor_int> indx, pointers{0};
  for (zor_int r = 0; r < m; ++r) {
    for (zor_int c = std::max<zor_int>(0, r - 8); c <= r; ++c) indx.push_back(c);
    pointers.push_back(zor_int(indx.size()));
  }
  const sparse_test::owner triangle(sparse_test::csr({'t', 'l', 'n'}, 0, m, m, val, indx, pointers));
  const zor_sparse a = triangle.a;
  for (int32_t op : {ZOR_SPARSE_PLAIN, ZOR_SPARSE_TRANSPOSE}) {
    zor_sparse_dmv(a, op, 1, x.data(), 1, y.data());
    zor_sparse_dmm(a, op, ZOR_SPARSE_ROW_MAJOR, 4, 1, x.data(), 4, 1, y.data(), 4);
    zor_sparse_dsm(a, op, ZOR_SPARSE_COLUMN_MAJOR, 4, 1, x.data(), m, y.data(), m);
  }
  for (const auto run : routines_by_value) run(false);
  const std::vector<double> system = random_elements<double>(200 * 200, 17);
  std::vector<double> solution(200);
  EXPECT_EQ(ZOR_LAPACK_OK, zor_dsolve_refined('G', 200, 1, system.data(), 200, system.data(), 200,
                                              solution.data(), 200, nullptr, nullptr));
  return nullptr;
}

TEST(Threads, OfTheCallerMayHaveTheLeastStack) {
  if (under_sanitizer) GTEST_SKIP() << "sanitizers take more of a stack";
  constexpr size_t least_stack = 64 << 10;  // as docs/blas.md has it
  threads_in_force three(3);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, least_stack));
  pthread_t caller;
  ASSERT_EQ(0, pthread_create(&caller, &attributes, call_every_family, nullptr));
  pthread_join(caller, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST(Threads, OfOneCallerAndOfAll) {
  threads_in_force five(5);
  EXPECT_EQ(0, zor_set_threads_local(2));
  EXPECT_EQ(2, zor_get_threads());
  int32_t elsewhere = 0;
  std::thread([&] { elsewhere = zor_get_threads(); }).join();
  EXPECT_EQ(5, elsewhere);
  zor_set_threads(3);
  EXPECT_EQ(2, zor_set_threads_local(-1));
  EXPECT_EQ(3, zor_get_threads());
  EXPECT_EQ(0, zor_set_threads_local(0));
}

TEST(ParallelRegion, OfTheCallerKeepsCallsSerial) {
  if (under_tsan)
    GTEST_SKIP() << "the thread sanitizer does not see the fork and join of this test's own region";
  const gemm_operands<double> operands({'T', 'N', 201, 202, 203});
  const auto expected = operands.run(zor_blas_dgemm);
  std::atomic<int> wrong{0}, threaded{0};
#pragma omp parallel num_threads(3)
  {
    // A thread keeps the rounding mode of its creator, which an earlier test may have changed.
    std::fesetround(FE_TONEAREST);
    if (zor_core_num_threads() != 1) ++threaded;
    if (!equal_bits(expected, operands.run(zor_blas_dgemm))) ++wrong;
  }
  EXPECT_EQ(0, wrong);
  EXPECT_EQ(0, threaded);
  threads_in_force four(4);
#pragma omp parallel num_threads(1)
  EXPECT_EQ(1, zor_core_num_threads());
}

// 16 callers, each with a team of its own, sizes on both sides of every threshold.
TEST(Concurrency, ManyCallersOfMixedSizes) {
  threads_in_force two(2);
  constexpr int callers = 16, rounds = under_tsan ? 1 : 6;
  std::vector<std::vector<double>> expected;
  std::vector<gemm_operands<double>> work;
  for (int i = 0; i < callers; ++i) {
    const zor_int size = 5 + 13 * i;
    work.emplace_back(product{"NT"[i % 2], "NT"[i / 2 % 2], size, size + 3, size + 1});
    expected.push_back(work.back().run(zor_blas_xdgemm));
  }
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < callers; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < rounds * callers; ++i) {
        const size_t which = size_t(t + i * 5) % callers;
        if (!equal_bits(expected[which], work[which].run(zor_blas_dgemm))) ++wrong;
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(0, wrong);
}

}  // namespace
