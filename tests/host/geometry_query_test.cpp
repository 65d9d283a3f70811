// Query records: filters, motion vectors of nested hits, paths, surfaces of hits, beams.

#include "host/mesh_shots.h"
#include "support/random_values.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_hit_surface.h"
#include "vq_geometry/geometry_intersection_path.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"

namespace {

using Vec = GMathVec3<double>;
using Matrix = GMathMatrix4x4<double>;

Matrix make_matrix(RandomValues& random) {
  Matrix matrix;
  for (uint r = 0; r < 3; ++r)
    for (uint c = 0; c < 4; ++c) matrix.m[r][c] = random.get(-2, 2);
  return matrix;
}

void expect_near(const Vec& a, const Vec& b) {
  for (uint axis = 0; axis < 3; ++axis) EXPECT_NEAR(a[axis], b[axis], 1e-9);
}

/// Planes z = 1, 2 and 3, listed from behind.
void create_sheets(PolyMesh& mesh) {
  create(
      mesh,
      make_polygons(
          {{-9, -9, 3}, {9, -9, 3}, {0, 9, 3}, {-9, -9, 2}, {9, -9, 2}, {0, 9, 2}, {-9, -9, 1}, {9, -9, 1}, {0, 9, 1}},
          3));
}

bool note_call(const CtxEval&, CtxShader&, GeometryRaytraceCtx&, GeometryIntersection&,
               const GeometryRaytraceFilter& filter) {
  auto* calls = static_cast<std::vector<double>*>(const_cast<void*>(filter.user));
  calls->push_back(filter.a);
  return true;
}

TEST(RaytraceFilter, runs_last_pushed_first_and_no_more_than_fit) {
  QueryWorld world;
  PolyMesh mesh;
  create_sheets(mesh);
  GeometryRayPacket packet;
  packet.resize(1);
  packet.set_ray(0, {0, 0, 0}, {0, 0, 1}, 1.5, 2.5);
  GeometryRaytraceCtx& query = packet.begin_all_hits(world.shading);
  std::vector<double> calls;
  for (uint k = 0; k < GeometryRaytraceCtx::filter_capacity; ++k)
    EXPECT_TRUE(query.push_filter({note_call, 1.0 * k, 0.0, 0, &calls}));
  EXPECT_FALSE(query.push_filter({note_call, 1.0, 0.0, 0, nullptr}));
  query.pop_filter();
  test_primitives(world, mesh, query);
  EXPECT_EQ(calls, (std::vector<double>{6, 5, 4, 3, 2, 1, 0}));  // once: the other sheets are outside the interval
  EXPECT_EQ(packet.get_hits().get_hits().size(), 1u);
  packet.set_ray(0, {0, 0, 0}, {0, 0, 1}, 1.5, 2.0);  // up to the sheet, which is not within
  packet.begin_all_hits(world.shading).push_filter({note_call, 0.0, 0.0, 0, &calls});
  test_primitives(world, mesh, query);
  EXPECT_TRUE(packet.get_hits().get_hits().empty());
}

TEST(HitData, belongs_to_the_hit_that_brought_it) {
  QueryWorld world;
  PolyMesh mesh;
  CoreCustomData custom;
  const GeometryHitData none, water{{1.33f, 4.0f, 2}, nullptr}, glass{{1.5f, 8.0f, 7}, &custom};
  const auto expect_same = [](const GeometryHitData& a, const GeometryHitData& b) {
    EXPECT_EQ(a.medium.refraction, b.medium.refraction);
    EXPECT_EQ(a.medium.absorption_distance, b.medium.absorption_distance);
    EXPECT_EQ(a.medium.priority, b.medium.priority);
    EXPECT_EQ(a.custom, b.custom);
  };
  GeometryRayPacket packet;
  packet.resize(2);
  for (uint ray = 0; ray < 2; ++ray) packet.set_ray(ray, {0, 0, 0}, {0, 0, 1});
  const auto push = [&](GeometryRaytraceCtx& query, uint ray, double distance, const GeometryHitData* data) {
    query.geometry = &mesh;
    return query.push_intersection(world.ctx, world.shader, ray, {distance, 0.0, 0.0, 0, 0}, data);
  };
  for (uint repeat = 0; repeat < 2; ++repeat) {
    GeometryRaytraceCtx& all = packet.begin_all_hits(world.shading);
    std::vector<uint> reported;
    all.hit_user = &reported;
    all.hit_callback = [](GeometryRaytraceCtx&, const uint&, const GeometryIntersection& hit, void* user) {
      static_cast<std::vector<uint>*>(user)->push_back(hit.data);
    };
    const GeometryHitData* const pushed[] = {&water, nullptr, &glass, nullptr, &water};
    for (uint k = 0; k < 5; ++k) push(all, k % 2, 5.0 - k, pushed[k]);
    const GeometryHitList& list = packet.get_hits();
    for (uint k = 0; k < 5; ++k) {
      expect_same(list.get_data(list.get_hits()[k].hit), pushed[k] != nullptr ? *pushed[k] : none);
      EXPECT_EQ(reported[k], list.get_hits()[k].hit.data);
    }
    GeometryRaytraceCtx& nearest = packet.begin_nearest(world.shading);
    const auto expect_data = [&](const GeometryHitData& first, const GeometryHitData& second) {
      expect_same(packet.get_nearest_data(0), first);
      expect_same(packet.get_nearest_data(1), second);
    };
    expect_data(none, none);
    push(nearest, 1, 6, &glass);
    expect_data(none, glass);
    push(nearest, 0, 5, &water);
    EXPECT_FALSE(push(nearest, 1, 6, &water));
    expect_data(water, glass);
    push(nearest, 1, 4, nullptr);
    expect_data(water, none);
    push(nearest, 1, 3, &water);
    std::vector<double> calls;
    nearest.push_filter({note_call, 0.0, 0.0, 0, &calls});
    push(nearest, 0, 4, nullptr);
    expect_data(none, water);
    push(nearest, 0, 3, &glass);
    expect_data(glass, water);
  }
}

/// A query inside another, set up as by a scene tree.
struct NestedQuery {
  explicit NestedQuery(GeometryRaytraceCtx& outer) : query(outer) {
    query.parent = &outer;
    if (outer.path != nullptr) path.copy_from(*outer.path);
    path.add({++query.level, nullptr, nullptr});
    query.path = &path;
    if (outer.map != nullptr) map = outer.map->get_deeper();
    query.map = outer.map != nullptr ? &map : nullptr;
  }
  GeometryIntersectionMap map;
  GeometryIntersectionPath path;
  GeometryRaytraceCtx query;
};

TEST(NestedQuery, motion_vectors_come_up_through_levels_with_and_without_them) {
  RandomValues random(7);
  QueryWorld world;
  PolyMesh mesh;
  GeometryRayPacket packet;
  packet.resize(1);
  for (uint row = 0; row < 8; ++row) {  // bit k: level k comes with the matrix at the end of the span
    GeometryRaytraceCtx& outer = packet.begin_nearest(world.shading);
    NestedQuery a(outer), b(a.query), c(b.query);
    c.query.geometry = &mesh;
    ASSERT_TRUE(outer.map->reserve_nested() && c.query.push_intersection(world.ctx, world.shader, 0, {1.0}));
    GeometryIntersectionMap* maps[3] = {outer.map, a.query.map, b.query.map};
    Matrix expected, expected_end;
    for (uint k = 3; k-- > 0;) {
      const Matrix matrix = make_matrix(random), end = row >> k & 1u ? make_matrix(random) : matrix;
      row >> k & 1u ? maps[k]->transform_path(0, matrix, end, k) : maps[k]->transform_path(0, matrix, k);
      expected = matrix * expected;
      expected_end = end * expected_end;
    }
    const GeometryHitTransform& transform = *packet.get_nearest_transform(0);
    EXPECT_EQ(transform.has_vectors, row != 0);
    const Vec point = random.get_vec();
    expect_near(transform.matrix.transform_point(point), expected.transform_point(point));
    if (row != 0) expect_near(transform.matrix2.transform_point(point), expected_end.transform_point(point));
  }
}

TEST(HitSurface, lies_where_the_geometry_was_carried_to) {
  RandomValues random(8);
  for (uint k = 0; k < 100; ++k) {
    PolyMesh mesh;
    PolyMeshData data = make_polygons({random.get_vec<float>(), random.get_vec<float>(), random.get_vec<float>()}, 3);
    const Vec edges[2] = {Vec(data.positions[1]) - Vec(data.positions[0]),
                          Vec(data.positions[2]) - Vec(data.positions[0])};
    data.motion_positions = {data.positions, data.positions};
    for (GMathVec3<float>& position : data.motion_positions[1]) position = position * 2.0f;  // from time 0 to 1
    create(mesh, std::move(data));
    GeometryIntersection hit;
    hit.geometry = &mesh;
    hit.primitive = 0;
    GeometryHitTransform transform{make_matrix(random), make_matrix(random), true};  // mirroring every other time
    const GeometrySurfacePoint plain = geometry_get_hit_surface(hit, nullptr, 0.0);
    const GeometrySurfacePoint point = geometry_get_hit_surface(hit, &transform, 0.0);
    expect_near(point.position, transform.matrix.transform_point(plain.position));
    for (const Vec& normal : {point.normal, point.shading_normal}) {
      for (const Vec& edge : edges) EXPECT_NEAR(normal.dot(transform.matrix.transform_vector(edge)), 0.0, 1e-6);
      EXPECT_GT(normal.dot(transform.matrix.transform_vector(plain.normal)), 0.0);
      EXPECT_NEAR(normal.get_length(), 1.0, 1e-12);
    }
    const Vec end = plain.position * 2.0;
    expect_near(geometry_get_end_position(hit, &transform, 1.0), transform.matrix2.transform_point(end));
    transform.has_vectors = false;
    expect_near(geometry_get_end_position(hit, &transform, 1.0), transform.matrix.transform_point(end));
  }
}

TEST(IntersectionPath, keeps_its_elements_when_it_outgrows_itself) {
  GeometryIntersectionPath path, copy;
  for (uint k = 0; k < 9; ++k) {
    path.add({k, nullptr, nullptr});
    EXPECT_EQ(path[k / 2].object_index, k / 2);
  }
  for (uint k = 9; k < 50; ++k) ASSERT_TRUE(path.add(path[3]));  // may lie in the block that growing frees
  ASSERT_TRUE(copy.copy_from(path));
  path.remove_all();
  ASSERT_EQ(copy.get_count(), 50u);
  for (uint k = 0; k < 50; ++k) EXPECT_EQ(copy[k].object_index, k < 9 ? k : 3);
}

TEST(Frustum, boxes_whose_bounds_cannot_be_measured_straddle) {
  GeometryFrustumCtx query;
  query.add_plane({{0, 0, 0}, {0, 0, 1}});
  EXPECT_EQ(query.classify({{-1, -1, 1}, {1, 1, 2}}), GeometryBoxPlace::inside);
  EXPECT_EQ(query.classify({{-1, -1, 1}, {1, 1, NAN}}), GeometryBoxPlace::straddling);
  EXPECT_EQ(query.classify({{-HUGE_VALF, -1, 1}, {1, 1, 2}}), GeometryBoxPlace::straddling);  // times 0
}

/// How far point `p` is along the beam.
double get_distance(const GeometryRayFrustumCtx& query, const Vec& p) {
  const Vec& normal = query.get_plane_normal();
  return (p - query.get_origin()).dot(normal) / query.get_direction().dot(normal);
}

TEST(RayFrustum, cross_sections_are_the_same_in_every_space) {
  RandomValues random(6);
  for (uint k = 0; k < 200; ++k) {
    // A square around the direction, its corners at any distance.
    const Vec origin = random.get_vec(5.0), direction = random.get_vec();
    const Vec side = direction.cross(random.get_vec()), up = direction.cross(side);
    const Vec square[4] = {side, up, -side, -up};
    Vec to_corners[4], offsets[4];
    for (uint c = 0; c < 4; ++c) {
      to_corners[c] = (direction + square[c] * 0.3) * random.get(0.1, 5.0);
      offsets[c] = square[c] + direction * random.get(-2.0, 2.0);
    }
    GeometryRayFrustumBeam beams[2];
    GeometryRayFrustumRecord records[2];
    ASSERT_TRUE(beams[0].set_perspective(origin, direction, to_corners, 1.0, 9.0));
    ASSERT_TRUE(beams[1].set_parallel(origin, direction, offsets, 2.0, 8.0));
    GeometryRayFrustumCtx outer, scene, inner;
    outer.begin(beams, records, 2);
    outer.kind = 7;
    outer.edge = 3.0;
    for (uint beam = 0; beam < 2; ++beam) {
      outer.init(beam);
      const Matrix to_scene = make_matrix(random), to_inner = make_matrix(random);  // mirrored as often as not
      int object = 0;
      scene.init_local(outer, to_scene, to_scene.get_inverse(), nullptr);
      inner.init_local(scene, to_inner, to_inner.get_inverse(), reinterpret_cast<ModuleSceneObject*>(&object));
      const Matrix back = (to_inner * to_scene).get_inverse();
      for (const double t : {0.0, 1.0, 4.5}) {
        Vec corners[4], local[4];
        outer.get_corners(t, corners);
        inner.get_corners(t, local);
        for (uint c = 0; c < 4; ++c) {
          const Vec expected = origin + direction * t + square[c] * (beam == 0 ? 0.3 * t : 1.0);
          expect_near(corners[c], expected);
          EXPECT_LT((back.transform_point(local[c]) - expected).get_length(), 1e-6);
          EXPECT_NEAR(get_distance(inner, local[c]), t, 1e-6);
        }
      }
      EXPECT_EQ(inner.get_frustum_count(), 1u);
      EXPECT_EQ(inner.object, reinterpret_cast<u64>(&object));
      EXPECT_EQ(inner.kind + inner.edge + inner.get_tnear() + inner.get_tfar(), 20.0);
      inner.get_record() = {5.0 + beam, 1.0, 3, inner.object};  // what an inner query finds ends the outer beam
      EXPECT_EQ(outer.get_tfar(), 5.0 + beam);
      EXPECT_EQ(scene.get_tfar(), 5.0 + beam);
    }
    outer.init(0);
    EXPECT_EQ(outer.get_tfar(), 5.0);
    outer.begin(beams, records, 2);
    EXPECT_EQ(outer.get_tfar(), 9.0);
    EXPECT_EQ(outer.get_record().index, core_invalid_index);
    to_corners[2] = -direction;
    EXPECT_FALSE(beams[0].set_perspective(origin, direction, to_corners, 0.0, 1.0));
    EXPECT_FALSE(beams[0].set_parallel(origin, Vec(), offsets, 0.0, 1.0));
    EXPECT_EQ(beams[0].tfar, 9.0);
  }
}

TEST(CtxEval, contexts_of_threads_follow_the_one_that_the_next_work_is_done_for) {
  QueryWorld world;
  const CtxMotionBlur motion_blur(0.0, 1.0, 2);
  for (const CtxMotionBlur* blur : {&motion_blur, static_cast<const CtxMotionBlur*>(nullptr)}) {
    world.ctx.set_motion_blur(blur);
    EXPECT_EQ(world.ctx.get_or_create_thread_ctx(1).get_motion_blur(), blur);
  }
}

}  // namespace
