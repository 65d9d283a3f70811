// tests/support/ray_sets.h
//
// Rays that go where it hurts: along axes, with zeros of both signs, through vertices and edges, from inside, with
// short and empty intervals, with directions of any length.
#pragma once
#include <cfloat>
#include <cstdio>
#include <string>
#include <vector>

#include "support/random_values.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_gmath/gmath_ray.h"

struct TestRay {
  GMathVec3<double> origin, direction;
  double tnear = 0.0, tfar = DBL_MAX, time = 0.0;
  GMathRay::Type type = GMathRay::camera;
};

inline std::string describe(const TestRay& ray) {
  char text[400];
  std::snprintf(text, sizeof text, "(%a, %a, %a) + t (%a, %a, %a), [%a, %a), time %a", ray.origin.x, ray.origin.y,
                ray.origin.z, ray.direction.x, ray.direction.y, ray.direction.z, ray.tnear, ray.tfar, ray.time);
  return text;
}

/// Where the finite vertices of a mesh are, moving ones included.
inline GMathBbox3<double> get_finite_box(const PolyMeshData& data) {
  GMathBbox3<double> box;
  const auto add = [&](const std::vector<GMathVec3<float>>& positions) {
    for (const GMathVec3<float>& p : positions)
      if (std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z)) box.add(GMathVec3<double>(p));
  };
  add(data.positions);
  for (const auto& sample : data.motion_positions) add(sample);
  return box;
}

/// A vertex, a point on the way between two vertices that follow each other, or anywhere in the box.
inline GMathVec3<double> get_ray_target(const PolyMeshData& data, const GMathVec3<double>& in_box,
                                        RandomValues& random) {
  const uint kind = random.get_index(4);
  if (kind >= 2 || data.polygon_vertices.empty()) return in_box;
  const uint corner = random.get_index(static_cast<uint>(data.polygon_vertices.size()));
  const GMathVec3<double> a(data.positions[data.polygon_vertices[corner]]);
  const GMathVec3<double> b(data.positions[data.polygon_vertices[corner > 0 ? corner - 1 : 0]]);
  const GMathVec3<double> p = kind == 0 ? a : a + (b - a) * random.get(0.0, 1.0);
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) ? p : in_box;
}

inline std::vector<TestRay> make_rays(const PolyMeshData& data, uint count, uint seed) {
  RandomValues random(seed);
  const GMathBbox3<double> box = get_finite_box(data);
  const auto get_box_point = [&] {
    GMathVec3<double> p;
    for (uint axis = 0; axis < 3; ++axis)
      p[axis] = box.min[axis] + (box.max[axis] - box.min[axis]) * random.get(0.0, 1.0);
    return p;
  };
  std::vector<TestRay> rays(count);
  for (TestRay& ray : rays) {
    const GMathVec3<double> target = get_ray_target(data, get_box_point(), random);
    ray.origin = target + random.get_vec().get_normalized() * (box.get_extent().get_length() * random.get(0.6, 2.0));
    if (random.get_index(4) == 0) ray.origin = get_box_point();  // from inside
    ray.direction = target - ray.origin;
    if (random.get_index(3) == 0) {  // along one axis, or within one plane
      const uint axis = random.get_index(3);
      const bool one_zero = random.get_index(2) == 0;
      for (uint k = 0; k < 3; ++k) {
        if ((k == axis) != one_zero) continue;
        ray.origin[k] = target[k];
        ray.direction[k] = random.get_index(2) == 0 ? 0.0 : -0.0;
      }
    }
    // Directions of unit length, and a thousandth and a thousand times as long.
    const double lengths[] = {1.0, 1.0, 1e-3, 1e3};
    ray.direction = ray.direction.get_normalized() * lengths[random.get_index(4)];
    const double distance = (target - ray.origin).get_length() / ray.direction.get_length();
    if (!(distance > 0.0)) continue;  // the direction is zero
    const uint kind = random.get_index(8);
    if (kind == 0) ray.tfar = distance * random.get(0.5, 2.0);
    if (kind == 1) ray.tnear = distance * random.get(0.0, 1.2);
    if (kind == 2) ray.tnear = distance * random.get(0.5, 1.0);
    if (kind == 2) ray.tfar = distance * random.get(0.9, 1.5);  // sometimes empty
    if (kind == 3) ray.tfar = HUGE_VAL;
    if (kind == 4) ray.tnear = -distance;
  }
  return rays;
}
