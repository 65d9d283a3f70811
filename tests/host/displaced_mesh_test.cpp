// A displaced mesh must be, bit by bit, the mesh of all of its micro-triangles, whatever is cached; and it must stay
// closed where its base is.
#include <thread>

#include "host/displaced_mesh_scenes.h"
#include "support/key_bbox_check.h"
#include "support/test_scale.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;

/// Seeded rays through a ball around the origin, at any time of the shutter.
void set_rays(GeometryRayPacket& packet, uint count, uint seed) {
  RandomValues random(seed);
  packet.resize(count);
  for (uint ray = 0; ray < count; ++ray) {
    const Vec from = random.get_vec(3.0);
    packet.set_ray(ray, from, random.get_vec(1.2) - from, 0.0, DBL_MAX, ray % 8 == 0 ? 0.5 : random.get(-0.1, 1.1));
  }
}

/// The nearest hits; at rest without motion blur.
std::vector<GeometryIntersection> shoot_all(QueryWorld& world, const GeometryObject& mesh, GeometryRayPacket& packet,
                                            const CtxMotionBlur* motion_blur) {
  GeometryRaytraceCtx& query = packet.begin_nearest(world.shading);
  if (motion_blur != nullptr) motion_blur->init_raytrace_ctx(query);
  test_primitives(world, mesh, query);
  std::vector<GeometryIntersection> hits;
  for (uint ray = 0; ray < packet.get_count(); ++ray) hits.push_back(packet.get_nearest(ray));
  return hits;
}

/// Rays at micro-vertices, every second from so far away that rounding is larger than a micro-triangle.
void check_rays_at_vertices(QueryWorld& world, const DisplacedMesh& mesh, const FlatMesh& flat) {
  RandomValues random(4);
  for (uint k = 0; k < scaled(400, 80); ++k) {
    const Vec origin = random.get_vec(k % 2 == 0 ? 3.0 : 1e12);
    const Vec direction = flat.get(random.get_index(flat.mesh.get_vertex_count())) - origin;
    ASSERT_EQ(shoot(world, mesh, origin, direction).distance, shoot(world, flat.mesh, origin, direction).distance) << k;
  }
}

void check_frustums(QueryWorld& world, const DisplacedMesh& mesh, const FlatMesh& flat) {
  RandomValues random(3);
  for (uint k = 0; k < scaled(40, 8); ++k) {
    GeometryFrustumCtx frustum;
    const bool is_small = k % 2 == 0;  // inside a micro-triangle
    const u32* corners = flat.mesh.get_part_vertices(random.get_index(static_cast<uint>(flat.sources.size())), 0);
    Vec center = random.get_vec(1.3), normal;
    if (is_small) center = (flat.get(corners[0]) + flat.get(corners[1]) + flat.get(corners[2])) * (1.0 / 3);
    for (uint plane = 0; plane < 6; ++plane) {
      normal = plane % 2 == 0 ? random.get_vec() : -normal;
      frustum.add_plane({center - normal.get_normalized() * (is_small ? 0.002 : 1.0), normal});
    }
    for (frustum.mode = 0; frustum.mode < 2; ++frustum.mode)
      for (uint primitive = 0; primitive < mesh.get_primitive_count(); ++primitive) {
        uint expected = frustum.mode;
        for (uint t = 0; t < flat.sources.size(); ++t) {
          if (flat.sources[t].first != primitive) continue;
          frustum.result = {};
          flat.mesh.frustum_hit_primitive(world.ctx, world.shader, frustum, t);
          expected = frustum.mode == 0 ? expected | frustum.result.hit_count : expected & frustum.result.hit_count;
        }
        frustum.result = {};
        mesh.frustum_hit_primitive(world.ctx, world.shader, frustum, primitive);
        ASSERT_EQ(frustum.result.hit_count, expected) << k << ' ' << frustum.mode << ' ' << primitive;
      }
  }
}

TEST(DisplacedMesh, is_the_mesh_of_its_micro_triangles) {
  QueryWorld world;
  const CtxMotionBlur motion_blur(0.0, 1.0, 4);
  for (const uint rate : {1u, 2u, 3u, 7u, 64u, 130u})
    for (const bool moving : {false, true}) {
      PolyMeshData data = rate > 8 ? make_polygons({{-1, -1, 0}, {1, -1, 0.2f}, {0, 1, 0}}, 3) : make_prism(6);
      if (moving) add_motion(data);
      PolyMesh base;
      create(base, data);
      DisplacedMesh mesh;
      displace(mesh, base, rate == 3 ? make_image() : make_noise(), rate);
      const FlatMesh flat(mesh, base, rate);
      ASSERT_EQ(mesh.get_micro_triangle_count(), flat.sources.size());
      GeometryRayPacket packet;
      set_rays(packet, scaled(rate > 8 ? 300 : 1000, 50), rate);
      for (const CtxMotionBlur* blur : {static_cast<const CtxMotionBlur*>(nullptr), &motion_blur}) {
        const std::vector<GeometryIntersection> expected = shoot_all(world, flat.mesh, packet, blur);
        const std::vector<GeometryIntersection> hits = shoot_all(world, mesh, packet, blur);
        uint count = 0;
        for (uint ray = 0; ray < hits.size(); ++ray) {
          ASSERT_EQ(hits[ray].distance, expected[ray].distance) << rate << ' ' << moving << ' ' << ray;
          if (hits[ray].geometry == nullptr) continue;
          ++count;
          ASSERT_EQ(std::pair(hits[ray].primitive, hits[ray].part), flat.sources[expected[ray].primitive]);
          const double time = blur == nullptr ? nan_time : packet.get_ray(ray).time;
          packet.get_ray(ray).tfar = std::nextafter(hits[ray].distance, DBL_MAX);
          const GeometrySurfacePoint point = mesh.get_surface_point(hits[ray], time);
          const GeometrySurfacePoint wanted = flat.mesh.get_surface_point(expected[ray], time);
          ASSERT_EQ(point.position, wanted.position);
          ASSERT_EQ(point.normal, wanted.normal);
        }
        EXPECT_GT(count, hits.size() / 20);
        const std::vector<GeometryIntersection> again = shoot_all(world, mesh, packet, blur);
        for (uint ray = 0; ray < hits.size(); ++ray) {
          ASSERT_EQ(again[ray].geometry, hits[ray].geometry) << "the interval ends behind the hit";
          packet.get_ray(ray).tfar = DBL_MAX;
        }
      }
      check_rays_at_vertices(world, mesh, flat);
      std::vector<GMathBbox3<double>> boxes(mesh.get_primitive_count());
      for (uint t = 0; t < flat.sources.size(); ++t)
        boxes[flat.sources[t].first].add(flat.mesh.get_primitive_bbox(world.ctx, t));
      for (uint primitive = 0; primitive < boxes.size(); ++primitive) {
        ASSERT_EQ(mesh.get_primitive_bbox(world.ctx, primitive), boxes[primitive]) << rate;
        if (moving && rate < 4)
          check_boxes_between_keys(world.ctx, motion_blur, base.get_motion_sampling(), 1e-6,
                                   [&](double time) { return mesh.get_primitive_bbox_at(world.ctx, time, primitive); });
      }
      if (rate < 4) check_frustums(world, mesh, flat);
    }
}

// Rays from inside at micro-vertices and at points of micro-edges; of those on a border several polygons have a share.
TEST(DisplacedMesh, closed_meshes_stay_closed) {
  QueryWorld world;
  RandomValues random(1);
  for (const bool moving : {false, true})
    for (uint scene = 0; scene < 6; ++scene) {
      PolyMeshData data = scene < 2 ? make_prism(4) : scene < 4 ? make_prism(7) : make_octahedron();
      const bool has_uv = scene < 4;
      if (moving) add_motion(data);
      PolyMesh base;
      create(base, data);
      const uint rate = scene == 0 ? 70 : 5 + scene;
      DisplacedMesh mesh;
      displace(mesh, base, scene % 2 == 1 && has_uv ? make_image() : make_noise(), rate);
      const CtxMotionBlur motion_blur(0.0, 1.0, 3);
      GeometryRayPacket packet;
      packet.resize(1);
      for_each_micro_triangle(mesh, base, rate, [&](uint primitive, uint part, uint, const uint(&at)[3][2]) {
        const bool border = at[0][0] == 0 || at[0][1] == 0 || at[0][0] + at[0][1] + 2 >= rate;
        if (rate > 10 && !border && random.get_index(20) != 0) return;
        const double time = random.get(0.0, 1.0), where = random.get_index(2) == 0 ? 0.0 : random.get(0.0, 1.0);
        const Vec from = mesh.get_micro_vertex(primitive, part, at[1][0], at[1][1], moving ? time : nan_time);
        const Vec to = mesh.get_micro_vertex(primitive, part, at[2][0], at[2][1], moving ? time : nan_time);
        const Vec origin = random.get_vec(0.1);
        packet.set_ray(0, origin, from + (to - from) * where - origin, 0.0, DBL_MAX, time);
        EXPECT_NE(shoot_all(world, mesh, packet, moving ? &motion_blur : nullptr)[0].geometry, nullptr)
            << scene << ' ' << moving << ' ' << primitive << ' ' << at[0][0] << ' ' << at[0][1];
      });
    }
}

// A flat square has all inner edges and micro-vertices where numbers are exact.
TEST(DisplacedMesh, hits_of_one_polygon_are_not_repeated_and_may_end_the_ray) {
  QueryWorld world;
  PolyMesh base;
  create(base, make_polygons({{-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}}, 4));
  DisplacedMesh mesh;
  displace(mesh, base, make_noise(0.0), 8);
  for (const double x : {-0.875, -0.75, 0.0, 0.25, 0.5})
    for (const double y : {-0.75, -0.5, -0.25, 0.0, 0.125, 0.5})
      EXPECT_EQ(count_hits(world, mesh, {x, y, 0}, {0, 0, 1}), 1u) << x << ' ' << y;
  GeometryRayPacket through_vertices;  // which look alike to parallel rays
  through_vertices.resize(2);
  for (uint k = 0; k < 2; ++k) through_vertices.set_ray(k, {0.25 + 0.5 * k, 0.5, 0}, {0, 0, 1});
  test_primitives(world, mesh, through_vertices.begin_all_hits(world.shading));
  EXPECT_EQ(through_vertices.get_hits().get_hits().size(), 2u);
  PolyMesh triangle;
  create(triangle, make_polygons({{-1, -0.8f, 0.1f}, {0.9f, -0.9f, 0.1f}, {0.1f, 0.8f, 0.1f}}, 3));
  DisplacedMesh hill;  // of one block of cells
  displace(hill, triangle, make_noise(0.5), 2);
  RandomValues random(6);
  displace(mesh, triangle, make_noise(0.01), 130);  // cut into three rows of tiles
  for (uint i = 41; i < 47; ++i)
    for (uint j = 41; j < 47; ++j)
      for (uint upper = 0; upper < 2; ++upper) {
        const auto get = [&](uint to_i, uint to_j) { return mesh.get_micro_vertex(0, 0, to_i, to_j, nan_time); };
        const Vec center = (get(i + upper, j + upper) + get(i + 1, j) + get(i, j + 1)) * (1.0 / 3);
        EXPECT_EQ(count_hits(world, mesh, center + Vec(0, 0, 1), {0, 0, -1}), 1u) << i << ' ' << j << ' ' << upper;
      }
  uint twice = 0;
  for (uint k = 0; k < 500; ++k) {
    const Vec origin = random.get_vec(0.1) + Vec(-2, 0, 0.1), direction(1, random.get(-0.3, 0.3), 0);
    if (count_hits(world, hill, origin, direction) < 2) continue;
    ++twice;
    EXPECT_EQ(count_hits(world, hill, origin, direction, 1), 1u) << "the stop rule ends the ray";
  }
  EXPECT_GT(twice, 0u);
}

TEST(DisplacedMesh, answers_do_not_depend_on_what_is_cached) {
  QueryWorld world;
  PolyMeshData data = make_prism(5);
  add_motion(data);
  PolyMesh base;
  create(base, data);
  const CtxMotionBlur motion_blur(0.0, 1.0, 3);
  std::vector<GeometryIntersection> expected;
  for (const u64 limit : {u64{64} << 20, u64{200} << 10, u64{0}}) {
    DisplacedMesh mesh;
    displace(mesh, base, make_noise(), 32, limit);
    std::vector<std::vector<GeometryIntersection>> hits(8);
    std::vector<std::thread> threads;
    for (auto& own : hits)
      threads.emplace_back([&] {
        GeometryRayPacket packet;
        set_rays(packet, 60, 4);
        own = shoot_all(world, mesh, packet, &motion_blur);
      });
    for (std::thread& thread : threads) thread.join();
    if (expected.empty()) expected = hits[0];
    for (const auto& own : hits)
      for (uint ray = 0; ray < own.size(); ++ray) {
        ASSERT_EQ(own[ray].distance, expected[ray].distance);
        ASSERT_EQ(own[ray].primitive, expected[ray].primitive);
        ASSERT_EQ(own[ray].part, expected[ray].part);
      }
    const u64 tile_bytes = 30000;  // of two frames; a query holds up to five
    EXPECT_LE(mesh.get_cache_bytes(), limit);
    EXPECT_LE(mesh.get_peak_cache_bytes(), limit + 8 * 6 * tile_bytes);
    EXPECT_GT(mesh.get_memory_size(), mesh.get_cache_bytes());
    EXPECT_GE(mesh.get_memory_advert_count(), limit > 0 ? 1u : 0u);
  }
}

/// A smooth function with a known gradient.
class WaveHeight final : public GeometryHeight {
 public:
  double get_height(const GeometryHeightPoint& p) const override {
    return 0.1 * std::sin(3 * p.position.x) * std::cos(2 * p.position.y);
  }
  u64 get_memory_size() const override { return sizeof(*this); }
};

// Straight down at tops in the lower half of the mesh: the boxes around them begin where the interval ends.
TEST(DisplacedMesh, hits_just_before_the_end_are_kept) {
  QueryWorld world;
  PolyMesh base;
  create(base, make_polygons({{-6, -1, -0.6f}, {6, 0, 0.6f}, {-6, 1, -0.6f}}, 3));
  DisplacedMesh mesh;
  displace(mesh, base, std::make_shared<WaveHeight>(), 64);
  for (uint i = 1; i < 64; ++i)
    for (uint j = 1; i + j < 64; ++j) {
      const Vec vertex = mesh.get_micro_vertex(0, 0, i, j, nan_time), origin(vertex.x, vertex.y, 5);
      const double tfar = std::nextafter(shoot(world, mesh, origin, {0, 0, -1}).distance, DBL_MAX);
      EXPECT_NE(shoot(world, mesh, origin, {0, 0, -1}, 0.0, tfar).geometry, nullptr) << i << ' ' << j;
    }
}

TEST(DisplacedMesh, surface_points_are_smooth_and_refer_to_the_base) {
  QueryWorld world;
  PolyMeshData data = make_polygons({{-1, -1, 0}, {1, -1, 0}, {1.2f, 0, 0}, {1, 1, 0}, {-1, 1, 0}}, 5);
  GeometryUvMap map;
  map.positions = data.positions;
  map.corner_positions = data.polygon_vertices;
  data.uv_maps.push_back(map);
  PolyMesh base;
  create(base, data);
  DisplacedMesh waves, flat;
  displace(waves, base, std::make_shared<WaveHeight>(), 70);
  displace(flat, base, make_noise(0.0), 7);
  RandomValues random(2);
  for (uint k = 0; k < 2000; ++k) {
    const double x = random.get(), y = k % 3 == 0 ? x + 5e-6 : random.get();  // some next to an edge between triangles
    GeometryIntersection hit = shoot(world, waves, {x, y, 1}, {0, 0, -1});
    ASSERT_NE(hit.geometry, nullptr);
    const Vec normal(-0.3 * std::cos(3 * x) * std::cos(2 * y), 0.2 * std::sin(3 * x) * std::sin(2 * y), 1);
    const GeometrySurfacePoint point = waves.get_surface_point(hit, 0.0);
    EXPECT_LT((point.shading_normal - normal.get_normalized()).get_length(), 0.02) << x << ' ' << y;
    EXPECT_LT((point.uv - Vec(x, y, 0)).get_length(), 1e-6);
    const GeometryIntersection beside = shoot(world, waves, {x, y - 1e-5, 1}, {0, 0, -1});
    EXPECT_LT((waves.get_surface_point(beside, 0.0).shading_normal - point.shading_normal).get_length(), 1e-4);
    hit = shoot(world, flat, {x, y, 1}, {0, 0, -1});
    EXPECT_NEAR(flat.get_edge_proximity(hit), base.get_edge_proximity(shoot(world, base, {x, y, 1}, {0, 0, -1})), 1e-6);
  }
}

}  // namespace
