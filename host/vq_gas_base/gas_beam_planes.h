// host/vq_gas_base/gas_beam_planes.h
//
// The box test of a beam query: the four sides of the beam, and the interval along the beam in which a box lies. Places
// along the beam are distances here, not t: they do not depend on the length of the beam's direction.
#pragma once
#include "vq_gas_base/gas_node_planes.h"
#include "vq_gas_base/gas_slab_ray.h"

struct GeometryRayFrustumBeam;

class GasBeamPlanes {
 public:
  /// @param bounds  holds all boxes of the tree
  GasBeamPlanes(const GeometryRayFrustumBeam& beam, const GMathBbox3<float>& bounds);

  /// The distance at a `t` of the beam.
  float get_distance(double t) const { return gas_clamp_limit(t * distance_per_t_); }

  /// Bit k is clear only when no point of box k is inside the beam between its tnear and the distance `limit`. Boxes
  /// near a corner of the beam may have theirs set. Writes a lower bound of the distance of each box.
  uint find_touched(const GasNodeRows& node, float limit, float (&first)[2]) const {
    const SimdF place = along_.measure(node);
    alignas(16) float ends[4];
    place.store(ends);
    first[0] = ends[0];
    first[1] = ends[1];
    // Written so that NaN touches.
    uint outside = (place > SimdF(limit)).get_bits() & 3u;
    outside |= (SimdF(near_) > place).get_bits() >> 2;
    for (const GasNodePlane& side : sides_) outside |= (SimdF(0.0f) > side.measure(node)).get_bits() >> 2;
    return ~outside & 3u;
  }
  bool touches(const GMathBbox3<float>& box, float limit, float& first) const {
    float both[2];
    const bool is_touched = find_touched(GasNodeRows(box), limit, both) != 0;
    first = both[0];
    return is_touched;
  }
  /// The same for four points.
  uint find_touched(const GasPointLanes& points, float limit) const {
    uint outside = (along_.measure_lowest(points) > SimdF(limit)).get_bits();
    outside |= (SimdF(near_) > along_.measure_highest(points)).get_bits();
    for (const GasNodePlane& side : sides_) outside |= (SimdF(0.0f) > side.measure_highest(points)).get_bits();
    return ~outside & 15u;
  }

 private:
  GasNodePlane sides_[4];  ///< below 0 outside of the beam
  GasNodePlane along_;     ///< the distance along the beam
  double distance_per_t_;
  float near_;
};
