// gas/structure/gas_frustum_modes.h
//
// The modes of a frustum query, for structures over one geometry.
#pragma once
#include "gas/bvh/bvh_kernel.h"
#include "vq_core/core_array.h"

class GeometryObject;

/// Modes any and all: traverses the tree; mode all first adds the primitives of visible groups to the query's total.
/// Modes points and vertices: the primitives mark their points in the geometry's point cloud, then each marked point
/// is reported once. Any other mode does nothing.
///
/// @param group_counts  [shading group] primitives in the tree
/// @param geometry      owner of the point cloud; may be null
void gas_frustum_hit(const BvhTarget& target, const CoreBasicArray<uint>& group_counts, const GeometryObject* geometry,
                     const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query);
