// tests/support/point_oracle.h
//
// Points against beams and frustums by brute force, in double precision and with distances from borders: a structure
// must find what is surely inside, and may find nothing that is surely outside.
#pragma once
#include <gtest/gtest.h>

#include <cmath>
#include <span>
#include <vector>

#include "support/random_values.h"
#include "support/sure_answer.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"

struct OraclePoint {
  GMathVec3<double> position;
  uint index = 0;
  u64 object = 0;
};

/// The distance of `p` from the border of a convex polygon, positive inside. NaN for a polygon without area.
inline double get_border_distance(std::span<const GMathVec3<double>> ring, const GMathVec3<double>& p) {
  GMathVec3<double> normal;
  for (std::size_t k = 2; k < ring.size(); ++k) normal += (ring[k - 1] - ring[0]).cross(ring[k] - ring[0]);
  double least = HUGE_VAL;
  for (std::size_t k = 0; k < ring.size(); ++k) {
    const GMathVec3<double> inwards = normal.cross(ring[(k + 1) % ring.size()] - ring[k]);
    const double distance = inwards.dot(p - ring[k]) / inwards.get_length();
    if (!(distance >= least)) least = distance;
  }
  return least;
}

/// A point in the cross-section of a beam.
struct BeamPlace {
  double t, t_slack;            ///< and how far off a rounded t may be
  double inside, slack;         ///< distance from the border by the size of the cross-section
  double weight, weight_slack;  ///< of a parallelogram; NaN for others, and where the weight jumps

  BeamPlace(const GeometryRayFrustumBeam& beam, double edge, const GMathVec3<double>& p) {
    const GMathVec3<double> from_origin = p - beam.origin;
    const double along = beam.direction.dot(beam.normal);
    t = from_origin.dot(beam.normal) / along;
    const double reach = p.get_length() + beam.origin.get_length();
    t_slack = 1e-13 * reach * beam.normal.get_length() / std::fabs(along);
    GMathVec3<double> c[4];
    double size = 0.0;
    for (uint k = 0; k < 4; ++k) {
      c[k] = beam.corner_origins[k] + beam.corner_directions[k] * t;
      size = std::max(size, (c[k] - c[0]).get_length());
    }
    const GMathVec3<double> other[3] = {c[0], c[2], c[3]};
    inside = std::fmax(get_border_distance({c, 3}, p), get_border_distance(other, p)) / size;
    bool is_convex = true;
    for (uint k = 0; k < 4; ++k) {
      const auto turn = [&](uint at) { return (c[(at + 1) % 4] - c[at]).cross(c[(at + 2) % 4] - c[at]); };
      is_convex = is_convex && turn(0).dot(turn(k)) > 0.0;
    }
    if (is_convex) inside = std::fmax(inside, get_border_distance(c, p) / size);
    slack = 1e-7 + 1e-12 * reach / size;
    find_weight(c, size, edge, p);
  }

 private:
  void find_weight(const GMathVec3<double> (&c)[4], double size, double edge, const GMathVec3<double>& p) {
    weight = NAN;
    if (!((c[1] + c[3] - c[0] - c[2]).get_length() < 1e-9 * size)) return;
    double depth = 0.5, narrowest = size;
    for (uint k = 0; k < 4; ++k) {
      const GMathVec3<double> side = c[(k + 1) % 4] - c[k], across = c[(k + 3) % 4] - c[k];
      const GMathVec3<double> inwards = across - side * (across.dot(side) / side.dot(side));
      depth = std::min(depth, inwards.dot(p - c[k]) / inwards.dot(inwards));
      narrowest = std::min(narrowest, inwards.get_length());
    }
    weight_slack = 4.0 * slack * edge * size / narrowest;
    const double width = 0.5 / edge;
    if (std::fabs(depth - width) * 2.0 * edge > weight_slack) weight = depth < width ? 1.0 - depth / width : 1.0;
  }
};

/// Checks what a beam found among `points`. True if there is something that it had to find.
inline bool check_beam(const GeometryRayFrustumBeam& beam, double edge, const std::vector<OraclePoint>& points,
                       const GeometryRayFrustumRecord& record) {
  double nearest = HUGE_VAL;
  bool is_known = record.index == core_invalid_index;
  for (const OraclePoint& point : points) {
    const BeamPlace at(beam, edge, point.position);
    const bool is_found = record.index == point.index && record.object == point.object;
    is_known = is_known || is_found;
    if (is_found) {
      EXPECT_GT(at.inside, -at.slack) << "point " << point.index;
      EXPECT_NEAR(record.t, at.t, at.t_slack) << "point " << point.index;
      EXPECT_FALSE(record.t < beam.tnear || record.t >= beam.tfar) << record.t;
      if (!std::isnan(at.weight)) {
        EXPECT_NEAR(record.weight, at.weight, at.weight_slack) << "point " << point.index;
      }
    }
    const bool is_sure =
        at.inside > at.slack && !(at.t <= beam.tnear + at.t_slack) && !(at.t >= beam.tfar - at.t_slack);
    if (is_sure) nearest = std::min(nearest, at.t + at.t_slack);
  }
  EXPECT_TRUE(is_known) << "no such point: " << record.index;
  if (record.index == core_invalid_index) {
    EXPECT_TRUE(record.t == beam.tfar || std::isnan(beam.tfar));
    EXPECT_EQ(nearest, HUGE_VAL) << "lost";
  } else {
    EXPECT_LE(record.t, nearest);
  }
  return nearest < HUGE_VAL;
}

/// The position of a point in a frustum.
/// @param is_exact  all coordinates are small integers: nothing is rounded
inline SureAnswer get_frustum_place(const GeometryFrustumData& frustum, const GMathVec3<double>& p, bool is_exact) {
  SureAnswer answer = SureAnswer::hit;
  const auto test = [&](const GeometryPlane& plane) {
    const double distance = plane.normal.dot(p - plane.point);
    const double slack = 1e-14 * plane.normal.get_length() * (p.get_length() + plane.point.get_length());
    if (is_exact ? distance < 0.0 : distance < -slack) answer = SureAnswer::missed;
    if (!is_exact && answer == SureAnswer::hit && std::fabs(distance) <= slack) answer = SureAnswer::close;
  };
  for (uint k = 0; k < frustum.plane_count; ++k) test(frustum.planes[k]);
  for (uint k = 0; k < frustum.end_plane_count; ++k) test(frustum.end_planes[k]);
  return answer;
}

/// Up to five side planes, half of them with ends. Inside of most is a part of the points.
/// @param is_exact  through and along small integers
inline void make_frustum(GeometryFrustumCtx& query, RandomValues& random, bool is_exact) {
  const auto get_plane = [&] {
    if (!is_exact) return GeometryPlane(random.get_vec(), random.get_vec());
    const auto get = [&](int most) { return double(random.get_index(2 * most + 1)) - most; };
    return GeometryPlane({get(4), get(4), get(4)}, {get(1), get(1), get(1)});
  };
  for (uint k = random.get_index(6); k > 0; --k) query.add_plane(get_plane());
  query.end_plane_count = random.get_index(2) * 2;
  for (GeometryPlane& plane : query.end_planes) plane = get_plane();
}

/// A beam towards `target`, by number: perspective, parallel, sheared, with its center outside, twisted, degenerate;
/// 1e-4 to 10 wide from about 1 away, 1e-5 to 0.1 wide from 1e5 away, with a direction of any length.
inline GeometryRayFrustumBeam make_beam(const GMathVec3<double>& target, uint number, RandomValues& random) {
  GeometryRayFrustumBeam beam;
  const uint form = number % 6;
  const bool is_far = number % 5 == 0;
  GMathMatrix4x4<double> matrix;
  for (uint k = 0; k < 9 && form == 2; ++k) matrix.m[k / 3][k % 3] += random.get(-0.4, 0.4);
  const GMathVec3<double> aim = matrix.transform_point(target);
  const double width = std::pow(10.0, is_far ? random.get(-5.0, -1.0) : random.get(-4.0, 1.0)),
               length = std::pow(10.0, random.get(-3.0, 3.0));
  const GMathVec3<double> direction = random.get_vec().get_normalized() * length;
  const GMathVec3<double> side = direction.cross(random.get_vec()).get_normalized() * (width * random.get(0.2, 1.0));
  const GMathVec3<double> up = direction.cross(side).get_normalized() * (width * random.get(0.2, 1.0));
  const double t = (is_far ? 1e5 : random.get(0.5, 2.0)) / length;
  const GMathVec3<double> origin = aim - direction * t + side * random.get() + up * random.get();
  const double tnear = number % 3 == 0 ? -t : t * random.get(0.0, 1.2);
  const double tfar = number % 2 == 0 ? DBL_MAX : tnear + t * random.get(0.0, 2.0);
  GMathVec3<double> ring[4] = {side + up, up - side, -side - up, side - up}, to_corners[4];
  for (uint k = 0; k < 4; ++k) {
    if (form == 3) ring[k] += side * 3.0;
    to_corners[k] = direction + ring[k] * (1.0 / t);
  }
  const bool is_perspective = form == 0 || (form == 2 && number % 4 < 2);
  EXPECT_TRUE(is_perspective ? beam.set_perspective(origin, direction, to_corners, tnear, tfar)
                             : beam.set_parallel(origin, direction, ring, tnear, tfar));
  if (form == 2) beam = beam.get_transformed(matrix.get_inverse(), matrix);
  const uint twist = 1 + random.get_index(3);
  for (uint k = 0; k < 4 && form == 4; ++k) beam.corner_directions[k] += ring[(k + twist) % 4] * (0.7 / t);
  beam.normal = beam.normal * random.get(-2.0, 2.0);
  if (form != 5) return beam;
  const uint fault = random.get_index(5);
  if (fault == 0) std::fill_n(beam.corner_origins, 4, origin);  // no width
  if (fault == 1) beam.normal = side;
  if (fault == 2) std::swap(beam.tnear, beam.tfar);
  if (fault == 3) beam.origin.y = beam.corner_origins[2].x = NAN;
  if (fault == 4) (number % 2 ? beam.tnear : beam.tfar) = NAN;
  return beam;
}
