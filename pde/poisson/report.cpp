// SPDX-License-Identifier: MIT
// Reports of the solvers: the messages of each event.
#include "pde/report.h"

#include "pde/poisson/solver.h"
#include "zor/signatures/poisson.h"

namespace zor::pde {
namespace {

// What a message shows: entries of ipar, or one of the real array.
enum class from { nothing, ipar, dpar };
struct shown_entries {
  from where = from::nothing;
  int32_t count = 0;
  int16_t entry[most_texts] = {};
};
template <class... I>
constexpr shown_entries integers(I... entries) {
  return {from::ipar, int32_t(sizeof...(I)), {int16_t(entries)...}};
}
constexpr shown_entries real(int entry) { return {from::dpar, 1, {int16_t(entry)}}; }

// Messages `first` to first + count - 1, number `at` of which shows something; `last`, if not 0, stands in
// the place of the last one.
struct event_messages {
  zor_int event;
  int32_t first, count, at;
  shown_entries shown;
  int32_t last = 0;
};
constexpr event_messages errors[] = {
    {0, 13, 5, 0, integers(10)},
    {1, 18, 5, 0, integers(11)},
    {2, 38, 4, 0, integers(10)},
    {3, 54, 5, 0, real(0)},
    {4, 59, 5, 0, real(1)},
    {5, 79, 4, 0, integers(3)},
    {6, 87, 4, 0, integers(4)},
    {7, 91, 4, 0, integers(5)},
    {8, 95, 4, 0, integers(6)},
    {9, 99, 4, 0, integers(7)},
    {10, 115, 3, 0, integers(3, 4, 5, 6, 7)},
    {11, 33, 5, 0, integers(12)},
    {12, 121, 3, 0, {}},
    {13, 127, 2, 0, integers(3)},
    {14, 151, 2, 1, integers(46)},
    {15, 162, 3, 0, real(1)},
    {16, 165, 2, 0, {}},
    {17, 50, 4, 0, integers(11)},
    {18, 74, 5, 0, real(2)},
    {19, 83, 4, 0, integers(3)},
    {20, 107, 4, 0, integers(8)},
    {21, 111, 4, 0, integers(9)},
    {22, 118, 3, 0, integers(3, 4, 5, 6, 7, 8, 9)},
    {23, 129, 2, 1, integers(46)},
    {24, 133, 2, 1, integers(46)},
    {25, 145, 2, 1, integers(46)},
    {26, 156, 2, 0, {}},
    {27, 158, 2, 0, {}},
    {28, 160, 2, 0, {}},
    {29, 131, 2, 1, integers(66)},
    {30, 135, 2, 1, integers(66)},
    {31, 148, 3, 1, integers(46, 66)},
    {32, 153, 3, 1, integers(46, 66)},
    {10000, 23, 5, 0, integers(10)},
    {10001, 28, 5, 0, integers(11)},
    {10002, 46, 4, 0, integers(10)},
    {10003, 64, 5, 0, real(0)},
    {10004, 69, 5, 0, real(1)},
    {10009, 103, 4, 0, integers(0)},
    {10012, 124, 3, 0, {}},
    {10014, 174, 2, 1, integers(46)},
    {10015, 185, 3, 0, real(1)},
    {10016, 188, 2, 0, {}},
    {10023, 137, 2, 1, integers(46)},
    {10024, 141, 2, 1, integers(46)},
    {10026, 179, 2, 0, {}},
    {10027, 181, 2, 0, {}},
    {10028, 183, 2, 0, {}},
    {10029, 139, 2, 1, integers(66)},
    {10030, 143, 2, 1, integers(66)},
    {10032, 176, 3, 1, integers(46, 66)},
    {10202, 42, 4, 0, integers(10)},
};
constexpr event_messages warnings[] = {
    {900, 167, 2, 0, {}},   {903, 169, 2, 0, {}},   {904, 167, 3, 0, real(real_q), 173},
    {10900, 190, 2, 0, {}}, {10903, 192, 2, 0, {}}, {10904, 194, 3, 0, real(real_q)},
};
constexpr event_messages unknown = {0, 197, 4, 0, {}};

constexpr int32_t message_header = 10, message_error = 11, message_warning = 12;
constexpr report_style style = {4105, "ZOR_Poisson_Library_Log.txt", {201, 202}, false};

template <class Rows>
const event_messages* find(const Rows& rows, zor_int event) {
  for (const event_messages& e : rows)
    if (e.event == event) return &e;
  return nullptr;
}

template <class T>
void print_report(zor_int event, int32_t set, const zor_int* ipar, const T* dpar) {
  const bool to_errors = (event >= 0 && event < 900) || (event >= 10000 && event < 10900);
  const event_messages* row = find(errors, event);
  const bool is_error = row != nullptr;
  if (row == nullptr) row = find(warnings, event);
  if (row == nullptr) row = &unknown;

  message_values values;
  values.count = row->shown.count;
  values.real = row->shown.where == from::dpar;
  if (values.real) values.number = double(dpar[row->shown.entry[0]]);
  integer_text room[most_texts] = {integer_text(0), integer_text(0), integer_text(0), integer_text(0),
                                   integer_text(0), integer_text(0), integer_text(0)};
  for (int32_t i = 0; i < values.count && row->shown.where == from::ipar; ++i) {
    room[i] = integer_text(ipar[row->shown.entry[i]]);
    values.text[i] = room[i].text;
  }

  report r;
  r.add(" ");
  r.add_message(set + message_header);
  r.add("\n");
  r.add_message(set + (is_error ? message_error : message_warning));
  for (int32_t i = 0; i < row->count; ++i) {
    r.add("\n");
    const bool replaced = row->last != 0 && i == row->count - 1;
    r.add_message(set + (replaced ? row->last : row->first + i), i == row->at ? values : message_values{});
  }
  r.add("\n");
  r.deliver(ipar[to_errors ? at_errors : at_warnings], style);
}

}  // namespace
}  // namespace zor::pde

#define ROW_BOX_REPORT(name, T, set)                   \
  extern "C" SIG_BOX_REPORT(name, T) {                 \
    (void)text;                                        \
    zor::pde::print_report<T>(*code, set, ipar, dpar); \
  }
#include "zor/tables/pdepl.inc"
