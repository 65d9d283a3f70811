// tests/support/mesh_file.h
//
// Mesh files of a folder, welded by position, for tests that try real meshes.
#pragma once
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <assimp/Importer.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/mesh_scenes.h"

/// False when the file is not read as a mesh.
inline bool read_mesh_file(const std::string& path, PolyMeshData& data) {
  Assimp::Importer importer;
  // Normals and the like would keep vertices at one place apart, and the mesh would have open seams.
  importer.SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS | aiComponent_TEXCOORDS | aiComponent_COLORS |
                                                          aiComponent_TANGENTS_AND_BITANGENTS);
  const aiScene* scene = importer.ReadFile(path, aiProcess_RemoveComponent | aiProcess_JoinIdenticalVertices);
  if (scene == nullptr || scene->mNumMeshes == 0) return false;
  for (const aiMesh* mesh : std::vector<const aiMesh*>(scene->mMeshes, scene->mMeshes + scene->mNumMeshes)) {
    const auto base = static_cast<u32>(data.positions.size());
    for (const aiVector3D& p : std::vector<aiVector3D>(mesh->mVertices, mesh->mVertices + mesh->mNumVertices))
      data.positions.push_back({p.x, p.y, p.z});
    for (const aiFace& face : std::vector<aiFace>(mesh->mFaces, mesh->mFaces + mesh->mNumFaces)) {
      std::vector<u32> vertices(face.mIndices, face.mIndices + face.mNumIndices);
      for (u32& vertex : vertices) vertex += base;
      add_polygon(data, vertices);
    }
  }
  return !data.polygon_sizes.empty();
}

/// The meshes of the folder that the environment variable VQ_TEST_DATA names, by file name; none without it. A file
/// that is not understood is left out, with a word.
inline std::vector<MeshScene> read_mesh_folder() {
  std::vector<MeshScene> scenes;
  const char* folder = std::getenv("VQ_TEST_DATA");
  if (folder == nullptr || !std::filesystem::is_directory(folder)) return scenes;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".obj" && entry.path().extension() != ".ply") continue;
    MeshScene scene{entry.path().filename().string(), {}};
    if (read_mesh_file(entry.path().string(), scene.data)) {
      scenes.push_back(std::move(scene));
    } else {
      std::printf("%s is not read as a mesh\n", scene.name.c_str());
    }
  }
  std::sort(scenes.begin(), scenes.end(), [](const MeshScene& a, const MeshScene& b) { return a.name < b.name; });
  return scenes;
}

/// The polygons as a fan of triangles each: what two triangle tracers can be given alike.
inline PolyMeshData triangulated(const PolyMeshData& data) {
  PolyMeshData out;
  out.positions = data.positions;
  std::size_t first = 0;
  for (const u32 size : data.polygon_sizes) {
    for (u32 k = 2; k < size; ++k)
      add_polygon(
          out, {data.polygon_vertices[first], data.polygon_vertices[first + k - 1], data.polygon_vertices[first + k]});
    first += size;
  }
  return out;
}
