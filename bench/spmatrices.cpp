// SPDX-License-Identifier: MIT
// Sums and products of sparse matrices through the public calls, conversions and sweeps by their kernels:
// double with 32-bit indices, beside a plain loop, Eigen and SuiteSparse:GraphBLAS.
// scripts/external/scipy_sparse.py measures SciPy on the same matrices.
#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/mman.h>

#include <cstring>
#include <memory>
#include <numeric>

#include "bench/bench.h"
#include "bench/matrices.h"
#include "bench/operands.h"
#include "bench/pattern.h"
#include "zor/core.h"
#include "zor/sparse.h"
#include "zor/spblas_matrix.h"
#include "zor/spblas_sweep.h"

namespace zor_bench {
namespace {

const void* native_peer(const char* name, const char* symbol) {
  const std::string file = fmt::format("$ORIGIN/../lib/bench/zor_peer_{}.so", name);
  void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  return library == nullptr ? nullptr : dlsym(library, symbol);
}
const matrix_loops* find_loops() {
  static const void* const found = native_peer("matrices", "zor_matrix_loops");
  return static_cast<const matrix_loops*>(found);
}

matrix_arrays arrays_of(const pattern& p) {
  return {p.m, p.m, p.start.data(), p.column.data(), p.value.data()};
}

// ---- Sums and products.

struct handle {
  zor_sparse a = nullptr;
  handle() = default;
  explicit handle(const pattern& p, int32_t structure = ZOR_SPARSE_GENERAL) {
    const zor_sparse_desc_lp64 d{ZOR_SPARSE_CSR,
                                 'd',
                                 0,
                                 structure,
                                 0,
                                 0,
                                 p.m,
                                 p.m,
                                 int32_t(p.value.size()),
                                 p.value.data(),
                                 p.column.data(),
                                 p.start.data(),
                                 nullptr,
                                 nullptr,
                                 0,
                                 0};
    if (zor_sparse_create_lp64(&a, &d) != ZOR_SPARSE_OK) throw std::runtime_error(zor_sparse_error_text());
  }
  handle(const handle&) = delete;
  handle& operator=(const handle&) = delete;
  ~handle() { zor_sparse_free(&a); }
};

// The entries of a result and the sum of their values.
struct outcome {
  int64_t entries;
  double total;
};

outcome run_ours(const handle& a, const handle& b, bool sum, bool totalled) {
  const double beta = 1;
  zor_sparse c = nullptr;
  const int32_t status =
      sum ? zor_sparse_add(&c, a.a, 'n', &beta, b.a) : zor_sparse_multiply(&c, 'n', a.a, b.a);
  if (status != ZOR_SPARSE_OK) throw std::runtime_error(zor_sparse_error_text());
  zor_sparse_desc_lp64 d{};
  zor_sparse_describe_lp64(c, &d);
  const double* const v = static_cast<const double*>(d.val);
  const outcome done{d.nnz, totalled ? std::accumulate(v, v + d.nnz, 0.0) : 0};
  zor_sparse_free(&c);
  return done;
}

// A call through the public side, two threads against one.
prepared thread_contenders(const std::function<void()>& call) {
  const auto on = [=](int32_t threads) {
    return [=](int64_t repeats) {
      zor_core_set_num_threads(threads);
      for (int64_t i = 0; i < repeats; ++i) call();
    };
  };
  prepared ready;
  ready.contenders = {{"zor", on(2)}, {"zor, 1 thread", on(1)}};
  return ready;
}
prepared arithmetic_threads(const pattern& p, const pattern& q, bool sum) {
  const auto left = std::make_shared<pattern>(p), right = std::make_shared<pattern>(q);
  const auto a = std::make_shared<handle>(*left), b = std::make_shared<handle>(*right);
  return thread_contenders([=, keep = std::pair(left, right)] { run_ours(*a, *b, sum, false); });
}
// y := A x, of skyline y := the lower triangle times x.
prepared format_threads(const pattern& p, int32_t format, int32_t lb) {
  const auto arrays = std::make_shared<pattern>(p);
  const handle rows(*arrays, format == ZOR_SPARSE_SKY ? ZOR_SPARSE_TRIANGULAR : ZOR_SPARSE_GENERAL);
  const auto made = std::make_shared<handle>();
  if (zor_sparse_convert(&made->a, rows.a, format, lb) != ZOR_SPARSE_OK)
    throw std::runtime_error(zor_sparse_error_text());
  const operand<double> x(p.m, 4), y(p.m, 5);
  fill(x, 4);
  return thread_contenders([=] { zor_sparse_dmv(made->a, 'n', 1, x.data(), 0, y.data()); });
}

prepared arithmetic_contenders(const pattern& p, const pattern& q, bool sum) {
  const auto left = std::make_shared<pattern>(p), right = std::make_shared<pattern>(q);
  const auto a = std::make_shared<handle>(*left), b = std::make_shared<handle>(*right);
  const outcome wanted = run_ours(*a, *b, sum, true);
  prepared ready;
  ready.contenders.push_back({"zor", [=, keep = std::pair(left, right)](int64_t repeats) {
                                for (int64_t i = 0; i < repeats; ++i) run_ours(*a, *b, sum, false);
                              }});
  const struct {
    const char* name;
    const matrix_peer* peer;
  } peers[] = {{"loop", find_loops() == nullptr ? nullptr : &find_loops()->arithmetic},
               {"Eigen", static_cast<const matrix_peer*>(native_peer("eigen_matrices", "zor_matrix_peer"))},
               {"GraphBLAS", static_cast<const matrix_peer*>(native_peer("graphblas", "zor_matrix_peer"))}};
  for (const auto& [name, peer] : peers) {
    if (peer == nullptr) continue;
    const auto made = [peer = peer](const pattern& m) {
      return std::shared_ptr<void>(peer->make(arrays_of(m)), peer->release);
    };
    const auto x = made(*left), y = made(*right);
    const auto call = sum ? peer->add : peer->multiply;
    double total = 0;
    const int64_t entries = call(x.get(), y.get(), &total);
    const double size = std::abs(wanted.total) + double(wanted.entries);
    if (entries != wanted.entries || !(std::abs(total - wanted.total) <= 1e-10 * size)) {
      ready.left_out.push_back(name);
      continue;
    }
    ready.contenders.push_back({name, [=](int64_t repeats) {
                                  for (int64_t i = 0; i < repeats; ++i) call(x.get(), y.get(), nullptr);
                                }});
  }
  return ready;
}

// ---- Conversions.

enum class target { csc, coo, dia, bsr };

// Memory on large pages, as SciPy's arrays have them: on small ones a transposition waits for their tables.
template <class T>
operand<T> on_large_pages(int64_t count, int page_slot) {
  operand<T> memory(count, page_slot);
  constexpr uintptr_t page = 4096;
  const uintptr_t start = reinterpret_cast<uintptr_t>(memory.data()) / page * page;
  madvise(reinterpret_cast<void*>(start), size_t(count) * sizeof(T), MADV_HUGEPAGE);
  return memory;
}

// Arrays that every contender fills: values, and two arrays of integers.
struct converted {
  operand<double> value;
  operand<int32_t> first, second;
};

std::vector<int32_t> distances_of(const pattern& p) {
  std::vector<int32_t> found;
  for (int32_t r = 0; r < p.m; ++r)
    for (int32_t k = p.start[size_t(r)]; k < p.start[size_t(r) + 1]; ++k) {
      const int32_t d = p.column[size_t(k)] - r;
      const auto at = std::lower_bound(found.begin(), found.end(), d);
      if (at == found.end() || *at != d) found.insert(at, d);
    }
  return found;
}

prepared conversion_contenders(const pattern& p, target to) {
  constexpr int32_t lb = 2, size = lb * lb;
  const auto distance = copied(to == target::dia ? distances_of(p) : std::vector<int32_t>(1), 1);
  const auto start = copied(p.start, 1), column = copied(p.column, 2);
  const auto value = copied(p.value, 3);
  const int32_t n = p.m, entries = int32_t(p.value.size()), ndiag = int32_t(distance.count());
  const int64_t room = to == target::dia   ? int64_t(ndiag) * n
                       : to == target::bsr ? int64_t(entries) * size
                                           : entries;
  const converted out{on_large_pages<double>(room, 4), on_large_pages<int32_t>(std::max(entries, n + 1), 5),
                      on_large_pages<int32_t>(std::max(entries, n + 1), 6)};
  std::vector<contender> all;
  all.push_back(
      {"zor", [=](int64_t repeats) {
         for (int64_t i = 0; i < repeats; ++i) {
           int32_t job[6] = {0, 0, 0, 0, INT32_MAX, to == target::dia ? 0 : to == target::csc ? 1 : 3};
           int32_t info = 0, found = entries, used = ndiag;
           if (to == target::csc)
             zor_spblas_lp64_zor_dcsrcsc(job, &n, value.data(), column.data(), start.data(), out.value.data(),
                                         out.first.data(), out.second.data());
           else if (to == target::coo)
             zor_spblas_lp64_zor_dcsrcoo(job, &n, value.data(), column.data(), start.data(), &found,
                                         out.value.data(), out.first.data(), out.second.data(), &info);
           else if (to == target::dia)
             zor_spblas_lp64_zor_dcsrdia(job, &n, value.data(), column.data(), start.data(), out.value.data(),
                                         &n, distance.data(), &used, nullptr, nullptr, nullptr);
           else
             zor_spblas_lp64_zor_dcsrbsr(job, &n, &lb, &size, value.data(), column.data(), start.data(),
                                         out.value.data(), out.first.data(), out.second.data(), &info);
         }
       }});
  if (const matrix_loops* loops = find_loops())
    all.push_back({"loop", [=](int64_t repeats) {
                     const matrix_arrays a{n, n, start.data(), column.data(), value.data()};
                     for (int64_t i = 0; i < repeats; ++i) {
                       if (to == target::csc)
                         loops->to_csc(a, out.value.data(), out.first.data(), out.second.data());
                       else if (to == target::coo)
                         loops->to_coo(a, out.value.data(), out.first.data(), out.second.data());
                       else if (to == target::dia)
                         loops->to_dia(a, ndiag, distance.data(), out.value.data());
                       else
                         loops->to_bsr(a, lb, out.value.data(), out.first.data(), out.second.data());
                     }
                   }});
  const auto reset = [&] { std::fill_n(out.value.data(), room, 0.0); };
  reset();
  all[0].run(1);
  const operand<double> ours(room);
  std::memcpy(ours.data(), out.value.data(), size_t(room) * sizeof(double));
  return keep_agreeing(all, [&](const contender& other) {
    reset();
    other.run(1);
    return std::memcmp(ours.data(), out.value.data(), size_t(room) * sizeof(double)) == 0;
  });
}

// ---- Sweeps.

prepared sweep_contenders(const pattern& nodes, int32_t lb) {
  const int32_t mb = nodes.m, m = mb * lb, one = 1;
  const size_t size = size_t(lb) * size_t(lb);
  std::vector<double> blocks(nodes.column.size() * size);
  pattern numbers;
  for (int32_t r = 0; r < mb; ++r)
    for (int32_t k = nodes.start[size_t(r)]; k < nodes.start[size_t(r) + 1]; ++k)
      for (size_t e = 0; e < size; ++e)
        blocks[size_t(k) * size + e] =
            nodes.column[size_t(k)] == r && e % size_t(lb + 1) == 0 ? 40 : 2 * numbers.uniform() - 1;
  const auto start = copied(nodes.start, 1), column = copied(nodes.column, 2),
             column1 = copied(plus_one(nodes.column), 2);
  const auto value = copied(blocks, 3);
  const operand<double> right(m, 4), y(m, 5);
  fill(right, 4);
  const auto copy = [=] { std::memcpy(y.data(), right.data(), size_t(m) * sizeof(double)); };
  std::vector<contender> all;
  all.push_back({"zor", [=](int64_t repeats) {
                   for (int64_t i = 0; i < repeats; ++i) {
                     copy();
                     zor_spblas_lp64_dbsr_gauss(&one, &one, &mb, &one, &lb, value.data(), column1.data(),
                                                start.data(), start.data() + 1, y.data(), &m);
                   }
                 }});
  if (const matrix_loops* loops = find_loops())
    all.push_back({"loop", [=](int64_t repeats) {
                     for (int64_t i = 0; i < repeats; ++i) {
                       copy();
                       loops->sweep(mb, lb, start.data(), column.data(), value.data(), y.data());
                     }
                   }});
  all[0].run(1);
  const operand<double> ours(m);
  std::memcpy(ours.data(), y.data(), size_t(m) * sizeof(double));
  return keep_agreeing(all, [&](const contender& other) {
    other.run(1);
    return close(ours, y, 256);
  });
}

bench_case timed(std::string name, double bytes, std::function<prepared()> setup) {
  bench_case c;
  c.name = std::move(name);
  c.bytes = bytes;
  c.setup = std::move(setup);
  return c;
}

}  // namespace

std::vector<bench_case> spgemm_cases(const environment& env) {
  const bool quick = env.opts.quick;
  const struct {
    const char* name;
    pattern (*make)(bool quick);
    pattern (*shifted)(bool quick);
  } matrices[] = {{"laplacian 400^2", [](bool q) { return laplacian(q ? 10 : 400, 2); },
                   [](bool q) { return quadrilaterals(q ? 10 : 400); }},
                  {"random 10^5, 10 a row", [](bool q) { return random_rows(q ? 100 : 100000, 10); },
                   [](bool q) { return random_rows(q ? 100 : 100000, 7); }},
                  {"power law 10^5", [](bool q) { return power_law(q ? 100 : 100000); },
                   [](bool q) { return random_rows(q ? 100 : 100000, 7); }}};
  std::vector<bench_case> cases;
  for (const auto& m : matrices) {
    cases.push_back(timed(fmt::format("product {}", m.name), 0, [=] {
      const pattern a = m.make(quick);
      return arithmetic_contenders(a, a, false);
    }));
    cases.push_back(timed(fmt::format("sum {}", m.name), 0,
                          [=] { return arithmetic_contenders(m.make(quick), m.shifted(quick), true); }));
  }
  const auto on_two_threads = [&](const std::string& name, const std::function<prepared()>& setup) {
    cases.push_back(timed(name + ", 2 threads", 0, setup));
    cases.back().threads = 2;
  };
  for (const auto& m : matrices) {
    on_two_threads(fmt::format("product {}", m.name), [=] {
      const pattern a = m.make(quick);
      return arithmetic_threads(a, a, false);
    });
    on_two_threads(fmt::format("sum {}", m.name),
                   [=] { return arithmetic_threads(m.make(quick), m.shifted(quick), true); });
  }
  const auto grid = [=] { return laplacian(quick ? 10 : 1000, 2); };
  on_two_threads("COO lap1000", [=] { return format_threads(grid(), ZOR_SPARSE_COO, 0); });
  on_two_threads("DIA lap1000", [=] { return format_threads(grid(), ZOR_SPARSE_DIA, 0); });
  on_two_threads("BSR 2 x 2 lap1000", [=] { return format_threads(grid(), ZOR_SPARSE_BSR, 2); });
  on_two_threads("SKY lap100",
                 [=] { return format_threads(laplacian(quick ? 10 : 100, 2), ZOR_SPARSE_SKY, 0); });
  return cases;
}

std::vector<bench_case> spconv_cases(const environment& env) {
  const bool quick = env.opts.quick;
  std::vector<bench_case> cases;
  for (const auto& [name, to] : {std::pair{"CSC", target::csc}, std::pair{"COO", target::coo},
                                 std::pair{"DIA", target::dia}, std::pair{"BSR 2", target::bsr}})
    cases.push_back(timed(fmt::format("{} lap1414", name), 0, [=, to = to] {
      return conversion_contenders(laplacian(quick ? 10 : 1414, 2), to);
    }));
  for (const auto& [name, to] : {std::pair{"CSC", target::csc}, std::pair{"COO", target::coo}})
    cases.push_back(timed(fmt::format("{} random 10^6, 10 a row", name), 0, [=, to = to] {
      return conversion_contenders(random_rows(quick ? 100 : 1000000, 10), to);
    }));
  return cases;
}

std::vector<bench_case> sweep_cases(const environment& env) {
  std::vector<bench_case> cases;
  for (const int32_t lb : {2, 4, 8}) {
    const int32_t side = env.opts.quick ? 6 : int32_t(std::sqrt(1e6 / (9.0 * lb * lb)));
    cases.push_back(timed(fmt::format("gauss {} x {}, {} nodes", lb, lb, side * side), 0,
                          [=] { return sweep_contenders(quadrilaterals(side), lb); }));
  }
  return cases;
}

}  // namespace zor_bench
