// bench/bench_groom_rays.h
//
// Rays that begin on fibres, and a judgement on who is right where two libraries disagree about one.
#pragma once
#include "bench/bench_groom.h"
#include "bench/bench_rays.h"

/// How near a ray's line comes to a segment.
struct BenchApproach {
  double u = 0.0;
  double ratio = 0.0;  ///< least distance to the axis over the radius there: a ball is hit below 1
};
BenchApproach bench_approach(const BenchGroom& groom, uint segment, const BenchRay& ray, double time);

/// As bench_make_bounce_rays(): from a tenth of the fibre's radius above its surface, and hits nearer than as much
/// again do not count.
BenchRaySet bench_make_hair_bounce_rays(const BenchGroom& groom, const BenchRaySet& rays,
                                        const std::vector<BenchHit>& hits, u64 seed);
/// From the side of the fibre at each hit of `rays`, one and a half radii off its axis, to a light above the groom; any
/// hit.
BenchRaySet bench_make_light_rays(const BenchGroom& groom, const BenchRaySet& rays, const std::vector<BenchHit>& hits);

/// What a disagreement about a ray's nearest hit comes down to: a look at the nearer of the two hits (or the only one).
enum class BenchVerdict {
  silhouette,       ///< the line touches that fibre so lightly that rounding decides: ratio within 1 -+ `band`
  end,              ///< about the end of a strand, where one library has round ends and the other has not
  missed_by_first,  ///< the second library found a fibre that the line goes through
  missed_by_other,  ///< the first library did
  false_hit         ///< either found a fibre that the line passes by
};
constexpr double bench_silhouette_band = 0.03;
BenchVerdict bench_judge(const BenchGroom& groom, const BenchRay& ray, double time, const BenchHit& first,
                         const BenchHit& other);
