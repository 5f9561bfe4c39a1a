// SPDX-License-Identifier: MIT
// The dynamic symbols of the kernel library a test program is bound to.
#pragma once

#include <dlfcn.h>
#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "zor/frame.h"
#include "zor/serv.h"

namespace zor_test {

// The file that holds zor_serv_allocate, as the dynamic loader found it.
inline std::string kern_file() {
  Dl_info info{};
  dladdr(reinterpret_cast<void*>(&zor_serv_allocate), &info);
  return info.dli_fname;
}

// Defined dynamic function symbols of a library whose names begin with `prefix`.
inline std::set<std::string> exported_functions(const std::string& file, const std::string& prefix) {
  std::ifstream in(file, std::ios::binary);
  const std::vector<char> image{std::istreambuf_iterator<char>(in), {}};
  const auto* header = reinterpret_cast<const Elf64_Ehdr*>(image.data());
  const auto* sections = reinterpret_cast<const Elf64_Shdr*>(image.data() + header->e_shoff);
  std::set<std::string> names;
  for (int s = 0; s < header->e_shnum; ++s) {
    if (sections[s].sh_type != SHT_DYNSYM) continue;
    const auto* symbols = reinterpret_cast<const Elf64_Sym*>(image.data() + sections[s].sh_offset);
    const char* strings = image.data() + sections[sections[s].sh_link].sh_offset;
    for (size_t i = 0; i < sections[s].sh_size / sizeof(Elf64_Sym); ++i) {
      const char* name = strings + symbols[i].st_name;
      if (symbols[i].st_shndx != SHN_UNDEF && std::strncmp(name, prefix.c_str(), prefix.size()) == 0)
        names.insert(name);
    }
  }
  return names;
}

}  // namespace zor_test
