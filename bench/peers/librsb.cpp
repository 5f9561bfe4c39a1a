// SPDX-License-Identifier: MIT
// librsb as a peer of sparse products and solves, by the names of its C interface.
#include <dlfcn.h>

#include "bench/csr.h"

namespace zor_bench {
namespace {

// The interface of librsb 1.3 with its 32-bit indices.
struct librsb {
  int (*init)(void*);
  int (*set_opt_str)(const char*, const char*);
  void* (*alloc)(const void*, const int*, const int*, int, char, int, int, int, int, int, int*);
  void* (*free)(void*);
  int (*spmv)(int, const void*, const void*, const void*, int, const void*, void*, int);
  int (*spmm)(int, const void*, const void*, int, int, const void*, int, const void*, void*, int);
  int (*spsv)(int, const void*, const void*, const void*, int, void*, int);
} rsb;

constexpr int not_transposed = 'N', any_storage = 0x6102, triangular = 0x8, lower = 0x10, upper = 0x20,
              symmetric = 0x400000, column_major = 0x4000000;

struct opened_job {
  csr_job job;
  void* matrix;
};

void* open_librsb(const csr_job& job) {
  if (job.index_bytes != 4 || job.what > csr_operation::upper_solve) return nullptr;
  int flags = any_storage, error = 0;
  if (job.what == csr_operation::symmetric) flags |= symmetric | lower;
  if (job.what == csr_operation::lower_solve) flags |= triangular | lower;
  if (job.what == csr_operation::upper_solve) flags |= triangular | upper;
  const int rows = int(job.rows);
  void* const matrix =
      rsb.alloc(job.value, static_cast<const int*>(job.start), static_cast<const int*>(job.column),
                int(job.entries), job.type == 'd' ? 'D' : 'Z', rows, rows, 1, 1, flags, &error);
  return error != 0 || matrix == nullptr ? nullptr : new opened_job{job, matrix};
}

void run_librsb(void* opened) {
  const auto& [job, matrix] = *static_cast<const opened_job*>(opened);
  const double one[2] = {1, 0};
  const int rows = int(job.rows), rhs = int(job.rhs);
  switch (job.what) {
    case csr_operation::product:
    case csr_operation::symmetric:
      rsb.spmv(not_transposed, one, matrix, job.x, 1, one, job.y, 1);
      return;
    case csr_operation::products_by_rows:
      rsb.spmm(not_transposed, one, matrix, rhs, 0, job.x, rhs, one, job.y, rhs);
      return;
    case csr_operation::products_by_columns:
      rsb.spmm(not_transposed, one, matrix, rhs, column_major, job.x, rows, one, job.y, rows);
      return;
    case csr_operation::lower_solve:
    case csr_operation::upper_solve:
      rsb.spsv(not_transposed, one, matrix, job.x, 1, job.y, 1);
      return;
    default:
      return;
  }
}

void close_librsb(void* opened) {
  auto* const done = static_cast<opened_job*>(opened);
  rsb.free(done->matrix);
  delete done;
}

template <class F>
bool find(void* library, F& slot, const char* name) {
  slot = reinterpret_cast<F>(dlsym(library, name));
  return slot != nullptr;
}

bool load() {
  void* const library = dlopen("librsb.so.0", RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr || !find(library, rsb.init, "rsb_lib_init") ||
      !find(library, rsb.set_opt_str, "rsb_lib_set_opt_str") ||
      !find(library, rsb.alloc, "rsb_mtx_alloc_from_csr_const") || !find(library, rsb.free, "rsb_mtx_free") ||
      !find(library, rsb.spmv, "rsb_spmv") || !find(library, rsb.spmm, "rsb_spmm") ||
      !find(library, rsb.spsv, "rsb_spsv"))
    return false;
  return rsb.init(nullptr) == 0 && rsb.set_opt_str("RSB_IO_WANT_EXECUTING_THREADS", "1") == 0;
}

constexpr csr_peer peer_librsb = {"librsb", open_librsb, run_librsb, close_librsb};

}  // namespace

const csr_peer* find_librsb() {
  static const bool found = load();
  return found ? &peer_librsb : nullptr;
}

}  // namespace zor_bench
