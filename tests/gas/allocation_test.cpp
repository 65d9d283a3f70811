// A query that was asked before allocates nothing, and where memory is refused, at any point, nothing is thrown,
// nothing ends and nothing leaks: a structure is then empty or whole. The program stands between itself and every way
// to get memory, so it stands alone.
#include <gtest/gtest.h>

#include "gas/gas_geometry.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "gas/gas_geometry_bvh4.h"
#include "gas/gas_module_clusters.h"
#include "gas/gas_particle_tree.h"
#include "gas/gas_point.h"
#include "gas/gas_scene_tree.h"
#include "gas/gas_uv_tree.h"
#include "support/bundle_input.h"
#include "support/curve_check.h"
#include "support/fake_geometry.h"
#include "support/log_capture.h"
#include "support/ray_query.h"
#include "support/uv_world.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"
#include "vq_module/module_particle.h"
#include "vq_particle/particle_cloud.h"

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace {

std::atomic<uint> allocations{0};
std::atomic<uint> refused{core_invalid_index};  ///< the number of the one that fails
std::atomic<int> living{0};
std::atomic<u64> held{0};  ///< bytes

template <class Allocate>
void* count(const Allocate& allocate) {
  if (allocations.fetch_add(1, std::memory_order_relaxed) == refused) return nullptr;
  living.fetch_add(1, std::memory_order_relaxed);
  void* block = allocate();
  held.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
  return block;
}
void forget(void* block) {
  if (block == nullptr) return;
  living.fetch_sub(1, std::memory_order_relaxed);
  held.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
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
  forget(block);
  return count([=] { return __libc_realloc(block, bytes); });
}
void free(void* block) {
  forget(block);
  __libc_free(block);
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
  GasGeometry grid;
  ASSERT_TRUE(grid.create(world.ctx, &geometry, &geometry, nullptr));
  expect_none_repeated(world, grid);

  CurveData data;
  data.basis = CurveBasis::bspline;
  for (uint k = 0; k < 500; ++k) add_curve(data, {{8.0 * k, 0.0, 0.0}, {0.5, 1.0, 0.9}, 2.0, 0.1, 0.3});
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
                                                    gas_get_cluster_functions(structure.get(), GasClusterDetail::full));
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

TEST(Allocation, bundles_take_none_once_their_motion_is_refitted) {
  QueryWorld world;
  FakeGeometry geometry;
  geometry.add_row(500);
  geometry.moves = true;
  geometry.velocity = {0, 1, 0};
  BundleInput input;
  for (uint k = 0; k < 3; ++k) {
    input.add(&geometry, {});
    input.matrices.back().m[2][3] = 10.0 * k;
  }
  GasGeometryBundle bundle;
  input.create(world.app, bundle);
  expect_none_repeated(world, bundle);
}

TEST(Allocation, a_set_is_unchanged_when_an_item_cannot_be_added) {
  CoreSet<uint> set;
  for (uint item = 0; item < 40; ++item) {
    bool was_refused = true;
    for (uint number = 0; was_refused; ++number) {
      refused = allocations + number;
      const bool is_added = [&] {
        try {
          return set.add(item);
        } catch (const std::bad_alloc&) {
          return false;
        }
      }();
      was_refused = allocations > refused;
      refused = core_invalid_index;
      ASSERT_EQ(is_added, !was_refused) << item;
      ASSERT_EQ(std::pair(set.contains(item), set.get_count()), std::pair(is_added, item + is_added));
    }
    EXPECT_EQ(set[item], item);
  }
}

TEST(Allocation, copies_of_a_grid_are_empty_or_whole) {
  CoreVector<GMathBbox3<float>> boxes;
  for (uint k = 0; k < 100; ++k) boxes.add(GMathBbox3<float>({1.0f * k, 0, 0}, {1.0f * k, 1, 1}));
  GasGridTree grid;
  grid.create(boxes, 8, nullptr);
  bool was_refused = true;
  for (uint number = 0; was_refused; ++number) {
    refused = allocations + number;
    const GasGridTree copy(grid);
    was_refused = allocations > refused;
    refused = core_invalid_index;
    EXPECT_EQ(copy.is_empty(), was_refused) << number;
    EXPECT_EQ(copy.get_part_count(), was_refused ? 0 : grid.get_part_count()) << number;
  }
}

// One structure of each kind over the same row of boxes, and what is done with it while one allocation is refused.
namespace {

/// All instances are displaced: their structures are built by queries.
struct DisplacedBundle : GasGeometryBundle {};

struct Row {
  explicit Row(uint thread_count) : world(8, thread_count), geometry(2) {
    const uint row_count = thread_count > 1 ? 5000 : 200;  // enough for tasks of the builder
    geometry.add_row(row_count);
    for (uint k = 0; k < row_count; ++k) geometry.groups.push_back(k % 2);
    geometry.boxes.emplace_back();  // left out: the others are listed
    geometry.moves = true;
    geometry.group_moves = {1, 1};
    geometry.velocity = {0, 1, 0};
    flags = CoreBasicArray<uint>(2);
    flags[0] = 1;
    flags[1] = 2;
    inner = std::make_shared<GasGeometryBvh4>();
    inner->create(world.ctx, &geometry, &geometry, nullptr);
    const std::shared_ptr<const GeometryObject> shared(std::shared_ptr<void>(), &geometry);
    for (uint k = 0; k < 6; ++k) {
      objects.push_back(std::make_unique<ModuleGeometry>(
          CoreString("row"), shared, inner, gas_get_cluster_functions(inner.get(), GasClusterDetail::full)));
      for (uint group = 0; group < 2; ++group) objects.back()->set_shading_group(group, world.links[0]);
      GMathMatrix4x4<double> aside;
      aside.m[2][3] = 10.0 * k;
      objects.back()->set_global_matrix_keys({{0, aside}, {1, aside}}, 0.0);
      pointers.push_back(objects.back().get());
      input.add(&geometry, aside);
      input.modules.push_back(&displacement);
    }
    input.lists = CoreArray<CoreVector<uint>>(6);
    for (CoreVector<uint>& list : input.lists) list.resize(1);
    world.ctx.set_motion_blur(&shutter);
    world.shader.motion_blur = &shutter;
    packet.resize(4);
    for (uint k = 0; k < 4; ++k)
      packet.set_ray(k, {row_count / 4 * 2.0 * k + 0.5, 0.5, -1}, {0, 0, 1}, 0, DBL_MAX, 0.3);
    packet.begin_nearest(world.shading);
    ParticleData data;
    for (uint k = 0; k < row_count; ++k) data.positions.emplace_back(2.0f * k + 0.5f, 0.5f, 0.5f);
    CoreString error;
    cloud->create(std::move(data), error);
    create(*points, nullptr);
    for (uint k = 0; k < 6; ++k) {
      owned_particles.push_back(std::make_unique<ModuleParticle>(CoreString("points"), cloud, points));
      owned_particles.back()->set_global_matrix(objects[k]->get_global_matrix());
      particles.add(owned_particles.back().get());
    }
    frustum.add_plane({{100, 0, 0}, {-1, 0, 0}});
    for (uint k = 0; k < 3; ++k) {
      const auto layout = std::make_shared<UvGeometry>(std::vector<uint>(row_count / 3, 3 + k % 2));
      layout->shift.y = static_cast<float>(k);
      layouts.add(layout);
    }
    layouts.shader.hit_threshold = 0.0;
    layouts.look_up(GasUvTree(), std::span(on_edges, 1), 0.1);  // the packet's memory
    world.app.set_progress_bar_hook([this](AppProgressBar& bar) {
      bar.set_sink([this](const AppProgressReport& report) { leaves_task_open |= !report.task.is_empty(); },
                   std::chrono::hours(1));  // the last report only
    });
  }

  void create(GasGeometryBvh4& structure, AppProgressBar* bar) {
    structure.create(world.ctx, &geometry, &geometry, bar);
  }
  void create(GasGeometry& structure, AppProgressBar* bar) { structure.create(world.ctx, &geometry, &geometry, bar); }
  void create(GasFur& structure, AppProgressBar* bar) { structure.create(world.ctx, &geometry, &geometry, bar); }
  void create(GasSceneTree& structure, AppProgressBar* bar) {
    structure.create(world.app, CoreBasicArray<ModuleSceneObject*>::make_view(pointers.data(), 6), bar);
  }
  void create(GasGeometryBundle& structure, AppProgressBar* bar) { input.create(world.app, structure, bar); }
  void create(GasPoint& structure, AppProgressBar* bar) { structure.create(world.app, world.ctx, cloud.get(), bar); }
  void create(GasParticleTree& structure, AppProgressBar* bar) { structure.create(world.app, particles, bar); }
  void create(DisplacedBundle& structure, AppProgressBar* bar) { input.create_displaced(world.app, structure, bar); }
  void create(GasUvTree& structure, AppProgressBar* /*bar*/) {
    structure.update(world.app, layouts.items, true, map_name);
    structure.build();
  }
  /// By a thread that queries for the first time.
  uint count_hits(const GasObject& structure, bool moving) {
    CtxShader shader;
    shader.motion_blur = &shutter;
    GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
    moving ? structure.ray_hit_nearest_motion(world.ctx, shader, query)
           : structure.ray_hit_nearest_static(world.ctx, shader, query);
    uint count = 0;
    for (uint k = 0; k < 4; ++k) count += packet.get_nearest(k).geometry != nullptr;
    return count;
  }

  uint count_hits(const GasPoint& structure, bool /*moving*/) { return count_found(structure); }
  uint count_hits(const GasParticleTree& structure, bool /*moving*/) { return count_found(structure); }
  uint count_hits(const GasUvTree& structure, bool /*moving*/) {
    uint count = 0;
    for (; count < 4; ++count)
      if (layouts.look_up(structure, std::span(on_edges + count, 1), 0.1) != 0.0f) break;
    EXPECT_EQ(structure.is_empty(), count == 0);
    return count;
  }
  /// As many as beams along the rays find and a frustum lists.
  uint count_found(const GasObject& structure) {
    GeometryRayFrustumBeam beams[4];
    GeometryRayFrustumRecord records[4];
    GeometryRayFrustumCtx query;
    for (uint k = 0; k < 4; ++k) {
      const GMathVec3<double> ring[4] = {{0.5, 0.5, 0}, {-0.5, 0.5, 0}, {-0.5, -0.5, 0}, {0.5, -0.5, 0}};
      beams[k].set_parallel(packet.get_ray(k).origin, {0, 0, 1}, ring, 0.0, DBL_MAX);
    }
    query.begin(beams, records, 4);
    structure.ray_frustum_hit(world.ctx, world.shader, query);
    uint count = 0;
    for (const GeometryRayFrustumRecord& record : records) count += record.index != core_invalid_index;
    frustum.mode = static_cast<uint>(GeometryFrustumMode::points);
    frustum.clear_results();
    structure.frustum_hit(world.ctx, world.shader, frustum);
    return count;
  }

  QueryWorld world;
  FakeGeometry geometry;
  CoreBasicArray<uint> flags;
  std::shared_ptr<GasGeometryBvh4> inner;
  std::vector<std::unique_ptr<ModuleGeometry>> objects;
  std::vector<ModuleSceneObject*> pointers;
  ModuleDisplacement displacement{CoreString("noise"),
                                  {std::make_shared<GeometryNoiseHeight>(GeometryNoiseSettings())}};
  BundleInput input;
  const CtxMotionBlur shutter{0.0, 1.0, 3};
  GeometryRayPacket packet;
  std::shared_ptr<ParticleCloud> cloud = std::make_shared<ParticleCloud>();  ///< a point in each box
  std::shared_ptr<GasPoint> points = std::make_shared<GasPoint>();
  std::vector<std::unique_ptr<ModuleParticle>> owned_particles;
  CoreVector<ModuleSceneObject*> particles;
  GeometryFrustumCtx frustum;
  UvWorld layouts;
  const CoreString map_name = "a name that does not fit into the string itself";
  const GMathVec3<double> on_edges[4] = {{10, 0.125, 0}, {11, 1.125, 0}, {12, 2.125, 0}, {60, 0.125, 0}};
  bool leaves_task_open = false;
};

/// Does `work` in a fresh world again and again, with one allocation after the other refused, until none is left.
/// @param work  (row, structure, bar)
template <class Structure, class Work>
void refuse_each(const char* what, uint thread_count, bool is_built_before, const Work& work) {
  CoreLogHandler::get_main().set_level(0);
  uint refusals = 0;
  for (uint number = 0;; ++number) {
    const int before = living;
    bool was_refused = false;
    {
      Row row(thread_count);
      Structure structure;
      if (is_built_before) row.create(structure, nullptr);
      AppProgressBar* bar = row.world.app.create_progress_bar("test");
      refused = allocations + number;
      EXPECT_NO_THROW(work(row, structure, bar)) << what << " " << number;
      was_refused = allocations > refused;
      refused = core_invalid_index;
      CoreString open_task;
      bar->set_sink([&](const AppProgressReport& report) { open_task = report.task; });
      bar->finish();
      EXPECT_TRUE(open_task.is_empty()) << what << " " << number << " left open: " << open_task.get_data();
      EXPECT_FALSE(row.leaves_task_open) << what << " " << number;
      const uint at_rest = row.count_hits(structure, false), moving = row.count_hits(structure, true);
      const bool is_lost =
          std::is_same_v<Structure, DisplacedBundle> || !gmath_is_valid_box(GMathBbox3<double>(structure.get_bbox()));
      EXPECT_TRUE(at_rest == 4 || (was_refused && at_rest == 0 && is_lost)) << what << number;
      EXPECT_EQ(moving, at_rest) << what << " " << number;  // rays at 0.3 meet boxes that moved by 0.3 and at rest
      structure.get_memory_size();
      row.create(structure, nullptr);
      EXPECT_EQ(row.count_hits(structure, false), 4u) << what << " " << number;
      EXPECT_EQ(row.count_hits(structure, true), 4u) << what << " " << number;
    }
    refusals += was_refused ? 1 : 0;
    EXPECT_TRUE(number == 0 || living == before) << what << " " << number << " leaks " << living - before;
    if (!was_refused) break;
  }
  EXPECT_GT(refusals, 0u) << what;
}

template <class Structure>
void refuse_builds(uint thread_count) {
  refuse_each<Structure>("create anew", thread_count, true,
                         [](Row& row, Structure& structure, AppProgressBar* bar) { row.create(structure, bar); });
  refuse_each<Structure>("copy", thread_count, true, [](Row&, Structure& structure, AppProgressBar*) {
    const Structure copy(structure);
    structure = copy;
  });
  refuse_each<Structure>("first query", thread_count, true,
                         [](Row& row, Structure& structure, AppProgressBar*) { row.count_hits(structure, false); });
}

template <class Structure>
void refuse_everything(uint thread_count) {
  refuse_builds<Structure>(thread_count);
  refuse_each<Structure>("refit", thread_count, true,
                         [](Row& row, Structure& structure, AppProgressBar*) { row.count_hits(structure, true); });
  refuse_each<Structure>("boxes and size", thread_count, true, [](Row& row, Structure& structure, AppProgressBar*) {
    structure.get_bbox_at(row.world.ctx, 0.5);
    structure.get_memory_size();
    structure.dirty_motion_blur();
  });
}

}  // namespace

class AllocationRefused : public testing::TestWithParam<uint> {};

TEST_P(AllocationRefused, meshes_stay_empty_or_whole) {
  refuse_everything<GasGeometryBvh4>(GetParam());
  refuse_each<GasGeometryBvh4>(
      "grouped", GetParam(), false, [](Row& row, GasGeometryBvh4& structure, AppProgressBar* bar) {
        structure.create(row.world.ctx, &row.geometry, &row.geometry, &row.geometry, &row.geometry, row.flags, bar);
      });
}

TEST_P(AllocationRefused, grids_stay_empty_or_whole) { refuse_everything<GasGeometry>(GetParam()); }

TEST_P(AllocationRefused, hair_stays_empty_or_whole) { refuse_everything<GasFur>(GetParam()); }

TEST_P(AllocationRefused, scenes_stay_empty_or_whole) { refuse_everything<GasSceneTree>(GetParam()); }

TEST_P(AllocationRefused, bundles_stay_empty_or_whole) {
  refuse_everything<GasGeometryBundle>(GetParam());
  refuse_each<DisplacedBundle>(
      "displaced", GetParam(), false,
      [](Row& row, DisplacedBundle& structure, AppProgressBar* bar) { row.create(structure, bar); });
  refuse_each<DisplacedBundle>(
      "first displaced query", GetParam(), true,
      [](Row& row, DisplacedBundle& structure, AppProgressBar*) { row.count_hits(structure, true); });
}

TEST_P(AllocationRefused, points_and_particles_stay_empty_or_whole) {
  refuse_builds<GasPoint>(GetParam());
  refuse_builds<GasParticleTree>(GetParam());
  Row row(GetParam());
  GasParticleTree tree;
  row.create(tree, nullptr);
  const LogCapture log(100);
  refused = allocations.load();  // that of the list of objects
  row.create(tree, nullptr);
  refused = core_invalid_index;
  EXPECT_EQ(log.messages.size(), 1u);
  EXPECT_EQ(tree.get_particle_count(), 0.0);
}

TEST_P(AllocationRefused, uv_trees_stay_empty_or_whole) { refuse_builds<GasUvTree>(GetParam()); }

TEST(Allocation, a_structure_that_stands_still_for_lack_of_memory_says_so) {
  uint lost = 0;
  bool was_refused = true;
  for (uint number = 0; was_refused; ++number) {
    Row row(1);
    GasGeometryBvh4 structure;
    row.create(structure, nullptr);
    const LogCapture log(100);
    refused = allocations + number;
    structure.get_bbox_at(row.world.ctx, 0.5);
    was_refused = allocations > refused;
    refused = core_invalid_index;
    const bool moves = structure.get_bbox_at(row.world.ctx, 0.5) != structure.get_bbox();
    EXPECT_EQ(log.messages.size(), moves ? 0u : 1u) << number;
    lost += moves ? 0 : 1;
  }
  EXPECT_GT(lost, 0u);
}

TEST(Allocation, points_particles_and_uv_trees_report_what_they_hold_and_take_none_once_built) {
  Row row(4);
  GasPoint structure;
  GasParticleTree tree;
  const auto check = [&](auto& of_row) {
    row.create(of_row, nullptr);  // once before: what threads and queries need stays
    row.count_hits(of_row, false);
    of_row = {};
    const u64 before = held, empty = of_row.get_memory_size();
    row.create(of_row, nullptr);
    EXPECT_EQ(row.count_hits(of_row, false), 4u);
    EXPECT_EQ(count_allocations([&] { row.count_hits(of_row, false); }), 0u);
    const double reported = double(of_row.get_memory_size() - empty), taken = double(held - before);
    EXPECT_NEAR(reported, taken, 0.03 * taken);
  };
  check(structure);
  for (uint k = 0; k < 500; ++k) row.particles.add(row.particles[k]);
  check(tree);
  GasUvTree layouts;
  check(layouts);
}

INSTANTIATE_TEST_SUITE_P(Threads, AllocationRefused, testing::Values(1u, 4u));
