// tools/vqgas/import/scene_mesh_reader.h
#pragma once
#include <assimp/scene.h>

#include <map>
#include <string>
#include <vector>

#include "tools/vqgas/source/mesh_builder.h"

/// Joins an importer's meshes to meshes of the program. Polygons keep their corners and the order of the file. A
/// shading group is a material, or a mesh if materials have no names; its color is the material's, or one by its number
/// in the file. UV map k has channel k of all meshes joined, and its first name.
class SceneMeshReader {
 public:
  SceneMeshReader(const std::string& path, const aiScene& scene) : path_(path), scene_(scene) {}

  /// The mesh of a node by its index there. Throws InputError when there is no such mesh.
  const aiMesh& get_mesh(const aiNode& node, uint index) const;

  /// Appends a mesh, its vertices transformed by `matrix`.
  void add(const aiMesh& mesh, const aiMatrix4x4& matrix = {});
  /// Appends a mesh with other vertex positions and without normals.
  void add(const aiMesh& mesh, const GMathVec3<float>* positions);

  /// Returns the mesh and begins a new one.
  MeshSource finish();
  MeshSource finish_unwelded();

  /// True if any mesh had a polygon so far.
  bool has_polygon() const { return has_polygon_; }

 private:
  /// A channel of texture coordinates of the importer, and the index of its first one in the UV map.
  struct UvChannel {
    uint map, first_uv;
  };

  std::vector<UvChannel> add_uvs(const aiMesh& mesh);
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
