// Oriented nodes: what the builder makes, the ray test of their lanes, and what queries for all hits, which have none,
// make of trees that hold them.
#include <gtest/gtest.h>

#include "gas/bvh/bvh_oriented.h"
#include "support/box_query.h"
#include "support/curve_check.h"
#include "support/oriented_check.h"
#include "support/test_scale.h"
#include "support/test_tree.h"

namespace {

using Vec = GMathVec3<double>;

TEST(BvhOriented, lanes_of_built_trees_hold_the_fibres_below_them) {
  QueryWorld world;
  uint lanes[4] = {0, 0, 0, 0};
  for (const uint fibres : {2u, 40u, 1000u}) {
    std::vector<CurveScene> scenes = make_curve_scenes(fibres, 5);
    scenes.push_back({"tufts", make_tufts(fibres, 6)});
    for (const CurveScene& scene : scenes) {
      const BuiltFur built(world.ctx, scene.data);
      OrientedCheck check(built.structure.get_tree(), CurveOracle(scene.data));
      EXPECT_EQ(check.find_fault(scene.name.starts_with("curly")), "") << scene.name << ", " << fibres << " fibres";
      for (uint kind = 0; kind < 4; ++kind) lanes[kind] += check.lanes_of_kind[kind];
    }
  }
  for (const BvhKind kind : {BvhKind::aligned, BvhKind::quantized, BvhKind::oriented})
    EXPECT_GT(lanes[static_cast<uint>(kind)], 100u);
}

/// One oriented node over three boxes, thick and thin, near the origin and away from it.
struct SlantedNode {
  SlantedNode(double away, uint seed) {
    RandomValues random(seed);
    tree.allocate_items(3, false);
    tree.allocate_nodes(0, 0, 1);
    for (uint lane = 0; lane < 3; ++lane) {
      const Vec x = random.get_vec().get_normalized(), y = x.cross(random.get_vec()).get_normalized();
      const GMathLinearSpace3<float> rounded(GMathLinearSpace3<double>(x, y, x.cross(y)));
      space[lane] = GMathLinearSpace3<double>(rounded);
      const Vec low = random.get_vec(1.0 + away);
      Vec high = low;
      for (uint axis = 0; axis < 3; ++axis) high[axis] += std::pow(10.0, random.get(-4.0, 0.5));
      const FloatBox at(GMathBbox3<double>(low, high));
      box[lane] = GMathBbox3<double>(at);
      for (uint corner = 0; corner < 8; ++corner)
        tree.box.add(GMathVec3<float>(get_point(lane, box[lane].get_corner(corner))));
      bvh_set_oriented_lane(tree.oriented[0], lane, rounded, at);
      tree.oriented[0].child[lane] = {lane, 1 | BvhChildRef::leaf_bit};
      tree.order[lane] = lane;
    }
    bvh_clear_oriented_lane(tree.oriented[0], 3);
    tree.oriented[0].child[3] = {};
    tree.root = {0, 3 | BvhChildRef::oriented_bit};
    tree.max_depth = 1;
  }
  Vec get_point(uint lane, const Vec& u) const {
    return space[lane].axis[0] * u.x + space[lane].axis[1] * u.y + space[lane].axis[2] * u.z;
  }

  GasBvh<4> tree;
  GMathLinearSpace3<double> space[3];
  GMathBbox3<double> box[3];  ///< along the axes of the space
};

/// At points within the boxes, on faces, edges and corners, and beside them; along faces too, and from far away.
std::vector<BoxRay> make_slanted_rays(const SlantedNode& node, uint count, RandomValues& random) {
  std::vector<BoxRay> rays;
  for (uint k = 0; k < count; ++k) {
    const uint lane = k % 3;
    const GMathLinearSpace3<double>& space = node.space[lane];
    Vec u;
    for (uint axis = 0; axis < 3; ++axis) {
      const double places[] = {0.0, 1.0, random.get(0.0, 1.0), random.get(-0.5, 1.5)};
      u[axis] =
          node.box[lane].min[axis] + places[random.get_index(k % 7 < 5 ? 3 : 4)] * node.box[lane].get_extent()[axis];
    }
    BoxRay ray{node.get_point(lane, u), random.get_vec().get_normalized()};
    if (k % 5 == 1) ray.direction = space.axis[k / 5 % 3];
    if (k % 5 == 2) ray.direction = (space.axis[0] + space.axis[1 + k / 5 % 2] * random.get()).get_normalized();
    if (k % 5 == 3) ray.direction = {k % 2 ? 1.0 : -1.0, 0.0, -0.0};
    const double distance = std::pow(10.0, random.get(-2.0, 5.0));
    ray.origin = ray.origin - ray.direction * distance;
    if (k % 4 == 0) ray.tfar = distance * 1.0001;
    if (k % 4 == 1) ray.tnear = distance * 0.9999;
    rays.push_back(ray);
  }
  return rays;
}

// Against slabs in double precision, in coordinates measured along the box's axes: what is hit must be reached, and
// what is missed by more than eight times the margin for rounding must not.
TEST(BvhOriented, lanes_are_reached_by_every_ray_that_hits_them) {
  uint sure_hits = 0, sure_misses = 0;
  for (uint seed = 0; seed < scaled(1000, 150); ++seed) {
    const SlantedNode node(seed % 3 == 0 ? 1000.0 : 0.0, seed);
    RandomValues random(seed);
    const std::vector<BoxRay> rays = make_slanted_rays(node, 200, random);
    BoxQuery query(rays);
    query.run<BvhHits::nearest>(node.tree);
    for (uint k = 0; k < rays.size(); ++k) {
      const std::vector<uint> reached = query.get_items(k);
      double size = 4.0;
      for (uint axis = 0; axis < 3; ++axis)
        size +=
            std::fabs(rays[k].origin[axis]) + std::fabs(node.tree.box.min[axis]) + std::fabs(node.tree.box.max[axis]);
      const Vec margin = Vec(1, 1, 1) * (size * 0x1p-17);
      for (uint lane = 0; lane < 3; ++lane) {
        const GMathBbox3<double>& box = node.box[lane];
        const BoxRay local{node.space[lane].measure(rays[k].origin), node.space[lane].measure(rays[k].direction),
                           rays[k].tnear, rays[k].tfar};
        const bool is_hit = find_entry(box, local).has_value();
        if (!is_hit && find_entry({box.min - margin, box.max + margin}, local)) continue;
        EXPECT_EQ(std::ranges::count(reached, lane), is_hit) << "seed " << seed << ", lane " << lane << ", " << rays[k];
        ++(is_hit ? sure_hits : sure_misses);
      }
    }
  }
  EXPECT_GT(sure_hits, 10000u);
  EXPECT_GT(sure_misses, 10000u);
}

// Queries for all hits take an oriented reference for an aligned one. Here a third of the leaves of a sound tree become
// oriented references to anywhere: to nodes above them, to themselves, beyond the end. Some are under quantized nodes.
TEST(BvhOriented, queries_for_all_hits_end_wherever_oriented_references_lead) {
  for (uint seed = 0; seed < 10; ++seed) {
    RandomValues random(seed);
    const BoxScene scene = make_box_scene(seed % 2 ? BoxKind::uniform : BoxKind::coincident, seed < 2 ? 5 : 60, seed);
    GasBvh<4> tree = make_tree(scene.boxes, make_params(1, seed % 3 == 0 ? 10 : 2));
    GasBvhMotion<4> motion;
    ASSERT_TRUE(motion.set_samples(tree, 2));
    for (uint sample = 0; sample < 2; ++sample) ASSERT_TRUE(motion.update_sample(sample, scene.boxes, nullptr));
    const auto corrupt = [&](BvhChildRef child) {
      if (!child.is_leaf() || random.get_index(3) != 0) return child;
      const u32 index =
          random.get_index(8) == 0 ? 0xFFFFFFFFu - random.get_index(2) : random.get_index(tree.aligned_count + 3);
      return BvhChildRef{index, (1 + random.get_index(4)) | BvhChildRef::oriented_bit};
    };
    for (u32 node = 0; node < tree.aligned_count; ++node)
      for (BvhChildRef& child : tree.aligned[node].child) child = corrupt(child);
    for (u32 node = 0; node < tree.quantized_count; ++node)
      for (uint lane = 0; lane < 4; ++lane)
        tree.quantized[node].set_child(lane, corrupt(tree.quantized[node].get_child(lane)));
    tree.oriented_count = 1;  // there are none to be read
    const BvhChildRef roots[] = {tree.root, {tree.root.index, tree.root.word | BvhChildRef::oriented_bit}, {7, 0x402}};
    const uint batches = scaled(17, 1);
    for (uint batch = 0; batch < 6 * batches; ++batch) {
      std::vector<BoxRay> rays = make_box_rays(scene, 1000, batch);
      if (batch == 0) rays[0].direction = {NAN, NAN, NAN}, rays[1].origin = {HUGE_VAL, 0, 0}, rays[2].direction = {};
      tree.root = roots[batch % 3];
      BoxQuery query(rays);
      query.run<BvhHits::all>(tree, batch % 2 ? &motion : nullptr, [](GeometryRaytraceCtx& ctx) {
        for (uint ray = 0; ray < ctx.ray_count; ++ray) ctx.spans[ray] = {0, 1, 0.5, 0.0};
      });
      for (const LeafVisit& visit : query.visits)
        for (const uint item : visit.items) ASSERT_LT(item, scene.boxes.size());
    }
    tree.oriented_count = 0;
  }
}

// Along such references a path may be longer than any that leads down, and leave more waiting than there is room for.
TEST(BvhOriented, queries_for_all_hits_keep_to_their_stack) {
  GasBvh<4> chain = make_chain(300);
  for (u32 node = 0; node + 1 < 300; ++node) chain.aligned[node].child[3].word |= BvhChildRef::oriented_bit;
  chain.max_depth = chain.oriented_count = 1;
  BoxQuery query({{{-1, -1, -1}, {1, 1, 1}}});
  query.run<BvhHits::all>(chain);
  EXPECT_GE(query.visits.size(), 4u);
  chain.oriented_count = 0;
}

// The first node that a query for all hits sees under an oriented root is the aligned one of the same number.
TEST(BvhOriented, queries_for_all_hits_walk_the_aligned_nodes_that_oriented_references_name) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 200, 3);
  const std::vector<BoxRay> rays = make_box_rays(scene, 100, 4);
  BoxQuery expected(rays), query(rays);
  GasBvh<4> tree = make_tree(scene.boxes);
  expected.run<BvhHits::all>(tree);
  tree.root.word |= BvhChildRef::oriented_bit;
  tree.oriented_count = 1;
  query.run<BvhHits::all>(tree);
  uint reached = 0;
  for (uint ray = 0; ray < rays.size(); ++ray) {
    EXPECT_EQ(query.get_items(ray), expected.get_items(ray));
    reached += !query.get_items(ray).empty();
  }
  EXPECT_GT(reached, 20u);
  tree.oriented_count = 0;
  const SlantedNode node(0.0, 1);  // no aligned node at all
  query.run<BvhHits::all>(node.tree);
  EXPECT_TRUE(query.visits.empty());
}

}  // namespace
