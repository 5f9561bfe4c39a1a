// SPDX-License-Identifier: MIT
// Complex transforms by the kernel library's own entries, below the public calls: batches, planes, and the
// shares of rows and columns that threads take.
#include <algorithm>
#include <cmath>

#include "tests/fuzz/trial.h"
#include "tests/ref/dft.h"
#include "tests/ref/dft_layout.h"
#include "zor/signatures/dft_kern.h"

namespace zor_fuzz {
namespace {

using zor_ref::box;

template <class R>
using element = std::conditional_t<sizeof(R) == 4, zor_c32, zor_c64>;

// A committed descriptor of one or two lengths, with work for one call.
template <class R>
class plan {
 public:
  plan(trial& t, const std::vector<zor_int>& lengths, bool in_place) {
    t.prepare([&] { status_ = make(lengths, in_place); });
    t.expect(status_ == 0, "commit: status " + std::to_string(status_));
  }
  plan(const plan&) = delete;
  ~plan() { zor_dft_free(&head_); }
  bool ready() const { return status_ == 0; }
  ZorDftDescriptor* record(int dimension) const { return dimension == 0 ? head_ : head_->next_dim; }
  zor_dft_kernel kernel(int dimension, bool backward) const {
    const ZorDftDescriptor* d = record(dimension);
    if (sizeof(R) == 4) return backward ? d->kernel_c_bwd : d->kernel_c_fwd;
    return backward ? d->kernel_z_bwd : d->kernel_z_fwd;
  }
  void* work() {
    room_.resize(size_t(head_->max_work_size) + 256);
    return reinterpret_cast<void*>((reinterpret_cast<uintptr_t>(room_.data()) + 255) / 256 * 256);
  }

 private:
  int32_t make(const std::vector<zor_int>& lengths, bool in_place) {
    int32_t status = zor_dft_create_descriptor_md(&head_, sizeof(R) == 4 ? ZOR_DFT_SINGLE : ZOR_DFT_DOUBLE,
                                                  ZOR_DFT_COMPLEX, zor_int(lengths.size()), lengths.data());
    if (status == 0)
      status = zor_dft_set_value(head_, ZOR_DFT_PLACEMENT, in_place ? ZOR_DFT_INPLACE : ZOR_DFT_NOT_INPLACE);
    return status == 0 ? zor_dft_commit_descriptor_core(&head_, 0) : status;
  }
  ZorDftDescriptor* head_ = nullptr;
  int32_t status_ = -1;
  std::vector<char> room_;
};

// An n by count array in any order of its strides, with gaps: value j of line l.
struct lines {
  lines(trial& t, const std::string& name, zor_int n, zor_int count) {
    const zor_int gap = t.draw((name + ".gap").c_str(), 0, 2, 0),
                  unit = t.draw((name + ".unit").c_str(), 1, 3, 1);
    const bool interleaved = t.draw((name + ".interleaved").c_str(), 0, 1, 0);
    along = interleaved ? unit * count + gap : unit;
    across = interleaved ? unit : unit * n + gap;
    extent = (n - 1) * along + (count - 1) * across + 1;
    for (zor_int l = 0; l < count; ++l)
      for (zor_int j = 0; j < n; ++j) held.insert(held.end(), at(j, l));
    std::sort(held.begin(), held.end());
  }
  zor_int at(zor_int j, zor_int l) const { return j * along + l * across; }
  bool holds(zor_int place) const { return std::binary_search(held.begin(), held.end(), place); }
  zor_int along, across, extent;
  std::vector<zor_int> held;
};

// Each line of y is the transform of that of x.
template <class T>
void check_lines(trial& t, bool backward, zor_int n, zor_int count, const lines& from, const operand<T>& x,
                 const lines& to, const operand<T>& y) {
  for (zor_int l = 0; l < count && t.checking(); ++l) {
    box line(static_cast<size_t>(n));
    long double power = 0;
    for (zor_int j = 0; j < n; ++j) line[size_t(j)] = x(from.at(j, l));
    line = zor_ref::dft(line, backward ? 1 : -1);
    for (const wide v : line) power += std::norm(v);
    for (zor_int k = 0; k < n; ++k)
      t.near(y.now(to.at(k, l)), line[size_t(k)], std::sqrt(power / (long double)n),
             zor_int(8 * (4 + std::log2((long double)n))), "out", k, l);
  }
}

// A share of rows (lines of dimension 0) or columns (of dimension 1), from in to out or in place.
template <class R, class Call>
void share(trial& t, int dimension, Call* call) {
  constexpr bool in_place = std::is_same_v<Call, zor::dft_share_fn>;
  const bool backward = t.draw("backward", 0, 1, 0);
  const zor_int n = t.size("n", 400, 1), count = t.size("count", 60, 1);
  const lines from(t, "in", n, count), to = in_place ? from : lines(t, "out", n, count);
  using T = element<R>;
  const auto x = t.scattered<T>("x", in_place ? use::inout : use::in, from.extent,
                                [&](zor_int i) { return from.holds(i); });
  const auto y =
      in_place ? x : t.scattered<T>("y", use::out, to.extent, [&](zor_int i) { return to.holds(i); });
  plan<R> p(t, dimension == 0 ? std::vector<zor_int>{n, count} : std::vector<zor_int>{count, n}, in_place);
  if (!p.ready()) return;
  void* const work = p.work();
  const auto strides = [&](const lines& of) {
    return dimension == 0 ? std::pair(of.along, of.across) : std::pair(of.across, of.along);
  };
  const auto [is0, is1] = strides(from);
  const auto [os0, os1] = strides(to);
  int32_t status = -1;
  t.call([&] {
    if constexpr (in_place)
      call(x.data(), is0, is1, count, p.kernel(dimension, backward), p.record(dimension), &status, work);
    else
      call(x.data(), y.data(), is0, is1, os0, os1, count, p.kernel(dimension, backward), p.record(dimension),
           &status, work);
  });
  t.expect(status == 0, "status " + std::to_string(status));
  check_lines(t, backward, n, count, from, x, to, y);
}

// Rows whose data are real have another meaning, and are reached by the public calls.
#define ROW_ROWS(name, R) {#name, [](trial& t) { share<R>(t, 0, name); }},
#define ROW_COLUMNS(name, R) {#name, [](trial& t) { share<R>(t, 1, name); }},
#define COMPLEX_SHARE(name, T, U, dimension)                                           \
  {std::is_same_v<T, U> ? #name : "", [](trial& t) {                                   \
     if constexpr (std::is_same_v<T, U>) share<zor_test::real<T>>(t, dimension, name); \
   }},
#define ROW_ROWS_OUT(name, T, U) COMPLEX_SHARE(name, T, U, 0)
#define ROW_COLUMNS_OUT(name, T, U) COMPLEX_SHARE(name, T, U, 1)
const rows shares("transform kernel", serial, [] {
  std::vector<row> list = {
#include "zor/tables/dft_nd.inc"
  };
  std::erase_if(list, [](const row& r) { return *r.name == '\0'; });
  return list;
}());

}  // namespace
}  // namespace zor_fuzz
