// host/vq_curve/curve_frustum.h
//
// One piece of a fibre against the planes of a frustum query.
#pragma once
#include "vq_curve/curve_segment.h"

struct GeometryFrustumData;

/// Whether a ball of the segment reaches the inner side of all planes. It may do so at a corner of the frustum where
/// it lies outside of the frustum itself, as boxes may. False for segments with a NaN or infinite value.
template <CurveShape shape>
bool curve_touches_frustum(const CurveSegment<shape>& segment, const GeometryFrustumData& frustum);

/// Whether the whole solid is inside of all planes. False for segments with a NaN or infinite value.
template <CurveShape shape>
bool curve_lies_in_frustum(const CurveSegment<shape>& segment, const GeometryFrustumData& frustum);
