// SPDX-License-Identifier: MIT
// Lines are transformed side by side: a tile holds element j of as many lines as a cache line has room for in
// row j. Lengths without that form go line by line through a plan of the line.
#include "pde/trig/lines.h"

#include <atomic>
#include <new>
#include <type_traits>

#include "dft/engine/plan/memory.h"
#include "dft/engine/roots/trig.h"
#include "dft/interleaved.h"
#include "pde/kernels.h"
#include "pde/poisson/tridiagonal.h"
#include "pde/trig/steps.h"
#include "pde/trig/transform.h"
#include "serv/control.h"
#include "serv/vec.h"

namespace zor::pde {
namespace {

using descriptor = ZorDftDescriptor;

// What the runs of one length read: lines side by side where the length has that form, and a line alone. Each
// is made by the first run that wants it.
template <class T>
struct rows_plan {
  dft::real_rows<T> rows;
  bool exists;
};
struct line_kernels {
  const kernel_table* table;
  zor_int n;
  std::atomic<void*> rows, line;
};

constexpr int64_t boundary = 64;
constexpr int64_t rounded_up(int64_t bytes) { return (bytes + boundary - 1) / boundary * boundary; }
template <class T>
constexpr ptrdiff_t width_of = ptrdiff_t(lines_together<T>);

template <class T>
void free_rows(rows_plan<T>* p) {
  if (p == nullptr) return;
  dft::free_real_rows(&p->rows);
  dft::engine_free(p);
}
void release_line(dft::line_transform* p) {
  if (p == nullptr) return;
  dft::free_line(p);
  dft::engine_free(p);
}

template <class T>
rows_plan<T>* make_rows(zor_int n) {
  void* const block = dft::engine_allocate(sizeof(rows_plan<T>));
  if (block == nullptr) return nullptr;
  auto* const p = new (block) rows_plan<T>{};
  const int32_t code = dft::commit_real_rows(&p->rows, int32_t(n));
  p->exists = code == dft::engine_done;
  if (p->exists || code == dft::engine_bad_size) return p;
  free_rows(p);
  return nullptr;
}
template <class T>
dft::line_transform* make_line(zor_int n) {
  void* const block = dft::engine_allocate(sizeof(dft::line_transform));
  if (block == nullptr) return nullptr;
  auto* const p = new (block) dft::line_transform{};
  if (dft::commit_line<T>(p, dft::line_kind::real, int32_t(n), dft::scale_none) == dft::engine_done) return p;
  release_line(p);
  return nullptr;
}

// The plan in its place, made if it is the first time; two threads may make it, and one of them wins.
template <class P>
const P* plan_in(std::atomic<void*>& place, zor_int n, P* (*make)(zor_int), void (*release)(P*)) {
  void* found = place.load(std::memory_order_acquire);
  if (found != nullptr) return static_cast<const P*>(found);
  P* const made = make(n);
  if (made == nullptr || place.compare_exchange_strong(found, made)) return made;
  release(made);
  return static_cast<const P*>(found);
}
line_kernels* kernels_at(descriptor* d) { return static_cast<line_kernels*>(d->private_data); }
template <class T>
const rows_plan<T>* rows_of(descriptor* d) {
  line_kernels* const k = kernels_at(d);
  return plan_in<rows_plan<T>>(k->rows, k->n, make_rows<T>, free_rows<T>);
}
template <class T>
const dft::line_transform* line_of(descriptor* d) {
  line_kernels* const k = kernels_at(d);
  return plan_in<dft::line_transform>(k->line, k->n, make_line<T>, release_line);
}

void release_kernels(descriptor* d) {
  line_kernels* const k = kernels_at(d);
  if (d->precision == ZOR_DFT_DOUBLE)
    free_rows(static_cast<rows_plan<double>*>(k->rows.load()));
  else
    free_rows(static_cast<rows_plan<float>*>(k->rows.load()));
  release_line(static_cast<dft::line_transform*>(k->line.load()));
  dft::engine_free(k);
}

// The elements that a transform of n intervals knows.
struct element_range {
  ptrdiff_t first, last;
};
element_range elements_of(int32_t kind, ptrdiff_t n) {
  return {kind == 0 || kind == 3 ? 1 : 0, kind == 1 || kind == 3 ? n : n - 1};
}

// Where a group of lines stands: of `width` lines from `f` on the first `count` exist.
template <class T>
struct line_group {
  T* f;
  ptrdiff_t step, distance, count;
  T* line(ptrdiff_t i) const { return f + distance * (i < count ? i : count - 1); }
};

// Squares of contiguous lines, transposed: rows j to j + L - 1 of the tile against L elements of L lines.
template <class T>
constexpr ptrdiff_t square = lanes_of<T>;

template <class T, bool Mirrored>
[[gnu::always_inline]] inline T* tile_row(T* tile, ptrdiff_t n, ptrdiff_t j) {
  return tile + width_of<T> * (Mirrored ? n - j : j);
}

template <class T, bool Mirrored>
void gather_contiguous(const line_group<T>& g, element_range r, ptrdiff_t n, T* tile) {
  using V = vec<T>;
  constexpr ptrdiff_t L = square<T>, W = width_of<T>;
  const T* line[W];
  for (ptrdiff_t i = 0; i < W; ++i) line[i] = g.line(i);
  ptrdiff_t j = r.first;
  for (; j + L - 1 <= r.last; j += L)
    for (ptrdiff_t block = 0; block < W; block += L) {
      V rows[L];
#pragma GCC unroll 16
      for (ptrdiff_t i = 0; i < L; ++i) rows[i] = load<V>(line[block + i] + j);
      transpose_units<1>(rows);
#pragma GCC unroll 16
      for (ptrdiff_t i = 0; i < L; ++i) store<V>(tile_row<T, Mirrored>(tile, n, j + i) + block, rows[i]);
    }
  for (; j <= r.last; ++j)
    for (ptrdiff_t i = 0; i < W; ++i) tile_row<T, Mirrored>(tile, n, j)[i] = line[i][j];
}

template <class T, bool Mirrored>
void scatter_contiguous(const line_group<T>& g, element_range r, ptrdiff_t n, T* tile, T factor) {
  using V = vec<T>;
  constexpr ptrdiff_t L = square<T>;
  ptrdiff_t j = r.first;
  for (; j + L - 1 <= r.last; j += L)
    for (ptrdiff_t block = 0; block < g.count; block += L) {
      V rows[L];
#pragma GCC unroll 16
      for (ptrdiff_t i = 0; i < L; ++i)
        rows[i] = factor * load<V>(tile_row<T, Mirrored>(tile, n, j + i) + block);
      transpose_units<1>(rows);
      const ptrdiff_t here = g.count - block < L ? g.count - block : L;
#pragma GCC unroll 16
      for (ptrdiff_t i = 0; i < L; ++i)
        if (i < here) store<V>(g.line(block + i) + j, rows[i]);
    }
  for (; j <= r.last; ++j)
    for (ptrdiff_t i = 0; i < g.count; ++i) g.line(i)[j] = factor * tile_row<T, Mirrored>(tile, n, j)[i];
}

// Lines one element apart: a row of the tile is a row of memory.
template <class T, bool Mirrored>
void gather_rows(const line_group<T>& g, element_range r, ptrdiff_t n, T* tile) {
  using V = vec<T>;
  constexpr ptrdiff_t W = width_of<T>;
  for (ptrdiff_t j = r.first; j <= r.last; ++j) {
    const T* const from = g.f + g.step * j;
    T* const to = tile_row<T, Mirrored>(tile, n, j);
    if (g.count >= W) {
#pragma GCC unroll 4
      for (ptrdiff_t i = 0; i < W; i += lanes<V>) store<V>(to + i, load<V>(from + i));
    } else {
      for (ptrdiff_t i = 0; i < W; ++i) to[i] = from[i < g.count ? i : g.count - 1];
    }
  }
}
template <class T, bool Mirrored>
void scatter_rows(const line_group<T>& g, element_range r, ptrdiff_t n, T* tile, T factor) {
  using V = vec<T>;
  constexpr ptrdiff_t W = width_of<T>;
  for (ptrdiff_t j = r.first; j <= r.last; ++j) {
    T* const to = g.f + g.step * j;
    const T* const from = tile_row<T, Mirrored>(tile, n, j);
    if (g.count >= W) {
#pragma GCC unroll 4
      for (ptrdiff_t i = 0; i < W; i += lanes<V>) store<V>(to + i, factor * load<V>(from + i));
    } else {
      for (ptrdiff_t i = 0; i < g.count; ++i) to[i] = factor * from[i];
    }
  }
}

template <class T, bool Mirrored>
void gather_any(const line_group<T>& g, element_range r, ptrdiff_t n, T* tile) {
  for (ptrdiff_t j = r.first; j <= r.last; ++j)
    for (ptrdiff_t i = 0; i < width_of<T>; ++i) tile_row<T, Mirrored>(tile, n, j)[i] = g.line(i)[g.step * j];
}
template <class T, bool Mirrored>
void scatter_any(const line_group<T>& g, element_range r, ptrdiff_t n, T* tile, T factor) {
  for (ptrdiff_t j = r.first; j <= r.last; ++j)
    for (ptrdiff_t i = 0; i < g.count; ++i)
      g.line(i)[g.step * j] = factor * tile_row<T, Mirrored>(tile, n, j)[i];
}

template <class T>
using gather_fn = void(const line_group<T>&, element_range, ptrdiff_t n, T* tile);
template <class T>
using scatter_fn = void(const line_group<T>&, element_range, ptrdiff_t n, T* tile, T factor);
// How the data stand: contiguous lines, neighbouring lines, others; then whether they are mirrored.
template <class T>
constexpr gather_fn<T>* gathers[3][2] = {{gather_contiguous<T, false>, gather_contiguous<T, true>},
                                         {gather_rows<T, false>, gather_rows<T, true>},
                                         {gather_any<T, false>, gather_any<T, true>}};
template <class T>
constexpr scatter_fn<T>* scatters[3][2] = {{scatter_contiguous<T, false>, scatter_contiguous<T, true>},
                                           {scatter_rows<T, false>, scatter_rows<T, true>},
                                           {scatter_any<T, false>, scatter_any<T, true>}};

// One vector of lines of the tile after the other. The discrete transform takes them all, so it stands
// between two walks; what the first walk of transform 1 leaves goes to the second one.
template <class T>
int64_t run_tile(const dft::real_rows<T>& rows, const line_batch<T>& b, T* tile, T* engine_tile) {
  using V = vec<T>;
  constexpr ptrdiff_t W = width_of<T>, groups = W / lanes<V>;
  const ptrdiff_t n = rows.n;
  T* const x = b.kind == 3 ? tile + W : tile;
  if (b.kind == lines_periodic) {
    dft::run_real_rows(rows, b.forward ? dft::forward : dft::backward, x, engine_tile);
    return status_done;
  }
  using steps = trig_steps<V, T, W>;
  V carried[groups] = {};
  const auto each = [&](const auto& body) __attribute__((always_inline)) {
    for (ptrdiff_t g = 0; g < groups; ++g) body(steps{{x + g * lanes<V>}, b.tables, n}, carried[g]);
  };
  each([&](const steps& s, V& c) { c = s.before(b.kind, b.forward); });
  const bool dft_forward = b.kind < 2 || !b.forward;
  dft::run_real_rows(rows, dft_forward ? dft::forward : dft::backward, x, engine_tile);
  bool divided = true;
  each([&](const steps& s, V c) { divided = s.after(b.kind, b.forward, c) && divided; });
  return divided ? status_done : status_zero_divisor;
}

// The line alone, in the same memory layout of one element a row.
template <class T>
int64_t run_one(const dft::line_transform& plan, const line_batch<T>& b, ptrdiff_t n, T* line, void* work) {
  T* const x = b.kind == 3 ? line + 1 : line;
  const auto dft = [&](bool dft_forward) {
    return dft::run_line(plan, dft_forward ? dft::forward : dft::backward, x, x, work) == dft::engine_done;
  };
  if (b.kind == lines_periodic) return dft(b.forward) ? status_done : status_transform_failed;
  using steps = trig_steps<T, T, 1>;
  const steps s{{x}, b.tables, n};
  const T c = s.before(b.kind, b.forward);
  if (!dft(b.kind < 2 || !b.forward)) return status_transform_failed;
  return s.after(b.kind, b.forward, c) ? status_done : status_zero_divisor;
}

template <class T>
void double_row(T* row, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) row[i] = T(2) * row[i];
}

template <class T>
int64_t run_side_by_side(const dft::real_rows<T>& rows, const line_batch<T>& b, T* tile) {
  constexpr ptrdiff_t W = width_of<T>;
  const ptrdiff_t n = rows.n;
  T* const engine_tile = tile + W * (n + 1);
  // Lines that run downwards are read upwards from their other end.
  const bool downwards = b.step == -1;
  T* const f = downwards ? b.f - n : b.f;
  const ptrdiff_t step = downwards ? 1 : b.step;
  const int layout = step == 1 ? 0 : b.distance == 1 ? 1 : 2;
  // The grid's side of the transform may be mirrored, that is the data before a forward and behind a backward
  // one.
  const bool mirror_in = (b.mirrored && b.forward) != downwards;
  const bool mirror_out = (b.mirrored && !b.forward) != downwards;
  const element_range inside = elements_of(b.kind, n), other = {n - inside.last, n - inside.first};
  const element_range from = mirror_in ? other : inside, to = mirror_out ? other : inside;
  for (ptrdiff_t first = 0; first < b.count; first += W) {
    const ptrdiff_t left = b.count - first;
    const line_group<T> g = {f + b.distance * first, step, b.distance, left < W ? left : W};
    gathers<T>[layout][mirror_in](g, from, n, tile);
    if (b.doubled_first) double_row(tile_row<T, false>(tile, n, b.mirrored ? n : 0), W);
    if (b.doubled_last) double_row(tile_row<T, false>(tile, n, b.mirrored ? 0 : n), W);
    const int64_t status = run_tile(rows, b, tile, engine_tile);
    if (status != status_done) return status;
    scatters<T>[layout][mirror_out](g, to, n, tile, b.scale);
  }
  return status_done;
}

template <class T>
int64_t run_one_by_one(const dft::line_transform& plan, const line_batch<T>& b, ptrdiff_t n, T* line) {
  void* const work = reinterpret_cast<char*>(line) + rounded_up((n + 2) * int64_t(sizeof(T)));
  const element_range inside = elements_of(b.kind, n);
  const auto place = [&](ptrdiff_t j, bool mirrored) { return b.step * (mirrored ? n - j : j); };
  for (ptrdiff_t i = 0; i < b.count; ++i) {
    T* const f = b.f + b.distance * i;
    for (ptrdiff_t j = inside.first; j <= inside.last; ++j) line[j] = f[place(j, b.mirrored && b.forward)];
    if (b.doubled_first) double_row(line + (b.mirrored ? n : 0), 1);
    if (b.doubled_last) double_row(line + (b.mirrored ? 0 : n), 1);
    const int64_t status = run_one(plan, b, n, line, work);
    if (status != status_done) return status;
    for (ptrdiff_t j = inside.first; j <= inside.last; ++j)
      f[place(j, b.mirrored && !b.forward)] = b.scale * line[j];
  }
  return status_done;
}

// Lines in company share their arithmetic; a line alone would pay for all of a row.
template <class T>
bool goes_side_by_side(const rows_plan<T>* rows, bool alone) {
  return !alone && rows->exists;
}

template <class T>
int64_t run_lines(descriptor* d, const line_batch<T>& b, void* scratch) {
  T* const room = static_cast<T*>(scratch);
  const rows_plan<T>* const rows = rows_of<T>(d);
  if (rows == nullptr) return status_transform_failed;
  if (goes_side_by_side(rows, b.alone)) return run_side_by_side(rows->rows, b, room);
  const dft::line_transform* const line = line_of<T>(d);
  return line == nullptr ? status_transform_failed : run_one_by_one(*line, b, ptrdiff_t(d->length), room);
}

template <class T>
int64_t scratch_of_lines(descriptor* d, bool alone) {
  const rows_plan<T>* const rows = rows_of<T>(d);
  if (rows == nullptr) return 0;
  const int64_t n = d->length;
  if (goes_side_by_side(rows, alone)) return 2 * (n + 1) * boundary;
  const dft::line_transform* const line = line_of<T>(d);
  if (line == nullptr) return 0;
  return rounded_up((n + 2) * int64_t(sizeof(T))) + rounded_up(dft::work_of_line(*line)) + boundary;
}

double sine(double angle) {
  return in_default_modes([angle] { return cosine_and_sine_of(angle).sine; });
}

template <class T>
constexpr kernel_set<T> set_of = {scratch_of_lines<T>, run_lines<T>, scratch_of_systems<T>, solve_systems<T>};
constexpr kernel_table table = {kernel_mark, set_of<float>, set_of<double>, sine};

}  // namespace

bool attach_kernels(descriptor* d) {
  void* const block = dft::engine_allocate(sizeof(line_kernels));
  if (block == nullptr) return false;
  auto* const k = new (block) line_kernels{};
  k->table = &table;
  k->n = d->length;
  d->private_data = k;
  d->private_free = release_kernels;
  return true;
}

}  // namespace zor::pde
