// SPDX-License-Identifier: MIT
// The public transforms: names of the field over the six transforms of the kernels.
#include "zor/trig.h"

#include <new>

#include "core/pde/line_transform.h"

// One of the two is in use.
struct zor_trig {
  bool single;
  zor_int kind, m;
  zor_core::line_transform<float> s;
  zor_core::line_transform<double> d;
};

namespace zor_core {
namespace {

template <class T>
line_transform<T>& transform_in(zor_trig& t) {
  if constexpr (std::is_same_v<T, float>)
    return t.s;
  else
    return t.d;
}

// A kind as a kind of lines, direction, intervals beyond the number of values, and the grid's index of the
// first value.
struct trig_kind {
  int32_t lines;
  bool forward;
  zor_int more, first, shortest;
};
constexpr int32_t folded = zor::pde::lines_folded;
constexpr trig_kind kinds[] = {{0, true, 1, 1, 1},           {1, true, -1, 0, 3},
                               {folded + 2, false, 0, 0, 2}, {folded + 2, true, 0, 0, 2},
                               {folded + 3, false, 0, 1, 2}, {folded + 3, true, 0, 1, 2},
                               {folded + 4, true, 0, 0, 2},  {folded + 5, true, 0, 0, 2}};
const trig_kind& kind_of(zor_int kind) { return kinds[kind - ZOR_DST1]; }

template <class T>
zor_int create(zor_trig** trig, zor_int kind, zor_int m) {
  if (trig == nullptr) return -1;
  if (kind < ZOR_DST1 || kind > ZOR_DST4) return -2;
  const trig_kind& k = kind_of(kind);
  if (m < k.shortest) return -3;
  if (m > longest_trig - 1) return ZOR_TRIG_TOO_LONG;
  void* const block = std::malloc(sizeof(zor_trig));
  if (block == nullptr) return ZOR_TRIG_NO_MEMORY;
  auto* const t = new (block) zor_trig{};
  t->single = std::is_same_v<T, float>;
  t->kind = kind;
  t->m = m;
  const zor_int code = make_transform(&transform_in<T>(*t), k.lines, m + k.more);
  if (code != 0) {
    std::free(block);
    return code == pde_too_long ? ZOR_TRIG_TOO_LONG : ZOR_TRIG_NO_MEMORY;
  }
  *trig = t;
  return ZOR_TRIG_OK;
}

template <class T>
zor_int run(const zor_trig* trig, T* x, zor_int lines, zor_int stride, zor_int distance, T scale) {
  if (trig == nullptr || trig->single != std::is_same_v<T, float>) return -1;
  if (lines < 0) return -3;
  if (lines == 0) return ZOR_TRIG_OK;
  if (x == nullptr) return -2;
  if (stride == 0) return -4;
  if (distance == 0 && lines > 1) return -5;
  const trig_kind& k = kind_of(trig->kind);
  const line_transform<T>& t = transform_in<T>(const_cast<zor_trig&>(*trig));
  zor::pde::line_batch<T> b{};
  b.kind = k.lines;
  b.forward = k.forward;
  b.alone = lines == 1;
  b.scale = scale;
  b.tables = t.tables;
  b.f = x - stride * k.first;
  b.step = stride;
  b.distance = distance;
  b.count = lines;
  return run_lines(t.handle, b, INT32_MAX) == 0 ? ZOR_TRIG_OK : ZOR_TRIG_NO_MEMORY;
}

}  // namespace
}  // namespace zor_core

extern "C" {

#define ROW_TRIG_CREATE(name, T) \
  SIG_TRIG_CREATE(name, T) { return zor_core::create<T>(trig, kind, m); }
#define ROW_TRIG_LINES(name, T) \
  SIG_TRIG_LINES(name, T) { return zor_core::run<T>(trig, x, lines, stride, distance, scale); }
#include "zor/tables/core_trig.inc"

zor_int zor_trig_free(zor_trig** trig) {
  if (trig == nullptr || *trig == nullptr) return -1;
  zor_core::free_transform(&(*trig)->s);
  zor_core::free_transform(&(*trig)->d);
  std::free(*trig);
  *trig = nullptr;
  return ZOR_TRIG_OK;
}

const char* zor_trig_text(zor_int status) {
  switch (status) {
    case ZOR_TRIG_OK:
      return "done";
    case ZOR_TRIG_NO_MEMORY:
      return "memory is short";
    case ZOR_TRIG_TOO_LONG:
      return "the line is too long for a transform";
    case -1:
      return "argument 1, the transform: it is null, or has been made for the other precision";
    case -2:
      return "argument 2: an unknown kind of transform, or no data";
    case -3:
      return "argument 3: the line is too short for its kind, or the number of lines is negative";
    case -4:
      return "argument 4: the stride is 0";
    case -5:
      return "argument 5: lines would lie on one another";
    default:
      return "a status that this family does not return";
  }
}

}  // extern "C"
