// SPDX-License-Identifier: MIT
// A system that refuses threads or memory: calls go on with less, and none ends the process. Each case runs
// in a process of its own, so that first calls are first. The program's own definitions of pthread_create and
// of the allocator stand before those of the C library.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "tests/core/products.h"
#include "tests/core/sparse_calls.h"
#include "zor/conv.h"
#include "zor/core.h"
#include "zor/dft.h"
#include "zor/lapack.h"
#include "zor/serv.h"
#include "zor/signatures/blas.h"
#include "zor/trans.h"
#include "zor/xblas.h"

namespace {
std::atomic<int> threads_granted{INT32_MAX};
std::atomic<bool> memory_refused{false};
// As an allocator does it.
bool refuses_memory() {
  if (memory_refused) errno = ENOMEM;
  return memory_refused;
}
}  // namespace

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  using create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static auto* const real = reinterpret_cast<create*>(dlsym(RTLD_NEXT, "pthread_create"));
  if (threads_granted.fetch_sub(1) <= 0) return EAGAIN;
  return real(thread, attributes, start, argument);
}

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* malloc(size_t size) { return refuses_memory() ? nullptr : __libc_malloc(size); }
void* calloc(size_t count, size_t size) { return refuses_memory() ? nullptr : __libc_calloc(count, size); }
void* realloc(void* block, size_t size) { return refuses_memory() ? nullptr : __libc_realloc(block, size); }
void* __libc_memalign(size_t, size_t);
void* aligned_alloc(size_t alignment, size_t size) {
  return refuses_memory() ? nullptr : __libc_memalign(alignment, size);
}

}  // extern "C"

namespace {

using namespace zor_test;

// Runs `body` in a process of its own; it returns what went wrong, an empty text when nothing did.
void expect_good(const char* what, const std::function<std::string()>& body) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        alarm(60);
        std::fputs(("outcome: " + body() + "\n").c_str(), stderr);
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "outcome: \n")
      << what;
}

size_t threads_alive() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return size_t(std::distance(begin(tasks), end(tasks)));
}

const product large{'N', 'T', 301, 302, 303};

// Compares a product on seven threads with the same on one.
std::string product_and_threads(size_t least, size_t most) {
  const gemm_operands<double> operands(large);
  zor_set_threads(1);
  const auto expected = operands.run(zor_blas_dgemm);
  zor_set_threads(7);
  const bool right = equal_bits(expected, operands.run(zor_blas_dgemm));
  const size_t alive = threads_alive();
  if (!right) return "wrong bits";
  return alive >= least && alive <= most ? "" : std::to_string(alive) + " threads";
}

TEST(Refusal, OfTheNthThread) {
  for (int granted : {0, 1, 2, 5, 6})
    expect_good("threads", [=] {
      threads_granted = granted;
      return product_and_threads(size_t(granted) + 1, size_t(granted) + 1);
    });
}

TEST(Refusal, EndsWhenTheSystemHasThreadsAgain) {
  expect_good("threads", [] {
    threads_granted = 2;
    const std::string refused = product_and_threads(3, 3);
    threads_granted = INT32_MAX;
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    return refused + product_and_threads(7, 7);
  });
}

// Numbers beyond all sense, on a stack of the least size that the documentation allows.
TEST(Refusal, OfSenselessNumbers) {
  for (int32_t count : {35000, 80000, INT32_MAX})
    expect_good("count", [=] {
      const gemm_operands<double> operands({'T', 'N', 801, 802, 80});
      const auto expected = operands.run(zor_blas_xdgemm);
      zor_set_threads(count);
      bool right = false;
      pthread_attr_t attributes;
      pthread_attr_init(&attributes);
      pthread_attr_setstacksize(&attributes, 64 << 10);
      const std::function<void()> call = [&] { right = equal_bits(expected, operands.run(zor_blas_dgemm)); };
      const auto run = [](void* f) -> void* {
        return (*static_cast<const std::function<void()>*>(f))(), nullptr;
      };
      pthread_t thread;
      if (pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&call)) != 0)
        return std::string("no thread to call from");
      pthread_join(thread, nullptr);
      const int32_t most = std::max(64, 2 * int32_t(std::thread::hardware_concurrency()));
      if (zor_get_threads() != most || threads_alive() > size_t(most) + 1) return std::string("not limited");
      return std::string(right ? "" : "wrong bits");
    });
}

// x y or conj(x) y, exactly.
template <class T>
std::string dot_of_integers(zor::cdot_fn<T>* dot, int re, int im) {
  const T x[] = {{1, 2}, {3, -1}}, y[] = {{2, 0}, {1, 1}};
  const zor_int n = 2, step = 1;
  T result{};
  dot(&result, &n, x, &step, y, &step);
  return int(result.re) == re && int(result.im) == im ? "" : "wrong sum";
}

// Small integers: every path of a product gives the same bits.
std::string product_of_integers(int32_t threads) {
  constexpr zor_int n = 160;
  static double a[n * n], c[n * n];
  for (zor_int i = 0; i < n * n; ++i) a[i] = double(i % 7 - 3);
  const double one = 1, zero = 0;
  zor_set_threads(threads);
  zor_blas_dgemm("N", "N", &n, &n, &n, &one, a, &n, a, &n, &zero, c, &n);
  for (zor_int i = 0; i < n; ++i)
    for (zor_int j = 0; j < n; ++j) {
      double sum = 0;
      for (zor_int k = 0; k < n; ++k) sum += a[i + k * n] * a[k + j * n];
      if (c[i + j * n] != sum) return "wrong product";
    }
  return "";
}

// What `ulimit -v` leaves has room for few stacks.
TEST(Refusal, OfAddresses) {
  expect_good("addresses", [] {
    std::ifstream statm("/proc/self/statm");
    size_t pages = 0;
    statm >> pages;
    const rlim_t limit = pages * size_t(sysconf(_SC_PAGESIZE)) + (size_t(12) << 20);
    rlimit before;
    getrlimit(RLIMIT_AS, &before);
    const rlimit addresses{limit, before.rlim_max};
    setrlimit(RLIMIT_AS, &addresses);
    const std::string wrong = product_of_integers(60);
    setrlimit(RLIMIT_AS, &before);  // Counting the threads takes memory too.
    return wrong + (threads_alive() < 20 ? "" : "too many threads");
  });
}

std::string transform_created() {
  const zor_int length = 8;
  zor_fft fft = nullptr;
  const int32_t status = zor_fft_create(&fft, ZOR_DFT_DOUBLE, ZOR_DFT_COMPLEX, 1, &length);
  return status == ZOR_DFT_MEMORY_ERROR && fft == nullptr ? "" : "status " + std::to_string(status);
}

std::string matrix_created() {
  const double val[] = {1};
  const zor_int indx[] = {0}, rows[] = {0, 1};
  const zor_sparse_desc d = sparse_test::csr({'g'}, 0, 1, 1, 1, val, indx, rows);
  zor_sparse a = nullptr;
  const int32_t status = zor_sparse_create(&a, &d);
  return status == ZOR_SPARSE_NO_MEMORY && a == nullptr ? "" : "status " + std::to_string(status);
}

// Those that need memory say that there is none; the others do without.
std::string refined_solution() {
  const double a[] = {2, 0, 0, 4}, b[] = {1, 1};
  double x[] = {7, 7};
  const zor_int status = zor_dsolve_refined('G', 2, 1, a, 2, b, 2, x, 2, nullptr, nullptr);
  return status == ZOR_LAPACK_MEMORY && x[0] == 7 && x[1] == 7 ? "" : "status " + std::to_string(status);
}

std::string convolution_by_transform() {
  static double x[300] = {1, 2}, y[100] = {3, 4}, z[399] = {7};
  const zor_int m = 300, n = 100, full = 399;
  zor_conv_options options = {};
  options.method = ZOR_CONV_TRANSFORM;
  const int32_t status = zor_convolve_d(1, &m, x, &n, y, &full, z, &options);
  return status == ZOR_CONV_NO_MEMORY && z[0] == 7 ? "" : "status " + std::to_string(status);
}

std::string rectangle_in_place() {
  zor_set_threads(4);
  constexpr zor_int m = 300, n = 700;
  static double a[m * n];
  for (zor_int i = 0; i < m * n; ++i) a[i] = double(i);
  zor_dimatcopy('R', 'T', m, n, 2, a, n, m);
  for (zor_int i = 0; i < m * n; ++i)
    if (a[i] != double(2 * (i % m * n + i / m))) return "wrong transpose";
  return "";
}

std::string symmetric_product_and_solves() {
  zor_set_threads(4);
  constexpr zor_int n = 400, nrhs = 200;
  static double a[n * n], y[n], d[n], b[n * nrhs], none[n];
  for (zor_int i = 0; i < n; ++i) a[i * (n + 1)] = 2, d[i] = 4;
  std::fill_n(b, n * nrhs, 8.0);
  zor_dsymv_x(ZOR_UPPER, n, 1, a, n, b, 1, 0, y, 1, ZOR_EXTRA);
  const zor_int info = zor_dgtsv(n, nrhs, none, d, none, b, n);
  const bool right = std::all_of(y, y + n, [](double e) { return e == 16; }) &&
                     std::all_of(b, b + n * nrhs, [](double e) { return e == 2; });
  return info == 0 && right ? "" : "wrong";
}

const struct {
  const char* name;
  std::string (*run)();
} first_calls[] = {
    {"zor_core_kern_path", [] { return std::string(zor_core_kern_path()[0] == '/' ? "" : "no path"); }},
    {"zor_core_kern_build",
     [] { return std::string(zor_core_kern_build() != std::string_view("unknown") ? "" : "unknown"); }},
    {"zor_blas_cdotc", [] { return dot_of_integers(zor_blas_cdotc, 4, 0); }},
    {"zor_blas_cdotu", [] { return dot_of_integers(zor_blas_cdotu, 6, 6); }},
    {"zor_blas_zdotc", [] { return dot_of_integers(zor_blas_zdotc, 4, 0); }},
    {"zor_blas_zdotu", [] { return dot_of_integers(zor_blas_zdotu, 6, 6); }},
    {"zor_blas_dgemm", [] { return product_of_integers(4); }},
    {"zor_fft_create", transform_created},
    {"zor_sparse_create", matrix_created},
    {"zor_dsolve_refined", refined_solution},
    {"zor_convolve_d", convolution_by_transform},
    {"zor_dimatcopy", rectangle_in_place},
    {"zor_dsymv_x, zor_dgtsv", symmetric_product_and_solves},
    {"zor_serv_load_thread_fun",
     [] {
       return std::string(zor_serv_load_thread_fun("zor_dft_compute_forward_z_par") != nullptr ? "" : "none");
     }},
    {"zor_serv_zor_get_msg",
     [] { return std::string(zor_serv_zor_get_msg(408, 1, "some.log") != nullptr ? "" : "no text"); }},
};

TEST(Refusal, OfMemoryInFirstCalls) {
  for (const auto& call : first_calls)
    expect_good(call.name, [&] {
      memory_refused = true;
      std::string wrong = call.run();
      memory_refused = false;
      return wrong;
    });
}

}  // namespace
