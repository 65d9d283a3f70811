#include "bench/bench_mesh.h"

#include <algorithm>
#include <cmath>
#include <numbers>

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
  return data;
}

}  // namespace

GMathBbox3<double> BenchMesh::get_bbox() const {
  GMathBbox3<double> box;
  for (const u32 index : indices) box.add(GMathVec3<double>(positions[index]));
  return box;
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

bool bench_fill_poly_mesh(const BenchMesh& mesh, PolyMesh& poly_mesh) {
  CoreString fault;
  return poly_mesh.create(make_data(mesh), fault);
}

bool bench_fill_moving_poly_mesh(const BenchMesh& mesh, uint sample_count, PolyMesh& poly_mesh) {
  PolyMeshData data = make_data(mesh);
  const double rise = 0.2 * mesh.get_bbox().get_extent().y;
  data.motion_step = 1.0 / std::max(1u, sample_count - 1);
  for (uint sample = 0; sample < sample_count; ++sample) {
    const double time = sample * data.motion_step;
    std::vector<GMathVec3<float>> moved;
    moved.reserve(mesh.positions.size());
    for (const GMathVec3<float>& position : mesh.positions)
      moved.push_back(GMathVec3<float>(GMathVec3<double>(position) * (1.0 + 0.1 * time) +
                                       GMathVec3<double>(0.0, rise * time, 0.0)));
    data.motion_positions.push_back(std::move(moved));
  }
  CoreString fault;
  return poly_mesh.create(std::move(data), fault);
}
