// SPDX-License-Identifier: MIT
// The job vector of the format conversions, and what their results say.
#pragma once

#include "serv/scalar.h"

namespace zor::sparse {

enum conversion_info { converted = 0, no_room = 1, bad_job = 2 };

struct conversion_job {
  bool from_csr;  // for dense matrices: to CSR
  zor_int csr_base, other_base;
  zor_int triangle, room, fill;
};
template <class I>
inline conversion_job read_job(const I* job) {
  return {job[0] == 0, zor_int(job[1]), zor_int(job[2]), zor_int(job[3]), zor_int(job[4]), zor_int(job[5])};
}

}  // namespace zor::sparse
