// tests/support/fake_geometry.h
//
// A geometry made of boxes that a test writes down, whatever they are. A ray hits a primitive where it enters its box.
#pragma once
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <set>
#include <vector>

#include "vq_ctx/ctx_eval.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_object.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

class FakeGeometry : public GeometryObject {
 public:
  using Box = GMathBbox3<double>;

  explicit FakeGeometry(uint group_count = 1) : group_moves(group_count, 0) {
    const std::vector<CoreString> names(group_count, CoreString("group"));
    group_names_.assign(names.data(), group_count);
  }

  /// Appends unit boxes side by side along x: primitive p spans 2p to 2p + 1.
  void add_row(uint count) {
    for (uint k = 0; k < count; ++k) {
      const double x = 2.0 * static_cast<double>(boxes.size());
      boxes.push_back(Box({x, 0, 0}, {x + 1, 1, 1}));
    }
  }

  uint get_primitive_count() const override { return static_cast<uint>(boxes.size()); }
  const CoreArray<CoreString>& get_shading_groups() const override { return group_names_; }
  uint get_primitive_shading_group(const uint& primitive) const override {
    return primitive < groups.size() ? groups[primitive] : 0;
  }
  bool has_motion() const override { return moves; }
  bool has_shading_group_motion(const uint& group) const override { return group_moves[group] != 0; }
  Box get_primitive_bbox(const CtxEval&, const uint& primitive) const override { return boxes[primitive]; }
  Box get_primitive_bbox_at(const CtxEval&, const double& time, const uint& primitive) const override {
    if (primitive < boxes_at_any_time.size()) return boxes_at_any_time[primitive];
    const GMathVec3<double> shift = velocity * time;
    return {boxes[primitive].min + shift, boxes[primitive].max + shift};
  }

  void ray_hit_primitive(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                         const uint& primitive) const override {
    for (uint r = query.first_ray; r <= query.last_ray; ++r) {
      const double time = query.span_stamp != 0 ? query.spans[r].time : 0.0;
      const GMathBasicRay<double>& ray = query.get_ray(r);
      double entry = 0.0, exit = DBL_MAX;
      for (uint axis = 0; axis < 3; ++axis) {
        const double shift = velocity[axis] * time;
        const double a = (boxes[primitive].min[axis] + shift - ray.origin[axis]) / ray.direction[axis];
        const double b = (boxes[primitive].max[axis] + shift - ray.origin[axis]) / ray.direction[axis];
        entry = std::max(entry, std::min(a, b));
        exit = std::min(exit, std::max(a, b));
      }
      if (!(entry <= exit)) continue;
      GeometryCandidate hit;
      hit.distance = entry;
      hit.primitive = primitive;
      query.push_intersection(ctx, shader, r, hit);
    }
  }
  /// A record is the primitive's number.
  uint get_record_size() const override { return sizeof(uint); }
  void write_record(const uint& primitive, void* record) const override {
    if (!can_write_records) throw std::bad_alloc();
    std::memcpy(record, &primitive, sizeof primitive);
  }
  void ray_hit_record(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, const uint& primitive,
                      const void* record) const override {
    uint written = core_invalid_index;
    std::memcpy(&written, record, sizeof written);
    EXPECT_EQ(written, primitive);
    ray_hit_primitive(ctx, shader, query, primitive);
  }
  /// Every primitive counts; what matters is only which ones the structure asks for.
  void frustum_hit_primitive(const CtxEval&, CtxShader&, GeometryFrustumCtx& query,
                             const uint& primitive) const override {
    ++query.result.hit_count;
    if (query.geometry == this) frustum_asked.insert(primitive);
  }
  GeometrySurfacePoint get_surface_point(const GeometryIntersection&, const double&) const override { return {}; }

  std::vector<Box> boxes;
  std::vector<uint> groups;            ///< per primitive; empty: all 0
  std::vector<u8> group_moves;         ///< per group
  bool moves = false;                  ///< the answer for the whole geometry
  bool can_write_records = true;       ///< false: there is no memory
  GMathVec3<double> velocity;          ///< of all boxes
  std::vector<Box> boxes_at_any_time;  ///< when set, what is answered for any time
  mutable std::set<uint> frustum_asked;

 private:
  CoreArray<CoreString> group_names_;
};
