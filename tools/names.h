// SPDX-License-Identifier: MIT
// Names of files and the texts around them.
#pragma once

#include <string>
#include <string_view>

namespace zor_tools {

// True when a name ends so, in capitals or not. The ending is given in small letters.
bool has_ending(std::string_view name, std::string_view ending);

// The text with control characters written as \n, \t or \x1b, so that a name cannot disturb a terminal.
std::string printable(std::string_view text);

}  // namespace zor_tools
