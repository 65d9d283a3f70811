// The frustum kernel: what it may leave untested, where it ends, where it starts.
#include <gtest/gtest.h>

#include <algorithm>

#include "gas/bvh/bvh_kernel.h"
#include "support/query_world.h"
#include "support/test_tree.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

class FrustumQuery {
 public:
  explicit FrustumQuery(GeometryFrustumMode mode, const std::vector<GeometryPlane>& planes = {}, u64 cluster = 0) {
    query.mode = static_cast<uint>(mode);
    query.cluster = cluster;
    for (const GeometryPlane& plane : planes) query.add_plane(plane);
  }
  std::vector<uint> run(const GasBvh<4>& tree) {
    items.clear();
    const BvhLeafFunctions leaf{nullptr, nullptr, nullptr, record, this};
    bvh_frustum_hit({tree, nullptr, leaf, nullptr}, world.ctx, world.shader, query);
    std::sort(items.begin(), items.end());
    return items;
  }
  QueryWorld world;
  GeometryFrustumCtx query;
  std::vector<uint> items;
  uint calls = 0;
  bool finishes = false;

 private:
  static void record(const CtxEval&, CtxShader&, GeometryFrustumCtx& query, const CoreBasicArray<uint>& leaf,
                     void* user) {
    auto& self = *static_cast<FrustumQuery*>(user);
    self.items.insert(self.items.end(), leaf.begin(), leaf.end());
    ++self.calls;
    if (self.finishes) query.result.finished = 1;
  }
};

}  // namespace

// The lanes below are made to lie: had they been tested again, their items would have been left out.
TEST(BvhFrustum, takes_what_is_wholly_inside_without_further_tests) {
  const std::vector<GeometryPlane> planes = {{{0, 0, 0}, {1, 0, 0}}};
  GasBvh<4> tree = make_node_by_hand({{{-9, 0, 0}, {-8, 1, 1}}, {{-7, 0, 0}, {-6, 1, 1}}});
  EXPECT_TRUE(FrustumQuery(GeometryFrustumMode::any, planes).run(tree).empty());
  tree.box = {{-9, 0, 0}, {2, 1, 1}};
  EXPECT_TRUE(FrustumQuery(GeometryFrustumMode::any, planes).run(tree).empty());
  tree.box = {{1, 0, 0}, {2, 1, 1}};
  EXPECT_EQ(FrustumQuery(GeometryFrustumMode::any, planes).run(tree).size(), 2u);
}

TEST(BvhFrustum, any_ends_early_and_all_does_not) {
  const GasBvh<4> tree = make_tree(make_box_scene(BoxKind::uniform, 300, 3).boxes);
  FrustumQuery any(GeometryFrustumMode::any), all(GeometryFrustumMode::all), points(GeometryFrustumMode::points);
  any.finishes = all.finishes = points.finishes = true;
  EXPECT_EQ(any.run(tree).size(), 1u);
  EXPECT_EQ(all.run(tree).size(), 300u);
  EXPECT_EQ(points.run(tree).size(), 300u);
}

TEST(BvhFrustum, only_mode_all_ignores_the_cluster) {
  const GasBvh<4> tree = make_tree(make_box_scene(BoxKind::uniform, 300, 3).boxes, make_params(1, 2));
  uint sum = 0;
  for (uint lane = 0; lane < tree.root.get_count(); ++lane) {
    const auto count = [&](GeometryFrustumMode mode) {
      return static_cast<uint>(FrustumQuery(mode, {}, make_cluster(0, lane)).run(tree).size());
    };
    sum += count(GeometryFrustumMode::any);
    EXPECT_EQ(count(GeometryFrustumMode::vertices), count(GeometryFrustumMode::any));
    EXPECT_EQ(count(GeometryFrustumMode::all), 300u);
  }
  EXPECT_EQ(sum, 300u);
  EXPECT_TRUE(FrustumQuery(GeometryFrustumMode::any, {}, make_cluster(tree.aligned_count, 0)).run(tree).empty());
  EXPECT_TRUE(FrustumQuery(GeometryFrustumMode::any, {}, make_cluster(0, 4)).run(tree).empty());
}

TEST(BvhFrustum, answers_for_empty_trees_root_leaves_and_broken_planes) {
  FrustumQuery query(GeometryFrustumMode::all);
  EXPECT_TRUE(query.run(make_tree({})).empty());
  EXPECT_EQ(query.query.result.outside, 0);
  const std::vector<FloatBox> boxes = make_box_scene(BoxKind::uniform, 3, 3).boxes;
  EXPECT_EQ(query.run(make_tree(boxes, make_params(4, 10, 4))).size(), 3u);
  EXPECT_EQ(query.calls, 1u);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  FrustumQuery broken(GeometryFrustumMode::any, {{{nan, 0, 0}, {1, 0, 0}}, {{0, 0, 0}, {nan, nan, nan}}});
  broken.run(make_tree(make_box_scene(BoxKind::infinite, 300, 3).boxes));  // any answer, but an end
}
