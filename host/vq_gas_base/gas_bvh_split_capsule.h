// host/vq_gas_base/gas_bvh_split_capsule.h
//
// A long item approximated by a capsule, from its box and its preferred space: a straight cylinder with round ends
// along the main axis. The box of a capsule in any space takes a few operations. Measuring the items themselves nearly
// halves the build rate, and rays through such trees visit as many nodes and leaves. Boxes of the tree are never
// approximated.
#pragma once
#include <algorithm>
#include <cmath>

#include "vq_gas_base/gas_bvh_split.h"

struct GasBvhSplitCapsule {
  GMathVec3<float> center, axis;  ///< the axis is of unit length
  float length = 0.0f;            ///< without the round ends
  float width = 0.0f;

  /// The box of a capsule has the extent length |axis_i| + width on axis i: three equations for two unknowns, solved by
  /// least squares. An item that bends gives a wider capsule.
  GasBvhSplitCapsule(const GMathBbox3<float>& box, const GMathLinearSpace3<float>& space)
      : center(box.get_center()), axis(space.axis[0]) {
    const GMathVec3<float> extent = box.get_extent(), steep = get_magnitude(axis);
    const float steep_sum = steep.x + steep.y + steep.z, extent_sum = extent.x + extent.y + extent.z;
    const float along = extent.dot(steep);
    // Along the diagonal of the axes length and width cannot be separated: this term then makes the capsule thin.
    constexpr float prefer_thin = 0.01f;
    const float best = (extent_sum - steep_sum * along) / (3.0f - steep_sum * steep_sum + prefer_thin);
    width = std::max(0.0f, std::min(best, std::min(extent.x, std::min(extent.y, extent.z))));
    length = std::max(0.0f, along - width * steep_sum);
  }

  GMathBbox3<float> get_bbox(const GMathLinearSpace3<float>& space) const {
    const GMathVec3<float> middle = space.measure(center);
    const GMathVec3<float> reach =
        (get_magnitude(space.measure(axis)) * length + GMathVec3<float>(width, width, width)) * 0.5f;
    return {middle - reach, middle + reach};
  }
  /// Half the surface of its box in its own space.
  float get_half_area() const { return (2.0f * (length + width) + width) * width; }

 private:
  static GMathVec3<float> get_magnitude(const GMathVec3<float>& v) {
    return {std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)};
  }
};
