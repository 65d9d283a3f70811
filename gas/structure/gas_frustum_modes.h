// gas/structure/gas_frustum_modes.h
//
// How the structures over one geometry answer the modes of a frustum query.
#pragma once
#include "gas/bvh/bvh_kernel.h"
#include "vq_core/core_array.h"

class GeometryObject;

/// Modes any and all traverse the tree; all first adds to the query's total the primitives of groups that can be hit.
/// Modes points and vertices have the primitives mark their points of the geometry's cloud, then give out each marked
/// point once. Other modes do nothing.
///
/// @param group_counts  [shading group] primitives in the tree
/// @param geometry      whose point cloud is collected; may be null
void gas_frustum_hit(const BvhTarget& target, const CoreBasicArray<uint>& group_counts, const GeometryObject* geometry,
                     const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query);
