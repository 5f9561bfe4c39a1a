// SPDX-License-Identifier: MIT
// Endings of file names, and names made fit to print.
#include "tools/names.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace zor_tools {

bool has_ending(std::string_view name, std::string_view ending) {
  return name.size() >= ending.size() &&
         std::ranges::equal(name.substr(name.size() - ending.size()), ending,
                            [](unsigned char a, char b) { return std::tolower(a) == b; });
}

std::string printable(std::string_view text) {
  std::string out;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (code >= 0x20 && code != 0x7F)
      out += c;
    else if (c == '\n' || c == '\t')
      out += c == '\n' ? "\\n" : "\\t";
    else
      out += fmt::format("\\x{:02x}", code);
  }
  return out;
}

}  // namespace zor_tools
