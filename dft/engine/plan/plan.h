// SPDX-License-Identifier: MIT
// Plans: the transform of one line of one length, built once, immutable, run by any number of threads at
// once, each with its own work. dft/line.h is the header for callers outside of dft/.
//
// Forward is sum x(j) exp(-2 pi i j k / n), backward has the positive sign; neither divides by n except by
// the plan's scale flag. Output may be the input. A run never allocates when work is given.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zor::dft {

// What builders and runs return.
enum engine_code : int32_t {
  engine_done = 0,
  engine_bad_size = -6,
  engine_null = -8,
  engine_no_memory = -9,
  engine_bad_order = -15,
  engine_bad_flag = -16,
  engine_bad_kind = -17,
};

// Which direction the plan itself scales.
enum scale_flag : int32_t {
  scale_forward_n = 1,   // forward by 1/n
  scale_backward_n = 2,  // backward by 1/n
  scale_both_root = 4,   // both by 1/sqrt(n)
  scale_none = 8,
};

// The eight flavours, in the order of the engine table.
enum flavour : int32_t {
  flavour_c,
  flavour_z,
  flavour_cs,
  flavour_zs,
  flavour_s,
  flavour_d,
  flavour_c_unordered,
  flavour_z_unordered,
  flavour_count
};

enum plan_kind : int32_t {
  kind_c = 13,
  kind_cs = 14,
  kind_s = 15,
  kind_z = 16,
  kind_zs = 17,
  kind_d = 18,
  kind_c_unordered = 0x434D414A,
  kind_z_unordered = 0x434D414B,
};

struct plan_tables;

struct plan {
  int32_t kind;  // plan_kind of the flavour, zero after release
  int32_t length;
  int32_t scale_forward;   // non-zero: forward multiplies by scale
  int32_t scale_backward;  // the same for backward
  double scale;
  int32_t hint;       // stored, not used
  int32_t work_size;  // bytes of work a run needs
  int32_t power_of_two;
  int32_t unordered;    // 1: the output of forward is in the plan's own order
  int32_t odd_real;     // real flavour: mixed radix of odd length
  int32_t mixed;        // 1: mixed radix
  int32_t conv_length;  // padded length of the chirp transform, 0 for none
  plan_tables* tables;  // what the runs of this length read
};

// Split data: the address of one such pair stands where interleaved data have the array.
template <class R>
struct split_pair {
  R* re;
  R* im;
};

enum direction : int32_t { forward, backward };

// Many lines of interleaved data, steps in complex values: value i of line j stands at i * step + j for
// columns, at i + j * step for contiguous lines. out may be in with the same step.
struct line_data {
  const void* in;
  void* out;
  ptrdiff_t in_step, out_step, count;  // of columns a multiple of the block's
  direction way;
  double factor;
};
struct column_block {
  int32_t columns;
  int64_t bytes;
};

// One flavour's operations. Interleaved and unordered flavours take arrays of complex values, split ones
// split_pair, real ones n reals and the spectrum in the format R0, R(n/2), R1, I1, ... (n reals; R(n/2) only
// for even n). Work is work_size bytes, or null to let the run allocate.
struct engine {
  int32_t kind;
  int32_t (*build)(plan** out, int32_t length, int32_t scale_flag, int32_t hint);
  int32_t (*work_size)(const plan* p, int32_t* size);
  int32_t (*forward)(const void* in, void* out, const plan* p, void* work);
  int32_t (*backward)(const void* in, void* out, const plan* p, void* work);
  int32_t (*release)(plan* p);  // frees the plan and all it holds
  // Neighbouring columns through an interleaved plan; both null for other flavours. column_block says how
  // many are taken together and how many bytes of tile, 64-byte aligned, that needs; no columns where the
  // plan has none. Every column gets the bits that forward or backward of an unscaled plan give to it as a
  // line, times `factor`.
  column_block (*block)(const plan* p);
  void (*columns)(const line_data& data, const plan* p, void* tile);
  // Contiguous lines one after the other, in the same bits; work as forward and backward need it, not null
  // when they need any.
  void (*lines)(const line_data& data, const plan* p, void* work);
};
extern const engine engines[flavour_count];

// Real runs by storage format; the same arguments and codes as the engine's runs.
//   padded  R0 0 R1 I1 ... R(n/2) 0   n + 2 reals for even n, n + 1 for odd
//   tail    R0 R1 I1 ... R(n/2)       n reals
//   second  R0 R(n/2) R1 I1 ...       n reals
struct real_runner {
  int32_t (*forward)(const void* in, void* out, const plan* p, void* work);
  int32_t (*backward)(const void* in, void* out, const plan* p, void* work);
};
enum real_format : int32_t { real_padded, real_tail, real_second };  // 54, 55, 56 less 54
extern const real_runner runners_s[3];
extern const real_runner runners_d[3];

// Kernels of one length without plan or work: natural order, in place or not, any alignment, multiplying by
// the scale. They exist for the lengths 1 to 16, 32, 64 and 128; null for others.
typedef void fixed_kernel(const void* in, void* out, double scale);
fixed_kernel* fixed_complex_s(int32_t length, direction d);
fixed_kernel* fixed_complex_d(int32_t length, direction d);

}  // namespace zor::dft
