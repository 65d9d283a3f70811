#include "bench/bench_rays.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "bench/bench_random.h"

namespace {

/// A uniform random point of the unit sphere, by Archimedes' hat-box theorem.
GMathVec3<double> make_sphere_point(BenchRandom& random) {
  const double z = 2.0 * random.get_unit() - 1.0, angle = 2.0 * std::numbers::pi * random.get_unit();
  const double radius = std::sqrt(std::max(0.0, 1.0 - z * z));
  return {radius * std::cos(angle), radius * std::sin(angle), z};
}

}  // namespace

BenchRay bench_make_ray(const GMathVec3<double>& origin, const GMathVec3<double>& direction) {
  BenchRay ray;
  ray.origin = GMathVec3<float>(origin);
  ray.direction = GMathVec3<float>(direction.get_normalized());
  return ray;
}

BenchRaySet bench_make_primary_rays(const GMathBbox3<double>& box, uint size) {
  const double half_angle = 0.5 * 40.0 * std::numbers::pi / 180.0;
  const GMathVec3<double> backward = GMathVec3<double>(0.6, 0.45, 0.8).get_normalized();
  const GMathVec3<double> right = GMathVec3<double>(0.0, 1.0, 0.0).cross(backward).get_normalized();
  const GMathVec3<double> up = backward.cross(right);
  const double scale = std::tan(half_angle);
  // The least distance from which all corners of the box are in the picture.
  double away = 0.0;
  for (uint corner = 0; corner < 8; ++corner) {
    const GMathVec3<double> at = box.get_corner(corner) - box.get_center();
    const double aside = std::max(std::fabs(right.dot(at)), std::fabs(up.dot(at)));
    away = std::max(away, backward.dot(at) + aside / scale);
  }
  const GMathVec3<double> eye = box.get_center() + backward * away;
  BenchRaySet set;
  set.name = "primary";
  set.rays.reserve(std::size_t{size} * size);
  for (uint row = 0; row < size; ++row) {
    for (uint column = 0; column < size; ++column) {
      const double x = (2.0 * (column + 0.5) / size - 1.0) * scale, y = (1.0 - 2.0 * (row + 0.5) / size) * scale;
      set.rays.push_back(bench_make_ray(eye, right * x + up * y - backward));
    }
  }
  return set;
}

BenchRaySet bench_make_random_rays(const GMathBbox3<double>& box, uint count, u64 seed) {
  const GMathVec3<double> size = box.get_extent();
  BenchRandom random(seed);
  BenchRaySet set;
  set.name = "random";
  set.rays.reserve(count);
  for (uint ray = 0; ray < count; ++ray) {
    const GMathVec3<double> origin = box.get_center() + make_sphere_point(random) * (0.5 * size.get_length());
    const double x = random.get_unit(), y = random.get_unit(), z = random.get_unit();
    const GMathVec3<double> target = box.min + GMathVec3<double>(x * size.x, y * size.y, z * size.z);
    set.rays.push_back(bench_make_ray(origin, target - origin));
  }
  return set;
}

BenchRaySet bench_make_bounce_rays(const BenchRaySet& rays, const std::vector<BenchHit>& hits,
                                   const std::function<GMathVec3<double>(std::size_t)>& get_normal, double offset,
                                   u64 seed) {
  BenchRandom random(seed);
  BenchRaySet set;
  set.name = "bounce";
  for (std::size_t k = 0; k < rays.rays.size(); ++k) {
    if (!hits[k].is_hit()) continue;
    const GMathVec3<double> incoming(rays.rays[k].direction);
    GMathVec3<double> normal = get_normal(k);
    if (normal.dot(incoming) > 0.0) normal = -normal;
    const GMathVec3<double> point = GMathVec3<double>(rays.rays[k].origin) + incoming * double(hits[k].distance);
    // The normal plus a point of the unit sphere has a cosine-distributed direction.
    set.rays.push_back(bench_make_ray(point + normal * offset, normal * 1.0001 + make_sphere_point(random)));
    if (!rays.times.empty()) set.times.push_back(rays.times[k]);
  }
  return set;
}

BenchRaySet bench_make_shadow_rays(const BenchRaySet& bounce, double longest, u64 seed) {
  BenchRandom random(seed);
  BenchRaySet set = bounce;
  set.name = "shadow";
  set.any_hit = true;
  for (BenchRay& ray : set.rays) ray.tfar = static_cast<float>(longest * random.get_unit());
  return set;
}

void bench_add_times(BenchRaySet& set, u64 seed) {
  BenchRandom random(seed);
  set.times.clear();
  for (std::size_t ray = 0; ray < set.rays.size(); ++ray) set.times.push_back(static_cast<float>(random.get_unit()));
}
