// A stop request ends builds and refits early: the structure is then empty (or answers at rest), its stages are closed,
// and what follows once the request is cleared is as if nothing had happened.
#include <gtest/gtest.h>

#include <thread>

#include "gas/gas_geometry.h"
#include "support/curve_check.h"
#include "support/scene_worlds.h"
#include "support/test_scale.h"
#include "support/tree_oracle.h"
#include "support/uv_world.h"

namespace {

PolyMeshData make_mesh() {
  PolyMeshData data = make_soup(scaled(20000, 6000), 1, 0.05);
  add_motion(data, 2, 0.0, 1.0, 1, true);
  data.least_recorded_triangles = 0;
  return data;
}

bool is_empty(const GasObject& structure) { return !gmath_is_valid_box(structure.get_bbox()); }

template <class Structure>
std::string find_difference(const Structure& a, const Structure& b) {
  return find_tree_difference(a.get_tree(), b.get_tree());
}
std::string find_difference(const GasGeometry& a, const GasGeometry& b) {
  const CoreVector<uint> parts_a = a.get_grid().list_parts(a.get_primitive_count());
  const CoreVector<uint> parts_b = b.get_grid().list_parts(b.get_primitive_count());
  return std::equal(parts_a.begin(), parts_a.end(), parts_b.begin(), parts_b.end()) ? "" : "parts";
}

class GasStop : public testing::TestWithParam<uint> {
 protected:
  GasStop() : mesh(world, make_mesh()) {
    CurveData curves = make_hair(CurveBasis::linear, scaled(1500, 600), 2);
    add_motion(curves, 2, 0.0, 1.0, 2);
    CoreString error;
    EXPECT_TRUE(hair.create(std::move(curves), error));
    for (uint k = 0; k < scaled(40, 12); ++k)
      nodes.push_back(
          make_node(mesh, {{0.0, make_translation({3.0 * k, 0, 0})}, {1.0, make_translation({0, 3.0 * k, 0})}}));
    scene = build_scene(world, nodes);
  }

  /// Builds with a bar that asks to stop when the whole has come to `fraction`.
  template <class Create>
  void create_stopped_at(double fraction, const Create& create) {
    AppProgressBar* bar = world.app.create_progress_bar("test");
    CoreString open_task("none");
    bar->set_sink(
        [&](const AppProgressReport& report) {
          if (report.fraction >= fraction) world.app.request_stop();
          if (report.is_finished) open_task = report.task;
        },
        std::chrono::milliseconds(0));
    if (fraction == 0.0) world.app.request_stop();
    create(bar);
    bar->finish();
    EXPECT_TRUE(open_task.is_empty()) << open_task.get_data() << " is still open";
  }

  /// @param create  (structure, bar)
  template <class Structure, class Create>
  void check(const Create& create) {
    Structure whole;
    create(whole, nullptr);
    ASSERT_FALSE(is_empty(whole));
    const CtxMotionBlur blur(0.0, 1.0, 3);
    uint stopped_count = 0;
    const uint step = get_test_scale() < 1.0 ? 2 : 1;  // of the fractions
    const double fractions[] = {0.0, 0.1, 0.3, 0.5, 0.6, 0.8, 0.95, 1.0};
    for (uint k = 0; k < std::size(fractions); k += step) {
      const double fraction = fractions[k];
      Structure structure;
      create(structure, nullptr);
      world.ctx.set_motion_blur(&blur);
      create_stopped_at(fraction, [&](AppProgressBar* bar) { create(structure, bar); });
      stopped_count += is_empty(structure) ? 1 : 0;
      // All or nothing.
      EXPECT_TRUE(is_empty(structure) || find_difference(structure, whole).empty());
      GeometryRayPacket packet;
      packet.resize(1);
      packet.set_ray(0, {0, 0, 5}, {0, 0, -1});
      structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
      EXPECT_TRUE(packet.get_nearest(0).geometry == nullptr || !is_empty(structure));
      EXPECT_EQ(structure.get_bbox_at(world.ctx, 1.0), structure.get_bbox()) << "a refit while a stop is requested";
      GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
      blur.init_raytrace_ctx(query);
      world.shader.motion_blur = &blur;
      structure.ray_hit_nearest_motion(world.ctx, world.shader, query);
      EXPECT_TRUE(is_empty(structure) || query.span_stamp == 0) << "primitives move in boxes at rest";
      world.app.clear_stop_request();
      create(structure, nullptr);
      EXPECT_EQ(find_difference(structure, whole), "");
      EXPECT_NE(structure.get_bbox_at(world.ctx, 1.0), structure.get_bbox());
    }
    EXPECT_GE(stopped_count, 4 / step);
  }

  QueryWorld world{8, GetParam()};
  const SceneShape mesh;
  TubeMeshFast hair;
  std::vector<SceneNode> nodes;
  std::shared_ptr<GasSceneTree> scene;
};

TEST_P(GasStop, leaves_an_empty_structure_and_closed_stages) {
  check<GasGeometryBvh4>([&](GasGeometryBvh4& structure, AppProgressBar* bar) {
    EXPECT_TRUE(structure.create(world.ctx, mesh.mesh.get(), mesh.mesh.get(), bar));
  });
  const CoreBasicArray<uint> flags(mesh.mesh->get_shading_groups().get_count());
  check<GasGeometryBvh4>([&](GasGeometryBvh4& structure, AppProgressBar* bar) {
    EXPECT_TRUE(structure.create(world.ctx, mesh.mesh.get(), mesh.mesh.get(), mesh.mesh.get(), nullptr, flags, bar));
  });
  check<GasGeometry>([&](GasGeometry& structure, AppProgressBar* bar) {
    EXPECT_TRUE(structure.create(world.ctx, mesh.mesh.get(), mesh.mesh.get(), bar));
  });
  check<GasFur>(
      [&](GasFur& structure, AppProgressBar* bar) { EXPECT_TRUE(structure.create(world.ctx, &hair, &hair, bar)); });
  check<GasSceneTree>([&](GasSceneTree& structure, AppProgressBar* bar) {
    structure.create(world.app,
                     CoreBasicArray<ModuleSceneObject*>::make_view(scene->get_objects().get_items(),
                                                                   scene->get_objects().get_count()),
                     bar);
  });
  BundleInput input;
  for (const SceneNode& node : nodes) input.add(mesh.mesh.get(), node.keys[0].matrix);
  check<GasGeometryBundle>(
      [&](GasGeometryBundle& structure, AppProgressBar* bar) { input.create(world.app, structure, bar); });
}

// One of a few tries counts: the machine may be busy.
TEST(GasUvTree, a_stop_request_ends_a_large_build_at_once) {
  UvWorld world(2);
  PolyMeshData own = make_terrain(scaled(500, 200), 1), indexed = own;
  own.uv_projection = PolyMeshProjection::planar;
  indexed.uv_maps = {{"uv", own.positions, own.polygon_vertices}};
  for (const PolyMeshData& data : {own, indexed}) world.add(make_uv_mesh(data));
  using Clock = std::chrono::steady_clock;
  const auto build_until_stopped = [&](Clock::duration delay) {
    GasUvTree tree;
    Clock::time_point requested{};
    std::thread user([&] {
      std::this_thread::sleep_for(delay);
      requested = Clock::now();
      world.app.request_stop();
    });
    world.build(tree);
    const Clock::time_point end = Clock::now();
    user.join();
    world.app.clear_stop_request();
    return end - requested;
  };
  const Clock::time_point start = Clock::now();
  GasUvTree whole;
  world.build(whole);
  const Clock::duration whole_time = Clock::now() - start;
  for (uint k = 0; k < 8; ++k) {
    bool is_in_time = false;
    for (uint n = 0; n < 5 && !is_in_time; ++n)
      is_in_time = build_until_stopped(whole_time * k / 8) < std::chrono::milliseconds(100);
    EXPECT_TRUE(is_in_time) << k;
  }
}

INSTANTIATE_TEST_SUITE_P(Threads, GasStop, testing::Values(1u, 3u));

}  // namespace
