// gas/structure/gas_world_bbox.h
//
// World boxes and matrices of objects and instances, static and between two motion samples.
#pragma once
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_matrix.h"

/// How far the box of an object exceeds the linear blend of its boxes at two samples, along the world axes.
struct GasBboxSurplus {
  GMathVec3<double> low, high;  ///< below the lower bounds, above the upper bounds; not negative
  void raise(const GasBboxSurplus& other);
  void add(const GasBboxSurplus& other) {
    low = low + other.low;
    high = high + other.high;
  }
};

/// The world box around a box in an object's space: the extremes of its eight corners plus the surplus, computed in
/// double precision, rounded to single. Bounds are clamped to a quarter of the float range: an infinite bound times a
/// blend weight of 0 would be NaN, and so would the boxes of all items in the same node. If no corner is valid, for
/// example with a matrix of NaN, the box is a point: the tree can hold it, and no ray finds the object there.
GMathBbox3<float> gas_get_world_bbox(const GMathBbox3<float>& local, const GMathMatrix4x4<double>& matrix,
                                     const GasBboxSurplus& surplus = {});

/// The surplus of the world boxes at both ends of a span. With it their linear blend holds the object's box at all
/// times between, if the local box changes linearly while the matrix does too. 0 if only one of the two changes.
GasBboxSurplus gas_get_motion_surplus(const GMathBbox3<float>& box0, const GMathMatrix4x4<double>& matrix0,
                                      const GMathBbox3<float>& box1, const GMathMatrix4x4<double>& matrix1);

/// True if the matrix is finite and invertible.
bool gas_is_invertible(const GMathMatrix4x4<double>& matrix);

/// (1 - fraction) a + fraction b in double precision, rounded to single. Exactly a or b at their own ends. A function
/// of its own: where the caller converts the result back to double, g++ 12 drops the rounding of the last two bounds.
GMathBbox3<float> gas_blend_bboxes(const GMathBbox3<float>& a, const GMathBbox3<float>& b, double fraction);

/// (1 - fraction) a + fraction b, entry by entry. Exactly a for fraction 0 and b for 1, also if the other is not
/// finite.
inline GMathMatrix4x4<double> gas_blend_matrices(const GMathMatrix4x4<double>& a, const GMathMatrix4x4<double>& b,
                                                 double fraction) {
  if (fraction == 0.0 || fraction == 1.0) return fraction == 0.0 ? a : b;
  GMathMatrix4x4<double> out;
  for (uint row = 0; row < 4; ++row) {
    for (uint column = 0; column < 4; ++column)
      out.m[row][column] = (1.0 - fraction) * a.m[row][column] + fraction * b.m[row][column];
  }
  return out;
}
