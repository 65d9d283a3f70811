// The refit against boxes computed anew, and the kernels over its samples.
#include <gtest/gtest.h>

#include <cstring>

#include "gas/bvh/gas_bvh_motion.h"
#include "support/box_query.h"
#include "support/log_capture.h"
#include "support/test_scale.h"
#include "support/test_tree.h"
#include "support/tree_oracle.h"

namespace {

/// A tree over the boxes of sample 0, refitted to each of the samples.
struct MovingTree {
  MovingTree(const BoxScene& scene, uint sample_count, const BvhBuildParams& params)
      : tree(make_tree(scene.boxes, params)) {
    RandomValues random(scene.seed + 17);
    EXPECT_TRUE(motion.set_samples(tree, sample_count));
    for (uint sample = 0; sample < sample_count; ++sample) {
      boxes.push_back(scene.boxes);
      for (std::size_t item = 0; item < scene.boxes.size() && sample > 0; item += 2) {  // every other item stays
        const auto by = random.get_vec<float>(0.5);
        FloatBox& box = boxes.back()[item];
        box = make_box(box.min + by, box.max + by + random.get_vec<float>(0.05));
      }
    }
    // The order of the updates does not matter: samples are independent.
    for (uint sample = sample_count; sample-- > 0;) EXPECT_TRUE(motion.update_sample(sample, boxes[sample], nullptr));
  }

  /// The tree as a still one at `sample`.
  GasBvh<4> freeze(uint sample) const {
    GasBvh<4> still = tree;
    still.box = motion.get_bbox(sample);
    for (u32 node = 0; node < tree.aligned_count; ++node) still.aligned[node].lanes = motion.get_aligned(node, sample);
    for (u32 node = 0; node < tree.quantized_count; ++node)
      still.quantized[node].lanes = motion.get_quantized(node, sample);
    return still;
  }

  GasBvh<4> tree;
  GasBvhMotion<4> motion;
  std::vector<std::vector<FloatBox>> boxes;  ///< [sample][item]
};

BoxQuery::Adjust set_span(uint first, uint second, double fraction) {
  return [=](GeometryRaytraceCtx& query) {
    for (uint ray = 0; ray < query.ray_count; ++ray) query.spans[ray] = {first, second, fraction, 0.0};
  };
}

constexpr BvhBuildParams most_settings[] = {{1.0f, 1, 1, 10}, {1.0f, 1, 4, 1}, {1.0f, 2, 3, 3}};

}  // namespace

// The lanes of a refitted tree obey every rule of a built one but the order of the areas; and what did not move keeps
// its bits.
TEST(BvhMotion, refitted_lanes_are_the_boxes_of_their_items) {
  for (const BoxKind kind : {BoxKind::uniform, BoxKind::integer_grid, BoxKind::flat, BoxKind::points}) {
    for (const BvhBuildParams& params : most_settings) {
      const BoxScene scene = make_box_scene(kind, 800, 4);
      const MovingTree moving(scene, 3, params);
      for (uint sample = 0; sample < 3; ++sample) {
        const GasBvh<4> frozen = moving.freeze(sample);
        std::string fault = find_tree_fault(frozen, moving.boxes[sample], make_indices(800), params);
        if (fault.starts_with("areas increase")) fault.clear();
        ASSERT_EQ(fault, "") << scene << ", sample " << sample << ", quantized from " << params.quantization_depth;
        EXPECT_EQ(find_tree_difference(frozen, moving.tree).empty(), sample == 0) << scene;
      }
    }
  }
  const BvhBuildParams root_leaf = make_params(4, 10, 4);  // has root boxes only
  const MovingTree moving(make_box_scene(BoxKind::uniform, 3, 2), 2, root_leaf);
  EXPECT_EQ(find_tree_fault(moving.freeze(1), moving.boxes[1], make_indices(3), root_leaf), "");
  BoxQuery query({{{50, 50, 50}, {1, 0, 0}}});
  query.run<BvhHits::nearest>(moving.tree, &moving.motion, set_span(0, 1, 0.5));
  EXPECT_EQ(query.get_items(0).size(), 3u);
}

TEST(BvhMotion, refuses_what_it_cannot_refit_and_says_so) {
  const std::vector<FloatBox> boxes = make_box_scene(BoxKind::uniform, 20, 1).boxes;
  const GasBvh<4> empty = make_tree({});
  GasBvh<4> tree = make_tree(boxes);
  const BvhSampleMeasure unasked{};
  for (const uint level : {0u, 1u}) {
    LogCapture log(level);
    GasBvhMotion<4> motion;
    EXPECT_FALSE(motion.update_sample(0, boxes, nullptr));  // follows no tree
    EXPECT_TRUE(motion.set_samples(empty, 2));
    EXPECT_FALSE(motion.update_sample(0, {}, nullptr));
    EXPECT_FALSE(motion.update_sample_unaligned(5, {}, unasked, nullptr));
    EXPECT_TRUE(motion.set_samples(tree, 2));
    EXPECT_TRUE(motion.update_sample(1, boxes, nullptr));
    const BvhLanePlanes before = motion.get_aligned(0, 1);
    EXPECT_FALSE(motion.update_sample(2, boxes, nullptr));
    EXPECT_FALSE(motion.update_sample_unaligned(12, boxes, unasked, nullptr));
    tree.oriented_count = 1;
    EXPECT_FALSE(motion.update_sample(1, std::vector<FloatBox>(20), nullptr));
    tree.oriented_count = 0;
    EXPECT_EQ(std::memcmp(&before, &motion.get_aligned(0, 1), sizeof(before)), 0);
    const std::vector<std::string> expected = {
        "1: [GasBvhMotion] error while updating motion blur sample 2: inappropriate input\n",
        "1: [GasBvhMotion] error while updating motion blur sample 12: index out of range\n",
        "1: [GasBvhMotion] error while updating motion blur sample 1: inappropriate input\n"};
    EXPECT_EQ(log.messages, level == 0 ? std::vector<std::string>() : expected);
  }
}

// At a sample the blend is that sample: same visits, in the same order, as in a still tree.
TEST(BvhMotionKernel, at_a_sample_walks_as_in_a_still_tree) {
  for (const BvhBuildParams& params : most_settings) {
    for (uint seed = 0; seed < scaled(6, 2); ++seed) {
      const BoxScene scene = make_box_scene(BoxKind::uniform, 400, seed);
      const MovingTree moving(scene, 4, params);
      const std::vector<BoxRay> rays = make_box_rays(scene, 40, seed);
      BoxQuery still(rays), timed(rays);
      for (uint sample = 0; sample < 4; ++sample) {
        const auto span = sample < 3 ? set_span(sample, sample + 1, 0.0) : set_span(2, 3, 1.0);
        still.run<BvhHits::all>(moving.freeze(sample));
        timed.run<BvhHits::all>(moving.tree, &moving.motion, span);
        for (uint ray = 0; ray < rays.size(); ++ray)
          ASSERT_EQ(timed.get_items(ray), still.get_items(ray)) << scene << ", sample " << sample << ", " << rays[ray];
      }
    }
  }
}

TEST(BvhMotionKernel, starts_at_a_quantized_cluster_with_both_frames) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 2000, 1);
  const MovingTree moving(scene, 2, make_params(1, 2));
  const std::vector<BoxRay> rays = make_box_rays(scene, 60, 2);
  BoxQuery whole(rays), part(rays);
  for (const double fraction : {0.0, 0.3, 1.0}) {
    whole.run<BvhHits::all>(moving.tree, &moving.motion, set_span(0, 1, fraction));
    const auto united = part.unite_root_lanes(moving.tree, &moving.motion, set_span(0, 1, fraction));
    for (uint ray = 0; ray < rays.size(); ++ray) {
      const std::vector<uint> reached = whole.get_sorted_items(ray);
      // A start box is not tested, so a cluster may reach what the whole tree's root lane would have ruled out.
      EXPECT_TRUE(std::includes(united[ray].begin(), united[ray].end(), reached.begin(), reached.end())) << rays[ray];
    }
  }
}

TEST(BvhMotionKernel, one_infinite_box_at_one_sample_hides_no_neighbour) {
  std::vector<FloatBox> boxes;
  std::vector<BoxRay> rays;
  for (uint k = 0; k < 675; ++k) {
    const GMathVec3<float> at{static_cast<float>(k % 27), static_cast<float>(k / 27), 0.0f};
    boxes.push_back({at, at + GMathVec3<float>{0.5f, 0.5f, 0.5f}});
    rays.push_back({GMathVec3<double>(at) + GMathVec3<double>(0.25, 0.25, 3), {0, 0, -1}});
  }
  for (const uint quantization_depth : {10u, 2u}) {
    const GasBvh<4> tree = make_tree(boxes, {1.0f, 1, 1, quantization_depth});
    for (const uint bounds : {1u, 8u, 9u, 18u, 63u}) {  // which of the six are infinite
      std::vector<FloatBox> broken = boxes;
      for (uint k = 0; k < 6; ++k)
        if ((bounds >> k & 1) != 0) (k < 3 ? broken[300].min : broken[300].max)[k % 3] = k < 3 ? -HUGE_VALF : HUGE_VALF;
      GasBvhMotion<4> motion;
      ASSERT_TRUE(motion.set_samples(tree, 2));
      ASSERT_TRUE(motion.update_sample(0, boxes, nullptr) && motion.update_sample(1, broken, nullptr));
      BoxQuery query(rays);
      for (const double fraction : {0.0, 0.4, 1.0}) {
        query.run<BvhHits::all>(tree, &motion, [&](GeometryRaytraceCtx& asked) {
          for (uint ray = 0; ray < asked.ray_count; ++ray) asked.spans[ray] = {0, 1, fraction, 0.0};
        });
        uint found = 0;
        for (const LeafVisit& visit : query.visits) found += visit.items[0] == visit.first_ray ? 1 : 0;
        EXPECT_EQ(found, 675u) << "bounds " << bounds << " at " << fraction << ", from " << quantization_depth;
      }
    }
  }
}
