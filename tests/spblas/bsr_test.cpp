// SPDX-License-Identifier: MIT
// Every product of a matrix in blocks against plain loops in the stated order, bit for bit.
#include <gtest/gtest.h>

#include "tests/ref/bsr.h"
#include "tests/spblas/sides.h"
#include "zor/signatures/spblas.h"

namespace {

using namespace sparse_test;
using zor_ref::block_rows;

struct sizes {
  int64_t mb, lb, longest;  // of a block row, but for its diagonal block
};
const sizes all_sizes[] = {{1, 1, 2}, {7, 1, 4}, {5, 2, 3}, {9, 3, 4},  {8, 4, 3},  {4, 5, 4}, {6, 6, 2},
                           {5, 7, 3}, {4, 8, 5}, {3, 9, 2}, {3, 17, 2}, {2, 35, 2}, {3, 4, 0}};

// Block columns in any order, repeats included.
template <class T>
block_rows<T> random_blocks(random_bits& random, const sizes& z) {
  block_rows<T> a{z.lb, {}};
  for (int64_t r = 1; r <= z.mb; ++r) {
    auto& row = a.row.emplace_back();
    for (int64_t n = random.between(0, z.longest); n > 0; --n) row.push_back({random.between(1, z.mb), {}});
    for (auto& b : row) {
      b.element.resize(size_t(z.lb * z.lb));
      fill(random, b.element.data(), b.element.size());
    }
  }
  return a;
}

template <class T, class I>
struct bsr_arrays {
  I mb, lb;
  guarded<T> val;
  guarded<I> indx, pntrb, pntre;

  bsr_arrays(const block_rows<T>& a, int base, bool by_rows)
      : mb(I(a.row.size())),
        lb(I(a.lb)),
        val(count(a) * size_t(a.lb * a.lb)),
        indx(count(a)),
        pntrb(a.row.size() + 1),
        pntre(a.row.size()) {
    const I origin = 3;
    size_t k = 0;
    for (size_t r = 0; r < a.row.size(); ++r) {
      pntrb[r] = I(k) + origin;
      for (const auto& b : a.row[r]) {
        for (int64_t i = 1; i <= a.lb; ++i)
          for (int64_t j = 1; j <= a.lb; ++j)
            val[k * size_t(a.lb * a.lb) + size_t(by_rows ? (i - 1) * a.lb + j - 1 : i - 1 + (j - 1) * a.lb)] =
                a.at(b, i, j);
        indx[k++] = I(b.column - 1 + base);
      }
      pntre[r] = I(k) + origin;
    }
    pntrb[a.row.size()] = I(k) + origin;
  }
  auto arguments() { return zor_test::list_of(val.data(), indx.data(), pntrb.data(), pntre.data()); }
  static size_t count(const block_rows<T>& a) {
    size_t n = 0;
    for (const auto& row : a.row) n += row.size();
    return n;
  }
};

// call(arrays, of, b, c), `of` being the order of blocks, alpha and the arrays; expect(a, alpha, x, y) is the
// reference of one right-hand side.
template <class T, class I, class Call, class Expect>
void check_product(const std::string& name, const shape& s, const sizes& z, int64_t n, bool by_rows,
                   bool row_major, const Call& call, const Expect& expect) {
  random_bits random(uint64_t(z.mb * 100 + z.lb * 10 + n));
  const auto a = random_blocks<T>(random, z);
  bsr_arrays<T, I> arrays(a, s.base, by_rows);
  const int64_t m = z.mb * z.lb, padding = n == 1 ? 0 : 2;
  sides<T> b(random, m, n, row_major, padding), c(random, m, n, row_major, padding);
  const T alpha = draw<T>(random);
  const auto of = zor_test::list_of(arrays.lb, alpha) + arrays.arguments();
  check_columns(
      named(name, {{"blocks of", z.lb}}), {n, 1, n}, b, c,
      [&](const auto& x, const auto& y) { expect(a, alpha, x, y); }, [&] { call(of, b, c); });
}
// The same of one vector, whose kernels have no leading dimensions.
template <class T, class I, class Call, class Expect>
void check_vector(const std::string& name, const shape& s, const sizes& z, bool by_rows, const Call& call,
                  const Expect& expect) {
  check_product<T, I>(
      name, s, z, 1, by_rows, false,
      [&](const auto& of, auto& x, auto& y) { call(of, x.all.data(), y.all.data()); }, expect);
}
// Flags as they are given, 1 or another value.
struct flags {
  int op, uplo, diag;
};
const flags all_flags[] = {{1, 1, 1}, {1, 0, 1}, {1, 1, 0}, {1, 0, 0},
                           {0, 1, 1}, {0, 0, 1}, {2, 1, 0}, {7, 0, 0}};
std::string with(const char* name, const flags& f) {
  return std::string(name) + "(" + std::to_string(f.op) + ", " + std::to_string(f.uplo) + ", " +
         std::to_string(f.diag) + ")";
}

template <class T, class I>
void check_general(const char* name, zor::bsr_general_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const I op : {1, 0}) {
      const shape s = {1, op == 1 ? 'n' : 't', 'g', '_', '_'};
      check_vector<T, I>(
          name, s, z, false, [&](auto& of, T* x, T* y) { pass(f, op, z.mb, nullptr, of, x, nullptr, y); },
          [&](auto& a, T alpha, auto& x, auto& y) { zor_ref::bsr_product(s, false, a, alpha, x, y); });
    }
}
// A general product of many right-hand sides takes the elements of a block one by one.
template <class T>
void plain_product(bool plain, const block_rows<T>& a, T alpha, const column_of<const T>& x,
                   const column_of<T>& y) {
  for (int64_t r = 0; r < int64_t(a.row.size()); ++r)
    for (const auto& e : a.row[size_t(r)])
      for (int64_t i = 1; i <= a.lb; ++i)
        for (int64_t j = 1; j <= a.lb; ++j) {
          const int64_t row = r * a.lb + i, column = (e.column - 1) * a.lb + j;
          T& to = y(plain ? row : column);
          to = zor_ref::plus(to,
                             zor_ref::times(zor_ref::times(a.at(e, i, j), alpha), x(plain ? column : row)));
        }
}
template <class T, class I>
void check_general_many(const char* name, zor::bsr_general_many_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const I op : {1, 0})
      for (const I n : {1, 2, 8, 37}) {
        const shape s = {0, op == 1 ? 'n' : 't', 'g', '_', '_'};
        check_product<T, I>(
            name, s, z, n, true, true, [&](auto& of, auto& b, auto& c) { pass(f, op, z.mb, n, of, b, c); },
            [&](auto& a, T alpha, auto& x, auto& y) {
              n == 1 ? zor_ref::bsr_product(s, true, a, alpha, x, y) : plain_product(op == 1, a, alpha, x, y);
            });
      }
}
template <class T, class I>
void check_triangular(const char* name, int base, zor::bsr_triangular_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const flags& g : all_flags) {
      const shape s = {base, g.op == 1 ? 'n' : 't', 't', g.uplo == 1 ? 'l' : 'u', g.diag == 1 ? 'n' : 'u'};
      check_vector<T, I>(
          with(name, g), s, z, base == 0,
          [&](auto& of, T* x, T* y) { pass(f, g.op, g.uplo, g.diag, z.mb, nullptr, of, x, nullptr, y); },
          [&](auto& a, T alpha, auto& x, auto& y) { zor_ref::bsr_product(s, base == 0, a, alpha, x, y); });
    }
}
template <class T, class I>
void check_symmetric(const char* name, int base, zor::bsr_symmetric_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const flags& g : all_flags)
      for (const I n : {1, 8, 11}) {
        if (g.op != 1) continue;
        const shape s = {base, 'n', 's', g.uplo == 1 ? 'l' : 'u', 'n'};
        check_product<T, I>(
            with(name, g), s, z, n, base == 0, base == 0,
            [&](auto& of, auto& b, auto& c) { pass(f, g.uplo, g.diag, z.mb, n, of, b, c); },
            [&](auto& a, T alpha, auto& x, auto& y) {
              zor_ref::bsr_mirrored(s, g.diag != 0, n != 1, a, 1, z.mb, alpha, x, y);
            });
      }
}
template <class T, class I>
void check_skew(const char* name, int base, zor::bsr_skew_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const I uplo : {1, 0}) {
      const shape s = {base, 'n', 'a', uplo == 1 ? 'l' : 'u', '_'};
      check_vector<T, I>(
          name, s, z, base == 0,
          [&](auto& of, T* x, T* y) { pass(f, uplo, z.mb, nullptr, of, x, nullptr, y); },
          [&](auto& a, T alpha, auto& x, auto& y) {
            zor_ref::bsr_mirrored(s, true, false, a, 1, z.mb, alpha, x, y);
          });
    }
}
template <class T, class I>
void check_diagonal(const char* name, int base, zor::bsr_diagonal_fn<T, I>* f) {
  for (const sizes& z : all_sizes)
    for (const I diag : {1, 0}) {
      const shape s = {base, 'n', 'd', '_', diag == 1 ? 'n' : 'u'};
      check_vector<T, I>(
          name, s, z, base == 0,
          [&](auto& of, T* x, T* y) { pass(f, diag, z.mb, nullptr, of, x, nullptr, y); },
          [&](auto& a, T alpha, auto& x, auto& y) { zor_ref::scatter(s, a.rows(), alpha, x, y); });
    }
}

TEST(BsrProduct, General) {
#define ROW_BSR_GENERAL(name, T, I) check_general<T, I>(#name, name);
#define ROW_BSR_GENERAL_MANY(name, T, I) check_general_many<T, I>(#name, name);
#include "zor/tables/spblas_stems.inc"
}
TEST(BsrProduct, Triangular) {
#define ROW_BSR_TRIANGULAR(name, T, I, base) check_triangular<T, I>(#name, base, name);
#include "zor/tables/spblas_stems.inc"
}
TEST(BsrProduct, Symmetric) {
#define ROW_BSR_SYMMETRIC(name, T, I, base) check_symmetric<T, I>(#name, base, name);
#include "zor/tables/spblas_stems.inc"
}
TEST(BsrProduct, SkewAndDiagonal) {
#define ROW_BSR_SKEW(name, T, I, base) check_skew<T, I>(#name, base, name);
#define ROW_BSR_DIAGONAL(name, T, I, base) check_diagonal<T, I>(#name, base, name);
#include "zor/tables/spblas_stems.inc"
}

// Vectors are given from the first block row of the range on.
template <class T, class I>
void check_mvout(const char* name, const shape& s, zor::bsr_mvout_par_fn<T, I>* f) {
  for (const sizes& z : all_sizes) {
    const int64_t ranges[][2] = {{1, z.mb}, {(z.mb + 2) / 3, z.mb}, {(z.mb + 1) / 2, (z.mb + 1) / 2}, {1, 0}};
    for (const auto& r : ranges) {
      const int64_t moved = (r[0] - 1) * z.lb;
      check_vector<T, I>(
          name, s, z, false,
          [&](auto& of, T* x, T* y) { pass(f, r[0], r[1], nullptr, of, x + moved, y + moved); },
          [&](auto& a, T alpha, auto& x, auto& y) {
            zor_ref::bsr_mirrored(s, true, false, a, r[0], r[1], alpha, x, y);
          });
    }
  }
}
TEST(BsrProduct, RangeOfSymmetricRows) {
#define ROW_bsr_mvout_par(...) BY_SHAPE(check_mvout, __VA_ARGS__)
#include "zor/tables/spblas_bsr.inc"
}

// y is overwritten, in a row without blocks by zeros.
template <class T, class I>
void check_gemvout(const char* name, zor::bsr_gemvout_par_fn<T, I>* f) {
  for (const sizes& z : all_sizes) {
    random_bits random(uint64_t(z.lb));
    const auto a = random_blocks<T>(random, z);
    const auto list = a.rows();
    bsr_arrays<T, I> arrays(a, 1, false);
    sides<T> x(random, z.mb * z.lb, 1, false, 0), y(random, z.mb * z.lb, 1, false, 0);
    const int64_t first = (z.mb + 1) / 2;
    check_columns(
        named(name, {{"blocks of", z.lb}}), {1, 1, 1}, x, y,
        [&](const auto& xs, const auto& ys) {
          for (int64_t i = (first - 1) * z.lb + 1; i <= z.mb * z.lb; ++i) {
            T& sum = ys(i) = T{};
            for (const auto& e : list[size_t(i - 1)])
              sum = zor_ref::plus(sum, zor_ref::times(e.value, xs(e.column)));
          }
        },
        [&] {
          pass(f, first, z.mb, nullptr, z.lb, nullptr, arrays.val, arrays.indx, arrays.pntrb, nullptr, x.all,
               y.all);
        });
  }
}
TEST(BsrProduct, PlainRowProduct) {
#define ROW_bsr_gemvout_par(name, T, I, ...) check_gemvout<T, I>(#name, name);
#include "zor/tables/spblas_bsr.inc"
}

}  // namespace
