// SPDX-License-Identifier: MIT
// Krylov methods for general real matrices: BiCGSTAB (van der Vorst, 1992) and restarted GMRES (Saad and
// Schultz, 1986), both preconditioned from the right, so that their residual is that of A x = b.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "zor/types.h"

namespace zor_tools {

// What an iteration reports to: its number and the residual, relative to the right-hand side.
using observer = std::function<void(int64_t iteration, double residual)>;
using linear_map = std::function<void(const double* x, double* y)>;

struct linear_system {
  std::string file;  // the matrix, named in failures
  zor_int n;
  linear_map times;         // y := A x
  linear_map precondition;  // y := M^-1 x; empty: none
  const double* b;
  double tolerance;
  int64_t most;  // iterations
  observer tell;
};

// Solve from x = 0 until the residual is at most the tolerance; false when it is not after `most`
// iterations. Throws std::runtime_error with the reason when the method breaks down or stagnates.
bool bicgstab(const linear_system& s, double* x);
bool gmres(const linear_system& s, int64_t restart, double* x);

// Of vectors of n elements, in the library's order of sums.
double dot(zor_int n, const double* x, const double* y);
double norm(zor_int n, const double* x);
void axpy(zor_int n, double alpha, const double* x, double* y);

}  // namespace zor_tools
