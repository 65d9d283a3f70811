// The same fibres and the same rays for the fur structure and for Embree's curves. Embree sweeps a circle along a cubic
// and leaves it open at the ends, ours are balls; both are compared where an oracle says that the nearest hit would be
// the same for radii three in a hundred larger or smaller, and that it is not on the end of a fibre.
#include "support/curve_check.h"
#include "support/embree_scene.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;

constexpr double silhouette = 0.03;  // of the radius

void add_curves(const EmbreeScene& embree, const CurveData& data, RTCGeometryType type) {
  const uint samples = static_cast<uint>(std::max<std::size_t>(data.motion_points.size(), 1));
  RTCGeometry geometry = embree.make_geometry(type, samples);
  for (uint sample = 0; sample < samples; ++sample)
    EmbreeScene::fill(geometry, RTC_BUFFER_TYPE_VERTEX, sample, RTC_FORMAT_FLOAT4,
                      data.motion_points.empty() ? data.points : data.motion_points[sample]);
  const uint used = data.basis == CurveBasis::linear ? 2 : 4, step = data.basis == CurveBasis::bezier ? 3 : 1;
  std::vector<uint> first_points;
  uint first = 0;
  for (const u32 size : data.curve_sizes) {
    for (uint at = 0; at + used <= size; at += step) first_points.push_back(first + at);
    first += size;
  }
  EmbreeScene::fill(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT, first_points);
  rtcSetGeometryTessellationRate(geometry, 16);  // of flat curves
  EmbreeScene::attach(embree.get_scene(), geometry);
  rtcCommitScene(embree.get_scene());
}

/// From outside towards balls of the fibres and beside them, in numbers that are exact in single precision.
std::vector<TestRay> make_outside_rays(const CurveOracle& oracle, uint count, uint seed, double time) {
  RandomValues random(seed);
  std::vector<TestRay> rays(count);
  for (TestRay& ray : rays) {
    const auto& segment = oracle.get_segments()[random.get_index(static_cast<uint>(oracle.get_segments().size()))];
    const auto& ball = segment.balls[random.get_index(static_cast<uint>(segment.balls.size()))];
    ray.origin = Vec(GMathVec3<float>(random.get_vec().get_normalized() * random.get(4.0, 8.0)));
    const Vec target = ball.position + random.get_vec(1.2 * ball.radius);
    ray.direction = Vec(GMathVec3<float>((target - ray.origin).get_normalized()));
    ray.time = time;
  }
  return rays;
}

/// The nearest hit if it does not depend on the last hundredths of the radii, else `close`.
CurveCrossing find_nearest(const CurveOracle& oracle, const TestRay& ray) {
  CurveCrossing nearest{SureAnswer::missed, 0.0, HUGE_VAL};
  double unsure = HUGE_VAL;
  for (uint segment = 0; segment < oracle.get_segments().size(); ++segment) {
    const CurveCrossing crossing = oracle.intersect(ray, segment);
    if (crossing.answer == SureAnswer::close) unsure = std::min(unsure, crossing.low);
    if (crossing.answer == SureAnswer::hit && crossing.high < nearest.high) nearest = crossing;
  }
  if (unsure < nearest.high) nearest.answer = SureAnswer::close;
  return nearest;
}

struct Compared {
  uint hits = 0, misses = 0, silhouettes = 0;
};

/// @param is_flat  Embree's are ribbons that face the ray: where one is hit well inside there must be a fibre
Compared compare(const CurveData& data, RTCGeometryType type, bool is_flat, const CtxMotionBlur* shutter,
                 double time = 0.0) {
  QueryWorld world;
  const BuiltFur built(world.ctx, data);
  const EmbreeScene embree;
  add_curves(embree, data, type);
  const CurveOracle oracle(data, shutter != nullptr ? time : std::nan(""), silhouette);
  const std::vector<TestRay> rays = make_outside_rays(oracle, scaled(2000, 300), 1, time);
  GeometryRayPacket packet;
  ask_rays(world, built.structure, packet, rays, {true, shutter});
  Compared counts;
  for (uint k = 0; k < rays.size(); ++k) {
    const GeometryIntersection& ours = packet.get_nearest(k);
    const RTCRayHit theirs = embree.shoot(rays[k]);
    const bool is_hit = theirs.hit.geomID != RTC_INVALID_GEOMETRY_ID;
    if (is_flat) {
      if (!is_hit || std::fabs(theirs.hit.v) > 0.8) continue;
      ++counts.hits;
      EXPECT_NE(ours.geometry, nullptr) << "ray " << k;
      EXPECT_LE(ours.distance, theirs.ray.tfar + 1e-3) << "ray " << k;
      continue;
    }
    const CurveCrossing truth = find_nearest(oracle, rays[k]);
    const bool on_end = ours.geometry != nullptr && (ours.u < 0.02 || ours.u > 0.98);
    if (truth.answer == SureAnswer::close || on_end) {
      ++counts.silhouettes;
    } else if (truth.answer == SureAnswer::missed) {
      ++counts.misses;
      EXPECT_EQ(ours.geometry, nullptr) << "ray " << k;
      EXPECT_FALSE(is_hit) << "ray " << k;
    } else {
      ++counts.hits;
      EXPECT_NE(ours.geometry, nullptr) << "ray " << k;
      EXPECT_TRUE(is_hit) << "ray " << k << ", ours at " << ours.distance;
      EXPECT_NEAR(ours.distance, theirs.ray.tfar, truth.high - truth.low + 1e-5) << "ray " << k;
    }
  }
  return counts;
}

struct Kind {
  CurveBasis basis;
  RTCGeometryType type;
};
constexpr Kind round_kinds[] = {{CurveBasis::linear, RTC_GEOMETRY_TYPE_ROUND_LINEAR_CURVE},
                                {CurveBasis::bezier, RTC_GEOMETRY_TYPE_ROUND_BEZIER_CURVE},
                                {CurveBasis::bspline, RTC_GEOMETRY_TYPE_ROUND_BSPLINE_CURVE},
                                {CurveBasis::catmull_rom, RTC_GEOMETRY_TYPE_ROUND_CATMULL_ROM_CURVE}};

TEST(EmbreeCurves, round_fibres_at_rest_and_moving) {
  const CtxMotionBlur shutter(0.0, 1.0, 3);
  for (const Kind& kind : round_kinds) {
    for (const double time : {-1.0, 0.0, 0.2, 0.5, 0.9, 1.0}) {
      SCOPED_TRACE("type " + std::to_string(kind.type) + " at " + std::to_string(time));
      CurveData data = make_hair(kind.basis, 60, 9, 0.05, 3.0, 0.02, kind.basis == CurveBasis::bezier ? 4 : 7);
      if (time >= 0.0) add_motion(data, 3, 0.0, 0.5, 10);
      const Compared counts = compare(data, kind.type, false, time >= 0.0 ? &shutter : nullptr, std::max(time, 0.0));
      EXPECT_GT(counts.hits, 100u);
      EXPECT_GT(counts.misses, 20u);
      EXPECT_LT(counts.silhouettes, counts.hits);
    }
  }
}

TEST(EmbreeCurves, flat_fibres_lie_within_round_ones) {
  for (const Kind& kind : {Kind{CurveBasis::linear, RTC_GEOMETRY_TYPE_FLAT_LINEAR_CURVE},
                           {CurveBasis::bezier, RTC_GEOMETRY_TYPE_FLAT_BEZIER_CURVE},
                           {CurveBasis::bspline, RTC_GEOMETRY_TYPE_FLAT_BSPLINE_CURVE}}) {
    SCOPED_TRACE("type " + std::to_string(kind.type));
    EXPECT_GT(compare(make_hair(kind.basis, 300, 4, 0.05, 3.0, 0.01, 7), kind.type, true, nullptr).hits, 100u);
  }
}

}  // namespace
