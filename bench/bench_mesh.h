// bench/bench_mesh.h
//
// Triangle meshes to measure with, static or moving, as plain arrays; every library gets the same numbers.
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
  /// The positions of each triangle's corners, side by side, of large meshes; else empty. For peers.
  std::vector<GMathVec3<float>> corners;
  /// The positions of each motion sample over [0, 1]; between two samples vertices move in straight lines. Static:
  /// none.
  std::vector<std::vector<GMathVec3<float>>> samples;

  uint get_triangle_count() const { return static_cast<uint>(indices.size() / 3); }
  GMathVec3<double> get_vertex(uint triangle, uint corner) const {
    return GMathVec3<double>(positions[indices[std::size_t{3} * triangle + corner]]);
  }
  /// The blend of two motion samples.
  struct Moment {
    const std::vector<GMathVec3<float>>*first, *second;
    double fraction;

    GMathVec3<double> get_position(u32 vertex) const {
      return GMathVec3<double>((*first)[vertex]) * (1.0 - fraction) + GMathVec3<double>((*second)[vertex]) * fraction;
    }
  };
  /// Only of a moving mesh.
  Moment get_moment(double time) const;
  /// Not normalized; zero for a triangle without area.
  GMathVec3<double> get_normal(uint triangle, double time = 0.0) const;
  /// Around all samples.
  GMathBbox3<double> get_bbox() const;
};

/// Rolling hills of about `triangle_count` triangles, a sum of a few octaves of waves. Adjacent triangles are near each
/// other in memory, as in a scanned height field.
BenchMesh bench_make_terrain(uint triangle_count);
/// A tube along a trefoil knot: curved, closed, and different from every side.
BenchMesh bench_make_knot(uint triangle_count);
/// A unit ball of circles of latitude; triangles at the poles have no area.
BenchMesh bench_make_ball(uint triangle_count);

/// A tiny dense ball, of nearly all triangles, on a wide terrain of few.
BenchMesh bench_make_speck(uint triangle_count);
/// Long thin boxes in all directions, of twelve triangles each, in a cube.
BenchMesh bench_make_needles(uint triangle_count);
/// False for another name than those above, without "bench_make_", and a number: "terrain-8m".
bool bench_make_mesh(const std::string& name, BenchMesh& mesh);
/// Makes the mesh move in `sample_count` samples: it turns by a sixth of a circle, grows by a tenth and rises.
void bench_add_motion(BenchMesh& mesh, uint sample_count);

/// What peers need: the copy of corners, and room behind the last position, because Embree reads four bytes past it.
void bench_prepare_for_peers(BenchMesh& mesh);
/// Makes the library's own mesh. False if the library rejects it.
bool bench_fill_poly_mesh(const BenchMesh& mesh, PolyMesh& poly_mesh);
