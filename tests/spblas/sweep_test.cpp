// SPDX-License-Identifier: MIT
// Block sweeps, scaling by the diagonal, the LDLT solve and the symmetric product against plain loops in the
// stated orders, bit for bit, and against known solutions that come out without rounding.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "tests/spblas/matrices.h"
#include "zor/signatures/spblas_sweep.h"

namespace {

using namespace sparse_test;
using zor_ref::minus;
using zor_ref::plus;
using zor_ref::times;
using zor_test::same_bits;

float divided(float n, float d) { return n / d; }
double divided(double n, double d) { return n / d; }
template <class Wide, class T>
T divided_in(T n, T d) {
  const Wide nr = n.re, ni = n.im, dr = d.re, di = d.im, u = 1 / (dr * dr + di * di);
  return {real<T>((nr * dr + ni * di) * u), real<T>((ni * dr - nr * di) * u)};
}
zor_c32 divided(zor_c32 n, zor_c32 d) { return divided_in<double>(n, d); }
zor_c64 divided(zor_c64 n, zor_c64 d) { return divided_in<long double>(n, d); }

// Blocks by lines (block rows, or block columns), sorted: their numbers and elements by rows.
template <class T>
struct block_of {
  int64_t index;
  std::vector<T> element;  // (i, j) at i lb + j
};
template <class T>
using block_lines = std::vector<std::vector<block_of<T>>>;

// Some lines have no diagonal block, but never the last, behind which nothing stands.
template <class T>
block_lines<T> random_blocks(random_bits& random, int64_t mb, int64_t lb) {
  block_lines<T> lines(static_cast<size_t>(mb));
  for (int64_t R = 0; R < mb; ++R) {
    for (int64_t C = 0; C < mb; ++C) {
      const bool diagonal = R == C;
      const bool wanted = diagonal ? R + 1 == mb || random.between(0, 3) != 0 : random.between(0, 2) == 0;
      if (!wanted) continue;
      block_of<T> b{C, std::vector<T>(size_t(lb * lb))};
      fill(random, b.element.data(), b.element.size());
      for (int64_t i = 0; i < lb && diagonal; ++i) reals(&b.element[size_t(i * lb + i)])[0] += 3;
      if (!diagonal)
        for (T& e : b.element)
          for (size_t p = 0; p < parts<T>; ++p) reals(&e)[p] /= real<T>(2 * lb);
      lines[size_t(R)].push_back(b);
    }
  }
  return lines;
}

template <class T, class I>
struct block_arrays {
  guarded<T> val;
  guarded<I> indx, pntrb, pntre;

  auto arguments() const { return zor_test::list_of(val.data(), indx.data(), pntrb.data(), pntre.data()); }
  static size_t count(const block_lines<T>& lines) {
    size_t n = 0;
    for (const auto& l : lines) n += l.size();
    return n;
  }
  block_arrays(const block_lines<T>& lines, int64_t lb, bool by_rows, I origin)
      : val(count(lines) * size_t(lb * lb)), indx(count(lines)), pntrb(lines.size()), pntre(lines.size()) {
    size_t p = 0;
    for (size_t l = 0; l < lines.size(); ++l) {
      pntrb[l] = I(p) + origin;
      for (const auto& b : lines[l]) {
        for (int64_t i = 0; i < lb; ++i)
          for (int64_t j = 0; j < lb; ++j)
            val[p * size_t(lb * lb) + size_t(by_rows ? i * lb + j : i + j * lb)] =
                b.element[size_t(i * lb + j)];
        indx[p++] = I(b.index + (by_rows ? 0 : 1));
      }
      pntre[l] = I(p) + origin;
    }
  }
};

// All blocks in storage order: where a line has no diagonal block, the next one of the array is taken.
template <class T>
const block_of<T>* first_at_or_behind(const block_lines<T>& lines, size_t line, bool exactly) {
  for (const auto& b : lines[line])
    if (exactly ? b.index == int64_t(line) : b.index >= int64_t(line)) return &b;
  for (size_t l = line + 1; l < lines.size(); ++l)
    if (!lines[l].empty()) return &lines[l].front();
  return nullptr;
}

// One right-hand side; y(i) by a stride.
template <class T>
void reference_sweep(bool upper, bool with_diagonal, bool by_columns, const block_lines<T>& lines, int64_t lb,
                     T* y, int64_t step) {
  const auto at = [&](int64_t block, int64_t i) -> T& { return y[(block * lb + i) * step]; };
  const int64_t mb = int64_t(lines.size());
  const auto solve = [&](int64_t R) {
    if (!with_diagonal) return;
    const block_of<T>& d = *first_at_or_behind(lines, size_t(R), false);
    for (int64_t n = 0; n < lb; ++n) {
      const int64_t i = upper ? lb - 1 - n : n;
      T s{};
      for (int64_t j = upper ? i + 1 : 0; j < (upper ? lb : i); ++j)
        s = plus(s, times(d.element[size_t(i * lb + j)], at(R, j)));
      at(R, i) = divided(minus(at(R, i), s), d.element[size_t(i * lb + i)]);
    }
  };
  for (int64_t n = 0; n < mb; ++n) {
    const int64_t R = upper ? mb - 1 - n : n;
    std::vector<T> t(static_cast<size_t>(lb));
    if (by_columns) solve(R);
    bool stopped = false;
    for (const auto& b : lines[size_t(R)]) {
      const bool stops = !stopped && b.index >= R, behind = upper != by_columns;
      const bool left_out = stops && (with_diagonal || b.index == R);
      stopped = stopped || b.index >= R;
      if (left_out || stopped != behind) continue;
      for (int64_t i = 0; i < lb; ++i)
        for (int64_t j = 0; j < lb; ++j) {
          const T a = b.element[size_t(i * lb + j)];
          if (by_columns)
            at(b.index, i) = minus(at(b.index, i), times(a, at(R, j)));
          else
            t[size_t(i)] = plus(t[size_t(i)], times(a, at(b.index, j)));
        }
    }
    if (by_columns) continue;
    for (int64_t i = 0; i < lb; ++i) at(R, i) = minus(at(R, i), t[size_t(i)]);
    solve(R);
  }
}

struct sweep_size {
  int64_t mb, lb;
};
constexpr sweep_size sweep_sizes[] = {{1, 1}, {5, 2},  {7, 3},  {6, 4}, {4, 5},
                                      {5, 8}, {3, 10}, {3, 11}, {3, 19}};

template <class T, class I>
void check_sweep(const std::string& name, zor::sweep_fn<T, I>* sweep) {
  SCOPED_TRACE(name);
  const bool by_columns = name.find("bsc") != name.npos, by_rows_within = name.find("cspblas") != name.npos;
  random_bits random(51);
  for (const sweep_size& s : sweep_sizes) {
    const auto lines = random_blocks<T>(random, s.mb, s.lb);
    const block_arrays<T, I> a(lines, s.lb, by_rows_within, I(random.between(0, 2)));
    for (const I nrhs : {1, 2, 11}) {
      for (const I uplo : {0, 1}) {
        for (const I diag : {0, 1}) {
          SCOPED_TRACE("lb " + std::to_string(s.lb) + " nrhs " + std::to_string(nrhs) + " uplo " +
                       std::to_string(uplo) + " diag " + std::to_string(diag));
          const int64_t m = s.mb * s.lb;
          const bool rows = by_rows_within && nrhs != 1;
          const I ldy = rows ? nrhs + 1 : I(m + 1);
          guarded<T> y(size_t(rows ? (m - 1) * ldy + nrhs : (nrhs - 1) * ldy + m));
          zor_test::fill(y, random);
          const int64_t step = rows ? ldy : 1, next = rows ? 1 : ldy;
          std::vector<T> expected(y.begin(), y.end());
          for (int64_t r = 0; r < nrhs; ++r) {
            reference_sweep(uplo == 0, diag != 0, by_columns, lines, s.lb, expected.data() + r * next, step);
          }
          pass(sweep, uplo, diag, s.mb, nrhs, s.lb, a, y, nrhs == 1 ? nullptr : &ldy);
          EXPECT_TRUE(same_bits(reals(expected.data()), reals(y.data()), y.size() * parts<T>));
        }
      }
    }
  }
}

template <class T, class I, class Call>
void check_invdiag(const std::string& name, bool by_rows, const Call& call) {
  SCOPED_TRACE(name);
  random_bits random(52);
  for (const sweep_size& s : sweep_sizes) {
    const auto lines = random_blocks<T>(random, s.mb, s.lb);
    const block_arrays<T, I> a(lines, s.lb, by_rows, 1);
    for (const I nrhs : {0, 1, 9}) {
      if (!by_rows && nrhs == 9) continue;
      const I ldy = nrhs + 2;
      const int64_t m = s.mb * s.lb, step = nrhs > 1 ? ldy : 1;
      guarded<T> y(size_t((m - 1) * step + std::max(nrhs, I(1))));
      zor_test::fill(y, random);
      std::vector<T> expected(y.begin(), y.end());
      for (int64_t i = 0; i < m; ++i)
        for (I r = 0; r < nrhs; ++r) {
          const block_of<T>& b = *first_at_or_behind(lines, size_t(i / s.lb), true);
          T& e = expected[size_t(i * step + r)];
          e = divided(e, b.element[size_t(i % s.lb * s.lb + i % s.lb)]);
        }
      call(zor_test::list_of(s.mb, nrhs, s.lb) + a.arguments(), y, ldy);
      EXPECT_TRUE(same_bits(reals(expected.data()), reals(y.data()), y.size() * parts<T>))
          << "lb " << s.lb << " nrhs " << nrhs;
    }
  }
}

TEST(SparseSweep, Gauss) {
#define ROW_SWEEP(name, T, I, ...) check_sweep<T, I>(#name, name);
#include "zor/tables/spblas_sweep.inc"
}
TEST(SparseSweep, InverseDiagonal) {
#define ROW_INVDIAG(name, T, I) \
  check_invdiag<T, I>(#name, false, [](const auto& of, auto& y, I) { pass(name, of, y); });
#define ROW_INVDIAG_ROWS(name, T, I) \
  check_invdiag<T, I>(#name, true, [](const auto& of, auto& y, I ldy) { pass(name, of, y, ldy); });
#include "zor/tables/spblas_sweep.inc"
}

// The strict factor by rows, its columns behind the row, with blocks of order 2 at some pairs of rows.
template <class Index>
struct ldlt {
  int64_t n;
  guarded<double> val, d, e;
  guarded<Index> ia, ja;
  guarded<uint32_t> piv;
  std::vector<double> dense;  // L, unit lower, by columns: column i is row i of the factor

  ldlt(random_bits& random, int64_t order, int64_t each, bool pairs, bool exact)
      : n(order),
        val(size_t(order * each * 2)),
        d(size_t(order)),
        e(size_t(order)),
        ia(size_t(order + 1)),
        ja(val.size()),
        piv(size_t((order + 31) / 32)) {
    std::fill(piv.begin(), piv.end(), 0u);
    zor_test::fill(e, random);
    const auto number = [&] { return exact ? double(random.between(-2, 2)) : random.unit() / 4; };
    if (exact) dense.assign(size_t(n * n), 0.0);
    Index at = 0;
    for (int64_t i = 0; i < n; ++i) {
      const bool pair = pairs && i + 1 < n && (random.between(0, 2) == 0 || i + 2 == n);
      ia[size_t(i)] = at;
      for (int64_t k = 0; k < each && i + 1 + pair < n; ++k) {
        const int64_t column = random.between(i + 1 + pair, n - 1);
        for (int64_t member = 0; member <= int64_t(pair); ++member) {
          ja[size_t(at)] = Index(column);
          val[size_t(at)] = number();
          if (exact) dense[size_t(column + (i + member) * n)] += val[size_t(at)];
          ++at;
        }
      }
      d[size_t(i)] = exact ? 2 : 2 + random.unit();
      if (!pair) continue;
      ia[size_t(++i)] = at;
      d[size_t(i)] = exact ? 2 : 2 + random.unit();
      if (exact) e[size_t(i - 1)] = 1;
      for (const int64_t member : {i - 1, i}) piv[size_t(member / 32)] |= 1u << (member % 32);
    }
    ia[size_t(n)] = at;
  }
  auto arguments() {
    return zor_test::list_of(val.data(), ia.data(), ja.data(), d.data(), e.data(), nullptr, piv.data());
  }
  bool in_pair(int64_t i) const { return piv[size_t(i / 32)] >> (i % 32) & 1; }
};

template <class Index>
void reference_pairs(const ldlt<Index>& f, std::vector<double>& b, std::vector<double>& x) {
  for (int64_t i = 0; i < f.n; ++i) {
    const size_t r = size_t(i);
    const bool pair = f.in_pair(i);
    for (size_t p = size_t(f.ia[r]); p < size_t(f.ia[r + 1]); p += pair ? 2 : 1) {
      double& to = b[size_t(f.ja[p])];
      to = to - f.val[p] * b[r];
      if (pair) to = to - f.val[p + 1] * b[r + 1];
    }
    i += pair;
  }
  for (int64_t k = f.n - 1; k >= 0; --k) {
    const size_t r = size_t(k);
    if (!f.in_pair(k)) {
      x[r] = b[r] / f.d[r];
      for (size_t p = size_t(f.ia[r]); p < size_t(f.ia[r + 1]); ++p)
        x[r] = x[r] - f.val[p] * x[size_t(f.ja[p])];
      continue;
    }
    const size_t j = r - 1;
    const double u = f.d[r] / f.e[j], v = f.d[j] / f.e[j], w = 1 / (u * v - 1) / f.e[j];
    x[j] = (u * b[j] - b[r]) * w;
    x[r] = w * (v * b[r] - b[j]);
    for (size_t p = size_t(f.ia[j]); p < size_t(f.ia[r]); p += 2) {
      x[j] = x[j] - f.val[p] * x[size_t(f.ja[p])];
      x[r] = x[r] - f.val[p + 1] * x[size_t(f.ja[p])];
    }
    --k;
  }
}

// Below 2000 rows nothing but the forward stage and the division.
template <class Index>
void reference_simple(const ldlt<Index>& f, std::vector<double>& b, std::vector<double>& x) {
  for (size_t i = 0; i < size_t(f.n); ++i) {
    const double u = 0 - b[i];
    for (size_t p = size_t(f.ia[i]); p < size_t(f.ia[i + 1]); ++p)
      b[size_t(f.ja[p])] = b[size_t(f.ja[p])] + f.val[p] * u;
    x[i] = b[i] / f.d[i];
  }
  for (size_t i = size_t(f.n); f.n >= 2000 && i-- > 0;) {
    std::vector<zor_ref::entry<double>> row;
    for (size_t p = size_t(f.ia[i]); p < size_t(f.ia[i + 1]); ++p) row.push_back({f.ja[p] + 1, f.val[p]});
    x[i] = x[i] - zor_ref::row_dot(row, false, zor_ref::column_of<const double>{x.data(), 1});
  }
}

template <class Index, class I, class Solve>
void check_solve(ldlt<Index>& f, zor::ldlt_solve_fn<I>* solve, I mode, I mode_after, const Solve& reference) {
  random_bits random(53);
  guarded<double> b(size_t(f.n)), x(size_t(f.n));
  zor_test::fill(b, random);
  zor_test::fill(x, random);
  std::vector<double> expected_b(b.begin(), b.end()), expected_x(x.begin(), x.end());
  reference(f, expected_b, expected_x);
  pass(solve, f.n, f, b, x, &mode);
  EXPECT_EQ(mode, mode_after);
  EXPECT_TRUE(same_bits(expected_b.data(), b.data(), b.size())) << "n " << f.n;
  EXPECT_TRUE(same_bits(expected_x.data(), x.data(), x.size())) << "n " << f.n;
}

template <class I>
void check_ldlt(const char* name, zor::ldlt_solve_fn<I>* solve) {
  SCOPED_TRACE(name);
  random_bits random(54);
  for (const int64_t n : {1, 2, 33, 200}) {
    for (const bool pairs : {false, true}) {
      ldlt<int32_t> f(random, n, 7, pairs, false);
      check_solve(f, solve, I(0), I(pairs && n > 1 ? 0 : 2), reference_pairs<int32_t>);
      check_solve(f, solve, I(1), I(1), [](auto&, auto&, auto&) {});
    }
    // L D L^T x for integers x; D = ((2, 1), (1, 2)) or 2 divides sixfold ones without rounding.
    ldlt<int32_t> f(random, n, 3, true, true);
    std::vector<double> x(static_cast<size_t>(n)), t(x), b(x);
    for (double& v : x) v = double(random.between(-3, 3));
    for (size_t i = 0; i < x.size(); ++i) {
      t[i] = x[i];
      for (size_t r = 0; r < x.size(); ++r) t[i] += f.dense[r + i * x.size()] * x[r];
    }
    for (size_t i = 0; i < x.size(); ++i) {
      b[i] = 2 * t[i];
      if (!f.in_pair(int64_t(i))) continue;
      b[i] += t[i + 1];
      b[i + 1] = 2 * t[i + 1] + t[i];
      ++i;
    }
    std::vector<double> right(b);
    for (size_t i = 0; i < x.size(); ++i)
      for (size_t r = 0; r < x.size(); ++r) right[r] += f.dense[r + i * x.size()] * b[i];
    I mode = 0;
    std::vector<double> solved(x.size());
    pass(solve, n, f, right, solved, &mode);
    for (size_t i = 0; i < x.size() && n <= 33; ++i)
      EXPECT_NEAR(solved[i], x[i], 1e-6 * (1 + std::abs(x[i]))) << "n " << n;
  }
  // Without blocks of order 2 the row pointers have the integers of the name.
  for (const int64_t n : {1, 50, 1999, 2000, 4001}) {
    ldlt<I> f(random, n, 5, false, false);
    check_solve(f, solve, I(2), I(2), reference_simple<I>);
    if (n > 1) {
      f.ja[0] = 0;  // an entry in its own column counts
      check_solve(f, solve, I(-3), I(-3), reference_simple<I>);
    }
  }
}
TEST(SparseSweep, Ldlt) {
#define ROW_LDLT_SOLVE(name, I) check_ldlt<I>(#name, name);
#include "zor/tables/spblas_sweep.inc"
}

template <class I>
void check_symmetric(const char* name, zor::symmetric_product_fn<I>* multiply) {
  SCOPED_TRACE(name);
  random_bits random(55);
  for (const I where : {0, 3}) {
    for (const int base : {0, 1}) {
      const int64_t m = 90;
      zor_ref::row_list<double> rows(static_cast<size_t>(m));
      for (int64_t r = 1; r <= m; ++r) {
        auto& row = rows[size_t(r - 1)];
        for (int64_t k = random.between(0, 13); k > 0; --k) {
          const int64_t c = where == 0 ? random.between(r, m) : random.between(1, r);
          if (c != r) row.push_back({c, draw<double>(random)});
        }
        if (random.between(0, 4) != 0)
          row.insert(where == 0 ? row.begin() : row.end(), {r, draw<double>(random)});
      }
      const three_arrays<double, I> a(rows, base, I(0));
      guarded<double> x{size_t(m)}, y{size_t(m)};
      fill(random, x.data(), x.size());
      fill(random, y.data(), y.size());
      std::vector<double> expected(y.begin(), y.end());
      for (size_t r = 0; r < size_t(m); ++r) {
        auto row = rows[r];
        const auto edge = row.empty() ? row.end() : where == 0 ? row.begin() : row.end() - 1;
        if (edge != row.end() && edge->column == int64_t(r + 1)) {
          expected[r] = expected[r] + edge->value * x[r];
          row.erase(edge);
        }
        for (const auto& e : row)
          expected[size_t(e.column - 1)] = expected[size_t(e.column - 1)] + e.value * x[r];
        expected[r] =
            expected[r] + zor_ref::row_dot(row, false, zor_ref::column_of<const double>{x.data(), 1});
      }
      pass(multiply, where, m, a, x, y, nullptr, base);
      EXPECT_TRUE(same_bits(expected.data(), y.data(), y.size())) << "where " << where << " base " << base;
    }
  }
}
TEST(SparseSweep, SymmetricProduct) {
#define ROW_SYMMETRIC_PRODUCT(name, I) check_symmetric<I>(#name, name);
#include "zor/tables/spblas_sweep.inc"
}

}  // namespace
