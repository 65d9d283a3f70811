// GasUvTree against a loop over all edges in double precision.
#include "gas/gas_uv_tree.h"

#include <array>
#include <thread>

#include "support/progress_trace.h"
#include "support/uv_world.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;

constexpr float inf = std::numeric_limits<float>::infinity();

/// Polygons of which one edge is visible.
PolyMeshData make_lines(const std::vector<std::pair<VecF, VecF>>& lines) {
  PolyMeshData data;
  for (const auto& [a, b] : lines) {
    add_loose_polygon(data, {a, b, b});
    data.edge_visible.insert(data.edge_visible.end(), {1, 0, 0});
  }
  data.uv_maps = {{"uv", data.positions, data.polygon_vertices}};
  return data;
}

/// Compares what it holds byte by byte.
struct OpenTree : GasUvTree {
  std::string get_bytes() const {
    std::string bytes;
    const auto add = [&](const auto* items, std::size_t count) {
      bytes.append(reinterpret_cast<const char*>(items), count * sizeof *items);
    };
    add(tree.get_nodes(), tree.get_node_count());
    add(order.begin(), order.get_count());
    add(get_leaves().begin(), get_leaves().get_count());
    for (const GeometryUvMapData& map : get_uv_maps()) {
      add(&map.geometry, 1);
      add(map.uvs.begin(), map.uvs.get_count());
      add(map.edges.begin(), map.edges.get_count());
    }
    return bytes;
  }
  const void* get_leaf_user() const { return ray_leaf.user; }
};

/// Points at, near, beyond and far from edges.
Vec make_point(const std::vector<UvSegment>& segments, uint k, double tolerance, double size, RandomValues& random) {
  const UvSegment& s = segments[random.get_index(static_cast<uint>(segments.size()))];
  const Vec side = s.b - s.a;
  const double length = std::max(side.get_length(), 1e-30);
  Vec point = s.a + random.get_vec(size);
  if (k % 6 == 1) point = s.a + side * random.get(0.0, 1.0);
  if (k % 6 == 2) point = s.b + side * (random.get(0.0, 1.5) * tolerance / length);
  if (k % 6 == 3) point = s.a + side * random.get(0.0, 1.0) + random.get_vec(tolerance);
  if (k % 6 == 4) point = s.a;
  if (k % 6 == 5) point = s.b + Vec(tolerance, random.get() * tolerance, 0);
  if (k % 2 == 0) point = Vec(VecF(point));
  point.z = 0.0;
  return point;
}

}  // namespace

TEST(GasUvTree, coverage_is_the_product_over_all_edges_within_the_tolerance) {
  // Polygons a map, their size, the tolerance, and the distance of the maps.
  using Case = std::tuple<uint, double, double, float>;
  for (const auto& [polygons, size, tolerance, tile] :
       {Case(300, 1, 1e-3, 0), Case(300, 1, 0.03, 2), Case(4, 1, 1, 1), Case(60, 1e-3, 1e-6, 0),
        Case(40, 1e-3, 1e-4, 0), Case(60, 1, 0.1, 3000), Case(3, 1, 1, 5000), Case(1, 1, 0.01, 0)}) {
    SCOPED_TRACE(testing::Message() << polygons << " " << tolerance << " " << tile);
    UvWorld world;
    for (uint map = 0; map < 3; ++map)
      world.add_mesh(make_layout(polygons, map, size, {tile * map, -tile * (map / 2), 0}));
    GasUvTree tree;
    world.build(tree);
    EXPECT_EQ(tree.get_leaves().get_count(), world.segments.size());
    RandomValues random(4);
    uint decided = 0, queries = scaled(1500, 300);
    for (uint k = 0; k < queries; ++k) {
      std::vector<Vec> points;
      UvRange expected;
      for (uint ray = 0; ray < (k % 5 == 0 ? 3u : 1u); ++ray) {
        points.push_back(make_point(world.segments, k, tolerance, size, random));
        const UvRange range = get_coverage(world.segments, points.back().x, points.back().y, tolerance);
        expected.low *= range.low;
        expected.high *= range.high;
        expected.edge_count += range.edge_count;
      }
      const double found = world.look_up(tree, points, tolerance);
      EXPECT_GE(found, expected.low * (1 - 1e-6)) << points[0].x << " " << points[0].y;
      EXPECT_LE(found, expected.high * (1 + 1e-6)) << points[0].x << " " << points[0].y;
      decided += expected.edge_count > 0 && expected.high - expected.low < 0.05;
    }
    EXPECT_GT(decided, queries / 5);
  }
}

TEST(GasUvTree, coverage_of_single_edges) {
  UvWorld world;
  std::vector<std::pair<VecF, VecF>> lines;
  const VecF at(40, 0, 0);
  for (uint k = 0; k < 15; ++k) {  // values that cannot be indexed, at either end
    VecF bad = at;
    bad[k % 3] = std::array{NAN, inf, -inf, 1.5e9f, -1.5e9f}[k / 3];
    lines.insert(lines.end(), {{bad, at}, {at, bad}});
  }
  lines.insert(lines.end(), {{{0, 0, 0}, {1, 0, 0}},
                             {{4, 0, 0}, {4, 1, 0}},
                             {{0, 10, 0}, {1, 10, 0}},
                             {{0, 10.5, 0}, {1, 10.5, 0}},
                             {{20, 0, -2}, {24, 3, 7}},
                             {{30, 5, 0}, {30, 5, 0}}});
  world.add_mesh(make_lines(lines));
  GasUvTree tree;
  world.build(tree);
  const auto look_up = [&](double x, double y, double z = 0.0, double extent = 0.5) {
    return world.look_up(tree, {{x, y, z}}, extent);
  };
  EXPECT_EQ(look_up(0.5, 0), 0.0f);
  EXPECT_EQ(look_up(1.25, 0.125), 0.25f);  // of the line
  EXPECT_EQ(look_up(0.5, 10.25), 0.25f);   // of two
  for (const double z : {-9.0, -2.0}) EXPECT_NEAR(look_up(21.85, 1.7, z), 0.5f, 1e-5);
  EXPECT_EQ(look_up(30.25, 5.4), 0.5f);
  for (const double x : {40.0, 40.125}) EXPECT_EQ(look_up(x, 0.125, -9), 1.0f);
  EXPECT_EQ(world.look_up(tree, {{0.5, 0.25, 0}, {4.25, 0.5, 0}, {100, 0, 0}}, 0.5), 0.25f);
  EXPECT_EQ(world.look_up(tree, {}, 0.5), 1.0f);
  // No tolerance: an edge counts where the point is on its box; a NaN clamps to 0.
  EXPECT_EQ(look_up(0.5, 0, 0, 0), 0.0f);
  for (const double none : {-0.25, 0.0, double(NAN)}) EXPECT_EQ(look_up(0.5, 0.25, 0, none), 1.0f);
}

TEST(GasUvTree, hits_are_recorded_once_coverage_is_not_above_the_threshold) {
  UvWorld world;
  const GeometryObject* first = world.add_mesh(make_lines({{{0, 0, 0}, {1, 0, 0}}})).get_geometry();
  const GeometryObject* second =
      world.add_mesh(make_lines({{{5, 0, 0}, {5, 1, 0}}, {{5.5, 0, 0}, {5.5, 1, 0}}})).get_geometry();
  GasUvTree tree;
  world.build(tree);
  const std::vector<Vec> points = {{9, 9, 0}, {5.25, 0.5, 0}, {0.5, 0.25, 0}};
  world.hit_weight = 0.25;  // of an earlier query
  const auto check = [](const GeometryIntersection& hit, const GeometryObject* geometry, const GeometryHitData& data) {
    EXPECT_EQ(std::tuple(hit.geometry, hit.distance, hit.u, hit.v, hit.weight, hit.primitive, hit.part),
              std::tuple(geometry, 0.0, 0.0, 0.0, 1.0, GeometryUvMapData::invalid_index, 0u));
    EXPECT_EQ(std::tuple(data.medium.refraction, data.medium.absorption_distance, data.medium.priority, data.custom),
              std::tuple(1.0f, FLT_MAX, 0u, nullptr));
  };
  for (const double threshold : {-1.0, 0.1249, 0.125, 0.25, 0.5, 1.0}) {
    world.shader.hit_threshold = threshold;
    world.finds_nearest = false;
    EXPECT_EQ(world.look_up(tree, points, 0.5), 0.125f);
    const auto& hits = world.packet.get_hits().get_hits();
    ASSERT_EQ(hits.size(), threshold < 0.125 ? 0u : threshold < 0.25 ? 1u : threshold < 0.5 ? 2u : 3u) << threshold;
    for (std::size_t k = 0; k < hits.size(); ++k) {
      const bool is_last = k + 1 == hits.size();
      EXPECT_EQ(hits[k].ray, is_last ? 2u : 1u);
      check(hits[k].hit, is_last ? first : second, world.packet.get_hits().get_data(hits[k].hit));
    }
    world.finds_nearest = true;
    EXPECT_EQ(world.look_up(tree, points, 0.5), 0.125f);
    EXPECT_EQ(world.packet.get_nearest(0).geometry, nullptr);
    EXPECT_EQ(world.packet.get_nearest(1).geometry, threshold < 0.25 ? nullptr : second);
    if (threshold >= 0.25) check(world.packet.get_nearest(1), second, world.packet.get_nearest_data(1));
    if (threshold >= 0.125) check(world.packet.get_nearest(2), first, world.packet.get_nearest_data(2));
  }
}

TEST(GasUvTree, indexes_the_enabled_geometries_that_have_the_map) {
  struct OtherModule : ModuleBase {
  } other;
  UvWorld world;
  const PolyMeshData lines = make_lines({{{0, 0, 0}, {1, 0, 0}}});
  PolyMeshData named = lines, hidden = lines, without_uv = lines;
  named.uv_maps.push_back(lines.uv_maps[0]);
  named.uv_maps[1].name = "other";
  named.uv_maps[1].positions[0].x = 0.5f;
  hidden.edge_visible.assign(3, 0);
  without_uv.uv_maps.clear();
  world.add_mesh(lines);
  OfObject empty("empty"), no_geometry("other", &other);
  for (OfObject* item : {static_cast<OfObject*>(nullptr), &empty, &no_geometry}) world.items.add(item);
  world.add(nullptr);
  for (const PolyMeshData& data : {without_uv, hidden, named, named}) world.add_mesh(data);
  world.owned.back()->set_enabled(false);
  world.add_mesh(lines).set_application(nullptr);
  const ModuleGeometry *first = world.modules[0].get(), *second = world.modules[4].get(),
                       *last = world.modules[6].get();
  std::string title;
  ProgressTrace trace;
  world.app.set_progress_bar_hook([&](AppProgressBar& bar) {
    title = bar.get_title().get_data();
    trace.watch(bar);
  });
  using Maps = std::vector<std::pair<const ModuleGeometry*, uint>>;
  const Maps all = {{first, 0}, {second, 0}, {last, 0}};
  using Case = std::tuple<bool, const char*, Maps>;
  GasUvTree tree;
  EXPECT_TRUE(tree.is_empty() && tree.is_dirty() && tree.get_use_first_uv_map());
  tree.build();
  EXPECT_TRUE(tree.is_empty() && tree.is_dirty());
  for (const auto& [use_first, name, expected] :
       {Case(true, "", all), Case(true, "other", all), Case(false, "", all), Case(false, "uv", all),
        Case(false, "other", {{second, 1}}), Case(false, "none", {})}) {
    tree.update(world.app, world.items, use_first, name);
    EXPECT_TRUE(tree.is_dirty());
    EXPECT_EQ(world.look_up(tree, {{0.5, 0, 0}}, 0.25), 1.0f);
    tree.build();
    EXPECT_EQ(std::tuple(tree.is_dirty(), tree.get_use_first_uv_map(), tree.get_uv_map_name()),
              std::tuple(false, use_first, CoreString(name)));
    Maps found;
    for (const GeometryUvMapData& map : tree.get_uv_maps()) found.emplace_back(map.geometry, map.uv_map_index);
    EXPECT_EQ(found, expected) << name;
    EXPECT_EQ(world.look_up(tree, {{0.5, 0, 0}}, 0.25), expected.empty() ? 1.0f : 0.0f);
    EXPECT_EQ(world.look_up(tree, {{0.125, 0, 0}}, 0.25), expected.size() < 2 ? 1.0f : 0.0f) << "of the first map";
  }
  EXPECT_EQ(title, "Building UV maps acceleration structure for 10 geometries");
  CoreSet<OfObject*> items;
  tree.update(world.app, items, true, "");
  tree.build();
  EXPECT_EQ(title, "Building UV maps acceleration structure for 0 geometries");
  EXPECT_TRUE(tree.is_empty() && !tree.is_dirty());
  world.add_mesh(make_layout(2000, 1));
  items.add(world.owned.back().get());
  items.add(world.owned[3].get());
  tree.update(world.app, items, true, "");
  tree.build();
  const std::string edges = std::to_string(tree.get_leaves().get_count());
  EXPECT_EQ(trace.get_text(),
            "Loading UV maps data 0.02 0/0\nBuilding bounding box list for UV maps acceleration structure 0.08 1/1\n"
            "Building UV maps acceleration structure 0.9 " +
                edges + "/" + edges + "\n1 ");
  items.remove(world.owned[3].get());
  tree.update(world.app, items, true, "");
  tree.build();
  EXPECT_EQ(title, "Building UV maps acceleration structure for 1 geometry");
}

// A stop request in every call that a build makes to its geometries, then at every report of progress.
TEST(GasUvTree, is_empty_and_dirty_after_a_stop_request_at_any_time) {
  for (const auto& [count, threads] : {std::pair(1u, 1u), {3u, 1u}, {3u, 2u}}) {
    UvWorld world(threads);
    std::atomic<uint> calls = 0, stop_at = 0;
    for (uint k = 0; k < count; ++k) {
      const auto geometry = std::make_shared<UvGeometry>(std::vector<uint>(3 + 2500 * k, 4));
      geometry->on_call = [&] {
        if (++calls >= stop_at) world.app.request_stop();
      };
      world.add(geometry);
    }
    uint reports = 0, stop_report = core_invalid_index;
    std::string last_task = "unfinished";
    const auto report = [&](const AppProgressReport& report) {
      if (++reports >= stop_report) world.app.request_stop();
      if (report.is_finished) last_task = report.task.get_data();
    };
    world.app.set_progress_bar_hook([&](AppProgressBar& bar) { bar.set_sink(report, std::chrono::milliseconds(0)); });
    const uint leaves = 4 * 3 * count + (count == 3 ? 4 * 7500 : 0);
    GasUvTree tree;
    const auto check = [&](const char* what, uint number) {
      last_task = "unfinished";
      tree.update(world.app, world.items, true, "");
      calls = reports = 0;
      tree.build();
      EXPECT_EQ(last_task, "") << what << number;
      const bool is_stopped = tree.is_dirty();
      EXPECT_EQ(tree.is_empty(), is_stopped) << what << number;
      EXPECT_EQ(tree.get_bbox().is_empty(), is_stopped) << what << number;
      EXPECT_EQ(tree.get_leaves().get_count(), is_stopped ? 0 : leaves);
      EXPECT_EQ(world.look_up(tree, {{0.25, 0, 0}}, 0.5), is_stopped ? 1.0f : 0.0f);
      const bool was_requested = world.app.is_stop_requested();
      world.app.clear_stop_request();
      return was_requested ? is_stopped : !is_stopped;
    };
    stop_at = core_invalid_index;
    EXPECT_TRUE(check("whole", 0));
    const uint total_calls = calls, total_reports = reports;
    for (stop_at = 1; stop_at <= total_calls; stop_at += 1 + stop_at / 8) EXPECT_TRUE(check("call ", stop_at));
    stop_at = core_invalid_index;
    for (stop_report = 1; stop_report <= total_reports && threads == 1; ++stop_report)  // others lose reports
      EXPECT_TRUE(check("report ", stop_report) || stop_report + 8 > total_reports);    // the last ones may be too late
    stop_report = core_invalid_index;
    EXPECT_TRUE(check("again", 0));
    world.app.request_stop();
    EXPECT_TRUE(check("before", 0));
    EXPECT_TRUE(count == 1 || threads > 1 || calls == 0u) << "a task was run after a stop request";
  }
}

TEST(GasUvTree, copies_and_rebuilds_are_the_same_and_independent) {
  UvWorld world, other;
  for (uint k = 0; k < 3; ++k) world.add_mesh(make_layout(400, k));
  other.add_mesh(make_layout(50, 9, 1.0, {5, 0, 0}));
  const auto expect_world = [&](const OpenTree& tree, bool is_world) {
    EXPECT_EQ(world.look_up(tree, {world.segments[7].a}, 0.01), is_world ? 0.0f : 1.0f);
    EXPECT_EQ(world.look_up(tree, {other.segments[3].a}, 0.01), is_world ? 1.0f : 0.0f);
  };
  OpenTree whole, assigned;
  world.build(whole);
  other.build(assigned);
  {
    OpenTree first;
    first.update(world.app, world.items, false, "uv");
    first.build();
    assigned = first;
    first = *&first;
    EXPECT_EQ(first.get_bytes(), whole.get_bytes());
  }
  const auto get_input = [](const OpenTree& tree) {
    return std::tuple(tree.get_use_first_uv_map(), tree.get_uv_map_name(), tree.get_geometries()->get_count(),
                      tree.is_dirty(), tree.get_leaf_user() == &tree);
  };
  OpenTree copy(assigned);
  EXPECT_EQ(get_input(assigned), std::tuple(false, CoreString("uv"), 3u, false, true));
  EXPECT_EQ(get_input(copy), get_input(assigned));
  EXPECT_EQ(copy.get_bytes(), whole.get_bytes());
  other.build(assigned);
  expect_world(copy, true);
  expect_world(assigned, false);
  copy.update(world.app, *copy.get_geometries(), true, copy.get_uv_map_name());
  OpenTree dirty(copy);
  EXPECT_EQ(get_input(dirty), std::tuple(true, CoreString("uv"), 3u, true, true));
  for (OpenTree* tree : {&copy, &dirty}) {
    tree->build();
    EXPECT_EQ(tree->get_bytes(), whole.get_bytes());
  }
}

TEST(GasUvTree, is_the_same_for_any_number_of_threads_and_answers_many) {
  RandomValues random(5);
  UvWorld layouts;
  for (uint k = 0; k < 5; ++k) layouts.add_mesh(make_layout(1500, k));
  OpenTree tree;
  std::string bytes;
  for (const uint threads : {1u, 2u, 4u}) {
    UvWorld world(threads);
    tree.update(world.app, layouts.items, true, "");
    tree.build();
    if (bytes.empty()) bytes = tree.get_bytes();
    EXPECT_TRUE(tree.get_bytes() == bytes) << threads;
  }
  std::vector<std::pair<Vec, float>> answers(200);
  uint grey = 0;
  for (auto& [point, expected] : answers) {
    point = {random.get(), random.get(), 0};
    expected = layouts.look_up(tree, {point}, 1e-3);
    grey += expected > 0.0f && expected < 1.0f;
  }
  EXPECT_GT(grey, 20u);
  std::vector<std::thread> askers;
  std::atomic<uint> differences = 0;
  for (uint k = 0; k < 8; ++k) {
    askers.emplace_back([&] {
      UvWorld own;
      for (const auto& [point, expected] : answers) differences += own.look_up(tree, {point}, 1e-3) != expected;
    });
  }
  for (std::thread& asker : askers) asker.join();
  EXPECT_EQ(differences, 0u);
}
