#include "bench/bench_groom_rays.h"

#include <algorithm>
#include <cmath>

namespace {

using Vec = GMathVec3<double>;

/// The parameter in [0, 1] at which the function is least: the best of many samples, then golden-section search.
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

/// The parameter of the ball whose surface is nearest to the hit.
double find_ball(const BenchGroom& groom, uint segment, const Vec& hit, double time) {
  return find_least([&](double u) {
    const CurvePoint<double> ball = groom.get_ball(segment, u, time);
    return (hit - ball.position).get_length() - ball.radius;
  });
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
    const uint segment = hits[ray].primitive;
    const double time = get_time(rays, ray);
    return (hit - groom.get_ball(segment, find_ball(groom, segment, hit, time), time).position).get_normalized();
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
    const uint segment = hits[k].primitive;
    const double time = get_time(rays, k), u = find_ball(groom, segment, get_hit_point(rays, hits, k), time);
    const CurvePoint<double> ball = groom.get_ball(segment, u, time);
    const Vec chord = groom.get_ball(segment, std::min(1.0, u + 1e-3), time).position -
                      groom.get_ball(segment, std::max(0.0, u - 1e-3), time).position;
    const Vec tangent = chord.get_normalized(), to_light = light - ball.position;
    const Vec aside = (to_light - tangent * tangent.dot(to_light)).get_normalized();
    const Vec origin = ball.position + aside * (1.5 * ball.radius);
    set.rays.push_back(bench_make_ray(origin, light - origin));
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
  const uint root = segment - segment % BenchGroom::strand_segments, tip = root + BenchGroom::strand_segments - 1;
  const Vec hit = Vec(ray.origin) + Vec(ray.direction) * double((first_is_nearer ? first : other).distance);
  for (const CurvePoint<double>& end : {groom.get_ball(root, 0.0, time), groom.get_ball(tip, 1.0, time)}) {
    if ((hit - end.position).get_length() <= 1.5 * end.radius) return BenchVerdict::end;
  }
  if (approach.ratio > 1.0) return BenchVerdict::false_hit;
  return first_is_nearer ? BenchVerdict::missed_by_other : BenchVerdict::missed_by_first;
}
