// tools/vqgas/import/scene_mesh_reader.h
#pragma once
#include <assimp/scene.h>

#include <map>
#include <string>
#include <vector>

#include "tools/vqgas/source/mesh_builder.h"

/// Joins an importer's meshes to those of the program. Polygons keep their corners and the order of the file. A shading
/// group is a material, or a mesh where materials have no names; its colour is the material's, or else that of its
/// number in the file.
class SceneMeshReader {
 public:
  SceneMeshReader(const std::string& path, const aiScene& scene) : path_(path), scene_(scene) {}

  /// The number of a mesh of a node. Throws InputError when there is no such mesh.
  const aiMesh& get_mesh(const aiNode& node, uint index) const;

  /// Appends a mesh to the one on its way, its vertices as they are or moved by `matrix`.
  void add(const aiMesh& mesh, const aiMatrix4x4& matrix = {});
  /// With its vertices at `positions` and no normals.
  void add(const aiMesh& mesh, const GMathVec3<float>* positions);

  /// Hands out the mesh and begins another.
  MeshSource finish();
  MeshSource finish_unwelded();

  /// Whether any mesh had a polygon so far.
  bool has_polygon() const { return has_polygon_; }

 private:
  uint add_normals(const aiMesh& mesh, const aiMatrix4x4& matrix);
  void add_faces(const aiMesh& mesh, uint first_vertex, bool has_normals, uint first_normal);
  uint find_group(const aiMesh& mesh);
  void begin();

  const std::string& path_;
  const aiScene& scene_;
  MeshBuilder builder_;
  std::map<std::string, uint> groups_;       ///< of the mesh
  std::map<std::string, uint> file_groups_;  ///< of all meshes
  std::vector<u32> vertices_, normals_, uvs_;
  bool has_polygon_ = false;
};
