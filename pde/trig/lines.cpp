// SPDX-License-Identifier: MIT
// Lines are transformed side by side: a tile holds element j of as many lines as a cache line has room for in
// row j. Lengths without that form go line by line through a plan of the line.
#include "pde/trig/lines.h"

#include <atomic>
#include <new>
#include <type_traits>

#include "dft/engine/plan/memory.h"
#include "dft/interleaved.h"
#include "pde/kernels.h"
#include "pde/poisson/tridiagonal.h"
#include "pde/trig/steps.h"
#include "pde/trig/transform.h"
#include "serv/vec.h"

namespace zor::pde {
namespace {

using descriptor = ZorDftDescriptor;

// What the runs of one length read: rows, or the line.
template <class T>
struct batch_plan {
  dft::real_rows<T> rows;
  dft::line_transform line;
  bool side_by_side;
  int64_t scratch;
};

// Stands in the descriptor. The plan is made by the first run that wants it.
struct line_kernels {
  const kernel_table* table;
  zor_int n;
  std::atomic<void*> plan;
};

constexpr int64_t boundary = 64;
constexpr int64_t rounded_up(int64_t bytes) { return (bytes + boundary - 1) / boundary * boundary; }
template <class T>
constexpr ptrdiff_t width_of = ptrdiff_t(lines_together<T>);

template <class T>
void free_plan(batch_plan<T>* p) {
  if (p == nullptr) return;
  dft::free_real_rows(&p->rows);
  dft::free_line(&p->line);
  dft::engine_free(p);
}

template <class T>
batch_plan<T>* make_plan(zor_int n) {
  void* const block = dft::engine_allocate(sizeof(batch_plan<T>));
  if (block == nullptr) return nullptr;
  auto* const p = new (block) batch_plan<T>{};
  int32_t code = dft::commit_real_rows(&p->rows, int32_t(n));
  p->side_by_side = code == dft::engine_done;
  const int64_t row = boundary;
  if (p->side_by_side) {
    p->scratch = 2 * (n + 1) * row;
  } else {
    if (code == dft::engine_bad_size)
      code = dft::commit_line<T>(&p->line, dft::line_kind::real, int32_t(n), dft::scale_none);
    if (code != dft::engine_done) {
      free_plan(p);
      return nullptr;
    }
    p->scratch = rounded_up((n + 2) * int64_t(sizeof(T))) + rounded_up(dft::work_of_line(p->line)) + boundary;
  }
  return p;
}

template <class T>
const batch_plan<T>* plan_of(descriptor* d) {
  auto* const k = static_cast<line_kernels*>(d->private_data);
  void* const found = k->plan;
  if (found != nullptr) return static_cast<const batch_plan<T>*>(found);
  auto* const made = make_plan<T>(k->n);
  if (made == nullptr) return nullptr;
  void* first = nullptr;
  if (k->plan.compare_exchange_strong(first, made)) return made;
  free_plan(made);
  return static_cast<const batch_plan<T>*>(first);
}

void release_kernels(descriptor* d) {
  auto* const k = static_cast<line_kernels*>(d->private_data);
  void* const plan = k->plan;
  if (d->precision == ZOR_DFT_DOUBLE)
    free_plan(static_cast<batch_plan<double>*>(plan));
  else
    free_plan(static_cast<batch_plan<float>*>(plan));
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
int64_t run_tile(const batch_plan<T>& p, const line_batch<T>& b, T* tile, T* engine_tile) {
  using V = vec<T>;
  constexpr ptrdiff_t W = width_of<T>, groups = W / lanes<V>;
  const ptrdiff_t n = p.rows.n;
  T* const x = b.kind == 3 ? tile + W : tile;
  if (b.kind == lines_periodic) {
    dft::run_real_rows(p.rows, b.forward ? dft::forward : dft::backward, x, engine_tile);
    return status_done;
  }
  using steps = trig_steps<V, T, W>;
  V carried[groups] = {};
  const auto each = [&](const auto& body) __attribute__((always_inline)) {
    for (ptrdiff_t g = 0; g < groups; ++g) body(steps{{x + g * lanes<V>}, b.tables, n}, carried[g]);
  };
  each([&](const steps& s, V& c) { c = s.before(b.kind, b.forward); });
  const bool dft_forward = b.kind < 2 || !b.forward;
  dft::run_real_rows(p.rows, dft_forward ? dft::forward : dft::backward, x, engine_tile);
  bool divided = true;
  each([&](const steps& s, V c) { divided = s.after(b.kind, b.forward, c) && divided; });
  return divided ? status_done : status_zero_divisor;
}

// The line alone, in the same memory layout of one element a row.
template <class T>
int64_t run_one(const batch_plan<T>& p, const line_batch<T>& b, ptrdiff_t n, T* line, void* work) {
  T* const x = b.kind == 3 ? line + 1 : line;
  const auto dft = [&](bool dft_forward) {
    return dft::run_line(p.line, dft_forward ? dft::forward : dft::backward, x, x, work) == dft::engine_done;
  };
  if (b.kind == lines_periodic) return dft(b.forward) ? status_done : status_transform_failed;
  using steps = trig_steps<T, T, 1>;
  const steps s{{x}, b.tables, n};
  const T c = s.before(b.kind, b.forward);
  if (!dft(b.kind < 2 || !b.forward)) return status_transform_failed;
  return s.after(b.kind, b.forward, c) ? status_done : status_zero_divisor;
}

template <class T>
T factor_of(const line_batch<T>& b, ptrdiff_t n) {
  if (b.kind == lines_periodic) return T(1);
  return b.forward ? T(1) / T(n) : T(0.5);
}

template <class T>
void double_row(T* row, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) row[i] = T(2) * row[i];
}

template <class T>
int64_t run_side_by_side(const batch_plan<T>& p, const line_batch<T>& b, T* tile) {
  constexpr ptrdiff_t W = width_of<T>;
  const ptrdiff_t n = p.rows.n;
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
    const int64_t status = run_tile(p, b, tile, engine_tile);
    if (status != status_done) return status;
    scatters<T>[layout][mirror_out](g, to, n, tile, factor_of(b, n));
  }
  return status_done;
}

template <class T>
int64_t run_one_by_one(const batch_plan<T>& p, const line_batch<T>& b, ptrdiff_t n, T* line) {
  void* const work = reinterpret_cast<char*>(line) + rounded_up((n + 2) * int64_t(sizeof(T)));
  const element_range inside = elements_of(b.kind, n);
  const T factor = factor_of(b, n);
  const auto place = [&](ptrdiff_t j, bool mirrored) { return b.step * (mirrored ? n - j : j); };
  for (ptrdiff_t i = 0; i < b.count; ++i) {
    T* const f = b.f + b.distance * i;
    for (ptrdiff_t j = inside.first; j <= inside.last; ++j) line[j] = f[place(j, b.mirrored && b.forward)];
    if (b.doubled_first) double_row(line + (b.mirrored ? n : 0), 1);
    if (b.doubled_last) double_row(line + (b.mirrored ? 0 : n), 1);
    const int64_t status = run_one(p, b, n, line, work);
    if (status != status_done) return status;
    for (ptrdiff_t j = inside.first; j <= inside.last; ++j)
      f[place(j, b.mirrored && !b.forward)] = factor * line[j];
  }
  return status_done;
}

template <class T>
int64_t run_lines(descriptor* d, const line_batch<T>& b, void* scratch) {
  const batch_plan<T>* const p = plan_of<T>(d);
  if (p == nullptr) return status_transform_failed;
  T* const room = static_cast<T*>(scratch);
  return p->side_by_side ? run_side_by_side(*p, b, room) : run_one_by_one(*p, b, ptrdiff_t(d->length), room);
}

template <class T>
int64_t scratch_of_lines(descriptor* d) {
  const batch_plan<T>* const p = plan_of<T>(d);
  return p == nullptr ? 0 : p->scratch;
}

template <class T>
constexpr kernel_set<T> set_of = {scratch_of_lines<T>, run_lines<T>, scratch_of_systems<T>, solve_systems<T>};
constexpr kernel_table table = {kernel_mark, set_of<float>, set_of<double>};

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
