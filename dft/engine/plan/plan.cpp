// SPDX-License-Identifier: MIT
// Plans of the eight flavours, which are one template over real type and layout: build, runs, release, and
// the formats of a real spectrum.
#include <cmath>
#include <cstring>

#include "dft/engine/passes/unordered.h"
#include "dft/engine/plan/memory.h"
#include "dft/engine/plan/plan.h"
#include "dft/engine/plan/select.h"
#include "dft/engine/real/real.h"
#include "dft/thresholds.h"
#include "serv/control.h"

namespace zor::dft {

// One of the three is filled, as the plan's flavour and length ask for.
template <class R>
struct flavour_tables {
  transform<R> complex;
  real_transform<R> real;
  unordered_chain<R> rows;
};
struct plan_tables {
  flavour_tables<float> s;
  flavour_tables<double> d;
};

namespace {

enum class layout { interleaved, split, real };

template <class R>
flavour_tables<R>& tables_of(plan_tables* t) {
  if constexpr (sizeof(R) == sizeof(float))
    return t->s;
  else
    return t->d;
}

template <class R, layout L>
bool build_tables(plan* p, const selection& s) {
  flavour_tables<R>& t = tables_of<R>(p->tables);
  if (L == layout::real) return real_build(&t.real, p->length, s);
  if (p->unordered) return unordered_build(&t.rows, p->length);
  const bool split = L == layout::split;
  return transform_build(&t.complex, p->length, s, split ? form::split : form::interleaved, !split);
}

template <class R, layout L>
void free_tables(plan* p) {
  flavour_tables<R>& t = tables_of<R>(p->tables);
  if (L == layout::real)
    real_free(&t.real);
  else if (p->unordered)
    unordered_free(&t.rows);
  else
    transform_free(&t.complex);
}

void set_scale(plan* p, int32_t flag) {
  p->scale_forward = flag == scale_forward_n || flag == scale_both_root;
  p->scale_backward = flag == scale_backward_n || flag == scale_both_root;
  p->scale = 1.0;
  if (flag == scale_both_root)
    p->scale = 1.0 / std::sqrt(double(p->length));
  else if (flag != scale_none)
    p->scale = 1.0 / double(p->length);
}

template <class R, layout L, int32_t Kind>
int32_t build(plan** out, int32_t n, int32_t flag, int32_t hint) {
  if (out == nullptr) return engine_null;
  if (n < 1) return engine_bad_size;
  if (flag != scale_none && flag != scale_forward_n && flag != scale_backward_n && flag != scale_both_root)
    return engine_bad_flag;
  selection s;
  const bool unordered = Kind == kind_c_unordered || Kind == kind_z_unordered;
  const int32_t code =
      L == layout::real ? select_real(n, 2 * sizeof(R), &s) : select_complex(n, 2 * sizeof(R), unordered, &s);
  if (code != engine_done) return code;
  // Record and tables in one block.
  const size_t record = round_to_boundary(sizeof(plan));
  auto* p = static_cast<plan*>(engine_allocate(record + sizeof(plan_tables)));
  if (p == nullptr) return engine_no_memory;
  p->tables = reinterpret_cast<plan_tables*>(reinterpret_cast<char*>(p) + record);
  p->kind = Kind;
  p->length = n;
  p->hint = hint;
  p->work_size = int32_t(s.work);
  p->power_of_two = n >= least_planned_power && (n & (n - 1)) == 0;
  p->mixed = s.how == method::mixed;
  p->unordered = unordered && p->mixed && n > unordered_above;
  p->odd_real = L == layout::real && n % 2 == 1 && p->mixed;
  p->conv_length = s.conv_length;
  // In modes of their own: a plan is the same whatever the modes of the caller.
  const bool built = in_default_modes([=, &s] {
    set_scale(p, flag);
    return build_tables<R, L>(p, s);
  });
  if (!built) {
    engine_free(p);
    return engine_no_memory;
  }
  *out = p;
  return engine_done;
}

template <int32_t Kind>
int32_t work_size(const plan* p, int32_t* size) {
  if (p == nullptr || size == nullptr) return engine_null;
  if (p->kind != Kind) return engine_bad_kind;
  *size = p->work_size;
  return engine_done;
}

template <class R, layout L, int32_t Kind>
int32_t release(plan* p) {
  if (p == nullptr) return engine_null;
  if (p->kind != Kind) return engine_bad_kind;
  free_tables<R, L>(p);
  p->kind = 0;
  engine_free(p);
  return engine_done;
}

template <class R, layout L>
pass_data<R> ends_of(const void* in, void* out, direction d, R scale) {
  const R sign = d == forward ? R(1) : R(-1);
  if (L == layout::split) {
    const auto* x = static_cast<const split_pair<R>*>(in);
    const auto* y = static_cast<const split_pair<R>*>(out);
    if (d == backward) return {x->im, x->re, y->im, y->re, R(1), scale, scale};
    return {x->re, x->im, y->re, y->im, R(1), scale, scale};
  }
  return {static_cast<const R*>(in), nullptr, static_cast<R*>(out), nullptr, sign, scale, sign * scale};
}

template <class R, layout L>
void run_tables(const plan& p, const void* in, R end, void* out, direction d, R scale, R* work) {
  const flavour_tables<R>& t = tables_of<R>(p.tables);
  if (L == layout::real || p.unordered) {
    const R* x = static_cast<const R*>(in);
    R* y = static_cast<R*>(out);
    if (L == layout::real && d == forward)
      real_forward(t.real, x, y, scale, work);
    else if (L == layout::real)
      real_backward(t.real, x, end, y, scale, work);
    else if (d == forward)
      unordered_forward(t.rows, x, y, scale);
    else
      unordered_backward(t.rows, x, y, scale);
  } else {
    transform_run(t.complex, ends_of<R, L>(in, out, d, scale), work);
  }
}

// Work begins on a boundary of 32 bytes. The sizes leave room for that, but those of powers of two, which
// need none.
void* align_work(const plan& p, void* work) {
  if (p.power_of_two) return work;
  return reinterpret_cast<void*>((reinterpret_cast<uintptr_t>(work) + 31) / 32 * 32);
}

// F says where a real spectrum of even length keeps its last value when it is read.
template <class R, layout L, int32_t Kind, direction D, real_format F = real_second>
int32_t run(const void* in, void* out, const plan* p, void* work) {
  if (in == nullptr || out == nullptr || p == nullptr) return engine_null;
  if (p->kind != Kind) return engine_bad_kind;
  void* own = nullptr;
  if (work == nullptr && p->work_size > 0) {
    work = own = engine_allocate(uint64_t(p->work_size));
    if (own == nullptr) return engine_no_memory;
  }
  const bool scaled = D == forward ? p->scale_forward : p->scale_backward;
  R end{};
  if (L == layout::real && D == backward && p->length > 1)
    end = static_cast<const R*>(in)[F == real_padded ? p->length : 1];
  run_tables<R, L>(*p, in, end, out, D, scaled ? R(p->scale) : R(1), static_cast<R*>(align_work(*p, work)));
  engine_free(own);
  return engine_done;
}

template <class R>
const column_plan<R>* columns_of(const plan* p) {
  return p->unordered ? nullptr : transform_columns(tables_of<R>(p->tables).complex);
}

template <class R>
column_block block(const plan* p) {
  if (columns_of<R>(p) == nullptr) return {0, 0};
  return {int32_t(columns_together<R>), int64_t{p->length} * columns_together<R> * 2 * int64_t{sizeof(R)}};
}

template <class R>
void run_columns(const line_data& d, const plan* p, void* tile) {
  const R scale = R(d.factor), sign = d.way == forward ? R(1) : R(-1);
  run_column_lines(*columns_of<R>(p),
                   column_lines<R>{static_cast<const R*>(d.in), static_cast<R*>(d.out), d.in_step, d.out_step,
                                   d.count / columns_together<R>, sign, scale, sign * scale},
                   static_cast<R*>(tile));
}

template <class R>
void run_lines(const line_data& d, const plan* p, void* work) {
  const transform<R>& t = tables_of<R>(p->tables).complex;
  const R scale = R(d.factor), sign = d.way == forward ? R(1) : R(-1);
  R* const room = static_cast<R*>(align_work(*p, work));
  const R* x = static_cast<const R*>(d.in);
  R* y = static_cast<R*>(d.out);
  for (ptrdiff_t i = 0; i < d.count; ++i, x += 2 * d.in_step, y += 2 * d.out_step)
    transform_run(t, pass_data<R>{x, nullptr, y, nullptr, sign, scale, sign * scale}, room);
}

template <class R, layout L, int32_t Kind>
constexpr engine make_engine() {
  constexpr bool interleaved = L == layout::interleaved;
  return {Kind,
          build<R, L, Kind>,
          work_size<Kind>,
          run<R, L, Kind, forward>,
          run<R, L, Kind, backward>,
          release<R, L, Kind>,
          interleaved ? block<R> : nullptr,
          interleaved ? run_columns<R> : nullptr,
          interleaved ? run_lines<R> : nullptr};
}

// Moves the spectrum between second format and another one, in place.
template <class R, real_format F>
void from_second(R* y, int32_t n) {
  if (F == real_tail && n % 2 == 0) {
    const R last = y[1];
    std::memmove(y + 1, y + 2, sizeof(R) * size_t(n - 2));
    y[n - 1] = last;
  }
  if (F != real_padded) return;
  if (n % 2 == 0) {
    y[n] = y[1];
    y[n + 1] = 0;
  } else {
    std::memmove(y + 2, y + 1, sizeof(R) * size_t(n - 1));
  }
  y[1] = 0;
}
template <class R>
void tail_to_second(const R* x, R* y, int32_t n) {
  const R first = x[0], last = x[n - 1];
  std::memmove(y + 2, x + 1, sizeof(R) * size_t(n - 2));
  y[0] = first;
  y[1] = last;
}
template <class R>
void odd_padded_to_second(const R* x, R* y, int32_t n) {
  const R first = x[0];
  std::memmove(y + 1, x + 2, sizeof(R) * size_t(n - 1));
  y[0] = first;
}

template <class R, int32_t Kind, real_format F>
int32_t run_format_forward(const void* in, void* out, const plan* p, void* work) {
  const int32_t code = run<R, layout::real, Kind, forward>(in, out, p, work);
  if (code == engine_done) from_second<R, F>(static_cast<R*>(out), p->length);
  return code;
}
template <class R, int32_t Kind, real_format F>
int32_t run_format_backward(const void* in, void* out, const plan* p, void* work) {
  if (in == nullptr || out == nullptr || p == nullptr) return engine_null;
  if (p->kind != Kind) return engine_bad_kind;
  const R* x = static_cast<const R*>(in);
  R* y = static_cast<R*>(out);
  const bool even = p->length % 2 == 0;
  if (F == real_tail && even)
    tail_to_second(x, y, p->length);
  else if (F == real_padded && !even)
    odd_padded_to_second(x, y, p->length);
  else
    return run<R, layout::real, Kind, backward, F>(in, out, p, work);
  return run<R, layout::real, Kind, backward>(out, out, p, work);
}

}  // namespace

const engine engines[flavour_count] = {
    make_engine<float, layout::interleaved, kind_c>(),
    make_engine<double, layout::interleaved, kind_z>(),
    make_engine<float, layout::split, kind_cs>(),
    make_engine<double, layout::split, kind_zs>(),
    make_engine<float, layout::real, kind_s>(),
    make_engine<double, layout::real, kind_d>(),
    make_engine<float, layout::interleaved, kind_c_unordered>(),
    make_engine<double, layout::interleaved, kind_z_unordered>(),
};

#define FORMAT(R, KIND, F) \
  { run_format_forward<R, KIND, F>, run_format_backward<R, KIND, F> }
const real_runner runners_s[3] = {FORMAT(float, kind_s, real_padded), FORMAT(float, kind_s, real_tail),
                                  FORMAT(float, kind_s, real_second)};
const real_runner runners_d[3] = {FORMAT(double, kind_d, real_padded), FORMAT(double, kind_d, real_tail),
                                  FORMAT(double, kind_d, real_second)};
#undef FORMAT

}  // namespace zor::dft
