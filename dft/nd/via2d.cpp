// SPDX-License-Identifier: MIT
// A very long line as a rows of b columns: the split of the length, the twiddles, and the two passes.
#include "dft/nd/via2d.h"

#include <math.h>

#include "dft/engine/roots/trig.h"
#include "dft/run/batch.h"
#include "serv/control.h"
#include "zor/signatures/dft_kern.h"

namespace zor::dft {
namespace {

using via2d = zor_dft_1d_via_2d;

zor_int ceil_sqrt(zor_int n) {
  zor_int r = zor_int(sqrtf(float(n)));
  while (r * r < n) ++r;
  while ((r - 1) * (r - 1) >= n) --r;
  return r;
}

// The prime factors of n in ascending order; at most 63.
int factorise(zor_int n, zor_int* factors) {
  int count = 0;
  const auto take_out = [&](zor_int p) {
    for (; n % p == 0; n /= p) factors[count++] = p;
  };
  take_out(2);
  take_out(3);
  for (zor_int p = 5; p * p <= n; p += 6) {
    take_out(p);
    take_out(p + 2);
  }
  if (n > 1) factors[count++] = n;
  return count;
}

// n = a b with a the smaller factor, near the square root; a is 1 for a prime.
void split_length(zor_int n, zor_int log2_length, via2d* v) {
  if (is_power_of_two(n)) {
    v->a = zor_int(1) << (log2_length / 2);
    v->b = n / v->a;
    return;
  }
  zor_int factors[64];
  const zor_int root = ceil_sqrt(n);
  zor_int a = 1, b = 1;
  for (int i = factorise(n, factors) - 1; i >= 0; --i) {
    if (a < b || b * factors[i] > root)
      a *= factors[i];
    else
      b *= factors[i];
  }
  v->a = a < b ? a : b;
  v->b = a < b ? b : a;
}

// Rows a page multiple apart would share cache sets.
zor_int pitch_of(zor_int elements, zor_int element_bytes) {
  const zor_int pitch = (elements * element_bytes + cache_line - 1) / cache_line * cache_line;
  return pitch % page == 0 ? pitch + cache_line : pitch;
}

template <class R>
int32_t make_sub_descriptor(zor_int n, descriptor** sub) {
  constexpr int32_t precision = std::is_same_v<R, double> ? ZOR_DFT_DOUBLE : ZOR_DFT_SINGLE;
  int32_t status = zor_dft_create_descriptor_md(sub, precision, ZOR_DFT_COMPLEX, 1, &n);
  if (status != ZOR_DFT_OK) return status;
  status = std::is_same_v<R, double> ? zor_dft_commit_descriptor_core_d_c2c_1d(sub, 0)
                                     : zor_dft_commit_descriptor_core_s_c2c_1d(sub, 0);
  // A run brings work of its own.
  zor_serv_zor_free((*sub)->work_buffer);
  (*sub)->work_buffer = nullptr;
  return status;
}

void release_via2d(via2d* v) {
  if (v->sub_b != nullptr && v->sub_b != v->sub_a) zor_dft_free(&v->sub_b);
  if (v->sub_a != nullptr) zor_dft_free(&v->sub_a);
  zor_serv_zor_free(v->twiddles);
  zor_serv_zor_free(v);
}

void free_private(descriptor* r) {
  if (r->private_data != nullptr) release_via2d(static_cast<via2d*>(r->private_data));
  r->private_data = nullptr;
  r->private_free = nullptr;
}

template <class R>
int32_t fill_twiddles(zor_int n, zor_int log2_length, via2d* v) {
  using C = complex_of<R>;
  const zor_int count = zor_int(1) << (log2_length / 2 + 1);
  v->twiddle_count = count;
  C* w = static_cast<C*>(zor_serv_zor_malloc(2 * uint64_t(count) * sizeof(C), 64));
  v->twiddles = w;
  if (w == nullptr) return ZOR_DFT_MEMORY_ERROR;
  for (zor_int j = 0; j < count; ++j) {
    const zor_c64 low = root_of_unity(j, n), high = root_of_unity(j * count % n, n);
    w[j] = {R(low.re), R(low.im)};
    w[count + j] = {R(high.re), R(high.im)};
  }
  return ZOR_DFT_OK;
}

// exp(-2 pi i k/n) from the two tables; they are joined only when neither factor is 1.
template <class C>
C twiddle(const via2d* v, zor_int k) {
  const C* w = static_cast<const C*>(v->twiddles);
  const zor_int low = k & (v->twiddle_count - 1), high = k / v->twiddle_count;
  if (high == 0) return w[low];
  if (low == 0) return w[v->twiddle_count + high];
  return zor::mul(w[low], w[v->twiddle_count + high]);
}

// Columns first to first + count - 1: transformed in a tile, multiplied by their twiddles, stored as row
// pieces.
template <class R, direction Dir>
int32_t column_tile(const complex_of<R>* x, char* rows, zor_int first, int count, const via2d* v, char* tile,
                    void* work) {
  using C = complex_of<R>;
  const zor_dft_kernel kernel = v->sub_a->*fields<R>::complex_kernel[Dir];
  for (zor_int i = 0; i < v->a; ++i)
    for (int c = 0; c < count; ++c) reinterpret_cast<C*>(tile + c * v->pitch_a)[i] = x[i * v->b + first + c];
  for (int c = 0; c < count; ++c) {
    char* line = tile + c * v->pitch_a;
    const int32_t status = kernel(line, line, v->sub_a, work);
    if (status != ZOR_DFT_OK) return status;
  }
  for (zor_int i = 0; i < v->a; ++i) {
    C* row = reinterpret_cast<C*>(rows + i * v->pitch_b) + first;
    for (int c = 0; c < count; ++c) {
      C value = reinterpret_cast<const C*>(tile + c * v->pitch_a)[i];
      if (i != 0 && first + c != 0) {
        C w = twiddle<C>(v, i * (first + c));
        if (Dir == backward) w.im = -w.im;
        value = zor::mul(value, w);
      }
      row[c] = value;
    }
  }
  return ZOR_DFT_OK;
}

template <class R, direction Dir>
int32_t column_pass(const void* in, void* rows, zor_int first, zor_int last, const via2d* v, void* work) {
  const line_scratch tile(lines_of_two_dimensions * v->pitch_a);
  if (tile.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  for (zor_int j = first; j < last; j += lines_of_two_dimensions) {
    const int count = int(last - j < lines_of_two_dimensions ? last - j : lines_of_two_dimensions);
    const int32_t status = column_tile<R, Dir>(static_cast<const complex_of<R>*>(in),
                                               static_cast<char*>(rows), j, count, v, tile.data, work);
    if (status != ZOR_DFT_OK) return status;
  }
  return ZOR_DFT_OK;
}

// Rows to columns; each element passes through `map`.
template <class C, class Map>
void rows_to_columns(const void* rows, zor_int pitch, zor_int count, zor_int n, void* out, zor_int out_stride,
                     Map map) {
  for (zor_int j = 0; j < n; ++j) {
    C* y = static_cast<C*>(out) + j * out_stride;
    for (zor_int i = 0; i < count; ++i)
      y[i] = map(reinterpret_cast<const C*>(static_cast<const char*>(rows) + i * pitch)[j]);
  }
}

template <class R>
void bundle_copy(const void* rows, zor_int pitch, zor_int count, zor_int n, void* out, zor_int out_stride) {
  using C = complex_of<R>;
  rows_to_columns<C>(rows, pitch, count, n, out, out_stride, [](C x) { return x; });
}

template <class R>
void bundle_scale_copy(const void* rows, zor_int pitch, zor_int count, zor_int n, void* out,
                       zor_int out_stride, R scale) {
  using C = complex_of<R>;
  rows_to_columns<C>(rows, pitch, count, n, out, out_stride, [scale](C x) {
    return C{x.re * scale, x.im * scale};
  });
}

// Row transforms in place, written out as columns four at a time.
template <class R, direction Dir>
int32_t row_pass(char* rows, void* out, descriptor* r, const via2d* v, void* work) {
  const zor_dft_kernel kernel = v->sub_b->*fields<R>::complex_kernel[Dir];
  const R scale = r->*fields<R>::scale[Dir];
  for (zor_int i = 0; i < v->a; i += lines_of_two_dimensions) {
    const zor_int count = v->a - i < lines_of_two_dimensions ? v->a - i : lines_of_two_dimensions;
    char* group = rows + i * v->pitch_b;
    for (zor_int j = 0; j < count; ++j) {
      const int32_t status = kernel(group + j * v->pitch_b, group + j * v->pitch_b, v->sub_b, work);
      if (status != ZOR_DFT_OK) return status;
    }
    auto* y = static_cast<complex_of<R>*>(out) + i;
    if (scale == R(1))
      bundle_copy<R>(group, v->pitch_b, count, v->b, y, v->a);
    else
      bundle_scale_copy<R>(group, v->pitch_b, count, v->b, y, v->a, scale);
  }
  return ZOR_DFT_OK;
}

// The whole line. All input is read before any output is written, so in and out may be the same.
template <class R, direction Dir>
int32_t run_via2d(const void* in, void* out, descriptor* r, void*) {
  const auto* v = static_cast<const via2d*>(r->private_data);
  const zor_int work_a = v->sub_a->max_work_size, work_b = v->sub_b->max_work_size;
  const line_scratch rows(v->a * v->pitch_b);
  const line_scratch work((work_a > work_b ? work_a : work_b) + work_boundary);
  if (rows.data == nullptr || work.data == nullptr) return ZOR_DFT_MEMORY_ERROR;
  const int32_t status = column_pass<R, Dir>(in, rows.data, 0, v->b, v, work.data);
  if (status != ZOR_DFT_OK) return status;
  return row_pass<R, Dir>(rows.data, out, r, v, work.data);
}

template <class R>
int32_t build_via2d(const descriptor* r, via2d* v) {
  if (r->length > longest_by_two_dimensions) return ZOR_DFT_NOT_SPLITTABLE;
  split_length(r->length, r->log2_length, v);
  if (v->a == 1) return ZOR_DFT_NOT_SPLITTABLE;
  v->pitch_a = pitch_of(v->a, sizeof(complex_of<R>));
  v->pitch_b = pitch_of(v->b, sizeof(complex_of<R>));
  int32_t status = make_sub_descriptor<R>(v->a, &v->sub_a);
  if (status != ZOR_DFT_OK) return status;
  v->sub_b = v->sub_a;
  if (v->b != v->a) {
    v->sub_b = nullptr;
    status = make_sub_descriptor<R>(v->b, &v->sub_b);
  }
  return status != ZOR_DFT_OK ? status : fill_twiddles<R>(r->length, r->log2_length, v);
}

}  // namespace

template <class R>
int32_t init_1d_via_2d(descriptor* r) {
  auto* v = static_cast<via2d*>(zor_serv_zor_calloc(1, sizeof(via2d), alignof(via2d)));
  if (v == nullptr) return ZOR_DFT_MEMORY_ERROR;
  const int32_t status = in_default_modes([=] { return build_via2d<R>(r, v); });
  if (status != ZOR_DFT_OK) {
    release_via2d(v);
    return status;
  }
  if (r->private_data != nullptr && r->private_free != nullptr) r->private_free(r);
  r->private_data = v;
  r->private_free = free_private;
  r->*fields<R>::complex_kernel[forward] = run_via2d<R, forward>;
  r->*fields<R>::complex_kernel[backward] = run_via2d<R, backward>;
  return ZOR_DFT_OK;
}

template int32_t init_1d_via_2d<float>(descriptor*);
template int32_t init_1d_via_2d<double>(descriptor*);

}  // namespace zor::dft

using namespace zor::dft;

#define ROW_VIA2D_INIT(name, R) \
  extern "C" SIG_VIA2D_INIT(name) { return init_1d_via_2d<R>(record); }
#define ROW_VIA2D_COLUMNS(name, R)                                                             \
  extern "C" SIG_VIA2D_COLUMNS(name) {                                                         \
    const auto* v = static_cast<const zor_dft_1d_via_2d*>(record->private_data);               \
    return direction == forward ? column_pass<R, forward>(in, scratch, first, last, v, work)   \
                                : column_pass<R, backward>(in, scratch, first, last, v, work); \
  }
#define ROW_VIA2D_COPY(name, R) \
  extern "C" SIG_VIA2D_COPY(name) { bundle_copy<R>(rows, pitch, count, n, out, out_stride); }
#define ROW_VIA2D_SCALE_COPY(name, R)                                    \
  extern "C" SIG_VIA2D_SCALE_COPY(name, R) {                             \
    bundle_scale_copy<R>(rows, pitch, count, n, out, out_stride, scale); \
  }
#include "zor/tables/dft_via2d.inc"
