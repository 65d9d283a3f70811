// gas/structure/gas_frustum_modes.h
//
// The modes of a frustum query, for structures over one geometry: what is done before and after the traversal.
#pragma once
#include "vq_core/core_array.h"

class GeometryFrustumCtx;
class GeometryObject;

/// Prepares a query. Mode all: adds the primitives of visible groups to its total. Modes points and vertices: clears
/// the mask in which primitives mark the points of the geometry's point cloud.
/// @param group_counts  [shading group] primitives in the tree
/// @param geometry      owner of the point cloud; may be null
/// @return false if there is nothing to traverse for: no points, or an unknown mode
bool gas_begin_frustum(const CoreBasicArray<uint>& group_counts, const GeometryObject* geometry,
                       GeometryFrustumCtx& query);
/// After the traversal: modes points and vertices report each marked point once.
void gas_end_frustum(const GeometryObject* geometry, GeometryFrustumCtx& query);
