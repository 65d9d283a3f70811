// Splits against loops over all cuts, and whole sets split down to single items. That halves are exact, is seen in the
// trees that the builder makes of them.
#include "vq_gas_base/gas_bvh_split.h"
#include "vq_gas_base/gas_bvh_split_halves.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "vq_sys/sys_thread_manager.h"

namespace {

using Box = GMathBbox3<float>;
using Space = GMathLinearSpace3<float>;
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

enum Kind { uniform, slanted, identical, coplanar, concentric, geometric, huge, with_infinite, with_nan, kind_count };

/// The line from the lowest to the highest corner of a box: a thin curve that the box holds.
Box measure_curve(const Box& box, const Space& space) {
  const GMathLinearSpace3<double> wide(space);
  GMathBbox3<double> curve;
  for (const GMathVec3<float>& end : {box.min, box.max}) curve.add(wide.measure(GMathVec3<double>(end)));
  return Box(curve);
}

/// Boxes, and everything a strategy is told of them.
struct Scene {
  std::vector<Box> boxes;
  std::vector<Space> spaces;
  std::vector<u32> weights;
  std::vector<uint> order;
  GasBvhSplitCtx ctx;

  explicit Scene(std::vector<Box> with_boxes) : boxes(std::move(with_boxes)), order(boxes.size()) {
    std::iota(order.begin(), order.end(), 0u);
    ctx.order = order.data();
    ctx.item_boxes = boxes.data();
    ctx.item_count = static_cast<uint>(boxes.size());
  }
  Scene(Scene&&) = delete;  // the context points into the vectors

  void set_weights(const std::vector<float>& values) {
    for (const float value : values) weights.push_back(std::bit_cast<u32>(value));
    ctx.item_weights = weights.data();
  }
  /// Makes the items curves, each along its box's diagonal.
  void set_curves() {
    for (const Box& box : boxes) {
      const GMathVec3<double> x = GMathVec3<double>(box.get_extent()).get_normalized();
      const GMathVec3<double> y = x.cross({1.0, 0.0, 0.0}).get_normalized();
      spaces.push_back(Space(GMathLinearSpace3<double>(x, y, x.cross(y))));
    }
    ctx.item_spaces = spaces.data();
    ctx.item_cost = 8.0f;
    ctx.measure_owner = this;
    ctx.measure_set = [](const CoreBasicArray<uint>& items, const Space& space, void* owner, SysThreadManager*) {
      Box box;
      for (const uint item : items) box.add(measure_curve(static_cast<const Scene*>(owner)->boxes[item], space));
      return box;
    };
  }
  GasBvhSplitSetGeom get_root() const {
    GasBvhSplitSetGeom root;
    root.count = ctx.item_count;
    root.box = ctx.compute_items_bbox(root, nullptr);
    root.area = root.box.get_half_area();
    return root;
  }
};

std::vector<Box> make_boxes(uint kind, uint count, uint seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  std::vector<Box> boxes(count);
  for (uint k = 0; k < count; ++k) {
    const GMathVec3<float> at(unit(random), unit(random), unit(random));
    const GMathVec3<float> size = GMathVec3<float>(unit(random), unit(random), unit(random)) * 0.05f;
    Box& box = boxes[k] = Box(at, at + size);
    const float spread = std::ldexp(1.0f + unit(random), static_cast<int>(random() % 200) - 100);
    if (kind == slanted) box.max = at + GMathVec3<float>(0.3f, 0.25f, 0.2f) + size * 0.1f;
    if (kind == identical) box = Box({1.0f, 2.0f, 3.0f}, {2.0f, 3.0f, 4.0f});
    if (kind == coplanar) box.min.y = box.max.y = 5.0f;
    if (kind == concentric) box = Box(size * -1.0f, size);
    if (kind == geometric) box = Box({spread, 0.0f, 0.0f}, {spread * 1.5f, 1e-3f, 1e-3f});
    if (kind == huge) box = Box(at * -3e38f, at * 3e38f);
    if (kind == with_infinite && k % 3 == 0) box.max.x = infinity;
    if (kind == with_infinite && k % 5 == 0) box.min = {-infinity, -infinity, -infinity};
    if (kind == with_nan && k % 3 == 0) box.min[k % 2] = not_a_number;
    if (kind == with_nan && k % 4 == 0) box = Box({not_a_number, not_a_number, not_a_number}, {not_a_number, 0, 0});
  }
  return boxes;
}

/// False: the set stays together.
template <class Strategy>
bool split(Scene& scene, Strategy& strategy, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
           GasBvhSplitSetGeom& right, SysThreadManager* threads = nullptr) {
  bool aligned = true;
  return strategy.split(scene.ctx, set, left, right, aligned, threads);
}

/// Axes at right angles, extents that can be inverted in single precision, and every curve inside that is finite.
void expect_refitted(const Scene& scene, const GasBvhSplitSetGeom& set) {
  const GMathVec3<float> extent = set.space_box.get_extent();
  const float largest = std::max({extent.x, extent.y, extent.z});
  EXPECT_LE(largest, 1e38f);
  for (uint axis = 0; axis < 3; ++axis) {
    const GMathVec3<double> a(set.space.axis[axis]), b(set.space.axis[(axis + 1) % 3]);
    EXPECT_NEAR(a.dot(a), 1.0, 3e-7);
    EXPECT_NEAR(a.dot(b), 0.0, 3e-7);
    const float farthest = std::max(std::fabs(set.space_box.min[axis]), std::fabs(set.space_box.max[axis]));
    EXPECT_GE(extent[axis], std::max({largest * 1e-6f, farthest * 0x1p-20f, 1e-18f}));
  }
  for (uint k = set.first; k < set.first + set.count; ++k) {
    Box box = measure_curve(scene.boxes[scene.order[k]], set.space);
    if (!std::isfinite(box.get_half_area())) continue;
    box.add(set.space_box);
    EXPECT_EQ(box, set.space_box);
  }
}

/// Splits on until sets have at most `enough` items and returns the depth. Of curves every other half is refitted, as
/// below an oriented node, and checked.
template <class Strategy = GasBvhSplitAligned>
uint split_down(Scene& scene, SysThreadManager* threads, uint enough = 1) {
  Strategy strategy;
  uint deepest = 0;
  std::vector<std::pair<GasBvhSplitSetGeom, uint>> todo{{scene.get_root(), 0}};
  while (!todo.empty()) {
    auto [set, depth] = todo.back();
    todo.pop_back();
    deepest = std::max(deepest, depth);
    if constexpr (std::is_same_v<Strategy, GasBvhSplitUnaligned>) {
      if (depth % 2 == 1) strategy.refit(scene.ctx, set, threads);
      if (depth % 2 == 1) expect_refitted(scene, set);
    }
    GasBvhSplitSetGeom left, right;
    if (set.count <= enough) continue;
    if (!split(scene, strategy, set, left, right, threads)) {
      ADD_FAILURE() << set.count << " items stay together";
      continue;
    }
    todo.push_back({left, depth + 1});
    todo.push_back({right, depth + 1});
  }
  return deepest;
}

// Prices, in double and with no code of the strategy.
double get_area(const Box& box) {
  const double x = double(box.max.x) - box.min.x, y = double(box.max.y) - box.min.y, z = double(box.max.z) - box.min.z;
  return x * y + y * z + z * x;
}

double get_side_cost(const Scene& scene, const std::vector<uint>& items, uint first, uint count) {
  Box box;
  double weight = 0.0;
  for (uint k = first; k < first + count; ++k) {
    box.add(scene.boxes[items[k]]);
    weight += scene.weights.empty() ? 1.0 : std::bit_cast<float>(scene.weights[items[k]]);
  }
  if (scene.ctx.free_lanes == 0 || !scene.weights.empty()) return get_area(box) * weight;
  // Four-wide: every node takes the lane of its parent and brings four.
  double nodes = 0.0;
  for (uint lanes = scene.ctx.free_lanes / 2; lanes < count; lanes += 3) ++nodes;
  return get_area(box) * (nodes + weight / 32.0);
}

/// Cheapest of all cuts between neighbours in the order of centres, on any axis.
double find_best_cost(const Scene& scene) {
  double best = std::numeric_limits<double>::infinity();
  const uint count = scene.ctx.item_count;
  for (uint axis = 0; axis < 3; ++axis) {
    std::vector<uint> items(count);
    std::iota(items.begin(), items.end(), 0u);
    std::stable_sort(items.begin(), items.end(), [&](uint a, uint b) {
      return scene.boxes[a].min[axis] + scene.boxes[a].max[axis] < scene.boxes[b].min[axis] + scene.boxes[b].max[axis];
    });
    for (uint cut = 1; cut < count; ++cut)
      best = std::min(best, get_side_cost(scene, items, 0, cut) + get_side_cost(scene, items, cut, count - cut));
  }
  return best;
}

/// Splits the scene's root and prices what came of it.
double get_chosen_cost(Scene& scene) {
  GasBvhSplitAligned strategy;
  GasBvhSplitSetGeom left, right;
  if (!split(scene, strategy, scene.get_root(), left, right)) return -1.0;
  return get_side_cost(scene, scene.order, left.first, left.count) +
         get_side_cost(scene, scene.order, right.first, right.count);
}

std::vector<float> make_weights(uint count, uint seed) {
  std::mt19937 random(seed);
  std::vector<float> weights(count);
  for (float& weight : weights) weight = std::ldexp(1.0f, static_cast<int>(random() % 12) - 4);
  return weights;
}

TEST(GasBvhSplitAligned, depth_stays_bounded) {
  for (uint kind = 0; kind < kind_count; ++kind) {
    Scene scene(make_boxes(kind, 20000, 5));
    const uint limit = kind == geometric ? 100 : 40;  // log2 n is 15
    EXPECT_LE(split_down(scene, nullptr), limit) << "kind " << kind;
  }
  Scene line(make_boxes(coplanar, 20000, 5));  // of which no box has an area
  for (Box& box : line.boxes) box.min.z = box.max.z = 1.0f;
  EXPECT_LE(split_down(line, nullptr), 40u);
  // Weights that make all planes equal must not peel items off one by one.
  for (const float weight : {0.0f, -1.0f, not_a_number}) {
    Scene scene(make_boxes(uniform, 20000, 6));
    scene.set_weights(std::vector<float>(20000, weight));
    EXPECT_LE(split_down(scene, nullptr), 40u) << "weight " << weight;
  }
}

TEST(GasBvhSplitAligned, boxes_without_a_finite_area_are_set_apart) {
  for (const uint count : {12u, 3000u}) {
    std::vector<Box> boxes = make_boxes(uniform, count, 2);
    boxes[3].max.y = infinity;
    boxes[8] = Box({not_a_number, not_a_number, not_a_number}, {not_a_number, not_a_number, not_a_number});
    boxes[9] = Box({-3e38f, -3e38f, -3e38f}, {3e38f, 3e38f, 3e38f});
    Scene scene(boxes);
    GasBvhSplitAligned strategy;
    GasBvhSplitSetGeom left, right;
    ASSERT_TRUE(split(scene, strategy, scene.get_root(), left, right));
    ASSERT_EQ(right.count, 3u);
    std::sort(scene.order.end() - 3, scene.order.end());
    EXPECT_TRUE(std::equal(scene.order.end() - 3, scene.order.end(), std::vector<uint>{3, 8, 9}.begin()));
  }
}

TEST(GasBvhSplitAligned, cuts_are_the_best_there_are_in_small_sets_and_close_to_it_in_large_ones) {
  for (const uint kind : {uniform, coplanar}) {
    for (const uint count : {2u, 3u, 5u, 8u, 11u, 15u, 16u, 17u, 60u, 400u}) {
      for (uint seed = 0; seed < 60; ++seed) {
        Scene scene(make_boxes(kind, count, seed));
        if (seed % 2 == 1) scene.set_weights(make_weights(count, seed));
        if (count > 4 && count <= 16) scene.ctx.free_lanes = std::array<uint, 4>{0, 2, 3, 4}[seed / 2 % 4];
        const double best = find_best_cost(scene), chosen = get_chosen_cost(scene);
        EXPECT_GE(chosen, best * (1.0 - 1e-4)) << "seed " << seed << ", items " << count;
        EXPECT_LE(chosen, best * (count <= 16 ? 1.0 + 1e-4 : 1.25)) << "seed " << seed << ", items " << count;
      }
    }
  }
}

/// `half` items here and as many there: half area of all 203, of either end 3. As a leaf 2 h w, split 1 + 2 h w 3 /
/// 203.
template <class Strategy>
void expect_refusals(uint half) {
  std::vector<Box> boxes(half, Box({0.0f, 0.0f, 0.0f}, {1.0f, 1.0f, 1.0f}));
  boxes.insert(boxes.end(), half, Box({100.0f, 0.0f, 0.0f}, {101.0f, 1.0f, 1.0f}));
  const auto is_split = [&](uint max_leaf, float weight, bool per_item, float scale) {
    Scene scene(boxes);
    scene.ctx.max_leaf = max_leaf;
    scene.ctx.item_cost_scale = scale;
    scene.ctx.oriented_cost = scene.ctx.aligned_cost;
    if (per_item) scene.set_weights(std::vector<float>(2 * half, weight));
    scene.ctx.item_cost = per_item ? 1000.0f : weight;
    Strategy strategy;
    GasBvhSplitSetGeom left, right;
    const bool done = split(scene, strategy, scene.get_root(), left, right);
    EXPECT_EQ(left.count, done ? half : 0u);
    return done;
  };
  const float even = 1.0f / (2 * half * (1.0f - 3.0f / 203.0f));  // the weight at which both cost the same
  for (const bool per_item : {false, true}) {
    EXPECT_TRUE(is_split(2 * half, even * 1.01f, per_item, 1.0f));
    EXPECT_FALSE(is_split(2 * half, even * 0.99f, per_item, 1.0f));
    EXPECT_TRUE(is_split(2 * half - 1, even * 0.99f, per_item, 1.0f));
    EXPECT_FALSE(is_split(2 * half, even * 1.5f, per_item, 0.5f));
  }
}

TEST(GasBvhSplit, refuses_only_small_sets_that_are_cheaper_as_a_leaf) {
  for (const uint half : {4u, 10u}) {
    expect_refusals<GasBvhSplitAligned>(half);
    expect_refusals<GasBvhSplitUnaligned>(half);
  }
}

// Of so many, the weights are summed up in parts.
TEST(GasBvhSplitAligned, large_sets_are_cut_by_weight_too) {
  Scene scene(make_boxes(uniform, 40000, 1));
  std::vector<float> weights;
  for (const Box& box : scene.boxes) weights.push_back(box.min.x < 0.1f ? 1000.0f : 1.0f);
  scene.set_weights(weights);
  GasBvhSplitSetGeom left, right;
  GasBvhSplitAligned strategy;
  ASSERT_TRUE(split(scene, strategy, scene.get_root(), left, right));
  EXPECT_TRUE(left.count > 2500 && left.count < 8000) << left.count;
  // As one leaf, a set costs the weights of its own items.
  const float both = gas_bvh_split_whole_cost(scene.ctx, {0, 40000});
  EXPECT_NEAR(gas_bvh_split_whole_cost(scene.ctx, {left.first, left.count}) +
                  gas_bvh_split_whole_cost(scene.ctx, {right.first, right.count}),
              both, 1e-4f * both);
}

TEST(GasBvhSplitUnaligned, any_curves_come_apart_and_every_set_has_a_frame) {
  for (uint kind = 0; kind < kind_count; ++kind) {
    for (const uint count : {2u, 3u, 16u, 17u, 4500u}) {
      SCOPED_TRACE("kind " + std::to_string(kind) + ", items " + std::to_string(count));
      std::vector<Box> boxes = make_boxes(kind, count, count);
      if (kind == coplanar)
        for (Box& box : boxes) box.min.x += 1e6f, box.max.x += 1e6f;  // and far away
      Scene scene(boxes);
      scene.set_curves();
      EXPECT_LE(split_down<GasBvhSplitUnaligned>(scene, nullptr), 100u);
    }
  }
}

TEST(GasBvhSplitUnaligned, oriented_boxes_are_for_slanted_curves_where_they_are_not_too_dear) {
  const auto is_oriented = [](const GMathVec3<float>& along, float oriented_cost) {
    Scene scene(make_boxes(uniform, 200, 3));
    for (Box& box : scene.boxes) box = Box(box.min * 0.1f, box.min * 0.1f + along);
    scene.set_curves();
    scene.ctx.oriented_cost = oriented_cost;
    GasBvhSplitUnaligned strategy;
    GasBvhSplitSetGeom left, right;
    bool aligned = true;
    EXPECT_TRUE(strategy.split(scene.ctx, scene.get_root(), left, right, aligned, nullptr));
    return !aligned;
  };
  EXPECT_TRUE(is_oriented({0.3f, 0.25f, 0.2f}, 5.0f));
  EXPECT_FALSE(is_oriented({0.0f, 0.0f, 0.4f}, 5.0f));
  EXPECT_FALSE(is_oriented({0.3f, 0.25f, 0.2f}, 1e6f));
}

TEST(GasBvhSplitUnaligned, frames_follow_the_curves) {
  const GMathVec3<float> none, along(0.6f, 0.64f, 0.48f), beside(0.64f, -0.6f, 0.0f);
  const auto expect_extents = [](const std::vector<Box>& curves, float x, float y) {
    Scene scene(curves);
    scene.set_curves();
    GasBvhSplitSetGeom set = scene.get_root();
    GasBvhSplitUnaligned().refit(scene.ctx, set, nullptr);
    const float extents[3] = {x, y, 0.0f};
    for (uint axis = 0; axis < 3; ++axis) EXPECT_NEAR(set.space_box.get_extent()[axis], extents[axis], 1e-5f);
  };
  const float apart = beside.get_length();
  expect_extents({Box(none, along)}, 1.0f, 0.0f);
  expect_extents({Box(none, along), Box(along, along * 2.0f)}, 2.0f, 0.0f);
  expect_extents({Box(none, along), Box(beside, beside + along)}, 1.0f, apart);
}

// Trees over boxes are compared for all numbers of threads where they are built.
TEST(GasBvhSplitUnaligned, one_thread_and_many_give_the_same_order) {
  Scene serial(make_boxes(slanted, 70000, 9));
  serial.set_curves();
  split_down<GasBvhSplitUnaligned>(serial, nullptr, 100);
  for (const uint thread_count : {2u, 8u}) {
    SysThreadManager threads(thread_count);
    Scene parallel(serial.boxes);
    parallel.set_curves();
    EXPECT_EQ(parallel.ctx.compute_items_bbox(serial.get_root(), &threads), serial.get_root().box);
    split_down<GasBvhSplitUnaligned>(parallel, &threads, 100);
    EXPECT_TRUE(parallel.order == serial.order) << thread_count << " threads";
  }
}

}  // namespace
