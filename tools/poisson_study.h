// SPDX-License-Identifier: MIT
// Errors of the Poisson solvers against the number of intervals.
#pragma once

namespace zor_tools {

// A table of the largest errors of a smooth solution on squares of 8 to 1024 intervals, for every kind of
// sides and both precisions, and the orders at which they fall.
void print_study();

}  // namespace zor_tools
