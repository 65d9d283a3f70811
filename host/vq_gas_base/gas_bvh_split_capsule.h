// host/vq_gas_base/gas_bvh_split_capsule.h
//
// A long item approximated by a capsule, from its box and its preferred space: a straight cylinder with round ends
// along the main axis. The box of a capsule in any space takes a few operations. Measuring the items themselves nearly
// halved the build rate, and rays through such trees visited as many nodes and leaves. Boxes of the tree are never
// approximated.
#pragma once
#include <algorithm>
#include <cmath>

#include "vq_gas_base/gas_bvh_split_cost.h"

struct GasBvhSplitCapsule {
  SimdF center;  ///< lanes x, y, z, width
  SimdF half;    ///< from the center to the end of the axis, without the round ends; lanes x, y, z, length

  /// The components x, y, z of the axes of a space; a lane is an axis.
  struct Space {
    SimdF columns[3];
    explicit Space(const GMathLinearSpace3<float>& space) {
      for (uint k = 0; k < 3; ++k) columns[k] = {space.axis[0][k], space.axis[1][k], space.axis[2][k], 0.0f};
    }
    /// Coordinates of `v` along the axes.
    SimdF measure(const SimdF& v) const {
      return columns[0] * broadcast<0>(v) + columns[1] * broadcast<1>(v) + columns[2] * broadcast<2>(v);
    }
  };

  GasBvhSplitCapsule() = default;
  /// The box of a capsule has the extent length |axis_i| + width on axis i: three equations for two unknowns, solved by
  /// least squares. An item that bends gives a wider capsule.
  GasBvhSplitCapsule(const GMathBbox3<float>& box, const GMathLinearSpace3<float>& space) {
    const GMathVec3<float> middle = box.get_center(), axis = space.axis[0], extent = box.get_extent();
    const GMathVec3<float> steep(std::fabs(axis.x), std::fabs(axis.y), std::fabs(axis.z));
    const float steep_sum = steep.x + steep.y + steep.z, extent_sum = extent.x + extent.y + extent.z;
    const float along = extent.dot(steep);
    // Along the diagonal of the axes length and width cannot be separated: this term then makes the capsule thin.
    constexpr float prefer_thin = 0.01f;
    const float best = (extent_sum - steep_sum * along) / (3.0f - steep_sum * steep_sum + prefer_thin);
    const float width = std::max(0.0f, std::min(best, std::min(extent.x, std::min(extent.y, extent.z))));
    const float length = std::max(0.0f, along - width * steep_sum);
    center = {middle.x, middle.y, middle.z, width};
    half = {axis.x * length * 0.5f, axis.y * length * 0.5f, axis.z * length * 0.5f, length};
  }

  GasSimdBox get_box(const Space& space) const {
    const SimdF middle = space.measure(center);
    const SimdF reach = abs(space.measure(half)) + broadcast<3>(center) * SimdF(0.5f);
    return {middle - reach, middle + reach};
  }
  /// Half the surface of its box in its own space.
  float get_half_area() const {
    float width, length;
    broadcast<3>(center).store_first(&width);
    broadcast<3>(half).store_first(&length);
    return (2.0f * (length + width) + width) * width;
  }
};
