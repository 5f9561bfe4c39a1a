// SPDX-License-Identifier: MIT
// Small products whose operands end or begin at an unmapped page: nothing outside an operand is read, not
// even into a lane that is thrown away. Each size takes its own way through the kernels, so sizes are swept
// rather than picked. The data are small integers, so every result is exact and no exception flag is due: a
// flag tells of signalling NaN read around an operand or between its columns.
#include <cfenv>
#include <limits>
#include <string>
#include <vector>

#include "tests/ref/gemm.h"
#include "tests/support/elements.h"
#include "tests/support/fault.h"
#include "tests/support/operand.h"
#include "zor/blas.h"

namespace {

using namespace zor_test;

constexpr zor_int largest = 50;

// A column-major operand against the upper or the lower unmapped page, placed anew for each product.
template <class T>
class edge_operand {
 public:
  zor_int ld = 0;

  edge_operand() : low_(capacity, false), high_(capacity, true) {}

  // An operand that must not be read consists of signalling NaN, as do the gaps and what lies around it.
  void place(zor_int rows, zor_int columns, zor_int gap, bool at_end, bool may_be_read = true) {
    ld = rows + gap;
    count_ = size_t((columns - 1) * ld + rows);
    data_ = at_end ? high_.data() + capacity - count_ : low_.data();
    T* const mapped_side = at_end ? data_ - margin : data_ + count_;
    for (size_t i = 0; i < margin; ++i) poison(mapped_side[i]);
    for (zor_int j = 0; j < columns; ++j)
      for (zor_int i = 0; i < ld && size_t(i + j * ld) < count_; ++i) {
        T& e = data_[i + j * ld];
        if (i < rows && may_be_read)
          e = scalar<T>(small_integer(), small_integer());
        else
          poison(e);
      }
  }

  T* data() { return data_; }
  std::vector<T> copy() const { return {data_, data_ + count_}; }

 private:
  static constexpr size_t margin = 64, capacity = size_t(largest * (largest + 1)) + margin;

  static void poison(T& e) {
    for (size_t h = 0; h < parts<T>; ++h) reals(&e)[h] = std::numeric_limits<real<T>>::signaling_NaN();
  }
  double small_integer() {
    state_ = state_ * 1664525 + 1013904223;
    return double(state_ >> 28) - 7;
  }

  guarded<T> low_, high_;
  T* data_ = nullptr;
  size_t count_ = 0;
  uint32_t state_ = 1;
};

// An alpha of 1 and no gap between the columns let a product read its operands where they stand.
struct layout {
  bool at_end;
  zor_int gap;
  double alpha;
};
constexpr layout layouts[] = {{true, 0, 1}, {false, 1, 1}, {true, 0, -2}};

template <class T, class Kernel>
class sweep {
 public:
  sweep(const char* name, Kernel kernel) : name_(name), kernel_(kernel) {}

  // All layouts of one size; false when one of them failed.
  bool run(char transa, char transb, zor_int m, zor_int n, zor_int k) {
    for (const layout& l : layouts)
      if (!run(transa, transb, m, n, k, l)) return false;
    return true;
  }

 private:
  bool run(char transa, char transb, zor_int m, zor_int n, zor_int k, const layout& l) {
    const double betas[] = {1, 0, 3};
    const double beta_re = betas[(m + n + k) % 3];
    const bool plain_a = transa == 'N', plain_b = transb == 'N';
    a_.place(plain_a ? m : k, plain_a ? k : m, l.gap, l.at_end);
    b_.place(plain_b ? k : n, plain_b ? n : k, l.gap, l.at_end);
    c_.place(m, n, l.gap, l.at_end, beta_re != 0);
    const T alpha = scalar<T>(l.alpha, l.alpha == 1 ? 0 : 1), beta = scalar<T>(beta_re, 0);

    // The plain loops take longer than the kernel: they check one product of many.
    const bool compared = ++count_ % 16 == 0;
    std::vector<T> expected;
    if (compared) {
      expected = c_.copy();
      zor_ref::gemm<T>(
          {transa, transb, m, n, k, alpha, a_.data(), a_.ld, b_.data(), b_.ld, beta, expected.data(), c_.ld});
    }
    std::feclearexcept(FE_ALL_EXCEPT);
    const bool fault = guard_.faults([&] {
      kernel_(&transa, &transb, &m, &n, &k, &alpha, a_.data(), &a_.ld, b_.data(), &b_.ld, &beta, c_.data(),
              &c_.ld);
    });
    const int flags = std::fetestexcept(FE_ALL_EXCEPT);
    const std::vector<T> actual = compared && !fault ? c_.copy() : expected;
    const auto same = same_bits(reals(expected.data()), reals(actual.data()), actual.size() * parts<T>);
    if (!fault && flags == 0 && same) return true;
    ADD_FAILURE() << name_ << " " << transa << transb << " m=" << m << " n=" << n << " k=" << k
                  << " alpha=" << l.alpha << " beta=" << beta_re << (l.at_end ? " ending" : " beginning")
                  << " at the page: " << (fault ? "memory fault" : "") << " flags " << flags << " "
                  << same.message();
    return false;
  }

  const char* name_;
  Kernel kernel_;
  fault_guard guard_;
  edge_operand<T> a_, b_, c_;
  unsigned count_ = 0;
};

// Calls body(m, n, k) for the sizes of a sweep until it returns false: all small ones, then every m with the
// n and k around the lane counts and tiles of the builds; with fused operations in software some of them.
template <class Body>
bool for_all_sizes(const Body& body) {
  constexpr zor_int small = 9;
  for (zor_int m = 1; m <= small; ++m)
    for (zor_int n = 1; n <= small; ++n)
      for (zor_int k = 1; k <= small; ++k)
        if (!body(m, n, k)) return false;
  for (zor_int m = 1; m <= largest; ++m)
    for (zor_int n : {4, 7, 8, 12, 13, 16, 21, 31, 33, 48, 50})
      for (zor_int k : {4, 11, 16, 33, 50})
        if (!(zor_ref::fuses_in_software() && (m + n + k) % 7 != 0) && !body(m, n, k)) return false;
  return true;
}

TEST(GemmEdges, NothingOutsideTheOperandsIsRead) {
  const auto run = []<class T>(const char* name, auto kernel, T) {
    sweep<T, decltype(kernel)> products(name, kernel);
    const std::string letters = parts<T> == 2 ? "NTC" : "NT";
    for (char transa : letters)
      for (char transb : letters)
        for_all_sizes([&](zor_int m, zor_int n, zor_int k) { return products.run(transa, transb, m, n, k); });
  };
#define ROW_XGEMM(name, T) run(#name, name, T{});
#include "zor/tables/blas_gemm.inc"
}

}  // namespace
