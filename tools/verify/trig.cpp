// SPDX-License-Identifier: MIT
// Trigonometric transforms with parameter arrays: statuses, tables, results; the public ones. Reports are
// texts and have no digest.
#include "zor/signatures/trig.h"
#include "tools/verify/battery.h"

namespace zor_tools {
namespace {

constexpr zor_int lengths[] = {2,  3,   4,   5,   7,    16,   30,   33,   64,
                               97, 128, 210, 512, 1000, 1024, 1155, 4096, 5000};

template <class T>
struct transform_calls {
  zor::trig_init_fn<T>* init;
  zor::trig_commit_fn<T>* commit;
  zor::trig_free_fn* free;
};
constexpr transform_calls<double> calls_of(double) {
  return {zor_pdett_d_init_trig_transform, zor_pdett_d_commit_trig_transform, zor_pdett_free_trig_transform};
}
constexpr transform_calls<float> calls_of(float) {
  return {zor_pdett_s_init_trig_transform, zor_pdett_s_commit_trig_transform, zor_pdett_free_trig_transform};
}

// One transform, its ends zero where it takes them so. use(f, handle, ipar, dpar).
template <class T, class Use>
void with_transform(const transform_calls<T>& call, zor_int n, zor_int type, bool raw, content kind,
                    const Use& use) {
  numbers source{uint64_t(n * 8 + type)};
  block<T> f(size_t(n + 1), size_t(n % 2), source, kind);
  f.data()[0] = f.data()[n] = 0;
  std::vector<T> dpar(size_t(2 * n + n / 2 + 2));
  zor_int ipar[128] = {}, stat = 0;
  ZorDftDescriptor* handle = nullptr;
  call.init(&n, &type, ipar, dpar.data(), &stat);
  ipar[1] = ipar[2] = 0;
  ipar[10] = raw;
  call.commit(f.data(), &handle, ipar, dpar.data(), &stat);
  use(f, &handle, ipar, dpar, stat);
  call.free(&handle, ipar, &stat);
}

template <class T, class Use>
void for_transforms(const transform_calls<T>& call, const Use& use) {
  for (zor_int type = 0; type < 6; ++type)
    for (const zor_int n : lengths) {
      with_transform<T>(call, n, type, false, content::ordinary, use);
      if (n < 40) with_transform<T>(call, n, type, true, content::special, use);
    }
}

template <class T>
void inits(recorder& out, zor::trig_init_fn<T>* fn) {
  for (const zor_int n : lengths) {
    zor_int ipar[16] = {}, stat = 5;
    T dpar[1];
    fn(&n, &n, ipar, dpar, &stat);
    out.add(ipar, 16);
    out.add(dpar, 1);
    out.add(stat);
  }
}
template <class T>
void commits(recorder& out, zor::trig_commit_fn<T>* fn) {
  transform_calls<T> call = calls_of(T());
  call.commit = fn;
  for_transforms<T>(call,
                    [&](block<T>&, ZorDftDescriptor**, zor_int*, const std::vector<T>& dpar, zor_int stat) {
                      out.add(dpar.data(), dpar.size());
                      out.add(stat);
                    });
}
template <class T>
void runs(recorder& out, zor::trig_run_fn<T>* fn) {
  for_transforms<T>(calls_of(T()), [&](block<T>& f, ZorDftDescriptor** handle, zor_int* ipar,
                                       std::vector<T>& dpar, zor_int stat) {
    fn(f.data(), handle, ipar, dpar.data(), &stat);
    f.record(out);
    out.add(stat);
  });
}
void frees(recorder& out, zor::trig_free_fn* fn) {
  auto call = calls_of(double());
  const auto record = [&](block<double>&, ZorDftDescriptor** handle, zor_int* ipar, std::vector<double>&,
                          zor_int stat) {
    for (int again = 0; again < 2; ++again) {
      fn(handle, ipar, &stat);
      out.add(stat);
    }
  };
  for (const zor_int n : lengths) with_transform<double>(call, n, 1, false, content::ordinary, record);
}

zor_int create(zor_trig** t, zor_int kind, zor_int m, double) { return zor_trig_create_d(t, kind, m); }
zor_int create(zor_trig** t, zor_int kind, zor_int m, float) { return zor_trig_create_s(t, kind, m); }

// The public transforms: one line, and lines in company one after the other and side by side.
template <class T>
void public_runs(recorder& out, zor::trig_lines_fn<T>* fn) {
  for (zor_int kind = ZOR_DST1; kind <= ZOR_DST4; ++kind)
    for (const zor_int m : lengths)
      for (const zor_int lines : {1, 3, 37}) {
        if (m < 3 || m * lines > 40000) continue;
        numbers source{uint64_t(m * 8 + kind)};
        block<T> x(size_t(m * lines), size_t(m % 2), source, content::ordinary);
        zor_trig* t = nullptr;
        out.add(create(&t, kind, m, T()));
        const bool beside = lines == 37 && m % 2 == 0;
        out.add(fn(t, x.data(), lines, beside ? lines : 1, beside ? 1 : m, T(0.75)));
        x.record(out);
        zor_trig_free(&t);
      }
}

}  // namespace

void run_trig(recorder& out) {
#define ROW_TRIG_INIT(name, T, ...) \
  if (out.begin(#name)) inits<T>(out, name);
#define ROW_TRIG_COMMIT(name, T) \
  if (out.begin(#name)) commits<T>(out, name);
#define ROW_TRIG_FORWARD(name, T) \
  if (out.begin(#name)) runs<T>(out, name);
#define ROW_TRIG_BACKWARD(name, T) \
  if (out.begin(#name)) runs<T>(out, name);
#define ROW_TRIG_FREE(name) \
  if (out.begin(#name)) frees(out, name);
#include "zor/tables/pdett.inc"
#define ROW_TRIG_LINES(name, T) \
  if (out.begin(#name)) public_runs<T>(out, name);
#include "zor/tables/core_trig.inc"
}

}  // namespace zor_tools
