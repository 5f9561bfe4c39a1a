// SPDX-License-Identifier: MIT
// Reports of the trigonometric transforms: the messages of each event.
#include "pde/report.h"

#include <cstring>

#include "pde/trig/parameters.h"
#include "zor/signatures/trig.h"

namespace zor::pde {
namespace {

enum class shown : char { nothing, status, n, type, threads, one, tolerance, default_tolerance, text };

// Messages `first` to first + count - 1 of a set, the leading ones with what they show.
struct event_messages {
  zor_int event;
  bool error;
  int32_t first, count;
  shown values[5];
};
constexpr event_messages events[] = {
    {event_commit_blocked, true, 0, 2, {shown::status}},
    {event_bad_n, true, 2, 2, {shown::n}},
    {event_bad_type, true, 4, 4, {shown::type}},
    {event_zero_divisor, true, 8, 3, {}},
    {event_run_blocked, true, 11, 4, {shown::nothing, shown::status}},
    {event_n_lost, true, 15, 3, {shown::nothing, shown::n}},
    {event_negative_tolerance,
     false,
     18,
     5,
     {shown::tolerance, shown::nothing, shown::nothing, shown::nothing, shown::default_tolerance}},
    {event_sine_first, false, 23, 3, {shown::text, shown::tolerance}},
    {event_sine_last, false, 26, 3, {shown::text, shown::tolerance}},
    {event_cosine_last, false, 29, 3, {shown::text, shown::tolerance}},
    {event_negative_threads, false, 32, 3, {shown::threads, shown::nothing, shown::one}},
    {event_staggered_sine_first, false, 35, 3, {shown::text, shown::tolerance}},
    {event_dft_failed, true, 38, 1, {shown::text}},
};

constexpr int32_t message_header = 396, message_error = 397, message_warning = 398, message_unknown = 407;
constexpr report_style style = {3079, "ZOR_Trig_Transforms_Log.txt", {408, 409}, true};

// A caller's text with each per cent sign doubled where the report becomes a format.
struct caller_text {
  caller_text(const char* from, bool doubled) {
    size_t to = 0;
    for (; from != nullptr && *from != '\0' && to + 2 < sizeof text; ++from) {
      text[to++] = *from;
      if (*from == '%' && doubled) text[to++] = '%';
    }
    text[to] = '\0';
  }
  char text[500];
};

template <class T>
void print_report(zor_int event, int32_t set, const zor_int* ipar, const T* dpar, const char* text) {
  const bool is_error = (event >= event_commit_blocked && event <= event_n_lost) || event == event_dft_failed;
  const zor_int destination = ipar[is_error ? trig_errors : trig_warnings];
  const caller_text given(text, destination <= 0);
  const auto values_of = [&](shown s, integer_text& room) {
    message_values v;
    if (s == shown::nothing) return v;
    v.count = 1;
    v.real = s == shown::tolerance || s == shown::default_tolerance;
    if (v.real) {
      v.number = double(s == shown::tolerance ? dpar[0] : default_tolerance<T>(ipar[trig_n]));
      return v;
    }
    const zor_int integer = s == shown::status    ? ipar[trig_status]
                            : s == shown::n       ? ipar[trig_n]
                            : s == shown::type    ? ipar[trig_type]
                            : s == shown::threads ? ipar[trig_threads]
                                                  : 1;
    room = integer_text(integer);
    v.text[0] = s == shown::text ? given.text : room.text;
    return v;
  };

  const event_messages* row = nullptr;
  for (const event_messages& e : events)
    if (e.event == event) row = &e;
  report r;
  r.add("\n");
  r.add_message(message_header);
  r.add("\n");
  r.add_message(row != nullptr && row->error ? message_error : message_warning);
  if (row == nullptr) {
    r.add("\n");
    r.add_message(message_unknown);
  } else {
    integer_text room(0);
    for (int32_t i = 0; i < row->count; ++i) {
      r.add("\n");
      r.add_message(set + row->first + i, values_of(row->values[i], room));
    }
  }
  r.add("\n\n");
  r.deliver(destination, style);
}

}  // namespace

template <>
void report_trig<double>(trig_event event, const zor_int* ipar, const double* dpar, const char* text) {
  const zor_int code = event;
  (ipar[trig_c_messages] != 0 ? zor_pdett_d_tt_print_diagnostics_c : zor_pdett_d_tt_print_diagnostics_f)(
      &code, ipar, dpar, text);
}
template <>
void report_trig<float>(trig_event event, const zor_int* ipar, const float* dpar, const char* text) {
  const zor_int code = event;
  (ipar[trig_c_messages] != 0 ? zor_pdett_s_tt_print_diagnostics_c : zor_pdett_s_tt_print_diagnostics_f)(
      &code, ipar, dpar, text);
}

}  // namespace zor::pde

#define ROW_TRIG_REPORT(name, T, set) \
  extern "C" SIG_TRIG_REPORT(name, T) { zor::pde::print_report<T>(*code, set, ipar, dpar, text); }
#include "zor/tables/pdett.inc"
