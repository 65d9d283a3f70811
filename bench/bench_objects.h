// bench/bench_objects.h
//
// Scenes to measure with: many objects that share a few meshes, static or moving. Every library gets the same meshes
// and the same matrices, whose entries are floats.
#pragma once
#include <string>
#include <vector>

#include "bench/bench_mesh.h"
#include "vq_gmath/gmath_matrix.h"

using BenchMatrix = GMathMatrix4x4<double>;

struct BenchObjects {
  struct Object {
    uint mesh = 0;
    std::vector<BenchMatrix> matrices;  ///< object to world, one per motion sample over [0, 1]; static: one
  };

  std::string name;
  std::vector<BenchMesh> meshes;
  std::vector<Object> objects;
  /// [object] number of its first triangle: the triangles of all objects are numbered consecutively.
  std::vector<u32> first_triangles;

  bool has_motion() const { return objects[0].matrices.size() > 1; }
  uint get_sample_count() const { return static_cast<uint>(objects[0].matrices.size()); }
  /// Triangles of all objects; a shared mesh is counted for each.
  uint get_triangle_count() const;
  /// The box around all objects at all samples.
  GMathBbox3<double> get_bbox() const;
  /// Normal in world space at `time`, of unit length; the triangle must have an area.
  GMathVec3<double> get_normal(uint triangle, double time) const;
};

enum class BenchSceneStyle {
  swarm,   ///< side by side in a cube: up to 20 meshes of 5 000 triangles on average
  giants,  ///< overlapping deeply: up to 8 meshes of 250 000 triangles
  plants   ///< side by side on a plane: up to 20 meshes of 50 to 500 triangles
};

/// The same scene on every machine with the same mathematical functions.
/// @param sample_count  0: static. Else each object moves by a part of its size and turns by up to 0.4 radians
BenchObjects bench_make_objects(BenchSceneStyle style, uint object_count, uint sample_count);
/// "swarm-10k", "giants-200", "plants-200k": style and number of objects. False for any other name.
bool bench_read_scene_name(const std::string& name, BenchSceneStyle& style, uint& object_count);
