// SPDX-License-Identifier: MIT
// The names that the grammar makes against counts worked out from its legal combinations, and both twins
// against each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

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

long members(const names& list, char type) {
  const std::string prefix = "zor_spblas_lp64_";
  return std::count_if(list.begin(), list.end(), [&](const std::string& name) {
    return name.compare(0, prefix.size(), prefix) == 0 && name[prefix.size()] == type;
  });
}

// Names of each type in a twin.
struct format {
  const char* name;
  names (*list)();
  long s, d, c, z;
};
const format formats[] = {
    {.name = "csr", .list = csr_names, .s = 108, .d = 109, .c = 244, .z = 244},
    {.name = "coo", .list = coo_names, .s = 80, .d = 80, .c = 156, .z = 156},
    {.name = "dia", .list = dia_names, .s = 54, .d = 54, .c = 104, .z = 104},
    {.name = "bsr", .list = bsr_names, .s = 5, .d = 5, .c = 5, .z = 5},
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
  }
}

TEST(SparseGrammar, EveryNameStandsInBothTwinsOnce) {
  const std::string wide = "zor_spblas_", narrow = "zor_spblas_lp64_";
  std::multiset<std::string> of_twin[2];
  for (const format& f : formats)
    for (const std::string& name : f.list()) {
      const bool is_narrow = name.compare(0, narrow.size(), narrow) == 0;
      of_twin[is_narrow].insert(name.substr((is_narrow ? narrow : wide).size()));
    }
  EXPECT_EQ(of_twin[0], of_twin[1]);
  EXPECT_EQ(of_twin[0].size(), std::set<std::string>(of_twin[0].begin(), of_twin[0].end()).size());
}

}  // namespace
