// SPDX-License-Identifier: MIT
// Level 2: a matrix with one vector or two, by the public routines. The bytes of a case are those of
// the stored matrix, read once and written once where it changes.
#include <fmt/format.h>

#include <cstring>

#include "bench/bench.h"
#include "bench/blas_call.h"
#include "bench/operands.h"
#include "zor/core.h"
#include "zor/signatures/blas.h"

namespace zor_bench {
namespace {

enum class form {
  general,    // gemv
  update,     // ger
  band,       // gbmv
  symmetric,  // symv, hemv
  symmetric_band,
  symmetric_packed,
  rank_one,    // syr
  rank_two,    // syr2, her2
  triangular,  // trmv, trsv
  triangular_band,
  triangular_packed
};

struct job {
  form f;
  const char* letters;
  zor_int n, reach;  // order, and diagonals on each side of a band
};

bool is_band(form f) { return f == form::band || f == form::symmetric_band || f == form::triangular_band; }
bool is_triangular(form f) { return f >= form::triangular; }
bool writes_matrix(form f) { return f == form::update || f == form::rank_one || f == form::rank_two; }

zor_int leading(const job& j) {
  if (!is_band(j.f)) return j.n;
  return j.f == form::band ? 2 * j.reach + 1 : j.reach + 1;
}
bool is_packed(form f) { return f == form::symmetric_packed || f == form::triangular_packed; }

double matrix_elements(const job& j) {
  const double n = double(j.n);
  if (is_band(j.f)) return n * double(leading(j));
  if (j.f == form::general) return n * n;
  if (j.f == form::update) return 2 * n * n;
  return (writes_matrix(j.f) ? 2 : 1) * n * (n + 1) / 2;
}

template <class T>
struct operands {
  operand<T> a, x, y, start;
  explicit operands(const job& j)
      : a(is_packed(j.f) ? j.n * (j.n + 1) / 2 : leading(j) * j.n, 0), x(j.n, 1), y(j.n, 2), start(j.n, 3) {
    fill(a, 1), fill(x, 2), fill(start, 3);
    if (!is_triangular(j.f)) return;
    // Elements beside the diagonal are so small that solutions keep their size.
    const auto scale = real_t<T>(1.0 / double(is_band(j.f) ? 4 * j.reach : j.n));
    for (int64_t i = 0; i < a.reals(); ++i) a.real_data()[i] *= scale;
    const bool upper = j.letters[0] == 'U';
    int64_t place = is_band(j.f) && upper ? j.reach : 0;
    for (zor_int i = 0; i < j.n; ++i) {
      const real_t<T> diagonal = real_t<T>(i % 2 == 0 ? 1.25 : 0.8);
      std::memcpy(a.data() + place, &diagonal, sizeof diagonal);
      place += is_packed(j.f) ? (upper ? i + 2 : j.n - i) : leading(j) + (is_band(j.f) ? 0 : 1);
    }
  }
  void restart() const { std::memcpy(y.data(), start.data(), size_t(y.count()) * sizeof(T)); }
};

template <class T>
void run_once(const job& j, const routine& r, const operands<T>& o) {
  const zor_int n = j.n, k = j.reach, lda = leading(j), one = 1;
  // An update runs again and again on one matrix, which it must not let grow.
  const T unit = number<T>(1), small = number<T>(1e-6);
  const T *const a = o.a.data(), *const x = o.x.data();
  T* const y = o.y.data();
  if (!writes_matrix(j.f)) o.restart();
  switch (j.f) {
    case form::general:
      return call<1>(r, j.letters, n, n, unit, a, lda, x, one, unit, y, one);
    case form::update:
      return call<0>(r, j.letters, n, n, small, x, one, y, one, a, lda);
    case form::band:
      return call<1>(r, j.letters, n, n, k, k, unit, a, lda, x, one, unit, y, one);
    case form::symmetric:
      return call<1>(r, j.letters, n, unit, a, lda, x, one, unit, y, one);
    case form::symmetric_band:
      return call<1>(r, j.letters, n, k, unit, a, lda, x, one, unit, y, one);
    case form::symmetric_packed:
      return call<1>(r, j.letters, n, unit, a, x, one, unit, y, one);
    case form::rank_one:
      return call<1>(r, j.letters, n, small, x, one, a, lda);
    case form::rank_two:
      return call<1>(r, j.letters, n, small, x, one, y, one, a, lda);
    case form::triangular:
      return call<3>(r, j.letters, n, a, lda, y, one);
    case form::triangular_band:
      return call<3>(r, j.letters, n, k, a, lda, y, one);
    default:
      return call<3>(r, j.letters, n, a, y, one);
  }
}

// `name` is that of the routine in other libraries.
template <class T>
bench_case level2_case(const environment& env, const char* name, void* ours, const job& j) {
  bench_case c;
  c.name = is_band(j.f) ? fmt::format("{} {} {} band {}", name, j.letters, j.n, j.reach)
                        : fmt::format("{} {} {}", name, j.letters, j.n);
  c.bytes = double(sizeof(T)) * matrix_elements(j);
  c.single_precision = is_single<T>;
  c.setup = [&env, ours, symbol = std::string(name) + "_", j] {
    const operands<T> o(j);
    o.restart();
    const auto runner_of = [=, threads = env.opts.threads](routine r) {
      return [=](int64_t repeats) {
        if (r.ours) zor_core_set_num_threads(threads);
        for (int64_t i = 0; i < repeats; ++i) run_once(j, r, o);
      };
    };
    std::vector<contender> all = {{"zor", runner_of({ours, true})}};
    for (const peer& other : env.peers)
      if (void* theirs = find_symbol(other, symbol); theirs != nullptr)
        all.push_back({other.name, runner_of({theirs, false})});
    const operand<T>& written = writes_matrix(j.f) ? o.a : o.y;
    const operand<T> before(written.count()), result(written.count());
    const auto copy = [](const operand<T>& from, const operand<T>& to) {
      std::memcpy(to.data(), from.data(), size_t(from.count()) * sizeof(T));
    };
    copy(written, before);
    all[0].run(1);
    copy(written, result);
    return keep_agreeing(all, [&](const contender& other) {
      copy(before, written);
      other.run(1);
      return close(result, written, 16.0 * double(j.n + 8));
    });
  };
  return c;
}

}  // namespace

std::vector<bench_case> level2_cases(const environment& env) {
  std::vector<bench_case> cases;
  // Letters separated by spaces; an empty one stands for a routine without options.
  const auto add = [&]<class T>(T, form f, std::string_view name, auto* ours,
                                std::initializer_list<const char*> letters) {
    const std::string_view plain = name.substr(std::string_view("zor_blas_").size());
    std::vector<zor_int> sizes = {64, 500, 4000};
    if (is_band(f)) sizes = {100000};
    if (is_packed(f)) sizes = {2000};
    for (const zor_int n : sizes) {
      if (env.opts.quick && n != sizes.front()) continue;
      if (is_complex<T> && is_single<T>) continue;
      for (const char* l : letters)
        cases.push_back(level2_case<T>(env, plain.data(), reinterpret_cast<void*>(ours),
                                       {f, l, env.opts.quick && is_band(f) ? 1000 : n, is_band(f) ? 10 : 0}));
    }
  };
#define ROW_GEMV(name, T) add(T{}, form::general, #name, name, {"N", "T"});
#define ROW_SYR(name, T) add(T{}, form::rank_one, #name, name, {"U", "L"});
#include "zor/tables/core_blas.inc"
#define ROW_GER(name, T) add(T{}, form::update, #name, name, {""});
#define ROW_GERU ROW_GER
#define ROW_GERC ROW_GER
#define ROW_GBMV(name, T) add(T{}, form::band, #name, name, {"N", "T"});
#define ROW_SYMV(name, T, kernel) add(T{}, form::symmetric, #name, name, {"U", "L"});
#define ROW_HEMV ROW_SYMV
#define ROW_SBMV(name, T) add(T{}, form::symmetric_band, #name, name, {"U", "L"});
#define ROW_HBMV ROW_SBMV
#define ROW_SPMV(name, T) add(T{}, form::symmetric_packed, #name, name, {"U", "L"});
#define ROW_HPMV ROW_SPMV
#define ROW_SYR2(name, T, kernel) add(T{}, form::rank_two, #name, name, {"U", "L"});
#define ROW_HER2 ROW_SYR2
#define ROW_TRMV(name, T, kernel) add(T{}, form::triangular, #name, name, {"UNN", "LTN"});
#define ROW_TRSV ROW_TRMV
#define ROW_TBMV(name, T) add(T{}, form::triangular_band, #name, name, {"UNN", "LTN"});
#define ROW_TBSV ROW_TBMV
#define ROW_TPMV(name, T) add(T{}, form::triangular_packed, #name, name, {"UNN", "LTN"});
#define ROW_TPSV ROW_TPMV
#include "zor/tables/core_matvec.inc"
  return cases;
}

}  // namespace zor_bench
