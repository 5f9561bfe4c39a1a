// SPDX-License-Identifier: MIT
// Very long lengths as a rows of b columns: column transforms, twiddles, row transforms.
#pragma once

#include "dft/descriptor/fields.h"

namespace zor::dft {

// Splits the record's length, commits a sub-transform for each factor and installs the kernel pair. 102 when
// the length is prime; on any failure the record is as before.
template <class R>
int32_t init_1d_via_2d(descriptor* r);

}  // namespace zor::dft
