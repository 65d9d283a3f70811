// gas/structure/gas_world_bbox.h
//
// Boxes and matrices of what stands in a scene or a bundle, at rest and between two motion samples.
#pragma once
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_matrix.h"

/// How far something leaves the straight blend of its boxes at two samples, along the world's axes.
struct GasBboxSurplus {
  GMathVec3<double> low, high;  ///< below the lower bounds, above the upper ones; not negative
  void raise(const GasBboxSurplus& other);
};

/// The world box around a box in an object's space: the extremes of its eight corners, in double precision, with the
/// surplus added, stored in single. Bounds beyond a quarter of the float range are brought there: an infinite one,
/// blended between two samples with a share of 0, would be NaN, and with it the boxes of all that lies in one node with
/// the object. A box without any place, as of an object with a matrix of NaN, shrinks to a point: a tree can hold it,
/// and no ray finds anything there.
GMathBbox3<float> gas_get_world_bbox(const GMathBbox3<float>& local, const GMathMatrix4x4<double>& matrix,
                                     const GasBboxSurplus& surplus = {});

/// By how much the world boxes at both ends of a span must grow, so that their straight blend holds a box that changes
/// in straight lines within an object that turns or grows at the same time. 0 where only one of the two happens.
GasBboxSurplus gas_get_motion_surplus(const GMathBbox3<float>& box0, const GMathMatrix4x4<double>& matrix0,
                                      const GMathBbox3<float>& box1, const GMathMatrix4x4<double>& matrix1);

/// (1 - fraction) a + fraction b, entry by entry. Exactly a or b at their own ends, also where the other one is not
/// finite.
GMathMatrix4x4<double> gas_blend_matrices(const GMathMatrix4x4<double>& a, const GMathMatrix4x4<double>& b,
                                          double fraction);
