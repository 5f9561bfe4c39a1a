// SPDX-License-Identifier: MIT
// The solvers' kernels of the build that is loaded, and the division of their work over threads.
#pragma once

#include <algorithm>
#include <atomic>

#include "core/precision.h"
#include "core/threads.h"
#include "pde/kernels.h"
#include "serv/memory.h"
#include "zor/serv.h"

namespace zor_core {

inline constexpr zor_int pde_no_memory = -3, pde_transform_failed = -1000;

// From a transform that is committed for the purpose; null when memory is short.
const zor::pde::kernel_table* any_kernels();

// An estimate: below so many elements, some ten microseconds of transforms, a thread costs more than it does.
inline constexpr zor_int least_elements_of_a_thread = 16384;

inline int32_t threads_of_step(zor_int wanted, zor_int elements) {
  const zor_int most = std::min<zor_int>({wanted, usable_threads(), elements / least_elements_of_a_thread});
  return int32_t(std::max<zor_int>(most, 1));
}

// body(piece, scratch) returns a status; the first that is not 0 is returned. Scratch is a piece's own.
template <class Body>
zor_int for_pieces_with_scratch(int32_t threads, zor_int pieces, int64_t bytes, const Body& body) {
  std::atomic<zor_int> status{0};
  for_each_piece(threads, pieces, [&](zor_int piece) {
    void* const scratch = zor_serv_allocate(uint64_t(bytes), zor::scratch_boundary);
    const zor_int code = scratch == nullptr ? pde_no_memory : body(piece, scratch);
    zor_serv_deallocate(scratch);
    if (code != 0) status.store(code, std::memory_order_relaxed);
  });
  return status.load(std::memory_order_relaxed);
}

// Many lines of a committed transform, by groups over the threads.
template <class T>
zor_int run_lines(ZorDftDescriptor* d, const zor::pde::line_batch<T>& b, zor_int threads) {
  const zor::pde::kernel_table* const table = zor::pde::kernels_of(d);
  if (table == nullptr) return pde_transform_failed;
  const auto& k = of_precision<T>(*table);
  const int32_t used = threads_of_step(threads, b.count * d->length);
  const zor_int together = zor::pde::lines_together<T>, groups = (b.count + together - 1) / together;
  const zor_int each = std::max<zor_int>(1, groups / (used == 1 ? 1 : 8 * used)) * together;
  const int64_t bytes = k.scratch_of_lines(d, b.kind, b.alone);
  if (bytes == 0) return pde_no_memory;
  return for_pieces_with_scratch(used, (b.count + each - 1) / each, bytes, [&](zor_int piece, void* scratch) {
    zor::pde::line_batch<T> part = b;
    part.f = b.f + b.distance * each * piece;
    part.first_line = b.first_line + each * piece;
    part.count = std::min(each, b.count - each * piece);
    return zor_int(k.run_lines(d, part, scratch));
  });
}

// Two batches of lines in each of some planes, the one after the other, so that the second finds the results
// of the first in cache. Their f is that of plane 0.
template <class T>
struct plane_lines {
  ZorDftDescriptor* d[2];
  zor::pde::line_batch<T> lines[2];
  zor_int planes, plane_size;
};
template <class T>
zor_int run_planes(const plane_lines<T>& p, zor_int threads) {
  const zor::pde::kernel_table* const table = zor::pde::kernels_of(p.d[0]);
  if (table == nullptr || zor::pde::kernels_of(p.d[1]) == nullptr) return pde_transform_failed;
  const auto& k = of_precision<T>(*table);
  const int64_t first_bytes = k.scratch_of_lines(p.d[0], p.lines[0].kind, false),
                second_bytes = k.scratch_of_lines(p.d[1], p.lines[1].kind, false);
  if (first_bytes == 0 || second_bytes == 0) return pde_no_memory;
  const int32_t used = threads_of_step(threads, p.planes * p.plane_size);
  return for_pieces_with_scratch(used, p.planes, std::max(first_bytes, second_bytes),
                                 [&](zor_int plane, void* scratch) {
                                   zor_int status = 0;
                                   for (int i = 0; i < 2 && status == 0; ++i) {
                                     zor::pde::line_batch<T> b = p.lines[i];
                                     b.f += p.plane_size * plane;
                                     if (b.count > 0) status = k.run_lines(p.d[i], b, scratch);
                                   }
                                   return status;
                                 });
}

// The systems of `layers` batches of modes, layer_step elements apart; set(layer, systems) fills in what
// differs.
template <class T, class Set>
zor_int run_systems(const zor::pde::mode_systems<T>& s, zor_int layers, const Set& set, zor_int threads) {
  const zor::pde::kernel_table* const table = any_kernels();
  if (table == nullptr) return pde_no_memory;
  const auto& k = of_precision<T>(*table);
  const zor_int each = zor::pde::modes_together<T>, blocks = (s.count + each - 1) / each;
  const int32_t used = threads_of_step(threads, s.count * layers * (s.n + 1));
  return for_pieces_with_scratch(used, blocks * layers, k.scratch_of_systems(s),
                                 [&](zor_int piece, void* scratch) {
                                   zor::pde::mode_systems<T> part = s;
                                   const zor_int first = piece % blocks * each;
                                   set(piece / blocks, &part);
                                   part.f += first;
                                   part.diagonal += first;
                                   part.count = std::min(each, s.count - first);
                                   part.singular = part.singular && first == 0;
                                   k.solve_systems(part, scratch);
                                   return zor_int(0);
                                 });
}

}  // namespace zor_core
