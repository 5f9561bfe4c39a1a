// SPDX-License-Identifier: MIT
// a b + c rounded once, for processors without an instruction for it: the same value as the instruction's in
// every rounding mode and with denormal operands or results taken as zeros, and the same exception flags. An
// exception that the caller has unmasked sets its flag and does not trap.
#pragma once

namespace zor {

float software_fma(float a, float b, float c);
double software_fma(double a, double b, double c);

}  // namespace zor
