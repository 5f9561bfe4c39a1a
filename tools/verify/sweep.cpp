// SPDX-License-Identifier: MIT
// Block sweeps, the scaling by the diagonal, the LDLT solve and the symmetric product, in both integer
// widths.
#include "tools/verify/battery.h"
#include "zor/signatures/spblas_sweep.h"

namespace zor_tools {
namespace {

// Blocks of lb by lb in sorted lines, with every diagonal block.
template <class T, class I>
struct blocks {
  std::vector<T> val;
  std::vector<I> indx, pntrb, pntre;

  blocks(zor_int mb, zor_int lb, int base, numbers& source) {
    for (zor_int R = 0; R < mb; ++R) {
      pntrb.push_back(I(indx.size()) + 1);
      for (zor_int C = 0; C < mb; ++C)
        if (C == R || source.below(3) == 0) add(C, lb, base, C == R, source);
      pntre.push_back(I(indx.size()) + 1);
    }
  }

 private:
  // A diagonal that dominates, so that solves do not grow out of range.
  void add(zor_int C, zor_int lb, int base, bool diagonal, numbers& source) {
    indx.push_back(I(C) + I(base));
    for (zor_int k = 0; k < lb * lb; ++k) {
      const double re = source.real(), im = source.real();
      const bool pivot = diagonal && k % (lb + 1) == 0;
      val.push_back(pivot ? scalar<T>(33 + re, im) : scalar<T>(re / 64, im / 64));
    }
  }
};

struct size {
  zor_int mb, lb;
};
constexpr size sizes[] = {{1, 1}, {6, 2}, {5, 3}, {7, 4}, {4, 7}, {3, 10}};

template <class T, class I>
void sweeps(recorder& out, bool zero_based, zor::sweep_fn<T, I>* sweep) {
  uint64_t iteration = 0;
  for (const size& s : sizes) {
    for (const I nrhs : {1, 6}) {
      for (const I flags : {0, 1, 2, 3}) {
        numbers source(++iteration);
        const blocks<T, I> a(s.mb, s.lb, zero_based ? 0 : 1, source);
        const I uplo = flags % 2, diag = flags / 2, mb = I(s.mb), lb = I(s.lb), m = mb * lb;
        const I ldy = zero_based ? nrhs + 1 : m + 1;
        block<T> y(size_t(zero_based ? m * ldy : nrhs * ldy), iteration % 2, source, content::special);
        sweep(&uplo, &diag, &mb, &nrhs, &lb, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(),
              y.data(), &ldy);
        y.record(out);
      }
    }
  }
}

template <class T, class I, class Call>
void scalings(recorder& out, bool zero_based, const Call& call) {
  uint64_t iteration = 80;
  for (const size& s : sizes) {
    numbers source(++iteration);
    const blocks<T, I> a(s.mb, s.lb, zero_based ? 0 : 1, source);
    const I mb = I(s.mb), lb = I(s.lb), n = zero_based ? 5 : 1;
    block<T> y(size_t(mb * lb * n), iteration % 2, source, content::special);
    call(mb, n, lb, a, y.data());
    y.record(out);
  }
}

// A strict factor with pairs of rows that share their columns; Index is the integer of its arrays.
template <class Index>
struct factor {
  std::vector<double> val, d, e;
  std::vector<Index> ia, ja;
  std::vector<uint32_t> piv;

  factor(zor_int n, bool pairs, numbers& source) : d(size_t(n)), e(size_t(n)), piv(size_t(n / 32 + 1)) {
    for (zor_int i = 0; i < n; ++i) {
      const zor_int members = pairs && i + 1 < n && source.below(3) == 0 ? 2 : 1;
      ia.push_back(Index(val.size()));
      for (uint64_t k = source.below(9); k > 0 && i + members < n; --k) {
        const auto column = i + members + zor_int(source.below(uint64_t(n - i - members)));
        for (zor_int member = 0; member < members; ++member) {
          ja.push_back(Index(column));
          val.push_back(source.real() / 256);
        }
      }
      for (zor_int member = 0; member < members; ++member) {
        d[size_t(i + member)] = 33 + source.real();
        e[size_t(i + member)] = 1 + source.real();
        if (members == 2) piv[size_t((i + member) / 32)] |= 1u << ((i + member) % 32);
      }
      if (members == 2) ia.push_back(Index(val.size()));
      i += members - 1;
    }
    ia.push_back(Index(val.size()));
  }
};

template <class Index, class I>
void solves(recorder& out, I mode, zor_int n, zor::ldlt_solve_fn<I>* solve) {
  numbers source(uint64_t(n) + uint64_t(mode));
  const factor<Index> f(n, mode == 0, source);
  block<double> b(size_t(n), 0, source), x(size_t(n), 1, source);
  const I order = I(n);
  solve(&order, f.val.data(), f.ia.data(), f.ja.data(), f.d.data(), f.e.data(), nullptr, f.piv.data(),
        b.data(), x.data(), &mode);
  out.add(int64_t(mode));
  b.record(out);
  x.record(out);
}

template <class I>
void symmetric(recorder& out, zor::symmetric_product_fn<I>* multiply) {
  for (const I where : {0, 1}) {
    for (const I base : {0, 1}) {
      numbers source(uint64_t(90 + 2 * where + base));
      const I n = 60;
      std::vector<double> val;
      std::vector<I> indx, ia{0};
      for (I r = 0; r < n; ++r) {
        const auto others = I(source.below(12));
        for (I k = 0; k <= others; ++k) {
          const bool diagonal = k == (where == 0 ? 0 : others);
          const I away = where == 0 ? I(source.below(uint64_t(n - r))) : -I(source.below(uint64_t(r + 1)));
          indx.push_back(r + base + (diagonal ? 0 : away));
          val.push_back(source.special<double>());
        }
        ia.push_back(I(val.size()));
      }
      block<double> x(60, 1, source), y(60, 0, source);
      multiply(&where, &n, val.data(), indx.data(), ia.data(), x.data(), y.data(), nullptr, &base);
      y.record(out);
    }
  }
}

}  // namespace

void run_sweep(recorder& out) {
  constexpr bool rows = true, columns = false;
#define ROW_SWEEP(name, T, I, by, elements) \
  if (out.begin(#name)) sweeps<T, I>(out, elements, name);
#define ROW_INVDIAG(name, T, I)                                                           \
  if (out.begin(#name))                                                                   \
    scalings<T, I>(out, columns, [](I mb, I n, I lb, const auto& a, T* y) {               \
      name(&mb, &n, &lb, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), y); \
    });
#define ROW_INVDIAG_ROWS(name, T, I)                                                          \
  if (out.begin(#name))                                                                       \
    scalings<T, I>(out, rows, [](I mb, I n, I lb, const auto& a, T* y) {                      \
      name(&mb, &n, &lb, a.val.data(), a.indx.data(), a.pntrb.data(), a.pntre.data(), y, &n); \
    });
#define ROW_LDLT_SOLVE(name, I)                      \
  if (out.begin(#name)) {                            \
    for (const zor_int n : {1, 40, 333}) {           \
      solves<int32_t, I>(out, 0, n, name);           \
    }                                                \
    for (const zor_int n : {40, 1999, 2000, 4001}) { \
      solves<I, I>(out, 2, n, name);                 \
    }                                                \
  }
#define ROW_SYMMETRIC_PRODUCT(name, I) \
  if (out.begin(#name)) symmetric<I>(out, name);
#include "zor/tables/spblas_sweep.inc"
}

}  // namespace zor_tools
