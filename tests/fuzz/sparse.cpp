// SPDX-License-Identifier: MIT
// Sparse matrices: the public calls, the CSR kernels of every name, the service routines.
#include <algorithm>
#include <map>

#include "tests/fuzz/trial.h"
#include "zor/signatures/sparse.h"
#include "zor/signatures/spblas.h"

namespace zor_fuzz {
namespace {

// What a matrix stands for: structure g t s h a d, triangle l u, diagonal n u.
struct view {
  char structure, triangle, diagonal;
};

// The stored entries of a CSR matrix in random order or, for solves, sorted with a dominant pivot. Rows are
// random, alike (the same distances from the diagonal), or those of a grid. A gap that belongs to no row
// follows some of them.
template <class T, class I>
class csr {
 public:
  csr(trial& t, const view& v, int base, bool sorted, bool gaps = true)
      : what(v),
        m(t.size("rows", sorted ? 600 : 3000)),
        k(v.structure == 'g' ? t.size("columns", 3000) : m),
        base_(base),
        most_(t.draw("most", 0, 20, 1)),
        pattern_(t.draw("pattern", 0, 2, 0)) {
    const I origin = I(t.draw("origin", 0, 5, 0));
    const zor_int gap_after = gaps ? t.draw("gaps", 1, 9, 9) : 1;
    random_bits r = t.random("pattern's");
    std::vector<I> columns, begins, ends;
    for (zor_int row = 0; row < m; ++row) {
      begins.push_back(I(zor_int(columns.size()) + origin));
      for (const zor_int c : row_columns(row, sorted, r)) columns.push_back(I(c + base));
      ends.push_back(I(zor_int(columns.size()) + origin));
      for (zor_int gap = row % gap_after == 1 ? 2 : 0; gap > 0; --gap) columns.push_back(I(-7));
    }
    begins.push_back(I(zor_int(columns.size()) + origin));
    count = I(columns.size());
    val_ = std::make_unique<operand<T>>(t.scattered<T>(
        "val", use::in, zor_int(columns.size()), [&](zor_int e) { return columns[size_t(e)] != I(-7); }));
    indx = t.integers("indx", columns);
    pntrb = t.integers("pntrb", begins);
    pntre = t.integers("pntre", ends);
    start_ = origin;
    for (zor_int row = 0; row < m; ++row)
      for (zor_int e = begin(row); e < end(row); ++e) {
        T value = val()[e];
        if (column(e) != row) continue;
        if (sorted) value = zor_test::scalar<T>(double(most_) + 2, 0.5);
        if (v.structure == 'h' && parts<T> == 2) reals(&value)[1] = 0;
        val_->set(e, 0, value);
      }
  }
  csr(const csr&) = delete;

  const T* val() const { return val_->data(); }
  zor_int begin(zor_int row) const { return pntrb[row] - start_; }
  zor_int end(zor_int row) const { return pntre[row] - start_; }
  zor_int column(zor_int entry) const { return indx[entry] - base_; }

  // body(i, j, v, counts) for every term of op(A) that rows first to last - 1 give rise to; entries outside
  // the view come with counts false.
  template <class Body>
  void terms(bool flip, bool conjugate, zor_int first, zor_int last, const Body& body) const {
    const auto term = [&](zor_int i, zor_int j, wide v, bool counts) {
      body(flip ? j : i, flip ? i : j, conjugate ? std::conj(v) : v, counts);
    };
    const char s = what.structure;
    for (zor_int row = first; row < last; ++row) {
      if (what.diagonal == 'u') term(row, row, 1, true);
      for (zor_int e = begin(row); e < end(row); ++e) {
        const zor_int c = column(e);
        const wide v = (*val_)(e);
        const bool inside = what.triangle == 'l' ? c < row : c > row;
        const bool diagonal = c == row && s != 'a' && what.diagonal != 'u';
        const bool both = s == 's' || s == 'h' || s == 'a';
        term(row, c, v, s == 'g' || diagonal || (inside && s != 'd'));
        if (both) term(c, row, s == 'h' ? std::conj(v) : s == 'a' ? -v : v, inside);
      }
    }
  }

  view what;
  zor_int m, k;
  I count = 0;
  const I *indx = nullptr, *pntrb = nullptr, *pntre = nullptr;

 private:
  std::vector<zor_int> row_columns(zor_int row, bool sorted, random_bits& r) {
    std::vector<zor_int> c;
    if (k < 1) return c;
    if (pattern_ == 2) {
      for (const zor_int d : {-most_ - 4, zor_int(-1), zor_int(0), zor_int(1), most_ + 4})
        c.push_back(row + d);
    } else if (pattern_ == 1 && row % 8 != 0) {
      for (const zor_int d : alike_) c.push_back(row + d);
    } else {
      alike_.clear();
      for (zor_int i = r.between(0, most_); i > 0; --i)
        alike_.push_back((c.emplace_back(r.between(0, k - 1))) - row);
    }
    std::erase_if(c, [&](zor_int j) { return j < 0 || j >= k; });
    if (!sorted) return c;
    c.push_back(row);
    std::sort(c.begin(), c.end());
    c.erase(std::unique(c.begin(), c.end()), c.end());
    return c;
  }

  int base_;
  zor_int most_, pattern_, start_ = 0;
  std::vector<zor_int> alike_;
  std::unique_ptr<operand<T>> val_;
};

// A dense operand of n right-hand sides, element (i, j) in either layout.
template <class T>
struct dense {
  dense(trial& t, const char* name, use how, zor_int m, zor_int n, bool row_major)
      : by_rows(row_major),
        ld(t.leading((std::string("ld") + name).c_str(), row_major ? n : m)),
        stored(row_major ? t.matrix<T>(name, how, n, m, ld) : t.matrix<T>(name, how, m, n, ld)) {}
  wide operator()(zor_int i, zor_int j) const { return by_rows ? stored(j, i) : stored(i, j); }
  T now(zor_int i, zor_int j) const { return by_rows ? stored.now(j, i) : stored.now(i, j); }
  bool by_rows;
  zor_int ld;
  operand<T> stored;
};

// Sums of terms and of their magnitudes, by output and right-hand side.
class sums {
 public:
  sums(zor_int rows, zor_int n)
      : rows_(rows), value_(size_t(rows * n)), size_(size_t(rows * n)), terms_(size_t(rows * n)) {}
  void add(zor_int i, zor_int j, wide v, bool counts) {
    const size_t at = size_t(i + j * rows_);
    if (counts) value_[at] += v;
    size_[at] += magnitude(v);
    ++terms_[at];
  }
  template <class T>
  void compare(trial& t, const T& got, const char* what, zor_int i, zor_int j) const {
    const size_t at = size_t(i + j * rows_);
    t.near(got, value_[at], size_[at], terms_[at], what, i, j);
  }

 private:
  zor_int rows_;
  std::vector<wide> value_;
  std::vector<long double> size_;
  std::vector<zor_int> terms_;
};

// c is start + alpha op(A) b for right-hand sides first to last - 1 of n. The magnitudes of products count
// the result, because an entry outside the view is added and subtracted.
template <class T, class M, class B, class C, class Start>
void check_product(trial& t, const M& a, bool flip, bool conjugate, zor_int row_first, zor_int row_last,
                   T alpha, const B& b, const C& c, zor_int n_first, zor_int n_last, const Start& start) {
  if (!t.checking()) return;
  const zor_int rows = flip ? a.k : a.m;
  sums s(rows, n_last);
  a.terms(flip, conjugate, row_first, row_last, [&](zor_int i, zor_int j, wide v, bool counts) {
    for (zor_int h = n_first; h < n_last; ++h) s.add(i, h, times(widened(alpha), times(v, b(j, h))), counts);
  });
  for (zor_int h = n_first; h < n_last; ++h)
    for (zor_int i = 0; i < rows; ++i) {
      s.add(i, h, start(i, h) + times(widened(alpha), wide(0)), true);  // an empty sum is multiplied too
      s.compare(t, c.now(i, h), "y", i, h);
    }
}

// op(A) x leaves alpha b.
template <class T, class M, class X, class B>
void check_solve(trial& t, const M& a, bool flip, bool conjugate, T alpha, const X& x, const B& b,
                 zor_int n_first, zor_int n_last) {
  if (!t.checking()) return;
  sums s(a.m, n_last);
  a.terms(flip, conjugate, 0, a.m, [&](zor_int i, zor_int j, wide v, bool counts) {
    for (zor_int h = n_first; h < n_last; ++h) s.add(i, h, times(v, widened(x.now(j, h))), counts);
  });
  for (zor_int h = n_first; h < n_last; ++h)
    for (zor_int i = 0; i < a.m; ++i) {
      s.add(i, h, -times(widened(alpha), b(i, h)), true);
      s.compare(t, T{}, "residual", i, h);
    }
}

// The public calls.

template <class T, class I>
class handle {
 public:
  handle(trial& t, const csr<T, I>& a, int32_t base) {
    constexpr char letter = parts<T> == 2 ? (sizeof(T) == 8 ? 'c' : 'z') : sizeof(T) == 4 ? 's' : 'd';
    const std::conditional_t<sizeof(I) == 8, zor_sparse_desc, zor_sparse_desc_lp64> what = {
        ZOR_SPARSE_CSR, letter,  base,   a.what.structure, a.what.triangle, a.what.diagonal, I(a.m), I(a.k),
        a.count,        a.val(), a.indx, a.pntrb,          a.pntre,         nullptr,         0,      0};
    t.prepare([&] { status_ = create(what); });
    t.expect(status_ == ZOR_SPARSE_OK, std::string("create: ") + (status_ ? zor_sparse_error_text() : ""));
  }
  handle(const handle&) = delete;
  ~handle() {
    if (a_) zor_sparse_free(&a_);
  }
  operator zor_sparse() const { return a_; }

 private:
  int32_t create(const zor_sparse_desc& d) { return zor_sparse_create(&a_, &d); }
  int32_t create(const zor_sparse_desc_lp64& d) { return zor_sparse_create_lp64(&a_, &d); }
  zor_sparse a_ = nullptr;
  int32_t status_ = 0;
};

template <class T>
view drawn_view(trial& t, const char* structures) {
  view v{t.letter("structure", structures), t.letter("triangle", "lu"), t.letter("diagonal", "nu")};
  if (v.structure == 'h' && parts<T> == 1) v.structure = 's';
  if (v.structure == 'g' || v.structure == 'a') v.diagonal = 'n';
  return v;
}

// body(matrix, base, flip, conjugate, op, I{}) with the width of the indices, base and operation drawn.
template <class T, class Body>
void with_matrix(trial& t, bool solve, const Body& body) {
  const view v = drawn_view<T>(t, solve ? "td" : "gtshad");
  const int32_t base = int32_t(t.draw("base", 0, 1, 0));
  const char op = t.letter("op", "ntcs");
  const bool flip = op == 't' || op == 'c', conjugate = op == 'c' || op == 's';
  const auto run = [&](auto width) {
    const csr<T, decltype(width)> a(t, v, base, solve);
    body(a, base, flip, conjugate, op);
  };
  t.draw("index", 0, 1, 0) ? run(int32_t{}) : run(int64_t{});
}

template <class T>
void sparse_mv(trial& t, zor::sparse_mv_fn<T>* call) {
  with_matrix<T>(
      t, false, [&]<class I>(const csr<T, I>& a, int32_t base, bool flip, bool conjugate, char op) {
        const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
        const bool clears = widened(beta) == wide(0);
        const auto x = t.vector<T>("x", use::in, flip ? a.m : a.k);
        const auto y = t.vector<T>("y", clears ? use::out : use::inout, flip ? a.k : a.m);
        const handle<T, I> h(t, a, base);
        int32_t status = -1;
        t.call([&] { status = call(h, op, alpha, x, beta, y); });
        t.expect(status == 0, "status " + std::to_string(status));
        check_product(t, a, flip, conjugate, 0, a.m, alpha, x, y, 0, 1,
                      [&](zor_int i, zor_int) { return clears ? wide(0) : times(widened(beta), y(i)); });
      });
}

template <class T>
void sparse_mm(trial& t, zor::sparse_mm_fn<T>* call) {
  with_matrix<T>(
      t, false, [&]<class I>(const csr<T, I>& a, int32_t base, bool flip, bool conjugate, char op) {
        const char layout = t.letter("layout", "fc");
        const zor_int n = t.size("n", 60);
        const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
        const bool clears = widened(beta) == wide(0);
        const dense<T> b(t, "b", use::in, flip ? a.m : a.k, n, layout == 'c');
        const dense<T> c(t, "c", clears ? use::out : use::inout, flip ? a.k : a.m, n, layout == 'c');
        const handle<T, I> h(t, a, base);
        int32_t status = -1;
        t.call([&] { status = call(h, op, layout, n, alpha, b.stored, b.ld, beta, c.stored, c.ld); });
        t.expect(status == 0, "status " + std::to_string(status));
        check_product(t, a, flip, conjugate, 0, a.m, alpha, b, c, 0, n,
                      [&](zor_int i, zor_int j) { return clears ? wide(0) : times(widened(beta), c(i, j)); });
      });
}

template <class T>
void sparse_sv(trial& t, zor::sparse_sv_fn<T>* call) {
  with_matrix<T>(t, true, [&]<class I>(const csr<T, I>& a, int32_t base, bool flip, bool conjugate, char op) {
    const bool in_place = t.draw("inplace", 0, 1, 0);
    const T alpha = t.scalar<T>("alpha");
    const auto x = t.vector<T>("x", in_place ? use::inout : use::out, a.m);
    const auto b = in_place ? x : t.vector<T>("b", use::in, a.m);
    const handle<T, I> h(t, a, base);
    int32_t status = -1;
    t.call([&] { status = call(h, op, alpha, b, x); });
    t.expect(status == 0, "status " + std::to_string(status));
    check_solve(t, a, flip, conjugate, alpha, x, b, 0, 1);
  });
}

template <class T>
void sparse_sm(trial& t, zor::sparse_sm_fn<T>* call) {
  with_matrix<T>(t, true, [&]<class I>(const csr<T, I>& a, int32_t base, bool flip, bool conjugate, char op) {
    const char layout = t.letter("layout", "fc");
    const zor_int n = t.size("n", 60);
    const bool in_place = t.draw("inplace", 0, 1, 0);
    const T alpha = t.scalar<T>("alpha");
    const dense<T> x(t, "x", in_place ? use::inout : use::out, a.m, n, layout == 'c');
    const dense<T> b = in_place ? x : dense<T>(t, "b", use::in, a.m, n, layout == 'c');
    const handle<T, I> h(t, a, base);
    int32_t status = -1;
    t.call([&] { status = call(h, op, layout, n, alpha, b.stored, b.ld, x.stored, x.ld); });
    t.expect(status == 0, "status " + std::to_string(status));
    check_solve(t, a, flip, conjugate, alpha, x, b, 0, n);
  });
}

// The kernels by name: op n t c s in the grammar's sense, in which symmetric, Hermitian and antisymmetric
// views are never transposed but for the Hermitian t.
struct shape {
  int base;
  char op;
  view what;
  bool flip() const { return op == 't' || (op == 'c' && (what.structure == 'g' || what.structure == 't')); }
  bool conjugate() const { return op == 'c' || op == 's'; }
};

// A range of rows or right-hand sides, from 1 and inclusive.
template <class I>
struct range {
  range(trial& t, zor_int n)
      : first(I(t.size("first", std::max<zor_int>(n, 1), 1))),
        last(I(std::max<zor_int>(0, n - t.size("after", n)))) {}
  zor_int low() const { return std::min<zor_int>(first - 1, last); }
  I first, last;
};

template <class T, class I, class Call>
void mvout(trial& t, const shape& s, Call* call) {
  constexpr bool ranged = std::is_same_v<Call, zor::csr_mvout_par_fn<T, I>>;
  const csr<T, I> a(t, s.what, s.base, false);
  const T alpha = t.scalar<T>("alpha");
  const range<I> rows(t, a.m);
  const zor_int low = ranged ? rows.low() : 0, last = ranged ? zor_int(rows.last) : a.m;
  const auto x = t.vector<T>("x", use::in, s.flip() ? a.m : a.k),
             y = t.vector<T>("y", use::inout, s.flip() ? a.k : a.m);
  // These names take vectors that begin at the first row of the range.
  const bool relative = s.op == 'n' && s.what.structure == 's' && s.what.diagonal == 'n';
  const zor_int shift = relative && rows.first <= rows.last ? rows.first - 1 : 0;
  const I m = I(a.m);
  t.call([&] {
    if constexpr (ranged)
      call(&rows.first, &rows.last, &m, &alpha, a.val(), a.indx, a.pntrb, a.pntre, x + shift, y + shift);
    else
      call(&m, &alpha, a.val(), a.indx, a.pntrb, a.pntre, x, y);
  });
  check_product(t, a, s.flip(), s.conjugate(), low, last, alpha, x, y, 0, 1,
                [&](zor_int i, zor_int) { return y(i); });
}

template <class T, class I, class Call>
void mmout(trial& t, const shape& s, Call* call) {
  constexpr bool ranged = std::is_same_v<Call, zor::csr_mmout_par_fn<T, I>>;
  const csr<T, I> a(t, s.what, s.base, false);
  const zor_int n = t.size("n", 60);
  const T alpha = t.scalar<T>("alpha");
  const range<I> sides(t, n);
  const dense<T> b(t, "b", use::in, s.flip() ? a.m : a.k, n, s.base == 0);
  const dense<T> c(t, "c", use::inout, s.flip() ? a.k : a.m, n, s.base == 0);
  const I m = I(a.m), all = I(n), ldb = I(b.ld), ldc = I(c.ld);
  t.call([&] {
    if constexpr (ranged)
      call(&sides.first, &sides.last, &m, &all, &alpha, a.val(), a.indx, a.pntrb, a.pntre, b.stored, &ldb,
           c.stored, &ldc);
    else
      call(&m, &all, &alpha, a.val(), a.indx, a.pntrb, a.pntre, b.stored, &ldb, c.stored, &ldc);
  });
  check_product(t, a, s.flip(), s.conjugate(), 0, a.m, alpha, b, c, ranged ? sides.low() : 0,
                ranged ? zor_int(sides.last) : n, [&](zor_int i, zor_int j) { return c(i, j); });
}

// A plain product with rows that follow one another.
template <class T, class I>
void gemvout(trial& t, const shape& s, zor::csr_gemvout_par_fn<T, I>* call) {
  const csr<T, I> a(t, s.what, s.base, false, false);
  const range<I> rows(t, a.m);
  const auto x = t.vector<T>("x", use::in, a.k), y = t.vector<T>("y", use::inout, a.m);
  t.call([&] { call(&rows.first, &rows.last, nullptr, nullptr, a.val(), a.indx, a.pntrb, nullptr, x, y); });
  for (zor_int i = 0; i < a.m; ++i)
    if (i < rows.low() || i >= rows.last) t.near(y.now(i), y(i), 0, 0, "y", i);
  const auto zero = [](zor_int, zor_int) { return wide(0); };
  if (rows.low() == 0 && rows.last == a.m) check_product(t, a, false, false, 0, a.m, T(1), x, y, 0, 1, zero);
}

template <class T, class I>
void svout(trial& t, const shape& s, zor::csr_svout_seq_fn<T, I>* call) {
  const csr<T, I> a(t, s.what, s.base, true);
  const T alpha = t.scalar<T>("alpha");
  const auto y = t.vector<T>("y", use::inout, a.m);
  const I m = I(a.m);
  t.call([&] { call(&m, &alpha, a.val(), a.indx, a.pntrb, a.pntre, y); });
  check_solve(t, a, s.flip(), s.conjugate(), s.what.structure == 'd' ? alpha : zor_test::scalar<T>(1, 0), y,
              y, 0, 1);
}

template <class T, class I>
void smout(trial& t, const shape& s, zor::csr_smout_par_fn<T, I>* call) {
  const csr<T, I> a(t, s.what, s.base, true);
  const zor_int n = t.size("n", 60);
  const T alpha = t.scalar<T>("alpha");
  const range<I> sides(t, n);
  const dense<T> c(t, "c", use::inout, a.m, n, s.base == 0);
  const I m = I(a.m), all = I(n), ldc = I(c.ld);
  t.call([&] {
    call(&sides.first, &sides.last, &m, &all, &alpha, a.val(), a.indx, a.pntrb, a.pntre, c.stored, &ldc);
  });
  check_solve(t, a, s.flip(), s.conjugate(), s.what.structure == 'd' ? alpha : zor_test::scalar<T>(1, 0), c,
              c, sides.low(), sides.last);
}

// The entries of rows as coordinates, one after the other.
template <class T, class I>
struct coordinates {
  coordinates(trial& t, const shape& s, bool sorted)
      : a(t, s.what, s.base, sorted, false), m(I(a.m)), k(I(a.k)) {
    std::vector<I> row;
    for (zor_int r = 0; r < a.m; ++r) row.insert(row.end(), size_t(a.end(r) - a.begin(r)), I(r + s.base));
    rowind = t.integers("rowind", row);
  }
  csr<T, I> a;
  I m, k;
  const I* rowind = nullptr;
};

// Without entries a range is empty, and not even a unit diagonal is added.
template <class T, class I, class Call>
void coo_mvout(trial& t, const shape& s, Call* call) {
  const coordinates<T, I> c(t, s, false);
  const T alpha = t.scalar<T>("alpha");
  const auto x = t.vector<T>("x", use::in, c.k), y = t.vector<T>("y", use::inout, c.m);
  const I first = 1;
  t.call([&] {
    if constexpr (std::is_same_v<Call, zor::coo_mvout_par_fn<T, I>>)
      call(&first, &c.a.count, &c.m, &c.k, &alpha, c.a.val(), c.rowind, c.a.indx, &c.a.count, x, y);
    else
      call(&c.m, nullptr, &alpha, c.a.val(), c.rowind, c.a.indx, &c.a.count, x, y);
  });
  if (c.a.count > 0)
    check_product(t, c.a, false, s.conjugate(), 0, c.m, alpha, x, y, 0, 1,
                  [&](zor_int i, zor_int) { return y(i); });
}

template <class T, class I>
void coo_mmout(trial& t, const shape& s, zor::coo_mmout_par_fn<T, I>* call) {
  const coordinates<T, I> a(t, s, false);
  const zor_int n = t.size("n", 60);
  const T alpha = t.scalar<T>("alpha");
  const range<I> sides(t, n);
  const dense<T> b(t, "b", use::in, a.k, n, s.base == 0), c(t, "c", use::inout, a.m, n, s.base == 0);
  const I ldb = I(b.ld), ldc = I(c.ld);
  t.call([&] {
    call(&sides.first, &sides.last, &a.m, &a.k, &alpha, a.a.val(), a.rowind, a.a.indx, &a.a.count, b.stored,
         &ldb, c.stored, &ldc);
  });
  check_product(t, a.a, false, s.conjugate(), 0, a.m, alpha, b, c, sides.low(), sides.last,
                [&](zor_int i, zor_int j) { return c(i, j); });
}

template <class T, class I>
void coo_svout(trial& t, const shape& s, zor::coo_svout_seq_fn<T, I>* call) {
  const coordinates<T, I> a(t, s, true);
  const auto y = t.vector<T>("y", use::inout, a.m);
  t.call([&] { call(&a.m, nullptr, nullptr, a.a.val(), a.rowind, a.a.indx, &a.a.count, nullptr, y); });
  check_solve(t, a.a, false, s.conjugate(), zor_test::scalar<T>(1, 0), y, y, 0, 1);
}

template <class T, class I>
void coo_smout(trial& t, const shape& s, zor::coo_smout_par_fn<T, I>* call) {
  const coordinates<T, I> a(t, s, true);
  const zor_int n = t.size("n", 60);
  const range<I> sides(t, n);
  const dense<T> c(t, "c", use::inout, a.m, n, s.base == 0);
  const I ldc = I(c.ld);
  t.call([&] {
    call(&sides.first, &sides.last, &a.m, nullptr, nullptr, a.a.val(), a.rowind, a.a.indx, &a.a.count,
         c.stored, &ldc);
  });
  check_solve(t, a.a, false, s.conjugate(), zor_test::scalar<T>(1, 0), c, c, sides.low(), sides.last);
}

// y := y + the parts of work.
template <class T, class I>
void merge(trial& t, zor::merge_fn<T, I>* call) {
  const zor_int n = t.size("n", 2000);
  const range<I> rows(t, n);
  const I count = I(t.draw("nparts", 0, 9, 1)), stride = I(t.leading("stride", n));
  const auto work = t.matrix<T>("work", use::in, n, count, stride);
  const auto y = t.vector<T>("y", use::inout, n);
  t.call([&] { call(&rows.first, &rows.last, &count, &stride, work, y); });
  t.some_of(rows.last - rows.low(), 1, [&](zor_int i, zor_int) {
    const zor_int at = rows.low() + i;
    wide exact = y(at);
    long double size = magnitude(exact);
    for (zor_int p = 0; p < count; ++p) exact += work(at, p), size += magnitude(work(at, p));
    t.near(y.now(at), exact, size, count, "y", at);
  });
}

#define ROW_SPARSE_MV(name, T) {#name, [](trial& t) { sparse_mv<T>(t, name); }},
#define ROW_SPARSE_MM(name, T) {#name, [](trial& t) { sparse_mm<T>(t, name); }},
const rows products("sparse product", threaded,
                    {
#include "zor/tables/core_spblas.inc"
                    });
#define ROW_SPARSE_SV(name, T) {#name, [](trial& t) { sparse_sv<T>(t, name); }},
#define ROW_SPARSE_SM(name, T) {#name, [](trial& t) { sparse_sm<T>(t, name); }},
const rows solves("sparse solve", threaded,
                  {
#include "zor/tables/core_spblas.inc"
                  });

#define SHAPED(kind, name, T, I, base, op, structure, tri, diag) \
  {#name, [](trial& t) { kind<T, I>(t, {base, #op[0], {#structure[0], #tri[0], #diag[0]}}, name); }},
#define ROW_csr_mvout_par(...) SHAPED(mvout, __VA_ARGS__)
#define ROW_csr_mvout_seq(...) SHAPED(mvout, __VA_ARGS__)
const rows mv_kernels("csr mv kernel", serial,
                      {
#include "zor/tables/spblas_csr.inc"
                      });
#define ROW_csr_gemvout_par(...) SHAPED(gemvout, __VA_ARGS__)
const rows plain_products("csr mv kernel", serial,
                          {
#include "zor/tables/spblas_csr.inc"
                          });
#define ROW_csr_mmout_par(...) SHAPED(mmout, __VA_ARGS__)
#define ROW_csr_mmout_seq(...) SHAPED(mmout, __VA_ARGS__)
const rows mm_kernels("csr mm kernel", serial,
                      {
#include "zor/tables/spblas_csr.inc"
                      });
#define ROW_csr_svout_seq(...) SHAPED(svout, __VA_ARGS__)
#define ROW_csr_smout_par(...) SHAPED(smout, __VA_ARGS__)
const rows solve_kernels("csr solve kernel", serial,
                         {
#include "zor/tables/spblas_csr.inc"
                         });
#define ROW_coo_mvout_par(...) SHAPED(coo_mvout, __VA_ARGS__)
#define ROW_coo_mvout_seq(...) SHAPED(coo_mvout, __VA_ARGS__)
#define ROW_coo_mmout_par(...) SHAPED(coo_mmout, __VA_ARGS__)
const rows coo_products("coo product kernel", serial,
                        {
#include "zor/tables/spblas_coo.inc"
                        });
#define ROW_coo_svout_seq(...) SHAPED(coo_svout, __VA_ARGS__)
#define ROW_coo_smout_par(...) SHAPED(coo_smout, __VA_ARGS__)
const rows coo_solves("coo solve kernel", serial,
                      {
#include "zor/tables/spblas_coo.inc"
                      });
#define ROW_MERGE(name, T, I) {#name, [](trial& t) { merge<T, I>(t, name); }},
const rows services("sparse service", serial,
                    {
#include "zor/tables/spblas_service.inc"
                    });

}  // namespace
}  // namespace zor_fuzz
