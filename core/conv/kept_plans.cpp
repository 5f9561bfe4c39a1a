// SPDX-License-Identifier: MIT
#include "core/conv/kept_plans.h"

#include <cstring>

#include "zor/serv.h"

namespace zor_core {
namespace {

// Few, and none so large that keeping it is a burden: some 16 bytes a point.
constexpr int most_kept = 8;
constexpr double most_points = 1 << 18;

struct kept_plan {
  transform_key key;
  zor_fft fft;  // null: an empty place
  int users;
  uint64_t last_use;
};
// Guarded by the libraries' lock.
constinit kept_plan kept[most_kept] = {};
constinit uint64_t uses = 0;

class library_lock {
 public:
  library_lock() { zor_serv_lock(); }
  library_lock(const library_lock&) = delete;
  library_lock& operator=(const library_lock&) = delete;
  ~library_lock() { zor_serv_unlock(); }
};

bool same(const transform_key& a, const transform_key& b) {
  return a.precision == b.precision && a.domain == b.domain && a.placement == b.placement &&
         a.dims == b.dims && std::memcmp(a.lengths, b.lengths, size_t(a.dims) * sizeof *a.lengths) == 0;
}

double points_of(const transform_key& key) {
  double points = 1;
  for (int i = 0; i < key.dims; ++i) points *= double(key.lengths[i]);
  return points;
}

int32_t commit(const transform_key& key, zor_fft* fft) {
  int32_t status = zor_fft_create(fft, key.precision, key.domain, key.dims, key.lengths);
  if (status == ZOR_FFT_OK) status = zor_fft_set_int(*fft, ZOR_DFT_PLACEMENT, key.placement);
  if (status == ZOR_FFT_OK && key.domain == ZOR_DFT_REAL)
    status = zor_fft_set_int(*fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX);
  if (status == ZOR_FFT_OK) status = zor_fft_set_real(*fft, ZOR_DFT_BACKWARD_SCALE, 1 / points_of(key));
  if (status == ZOR_FFT_OK) status = zor_fft_commit(*fft);
  if (status != ZOR_FFT_OK && *fft != nullptr) zor_fft_free(fft);
  return status;
}

}  // namespace

int32_t take_transform(const transform_key& key, zor_fft* fft) {
  {
    const library_lock lock;
    for (kept_plan& k : kept)
      if (k.fft != nullptr && same(k.key, key)) {
        ++k.users;
        k.last_use = ++uses;
        *fft = k.fft;
        return ZOR_FFT_OK;
      }
  }
  *fft = nullptr;
  const int32_t status = commit(key, fft);
  if (status != ZOR_FFT_OK || points_of(key) > most_points) return status;
  zor_fft old = nullptr;
  {
    const library_lock lock;
    kept_plan* place = nullptr;
    for (kept_plan& k : kept)
      if (k.users == 0 && (place == nullptr || k.last_use < place->last_use)) place = &k;
    if (place != nullptr) {
      old = place->fft;
      *place = {key, *fft, 1, ++uses};
    }
  }
  if (old != nullptr) zor_fft_free(&old);
  return ZOR_FFT_OK;
}

void return_transform(zor_fft fft) {
  {
    const library_lock lock;
    for (kept_plan& k : kept)
      if (k.fft == fft) {
        --k.users;
        return;
      }
  }
  zor_fft_free(&fft);
}

}  // namespace zor_core
