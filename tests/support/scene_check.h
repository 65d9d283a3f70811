// tests/support/scene_check.h
//
// Compares what a scene or a bundle answers to rays with what testing every polygon in the world says, in long double;
// and what it answers to frustums with what each object or instance answers as a mesh of its own.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "support/flat_scene.h"
#include "support/ray_query.h"
#include "vq_geometry/geometry_frustum_ctx.h"

/// Four sides around a cone and a far end.
inline std::vector<GeometryPlane> make_scene_planes(RandomValues& random, double size) {
  std::vector<GeometryPlane> planes;
  const GMathVec3<double> centre = random.get_vec(1.5);
  for (uint k = 0; k < 5; ++k) {
    const GMathVec3<double> normal = random.get_vec().get_normalized();
    planes.emplace_back(centre - normal * size, normal);
  }
  return planes;
}

/// Rays at a scene as it is halfway, each at one of the times.
inline std::vector<TestRay> make_timed_rays(const FlatScene& halfway, const std::vector<double>& times, uint count,
                                            uint seed) {
  std::vector<TestRay> rays = make_rays(halfway.data, count, seed);
  for (uint k = 0; k < rays.size(); ++k) {
    rays[k].time = times[k % times.size()];
    rays[k].type = static_cast<GMathRay::Type>(k * 5 / 3 % GMathRay::lookup);
  }
  return rays;
}

class SceneCheck {
 public:
  SceneCheck(QueryWorld& world, const GasObject& scene, const std::vector<SceneNode>& nodes,
             const CtxMotionBlur* blur = nullptr)
      : world_(world), scene_(scene), nodes_(nodes), blur_(blur) {}
  /// @param bundle  made with make_object()
  SceneCheck(QueryWorld& world, const SceneNode& bundle, const CtxMotionBlur* blur = nullptr)
      : SceneCheck(world, *bundle.object->get_structure(), bundle.children, blur) {
    is_bundle_ = true;
  }

  /// As it is seen at `time`; at rest without a description.
  FlatScene flatten(double time, uint only = core_invalid_index) const {
    return FlatScene(nodes_, blur_, time, only, is_bundle_);
  }

  /// Nearest and all hits of the rays, each at its own time.
  void check(const std::vector<TestRay>& rays) {
    GeometryRayPacket packet, all_packet;
    ask_rays(world_, scene_, packet, rays, {true, blur_});
    const GeometryPlane planes[] = {{{0.1, 0.2, 0.3}, {1, -2, 0.5}}, {{-3, 1, 2}, {0, 0.5, 1}}};
    ask_rays(world_, scene_, all_packet, rays, {false, blur_, [&](GeometryRaytraceCtx& query) {
                                                  outer_ = &query;
                                                  query.identification2 = 77;
                                                  query.planes = planes;
                                                  query.plane_count = 2;
                                                  query.hit_user = this;
                                                  query.hit_callback = check_local_query;
                                                }});
    std::map<double, FlatScene> moments;
    std::vector<std::map<uint, OracleHit>> truth;
    for (const TestRay& ray : rays) {
      const auto none = core_invalid_index;
      const auto at = moments.try_emplace(ray.time, nodes_, blur_, ray.time, none, is_bundle_).first;
      truth.push_back(at->second.get_truth(ray, graze));
    }
    std::vector<std::map<uint, uint>> reports(rays.size());
    GeometryHitList& hits = all_packet.get_hits();
    for (const GeometryHit& at : hits.get_hits()) {
      const TestRay& ray = rays[at.ray];
      ++reports[at.ray][check_hit(moments.at(ray.time), truth[at.ray], ray, at.hit, hits.get_transform(at.hit),
                                  hits.get_path(at.hit))];
    }
    for (uint k = 0; k < rays.size() && !testing::Test::HasFailure(); ++k) {
      const FlatScene& flat = moments.at(rays[k].time);
      const GeometryIntersection& hit = packet.get_nearest(k);
      long double nearest = rays[k].tfar;
      for (const auto& [polygon, sure] : truth[k]) {
        // A diagonal of a large polygon belongs to two triangles.
        EXPECT_LE(reports[k][polygon], flat.polygons[polygon].corners.size() > 3 ? 2u : 1u) << describe(rays[k]);
        if (sure.answer != SureAnswer::hit) continue;
        EXPECT_GT(reports[k][polygon], 0u) << describe(rays[k]) << " polygon " << polygon;
        nearest = std::min(nearest, sure.t + 4096 * sure.tolerance);
      }
      EXPECT_LE(hit.distance, nearest) << describe(rays[k]);
      if (hit.geometry == nullptr) continue;
      ++hit_count;
      check_hit(flat, truth[k], rays[k], hit, packet.get_nearest_transform(k), packet.get_nearest_path(k));
    }
    EXPECT_GT(hit_count, rays.size() / 8);
  }

  /// All modes of one frustum; motion plays no part.
  void check_frustum(const std::vector<GeometryPlane>& planes) {
    for (const GeometryFrustumMode mode : {GeometryFrustumMode::any, GeometryFrustumMode::all,
                                           GeometryFrustumMode::points, GeometryFrustumMode::vertices}) {
      GeometryFrustumCtx found;
      ask(scene_, found, planes, mode);
      std::set<uint> expected;
      std::vector<GMathVec3<double>> points;
      for (uint index = 0; index < nodes_.size(); ++index) {
        const BuiltMesh alone(world_, flatten(0.0, index).data);
        GeometryFrustumCtx single;
        ask(alone.structure, single, planes, mode);
        const bool counts = mode == GeometryFrustumMode::all ? single.result.hit_count == single.result.total
                                                             : single.result.hit_count > 0;
        if (counts) expected.insert(index);
        for (const GeometryFrustumVertex& vertex : single.get_points()) points.push_back(vertex.position);
      }
      if (!is_bundle_) {
        EXPECT_EQ(std::set<uint>(found.get_objects().begin(), found.get_objects().end()), expected);
        EXPECT_EQ(found.get_objects().size(), expected.size());
        EXPECT_EQ(found.result.hit_count, expected.size());
      } else if (mode == GeometryFrustumMode::all) {
        EXPECT_EQ(found.result.hit_count == found.result.total, expected.size() == nodes_.size());
        EXPECT_EQ(found.result.outside != 0, expected.size() < nodes_.size());
      } else {
        EXPECT_EQ(found.result.hit_count > 0, !expected.empty());
      }
      EXPECT_LE(found.get_points().size(), 3 * points.size()) << "clusters ask for more than their own";
      listed_count += static_cast<uint>(expected.size());
      point_count += static_cast<uint>(points.size());
      expect_same_places(found.get_points(), points);
    }
  }

  uint hit_count = 0, listed_count = 0, point_count = 0;

 private:
  static constexpr long double graze = 1000;  // units in the last place of single precision

  void ask(const GasObject& structure, GeometryFrustumCtx& query, const std::vector<GeometryPlane>& planes,
           GeometryFrustumMode mode) {
    query.mode = static_cast<uint>(mode);
    query.shading = &world_.shading;
    for (const GeometryPlane& plane : planes) query.add_plane(plane);
    query.end_planes[query.end_plane_count++] = query.planes[--query.plane_count];
    structure.frustum_hit(world_.ctx, world_.shader, query);
  }

  /// The polygon of a hit of the scene. Its distance, place and normal must be those of the polygon in the world.
  uint check_hit(const FlatScene& flat, const std::map<uint, OracleHit>& truths, const TestRay& ray,
                 const GeometryIntersection& hit, const GeometryHitTransform* transform,
                 std::span<const GeometryIntersectionPathElement> path) {
    ObjectPath indices;
    for (const GeometryIntersectionPathElement& element : path) indices.push_back(element.object_index);
    const uint found = flat.find(indices, hit, truths);
    EXPECT_NE(found, core_invalid_index) << describe(ray) << " hit " << hit.primitive << " of instance " << hit.instance
                                         << " in group " << hit.shading_group << " at depth " << hit.depth;
    if (found == core_invalid_index || transform == nullptr) return core_invalid_index;
    const FlatPolygon& polygon = flat.polygons[found];
    for (uint level = 0; level < path.size(); ++level) {
      // Elements are packed, so that no reference can be had to a member.
      EXPECT_TRUE(path[level].object == polygon.nodes[level]->object.get());
      EXPECT_TRUE(path[level].geometry_override == polygon.nodes[level]->replaced.get());
    }
    EXPECT_EQ(hit.level, 0u);
    const OracleHit& truth = truths.at(found);
    if (std::isnan(truth.t)) return found;
    const long double tolerance = truth.tolerance * 4096;
    EXPECT_NEAR(hit.distance, static_cast<double>(truth.t), static_cast<double>(tolerance));
    const double time = blur_ != nullptr ? ray.time : std::nan("");
    const GeometrySurfacePoint point = hit.geometry->get_surface_point(hit, time);
    const Long3 place(transform->matrix.transform_point(point.position));
    EXPECT_LE((place - truth.point).get_length(), tolerance * Long3(ray.direction).get_length());
    const auto& corners = polygon.corners;
    Long3 normal = (corners[1] - corners[0]).cross(corners[2] - corners[0]);
    if (corners.size() > 3 || normal.get_length() < 1e-3L) return found;
    normal = normal * (transform->matrix.get_determinant() < 0 ? -1 : 1);
    const Long3 turned(transform->matrix.get_inverse().transform_normal_transposed(point.normal));
    EXPECT_GT(turned.get_normalized().dot(normal.get_normalized()), 1 - 1e-9L);
    return found;
  }

  /// What the query within an object or an instance was told by those around it.
  static void check_local_query(GeometryRaytraceCtx& query, const uint& ray, const GeometryIntersection& hit,
                                void* user) {
    const auto& check = *static_cast<SceneCheck*>(user);
    EXPECT_EQ(query.identification2, check.is_bundle_ ? 77 : (*query.path)[0].object_index);
    if (query.path != nullptr) {
      EXPECT_TRUE(query.planes == nullptr && query.plane_count == 0) << "of a scene's space";
      return;
    }
    ASSERT_EQ(query.plane_count, 2u);
    const auto get_place = [&](const GMathBasicRay<double>& at) { return at.origin + at.direction * hit.distance; };
    for (uint k = 0; k < 2; ++k) {
      const double outside = check.outer_->planes[k].measure(get_place(check.outer_->get_ray(ray)));
      EXPECT_NEAR(query.planes[k].measure(get_place(query.get_ray(ray))), outside, 1e-6 * (1 + std::fabs(outside)));
    }
  }

  /// Each point of one list has one of the other at its place. Clusters give the vertices that they share once each.
  static void expect_same_places(const std::vector<GeometryFrustumVertex>& found,
                                 const std::vector<GMathVec3<double>>& expected) {
    const auto is_near = [](const GMathVec3<double>& a, const GMathVec3<double>& b) {
      return (a - b).get_length() < 1e-5;
    };
    for (const GeometryFrustumVertex& vertex : found)
      EXPECT_TRUE(std::any_of(expected.begin(), expected.end(), [&](auto& p) { return is_near(p, vertex.position); }));
    for (const GMathVec3<double>& place : expected)
      EXPECT_TRUE(std::any_of(found.begin(), found.end(), [&](auto& p) { return is_near(p.position, place); }));
  }

  QueryWorld& world_;
  const GasObject& scene_;
  const std::vector<SceneNode>& nodes_;
  const CtxMotionBlur* blur_;
  bool is_bundle_ = false;
  const GeometryRaytraceCtx* outer_ = nullptr;
};
