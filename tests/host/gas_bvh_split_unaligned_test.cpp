// Fibres as capsules, measured here in double; whole sets of them are split down and every half is refitted on the way.
#include <gtest/gtest.h>

#include <cmath>
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
constexpr float infinity = std::numeric_limits<float>::infinity();

enum Kind { slanted, upright, tangled, coincident, points, far_away, huge, with_infinite, with_nan, kind_count };

struct Capsule {
  Vec from, to;
  double radius = 1e-3;

  Box measure(const Space& space) const {
    GMathBbox3<double> box;
    for (const Vec& end : {from, to}) {
      const Vec at = GMathLinearSpace3<double>(space).measure(end), reach(radius, radius, radius);
      box.add(GMathBbox3<double>(at - reach, at + reach));
    }
    return Box(box);
  }
};

std::vector<Capsule> make_fibres(uint kind, uint count) {
  std::mt19937 random(count + kind);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  const auto make_vec = [&] { return Vec(unit(random), unit(random), unit(random)); };
  std::vector<Capsule> fibres(count);
  for (uint k = 0; k < count; ++k) {
    Vec at = make_vec(), along = Vec(0.3, 0.25, 0.2) + make_vec() * 0.01;
    if (kind == upright) along = {0.0, 0.0, 0.4};
    if (kind == tangled) along = make_vec() * 0.3;
    if (kind == coincident) at = {}, along = {0.1, 0.2, 0.3};
    if (kind == points) along = {};
    if (kind == far_away) at += Vec(1e6, -1e6, 3e5);
    if (kind == huge) at = at * 1e36, along = along * 1e36;
    if (kind == with_infinite && k % 7 == 0) along.x = infinity;
    if (kind == with_nan && k % 3 == 0) at.y = std::nan("");
    fibres[k] = {at, at + along, kind == points ? 0.0 : 1e-3};
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
      boxes.push_back(fibre.measure({}));
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
      for (const uint item : items) box.add(static_cast<const Groom*>(owner)->fibres[item].measure(space));
      return box;
    };
  }
  Groom(Groom&&) = delete;  // the context points into the vectors

  GasBvhSplitSetGeom get_root() const {
    GasBvhSplitSetGeom root;
    root.count = ctx.item_count;
    root.box = ctx.compute_items_bbox(root, nullptr);
    return root;
  }
};

/// Axes at right angles, extents that can be inverted in single precision, and all fibres inside that are finite.
void expect_refitted(const Groom& groom, const GasBvhSplitSetGeom& set) {
  const GMathVec3<float> extent = set.space_box.get_extent();
  const float largest = std::max({extent.x, extent.y, extent.z});
  for (uint axis = 0; axis < 3; ++axis) {
    const Vec a(set.space.axis[axis]), b(set.space.axis[(axis + 1) % 3]);
    EXPECT_NEAR(a.dot(a), 1.0, 3e-7);
    EXPECT_NEAR(a.dot(b), 0.0, 3e-7);
    const float farthest = std::max(std::fabs(set.space_box.min[axis]), std::fabs(set.space_box.max[axis]));
    EXPECT_GE(extent[axis], std::max({largest * 1e-6f, farthest * 0x1p-20f, 1e-18f}));
    EXPECT_LE(extent[axis], 1e38f);
  }
  for (uint k = set.first; k < set.first + set.count; ++k) {
    Box box = groom.fibres[groom.order[k]].measure(set.space);
    const GMathVec3<float> size = box.get_extent();
    if (!std::isfinite(size.x + size.y + size.z)) continue;
    box.add(set.space_box);
    EXPECT_EQ(box, set.space_box);
  }
}

struct Outcome {
  uint splits = 0, oriented = 0, deepest = 0;
};
/// Splits on until no set of more than `enough` will. Every other half is refitted, as below an oriented node.
template <class Strategy>
Outcome split_down(Groom& groom, SysThreadManager* threads, uint enough = 1) {
  Strategy strategy;
  Outcome outcome;
  std::vector<std::pair<GasBvhSplitSetGeom, uint>> todo{{groom.get_root(), 0}};
  while (!todo.empty()) {
    auto [set, depth] = todo.back();
    todo.pop_back();
    outcome.deepest = std::max(outcome.deepest, depth);
    GasBvhSplitSetGeom halves[2];
    bool aligned = true;
    if constexpr (std::is_same_v<Strategy, GasBvhSplitUnaligned>) {
      if (depth % 2 == 1 && groom.ctx.oriented_cost < infinity) {
        strategy.refit(groom.ctx, set, threads);
        if (threads == nullptr) expect_refitted(groom, set);
      }
    }
    halves[0].refitted = halves[1].refitted = true;
    if (set.count <= enough) continue;
    if (!strategy.split(groom.ctx, set, halves[0], halves[1], aligned, threads)) {
      EXPECT_LE(set.count, groom.ctx.max_leaf);
      continue;
    }
    outcome.splits += 1;
    outcome.oriented += aligned ? 0 : 1;
    EXPECT_TRUE(halves[0].first == set.first && halves[1].first == set.first + halves[0].count);
    EXPECT_EQ(halves[0].count + halves[1].count, set.count);
    for (const GasBvhSplitSetGeom& half : halves) {
      EXPECT_TRUE(half.count > 0 && !half.refitted);
      EXPECT_EQ(half.box, groom.ctx.compute_items_bbox(half, nullptr));
      todo.push_back({half, depth + 1});
    }
  }
  return outcome;
}

TEST(GasBvhSplitUnaligned, any_fibres_come_apart_and_every_set_has_a_frame) {
  for (uint kind = 0; kind < kind_count; ++kind) {
    for (const uint count : {2u, 16u, 17u, 5000u}) {
      for (const uint max_leaf : {1u, 255u}) {
        SCOPED_TRACE("kind " + std::to_string(kind) + ", items " + std::to_string(count));
        Groom groom(make_fibres(kind, count));
        groom.ctx.max_leaf = max_leaf;
        const Outcome outcome = split_down<GasBvhSplitUnaligned>(groom, nullptr);
        EXPECT_LE(outcome.deepest, 60u);
        EXPECT_TRUE(max_leaf > 1 || outcome.splits == count - 1);
        EXPECT_TRUE(kind != slanted || count == 2 || outcome.oriented > outcome.splits / 2);
        EXPECT_TRUE(kind != upright || outcome.oriented <= outcome.splits / 10 + 2);
        std::vector<bool> seen(count);
        for (const uint item : groom.order) seen[item] = true;
        EXPECT_EQ(std::count(seen.begin(), seen.end(), true), count);
      }
    }
  }
}

TEST(GasBvhSplitUnaligned, without_oriented_boxes_it_is_the_aligned_strategy) {
  Groom plain(make_fibres(slanted, 3000)), groom(plain.fibres);
  groom.ctx.oriented_cost = infinity;
  plain.ctx.max_leaf = groom.ctx.max_leaf = 4;
  split_down<GasBvhSplitAligned>(plain, nullptr, 2);
  EXPECT_EQ(split_down<GasBvhSplitUnaligned>(groom, nullptr, 2).oriented, 0u);
  EXPECT_EQ(plain.order, groom.order);
}

TEST(GasBvhSplitUnaligned, frames_follow_the_fibres) {
  const Vec along(0.6, 0.64, 0.48), beside = along.cross({0.0, 0.0, 1.0}).get_normalized();
  const Capsule fibre{{}, along}, next{along, along * 2.0}, neighbour{beside, beside + along};
  const auto expect_extents = [](const std::vector<Capsule>& fibres, double x, double y) {
    Groom groom(fibres);
    GasBvhSplitSetGeom set = groom.get_root();
    GasBvhSplitUnaligned().refit(groom.ctx, set, nullptr);
    const double extents[3] = {x + 2e-3, y + 2e-3, 2e-3};
    for (uint axis = 0; axis < 3; ++axis) EXPECT_NEAR(set.space_box.get_extent()[axis], extents[axis], 1e-5);
  };
  expect_extents({fibre}, 1.0, 0.0);
  expect_extents({fibre, next}, 2.0, 0.0);
  expect_extents({fibre, neighbour}, 1.0, 1.0);
}

TEST(GasBvhSplitUnaligned, one_thread_and_many_give_the_same_order) {
  Groom serial(make_fibres(slanted, 70000));
  split_down<GasBvhSplitUnaligned>(serial, nullptr, 100);
  for (const uint thread_count : {1u, 2u, 8u}) {
    SysThreadManager threads(thread_count);
    Groom parallel(serial.fibres);
    split_down<GasBvhSplitUnaligned>(parallel, &threads, 100);
    EXPECT_TRUE(parallel.order == serial.order) << thread_count << " threads";
  }
}

}  // namespace
