// What all structures owe alike: class records, stages of progress, memory that is counted, and that motion data is
// made for what moves only and forgotten with what it was made for.
#include <gtest/gtest.h>

#include "gas/gas_geometry.h"
#include "support/curve_check.h"
#include "support/fake_geometry.h"
#include "support/progress_trace.h"
#include "support/scene_worlds.h"

namespace {

using Box = GMathBbox3<double>;

PolyMeshData make_mesh(uint seed) {
  PolyMeshData data = make_soup(300, seed);
  add_motion(data, 2, 0.0, 1.0, seed, true);
  return data;
}
CurveData make_fur(uint seed) {
  CurveData data = make_hair(CurveBasis::linear, 60, seed);
  add_motion(data, 2, 0.0, 1.0, seed);
  return data;
}
std::vector<SceneNode> make_nodes(const SceneShape& shape, uint count, double way) {
  std::vector<SceneNode> nodes;
  for (uint k = 0; k < count; ++k)
    nodes.push_back(make_node(shape, {{0.0, make_translation({2.0 * k, 0, 0})}, {1.0, make_translation({0, way, 0})}}));
  return nodes;
}

/// Moves all instances of a bundle by `way`, a double, in a unit of time.
void move(void* way, const double& time, SceneMatrix* matrices) {
  for (uint k = 0; k < 8; ++k) matrices[k] = make_translation({2.0 * k, *static_cast<double*>(way) * time, 0});
}

/// Of each kind two, which move differently.
class GasStructures : public testing::Test {
 protected:
  template <class Structure>
  void expect_memory_to_be_counted(const Structure& structure) {
    const CtxMotionBlur blur(0.0, 1.0, 3);
    world.ctx.set_motion_blur(&blur);
    const u64 at_rest = structure.get_memory_size();
    EXPECT_GE(at_rest, sizeof(Structure) + structure.get_tree().get_array_bytes());
    const uint reports = structure.get_memory_advert_count();
    structure.get_bbox_at(world.ctx, 0.5);
    EXPECT_GT(structure.get_memory_advert_count(), reports);
    const u64 nodes = u64{structure.get_tree().aligned_count} + structure.get_tree().oriented_count;
    ASSERT_GE(nodes, 50u);
    EXPECT_GE(structure.get_memory_size(), at_rest + 3 * 96 * nodes);
  }

  /// @param create  (structure): builds it as `second` was
  template <class Structure, class Create>
  void expect_motion_to_be_forgotten(const Structure& first, const Structure& second, const Create& create) {
    const CtxMotionBlur blur(0.0, 1.0, 3);
    world.ctx.set_motion_blur(&blur);
    const Box former = first.get_bbox_at(world.ctx, 1.0), expected = second.get_bbox_at(world.ctx, 1.0);
    EXPECT_NE(former, expected);
    Structure assigned(first), rebuilt(first);
    for (Structure* structure : {&assigned, &rebuilt}) EXPECT_EQ(structure->get_bbox_at(world.ctx, 1.0), former);
    assigned = second;
    create(rebuilt);
    for (Structure* structure : {&assigned, &rebuilt}) EXPECT_EQ(structure->get_bbox_at(world.ctx, 1.0), expected);
  }

  /// What `create` says on a bar.
  template <class Create>
  std::string trace(const Create& create) {
    ProgressTrace trace;
    AppProgressBar* bar = world.app.create_progress_bar("test");
    trace.watch(*bar);
    create(bar);
    bar->finish();
    return trace.get_text();
  }
  /// As the scenes, but its instances are meshes.
  void create(GasGeometryBundle& of_instances, const SceneShape& shape, double& way, AppProgressBar* bar = nullptr) {
    BundleInput input;
    for (uint k = 0; k < 8; ++k) input.add(shape.mesh.get(), make_translation({2.0 * k, 0, 0}));
    input.create(world.app, of_instances, bar);
    of_instances.set_matrices_callback(move, &way);
  }
  static CoreBasicArray<ModuleSceneObject*> get_objects(const GasSceneTree& scene) {
    return CoreBasicArray<ModuleSceneObject*>::make_view(scene.get_objects().get_items(),
                                                         scene.get_objects().get_count());
  }
  static std::string get_tree_stages(const GasBvh<4>& tree) {
    const std::string items = std::to_string(tree.item_count);
    const std::string nodes = std::to_string(tree.aligned_count + tree.quantized_count + tree.oriented_count);
    return " Split items 0.9 " + items + "/" + items + "\n Finalize 0.1 " + nodes + "/" + nodes + "\n1 ";
  }

  QueryWorld world;
  const SceneShape mesh{world, make_mesh(1)}, other_mesh{world, make_mesh(2)};
  const BuiltFur fur{world.ctx, make_fur(1)}, other_fur{world.ctx, make_fur(2)};
  std::vector<SceneNode> nodes = make_nodes(mesh, 8, 10), other_nodes = make_nodes(other_mesh, 8, 20);
  const std::shared_ptr<GasSceneTree> scene = build_scene(world, nodes), other_scene = build_scene(world, other_nodes);
  double way = 10, other_way = 20;
  GasGeometryBundle bundle, other_bundle;
};

TEST_F(GasStructures, have_class_records_under_their_names) {
  const struct {
    const char* name;
    const CoreClassInfo &info, &base;
  } rows[] = {{"GasClusterable", GasClusterable::class_info(), GasObject::class_info()},
              {"GasGeometryBase", GasGeometryBase::class_info(), GasClusterable::class_info()},
              {"GasGeometryBvh4", mesh.structure->get_class_info(), GasGeometryBase::class_info()},
              {"GasGeometry", GasGeometry().get_class_info(), GasGeometryBase::class_info()},
              {"GasFur", fur.structure.get_class_info(), GasClusterable::class_info()},
              {"GasSceneTree", scene->get_class_info(), GasObject::class_info()}};
  for (const auto& row : rows) {
    EXPECT_EQ(CoreClassInfo::find(row.name), &row.info) << row.name;
    EXPECT_EQ(row.info.get_base(), &row.base) << row.name;
  }
}

TEST_F(GasStructures, count_their_memory) {
  expect_memory_to_be_counted(*mesh.structure);
  expect_memory_to_be_counted(fur.structure);
  expect_memory_to_be_counted(*scene);
  create(bundle, mesh, way);
  expect_memory_to_be_counted(bundle);
}

TEST_F(GasStructures, forget_motion_with_what_it_was_made_for) {
  expect_motion_to_be_forgotten(*mesh.structure, *other_mesh.structure, [&](GasGeometryBvh4& structure) {
    structure.create(world.ctx, other_mesh.mesh.get(), other_mesh.mesh.get(), nullptr);
  });
  GasGeometry grid, other_grid;
  grid.create(world.ctx, mesh.mesh.get(), mesh.mesh.get(), nullptr);
  other_grid.create(world.ctx, other_mesh.mesh.get(), other_mesh.mesh.get(), nullptr);
  expect_motion_to_be_forgotten(grid, other_grid, [&](GasGeometry& structure) {
    structure.create(world.ctx, other_mesh.mesh.get(), other_mesh.mesh.get(), nullptr);
  });
  expect_motion_to_be_forgotten(fur.structure, other_fur.structure, [&](GasFur& structure) {
    structure.create(world.ctx, &other_fur.geometry, &other_fur.geometry, nullptr);
  });
  expect_motion_to_be_forgotten(*scene, *other_scene, [&](GasSceneTree& structure) {
    structure.create(world.app, get_objects(*other_scene), nullptr);
  });
  create(bundle, mesh, way);
  create(other_bundle, other_mesh, other_way);
  expect_motion_to_be_forgotten(bundle, other_bundle,
                                [&](GasGeometryBundle& structure) { create(structure, other_mesh, other_way); });
}

TEST_F(GasStructures, are_not_refitted_when_nothing_moves) {
  const BuiltMesh still_mesh(world, make_soup(300, 1));
  const BuiltFur still_fur(world.ctx, make_hair(CurveBasis::linear, 60, 1));
  const CtxMotionBlur blur(0.0, 1.0, 3);
  world.ctx.set_motion_blur(&blur);
  world.app.set_progress_bar_hook([](AppProgressBar&) { ADD_FAILURE() << "a refit"; });
  CoreBasicArray<void*> whole(1);
  whole[0] = nullptr;
  for (const GasClusterable* structure : {static_cast<const GasClusterable*>(&still_mesh.structure),
                                          static_cast<const GasClusterable*>(&still_fur.structure)}) {
    GMathBbox3<float> box;
    structure->get_clusters_bboxes_at(world.ctx, 0.5, whole, &box);
    EXPECT_EQ(structure->get_bbox_at(world.ctx, 0.5), structure->get_bbox());
    EXPECT_EQ(Box(box), structure->get_bbox());
  }
}

TEST_F(GasStructures, blend_boxes_between_the_samples_around_a_time) {
  FakeGeometry row, none;
  row.add_row(12);
  row.moves = none.moves = true;
  row.velocity = {0, 0, 3.3};
  const CtxMotionBlur open(0.25, 1.25, 4), closed(0.5, 0.5, 1);
  GasGeometryBvh4 of_mesh, of_nothing;
  GasFur of_fur;
  GasGeometry of_grid;
  of_mesh.create(world.ctx, &row, &row, nullptr);
  of_grid.create(world.ctx, &row, &row, nullptr);
  of_fur.create(world.ctx, &row, &row, nullptr);
  of_nothing.create(world.ctx, &none, &none, nullptr);
  CoreBasicArray<void*> whole(1);
  whole[0] = nullptr;
  for (GasClusterable* structure : {static_cast<GasClusterable*>(&of_mesh), static_cast<GasClusterable*>(&of_fur),
                                    static_cast<GasClusterable*>(&of_grid)}) {
    for (const CtxMotionBlur* blur : {&open, &closed}) {
      world.ctx.set_motion_blur(blur);
      for (const double time : {-5.0, 0.25, 0.25 + 1.3 / 3.0, 1.0, 1.25, 5.0}) {
        const Box box = structure->get_bbox_at(world.ctx, time);
        const double shift = blur == &open ? 3.3 * std::clamp(time, 0.25, 1.25) : 3.3 * 0.5;
        EXPECT_NEAR(box.min.z, shift, 1e-6);
        EXPECT_NEAR(box.max.z, 1 + shift, 1e-6);
        volatile float rounded =
            static_cast<float>(box.max.z);  // through memory, or a compiler may take it for the same
        EXPECT_EQ(box.max.z, rounded);
        GMathBbox3<float> of_cluster;
        structure->get_clusters_bboxes_at(world.ctx, time, whole, &of_cluster);
        EXPECT_EQ(Box(of_cluster), box);
      }
    }
    // What turns bad on the way stays where it rests.
    row.boxes_at_any_time = row.boxes;
    row.boxes_at_any_time[0].min.x = NAN;
    row.boxes_at_any_time[3].max.y = HUGE_VAL;
    std::swap(row.boxes_at_any_time[11].min.x, row.boxes_at_any_time[11].max.x);
    structure->dirty_motion_blur();
    EXPECT_EQ(structure->get_bbox_at(world.ctx, 0.5), structure->get_bbox());
    row.boxes_at_any_time.clear();
  }
  EXPECT_EQ(of_nothing.get_bbox_at(world.ctx, 0.5), of_nothing.get_bbox());
  world.ctx.set_motion_blur(nullptr);
  for (const GasObject* structure : {static_cast<GasObject*>(&of_mesh), static_cast<GasObject*>(&of_fur)})
    EXPECT_EQ(structure->get_bbox_at(world.ctx, 0.7), structure->get_bbox());
}

TEST_F(GasStructures, tell_each_stage_of_a_build_with_its_share_and_all_its_steps) {
  GasGeometryBvh4 of_mesh, of_groups;
  GasFur of_fur;
  GasSceneTree of_scene;
  FakeGeometry main(2), extra(2);
  main.add_row(10);
  extra.add_row(10);
  CoreBasicArray<uint> twice(2);
  twice[0] = twice[1] = 2;
  const std::string said[] = {
      trace([&](AppProgressBar* bar) { of_mesh.create(world.ctx, mesh.mesh.get(), mesh.mesh.get(), bar); }),
      trace([&](AppProgressBar* bar) { of_groups.create(world.ctx, &main, &main, nullptr, &extra, twice, bar); }),
      trace([&](AppProgressBar* bar) { of_fur.create(world.ctx, &fur.geometry, &fur.geometry, bar); }),
      trace([&](AppProgressBar* bar) { of_scene.create(world.app, get_objects(*scene), bar); }),
      trace([&](AppProgressBar* bar) { create(bundle, mesh, way, bar); })};
  EXPECT_EQ(said[0],
            "Prepare primitives 0.5 0/0\n List primitives 0.2 300/300\n Compute primitives AABB 0.8 300/300\n"
            "Build BVH 0.5 0/0\n" +
                get_tree_stages(of_mesh.get_tree()));
  EXPECT_EQ(said[1],
            "Prepare primitives 0.5 0/0\n List primitives 0.2 10/10\n Count groups 0.1 2/2\n Order groups 0.1 2/2\n"
            " Compute primitives AABB 0.6 20/20\nBuild BVH 0.5 0/0\n" +
                get_tree_stages(of_groups.get_tree()));
  EXPECT_EQ(said[2], "Compute primitives AABB 0.2 360/360\nBuild BVH 0.8 0/0\n" + get_tree_stages(of_fur.get_tree()));
  EXPECT_EQ(said[3],
            "check objects 0.4 8/8\ncreate tree 0.3 8/8\ncreate tree 0.3 0/0\n" + get_tree_stages(of_scene.get_tree()));
  EXPECT_EQ(said[4], "check bundle geometries 0.4 8/8\ncreate tree 0.3 8/8\ncreate tree 0.9 0/0\n" +
                         get_tree_stages(bundle.get_tree()));
}

TEST_F(GasStructures, tell_each_stage_of_a_refit) {
  ProgressTrace trace;
  world.app.set_progress_bar_hook([&](AppProgressBar& bar) { trace.watch(bar); });
  const CtxMotionBlur blur(0.0, 1.0, 2);
  world.ctx.set_motion_blur(&blur);
  const auto get_stages = [](const GasBvh<4>& tree, const std::string& of_boxes, const std::string& of_nodes) {
    const std::string nodes = std::to_string(tree.aligned_count + tree.oriented_count);
    const std::string sample =
        "Compute primitives AABB " + of_boxes + " 0/0\nRefit BVH " + of_nodes + " " + nodes + "/" + nodes + "\n";
    return sample + sample + "1 ";
  };
  mesh.structure->get_bbox_at(world.ctx, 0.5);
  EXPECT_EQ(trace.get_text(), get_stages(mesh.structure->get_tree(), "0.25", "0.25"));
  fur.structure.get_bbox_at(world.ctx, 0.5);
  EXPECT_EQ(trace.get_text(), get_stages(fur.structure.get_tree(), "0.05", "0.45"));
}

}  // namespace
