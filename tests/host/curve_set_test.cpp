// Curves as they are stored, and as a geometry: by segment and by whole curve.
#include <functional>

#include "host/mesh_shots.h"
#include "support/random_values.h"
#include "support/test_scale.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_curve/tube_mesh.h"
#include "vq_curve/tube_mesh_fast.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

using Vec = GMathVec3<double>;
using Ball = CurvePoint<double>;

/// Curves that wander from points in the cube around `centre`, in two groups by turns, sampled from time 2 on.
CurveData make_curves(CurveBasis basis, uint seed, uint samples = 0, double size = 1.0, const Vec& centre = {}) {
  RandomValues random(seed);
  CurveData data;
  data.basis = basis;
  data.curve_sizes = {4, 0, 7, 2, 13, 1};  // 2 points make a segment in the linear basis only
  data.curve_groups = {0, 1, 0, 1, 1, 0};
  data.group_names = {CoreString("dark"), CoreString("fair")};
  for (const u32 count : data.curve_sizes) {
    Vec at = centre + random.get_vec(size);
    for (u32 k = 0; k < count; ++k, at += random.get_vec(0.4 * size))
      data.points.push_back({GMathVec3<float>(at), static_cast<float>(size * random.get(0.08, 0.1))});
  }
  data.motion_points.assign(samples, data.points);
  data.motion_begin = 2.0;
  data.motion_step = 0.5;
  data.least_recorded_segments = 0;
  for (auto& sample : data.motion_points)
    for (auto& point : sample) point.position = GMathVec3<float>(Vec(point.position) + random.get_vec(0.3 * size));
  return data;
}

/// The same curves as both geometries.
struct Tubes {
  explicit Tubes(const CurveData& data) {
    CoreString error;
    EXPECT_TRUE(segments.create(CurveData(data), error) && whole_curves.create(CurveData(data), error))
        << error.get_data();
  }
  Ball get_ball(uint segment, double u, double time = NAN) const {
    const CurveSet::MotionBlend blend = curves.get_motion_blend(time);
    if (curves.get_shape() == CurveShape::linear)
      return curves.get_segment<CurveShape::linear>(segment, blend).get_ball(u);
    return curves.get_segment<CurveShape::cubic>(segment, blend).get_ball(u);
  }
  TubeMeshFast segments;
  TubeMesh whole_curves;
  const CurveSet& curves = segments.get_curves();
};

TEST(CurveSet, refuses_what_does_not_fit_together) {
  Tubes tubes(make_curves(CurveBasis::bezier, 1));
  const std::function<void(CurveData&)> faults[] = {
      [](CurveData& data) { data.points.pop_back(); },
      [](CurveData& data) { data.curve_sizes[2] = 8, data.curve_sizes[4] = 12; },
      [](CurveData& data) { data.curve_groups[3] = 2; },
      [](CurveData& data) { data.curve_groups.pop_back(); },
      [](CurveData& data) { data.motion_points[1].pop_back(); },
      [](CurveData& data) { data.motion_step = 0; }};
  for (const auto& fault : faults) {
    CurveData data = make_curves(CurveBasis::bezier, 2, 2);
    fault(data);
    CoreString error;
    EXPECT_FALSE(tubes.segments.create(std::move(data), error)) << &fault - faults;
    EXPECT_EQ(error.get_view().back(), '.');
    EXPECT_EQ(tubes.segments.get_primitive_count(), 7u) << "the former curves stay";
  }
  EXPECT_EQ(Tubes(CurveData()).segments.get_primitive_count(), 0u);
}

TEST(CurveSet, knows_which_groups_move) {
  CurveData data = make_curves(CurveBasis::bspline, 3);
  data.motion_points.assign(2, data.points);
  for (const uint point : {12, 25}) {  // the last of two curves of the second group; the former has no segment
    data.motion_points[1][point].radius *= 2;
    EXPECT_EQ(Tubes(data).whole_curves.has_shading_group_motion(1), point == 25);
  }
  EXPECT_FALSE(Tubes(data).whole_curves.has_shading_group_motion(0));
}

// Segments at rest are tested with their records; those of a moving set and whole curves have none.
TEST(TubeGeometry, both_kinds_answer_rays_alike_at_rest_and_at_the_time_of_the_ray) {
  QueryWorld world;
  RandomValues random(8);
  const CtxMotionBlur motion_blur(2.0, 2.5, 2);
  uint hits = 0;
  for (uint k = 0; k < scaled(4000, 400); ++k) {
    const Tubes tubes(make_curves(CurveBasis(k % 4), k, k % 12 < 8 ? 2 : 0));
    const double time = k % 8 < 4 ? random.get(2.0, 2.5) : NAN;
    const Vec origin = random.get_vec(3.0);  // at an end of some segment, or anywhere
    const Vec end = tubes.get_ball(random.get_index(tubes.curves.get_segment_count()), k % 2, time).position;
    const Vec direction = (k % 3 == 0 ? end : random.get_vec()) - origin;
    GeometryRayPacket packet;
    packet.resize(1);
    packet.set_ray(0, origin, direction, 0.0, DBL_MAX, time);
    const auto trace = [&](const GeometryObject& geometry) {
      GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
      if (k % 8 < 4) motion_blur.init_raytrace_ctx(query);
      test_primitives(world, geometry, query);
      return packet.get_nearest(0);
    };
    const GeometryIntersection hit = trace(tubes.segments), other = trace(tubes.whole_curves);
    EXPECT_EQ(hit.distance, other.distance);
    if (hit.geometry == nullptr) continue;
    ++hits;
    const uint first = tubes.curves.get_first_segment(other.primitive);
    const uint count = tubes.curves.get_first_segment(other.primitive + 1) - first;
    EXPECT_EQ(hit.primitive, first + other.part);
    const GeometrySurfacePoint point = tubes.whole_curves.get_surface_point(other, time);
    EXPECT_EQ(point.position, tubes.segments.get_surface_point(hit, time).position);
    const Ball ball = tubes.get_ball(hit.primitive, point.uv.x * count - other.part, time);
    const Vec place = packet.get_ray(0).get_point(hit.distance);
    EXPECT_LT((ball.position + point.normal * ball.radius - place).get_length(), 1e-7);
    EXPECT_LT((point.position - place).get_length(), 1e-8);
    EXPECT_TRUE(point.uv.y >= 0.0 && point.uv.y < 1.0) << point.uv.y;
    // Boxes along the curve hold the hit; the first axis is the curve's chord.
    const GMathLinearSpace3<double> space = tubes.whole_curves.get_primitive_space(world.ctx, other.primitive);
    const Vec chord = tubes.get_ball(first + count - 1, 1).position - tubes.get_ball(first, 0).position;
    EXPECT_NEAR(space.axis[0].dot(chord), chord.get_length(), 1e-9);
    for (const GeometryIntersection& at : {hit, other}) {
      const auto box = at.geometry->get_primitive_bbox_in_space_at(world.ctx, time, space, at.primitive);
      for (uint axis = 0; axis < 3; ++axis) {
        EXPECT_GE(space.measure(place)[axis], box.min[axis] - 1e-7);
        EXPECT_LE(space.measure(place)[axis], box.max[axis] + 1e-7);
      }
    }
  }
  EXPECT_GT(hits, scaled(400, 40));
}

// Also where single precision cannot square the coordinates, and of all kinds of bends.
TEST(TubeGeometry, boxes_of_sets_hold_the_boxes_of_their_segments_tightly) {
  QueryWorld world;
  RandomValues random(5);
  for (uint k = 0; k < 400; ++k) {
    const double size = k % 20 < 4 ? 1e-25 : k % 20 < 8 ? 1e25 : 1.0, distance = k % 20 < 12 ? 0.0 : 1e3;
    const Tubes tubes(make_curves(CurveBasis(k % 4), k, 0, size, random.get_vec(distance)));
    const Vec x = random.get_vec().get_normalized(), y = x.cross(random.get_vec()).get_normalized();
    const GMathLinearSpace3<double> space(GMathLinearSpace3<float>(GMathLinearSpace3<double>(x, y, x.cross(y))));
    CoreVector<uint> items;
    GMathBbox3<double> expected;
    for (uint segment = k % 3; segment < tubes.curves.get_segment_count(); segment += 1 + k % 5) {
      items.add(segment);
      expected.add(tubes.segments.get_primitive_bbox_in_space(world.ctx, space, segment));
    }
    const auto box = tubes.segments.unite_primitive_bboxes_in_space(world.ctx, space, items.as_array());
    const double slack = 1e-5 * expected.get_extent().get_length() + 1e-6 * distance;
    for (uint axis = 0; axis < 3; ++axis) {
      EXPECT_TRUE(box.min[axis] <= expected.min[axis] && box.min[axis] >= expected.min[axis] - slack) << k;
      EXPECT_TRUE(box.max[axis] >= expected.max[axis] && box.max[axis] <= expected.max[axis] + slack) << k;
    }
  }
}

TEST(TubeGeometry, values_that_are_none_cost_their_own_segments_only) {
  QueryWorld world;
  for (const float bad : {NAN, INFINITY}) {
    CurveData data;
    data.basis = CurveBasis::bspline;
    data.curve_sizes = {12};
    for (uint k = 0; k < 12; ++k) data.points.push_back({{static_cast<float>(k), 0, 0}, k == 10 ? -0.1f : 0.25f});
    data.points[1].radius = bad;
    const Tubes tubes(data);
    for (uint segment = 0; segment < 9; ++segment) {
      EXPECT_EQ(gmath_is_valid_box(tubes.segments.get_primitive_bbox(world.ctx, segment)), segment >= 2);
      for (const double off : {0.08, 0.085}) {  // the last has a radius of 0.0823 there
        const auto hit = shoot(world, tubes.whole_curves, {segment + 1.5, off, 5}, {0, 0, -1});
        EXPECT_EQ(hit.geometry != nullptr, segment >= 2 && (segment < 8 || off < 0.082)) << segment;
      }
    }
    EXPECT_TRUE(gmath_is_valid_box(tubes.whole_curves.get_primitive_bbox(world.ctx, 0)));
    data.basis = CurveBasis::linear;
    EXPECT_EQ(Tubes(data).curves.get_point(10).radius, 0.0f);
    EXPECT_FLOAT_EQ(static_cast<float>(Tubes(data).segments.get_primitive_bbox(world.ctx, 9).max.x), 10.0f);
  }
}

TEST(TubeGeometry, frustums_see_the_solid_and_not_its_control_points) {
  QueryWorld world;
  CurveData data;  // an arch from x = -1 to 1, its crown at y = 1
  data.basis = CurveBasis::bezier;
  data.curve_sizes = {4};
  data.points = {{{-1, 0, 0}, 0.1f}, {{-1, 4 / 3.0f, 0}, 0.1f}, {{1, 4 / 3.0f, 0}, 0.1f}, {{1, 0, 0}, 0.1f}};
  const Tubes tubes(data);
  GeometryFrustumCtx query;
  const auto ask = [&](uint mode, const std::vector<GeometryPlane>& planes) {
    query.mode = mode;
    query.result = {};
    query.plane_count = query.end_plane_count = 0;
    for (const GeometryPlane& plane : planes) query.add_plane(plane);
    if (planes.size() > 1) query.end_planes[query.end_plane_count++] = query.planes[--query.plane_count];
    tubes.whole_curves.frustum_hit_primitive(world.ctx, world.shader, query, 0);
    EXPECT_EQ(query.result.hit_count, mode == 0 ? query.result.finished : mode == 1 ? 1 - query.result.outside : 0);
    return query.result.hit_count == 1;
  };
  for (const double scale : {0.2, 3.0}) {
    const Vec up(0, scale, 0), left(-scale, 0, 0);
    EXPECT_TRUE(ask(0, {{{0, 1.09, 0}, up}}));
    EXPECT_FALSE(ask(0, {{{0, 1.11, 0}, up}}));
    EXPECT_TRUE(ask(1, {{{0, 1.11, 0}, -up}}));
    EXPECT_FALSE(ask(1, {{{0, 1.09, 0}, -up}}));
    EXPECT_FALSE(ask(0, {{{-0.9, 0, 0}, left}, {{0, 1, 0}, up}})) << "in both half-spaces, never at once";
    EXPECT_TRUE(ask(0, {{{-0.9, 0, 0}, left}, {{0, 0.5, 0}, up}}));
  }
  query.mask.assign(4, 0);
  EXPECT_FALSE(ask(3, {{{0, 1, 0}, {0, 1, 0}}}));
  EXPECT_EQ(query.mask, std::vector<u8>({0, 1, 1, 0}));
}

}  // namespace
