// SPDX-License-Identifier: MIT
// Layouts of transforms: the dense ones that hold unless others are set, and what is refused.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <numeric>

#include "core/dft/public.h"
#include "dft/thresholds.h"

namespace zor_core {
namespace {

using zor::dft::most_bytes, zor::dft::most_dimensions;

bool is_chosen(const ZorDftDescriptor* d, int32_t layout) { return (d->reserved_b & layout) != 0; }

// Elements along each dimension of one side, dimension 0 first.
struct extents {
  zor_int count[most_dimensions];
};

zor_int packed_length(const ZorDftDescriptor* d, zor_int n) {
  return d->packed_format != ZOR_DFT_FORMAT_PADDED ? n : n % 2 == 0 ? n + 2 : n + 1;
}

// Which side stands where: reals of a real transform, its spectrum, or complex values.
enum class content { reals, spectrum, values };

extents elements(const ZorDftDescriptor* d, content what) {
  extents e;
  for (zor_int k = 0; k < d->rank; ++k) e.count[k] = d[k].length;
  if (what != content::spectrum) return e;
  if (is_mixed(d)) {
    e.count[0] = d->length / 2 + 1;
  } else {
    e.count[0] = packed_length(d, d->length);
    if (d->rank == 2) e.count[1] = packed_length(d, d[1].length);
  }
  return e;
}

// Reals of an element.
zor_int parts(const ZorDftDescriptor* d, content what) {
  if (what == content::values) return d->complex_storage == ZOR_DFT_REAL_REAL ? 1 : 2;
  return what == content::spectrum && is_mixed(d) ? 2 : 1;
}

// The rows that both sides of a transform in place share: the longer of them, in reals of the side.
zor_int shared_row(const ZorDftDescriptor* d, content what) {
  if (!is_real(d)) return d->length;
  const zor_int spectrum = elements(d, content::spectrum).count[0];
  if (is_packed(d)) return spectrum;
  return what == content::spectrum ? spectrum : 2 * spectrum;
}

void set_dense(ZorDftDescriptor* d, const side_fields& side, content what, int32_t strides,
               int32_t distance) {
  const extents e = elements(d, is_packed(d) && is_in_place(d) ? content::spectrum : what);
  zor_int step = 1;
  for (zor_int k = 0; k < d->rank; ++k) {
    if (!is_chosen(d, strides)) d[k].*side.stride = step;
    step *= k == 0 && is_in_place(d) ? shared_row(d, what) : e.count[k];
  }
  if (is_chosen(d, distance)) return;
  // Behind strides that were set the next transform follows behind the last element.
  if (is_chosen(d, strides)) {
    __int128 behind = 1;
    for (zor_int k = 0; k < d->rank; ++k) {
      const __int128 stride = d[k].*side.stride;
      behind += (e.count[k] - 1) * (stride < 0 ? -stride : stride);
    }
    step = zor_int(std::min<__int128>(behind, INT64_MAX));
  }
  for (zor_int k = 0; k < d->rank; ++k) d[k].*side.distance = step;
}

// A step and the elements along it.
struct step_count {
  zor_int step, count;
};
struct step_list {
  step_count at[most_dimensions + 1];
  int size = 0;
  void add(zor_int step, zor_int count) {
    if (count > 1) at[size++] = {std::abs(step), count};
  }
};

step_list steps_of(const ZorDftDescriptor* d, const side_fields& side, content what) {
  extents e = elements(d, what);
  // A single padded row has its second one written only where there is room for it.
  if (is_packed(d) && d->rank == 2 && d[1].length == 1) e.count[1] = 1;
  step_list s;
  for (zor_int k = 0; k < d->rank; ++k) s.add(d[k].*side.stride, e.count[k]);
  s.add(d->*side.distance, d->number_of_transforms);
  return s;
}

// Positions coincide along two steps when some multiple of one within its count is a multiple of the other.
bool coincide(const step_count& a, const step_count& b) {
  const zor_int common = std::gcd(a.step, b.step);
  return b.step / common < a.count && a.step / common < b.count;
}

// True when no two elements of a side stand in one place: each step passes what the smaller ones cover, or,
// where it does not, no two steps meet.
bool all_apart(step_list s) {
  std::sort(s.at, s.at + s.size, [](const step_count& a, const step_count& b) { return a.step < b.step; });
  zor_int covered = 0;
  bool nested = true;
  for (int i = 0; i < s.size; ++i) {
    nested = nested && s.at[i].step > covered;
    covered += (s.at[i].count - 1) * s.at[i].step;
  }
  if (nested) return true;
  for (int i = 0; i < s.size; ++i)
    for (int j = 0; j < i; ++j)
      if (coincide(s.at[i], s.at[j])) return false;
  return true;
}

int32_t refused(const char* setting, const char* why) {
  return fft_failure(ZOR_FFT_BAD_VALUE, "%s: %s", setting, why);
}

// The steps lead nowhere that cannot be addressed, and none is missing.
int32_t check_steps(const ZorDftDescriptor* d, const side_fields& side) {
  const zor_int element = (d->precision == ZOR_DFT_DOUBLE ? 8 : 4) * (is_real(d) ? 1 : 2);
  const zor_int most = most_bytes / element;
  __int128 reach = 0;
  const auto too_far = [&](zor_int count, zor_int step) {
    if (step > most || step < -most) return true;
    reach += __int128(count - 1) * std::abs(step);
    return false;
  };
  const zor_int offset = d->*side.offset;
  if (offset > most || offset < -most) return refused(side.strides_name, "the offset is beyond memory");
  if (d->number_of_transforms > 1 && d->*side.distance == 0)
    return refused(side.distance_name, "0 between several transforms");
  for (const ZorDftDescriptor* r = d; r != d + d->rank; ++r) {
    if (r->length > 1 && r->*side.stride == 0)
      return refused(side.strides_name, "0 along a dimension of several elements");
    if (too_far(r->length, r->*side.stride)) return refused(side.strides_name, "a step is beyond memory");
  }
  if (too_far(d->number_of_transforms, d->*side.distance))
    return refused(side.distance_name, "beyond memory");
  if (reach + std::abs(offset) > most) return refused(side.strides_name, "the last element is beyond memory");
  return ZOR_FFT_OK;
}

// The directions whose output has a place for every element: bits of overlapping_output.
int32_t overlaps(const ZorDftDescriptor* d) {
  const side_fields& written = has_output_layout(d) ? output_side : input_side;
  const content spectrum = is_real(d) ? content::spectrum : content::values;
  // In place a packed line takes the room of its reals.
  const content reals = is_real(d) && has_output_layout(d) ? content::reals : spectrum;
  return (all_apart(steps_of(d, written, spectrum)) ? 0 : overlapping_forward) |
         (all_apart(steps_of(d, written, reals)) ? 0 : overlapping_backward);
}

// Calls visit(elements) for each box of elements that a side has.
template <class Visit>
void for_boxes(const ZorDftDescriptor* d, content what, const Visit& visit) {
  extents e = elements(d, what);
  if (what == content::spectrum && is_packed(d) && d->rank == 2) {
    // Rows beyond the lengths pad the columns of frequency 0 and n/2 alone.
    visit(extents{{d->length % 2 == 0 ? d->length + 1 : 1, e.count[1]}});
    e.count[1] = d[1].length;
  }
  visit(e);
}
// Calls visit(step, count) for each step of a box of several elements.
template <class Visit>
void for_steps(const ZorDftDescriptor* d, const side_fields& side, const extents& e, const Visit& visit) {
  for (zor_int k = 0; k < d->rank; ++k)
    if (e.count[k] > 1) visit(d[k].*side.stride, e.count[k]);
  if (d->number_of_transforms > 1) visit(d->*side.distance, d->number_of_transforms);
}

// What a transform reads and what it writes.
content read_content(const ZorDftDescriptor* d, bool backward) {
  return !is_real(d) ? content::values : backward ? content::spectrum : content::reals;
}
content written_content(const ZorDftDescriptor* d, bool backward) { return read_content(d, !backward); }

// One side of a transform at its place in memory.
struct placed_side {
  const ZorDftDescriptor* d;
  const side_fields& fields;
  content what;
  const void* data;

  zor_int element_bytes() const { return (d->precision == ZOR_DFT_DOUBLE ? 8 : 4) * parts(d, what); }
};

// First byte of a side and the first behind it.
struct reach {
  intptr_t first, behind;
};
reach reach_of(const placed_side& s) {
  zor_int low = 0, high = 0;
  for_boxes(s.d, s.what, [&](const extents& e) {
    zor_int first = 0, last = 0;
    for_steps(s.d, s.fields, e,
              [&](zor_int step, zor_int count) { (step < 0 ? first : last) += step * (count - 1); });
    low = std::min(low, first);
    high = std::max(high, last);
  });
  const zor_int unit = s.element_bytes();
  const intptr_t start = reinterpret_cast<intptr_t>(s.data) + s.d->*s.fields.offset * unit;
  return {start + low * unit, start + (high + 1) * unit};
}
// The number of bytes that divides all steps of a side.
zor_int common_step(const placed_side& s) {
  zor_int common = 0;
  for_boxes(s.d, s.what, [&](const extents& e) {
    for_steps(s.d, s.fields, e, [&](zor_int step, zor_int) { common = std::gcd(common, step); });
  });
  return common * s.element_bytes();
}

// The blocks for reserved_c.
zor_int blocks_apart(const ZorDftDescriptor* d) {
  if (is_in_place(d)) return 0;
  zor_int bytes = 0;
  for (const bool backward : {false, true}) {
    const reach in = reach_of({d, input_side, read_content(d, backward), nullptr}),
                out = reach_of({d, output_side, written_content(d, backward), nullptr});
    bytes = std::max({bytes, in.behind - out.first, out.behind - in.first});
  }
  const zor_int blocks = (bytes + safe_block - 1) / safe_block;
  return blocks <= INT32_MAX >> safe_distance_bit ? blocks : 0;
}

// Sides whose ranges cross share nothing when all steps are multiples of one distance and the elements of one
// side stand in the gaps of the other, as two columns of a matrix do.
bool apart(const placed_side& a, const placed_side& b) {
  const reach of_a = reach_of(a), of_b = reach_of(b);
  if (of_a.behind <= of_b.first || of_b.behind <= of_a.first) return true;
  const zor_int common = std::gcd(common_step(a), common_step(b));
  if (common == 0) return false;
  const zor_int shift = ((of_b.first - of_a.first) % common + common) % common;
  return shift >= a.element_bytes() && shift + b.element_bytes() <= common;
}

}  // namespace

void set_default_layout(ZorDftDescriptor* d) {
  set_dense(d, input_side, is_real(d) ? content::reals : content::values, chosen_input_strides,
            chosen_input_distance);
  set_dense(d, output_side, is_real(d) ? content::spectrum : content::values, chosen_output_strides,
            chosen_output_distance);
}

bool needs_exchanged_layout(const ZorDftDescriptor* d) {
  if (!is_real(d) || !has_output_layout(d) || is_chosen(d, chosen_input_strides | chosen_output_strides))
    return false;
  if (d->number_of_transforms > 1) {
    if (is_chosen(d, chosen_input_distance | chosen_output_distance)) return false;
    if (d->input_distance != d->output_distance) return true;
  }
  for (zor_int k = 0; k < d->rank; ++k)
    if (d[k].input_stride != d[k].output_stride) return true;
  return false;
}

void exchange_layouts(ZorDftDescriptor* d) {
  for (zor_int k = 0; k < d->rank; ++k) {
    std::swap(d[k].input_stride, d[k].output_stride);
    std::swap(d[k].input_distance, d[k].output_distance);
    std::swap(d[k].input_offset, d[k].output_offset);
  }
}

int32_t check_layout(ZorDftDescriptor* d) {
  int32_t status = check_steps(d, input_side);
  if (status == ZOR_FFT_OK && has_output_layout(d)) status = check_steps(d, output_side);
  if (status != ZOR_FFT_OK) return status;
  const int32_t overlapping = overlaps(d);
  d->reserved_c = overlapping | int32_t(blocks_apart(d)) << safe_distance_bit;
  if (overlapping != (overlapping_forward | overlapping_backward)) return ZOR_FFT_OK;
  return refused(has_output_layout(d) ? output_side.strides_name : input_side.strides_name,
                 "elements of the output overlap");
}

int32_t check_overlap(const ZorDftDescriptor* d, bool backward, void* const* data) {
  const int32_t arrays = d->nio_args / 2;
  for (int32_t i = 0; i < arrays; ++i)
    for (int32_t o = arrays; o < d->nio_args; ++o)
      if (!apart({d, input_side, read_content(d, backward), data[i]},
                 {d, output_side, written_content(d, backward), data[o]}))
        return fft_failure(ZOR_FFT_BAD_VALUE,
                           "out: overlaps the input; set ZOR_DFT_PLACEMENT for a transform in place");
  return ZOR_FFT_OK;
}

}  // namespace zor_core
