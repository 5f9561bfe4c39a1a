// SPDX-License-Identifier: MIT
// Libraries to compare with, found at run time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zor_bench {

struct peer {
  std::string name;
  std::string details;  // version, and the processor it tuned itself for
  std::string file;
  bool tuned;  // false: a plain implementation, left out of cases that would take it minutes
  void* handle;
};

// How to find and set up one library. All but the files may be null; `prepare` is called before any other
// function of the library.
struct peer_adapter {
  const char* name;
  std::vector<const char*> files;
  bool tuned;
  void (*set_threads)(void* handle, int32_t threads);
  std::string (*details)(void* handle);
  void (*prepare)(void* handle) = nullptr;
};

extern const peer_adapter openblas_adapter;
extern const peer_adapter blis_adapter;
extern const peer_adapter reference_blas_adapter;
// Not among the BLAS peers: its BLAS is another's.
extern const peer_adapter reference_lapack_adapter;

// Loads every BLAS that is installed, each with its own symbols, and gives it that many threads. An
// environment that would narrow OpenBLAS to an older processor is cleared; `openblas_core` (empty: none)
// narrows it on purpose.
std::vector<peer> load_blas_peers(int32_t threads, const std::string& openblas_core);

// The others: transforms, sparse matrices, integers, LAPACK. A bench looks up what it calls by itself.
std::vector<peer> load_other_peers();

// One library, or none when it is not installed.
std::vector<peer> load_peer(const peer_adapter& adapter);

void* find_symbol(const peer& p, const std::string& name);

// A function of the peer, or null.
template <class F>
F* find_function(const peer& p, const std::string& name) {
  return reinterpret_cast<F*>(find_symbol(p, name));
}

}  // namespace zor_bench
