// SPDX-License-Identifier: MIT
// The public calls on sparse matrices of every format, and the kernels whose result is a matrix or a sweep.
#include "tests/fuzz/sparse.h"

#include "zor/signatures/sparse.h"
#include "zor/signatures/spblas_matrix.h"
#include "zor/signatures/spblas_sweep.h"

namespace zor_fuzz {
namespace {

template <class T>
constexpr char letter_of = parts<T> == 2    ? (sizeof(T) == 8 ? 'c' : 'z')
                           : sizeof(T) == 4 ? 's'
                                            : 'd';

// A matrix of the public side: the caller's arrays, or what `make` has made.
class handle {
 public:
  template <class T, class I>
  handle(trial& t, const sparse<T, I>& a) {
    const std::conditional_t<sizeof(I) == 8, zor_sparse_desc, zor_sparse_desc_lp64> what = {
        a.format, letter_of<T>, a.base,  a.what.structure, a.what.triangle, a.what.diagonal,
        I(a.m),   I(a.k),       a.count, a.val(),          a.indx,          a.pntrb,
        a.pntre,  a.rowind,     I(a.lb), I(a.lval)};
    t.prepare([&] { status_ = create(what); });
    t.expect(status_ == ZOR_SPARSE_OK, std::string("create: ") + (status_ ? zor_sparse_error_text() : ""));
  }
  template <class Make>
  handle(trial& t, const char* how, const Make& make) {
    t.prepare([&] { status_ = make(&a_); });
    t.expect(status_ == ZOR_SPARSE_OK, std::string(how) + ": " + (status_ ? zor_sparse_error_text() : ""));
  }
  handle(const handle&) = delete;
  ~handle() {
    if (a_) zor_sparse_free(&a_);
  }
  operator zor_sparse() const { return a_; }
  bool made() const { return a_ != nullptr; }

 private:
  int32_t create(const zor_sparse_desc& d) { return zor_sparse_create(&a_, &d); }
  int32_t create(const zor_sparse_desc_lp64& d) { return zor_sparse_create_lp64(&a_, &d); }
  zor_sparse a_ = nullptr;
  int32_t status_ = 0;
};

struct operation {
  explicit operation(trial& t) : letter(t.letter("op", "ntcs")) {}
  bool flip() const { return char(letter) == 't' || char(letter) == 'c'; }
  bool conjugate() const { return char(letter) == 'c' || char(letter) == 's'; }
  option letter;
};

enum class purpose { product, solve, general, sweep };

// A format and a view that go together: profiles are of one triangle.
template <class T>
std::pair<view, form> drawn_form(trial& t, purpose what) {
  const bool solves = what == purpose::solve, plain = what == purpose::general || what == purpose::sweep;
  const auto format =
      int32_t(t.draw("format", ZOR_SPARSE_CSR, plain ? ZOR_SPARSE_BSR : ZOR_SPARSE_SKY, ZOR_SPARSE_CSR));
  view v{plain ? 'g' : char(t.letter("structure", solves ? "td" : "gtshad")), t.letter("triangle", "lu"),
         t.letter("diagonal", "nu")};
  if (v.structure == 'h' && parts<T> == 1) v.structure = 's';
  if (format == ZOR_SPARSE_SKY && (v.structure == 'g' || v.structure == 'd')) v.structure = 't';
  if (v.structure == 'g' || v.structure == 'a') v.diagonal = 'n';
  return {v, {format, solves || what == purpose::sweep, false, format == ZOR_SPARSE_CSR}};
}

// body(matrix, operation) with the width of the indices, base, format and view drawn.
template <class T, class Body>
void with_matrix(trial& t, purpose what, const Body& body) {
  const auto [v, as] = drawn_form<T>(t, what);
  const int32_t base = int32_t(t.draw("base", 0, 1, 0));
  const operation op(t);
  if (t.draw("index", 0, 1, 0) == 0)
    body(sparse<T, int64_t>(t, v, base, as), op);
  else
    body(sparse<T, int32_t>(t, v, base, as), op);
}

void expect_status(trial& t, int32_t status, int32_t wanted = 0) {
  t.expect(status == wanted,
           "status " + std::to_string(status) + ": " + (status ? zor_sparse_error_text() : ""));
}

// Nothing but a status comes of a bad argument.
bool refused(trial& t, int32_t status) {
  if (!t.refused()) expect_status(t, status);
  t.expect(!t.refused() || status == ZOR_SPARSE_BAD_ARGUMENT,
           "a bad argument gives status " + std::to_string(status));
  return t.refused();
}

// y := alpha op(A) x + beta y, and the same for many.
template <class T, class Call>
void multiply(trial& t, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::sparse_mm_fn<T>>;
  with_matrix<T>(t, purpose::product, [&](const auto& a, const operation& op) {
    const option layout = t.letter("layout", "fc");
    const zor_int n = many ? t.size("n", 60) : 1;
    const bool by_rows = many && char(layout) == 'c';
    const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
    const bool clears = widened(beta) == wide(0);
    const sides<T> x(t, "x", use::in, op.flip() ? a.m : a.k, n, by_rows),
        y(t, "y", clears ? use::out : use::inout, op.flip() ? a.k : a.m, n, by_rows);
    const handle h(t, a);
    const int32_t status = t.invoke(call, zor_sparse(h), op.letter, when<many>(layout), when<many>(n), alpha,
                                    vectors<many>(x), beta, vectors<many>(y));
    if (refused(t, status)) return;
    check_product(t, a, op.flip(), op.conjugate(), 0, a.m, alpha, x, y, 0, n,
                  [&](zor_int i, zor_int j) { return clears ? wide(0) : times(widened(beta), y(i, j)); });
  });
}

template <class T, class Call>
void solve(trial& t, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::sparse_sm_fn<T>>;
  with_matrix<T>(t, purpose::solve, [&](const auto& a, const operation& op) {
    const option layout = t.letter("layout", "fc");
    const zor_int n = many ? t.size("n", 60) : 1;
    const bool in_place = t.draw("inplace", 0, 1, 0), by_rows = many && char(layout) == 'c';
    const T alpha = t.scalar<T>("alpha");
    const sides<T> x(t, "x", in_place ? use::inout : use::out, a.m, n, by_rows),
        b = in_place ? x : sides<T>(t, "b", use::in, a.m, n, by_rows);
    const handle h(t, a);
    const int32_t status = t.invoke(call, zor_sparse(h), op.letter, when<many>(layout), when<many>(n), alpha,
                                    vectors<many>(b), vectors<many>(x));
    if (refused(t, status)) return;
    check_solve(t, a, op.flip(), op.conjugate(), alpha, x, b, 0, n);
  });
}

// A sweep upwards solves with the lower triangle for what the upper one leaves of b, downwards the other way
// round.
template <class T>
void gauss(trial& t, zor::sparse_gauss_fn<T>* call) {
  with_matrix<T>(t, purpose::sweep, [&](const auto& a, const operation&) {
    const option direction = t.letter("direction", "fbs");
    const auto b = t.vector<T>("b", use::in, a.m), x = t.vector<T>("x", use::inout, a.m);
    const handle h(t, a);
    if (refused(t, t.invoke(call, zor_sparse(h), direction, b, x)) || !t.checking() || char(direction) == 's')
      return;
    std::vector<sum_of_terms> s(static_cast<size_t>(a.m));
    for (const auto& [row, column, place] : a.entries) {
      const bool solved = char(direction) == 'f' ? column <= row : column >= row;
      const wide v = widened(a.val()[place]);
      s[size_t(row)].add(times(v, x(column)), !solved);  // the residual of all is what is solved for
      if (solved) s[size_t(row)].add(times(v, widened(x.now(column))));
    }
    for (zor_int i = 0; i < a.m; ++i) {
      s[size_t(i)].add(-b(i));
      s[size_t(i)].compare(t, T{}, "residual", i);
    }
  });
}
template <class T>
void jacobi(trial& t, zor::sparse_jacobi_fn<T>* call) {
  with_matrix<T>(t, purpose::sweep, [&](const auto& a, const operation&) {
    const auto x = t.vector<T>("x", use::inout, a.m);
    const handle h(t, a);
    expect_status(t, t.invoke(call, zor_sparse(h), x));
    for (const auto& [row, column, place] : a.entries) {
      const wide product = times(widened(a.val()[place]), widened(x.now(row)));
      if (row == column)
        t.near(T{}, product - x(row), 2 * magnitude(product) + magnitude(x(row)), 4, "x", row);
    }
  });
}

// What a call makes is looked at through a product with it: y := C x, the terms of which `add` gives to sums.
template <class T, class Add>
void check_made(trial& t, const handle& c, char op, zor_int rows, zor_int columns, const Add& add) {
  const auto x = t.vector<T>("x", use::in, columns), y = t.vector<T>("y", use::out, rows);
  zor::sparse_mv_fn<T>* call = nullptr;
  if constexpr (std::is_same_v<T, float>) call = zor_sparse_smv;
  if constexpr (std::is_same_v<T, double>) call = zor_sparse_dmv;
  if constexpr (std::is_same_v<T, zor_c32>) call = zor_sparse_cmv;
  if constexpr (std::is_same_v<T, zor_c64>) call = zor_sparse_zmv;
  const T one = zor_test::scalar<T>(1, 0), zero{};
  int32_t status = -1;
  t.call([&] { status = call(c, op, one, x, zero, y); });
  expect_status(t, status);
  if (!t.checking()) return;
  std::vector<sum_of_terms> s(static_cast<size_t>(rows));
  add(s, x);
  for (zor_int i = 0; i < rows; ++i) {
    s[size_t(i)].terms += 8;
    s[size_t(i)].compare(t, y.now(i), "y", i);
  }
}

// The elements of a vector as sums without an error of their own.
template <class X>
std::vector<sum_of_terms> exact(const X& x, zor_int n) {
  std::vector<sum_of_terms> v(static_cast<size_t>(n));
  for (zor_int j = 0; j < n; ++j) v[size_t(j)].value = x(j);
  return v;
}
// s := s + factor op(A) x.
template <class M>
void add_product(std::vector<sum_of_terms>& s, const M& a, bool flip, bool conjugate, wide factor,
                 const std::vector<sum_of_terms>& x) {
  a.terms(flip, conjugate, 0, a.m, [&](zor_int i, zor_int j, wide v, bool counts) {
    const sum_of_terms& of = x[size_t(j)];
    s[size_t(i)].add(times(factor, times(v, of.value)), counts);
    s[size_t(i)].size += 2 * magnitude(v) * of.size;
    s[size_t(i)].terms += 2 * of.terms;
  });
}

template <class T>
void convert(trial& t) {
  with_matrix<T>(t, purpose::product, [&](const auto& a, const operation& op) {
    if (a.what.structure == 'd' && a.what.diagonal == 'u') return;  // has no entries
    const bool whole = a.what.structure == 'g' || a.what.structure == 'd';
    const int32_t format = int32_t(t.draw("to", ZOR_SPARSE_CSR,
                                          a.m != a.k ? ZOR_SPARSE_COO
                                          : whole    ? ZOR_SPARSE_BSR
                                                     : ZOR_SPARSE_SKY,
                                          ZOR_SPARSE_CSR));
    const zor_int lb = t.draw("block", 1, 4, 1);
    const handle from(t, a);
    int32_t status = 0;
    const handle to(t, "convert", [&](zor_sparse* b) {
      status = zor_sparse_convert(b, from, format, a.m % lb == 0 ? lb : 1);
      return status == ZOR_SPARSE_TOO_LARGE ? 0 : status;  // too many elements for each entry
    });
    if (!to.made()) return;
    // The other formats multiply by the zeros that they store.
    if (format > ZOR_SPARSE_COO && !t.plain_data()) return;
    const zor_int rows = op.flip() ? a.k : a.m, columns = op.flip() ? a.m : a.k;
    check_made<T>(t, to, op.letter, rows, columns, [&](auto& s, const auto& x) {
      add_product(s, a, op.flip(), op.conjugate(), 1, exact(x, columns));
    });
  });
}

// A + beta op(B) and op(A) B.
template <class T>
void combine(trial& t, bool product) {
  with_matrix<T>(t, purpose::general, [&]<class I>(const sparse<T, I>& a, const operation& op) {
    const bool flip = op.flip();
    const zor_int rows = product && flip ? a.k : a.m, inner = flip ? a.m : a.k,
                  m = product ? inner
                      : flip  ? a.k
                              : a.m,
                  k = product ? t.size("columns of b", 300)
                      : flip  ? a.m
                              : a.k;
    const sparse<T, I> b(t, {'g', 'l', 'n'}, int32_t(t.draw("base of b", 0, 1, 0)),
                         {ZOR_SPARSE_CSR, false, false, true, false, "b.", m, k});
    const T beta = t.scalar<T>("beta");
    const handle left(t, a), right(t, b);
    const handle c(t, "combine", [&](zor_sparse* made) {
      return product ? zor_sparse_multiply(made, op.letter, left, right)
                     : zor_sparse_add(made, left, op.letter, &beta, right);
    });
    if (!c.made()) return;
    check_made<T>(t, c, 'n', rows, product ? k : a.k, [&](auto& s, const auto& x) {
      auto terms = exact(x, product ? k : a.k);
      if (product) {
        std::vector<sum_of_terms> bx(static_cast<size_t>(m));
        add_product(bx, b, false, false, 1, terms);
        terms = bx;
      } else {
        add_product(s, b, flip, op.conjugate(), widened(beta), terms);
      }
      add_product(s, a, product && flip, product && op.conjugate(), 1, terms);
    });
  });
}

// Block sweeps: y := op(T)^-1 y, T the triangle of the blocks, whose diagonal ones count with their own or as
// identities.
template <class T, class I>
void sweep(trial& t, bool columns, bool by_rows, zor::sweep_fn<T, I>* call) {
  const zor_int uplo = t.draw("uplo", 0, 1, 0), diag = t.draw("diag", 0, 1, 1), nrhs = t.size("nrhs", 20);
  sparse<T, I> a(t, {'t', uplo == 0 ? 'u' : 'l', diag == 0 ? 'u' : 'n'}, by_rows ? 0 : 1,
                 {ZOR_SPARSE_BSR, true, by_rows, false, columns});
  a.no_diagonal_blocks = diag == 0;
  const sides<T> y(t, "y", use::inout, a.m, nrhs, by_rows && nrhs > 1);
  t.invoke(call, uplo, diag, a.mb, nrhs, a.lb, a.compressed(), y);
  check_solve(t, a, false, false, zor_test::scalar<T>(1, 0), y, y, 0, nrhs);
}
// y over the main diagonal.
template <class T, class I, class Call>
void divide_by_diagonal(trial& t, Call* call) {
  constexpr bool many = std::is_same_v<Call, zor::invdiag_rows_fn<T, I>>;
  const zor_int nrhs = many ? t.size("nrhs", 20) : 1;
  const sparse<T, I> a(t, {'d', 'l', 'n'}, many ? 0 : 1, {ZOR_SPARSE_BSR, true, many});
  const sides<T> y(t, "y", use::inout, a.m, nrhs, many && nrhs > 1);
  t.invoke(call, a.mb, nrhs, a.lb, a.compressed(), vectors<many>(y));
  check_solve(t, a, false, false, zor_test::scalar<T>(1, 0), y, y, 0, nrhs);
}

#define ROW_SPARSE_MV(name, T) {#name, [](trial& t) { multiply<T>(t, name); }},
#define ROW_SPARSE_MM ROW_SPARSE_MV
const rows products("sparse product", with_status,
                    {
#include "zor/tables/core_spblas.inc"
                    });
#define ROW_SPARSE_SV(name, T) {#name, [](trial& t) { solve<T>(t, name); }},
#define ROW_SPARSE_SM ROW_SPARSE_SV
#define ROW_SPARSE_GAUSS(name, T) {#name, [](trial& t) { gauss<T>(t, name); }},
#define ROW_SPARSE_JACOBI(name, T) {#name, [](trial& t) { jacobi<T>(t, name); }},
const rows solves("sparse solve", with_status,
                  {
#include "zor/tables/core_spblas.inc"
                  });
#define FOR_TYPES(name, T)                                              \
  {"zor_sparse_convert_" name, [](trial& t) { convert<T>(t); }},        \
      {"zor_sparse_add_" name, [](trial& t) { combine<T>(t, false); }}, \
      {"zor_sparse_multiply_" name, [](trial& t) { combine<T>(t, true); }},
const rows makers("sparse result", threaded,
                  {FOR_TYPES("s", float) FOR_TYPES("d", double) FOR_TYPES("c", zor_c32)
                       FOR_TYPES("z", zor_c64)});
#define ROW_SWEEP(name, T, I, storage, elements) \
  {#name, [](trial& t) { sweep<T, I>(t, #storage[0] == 'c', #elements[0] == 'r', name); }},
#define ROW_INVDIAG(name, T, I) {#name, [](trial& t) { divide_by_diagonal<T, I>(t, name); }},
#define ROW_INVDIAG_ROWS ROW_INVDIAG
const rows sweeps("block sweep kernel", serial,
                  {
#include "zor/tables/spblas_sweep.inc"
                  });

}  // namespace
}  // namespace zor_fuzz
