// GasPoint against loops over all points.
#include "gas/gas_point.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "support/log_capture.h"
#include "support/point_oracle.h"
#include "support/query_world.h"
#include "support/test_scale.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_particle/particle_cloud.h"

namespace {

using Positions = std::vector<GMathVec3<float>>;
using Vec = GMathVec3<double>;

enum class PointKind { uniform, integer_grid, coincident, clusters, flat, far_away, not_finite };
constexpr PointKind all_point_kinds[] = {PointKind::uniform,   PointKind::integer_grid, PointKind::coincident,
                                         PointKind::clusters,  PointKind::flat,         PointKind::far_away,
                                         PointKind::not_finite};

Positions make_points(PointKind kind, uint count, uint seed) {
  RandomValues random(seed);
  Positions points;
  for (uint k = 0; k < count; ++k) {
    GMathVec3<float> p = random.get_vec<float>();
    const auto get = [&] { return float(random.get_index(9)) - 4.0f; };
    if (kind == PointKind::integer_grid) p = {get(), get(), get()};
    if (kind == PointKind::coincident) p = {0.5f, -0.25f, 0.125f};
    if (kind == PointKind::clusters && k % 8 != 0) p = p * 1e-6f + GMathVec3<float>(0.3f, 0, 0.5f * (k % 2));
    if (kind == PointKind::flat) p.z = 0.5f;
    if (kind == PointKind::far_away) p += {1e5f, -2e5f, 0.0f};
    if (kind == PointKind::not_finite && k % 5 == 0) p[k % 3] = k % 2 ? NAN : HUGE_VALF;
    points.push_back(p);
  }
  return points;
}

/// Reports at most some of its points, and has none before their number was requested.
struct LimitedCloud : ParticleCloud {
  uint get_point_count(const AppBase&, const CtxEval&) const override {
    has_points = true;
    return std::min(limit, get_point_cloud()->get_count());
  }
  const GeometryPointCloud* get_point_cloud() const override {
    return has_points ? ParticleCloud::get_point_cloud() : nullptr;
  }
  uint limit = core_invalid_index;
  mutable bool has_points = false;
};

/// Points with a structure over them.
struct PointScene {
  explicit PointScene(Positions positions, uint threads = 1, uint limit = core_invalid_index) : world(8, threads) {
    set(std::move(positions), limit);
  }
  void set(Positions positions, uint limit = core_invalid_index) {
    points.clear();
    for (uint k = 0; k < positions.size() && k < limit; ++k) {
      const Vec p(positions[k]);
      if (std::isfinite(p.x + p.y + p.z)) points.push_back({p, k, 77});
    }
    CoreString error;
    EXPECT_TRUE(cloud.create({std::move(positions), {}, {}}, error));
    cloud.limit = limit;
    structure.create(world.app, world.ctx, &cloud, nullptr);
  }

  std::vector<GeometryRayFrustumRecord> find(const std::vector<GeometryRayFrustumBeam>& beams, double edge,
                                             const GasPoint& asked) {
    std::vector<GeometryRayFrustumRecord> records(beams.size());
    GeometryRayFrustumCtx query;
    query.begin(beams.data(), records.data(), static_cast<uint>(beams.size()));
    query.edge = edge;
    query.object = 77;
    asked.ray_frustum_hit(world.ctx, world.shader, query);
    return records;
  }
  /// Queries all modes with the same planes, and returns the points inside.
  std::set<uint> find(GeometryFrustumCtx& query, const GasPoint& asked) {
    std::set<uint> found;
    std::vector<Vec> positions;
    const auto ask = [&](GeometryFrustumMode mode) {
      query.mode = static_cast<uint>(mode);
      query.clear_results();
      query.result.total = query.result.hit_count = 5;
      query.geometry = nullptr;
      asked.frustum_hit(world.ctx, world.shader, query);
      EXPECT_EQ(query.geometry, &cloud);
    };
    ask(GeometryFrustumMode::vertices);
    for (const GeometryFrustumVertex& vertex : query.get_points()) {
      EXPECT_EQ(vertex.geometry, &cloud);
      EXPECT_EQ(vertex.position, Vec(cloud.get_point_cloud()->get_position(vertex.index)));
      EXPECT_TRUE(found.insert(vertex.index).second) << "twice";
      positions.push_back(vertex.position);
    }
    ask(GeometryFrustumMode::points);
    EXPECT_TRUE(std::ranges::equal(query.get_points(), positions, {}, &GeometryFrustumVertex::position));
    ask(GeometryFrustumMode::any);
    EXPECT_EQ(query.result.hit_count, found.size());
    ask(GeometryFrustumMode::all);
    EXPECT_EQ(query.result.total, asked.get_primitive_count());
    EXPECT_EQ(query.result.hit_count == query.result.total, found.size() == asked.get_primitive_count());
    EXPECT_EQ(query.result.outside == 0, found.size() == points.size());
    ask(GeometryFrustumMode(4));
    EXPECT_EQ(query.get_points().size() + query.result.hit_count + query.result.outside, 0u);
    return found;
  }
  std::size_t count_all() {
    GeometryFrustumCtx query;
    return find(query, structure).size();
  }

  QueryWorld world;
  LimitedCloud cloud;
  GasPoint structure;
  std::vector<OraclePoint> points;  ///< those that are finite
};

/// @return true if some points are inside and some are not
bool check_frustum(PointScene& scene, const GasPoint& asked, GeometryFrustumCtx& query, bool is_exact) {
  std::set<uint> sure, possible;
  for (const OraclePoint& point : scene.points) {
    const SureAnswer place = get_frustum_place(query, point.position, is_exact);
    if (place == SureAnswer::hit) sure.insert(point.index);
    if (place != SureAnswer::missed) possible.insert(point.index);
  }
  const std::set<uint> found = scene.find(query, asked);
  EXPECT_TRUE(std::ranges::includes(found, sure));
  EXPECT_TRUE(std::ranges::includes(possible, found));
  return !sure.empty() && possible.size() < scene.points.size();
}

/// Frustums and beams of all kinds. @return how many beams and frustums had something to find
uint check_queries(PointScene& scene, const GasPoint& asked, uint count, uint seed, bool is_exact = false) {
  RandomValues random(seed);
  uint counted = 0;
  for (uint k = 0; k < count; ++k) {
    SCOPED_TRACE(testing::Message() << "frustum " << k);
    GeometryFrustumCtx query;
    make_frustum(query, random, is_exact);
    if (!is_exact) {
      const Vec& by = scene.points[0].position;
      for (GeometryPlane& plane : query.planes) plane = {plane.point + by, plane.normal};
      for (GeometryPlane& plane : query.end_planes) plane = {plane.point + by, plane.normal};
    }
    counted += check_frustum(scene, asked, query, is_exact);
  }
  std::vector<GeometryRayFrustumBeam> beams;
  for (uint k = 0; k < count; ++k) {
    const auto any = random.get_index(static_cast<uint>(scene.points.size()));
    beams.push_back(make_beam(scene.points[any].position, k, random));
  }
  const double edge = std::array{1.0, 2.0, 10.0, 0.5}[seed % 4];
  const std::vector<GeometryRayFrustumRecord> records = scene.find(beams, edge, asked);
  for (uint k = 0; k < count; ++k) {
    SCOPED_TRACE(testing::Message() << "beam " << k);
    counted += check_beam(beams[k], edge, scene.points, records[k]);
  }
  return counted;
}

}  // namespace

TEST(GasPoint, finds_what_a_loop_over_all_points_finds) {
  const LogCapture quiet(0);
  for (const PointKind kind : all_point_kinds) {
    for (const uint count : {1u, 7u, 1500u}) {
      SCOPED_TRACE(testing::Message() << "kind " << static_cast<int>(kind) << ", points " << count);
      PointScene scene(make_points(kind, count, count), 1 + count % 3);
      if (scene.points.empty()) continue;
      const uint asked = scaled(120, 60);
      const uint counted = check_queries(scene, scene.structure, asked, count, kind == PointKind::integer_grid);
      EXPECT_GT(counted, asked / 4);
    }
  }
}

TEST(GasPoint, planes_and_points_have_any_size_that_a_float_has) {
  RandomValues random(9);
  for (const double size : {5e-44, 1e-37, 3e38}) {
    Positions points;
    for (uint k = 0; k < 500; ++k) points.emplace_back(random.get_vec() * size);
    PointScene scene(points);
    for (uint k = 0; k < 60; ++k) {
      GeometryFrustumCtx query;
      query.add_plane({random.get_vec() * size, random.get_vec()});
      query.add_plane({random.get_vec() * size, random.get_vec() * size});
      const auto is_inside = [&](const OraclePoint& point) { return query.contains(point.position); };
      EXPECT_EQ(scene.find(query, scene.structure).size(), std::ranges::count_if(scene.points, is_inside)) << size;
    }
  }
}

TEST(GasPoint, borders_and_ends_belong_to_a_beam_as_far_as_they_are_defined) {
  const auto find = [](const Vec& center, const Vec& middle, const GMathVec3<float>& point, double edge, double tnear,
                       double tfar) {
    const Vec aside = middle - center;
    const Vec ring[4] = {aside + Vec(1, 1, 0), aside + Vec(-1, 1, 0), aside + Vec(-1, -1, 0), aside + Vec(1, -1, 0)};
    std::vector<GeometryRayFrustumBeam> beams(1);
    EXPECT_TRUE(beams[0].set_parallel(center, {0, 0, 1}, ring, tnear, tfar));
    PointScene scene({point});
    const GeometryRayFrustumRecord record = scene.find(beams, edge, scene.structure)[0];
    return record.index == 0 ? record.weight : -1.0;
  };
  for (uint side = 0; side < 4; ++side) {  // of a beam that is 2 wide; its border is at 0
    for (const double way_to_center : {1.0, 0.5, 0.0, -3.0}) {
      Vec middle, center;
      middle[side % 2] = side < 2 ? -1.0 : 1.0;
      center[side % 2] = middle[side % 2] * way_to_center;
      for (const float beyond : {0.0f, 1.5e-8f, 3e-8f}) {
        GMathVec3<float> point(0.3f, 0.3f, 2.0f);
        point[side % 2] = side < 2 ? beyond : -beyond;
        const double weight = find(center, middle, point, 1.0, 0.0, DBL_MAX);
        EXPECT_NEAR(weight, beyond < 2e-8f ? 1.0 : -1.0, 1e-7) << side << " at " << beyond << ", " << way_to_center;
      }
    }
  }
  for (const auto& [x, y, edge, weight] : {std::array{0.0, 0.5, 1.0, 0.5},
                                           {1.0, 0.0, 1.0, 1.0},
                                           {-0.5, 0.0, 2.0, 1.0},
                                           {0.0, -0.75, 2.0, 0.5},
                                           {-1.0, -1.0, 2.0, 1.0},
                                           {0.75, -0.5, 0.5, 0.875},
                                           {0.0, 0.0, 0.5, 0.5},
                                           {-0.96875, 0.25, 10.0, 0.6875},
                                           {0.875, 0.5, 10, 1}})
    EXPECT_NEAR(find({}, {}, {float(x), float(y), 5}, edge, 0.0, 9.0), weight, 1e-12) << x << ", " << y << ", " << edge;
  const double after = std::nextafter(2.0, 3.0);
  EXPECT_EQ(find({}, {}, {0, 0, 2}, 1.0, 2.0, after), 1.0);
  EXPECT_EQ(find({}, {}, {0, 0, 2}, 1.0, 0.0, 2.0), -1.0);
  EXPECT_EQ(find({}, {}, {0, 0, 2}, 1.0, after, 9.0), -1.0);
}

// Each point is on a border between two tiles, on a corner, or on a diagonal.
TEST(GasPoint, beams_that_tile_a_picture_lose_no_point) {
  constexpr uint tiles = 8, count = 60;
  RandomValues random(4);
  for (uint picture = 0; picture < 12; ++picture) {
    const bool is_parallel = picture % 2;
    const Vec origin = random.get_vec(), direction = random.get_vec().get_normalized();
    const Vec side = direction.cross(random.get_vec()).get_normalized() * 0.1, up = direction.cross(side) * 0.7;
    const auto get_place = [&](double x, double y) { return side * (x - tiles / 2) + up * (y - tiles / 2); };
    const auto get_t = [](uint point) { return std::pow(1.1, point); };
    Positions points;
    for (uint k = 0; k < count; ++k) {
      const double x = 1 + random.get_index(tiles - 1), y = 1 + random.get_index(tiles - 1);
      const double dx = k % 3 ? random.get() : 0.0, dy = k % 3 == 2 ? dx : 0.0;
      const Vec place = get_place(x + dx, y + dy);
      points.emplace_back(origin + direction * get_t(k) + place * (is_parallel ? 1.0 : get_t(k)));
    }
    PointScene scene(points);
    std::set<uint> found;
    for (uint tile = 0; tile < tiles * tiles; ++tile) {
      const uint x = tile % tiles, y = tile / tiles;
      const Vec middle = get_place(x + 0.5, y + 0.5), ahead = direction + middle;
      Vec ring[4], to_corners[4];
      for (uint k = 0; k < 4; ++k) {
        const Vec corner = get_place(x + (k == 1 || k == 2), y + (k > 1));
        ring[k] = corner - middle;
        to_corners[k] = direction + corner;
      }
      std::vector<GeometryRayFrustumBeam> beams(count);  // of which each has one point within its interval
      for (uint k = 0; k < count; ++k) {
        EXPECT_TRUE(is_parallel
                        ? beams[k].set_parallel(origin + middle, direction, ring, get_t(k) * 0.96, get_t(k) * 1.04)
                        : beams[k].set_perspective(origin, ahead, to_corners, get_t(k) * 0.96, get_t(k) * 1.04));
      }
      for (const GeometryRayFrustumRecord& record : scene.find(beams, 1.0, scene.structure)) found.insert(record.index);
    }
    found.erase(core_invalid_index);
    EXPECT_EQ(found.size(), count) << "picture " << picture;
  }
}

TEST(GasPoint, counts_and_leaves_out_what_has_no_place) {
  LogCapture log(100);
  PointScene scene(make_points(PointKind::not_finite, 1000, 1));
  EXPECT_EQ(log.messages.size(), 1u);
  EXPECT_EQ(scene.structure.get_primitive_count(), 1000u);
  EXPECT_EQ(scene.count_all(), 800u);
  GMathBbox3<double> box;
  for (const OraclePoint& point : scene.points) box.add(point.position);
  EXPECT_EQ(scene.structure.get_bbox(), box);
  scene.set(make_points(PointKind::uniform, 1000, 2), 300);
  EXPECT_EQ(scene.structure.get_primitive_count(), 300u);
  EXPECT_GT(check_queries(scene, scene.structure, 60, 1), 10u);
  scene.set(Positions(9, {NAN, 0, 0}));
  EXPECT_EQ(scene.count_all(), 0u);
  EXPECT_FALSE(gmath_is_valid_box(scene.structure.get_bbox()));
  const GasPoint copy(scene.structure);
  GeometryFrustumCtx query;
  EXPECT_TRUE(scene.find(query, copy).empty());
  for (const bool is_null : {false, true}) {
    scene.set(make_points(PointKind::uniform, 100, 1));
    scene.set({});
    if (is_null) scene.structure.create(scene.world.app, scene.world.ctx, nullptr, nullptr);
    EXPECT_EQ(scene.structure.get_primitive_count(), 0u);
    EXPECT_FALSE(gmath_is_valid_box(scene.structure.get_bbox()));
    EXPECT_LT(scene.structure.get_memory_size(), sizeof(GasPoint) + 64);
    std::vector<GeometryRayFrustumBeam> beams(1);
    EXPECT_EQ(scene.find(beams, 1.0, scene.structure)[0].index, core_invalid_index);
    query.mode = 0;
    scene.structure.frustum_hit(scene.world.ctx, scene.world.shader, query);
    EXPECT_EQ(query.result.hit_count, 0u);
  }
}

TEST(GasPoint, copies_answer_as_their_sources_and_count_memory_as_parts_are_built) {
  auto scene = std::make_unique<PointScene>(make_points(PointKind::clusters, 20000, 3), 2);
  PointScene other(make_points(PointKind::uniform, 3000, 4));
  GasPoint& structure = scene->structure;
  EXPECT_GT(check_queries(other, other.structure, 30, 2), 5u);
  auto first = std::make_unique<GasPoint>(structure);
  const u64 unbuilt = structure.get_memory_size();
  GeometryFrustumCtx query;
  query.mode = static_cast<uint>(GeometryFrustumMode::points);
  for (uint k = 0; k < 200; ++k) {  // grows slab by slab
    query.plane_count = 0;
    query.add_plane({{0.01 * k - 1.0, 0, 0}, {-1, 0, 0}});
    structure.frustum_hit(scene->world.ctx, scene->world.shader, query);
  }
  EXPECT_EQ(scene->count_all(), 20000u);
  EXPECT_LT(structure.get_memory_size(), sizeof(GasPoint) + 20000 * 28) << "bytes per point";
  const double growth = std::log(double(structure.get_memory_size()) / double(unbuilt));
  EXPECT_GE(structure.get_memory_advert_count(), 2u);
  EXPECT_LE(structure.get_memory_advert_count(), growth / -std::log(0.95));
  EXPECT_EQ(GasPoint(structure).get_memory_size(), unbuilt);

  auto second = std::make_unique<GasPoint>(structure);
  other.structure = *second;
  other.structure = other.structure;
  EXPECT_EQ(other.structure.get_memory_size(), unbuilt);
  scene->structure = GasPoint();
  second.reset();
  for (const GasPoint* copy : {first.get(), &other.structure}) EXPECT_GT(check_queries(*scene, *copy, 12, 5), 3u);
}

TEST(GasPoint, threads_build_the_parts_together_and_find_the_same) {
  std::vector<std::vector<GeometryRayFrustumRecord>> results;
  for (const uint threads : {1u, 4u}) {
    PointScene scene(make_points(PointKind::uniform, 30000, 6), threads);
    RandomValues random(7);
    std::vector<GeometryRayFrustumBeam> beams;
    for (uint k = 0; k < 64; ++k) beams.push_back(make_beam(scene.points[k].position, k % 5, random));
    std::vector<std::vector<GeometryRayFrustumRecord>> records(8, std::vector<GeometryRayFrustumRecord>(beams.size()));
    std::vector<std::thread> workers;
    for (uint w = 0; w < 8; ++w) {
      workers.emplace_back([&, w] {
        const CtxEval ctx(scene.world.factory);
        CtxShader shader;
        GeometryRayFrustumCtx query;
        for (uint k = 0; k < beams.size(); ++k) {
          const uint beam = (k + 8 * w) % beams.size();
          query.begin(&beams[beam], &records[w][beam], 1);
          scene.structure.ray_frustum_hit(ctx, shader, query);
        }
      });
    }
    for (std::thread& worker : workers) worker.join();
    results.insert(results.end(), records.begin(), records.end());
  }
  const auto is_same = [](const GeometryRayFrustumRecord& a, const GeometryRayFrustumRecord& b) {
    return a.t == b.t && a.weight == b.weight && a.index == b.index;
  };
  for (const auto& records : results) EXPECT_TRUE(std::ranges::equal(records, results[0], is_same));
}

TEST(GasPoint, takes_many_coincident_points_and_is_empty_after_a_stop_request) {
  const uint count = scaled(400000, 60000);
  PointScene scene(make_points(PointKind::coincident, count, 1), 3);
  EXPECT_EQ(scene.count_all(), count);
  RandomValues random(2);
  const std::vector<GeometryRayFrustumBeam> beams{make_beam(scene.points[0].position, 0, random)};
  EXPECT_TRUE(check_beam(beams[0], 1.0, scene.points, scene.find(beams, 1.0, scene.structure)[0]));
  for (const double fraction : {0.0, 0.3, 0.6}) {
    AppProgressBar* bar = scene.world.app.create_progress_bar("test");
    const auto report = [&](const AppProgressReport& at) {
      if (at.fraction >= fraction) scene.world.app.request_stop();
    };
    bar->set_sink(report, std::chrono::milliseconds(0));
    if (fraction == 0.0) scene.world.app.request_stop();
    scene.structure.create(scene.world.app, scene.world.ctx, &scene.cloud, bar);
    bar->finish();
    EXPECT_EQ(scene.structure.get_primitive_count(), 0u) << fraction;
    EXPECT_FALSE(gmath_is_valid_box(scene.structure.get_bbox()));
    scene.world.app.clear_stop_request();
  }
}
