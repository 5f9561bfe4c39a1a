// SPDX-License-Identifier: MIT
// Kernels whose result is a sparse matrix (sums, products, conversions), the LDLT solve, the symmetric
// product.
#include <numeric>

#include "tests/fuzz/sparse.h"
#include "zor/signatures/spblas_matrix.h"
#include "zor/signatures/spblas_sweep.h"

namespace zor_fuzz {
namespace {

constexpr view general = {'g', 'l', 'n'};

// Elements by row and column, each with the terms that make it.
using elements = std::map<std::pair<zor_int, zor_int>, sum_of_terms>;

// Values, columns and where rows begin.
template <class T, class I>
auto three_arrays(const sparse<T, I>& a) {
  return list_of(a.val(), const_cast<I*>(a.indx), const_cast<I*>(a.pntrb));
}

// The same three arrays with room for so many entries, which a call fills.
template <class T, class I>
struct made {
  made(trial& t, const std::string& name, zor_int rows, zor_int room, zor_int base)
      : m(rows),
        origin(base),
        val(t.vector<T>((name + "val").c_str(), use::inout, room)),
        columns(t.room<I>((name + "columns").c_str(), use::inout, size_t(room))),
        starts(t.room<I>((name + "starts").c_str(), use::out, size_t(rows + 1))) {}
  auto arguments() const { return list_of(val.data(), columns, starts); }
  // Each entry is one of `exact`, and what has none is zero.
  void check(trial& t, elements exact) const {
    for (zor_int r = 0; r < m && t.checking(); ++r)
      for (zor_int k = starts[r] - origin; k < starts[r + 1] - origin; ++k) {
        const auto found = exact.find({r, columns[k] - origin});
        if (found == exact.end()) return t.expect(false, "an entry where none belongs");
        found->second.compare(t, val.now(k), "c", r, columns[k] - origin);
        exact.erase(found);
      }
    for (const auto& [at, s] : exact) s.compare(t, T{}, "what was left out", at.first, at.second);
  }
  zor_int m, origin;
  operand<T> val;
  I *columns, *starts;
};

// A + beta B or A + beta B', A B or A' B.
enum class made_by { sum, sum_transposed, product, product_transposed };
template <class T, class I, made_by How, class Call>
void combine(trial& t, Call* call) {
  constexpr bool transposed_sum = How == made_by::sum_transposed,
                 transposed_product = How == made_by::product_transposed,
                 sums = transposed_sum || How == made_by::sum;
  const zor_int m = t.size("rows", 300, 1), k = t.size("columns", 300, 1), n = sums ? m : t.size("n", 300, 1),
                strip = t.size("strip", 300, 1), one = 1, zero = 0;
  const T beta = t.scalar<T>("beta");
  const bool same_rows = sums ? !transposed_sum : transposed_product;  // as A has
  const sparse<T, I> a(t, general, 1, {.sorted = sums || transposed_product, .m = m, .k = k, .origin = 1}),
      b(t, general, 1,
        {.sorted = sums,
         .prefix = "b.",
         .m = same_rows ? m : k,
         .k = sums && same_rows ? k : n,
         .origin = 1});
  elements exact;
  std::vector<std::vector<entry>> rows_of_b(static_cast<size_t>(b.m));
  const auto value = [](const auto& matrix, const entry& e) { return widened(matrix.val()[e.place]); };
  for (const entry& e : b.entries) rows_of_b[size_t(e.row)].push_back(e);
  for (const entry& e : a.entries) {
    if (sums) exact[{e.row, e.column}].add(value(a, e));
    for (const entry& f : rows_of_b[size_t(transposed_product ? e.row : e.column) * !sums])
      if (!sums)
        exact[{transposed_product ? e.column : e.row, f.column}].add(times(value(a, e), value(b, f)));
  }
  for (const entry& e : b.entries)
    if (sums)
      exact[transposed_sum ? std::pair(e.column, e.row) : std::pair(e.row, e.column)].add(
          times(widened(beta), value(b, e)));
  const made<T, I> c(t, "c.", transposed_product ? k : m, zor_int(exact.size()), 1);
  I* const info = t.room<I>("info", use::out, 1);
  const zor_int room = zor_int(exact.size());
  if constexpr (sums)
    t.invoke(call, transposed_sum ? m : one, transposed_sum ? k : m, zero, zero, three_arrays(a), beta,
             three_arrays(b), c, room, info);
  else if constexpr (transposed_product)
    t.invoke(call, nullptr, m, k, n, zero, strip, three_arrays(a), three_arrays(b), c, room, info);
  else
    t.invoke(call, one, m, m, n, zero, three_arrays(a), three_arrays(b), c, room, info);
  t.expect(*info == 0, "info " + std::to_string(*info));
  c.check(t, exact);
}

// Rows sorted by column in place; entries of one column keep their order.
template <class T, class I>
void sort_rows(trial& t, zor::sort_rows_fn<T, I>* call) {
  const zor_int n = t.size("entries", 3000), longest = t.draw("longest", 1, 90, 9);
  random_bits r = t.random("rows");
  std::vector<I> starts{1}, columns;
  std::vector<zor_int> order(static_cast<size_t>(n));
  std::iota(order.begin(), order.end(), 0);
  for (zor_int i = 0; i < n; ++i) columns.push_back(I(r.between(1, 60)));
  for (zor_int at = 0; at < n; starts.push_back(I(at + 1))) {
    const zor_int end = std::min(n, at + r.between(1, longest));
    std::stable_sort(order.begin() + at, order.begin() + end,
                     [&](zor_int i, zor_int j) { return columns[size_t(i)] < columns[size_t(j)]; });
    at = end;
  }
  const I* const ia = t.integers("ia", starts);
  I* const ja = t.room<I>("ja", use::inout, columns.size());
  std::copy(columns.begin(), columns.end(), ja);
  const auto a = t.vector<T>("a", use::inout, n);
  t.invoke(call, zor_int(1), zor_int(starts.size()) - 1, ia, ja, a);
  for (zor_int i = 0; i < n; ++i) {
    t.near(a.now(i), a(order[size_t(i)]), 0, 0, "a", i);
    t.expect(ja[i] == columns[size_t(order[size_t(i)])], "another column");
  }
}

// From rows to another format and back: what is stored is what it was, or a part of it.
enum class format { coo, csc, dia, sky, bsr, full };
template <class I, format To, class Call>
void convert(trial& t, Call* call) {
  constexpr bool coo = To == format::coo, csc = To == format::csc, dia = To == format::dia,
                 sky = To == format::sky, bsr = To == format::bsr;
  const zor_int n = t.size("n", coo || csc ? 300 : 60, 1), base = t.draw("base", 0, 1, 1),
                other = t.draw("other", 0, 1, 1), lb = t.draw("lb", 1, 6, 1), ld = t.leading("ld", n),
                part = t.draw("part", 0, sky ? 1 : 2, 0);
  const sparse<double, I> a(t, general, int32_t(base), {.sorted = true, .m = n, .k = n, .origin = base});
  const made<double, I> back(t, "back.", n, a.count, base);
  const auto rows = three_arrays(a);
  I job[6] = {0, I(base), I(other), I(part), I(a.count), 3};
  const auto go_back = [&](int fill) { job[0] = 1, job[4] = a.count, job[5] = I(fill); };
  I* const info = t.room<I>("info", csc || dia ? use::inout : use::out, 1);
  if (csc || dia) *info = 0;
  if constexpr (coo) {
    I *const nnz = t.room<I>("nnz", use::out, 1), *const r = t.room<I>("r", use::out, size_t(a.count)),
             *const c = t.room<I>("c", use::out, size_t(a.count));
    const auto v = t.vector<double>("v", use::out, a.count);
    t.invoke(call, job, n, rows, nnz, v, r, c, info);
    go_back(0);
    t.invoke(call, job, n, back, nnz, v, r, c, info);
  } else if constexpr (csc) {
    const made<double, I> columns(t, "columns.", n, a.count, other);
    t.invoke(call, job, n, rows, columns);
    go_back(3);
    t.invoke(call, job, n, back, columns);
  } else if constexpr (dia) {
    const zor_int most = 2 * n - 1;
    const dense<double> v = t.matrix<double>("v", use::inout, n, most, ld);
    I *const distance = t.room<I>("distance", use::inout, size_t(most)), *const count = t.room<I>(
                                                                             "count", use::inout, 1);
    *count = I(most);
    job[5] = 10;
    t.invoke(call, job, n, rows, v, distance, count, nullptr, nullptr, nullptr);
    go_back(0);
    t.invoke(call, job, n, back, v, distance, count, nullptr, nullptr, nullptr);
  } else if constexpr (sky) {
    job[2] = 1, job[4] = I(n * (n + 1) / 2), job[5] = 0;
    const auto v = t.vector<double>("v", use::inout, job[4]);
    I* const starts = t.room<I>("starts", use::out, size_t(n + 1));
    t.invoke(call, job, n, rows, v, starts, info);
    go_back(0);
    t.invoke(call, job, n, back, v, starts, info);
  } else if constexpr (bsr) {
    const made<double, I> blocks(t, "blocks.", (n - 1) / lb + 1, a.count * lb * lb, other);
    t.invoke(call, job, n, lb, lb * lb, rows, blocks, info);
    go_back(0);
    t.invoke(call, job, n, lb, lb * lb, back, blocks, info);
  } else {
    const dense<double> v = t.matrix<double>("v", use::inout, n, n, ld);
    for (zor_int j = 0; j < n; ++j)
      for (zor_int i = 0; i < n; ++i) v.data()[v.at(i, j)] = 0;
    job[0] = 1, job[1] = I(part != 0), job[2] = I(base), job[3] = 2;
    t.invoke(call, job, n, n, v, rows, info);
    go_back(1);
    job[0] = 0;
    t.invoke(call, job, n, n, v, back, info);
  }
  t.expect(*info == 0, "info " + std::to_string(*info));
  elements exact;
  for (const auto& [row, column, place] : a.entries)
    if (!sky || (part == 0 ? column <= row : column >= row))
      exact[{row, column}].add(widened(a.val()[place]));
  back.check(t, exact);
}

// L D L' x = b: rows of the strict factor stand for columns of L; two rows of a block of order 2 stand
// together.
template <class I>
void solve_ldlt(trial& t, zor::ldlt_solve_fn<I>* call) {
  const zor_int n = t.size("n", 2100), most = t.draw("most", 0, 9, 1), pairs = t.draw("pairs", 0, 1, 0);
  I* const mode = t.room<I>("mode", use::inout, 1);
  *mode = I(t.draw("mode", 0, 2, 0));
  random_bits r = t.random("pattern");
  std::vector<zor_int> starts{0}, columns;
  std::vector<uint32_t> bits(size_t(n / 32 + 1));
  std::vector<bool> second(static_cast<size_t>(n));  // of a pair
  for (zor_int i = 0; i < n; ++i) {
    const zor_int rows = pairs != 0 && *mode == 0 && i + 1 < n && r.between(0, 2) == 0 ? 2 : 1;
    for (zor_int e = i + rows < n ? r.between(0, most) : 0; e > 0; --e)
      columns.insert(columns.end(), size_t(rows), r.between(i + rows, n - 1));
    for (zor_int p = i; rows == 2 && p < i + 2; ++p) bits[size_t(p / 32)] |= 1u << (p % 32);
    starts.insert(starts.end(), size_t(rows), zor_int(columns.size()));
    if (rows == 2) second[size_t(++i)] = true;
  }
  const auto val = t.vector<double>("val", use::in, zor_int(columns.size())),
             d = t.vector<double>("d", use::in, n), e = t.vector<double>("e", use::in, n),
             b = t.vector<double>("b", use::inout, n), x = t.vector<double>("x", use::inout, n);
  for (zor_int i = 0; i < n; ++i) {
    auto diagonal = d, beside = e;
    diagonal.set(i, 0, 4 + double(i % 3));
    beside.set(i, 0, 1);
  }
  // The mode with blocks takes narrow integers, whatever the name.
  const auto placed = [&](const char* name, const std::vector<zor_int>& list) -> const void* {
    if (*mode == 0) return t.integers(name, std::vector<int32_t>(list.begin(), list.end()));
    return t.integers(name, std::vector<I>(list.begin(), list.end()));
  };
  const void *const ia = placed("ia", starts), *const ja = placed("ja", columns);
  const I asked = *mode;
  t.invoke(call, n, val, ia, ja, d, e, nullptr, t.integers("piv", bits), b, x, mode);
  if (asked != 0 || !t.checking()) return;
  t.expect((*mode == 2) == (std::find(second.begin(), second.end(), true) == second.end()), "another mode");
  std::vector<sum_of_terms> left(static_cast<size_t>(n)), middle = left, all = left;
  const auto add = [](sum_of_terms& to, wide factor, const sum_of_terms& from) {
    to.value += times(factor, from.value), to.size += magnitude(factor) * from.size,
        to.terms += from.terms + 2;
  };
  const auto row = [&](zor_int i, const auto& body) {
    const zor_int first = second[size_t(i)] ? i - 1 : i,
                  step = first + 1 < n && second[size_t(first + 1)] ? 2 : 1;
    for (zor_int p = starts[size_t(first)] + i - first; p < starts[size_t(first + step)]; p += step)
      body(size_t(columns[size_t(p)]), val(p));
  };
  for (zor_int i = n - 1; i >= 0; --i) {
    sum_of_terms& s = left[size_t(i)];
    s.add(widened(x.now(i)));
    row(i, [&](size_t j, wide v) { s.add(times(v, widened(x.now(zor_int(j))))); });
  }
  for (zor_int i = 0; i < n; ++i) {
    add(middle[size_t(i)], d(i), left[size_t(i)]);
    if (second[size_t(i)])
      add(middle[size_t(i)], 1, left[size_t(i - 1)]), add(middle[size_t(i - 1)], 1, left[size_t(i)]);
  }
  for (zor_int i = 0; i < n; ++i) {
    add(all[size_t(i)], 1, middle[size_t(i)]);
    row(i, [&](size_t j, wide v) { add(all[j], v, middle[size_t(i)]); });
  }
  for (zor_int i = 0; i < n; ++i) {
    all[size_t(i)].add(-b(i));
    all[size_t(i)].compare(t, 0.0, "residual", i);
  }
}

// y := y + A x, A symmetric with its diagonal first or last in each row of one triangle.
template <class I>
void multiply_symmetric(trial& t, zor::symmetric_product_fn<I>* call) {
  const zor_int where = t.draw("where", 0, 1, 0), base = t.draw("base", 0, 1, 1);
  const sparse<double, I> a(t, {'s', where == 0 ? 'u' : 'l', 'n'}, int32_t(base),
                            {.sorted = true, .origin = 0, .one_triangle = true});
  const sides<double> x(t, "x", use::in, a.m, 1, false), y(t, "y", use::inout, a.m, 1, false);
  t.invoke(call, where, a.m, a.val(), a.indx, a.pntrb, x.data(), y.data(), nullptr, base);
  check_product(t, a, false, false, 0, a.m, 1.0, x, y, 0, 1, [&](zor_int i, zor_int j) { return y(i, j); });
}

#define ROW_SORT_ROWS(name, T, I) {#name, [](trial& t) { sort_rows<T, I>(t, name); }},
#define COMBINE(name, T, I, how) {#name, [](trial& t) { combine<T, I, made_by::how>(t, name); }},
#define ROW_CSR_SUM(name, T, I) COMBINE(name, T, I, sum)
#define ROW_CSR_SUM_TR(name, T, I) COMBINE(name, T, I, sum_transposed)
#define ROW_CSR_PRODUCT(name, T, I) COMBINE(name, T, I, product)
#define ROW_CSR_PRODUCT_TR(name, T, I) COMBINE(name, T, I, product_transposed)
const rows results("sparse result kernel", serial,
                   {
#include "zor/tables/spblas_gemm.inc"
                   });
#define CONVERT(name, I, to) {#name, [](trial& t) { convert<I, format::to>(t, name); }},
#define ROW_CSR_COO(name, I) CONVERT(name, I, coo)
#define ROW_CSR_CSC(name, I) CONVERT(name, I, csc)
#define ROW_CSR_DIA(name, I) CONVERT(name, I, dia)
#define ROW_CSR_SKY(name, I) CONVERT(name, I, sky)
#define ROW_CSR_BSR(name, I) CONVERT(name, I, bsr)
#define ROW_DENSE_CSR(name, I) CONVERT(name, I, full)
const rows conversions("conversion kernel", serial,
                       {
#include "zor/tables/spblas_conv.inc"
                       });
#define ROW_LDLT_SOLVE(name, I) {#name, [](trial& t) { solve_ldlt<I>(t, name); }},
#define ROW_SYMMETRIC_PRODUCT(name, I) {#name, [](trial& t) { multiply_symmetric<I>(t, name); }},
const rows factors("sparse factor kernel", serial,
                   {
#include "zor/tables/spblas_sweep.inc"
                   });

}  // namespace
}  // namespace zor_fuzz
