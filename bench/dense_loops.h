// SPDX-License-Identifier: MIT
// Dense operations as loops that a user would write, in a shared object compiled for this very processor.
#pragma once

#include <cstdint>

namespace zor_bench {

enum class dense_operation {
  sum,             // C := alpha A + beta B, all rows by cols without gaps, by rows
  transposed_sum,  // the same with B transposed, cols by rows
  pair_product,    // y := alpha A x + beta y, A column-major, sums in pairs of doubles
  pair_symmetric,  // the same, the upper triangle of A standing for both
  quad_product,    // the same two with sums in quadruple precision
  quad_symmetric,
  rotations,  // (a, b) := (c a + d b, c b - d a) for `cols` elements, c and d vectors too; s or d
  reflector   // the triples (a, b, c) through the reflector (1, h1, h2), alpha = tau, beta = h1, h2; s or d
};

struct dense_job {
  dense_operation what;
  char type;  // s, d, c or z; products are d or z
  int64_t rows, cols;
  double alpha[2], beta[2];
  const void *a, *b;  // b is x in a product
  void* c;            // y in a product
  const void* d = nullptr;
};

using dense_loop = void(const dense_job& job);

// Null when the shared object is not there.
dense_loop* find_dense_loop();

}  // namespace zor_bench
