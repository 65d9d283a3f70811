// Clusters: a cut of the tree that holds everything once, its handles, boxes and weights.
#include "gas/bvh/bvh_clusters.h"

#include <gtest/gtest.h>

#include <bit>

#include "support/test_tree.h"
#include "support/tree_oracle.h"

namespace {

std::vector<u64> get_handles(const GasBvh<4>& tree, uint count) {
  CoreVector<void*> clusters;
  clusters.add(std::bit_cast<void*>(u64{7}));  // handles are appended
  bvh_get_clusters(tree, count, clusters);
  std::vector<u64> handles;
  for (uint k = 1; k < clusters.get_count(); ++k) handles.push_back(std::bit_cast<u64>(clusters[k]));
  return handles;
}

CoreBasicArray<void*> make_array(const std::vector<u64>& handles) {
  CoreBasicArray<void*> array(static_cast<uint>(handles.size()));
  for (uint k = 0; k < handles.size(); ++k) array[k] = std::bit_cast<void*>(handles[k]);
  return array;
}

/// Items below `child` of a node with the given frame.
void collect_items(const GasBvh<4>& tree, const OracleChild& child, std::vector<uint>& items) {
  if (child.is_leaf()) {
    items.insert(items.end(), tree.order + child.index, tree.order + child.index + child.get_count());
    return;
  }
  const OracleNode node{child.word & 0x200 ? OracleNode::quantized : OracleNode::aligned, child.index,
                        child.get_count(), 0, child.box};
  for (uint lane = 0; lane < node.count; ++lane) collect_items(tree, get_oracle_child(tree, node, lane), items);
}

OracleChild get_named_child(const GasBvh<4>& tree, u64 handle) {
  if (handle == 0) return {tree.root.index, tree.root.word, tree.box};
  const OracleNode node{OracleNode::aligned, static_cast<u32>(handle), 4, 0, {}};
  return get_oracle_child(tree, node, handle >> 32 & 3);
}

std::vector<uint> collect_items(const GasBvh<4>& tree, u64 handle) {
  std::vector<uint> items;
  collect_items(tree, get_named_child(tree, handle), items);
  return items;
}

/// Points in corners of corners of corners: at every level the parts leave most of the whole empty.
std::vector<FloatBox> make_dust(uint count) {
  RandomValues random(3);
  std::vector<FloatBox> boxes;
  for (uint k = 0; k < count; ++k) {
    GMathVec3<float> at;
    for (uint axis = 0; axis < 3; ++axis)
      for (float size = 0.8f; size > 1e-4f; size *= 0.2f) at[axis] += random.get_index(2) == 0 ? 0.0f : size;
    boxes.push_back(make_box(at, at + GMathVec3<float>{1e-5f, 1e-5f, 1e-5f}));
  }
  return boxes;
}

}  // namespace

TEST(BvhClusters, hold_every_item_once_for_any_count) {
  const std::vector<std::vector<FloatBox>> scenes = {make_dust(20000), make_box_scene(BoxKind::uniform, 3000, 2).boxes,
                                                     make_box_scene(BoxKind::exponential, 3000, 2).boxes,
                                                     make_box_scene(BoxKind::infinite, 3000, 2).boxes,
                                                     make_box_scene(BoxKind::flat, 3000, 2).boxes};
  for (const std::vector<FloatBox>& boxes : scenes) {
    const GasBvh<4> tree = make_tree(boxes, make_params(1, 7));
    for (uint count = 0; count <= 5000; count = count < 20 ? count + 1 : count * 2 - 17) {
      std::vector<uint> items;
      const std::vector<u64> handles = get_handles(tree, count);
      for (const u64 handle : handles) {
        ASSERT_TRUE(handle == 0 || ((handle >> 32) & ~u64{0x10003}) == 0xBC000000);
        const std::vector<uint> more = collect_items(tree, handle);
        items.insert(items.end(), more.begin(), more.end());
      }
      std::sort(items.begin(), items.end());
      ASSERT_EQ(items, make_indices(boxes.size())) << "count " << count << ", " << boxes.size() << " boxes";
      ASSERT_TRUE(count >= 4 || handles == std::vector<u64>{0});
    }
  }
  EXPECT_TRUE(get_handles(make_tree({}), 100).empty());
  EXPECT_EQ(get_handles(make_tree({scenes[0][0]}), 100), std::vector<u64>{0});
  EXPECT_EQ(get_handles(make_tree(scenes[1], make_params(1, 1)), 100), std::vector<u64>{0});  // the root is quantized
}

// Each power of four gives one level more, until the chain's node is smaller than a thousandth of the root: at depth 9,
// where 0.76 to the power of 27 is 0.0006. The deepest node is handed out lane by lane; those above it leave three
// leaves each, which come after it, marked as standing beside something expanded. What a flat root has is its one face:
// 0.76 to the power of 26 is 0.0008, at depth 13.
TEST(BvhClusters, go_down_by_the_count_and_stop_at_a_thousandth) {
  const GasBvh<4> chain = make_chain(20), flat = make_chain(20, 0.0f);
  constexpr u64 beside_expanded = u64{1} << 48;
  const auto expect_cut = [&](const GasBvh<4>& tree, uint count, uint deepest) {
    std::vector<u64> expected;
    for (uint lane = 0; lane < 4; ++lane) expected.push_back(make_cluster(deepest, lane));
    for (uint level = deepest; level-- > 0;)
      for (uint lane = 0; lane < 3; ++lane) expected.push_back(make_cluster(level, lane) | beside_expanded);
    EXPECT_EQ(get_handles(tree, count), expected) << "count " << count;
  };
  uint deepest = 0;
  for (uint count = 4; count <= 65536; count *= 4, ++deepest) {
    expect_cut(chain, count, deepest);
    expect_cut(chain, count * 4 - 1, deepest);
  }
  expect_cut(chain, 1u << 18, 8);
  expect_cut(chain, 0xFFFFFFFFu, 8);
  expect_cut(flat, 0xFFFFFFFFu, 12);
}

// By hand: a node is cut when its children leave more than three tenths of one of its measures empty.
TEST(BvhClusters, empty_parents_are_worth_cutting_and_full_ones_are_not) {
  const FloatBox unit({0, 0, 0}, {1, 1, 1}), half({0, 0, 0}, {0.6f, 1, 1});
  const auto count = [](std::initializer_list<FloatBox> lanes, const FloatBox& whole) {
    GasBvh<4> tree = make_node_by_hand(lanes);
    tree.box = whole;
    return get_handles(tree, 4).size();
  };
  EXPECT_EQ(count({{{0, 0, 0}, {0.2f, 0.2f, 0.2f}}, {{0.8f, 0.8f, 0.8f}, {1, 1, 1}}}, unit), 2u);
  // The face across x is full, those along it and the volume as much as a gap leaves.
  EXPECT_EQ(count({{{0, 0, 0}, {0.36f, 1, 1}}, {{0.64f, 0, 0}, {1, 1, 1}}}, unit), 1u);
  EXPECT_EQ(count({{{0, 0, 0}, {0.34f, 1, 1}}, {{0.66f, 0, 0}, {1, 1, 1}}}, unit), 2u);
  // Boxes that are one and the same count once.
  EXPECT_EQ(count({half, half, half, half}, unit), 4u);
  EXPECT_EQ(count({half, half, {{0.5f, 0, 0}, {0.8f, 1, 1}}, half}, unit), 1u);
  // Flat roots are measured by the faces they have.
  const FloatBox flat({0, 0, 1}, {1, 1, 1}), line({0, 0, 1}, {1, 0, 1});
  EXPECT_EQ(count({{{0, 0, 1}, {0.3f, 0.3f, 1}}, {{0.7f, 0.7f, 1}, {1, 1, 1}}}, flat), 2u);
  EXPECT_EQ(count({{{0, 0, 1}, {0.5f, 1, 1}}, {{0.5f, 0, 1}, {1, 1, 1}}}, flat), 1u);
  EXPECT_EQ(count({{{0, 0, 1}, {0.1f, 0, 1}}, {{0.9f, 0, 1}, {1, 0, 1}}}, line), 1u);
}

TEST(BvhClusters, boxes_and_weights_are_those_of_the_items) {
  const std::vector<FloatBox> items = make_dust(3000);
  std::vector<FloatBox> moved = items;
  for (FloatBox& box : moved) box = {box.min + GMathVec3<float>{1, 0, 0}, box.max + GMathVec3<float>{1, 2, 0}};
  std::vector<u32> words;
  for (uint k = 0; k < 3000; ++k) words.push_back(std::bit_cast<u32>(static_cast<float>(k % 16) * 0.25f));
  for (const bool weighted : {false, true}) {
    GasBvhSplitCtx source;
    source.item_boxes = items.data();
    if (weighted) source.item_weights = words.data();
    BvhBuildParams params = make_params(3, 4);
    params.item_cost = 2.5f;
    GasBvh<4> tree;
    tree.build<GasBvhSplitAligned>(source, nullptr, 3000, params, nullptr);
    GasBvhMotion<4> motion;
    motion.set_samples(tree, 2);
    motion.update_sample(0, items, nullptr);
    motion.update_sample(1, moved, nullptr);
    std::vector<u64> handles = get_handles(tree, 64);
    ASSERT_GT(handles.size(), 4u);
    handles.insert(handles.end(), {0, make_cluster(tree.aligned_count, 0), make_cluster(0, 4)});  // two are stale
    const CoreBasicArray<void*> clusters = make_array(handles);
    std::vector<FloatBox> boxes(handles.size()), at_first(handles.size()), between(handles.size());
    std::vector<float> weights(handles.size());
    bvh_get_clusters_bboxes(tree, clusters, boxes.data());
    bvh_get_clusters_bboxes_at(tree, motion, 0, 1, 0.0f, clusters, at_first.data());
    bvh_get_clusters_bboxes_at(tree, motion, 0, 1, 0.25f, clusters, between.data());
    bvh_get_clusters_weights(tree, clusters, weights.data());
    for (const std::size_t stale : {handles.size() - 2, handles.size() - 1}) {
      EXPECT_TRUE(boxes[stale] == FloatBox() && at_first[stale] == FloatBox());
      EXPECT_EQ(weights[stale], 0.0f);
    }
    for (std::size_t k = 0; k < handles.size() - 2; ++k) {
      FloatBox box;
      float weight = 0.0f;  // quarters: sums are exact in any order
      for (const uint item : collect_items(tree, handles[k])) {
        box.add(items[item]);
        weight += weighted ? std::bit_cast<float>(words[item]) : 2.5f;
      }
      // Lanes with 8-bit children are a little longer.
      EXPECT_EQ(boxes[k].min, box.min);
      EXPECT_LT((boxes[k].max - box.max).get_length(), 1e-5f);
      EXPECT_EQ(at_first[k], boxes[k]);
      EXPECT_NEAR(between[k].min.x, box.min.x + 0.25f, 1e-5f);
      EXPECT_NEAR(between[k].max.y, box.max.y + 0.5f, 1e-5f);
      EXPECT_EQ(weights[k], weight);
    }
  }
}
