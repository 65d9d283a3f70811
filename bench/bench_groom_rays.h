// bench/bench_groom_rays.h
//
// Rays that begin on hair, and a verdict on each hit about which two libraries disagree.
#pragma once
#include "bench/bench_groom.h"
#include "bench/bench_rays.h"

/// The distance between a ray's line and a segment.
struct BenchApproach {
  double u = 0.0;
  double ratio = 0.0;  ///< least of distance to the axis / radius there; below 1 the line hits the segment
};
BenchApproach bench_approach(const BenchGroom& groom, uint segment, const BenchRay& ray, double time);

/// As bench_make_bounce_rays(), from a tenth of the root radius off the surface; tnear is as much again.
BenchRaySet bench_make_hair_bounce_rays(const BenchGroom& groom, const BenchRaySet& rays,
                                        const std::vector<BenchHit>& hits, u64 seed);
/// Any-hit rays to a light above the groom. They begin at each hit of `rays`, on the side of the segment towards the
/// light, 1.5 radii off its axis.
BenchRaySet bench_make_light_rays(const BenchGroom& groom, const BenchRaySet& rays, const std::vector<BenchHit>& hits);

/// The cause of a disagreement about a ray's nearest hit, found from the nearer of the two hits (or the only one).
enum class BenchVerdict {
  silhouette,       ///< the line grazes the segment, so rounding decides: ratio within 1 -+ bench_silhouette_band
  end,              ///< near the end of a strand, where one library has round ends and the other open ends
  missed_by_first,  ///< the second library's hit is right, and the first found none so near
  missed_by_other,  ///< the first library's hit is right, and the second found none so near
  false_hit         ///< a library found a segment that the line misses
};
constexpr double bench_silhouette_band = 0.03;
BenchVerdict bench_judge(const BenchGroom& groom, const BenchRay& ray, double time, const BenchHit& first,
                         const BenchHit& other);
