// tests/support/structure_check.h
//
// Compares what a structure answers with what testing every polygon gives.
#pragma once
#include <gtest/gtest.h>

#include <map>
#include <optional>
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
  uint rays = 0, sure_hits = 0, close_calls = 0, reported = 0;
};

/// One mesh, one structure over it, and which polygons are there to be hit.
class StructureCheck {
 public:
  StructureCheck(QueryWorld& world, const GasObject& structure, const PolyMeshData& data)
      : world_(world), structure_(structure), data_(data), corners_(get_all_corners(data)) {}

  std::string name;                            ///< told when something disagrees
  const CtxMotionBlur* motion_blur = nullptr;  ///< set: rays carry times and the motion functions are asked
  std::vector<u8> hidden;                      ///< per polygon: not to be hit; empty: none
  uint group_offset = 0;
  u64 cluster = 0;

  CheckCounts check(const std::vector<TestRay>& rays) {
    CheckCounts counts;
    const std::vector<std::vector<OracleHit>> expected = find_expected(rays, counts);
    check_nearest(rays, expected, counts);
    check_all(rays, expected, counts);
    return counts;
  }

  /// A ray begins at its origin even if its interval begins before it.
  static OracleRay get_oracle_ray(const TestRay& ray) {
    return {Long3(ray.origin), Long3(ray.direction), std::max(ray.tnear, 0.0), ray.tfar};
  }

  /// Prepares the rays in the packet and asks.
  void query(GeometryRayPacket& packet, const std::vector<TestRay>& rays, bool nearest) {
    packet.resize(static_cast<uint>(rays.size()));
    for (uint k = 0; k < rays.size(); ++k)
      packet.set_ray(k, rays[k].origin, rays[k].direction, rays[k].tnear, rays[k].tfar, rays[k].time);
    GeometryRaytraceCtx& query = nearest ? packet.begin_nearest(world_.shading) : packet.begin_all_hits(world_.shading);
    query.shading_group_offset = group_offset;
    query.cluster = cluster;
    world_.shader.motion_blur = motion_blur;
    if (nearest) {
      motion_blur != nullptr ? structure_.ray_hit_nearest_motion(world_.ctx, world_.shader, query)
                             : structure_.ray_hit_nearest_static(world_.ctx, world_.shader, query);
    } else {
      motion_blur != nullptr ? structure_.ray_hit_motion(world_.ctx, world_.shader, query)
                             : structure_.ray_hit_static(world_.ctx, world_.shader, query);
    }
    EXPECT_EQ(query.first_ray, 0u);
    EXPECT_EQ(query.last_ray, rays.size() - 1);
    EXPECT_EQ(query.filter_count, 0u);
  }

 private:
  std::vector<std::vector<OracleHit>> find_expected(const std::vector<TestRay>& rays, CheckCounts& counts) const {
    std::vector<std::vector<OracleHit>> expected;
    std::map<double, std::vector<std::vector<Long3>>> at_time;
    for (const TestRay& ray : rays) {
      const OracleRay oracle_ray = get_oracle_ray(ray);
      std::vector<OracleHit> hits;
      for (uint p = 0; p < data_.polygon_sizes.size(); ++p) {
        OracleHit hit;
        if (hidden.empty() || hidden[p] == 0) {
          hit = oracle_intersect(oracle_ray, motion_blur != nullptr ? get_corners(at_time, ray.time)[p] : corners_[p]);
          if (motion_blur != nullptr && hit.answer == OracleAnswer::hit && !is_in_blended_box(p, hit, ray))
            hit.answer = OracleAnswer::close;
        }
        counts.sure_hits += hit.answer == OracleAnswer::hit;
        counts.close_calls += hit.answer == OracleAnswer::close;
        hits.push_back(hit);
      }
      expected.push_back(hits);
    }
    counts.rays += static_cast<uint>(rays.size());
    return expected;
  }

  const std::vector<std::vector<Long3>>& get_corners(std::map<double, std::vector<std::vector<Long3>>>& at_time,
                                                     double time) const {
    auto& corners = at_time[time];
    if (corners.empty())
      for (uint p = 0; p < data_.polygon_sizes.size(); ++p) corners.push_back(get_corners_at(data_, p, time));
    return corners;
  }

  /// A tree knows a polygon's boxes at the shutter's samples only. Between them the polygon may leave the blend of its
  /// boxes, when its own samples lie elsewhere; it is then lost where it sticks out.
  bool is_in_blended_box(uint polygon, const OracleHit& hit, const TestRay& ray) const {
    const GMathTimeSampling& sampling = motion_blur->get_time_sampling();
    const uint last = sampling.get_sample_count() - 1;
    const long double place =
        last == 0 ? 0.0L
                  : std::clamp((static_cast<long double>(ray.time) - sampling.get_begin()) / sampling.get_step(), 0.0L,
                               static_cast<long double>(last));
    const uint first = std::min(static_cast<uint>(place), last);
    const long double f = place - first;
    const auto before = get_corners_at(data_, polygon, sampling.get_sample_time(first));
    const auto after = get_corners_at(data_, polygon, sampling.get_sample_time(std::min(first + 1, last)));
    const long double size = std::max(get_size(Long3(ray.origin)), get_size(hit.point));
    for (uint axis = 0; axis < 3; ++axis) {
      long double low[2] = {HUGE_VALL, HUGE_VALL}, high[2] = {-HUGE_VALL, -HUGE_VALL};
      for (std::size_t k = 0; k < before.size(); ++k) {
        for (uint s = 0; s < 2; ++s) {
          low[s] = std::min(low[s], (s == 0 ? before : after)[k][axis]);
          high[s] = std::max(high[s], (s == 0 ? before : after)[k][axis]);
        }
      }
      const long double band = 0x1p-22L * size;
      if (hit.point[axis] < low[0] * (1 - f) + low[1] * f + band) return false;
      if (hit.point[axis] > high[0] * (1 - f) + high[1] * f - band) return false;
    }
    return true;
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
  const std::vector<std::vector<Long3>> corners_;
  GeometryRayPacket packet_;
};
