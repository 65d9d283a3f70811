// The structure over curves against brute force over all segments: nearest and all hits, what is kept, shading,
// frustums, copies. Clusters and modes of frustums, which all structures share, are tested with meshes.
#include "gas/gas_fur.h"

#include "support/curve_check.h"
#include "support/test_scale.h"
#include "support/tree_oracle.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

using Vec = GMathVec3<double>;

TEST(GasFur, finds_what_testing_every_segment_finds) {
  QueryWorld world;
  for (uint seed = 0; seed < scaled(3, 1); ++seed) {
    for (const CurveScene& scene : make_curve_scenes(40, seed * 20)) {
      HitCheck check = make_curve_check(scene.data, make_curve_rays(CurveOracle(scene.data), scaled(300, 60), seed));
      EXPECT_GT(check.count_sure_hits(), scaled(80, 16)) << scene.name;
      for (const uint variant : {0u, 1u, 2u, 3u}) {
        const bool oriented = variant & 1, recorded = variant & 2;
        CurveData data = scene.data;
        data.least_recorded_segments = recorded ? 0 : CurveData::no_records;
        const BuiltFur built(world.ctx, data, oriented);
        EXPECT_EQ(built.structure.get_record_bytes() > 0, recorded && built.structure.get_kept_count() > 0);
        check.name = scene.name + ", variant " + std::to_string(variant) + ", seed " + std::to_string(seed);
        check.check(world, built.structure, !oriented);
        EXPECT_TRUE(oriented || built.structure.get_tree().oriented_count == 0);
        if (scene.name == "bundle" || scene.name == "collinear") {
          EXPECT_EQ(built.structure.get_tree().oriented_count > 0, oriented) << check.name;
        }
      }
    }
  }
}

// Rays through curves and up to two radii beside them, from near and from far away, with and without a curve far from
// all others: lanes stay as tight as they are without.
TEST(GasFur, curves_and_cameras_far_away_neither_lose_hits_nor_cost_visits) {
  QueryWorld world;
  const CtxMotionBlur shutter(0.0, 1.0, 2);
  for (uint mask = 0; mask < 8; ++mask) {
    const bool moving = mask & 1, stray = mask & 2;
    CurveData data = make_hair(CurveBasis::linear, 300, 7, 0.0, 3.0, 1e-3, 3);
    if (stray) add_curve(data, {{1e5, -2e5, 1e5}, {1, 2, -1}});
    if (moving) add_motion(data, 2, 0.0, 1.0, 8, true);
    for (std::size_t k = 0; k < data.points.size() && moving; ++k)  // all fly alike, so that boxes stay tight
      data.motion_points[1][k].position = data.points[k].position + GMathVec3<float>(2, 3, 1);
    const double time = moving ? 0.25 : NAN;
    const CurveOracle oracle(data, time);
    RandomValues random(9);
    std::vector<TestRay> rays;
    for (uint k = 0; k < 600; ++k) {
      const CurveOracle::Ball& ball = oracle.get_segments()[k].balls[k % 2];
      TestRay ray{ball.position + random.get_vec().get_normalized() * (mask & 4 ? 1e5 : 3.0), {}};
      ray.direction = ball.position - ray.origin;
      ray.origin += ray.direction.cross(random.get_vec()).get_normalized() * (ball.radius * random.get(0.0, 2.0));
      ray.time = time;
      rays.push_back(ray);
    }
    HitCheck check = make_curve_check(data, rays, moving ? &shutter : nullptr);
    const BuiltFur built(world.ctx, data);
    check.name = "case " + std::to_string(mask);
    check.check(world, built.structure, false);
    EXPECT_GT(check.count_sure_hits(), 150u);
    GeometryRayPacket packet;
    std::vector<GeometryRayVisits> visits(rays.size());
    const auto count = [&](GeometryRaytraceCtx& query) { query.visits = visits.data(); };
    ask_rays(world, built.structure, packet, rays, {true, check.motion_blur, count});
    uint leaves = 0;
    for (const GeometryRayVisits& of_ray : visits) leaves += of_ray.leaves;
    EXPECT_LT(leaves, 620u) << check.name;  // without oriented nodes 3000 and more
  }
}

// The others would have oriented lanes beside it, in which it does not fit.
TEST(GasFur, a_curve_that_reaches_the_end_of_the_float_range_is_hit_there) {
  QueryWorld world;
  RandomValues random(3);
  CurveData data;
  for (uint k = 0; k < 300; ++k) add_curve(data, {random.get_vec(0.02), {1, 2, 3}, 0.8, 0.0, 1e-3, 2});
  add_curve(data, {{0, 0, 0}, {1, 2, 3}, 6e37, 0.0, 2e36, 2});
  const BuiltFur built(world.ctx, data);
  EXPECT_GT(built.structure.get_tree().oriented_count, 100u);
  const Vec target = Vec(data.points.back().position) * 0.7;
  EXPECT_EQ(shoot(world, built.structure, {target + Vec(1e38, 0, 0), {-1, 0, 0}}).primitive, 300u);
}

TEST(GasFur, keeps_finite_segments_whoever_asks_for_their_boxes) {
  QueryWorld world;
  for (const uint count : {1023u, 1024u, 9000u}) {
    CurveData data = make_hair(CurveBasis::linear, count, count, 0.0, 0.5, 0.01, 2);  // one segment a curve
    std::vector<uint> valid, kept;
    for (uint k = 0; k < count; ++k) {
      if (k % 7 != 6) valid.push_back(k);
      if (k % 7 == 6) data.points[2 * k + k / 7 % 2].position[k % 3] = k % 2 == 0 ? NAN : HUGE_VALF;
    }
    const BuiltFur serial(world.ctx, data);
    const GasBvh<4>& tree = serial.structure.get_tree();
    kept.assign(tree.order, tree.order + tree.item_count);
    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(kept, valid);
    EXPECT_GT(tree.oriented_count, 0u);
    for (const uint threads : {1u, 2u, 4u, 7u}) {
      QueryWorld crowd(8, threads);
      AppProgressBar* progress = crowd.app.create_progress_bar("fur");
      const BuiltFur parallel(crowd.ctx, data, true, progress);
      progress->finish();
      ASSERT_EQ(find_tree_difference(parallel.structure.get_tree(), tree), "") << count << " on " << threads;
    }
  }
}

TEST(GasFur, copies_and_rebuilt_structures_answer_for_themselves) {
  QueryWorld world;
  CurveData data = make_hair(CurveBasis::bspline, 60, 3, 0.1, 0.5);
  const HitCheck truth = make_curve_check(data, make_curve_rays(CurveOracle(data), 150, 4));
  const u64 bytes_without_records = BuiltFur(world.ctx, data).structure.get_memory_size();
  data.least_recorded_segments = 60 * 4;
  BuiltFur built(world.ctx, data);
  EXPECT_EQ(built.structure.get_memory_size(), bytes_without_records + u64{60} * 4 * 64);
  const BuiltFur none(world.ctx, CurveData());
  const GasFur copy(built.structure);
  GasFur assigned(none.structure);
  assigned = built.structure;
  assigned = *&assigned;
  ASSERT_TRUE(built.structure.create(world.ctx, &none.geometry, &none.geometry, nullptr));
  for (const GasFur* structure : {&copy, &std::as_const(assigned)}) {
    HitCheck(truth).check(world, *structure, false);
    EXPECT_EQ(find_tree_difference(structure->get_tree(), copy.get_tree()), "");
    GeometryFrustumCtx all;
    all.mode = static_cast<uint>(GeometryFrustumMode::all);
    all.shading = &world.shading;
    structure->frustum_hit(world.ctx, world.shader, all);
    EXPECT_EQ(all.result.total, 60u * 4);
  }
  for (const GasFur* structure : {&std::as_const(built.structure), &none.structure}) {
    EXPECT_EQ(shoot(world, *structure, truth.rays[0]).geometry, nullptr);
    EXPECT_TRUE(structure->get_bbox().is_empty());
  }
  assigned.set_oriented_nodes(false);
  GasFur plain(assigned);
  const BuiltFur bundle(world.ctx, make_hair(CurveBasis::linear, 40, 4, 0.0, 0.1));
  ASSERT_TRUE(plain.create(world.ctx, &bundle.geometry, &bundle.geometry, nullptr));
  EXPECT_EQ(plain.get_tree().oriented_count, 0u) << "what was asked for is copied too";
}

// A structure of one segment hands its leaf all rays at once, whatever their kinds; others one by one.
TEST(GasFur, hits_weigh_what_the_material_and_the_kind_of_the_ray_say) {
  for (const uint curve_count : {1u, 30u}) {
    QueryWorld world;
    CurveData data = make_hair(CurveBasis::linear, curve_count, 8, 0.0, 0.1, 0.05, 2);
    transform(data, 1.0, {0, 0, 20});
    const BuiltFur built(world.ctx, data);
    Material glass, override;
    glass.transparency = 0.25;
    glass.kind_mask = 0b101'1111;  // of types 0, 1, 2, 3, 4 and 6; 34 shares the bit of 2
    override.transparency = 0.75;
    override.kind_mask = 1u << 5;
    const uint types[] = {0, 1, 2, 3, 4, 5, 6, 34, 37};
    const struct {
      const Material *of_group, *of_shader, *expected;
      double weights[9];
    } rows[] = {{&glass, nullptr, &glass, {0.0, 1.0, 0.75, 0.75, 0.75, 1.0, 0.75, 0.75, 1.0}},
                {&glass, &override, &override, {0.0, 1.0, 1.0, 1.0, 1.0, 0.25, 1.0, 1.0, 0.25}},
                {nullptr, nullptr, nullptr, {0.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0}}};
    const ShadingVariablesCtx own{};
    for (const auto& row : rows) {
      world.links[0].material = row.of_group;
      world.shader.override_material = row.of_shader;
      world.links[0].variables = row.of_shader != nullptr ? &own : nullptr;
      GeometryRayPacket packet;
      packet.resize(9);
      const Vec origin(1, 2, -9), direction = Vec(data.points[0].position) - origin;
      for (uint k = 0; k < 9; ++k)
        packet.set_ray(k, origin, direction, 0, DBL_MAX, 0, static_cast<GMathRay::Type>(types[k]));
      GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
      std::pair<const Material*, const ShadingVariablesCtx*> seen;
      query.primitive_filter = [](const GeometryRaytraceCtx& asked, const uint&, void* user) {
        *static_cast<decltype(seen)*>(user) = {asked.material, asked.shading_variables};
        return true;
      };
      query.primitive_filter_user = &seen;
      query.instance = 5;
      const double before = query.hit_weight;
      built.structure.ray_hit_nearest_static(world.ctx, world.shader, query);
      EXPECT_EQ(query.hit_weight, before);
      for (uint k = 0; k < 9; ++k) {
        ASSERT_NE(packet.get_nearest(k).geometry, nullptr);
        EXPECT_EQ(packet.get_nearest(k).weight, row.weights[k]) << "ray of type " << types[k];
        EXPECT_EQ(packet.get_nearest(k).instance, 5u);
      }
      EXPECT_EQ(seen.first, row.expected);
      EXPECT_EQ(seen.second, row.of_shader != nullptr ? &own : &ShadingVariablesCtx::get_default_ctx());
    }
  }
}

TEST(GasFur, groups_filters_and_clip_maps_leave_out_what_they_say) {
  QueryWorld world;
  CurveData data = make_hair(CurveBasis::bezier, 90, 12, 0.1);
  data.group_names.assign(6, CoreString("group"));
  for (uint curve = 0; curve < 90; ++curve) data.curve_groups.push_back(curve * 7 % 6);
  const BuiltFur built(world.ctx, data), complete(world.ctx, data, false);
  const std::vector<TestRay> rays = make_curve_rays(CurveOracle(data), 200, 4);
  ShadingGroupLinks empty;
  empty.material = ShadingGroupLinks::material_empty;
  world.entries = {&world.links[0], nullptr, &empty, &world.links[0]};
  world.shading = ShadingGroupTable(world.entries);
  HitCheck check = make_curve_check(data, rays, nullptr, [](uint segment) { return segment / 2 * 7 % 6 % 3 != 0; });
  check.check(world, built.structure, false);
  EXPECT_GT(check.count_sure_hits(), 20u);

  GeometryRayPacket packet;
  const auto adjust = [](GeometryRaytraceCtx& query) {
    query.shading_group_offset = 3;  // group 0 counts as 3, the others are beyond the table
    query.primitive_filter = [](const GeometryRaytraceCtx&, const uint& p, void*) { return p % 2 == 0; };
  };
  ask_rays(world, complete.structure, packet, rays, {.nearest = false, .adjust = adjust});
  EXPECT_GT(packet.get_hits().get_hits().size(), 10u);
  for (const GeometryHit& at : packet.get_hits().get_hits()) {
    EXPECT_EQ(at.hit.shading_group, 3u);
    EXPECT_TRUE(at.hit.primitive % 2 == 0 && at.hit.primitive / 2 * 7 % 6 == 0) << at.hit.primitive;
  }

  // The map cuts the upper half of every curve away: of all hits just those on the lower half are left.
  const ClipMap clip_map(2, 1, {255, 0});
  uint count[2][2] = {{0, 0}, {0, 0}};  // [with the map][on the upper half]
  for (const bool clipped : {false, true}) {
    world.links[0].clip_map = clipped ? &clip_map : nullptr;
    ask_rays(world, complete.structure, packet, rays, {.nearest = false});
    for (const GeometryHit& hit : packet.get_hits().get_hits())
      ++count[clipped][complete.geometry.get_surface_point(hit.hit, 0.0).uv.x >= 0.5];
  }
  EXPECT_EQ(count[1][0], count[0][0]);
  EXPECT_EQ(count[1][1], 0u);
  EXPECT_GT(std::min(count[0][0], count[0][1]), 20u);
}

// Boxes of oriented lanes must let through whatever is inside, and may count as wholly inside only what is.
TEST(GasFur, frustums_find_what_asking_every_segment_finds) {
  QueryWorld world;
  CurveData data = make_hair(CurveBasis::linear, 80, 21, 0.1, 0.5);
  data.group_names.assign(3, CoreString("group"));
  for (uint curve = 0; curve < 80; ++curve) data.curve_groups.push_back(curve % 3);
  world.entries[1] = nullptr;
  world.shading = ShadingGroupTable(world.entries);
  const BuiltFur built(world.ctx, data);
  ASSERT_GT(built.structure.get_tree().oriented_count, 0u);
  RandomValues random(2);
  uint partly = 0;
  for (uint round = 0; round < scaled(300, 60); ++round) {
    GeometryFrustumCtx asked, expected;
    for (uint k = random.get_index(6); k > 0; --k) {
      const Vec normal = random.get_vec();
      asked.add_plane({random.get_vec(0.3) - normal * random.get(0, 3), normal});
      expected.add_plane(asked.planes[asked.plane_count - 1]);
    }
    asked.mode = expected.mode =
        static_cast<uint>(round % 2 == 0 ? GeometryFrustumMode::all : GeometryFrustumMode::any);
    asked.shading = &world.shading;
    built.structure.frustum_hit(world.ctx, world.shader, asked);
    for (uint p = 0; p < built.geometry.get_primitive_count(); ++p) {
      if (p / 6 % 3 == 1) continue;
      built.geometry.frustum_hit_primitive(world.ctx, world.shader, expected, p);
      expected.result.total += round % 2 == 0;
    }
    EXPECT_EQ(asked.result.total, expected.result.total);
    EXPECT_EQ(asked.result.finished, expected.result.finished);
    EXPECT_TRUE(round % 2 != 0 || asked.result.hit_count == expected.result.hit_count);
    EXPECT_GE(asked.result.outside, expected.result.outside);  // a box of segments without shading counts too
    partly += round % 2 == 0 && expected.result.hit_count > 0 && expected.result.outside;
  }
  EXPECT_GT(partly, 10u);
}

}  // namespace
