// The traversal kernels over boxes at rest: who is reached, in which order, and what a query leaves behind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "support/box_query.h"
#include "support/test_scale.h"
#include "support/test_tree.h"
#include "support/tree_oracle.h"

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

/// Each item reached at most once, every one that the ray surely hits, and none whose leaf it surely misses.
void expect_agreement(const BoxScene& scene, const GasBvh<4>& tree, uint seed) {
  const std::vector<BoxRay> rays = make_box_rays(scene, 60, seed);
  BoxQuery query(rays);
  query.run<BvhHits::all>(tree);
  const std::vector<FloatBox> leaves = get_leaf_boxes(tree);
  for (uint ray = 0; ray < rays.size(); ++ray) {
    const std::vector<uint> reached = query.get_sorted_items(ray);
    ASSERT_EQ(std::adjacent_find(reached.begin(), reached.end()), reached.end()) << scene << ", " << rays[ray];
    for (uint position = 0; position < tree.item_count; ++position) {
      const uint item = tree.order[position];
      const bool is_reached = std::binary_search(reached.begin(), reached.end(), item);
      const BoxAnswer of_item = ask_box(GMathBbox3<double>(scene.boxes[item]), rays[ray]);
      const BoxAnswer of_leaf = ask_box(GMathBbox3<double>(leaves[position]), rays[ray]);
      ASSERT_TRUE(is_reached || of_item != BoxAnswer::hit) << scene << ", item " << item << ", " << rays[ray];
      ASSERT_TRUE(!is_reached || of_leaf != BoxAnswer::missed) << scene << ", item " << item << ", " << rays[ray];
    }
  }
}

/// A leaf that records, for each of its items, a hit where the ray enters the item's box.
BoxQuery::Action hit_at_entry(BoxQuery& query, const BoxScene& scene, const std::vector<BoxRay>& rays) {
  return [&](GeometryRaytraceCtx& ctx, const LeafVisit& visit) {
    for (const uint item : visit.items) {
      const auto entry = find_entry(GMathBbox3<double>(scene.boxes[item]), rays[visit.first_ray]);
      if (entry)
        ctx.push_intersection(query.world.ctx, query.world.shader, visit.first_ray, {*entry, 0.0, 0.0, item, 0});
    }
  };
}

/// Every level: an inner child at the left of the row, three leaves behind it, so that all three wait on the stack.
GasBvh<4> make_chain(uint depth) {
  GasBvh<4> tree;
  tree.allocate_items(3 * depth + 1, false);
  tree.allocate_nodes(depth, 0, 0);
  tree.box = {{0, 0, 0}, {1, 1, 1}};
  for (uint level = 0; level < depth; ++level) {
    BvhNodeAligned& node = tree.aligned[level];
    const bool is_last = level + 1 == depth;
    for (uint lane = 0; lane < 4; ++lane) {
      node.lanes.set_lane(lane, {{lane == 0 ? 0.0f : 0.5f, 0, 0}, {1, 1, 1}});
      const u32 position = lane == 0 ? 3 * depth : 3 * level + lane - 1;
      node.child[lane] =
          lane == 0 && !is_last ? BvhChildRef{level + 1, 4} : BvhChildRef{position, 1 | BvhChildRef::leaf_bit};
    }
  }
  for (uint k = 0; k < tree.item_count; ++k) tree.order[k] = k;
  tree.root = {0, 4};
  tree.max_depth = depth;
  return tree;
}

}  // namespace

TEST(BvhKernel, agrees_with_a_loop_over_all_boxes) {
  for (const BoxKind kind : bounded_box_kinds) {
    for (uint seed = 0; seed < scaled(12, 3); ++seed) {
      const BoxScene scene = make_box_scene(kind, 5 + 97 * (seed % 4), seed);
      for (const BvhBuildParams& params : {make_params(), make_params(4), make_params(1, 1), make_params(2, 3)})
        expect_agreement(scene, make_tree(scene.boxes, params), seed + 1000);
      if (HasFatalFailure()) return;
    }
  }
}

// Small integers and powers of two: single precision makes no error, so touching counts and nothing is left open.
TEST(BvhKernel, is_exact_where_single_precision_is) {
  RandomValues random(3);
  const double steps[] = {0.0, -0.0, 1.0, -1.0, 2.0, -0.5};
  for (uint seed = 0; seed < scaled(20, 4); ++seed) {
    const BoxScene scene = make_box_scene(BoxKind::integer_grid, 200, seed);
    const GasBvh<4> tree = make_tree(scene.boxes);
    std::vector<BoxRay> rays;
    for (uint k = 0; k < 100; ++k) {
      BoxRay ray;
      for (uint axis = 0; axis < 3; ++axis) {
        ray.origin[axis] = random.get_index(17) - 8.0;
        ray.direction[axis] = steps[random.get_index(6)];
      }
      if (k % 3 == 0) ray.tnear = random.get_index(9) - 4.0;
      if (k % 4 == 0) ray.tfar = random.get_index(9) - 2.0;
      rays.push_back(ray);
    }
    BoxQuery query(rays);
    query.run<BvhHits::all>(tree);
    for (uint ray = 0; ray < rays.size(); ++ray) {
      std::vector<uint> expected;
      for (uint item = 0; item < scene.boxes.size(); ++item)
        if (find_entry(GMathBbox3<double>(scene.boxes[item]), rays[ray])) expected.push_back(item);
      ASSERT_EQ(query.get_sorted_items(ray), expected) << scene << ", " << rays[ray];
    }
  }
}

TEST(BvhKernel, nearest_finds_the_first_box) {
  for (const BoxKind kind : bounded_box_kinds) {
    for (uint seed = 0; seed < 4; ++seed) {
      const BoxScene scene = make_box_scene(kind, 300, seed);
      const std::vector<BoxRay> rays = make_box_rays(scene, 80, seed + 500);
      for (const BvhBuildParams& params : {make_params(), make_params(3, 1)}) {
        const GasBvh<4> tree = make_tree(scene.boxes, params);
        BoxQuery query(rays);
        query.on_leaf = hit_at_entry(query, scene, rays);
        query.run<BvhHits::nearest>(tree);
        EXPECT_FALSE(query.called_wrong_function);
        for (uint ray = 0; ray < rays.size(); ++ray) {
          const double found = query.packet.get_nearest(ray).distance;
          for (uint item = 0; item < scene.boxes.size(); ++item) {
            const GMathBbox3<double> box(scene.boxes[item]);
            if (ask_box(box, rays[ray]) != BoxAnswer::hit) continue;
            const double entry = *find_entry(box, rays[ray]);
            ASSERT_LE(found, entry + 1e-5 * (1.0 + std::abs(entry))) << scene << ", " << item << ", " << rays[ray];
          }
        }
      }
    }
  }
}

TEST(BvhKernel, equal_entries_visit_higher_lanes_first) {
  const FloatBox near({1, -1, -1}, {3, 1, 1}), far({2, -1, -1}, {3, 1, 1});
  BoxQuery query({{{0, 0, 0}, {1, 0, 0}}});
  using Items = std::vector<uint>;
  query.run<BvhHits::nearest>(make_node_by_hand({near, near}));
  EXPECT_EQ(query.get_items(0), (Items{1, 0}));
  query.run<BvhHits::nearest>(make_node_by_hand({near, near, near}));
  EXPECT_EQ(query.get_items(0), (Items{2, 1, 0}));
  query.run<BvhHits::nearest>(make_node_by_hand({far, near, far, near}));
  EXPECT_EQ(query.get_items(0), (Items{3, 1, 2, 0}));
  query.run<BvhHits::all>(make_node_by_hand({far, near}));
  EXPECT_EQ(query.get_items(0), (Items{1, 0}));
  query.run<BvhHits::all>(make_node_by_hand({near, far, near, near}));
  EXPECT_EQ(query.get_items(0), (Items{3, 2, 0, 1}));
}

TEST(BvhKernel, skips_what_lies_behind_the_hit_and_visits_what_begins_there) {
  const auto wall = [](float x) { return FloatBox({x, -1, -1}, {x + 1, 1, 1}); };
  const GasBvh<4> tree = make_node_by_hand({wall(3), wall(2), wall(4), wall(1)});
  const auto visited = [&](double hit_distance, bool all_hits) {
    BoxQuery query({{{0, 0, 0}, {1, 0, 0}}});
    query.on_leaf = [&](GeometryRaytraceCtx& ctx, const LeafVisit& visit) {
      ctx.push_intersection(query.world.ctx, query.world.shader, 0, {hit_distance, 0.0, 0.0, visit.items[0], 0});
    };
    all_hits ? query.run<BvhHits::all>(tree) : query.run<BvhHits::nearest>(tree);
    return query.get_items(0);
  };
  using Items = std::vector<uint>;
  EXPECT_EQ(visited(2.0, false), (Items{3, 1}));
  EXPECT_EQ(visited(1.999, false), (Items{3}));
  EXPECT_EQ(visited(3.5, false), (Items{3, 1, 0}));
  EXPECT_EQ(visited(0.5, true), (Items{3, 1, 0, 2}));
}

TEST(BvhKernel, strange_rays_end_and_hit_what_they_must) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 2000, 8);
  const GMathVec3<double> inside(scene.boxes[0].get_center()), out(3, 3, 3);
  const std::vector<BoxRay> none = {
      {out, {0, 0, 0}},                            // stands still outside
      {inside, {1, 1, 1}, 2.0, 1.0},               // ends before it begins
      {inside, {1, 1, 1}, not_a_number, DBL_MAX},  // begins nowhere
      {inside, {1, 0, 0}, 0.0, -infinity},
      {out, {1, -0.0, 0.0}},
      {out, {5e-324, 0, 0}},
      {{1e300, 0, 0}, {1, 0, 0}},
  };
  const std::vector<BoxRay> some = {
      {inside, {0, 0, 0}},  // stands still in a box
      {inside, {1, 0, 0}, 0.0, infinity},
      {inside, {1, 0, 0}, -infinity, infinity},
      {inside, {-0.0, 0.0, -1.0}},
      {inside, {1e-310, 0, 0}},
      {inside, {1e300, 1e300, 1e300}},
  };
  // Not a number somewhere: any answer, as long as there is one and nothing is visited twice.
  const std::vector<BoxRay> any = {
      {inside, {not_a_number, 1, 0}},
      {{not_a_number, not_a_number, not_a_number}, {1, 1, 1}},
      {{not_a_number, 0, 0}, {not_a_number, not_a_number, not_a_number}, not_a_number, not_a_number},
      {{infinity, -infinity, 0}, {infinity, 1, 1}},
      {inside, {infinity, -infinity, 0}},
  };
  for (const BvhBuildParams& params : {make_params(), make_params(1, 1)}) {
    const GasBvh<4> tree = make_tree(scene.boxes, params);
    const auto count = [&](const BoxRay& ray) {
      BoxQuery query({ray});
      query.run<BvhHits::nearest>(tree);
      query.run<BvhHits::all>(tree);
      const std::vector<uint> items = query.get_sorted_items(0);
      EXPECT_EQ(std::adjacent_find(items.begin(), items.end()), items.end()) << ray;
      return items.size();
    };
    for (const BoxRay& ray : none) EXPECT_EQ(count(ray), 0u) << ray;
    for (const BoxRay& ray : some) EXPECT_GT(count(ray), 0u) << ray;
    for (const BoxRay& ray : any) count(ray);
  }
}

// Unused lanes of a node in a frame without extent decode to the very point that the ray is in.
TEST(BvhKernel, never_enters_unused_lanes) {
  const std::vector<BoxRay> rays = {{{0, 0, 0}, {0, 0, 0}},
                                    {{-1, 0, 0}, {1, 0, 0}},
                                    {{not_a_number, 0, 0}, {not_a_number, not_a_number, not_a_number}},
                                    {{-1, -1, -1}, {1, 1, 1}}};
  for (const uint count : {2u, 3u, 5u, 6u, 9u}) {
    for (const uint quantized_from : {1u, 2u, 10u}) {
      const GasBvh<4> tree =
          make_tree(std::vector<FloatBox>(count, FloatBox({0, 0, 0}, {0, 0, 0})), make_params(1, quantized_from));
      BoxQuery query(rays);
      query.run<BvhHits::all>(tree);
      for (uint ray = 0; ray < rays.size(); ++ray)
        EXPECT_EQ(query.get_sorted_items(ray), make_indices(count)) << rays[ray] << ", from " << quantized_from;
    }
  }
}

TEST(BvhKernel, a_root_leaf_is_called_once_with_all_rays) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 5, 1);
  const GasBvh<4> tree = make_tree(scene.boxes, make_params(8, 10, 8));
  const std::vector<BoxRay> rays(7, BoxRay{{50, 50, 50}, {1, 0, 0}});  // past everything: the leaf decides
  BoxQuery query(rays);
  for (const bool nearest : {false, true}) {
    const auto narrow = [](GeometryRaytraceCtx& ctx) {
      ctx.first_ray = 2;
      ctx.last_ray = 5;
    };
    nearest ? query.run<BvhHits::nearest>(tree, nullptr, narrow) : query.run<BvhHits::all>(tree, nullptr, narrow);
    ASSERT_EQ(query.visits.size(), 1u);
    EXPECT_EQ(query.visits[0].first_ray, 2u);
    EXPECT_EQ(query.visits[0].last_ray, 5u);
    EXPECT_EQ(query.visits[0].items, std::vector<uint>(tree.order, tree.order + 5));
  }
  EXPECT_FALSE(query.called_wrong_function);
  query.run<BvhHits::all>(make_tree({}));
  EXPECT_TRUE(query.visits.empty());
  query.run<BvhHits::nearest>(GasBvh<4>());
  EXPECT_TRUE(query.visits.empty());
}

TEST(BvhKernel, walks_only_the_active_range_and_restores_it) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 300, 2);
  const GasBvh<4> tree = make_tree(scene.boxes);
  const GMathVec3<double> center(scene.boxes[0].get_center());
  BoxQuery query(std::vector<BoxRay>(9, BoxRay{center, {1, 0, 0}}));
  const GeometryRaytraceCtx& after = query.run<BvhHits::all>(tree, nullptr, [](GeometryRaytraceCtx& ctx) {
    ctx.first_ray = 3;
    ctx.last_ray = 6;
    ctx.counter = 99;
  });
  EXPECT_EQ(after.first_ray, 3u);
  EXPECT_EQ(after.last_ray, 6u);
  EXPECT_EQ(after.counter, 0u);
  for (uint ray = 0; ray < 9; ++ray) EXPECT_EQ(query.get_items(ray).empty(), ray < 3 || ray > 6);
  for (const LeafVisit& visit : query.visits) EXPECT_EQ(visit.first_ray, visit.last_ray);

  CtxGasTraversal& first = query.world.shader.new_gas_traversal();
  query.world.shader.free_gas_traversal(first);
  query.run<BvhHits::nearest>(tree);
  CtxGasTraversal& again = query.world.shader.new_gas_traversal();  // everything was handed back
  EXPECT_EQ(&first, &again);
  query.world.shader.free_gas_traversal(again);

  BoxQuery nobody({});
  nobody.run<BvhHits::all>(tree);
  nobody.run<BvhHits::nearest>(make_tree({scene.boxes[0]}));
  EXPECT_TRUE(nobody.visits.empty());
}

TEST(BvhKernel, a_stop_flag_ends_its_ray_only) {
  const std::vector<FloatBox> boxes(50, FloatBox({0, 0, 0}, {1, 1, 1}));
  BoxQuery query(std::vector<BoxRay>(3, BoxRay{{0.5, 0.5, 0.5}, {1, 0, 0}}));
  query.on_leaf = [](GeometryRaytraceCtx& ctx, const LeafVisit& visit) {
    if (visit.first_ray == 1) ctx.ray_flags[1] |= 1;
    if (visit.first_ray == 2) ctx.ray_flags[2] |= 2;  // another bit means nothing here
  };
  query.run<BvhHits::all>(make_tree(boxes));
  EXPECT_EQ(query.get_items(0).size(), 50u);
  EXPECT_EQ(query.get_items(1).size(), 1u);
  EXPECT_EQ(query.get_items(2).size(), 50u);
}

TEST(BvhKernel, a_deep_tree_fits_its_stack) {
  for (const uint depth : {1u, 2u, 3000u}) {
    const GasBvh<4> tree = make_chain(depth);
    BoxQuery query({{{-1, 0.5, 0.5}, {1, 0, 0}}});
    query.run<BvhHits::all>(tree);
    EXPECT_EQ(query.get_sorted_items(0), make_indices(tree.item_count));
    query.run<BvhHits::nearest>(tree);
    EXPECT_EQ(query.get_sorted_items(0), make_indices(tree.item_count));
  }
}

TEST(BvhKernel, starts_at_a_cluster_and_hits_nothing_from_a_stale_one) {
  for (const uint quantized_from : {10u, 2u}) {  // below the root: the start box is a frame
    const BoxScene scene = make_box_scene(BoxKind::uniform, 3000, 12);
    const GasBvh<4> tree = make_tree(scene.boxes, make_params(1, quantized_from));
    const std::vector<BoxRay> rays = make_box_rays(scene, 40, 9);
    BoxQuery whole(rays), part(rays);
    whole.run<BvhHits::all>(tree);
    std::vector<std::vector<uint>> united(rays.size());
    for (uint lane = 0; lane < tree.root.get_count(); ++lane) {
      part.run<BvhHits::all>(
          tree, nullptr, [&](GeometryRaytraceCtx& ctx) { ctx.cluster = 0xBC00'0000'0000'0000ull | u64{lane} << 32; });
      for (uint ray = 0; ray < rays.size(); ++ray) {
        const std::vector<uint> items = part.get_items(ray);
        united[ray].insert(united[ray].end(), items.begin(), items.end());
      }
    }
    for (uint ray = 0; ray < rays.size(); ++ray) {
      std::sort(united[ray].begin(), united[ray].end());
      EXPECT_EQ(united[ray], whole.get_sorted_items(ray)) << rays[ray];
    }
    for (const u64 stale : {0xBC00'0000'0000'0000ull | tree.aligned_count, 0xBC00'0000'FFFF'FFFFull,
                            0xBC01'0004'0000'0000ull, 0xBCFF'FFFF'0000'0000ull}) {
      part.run<BvhHits::all>(tree, nullptr, [&](GeometryRaytraceCtx& ctx) { ctx.cluster = stale; });
      EXPECT_TRUE(part.visits.empty()) << std::hex << stale;
    }
    part.run<BvhHits::all>(tree, nullptr, [](GeometryRaytraceCtx& ctx) { ctx.cluster = 0x0100'0003'0000'0001ull; });
    EXPECT_EQ(part.get_items(1), whole.get_items(1));  // no tag: the whole tree
  }
  // A lane that is a leaf is handed out like a root leaf; an unused lane holds nothing.
  const GasBvh<4> tree = make_node_by_hand({{{0, 0, 0}, {1, 1, 1}}, {{2, 0, 0}, {3, 1, 1}}});
  BoxQuery query(std::vector<BoxRay>(4, BoxRay{{50, 50, 50}, {1, 0, 0}}));
  query.run<BvhHits::nearest>(tree, nullptr, [](GeometryRaytraceCtx& ctx) { ctx.cluster = 0xBC00'0001'0000'0000ull; });
  ASSERT_EQ(query.visits.size(), 1u);
  EXPECT_EQ(query.visits[0].last_ray, 3u);
  EXPECT_EQ(query.visits[0].items, std::vector<uint>{1});
  query.run<BvhHits::all>(tree, nullptr, [](GeometryRaytraceCtx& ctx) { ctx.cluster = 0xBC00'0002'0000'0000ull; });
  EXPECT_TRUE(query.visits.empty());
}

TEST(BvhKernel, counts_visits_when_asked) {
  const GasBvh<4> tree = make_chain(5);
  BoxQuery query({{{-1, 0.5, 0.5}, {1, 0, 0}}, {{-1, 5, 5}, {1, 0, 0}}});
  GeometryRayVisits visits[2];
  const auto count = [&](GeometryRaytraceCtx& ctx) { ctx.visits = visits; };
  query.run<BvhHits::all>(tree, nullptr, count);
  EXPECT_EQ(visits[0].nodes, 5u);
  EXPECT_EQ(visits[0].leaves, 16u);
  EXPECT_EQ(visits[1].nodes, 1u);
  EXPECT_EQ(visits[1].leaves, 0u);
}
