// SPDX-License-Identifier: MIT
// Real transforms of four to seven dimensions: the last three as real transforms, the others as complex ones
// of their spectra. Each line is transformed whole, so the bits do not depend on threads.
#include <cstdint>

#include "core/dft/public.h"
#include "dft/thresholds.h"
#include "serv/scratch.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

using zor::dft::most_dimensions;

constexpr zor_int inner_rank = 3;  // what the kernel library takes of real data
enum direction { forward, backward };

// The parts of one direction.
struct parts {
  zor_fft inner, outer;
};
}  // namespace

struct real_nd {
  parts of[2];
  // Out of place, backward works on a dense copy of the spectrum: its steps, and its bytes.
  zor_int copy_stride[most_dimensions], copy_bytes;
};

void release_real_nd(real_nd* r) {
  if (r == nullptr) return;
  for (parts& p : r->of) {
    zor_dft_free(&p.inner);
    zor_dft_free(&p.outer);
  }
  zor_serv_zor_free(r);
}

namespace {

// A transform of dimensions first to first + rank - 1 of d with the same placement.
zor_fft create_part(const ZorDftDescriptor* d, int32_t domain, zor_int first, zor_int rank) {
  zor_int lengths[most_dimensions];
  for (zor_int k = 0; k < rank; ++k) lengths[rank - 1 - k] = d[first + k].length;
  zor_fft part = nullptr;
  zor_fft_create(&part, d->precision, domain, rank, lengths);
  return part;
}

// spectrum[k] is the step along dimension k of the spectrum.
zor_fft inner_part(const ZorDftDescriptor* d, direction dir, const zor_int* spectrum) {
  const zor_fft part = create_part(d, ZOR_DFT_REAL, 0, inner_rank);
  if (part == nullptr) return nullptr;
  for (zor_int k = 0; k < inner_rank; ++k) {
    part[k].placement = d->placement;
    part[k].conjugate_even_storage = ZOR_DFT_COMPLEX_COMPLEX;
    part[k].packed_format = ZOR_DFT_FORMAT_HALF_COMPLEX;
    part[k].input_stride = dir == backward ? spectrum[k] : d[k].input_stride;
    part[k].output_stride = dir == forward ? spectrum[k] : d[k].output_stride;
    part[k].forward_scale_d = d[k].forward_scale_d;
    part[k].forward_scale_s = d[k].forward_scale_s;
    part[k].backward_scale_d = d[k].backward_scale_d;
    part[k].backward_scale_s = d[k].backward_scale_s;
  }
  return part;
}

// The outer dimensions in place, for all frequencies of dimension 0 at once.
zor_fft outer_part(const ZorDftDescriptor* d, const zor_int* spectrum) {
  const zor_int rank = d->rank - inner_rank;
  const zor_fft part = create_part(d, ZOR_DFT_COMPLEX, inner_rank, rank);
  if (part == nullptr) return nullptr;
  for (zor_int k = 0; k < rank; ++k) {
    const ZorDftDescriptor& of = d[inner_rank + k];
    part[k].input_stride = spectrum[inner_rank + k];
    part[k].number_of_transforms = d->length / 2 + 1;
    part[k].input_distance = spectrum[0];
    part[k].forward_scale_d = of.forward_scale_d;
    part[k].forward_scale_s = of.forward_scale_s;
    part[k].backward_scale_d = of.backward_scale_d;
    part[k].backward_scale_s = of.backward_scale_s;
  }
  return part;
}

int32_t commit_parts(const ZorDftDescriptor* d, direction dir, const zor_int* spectrum, parts* p) {
  p->inner = inner_part(d, dir, spectrum);
  p->outer = outer_part(d, spectrum);
  if (p->inner == nullptr || p->outer == nullptr) return ZOR_FFT_NO_MEMORY;
  const int32_t status = zor_dft_commit(&p->inner);
  return status == ZOR_FFT_OK ? zor_dft_commit(&p->outer) : status;
}

// body(indices) for all indices below counts, the first fastest; stops at a status that is not ZOR_FFT_OK.
template <class Body>
int32_t for_each_index(const zor_int* counts, zor_int rank, const Body& body) {
  zor_int at[most_dimensions] = {};
  for (;;) {
    const int32_t status = body(static_cast<const zor_int*>(at));
    if (status != ZOR_FFT_OK) return status;
    zor_int k = 0;
    while (k < rank && ++at[k] == counts[k]) at[k++] = 0;
    if (k == rank) return ZOR_FFT_OK;
  }
}

struct problem {
  const ZorDftDescriptor* d;
  zor_int outer_count[most_dimensions], real_bytes;

  explicit problem(const ZorDftDescriptor* of) : d(of), real_bytes(of->precision == ZOR_DFT_DOUBLE ? 8 : 4) {
    for (zor_int k = inner_rank; k < d->rank; ++k) outer_count[k - inner_rank] = d[k].length;
  }
  // The element at indices along the outer dimensions.
  zor_int outer_element(const zor_int* at, const zor_int* stride) const {
    zor_int element = 0;
    for (zor_int k = inner_rank; k < d->rank; ++k) element += at[k - inner_rank] * stride[k];
    return element;
  }
  // The last three dimensions, for all indices of the others.
  int32_t run_inner(const parts& p, direction dir, char* in, const zor_int* in_stride, char* out,
                    const zor_int* out_stride) const {
    const zor_int in_bytes = real_bytes * (dir == backward ? 2 : 1),
                  out_bytes = real_bytes * (dir == forward ? 2 : 1);
    const auto compute = dir == forward ? zor_fft_forward : zor_fft_backward;
    return for_each_index(outer_count, d->rank - inner_rank, [&](const zor_int* at) {
      return compute(p.inner, in + outer_element(at, in_stride) * in_bytes,
                     out + outer_element(at, out_stride) * out_bytes);
    });
  }
  // The outer dimensions, for all indices along dimensions 1 and 2.
  int32_t run_outer(const parts& p, direction dir, char* spectrum, const zor_int* stride) const {
    const zor_int counts[] = {d[1].length, d[2].length};
    const auto compute = dir == forward ? zor_fft_forward : zor_fft_backward;
    return for_each_index(counts, 2, [&](const zor_int* at) {
      return compute(p.outer, spectrum + (at[0] * stride[1] + at[1] * stride[2]) * 2 * real_bytes);
    });
  }
  void copy_spectrum(const char* from, const zor_int* from_stride, char* to, const zor_int* to_stride) const {
    zor_int counts[most_dimensions] = {d->length / 2 + 1};
    for (zor_int k = 1; k < d->rank; ++k) counts[k] = d[k].length;
    for_each_index(counts, d->rank, [&](const zor_int* at) {
      zor_int source = 0, target = 0;
      for (zor_int k = 0; k < d->rank; ++k) {
        source += at[k] * from_stride[k];
        target += at[k] * to_stride[k];
      }
      __builtin_memcpy(to + target * 2 * real_bytes, from + source * 2 * real_bytes, size_t(2 * real_bytes));
      return int32_t(ZOR_FFT_OK);
    });
  }
};

struct side_steps {
  zor_int at[most_dimensions];
  side_steps(const ZorDftDescriptor* d, const side_fields& side) {
    for (zor_int k = 0; k < d->rank; ++k) at[k] = d[k].*side.stride;
  }
};

template <direction Dir>
int32_t compute(ZorDftDescriptor* d, void* p0, void* p1, void*, void*) {
  const real_nd& r = *static_cast<const attachment*>(d->private_data)->nd;
  const parts& p = r.of[Dir];
  const problem of(d);
  const bool in_place = is_in_place(d);
  const side_steps in_steps(d, input_side), out_steps(d, output_side);
  const zor_int in_bytes = of.real_bytes * (Dir == backward ? 2 : 1);
  const zor_int out_bytes = of.real_bytes * (Dir == forward ? 2 : 1);
  const zor::scratch<char> copy(Dir == backward && !in_place ? r.copy_bytes : 0, 64);
  if (Dir == backward && !in_place && copy.data == nullptr) return ZOR_FFT_NO_MEMORY;
  for (zor_int t = 0; t < d->number_of_transforms; ++t) {
    char* const in = static_cast<char*>(p0) + (d->input_offset + t * d->input_distance) * in_bytes;
    char* const out =
        static_cast<char*>(in_place ? p0 : p1) + (d->output_offset + t * d->output_distance) * out_bytes;
    int32_t status;
    if (Dir == forward) {
      status = of.run_inner(p, Dir, in, in_steps.at, out, out_steps.at);
      if (status == ZOR_FFT_OK) status = of.run_outer(p, Dir, out, out_steps.at);
    } else {
      char* const spectrum = in_place ? in : copy.data;
      const zor_int* const stride = in_place ? in_steps.at : r.copy_stride;
      if (!in_place) of.copy_spectrum(in, in_steps.at, spectrum, stride);
      status = of.run_outer(p, Dir, spectrum, stride);
      if (status == ZOR_FFT_OK) status = of.run_inner(p, Dir, spectrum, stride, out, out_steps.at);
    }
    if (status != ZOR_FFT_OK) return status;
  }
  return ZOR_FFT_OK;
}

int32_t commit_directions(ZorDftDescriptor* d, real_nd* r) {
  const bool in_place = is_in_place(d);
  zor_int step = 1;
  for (zor_int k = 0; k < d->rank; ++k) {
    r->copy_stride[k] = step;
    step *= k == 0 ? d->length / 2 + 1 : d[k].length;
  }
  r->copy_bytes = step * 2 * (d->precision == ZOR_DFT_DOUBLE ? 8 : 4);
  int32_t status = ZOR_FFT_OK;
  if ((d->reserved_c & overlapping_forward) == 0)
    status = commit_parts(d, forward, side_steps(d, output_side).at, &r->of[forward]);
  if (status == ZOR_FFT_OK && (d->reserved_c & overlapping_backward) == 0)
    status =
        commit_parts(d, backward, in_place ? side_steps(d, input_side).at : r->copy_stride, &r->of[backward]);
  return status;
}

// In place boxes of three dimensions run one by one, so every row of reals lies over its own half spectrum:
// steps of one side are twice those of the other.
bool rows_coincide(const ZorDftDescriptor* d, const side_fields& reals, const side_fields& spectrum) {
  for (zor_int k = 1; k < d->rank; ++k)
    if (d[k].length > 1 && d[k].*reals.stride != 2 * (d[k].*spectrum.stride)) return false;
  return d->number_of_transforms == 1 || d->*reals.distance == 2 * (d->*spectrum.distance);
}

}  // namespace

int32_t commit_real_nd(ZorDftDescriptor* d) {
  if (is_packed(d))
    return fft_failure(ZOR_FFT_NOT_IMPLEMENTED,
                       "ZOR_DFT_CONJUGATE_EVEN_STORAGE: packed spectra have one or two dimensions");
  if (is_in_place(d)) {
    if (!rows_coincide(d, input_side, output_side)) d->reserved_c |= overlapping_forward;
    if (!rows_coincide(d, output_side, input_side)) d->reserved_c |= overlapping_backward;
    if (d->reserved_c == (overlapping_forward | overlapping_backward))
      return fft_failure(
          ZOR_FFT_BAD_VALUE,
          "ZOR_DFT_INPUT_STRIDES, ZOR_DFT_OUTPUT_STRIDES or distances: in place, rows of reals of four "
          "or more dimensions lie over their own spectra");
  }
  zor_dft_set_value(d, -1);
  attachment* const own = attach(d);
  if (own == nullptr) return with_text(ZOR_FFT_NO_MEMORY);
  own->nd = static_cast<real_nd*>(zor_serv_zor_calloc(1, sizeof(real_nd), 16));
  const int32_t status = own->nd == nullptr ? int32_t(ZOR_FFT_NO_MEMORY) : commit_directions(d, own->nd);
  if (status != ZOR_FFT_OK) return with_text(status);
  d->compute_forward = compute<forward>;
  d->compute_backward = compute<backward>;
  d->nio_args = zor_dft_determine_nioargs(d);
  d->commit_status = ZOR_DFT_COMMITTED;
  return ZOR_FFT_OK;
}

}  // namespace zor_core
