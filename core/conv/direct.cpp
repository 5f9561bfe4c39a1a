// SPDX-License-Identifier: MIT
// Sums: the kernel library's direct bodies on pieces of z. Every value is one sum in the order of x, so that
// no cut shows.
#include <atomic>

#include "core/blas/arguments.h"
#include "core/conv/problem.h"
#include "core/threads.h"

namespace zor_core {
namespace {

// Products and additions below which one thread is faster.
constexpr zor_int least_work = 1 << 17;
// Pieces a thread gets, because those at the ends of a result have less to do.
constexpr zor_int pieces_a_thread = 4;

// The address of the lowest element; tasks take it, and the sign of the step.
template <class E>
E* lowest(E* first, int dims, const conv_dimension* of, zor_int conv_dimension::*step,
          zor_int conv_dimension::*length) {
  for (int i = 0; i < dims; ++i)
    if (of[i].*step < 0) first += (of[i].*length - 1) * (of[i].*step);
  return first;
}

template <class T>
int32_t run_task(const conv_problem<T>& p) {
  constexpr int32_t type = zor::is_complex<T> ? ZOR_CONV_COMPLEX : ZOR_CONV_REAL;
  constexpr int32_t precision = sizeof(zor::real_t<T>) == 8 ? ZOR_CONV_DOUBLE : ZOR_CONV_SINGLE;
  int32_t of[8][conv_most_dims];
  for (int i = 0; i < p.dims; ++i) {
    const conv_dimension& d = p.of[i];
    const zor_int values[] = {d.m, d.n, d.count, d.x_step, d.y_step, d.z_step, d.start, d.step};
    for (int k = 0; k < 8; ++k) of[k][i] = int32_t(values[k]);
  }
  ZorConvTask* task = nullptr;
  const int32_t created = zor_conv_NewTask(&task, p.correlation ? ZOR_CONV_CORRELATION : ZOR_CONV_CONVOLUTION,
                                           0, ZOR_CONV_DIRECT, type, precision, p.dims, of[0], of[1], of[2]);
  if (created != ZOR_CONV_OK) return ZOR_CONV_NO_MEMORY;
  zor_conv_EditTask(task, ZOR_CONV_EDIT_START, of[6]);
  zor_conv_EditTask(task, ZOR_CONV_EDIT_DECIMATION, of[7]);
  const int32_t status =
      zor_conv_Exec(task, lowest(p.x, p.dims, p.of, &conv_dimension::x_step, &conv_dimension::m), of[3],
                    lowest(p.y, p.dims, p.of, &conv_dimension::y_step, &conv_dimension::n), of[4],
                    lowest(p.z, p.dims, p.of, &conv_dimension::z_step, &conv_dimension::count), of[5]);
  zor_conv_DeleteTask(&task);
  return status;
}

}  // namespace

template <class T>
int32_t convolve_directly(const conv_problem<T>& p) {
  zor_int outputs = 1, x = 1, y = 1;
  int cut_dim = 0;
  for (int i = 0; i < p.dims; ++i) {
    outputs = saturating_product(outputs, p.of[i].count);
    x = saturating_product(x, p.of[i].m);
    y = saturating_product(y, p.of[i].n);
    // The slowest dimension that gives enough pieces, else the longest.
    if (i > 0 && (p.of[i].count >= 64 || p.of[i].count > p.of[cut_dim].count)) cut_dim = i;
  }
  const zor_int work = saturating_product(outputs, std::min(x, y)), length = p.of[cut_dim].count;
  const int32_t threads = work < least_work ? 1 : usable_threads();
  if (threads <= 1) return run_task(p);
  const zor_int pieces = std::min<zor_int>(length, threads * pieces_a_thread);
  std::atomic<int32_t> status{ZOR_CONV_OK};
  for_each_piece(threads, pieces, [&](zor_int index) {
    const zor_int first = cut(length, 1, pieces, index), end = cut(length, 1, pieces, index + 1);
    conv_problem<T> piece = part_of(p, cut_dim, first, end - first);
    trim(&piece);
    const int32_t own = run_task(piece);
    if (own != ZOR_CONV_OK) status.store(own, std::memory_order_relaxed);
  });
  return status;
}

template int32_t convolve_directly(const conv_problem<float>&);
template int32_t convolve_directly(const conv_problem<double>&);
template int32_t convolve_directly(const conv_problem<zor_c32>&);
template int32_t convolve_directly(const conv_problem<zor_c64>&);

}  // namespace zor_core
