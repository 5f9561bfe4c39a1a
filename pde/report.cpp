// SPDX-License-Identifier: MIT
// Puts texts and values of a message together, and writes them to the screen or to the file.
#include "pde/report.h"

#include <cstdio>
#include <cstring>

#include "serv/imports.h"

namespace zor::pde {

void report::append(const char* text, size_t most) {
  const size_t room = sizeof text_ - 1 - size_;
  size_t length = strnlen(text, most);
  if (length > room) length = room;
  std::memcpy(text_ + size_, text, length);
  size_ += length;
  text_[size_] = '\0';
}

void report::add(const char* text) { append(text, sizeof text_); }

void report::add_message(int32_t number, const message_values& v) {
  const char* text;
  if (v.real)
    text = core::zor_serv_zor_get_msg(number, 1, v.number);
  else
    text = core::zor_serv_zor_get_msg(number, v.count, v.text[0], v.text[1], v.text[2], v.text[3], v.text[4],
                                      v.text[5], v.text[6]);
  if (text != nullptr) append(text, longest_message);
}

void report::deliver(zor_int destination, const report_style& style) const {
  if (destination > 0) {
    std::printf("%.*s", int(style.shown), text_);
    std::fflush(nullptr);
    return;
  }
  std::FILE* const log = std::fopen(style.file, "a+");
  if (log == nullptr) {
    core::zor_serv_zor_print(1, 0, 0);
    if (style.lost_names_file)
      core::zor_serv_zor_print(1, style.lost[0], 1, style.file);
    else
      core::zor_serv_zor_print(1, style.lost[0], 0);
    core::zor_serv_zor_print(1, style.lost[1], 0);
    std::fflush(nullptr);
    return;
  }
  std::fflush(log);
  // The text is the format, in which a message writes a per cent sign twice. Texts of callers have theirs
  // doubled before they come here, so that none is taken for a conversion.
  std::fprintf(log, text_);
  std::fclose(log);
}

integer_text::integer_text(zor_int value) {
  std::snprintf(text, sizeof text, "%lli", static_cast<long long>(value));
}

}  // namespace zor::pde
