// SPDX-License-Identifier: MIT
// Transforms of real lines: drivers, threaded entries and public calls, with packed and with complex spectra.
#include "tools/verify/dft.h"
#include "zor/core.h"

namespace zor_tools {
namespace {

// Straight-line, powers of two, odd and even lengths over every method.
constexpr zor_int lengths[] = {1, 2, 3, 16, 64, 128, 2048, 17, 89, 34, 97, 105, 1001, 303, 194, 1000, 202};
constexpr zor_int in_each_format[] = {1, 2, 3, 8, 30, 105};

constexpr int32_t padded = ZOR_DFT_FORMAT_PADDED, tail = ZOR_DFT_FORMAT_TAIL, second = ZOR_DFT_FORMAT_SECOND;

constexpr problem packed[] = {
    {.data = kind::packed, .n = {60}, .format = padded, .stride = 3, .offset = 2},
    {.data = kind::packed, .n = {33}, .format = tail, .transforms = 5, .scale = 0.3},
    {.data = kind::packed, .n = {24}, .format = second, .transforms = 21, .interleaved = true},
    {.data = kind::packed, .n = {97}, .format = padded, .transforms = 7, .interleaved = true},
    {.data = kind::packed, .n = {12, 20}, .format = padded, .transforms = 2, .scale = 0.3},
    {.data = kind::packed, .n = {15, 9}, .format = padded},
    {.data = kind::packed, .n = {16, 7}, .format = tail, .stride = 2, .offset = 1},
    {.data = kind::packed, .n = {10, 30}, .format = second}};
constexpr problem mixed[] = {{.data = kind::mixed, .n = {60}, .stride = 3, .offset = 2},
                             {.data = kind::mixed, .n = {33}, .transforms = 5, .scale = 0.3},
                             {.data = kind::mixed, .n = {24}, .transforms = 21, .interleaved = true},
                             {.data = kind::mixed, .n = {12, 20}, .transforms = 2, .scale = 0.3},
                             {.data = kind::mixed, .n = {15, 9}, .stride = 2},
                             {.data = kind::mixed, .n = {6, 5, 7}, .offset = 1},
                             {.data = kind::mixed, .n = {9, 4, 3}, .transforms = 2, .stride = 2}};

// Large enough to be divided over threads.
constexpr problem divided[] = {{.data = kind::packed, .n = {128}, .format = tail, .transforms = 66},
                               {.data = kind::mixed, .n = {90}, .transforms = 92, .interleaved = true}};

}  // namespace

void run_dftreal(recorder& out) {
#define DRIVE(name, problems, R, in_place, direction, ...)                                \
  if (out.begin(#name))                                                                   \
    drive<R>(out, problems, in_place, direction, [](ZorDftDescriptor* d, const auto& o) { \
      return name(d, __VA_ARGS__, d->number_of_transforms, d->work_buffer);               \
    });
#define ROW_PACKED(name, R, direction) DRIVE(name, packed, R, true, direction, o.x)
#define ROW_PACKED_OUT(name, R, direction) DRIVE(name, packed, R, false, direction, o.x, o.y)
#define ROW_MIXED(name, R, direction) DRIVE(name, mixed, R, true, direction, o.x)
#define ROW_MIXED_OUT(name, R, direction) DRIVE(name, mixed, R, false, direction, o.x, o.y)
#include "zor/tables/dft_drive.inc"

#define ROW_PAR(name, data, R, direction, place) PAR_##data(name, R, direction, PLACE_##place)
#define PLACE_in true
#define PLACE_out false
#define PAR(name, problems, R, direction, in_place) \
  if (out.begin(#name))                             \
    drive<R>(                                       \
        out, problems, in_place, direction,         \
        [](ZorDftDescriptor* d, const auto& o) {    \
          zor_dft_par_block block{d, o.x, o.y};     \
          return name(&block);                      \
        },                                          \
        zor_core_num_threads());
#define PAR_complex(...)
#define PAR_packed(name, ...) PAR(name, packed, __VA_ARGS__)
#define PAR_mixed(name, ...) PAR(name, mixed, __VA_ARGS__)
#include "zor/tables/core_dft.inc"

  for (const zor_int n : lengths) public_run(out, {.data = kind::packed, .n = {n}, .format = padded});
  for (const zor_int n : in_each_format) {
    for (const int32_t format : {tail, second})
      public_run(out, {.data = kind::packed, .n = {n}, .format = format});
    public_run(out, {.data = kind::mixed, .n = {n}});
  }
  public_lines(out, packed);
  public_lines(out, mixed);
  public_lines(out, divided);
}

}  // namespace zor_tools
