// SPDX-License-Identifier: MIT
// Planes and boxes: complex ones, real ones with complex spectra, and planes with packed spectra.
#include "dft/nd/nd.h"

#include "dft/run/kernels.h"

namespace zor::dft {
namespace {

// The lines along axes first_axis to end_axis - 1, in place.
template <class R>
int32_t complex_along(complex_of<R>* data, const axes& a, int first_axis, int end_axis, void* work) {
  for (int k = first_axis; k < end_axis; ++k) {
    if (a.of[k].length < 2) continue;
    const int32_t status =
        lines_along<complex_of<R>, complex_of<R>>(data, a, data, a, k, 0, lines_of(a, k), work, tile_eight);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

// Complex columns of a packed plane: value j of column c is the pair of reals at x + j * s1 + 2 * c * s0 and
// s0 behind.
template <class R>
void gather_pairs(const R* x, zor_int s0, zor_int s1, zor_int rows, int columns, char* tile, zor_int pitch) {
  for (zor_int j = 0; j < rows; ++j)
    for (int c = 0; c < columns; ++c) {
      const R* pair = x + j * s1 + 2 * c * s0;
      reinterpret_cast<complex_of<R>*>(tile + c * pitch)[j] = {pair[0], pair[s0]};
    }
}

template <class R>
void scatter_pairs(const char* tile, zor_int pitch, int columns, zor_int rows, R* x, zor_int s0, zor_int s1) {
  for (zor_int j = 0; j < rows; ++j)
    for (int c = 0; c < columns; ++c) {
      R* pair = x + j * s1 + 2 * c * s0;
      const complex_of<R> value = reinterpret_cast<const complex_of<R>*>(tile + c * pitch)[j];
      pair[0] = value.re;
      pair[s0] = value.im;
    }
}

template <class R>
int32_t pair_columns(plane<const R> in, plane<R> out, const line_kernel& kernel, zor_int rows,
                     zor_int count) {
  const zor_int pitch = rows * zor_int(sizeof(complex_of<R>)) + 64;
  const line_scratch tile(pitch * 8);
  if (tile.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  for (zor_int c = 0; c < count; c += 8) {
    const int columns = int(count - c < 8 ? count - c : 8);
    gather_pairs(in.data + 2 * c * in.s0, in.s0, in.s1, rows, columns, tile.data, pitch);
    int32_t status = ZOR_DFT_OK;
    for (int i = 0; i < columns; ++i) {
      char* line = tile.data + i * pitch;
      status = kernel.run(line, line, kernel.record, kernel.work);
    }
    scatter_pairs(tile.data, pitch, columns, rows, out.data + 2 * c * out.s0, out.s0, out.s1);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

// Where a packed row keeps the frequency n/2 of an even length, and where its complex values begin.
struct packed_positions {
  zor_int last_real, first_pair;
};
packed_positions positions_of(int32_t format, zor_int n) {
  if (format == ZOR_DFT_FORMAT_PADDED) return {n, 2};
  if (format == ZOR_DFT_FORMAT_TAIL || n % 2 != 0) return {n - 1, 1};
  return {1, 2};
}

// The padded spectrum of a line of n reals becomes one in the second format where it stands. Returns where
// that begins.
template <class R>
const R* padded_to_second(R* line, zor_int n) {
  line[1] = n % 2 == 0 ? line[n] : line[0];
  return n % 2 == 0 ? line : line + 1;
}

// One real column of a packed spectrum.
template <class R, direction Dir>
int32_t real_column(const R* in, zor_int is, R* out, zor_int os, descriptor* record, void* work) {
  const zor_int n = record->length, spectrum = packed_length(record, n);
  if (n < 2) {
    *out = *in;
    return ZOR_DFT_OK;
  }
  const zor_int pitch = (spectrum + 8) / 8 * 8;
  const line_scratch lines(2 * pitch * zor_int(sizeof(R)));
  if (lines.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  R* x = reinterpret_cast<R*>(lines.data);
  R* y = x + pitch;
  const R* from = x;
  gather_line(in, is, Dir == forward ? n : spectrum, x);
  if (Dir == backward && backward_reads_second(record)) from = padded_to_second(x, n);
  const int32_t status = (record->*fields<R>::real_kernel[Dir])(from, y, record, work);
  scatter_line(y, Dir == forward ? spectrum : n, out, os);
  return status;
}

}  // namespace

template <class R>
int32_t complex_planes(const complex_of<R>* in, const axes& ia, complex_of<R>* out, const axes& oa,
                       zor_int first, zor_int last, void* work) {
  using C = complex_of<R>;
  axes plane_in = ia, plane_out = oa;
  plane_in.rank = plane_out.rank = 2;
  const line_runs plane{0, 2, ia.of[0].length * ia.of[1].length};
  for (zor_int p = first; p < last; ++p) {
    const C* x = in + run_offset(ia, 0, plane, p);
    C* y = out + run_offset(oa, 0, plane, p);
    int32_t status = lines_along<C, C>(x, plane_in, y, plane_out, 0, 0, ia.of[1].length, work, tile_four);
    if (status == ZOR_DFT_OK) status = complex_along<R>(y, plane_out, 1, 2, work);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

template <class R>
int32_t complex_nd(const complex_of<R>* in, const axes& ia, complex_of<R>* out, const axes& oa, void* work) {
  // Plane by plane while a plane is in cache.
  const int32_t status = complex_planes<R>(in, ia, out, oa, 0, planes_of(ia), work);
  return status != ZOR_DFT_OK ? status : complex_along<R>(out, oa, 2, oa.rank, work);
}

namespace {

template <class A, class B>
bool same_data(const A* a, const B* b) {
  return static_cast<const void*>(a) == static_cast<const void*>(b);
}

// True when rows of reals and rows of complex values begin at the same places, so that a row can run in
// place.
bool rows_coincide(const axes& real, const axes& half) {
  if (real.of[0].stride != 1 || half.of[0].stride != 1) return false;
  for (int i = 1; i < real.rank; ++i)
    if (real.of[i].stride != 2 * half.of[i].stride) return false;
  return true;
}

}  // namespace

template <class R>
int32_t mixed_planes_forward(const R* in, const axes& ia, complex_of<R>* out, const axes& oa, zor_int first,
                             zor_int last, void* work) {
  axes plane_in = ia, plane_out = oa;
  plane_in.rank = plane_out.rank = 2;
  const line_runs plane{0, 2, 1};
  for (zor_int p = first; p < last; ++p) {
    complex_of<R>* y = out + run_offset(oa, 0, plane, p);
    int32_t status = lines_along<R, complex_of<R>>(in + run_offset(ia, 0, plane, p), plane_in, y, plane_out,
                                                   0, 0, ia.of[1].length, work, tile_four);
    if (status == ZOR_DFT_OK) status = complex_along<R>(y, plane_out, 1, 2, work);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

template <class R>
int32_t real_to_complex(const R* in, const axes& ia, complex_of<R>* out, const axes& oa, void* work) {
  using C = complex_of<R>;
  const bool buffered = same_data(in, out) && !rows_coincide(ia, oa);
  const axes inner = buffered ? packed_axes(oa) : oa;
  const line_scratch box(buffered ? total_of(oa) * zor_int(sizeof(C)) : 0);
  if (buffered && box.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  C* target = buffered ? reinterpret_cast<C*>(box.data) : out;
  int32_t status = mixed_planes_forward<R>(in, ia, target, inner, 0, planes_of(ia), work);
  if (status == ZOR_DFT_OK) status = complex_along<R>(target, inner, 2, inner.rank, work);
  if (status == ZOR_DFT_OK && buffered) copy_box(target, inner, out, oa);
  return status;
}

template <class R>
int32_t real_rows(complex_of<R>* rows, zor_int distance, R* out, zor_int os0, zor_int os1, zor_int count,
                  const line_kernel& kernel) {
  const zor_int n = kernel.record->length;
  const bool second = backward_reads_second(kernel.record);
  const bool through_line = os0 != 1;
  const line_scratch line(through_line ? (n + 2) * zor_int(sizeof(R)) : 0);
  if (through_line && line.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  for (zor_int i = 0; i < count; ++i) {
    R* spectrum = reinterpret_cast<R*>(rows + i * distance);
    R* y = out + i * os1;
    R* contiguous = through_line ? reinterpret_cast<R*>(line.data) : y;
    const R* from = second ? padded_to_second(spectrum, n) : spectrum;
    const int32_t status = kernel.run(from, contiguous, kernel.record, kernel.work);
    if (through_line) scatter_line(contiguous, n, y, os0);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

template <class R>
int32_t real_planes(complex_of<R>* box, const axes& inner, R* out, const axes& oa, zor_int first,
                    zor_int last, void* work) {
  const line_kernel kernel{oa.of[0].kernel, oa.of[0].record, work};
  const zor_int rows = inner.of[1].length, row = inner.of[0].length;
  axes plane = inner;
  plane.rank = 2;
  const line_runs runs{0, 2, 1};
  for (zor_int p = first; p < last; ++p) {
    complex_of<R>* x = box + p * rows * row;
    int32_t status = complex_along<R>(x, plane, 1, 2, work);
    if (status == ZOR_DFT_OK)
      status = real_rows<R>(x, row, out + run_offset(oa, 0, runs, p), oa.of[0].stride, oa.of[1].stride, rows,
                            kernel);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

template <class R>
int32_t complex_to_real(const complex_of<R>* in, const axes& ia, R* out, const axes& oa, void* work) {
  using C = complex_of<R>;
  if (same_data(in, out) && rows_coincide(oa, ia) && !backward_reads_second(oa.of[0].record)) {
    C* data = reinterpret_cast<C*>(out);
    int32_t status = complex_along<R>(data, ia, 2, ia.rank, work);
    if (status == ZOR_DFT_OK) status = complex_along<R>(data, ia, 1, 2, work);
    if (status != ZOR_DFT_OK) return status;
    return lines_along<C, R>(data, ia, out, oa, 0, 0, lines_of(oa, 0), work, tile_four);
  }
  const axes inner = packed_axes(ia);
  const line_scratch memory(total_of(ia) * zor_int(sizeof(C)));
  if (memory.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  C* box = reinterpret_cast<C*>(memory.data);
  if (ia.rank == 2) {
    copy_box(in, ia, box, inner);
  } else {
    const int32_t status = lines_along<C, C>(in, ia, box, inner, 2, 0, lines_of(ia, 2), work, tile_eight);
    if (status != ZOR_DFT_OK) return status;
  }
  return real_planes<R>(box, inner, out, oa, 0, planes_of(ia), work);
}

template <class R, direction Dir>
int32_t packed_rows(plane<const R> in, plane<R> out, zor_dft_kernel kernel, descriptor* head, zor_int first,
                    zor_int last, void* work) {
  const zor_int n = head->length;
  const bool narrow = Dir == backward && backward_reads_second(head);
  const zor_int spectrum = narrow ? n : packed_length(head, n);
  const zor_int in_count = Dir == forward ? n : spectrum;
  const zor_int out_count = Dir == forward || in_place(head) ? spectrum : n;
  return run_lines<R, R>({kernel, head, work}, {in.data + first * in.s1, in.s0, in.s1, in_count},
                         {out.data + first * out.s1, out.s0, out.s1, out_count}, last - first, tile_four);
}

template <class R, direction Dir>
int32_t packed_columns(plane<const R> in, plane<R> out, zor_dft_kernel kernel, descriptor* head,
                       zor_int first, zor_int last, void* work) {
  descriptor* record = head->next_dim;
  const zor_int n = head->length, rows = record->length;
  const packed_positions from = positions_of(head->packed_format, n);
  const bool second = Dir == backward && backward_reads_second(head);
  const packed_positions to = second ? positions_of(ZOR_DFT_FORMAT_SECOND, n) : from;
  const zor_int real_columns = n % 2 == 0 ? 2 : 1;
  for (zor_int c = first; c < last && c < real_columns; ++c) {
    const R* x = in.data + (c == 0 ? 0 : from.last_real) * in.s0;
    R* y = out.data + (c == 0 ? 0 : to.last_real) * out.s0;
    const int32_t status = real_column<R, Dir>(x, in.s1, y, out.s1, record, work);
    if (status != ZOR_DFT_OK) return status;
  }
  const zor_int first_pair = first > real_columns ? first - real_columns : 0;
  const zor_int pairs = last - real_columns - first_pair;
  if (pairs <= 0) return ZOR_DFT_OK;
  return pair_columns<R>({in.data + (from.first_pair + 2 * first_pair) * in.s0, in.s0, in.s1},
                         {out.data + (to.first_pair + 2 * first_pair) * out.s0, out.s0, out.s1},
                         {kernel, record, work}, rows, pairs);
}

template <class R, direction Dir>
int32_t packed_2d(plane<const R> in, plane<R> out, zor_dft_kernel k0, zor_dft_kernel k1, descriptor* head,
                  void* work) {
  const zor_int rows = head->next_dim->length, columns = packed_column_count(head->length);
  const plane<const R> result{out.data, out.s0, out.s1};
  if constexpr (Dir == forward) {
    const int32_t status = packed_rows<R, Dir>(in, out, k0, head, 0, rows, work);
    if (status != ZOR_DFT_OK || rows < 2) return status;
    return packed_columns<R, Dir>(result, out, k1, head, 0, columns, work);
  } else {
    const int32_t status = packed_columns<R, Dir>(in, out, k1, head, 0, columns, work);
    if (status != ZOR_DFT_OK) return status;
    return packed_rows<R, Dir>(result, out, k0, head, 0, rows, work);
  }
}

namespace {

// Bodies of the installed 2-D routines.
template <class R>
int32_t complex_2d(void* data, const zor_int* s0, const zor_int* s1, zor_dft_kernel k0, zor_dft_kernel k1,
                   descriptor* head, void* work) {
  auto* x = static_cast<complex_of<R>*>(data);
  const axes a = axes_of_plane(head, &descriptor::length, *s0, *s1, k0, k1);
  return complex_nd<R>(x, a, x, a, work);
}

template <class R, direction Dir>
int32_t real_2d_packed(const void* in, void* out, const zor_int* is0, const zor_int* is1, const zor_int* os0,
                       const zor_int* os1, zor_dft_kernel k0, zor_dft_kernel k1, descriptor* head,
                       void* work) {
  return packed_2d<R, Dir>({static_cast<const R*>(in), *is0, *is1}, {static_cast<R*>(out), *os0, *os1}, k0,
                           k1, head, work);
}

template <class R, direction Dir>
int32_t real_2d_complex(const void* in, void* out, const zor_int* is0, const zor_int* is1, const zor_int* os0,
                        const zor_int* os1, zor_dft_kernel k0, zor_dft_kernel k1, descriptor* head,
                        void* work) {
  constexpr zor_int descriptor::*full = &descriptor::length;
  constexpr zor_int descriptor::*half = &descriptor::half_length;
  const axes ia = axes_of_plane(head, Dir == forward ? full : half, *is0, *is1, k0, k1);
  const axes oa = axes_of_plane(head, Dir == forward ? half : full, *os0, *os1, k0, k1);
  if constexpr (Dir == forward)
    return real_to_complex<R>(static_cast<const R*>(in), ia, static_cast<complex_of<R>*>(out), oa, work);
  else
    return complex_to_real<R>(static_cast<const complex_of<R>*>(in), ia, static_cast<R*>(out), oa, work);
}

}  // namespace

template <class R>
zor_dft_2d complex_2d_routine() {
  return complex_2d<R>;
}

template <class R>
zor_dft_real_2d real_2d_routine(direction d, bool complex_storage) {
  if (complex_storage) return d == forward ? real_2d_complex<R, forward> : real_2d_complex<R, backward>;
  return d == forward ? real_2d_packed<R, forward> : real_2d_packed<R, backward>;
}

#define INSTANTIATE_PACKED(R, Dir)                                                                          \
  template int32_t packed_rows<R, Dir>(plane<const R>, plane<R>, zor_dft_kernel, descriptor*, zor_int,      \
                                       zor_int, void*);                                                     \
  template int32_t packed_columns<R, Dir>(plane<const R>, plane<R>, zor_dft_kernel, descriptor*, zor_int,   \
                                          zor_int, void*);                                                  \
  template int32_t packed_2d<R, Dir>(plane<const R>, plane<R>, zor_dft_kernel, zor_dft_kernel, descriptor*, \
                                     void*);
#define INSTANTIATE(R)                                                                                       \
  template int32_t complex_nd<R>(const complex_of<R>*, const axes&, complex_of<R>*, const axes&, void*);     \
  template int32_t complex_planes<R>(const complex_of<R>*, const axes&, complex_of<R>*, const axes&,         \
                                     zor_int, zor_int, void*);                                               \
  template int32_t mixed_planes_forward<R>(const R*, const axes&, complex_of<R>*, const axes&, zor_int,      \
                                           zor_int, void*);                                                  \
  template int32_t real_rows<R>(complex_of<R>*, zor_int, R*, zor_int, zor_int, zor_int, const line_kernel&); \
  template int32_t real_planes<R>(complex_of<R>*, const axes&, R*, const axes&, zor_int, zor_int, void*);    \
  template int32_t real_to_complex<R>(const R*, const axes&, complex_of<R>*, const axes&, void*);            \
  template int32_t complex_to_real<R>(const complex_of<R>*, const axes&, R*, const axes&, void*);            \
  template zor_dft_2d complex_2d_routine<R>();                                                               \
  template zor_dft_real_2d real_2d_routine<R>(direction, bool);                                              \
  INSTANTIATE_PACKED(R, forward)                                                                             \
  INSTANTIATE_PACKED(R, backward)
INSTANTIATE(float)
INSTANTIATE(double)
#undef INSTANTIATE
#undef INSTANTIATE_PACKED

}  // namespace zor::dft
