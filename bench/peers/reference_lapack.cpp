// SPDX-License-Identifier: MIT
// The reference LAPACK as a peer.
#include "bench/peers/peer.h"

namespace zor_bench {

// By full path: the plain name liblapack.so.3 leads to whatever LAPACK the system prefers.
const peer_adapter reference_lapack_adapter = {
    "LAPACK", {"/usr/lib/x86_64-linux-gnu/lapack/liblapack.so.3"}, false, nullptr, nullptr};

}  // namespace zor_bench
