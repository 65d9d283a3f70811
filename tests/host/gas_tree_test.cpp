// The host's trees against loops over all boxes: GasTree, and GasGridTree with and without a function that supplies
// boxes.
#include <cstring>

#include "host/gas_tree_probe.h"
#include "support/test_scale.h"
#include "vq_app_base/app_progress_scope.h"
#include "vq_gas_base/gas_beam_planes.h"

namespace {

/// Without those that an infinite box has given infinite components.
std::vector<BoxRay> make_finite_rays(const BoxScene& scene, uint count, uint seed) {
  if (scene.boxes.empty()) return {{{0, 0, 0}, {0, 0, 1}}};
  std::vector<BoxRay> rays = make_box_rays(scene, count, seed);
  std::erase_if(rays, [](const BoxRay& ray) {
    return !std::isfinite(ray.origin.get_length()) || !std::isfinite(ray.direction.get_length());
  });
  return rays;
}

GMathBbox3<double> grow(const FloatBox& box, double margin) {
  const GMathVec3<double> by(margin, margin, margin);
  return {GMathVec3<double>(box.min) - by, GMathVec3<double>(box.max) + by};
}

bool is_bounded(BoxKind kind) { return std::ranges::find(bounded_box_kinds, kind) != std::end(bounded_box_kinds); }

template <class Check>
void for_each_probe(uint count, const Check& check) {
  for (const BoxKind kind : all_box_kinds) {
    for (const Probe::Form form : Probe::forms) {
      for (uint seed = 0; seed < 3; ++seed) {
        Probe probe(make_box_scene(kind, seed < 2 ? seed : count, seed), form);
        SCOPED_TRACE(testing::PrintToString(static_cast<int>(form)));
        SCOPED_TRACE(probe.scene);
        check(probe);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

}  // namespace

TEST(GasTree, rays_reach_what_a_loop_over_all_boxes_reaches) {
  for_each_probe(400, [](Probe& probe) {
    const std::vector<BoxRay> rays = make_finite_rays(probe.scene, 60, 5);
    const auto found = probe.ask(rays, 0.0);
    BoxQuery nearest(rays);
    GeometryRaytraceCtx& query = nearest.packet.begin_nearest(probe.world.shading);
    query.object_distance = -DBL_MAX;
    probe.call([&](auto& any) { any.ray_hit_nearest(probe.world.ctx, probe.world.shader, query); });
    EXPECT_EQ(std::pair(query.first_ray, query.last_ray), std::pair(0u, static_cast<uint>(rays.size() - 1)));
    for (uint r = 0; r < rays.size(); ++r) {
      double closest = rays[r].tfar;
      for (uint item = 0; item < probe.scene.boxes.size(); ++item) {
        const GMathBbox3<double> box(probe.scene.boxes[item]);
        const auto entry = find_entry(box, rays[r]);
        if (entry) closest = std::min(closest, *entry);
        if (entry) {
          EXPECT_TRUE(found[r].contains(item)) << rays[r] << " item " << item;
        }
        if (is_bounded(probe.scene.kind) && !meets_box(box, rays[r], 1.0)) {
          EXPECT_FALSE(found[r].contains(item)) << rays[r] << " item " << item;
        }
      }
      EXPECT_EQ(nearest.packet.get_nearest(r).distance, closest) << rays[r];
    }
  });
}

TEST(GasTree, rays_end_at_their_stop_flag) {
  for (const Probe::Form form : Probe::forms) {
    Probe probe(make_box_scene(BoxKind::coincident, 200, 1), form);
    probe.stops_rays = true;
    const std::size_t reached = probe.ask({{{0, 0.1, 0.5}, {0, 0, 1}}}, 0.0)[0].size();
    EXPECT_EQ(reached, 1u);
    BoxQuery stopped({{{0, 0.1, 0.5}, {0, 0, 1}}});
    GeometryRaytraceCtx& query = stopped.packet.begin_all_hits(probe.world.shading);
    query.ray_flags[0] |= 1u;
    probe.call([&](auto& any) { any.ray_hit(probe.world.ctx, probe.world.shader, query); });
    EXPECT_TRUE(probe.visited.empty());
  }
}

TEST(GasTree, boxes_without_a_place_get_no_leaf) {
  BoxScene invalid{BoxKind::uniform, 0, {{{NAN, 0, 0}, {1, 1, 1}}, {{0, 0, 1}, {1, 1, 0}}, {{0, 0, 0}, {1, 1, 1}}}};
  for (const Probe::Form form : Probe::forms) EXPECT_EQ(Probe(invalid, form).list_all(), std::vector<uint>{2});
}

TEST(GasTree, forgets_its_former_leaves_when_it_is_created_again) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 100, 1);
  CoreVector<FloatBox> boxes;
  for (const FloatBox& box : scene.boxes) boxes.add(box);
  Probe former(scene, Probe::Form::groups);
  former.tree.create(boxes, nullptr);
  EXPECT_EQ(former.list_all(), Probe(scene, Probe::Form::tree).list_all());
}

TEST(GasTree, extents_reach_every_grown_box_once) {
  for (const BoxKind kind : bounded_box_kinds) {
    for (const Probe::Form form : {Probe::Form::tree, Probe::Form::groups}) {
      Probe probe(make_box_scene(kind, 300, 4), form);
      SCOPED_TRACE(probe.scene);
      const std::vector<BoxRay> rays = make_finite_rays(probe.scene, 80, 6);
      for (const double extent : {1e-4, 0.05, 0.7}) {
        const auto found = probe.ask(rays, extent);
        for (uint r = 0; r < rays.size(); ++r) {
          for (uint item = 0; item < probe.scene.boxes.size(); ++item) {
            const auto reaches = [&](double margin) {
              const GMathBbox3<double> box = grow(probe.scene.boxes[item], extent + margin);
              const GMathVec3<double>& o = rays[r].origin;
              return find_entry(box, rays[r]).has_value() || find_entry(box, {o, {0, 0, 0}, 0.0, 0.0}).has_value();
            };
            if (reaches(-1e-9)) {
              EXPECT_TRUE(found[r].contains(item)) << rays[r] << " item " << item;
            }
            if (form == Probe::Form::tree && !reaches(1e-9)) {
              EXPECT_FALSE(found[r].contains(item)) << rays[r] << " item " << item;
            }
          }
        }
      }
    }
  }
}

TEST(GasTree, frustums_reach_the_boxes_that_are_not_behind_a_plane) {
  for_each_probe(300, [](Probe& probe) {
    RandomValues random(9);
    for (uint k = 0; k < 40; ++k) {
      GeometryFrustumCtx query;
      query.mode = k % 4;
      query.cluster = query.mode == 1 ? ~u64{0} : 0;  // mode all asks about the whole
      for (uint plane = 0; plane < 1 + k % 5; ++plane) query.add_plane({random.get_vec(0.8), random.get_vec()});
      std::set<uint> expected;
      bool all_inside = true;
      for (uint item = 0; item < probe.scene.boxes.size(); ++item) {
        const GeometryBoxPlace place = query.classify(probe.scene.boxes[item]);
        if (place != GeometryBoxPlace::outside) expected.insert(item);
        all_inside = all_inside && place == GeometryBoxPlace::inside;
      }
      probe.call([&](auto& any) { any.frustum_hit(probe.world.ctx, probe.world.shader, query); });
      const std::set<uint> found(probe.visited.begin(), probe.visited.end());
      if (query.mode == 0) {
        EXPECT_EQ(found.empty(), expected.empty()) << "frustum " << k;
        EXPECT_LE(found.size(), 1u) << "frustum " << k;
        EXPECT_TRUE(std::ranges::includes(expected, found)) << "frustum " << k;
      }
      if (query.mode == 1) {
        EXPECT_EQ(query.result.outside == 0, all_inside) << "frustum " << k;
      }
      if (query.mode >= 2) {
        EXPECT_EQ(found, expected) << "frustum " << k;
      }
    }
  });
}

TEST(GasTree, beams_find_the_nearest_center) {
  uint hits = 0;
  for_each_probe(300, [&](Probe& probe) {
    if (!is_bounded(probe.scene.kind)) return;
    RandomValues random(11);
    for (uint k = 0; k < 60; ++k) {
      const GMathVec3<double> axis = random.get_vec(), side = axis.cross(random.get_vec()).get_normalized() * 0.3;
      const GMathVec3<double> up = axis.cross(side).get_normalized() * random.get(0.0, 0.3),
                              origin = random.get_vec(2.0);
      const GMathVec3<double> ring[4] = {side + up, up - side, -side - up, side - up};
      const GMathVec3<double> aimed[4] = {axis + ring[0], axis + ring[1], axis + ring[2], axis + ring[3]};
      GeometryRayFrustumBeam beam;
      const double tnear = random.get(0.0, 0.5), tfar = k % 3 == 0 ? DBL_MAX : tnear + random.get(0.0, 4.0);
      ASSERT_TRUE(k % 2 ? beam.set_perspective(origin, axis, aimed, tnear, tfar)
                        : beam.set_parallel(origin, axis, ring, tnear, tfar));
      GeometryRayFrustumRecord record;
      GeometryRayFrustumCtx query;
      query.begin(&beam, &record, 1);
      query.init(0);
      double closest = tfar;
      for (const FloatBox& box : probe.scene.boxes)
        closest = std::min(closest, Probe::find_center(GMathBbox3<double>(box).get_center(), query));
      probe.call([&](auto& any) { any.ray_frustum_hit(probe.world.ctx, probe.world.shader, query); });
      EXPECT_EQ(record.t, closest) << "beam " << k;
      hits += record.index != core_invalid_index;
    }
  });
  EXPECT_GT(hits, 100u);
}

// Items may be accepted a little beside the sides, and their t is rounded.
TEST(GasTree, beams_touch_points_at_their_sides_and_ends) {
  const GMathVec3<double> ring[4] = {{1, 1, 0}, {-1, 1, 0}, {-1, -1, 0}, {1, -1, 0}};
  GeometryRayFrustumBeam beam;
  const auto touches = [&](const GMathVec3<float>& point) {
    float first = 0.0f;
    const GasBeamPlanes planes(beam, {point, point});
    return planes.touches({point, point}, planes.get_distance(beam.tfar), first);
  };
  ASSERT_TRUE(beam.set_parallel({0, 0, 0}, {0, 0, 1}, ring, 0, 9));
  EXPECT_TRUE(touches({1 + 0x1p-21f, 0, 5}));
  EXPECT_FALSE(touches({1 + 0x1p-17f, 0, 5}));
  RandomValues random(2);
  for (uint k = 0; k < 100; ++k) {
    const GMathVec3<float> direction(1 + random.get_index(9), 1 + random.get_index(9), 1 + random.get_index(9));
    const uint t = 1 + random.get_index(99);
    ASSERT_TRUE(beam.set_parallel({0, 0, 0}, GMathVec3<double>(direction), ring, t, t));
    EXPECT_TRUE(touches(direction * t)) << GMathVec3<double>(direction) << " at " << t;
  }
}

TEST(GasTree, clusters_hold_everything_once_also_in_a_copy) {
  for_each_probe(500, [](Probe& probe) {
    const std::vector<BoxRay> rays = make_finite_rays(probe.scene, 20, 7);
    const auto whole = probe.ask(rays, 0.0);
    CoreVector<void*> clusters;
    probe.call([&](auto& any) { any.get_clusters(clusters, 9, 0.0f); });
    EXPECT_LE(clusters.get_count(), 9u);
    if (probe.scene.kind == BoxKind::flat && probe.scene.boxes.size() > 9) {
      EXPECT_EQ(clusters.get_count(), 9u);
    }
    CoreVector<void*> undivided;
    probe.call([&](auto& any) { any.get_clusters(undivided, 9, 1.0f); });
    EXPECT_LE(undivided.get_count(), 1u);
    std::vector<FloatBox> boxes(clusters.get_count());
    CoreBasicArray<void*> handles;
    handles.set_view(clusters.get_items(), clusters.get_count());
    probe.call([&](auto& any) { any.get_clusters_bboxes(handles, boxes.data()); });
    FloatBox all;
    for (const FloatBox& box : boxes) all.add(box);
    EXPECT_EQ(0, std::memcmp(&all, &probe.get().get_bbox(), sizeof all));
    const std::vector<uint> order = probe.list_all();
    const GasTree tree(probe.tree);
    const GasGridTree grid(probe.grid);
    probe.get().set_frustum_leaf(nullptr, nullptr);
    probe.tree = tree;
    probe.grid = grid;
    EXPECT_EQ(probe.list_all(), order);
    std::vector<std::set<uint>> united(rays.size());
    for (void* cluster : clusters) {
      const auto found = probe.ask(rays, 0.0, reinterpret_cast<u64>(cluster));
      for (uint r = 0; r < rays.size(); ++r)
        for (const uint item : found[r]) EXPECT_TRUE(united[r].insert(item).second) << "in two clusters";
    }
    EXPECT_EQ(united, whole);
    const auto unknown = probe.ask(rays, 0.0, (u64{0x47} << 56) + 4000);
    for (const std::set<uint>& items : unknown) EXPECT_TRUE(items.empty());
  });
}

// The order of visits shows the whole topology.
TEST(GasTree, is_the_same_for_any_number_of_threads_and_ends_on_equal_boxes) {
  const uint count = scaled(2000000, 100000);
  for (const BoxKind kind : {BoxKind::coincident, BoxKind::uniform}) {
    BoxScene scene = make_box_scene(kind, kind == BoxKind::coincident ? count : 30000, 1);
    for (const Probe::Form form : {Probe::Form::tree, Probe::Form::groups, Probe::Form::supplied_grid}) {
      if (form == Probe::Form::supplied_grid) scene.boxes.resize(30000);
      std::vector<uint> first;
      for (const uint threads : {1u, 4u}) {
        Probe probe(scene, form, threads);
        EXPECT_EQ(probe.list_all().size(), scene.boxes.size());
        if (first.empty()) first = probe.visited;
        EXPECT_TRUE(first == probe.visited);
      }
    }
  }
}

TEST(GasTree, is_empty_after_a_stop_request) {
  Probe probe(make_box_scene(BoxKind::uniform, 30000, 2), Probe::Form::grid, 3);
  CoreVector<FloatBox> boxes;
  for (const FloatBox& box : probe.scene.boxes) boxes.add(box);
  AppProgressBar* bar = probe.world.app.create_progress_bar("test");
  bar->set_sink(
      [&](const AppProgressReport& report) {
        if (report.fraction > 0.0) probe.world.app.request_stop();  // when the first task has ended
      },
      std::chrono::milliseconds(0));
  {
    const AppProgressScope stage(bar, "Build tree", 1.0, boxes.get_count());
    EXPECT_THROW(probe.tree.create(boxes, bar, &probe.world.app), AppStopped);
  }
  bar->finish();
  EXPECT_THROW(probe.tree.create(boxes, nullptr, &probe.world.app), AppStopped);
  EXPECT_TRUE(probe.tree.is_empty());
  EXPECT_THROW(probe.grid.create(boxes, Probe::resolution, nullptr, &probe.world.app), AppStopped);
  EXPECT_EQ(probe.grid.get_part_count(), 0u);
  EXPECT_EQ(probe.grid.get_memory_size(), GasGridTree().get_memory_size());
}
