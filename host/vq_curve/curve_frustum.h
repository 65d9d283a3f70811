// host/vq_curve/curve_frustum.h
//
// Frustum test of one curve segment.
#pragma once
#include "vq_core/core_export.h"
#include "vq_curve/curve_segment.h"

struct GeometryFrustumData;

/// True if a ball of the segment reaches the inner side of all planes. Near a corner such a ball may still be outside
/// of the frustum. False for segments with a NaN or infinite value.
template <CurveShape shape>
VQ_EXPORT bool curve_touches_frustum(const CurveSegment<shape>& segment, const GeometryFrustumData& frustum);

/// True if the whole solid is inside of all planes. False for segments with a NaN or infinite value.
template <CurveShape shape>
VQ_EXPORT bool curve_lies_in_frustum(const CurveSegment<shape>& segment, const GeometryFrustumData& frustum);
