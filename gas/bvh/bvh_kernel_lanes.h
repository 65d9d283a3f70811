// gas/bvh/bvh_kernel_lanes.h
//
// Box tests of one ray against four children: the ray in single precision, the planes as stored, and the two tests.
//
//   bvh_load_ray            the ray, rounded outwards
//   bvh_pick_planes         near and far planes of four children as stored,
//   bvh_decode_planes       or from 8 bits;
//   bvh_blend_lanes         those of two motion samples blended in time
//   bvh_test_lanes          four slab tests at once
//   bvh_load_oriented_ray   origin and direction, from the ray's point nearest to the world's origin
//   bvh_test_oriented       four slab tests, each in the frame of its lane
//
// Included by bvh_kernel_impl.h only.
#pragma once
#include <algorithm>
#include <cfloat>
#include <cmath>

#include "gas/bvh/bvh_quantize.h"
#include "vq_gas_base/gas_slab_ray.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_simd/simd_float.h"

enum class BvhTime { still, moving };

/// One ray for the node test: GasSlabRay, each component in all lanes.
struct BvhRay {
  SimdF near_origin[3], near_inverse[3];
  SimdF far_origin[3], far_inverse[3];
  SimdF t_near, t_far;
  uint near_plane[3], far_plane[3];  ///< index of the plane that the ray crosses first and last, per axis
  uint sample[2];                    ///< moving: the two motion samples around the ray's time
  SimdF sample_weight[2];            ///< moving: their blend weights
};

/// Planes of four boxes, sorted by the sign of the ray's direction.
struct BvhLanes {
  SimdF near[3], far[3];
};

/// x, y and z, each in all lanes.
inline void bvh_spread(const SimdF& v, SimdF (&axes)[3]) {
  axes[0] = broadcast<0>(v);
  axes[1] = broadcast<1>(v);
  axes[2] = broadcast<2>(v);
}

// Inlined: as a call it makes short rays 8 % slower.
/// @param bounds  holds the whole tree; moving: at both samples around the ray's time
template <BvhTime time>
[[gnu::always_inline]] inline BvhRay bvh_load_ray(const GeometryRaytraceCtx& query, uint ray, float limit,
                                                  const GMathBbox3<float>& bounds) {
  const GMathBasicRay<double>& record = query.get_ray(ray);
  BvhRay out;
  const double tnear = query.get_tnear(ray);
  const SimdF plane_slack = time == BvhTime::moving ? gas_get_blend_slack(bounds) : gas_get_no_slack();
  const GasSlabRay slabs = gas_load_slab_ray(record, tnear, bounds, plane_slack);
  bvh_spread(slabs.near_origin, out.near_origin);
  bvh_spread(slabs.far_origin, out.far_origin);
  bvh_spread(slabs.near_inverse, out.near_inverse);
  bvh_spread(slabs.far_inverse, out.far_inverse);
  for (uint axis = 0; axis < 3; ++axis) {
    out.near_plane[axis] = 2 * axis + record.negative[axis];
    out.far_plane[axis] = 2 * axis + 1 - record.negative[axis];
  }
  out.t_near = SimdF(static_cast<float>(tnear));
  out.t_far = SimdF(limit);
  if constexpr (time == BvhTime::moving) {
    const GeometryRaySpan& span = query.spans[ray];
    const float fraction = static_cast<float>(span.fraction);
    out.sample[0] = span.first;
    out.sample[1] = span.second;
    out.sample_weight[0] = SimdF(1.0f - fraction);
    out.sample_weight[1] = SimdF(fraction);
  }
  return out;
}

/// Planes as floats, from a node or from a block of motion samples.
inline BvhLanes bvh_pick_planes(const float (&planes)[6][4], const BvhRay& ray) {
  BvhLanes lanes;
  for (uint axis = 0; axis < 3; ++axis) {
    lanes.near[axis] = SimdF::load(planes[ray.near_plane[axis]]);
    lanes.far[axis] = SimdF::load(planes[ray.far_plane[axis]]);
  }
  return lanes;
}

/// Planes in 8 bits, decoded against the frame that the parent's lane box is. Also writes them as floats to `decoded`:
/// the boxes of its lanes are the frames of quantized children.
inline BvhLanes bvh_decode_planes(const u8 (&planes)[6][4], const GMathBbox3<float>& frame, const BvhRay& ray,
                                  BvhLanePlanes& decoded) {
  BvhLanes lanes;
  for (uint axis = 0; axis < 3; ++axis) {
    const SimdF first(frame.min[axis]);
    const SimdF step((frame.max[axis] - frame.min[axis]) * bvh_quantum);
    lanes.near[axis] = first + SimdF::load_bytes(planes[ray.near_plane[axis]]) * step;
    lanes.far[axis] = first + SimdF::load_bytes(planes[ray.far_plane[axis]]) * step;
    lanes.near[axis].store_unaligned(decoded.planes[ray.near_plane[axis]]);
    lanes.far[axis].store_unaligned(decoded.planes[ray.far_plane[axis]]);
  }
  return lanes;
}

inline SimdF bvh_blend(const SimdF& a, const SimdF& b, const BvhRay& ray) {
  return ray.sample_weight[0] * a + ray.sample_weight[1] * b;
}

inline BvhLanes bvh_blend_lanes(const BvhLanes& a, const BvhLanes& b, const BvhRay& ray) {
  BvhLanes lanes;
  for (uint axis = 0; axis < 3; ++axis) {
    lanes.near[axis] = bvh_blend(a.near[axis], b.near[axis], ray);
    lanes.far[axis] = bvh_blend(a.far[axis], b.far[axis], ray);
  }
  return lanes;
}

/// Slab test (Kay, Kajiya 1986) of one ray against four boxes. Writes the entry distance of each lane, in units of the
/// ray's direction, and returns a bit per hit lane.
inline uint bvh_test_lanes(const BvhLanes& box, const BvhRay& ray, SimdF& entry) {
  SimdF near[3], far[3];
  for (uint axis = 0; axis < 3; ++axis) {
    near[axis] = (box.near[axis] - ray.near_origin[axis]) * ray.near_inverse[axis];
    far[axis] = (box.far[axis] - ray.far_origin[axis]) * ray.far_inverse[axis];
  }
  // A ray lying in a slab plane may give 0 * inf = NaN. SimdF's min and max return their second operand on NaN, so the
  // ray's interval stands second and the lane is hit if the other slabs are. In pairs: two operations wait for each
  // other instead of three.
  entry = max(max(near[1], near[2]), max(near[0], ray.t_near));
  const SimdF exit = min(min(far[1], far[2]), min(far[0], ray.t_far));
  return (entry <= exit).get_bits();
}

/// The ray for oriented lanes. The direction is not inverted, because each lane has its own axes. The start is the
/// ray's point nearest to the world's origin: then no term of the test exceeds the distance of the box from the origin,
/// and the slack of the lanes (bvh_oriented.h) covers the rounding however far away the ray's own origin is.
struct BvhOrientedRay {
  SimdF origin[3], direction[3];
  SimdF t_near, t_far;  ///< distances from the new start
  SimdF start;          ///< ray distance of the new start, rounded down
  double exact_start;   ///< not rounded

  /// @param distance  from the original origin
  void set_limit(double distance) {
    const double limit = distance - exact_start;
    t_far = SimdF(gas_clamp_limit(limit + std::fabs(limit) * 0x1p-23));
  }
};

inline BvhOrientedRay bvh_load_oriented_ray(const GMathBasicRay<double>& ray, double tnear, double limit) {
  const auto round_down = [](double t) { return SimdF(static_cast<float>(t - std::fabs(t) * 0x1p-23)); };
  BvhOrientedRay out;
  // Double precision: the items are tested against the original ray in double precision, too.
  out.exact_start = -ray.origin.dot(ray.direction) / ray.direction.dot(ray.direction);
  const GMathVec3<double> origin = ray.origin + ray.direction * out.exact_start;
  for (uint axis = 0; axis < 3; ++axis) {
    out.origin[axis] = SimdF(static_cast<float>(origin[axis]));
    out.direction[axis] = SimdF(static_cast<float>(ray.direction[axis]));
  }
  out.start = round_down(out.exact_start);
  out.t_near = round_down(tnear - out.exact_start);
  out.set_limit(limit);
  return out;
}

/// The distances at which a ray crosses two parallel planes, for one axis of four lane frames.
struct BvhOrientedSlab {
  SimdF near, far;
  SimdF speed;  ///< magnitude of the ray's direction along the row
};

/// The planes are at `low` and `high` in the lane's frame; 0 and 1 for the unit cube.
/// @param row  coefficients of x, y, z, then the offset
inline BvhOrientedSlab bvh_cross_slab(const float (*row)[4], const SimdF& low, const SimdF& high,
                                      const BvhOrientedRay& ray) {
  const SimdF x = SimdF::load(row[0]), y = SimdF::load(row[1]), z = SimdF::load(row[2]);
  const SimdF d = x * ray.direction[0] + y * ray.direction[1] + z * ray.direction[2];
  const SimdF o = x * ray.origin[0] + y * ray.origin[1] + z * ray.origin[2] + SimdF::load(row[3]);
  const SimdF inverse = SimdF(-1.0f) / d;
  const SimdF t_low = (o - low) * inverse;
  const SimdF t_high = (o - high) * inverse;
  return {min(t_low, t_high), max(t_low, t_high), abs(d)};
}

/// The box of a lane in the lane's frame: the unit cube when static, blended between two motion samples when moving.
struct BvhUnitCubes {
  SimdF get_low(uint /*row*/) const { return SimdF(0.0f); }
  SimdF get_high(uint /*row*/) const { return SimdF(1.0f); }
};
struct BvhMovedCubes {
  const BvhLanePlanes &a, &b;
  const BvhRay& ray;
  SimdF get_low(uint row) const { return blend(2 * row); }
  SimdF get_high(uint row) const { return blend(2 * row + 1); }

 private:
  SimdF blend(uint plane) const { return bvh_blend(SimdF::load(a.planes[plane]), SimdF::load(b.planes[plane]), ray); }
};

/// Slab test of one ray against four oriented boxes (Woop et al. 2014). The frames are affine, so distances are those
/// of the world and compare with the aligned lanes'. An unused lane, all of whose rows are 0, is never hit.
template <class Cubes>
inline uint bvh_test_oriented(const BvhNodeOriented& node, const Cubes& cubes, const BvhOrientedRay& ray,
                              SimdF& entry) {
  SimdF first = ray.t_near, exit = ray.t_far, speed(0.0f);
  for (uint row = 0; row < 3; ++row) {
    const BvhOrientedSlab slab = bvh_cross_slab(node.rows + 4 * row, cubes.get_low(row), cubes.get_high(row), ray);
    first = max(slab.near, first);
    exit = min(slab.far, exit);
    speed = speed + slab.speed;
  }
  entry = first + ray.start;
  return ((first <= exit) & (speed > SimdF(0.0f))).get_bits();
}
