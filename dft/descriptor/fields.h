// SPDX-License-Identifier: MIT
// The descriptor's fields by precision and direction, so that one template serves them all.
#pragma once

#include <type_traits>

#include "dft/descriptor/descriptor.h"
#include "dft/engine/plan/plan.h"

namespace zor::dft {

template <class R>
using complex_of = std::conditional_t<std::is_same_v<R, double>, zor_c64, zor_c32>;

// Pairs are indexed by direction.
template <class R>
struct fields;
template <>
struct fields<double> {
  using D = ZorDftDescriptor;
  static constexpr zor_dft_kernel D::*complex_kernel[2] = {&D::kernel_z_fwd, &D::kernel_z_bwd};
  static constexpr zor_dft_kernel D::*real_kernel[2] = {&D::kernel_d_fwd, &D::kernel_d_bwd};
  static constexpr zor_dft_kernel D::*whole_kernel[2] = {&D::whole_z_fwd, &D::whole_z_bwd};
  static constexpr zor_dft_runner D::*format[2] = {&D::format_d_fwd, &D::format_d_bwd};
  static constexpr zor_dft_real_2d D::*real_2d[2] = {&D::fn2d_dz, &D::fn2d_zd};
  static constexpr double D::*scale[2] = {&D::forward_scale_d, &D::backward_scale_d};
  static constexpr zor_dft_2d D::*complex_2d = &D::fn2d_z;
  static constexpr ZorDftPlan* D::*plan = &D::plan_z;
  static constexpr ZorDftPlan* D::*split_plan = &D::plan_zs;
  static constexpr ZorDftPlan* D::*unordered_plan = &D::plan_z_unordered;
  static constexpr ZorDftPlan* D::*real_plan = &D::plan_d;
};
template <>
struct fields<float> {
  using D = ZorDftDescriptor;
  static constexpr zor_dft_kernel D::*complex_kernel[2] = {&D::kernel_c_fwd, &D::kernel_c_bwd};
  static constexpr zor_dft_kernel D::*real_kernel[2] = {&D::kernel_s_fwd, &D::kernel_s_bwd};
  static constexpr zor_dft_kernel D::*whole_kernel[2] = {&D::whole_c_fwd, &D::whole_c_bwd};
  static constexpr zor_dft_runner D::*format[2] = {&D::format_s_fwd, &D::format_s_bwd};
  static constexpr zor_dft_real_2d D::*real_2d[2] = {&D::fn2d_sc, &D::fn2d_cs};
  static constexpr float D::*scale[2] = {&D::forward_scale_s, &D::backward_scale_s};
  static constexpr zor_dft_2d D::*complex_2d = &D::fn2d_c;
  static constexpr ZorDftPlan* D::*plan = &D::plan_c;
  static constexpr ZorDftPlan* D::*split_plan = &D::plan_cs;
  static constexpr ZorDftPlan* D::*unordered_plan = &D::plan_c_unordered;
  static constexpr ZorDftPlan* D::*real_plan = &D::plan_s;
};

}  // namespace zor::dft
