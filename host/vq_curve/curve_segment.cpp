#include "vq_curve/curve_segment.h"

#include <algorithm>
#include <limits>
#include <numbers>

#include "vq_curve/curve_segment_frame.h"

namespace {

using Vec = GMathVec3<double>;
using Ball = CurvePoint<double>;

double get_radius(const Ball& ball) { return ball.radius < 0.0 ? 0.0 : ball.radius; }

Ball get_difference(const Ball& to, const Ball& from) {
  return {to.position - from.position, get_radius(to) - get_radius(from)};
}

Ball get_sum(const Ball (&ball)[4], const double (&weight)[4]) {
  Ball sum{{}, 0.0};
  for (uint k = 0; k < 4; ++k) {
    sum.position += ball[k].position * weight[k];
    sum.radius += get_radius(ball[k]) * weight[k];
  }
  return sum;
}

/// The angle of (x, y) in turns, in [0, 1), with an error below 1e-13. Every hit needs one, and std::atan2 would double
/// the cost of computing u and v.
double get_turn(double x, double y) {
  const double across = std::abs(x), up = std::abs(y);
  const double low = std::min(across, up), high = std::max(across, up);
  if (!(high > 0.0)) return 0.0;
  // Angles above 1/16 turn are measured from 1/8 turn. The polynomial is the Chebyshev fit of atan(t) / (2 pi t) in
  // t^2.
  const bool steep = low > 0.41421356237309503 * high;
  const double t = steep ? (low - high) / (low + high) : low / high;
  const double w = t * t, w2 = w * w;
  const double sum = (0.1591549430917792 - 0.05305164760983646 * w) +
                     w2 * ((0.031830977777663354 - 0.02273590631248451 * w) +
                           w2 * ((0.017671824383810493 - 0.014313147285162814 * w) +
                                 w2 * (0.01110423791544041 - 0.0060004004301519925 * w)));
  double turn = t * sum + (steep ? 0.125 : 0.0);
  if (up > across) turn = 0.25 - turn;
  if (x < 0.0) turn = 0.5 - turn;
  if (y < 0.0) turn = 1.0 - turn;
  return turn < 1.0 ? turn : 0.0;
}

/// The coordinate axis most perpendicular to `v`.
Vec get_least_axis(const Vec& v) {
  const Vec size(std::abs(v.x), std::abs(v.y), std::abs(v.z));
  return size.x <= size.y && size.x <= size.z ? Vec(1, 0, 0) : size.y <= size.z ? Vec(0, 1, 0) : Vec(0, 0, 1);
}

/// The unit vector along the component of `v` perpendicular to `axis`; zero when there is none.
Vec get_across(const Vec& v, const Vec& axis) {
  const Vec across = (v - axis * v.dot(axis)).get_normalized();
  return (across - axis * across.dot(axis))
      .get_normalized();  // again, because rounding of a small component is not perpendicular
}

/// The direction for side[0] of all frames, before projection across the tangent: for a planar curve the normal of the
/// plane, which is perpendicular to all tangents.
template <CurveShape shape>
Vec get_side_hint(const CurveSegment<shape>& segment) {
  constexpr uint last = CurveSegment<shape>::point_count - 1;
  const Vec chord = segment.point[last].position - segment.point[0].position;
  if constexpr (shape == CurveShape::cubic) {
    const Vec a = segment.point[1].position - segment.point[0].position;
    const Vec b = segment.point[2].position - segment.point[0].position;
    Vec best;
    for (const Vec& normal : {a.cross(b), a.cross(chord), b.cross(chord)}) {
      if (normal.dot(normal) > best.dot(best)) best = normal;
    }
    // The normal of a straight segment is only rounding and may have any direction, also along the segment.
    const double size = a.dot(a) + b.dot(b) + chord.dot(chord);
    if (best.dot(best) > 1e-24 * size * size) return best;
  }
  return get_least_axis(chord);
}

/// Smallest squared sine between hint and tangent at which the perpendicular component is more than rounding.
constexpr double least_across2 = 1e-12;

/// A direction along the curve, with the change of the radius.
struct CurveStep {
  Ball ball;
  double jump = 0.0;  ///< where the derivative of the center is 0: the change of the radius there
};

/// The derivative of the curve at `u`. Where it is 0, the next difference of control points that is not.
template <CurveShape shape>
CurveStep get_step(const CurveSegment<shape>& segment, double u) {
  constexpr uint last = CurveSegment<shape>::point_count - 1;
  Ball step = segment.get_ball_derivative(u);
  double jump = 0.0;
  for (uint k = 2; k <= last && step.position == Vec(); ++k) {
    if (jump == 0.0) jump = step.radius;
    if (u < 0.5)
      step = get_difference(segment.point[k], segment.point[0]);
    else
      step = get_difference(segment.point[last], segment.point[last - k]);
  }
  return {step, jump};
}

constexpr double circle_tolerance = 1e-8;  // in radii

/// A direction as one number between -1 and 0. The upper 26 bits of the fraction are the angle around the curve, so
/// that the number is minus that angle in turns to 1e-8. The lower 26 bits are the angle from the tangent; 0 is not
/// used.
constexpr double direction_steps = 0x1p26, lean_step = std::numbers::pi / (direction_steps - 2.0);

double pack_direction(double turn, double lean) {
  const double steps = std::round(turn * direction_steps);
  return -((steps < direction_steps ? steps : 0.0) + (1.0 + std::round(lean / lean_step)) / direction_steps) /
         direction_steps;
}

void unpack_direction(double packed, double& turn, double& lean) {
  const double steps = std::floor(-packed * direction_steps);
  turn = steps / direction_steps;
  lean = ((-packed * direction_steps - steps) * direction_steps - 1.0) * lean_step;
}

/// u and v of a point that is not on the circle of its ball: on the round end beside that ball, or anywhere on the ball
/// where the derivative is 0 or u is not exact.
template <CurveShape shape>
GMathVec2<double> get_uv_off_circle(const CurveSegment<shape>& segment, double u, const Vec& normal) {
  const double end = u < 0.5 ? 0.0 : 1.0, sign = u < 0.5 ? -1.0 : 1.0;
  const CurveFrame cap = curve_get_frame(segment, end);
  const Vec from_end = normal + (segment.get_ball(u).position - cap.ball.position);
  const double distance = from_end.get_length();
  if (std::abs(distance - cap.ball.radius) <= circle_tolerance * distance) {
    const double along = from_end.dot(cap.tangent) / distance;
    const double height = sign * (along + cap.slope) / (1.0 + sign * cap.slope);
    if (height >= -circle_tolerance)
      return {end + sign * std::clamp(height, 0.0, 1.0),
              get_turn(from_end.dot(cap.side[0]), from_end.dot(cap.side[1]))};
  }
  const CurveFrame frame = curve_get_frame(segment, u);
  const double x = normal.dot(frame.side[0]), y = normal.dot(frame.side[1]);
  const double lean = std::atan2(std::sqrt(x * x + y * y), normal.dot(frame.tangent));
  return {u, pack_direction(get_turn(x, y), lean)};
}

/// Largest value of the cubic with Bernstein coefficients a to d over [0, 1].
double get_maximum(double a, double b, double c, double d) {
  const double ends = std::max(a, d);
  if (b <= ends && c <= ends) return ends;
  // The derivative divided by 3 is p + 2 q u + r u^2; only the root with a negative slope can be a maximum.
  const double p = b - a, q = (c - b) - p, r = (d - c) - (c - b) - q;
  const double root = std::sqrt(std::max(0.0, q * q - p * r));
  const double u = q <= 0.0 ? p / (root - q) : -(q + root) / r;
  if (!(u > 0.0 && u < 1.0)) return ends;
  const double v = 1.0 - u;
  return std::max(ends, v * v * (v * a + 3.0 * u * b) + u * u * (3.0 * v * c + u * d));
}

/// Largest value over the segment of the polynomial with these control values.
template <CurveShape shape>
double get_largest(const double (&value)[CurveSegment<shape>::point_count]) {
  if constexpr (shape == CurveShape::linear)
    return std::max(value[0], value[1]);
  else
    return get_maximum(value[0], value[1], value[2], value[3]);
}

/// @param get_place   (position, axis) -> coordinate along the axis
/// @param get_length  (axis) -> length of the axis
template <CurveShape shape, class GetPlace, class GetLength>
GMathBbox3<double> measure_segment(const CurveSegment<shape>& segment, const GetPlace& get_place,
                                   const GetLength& get_length) {
  constexpr uint count = CurveSegment<shape>::point_count;
  GMathBbox3<double> box;
  double poison = 0.0;  // NaN when a value is NaN or infinite, which comparisons alone would ignore
  for (uint axis = 0; axis < 3; ++axis) {
    double below[count], above[count];
    const double scale = get_length(axis);
    for (uint k = 0; k < count; ++k) {
      const double place = get_place(segment.point[k].position, axis);
      const double radius = get_radius(segment.point[k]) * scale;
      below[k] = radius - place;
      above[k] = radius + place;
      poison += place * 0.0 + radius * 0.0;
    }
    box.min[axis] = -get_largest<shape>(below);
    box.max[axis] = get_largest<shape>(above);
  }
  return {box.min + Vec(poison, poison, poison), box.max + Vec(poison, poison, poison)};
}

}  // namespace

template <CurveShape shape>
CurvePoint<double> CurveSegment<shape>::get_ball(double u) const {
  const double v = 1.0 - u;
  if constexpr (shape == CurveShape::linear)
    return {point[0].position * v + point[1].position * u, get_radius(point[0]) * v + get_radius(point[1]) * u};
  else
    return get_sum(point, {v * v * v, 3.0 * v * v * u, 3.0 * v * u * u, u * u * u});
}

template <CurveShape shape>
CurvePoint<double> CurveSegment<shape>::get_ball_derivative(double u) const {
  if constexpr (shape == CurveShape::linear) {
    return get_difference(point[1], point[0]);
  } else {
    const double v = 1.0 - u;
    const double weight[3] = {3.0 * v * v, 6.0 * v * u, 3.0 * u * u};
    Ball sum{{}, 0.0};
    for (uint k = 0; k < 3; ++k) {
      const Ball step = get_difference(point[k + 1], point[k]);
      sum.position += step.position * weight[k];
      sum.radius += step.radius * weight[k];
    }
    return sum;
  }
}

template <CurveShape shape>
CurveFrame curve_get_frame(const CurveSegment<shape>& segment, double u) {
  CurveFrame frame;
  frame.ball = segment.get_ball(u);
  const auto [step, jump] = get_step(segment, u);
  const double length = step.position.get_length();
  frame.tangent = length > 0.0 ? step.position * (1.0 / length) : Vec(1, 0, 0);
  if (jump != 0.0)
    frame.slope = jump > 0.0 ? 1.0 : -1.0;
  else if (step.radius != 0.0)
    frame.slope = std::clamp(step.radius / length, -1.0, 1.0);
  const Vec hint = get_side_hint(segment), across = frame.tangent.cross(hint);
  const bool is_across = across.dot(across) > least_across2 * hint.dot(hint);
  frame.side[0] = get_across(is_across ? hint : get_least_axis(frame.tangent), frame.tangent);
  frame.side[1] = frame.tangent.cross(frame.side[0]);
  return frame;
}

template <CurveShape shape>
GMathVec2<double> curve_get_uv(const CurveSegment<shape>& segment, double u, const GMathVec3<double>& normal) {
  const Ball step = segment.get_ball_derivative(u);
  const Vec& way = step.position;
  const double way2 = way.dot(way), normal2 = normal.dot(normal), rise = normal.dot(way);
  // Distance of the point from the ball's circle along the curve, and radius of the circle squared, both scaled by the
  // length of the derivative.
  const double off = rise + step.radius * std::sqrt(normal2);
  const double round2 = normal2 * (way2 - step.radius * step.radius);
  if (u > 0.0 && u < 1.0 && off * off <= circle_tolerance * circle_tolerance * round2) {
    // The angle that the frame would give. No vector is normalized: this scales both coordinates equally.
    const Vec hint = get_side_hint(segment), across = way.cross(hint);
    const double x = way2 * normal.dot(hint) - rise * hint.dot(way);
    const double y = std::sqrt(way2) * normal.dot(across);
    if (across.dot(across) > 2.0 * least_across2 * way2 * hint.dot(hint)) return {u, get_turn(x, y)};
  }
  return get_uv_off_circle(segment, u, normal);
}

template <CurveShape shape>
CurveSurfacePoint curve_get_surface_point(const CurveSegment<shape>& segment, double u, double v) {
  const CurveFrame frame = curve_get_frame(segment, std::clamp(u, 0.0, 1.0));
  double along = -frame.slope;
  if (u < 0.0) along += std::max(u, -1.0) * (1.0 - frame.slope);
  if (u > 1.0) along += std::min(u - 1.0, 1.0) * (1.0 + frame.slope);
  double across = std::sqrt(std::max(0.0, (1.0 - along) * (1.0 + along)));
  if (v < 0.0) {
    double lean;
    unpack_direction(v, v, lean);
    along = std::cos(lean);
    across = std::sin(lean);
  }
  const double angle = v * (2.0 * std::numbers::pi);
  const Vec normal =
      frame.tangent * along + frame.side[0] * (across * std::cos(angle)) + frame.side[1] * (across * std::sin(angle));
  return {frame.ball.position + normal * frame.ball.radius, normal, frame.tangent};
}

template <CurveShape shape>
GMathBbox3<double> curve_get_bbox_in_space(const CurveSegment<shape>& segment, const GMathLinearSpace3<double>& space) {
  return measure_segment(
      segment, [&](const Vec& position, uint axis) { return space.axis[axis].dot(position); },
      // rounded axes are not exactly of unit length
      [&](uint axis) { return space.axis[axis].get_length(); });
}

template <CurveShape shape>
GMathBbox3<double> curve_get_bbox(const CurveSegment<shape>& segment) {
  return measure_segment(
      segment, [](const Vec& position, uint axis) { return position[axis]; }, [](uint /*axis*/) { return 1.0; });
}

template <CurveShape shape>
GMathLinearSpace3<double> curve_get_space(const CurveSegment<shape>& segment) {
  constexpr uint last = CurveSegment<shape>::point_count - 1;
  const Vec chord = segment.point[last].position - segment.point[0].position;
  const Vec bend = segment.point[1].position - segment.point[0].position + segment.point[last - 1].position -
                   segment.point[last].position;
  Vec along = chord.get_normalized();
  if (along == Vec()) along = bend.get_normalized();
  if (!(along.dot(along) > 0.5)) return {};
  const Vec across = bend - along * bend.dot(along);
  // The bend of a straight segment is only rounding and may have any direction, also along the segment.
  const bool bent = across.dot(across) > 1e-24 * std::max(bend.dot(bend), chord.dot(chord));
  const Vec rough = bent ? across : get_least_axis(along);
  const Vec second = (rough - along * rough.dot(along)).get_normalized();
  return {along, second, along.cross(second)};
}

template struct CurveSegment<CurveShape::linear>;
template CurveFrame curve_get_frame(const CurveSegment<CurveShape::linear>&, double);
template GMathVec2<double> curve_get_uv(const CurveSegment<CurveShape::linear>&, double, const GMathVec3<double>&);
template CurveSurfacePoint curve_get_surface_point(const CurveSegment<CurveShape::linear>&, double, double);
template GMathBbox3<double> curve_get_bbox_in_space(const CurveSegment<CurveShape::linear>&,
                                                    const GMathLinearSpace3<double>&);
template GMathBbox3<double> curve_get_bbox(const CurveSegment<CurveShape::linear>&);
template GMathLinearSpace3<double> curve_get_space(const CurveSegment<CurveShape::linear>&);

template struct CurveSegment<CurveShape::cubic>;
template CurveFrame curve_get_frame(const CurveSegment<CurveShape::cubic>&, double);
template GMathVec2<double> curve_get_uv(const CurveSegment<CurveShape::cubic>&, double, const GMathVec3<double>&);
template CurveSurfacePoint curve_get_surface_point(const CurveSegment<CurveShape::cubic>&, double, double);
template GMathBbox3<double> curve_get_bbox_in_space(const CurveSegment<CurveShape::cubic>&,
                                                    const GMathLinearSpace3<double>&);
template GMathBbox3<double> curve_get_bbox(const CurveSegment<CurveShape::cubic>&);
template GMathLinearSpace3<double> curve_get_space(const CurveSegment<CurveShape::cubic>&);
