// SPDX-License-Identifier: MIT
// Plans of tiles, and their runs. Dimensions are taken one after the other, the slowest first; the last radix
// of dimension 0 is that of the leaves.
#include <numeric>

#include "conv/tiles/passes.h"
#include "dft/engine/passes/radices.h"
#include "dft/engine/roots/root_table.h"
#include "serv/control.h"
#include "serv/vec.h"

namespace zor::conv {
namespace {

// Blocks that take more bytes are worked through one after the other, there and back, so that each stays in
// cache. Measured.
constexpr zor_int near_bytes = 1 << 17;

// Cost of moving a value through a pass, in additions.
constexpr double moving = 6;

struct factors {
  int count;
  int32_t radix[most_tile_passes];
};

// The cheapest passes for n values, radices from number `from` of the table on; the cost is infinite for
// other prime factors.
double cheapest(zor_int n, int from, factors* best) {
  best->count = 0;
  if (n == 1) return 0;
  double least = __builtin_inf();
  for (int i = from; i < tile_radix_count; ++i) {
    const int32_t r = tile_radices[i];
    if (n % r != 0) continue;
    factors rest;
    const double cost = moving + dft::row_of_radix(r).additions + cheapest(n / r, i, &rest);
    if (cost >= least) continue;
    least = cost;
    best->count = rest.count + 1;
    best->radix[0] = r;
    for (int k = 0; k < rest.count; ++k) best->radix[k + 1] = rest.radix[k];
  }
  return least;
}

// One dimension: its complex values, and those from one to the next. Its values are taken modulo X^length - w
// with w = exp(-2 pi i start / (4 length)): start is 3 length, and w the imaginary unit, where reals were
// folded, else 0.
struct dimension {
  zor_int length, step, start;
  factors radices;

  dimension(const tile_shape& s, int d) {
    const bool folded = !s.complex && d == s.dims - 1;
    length = folded ? s.lengths[d] / 2 : s.lengths[d];
    start = folded ? 3 * length : 0;
    step = 1;
    for (int i = 0; i < d; ++i) step *= s.lengths[i];
    cheapest(d == 0 ? length / leaf_radix : length, 0, &radices);
  }
  // The same numerator for a block behind so many passes.
  zor_int numerator(int passes, zor_int block) const {
    zor_int blocks = 1, n = start;
    for (int i = 0; i < passes; ++i) blocks *= radices.radix[i];
    for (int i = 0; i < passes; ++i) {
      blocks /= radices.radix[i];
      n = (n + 4 * length * (block / blocks % radices.radix[i])) / radices.radix[i];
    }
    return n;
  }
  bool is_plain(int pass) const { return pass == 0 && start == 0; }
};

zor_int groups_of_leaves(zor_int blocks, zor_int lanes) { return std::lcm(blocks, lanes) / lanes; }

// Powers 1 to radix - 1 of the root that block `block` behind so many passes is multiplied by.
template <class R>
void fill_powers(const dimension& d, const dft::root_table& roots, int passes, zor_int block, int32_t radix,
                 R* w, zor_int step, zor_int im) {
  const zor_int root = d.numerator(passes, block) / radix;
  for (int32_t s = 1; s < radix; ++s, w += step) dft::set_root(w, dft::root_at(roots, s * root), im);
}

template <class R>
bool fill_dimension(const dimension& d, bool contiguous, const tile_pass<R>* passes, const tile_plan<R>& p) {
  dft::root_table roots;
  if (!dft::roots_build(&roots, 4 * d.length)) return false;
  for (int i = 0; i < d.radices.count; ++i) {
    const int32_t r = passes[i].radix;
    if (d.is_plain(i)) continue;
    for (zor_int b = 0; b < passes[i].blocks; ++b)
      fill_powers(d, roots, i, b, r, passes[i].twiddles + b * 2 * (r - 1), 2, 1);
  }
  constexpr zor_int W = lanes_of<R>;
  if (contiguous)
    for (zor_int b = 0; b < p.leaf_groups * W; ++b)
      fill_powers(d, roots, d.radices.count, b % (d.length / leaf_radix), leaf_radix,
                  p.leaf + b / W * (2 * (leaf_radix - 1) * W) + b % W, 2 * W, W);
  dft::roots_free(&roots);
  return true;
}

// Passes without their multipliers; the reals that those take.
template <class R>
zor_int lay_out(const tile_shape& s, tile_plan<R>* p) {
  p->points = s.points();
  p->gap = has_gap(s) ? work_gap<R> : 0;
  p->line = s.dims > 1 ? s.lengths[0] : s.points();
  p->in_place = s.in_place;
  p->paired = s.complex && !s.in_place;
  zor_int reals = 0;
  for (int i = s.dims; i-- > 0;) {
    const dimension d(s, i);
    zor_int blocks = 1;
    for (int k = 0; k < d.radices.count; ++k) {
      tile_pass<R>& pass = p->passes[p->count++];
      const tile_pass_set<R> set = find_tile_passes<R>(d.radices.radix[k]);
      pass = {d.radices.radix[k], d.length * d.step, blocks, nullptr, set.forward, set.backward};
      blocks *= pass.radix;
      pass.span /= blocks;
      if (d.is_plain(k)) {
        pass.forward = set.plain_forward;
        pass.backward = set.plain_backward;
      } else {
        reals += pass.blocks * 2 * (pass.radix - 1);
      }
      if (p->count == 1) {
        p->spread = p->paired ? set.spread : pass.forward;
        p->join = p->paired ? set.join : pass.backward;
      }
    }
    if (i == 0) p->leaf_groups = groups_of_leaves(d.length / leaf_radix, lanes_of<R>);
  }
  p->columns = p->passes[0].span;
  p->pieces = p->columns % leaf_group == 0 ? p->passes[0].radix : 1;
  return reals;
}

template <class R>
bool fill(const tile_shape& s, zor_int reals, tile_plan<R>* p) {
  const zor_int leaf = p->leaf_groups * 2 * (leaf_radix - 1) * lanes_of<R>;
  p->memory = static_cast<R*>(dft::engine_allocate_unfilled(uint64_t(leaf + reals) * sizeof(R)));
  if (p->memory == nullptr) return false;
  p->leaf = p->memory;
  R* next = p->memory + leaf;
  int pass = 0;
  for (int i = s.dims; i-- > 0;) {
    const dimension d(s, i);
    tile_pass<R>* const passes = p->passes + pass;
    for (int k = 0; k < d.radices.count; ++k, ++pass) {
      if (d.is_plain(k)) continue;
      passes[k].twiddles = next;
      next += passes[k].blocks * 2 * (passes[k].radix - 1);
    }
    if (!in_default_modes([&] { return fill_dimension(d, i == 0, passes, *p); })) return false;
  }
  return true;
}

template <class R>
void release(tile_plan<R>* p) {
  if (p != nullptr) dft::engine_free(p->memory);
  dft::engine_free(p);
}

template <class R>
tile_plan<R>* make(const tile_shape& s) {
  auto* const p = static_cast<tile_plan<R>*>(dft::engine_allocate(sizeof(tile_plan<R>)));
  if (p == nullptr) return nullptr;
  const zor_int reals = lay_out(s, p);
  if (fill(s, reals, p)) return p;
  release(p);
  return nullptr;
}

template <class R>
R* work_im(const tile_plan<R>& p, R* work) {
  return work + p.points + p.gap;
}
template <class R>
const R* work_im(const tile_plan<R>& p, const R* work) {
  return work + p.points + p.gap;
}

// The second part of a box that is not interleaved.
template <class R>
zor_int box_im(const tile_plan<R>& p) {
  return p.in_place ? p.points + p.gap : p.points;
}

// A pass in place over a box whose columns from `width` on are zero: passes across lines leave these as they
// are.
template <class R>
void run_columns(const tile_plan<R>& p, tile_run<R> run, const tile_pass<R>& pass, tile_range<R> range,
                 zor_int width) {
  if (pass.span < p.line || width >= p.line) return run(pass, range);
  const zor_int begin = range.begin, end = range.end;
  for (zor_int row = begin / p.line * p.line; row < end; row += p.line) {
    range.begin = row < begin ? begin : row;
    range.end = row + width < end ? row + width : end;
    if (range.begin < range.end) run(pass, range);
  }
}

template <class R>
void spread(const tile_plan<R>& p, zor_int begin, zor_int end, zor_int width, const R* box, R* work) {
  run_columns(p, p.spread, p.passes[0], {box, box + box_im(p), work, work_im(p, work), 0, 1, begin, end},
              width);
}
template <class R>
void join(const tile_plan<R>& p, zor_int begin, zor_int end, const R* work, R* box) {
  R *const re = box, *const im = box + box_im(p);
  // Interleaved values are put in their places by the pass.
  p.join(p.passes[0], {work_im(p, work), work, p.paired ? re : im, re, 0, 1, begin, end});
}

// Blocks first to first + count - 1 of pass number `pass`, through the leaves and, with Back, back.
template <bool Back, class R, class Leaves>
void descend(const tile_plan<R>& p, int pass, zor_int first, zor_int count, zor_int width, R* work,
             const Leaves& leaves) {
  if (pass == p.count) return leaves(first, count);
  const tile_pass<R>& own = p.passes[pass];
  const zor_int length = own.radix * own.span;
  if (count > 1 && length % leaf_group == 0 && count * length * zor_int(2 * sizeof(R)) > near_bytes) {
    for (zor_int b = first; b < first + count; ++b) descend<Back>(p, pass, b, 1, width, work, leaves);
    return;
  }
  R *const re = work, *const im = work_im(p, work);
  run_columns(p, own.forward, own, {re, im, re, im, first, count, 0, own.span}, width);
  descend<Back>(p, pass + 1, first * own.radix, count * own.radix, width, work, leaves);
  if constexpr (Back) own.backward(own, {im, re, im, re, first, count, 0, own.span});
}

template <bool Back, class R, class Leaves>
void run_pieces(const tile_plan<R>& p, zor_int begin, zor_int end, zor_int width, R* work,
                const Leaves& leaves) {
  const zor_int each = p.passes[0].radix / p.pieces;
  descend<Back>(p, 1, begin * each, (end - begin) * each, width, work, leaves);
}
template <class R>
void transform(const tile_plan<R>& p, zor_int begin, zor_int end, zor_int width, R* work, R* spectrum) {
  run_pieces<false>(p, begin, end, width, work, [&](zor_int first, zor_int count) {
    transform_leaves(p, first, count, work, work_im(p, work), spectrum);
  });
}
template <class R>
void multiply(const tile_plan<R>& p, zor_int begin, zor_int end, zor_int width, const R* spectrum, R* work) {
  run_pieces<true>(p, begin, end, width, work, [&](zor_int first, zor_int count) {
    multiply_leaves(p, first, count, spectrum, work, work_im(p, work));
  });
}

template <class R>
constexpr tile_kernels<R> kernels_of = {make<R>,     release<R>, spread<R>,        transform<R>,
                                        multiply<R>, join<R>,    copy_to_parts<R>, copy_to_pairs<R>};

}  // namespace

constexpr tile_table tiles = {kernels_of<float>, kernels_of<double>};

}  // namespace zor::conv
