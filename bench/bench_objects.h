// bench/bench_objects.h
//
// Scenes to measure on: many objects that share a few meshes, at rest or moving. Every library under test is given the
// same meshes and the same matrices, whose entries are floats.
#pragma once
#include <string>
#include <vector>

#include "bench/bench_mesh.h"
#include "vq_gmath/gmath_matrix.h"

using BenchMatrix = GMathMatrix4x4<double>;

struct BenchObjects {
  struct Object {
    uint mesh = 0;
    std::vector<BenchMatrix> matrices;  ///< object to world, one a motion sample over [0, 1]; one at rest
  };

  std::string name;
  std::vector<BenchMesh> meshes;
  std::vector<Object> objects;
  /// [object]: triangles of all objects are numbered one after the other, object by object.
  std::vector<u32> first_triangles;

  bool has_motion() const { return objects[0].matrices.size() > 1; }
  uint get_sample_count() const { return static_cast<uint>(objects[0].matrices.size()); }
  /// Of all objects, shared meshes counted each time.
  uint get_triangle_count() const;
  /// Around the boxes of all objects at all samples.
  GMathBbox3<double> get_bbox() const;
  /// In the world at `time`, of unit length; the triangle must have an area.
  GMathVec3<double> get_normal(uint triangle, double time) const;
};

enum class BenchSceneStyle {
  swarm,  ///< side by side in a cube: up to 20 meshes of 5 000 triangles in the mean
  giants  ///< the same, deep into each other: up to 8 meshes of 250 000
};

/// The same on every machine with the same mathematical functions.
/// @param sample_count  0: at rest. Else each object moves by some of its size and turns by up to 0.4 radians
BenchObjects bench_make_objects(BenchSceneStyle style, uint object_count, uint sample_count);
/// "swarm-10k", "giants-200": style and number of objects. False for any other name.
bool bench_read_scene_name(const std::string& name, BenchSceneStyle& style, uint& object_count);
