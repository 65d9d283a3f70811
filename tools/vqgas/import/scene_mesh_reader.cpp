#include "tools/vqgas/import/scene_mesh_reader.h"

#include <assimp/material.h>

#include <algorithm>
#include <utility>

#include "tools/vqgas/support/input_error.h"

namespace {

/// Importers give polygons without a material one of their own, gray or white, with a fixed name or none. A material of
/// the file keeps these colors.
bool is_made_by_importer(const aiMaterial& material, const aiColor3D& diffuse) {
  const std::string name = material.GetName().C_Str();
  const aiColor3D gray(0.6f, 0.6f, 0.6f), white(1.0f, 1.0f, 1.0f);
  return (name.empty() || name == AI_DEFAULT_MATERIAL_NAME) && (diffuse == gray || diffuse == white);
}

Color get_material_color(const aiMaterial& material, uint group) {
  aiColor3D diffuse;
  if (material.Get(AI_MATKEY_COLOR_DIFFUSE, diffuse) != AI_SUCCESS) return palette_color(group);
  if (is_made_by_importer(material, diffuse)) return palette_color(group);
  const auto channel = [](float value) { return std::clamp(decode_srgb(value), 0.03f, 0.85f); };
  return {channel(diffuse.r), channel(diffuse.g), channel(diffuse.b)};
}

}  // namespace

const aiMesh& SceneMeshReader::get_mesh(const aiNode& node, uint index) const {
  if (node.mMeshes[index] >= scene_.mNumMeshes || scene_.mMeshes[node.mMeshes[index]] == nullptr)
    throw InputError(path_, "a node names a mesh that does not exist");
  return *scene_.mMeshes[node.mMeshes[index]];
}

void SceneMeshReader::add(const aiMesh& mesh, const aiMatrix4x4& matrix) {
  const uint first_vertex = builder_.get_vertex_count();
  for (uint k = 0; k < mesh.mNumVertices; ++k) {
    const aiVector3D p = matrix * mesh.mVertices[k];
    builder_.add_vertex({p.x, p.y, p.z});
  }
  const bool has_normals = mesh.HasNormals();
  add_faces(mesh, first_vertex, has_normals, has_normals ? add_normals(mesh, matrix) : 0);
}

void SceneMeshReader::add(const aiMesh& mesh, const GMathVec3<float>* positions) {
  const uint first_vertex = builder_.get_vertex_count();
  for (uint k = 0; k < mesh.mNumVertices; ++k) builder_.add_vertex(GMathVec3<double>(positions[k]));
  add_faces(mesh, first_vertex, false, 0);
}

uint SceneMeshReader::add_normals(const aiMesh& mesh, const aiMatrix4x4& matrix) {
  const aiMatrix3x3 normal_matrix = aiMatrix3x3(matrix).Inverse().Transpose();
  uint first = 0;
  for (uint k = 0; k < mesh.mNumVertices; ++k) {
    const aiVector3D n = normal_matrix * mesh.mNormals[k];
    const uint index = builder_.add_normal(GMathVec3<float>(n.x, n.y, n.z).get_normalized());
    if (k == 0) first = index;
  }
  return first;
}

std::vector<SceneMeshReader::UvChannel> SceneMeshReader::add_uvs(const aiMesh& mesh) {
  std::vector<UvChannel> channels;
  for (uint map = 0; map < AI_MAX_NUMBER_OF_TEXTURECOORDS; ++map) {
    if (!mesh.HasTextureCoords(map)) continue;
    if (mesh.HasTextureCoordsName(map)) builder_.name_uv_map(map, mesh.GetTextureCoordsName(map)->C_Str());
    UvChannel channel{map, 0};
    for (uint k = 0; k < mesh.mNumVertices; ++k) {
      const aiVector3D& uv = mesh.mTextureCoords[map][k];
      const uint index = builder_.add_uv({uv.x, uv.y, uv.z}, map);
      if (k == 0) channel.first_uv = index;
    }
    channels.push_back(channel);
  }
  return channels;
}

void SceneMeshReader::add_faces(const aiMesh& mesh, uint first_vertex, bool has_normals, uint first_normal) {
  const std::vector<UvChannel> channels = add_uvs(mesh);
  const uint group = find_group(mesh);
  for (uint number = 0; number < mesh.mNumFaces; ++number) {
    const aiFace& face = mesh.mFaces[number];
    vertices_.clear(), normals_.clear();
    for (uint k = 0; k < face.mNumIndices; ++k) {
      const uint index = face.mIndices[k];
      if (index >= mesh.mNumVertices)
        throw InputError(path_, "polygon " + std::to_string(number) + " names a vertex that does not exist");
      vertices_.push_back(first_vertex + index);
      if (has_normals) normals_.push_back(first_normal + index);
    }
    has_polygon_ |= face.mNumIndices >= 3;
    builder_.add_polygon(vertices_, group, normals_);
    for (const UvChannel& channel : channels) {
      uvs_.clear();
      for (uint k = 0; k < face.mNumIndices; ++k) uvs_.push_back(channel.first_uv + face.mIndices[k]);
      builder_.set_uvs(channel.map, uvs_);
    }
  }
}

uint SceneMeshReader::find_group(const aiMesh& mesh) {
  std::string name;
  const aiMaterial* material =
      mesh.mMaterialIndex < scene_.mNumMaterials ? scene_.mMaterials[mesh.mMaterialIndex] : nullptr;
  if (material != nullptr) name = material->GetName().C_Str();
  if (name.empty() || name == AI_DEFAULT_MATERIAL_NAME) name = mesh.mName.C_Str();
  if (name.empty()) name = "default";
  const uint number = file_groups_.try_emplace(name, static_cast<uint>(file_groups_.size())).first->second;
  const auto [place, is_new] = groups_.try_emplace(name, static_cast<uint>(groups_.size()));
  if (is_new)
    builder_.add_group(name, material != nullptr ? get_material_color(*material, number) : palette_color(number));
  return place->second;
}

void SceneMeshReader::begin() {
  builder_ = MeshBuilder();
  groups_.clear();
}

MeshSource SceneMeshReader::finish() {
  MeshSource mesh = builder_.finish();
  begin();
  return mesh;
}

MeshSource SceneMeshReader::finish_unwelded() {
  MeshSource mesh = builder_.finish_unwelded();
  begin();
  return mesh;
}
