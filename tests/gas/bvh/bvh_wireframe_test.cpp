// The filter that a query over a wireframe runs with.
#include <gtest/gtest.h>

#include "support/box_query.h"
#include "support/test_tree.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_geometry/geometry_object.h"
#include "vq_module/ctx_helpers.h"

namespace {

class ModeGeometry final : public GeometryObject {
 public:
  explicit ModeGeometry(uint mode) : mode_(mode) {}
  uint get_render_mode() const override { return mode_; }
  uint get_primitive_count() const override { return 0; }
  const CoreArray<CoreString>& get_shading_groups() const override { return groups_; }
  uint get_primitive_shading_group(const uint&) const override { return 0; }
  GMathBbox3<double> get_primitive_bbox(const CtxEval&, const uint&) const override { return {}; }
  void ray_hit_primitive(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, const uint&) const override {}
  void frustum_hit_primitive(const CtxEval&, CtxShader&, GeometryFrustumCtx&, const uint&) const override {}
  GeometrySurfacePoint get_surface_point(const GeometryIntersection&, const double&) const override { return {}; }

 private:
  uint mode_;
  CoreArray<CoreString> groups_;
};

bool pass(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, GeometryIntersection&, const GeometryRaytraceFilter&) {
  return true;
}

struct FilterQuery : BoxQuery {
  explicit FilterQuery(const GeometryObject* geometry) : BoxQuery({BoxRay{{-1, 0.5, 0.5}, {1, 0, 0}}}) {
    base_geometry = geometry;
    on_leaf = [this](GeometryRaytraceCtx& query, const LeafVisit&) {
      seen.assign(query.filters, query.filters + query.filter_count);
      EXPECT_EQ(query.geometry, base_geometry);
    };
  }
  std::vector<GeometryRaytraceFilter> seen;
};

const GasBvh<4>& get_tree(bool is_leaf) {
  static const GasBvh<4> node = make_node_by_hand({{{0, 0, 0}, {1, 1, 1}}, {{2, 0, 0}, {3, 1, 1}}});
  static const GasBvh<4> leaf = make_tree({FloatBox({0, 0, 0}, {1, 1, 1})});
  return is_leaf ? leaf : node;
}

}  // namespace

TEST(BvhWireframe, filters_while_the_query_runs) {
  const ModeGeometry wires(GeometryObject::render_mode_wireframe), solid(0);
  for (const bool is_leaf : {false, true}) {
    FilterQuery query(&wires);
    EXPECT_EQ(query.run<BvhHits::all>(get_tree(is_leaf)).filter_count, 0u);
    ASSERT_EQ(query.seen.size(), 1u);
    EXPECT_EQ(query.seen[0].function, &CtxHelpers::filter_wireframes_callback);
    EXPECT_EQ(query.seen[0].a, 0.8);
    EXPECT_EQ(query.seen[0].b, 0.5);
    EXPECT_EQ(query.seen[0].nearest, 0);
    EXPECT_EQ(query.run<BvhHits::nearest>(get_tree(is_leaf)).filter_count, 0u);
    ASSERT_EQ(query.seen.size(), 1u);
    EXPECT_EQ(query.seen[0].nearest, 1);
    FilterQuery unfiltered(&solid);
    unfiltered.run<BvhHits::all>(get_tree(is_leaf));
    EXPECT_TRUE(unfiltered.seen.empty());
  }
  FilterQuery query(&wires);
  EXPECT_EQ(query.run<BvhHits::all>(GasBvh<4>()).filter_count, 0u);
}

TEST(BvhWireframe, is_pushed_once_and_only_where_there_is_room) {
  const ModeGeometry wires(GeometryObject::render_mode_wireframe);
  FilterQuery query(&wires);
  const auto push = [](uint count, GeometryFilterFunction function) {
    return [=](GeometryRaytraceCtx& ctx) {
      for (uint k = 0; k < count; ++k) ctx.push_filter({function, 0.1, 0.2, 0, nullptr});
    };
  };
  EXPECT_EQ(
      query.run<BvhHits::all>(get_tree(false), nullptr, push(1, CtxHelpers::filter_wireframes_callback)).filter_count,
      1u);
  ASSERT_EQ(query.seen.size(), 1u);
  EXPECT_EQ(query.seen[0].a, 0.1);  // the one that was there
  EXPECT_EQ(query.run<BvhHits::all>(get_tree(false), nullptr, push(2, pass)).filter_count, 2u);
  ASSERT_EQ(query.seen.size(), 3u);
  EXPECT_EQ(query.seen[2].function, &CtxHelpers::filter_wireframes_callback);
  constexpr uint full = GeometryRaytraceData::filter_capacity;
  EXPECT_EQ(query.run<BvhHits::all>(get_tree(false), nullptr, push(full, pass)).filter_count, full);
  EXPECT_EQ(query.seen.size(), full);
}

TEST(BvhWireframe, an_instance_may_override_the_mode) {
  const ModeGeometry wires(GeometryObject::render_mode_wireframe);
  GeometryOverride replaced;
  GeometryIntersectionPath path;
  path.add({0, nullptr, &replaced});
  FilterQuery query(&wires);
  const auto count_filters = [&](bool has_mode, uint mode) {
    replaced.has_render_mode = has_mode;
    replaced.render_mode = mode;
    query.run<BvhHits::all>(get_tree(false), nullptr, [&](GeometryRaytraceCtx& ctx) { ctx.path = &path; });
    return query.seen.size();
  };
  EXPECT_EQ(count_filters(false, 0), 1u);
  EXPECT_EQ(count_filters(true, 0), 0u);
  EXPECT_EQ(count_filters(true, GeometryObject::render_mode_wireframe), 1u);
}
