// tests/support/structure_check.h
//
// Compares what a structure answers with what testing every polygon gives.
#pragma once
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "support/mesh_oracle.h"
#include "support/ray_query.h"

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
    CheckCounts counts{static_cast<uint>(rays.size())};
    find_expected(rays, counts);
    query(packet_, rays, true);
    for (uint k = 0; k < rays.size(); ++k) check_nearest(rays[k], k, counts);
    query(packet_, rays, false);
    check_all(rays, counts);
    return counts;
  }

  void query(GeometryRayPacket& packet, const std::vector<TestRay>& rays, bool nearest) {
    ask_rays(world_, structure_, packet, rays, {nearest, motion_blur, [&](GeometryRaytraceCtx& query) {
                                                  query.shading_group_offset = group_offset;
                                                  query.instance = 5;
                                                }});
  }

 private:
  void find_expected(const std::vector<TestRay>& rays, CheckCounts& counts) {
    expected_.clear();
    std::map<double, std::vector<std::vector<Long3>>> at_time;
    for (const TestRay& ray : rays) {
      auto& moved = at_time[motion_blur != nullptr ? ray.time : 0.0];
      if (moved.empty()) moved = motion_blur != nullptr ? get_all_corners(data_, ray.time) : get_all_corners(data_);
      // A ray begins at its origin even if its interval begins before it.
      const OracleRay asked{Long3(ray.origin), Long3(ray.direction), std::max(ray.tnear, 0.0), ray.tfar};
      std::vector<OracleHit>& hits = expected_.emplace_back();
      for (uint p = 0; p < moved.size(); ++p) {
        hits.push_back(!hidden.empty() && hidden[p] != 0 ? OracleHit() : oracle_intersect(asked, moved[p]));
        counts.sure_hits += hits.back().answer == OracleAnswer::hit;
      }
    }
  }

  void check_nearest(const TestRay& ray, uint number, CheckCounts& counts) {
    const GeometryIntersection& hit = packet_.get_nearest(number);
    long double nearest = HUGE_VALL;
    for (const OracleHit& candidate : expected_[number])
      if (candidate.answer == OracleAnswer::hit) nearest = std::min(nearest, candidate.t + candidate.tolerance);
    EXPECT_LE(hit.distance, std::min<long double>(nearest, ray.tfar)) << name << " ray " << number << describe(ray);
    if (hit.geometry != nullptr) {
      ++counts.reported;
      check_hit(hit, ray, number);
    } else {
      EXPECT_EQ(hit.distance, ray.tfar);
      EXPECT_EQ(nearest, HUGE_VALL) << name << " ray " << number << describe(ray);
    }
  }

  void check_all(const std::vector<TestRay>& rays, CheckCounts& counts) {
    std::vector<std::multiset<uint>> found(rays.size());
    for (const GeometryHit& hit : packet_.get_hits().get_hits()) {
      ++counts.reported;
      check_hit(hit.hit, rays[hit.ray], hit.ray);
      found[hit.ray].insert(hit.hit.primitive);
    }
    for (uint k = 0; k < rays.size(); ++k) {
      for (uint p = 0; p < expected_[k].size(); ++p) {
        if (expected_[k][p].answer != OracleAnswer::hit) continue;
        // The diagonals of a polygon belong to two triangles of it.
        const std::size_t count = found[k].count(p);
        EXPECT_TRUE(count == 1 || (count == 2 && data_.polygon_sizes[p] > 3))
            << name << " ray " << k << describe(rays[k]) << " polygon " << p << " was reported " << count << " times";
      }
    }
  }

  void check_hit(const GeometryIntersection& hit, const TestRay& ray, uint number) const {
    ASSERT_LT(hit.primitive, expected_[number].size());
    const OracleHit& truth = expected_[number][hit.primitive];
    EXPECT_NE(truth.answer, OracleAnswer::missed) << name << " ray " << number << describe(ray);
    if (truth.answer != OracleAnswer::missed && !std::isnan(truth.t)) {
      EXPECT_NEAR(hit.distance, static_cast<double>(truth.t), static_cast<double>(truth.tolerance))
          << name << " ray " << number << describe(ray) << " polygon " << hit.primitive;
    }
    EXPECT_EQ(hit.instance, 5u);
    EXPECT_GE(hit.distance, ray.tnear);
    EXPECT_LT(hit.distance, ray.tfar);
  }

  QueryWorld& world_;
  const GasObject& structure_;
  const PolyMeshData& data_;
  GeometryRayPacket packet_;
  std::vector<std::vector<OracleHit>> expected_;  ///< [ray][polygon]
};
