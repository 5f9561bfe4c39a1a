// SPDX-License-Identifier: MIT
// Set-up and passes that all solvers share.
#include "pde/poisson/solver.h"

#include "dft/engine/roots/trig.h"
#include "serv/control.h"
#include "serv/vec.h"
#include "zor/signatures/poisson.h"
#include "zor/signatures/trig.h"

namespace zor::pde {
namespace {

template <class T>
constexpr bool is_single = std::is_same_v<T, float>;

// Passes over rows take pairs of 16 bytes in groups of eight elements, behind the elements before the first
// boundary of 16 bytes. Short rows, and rows that are not aligned to their elements, are taken one by one.
constexpr zor_int shortest_vector_row = 9, group = 8;

template <class T>
zor_int elements_before_boundary(const T* f, zor_int width) {
  const uintptr_t past = reinterpret_cast<uintptr_t>(f) % peel_bytes;
  if (width < shortest_vector_row || past % sizeof(T) != 0) return width;
  return past == 0 ? 0 : zor_int((peel_bytes - past) / sizeof(T));
}

// The sum so far and a row: elements before the boundary one by one, then two accumulators of 16 bytes, of
// which the first takes the even vectors of a group and the second the odd ones, then the rest one by one.
template <class T>
T add_row(T sum, const T* f, zor_int width) {
  using V = vec<T, 16>;
  constexpr zor_int L = lanes<V>;
  const zor_int peel = elements_before_boundary(f, width);
  zor_int j = 0;
  for (; j < peel; ++j) sum = sum + f[j];
  if (j + group <= width) {
    V even{}, odd{};
    for (; j + group <= width; j += group)
      for (zor_int i = 0; i < group; i += 2 * L) {
        even = even + load<V>(f + j + i);
        odd = odd + load<V>(f + j + i + L);
      }
    sum = sum + sum_lanes(even + odd);
  }
  for (; j < width; ++j) sum = sum + f[j];
  return sum;
}

template <class T, class Each>
void for_elements(T* f, zor_int count, const Each& each) {
  using V = vec<T>;
  zor_int j = 0;
  for (; j + lanes<V> <= count; j += lanes<V>) store<V>(f + j, each(load<V>(f + j)));
  for (; j < count; ++j) f[j] = each(f[j]);
}

}  // namespace

template <class T>
void solver<T>::report(zor_int code, bool c_messages) const {
  if constexpr (is_single<T>)
    (c_messages ? zor_pdepl_s_pl_print_diagnostics_c : zor_pdepl_s_pl_print_diagnostics_f)(&code, ipar, dpar,
                                                                                           "");
  else
    (c_messages ? zor_pdepl_d_pl_print_diagnostics_c : zor_pdepl_d_pl_print_diagnostics_f)(&code, ipar, dpar,
                                                                                           "");
}

template <class T>
bool init_transform(const solver<T>& s, const embedded_transform<T>& t, zor_int code) {
  zor_int status = 0;
  zor_int* const ipar = s.ipar + t.at;
  if constexpr (is_single<T>)
    zor_pdett_s_init_trig_transform(&t.n, &t.type, ipar, t.reals, &status);
  else
    zor_pdett_d_init_trig_transform(&t.n, &t.type, ipar, t.reals, &status);
  if (status != 0) return s.fail(code, status_transform_failed);
  ipar[trig_errors] = s.ipar[at_errors];
  ipar[trig_warnings] = s.ipar[at_warnings];
  ipar[trig_c_messages] = s.ipar[at_c_messages];
  ipar[trig_threads] = s.ipar[at_threads];
  return true;
}

template <class T>
bool commit_transform(const solver<T>& s, const embedded_transform<T>& t, zor_int code) {
  zor_int status = 0;
  if constexpr (is_single<T>)
    zor_pdett_s_commit_trig_transform(t.zeros, t.handle, s.ipar + t.at, t.reals, &status);
  else
    zor_pdett_d_commit_trig_transform(t.zeros, t.handle, s.ipar + t.at, t.reals, &status);
  return status == 0 || s.fail(code, status_transform_failed);
}

zor_int free_transform(ZorDftDescriptor** handle, zor_int* ipar) {
  zor_int status = 0;
  zor_pdett_free_trig_transform(handle, ipar, &status);
  return status;
}

template <class T>
T table_sine(T angle) {
  return T(in_default_modes([angle] { return cosine_and_sine_of(double(angle)).sine; }));
}

template <class T>
void scale_all(T* f, zor_int count, T factor) {
  for_elements(
      f, count, [factor](auto v) __attribute__((always_inline)) { return v * factor; });
}

template <class T>
void subtract_mean(T* f, zor_int width, zor_int rows, T divisor) {
  T sum = 0;
  for (zor_int j = 0; j < rows; ++j) sum = add_row(sum, f + j * width, width);
  const T mean = sum / divisor;
  for_elements(
      f, width * rows, [mean](auto v) __attribute__((always_inline)) { return v - mean; });
}

#define ZOR_INSTANCES(T)                                                                      \
  template void solver<T>::report(zor_int, bool) const;                                       \
  template bool init_transform<T>(const solver<T>&, const embedded_transform<T>&, zor_int);   \
  template bool commit_transform<T>(const solver<T>&, const embedded_transform<T>&, zor_int); \
  template T table_sine<T>(T);                                                                \
  template void scale_all<T>(T*, zor_int, T);                                                 \
  template void subtract_mean<T>(T*, zor_int, zor_int, T);
ZOR_INSTANCES(float)
ZOR_INSTANCES(double)
#undef ZOR_INSTANCES

}  // namespace zor::pde
