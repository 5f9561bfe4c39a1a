// SPDX-License-Identifier: MIT
// probe LIBRARY...: loads the libraries in that order, each for itself, and calls the last, which is
// libzor_core. Prints the kernel build and file in use and the bits of a few results.
#include <dlfcn.h>

#include <cstdio>
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

}  // namespace

int main(int count, char** libraries) {
  void* core = nullptr;
  for (int i = 1; i < count; ++i) {
    core = dlopen(libraries[i], RTLD_NOW | RTLD_LOCAL);
    if (core == nullptr) return std::printf("%s\n", dlerror()), 1;
  }
  if (core == nullptr) return 1;
  std::printf("%s %s", symbol<const char*()>(core, "zor_core_kern_build")(),
              symbol<const char*()>(core, "zor_core_kern_path")());

  const zor_int n = 101, one_step = 1;
  std::vector<double> a(size_t(2 * n * n)), c(a.size());
  for (size_t i = 0; i < a.size(); ++i) a[i] = 1.0 / double(i + 3);
  for (const char* name : {"zor_blas_zdotc", "zor_blas_zdotu"}) {
    double result[2] = {};
    symbol<zor::cdot_fn<double>>(core, name)(result, &n, a.data(), &one_step, a.data() + 50, &one_step);
    std::printf(" %llx", static_cast<unsigned long long>(mixed_bits(result, 2)));
  }
  const double one = 1, zero = 0;
  symbol<zor::gemm_fn<double>>(core, "zor_blas_dgemm")("N", "T", &n, &n, &n, &one, a.data(), &n, a.data() + n,
                                                       &n, &zero, c.data(), &n);
  std::printf(" %llx\n", static_cast<unsigned long long>(mixed_bits(c.data(), size_t(n * n))));
}
