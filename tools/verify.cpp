// SPDX-License-Identifier: MIT
// zor verify: the digests of the battery against those kept, or written anew.
#include <fmt/format.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "tools/commands.h"
#include "tools/digest.h"
#include "tools/kept_digests.h"
#include "tools/output_file.h"
#include "tools/verify/battery.h"
#include "zor/core.h"

namespace zor_tools {
namespace {

using namespace std::string_view_literals;

using rows = std::vector<recorder::row>;

rows run_family(const battery_family& family) {
  recorder out;
  family.run(out);
  return out.take();
}

std::string text_of(const rows& results) {
  std::string text;
  for (const recorder::row& r : results) text += r.digest + "  " + r.name + "\n";
  return text;
}

rows parse(std::string_view text) {
  rows kept;
  std::istringstream lines{std::string(text)};
  for (recorder::row r; lines >> r.digest >> r.name;) kept.push_back(r);
  return kept;
}

// What is kept for a family in an arithmetic; a family without a file of the fused one is the same in both.
std::string_view kept_text(std::string_view arithmetic, std::string_view family) {
  std::string_view text;
  for (const kept_digest_file& file : kept_digest_files)
    if (file.family == family && (file.arithmetic == arithmetic || (text.empty() && arithmetic == "fused")))
      text = file.text;
  return text;
}

const recorder::row* find(const rows& list, const std::string& name) {
  const auto place = std::find_if(list.begin(), list.end(), [&](const auto& r) { return r.name == name; });
  return place == list.end() ? nullptr : &*place;
}

// Reports every name that is not as kept and returns their number.
int differences(const char* family, const rows& results, const rows& kept) {
  int count = 0;
  const auto report = [&](const std::string& name, const std::string& what) {
    ++count;
    fmt::print(stderr, "zor: verify: {}: {}: {}\n", family, name, what);
  };
  for (const recorder::row& r : results) {
    const recorder::row* expected = find(kept, r.name);
    if (expected == nullptr)
      report(r.name, "no digest is kept for this name");
    else if (expected->digest != r.digest)
      report(r.name, fmt::format("digest {}, kept {}", r.digest, expected->digest));
  }
  for (const recorder::row& r : kept)
    if (find(results, r.name) == nullptr) report(r.name, "a digest is kept, but no such name was run");
  return count;
}

std::string family_names() {
  std::string names;
  for (const battery_family& family : battery)
    names += (names.empty() ? "" : ", ") + std::string(family.name);
  return names;
}

std::vector<const battery_family*> select(const std::vector<std::string>& wanted) {
  std::vector<const battery_family*> chosen;
  for (const battery_family& family : battery)
    if (wanted.empty() || std::find(wanted.begin(), wanted.end(), family.name) != wanted.end())
      chosen.push_back(&family);
  for (const std::string& name : wanted)
    if (std::none_of(chosen.begin(), chosen.end(), [&](const auto* family) { return family->name == name; }))
      throw std::invalid_argument(
          fmt::format("there is no family '{}'; the families are {}", name, family_names()));
  return chosen;
}

}  // namespace

int verify(const verify_options& options) {
  zor_core_set_num_threads(options.threads);
  const auto chosen = select(options.families);
  fmt::print("kernel {} ({}), {} arithmetic, threads at most {}\n", zor_core_kern_build(),
             zor_core_kern_path(), zor_arithmetic(), zor_core_num_threads());
  int different = 0;
  digest sum;
  std::string whole;
  for (const battery_family* family : chosen) {
    const rows results = run_family(*family);
    const std::string text = text_of(results);
    if (options.list) fmt::print("{}", text);
    sum.text(text);
    const std::string family_digest = sum.take();
    whole += family_digest + "  " + family->name + "\n";
    std::string verdict;
    if (options.update.empty()) {
      const int count = differences(family->name, results, parse(kept_text(zor_arithmetic(), family->name)));
      verdict = count == 0 ? "as kept" : fmt::format("{} of {} names differ", count, results.size());
      different += count;
    } else if (text == kept_text("separate", family->name) && zor_arithmetic() == "fused"sv) {
      verdict = "as in the separate arithmetic, not written";
    } else {
      output_file(options.update + "/" + family->name + ".txt").commit(text);
      verdict = "written";
    }
    fmt::print("{:<8} {:>4} names  {}  {}\n", family->name, results.size(), family_digest, verdict);
  }
  sum.text(whole);
  fmt::print("{:<19} {}\n", options.families.empty() ? "all" : "selected", sum.take());
  if (different > 0) fmt::print(stderr, "zor: verify: {} digests are not those kept\n", different);
  return different > 0 ? 1 : 0;
}

}  // namespace zor_tools
