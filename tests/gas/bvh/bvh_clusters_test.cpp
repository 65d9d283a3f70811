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

uint get_node(u64 handle) { return static_cast<uint>(handle); }
uint get_lane(u64 handle) { return static_cast<uint>(handle >> 32) & 0xffff; }
uint get_second_byte(u64 handle) { return static_cast<uint>(handle >> 48) & 0xff; }

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
  return get_oracle_child(tree, {OracleNode::aligned, get_node(handle), 4, 0, {}}, get_lane(handle));
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

/// In each node the last lane is the next node, 0.76 of its size per axis (0.44 of the volume), and three small leaves
/// lie in the far corner.
GasBvh<4> make_shrinking_chain(uint depth) {
  GasBvh<4> tree;
  tree.allocate_items(3 * depth + 1, false);
  tree.allocate_nodes(depth, 0, 0);
  float size = 1.0f;
  tree.box = {{0, 0, 0}, {1, 1, 1}};
  for (uint level = 0; level < depth; ++level, size *= 0.76f) {
    BvhNodeAligned& node = tree.aligned[level];
    const float inner = size * 0.76f, corner = size * 0.99f;
    for (uint lane = 0; lane < 3; ++lane) {
      node.lanes.set_lane(lane, {{corner, corner, corner}, {size, size, size}});
      node.child[lane] = {3 * level + lane, 1 | BvhChildRef::leaf_bit};
    }
    node.lanes.set_lane(3, {{0, 0, 0}, {inner, inner, inner}});
    node.child[3] = level + 1 < depth ? BvhChildRef{level + 1, 4} : BvhChildRef{3 * depth, 1 | BvhChildRef::leaf_bit};
  }
  for (uint k = 0; k < tree.item_count; ++k) tree.order[k] = k;
  tree.root = {0, 4};
  tree.max_depth = depth;
  return tree;
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
        ASSERT_TRUE(handle == 0 || (handle >> 56 == 0xBC && get_second_byte(handle) <= 1 && get_lane(handle) < 4));
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
// leaves each, which come after it, marked as standing beside something expanded.
TEST(BvhClusters, go_down_by_the_count_and_stop_at_a_thousandth) {
  const GasBvh<4> tree = make_shrinking_chain(20);
  const auto expect_cut = [&](uint count, uint deepest) {
    std::vector<u64> expected;
    for (u64 lane = 0; lane < 4; ++lane) expected.push_back(0xBC00'0000'0000'0000ull | lane << 32 | deepest);
    for (uint level = deepest; level-- > 0;)
      for (u64 lane = 0; lane < 3; ++lane) expected.push_back(0xBC01'0000'0000'0000ull | lane << 32 | level);
    EXPECT_EQ(get_handles(tree, count), expected) << "count " << count;
  };
  uint deepest = 0;
  for (uint count = 4; count <= 65536; count *= 4, ++deepest) {
    expect_cut(count, deepest);
    expect_cut(count * 4 - 1, deepest);
  }
  expect_cut(1u << 18, 8);
  expect_cut(1u << 20, 8);
  expect_cut(0xFFFFFFFFu, 8);
}

TEST(BvhClusters, two_corner_leaves_are_worth_cutting_and_full_parents_are_not) {
  const GasBvh<4> corners = make_node_by_hand({{{0, 0, 0}, {0.2f, 0.2f, 0.2f}}, {{0.8f, 0.8f, 0.8f}, {1, 1, 1}}});
  EXPECT_EQ(get_handles(corners, 3), std::vector<u64>{0});
  EXPECT_EQ(get_handles(corners, 4), (std::vector<u64>{0xBC00'0000'0000'0000ull, 0xBC00'0001'0000'0000ull}));
  // Along x the two leave a gap. The face across x is full, those along it and the volume as much as the gap leaves.
  const auto cut_with_gap = [](float gap) {
    const float half = (1.0f - gap) / 2;
    return get_handles(make_node_by_hand({{{0, 0, 0}, {half, 1, 1}}, {{1 - half, 0, 0}, {1, 1, 1}}}), 4).size();
  };
  EXPECT_EQ(cut_with_gap(0.28f), 1u);
  EXPECT_EQ(cut_with_gap(0.32f), 2u);
  // Four boxes that are one and the same count once: inclusion and exclusion.
  const FloatBox half({0, 0, 0}, {0.6f, 1, 1}), whole({0, 0, 0}, {1, 1, 1});
  GasBvh<4> same = make_node_by_hand({half, half, half, half});
  same.box = whole;
  EXPECT_EQ(get_handles(same, 4).size(), 4u);
  same = make_node_by_hand({half, half, {{0.5f, 0, 0}, {0.8f, 1, 1}}, half});
  same.box = whole;
  EXPECT_EQ(get_handles(same, 4).size(), 1u);
}

TEST(BvhClusters, flat_roots_are_measured_by_the_faces_they_have) {
  EXPECT_EQ(get_handles(make_node_by_hand({{{0, 0, 1}, {0.3f, 0.3f, 1}}, {{0.7f, 0.7f, 1}, {1, 1, 1}}}), 4).size(), 2u);
  EXPECT_EQ(get_handles(make_node_by_hand({{{0, 0, 1}, {0.5f, 1, 1}}, {{0.5f, 0, 1}, {1, 1, 1}}}), 4).size(), 1u);
  EXPECT_EQ(get_handles(make_node_by_hand({{{0, 0, 1}, {0.1f, 0, 1}}, {{0.9f, 0, 1}, {1, 0, 1}}}), 4).size(), 1u);
}

TEST(BvhClusters, boxes_and_weights_are_those_of_the_items) {
  const std::vector<FloatBox> items = make_dust(3000);
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
    std::vector<u64> handles = get_handles(tree, 64);
    ASSERT_GT(handles.size(), 4u);
    handles.push_back(0);
    const CoreBasicArray<void*> clusters = make_array(handles);
    std::vector<FloatBox> boxes(handles.size());
    std::vector<float> weights(handles.size());
    bvh_get_clusters_bboxes(tree, clusters, boxes.data());
    bvh_get_clusters_weights(tree, clusters, weights.data());
    for (std::size_t k = 0; k < handles.size(); ++k) {
      FloatBox box;
      float weight = 0.0f;  // quarters: sums are exact in any order
      for (const uint item : collect_items(tree, handles[k])) {
        box.add(items[item]);
        weight += weighted ? std::bit_cast<float>(words[item]) : 2.5f;
      }
      EXPECT_EQ(boxes[k], box);
      EXPECT_EQ(weights[k], weight);
    }
    EXPECT_EQ(boxes.back(), tree.box);
  }
}

TEST(BvhClusters, boxes_at_a_time_are_blended_lanes) {
  const std::vector<FloatBox> items = make_dust(500);
  const GasBvh<4> tree = make_tree(items, make_params(1, 4));
  GasBvhMotion<4> motion;
  motion.set_samples(tree, 2);
  std::vector<FloatBox> moved = items;
  for (FloatBox& box : moved) box = {box.min + GMathVec3<float>{1, 0, 0}, box.max + GMathVec3<float>{1, 2, 0}};
  motion.update_sample(0, items, nullptr);
  motion.update_sample(1, moved, nullptr);
  std::vector<u64> handles = get_handles(tree, 64);
  ASSERT_GT(handles.size(), 4u);
  handles.push_back(0);
  std::vector<FloatBox> still(handles.size()), at(handles.size());
  bvh_get_clusters_bboxes(tree, make_array(handles), still.data());
  bvh_get_clusters_bboxes_at(tree, motion, 0, 1, 0.25f, make_array(handles), at.data());
  for (std::size_t k = 0; k < handles.size(); ++k) {
    EXPECT_NEAR(at[k].min.x, still[k].min.x + 0.25f, 1e-6f);
    EXPECT_NEAR(at[k].max.y, still[k].max.y + 0.5f, 1e-6f);
    EXPECT_NEAR(at[k].max.z, still[k].max.z, 1e-6f);
  }
  bvh_get_clusters_bboxes_at(tree, motion, 0, 1, 0.0f, make_array(handles), at.data());
  EXPECT_EQ(at, still);
}

TEST(BvhClusters, stale_handles_have_no_box_and_no_weight) {
  const GasBvh<4> tree = make_tree(make_box_scene(BoxKind::uniform, 50, 5).boxes), empty = make_tree({});
  GasBvhMotion<4> motion, empty_motion;
  motion.set_samples(tree, 1);
  motion.update_sample(0, make_box_scene(BoxKind::uniform, 50, 5).boxes, nullptr);
  empty_motion.set_samples(empty, 1);
  const CoreBasicArray<void*> stale =
      make_array({0xBC00'0000'0000'0000ull | tree.aligned_count, 0xBC00'0000'FFFF'FFFFull, 0xBC00'0004'0000'0000ull,
                  0xBC00'FFFF'0000'0000ull});
  FloatBox boxes[4];
  float weights[4];
  const auto expect_nothing = [&](uint count) {
    for (uint k = 0; k < count; ++k) {
      EXPECT_EQ(boxes[k], FloatBox());
      EXPECT_EQ(weights[k], 0.0f);
      boxes[k] = {{0, 0, 0}, {1, 1, 1}};
      weights[k] = 1.0f;
    }
  };
  std::fill_n(weights, 4, 0.0f);
  expect_nothing(4);
  bvh_get_clusters_bboxes(tree, stale, boxes);
  bvh_get_clusters_weights(tree, stale, weights);
  expect_nothing(4);
  bvh_get_clusters_bboxes_at(tree, motion, 0, 0, 0.0f, stale, boxes);
  std::fill_n(weights, 4, 0.0f);
  expect_nothing(4);
  for (const GasBvh<4>* none : std::initializer_list<const GasBvh<4>*>{&empty, nullptr}) {
    const GasBvh<4> never_built;
    const GasBvh<4>& nothing = none != nullptr ? *none : never_built;
    bvh_get_clusters_bboxes(nothing, make_array({0}), boxes);
    bvh_get_clusters_weights(nothing, make_array({0}), weights);
    expect_nothing(1);
    bvh_get_clusters_bboxes_at(nothing, empty_motion, 0, 0, 0.0f, make_array({0}), boxes);
    weights[0] = 0.0f;
    expect_nothing(1);
  }
}
