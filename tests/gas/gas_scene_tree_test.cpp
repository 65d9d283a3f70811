// Scenes at rest: the same hits as one flat mesh, what is left out, what nested queries are told, who is seen.
#include "gas/gas_scene_tree.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>

#include "gas/structure/gas_nested_query.h"
#include "support/scene_check.h"
#include "support/test_scale.h"
#include "support/tree_oracle.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_module/ctx_helpers.h"

namespace {

using Vec = GMathVec3<double>;

constexpr uint none = core_invalid_index;
const double infinity = std::numeric_limits<double>::infinity();

TEST(GasSceneTree, hits_what_the_flattened_scene_hits) {
  QueryWorld world;
  for (uint seed = 1; seed <= scaled(6, 2); ++seed) {
    SCOPED_TRACE(seed);
    SceneMaker maker(world, seed, SceneMotion::none);
    std::vector<SceneNode> nodes = maker.make(seed == 1 ? 1 : 10, 3);
    const auto scene = build_scene(world, nodes);
    SceneCheck check(world, *scene, nodes);
    std::vector<TestRay> rays = make_rays(FlatScene(nodes, nullptr, 0.0).data, scaled(2000, 800), seed);
    for (uint k = 0; k < rays.size(); ++k) rays[k].type = static_cast<GMathRay::Type>(k * 5 / 3 % GMathRay::lookup);
    check.check(rays);
    RandomValues random(seed);
    for (uint k = 0; k < 4; ++k) check.check_frustum(make_scene_planes(random, random.get(0.3, 3.0)));
    EXPECT_GT(check.listed_count, 0u);
    EXPECT_GT(check.point_count, 0u);
  }
}

/// A large object without any shape of its own: a floor whose ends single precision does not hold. Counts who asks.
class HugeObject final : public ModuleSceneObject {
 public:
  HugeObject() : ModuleSceneObject(CoreString("huge")) { set_structure(&structure_, get_whole_functions()); }
  double get_geometry_count() const override { return 3e9; }
  double get_primitive_count() const override { return 9e9 + 1; }
  uint get_asked_count() const { return structure_.asked_count; }
  const GeometryIntersectionPath& get_path() const { return structure_.path; }

 private:
  struct Structure final : GasObject {
    Structure() {
      callbacks.ray_hit_nearest_static = [](const GasObject* self, const CtxEval&, CtxShader&,
                                            GeometryRaytraceCtx& query) {
        EXPECT_NE(query.shading, nullptr) << "the object has no table of its own";
        ++static_cast<const Structure*>(self)->asked_count;
      };
      callbacks.frustum_hit = [](const GasObject* self, const CtxEval&, CtxShader&, GeometryFrustumCtx& query) {
        EXPECT_NE(query.shading, nullptr);
        if (query.path != nullptr) static_cast<const Structure*>(self)->path.copy_from(*query.path);
      };
    }
    GMathBbox3<double> get_bbox() const override { return {{-1e39, -1e39, -1}, {1e39, 1e39, 1}}; }
    mutable uint asked_count = 0;
    mutable GeometryIntersectionPath path;  ///< of the last frustum
  } structure_;
};

std::vector<ModuleSceneObject*> get_objects(const std::vector<SceneNode>& nodes) {
  std::vector<ModuleSceneObject*> objects;
  for (const SceneNode& node : nodes) objects.push_back(node.object.get());
  return objects;
}

void create(GasSceneTree& scene, const QueryWorld& world, std::vector<ModuleSceneObject*> objects,
            AppProgressBar* progress = nullptr) {
  const auto count = static_cast<uint>(objects.size());
  scene.create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(objects.data(), count), progress);
}

/// The object that one ray hits first.
uint shoot(QueryWorld& world, const GasObject& scene, const Vec& origin, const Vec& direction) {
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, origin, direction);
  scene.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  return packet.get_nearest_path(0).empty() ? none : packet.get_nearest_path(0)[0].object_index;
}

TEST(GasSceneTree, leaves_out_what_cannot_be_hit) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(2)), empty(world, PolyMeshData());
  SceneShape without_structure(world, make_sphere(1));
  without_structure.structure = nullptr;
  std::vector<SceneMatrix> broken(5);
  broken[0].m[1][1] = 0.0;  // flat
  broken[1].m[2][0] = std::nan("");
  broken[2].m[0][3] = broken[3].m[0][0] = infinity;
  broken[4] = SceneMatrix{{{0}}};
  std::vector<SceneNode> nodes;
  for (const SceneMatrix& matrix : broken) nodes.push_back(make_node(sphere, {{0, matrix}}));
  nodes.push_back(make_node(empty));
  nodes.push_back(make_node(without_structure));
  for (uint k = 0; k < 3; ++k) nodes.push_back(make_node(sphere, {{0, make_translation({4.0 * k, 0, 0})}}));
  build_scene(world, nodes);
  std::vector<ModuleSceneObject*> objects = get_objects(nodes);
  const std::vector<ModuleSceneObject*> good(objects.end() - 3, objects.end());
  objects.insert(objects.end(), 2, nullptr);
  RandomValues random(1);
  std::shuffle(objects.begin(), objects.end(), random.get_engine());
  GasSceneTree scene;
  cluster_calls.lists = 0;
  create(scene, world, objects);
  EXPECT_EQ(cluster_calls.lists, 4u);  // the good ones, and the one that then has none
  EXPECT_EQ(scene.get_geometry_count(), 3.0);
  EXPECT_EQ(scene.get_primitive_count(), 3.0 * 128);
  for (uint index = 0; index < objects.size(); ++index) {
    const auto found = std::find(good.begin(), good.end(), objects[index]);
    EXPECT_EQ(scene.get_cluster_count(index) > 0, found != good.end());
    const double x = 4.0 * static_cast<double>(found - good.begin());
    EXPECT_TRUE(found == good.end() || shoot(world, scene, {x + 0.1, 0.2, -5}, {0, 0, 1}) == index) << index;
  }
}

TEST(GasSceneTree, a_single_object_decides_how_it_is_cut) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(4));
  std::vector<SceneNode> nodes;
  for (const auto& [count, ratio] : {std::pair(0u, 0.0f), std::pair(1024u, 0.3f)}) {
    nodes.push_back(make_node(sphere));
    cluster_calls.lists = 0;
    const auto scene = build_scene(world, nodes);
    EXPECT_EQ(cluster_calls.count, count);
    EXPECT_EQ(cluster_calls.ratio, ratio);
    EXPECT_EQ(scene->get_tree().item_count, static_cast<uint>(nodes.size()) * scene->get_cluster_count(0));
    if (count == 0) continue;
    CoreVector<void*> clusters;
    sphere.structure->get_clusters(clusters, count, ratio);
    ASSERT_EQ(clusters.get_count(), scene->get_cluster_count(0));
    EXPECT_GT(clusters.get_count(), 50u);
    EXPECT_EQ(scene->get_tree().item_weight_bits, nullptr);  // only the build reads the weights
  }
  cluster_calls.lists = 0;
  GasSceneTree scene;
  create(scene, world, {nullptr, nodes[0].object.get()});  // a null entry counts
  EXPECT_EQ(cluster_calls.count, 1024u);
}

TEST(GasSceneTree, is_built_anew_and_copied) {
  QueryWorld world;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  const SceneShape sphere(world, make_sphere(2));
  std::vector<SceneNode> nodes;
  for (uint k = 0; k < 5; ++k) nodes.push_back(make_node(sphere, {{0, make_translation({4.0 * k, 0, 0})}}));
  nodes[0].replaced = std::make_shared<GeometryOverride>();
  const GasSceneTree overridden(*build_scene(world, nodes));
  const std::vector<TestRay> rays = {{{0, 0.1, -5}, {0, 0, 1}}, {{4, 0.1, -5}, {0, 0, 1}}};
  GeometryRayPacket packet;
  const auto expect_nothing = [&](const GasSceneTree& scene) {
    for (const RayQuery& how : {RayQuery{true, nullptr}, {true, &blur}, {false, nullptr}, {false, &blur}}) {
      ask_rays(world, scene, packet, rays, how);
      EXPECT_TRUE(how.nearest ? packet.get_nearest(0).geometry == nullptr : packet.get_hits().get_hits().empty());
    }
    EXPECT_TRUE(scene.get_bbox().is_empty() && scene.get_bbox_at(world.ctx, 0.5).is_empty());
    for (uint mode = 0; mode < 5; ++mode) {
      GeometryFrustumCtx frustum;
      frustum.mode = mode;
      scene.frustum_hit(world.ctx, world.shader, frustum);
      EXPECT_TRUE(frustum.get_objects().empty() && frustum.get_points().empty());
    }
  };
  GasSceneTree scene, copy;
  expect_nothing(scene);
  const u64 least = scene.get_memory_size();
  create(scene, world, get_objects(nodes));
  copy = scene;
  world.ctx.set_motion_blur(&blur);
  scene.get_bbox_at(world.ctx, 0.5);  // what it keeps of this must go
  create(scene, world, {});
  expect_nothing(scene);
  EXPECT_EQ(scene.get_primitive_count(), 5.0 * 128);  // stays
  EXPECT_EQ(scene.get_memory_size(), least);
  const GasSceneTree second(copy);
  create(copy, world, {nullptr});
  expect_nothing(copy);
  EXPECT_EQ(copy.get_primitive_count(), 0.0);
  for (uint k = 0; k < 5; ++k) EXPECT_EQ(shoot(world, second, {4.0 * k, 0.1, -5}, {0, 0, 1}), k);
  create(scene, world, get_objects(nodes));
  EXPECT_EQ(find_tree_difference(second.get_tree(), scene.get_tree()), "");
  EXPECT_EQ(second.get_geometry_count(), 5.0);
  ask_rays(world, overridden, packet, rays);
  EXPECT_TRUE(packet.get_nearest_path(0)[0].geometry_override == nodes[0].replaced.get());
  scene.create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(scene.get_objects().get_items(), 5), nullptr);
  EXPECT_EQ(shoot(world, scene, {8, 0.1, -5}, {0, 0, 1}), 2u);
}

TEST(GasSceneTree, sizes_pass_what_fits_32_bits) {
  QueryWorld world;
  HugeObject a, b;
  b.set_global_matrix(make_translation({0, 0, 10}));
  GasSceneTree scene;
  create(scene, world, {&a, nullptr, &b});
  EXPECT_EQ(scene.get_geometry_count(), 6e9);
  EXPECT_EQ(scene.get_primitive_count(), 18e9 + 2);
  shoot(world, scene, {-1e6, 1e7, -5}, {0, 0, 1});
  shoot(world, scene, {1e30, 0, 5}, {0, 1, 1e-29});
  EXPECT_EQ(a.get_asked_count(), 1u);
  EXPECT_EQ(b.get_asked_count(), 2u);
}

TEST(GasSceneTree, is_the_same_for_any_number_of_threads) {
  QueryWorld world;
  SceneMaker maker(world, 8, SceneMotion::none);
  std::vector<SceneNode> nodes = maker.make(scaled(400, 100), 1);
  build_scene(world, nodes);
  GasSceneTree serial;
  create(serial, world, get_objects(nodes));
  for (const uint threads : {2u, 5u}) {
    QueryWorld crowd(8, threads);
    GasSceneTree parallel;
    AppProgressBar* progress = crowd.app.create_progress_bar("scene");
    create(parallel, crowd, get_objects(nodes), progress);
    EXPECT_EQ(find_tree_difference(parallel.get_tree(), serial.get_tree()), "");
    EXPECT_EQ(parallel.get_primitive_count(), serial.get_primitive_count());
    progress->finish();
  }
}

TEST(GasSceneTree, weighs_a_structure_once_for_all_its_objects) {
  static uint calls = 0;
  QueryWorld world;
  const SceneShape shapes[] = {{world, make_sphere(3)}, {world, make_sphere(4)}};
  ModuleClusterFunctions each = gas_get_cluster_functions(shapes[0].structure.get(), GasClusterDetail::full);
  static const auto get_weights = each.get_clusters_weights;
  each.get_clusters_weights = [](auto... arguments) {
    ++calls;
    get_weights(arguments...);
  };
  ModuleClusterFunctions shared = each;
  ASSERT_TRUE(shared.weights_depend_on_structure_only);
  each.weights_depend_on_structure_only = false;
  GasSceneTree scenes[2];
  for (const bool is_shared : {false, true}) {
    std::vector<std::unique_ptr<ModuleGeometry>> objects;
    std::vector<ModuleSceneObject*> list;
    for (uint k = 0; k < 12; ++k) {
      const SceneShape& shape = shapes[k * k % 5 % 2];
      objects.push_back(std::make_unique<ModuleGeometry>(CoreString("object"), shape.mesh, shape.structure,
                                                         is_shared ? shared : each));
      objects.back()->set_global_matrix(make_translation({0.7 * k, 0.1 * k * k, 0}));
      list.push_back(objects.back().get());
    }
    calls = 0;
    create(scenes[is_shared], world, list);
    EXPECT_EQ(calls, is_shared ? 2u : 12u);
  }
  EXPECT_EQ(find_tree_difference(scenes[1].get_tree(), scenes[0].get_tree()), "");
}

/// Two spheres, one behind the other on the z axis, in scenes three deep; outermost matrices stretch by two.
struct NestedSpheres {
  explicit NestedSpheres(QueryWorld& world) : sphere(world, make_sphere(2)) {
    for (uint k = 0; k < 2; ++k) {
      SceneMatrix matrix = make_translation({0, 0, 4.0 * k});
      matrix.m[0][0] = 2;
      SceneNode node = make_node(sphere);
      for (uint depth = 0; depth < 3; ++depth) {
        SceneNode outer;
        outer.keys = {{0, depth == 2 ? matrix : SceneMatrix()}};
        outer.children.push_back(std::move(node));
        node = std::move(outer);
      }
      nodes.push_back(std::move(node));
    }
    scene = build_scene(world, nodes);
  }
  ModuleSceneObject& get_object(uint k, uint depth) const {
    const SceneNode* node = &nodes[k];
    for (; depth > 0; --depth) node = &node->children[0];
    return *node->object;
  }
  SceneShape sphere;
  std::vector<SceneNode> nodes;
  std::shared_ptr<GasSceneTree> scene;
};

TEST(GasSceneTree, stop_rules_hold_across_nesting) {
  QueryWorld world;
  const NestedSpheres spheres(world);
  GeometryRayPacket packet;
  packet.resize(7);
  for (uint k = 0; k < 7; ++k) packet.set_ray(k, {0.1, 0.13 * k + 0.02, -5}, {0, 0, 1});
  for (uint max_hits = 1; max_hits < 6; ++max_hits) {
    packet.set_stop_rule(max_hits);
    spheres.scene->ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
    EXPECT_EQ(packet.get_hits().get_hits().size(), 7 * std::min(max_hits, 4u));
    packet.set_stop_rule(100, max_hits);  // by what they weigh, each of them 1
    spheres.scene->ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
    EXPECT_EQ(packet.get_hits().get_hits().size(), 7 * std::min(max_hits, 4u));
  }
}

TEST(GasSceneTree, rays_that_leave_an_object_do_not_hit_it_at_once) {
  QueryWorld world;
  const NestedSpheres spheres(world);
  // The spheres' fronts are at 4 and 8, their backs at 6 and 10. Each depth has its own distance.
  spheres.get_object(0, 3).set_raytrace_distance(4.5);
  spheres.get_object(1, 1).set_raytrace_distance(100);
  for (const GMathRay::Type type : {GMathRay::camera, GMathRay::shadow, GMathRay::diffuse, GMathRay::lookup}) {
    GeometryRayPacket packet;
    packet.resize(1);
    packet.set_ray(0, {0.01, 0.02, -5}, {0, 0, 1}, 0.0, DBL_MAX, 0.0, type);
    spheres.scene->ray_hit_static(world.ctx, world.shader, packet.begin_all_hits(world.shading));
    const bool starts_anywhere = type == GMathRay::camera || type == GMathRay::lookup;
    // An inner object's own distance, here 0, replaces that of the scene it is in.
    EXPECT_EQ(packet.get_hits().get_hits().size(), starts_anywhere ? 4u : 3u);
    spheres.scene->ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
    EXPECT_NEAR(packet.get_nearest(0).distance, starts_anywhere ? 4 : 6, 0.1);
  }
}

TEST(GasSceneTree, nested_queries_are_told_what_the_outer_one_says) {
  QueryWorld world;
  const NestedSpheres spheres(world);
  const GeometryPlane plane;
  struct Seen {
    std::set<std::pair<uint, uint>> matte;  ///< object, state
    uint count = 0;
  } seen;
  for (uint row = 0; row < 16; ++row) {
    const bool object_is = row & 1, allowed = row & 2, outer_is = row & 4, overridden = row & 8;
    spheres.get_object(0, 2).set_matte(object_is && !overridden);
    std::vector<ModuleSceneObject*> objects = get_objects(spheres.nodes);
    GeometryOverride matte;
    matte.has_matte = true;
    std::vector<GeometryOverride*> overrides = {object_is && overridden ? &matte
                                                                        : nullptr};  // shorter than the objects
    GasSceneTree scene;
    scene.create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(objects.data(), 2),
                 CoreBasicArray<GeometryOverride*>::make_view(overrides.data(), 1), nullptr);
    GeometryRayPacket packet;
    packet.resize(1);
    packet.set_ray(0, {0.01, 0.02, -5}, {0, 0, 1});
    GeometryRaytraceCtx& query = packet.begin_all_hits(world.shading);
    query.flags = 0xF00D'0000'0000'0007u;
    query.user_word = 77;
    query.planes = &plane;
    query.plane_count = 1;
    query.push_filter({CtxHelpers::filter_wireframes_callback, 0.8, 0.5, 1, nullptr});
    query.settings.allow_matte = allowed;
    query.matte = outer_is;
    seen = {};
    query.hit_user = &seen;
    query.hit_callback = [](GeometryRaytraceCtx& local, const uint&, const GeometryIntersection&, void* user) {
      auto& told = *static_cast<Seen*>(user);
      EXPECT_EQ(local.flags, 0xF00D'0000'0000'0006u);
      EXPECT_EQ(local.user_word, 77u);
      EXPECT_TRUE(local.planes == nullptr && local.plane_count == 0);
      EXPECT_EQ(static_cast<const GeometryRaytraceCtx*>(local.parent)->get_filter_count(), 0u);
      EXPECT_EQ(local.level, 4u);
      told.matte.insert({(*local.path)[0].object_index, local.matte});
      // Each sphere is hit twice. What a primitive's test leaves behind must not reach the next object.
      if (told.count++ % 2 == 0) {
        EXPECT_EQ(local.hit_weight, 1.0);
      } else {
        local.hit_weight = 0.5;
      }
    };
    scene.ray_hit_static(world.ctx, world.shader, query);
    EXPECT_EQ(seen.count, 4u);
    const std::set<std::pair<uint, uint>> expected = {{0, outer_is || (object_is && allowed)}, {1, outer_is}};
    EXPECT_EQ(seen.matte, expected) << row;
  }
}

TEST(GasSceneTree, frustums_are_told_the_instances_that_they_come_through) {
  QueryWorld world;
  const auto object = std::make_shared<HugeObject>();
  auto inner = std::make_shared<GasSceneTree>();
  GeometryOverride replaced[2];
  const auto create = [&](GasSceneTree& scene, ModuleSceneObject* only, GeometryOverride* of_it) {
    ModuleSceneObject* objects[] = {nullptr, only};
    GeometryOverride* overrides[] = {nullptr, of_it};
    scene.create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(objects, 2),
                 CoreBasicArray<GeometryOverride*>::make_view(overrides, 2), nullptr);
  };
  create(*inner, object.get(), &replaced[1]);
  ModuleCombiner combiner(CoreString("combiner"), {nullptr, object}, inner);
  GasSceneTree scene;
  create(scene, &combiner, &replaced[0]);
  GeometryFrustumCtx frustum;
  frustum.shading = &world.shading;
  scene.frustum_hit(world.ctx, world.shader, frustum);
  ASSERT_EQ(object->get_path().get_count(), 2u);
  for (uint level = 0; level < 2; ++level) {
    EXPECT_EQ(object->get_path()[level].object_index, 1u);
    EXPECT_TRUE(object->get_path()[level].geometry_override == &replaced[level]);
  }
}

// Rays of other types are tested in the flattened scene.
TEST(GasSceneTree, the_shader_s_override_and_the_kind_of_a_frustum_say_what_is_entered) {
  QueryWorld world;
  const NestedSpheres spheres(world);
  for (const uint depth : {0u, 3u}) {
    ModuleSceneObject& object = spheres.get_object(0, depth);
    object.set_flag(ModuleSceneObject::has_mask, true);
    object.set_flag(ModuleSceneObject::forced_visible, true);
    object.set_visibility_mask(~(1u << GMathRay::lookup));
    for (const bool overridden : {false, true}) {
      world.shader.visibility_override = overridden;
      GeometryRayPacket packet;
      ask_rays(world, *spheres.scene, packet, {{{0.01, 0.02, -5}, {0, 0, 1}, 0, DBL_MAX, 0, GMathRay::lookup}});
      EXPECT_EQ(packet.get_nearest_path(0)[0].object_index, overridden ? 0u : 1u);
      for (const GeometryFrustumMode mode : {GeometryFrustumMode::any, GeometryFrustumMode::all}) {
        GeometryFrustumCtx frustum;
        frustum.mode = static_cast<uint>(mode);
        frustum.kind = GMathRay::lookup;
        frustum.add_plane({{0, 0, -100}, {0, 0, 1}});
        spheres.scene->frustum_hit(world.ctx, world.shader, frustum);
        // A scene of which nothing is visible is wholly inside, as every empty one.
        const bool lists = overridden || (mode == GeometryFrustumMode::all && depth > 0);
        EXPECT_EQ(frustum.get_objects().size(), lists ? 2u : 1u);
        EXPECT_TRUE(mode == GeometryFrustumMode::any || frustum.result.hit_count == frustum.result.total);
      }
    }
    object.set_visibility_mask(~0u);
    object.set_flag(ModuleSceneObject::has_mask, false);
  }
}

}  // namespace
