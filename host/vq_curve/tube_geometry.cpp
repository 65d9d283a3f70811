#include "vq_curve/tube_geometry.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_curve/curve_frustum.h"
#include "vq_curve/curve_space_box.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_gmath/gmath_key_bbox.h"

namespace {

constexpr double nan_time = std::numeric_limits<double>::quiet_NaN();

/// Calls `work` with the shape as a compile-time value.
template <class Work>
auto with_shape(CurveShape shape, const Work& work) {
  if (shape == CurveShape::linear) return work.template operator()<CurveShape::linear>();
  return work.template operator()<CurveShape::cubic>();
}

uint get_last_point(CurveShape shape) { return shape == CurveShape::linear ? 1 : 3; }

}  // namespace

template <TubePrimitive kind>
GMathBbox3<double> TubeGeometry<kind>::compute_bbox(uint primitive, double time, const GMathLinearSpace3<double>* space,
                                                    const CtxMotionBlur* motion_blur) const {
  const GMathBbox3<double> box = gmath_get_bbox_between_keys(
      motion_blur != nullptr ? &motion_blur->get_time_sampling() : nullptr, curves_.get_motion_sampling(), time,
      [&](double at) { return unite_segments(primitive, at, space); });
  return GMathBbox3<double>(gmath_round_outwards(box));
}

template <TubePrimitive kind>
GMathBbox3<double> TubeGeometry<kind>::unite_segments(uint primitive, double time,
                                                      const GMathLinearSpace3<double>* space) const {
  const SegmentRange segments = get_segments(primitive);
  const CurveSet::MotionBlend blend = curves_.get_motion_blend(time);
  GMathBbox3<double> out;
  with_shape(curves_.get_shape(), [&]<CurveShape shape>() {
    for (uint index = segments.first; index < segments.end; ++index) {  // a NaN box adds nothing
      const CurveSegment<shape> segment = curves_.get_segment<shape>(index, blend);
      out.add(space != nullptr ? curve_get_bbox_in_space(segment, *space) : curve_get_bbox(segment));
    }
  });
  const GMathVec3<double> none(nan_time, nan_time, nan_time);
  return out.is_empty() ? GMathBbox3<double>(none, none) : out;
}

template <TubePrimitive kind>
GMathBbox3<double> TubeGeometry<kind>::get_primitive_bbox(const CtxEval& /*ctx*/, const uint& primitive) const {
  return compute_bbox(primitive, nan_time, nullptr, nullptr);
}

template <TubePrimitive kind>
GMathBbox3<double> TubeGeometry<kind>::get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                                             const uint& primitive) const {
  return compute_bbox(primitive, time, nullptr, ctx.get_motion_blur());
}

template <TubePrimitive kind>
GMathBbox3<double> TubeGeometry<kind>::get_primitive_bbox_in_space(const CtxEval& /*ctx*/,
                                                                   const GMathLinearSpace3<double>& space,
                                                                   const uint& primitive) const {
  return compute_bbox(primitive, nan_time, &space, nullptr);
}

template <TubePrimitive kind>
GMathBbox3<double> TubeGeometry<kind>::unite_primitive_bboxes_in_space(const CtxEval& ctx,
                                                                       const GMathLinearSpace3<double>& space,
                                                                       const CoreBasicArray<uint>& primitives) const {
  // A curve may have segments that are not valid, which are measured one by one.
  if (kind == TubePrimitive::segment && !primitives.is_empty()) {
    const CurvePoint<float>* points = &curves_.get_point(0);
    CurveSpaceBox box(space, points[curves_.get_first_point(primitives[0])].position);
    with_shape(curves_.get_shape(), [&]<CurveShape shape>() {
      for (const uint segment : primitives) box.add<shape>(points + curves_.get_first_point(segment));
    });
    if (const auto sum = box.get_bbox()) return GMathBbox3<double>(gmath_round_outwards(*sum));
  }
  return GeometryObject::unite_primitive_bboxes_in_space(ctx, space, primitives);
}

template <TubePrimitive kind>
GMathBbox3<double> TubeGeometry<kind>::get_primitive_bbox_in_space_at(const CtxEval& ctx, const double& time,
                                                                      const GMathLinearSpace3<double>& space,
                                                                      const uint& primitive) const {
  return compute_bbox(primitive, time, &space, ctx.get_motion_blur());
}

template <TubePrimitive kind>
GMathLinearSpace3<double> TubeGeometry<kind>::get_primitive_space(const CtxEval& /*ctx*/, const uint& primitive) const {
  const SegmentRange segments = get_segments(primitive);
  if (segments.first == segments.end) return {};
  // Four evenly spaced points approximate the primitive; of a single cubic they are its own control points.
  const uint first = curves_.get_first_point(segments.first);
  const uint last = curves_.get_first_point(segments.end - 1) + get_last_point(curves_.get_shape());
  CurveSegment<CurveShape::cubic> whole;
  for (uint k = 0; k < 4; ++k) {
    const CurvePoint<float>& point = curves_.get_point(first + static_cast<uint>(u64{last - first} * k / 3));
    whole.point[k] = {GMathVec3<double>(point.position), point.radius};
  }
  return curve_get_space(whole);
}

template <TubePrimitive kind>
void TubeGeometry<kind>::ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                           const uint& primitive) const {
  with_shape(curves_.get_shape(), [&]<CurveShape shape>() { test_rays<shape>(ctx, shader, query, primitive); });
}

template <TubePrimitive kind>
template <CurveShape shape>
void TubeGeometry<kind>::test_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                   uint primitive) const {
  const bool moving = has_motion() && query.spans != nullptr && query.span_stamp != 0;
  const SegmentRange segments = get_segments(primitive);
  for (uint index = segments.first; index < segments.end; ++index) {
    CurveSegment<shape> segment;
    if (!moving) segment = curves_.get_segment<shape>(index, {});
    for (uint ray = query.first_ray; ray <= query.last_ray; ++ray) {
      if (!query.is_nearest() && query.is_stopped(ray)) continue;
      if (index == segments.first) ++query.counter;
      if (moving) segment = curves_.get_segment<shape>(index, curves_.get_motion_blend(query.spans[ray].time));
      test_ray(ctx, shader, query, ray, segment, primitive, index - segments.first);
    }
  }
}

template <TubePrimitive kind>
template <CurveShape shape>
inline void TubeGeometry<kind>::test_ray(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, uint ray,
                                         const CurveSegment<shape>& segment, uint primitive, uint part) {
  CurveHit hit;
  if (curve_hit_segment(query.get_ray(ray), segment, query.get_tnear(ray), query.get_limit(ray), hit))
    query.push_intersection(ctx, shader, ray, {hit.distance, hit.u, hit.v, primitive, part});
}

template <TubePrimitive kind>
uint TubeGeometry<kind>::get_record_size() const {
  if (kind != TubePrimitive::segment || !curves_.is_recorded()) return 0;
  return (get_last_point(curves_.get_shape()) + 1) * static_cast<uint>(sizeof(CurvePoint<float>));
}

template <TubePrimitive kind>
void TubeGeometry<kind>::write_record(const uint& primitive, void* record) const {
  std::memcpy(record, &curves_.get_point(curves_.get_first_point(primitive)), get_record_size());
}

template <TubePrimitive kind>
void TubeGeometry<kind>::ray_hit_record(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                                        const uint& primitive, const void* record) const {
  with_shape(curves_.get_shape(), [&]<CurveShape shape>() {
    CurveSegment<shape> segment;
    const auto* points = static_cast<const CurvePoint<float>*>(record);
    for (uint k = 0; k < CurveSegment<shape>::point_count; ++k)
      segment.point[k] = {GMathVec3<double>(points[k].position), points[k].radius};
    for (uint ray = query.first_ray; ray <= query.last_ray; ++ray) {
      if (!query.is_nearest() && query.is_stopped(ray)) continue;
      ++query.counter;
      test_ray(ctx, shader, query, ray, segment, primitive, 0);
    }
  });
}

template <TubePrimitive kind>
void TubeGeometry<kind>::frustum_hit_primitive(const CtxEval& /*ctx*/, CtxShader& /*shader*/, GeometryFrustumCtx& query,
                                               const uint& primitive) const {
  const SegmentRange segments = get_segments(primitive);
  if (segments.first == segments.end) return;
  const GeometryFrustumMode mode = static_cast<GeometryFrustumMode>(query.mode);
  if (mode == GeometryFrustumMode::points || mode == GeometryFrustumMode::vertices) {
    mark_points(query, segments);
  } else if (mode == GeometryFrustumMode::any || mode == GeometryFrustumMode::all) {
    const bool any = mode == GeometryFrustumMode::any;
    const bool found = with_shape(curves_.get_shape(), [&]<CurveShape shape>() {
      for (uint index = segments.first; index < segments.end; ++index) {
        const CurveSegment<shape> segment = curves_.get_segment<shape>(index, {});
        if (any ? curve_touches_frustum(segment, query) : !curve_lies_in_frustum(segment, query)) return true;
      }
      return false;
    });
    query.result.hit_count += found == any;
    (any ? query.result.finished : query.result.outside) |= found;
  }
}

template <TubePrimitive kind>
void TubeGeometry<kind>::mark_points(GeometryFrustumCtx& query, SegmentRange segments) const {
  const uint last = curves_.get_first_point(segments.end - 1) + get_last_point(curves_.get_shape());
  for (uint point = curves_.get_first_point(segments.first); point <= last && point < query.mask.size(); ++point)
    if (query.contains(GMathVec3<double>(curves_.get_point(point).position))) query.mask[point] = 1;
}

template <TubePrimitive kind>
CurveSurfacePoint TubeGeometry<kind>::compute_surface_point(const GeometryIntersection& hit, double time) const {
  const uint segment = get_segments(hit.primitive).first + hit.part;
  const CurveSet::MotionBlend blend = curves_.get_motion_blend(time);
  return with_shape(curves_.get_shape(), [&]<CurveShape shape>() {
    return curve_get_surface_point(curves_.get_segment<shape>(segment, blend), hit.u, hit.v);
  });
}

template <TubePrimitive kind>
GeometrySurfacePoint TubeGeometry<kind>::get_surface_point(const GeometryIntersection& hit, const double& time) const {
  const CurveSurfacePoint point = compute_surface_point(hit, time);
  const double u = get_curve_u(get_segments(hit.primitive).first + hit.part, hit.u);
  return {point.position, point.normal, point.normal, {u, std::fabs(hit.v), 0.0}};
}

template <TubePrimitive kind>
double TubeGeometry<kind>::get_curve_u(uint segment, double u) const {
  const uint curve = curves_.get_curve(segment), first = curves_.get_first_segment(curve);
  return (segment - first + std::clamp(u, 0.0, 1.0)) / (curves_.get_first_segment(curve + 1) - first);
}

template <TubePrimitive kind>
GMathVec3<float> TubeGeometry<kind>::get_polygon_uv(const CtxEval& /*ctx*/, uint map, uint polygon,
                                                    const GMathVec3<double>& uvw) const {
  if (map != 0 || polygon >= curves_.get_segment_count()) return {};
  return GMathVec3<float>(GMathVec3<double>(get_curve_u(polygon, uvw.x), uvw.y, 0.0));
}

template <TubePrimitive kind>
GMathVec3<double> TubeGeometry<kind>::get_tangent(const GeometryIntersection& hit, const double& time) const {
  return compute_surface_point(hit, time).tangent;
}

template class TubeGeometry<TubePrimitive::segment>;
template class TubeGeometry<TubePrimitive::curve>;
