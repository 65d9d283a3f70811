// A query that was asked before allocates nothing, and a scene that cannot have its memory is smaller, no worse. The
// program stands between itself and every way to get memory, so it stands alone.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "gas/gas_geometry_bvh4.h"
#include "gas/gas_module_clusters.h"
#include "gas/gas_scene_tree.h"
#include "support/curve_check.h"
#include "support/fake_geometry.h"
#include "support/ray_query.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
}

namespace {

std::atomic<uint> allocations{0};
std::atomic<uint> refused{core_invalid_index};  ///< the number of the one that fails

template <class Allocate>
void* count(const Allocate& allocate) {
  return allocations.fetch_add(1, std::memory_order_relaxed) == refused ? nullptr : allocate();
}

}  // namespace

// The C library's own, with a counter: operator new ends here too.
extern "C" {
void* malloc(std::size_t bytes) {
  return count([=] { return __libc_malloc(bytes); });
}
void* calloc(std::size_t n, std::size_t bytes) {
  return count([=] { return __libc_calloc(n, bytes); });
}
void* realloc(void* block, std::size_t bytes) {
  return count([=] { return __libc_realloc(block, bytes); });
}
void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
  return count([=] { return __libc_memalign(alignment, bytes); });
}
int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) {
  *block = count([=] { return __libc_memalign(alignment, bytes); });
  return *block != nullptr ? 0 : ENOMEM;
}
}

namespace {

template <class Query>
uint count_allocations(const Query& query) {
  query();  // scratch grows to what the query needs
  const uint before = allocations;
  for (uint k = 0; k < 10; ++k) query();
  return allocations - before;
}

/// Shoots along x through y and z of about 0.5.
void expect_none_repeated(QueryWorld& world, const GasObject& structure) {
  const CtxMotionBlur shutter(0.0, 1.0, 3);
  std::vector<TestRay> rays;
  for (uint k = 0; k < 20; ++k) rays.push_back({{-1, 0.5, 0.5}, {1, 1e-5 * k, 1e-5 * k}, 0.0, DBL_MAX, k / 20.0});
  GeometryRayPacket packet;
  const RayQuery queries[] = {{true, nullptr}, {true, &shutter}, {false, nullptr}, {false, &shutter}};
  for (const RayQuery& query : queries) {
    EXPECT_EQ(count_allocations([&] { ask_rays(world, structure, packet, rays, query); }), 0u);
    EXPECT_TRUE(!query.nearest || packet.get_nearest(0).geometry != nullptr);
  }
  EXPECT_EQ(count_allocations([&] { structure.get_bbox_at(world.ctx, 0.3); }), 0u);
  GeometryFrustumCtx frustum;
  frustum.mode = static_cast<uint>(GeometryFrustumMode::all);
  frustum.shading = &world.shading;
  frustum.add_plane({{2000, 0, 0}, {1, 1, 0}});
  EXPECT_EQ(count_allocations([&] { structure.frustum_hit(world.ctx, world.shader, frustum); }), 0u);
  EXPECT_GT(frustum.result.hit_count, 0u);
}

}  // namespace

TEST(Allocation, counting_works) {
  EXPECT_EQ(count_allocations([] { ::operator delete(::operator new(16)); }), 10u);
  EXPECT_EQ(count_allocations([] { core_aligned_free(core_aligned_alloc(4096, 64)); }), 10u);
}

TEST(Allocation, structures_take_none_once_their_motion_is_refitted) {
  QueryWorld world;
  FakeGeometry geometry;
  geometry.add_row(2000);
  geometry.moves = true;
  geometry.velocity = {0, 1, 0};
  GasGeometryBvh4 structure;
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, nullptr));
  expect_none_repeated(world, structure);

  CurveData data;
  data.basis = CurveBasis::bspline;
  for (uint k = 0; k < 500; ++k) add_fibre(data, {{8.0 * k, 0.0, 0.0}, {0.5, 1.0, 0.9}, 2.0, 0.1, 0.3});
  add_motion(data, 2, 0.0, 1.0, 1, true);
  const BuiltFur fur(world.ctx, data);
  ASSERT_GT(fur.structure.get_tree().oriented_count, 0u);
  expect_none_repeated(world, fur.structure);
}

TEST(Allocation, scenes_take_none_at_any_depth) {
  QueryWorld world;
  const auto geometry = std::make_shared<FakeGeometry>();
  geometry->add_row(500);
  geometry->moves = true;
  geometry->velocity = {0, 1, 0};
  const auto structure = std::make_shared<GasGeometryBvh4>();
  ASSERT_TRUE(structure->create(world.ctx, geometry.get(), geometry.get(), nullptr));
  const auto row = std::make_shared<ModuleGeometry>(CoreString("row"), geometry, structure,
                                                    gas_get_cluster_functions(structure.get()));
  row->set_shading_group(0, world.links[0]);
  // Six deep: more than fits a path before it grows.
  std::shared_ptr<ModuleSceneObject> object = row;
  std::shared_ptr<GasSceneTree> scene;
  GMathMatrix4x4<double> aside;
  aside.m[0][3] = 4000;
  for (uint depth = 0; depth < 6; ++depth) {
    scene = std::make_shared<GasSceneTree>();
    object->set_global_matrix_keys({{0, {}}, {1, {}}}, 0.0);
    ModuleSceneObject* objects[] = {object.get(), depth == 3 ? row.get() : nullptr};
    scene->create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(objects, 2), nullptr);
    object = std::make_shared<ModuleCombiner>(CoreString("scene"), std::vector{object}, scene);
  }
  object->set_global_matrix(aside);
  ModuleSceneObject* objects[] = {object.get(), row.get()};
  GasSceneTree outer;
  outer.create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(objects, 2), nullptr);
  expect_none_repeated(world, outer);
}

TEST(Allocation, scenes_outlive_every_refusal) {
  QueryWorld world;
  const auto geometry = std::make_shared<FakeGeometry>();
  geometry->add_row(20);
  const auto structure = std::make_shared<GasGeometryBvh4>();
  ASSERT_TRUE(structure->create(world.ctx, geometry.get(), geometry.get(), nullptr));
  std::vector<std::unique_ptr<ModuleGeometry>> rows;
  std::vector<ModuleSceneObject*> objects;
  for (uint k = 0; k < 6; ++k) {
    rows.push_back(std::make_unique<ModuleGeometry>(CoreString("row"), geometry, structure,
                                                    gas_get_cluster_functions(structure.get())));
    rows.back()->set_shading_group(0, world.links[0]);
    GMathMatrix4x4<double> aside;
    aside.m[1][3] = 2.0 * k;
    rows.back()->set_global_matrix_keys({{0, aside}, {1, aside}}, 0.0);
    objects.push_back(rows.back().get());
  }
  const CtxMotionBlur shutter(0.0, 1.0, 3);
  world.ctx.set_motion_blur(&shutter);
  world.shader.motion_blur = &shutter;
  GeometryRayPacket packet;
  packet.resize(6);
  for (uint k = 0; k < 6; ++k) packet.set_ray(k, {-1, 2.0 * k + 0.5, 0.5}, {1, 0, 0}, 0, DBL_MAX, 0.3);
  const auto count_hits = [&](const GasSceneTree& scene) {
    scene.ray_hit_nearest_motion(world.ctx, world.shader, packet.begin_nearest(world.shading));
    uint count = 0;
    for (uint k = 0; k < 6; ++k) count += packet.get_nearest(k).geometry != nullptr;
    return count;
  };
  GasSceneTree whole;
  const auto create = [&](GasSceneTree& scene) {
    scene.create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(objects.data(), 6), nullptr);
  };
  create(whole);
  EXPECT_EQ(count_hits(whole), 6u);
  const std::function<void(GasSceneTree&)> makers[] = {create, [&](GasSceneTree& scene) { scene = whole; },
                                                       [&](GasSceneTree& scene) { count_hits(scene); }};
  for (uint maker = 0; maker < 3; ++maker) {
    uint lost = 0;
    for (uint number = 0;; ++number) {
      GasSceneTree scene;
      if (maker == 2) {
        scene = whole;
        scene.get_memory_size();  // makes the record of the slot, without which there is no answer to be had
      }
      refused = allocations + number;
      EXPECT_NO_THROW(makers[maker](scene)) << maker << " " << number;
      const bool was_refused = allocations > refused;
      refused = core_invalid_index;
      const uint hits = count_hits(scene);
      lost += hits < 6 ? 1 : 0;
      EXPECT_TRUE(was_refused || hits == 6);
      if (!was_refused) break;
    }
    EXPECT_EQ(lost > 0, maker < 2);  // a refused refit leaves the scene at rest
  }
}
