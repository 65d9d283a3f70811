// bench/bench_mesh.h
//
// Triangle meshes to measure with, as plain arrays; every library gets the same numbers.
#pragma once
#include <string>
#include <vector>

#include "vq_core/core_types.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_gmath/gmath_bbox.h"

struct BenchMesh {
  std::string name;
  std::vector<GMathVec3<float>> positions;
  std::vector<u32> indices;  ///< three per triangle

  uint get_triangle_count() const { return static_cast<uint>(indices.size() / 3); }
  GMathVec3<double> get_vertex(uint triangle, uint corner) const {
    return GMathVec3<double>(positions[indices[std::size_t{3} * triangle + corner]]);
  }
  /// Not normalized; zero for a triangle without area.
  GMathVec3<double> get_normal(uint triangle) const {
    const GMathVec3<double> a = get_vertex(triangle, 0);
    return (get_vertex(triangle, 1) - a).cross(get_vertex(triangle, 2) - a);
  }
  GMathBbox3<double> get_bbox() const;
};

/// Rolling hills of about `triangle_count` triangles, a sum of a few octaves of waves. Adjacent triangles are near each
/// other in memory, as in a scanned height field.
BenchMesh bench_make_terrain(uint triangle_count);
/// A tube along a trefoil knot: curved, closed, and different from every side.
BenchMesh bench_make_knot(uint triangle_count);
/// A unit ball of circles of latitude; triangles at the poles have no area.
BenchMesh bench_make_ball(uint triangle_count);

/// Makes the library's own mesh, without motion. False if the library rejects it.
bool bench_fill_poly_mesh(const BenchMesh& mesh, PolyMesh& poly_mesh);
/// The same with `sample_count` motion samples over [0, 1]: the mesh grows by a tenth and rises.
bool bench_fill_moving_poly_mesh(const BenchMesh& mesh, uint sample_count, PolyMesh& poly_mesh);
