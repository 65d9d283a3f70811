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
  probe.world.app.request_stop();  // so does a stop request, before boxes are requested
  probe.supplied = 0;
  EXPECT_TRUE(probe.ask({ray}, 0.0)[0].empty());
  EXPECT_EQ(probe.grid.get_built_part_count() + probe.supplied, 0u);
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

TEST(GasGridTree, nearest_and_all_hits_have_callbacks_of_their_own_and_beams_reach_primitives) {
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

  uint beam_count = 0;
  probe.grid.set_items_callbacks(
      nullptr, [](void*, const GasGridItems&, const CtxEval&, CtxShader&, auto&) {}, nullptr);
  probe.grid.set_ray_frustum_leaf([](void* count, const uint&, const CtxEval&, CtxShader&,
                                     GeometryRayFrustumCtx&) { ++*static_cast<uint*>(count); },
                                  &beam_count);
  GeometryRayFrustumBeam beam;  // without a direction: it leaves nothing out
  GeometryRayFrustumRecord record;
  GeometryRayFrustumCtx query;
  query.begin(&beam, &record, 1);
  probe.grid.ray_frustum_hit(probe.world.ctx, probe.world.shader, query);
  EXPECT_EQ(beam_count, 200u) << "primitives test themselves";
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

namespace {

/// Checks the subtree at `ref` and returns its box.
/// @param at_leaf  (first position, count, box)
template <class AtLeaf>
FloatBox check_subtree(const GasBinaryTree& tree, const GasBinaryRef& ref, const std::vector<FloatBox>& boxes,
                       const std::vector<uint>& order, uint depth, const AtLeaf& at_leaf) {
  EXPECT_LE(depth, GasBinaryTree::most_depth);
  FloatBox box;
  if (ref.is_leaf()) {
    for (uint k = 0; k < ref.count; ++k) box.add(boxes[order[ref.index + k]]);
    at_leaf(ref, box);
    return box;
  }
  for (uint lane = 0; lane < 2; ++lane) {
    const GasBinaryNode& node = tree.get_node(ref.index);
    const FloatBox child = check_subtree(tree, node.child[lane], boxes, order, depth + 1, at_leaf);
    EXPECT_EQ(child, node.boxes.get_box(lane)) << "node " << ref.index;
    box.add(child);
  }
  return box;
}

}  // namespace

// Dense clusters within each other, coincident points and boxes whose centers have no place in a grid of codes.
TEST(GasBinaryTree, codes_divide_dense_clusters_and_end_within_the_depth) {
  RandomValues random(5);
  std::vector<FloatBox> scenes[4];
  for (uint k = 0; k < 8000; ++k) {
    const auto p = random.get_vec<float>();
    scenes[0].push_back(make_box(p, p));
    const auto q = p * (k % 2 ? 1e-6f : 1.0f);
    scenes[1].push_back(make_box(q, q));
    const float x = std::ldexp(1.0f, -static_cast<int>(k % 150));  // a power takes one level: more than fit
    scenes[2].push_back(make_box({x, 0, 0}, {x, 0, 0}));
    const float large = k % 3 ? 3e38f : HUGE_VALF;
    scenes[3].push_back(k % 5 ? make_box(p, p) : make_box(p * (k % 2 ? 1.0f : -large), p * large));
  }
  for (const std::vector<FloatBox>& boxes : scenes) {
    for (const uint most_leaf : {1u, 8u}) {
      std::vector<uint> order(boxes.size());
      for (uint k = 0; k < order.size(); ++k) order[k] = k;
      const uint count = static_cast<uint>(order.size());
      GasBinaryTree tree;
      tree.build_by_codes({boxes.data(), order.data(), count, most_leaf, nullptr, nullptr});
      double extents = 0.0;
      uint next = 0, small = 0, leaves = 0, unbounded = 0;
      check_subtree(tree, tree.get_root().ref, boxes, order, 0, [&](const GasBinaryRef& leaf, const FloatBox& box) {
        EXPECT_EQ(leaf.index, next);  // in the order of the curve, each once
        EXPECT_LE(leaf.count, most_leaf);
        next += leaf.count;
        ++leaves;
        unbounded += !(box.get_extent().x < 3.0f);
        if (!(std::fabs(box.min.x) < 1e-6f)) return;
        extents += box.get_extent().x;
        ++small;
      });
      EXPECT_EQ(next, count);
      if (&boxes == &scenes[1]) {
        EXPECT_LT(extents / small, 0.3e-6) << "the cluster, 2e-6 wide, is divided as well as the rest";
      }
      EXPECT_LT(unbounded, leaves / 2) << "one box in five is large, and not in most leaves";
      std::sort(order.begin(), order.end());
      for (uint k = 0; k < count; ++k) ASSERT_EQ(order[k], k);
    }
  }
}
