// SPDX-License-Identifier: MIT
// Eigen as a peer of sparse products and solves, compiled for the processor at hand.
#include <Eigen/SparseCore>

#include "bench/peers/native/native.h"

namespace zor_bench {
namespace {

template <class T, class I>
using matrix = Eigen::Map<const Eigen::SparseMatrix<T, Eigen::RowMajor, I>>;
template <class T>
using vector = Eigen::Matrix<T, Eigen::Dynamic, 1>;
template <class T, int Order>
using dense = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Order>;

template <int Order, class T, class I>
std::function<void()> products(const csr_arrays<T, I>& a, const matrix<T, I>& A) {
  const Eigen::Map<const dense<T, Order>> b(a.x, a.rows, a.rhs);
  Eigen::Map<dense<T, Order>> c(a.y, a.rows, a.rhs);
  return [=]() mutable { c.noalias() += A * b; };
}

template <class T, class I>
std::function<void()> transposed_products(const csr_arrays<T, I>& a, const matrix<T, I>& A) {
  const Eigen::Map<const dense<T, Eigen::RowMajor>> b(a.x, a.rows, a.rhs);
  Eigen::Map<dense<T, Eigen::RowMajor>> c(a.y, a.rows, a.rhs);
  return [=]() mutable { c.noalias() += A.transpose() * b; };
}

template <int Triangle, class T, class I>
std::function<void()> solve(const csr_arrays<T, I>& a, const matrix<T, I>& A) {
  const Eigen::Map<const vector<T>> x(a.x, a.rows);
  Eigen::Map<vector<T>> y(a.y, a.rows);
  return [=]() mutable {
    y = x;
    A.template triangularView<Triangle>().solveInPlace(y);
  };
}

template <int Triangle, int Order, class T, class I>
std::function<void()> solves(const csr_arrays<T, I>& a, const matrix<T, I>& A) {
  const Eigen::Map<const dense<T, Order>> x(a.x, a.rows, a.rhs);
  Eigen::Map<dense<T, Order>> y(a.y, a.rows, a.rhs);
  return [=]() mutable {
    y = x;
    A.template triangularView<Triangle>().solveInPlace(y);
  };
}

void* open_eigen(const csr_job& job) {
  return open_native(
      job, []<class T, class I>(const csr_arrays<T, I>& a, csr_operation what) -> std::function<void()> {
        const matrix<T, I> A(a.rows, a.rows, a.entries, a.start, a.column, a.value);
        const Eigen::Map<const vector<T>> x(a.x, a.rows);
        Eigen::Map<vector<T>> y(a.y, a.rows);
        switch (what) {
          case csr_operation::product:
            return [=]() mutable { y.noalias() += A * x; };
          case csr_operation::symmetric:
            // Its view of one triangle conjugates the other one.
            if constexpr (std::is_same_v<T, double>)
              return [=]() mutable { y.noalias() += A.template selfadjointView<Eigen::Lower>() * x; };
            return {};
          case csr_operation::products_by_rows:
            return products<Eigen::RowMajor>(a, A);
          case csr_operation::products_by_columns:
            return products<Eigen::ColMajor>(a, A);
          case csr_operation::lower_solve:
            return solve<Eigen::Lower>(a, A);
          case csr_operation::upper_solve:
            return solve<Eigen::Upper>(a, A);
          case csr_operation::transposed_solve:
            return [=]() mutable {
              y = x;
              A.transpose().template triangularView<Eigen::Upper>().solveInPlace(y);
            };
          case csr_operation::lower_solves_by_rows:
            return solves<Eigen::Lower, Eigen::RowMajor>(a, A);
          case csr_operation::upper_solves_by_rows:
            return solves<Eigen::Upper, Eigen::RowMajor>(a, A);
          case csr_operation::lower_solves_by_columns:
            return solves<Eigen::Lower, Eigen::ColMajor>(a, A);
          case csr_operation::upper_solves_by_columns:
            return solves<Eigen::Upper, Eigen::ColMajor>(a, A);
          case csr_operation::transposed:
            return [=]() mutable { y.noalias() += A.transpose() * x; };
          case csr_operation::transposed_by_rows:
            return transposed_products(a, A);
          case csr_operation::rows_alone:
            return [=]() mutable { y.noalias() = A * x; };
          default:
            return {};
        }
        return {};
      });
}

}  // namespace

extern "C" [[gnu::visibility("default")]] const csr_peer zor_csr_peer;
const csr_peer zor_csr_peer = {"Eigen", open_eigen, run_native, close_native};

}  // namespace zor_bench
