// SPDX-License-Identifier: MIT
// Sums and products of CSR matrices, in both integer widths.
#include "tools/verify/battery.h"
#include "zor/signatures/spblas_matrix.h"

namespace zor_tools {
namespace {

// Rows counted from 1, with repeats and in any order, or sorted.
template <class T, class I>
struct matrix {
  std::vector<T> a;
  std::vector<I> ja, ia{1};

  matrix(zor_int rows, zor_int cols, bool sorted, numbers& source) {
    for (zor_int r = 0; r < rows; ++r) {
      const size_t start = ja.size();
      for (uint64_t count = source.below(90) * source.below(2) + source.below(12); count > 0; --count)
        ja.push_back(I(source.below(uint64_t(cols)) + 1));
      if (sorted) std::sort(ja.begin() + zor_int(start), ja.end());
      ia.push_back(I(ja.size() + 1));
    }
    for (size_t k = 0; k < ja.size(); ++k)
      a.push_back(scalar<T>(double(source.special<real_t<T>>()), source.real()));
  }
};

// C of a call for requests 1, 2 and 0, its rows counted one by one or from the first.
template <class T, class I, class Call>
void record_requests(recorder& out, zor_int rows, zor_int room, const Call& call) {
  const auto m = size_t(rows);
  std::vector<T> c(static_cast<size_t>(room));
  std::vector<I> jc(c.size()), ic(m + 1);
  I info = 0;
  for (const I request : {1, 0, 2}) {
    const I nzmax = request == 0 ? I(room) : I(0);
    call(request, c.data(), jc.data(), ic.data(), nzmax, &info);
    out.add(int64_t(info));
    out.add(ic.data() + 1, m);
    if (request == 1) continue;
    out.add(c.data(), size_t(ic[m] - 1));
    out.add(jc.data(), size_t(ic[m] - 1));
  }
  // Room that ends in the middle.
  call(0, c.data(), jc.data(), ic.data(), I(ic[m] / 2), &info);
  out.add(int64_t(info));
}

struct shape {
  zor_int m, k, n;
};
constexpr shape shapes[] = {{1, 1, 1}, {9, 12, 70}, {30, 25, 4200}};

template <class T>
T factor(uint64_t iteration) {
  return iteration % 2 == 0 ? scalar<T>(1, 0) : scalar<T>(-0.6, 0.4);
}

template <class T, class I>
void sums(recorder& out, zor::csr_sum_fn<T, I>* sum, bool with_transpose) {
  uint64_t iteration = 0;
  for (const shape& s : shapes) {
    for (const I sort : {0, 3}) {
      numbers source(++iteration);
      matrix<T, I> a(s.m, s.n, sort == 0, source);
      matrix<T, I> b(with_transpose ? s.n : s.m, with_transpose ? s.m : s.n, sort == 0, source);
      const I first = with_transpose ? I(s.m) : I(1), last = with_transpose ? I(s.n) : I(s.m);
      const T beta = factor<T>(iteration);
      record_requests<T, I>(out, s.m, zor_int(a.a.size() + b.a.size()),
                            [&](I request, T* c, I* jc, I* ic, I nzmax, I* info) {
                              sum(&first, &last, &request, &sort, a.a.data(), a.ja.data(), a.ia.data(), &beta,
                                  b.a.data(), b.ja.data(), b.ia.data(), c, jc, ic, &nzmax, info);
                            });
    }
  }
}

template <class T, class I>
void products(recorder& out, zor::csr_product_fn<T, I>* multiply) {
  uint64_t iteration = 50;
  for (const shape& s : shapes) {
    numbers source(++iteration);
    const matrix<T, I> a(s.m, s.k, false, source), b(s.k, s.n, false, source);
    const I first = 1, m = I(s.m), n = I(s.n);
    record_requests<T, I>(out, s.m, s.m * s.n, [&](I request, T* c, I* jc, I* ic, I nzmax, I* info) {
      multiply(&first, &m, &m, &n, &request, a.a.data(), a.ja.data(), a.ia.data(), b.a.data(), b.ja.data(),
               b.ia.data(), c, jc, ic, &nzmax, info);
      if (request == 1)
        for (size_t r = 0; r < size_t(s.m); ++r) ic[r + 1] = I(ic[r + 1] + (r == 0 ? 1 : ic[r]));
    });
  }
}

template <class T, class I>
void transposed_products(recorder& out, zor::csr_product_tr_fn<T, I>* multiply) {
  uint64_t iteration = 70;
  for (const shape& s : shapes) {
    numbers source(++iteration);
    const matrix<T, I> a(s.k, s.m, true, source), b(s.k, s.n, false, source);
    const I k = I(s.k), m = I(s.m), n = I(s.n), strip = 4;
    record_requests<T, I>(out, s.m, s.m * s.n, [&](I request, T* c, I* jc, I* ic, I nzmax, I* info) {
      multiply(nullptr, &k, &m, &n, &request, &strip, a.a.data(), a.ja.data(), a.ia.data(), b.a.data(),
               b.ja.data(), b.ia.data(), c, jc, ic, &nzmax, info);
    });
  }
}

template <class T, class I>
void sorts(recorder& out, zor::sort_rows_fn<T, I>* sort) {
  numbers source(90);
  matrix<T, I> a(20, 60, false, source);
  const I first = 2, last = 19;
  sort(&first, &last, a.ia.data(), a.ja.data(), a.a.data());
  out.add(a.a.data(), a.a.size());
  out.add(a.ja.data(), a.ja.size());
}

}  // namespace

void run_spgemm(recorder& out) {
#define ROW_SORT_ROWS(name, T, I) \
  if (out.begin(#name)) sorts<T, I>(out, name);
#define ROW_CSR_SUM(name, T, I) \
  if (out.begin(#name)) sums<T, I>(out, name, false);
#define ROW_CSR_SUM_TR(name, T, I) \
  if (out.begin(#name)) sums<T, I>(out, name, true);
#define ROW_CSR_PRODUCT(name, T, I) \
  if (out.begin(#name)) products<T, I>(out, name);
#define ROW_CSR_PRODUCT_TR(name, T, I) \
  if (out.begin(#name)) transposed_products<T, I>(out, name);
#include "zor/tables/spblas_gemm.inc"
}

}  // namespace zor_tools
