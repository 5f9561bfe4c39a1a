// SPDX-License-Identifier: MIT
// Which kernel library libzor_core uses: the one the loader picks, or the one loaded before it. Every build
// gives the same bits. The libraries and the probe program come from the build tree.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string lib = ZOR_LIB_FOLDER, core_library = lib + "/libzor_core.so.1";

struct answer {
  std::string build, path, bits;
};

std::vector<answer> probe_all(const std::string& environment, const std::string& arguments) {
  const std::string command =
      "env -u LD_LIBRARY_PATH " + environment + " " ZOR_PROBE " " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  std::array<char, 4096> text{};
  const size_t length = std::fread(text.data(), 1, text.size() - 1, pipe);
  EXPECT_EQ(0, pclose(pipe)) << command << "\n" << text.data();
  std::istringstream in(std::string(text.data(), length));
  std::vector<answer> answers;
  for (answer a; in >> a.build >> a.path && std::getline(in, a.bits);) answers.push_back(a);
  return answers;
}

answer probe(const std::string& environment, const std::string& libraries) {
  const std::vector<answer> answers = probe_all(environment, libraries);
  return answers.empty() ? answer{} : answers[0];
}

struct kernel_build {
  const char* name;
  std::string file;
  bool supported;
  bool made() const { return std::filesystem::exists(file); }
};

const kernel_build builds[] = {
    {"baseline", lib + "/libzor_kern.so.1", true},
    {"x86-64-v3", lib + "/glibc-hwcaps/x86-64-v3/libzor_kern.so.1",
     __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2")},
    {"x86-64-v4", lib + "/glibc-hwcaps/x86-64-v4/libzor_kern.so.1",
     __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512cd")}};

TEST(Loading, TheLoadersChoiceOrTheBuildLoadedFirst) {
  const answer by_itself = probe("", core_library);
  const kernel_build* best = nullptr;
  for (const kernel_build& b : builds)
    if (b.supported && b.made()) best = &b;
  EXPECT_EQ(best->name, by_itself.build);
  EXPECT_EQ(std::filesystem::canonical(best->file), by_itself.path);
  EXPECT_FALSE(by_itself.bits.empty());
  EXPECT_EQ(std::string::npos, by_itself.bits.find("missing")) << by_itself.bits;
  for (const kernel_build& b : builds) {
    if (!b.supported || !b.made()) {
      std::printf("not run: %s, which %s\n", b.name, b.made() ? "this processor cannot" : "was not built");
      continue;
    }
    SCOPED_TRACE(b.name);
    // The kernel library behind, before and beside libzor_core in the search order.
    const answer answers[] = {probe("", b.file + " " + core_library),
                              probe("LD_PRELOAD=" + b.file, core_library),
                              probe("LD_PRELOAD=" + core_library + ":" + b.file, core_library),
                              probe("LD_LIBRARY_PATH=" + b.file.substr(0, b.file.rfind('/')), core_library)};
    const bool loaders_own[] = {false, false, false, b.name == builds[0].name};
    for (size_t i = 0; i < std::size(answers); ++i) {
      SCOPED_TRACE(i);
      EXPECT_EQ(by_itself.bits, answers[i].bits);
      // A folder in the path still has its hwcaps folders, so the loader may pick a wider build from it.
      if (loaders_own[i]) continue;
      EXPECT_EQ(b.name, answers[i].build);
      EXPECT_EQ(std::filesystem::canonical(b.file), answers[i].path);
    }
  }
}

TEST(Loading, TheFusedArithmeticByItsFolder) {
  const answer separate = probe("", core_library),
               fused = probe("LD_LIBRARY_PATH=" + lib + "/fused", core_library);
  EXPECT_EQ(separate.build, fused.build);
  std::string wanted = separate.path;
  EXPECT_EQ(wanted.replace(lib.size(), 0, "/fused"), fused.path);
}

// What a plug-in's host does. The threads of a call are there still when the library is closed.
TEST(Loading, ClosedAfterThreadedCallsAndOpenedAgain) {
  constexpr int rounds = 20;
  for (const std::string& before : {std::string(), builds[0].file + " "}) {
    SCOPED_TRACE(before);
    const std::vector<answer> answers =
        probe_all("", "--again " + std::to_string(rounds) + " " + before + core_library);
    ASSERT_EQ(size_t(rounds), answers.size());
    for (const answer& a : answers) EXPECT_EQ(answers[0].bits, a.bits);
  }
}

TEST(Loading, ACopyElsewhereIsOfUnknownBuild) {
  const std::string folder = ::testing::TempDir() + "zor_elsewhere";
  std::filesystem::create_directories(folder);
  std::filesystem::copy_file(builds[0].file, folder + "/libzor_kern.so.1",
                             std::filesystem::copy_options::overwrite_existing);
  const answer a = probe("", folder + "/libzor_kern.so.1 " + core_library);
  EXPECT_EQ("unknown", a.build);
  EXPECT_EQ(std::filesystem::canonical(folder + "/libzor_kern.so.1"), a.path);
  std::filesystem::remove_all(folder);
}

}  // namespace
