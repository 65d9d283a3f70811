// The frustum kernel: what it may leave untested, where it ends, where it starts.
#include <gtest/gtest.h>

#include <algorithm>

#include "gas/bvh/bvh_kernel.h"
#include "support/query_world.h"
#include "support/test_tree.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

/// The items that a query is shown, each once; with `finishes` the first says that it is enough.
std::vector<uint> ask(const GasBvh<4>& tree, GeometryFrustumMode mode, const std::vector<GeometryPlane>& planes = {},
                      u64 cluster = 0, bool finishes = false) {
  QueryWorld world;
  GeometryFrustumCtx query;
  query.mode = static_cast<uint>(mode);
  query.cluster = cluster;
  for (const GeometryPlane& plane : planes) query.add_plane(plane);
  std::pair<std::vector<uint>, bool> seen{{}, finishes};
  const auto record = [](const CtxEval&, CtxShader&, GeometryFrustumCtx& asked, const CoreBasicArray<uint>& leaf,
                         void* user) {
    auto& [items, ends] = *static_cast<decltype(seen)*>(user);
    items.insert(items.end(), leaf.begin(), leaf.end());
    if (ends) asked.result.finished = 1;
  };
  bvh_frustum_hit({tree, nullptr, {nullptr, nullptr, nullptr, record, &seen}}, world.ctx, world.shader, query);
  std::sort(seen.first.begin(), seen.first.end());
  return seen.first;
}

constexpr GeometryFrustumMode any = GeometryFrustumMode::any, all = GeometryFrustumMode::all,
                              points = GeometryFrustumMode::points, vertices = GeometryFrustumMode::vertices;

}  // namespace

// The lanes below are made to lie: had they been tested again, their items would have been left out.
TEST(BvhFrustum, takes_what_is_wholly_inside_without_further_tests) {
  const std::vector<GeometryPlane> planes = {{{0, 0, 0}, {1, 0, 0}}};
  GasBvh<4> tree = make_node_by_hand({{{-9, 0, 0}, {-8, 1, 1}}, {{-7, 0, 0}, {-6, 1, 1}}});
  EXPECT_TRUE(ask(tree, any, planes).empty());
  tree.box = {{-9, 0, 0}, {2, 1, 1}};
  EXPECT_TRUE(ask(tree, any, planes).empty());
  tree.box = {{1, 0, 0}, {2, 1, 1}};
  EXPECT_EQ(ask(tree, any, planes).size(), 2u);
}

TEST(BvhFrustum, any_ends_early_and_only_mode_all_ignores_the_cluster) {
  const GasBvh<4> tree = make_tree(make_box_scene(BoxKind::uniform, 300, 3).boxes, make_params(1, 2));
  EXPECT_EQ(ask(tree, any, {}, 0, true).size(), 1u);
  EXPECT_EQ(ask(tree, all, {}, 0, true).size(), 300u);
  EXPECT_EQ(ask(tree, points, {}, 0, true).size(), 300u);
  std::size_t sum = 0;
  for (uint lane = 0; lane < tree.root.get_count(); ++lane) {
    const u64 cluster = make_cluster(0, lane);
    sum += ask(tree, any, {}, cluster).size();
    EXPECT_EQ(ask(tree, vertices, {}, cluster), ask(tree, any, {}, cluster));
    EXPECT_EQ(ask(tree, all, {}, cluster).size(), 300u);
  }
  EXPECT_EQ(sum, 300u);
  EXPECT_TRUE(ask(tree, any, {}, make_cluster(tree.aligned_count, 0)).empty());
  EXPECT_TRUE(ask(tree, any, {}, make_cluster(0, 4)).empty());
}

// Four inner nodes in every node: three wait at each level.
TEST(BvhFrustum, a_full_tree_fits_its_stack) {
  std::vector<FloatBox> boxes;
  for (uint k = 0; k < 128 * 128; ++k) {
    const float x = static_cast<float>(k % 128), y = static_cast<float>(k / 128);
    boxes.push_back({{x, y, 0}, {x + 1, y + 1, 1}});
  }
  const GasBvh<4> tree = make_tree(boxes);
  ASSERT_EQ(tree.max_depth, 7u);
  EXPECT_EQ(ask(tree, points).size(), boxes.size());
}

TEST(BvhFrustum, answers_for_empty_trees_root_leaves_and_broken_planes) {
  EXPECT_TRUE(ask(make_tree({}), all).empty());
  EXPECT_EQ(ask(make_tree(make_box_scene(BoxKind::uniform, 3, 3).boxes, make_params(4, 10, 4)), all).size(), 3u);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // Any answer, but an end.
  ask(make_tree(make_box_scene(BoxKind::infinite, 300, 3).boxes), any,
      {{{nan, 0, 0}, {1, 0, 0}}, {{0, 0, 0}, {nan, nan, nan}}});
}
