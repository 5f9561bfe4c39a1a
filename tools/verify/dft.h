// SPDX-License-Identifier: MIT
// Transforms as the battery runs them: a problem, its descriptor and its operands.
#pragma once

#include <array>
#include <memory>

#include "tools/verify/battery.h"
#include "zor/dft.h"

namespace zor_tools {

// What is transformed: complex values interleaved, in two arrays, or interleaved with the spectrum in the
// plan's own order; reals with a packed or with a complex spectrum.
enum class kind { complex, split, scrambled, packed, mixed };

struct problem {
  kind data;
  std::array<zor_int, 4> n;  // lengths, dimension 0 first, then zeros
  bool in_place = false;
  int32_t format = ZOR_DFT_FORMAT_PADDED;  // of a packed spectrum
  zor_int transforms = 1;
  bool interleaved = false;        // neighbours of the batch stand one element apart
  zor_int stride = 1, offset = 0;  // of either side, along dimension 0
  double scale = 1;                // in both directions

  bool real() const { return data == kind::packed || data == kind::mixed; }
  size_t rank() const { return size_t(std::find(n.begin(), n.end(), 0) - n.begin()); }
};

// Where one side of a problem stands, in elements: complex ones for complex data, else reals.
struct side {
  zor_int unit;                   // reals of an element
  std::array<zor_int, 4> counts;  // elements along each dimension
  std::array<zor_int, 4> strides;
  zor_int offset, distance, extent;  // extent: elements from the first of the array to behind the last
};
side side_of(const problem& p, bool spectrum);

struct freed {
  void operator()(ZorDftDescriptor* d) const { zor_dft_free(&d); }
};
using owned_descriptor = std::unique_ptr<ZorDftDescriptor, freed>;

// Throws when the status is not 0.
void expect_done(int32_t status);
owned_descriptor make_descriptor(const problem& p, int32_t precision, bool backward);
// Committed by the kernel library, for at most `threads` threads.
owned_descriptor committed(const problem& p, int32_t precision, bool backward, int32_t threads = 1);

// The descriptor's fields of one precision, by direction.
template <class R>
struct precision_of;
template <>
struct precision_of<double> {
  using D = ZorDftDescriptor;
  static constexpr int32_t value = ZOR_DFT_DOUBLE;
  static constexpr zor_dft_kernel D::*complex_kernel[2] = {&D::kernel_z_fwd, &D::kernel_z_bwd};
  static constexpr zor_dft_kernel D::*real_kernel[2] = {&D::kernel_d_fwd, &D::kernel_d_bwd};
};
template <>
struct precision_of<float> {
  using D = ZorDftDescriptor;
  static constexpr int32_t value = ZOR_DFT_SINGLE;
  static constexpr zor_dft_kernel D::*complex_kernel[2] = {&D::kernel_c_fwd, &D::kernel_c_bwd};
  static constexpr zor_dft_kernel D::*real_kernel[2] = {&D::kernel_s_fwd, &D::kernel_s_bwd};
};

// The names of directions in the tables.
inline constexpr bool forward = false, backward = true;

// Random arrays of one run. Of the result only what the transform defines is recorded.
template <class R>
class operands {
 public:
  side in, out;
  void* arrays[4] = {};  // as many as the compute functions take
  void *x, *y;           // input and output as drivers take them, offsets applied

  operands(const problem& p, bool direction, uint64_t seed)
      : in(side_of(p, direction)),
        out(side_of(p, !direction)),
        halves_(p.data == kind::split ? 2 : 1),
        source_(seed),
        given_(size_t(halves_ * (p.in_place ? std::max(reals(in), reals(out)) : reals(in))), seed % 4,
               source_),
        result_(size_t(p.in_place ? 0 : halves_ * reals(out)), seed / 2 % 4, source_) {
    R* const first[2] = {given_.data(), p.in_place ? given_.data() : result_.data()};
    const side* const sides[2] = {&in, &out};
    int taken = 0;
    for (int s = 0; s < (p.in_place ? 1 : 2); ++s)
      for (int h = 0; h < halves_; ++h) arrays[taken++] = first[s] + h * reals(*sides[s]);
    for (int s = 0; s < 2; ++s) {
      R* const start = first[s] + sides[s]->offset * sides[s]->unit;
      pairs_[s] = {start, start + reals(*sides[s])};
      (s == 0 ? x : y) = halves_ == 2 ? static_cast<void*>(&pairs_[s]) : start;
    }
  }

  void record(recorder& to, zor_int transforms) const {
    std::vector<R> line;
    for (int h = 0; h < halves_; ++h) {
      const R* const first = static_cast<const R*>(h == 0 ? pairs_[1].re : pairs_[1].im);
      for (zor_int t = 0; t < transforms; ++t) add_lines(to, first + t * out.distance * out.unit, 3, &line);
    }
  }

 private:
  static zor_int reals(const side& s) { return s.extent * s.unit; }
  void add_lines(recorder& to, const R* first, int dimension, std::vector<R>* line) const {
    if (dimension > 0) {
      for (zor_int i = 0; i < out.counts[size_t(dimension)]; ++i)
        add_lines(to, first + i * out.strides[size_t(dimension)] * out.unit, dimension - 1, line);
      return;
    }
    line->clear();
    for (zor_int i = 0; i < out.counts[0]; ++i)
      line->insert(line->end(), first + i * out.strides[0] * out.unit,
                   first + i * out.strides[0] * out.unit + out.unit);
    to.add(line->data(), line->size());
  }

  int halves_;
  numbers source_;
  block<R> given_, result_;
  zor_dft_split pairs_[2];
};

// call(descriptor, operands) for each problem in one placement and direction; it returns a status.
template <class R, class Problems, class Call>
void drive(recorder& out, const Problems& problems, bool in_place, bool direction, const Call& call,
           int32_t threads = 1) {
  uint64_t seed = 0;
  for (problem p : problems) {
    p.in_place = in_place;
    const owned_descriptor d = committed(p, precision_of<R>::value, direction, threads);
    operands<R> o(p, direction, ++seed);
    out.add(int64_t(call(d.get(), o)));
    o.record(out, p.transforms);
  }
}

// Through the public calls, in both placements and directions: a digest in each precision.
void public_run(recorder& out, const problem& p);
template <class Problems>
void public_lines(recorder& out, const Problems& problems) {
  for (const problem& p : problems)
    if (p.rank() == 1) public_run(out, p);
}

}  // namespace zor_tools
