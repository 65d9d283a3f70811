// The refit against boxes computed anew, and the kernels over its samples.
#include <gtest/gtest.h>

#include <cstring>

#include "gas/bvh/gas_bvh_motion.h"
#include "support/box_query.h"
#include "support/test_scale.h"
#include "support/test_tree.h"
#include "support/tree_oracle.h"
#include "vq_core/core_log.h"
#include "vq_of/of_app.h"

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
    for (uint sample = sample_count; sample-- > 0;)
      EXPECT_EQ(motion.update_sample(sample, boxes[sample], nullptr), !scene.boxes.empty());
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

GMathBbox3<double> blend(const FloatBox& a, const FloatBox& b, double fraction) {
  const GMathBbox3<double> from(a), to(b);
  return {from.min * (1.0 - fraction) + to.min * fraction, from.max * (1.0 - fraction) + to.max * fraction};
}

struct MessageLog {
  MessageLog() {
    former_sink = CoreLogHandler::get_main().set_sink([this](const CoreString& message, const uint& level) {
      messages.emplace_back(message.get_data());
      levels.push_back(level);
    });
  }
  ~MessageLog() {
    CoreLogHandler::get_main().set_sink(former_sink);
    CoreLogHandler::get_main().set_level(2);
  }
  CoreLogHandler::Sink former_sink;
  std::vector<std::string> messages;
  std::vector<uint> levels;
};

constexpr BvhBuildParams most_settings[] = {{1.0f, 1, 1, 10}, {1.0f, 1, 4, 1}, {1.0f, 2, 3, 3}};

}  // namespace

// The lanes of a refitted tree obey every rule of a built one but the order of the areas.
TEST(BvhMotion, refitted_lanes_are_the_boxes_of_their_items) {
  for (const BoxKind kind : {BoxKind::uniform, BoxKind::integer_grid, BoxKind::flat, BoxKind::points}) {
    for (const BvhBuildParams& params : most_settings) {
      const BoxScene scene = make_box_scene(kind, 800, 4);
      const MovingTree moving(scene, 3, params);
      for (uint sample = 0; sample < 3; ++sample) {
        std::string fault = find_tree_fault(moving.freeze(sample), moving.boxes[sample], make_indices(800), params);
        if (fault.starts_with("areas increase")) fault.clear();
        ASSERT_EQ(fault, "") << scene << ", sample " << sample << ", quantized from " << params.quantization_depth;
      }
    }
  }
}

TEST(BvhMotion, what_does_not_move_keeps_its_bits) {
  for (const BvhBuildParams& params : most_settings) {
    const BoxScene scene = make_box_scene(BoxKind::uniform, 3000, 6);
    const GasBvh<4> tree = make_tree(scene.boxes, params);
    GasBvhMotion<4> motion;
    ASSERT_TRUE(motion.set_samples(tree, 2));
    for (uint sample = 0; sample < 2; ++sample) {
      ASSERT_TRUE(motion.update_sample(sample, scene.boxes, nullptr));
      EXPECT_EQ(motion.get_bbox(sample), tree.box);
      for (u32 node = 0; node < tree.aligned_count; ++node)
        ASSERT_EQ(std::memcmp(&motion.get_aligned(node, sample), &tree.aligned[node].lanes, 96), 0) << node;
      for (u32 node = 0; node < tree.quantized_count; ++node)
        ASSERT_EQ(std::memcmp(&motion.get_quantized(node, sample), &tree.quantized[node].lanes, 24), 0) << node;
    }
  }
}

TEST(BvhMotion, samples_of_a_node_lie_side_by_side) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 500, 1);
  const MovingTree moving(scene, 5, make_params(1, 3));
  const auto distance = [](const void* from, const void* to) {
    return static_cast<const u8*>(to) - static_cast<const u8*>(from);
  };
  EXPECT_EQ(distance(&moving.motion.get_aligned(0, 0), &moving.motion.get_aligned(0, 1)), 96);
  EXPECT_EQ(distance(&moving.motion.get_aligned(0, 0), &moving.motion.get_aligned(1, 0)), 5 * 96);
  EXPECT_EQ(distance(&moving.motion.get_quantized(0, 0), &moving.motion.get_quantized(3, 2)), (3 * 5 + 2) * 24);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&moving.motion.get_aligned(0, 0)) % 16, 0u);
  EXPECT_EQ(moving.motion.get_array_bytes(),
            5u * (moving.tree.aligned_count * 96u + moving.tree.quantized_count * 24u + 24u));
}

TEST(BvhMotion, refuses_what_it_cannot_refit) {
  MessageLog log;
  GasBvhMotion<4> motion;
  const std::vector<FloatBox> boxes = make_box_scene(BoxKind::uniform, 20, 1).boxes;
  EXPECT_FALSE(motion.update_sample(0, boxes, nullptr));  // follows no tree
  const GasBvh<4> empty = make_tree({});
  EXPECT_TRUE(motion.set_samples(empty, 2));
  EXPECT_FALSE(motion.update_sample(0, {}, nullptr));
  EXPECT_EQ(motion.get_array_bytes(), 0u);
  EXPECT_TRUE(log.messages.empty());

  GasBvh<4> tree = make_tree(boxes);
  EXPECT_TRUE(motion.set_samples(tree, 2));
  EXPECT_TRUE(motion.update_sample(1, boxes, nullptr));
  const BvhLanePlanes before = motion.get_aligned(0, 1);
  EXPECT_FALSE(motion.update_sample(2, boxes, nullptr));
  tree.oriented_count = 1;
  EXPECT_FALSE(motion.update_sample(1, std::vector<FloatBox>(20), nullptr));
  EXPECT_EQ(std::memcmp(&before, &motion.get_aligned(0, 1), sizeof(before)), 0);
  const std::string head = "[GasBvhMotion] error while updating motion blur sample ";
  EXPECT_EQ(log.messages,
            (std::vector<std::string>{head + "2: inappropriate input\n", head + "1: inappropriate input\n"}));
  EXPECT_EQ(log.levels, (std::vector<uint>{1, 1}));
  CoreLogHandler::get_main().set_level(0);
  EXPECT_FALSE(motion.update_sample(7, boxes, nullptr));
  EXPECT_EQ(log.messages.size(), 2u);
  tree.oriented_count = 0;
}

TEST(BvhMotion, a_root_leaf_has_root_boxes_only) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 3, 2);
  const MovingTree moving(scene, 2, make_params(4, 10, 4));
  for (uint sample = 0; sample < 2; ++sample) {
    FloatBox united;
    for (const FloatBox& box : moving.boxes[sample]) united.add(box);
    EXPECT_EQ(moving.motion.get_bbox(sample), united);
  }
  EXPECT_EQ(moving.motion.get_array_bytes(), 2u * 24u);
  BoxQuery query({{{50, 50, 50}, {1, 0, 0}}});
  query.run<BvhHits::nearest>(moving.tree, &moving.motion, set_span(0, 1, 0.5));
  EXPECT_EQ(query.get_items(0).size(), 3u);
}

TEST(BvhMotion, steps_its_progress_once_a_node_visit) {
  OfApp app(1);
  const BoxScene scene = make_box_scene(BoxKind::uniform, 500, 1);
  const MovingTree moving(scene, 1, make_params(1, 3));
  GasBvhMotion<4> motion;
  motion.set_samples(moving.tree, 1);
  AppProgressBar* progress = app.create_progress_bar("refit");
  progress->begin_task("one", 1.0);
  EXPECT_TRUE(motion.update_sample(0, scene.boxes, progress));
  EXPECT_NEAR(progress->get_progress(), 1.0, 1e-6);  // full before the task is closed
  progress->end_task();
  EXPECT_EQ(progress->get_task_log().at(0).step_count, moving.tree.aligned_count + 2 * moving.tree.quantized_count);
  progress->finish();
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
        const GasBvh<4> frozen = moving.freeze(sample);
        const auto span = sample < 3 ? set_span(sample, sample + 1, 0.0) : set_span(2, 3, 1.0);
        still.run<BvhHits::all>(frozen);
        timed.run<BvhHits::all>(moving.tree, &moving.motion, span);
        for (uint ray = 0; ray < rays.size(); ++ray)
          ASSERT_EQ(timed.get_items(ray), still.get_items(ray)) << scene << ", sample " << sample << ", " << rays[ray];
        still.run<BvhHits::nearest>(frozen);
        timed.run<BvhHits::nearest>(moving.tree, &moving.motion, span);
        for (uint ray = 0; ray < rays.size(); ++ray) ASSERT_EQ(timed.get_items(ray), still.get_items(ray));
      }
    }
  }
}

TEST(BvhMotionKernel, between_samples_agrees_with_blended_boxes) {
  RandomValues random(5);
  for (const BoxKind kind : {BoxKind::uniform, BoxKind::integer_grid}) {
    for (const BvhBuildParams& params : most_settings) {
      const BoxScene scene = make_box_scene(kind, 300, 3);
      const MovingTree moving(scene, 3, params);
      const std::vector<FloatBox> leaves[] = {get_leaf_boxes(moving.freeze(0)), get_leaf_boxes(moving.freeze(1)),
                                              get_leaf_boxes(moving.freeze(2))};
      const std::vector<BoxRay> rays = make_box_rays(scene, scaled(100, 30), 8);
      BoxQuery query(rays);
      for (uint first = 0; first < 2; ++first) {
        const double fraction = random.get(0.05, 0.95);
        query.run<BvhHits::all>(moving.tree, &moving.motion, set_span(first, first + 1, fraction));
        for (uint ray = 0; ray < rays.size(); ++ray) {
          const std::vector<uint> reached = query.get_sorted_items(ray);
          for (uint position = 0; position < moving.tree.item_count; ++position) {
            const uint item = moving.tree.order[position];
            const bool is_reached = std::binary_search(reached.begin(), reached.end(), item);
            const auto box = blend(moving.boxes[first][item], moving.boxes[first + 1][item], fraction);
            const auto leaf = blend(leaves[first][position], leaves[first + 1][position], fraction);
            ASSERT_TRUE(is_reached || ask_box(box, rays[ray]) != BoxAnswer::hit) << scene << ", " << rays[ray];
            ASSERT_TRUE(!is_reached || ask_box(leaf, rays[ray]) != BoxAnswer::missed) << scene << ", " << rays[ray];
          }
        }
      }
    }
  }
}

TEST(BvhMotionKernel, a_single_sample_is_a_still_tree) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 300, 1);
  const MovingTree moving(scene, 1, make_params(1, 2));
  const std::vector<BoxRay> rays = make_box_rays(scene, 40, 1);
  BoxQuery still(rays), timed(rays);
  still.run<BvhHits::all>(moving.tree);
  timed.run<BvhHits::all>(moving.tree, &moving.motion, set_span(0, 0, 0.0));
  for (uint ray = 0; ray < rays.size(); ++ray) EXPECT_EQ(timed.get_items(ray), still.get_items(ray));
}

TEST(BvhMotionKernel, starts_at_a_quantized_cluster_with_both_frames) {
  const BoxScene scene = make_box_scene(BoxKind::uniform, 2000, 1);
  const MovingTree moving(scene, 2, make_params(1, 2));
  const std::vector<BoxRay> rays = make_box_rays(scene, 60, 2);
  BoxQuery whole(rays), part(rays);
  for (const double fraction : {0.0, 0.3, 1.0}) {
    whole.run<BvhHits::all>(moving.tree, &moving.motion, set_span(0, 1, fraction));
    std::vector<std::vector<uint>> united(rays.size());
    for (uint lane = 0; lane < moving.tree.root.get_count(); ++lane) {
      part.run<BvhHits::all>(moving.tree, &moving.motion, [&](GeometryRaytraceCtx& query) {
        set_span(0, 1, fraction)(query);
        query.cluster = 0xBC00'0000'0000'0000ull | u64{lane} << 32;
      });
      for (uint ray = 0; ray < rays.size(); ++ray)
        for (const uint item : part.get_items(ray)) united[ray].push_back(item);
    }
    for (uint ray = 0; ray < rays.size(); ++ray) {
      std::sort(united[ray].begin(), united[ray].end());
      const std::vector<uint> reached = whole.get_sorted_items(ray);
      // A start box is not tested, so a cluster may reach what the whole tree's root lane would have ruled out.
      EXPECT_TRUE(std::includes(united[ray].begin(), united[ray].end(), reached.begin(), reached.end())) << rays[ray];
    }
  }
}
