// bench/bench_mesh.h
//
// Triangle meshes to measure on, in the plainest form: every library under test is given the same numbers.
#pragma once
#include <string>
#include <vector>

#include "vq_core/core_types.h"
#include "vq_geometry/poly_mesh.h"
#include "vq_gmath/gmath_bbox.h"

struct BenchMesh {
  std::string name;
  std::vector<GMathVec3<float>> positions;
  std::vector<u32> indices;  ///< three a triangle

  uint get_triangle_count() const { return static_cast<uint>(indices.size() / 3); }
  GMathVec3<double> get_vertex(uint triangle, uint corner) const {
    return GMathVec3<double>(positions[indices[std::size_t{3} * triangle + corner]]);
  }
  /// Not normalised; zero for a triangle without area.
  GMathVec3<double> get_normal(uint triangle) const {
    const GMathVec3<double> a = get_vertex(triangle, 0);
    return (get_vertex(triangle, 1) - a).cross(get_vertex(triangle, 2) - a);
  }
  GMathBbox3<double> get_bbox() const;
};

/// Rolling hills of about `triangle_count` triangles, made from a few octaves of waves; neighbours in the mesh are
/// neighbours in memory, as in a scanned height field.
BenchMesh bench_make_terrain(uint triangle_count);
/// A tube along a trefoil knot: curved, closed, and in its own way from every side.
BenchMesh bench_make_knot(uint triangle_count);
/// A unit ball of circles of latitude; triangles at the poles have no area.
BenchMesh bench_make_ball(uint triangle_count);

/// As the library's own mesh, without motion. False when the mesh refuses it.
bool bench_fill_poly_mesh(const BenchMesh& mesh, PolyMesh& poly_mesh);
/// The same with `sample_count` motion samples over [0, 1], in which the mesh swells by a tenth while it rises.
bool bench_fill_moving_poly_mesh(const BenchMesh& mesh, uint sample_count, PolyMesh& poly_mesh);
