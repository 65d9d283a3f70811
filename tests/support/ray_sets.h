// tests/support/ray_sets.h
//
// Rays that go where it hurts: along axes, with zeros of both signs, through vertices and edges, from inside, with
// short and empty intervals, with directions of any length.
#pragma once
#include <cfloat>
#include <vector>

#include "support/random_values.h"
#include "vq_geometry/poly_mesh.h"

struct TestRay {
  GMathVec3<double> origin, direction;
  double tnear = 0.0, tfar = DBL_MAX, time = 0.0;
};

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

class RaySource {
 public:
  RaySource(const PolyMeshData& data, uint seed)
      : data_(data), box_(get_finite_box(data)), random_(seed), size_(box_.get_extent().get_length()) {}

  TestRay get() {
    TestRay ray;
    const GMathVec3<double> target = get_target();
    const double distance = size_ * random_.get(0.6, 2.0);
    ray.origin = target + random_.get_vec().get_normalized() * distance;
    if (random_.get_index(4) == 0) ray.origin = get_box_point();  // from inside
    ray.direction = target - ray.origin;
    if (random_.get_index(3) == 0) set_parallel(ray, target);
    // Directions of unit length, and a thousandth and a thousand times as long.
    const double lengths[] = {1.0, 1.0, 1e-3, 1e3};
    ray.direction = ray.direction.get_normalized() * lengths[random_.get_index(4)];
    set_interval(ray, (target - ray.origin).get_length() / ray.direction.get_length());
    return ray;
  }

 private:
  GMathVec3<double> get_box_point() {
    GMathVec3<double> p;
    for (uint axis = 0; axis < 3; ++axis)
      p[axis] = box_.min[axis] + (box_.max[axis] - box_.min[axis]) * random_.get(0.0, 1.0);
    return p;
  }
  /// A vertex, a point on the way between two vertices that follow each other, or anywhere.
  GMathVec3<double> get_target() {
    const uint kind = random_.get_index(4);
    if (kind >= 2 || data_.polygon_vertices.empty()) return get_box_point();
    const uint corner = random_.get_index(static_cast<uint>(data_.polygon_vertices.size()));
    const GMathVec3<double> a(data_.positions[data_.polygon_vertices[corner]]);
    const GMathVec3<double> b(data_.positions[data_.polygon_vertices[corner > 0 ? corner - 1 : 0]]);
    const GMathVec3<double> p = kind == 0 ? a : a + (b - a) * random_.get(0.0, 1.0);
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z) ? p : get_box_point();
  }
  /// Towards the target along one axis, or within one plane.
  void set_parallel(TestRay& ray, const GMathVec3<double>& target) {
    const uint axis = random_.get_index(3);
    const bool one_zero = random_.get_index(2) == 0;
    for (uint k = 0; k < 3; ++k) {
      if ((k == axis) != one_zero) continue;
      ray.origin[k] = target[k];
      ray.direction[k] = random_.get_index(2) == 0 ? 0.0 : -0.0;
    }
  }
  void set_interval(TestRay& ray, double target) {
    if (!(target > 0.0)) return;  // the direction is zero
    const uint kind = random_.get_index(8);
    if (kind == 0) ray.tfar = target * random_.get(0.5, 2.0);
    if (kind == 1) ray.tnear = target * random_.get(0.0, 1.2);
    if (kind == 2) ray.tnear = target * random_.get(0.5, 1.0);
    if (kind == 2) ray.tfar = target * random_.get(0.9, 1.5);  // sometimes empty
    if (kind == 3) ray.tfar = HUGE_VAL;
    if (kind == 4) ray.tnear = -target;
  }

  const PolyMeshData& data_;
  GMathBbox3<double> box_;
  RandomValues random_;
  double size_;
};

inline std::vector<TestRay> make_rays(const PolyMeshData& data, uint count, uint seed) {
  RaySource source(data, seed);
  std::vector<TestRay> rays;
  for (uint k = 0; k < count; ++k) rays.push_back(source.get());
  return rays;
}
