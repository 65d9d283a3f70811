// gas/gas_frustum_modes.h
//
// How the structures over one geometry answer the modes of a frustum query.
#pragma once
#include "gas/bvh/bvh_kernel.h"
#include "vq_core/core_array.h"
#include "vq_shading_variable/shading_variables.h"

/// Whether primitives with these links can be hit.
inline bool gas_is_shaded(const ShadingGroupLinks* links) {
  return links != nullptr && links->material != ShadingGroupLinks::material_empty;
}

/// Modes any and all walk the tree; all first adds to the query's total the primitives of groups that can be hit. Modes
/// points and vertices have the primitives mark their points of the geometry's cloud, then give out each marked point
/// once. Other modes do nothing.
///
/// @param group_counts  [shading group] primitives in the tree
/// @param geometry      whose point cloud is collected; may be null
void gas_frustum_hit(const BvhTarget& target, const CoreBasicArray<uint>& group_counts, const GeometryObject* geometry,
                     const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query);
