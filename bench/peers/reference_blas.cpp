// SPDX-License-Identifier: MIT
// The reference BLAS as a peer.
#include "bench/peers/peer.h"

namespace zor_bench {

// By full path: the plain name libblas.so.3 leads to whatever BLAS the system prefers.
const peer_adapter reference_blas_adapter = {
    "reference", {"/usr/lib/x86_64-linux-gnu/blas/libblas.so.3"}, false, nullptr, nullptr};

}  // namespace zor_bench
