// SPDX-License-Identifier: MIT
// Chains: factors a length, chooses a pass for every factor, fills the tables, and runs the passes between
// the caller's data and work.
#include "dft/engine/passes/chain.h"

#include <cstring>

#include "dft/engine/passes/bodies.h"
#include "dft/engine/plan/memory.h"
#include "dft/engine/roots/root_table.h"
#include "dft/thresholds.h"

namespace zor::dft {
namespace {

// Cost of moving a value through a pass, in additions: what passes are bound by beside their butterflies.
constexpr double moving = 6.0;

struct factors {
  int32_t count;
  int32_t radix[longest_chain];
};

// Cost of a pass of radix r with m columns before it. Lanes that stay empty because the columns are few, or
// because a first pass stores transposed, count as work; vectors have 8 lanes here in any build, for the
// choice must not follow the width.
double pass_cost(int32_t r, int32_t m) {
  const int32_t columns = m == 1 ? r : m;
  const int32_t vectors = (columns + 7) / 8;
  const double waste = double(8 * vectors) / columns - 1.0;
  // Fewer than 8 columns may leave no vector that fits.
  const double narrow = m > 1 && m < 8 ? 3.0 : 0.0;
  return (moving + row_of_radix(r).additions) * (1.0 + (m == 1 ? 0.2 : 1.0) * waste + narrow);
}

// The cheapest passes for the n values left behind m columns. The order of radices matters while the columns
// are few; once they are many, radices are tried in falling order only, from number `from` of the table on.
double cheapest(int32_t n, int32_t m, int from, factors* best) {
  best->count = 0;
  if (n == 1) return 0.0;
  double least = 1e30;
  for (int i = from; i < radix_count; ++i) {
    const int32_t r = radices[i].radix;
    if (n % r != 0) continue;
    factors rest;
    const double cost = pass_cost(r, m) + cheapest(n / r, m * r, m * r < many_columns ? 0 : i, &rest);
    if (cost >= least) continue;
    least = cost;
    best->count = rest.count + 1;
    best->radix[0] = r;
    std::memcpy(best->radix + 1, rest.radix, sizeof(int32_t) * size_t(rest.count));
  }
  return least;
}

// The radices of a batch of transforms of n. Large primes come last, where the columns are many.
void factor(int32_t n, int32_t batch, factors* f) {
  int32_t primes[longest_chain];
  int32_t count = 0;
  int32_t rest = n;
  for (int32_t d = 17; d <= rest && d < largest_generic; d += 2) {
    const bool smooth = d % 3 == 0 || d % 5 == 0 || d % 7 == 0 || d % 11 == 0 || d % 13 == 0;
    while (!smooth && rest % d == 0) {
      primes[count++] = d;
      rest /= d;
    }
  }
  cheapest(rest, batch, 0, f);
  for (int32_t i = 0; i < count; ++i) f->radix[f->count++] = primes[i];
}

// What a vector of pass_lanes(index) costs. Tuned on an AMD Zen 4, whose 64-byte operations go through units
// of 32 bytes, and kept below two halves for processors where they take one.
constexpr int vector_cost(int index) { return index == 0 ? 9 : 5; }

// Index of the pass that takes the least time for `range` lanes: vectors as wide as the range, the last of
// which may overlap the one before. In blocked form their lanes divide the first radix.
template <class R>
int width_for(ptrdiff_t range, int32_t multiple) {
  int best = pass_widths - 1;
  ptrdiff_t least = 0;
  for (int i = 0; i < pass_widths - 1; ++i) {
    const int lanes = pass_lanes<R>(i);
    if (lanes == 1 || lanes > range || multiple % lanes != 0) continue;
    const ptrdiff_t cost = (range + lanes - 1) / lanes * vector_cost(i);
    if (best == pass_widths - 1 || cost < least) best = i, least = cost;
  }
  return best;
}

// Reals of the twiddle table of a pass, and of its angle table.
template <class R>
ptrdiff_t twiddle_size(const pass<R>& p, position at) {
  if (at == position::last) return 0;
  const ptrdiff_t vectors = (p.l + p.lanes - 1) / p.lanes;
  return 2 * (p.radix - 1) * (at == position::first ? vectors * p.lanes : p.l);
}
template <class R>
ptrdiff_t angle_size(const pass<R>& p) {
  return p.radix > largest_radix ? 2 * p.radix : 0;
}

template <class R>
void fill_tables(pass<R>* p, position at, const root_table& roots, R* table) {
  p->twiddles = table;
  if (at != position::last)
    fill_twiddles(roots, int64_t{p->l} * p->radix, p->radix - 1, p->l, at == position::first ? p->lanes : 1,
                  table);
  R* const angles = table + twiddle_size(*p, at);
  p->cosines = angles;
  for (int32_t k = 0; p->radix > largest_radix && k < p->radix; ++k) {
    set_root(angles + 2 * k, root_of_unity(k, p->radix), 1);
    angles[2 * k + 1] = -angles[2 * k + 1];
  }
}

// A batch keeps its transforms side by side, so its passes are all like those behind a first one.
position position_of(int32_t i, int32_t count, ptrdiff_t batch) {
  if (i == count - 1) return position::last;
  return i == 0 && batch == 1 ? position::first : position::middle;
}

template <class R>
void choose_pass(chain<R>* c, pass<R>* p, position at, ptrdiff_t l, ptrdiff_t m, int32_t radix) {
  const int32_t blocked_radix = c->inner == form::blocked ? radix : 0;
  const bool generic_first = at == position::first && radix > largest_radix;
  const int width_index = generic_first           ? pass_widths - 1
                          : at == position::first ? width_for<R>(l, blocked_radix)
                                                  : width_for<R>(m, 0);
  p->radix = radix;
  p->l = l;
  p->m = m;
  p->lanes = pass_lanes<R>(width_index);
  if (at == position::first) p->run = find_first<R>(c->outer, c->inner, radix, width_index);
  if (at == position::middle) p->run = find_middle<R>(c->inner, radix, width_index);
  if (at == position::last) p->run = find_last<R>(c->inner, c->outer, radix, width_index);
  if (at == position::first) c->first_inner = find_first<R>(c->inner, c->inner, radix, width_index);
  if (at == position::last) c->last_inner = find_last<R>(c->inner, c->inner, radix, width_index);
}

template <class R>
ptrdiff_t table_size(const pass<R>& p, position at) {
  return (twiddle_size(p, at) + angle_size(p) + 15) / 16 * 16;
}

// Chooses the passes and finds room for their tables. False when memory is short.
template <class R>
bool lay_out_passes(chain<R>* c, const factors& f, int32_t batch) {
  c->count = f.count;
  ptrdiff_t size = 0;
  ptrdiff_t m = batch, l = c->n / batch;
  for (int32_t i = 0; i < f.count; ++i) {
    l /= f.radix[i];
    const position at = position_of(i, f.count, batch);
    choose_pass(c, &c->passes[i], at, l, m, f.radix[i]);
    size += table_size(c->passes[i], at);
    m *= f.radix[i];
  }
  c->tables = static_cast<R*>(engine_allocate_unfilled(uint64_t(size) * sizeof(R)));
  return c->tables != nullptr;
}

template <class R>
void fill_passes(chain<R>* c, int32_t batch, const root_table& roots) {
  R* table = c->tables;
  for (int32_t i = 0; i < c->count; ++i) {
    const position at = position_of(i, c->count, batch);
    fill_tables(&c->passes[i], at, roots, table);
    table += table_size(c->passes[i], at);
  }
}

template <class R, form F, int... N>
pass_run<R> straight_of(int32_t n, std::integer_sequence<int, N...>) {
  pass_run<R> found = nullptr;
  ((n == N + 1 ? void(found = straight_pass<R, N + 1, F>) : void()), ...);
  if (n == 32) found = straight_pass<R, 32, F>;
  return found;
}

// The radices of a chain in order; 0 of them where a column form does not exist.
template <class R>
int32_t radices_of(const chain<R>& c, int32_t* radix) {
  if (c.n < 2 || c.n > longest_column || c.count > most_column_passes) return 0;
  if (c.count == 0 && find_two_passes<R>(c.n) != nullptr) {
    radix[0] = first_of_two(c.n);
    radix[1] = c.n / radix[0];
    return 2;
  }
  if (c.count == 0) {
    radix[0] = c.n;
    return 1;
  }
  for (int32_t i = 0; i < c.count; ++i) {
    radix[i] = c.passes[i].radix;
    if (radix[i] > largest_radix) return 0;
  }
  return c.count;
}

// Adds the column form of these radices. False when memory is short.
template <class R>
bool add_columns(chain<R>* c, const int32_t* radix, int32_t count, const root_table& roots) {
  char* memory = static_cast<char*>(engine_allocate(uint64_t(column_plan_bytes(c->n, sizeof(R)))));
  if (memory == nullptr) return false;
  c->columns = make_columns<R>(&memory, radix, count, form::interleaved, lanes_of<R>, roots);
  return true;
}

template <class R>
bool same_data(const pass_data<R>& d) {
  return d.x_re == d.y_re ||
         (d.x_im != nullptr && (d.x_im == d.y_im || d.x_re == d.y_im || d.x_im == d.y_re));
}

// Two passes or more; `first` and `final` are the first and the last one in the forms that the caller needs.
// Results alternate between work and y so that the last pass ends in y. With an odd number of passes y comes
// first. When y is also the input, the last pass runs in place, if its form and its vectors allow that, and
// otherwise the input is copied to work before.
template <class R>
void run_passes(const chain<R>& c, const pass_data<R>& ends, R* work, pass_run<R> first, pass_run<R> final) {
  bool to_work = c.count % 2 == 0;
  pass_data<R> d = ends;
  R* const work_im = work + c.n;
  R* const y_im = c.outer == form::split ? ends.y_im : ends.y_re + c.n;
  if (!to_work && same_data(ends)) {
    const pass<R>& p = c.passes[c.count - 1];
    if (c.inner == form::blocked || (c.outer == form::split && p.m % p.lanes == 0)) {
      to_work = true;
    } else {
      const size_t bytes = sizeof(R) * size_t(c.n);
      std::memcpy(work, ends.x_re, c.outer == form::split ? bytes : 2 * bytes);
      if (c.outer == form::split) std::memcpy(work_im, ends.x_im, bytes);
      d.x_re = work;
      d.x_im = work_im;
    }
  }
  for (int32_t i = 0; i < c.count; ++i) {
    const bool last = i == c.count - 1;
    d.y_re = to_work && !last ? work : ends.y_re;
    d.y_im = to_work && !last ? work_im : last ? ends.y_im : y_im;
    (i == 0 ? first : last ? final : c.passes[i].run)(d, c.passes[i]);
    d.x_re = d.y_re;
    d.x_im = d.y_im;
    to_work = !to_work;
  }
}

// Passes whose results alternate between work and y, the last one ending wherever that leads.
template <class R>
void run_alternating(const chain<R>& c, pass_data<R> d, R* y, R* work, bool to_work, pass_run<R> first,
                     pass_run<R> final) {
  for (int32_t i = 0; i < c.count; ++i, to_work = !to_work) {
    d.y_re = to_work ? work : y;
    d.y_im = d.y_re + c.n;
    (i == 0 ? first : i == c.count - 1 ? final : c.passes[i].run)(d, c.passes[i]);
    d.x_re = d.y_re;
    d.x_im = d.y_im;
  }
}

}  // namespace

template <class R>
pass_run<R> find_straight(int32_t n, form outer) {
  using lengths = std::make_integer_sequence<int, 16>;
  return outer == form::split ? straight_of<R, form::split>(n, lengths())
                              : straight_of<R, form::interleaved>(n, lengths());
}

template <class R>
bool chain_build(chain<R>* c, int32_t n, form outer, bool columns) {
  std::memset(c, 0, sizeof *c);
  c->n = n;
  c->outer = outer;
  if (outer == form::interleaved) c->passes[0].run = find_two_passes<R>(n);
  if (c->passes[0].run == nullptr) c->passes[0].run = find_straight<R>(n, outer);
  const bool whole = c->passes[0].run != nullptr;
  const bool two = (n & (n - 1)) == 0;
  c->inner = two && outer == form::interleaved ? form::blocked : form::split;
  if (!whole) {
    factors f;
    if (two)
      f.count = radices_of_order(31 - __builtin_clz(uint32_t(n)), f.radix);
    else
      factor(n, 1, &f);
    if (!lay_out_passes(c, f, 1)) return false;
  }
  int32_t radix[most_column_passes];
  const int32_t column_passes = columns ? radices_of(*c, radix) : 0;
  if (whole && column_passes == 0) return true;
  root_table roots;
  if (!roots_build(&roots, n)) return false;
  fill_passes(c, 1, roots);
  const bool built = column_passes == 0 || add_columns(c, radix, column_passes, roots);
  roots_free(&roots);
  return built;
}

template <class R>
bool chain_build_batch(chain<R>* c, int32_t length, int32_t batch) {
  std::memset(c, 0, sizeof *c);
  c->n = length * batch;
  c->outer = c->inner = form::split;
  factors f;
  factor(length, batch, &f);
  root_table roots;
  if (!lay_out_passes(c, f, batch) || !roots_build(&roots, length)) return false;
  fill_passes(c, batch, roots);
  roots_free(&roots);
  return true;
}

template <class R>
void chain_run_batch(const chain<R>& c, R* a_re, R* a_im, R* b_re, R* b_im) {
  pass_data<R> d{a_re, a_im, b_re, b_im, R(1), R(1), R(1)};
  for (int32_t i = 0; i < c.count; ++i) {
    c.passes[i].run(d, c.passes[i]);
    const bool in_b = i % 2 == 0;
    d.x_re = in_b ? b_re : a_re;
    d.x_im = in_b ? b_im : a_im;
    d.y_re = in_b ? a_re : b_re;
    d.y_im = in_b ? a_im : b_im;
  }
}

template <class R>
void chain_free(chain<R>* c) {
  engine_free(c->tables);
  engine_free(c->columns);
  c->tables = nullptr;
  c->columns = nullptr;
}

template <class R>
void chain_run(const chain<R>& c, const pass_data<R>& ends, R* work) {
  if (c.count == 0) {
    c.passes[0].run(ends, c.passes[0]);
    return;
  }
  run_passes(c, ends, work, c.passes[0].run, c.passes[c.count - 1].run);
  if (c.outer == form::split && ends.scale_re != R(1)) {
    for (ptrdiff_t i = 0; i < c.n; ++i) {
      ends.y_re[i] *= ends.scale_re;
      ends.y_im[i] *= ends.scale_re;
    }
  }
}

template <class R>
R* inner_place(const chain<R>& c, R* y, R* work, bool forward) {
  return c.inner == form::blocked || (!forward && c.count % 2 == 0) ? y : work;
}

template <class R>
void chain_to_inner(const chain<R>& c, const R* x, R* y, R* work) {
  pass_data<R> d{x, nullptr, y, nullptr, R(1), R(1), R(1)};
  if (c.inner == form::blocked)
    run_passes(c, d, work, c.passes[0].run, c.last_inner);
  else
    run_alternating(c, d, y, work, c.count % 2 == 1, c.passes[0].run, c.last_inner);
}

template <class R>
void chain_from_inner(const chain<R>& c, R* y, R scale_re, R scale_im, R* work) {
  R* const from = inner_place(c, y, work, false);
  pass_data<R> d{from, from + c.n, y, nullptr, R(1), scale_re, scale_im};
  if (c.inner == form::blocked)
    run_passes(c, d, work, c.first_inner, c.passes[c.count - 1].run);
  else
    run_alternating(c, d, y, work, c.count % 2 == 0, c.first_inner, c.passes[c.count - 1].run);
}

#define ZOR_INSTANCES(R)                                              \
  template pass_run<R> find_straight<R>(int32_t, form);               \
  template bool chain_build<R>(chain<R>*, int32_t, form, bool);       \
  template bool chain_build_batch<R>(chain<R>*, int32_t, int32_t);    \
  template R* inner_place<R>(const chain<R>&, R*, R*, bool);          \
  template void chain_to_inner<R>(const chain<R>&, const R*, R*, R*); \
  template void chain_from_inner<R>(const chain<R>&, R*, R, R, R*);   \
  template void chain_run_batch<R>(const chain<R>&, R*, R*, R*, R*);  \
  template void chain_free<R>(chain<R>*);                             \
  template void chain_run<R>(const chain<R>&, const pass_data<R>&, R*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
