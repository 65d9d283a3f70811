// How do I add primitives of my own? A GeometryObject, here of spheres, supplies boxes, groups and tests; the structure
// over it is the same as over a mesh.
#include <cmath>

#include "examples/example_world.h"
#include "vq_geometry/geometry_frustum_ctx.h"

/// All functions are const and thread-safe: many threads call them at once, each with its own contexts.
class Spheres final : public GeometryObject {
 public:
  struct Sphere {
    GMathVec3<double> center;
    double radius;
  };
  explicit Spheres(std::vector<Sphere> spheres) : spheres_(std::move(spheres)), groups_(1) {
    groups_[0] = CoreString("spheres");
  }

  uint get_primitive_count() const override { return static_cast<uint>(spheres_.size()); }
  const CoreArray<CoreString>& get_shading_groups() const override { return groups_; }
  uint get_primitive_shading_group(const uint&) const override { return 0; }

  GMathBbox3<double> get_primitive_bbox(const CtxEval&, const uint& primitive) const override {
    const auto& [center, radius] = spheres_[primitive];
    const GMathVec3<double> reach(radius, radius, radius);
    return {center - reach, center + reach};
  }

  /// Solves |origin + t direction - center| = radius for each active ray and pushes both hits. The query checks them
  /// against the ray's interval and keeps the nearest or all. A hit's u is the longitude, v the height.
  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override {
    const auto& [center, radius] = spheres_[primitive];
    for (uint r = query.first_ray; r <= query.last_ray; ++r) {
      const auto& ray = query.get_ray(r);
      const GMathVec3<double> offset = ray.origin - center;
      const double a = ray.direction.dot(ray.direction), b = offset.dot(ray.direction);
      const double root = std::sqrt(b * b - a * (offset.dot(offset) - radius * radius));  // NaN: the ray misses
      for (const double distance : {(-b - root) / a, (-b + root) / a}) {
        if (std::isnan(distance) || query.is_stopped(r)) break;  // stopped: no more hits are needed for this ray
        const GMathVec3<double> normal = (offset + ray.direction * distance) * (1.0 / radius);
        query.push_intersection(ctx, shader, r, {distance, std::atan2(normal.y, normal.x), normal.z, primitive, 0});
      }
    }
  }

  /// Tests the sphere's box instead of the sphere: near an edge of the frustum it may count a sphere that is outside.
  /// Modes points and vertices need a point cloud, which spheres do not have.
  void frustum_hit_primitive(const CtxEval& ctx, CtxShader&, GeometryFrustumCtx& query,
                             const uint& primitive) const override {
    const bool all = query.mode == static_cast<uint>(GeometryFrustumMode::all);
    const GeometryBoxPlace place = query.classify(GMathBbox3<float>(get_primitive_bbox(ctx, primitive)));
    if (all ? place == GeometryBoxPlace::inside : place != GeometryBoxPlace::outside) {
      ++query.result.hit_count;
      query.result.finished = !all;
    } else if (all) {
      query.result.outside = 1;
    }
  }

  GeometrySurfacePoint get_surface_point(const GeometryIntersection& hit, const double&) const override {
    const auto& [center, radius] = spheres_[hit.primitive];
    const double around = std::sqrt(std::fmax(0.0, 1.0 - hit.v * hit.v));
    const GMathVec3<double> normal(around * std::cos(hit.u), around * std::sin(hit.u), hit.v);
    return {center + normal * radius, normal, normal, {}};
  }

 private:
  std::vector<Sphere> spheres_;
  CoreArray<CoreString> groups_;
};

int main() {
  ExampleWorld world;
  const Spheres row({{{0, 0, 0}, 1}, {{3, 0, 0}, 1}, {{6, 0, 0}, 0.5}});
  GasGeometryBvh4 structure;
  structure.create(world.ctx, &row, &row, nullptr);

  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {-5, 0, 0}, {1, 0, 0});
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  const GeometryIntersection& hit = packet.get_nearest(0);
  const GMathVec3<double> position = row.get_surface_point(hit, 0.0).position;
  std::printf("sphere %u at distance %g, x = %g\n", hit.primitive, hit.distance, position.x);
  expect(hit.geometry == &row && hit.primitive == 0 && hit.distance == 4 && std::fabs(position.x + 1) < 1e-12,
         "the first sphere, from outside");
  structure.ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
  std::printf("%zu hits in all\n", packet.get_hits().get_hits().size());
  expect(packet.get_hits().get_hits().size() == 6, "two hits per sphere");
}
