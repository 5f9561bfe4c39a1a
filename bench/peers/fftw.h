// SPDX-License-Identifier: MIT
// FFTW of one precision, as its manual declares it, found at run time.
#pragma once

#include <dlfcn.h>

#include <string>
#include <type_traits>

namespace zor_bench {

struct fftw {
  using plan = void*;
  // Of one shape, rank and lengths; the sign is -1 forward, 1 backward.
  plan (*plan_dft)(int, const int*, void*, void*, int sign, unsigned flags);
  plan (*plan_dft_r2c)(int, const int*, void*, void*, unsigned flags);
  plan (*plan_dft_c2r)(int, const int*, void*, void*, unsigned flags);
  // Of many: their number; then of input and output each data, room (null: as the lengths), stride, distance.
  plan (*plan_many_dft)(int, const int*, int, void*, const int*, int, int, void*, const int*, int, int,
                        int sign, unsigned flags);
  plan (*plan_many_dft_r2c)(int, const int*, int, void*, const int*, int, int, void*, const int*, int, int,
                            unsigned flags);
  plan (*plan_many_dft_c2r)(int, const int*, int, void*, const int*, int, int, void*, const int*, int, int,
                            unsigned flags);
  plan (*plan_many_r2r)(int, const int*, int, void*, const int*, int, int, void*, const int*, int, int,
                        const int* kinds, unsigned flags);
  void (*execute)(plan);
  void (*destroy_plan)(plan);
  void (*forget_wisdom)();
  const char* version;
};
enum : unsigned { fftw_measure = 0, fftw_estimate = 1u << 6 };

// Null when it is not installed.
template <class R>
const fftw* find_fftw() {
  static const fftw found = [] {
    constexpr bool wide = sizeof(R) == 8;
    fftw f{};
    void* const library = dlopen(wide ? "libfftw3.so.3" : "libfftw3f.so.3", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return f;
    const auto find = [&](auto& slot, const char* name) {
      slot = reinterpret_cast<std::remove_reference_t<decltype(slot)>>(
          dlsym(library, ((wide ? "fftw_" : "fftwf_") + std::string(name)).c_str()));
    };
    find(f.plan_dft, "plan_dft");
    find(f.plan_dft_r2c, "plan_dft_r2c");
    find(f.plan_dft_c2r, "plan_dft_c2r");
    find(f.plan_many_dft, "plan_many_dft");
    find(f.plan_many_dft_r2c, "plan_many_dft_r2c");
    find(f.plan_many_dft_c2r, "plan_many_dft_c2r");
    find(f.plan_many_r2r, "plan_many_r2r");
    find(f.execute, "execute");
    find(f.destroy_plan, "destroy_plan");
    find(f.forget_wisdom, "forget_wisdom");
    find(f.version, "version");
    return f;
  }();
  return found.execute != nullptr ? &found : nullptr;
}

}  // namespace zor_bench
