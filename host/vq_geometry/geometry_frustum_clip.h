// host/vq_geometry/geometry_frustum_clip.h
//
// Exact frustum test of a triangle: it touches the frustum when a part of it remains after clipping it by every plane
// (Sutherland, Hodgman 1974, "Reentrant polygon clipping").
#pragma once
#include "vq_geometry/geometry_frustum_ctx.h"

/// True if the triangle has a point in front of, or on, all planes. NaN coordinates: false or true.
bool geometry_touches_frustum(const GeometryFrustumData& frustum, const GMathVec3<double>& a,
                              const GMathVec3<double>& b, const GMathVec3<double>& c);
