// host/vq_geometry/geometry_hit_surface.h
//
// The surface point of a recorded hit in the caller's space: the geometry's surface point, transformed with the
// record's transform.
#pragma once
#include "vq_core/core_export.h"
#include "vq_geometry/geometry_intersection.h"
#include "vq_geometry/geometry_object.h"

/// Position, normals and texture coordinates of a hit in the space of the query's caller. Normals stay on
/// the side of the surface that the geometry gives them. A mirroring transform reverses the winding, but not this side.
/// @param hit        of a geometry, not an empty record
/// @param transform  the record's own, from the packet or the list of hits; null: the geometry's space is the caller's.
///                   Normals are undefined when it is not invertible
/// @param time       of the ray; ignored by static geometry, which may be given NaN
VQ_EXPORT GeometrySurfacePoint geometry_get_hit_surface(const GeometryIntersection& hit,
                                                        const GeometryHitTransform* transform, const double& time);

/// The position of the hit point at the end of the ray's motion span, in the caller's space. The motion vector goes
/// from the hit's position to this one. A transform without vectors is static.
/// @param end_time  of the span: the time of the sample GeometryRaySpan::second
VQ_EXPORT GMathVec3<double> geometry_get_end_position(const GeometryIntersection& hit,
                                                      const GeometryHitTransform* transform, const double& end_time);
