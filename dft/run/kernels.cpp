// SPDX-License-Identifier: MIT
// Kernels of a dimension by kind of plan, and what is built for them.
#include "dft/run/kernels.h"

#include "dft/thresholds.h"
#include "serv/element.h"

namespace zor::dft {
namespace {

template <class R>
struct flavours;
template <>
struct flavours<double> {
  static constexpr flavour ordered = flavour_z, unordered = flavour_z_unordered, split = flavour_zs,
                           real = flavour_d;
  static constexpr const real_runner* runners = runners_d;
};
template <>
struct flavours<float> {
  static constexpr flavour ordered = flavour_c, unordered = flavour_c_unordered, split = flavour_cs,
                           real = flavour_s;
  static constexpr const real_runner* runners = runners_s;
};

plan* plan_of(ZorDftPlan* p) { return reinterpret_cast<plan*>(p); }

template <direction Dir>
int32_t run(flavour f, const void* in, void* out, ZorDftPlan* p, void* work) {
  return run_line({&engines[f], plan_of(p)}, Dir, in, out, work);
}

template <class R>
void scale(R* x, zor_int n, R factor) {
  if (factor == R(1)) return;
  for_vectors<R>(
      0, n, [=]<int Bytes>(zor_int i) __attribute__((always_inline)) {
        using V = vec<R, Bytes>;
        store<V>(x + i, load<V>(x + i) * factor);
      });
}

template <class R, direction Dir>
int32_t ordered_kernel(const void* in, void* out, descriptor* r, void* work) {
  using F = fields<R>;
  const int32_t code = run<Dir>(flavours<R>::ordered, in, out, r->*F::plan, work);
  scale(static_cast<R*>(out), 2 * r->length, r->*F::scale[Dir]);
  return status_of(code);
}

template <class R, direction Dir>
int32_t fixed_kernel_line(const void* in, void* out, descriptor* r, void* work) {
  if (r->work_size != 0) return ordered_kernel<R, Dir>(in, out, r, work);
  alignas(cache_line) char own[kernel_stack_work];
  return ordered_kernel<R, Dir>(in, out, r, own);
}

template <class R, direction Dir>
int32_t unordered_kernel(const void* in, void* out, descriptor* r, void* work) {
  using F = fields<R>;
  const int32_t code = run<Dir>(flavours<R>::unordered, in, out, r->*F::unordered_plan, work);
  scale(static_cast<R*>(out), 2 * r->length, r->*F::scale[Dir]);
  return status_of(code);
}

template <class R, direction Dir>
int32_t split_kernel(const void* in, void* out, descriptor* r, void* work) {
  using F = fields<R>;
  const int32_t code = run<Dir>(flavours<R>::split, in, out, r->*F::split_plan, work);
  const auto* pair = static_cast<const zor_dft_split*>(out);
  scale(static_cast<R*>(pair->re), r->length, r->*F::scale[Dir]);
  scale(static_cast<R*>(pair->im), r->length, r->*F::scale[Dir]);
  return status_of(code);
}

using engine_runner = int32_t (*)(const void* in, void* out, const plan* p, void* work);

int32_t run_format(zor_dft_runner runner, const void* in, void* out, ZorDftPlan* p, void* work) {
  return reinterpret_cast<engine_runner>(runner)(in, out, plan_of(p), work);
}

template <class R>
int32_t real_forward_kernel(const void* in, void* out, descriptor* r, void* work) {
  using F = fields<R>;
  const int32_t code = run_format(r->*F::format[forward], in, out, r->*F::real_plan, work);
  const bool padded = r->packed_format == ZOR_DFT_FORMAT_PADDED;
  const bool pads = padded || r->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX;
  R* y = static_cast<R*>(out);
  // Of the two zeros that pad an even length a planned line scales the first, a fixed one both or none: their
  // sign tells.
  const bool fixed = r->general_plan == 0, both = fixed && padded && in_place(r);
  scale(y, r->length + (both ? 2 : pads ? 1 : 0), r->*F::scale[forward]);
  if (fixed && pads && !both) y[1] = R(0);
  return status_of(code);
}

template <class R>
int32_t real_backward_kernel(const void* in, void* out, descriptor* r, void* work) {
  using F = fields<R>;
  const int32_t code =
      backward_reads_second(r)
          ? flavours<R>::runners[real_second].backward(in, out, plan_of(r->*F::real_plan), work)
          : run_format(r->*F::format[backward], in, out, r->*F::real_plan, work);
  R* y = static_cast<R*>(out);
  if (in_place(r) && r->packed_format == ZOR_DFT_FORMAT_PADDED) y[r->length] = R(0);
  scale(y, r->length, r->*F::scale[backward]);
  return status_of(code);
}

// Kernel pairs by line_plan.
template <class R>
constexpr zor_dft_kernel complex_pairs[4][2] = {
    {ordered_kernel<R, forward>, ordered_kernel<R, backward>},
    {unordered_kernel<R, forward>, unordered_kernel<R, backward>},
    {split_kernel<R, forward>, split_kernel<R, backward>},
    {fixed_kernel_line<R, forward>, fixed_kernel_line<R, backward>}};

template <class R>
bool find_lines(zor_dft_kernel kernel, const descriptor* r, kernel_lines* found) {
  using F = fields<R>;
  for (const direction way : {forward, backward})
    for (const line_plan kind : {plan_ordered, plan_fixed})
      if (kernel == complex_pairs<R>[kind][way]) {
        *found = {{&engines[flavours<R>::ordered], plan_of(r->*F::plan)}, way, double(r->*F::scale[way])};
        return true;
      }
  return false;
}

int32_t build(flavour f, descriptor* r, ZorDftPlan** slot) {
  plan* p = nullptr;
  const int32_t code = engines[f].build(&p, int32_t(r->length), scale_none, 0);
  if (code != engine_done) return status_of(code);
  *slot = reinterpret_cast<ZorDftPlan*>(p);
  r->work_size = work_of_line({&engines[f], p});
  return ZOR_DFT_OK;
}

}  // namespace

kernel_lines lines_of_kernel(zor_dft_kernel kernel, const descriptor* r) {
  kernel_lines found{};
  if (!find_lines<double>(kernel, r, &found)) find_lines<float>(kernel, r, &found);
  return found;
}

bool run_contiguous(const kernel_lines& k, const line_data& data, void* work) {
  alignas(cache_line) char own[kernel_stack_work];
  const bool on_stack = work_of_line(k.line) <= kernel_stack_work;
  if (!on_stack && work == nullptr) return false;
  run_contiguous_lines(k.line, data, on_stack ? own : work);
  return true;
}

template <class R>
void install_complex(descriptor* r, line_plan kind) {
  for (int d = forward; d <= backward; ++d) r->*fields<R>::complex_kernel[d] = complex_pairs<R>[kind][d];
}

template <class R>
int32_t build_complex(descriptor* r, line_plan kind) {
  using F = fields<R>;
  if (kind == plan_split) return build(flavours<R>::split, r, &(r->*F::split_plan));
  if (kind == plan_unordered) return build(flavours<R>::unordered, r, &(r->*F::unordered_plan));
  const int32_t status = build(flavours<R>::ordered, r, &(r->*F::plan));
  if (kind == plan_fixed && r->work_size <= kernel_stack_work) r->work_size = 0;
  return status;
}

template <class R>
bool install_real(descriptor* r) {
  using F = fields<R>;
  int32_t format = r->packed_format;
  if (r->conjugate_even_storage == ZOR_DFT_COMPLEX_COMPLEX) format = ZOR_DFT_FORMAT_PADDED;
  if (format < ZOR_DFT_FORMAT_PADDED || format > ZOR_DFT_FORMAT_SECOND) return false;
  const real_runner& runner = flavours<R>::runners[format - ZOR_DFT_FORMAT_PADDED];
  r->*F::format[forward] = reinterpret_cast<zor_dft_runner>(runner.forward);
  r->*F::format[backward] = reinterpret_cast<zor_dft_runner>(runner.backward);
  r->*F::real_kernel[forward] = real_forward_kernel<R>;
  r->*F::real_kernel[backward] = real_backward_kernel<R>;
  return true;
}

template <class R>
int32_t build_real(descriptor* r) {
  return build(flavours<R>::real, r, &(r->*fields<R>::real_plan));
}

template void install_complex<float>(descriptor*, line_plan);
template void install_complex<double>(descriptor*, line_plan);
template int32_t build_complex<float>(descriptor*, line_plan);
template int32_t build_complex<double>(descriptor*, line_plan);
template bool install_real<float>(descriptor*);
template bool install_real<double>(descriptor*);
template int32_t build_real<float>(descriptor*);
template int32_t build_real<double>(descriptor*);

}  // namespace zor::dft
