// SPDX-License-Identifier: MIT
// The grammar of names against fixed counts and digests of the four formats' name lists, and the exported
// symbols of the kernel library against the tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/symbols.h"
#include "zor/spblas.h"

namespace {

using names = std::vector<std::string>;

names csr_names() {
  return {
#define ROW(name, ...) #name,
#include "zor/tables/spblas_csr.inc"
  };
}
names coo_names() {
  return {
#define ROW(name, ...) #name,
#include "zor/tables/spblas_coo.inc"
  };
}
names dia_names() {
  return {
#define ROW(name, ...) #name,
#include "zor/tables/spblas_dia.inc"
  };
}
names bsr_names() {
  return {
#define ROW(name, ...) #name,
#include "zor/tables/spblas_bsr.inc"
  };
}

// FNV-1a over the sorted names, a newline after each.
uint64_t digest(names list) {
  std::sort(list.begin(), list.end());
  uint64_t h = 0xcbf29ce484222325u;
  for (const std::string& name : list)
    for (const char c : name + "\n") h = (h ^ uint8_t(c)) * 0x100000001b3u;
  return h;
}

long members(const names& list, char type) {
  const std::string prefix = "zor_spblas_lp64_";
  return std::count_if(list.begin(), list.end(), [&](const std::string& name) {
    return name.compare(0, prefix.size(), prefix) == 0 && name[prefix.size()] == type;
  });
}

struct format {
  const char* name;
  names (*list)();
  long s, d, c, z;
  uint64_t digest;
};
const format formats[] = {
    {"csr", csr_names, 108, 109, 244, 244, 0x8e6a23db6598e934u},
    {"coo", coo_names, 80, 80, 156, 156, 0x1923a84edb2e6f79u},
    {"dia", dia_names, 54, 54, 104, 104, 0x0af400ac18950dbbu},
    {"bsr", bsr_names, 5, 5, 5, 5, 0x6a8ec8054cb87f41u},
};

TEST(SparseGrammar, LegalNamesOfEachFormat) {
  for (const format& f : formats) {
    SCOPED_TRACE(f.name);
    const names list = f.list();
    EXPECT_EQ(list.size(), size_t(2 * (f.s + f.d + f.c + f.z)));
    EXPECT_EQ(members(list, 's'), f.s);
    EXPECT_EQ(members(list, 'd'), f.d);
    EXPECT_EQ(members(list, 'c'), f.c);
    EXPECT_EQ(members(list, 'z'), f.z);
    EXPECT_EQ(digest(list), f.digest);
  }
}

TEST(SparseGrammar, ExportsAreTheNamesOfTheTables) {
  const std::set<std::string> listed = {
#define ZOR_NAME(name) #name,
#include "zor/tables/all_kern.inc"
#undef ZOR_NAME
  };
  const std::string prefix = "zor_spblas_";
  const std::set<std::string> found = zor_test::exported_functions(zor_test::kern_file(), prefix);
  ASSERT_FALSE(found.empty());
  for (const std::string& name : found) EXPECT_TRUE(listed.count(name)) << "not in a table: " << name;
  for (const std::string& name : listed) {
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    EXPECT_TRUE(found.count(name)) << "not exported: " << name;
  }
}

}  // namespace
