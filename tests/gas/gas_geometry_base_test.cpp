// Primitive preparation: which primitives are kept, whose they are, what is logged, and which callbacks follow from it.
#include "gas/gas_geometry_base.h"

#include <array>
#include <limits>

#include "gas/gas_geometry_bvh4.h"
#include "support/fake_geometry.h"
#include "support/log_capture.h"
#include "support/ray_query.h"

namespace {

using Box = GMathBbox3<double>;
using Owners = std::vector<const GeometryObject*>;
constexpr double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();

/// Opens what preparation leaves behind.
class Prepared : public GasGeometryBvh4 {
 public:
  using GasGeometryBvh4::callbacks;

  std::vector<uint> get_primitives() const {
    std::vector<uint> all;
    for (uint position = 0; position < get_kept_count(); ++position) all.push_back(get_primitive(position));
    return all;
  }
  Owners get_owners() const {
    Owners all;
    for (uint position = 0; position < get_kept_count(); ++position) all.push_back(get_owner(position));
    return all;
  }
  bool create_by_groups(const CtxEval& ctx, const GeometryObject& main, const GeometryObject* alt,
                        const GeometryObject* extra, const std::vector<uint>& flags) {
    CoreBasicArray<uint> array;
    array.assign(flags.data(), static_cast<uint>(flags.size()));
    return create(ctx, &main, &main, alt, extra, array, nullptr);
  }
};

/// Whose primitive of the same number a ray meets that rises through `column` of a row; null: nobody's.
const GeometryObject* shoot(QueryWorld& world, const GasObject& structure, uint column) {
  const GeometryIntersection hit = shoot(world, structure, TestRay{{2.0 * column + 0.5, 0.5, -1}, {0, 0, 1}});
  EXPECT_TRUE(hit.geometry == nullptr || hit.primitive == column);
  return hit.geometry;
}

/// Three geometries with the same ten primitives, one above the other, in five groups that come in turn.
struct Grouped {
  Grouped() {
    uint height = 0;
    for (FakeGeometry* geometry : {&main, &alt, &extra}) {
      geometry->add_row(10);
      for (uint k = 0; k < 10; ++k) {
        geometry->groups.push_back(k % 5);
        geometry->boxes[k].min.z = geometry->boxes[k].max.z = height;
      }
      ++height;
    }
  }
  FakeGeometry main{5}, alt{5}, extra{5};
};

TEST(GasGeometryBase, bad_boxes_are_dropped_in_order_and_reported_once) {
  FakeGeometry geometry;
  geometry.add_row(1000);
  std::vector<uint> kept;
  for (uint k = 0; k < 1000; ++k) {
    Box& box = geometry.boxes[k];
    const uint bound = k / 7 % 6;
    if (k % 7 != 3) {
      kept.push_back(k);
      if (k % 7 == 4) box.max = box.min;
    } else if (k / 42 % 4 == 3) {
      std::swap(box.min[bound % 3], box.max[bound % 3]);
    } else {
      (bound < 3 ? box.min[bound] : box.max[bound - 3]) = std::array{nan, inf, -inf}[k / 42 % 4];
    }
  }
  QueryWorld world(8, 3);
  const CtxEval& thread_ctx = world.ctx.create_thread_ctx(0);
  for (const bool serial : {false, true}) {
    for (const uint level : {1u, 2u}) {
      LogCapture log(level);
      Prepared structure;
      ASSERT_TRUE(structure.create(serial ? thread_ctx : world.ctx, &geometry, &geometry, nullptr));
      EXPECT_EQ(structure.get_primitives(), kept);
      std::vector<std::string> expected;
      if (!serial && level == 2)
        expected.push_back("2: GasGeometry.create: 143/1000 bboxes have been removed because of invalid values!\n");
      EXPECT_EQ(log.messages, expected);
    }
  }
}

TEST(GasGeometryBase, flags_say_who_supplies_a_group) {
  for (const bool serial : {false, true}) {
    QueryWorld world(8, 2);
    Grouped g;
    // Drops at the borders of all three lists and the same primitive in two of them.
    for (const uint bad : {0u, 9u}) g.main.boxes[bad].min.y = nan;
    g.alt.boxes[1].max.z = inf;
    for (const uint bad : {2u, 8u}) g.extra.boxes[bad].min.x = nan;
    for (FakeGeometry* moving : {&g.alt, &g.extra}) {
      moving->group_moves.assign(5, 1);
      moving->velocity = {0, moving == &g.alt ? 8.0 : 16.0, 0};
    }
    LogCapture log(2);
    Prepared structure;
    ASSERT_TRUE(structure.create_by_groups(serial ? world.ctx.create_thread_ctx(0) : world.ctx, g.main, &g.alt,
                                           &g.extra, {0, 1, 2, 3, 0xFFFFFFFCu}));
    // Main: groups 0, 2, 4. Alt: groups 1, 3. Extra: groups 2, 3.
    const std::vector<uint> primitives = {5, 2, 7, 4, 6, 3, 8, 7, 3};
    EXPECT_EQ(structure.get_primitives(), primitives);
    const GeometryObject *a = &g.main, *b = &g.alt, *c = &g.extra, *none = nullptr;
    EXPECT_EQ(structure.get_owners(), (Owners{a, a, a, a, b, b, b, c, c}));
    EXPECT_EQ(log.messages.size(), serial ? 0u : 1u);
    // Rays from below meet main before alt before extra.
    const Owners owners = {none, none, a, b, a, a, b, a, b, none};
    for (uint k = 0; k < 10; ++k) EXPECT_EQ(shoot(world, structure, k), owners[k]) << k;
    GeometryFrustumCtx all;
    all.mode = static_cast<uint>(GeometryFrustumMode::all);
    all.shading = &world.shading;
    structure.frustum_hit(world.ctx, world.shader, all);
    EXPECT_EQ(all.result.total, 5 * 2 + 2 * 2) << "a group that two geometries supply counts twice";
    EXPECT_EQ(g.main.frustum_asked, (std::set<uint>{2, 4, 5, 7}));
    EXPECT_EQ(g.alt.frustum_asked, (std::set<uint>{3, 6, 8}));
    EXPECT_EQ(g.extra.frustum_asked, (std::set<uint>{3, 7}));
    // Each is refitted to where its own owner has it.
    const CtxMotionBlur blur(0.0, 1.0, 2);
    for (uint k = 0; k < 9; ++k) {
      const double y = k < 4 ? 0.5 : k < 7 ? 8.5 : 16.5;
      const TestRay ray{{2.0 * primitives[k] + 0.5, y, -1}, {0, 0, 1}, 0.0, DBL_MAX, 1.0};
      EXPECT_EQ(shoot(world, structure, ray, &blur).geometry, structure.get_owners()[k]) << k;
    }
  }
}

TEST(GasGeometryBase, flags_of_the_wrong_size_change_nothing) {
  QueryWorld world;
  Grouped g;
  FakeGeometry small(5);
  small.add_row(1);
  Prepared structure;
  EXPECT_FALSE(structure.create_by_groups(world.ctx, small, &g.alt, nullptr, {}));
  EXPECT_EQ(shoot(world, structure, 0), nullptr);
  ASSERT_TRUE(structure.create(world.ctx, &g.main, &g.main, nullptr));
  for (const uint size : {0u, 4u, 6u}) {
    EXPECT_FALSE(structure.create_by_groups(world.ctx, small, &g.alt, nullptr, std::vector<uint>(size)));
    EXPECT_EQ(shoot(world, structure, 9), &g.main);
  }
  // Without a third or fourth geometry nobody looks at the flags.
  EXPECT_TRUE(structure.create_by_groups(world.ctx, small, nullptr, nullptr, {1, 2}));
  EXPECT_EQ(shoot(world, structure, 0), &small);
}

TEST(GasGeometryBase, groups_that_do_not_exist) {
  QueryWorld world;
  Grouped g;
  g.main.groups[3] = 5;
  g.main.groups[4] = core_invalid_index;
  Prepared structure;
  ASSERT_TRUE(structure.create(world.ctx, &g.main, &g.main, nullptr));
  EXPECT_EQ(structure.get_kept_count(), 10u);
  // The table of the query decides: group 5 is in it, the other is not.
  EXPECT_EQ(shoot(world, structure, 3), &g.main);
  EXPECT_EQ(shoot(world, structure, 4), nullptr);
  ASSERT_TRUE(structure.create_by_groups(world.ctx, g.main, &g.alt, nullptr, {0, 0, 0, 0, 0}));
  EXPECT_EQ(structure.get_primitives(), (std::vector<uint>{0, 5, 1, 6, 2, 7, 8, 9}));

  // The same where there is one group, so that a leaf could do without asking.
  FakeGeometry one;
  one.add_row(2);
  one.groups = {0, 1000};
  ASSERT_TRUE(structure.create(world.ctx, &one, &one, nullptr));
  EXPECT_EQ(shoot(world, structure, 0), &one);
  EXPECT_EQ(shoot(world, structure, 1), nullptr);
}

TEST(GasGeometryBase, only_the_identity_order_does_without_its_index_array) {
  QueryWorld world;
  LogCapture log(0);
  FakeGeometry main(2), alt(2);
  main.add_row(6);
  alt.add_row(6);
  Prepared structure;
  ASSERT_TRUE(structure.create(world.ctx, &main, &main, nullptr));
  const u64 records = u64{6} * main.get_record_size();
  const u64 without = structure.get_memory_size() - records;
  const struct {
    std::vector<uint> groups, flags;
    const GeometryObject* owner;
    bool has_indices;
  } rows[] = {{{1, 0, 1, 0, 1, 0}, {0, 0}, &main, true},  // all of one geometry, but in the order of the groups
              {{0, 0, 0, 1, 1, 1}, {0, 0}, &main, false},
              {{0, 0, 0, 1, 1, 1}, {1, 1}, &alt, true}};
  for (const auto& row : rows) {
    main.groups = alt.groups = row.groups;
    ASSERT_TRUE(structure.create_by_groups(world.ctx, main, &alt, nullptr, row.flags));
    for (uint k = 0; k < 6; ++k) EXPECT_EQ(shoot(world, structure, k), row.owner);
    EXPECT_EQ(structure.get_record_bytes(), row.has_indices ? 0u : records) << "one geometry owns all";
    EXPECT_EQ(structure.get_memory_size(), without + (row.has_indices ? 6 * sizeof(uint) : records));
  }
  // The last one dropped: what is left is in its own order, but counts differ.
  main.boxes[5].min.x = nan;
  ASSERT_TRUE(structure.create(world.ctx, &main, &main, nullptr));
  EXPECT_EQ(structure.get_primitives(), (std::vector<uint>{0, 1, 2, 3, 4}));
  for (Box& box : main.boxes) box.min.x = nan;
  ASSERT_TRUE(structure.create(world.ctx, &main, &main, nullptr));
  EXPECT_EQ(shoot(world, structure, 0), nullptr);
  EXPECT_EQ(structure.get_bbox(), Box(GMathBbox3<float>()));
}

TEST(GasGeometryBase, motion_is_what_the_suppliers_of_the_groups_say) {
  QueryWorld world;
  const struct {
    uint moving, flags;  ///< which geometry's second group moves, who supplies the group
    bool expected;
  } rows[] = {{0, 0, true}, {0, 1, false}, {1, 1, true}, {1, 0, false}, {2, 2, true}, {2, 3, true}, {2, 1, false}};
  Prepared structure;
  for (const auto& row : rows) {
    FakeGeometry geometries[3] = {FakeGeometry(2), FakeGeometry(2), FakeGeometry(2)};
    for (FakeGeometry& geometry : geometries) {
      geometry.add_row(2);
      geometry.groups = {0, 1};
      geometry.moves = !row.expected;  // not asked when groups are
    }
    geometries[row.moving].group_moves[1] = 1;
    ASSERT_TRUE(structure.create_by_groups(world.ctx, geometries[0], &geometries[1], &geometries[2], {0, row.flags}));
    EXPECT_EQ(structure.get_has_motion(), row.expected) << row.moving << " " << row.flags;
    EXPECT_EQ(structure.callbacks.ray_hit_motion != structure.callbacks.ray_hit_static, row.expected);
    // One geometry for all: its whole answer, whatever its groups say.
    ASSERT_TRUE(structure.create(world.ctx, &geometries[0], &geometries[0], nullptr));
    EXPECT_EQ(structure.get_has_motion(), !row.expected);
  }
}

}  // namespace
