// SPDX-License-Identifier: MIT
// The compute functions that commit installs.
#pragma once

#include "dft/descriptor/descriptor.h"

namespace zor::dft {

// The pair for the head's precision, domain and placement.
void install_entries(descriptor* d);

}  // namespace zor::dft
