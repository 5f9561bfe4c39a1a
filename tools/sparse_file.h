// SPDX-License-Identifier: MIT
// The entries of a Matrix Market file as a sparse matrix of the library.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/mmio.h"
#include "zor/sparse.h"

namespace zor_tools {

// CSR in base 1 with ascending columns; entries of one place are added in the order of the file. I is the
// integer of the indices.
template <class T, class I>
struct csr {
  int64_t rows, cols;
  std::vector<T> val;
  std::vector<I> indx, pntr;
};

// What the file stores: a symmetric kind its lower triangle. T is double or zor_c64; double needs a field
// other than complex. Throws input_error when the row pointers alone exceed the machine's memory. A matrix
// that is moved here needs no second copy.
template <class T, class I>
csr<T, I> csr_of(mm_matrix m);

// Sizes and row pointers in base 1 do not pass `largest`, so that indices of 32 bits serve.
inline bool fits_32_bits(const mm_matrix& m, int64_t largest = INT32_MAX) {
  return m.rows < largest && m.cols < largest && int64_t(m.re.size()) < largest;
}

// Entries of the whole matrix, mirror images included.
int64_t whole_entries(const mm_matrix& m);

const char* symmetry_name(mm_symmetry s);

// A view of arrays that outlive it. Throws std::runtime_error with the library's text.
class sparse_view {
 public:
  template <class T, class I>
  sparse_view(const csr<T, I>& a, int32_t structure);
  sparse_view(const sparse_view&) = delete;
  sparse_view& operator=(const sparse_view&) = delete;
  ~sparse_view() { zor_sparse_free(&handle_); }
  zor_sparse get() const { return handle_; }

 private:
  zor_sparse handle_ = nullptr;
};

// The view that stands for a file's symmetry, read from the lower triangle.
int32_t structure_of(mm_symmetry s);

// Throws std::runtime_error with the library's text unless the status is 0.
void expect_sparse_done(int32_t sparse_status);

}  // namespace zor_tools
