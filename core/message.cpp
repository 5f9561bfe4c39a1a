// SPDX-License-Identifier: MIT
// Message texts by number. Formatted text stands in a buffer of the calling thread until its next message.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>

#include "zor/serv.h"

namespace {

struct message {
  int32_t number;
  const char* format;
  int32_t arguments;
};

constexpr int32_t conversions(const char* format) {
  int32_t count = 0;
  for (; *format != '\0'; ++format) {
    if (*format != '%') continue;
    if (format[1] == '%')
      ++format;
    else
      ++count;
  }
  return count;
}

constexpr message catalogue[] = {
#define ROW(number, format) {number, format, conversions(format)},
#include "core/messages.inc"
};

constexpr bool by_number(const message& a, const message& b) { return a.number < b.number; }
static_assert(std::is_sorted(std::begin(catalogue), std::end(catalogue), by_number));

// The texts of the solvers stand in parallel sets, for the callers of two languages and in two precisions,
// which read alike. One set of each is kept.
constexpr int32_t solver_set = 10, solver_twin = 203, solver_size = 191;
constexpr int32_t trig_set = 410, trig_size = 39, trig_sets = 4;
constexpr int32_t kept_number(int32_t number) {
  if (number >= solver_twin && number < solver_twin + solver_size) return number - solver_twin + solver_set;
  if (number >= trig_set && number < trig_set + trig_sets * trig_size)
    return (number - trig_set) % trig_size + trig_set;
  return number;
}

constexpr size_t longest_text = 1024;

// Null for an unknown number, or when fewer arguments come than the text shows.
const char* format_text(int32_t number, int32_t count, va_list arguments) {
  static thread_local char text[longest_text];
  const message key{kept_number(number), nullptr, 0};
  const message* m = std::lower_bound(std::begin(catalogue), std::end(catalogue), key, by_number);
  if (m == std::end(catalogue) || m->number != key.number || count < m->arguments) return nullptr;
  std::vsnprintf(text, sizeof text, m->format, arguments);
  return text;
}

}  // namespace

extern "C" const char* zor_serv_zor_get_msg(int32_t number, int32_t count, ...) {
  va_list arguments;
  va_start(arguments, count);
  const char* text = format_text(number, count, arguments);
  va_end(arguments);
  return text;
}

extern "C" void zor_serv_zor_print(int32_t, int32_t number, int32_t count, ...) {
  va_list arguments;
  va_start(arguments, count);
  const char* text = format_text(number, count, arguments);
  va_end(arguments);
  if (text != nullptr) std::printf("%s\n", text);
}
