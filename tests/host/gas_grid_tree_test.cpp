// What GasGridTree has beyond GasTree: parts, their memory, and callbacks for primitives.
#include <array>

#include "host/gas_tree_probe.h"

TEST(GasGridTree, builds_a_part_at_its_first_visit_once) {
  Probe probe(make_box_scene(BoxKind::uniform, 20000, 2), Probe::Form::supplied_grid);
  std::atomic<u64> reported = probe.grid.get_memory_size();
  probe.grid.set_memory_change([](const u64& before, const u64& after,
                                  void* total) { *static_cast<std::atomic<u64>*>(total) += after - before; },
                               &reported);
  const u64 unbuilt_size = probe.grid.get_memory_size();
  const BoxRay ray{GMathVec3<double>(probe.scene.boxes[0].min), {0, 0, 1}, 0.0, 1e-6};
  EXPECT_GE(probe.grid.get_part_count(), Probe::resolution);
  EXPECT_EQ(probe.grid.get_built_part_count(), 0u);

  probe.refuses = true;  // a miss, and the next query tries again
  EXPECT_TRUE(probe.ask({ray}, 0.0)[0].empty());
  EXPECT_EQ(probe.grid.get_built_part_count(), 0u);
  EXPECT_EQ(probe.grid.get_memory_size(), unbuilt_size);
  probe.refuses = false;
  probe.world.app.request_stop();  // so does a stop request
  EXPECT_TRUE(probe.ask({ray}, 0.0)[0].empty());
  EXPECT_EQ(probe.grid.get_built_part_count(), 0u);
  probe.world.app.clear_stop_request();
  probe.supplied = 0;
  EXPECT_TRUE(probe.ask({ray}, 0.0)[0].contains(0));
  EXPECT_EQ(probe.supplied, probe.grid.get_built_part_count());
  EXPECT_LE(probe.supplied, 3u) << "a short ray reaches few parts";
  EXPECT_EQ(GasGridTree(probe.grid).get_memory_size(), unbuilt_size);
  const Probe keeping(probe.scene, Probe::Form::grid);
  EXPECT_EQ(keeping.grid.get_memory_size(), unbuilt_size + probe.scene.boxes.size() * sizeof(FloatBox));

  probe.grid.set_leaf_boxes(Probe::supply, &probe);  // all unbuilt again
  EXPECT_EQ(probe.grid.get_memory_size(), unbuilt_size);
  reported = unbuilt_size;
  probe.supplied = 0;
  probe.delay = std::chrono::milliseconds(10);  // the other threads wait
  probe.grid.set_ray_leaf([](void*, const uint&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&) {}, nullptr);
  std::vector<std::thread> threads;
  for (uint k = 0; k < 8; ++k) {
    threads.emplace_back([&] {
      const CtxEval ctx(probe.world.factory);
      CtxShader shader;
      GeometryRayPacket packet;
      packet.resize(1);
      packet.set_ray(0, {-4, 0.1, 0.1}, {1, 0, 0});
      probe.grid.ray_hit(ctx, shader, packet.begin_all_hits(probe.world.shading));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(probe.supplied, probe.grid.get_built_part_count());
  EXPECT_EQ(reported, probe.grid.get_memory_size());
  EXPECT_GT(reported, unbuilt_size);
}

TEST(GasGridTree, nearest_and_all_hits_have_callbacks_of_their_own) {
  Probe probe(make_box_scene(BoxKind::uniform, 200, 1), Probe::Form::grid);
  GasGridCallbacks callbacks;
  callbacks.ray.function = [](void*, const uint&, const CtxEval&, CtxShader&, GeometryRaytraceCtx&) {};
  callbacks.nearest = {Probe::test_ray, &probe};
  probe.grid.set_callbacks(callbacks);
  const BoxRay ray{{-4, 0.1, 0.1}, {1, 0, 0}};
  EXPECT_TRUE(probe.ask({ray}, 0.0)[0].empty());
  BoxQuery nearest({ray});
  probe.grid.ray_hit_nearest(probe.world.ctx, probe.world.shader, nearest.packet.begin_nearest(probe.world.shading));
  EXPECT_FALSE(probe.visited.empty());
}

TEST(GasGridTree, has_about_as_many_parts_as_requested) {
  for (const auto [count, wanted, least, most] :
       {std::array{0u, 4u, 0u, 0u}, {1u, 9u, 1u, 1u}, {10u, 3u, 1u, 10u}, {20000u, 141u, 36u, 400u}})
    for (const BoxKind kind : {BoxKind::uniform, BoxKind::coincident}) {
      Probe probe(make_box_scene(kind, count, 3), Probe::Form::grid);
      CoreVector<FloatBox> boxes;
      for (const FloatBox& box : probe.scene.boxes) boxes.add(box);
      probe.grid.create(boxes, wanted, nullptr);
      EXPECT_GE(probe.grid.get_part_count(), least);
      EXPECT_LE(probe.grid.get_part_count(), most);
    }
}
