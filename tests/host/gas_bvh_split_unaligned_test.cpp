// Fibres as capsules, measured here in double; whole trees of them are split down and every set on the way is refitted.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "vq_gas_base/gas_bvh_split.h"
#include "vq_sys/sys_thread_manager.h"

namespace {

using Vec = GMathVec3<double>;
using Box = GMathBbox3<float>;
using Space = GMathLinearSpace3<float>;
constexpr double infinity = std::numeric_limits<double>::infinity(), not_a_number = std::nan("");

enum Kind { slanted, upright, tangled, coincident, points, far_away, huge, with_infinite, with_nan, kind_count };

struct Capsule {
  Vec from, to;
  double radius;

  GMathBbox3<double> measure(const GMathLinearSpace3<double>& space) const {
    const Vec a = space.measure(from), b = space.measure(to), r(radius, radius, radius);
    return {Vec(std::fmin(a.x, b.x), std::fmin(a.y, b.y), std::fmin(a.z, b.z)) - r,
            Vec(std::fmax(a.x, b.x), std::fmax(a.y, b.y), std::fmax(a.z, b.z)) + r};
  }
};

std::vector<Capsule> make_fibres(uint kind, uint count) {
  std::mt19937 random(count + kind);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  std::vector<Capsule> fibres(count);
  for (uint k = 0; k < count; ++k) {
    Vec at(unit(random), unit(random), unit(random)), along(0.3, 0.25, 0.2);
    along += Vec(unit(random), unit(random), unit(random)) * 0.01;
    double radius = 1e-3;
    if (kind == upright) along = {0.0, 0.0, 0.4};
    if (kind == tangled) along = Vec(unit(random), unit(random), unit(random)) * 0.3;
    if (kind == coincident) at = {}, along = {0.1, 0.2, 0.3};
    if (kind == points) along = {}, radius = 0.0;
    if (kind == far_away) at += Vec(1e6, -1e6, 3e5);
    if (kind == huge) at = at * 1e36, along = along * 1e36;
    if (kind == with_infinite && k % 7 == 0) along.x = infinity;
    if (kind == with_nan && k % 3 == 0) at.y = not_a_number;
    fibres[k] = {at, at + along, radius};
  }
  return fibres;
}

/// Fibres, and everything a strategy is told of them.
struct Groom {
  std::vector<Capsule> fibres;
  std::vector<Box> boxes;
  std::vector<Space> spaces;
  std::vector<uint> order;
  GasBvhSplitCtx ctx;

  explicit Groom(std::vector<Capsule> from) : fibres(std::move(from)), order(fibres.size()) {
    for (const Capsule& fibre : fibres) {
      boxes.push_back(Box(fibre.measure({})));
      const Vec x = (fibre.to - fibre.from).get_normalized(), y = x.cross({1.0, 0.0, 0.0}).get_normalized();
      spaces.push_back(Space(GMathLinearSpace3<double>(x, y, x.cross(y))));
    }
    std::iota(order.begin(), order.end(), 0u);
    ctx.order = order.data();
    ctx.item_boxes = boxes.data();
    ctx.item_spaces = spaces.data();
    ctx.item_count = static_cast<uint>(boxes.size());
    ctx.item_cost = 8.0f;
    ctx.measure_owner = this;
    ctx.measure_set = [](const CoreBasicArray<uint>& items, const Space& space, void* owner, SysThreadManager*) {
      Box box;
      for (const uint item : items) box.add(static_cast<const Groom*>(owner)->measure(item, space));
      return box;
    };
    ctx.measure_items = [](const CoreBasicArray<uint>& items, const Space& space, Box* out, void* owner,
                           SysThreadManager*) {
      for (const uint item : items) *out++ = static_cast<const Groom*>(owner)->measure(item, space);
    };
  }
  Groom(Groom&&) = delete;  // the context points into the vectors

  Box measure(uint item, const Space& space) const {
    return Box(fibres[item].measure(GMathLinearSpace3<double>(space)));
  }
  GasBvhSplitSetGeom get_root() const {
    GasBvhSplitSetGeom root;
    root.count = ctx.item_count;
    root.box = ctx.compute_items_bbox(root, nullptr);
    root.area = root.box.get_half_area();
    return root;
  }
};

/// The frame can be inverted in single precision, and holds every item that is finite.
void expect_refit(const Groom& groom, const GasBvhSplitSetGeom& set) {
  EXPECT_TRUE(set.refitted);
  float largest = 0.0f, farthest = 0.0f, smallest = std::numeric_limits<float>::infinity();
  for (uint axis = 0; axis < 3; ++axis) {
    const Vec a(set.space.axis[axis]), b(set.space.axis[(axis + 1) % 3]);
    EXPECT_NEAR(a.dot(a), 1.0, 3e-7);
    EXPECT_NEAR(a.dot(b), 0.0, 3e-7);
    const float extent = set.space_box.max[axis] - set.space_box.min[axis];
    smallest = std::min(smallest, extent);
    largest = std::max(largest, extent);
    farthest = std::max({farthest, std::fabs(set.space_box.min[axis]), std::fabs(set.space_box.max[axis])});
  }
  EXPECT_TRUE(std::isfinite(largest) && smallest > 0.0f && std::isfinite(1.0f / smallest));
  EXPECT_GE(smallest, largest * 1e-6f);
  EXPECT_GE(smallest, farthest * 0x1p-20f);
  for (uint k = set.first; k < set.first + set.count; ++k) {
    Box box = groom.measure(groom.order[k], set.space);
    const GMathVec3<float> size = box.get_extent();
    if (!std::isfinite(size.x + size.y + size.z)) continue;
    box.add(set.space_box);
    EXPECT_EQ(box, set.space_box);
  }
}

/// Splits on until no set will; every other set is refitted first, as below an oriented node. Returns the number of
/// splits that asked for oriented boxes, and the price of the leaves' boxes.
struct Outcome {
  uint splits = 0, oriented = 0, deepest = 0;
};
Outcome split_down(Groom& groom, SysThreadManager* threads, bool check) {
  GasBvhSplitUnaligned strategy;
  Outcome outcome;
  std::vector<std::pair<GasBvhSplitSetGeom, uint>> todo{{groom.get_root(), 0}};
  while (!todo.empty()) {
    auto [set, depth] = todo.back();
    todo.pop_back();
    outcome.deepest = std::max(outcome.deepest, depth);
    if (depth % 2 == 1) strategy.refit(groom.ctx, set, threads);
    if (check && set.refitted) expect_refit(groom, set);
    GasBvhSplitSetGeom left, right;
    bool aligned = true;
    left.refitted = right.refitted = true;
    if (!strategy.split(groom.ctx, set, left, right, aligned, threads)) {
      EXPECT_LE(set.count, groom.ctx.max_leaf);
      continue;
    }
    ++outcome.splits;
    outcome.oriented += aligned ? 0 : 1;
    EXPECT_TRUE(left.count > 0 && right.count > 0 && left.first == set.first);
    EXPECT_TRUE(right.first == left.first + left.count && left.count + right.count == set.count);
    for (const GasBvhSplitSetGeom& half : {left, right}) {
      EXPECT_FALSE(half.refitted);
      EXPECT_EQ(half.box, groom.ctx.compute_items_bbox(half, nullptr));
      todo.push_back({half, depth + 1});
    }
  }
  std::vector<uint> items(groom.order);
  std::sort(items.begin(), items.end());
  for (uint k = 0; k < items.size(); ++k) EXPECT_EQ(items[k], k);
  return outcome;
}

TEST(GasBvhSplitUnaligned, any_fibres_come_apart_and_every_set_has_a_frame) {
  for (uint kind = 0; kind < kind_count; ++kind) {
    for (const uint count : {2u, 16u, 17u, 5000u}) {
      for (const uint max_leaf : {1u, 255u}) {
        SCOPED_TRACE("kind " + std::to_string(kind) + ", items " + std::to_string(count));
        Groom groom(make_fibres(kind, count));
        groom.ctx.max_leaf = max_leaf;
        const Outcome outcome = split_down(groom, nullptr, true);
        EXPECT_LE(outcome.deepest, 60u);
        if (max_leaf == 1) {
          EXPECT_EQ(outcome.splits, count - 1);
        }
        if (kind == slanted && count > 2) {
          EXPECT_GT(outcome.oriented, outcome.splits / 2);
        }
        if (kind == upright) {
          EXPECT_LE(outcome.oriented * 50, outcome.splits + 50);
        }
      }
    }
  }
}

TEST(GasBvhSplitUnaligned, without_oriented_boxes_it_is_the_aligned_strategy) {
  for (uint lack = 0; lack < 3; ++lack) {
    Groom plain(make_fibres(slanted, 3000)), groom(make_fibres(slanted, 3000));
    plain.ctx.max_leaf = groom.ctx.max_leaf = 4;
    if (lack == 0) groom.ctx.oriented_cost = std::numeric_limits<float>::infinity();
    if (lack == 1) groom.ctx.item_spaces = nullptr;
    if (lack == 2) groom.ctx.measure_items = nullptr;
    GasBvhSplitAligned strategy;
    std::vector<GasBvhSplitSetGeom> todo{plain.get_root()};
    while (!todo.empty()) {
      const GasBvhSplitSetGeom set = todo.back();
      todo.pop_back();
      GasBvhSplitSetGeom left, right;
      bool aligned = true;
      if (strategy.split(plain.ctx, set, left, right, aligned, nullptr)) todo.insert(todo.end(), {left, right});
    }
    const float oriented_cost = groom.ctx.oriented_cost;
    GasBvhSplitUnaligned unaligned;
    todo = {groom.get_root()};
    while (!todo.empty()) {
      const GasBvhSplitSetGeom set = todo.back();
      todo.pop_back();
      GasBvhSplitSetGeom left, right;
      bool aligned = true;
      if (unaligned.split(groom.ctx, set, left, right, aligned, nullptr)) todo.insert(todo.end(), {left, right});
      EXPECT_TRUE(aligned);
    }
    EXPECT_EQ(oriented_cost, groom.ctx.oriented_cost);
    EXPECT_EQ(plain.order, groom.order) << "lack " << lack;
  }
}

TEST(GasBvhSplitUnaligned, a_frame_is_tight) {
  const Vec along(0.6, 0.64, 0.48), beside = along.cross({0.0, 0.0, 1.0}).get_normalized();
  const double r = 1e-3;
  // One fibre; two in a row; two side by side; two that cross, for which any frame is as good as their plane is.
  const std::vector<std::vector<Capsule>> sets{
      {{{}, along, r}}, {{{}, along, r}, {along, along * 2.0, r}}, {{{}, along, r}, {beside, beside + along, r}}};
  const double widths[][3] = {{1.0, 0.0, 0.0}, {2.0, 0.0, 0.0}, {1.0, 1.0, 0.0}};
  for (uint k = 0; k < sets.size(); ++k) {
    Groom groom(sets[k]);
    GasBvhSplitSetGeom set = groom.get_root();
    GasBvhSplitUnaligned().refit(groom.ctx, set, nullptr);
    for (uint axis = 0; axis < 3; ++axis)
      EXPECT_NEAR(set.space_box.max[axis] - set.space_box.min[axis], widths[k][axis] + 2.0 * r, 1e-5) << k;
  }
}

TEST(GasBvhSplitUnaligned, one_thread_and_many_give_the_same_order) {
  Groom serial(make_fibres(slanted, 150000));
  serial.ctx.max_leaf = 255;
  split_down(serial, nullptr, false);
  for (const uint thread_count : {1u, 2u, 8u}) {
    SysThreadManager threads(thread_count);
    Groom parallel(serial.fibres);
    parallel.ctx.max_leaf = 255;
    split_down(parallel, &threads, false);
    EXPECT_TRUE(parallel.order == serial.order) << thread_count << " threads";
  }
}

}  // namespace
