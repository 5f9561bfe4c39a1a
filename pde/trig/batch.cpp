// SPDX-License-Identifier: MIT
// Lines are transformed side by side: a tile holds element j of as many lines as a cache line has room for in
// row j. Lengths without that form go line by line through a plan of the line.
#include "pde/trig/batch.h"

#include <atomic>
#include <new>
#include <type_traits>

#include "dft/engine/plan/memory.h"
#include "dft/engine/roots/trig.h"
#include "dft/interleaved.h"
#include "pde/kernels.h"
#include "pde/poisson/tridiagonal.h"
#include "pde/trig/folded.h"
#include "pde/trig/folded_line.h"
#include "pde/trig/parameters.h"
#include "pde/trig/steps.h"
#include "serv/control.h"
#include "serv/vec.h"

namespace zor::pde {
namespace {

using descriptor = ZorDftDescriptor;

// What the runs of one length read: lines side by side where the length has that form, a line alone, and its
// pairs of elements as a complex line. Each is made by the first run that wants it.
template <class T>
struct rows_plan {
  dft::real_rows<T> rows;
  bool exists;
};
struct line_kernels {
  const kernel_table* table;
  zor_int n;
  std::atomic<void*> rows, line, complex_half;
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
template <class T, dft::line_kind Kind>
dft::line_transform* make_line(zor_int n) {
  void* const block = dft::engine_allocate(sizeof(dft::line_transform));
  if (block == nullptr) return nullptr;
  auto* const p = new (block) dft::line_transform{};
  if (dft::commit_line<T>(p, Kind, int32_t(n), dft::scale_none) == dft::engine_done) return p;
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
int32_t folded_type(int32_t kind) { return kind >= lines_folded ? kind - lines_folded : -1; }

// The plan of a line alone: complex of half the length for transforms 4 and 5 without sums.
template <class T>
const dft::line_transform* line_of(descriptor* d, int32_t kind) {
  line_kernels* const k = kernels_at(d);
  if (folded_type(kind) >= 4 && k->n % 2 == 0)
    return plan_in<dft::line_transform>(k->complex_half, k->n / 2, make_line<T, dft::line_kind::complex>,
                                        release_line);
  return plan_in<dft::line_transform>(k->line, k->n, make_line<T, dft::line_kind::real>, release_line);
}

void release_kernels(descriptor* d) {
  line_kernels* const k = kernels_at(d);
  if (d->precision == ZOR_DFT_DOUBLE)
    free_rows(static_cast<rows_plan<double>*>(k->rows.load()));
  else
    free_rows(static_cast<rows_plan<float>*>(k->rows.load()));
  release_line(static_cast<dft::line_transform*>(k->line.load()));
  release_line(static_cast<dft::line_transform*>(k->complex_half.load()));
  dft::engine_free(k);
}

// The elements that a transform of n intervals knows.
struct element_range {
  ptrdiff_t first, last;
};
element_range elements_of(int32_t kind, ptrdiff_t n) {
  const int32_t type = kind >= lines_folded ? folded_type(kind) : kind;
  return {type == 0 || type == 3 ? 1 : 0, type == 1 || type == 3 ? n : n - 1};
}

// Element j of a line is value base + direction j of a transform, which stands in row row_of(value).
enum class row_order {
  plain,   // value i in row i
  halves,  // even values upwards, then odd ones downwards
  ends     // even values where they are, odd ones from the end: pairs i, n - 1 - i
};
struct element_order {
  ptrdiff_t base, direction, n;
  row_order order;
  bool alternating;  // odd values change their sign

  ptrdiff_t value_of(ptrdiff_t j) const { return base + direction * j; }
  bool negative(ptrdiff_t j) const { return alternating && (value_of(j) & 1) != 0; }
  ptrdiff_t row_of(ptrdiff_t j) const {
    const ptrdiff_t i = value_of(j), half = i >> 1;
    if (order == row_order::plain) return i;
    if ((i & 1) == 0) return order == row_order::halves ? half : i;
    return order == row_order::halves ? n - 1 - half : n - i;
  }
};
// The data of one side of a transform: the grid's before a forward and behind a backward one, the
// coefficients' otherwise. Transform 3 is transform 2 seen from the other end of the grid, the signs of its
// coefficients alternating.
template <class T>
element_order order_of(const line_batch<T>& b, ptrdiff_t n, bool grid) {
  const int32_t type = folded_type(b.kind);
  const bool mirrored = grid && b.mirrored != (type == 3);
  element_order o = {mirrored ? n : 0, mirrored ? -1 : 1, n, row_order::plain, false};
  if (type >= 4) o.order = row_order::ends;
  if (type == 2 || type == 3) {
    if (grid) return o;
    o.order = row_order::halves;
    o.base = type == 3 ? -1 : 0;
    o.alternating = type == 3;
  }
  return o;
}
// What the results of a transform of scale 1 lack.
template <class T>
T factor_of(const line_batch<T>& b) {
  const int32_t type = folded_type(b.kind);
  if (type < 0 || (type < 4 && b.forward)) return b.scale;
  return T(2) * b.scale;
}

// Where a group of lines stands: of `width` lines from `f` on the first `count` exist.
template <class T>
struct line_group {
  T* f;
  ptrdiff_t step, distance, count;
  T* line(ptrdiff_t i) const { return f + distance * (i < count ? i : count - 1); }
};

// The rows of the tile that hold the elements from range.first on: those of even and of odd distance from it
// have a step and a sign each.
template <class T>
struct row_walk {
  element_range range;
  T *first, *second;
  ptrdiff_t first_step, second_step;
  T first_sign, second_sign;
  row_walk(T* tile, element_range elements, const element_order& o) : range(elements) {
    constexpr ptrdiff_t W = width_of<T>;
    const ptrdiff_t j = elements.first;
    first = tile + W * o.row_of(j);
    second = tile + W * o.row_of(j + 1);
    first_step = W * (o.row_of(j + 2) - o.row_of(j));
    second_step = W * (o.row_of(j + 3) - o.row_of(j + 1));
    first_sign = o.negative(j) ? T(-1) : T(1);
    second_sign = o.negative(j + 1) ? T(-1) : T(1);
  }
  T* row(ptrdiff_t j) const {
    const ptrdiff_t away = j - range.first;
    return away % 2 == 0 ? first + away / 2 * first_step : second + away / 2 * second_step;
  }
  T sign(ptrdiff_t j) const { return (j - range.first) % 2 == 0 ? first_sign : second_sign; }
};

// Squares of contiguous lines, transposed: rows of L elements of the tile against L elements of L lines.
template <class T>
constexpr ptrdiff_t square = lanes_of<T>;

template <class T>
void gather_contiguous(const line_group<T>& g, const row_walk<T>& w) {
  using V = vec<T>;
  constexpr ptrdiff_t L = square<T>, W = width_of<T>;
  const T* line[W];
  for (ptrdiff_t i = 0; i < W; ++i) line[i] = g.line(i);
  ptrdiff_t j = w.range.first;
  T *even = w.first, *odd = w.second;
  for (; j + L - 1 <= w.range.last; j += L) {
    for (ptrdiff_t block = 0; block < W; block += L) {
      V rows[L];
#pragma GCC unroll 16
      for (ptrdiff_t i = 0; i < L; ++i) rows[i] = load<V>(line[block + i] + j);
      transpose_units<1>(rows);
#pragma GCC unroll 16
      for (ptrdiff_t i = 0; i < L; i += 2) {
        store<V>(even + i / 2 * w.first_step + block, rows[i]);
        store<V>(odd + i / 2 * w.second_step + block, rows[i + 1]);
      }
    }
    even += L / 2 * w.first_step;
    odd += L / 2 * w.second_step;
  }
  for (; j <= w.range.last; ++j)
    for (ptrdiff_t i = 0; i < W; ++i) w.row(j)[i] = line[i][j];
}

template <class T>
void scatter_contiguous(const line_group<T>& g, const row_walk<T>& w, T factor) {
  using V = vec<T>;
  constexpr ptrdiff_t L = square<T>;
  const T even_factor = w.first_sign * factor, odd_factor = w.second_sign * factor;
  ptrdiff_t j = w.range.first;
  const T *even = w.first, *odd = w.second;
  for (; j + L - 1 <= w.range.last; j += L) {
    for (ptrdiff_t block = 0; block < g.count; block += L) {
      V rows[L];
#pragma GCC unroll 16
      for (ptrdiff_t i = 0; i < L; i += 2) {
        rows[i] = even_factor * load<V>(even + i / 2 * w.first_step + block);
        rows[i + 1] = odd_factor * load<V>(odd + i / 2 * w.second_step + block);
      }
      transpose_units<1>(rows);
      const ptrdiff_t here = g.count - block < L ? g.count - block : L;
#pragma GCC unroll 16
      for (ptrdiff_t i = 0; i < L; ++i)
        if (i < here) store<V>(g.line(block + i) + j, rows[i]);
    }
    even += L / 2 * w.first_step;
    odd += L / 2 * w.second_step;
  }
  for (; j <= w.range.last; ++j)
    for (ptrdiff_t i = 0; i < g.count; ++i) g.line(i)[j] = w.sign(j) * factor * w.row(j)[i];
}

// Lines one element apart: a row of the tile is a row of memory.
template <class T>
void gather_rows(const line_group<T>& g, const row_walk<T>& w) {
  using V = vec<T>;
  constexpr ptrdiff_t W = width_of<T>;
  for (ptrdiff_t j = w.range.first; j <= w.range.last; ++j) {
    const T* const from = g.f + g.step * j;
    T* const to = w.row(j);
    if (g.count >= W) {
#pragma GCC unroll 4
      for (ptrdiff_t i = 0; i < W; i += lanes<V>) store<V>(to + i, load<V>(from + i));
    } else {
      for (ptrdiff_t i = 0; i < W; ++i) to[i] = from[i < g.count ? i : g.count - 1];
    }
  }
}
template <class T>
void scatter_rows(const line_group<T>& g, const row_walk<T>& w, T factor) {
  using V = vec<T>;
  constexpr ptrdiff_t W = width_of<T>;
  for (ptrdiff_t j = w.range.first; j <= w.range.last; ++j) {
    T* const to = g.f + g.step * j;
    const T* const from = w.row(j);
    const T signed_factor = w.sign(j) * factor;
    if (g.count >= W) {
#pragma GCC unroll 4
      for (ptrdiff_t i = 0; i < W; i += lanes<V>) store<V>(to + i, signed_factor * load<V>(from + i));
    } else {
      for (ptrdiff_t i = 0; i < g.count; ++i) to[i] = signed_factor * from[i];
    }
  }
}

template <class T>
void gather_any(const line_group<T>& g, const row_walk<T>& w) {
  for (ptrdiff_t j = w.range.first; j <= w.range.last; ++j)
    for (ptrdiff_t i = 0; i < width_of<T>; ++i) w.row(j)[i] = g.line(i)[g.step * j];
}
template <class T>
void scatter_any(const line_group<T>& g, const row_walk<T>& w, T factor) {
  for (ptrdiff_t j = w.range.first; j <= w.range.last; ++j)
    for (ptrdiff_t i = 0; i < g.count; ++i) g.line(i)[g.step * j] = w.sign(j) * factor * w.row(j)[i];
}

template <class T>
using gather_fn = void(const line_group<T>&, const row_walk<T>&);
template <class T>
using scatter_fn = void(const line_group<T>&, const row_walk<T>&, T factor);
// How the data stand: contiguous lines, neighbouring lines, others.
template <class T>
constexpr gather_fn<T>* gathers[3] = {gather_contiguous<T>, gather_rows<T>, gather_any<T>};
template <class T>
constexpr scatter_fn<T>* scatters[3] = {scatter_contiguous<T>, scatter_rows<T>, scatter_any<T>};

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

// Transforms without sums. Those that take another number of passes than the discrete transform itself has
// between them leave their rows in the engine's tile.
template <class T>
void run_folded_tile(const dft::real_rows<T>& rows, const line_batch<T>& b, T* tile, T* engine_tile) {
  using V = vec<T>;
  constexpr ptrdiff_t W = width_of<T>;
  const int32_t type = folded_type(b.kind);
  if (type >= 4) return dft::run_turned_rows(rows, b.tables, type == 5, tile, engine_tile);
  const auto from = [](const T* p) { return [p](ptrdiff_t j) { return load<V>(p + W * j); }; };
  const auto into = [](T* p) { return [p](ptrdiff_t j, V v) { store<V>(p + W * j, v); }; };
  if (!b.forward) dft::run_real_rows(rows, dft::forward, tile, engine_tile);
  for (ptrdiff_t g = 0; g < W; g += lanes<V>) {
    if (b.forward)
      spectrum_of_cosines(rows.n, b.tables, 1, from(engine_tile + g), into(tile + g));
    else
      cosines_of_spectrum(rows.n, b.tables, 1, from(tile + g), into(engine_tile + g));
  }
  if (b.forward) dft::run_real_rows(rows, dft::backward, tile, engine_tile);
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

// The sums of eigenvalues over the axes across, for lines `first` on of a batch.
template <class T>
struct line_sums {
  static constexpr ptrdiff_t W = width_of<T>;
  alignas(64) T inner[W], outer[W];
  line_sums(const line_batch<T>& b, ptrdiff_t first) {
    for (ptrdiff_t i = 0; i < W; ++i) {
      const ptrdiff_t line = b.first_line + (first + i < b.count ? first + i : b.count - 1);
      inner[i] = b.over->inner.at(line % b.over->inner_places);
      outer[i] = b.over->outer.at(line / b.over->inner_places);
    }
  }
};

// A tile of results, scaled, over the eigenvalues.
template <class T>
void divide_tile(const line_batch<T>& b, ptrdiff_t n, ptrdiff_t first, T* tile) {
  using V = vec<T>;
  constexpr ptrdiff_t W = width_of<T>;
  const line_sums<T> sums(b, first);
  const bool singular = b.over->singular && b.first_line + first == 0;
  if (singular) tile[0] = T(0);
  for (ptrdiff_t j = 0; j < n; ++j, tile += W)
    for (ptrdiff_t g = 0; g < W; g += lanes<V>) {
      V d = load<V>(sums.inner + g) + (load<V>(sums.outer + g) + broadcast<V>(b.over->along[j]));
      if (singular && j == 0 && g == 0) d[0] = T(1);
      store<V>(tile + g, b.scale * load<V>(tile + g) / d);
    }
}
// The same for lines in memory, which are scaled already.
template <class T>
void divide_lines(const line_batch<T>& b, ptrdiff_t n) {
  for (ptrdiff_t i = 0; i < b.count; ++i) {
    const line_sums<T> sums(b, i);
    const bool singular = b.over->singular && b.first_line + i == 0;
    for (ptrdiff_t j = 0; j < n; ++j) {
      T& at = b.f[b.step * j + b.distance * i];
      at = singular && j == 0 ? T(0) : at / (sums.inner[0] + (sums.outer[0] + b.over->along[j]));
    }
  }
}

template <class T>
void double_row(T* row, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) row[i] = T(2) * row[i];
}
template <class T>
void negate_row(T* row, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) row[i] = -row[i];
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
  const auto walk = [&](bool before) {
    const int32_t type = folded_type(b.kind);
    const bool grid = before == b.forward;
    element_order o = order_of(b, n, grid);
    element_range r = elements_of(b.kind, n);
    // Elements of the transform become elements of memory.
    if (b.mirrored && grid) r = {n - r.last, n - r.first};
    if (downwards) {
      r = {n - r.last, n - r.first};
      o.base += o.direction * n;
      o.direction = -o.direction;
    }
    const bool in_engine_tile = (type == 2 || type == 3) && grid;
    return row_walk<T>(in_engine_tile ? engine_tile : tile, r, o);
  };
  const row_walk<T> from = walk(true), to = walk(false);
  const T factor = b.over == nullptr ? factor_of(b) : T(1);
  for (ptrdiff_t first = 0; first < b.count; first += W) {
    const ptrdiff_t left = b.count - first;
    const line_group<T> g = {f + b.distance * first, step, b.distance, left < W ? left : W};
    gathers<T>[layout](g, from);
    if (b.doubled_first) double_row(tile + W * (b.mirrored ? n : 0), W);
    if (b.doubled_last) double_row(tile + W * (b.mirrored ? 0 : n), W);
    if (b.kind < lines_folded) {
      const int64_t status = run_tile(rows, b, tile, engine_tile);
      if (status != status_done) return status;
      if (b.over != nullptr) {
        divide_tile(b, n, first, tile);
        dft::run_real_rows(rows, dft::backward, tile, engine_tile);
      }
    } else {
      if (b.kind == lines_folded + 3 && !b.forward)
        for (ptrdiff_t row = n / 2; row < n; ++row) negate_row(tile + W * row, W);
      run_folded_tile(rows, b, tile, engine_tile);
    }
    scatters<T>[layout](g, to, factor);
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
    if (b.kind >= lines_folded) {
      if (!run_folded_line(plan,
                           folded_line<T>{folded_type(b.kind), b.forward, b.mirrored, factor_of(b), n, f,
                                          b.step, b.tables, line},
                           work))
        return status_transform_failed;
      continue;
    }
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
  const dft::line_transform* const line = line_of<T>(d, b.kind);
  if (line == nullptr) return status_transform_failed;
  const ptrdiff_t n = d->length;
  const int64_t status = run_one_by_one(*line, b, n, room);
  if (status != status_done || b.over == nullptr) return status;
  divide_lines(b, n);
  line_batch<T> back = b;
  back.forward = false;
  back.scale = T(1);
  return run_one_by_one(*line, back, n, room);
}

template <class T>
int64_t scratch_of_lines(descriptor* d, int32_t kind, bool alone) {
  const rows_plan<T>* const rows = rows_of<T>(d);
  if (rows == nullptr) return 0;
  const int64_t n = d->length;
  if (goes_side_by_side(rows, alone)) return 2 * (n + 1) * boundary;
  const dft::line_transform* const line = line_of<T>(d, kind);
  if (line == nullptr) return 0;
  return rounded_up((n + 2) * int64_t(sizeof(T))) + rounded_up(dft::work_of_line(*line)) + boundary;
}

double sine(double angle) {
  return in_default_modes([angle] { return cosine_and_sine_of(angle).sine; });
}

int64_t pairs_of_folded(int32_t kind, int64_t n) { return folded_pairs(folded_type(kind), n); }
template <class T>
void fill_folded(int32_t kind, int64_t n, T* pairs) {
  in_default_modes([=] {
    fill_folded_pairs(folded_type(kind), n, pairs);
    return 0;
  });
}

template <class T>
constexpr kernel_set<T> set_of = {scratch_of_lines<T>, run_lines<T>, fill_folded<T>, scratch_of_systems<T>,
                                  solve_systems<T>};
constexpr kernel_table table = {kernel_mark, set_of<float>, set_of<double>, sine, pairs_of_folded};

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
