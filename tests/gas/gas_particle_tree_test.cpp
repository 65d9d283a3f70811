// GasParticleTree against loops over all particles of all objects, in world space.
#include "gas/gas_particle_tree.h"

#include <gtest/gtest.h>

#include <set>

#include "gas/gas_point.h"
#include "gas/gas_scene_tree.h"
#include "support/point_oracle.h"
#include "support/query_world.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_particle.h"
#include "vq_particle/particle_cloud.h"

namespace {

using Matrix = GMathMatrix4x4<double>;
using Vec = GMathVec3<double>;

std::shared_ptr<ParticleCloud> make_cloud(uint count, RandomValues& random) {
  ParticleData data;
  for (uint k = 0; k < count; ++k) data.positions.push_back(random.get_vec<float>());
  auto cloud = std::make_shared<ParticleCloud>();
  CoreString error;
  EXPECT_TRUE(cloud->create(std::move(data), error));
  return cloud;
}

/// Turned, sheared, mirrored as often as not.
Matrix make_matrix(RandomValues& random) {
  Matrix matrix;
  do {
    for (uint k = 0; k < 12; ++k) matrix.m[k / 4][k % 4] = random.get() * (k % 4 == 3 ? 3.0 : 1.0);
  } while (std::fabs(matrix.get_determinant()) < 0.05);
  return matrix;
}

struct ParticleScene {
  explicit ParticleScene(uint threads = 1) : world(8, threads) {}

  ModuleParticle& add(uint count, const Matrix& matrix) {
    const auto cloud = make_cloud(count, random);
    const auto structure = std::make_shared<GasPoint>();
    structure->create(world.app, world.ctx, cloud.get(), nullptr);
    const auto object = std::make_shared<ModuleParticle>(CoreString("particles"), cloud, structure);
    object->set_global_matrix(matrix);
    for (uint k = 0; k < count; ++k)
      points.push_back({matrix.transform_point(Vec(cloud->get_point_cloud()->get_position(k))), k,
                        reinterpret_cast<u64>(object.get())});
    add(object);
    return *object;
  }
  void add(const std::shared_ptr<ModuleSceneObject>& object) {
    owned.push_back(object);
    objects.add(object.get());
  }
  void create(GasParticleTree& tree) { tree.create(world.app, objects, nullptr); }

  GeometryRayFrustumRecord find(const GasObject& tree, const GeometryRayFrustumBeam& beam, uint kind = 0) {
    GeometryRayFrustumRecord record;
    GeometryRayFrustumCtx query;
    query.begin(&beam, &record, 1);
    query.kind = kind;
    query.edge = 2.0;
    tree.ray_frustum_hit(world.ctx, world.shader, query);
    EXPECT_EQ(world.shader.nested_current, nullptr);
    return record;
  }
  void ask(const GasObject& tree, GeometryFrustumCtx& query, GeometryFrustumMode mode) {
    query.mode = static_cast<uint>(mode);
    query.clear_results();
    query.result.hit_count = query.result.total = 9;
    tree.frustum_hit(world.ctx, world.shader, query);
    EXPECT_EQ(world.shader.nested_current, nullptr);
  }
  void check(const GasObject& tree, uint count);

  QueryWorld world;
  RandomValues random{3};
  std::vector<std::shared_ptr<ModuleSceneObject>> owned;
  CoreVector<ModuleSceneObject*> objects;
  std::vector<OraclePoint> points;  ///< in world space
};

/// Frustums and beams that find points of some objects.
void ParticleScene::check(const GasObject& tree, uint count) {
  uint counted = 0;
  for (uint k = 0; k < count; ++k) {
    SCOPED_TRACE(testing::Message() << "query " << k);
    const Vec& target = points[random.get_index(static_cast<uint>(points.size()))].position;
    const GeometryRayFrustumBeam beam = make_beam(target, k, random);
    counted += check_beam(beam, 2.0, points, find(tree, beam));
    GeometryFrustumCtx query;
    make_frustum(query, random, false);
    std::map<u64, uint> totals, inside;
    std::vector<Vec> positions;
    for (const OraclePoint& point : points) {
      ++totals[point.object];
      if (get_frustum_place(query, point.position, false) != SureAnswer::hit) continue;
      ++inside[point.object];
      positions.push_back(point.position);
    }
    std::set<uint> some, all;
    for (uint index = 0; index < objects.get_count(); ++index) {
      const u64 object = reinterpret_cast<u64>(objects[index]);
      if (!totals.contains(object)) continue;
      if (inside[object] > 0) some.insert(index);
      if (inside[object] == totals[object]) all.insert(index);
    }
    counted += !some.empty() && all.size() < totals.size();
    const auto expect_objects = [&](const std::set<uint>& expected) {
      EXPECT_EQ(query.get_objects().size(), expected.size());
      EXPECT_EQ(std::set<uint>(query.get_objects().begin(), query.get_objects().end()), expected);
      EXPECT_EQ(query.result.hit_count, expected.size());
    };
    ask(tree, query, GeometryFrustumMode::any);
    expect_objects(some);
    ask(tree, query, GeometryFrustumMode::all);
    const bool is_all = all.size() == totals.size();
    EXPECT_EQ(query.result.outside == 0, is_all);
    EXPECT_EQ(query.result.hit_count == query.result.total, is_all);
    expect_objects(all);
    for (const GeometryFrustumMode mode : {GeometryFrustumMode::points, GeometryFrustumMode::vertices}) {
      ask(tree, query, mode);
      ASSERT_EQ(query.get_points().size(), positions.size());
      const auto is_before = [](const Vec& a, const Vec& b) { return a.x < b.x; };
      std::ranges::sort(query.get_points(), is_before, &GeometryFrustumVertex::position);
      std::ranges::sort(positions, is_before);
      for (std::size_t p = 0; p < positions.size(); ++p)
        EXPECT_LT((query.get_points()[p].position - positions[p]).get_length(), 1e-12);
    }
  }
  EXPECT_GT(counted, count / 2);
}

/// A structure that notes the path of a frustum.
struct PathNote : GasObject {
  PathNote() {
    callbacks.frustum_hit = [](const GasObject* self, const CtxEval&, CtxShader&, GeometryFrustumCtx& query) {
      const auto elements = query.path->get_elements();
      static_cast<const PathNote*>(self)->path.assign(elements.begin(), elements.end());
    };
  }
  GMathBbox3<double> get_bbox() const override { return {{0, 0, 0}, {1, 1, 1}}; }
  mutable std::vector<GeometryIntersectionPathElement> path;
};

}  // namespace

TEST(GasParticleTree, finds_what_a_loop_over_all_particles_finds_also_through_levels_and_copies) {
  ParticleScene scene(3), outer;
  scene.objects.add(nullptr);  // positions in the list are not those of leaves
  for (uint k = 0; k < 12; ++k) scene.add(1 + 30 * (k % 3), make_matrix(scene.random));
  auto tree = std::make_shared<GasParticleTree>();
  scene.create(*tree);
  EXPECT_EQ(tree->get_particle_count(), scene.points.size());
  GMathBbox3<double> box;
  for (const OraclePoint& point : scene.points) box.add(point.position);
  EXPECT_TRUE(GMathBbox3<double>(tree->get_bbox()).min.x <= box.min.x && tree->get_bbox().max.z >= box.max.z);
  scene.check(*tree, 150);

  // As the structure of an object, twice: t, weights and records pass through both levels.
  const Matrix matrix = make_matrix(outer.random);
  const auto cloud = make_cloud(1, outer.random);
  outer.add(std::make_shared<ModuleParticle>(CoreString("tree"), cloud, tree));
  outer.owned[0]->set_global_matrix(matrix);
  GasParticleTree second;
  outer.create(second);
  outer.points = scene.points;
  for (OraclePoint& point : outer.points) point.position = matrix.transform_point(point.position);
  for (uint k = 0; k < 30; ++k) {
    const GeometryRayFrustumBeam beam = make_beam(outer.points[k].position, k, outer.random);
    check_beam(beam, 2.0, outer.points, outer.find(second, beam));
  }

  auto copy = std::make_unique<GasParticleTree>(*tree), used = std::make_unique<GasParticleTree>(second);
  *used = *copy;
  *copy = *copy;
  EXPECT_EQ(used->get_memory_size(), tree->get_memory_size());
  *tree = GasParticleTree();
  scene.check(*copy, 10);
  copy.reset();
  scene.check(*used, 10);
}

TEST(GasParticleTree, leaves_out_what_has_no_particles_or_no_inverse) {
  ParticleScene scene(4);
  scene.objects.add(nullptr);
  scene.add(5, {});
  Matrix singular, nan, infinite;
  singular.m[1][1] = 0.0;
  nan.m[2][2] = NAN;
  infinite.m[0][0] = infinite.m[1][1] = infinite.m[2][2] = 1e200;  // so is its determinant
  for (const Matrix& matrix : {singular, nan, infinite}) scene.add(7, matrix);
  scene.add(std::make_shared<ModuleParticle>(CoreString("none"), nullptr, nullptr));
  scene.add(0, {});
  const auto cloud = make_cloud(3, scene.random);
  scene.add(
      std::make_shared<ModuleGeometry>(CoreString("other"), cloud, nullptr, ModuleSceneObject::get_whole_functions()));
  scene.add(11, {});
  GasParticleTree tree;
  scene.create(tree);
  const auto& valid = tree.get_valid_indices();
  EXPECT_EQ(std::vector<uint>(valid.begin(), valid.end()), (std::vector<uint>{1, 4, 8}));
  EXPECT_EQ(tree.get_particle_count(), 23.0);
  std::erase_if(scene.points, [&](const OraclePoint& point) {
    return point.object != reinterpret_cast<u64>(scene.objects[1]) &&
           point.object != reinterpret_cast<u64>(scene.objects[8]);
  });
  for (uint k = 0; k < 20; ++k) {
    const GeometryRayFrustumBeam beam = make_beam(scene.points[k % 16].position, k, scene.random);
    check_beam(beam, 2.0, scene.points, scene.find(tree, beam));
  }
  tree.create(scene.world.app, CoreArray<ModuleSceneObject*>(), nullptr);
  EXPECT_EQ(tree.get_particle_count(), 23.0) << "an empty list leaves the count";
  EXPECT_FALSE(gmath_is_valid_box(tree.get_bbox()));
  EXPECT_EQ(scene.find(tree, make_beam(scene.points[0].position, 1, scene.random)).index, core_invalid_index);
  tree.create(scene.world.app, CoreArray<ModuleSceneObject*>(3), nullptr);  // nothing but null entries
  EXPECT_EQ(tree.get_particle_count(), 0.0);
  EXPECT_EQ(tree.get_valid_indices().get_count(), 0u);
  scene.create(tree);
  AppProgressBar* bar = scene.world.app.create_progress_bar("test");
  scene.world.app.request_stop();
  tree.create(scene.world.app, scene.objects, bar);
  bar->finish();
  EXPECT_EQ(tree.get_particle_count(), 0.0);
  EXPECT_FALSE(gmath_is_valid_box(tree.get_bbox()));
}

TEST(GasParticleTree, flags_mask_kind_and_override_decide_what_is_entered) {
  ParticleScene scene;
  ModuleParticle& object = scene.add(4, {});
  GasParticleTree tree;
  scene.create(tree);
  const GeometryRayFrustumBeam beam = make_beam(scene.points[2].position, 1, scene.random);
  ASSERT_NE(scene.find(tree, beam).index, core_invalid_index);
  for (uint row = 0; row < 41 * 16 * 3; ++row) {
    const uint kind = row % 41, bits = row / 41 % 16,
               mask = std::array{0u, 1u << kind % 32, ~(1u << kind % 32)}[row / 656];
    object.set_flag(ModuleSceneObject::Flag(0x4000), bits & 1);
    object.set_flag(ModuleSceneObject::Flag(0x8000), bits & 2);
    object.set_flag(ModuleSceneObject::Flag(0x80), bits & 4);
    object.set_visibility_mask(mask);
    scene.world.shader.visibility_override = bits & 8;
    // Bits 0 to 3: masked, forced visible, forced hidden, override. Bit k of a row: entered with these.
    uint entered = mask == 1u << kind % 32 ? 0xCFFF : 0xCC00;
    if (kind != 6) entered |= 0x5555;
    const bool is_entered = entered >> bits & 1;
    EXPECT_EQ(scene.find(tree, beam, kind).index != core_invalid_index, is_entered) << kind << ", " << bits;
    GeometryFrustumCtx query;
    query.kind = kind;
    scene.ask(tree, query, GeometryFrustumMode::any);
    EXPECT_EQ(query.get_objects().size(), is_entered ? 1u : 0u) << kind << ", " << bits << ", " << mask;
  }
}

TEST(GasParticleTree, nested_frustums_carry_the_path_and_scenes_answer_them_alike) {
  ParticleScene scene;
  scene.add(3, {});
  const auto note = std::make_shared<PathNote>();
  const auto object = std::make_shared<ModuleParticle>(CoreString("note"), make_cloud(1, scene.random), note);
  scene.add(object);
  scene.add(std::make_shared<ModuleParticle>(CoreString("unbuilt"), make_cloud(2, scene.random), nullptr));
  GasParticleTree tree;
  scene.create(tree);
  EXPECT_EQ(tree.get_particle_count(), 6.0);
  EXPECT_TRUE(gmath_is_valid_box(tree.get_bbox())) << "what is never found must not widen the box";
  GeometryIntersectionPath path;
  ASSERT_TRUE(path.add({7, nullptr, nullptr}));
  GeometryFrustumCtx query;
  query.path = &path;
  scene.ask(tree, query, GeometryFrustumMode::vertices);
  ASSERT_EQ(note->path.size(), 2u);
  EXPECT_EQ(note->path[0].object_index, 7u);
  EXPECT_EQ(note->path[1].object_index, 1u);
  EXPECT_EQ(note->path[1].object, object.get());
  EXPECT_EQ(note->path[1].geometry_override, nullptr);
  EXPECT_EQ(path.get_count(), 1u);
  EXPECT_EQ(query.get_points().size(), 3u);

  ParticleScene inner;
  for (uint k = 0; k < 6; ++k) inner.add(20, make_matrix(inner.random));
  GasSceneTree scene_tree;
  scene_tree.create(inner.world.app,
                    CoreBasicArray<ModuleSceneObject*>::make_view(inner.objects.get_items(), inner.objects.get_count()),
                    nullptr);
  for (uint k = 0; k < 60; ++k) {
    GeometryFrustumCtx frustum;
    make_frustum(frustum, inner.random, false);
    inner.ask(scene_tree, frustum, GeometryFrustumMode::points);
    uint expected = 0;
    for (const OraclePoint& point : inner.points)
      expected += get_frustum_place(frustum, point.position, false) == SureAnswer::hit;
    EXPECT_EQ(frustum.get_points().size(), expected);
  }
}
