// SPDX-License-Identifier: MIT
// std::complex<T>* of C++ without a cast.
#include <complex>

using complex32 = std::complex<float>;
using complex64 = std::complex<double>;
#define value32(re, im) complex32(re, im)
#define value64(re, im) complex64(re, im)

#include "tests/interface/complex_values.h"
