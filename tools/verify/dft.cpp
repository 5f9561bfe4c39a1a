// SPDX-License-Identifier: MIT
#include "tools/verify/dft.h"

#include <fmt/format.h>

#include <stdexcept>

namespace zor_tools {
namespace {

constexpr const char* kind_names[] = {"complex", "split", "scrambled", "packed", "mixed"};

// Reals of a packed spectrum.
zor_int packed_length(const problem& p, zor_int n) {
  if (p.format != ZOR_DFT_FORMAT_PADDED) return n;
  return n % 2 == 0 ? n + 2 : n + 1;
}

int32_t run(zor_fft d, bool direction, void* const* p) {
  const auto compute = direction == backward ? zor_fft_backward : zor_fft_forward;
  return compute(d, p[0], p[1], p[2], p[3]);
}

template <class R>
void run_all_ways(recorder& out, problem p) {
  for (const bool in_place : {false, true})
    for (const bool direction : {forward, backward}) {
      // Long ones, slow under emulation, one way in each placement.
      if (p.n[0] > 2048 && in_place != direction) continue;
      p.in_place = in_place;
      const owned_descriptor d = make_descriptor(p, precision_of<R>::value, direction);
      expect_done(zor_fft_commit(d.get()));
      operands<R> o(p, direction, uint64_t(p.n[0]) + direction);
      expect_done(run(d.get(), direction, o.arrays));
      o.record(out, p.transforms);
    }
}

// The name of a problem's digest, which both placements share.
std::string text_of(const problem& p) {
  std::string text = fmt::format("{}_{}", kind_names[int(p.data)], p.n[0]);
  for (size_t i = 1; i < p.rank(); ++i) text += fmt::format("x{}", p.n[i]);
  if (p.data == kind::packed) text += fmt::format("_format{}", p.format);
  if (p.transforms > 1) text += fmt::format("_{}{}", p.interleaved ? "interleaved" : "times", p.transforms);
  if (p.stride > 1) text += fmt::format("_stride{}", p.stride);
  return text;
}

}  // namespace

side side_of(const problem& p, bool spectrum) {
  side s{};
  s.unit = p.data == kind::packed || p.data == kind::split || (p.data == kind::mixed && !spectrum) ? 1 : 2;
  s.counts = s.strides = {1, 1, 1, 1};
  zor_int step = p.interleaved ? p.transforms : p.stride;
  for (size_t i = 0; i < p.rank(); ++i) {
    const zor_int n = p.n[i], half = n / 2 + 1;
    zor_int room = n;
    s.counts[i] = n;
    if (p.data == kind::packed) {
      room = n + 2;
      s.counts[i] = spectrum ? packed_length(p, n) : n;
    } else if (p.data == kind::mixed && i == 0) {
      room = spectrum ? half : 2 * half;
      s.counts[i] = spectrum ? half : n;
    }
    s.strides[i] = step;
    step *= room;
  }
  s.offset = p.offset;
  s.distance = p.interleaved ? 1 : step;
  s.extent = p.offset + (p.interleaved ? step : step * p.transforms);
  return s;
}

void expect_done(int32_t status) {
  if (status != ZOR_DFT_OK) throw std::runtime_error(zor_fft_error_text(status));
}

owned_descriptor make_descriptor(const problem& p, int32_t precision, bool direction) {
  const zor_int rank = zor_int(p.rank());
  const std::vector<zor_int> lengths(p.n.rend() - rank, p.n.rend());
  zor_fft fft = nullptr;
  expect_done(
      zor_fft_create(&fft, precision, p.real() ? ZOR_DFT_REAL : ZOR_DFT_COMPLEX, rank, lengths.data()));
  owned_descriptor d(fft);
  if (p.data == kind::split) expect_done(zor_fft_set_int(fft, ZOR_DFT_COMPLEX_STORAGE, ZOR_DFT_REAL_REAL));
  if (p.data == kind::scrambled)
    expect_done(zor_fft_set_int(fft, ZOR_DFT_ORDERING, ZOR_DFT_BACKWARD_SCRAMBLED));
  if (p.data == kind::packed) expect_done(zor_fft_set_int(fft, ZOR_DFT_PACKED_FORMAT, p.format));
  if (p.data == kind::mixed)
    expect_done(zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX));
  expect_done(zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, p.in_place ? ZOR_DFT_INPLACE : ZOR_DFT_NOT_INPLACE));
  expect_done(zor_fft_set_int(fft, ZOR_DFT_NUMBER_OF_TRANSFORMS, p.transforms));
  expect_done(zor_fft_set_real(fft, ZOR_DFT_FORWARD_SCALE, p.scale));
  expect_done(zor_fft_set_real(fft, ZOR_DFT_BACKWARD_SCALE, p.scale));
  const struct {
    bool spectrum;
    int32_t strides, distance;
  } sides[] = {{direction == backward, ZOR_DFT_INPUT_STRIDES, ZOR_DFT_INPUT_DISTANCE},
               {direction == forward, ZOR_DFT_OUTPUT_STRIDES, ZOR_DFT_OUTPUT_DISTANCE}};
  for (const auto& which : sides) {
    const side s = side_of(p, which.spectrum);
    std::vector<zor_int> strides{s.offset};
    strides.insert(strides.end(), s.strides.rend() - rank, s.strides.rend());
    expect_done(zor_fft_set_strides(fft, which.strides, strides.data()));
    expect_done(zor_fft_set_int(fft, which.distance, s.distance));
  }
  return d;
}

owned_descriptor committed(const problem& p, int32_t precision, bool direction, int32_t threads) {
  owned_descriptor d = make_descriptor(p, precision, direction);
  d->thread_limit = threads;
  ZorDftDescriptor* handle = d.get();
  expect_done(zor_dft_commit_descriptor_core(&handle, 1));
  return d;
}

void public_run(recorder& out, const problem& p) {
  for (const bool single : {false, true}) {
    if (!out.begin(((single ? "single_" : "double_") + text_of(p)).c_str())) continue;
    if (single)
      run_all_ways<float>(out, p);
    else
      run_all_ways<double>(out, p);
  }
}

}  // namespace zor_tools
