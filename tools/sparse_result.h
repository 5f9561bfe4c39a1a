// SPDX-License-Identifier: MIT
// Matrices that calls of the library have made: their descriptions, and their entries as a file.
#pragma once

#include <string_view>
#include <type_traits>

#include "tools/output_file.h"
#include "tools/sparse_file.h"

namespace zor_tools {

// A matrix that a call makes, freed with it.
class sparse_made {
 public:
  sparse_made() = default;
  sparse_made(const sparse_made&) = delete;
  sparse_made& operator=(const sparse_made&) = delete;
  ~sparse_made() {
    if (handle_ != nullptr) zor_sparse_free(&handle_);
  }
  zor_sparse* place() { return &handle_; }
  zor_sparse get() const { return handle_; }

 private:
  zor_sparse handle_ = nullptr;
};

template <class I>
using sparse_description = std::conditional_t<sizeof(I) == 8, zor_sparse_desc, zor_sparse_desc_lp64>;

template <class I>
sparse_description<I> description_of(zor_sparse a) {
  sparse_description<I> d{};
  if constexpr (sizeof(I) == 8)
    expect_sparse_done(zor_sparse_describe(a, &d));
  else
    expect_sparse_done(zor_sparse_describe_lp64(a, &d));
  return d;
}

// A storage format by its name: csr, coo, dia, bsr or sky.
int32_t format_named(std::string_view name);

// The whole matrix: the mirror images of a symmetric kind beside its entries.
mm_matrix whole_matrix(mm_matrix m);

// A CSR matrix as a coordinate file, row by row; T is double or zor_c64.
template <class T, class I>
void write_coordinates(output_file& output, const sparse_description<I>& d, mm_symmetry symmetry);

}  // namespace zor_tools
