// host/vq_geometry/geometry_hit_surface.h
//
// Where a recorded hit lies in the caller's space: what the geometry knows of the point, carried up by the record's
// transform.
#pragma once
#include "vq_geometry/geometry_intersection.h"
#include "vq_geometry/geometry_object.h"

/// Position, normals and texture coordinates of a hit in the space of the query's caller. Normals keep to the side of
/// the surface that the geometry gives them, also through a mirroring transform: the face, as wound after mirroring,
/// then has the other.
/// @param hit        of a geometry, not an empty record
/// @param transform  the record's own, from the packet or the list of hits; null: the geometry's space is the caller's.
///                   Normals mean nothing when it cannot be inverted
/// @param time       of the ray; NaN or ignored by what does not move
GeometrySurfacePoint geometry_get_hit_surface(const GeometryIntersection& hit, const GeometryHitTransform* transform,
                                              const double& time);

/// Where the point that was hit has moved by the end of the ray's motion span, in the caller's space: with the position
/// of the hit itself, the two ends of its motion vector. A transform without vectors counts as standing still.
/// @param end_time  of the span: the time of the sample GeometryRaySpan::second
GMathVec3<double> geometry_get_end_position(const GeometryIntersection& hit, const GeometryHitTransform* transform,
                                            const double& end_time);
