// The traversal kernels over boxes at rest: who is reached, in which order, and what a query leaves behind.
#include <gtest/gtest.h>

#include <cmath>

#include "support/box_query.h"
#include "support/test_scale.h"
#include "support/tree_oracle.h"

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
using Items = std::vector<uint>;

/// Each item reached at most once, every one that the ray surely hits, and none whose leaf it surely misses.
void expect_agreement(const BoxScene& scene, const GasBvh<4>& tree, uint seed) {
  const std::vector<BoxRay> rays = make_box_rays(scene, 60, seed);
  BoxQuery query(rays);
  query.run<BvhHits::all>(tree);
  const std::vector<FloatBox> leaves = get_leaf_boxes(tree);
  for (uint ray = 0; ray < rays.size(); ++ray) {
    const Items reached = query.get_sorted_items(ray);
    ASSERT_EQ(std::adjacent_find(reached.begin(), reached.end()), reached.end()) << scene << ", " << rays[ray];
    for (uint position = 0; position < tree.item_count; ++position) {
      const uint item = tree.order[position];
      const bool is_reached = std::binary_search(reached.begin(), reached.end(), item);
      const bool must = meets_box(GMathBbox3<double>(scene.boxes[item]), rays[ray], -1.0);
      const bool may = meets_box(GMathBbox3<double>(leaves[position]), rays[ray], 1.0);
      ASSERT_TRUE(is_reached ? may : !must) << scene << ", item " << item << ", " << rays[ray];
    }
  }
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
    std::vector<BoxRay> rays(100);
    for (BoxRay& ray : rays) {
      for (uint axis = 0; axis < 3; ++axis) {
        ray.origin[axis] = random.get_index(17) - 8.0;
        ray.direction[axis] = steps[random.get_index(6)];
      }
      if (random.get_index(3) == 0) ray.tnear = random.get_index(9) - 4.0;
      if (random.get_index(4) == 0) ray.tfar = random.get_index(9) - 2.0;
    }
    BoxQuery query(rays);
    query.run<BvhHits::all>(make_tree(scene.boxes));
    for (uint ray = 0; ray < rays.size(); ++ray) {
      Items expected;
      for (uint item = 0; item < scene.boxes.size(); ++item)
        if (find_entry(GMathBbox3<double>(scene.boxes[item]), rays[ray])) expected.push_back(item);
      ASSERT_EQ(query.get_sorted_items(ray), expected) << scene << ", " << rays[ray];
    }
  }
}

TEST(BvhKernel, visits_nearer_lanes_first_and_of_equal_ones_the_higher) {
  const FloatBox near({1, -1, -1}, {3, 1, 1}), far({2, -1, -1}, {3, 1, 1});
  BoxQuery query({{{0, 0, 0}, {1, 0, 0}}});
  const std::pair<GasBvh<4>, Items> rows[] = {{make_node_by_hand({near, near}), {1, 0}},
                                              {make_node_by_hand({near, near, near}), {2, 1, 0}},
                                              {make_node_by_hand({far, near}), {1, 0}},
                                              {make_node_by_hand({far, near, far, near}), {3, 1, 2, 0}},
                                              {make_node_by_hand({near, far, near, near}), {3, 2, 0, 1}}};
  for (const auto& [tree, order] : rows) {
    query.run<BvhHits::nearest>(tree);
    EXPECT_EQ(query.get_items(0), order);
    query.run<BvhHits::all>(tree);
    EXPECT_EQ(query.get_items(0), order);
  }
}

// While nothing is hit, a query for any hit visits what one for the nearest does, in another order.
TEST(BvhKernel, any_hit_visits_lanes_in_their_order_until_something_is_hit) {
  const auto ask_any = [](GeometryRaytraceCtx& query) { query.settings.any_hit = true; };
  const FloatBox near({1, -1, -1}, {3, 1, 1}), far({2, -1, -1}, {3, 1, 1});
  const GasBvh<4> node = make_node_by_hand({far, near, far, near});
  BoxQuery one({{{0, 0, 0}, {1, 0, 0}}});
  one.run<BvhHits::nearest>(node, nullptr, ask_any);
  EXPECT_EQ(one.get_items(0), (Items{0, 1, 2, 3}));
  one.on_leaf = [&](GeometryRaytraceCtx& ctx, const LeafVisit& visit) {
    if (visit.items[0] == 1)
      ctx.push_intersection(one.world.ctx, one.world.shader, 0, {2.5, 0.0, 0.0, visit.items[0], 0});
  };
  one.run<BvhHits::nearest>(node, nullptr, ask_any);
  EXPECT_EQ(one.get_items(0), (Items{0, 1}));

  const BoxScene scene = make_box_scene(BoxKind::uniform, 3000, 4);
  const std::vector<BoxRay> rays = make_box_rays(scene, 200, 5);
  for (const BvhBuildParams& params : {make_params(), make_params(1, 1), make_params(4, 3)}) {
    const GasBvh<4> tree = make_tree(scene.boxes, params);
    BoxQuery nearest(rays), any(rays);
    nearest.run<BvhHits::nearest>(tree);
    any.run<BvhHits::nearest>(tree, nullptr, ask_any);
    for (uint ray = 0; ray < rays.size(); ++ray)
      ASSERT_EQ(any.get_sorted_items(ray), nearest.get_sorted_items(ray)) << rays[ray];
  }
}

TEST(BvhKernel, skips_what_lies_behind_the_hit_and_visits_what_begins_there) {
  const auto wall = [](float x) { return FloatBox({x, -1, -1}, {x + 1, 1, 1}); };
  GasBvh<4> tree = make_node_by_hand({wall(3), wall(2), wall(4), wall(1)});
  const auto visited = [&](double hit_distance, bool all_hits) {
    BoxQuery query({{{0, 0, 0}, {1, 0, 0}}});
    query.on_leaf = [&](GeometryRaytraceCtx& ctx, const LeafVisit& visit) {
      ctx.push_intersection(query.world.ctx, query.world.shader, 0, {hit_distance, 0.0, 0.0, visit.items[0], 0});
    };
    all_hits ? query.run<BvhHits::all>(tree) : query.run<BvhHits::nearest>(tree);
    return query.get_items(0);
  };
  EXPECT_EQ(visited(2.0, false), (Items{3, 1}));
  EXPECT_EQ(visited(1.999, false), (Items{3}));
  EXPECT_EQ(visited(3.5, false), (Items{3, 1, 0}));
  EXPECT_EQ(visited(0.5, true), (Items{3, 1, 0, 2}));
  // From inside both, at the very distance that the ray begins with.
  tree = make_node_by_hand({wall(-0.5f), wall(-0.75f)});
  EXPECT_EQ(visited(0.0, false), (Items{1, 0}));
}

// What no order of numbers tells inside from outside may answer as it likes, but must end and name nothing twice.
TEST(BvhKernel, strange_rays_end_and_hit_what_they_must) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 2000, 8);
  const GMathVec3<double> inside(scene.boxes[0].get_center()), out(3, 3, 3), bad(not_a_number, 0, not_a_number);
  const std::vector<BoxRay> none = {{out, {0, 0, 0}},
                                    {inside, {1, 1, 1}, 2.0, 1.0},
                                    {inside, {1, 1, 1}, not_a_number, DBL_MAX},
                                    {inside, {1, 0, 0}, 0.0, -infinity},
                                    {out, {1, -0.0, 0.0}},
                                    {out, {5e-324, 0, 0}},
                                    {{1e300, 0, 0}, {1, 0, 0}}};
  const std::vector<BoxRay> some = {{inside, {0, 0, 0}},
                                    {inside, {1, 0, 0}, -infinity, infinity},
                                    {inside, {-0.0, 0.0, -1.0}},
                                    {inside, {1e-310, 0, 0}},
                                    {inside, {1e300, 1e300, 1e300}}};
  const std::vector<BoxRay> any = {{inside, bad},
                                   {bad, {1, 1, 1}},
                                   {bad, bad, not_a_number, not_a_number},
                                   {{infinity, -infinity, 0}, {infinity, 1, 1}},
                                   {inside, {infinity, -infinity, 0}}};
  for (const BvhBuildParams& params : {make_params(), make_params(1, 1)}) {
    const GasBvh<4> tree = make_tree(scene.boxes, params);
    for (const std::vector<BoxRay>* rays : {&none, &some, &any}) {
      BoxQuery query(*rays);
      query.run<BvhHits::nearest>(tree);
      query.run<BvhHits::all>(tree);
      for (uint ray = 0; ray < rays->size(); ++ray) {
        const Items items = query.get_sorted_items(ray);
        EXPECT_EQ(std::adjacent_find(items.begin(), items.end()), items.end()) << (*rays)[ray];
        EXPECT_TRUE(rays == &any || items.empty() == (rays == &none)) << (*rays)[ray];
      }
    }
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
      const std::vector<FloatBox> points(count, FloatBox({0, 0, 0}, {0, 0, 0}));
      BoxQuery query(rays);
      query.run<BvhHits::all>(make_tree(points, make_params(1, quantized_from)));
      for (uint ray = 0; ray < rays.size(); ++ray)
        EXPECT_EQ(query.get_sorted_items(ray), make_indices(count)) << rays[ray] << ", from " << quantized_from;
    }
  }
}

TEST(BvhKernel, walks_only_the_active_range_and_restores_it) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 300, 2);
  const GasBvh<4> tree = make_tree(scene.boxes), root_leaf = make_tree({scene.boxes[0]});
  BoxQuery query(std::vector<BoxRay>(9, BoxRay{GMathVec3<double>(scene.boxes[0].get_center()), {1, 0, 0}}));
  const auto narrow = [](GeometryRaytraceCtx& ctx) {
    ctx.first_ray = 3;
    ctx.last_ray = 6;
  };
  for (const bool is_leaf : {false, true}) {
    const GeometryRaytraceCtx& after = query.run<BvhHits::all>(is_leaf ? root_leaf : tree, nullptr, narrow);
    EXPECT_EQ(after.first_ray, 3u);
    EXPECT_EQ(after.last_ray, 6u);
    for (uint ray = 0; ray < 9; ++ray) EXPECT_EQ(query.get_items(ray).empty(), ray < 3 || ray > 6);
    // A root leaf gets all rays at once.
    for (const LeafVisit& visit : query.visits) EXPECT_EQ(visit.last_ray - visit.first_ray, is_leaf ? 3u : 0u);
  }
  BoxQuery nobody({});
  nobody.run<BvhHits::all>(tree);
  nobody.run<BvhHits::nearest>(root_leaf);
  EXPECT_TRUE(nobody.visits.empty());
  query.run<BvhHits::nearest>(GasBvh<4>());
  EXPECT_TRUE(query.visits.empty());
  query.run<BvhHits::nearest>(root_leaf, nullptr, [](GeometryRaytraceCtx& ctx) {
    ctx.first_ray = 4;  // the range is inclusive
    ctx.last_ray = 3;
  });
  EXPECT_TRUE(query.visits.empty());
}

TEST(BvhKernel, a_stop_flag_ends_its_ray_only) {
  const std::vector<FloatBox> boxes(50, FloatBox({0, 0, 0}, {1, 1, 1}));
  BoxQuery query(std::vector<BoxRay>(3, BoxRay{{0.5, 0.5, 0.5}, {1, 0, 0}}));
  query.on_leaf = [](GeometryRaytraceCtx& ctx, const LeafVisit& visit) {
    if (visit.first_ray > 0) ctx.ray_flags[visit.first_ray] |= visit.first_ray;  // bit 2 means nothing here
  };
  query.run<BvhHits::all>(make_tree(boxes));
  EXPECT_EQ(query.get_items(0).size(), 50u);
  EXPECT_EQ(query.get_items(1).size(), 1u);
  EXPECT_EQ(query.get_items(2).size(), 50u);
}

TEST(BvhKernel, a_deep_tree_fits_its_stack) {
  for (const uint depth : {1u, 2u, 300u}) {
    const GasBvh<4> tree = make_chain(depth);
    BoxQuery query({{{-1, -1, -1}, {1, 1, 1}}});
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
    const std::vector<Items> united = part.unite_root_lanes(tree, nullptr, {});
    for (uint ray = 0; ray < rays.size(); ++ray) EXPECT_EQ(united[ray], whole.get_sorted_items(ray)) << rays[ray];
    for (const u64 stale : {make_cluster(tree.aligned_count, 0), make_cluster(0xFFFFFFFF, 0), make_cluster(0, 4),
                            make_cluster(0, 0xFFFFFF)}) {
      part.run<BvhHits::all>(tree, nullptr, [&](GeometryRaytraceCtx& ctx) { ctx.cluster = stale; });
      EXPECT_TRUE(part.visits.empty()) << std::hex << stale;
    }
    part.run<BvhHits::all>(tree, nullptr, [](GeometryRaytraceCtx& ctx) { ctx.cluster = 0x0100'0003'0000'0001ull; });
    EXPECT_EQ(part.get_items(1), whole.get_items(1));  // no tag: the whole tree
  }
  // A lane that is a leaf is handed out like a root leaf; an unused lane holds nothing.
  const GasBvh<4> tree = make_node_by_hand({{{0, 0, 0}, {1, 1, 1}}, {{2, 0, 0}, {3, 1, 1}}});
  BoxQuery query(std::vector<BoxRay>(4, BoxRay{{50, 50, 50}, {1, 0, 0}}));
  query.run<BvhHits::nearest>(tree, nullptr, [](GeometryRaytraceCtx& ctx) { ctx.cluster = make_cluster(0, 1); });
  ASSERT_EQ(query.visits.size(), 1u);
  EXPECT_EQ(query.visits[0].last_ray, 3u);
  EXPECT_EQ(query.visits[0].items, Items{1});
  query.run<BvhHits::all>(tree, nullptr, [](GeometryRaytraceCtx& ctx) { ctx.cluster = make_cluster(0, 2); });
  EXPECT_TRUE(query.visits.empty());
}
