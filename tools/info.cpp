// SPDX-License-Identifier: MIT
// zor info: the libraries in use, the processor, threads, the pool and the peers that are installed.
#include <dlfcn.h>
#include <fmt/format.h>

#include <string_view>
#include <thread>

#include "bench/peers/peer.h"
#include "tools/commands.h"
#include "zor/core.h"
#include "zor/serv.h"

namespace zor_tools {
namespace {

// The instruction sets by which the dynamic loader tells the processor levels apart. __builtin_cpu_supports
// takes literals only.
void print_features() {
  const auto print = [](const char* name, bool present) { fmt::print(" {}{}", present ? "" : "no-", name); };
  fmt::print("x86-64-v3  ");
  print("avx2", __builtin_cpu_supports("avx2"));
  print("bmi", __builtin_cpu_supports("bmi"));
  print("bmi2", __builtin_cpu_supports("bmi2"));
  print("f16c", __builtin_cpu_supports("f16c"));
  print("fma", __builtin_cpu_supports("fma"));
  print("lzcnt", __builtin_cpu_supports("lzcnt"));
  print("movbe", __builtin_cpu_supports("movbe"));
  fmt::print("\nx86-64-v4  ");
  print("avx512f", __builtin_cpu_supports("avx512f"));
  print("avx512bw", __builtin_cpu_supports("avx512bw"));
  print("avx512cd", __builtin_cpu_supports("avx512cd"));
  print("avx512dq", __builtin_cpu_supports("avx512dq"));
  print("avx512vl", __builtin_cpu_supports("avx512vl"));
  fmt::print("\n");
}

std::string core_path() {
  Dl_info found;
  return dladdr(reinterpret_cast<void*>(&zor_core_num_threads), &found) != 0 ? found.dli_fname : "unknown";
}

void print_pool() {
  int32_t blocks = 0;
  const uint64_t bytes = zor_serv_zor_memstat(&blocks);
  if (blocks < 0)
    fmt::print("pool        off\n");
  else
    fmt::print("pool        {} blocks, {} bytes\n", blocks, bytes);
}

}  // namespace

int info() {
  fmt::print("zor         {}\n", zor_version());
  fmt::print("kernel      {}, {}\n", zor_core_kern_build(), zor_core_kern_path());
  const bool fused = std::string_view(zor_arithmetic()) == "fused";
  const bool slow = fused && std::string_view(zor_core_kern_build()) == "baseline";
  fmt::print("arithmetic  {}{}\n", zor_arithmetic(),
             slow ? ", by an operation in software, which is slow" : "");
  fmt::print("core        {}\n", core_path());
  print_features();
  fmt::print("threads     at most {} of {} processors\n", zor_core_num_threads(),
             std::thread::hardware_concurrency());
  print_pool();
  auto peers = zor_bench::load_blas_peers(1, "");
  for (auto& other : zor_bench::load_other_peers()) peers.push_back(std::move(other));
  if (peers.empty()) fmt::print("peers       none\n");
  for (const auto& peer : peers) fmt::print("peer        {} {} ({})\n", peer.name, peer.details, peer.file);
  return 0;
}

}  // namespace zor_tools
