#include "bench/bench_objects.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "bench/bench_name.h"
#include "bench/bench_random.h"

namespace {

using Vec = GMathVec3<double>;

struct Style {
  uint mesh_count;
  uint mean_triangles;
  double least_size, greatest_size;  ///< radii of objects whose centers are about 1 apart
  bool is_flat;                      ///< on a plane, not in a cube
};
constexpr Style styles[] = {{20, 5000, 0.35, 0.7, false}, {8, 250000, 0.7, 1.3, false}, {20, 275, 0.35, 0.7, true}};

/// Triangles of mesh `number`: from nearly none to twice the mean; of plants, from 50 to 500.
uint count_triangles(const Style& style, uint number, uint mesh_count) {
  if (style.is_flat) return 50 + 450 * number / std::max(1u, mesh_count - 1);
  return style.mean_triangles * (2 * number + 1) / mesh_count;
}

/// Shape `number`: a lumpy mesh, centered, in a ball of radius 1.
BenchMesh make_shape(uint number, uint triangle_count) {
  BenchMesh mesh = number % 3 == 0   ? bench_make_knot(triangle_count)
                   : number % 3 == 1 ? bench_make_ball(triangle_count)
                                     : bench_make_terrain(triangle_count);
  const GMathBbox3<double> box = mesh.get_bbox();
  const Vec center = box.get_center();
  const double scale = 1.0 / (0.65 * box.get_extent().get_length());
  for (GMathVec3<float>& position : mesh.positions) {
    const Vec at = (Vec(position) - center) * scale;
    const auto wave = [&](double x) { return 0.1 * std::sin(7.0 * x + number); };
    position = GMathVec3<float>(at + Vec(wave(at.y), wave(at.z), wave(at.x)));
  }
  return mesh;
}

Vec make_vec(BenchRandom& random) {
  const double x = random.get_unit(), y = random.get_unit(), z = random.get_unit();
  return {2.0 * x - 1.0, 2.0 * y - 1.0, 2.0 * z - 1.0};
}

/// Rotation matrix by Rodrigues' formula; `axis` is of unit length.
BenchMatrix make_turn(const Vec& axis, double angle) {
  const double c = std::cos(angle), s = std::sin(angle);
  BenchMatrix turn;
  const double across[3][3] = {{0, -axis.z, axis.y}, {axis.z, 0, -axis.x}, {-axis.y, axis.x, 0}};
  for (uint row = 0; row < 3; ++row) {
    for (uint column = 0; column < 3; ++column)
      turn.m[row][column] = (row == column ? c : 0.0) + s * across[row][column] + (1 - c) * axis[row] * axis[column];
  }
  return turn;
}

/// Position of object `number` of `count`.
Vec make_place(const Style& style, uint number, uint count, BenchRandom& random) {
  const Vec jitter = make_vec(random) * 0.4;
  const uint flat_side = static_cast<uint>(std::ceil(std::sqrt(count)));
  if (style.is_flat) return Vec(number % flat_side, 0.0, number / flat_side) + jitter;
  const uint side = static_cast<uint>(std::ceil(std::cbrt(count)));
  return Vec(number % side, number / side % side, number / (side * side)) + jitter;
}

std::vector<BenchMatrix> make_matrices(const Style& style, const Vec& place, uint sample_count, BenchRandom& random) {
  BenchMatrix scale;
  for (uint axis = 0; axis < 3; ++axis)
    scale.m[axis][axis] = style.least_size + (style.greatest_size - style.least_size) * random.get_unit();
  const Vec axis = make_vec(random).get_normalized(), spin_axis = make_vec(random).get_normalized();
  const BenchMatrix base = make_turn(axis, 6.0 * random.get_unit()) * scale;
  const Vec way = make_vec(random) * (0.5 * style.least_size);
  const double spin = 0.4 * random.get_unit();
  std::vector<BenchMatrix> matrices;
  for (uint sample = 0; sample < std::max(1u, sample_count); ++sample) {
    const double time = sample_count > 1 ? double(sample) / (sample_count - 1) : 0.0;
    BenchMatrix matrix = make_turn(spin_axis, spin * time) * base;
    for (uint row = 0; row < 3; ++row) {
      matrix.m[row][3] = place[row] + way[row] * time;
      for (double& entry : matrix.m[row]) entry = static_cast<float>(entry);
    }
    matrices.push_back(matrix);
  }
  return matrices;
}

}  // namespace

uint BenchObjects::get_triangle_count() const {
  return first_triangles.back() + meshes[objects.back().mesh].get_triangle_count();
}

GMathBbox3<double> BenchObjects::get_bbox() const {
  std::vector<GMathBbox3<double>> boxes;
  for (const BenchMesh& mesh : meshes) boxes.push_back(mesh.get_bbox());
  GMathBbox3<double> box;
  for (const Object& object : objects) {
    for (const BenchMatrix& matrix : object.matrices) {
      const GMathBbox3<double> moved = matrix.transform_box(boxes[object.mesh]);
      box.add(moved.min);
      box.add(moved.max);
    }
  }
  return box;
}

GMathVec3<double> BenchObjects::get_normal(uint triangle, double time) const {
  const auto after = std::upper_bound(first_triangles.begin(), first_triangles.end(), triangle);
  const Object& object = objects[static_cast<std::size_t>(after - first_triangles.begin()) - 1];
  const double place = time * (get_sample_count() - 1);
  const std::size_t first = static_cast<std::size_t>(place), second = std::min(first + 1, object.matrices.size() - 1);
  const double share = place - static_cast<double>(first);
  Vec corner[3];
  for (uint k = 0; k < 3; ++k) {
    const Vec at = meshes[object.mesh].get_vertex(triangle - *(after - 1), k);
    corner[k] = object.matrices[first].transform_point(at) * (1.0 - share) +
                object.matrices[second].transform_point(at) * share;
  }
  return (corner[1] - corner[0]).cross(corner[2] - corner[0]).get_normalized();
}

BenchObjects bench_make_objects(BenchSceneStyle style_name, uint object_count, uint sample_count) {
  const Style& style = styles[static_cast<uint>(style_name)];
  BenchRandom random(17);
  BenchObjects scene;
  const uint mesh_count = std::min(style.mesh_count, object_count);
  for (uint k = 0; k < mesh_count; ++k) scene.meshes.push_back(make_shape(k, count_triangles(style, k, mesh_count)));
  for (uint k = 0; k < object_count; ++k) scene.objects.push_back({k % mesh_count, {}});
  for (std::size_t k = object_count - 1; k > 0; --k)
    std::swap(scene.objects[k].mesh, scene.objects[random.get_next() % (k + 1)].mesh);
  u32 triangles = 0;
  for (uint k = 0; k < object_count; ++k) {
    BenchObjects::Object& object = scene.objects[k];
    object.matrices = make_matrices(style, make_place(style, k, object_count, random), sample_count, random);
    scene.first_triangles.push_back(triangles);
    triangles += scene.meshes[object.mesh].get_triangle_count();
  }
  return scene;
}

bool bench_read_scene_name(const std::string& name, BenchSceneStyle& style, uint& object_count) {
  std::string kind;
  if (!bench_split_name(name, kind, object_count) || object_count > 1000000) return false;
  const std::string kinds[] = {"swarm", "giants", "plants"};  // in the order of the styles
  const auto found = std::find(std::begin(kinds), std::end(kinds), kind);
  style = static_cast<BenchSceneStyle>(found - std::begin(kinds));
  return found != std::end(kinds);
}
