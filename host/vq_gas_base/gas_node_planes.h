// host/vq_gas_base/gas_node_planes.h
//
// Planes against the boxes of a node in single precision: one plane, both children and both ends of their boxes at
// once. Lanes of a measurement, as in a row of GasBinaryPlanes:
//
//   0, 1   lowest value of normal . p + offset in child 0, in child 1
//   2, 3   highest value
//
// Both are moved apart by the largest rounding error that any box of the tree can cause. So a box whose lowest value is
// not below 0 is inside of the plane, and one whose highest value is below 0 is outside.
#pragma once
#include <bit>

#include "vq_gas_base/gas_binary_tree.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_simd/simd_float.h"

/// The boxes of a node, each row as it is and with minima and maxima exchanged.
struct GasNodeRows {
  SimdF rows[3][2];

  explicit GasNodeRows(const GasBinaryPlanes& boxes) {
    for (uint axis = 0; axis < 3; ++axis) {
      rows[axis][0] = SimdF::load(boxes.planes[axis]);
      rows[axis][1] = swap_pairs(rows[axis][0]);
    }
  }
  /// A single box, as both children.
  explicit GasNodeRows(const GMathBbox3<float>& box) {
    for (uint axis = 0; axis < 3; ++axis) {
      rows[axis][0] = SimdF(box.min[axis], box.min[axis], box.max[axis], box.max[axis]);
      rows[axis][1] = swap_pairs(rows[axis][0]);
    }
  }
};

/// Four points, one a lane.
struct GasPointLanes {
  SimdF at[3];

  /// @param points  [4]
  explicit GasPointLanes(const GMathVec3<float>* points) { SimdF::load_triples(&points->x, at[0], at[1], at[2]); }
};

class GasNodePlane {
 public:
  /// Measures 0 everywhere.
  GasNodePlane() = default;
  /// @param bounds  holds all boxes that will be measured
  GasNodePlane(const GMathVec3<double>& normal, double offset, const GMathBbox3<float>& bounds);

  SimdF measure(const GasNodeRows& node) const {
    SimdF sum = offset_;
    for (uint axis = 0; axis < 3; ++axis) sum = sum + normals_[axis] * node.rows[axis][is_negative_[axis]];
    return sum;
  }
  /// Of four points: below 0 is outside.
  SimdF measure_highest(const GasPointLanes& points) const { return get_product(points) + SimdF(high_offset_); }
  /// Of four points: not below 0 is inside.
  SimdF measure_lowest(const GasPointLanes& points) const { return get_product(points) + SimdF(low_offset_); }

 private:
  SimdF get_product(const GasPointLanes& points) const {
    return normals_[0] * points.at[0] + normals_[1] * points.at[1] + normals_[2] * points.at[2];
  }

  SimdF normals_[3] = {SimdF(0.0f), SimdF(0.0f), SimdF(0.0f)};  ///< each component in all lanes
  SimdF offset_ = SimdF(0.0f);                                  ///< low twice, then high twice
  float low_offset_ = 0.0f, high_offset_ = 0.0f;
  uint is_negative_[3] = {};  ///< 1: the lowest value is at the maximum of the box
};

/// Where the children of a node are. `straddled` has a bit for each plane that a child is on both sides of.
struct GasChildPlaces {
  u32 straddled[2] = {0, 0};
  uint outside = 0;  ///< bit k: child k is behind a plane

  GeometryBoxPlace get(uint lane) const {
    if ((outside >> lane & 1) != 0) return GeometryBoxPlace::outside;
    return straddled[lane] != 0 ? GeometryBoxPlace::straddling : GeometryBoxPlace::inside;
  }
};

/// The planes of a frustum. A walk tests only those planes that a node's parent straddles. Places are as those of
/// GeometryFrustumCtx::classify(), but straddling where single precision cannot tell.
class GasFrustumPlanes {
 public:
  static constexpr u32 all_planes = 0xFFFFFFFFu;

  /// @param bounds  holds all boxes of the tree
  GasFrustumPlanes(const GeometryFrustumData& frustum, const GMathBbox3<float>& bounds);

  /// @param among  the planes to be tested, one bit each
  GasChildPlaces classify(const GasNodeRows& node, u32 among) const {
    GasChildPlaces places;
    for (u32 left = among & mask_; left != 0; left &= left - 1) {
      const uint plane = static_cast<uint>(std::countr_zero(left));
      const SimdF value = planes_[plane].measure(node);
      // Written so that NaN gives straddling.
      const uint inside = (SimdF(0.0f) <= value).get_bits(), outside = (SimdF(0.0f) > value).get_bits();
      places.outside |= outside >> 2;
      places.straddled[0] |= (~inside & 1u) << plane;
      places.straddled[1] |= (~inside >> 1 & 1u) << plane;
    }
    return places;
  }
  GeometryBoxPlace classify(const GMathBbox3<float>& box, u32 among) const {
    return classify(GasNodeRows(box), among).get(0);
  }
  /// Sets bit k of `outside` for a point behind a plane, and of `unsure` for one that single precision cannot tell.
  void classify(const GasPointLanes& points, u32 among, uint& outside, uint& unsure) const {
    outside = 0;
    uint inside = 15;
    for (u32 left = among & mask_; left != 0; left &= left - 1) {
      const GasNodePlane& plane = planes_[std::countr_zero(left)];
      outside |= (SimdF(0.0f) > plane.measure_highest(points)).get_bits();
      inside &= (SimdF(0.0f) <= plane.measure_lowest(points)).get_bits();
    }
    unsure = ~(inside | outside) & 15u;
  }

 private:
  void add(const GeometryPlane& plane, const GMathBbox3<float>& bounds);

  GasNodePlane planes_[GeometryFrustumData::plane_capacity + 2];
  u32 mask_ = 0;  ///< one bit per plane
};
