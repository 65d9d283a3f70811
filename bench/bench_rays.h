// bench/bench_rays.h
//
// Ray sets that every program of this folder measures with. Single precision, so that each library is asked exactly the
// same question; the order of the rays is the order of the pixels they come from.
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

/// The answer to one ray.
struct BenchHit {
  static constexpr float miss = -1.0f;
  float distance = miss;
  u32 primitive = 0;  ///< not told by queries for any hit

  bool is_hit() const { return distance >= 0.0f; }
};

struct BenchRaySet {
  std::string name;
  bool any_hit = false;  ///< asks only whether something is hit
  std::vector<BenchRay> rays;
  std::vector<float> times;  ///< one a ray, in [0, 1]; empty: nothing moves
};

/// `size` x `size` rays of a camera that looks at the whole box in a three-quarter view, row by row.
BenchRaySet bench_make_primary_rays(const GMathBbox3<double>& box, uint size);
/// From random points of the bounding sphere to random points of the bounding box.
BenchRaySet bench_make_random_rays(const GMathBbox3<double>& box, uint count, u64 seed);
/// One ray from each hit of `rays`, at its time, cosine-distributed about the normal on the side that the ray came
/// from.
/// @param get_normal  of the surface that the ray of this number hits; unit length, either side
/// @param offset      how far off the surface the rays begin
BenchRaySet bench_make_bounce_rays(const BenchRaySet& rays, const std::vector<BenchHit>& hits,
                                   const std::function<GMathVec3<double>(std::size_t)>& get_normal, double offset,
                                   u64 seed);
/// The same rays, ended at a random distance of up to `longest`, any hit.
BenchRaySet bench_make_shadow_rays(const BenchRaySet& bounce, double longest, u64 seed);
/// Gives each ray of the set a random time.
void bench_add_times(BenchRaySet& set, u64 seed);
/// From `origin` to where `direction` points; `direction` need not be of unit length.
BenchRay bench_make_ray(const GMathVec3<double>& origin, const GMathVec3<double>& direction);
