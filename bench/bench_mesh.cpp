#include "bench/bench_mesh.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "bench/bench_name.h"
#include "bench/bench_random.h"

namespace {

constexpr double tau = 2.0 * std::numbers::pi;

/// Adds two triangles per cell of `rows` x `columns` cells. In a direction without wrap there is one more vertex than
/// cells.
void add_grid(BenchMesh& mesh, uint rows, uint columns, bool rows_wrap, bool columns_wrap) {
  const uint row_vertices = columns_wrap ? columns : columns + 1;
  mesh.indices.reserve(std::size_t{6} * rows * columns);
  for (uint row = 0; row < rows; ++row) {
    const u32 here = row * row_vertices;
    const u32 next = (rows_wrap ? (row + 1) % rows : row + 1) * row_vertices;
    for (uint column = 0; column < columns; ++column) {
      const u32 right = columns_wrap ? (column + 1) % columns : column + 1;
      for (const u32 index : {here + column, next + column, next + right, here + column, next + right, here + right})
        mesh.indices.push_back(index);
    }
  }
}

double get_height(double x, double z) {
  double height = 0.0, amplitude = 0.06, frequency = 2.0 * tau;
  for (uint octave = 0; octave < 7; ++octave) {
    const double turn = 1.7 * octave;
    const double along = std::cos(turn) * x + std::sin(turn) * z, across = std::cos(turn) * z - std::sin(turn) * x;
    height += amplitude * std::sin(frequency * along + turn) * std::cos(0.8 * frequency * across);
    amplitude *= 0.45;
    frequency *= 2.1;
  }
  return height;
}

GMathVec3<double> get_trefoil_point(double angle) {
  const double radius = 2.0 + std::cos(3.0 * angle);
  return {radius * std::cos(2.0 * angle), radius * std::sin(2.0 * angle), std::sin(3.0 * angle)};
}

PolyMeshData make_data(const BenchMesh& mesh) {
  PolyMeshData data;
  data.positions = mesh.positions;
  data.polygon_vertices = mesh.indices;
  data.polygon_sizes.assign(mesh.get_triangle_count(), 3);
  data.motion_positions = mesh.samples;
  data.motion_step = 1.0 / static_cast<double>(std::max<std::size_t>(mesh.samples.size(), 2) - 1);
  return data;
}

}  // namespace

GMathBbox3<double> BenchMesh::get_bbox() const {
  GMathBbox3<double> box;
  for (const u32 index : indices) {
    if (samples.empty()) box.add(GMathVec3<double>(positions[index]));
    for (const std::vector<GMathVec3<float>>& sample : samples) box.add(GMathVec3<double>(sample[index]));
  }
  return box;
}

BenchMesh::Moment BenchMesh::get_moment(double time) const {
  const double place = time * static_cast<double>(samples.size() - 1);
  const std::size_t first = std::min(static_cast<std::size_t>(place), samples.size() - 1);
  const std::size_t second = std::min(first + 1, samples.size() - 1);
  return {&samples[first], &samples[second], place - static_cast<double>(first)};
}

GMathVec3<double> BenchMesh::get_normal(uint triangle, double time) const {
  GMathVec3<double> corner[3];
  for (uint k = 0; k < 3; ++k)
    corner[k] = samples.empty() ? get_vertex(triangle, k)
                                : get_moment(time).get_position(indices[std::size_t{3} * triangle + k]);
  return (corner[1] - corner[0]).cross(corner[2] - corner[0]);
}

BenchMesh bench_make_terrain(uint triangle_count) {
  BenchMesh mesh;
  mesh.name = "terrain";
  const uint cells = static_cast<uint>(std::max(1.0, std::round(std::sqrt(0.5 * triangle_count))));
  for (uint row = 0; row <= cells; ++row) {
    for (uint column = 0; column <= cells; ++column) {
      const double x = double(column) / cells, z = double(row) / cells;
      mesh.positions.push_back(GMathVec3<float>(GMathVec3<double>(x, get_height(x, z), z)));
    }
  }
  add_grid(mesh, cells, cells, false, false);
  return mesh;
}

BenchMesh bench_make_knot(uint triangle_count) {
  BenchMesh mesh;
  mesh.name = "knot";
  const uint around = static_cast<uint>(std::max(3.0, std::round(std::sqrt(triangle_count / 24.0))));
  const uint along = std::max(16u, triangle_count / (2 * around));
  for (uint row = 0; row < along; ++row) {
    const double angle = tau * row / along;
    const GMathVec3<double> center = get_trefoil_point(angle);
    const GMathVec3<double> tangent = (get_trefoil_point(angle + 1e-4) - center).get_normalized();
    const GMathVec3<double> side = tangent.cross({0.0, 0.0, 1.0}).get_normalized();
    const GMathVec3<double> up = side.cross(tangent);
    for (uint column = 0; column < around; ++column) {
      const double turn = tau * column / around;
      mesh.positions.push_back(GMathVec3<float>(center + side * (0.4 * std::cos(turn)) + up * (0.4 * std::sin(turn))));
    }
  }
  add_grid(mesh, along, around, true, true);
  return mesh;
}

BenchMesh bench_make_ball(uint triangle_count) {
  BenchMesh mesh;
  mesh.name = "ball";
  const uint rows = static_cast<uint>(std::max(2.0, std::round(std::sqrt(triangle_count / 4.0)))), columns = 2 * rows;
  for (uint row = 0; row <= rows; ++row) {
    const double latitude = 0.5 * tau * row / rows, radius = std::sin(latitude);
    for (uint column = 0; column < columns; ++column) {
      const double turn = tau * column / columns;
      mesh.positions.push_back(
          GMathVec3<float>(GMathVec3<double>(radius * std::cos(turn), std::cos(latitude), radius * std::sin(turn))));
    }
  }
  add_grid(mesh, rows, columns, false, true);
  return mesh;
}

BenchMesh bench_make_speck(uint triangle_count) {
  const uint sparse = std::max(2u, triangle_count / 50);
  BenchMesh mesh = bench_make_terrain(sparse);
  mesh.name = "speck";
  const BenchMesh ball = bench_make_ball(triangle_count - std::min(sparse, triangle_count));
  const u32 first = static_cast<u32>(mesh.positions.size());
  for (const GMathVec3<float>& position : ball.positions)
    mesh.positions.push_back(GMathVec3<float>(GMathVec3<double>(position) * 0.01 + GMathVec3<double>(0.5, 0.1, 0.5)));
  for (const u32 index : ball.indices) mesh.indices.push_back(first + index);
  return mesh;
}

BenchMesh bench_make_needles(uint triangle_count) {
  BenchMesh mesh;
  mesh.name = "needles";
  BenchRandom random(29);
  const auto make_vec = [&] {
    return GMathVec3<double>(random.get_unit(), random.get_unit(), random.get_unit()) * 2.0 -
           GMathVec3<double>(1.0, 1.0, 1.0);
  };
  const uint count = std::max(1u, triangle_count / 12);
  const double length = 0.3, width = 0.2 / std::sqrt(static_cast<double>(count));
  constexpr u32 corners[] = {0, 1, 3, 0, 3, 2, 4, 6, 7, 4, 7, 5, 0, 4, 5, 0, 5, 1,
                             2, 3, 7, 2, 7, 6, 0, 2, 6, 0, 6, 4, 1, 5, 7, 1, 7, 3};
  for (uint needle = 0; needle < count; ++needle) {
    const GMathVec3<double> center = make_vec(), along = make_vec().get_normalized();
    const GMathVec3<double> side = along.cross(make_vec()).get_normalized(), up = along.cross(side);
    const u32 first = static_cast<u32>(mesh.positions.size());
    for (const u32 corner : corners) mesh.indices.push_back(first + corner);
    for (uint k = 0; k < 8; ++k)
      mesh.positions.push_back(GMathVec3<float>(center + along * (k & 1 ? length : -length) +
                                                side * (k & 2 ? width : -width) + up * (k & 4 ? width : -width)));
  }
  return mesh;
}

bool bench_make_mesh(const std::string& name, BenchMesh& mesh) {
  struct Kind {
    const char* name;
    BenchMesh (*make)(uint);
  };
  constexpr Kind kinds[] = {{"terrain", bench_make_terrain},
                            {"knot", bench_make_knot},
                            {"ball", bench_make_ball},
                            {"speck", bench_make_speck},
                            {"needles", bench_make_needles}};
  std::string kind;
  uint count = 0;
  if (!bench_split_name(name, kind, count)) return false;
  const auto* found = std::find_if(std::begin(kinds), std::end(kinds), [&](const Kind& k) { return kind == k.name; });
  if (found == std::end(kinds)) return false;
  mesh = found->make(count);
  mesh.name = name;
  return true;
}

void bench_add_motion(BenchMesh& mesh, uint sample_count) {
  const GMathBbox3<double> box = mesh.get_bbox();
  const GMathVec3<double> center = box.get_center();
  mesh.samples.clear();
  for (uint sample = 0; sample < sample_count; ++sample) {
    const double time = double(sample) / std::max(1u, sample_count - 1), angle = time * tau / 6.0;
    const double scale = 1.0 + 0.1 * time, c = scale * std::cos(angle), s = scale * std::sin(angle);
    const double rise = 0.2 * box.get_extent().y * time;
    std::vector<GMathVec3<float>>& moved = mesh.samples.emplace_back();
    moved.reserve(mesh.positions.size() + 1);  // a peer reads four bytes past the last position
    for (const GMathVec3<float>& position : mesh.positions) {
      const GMathVec3<double> p = GMathVec3<double>(position) - center;
      moved.push_back(
          GMathVec3<float>(center + GMathVec3<double>(c * p.x + s * p.z, scale * p.y + rise, c * p.z - s * p.x)));
    }
  }
}

void bench_prepare_for_peers(BenchMesh& mesh) {
  // Smaller meshes fit into a cache, and the copy would take its space: measured, 5 % slower.
  constexpr std::size_t least_copied = 200'000;
  mesh.positions.reserve(mesh.positions.size() + 1);
  if (mesh.get_triangle_count() < least_copied || !mesh.samples.empty()) return;
  mesh.corners.reserve(mesh.indices.size());
  for (const u32 index : mesh.indices) mesh.corners.push_back(mesh.positions[index]);
}

bool bench_fill_poly_mesh(const BenchMesh& mesh, PolyMesh& poly_mesh) {
  CoreString fault;
  return poly_mesh.create(make_data(mesh), fault);
}
