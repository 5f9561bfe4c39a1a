// SPDX-License-Identifier: MIT
// Scaled copies, transpositions and sums of matrices: the kernels and the public routines.
#include "tests/fuzz/trial.h"
#include "zor/signatures/trans.h"

namespace zor_fuzz {
namespace {

// op(A) of a stored rows by cols matrix: its lines, a leading dimension apart, have elements `step` apart.
struct layout {
  layout(trial& t, const std::string& name, char order, char letter, zor_int rows, zor_int cols, zor_int s)
      : by_columns(order == 'C' || order == 'c'),
        transposed(letter == 'T' || letter == 't' || letter == 'C' || letter == 'c'),
        conjugated(letter == 'R' || letter == 'r' || letter == 'C' || letter == 'c'),
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
  zor_int lines, length, step, ld;
};
template <class T>
struct matrix {
  matrix(trial& t, const char* name, use how, char order, char op, zor_int rows, zor_int cols,
         zor_int step = 1)
      : place(t, name, order, op, rows, cols, step),
        stored(t.scattered<T>(name, how, place.extent(), [&](zor_int i) { return place.holds(i); })) {}
  wide operator()(zor_int i, zor_int j) const {
    const wide e = stored(place.at(i, j));
    return place.conjugated ? std::conj(e) : e;
  }
  layout place;
  operand<T> stored;
};

// rows and cols of op(A) and of the result; letters of any case.
struct sizes {
  explicit sizes(trial& t)
      : order(t.letter("ordering", "RCrc")), rows(t.size("rows", 700)), cols(t.size("cols", 700)) {}
  char order;
  zor_int rows, cols;
};
constexpr const char* ops = "NTRCntrc";
bool is_transposed(char op) { return op == 'T' || op == 't' || op == 'C' || op == 'c'; }

template <class T, class Call>
void omatcopy(trial& t, bool checked, Call* call) {
  constexpr bool strided = std::is_same_v<Call, zor::omatcopy2_fn<T>>;
  const sizes s(t);
  const char op = t.letter("trans", ops);
  const zor_int stridea = strided ? t.draw("stridea", 1, 4, 1) : 1,
                strideb = strided ? t.draw("strideb", 1, 4, 1) : 1;
  const T alpha = t.scalar<T>("alpha");
  const matrix<T> a(t, "a", use::in, s.order, op, s.rows, s.cols, stridea),
      b(t, "b", use::out, s.order, 'N', s.rows, s.cols, strideb);
  zor_int rows = is_transposed(op) ? s.cols : s.rows, cols = is_transposed(op) ? s.rows : s.cols;
  zor_int lda = a.place.ld, ldb = b.place.ld;
  char order = s.order;
  if (checked) {
    order = t.checked(1, order, 'x');
    rows = t.checked(3, rows, zor_int(-1));
    cols = t.checked(4, cols, zor_int(-5));
    lda = t.checked(7, lda, zor_int(0));
    ldb = t.checked(strided ? 10 : 9, ldb, zor_int(0));
  }
  t.call([&] {
    if constexpr (strided)
      call(order, op, rows, cols, alpha, a.stored, lda, stridea, b.stored, ldb, strideb);
    else
      call(order, op, rows, cols, alpha, a.stored, lda, b.stored, ldb);
  });
  t.some_of(s.rows, s.cols, [&](zor_int i, zor_int j) {
    const wide exact = times(widened(alpha), a(i, j));
    t.near(b.stored.now(b.place.at(i, j)), exact, 2 * magnitude(widened(alpha)) * magnitude(a(i, j)), 2, "b",
           i, j);
  });
}

template <class T>
void imatcopy(trial& t, bool checked, zor::imatcopy_fn<T>* call) {
  const sizes s(t);
  const char op = t.letter("trans", ops);
  const T alpha = t.scalar<T>("alpha");
  const layout from(t, "a", s.order, op, s.rows, s.cols, 1), to(t, "b", s.order, 'N', s.rows, s.cols, 1);
  const auto ab = t.scattered<T>("ab", use::inout, std::max(from.extent(), to.extent()),
                                 [&](zor_int i) { return from.holds(i) || to.holds(i); });
  const zor_int rows = is_transposed(op) ? s.cols : s.rows, cols = is_transposed(op) ? s.rows : s.cols;
  const zor_int lda = checked ? t.checked(7, from.ld, zor_int(0)) : from.ld,
                ldb = checked ? t.checked(8, to.ld, zor_int(-1)) : to.ld;
  t.call([&] { call(s.order, op, rows, cols, alpha, ab, lda, ldb); });
  t.some_of(s.rows, s.cols, [&](zor_int i, zor_int j) {
    const wide e = ab(from.at(i, j)), exact = times(widened(alpha), from.conjugated ? std::conj(e) : e);
    t.near(ab.now(to.at(i, j)), exact, 2 * magnitude(widened(alpha)) * magnitude(e), 2, "ab", i, j);
  });
}

template <class T>
void omatadd(trial& t, bool checked, zor::omatadd_fn<T>* call) {
  const sizes s(t);
  const char opa = t.letter("transa", ops), opb = t.letter("transb", ops);
  const T alpha = t.scalar<T>("alpha"), beta = t.scalar<T>("beta");
  const matrix<T> a(t, "a", use::in, s.order, opa, s.rows, s.cols),
      b(t, "b", use::in, s.order, opb, s.rows, s.cols), c(t, "c", use::out, s.order, 'N', s.rows, s.cols);
  const char letter = checked ? t.checked(3, opb, '?') : opb;
  const zor_int ldc = checked ? t.checked(13, c.place.ld, zor_int(0)) : c.place.ld;
  t.call([&] {
    call(s.order, opa, letter, s.rows, s.cols, alpha, a.stored, a.place.ld, beta, b.stored, b.place.ld,
         c.stored, ldc);
  });
  t.some_of(s.rows, s.cols, [&](zor_int i, zor_int j) {
    const wide left = times(widened(alpha), a(i, j)), right = times(widened(beta), b(i, j));
    const long double size =
        2 * (magnitude(widened(alpha)) * magnitude(a(i, j)) + magnitude(widened(beta)) * magnitude(b(i, j)));
    t.near(c.stored.now(c.place.at(i, j)), left + right, size, 4, "c", i, j);
  });
}

#define ROW_IMATCOPY(name, T) {#name, [](trial& t) { imatcopy<T>(t, public_ones, name); }},
#define ROW_OMATCOPY(name, T) {#name, [](trial& t) { omatcopy<T>(t, public_ones, name); }},
#define ROW_OMATCOPY2(name, T) {#name, [](trial& t) { omatcopy<T>(t, public_ones, name); }},
#define ROW_OMATADD(name, T) {#name, [](trial& t) { omatadd<T>(t, public_ones, name); }},
const rows kernels("transposition kernel", serial, [] {
  constexpr bool public_ones = false;
  return std::vector<row>{
#include "zor/tables/trans.inc"
  };
}());
#define ROW_IMATCOPY(name, T) {#name, [](trial& t) { imatcopy<T>(t, public_ones, name); }},
#define ROW_OMATCOPY(name, T) {#name, [](trial& t) { omatcopy<T>(t, public_ones, name); }},
#define ROW_OMATCOPY2(name, T) {#name, [](trial& t) { omatcopy<T>(t, public_ones, name); }},
#define ROW_OMATADD(name, T) {#name, [](trial& t) { omatadd<T>(t, public_ones, name); }},
const rows divided("transposition", threaded, [] {
  constexpr bool public_ones = true;
  return std::vector<row>{
#include "zor/tables/core_trans.inc"
  };
}());

}  // namespace
}  // namespace zor_fuzz
