// SPDX-License-Identifier: MIT
// A short list under a lock. Calls that share a plan are counted, and the plan that was used longest ago
// gives way to a new one.
#include "core/conv/kept_plans.h"

#include <atomic>
#include <cstring>

#include "core/conv/tiles.h"
#include "zor/dft.h"
#include "zor/serv.h"

namespace zor_core {
namespace {

// Few, and none so large that keeping it is a burden: some 16 bytes a point.
constexpr int most_kept = 8;
constexpr double most_points = 1 << 18;

struct kept_plan {
  plan_key key;
  void* plan;  // null: an empty place
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

bool same(const plan_key& a, const plan_key& b) {
  return a.tile == b.tile && a.precision == b.precision && a.domain == b.domain &&
         a.placement == b.placement && a.dims == b.dims &&
         std::memcmp(a.lengths, b.lengths, size_t(a.dims) * sizeof *a.lengths) == 0;
}

double points_of(const plan_key& key) {
  double points = 1;
  for (int i = 0; i < key.dims; ++i) points *= double(key.lengths[i]);
  return points;
}

int32_t status_of(int32_t fft_status) {
  if (fft_status == ZOR_FFT_OK) return ZOR_CONV_OK;
  return fft_status == ZOR_FFT_NO_MEMORY ? ZOR_CONV_NO_MEMORY : ZOR_CONV_TRANSFORM_FAILED;
}

int32_t commit(const plan_key& key, void** plan) {
  zor_fft fft = nullptr;
  int32_t status = zor_fft_create(&fft, key.precision, key.domain, key.dims, key.lengths);
  if (status == ZOR_FFT_OK) status = zor_fft_set_int(fft, ZOR_DFT_PLACEMENT, key.placement);
  if (status == ZOR_FFT_OK && key.domain == ZOR_DFT_REAL)
    status = zor_fft_set_int(fft, ZOR_DFT_CONJUGATE_EVEN_STORAGE, ZOR_DFT_COMPLEX_COMPLEX);
  if (status == ZOR_FFT_OK) status = zor_fft_set_real(fft, ZOR_DFT_BACKWARD_SCALE, 1 / points_of(key));
  if (status == ZOR_FFT_OK) status = zor_fft_commit(fft);
  if (status != ZOR_FFT_OK && fft != nullptr) zor_fft_free(&fft);
  *plan = fft;
  return status_of(status);
}

int32_t make_tile(const plan_key& key, void** plan) {
  const zor::conv::tile_table* const tiles = find_tiles();
  if (tiles == nullptr) return ZOR_CONV_NO_MEMORY;
  zor::conv::tile_shape shape = {
      key.domain == ZOR_DFT_COMPLEX, key.placement == ZOR_DFT_INPLACE, key.dims, {}};
  for (int i = 0; i < key.dims; ++i) shape.lengths[i] = key.lengths[key.dims - 1 - i];
  if (key.precision == ZOR_DFT_DOUBLE)
    *plan = tiles->d.make(shape);
  else
    *plan = tiles->s.make(shape);
  return *plan != nullptr ? ZOR_CONV_OK : ZOR_CONV_NO_MEMORY;
}

void free_plan(const plan_key& key, void* plan) {
  if (!key.tile) {
    zor_fft fft = static_cast<zor_fft>(plan);
    zor_fft_free(&fft);
  } else if (key.precision == ZOR_DFT_DOUBLE) {
    find_tiles()->d.release(static_cast<zor::conv::tile_plan<double>*>(plan));
  } else {
    find_tiles()->s.release(static_cast<zor::conv::tile_plan<float>*>(plan));
  }
}

}  // namespace

const zor::conv::tile_table* find_tiles() {
  static std::atomic<const zor::conv::tile_table*> found{nullptr};
  const zor::conv::tile_table* table = found.load(std::memory_order_acquire);
  if (table != nullptr) return table;
  ZorConvTask* task = nullptr;
  const int32_t one = 1;
  if (zor_conv_NewTask(&task, ZOR_CONV_CONVOLUTION, 0, ZOR_CONV_DIRECT, ZOR_CONV_REAL, ZOR_CONV_DOUBLE, 1,
                       &one, &one, &one) != ZOR_CONV_OK)
    return nullptr;
  table = zor::conv::tiles_of(task);
  zor_conv_DeleteTask(&task);
  found.store(table, std::memory_order_release);
  return table;
}

int32_t take_plan(const plan_key& key, void** plan) {
  {
    const library_lock lock;
    for (kept_plan& k : kept)
      if (k.plan != nullptr && same(k.key, key)) {
        ++k.users;
        k.last_use = ++uses;
        *plan = k.plan;
        return ZOR_CONV_OK;
      }
  }
  *plan = nullptr;
  const int32_t status = key.tile ? make_tile(key, plan) : commit(key, plan);
  if (status != ZOR_CONV_OK || points_of(key) > most_points) return status;
  kept_plan old = {};
  {
    const library_lock lock;
    kept_plan* place = nullptr;
    for (kept_plan& k : kept)
      if (k.users == 0 && (place == nullptr || k.last_use < place->last_use)) place = &k;
    if (place != nullptr) {
      old = *place;
      *place = {key, *plan, 1, ++uses};
    }
  }
  if (old.plan != nullptr) free_plan(old.key, old.plan);
  return ZOR_CONV_OK;
}

void return_plan(const plan_key& key, void* plan) {
  {
    const library_lock lock;
    for (kept_plan& k : kept)
      if (k.plan == plan) {
        --k.users;
        return;
      }
  }
  free_plan(key, plan);
}

}  // namespace zor_core
