// bench/bench_rays.h
//
// The ray sets of all benchmarks. Single precision, so that every library gets exactly the same rays; in the order of
// the pixels that they come from.
#pragma once
#include <cfloat>
#include <functional>
#include <string>
#include <vector>

#include "vq_core/core_types.h"
#include "vq_gmath/gmath_bbox.h"

struct BenchRay {
  GMathVec3<float> origin, direction;  ///< the direction is of unit length up to rounding
  float tnear = 0.0f;
  float tfar = FLT_MAX;
};

/// The result of one ray.
struct BenchHit {
  static constexpr float miss = -1.0f;
  float distance = miss;
  u32 primitive = 0;  ///< not set by queries for any hit

  bool is_hit() const { return distance >= 0.0f; }
};

struct BenchRaySet {
  std::string name;
  bool any_hit = false;  ///< only whether the ray hits something
  std::vector<BenchRay> rays;
  std::vector<float> times;  ///< one per ray, in [0, 1]; empty: static
};

/// `size` x `size` rays of a camera that looks at the whole box in a three-quarter view, row by row.
BenchRaySet bench_make_primary_rays(const GMathBbox3<double>& box, uint size);
/// From random points of the bounding sphere to random points of the bounding box.
BenchRaySet bench_make_random_rays(const GMathBbox3<double>& box, uint count, u64 seed);
/// One ray from each hit of `rays`, at the same time, cosine-distributed around the normal on the side that the ray
/// came from.
/// @param get_normal  of the surface that ray number `ray` hits; unit length, either side
/// @param offset      distance of the origins from the surface
BenchRaySet bench_make_bounce_rays(const BenchRaySet& rays, const std::vector<BenchHit>& hits,
                                   const std::function<GMathVec3<double>(std::size_t)>& get_normal, double offset,
                                   u64 seed);
/// The same rays for any hit, each with a random length of up to `longest`.
BenchRaySet bench_make_shadow_rays(const BenchRaySet& bounce, double longest, u64 seed);
/// Gives each ray of the set a random time.
void bench_add_times(BenchRaySet& set, u64 seed);
/// From `origin` to where `direction` points; `direction` need not be of unit length.
BenchRay bench_make_ray(const GMathVec3<double>& origin, const GMathVec3<double>& direction);
