// SPDX-License-Identifier: MIT
#include "bench/choose_build.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
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
constexpr const char* tried_mark = "ZOR_BENCH_BUILD_TRIED";

}  // namespace

void choose_build(const std::string& build, char** argv) {
  if (build.empty()) return;
  for (const build_choice& choice : choices) {
    if (build != choice.name) continue;
    if (std::strcmp(zor_core_kern_build(), choice.folder) == 0) return;
    if (choice.tunable == nullptr || std::getenv(tried_mark) != nullptr)
      throw std::runtime_error("the loader gives the build " + std::string(zor_core_kern_build()) + ", not " +
                               build);
    setenv(tried_mark, "1", 1);
    setenv("GLIBC_TUNABLES", choice.tunable, 1);
    execv("/proc/self/exe", argv);
    throw std::runtime_error("the program cannot be started anew: " + std::string(std::strerror(errno)));
  }
  throw std::invalid_argument("there is no build '" + build + "'");
}

}  // namespace zor_bench
