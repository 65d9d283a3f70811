// host/vq_gas_base/gas_slab_ray.h
//
// A ray in single precision for slab tests against the boxes of a tree, rounded outwards.
#pragma once
#include <algorithm>
#include <cfloat>
#include <cmath>

#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_ray.h"
#include "vq_simd/simd_float.h"

/// Origin and inverse direction (lanes x, y, z, -), twice: moved towards an earlier entry, and towards a later exit.
/// The slack covers all rounding of the slab test, so that a ray never misses a box that it touches (Ize 2013, "Robust
/// BVH Ray Traversal"). Without it, several percent of the rays aimed at an edge or a vertex of a mesh with flat boxes
/// miss both boxes that meet there.
struct GasSlabRay {
  SimdF near_origin, near_inverse, far_origin, far_inverse;
};

/// The end of a ray's interval as a float: at most the largest finite one.
inline float gas_clamp_limit(double limit) {
  const float rounded = static_cast<float>(limit);
  return rounded < FLT_MAX ? rounded : FLT_MAX;
}

/// The largest distance of a box from 0 on each axis.
inline SimdF gas_get_reach(const GMathBbox3<float>& bounds) {
  const auto get_reach = [&](uint axis) { return std::max(std::fabs(bounds.min[axis]), std::fabs(bounds.max[axis])); };
  return SimdF(get_reach(0), get_reach(1), get_reach(2), 0.0f);
}

/// Largest rounding error of a plane that is blended between two motion samples, per axis: two rounded weights, two
/// products and a sum are wrong by at most 2^-22 of the plane with the larger magnitude.
/// @param bounds  holds all boxes of the tree at both samples
inline SimdF gas_get_blend_slack(const GMathBbox3<float>& bounds) { return gas_get_reach(bounds) * SimdF(0x1p-22f); }

/// For boxes as stored: -0, because compilers may drop x + -0, but not x + 0, which turns -0 into +0.
inline SimdF gas_get_no_slack() { return SimdF(-0.0f); }

/// @param bounds       holds all boxes of the tree
/// @param plane_slack  how far each plane of a box may be from where it should be, per axis; gas_get_no_slack() or
///                     gas_get_blend_slack()
[[gnu::always_inline]] inline GasSlabRay gas_load_slab_ray(const GMathBasicRay<double>& ray, double tnear,
                                                           const GMathBbox3<float>& bounds, const SimdF& plane_slack) {
  const SimdF origin = SimdF::load_doubles(&ray.origin.x), inverse = SimdF::load_doubles(&ray.inverse.x);
  // An infinite origin stays infinite.
  const SimdF distance = min(copy_sign(origin, SimdF(0.0f)), SimdF(FLT_MAX));
  // Never 0: a ray that lies in a plane would give 0 * inf = NaN.
  SimdF axis_slack = max(distance * SimdF(0x1p-23f), SimdF(FLT_MIN)) + plane_slack;
  // A smaller inverse makes an entry earlier only at positive distances. At negative ones it makes it later, by at most
  // 2^-22 of the way from the origin to the plane.
  if (tnear < 0.0) axis_slack = axis_slack + (distance + gas_get_reach(bounds)) * SimdF(0x1p-21f);
  // Along the direction: near planes are met earlier, far planes later.
  const SimdF slack = copy_sign(axis_slack, inverse);
  return {origin + slack, inverse * SimdF(1.0f - 0x1p-22f), origin - slack, inverse * SimdF(1.0f + 0x1p-22f)};
}
