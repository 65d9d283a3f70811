// The structure over fibres against brute force over all segments: nearest and all hits, what is kept, shading,
// frustums, clusters, copies.
#include "gas/gas_fur.h"

#include <gtest/gtest.h>

#include <bit>

#include "support/curve_check.h"
#include "support/test_scale.h"
#include "support/test_tree.h"
#include "support/tree_oracle.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_module/ctx_helpers.h"

namespace {

using Vec = GMathVec3<double>;

TEST(GasFur, finds_what_testing_every_segment_finds) {
  QueryWorld world;
  for (uint seed = 0; seed < scaled(3, 1); ++seed) {
    for (const CurveScene& scene : make_curve_scenes(40, seed * 20)) {
      CurveCheck check(world, scene.data, make_curve_rays(CurveOracle(scene.data), scaled(300, 60), seed));
      EXPECT_GT(check.sure_hits, scaled(80, 16)) << scene.name;
      for (const bool oriented : {true, false}) {
        const BuiltFur built(world.ctx, scene.data, oriented);
        check.name = scene.name + (oriented ? ", seed " : " without oriented nodes, seed ") + std::to_string(seed);
        check.check(built.structure, !oriented);
        EXPECT_TRUE(oriented || built.structure.get_tree().oriented_count == 0);
        if (scene.name == "bundle" || scene.name == "collinear") {
          EXPECT_EQ(built.structure.get_tree().oriented_count > 0, oriented) << check.name;
        }
      }
    }
  }
}

// The fibres are a tenth as wide as single precision can tell points apart there, and the rays come from as far again.
TEST(GasFur, thin_fibres_far_away_neither_break_up_nor_swell) {
  QueryWorld world;
  for (const CurveBasis basis : {CurveBasis::linear, CurveBasis::bezier}) {
    for (const Vec& shift : {Vec(1e4, -1e4, 1e4), Vec(0, 0, 0)}) {
      CurveData data = make_hair(basis, 200, 5, 0.05, 1.0, 1e-4);
      transform(data, 1.0, shift);
      const BuiltFur built(world.ctx, data);
      const CurveOracle oracle(data);
      RandomValues random(6);
      std::vector<TestRay> axis_rays, near_rays;
      for (uint k = 0; k < scaled(20000, 2000); ++k) {
        const CurveOracle::Segment& segment = oracle.get_segments()[k % oracle.get_segments().size()];
        const CurveOracle::Ball& ball = segment.balls[random.get_index(static_cast<uint>(segment.balls.size() - 1))];
        TestRay ray;
        ray.origin = ball.position + random.get_vec().get_normalized() * (k % 2 == 0 ? 1e4 : 3.0);
        ray.direction = (ball.position - ray.origin).get_normalized();
        ray.tfar = (ball.position - ray.origin).get_length();
        axis_rays.push_back(ray);
        const Vec aside = ray.direction.cross(random.get_vec()).get_normalized();
        ray.tfar = DBL_MAX;
        ray.origin += aside * (ball.radius * random.get(0.0, 2.0));
        if (k % 100 == 0) near_rays.push_back(ray);
      }
      CurveCheck check(world, data, near_rays);
      check.check(built.structure);
      EXPECT_GT(check.sure_hits, 0u);
      GeometryRayPacket packet;
      check.ask(built.structure, packet, axis_rays, true);
      for (uint k = 0; k < axis_rays.size(); ++k) ASSERT_NE(packet.get_nearest(k).geometry, nullptr) << k;
    }
  }
}

/// One segment a fibre; each `bad_step`-th is not finite.
CurveData make_segments(uint count, uint bad_step, std::vector<uint>& valid) {
  CurveData data = make_hair(CurveBasis::linear, count, count, 0.0, 0.5, 0.01, 2);
  for (uint k = 0; k < count; ++k) {
    if (k % bad_step != bad_step - 1) {
      valid.push_back(k);
    } else {
      data.points[2 * k + k / bad_step % 2].position[k % 3] = k % 2 == 0 ? NAN : HUGE_VALF;
    }
  }
  return data;
}

TEST(GasFur, keeps_finite_segments_whoever_asks_for_their_boxes) {
  QueryWorld world;
  for (const uint count : {1023u, 1024u, 1025u, 9000u}) {
    std::vector<uint> valid;
    const CurveData data = make_segments(count, 7, valid);
    const BuiltFur serial(world.ctx, data);
    const GasBvh<4>& tree = serial.structure.get_tree();
    std::vector<uint> kept(tree.order, tree.order + tree.item_count);
    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(kept, valid);
    EXPECT_GT(tree.oriented_count, 0u);
    GeometryRayPacket expected, packet;
    const std::vector<TestRay> rays = make_curve_rays(CurveOracle(data), 300, 3);
    CurveCheck(world, data, {}).ask(serial.structure, expected, rays, true);
    for (const uint threads : {1u, 2u, 4u, 7u}) {
      QueryWorld crowd(8, threads);
      AppProgressBar* progress = crowd.app.create_progress_bar("fur");
      const BuiltFur parallel(crowd.ctx, data, true, progress);
      const std::vector<AppProgressTask> tasks = progress->get_task_log();
      ASSERT_GE(tasks.size(), 2u);
      EXPECT_EQ(tasks[0].name, CoreString("Compute primitives AABB"));
      EXPECT_EQ(tasks[0].step_count, count);
      progress->finish();
      ASSERT_EQ(find_tree_difference(parallel.structure.get_tree(), tree), "") << count << " on " << threads;
      CurveCheck(crowd, data, {}).ask(parallel.structure, packet, rays, true);
      for (uint k = 0; k < rays.size(); ++k) {
        EXPECT_EQ(packet.get_nearest(k).primitive, expected.get_nearest(k).primitive);
        EXPECT_EQ(packet.get_nearest(k).distance, expected.get_nearest(k).distance);
      }
    }
  }
}

TEST(GasFur, copies_and_rebuilt_structures_answer_for_themselves) {
  QueryWorld world;
  const CurveData data = make_hair(CurveBasis::bspline, 60, 3, 0.1, 0.5);
  BuiltFur built(world.ctx, data);
  const BuiltFur none(world.ctx, CurveData());
  const std::vector<TestRay> rays = make_curve_rays(CurveOracle(data), 150, 4);
  GasFur copy(built.structure), assigned;
  assigned = none.structure;
  assigned = built.structure;
  assigned = *&assigned;
  const u64 full = built.structure.get_memory_size();
  EXPECT_GE(full, sizeof(GasFur) + built.structure.get_tree().get_array_bytes());
  EXPECT_EQ(copy.get_memory_size(), full);
  ASSERT_TRUE(built.structure.create(world.ctx, &none.geometry, &none.geometry, nullptr));
  EXPECT_LT(built.structure.get_memory_size(), full);
  CurveCheck check(world, data, rays);
  EXPECT_GT(check.sure_hits, 50u);
  for (const GasFur* structure : {&copy, &assigned}) {
    check.check(*structure);
    EXPECT_EQ(find_tree_difference(structure->get_tree(), copy.get_tree()), "");
  }
  for (const GasFur* structure : {&std::as_const(built.structure), &none.structure}) {
    GeometryRayPacket packet;
    check.ask(*structure, packet, rays, true);
    for (uint k = 0; k < rays.size(); ++k) EXPECT_EQ(packet.get_nearest(k).geometry, nullptr);
    EXPECT_TRUE(structure->get_tree().is_empty());
    EXPECT_TRUE(structure->get_bbox().is_empty());
    CoreVector<void*> clusters;
    structure->get_clusters(clusters, 10, 0.5f);
    EXPECT_EQ(clusters.get_count(), 0u);
  }
}

// A structure of one segment hands its leaf all rays at once, whatever their kinds; others one by one.
TEST(GasFur, hits_weigh_what_the_material_and_the_kind_of_the_ray_say) {
  for (const uint fibres : {1u, 30u}) {
    QueryWorld world;
    CurveData data = make_hair(CurveBasis::linear, fibres, 8, 0.0, 0.1, 0.05, 2);
    transform(data, 1.0, {0, 0, 20});
    const BuiltFur built(world.ctx, data);
    Material glass, override;
    glass.transparency = 0.25;
    glass.kind_mask = 0b101'1111;  // of types 0, 1, 2, 3, 4 and 6; 34 shares the bit of 2
    override.transparency = 0.75;
    override.kind_mask = 1u << 5;
    const uint types[] = {0, 1, 2, 3, 4, 5, 6, 34, 37};
    const double expected[] = {0.0, 1.0, 0.75, 0.75, 0.75, 1.0, 0.75, 0.75, 1.0};
    const double overridden[] = {0.0, 1.0, 1.0, 1.0, 1.0, 0.25, 1.0, 1.0, 0.25};
    const double plain[] = {0.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0, 1.0};
    struct Seen {
      const Material* material;
      const ShadingVariablesCtx* variables;
    } seen{};
    const auto check = [&](const double(&weights)[9], const Material* material) {
      GeometryRayPacket packet;
      packet.resize(9);
      const Vec target(data.points[0].position);
      for (uint k = 0; k < 9; ++k)
        packet.set_ray(k, Vec(1, 2, -9), target - Vec(1, 2, -9), 0, DBL_MAX, 0, static_cast<GMathRay::Type>(types[k]));
      GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
      query.primitive_filter = [](const GeometryRaytraceCtx& asked, const uint&, void* user) {
        *static_cast<Seen*>(user) = {asked.material, asked.shading_variables};
        return true;
      };
      query.primitive_filter_user = &seen;
      query.instance = 5;
      built.structure.ray_hit_nearest_static(world.ctx, world.shader, query);
      for (uint k = 0; k < 9; ++k) {
        ASSERT_NE(packet.get_nearest(k).geometry, nullptr);
        EXPECT_EQ(packet.get_nearest(k).weight, weights[k]) << "ray of type " << types[k];
        EXPECT_EQ(packet.get_nearest(k).instance, 5u);
      }
      EXPECT_EQ(seen.material, material);
    };
    world.links[0].material = &glass;
    check(expected, &glass);
    EXPECT_EQ(seen.variables, &ShadingVariablesCtx::get_default_ctx());
    const ShadingVariablesCtx own{};
    world.links[0].variables = &own;
    world.shader.override_material = &override;
    check(overridden, &override);
    EXPECT_EQ(seen.variables, &own);
    world.shader.override_material = nullptr;
    world.links[0].material = nullptr;
    check(plain, nullptr);
  }
}

TEST(GasFur, groups_filters_and_clip_maps_leave_out_what_they_say) {
  QueryWorld world;
  CurveData data = make_hair(CurveBasis::bezier, 90, 12, 0.1);
  data.group_names.assign(6, CoreString("group"));
  for (uint fibre = 0; fibre < 90; ++fibre) data.curve_groups.push_back(fibre * 7 % 6);
  const BuiltFur built(world.ctx, data);
  const std::vector<TestRay> rays = make_curve_rays(CurveOracle(data), 200, 4);
  ShadingGroupLinks empty;
  empty.material = ShadingGroupLinks::material_empty;
  world.entries = {&world.links[0], nullptr, &empty, &world.links[0]};
  world.shading = ShadingGroupTable(world.entries);
  CurveCheck check(world, data, rays);
  for (uint segment = 0; segment < built.geometry.get_primitive_count(); ++segment)
    check.hidden.push_back(segment / 2 * 7 % 6 % 3 != 0);
  check.check(built.structure);
  EXPECT_GT(check.sure_hits, 20u);

  GeometryRayPacket packet;
  check.ask(built.structure, packet, rays, true, [](GeometryRaytraceCtx& query) {
    query.shading_group_offset = 3;  // group 0 counts as 3, the others are beyond the table
    query.primitive_filter = [](const GeometryRaytraceCtx&, const uint& primitive, void*) {
      return primitive % 2 == 0;
    };
  });
  uint hits = 0;
  for (uint k = 0; k < rays.size(); ++k) {
    const GeometryIntersection& hit = packet.get_nearest(k);
    if (hit.geometry == nullptr) continue;
    ++hits;
    EXPECT_EQ(hit.shading_group, 3u);
    EXPECT_TRUE(hit.primitive % 2 == 0 && hit.primitive / 2 * 7 % 6 == 0) << hit.primitive;
  }
  EXPECT_GT(hits, 10u);

  // The map cuts the upper half of every fibre away: of all hits just those on the lower half are left.
  const BuiltFur complete(world.ctx, data, false);
  const ClipMap clip_map(2, 1, {255, 0});
  uint count[2][2] = {{0, 0}, {0, 0}};  // [with the map][on the upper half]
  for (const bool clipped : {false, true}) {
    world.links[0].clip_map = clipped ? &clip_map : nullptr;
    check.ask(complete.structure, packet, rays, false);
    for (const GeometryHit& hit : packet.get_hits().get_hits())
      ++count[clipped][complete.geometry.get_surface_point(hit.hit, 0.0).uv.x >= 0.5];
  }
  EXPECT_EQ(count[1][0], count[0][0]);
  EXPECT_EQ(count[1][1], 0u);
  EXPECT_GT(std::min(count[0][0], count[0][1]), 20u);
}

// What the structure asks about frustums is each segment that may be inside; the geometry's own answers are taken.
TEST(GasFur, frustum_modes_agree_with_asking_every_segment) {
  QueryWorld world;
  CurveData data = make_hair(CurveBasis::linear, 80, 21, 0.1, 0.5);
  data.group_names.assign(3, CoreString("group"));
  for (uint fibre = 0; fibre < 80; ++fibre) data.curve_groups.push_back(fibre % 3);
  world.entries[1] = nullptr;
  world.shading = ShadingGroupTable(world.entries);
  const BuiltFur built(world.ctx, data);
  RandomValues random(2);
  uint partly = 0;
  for (uint round = 0; round < scaled(300, 60); ++round) {
    std::vector<GeometryPlane> planes(random.get_index(6));
    for (GeometryPlane& plane : planes) {
      const Vec normal = random.get_vec();
      plane = GeometryPlane(random.get_vec(0.3) - normal * random.get(0, 3), normal);
    }
    for (uint mode = 0; mode < 4; ++mode) {
      GeometryFrustumCtx asked, expected;
      for (GeometryFrustumCtx* query : {&asked, &expected}) {
        for (const GeometryPlane& plane : planes) query->add_plane(plane);
        query->mode = mode;
        query->shading = &world.shading;
      }
      built.structure.frustum_hit(world.ctx, world.shader, asked);
      const uint points = built.geometry.get_point_cloud()->get_count();
      if (mode >= 2) expected.mask.assign(expected.point_count = points, 0);
      for (uint p = 0; p < built.geometry.get_primitive_count(); ++p) {
        if (p / 6 % 3 == 1) continue;
        built.geometry.frustum_hit_primitive(world.ctx, world.shader, expected, p);
        expected.result.total += mode == 1;
      }
      EXPECT_EQ(asked.result.hit_count > 0, expected.result.hit_count > 0) << mode;
      EXPECT_EQ(asked.result.finished, expected.result.finished) << mode;
      EXPECT_EQ(asked.result.total, expected.result.total);
      EXPECT_TRUE(mode != 1 || asked.result.hit_count == expected.result.hit_count);
      EXPECT_GE(asked.result.outside, expected.result.outside);  // a box of segments without shading counts too
      partly += mode == 1 && expected.result.hit_count > 0 && expected.result.outside;
      EXPECT_EQ(asked.mask, expected.mask);
      EXPECT_EQ(asked.get_points().size(), static_cast<std::size_t>(std::ranges::count(expected.mask, u8{1})));
      for (const GeometryFrustumVertex& vertex : asked.get_points())
        EXPECT_TRUE(mode == 2 || vertex.position == Vec(data.points[vertex.index].position));
    }
  }
  EXPECT_GT(partly, 10u);
}

TEST(GasFur, clusters_hold_everything_once) {
  QueryWorld world;
  const CurveData data = make_hair(CurveBasis::linear, 500, 31, 0.3, 3.0, 0.02);
  const std::vector<TestRay> rays = make_curve_rays(CurveOracle(data), 200, 32);
  for (const bool oriented : {false, true}) {
    const BuiltFur built(world.ctx, data, oriented);
    CoreVector<void*> clusters;
    built.structure.get_clusters(clusters, 200, 0.5f);
    EXPECT_TRUE(oriented || clusters.get_count() > 4);
    const auto handles = CoreBasicArray<void*>::make_view(clusters.get_items(), clusters.get_count());
    std::vector<FloatBox> boxes(clusters.get_count());
    std::vector<float> weights(clusters.get_count());
    built.structure.get_clusters_bboxes(handles, boxes.data());
    built.structure.get_clusters_weights(handles, weights.data());
    EXPECT_NEAR(std::accumulate(weights.begin(), weights.end(), 0.0), 8.0 * 3000, 0.1);
    GMathBbox3<float> united;
    for (const FloatBox& box : boxes) united.add(box);
    EXPECT_EQ(GMathBbox3<double>(united), built.structure.get_bbox());

    GeometryRayPacket packet;
    const auto ask = [&](u64 cluster, std::vector<double>& nearest) {
      CurveCheck(world, data, {}).ask(built.structure, packet, rays, true, [&](GeometryRaytraceCtx& query) {
        query.cluster = cluster;
      });
      nearest.resize(rays.size(), HUGE_VAL);
      for (uint k = 0; k < rays.size(); ++k) nearest[k] = std::min(nearest[k], packet.get_nearest(k).distance);
    };
    std::vector<double> whole, parts;
    ask(0, whole);
    for (void* cluster : handles) ask(std::bit_cast<u64>(cluster), parts);
    EXPECT_EQ(parts, whole);
    EXPECT_GT(std::ranges::count_if(whole, [](double distance) { return distance < DBL_MAX; }), 80);
  }
}

}  // namespace
