// What a displaced mesh is made from: heights, normals and settings. And what it keeps: boxes and cached tiles.
#include <thread>

#include "host/displaced_mesh_scenes.h"

namespace {

using Vec = GMathVec3<double>;
using VecF = GMathVec3<float>;

TEST(DisplacedMesh, micro_vertices_turn_with_the_mesh) {
  const QueryWorld world;
  PolyMeshData data = make_prism(4);
  add_motion(data);
  PolyMesh base;
  create(base, data);
  const std::shared_ptr<const GeometryHeight> image = make_image();
  DisplacedMesh mesh;
  displace(mesh, base, image, 3);
  std::vector<Vec> at_half;
  for (uint j = 0; j <= 3; ++j) {
    const Vec rest = mesh.get_micro_vertex(2, 0, 0, j, nan_time), at = mesh.get_micro_vertex(2, 0, 0, j, 0.0);
    const Vec turned(rest.x * std::cos(0.4) - rest.y * std::sin(0.4), rest.x * std::sin(0.4) + rest.y * std::cos(0.4),
                     rest.z);
    EXPECT_LT((at - turned).get_length(), 1e-6);
    at_half.push_back(mesh.get_micro_vertex(2, 0, 0, j, 0.5));
  }
  PolyMeshData moved_once = make_prism(4);  // by a single motion sample
  moved_once.motion_positions.push_back(data.motion_positions[1]);
  create(base, moved_once);
  displace(mesh, base, image, 3);
  for (uint j = 0; j <= 3; ++j) EXPECT_LT((mesh.get_micro_vertex(2, 0, 0, j, 0.7) - at_half[j]).get_length(), 1e-12);
  mesh.get_primitive_bbox(world.ctx, 0);
  const u64 bytes = mesh.get_cache_bytes();
  mesh.get_primitive_bbox_at(world.ctx, 0.7, 0);
  EXPECT_EQ(mesh.get_cache_bytes(), 2 * bytes) << "one frame";
  // A polygon that stands still has normals that turn with its neighbor's.
  PolyMeshData pair = make_polygons({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, 3);
  pair.polygon_sizes = {3, 3};
  pair.polygon_vertices = {0, 1, 2, 1, 3, 2};
  pair.polygon_groups = {0, 1};
  pair.group_names.assign(2, CoreString("group"));
  pair.motion_positions.assign(2, pair.positions);
  pair.motion_positions[1][3].z = 1;
  create(base, pair);
  displace(mesh, base, make_noise(), 2);
  EXPECT_TRUE(!base.has_shading_group_motion(0) && mesh.has_shading_group_motion(0));
}

TEST(DisplacedMesh, seams_of_the_image_are_closed_by_the_mean) {
  PolyMeshData data = make_prism(4);
  std::vector<VecF*> uvs;  // of the three corners at the last vertex
  for (uint corner = 0; corner < data.polygon_vertices.size(); ++corner)
    if (data.polygon_vertices[corner] == 7) uvs.push_back(&data.uv_maps[0].positions[corner]);
  *uvs[2] = *uvs[1];  // counts once
  PolyMesh base;
  create(base, data);
  const std::shared_ptr<const GeometryHeight> image = make_image();
  DisplacedMesh mesh;
  displace(mesh, base, image, 3);
  double sum = 0.0;
  for (uint k = 0; k < 2; ++k) sum += std::clamp(image->get_height({{}, {uvs[k]->x, uvs[k]->y}}), -0.1, 0.1);
  const Vec moved = mesh.get_micro_vertex(4, 0, 0, 3, nan_time) - Vec(data.positions[7]);
  EXPECT_NEAR(moved.get_length(), std::fabs(sum / 2), 1e-6);
}

TEST(DisplacedMesh, height_functions_are_bounded_and_continuous) {
  const std::shared_ptr<const GeometryHeight> noise = make_noise(0.5), image = make_image();
  RandomValues random(8);
  double most = 0.0;
  for (uint k = 0; k < 2000; ++k) {
    GeometryHeightPoint point{random.get_vec(20.0), {random.get(-3, 3), random.get(-3, 3)}};
    if (k % 2 == 0) point.position.x = std::round(point.position.x);  // a face of lattice cells
    GeometryHeightPoint next = point;
    next.position.x -= 1e-9;
    EXPECT_NEAR(noise->get_height(point), noise->get_height(next), 1e-7);
    most = std::max(most, std::fabs(noise->get_height(point)));
    next.uv = {point.uv.x + 1, point.uv.y - 2};
    EXPECT_NEAR(image->get_height(point), image->get_height(next), 1e-12);
  }
  EXPECT_TRUE(most > 0.15 && most <= 0.5) << most;
  const GeometryImageHeight pixels(2, 2, {0, 1, 2, 3});
  const auto get = [&](double u, double v) { return pixels.get_height({{}, {u, v}}); };
  EXPECT_EQ(get(0.25, 0.25), 0.0);
  EXPECT_EQ(get(0.75, 0.25), 1.0);
  EXPECT_EQ(get(0.5, 0.5), 1.5);
  EXPECT_EQ(get(1.0, 1.25), 0.5);  // between the last and the first pixel
}

TEST(DisplacedMesh, bad_settings_and_coordinates_are_refused) {
  QueryWorld world;
  constexpr float inf = std::numeric_limits<float>::infinity();
  PolyMeshData data =
      make_polygons({{0, 0, 0}, {0.9f, 0.1f, 0.2f}, {0, 1, 0}, {inf, 0, 0}, {0, 0, 0}, {0, 0, nan_time}}, 3);
  data.polygon_sizes.push_back(3);  // one without an infinite coordinate
  data.polygon_vertices.insert(data.polygon_vertices.end(), {4, 1, 5});
  data.polygon_vertices[4] = 1;  // the broken polygon shares a vertex
  data.polygon_sizes.push_back(2);
  data.polygon_vertices.insert(data.polygon_vertices.end(), {0, 1});
  PolyMesh base;
  create(base, data);
  DisplacedMesh mesh;
  displace(mesh, base, make_noise(), 4);
  EXPECT_TRUE(gmath_is_valid_box(mesh.get_primitive_bbox(world.ctx, 0)));
  for (const uint broken : {1u, 2u, 3u}) EXPECT_FALSE(gmath_is_valid_box(mesh.get_primitive_bbox(world.ctx, broken)));
  EXPECT_NE(mesh.get_micro_vertex(0, 0, 4, 0, nan_time).z, 0.2f);
  EXPECT_NE(shoot(world, mesh, {0.2, 0.2, 3}, {0, 0, -1}).geometry, nullptr);
  const auto refuses = [&](double bound, uint rate, std::shared_ptr<const GeometryHeight> height) {
    DisplacedMeshSettings settings;
    settings.bound = bound;
    settings.rate = rate;
    settings.height = std::move(height);
    CoreString error;
    return !mesh.create(base, settings, error) && !error.is_empty() && mesh.get_micro_triangle_count() == 48;
  };
  for (const double bound : {nan_time, double{inf}, -1.0}) EXPECT_TRUE(refuses(bound, 4, make_noise())) << bound;
  for (const uint rate : {0u, 1025u, ~0u}) EXPECT_TRUE(refuses(1, rate, make_noise())) << rate;
  for (const double amplitude : {nan_time, double{inf}, -1.0}) EXPECT_TRUE(refuses(1, 4, make_noise(amplitude)));
  EXPECT_TRUE(refuses(1, 4, nullptr));
  PolyMeshData prism = make_prism(4);
  prism.uv_maps[0].positions[0].x = inf;
  PolyMesh without_uv, round;
  create(without_uv, prism);
  displace(mesh, without_uv, make_image(), 4);
  EXPECT_TRUE(gmath_is_valid_box(mesh.get_primitive_bbox(world.ctx, 0))) << "a height that is NaN";
  create(round, make_prism(4100));
  DisplacedMeshSettings finest;
  finest.rate = DisplacedMeshSettings::most_rate;
  finest.height = make_noise();
  CoreString error;
  EXPECT_FALSE(mesh.create(round, finest, error)) << "2^32 micro-triangles in a polygon";
  displace(mesh, base, make_noise(), 4);
  EXPECT_TRUE(refuses(1, 4, make_image())) << "no UV map";
  EXPECT_TRUE(refuses(1, 4, std::make_shared<GeometryImageHeight>(2, 2, std::vector<float>(3))));
  EXPECT_TRUE(refuses(1, 4, std::make_shared<GeometryImageHeight>(0, 0, std::vector<float>())));
}

TEST(DisplacedMesh, memory_includes_the_boxes_of_all_tiles) {
  PolyMesh base;
  create(base, make_prism(50));
  DisplacedMesh coarse, fine;
  displace(coarse, base, make_noise(), 1, 0);
  displace(fine, base, make_noise(), 1024, 0);
  const uint patches = 2 * 48 + 50 * 2, more_tiles = 36 - 1;
  EXPECT_GE(fine.get_memory_size() - coarse.get_memory_size(), sizeof(GMathBbox3<float>) * patches * more_tiles);
}

// The thread sanitizer sees a read that is too early.
TEST(DisplacedMeshBoxes, are_read_only_once_they_are_written) {
  constexpr uint count = 200000;
  const auto get_box = [](uint k) { return GMathBbox3<float>(VecF(k, 1, 2), VecF(k, 3, 4)); };
  DisplacedMeshBoxes boxes(count);
  std::thread writer([&] {
    for (uint k = 0; k < count; ++k) boxes.put(k, get_box(k));
  });
  GMathBbox3<float> box;
  for (uint k = 0; k < count; ++k) {
    while (!boxes.get(k, box)) continue;
    EXPECT_EQ(box, get_box(k));
  }
  writer.join();
}

TEST(DisplacedMeshCache, keeps_the_first_of_two_tiles_of_one_place) {
  PolyMesh base;
  create(base, make_octahedron());
  const DisplacedMeshInput input(base, make_noise(), 0.1, 4);
  const DisplacedMeshPatch patch(input, 0, 0, 0, 1);
  const DisplacedMeshTileShape shape(4, 4);
  DisplacedMeshCache cache(u64{1} << 20, 4096);
  const auto insert = [&] {
    return cache.insert({0, 0}, std::make_shared<DisplacedMeshTile>(patch, shape, 0, 0, 1, cache.get_bytes()));
  };
  const DisplacedMeshCache::Pin first = insert();
  EXPECT_EQ(insert(), first);
  EXPECT_EQ(cache.get_bytes().now, first->get_bytes());
}

}  // namespace
