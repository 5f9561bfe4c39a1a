// SPDX-License-Identifier: MIT
// Batches of lines: moving lines between strided data and contiguous memory, and running a kernel over many.
#pragma once

#include "dft/run/kernels.h"
#include "dft/thresholds.h"
#include "serv/scalar.h"
#include "serv/scratch.h"

namespace zor::dft {

// Scratch memory of one call on work_boundary, also when the pool is switched off and aligns nothing. data is
// null for no bytes and when memory is short.
struct line_scratch {
  explicit line_scratch(zor_int bytes)
      : block(bytes > 0 ? bytes + work_boundary - 1 : 0, 16),
        data(align_up<char>(block.data, work_boundary)) {}
  scratch<char> block;
  char* data;
};

template <class E>
inline void gather_line(const E* x, zor_int stride, zor_int n, E* line) {
  if (stride == 1)
    __builtin_memcpy(line, x, size_t(n) * sizeof(E));
  else
    gather(n, x, stride, line);
}

template <class E>
inline void scatter_line(const E* line, zor_int n, E* x, zor_int stride) {
  if (stride == 1)
    __builtin_memcpy(x, line, size_t(n) * sizeof(E));
  else
    scatter(n, line, x, stride);
}

// A tile holds neighbouring columns of x as lines, `pitch` bytes apart. Each column has n elements, `stride`
// apart.
template <int Columns, class E>
inline void gather_tile(const E* x, zor_int stride, zor_int n, char* tile, zor_int pitch) {
  for (zor_int j = 0; j < n; ++j) {
    const E* row = x + j * stride;
    for (int c = 0; c < Columns; ++c) reinterpret_cast<E*>(tile + c * pitch)[j] = row[c];
  }
}

template <int Columns, class E>
inline void scatter_tile(const char* tile, zor_int pitch, zor_int n, E* x, zor_int stride) {
  for (zor_int j = 0; j < n; ++j) {
    E* row = x + j * stride;
    for (int c = 0; c < Columns; ++c) row[c] = reinterpret_cast<const E*>(tile + c * pitch)[j];
  }
}

// A kernel with the record it runs on and one slice of work.
struct line_kernel {
  zor_dft_kernel run;
  descriptor* record;
  void* work;
};

// Strided lines of E: `stride` along a line, `distance` from one line to the next, `count` elements a line.
template <class E>
struct line_set {
  E* data;
  zor_int stride, distance, count;
};

// Most columns of a tile.
enum tile_mode : int { tile_pairs = 2, tile_four = 4, tile_eight = 8 };

// The tile that a batch of interleaved transforms uses.
inline tile_mode batch_tile(zor_int transforms, zor_int length) {
  return transforms > eight_lines_transforms || length > eight_lines_length ? tile_eight : tile_four;
}

// Bytes from one line of a tile to the next.
template <class In, class Out>
inline zor_int line_pitch(const line_set<const In>& in, const line_set<Out>& out) {
  const zor_int in_bytes = in.count * zor_int(sizeof(In));
  const zor_int out_bytes = out.count * zor_int(sizeof(Out));
  const zor_int longer = in_bytes > out_bytes ? in_bytes : out_bytes;
  const zor_int bytes = (longer + cache_line - 1) / cache_line * cache_line;
  return bytes % tile_page == 0 ? bytes + cache_line : bytes;
}

// Returns the status of the last line.
template <int Columns, class In, class Out>
inline int32_t run_tile(const line_kernel& kernel, const line_set<const In>& in, const line_set<Out>& out,
                        zor_int first, char* tile, zor_int pitch) {
  gather_tile<Columns>(in.data + first, in.stride, in.count, tile, pitch);
  int32_t status = ZOR_DFT_OK;
  for (int c = 0; c < Columns; ++c) {
    char* line = tile + c * pitch;
    status = kernel.run(line, line, kernel.record, kernel.work);
  }
  scatter_tile<Columns>(tile, pitch, out.count, out.data + first, out.stride);
  return status;
}

// Interleaved lines: neighbours stand one element apart on both sides. As many as fill blocks of columns go
// to the engine together, the others line by line through tiles.
template <class In, class Out>
int32_t run_interleaved(const line_kernel& kernel, line_set<const In> in, line_set<Out> out, zor_int lines,
                        tile_mode mode) {
  kernel_lines k{};
  if constexpr (std::is_same_v<In, Out>) k = lines_of_kernel(kernel.run, kernel.record);
  const column_block block = k.line.p != nullptr ? interleaved_block(k.line) : column_block{0, 0};
  const zor_int whole = block.columns > 0 ? lines / block.columns * block.columns : 0;
  const zor_int pitch = line_pitch(in, out), left_over = lines - whole;
  const zor_int line_bytes = pitch * (left_over < mode ? left_over : zor_int(mode));
  const zor_int tile_bytes = whole > 0 ? block.bytes : 0;
  const line_scratch tile(line_bytes > tile_bytes ? line_bytes : tile_bytes);
  if (tile.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  if (whole > 0)
    run_interleaved_lines(k.line, {in.data, out.data, in.stride, out.stride, whole, k.way, k.factor},
                          tile.data);
  int32_t status = ZOR_DFT_OK;
  for (zor_int first = whole; first < lines && status == ZOR_DFT_OK;) {
    const zor_int left = lines - first;
    if (mode >= tile_eight && left >= 8) {
      status = run_tile<8>(kernel, in, out, first, tile.data, pitch);
      first += 8;
    } else if (mode >= tile_four && left >= 4) {
      status = run_tile<4>(kernel, in, out, first, tile.data, pitch);
      first += 4;
    } else if (left >= 2) {
      status = run_tile<2>(kernel, in, out, first, tile.data, pitch);
      first += 2;
    } else {
      status = run_tile<1>(kernel, in, out, first, tile.data, pitch);
      first += 1;
    }
  }
  return status;
}

// Runs `lines` lines through the kernel, one after the other, and stops at the first failure. In and out may
// be the same data with the same strides. The kernel gets contiguous lines: a strided input is gathered into
// the output, where that is contiguous and long enough, and otherwise both sides go through a line of scratch
// memory.
template <class In, class Out>
int32_t run_lines(const line_kernel& kernel, line_set<const In> in, line_set<Out> out, zor_int lines,
                  tile_mode mode) {
  const bool long_enough = in.count > 1 || out.count > 1;
  if (in.distance == 1 && out.distance == 1 && lines > 1 && long_enough)
    return run_interleaved(kernel, in, out, lines, mode);
  if constexpr (std::is_same_v<In, Out>) {
    if (in.stride == 1 && out.stride == 1 && lines > 1) {
      const kernel_lines k = lines_of_kernel(kernel.run, kernel.record);
      const line_data all{in.data, out.data, in.distance, out.distance, lines, k.way, k.factor};
      if (k.line.p != nullptr && run_contiguous(k, all, kernel.work)) return ZOR_DFT_OK;
    }
  }
  const bool fits = in.count * sizeof(In) <= out.count * sizeof(Out);
  const bool in_line = out.stride != 1 || (in.stride != 1 && !fits);
  const line_scratch line(in_line && lines > 0 ? line_pitch(in, out) : 0);
  if (in_line && lines > 0 && line.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  for (zor_int i = 0; i < lines; ++i) {
    const In* from = in.data + i * in.distance;
    Out* to = out.data + i * out.distance;
    void* contiguous = in_line ? static_cast<void*>(line.data) : to;
    if (in_line || in.stride != 1) {
      gather_line(from, in.stride, in.count, static_cast<In*>(contiguous));
      from = static_cast<const In*>(contiguous);
    }
    const int32_t status = kernel.run(from, contiguous, kernel.record, kernel.work);
    if (in_line) scatter_line(static_cast<const Out*>(contiguous), out.count, to, out.stride);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

}  // namespace zor::dft
