// SPDX-License-Identifier: MIT
// The process starts itself again under the loader's settings for another build.
#include "bench/choose_build.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "zor/core.h"

namespace zor_bench {
namespace {

struct build_choice {
  const char* name;
  const char* folder;   // as zor_core_kern_build() says it
  const char* tunable;  // what hides the wider builds from the loader
};
constexpr build_choice choices[] = {{"baseline", "baseline", "glibc.cpu.hwcaps=-AVX2,-AVX512F"},
                                    {"v3", "x86-64-v3", "glibc.cpu.hwcaps=-AVX512F"},
                                    {"v4", "x86-64-v4", nullptr}};
constexpr const char* tried_mark = "ZOR_KERNEL_TRIED";

const build_choice* find_choice(const std::string& build) {
  for (const build_choice& choice : choices)
    if (build == choice.name) return &choice;
  throw std::invalid_argument("there is no build '" + build + "'");
}

// Where libzor_core stands, and the kernel library of the separate arithmetic; that of the fused one is
// below, in fused/ of a build or zor/fused/ where the library is installed.
std::string library_folder() {
  Dl_info found;
  if (dladdr(reinterpret_cast<void*>(&zor_arithmetic), &found) == 0) return "";
  return std::filesystem::canonical(found.dli_fname).parent_path();
}

void prefer_arithmetic(const std::string& arithmetic) {
  std::string folder = library_folder();
  if (arithmetic == "fused") folder += std::filesystem::exists(folder + "/fused") ? "/fused" : "/zor/fused";
  if (access((folder + "/libzor_kern.so.1").c_str(), R_OK) != 0)
    throw std::runtime_error("there is no kernel library of the " + arithmetic + " arithmetic in " + folder);
  if (const char* const path = std::getenv("LD_LIBRARY_PATH"); path != nullptr)
    folder.append(":").append(path);
  setenv("LD_LIBRARY_PATH", folder.c_str(), 1);
}

}  // namespace

void choose_kernel(const std::string& arithmetic, const std::string& build, char** argv) {
  const build_choice* const choice = build.empty() ? nullptr : find_choice(build);
  const bool other_build = choice != nullptr && std::strcmp(zor_core_kern_build(), choice->folder) != 0;
  const bool other_arithmetic = !arithmetic.empty() && arithmetic != zor_arithmetic();
  if (!other_build && !other_arithmetic) return;
  if ((other_build && choice->tunable == nullptr) || std::getenv(tried_mark) != nullptr)
    throw std::runtime_error(std::string("the loader gives the build ") + zor_core_kern_build() + " of the " +
                             zor_arithmetic() + " arithmetic, not " + (other_build ? build : arithmetic));
  setenv(tried_mark, "1", 1);
  if (other_build) setenv("GLIBC_TUNABLES", choice->tunable, 1);
  if (other_arithmetic) prefer_arithmetic(arithmetic);
  execv("/proc/self/exe", argv);
  throw std::runtime_error("the program cannot be started anew: " + std::string(std::strerror(errno)));
}

}  // namespace zor_bench
