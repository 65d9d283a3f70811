// tests/support/curve_check.h
//
// Compares what a structure answers for fibres with what testing every segment gives.
#pragma once
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "gas/gas_fur.h"
#include "support/curve_scenes.h"
#include "support/ray_query.h"
#include "vq_core/core_log.h"
#include "vq_curve/tube_mesh_fast.h"

/// Fibres with a structure over them.
struct BuiltFur {
  BuiltFur(const CtxEval& ctx, const CurveData& source, bool oriented = true, AppProgressBar* progress = nullptr)
      : data(source) {
    CoreLogHandler::get_main().set_level(0);
    CoreString error;
    EXPECT_TRUE(geometry.create(CurveData(data), error)) << error.get_data();
    structure.set_oriented_nodes(oriented);
    EXPECT_TRUE(structure.create(ctx, &geometry, &geometry, progress));
  }
  CurveData data;
  TubeMeshFast geometry;
  GasFur structure;
};

/// Rays, and what they surely hit and miss.
class CurveCheck {
 public:
  /// @param motion_blur  set: rays have their times and the motion functions are asked
  CurveCheck(QueryWorld& world, const CurveData& data, std::vector<TestRay> rays,
             const CtxMotionBlur* motion_blur = nullptr)
      : world_(world), rays_(std::move(rays)), motion_blur_(motion_blur) {
    std::map<double, CurveOracle> oracles;
    for (const TestRay& ray : rays_) {
      const double time = motion_blur != nullptr ? ray.time : std::numeric_limits<double>::quiet_NaN();
      const CurveOracle& oracle = oracles.try_emplace(motion_blur != nullptr ? time : 0.0, data, time).first->second;
      std::vector<CurveCrossing>& truth = truth_.emplace_back();
      for (uint segment = 0; segment < oracle.get_segments().size(); ++segment) {
        truth.push_back(oracle.intersect(ray, segment));
        sure_hits += truth.back().answer == CurveAnswer::hit;
      }
    }
  }

  uint sure_hits = 0;
  std::string name;        ///< told when something disagrees
  std::vector<u8> hidden;  ///< per segment: not to be hit; empty: none

  /// @param all_complete  whether queries for all hits must find every one
  void check(const GasObject& structure, bool all_complete = false) {
    ask_rays(world_, structure, packet_, rays_, {true, motion_blur_});
    for (uint ray = 0; ray < rays_.size(); ++ray) check_nearest(ray);
    ask_rays(world_, structure, packet_, rays_, {false, motion_blur_});
    std::vector<std::multiset<uint>> found(rays_.size());
    for (const GeometryHit& hit : packet_.get_hits().get_hits()) {
      check_hit(hit.hit, hit.ray);
      found[hit.ray].insert(hit.hit.primitive);
    }
    for (uint ray = 0; ray < rays_.size() && all_complete; ++ray)
      for (uint segment = 0; segment < truth_[ray].size(); ++segment)
        EXPECT_TRUE(!is_sure(ray, segment) || found[ray].count(segment) == 1) << say(ray) << " segment " << segment;
  }

 private:
  bool is_hidden(uint segment) const { return !hidden.empty() && hidden[segment] != 0; }
  bool is_sure(uint ray, uint segment) const {
    return !is_hidden(segment) && truth_[ray][segment].answer == CurveAnswer::hit;
  }

  void check_nearest(uint ray) {
    double nearest = HUGE_VAL;
    for (uint segment = 0; segment < truth_[ray].size(); ++segment)
      if (is_sure(ray, segment)) nearest = std::min(nearest, truth_[ray][segment].high);
    const GeometryIntersection& hit = packet_.get_nearest(ray);
    EXPECT_LE(hit.distance, nearest + get_slack(ray, nearest)) << say(ray);
    if (hit.geometry != nullptr) check_hit(hit, ray);
    EXPECT_TRUE(hit.geometry != nullptr || (hit.distance == rays_[ray].tfar && nearest == HUGE_VAL)) << say(ray);
  }

  void check_hit(const GeometryIntersection& hit, uint ray) {
    ASSERT_LT(hit.primitive, truth_[ray].size());
    ASSERT_FALSE(is_hidden(hit.primitive)) << say(ray);
    const CurveCrossing& truth = truth_[ray][hit.primitive];
    EXPECT_NE(truth.answer, CurveAnswer::missed) << say(ray) << " hit " << hit.primitive;
    if (truth.answer == CurveAnswer::hit) {
      EXPECT_GE(hit.distance, truth.low - get_slack(ray, truth.low)) << say(ray) << " hit " << hit.primitive;
      EXPECT_LE(hit.distance, truth.high + get_slack(ray, truth.high)) << say(ray) << " hit " << hit.primitive;
    }
    EXPECT_GE(hit.distance, rays_[ray].tnear);
    EXPECT_LT(hit.distance, rays_[ray].tfar);
  }

  /// Of a distance in double precision, along a ray that may be long.
  double get_slack(uint ray, double distance) const {
    return 1e-12 * (distance + rays_[ray].origin.get_length() / rays_[ray].direction.get_length());
  }

  std::string say(uint ray) const { return name + " ray " + std::to_string(ray) + ": " + describe(rays_[ray]); }

  QueryWorld& world_;
  std::vector<TestRay> rays_;
  const CtxMotionBlur* motion_blur_;
  std::vector<std::vector<CurveCrossing>> truth_;  ///< [ray][segment]
  GeometryRayPacket packet_;
};
