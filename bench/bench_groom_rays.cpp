#include "bench/bench_groom_rays.h"

#include <algorithm>
#include <cmath>

namespace {

using Vec = GMathVec3<double>;

/// Where in [0, 1] a function of the segment is least: of many samples the best, then golden sections about it.
template <class Function>
double find_least(const Function& function) {
  constexpr uint steps = 64;
  uint best = 0;
  double least = function(0.0);
  for (uint k = 1; k <= steps; ++k) {
    const double value = function(double(k) / steps);
    if (value < least) {
      least = value;
      best = k;
    }
  }
  constexpr double golden = 0.6180339887498949;
  double low = std::max(0.0, (best - 1.0) / steps), high = std::min(1.0, (best + 1.0) / steps);
  for (uint k = 0; k < 40; ++k) {
    const double a = high - golden * (high - low), b = low + golden * (high - low);
    (function(a) < function(b) ? high : low) = function(a) < function(b) ? b : a;
  }
  return 0.5 * (low + high);
}

/// The ball of the hit segment whose surface the hit lies on, or nearly so.
CurvePoint<double> find_ball(const BenchGroom& groom, uint segment, const Vec& hit, double time) {
  return groom.get_ball(segment, find_least([&](double u) {
                          const CurvePoint<double> ball = groom.get_ball(segment, u, time);
                          return (hit - ball.position).get_length() - ball.radius;
                        }),
                        time);
}

double get_time(const BenchRaySet& set, std::size_t ray) { return set.times.empty() ? 0.0 : double(set.times[ray]); }

Vec get_hit_point(const BenchRaySet& set, const std::vector<BenchHit>& hits, std::size_t ray) {
  return Vec(set.rays[ray].origin) + Vec(set.rays[ray].direction) * double(hits[ray].distance);
}

}  // namespace

BenchApproach bench_approach(const BenchGroom& groom, uint segment, const BenchRay& ray, double time) {
  const Vec origin(ray.origin), direction = Vec(ray.direction).get_normalized();
  const auto get_ratio = [&](double u) {
    const CurvePoint<double> ball = groom.get_ball(segment, u, time);
    return (ball.position - origin).cross(direction).get_length() / ball.radius;
  };
  const double u = find_least(get_ratio);
  return {u, get_ratio(u)};
}

BenchRaySet bench_make_hair_bounce_rays(const BenchGroom& groom, const BenchRaySet& rays,
                                        const std::vector<BenchHit>& hits, u64 seed) {
  const auto get_normal = [&](std::size_t ray) {
    const Vec hit = get_hit_point(rays, hits, ray);
    return (hit - find_ball(groom, hits[ray].primitive, hit, get_time(rays, ray)).position).get_normalized();
  };
  const double offset = 0.1 * groom.root_radius;
  BenchRaySet set = bench_make_bounce_rays(rays, hits, get_normal, offset, seed);
  for (BenchRay& ray : set.rays) ray.tnear = static_cast<float>(offset);
  return set;
}

BenchRaySet bench_make_light_rays(const BenchGroom& groom, const BenchRaySet& rays, const std::vector<BenchHit>& hits) {
  const GMathBbox3<double> box = groom.get_bbox();
  const Vec light = box.get_center() + Vec(-0.4, 1.2, 0.7) * box.get_extent().get_length();
  BenchRaySet set;
  set.name = "shadow";
  set.any_hit = true;
  for (std::size_t k = 0; k < rays.rays.size(); ++k) {
    if (!hits[k].is_hit()) continue;
    const CurvePoint<double> ball =
        find_ball(groom, hits[k].primitive, get_hit_point(rays, hits, k), get_time(rays, k));
    const Vec to_light = light - ball.position;
    const Vec origin = ball.position + to_light.get_normalized() * (1.5 * ball.radius);
    set.rays.push_back(bench_make_ray(origin, to_light));
    set.rays.back().tfar = static_cast<float>((light - origin).get_length());
    if (!rays.times.empty()) set.times.push_back(rays.times[k]);
  }
  return set;
}

BenchVerdict bench_judge(const BenchGroom& groom, const BenchRay& ray, double time, const BenchHit& first,
                         const BenchHit& other) {
  const bool first_is_nearer = first.is_hit() && (!other.is_hit() || first.distance < other.distance);
  const uint segment = (first_is_nearer ? first : other).primitive;
  const BenchApproach approach = bench_approach(groom, segment, ray, time);
  if (std::fabs(approach.ratio - 1.0) <= bench_silhouette_band) return BenchVerdict::silhouette;
  const uint place = segment % BenchGroom::strand_segments;
  if ((place == 0 && approach.u < 1e-2) || (place == BenchGroom::strand_segments - 1 && approach.u > 1.0 - 1e-2))
    return BenchVerdict::end;
  if (approach.ratio > 1.0) return BenchVerdict::false_hit;
  return first_is_nearer ? BenchVerdict::missed_by_other : BenchVerdict::missed_by_first;
}
