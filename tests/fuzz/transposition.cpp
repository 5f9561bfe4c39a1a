// SPDX-License-Identifier: MIT
// Scaled copies, transpositions and sums of matrices: the kernels and the public routines.
#include "tests/fuzz/trial.h"
#include "zor/signatures/trans.h"

namespace zor_fuzz {
namespace {

// op(A) of a stored rows by cols matrix: its lines, a leading dimension apart, have elements `step` apart.
struct layout {
  layout(trial& t, const std::string& name, option order, option letter, zor_int rows, zor_int cols,
         zor_int s)
      : by_columns(order.is('C')),
        transposed(letter.is('T') || letter.is('C')),
        conjugated(letter.is('R') || letter.is('C')),
        lines(by_columns == transposed ? rows : cols),
        length(by_columns == transposed ? cols : rows),
        step(s),
        ld(t.leading(("ld" + name).c_str(), (length - 1) * step + 1)) {}
  zor_int extent() const { return lines > 0 && length > 0 ? (lines - 1) * ld + (length - 1) * step + 1 : 0; }
  bool holds(zor_int at) const {
    return at < extent() && at % ld % step == 0 && at % ld / step < length && at / ld < lines;
  }
  // The place of element (i, j) of op(A).
  zor_int at(zor_int i, zor_int j) const {
    return by_columns == transposed ? i * ld + j * step : j * ld + i * step;
  }
  bool by_columns, transposed, conjugated;
  zor_int lines, length, step;
  leading_dimension ld;
};
template <class T>
struct matrix {
  matrix(trial& t, const char* name, use how, option order, option op, zor_int rows, zor_int cols,
         zor_int step = 1)
      : place(t, name, order, op, rows, cols, step),
        stored(t.scattered<T>(name, how, place.extent(), [&](zor_int i) { return place.holds(i); })) {}
  auto arguments() const { return list_of(stored.data(), leading_dimension{place.ld}); }
  wide operator()(zor_int i, zor_int j) const { return conj_when(place.conjugated, stored(place.at(i, j))); }
  T now(zor_int i, zor_int j) const { return stored.now(place.at(i, j)); }
  layout place;
  operand<T> stored;
};

// rows and cols of op(A) and of the result, and those of A; letters of any case.
struct sizes {
  sizes(trial& t, const char* name)
      : order(t.letter("ordering", "RCrc")),
        op(t.letter(name, "NTRCntrc")),
        rows(t.size("rows", 700)),
        cols(t.size("cols", 700)),
        rows_a(op.is('T') || op.is('C') ? cols : rows),
        cols_a(op.is('T') || op.is('C') ? rows : cols) {}
  option order, op, plain = {'N', "", 0};
  zor_int rows, cols, rows_a, cols_a;
};

// The result is the sum of one or two scaled matrices.
template <class B, class Exact>
void check(trial& t, const sizes& s, const B& b, const Exact& exact) {
  t.some_of(s.rows, s.cols, [&](zor_int i, zor_int j) {
    sum_of_terms sum;
    exact(sum, i, j);
    sum.size *= 2;
    ++sum.terms;
    sum.compare(t, b.now(i, j), "b", i, j);
  });
}

template <class T, class Call>
void omatcopy(trial& t, Call* call) {
  constexpr bool strided = std::is_same_v<Call, zor::omatcopy2_fn<T>>;
  const sizes s(t, "trans");
  const zor_int stridea = strided ? t.draw("stridea", 1, 4, 1) : 1,
                strideb = strided ? t.draw("strideb", 1, 4, 1) : 1;
  const T alpha = t.scalar<T>("alpha");
  const matrix<T> a(t, "a", use::in, s.order, s.op, s.rows, s.cols, stridea),
      b(t, "b", use::out, s.order, s.plain, s.rows, s.cols, strideb);
  t.invoke(call, s.order, s.op, s.rows_a, s.cols_a, alpha, a, when<strided>(stridea), b,
           when<strided>(strideb));
  check(t, s, b, [&](auto& sum, zor_int i, zor_int j) { sum.add(times(widened(alpha), a(i, j))); });
}

template <class T>
void imatcopy(trial& t, zor::imatcopy_fn<T>* call) {
  const sizes s(t, "trans");
  const T alpha = t.scalar<T>("alpha");
  const layout from(t, "a", s.order, s.op, s.rows, s.cols, 1),
      to(t, "b", s.order, s.plain, s.rows, s.cols, 1);
  const auto ab = t.scattered<T>("ab", use::inout, std::max(from.extent(), to.extent()),
                                 [&](zor_int i) { return from.holds(i) || to.holds(i); });
  t.invoke(call, s.order, s.op, s.rows_a, s.cols_a, alpha, ab, from.ld, to.ld);
  t.some_of(s.rows, s.cols, [&](zor_int i, zor_int j) {
    const wide exact = times(widened(alpha), conj_when(from.conjugated, ab(from.at(i, j))));
    t.near(ab.now(to.at(i, j)), exact, 2 * magnitude(widened(alpha)) * magnitude(ab(from.at(i, j))), 2, "ab",
           i, j);
  });
}

template <class T>
void omatadd(trial& t, zor::omatadd_fn<T>* call) {
  const sizes s(t, "transa");
  const option opb = t.letter("transb", "NTRCntrc");
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const matrix<T> a(t, "a", use::in, s.order, s.op, s.rows, s.cols),
      b(t, "b", use::in, s.order, opb, s.rows, s.cols), c(t, "c", use::out, s.order, s.plain, s.rows, s.cols);
  t.invoke(call, s.order, s.op, opb, s.rows, s.cols, alpha, a, beta, b, c);
  check(t, s, c, [&](auto& sum, zor_int i, zor_int j) {
    sum.add(times(widened(alpha), a(i, j)));
    sum.add(times(widened(beta), b(i, j)));
  });
}

#define ROW_IMATCOPY(name, T) {#name, [](trial& t) { imatcopy<T>(t, name); }},
#define ROW_OMATCOPY(name, T) {#name, [](trial& t) { omatcopy<T>(t, name); }},
#define ROW_OMATCOPY2 ROW_OMATCOPY
#define ROW_OMATADD(name, T) {#name, [](trial& t) { omatadd<T>(t, name); }},
const rows kernels("transposition kernel", serial,
                   {
#include "zor/tables/trans.inc"
                   });
#define ROW_IMATCOPY(name, T) {#name, [](trial& t) { imatcopy<T>(t, name); }},
#define ROW_OMATCOPY(name, T) {#name, [](trial& t) { omatcopy<T>(t, name); }},
#define ROW_OMATCOPY2 ROW_OMATCOPY
#define ROW_OMATADD(name, T) {#name, [](trial& t) { omatadd<T>(t, name); }},
const rows divided("transposition", checked,
                   {
#include "zor/tables/core_trans.inc"
                   });

}  // namespace
}  // namespace zor_fuzz
