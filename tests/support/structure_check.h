// tests/support/structure_check.h
//
// Compares what a structure answers with what testing every polygon gives.
#pragma once
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/mesh_oracle.h"
#include "support/query_world.h"
#include "support/ray_sets.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_gas_base/gas_object.h"
#include "vq_geometry/geometry_ray_packet.h"

struct CheckCounts {
  uint rays = 0, sure_hits = 0, reported = 0;
};

/// One mesh, one structure over it, and which polygons are there to be hit.
class StructureCheck {
 public:
  StructureCheck(QueryWorld& world, const GasObject& structure, const PolyMeshData& data)
      : world_(world), structure_(structure), data_(data) {}

  std::string name;                            ///< told when something disagrees
  const CtxMotionBlur* motion_blur = nullptr;  ///< set: rays carry times and the motion functions are asked
  std::vector<u8> hidden;                      ///< per polygon: not to be hit; empty: none
  uint group_offset = 0;

  CheckCounts check(const std::vector<TestRay>& rays) {
    CheckCounts counts;
    const std::vector<std::vector<OracleHit>> expected = find_expected(rays, counts);
    check_nearest(rays, expected, counts);
    check_all(rays, expected, counts);
    return counts;
  }

  /// Prepares the rays in the packet and asks.
  void query(GeometryRayPacket& packet, const std::vector<TestRay>& rays, bool nearest) {
    packet.resize(static_cast<uint>(rays.size()));
    for (uint k = 0; k < rays.size(); ++k)
      packet.set_ray(k, rays[k].origin, rays[k].direction, rays[k].tnear, rays[k].tfar, rays[k].time);
    GeometryRaytraceCtx& query = nearest ? packet.begin_nearest(world_.shading) : packet.begin_all_hits(world_.shading);
    query.shading_group_offset = group_offset;
    world_.shader.motion_blur = motion_blur;
    const auto at_rest = nearest ? &GasObject::ray_hit_nearest_static : &GasObject::ray_hit_static;
    const auto moving = nearest ? &GasObject::ray_hit_nearest_motion : &GasObject::ray_hit_motion;
    (structure_.*(motion_blur != nullptr ? moving : at_rest))(world_.ctx, world_.shader, query);
    EXPECT_EQ(query.filter_count, 0u);
  }

 private:
  /// A ray begins at its origin even if its interval begins before it.
  static OracleRay get_oracle_ray(const TestRay& ray) {
    return {Long3(ray.origin), Long3(ray.direction), std::max(ray.tnear, 0.0), ray.tfar};
  }

  std::vector<std::vector<OracleHit>> find_expected(const std::vector<TestRay>& rays, CheckCounts& counts) const {
    std::vector<std::vector<OracleHit>> expected;
    std::map<double, std::vector<std::vector<Long3>>> at_time;
    for (const TestRay& ray : rays) {
      auto& moved = at_time[motion_blur != nullptr ? ray.time : 0.0];
      if (moved.empty()) moved = motion_blur != nullptr ? get_all_corners(data_, ray.time) : get_all_corners(data_);
      std::vector<OracleHit> hits;
      for (uint p = 0; p < moved.size(); ++p) {
        const bool is_hidden = !hidden.empty() && hidden[p] != 0;
        hits.push_back(is_hidden ? OracleHit() : oracle_intersect(get_oracle_ray(ray), moved[p]));
        counts.sure_hits += hits.back().answer == OracleAnswer::hit;
      }
      expected.push_back(hits);
    }
    counts.rays += static_cast<uint>(rays.size());
    return expected;
  }

  void check_nearest(const std::vector<TestRay>& rays, const std::vector<std::vector<OracleHit>>& expected,
                     CheckCounts& counts) {
    query(packet_, rays, true);
    for (uint k = 0; k < rays.size(); ++k) {
      const GeometryIntersection& hit = packet_.get_nearest(k);
      const OracleHit* nearest = nullptr;
      for (const OracleHit& candidate : expected[k])
        if (candidate.answer == OracleAnswer::hit && (nearest == nullptr || candidate.t < nearest->t))
          nearest = &candidate;
      if (hit.geometry == nullptr) {
        EXPECT_EQ(nearest, nullptr) << describe(rays[k], k) << " lost " << nearest - expected[k].data() << " at "
                                    << static_cast<double>(nearest->t);
        EXPECT_EQ(hit.distance, rays[k].tfar);
        continue;
      }
      ++counts.reported;
      check_hit(hit, rays[k], k, expected[k]);
      if (nearest != nullptr) {
        EXPECT_LE(hit.distance, nearest->t + nearest->tolerance) << describe(rays[k], k);
      }
    }
  }

  void check_all(const std::vector<TestRay>& rays, const std::vector<std::vector<OracleHit>>& expected,
                 CheckCounts& counts) {
    query(packet_, rays, false);
    std::vector<std::multiset<uint>> found(rays.size());
    for (const GeometryHit& hit : packet_.get_hits().get_hits()) {
      ++counts.reported;
      check_hit(hit.hit, rays[hit.ray], hit.ray, expected[hit.ray]);
      found[hit.ray].insert(hit.hit.primitive);
    }
    for (uint k = 0; k < rays.size(); ++k) {
      for (uint p = 0; p < expected[k].size(); ++p) {
        if (expected[k][p].answer != OracleAnswer::hit) continue;
        // The diagonals of a polygon belong to two triangles of it.
        const std::size_t count = found[k].count(p);
        EXPECT_TRUE(count == 1 || (count == 2 && data_.polygon_sizes[p] > 3))
            << describe(rays[k], k) << " polygon " << p << " was reported " << count << " times";
      }
    }
  }

  void check_hit(const GeometryIntersection& hit, const TestRay& ray, uint number,
                 const std::vector<OracleHit>& expected) const {
    ASSERT_LT(hit.primitive, expected.size());
    const OracleHit& truth = expected[hit.primitive];
    EXPECT_NE(truth.answer, OracleAnswer::missed) << describe(ray, number) << " hit " << hit.primitive;
    if (truth.answer != OracleAnswer::missed && !std::isnan(truth.t)) {
      EXPECT_NEAR(hit.distance, static_cast<double>(truth.t), static_cast<double>(truth.tolerance))
          << describe(ray, number) << " polygon " << hit.primitive;
    }
    EXPECT_GE(hit.distance, ray.tnear);
    EXPECT_LT(hit.distance, ray.tfar);
  }

  std::string describe(const TestRay& ray, uint number) const {
    char text[400];
    std::snprintf(text, sizeof text, "%s ray %u: (%a, %a, %a) + t (%a, %a, %a), [%a, %a), time %a", name.c_str(),
                  number, ray.origin.x, ray.origin.y, ray.origin.z, ray.direction.x, ray.direction.y, ray.direction.z,
                  ray.tnear, ray.tfar, ray.time);
    return text;
  }

  QueryWorld& world_;
  const GasObject& structure_;
  const PolyMeshData& data_;
  GeometryRayPacket packet_;
};
