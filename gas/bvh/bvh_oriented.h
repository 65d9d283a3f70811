// gas/bvh/bvh_oriented.h
//
// Lanes of oriented nodes. A lane maps world points into the space in which the child's box is the unit cube:
//
//   u = row . x + offset          box in `space`: min .. max along three axes of unit length, extents e = max - min
//   rows = inverse of the matrix whose columns are axis_i e_i          offset = - row . (sum of axis_i min_i)
//
// Builder and refit share the inverse. It is computed in double precision, in which the cofactors of very flat boxes do
// not underflow, and rounded once. Both enlarge the boxes by the largest rounding error (slack), so that the tests need
// no tolerance.
#pragma once
#include <algorithm>
#include <cmath>

#include "gas/bvh/bvh_layout.h"
#include "vq_gmath/gmath_linear_space.h"

/// Inverse of the 3x3 matrix with the columns `from`: `to` receives its rows. (Given rows, it receives columns.) By
/// cofactors divided by the determinant, which must not be 0.
inline void bvh_invert(const GMathVec3<double> (&from)[3], GMathVec3<double> (&to)[3]) {
  const GMathVec3<double> cofactors = from[1].cross(from[2]);
  const double scale = 1.0 / from[0].dot(cofactors);
  to[0] = cofactors * scale;
  to[1] = from[2].cross(from[0]) * scale;
  to[2] = from[0].cross(from[1]) * scale;
}

inline GMathVec3<double> bvh_get_row(const BvhNodeOriented& node, uint lane, uint row) {
  return {node.rows[4 * row][lane], node.rows[4 * row + 1][lane], node.rows[4 * row + 2][lane]};
}

/// Slack of a lane's box, relative to the distance of its items from the world's origin. The ray test starts at the
/// ray's point nearest to the origin, so that no term exceeds that distance. It rounds at most about 20 times by 2^-24
/// of it, for a moving ray about 30 times, the rounding of the frame included.
inline constexpr double bvh_oriented_slack = 0x1p-19;

/// Items farther from the origin than this are not put into oriented lanes: rotated, or multiplied in the ray test,
/// their coordinates could exceed the range of floats.
inline constexpr double bvh_most_oriented_reach = 5e36;

/// The distance from the origin to the farthest corner of a box.
inline double bvh_get_reach(const GMathBbox3<float>& box) {
  GMathVec3<double> corner;
  for (uint axis = 0; axis < 3; ++axis) corner[axis] = std::max(std::fabs(box.min[axis]), std::fabs(box.max[axis]));
  return corner.get_length();
}

/// Writes the frame of `box`, whose coordinates are along `space`, into lane `lane`. `reach` is the largest distance of
/// an item from the origin. No extent may be 0.
inline void bvh_set_oriented_lane(BvhNodeOriented& node, uint lane, const GMathLinearSpace3<float>& space,
                                  const GMathBbox3<float>& box, double reach) {
  const double slack = bvh_oriented_slack * reach;
  GMathVec3<double> columns[3], rows[3], origin;
  for (uint axis = 0; axis < 3; ++axis) {
    const GMathVec3<double> direction(space.axis[axis]);
    const double low = box.min[axis] - slack, high = box.max[axis] + slack;
    columns[axis] = direction * (high - low);
    origin += direction * low;
  }
  bvh_invert(columns, rows);
  for (uint row = 0; row < 3; ++row) {
    for (uint axis = 0; axis < 3; ++axis) node.rows[4 * row + axis][lane] = static_cast<float>(rows[row][axis]);
    node.rows[4 * row + 3][lane] = static_cast<float>(-rows[row].dot(origin));
  }
}

/// An unused lane maps everything to one point: all twelve values 0.
inline void bvh_clear_oriented_lane(BvhNodeOriented& node, uint lane) {
  for (uint k = 0; k < 12; ++k) node.rows[k][lane] = 0.0f;
}

/// The edges of the lane's box, as vectors: its axes, each as long as the box is wide.
inline void bvh_get_lane_edges(const BvhNodeOriented& node, uint lane, GMathVec3<double> (&edges)[3]) {
  const GMathVec3<double> rows[3] = {bvh_get_row(node, lane, 0), bvh_get_row(node, lane, 1),
                                     bvh_get_row(node, lane, 2)};
  bvh_invert(rows, edges);
}
