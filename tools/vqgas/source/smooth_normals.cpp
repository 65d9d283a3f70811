// tools/vqgas/source/smooth_normals.cpp
#include <cmath>
#include <numbers>

#include "tools/vqgas/source/mesh_builder.h"

namespace {

/// Around a vertex of more polygons than this only the polygon's own normal is taken: comparing all with all would cost
/// the square of their number.
constexpr std::size_t most_polygons_compared = 256;

/// The polygons around each vertex: those of vertex v are polygons[first[v]] … polygons[first[v + 1] - 1].
struct VertexPolygons {
  std::vector<u32> first, polygons;
};

VertexPolygons find_vertex_polygons(const PolyMeshData& data) {
  VertexPolygons around;
  around.first.assign(data.positions.size() + 1, 0);
  for (const u32 vertex : data.polygon_vertices) ++around.first[vertex + 1];
  for (std::size_t vertex = 0; vertex < data.positions.size(); ++vertex)
    around.first[vertex + 1] += around.first[vertex];
  around.polygons.resize(data.polygon_vertices.size());
  std::vector<u32> next(around.first.begin(), around.first.end() - 1);
  std::size_t corner = 0;
  for (u32 polygon = 0; polygon < data.polygon_sizes.size(); ++polygon) {
    for (u32 k = 0; k < data.polygon_sizes[polygon]; ++k)
      around.polygons[next[data.polygon_vertices[corner++]]++] = polygon;
  }
  return around;
}

/// Twice the area along the normal of each polygon (Newell's sum, which also serves bent polygons).
std::vector<GMathVec3<double>> compute_polygon_normals(const PolyMeshData& data) {
  std::vector<GMathVec3<double>> normals;
  normals.reserve(data.polygon_sizes.size());
  std::size_t first = 0;
  for (const u32 size : data.polygon_sizes) {
    GMathVec3<double> sum;
    const auto get_corner = [&](u32 k) {
      return GMathVec3<double>(data.positions[data.polygon_vertices[first + k % size]]);
    };
    for (u32 k = 1; k + 1 < size; ++k) sum += (get_corner(k) - get_corner(0)).cross(get_corner(k + 1) - get_corner(0));
    normals.push_back(sum);
    first += size;
  }
  return normals;
}

}  // namespace

void complete_normals(PolyMeshData& data, double crease_degrees) {
  if (!data.motion_positions.empty() || data.polygon_vertices.empty()) return;
  const VertexPolygons around = find_vertex_polygons(data);
  const std::vector<GMathVec3<double>> polygon_normals = compute_polygon_normals(data);
  const double least_cosine = std::cos(crease_degrees * std::numbers::pi / 180.0);
  if (data.normals.empty()) data.normals.emplace_back();
  data.corner_normals.resize(data.polygon_vertices.size(), 0);

  std::size_t corner = 0;
  for (u32 polygon = 0; polygon < data.polygon_sizes.size(); ++polygon) {
    const GMathVec3<double> own = polygon_normals[polygon].get_normalized();
    for (u32 k = 0; k < data.polygon_sizes[polygon]; ++k, ++corner) {
      if (data.normals[data.corner_normals[corner]] != GMathVec3<float>()) continue;
      const u32 vertex = data.polygon_vertices[corner];
      const u32 begin = around.first[vertex], end = around.first[vertex + 1];
      GMathVec3<double> sum = own;
      if (end - begin <= most_polygons_compared) {
        sum = {};
        for (u32 at = begin; at < end; ++at) {
          const GMathVec3<double>& other = polygon_normals[around.polygons[at]];
          if (own.dot(other) >= least_cosine * other.get_length()) sum += other;
        }
      }
      data.corner_normals[corner] = static_cast<u32>(data.normals.size());
      data.normals.emplace_back(sum.get_normalized());
    }
  }
}
