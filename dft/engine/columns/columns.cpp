// SPDX-License-Identifier: MIT
// Plans of columns: twiddles, the order of results, and the calls of their passes.
#include "dft/engine/columns/columns.h"

#include "dft/engine/plan/memory.h"
#include "dft/engine/roots/root_table.h"

namespace zor::dft {

// The record, fewer twiddles than values, the two orders of rows, and the room that each array may leave to
// the next boundary.
int64_t column_plan_bytes(int32_t length, int32_t real_bytes) {
  constexpr int64_t orders = 2 * sizeof(int32_t), arrays = most_column_passes + 3;
  return column_record_bytes + length * (2 * real_bytes + orders) + plan_boundary * arrays;
}

int32_t radices_of_order(int32_t order, int32_t* radix) {
  const int32_t count = (order + 3) / 4;
  for (int32_t i = 0; i < count; ++i) radix[i] = i < order - 3 * count ? 16 : 8;
  return count;
}

template <class R>
column_plan<R>* make_columns(char** memory, const int32_t* radix, int32_t count, form outer, int32_t lanes,
                             const root_table& roots) {
  static_assert(sizeof(column_plan<R>) <= column_record_bytes);
  auto* p = take<column_plan<R>>(memory, 1);
  p->count = count;
  p->length = 1;
  for (int32_t i = 0; i < count; ++i) p->length *= radix[i];
  ptrdiff_t span = p->length;
  for (int32_t i = 0; i < count; ++i) {
    const int32_t r = p->radix[i] = radix[i];
    const int64_t n = span;
    span /= r;
    p->passes[i] = find_column_set<R>(outer, r, lanes);
    if (i == count - 1) break;
    R* w = take<R>(memory, 2 * (r - 1) * span);
    p->twiddles[i] = w;
    fill_twiddles(roots, n, r - 1, span, 1, w);
  }
  const int32_t last = radix[count - 1], blocks = p->length / last;
  int32_t* frequency = take<int32_t>(memory, blocks);
  int32_t* place = take<int32_t>(memory, p->length);
  for (int32_t b = 0; b < blocks; ++b) {
    int32_t rest = b, k = 0, weight = blocks;
    for (int32_t i = count - 2; i >= 0; --i) {
      weight /= radix[i];
      k += rest % radix[i] * weight;
      rest /= radix[i];
    }
    frequency[b] = k;
    for (int32_t s = 0; s < last; ++s) place[k + blocks * s] = b * last + s;
  }
  p->frequency = frequency;
  p->place = place;
  return p;
}

// True for rows that lie pages apart and together pass the second cache. Those of one butterfly share few
// cache sets and come from memory out of order, so that each butterfly waits for its own. Fetching all rows
// in order before pays once a row is more than one cache line.
template <class R>
bool rows_in_order_first(const column_call<R>& c) {
  constexpr ptrdiff_t value = 2 * sizeof(R);
  const ptrdiff_t step = c.row_low_step * value;
  return step % page == 0 && step * c.rows > rows_in_order_above && c.columns * value > cache_line;
}

template <class R>
void fill_tile(const column_plan<R>& p, column_call<R>* c) {
  c->span = p.length / p.radix[0];
  c->blocks = 1;
  c->twiddles = p.twiddles[0];
  c->rows = p.length;
  if (rows_in_order_first(*c)) {
    p.passes[0].copy(*c);
    p.passes[0].middle(*c);
  } else {
    p.passes[0].gather(*c);
  }
  for (int32_t i = 1; i < p.count; ++i) {
    c->blocks *= p.radix[i - 1];
    c->span /= p.radix[i];
    c->twiddles = p.twiddles[i];
    if (i < p.count - 1) p.passes[i].middle(*c);
  }
  c->frequency = p.frequency;
}

template <class R>
void run_column_lines(const column_plan<R>& p, const column_lines<R>& d, R* tile) {
  column_call<R> c{};
  c.tile = tile;
  c.columns = columns_together<R>;
  c.x_re = d.x;
  c.y_re = d.y;
  c.row_low_mask = -1;
  c.row_low_step = d.x_stride;
  c.out_step = d.y_stride;
  c.sign = d.sign;
  c.scale_re = d.scale_re;
  c.scale_im = d.scale_im;
  for (ptrdiff_t b = 0; b < d.blocks; ++b) {
    c.start = c.out_start = b * columns_together<R>;
    if (p.count == 1) {
      p.passes[0].whole(c);
    } else {
      fill_tile(p, &c);
      p.passes[p.count - 1].scatter(c);
    }
  }
}

#define ZOR_INSTANCES(R)                                                                   \
  template column_plan<R>* make_columns<R>(char**, const int32_t*, int32_t, form, int32_t, \
                                           const root_table&);                             \
  template void fill_tile<R>(const column_plan<R>&, column_call<R>*);                      \
  template void run_column_lines<R>(const column_plan<R>&, const column_lines<R>&, R*);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::dft
