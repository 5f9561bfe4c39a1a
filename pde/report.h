// SPDX-License-Identifier: MIT
// Reports of the solvers: texts of numbered messages, joined and then printed or appended to a log file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zor/types.h"

namespace zor::pde {

// What fills the places of a message: one real number, or up to seven texts.
inline constexpr int most_texts = 7;
struct message_values {
  int32_t count = 0;
  bool real = false;
  double number = 0;
  const char* text[most_texts] = {};
};

// What is peculiar to the reports of one family.
struct report_style {
  size_t shown;          // most characters that go to standard output
  const char* file;      // the log file
  int32_t lost[2];       // messages when it cannot be opened
  bool lost_names_file;  // the first of them takes the name of the file
};

class report {
 public:
  void add(const char* text);
  // Up to 512 characters of the message.
  void add_message(int32_t number, const message_values& values = {});
  // destination > 0: standard output; otherwise the log file.
  void deliver(zor_int destination, const report_style& style) const;

 private:
  static constexpr size_t longest_message = 512;
  void append(const char* text, size_t most);
  char text_[10 * (longest_message + 1)] = {};
  size_t size_ = 0;
};

// Integers go into messages as text.
struct integer_text {
  explicit integer_text(zor_int value);
  char text[24];
};

}  // namespace zor::pde
