// Curve segments as unions of balls, against an oracle that takes them apart into balls: rays, names of surface points,
// boxes.
#include "vq_curve/curve_segment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "support/curve_scenes.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;
constexpr CurveShape linear = CurveShape::linear, cubic = CurveShape::cubic;
constexpr double infinity = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();

const char* const kinds[] = {"hair",       "any",         "S",     "loop",           "cusp", "pointed",
                             "thick bend", "double ends", "point", "back and forth", "far"};

/// Four balls of a curve of the kind.
void add_segment(CurveData& data, const std::string& kind, RandomValues& random) {
  Vec p[4] = {random.get_vec(), random.get_vec(), random.get_vec(), random.get_vec()};
  double radius[4];
  for (double& r : radius) r = random.get(0.02, 0.3);
  const auto straighten = [&](double bend) {
    for (uint k = 1; k < 3; ++k) p[k] = p[0] + (p[3] - p[0]) * (k / 3.0) + random.get_vec(bend);
  };
  if (kind == "hair" || kind == "pointed" || kind == "far") {
    straighten(kind == "pointed" ? 0.2 : 0.08);
    for (uint k = 0; k < 4; ++k) radius[k] = kind == "pointed" ? 0.05 * (3 - k) : random.get(0.005, 0.01);
  }
  if (kind == "S") {
    straighten(0.0);
    const Vec side = random.get_vec();
    p[1] += side;
    p[2] = p[2] - side;
  }
  if (kind == "loop" || kind == "cusp") {
    const Vec a = random.get_vec(), b = random.get_vec();
    const double cross = kind == "cusp" ? 1.0 : random.get(1.2, 3.0);
    p[3] = p[0] + a;
    p[1] = p[0] + a * cross + b;
    p[2] = p[0] + a * (1 - cross) + b;
    for (double& r : radius) r *= 0.3;
  }
  for (double& r : radius) r = kind == "thick bend" ? random.get(0.3, 0.9) : kind == "point" ? radius[0] : r;
  const std::size_t number = data.curve_sizes.size();
  if (kind == "double ends") p[1] = p[0], p[2] = number % 3 == 0 ? p[2] : p[3];
  if (kind == "point") p[1] = p[2] = p[3] = p[0];
  for (uint k = 1; k < 4 && kind == "back and forth"; ++k) p[k] = p[0] + (p[1] - p[0]) * random.get(-1.0, 1.0);
  if (kind == "back and forth" && number % 4 == 3) p[1] = p[2] = p[0] + Vec(1, 0, 0), p[3] = p[0];
  for (uint k = 1; k < 4 && number % 2 == 1; ++k) radius[k] = radius[0];
  const double scale = kind == "far" ? 0.01 : 1.0;
  const Vec shift = kind == "far" ? random.get_vec(1e4) : Vec();
  for (uint k = 0; k < 4; k += data.basis == CurveBasis::linear ? 3 : 1)
    data.points.push_back({GMathVec3<float>(p[k] * scale + shift), static_cast<float>(radius[k] * scale)});
  data.curve_sizes.push_back(data.basis == CurveBasis::linear ? 2 : 4);
}

/// Calls `check` with segments of each kind, their set and the oracle's.
template <CurveShape shape, class Check>
void for_each_kind(uint count, const Check& check) {
  for (const char* const& kind : kinds) {
    RandomValues random(static_cast<uint>(&kind - kinds) + count);
    CurveData data;
    data.basis = shape == linear ? CurveBasis::linear : CurveBasis::bezier;
    for (uint k = 0; k < count; ++k) add_segment(data, kind, random);
    const CurveOracle oracle(data);
    CurveSet set;
    CoreString error;
    ASSERT_TRUE(set.create(std::move(data), error)) << error.get_data();
    for (uint k = 0; k < count; ++k) {
      SCOPED_TRACE(testing::Message() << kind << ", segment " << k);
      check(set.get_segment<shape>(k, {}), oracle, k, std::string(kind));
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

/// From outside and inside, at ends too: the next crossing is where the oracle has it. Its u and v must lead back to
/// it.
template <CurveShape shape>
void check_rays() {
  uint hits = 0, misses = 0;
  for_each_kind<shape>(scaled(12, 6), [&](const CurveSegment<shape>& segment, const CurveOracle& oracle, uint number,
                                          const std::string& kind) {
    const CurveOracle::Segment& truth = oracle.get_segments()[number];
    RandomValues random(number);
    for (uint k = 0; k < 120; ++k) {
      const uint last = static_cast<uint>(truth.balls.size()) - 1;
      const CurveOracle::Ball& ball = truth.balls[k % 6 == 1 ? k % 4 / 2 * last : random.get_index(last + 1)];
      TestRay ray;
      const double aside = k % 3 == 1 ? 0.0 : ball.radius * random.get(0.0, 1.6);
      const Vec target = ball.position + random.get_vec().get_normalized() * aside;
      Vec direction = random.get_vec();
      const Vec along = truth.balls.back().position - ball.position;
      if (k % 4 == 0) direction = along + direction * std::pow(10.0, random.get(-7.0, 0.0));
      if (k % 12 == 1) direction = along;
      if (k % 12 == 2 || direction == Vec()) direction = {0, 0, 1};
      ray.direction = direction.get_normalized() * std::pow(10.0, random.get(-3.0, 3.0));
      const double distance = kind == "far" ? 1e4 : 5.0;
      ray.origin = k % 4 == 3 && ball.radius > 0
                       ? target
                       : target - direction.get_normalized() * (distance * random.get(1.0, 2.0));
      if (k % 5 == 0)
        ray.tnear = random.get(0.0, 2.0) * (target - ray.origin).get_length() / ray.direction.get_length();
      const CurveCrossing expected = oracle.intersect(ray, number);
      CurveHit hit;
      const bool found =
          curve_hit_segment(GMathBasicRay<double>(ray.origin, ray.direction), segment, ray.tnear, ray.tfar, hit);
      if (expected.answer == SureAnswer::close) continue;
      ++(expected.answer == SureAnswer::hit ? hits : misses);
      ASSERT_EQ(found, expected.answer == SureAnswer::hit) << describe(ray);
      if (!found) continue;
      const double length = ray.direction.get_length(), size = truth.around.radius;
      const double noise = 1e-11 * (ray.origin.get_length() + segment.point[0].position.get_length()) / length;
      EXPECT_GE(hit.distance, expected.low - noise) << describe(ray);
      EXPECT_LE(hit.distance, expected.high + noise) << describe(ray);
      const Vec place = ray.origin + ray.direction * hit.distance;
      const CurvePoint<double> on = segment.get_ball(std::clamp(hit.u, 0.0, 1.0));
      EXPECT_NEAR((place - on.position).get_length(), on.radius, 1e-6 * size + noise * length) << describe(ray);
      const CurveSurfacePoint surface = curve_get_surface_point(segment, hit.u, hit.v);
      double radius = 0.0;
      for (const CurvePoint<double>& point : segment.point) radius = std::max(radius, point.radius);
      // Near a turn of a straight curve the distance itself is that far off.
      const double slack = (kind == "back and forth" ? 5e-6 : 1e-7) * radius + noise * length;
      EXPECT_LE((surface.position - place).get_length(), slack) << describe(ray);
      EXPECT_NEAR(surface.normal.get_length(), 1.0, 1e-12);
      EXPECT_NEAR(surface.tangent.get_length(), 1.0, 1e-12);
    }
  });
  EXPECT_GT(hits, 2000u);
  EXPECT_GT(misses, 1000u);
}

TEST(CurveSegment, a_ray_along_the_axis_hits_a_pointed_segment) {
  // The search for the hit begins at the pointed end, which lies on the ray in every bit.
  CurveSegment<linear> segment;
  segment.point[0] = {{0.34631943702697754, -0.012753034010529518, -0.45475879311561584}, 0.15000000596046448};
  segment.point[1] = {{0.00023991931811906397, -0.6986963152885437, -0.50147914886474609}, 0.0};
  const GMathBasicRay<double> ray({0x1.7673ef0445f47p+1, 0x1.4657db619e3ddp+2, -0x1.b49168c99c158p-4},
                                  {-0x1.e10f0050a07dfp-7, -0x1.dcbd13615187bp-6, -0x1.03c500418f2a1p-9});
  CurveHit hit;
  ASSERT_TRUE(curve_hit_segment(ray, segment, 0.0, DBL_MAX, hit));
  const Vec to_first = segment.point[0].position - ray.get_point(hit.distance);
  EXPECT_NEAR(to_first.get_length(), segment.point[0].radius, 1e-9);
}

TEST(CurveSegment, linear_rays_agree_with_balls) { check_rays<linear>(); }
TEST(CurveSegment, cubic_rays_agree_with_balls) { check_rays<cubic>(); }

template <CurveShape shape>
void check_boxes() {
  for_each_kind<shape>(40, [](const CurveSegment<shape>& segment, const CurveOracle&, uint, const std::string&) {
    const GMathLinearSpace3<double> space = curve_get_space(segment);
    const GMathBbox3<double> box = curve_get_bbox_in_space(segment, space);
    GMathBbox3<double> balls;
    for (uint i = 0; i <= 2000; ++i) {
      const CurvePoint<double> ball = segment.get_ball(i / 2000.0);
      const Vec at = space.measure(ball.position), reach = Vec(1, 1, 1) * ball.radius;
      balls.add({at - reach, at + reach});
    }
    const double size = box.get_extent().get_length(), slack = 1e-11 * (size + 1 + balls.max.get_length());
    for (uint axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(space.axis[axis].dot(space.axis[axis]), 1.0, 1e-12);
      EXPECT_NEAR(space.axis[axis].dot(space.axis[(axis + 1) % 3]), 0.0, 1e-12);
      EXPECT_LE(box.min[axis], balls.min[axis] + slack);
      EXPECT_GE(box.max[axis], balls.max[axis] - slack);
      EXPECT_NEAR(box.min[axis], balls.min[axis], 2e-6 * size + slack);
      EXPECT_NEAR(box.max[axis], balls.max[axis], 2e-6 * size + slack);
    }
  });
}

TEST(CurveSegment, boxes_hold_the_balls_tightly) {
  check_boxes<linear>();
  check_boxes<cubic>();
}

TEST(CurveSegment, bad_numbers_and_no_thickness_are_hit_by_nothing) {
  CurveHit hit;
  const GMathBasicRay<double> ray(Vec(1, 1, -5), Vec(0, 0, 1));
  const CurveSegment<cubic> good{{{Vec(0, 0, 0), 1}, {Vec(1, 2, 0), 1}, {Vec(2, 2, 1), 1}, {Vec(3, 0, 0), 1}}};
  ASSERT_TRUE(curve_hit_segment(ray, good, 0.0, infinity, hit));
  for (const double bad : {nan, infinity, -infinity}) {
    for (uint k = 0; k < 16; ++k) {
      CurveSegment<cubic> segment = good;
      (k % 4 == 3 ? segment.point[k / 4].radius : segment.point[k / 4].position[k % 4]) = bad;
      EXPECT_FALSE(curve_hit_segment(ray, segment, 0.0, infinity, hit)) << k;
      const bool counts_as_none = k % 4 == 3 && bad < 0;
      EXPECT_EQ(gmath_is_valid_box(curve_get_bbox(segment)), counts_as_none) << k;
    }
    for (uint k = 0; k < 6; ++k) {
      GMathBasicRay<double> bad_ray = ray;
      (k < 3 ? bad_ray.origin : bad_ray.direction)[k % 3] = bad;
      EXPECT_FALSE(curve_hit_segment(bad_ray, good, 0.0, infinity, hit)) << k;
    }
  }
  EXPECT_FALSE(curve_hit_segment(ray, good, nan, infinity, hit));
  EXPECT_FALSE(curve_hit_segment(ray, good, 0.0, nan, hit));
  EXPECT_FALSE(curve_hit_segment(GMathBasicRay<double>(Vec(1, 1, 0), Vec()), good, 0.0, infinity, hit));
  CurveSegment<cubic> thread = good;
  for (auto& point : thread.point) point.radius = -1.0;
  EXPECT_FALSE(curve_hit_segment(GMathBasicRay<double>(Vec(0, 0, -1), Vec(0, 0, 1)), thread, 0.0, infinity, hit));
}

}  // namespace
