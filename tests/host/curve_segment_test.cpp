// Fibre segments as unions of balls, against thousands of balls in long double: rays, names of surface points, boxes.
#include "vq_curve/curve_segment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "support/random_values.h"
#include "support/test_scale.h"

namespace {

using Vec = GMathVec3<double>;
using Long = GMathVec3<long double>;
constexpr CurveShape linear = CurveShape::linear, cubic = CurveShape::cubic;
constexpr double infinity = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();

struct LongBall {
  Long center;
  long double radius = 0;
};

template <CurveShape shape>
LongBall get_ball(const CurveSegment<shape>& segment, long double u) {
  LongBall ball[4];
  uint count = segment.point_count;
  for (uint k = 0; k < count; ++k)
    ball[k] = {Long(segment.point[k].position), std::max(0.0L, static_cast<long double>(segment.point[k].radius))};
  for (; count > 1; --count) {
    for (uint k = 0; k + 1 < count; ++k)
      ball[k] = {ball[k].center * (1 - u) + ball[k + 1].center * u, ball[k].radius * (1 - u) + ball[k + 1].radius * u};
  }
  return ball[0];
}

struct Span {
  long double in = 1, out = -1;  ///< in > out: not touched
};

/// In units of the direction.
Span cut(const LongBall& ball, const Long& origin, const Long& direction) {
  const Long to_ball = ball.center - origin;
  const long double length = direction.get_length(), middle = to_ball.dot(direction) / (length * length);
  const Long aside = to_ball - direction * middle;
  const long double q = ball.radius * ball.radius - aside.dot(aside);
  if (q < 0) return {1 - q, q - 1};  // keeps its order for the search below
  return {middle - std::sqrt(q) / length, middle + std::sqrt(q) / length};
}

/// What thousands of balls tell of a ray.
template <CurveShape shape>
class Oracle {
 public:
  explicit Oracle(const CurveSegment<shape>& segment) : segment_(segment) {
    for (uint k = 0; k <= steps; ++k) balls_.push_back(get_ball(segment, static_cast<long double>(k) / steps));
    for (const LongBall& ball : balls_) {
      radius_ = std::max(radius_, static_cast<double>(ball.radius));
      size_ = std::max(size_, static_cast<double>((ball.center - balls_[0].center).get_length() + ball.radius));
    }
    for (uint k = 0; k < steps; ++k)
      gap_ = std::max({gap_, (balls_[k + 1].center - balls_[k].center).get_length(),
                       std::fabs(balls_[k + 1].radius - balls_[k].radius)});
  }
  /// Largest step from ball to ball: with radii grown by it the balls hold the solid.
  long double get_gap() const { return gap_; }

  double get_largest_radius() const { return radius_; }
  /// How far the solid reaches from its first point.
  double get_size() const { return size_; }

  std::vector<Span> get_spans(const Long& origin, const Long& direction, long double grow) const {
    std::vector<Span> spans, merged;
    for (const LongBall& ball : balls_) {
      const Span span = cut({ball.center, ball.radius + grow}, origin, direction);
      if (span.in < span.out) spans.push_back(span);
    }
    std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.in < b.in; });
    for (const Span& span : spans) {
      if (merged.empty() || span.in > merged.back().out)
        merged.push_back(span);
      else
        merged.back().out = std::max(merged.back().out, span.out);
    }
    return merged;
  }

  /// The first way in, narrowed down between the balls. Infinite when no ball is touched.
  long double get_entry(const Long& origin, const Long& direction) const {
    uint best = steps + 1;
    long double entry = infinity;
    for (uint k = 0; k <= steps; ++k) {
      const Span span = cut(balls_[k], origin, direction);
      if (span.in > span.out || span.in >= entry) continue;
      best = k;
      entry = span.in;
    }
    if (best > steps) return entry;
    long double low = (best > 0 ? best - 1.0L : 0.0L) / steps, high = std::min(best + 1.0L, 0.0L + steps) / steps;
    const auto measure = [&](long double u) {
      const Span span = cut(get_ball(segment_, u), origin, direction);
      return span.in > span.out ? entry + span.in : span.in;
    };
    for (uint k = 0; k < 120; ++k) {
      const long double a = low + (high - low) / 3, b = high - (high - low) / 3;
      (measure(a) < measure(b) ? high : low) = measure(a) < measure(b) ? b : a;
    }
    return std::min(entry, measure(low));
  }

 private:
  static constexpr uint steps = 4000;
  CurveSegment<shape> segment_;
  std::vector<LongBall> balls_;
  long double gap_ = 0;
  double radius_ = 0, size_ = 0;
};

const char* const kinds[] = {"hair",       "any",         "S",     "loop",           "cusp", "pointed",
                             "thick bend", "double ends", "point", "back and forth", "far"};

template <CurveShape shape>
CurveSegment<shape> make_segment(uint kind, RandomValues& random) {
  CurveSegment<shape> segment;
  Vec p[4] = {random.get_vec(), random.get_vec(), random.get_vec(), random.get_vec()};
  double radius[4];
  for (double& r : radius) r = random.get(0.02, 0.3);
  const std::string name = kinds[kind];
  const auto straighten = [&](double bend) {
    for (uint k = 1; k < 3; ++k) p[k] = p[0] + (p[3] - p[0]) * (k / 3.0) + random.get_vec(bend);
  };
  if (name == "hair" || name == "pointed" || name == "far") {
    straighten(name == "pointed" ? 0.2 : 0.08);
    for (uint k = 0; k < 4; ++k) radius[k] = name == "pointed" ? 0.05 * (3 - k) : random.get(0.005, 0.01);
  }
  if (name == "S") {
    straighten(0.0);
    const Vec side = random.get_vec();
    p[1] += side;
    p[2] = p[2] - side;
  }
  if (name == "loop" || name == "cusp") {
    const Vec a = random.get_vec(), b = random.get_vec();
    const double cross = name == "cusp" ? 1.0 : random.get(1.2, 3.0);
    p[3] = p[0] + a;
    p[1] = p[0] + a * cross + b;
    p[2] = p[0] + a * (1 - cross) + b;
    for (double& r : radius) r *= 0.3;
  }
  if (name == "thick bend") {
    for (double& r : radius) r = random.get(0.3, 0.9);
  }
  if (name == "double ends") {
    p[1] = p[0];
    p[2] = p[3];
  }
  if (name == "point") {
    p[1] = p[2] = p[3] = p[0];
    radius[1] = radius[2] = radius[3] = radius[0];
  }
  if (name == "back and forth") {
    for (uint k = 1; k < 4; ++k) p[k] = p[0] + (p[1] - p[0]) * random.get(-1.0, 1.0);
  }
  const double scale = name == "far" ? 0.01 : 1.0;
  const Vec shift = name == "far" ? random.get_vec(1e4) : Vec();
  for (uint k = 0; k < segment.point_count; ++k) {
    const uint from = segment.point_count == 2 ? 3 * k : k;
    segment.point[k] = {Vec(GMathVec3<float>(p[from] * scale + shift)), radius[from] * scale};
  }
  return segment;
}

struct Shot {
  Vec origin, direction;
  bool inside = false;
};

template <CurveShape shape>
Shot make_shot(const CurveSegment<shape>& segment, RandomValues& random, double distance) {
  const LongBall ball = get_ball(segment, random.get(0.0, 1.0));
  const LongBall next = get_ball(segment, random.get(0.0, 1.0));
  const Vec target =
      Vec(ball.center) + random.get_vec().get_normalized() * (static_cast<double>(ball.radius) * random.get(0.0, 1.6));
  Vec direction = random.get_vec();
  if (random.get_index(4) == 0)
    direction = Vec(next.center - ball.center) + direction * std::pow(10.0, random.get(-7.0, 0.0));
  if (random.get_index(12) == 0) direction = Vec(next.center - ball.center);
  if (random.get_index(12) == 0) direction = Vec(0, 0, 1);
  if (direction == Vec()) direction = Vec(1, 0, 0);
  direction = direction.get_normalized() * std::pow(10.0, random.get(-3.0, 3.0));
  Shot shot{target, direction, random.get_index(4) == 0};
  if (!shot.inside) shot.origin = target - direction * (distance * (1 + random.get(0.0, 1.0)) / direction.get_length());
  return shot;
}

double get_noise(const Shot& shot, const Vec& place) {
  return 1e-15 * (shot.origin.get_length() + place.get_length() + (shot.origin - place).get_length());
}

/// From outside. The entry found may not lie behind that of the balls, and must lie on the ball that it names: together
/// no other entry satisfies both. Its u and v must lead back to it, less exactly so at a cusp, where u stands still.
template <CurveShape shape>
void check_entry(const CurveSegment<shape>& segment, const Oracle<shape>& oracle, const Shot& shot, double slack) {
  const double radius = oracle.get_largest_radius(), noise = get_noise(shot, segment.point[0].position);
  const double length = shot.direction.get_length(), tolerance = 1e-7 * radius + noise;
  const Long origin(shot.origin), direction(shot.direction);
  CurveHit hit;
  const bool found = curve_hit_segment(GMathBasicRay<double>(shot.origin, shot.direction), segment, 0.0, infinity, hit);
  const long double entry = oracle.get_entry(origin, direction);
  // What rounding shifts the ray by counts as often as the ray meets the surface slantwise.
  const double wide = tolerance + 1e4 * noise;
  if (entry < infinity) {
    ASSERT_TRUE(found);
    EXPECT_LE((hit.distance - static_cast<double>(entry)) * length, wide);
  }
  if (!found) return;
  const Vec place = shot.origin + shot.direction * hit.distance;
  const LongBall ball = get_ball(segment, std::clamp(hit.u, 0.0, 1.0));
  EXPECT_NEAR(static_cast<double>((Long(place) - ball.center).get_length() - ball.radius), 0.0, tolerance);
  const CurveSurfacePoint surface = curve_get_surface_point(segment, hit.u, hit.v);
  EXPECT_LE((surface.position - place).get_length(), slack * oracle.get_size() + 1e-7 * radius + noise);
  EXPECT_NEAR(surface.normal.get_length(), 1.0, 1e-12);
  EXPECT_NEAR(surface.tangent.get_length(), 1.0, 1e-12);
}

/// From anywhere: the next crossing lies between those of solids a little too thin and a little too thick.
template <CurveShape shape>
bool check_next(const CurveSegment<shape>& segment, const Oracle<shape>& oracle, const Shot& shot) {
  const auto get_next = [&](long double grow) {
    long double next = infinity;
    for (const Span& span : oracle.get_spans(Long(shot.origin), Long(shot.direction), grow)) {
      if (span.out >= 0) next = std::min(next, span.in >= 0 ? span.in : span.out);
    }
    return next;
  };
  const long double thin = get_next(0), thick = get_next(oracle.get_gap());
  const double length = shot.direction.get_length(), radius = oracle.get_largest_radius();
  if ((thin < infinity) != (thick < infinity)) return false;
  const double band = thin < infinity ? 1e-7 * radius / length + static_cast<double>(std::fabs(thin - thick)) : 0.0;
  if (band * length > 0.1 * radius) return false;
  CurveHit hit;
  const bool found = curve_hit_segment(GMathBasicRay<double>(shot.origin, shot.direction), segment, 0.0, infinity, hit);
  EXPECT_EQ(found, thin < infinity);
  if (!found || thin == infinity) return false;
  EXPECT_NEAR(hit.distance, static_cast<double>(thin), band);
  return true;
}

template <CurveShape shape>
void check_rays() {
  uint from_inside = 0;
  for (uint kind = 0; kind < std::size(kinds); ++kind) {
    RandomValues random(kind);
    for (uint k = 0, count = scaled(24, 4); k < count; ++k) {
      const CurveSegment<shape> segment = make_segment<shape>(kind, random);
      const Oracle<shape> oracle(segment);
      const bool far = std::string(kinds[kind]) == "far";
      for (uint i = 0; i < 30; ++i) {
        SCOPED_TRACE(testing::Message() << kinds[kind] << " segment " << k << " ray " << i);
        const Shot shot = make_shot(segment, random, far ? 1e4 : 5.0);
        if (!shot.inside) check_entry(segment, oracle, shot, shape == cubic ? 1e-5 : 1e-7);
        if (shot.inside || i % 8 == 0) from_inside += check_next(segment, oracle, shot);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
  EXPECT_GT(from_inside, scaled(800, 100));
}

TEST(CurveSegment, linear_rays_agree_with_balls) { check_rays<linear>(); }
TEST(CurveSegment, cubic_rays_agree_with_balls) { check_rays<cubic>(); }

template <CurveShape shape>
void check_boxes() {
  for (uint kind = 0; kind < std::size(kinds); ++kind) {
    RandomValues random(kind + 100);
    for (uint k = 0; k < 40; ++k) {
      SCOPED_TRACE(testing::Message() << kinds[kind] << " segment " << k);
      const CurveSegment<shape> segment = make_segment<shape>(kind, random);
      const GMathLinearSpace3<double> space = curve_get_space(segment);
      const GMathBbox3<double> box = curve_get_bbox_in_space(segment, space);
      GMathBbox3<double> balls;
      for (uint i = 0; i <= 2000; ++i) {
        const LongBall ball = get_ball(segment, i / 2000.0L);
        const Vec at = space.measure(Vec(ball.center));
        const double r = static_cast<double>(ball.radius);
        balls.add({at - Vec(r, r, r), at + Vec(r, r, r)});
      }
      const double size = box.get_extent().get_length();
      for (uint axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(space.axis[axis].dot(space.axis[axis]), 1.0, 1e-12);
        EXPECT_NEAR(space.axis[axis].dot(space.axis[(axis + 1) % 3]), 0.0, 1e-12);
        EXPECT_LE(box.min[axis], balls.min[axis] + 1e-11 * size + 1e-11);
        EXPECT_GE(box.max[axis], balls.max[axis] - 1e-11 * size - 1e-11);
        EXPECT_NEAR(box.min[axis], balls.min[axis], 2e-6 * size + 1e-11);
        EXPECT_NEAR(box.max[axis], balls.max[axis], 2e-6 * size + 1e-11);
      }
    }
  }
}

TEST(CurveSegment, boxes_hold_the_balls_tightly) {
  check_boxes<linear>();
  check_boxes<cubic>();
}

TEST(CurveSegment, ends_have_caps_and_intervals_are_half_open) {
  const CurveSegment<linear> segment{{{Vec(0, 0, 0), 1.0}, {Vec(4, 0, 0), 1.0}}};
  CurveHit hit;
  const auto shoot = [&](const Vec& origin, const Vec& direction, double near, double far) {
    return curve_hit_segment(GMathBasicRay<double>(origin, direction), segment, near, far, hit);
  };
  ASSERT_TRUE(shoot(Vec(-5, 0, 0), Vec(2, 0, 0), 0.0, infinity));  // onto the tip, along the fibre
  EXPECT_NEAR(hit.distance, 2.0, 1e-12);
  EXPECT_NEAR(hit.u, -1.0, 1e-7);
  ASSERT_TRUE(shoot(Vec(4.6, 0, 5), Vec(0, 0, -1), 0.0, infinity));
  EXPECT_NEAR(hit.u, 1.6, 1e-12);
  ASSERT_TRUE(shoot(Vec(1, 0, 3), Vec(0, 0, -1), 2.0 + 1e-9, infinity));  // behind the way in: the way out
  EXPECT_NEAR(hit.distance, 4.0, 1e-12);
  EXPECT_FALSE(shoot(Vec(1, 0, 3), Vec(0, 0, -1), 0.0, 2.0 - 1e-9));
  EXPECT_FALSE(shoot(Vec(1, 0, 3), Vec(0, 0, -1), 4.0 + 1e-9, infinity));
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
