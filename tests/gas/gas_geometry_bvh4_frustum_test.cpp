// Frustum queries of the mesh structure against every polygon in long double, in all modes.
#include "support/built_mesh.h"
#include "support/mesh_oracle.h"
#include "support/mesh_scenes.h"
#include "support/ray_sets.h"
#include "support/test_scale.h"
#include "vq_geometry/geometry_frustum_ctx.h"

namespace {

using Vec = GMathVec3<double>;

/// What is left of a triangle in front of all planes, each moved forwards by `inset`.
bool touches(std::vector<Long3> polygon, const std::vector<GeometryPlane>& planes, long double inset) {
  for (const GeometryPlane& plane : planes) {
    const Long3 normal = Long3(plane.normal).get_normalized();
    const auto measure = [&](const Long3& p) { return normal.dot(p - Long3(plane.point)) - inset; };
    std::vector<Long3> rest;
    for (std::size_t k = 0; k < polygon.size(); ++k) {
      const Long3 &a = polygon[k], &b = polygon[(k + 1) % polygon.size()];
      const long double at_a = measure(a), at_b = measure(b);
      if (at_a >= 0) rest.push_back(a);
      if ((at_a < 0) != (at_b < 0)) rest.push_back(a + (b - a) * (at_a / (at_a - at_b)));
    }
    polygon = rest;
  }
  return !polygon.empty();
}

/// Smallest distance of a point to the inner side of the planes.
long double get_depth(const Long3& p, const std::vector<GeometryPlane>& planes) {
  long double depth = HUGE_VALL;
  for (const GeometryPlane& plane : planes)
    depth = std::min(depth, Long3(plane.normal).get_normalized().dot(p - Long3(plane.point)));
  return depth;
}

/// Up to eight planes around a point of the mesh; small ones, large ones and open ones.
std::vector<GeometryPlane> make_planes(const GMathBbox3<double>& box, RandomValues& random) {
  const double size = box.get_extent().get_length() * std::pow(2.0, random.get(-4, 1.5));
  Vec centre;
  for (uint axis = 0; axis < 3; ++axis) centre[axis] = random.get(box.min[axis], box.max[axis] + 1e-30);
  std::vector<GeometryPlane> planes;
  const uint sides = random.get_index(9);
  for (uint k = 0; k < sides; ++k) {
    Vec normal = random.get_vec();
    if (random.get_index(3) == 0) normal = k % 2 == 0 ? Vec(1, 0, -0.0) : Vec(0, 0, -1);
    planes.emplace_back(centre - normal.get_normalized() * (size * random.get(0.2, 1)), normal * random.get(0.1, 10));
  }
  return planes;
}

struct FrustumCheck {
  FrustumCheck(QueryWorld& world, const PolyMeshData& source)
      : world(world), built(world, source), corners(get_all_corners(data)), box(get_finite_box(data)) {
    band =
        1e-5L * box.get_extent().get_length() + 0x1p-21L * std::max(get_size(Long3(box.min)), get_size(Long3(box.max)));
  }

  void ask(GeometryFrustumCtx& query, uint mode, const std::vector<GeometryPlane>& planes, uint ends) const {
    for (const GeometryPlane& plane : planes) {
      if (query.end_plane_count < ends) {
        query.end_planes[query.end_plane_count++] = plane;
      } else {
        query.add_plane(plane);
      }
    }
    query.mode = mode;
    query.shading = &world.shading;
    built.structure.frustum_hit(world.ctx, world.shader, query);
  }

  void check(const std::vector<GeometryPlane>& planes, uint ends) const {
    bool surely = false, perhaps = false;
    uint inside = 0, close = 0;
    for (uint p = 0; p < corners.size(); ++p) {
      if (!is_sound(p)) continue;
      surely |= touches(corners[p], planes, band);
      perhaps |= touches(corners[p], planes, -band);
      long double depth = HUGE_VALL;
      for (const Long3& corner : corners[p]) depth = std::min(depth, get_depth(corner, planes));
      inside += depth > band;
      close += std::fabs(depth) <= band;
    }
    GeometryFrustumCtx any;
    ask(any, 0, planes, ends);
    if (surely || !perhaps) {
      EXPECT_EQ(any.result.hit_count > 0, surely);
      EXPECT_EQ(any.result.finished != 0, surely);
    }
    GeometryFrustumCtx all;
    ask(all, 1, planes, ends);
    EXPECT_EQ(all.result.total, corners.size());
    EXPECT_GE(all.result.hit_count, inside);
    EXPECT_LE(all.result.hit_count, inside + close);
    if (close == 0) {
      EXPECT_EQ(all.result.outside == 0, inside == built.structure.get_kept_count());
    }
    check_points(planes, ends);
  }

  void check_points(const std::vector<GeometryPlane>& planes, uint ends) const {
    GeometryFrustumCtx points, vertices;
    ask(points, 2, planes, ends);
    ask(vertices, 3, planes, ends);
    ASSERT_EQ(points.get_points().size(), vertices.get_points().size());
    std::vector<uint> found(data.positions.size());
    for (std::size_t k = 0; k < vertices.get_points().size(); ++k) {
      const GeometryFrustumVertex& vertex = vertices.get_points()[k];
      ASSERT_LT(vertex.index, data.positions.size());
      EXPECT_EQ(vertex.geometry, &built.mesh);
      EXPECT_EQ(vertex.position, Vec(data.positions[vertex.index]));
      EXPECT_EQ(points.get_points()[k].position, vertex.position);
      ++found[vertex.index];
    }
    std::vector<u8> used(data.positions.size());
    for (uint p = 0, first = 0; p < corners.size(); first += data.polygon_sizes[p++])
      for (uint k = 0; k < data.polygon_sizes[p] && is_sound(p); ++k) used[data.polygon_vertices[first + k]] = 1;
    for (uint v = 0; v < found.size(); ++v) {
      const long double depth = used[v] ? get_depth(Long3(data.positions[v]), planes) : -HUGE_VALL;
      if (std::fabs(depth) > band) {
        EXPECT_EQ(found[v], depth > 0 ? 1u : 0u) << v;
      }
    }
  }

  bool is_sound(uint p) const {
    if (corners[p].size() < 3) return false;
    for (const Long3& corner : corners[p])
      if (!std::isfinite(corner.x + corner.y + corner.z)) return false;
    return true;
  }

  QueryWorld& world;
  const BuiltMesh built;
  const PolyMeshData& data = built.data;
  std::vector<std::vector<Long3>> corners;
  GMathBbox3<double> box;
  long double band = 0;
};

TEST(GasGeometryBvh4Frustum, agrees_with_every_polygon) {
  QueryWorld world;
  for (const MeshScene& scene : make_mesh_scenes(200, 3)) {
    if (scene.name == "stars") continue;
    SCOPED_TRACE(scene.name);
    const FrustumCheck check(world, scene.data);
    RandomValues random(5);
    for (uint k = 0; k < scaled(150, 30); ++k) check.check(make_planes(check.box, random), random.get_index(3));
  }
}

TEST(GasGeometryBvh4Frustum, counts_only_groups_that_can_be_hit) {
  QueryWorld world;
  PolyMeshData data = make_soup(60, 4);
  data.group_names.assign(3, CoreString("group"));
  for (uint p = 0; p < 60; ++p) data.polygon_groups.push_back(p % 6 == 0 ? 0 : p % 2 + 1);
  ShadingGroupLinks empty;
  empty.material = ShadingGroupLinks::material_empty;
  world.entries = {&world.links[0], nullptr, &empty, &world.links[0], nullptr};
  world.shading = ShadingGroupTable(world.entries);
  const FrustumCheck check(world, data);
  const uint expected[4] = {10, 30, 20, 10};
  for (uint offset = 0; offset < 4; ++offset) {
    GeometryFrustumCtx all;
    all.shading_group_offset = offset;
    check.ask(all, 1, {}, 0);  // without planes everything is inside
    EXPECT_EQ(all.result.total, expected[offset]) << offset;
    EXPECT_EQ(all.result.hit_count, expected[offset]) << offset;
    EXPECT_EQ(all.result.outside, 0);
  }
}

TEST(GasGeometryBvh4Frustum, reused_query_forgets_former_marks) {
  QueryWorld world;
  const FrustumCheck large(world, make_soup(200, 7)), small(world, make_soup(3, 8)), none(world, PolyMeshData());
  GeometryFrustumCtx query;
  for (const auto& [check, count] : {std::pair(&large, 600u), {&small, 9u}, {&none, 0u}}) {
    check->ask(query, 3, {}, 0);
    EXPECT_EQ(query.get_points().size(), count);
    EXPECT_EQ(query.point_count, count);
    query.get_points().clear();
  }
  large.ask(query, 3, {{{5, 0, 0}, {1, 0, 0}}}, 0);  // marks of another query are gone
  EXPECT_TRUE(query.get_points().empty());
}

}  // namespace
