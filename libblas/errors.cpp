// SPDX-License-Identifier: MIT
// Reports of bad arguments as users of a BLAS library expect them: through xerbla_ for Fortran names, through
// cblas_xerbla for CBLAS names. A program may replace either. Ours print one line and return, and the call
// that was refused has then written nothing.
#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "libblas/call.h"

#pragma GCC visibility push(default)

extern "C" {

// Whether the report under way is of a CBLAS call, and of one with a matrix stored by rows; a cblas_xerbla of
// the program's own may ask. Positions are then those of the routine that works by columns, plus one.
int ZOR_SYMBOL(CBLAS_CallFromC) = 0;
int ZOR_SYMBOL(RowMajorStrg) = 0;

void ZOR_SYMBOL(xerbla_)(const char* routine, const blasint* position, size_t length);
void ZOR_SYMBOL(cblas_xerbla)(blasint position, const char* routine, const char* form, ...);
}

namespace zor_libblas {

constinit thread_local const call* call::under_way = nullptr;

namespace {

constexpr size_t name_room = 33;

// Fortran names end in blanks and not in a null; a caller in C may end it so, and hand over no length.
size_t length_of(const char* routine, size_t length) {
  size_t end = 0;
  while (end < std::min(length, name_room - 1) && std::isgraph(static_cast<unsigned char>(routine[end])))
    ++end;
  return end;
}

// "cblas_dgemm" of "dgemm".
struct c_name {
  char text[name_room + 8];
  explicit c_name(const char* routine) {
    std::snprintf(text, sizeof text, "cblas_%.*s", int(name_room), routine);
  }
};

void report_to_fortran(const call& failed, int32_t position) {
  char name[name_room];
  const size_t length = std::max<size_t>(6, std::strlen(failed.name));
  std::memset(name, ' ', sizeof name);
  std::transform(failed.name, failed.name + std::strlen(failed.name), name,
                 [](char c) { return char(std::toupper(c)); });
  name[length] = '\0';
  const blasint info = position;
  ZOR_SYMBOL(CBLAS_CallFromC) = failed.by_c;
  ZOR_SYMBOL(RowMajorStrg) = failed.by_rows;
  ZOR_SYMBOL(xerbla_)(name, &info, length);
  ZOR_SYMBOL(CBLAS_CallFromC) = 0;
  ZOR_SYMBOL(RowMajorStrg) = 0;
}

zor_core_error_filter next_filter = nullptr;

int32_t filter(const char* routine, int32_t position, const char* argument) {
  const call* const failed = call::under_way;
  if (failed == nullptr) return next_filter != nullptr ? next_filter(routine, position, argument) : 0;
  report_to_fortran(*failed, position);
  return 1;
}

[[gnu::constructor]] void watch_reports() { next_filter = zor_core_set_error_filter(filter); }

// Positions that a matrix stored by rows exchanges, by what a routine's name holds.
struct exchange {
  const char *holds, *holds_not;
  int first[3], second[3];
};
constexpr exchange exchanges[] = {
    {"gemmt", nullptr, {3, 8, 9}, {4, 10, 11}},
    {"gemm", nullptr, {4, 8, 9}, {5, 10, 11}},
    {"symm", nullptr, {4}, {5}},
    {"hemm", nullptr, {4}, {5}},
    {"trmm", nullptr, {6}, {7}},
    {"trsm", nullptr, {6}, {7}},
    {"gemv", nullptr, {3}, {4}},
    {"gbmv", nullptr, {3, 5}, {4, 6}},
    {"geadd", nullptr, {2}, {3}},
    {"ger", nullptr, {2, 5, 6}, {3, 7, 8}},
    {"her2", "her2k", {5, 6}, {7, 8}},
    {"hpr2", nullptr, {5, 6}, {7, 8}},
};

blasint position_by_rows(const char* routine, blasint position) {
  for (const exchange& e : exchanges) {
    if (std::strstr(routine, e.holds) == nullptr) continue;
    if (e.holds_not != nullptr && std::strstr(routine, e.holds_not) != nullptr) continue;
    for (int i = 0; i < 3; ++i) {
      if (position == e.first[i]) return e.second[i];
      if (position == e.second[i]) return e.first[i];
    }
    return position;
  }
  return position;
}

}  // namespace

call::call(const char* routine, int layout, int arguments_before)
    : name(routine), by_c(true), by_rows(layout == 101), before(arguments_before) {
  under_way = this;
  if (layout != 101 && layout != 102) refuse(1, "Order", layout);
}

void call::refuse(int32_t position, const char* what, int option) {
  if (refused_) return;
  refused_ = true;
  ZOR_SYMBOL(RowMajorStrg) = 0;
  ZOR_SYMBOL(cblas_xerbla)(position, c_name(name).text, "Illegal %s setting, %d\n", what, option);
}

void call::memory_is_short() {
  refused_ = true;
  ZOR_SYMBOL(cblas_xerbla)(0, c_name(name).text, "no memory for a conjugated vector\n");
}

}  // namespace zor_libblas

using namespace zor_libblas;

extern "C" {

[[gnu::weak]] void ZOR_SYMBOL(xerbla_)(const char* routine, const blasint* position, size_t length) {
  const call* const failed = call::under_way;
  if (failed != nullptr && failed->by_c)
    return ZOR_SYMBOL(cblas_xerbla)(*position + failed->before, c_name(failed->name).text, "");
  std::fprintf(stderr, " ** On entry to %-6.*s parameter number %2lld had an illegal value\n",
               int(length_of(routine, length)), routine, static_cast<long long>(*position));
}

[[gnu::weak]] void ZOR_SYMBOL(cblas_xerbla)(blasint position, const char* routine, const char* form, ...) {
  if (ZOR_SYMBOL(RowMajorStrg) != 0) position = position_by_rows(routine, position);
  if (position > 0)
    std::fprintf(stderr, "Parameter %lld to routine %s was incorrect\n", static_cast<long long>(position),
                 routine);
  if (*form == '\0') return;
  va_list arguments;
  va_start(arguments, form);
  std::vfprintf(stderr, form, arguments);
  va_end(arguments);
}

// The name as an array of characters.
void ZOR_SYMBOL(xerbla_array_)(const char* routine, const blasint* length, const blasint* position) {
  char name[name_room];
  std::memset(name, ' ', sizeof name);
  std::copy_n(routine, std::clamp<blasint>(*length, 0, name_room - 1), name);
  name[name_room - 1] = '\0';
  ZOR_SYMBOL(xerbla_)(name, position, name_room - 1);
}

int ZOR_SYMBOL(lsame_)(const char* a, const char* b) {
  return std::toupper(static_cast<unsigned char>(*a)) == std::toupper(static_cast<unsigned char>(*b));
}

}  // extern "C"
