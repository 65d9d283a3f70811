// tests/support/curve_check.h
//
// Compares what a structure answers for curves with what testing every segment gives.
#pragma once
#include <gtest/gtest.h>

#include <map>

#include "gas/gas_fur.h"
#include "support/curve_scenes.h"
#include "support/hit_check.h"
#include "vq_core/core_log.h"
#include "vq_curve/tube_mesh_fast.h"

/// Curves with a structure over them.
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

/// What testing every segment gives, to hold a structure's answers against.
/// @param is_hidden  whether a segment is not to be hit
inline HitCheck make_curve_check(const CurveData& data, std::vector<TestRay> rays,
                                 const CtxMotionBlur* motion_blur = nullptr,
                                 const std::function<bool(uint)>& is_hidden = {}) {
  HitCheck check{std::move(rays), {}, motion_blur};
  std::map<double, CurveOracle> oracles;
  for (const TestRay& ray : check.rays) {
    const double time = motion_blur != nullptr ? ray.time : std::numeric_limits<double>::quiet_NaN();
    const CurveOracle& oracle = oracles.try_emplace(motion_blur != nullptr ? time : 0.0, data, time).first->second;
    std::vector<SureHit>& truth = check.truth.emplace_back(oracle.get_segments().size());
    for (uint segment = 0; segment < truth.size(); ++segment) {
      if (is_hidden && is_hidden(segment)) continue;
      const CurveCrossing crossing = oracle.intersect(ray, segment);
      truth[segment] = {crossing.answer, NAN, NAN};
      if (crossing.answer != SureAnswer::hit) continue;
      // Of a distance in double precision, along a ray that may be long.
      const double slack = 1e-12 * (crossing.high + ray.origin.get_length() / ray.direction.get_length());
      truth[segment] = {crossing.answer, crossing.low - slack, crossing.high + slack};
    }
  }
  return check;
}
