// Primitive preparation: which primitives are kept, whose they are, what is logged, and which callbacks follow from it.
#include "gas/gas_geometry_base.h"

#include <gtest/gtest.h>

#include <limits>
#include <mutex>

#include "gas/gas_geometry_bvh4.h"
#include "support/fake_geometry.h"
#include "support/query_world.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_core/core_log.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_ray_packet.h"

namespace {

using Box = GMathBbox3<double>;
constexpr double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();

/// Opens what preparation leaves behind.
class Prepared : public GasGeometryBvh4 {
 public:
  using GasGeometryBase::get_owner;
  using GasGeometryBase::get_primitive;
  using GasGeometryBase::get_primitive_array_bytes;
  using GasGeometryBase::group_primitive_counts;
  using GasGeometryBase::init_primitives;
  using GasGeometryBase::primitives;
  using GasGeometryBvh4::callbacks;

  std::vector<uint> get_primitives() const {
    std::vector<uint> all;
    for (uint position = 0; position < get_kept_count(); ++position) all.push_back(get_primitive(position));
    return all;
  }
  std::vector<const GeometryObject*> get_owners() const {
    std::vector<const GeometryObject*> all;
    for (uint position = 0; position < get_kept_count(); ++position) all.push_back(get_owner(position));
    return all;
  }
};

/// Collects the log while it lives.
class LogCapture {
 public:
  explicit LogCapture(uint level) : former_level_(CoreLogHandler::get_main().get_level()) {
    CoreLogHandler::get_main().set_level(level);
    former_ = CoreLogHandler::get_main().set_sink([this](const CoreString& message, const uint& message_level) {
      messages.emplace_back(message.get_data());
      levels.push_back(message_level);
    });
  }
  ~LogCapture() {
    CoreLogHandler::get_main().set_sink(former_);
    CoreLogHandler::get_main().set_level(former_level_);
  }
  std::vector<std::string> messages;
  std::vector<uint> levels;

 private:
  uint former_level_;
  CoreLogHandler::Sink former_;
};

CoreBasicArray<uint> make_flags(const std::vector<uint>& flags) {
  CoreBasicArray<uint> array;
  array.assign(flags.data(), static_cast<uint>(flags.size()));
  return array;
}

/// Which geometry and primitive the ray at x hits; no geometry for none.
std::pair<const GeometryObject*, uint> shoot(QueryWorld& world, const GasObject& structure, double x) {
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {x, 0.5, -1}, {0, 0, 1});
  structure.ray_hit_nearest_static(world.ctx, world.shader, packet.begin_nearest(world.shading));
  return {packet.get_nearest(0).geometry, packet.get_nearest(0).primitive};
}

/// Every 7th box is bad, each time in another way; the good ones in between include points, flat and enormous boxes.
FakeGeometry& make_mixed(FakeGeometry& geometry, uint count, std::vector<uint>& kept) {
  geometry.add_row(count);
  for (uint k = 0; k < count; ++k) {
    Box& box = geometry.boxes[k];
    if (k % 7 != 3) {
      kept.push_back(k);
      if (k % 7 == 4) box.max = box.min;
      if (k % 7 == 5) box.max.y = box.min.y;
      continue;
    }
    const uint bound = k / 7 % 6;
    double& value = bound < 3 ? box.min[bound] : box.max[bound - 3];
    switch (k / 42 % 4) {
      case 0:
        value = nan;
        break;
      case 1:
        value = inf;
        break;
      case 2:
        value = -inf;
        break;
      default:
        std::swap(box.min[bound % 3], box.max[bound % 3]);
        break;
    }
  }
  return geometry;
}

TEST(GasGeometryBase, bad_boxes_are_dropped_in_order_and_reported_once) {
  for (const uint threads : {1u, 3u}) {
    QueryWorld world(8, threads);
    FakeGeometry geometry;
    std::vector<uint> kept;
    make_mixed(geometry, 1000, kept);
    ASSERT_EQ(geometry.boxes.size() - kept.size(), 143u);
    const std::string expected = "GasGeometry.create: 143/1000 bboxes have been removed because of invalid values!\n";
    const CtxEval& thread_ctx = world.ctx.create_thread_ctx(0);
    for (const bool serial : {false, true}) {
      for (const uint level : {1u, 2u}) {
        LogCapture log(level);
        Prepared structure;
        ASSERT_TRUE(structure.create(serial ? thread_ctx : world.ctx, &geometry, &geometry, nullptr));
        EXPECT_EQ(structure.get_primitives(), kept);
        EXPECT_EQ(structure.get_candidate_count(), 1000u);
        if (serial || level < 2) {
          EXPECT_TRUE(log.messages.empty());
        } else {
          EXPECT_EQ(log.messages, std::vector<std::string>{expected});
          EXPECT_EQ(log.levels, std::vector<uint>{2});
        }
      }
    }
  }
}

TEST(GasGeometryBase, boxes_are_rounded_to_the_nearest_float_after_the_test) {
  QueryWorld world;
  FakeGeometry geometry;
  geometry.boxes = {Box({0.1, 0.1, 0.1}, {0.1, 0.1, 0.1}), Box({-1e300, 0, 0}, {1e300, 1, 1}),
                    Box({0, 0, 0}, {0, 0, -1e-300}), Box({-0.0, 0, 0}, {0, 0, 0})};
  Prepared structure;
  CoreVector<GMathBbox3<float>> boxes;
  LogCapture log(2);
  ASSERT_TRUE(structure.init_primitives(world.ctx, &geometry, &geometry, nullptr, nullptr, {}, boxes, nullptr));
  ASSERT_EQ(boxes.get_count(), 3u);
  EXPECT_EQ(boxes[0].min.x, 0.1f);
  EXPECT_EQ(boxes[0].max.x, 0.1f);
  EXPECT_EQ(boxes[1].max.x, std::numeric_limits<float>::infinity());
  EXPECT_EQ(structure.get_primitives(), (std::vector<uint>{0, 1, 3}));
}

/// Three geometries with the same ten primitives in five groups; the groups come in turn.
struct Grouped {
  Grouped() {
    uint height = 0;
    for (FakeGeometry* geometry : {&geometry_, &alt, &extra}) {
      geometry->add_row(10);
      for (uint k = 0; k < 10; ++k) {
        geometry->groups.push_back(k % 5);
        geometry->boxes[k].min.z = geometry->boxes[k].max.z = height;
      }
      ++height;
    }
  }
  FakeGeometry geometry_{5}, alt{5}, extra{5};
};

TEST(GasGeometryBase, flags_say_who_supplies_a_group) {
  for (const bool serial : {false, true}) {
    QueryWorld world(8, 2);
    const CtxEval& ctx = serial ? world.ctx.create_thread_ctx(0) : world.ctx;
    Grouped g;
    // Drops at the borders of all three lists and the same primitive in two of them.
    for (const uint bad : {0u, 9u}) g.geometry_.boxes[bad].min.y = nan;
    g.alt.boxes[1].max.z = inf;
    g.extra.boxes[2].min.x = nan;
    g.extra.boxes[8].min.x = nan;
    const CoreBasicArray<uint> flags = make_flags({0, 1, 2, 3, 0xFFFFFFFCu});
    LogCapture log(2);
    Prepared structure;
    ASSERT_TRUE(structure.create(ctx, &g.geometry_, &g.geometry_, &g.alt, &g.extra, flags, nullptr));
    // Geometry: groups 0, 2, 4. Alt: groups 1, 3. Extra: groups 2, 3.
    EXPECT_EQ(structure.get_primitives(), (std::vector<uint>{5, 2, 7, 4, 6, 3, 8, 7, 3}));
    const GeometryObject *a = &g.geometry_, *b = &g.alt, *c = &g.extra;
    EXPECT_EQ(structure.get_owners(), (std::vector<const GeometryObject*>{a, a, a, a, b, b, b, c, c}));
    EXPECT_EQ(structure.get_candidate_count(), 14u);
    const std::vector<uint> counts(structure.group_primitive_counts.begin(), structure.group_primitive_counts.end());
    EXPECT_EQ(counts, (std::vector<uint>{2, 2, 4, 4, 2}));
    EXPECT_EQ(log.messages.size(), serial ? 0u : 1u);
    if (!serial) {
      EXPECT_EQ(log.messages[0], "GasGeometry.create: 5/14 bboxes have been removed because of invalid values!\n");
    }
    // Rays from below meet geometry (z = 0) before alt (1) before extra (2).
    const auto expect = [&](uint primitive, const GeometryObject* owner) {
      const auto hit = shoot(world, structure, 2.0 * primitive + 0.5);
      EXPECT_EQ(hit.first, owner) << primitive;
      if (owner != nullptr) {
        EXPECT_EQ(hit.second, primitive);
      }
    };
    expect(0, nullptr);
    expect(1, nullptr);
    expect(2, a);
    expect(3, b);
    expect(4, a);
    expect(6, b);
    expect(7, a);
    expect(8, b);
    expect(9, nullptr);
  }
}

TEST(GasGeometryBase, flags_of_the_wrong_size_change_nothing) {
  QueryWorld world;
  Grouped g;
  FakeGeometry small(5);
  small.add_row(1);
  Prepared structure;
  for (const std::vector<uint>& wrong : {std::vector<uint>{}, {0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}}) {
    EXPECT_FALSE(structure.create(world.ctx, &small, &small, &g.alt, nullptr, make_flags(wrong), nullptr));
    EXPECT_EQ(structure.callbacks.ray_hit_static, nullptr);
    EXPECT_EQ(shoot(world, structure, 0.5).first, nullptr);
  }
  ASSERT_TRUE(structure.create(world.ctx, &g.geometry_, &g.geometry_, nullptr));
  const u64 size = structure.get_memory_size();
  EXPECT_FALSE(structure.create(world.ctx, &small, &small, nullptr, &g.extra, make_flags({1}), nullptr));
  EXPECT_EQ(shoot(world, structure, 18.5), (std::pair<const GeometryObject*, uint>(&g.geometry_, 9)));
  EXPECT_EQ(structure.get_memory_size(), size);
  EXPECT_EQ(structure.get_candidate_count(), 10u);
  // Without a third or fourth geometry nobody looks at the flags.
  EXPECT_TRUE(structure.create(world.ctx, &small, &small, nullptr, nullptr, make_flags({1, 2}), nullptr));
  EXPECT_EQ(shoot(world, structure, 0.5).first, &small);
}

TEST(GasGeometryBase, groups_that_do_not_exist) {
  QueryWorld world;
  Grouped g;
  g.geometry_.groups[3] = 5;
  g.geometry_.groups[4] = core_invalid_index;
  Prepared structure;
  ASSERT_TRUE(structure.create(world.ctx, &g.geometry_, &g.geometry_, nullptr));
  EXPECT_EQ(structure.get_kept_count(), 10u);
  EXPECT_EQ(structure.group_primitive_counts[3], 1u);
  EXPECT_EQ(structure.group_primitive_counts[4], 1u);
  // The table of the query decides: group 5 is in it, the other is not.
  EXPECT_EQ(shoot(world, structure, 6.5).first, &g.geometry_);
  EXPECT_EQ(shoot(world, structure, 8.5).first, nullptr);
  ASSERT_TRUE(
      structure.create(world.ctx, &g.geometry_, &g.geometry_, &g.alt, nullptr, make_flags({0, 0, 0, 0, 0}), nullptr));
  EXPECT_EQ(structure.get_primitives(), (std::vector<uint>{0, 5, 1, 6, 2, 7, 8, 9}));

  // The same where there is one group, so that a leaf could do without asking.
  FakeGeometry one;
  one.add_row(2);
  one.groups = {0, 1000};
  ASSERT_TRUE(structure.create(world.ctx, &one, &one, nullptr));
  EXPECT_EQ(shoot(world, structure, 0.5).first, &one);
  EXPECT_EQ(shoot(world, structure, 2.5).first, nullptr);
}

TEST(GasGeometryBase, only_the_identity_order_does_without_its_index_array) {
  QueryWorld world;
  LogCapture log(0);
  FakeGeometry geometry(2);
  geometry.add_row(6);
  FakeGeometry alt(2);
  alt.add_row(6);
  Prepared structure;
  const auto expect_all_found = [&] {
    for (uint k = 0; k < 6; ++k) EXPECT_EQ(shoot(world, structure, 2.0 * k + 0.5).second, k);
  };
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, nullptr));
  EXPECT_TRUE(structure.primitives.is_empty());
  const u64 without = structure.get_memory_size();
  expect_all_found();
  // All from one geometry, but in the order of the groups.
  geometry.groups = alt.groups = {1, 0, 1, 0, 1, 0};
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, &alt, nullptr, make_flags({0, 0}), nullptr));
  EXPECT_EQ(structure.get_primitives(), (std::vector<uint>{1, 3, 5, 0, 2, 4}));
  EXPECT_EQ(structure.get_memory_size(), without + 6 * sizeof(uint));
  expect_all_found();
  geometry.groups = alt.groups = {0, 0, 0, 1, 1, 1};
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, &alt, nullptr, make_flags({0, 0}), nullptr));
  EXPECT_TRUE(structure.primitives.is_empty());
  expect_all_found();
  // All from another.
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, &alt, nullptr, make_flags({1, 1}), nullptr));
  EXPECT_FALSE(structure.primitives.is_empty());
  EXPECT_EQ(shoot(world, structure, 0.5).first, &alt);
  // The last one dropped: what is left is in its own order, but counts differ.
  geometry.boxes[5].min.x = nan;
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, nullptr));
  EXPECT_EQ(structure.get_kept_count(), 5u);
  EXPECT_EQ(shoot(world, structure, 8.5).second, 4u);
  for (Box& box : geometry.boxes) box.min.x = nan;
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, nullptr));
  EXPECT_EQ(structure.get_kept_count(), 0u);
  EXPECT_EQ(shoot(world, structure, 0.5).first, nullptr);
  EXPECT_EQ(structure.get_bbox(), Box(GMathBbox3<float>()));
}

TEST(GasGeometryBase, motion_is_what_the_suppliers_of_the_groups_say) {
  QueryWorld world;
  for (uint moving = 0; moving < 64; ++moving) {
    for (uint flags = 0; flags < 16; ++flags) {
      FakeGeometry geometry(2), alt(2), extra(2);
      FakeGeometry* const all[] = {&geometry, &alt, &extra};
      for (uint k = 0; k < 3; ++k) {
        all[k]->add_row(2);
        all[k]->groups = {0, 1};
        for (uint group = 0; group < 2; ++group) all[k]->group_moves[group] = moving >> (2 * k + group) & 1;
      }
      geometry.moves = moving % 3 == 0;  // not asked when groups are
      const uint group_flags[2] = {flags & 3, flags >> 2};
      bool expected = false;
      for (uint group = 0; group < 2; ++group) {
        expected |= all[group_flags[group] & 1 ? 1 : 0]->group_moves[group] != 0;
        expected |= (group_flags[group] & 2) != 0 && extra.group_moves[group] != 0;
      }
      Prepared structure;
      ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, &alt, &extra,
                                   make_flags({group_flags[0], group_flags[1]}), nullptr));
      EXPECT_EQ(structure.get_has_motion(), expected) << moving << " " << flags;
      const auto& slots = structure.callbacks;
      EXPECT_EQ(slots.ray_hit_static, GasGeometryBvh4::ray_hit_static_callback);
      EXPECT_EQ(slots.ray_hit_nearest_static, GasGeometryBvh4::ray_hit_nearest_static_callback);
      EXPECT_EQ(slots.frustum_hit, GasGeometryBvh4::frustum_hit_callback);
      EXPECT_EQ(slots.ray_hit_motion,
                expected ? GasGeometryBvh4::ray_hit_motion_callback : GasGeometryBvh4::ray_hit_static_callback);
      EXPECT_EQ(slots.ray_hit_nearest_motion, expected ? GasGeometryBvh4::ray_hit_nearest_motion_callback
                                                       : GasGeometryBvh4::ray_hit_nearest_static_callback);
    }
    // One geometry for all: its whole answer, whatever its groups say. A second create changes the slots back.
    FakeGeometry geometry;
    geometry.add_row(1);
    geometry.group_moves[0] = moving & 1;
    Prepared structure;
    for (const bool moves : {true, false, true}) {
      geometry.moves = moves;
      ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, nullptr));
      EXPECT_EQ(structure.get_has_motion(), moves);
      EXPECT_EQ(structure.callbacks.ray_hit_motion == GasGeometryBvh4::ray_hit_motion_callback, moves);
    }
  }
}

TEST(GasGeometryBase, progress_has_its_stages_weights_and_steps) {
  struct Row {
    uint depth;
    double weight;
    uint steps;
    bool operator==(const Row&) const = default;
  };
  const auto get_rows = [](const AppProgressBar& progress) {
    std::vector<Row> rows;
    for (const AppProgressTask& task : progress.get_task_log())
      rows.push_back({task.depth, task.weight, task.step_count});
    return rows;
  };
  QueryWorld world(8, 2);
  Grouped g;
  Prepared structure;
  AppProgressBar* progress = world.app.create_progress_bar("one");
  ASSERT_TRUE(structure.create(world.ctx, &g.geometry_, &g.geometry_, progress));
  std::vector<Row> rows = get_rows(*progress);
  const uint nodes = structure.get_tree().aligned_count + structure.get_tree().quantized_count;
  EXPECT_TRUE(
      (rows == std::vector<Row>{{0, 0.5, 0}, {1, 0.2, 10}, {1, 0.8, 10}, {0, 0.5, 0}, {1, 0.9, 10}, {1, 0.1, nodes}}));
  EXPECT_DOUBLE_EQ(progress->get_progress(), 1.0);
  progress->finish();

  progress = world.app.create_progress_bar("grouped");
  ASSERT_TRUE(
      structure.create(world.ctx, &g.geometry_, &g.geometry_, &g.alt, &g.extra, make_flags({0, 1, 2, 3, 0}), progress));
  rows = get_rows(*progress);
  rows.resize(5);
  EXPECT_TRUE((rows == std::vector<Row>{{0, 0.5, 0}, {1, 0.2, 10}, {1, 0.1, 5}, {1, 0.1, 5}, {1, 0.6, 14}}));
  EXPECT_DOUBLE_EQ(progress->get_progress(), 1.0);
  progress->finish();
  // A refused call leaves no task open.
  progress = world.app.create_progress_bar("refused");
  EXPECT_FALSE(structure.create(world.ctx, &g.geometry_, &g.geometry_, &g.alt, nullptr, make_flags({}), progress));
  progress->begin_task("next", 0.1);
  EXPECT_EQ(progress->get_task_log().back().depth, 0u);
  progress->finish();
}

TEST(GasGeometryBase, tasks_step_in_order_of_positions) {
  QueryWorld world(8, 4);
  FakeGeometry geometry;
  geometry.add_row(5000);
  AppProgressBar* progress = world.app.create_progress_bar("steps");
  std::mutex mutex;
  uint last = 0;
  progress->set_sink(
      [&](const AppProgressReport& report) {
        const std::lock_guard guard(mutex);
        if (report.step_count != 0) {
          EXPECT_LE(report.step_position, report.step_count);
          last = std::max(last, report.step_position);
        }
      },
      std::chrono::milliseconds(0));
  GasGeometryBvh4 structure;
  ASSERT_TRUE(structure.create(world.ctx, &geometry, &geometry, progress));
  EXPECT_DOUBLE_EQ(progress->get_progress(), 1.0);
  progress->finish();
  EXPECT_GT(last, 4000u);
}

}  // namespace
