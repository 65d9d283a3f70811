// tests/support/scene_check.h
//
// Compares what a scene answers with what the same scene answers as one flat mesh. Where they differ, the ray must
// graze a polygon (the flat mesh is rounded to single precision, and both structures cull in it) or meet two at one
// distance.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "support/ray_query.h"
#include "support/scene_worlds.h"
#include "vq_geometry/geometry_frustum_ctx.h"

class SceneCheck {
 public:
  SceneCheck(QueryWorld& world, const GasObject& scene, const std::vector<SceneNode>& nodes,
             const CtxMotionBlur* blur = nullptr)
      : world_(world), scene_(scene), nodes_(nodes), blur_(blur) {}

  /// Nearest and all hits of the rays, each at its own time.
  void check(const std::vector<TestRay>& rays) {
    ask_rays(world_, scene_, packet_, rays, {true, blur_});
    ask_rays(world_, scene_, all_packet_, rays, {false, blur_});
    std::map<double, std::vector<TestRay>> moments;
    for (const TestRay& ray : rays) moments[ray.time];
    for (auto& moment : moments) {
      const FlatScene flat(world_, nodes_, blur_, moment.first);
      GeometryRayPacket expected;
      ask_rays(world_, flat.built.structure, expected, rays);
      for (uint k = 0; k < rays.size(); ++k)
        if (rays[k].time == moment.first) compare_nearest(flat, rays[k], k, expected.get_nearest(k));
      ask_rays(world_, flat.built.structure, expected, rays, {.nearest = false});
      compare_all(flat, rays, moment.first, expected);
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
        const FlatScene flat(world_, nodes_, nullptr, 0.0, index);
        GeometryFrustumCtx single;
        ask(flat.built.structure, single, planes, mode);
        const bool counts = mode == GeometryFrustumMode::all ? single.result.hit_count == single.result.total
                                                             : single.result.hit_count > 0;
        if (counts) expected.insert(index);
        for (const GeometryFrustumVertex& vertex : single.get_points()) points.push_back(vertex.position);
      }
      EXPECT_EQ(std::set<uint>(found.get_objects().begin(), found.get_objects().end()), expected);
      EXPECT_EQ(found.get_objects().size(), expected.size());
      EXPECT_EQ(found.result.hit_count, expected.size());
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

  static OracleHit get_truth(const FlatScene& flat, const TestRay& ray, uint polygon) {
    return oracle_intersect({Long3(ray.origin), Long3(ray.direction), -HUGE_VALL, HUGE_VALL},
                            flat.polygons[polygon].corners);
  }
  static bool is_close(const OracleHit& truth, const TestRay& ray) {
    if (std::isnan(truth.t) || truth.edge_distance <= graze) return true;
    const long double tolerance = get_flat_tolerance(truth);
    const long double begin = std::max(ray.tnear, 0.0);
    return std::fabs(truth.t - begin) <= tolerance || std::fabs(truth.t - ray.tfar) <= tolerance;
  }
  /// Of a distance to a polygon whose corners were rounded to single precision.
  static long double get_flat_tolerance(const OracleHit& truth) {
    return truth.tolerance * 0x1p29L + 1e-5L * std::fabs(truth.t);
  }

  /// The polygon of a hit of the scene. Its distance, place and normal must be those of the polygon in the world.
  uint check_hit(const FlatScene& flat, const TestRay& ray, const GeometryIntersection& hit,
                 const GeometryHitTransform* transform, std::span<const GeometryIntersectionPathElement> path) {
    ObjectPath indices;
    for (const GeometryIntersectionPathElement& element : path) indices.push_back(element.object_index);
    const uint found = flat.find(indices, hit.primitive);
    EXPECT_NE(found, core_invalid_index) << "primitive " << hit.primitive;
    if (found == core_invalid_index || transform == nullptr) return core_invalid_index;
    const FlatPolygon& polygon = flat.polygons[found];
    for (uint level = 0; level < path.size(); ++level) {
      // Elements are packed, so that no reference can be had to a member.
      EXPECT_TRUE(path[level].object == polygon.nodes[level]->object.get());
      EXPECT_TRUE(path[level].geometry_override == polygon.nodes[level]->replaced.get());
    }
    EXPECT_EQ(hit.geometry, polygon.nodes.back()->shape->mesh.get());
    EXPECT_EQ(hit.level, 0u);
    const OracleHit truth = get_truth(flat, ray, found);
    if (std::isnan(truth.t)) return found;
    EXPECT_TRUE(truth.answer != SureAnswer::missed || truth.edge_distance <= graze) << "not on the polygon";
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

  void compare_nearest(const FlatScene& flat, const TestRay& ray, uint k, const GeometryIntersection& expected) {
    const GeometryIntersection& hit = packet_.get_nearest(k);
    const uint other = expected.geometry != nullptr ? expected.primitive : core_invalid_index;
    uint found = core_invalid_index;
    if (hit.geometry != nullptr) {
      found = check_hit(flat, ray, hit, packet_.get_nearest_transform(k), packet_.get_nearest_path(k));
      ASSERT_NE(found, core_invalid_index) << "ray " << k;
      ++hit_count;
    }
    if (found == other) return;
    const bool ours_is_nearer =
        other == core_invalid_index || (found != core_invalid_index && hit.distance < expected.distance);
    const OracleHit truth = get_truth(flat, ray, ours_is_nearer ? found : other);
    const long double tolerance = get_flat_tolerance(truth);
    const bool tie = found != core_invalid_index && other != core_invalid_index &&
                     std::fabs(hit.distance - expected.distance) <= 2 * tolerance;
    EXPECT_TRUE(tie || is_close(truth, ray))
        << "ray " << k << " at time " << ray.time << ": polygon " << found << " at " << hit.distance << ", flat "
        << other << " at " << expected.distance << " of object "
        << flat.polygons[ours_is_nearer ? found : other].path[0];
  }

  void compare_all(const FlatScene& flat, const std::vector<TestRay>& rays, double time, GeometryRayPacket& expected) {
    // How often each ray meets each polygon, here more often, there less.
    std::map<std::pair<uint, uint>, int> balance;
    GeometryHitList& hits = all_packet_.get_hits();
    for (const GeometryHit& hit : hits.get_hits()) {
      if (rays[hit.ray].time != time) continue;
      const uint found = check_hit(flat, rays[hit.ray], hit.hit, hits.get_transform(hit.hit), hits.get_path(hit.hit));
      ASSERT_NE(found, core_invalid_index);
      ++balance[{hit.ray, found}];
    }
    for (const GeometryHit& hit : expected.get_hits().get_hits())
      if (rays[hit.ray].time == time) --balance[{hit.ray, hit.hit.primitive}];
    for (const auto& [key, count] : balance) {
      const auto [k, polygon] = key;
      // A diagonal of a large polygon belongs to two triangles.
      if (count == 0 || flat.polygons[polygon].corners.size() > 3) continue;
      EXPECT_TRUE(is_close(get_truth(flat, rays[k], polygon), rays[k]))
          << "ray " << k << " at time " << time << " polygon " << polygon << " balance " << count;
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
  GeometryRayPacket packet_, all_packet_;
};
