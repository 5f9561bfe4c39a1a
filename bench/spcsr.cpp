// SPDX-License-Identifier: MIT
// CSR kernels called directly, on one thread: products and solves with one and many right-hand sides. The
// last cases are the public side on two threads.
#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>

#include "bench/bench.h"
#include "bench/csr.h"
#include "bench/operands.h"
#include "zor/core.h"
#include "zor/signatures/spblas.h"
#include "zor/sparse.h"

namespace zor_bench {
namespace {

// The kernel of an operation, in the one of the fields that fits it.
template <class T, class I>
struct csr_kernel {
  csr_operation what;
  zor::csr_mvout_par_fn<T, I>* rows = nullptr;
  zor::csr_mvout_seq_fn<T, I>* whole = nullptr;
  zor::csr_mmout_par_fn<T, I>* products = nullptr;
  zor::csr_svout_seq_fn<T, I>* solve = nullptr;
  zor::csr_smout_par_fn<T, I>* solves = nullptr;
};
template <class T, class I>
constexpr csr_kernel<T, I> kernels[] = {};
#define KERNELS(prefix, T, I)                                                                   \
  template <>                                                                                   \
  constexpr csr_kernel<T, I> kernels<T, I>[] = {                                                \
      {.what = csr_operation::product, .rows = prefix##csr0ng__c__mvout_par},                   \
      {.what = csr_operation::symmetric, .rows = prefix##csr0nslnc__mvout_par},                 \
      {.what = csr_operation::products_by_rows, .products = prefix##csr0ng__c__mmout_par},      \
      {.what = csr_operation::products_by_columns, .products = prefix##csr1ng__f__mmout_par},   \
      {.what = csr_operation::lower_solve, .solve = prefix##csr0ntlnc__svout_seq},              \
      {.what = csr_operation::upper_solve, .solve = prefix##csr0ntunc__svout_seq},              \
      {.what = csr_operation::transposed_solve, .solve = prefix##csr0ttlnc__svout_seq},         \
      {.what = csr_operation::lower_solves_by_rows, .solves = prefix##csr0ntlnc__smout_par},    \
      {.what = csr_operation::upper_solves_by_rows, .solves = prefix##csr0ntunc__smout_par},    \
      {.what = csr_operation::lower_solves_by_columns, .solves = prefix##csr1ntlnf__smout_par}, \
      {.what = csr_operation::upper_solves_by_columns, .solves = prefix##csr1ntunf__smout_par}, \
      {.what = csr_operation::transposed, .whole = prefix##csr0tg__c__mvout_seq},               \
      {.what = csr_operation::triangular, .rows = prefix##csr0ntlnc__mvout_par},                \
      {.what = csr_operation::transposed_triangular, .whole = prefix##csr0ttlnc__mvout_seq},    \
      {.what = csr_operation::skew, .rows = prefix##csr0nal_c__mvout_par},                      \
      {.what = csr_operation::diagonal, .whole = prefix##csr0nd_nc__mvout_seq},                 \
      {.what = csr_operation::transposed_by_rows, .products = prefix##csr0tg__c__mmout_par},    \
      {.what = csr_operation::triangular_by_rows, .products = prefix##csr0ntlnc__mmout_par},    \
      {.what = csr_operation::symmetric_by_rows, .products = prefix##csr0nslnc__mmout_par},     \
      {.what = csr_operation::hermitian, .rows = HERMITIAN(prefix)}};
#define HERMITIAN(prefix) nullptr
KERNELS(zor_spblas_d, double, int64_t)
KERNELS(zor_spblas_lp64_d, double, int32_t)
#undef HERMITIAN
#define HERMITIAN(prefix) prefix##csr0nhlnc__mvout_par
KERNELS(zor_spblas_z, zor_c64, int64_t)
KERNELS(zor_spblas_lp64_z, zor_c64, int32_t)
#undef HERMITIAN
#undef KERNELS

template <class I>
constexpr auto gemv = zor_spblas_dcsr1ng__f__gemvout_par;
template <>
constexpr auto gemv<int32_t> = zor_spblas_lp64_dcsr1ng__f__gemvout_par;

bool has_base_1(csr_operation what) {
  return what == csr_operation::products_by_columns || what == csr_operation::lower_solves_by_columns ||
         what == csr_operation::upper_solves_by_columns || what == csr_operation::rows_alone;
}

// The columns of a square matrix, row after row, ascending in each.
struct pattern {
  std::vector<int32_t> start = {0}, column;

  int32_t rows() const { return int32_t(start.size()) - 1; }
  int64_t entries() const { return int64_t(column.size()); }
  void end_row() { start.push_back(int32_t(column.size())); }
};

// The 5-point Laplacian of a grid of side by side points.
pattern laplacian(int32_t side) {
  pattern p;
  for (int32_t i = 0; i < side; ++i)
    for (int32_t j = 0; j < side; ++j) {
      const int32_t r = i * side + j;
      if (i > 0) p.column.push_back(r - side);
      if (j > 0) p.column.push_back(r - 1);
      p.column.push_back(r);
      if (j + 1 < side) p.column.push_back(r + 1);
      if (i + 1 < side) p.column.push_back(r + side);
      p.end_row();
    }
  return p;
}

// One entry somewhere in each of `entries` equal parts of the row.
pattern scattered(int32_t n, int32_t entries) {
  pattern p;
  uint64_t state = 7;
  for (int32_t r = 0; r < n; ++r) {
    for (int32_t e = 0; e < entries; ++e) {
      state = state * 6364136223846793005u + 1442695040888963407u;
      p.column.push_back(n / entries * e + int32_t((state >> 33) % uint64_t(n / entries)));
    }
    p.end_row();
  }
  return p;
}

pattern banded(int32_t n, int32_t entries) {
  pattern p;
  for (int32_t r = 0; r < n; ++r) {
    for (int32_t e = 0; e < entries; ++e) p.column.push_back(std::clamp(r - entries / 2, 0, n - entries) + e);
    p.end_row();
  }
  return p;
}

// Up to nine entries anywhere on each side of the diagonal, their number at random.
pattern short_rows(int32_t n) {
  pattern p;
  std::mt19937 random(11);
  for (int32_t r = 0; r < n; ++r) {
    std::set<int32_t> columns = {r};
    const auto add = [&](int32_t first, int32_t last) {
      for (auto count = first < last ? random() % 10 : 0; count > 0; --count)
        columns.insert(first + int32_t(random() % uint32_t(last - first)));
    };
    add(0, r);
    add(r + 1, n);
    p.column.insert(p.column.end(), columns.begin(), columns.end());
    p.end_row();
  }
  return p;
}

struct named_pattern {
  const char* name;
  pattern (*make)(bool quick);
};
constexpr named_pattern lap30 = {"lap30", [](bool quick) { return laplacian(quick ? 5 : 30); }};
constexpr named_pattern lap200 = {"lap200", [](bool quick) { return laplacian(quick ? 12 : 200); }};
constexpr named_pattern lap1000 = {"lap1000", [](bool quick) { return laplacian(quick ? 20 : 1000); }};
constexpr named_pattern rows10 = {"rows of 10", [](bool quick) { return scattered(quick ? 50 : 20000, 10); }};
constexpr named_pattern rows60 = {"rows of 60",
                                  [](bool quick) { return scattered(quick ? 120 : 10000, 60); }};
constexpr named_pattern band200 = {"band of 200", [](bool quick) { return banded(quick ? 300 : 4000, 200); }};
constexpr named_pattern irregular = {"short rows",
                                     [](bool quick) { return short_rows(quick ? 50 : 200000); }};

// The entries that an operation stores.
pattern stored(const pattern& whole, csr_operation what) {
  using enum csr_operation;
  const bool lower = what == symmetric || what == symmetric_by_rows || what == skew || what == hermitian ||
                     what == lower_solve || what == transposed_solve || what == lower_solves_by_rows ||
                     what == lower_solves_by_columns;
  const bool upper = what == upper_solve || what == upper_solves_by_rows || what == upper_solves_by_columns;
  pattern p;
  for (int32_t r = 0; r < whole.rows(); ++r) {
    for (int32_t k = whole.start[size_t(r)]; k < whole.start[size_t(r) + 1]; ++k) {
      const int32_t c = whole.column[size_t(k)];
      if (!(lower && c > r) && !(upper && c < r)) p.column.push_back(c);
    }
    p.end_row();
  }
  return p;
}

// Values are uniform in [-1, 1), the diagonal is 4.
template <class T, class I>
struct problem {
  csr_operation what;
  I rows, rhs;
  operand<I> start, column;
  operand<T> value, x, y;

  problem(csr_operation operation, const pattern& p, I right_hand_sides, I base)
      : what(operation),
        rows(p.rows()),
        rhs(right_hand_sides),
        start(rows + 1, 1),
        column(p.entries(), 2),
        value(column.count(), 3),
        x(zor_int(rows) * rhs, 4),
        y(zor_int(rows) * rhs, 5) {
    fill(value, 3);
    fill(x, 4);
    for (I r = 0; r < rows; ++r)
      for (int32_t k = p.start[size_t(r)]; k < p.start[size_t(r) + 1]; ++k) {
        column.data()[k] = p.column[size_t(k)] + base;
        if (p.column[size_t(k)] == r) set_diagonal(value.data()[k]);
      }
    for (I r = 0; r <= rows; ++r) start.data()[r] = p.start[size_t(r)] + base;
  }
  static void set_diagonal(T& v) {
    v = {};
    *reinterpret_cast<double*>(&v) = 4;
  }
  void reset() const { fill(y, 5); }
  csr_job job() const {
    return {what,
            is_complex<T> ? 'z' : 'd',
            int32_t(sizeof(I)),
            rows,
            value.count(),
            rhs,
            start.data(),
            column.data(),
            value.data(),
            x.data(),
            y.data()};
  }
};

// The operands `a` in the kernel's base; x and y are those of `shared`.
template <class T, class I>
runner our_runner(const problem<T, I>& a, const problem<T, I>& shared) {
  return [a, x = shared.x, y = shared.y](int64_t repeats) {
    T one = {};
    *reinterpret_cast<double*>(&one) = 1;
    const I first = 1, m = a.rows, n = a.rhs;
    const I *indx = a.column.data(), *pntrb = a.start.data(), *pntre = pntrb + 1;
    const T* val = a.value.data();
    const T* b = x.data();
    T* c = y.data();
    const I ld = has_base_1(a.what) ? m : n;
    if constexpr (std::is_same_v<T, double>)
      if (a.what == csr_operation::rows_alone) {
        for (int64_t i = 0; i < repeats; ++i) gemv<I>(&first, &m, &m, &m, val, indx, pntrb, nullptr, b, c);
        return;
      }
    const auto& k = *std::find_if(std::begin(kernels<T, I>), std::end(kernels<T, I>),
                                  [&](const auto& kernel) { return kernel.what == a.what; });
    for (int64_t i = 0; i < repeats; ++i) {
      if (k.solve != nullptr || k.solves != nullptr) std::memcpy(c, b, size_t(m) * size_t(n) * sizeof(T));
      if (k.rows != nullptr) k.rows(&first, &m, &m, &one, val, indx, pntrb, pntre, b, c);
      if (k.whole != nullptr) k.whole(&m, &one, val, indx, pntrb, pntre, b, c);
      if (k.products != nullptr)
        k.products(&first, &n, &m, &n, &one, val, indx, pntrb, pntre, b, &ld, c, &ld);
      if (k.solve != nullptr) k.solve(&m, &one, val, indx, pntrb, pntre, c);
      if (k.solves != nullptr) k.solves(&first, &n, &m, &n, &one, val, indx, pntrb, pntre, c, &ld);
    }
  };
}

// The peers that are there; those compiled for this processor stand beside the libraries.
std::vector<const csr_peer*> find_peers() {
  std::vector<const csr_peer*> found;
  for (const char* file :
       {"$ORIGIN/../lib/bench/zor_peer_loops.so", "$ORIGIN/../lib/bench/zor_peer_eigen.so"})
    if (void* library = dlopen(file, RTLD_NOW | RTLD_LOCAL))
      found.push_back(static_cast<const csr_peer*>(dlsym(library, "zor_csr_peer")));
  found.push_back(find_librsb());
  std::erase(found, nullptr);
  return found;
}

template <class T, class I>
prepared checked(const problem<T, I>& p, const std::vector<contender>& contenders) {
  p.reset();
  contenders[0].run(1);
  const operand<T> ours(p.y.count());
  std::memcpy(ours.data(), p.y.data(), size_t(ours.count()) * sizeof(T));
  return keep_agreeing(contenders, [&](const contender& other) {
    p.reset();
    other.run(1);
    return close(ours, p.y, 256);
  });
}

template <class T, class I>
prepared set_up(csr_operation what, const pattern& p, I rhs) {
  const problem<T, I> base0(what, p, rhs, 0);
  const problem<T, I> mine = has_base_1(what) ? problem<T, I>(what, p, rhs, 1) : base0;
  std::vector<contender> all = {{"zor", our_runner(mine, base0)}};
  for (const csr_peer* peer : find_peers())
    if (void* opened = peer->open(base0.job())) {
      const std::shared_ptr<void> owner(opened, peer->close);
      all.push_back({peer->name, [owner, base0, run = peer->run](int64_t repeats) {
                       for (int64_t i = 0; i < repeats; ++i) run(owner.get());
                     }});
    }
  return checked(base0, all);
}

// y := y + op(A) x through the public side, two threads against one.
prepared set_up_threads(csr_operation operation, const pattern& p) {
  const problem<double, int64_t> a(operation, p, 1, 0);
  using enum csr_operation;
  const int32_t op = operation == transposed_triangular ? ZOR_SPARSE_TRANSPOSE : ZOR_SPARSE_PLAIN;
  zor_sparse_desc what = {};
  what.format = ZOR_SPARSE_CSR;
  what.type = ZOR_SPARSE_DOUBLE;
  what.structure = operation == product     ? ZOR_SPARSE_GENERAL
                   : operation == symmetric ? ZOR_SPARSE_SYMMETRIC
                                            : ZOR_SPARSE_TRIANGULAR;
  what.rows = what.cols = a.rows;
  what.nnz = a.value.count();
  what.val = a.value.data();
  what.indx = a.column.data();
  what.pntrb = a.start.data();
  zor_sparse matrix = nullptr;
  if (zor_sparse_create(&matrix, &what) != ZOR_SPARSE_OK) throw std::runtime_error(zor_sparse_error_text());
  const std::shared_ptr<zor_sparse_matrix> owner(matrix, [](zor_sparse m) { zor_sparse_free(&m); });
  const auto on = [=](int32_t threads) {
    return [=](int64_t repeats) {
      zor_core_set_num_threads(threads);
      for (int64_t i = 0; i < repeats; ++i) zor_sparse_dmv(owner.get(), op, 1, a.x.data(), 1, a.y.data());
    };
  };
  return checked(a, {{"zor", on(2)}, {"zor, 1 thread", on(1)}});
}

template <class T, class I>
bench_case case_of(const environment& env, csr_operation what, const char* label, const named_pattern& matrix,
                   I rhs = 1) {
  bench_case c;
  c.name = fmt::format("{}{} {} {}", is_complex<T> ? 'z' : 'd', 8 * sizeof(I), label, matrix.name);
  const pattern p = stored(matrix.make(env.opts.quick), what);
  const double rows = p.rows(), entries = double(p.entries());
  const bool mirrored = what == csr_operation::symmetric || what == csr_operation::symmetric_by_rows ||
                        what == csr_operation::skew || what == csr_operation::hermitian;
  const double used = mirrored ? 2 * entries - rows : entries;
  c.flops = (is_complex<T> ? 8.0 : 2.0) * used * double(rhs);
  c.bytes = entries * (sizeof(T) + sizeof(I)) + rows * (sizeof(I) + 3 * sizeof(T) * double(rhs));
  c.setup = [=, quick = env.opts.quick] { return set_up<T, I>(what, stored(matrix.make(quick), what), rhs); };
  return c;
}

template <class T, class I>
void add_all(const environment& env, std::vector<bench_case>& cases) {
  const auto add = [&](auto... arguments) { cases.push_back(case_of<T, I>(env, arguments...)); };
  for (const auto& matrix : {lap30, lap200, lap1000, rows10, rows60, band200}) {
    add(csr_operation::product, "general", matrix);
    add(csr_operation::symmetric, "symmetric", matrix);
  }
  for (const auto& matrix : {lap30, lap200, rows60})
    for (const I rhs : {8, 32}) {
      add(csr_operation::products_by_rows, rhs == 8 ? "8 by rows" : "32 by rows", matrix, rhs);
      add(csr_operation::products_by_columns, rhs == 8 ? "8 by columns" : "32 by columns", matrix, rhs);
    }
  for (const auto& matrix : {lap30, lap200, lap1000, irregular}) {
    add(csr_operation::lower_solve, "lower", matrix);
    add(csr_operation::upper_solve, "upper", matrix);
  }
  for (const auto& matrix : {lap30, lap200}) {
    const I rhs = 8;
    add(csr_operation::lower_solves_by_rows, "lower 8 by rows", matrix, rhs);
    add(csr_operation::upper_solves_by_rows, "upper 8 by rows", matrix, rhs);
    add(csr_operation::lower_solves_by_columns, "lower 8 by cols", matrix, rhs);
    add(csr_operation::upper_solves_by_columns, "upper 8 by cols", matrix, rhs);
  }
  for (const auto& matrix : {lap200, rows60}) {
    add(csr_operation::transposed, "transp.", matrix);
    add(csr_operation::triangular, "triangle", matrix);
    add(csr_operation::transposed_triangular, "tr. transp.", matrix);
    add(csr_operation::skew, "skew", matrix);
    add(csr_operation::diagonal, "diagonal", matrix);
    const I rhs = 8;
    add(csr_operation::transposed_by_rows, "transp. 8 by rows", matrix, rhs);
    add(csr_operation::triangular_by_rows, "triangle 8 by rows", matrix, rhs);
    add(csr_operation::symmetric_by_rows, "symmetric 8 by rows", matrix, rhs);
    if (is_complex<T>)
      add(csr_operation::hermitian, "Hermitian", matrix);
    else
      add(csr_operation::rows_alone, "rows alone", matrix);
  }
  for (const auto& matrix : {lap200, irregular})
    add(csr_operation::transposed_solve, "lower transp.", matrix);
}

}  // namespace

std::vector<bench_case> spcsr_cases(const environment& env) {
  std::vector<bench_case> cases;
  add_all<double, int64_t>(env, cases);
  add_all<double, int32_t>(env, cases);
  add_all<zor_c64, int64_t>(env, cases);
  add_all<zor_c64, int32_t>(env, cases);
  const auto add_threads = [&](csr_operation what, const char* label, const named_pattern& matrix) {
    bench_case threads = case_of<double, int64_t>(env, what, label, matrix);
    threads.name += " 2 threads";
    threads.threads = 2;
    threads.setup = [=, quick = env.opts.quick] {
      return set_up_threads(what, stored(matrix.make(quick), what));
    };
    cases.push_back(std::move(threads));
  };
  add_threads(csr_operation::product, "general", lap1000);
  add_threads(csr_operation::symmetric, "symmetric", rows60);
  add_threads(csr_operation::transposed_triangular, "tr. transp.", band200);
  return cases;
}

}  // namespace zor_bench
