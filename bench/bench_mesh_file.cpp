#include "bench/bench_mesh_file.h"

#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <assimp/Importer.hpp>
#include <filesystem>

bool bench_load_mesh(const std::string& path, BenchMesh& mesh, std::string& fault) {
  Assimp::Importer importer;
  importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
  const aiScene* scene = importer.ReadFile(path, aiProcess_Triangulate | aiProcess_JoinIdenticalVertices |
                                                     aiProcess_SortByPType | aiProcess_PreTransformVertices);
  if (scene == nullptr) {
    fault = importer.GetErrorString();
    return false;
  }
  mesh.name = std::filesystem::path(path).stem().string();
  for (uint part = 0; part < scene->mNumMeshes; ++part) {
    const aiMesh& from = *scene->mMeshes[part];
    const u32 first_vertex = static_cast<u32>(mesh.positions.size());
    for (uint vertex = 0; vertex < from.mNumVertices; ++vertex)
      mesh.positions.emplace_back(from.mVertices[vertex].x, from.mVertices[vertex].y, from.mVertices[vertex].z);
    for (uint face = 0; face < from.mNumFaces; ++face) {
      if (from.mFaces[face].mNumIndices != 3) continue;
      for (uint corner = 0; corner < 3; ++corner)
        mesh.indices.push_back(first_vertex + from.mFaces[face].mIndices[corner]);
    }
  }
  if (mesh.indices.empty()) fault = "no triangles";
  return !mesh.indices.empty();
}
