// SPDX-License-Identifier: MIT
// probe LIBRARY...: loads the libraries in that order, each for itself, and calls the last, which is
// libzor_core. Prints the kernel build and file in use and the bits of a few results.
// probe --again N LIBRARY...: the same N times over, each time with larger products on several threads, and
// all libraries closed at the end.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "zor/signatures/blas.h"

namespace {

template <class F>
F* symbol(void* library, const char* name) {
  void* address = dlsym(library, name);
  if (address == nullptr) std::printf("missing: %s\n", name);
  return reinterpret_cast<F*>(address);
}

uint64_t mixed_bits(const double* x, size_t count) {
  uint64_t hash = 0;
  for (size_t i = 0; i < count; ++i) {
    uint64_t bits;
    std::memcpy(&bits, x + i, sizeof bits);
    hash = (hash ^ bits) * 0x9E3779B97F4A7C15u;
  }
  return hash;
}

constexpr zor_int one_step = 1;

std::vector<double> operands(zor_int n) {
  std::vector<double> a(size_t(2 * n * n));
  for (size_t i = 0; i < a.size(); ++i) a[i] = 1.0 / double(i + 3);
  return a;
}

void print_dots(void* core, zor_int n) {
  const std::vector<double> a = operands(n);
  for (const char* name : {"zor_blas_zdotc", "zor_blas_zdotu"}) {
    double result[2] = {};
    symbol<zor::cdot_fn<double>>(core, name)(result, &n, a.data(), &one_step, a.data() + 50, &one_step);
    std::printf(" %llx", static_cast<unsigned long long>(mixed_bits(result, 2)));
  }
}

void print_product(void* core, zor_int n) {
  const std::vector<double> a = operands(n);
  std::vector<double> c(a.size());
  const double one = 1, zero = 0;
  symbol<zor::gemm_fn<double>>(core, "zor_blas_dgemm")("N", "T", &n, &n, &n, &one, a.data(), &n, a.data() + n,
                                                       &n, &zero, c.data(), &n);
  std::printf(" %llx\n", static_cast<unsigned long long>(mixed_bits(c.data(), size_t(n * n))));
}

void print_library(void* core) {
  std::printf("%s %s", symbol<const char*()>(core, "zor_core_kern_build")(),
              symbol<const char*()>(core, "zor_core_kern_path")());
}

// The last of the libraries, all of them opened.
void* open_all(int mode, int count, char** names, std::vector<void*>& libraries) {
  for (int i = 0; i < count; ++i) {
    libraries.push_back(dlopen(names[i], RTLD_NOW | mode));
    if (libraries.back() == nullptr) std::printf("%s\n", dlerror()), std::exit(1);
  }
  return libraries.empty() ? nullptr : libraries.back();
}

void compute_and_close(int count, char** names) {
  std::vector<void*> libraries;
  void* const core = open_all(RTLD_GLOBAL, count, names, libraries);
  symbol<void(int32_t)>(core, "zor_set_threads")(4);
  print_library(core);
  print_product(core, 301);
  for (void* library : libraries) dlclose(library);
}

}  // namespace

int main(int count, char** arguments) {
  if (count > 3 && std::strcmp(arguments[1], "--again") == 0) {
    for (int i = 0; i < std::atoi(arguments[2]); ++i) compute_and_close(count - 3, arguments + 3);
    return 0;
  }
  std::vector<void*> libraries;
  void* const core = open_all(RTLD_LOCAL, count - 1, arguments + 1, libraries);
  if (core == nullptr) return 1;
  print_library(core);
  print_dots(core, 101);
  print_product(core, 101);
}
