// SPDX-License-Identifier: MIT
// The steps of a solve, which libzor_core runs on its threads.
#pragma once

#include "serv/imports.h"
#include "zor/signatures/poisson.h"

namespace zor::core {

#define ROW_STEP_FT(name, T, ...) inline constinit import_slot<step_ft_fn<T>> name{#name};
#define ROW_STEP_FT_3D(name, T, ...) inline constinit import_slot<step_ft_3d_fn<T>> name{#name};
#define ROW_STEP_LU_2D(name, T, ...) inline constinit import_slot<step_lu_2d_fn<T>> name{#name};
#define ROW_STEP_LU_2D_NN(name, T) inline constinit import_slot<step_lu_2d_nn_fn<T>> name{#name};
#define ROW_STEP_LU_3D(name, T, ...) inline constinit import_slot<step_lu_3d_fn<T>> name{#name};
#define ROW_STEP_LU_3D_NN(name, T) inline constinit import_slot<step_lu_3d_nn_fn<T>> name{#name};
#define ROW_STEP_SL(name, T, ...) inline constinit import_slot<step_ft_fn<T>> name{#name};
#define ROW_STEP_PP(name, T, ...) inline constinit import_slot<step_pp_fn<T>> name{#name};
#define ROW_STEP_SPHERE_LU(name, T, ...) inline constinit import_slot<step_sphere_lu_fn<T>> name{#name};
#include "zor/tables/core_pdepl.inc"

}  // namespace zor::core
