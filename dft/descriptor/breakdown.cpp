// SPDX-License-Identifier: MIT
// Breakdowns: ways to run a simple complex transform of rank 1 that need no commit. A list is tried in order;
// the first that accepts the descriptor makes it ready to compute.
#include <math.h>

#include "dft/descriptor/fields.h"
#include "dft/line.h"
#include "dft/thresholds.h"
#include "serv/control.h"
#include "zor/signatures/dft_kern.h"

namespace zor::dft {
namespace {

template <class R>
bool is_precision(const descriptor* d) {
  return d->precision == (std::is_same_v<R, double> ? ZOR_DFT_DOUBLE : ZOR_DFT_SINGLE);
}

// One interleaved complex transform of rank 1 over contiguous data.
template <class R>
bool is_plain_transform(const descriptor* d) {
  return is_precision<R>(d) && d->forward_domain == ZOR_DFT_COMPLEX && d->rank == 1 &&
         d->complex_storage == ZOR_DFT_COMPLEX_COMPLEX && d->number_of_transforms == 1 &&
         d->input_stride == 1 && d->input_offset == 0 &&
         (in_place(d) || (d->output_stride == 1 && d->output_offset == 0));
}

template <class R>
bool unscaled(const descriptor* d) {
  return d->*fields<R>::scale[forward] == R(1) && d->*fields<R>::scale[backward] == R(1);
}

// Straight-line kernels by length.
template <class R, direction Dir>
fixed_kernel* kernel_of_length(zor_int n) {
  return std::is_same_v<R, double> ? fixed_complex_d(int32_t(n), Dir) : fixed_complex_s(int32_t(n), Dir);
}

template <class R, int N, direction Dir, bool Out>
int32_t run_row(descriptor*, void* p0, void* p1, void*, void*) {
  kernel_of_length<R, Dir>(N)(p0, Out ? p1 : p0, 1.0);
  return ZOR_DFT_OK;
}

struct kernel_row {
  zor_int length;
  zor_dft_compute out_forward, out_backward, in_forward, in_backward;
};
template <class R, int N>
constexpr kernel_row row{N, run_row<R, N, forward, true>, run_row<R, N, backward, true>,
                         run_row<R, N, forward, false>, run_row<R, N, backward, false>};
constexpr kernel_row end_of_rows{0, nullptr, nullptr, nullptr, nullptr};

// Lists in the order they are tried: the packed rows hide the scalar rows of the same length.
template <class R>
constexpr kernel_row packed_rows[6] = {row<double, 8>,  row<double, 16>,  row<double, 32>,
                                       row<double, 64>, row<double, 128>, end_of_rows};
template <>
constexpr kernel_row packed_rows<float>[6] = {row<float, 16>, row<float, 32>, row<float, 64>, end_of_rows};
template <class R>
constexpr kernel_row scalar_rows[7] = {row<R, 2>,  row<R, 4>,  row<R, 8>,  row<R, 16>,
                                       row<R, 32>, row<R, 64>, end_of_rows};

const kernel_row* find_row(const kernel_row* rows, zor_int n) {
  while (rows->length != 0 && rows->length != n) ++rows;
  return rows->length == 0 ? nullptr : rows;
}

template <class R>
double test_rows(const kernel_row* rows, const descriptor* d) {
  return is_plain_transform<R>(d) && unscaled<R>(d) && find_row(rows, d->length) != nullptr ? 1.0 : 0.0;
}

int32_t apply_rows(const ZorDftBreakdown* self, const kernel_row* rows, descriptor* d) {
  release_breakdown(d);
  uncommit(d);
  const kernel_row* r = find_row(rows, d->length);
  if (r == nullptr) return ZOR_DFT_BREAKDOWN_FAILED;
  d->compute_forward = in_place(d) ? r->in_forward : r->out_forward;
  d->compute_backward = in_place(d) ? r->in_backward : r->out_backward;
  d->breakdown = self;
  d->nio_args = zor_dft_determine_nioargs(d);
  d->commit_status = ZOR_DFT_COMMITTED;
  return ZOR_DFT_OK;
}

template <class R>
double test_packed(const descriptor* d) {
  return test_rows<R>(packed_rows<R>, d);
}
template <class R>
double test_scalar(const descriptor* d) {
  return test_rows<R>(scalar_rows<R>, d);
}

// Small plan: a line that carries one of four scale pairs itself and whose work fits the stack.
struct small_plan {
  line_transform line;
  zor_int length;
  int32_t flag;
  int32_t stale;
};

// The plan flag of the scale pair, or 0 when the plan cannot carry it. Single precision compares with the
// roundings of the double factors.
template <class R>
int32_t scale_flag_of(const descriptor* d) {
  const double n = double(d->length);
  const R one = R(1), inverse = R(1.0 / n), root = R(1.0 / sqrt(n));
  const struct {
    R forward, backward;
    int32_t flag;
  } pairs[] = {{one, one, scale_none},
               {inverse, one, scale_forward_n},
               {one, inverse, scale_backward_n},
               {root, root, scale_both_root}};
  for (const auto& p : pairs)
    if (d->*fields<R>::scale[forward] == p.forward && d->*fields<R>::scale[backward] == p.backward)
      return p.flag;
  return 0;
}

template <class R>
double test_small_plan(const descriptor* d) {
  const bool fits = is_plain_transform<R>(d) && d->length >= 1 && d->length <= small_plan_longest;
  return fits && scale_flag_of<R>(d) != 0 ? 1.0 : 0.0;
}

template <direction Dir, bool Out>
int32_t run_small_plan(descriptor* d, void* p0, void* p1, void*, void*) {
  alignas(16) char work[small_plan_stack];
  return status_of(run_line(static_cast<small_plan*>(d->breakdown_data)->line, Dir, p0, Out ? p1 : p0, work));
}

void release_small_plan(descriptor* d) {
  auto* own = static_cast<small_plan*>(d->breakdown_data);
  if (own == nullptr) return;
  free_line(&own->line);
  zor_serv_zor_free(own);
  d->breakdown_data = nullptr;
}

// The line of the block, built anew when length or flag have changed. True when it can be run.
template <class R>
bool build_small_plan(small_plan* own, zor_int length, int32_t flag) {
  if (own->line.p != nullptr && own->length == length && own->flag == flag && own->stale == 0) return true;
  free_line(&own->line);
  if (commit_line<R>(&own->line, line_kind::complex, int32_t(length), flag) != engine_done) return false;
  own->length = length;
  own->flag = flag;
  own->stale = 0;
  return work_of_line(own->line) <= small_plan_work;
}

template <class R>
int32_t apply_packed(descriptor* d);
template <class R>
int32_t apply_scalar(descriptor* d);
template <class R>
int32_t apply_small_plan(descriptor* d);

template <class R>
constexpr ZorDftBreakdown breakdowns[3] = {
    {test_packed<R>, apply_packed<R>, nullptr, nullptr},
    {test_scalar<R>, apply_scalar<R>, nullptr, nullptr},
    {test_small_plan<R>, apply_small_plan<R>, release_small_plan, nullptr}};

template <class R>
int32_t apply_packed(descriptor* d) {
  return apply_rows(&breakdowns<R>[0], packed_rows<R>, d);
}

template <class R>
int32_t apply_scalar(descriptor* d) {
  return apply_rows(&breakdowns<R>[1], scalar_rows<R>, d);
}

template <class R>
int32_t apply_small_plan(descriptor* d) {
  const ZorDftBreakdown* self = &breakdowns<R>[2];
  if (d->breakdown != self) release_breakdown(d);
  uncommit(d);
  if (d->breakdown_data == nullptr)
    d->breakdown_data = zor_serv_zor_calloc(1, sizeof(small_plan), alignof(small_plan));
  auto* own = static_cast<small_plan*>(d->breakdown_data);
  if (own == nullptr) return ZOR_DFT_MEMORY_ERROR;
  d->breakdown = self;
  if (!build_small_plan<R>(own, d->length, scale_flag_of<R>(d))) {
    release_breakdown(d);
    return ZOR_DFT_BREAKDOWN_FAILED;
  }
  const bool out = !in_place(d);
  d->compute_forward = out ? run_small_plan<forward, true> : run_small_plan<forward, false>;
  d->compute_backward = out ? run_small_plan<backward, true> : run_small_plan<backward, false>;
  d->nio_args = zor_dft_determine_nioargs(d);
  d->commit_status = ZOR_DFT_COMMITTED;
  return ZOR_DFT_OK;
}

struct breakdown_list {
  const ZorDftBreakdown* first;
  int count;
};
constexpr breakdown_list list_d_c2c_1d{breakdowns<double>, 3};
constexpr breakdown_list list_s_c2c_1d{breakdowns<float>, 3};
constexpr breakdown_list list_empty{nullptr, 0};

// A score of NaN counts as a yes. The modes are those of a commit: a scale is compared with 1/n rounded to
// nearest.
int32_t try_list(const breakdown_list& list, descriptor* d) {
  for (int i = 0; i < list.count; ++i) {
    const ZorDftBreakdown& b = list.first[i];
    if (b.test(d) == 0.0) continue;
    if (b.apply(d) == ZOR_DFT_OK) return ZOR_DFT_OK;
  }
  return ZOR_DFT_NO_BREAKDOWN;
}
int32_t apply_list(const breakdown_list& list, descriptor* d) {
  return in_default_modes([&] { return try_list(list, d); });
}

}  // namespace
}  // namespace zor::dft

#define ROW_APPLY(name, list) \
  extern "C" SIG_DFT_APPLY(name) { return zor::dft::apply_list(zor::dft::list, descriptor); }
#include "zor/tables/dft_desc.inc"
