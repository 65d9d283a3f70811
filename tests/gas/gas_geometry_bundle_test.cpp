// Bundles at rest: the same hits as one flat mesh, alone, in each other and in scenes; what is left out, invisible or
// displaced; the structures below. Displaced bundles also in motion.
#include "gas/gas_geometry_bundle.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

#include "gas/gas_fur.h"
#include "gas/gas_geometry.h"
#include "host/displaced_mesh_scenes.h"
#include "support/curve_scenes.h"
#include "support/fake_geometry.h"
#include "support/scene_check.h"
#include "support/test_scale.h"
#include "support/tree_oracle.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_curve/tube_mesh.h"
#include "vq_curve/tube_mesh_fast.h"

namespace {

using Vec = GMathVec3<double>;
using Matrix = GMathMatrix4x4<double>;

const double infinity = std::numeric_limits<double>::infinity();

void check_at_rest(SceneCheck check, uint seed) {
  check.check(make_rays(check.flatten(0.0).data, scaled(1000, 600), seed));
  RandomValues random(seed);
  for (uint k = 0; k < 5; ++k) check.check_frustum(make_scene_planes(random, k == 4 ? 100.0 : random.get(0.3, 3.0)));
  EXPECT_GT(check.listed_count, 0u);
  EXPECT_GT(check.point_count, 0u);
}

TEST(GasGeometryBundle, hits_what_the_flattened_bundle_hits) {
  BundleWorld world;
  for (uint seed = 1; seed <= scaled(3, 2); ++seed) {
    SCOPED_TRACE(seed);
    SceneMaker maker(world, seed, SceneMotion::none, true);
    SceneNode bundle = maker.make_bundle(seed == 1 ? 1 : 12, seed == 1 ? 0 : 3);
    bundle.children[0].is_visible = true;
    for (uint k = 0; k < 3; ++k) bundle.children.back().keys[0].matrix.m[k][1] *= 1e-4;  // nearly flat
    make_object(world, bundle);
    check_at_rest(SceneCheck(world, bundle), seed);
    std::vector<SceneNode> nodes = maker.make(8, 3);
    check_at_rest(SceneCheck(world, *build_scene(world, nodes), nodes), seed);
  }
}

/// The instance that one ray hits first.
uint shoot(QueryWorld& world, const GasObject& bundle, const Vec& origin) {
  const GeometryIntersection hit = shoot(world, bundle, TestRay{origin, {0, 0, 1}});
  return hit.geometry == nullptr ? core_invalid_index : hit.instance;
}

void expect_nothing(QueryWorld& world, const GasGeometryBundle& bundle) {
  const CtxMotionBlur blur(0.0, 1.0, 2);
  for (const CtxMotionBlur* used : {&blur, static_cast<const CtxMotionBlur*>(nullptr)})
    EXPECT_EQ(shoot(world, bundle, TestRay{{0, 0.1, -5}, {0, 0, 1}}, used).geometry, nullptr);
  EXPECT_TRUE(bundle.get_bbox().is_empty());
  CoreVector<void*> clusters;
  bundle.get_clusters(clusters, 1024, 0.3f);
  EXPECT_TRUE(clusters.is_empty());
  EXPECT_EQ(bundle.get_primitive_count(), 0.0);
}

TEST(GasGeometryBundle, leaves_out_what_cannot_be_hit) {
  QueryWorld world;
  PolyMeshData nowhere = make_soup(3, 1);
  for (auto& position : nowhere.positions) position.x = std::nanf("");
  const SceneShape sphere(world, make_sphere(2)), empty(world, PolyMeshData()), lost(world, nowhere);
  std::vector<Matrix> broken(5);
  broken[0].m[1][1] = 0.0;  // flat
  broken[1].m[2][0] = std::nan("");
  broken[2].m[0][3] = broken[3].m[0][0] = infinity;
  broken[4] = Matrix{{{0}}};
  BundleInput input;
  for (const Matrix& matrix : broken) input.add(sphere.mesh.get(), matrix);
  for (GeometryObject* geometry :
       {static_cast<GeometryObject*>(empty.mesh.get()), static_cast<GeometryObject*>(lost.mesh.get()),
        static_cast<GeometryObject*>(nullptr)})
    input.add(geometry, {});
  input.add(sphere.mesh.get(), {});
  input.indices.back() = 4;  // of four geometries
  for (uint k = 0; k < 3; ++k) input.add(sphere.mesh.get(), make_translation({4.0 * k, 0, 0}));
  input.add(sphere.mesh.get(), make_translation({0, 0, -3}));
  input.indices.pop_back();  // shorter than the matrices
  for (const bool merge : {false, true}) {
    input.merge = merge;
    GasGeometryBundle bundle;
    const u64 least = bundle.get_memory_size();
    input.create(world.app, bundle);
    EXPECT_EQ(bundle.get_valid_instance_count(), 3u);
    EXPECT_EQ(bundle.get_primitive_count(), 3.0 * 128);
    for (uint k = 0; k < input.matrices.size(); ++k) EXPECT_EQ(bundle.get_cluster_count(k) > 0, k >= 9 && k < 12) << k;
    for (uint k = 0; k < 3; ++k) EXPECT_EQ(shoot(world, bundle, {4.0 * k + 0.1, 0.2, -5}), 9 + k);
    BundleInput().create(world.app, bundle);
    expect_nothing(world, bundle);
    EXPECT_LE(bundle.get_memory_size(), least + 64);
    BundleInput only;
    only.add(sphere.mesh.get(), broken[0]);
    only.create(world.app, bundle);
    expect_nothing(world, bundle);
  }
}

TEST(GasGeometryBundle, is_the_same_for_any_number_of_threads_and_hits_what_a_scene_hits) {
  QueryWorld world;
  SceneMaker maker(world, 8, SceneMotion::rigid);
  SceneNode root;
  root.is_bundle = true;
  root.keys = {{}};
  root.children = maker.make(scaled(300, 100), 0);
  BundleInput input;
  for (SceneNode& child : root.children) {
    child.hidden_from = core_invalid_index;
    input.add(child.shape->mesh.get(), child.keys[0].matrix);
  }
  GasGeometryBundle serial;
  input.create(world.app, serial);
  for (const uint threads : {2u, 4u}) {
    QueryWorld crowd(8, threads);
    GasGeometryBundle parallel;
    AppProgressBar* progress = crowd.app.create_progress_bar("bundle");
    input.create(crowd.app, parallel, progress);
    progress->finish();
    EXPECT_EQ(find_tree_difference(parallel.get_tree(), serial.get_tree()), "");
  }
  // The matrices and their inverses are the same, and so is every bit of the rays in the instances' spaces.
  QueryWorld many(most_scene_groups);
  const auto bundle = make_object(many, root);
  const auto scene = build_scene(many, root.children);
  const CtxMotionBlur blur(0.0, 1.0, 3);
  const std::vector<TestRay> rays =
      make_timed_rays(FlatScene(root.children, &blur, 0.5), {0.0, 0.2, 0.5, 0.9, 1.0}, scaled(4000, 1000), 1);
  for (const CtxMotionBlur* used : {static_cast<const CtxMotionBlur*>(nullptr), &blur}) {
    GeometryRayPacket in_bundle, in_scene;
    ask_rays(many, *bundle->get_structure(), in_bundle, rays, {true, used});
    ask_rays(many, *scene, in_scene, rays, {true, used});
    for (uint k = 0; k < rays.size(); ++k) {
      const GeometryIntersection &a = in_bundle.get_nearest(k), &b = in_scene.get_nearest(k);
      EXPECT_EQ(a.distance, b.distance) << describe(rays[k]);
      EXPECT_TRUE(b.geometry == nullptr || a.instance == in_scene.get_nearest_path(k)[0].object_index);
    }
  }
}

TEST(GasGeometryBundle, is_built_anew_and_copied) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(2)), triangle(world, make_soup(1, 1));
  BundleInput first, second;
  for (uint k = 0; k < 5; ++k) first.add(sphere.mesh.get(), make_translation({4.0 * k, 0, 0}));
  second.add(triangle.mesh.get(), {});
  first.pre_hits = {GasGeometryBundle::default_pre_hit};
  GasGeometryBundle bundle, other;
  first.create(world.app, bundle);
  const u64 size = bundle.get_memory_size();
  u64 leaf_count = 0;
  for (uint k = 0; k < 5; ++k) leaf_count += bundle.get_cluster_count(k);
  // A handle and a record a leaf; two matrices and a record an instance.
  const u64 per_leaf = sizeof(void*) + sizeof(GasInstanceLeaf), per_instance = 2 * sizeof(Matrix) + sizeof(GasInstance);
  EXPECT_GE(size, sizeof(bundle) + bundle.get_tree().get_array_bytes() + leaf_count * per_leaf + 5 * per_instance);
  first.add(sphere.mesh.get(), Matrix{{{0}}});  // left out, but stored
  first.create(world.app, other);
  EXPECT_EQ(other.get_memory_size(), size + 2 * (sizeof(Matrix) + sizeof(uint)));
  first.create(world.app, bundle);
  GasGeometryBundle copy(bundle);
  EXPECT_EQ(copy.get_memory_size(), other.get_memory_size());
  second.create(world.app, bundle);
  EXPECT_LT(bundle.get_memory_size(), size);
  second.create(world.app, other);
  EXPECT_EQ(bundle.get_memory_size(), other.get_memory_size());
  other = copy;
  EXPECT_GT(other.get_memory_size(), size);
  copy = bundle;
  copy = *&copy;
  EXPECT_EQ(find_tree_difference(copy.get_tree(), bundle.get_tree()), "");
  for (uint k = 0; k < 5; ++k) EXPECT_EQ(shoot(world, other, {4.0 * k, 0.1, -5}), k);
  first.create(world.app, copy);
  EXPECT_EQ(find_tree_difference(copy.get_tree(), other.get_tree()), "");
}

uint pre_hit_count = 0;

void count_pre_hit(const CtxEval&, GeometryRaytraceCtx& query, void* user) {
  ++pre_hit_count;
  EXPECT_EQ(user, nullptr);
  EXPECT_EQ(query.level, 0u);
  EXPECT_TRUE(query.is_nearest() ? query.map->get_path(0).geometry == nullptr : query.hits->get_hits().empty());
}

TEST(GasGeometryBundle, calls_pre_hit_functions_before_it_enters_an_instance) {
  QueryWorld world;
  const CtxMotionBlur blur(0.0, 1.0, 2);
  PolyMeshData data;
  add_loose_polygon(data, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0.5f}});
  const SceneShape shapes[3] = {{world, data}, {world, data}, {world, data}};
  BundleInput input;
  for (uint k = 0; k < 5; ++k)  // the last one is invisible
    input.add(shapes[k % 3].mesh.get(), make_translation({2.0 * k, 0, k == 4 ? -1.0 : 0.0}));
  const double turn = std::sqrt(0.5);
  input.add(shapes[0].mesh.get(),
            GMathMatrix4x4<double>{{{turn, -turn, 0, 20}, {turn, turn, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}});
  input.pre_hits = {count_pre_hit, nullptr, GasGeometryBundle::default_pre_hit};
  for (uint k = 0; k < 6; ++k) input.visibility.add(k != 4);
  GasGeometryBundle bundle;
  input.create(world.app, bundle);
  for (uint k = 0; k < 5; ++k) {
    for (const double y : {0.05, 0.95}) {  // meets the triangle, or its box alone
      for (const RayQuery& how : {RayQuery{true, nullptr}, {true, &blur}, {false, nullptr}, {false, &blur}}) {
        pre_hit_count = 0;
        GeometryRayPacket packet;
        ask_rays(world, bundle, packet, {{{2.0 * k + 0.9, y, -5}, {0, 0, 1}}}, how);
        EXPECT_EQ(pre_hit_count, k % 3 == 0 ? 1u : 0u) << k;
        const bool is_hit =
            how.nearest ? packet.get_nearest(0).geometry != nullptr : !packet.get_hits().get_hits().empty();
        EXPECT_EQ(is_hit, y < 0.5 && k < 4);
      }
    }
  }
  // The ray meets the world box of a turned instance, but not the box in the instance's space.
  for (const bool nearest : {true, false}) {
    pre_hit_count = 0;
    GeometryRayPacket packet;
    ask_rays(world, bundle, packet, {{{19.4, 0.1, -5}, {0, 0, 1}}}, {nearest, nullptr});
    EXPECT_EQ(pre_hit_count, 1u);
  }
}

TEST(GasGeometryBundle, missing_entries_mean_visible_and_the_first_group) {
  QueryWorld world;
  const SceneShape sphere(world, make_sphere(1));
  BundleInput input;
  for (uint k = 0; k < 3; ++k) input.add(sphere.mesh.get(), make_translation({4.0 * k, 0, 0}));
  input.offsets = {5};
  input.visibility.add(true);
  for (input.merge = false;; input.merge = true) {
    GasGeometryBundle bundle;
    input.create(world.app, bundle);
    EXPECT_EQ(bundle.is_merge_shading_groups(), input.merge);
    for (uint k = 0; k < 3; ++k) {
      const GeometryIntersection hit = shoot(world, bundle, TestRay{{4.0 * k, 0.1, -5}, {0, 0, 1}});
      EXPECT_EQ(hit.shading_group, input.merge || k == 0 ? 5u : 0u);
    }
    if (input.merge) break;
  }
}

TEST(GasGeometryBundle, the_type_of_a_geometry_decides_its_structure) {
  QueryWorld world;
  TubeMeshFast fast;
  TubeMesh tubes;
  FakeGeometry boxes;
  boxes.add_row(3);
  CoreString error;
  ASSERT_TRUE(fast.create(make_hair(CurveBasis::linear, 5, 1), error));
  ASSERT_TRUE(tubes.create(make_hair(CurveBasis::linear, 5, 1), error));
  BundleInput input;
  for (GeometryObject* geometry : std::vector<GeometryObject*>{&fast, &tubes, &boxes, &boxes}) input.add(geometry, {});
  input.lists = CoreArray<CoreVector<uint>>(4);
  for (CoreVector<uint>& list : input.lists) list.resize(1);
  GasGeometryBundle bundle;
  for (const bool displaced : {false, true}) {
    displaced ? input.create_displaced(world.app, bundle) : input.create(world.app, bundle);
    EXPECT_EQ(bundle.is_displacement_on(), displaced);
    const CoreClassInfo* expected[] = {&GasFur::class_info(), &GasGeometry::class_info(),
                                       displaced ? &GasGeometry::class_info() : &GasGeometryBvh4::class_info(),
                                       &GasGeometry::class_info()};
    ASSERT_EQ(bundle.get_slot_count(), displaced ? 4u : 3u);  // instances, geometries
    for (uint slot = 0; slot < bundle.get_slot_count(); ++slot)
      EXPECT_EQ(&bundle.get_slot_structure(slot)->get_class_info(), expected[slot]) << slot;
    EXPECT_EQ(bundle.get_slot_structure(4), nullptr);
  }
}

constexpr uint rate = 3;

/// Instances of one mesh that displace it, with a module for each of two shading groups: active, inactive and null
/// ones. Beside them the same instances of meshes of all their micro-triangles.
struct DisplacedInstances {
  explicit DisplacedInstances(QueryWorld& world, bool moving, uint count = 12) {
    PolyMeshData data = make_sphere(2);
    data.group_names = {CoreString("a"), CoreString("b")};
    for (uint k = 0; k < data.polygon_sizes.size(); ++k) data.polygon_groups.push_back(k % 2);
    if (moving) add_motion(data);
    ::create(base, data);
    DisplacedMeshSettings settings;
    settings.height = make_noise(3.0);
    settings.rate = rate;
    settings.bound = 0.1;
    small = ModuleDisplacement(CoreString("small"), settings);
    settings.bound = 0.3;
    large = idle = ModuleDisplacement(CoreString("large"), settings);
    idle.set_inactive(true);
    ModuleDisplacement* const pairs[4][2] = {{nullptr, &small}, {&large, &small}, {&idle, &idle}, {&idle, &large}};
    SceneMaker maker(world, 3, SceneMotion::none);
    input.lists = CoreArray<CoreVector<uint>>(count);
    for (uint k = 0; k < count; ++k) {
      SceneMatrix size;
      for (uint axis = 0; axis < 3; ++axis) size.m[axis][axis] = std::pow(3.0, static_cast<double>(k % 5) - 3.0);
      const SceneMatrix matrix = maker.make_matrix() * size;
      input.add(&base, matrix);
      for (ModuleDisplacement* module : pairs[k % 4]) input.modules.push_back(module);
      input.offsets.push_back(2 * k);
      input.lists[k].resize(2);
      input.displaced.push_back(nullptr);
      if (is_displaced(k)) {
        CoreString error;
        meshes.push_back((k % 4 == 0 ? small : large).get_mesh(base, matrix, error));
        EXPECT_NE(meshes.back(), nullptr) << error.get_data();
        flats.push_back(std::make_unique<FlatMesh>(*meshes.back(), base, rate));
        input.displaced.back() = meshes.back().get();
        for (uint& flag : input.lists[k]) flag = 1;
      }
      flat_input.add(is_displaced(k) ? &flats.back()->mesh : &base, matrix);
    }
    input.create_displaced(world.app, bundle);
    flat_input.create(world.app, flat);
  }
  static bool is_displaced(uint instance) { return instance % 4 != 2; }

  PolyMesh base;
  ModuleDisplacement small{CoreString(), {}}, large = small, idle = small;
  std::vector<std::unique_ptr<DisplacedMesh>> meshes;
  std::vector<std::unique_ptr<FlatMesh>> flats;
  BundleInput input, flat_input;
  GasGeometryBundle bundle, flat;
};

std::vector<TestRay> make_rays_at(const BundleInput& input, uint count) {
  RandomValues random(5);
  std::vector<TestRay> rays;
  for (uint k = 0; k < count; ++k) {
    const Matrix& matrix = input.matrices[random.get_index(static_cast<uint>(input.matrices.size()))];
    const Vec origin = random.get_vec(8.0), target = matrix.transform_point(random.get_vec(1.2));
    rays.push_back({origin, target - origin, 0.0, DBL_MAX, k % 4 == 0 ? 0.5 : random.get(-0.1, 1.1)});
  }
  return rays;
}

using HitKey = std::tuple<uint, uint, double>;
std::multiset<HitKey> get_hits(QueryWorld& world, const GasObject& structure, const std::vector<TestRay>& rays,
                               const CtxMotionBlur* blur) {
  GeometryRayPacket packet;
  ask_rays(world, structure, packet, rays, {false, blur});
  std::multiset<HitKey> hits;
  for (const GeometryHit& at : packet.get_hits().get_hits()) hits.insert({at.ray, at.hit.instance, at.hit.distance});
  ask_rays(world, structure, packet, rays, {true, blur});
  for (uint k = 0; k < rays.size(); ++k) hits.insert({k, core_invalid_index, packet.get_nearest(k).distance});
  return hits;
}

void turn(void* user, const double& time, Matrix* matrices) {
  const auto& input = *static_cast<const BundleInput*>(user);
  for (const Matrix& matrix : input.matrices) {
    Matrix rotation;
    rotation.m[0][0] = rotation.m[1][1] = std::cos(time);
    rotation.m[0][1] = -(rotation.m[1][0] = std::sin(time));
    *matrices++ = rotation * matrix;
  }
}

TEST(GasGeometryBundleDisplaced, hits_the_micro_triangles) {
  const CtxMotionBlur two(0.0, 1.0, 2), four(0.0, 1.0, 4);
  for (const bool moving : {false, true}) {
    QueryWorld world(64);
    DisplacedInstances instances(world, moving);
    if (moving) {
      instances.bundle.set_matrices_callback(turn, &instances.input);
      instances.flat.set_matrices_callback(turn, &instances.input);
    }
    const std::vector<TestRay> rays = make_rays_at(instances.input, scaled(2000, 1000));
    for (const CtxMotionBlur* blur : {static_cast<const CtxMotionBlur*>(nullptr), &two, &four}) {
      const std::multiset<HitKey> found = get_hits(world, instances.bundle, rays, blur);
      EXPECT_GT(found.size(), 2 * rays.size());
      EXPECT_TRUE(found == get_hits(world, instances.flat, rays, blur)) << moving;
    }
  }
}

TEST(GasGeometryBundleDisplaced, boxes_grow_by_the_bound_in_world_units) {
  QueryWorld world(64);
  const DisplacedInstances instances(world, true, 1);
  const Matrix& matrix = instances.input.matrices[0];  // makes it 27 times smaller
  const CtxMotionBlur blur(0.0, 1.0, 3);
  for (const double time : {-1.0, 0.0, 0.5, 1.0}) {
    world.ctx.set_motion_blur(time < 0 ? nullptr : &blur);
    const GMathBbox3<double> local =
        time < 0 ? instances.base.get_bbox(world.ctx) : instances.base.get_bbox_at(world.ctx, time);
    GMathBbox3<double> expected;
    for (uint corner = 0; corner < 8; ++corner) expected.add(matrix.transform_point(local.get_corner(corner)));
    const GMathBbox3<double> box = instances.bundle.get_bbox_at(world.ctx, time);
    for (uint axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(box.min[axis], expected.min[axis] - 0.1, 1e-5) << time;
      EXPECT_NEAR(box.max[axis], expected.max[axis] + 0.1, 1e-5) << time;
    }
  }
}

TEST(GasGeometryBundleDisplaced, heights_are_in_world_units) {
  QueryWorld world(64);
  const DisplacedInstances instances(world, false);
  auto mesh = instances.meshes.begin();
  for (uint k = 0; k < instances.input.matrices.size(); ++k) {
    if (!DisplacedInstances::is_displaced(k)) continue;
    double largest = 0.0;  // how far a vertex of the sphere moves along an axis
    for (uint primitive = 0; primitive < instances.base.get_primitive_count(); ++primitive) {
      const Vec vertex = (*mesh)->get_micro_vertex(primitive, 0, 0, 0, std::nan(""));
      const Vec way = instances.input.matrices[k].transform_vector(vertex - vertex.get_normalized());
      largest = std::max({largest, std::fabs(way.x), std::fabs(way.y), std::fabs(way.z)});
    }
    ++mesh;
    const double bound = k % 4 == 0 ? 0.1 : 0.3;
    EXPECT_TRUE(largest > 0.7 * bound && largest < 1.02 * bound) << k << ": " << largest;
  }
}

TEST(GasGeometryBundleDisplaced, structures_are_built_by_the_first_that_comes) {
  for (uint round = 0; round < scaled(10, 3); ++round) {
    QueryWorld world(64);
    DisplacedInstances instances(world, false);
    const GasGeometryBundle copy(instances.bundle);  // shares the structures
    std::atomic<uint> build_count{0};
    world.app.set_progress_bar_hook([&](AppProgressBar& bar) {
      build_count += bar.get_title() == CoreString("Building bundle acceleration structure (Displace on).") ? 1 : 0;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    for (uint k = 0; k < 12; ++k)
      EXPECT_EQ(instances.bundle.get_slot_structure(k) == nullptr, DisplacedInstances::is_displaced(k));
    const std::vector<TestRay> rays = make_rays_at(instances.input, 300);
    const std::multiset<HitKey> expected = get_hits(world, instances.flat, rays, nullptr);
    std::vector<std::thread> threads;
    std::atomic<uint> ready{0};
    for (uint thread = 0; thread < 8; ++thread) {
      threads.emplace_back([&, thread] {
        QueryWorld own(64);
        CtxEval ctx(world.ctx);
        ++ready;
        while (ready < 8) std::this_thread::yield();
        GeometryRayPacket packet;
        packet.resize(300);
        for (uint k = 0; k < 300; ++k) packet.set_ray(k, rays[k].origin, rays[k].direction);
        (thread % 2 == 0 ? instances.bundle : copy).ray_hit_static(ctx, own.shader, packet.begin_all_hits(own.shading));
        EXPECT_EQ(packet.get_hits().get_hits().size() + 300, expected.size());
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(build_count, 9u);
    for (uint k = 0; k < 12; ++k) {
      EXPECT_NE(instances.bundle.get_slot_structure(k), nullptr);
      EXPECT_EQ(instances.bundle.get_slot_structure(k), copy.get_slot_structure(k));
    }
  }
}

TEST(GasGeometryBundleDisplaced, a_stop_request_leaves_a_structure_to_the_next_query) {
  QueryWorld world(64);
  DisplacedInstances instances(world, false);
  const std::vector<TestRay> rays = make_rays_at(instances.input, 300);
  world.app.request_stop();
  get_hits(world, instances.bundle, rays, nullptr);
  world.app.clear_stop_request();
  EXPECT_EQ(instances.bundle.get_slot_structure(0), nullptr);
  EXPECT_TRUE(get_hits(world, instances.bundle, rays, nullptr) == get_hits(world, instances.flat, rays, nullptr));
}

}  // namespace
